// Drop, answer, hold and unhold, as key presses. The set's answer moves the calls, except for the swap of a double call,
// which shows on no key: its new states are set and reported at once.
#pragma once

#include "platform/platform.h"

// Drops a call (0 to 19), or the conference (CONF_CREF), whose two parties stay connected to each other. Gives 0; a
// positive value when nothing was pressed and the call ends by itself; LINEERR_INVALCALLSTATE or
// LINEERR_OPERATIONUNAVAIL.
LONG DoClearCall(int cref);

// Gives 0, or LINEERR_INVALCALLSTATE for a call that does not ring.
LONG DoAnswer(int cref);

// Gives 0, or LINEERR_INVALCALLSTATE for a call that is not connected.
LONG DoHoldCall(int cref);

// Takes a held call back. Gives 0; LINEERR_INVALCALLSTATE for a call that is not held, or not beside a connected one in
// a double call; LINEERR_OPERATIONFAILED.
LONG DoUnholdCall(int cref);
