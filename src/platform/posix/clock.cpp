#include "platform/posix/state.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <list>
#include <thread>

namespace Posix {

std::mutex Lock;

namespace {

std::condition_variable Wake;
bool TestClock = false;
std::uint32_t TestNow = 0;
std::thread::id Driver;  // the thread that moves the test clock
int Busy = 0;            // product threads that are neither waiting nor ended

std::uint32_t SystemNow() {
    using namespace std::chrono;
    return static_cast<std::uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// Wrap-safe: whether `due` is `now` or before it.
bool Passed(std::uint32_t now, std::uint32_t due) {
    return static_cast<std::int32_t>(now - due) >= 0;
}

// A wait in progress. A thread whose wait could end now is not at rest, though it may not have woken up yet.
struct Waiter {
    const std::function<bool()>& ready;
    bool endless;
    std::uint32_t limit;
    bool Over() const { return ready() || (!endless && Passed(TestNow, limit)); }
};
std::list<const Waiter*> Waiters;

bool AtRest() {
    return Busy == 0 && std::none_of(Waiters.begin(), Waiters.end(), [](const Waiter* w) { return w->Over(); });
}

// Moves the time to the next timer that comes due at `limit` or before, and lets it run; false when there is none. A
// timer whose thread is not in a message loop stays due, and runs when the thread comes back to one.
bool FireNextTimer(Guard& guard, std::uint32_t limit) {
    std::uint32_t due = 0;
    if (!NextTimer(TestNow, due) || !Passed(limit, due))
        return false;
    TestNow = due;
    Wake.notify_all();
    Wake.wait(guard, AtRest);
    return true;
}

// The driving thread waits: time passes, timer by timer, until it need not wait any longer.
bool DriveUntil(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready) {
    constexpr std::uint32_t FOREVER = 0x40000000;  // 12 days: an endless wait that nothing can end
    const std::uint32_t limit = TestNow + (milliseconds == INFINITE ? FOREVER : milliseconds);
    for (;;) {
        Wake.wait(guard, [&] { return ready() || AtRest(); });
        if (ready())
            return true;
        if (FireNextTimer(guard, limit))
            continue;
        if (milliseconds == INFINITE) {
            std::fputs("the test's own thread waits for ever: nothing is left that could end it\n", stderr);
            std::abort();
        }
        TestNow = limit;
        Wake.notify_all();
        Wake.wait(guard, AtRest);
        return ready();
    }
}

}  // namespace

std::uint32_t NowLocked() {
    return TestClock ? TestNow : SystemNow();
}

bool WaitUntil(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready) {
    if (ready())
        return true;
    if (milliseconds == 0)
        return false;
    if (!TestClock) {
        if (milliseconds == INFINITE) {
            Wake.wait(guard, ready);
            return true;
        }
        return Wake.wait_for(guard, std::chrono::milliseconds(milliseconds), ready);
    }
    if (std::this_thread::get_id() == Driver)
        return DriveUntil(guard, milliseconds, ready);
    const Waiter waiter{ready, milliseconds == INFINITE, TestNow + milliseconds};
    Waiters.push_back(&waiter);
    --Busy;
    Wake.notify_all();
    Wake.wait(guard, [&] { return waiter.Over(); });
    ++Busy;
    Waiters.remove(&waiter);
    return ready();
}

void Changed() {
    Wake.notify_all();
}

void ThreadBegins() {
    ++Busy;
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

}  // namespace Posix

using namespace Posix;

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
    const std::uint32_t limit = TestNow + milliseconds;
    Wake.wait(guard, AtRest);
    while (FireNextTimer(guard, limit)) {
    }
    TestNow = limit;
    Wake.notify_all();
    Wake.wait(guard, AtRest);
}

void PlatformControl::Settle() {
    Guard guard(Lock);
    Wake.wait(guard, AtRest);
}
