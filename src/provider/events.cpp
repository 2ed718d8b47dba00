#include "provider/events.h"

#include "config/settings.h"
#include "control/keys.h"
#include "control/requests.h"
#include "link/link_layer.h"  // whether a trace header has been received
#include "trace/trace.h"
#include "tracking/model.h"

#include <cstring>
#include <utility>

DynamicConfigRecord DynamicConfig;
int LastHeldCref = -1;

namespace {

// TAPI's handle of a call; a null one for a cref that names none.
HTAPICALL HandleOf(int cref) {
    if (cref == CONF_CREF)
        return ProviderState.htConference;
    return IsCref(cref) ? CallTable[static_cast<std::size_t>(cref)].htCall : HTAPICALL{};
}

// What the new state of a call means for the running request: a drop is done when its call is idle; a transfer one of
// whose calls is over can no more be shown by the set, and TAPI must not wait for it, nor be refused all else.
void EndRunningRequest(int cref, DWORD_PTR state) {
    const bool idle = state == LINECALLSTATE_IDLE, over = idle || state == LINECALLSTATE_DISCONNECTED;
    const bool its = cref == RunningRequest.Cref || cref == RunningRequest.ConsultCref;
    switch (RunningRequest.Code) {
    case REQUEST_DROP:
        if (idle)
            CompleteRunningDrop(cref);
        break;
    case REQUEST_BLIND_TRANSFER:
    case REQUEST_SETUP_TRANSFER:
        if (!over || !its)
            break;
        Trace(TRACE_ENTRY, "Transfer Running cref %04x ended => LINE_REPLY failed", cref);
        FailPendingRequest();
        break;
    default: break;
    }
}

// TAPI writes its handle through the second parameter while it handles the event.
void SendNewCall(int cref, HTAPICALL& handle) {
    handle = HTAPICALL{};
    ProviderState.LineEventProc(ProviderState.htLine, HTAPICALL{}, static_cast<DWORD>(LINE_NEWCALL),
                                static_cast<DWORD_PTR>(cref), reinterpret_cast<DWORD_PTR>(&handle), 0);
}

}  // namespace

DRV_REQUESTID SendCompletion(ProviderStateRecord& provider, LONG result) {
    // Cleared first: a request that comes in from the callback finds none pending.
    const DRV_REQUESTID request = std::exchange(provider.PendingRequestID, 0);
    CompleteRequest(provider, request, result);
    return request;
}

void CompleteRequest(ProviderStateRecord& provider, DRV_REQUESTID request, LONG result) {
    if (request == 0)
        return;
    Trace(TRACE_ENTRY, "SendCompletion:%lx, res:%lx", request, result);
    if (provider.CompletionProc != nullptr)
        provider.CompletionProc(request, result);
}

void DoLineEvent(DWORD message, DWORD_PTR param1, DWORD_PTR param2, int cref) {
    Trace(TRACE_CALL, "LinEv cref=%d, ev:%0lx,val%0lx,mod=%0lx", cref, message, param1, param2);
    if (ProviderState.LineEventProc == nullptr)
        return;
    Trace(TRACE_CALL, "LineEvent send");
    if (cref == -1) {
        const bool reinit = message == LINE_LINEDEVSTATE && param1 == LINEDEVSTATE_REINIT;
        ProviderState.LineEventProc(reinit ? HTAPILINE{} : ProviderState.htLine, HTAPICALL{}, message, param1, param2,
                                    0);
        return;
    }
    if (message == LINE_CALLSTATE && param1 == LINECALLSTATE_ONHOLD)
        LastHeldCref = cref;
    const DRV_REQUESTID pending = ProviderState.PendingRequestID;
    ProviderState.LineEventProc(ProviderState.htLine, HandleOf(cref), message, param1, param2,
                                LINEMEDIAMODE_INTERACTIVEVOICE);
    // What TAPI has asked for meanwhile is not ended by this.
    if (message == LINE_CALLSTATE && pending == ProviderState.PendingRequestID)
        EndRunningRequest(cref, param1);
}

void DoLineEventNewCall(int cref) {
    if (ProviderState.LineEventProc == nullptr || !IsCref(cref))
        return;
    Trace(TRACE_CALL, "DoLineEventNewCall send cref:%d", cref);
    SendNewCall(cref, CallTable[static_cast<std::size_t>(cref)].htCall);
}

void DoLineEventNewConf() {
    if (ProviderState.LineEventProc == nullptr)
        return;
    Trace(TRACE_CALL, "DoLineEventNewConf send");
    SendNewCall(CONF_CREF, ProviderState.htConference);
}

void ForgetPickUp(int cref) {
    // A record without a key only waits for its call.
    if (cref == Tracking.PickUpCref && IsCref(cref) && CallTable[static_cast<std::size_t>(cref)].touch != 0)
        Tracking.PickUpCref = -1;
}

DRV_REQUESTID TakePendingRequest() {
    RunningRequest = RunningRequestRecord{};
    return std::exchange(ProviderState.PendingRequestID, 0);
}

void FailPendingRequest() {
    CompleteRequest(ProviderState, TakePendingRequest(), static_cast<LONG>(LINEERR_OPERATIONFAILED));
}

void CompleteRunningDrop(int cref) {
    if (RunningRequest.Cref != cref || RunningRequest.Code != REQUEST_DROP)
        return;
    Trace(TRACE_ENTRY, "lineDrop Running cref %04x => LINE_REPLY OK", cref);
    RunningRequest = RunningRequestRecord{};  // first: the callback may start the next one
    SendCompletion(ProviderState, 0);
}

void PhoneStateEvent(DWORD param1, DWORD param2) {
    if (ProviderState.PhoneEventProc != nullptr)
        ProviderState.PhoneEventProc(ProviderState.htPhone, PHONE_STATE, param1, param2, 0);
}

void PhoneDisplayChanged() {
    PhoneStateEvent(PHONESTATE_DISPLAY, 0);
}

int FindCallByState(DWORD state) {
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (CallTable[static_cast<std::size_t>(cref)].state == state)
            return cref;
    return -1;
}

int CheckSerialError(HANDLE port) {
    if (port == INVALID_HANDLE_VALUE)
        return -1;
    DWORD errors = 0;
    COMSTAT status{};
    ClearCommError(port, &errors, &status);
    return 0;
}

std::uint32_t DigitsToNumber(const char* text) {
    std::uint32_t value = 0;
    for (; *text != 0; ++text)
        value = value * 10 + static_cast<std::uint32_t>(*text - '0');
    return value;
}

int SendSoftKey(int number) {
    if (number < 1 || number > 5)
        return 0;
    PressKeyCode(SOFT_KEY_BASE + number);
    return number;
}

void ReadLastAction() {
    char text[SETTING_SIZE];
    RegReadSetting(SECTION_DYNAMIC, "LastAction", "never", text);
    if (std::strstr(text, "never") != nullptr) {
        DynamicConfig.LastActionState = 0;
        DynamicConfig.WaitDynamicConfig = 1;
        if (!Link.TraceModeSeen)
            DynamicConfig.WaitTraceMode = 1;
        return;
    }
    DynamicConfig.LastActionState = std::strstr(text, "success") != nullptr ? 1 : 2;
    DynamicConfig.StaticConfig = 1;
    DynamicConfig.WaitDynamicConfig = 0;
}
