// What the provider knows of a call, of the address and of the line, for the applications that ask:
// TSPI_lineGetCallInfo, TSPI_lineGetCallStatus, TSPI_lineGetAddressStatus, TSPI_lineGetLineDevStatus and
// TSPI_lineGetCallAddressID (declared by the published tspi.h). They change nothing and send nothing to the set.
//
// Call states are not always reported as they are stored: PROCEEDING is told as RINGBACK, STATE_REOFFERING as OFFERING.
// The parties of a call come from the display alone with a PBX of message set version 1, and from its call-information
// events with a later one; lineGetCallInfo has a variant for each.
#pragma once

#include "platform/platform.h"
