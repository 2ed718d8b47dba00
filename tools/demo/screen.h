// The set and the host's console on one screen: the user is the user of the set on the left, and an application on the
// right. Drawn with ncurses; the terminal is as it was before, however it ends.
#pragma once

#include "demo/stage.h"

#include <optional>

namespace Demo {

// Gives the host's status; nothing when the terminal is not one that can be drawn on.
std::optional<int> OnScreen(Stage& stage);

}  // namespace Demo
