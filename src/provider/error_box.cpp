#include "provider/error_box.h"

#include "platform/copy_text.h"
#include "provider/event_log.h"
#include "provider/process.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>

namespace {

constexpr const char* TITLE = "Corvane 6200 SP Error";
constexpr UINT STYLE = MB_ICONHAND | MB_SYSTEMMODAL | MB_TASKMODAL | MB_DEFAULT_DESKTOP_ONLY;
constexpr DWORD HELD_LIMIT_MS = 15'000;  // applications wait 20 s for the line mutex
constexpr DWORD CLOSING_MS = 2'000;      // a box that should have closed by then is not waited for
constexpr std::size_t TEXT_ROOM = 256;
constexpr DWORD NO_SESSION = 0xFFFFFFFF;

// --- the system's functions that reach other sessions, found at run time: a library that needed them would not load where
// they are missing

template <class Function> Function Find(const char* library, const char* name) {
    const HMODULE loaded = LoadLibraryA(library);  // never let go: a box may still be in it
    return loaded == nullptr ? nullptr
                             : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(loaded, name)));
}

template <class Function> Function FindWts(const char* name) {
    return Find<Function>("wtsapi32.dll", name);
}

bool SomebodyIsLoggedOn(DWORD session) {
    const auto ask = FindWts<decltype(&WTSQuerySessionInformationW)>("WTSQuerySessionInformationW");
    const auto release = FindWts<decltype(&WTSFreeMemory)>("WTSFreeMemory");
    LPWSTR name = nullptr;
    DWORD bytes = 0;
    if (ask == nullptr || release == nullptr || !ask(WTS_CURRENT_SERVER_HANDLE, session, WTSUserName, &name, &bytes))
        return false;
    const bool somebody = name[0] != 0;
    release(name);
    return somebody;
}

// The first session that somebody works in from afar; NO_SESSION where there is none.
DWORD SessionAtADistance() {
    const auto list = FindWts<decltype(&WTSEnumerateSessionsW)>("WTSEnumerateSessionsW");
    const auto release = FindWts<decltype(&WTSFreeMemory)>("WTSFreeMemory");
    WTS_SESSION_INFOW* sessions = nullptr;
    DWORD count = 0;
    if (list == nullptr || release == nullptr || !list(WTS_CURRENT_SERVER_HANDLE, 0, 1, &sessions, &count))
        return NO_SESSION;
    const auto* const end = sessions + count;
    const auto* const found = std::find_if(sessions, sessions + count, [](const WTS_SESSION_INFOW& session) {
        return session.State == WTSActive && SomebodyIsLoggedOn(session.SessionId);
    });
    const DWORD session = found == end ? NO_SESSION : found->SessionId;
    release(sessions);
    return session;
}

// The session at the computer's own screen, which is beside the set; another one where nobody is logged on there.
DWORD SessionOfUser() {
    const auto ask = Find<decltype(&WTSGetActiveConsoleSessionId)>("kernel32.dll", "WTSGetActiveConsoleSessionId");
    const DWORD session = ask == nullptr ? NO_SESSION : ask();
    return session != NO_SESSION && SomebodyIsLoggedOn(session) ? session : SessionAtADistance();
}

bool OwnScreenIsVisible() {
    USEROBJECTFLAGS flags{};
    return GetUserObjectInformationA(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags, nullptr) &&
           (flags.dwFlags & WSF_VISIBLE) != 0;
}

// --- boxes in a session. Sending one blocks its thread without dispatching anything, so a thread of its own does it.

enum BoxState : int {
    BOX_FREE,
    BOX_OPEN,  // both threads use it
    BOX_OVER,  // answered, or refused: its thread uses it no more
    BOX_LEFT,  // nobody waits for it any more: its thread frees it
};
struct SessionBox {
    std::atomic<int> State = BOX_FREE;
    DWORD Session = 0;
    DWORD Seconds = 0;  // closes by itself then; 0: never
    WCHAR Text[TEXT_ROOM]{}, Title[32]{};
    DWORD Response = 0;  // 0: it could not be shown
    DWORD Error = 0;
};
// As many may be open at once: one that nested ticks show in another one, and those left standing by a stop.
std::array<SessionBox, 4> SessionBoxes;

DWORD WINAPI ShowInSession(LPVOID argument) {
    SessionBox& box = *static_cast<SessionBox*>(argument);
    const auto send = FindWts<decltype(&WTSSendMessageW)>("WTSSendMessageW");
    const auto bytes = [](const WCHAR* text) {
        DWORD length = 0;
        while (text[length] != 0)
            ++length;
        return static_cast<DWORD>(length * sizeof(WCHAR));
    };
    DWORD response = 0;
    if (send != nullptr && send(WTS_CURRENT_SERVER_HANDLE, box.Session, box.Title, bytes(box.Title), box.Text,
                                bytes(box.Text), STYLE, box.Seconds, &response, TRUE))
        box.Response = response;
    else
        box.Error = GetLastError();
    int open = BOX_OPEN;
    if (!box.State.compare_exchange_strong(open, BOX_OVER))
        box.State = BOX_FREE;
    return 0;
}

SessionBox* TakeSessionBox() {
    for (SessionBox& box : SessionBoxes)
        if (int free = BOX_FREE; box.State.compare_exchange_strong(free, BOX_OPEN))
            return &box;
    return nullptr;
}

constexpr DWORD STOP_LOOK_MS = 100;

// Dispatches the thread's messages until `thread` has ended; false when the time is over (INFINITE: never), or when the
// serial thread is to stop. The end of the program is left for the thread's own loop.
bool DispatchUntilEnded(HANDLE thread, DWORD milliseconds) {
    const DWORD start = timeGetTime();
    bool quit = false, ended = false;
    int code = 0;
    while (!StopRequest) {
        const DWORD passed = timeGetTime() - start;
        if (passed >= milliseconds)
            break;
        // In slices: no message tells of a stop, and a thread without a timer gets none.
        const DWORD wait = MsgWaitForMultipleObjectsEx(1, &thread, std::min(milliseconds - passed, STOP_LOOK_MS),
                                                       QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        ended = wait == WAIT_OBJECT_0;
        if (ended || wait == WAIT_FAILED)
            break;
        MSG message{};
        if (!PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE))
            continue;
        if (message.message == WM_QUIT) {
            quit = true;
            code = static_cast<int>(message.wParam);
            continue;
        }
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
    if (quit)
        PostQuitMessage(code);
    return ended;
}

// Leaves the box standing for its user. Its thread comes back to this library, which must then still be there: it stays
// loaded until the process ends. False when the box was over meanwhile.
bool LeaveStanding(SessionBox& box) {
    HMODULE library = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCSTR>(ShowInSession), &library);
    int open = BOX_OPEN;
    return box.State.compare_exchange_strong(open, BOX_LEFT);
}

// How long the box may stay open: INFINITE, or what is left of the time for which boxes may hold the line mutex.
DWORD TimeForBox() {
    const DWORD held = LineMutexHeldFor();
    return held == NOT_HELD ? INFINITE : held >= HELD_LIMIT_MS ? 0 : HELD_LIMIT_MS - held;
}

int BoxInSession(const char* text, bool& seen) {
    const auto unseen = [text, &seen](DWORD error) {
        seen = false;
        LogEvent(EVENT_BOX_UNSEEN, text, error);
        return IDOK;
    };
    const DWORD session = SessionOfUser(), limit = TimeForBox();
    SessionBox* const box = session == NO_SESSION || limit == 0 ? nullptr : TakeSessionBox();
    if (box == nullptr)
        return unseen(0);
    box->Session = session;
    box->Seconds = limit == INFINITE ? 0 : (limit + 999) / 1000;
    box->Response = box->Error = 0;
    char cut[TEXT_ROOM];
    CopyText(cut, text);
    MultiByteToWideChar(CP_ACP, 0, cut, -1, box->Text, static_cast<int>(std::size(box->Text)));
    MultiByteToWideChar(CP_ACP, 0, TITLE, -1, box->Title, static_cast<int>(std::size(box->Title)));
    const HANDLE thread = CreateThread(nullptr, 0, ShowInSession, box, 0, nullptr);
    if (thread == nullptr) {
        const DWORD error = GetLastError();
        box->State = BOX_FREE;
        return unseen(error);
    }
    LogEvent(EVENT_BOX_IN_SESSION, text, session);
    const bool ended = DispatchUntilEnded(thread, limit == INFINITE ? INFINITE : limit + CLOSING_MS);
    CloseHandle(thread);
    if (!ended && LeaveStanding(*box))
        return IDTIMEOUT;
    const DWORD response = box->Response, error = box->Error;
    box->State = BOX_FREE;
    return response != 0 ? static_cast<int>(response) : unseen(error);
}

}  // namespace

int ErrorBox(const char* text, bool* seen) {
    bool unasked = true;
    bool& shown = seen != nullptr ? *seen : unasked;
    shown = true;
    if (!OwnScreenIsVisible())
        return BoxInSession(text, shown);
    LogEvent(EVENT_BOX_ON_SCREEN, text);
    const int result = MessageBoxA(nullptr, text, TITLE, STYLE);
    shown = result != 0;
    return result;
}
