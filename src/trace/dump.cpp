#include "trace/dump.h"

#include "trace/trace.h"

void HexDump(std::span<char> output, std::span<const std::uint8_t> bytes) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    if (output.empty())
        return;
    std::size_t position = 0;
    for (const std::uint8_t value : bytes) {
        if (position + 4 >= output.size()) {
            output[position] = 0;
            Trace(TRACE_CUT, "Tronquage chaine");
            return;
        }
        output[position++] = Digits[value >> 4];
        output[position++] = Digits[value & 15];
        output[position++] = '.';
    }
    output[position] = 0;
}

bool DumpIsTraced(std::uint32_t level) {
    return level == TRACE_ALWAYS || (static_cast<std::uint32_t>(TraceMask) & (level | TRACE_CUT)) != 0;
}

void TraceDump(std::uint32_t level, const char* format, std::span<const std::uint8_t> bytes) {
    if (!DumpIsTraced(level))
        return;
    char text[DUMP_SIZE];
    HexDump(text, bytes);
    Trace(level, format, text);
}
