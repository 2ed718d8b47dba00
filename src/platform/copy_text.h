// Texts in fields of a fixed size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

// Copies a text into a field of `size` bytes, cut to it, always terminated. The text may lie in the field.
inline void CopyText(char* field, std::size_t size, const char* text) {
    const std::size_t length = std::min(std::strlen(text), size - 1);
    std::memmove(field, text, length);
    field[length] = 0;
}
template <std::size_t N> void CopyText(char (&field)[N], const char* text) {
    CopyText(field, N, text);
}

inline bool Filled(const char* text) {
    return text[0] != 0;
}
