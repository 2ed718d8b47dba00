// What applications have asked for and the set is still to show: the request that is running, and the marks by which
// requests leave work for the tick. Under the line mutex.
#pragma once

#include "provider/state.h"

// What the entry points ask for. The numbers appear in traces.
enum RequestCode : int {
    REQUEST_NONE = 0,
    REQUEST_MAKE_CALL = 1,
    REQUEST_DIAL = 2,
    REQUEST_DROP = 3,
    REQUEST_ANSWER = 5,
    REQUEST_TRANSFER = 6,
    REQUEST_BLIND_TRANSFER = 7,
    REQUEST_HOLD = 8,
    REQUEST_UNHOLD = 9,
    REQUEST_GENERATE_DIGITS = 10,
    REQUEST_CONFERENCE = 11,
    REQUEST_FORWARD_UNCOND = 12,
    REQUEST_FORWARD_CANCEL = 13,
    REQUEST_FORWARD_BUSY = 15,
    REQUEST_FORWARD_NOANSWER = 16,
    REQUEST_FORWARD_BUSYNA = 17,
    REQUEST_PICKUP = 18,
    REQUEST_SETUP_TRANSFER = 19,
    REQUEST_PHONE_DISPLAY = 20,
    REQUEST_PHONE_BUTTON = 21,
};

// The request that completes later, when the set shows its effect.
struct RunningRequestRecord {
    int Code = REQUEST_NONE;
    int Cref = -1;
    int ConsultCref = -1;  // second call of a transfer; of a blind one -1 until the set shows it
    bool Pressed = true;   // false: a drop that waits for its call to end by itself
    int Ticks = 0;
};
extern RunningRequestRecord RunningRequest;
// Counts its time, at every tick. One that the set does not answer (a lost press) fails when that is over: all other
// requests wait for it.
void WatchRunningRequest();

// Completes a running lineDrop with 0 when its call is this one, and clears RunningRequest.
void CompleteRunningDrop(int cref);

// Takes the pending request back without completing it: no request is pending or running any more. Gives its identifier,
// 0 if there was none.
DRV_REQUESTID TakePendingRequest();

// Completes whatever request is pending with LINEERR_OPERATIONFAILED: the serial thread that could have ended it is gone, or
// its records are about to start anew.
void FailPendingRequest();

// What the new state of a call means for the running request: a drop is done when its call is idle; a transfer one of
// whose calls is over can no more be shown by the set, and TAPI must not wait for it, nor be refused all else.
void EndRunningRequest(int cref, DWORD_PTR state);

struct CrefMark {
    bool Set = false;
    int Cref = -1;
};
struct CountMark {
    bool Set = false;
    int Ticks = 0;
};
// Start anew with every serial thread; the make call that was put off is given up before.
struct RequestMarks {
    CrefMark DeferredMakeCall;  // accepted under the stored configuration, before the received one was usable
    CrefMark MakeCallReport;    // a made call whose states are still to be reported
    CountMark MakeCallWatch;    // a made call must light its key within 20 ticks
    CountMark FvTimer;          // soft-key press due after generated digits
    int Ending = -1;  // record of a put-off call that TAPI is told is DISCONNECTED: no new call's before its IDLE
};
extern RequestMarks Marks;

// The make call that was put off is the one of this record.
bool IsPutOff(int cref);
// TAPI is being told that the call of this record is over, such as one at dial tone that a make call waited in: with it
// ends the one that was put off, which is not told of again.
void ForgetPutOff(int cref);
// The make call that was put off will not be made: its application, told that it was accepted, is told DISCONNECTED and
// IDLE. Nothing when none was put off. `next`: the call that takes its place, before TAPI is told: from within that it may
// ask for another. The same call once more, with other digits, is no other one: nothing is told.
void GiveUpDeferredMakeCall(CrefMark next = {});
