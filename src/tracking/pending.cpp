#include "tracking/pending.h"

#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/steps.h"

#include <utility>

RunningRequestRecord RunningRequest;
RequestMarks Marks;

namespace {

// Ticks of 100 ms. A press shows within seconds, the Transfer key of a blind transfer when its destination rings, on a
// public network too; a caller rings for a few minutes at most.
constexpr int PRESSED_LIMIT = 600;
constexpr int WAITING_LIMIT = 3000;

}  // namespace

void WatchRunningRequest() {
    if (RunningRequest.Code == REQUEST_NONE ||
        ++RunningRequest.Ticks < (RunningRequest.Pressed ? PRESSED_LIMIT : WAITING_LIMIT))
        return;
    Trace(TRACE_ALWAYS, "Request %d Running cref %04x: nothing shown after %d ticks => LINE_REPLY failed",
          RunningRequest.Code, RunningRequest.Cref, RunningRequest.Ticks);
    if (RunningRequest.Code == REQUEST_DROP)
        Tracking.SecondCallDropReq = 0;  // else the end of the held call would be taken for that of the other
    FailPendingRequest();
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

bool IsPutOff(int cref) {
    return Marks.DeferredMakeCall.Set && Marks.DeferredMakeCall.Cref == cref;
}

void ForgetPutOff(int cref) {
    if (IsPutOff(cref))
        Marks.DeferredMakeCall = {};
}

void GiveUpDeferredMakeCall(CrefMark next) {
    const CrefMark putOff = std::exchange(Marks.DeferredMakeCall, next);
    if (!putOff.Set || !IsCref(putOff.Cref) || IsPutOff(putOff.Cref))
        return;
    CallRecord& call = CallOf(putOff.Cref);
    if (call.touch == 0)  // else a call at dial tone lives on in it
        call.state = LINECALLSTATE_IDLE;
    const int outer = std::exchange(Marks.Ending, putOff.Cref);
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NORMAL, putOff.Cref);
    Marks.Ending = outer;
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, putOff.Cref);
}
