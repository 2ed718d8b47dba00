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
#include <cstring>
#include <utility>

ProviderStateRecord ProviderState;
ProcessRecord Process;
std::atomic<bool> StopRequest = false;

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

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID processEnds) {
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        Process.ModuleInstance = instance;
        DebugMutex = CreateMutexA(nullptr, FALSE, DEBUG_MUTEX);
        TraceMask = TraceInit(instance);
        break;
    case DLL_PROCESS_DETACH:
        Process.ModuleInstance = nullptr;
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
    ProviderState = ProviderStateRecord{};
    ResetModel();
    ProviderState.LineDeviceID = lineDeviceID;
    ProviderState.ProviderHandle = provider;
    ProviderState.CompletionProc = completion;
    ProviderState.MediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    ProviderState.DialParams = DEFAULT_DIAL_PARAMS;
    ProviderState.PhoneDeviceID = phoneDeviceID;
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
    // While a serial thread runs for the other device, its ticks read the same records.
    const bool shared = SerialThreadRuns();
    const LONG wait = shared ? WaitLineMutex() : -1;
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
    // A port that is no longer configured has shut the provider down, mutex included.
    if (GotLineMutex(wait) && Process.LineMutex != nullptr)
        ReleaseLineMutex(0);
}

bool SerialThreadRuns() {
    if (Process.SerialThread != nullptr && !Process.Stopping &&  // else its handle is the stop's
        WaitForSingleObject(Process.SerialThread, 0) == WAIT_OBJECT_0)
        CloseAndForget(Process.SerialThread);
    return Process.SerialThread != nullptr;
}

LONG StartSerialThread() {
    if (SerialThreadRuns()) {
        WaitLineMutex();
        return 0;
    }
    CloseAndForget(Process.SerialReadyEvent);
    Process.SerialReadyEvent = CreateEventA(nullptr, FALSE, FALSE, READY_EVENT);
    if (Process.SerialReadyEvent == nullptr) {
        Trace(TRACE_ALWAYS, "EvtSerialReady not created error %d", GetLastError());
        return NO_DRIVER;
    }
    Process.SerialThread = CreateThread(nullptr, 0, SerialThreadBody, nullptr, 0, &Process.SerialThreadID);
    if (Process.SerialThread == nullptr) {
        const DWORD error = GetLastError();
        CloseAndForget(Process.SerialReadyEvent);
        char text[64];
        const TraceArgument argument(error);
        FormatText(text, sizeof text, "Error in creating Serial thread: %d", &argument, 1);
        ErrorBox(text);
        Trace(TRACE_ALWAYS, "Thread serial didn't start error %d", error);
        return NO_DRIVER;
    }
    const DWORD wait = WaitForSingleObject(Process.SerialReadyEvent, READY_WAIT_MS);
    if (wait != WAIT_OBJECT_0) {
        Trace(TRACE_ALWAYS, "Wait Thread serial Ready KO %ld ", wait);
        return NO_DRIVER;
    }
    Trace(TRACE_ALWAYS, "Wait Thread serial Ready OK");
    WaitLineMutex();
    return 0;
}

LONG StopSerialThread() {
    if (!SerialThreadRuns()) {
        CloseAndForget(Process.SerialReadyEvent);
        return 0;
    }
    Trace(TRACE_ENTRY, "StopSerialThread Request");
    Process.Stopping = true;
    ReleaseLineMutex(0);  // the serial thread's last tick may need it
    StopRequest = true;
    const DWORD wait = WaitForSingleObject(Process.SerialThread, STOP_WAIT_MS);
    if (wait == WAIT_ABANDONED)
        Trace(TRACE_ALWAYS, "StopSerialThread Prb WAIT_ABANDONED SerialThread");
    else if (wait == WAIT_TIMEOUT)
        Trace(TRACE_ALWAYS, "StopSerialThread Prb WAIT_TIMEOUT SerialThread");
    StopRequest = false;
    CloseAndForget(Process.SerialThread);
    CloseAndForget(Process.SerialReadyEvent);
    WaitLineMutex();
    FailPendingRequest();
    GiveUpDeferredMakeCall();
    Process.Stopping = false;
    return 0;
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
    StopSerialThread();
    Process.RestartRequired = false;
    ReleaseTaken();  // held where a thread was stopped; it lives on if another process uses it too
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
