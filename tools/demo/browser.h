// The set and an application beside it in a browser: for everybody who opens the link.
#pragma once

#include "demo/stage.h"

namespace Demo {

// Shows both at "ADDRESS:PORT" until a signal ends it. Gives the host's status.
int InBrowser(Stage& stage, const std::string& place);

}  // namespace Demo
