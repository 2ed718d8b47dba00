#include "provider/event_log.h"

#include "platform/copy_text.h"
#include "trace/trace.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <utility>

namespace {

constexpr const char* SOURCE = "zt_6232";
constexpr DWORD ONCE_IN_MS = 60'000;

// An entry that has been written, and how often it came again since. More kinds than there are places for in a minute, and
// the one written first is told and forgotten: it may then come again in its minute.
struct Written {
    DWORD Event = 0;  // 0: none
    char Subject[256]{};
    DWORD Number = 0;
    DWORD Time = 0;  // when it was written last
    int LeftOut = 0;

    bool Is(DWORD event, const char* subject, DWORD number) const {
        return Event == event && Number == number && std::strncmp(Subject, subject, sizeof Subject - 1) == 0;
    }
    bool MayBeWritten(DWORD now) const { return now - Time >= ONCE_IN_MS; }
};
std::array<Written, 24> Entries;

// Held for a few instructions, by threads that may hold any mutex or none.
std::atomic_flag EntriesTaken;
struct EntriesLock {
    EntriesLock() {
        while (EntriesTaken.test_and_set(std::memory_order_acquire)) {
        }
    }
    ~EntriesLock() { EntriesTaken.clear(std::memory_order_release); }
};

WORD TypeOf(DWORD event) {
    constexpr WORD Types[] = {EVENTLOG_INFORMATION_TYPE, EVENTLOG_INFORMATION_TYPE, EVENTLOG_WARNING_TYPE,
                              EVENTLOG_ERROR_TYPE};
    return Types[event >> 30];  // the two bits of the severity
}

void Write(const Written& entry, int leftOut) {
    const DWORD error = GetLastError();
    if (const HANDLE log = RegisterEventSourceA(nullptr, SOURCE); log != nullptr) {
        char number[16], more[80] = "";
        const TraceArgument arguments[] = {entry.Number, leftOut};
        FormatText(number, sizeof number, "%lu", &arguments[0], 1);
        if (leftOut > 0)
            FormatText(more, sizeof more, "\r\n\r\n%d more of the same since the last entry.", &arguments[1], 1);
        const char* texts[] = {entry.Subject, number, more};
        ReportEventA(log, TypeOf(entry.Event), 0, entry.Event, nullptr, 3, 0, texts, nullptr);
        DeregisterEventSource(log);
    }
    SetLastError(error);
}

}  // namespace

void LogEvent(EventId event, const char* subject, DWORD number) {
    const DWORD now = timeGetTime();
    Written entry, forgotten;
    int leftOut = 0;
    {
        const EntriesLock lock;
        auto found = std::find_if(Entries.begin(), Entries.end(),
                                  [&](const Written& written) { return written.Is(event, subject, number); });
        if (found == Entries.end()) {  // a free one, else the one written first
            found = std::max_element(Entries.begin(), Entries.end(), [&](const Written& a, const Written& b) {
                return b.Event == 0 ? a.Event != 0 : a.Event != 0 && now - a.Time < now - b.Time;
            });
            forgotten = *found;
            *found = Written{event, {}, number, now, 0};
            CopyText(found->Subject, subject);
        } else if (!found->MayBeWritten(now)) {
            ++found->LeftOut;
            return;
        }
        found->Time = now;
        leftOut = std::exchange(found->LeftOut, 0);
        entry = *found;
    }
    if (forgotten.LeftOut > 0)
        Write(forgotten, forgotten.LeftOut - 1);  // the entry itself stands for one of them
    Write(entry, leftOut);
}

void LogPortFailure(const char* port, DWORD error) {
    LogEvent(error == ERROR_ACCESS_DENIED ? EVENT_PORT_DENIED
             : error == ERROR_IRQ_BUSY    ? EVENT_PORT_BUSY
                                          : EVENT_PORT_FAILED,
             port, error);
}

void LogLeftOut() {
    const DWORD now = timeGetTime();
    for (Written& written : Entries) {
        Written entry;
        int leftOut = 0;
        {
            const EntriesLock lock;
            if (written.LeftOut == 0 || !written.MayBeWritten(now))
                continue;
            written.Time = now;
            leftOut = std::exchange(written.LeftOut, 0);
            entry = written;
        }
        Write(entry, leftOut - 1);  // the entry itself stands for one of them
    }
}

void ResetEventLog() {
    const EntriesLock lock;
    Entries.fill(Written{});
}
