// Texts in the two encodings that leave this library, made at compile time from UTF-8 source text, so that a reader sees
// "spécifié" and the file holds 0xE9 with any compiler and any locale.
//
//   "pas de port spécifié"_cp1252   -> const char*, Windows-1252
//   "tapi/line"_wide                -> const WCHAR*, UTF-16 (WCHAR is 16 bits on every target)
//
// A character that Windows-1252 does not have, or that lies outside the basic plane, does not compile.
#pragma once

#include "platform/platform.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace text_literal {

template <std::size_t N> struct Utf8 {
    char bytes[N];
    consteval Utf8(const char (&source)[N]) {
        for (std::size_t i = 0; i < N; ++i)
            bytes[i] = source[i];
    }
};

// Not constant: a literal that calls one of them does not compile, also where exceptions are switched off.
void CharacterOutsideTheBasicPlane();
void CharacterNotInWindows1252();

// One code point and the number of UTF-8 bytes it takes; malformed input gives length 0.
struct CodePoint {
    std::uint32_t value;
    std::size_t length;
};

template <std::size_t N> constexpr CodePoint Decode(const Utf8<N>& text, std::size_t at) {
    const auto byte = [&](std::size_t i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(text.bytes[i]));
    };
    if (byte(at) < 0x80)
        return {byte(at), 1};
    if (byte(at) < 0xE0)
        return {(byte(at) & 0x1F) << 6 | (byte(at + 1) & 0x3F), 2};
    if (byte(at) < 0xF0)
        return {(byte(at) & 0x0F) << 12 | (byte(at + 1) & 0x3F) << 6 | (byte(at + 2) & 0x3F), 3};
    CharacterOutsideTheBasicPlane();
    return {};
}

template <class Unit, std::size_t N, class Convert> constexpr auto Transcode(const Utf8<N>& text, Convert convert) {
    std::array<Unit, N> out{};
    std::size_t used = 0;
    for (std::size_t i = 0; i + 1 < N;) {
        const CodePoint point = Decode(text, i);
        out[used++] = convert(point.value);
        i += point.length;
    }
    return out;
}

constexpr char ToCp1252(std::uint32_t point) {
    if (point < 0x80 || (point >= 0xA0 && point <= 0xFF))
        return static_cast<char>(point);
    if (point == 0x20AC)
        return static_cast<char>(0x80);
    CharacterNotInWindows1252();
    return 0;
}

template <Utf8 Source> inline constexpr auto Cp1252 = Transcode<char>(Source, ToCp1252);
template <Utf8 Source>
inline constexpr auto Wide = Transcode<WCHAR>(Source, [](std::uint32_t point) { return static_cast<WCHAR>(point); });

}  // namespace text_literal

template <text_literal::Utf8 Source> consteval const char* operator""_cp1252() {
    return text_literal::Cp1252<Source>.data();
}

template <text_literal::Utf8 Source> consteval const WCHAR* operator""_wide() {
    return text_literal::Wide<Source>.data();
}
