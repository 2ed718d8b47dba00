#include "tracking/events.h"

#include "trace/trace.h"
#include "tracking/pending.h"
#include "tracking/steps.h"

#include <utility>

int LastHeldCref = -1;

namespace {

// TAPI's handle of a call; a null one for a cref that names none.
HTAPICALL HandleOf(int cref) {
    if (cref == CONF_CREF)
        return ProviderState.htConference;
    return IsCref(cref) ? CallOf(cref).htCall : HTAPICALL{};
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
    if (message == LINE_CALLSTATE && param1 == LINECALLSTATE_IDLE)
        ForgetPutOff(cref);  // first: TAPI may call anew from within this
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
    SendNewCall(cref, CallOf(cref).htCall);
}

void DoLineEventNewConf() {
    if (ProviderState.LineEventProc == nullptr)
        return;
    Trace(TRACE_CALL, "DoLineEventNewConf send");
    SendNewCall(CONF_CREF, ProviderState.htConference);
}

void PhoneStateEvent(DWORD param1, DWORD param2) {
    if (ProviderState.PhoneEventProc != nullptr)
        ProviderState.PhoneEventProc(ProviderState.htPhone, PHONE_STATE, param1, param2, 0);
}

void PhoneDisplayChanged() {
    PhoneStateEvent(PHONESTATE_DISPLAY, 0);
}
