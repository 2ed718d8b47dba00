// The set as a terminal: its display read, its buttons pressed, for the phone device. Both work at once on what the
// phone's entry points have put into ProviderState, and give 0.
#pragma once

#include "platform/platform.h"

// Fills DisplayBuffer with both display lines, 40 characters each, unterminated. One that is too small is told the size.
LONG ReadPhoneDisplay();
// Presses button ButtonId as the button mode of ButtonInfo says; nothing for any mode but keypad, display and feature.
LONG PressPhoneButton();
