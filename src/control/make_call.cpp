#include "control/make_call.h"

#include "config/settings.h"
#include "control/free_keys.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/text.h"
#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/pending.h"
#include "tracking/steps.h"

namespace {

constexpr LONG UNAVAILABLE = Error(LINEERR_OPERATIONUNAVAIL);
constexpr int NO_KEY = -1;
constexpr int TRACE_MODE_TICKS = 70;  // a call pressed blindly waits this long for the card's first trace header

// The call never came to be.
LONG GiveUp(int cref) {
    CallOf(cref).state = LINECALLSTATE_IDLE;
    SendCallState(cref, LINECALLSTATE_IDLE);
    return OPERATION_FAILED;
}

// Only what the card shows tells whether the call gets through.
void WaitForTraceMode() {
    if (Link.TraceModeSeen)
        return;
    DynamicConfig.WaitTraceMode = 1;
    Tick.WaitTraceLimit = Tick.WaitTrace + TRACE_MODE_TICKS;
    Trace(TRACE_ALWAYS, "LineMakeCall Attente mode Trace time %ld limit %ld", Tick.WaitTrace, Tick.WaitTraceLimit);
}

// The key that seizes another line: the call's own where it has dial tone, else a free one; NO_KEY when none is free.
int KeyToSeize(int cref) {
    return CallOf(cref).state == LINECALLSTATE_DIALTONE ? CallOf(cref).touch : FindFreeMultiLine();
}

// `key`: NO_KEY dials on the line that has dial tone already.
void PressKeyAndNumber(CallRecord& call, int key) {
    PressSequence presses;
    if (key != NO_KEY)
        presses.Key(key);
    presses.DialString(call.DestAddress);
    presses.Send();
}

// `key`: where the call comes to stand; NO_KEY leaves it where it is.
void EnterCall(int cref, int key) {
    CallRecord& call = CallOf(cref);
    call.byMakeCall = 1;
    call.state = LINECALLSTATE_PROCEEDING;
    if (IsKey(key)) {
        StandOnKey(key, cref);
        Marks.MakeCallWatch = {true, 0};
    }
    Trace(TRACE_CALL, "Icone:%d - Etat PROCEEDING - Ref:%d", call.touch, cref);
    DialedNumber[0] = 0;
    TmpAddress[0] = 0;
}

}  // namespace

LONG DoMakeCall(int cref, int requestCode, bool accepted) {
    if (!IsCref(cref))
        return Serial.PortFailed ? UNAVAILABLE : OPERATION_FAILED;
    if (Serial.PortFailed)
        return accepted ? GiveUp(cref) : UNAVAILABLE;
    if (FindCallByState(LINECALLSTATE_PROCEEDING) != -1 || FindCallByState(LINECALLSTATE_DISCONNECTED) != -1) {
        Trace(TRACE_ENTRY, "un appel sortant est en cours d'init on ne peut pas générer un nouvel appel"_cp1252);
        return GiveUp(cref);
    }
    const bool sameLine = Tracking.DbCall != 0 || requestCode == REQUEST_DIAL;
    if (sameLine && FindCallByState(LINECALLSTATE_DIALTONE) == -1) {
        Trace(TRACE_ALWAYS, "DoMakeCall - On ne peut pas assurer le Make Call - Double appel en cours");
        return accepted ? GiveUp(cref) : OPERATION_FAILED;
    }
    const int direct = requestCode == REQUEST_MAKE_CALL ? FindFreeBossSecretaryKey(cref) : NO_KEY;
    if (direct != NO_KEY) {
        SendZTNondigitKey(direct);  // calls its party without a digit
        EnterCall(cref, sameLine ? NO_KEY : direct);
        return 0;
    }
    const int key = sameLine ? NO_KEY : KeyToSeize(cref);
    const char* destination = CallOf(cref).DestAddress;
    Trace(TRACE_ENTRY, "DoMakeCall tou Multi NBtou %d  PushKey %d DialSameLine %d Dest '%s' ", KeyLists.Multi.Count,
          key, sameLine, destination);
    if (!sameLine && key == NO_KEY) {
        Trace(TRACE_ALWAYS, "LineMakeCall Impossible, aucune ressource disponible");
        return GiveUp(cref);
    }
    WaitForTraceMode();
    PressKeyAndNumber(CallOf(cref), key);
    EnterCall(cref, key);
    return 0;
}
