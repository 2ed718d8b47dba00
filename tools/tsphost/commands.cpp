// The table of commands, and what they share.
#include "tsphost/commands.h"

#include <algorithm>
#include <cstring>

namespace Tsphost {

namespace {

bool Fails(const Words& words);
bool Help(const Words& words);
bool Quit(const Words&);

// What the service does at its start. The version is agreed on twice: before the provider knows its devices, and for the
// line.
bool Start(const Words&) {
    return Enumerate({}) && Negotiate({}) && Initialise({}) && Negotiate({}) && OpenLine({});
}

constexpr const char* CALL_HELP = "CALL is a call's number, or last: the last one announced or made (also without it).";
constexpr const char* TWO_CALLS_HELP = "A call is named by its number, or by last: the last one announced or made.";
constexpr const char* SIZE_HELP =
    "SIZE is the room in bytes that the provider is given. Fields that are 0 are left out.";
constexpr const char* TEXT_HELP = "null instead of the text is a null pointer; \"\" is an empty text.";

constexpr Command Table[] = {
    {"console", "start", "", "enum, negotiate, init, negotiate, open: as the service does", "", Start},
    {"console", "wait", "TEXT... [TIME]", "until an event contains TEXT",
     "TIME is like 500ms or 5s; 10s without it. Looks on from where the last wait or expect ended.", Wait},
    {"console", "expect", "TEXT... [TIME]", "fails unless the next event contains TEXT",
     "TIME is like 500ms or 5s; 10s without it. Looks on from where the last wait or expect ended.", Expect},
    {"console", "completion", "[RESULT] [TIME]", "until the last request is completed",
     "Fails when the result is another than RESULT (0 without it), like LINEERR_OPERATIONFAILED. expect does not see "
     "its event.",
     Completion},
    {"console", "forget", "", "wait and expect look at later events only", "", Forget},
    {"console", "fails", "RESULT COMMAND...", "fails unless the entry point behind COMMAND gives RESULT",
     "RESULT is a number or a published name, like LINEERR_INVALCALLSTATE.", Fails},
    {"console", "sleep", "TIME", "does nothing for so long (500ms, 5s)", "", Sleep},
    {"console", "echo", "[TEXT...]", "prints TEXT", "", Echo},
    {"console", "counts", "", "threads and handles (open files, not on Windows) of this process", "", Counts},
    {"console", "help", "[NAME]", "this list; arguments of a command", "", Help},
    {"console", "quit", "", "ends the console", "", Quit},

    {"provider", "enum", "", "TSPI_providerEnumDevices", "", Enumerate},
    {"provider", "init", "", "TSPI_providerInit", "", Initialise},
    {"provider", "shutdown", "", "TSPI_providerShutdown", "", Shutdown},
    {"provider", "uiidentify", "", "TSPI_providerUIIdentify", "", Identify},
    {"provider", "install", "", "TSPI_providerInstall", "", Install},
    {"provider", "remove", "", "TSPI_providerRemove", "", Remove},
    {"provider", "config", "", "TSPI_providerConfig", "", Configure},
    {"provider", "freedialog", "", "TSPI_providerFreeDialogInstance", "", FreeDialog},
    {"provider", "dialogdata", "TYPE BYTE...", "TSPI_providerGenericDialogData",
     "TYPE is 1 for the line, 2 for the phone, 3 for the provider. The bytes are given padded with zeroes to 256.",
     DialogData},
    {"provider", "uiconfig", "", "TUISPI_providerConfig: the dialog, and what it asks of the provider", "", UiConfig},
    {"provider", "uiline", "[DEVICE]", "TUISPI_lineConfigDialog", "", UiLine},
    {"provider", "uiphone", "[DEVICE]", "TUISPI_phoneConfigDialog", "", UiPhone},
    {"provider", "uiinstall", "", "TUISPI_providerInstall", "", UiInstall},
    {"provider", "uiremove", "", "TUISPI_providerRemove", "", UiRemove},

    {"line", "negotiate", "[LOW [HIGH]]", "TSPI_lineNegotiateTSPIVersion", "", Negotiate},
    {"line", "extversion", "", "TSPI_lineNegotiateExtVersion", "", ExtVersion},
    {"line", "open", "", "TSPI_lineOpen", "", OpenLine},
    {"line", "close", "", "TSPI_lineClose", "", CloseLine},
    {"line", "devcaps", "[SIZE]", "TSPI_lineGetDevCaps", SIZE_HELP, DevCaps},
    {"line", "addresscaps", "[SIZE [ADDRESS]]", "TSPI_lineGetAddressCaps", SIZE_HELP, AddressCaps},
    {"line", "id", "[CLASS [SIZE]]", "TSPI_lineGetID", "CLASS is tapi/line without it.", GetID},
    {"line", "numaddress", "", "TSPI_lineGetNumAddressIDs", "", NumAddress},
    {"line", "addressid", "TEXT", "TSPI_lineGetAddressID", TEXT_HELP, AddressID},
    {"line", "statusmessages", "LINE ADDRESS", "TSPI_lineSetStatusMessages",
     "Numbers or published names, like CONNECTED|INSERVICE and FORWARD.", StatusMessages},
    {"line", "mediadetection", "MODES", "TSPI_lineSetDefaultMediaDetection", "Like INTERACTIVEVOICE, or a number.",
     MediaDetection},
    {"line", "conditional", "MODES", "TSPI_lineConditionalMediaDetection", "Like INTERACTIVEVOICE, or a number.",
     Conditional},
    {"line", "mediamode", "CALL MODE", "TSPI_lineSetMediaMode", "Like INTERACTIVEVOICE, or a number.", MediaMode},
    {"line", "appspecific", "CALL VALUE", "TSPI_lineSetAppSpecific", CALL_HELP, AppSpecific},

    {"calls", "makecall", "DEST [NAME=VALUE...]", "TSPI_lineMakeCall",
     "Without NAME=VALUE no call parameters are given; the word params alone gives the usual ones.", MakeCall},
    {"calls", "dial", "CALL DIGITS [COUNTRY]", "TSPI_lineDial", TEXT_HELP, Dial},
    {"calls", "answer", "[CALL]", "TSPI_lineAnswer", CALL_HELP, Answer},
    {"calls", "drop", "[CALL]", "TSPI_lineDrop", CALL_HELP, Drop},
    {"calls", "hold", "[CALL]", "TSPI_lineHold", CALL_HELP, Hold},
    {"calls", "unhold", "[CALL]", "TSPI_lineUnhold", CALL_HELP, Unhold},
    {"calls", "blindtransfer", "CALL DEST [COUNTRY]", "TSPI_lineBlindTransfer", TEXT_HELP, BlindTransfer},
    {"calls", "setuptransfer", "[CALL [NAME=VALUE...]]", "TSPI_lineSetupTransfer",
     "The consultation call is the last call afterwards. NAME=VALUE is as with makecall.", SetupTransfer},
    {"calls", "completetransfer", "CALL CONSULT [transfer|conference]", "TSPI_lineCompleteTransfer", TWO_CALLS_HELP,
     CompleteTransfer},
    {"calls", "setupconf", "[CALL [PARTIES]]", "TSPI_lineSetupConference", "null instead of CALL is no call.",
     SetupConference},
    {"calls", "addtoconf", "CONFERENCE CALL", "TSPI_lineAddToConference", TWO_CALLS_HELP, AddToConference},
    {"calls", "prepareaddtoconf", "CONFERENCE", "TSPI_linePrepareAddToConference", TWO_CALLS_HELP,
     PrepareAddToConference},
    {"calls", "removefromconf", "[CALL]", "TSPI_lineRemoveFromConference", CALL_HELP, RemoveFromConference},
    {"calls", "forward", "uncond|busy|noanswer|busyna|cancel [DEST]", "TSPI_lineForward",
     "cancel gives no list of forwardings; the others need DEST. Another mode by number or published name.", Forward},
    {"calls", "pickup", "ADDRESS [GROUP]", "TSPI_linePickup", TEXT_HELP, Pickup},
    {"calls", "digits", "CALL TEXT [MODE [DURATION]]", "TSPI_lineGenerateDigits",
     "MODE is DTMF without it. null instead of the text ends a generation that runs.", GenerateDigits},
    {"calls", "tone", "[CALL [MODE [DURATION]]]", "TSPI_lineGenerateTone", "MODE is BEEP without it.", GenerateTone},
    {"calls", "closecall", "[CALL]", "TSPI_lineCloseCall", CALL_HELP, CloseCall},

    {"status", "callinfo", "[CALL [SIZE]]", "TSPI_lineGetCallInfo", SIZE_HELP, CallInfo},
    {"status", "callstatus", "[CALL [SIZE]]", "TSPI_lineGetCallStatus", SIZE_HELP, CallStatus},
    {"status", "calladdressid", "[CALL]", "TSPI_lineGetCallAddressID", CALL_HELP, CallAddressID},
    {"status", "addressstatus", "[SIZE [ADDRESS]]", "TSPI_lineGetAddressStatus", SIZE_HELP, AddressStatus},
    {"status", "linestatus", "[SIZE]", "TSPI_lineGetLineDevStatus", SIZE_HELP, LineStatus},

    {"phone", "phonenegotiate", "[LOW [HIGH]]", "TSPI_phoneNegotiateTSPIVersion", "", PhoneNegotiate},
    {"phone", "phoneopen", "", "TSPI_phoneOpen", "", OpenPhone},
    {"phone", "phoneclose", "", "TSPI_phoneClose", "", ClosePhone},
    {"phone", "phonecaps", "[SIZE]", "TSPI_phoneGetDevCaps", SIZE_HELP, PhoneCaps},
    {"phone", "display", "[SIZE]", "TSPI_phoneGetDisplay", SIZE_HELP, PhoneDisplay},
    {"phone", "lamp", "[ID]", "TSPI_phoneGetLamp",
     "Lamps are 0 to 19, the icons of the keys 0 to 88 are 20 to 108. Without ID all that are not 0.", PhoneLamp},
    {"phone", "button", "keypad|display|feature ID", "TSPI_phoneSetButtonInfo",
     "ID is a number; on the keypad also * and #.", PhoneButton},
    {"phone", "hookswitch", "onhook|offhook|MODE [DEVICE]", "TSPI_phoneSetHookSwitch",
     "MODE is a published name like SPEAKER; DEVICE is HANDSET without it.", PhoneHookSwitch},
    {"phone", "phone", "NAME", "any other TSPI_phone entry point", "", PhoneOther},
};

bool QuitAsked = false;

bool Quit(const Words&) {
    QuitAsked = true;
    return true;
}

void PrintRow(const Command& command) {
    Say(Row(command.name, command.help));
}

std::string Usage(const Command& command) {
    return std::string(command.name) + (*command.arguments == 0 ? "" : " ") + command.arguments;
}

bool HelpFor(const std::string& name) {
    bool found = false;
    for (const Command& command : Table)
        if (name == command.group && name != command.name) {
            PrintRow(command);
            found = true;
        }
    for (const Command& command : Table) {
        if (name != command.name)
            continue;
        Say(Usage(command) + ": " + command.help);
        if (*command.more != 0)
            Say(std::string("  ") + command.more);
        if (std::strstr(command.arguments, "NAME=VALUE") != nullptr)
            Say("  Names: " + CallParamNames() + ".");
        if (command.run == PhoneOther)
            Say("  Names: " + PhoneOtherNames() + ".");
        found = true;
    }
    if (!found)
        Say("there is no command \"" + name + "\"; help lists them");
    return found;
}

bool Help(const Words& words) {
    if (words.size() > 1)
        return HelpFor(words[1]);
    const char* group = "";
    for (const Command& command : Table) {
        if (std::strcmp(group, command.group) != 0)
            Say(command.group);
        group = command.group;
        PrintRow(command);
    }
    Say("help NAME says the arguments of a command. Flags are numbers or published names joined with '|'.");
    return true;
}

bool Run(const Words& words) {
    const auto* const command =
        std::find_if(std::begin(Table), std::end(Table), [&](const Command& one) { return words[0] == one.name; });
    if (command == std::end(Table))
        throw Unusable{"unknown command; help lists them"};
    const ArgumentCount count = CountArguments(command->arguments);
    const std::size_t given = words.size() - 1;
    if (given < count.Least || given > count.Most)
        throw Unusable{std::string("too ") + (given < count.Least ? "few" : "many") + " arguments: " + Usage(*command)};
    return command->run(words);
}

bool Fails(const Words& words) {
    const LONG wanted = ResultAt(words, 1);
    TheHost.LastResult.reset();
    Run(Words(words.begin() + 2, words.end()));
    if (TheHost.LastResult == wanted)
        return true;
    Say(ResultName(wanted) + " expected" + (TheHost.LastResult ? "" : ", and no entry point was called"));
    return false;
}

}  // namespace

std::span<const Command> Commands() {
    return Table;
}

bool RunCommand(const std::string& line, bool& quit) {
    Words words;
    try {
        words = SplitWords(line);
        const bool done = words.empty() || words[0].starts_with('#') || Run(words);
        quit = QuitAsked;
        return done;
    } catch (const Unusable& unusable) {
        Say((words.empty() ? "" : words[0] + ": ") + unusable.Why);
        return false;
    }
}

void Print(const std::string& name, const std::string& value) {
    Say(Row(name, value));
}

bool Report(const char* name, LONG result) {
    TheHost.LastResult = result;
    Say(std::string(name) + ": " + ResultName(result));
    return result >= 0;
}

DRV_REQUESTID NewRequest() {
    const std::lock_guard guard(TheHost.Lock);
    TheHost.LastRequest = TheHost.NextRequest++;
    return TheHost.LastRequest;
}

// The answer to a request is its identifier when the provider took it; 0 leaves its end open.
bool ReportRequest(const char* name, DRV_REQUESTID request, LONG result) {
    if (result < 0)
        TheHost.LastRequest = 0;
    if (result <= 0)
        return Report(name, result);
    TheHost.LastResult = result;
    const bool ours = static_cast<DRV_REQUESTID>(result) == request;
    Say(std::string(name) + ": request " + std::to_string(result) +
        (ours ? "" : ", not the one that was made, " + std::to_string(request)));
    return ours;
}

DWORD NegotiatedDevice(DWORD device) {
    return TheHost.Initialised ? device : INITIALIZE_NEGOTIATION;
}

HDRVCALL CallAt(const Words& words, std::size_t at) {
    if (at < words.size() && words[at] != "last") {
        DWORD handle = 0;
        if (!ParseNumber(words[at], handle))
            throw Unusable{"\"" + words[at] + "\" is no call: a number, or last"};
        return reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(handle));
    }
    HDRVCALL call = nullptr;
    if (!LastCall(call))
        throw Unusable{"no call has been announced or made yet"};
    return call;
}

bool PrintFields(const Buffer& buffer, std::span<const Field> fields) {
    for (const std::string& line : FieldLines(buffer.Bytes(), fields))
        Say(line);
    if (buffer.Overrun())
        Say("  the provider wrote behind the end of the structure");
    return !buffer.Overrun();
}

}  // namespace Tsphost
