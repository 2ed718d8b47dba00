// The host's system on Windows: port, registry and directories are the system's own.
#include "platform/platform.h"
#include "tsphost/system.h"
#include "tsphost/text.h"

#include <winternl.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <io.h>

namespace Tsphost {

LibraryHandle LoadProvider(const std::string& path, std::string& error) {
    const HMODULE library = LoadLibraryA(path.c_str());
    if (library == nullptr)
        error = "system error " + std::to_string(GetLastError());
    return library;
}

void UnloadProvider(LibraryHandle library) {
    FreeLibrary(static_cast<HMODULE>(library));
}

void* FindAddress(LibraryHandle library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

std::string OwnDirectory(const char*) {
    char path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    const std::string own(path, length);
    return own.substr(0, own.rfind('\\') + 1);
}

bool SetPlace(const char*, const char*) {
    return false;
}

// Lines end as elsewhere, so that who reads them need not ask where the host runs.
void PrepareStreams() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

bool TypesCommands() {
    return false;  // the console edits lines by itself
}

bool TypedLine(std::string&) {
    return false;
}

namespace {

constexpr auto LOOK_AGAIN = std::chrono::milliseconds(20);

std::string TextOf(HWND window) {
    WCHAR text[1024] = {};
    SendMessageTimeoutW(window, WM_GETTEXT, std::size(text), reinterpret_cast<LPARAM>(text), SMTO_ABORTIFHUNG, 1000,
                        nullptr);
    return FromWide(text, std::size(text));
}

bool HasClass(HWND window, const char* wanted) {
    char name[16] = {};
    GetClassNameA(window, name, sizeof name);
    return std::strcmp(name, wanted) == 0;
}

// Of a message box: it has nothing but buttons, its text, and maybe a picture, a static control without text.
struct BoxParts {
    HWND Button = nullptr;
    std::string Text;
    bool Others = false;

    explicit BoxParts(HWND box) { EnumChildWindows(box, Take, reinterpret_cast<LPARAM>(this)); }
    static BOOL CALLBACK Take(HWND window, LPARAM parts) {
        auto& self = *reinterpret_cast<BoxParts*>(parts);
        if (HasClass(window, "Button"))
            self.Button = window;
        else if (!HasClass(window, "Static"))
            self.Others = true;
        else if ((GetWindowLongA(window, GWL_STYLE) & SS_TYPEMASK) != SS_ICON)
            self.Text = TextOf(window);
        return TRUE;
    }
};

BOOL CALLBACK TakeBox(HWND window, LPARAM boxes) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    if (process == GetCurrentProcessId() && IsWindowVisible(window) && HasClass(window, "#32770"))
        if (const BoxParts parts(window); !parts.Others && parts.Button != nullptr)
            reinterpret_cast<std::vector<HWND>*>(boxes)->push_back(window);
    return TRUE;
}

void PrintBox(HWND window) {
    std::string line;
    for (const char c : BoxParts(window).Text)
        if (c == '\n')
            line += " / ";
        else if (c != '\r')
            line += c;
    std::fprintf(stderr, "[box] %s: %s\n", TextOf(window).c_str(), line.c_str());
    std::fflush(stderr);
}

void PressButton(HWND window) {
    const HWND button = BoxParts(window).Button;
    PostMessageA(window, WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(button), BN_CLICKED), reinterpret_cast<LPARAM>(button));
}

void Watch(std::uint32_t milliseconds) {
    struct Open {
        HWND Window;
        std::chrono::steady_clock::time_point Until;
        bool operator<(const Open& other) const { return Window < other.Window; }
    };
    std::set<Open> open;
    for (;; std::this_thread::sleep_for(LOOK_AGAIN)) {
        std::vector<HWND> boxes;
        EnumWindows(TakeBox, reinterpret_cast<LPARAM>(&boxes));
        const auto now = std::chrono::steady_clock::now();
        for (const HWND window : boxes)
            if (open.insert({window, now + std::chrono::milliseconds(milliseconds)}).second)
                PrintBox(window);
        std::erase_if(open, [&](const Open& box) {
            if (now >= box.Until)
                PressButton(box.Window);
            return !IsWindow(box.Window);
        });
    }
}

}  // namespace

// A thread for as long as the process: there are no messages that tell of another thread's windows.
void WatchBoxes() {
    if (const char* setting = std::getenv("ZT_BOX_MS"))
        std::thread(Watch, static_cast<std::uint32_t>(std::strtoul(setting, nullptr, 10))).detach();
}

namespace {

// What the system says of one class, whole.
std::vector<std::max_align_t> Ask(int what) {
    constexpr auto TOO_SMALL = static_cast<LONG>(0xC0000004);
    std::vector<std::max_align_t> room(4096);
    ULONG needed = 0;
    while (NtQuerySystemInformation(static_cast<SYSTEM_INFORMATION_CLASS>(what), room.data(),
                                    static_cast<ULONG>(room.size() * sizeof room[0]), &needed) == TOO_SMALL)
        room.resize(room.size() * 2);
    return room;
}

unsigned long CountThreads() {
    const auto room = Ask(SystemProcessInformation);
    for (const auto* at = reinterpret_cast<const char*>(room.data());;) {
        const auto* process = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at);
        if (reinterpret_cast<std::uintptr_t>(process->UniqueProcessId) == GetCurrentProcessId())
            return process->NumberOfThreads;
        if (process->NextEntryOffset == 0)
            return 0;
        at += process->NextEntryOffset;
    }
}

// From the list of all handles: under Wine GetProcessHandleCount gives 0, and the list of processes the size of a table
// that doubles when it is full.
unsigned long CountHandles() {
    constexpr int HANDLES = 64;  // SystemExtendedHandleInformation, in no header
    struct Entry {
        void* Object;
        std::uintptr_t Process;
        std::uintptr_t Handle;
        std::uint32_t Access;
        std::uint16_t Others[2];
        std::uint32_t Attributes;
        std::uint32_t Reserved;
    };
    struct List {
        std::uintptr_t Count;
        std::uintptr_t Reserved;
    };
    const auto room = Ask(HANDLES);
    const auto* list = reinterpret_cast<const List*>(room.data());
    const auto* first = reinterpret_cast<const Entry*>(list + 1);
    const std::uintptr_t own = GetCurrentProcessId();
    return static_cast<unsigned long>(
        std::count_if(first, first + list->Count, [&](const Entry& entry) { return entry.Process == own; }));
}

}  // namespace

ProcessCounts CountProcess() {
    return {CountThreads(), CountHandles()};
}

}  // namespace Tsphost
