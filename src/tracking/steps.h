// What the state machines of this room share: checked access to the tables, and the few moves that many steps make.
#pragma once

#include "tracking/events.h"
#include "tracking/model.h"

#include <algorithm>
#include <span>

inline bool IsKey(int key) {
    return key >= 0 && key < KEY_COUNT;
}

// Only for a cref for which IsCref holds.
inline CallRecord& CallOf(int cref) {
    return CallTable[static_cast<std::size_t>(cref)];
}

// Only for a key for which IsKey holds.
inline Touch& TouchOf(int key) {
    return TouchTable[static_cast<std::size_t>(key)];
}

// The state of a call; 0 for a cref that names none.
inline DWORD StateOf(int cref) {
    return IsCref(cref) ? CallOf(cref).state : 0;
}

// The key that a call stands on; 0, which carries no calls, for a cref that names none.
inline int KeyOf(int cref) {
    return IsCref(cref) ? CallOf(cref).touch : 0;
}

inline bool IsBossOrSecretary(int key) {
    return IsKey(key) && (TouchOf(key).kind == TOUCH_PATRON || TouchOf(key).kind == TOUCH_SECRETAIRE);
}

// The state that a call has until TAPI has been told of its end: from within what it is told before that it may make a
// call, which takes the record of one at dial tone.
inline DWORD Kept(DWORD state) {
    return state == LINECALLSTATE_DIALTONE ? DWORD{LINECALLSTATE_DIALING} : state;
}

// The first call that lives; -1 on an idle set.
inline int LiveCall() {
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (CallOf(cref).state != 0 && CallOf(cref).state != LINECALLSTATE_IDLE)
            return cref;
    return -1;
}

inline void SendCallState(int cref, DWORD state, DWORD mode = 0) {
    DoLineEvent(LINE_CALLSTATE, state, mode, cref);
}

// The event, only for a call with a direction.
inline void SendIfDirected(int cref, DWORD state, DWORD mode = 0) {
    if (CallOf(cref).HasDirection())
        SendCallState(cref, state, mode);
}

// The call is over, but still shown.
inline void Disconnect(int cref) {
    CallOf(cref).state = LINECALLSTATE_DISCONNECTED;
    SendCallState(cref, LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NORMAL);
}
inline void DisconnectIfDirected(int cref) {
    CallOf(cref).state = LINECALLSTATE_DISCONNECTED;
    SendIfDirected(cref, LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NORMAL);
}

inline void ClearDirection(int cref) {
    CallOf(cref).Inbound = CallOf(cref).Outbound = CallOf(cref).byMakeCall = 0;
}

// How every call ends: the record and the slot of `key` that holds it are freed, then TAPI is told IDLE. From within the
// callback, or the completion of the call's drop, TAPI may make its next call, with this record and on this key: behind it
// nothing of the call, its key's icon, DbCall or ActivCallTouch is written any more.
void EndCall(int cref, int key);
// The same, IDLE only for a call with a direction.
void EndCallIfDirected(int cref, int key);
// The first half alone, for the steps that leave the record its direction.
void FreeCall(int cref, int key);

// The set shows the consultation call of the running lineSetupTransfer on this key: completes the request and gives the
// call, now at dial tone there; -1 when the request names none. `stand` puts it into the key's slots.
int EndSetupTransfer(int key, void (*stand)(int key, int cref));

// A key has gone out: the call in it is DISCONNECTED, and ends. Reported whatever its direction.
void ReportGone(int key, int cref);
void EndGone(int key, int cref);

// The bitwise OR of the states of the calls on a key; an empty slot, or no key, counts as 0.
inline DWORD StatesOn(int key) {
    DWORD states = 0;
    if (IsKey(key))
        for (const int cref : TouchOf(key).calls)
            states |= StateOf(cref);
    return states;
}

inline bool HoldsTwoCalls(int key) {
    return IsKey(key) && TouchOf(key).calls[0] != -1 && TouchOf(key).calls[1] != -1;
}

// Puts a call alone on a key. The key that it came from lets go of it and waits for its next call: it goes out by itself,
// and would end the call where it stands now. A supervision key keeps its call, which it knows for intercepted by that.
void StandOnKey(int key, int cref);

// States of two calls together.
constexpr DWORD CONNECTED_HELD = LINECALLSTATE_CONNECTED | LINECALLSTATE_ONHOLD;
constexpr DWORD CONNECTED_REOFFERED = LINECALLSTATE_CONNECTED | STATE_REOFFERING;
constexpr DWORD PROCEEDING_HELD = LINECALLSTATE_PROCEEDING | LINECALLSTATE_ONHOLD;

// Both calls of the active key are parties of the conference.
inline bool BothConferenced() {
    const auto& calls = TouchOf(Tracking.ActivCallTouch).calls;
    return StateOf(calls[0]) == LINECALLSTATE_CONFERENCED && StateOf(calls[1]) == LINECALLSTATE_CONFERENCED;
}

// SearchState on the active key.
inline int OnActive(DWORD state) {
    return SearchState(Tracking.ActivCallTouch, state);
}

// The calls that were offered without a caller and wait for it: one entry for each multi-line key.
inline std::span<int> WaitEntries() {
    return std::span(WaitInfo).first(std::min(static_cast<std::size_t>(KeyLists.Multi.Count), WaitInfo.size()));
}

// Nothing when all entries are taken.
inline void WaitForCaller(int cref) {
    if (const auto entry = std::find(WaitInfo.begin(), WaitInfo.end(), -1); entry != WaitInfo.end())
        *entry = cref;
}

// False for a call that does not wait.
inline bool StopWaitingForCaller(int cref) {
    const auto entries = WaitEntries();
    const auto entry = std::find(entries.begin(), entries.end(), cref);
    if (entry == entries.end())
        return false;
    *entry = -1;
    return true;
}
