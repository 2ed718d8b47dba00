// The console's commands: one for each entry point, and a few of the console's own.
#include "tsphost/host.h"
#include "tsphost/names.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>

namespace {

using Words = std::vector<std::string>;

// An export under its name; says so when the provider does not have it.
template <class Function> Function Export(const char* name) {
    const auto function = FindExport<Function>(TheHost.Library, name);
    if (function == nullptr)
        Say(std::string("this provider does not export ") + name);
    return function;
}
#define ZT_EXPORT(name) Export<decltype(&name)>(#name)

// Prints a result; true for success.
bool Report(const char* what, LONG result) {
    Say(std::string(what) + ": " + ResultName(result));
    return result >= 0;
}

bool NumberOf(const Words& words, std::size_t at, DWORD& value) {
    if (at >= words.size())
        return false;
    char* end = nullptr;
    value = static_cast<DWORD>(std::strtoul(words[at].c_str(), &end, 0));
    return end != words[at].c_str() && *end == 0;
}

// The number at a place, or the default when there is none.
DWORD NumberOr(const Words& words, std::size_t at, DWORD otherwise) {
    DWORD value = otherwise;
    NumberOf(words, at, value);
    return value;
}

HDRVCALL CallHandle(DWORD call) {
    return reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(call));
}

void Field(const char* name, const std::string& value) {
    Say("  " + std::string(name) +
        std::string(name[0] == 0 ? 0 : std::max<std::size_t>(1, 26 - std::strlen(name)), ' ') + value);
}

// A buffer that a structure of the published kind lies in, `size` bytes long for the provider.
template <class Structure> struct Buffer {
    std::vector<DWORD> room;
    explicit Buffer(DWORD size) : room(std::max<std::size_t>(size, sizeof(Structure)) / 4 + 64) {
        (*this)->dwTotalSize = size;
    }
    Structure* operator->() { return reinterpret_cast<Structure*>(room.data()); }
    Structure* get() { return reinterpret_cast<Structure*>(room.data()); }
    std::string Text(DWORD offset, DWORD size) {
        if (offset == 0 || size < 2 || offset + size > room.size() * 4)
            return "(none)";
        std::vector<WCHAR> text(size / 2);
        std::memcpy(text.data(), reinterpret_cast<const char*>(room.data()) + offset, text.size() * 2);
        return '"' + FromWide(text.data(), text.size()) + '"';
    }
};

std::string Sizes(DWORD total, DWORD needed, DWORD used) {
    return "total " + std::to_string(total) + ", needed " + std::to_string(needed) + ", used " + std::to_string(used);
}

std::string Dial(const LINEDIALPARAMS& d) {
    return "pause " + std::to_string(d.dwDialPause) + ", speed " + std::to_string(d.dwDialSpeed) + ", digit " +
           std::to_string(d.dwDigitDuration) + ", dial tone " + std::to_string(d.dwWaitForDialtone) + " ms";
}

// --- the provider ------------------------------------------------------------------------------------------------------

bool Enumerate(const Words&) {
    const auto call = ZT_EXPORT(TSPI_providerEnumDevices);
    DWORD lines = 0, phones = 0;
    if (call == nullptr ||
        !Report("TSPI_providerEnumDevices", call(TheHost.ProviderID, &lines, &phones, nullptr, HostLineEvent, nullptr)))
        return false;
    Field("lines", std::to_string(lines));
    Field("phones", std::to_string(phones));
    return true;
}

bool Negotiate(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineNegotiateTSPIVersion);
    DWORD version = 0;
    if (call == nullptr)
        return false;
    const LONG result =
        call(TheHost.LineBase, NumberOr(words, 1, 0x00010004), NumberOr(words, 2, 0x00030000), &version);
    Field("version", Hex(version));
    return Report("TSPI_lineNegotiateTSPIVersion", result);
}

bool Initialise(const Words&) {
    const auto call = ZT_EXPORT(TSPI_providerInit);
    DWORD options = 0;
    if (call == nullptr || !Report("TSPI_providerInit", call(0x20000, TheHost.ProviderID, TheHost.LineBase,
                                                             TheHost.PhoneBase, 1, 1, HostCompletion, &options)))
        return false;
    TheHost.Initialised = true;
    Field("options", options == LINETSPIOPTION_NONREENTRANT ? "NONREENTRANT" : Hex(options));
    return true;
}

bool Shutdown(const Words&) {
    const auto call = ZT_EXPORT(TSPI_providerShutdown);
    TheHost.Line = nullptr;
    TheHost.Initialised = false;
    return call != nullptr && Report("TSPI_providerShutdown", call(0x20000, TheHost.ProviderID));
}

bool Identify(const Words&) {
    const auto call = ZT_EXPORT(TSPI_providerUIIdentify);
    WCHAR name[260] = {};
    if (call == nullptr || !Report("TSPI_providerUIIdentify", call(name)))
        return false;
    Field("library", FromWide(name, std::size(name)));
    return true;
}

bool Install(const Words&) {
    const auto call = ZT_EXPORT(TSPI_providerInstall);
    return call != nullptr && Report("TSPI_providerInstall", call(nullptr, TheHost.ProviderID));
}

bool Remove(const Words&) {
    const auto call = ZT_EXPORT(TSPI_providerRemove);
    return call != nullptr && Report("TSPI_providerRemove", call(nullptr, TheHost.ProviderID));
}

bool Configure(const Words&) {
    const auto call = ZT_EXPORT(TSPI_providerConfig);
    return call != nullptr && Report("TSPI_providerConfig", call(nullptr, TheHost.ProviderID));
}

// --- the line ------------------------------------------------------------------------------------------------------------

bool OpenLine(const Words&) {
    const auto call = ZT_EXPORT(TSPI_lineOpen);
    return call != nullptr &&
           Report("TSPI_lineOpen", call(TheHost.LineBase, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x51}),
                                        &TheHost.Line, 0x20000, HostLineEvent));
}

bool CloseLine(const Words&) {
    const auto call = ZT_EXPORT(TSPI_lineClose);
    return call != nullptr && Report("TSPI_lineClose", call(TheHost.Line));
}

bool DevCaps(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineGetDevCaps);
    Buffer<LINEDEVCAPS> caps(NumberOr(words, 1, 1024));
    if (call == nullptr || !Report("TSPI_lineGetDevCaps", call(TheHost.LineBase, 0x20000, 0, caps.get())))
        return false;
    Field("sizes", Sizes(caps->dwTotalSize, caps->dwNeededSize, caps->dwUsedSize));
    Field("provider information", caps.Text(caps->dwProviderInfoOffset, caps->dwProviderInfoSize));
    Field("switch information", caps.Text(caps->dwSwitchInfoOffset, caps->dwSwitchInfoSize));
    Field("line name", caps.Text(caps->dwLineNameOffset, caps->dwLineNameSize));
    Field("dwPermanentLineID", Hex(caps->dwPermanentLineID));
    Field("dwNumAddresses", std::to_string(caps->dwNumAddresses));
    Field("dwBearerModes", FlagNames(caps->dwBearerModes, BearerModes));
    Field("dwMediaModes", FlagNames(caps->dwMediaModes, MediaModes));
    Field("dwGenerateDigitModes", FlagNames(caps->dwGenerateDigitModes, DigitModes));
    Field("dwMaxNumActiveCalls", std::to_string(caps->dwMaxNumActiveCalls));
    Field("dwAnswerMode", caps->dwAnswerMode == LINEANSWERMODE_HOLD ? "HOLD" : Hex(caps->dwAnswerMode));
    Field("dwLineStates", FlagNames(caps->dwLineStates, LineDevStates));
    Field("MinDialParams", Dial(caps->MinDialParams));
    Field("MaxDialParams", Dial(caps->MaxDialParams));
    Field("DefaultDialParams", Dial(caps->DefaultDialParams));
    return true;
}

bool AddressCaps(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineGetAddressCaps);
    Buffer<LINEADDRESSCAPS> caps(NumberOr(words, 1, 1024));
    if (call == nullptr || !Report("TSPI_lineGetAddressCaps", call(TheHost.LineBase, 0, 0x20000, 0, caps.get())))
        return false;
    Field("sizes", Sizes(caps->dwTotalSize, caps->dwNeededSize, caps->dwUsedSize));
    Field("address", caps.Text(caps->dwAddressOffset, caps->dwAddressSize));
    Field("dwLineDeviceID", std::to_string(caps->dwLineDeviceID));
    Field("dwAddressStates", FlagNames(caps->dwAddressStates, AddressStates));
    Field("dwCallInfoStates", FlagNames(caps->dwCallInfoStates, CallInfoStates));
    Field("dwCallerIDFlags", FlagNames(caps->dwCallerIDFlags, PartyFlags));
    Field("dwCallStates", FlagNames(caps->dwCallStates, CallStates));
    Field("dwMaxNumActiveCalls", std::to_string(caps->dwMaxNumActiveCalls));
    Field("dwMaxNumOnHoldCalls", std::to_string(caps->dwMaxNumOnHoldCalls));
    Field("dwMaxNumConference", std::to_string(caps->dwMaxNumConference));
    Field("dwAddrCapFlags", FlagNames(caps->dwAddrCapFlags, AddrCapFlags));
    Field("dwCallFeatures", FlagNames(caps->dwCallFeatures, CallFeatures));
    Field("dwTransferModes", FlagNames(caps->dwTransferModes, TransferModes));
    Field("dwForwardModes", FlagNames(caps->dwForwardModes, ForwardModes));
    Field("dwAddressFeatures", FlagNames(caps->dwAddressFeatures, AddressFeatures));
    return true;
}

bool GetID(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineGetID);
    const auto deviceClass = ToWide(words.size() > 1 ? words[1] : "tapi/line");
    Buffer<VARSTRING> id(NumberOr(words, 2, 64));
    if (call == nullptr ||
        !Report("TSPI_lineGetID", call(TheHost.Line, 0, nullptr, 1, id.get(), deviceClass.c_str(), nullptr)))
        return false;
    Field("sizes", Sizes(id->dwTotalSize, id->dwNeededSize, id->dwUsedSize));
    if (id->dwStringSize == 4)
        Field("device identifier", std::to_string(id.room[id->dwStringOffset / 4]));
    return true;
}

bool NumAddress(const Words&) {
    const auto call = ZT_EXPORT(TSPI_lineGetNumAddressIDs);
    DWORD count = 0;
    if (call == nullptr || !Report("TSPI_lineGetNumAddressIDs", call(TheHost.Line, &count)))
        return false;
    Field("addresses", std::to_string(count));
    return true;
}

bool AddressID(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineGetAddressID);
    const auto address = ToWide(words.size() > 1 ? words[1] : "");
    DWORD id = 0;
    if (call == nullptr || !Report("TSPI_lineGetAddressID", call(TheHost.Line, &id, 1, address.c_str(),
                                                                 static_cast<DWORD>(address.size() * 2 + 2))))
        return false;
    Field("address identifier", std::to_string(id));
    return true;
}

bool ExtVersion(const Words&) {
    const auto call = ZT_EXPORT(TSPI_lineNegotiateExtVersion);
    DWORD version = 0;
    if (call == nullptr ||
        !Report("TSPI_lineNegotiateExtVersion", call(TheHost.LineBase, 0x20000, 0, 0xFFFFFFFF, &version)))
        return false;
    Field("extension version", Hex(version));
    return true;
}

bool StatusMessages(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineSetStatusMessages);
    return call != nullptr &&
           Report("TSPI_lineSetStatusMessages", call(TheHost.Line, NumberOr(words, 1, 0), NumberOr(words, 2, 0)));
}

bool MediaDetection(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineSetDefaultMediaDetection);
    return call != nullptr && Report("TSPI_lineSetDefaultMediaDetection", call(TheHost.Line, NumberOr(words, 1, 4)));
}

bool Conditional(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineConditionalMediaDetection);
    return call != nullptr &&
           Report("TSPI_lineConditionalMediaDetection", call(TheHost.Line, NumberOr(words, 1, 4), nullptr));
}

bool MediaMode(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineSetMediaMode);
    return call != nullptr &&
           Report("TSPI_lineSetMediaMode", call(CallHandle(NumberOr(words, 1, 0)), NumberOr(words, 2, 4)));
}

bool AppSpecific(const Words& words) {
    const auto call = ZT_EXPORT(TSPI_lineSetAppSpecific);
    return call != nullptr &&
           Report("TSPI_lineSetAppSpecific", call(CallHandle(NumberOr(words, 1, 0)), NumberOr(words, 2, 0)));
}

// --- the console's own -----------------------------------------------------------------------------------------------------

// `wait TEXT... [MS]`: the last word is the time-out when it is a number and not the only word.
bool Wait(const Words& words) {
    Words text(words.begin() + 1, words.end());
    DWORD milliseconds = 10'000;
    if (text.size() > 1 && NumberOf(text, text.size() - 1, milliseconds))
        text.pop_back();
    std::string wanted;
    for (const std::string& word : text)
        wanted += (wanted.empty() ? "" : " ") + word;
    if (wanted.empty()) {
        Say("wait for what?");
        return false;
    }
    if (WaitForEvent(wanted, milliseconds))
        return true;
    Say("no event with \"" + wanted + "\" within " + std::to_string(milliseconds) + " ms");
    return false;
}

bool Sleep(const Words& words) {
    std::this_thread::sleep_for(std::chrono::milliseconds(NumberOr(words, 1, 1000)));
    return true;
}

bool Echo(const Words& words) {
    std::string text;
    for (std::size_t i = 1; i < words.size(); ++i)
        text += (i > 1 ? " " : "") + words[i];
    Say(text);
    return true;
}

// Enumerates, negotiates, initialises and opens the line, as the service does at its start.
bool Start(const Words&) {
    return Enumerate({}) && Negotiate({}) && Initialise({}) && OpenLine({});
}

bool Help(const Words&);

struct Command {
    const char* name;
    const char* arguments;
    const char* help;
    bool (*run)(const Words& words);
};

constexpr Command Commands[] = {
    {"start", "", "enum, negotiate, init and open, as the service does", Start},
    {"enum", "", "TSPI_providerEnumDevices", Enumerate},
    {"negotiate", "[LOW HIGH]", "TSPI_lineNegotiateTSPIVersion", Negotiate},
    {"init", "", "TSPI_providerInit", Initialise},
    {"open", "", "TSPI_lineOpen", OpenLine},
    {"close", "", "TSPI_lineClose", CloseLine},
    {"shutdown", "", "TSPI_providerShutdown", Shutdown},
    {"devcaps", "[SIZE]", "TSPI_lineGetDevCaps into a buffer of SIZE bytes", DevCaps},
    {"addresscaps", "[SIZE]", "TSPI_lineGetAddressCaps", AddressCaps},
    {"id", "[CLASS [SIZE]]", "TSPI_lineGetID", GetID},
    {"numaddress", "", "TSPI_lineGetNumAddressIDs", NumAddress},
    {"addressid", "TEXT", "TSPI_lineGetAddressID", AddressID},
    {"extversion", "", "TSPI_lineNegotiateExtVersion", ExtVersion},
    {"statusmessages", "LINE ADDRESS", "TSPI_lineSetStatusMessages", StatusMessages},
    {"mediadetection", "MODES", "TSPI_lineSetDefaultMediaDetection", MediaDetection},
    {"conditional", "MODES", "TSPI_lineConditionalMediaDetection", Conditional},
    {"mediamode", "CALL MODE", "TSPI_lineSetMediaMode", MediaMode},
    {"appspecific", "CALL VALUE", "TSPI_lineSetAppSpecific", AppSpecific},
    {"uiidentify", "", "TSPI_providerUIIdentify", Identify},
    {"install", "", "TSPI_providerInstall", Install},
    {"remove", "", "TSPI_providerRemove", Remove},
    {"config", "", "TSPI_providerConfig", Configure},
    {"wait", "TEXT [MS]", "until an event contains TEXT (10 s unless MS)", Wait},
    {"sleep", "MS", "does nothing for so long", Sleep},
    {"echo", "TEXT", "prints TEXT", Echo},
    {"help", "", "this list", Help},
};

bool Help(const Words&) {
    for (const Command& command : Commands) {
        std::string head = std::string(command.name) + " " + command.arguments;
        head.resize(std::max<std::size_t>(head.size() + 1, 28), ' ');
        Say("  " + head + command.help);
    }
    Say("  quit                        ends the console");
    return true;
}

}  // namespace

bool RunCommand(const std::string& line, bool& quit) {
    std::istringstream in(line);
    Words words;
    for (std::string word; in >> word;)
        words.push_back(word);
    if (words.empty() || words[0][0] == '#')
        return true;
    if (words[0] == "quit" || words[0] == "exit") {
        quit = true;
        return true;
    }
    for (const Command& command : Commands)
        if (words[0] == command.name)
            return command.run(words);
    Say("unknown command \"" + words[0] + "\"; help lists them");
    return false;
}
