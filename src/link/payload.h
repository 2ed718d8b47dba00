// Reading the payload of a TAPI_OMNA message in order: nothing is read past its end, whatever a count byte says.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

struct PayloadCursor {
    std::span<const std::uint8_t> left;
    bool bad = false;  // an item did not fit

    std::uint8_t Byte() {
        if (left.empty()) {
            bad = true;
            return 0;
        }
        const std::uint8_t first = left[0];
        left = left.subspan(1);
        return first;
    }
    // A counted text, cut to `out`, terminated.
    template <std::size_t N> void Text(std::size_t length, char (&out)[N]) {
        if (length > left.size()) {
            bad = true;
            length = left.size();
        }
        const std::size_t kept = std::min(length, N - 1);
        std::transform(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(kept), out,
                       [](std::uint8_t c) { return static_cast<char>(c); });
        out[kept] = 0;
        left = left.subspan(length);
    }
};
