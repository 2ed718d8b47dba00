#include "control/transfer.h"

#include "config/settings.h"
#include "control/free_keys.h"
#include "link/keys.h"
#include "link/link_layer.h"  // whether presses travel together: traced
#include "platform/text.h"
#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/counts.h"
#include "tracking/display.h"
#include "tracking/events.h"
#include "tracking/pending.h"
#include "tracking/steps.h"

namespace {

// The two calls of a request.
struct Pair {
    int Cref, ConsultCref;

    DWORD States() const { return StateOf(Cref) | StateOf(ConsultCref); }
    bool ShareActiveKey() const {
        return KeyOf(Cref) == Tracking.ActivCallTouch && KeyOf(ConsultCref) == Tracking.ActivCallTouch;
    }
    bool OnBossOrSecretary() const { return IsBossOrSecretary(KeyOf(Cref)) || IsBossOrSecretary(KeyOf(ConsultCref)); }
    // The key of the call that is not in this state, and that of the other one.
    int KeyNotIn(DWORD state) const { return KeyOf(StateOf(Cref) != state ? Cref : ConsultCref); }
    int KeyIn(DWORD state) const { return KeyOf(StateOf(Cref) != state ? ConsultCref : Cref); }
};

// What one request differs in from the other.
struct Joining {
    const char *Counts, *TwoCalls, *OneWaits, *SeveralWait, *SharedKey;
    bool WhileRinging;  // a call can be transferred to a party that still rings, but not joined with it
};
constexpr Joining Transfer = {
    "transfert NumCalls %d connected %d OnHold %d OnHoldPend %d Reoffer %d",
    "Demande de transfert - 2 appels en cours",
    "Demande de transfert - >2 appels mais 1 seule garde ",
    "Demande de transfert - plus d'un ONHOLD/REOFFER: choix tou",
    "Demande de transfert - 2 appels en cours sur tou %d",
    true,
};
constexpr Joining Conference = {
    "Conf NumCalls %d connected %d OnHold %d OnHoldPend %d Reoffer %d",
    "Demande de conference - 2 appels en cours",
    "Demande de conférence - > 2 appels ,1 seule garde"_cp1252,
    "Demande de conference - plus d'un ONHOLD/REOFFER: choix tou",
    "Demande de conf - 2 appels en cours sur tou %d",
    false,
};

// The steps below press the soft key at `position`, and line keys where the set must be shown which call is meant. They
// give false when the calls are in no state that the set can act on.

bool PressAlone(const char* trace, int position) {
    Trace(TRACE_ENTRY, trace);
    SendSoftKey(position);
    return true;
}

// Several calls wait: the key of the one that is meant, the soft key, then the connected one's key.
bool PressBetweenKeys(const char* trace, const Pair& pair, int position) {
    Trace(TRACE_ENTRY, trace);
    PressSequence presses;
    presses.Key(pair.KeyNotIn(LINECALLSTATE_CONNECTED));
    presses.SoftKey(position);
    presses.Key(pair.KeyIn(LINECALLSTATE_CONNECTED));
    presses.Send();
    return true;
}

bool PressWhileRinging(const Pair& pair, int position) {
    if (pair.OnBossOrSecretary()) {
        Trace(TRACE_ENTRY, "Demande de transfert sur sonnerie - 1 des appels pat/sec: choix tou");
        PressSequence presses;
        presses.SoftKey(position);
        presses.Key(pair.KeyNotIn(LINECALLSTATE_PROCEEDING));
        presses.Send();
        return true;
    }
    if (pair.Cref != LastHeldCref && pair.ConsultCref != LastHeldCref)
        return false;
    return PressAlone("Demande de transfert sur sonnerie - 2 appels sur touche diff", position);
}

bool Press(const Joining& joining, const Pair& pair, int position) {
    const CallCountsRecord counts = CallCounts();
    Trace(TRACE_ENTRY, joining.Counts, counts.InUse, counts.Connected, counts.OnHold, counts.OnHoldPending,
          counts.Reoffering);
    if (counts.Live() == 2)
        return PressAlone(joining.TwoCalls, position);
    const DWORD states = pair.States();
    const bool rings = joining.WhileRinging && states == PROCEEDING_HELD;
    if (Tracking.DbCall == 0) {
        if (states == CONNECTED_HELD || states == CONNECTED_REOFFERED)
            return counts.OnHold + counts.OnHoldPending + counts.Reoffering == 1
                       ? PressAlone(joining.OneWaits, position)
                       : PressBetweenKeys(joining.SeveralWait, pair, position);
        return rings && PressWhileRinging(pair, position);
    }
    // Two calls share the active line; the set can only act on these two.
    if ((states != CONNECTED_HELD && !rings) || !pair.ShareActiveKey())
        return false;
    Trace(TRACE_ENTRY, joining.SharedKey, Tracking.ActivCallTouch);
    SendSoftKey(position);
    return true;
}

LONG Refuse(DWORD error) {
    SendCompletion(ProviderState, static_cast<LONG>(error));
    return static_cast<LONG>(error);
}

}  // namespace

LONG DoBlindTransfer(int cref) {
    Trace(TRACE_ENTRY, "DoBlindTransfer");
    if (!IsCref(cref) || Tracking.DbCall != 0 || SoftKeyPosition(SK_SECOND_CALL) == 0)
        return Refuse(LINEERR_OPERATIONUNAVAIL);
    char* destination = CallOf(cref).DestAddress;
    Trace(TRACE_ENTRY, "DoBlindTransfer - DestAddress:%s Supermsg %d", destination, Link.SuperMsgSupported);
    PressSequence presses;
    presses.DialString(destination);
    presses.Send();
    RunningRequest = {REQUEST_BLIND_TRANSFER, cref};
    Trace(TRACE_ENTRY, "BlindTransfer Running ReqId %d cref %d", ProviderState.PendingRequestID, cref);
    return 0;
}

LONG SetupTransfer(int cref, int consultCref) {
    if (const int position = SoftKeyPosition(SK_SECOND_CALL); position != 0) {
        SendSoftKey(position);
    } else {
        if (Settings.EnquiryCallMode == 1)
            return Refuse(LINEERR_OPERATIONUNAVAIL);
        const int key = FirstFree(KeyLists.Multi);
        if (key == -1) {
            Trace(TRACE_ALWAYS, "SetupTransfer Impossible, aucune ressource disponible");
            return Refuse(LINEERR_RESOURCEUNAVAIL);
        }
        Trace(TRACE_ENTRY, "prise ligne %d ", key);
        SendZTNondigitKey(key);
    }
    RunningRequest = {REQUEST_SETUP_TRANSFER, cref, consultCref};
    Trace(TRACE_ENTRY, "SetupTransfer Running ReqId %ld cref %04x consultcref %04x", ProviderState.PendingRequestID,
          cref, consultCref);
    return 0;
}

LONG DoTransfer(int cref, int consultCref) {
    if (StateOf(cref) == LINECALLSTATE_CONFERENCED && StateOf(consultCref) == LINECALLSTATE_CONFERENCED) {
        Trace(TRACE_ENTRY, "Transfer de 2 appels CONFERENCED");
        PressKeyCode(RELEASE_KEY);  // the other two parties stay connected
        return 0;
    }
    const int position = SoftKeyPosition(SK_TRANSFER);
    if (position == 0) {
        Trace(TRACE_ALWAYS, "Echec Transfer - SK not present");
        return OPERATION_FAILED;
    }
    if (Press(Transfer, {cref, consultCref}, position))
        return 0;
    Trace(TRACE_ALWAYS, "Echec transfert - pb d'état"_cp1252);
    return OPERATION_FAILED;
}

LONG DoConference(int cref, int consultCref) {
    const int position = SoftKeyPosition(SK_CONFERENCE);
    if (position == 0) {
        Trace(TRACE_ALWAYS, "Echec conference - SK not present");
        return OPERATION_FAILED;
    }
    if (!Press(Conference, {cref, consultCref}, position)) {
        Trace(TRACE_ALWAYS, "Echec conf - pb d'état"_cp1252);
        return OPERATION_FAILED;
    }
    Tracking.ConferenceReq = 1;
    return 0;
}
