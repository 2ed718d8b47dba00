// Forwarding and pickup, as service codes. Both change nothing but an idle set: while any call lives they give
// LINEERR_OPERATIONFAILED and press nothing. What they press comes from ProviderState, where the entry points put it.
#pragma once

#include "platform/platform.h"

// Forwards to ForwardDestination. mode: LINEFORWARDMODE_UNCOND, BUSY, NOANSW or BUSYNA. The line is released when the
// PBX acknowledges the new forwarding. Gives 0 or LINEERR_OPERATIONFAILED.
LONG DoForward(DWORD mode);

// Gives 0 or LINEERR_OPERATIONFAILED.
LONG DoCancelForward();

// Picks up a call that rings at PickupAddress; it becomes the call RequestCref. Gives 0, LINEERR_OPERATIONUNAVAIL
// without a service code, or LINEERR_OPERATIONFAILED.
LONG DoPickup();
