// All news for TAPI passes through here: completions of the pending request, LINE_ events, new calls, PHONE_STATE.
// All run under the line mutex; TAPI's callbacks are therefore called with it held.
#pragma once

#include "provider/state.h"

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

// PHONE_STATE with a PHONESTATE_ value, when the phone is open.
void PhoneStateEvent(DWORD param1, DWORD param2);

// PHONE_STATE with PHONESTATE_DISPLAY.
void PhoneDisplayChanged();
