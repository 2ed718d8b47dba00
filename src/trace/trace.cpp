#include "trace/trace.h"

#include "platform/text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

std::int32_t TraceMask = 0;
HANDLE DebugMutex = nullptr;
TraceRecord TraceLog;

namespace {

constexpr std::size_t TEXT_MAX = 1024;         // characters that a formatted text may have
constexpr std::int32_t CALLS_PER_FILE = 2000;  // the counter runs 1 to this, then 0
constexpr DWORD MUTEX_WAIT_MS = 10'000;
constexpr UINT SHORT_DIRECTORY = 35;
constexpr const char* FILE_NAMES[] = {"\\spitrace\\tsptrac0.tr", "\\spitrace\\tsptrac1.tr"};
constexpr const char* OLD_NAMES[] = {"\\spitrace\\tsptrac0.old", "\\spitrace\\tsptrac1.old"};

// --- formatting ----------------------------------------------------------------------------------------------------

// A bounded output that is always terminated.
struct Output {
    char* text;
    std::size_t room;  // terminator included
    std::size_t used = 0;
    void Put(char c) {
        if (used + 1 < room)
            text[used++] = c;
    }
    void Fill(char c, int count) {
        for (; count > 0; --count)
            Put(c);
    }
};

// What stands between the percent sign and the conversion's letter.
struct Directive {
    bool left = false, zero = false;
    int width = 0;
    int precision = -1;  // -1: none given
    char conversion = 0;
};

int ReadNumber(const char*& at) {
    int value = 0;
    for (; *at >= '0' && *at <= '9'; ++at)
        value = std::min(value * 10 + (*at - '0'), static_cast<int>(TEXT_MAX));
    return value;
}

Directive ReadDirective(const char*& at) {
    Directive directive;
    for (;; ++at) {
        if (*at == '-')
            directive.left = true;
        else if (*at == '0')
            directive.zero = true;
        else
            break;
    }
    directive.width = ReadNumber(at);
    if (*at == '.') {
        ++at;
        directive.precision = ReadNumber(at);
    }
    while (*at == 'l')  // every number is 32 bits here
        ++at;
    directive.conversion = *at;
    if (*at != 0)
        ++at;
    return directive;
}

void PutNumber(Output& out, const Directive& directive, std::uint32_t value) {
    char digits[16];
    int count = 0;
    const bool negative =
        (directive.conversion == 'd' || directive.conversion == 'i') && static_cast<std::int32_t>(value) < 0;
    if (negative)
        value = 0u - value;
    const bool hex = directive.conversion == 'x' || directive.conversion == 'X';
    const char* alphabet = directive.conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    const std::uint32_t base = hex ? 16 : 10;
    do {
        digits[count++] = alphabet[value % base];
        value /= base;
    } while (value != 0);
    const int sign = negative ? 1 : 0;
    int zeros = std::max(0, directive.precision - count);
    if (directive.zero && !directive.left && directive.precision < 0)
        zeros = std::max(zeros, directive.width - count - sign);
    const int blanks = directive.width - count - zeros - sign;
    if (!directive.left)
        out.Fill(' ', blanks);
    if (negative)
        out.Put('-');
    out.Fill('0', zeros);
    while (count > 0)
        out.Put(digits[--count]);
    if (directive.left)
        out.Fill(' ', blanks);
}

void PutNarrow(Output& out, const Directive& directive, const char* text) {
    const std::size_t limit = directive.precision < 0 ? TEXT_MAX : static_cast<std::size_t>(directive.precision);
    std::size_t length = 0;
    while (length < limit && text[length] != 0)
        ++length;
    const int blanks = directive.width - static_cast<int>(length);
    if (!directive.left)
        out.Fill(directive.zero ? '0' : ' ', blanks);
    for (std::size_t i = 0; i < length; ++i)
        out.Put(text[i]);
    if (directive.left)
        out.Fill(' ', blanks);
}

void PutWide(Output& out, const Directive& directive, const WCHAR* text) {
    char narrow[TEXT_MAX + 1];
    int units = 0;
    while (units < static_cast<int>(TEXT_MAX) && text[units] != 0)
        ++units;
    const int length =
        units == 0 ? 0
                   : WideCharToMultiByte(CP_ACP, 0, text, units, narrow, static_cast<int>(TEXT_MAX), nullptr, nullptr);
    narrow[std::max(length, 0)] = 0;
    PutNarrow(out, directive, narrow);
}

void PutArgument(Output& out, const Directive& directive, const TraceArgument* argument) {
    if (argument == nullptr)
        return;
    switch (directive.conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
        if (argument->kind == TraceArgument::Number)
            PutNumber(out, directive, argument->number);
        break;
    case 'c':
        if (argument->kind == TraceArgument::Number) {
            const char text[] = {static_cast<char>(argument->number), 0};
            PutNarrow(out, directive, text);
        }
        break;
    case 's':
        if (argument->kind == TraceArgument::Narrow && argument->narrow != nullptr)
            PutNarrow(out, directive, argument->narrow);
        break;
    case 'S':
        if (argument->kind == TraceArgument::Wide && argument->wide != nullptr)
            PutWide(out, directive, argument->wide);
        break;
    default: break;
    }
}

// --- the files -----------------------------------------------------------------------------------------------------

// The Windows directory followed by a name below it.
struct BelowWindows {
    char path[sizeof TraceLog.WindowsDirectory + 32];
    explicit BelowWindows(const char* name) {
        const TraceArgument parts[] = {TraceLog.WindowsDirectory, name};
        FormatText(path, sizeof path, "%s%s", parts, 2);
    }
};

void FindWindowsDirectory() {
    char(&directory)[sizeof TraceLog.WindowsDirectory] = TraceLog.WindowsDirectory;
    UINT length = GetWindowsDirectoryA(directory, SHORT_DIRECTORY);
    if (length >= SHORT_DIRECTORY)  // what it needs, when it does not fit
        length = GetWindowsDirectoryA(directory, sizeof directory);
    directory[length < sizeof directory ? length : 0] = 0;
}

void OpenFirstFile() {
    FindWindowsDirectory();
    _mkdir(BelowWindows("\\spitrace").path);
    TraceLog.FileIndex = 0;
    for (std::size_t i = 0; i < 2; ++i) {
        const BelowWindows current(FILE_NAMES[i]), old(OLD_NAMES[i]);
        FileRemove(old.path);
        FileRename(current.path, old.path);
    }
    TraceLog.File = FileOpen(BelowWindows(FILE_NAMES[0]).path, "w");
    if (TraceLog.File != nullptr)
        TraceLog.FirstOpen = false;
}

void OpenOtherFile() {
    if (TraceLog.File != nullptr)
        std::fclose(TraceLog.File);
    TraceLog.FileIndex ^= 1;
    char name[64];
    const TraceArgument index(TraceLog.FileIndex);
    FormatText(name, sizeof name, "\\spitrace\\tsptrac%d.tr", &index, 1);
    TraceLog.File = FileOpen(BelowWindows(name).path, "w+");
}

void TraceWrite(std::int32_t counter, const char* text) {
    if (TraceLog.FirstOpen) {
        OpenFirstFile();
        if (TraceLog.FirstOpen)
            return;  // the next call tries again
    } else if (counter == 0) {
        OpenOtherFile();
    }
    if (TraceLog.File == nullptr)
        return;
    std::fputs(text, TraceLog.File);
    std::fflush(TraceLog.File);
}

void WriteHeader() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (const std::tm* found = std::localtime(&now))  // only under the debug mutex
        local = *found;
    char date[16], time[16], line[TEXT_MAX + 1];
    std::strftime(date, sizeof date, "%d/%m/%y", &local);
    std::strftime(time, sizeof time, "%H:%M:%S", &local);
    const TraceArgument header[] = {timeGetTime(), date, time};
    FormatText(line, sizeof line, "%lu TSP CORVANE 6200 DebugFile - date: %s - %s\n", header, 3);
    TraceWrite(TraceLog.Counter, line);
    const TraceArgument mask[] = {timeGetTime(), TraceMask};
    FormatText(line, sizeof line, "%lu * OutputTraceMode:%d *\n", mask, 2);
    TraceWrite(TraceLog.Counter, line);
}

}  // namespace

std::size_t FormatText(char* out, std::size_t size, const char* format, const TraceArgument* arguments,
                       std::size_t count) {
    if (size == 0)
        return 0;
    Output output{out, std::min(size, TEXT_MAX + 1)};
    std::size_t next = 0;
    for (const char* at = format; *at != 0;) {
        if (*at != '%') {
            output.Put(*at++);
            continue;
        }
        ++at;
        if (*at == '%') {
            output.Put(*at++);
            continue;
        }
        const Directive directive = ReadDirective(at);
        PutArgument(output, directive, next < count ? &arguments[next] : nullptr);
        ++next;
    }
    out[output.used] = 0;
    return output.used;
}

void TraceAccepted(const char* format, const TraceArgument* arguments, std::size_t count) {
    const DWORD error = GetLastError();  // tracing never changes what a caller is about to look at
    const DWORD wait = WaitForSingleObject(DebugMutex, MUTEX_WAIT_MS);
    // An abandoned mutex belongs to the waiter all the same.
    if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
        if (++TraceLog.Counter > CALLS_PER_FILE)
            TraceLog.Counter = 0;
        if (TraceLog.HeaderPending) {
            TraceLog.HeaderPending = false;
            WriteHeader();
            ++TraceLog.Counter;
        }
        char message[TEXT_MAX + 1], line[TEXT_MAX + 1];
        FormatText(message, sizeof message, format, arguments, count);
        const TraceArgument parts[] = {timeGetTime(), message};
        const std::size_t length = FormatText(line, sizeof line, "%lu %s\n", parts, 2);
        line[length - 1] = '\n';  // also where the text was cut
        TraceWrite(TraceLog.Counter, line);
        ReleaseMutex(DebugMutex);
    }
    SetLastError(error);
}

void TraceClose() {
    if (TraceLog.File != nullptr)
        std::fclose(TraceLog.File);
    TraceLog = TraceRecord{};
}
