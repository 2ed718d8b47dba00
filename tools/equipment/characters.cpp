#include "equipment/characters.h"

#include <array>

namespace Equipment {

namespace {

// What the set shows for its codes 0x80 to 0xFF, as Unicode; 0 = nothing that a text here can name. Some symbols (the
// ring, the arrows of the soft keys, ...) have no letter of their own and are left out.
constexpr std::array<char16_t, 128> SetCharacters = {
    u'Ç', u'ü', u'é', u'â', u'ä', u'à', u'å', u'ç', u'ê', u'ë', u'è', u'ï', u'î', u'ì', u'Ä', u'Å',  // 80
    u'É', u'æ', u'Æ', u'ô', u'ö', u'ò', u'û', u'ù', u'ÿ', u'Ö', u'Ü', u'ñ', u'Ñ', u'ª', u'º', u'¿',  // 90
    u'á', u'í', u'ó', u'ú', u'¢', u'£', u'¥', 0,    u'ƒ', u'¡', u'Ã', u'ã', u'Õ', u'õ', u'Ø', u'ø',  // A0
    u'·', u'¨', u'°', 0,    u'´', u'½', u'¼', u'×', u'÷', 0,    0,    u'«', u'»', 0,    0,    0,     // B0
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,     // C0
    u'™', u'†', u'§', u'¶', 0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,     // D0
    u'ß', 0,    0,    0,    0,    0,    0,    0,    0,    0,    u'µ', 0,    0,    0,    0,    0,     // E0
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,     // F0
};

// The character at `at`, which moves behind it. Broken UTF-8 gives '?'.
char32_t Take(const std::string& text, std::size_t& at) {
    const auto first = static_cast<unsigned char>(text[at++]);
    if (first < 0x80)
        return first;
    const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : first >= 0xC0 ? 1 : 0;
    char32_t value = more == 3 ? first & 0x07u : more == 2 ? first & 0x0Fu : first & 0x1Fu;
    for (int i = 0; i < more; ++i) {
        if (at >= text.size() || (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80)
            return U'?';
        value = (value << 6) | (static_cast<unsigned char>(text[at++]) & 0x3Fu);
    }
    return more == 0 ? U'?' : value;
}

}  // namespace

Bytes ToSet(const std::string& utf8) {
    Bytes bytes;
    for (std::size_t at = 0; at < utf8.size();) {
        const char32_t wanted = Take(utf8, at);
        std::uint8_t code = wanted < 0x80 ? static_cast<std::uint8_t>(wanted) : std::uint8_t{'?'};
        for (std::size_t i = 0; wanted >= 0x80 && i < SetCharacters.size(); ++i)
            if (SetCharacters[i] == wanted)
                code = static_cast<std::uint8_t>(0x80 + i);
        bytes.push_back(code);
    }
    return bytes;
}

Bytes ToWindows(const std::string& utf8) {
    Bytes bytes;
    for (std::size_t at = 0; at < utf8.size();) {
        const char32_t wanted = Take(utf8, at);
        const bool has = wanted < 0x80 || (wanted >= 0xA0 && wanted < 0x100);
        bytes.push_back(has ? static_cast<std::uint8_t>(wanted) : std::uint8_t{'?'});
    }
    return bytes;
}

void AppendUtf8(std::string& utf8, char16_t c) {
    if (c < 0x80) {
        utf8 += static_cast<char>(c);
        return;
    }
    if (c < 0x800) {
        utf8 += static_cast<char>(0xC0 | (c >> 6));
    } else {
        utf8 += static_cast<char>(0xE0 | (c >> 12));
        utf8 += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    }
    utf8 += static_cast<char>(0x80 | (c & 0x3F));
}

std::string FromSet(ByteSpan bytes) {
    std::string utf8;
    for (const std::uint8_t byte : bytes) {
        const char16_t c = byte < 0x80 ? char16_t{byte} : SetCharacters[byte - 0x80u];
        AppendUtf8(utf8, c < 0x20 ? u'?' : c);
    }
    return utf8;
}

Bytes ToField(const std::string& utf8, std::size_t width) {
    Bytes bytes = ToSet(utf8);
    bytes.resize(width, ' ');
    return bytes;
}

}  // namespace Equipment
