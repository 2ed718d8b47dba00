// What waits in the link's queue, as text.
#pragma once

#include "equipment/frames.h"
#include "link/fifo.h"
#include "support/fixture.h"

#include <numeric>

// Takes every frame that is queued, oldest first: two upper-case digits a byte, a blank between. Lengths and checksums are
// checked on the way.
inline std::vector<std::string> QueuedFrames() {
    std::vector<std::string> frames;
    std::array<std::uint8_t, 300> frame{};
    for (int n = 0; (n = FifoPeek(LINK_FIFO, frame)) > 0; FifoDrop(LINK_FIFO)) {
        frames.push_back(Equipment::Hex(std::span(frame).first(static_cast<std::size_t>(n))));
        EXPECT_EQ(std::accumulate(frame.begin(), frame.begin() + n, 0) & 0xFF, 0) << frames.back();
        EXPECT_EQ(frame[0] + 2, n) << frames.back();
    }
    return frames;
}
