// Mutexes, events, threads, and the handles of everything.
#include "platform/posix/state.h"

#include <map>
#include <thread>
#include <utility>

namespace Posix {

namespace {

struct Waitable : Object {
    std::string name;
    virtual bool Ready() const = 0;
    virtual DWORD Take() = 0;  // what a successful wait gives
};

struct Mutex : Waitable {
    DWORD owner = 0;  // thread identifier; 0 = free
    int depth = 0;
    bool abandoned = false;
    bool Ready() const override { return owner == 0 || owner == GetCurrentThreadId(); }
    DWORD Take() override {
        owner = GetCurrentThreadId();
        ++depth;
        return std::exchange(abandoned, false) ? WAIT_ABANDONED : WAIT_OBJECT_0;
    }
};

struct Event : Waitable {
    bool manual = false, signalled = false;
    bool Ready() const override { return signalled; }
    DWORD Take() override {
        if (!manual)
            signalled = false;
        return WAIT_OBJECT_0;
    }
};

struct Thread : Waitable {
    bool over = false;
    DWORD result = 0;
    bool Ready() const override { return over; }
    DWORD Take() override { return WAIT_OBJECT_0; }
};

std::map<HANDLE, std::shared_ptr<Object>> Handles;
std::uintptr_t NextHandle = 0x100;
std::map<std::string, std::weak_ptr<Waitable>> Names;
std::map<std::string, DWORD> CreateErrors;
std::map<std::string, DWORD> NextWaits;
DWORD ThreadError = 0;
DWORD NextThreadID = 1;
thread_local DWORD LastError = 0;
thread_local DWORD ThreadID = 0;

// The object of this name, made by `make` when there is none. Null, with the error set, when it must fail.
template <class T> std::shared_ptr<T> Named(LPCSTR name, bool& existed) {
    existed = false;
    if (name == nullptr)
        return std::make_shared<T>();
    if (const auto fault = CreateErrors.find(name); fault != CreateErrors.end() && fault->second != 0) {
        SetLastError(fault->second);
        return nullptr;
    }
    if (auto there = std::dynamic_pointer_cast<T>(Names[name].lock())) {
        existed = true;
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

bool HoldsMutex(const std::string& name) {
    const auto found = Names.find(name);
    if (found == Names.end())
        return false;
    const auto mutex = std::dynamic_pointer_cast<Mutex>(found->second.lock());
    return mutex != nullptr && mutex->owner == GetCurrentThreadId();
}

void ResetObjects() {
    Handles.clear();
    Names.clear();
    CreateErrors.clear();
    NextWaits.clear();
    ThreadError = 0;
}

}  // namespace Posix

using namespace Posix;

DWORD WINAPI GetLastError() {
    return LastError;
}

void WINAPI SetLastError(DWORD error) {
    LastError = error;
}

DWORD WINAPI GetCurrentThreadId() {
    if (ThreadID == 0) {
        static std::mutex numbers;
        const std::lock_guard guard(numbers);
        ThreadID = NextThreadID++;
    }
    return ThreadID;
}

HANDLE WINAPI CreateMutexA(SECURITY_ATTRIBUTES*, BOOL initialOwner, LPCSTR name) {
    const Guard guard(Lock);
    bool existed = false;
    const auto mutex = Named<Mutex>(name, existed);
    if (mutex == nullptr)
        return nullptr;
    if (initialOwner && !existed)
        mutex->Take();
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
    const Guard guard(Lock);
    const auto event = std::dynamic_pointer_cast<Event>(Find(handle));
    if (event == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    event->signalled = true;
    Changed();
    return TRUE;
}

HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD,
                           DWORD* threadID) {
    const Guard guard(Lock);
    if (ThreadError != 0) {
        SetLastError(ThreadError);
        return nullptr;
    }
    const auto thread = std::make_shared<Thread>();
    const HANDLE handle = Register(thread);
    const DWORD id = [] {
        static std::mutex numbers;
        const std::lock_guard numberGuard(numbers);
        return 0x10000 + NextThreadID++;
    }();
    if (threadID != nullptr)
        *threadID = id;
    ThreadBegins();
    std::thread([thread, start, argument, id] {
        ThreadID = id;
        const DWORD result = start(argument);
        const Guard ended(Lock);
        thread->result = result;
        thread->over = true;
        Abandon(id);
        ThreadEnds();
    }).detach();
    return handle;
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    Guard guard(Lock);
    const auto object = std::dynamic_pointer_cast<Waitable>(Find(handle));
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    if (const auto next = NextWaits.find(object->name); next != NextWaits.end()) {
        const DWORD result = next->second;
        NextWaits.erase(next);
        if (result == WAIT_ABANDONED)
            object->Take();
        return result;
    }
    // The predicate runs on the driving thread too: whose mutex it is must be known beforehand.
    const DWORD self = GetCurrentThreadId();
    const auto mutex = std::dynamic_pointer_cast<Mutex>(object);
    const std::function<bool()> ready = [&] {
        return mutex != nullptr ? mutex->owner == 0 || mutex->owner == self : object->Ready();
    };
    return WaitUntil(guard, milliseconds, ready) ? object->Take() : WAIT_TIMEOUT;
}

BOOL WINAPI CloseHandle(HANDLE handle) {
    std::shared_ptr<Object> object;
    const Guard guard(Lock);
    const auto found = Handles.find(handle);
    if (found == Handles.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    object = std::move(found->second);
    Handles.erase(found);
    Changed();
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

void PlatformControl::FailCreateThread(DWORD error) {
    const Guard guard(Lock);
    ThreadError = error;
}

int PlatformControl::OpenHandles() {
    const Guard guard(Lock);
    return static_cast<int>(Handles.size());
}

void PlatformControl::Reset() {
    const Guard guard(Lock);
    ResetClock();
    ResetObjects();
    ResetMessages();
    ResetPorts();
    ResetRegistry();
    ResetFiles();
    ResetMemory();
}
