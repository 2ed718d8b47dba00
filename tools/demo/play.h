// Plays the scenes and compares what came with what was expected.
#pragma once

#include "demo/stage.h"

namespace Demo {

// 0 when every step brought exactly its events and the host ended well.
int PlayAll(Stage& stage);

// The scenes as lines of fields with tabs between them, for who plays them another way:
//
//     scene TITLE
//     step TITLE SET APPLICATION SHOWS LIMIT-MS CONFIGURES ANSWERS, the last two 0 or 1, line feeds in SHOWS as "\\n"
//     expect EVENT, those of the step before
void PrintScenes();

}  // namespace Demo
