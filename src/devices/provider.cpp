#include "devices/provider.h"

#include "config/settings.h"
#include "config/ui/resource.h"  // the version
#include "platform/text.h"
#include "provider/commit.h"
#include "provider/event_log.h"
#include "provider/process.h"
#include "provider/state.h"
#include "provider/tapi.h"
#include "thread/lifetimes.h"
#include "thread/serial_thread.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/pending.h"

#include <atomic>
#include <cstddef>
#include <cstring>

namespace {

constexpr const char* DEBUG_MUTEX = "SP62DebugMutex";
constexpr DWORD TSPI_VERSION = 0x20000;

bool PortConfigured() {
    return std::strcmp(ProviderState.PortName, "NONE") != 0 && std::strlen(ProviderState.PortName) == 4;
}

// Negotiations look at the device identifiers at any time, without the mutex: these are never anything else in between.
void ClearProviderState(DWORD lineDeviceID, DWORD phoneDeviceID) {
    constexpr std::size_t behind = offsetof(ProviderStateRecord, ProviderHandle);
    std::memset(reinterpret_cast<std::byte*>(&ProviderState) + behind, 0, sizeof ProviderState - behind);
    std::atomic_ref(ProviderState.LineDeviceID).store(lineDeviceID);
    std::atomic_ref(ProviderState.PhoneDeviceID).store(phoneDeviceID);
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

// --- the provider's entry points -------------------------------------------------------------------------------------

LONG WINAPI TSPI_providerEnumDevices(DWORD dwPermanentProviderID, LPDWORD lpdwNumLines, LPDWORD lpdwNumPhones,
                                     HPROVIDER hProvider, LINEEVENT, PHONEEVENT) {
    if (lpdwNumLines == nullptr || lpdwNumPhones == nullptr)
        return Error(LINEERR_INVALPOINTER);
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
    if (lpdwTSPIOptions == nullptr)
        return Error(LINEERR_INVALPOINTER);
    *lpdwTSPIOptions = LINETSPIOPTION_NONREENTRANT;
    ProviderInitCommon(dwPermanentProviderID, ProviderState.ProviderHandle, dwLineDeviceIDBase, dwPhoneDeviceIDBase,
                       lpfnCompletionProc);
    return 0;
}

LONG WINAPI TSPI_providerShutdown(DWORD dwTSPIVersion, DWORD dwPermanentProviderID) {
    Trace(TRACE_ENTRY, "Entering TSPI_providerShutdown(%lx %lx)", dwTSPIVersion, dwPermanentProviderID);
    const SerialThreadTurn turn;  // whoever waits for it finds the line mutex gone, not about to go
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
    if (lpszUIDLLName == nullptr)
        return Error(LINEERR_INVALPOINTER);
    const WCHAR* name = "zt_6232.tsp"_wide;
    do {
        *lpszUIDLLName++ = *name;
    } while (*name++ != 0);
    return 0;
}
