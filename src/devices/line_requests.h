// Requests on the line and its calls: the TSPI entry points that ask the set for something. Each checks handles, call
// state and arguments, in that order, keeps what the key presses will need, and hands a RequestCode on to the dispatcher
// by appCall, the one place that allows a request in. At most one asynchronous request is pending at a time.
//
// Completions may reach TAPI before the entry point returns the request's identifier.
#pragma once

#include "platform/platform.h"
#include "provider/state.h"

// Hands a request on. Gives what DispatchRequest gives, LINEERR_RESOURCEUNAVAIL while another one is pending, or, where the
// serial thread had to be started first, the identifier of the request, completed with LINEERR_OPERATIONFAILED.
// request: 0 for a synchronous one. The caller holds the line mutex.
LONG appCall(int cref, int requestCode, ProviderStateRecord& provider, DRV_REQUESTID request);
// The same for a request on two calls.
LONG appCallTransfer(int cref, int consultCref, int requestCode, ProviderStateRecord& provider, DRV_REQUESTID request);

// Replaces the dial parameters by the given ones: a default for 0, else moved into their range.
void ClampDialParams(const LINEDIALPARAMS& given, LINEDIALPARAMS& out);
// Gives 0, LINEERR_DIALPROMPT or LINEERR_DIALBILLING for the first "?" or "$", LINEERR_INVALPOINTER for a text that does
// not fit a number field.
LONG CheckDialString(const char* text);
