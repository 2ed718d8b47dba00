// Plays the scenes and compares what came with what was expected.
#pragma once

#include "demo/stage.h"

namespace Demo {

// 0 when every step brought exactly its events and the host ended well.
int PlayAll(Stage& stage);

}  // namespace Demo
