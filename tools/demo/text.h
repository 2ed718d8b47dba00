// Texts on a screen: UTF-8, a column for each character.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Demo {

std::size_t Columns(const std::string& text);
// Filled with blanks to `width` columns; longer ones stay as they are.
std::string Padded(std::string text, std::size_t width);
// The first `width` columns.
std::string Start(const std::string& text, std::size_t width);
// In lines of at most `width` columns, broken at blanks where there are some; all but the first are indented.
std::vector<std::string> Wrapped(const std::string& text, std::size_t width);

}  // namespace Demo
