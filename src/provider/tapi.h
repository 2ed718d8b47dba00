// What every room that answers TAPI needs: results as they are returned, and the fixed parts of TAPI's structures.
#pragma once

#include "platform/platform.h"

constexpr DWORD TAPI_VERSION = 0x00020000;

// A published error as an entry point or a handler gives it.
constexpr LONG Error(DWORD code) {
    return static_cast<LONG>(code);
}
constexpr LONG OPERATION_FAILED = Error(LINEERR_OPERATIONFAILED);

// The fixed parts of the structures of TAPI 2.0, bytes: what a caller must bring room for. The published ones have grown
// since: never sizeof. Of LINECALLSTATUS nothing of TAPI 2.0 is written, so that its older, shorter form will do.
constexpr DWORD DEVCAPS_FIXED = 252;
constexpr DWORD ADDRESSCAPS_FIXED = 228;
constexpr DWORD CALLINFO_FIXED = 324;
constexpr DWORD CALLSTATUS_FIXED = 36;
constexpr DWORD ADDRESSSTATUS_FIXED = 64;
constexpr DWORD DEVSTATUS_FIXED = 88;
constexpr DWORD PHONECAPS_FIXED = 180;
constexpr DWORD VARSTRING_FIXED = 24;
constexpr DWORD FORWARDLIST_FIXED = 8;
constexpr DWORD FORWARD_FIXED = 24;

// Milliseconds: dwDialPause, dwDialSpeed, dwDigitDuration, dwWaitForDialtone.
constexpr LINEDIALPARAMS MIN_DIAL_PARAMS{0, 50, 50, 1000};
constexpr LINEDIALPARAMS MAX_DIAL_PARAMS{255000, 255, 255, 255000};
constexpr LINEDIALPARAMS DEFAULT_DIAL_PARAMS{2000, 95, 95, 60000};
