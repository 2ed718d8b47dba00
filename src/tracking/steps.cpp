#include "tracking/steps.h"

#include "platform/text.h"
#include "trace/trace.h"
#include "tracking/pending.h"

#include <utility>

namespace {

// The call is about to stand on another key.
void LeaveKey(int to, int cref) {
    const int from = KeyOf(cref);
    if (from == 0)
        LeaveFormerSlots(cref);
    if (from == 0 || from == to || !IsKey(from) || TouchOf(from).kind == TOUCH_SUPERV)
        return;
    if (HoldsTwoCalls(from))
        Tracking.DbCall = 0;
    LeaveSlot(from, cref);
    if (CallOnKey(from) != -1)
        return;
    TouchOf(from).icon = IDLE_ICON;  // what the set shows there now ends nothing any more
    if (Tracking.ActivCallTouch == from)
        Tracking.ActivCallTouch = 0;
}

void MoveTo(int key, int cref) {
    LeaveKey(key, cref);
    CallOf(cref).touch = key;
}

// Ends the wait of a linePickup whose call is this one, which has shown on a key and gone without an answer: the next line
// seized is not its call.
void ForgetPickUp(int cref) {
    // A record without a key only waits for its call.
    if (cref == Tracking.PickUpCref && IsCref(cref) && CallOf(cref).touch != 0)
        Tracking.PickUpCref = -1;
}

}  // namespace

void FreeCall(int cref, int key) {
    CallOf(cref).state = LINECALLSTATE_IDLE;
    LeaveSlot(key, cref);
    ForgetPickUp(cref);
    CallOf(cref).touch = 0;
    ResetCallRecord(cref);
}

void EndCall(int cref, int key) {
    FreeCall(cref, key);
    ClearDirection(cref);
    SendCallState(cref, LINECALLSTATE_IDLE);
}

void EndCallIfDirected(int cref, int key) {
    if (CallOf(cref).HasDirection())
        EndCall(cref, key);
    else
        FreeCall(cref, key);
}

void ReportGone(int key, int cref) {
    Disconnect(cref);
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:DISCONNECTED - Ref:%d"_cp1252, key, cref);
}

void EndGone(int key, int cref) {
    TouchOf(key).icon = IDLE_ICON;
    EndCall(cref, key);
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:IDLE - Ref:%d"_cp1252, key, cref);
}

int EndSetupTransfer(int key, void (*stand)(int key, int cref)) {
    // Cleared first, and the call on its key, at dial tone: from the completion TAPI may dial, or start the next one.
    const int cref = std::exchange(RunningRequest, {}).ConsultCref;
    if (IsCref(cref)) {
        CallRecord& call = CallOf(cref);
        MoveTo(key, cref);
        call.state = LINECALLSTATE_DIALTONE;
        call.Inbound = 0;
        call.byMakeCall = 1;
        stand(key, cref);
    }
    SendCompletion(ProviderState, 0);
    Trace(TRACE_CALL, "sendCompletion SetupTransfer ");
    return IsCref(cref) ? cref : -1;
}

void StandOnKey(int key, int cref) {
    if (IsCref(cref))
        MoveTo(key, cref);
    TouchOf(key).calls = {cref, -1};
}
