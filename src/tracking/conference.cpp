#include "tracking/conference.h"

#include "platform/text.h"
#include "trace/trace.h"
#include "tracking/steps.h"
#include "tracking/terminal.h"  // the raw line 0, where the parties' texts stand

#include <cstring>
#include <string_view>

namespace {

constexpr int PARTY_COLUMNS = 12;        // of each party's text on line 0 ...
constexpr int SECOND_PARTY_COLUMN = 14;  // ... the second one from here

void Connect(int cref, int key, const char* trace) {
    CallOf(cref).state = LINECALLSTATE_CONNECTED;
    SendIfDirected(cref, LINECALLSTATE_CONNECTED);
    Trace(TRACE_CALL, trace, key, cref);
}

// A party joins: state, trace, marker, event.
void Join(int cref, int& party) {
    if (!IsCref(cref))
        return;
    CallOf(cref).state = LINECALLSTATE_CONFERENCED;
    Trace(TRACE_CALL, "Icone:%d  - Etat:CONFERENCED - Ref:%d", CallOf(cref).touch, cref);
    party = cref;
    SendIfDirected(cref, LINECALLSTATE_CONFERENCED);
}

enum class Trigger { Icon, SoftKey, Display };

// The common sequence. `joining` is the party that was on hold, `connected` the other.
void Build(Trigger trigger, int joining, int connected) {
    Tracking.ConfInProgress = 1;
    // Left behind when a key goes out before line 0 says who remained: they would end this conference at its first
    // text.
    Tracking.ConfBroken = 0;
    Tracking.ConfEndReq = 0;
    if (trigger == Trigger::SoftKey || (trigger == Trigger::Icon && Tracking.ConferenceReq == 0))
        DoLineEventNewConf();
    confstate = LINECALLSTATE_ONHOLDPENDCONF;
    SendCallState(CONF_CREF, LINECALLSTATE_ONHOLDPENDCONF);
    Trace(TRACE_CALL, "Etat:LINECALLSTATE_ONHOLDPENDCONF - Ref:%d", CONF_CREF);
    Join(joining, Tracking.ConfParty1);
    Join(connected, Tracking.ConfParty2);
    if (trigger == Trigger::Display)
        Trace(TRACE_CALL, "confstate %lx - Ref:%04x", confstate, CONF_CREF);
    confstate = LINECALLSTATE_CONNECTED;
    SendCallState(CONF_CREF, LINECALLSTATE_CONNECTED);
    Trace(TRACE_CALL, "Etat:LINECALLSTATE_CONNECTED - Ref:%d", CONF_CREF);
    Tracking.ConferenceReq = 0;
}

// Soft key 1: the user ends the call in conversation, the held one is connected again.
void EndSecondCall() {
    const int active = Tracking.ActivCallTouch;
    if (const int cref = OnActive(LINECALLSTATE_CONNECTED); cref != -1) {
        Trace(TRACE_CALL, "Icone:%d  - Etat:DISCONNECTED - Ref:%d", active, cref);
        DisconnectIfDirected(cref);
    }
    if (const int held = OnActive(LINECALLSTATE_ONHOLD); held != -1) {
        CallOf(held).state = LINECALLSTATE_CONNECTED;
        Trace(TRACE_CALL, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 14", active, held);
        SendIfDirected(held, LINECALLSTATE_CONNECTED);
    }
    if (const int ended = OnActive(LINECALLSTATE_DISCONNECTED); ended != -1) {
        Trace(TRACE_CALL, "Icone:%d  - Etat:IDLE - Ref:%d", active, ended);
        Tracking.DbCall = 0;
        EndCallIfDirected(ended, active);
    }
}

// Soft key 2: both are found before either changes.
void SwapCalls() {
    const int connected = OnActive(LINECALLSTATE_CONNECTED);
    const int held = OnActive(LINECALLSTATE_ONHOLD);
    if (connected != -1) {
        CallOf(connected).state = LINECALLSTATE_ONHOLD;
        Trace(TRACE_CALL, "Icone:%d  - Etat:ONHOLD - Ref:%d", Tracking.ActivCallTouch, connected);
        SendIfDirected(connected, LINECALLSTATE_ONHOLD);
    }
    if (held != -1)
        Connect(held, Tracking.ActivCallTouch, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 15");
}

// A zero byte that the set shows among others ends neither the line nor the text. An emptied text stands in every line.
bool StandsOnLine0(const char (&text)[PARTY_COLUMNS + 1]) {
    std::string_view party(text, PARTY_COLUMNS);
    party = party.substr(0, party.find_last_not_of('\0') + 1);
    return std::string_view(Display.Lines[0], DISPLAY_COLUMNS).find(party) != std::string_view::npos;
}

// A conference of two calls on one line comes down to one: `left` goes, `stays` is connected again.
void OneStays(int stays, int left, const char* trace) {
    const int active = Tracking.ActivCallTouch;
    if (IsCref(stays))
        Connect(stays, active, trace);
    if (IsCref(left)) {
        DisconnectIfDirected(left);
        Trace(TRACE_CALL, "Icone:%d  - Etat:DISCONNECTED - Ref:%d", active, left);
    }
    ConferenceReset();
    Tracking.DbCall = 0;
    Tracking.ConfBroken = 0;
    if (!IsCref(left))
        return;
    EndCallIfDirected(left, active);
    Trace(TRACE_CALL, "Icone:%d  - Etat:IDLE - Ref:%d", active, left);
}

void PartyOnAnotherKeyLeft(int key, int cref) {
    const int active = Tracking.ActivCallTouch;
    Trace(TRACE_CALL, "* Fin de la conférence icon %d idle conferenced activtou %d*"_cp1252, key, active);
    CallOf(cref).state = LINECALLSTATE_DISCONNECTED;
    Tracking.ConfInProgress = 0;
    Tracking.ConferenceReq = 0;
    confstate = LINECALLSTATE_IDLE;
    TouchOf(key).icon = IDLE_ICON;
    SendCallState(CONF_CREF, LINECALLSTATE_IDLE);
    SendIfDirected(cref, LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NORMAL);
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:DISCONNECTED - Ref:%d"_cp1252, key, cref);
    EndCallIfDirected(cref, key);
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:IDLE - Ref:%d"_cp1252, key, cref);
    const int remaining = SearchState(active, LINECALLSTATE_CONFERENCED);
    if (remaining != -1)
        Connect(remaining, active, "Icone:%d - Etat:CONNECTED - Ref:%d cas 1");
    if (ProviderState.TAPI_OMNA_Ver == 1 && remaining != -1)
        ResetCallRecord(remaining);
}

void BothPartiesOnOneKeyLeft(int key) {
    Trace(TRACE_CALL, "* Fin de la conférence sur une touche. icon %d *"_cp1252, key);
    const auto calls = TouchOf(key).calls;
    for (const int cref : calls) {
        Disconnect(cref);
    }
    Tracking.DbCall = 0;
    Tracking.ActivCallTouch = 0;
    TouchOf(key).icon = IDLE_ICON;
    for (const int cref : calls)
        EndCall(cref, key);
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:IDLE - Ref:%d"_cp1252, key, CONF_CREF);
    confstate = LINECALLSTATE_IDLE;
    ConferenceReset();
    SendCallState(CONF_CREF, LINECALLSTATE_IDLE);
}

void ActiveKeyLeft(int key, int cref) {
    Trace(TRACE_CALL, "* Fin de la conférence icon %d (= activtou) idle conferenced *"_cp1252, key);
    SendCallState(CONF_CREF, LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NORMAL);
    Tracking.ConfInProgress = 0;
    Tracking.ConferenceReq = 0;
    confstate = LINECALLSTATE_IDLE;
    SendCallState(CONF_CREF, LINECALLSTATE_IDLE);
    DisconnectIfDirected(cref);
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:DISCONNECTED - Ref:%d"_cp1252, key, cref);
    TouchOf(key).icon = IDLE_ICON;
    if (const int remaining = FindCallByState(LINECALLSTATE_CONFERENCED); remaining == -1) {
        Trace(TRACE_CALL, "Problème d'état xA ..."_cp1252);
    } else {
        CallOf(remaining).state = LINECALLSTATE_CONNECTED;
        Tracking.ActivCallTouch = CallOf(remaining).touch;
        SendIfDirected(remaining, LINECALLSTATE_CONNECTED);
        Trace(TRACE_CALL, "Icone:%d - Etat:CONNECTED - Ref:%d cas 2", Tracking.ActivCallTouch, remaining);
    }
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:IDLE - Ref:%d"_cp1252, key, cref);
    EndCallIfDirected(cref, key);
    Trace(TRACE_CALL, "Icone:%d éteint - Etat:IDLE - Ref:%d"_cp1252, key, cref);
}

}  // namespace

void SoftKeyPressed(int number) {
    if (Tracking.DbCall == 0)
        return;
    const bool pair = StatesOn(Tracking.ActivCallTouch) == CONNECTED_HELD;
    switch (number) {
    case 1:
        if (pair)
            EndSecondCall();
        break;
    case 2:
        if (pair)
            SwapCalls();
        break;
    case 3:
        if (pair) {
            Trace(TRACE_CALL, "Passage en conférence par appui sur soft key"_cp1252);
            Build(Trigger::SoftKey, OnActive(LINECALLSTATE_ONHOLD), OnActive(LINECALLSTATE_CONNECTED));
        } else if (Tracking.ConfInProgress != 0) {
            Trace(TRACE_CALL, "* !Conf enfoncée *"_cp1252);
            Tracking.ConfEndReq = 1;
        }
        break;
    default: break;
    }
}

void ConferenceByIcon(int cref, int key) {
    Build(Trigger::Icon, cref, SearchState(Tracking.ActivCallTouch, LINECALLSTATE_CONNECTED));
    if (!IsKey(key))
        return;
    TouchOf(key).icon = ACTIV_ICON;
    Tracking.ActivCallTouch = key;
}

void ConferenceByDisplay() {
    Trace(TRACE_CALL, "Passage en conference - double appel sur une ligne");
    Build(Trigger::Display, OnActive(LINECALLSTATE_ONHOLD), OnActive(LINECALLSTATE_CONNECTED));
}

void ConferenceCapture() {
    const char* line = Display.Lines[0];
    std::memcpy(ConfText1, line, PARTY_COLUMNS);
    ConfText1[PARTY_COLUMNS] = 0;
    std::memcpy(ConfText2, line + SECOND_PARTY_COLUMN, PARTY_COLUMNS);
    ConfText2[PARTY_COLUMNS] = 0;
    Trace(TRACE_CALL, "Passage en conference detecte par display 0");
}

void ConferenceBroken() {
    if (Tracking.ConfEndReq != 0)
        return;
    Trace(TRACE_CALL, "* La conf a ete cassee par un interlocuteur *");
    Tracking.ConfBroken = 1;
}

bool ConferenceWhoLeft() {
    if (!BothConferenced()) {
        Trace(TRACE_CALL, "Pb de detection de string");
        return false;
    }
    Trace(TRACE_CALL, "* On detecte qui a casse la conf *");
    Tracking.ConferenceReq = 0;
    SendCallState(CONF_CREF, LINECALLSTATE_IDLE);
    if (StandsOnLine0(ConfText1)) {
        Trace(TRACE_CALL, "Detection du premier");
        OneStays(Tracking.ConfParty1, Tracking.ConfParty2, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 11");
        return true;
    }
    if (StandsOnLine0(ConfText2)) {
        Trace(TRACE_CALL, "Detection du second");
        OneStays(Tracking.ConfParty2, Tracking.ConfParty1, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 12");
        return true;
    }
    Trace(TRACE_CALL, "Pb de detection de string");
    return false;
}

void ConferenceEndRequested() {
    if (BothConferenced()) {
        const int active = Tracking.ActivCallTouch;
        const int stays = Tracking.ConfParty1, left = Tracking.ConfParty2;
        Trace(TRACE_CALL, "Fin de conference");
        Tracking.ConferenceReq = 0;
        Tracking.ConfInProgress = 0;
        SendCallState(CONF_CREF, LINECALLSTATE_IDLE);
        if (IsCref(left)) {
            DisconnectIfDirected(left);
            Trace(TRACE_CALL, "Icone:%d  - Etat:DISCONNECTED - Ref:%d", active, left);
        }
        if (IsCref(stays))
            Connect(stays, active, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 13");
        Tracking.DbCall = 0;
        Tracking.ConfEndReq = 0;
        if (IsCref(left)) {
            EndCallIfDirected(left, active);
            Trace(TRACE_CALL, "Icone:%d  - Etat:IDLE - Ref:%d", active, left);
        }
    }
    Trace(TRACE_CALL, "Pb de detection de string");
}

void ConferenceEndOnKey(int key, int slotNumber) {
    if (!IsKey(key) || slotNumber < 0 || slotNumber > 1)
        return;
    const auto slot = static_cast<std::size_t>(slotNumber);
    const int cref = TouchOf(key).calls[slot];
    if (!IsCref(cref))
        return;
    const int other = TouchOf(key).calls[1];
    if (key != Tracking.ActivCallTouch)
        PartyOnAnotherKeyLeft(key, cref);
    else if (slot == 0 && IsCref(other) && CallOf(other).state == LINECALLSTATE_CONFERENCED)
        BothPartiesOnOneKeyLeft(key);
    else
        ActiveKeyLeft(key, cref);
}
