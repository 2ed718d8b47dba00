// Digits sent as tones into a conversation. The set sends tones while its voice-frequency mode is on; one soft key turns
// that on, another ("FV!" in the traces) turns it off, which the tick does four seconds after the last digits.
#pragma once

#include "platform/platform.h"

// Sends the call's DigitsToGenerate; an empty text ends the voice-frequency mode. Gives 0 or LINEERR_OPERATIONFAILED.
LONG DoGenerateDigits(int cref);
