// The user plays both sides: the set, and an application.
#pragma once

#include "demo/stage.h"

namespace Demo {

// On one screen when input and output are a terminal that can be drawn on; else line by line. Gives the host's status.
int Interactive(Stage& stage);

}  // namespace Demo
