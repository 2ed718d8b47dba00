// What a service sees beside its own session: the screen that it has not, the user who works at another one, and the event
// log. Libraries that are loaded at run time are here too, since the functions that reach users are found in them.
#include "platform/simulated/state.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

namespace Simulated {

namespace {

using PlatformControl::Screen;

constexpr DWORD OWN_SESSION = 0, CONSOLE_SESSION = 1, REMOTE_SESSION = 2, LEFT_SESSION = 3, NO_SESSION = 0xFFFFFFFF;
Screen UsedScreen = Screen::Own;
int Pinned = 0;
int NotFreed = 0;

struct EventSource : Object {
    std::string name;
};
std::vector<PlatformControl::LogEntry>& Entries = *new std::vector<PlatformControl::LogEntry>;

// Whether somebody is logged on in this session.
bool HasUser(DWORD session) {
    return (session == CONSOLE_SESSION && UsedScreen == Screen::UsersSession) ||
           ((session == REMOTE_SESSION || session == LEFT_SESSION) && UsedScreen == Screen::UserAtADistance);
}

// What WTSFreeMemory gives back.
template <class T> T* Given(std::size_t count) {
    ++NotFreed;
    return static_cast<T*>(std::calloc(count, sizeof(T)));
}

std::string Narrow(LPCWSTR text, DWORD bytes) {
    std::string out;
    for (DWORD i = 0; i < bytes / sizeof(WCHAR) && text[i] != 0; ++i)
        out += static_cast<char>(text[i]);
    return out;
}

}  // namespace

void ResetSessions() {
    UsedScreen = Screen::Own;
    Pinned = NotFreed = 0;
    Entries.clear();
}

int SessionMemory() {
    return NotFreed;
}

}  // namespace Simulated

using namespace Simulated;

HWINSTA WINAPI GetProcessWindowStation() {
    return reinterpret_cast<HWINSTA>(&UsedScreen);
}

BOOL WINAPI GetUserObjectInformationA(HANDLE, int, LPVOID information, DWORD size, DWORD* needed) {
    if (Fails("GetUserObjectInformationA"))
        return FALSE;
    const Guard guard(Lock);
    USEROBJECTFLAGS flags{};
    flags.dwFlags = UsedScreen == Screen::Own ? WSF_VISIBLE : 0;
    std::memcpy(information, &flags, std::min<std::size_t>(size, sizeof flags));
    if (needed != nullptr)
        *needed = sizeof flags;
    return size >= sizeof flags;
}

DWORD WINAPI WTSGetActiveConsoleSessionId() {
    const Guard guard(Lock);
    return UsedScreen == Screen::Own ? OWN_SESSION : UsedScreen == Screen::NoSession ? NO_SESSION : CONSOLE_SESSION;
}

BOOL WINAPI WTSEnumerateSessionsW(HANDLE, DWORD reserved, DWORD version, WTS_SESSION_INFOW** sessions, DWORD* count) {
    if (reserved != 0 || version != 1 || Fails("WTSEnumerateSessionsW"))
        return FALSE;
    const Guard guard(Lock);
    constexpr DWORD Listed[] = {OWN_SESSION, LEFT_SESSION, CONSOLE_SESSION, REMOTE_SESSION};
    *count = static_cast<DWORD>(std::size(Listed));
    *sessions = Given<WTS_SESSION_INFOW>(*count);
    for (DWORD i = 0; i < *count; ++i) {
        (*sessions)[i].SessionId = Listed[i];
        // Its user is still logged on in the one that was left, and does not see it.
        (*sessions)[i].State = Listed[i] == OWN_SESSION || Listed[i] == LEFT_SESSION ? WTSDisconnected : WTSActive;
    }
    return TRUE;
}

// The name is empty where nobody is logged on.
BOOL WINAPI WTSQuerySessionInformationW(HANDLE, DWORD session, WTS_INFO_CLASS, LPWSTR* value, DWORD* bytes) {
    if (Fails("WTSQuerySessionInformationW"))
        return FALSE;
    const Guard guard(Lock);
    if (session < CONSOLE_SESSION || session > LEFT_SESSION)
        return FALSE;
    const std::string_view name = HasUser(session) ? "user" : "";
    auto* const copy = Given<WCHAR>(name.size() + 1);
    std::copy(name.begin(), name.end(), copy);
    *value = copy;
    *bytes = static_cast<DWORD>((name.size() + 1) * sizeof(WCHAR));
    return TRUE;
}

void WINAPI WTSFreeMemory(LPVOID memory) {
    const Guard guard(Lock);
    --NotFreed;
    std::free(memory);
}

// Dispatches nothing while the box is open, as on Windows.
BOOL WINAPI WTSSendMessageW(HANDLE, DWORD session, LPWSTR title, DWORD titleBytes, LPWSTR text, DWORD textBytes,
                            DWORD style, DWORD seconds, DWORD* response, BOOL) {
    if (Fails("WTSSendMessageW"))
        return FALSE;
    Guard guard(Lock);
    if (!HasUser(session))
        return FALSE;
    PlatformControl::Box box{Narrow(text, textBytes), Narrow(title, titleBytes), style};
    box.LineMutexHeld = HoldsMutex("SP62LineMutex");
    box.InSession = true;
    box.Seconds = seconds;
    const std::uint32_t open = BoxShown(box);
    const bool closesItself = seconds != 0 && open > seconds * 1000;
    WaitUntil(guard, closesItself ? seconds * 1000 : open, [] { return false; });
    *response = static_cast<DWORD>(closesItself ? IDTIMEOUT : AnswerTo(guard, box));
    return TRUE;
}

// Every library is there, and all have these.
HMODULE WINAPI LoadLibraryA(LPCSTR) {
    if (Fails("LoadLibraryA"))
        return nullptr;
    return reinterpret_cast<HMODULE>(&UsedScreen);
}

FARPROC WINAPI GetProcAddress(HMODULE, LPCSTR name) {
    const struct {
        std::string_view name;
        void* function;
    } functions[] = {
        {"WTSGetActiveConsoleSessionId", reinterpret_cast<void*>(WTSGetActiveConsoleSessionId)},
        {"WTSEnumerateSessionsW", reinterpret_cast<void*>(WTSEnumerateSessionsW)},
        {"WTSQuerySessionInformationW", reinterpret_cast<void*>(WTSQuerySessionInformationW)},
        {"WTSFreeMemory", reinterpret_cast<void*>(WTSFreeMemory)},
        {"WTSSendMessageW", reinterpret_cast<void*>(WTSSendMessageW)},
    };
    for (const auto& known : functions)
        if (known.name == name)
            return reinterpret_cast<FARPROC>(known.function);
    return nullptr;
}

BOOL WINAPI GetModuleHandleExA(DWORD flags, LPCSTR, HMODULE* library) {
    const Guard guard(Lock);
    Pinned += (flags & GET_MODULE_HANDLE_EX_FLAG_PIN) != 0;
    *library = nullptr;
    return TRUE;
}

HANDLE WINAPI RegisterEventSourceA(LPCSTR, LPCSTR source) {
    if (Fails("RegisterEventSourceA"))
        return nullptr;
    const Guard guard(Lock);
    const auto opened = std::make_shared<EventSource>();
    opened->name = source;
    return Register(opened);
}

BOOL WINAPI ReportEventA(HANDLE log, WORD type, WORD, DWORD event, LPVOID, WORD textCount, DWORD, LPCSTR* texts,
                         LPVOID) {
    if (Fails("ReportEventA"))
        return FALSE;
    const Guard guard(Lock);
    const auto source = std::dynamic_pointer_cast<EventSource>(Find(log));
    if (source == nullptr)
        return FALSE;
    Entries.push_back({source->name, type, event, {texts, texts + textCount}});
    return TRUE;
}

BOOL WINAPI DeregisterEventSource(HANDLE log) {
    return CloseHandle(log);
}

void PlatformControl::UseScreen(Screen screen) {
    const Guard guard(Lock);
    UsedScreen = screen;
}

int PlatformControl::PinnedLibraries() {
    const Guard guard(Lock);
    return Pinned;
}

std::vector<PlatformControl::LogEntry> PlatformControl::LogEntries() {
    const Guard guard(Lock);
    return Entries;
}
