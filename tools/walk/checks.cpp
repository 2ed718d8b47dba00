#include "walk/walker.h"

#include "control/requests.h"
#include "link/fifo.h"
#include "link/serial.h"
#include "link/tick.h"

#include <algorithm>
#include <utility>

namespace Walk {

namespace {

std::string Text(int cref) {
    return "call " + std::to_string(cref) + " (" + StateName(StateOf(cref)) + " on key " + std::to_string(KeyOf(cref)) +
           ")";
}

// Whether a state that TAPI was told is that of the set.
bool Fits(At set, DWORD tapi) {
    constexpr DWORD MAKING = LINECALLSTATE_DIALING | LINECALLSTATE_PROCEEDING | LINECALLSTATE_RINGBACK;
    const auto wanted = [&]() -> DWORD {
        switch (set) {
        case At::Ringing:
            if (tapi == 0)
                return TheBook.Odd("a call is not offered when another one rings before its caller shows");
            return LINECALLSTATE_OFFERING;
        case At::RingingBack: return LINECALLSTATE_OFFERING;
        case At::DialTone: return LINECALLSTATE_DIALTONE;
        case At::Dialling: return LINECALLSTATE_DIALTONE | MAKING;  // letters do not show as digits
        case At::FarRinging: return MAKING;
        case At::Connected: return LINECALLSTATE_CONNECTED;
        case At::Held: return LINECALLSTATE_ONHOLD;
        case At::Conferenced: return LINECALLSTATE_CONFERENCED;
        case At::Served: return LINECALLSTATE_DIALTONE | MAKING;
        case At::Over: return LINECALLSTATE_DISCONNECTED;
        }
        return 0;
    };
    return tapi == 0 ? wanted() == 1 : (wanted() & tapi) != 0;
}

bool ConferenceLives() {
    const TapiCall* conference = TheBook.Current(CONF_CREF);
    return conference != nullptr && conference->Is == Life::Alive;
}

}  // namespace

// --- what must hold ---------------------------------------------------------------------------------------------------------

std::string Walker::TableFault() {
    std::array<int, CALL_COUNT> standsOn{};
    for (int key = 1; key < KEY_COUNT; ++key) {
        const Touch& touch = TouchOf(key);
        if (touch.kind != TOUCH_NONE && (touch.icon < ACTIV_ICON || touch.icon > RESERVED_ICON))
            return "key " + std::to_string(key) + " has icon " + std::to_string(touch.icon);
        for (const int cref : touch.calls) {
            if (cref == -1)
                continue;
            if (!IsCref(cref))
                return "key " + std::to_string(key) + " holds " + std::to_string(cref);
            if (KeyOf(cref) != key && touch.kind == TOUCH_SUPERV && KeyOf(cref) != 0)
                continue;  // an intercepted call, until its supervision key goes out
            if (KeyOf(cref) != key)
                return Text(cref) + " stands on key " + std::to_string(key);
            if (std::exchange(standsOn[static_cast<std::size_t>(cref)], key) != 0)
                return Text(cref) + " stands twice";
        }
    }
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (KeyOf(cref) != 0 && standsOn[static_cast<std::size_t>(cref)] == 0 && cref != SwapKeyTransferingCref)
            return Text(cref) + " stands on no key";
    struct Marker {
        const char* name;
        int cref;
    };
    for (const Marker& marker : {Marker{"OfferInfoCref", Tracking.OfferInfoCref},
                                 {"UnknownConnectedCall", Tracking.UnknownConnectedCall},
                                 {"PickUpCref", Tracking.PickUpCref},
                                 {"PickUpSupervCref", PickUpSupervCref},
                                 {"SwapKeyTransferingCref", SwapKeyTransferingCref},
                                 {"ConfParty1", Tracking.ConfParty1},
                                 {"ConfParty2", Tracking.ConfParty2}})
        if (marker.cref != -1 && !IsCref(marker.cref))
            return std::string(marker.name) + " is " + std::to_string(marker.cref);
    for (const int cref : WaitInfo)
        if (cref != -1 && !IsCref(cref))
            return "WaitInfo holds " + std::to_string(cref);
    if (!IsKey(Tracking.ActivCallTouch))
        return "ActivCallTouch is " + std::to_string(Tracking.ActivCallTouch);
    return "";
}

// At most one request is open, it is the pending one, and its call lives.
std::string Walker::RequestFault() {
    if (TheBook.Requests.size() > 1)
        return std::to_string(TheBook.Requests.size()) + " requests are open";
    const TapiRequest* open = TheBook.Open();
    if ((open != nullptr) != (ProviderState.PendingRequestID != 0))
        return open == nullptr ? "a request is pending that TAPI does not wait for"
                               : open->Name + " is open, and not pending";
    if (open == nullptr)
        return RunningRequest.Code != REQUEST_NONE ? "a request runs that is not pending" : "";
    if (RunningRequest.Code != REQUEST_DROP && RunningRequest.Code != REQUEST_BLIND_TRANSFER &&
        RunningRequest.Code != REQUEST_SETUP_TRANSFER)
        return open->Name + " is open, and nothing runs";
    const int cref = RunningRequest.Cref;
    const bool lives =
        cref == CONF_CREF ? ConferenceLives() : StateOf(cref) != 0 && StateOf(cref) != LINECALLSTATE_IDLE;
    return lives ? "" : open->Name + " of " + Text(cref) + " can never end";
}

// What is wanted as it is and may leave the tables in a state that only a new start mends.
void Walker::Watch() {
    if (Suspect == nullptr)
        Suspect = TheBook.Doubt;
    if (Suspect == nullptr && Serial.V24Trouble)
        Suspect = "a loss of contact ends the calls and leaves them on the keys that carry one call";
    if (Suspect == nullptr && Tracking.PickUpCref != -1)
        Suspect = "a pickup that no call has answered yet: the next call is taken for it";
    if (Suspect == nullptr && RunningRequest.Code == REQUEST_DROP && RunningRequest.Cref == CONF_CREF &&
        !ConferenceLives())
        Suspect = "a conference that is over stays CONNECTED here: a drop of it joins two other calls and never ends";
    const int active = Tracking.ActivCallTouch;
    if (Suspect == nullptr && Tracking.DbCall != 0 && !HoldsTwoCalls(active))
        Suspect = "a second call that ended by the prompt to hang up leaves the double call marked";
    if (Suspect == nullptr && (SwapKeyTransferingCref != -1 || PickUpSupervCref != -1))
        Suspect = "a call that is to come to another key: the next key that lights is taken for its";
    for (const SetCall& call : Machine.set.calls)
        if (Has(NO_SUPERVISION) && TouchOf(call.key).kind == TOUCH_SUPERV)
            Unsupervised.insert(call.id);
        else if (Suspect == nullptr && Unsupervised.contains(call.id))
            Suspect = "without supervision a call that is intercepted is a new one at dial tone";
    if (Suspect == nullptr && Machine.set.calls.size() >= CALL_COUNT)
        Suspect = "all records are taken: a key that lights or rings keeps that icon when it goes out";
    const auto proceeding = std::count_if(CallTable.begin(), CallTable.end(), [](const CallRecord& call) {
        return call.state == LINECALLSTATE_PROCEEDING;
    });
    if (Suspect == nullptr && Marks.MakeCallWatch.Set && proceeding > 1)
        Suspect = "the watch over a made call looks at the first call that proceeds, which is another one";
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (Suspect == nullptr && !Tick.ConfigReceived && KeyOf(cref) != 0)
            Suspect = "a call came before the set's configuration, which empties the keys";
    if (PlatformControl::Now() - ForwardedAt > 5000)
        ForwardedCall = INT_MAX;
    for (const SetCall& call : Machine.set.calls)
        if (call.id > ForwardedCall)
            Unseen.insert(call.id);
    for (const SetCall& call : Machine.set.calls)
        if (Suspect == nullptr && Unseen.contains(call.id) && call.state != At::DialTone &&
            call.state != At::Dialling && call.state != At::Served)
            Suspect = "a key that lights while a service code is on its way, of which no call is made";
    if (Suspect == nullptr && active != 0 && (StatesOn(active) & ~(STATE_REOFFERING | LINECALLSTATE_IDLE)) == 0)
        Suspect = "a key that rang back stays the active one";
}

void Walker::CheckAll() {
    if (const std::string wrong = std::exchange(TheBook.CallFault, ""); !wrong.empty() && Spoilt == nullptr)
        Found(wrong);
    if (Failed())
        return;
    if (!Tick.ConfigReceived && !Machine.set.calls.empty())
        Clean = false;  // the keys are not known yet
    if (std::string wrong = Eq::Inconsistency(Machine); !wrong.empty())
        return Wrong("the set's picture: " + wrong);
    const std::vector<PlatformControl::Box> boxes = PlatformControl::Boxes();
    if (boxes.size() > Boxes) {
        Say("box: " + boxes.back().Text);
        Out.Boxes += static_cast<long>(boxes.size() - Boxes);
        Boxes = boxes.size();
        if (!Faulty && !(boxes.back().Text.rfind("No response from PBX", 0) == 0 && CrowdedFor > 50 &&
                         TheBook.Odd("the configuration takes more than 14 s among presses and events")))
            return Wrong("a message box: " + boxes.back().Text);
    }
    if (!Open || Spoilt != nullptr)
        return;
    Watch();
    if (std::string wrong = TableFault(); !wrong.empty())
        return Found(wrong);
    if (std::string wrong = RequestFault(); !wrong.empty())
        return Found(wrong);
}

// --- the set's calls and TAPI's ----------------------------------------------------------------------------------------------

std::string Walker::PictureFault() {
    for (const Eq::KeyConfiguration& configured : Machine.config.keys) {
        const int key = configured.number;
        if (TouchOf(key).kind == TOUCH_NONE || (TouchOf(key).kind == TOUCH_SUPERV && Has(NO_SUPERVISION)))
            continue;
        std::vector<const SetCall*> set;
        std::vector<DWORD> told;
        std::string text = "key " + std::to_string(key) + ": the set has";
        for (const SetCall& call : Machine.set.calls)
            if (call.key == key) {
                set.push_back(&call);
                text += " " + Eq::CallStateName(call.state);
            }
        text += ", TAPI has";
        for (int cref = 0; cref < CALL_COUNT; ++cref)
            if (const TapiCall* call = TheBook.Current(cref);
                KeyOf(cref) == key && call != nullptr && call->Is == Life::Alive) {
                told.push_back(call->State);
                text += " " + StateName(call->State);
            }
        // The key of a made call that turns reserved counts as lit.
        if (set.size() == 1 && set[0]->reserved && told.size() == 1 && Fits(At::FarRinging, told[0]) &&
            TheBook.Odd("a made call whose key turns reserved before it lights counts as made"))
            continue;
        // While a service code is carried out no call is made of a key that lights; and the icon of a call that is over
        // ends it on any key but a multi-line one.
        if (set.size() == 1 && told.empty() &&
            (set[0]->state == At::Served || Unseen.contains(set[0]->id) ||
             (set[0]->reserved && TouchOf(key).kind != TOUCH_MULTI)))
            continue;
        bool same = set.size() == told.size();
        if (same && set.size() == 1)
            same = Fits(set[0]->state, told[0]);
        if (same && set.size() == 2)
            same = (Fits(set[0]->state, told[0]) && Fits(set[1]->state, told[1])) ||
                   (Fits(set[0]->state, told[1]) && Fits(set[1]->state, told[0]));
        if (!same)
            return text;
    }
    const bool joined = std::any_of(Machine.set.calls.begin(), Machine.set.calls.end(),
                                    [](const SetCall& call) { return call.state == At::Conferenced; });
    if (joined != ConferenceLives())
        return std::string("the set has ") + (joined ? "a" : "no") + " conference, TAPI has " +
               (joined ? "none" : "one");
    return "";
}

void Walker::Compare() {
    if (!Clean || Faulty || !Open || Spoilt != nullptr || !Settle())
        return;
    ++Out.Compared;
    if (std::string wrong = PictureFault(); !wrong.empty())
        Found(wrong);
}

// --- everybody hangs up ------------------------------------------------------------------------------------------------------

void Walker::Quieten() {
    Say("everybody hangs up");
    Machine.faults = {};
    for (int i = 0; i < 60; ++i) {
        if (Machine.set.calls.empty()) {  // presses that wait may seize a line again
            Advance(6000);
            Settle();
            if (Machine.set.calls.empty() && FifoCount(LINK_FIFO) == 0)
                break;
            continue;
        }
        Machine.SetNow(PlatformControl::Now());
        if (!Eq::FarHangsUp(Machine, Machine.set.calls.front().key).empty())
            Eq::PressRelease(Machine);
        Advance(300);
    }
    Machine.set.waiting.clear();
    if (!Machine.set.calls.empty())
        return Wrong("the set does not come to rest");
    if (!Clean || Faulty || !Open || Spoilt != nullptr || TheBook.CloseCame || !Tick.ConfigReceived || Failed())
        return;
    ++Out.Rests;
    if (const std::string wrong = RestFault(); !wrong.empty())
        Found("at rest: " + wrong);
}

std::string Walker::RestFault() {
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (KeyOf(cref) != 0)
            return Text(cref) + " is left";
    for (int key = 1; key < KEY_COUNT; ++key) {
        const Touch& touch = TouchOf(key);
        if (touch.calls[0] != -1 || touch.calls[1] != -1)
            return "key " + std::to_string(key) + " still holds a call";
        if (touch.kind != TOUCH_NONE && touch.icon != IDLE_ICON)
            return "key " + std::to_string(key) + " has icon " + std::to_string(touch.icon);
    }
    for (const TapiCall& call : TheBook.Calls)
        if (call.Is == Life::Alive || (call.Is == Life::Asked && call.Cref != CONF_CREF))
            return "TAPI still has call " + std::to_string(call.Cref) + " " + StateName(call.State);
        else if (call.Is == Life::Asked)
            TheBook.Odd("a conference was asked for and never came");
    if (const TapiRequest* open = TheBook.Open())
        return open->Name + " is open";
    if (Tracking.ActivCallTouch != 0 || Tracking.DbCall != 0)
        return "active key " + std::to_string(Tracking.ActivCallTouch) + ", double call " +
               std::to_string(Tracking.DbCall);
    return "";
}

// The set at rest, the line opened anew and in service: TAPI and set start from the same picture.
void Walker::Resynchronise() {
    Quieten();
    if (Open)
        CloseLine();
    Spoilt = Suspect = nullptr;
    TheBook.Doubt = nullptr;
    SuspectFor = 0;
    Faulty = false;
    OpenLine();
    for (int i = 0; i < 300 && !Tick.ConfigReceived && !Failed(); ++i)
        Advance(TICK);
    if (!Tick.ConfigReceived)
        Wrong("not in service after 30 s");
    Advance(1000);
    Clean = true;
}

}  // namespace Walk
