#include "provider/lifecycle.h"

#include "config/settings.h"
#include "config/ui/resource.h"  // the version
#include "control/requests.h"    // the marks of requests, which name calls
#include "link/serial.h"         // the thread that is started and stopped here
#include "platform/text.h"
#include "provider/commit.h"
#include "provider/error_box.h"
#include "provider/event_log.h"
#include "provider/events.h"
#include "provider/state.h"
#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/model.h"  // the tables and markers that a re-initialisation empties

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

ProviderStateRecord ProviderState;
ProcessRecord Process;
std::atomic<bool> StopRequest = false;
std::atomic<ThreadLife> SerialThreadLife = ThreadLife::None;

namespace {

constexpr const char* LINE_MUTEX = "SP62LineMutex";
constexpr const char* DEBUG_MUTEX = "SP62DebugMutex";
constexpr const char* READY_EVENT = "SP62Evt_Serial_Ready";
constexpr DWORD MUTEX_WAIT_MS = 20'000;
constexpr DWORD READY_WAIT_MS = 20'000;
constexpr DWORD STOP_WAIT_MS = 30'000;
constexpr DWORD TSPI_VERSION = 0x20000;
constexpr LONG NO_DRIVER = static_cast<LONG>(LINEERR_NODRIVER);

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

bool PortConfigured() {
    return std::strcmp(ProviderState.PortName, "NONE") != 0 && std::strlen(ProviderState.PortName) == 4;
}

// The model starts anew with ProviderState, and with it all that names one of its calls or keys: a tick of a thread that
// runs for the other device must not report a call whose record is empty now.
void ResetModel() {
    CallTable.fill(CallRecord{});
    TouchTable.fill(Touch{});
    KeyLists = KeyListSet{};
    Tracking = TrackingState{};
    WaitInfo.fill(-1);
    PickUpSupervCref = SwapKeyTransferingCref = -1;
    confstate = 0;
    RunningRequest = RunningRequestRecord{};
    Marks = RequestMarks{};
}

void CloseAndForget(HANDLE& handle) {
    if (handle != nullptr)
        CloseHandle(std::exchange(handle, nullptr));
}

// Gives up all holds of the line mutex that this thread has, so that the serial thread can have it, and takes them back.
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

// One thread at a time starts or stops the serial thread: a start beside a stop would be given a thread that ends, and the
// handle that a second stop closes may be that of the next thread already.
class Turn {
    bool Taken;
    static bool Take(DWORD milliseconds) {
        return GotLineMutex(static_cast<LONG>(WaitForSingleObject(Process.TurnMutex, milliseconds)));
    }

public:
    Turn() : Taken(Take(0)) {
        if (Taken)
            return;
        const int holds = LetGo();  // a stop needs the line mutex to end
        Taken = Take(STOP_WAIT_MS + MUTEX_WAIT_MS);
        TakeBack(holds);
    }
    ~Turn() { End(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    // False when the others take too long.
    bool IsMine() const { return Taken; }
    void End() {
        if (std::exchange(Taken, false))
            ReleaseMutex(Process.TurnMutex);
    }
};

// Negotiations look at the device identifiers at any time, without the mutex: these are never anything else in between.
void ClearProviderState(DWORD lineDeviceID, DWORD phoneDeviceID) {
    constexpr std::size_t behind = offsetof(ProviderStateRecord, ProviderHandle);
    std::memset(reinterpret_cast<std::byte*>(&ProviderState) + behind, 0, sizeof ProviderState - behind);
    std::atomic_ref(ProviderState.LineDeviceID).store(lineDeviceID);
    std::atomic_ref(ProviderState.PhoneDeviceID).store(phoneDeviceID);
}

// Makes the ready event and the thread. Gives 0, or LINEERR_NODRIVER and what the user is to be told, if anything.
LONG MakeSerialThread(char (&told)[64]) {
    told[0] = 0;
    CloseAndForget(Process.SerialReadyEvent);
    Process.SerialReadyEvent = CreateEventA(nullptr, FALSE, FALSE, READY_EVENT);
    if (Process.SerialReadyEvent == nullptr) {
        Trace(TRACE_ALWAYS, "EvtSerialReady not created error %d", GetLastError());
        return NO_DRIVER;
    }
    SerialThreadLife = ThreadLife::Serves;
    Process.SerialThread =
        CreateThread(nullptr, 0, SerialThreadBody, Process.SerialReadyEvent, 0, &Process.SerialThreadID);
    if (Process.SerialThread != nullptr)
        return 0;
    const DWORD error = GetLastError();
    SerialThreadLife = ThreadLife::None;
    CloseAndForget(Process.SerialReadyEvent);
    const TraceArgument argument(error);
    FormatText(told, sizeof told, "Error in creating Serial thread: %d", &argument, 1);
    SetLastError(error);
    return NO_DRIVER;
}

// Waits, without the line mutex, until the thread's attempt to open the port is over. Several may: each tells the next.
DWORD AwaitReady(bool held) {
    const HANDLE own = CreateEventA(nullptr, FALSE, FALSE, READY_EVENT);  // a stop closes the thread's
    const HANDLE ready = own != nullptr ? own : Process.SerialReadyEvent;
    ++Process.Starting;
    LeaveIfShared(held);
    const int holds = LetGo();
    const DWORD wait = WaitForSingleObject(ready, READY_WAIT_MS);
    if (wait == WAIT_OBJECT_0)
        Trace(TRACE_ALWAYS, "Wait Thread serial Ready OK");
    else
        Trace(TRACE_ALWAYS, "Wait Thread serial Ready KO %ld ", wait);
    TakeBack(holds);
    const bool entered = EnterIfShared();
    if (--Process.Starting > 0 && wait == WAIT_OBJECT_0)
        SetEvent(ready);
    LeaveIfShared(entered);
    if (own != nullptr)
        CloseHandle(own);
    return wait;
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID processEnds) {
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        Process.ModuleInstance = instance;
        Process.TurnMutex = CreateMutexA(nullptr, FALSE, nullptr);
        DebugMutex = CreateMutexA(nullptr, FALSE, DEBUG_MUTEX);
        TraceMask = TraceInit(instance);
        break;
    case DLL_PROCESS_DETACH:
        Process.ModuleInstance = nullptr;
        CloseAndForget(Process.TurnMutex);
        CloseAndForget(DebugMutex);
        if (processEnds == nullptr)  // else the run time may be half gone; every line is flushed already
            TraceClose();
        break;
    default: break;
    }
    return TRUE;
}

void ProviderInitCommon(DWORD permanentProviderID, HPROVIDER provider, DWORD lineDeviceID, DWORD phoneDeviceID,
                        ASYNC_COMPLETION completion) {
    ClearProviderState(lineDeviceID, phoneDeviceID);
    ResetModel();
    ProviderState.ProviderHandle = provider;
    ProviderState.CompletionProc = completion;
    ProviderState.MediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    ProviderState.DialParams = DEFAULT_DIAL_PARAMS;
    ProviderState.FwdStatus = FWD_NOT_FORWARDED;
    ProviderState.DeviceState = DEVICE_STARTING;
    ProviderState.ProtocolLevel = 2;
    LoadIniStrings(permanentProviderID);
    if (PortConfigured())
        return;
    Trace(TRACE_ALWAYS, "Pb - pas de port spécifié dans le telephon.ini -> providerconfig"_cp1252);
    TSPI_providerConfig(GetActiveWindow(), permanentProviderID);
    LoadIniStrings(permanentProviderID);
    if (PortConfigured())
        return;
    Trace(TRACE_ALWAYS, "pas de choix à provider config -> on stoppe le SP"_cp1252);
    LogEvent(EVENT_NO_PORT, ProviderState.PortName);
    TSPI_providerShutdown(TSPI_VERSION, permanentProviderID);
}

void ProviderInitAgain() {
    ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;  // a call made from within what follows would be forgotten
    GiveUpDeferredMakeCall();
    const DRV_REQUESTID pending = TakePendingRequest();
    ProviderInitCommon(ProviderState.PermanentProviderID, ProviderState.ProviderHandle, ProviderState.LineDeviceID,
                       ProviderState.PhoneDeviceID, ProviderState.CompletionProc);
    // Told behind all this, which would wipe out what TAPI asks for when it hears of it. Under the mutex, which there may
    // be none of before and behind.
    if (pending != 0) {
        const LONG own = WaitLineMutex();
        CompleteRequest(ProviderState, pending, OPERATION_FAILED);
        if (GotLineMutex(own))
            ReleaseLineMutex(0);
    }
}

bool SerialThreadRuns() {
    if (Process.SerialThread != nullptr && !Process.Stopping &&  // else its handle is the stop's
        WaitForSingleObject(Process.SerialThread, 0) == WAIT_OBJECT_0)
        CloseAndForget(Process.SerialThread);
    return Process.SerialThread != nullptr;
}

LONG StartSerialThread() {
    Turn turn;  // an open and a request may both start it
    if (!turn.IsMine())
        return NO_DRIVER;
    const bool held = EnterIfShared();
    const bool runs = SerialThreadRuns();
    if (runs && Process.Starting == 0) {
        if (!held)
            WaitLineMutex();
        return 0;
    }
    if (!runs && SerialThreadLife == ThreadLife::Forgotten) {
        LeaveIfShared(held);
        Trace(TRACE_ALWAYS, "Thread serial not started - the former one has not ended");
        return NO_DRIVER;
    }
    char told[64];
    if (const LONG result = runs ? 0 : MakeSerialThread(told); result != 0) {
        const DWORD error = GetLastError();
        LeaveIfShared(held);
        if (told[0] != 0) {
            ErrorBox(told);
            Trace(TRACE_ALWAYS, "Thread serial didn't start error %d", error);
        }
        return result;
    }
    turn.End();  // a stop need not wait until the port is open
    if (AwaitReady(held) != WAIT_OBJECT_0)
        return NO_DRIVER;
    WaitLineMutex();
    return 0;
}

LONG StopSerialThread() {
    const Turn turn;
    if (!SerialThreadRuns()) {
        CloseAndForget(Process.SerialReadyEvent);
        return 0;
    }
    Trace(TRACE_ENTRY, "StopSerialThread Request");
    Process.Stopping = true;
    ReleaseLineMutex(0);  // the serial thread's last tick may need it
    const int holds = LetGo();
    StopRequest = true;
    const DWORD wait = WaitForSingleObject(Process.SerialThread, STOP_WAIT_MS);
    if (wait == WAIT_ABANDONED)
        Trace(TRACE_ALWAYS, "StopSerialThread Prb WAIT_ABANDONED SerialThread");
    else if (wait == WAIT_TIMEOUT)
        Trace(TRACE_ALWAYS, "StopSerialThread Prb WAIT_TIMEOUT SerialThread");
    if (wait != WAIT_OBJECT_0) {
        auto serves = ThreadLife::Serves;
        SerialThreadLife.compare_exchange_strong(serves, ThreadLife::Forgotten);
    }
    StopRequest = false;
    TakeBack(holds);
    WaitLineMutex();
    CloseAndForget(Process.SerialThread);
    CloseAndForget(Process.SerialReadyEvent);
    FailPendingRequest();
    GiveUpDeferredMakeCall();
    Process.Stopping = false;
    return 0;
}

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
        const DWORD wait = WaitForSingleObject(mutex, MUTEX_WAIT_MS);
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
        return NO_DRIVER;
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

// --- the provider's entry points -------------------------------------------------------------------------------------

LONG WINAPI TSPI_providerEnumDevices(DWORD dwPermanentProviderID, LPDWORD lpdwNumLines, LPDWORD lpdwNumPhones,
                                     HPROVIDER hProvider, LINEEVENT, PHONEEVENT) {
    Trace(TRACE_ENTRY, "TSPI_providerEnumDevices ppID %lx,lines %lx phones %lx)", dwPermanentProviderID, *lpdwNumLines,
          *lpdwNumPhones);
    ProviderState.PermanentProviderID = dwPermanentProviderID;
    ProviderState.ProviderHandle = hProvider;
    *lpdwNumLines = 1;
    *lpdwNumPhones = 1;
    return 0;
}

LONG WINAPI TSPI_providerInit(DWORD dwTSPIVersion, DWORD dwPermanentProviderID, DWORD dwLineDeviceIDBase,
                              DWORD dwPhoneDeviceIDBase, DWORD_PTR dwNumLines, DWORD_PTR dwNumPhones,
                              ASYNC_COMPLETION lpfnCompletionProc, LPDWORD lpdwTSPIOptions) {
    Trace(TRACE_ENTRY, "TSPI_providerInit(%lx,%lx,%lx,%lx,%lx,%lx,%lx)", dwTSPIVersion, dwPermanentProviderID,
          dwLineDeviceIDBase, dwPhoneDeviceIDBase, dwNumLines, dwNumPhones,
          reinterpret_cast<std::uintptr_t>(lpfnCompletionProc));
    // Here, and not when the library is loaded: a process that only loads it begins no trace.
    Trace(TRACE_ALWAYS, "* Version %s - commit %s *", ZT_VERSION_TEXT, Commit);
    *lpdwTSPIOptions = LINETSPIOPTION_NONREENTRANT;
    ProviderInitCommon(dwPermanentProviderID, ProviderState.ProviderHandle, dwLineDeviceIDBase, dwPhoneDeviceIDBase,
                       lpfnCompletionProc);
    return 0;
}

LONG WINAPI TSPI_providerShutdown(DWORD dwTSPIVersion, DWORD dwPermanentProviderID) {
    Trace(TRACE_ENTRY, "Entering TSPI_providerShutdown(%lx %lx)", dwTSPIVersion, dwPermanentProviderID);
    const Turn turn;  // whoever waits for it finds the line mutex gone, not about to go
    StopSerialThread();
    Process.RestartRequired = false;
    LetGo();  // held where a thread was stopped; it lives on if another process uses it too
    CloseAndForget(Process.LineMutex);
    return 0;
}

LONG WINAPI TSPI_providerInstall(HWND hwndOwner, DWORD dwPermanentProviderID) {
    Trace(TRACE_ENTRY, "Entering TSPI_providerInstall(%x,%lx)", hwndOwner, dwPermanentProviderID);
    return 0;
}

LONG WINAPI TSPI_providerRemove(HWND hwndOwner, DWORD dwPermanentProviderID) {
    Trace(TRACE_ENTRY, "Entering TSPI_providerRemove(%x,%lx)", hwndOwner, dwPermanentProviderID);
    return 0;
}

LONG WINAPI TSPI_providerConfig(HWND hwndOwner, DWORD dwPermanentProviderID) {
    Trace(TRACE_ENTRY, "Entering TSPI_providerConfig(%x,%lx)", hwndOwner, dwPermanentProviderID);
    return 0;
}

LONG WINAPI TSPI_providerFreeDialogInstance(HDRVDIALOGINSTANCE hdDlgInst) {
    Trace(TRACE_CALL, "TSPI_providerFreeDialogInstance %lx", hdDlgInst);
    return 0;
}

LONG WINAPI TSPI_providerUIIdentify(LPWSTR lpszUIDLLName) {
    Trace(TRACE_ENTRY, "TSPI_providerUIIdentify");
    const WCHAR* name = "zt_6232.tsp"_wide;
    do {
        *lpszUIDLLName++ = *name;
    } while (*name++ != 0);
    return 0;
}
