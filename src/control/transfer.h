// Transfer and conference, as presses of soft keys and line keys: what a user presses depends on how many calls there
// are, in which states, and whether two of them share a line. The set's answer moves the calls.
#pragma once

#include "platform/platform.h"

// Dials the call's DestAddress from the conversation; the display interpretation presses the transfer soft key when the
// set shows it, and completes the request. Gives 0, or the error with which it has itself completed the request.
LONG DoBlindTransfer(int cref);

// Starts the consultation call. The request is completed when that call has its dial tone. Gives 0, or the error with
// which it has itself completed the request.
LONG SetupTransfer(int cref, int consultCref);

// Connects the two calls' parties to each other. Gives 0 or LINEERR_OPERATIONFAILED; completes nothing.
LONG DoTransfer(int cref, int consultCref);

// Joins both calls. Gives 0 or LINEERR_OPERATIONFAILED; completes nothing.
LONG DoConference(int cref, int consultCref);
