// The icon machine of the multi-line, boss, secretary and secretary-overflow keys: each change of a key's icon becomes
// changes of the model and LINE_NEWCALL and LINE_CALLSTATE events. Supervision keys are passed on to supervision.h.
// Called by the terminal decoding, on the serial thread, under the line mutex.
#pragma once

// icon: an IconCode; key: 0 to 88.
void MultiIcon(int icon, int key);
