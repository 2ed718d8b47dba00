// The line device: what the other entry points of line and call share. The TSPI_line entry points themselves are
// declared by the published tspi.h.
#pragma once

#include "platform/platform.h"
#include "provider/process.h"

#include <cstdint>

// The one set of call states that this line knows: IDLE, OFFERING, DIALTONE, DIALING, RINGBACK, BUSY, CONNECTED,
// PROCEEDING, ONHOLD, CONFERENCED, ONHOLDPENDCONF, ONHOLDPENDTRANSFER, DISCONNECTED.
constexpr DWORD LINE_CALL_STATES = 0x7F7B;

// The cref that a call handle names: 0 to 19, or 30 for the conference. Any other handle gives a number of 20 or more
// that is not 30. The high bits are ignored.
int HdCallToCref(HDRVCALL call);

// The handle of a call.
inline HDRVCALL CallHandle(int cref) {
    return reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(cref));
}

// Whether this is the handle that TSPI_lineOpen gave.
bool IsLineHandle(HDRVLINE line);

// What the opens of line and phone share. BeginOpen counts the open, starts the records anew from the second one on, and
// gives 0, or LINEERR_REINIT while the provider must be restarted first. FinishOpen starts the serial thread and gives 0,
// or LINEERR_ALLOCATED, after the trace, when the port is not open.
LONG BeginOpen();
LONG FinishOpen(const char* failureTrace);

// The whole of it; `keep` stores what TAPI has given, for the ticks of a thread that runs for the other device to find.
template <class Keep> LONG OpenDevice(const char* failureTrace, Keep keep) {
    const bool shared = EnterIfShared();
    const LONG refused = BeginOpen();
    if (refused == 0)
        keep();
    LeaveIfShared(shared);
    return refused == 0 ? FinishOpen(failureTrace) : refused;
}

// Bytes that a wide text takes in a structure, terminator included.
DWORD WideSize(const WCHAR* text);
