// One line of a trace: when it was written, its text, and the bytes that it shows.
//
//     1234567 ProcessInput(61.47.05.20.20.13.)
//
// The number is the provider's millisecond clock, which begins at 0 again after 49.7 days. Files are in Windows-1252;
// everything here is UTF-8.
#pragma once

#include "equipment/frames.h"

#include <cstdint>
#include <string>

namespace TraceReader {

using Equipment::Bytes;
using Equipment::ByteSpan;

constexpr std::size_t DumpLimit = 49;  // bytes that a dump has room for; the rest of a longer frame is not in the trace

struct Line {
    bool stamped = false;  // no clock in front: what a text with a line feed in it goes on with
    std::uint32_t stamp = 0;
    std::string text;
};

std::string FromWindows(const std::string& text);
// `raw` is the line as it is in the file, without its line end.
Line ReadLine(const std::string& raw);

struct Dump {
    enum Kind : std::uint8_t { None, Received, Sent, Omna } kind = None;
    // Received and sent: the item, without length and checksum. Omna: the message.
    Bytes bytes;
    bool cut = false;     // there was more
    std::string trouble;  // why the bytes cannot be taken for what they should be; "" = they can
};

// The line that the provider writes in front of a dump that it cuts.
bool AnnouncesCut(const Line& line);
// What the line shows. `announced`: the line before it announced a cut.
Dump FindDump(const Line& line, bool announced);

}  // namespace TraceReader
