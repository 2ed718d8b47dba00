// Transfer and conference: the presses that carry them out. The two requests that complete later (blind and setup
// transfer) enter RunningRequest themselves, and complete themselves when they fail.
#pragma once

#include "platform/platform.h"

LONG DoBlindTransfer(int cref);
LONG SetupTransfer(int cref, int consultCref);
LONG DoTransfer(int cref, int consultCref);
LONG DoConference(int cref, int consultCref);
