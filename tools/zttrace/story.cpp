#include "zttrace/story.h"

#include "equipment/characters.h"
#include "zttrace/events.h"
#include "zttrace/texts.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

namespace TraceReader {

namespace {

using namespace Equipment;

constexpr int DepthLimit = 8;
constexpr int ConferenceCref = 30;
constexpr std::uint32_t ClockBack = 0x80000000;

// Texts that tell of trouble, by how they begin: what a user of the telephone would say, and what to look at.
struct TroubleText {
    const char* begins;
    const char* what;
    const char* advice;
};
constexpr TroubleText TroubleTexts[] = {
    {"V24 trouble", "box: Hardware Problem", "the cable, the serial port, the card's power"},
    {"Perte de connexion", "contact with the card lost, the port is opened anew", "the cable, the card's power"},
    {"***Comm port failed to open", "the serial port did not open", "the error that the next lines name"},
    {"LastError ", "the port's error", "5: another program has it; 2: there is no such port"},
    {"Dynamic Config not received - SP", "box: No response from PBX", "the PBX's version, the card's setting"},
    {"MessageBox Poste non KB2", "box: the set is not a 7120/7121", "the set"},
    {"MessageBox Poste MONO", "box: the set has no multi-line keys", "the set's keys in the PBX"},
    {"TIMEOUT Bad MAC/PC", "box: the card shows nothing of the set (Bad MAC/PC mode)", "the card's setting"},
    {"Config dynamic not received", "the set's configuration did not come in time", ""},
    {"WAITLINEMUTEX PRB", "the lock of the line was not to be had", "what held it for 20 s: a box, a blocked driver"},
    {"StopSerialThread Prb", "the serial thread did not end", "a box that was open, a driver that blocks"},
    {"Wait Thread serial Ready KO", "the serial thread did not become ready", "the port's name in the settings"},
    {"Thread serial didn't start", "the serial thread did not start", ""},
    {"Process input - CS", "a damaged frame was received", "the cable; electrical trouble"},
    {"RX: Wrong", "the card refused a frame", "the cable; electrical trouble"},
    {"RX: Physical loss", "the card lost synchronisation", "the cable; electrical trouble"},
    {"RX: ABORT", "the card gave a frame up", ""},
    {"Resend_Last_Msg(", "a frame was written again because the card refused it", ""},
    {"Inactivity - flush rx queue", "a frame stopped half way", "the cable; the card's power"},
    {"TxZTMsgFromFifo - failed to write", "the port refused a frame", "the adapter of the port"},
    {"SendL2Msg - WriteCommResult", "the port refused an acknowledgement", "the adapter of the port"},
    {"\xC3\x87ontact rompu", "the card started anew: all calls are taken as over", "the card's power"},
    {"can't do two async requests", "a request was refused: another one was still running", ""},
    {"Rebuild_ZT_Segmented_Error_Msg", "a long message came in the wrong order", ""},
    {"Unknown TAPI-OMNA msg", "a message of the PBX that is not known", ""},
    {"Pb de sauvegarde", "a setting could not be saved", "the rights on the registry key and the INI file"},
    {"Pb - pas de port", "no port is configured", "the configuration dialog"},
    {"Dial/MakeCall impossible", "a call could not be made", ""},
    {"DialMakeCall impossible", "lineMakeCall was refused", "the reason that the line names"},
    {"LineMakeCall Impossible", "lineMakeCall was refused: no free call record or key", ""},
    {"SetupTransfer Impossible", "lineSetupTransfer was refused: no free call record", ""},
    {"Echec ", "a transfer or conference could not be carried out", "what the set showed then"},
};

struct Numbered {
    int code;
    const char* name;
};
constexpr Numbered Requests[] = {
    {1, "make call"},
    {2, "dial"},
    {3, "drop"},
    {5, "answer"},
    {6, "transfer"},
    {7, "blind transfer"},
    {8, "hold"},
    {9, "unhold"},
    {10, "send digits"},
    {11, "conference"},
    {12, "forward"},
    {13, "cancel forwarding"},
    {15, "forward"},
    {16, "forward"},
    {17, "forward"},
    {18, "pick up"},
    {19, "set up transfer"},
    {20, "read the display"},
    {21, "press a key"},
};
template <std::size_t N> std::string NameOf(const Numbered (&names)[N], int code, const std::string& otherwise) {
    const auto* const found =
        std::find_if(std::begin(names), std::end(names), [&](const Numbered& one) { return one.code == code; });
    return found == std::end(names) ? otherwise : found->name;
}

// What an application is told where a request fails; others as numbers.
std::string ErrorName(unsigned code) {
    static constexpr Numbered Errors[] = {
        {0x01, "LINEERR_ALLOCATED"},        {0x18, "LINEERR_INVALCALLHANDLE"}, {0x1C, "LINEERR_INVALCALLSTATE"},
        {0x42, "LINEERR_NODEVICE"},         {0x43, "LINEERR_NODRIVER"},        {0x48, "LINEERR_OPERATIONFAILED"},
        {0x49, "LINEERR_OPERATIONUNAVAIL"}, {0x4B, "LINEERR_RESOURCEUNAVAIL"},
    };
    char number[16];
    std::snprintf(number, sizeof number, "%X", code);
    return (code & 0xFFFFFF00) == 0x80000000 ? NameOf(Errors, static_cast<int>(code & 0xFF), number) : number;
}

// Days since 1 January 1970; the traces' years have two digits.
std::int64_t DayNumber(int day, int month, int year) {
    year += 2000 - (month <= 2 ? 1 : 0);
    const int era = year / 400, yearOfEra = year % 400;
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return std::int64_t{era} * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

// Where words of the decoder go: what passes between PBX and set is seen from the side.
std::pair<Lane, Lane> Direction(const std::string& words, bool received) {
    if (!received)
        return {Lane::Provider, Lane::Equipment};
    if (words.starts_with("PBX to "))
        return {Lane::Equipment, Lane::Set};
    if (words.starts_with("set: ") || words.starts_with("module "))
        return {Lane::Set, Lane::Equipment};
    return {Lane::Equipment, Lane::Provider};
}

bool IsAcknowledgement(ByteSpan item) {
    return item.size() >= 2 && (item[0] == TypeControl || item[0] == TypeAttached);
}

}  // namespace

void StoryTeller::Step(Lane from, Lane to, std::string words, std::vector<int> crefs, std::vector<int> keys) {
    story.steps.push_back({Here(), from, to, std::move(words), std::move(crefs), std::move(keys)});
}

void StoryTeller::Note(std::string what, std::string advice) {
    if (!story.troubles.empty() && story.troubles.back().what == what) {
        story.troubles.back().lastLine = Here();
        ++story.troubles.back().count;
        return;
    }
    story.troubles.push_back({Here(), Here(), 1, std::move(what), std::move(advice)});
}

// --- time ------------------------------------------------------------------------------------------------------------

// The header is the start of a provider, and the only line that ties its clock to the calendar.
bool StoryTeller::TakeHeader(const Line& line) {
    constexpr const char* Begins = "TSP CORVANE 6200 DebugFile - date: ";
    int day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (!line.stamped || std::sscanf(line.text.c_str(), "TSP CORVANE 6200 DebugFile - date: %d/%d/%d - %d:%d:%d", &day,
                                     &month, &year, &hour, &minute, &second) != 6)
        return false;
    const std::int64_t now =
        ((DayNumber(day, month, year) * 24 + hour) * 60 + minute) * 60'000 + second * std::int64_t{1000};
    Story::TraceLine& here = story.lines.back();
    if (headerMs)  // by the calendar: the clock began anew where Windows did
        here.ms = std::max(here.ms, now - *headerMs);
    if (!headerMs)
        headerMs = now - here.ms;
    here.dayMs = ((hour * 60 + minute) * 60 + second) * 1000;
    story.starts.push_back(line.text.substr(std::string_view(Begins).size()));
    decoder.Restart();
    labels.Reset();
    return true;
}

void StoryTeller::TakeClock(const Line& line) {
    constexpr std::int32_t Day = 86'400'000;
    Story::TraceLine here{line.stamped ? std::to_string(line.stamp) + " " + line.text : line.text, 0, -1, 0};
    if (!story.lines.empty()) {
        const Story::TraceLine& before = story.lines.back();
        std::uint32_t passed = line.stamped ? line.stamp - stamp : 0;
        if (passed >= ClockBack)
            passed = 0;  // Windows was started between the two
        here.ms = before.ms + passed;
        if (before.dayMs >= 0)
            here.dayMs = static_cast<std::int32_t>((before.dayMs + std::int64_t{passed}) % Day);
    }
    if (line.stamped)
        stamp = line.stamp;
    here.levels = static_cast<std::uint8_t>(LookUp(line.text).levels);
    story.lines.push_back(std::move(here));
}

// --- what the set shows ------------------------------------------------------------------------------------------------

void StoryTeller::Changed(SetChange::What what, int number, int value, std::string text, std::string kind) {
    story.changes.push_back({Here(), what, number, value, std::move(text), std::move(kind)});
}

void StoryTeller::WriteDisplay(int line, ByteSpan command) {
    if (command.size() < 3)
        return;
    const auto row = static_cast<std::size_t>(line);
    std::string& text = display[row];
    const int mode = command[1] & 3;
    std::size_t at = mode == 2 ? cursor[row] : command[2];
    if (mode == 3)
        return;
    if (mode == 0)
        text.assign(40, ' ');
    for (const std::uint8_t byte : command.subspan(3)) {
        if (at < text.size())
            text[at] = static_cast<char>(byte);
        ++at;
    }
    cursor[row] = at;
    Changed(line == 0 ? SetChange::Line0 : SetChange::Line1, 0, 0, FromSet(Bytes(text.begin(), text.end())));
}

void StoryTeller::WatchCommand(ByteSpan command, std::optional<int> module, int depth) {
    if (command.empty() || depth > DepthLimit)
        return;
    const auto byte = [&](std::size_t at) { return at < command.size() ? int{command[at]} : 0; };
    switch (command[0] & 0x7F) {
    case 0x02:
        if (command.size() > 2)
            WatchCommand(command.subspan(2), byte(1) & 7, depth + 1);
        return;
    case 0x0B:
        for (std::size_t at = 1; at < command.size() && at + 1 + command[at] <= command.size(); at += 1u + command[at])
            WatchCommand(command.subspan(at + 1, command[at]), module, depth + 1);
        return;
    case 0x21:
        if (byte(1) != 7)
            Changed(SetChange::Lamp, byte(2), byte(1));
        for (int lamp = 0; byte(1) == 7 && lamp < 20; ++lamp)
            Changed(SetChange::Lamp, lamp, 0);
        return;
    case 0x26:
        for (const int line : {0, 1}) {
            display[static_cast<std::size_t>(line)].assign(40, ' ');
            Changed(line == 0 ? SetChange::Line0 : SetChange::Line1, 0, 0, std::string(40, ' '));
        }
        return;
    case 0x27:
    case 0x28: WriteDisplay((command[0] & 0x7F) - 0x27, command); return;
    case 0x47: {
        int key = byte(1);
        if (module) {
            const auto known = moduleOffset.find(*module);
            if (known == moduleOffset.end())
                return;
            key += known->second;
        }
        if (command.size() >= 4)
            Changed(SetChange::Icon, key, byte(2) + 256 * byte(3));
        return;
    }
    default: return;
    }
}

// Labels of keys, and where the modules' keys begin.
void StoryTeller::WatchMessage(ByteSpan bytes) {
    static constexpr const char* Kinds[] = {"supervision", "boss", "secretary", "overflow"};
    const auto message = ParseOmna(bytes);
    if (!message)
        return;
    const Bytes& payload = message->payload;
    const auto byte = [&](std::size_t at) { return at < payload.size() ? int{payload[at]} : 0; };
    if (message->code == 9 || message->code == 33) {
        const bool special = message->code == 33;
        std::size_t at = 1;
        for (int left = byte(0); left > 0 && at + 1 < payload.size(); --left) {
            const int key = byte(at++);
            const int kind = special ? byte(at++) - 7 : -1;
            const std::size_t length = std::min(static_cast<std::size_t>(byte(at)), payload.size() - at);
            const Bytes label(payload.begin() + static_cast<std::ptrdiff_t>(std::min(at + 1, payload.size())),
                              payload.begin() + static_cast<std::ptrdiff_t>(std::min(at + 1 + length, payload.size())));
            at += 1 + length + (special ? 0u : 1u);
            Changed(SetChange::Label, key, 0, FromSet(label), kind >= 0 && kind < 4 ? Kinds[kind] : "multi");
        }
    } else if (message->code == 3 && payload.size() >= 3u + payload[2]) {
        std::size_t at = 3u + payload[2];
        Changed(SetChange::Number, 0, 0, FromSet(ByteSpan(payload).subspan(3, payload[2])));
        if (message->version < 2)
            return;
        at += 2;  // type and multi mode
        if (byte(at++) < 4)
            at += 2 + static_cast<std::size_t>(byte(at));
        moduleOffset.clear();
        for (; byte(at) != 0; at += 2) {
            moduleOffset[byte(at) & 7] = byte(at + 1);
            Changed(SetChange::Module, byte(at) & 7, byte(at + 1));
        }
    }
}

void StoryTeller::Watch(ByteSpan item, int depth) {
    if (item.empty() || depth > DepthLimit)
        return;
    switch (item[0]) {
    case TypeToSet: WatchCommand(item.subspan(1), {}, 0); return;
    case TypeToModule:
        if (item.size() > 2)
            WatchCommand(item.subspan(2), item[1] & 7, 0);
        return;
    case TypeOmna: WatchMessage(item.subspan(1)); return;
    case TypeSegment:
        if (labels.Add(item) == Reassembly::Result::Complete)
            WatchMessage(labels.message);
        return;
    case TypeSuper:
    case TypeOldContainer: {
        bool damaged = false;
        for (const Bytes& inner : CutSuper(item, damaged))
            Watch(inner, depth + 1);
        return;
    }
    case TypeAttached:
        if (const auto attached = CutAttached(item))
            Watch(attached->item, depth + 1);
        return;
    default: return;
    }
}

// --- lines -------------------------------------------------------------------------------------------------------------

void StoryTeller::TakeDump(const Line& line, const Dump& dump) {
    const bool received = dump.kind == Dump::Received;
    if (dump.cut)
        ++story.cutDumps;
    std::vector<Said> said = decoder.Explain(dump);
    if (dump.kind == Dump::Omna) {
        std::erase_if(said, [](const Said& one) { return one.repeated; });
    } else if (dump.trouble.empty()) {
        if (received && IsAcknowledgement(dump.bytes))
            lastSent.clear();
        if (line.text.starts_with("TxZTMsgFromFifo(")) {
            if (line.text == lastSent)
                Note("a frame was written again because nobody acknowledged it", "the card's power, the cable");
            lastSent = line.text;
        }
        if (received)
            Watch(dump.bytes, 0);
    }
    for (Said& one : said) {
        static constexpr const char* Parties[] = {"EVENT_INCOMING_CHANGE", "EVENT_OUTGOING_CALL",
                                                  "EVENT_CONNECTED_CALL"};
        for (std::size_t i = 0; i < std::size(Parties); ++i)
            if (const auto comma = one.text.find(", reason");
                one.text.starts_with(Parties[i]) && comma < one.text.size())
                lastParty[i] = one.text.substr(comma + 2);
        const auto [from, to] = Direction(one.text, dump.kind != Dump::Sent);
        Step(from, to, std::move(one.text), {}, std::move(one.keys));
    }
}

StoryCall& StoryTeller::CallOf(int cref, bool begins) {
    const auto found = open.find(cref);
    if (found != open.end() && !begins)
        return story.calls[found->second];
    open[cref] = story.calls.size();
    story.calls.push_back({cref, {}, {}, false});
    return story.calls.back();
}

void StoryTeller::TakeEvent(int cref, unsigned message, unsigned value, const std::string& words) {
    constexpr unsigned CallState = 2, Idle = 1;
    Step(Lane::Provider, Lane::Application, words, cref < 0 ? std::vector<int>{} : std::vector<int>{cref});
    if (message != CallState || cref < 0)
        return;
    StoryCall& call = CallOf(cref, false);
    std::string state = words.substr(0, words.find(", call"));
    state.erase(0, std::min(state.size(), std::string_view("LINE_CALLSTATE ").size()));
    call.states.push_back({Here(), state});
    if (value == Idle) {
        call.over = true;
        open.erase(cref);
    }
}

void StoryTeller::TakeText(const Line& line) {
    const char* const text = line.text.c_str();
    int cref = 0, code = 0;
    unsigned a = 0, b = 0;
    if (std::sscanf(text, "* OutputTraceMode:%d", &code) == 1)
        story.mask = code;
    for (const TroubleText& known : TroubleTexts)
        if (line.text.starts_with(known.begins))
            Note(known.what, known.advice);
    if (line.text.starts_with("Entering TSPI_")) {
        const std::string name = line.text.substr(9, line.text.find_first_of(" (", 9) - 9);
        Step(Lane::Application, Lane::Provider, name, LookUp(line.text).callCrefs);
    } else if (std::sscanf(text, "appCall cref %x msg %d reqId %x", &a, &code, &b) == 3) {
        Step(Lane::Application, Lane::Provider,
             "asks: " + NameOf(Requests, code, "request " + std::to_string(code)) + ", call " + std::to_string(a) +
                 (b != 0 ? " (request " + std::to_string(b) + ")" : ""),
             {static_cast<int>(a)});
    } else if (std::sscanf(text, "SendCompletion:%x, res:%x", &a, &b) == 2) {
        const std::string request = "request " + std::to_string(a);
        if (b != 0)
            Note(request + " failed: " + ErrorName(b), "what the error means: docs/applications.md");
        Step(Lane::Provider, Lane::Application, request + (b == 0 ? " done" : " failed: " + ErrorName(b)));
    } else if (std::sscanf(text, "DoLineEventNewCall send cref:%d", &cref) == 1) {
        CallOf(cref, true);
        Step(Lane::Provider, Lane::Application, "LINE_NEWCALL, call " + std::to_string(cref), {cref});
    } else if (line.text.starts_with("DoLineEventNewConf send")) {
        CallOf(ConferenceCref, true);
        Step(Lane::Provider, Lane::Application, "LINE_NEWCALL, the conference", {ConferenceCref});
    } else if (std::sscanf(text, "LinEv cref=%d, ev:%x,val%x", &cref, &a, &b) == 3) {
        if (const std::string words = EventWords(line.text); !words.empty())
            TakeEvent(cref, a, b, words);
    }
    // The parties of a call: the message names its key, the line behind it the call.
    static constexpr const char* Begins[] = {"ICI ", "OCI ", "CCI "};
    for (std::size_t i = 0; i < std::size(Begins); ++i) {
        const TextFacts facts = line.text.starts_with(Begins[i]) ? LookUp(line.text) : TextFacts{};
        if (facts.callCrefs.empty() || lastParty[i].empty())
            continue;
        StoryCall& call = CallOf(facts.callCrefs[0], false);
        if (std::find(call.parties.begin(), call.parties.end(), lastParty[i]) == call.parties.end())
            call.parties.push_back(lastParty[i]);
        lastParty[i].clear();
    }
}

void StoryTeller::Take(const std::string& raw) {
    const Line line = ReadLine(raw);
    TakeClock(line);
    if (TakeHeader(line))
        return;
    const Dump dump = FindDump(line, announced);
    announced = AnnouncesCut(line);
    if (dump.kind != Dump::None)
        TakeDump(line, dump);
    TakeText(line);
}

Story StoryTeller::Finish() {
    std::erase_if(story.calls, [](const StoryCall& call) { return call.states.empty(); });
    for (const StoryCall& call : story.calls)
        if (!call.over)
            story.troubles.push_back(
                {call.states.back().line, call.states.back().line, 1,
                 "call " + std::to_string(call.cref) + " has no end in the trace (" + call.states.back().state + ")",
                 "it may still have been going on"});
    return std::move(story);
}

std::vector<std::string> Story::Missing() const {
    struct Needed {
        int level;
        const char* what;
    };
    static constexpr Needed Lanes[] = {{1, "what applications ask (level 1)"},
                                       {2, "what is sent to the card (level 2)"},
                                       {4, "what comes from the card, and the set's picture (level 4)"},
                                       {16, "events of TAPI and the calls (level 16)"}};
    std::vector<std::string> missing;
    unsigned seen = mask ? static_cast<unsigned>(*mask) : 0;
    if (!mask)  // a file that the provider began in its course: what is in it tells
        for (const TraceLine& line : lines)
            if ((line.levels & LevelAlways) == 0 && (line.levels & (line.levels - 1)) == 0)
                seen |= line.levels;
    for (const Needed& lane : Lanes)
        if ((seen & static_cast<unsigned>(lane.level)) == 0)
            missing.emplace_back(lane.what);
    return missing;
}

std::string TimeText(const Story::TraceLine& line) {
    const std::int64_t ms = line.dayMs >= 0 ? line.dayMs : line.ms;
    char text[40];
    if (line.dayMs >= 0)
        std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", static_cast<int>(ms / 3'600'000),
                      static_cast<int>(ms / 60'000 % 60), static_cast<int>(ms / 1000 % 60),
                      static_cast<int>(ms % 1000));
    else
        std::snprintf(text, sizeof text, "+%.3f s", static_cast<double>(ms) / 1000);
    return text;
}

std::string Summary(const Story& story) {
    std::string text;
    for (const std::string& start : story.starts)
        text += "provider started " + start + "\n";
    text += std::to_string(story.lines.size()) + " lines, " + std::to_string(story.calls.size()) + " calls";
    if (!story.lines.empty())
        text += ", " + TimeText(story.lines.front()) + " to " + TimeText(story.lines.back());
    text += "\n";
    for (const std::string& lane : story.Missing())
        text += "not in this trace: " + lane + "\n";
    if (story.cutDumps > 0)
        text += std::to_string(story.cutDumps) + " frames are cut in the trace (it has room for 49 bytes of each)\n";
    text += story.troubles.empty() ? "nothing went wrong\n" : "what went wrong, or may have:\n";
    for (const Trouble& trouble : story.troubles) {
        text += "  " + TimeText(story.lines[trouble.line]) + "  " + trouble.what;
        if (trouble.count > 1)
            text +=
                " (" + std::to_string(trouble.count) + " times until " + TimeText(story.lines[trouble.lastLine]) + ")";
        text += trouble.advice.empty() ? "\n" : "; look at: " + trouble.advice + "\n";
    }
    return text;
}

}  // namespace TraceReader
