// Makes a call: chooses the key that it seizes, presses that and the digits, and enters the call as PROCEEDING. Called by
// the dispatcher, and by the tick for a call that had to wait for the set's configuration.
#pragma once

#include "platform/platform.h"

// requestCode: REQUEST_MAKE_CALL, or REQUEST_DIAL for digits alone into the call that has dial tone. Gives 0,
// LINEERR_OPERATIONUNAVAIL (no port) or LINEERR_OPERATIONFAILED. The failure of a call that was accepted earlier is always
// told by its IDLE.
LONG DoMakeCall(int cref, int requestCode, bool accepted = false);
