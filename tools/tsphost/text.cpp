#include "tsphost/text.h"

#include <cstdio>

namespace Tsphost {

namespace {

void Append(std::string& out, unsigned point) {
    if (point < 0x80) {
        out += static_cast<char>(point);
    } else if (point < 0x800) {
        out += static_cast<char>(0xC0 | point >> 6);
        out += static_cast<char>(0x80 | (point & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | point >> 12);
        out += static_cast<char>(0x80 | (point >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (point & 0x3F));
    }
}

// Windows-1252 from 0x80 to 0x9F; what it leaves open stays what it is.
constexpr unsigned UpperControls[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                        0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                        0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                        0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

}  // namespace

std::string FromWide(const WCHAR* text, std::size_t length) {
    std::string out;
    for (std::size_t i = 0; i < length && text[i] != 0; ++i)
        Append(out, static_cast<unsigned>(text[i]));
    return out;
}

std::string FromAnsi(const char* text, std::size_t length) {
    std::string out;
    for (std::size_t i = 0; i < length && text[i] != 0; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        Append(out, byte >= 0x80 && byte < 0xA0 ? UpperControls[byte - 0x80] : byte);
    }
    return out;
}

WideString ToWide(const std::string& text) {
    WideString out;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = [&](std::size_t at) {
            return at < text.size() ? static_cast<unsigned>(static_cast<unsigned char>(text[at])) : 0u;
        };
        unsigned point = byte(i);
        std::size_t length = 1;
        if (point >= 0xE0) {
            point = (point & 15) << 12 | (byte(i + 1) & 63) << 6 | (byte(i + 2) & 63);
            length = 3;
        } else if (point >= 0xC0) {
            point = (point & 31) << 6 | (byte(i + 1) & 63);
            length = 2;
        }
        out += static_cast<WCHAR>(point);
        i += length;
    }
    return out;
}

std::string Hex(std::uintptr_t value) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace Tsphost
