#include "support/fixture.h"

#include "config/char_patterns.h"
#include "config/set/set_config.h"
#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/omna.h"
#include "link/serial.h"
#include "link/tick.h"
#include "provider/event_log.h"
#include "provider/process.h"
#include "support/records.h"
#include "trace/trace.h"
#include "tracking/display.h"
#include "tracking/events.h"
#include "tracking/multi_line.h"
#include "tracking/terminal.h"
#include "zttrace/line.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <utility>

bool CallbacksUnderTheMutex = false;
DWORD ToldFirst = 0;

namespace {

std::mutex EventsLock;  // the serial thread reports too
std::vector<std::string> Captured;
std::size_t TraceOffset = 0;
constexpr const char* TRACE_FILE = "C:\\WINDOWS\\spitrace\\tsptrac0.tr";

struct Named {
    DWORD Value;
    const char* Name;
};

std::string Flags(DWORD value, std::span<const Named> names) {
    std::string out;
    for (const Named& named : names)
        if ((value & named.Value) == named.Value) {
            out += (out.empty() ? "" : "|") + std::string(named.Name);
            value &= ~named.Value;
        }
    if (value != 0 || out.empty()) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(value));
        out += (out.empty() ? "" : "|") + std::string(hex);
    }
    return out;
}

constexpr Named States[] = {{0x1, "IDLE"},           {0x2, "OFFERING"},          {0x8, "DIALTONE"},
                            {0x10, "DIALING"},       {0x20, "RINGBACK"},         {0x40, "BUSY"},
                            {0x100, "CONNECTED"},    {0x200, "PROCEEDING"},      {0x400, "ONHOLD"},
                            {0x800, "CONFERENCED"},  {0x1000, "ONHOLDPENDCONF"}, {0x2000, "ONHOLDPENDTRANSFER"},
                            {0x4000, "DISCONNECTED"}};
constexpr Named Infos[] = {{0x20, "APPSPECIFIC"},      {0x100, "ORIGIN"},         {0x200, "REASON"},
                           {0x8000, "CALLERID"},       {0x10000, "CALLEDID"},     {0x20000, "CONNECTEDID"},
                           {0x40000, "REDIRECTIONID"}, {0x80000, "REDIRECTINGID"}};
constexpr Named LineStates[] = {
    {0x4, "CONNECTED"}, {0x8, "DISCONNECTED"}, {0x40, "INSERVICE"}, {0x80, "OUTOFSERVICE"}, {0x40000, "REINIT"}};
constexpr Named PhoneStates[] = {{0x20, "DISPLAY"},         {0x40, "LAMP"},
                                 {0x80, "RINGMODE"},        {0x200, "HANDSETHOOK"},
                                 {0x2000, "SPEAKERVOLUME"}, {0x4, "DISCONNECTED"}};

void Record(std::string text) {
    EXPECT_TRUE(!CallbacksUnderTheMutex || LineMutexHeldFor() != NOT_HELD) << text << " without the line mutex";
    const std::lock_guard lock(EventsLock);
    Captured.push_back(std::move(text));
}

std::string CallName(HTAPICALL call) {
    const auto value = reinterpret_cast<std::uintptr_t>(call);
    return value == 0 ? "-" : std::to_string(static_cast<long>(value) - 0x100);
}

std::string Hex(DWORD_PTR value) {
    char text[32];
    std::snprintf(text, sizeof text, "%lx", static_cast<unsigned long>(value));
    return text;
}

// Records as they were when TAPI was told of the end of their call: nothing is written to them behind that.
std::map<std::size_t, std::array<std::byte, sizeof(CallRecord)>> Ended;

void NoteEnd(HTAPICALL call, DWORD state) {
    const std::size_t cref = reinterpret_cast<std::uintptr_t>(call) - 0x100;
    if (cref >= CallTable.size())
        return;
    if (state == LINECALLSTATE_IDLE)
        std::memcpy(Ended[cref].data(), &CallTable[cref], sizeof(CallRecord));
    else
        Ended.erase(cref);
}

void ExpectEndedLeftAlone() {
    for (const auto& [cref, record] : std::exchange(Ended, {}))
        if (CallTable[cref].htCall != HTAPICALL{}) {  // else a test has emptied the table
            EXPECT_EQ(std::memcmp(record.data(), &CallTable[cref], sizeof(CallRecord)), 0)
                << "call " << cref << " was written to behind its end";
        }
}

// Applications ask back while they are told: what they are told is already stored. Not so on the way to RINGBACK, which is
// told in several states at once.
void ExpectStored(HTAPICALL call, DWORD told) {
    constexpr DWORD STORED_FIRST = LINECALLSTATE_OFFERING | LINECALLSTATE_CONNECTED | LINECALLSTATE_BUSY |
                                   LINECALLSTATE_CONFERENCED | LINECALLSTATE_ONHOLD | LINECALLSTATE_DISCONNECTED |
                                   LINECALLSTATE_IDLE;
    const std::size_t cref = reinterpret_cast<std::uintptr_t>(call) - 0x100;
    if (cref == CONF_CREF && (told & (LINECALLSTATE_ONHOLDPENDCONF | LINECALLSTATE_CONNECTED)) != 0) {
        EXPECT_EQ(confstate, told);
    }
    if (cref == CONF_CREF && told == LINECALLSTATE_IDLE) {
        EXPECT_EQ(Tracking.ConferenceReq, 0) << "the next one asked for is not forgotten with this one";
    }
    if (cref >= CallTable.size() || (told & STORED_FIRST & ~ToldFirst) == 0)
        return;
    const int key = CallTable[cref].touch;
    if (told == LINECALLSTATE_ONHOLD && key != 0 && TouchTable.at(static_cast<std::size_t>(key)).icon == HOLD_ICON) {
        EXPECT_NE(Tracking.ActivCallTouch, key) << "call " << cref;
    }
    const DWORD stored = CallTable[cref].state;
    EXPECT_EQ(stored == STATE_REOFFERING ? DWORD{LINECALLSTATE_OFFERING} : stored, told) << "call " << cref;
}

void CALLBACK CaptureLine(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    const DWORD value = static_cast<DWORD>(p1);
    switch (message) {
    case LINE_NEWCALL:  // TAPI gives its handle during the call
        Ended.erase(p1);
        *reinterpret_cast<HTAPICALL*>(p2) = reinterpret_cast<HTAPICALL>(static_cast<std::uintptr_t>(0x100 + p1));
        return Record("NEWCALL " + std::to_string(p1));
    case LINE_CALLSTATE:
        NoteEnd(call, value);
        ExpectStored(call, value);
        return Record("STATE " + CallName(call) + " " + Flags(value, States) + (p2 != 0 ? " " + Hex(p2) : ""));
    case LINE_CALLINFO: return Record("INFO " + CallName(call) + " " + Flags(value, Infos));
    case LINE_LINEDEVSTATE:
        EXPECT_TRUE((value & LINEDEVSTATE_INSERVICE) == 0 || ProviderState.DeviceState == DEVICE_IN_SERVICE);
        return Record("LINEDEV " + Flags(value, LineStates) + (line == nullptr ? " (no line)" : ""));
    case LINE_ADDRESSSTATE:
        return Record("ADDRESS " + Hex(p1) + " " + Hex(p2) + (ProviderState.ForwardDestination[0] != 0 ? " to " : "") +
                      ProviderState.ForwardDestination);
    case LINE_CLOSE: return Record("CLOSE");
    default: return Record("LINE " + std::to_string(message) + " " + Hex(p1) + " " + Hex(p2));
    }
}

void CALLBACK CapturePhone(HTAPIPHONE, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    const std::string name = message == PHONE_STATE ? "PHONE " : "PHONE? ";
    Record(name + Flags(static_cast<DWORD>(p1), PhoneStates) + (p2 != 0 ? " " + std::to_string(p2) : ""));
}

void CALLBACK CaptureCompletion(DRV_REQUESTID id, LONG result) {
    Record("REPLY " + std::to_string(id) + " " +
           (result < 0 ? Hex(static_cast<std::uint32_t>(result)) : std::to_string(result)));
}

}  // namespace

std::string Utf8(std::string_view cp1252) {
    return TraceReader::FromWindows(std::string(cp1252));
}

std::string Joined(const std::vector<std::string>& texts, const char* between) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : between) + text;
    return joined;
}

void ResetProvider() {
    CallbacksUnderTheMutex = false;
    ToldFirst = 0;
    ResetRecords();
    Settings.SupervService = 1;
    Settings.MaxDigitLocal = 8;
    for (auto& line : ::Display.Lines)
        std::memset(line, ' ', DISPLAY_COLUMNS);
    Process = ProcessRecord{};
    StopRequest = false;
    SerialThreadLife = ThreadLife::None;
    TraceMask = 0;
    TraceLog = TraceRecord{};
    TraceOffset = 0;
    ResetEventLog();
}

std::vector<std::string> Events() {
    const std::lock_guard lock(EventsLock);
    return std::exchange(Captured, {});
}

std::vector<std::string> LineEvents() {
    std::vector<std::string> events = Events();
    std::erase_if(events, [](const std::string& event) { return event.starts_with("PHONE"); });
    return events;
}

std::string StateName(DWORD state) {
    return Flags(state, States);
}

void OpenForCapture() {
    ProviderState.htLine = reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11});
    ProviderState.LineEventProc = CaptureLine;
    ProviderState.htPhone = reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x22});
    ProviderState.PhoneEventProc = CapturePhone;
    ProviderState.CompletionProc = CaptureCompletion;
}

std::vector<std::string> TraceLines() {
    std::ifstream in(PlatformControl::PosixPath("C:\\WINDOWS\\spitrace\\tsptrac0.tr"),
                     std::ios::binary | std::ios::ate);
    if (!in)
        return {};
    if (static_cast<std::size_t>(in.tellg()) < TraceOffset)
        TraceOffset = 0;  // another test's file
    in.seekg(static_cast<std::streamoff>(TraceOffset));
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    std::vector<std::string> lines;
    std::size_t at = 0;
    for (std::size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
        std::string line = text.substr(at, end - at);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        // A message may hold line feeds of its own: only lines that begin with the clock start a new entry.
        const std::size_t blank = line.find(' ');
        const bool starts = blank != std::string::npos && blank > 0 &&
                            std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(blank),
                                        [](char c) { return c >= '0' && c <= '9'; });
        if (!starts && !lines.empty()) {
            lines.back() += "\n" + Utf8(line);
            continue;
        }
        line.erase(0, blank + 1);
        if (line.starts_with("TSP CORVANE 6200 DebugFile") || line.starts_with("* OutputTraceMode:"))
            continue;
        lines.push_back(Utf8(line));
    }
    TraceOffset += at;
    return lines;
}

void RemoveTrace() {
    TraceClose();
    std::remove(PlatformControl::PosixPath(TRACE_FILE).c_str());
    TraceOffset = 0;
}

std::string Interleaved(const std::vector<std::string>& events, const std::vector<std::string>& lines,
                        std::span<const char* const> skipped) {
    std::string steps;
    std::size_t next = 0;
    for (const std::string& line : lines) {
        if (std::any_of(skipped.begin(), skipped.end(), [&](const char* start) { return line.starts_with(start); }))
            continue;
        const bool sent =
            line == "LineEvent send" || line.starts_with("DoLineEventNewC") || line.starts_with("SendCompletion:");
        steps += steps.empty() ? "" : " | ";
        steps += !sent ? line : next < events.size() ? events[next++] : "(event missing)";
    }
    EXPECT_EQ(next, events.size());
    ExpectEndedLeftAlone();
    return steps;
}

std::string FileText(const std::string& windowsPath) {
    std::ifstream in(PlatformControl::PosixPath(windowsPath), std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

std::string Setting(const char* section, const char* name) {
    char text[256];
    RegReadSetting(section, name, "(none)", text);
    return text;
}

void SetSetting(const char* section, const char* name, const char* text) {
    ASSERT_EQ(RegWriteSetting(section, name, text), 1);
}

void OnTheLine::SetUp() {
    PlatformControl::Reset();
    ResetProvider();
    Captured.clear();
    Ended.clear();
    TraceMask = 0;
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    TraceMask = 0xFF;
    OpenForCapture();
}

void OnTheLine::TearDown() {
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    if (Process.LineMutex != nullptr)
        CloseHandle(Process.LineMutex);
    Process = ProcessRecord{};
    FifoReset();
}

void OnTheLine::Key(int key, TouchKind kind, const char* label) {
    Touch& touch = TouchTable.at(static_cast<std::size_t>(key));
    touch = Touch{};
    touch.kind = kind;
    touch.icon = IDLE_ICON;
    CopyText(touch.label, label);
    switch (kind) {
    case TOUCH_MULTI: KeyLists.Multi.Append(key); break;
    case TOUCH_SUPERV: KeyLists.Superv.Append(key); break;
    case TOUCH_PATRON: KeyLists.Patron.Append(key); break;
    case TOUCH_SECRETAIRE: KeyLists.Secretaire.Append(key); break;
    case TOUCH_SECR_DEBORD: KeyLists.SecrDebord.Append(key); break;
    case TOUCH_NONE: break;
    }
}

void OnTheLine::Display(int line, std::string_view text) {
    char* cells = ::Display.Lines[line];
    std::memset(cells, ' ', DISPLAY_COLUMNS);
    std::memcpy(cells, text.data(), std::min<std::size_t>(text.size(), DISPLAY_COLUMNS));
    DisplayChanged(line, 0, static_cast<int>(std::min<std::size_t>(text.size(), DISPLAY_COLUMNS)), true);
}

void OnTheLine::Icon(int key, int icon) {
    MultiIcon(icon, key);
}

int OnTheLine::Call(int key, int slot, DWORD state, bool inbound) {
    const int cref = AllocCallRecord(state, key);
    CallRecord& call = CallTable.at(static_cast<std::size_t>(cref));
    (inbound ? call.Inbound : call.Outbound) = 1;
    call.htCall = reinterpret_cast<HTAPICALL>(static_cast<std::uintptr_t>(0x100 + cref));
    CopyText(call.RedirectingName, "of before");  // has to go with the call
    TouchTable.at(static_cast<std::size_t>(key)).calls[static_cast<std::size_t>(slot)] = cref;
    return cref;
}
