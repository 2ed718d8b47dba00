// The console's commands. A command gets its words (the first is its name), already counted against its description,
// and gives whether it succeeded. What it cannot use it throws as Unusable.
#pragma once

#include "tsphost/fields.h"
#include "tsphost/host.h"
#include "tsphost/words.h"

#include <span>
#include <string>
#include <type_traits>

namespace Tsphost {

struct Command {
    const char* group;
    const char* name;
    const char* arguments;  // "CALL [MODE [TEXT]]"
    const char* help;       // what it does, in a line
    const char* more;       // what `help NAME` says beside it
    bool (*run)(const Words& words);
};
std::span<const Command> Commands();

// Carries out one console line. False when it failed; `quit` is set by the command that ends the console.
bool RunCommand(const std::string& line, bool& quit);

// --- what commands are made of

// An export under its name.
template <class Function> Function Export(const char* name) {
    const auto function = FindExport<Function>(TheHost.Library, name);
    if (function == nullptr)
        throw Unusable{std::string("this provider does not export ") + name};
    return function;
}

void Print(const std::string& name, const std::string& value);
// Prints a result; true for success.
bool Report(const char* name, LONG result);

// Windows' constants are int where the entry points take DWORD.
template <class Argument> auto Passed(Argument argument) {
    if constexpr (std::is_same_v<Argument, int>)
        return static_cast<DWORD>(argument);
    else
        return argument;
}

// An entry point that answers at once: ZT_CALL(TSPI_lineClose, TheHost.Line). Its result is printed.
template <class Function, class... Arguments> bool Call(const char* name, Arguments... arguments) {
    return Report(name, Export<Function>(name)(Passed(arguments)...));
}
#define ZT_CALL(name, ...) Call<decltype(&name)>(#name, __VA_ARGS__)

// One that takes a request: the identifier in front of the other arguments is ours.
DRV_REQUESTID NewRequest();
bool ReportRequest(const char* name, DRV_REQUESTID request, LONG result);
template <class Function, class... Arguments> bool Request(const char* name, Arguments... arguments) {
    const auto function = Export<Function>(name);
    const DRV_REQUESTID request = NewRequest();
    return ReportRequest(name, request, function(request, Passed(arguments)...));
}
#define ZT_REQUEST(name, ...) Request<decltype(&name)>(#name, __VA_ARGS__)

// The device that a version is agreed on for: none in particular before the provider has been told its identifiers.
DWORD NegotiatedDevice(DWORD device);
// A call by the provider's handle, or the word last for the last one announced or made; that one when there is no word.
HDRVCALL CallAt(const Words& words, std::size_t at);
// Prints a structure's fields. False when the provider wrote behind its end.
bool PrintFields(const Buffer& buffer, std::span<const Field> fields);

// --- by subject
// clang-format off
// provider.cpp
bool Enumerate(const Words&), Initialise(const Words&), Shutdown(const Words&), Identify(const Words&),
    Install(const Words&), Remove(const Words&), Configure(const Words&), FreeDialog(const Words&),
    DialogData(const Words&), UiConfig(const Words&), UiLine(const Words&), UiPhone(const Words&), UiInstall(const Words&),
    UiRemove(const Words&);
// line.cpp
bool Negotiate(const Words&), ExtVersion(const Words&), OpenLine(const Words&), CloseLine(const Words&),
    DevCaps(const Words&), AddressCaps(const Words&), GetID(const Words&), NumAddress(const Words&),
    AddressID(const Words&), StatusMessages(const Words&), MediaDetection(const Words&), Conditional(const Words&),
    MediaMode(const Words&), AppSpecific(const Words&);
// requests.cpp
bool MakeCall(const Words&), Dial(const Words&), Answer(const Words&), Drop(const Words&), Hold(const Words&),
    Unhold(const Words&), BlindTransfer(const Words&), SetupTransfer(const Words&), CompleteTransfer(const Words&),
    SetupConference(const Words&), AddToConference(const Words&), PrepareAddToConference(const Words&),
    RemoveFromConference(const Words&), Forward(const Words&), Pickup(const Words&), GenerateDigits(const Words&),
    GenerateTone(const Words&), CloseCall(const Words&);
// status.cpp
bool CallInfo(const Words&), CallStatus(const Words&), AddressStatus(const Words&), LineStatus(const Words&),
    CallAddressID(const Words&);
// phone.cpp
bool PhoneNegotiate(const Words&), OpenPhone(const Words&), ClosePhone(const Words&), PhoneCaps(const Words&),
    PhoneDisplay(const Words&), PhoneLamp(const Words&), PhoneButton(const Words&), PhoneHookSwitch(const Words&),
    PhoneOther(const Words&);
std::string PhoneOtherNames();
// scripts.cpp
bool Wait(const Words&), Expect(const Words&), Completion(const Words&), Forget(const Words&), Sleep(const Words&), Echo(const Words&),
    Counts(const Words&);
// clang-format on

}  // namespace Tsphost
