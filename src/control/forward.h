// Forwarding and pickup, as service codes. Both change nothing but an idle set: while any call lives they give
// LINEERR_OPERATIONFAILED and press nothing; nor do they where the PBX gave no service code for it, with
// LINEERR_OPERATIONUNAVAIL. What they press comes from ProviderState, where the entry points put it.
#pragma once

#include "config/settings.h"
#include "platform/platform.h"
#include "tracking/pending.h"

#include <array>

// The kinds of forwarding, in the order that FwdStatus numbers them.
struct ForwardingMode {
    DWORD Mode;  // LINEFORWARDMODE_
    RequestCode Request;
    CodeIndex Code;  // of Settings.ServiceCodes
    const char *EntryTrace, *RequestTrace;
};
inline constexpr std::array<ForwardingMode, 4> ForwardingModes{{
    // clang-format off
    {LINEFORWARDMODE_UNCOND, REQUEST_FORWARD_UNCOND,   CODE_FORWARDING_IMM,         "TSPI_lineForward - LINEFORWARDMODE_UNCOND", "Renvoi(%s) - LINEFORWARDMODE_UNCOND"},
    {LINEFORWARDMODE_BUSY,   REQUEST_FORWARD_BUSY,     CODE_FORWARDING_BUSY,        "TSPI_lineForward - LINEFORWARDMODE_BUSY",   "Renvoi(%s) - LINEFORWARDMODE_BUSY"},
    {LINEFORWARDMODE_NOANSW, REQUEST_FORWARD_NOANSWER, CODE_FORWARDING_NO_REP,      "TSPI_lineForward - LINEFORWARDMODE_NOANSW", "Renvoi(%s) - LINEFORWARDMODE_NOANSW"},
    {LINEFORWARDMODE_BUSYNA, REQUEST_FORWARD_BUSYNA,   CODE_FORWARDING_BUSY_NO_REP, "TSPI_lineForward - LINEFORWARDMODE_BUSYNA", "Renvoi(%s) - LINEFORWARDMODE_BUSYNA"},
    // clang-format on
}};

// Forwards to ForwardDestination. The line is released when the PBX acknowledges the new forwarding.
LONG DoForward(const ForwardingMode& mode);

LONG DoCancelForward();

// Picks up a call that rings at PickupAddress; it becomes the call RequestCref.
LONG DoPickup();
