#include "control/forward.h"

#include "config/settings.h"
#include "link/keys.h"
#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/pending.h"
#include "tracking/steps.h"

namespace {

constexpr LONG UNAVAILABLE = Error(LINEERR_OPERATIONUNAVAIL);
constexpr int FORWARD_ACK_TICKS = 15;  // 1.5 s for the PBX's acknowledgement

// A forwarding code, with a number behind it or none (null). Without the code the number alone would be called.
LONG PressForwarding(CodeIndex index, char* destination) {
    const char* code = Settings.ServiceCodes[index];
    if (!IsServiceCode(code))
        return UNAVAILABLE;
    PressSequence presses;
    presses.ServiceCode(code);
    if (destination != nullptr)
        presses.DialString(destination);
    presses.Send();
    Tracking.ForwardAckTicks = FORWARD_ACK_TICKS;
    return 0;
}

}  // namespace

LONG DoForward(const ForwardingMode& mode) {
    if (const int cref = LiveCall(); cref != -1) {
        Trace(TRACE_ENTRY, "RedirectCallFailed cref:%d,state%lx", cref, StateOf(cref));
        return OPERATION_FAILED;
    }
    return PressForwarding(mode.Code, ProviderState.ForwardDestination);
}

LONG DoCancelForward() {
    if (LiveCall() != -1)
        return OPERATION_FAILED;
    const LONG result = PressForwarding(CODE_CANCEL_FORWARDING, nullptr);
    if (result == 0)
        PressKeyCode(RELEASE_KEY);
    return result;
}

LONG DoPickup() {
    const char* code = Settings.ServiceCodes[CODE_CALL_PICKUP];
    if (!IsServiceCode(code))
        return UNAVAILABLE;
    if (LiveCall() != -1)
        return OPERATION_FAILED;
    if (IsPutOff(ProviderState.RequestCref))  // the picked-up call will stand in its record
        GiveUpDeferredMakeCall();
    Tracking.PickUpCref = ProviderState.RequestCref;
    PressSequence presses;
    presses.ServiceCode(code);
    presses.DialString(ProviderState.PickupAddress);
    presses.Send();
    return 0;
}
