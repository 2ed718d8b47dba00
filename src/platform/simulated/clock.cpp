// The clock and everything that waits for it.
#include "platform/simulated/state.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <thread>

namespace Simulated {

std::mutex& Lock = *new std::mutex;

namespace {

std::condition_variable& Wake = *new std::condition_variable;
bool TestClock = false;
std::uint32_t TestNow = 0;
std::thread::id Driver;  // the thread that moves the test clock
int Busy = 0;            // product threads that are neither waiting nor ended
thread_local bool IsProductThread = false;

std::uint32_t SystemNow() {
    using namespace std::chrono;
    return static_cast<std::uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// A wait in progress by another thread than the driving one. One that could end now is not at rest, though its thread
// may not have woken up yet.
struct Waiter {
    DWORD thread;
    const std::function<bool()>& ready;
    bool endless;
    std::uint32_t limit;
    bool Over() const { return ready() || (!endless && Passed(TestNow, limit)); }
};
std::list<const Waiter*>& Waiters = *new std::list<const Waiter*>;

// Of those whose wait could end now, the thread that was made first: an order that no scheduler changes.
const Waiter* FirstOver() {
    const Waiter* first = nullptr;
    for (const Waiter* waiter : Waiters)
        if (waiter->Over() && (first == nullptr || waiter->thread < first->thread))
            first = waiter;
    return first;
}

bool AtRest() {
    return Busy == 0 && FirstOver() == nullptr;
}

// When the next thing happens by itself: a timer, or the end of a wait.
bool NextEvent(std::uint32_t& due) {
    bool found = NextTimer(TestNow, due);
    if (std::uint32_t transfer = 0;
        NextTransfer(TestNow, transfer) && (!found || static_cast<std::int32_t>(transfer - due) < 0)) {
        due = transfer;
        found = true;
    }
    for (const Waiter* waiter : Waiters)
        if (!waiter->endless && (!found || static_cast<std::int32_t>(waiter->limit - due) < 0)) {
            due = waiter->limit;
            found = true;
        }
    return found;
}

void MoveTo(Guard& guard, std::uint32_t now) {
    TestNow = now;
    ++Busy;  // nobody goes on meanwhile
    RunTransfers(guard, now);
    --Busy;
    Wake.notify_all();
    Wake.wait(guard, AtRest);
}

// Moves the time to the next event at `limit` or before, and lets it run; false when there is none. A timer whose
// thread is not in a message loop stays due, and runs when the thread comes back to one.
bool StepTowards(Guard& guard, std::uint32_t limit) {
    std::uint32_t due = 0;
    if (!NextEvent(due) || !Passed(limit, due))
        return false;
    MoveTo(guard, due);
    return true;
}

// The driving thread waits: time passes, event by event, until it need not wait any longer.
bool DriveUntil(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready) {
    constexpr std::uint32_t FOREVER = 0x40000000;  // 12 days: an endless wait that nothing can end
    const std::uint32_t limit = TestNow + std::min<std::uint32_t>(milliseconds, FOREVER);
    Wake.wait(guard, AtRest);
    while (!ready() && milliseconds != 0) {
        if (StepTowards(guard, limit))
            continue;
        if (milliseconds == INFINITE)
            NeverEnds("a wait without a limit");
        MoveTo(guard, limit);
        break;
    }
    return ready();
}

// Any other thread under the test clock. Product threads go on one at a time.
bool WaitForTurn(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready) {
    const Waiter waiter{GetCurrentThreadId(), ready, milliseconds == INFINITE, TestNow + milliseconds};
    Waiters.push_back(&waiter);
    if (IsProductThread)
        --Busy;
    Wake.notify_all();
    Wake.wait(guard, [&] { return Busy == 0 && FirstOver() == &waiter; });
    if (IsProductThread)
        ++Busy;
    Waiters.remove(&waiter);
    Wake.notify_all();  // it may have been in front of another one
    return ready();
}

}  // namespace

std::uint32_t NowLocked() {
    return TestClock ? TestNow : SystemNow();
}

bool WaitUntil(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready) {
    if (DrivesClock())
        return DriveUntil(guard, milliseconds, ready);
    if (ready())
        return true;
    if (milliseconds == 0)
        return false;
    if (TestClock)
        return WaitForTurn(guard, milliseconds, ready);
    if (milliseconds != INFINITE)
        return Wake.wait_for(guard, std::chrono::milliseconds(milliseconds), ready);
    Wake.wait(guard, ready);
    return true;
}

bool DrivesClock() {
    return TestClock && std::this_thread::get_id() == Driver;
}

void Changed() {
    Wake.notify_all();
}

void ThreadAnnounced() {
    ++Busy;
}

void ThreadBegins(Guard& guard) {
    IsProductThread = true;
    if (TestClock)
        WaitForTurn(guard, 0, [] { return true; });
}

void ThreadEnds() {
    --Busy;
    Wake.notify_all();
}

void ResetClock() {
    TestClock = true;
    TestNow = 1'000'000;
    Driver = std::this_thread::get_id();
    Busy = 0;
}

}  // namespace Simulated

using namespace Simulated;

DWORD WINAPI timeGetTime() {
    const Guard guard(Lock);
    return NowLocked();
}

void PlatformControl::UseSystemClock() {
    const Guard guard(Lock);
    TestClock = false;
}

void PlatformControl::UseTestClock(std::uint32_t now) {
    const Guard guard(Lock);
    TestClock = true;
    TestNow = now;
    Driver = std::this_thread::get_id();
}

std::uint32_t PlatformControl::Now() {
    return timeGetTime();
}

void PlatformControl::Advance(std::uint32_t milliseconds) {
    Guard guard(Lock);
    if (!TestClock)
        return;
    const std::uint32_t limit = TestNow + milliseconds;
    Wake.wait(guard, AtRest);
    while (StepTowards(guard, limit)) {
    }
    MoveTo(guard, limit);
}

void PlatformControl::Settle() {
    Guard guard(Lock);
    if (TestClock)
        Wake.wait(guard, AtRest);
}
