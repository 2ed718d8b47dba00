// What waits in the link's queue, as text.
#pragma once

#include "link/fifo.h"
#include "support/fixture.h"

// Takes every frame that is queued, oldest first: two upper-case digits a byte, a blank between. Lengths and checksums are
// checked on the way.
inline std::vector<std::string> QueuedFrames() {
    std::vector<std::string> frames;
    std::array<std::uint8_t, 300> frame{};
    for (int n = 0; (n = FifoPeek(LINK_FIFO, frame)) > 0; FifoDrop(LINK_FIFO)) {
        std::string text;
        int sum = 0;
        for (int i = 0; i < n; ++i) {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%02X", frame.at(static_cast<std::size_t>(i)));
            text += (i > 0 ? " " : "") + std::string(hex);
            sum += frame.at(static_cast<std::size_t>(i));
        }
        EXPECT_EQ(sum & 0xFF, 0) << text;
        EXPECT_EQ(frame[0] + 2, n) << text;
        frames.push_back(text);
    }
    return frames;
}
