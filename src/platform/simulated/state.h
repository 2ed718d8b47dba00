// What the subjects of the simulated system share: the clock and its waiting, handles, and the switches of control.h.
//
// Everything that a thread may still use while the process ends is made with `new` and never destroyed: the system's
// threads do not end before the run time clears up, and a condition variable that is waited for cannot be destroyed.
#pragma once

#include "platform/control.h"
#include "platform/platform.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace Simulated {

// One lock for the whole layer: its operations are short, and one lock makes the test clock deterministic.
extern std::mutex& Lock;
using Guard = std::unique_lock<std::mutex>;

// Wrap-safe: whether `due` is `now` or before it.
inline bool Passed(std::uint32_t now, std::uint32_t due) {
    return static_cast<std::int32_t>(now - due) >= 0;
}

// --- the clock (clock.cpp)
std::uint32_t NowLocked();  // with Lock held
// Waits, with the lock held, until `ready` holds (true), or until `milliseconds` have passed (false; INFINITE never).
// `ready` may be asked by any thread. With the test clock, a thread that waits here counts as at rest, and goes on when
// the driving thread (the one that called Reset) waits or moves the time: that one lets all others come to rest before it
// looks, and moves the time while it waits.
bool WaitUntil(Guard& guard, DWORD milliseconds, const std::function<bool()>& ready);
bool DrivesClock();  // whether the caller is the driving thread itself
// Something that a waiting thread may be waiting for has changed.
void Changed();
// With the test clock: `body` is a product thread of this number, and begins when the driving thread waits next. False
// with the system's clock, under which it takes a thread of the system.
bool StartFiberThread(DWORD id, std::function<void()> body);
// Earliest due time after `now` of all timers; false when there is none. In messages.cpp.
bool NextTimer(std::uint32_t now, std::uint32_t& due);
void ForgetTimersOf(DWORD threadID);
int TimerCount();
// Notes a box; gives how long it stays open, ms. AnswerTo decides its answer, without the lock. In messages.cpp.
std::uint32_t BoxShown(const PlatformControl::Box& box);
int AnswerTo(Guard& guard, const PlatformControl::Box& box);

// --- handles (objects.cpp)
struct Object {
    virtual ~Object() = default;
    virtual void Forget() {}  // Reset takes the handle away: nothing outside may be called any more
};
HANDLE Register(std::shared_ptr<Object> object);
std::shared_ptr<Object> Find(HANDLE handle);
DWORD SwapThreadID(DWORD id);               // gives the calling thread another number; returns the one that it had
bool HoldsMutex(const std::string& name);   // the calling thread; with Lock held
bool Ready(HANDLE handle);                  // a wait of the calling thread for it would end at once; with Lock held
void Signal(HANDLE event, bool signalled);  // SetEvent and ResetEvent with Lock held; nothing for no event
// The calling thread is about to wait for ever: says so on standard error, with the mutexes that it holds, and ends the
// process. With Lock held.
[[noreturn]] void NeverEnds(const std::string& what);
int OpenFiles();      // files opened with _lopen and _lcreat, and memory (files.cpp)
int SessionMemory();  // what WTSFreeMemory has not been given yet (sessions.cpp); with Lock held

// --- ports (ports.cpp); the two about transfers with Lock held
// What is behind an open port. Each call gives 0, or the error that the caller gets.
struct Wire {
    virtual ~Wire() = default;
    virtual void Forget() {}
    virtual DWORD SetState(const DCB&) { return 0; }
    virtual DWORD SetRts(bool) { return 0; }
    virtual DWORD Status(COMSTAT& status) = 0;
    virtual DWORD Read(std::span<std::uint8_t> into, DWORD& got) = 0;
    // `pending` when the bytes have been taken and are not all out yet.
    virtual DWORD Write(std::span<const std::uint8_t> bytes, bool& pending) = 0;
    virtual void Purge(bool, bool) {}  // throws away what has been received, and what has not gone out
};
// When the earliest transfer that is under way goes on, `now` or later; false when none will by itself.
bool NextTransfer(std::uint32_t now, std::uint32_t& due);
// With all product threads held at rest; gives the lock away meanwhile.
void RunTransfers(Guard& guard, std::uint32_t now);
// A serial device of the system, held by this process alone; null with the error set. Per system.
std::unique_ptr<Wire> OpenTerminal(const std::string& path);

// --- faults (faults.cpp)
// The error that a test wants of this call of a function, set as the last one too; 0 = none, and the last error as it
// was. Asked without Lock, once a call, in front of everything.
DWORD Failure(const char* function);
inline bool Fails(const char* function) {
    return Failure(function) != 0;
}
// The rest with Lock held.
extern int StuckUnlocks;
// The error that a test wants of a registry call on this key, or on this value of it, with these rights asked for; 0 =
// none.
LONG Refusal(const std::string& path, const std::string& value = {}, REGSAM rights = 0);

// --- start values, for PlatformControl::Reset
void ResetClock();
void ResetMessages();
void ResetSessions();
void ResetDialogs();
void ResetPorts();
void ResetRegistry();
void ResetFiles();
void ResetFaults();

}  // namespace Simulated
