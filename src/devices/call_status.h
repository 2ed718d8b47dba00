// What the provider knows of a call, of the address and of the line, for the applications that ask:
// TSPI_lineGetCallInfo, TSPI_lineGetCallStatus, TSPI_lineGetAddressStatus, TSPI_lineGetLineDevStatus and
// TSPI_lineGetCallAddressID (declared by the published tspi.h). They change nothing and send nothing to the set.
//
// Call states are not always reported as they are stored: PROCEEDING is told as RINGBACK, STATE_REOFFERING as OFFERING.
// The parties of a call come from the display alone with a PBX of message set version 1, and from its call-information
// events with a later one; lineGetCallInfo has a variant for each.
#pragma once

#include "platform/platform.h"

// The fixed parts of the structures, bytes: what a caller must bring room for. The published ones have grown since:
// never sizeof. Of LINECALLSTATUS nothing of TAPI 2.0 is written, so that its older, shorter form will do.
constexpr DWORD CALLINFO_FIXED = 324;
constexpr DWORD CALLSTATUS_FIXED = 36;
constexpr DWORD ADDRESSSTATUS_FIXED = 64;
constexpr DWORD DEVSTATUS_FIXED = 88;
constexpr DWORD FORWARD_FIXED = 24;
