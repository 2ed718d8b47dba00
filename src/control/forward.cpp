#include "control/forward.h"

#include "config/settings.h"
#include "control/keys.h"
#include "trace/trace.h"
#include "tracking/steps.h"

namespace {

constexpr int FORWARD_ACK_TICKS = 15;  // 1.5 s for the PBX's acknowledgement

// A forwarding code, with a number behind it or none (null).
void PressForwarding(CodeIndex code, char* destination) {
    PressSequence presses;
    const int pressed = presses.ServiceCode(Settings.ServiceCodes[code]);
    if (destination != nullptr)
        presses.DialString(destination);
    presses.Send();
    if (presses.Together || pressed > 0)
        Tracking.ForwardAckTicks = FORWARD_ACK_TICKS;
}

}  // namespace

LONG DoForward(const ForwardingMode& mode) {
    if (const int cref = LiveCall(); cref != -1) {
        Trace(TRACE_ENTRY, "RedirectCallFailed cref:%d,state%lx", cref, StateOf(cref));
        return OPERATION_FAILED;
    }
    PressForwarding(mode.Code, ProviderState.ForwardDestination);
    return 0;
}

LONG DoCancelForward() {
    if (LiveCall() != -1)
        return OPERATION_FAILED;
    PressForwarding(CODE_CANCEL_FORWARDING, nullptr);
    PressKeyCode(RELEASE_KEY);
    return 0;
}

LONG DoPickup() {
    const char* code = Settings.ServiceCodes[CODE_CALL_PICKUP];
    if (code[0] == 0)
        return Error(LINEERR_OPERATIONUNAVAIL);
    if (LiveCall() != -1)
        return OPERATION_FAILED;
    Tracking.PickUpCref = ProviderState.RequestCref;
    PressSequence presses;
    presses.ServiceCode(code);
    presses.DialString(ProviderState.PickupAddress);
    presses.Send();
    return 0;
}
