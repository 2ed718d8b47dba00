// Message loops, timers without a window, message boxes.
#include "platform/simulated/state.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <utility>

namespace Simulated {

namespace {

struct Timer {
    UINT_PTR id;
    DWORD threadID;
    UINT period;
    std::uint32_t due;
    TIMERPROC procedure;
};
std::vector<Timer>& Timers = *new std::vector<Timer>;
UINT_PTR NextTimerID = 1;
std::map<DWORD, std::deque<MSG>>& Queues = *new std::map<DWORD, std::deque<MSG>>;

std::vector<PlatformControl::Box>& Shown = *new std::vector<PlatformControl::Box>;
std::uint32_t BoxOpenMs = 0;
UINT Beeped = PlatformControl::NO_BEEP;
using Answer = std::function<int(const PlatformControl::Box&)>;
Answer& BoxAnswer = *new Answer;
std::uint32_t LongestTimer = 0;  // ms, of a timer's procedure that has shown no box
bool BoxesPrinted = true;        // on standard error; tests look at Boxes() instead

Timer* DueTimer(DWORD threadID) {
    const std::uint32_t now = NowLocked();
    Timer* earliest = nullptr;
    for (Timer& timer : Timers)
        if (timer.threadID == threadID && Passed(now, timer.due) &&
            (earliest == nullptr || static_cast<std::int32_t>(timer.due - earliest->due) < 0))
            earliest = &timer;
    return earliest;
}

// Takes the next message of the thread: posted ones first, then timers, as on Windows.
bool Take(DWORD threadID, MSG& message) {
    std::deque<MSG>& queue = Queues[threadID];
    if (!queue.empty()) {
        message = queue.front();
        queue.pop_front();
        return true;
    }
    Timer* timer = DueTimer(threadID);
    if (timer == nullptr)
        return false;
    const std::uint32_t now = NowLocked();
    message = MSG{};
    message.message = WM_TIMER;
    message.wParam = timer->id;
    message.lParam = reinterpret_cast<LPARAM>(timer->procedure);
    message.time = now;
    timer->due += timer->period;
    if (Passed(now, timer->due))  // late by more than a period: ticks are not made up for
        timer->due = now + timer->period;
    return true;
}

// How long a thread may sleep for its earliest timer; only the system clock needs it.
DWORD UntilTimer(DWORD threadID) {
    DWORD wait = INFINITE;
    for (const Timer& timer : Timers)
        if (timer.threadID == threadID) {
            const auto left = static_cast<std::int32_t>(timer.due - NowLocked());
            wait = std::min(wait, static_cast<DWORD>(std::max(left, 1)));
        }
    return wait;
}

bool MessageThere(DWORD threadID) {
    return !Queues[threadID].empty() || DueTimer(threadID) != nullptr;
}

// Waits for a message, or until `other` holds where it is given, until `limit` (endless without one).
void Await(Guard& guard, const std::uint32_t* limit, const std::function<bool()>& other = nullptr) {
    const DWORD self = GetCurrentThreadId();
    const std::function<bool()> ready = [&] {
        return MessageThere(self) || (other && other()) || (limit != nullptr && Passed(NowLocked(), *limit));
    };
    while (!ready()) {
        DWORD wait = UntilTimer(self);
        if (limit != nullptr) {
            const auto left = static_cast<std::int32_t>(*limit - NowLocked());
            wait = std::min(wait, static_cast<DWORD>(std::max(left, 1)));
        }
        WaitUntil(guard, wait, ready);
    }
}

// The same; takes the message, or gives false when the time is over and none is there.
bool AwaitMessage(Guard& guard, MSG& message, const std::uint32_t* limit) {
    Await(guard, limit);
    return MessageThere(GetCurrentThreadId()) && Take(GetCurrentThreadId(), message);
}

// On standard error, as one line.
void Print(const PlatformControl::Box& box) {
    std::string line = box.Text;
    for (std::size_t at; (at = line.find('\n')) != std::string::npos;)
        line.replace(at, 1, " / ");
    std::fprintf(stderr, "[box] %s: %s\n", box.Caption.c_str(), line.c_str());
}

// Dispatches the thread's messages for that long. The end of the program is left for the thread's own loop, and closes
// the box.
void KeepOpen(Guard& guard, std::uint32_t milliseconds) {
    const std::uint32_t limit = NowLocked() + milliseconds;
    MSG message{};
    while (!Passed(NowLocked(), limit) && AwaitMessage(guard, message, &limit)) {
        if (message.message == WM_QUIT) {
            Queues[GetCurrentThreadId()].push_front(message);
            return;
        }
        guard.unlock();
        DispatchMessageA(&message);
        guard.lock();
    }
}

}  // namespace

bool NextTimer(std::uint32_t now, std::uint32_t& due) {
    bool found = false;
    for (const Timer& timer : Timers) {
        if (Passed(now, timer.due))
            continue;
        if (!found || static_cast<std::int32_t>(timer.due - due) < 0)
            due = timer.due;
        found = true;
    }
    return found;
}

void ForgetTimersOf(DWORD threadID) {
    std::erase_if(Timers, [&](const Timer& timer) { return timer.threadID == threadID; });
    Queues.erase(threadID);
}

int TimerCount() {
    return static_cast<int>(Timers.size());
}

std::uint32_t BoxShown(const PlatformControl::Box& box) {
    Shown.push_back(box);
    Shown.back().Beep = std::exchange(Beeped, PlatformControl::NO_BEEP);
    if (!BoxesPrinted)
        return BoxOpenMs;
    Print(box);
    const char* setting = std::getenv("ZT_BOX_MS");
    return setting == nullptr ? BoxOpenMs : static_cast<std::uint32_t>(std::strtoul(setting, nullptr, 10));
}

int AnswerTo(Guard& guard, const PlatformControl::Box& box) {
    const Answer answer = BoxAnswer;
    guard.unlock();
    const int result = answer ? answer(box) : IDOK;
    guard.lock();
    return result;
}

void ResetMessages() {
    Timers.clear();
    Queues.clear();
    Shown.clear();
    BoxOpenMs = 0;
    Beeped = PlatformControl::NO_BEEP;
    LongestTimer = 0;
    BoxAnswer = nullptr;
    BoxesPrinted = false;
}

}  // namespace Simulated

using namespace Simulated;

BOOL WINAPI GetMessageA(MSG* message, HWND, UINT, UINT) {
    if (Fails("GetMessageA"))
        return -1;
    Guard guard(Lock);
    AwaitMessage(guard, *message, nullptr);
    return message->message != WM_QUIT;
}

BOOL WINAPI TranslateMessage(const MSG*) {
    return FALSE;
}

LRESULT WINAPI DispatchMessageA(const MSG* message) {
    if (message->message != WM_TIMER || message->lParam == 0)
        return 0;
    Guard guard(Lock);
    const std::uint32_t began = NowLocked();
    const std::size_t boxes = Shown.size();
    guard.unlock();
    reinterpret_cast<TIMERPROC>(message->lParam)(nullptr, WM_TIMER, message->wParam, message->time);
    guard.lock();
    if (Shown.size() == boxes)
        LongestTimer = std::max(LongestTimer, NowLocked() - began);
    return 0;
}

BOOL WINAPI PostThreadMessageA(DWORD threadID, UINT message, WPARAM wParam, LPARAM lParam) {
    const Guard guard(Lock);
    MSG posted{};
    posted.message = message;
    posted.wParam = wParam;
    posted.lParam = lParam;
    posted.time = NowLocked();
    Queues[threadID].push_back(posted);
    Changed();
    return TRUE;
}

BOOL WINAPI PeekMessageA(MSG* message, HWND, UINT, UINT, UINT) {
    const Guard guard(Lock);
    return MessageThere(GetCurrentThreadId()) && Take(GetCurrentThreadId(), *message);
}

void WINAPI PostQuitMessage(int code) {
    PostThreadMessageA(GetCurrentThreadId(), WM_QUIT, static_cast<WPARAM>(code), 0);
}

// For one object, and messages that are there already count: as it is used here.
DWORD WINAPI MsgWaitForMultipleObjectsEx(DWORD, const HANDLE* objects, DWORD milliseconds, DWORD, DWORD) {
    if (Fails("MsgWaitForMultipleObjectsEx"))
        return WAIT_FAILED;
    Guard guard(Lock);
    const std::uint32_t limit = NowLocked() + milliseconds;
    Await(guard, milliseconds == INFINITE ? nullptr : &limit, [&] { return Ready(objects[0]); });
    if (!Ready(objects[0]))
        return MessageThere(GetCurrentThreadId()) ? WAIT_OBJECT_0 + 1 : WAIT_TIMEOUT;
    guard.unlock();
    return WaitForSingleObject(objects[0], 0);
}

UINT_PTR WINAPI SetTimer(HWND, UINT_PTR, UINT milliseconds, TIMERPROC procedure) {
    if (Fails("SetTimer"))
        return 0;
    const Guard guard(Lock);
    const UINT period = std::max(milliseconds, 10u);  // the shortest that Windows grants
    Timers.push_back({NextTimerID, GetCurrentThreadId(), period, NowLocked() + period, procedure});
    Changed();
    return NextTimerID++;
}

BOOL WINAPI KillTimer(HWND, UINT_PTR id) {
    if (Fails("KillTimer"))
        return FALSE;
    const Guard guard(Lock);
    return std::erase_if(Timers, [&](const Timer& timer) { return timer.id == id; }) > 0;
}

// Stays open for its time, dispatching the thread's messages meanwhile, as the system's own boxes do.
int WINAPI MessageBoxA(HWND, LPCSTR text, LPCSTR caption, UINT style) {
    if (Fails("MessageBoxA"))
        return 0;
    PlatformControl::Box box{text == nullptr ? "" : text, caption == nullptr ? "Error" : caption, style, false};
    Guard guard(Lock);
    box.LineMutexHeld = HoldsMutex("SP62LineMutex");
    KeepOpen(guard, BoxShown(box));
    return AnswerTo(guard, box);
}

BOOL WINAPI MessageBeep(UINT type) {
    const Guard guard(Lock);
    Beeped = type;
    return TRUE;
}

HWND WINAPI GetActiveWindow() {
    return nullptr;
}

HWND WINAPI GetForegroundWindow() {
    return nullptr;
}

std::vector<PlatformControl::Box> PlatformControl::Boxes() {
    const Guard guard(Lock);
    return Shown;
}

void PlatformControl::KeepBoxesOpen(std::uint32_t milliseconds) {
    const Guard guard(Lock);
    BoxOpenMs = milliseconds;
}

void PlatformControl::AnswerBoxes(std::function<int(const Box&)> answer) {
    const Guard guard(Lock);
    BoxAnswer = std::move(answer);
}

std::uint32_t PlatformControl::LongestTimer() {
    const Guard guard(Lock);
    return Simulated::LongestTimer;
}
