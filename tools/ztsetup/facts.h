// What a report asks of Windows beyond system.h: registry, files, versions. windows_facts.cpp asks them; the tests have answers of
// their own.
#pragma once

#include "ztsetup/text.h"

#include <cstdint>
#include <span>

namespace Setup {

constexpr std::uint32_t NOTHING_MORE = 259;    // ERROR_NO_MORE_ITEMS
constexpr std::uint32_t FILE_MISSING = 2;      // ERROR_FILE_NOT_FOUND, for a missing folder or key too
constexpr std::uint32_t FILE_THERE = 80;       // ERROR_FILE_EXISTS
constexpr std::uint32_t FILE_TOO_LARGE = 223;  // ERROR_FILE_TOO_LARGE

// Keys are below HKEY_LOCAL_MACHINE; what is in them has numbers from 0. 0, NOTHING_MORE, or Windows' error code.
constexpr std::uint32_t TYPE_TEXT = 1;  // REG_SZ
struct RegistryValue {
    TextOf<512> name;
    std::uint32_t type = 0;
    TextOf<4096> text;  // of a text alone
};
std::uint32_t KeyAt(std::string_view key, std::uint32_t index, TextOf<512>& name);
std::uint32_t ValueAt(std::string_view key, std::uint32_t index, RegistryValue& value);
// Makes the key where it is missing. 0, or Windows' error code.
std::uint32_t SetText(std::string_view key, std::string_view name, std::string_view text);

// Reads a whole file, which others may be writing. 0, FILE_MISSING, FILE_TOO_LARGE for `room`, or Windows' error code.
std::uint32_t ReadInto(const Path& path, std::span<char> room, std::size_t& size);
// Writes a file that is not there yet. 0, FILE_THERE, or Windows' error code; nothing is left of what failed.
std::uint32_t WriteNew(const Path& path, std::span<const char> bytes);

TextOf<64> WindowsVersion();              // "10.0.19045"; empty where Windows does not tell it
TextOf<128> VersionOf(const Path& file);  // the property "Product version"; empty where there is none

}  // namespace Setup
