#include "ztsetup/trial.h"

#include <algorithm>

namespace Setup {

namespace {

constexpr std::string_view LINE_NAME = "CORVANE_ZT_6200_2.0_3";
constexpr std::uint32_t WAIT_MS = 200;         // for a message, before the user's wish to end is looked at
constexpr std::uint32_t DIAL_AFTER_MS = 3000;  // the set's keys are read then; before, a call fails
constexpr std::uint32_t DIAL_AGAIN_MS = 1000;
constexpr int DIAL_TRIES = 5;
constexpr std::uint32_t HANG_UP_MS = 5000;

struct Flag {
    std::uint32_t value;
    std::string_view name;
};
constexpr Flag CallStates[] = {{1, "IDLE"},
                               {2, "OFFERING"},
                               {8, "DIALTONE"},
                               {0x10, "DIALING"},
                               {0x20, "RINGBACK"},
                               {0x40, "BUSY"},
                               {0x100, "CONNECTED"},
                               {0x200, "PROCEEDING"},
                               {0x400, "ONHOLD"},
                               {0x800, "CONFERENCED"},
                               {0x1000, "ONHOLDPENDCONF"},
                               {0x2000, "ONHOLDPENDTRANSFER"},
                               {0x4000, "DISCONNECTED"},
                               {0x8000, "UNKNOWN"}};
constexpr Flag DeviceStates[] = {{1, "OTHER"},        {2, "RINGING"},      {4, "CONNECTED"},
                                 {8, "DISCONNECTED"}, {0x40, "INSERVICE"}, {0x80, "OUTOFSERVICE"},
                                 {0x200, "OPEN"},     {0x400, "CLOSE"},    {0x800, "NUMCALLS"},
                                 {0x40000, "REINIT"}, {0x80000, "LOCK"},   {0x1000000, "REMOVED"}};
constexpr Flag AddressStates[] = {
    {1, "OTHER"}, {8, "INUSEONE"}, {0x10, "INUSEMANY"}, {0x20, "NUMCALLS"}, {0x40, "FORWARD"}};
constexpr Flag AddressFeatures[] = {{1, "FORWARD"}, {2, "MAKECALL"}, {4, "PICKUP"}, {0x20, "SETUPCONF"}};
constexpr Flag CallFeatures[] = {{4, "ANSWER"},
                                 {8, "BLINDTRANSFER"},
                                 {0x20, "COMPLETETRANSF"},
                                 {0x40, "DIAL"},
                                 {0x80, "DROP"},
                                 {0x200, "GENERATEDIGITS"},
                                 {0x400, "GENERATETONE"},
                                 {0x800, "HOLD"},
                                 {0x40000, "REMOVEFROMCONF"},
                                 {0x2000000, "SETUPTRANSFER"},
                                 {0x4000000, "SWAPHOLD"},
                                 {0x8000000, "UNHOLD"}};

// Those that are set, by name; what has none in hexadecimal.
Message& AddFlags(Message& message, std::span<const Flag> flags, std::uint32_t value) {
    std::string_view between;
    for (const Flag& flag : flags)
        if ((value & flag.value) != 0) {
            message.Add(between).Add(flag.name);
            between = "|";
            value &= ~flag.value;
        }
    if (value != 0 || between.empty())
        message.Add(between).Add("0x").AddNumber(value, 16);
    return message;
}

// The calls seen so far, by numbers that a reader can follow; TAPI's handles come again.
struct Calls {
    std::array<std::uint32_t, 64> handles{};
    std::uint32_t count = 0;

    std::uint32_t NumberOf(std::uint32_t handle) {
        for (std::uint32_t i = count; i > 0 && i + handles.size() > count; --i)
            if (handles[(i - 1) % handles.size()] == handle)
                return i;
        handles[count++ % handles.size()] = handle;
        return count;
    }
    void Forget(std::uint32_t handle) { std::replace(handles.begin(), handles.end(), handle, 0U); }
};

struct Trial {
    std::string_view number;
    std::uint32_t began = Now();
    Calls calls;
    bool closed = false;
    // the call that it makes
    int tries = 0;
    bool made = false;
    std::uint32_t dialAt = 0, request = 0, own = 0;  // own: TAPI's handle while it lives
};

// A line of what happens, with the seconds since the start in front.
Message Stamp(const Trial& trial) {
    Message line;
    const std::uint32_t tenths = (Now() - trial.began) / 100;
    line.Add(tenths < 100 ? "  " : tenths < 1000 ? " " : "").AddNumber(tenths / 10).Add(".").AddNumber(tenths % 10);
    return line.Add(" s  ");
}

void AddParty(Message& message, std::string_view what, const Party& party) {
    if (party.number.length == 0 && party.name.length == 0)
        return;
    message.Add("  ").Add(what).Add(" ").Add(party.number.View());
    if (party.name.length != 0)
        message.Add(" \"").Add(party.name.View()).Add("\"");
}

void ShowCall(Trial& trial, std::uint32_t call) {
    CallFacts facts;
    Message line = Stamp(trial).Add("LINE_CALLINFO: call ").AddNumber(trial.calls.NumberOf(call));
    if (const std::uint32_t error = AskCall(call, facts); error != 0) {
        AddTapiWords(line.Add(" has no parties to tell. "), error);
    } else {
        AddParty(line, "caller", facts.caller);
        AddParty(line, "called", facts.called);
        AddParty(line, "connected", facts.connected);
        line.Add("\n");
    }
    Show(line.View());
}

void TakeReply(Trial& trial, const LineMessage& message) {
    Message line = Stamp(trial).Add("LINE_REPLY: request ").AddNumber(message.first);
    if (message.second == 0)
        line.Add(" is done\n");
    else
        AddTapiWords(line.Add(" failed. "), message.second);
    Show(line.View());
    if (trial.request == 0 || message.first != trial.request)
        return;
    trial.request = 0;
    trial.made = message.second == 0;
    trial.own = trial.made ? MadeCall() : 0;
    trial.dialAt = Now() + DIAL_AGAIN_MS;
}

void TakeMessage(Trial& trial, const LineMessage& message) {
    Message line = Stamp(trial);
    switch (message.kind) {
    case MESSAGE_REPLY: return TakeReply(trial, message);
    case MESSAGE_CALL_INFO: return ShowCall(trial, message.device);
    case MESSAGE_NEW_CALL:
        line.Add("LINE_APPNEWCALL: call ").AddNumber(trial.calls.NumberOf(message.second)).Add("\n");
        break;
    case MESSAGE_CALL_STATE:
        line.Add("LINE_CALLSTATE: call ").AddNumber(trial.calls.NumberOf(message.device)).Add(" ");
        AddFlags(line, CallStates, message.first).Add("\n");
        break;
    case MESSAGE_LINE_STATE: AddFlags(line.Add("LINE_LINEDEVSTATE: "), DeviceStates, message.first).Add("\n"); break;
    case MESSAGE_ADDRESS_STATE:
        AddFlags(line.Add("LINE_ADDRESSSTATE: "), AddressStates, message.second).Add("\n");
        break;
    case MESSAGE_CLOSE:
        trial.closed = true;
        line.Add("LINE_CLOSE: contact with the card is lost, or the provider was stopped. Run this again for more.\n");
        break;
    default: line.Add("message ").AddNumber(message.kind).Add("\n");
    }
    Show(line.View());
    if (message.kind == MESSAGE_CALL_STATE && message.first == CALL_IDLE) {
        ReleaseCall(message.device);
        trial.calls.Forget(message.device);
        if (message.device == trial.own)
            trial.own = 0;
    }
}

void Dial(Trial& trial) {
    const bool wanted = !trial.number.empty() && !trial.made && trial.request == 0 && trial.tries < DIAL_TRIES;
    if (!wanted || Now() - trial.dialAt >= 0x80000000U)
        return;
    ++trial.tries;
    Message line = Stamp(trial).Add("lineMakeCall ").Add(trial.number);
    const std::uint32_t error = MakeCall(trial.number, trial.request);
    if (error == 0) {
        line.Add(": request ").AddNumber(trial.request).Add("\n");
    } else {
        trial.dialAt = Now() + DIAL_AGAIN_MS;
        AddTapiWords(line.Add(" failed. "), error);
    }
    Show(line.View());
}

// Until the time is over, the line is closed, or the user wants to end.
std::uint32_t Follow(Trial& trial, std::uint32_t milliseconds, bool (*over)(const Trial&)) {
    const std::uint32_t from = Now();
    while (!trial.closed && !over(trial) && (milliseconds == 0 || Now() - from < milliseconds)) {
        LineMessage message;
        bool came = false;
        if (const std::uint32_t error = NextMessage(message, WAIT_MS, came); error != 0)
            return error;
        if (came)
            TakeMessage(trial, message);
        if (!StopAsked())
            Dial(trial);
    }
    return 0;
}

void ShowLine(std::uint32_t device, const LineFacts& facts) {
    Message text;
    text.Add("Line:              ")
        .Add(facts.name.View())
        .Add(", device ")
        .AddNumber(device)
        .Add("\nProvider:          ");
    text.Add(facts.provider.View()).Add("\nTAPI version:      ").AddNumber(facts.version >> 16).Add(".");
    text.AddNumber(facts.version & 0xFFFF).Add("\nAddress:           ").Add(facts.address.View());
    text.Add("\nActive calls:      ").AddNumber(facts.activeCalls).Add("\nCan be asked:      ");
    AddFlags(text, AddressFeatures, facts.addressFeatures).Add("\nOf its calls:      ");
    AddFlags(text, CallFeatures, facts.callFeatures).Add("\n");
    Show(text.View());
}

// The provider's line among all that TAPI has.
bool FindLine(std::uint32_t lines, std::uint32_t& device, LineFacts& facts) {
    for (device = 0; device < lines; ++device)
        if (AskLine(device, facts) == 0 && facts.name.View() == LINE_NAME)
            return true;
    return false;
}

Outcome UseLine(std::string_view number, std::uint32_t seconds, std::uint32_t lines) {
    std::uint32_t device = 0;
    LineFacts facts;
    if (!FindLine(lines, device, facts)) {
        Outcome outcome{EXIT_NOTHING,
                        Message(lines == 0 ? "TAPI has no line at all" : "None of TAPI's lines is the provider's, ")};
        outcome.message.Add(lines == 0 ? "" : LINE_NAME).Add(".\n");
        outcome.message.Add(
            "Is it installed (ztsetup status)? Was the telephony service, or the PC, restarted since?\n");
        return outcome;
    }
    ShowLine(device, facts);
    if (const std::uint32_t error = OpenLine(device, facts.version); error != 0)
        return TapiFailure("The line does not open.\n", error);
    Show(seconds == 0 ? "The line is open. Its events; Ctrl+C ends this:\n" : "The line is open. Its events:\n");
    Trial trial;
    trial.number = number;
    trial.dialAt = trial.began + DIAL_AFTER_MS;
    std::uint32_t error = Follow(trial, seconds * 1000, [](const Trial&) { return StopAsked(); });
    if (error == 0 && trial.own != 0 && DropCall(trial.own) == 0) {
        Show(Stamp(trial).Add("lineDrop of the call that was made\n").View());
        error = Follow(trial, HANG_UP_MS, [](const Trial& t) { return t.own == 0; });
    }
    if (error != 0)
        return TapiFailure("TAPI gives no more events.\n", error);
    if (!trial.number.empty() && !trial.made)
        return {EXIT_FAILED, Message("The call was not made.\n")};
    return {trial.closed ? EXIT_FAILED : EXIT_DONE, Message()};
}

}  // namespace

Outcome TestLine(std::string_view number, std::uint32_t seconds) {
    std::uint32_t lines = 0;
    if (const std::uint32_t error = StartTapi(lines); error != 0)
        return TapiFailure("TAPI does not start.\n", error);
    const Outcome outcome = UseLine(number, seconds, lines);
    EndTapi();
    return outcome;
}

}  // namespace Setup
