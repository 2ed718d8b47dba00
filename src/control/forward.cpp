#include "control/forward.h"

#include "config/settings.h"
#include "control/keys.h"
#include "trace/trace.h"
#include "tracking/steps.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr LONG FAILED = static_cast<LONG>(LINEERR_OPERATIONFAILED);
constexpr int FORWARD_ACK_TICKS = 15;  // 1.5 s for the PBX's acknowledgement

struct ForwardMode {
    DWORD mode;
    CodeIndex code;
};
constexpr ForwardMode Modes[] = {
    {LINEFORWARDMODE_UNCOND, CODE_FORWARDING_IMM},
    {LINEFORWARDMODE_BUSY, CODE_FORWARDING_BUSY},
    {LINEFORWARDMODE_NOANSW, CODE_FORWARDING_NO_REP},
    {LINEFORWARDMODE_BUSYNA, CODE_FORWARDING_BUSY_NO_REP},
};

// The first call that lives; -1 on an idle set.
int LiveCall() {
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (StateOf(cref) != 0 && StateOf(cref) != LINECALLSTATE_IDLE)
            return cref;
    return -1;
}

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

LONG DoForward(DWORD mode) {
    if (const int cref = LiveCall(); cref != -1) {
        Trace(TRACE_ENTRY, "RedirectCallFailed cref:%d,state%lx", cref, StateOf(cref));
        return FAILED;
    }
    const auto* entry = std::find_if(std::begin(Modes), std::end(Modes), [&](auto& m) { return m.mode == mode; });
    if (entry == std::end(Modes))
        return FAILED;
    PressForwarding(entry->code, ProviderState.ForwardDestination);
    return 0;
}

LONG DoCancelForward() {
    if (LiveCall() != -1)
        return FAILED;
    PressForwarding(CODE_CANCEL_FORWARDING, nullptr);
    PressKeyCode(RELEASE_KEY);
    return 0;
}

LONG DoPickup() {
    const char* code = Settings.ServiceCodes[CODE_CALL_PICKUP];
    if (code[0] == 0)
        return static_cast<LONG>(LINEERR_OPERATIONUNAVAIL);
    if (LiveCall() != -1)
        return FAILED;
    Tracking.PickUpCref = ProviderState.RequestCref;
    PressSequence presses;
    presses.ServiceCode(code);
    presses.DialString(ProviderState.PickupAddress);
    presses.Send();
    return 0;
}
