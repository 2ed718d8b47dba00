#include "provider/process.h"

#include "trace/trace.h"

#include <utility>

ProcessRecord Process;
std::atomic<bool> StopRequest = false;
std::atomic<ThreadLife> SerialThreadLife = ThreadLife::None;

namespace {

constexpr const char* LINE_MUTEX = "SP62LineMutex";

// Its owner alone writes who holds the line mutex; another thread only sees that it is not itself.
std::atomic_ref<DWORD> Holder() {
    return std::atomic_ref(Process.LineMutexHolder);
}

void MutexTaken() {
    const DWORD self = GetCurrentThreadId();
    if (Holder() != self) {  // also where a thread that ended has left it
        Holder() = self;
        Process.LineMutexDepth = 0;
        Process.LineMutexSince = timeGetTime();
    }
    ++Process.LineMutexDepth;
}

bool ReleaseTaken() {
    if (Holder() == GetCurrentThreadId() && --Process.LineMutexDepth == 0)
        Holder() = 0;
    return ReleaseMutex(Process.LineMutex) != 0;
}

}  // namespace

bool EnterIfShared() {
    return std::atomic_ref(Process.LineMutex).load() != nullptr && GotLineMutex(WaitLineMutex());
}

void LeaveIfShared(bool entered) {
    if (entered && Process.LineMutex != nullptr)  // a shutdown in between has given it up
        ReleaseLineMutex(0);
}

LONG WaitLineMutex() {
    const std::atomic_ref shared(Process.LineMutex);  // two threads may be the first to ask
    if (const HANDLE mutex = shared.load(); mutex != nullptr) {
        const DWORD wait = WaitForSingleObject(mutex, LINE_MUTEX_WAIT_MS);
        if (GotLineMutex(static_cast<LONG>(wait)))
            MutexTaken();
        if (wait == WAIT_ABANDONED)
            Trace(TRACE_ALWAYS, "WAITLINEMUTEX PRB WAIT_ABANDONED");
        else if (wait == WAIT_TIMEOUT)
            Trace(TRACE_ALWAYS, "WAITLINEMUTEX PRB WAIT_TIMEOUT");
        return static_cast<LONG>(wait);
    }
    Trace(TRACE_ALWAYS, "MutexLine creation");
    const HANDLE made = CreateMutexA(nullptr, TRUE, LINE_MUTEX);
    const DWORD error = GetLastError();
    if (made == nullptr) {
        Trace(TRACE_ALWAYS, "MutexLine not created error %d", error);
        return static_cast<LONG>(LINEERR_NODRIVER);
    }
    HANDLE none = nullptr;
    if (!shared.compare_exchange_strong(none, made))
        CloseHandle(made);  // another thread's handle to the same mutex was first
    // Where it existed already, here or in another process, making it has not given it to this thread.
    if (error == ERROR_ALREADY_EXISTS)
        return WaitLineMutex();
    MutexTaken();
    return 0;
}

bool GotLineMutex(LONG wait) {
    return wait == 0 || wait == static_cast<LONG>(WAIT_ABANDONED);
}

LONG ReleaseLineMutex(LONG result) {
    if (!ReleaseTaken())
        Trace(TRACE_ALWAYS, "REL_LINE_MUTEX PRB %lx", GetLastError());
    return result;
}

DWORD LineMutexHeldFor() {
    return Holder() == GetCurrentThreadId() ? timeGetTime() - Process.LineMutexSince : NOT_HELD;
}

int LetGo() {
    int holds = 0;
    while (Process.LineMutex != nullptr && ReleaseTaken())
        ++holds;
    return holds;
}

void TakeBack(int holds) {
    for (; holds > 0; --holds)
        WaitLineMutex();
}

void CloseAndForget(HANDLE& handle) {
    if (handle != nullptr)
        CloseHandle(std::exchange(handle, nullptr));
}
