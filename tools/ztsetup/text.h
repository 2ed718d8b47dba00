// Texts of a fixed room, UTF-8, cut to it and always terminated: the program stays small without std::string.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Setup {

template <std::size_t Room> struct TextOf {
    char text[Room]{};
    std::size_t length = 0;

    TextOf() = default;
    explicit TextOf(std::string_view start) { Add(start); }

    TextOf& Add(std::string_view more) {
        const std::size_t taken = more.size() < Room - 1 - length ? more.size() : Room - 1 - length;
        std::copy_n(more.data(), taken, text + length);  // of no text, too, which has no address
        text[length += taken] = 0;
        return *this;
    }
    TextOf& AddNumber(std::uint32_t number, int base = 10) {
        char digits[16];
        const char* const end = std::to_chars(digits, digits + sizeof digits, number, base).ptr;
        return Add({digits, static_cast<std::size_t>(end - digits)});
    }
    // The bound is what g++ does not see of Add.
    std::string_view View() const { return {text, length < Room ? length : Room - 1}; }
};

using Path = TextOf<1024>;
using Message = TextOf<8192>;

}  // namespace Setup
