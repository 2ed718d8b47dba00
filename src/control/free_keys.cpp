#include "control/free_keys.h"

#include "config/settings.h"
#include "link/keys.h"
#include "trace/trace.h"
#include "tracking/steps.h"

#include <cstring>

namespace {

bool IsFree(int key) {
    return TouchOf(key).calls[0] == -1 && TouchOf(key).calls[1] == -1 && key != Tracking.RingingKey;
}

// The set has the key: one of its own, or one above the offset of a module that it has.
bool CanPress(int key) {
    if (key <= SET_KEYS)
        return true;
    const int entry = GetAomIndex(key);
    return entry >= 0 && key > AomTable[static_cast<std::size_t>(entry)].offset;
}

}  // namespace

int FirstFree(const KeyList& keys, const char* label) {
    for (const int key : keys)
        if (IsFree(key) && CanPress(key) && (label == nullptr || std::strcmp(TouchOf(key).label, label) == 0))
            return key;
    return -1;
}

int FindFreeMultiLine() {
    const int connected = FindCallByState(LINECALLSTATE_CONNECTED);
    if (connected != -1 && IsKey(CallOf(connected).touch)) {
        const int key = FirstFree(KeyLists.Multi, TouchOf(CallOf(connected).touch).label);
        if (key != -1) {
            Trace(TRACE_CALL, "FindFreeMultiLine tou %d (type analogue a cref %04x CONNECTED)", key, connected);
            return key;
        }
    }
    const int own = FirstFree(KeyLists.Multi, Settings.SetMCDU);
    if (own != -1) {
        Trace(TRACE_CALL, "FindFreeMultiLine tou %d (mcdu principal)", own);
        return own;
    }
    const int any = FirstFree(KeyLists.Multi);
    if (any == -1) {
        Trace(TRACE_CALL, " pas de tou mcdu principal libre, ni tou mcdu secondaire libre");
        return -1;
    }
    Trace(TRACE_CALL, " pas de tou mcdu principal libre, rech tou mcdu secondaire");
    Trace(TRACE_CALL, "FindFreeMultiLine tou %d (mcdu secondaire)", any);
    return any;
}

int FindFreeBossSecretaryKey(int cref) {
    const char* number = CallOf(cref).DestAddress;
    const int boss = FirstFree(KeyLists.Patron, number);
    if (boss != -1) {
        Trace(TRACE_CALL, "Tou Pat '%s' libre trouve tou %d", number, boss);
        return boss;
    }
    const int secretary = FirstFree(KeyLists.Secretaire, number);
    if (secretary != -1)
        Trace(TRACE_CALL, "Tou Sec '%s' libre trouve tou %d", number, secretary);
    return secretary;
}
