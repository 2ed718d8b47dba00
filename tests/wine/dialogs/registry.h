// The provider's settings as Windows holds them.
#pragma once

#include <string>

void ClearSettings();
void WriteSetting(const char* section, const char* name, const char* text);
// "(none)" where there is no such text.
std::string ReadSetting(const char* section, const char* name);
