// Reads the set's two display lines after every update and draws from them what the icons do not say: callers, dialled
// numbers, names, answers, second calls. Tests are made on the raw characters; what goes into call records is taken
// from DisplayLine, converted. Called on the serial thread under the line mutex; SoftKeyPosition by requests too.
#pragma once

// line: 0 or 1. p, for line 0: 1 when the segment completes the update and wrote at least one character, else 0.
void InterpretDisplay(int line, int p);

// Reads the caller of the newest offered call (OfferInfoCref, possibly -1), of a waiting or of a just answered one.
void GetCallInformation(int cref);

// The position 1 to 5 of soft-key label `index` (0 to 6) on line 1, or 0 when it is not shown. Traced when found.
int SoftKeyPosition(int index);
