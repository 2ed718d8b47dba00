#include "support/scenario.h"

#include "equipment/script.h"
#include "provider/state.h"
#include "tracking/model.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <utility>

namespace {

constexpr std::uint8_t SINGLE = 0x26, SEVERAL = 0x6E;  // frames of key presses
constexpr std::uint32_t STEP_MS = 2500;                // ample for the line and the ticks

// The handle that the capture prints as this call.
HTAPICALL HandleOf(int cref) {
    return reinterpret_cast<HTAPICALL>(static_cast<std::uintptr_t>(0x100 + cref));
}

HDRVCALL Call(int cref) {
    return reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(cref));
}

// The application's handle of a call that it asks for, until it knows which one it is given.
constexpr int ASKED_FOR = 900;

LONG Forward(DRV_REQUESTID request, HDRVLINE line, const std::string& mode, const std::basic_string<WCHAR>& number) {
    static const std::map<std::string, DWORD> modes = {{"uncond", LINEFORWARDMODE_UNCOND},
                                                       {"busy", LINEFORWARDMODE_BUSY},
                                                       {"noansw", LINEFORWARDMODE_NOANSW},
                                                       {"busyna", LINEFORWARDMODE_BUSYNA}};
    struct {
        LINEFORWARDLIST List;
        WCHAR Destination[40];
    } forward{};
    forward.List.dwTotalSize = sizeof forward;
    forward.List.dwNumEntries = mode == "off" ? 0 : 1;
    if (mode != "off") {
        LINEFORWARD& entry = forward.List.ForwardList[0];
        entry.dwForwardMode = modes.at(mode);
        entry.dwDestAddressSize = static_cast<DWORD>(number.size() * sizeof(WCHAR));
        entry.dwDestAddressOffset = offsetof(decltype(forward), Destination);
        std::memcpy(forward.Destination, number.data(), entry.dwDestAddressSize);
    }
    return TSPI_lineForward(request, line, 1, 0, &forward.List, 0, nullptr, nullptr, nullptr);
}

LONG Button(DRV_REQUESTID request, const std::string& mode, DWORD id) {
    static const std::map<std::string, DWORD> modes = {
        {"keypad", PHONEBUTTONMODE_KEYPAD}, {"display", PHONEBUTTONMODE_DISPLAY}, {"feature", PHONEBUTTONMODE_FEATURE}};
    PHONEBUTTONINFO info{};
    info.dwTotalSize = sizeof info;
    info.dwButtonMode = modes.at(mode);
    return TSPI_phoneSetButtonInfo(request, reinterpret_cast<HDRVPHONE>(&ProviderState), id, &info);
}

std::string Hex(LONG value) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
    return text;
}

// A request and its words.
struct Asked {
    DRV_REQUESTID Request;
    HDRVLINE Line;
    std::string First, Second;
    HDRVCALL& Given;

    static std::basic_string<WCHAR> Wide(const std::string& text) { return {text.begin(), text.end()}; }
    HDRVCALL FirstCall() const { return Call(std::stoi(First)); }
    LONG Complete(DWORD mode) const {
        return TSPI_lineCompleteTransfer(Request, FirstCall(), Call(std::stoi(Second)), HandleOf(CONF_CREF), &Given,
                                         mode);
    }
};

// clang-format off
const std::map<std::string, LONG (*)(const Asked&)> Requests = {
    {"make", [](const Asked& a) { return TSPI_lineMakeCall(a.Request, a.Line, HandleOf(ASKED_FOR), &a.Given, a.Wide(a.First).c_str(), 0, nullptr); }},
    {"dial", [](const Asked& a) { return TSPI_lineDial(a.Request, a.FirstCall(), a.Wide(a.Second).c_str(), 0); }},
    {"blind", [](const Asked& a) { return TSPI_lineBlindTransfer(a.Request, a.FirstCall(), a.Wide(a.Second).c_str(), 0); }},
    {"digits", [](const Asked& a) { return TSPI_lineGenerateDigits(a.FirstCall(), 0, LINEDIGITMODE_DTMF, a.Wide(a.Second).c_str(), 0); }},
    {"answer", [](const Asked& a) { return TSPI_lineAnswer(a.Request, a.FirstCall(), nullptr, 0); }},
    {"drop", [](const Asked& a) { return TSPI_lineDrop(a.Request, a.FirstCall(), nullptr, 0); }},
    {"hold", [](const Asked& a) { return TSPI_lineHold(a.Request, a.FirstCall()); }},
    {"unhold", [](const Asked& a) { return TSPI_lineUnhold(a.Request, a.FirstCall()); }},
    {"remove", [](const Asked& a) { return TSPI_lineRemoveFromConference(a.Request, a.FirstCall()); }},
    {"setup", [](const Asked& a) { return TSPI_lineSetupTransfer(a.Request, a.FirstCall(), HandleOf(ASKED_FOR), &a.Given, nullptr); }},
    {"transfer", [](const Asked& a) { return a.Complete(LINETRANSFERMODE_TRANSFER); }},
    {"conference", [](const Asked& a) { return a.Complete(LINETRANSFERMODE_CONFERENCE); }},
    {"forward", [](const Asked& a) { return Forward(a.Request, a.Line, a.First, a.Wide(a.Second)); }},
    {"pickup", [](const Asked& a) { return TSPI_linePickup(a.Request, a.Line, 0, nullptr, nullptr, a.Wide(a.First).c_str(), nullptr); }},
    {"button", [](const Asked& a) { return Button(a.Request, a.First, static_cast<DWORD>(std::stoul(a.Second))); }},
    {"hook", [](const Asked& a) {
        return TSPI_phoneSetHookSwitch(a.Request, reinterpret_cast<HDRVPHONE>(&ProviderState), PHONEHOOKSWITCHDEV_HANDSET,
                                       a.First == "on" ? PHONEHOOKSWITCHMODE_ONHOOK : PHONEHOOKSWITCHMODE_MICSPEAKER);
    }},
};
// clang-format on

void Add(std::string& text, const std::string& more, const char* between) {
    text += (text.empty() ? "" : between) + more;
}

// One event as tables write it.
std::string Short(std::string event, DRV_REQUESTID latest) {
    const std::string completion = "REPLY " + std::to_string(latest) + " ";
    if (event.starts_with("STATE "))
        return event.substr(6);
    if (event.starts_with(completion))
        return event == completion + "0" ? "REPLY" : "REPLY " + event.substr(completion.size());
    return event;
}

std::vector<std::string> Split(const std::string& text, const std::string& between) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(between, at), text.size());
        parts.push_back(text.substr(at, end - at));
        at = end + between.size();
    }
    return parts;
}

// The wanted lines that are not there, in their order.
std::string Missing(const std::vector<std::string>& wanted, const std::vector<std::string>& written) {
    std::string missing;
    auto at = written.begin();
    for (const std::string& line : wanted) {
        const auto found = std::find(at, written.end(), line);
        if (found == written.end())
            Add(missing, line, " | ");
        else
            at = found + 1;
    }
    return missing;
}

}  // namespace

void Scenario::Configure(int version, bool super, int multiMode) {
    Equipment::SetConfiguration& config = Machine.config;
    config.omna = version;
    config.superFrames = super;
    config.multiMode = static_cast<std::uint8_t>(multiMode);
    config.keys = {{1, 11, "4711"}, {2, 11, "4711"}, {3, 11, "4712"}, {7, 7, "4720"}, {8, 8, "4730"}, {9, 9, "4740"}};
    if (version > 1) {  // an older PBX does not tell of modules
        config.modules = {{2, false, 40}};
        config.keys.push_back({43, 11, "4713"});
    }
    using Equipment::FarEnd;
    config.destinations = {{"4750", {FarEnd::Answers, 300, ""}},
                           {"4751", {FarEnd::NeverAnswers, 0, ""}},
                           {"4759", {FarEnd::Busy, 300, ""}},
                           {"4730", {FarEnd::Answers, 300, ""}}};
}

// --- what reaches the set

void Scenario::Start() {
    GoInService();
    Events();
    Machine.onFrame = [this](bool outgoing, Equipment::ByteSpan frame) {
        if (outgoing || frame.size() < 4 || (frame[1] != SINGLE && frame[1] != SEVERAL))
            return;
        Pressed += Pressed.empty() ? "" : " ";
        if (frame[1] == SINGLE)
            return Note(frame.subspan(2, frame.size() - 3));
        Pressed += '[';
        for (std::size_t at = 2; at + 1 < frame.size(); at += frame[at] + std::size_t{1}) {
            Pressed += at > 2 ? " " : "";
            Note(frame.subspan(at + 2, frame[at] - std::size_t{1}));
        }
        Pressed += ']';
    };
}

// A press behind its type: 20 code, 03 digit, 04 module 20 key.
void Scenario::Note(Equipment::ByteSpan item) {
    const int code = item.back();
    if (item[0] == 0x04)
        Pressed += "M" + std::to_string(item[1] & 7) + ":" + std::to_string(code);
    else if (item[0] == 0x03)
        Pressed += std::string("0123456789*#").substr(item.back(), 1);
    else if (code == Equipment::ReleaseKeyCode)
        Pressed += "REL";
    else if (code == Equipment::OffHookKeyCode)
        Pressed += "OFF";
    else if (code >= Equipment::FirstSoftKeyCode && code < Equipment::FirstSoftKeyCode + 5)
        Pressed += "S" + std::to_string(code - Equipment::FirstSoftKeyCode + 1);
    else
        Pressed += "K" + std::to_string(code);
}

// --- which of the expected belongs here

// Takes the condition off.
bool Scenario::Belongs(std::string& text) const {
    const std::size_t mark = text.find_first_not_of("!123koat");
    if (mark == std::string::npos || text[mark] != '?')
        return true;
    const std::string condition = text.substr(0, mark);
    text.erase(0, mark + 1);
    const auto names = [&](const char* all, char ours) {
        return condition.find_first_of(all) == std::string::npos || condition.find(ours) != std::string::npos;
    };
    const Equipment::SetConfiguration& config = Machine.config;
    const bool here = names("123", static_cast<char>('0' + config.omna)) &&
                      names("ko", config.multiMode != 0 ? 'k' : 'o') && names("at", config.superFrames ? 't' : 'a');
    return here == (condition.find('!') == std::string::npos);
}

std::string Scenario::Chosen(const std::string& text, const std::string& between) const {
    std::string chosen;
    for (std::string part : Split(text, between))
        if (Belongs(part))
            Add(chosen, part, between.c_str());
    return chosen;
}

// --- what happens

// Gives what happened before the entry point returned, its refusal last.
std::vector<std::string> Scenario::AskFor(std::istringstream words) {
    ++Request;
    TheBooks.Asked(Request);
    HDRVCALL given = Call(ASKED_FOR);
    Asked asked{Request, Line, "", "", given};
    std::string what;
    words >> what >> what >> asked.First >> asked.Second;
    const LONG result = Requests.at(what)(asked);
    TheBooks.Answered(Request, result);
    const int cref = static_cast<int>(reinterpret_cast<std::uintptr_t>(given));
    std::vector<std::string> events = Captured();
    if (IsCref(cref)) {
        HTAPICALL& handle = CallTable.at(static_cast<std::size_t>(cref)).htCall;
        EXPECT_EQ(handle, HandleOf(ASKED_FOR));
        handle = HandleOf(cref);
        for (std::string& event : events)
            if (const std::size_t at = event.find(std::to_string(ASKED_FOR)); at != std::string::npos)
                event.replace(at, 3, std::to_string(cref));
    }
    if (result > 0 && cref != ASKED_FOR)
        TheBooks.Given(cref, Request);
    TheBooks.Take(events);
    if (result < 0)
        events.push_back("= " + Hex(result));
    return events;
}

std::vector<std::string> Scenario::Captured() const {
    return Phone ? Events() : LineEvents();
}

std::string Scenario::Happen(const std::string& action) {
    std::uint32_t wait = STEP_MS;
    std::vector<std::string> events;
    if (action.starts_with("app "))
        events = AskFor(std::istringstream(action));
    else if (action.starts_with("wait "))
        wait = static_cast<std::uint32_t>(std::stoul(action.substr(5)));
    else if (const std::string refused = Equipment::Execute(Machine, action, PlatformControl::Now()); !refused.empty())
        events.push_back("set: " + refused);
    Advance(wait);
    const std::vector<std::string> later = Captured();
    TheBooks.Take(later);
    events.insert(events.end(), later.begin(), later.end());
    for (std::string& event : events)
        event = Short(event, Request);
    return Joined(events, ", ");
}

void Scenario::Play(const std::vector<Step>& steps) {
    TraceLines();
    std::string trail;
    for (const Step& step : steps) {
        std::string action = step.Do;
        if (!Belongs(action))
            continue;
        Add(trail, action, "; ");
        SCOPED_TRACE(trail);
        Pressed.clear();
        const std::string happened = Happen(action);
        std::string presses = Chosen(step.Presses, " ");
        if (!Machine.config.superFrames)
            std::erase_if(presses, [](char c) { return c == '[' || c == ']'; });
        EXPECT_EQ(Pressed, presses);
        EXPECT_EQ(happened, Chosen(step.Events, ", "));
        EXPECT_EQ(Missing(Split(Chosen(step.Traces, " | "), " | "), TraceLines()), "");
    }
    EXPECT_EQ(TheBooks.Balance(Machine), "") << trail;
    EXPECT_EQ(Equipment::Inconsistency(Machine), "") << trail;
    EXPECT_EQ(Machine.card.badFrames + Machine.card.resends, 0) << trail;
}
