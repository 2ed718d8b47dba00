// What this program can be asked to try. Each notes its failures.
#pragma once

void TryConfiguration(const char* library);
void TryBoxes(const char* library);
