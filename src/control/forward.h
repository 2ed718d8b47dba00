// Forwarding and pickup: the service codes that carry them out.
#pragma once

#include "platform/platform.h"

LONG DoForward(DWORD mode);
LONG DoCancelForward();
LONG DoPickup();
