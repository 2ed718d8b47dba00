// All news for TAPI passes through here: completions of the pending request, LINE_ events, new calls, PHONE_STATE.
// Beside them a few small operations that several rooms share. All run under the line mutex; TAPI's callbacks are
// therefore called with it held.
#pragma once

#include "provider/state.h"

// The state in which the provider starts, from the result of the last dynamic configuration in the registry.
struct DynamicConfigRecord {
    int LastActionState = 0;    // 0 no dynamic configuration ever, 1 the last one succeeded, 2 it did not
    int WaitDynamicConfig = 1;  // 1: no calls before the dynamic configuration arrives
    int StaticConfig = 0;       // 1: the stored configuration may be used at once
    int WaitTraceMode = 0;      // 1: the tick must wait for the card's trace headers
};
extern DynamicConfigRecord DynamicConfig;

// The cref most recently reported LINECALLSTATE_ONHOLD; -1 at load.
extern int LastHeldCref;

// Completes the pending asynchronous request with a result (0 or LINEERR_). Gives its identifier, 0 if none.
DRV_REQUESTID SendCompletion(ProviderStateRecord& provider, LONG result);

// Completes a request that never became the pending one; that one stays as it is. Nothing for identifier 0.
void CompleteRequest(ProviderStateRecord& provider, DRV_REQUESTID request, LONG result);

// Sends any LINE_ message. cref: 0 to 19 or CONF_CREF for a call, -1 for the line itself. Nothing when the line is
// closed.
void DoLineEvent(DWORD message, DWORD_PTR param1, DWORD_PTR param2, int cref);

// LINE_NEWCALL for a call record; TAPI writes its handle into the record's htCall during the call.
void DoLineEventNewCall(int cref);

// LINE_NEWCALL for the conference call, cref 30.
void DoLineEventNewConf();

// Completes a running lineDrop with 0 when its call is this one, and clears RunningRequest.
void CompleteRunningDrop(int cref);

// Ends the wait of a linePickup whose call is this one, which has shown on a key and gone without an answer: the next line
// seized is not its call.
void ForgetPickUp(int cref);

// Takes the pending request back without completing it: no request is pending or running any more. Gives its identifier,
// 0 if there was none.
DRV_REQUESTID TakePendingRequest();

// Completes whatever request is pending with LINEERR_OPERATIONFAILED: the serial thread that could have ended it is gone, or
// its records are about to start anew.
void FailPendingRequest();

// PHONE_STATE with a PHONESTATE_ value, when the phone is open.
void PhoneStateEvent(DWORD param1, DWORD param2);

// PHONE_STATE with PHONESTATE_DISPLAY.
void PhoneDisplayChanged();

// The first cref 0 to 19 whose state is this LINECALLSTATE_, or -1.
int FindCallByState(DWORD state);

// Clears the port's error state. Gives 0, or -1 for an invalid handle.
int CheckSerialError(HANDLE port);

// Reads a decimal number; other characters are not rejected, an empty text gives 0.
std::uint32_t DigitsToNumber(const char* text);

// Presses one of the soft keys 1 to 5 under the display. Gives the number, or 0 when it is none of them.
int SendSoftKey(int number);

// Reads Dynamic_Set_Conf\LastAction and sets DynamicConfig from it.
void ReadLastAction();
