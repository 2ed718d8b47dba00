// Texts between the console (UTF-8) and the provider (UTF-16, or Windows-1252 where it says so).
#pragma once

#include "platform/platform.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Tsphost {

using WideString = std::basic_string<WCHAR>;

// Both end at the first terminator, or after `length`.
std::string FromWide(const WCHAR* text, std::size_t length);
std::string FromAnsi(const char* text, std::size_t length);
WideString ToWide(const std::string& text);

std::string Hex(std::uintptr_t value);

}  // namespace Tsphost
