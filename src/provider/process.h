// What the process has one of: the line mutex, the serial thread, the count of opens.
//
// The line mutex "SP62LineMutex" guards all shared state. TAPI's threads take it at the start of every entry point but
// the opens and version negotiations; every tick of the serial thread holds it. It is recursive for its owner.
#pragma once

#include "platform/platform.h"

#include <atomic>
#include <cstdint>

// Values that survive the zeroing of ProviderState.
struct ProcessRecord {
    HINSTANCE ModuleInstance = nullptr;
    HANDLE LineMutex = nullptr;  // null until first use
    DWORD LineMutexHolder = 0;   // thread identifier; 0 = no thread of this process
    int LineMutexDepth = 0;      // how often it has taken it
    DWORD LineMutexSince = 0;    // when it took it first, ms
    HANDLE TurnMutex = nullptr;  // whose turn it is to start or stop the serial thread; lives as long as the library
    HANDLE SerialReadyEvent = nullptr;  // auto-reset, made anew by each thread start
    HANDLE SerialThread = nullptr;      // null while no serial thread runs
    int Starting = 0;                   // how many wait for its attempt to open the port
    DWORD SerialThreadID = 0;
    std::int32_t OpenCount = 0;    // opens of line and phone, never decremented
    bool Stopping = false;         // the thread is being stopped: no request starts it again meanwhile
    bool PortUnread = false;       // the port's name could not be read: the next open tries again
    bool RestartRequired = false;  // the serial port setting was changed: opens refuse until the provider restarts
};
extern ProcessRecord Process;

// A thread that has not ended when it was stopped is forgotten: it does nothing any more and ends as soon as it can.
// Until then it has the port, and no other is started.
enum class ThreadLife : std::uint8_t { None, Serves, Forgotten };
extern std::atomic<ThreadLife> SerialThreadLife;

// Ends the serial thread's message loop. Set without the line mutex, since the thread's last tick may need that.
extern std::atomic<bool> StopRequest;

constexpr DWORD LINE_MUTEX_WAIT_MS = 20'000;
// Takes the line mutex, waiting up to 20 s; creates it, owned, on first use. Gives 0, WAIT_ABANDONED (the caller then
// owns it all the same), WAIT_TIMEOUT, another wait result, or LINEERR_NODRIVER when it cannot be created.
LONG WaitLineMutex();

// The same where the mutex exists; until the first entry point has made it, nobody can be inside one. For what runs
// outside of the entry points that take it: opens, and the serial thread's start and end. LeaveIfShared ends it.
bool EnterIfShared();
void LeaveIfShared(bool entered);

// Whether a wait that gave this has left the line mutex with its caller.
bool GotLineMutex(LONG wait);

// Releases the line mutex and gives its argument back, so that an entry point can end in one statement.
LONG ReleaseLineMutex(LONG result);

// How long, in ms, the calling thread has held the line mutex since it took it first; NOT_HELD where it does not hold it.
constexpr DWORD NOT_HELD = 0xFFFFFFFF;
DWORD LineMutexHeldFor();
inline bool HoldsLineMutex() {
    return LineMutexHeldFor() != NOT_HELD;
}

// Gives up all holds of the line mutex that this thread has, so that the serial thread can have it; TakeBack takes as many.
int LetGo();
void TakeBack(int holds);

// Closes a handle, where there is one.
void CloseAndForget(HANDLE& handle);
