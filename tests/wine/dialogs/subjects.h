// What this program can be asked to try. Each notes its failures.
#pragma once

#include <string>

void TryConfiguration(const char* library);
void TryBoxes(const char* library);
// An error box that is shown: its text, sign and one button, which ends it.
void TryBox(const std::string& name, const char* text);
