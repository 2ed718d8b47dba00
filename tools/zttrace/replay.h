// A script for the simulated equipment that sends what the trace shows as received, with the times between. The
// equipment does nothing else meanwhile: it acknowledges nothing of its own accord, for the card's acknowledgements are
// in the trace.
#pragma once

#include "zttrace/line.h"

#include <cstdint>
#include <optional>
#include <string>

namespace TraceReader {

struct Replay {
    std::string script;
    int frames = 0;
    int leftOut = 0;  // not wholly in the trace

    Replay();
    void Take(const Line& line, const Dump& dump);

private:
    std::optional<std::uint32_t> last;  // clock of what was written last; none before the provider speaks
};

}  // namespace TraceReader
