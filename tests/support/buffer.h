// A caller's structure of some total size, with room behind it that shows what was written too far.
#pragma once

#include "platform/platform.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

class CallersBuffer {
public:
    static constexpr DWORD LEFT = 0xCCCCCCCC;  // a field as it came

    template <class Structure> Structure* Room(DWORD total) {
        Bytes.fill(0xCC);
        std::memcpy(Bytes.data(), &total, 4);
        return reinterpret_cast<Structure*>(Bytes.data());
    }
    const std::uint8_t* At(std::size_t offset) const { return Bytes.data() + offset; }
    DWORD Field(std::size_t offset) const {
        DWORD value;
        std::memcpy(&value, At(offset), 4);
        return value;
    }
    // Offset behind the last byte that was written.
    std::size_t End() const {
        std::size_t end = Bytes.size();
        while (end > 0 && Bytes[end - 1] == 0xCC)
            --end;
        return end;
    }
    // Every field that was written, "offset:value": decimal, hexadecimal. dwTotalSize is left out.
    std::string Written(std::size_t end = 1024) const {
        std::string out;
        for (std::size_t offset = 4; offset < end; offset += 4)
            if (Field(offset) != LEFT)
                out += (out.empty() ? "" : " ") + std::to_string(offset) + ":" + Hex(Field(offset));
        return out;
    }
    static std::string Hex(DWORD value) {
        char text[16];
        std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
        return value == LEFT ? "-" : text;
    }

private:
    alignas(8) std::array<std::uint8_t, 1024> Bytes{};
};

// An argument of any pointer type, to be traced and never followed.
struct Any {
    std::uintptr_t Value;
    template <class Pointer> operator Pointer() const { return reinterpret_cast<Pointer>(Value); }
};
