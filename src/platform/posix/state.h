// What the subjects of the POSIX layer share: the clock and its waiting, handles, and the switches of control.h.
#pragma once

#include "platform/platform.h"
#include "platform/posix/control.h"

#include <condition_variable>
#include <memory>
#include <mutex>

namespace Posix {

// One lock for the whole layer: its operations are short, and one lock makes the test clock deterministic.
extern std::mutex Lock;
using Guard = std::unique_lock<std::mutex>;

// --- the clock (clock.cpp)
std::uint32_t NowLocked();  // with Lock held
// Waits, with the lock held, until `ready` holds (true), or until `milliseconds` have passed (false; INFINITE never).
// With the test clock, a thread that waits here counts as at rest; the driving thread (the one that called Reset) moves
// the time while it waits.
bool WaitUntil(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready);
// Something that a waiting thread may be waiting for has changed.
void Changed();
// A product thread begins and ends: it counts as busy in between, except while it waits.
void ThreadBegins();
void ThreadEnds();
// Earliest due time after `now` of all timers; false when there is none. In messages.cpp.
bool NextTimer(std::uint32_t now, std::uint32_t& due);
void ForgetTimersOf(DWORD threadID);

// --- handles (objects.cpp)
struct Object {
    virtual ~Object() = default;
};
HANDLE Register(std::shared_ptr<Object> object);
std::shared_ptr<Object> Find(HANDLE handle);
bool HoldsMutex(const std::string& name);  // the calling thread; with Lock held

// --- start values, for PlatformControl::Reset
void ResetClock();
void ResetObjects();
void ResetMessages();
void ResetPorts();
void ResetRegistry();
void ResetFiles();
void ResetMemory();

}  // namespace Posix
