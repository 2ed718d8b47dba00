#include "equipment/frames.h"

#include "equipment/characters.h"

#include <algorithm>
#include <cstdio>

namespace Equipment {

namespace {

constexpr std::size_t ItemLimit = 255;
constexpr std::size_t SegmentData = 16;
constexpr std::size_t ReassemblyLimit = 2048;

std::uint8_t Low(std::size_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

void Append(Bytes& to, ByteSpan bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// An item behind its length byte.
void AppendCounted(Bytes& to, ByteSpan item) {
    to.push_back(Low(item.size()));
    Append(to, item);
}

std::string Number(const char* format, int value) {
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

std::uint8_t ChecksumFor(ByteSpan bytes) {
    unsigned sum = 0;
    for (const std::uint8_t byte : bytes)
        sum += byte;
    return Low(0x100 - (sum & 0xFF));
}

Bytes BuildFrame(ByteSpan item) {
    Bytes frame;
    AppendCounted(frame, item.first(std::min(item.size(), ItemLimit)));
    frame.push_back(ChecksumFor(frame));
    return frame;
}

Bytes BuildFrame(std::uint8_t type, ByteSpan data) {
    Bytes item{type};
    Append(item, data);
    return BuildFrame(item);
}

bool FrameHolds(ByteSpan frame) {
    if (frame.size() < 3 || frame.size() != frame[0] + 2u)
        return false;
    return ChecksumFor(frame) == 0;
}

ByteSpan ItemOf(ByteSpan frame) {
    return frame.subspan(1, frame.size() - 2);
}

Bytes BuildSuper(std::span<const Bytes> items, std::uint8_t type) {
    Bytes super{type};
    for (const Bytes& item : items)
        AppendCounted(super, item);
    return super;
}

std::vector<Bytes> CutSuper(ByteSpan container, bool& damaged) {
    std::vector<Bytes> items;
    damaged = false;
    for (std::size_t at = 1; at < container.size();) {
        const std::size_t length = container[at];
        if (length == 0 || at + 1 + length > container.size()) {
            damaged = true;
            break;
        }
        const ByteSpan item = container.subspan(at + 1, length);
        items.emplace_back(item.begin(), item.end());
        at += 1 + length;
    }
    return items;
}

Bytes BuildAttached(std::uint8_t control, ByteSpan item) {
    Bytes attached{TypeAttached, 2, TypeControl, control};
    AppendCounted(attached, item);
    return attached;
}

std::optional<Attached> CutAttached(ByteSpan item) {
    // type, 2, 0x60, sub-type, length of the attached item, the item
    if (item.size() < 6 || item[1] != 2 || item[2] != TypeControl || item[4] == 0 || item.size() != 5u + item[4])
        return {};
    const ByteSpan attached = item.subspan(5);
    return Attached{item[3], Bytes(attached.begin(), attached.end())};
}

bool Cutter::Push(std::uint8_t byte) {
    if (complete) {
        frame.clear();
        complete = false;
    }
    frame.push_back(byte);
    // A length of 0 still has its checksum behind it: two bytes, which FrameHolds refuses.
    complete = frame.size() == frame[0] + 2u;
    return complete;
}

bool Cutter::Collecting() const {
    return !complete && !frame.empty();
}

void Cutter::Idle() {
    frame.clear();
    complete = false;
}

Bytes BuildOmna(const OmnaMessage& message) {
    const std::size_t length = std::min(message.payload.size(), OmnaPayloadLimit);
    Bytes bytes{0, Low(length + 6), message.version, message.messageClass, message.code, message.sequence};
    Append(bytes, ByteSpan(message.payload).first(length));
    return bytes;
}

std::optional<OmnaMessage> ParseOmna(ByteSpan bytes) {
    if (bytes.size() < 6 || bytes[0] != 0 || bytes[1] != bytes.size())
        return {};
    return OmnaMessage{bytes[2], bytes[3], bytes[4], bytes[5], Bytes(bytes.begin() + 6, bytes.end())};
}

std::vector<Bytes> OmnaItems(ByteSpan message) {
    std::vector<Bytes> items;
    if (message.size() < SegmentData) {
        Bytes item{TypeOmna};
        Append(item, message);
        items.push_back(item);
        return items;
    }
    const std::size_t count = (message.size() + SegmentData - 1) / SegmentData;
    for (std::size_t i = 0; i < count; ++i) {
        Bytes item{TypeSegment, Low(count - 1 - i)};
        if (i == 0) {
            // The first one says how many follow, and how long the whole is with its type byte.
            item[1] = Low(item[1] | 0x80u);
            item.push_back(Low((message.size() + 1) >> 8));
            item.push_back(Low(message.size() + 1));
            item.push_back(TypeOmna);
        }
        const std::size_t at = i * SegmentData;
        Append(item, message.subspan(at, std::min(SegmentData, message.size() - at)));
        items.push_back(item);
    }
    return items;
}

void Reassembly::Reset() {
    buffer.clear();
    total = 0;
    expected = received = 0;
}

Reassembly::Result Reassembly::Add(ByteSpan item) {
    if (item.size() < 3)
        return Result::Unexpected;
    const int segment = item[1];
    if ((segment & 0x80) != 0) {
        Reset();
        if (item.size() < 5)
            return Result::Unexpected;
        total = item[2] * 256u + item[3];
        expected = (segment & 0x7F) + 1;
        Append(buffer, item.subspan(4));
    } else {
        if (expected == 0 || segment != expected - 1 - received || buffer.size() + item.size() > ReassemblyLimit)
            return Result::Unexpected;
        Append(buffer, item.subspan(2));
    }
    if (++received < expected)
        return Result::More;
    const bool good = buffer.size() == total && buffer[0] == TypeOmna;
    if (good)
        message.assign(buffer.begin() + 1, buffer.end());
    Reset();
    return good ? Result::Complete : Result::WrongLength;
}

std::string Hex(ByteSpan bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += (text.empty() ? "" : " ") + Number("%02X", byte);
    return text;
}

std::optional<Bytes> ParseHex(const std::string& text) {
    Bytes bytes;
    std::string digits;
    auto take = [&] {
        if (digits.empty())
            return true;
        if (digits.size() % 2 != 0)
            return false;
        for (std::size_t i = 0; i < digits.size(); i += 2)
            bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
        digits.clear();
        return true;
    };
    for (const char c : text) {
        if (c == ' ' || c == '.' || c == ',') {
            if (!take())
                return {};
        } else if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) {
            digits += c;
        } else {
            return {};
        }
    }
    if (!take())
        return {};
    return bytes;
}

// --- in words

namespace {

struct Name {
    int code;
    const char* name;
};

constexpr Name ControlNames[] = {
    {ControlAck, "ACK"},
    {ControlPoll, "poll"},
    {ControlSpecial, "special function"},
    {ControlConfig, "configuration"},
    {ControlTempo, "tempo"},
    {ControlBadLength, "NACK length"},
    {ControlBadChecksum, "NACK checksum"},
    {ControlLostSync, "resynchronisation"},
    {ControlAbort, "abort"},
    {ControlContact, "contact"},
    {ControlReset, "reset"},
};

constexpr Name OmnaNames[] = {
    {2, "association request"},
    {3, "DEVICE_ASSOC_ACK"},
    {4, "no multi-line key"},
    {6, "key request"},
    {7, "KEY_ACK"},
    {8, "key information request"},
    {9, "KEY_INFO_ACK"},
    {10, "string request"},
    {11, "STRING_ACK"},
    {12, "string information request"},
    {13, "STRING_INFO_ACK"},
    {14, "soft-key request"},
    {15, "SK_ACK"},
    {16, "soft-key information request"},
    {17, "SK_INFO_ACK"},
    {18, "service-code request"},
    {19, "CODE_ACK"},
    {20, "service-code information request"},
    {21, "CODE_INFO_ACK"},
    {23, "EVENT_INCOMING_CHANGE"},
    {24, "EVENT_OUTGOING_CALL"},
    {25, "EVENT_CONNECTED_CALL"},
    {28, "TA_M_EVENT_TRANSFERED_CALL"},
    {30, "special-key request"},
    {31, "KEY_SPE_ACK"},
    {32, "special-key information request"},
    {33, "KEY_SPE_INFO_ACK"},
};

std::string NameOf(std::span<const Name> names, int code, const char* otherwise) {
    for (const Name& entry : names)
        if (entry.code == code)
            return entry.name;
    return Number(otherwise, code);
}

std::string Quoted(ByteSpan text) {
    return "'" + FromSet(text) + "'";
}

// A command of the PBX to the set.
std::string DescribeCommand(ByteSpan c) {
    if (c.empty())
        return "nothing";
    const auto at = [&](std::size_t i) { return i < c.size() ? static_cast<int>(c[i]) : 0; };
    switch (c[0] & 0x7F) {
    case 0x02: return Number("module %d: ", at(1) & 7) + (c.size() > 2 ? DescribeCommand(c.subspan(2)) : "nothing");
    case 0x06: return "answered";
    case 0x0B: return Number("%d bytes of commands", static_cast<int>(c.size()) - 1);
    case 0x21: return Number("lamp %d", at(2)) + Number(" mode %d", at(1));
    case 0x26: return "clear display";
    case 0x27:
    case 0x28:
        return Number("line %d", (c[0] & 0x7F) - 0x27) + Number(" mode %d", at(1) & 3) + Number(" at %d ", at(2)) +
               Quoted(c.size() > 3 ? c.subspan(3) : ByteSpan{}) + ((at(1) & 0x80) != 0 ? " ..." : "");
    case 0x29: return Number("handset %d", at(1));
    case 0x2B: return "link alive";
    case 0x36: return "character patterns";
    case 0x3B: return Number("speaker %d", at(1));
    case 0x3E: return Number("ring %d", at(1));
    case 0x46: return "module icons off";
    case 0x47: return Number("icon key %d", at(1)) + Number(" value %04X", at(2) + 256 * at(3));
    default: return "command " + Hex(c);
    }
}

std::string DescribeEvent(ByteSpan e) {
    if (e.size() < 2)
        return "event " + Hex(e);
    switch (e[0] & 0x7F) {
    case 0x03: return Number("digit %d", e[1]);
    case 0x20: return Number("key %d", e[1]);
    default: return "event " + Hex(e);
    }
}

}  // namespace

std::string Describe(ByteSpan item) {
    if (item.empty())
        return "empty";
    const ByteSpan data = item.subspan(1);
    switch (item[0]) {
    case TypeControl: return data.empty() ? "control" : NameOf(ControlNames, data[0], "control %02X");
    case TypeToSet: return "to set: " + DescribeCommand(data);
    case TypeFromSet: return "from set: " + DescribeEvent(data);
    case TypeToModule:
        return data.empty() ? "to module" : Number("to module %d: ", data[0] & 7) + DescribeCommand(data.subspan(1));
    case TypeFromModule:
        return data.empty() ? "from module" : Number("from module %d: ", data[0] & 7) + DescribeEvent(data.subspan(1));
    case TypeKeyPress: return "press " + Hex(data);
    case TypeOmna: {
        const auto message = ParseOmna(data);
        return message ? NameOf(OmnaNames, message->code, "OMNA %d") + Number(" #%d", message->sequence) : "OMNA ?";
    }
    case TypeSegment: return data.empty() ? "segment" : Number("segment %02X", data[0]);
    case TypeSuper:
    case TypeOldContainer: {
        bool damaged = false;
        std::string text = "(";
        for (const Bytes& inner : CutSuper(item, damaged))
            text += (text.size() > 1 ? "; " : "") + Describe(inner);
        return text + (damaged ? "; damaged)" : ")");
    }
    case TypeAttached: {
        const auto attached = CutAttached(item);
        if (!attached)
            return "attached, damaged";
        return NameOf(ControlNames, attached->control, "control %02X") + " + " + Describe(attached->item);
    }
    default: return Number("type %02X", item[0]);
    }
}

}  // namespace Equipment
