// "ztsetup test": the provider's line as an application sees it. What it may and can do, the events as they come, and a
// call. Everything it asks of TAPI is in system.h.
#pragma once

#include "ztsetup/setup.h"

namespace Setup {

// Shows the line's abilities, opens it as a monitor and shows its events until the user stops it, or `seconds` are over
// (0 = never); with a number, makes a call there. Other applications keep their calls.
Outcome TestLine(std::string_view number, std::uint32_t seconds);

}  // namespace Setup
