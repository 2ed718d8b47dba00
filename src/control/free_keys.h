// The choice of the key that a new call seizes.
#pragma once

#include "tracking/model.h"

// The first key of the list without a call, with this label if one is given; -1 when there is none. A key on a module that
// the set is not known to have cannot be pressed, and is not chosen.
int FirstFree(const KeyList& keys, const char* label = nullptr);
// The multi-line key that a new call seizes: a free one of the directory number of the call in conversation, else of the
// set's own number, else any free one; -1 when none is free.
int FindFreeMultiLine();
// A free boss key, else secretary key, labelled with the call's DestAddress; -1 when there is none. cref: 0 to 19.
int FindFreeBossSecretaryKey(int cref);
