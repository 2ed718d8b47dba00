// Drop, answer, hold and unhold: the presses that carry them out.
#pragma once

#include "platform/platform.h"

LONG DoClearCall(int cref);
LONG DoAnswer(int cref);
LONG DoHoldCall(int cref);
LONG DoUnholdCall(int cref);
