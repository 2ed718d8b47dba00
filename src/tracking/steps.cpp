#include "tracking/steps.h"

#include "control/requests.h"  // the transfer under way ends here
#include "trace/trace.h"

#include <utility>

namespace {

// The call is about to stand on another key.
void LeaveKey(int to, int cref) {
    const int from = KeyOf(cref);
    if (from == 0 || from == to || !IsKey(from) || TouchOf(from).kind == TOUCH_SUPERV)
        return;
    if (HoldsTwoCalls(from))
        Tracking.DbCall = 0;
    LeaveSlot(from, cref);
    if (CallOnKey(from) == -1)
        TouchOf(from).icon = IDLE_ICON;
}

}  // namespace

int EndSetupTransfer(int key) {
    // Cleared first: the completion's callback may start the next one.
    const int cref = std::exchange(RunningRequest, {}).ConsultCref;
    SendCompletion(ProviderState, 0);
    Trace(TRACE_CALL, "sendCompletion SetupTransfer ");
    if (!IsCref(cref))
        return -1;
    CallRecord& call = CallOf(cref);
    LeaveKey(key, cref);
    call.state = LINECALLSTATE_DIALTONE;
    call.touch = key;
    call.Inbound = 0;
    call.byMakeCall = 1;
    return cref;
}

void StandOnKey(int key, int cref) {
    if (IsCref(cref)) {
        LeaveKey(key, cref);
        CallOf(cref).touch = key;
    }
    TouchOf(key).calls = {cref, -1};
}
