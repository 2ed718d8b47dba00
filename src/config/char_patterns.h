// Character patterns that the PBX loads into the set: every distinct one is kept, and table and code array are dumped to
// two files of the Windows system directory after each. The provider never reads the files.
#pragma once

#include <array>
#include <cstdint>
#include <span>

constexpr int CHAR_PATTERNS = 100;  // records in the table, and character codes in the array

struct CharPattern {
    std::array<std::uint8_t, 8> rows;  // 8 rows of 8 dots
    std::uint8_t character;            // assigned character; 0 = free record
    std::uint8_t code;                 // character code that used the pattern last
};
static_assert(sizeof(CharPattern) == 10, "the table is dumped as it lies in memory");
extern std::array<CharPattern, CHAR_PATTERNS> CharPatternTable;
extern std::array<char, CHAR_PATTERNS> CharCodeArray;  // character assigned to each code; blanks at load

void RecordCharPattern(std::span<const std::uint8_t, 8> pattern, std::uint8_t code);
