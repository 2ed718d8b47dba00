#include "tsphost/fields.h"

#include "tsphost/text.h"

#include <algorithm>
#include <cstring>

namespace Tsphost {

namespace {

using ByteSpan = std::span<const std::byte>;

constexpr std::size_t GUARD_WORDS = 64;
constexpr DWORD GUARD = 0xA5A5A5A5;
constexpr std::size_t NAME_WIDTH = 28;
constexpr std::size_t FORWARD_SIZE = 24;  // LINEFORWARD of TAPI 2.0; it has grown since

DWORD NumberIn(ByteSpan structure, std::size_t offset) {
    DWORD value = 0;
    if (offset + sizeof value <= structure.size())
        std::memcpy(&value, structure.data() + offset, sizeof value);
    return value;
}

std::string Place(DWORD size, DWORD offset) {
    return "(" + std::to_string(size) + " bytes at " + std::to_string(offset) + ")";
}

bool Inside(ByteSpan structure, DWORD size, DWORD offset) {
    return offset <= structure.size() && size <= structure.size() - offset;
}

std::string WideText(ByteSpan structure, DWORD size, DWORD offset) {
    if (!Inside(structure, size, offset))
        return Place(size, offset) + ", outside the structure";
    WideString text(size / 2, 0);
    std::memcpy(text.data(), structure.data() + offset, text.size() * 2);
    const bool ended = !text.empty() && text.back() == 0;
    return '"' + FromWide(text.data(), text.size()) + "\" " + Place(size, offset) + (ended ? "" : ", not terminated");
}

std::string HexBytes(ByteSpan structure, DWORD size, DWORD offset) {
    if (!Inside(structure, size, offset))
        return Place(size, offset) + ", outside the structure";
    std::string out;
    for (const std::byte byte : structure.subspan(offset, size)) {
        constexpr char DIGITS[] = "0123456789ABCDEF";
        out += DIGITS[std::to_integer<unsigned>(byte) >> 4];
        out += DIGITS[std::to_integer<unsigned>(byte) & 15];
        out += ' ';
    }
    return out + Place(size, offset);
}

std::string DialText(ByteSpan structure, std::size_t offset) {
    return "pause " + std::to_string(NumberIn(structure, offset)) + ", speed " +
           std::to_string(NumberIn(structure, offset + 4)) + ", digit " +
           std::to_string(NumberIn(structure, offset + 8)) + ", dial tone " +
           std::to_string(NumberIn(structure, offset + 12)) + " ms";
}

std::string ValueText(ByteSpan structure, const Field& field) {
    const DWORD value = NumberIn(structure, field.offset);
    const DWORD next = NumberIn(structure, field.offset + 4);
    switch (field.kind) {
    case FieldKind::Hexadecimal: return Hex(value);
    case FieldKind::Flags: return FlagNames(value, *field.names);
    case FieldKind::Value: return ValueName(value, *field.names);
    case FieldKind::Mode: return FlagNames(value, ModeNames(NumberIn(structure, field.offset - 4)));
    case FieldKind::Dial: return DialText(structure, field.offset);
    case FieldKind::Text: return WideText(structure, value, next);
    case FieldKind::Bytes: return HexBytes(structure, value, next);
    case FieldKind::Number:
    case FieldKind::Forwards: break;
    }
    return std::to_string(value);
}

std::size_t FieldSize(FieldKind kind) {
    switch (kind) {
    case FieldKind::Dial: return sizeof(LINEDIALPARAMS);
    case FieldKind::Text:
    case FieldKind::Bytes: return 8;
    case FieldKind::Forwards: return 12;
    default: return 4;
    }
}

bool AllZero(ByteSpan bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::byte byte) { return byte == std::byte{}; });
}

void AddForwards(std::vector<std::string>& lines, ByteSpan structure, std::size_t at) {
    const DWORD count = NumberIn(structure, at), size = NumberIn(structure, at + 4),
                offset = NumberIn(structure, at + 8);
    if (size != 0 || offset != 0)
        lines.push_back(Row("dwForwardOffset", Place(size, offset)));
    for (DWORD i = 0; i < count; ++i) {
        const std::size_t entry = offset + i * FORWARD_SIZE;
        if (entry + FORWARD_SIZE > structure.size()) {
            lines.push_back(Row("  ForwardList[" + std::to_string(i) + "]", "outside the structure"));
            return;
        }
        lines.push_back(Row("  ForwardList[" + std::to_string(i) + "]",
                            FlagNames(NumberIn(structure, entry), ForwardModes) + " to " +
                                WideText(structure, NumberIn(structure, entry + 16), NumberIn(structure, entry + 20))));
    }
}

}  // namespace

Buffer::Buffer(DWORD bytes)
    : size(std::max<std::size_t>(bytes, sizeof(DWORD))), room((size + 3) / 4 + sizeof(LINECALLINFO) / 4 + GUARD_WORDS) {
    std::fill(room.begin(), room.end(), GUARD);
    std::memset(room.data(), 0, size);
    room[0] = bytes;
}

bool Buffer::Overrun() const {
    const ByteSpan behind = std::as_bytes(std::span(room)).subspan(size);
    return std::any_of(behind.begin(), behind.end(), [](std::byte byte) { return byte != std::byte{GUARD & 0xFF}; });
}

std::string Row(const std::string& name, const std::string& value) {
    return "  " + name + std::string(name.size() < NAME_WIDTH ? NAME_WIDTH - name.size() : 1, ' ') + value;
}

std::vector<std::string> FieldLines(ByteSpan structure, std::span<const Field> fields) {
    const DWORD total = NumberIn(structure, 0), needed = NumberIn(structure, 4), used = NumberIn(structure, 8);
    std::vector<std::string> lines = {Row("size", "dwTotalSize " + std::to_string(total) + ", dwNeededSize " +
                                                      std::to_string(needed) + ", dwUsedSize " + std::to_string(used) +
                                                      (needed > total ? " (more room needed)" : ""))};
    for (const Field& field : fields) {
        const std::size_t size = FieldSize(field.kind);
        if (field.offset + size > structure.size())
            continue;
        if (field.always || !AllZero(structure.subspan(field.offset, size)))
            lines.push_back(Row(field.name, ValueText(structure, field)));
        if (field.kind == FieldKind::Forwards)
            AddForwards(lines, structure, field.offset);
    }
    return lines;
}

std::string VarStringText(ByteSpan structure) {
    const DWORD format = NumberIn(structure, offsetof(VARSTRING, dwStringFormat));
    const DWORD size = NumberIn(structure, offsetof(VARSTRING, dwStringSize));
    const DWORD offset = NumberIn(structure, offsetof(VARSTRING, dwStringOffset));
    if (size == 0)
        return "(none)";
    if (format == STRINGFORMAT_UNICODE)
        return WideText(structure, size, offset);
    if (format != STRINGFORMAT_ASCII || !Inside(structure, size, offset))
        return HexBytes(structure, size, offset);
    return '"' + FromAnsi(reinterpret_cast<const char*>(structure.data()) + offset, size) + "\" " + Place(size, offset);
}

}  // namespace Tsphost
