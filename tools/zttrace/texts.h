// What is known of the provider's trace texts: at which level each is written, and which of its numbers are calls and
// keys. The table is made from the provider's sources by the build (scripts/trace-texts).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TraceReader {

constexpr unsigned LevelAlways = 0x80;  // stands in for level 0: written whatever the mask says

struct TextFacts {
    std::string format;          // "" = a text that the provider beside this program does not have
    unsigned levels = 0;         // all that it may have been written at
    std::vector<int> keys;       // key numbers in it
    std::vector<int> callCrefs;  // call references in it
};
TextFacts LookUp(const std::string& text);

// A level mask as the registry has it (20, 0x14), or names and numbers with commas between ("input,call"). None when a
// word is unknown.
std::optional<unsigned> ReadMask(const std::string& words);
// "always, entry (1), ..." for the help.
std::string LevelNames();

}  // namespace TraceReader
