// The trace log: the provider's only running record of what it did. Every room writes through Trace(); lines that the
// level mask lets through are stamped with the millisecond clock and appended, flushed, to a pair of rotating files
// under the Windows directory. Threads and processes of one session share the debug mutex, so their lines never mix. Its name
// is the session's own: the telephony service and a dialog in a user's session hold two different ones. All that keeps their
// lines apart is that each is flushed as a whole, right after the file's end was looked for (FileOpen); two of the same
// instant may lie over each other. And a second process, whatever its session, begins the files anew.
#pragma once

#include "platform/platform.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

// Level bits. A line of level TRACE_ALWAYS is written whatever the mask says.
enum TraceLevel : std::uint32_t {
    TRACE_ALWAYS = 0,      // errors, start and stop of the serial thread, what the user sees
    TRACE_ENTRY = 0x01,    // entry points, requests, key sending
    TRACE_LINK = 0x02,     // frames sent and resent, blocked sending
    TRACE_INPUT = 0x04,    // received frames
    TRACE_CUT = 0x06,      // texts cut to their field
    TRACE_DISPLAY = 0x08,  // active key and display
    TRACE_CALL = 0x10,     // keys, calls, LINE and PHONE events
    TRACE_OMNA = 0x20,     // TAPI_OMNA messages, configuration contents
    TRACE_CONFIG = 0x40,   // registry errors, the set's dynamic configuration
};

// The level mask, set once at process attach. Signed, as the registry's decimal text gives it.
extern std::int32_t TraceMask;

// One argument of a format, reduced to what the formatter knows: a 32-bit value, a narrow or a wide text.
struct TraceArgument {
    enum Kind : std::uint8_t { Number, Narrow, Wide } kind;
    std::uint32_t number;
    const char* narrow;
    const WCHAR* wide;

    TraceArgument(const char* text) : kind(Narrow), number(0), narrow(text), wide(nullptr) {}
    TraceArgument(const WCHAR* text) : kind(Wide), number(0), narrow(nullptr), wide(text) {}
    template <class T>
    requires std::is_integral_v<T> || std::is_enum_v<T> TraceArgument(T value)
        : kind(Number), number(static_cast<std::uint32_t>(value)), narrow(nullptr), wide(nullptr) {}
    // Handles and addresses are printed as their low 32 bits.
    template <class T>
    requires(!std::is_same_v<std::remove_cv_t<T>, char> && !std::is_same_v<std::remove_cv_t<T>, WCHAR>)
        TraceArgument(T* value)
        : kind(Number), number(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value))), narrow(nullptr),
          wide(nullptr) {}
};

// Formats with wsprintf's rules, the same on every target: %d %i %u %x %X %lx %ld %lu %c %s %S %%, width, zero fill,
// '-' and precision; every number is 32 bits, %S is wide text, at most 1,024 characters come out. A text argument
// under a number's format, or the reverse, prints nothing; so does an argument that is missing.
// Takes the room of `out` (terminator included); gives the length written, always terminated.
std::size_t FormatText(char* out, std::size_t size, const char* format, const TraceArgument* arguments,
                       std::size_t count);

// Writes an accepted line. Only Trace() below calls it.
void TraceAccepted(const char* format, const TraceArgument* arguments, std::size_t count);

// Writes one line: level (bits of TraceLevel), a format of ours (never a text from outside) and its arguments.
// Costs one test when the mask filters it out. May be called with or without the line mutex.
template <class... Arguments>
inline void Trace(std::uint32_t level, const char* format, const Arguments&... arguments) {
    if (level != 0 && (level & static_cast<std::uint32_t>(TraceMask)) == 0)
        return;
    if constexpr (sizeof...(Arguments) == 0) {
        TraceAccepted(format, nullptr, 0);
    } else {
        const TraceArgument list[] = {TraceArgument(arguments)...};
        TraceAccepted(format, list, sizeof...(Arguments));
    }
}

// The process's own state of the log; used only under the debug mutex.
struct TraceRecord {
    std::int32_t Counter = 0;      // trace calls: 1 to 2000, then 0, where the files change
    bool HeaderPending = true;     // the header goes before the first message of the process
    bool FirstOpen = true;         // the first file has not been opened yet
    int FileIndex = 0;             // which of the two files is current
    std::FILE* File = nullptr;     // null when the last open failed
    char WindowsDirectory[512]{};  // without a backslash behind it
};
extern TraceRecord TraceLog;

// Closes the current file and starts the record anew. For an unloaded library only: its file, left open, would keep the
// library's next load in the same process from renaming it.
void TraceClose();

// The handle of "SP62DebugMutex", created at process attach, closed at detach.
extern HANDLE DebugMutex;
