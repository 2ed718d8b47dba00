#include "tracking/multi_line.h"

#include "config/settings.h"
#include "platform/text.h"
#include "trace/trace.h"
#include "tracking/conference.h"
#include "tracking/pending.h"
#include "tracking/steps.h"
#include "tracking/supervision.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace {

// A step takes the key and the new icon.
using Step = void (*)(int key, int icon);

void Activate(int key) {
    TouchOf(key).icon = ACTIV_ICON;
    Tracking.ActivCallTouch = key;
}

// The icon alone lets a call without direction pass as received.
void EnsureInbound(int cref) {
    CallRecord& call = CallOf(cref);
    Trace(TRACE_CALL, "Inbound:%x", call.Inbound);
    if (!call.HasDirection())
        call.Inbound = 1;
}

// --- from an idle key ------------------------------------------------------------------------------------------------
// A call stands on its key before TAPI is told of it: for a make call from within that the key is not free.

// The user has taken the line. TAPI knows the consultation call of a transfer under way already; any other is new.
void TakeLine(int key) {
    int cref = -1;
    if (RunningRequest.Code == REQUEST_SETUP_TRANSFER && Settings.EnquiryCallMode == 0) {
        cref = EndSetupTransfer(key, StandOnKey);
    } else {
        cref = AllocCallRecord(LINECALLSTATE_DIALTONE, key);
        StandOnKey(key, cref);
        if (IsCref(cref)) {
            CallOf(cref).byMakeCall = 0;
            CallOf(cref).Inbound = 0;
            CallOf(cref).Outbound = 1;
            DoLineEventNewCall(cref);
        }
    }
    if (IsCref(cref)) {
        Trace(TRACE_CALL, "Icone:%d - Etat:DIALTONE - Ref:%d", key, cref);
        SendCallState(cref, LINECALLSTATE_DIALTONE);
    }
    Activate(key);
}

// Moves a waiting incoming call to the key.
void MoveIncomingTo(int key, int cref) {
    CallRecord& call = CallOf(cref);
    call.byMakeCall = 0;
    call.Inbound = 1;
    call.Outbound = 0;
    StandOnKey(key, cref);
}

void TakeWaitingCalls(int key) {
    if (IsCref(Tracking.PickUpCref)) {
        const int cref = Tracking.PickUpCref;  // stays set until the call is reported connected
        const bool unknown = CallOf(cref).touch == 0;
        MoveIncomingTo(key, cref);
        CallOf(cref).state = LINECALLSTATE_PROCEEDING;  // first: a make call takes an idle record
        if (unknown)
            DoLineEventNewCall(cref);
        Trace(TRACE_CALL, "InPickUpFunction Icone:%d - Etat:PROCEEDING - Ref:%d", key, cref);
        SendCallState(cref, LINECALLSTATE_PROCEEDING);
        Activate(key);
    }
    if (IsCref(PickUpSupervCref)) {
        const int cref = std::exchange(PickUpSupervCref, -1);  // first: TAPI may answer the next from within
        MoveIncomingTo(key, cref);
        Trace(TRACE_CALL, "InPickUpSupervFunction Icone:%d - Etat:CONNECTED - Ref:%d", key, cref);
        CallOf(cref).state = LINECALLSTATE_CONNECTED;
        SendCallState(cref, LINECALLSTATE_CONNECTED);
        Activate(key);
    }
    if (IsCref(SwapKeyTransferingCref)) {
        const int cref = SwapKeyTransferingCref;
        StandOnKey(key, cref);
        Trace(TRACE_CALL, "SwapKeyTransfering cref %04x new Icone:%d", cref, key);
        Activate(key);
        SwapKeyTransferingCref = -1;
    }
}

void Seize(int key, int) {
    const auto& calls = TouchOf(key).calls;
    if (CallOnKey(key) != -1) {  // made by a request before the key lit
        Activate(key);
        Trace(TRACE_CALL, "ACT_ACTIV_ICON ref %04x %04x deja cree", calls[0], calls[1]);
        return;
    }
    if (Tracking.ForwardAckTicks == 0 && Tracking.PickUpCref == -1 && PickUpSupervCref == -1 &&
        SwapKeyTransferingCref == -1)
        TakeLine(key);
    else
        TakeWaitingCalls(key);
}

void Ringing(int key, int) {
    Touch& touch = TouchOf(key);
    if (CallOnKey(key) != -1) {
        Trace(TRACE_CALL, "CROISEMENT arrivee/depart iconid:%d cref1 %d cref2 %d", key, touch.calls[0], touch.calls[1]);
        Tracking.RingingKey = key;                      // from a call's IDLE TAPI may make the next
        for (const int cref : std::array(touch.calls))  // a copy: ClearCall empties the slots
            if (cref != -1)
                ClearCall(cref);
        Tracking.RingingKey = 0;
    }
    if (IsCref(SwapKeyTransferingCref)) {
        const int cref = std::exchange(SwapKeyTransferingCref, -1);
        StandOnKey(key, cref);
        Trace(TRACE_CALL, "SwapKeyTransfering cref %04x new Icone:%d state INCOMING", cref, key);
        touch.icon = INCOM_ICON;
        return;
    }
    // OFFERING goes out when the caller shows on the display, or after a second without one.
    const int cref = AllocCallRecord(LINECALLSTATE_OFFERING, key);
    StandOnKey(key, cref);
    if (IsCref(cref)) {
        DoLineEventNewCall(cref);
        CallOf(cref).byMakeCall = 0;
        CallOf(cref).Inbound = 1;
        Tracking.OfferInfoCref = cref;
        Tracking.OfferTicks = 0;
    }
    touch.icon = INCOM_ICON;
}

void Reserve(int key, int) {
    if (CallOnKey(key) != -1) {
        Activate(key);
        return;
    }
    if (TouchOf(key).kind != TOUCH_MULTI)
        return;
    const int cref = AllocCallRecord(LINECALLSTATE_DISCONNECTED, key);
    StandOnKey(key, cref);
    if (IsCref(cref)) {
        CallOf(cref).byMakeCall = 0;
        CallOf(cref).Inbound = 1;
        CallOf(cref).Outbound = 0;
        DoLineEventNewCall(cref);
        Trace(TRACE_CALL, "Icone:%d - Etat:RESERVED DISCONNECTED - Ref:%d", key, cref);
        SendCallState(cref, LINECALLSTATE_DISCONNECTED);
    }
    Activate(key);
}

// --- answer, hold, retrieve ------------------------------------------------------------------------------------------

bool AnotherKeyIsActive(int key) {
    Trace(TRACE_CALL, "ActivCallTouch:%d - iconid:%d", Tracking.ActivCallTouch, key);
    return Tracking.ActivCallTouch != 0 && Tracking.ActivCallTouch != key;
}

// The one call on a key, in this state; -1, traced, when there are two or none is.
int OnlyCall(int key, DWORD state, const char* traceOfTwo) {
    if (HoldsTwoCalls(key)) {
        Trace(TRACE_CALL, traceOfTwo);
        return -1;
    }
    const int cref = CallOnKey(key);
    if (IsCref(cref) && CallOf(cref).state == state)
        return cref;
    Trace(TRACE_CALL, "Impossible de mettre un appel non connected onhold");
    return -1;
}

void Retrieve(int key, int) {
    const int cref = OnlyCall(key, LINECALLSTATE_ONHOLD, "Impossible 2 appels sur la même Touche ??"_cp1252);
    if (cref == -1)
        return;
    if (AnotherKeyIsActive(key)) {
        Tracking.ConfInProgress = 1;
        Trace(TRACE_CALL, "Passage en conférence detecte par icone. ConferenceReq %d"_cp1252, Tracking.ConferenceReq);
        ConferenceByIcon(cref, key);
        return;
    }
    CallOf(cref).state = LINECALLSTATE_CONNECTED;
    Trace(TRACE_CALL, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 3", key, cref);
    Activate(key);
    SendIfDirected(cref, LINECALLSTATE_CONNECTED);
}

// The party of an answered call is still to be read from the display when no caller has been.
void ExpectParty(int cref) {
    if (cref == Tracking.OfferInfoCref) {
        Tracking.UnknownConnectedCall = cref;
        Tracking.OfferInfoCref = -1;
        return;
    }
    if (StopWaitingForCaller(cref))
        Tracking.UnknownConnectedCall = cref;
}

void Answer(int key, int) {
    if (const int cref = SearchState(key, LINECALLSTATE_OFFERING); cref != -1) {
        CallOf(cref).state = LINECALLSTATE_CONNECTED;
        CallOf(cref).DispNamePending = 1;
        Trace(TRACE_CALL, "Icone:%d - Etat:CONNECTED - Ref:%d cas 5", key, cref);
        EnsureInbound(cref);
        SendCallState(cref, LINECALLSTATE_CONNECTED);
        Activate(key);
        ExpectParty(cref);
        return;
    }
    const int cref = SearchState(key, STATE_REOFFERING);
    if (cref == -1) {
        Trace(TRACE_CALL, "Impossible: l'appel n'a pas été enregistré"_cp1252);
        return;
    }
    if (AnotherKeyIsActive(key)) {
        Tracking.ConfInProgress = 1;
        Trace(TRACE_CALL, "Passage en conférence"_cp1252);
        ConferenceByIcon(cref, key);
        return;
    }
    CallOf(cref).state = LINECALLSTATE_CONNECTED;
    Trace(TRACE_CALL, "Icone:%d - Etat:CONNECTED - Ref:%d cas 4", key, cref);
    EnsureInbound(cref);
    SendCallState(cref, LINECALLSTATE_CONNECTED);
    Activate(key);
}

void Hold(int key, int) {
    const int cref =
        OnlyCall(key, LINECALLSTATE_CONNECTED, "Impossible 2 appels sur la même Touche en garde ??"_cp1252);
    if (cref == -1)
        return;
    Trace(TRACE_CALL, "Icone:%d  - Etat:ONHOLD - Ref:%d", key, cref);
    CallOf(cref).state = LINECALLSTATE_ONHOLD;
    TouchOf(key).icon = HOLD_ICON;
    Tracking.ActivCallTouch = 0;
    SendIfDirected(cref, LINECALLSTATE_ONHOLD);
}

// --- a key that rings again ------------------------------------------------------------------------------------------

// The held call calls back.
void HeldRings(int key, int) {
    const int cref = SearchState(key, LINECALLSTATE_ONHOLD);
    if (cref == -1) {
        Trace(TRACE_CALL, "Pb d'état ..."_cp1252);
        return;
    }
    CallOf(cref).state = STATE_REOFFERING;
    SendIfDirected(cref, LINECALLSTATE_OFFERING);
    Trace(TRACE_CALL, "Icone:%d - Etat:REOFFERING - Ref:%d", key, cref);
    TouchOf(key).icon = INCOM_ICON;
}

void HeldRingsWhileActive(int key) {
    HeldRings(key, INCOM_ICON);
    Tracking.ActivCallTouch = key;
}

// The second call being set up was abandoned and the held one rings back.
void AbandonedThenHeldRings(int key, DWORD abandoned) {
    const int cref = SearchState(key, abandoned);
    if (cref == -1) {
        Trace(TRACE_CALL, "Pb d'état..."_cp1252);
        return;
    }
    Trace(TRACE_CALL, "Icone:%d - Etat:DISCONNECTED - Ref:%d", key, cref);
    DisconnectIfDirected(cref);
    Trace(TRACE_CALL, "Icone:%d - Etat:IDLE - Ref:%d", key, cref);
    Tracking.DbCall = 0;
    TouchOf(key).icon = INCOM_ICON;
    FreeCall(cref, key);
    SendIfDirected(cref, LINECALLSTATE_IDLE);
    if (const int held = SearchState(key, LINECALLSTATE_ONHOLD); held != -1) {
        CallOf(held).state = STATE_REOFFERING;
        Trace(TRACE_CALL, "Icone:%d - Etat:REOFFERING - Ref:%d", key, held);
        SendIfDirected(held, LINECALLSTATE_OFFERING);
    }
}

void ProceedingThenHeldRings(int key) {
    AbandonedThenHeldRings(key, LINECALLSTATE_PROCEEDING);
}

void DialtoneThenHeldRings(int key) {
    AbandonedThenHeldRings(key, LINECALLSTATE_DIALTONE);
}

void DisconnectedThenHeldRings(int key) {
    const int cref = SearchState(key, LINECALLSTATE_DISCONNECTED);
    if (cref != -1)
        LeaveSlot(Tracking.ActivCallTouch, cref);  // where it rings on a key that is not the active one
    TouchOf(key).icon = INCOM_ICON;
    Tracking.ActivCallTouch = key;
    Tracking.DbCall = 0;
    if (cref != -1) {
        EndCallIfDirected(cref, key);
        Trace(TRACE_CALL, "Icone:%d - Etat:IDLE - Ref:%d", key, cref);
    }
    if (const int held = SearchState(key, LINECALLSTATE_ONHOLD); held != -1) {
        CallOf(held).state = STATE_REOFFERING;
        SendIfDirected(held, LINECALLSTATE_OFFERING);
        Trace(TRACE_CALL, "Icone:%d - Etat:REOFFERING - Ref:%d", key, held);
    }
}

void DisconnectedRings(int key) {
    if (const int cref = SearchState(key, LINECALLSTATE_DISCONNECTED); cref != -1) {
        Trace(TRACE_CALL, "Icone:%d - Etat:OFFERING - Ref:%d", key, cref);
        CallOf(cref).state = LINECALLSTATE_OFFERING;
        CallOf(cref).Inbound = 1;
        SendCallState(cref, LINECALLSTATE_OFFERING);
    }
    Tracking.DbCall = 0;
    TouchOf(key).icon = INCOM_ICON;
}

// By the states of the calls on the key that is active at that moment.
void RingAgain(int key, int) {
    struct Case {
        DWORD states;
        void (*step)(int key);
    };
    static constexpr Case Cases[] = {
        {LINECALLSTATE_ONHOLD, HeldRingsWhileActive},
        {PROCEEDING_HELD, ProceedingThenHeldRings},
        {LINECALLSTATE_DIALTONE | LINECALLSTATE_ONHOLD, DialtoneThenHeldRings},
        {LINECALLSTATE_DISCONNECTED | LINECALLSTATE_ONHOLD, DisconnectedThenHeldRings},
        {LINECALLSTATE_DISCONNECTED, DisconnectedRings},
    };
    const DWORD states = StatesOn(Tracking.ActivCallTouch);
    for (const Case& entry : Cases)
        if (entry.states == states)
            return entry.step(key);
}

// --- a key that goes out ---------------------------------------------------------------------------------------------

enum class Then { NextSlot, Stop };

// A boss or secretary key whose call was transferred goes out: the call is kept for the key that receives it.
bool KeepForTransfer(int key, std::size_t slot, const char* trace) {
    const int cref = TouchOf(key).calls[slot];
    if (cref != SwapKeyTransferingCref || !IsBossOrSecretary(key))
        return false;
    Trace(TRACE_CALL, trace, key, cref);
    TouchOf(key).icon = IDLE_ICON;
    TouchOf(key).calls[slot] = -1;
    return true;
}

Then EndEstablished(int key, int icon, std::size_t slot, int cref) {
    const Touch& touch = TouchOf(key);
    const DWORD state = CallOf(cref).state;
    if (touch.kind == TOUCH_MULTI && (state == LINECALLSTATE_PROCEEDING || state == LINECALLSTATE_DIALTONE))
        TmpAddress[0] = 0;
    if (KeepForTransfer(key, slot, "Icone:%d éteint - cref %04x transfert touche PAT/SEC"_cp1252)) {
        if (key == Tracking.ActivCallTouch)
            Tracking.ActivCallTouch = 0;
        return Then::Stop;
    }
    ReportGone(key, cref);
    if (touch.kind == TOUCH_MULTI && icon == RESERVED_ICON) {
        CompleteRunningDrop(cref);
        return Then::Stop;
    }
    if (CallOf(cref).touch == Tracking.ActivCallTouch)
        Tracking.ActivCallTouch = 0;
    EndGone(key, cref);
    return Then::NextSlot;
}

Then EndRinging(int key, std::size_t slot, int cref) {
    if (KeepForTransfer(key, slot, "Icone:%d éteint cref %04x transfert subi en sonnerie touche PAT/SEC"_cp1252))
        return Then::Stop;
    ReportGone(key, cref);
    EndGone(key, cref);
    return Then::NextSlot;
}

Then EndDisconnected(int key, int icon, int cref) {
    if (TouchOf(key).kind == TOUCH_MULTI && icon == RESERVED_ICON) {
        CompleteRunningDrop(cref);
        return Then::Stop;
    }
    Tracking.ActivCallTouch = 0;
    EndGone(key, cref);
    return Then::NextSlot;
}

Then EndSlot(int key, int icon, std::size_t slot, int cref) {
    switch (CallOf(cref).state) {
    case LINECALLSTATE_DIALTONE:
    case LINECALLSTATE_BUSY:
    case LINECALLSTATE_CONNECTED:
    case LINECALLSTATE_PROCEEDING:
    case LINECALLSTATE_ONHOLD: return EndEstablished(key, icon, slot, cref);
    case LINECALLSTATE_OFFERING:
    case STATE_REOFFERING: return EndRinging(key, slot, cref);
    case LINECALLSTATE_DISCONNECTED: return EndDisconnected(key, icon, cref);
    case LINECALLSTATE_CONFERENCED: ConferenceEndOnKey(key, static_cast<int>(slot)); return Then::NextSlot;
    default: return Then::NextSlot;
    }
}

void End(int key, int icon) {
    if (HoldsTwoCalls(key))
        Tracking.DbCall = 0;
    for (std::size_t slot = 0; slot < 2; ++slot) {
        const int cref = TouchOf(key).calls[slot];  // afresh: the first slot's end may have changed the second
        if (!IsCref(cref))
            continue;
        if (TouchOf(key).kind == TOUCH_MULTI)
            StopWaitingForCaller(cref);
        if (EndSlot(key, icon, slot, cref) == Then::Stop)
            return;
    }
}

// --- the machine -----------------------------------------------------------------------------------------------------

// The stored icon is the state, the new icon the event. Null: nothing is done and the stored icon stays.
struct Row {
    std::int32_t Stored;
    Step Steps[5];
};
// clang-format off
constexpr Row Steps[] = {
    //                 ACTIV      INCOM       HOLD      IDLE      RESERVED
    {IDLE_ICON,     {  Seize,     Ringing,    nullptr,  nullptr,  Reserve }},
    {ACTIV_ICON,    {  nullptr,   RingAgain,  Hold,     End,      End     }},
    {INCOM_ICON,    {  Answer,    nullptr,    nullptr,  End,      End     }},
    {HOLD_ICON,     {  Retrieve,  HeldRings,  nullptr,  End,      End     }},
    {RESERVED_ICON, {  nullptr,   nullptr,    nullptr,  End,      End     }},
};
// clang-format on

bool IsIcon(int icon) {
    return icon >= ACTIV_ICON && icon <= RESERVED_ICON;
}

// A key whose stored icon is none of the five is one that is not idle: it can only end, as by the last row.
Step StepFor(int stored, int icon) {
    const Row* row = std::find_if(std::begin(Steps), std::end(Steps) - 1,
                                  [&](const Row& candidate) { return candidate.Stored == stored; });
    return row->Steps[icon - ACTIV_ICON];
}

}  // namespace

void MultiIcon(int icon, int key) {
    if (!IsKey(key) || !IsIcon(icon))
        return;
    Touch& touch = TouchOf(key);
    switch (touch.kind) {
    case TOUCH_SUPERV: SupervIcon(icon, key); return;
    case TOUCH_MULTI:
    case TOUCH_PATRON:
    case TOUCH_SECRETAIRE:
    case TOUCH_SECR_DEBORD: break;
    default: return;
    }
    Trace(TRACE_CALL, "Multi Icone %d Action: %s => %s", key, CommandName(touch.icon), CommandName(icon));
    if (const Step step = StepFor(touch.icon, icon))
        step(key, icon);
}
