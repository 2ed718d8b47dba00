// The trace as a support engineer reads it: each line with the time of day in front, and what it shows of the link in
// words below.
#pragma once

#include "zttrace/decode.h"

#include <functional>
#include <optional>
#include <string>

namespace TraceReader {

struct Filter {
    std::optional<unsigned> mask;  // what the provider would write with this level mask
    std::optional<int> cref, key;  // lines about either, when one or both are given
};

struct Report {
    Filter filter;
    std::function<void(const std::string&)> print;  // a line, without its end
    std::function<void(const Line&, const Dump&)> onDump;
    int lines = 0, printed = 0;

    void Take(const std::string& raw);

private:
    Decoder decoder;
    bool announced = false;   // the last line announced a cut dump
    bool frameShown = false;  // the frame received last
    bool lastShown = true;    // a line without a clock belongs to the one before it
    std::optional<std::uint32_t> headerStamp;
    int headerSeconds = 0;  // the time of day at the header

    bool Wanted(const Line& line, const std::vector<Said>& said) const;
    bool ReadHeader(const Line& line);
    std::string TimeOfDay(const Line& line) const;
};

}  // namespace TraceReader
