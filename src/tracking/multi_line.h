// The icon machine of the multi-line, boss, secretary and secretary-overflow keys: each change of a key's icon becomes
// changes of the model and LINE_NEWCALL and LINE_CALLSTATE events. Supervision keys are passed on to supervision.h.
// Called by the terminal decoding, on the serial thread, under the line mutex.
//
// The icon that is stored for a key, and what moves it:
//
//         +----------- a call comes to stand on it -----------+
//         |                                                   v
//       IDLE ---- rings ----> INCOM ---- answered ------> ACTIV <---- taken back ----+
//                             ^   ^                       |   |                      |
//                             |   +---- rings again ------+   +-------- held ----> HOLD
//                             |                                                      |
//                             +--------------------- calls back ---------------------+
//
//       each of them ---- goes out, its calls have ended ----> IDLE
//
// RESERVED_ICON is shown by the set, never stored: the call has ended, and the key is not free yet.
#pragma once

// icon: an IconCode; key: 0 to 88.
void MultiIcon(int icon, int key);
