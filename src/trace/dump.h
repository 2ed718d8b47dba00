// Bytes in trace lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Writes bytes as two upper-case digits and a period each, terminated; stops, traced, four characters before the end.
void HexDump(std::span<char> output, std::span<const std::uint8_t> bytes);

constexpr std::size_t DUMP_SIZE = 150;  // characters of a HexDump in a trace line
// Whether a dump for a line of this level has to be made: one of a long message traces a line of its own as well.
bool DumpIsTraced(std::uint32_t level);
// Traces a line whose one %s is a HexDump of the bytes in DUMP_SIZE characters. Dumps only what would be written.
void TraceDump(std::uint32_t level, const char* format, std::span<const std::uint8_t> bytes);
