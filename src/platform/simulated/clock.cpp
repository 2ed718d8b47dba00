// The clock and everything that waits for it. Under the system's clock the product's threads are threads, and wait on one
// condition variable. Under the test clock they are fibers of the driving thread: it resumes them one after the other
// whenever it waits itself or moves the time, each until it waits.
#include "platform/simulated/fiber.h"
#include "platform/simulated/state.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>
#include <vector>

namespace Simulated {

std::mutex& Lock = *new std::mutex;

namespace {

std::condition_variable& Wake = *new std::condition_variable;
bool TestClock = false;
std::uint32_t TestNow = 0;
unsigned Faster = 1;     // the system clock's milliseconds to one
std::thread::id Driver;  // the thread that moves the test clock

std::uint32_t SystemNow() {
    using namespace std::chrono;
    const auto passed = duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
    return static_cast<std::uint32_t>(passed * Faster / 1000);
}

// A product thread under the test clock, and what it waits for: at first for its turn.
struct FiberThread {
    FiberThread(DWORD number, std::function<void()> body) : id(number), fiber(std::move(body)) {}
    DWORD id;
    Fiber fiber;
    std::uint32_t limit = 0;  // of its wait
    const std::function<bool()>* ready = nullptr;
    bool endless = false;
    DWORD error = 0;  // its last error: the system keeps one for the driving thread
    bool WaitIsOver() const { return ready == nullptr || (*ready)() || (!endless && Passed(TestNow, limit)); }
};
std::vector<std::unique_ptr<FiberThread>>& FiberThreads = *new std::vector<std::unique_ptr<FiberThread>>;
// Of tests that are over. They never go on, but what stands on their stacks stays in reach of the leak checker.
std::vector<std::unique_ptr<FiberThread>>& Stranded = *new std::vector<std::unique_ptr<FiberThread>>;
FiberThread* Current = nullptr;  // the one that runs; null: the driving thread itself

// Those that can go on do so until all wait, in the order in which they were made.
void LetAllRest(Guard& guard) {
    if (Current != nullptr) {
        std::fputs("a product thread moves the test clock\n", stderr);
        std::abort();
    }
    const auto next = [] {
        return std::find_if(FiberThreads.begin(), FiberThreads.end(),
                            [](const auto& thread) { return thread->WaitIsOver(); });
    };
    for (auto turn = next(); turn != FiberThreads.end(); turn = next()) {
        FiberThread& thread = **turn;
        guard.unlock();
        const DWORD ownID = SwapThreadID(thread.id), ownError = GetLastError();
        Current = &thread;
        SetLastError(thread.error);
        thread.fiber.Resume();
        thread.error = GetLastError();
        Current = nullptr;
        SwapThreadID(ownID);
        SetLastError(ownError);
        guard.lock();
        if (thread.fiber.Over())
            std::erase_if(FiberThreads, [&](const auto& over) { return over.get() == &thread; });
    }
}

// When the next thing happens by itself: a timer, or the end of a wait.
bool NextEvent(std::uint32_t& due) {
    bool found = NextTimer(TestNow, due);
    if (std::uint32_t transfer = 0;
        NextTransfer(TestNow, transfer) && (!found || static_cast<std::int32_t>(transfer - due) < 0)) {
        due = transfer;
        found = true;
    }
    for (const auto& thread : FiberThreads)
        if (!thread->endless && (!found || static_cast<std::int32_t>(thread->limit - due) < 0)) {
            due = thread->limit;
            found = true;
        }
    return found;
}

void MoveTo(Guard& guard, std::uint32_t now) {
    TestNow = now;
    RunTransfers(guard, now);
    LetAllRest(guard);
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
    LetAllRest(guard);
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

bool WaitForTurn(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready) {
    FiberThread& self = *Current;
    self.ready = &ready;
    self.endless = milliseconds == INFINITE;
    self.limit = TestNow + milliseconds;
    guard.unlock();
    self.fiber.Suspend();
    guard.lock();
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
    if (Current != nullptr)
        return WaitForTurn(guard, milliseconds, ready);
    if (milliseconds != INFINITE)
        return Wake.wait_for(guard, std::chrono::microseconds(std::uint64_t{milliseconds} * 1000 / Faster), ready);
    Wake.wait(guard, ready);
    return true;
}

bool DrivesClock() {
    return TestClock && Current == nullptr && std::this_thread::get_id() == Driver;
}

void Changed() {
    Wake.notify_all();
}

bool StartFiberThread(DWORD id, std::function<void()> body) {
    if (!TestClock)
        return false;
    FiberThreads.push_back(std::make_unique<FiberThread>(id, std::move(body)));
    return true;
}

void ResetClock() {
    TestClock = true;
    TestNow = 1'000'000;
    Driver = std::this_thread::get_id();
    std::move(FiberThreads.begin(), FiberThreads.end(), std::back_inserter(Stranded));
    FiberThreads.clear();
}

}  // namespace Simulated

using namespace Simulated;

DWORD WINAPI timeGetTime() {
    const Guard guard(Lock);
    return NowLocked();
}

void PlatformControl::UseSystemClock(unsigned faster) {
    const Guard guard(Lock);
    Faster = faster;
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
    LetAllRest(guard);
    while (StepTowards(guard, limit)) {
    }
    MoveTo(guard, limit);
}

void PlatformControl::Settle() {
    Guard guard(Lock);
    if (TestClock)
        LetAllRest(guard);
}
