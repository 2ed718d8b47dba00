// Mutexes, events, threads, and the handles of everything.
#include "platform/simulated/state.h"

#include <atomic>
#include <cstdlib>
#include <map>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace Simulated {

namespace {

struct Waitable : Object {
    std::string name;
    virtual bool Ready(DWORD thread) const = 0;
    virtual DWORD Take(DWORD thread) = 0;  // what a successful wait gives
};

struct Mutex : Waitable {
    DWORD owner = 0;  // thread identifier; 0 = free
    int depth = 0;
    bool abandoned = false;
    bool Ready(DWORD thread) const override { return owner == 0 || owner == thread; }
    DWORD Take(DWORD thread) override {
        owner = thread;
        ++depth;
        return std::exchange(abandoned, false) ? WAIT_ABANDONED : WAIT_OBJECT_0;
    }
};

struct Event : Waitable {
    bool manual = false, signalled = false;
    bool Ready(DWORD) const override { return signalled; }
    DWORD Take(DWORD) override {
        if (!manual)
            signalled = false;
        return WAIT_OBJECT_0;
    }
};

struct Thread : Waitable {
    std::thread system;
    bool over = false;
    bool Ready(DWORD) const override { return over; }
    DWORD Take(DWORD) override { return WAIT_OBJECT_0; }
};

using HandleMap = std::map<HANDLE, std::shared_ptr<Object>>;
HandleMap& Handles = *new HandleMap;
std::uintptr_t NextHandle = 0x100;
std::map<std::string, std::weak_ptr<Waitable>>& Names = *new std::map<std::string, std::weak_ptr<Waitable>>;
std::map<std::string, DWORD>& CreateErrors = *new std::map<std::string, DWORD>;
std::map<std::string, DWORD>& NextWaits = *new std::map<std::string, DWORD>;
// Over, but their last instructions may still be running, in code that goes away when the library is unloaded.
std::vector<std::shared_ptr<Thread>>& Ended = *new std::vector<std::shared_ptr<Thread>>;
int Running = 0;  // threads that have not ended
std::atomic<DWORD> NextThreadID = 1;
thread_local DWORD ThreadID = 0;

// The object of this name, made when there is none. Null, with the error set, when it must fail.
template <class T> std::shared_ptr<T> Named(LPCSTR name, bool& existed) {
    existed = false;
    if (name == nullptr)
        return std::make_shared<T>();
    if (const auto fault = CreateErrors.find(name); fault != CreateErrors.end() && fault->second != 0) {
        SetLastError(fault->second);
        return nullptr;
    }
    if (const auto known = Names[name].lock()) {
        existed = true;
        auto there = std::dynamic_pointer_cast<T>(known);
        if (there == nullptr)
            SetLastError(ERROR_INVALID_HANDLE);  // the name belongs to an object of another kind
        return there;
    }
    auto made = std::make_shared<T>();
    made->name = name;
    Names[name] = made;
    return made;
}

// What a thread leaves behind when it ends.
void Abandon(DWORD threadID) {
    for (const auto& [handle, object] : Handles)
        if (auto* mutex = dynamic_cast<Mutex*>(object.get()); mutex != nullptr && mutex->owner == threadID) {
            mutex->owner = 0;
            mutex->depth = 0;
            mutex->abandoned = true;
        }
    ForgetTimersOf(threadID);
}

// Waits, without the lock, until those that are over are gone altogether.
void JoinEnded() {
    std::vector<std::shared_ptr<Thread>> ended;
    {
        const Guard guard(Lock);
        ended.swap(Ended);
    }
    for (const auto& thread : ended)
        if (thread->system.joinable())
            thread->system.join();
}

// At the end of the process, or when the library is unloaded. Threads that still run then are not waited for.
struct LastJoin {
    ~LastJoin() { JoinEnded(); }
} AtTheEnd;

void RunThread(const std::shared_ptr<Thread>& thread, LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD id) {
    ThreadID = id;
    start(argument);
    const Guard ended(Lock);
    thread->over = true;
    --Running;
    Ended.push_back(thread);
    Abandon(id);
    Changed();
}

}  // namespace

HANDLE Register(std::shared_ptr<Object> object) {
    const HANDLE handle = reinterpret_cast<HANDLE>(NextHandle);
    NextHandle += 4;
    Handles[handle] = std::move(object);
    return handle;
}

std::shared_ptr<Object> Find(HANDLE handle) {
    const auto found = Handles.find(handle);
    return found == Handles.end() ? nullptr : found->second;
}

DWORD SwapThreadID(DWORD id) {
    return std::exchange(ThreadID, id);
}

bool HoldsMutex(const std::string& name) {
    const auto found = Names.find(name);
    if (found == Names.end())
        return false;
    const auto mutex = std::dynamic_pointer_cast<Mutex>(found->second.lock());
    return mutex != nullptr && mutex->owner == GetCurrentThreadId();
}

void Signal(HANDLE handle, bool signalled) {
    const auto event = std::dynamic_pointer_cast<Event>(Find(handle));
    if (event == nullptr)
        return;
    event->signalled = signalled;
    if (signalled)
        Changed();
}

void NeverEnds(const std::string& what) {
    const DWORD self = GetCurrentThreadId();
    std::string held;
    for (const auto& [name, object] : Names)
        if (const auto mutex = std::dynamic_pointer_cast<Mutex>(object.lock());
            mutex != nullptr && mutex->owner == self)
            held += (held.empty() ? "" : ", ") + name;
    std::fprintf(stderr, "%s waits for ever: nothing is left that could end it; it is in %s and holds %s\n",
                 DrivesClock() ? "the test's own thread" : ("the product's thread " + std::to_string(self)).c_str(),
                 what.c_str(), held.empty() ? "no mutex" : held.c_str());
    std::abort();
}

bool Ready(HANDLE handle) {
    const auto object = std::dynamic_pointer_cast<Waitable>(Find(handle));
    return object != nullptr && object->Ready(GetCurrentThreadId());
}

}  // namespace Simulated

using namespace Simulated;

DWORD WINAPI GetCurrentThreadId() {
    if (ThreadID == 0)
        ThreadID = NextThreadID++;
    return ThreadID;
}

HANDLE WINAPI CreateMutexA(SECURITY_ATTRIBUTES*, BOOL initialOwner, LPCSTR name) {
    if (Fails("CreateMutexA"))
        return nullptr;
    const Guard guard(Lock);
    bool existed = false;
    const auto mutex = Named<Mutex>(name, existed);
    if (mutex == nullptr)
        return nullptr;
    if (initialOwner && !existed)
        mutex->Take(GetCurrentThreadId());
    SetLastError(existed ? ERROR_ALREADY_EXISTS : 0);
    return Register(mutex);
}

BOOL WINAPI ReleaseMutex(HANDLE handle) {
    const Guard guard(Lock);
    const auto mutex = std::dynamic_pointer_cast<Mutex>(Find(handle));
    if (mutex == nullptr || mutex->owner != GetCurrentThreadId()) {
        SetLastError(mutex == nullptr ? ERROR_INVALID_HANDLE : ERROR_NOT_OWNER);
        return FALSE;
    }
    if (--mutex->depth == 0) {
        mutex->owner = 0;
        Changed();
    }
    return TRUE;
}

HANDLE WINAPI CreateEventA(SECURITY_ATTRIBUTES*, BOOL manualReset, BOOL initialState, LPCSTR name) {
    if (Fails("CreateEventA"))
        return nullptr;
    const Guard guard(Lock);
    bool existed = false;
    const auto event = Named<Event>(name, existed);
    if (event == nullptr)
        return nullptr;
    if (!existed) {
        event->manual = manualReset != 0;
        event->signalled = initialState != 0;
    }
    SetLastError(existed ? ERROR_ALREADY_EXISTS : 0);
    return Register(event);
}

BOOL WINAPI SetEvent(HANDLE handle) {
    if (Fails("SetEvent"))
        return FALSE;
    const Guard guard(Lock);
    if (std::dynamic_pointer_cast<Event>(Find(handle)) == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    Signal(handle, true);
    return TRUE;
}

HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD,
                           DWORD* threadID) {
    if (Fails("CreateThread"))
        return nullptr;
    const Guard guard(Lock);
    const auto thread = std::make_shared<Thread>();
    const DWORD id = NextThreadID++;
    try {
        if (!StartFiberThread(id, [=] { RunThread(thread, start, argument, id); }))
            thread->system = std::thread(RunThread, thread, start, argument, id);
    } catch (const std::system_error&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    ++Running;
    if (threadID != nullptr)
        *threadID = id;
    return Register(thread);
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    if (Fails("WaitForSingleObject"))
        return WAIT_FAILED;
    Guard guard(Lock);
    const auto object = std::dynamic_pointer_cast<Waitable>(Find(handle));
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const DWORD self = GetCurrentThreadId();
    if (const auto next = NextWaits.find(object->name); next != NextWaits.end()) {
        const DWORD result = next->second;
        NextWaits.erase(next);
        if (result == WAIT_ABANDONED)
            object->Take(self);
        return result;
    }
    if (!WaitUntil(guard, milliseconds, [&] { return object->Ready(self); }))
        return WAIT_TIMEOUT;
    const DWORD result = object->Take(self);
    guard.unlock();
    if (std::dynamic_pointer_cast<Thread>(object) != nullptr)
        JoinEnded();  // whoever waits for a thread may unload its code next
    return result;
}

BOOL WINAPI CloseHandle(HANDLE handle) {
    std::shared_ptr<Object> object;  // goes after the lock: a port's end calls its device
    const Guard guard(Lock);
    const auto found = Handles.find(handle);
    if (found == Handles.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    object = std::move(found->second);
    Handles.erase(found);
    return TRUE;
}

void PlatformControl::NextWait(const std::string& mutexName, DWORD result) {
    const Guard guard(Lock);
    NextWaits[mutexName] = result;
}

void PlatformControl::FailCreate(const std::string& objectName, DWORD error) {
    const Guard guard(Lock);
    CreateErrors[objectName] = error;
}

int PlatformControl::OpenHandles() {
    const Guard guard(Lock);
    return static_cast<int>(Handles.size()) + TimerCount() + OpenFiles() + SessionMemory() + Running;
}

void PlatformControl::Reset() {
    HandleMap left;
    {
        const Guard guard(Lock);
        for (const auto& [handle, object] : Handles)
            object->Forget();
        left.swap(Handles);
    }
    left.clear();
    JoinEnded();
    const Guard guard(Lock);
    Names.clear();
    CreateErrors.clear();
    NextWaits.clear();
    Running = 0;
    ResetClock();
    ResetMessages();
    ResetSessions();
    ResetDialogs();
    ResetPorts();
    ResetRegistry();
    ResetFiles();
    ResetFaults();
}
