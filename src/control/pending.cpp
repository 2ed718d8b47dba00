// Stands in for the handlers that are not there yet: every one of them refuses.
#include "control/call_keys.h"
#include "control/forward.h"
#include "control/transfer.h"

namespace {

constexpr LONG UNAVAILABLE = static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);

}  // namespace

LONG DoBlindTransfer(int) {
    return UNAVAILABLE;
}
LONG SetupTransfer(int, int) {
    return UNAVAILABLE;
}
LONG DoTransfer(int, int) {
    return UNAVAILABLE;
}
LONG DoConference(int, int) {
    return UNAVAILABLE;
}
LONG DoClearCall(int) {
    return UNAVAILABLE;
}
LONG DoAnswer(int) {
    return UNAVAILABLE;
}
LONG DoHoldCall(int) {
    return UNAVAILABLE;
}
LONG DoUnholdCall(int) {
    return UNAVAILABLE;
}
LONG DoForward(DWORD) {
    return UNAVAILABLE;
}
LONG DoCancelForward() {
    return UNAVAILABLE;
}
LONG DoPickup() {
    return UNAVAILABLE;
}
