#include "control/call_keys.h"

#include "config/settings.h"
#include "link/keys.h"
#include "platform/text.h"
#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/display.h"
#include "tracking/events.h"
#include "tracking/steps.h"

namespace {

constexpr LONG NOTHING_PRESSED = 1;
constexpr LONG WRONG_STATE = Error(LINEERR_INVALCALLSTATE);

// During a double call and a conference the set offers these at fixed positions, whatever their labels.
constexpr int END_SECOND_CALL = 1;
constexpr int SWAP = 2;
constexpr int LEAVE_CONFERENCE = 3;

LONG Release() {
    PressKeyCode(RELEASE_KEY);
    return 0;
}

LONG PressSoftKey(int position) {
    SendSoftKey(position);
    return 0;
}

// Leaving the conference transfers its two parties to each other.
LONG DropConference() {
    Trace(TRACE_ENTRY, "DoClearCall  confState %lx", confstate);
    if (confstate != LINECALLSTATE_CONNECTED)
        return WRONG_STATE;
    const int position = SoftKeyPosition(SK_TRANSFER);
    if (position == 0)
        return Error(LINEERR_OPERATIONUNAVAIL);
    Trace(TRACE_ENTRY, "DoClearCall sur Conf -> Transfert");
    return PressSoftKey(position);
}

// One of two calls on a line can only end beside a held one.
LONG DropSecondCall(const char* trace) {
    if (OnActive(LINECALLSTATE_ONHOLD) == -1) {
        Trace(TRACE_ENTRY, "On ne peut pas raccrocher l'appel");
        return WRONG_STATE;
    }
    Trace(TRACE_ENTRY, trace);
    Tracking.SecondCallDropReq = 1;
    return PressSoftKey(END_SECOND_CALL);
}

LONG DropProceeding() {
    Trace(TRACE_ENTRY, "La ligne a deconnecter est PROCEEDING");
    if (Tracking.DbCall != 0)
        return DropSecondCall("On a 2 appels sur une ligne : 1 PROCEEDING / 1 ONHOLD");
    Trace(TRACE_ENTRY, "pas d'autre appel en cours -> raccrochage");
    return Release();
}

LONG DropConnected() {
    Trace(TRACE_ENTRY, "DoClearCall - La ligne a deconnecter est CONNECTED");
    return Tracking.DbCall != 0 ? DropSecondCall("On a 2 appels sur une ligne : 1 CONNECTED / 1 ONHOLD") : Release();
}

// The set lets go of the party that came last, and of no other.
LONG DropParty(int cref) {
    Trace(TRACE_ENTRY, "La ligne à deconnecter est CONFERENCED - Libération du dernier appel arrivé en conf"_cp1252);
    if (Tracking.ConfBroken != 0 || cref != Tracking.ConfParty2)
        return WRONG_STATE;
    return PressSoftKey(LEAVE_CONFERENCE);
}

LONG DropDisconnected(int cref) {
    Trace(TRACE_ENTRY, "DoClearCall - La ligne a deconnecter est DISCONNECTED");
    return KeyOf(cref) == Tracking.ActivCallTouch ? Release() : NOTHING_PRESSED;
}

// The call beside this one on the active key; -1 when there is none.
int OtherOnActive(int cref) {
    if (!IsKey(Tracking.ActivCallTouch))
        return -1;
    const auto& calls = TouchOf(Tracking.ActivCallTouch).calls;
    return calls[0] != cref ? calls[0] : calls[1];
}

void Held(int cref) {
    CallOf(cref).state = LINECALLSTATE_ONHOLD;
    Trace(TRACE_CALL, "Icone:%d  - Etat:ONHOLD - Ref:%d", KeyOf(cref), cref);
    SendIfDirected(cref, LINECALLSTATE_ONHOLD);
}

void Connected(int cref) {
    CallOf(cref).state = LINECALLSTATE_CONNECTED;
    SendCallState(cref, LINECALLSTATE_CONNECTED);
    Trace(TRACE_CALL, "Icone:%d  - Etat:CONNECTED - Ref:%d", KeyOf(cref), cref);
}

LONG SwapBack(int cref) {
    if (KeyOf(cref) != Tracking.ActivCallTouch)
        return OPERATION_FAILED;
    const int other = OtherOnActive(cref);
    if (StateOf(other) != LINECALLSTATE_CONNECTED)
        return WRONG_STATE;
    if (!CallOf(cref).HasDirection()) {
        Trace(TRACE_CALL, "DoUnholdCall - Pb d'état...Incohérence"_cp1252);
        return OPERATION_FAILED;
    }
    PressSoftKey(SWAP);
    Held(other);
    Connected(cref);
    return 0;
}

}  // namespace

LONG DoClearCall(int cref) {
    if (cref == CONF_CREF)
        return DropConference();
    switch (StateOf(cref)) {
    case 0:
    case LINECALLSTATE_IDLE: return WRONG_STATE;
    case LINECALLSTATE_PROCEEDING: return DropProceeding();
    case LINECALLSTATE_CONNECTED: return DropConnected();
    case LINECALLSTATE_ONHOLD:
        Trace(TRACE_ENTRY, "La ligne a déconnecter est ONHOLD - impossible"_cp1252);
        return WRONG_STATE;
    case LINECALLSTATE_CONFERENCED: return DropParty(cref);
    case LINECALLSTATE_DISCONNECTED: return DropDisconnected(cref);
    default: return NOTHING_PRESSED;
    }
}

LONG DoAnswer(int cref) {
    const DWORD state = StateOf(cref);
    if (state != LINECALLSTATE_OFFERING && state != STATE_REOFFERING)
        return WRONG_STATE;
    const int key = KeyOf(cref);
    SendZTNondigitKey(key);
    if (IsKey(key) && TouchOf(key).kind == TOUCH_SUPERV)
        PickUpSupervCref = cref;  // the call will show on another key
    return 0;
}

LONG DoHoldCall(int cref) {
    if (StateOf(cref) != LINECALLSTATE_CONNECTED)
        return WRONG_STATE;
    if (Tracking.DbCall == 0) {
        SendZTNondigitKey(KeyOf(cref));
        return 0;
    }
    PressSoftKey(SWAP);
    Held(cref);
    if (const int other = OtherOnActive(cref); IsCref(other))
        Connected(other);
    return 0;
}

LONG DoUnholdCall(int cref) {
    if (StateOf(cref) != LINECALLSTATE_ONHOLD)
        return WRONG_STATE;
    if (Tracking.DbCall != 0)
        return SwapBack(cref);
    for (const int key : KeyLists.Multi)
        if (SearchState(key, LINECALLSTATE_PROCEEDING) != -1)
            return OPERATION_FAILED;
    SendZTNondigitKey(KeyOf(cref));
    return 0;
}
