#include "zttrace/line.h"

#include "equipment/characters.h"

#include <array>
#include <charconv>
#include <optional>
#include <string_view>

namespace TraceReader {

namespace {

// Windows-1252 from 0x80 to 0x9F; the rest is as in Latin-1. The five that are free stay control characters.
constexpr std::array<char16_t, 32> WindowsOnly = {
    u'€',    u'\x81', u'‚', u'ƒ', u'„', u'…', u'†', u'‡', u'ˆ', u'‰', u'Š', u'‹', u'Œ', u'\x8D', u'Ž', u'\x8F',
    u'\x90', u'‘',    u'’', u'“', u'”', u'•', u'–', u'—', u'˜', u'™', u'š', u'›', u'œ', u'\x9D', u'ž', u'Ÿ',
};

struct DumpText {
    std::string_view before, after;
    Dump::Kind kind;
};
constexpr DumpText DumpTexts[] = {
    {"ProcessInput(", ")", Dump::Received}, {"TxZTMsgFromFifo(", ")", Dump::Sent},
    {"SendL2Msg(", ")", Dump::Sent},        {"Resend_Last_Msg(", ")", Dump::Sent},
    {"TAPI_OMNA MSG: ", "", Dump::Omna},    {"Unknown TAPI-OMNA msg received: ", "", Dump::Omna},
};

int Digit(char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Two digits and a period a byte, nothing else.
std::optional<Bytes> ReadBytes(std::string_view text) {
    if (text.size() % 3 != 0 || text.size() > 3 * DumpLimit)
        return {};
    Bytes bytes;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        const int high = Digit(text[at]), low = Digit(text[at + 1]);
        if (high < 0 || low < 0 || text[at + 2] != '.')
            return {};
        bytes.push_back(static_cast<std::uint8_t>(16 * high + low));
    }
    return bytes;
}

// A received frame is shown from its type to its checksum: its length byte is the number of bytes less one.
void TakeReceived(Dump& dump, bool announced) {
    Bytes frame{static_cast<std::uint8_t>(dump.bytes.size() - 1)};
    frame.insert(frame.end(), dump.bytes.begin(), dump.bytes.end());
    const bool holds = Equipment::FrameHolds(frame);
    // A cut one may hold by chance, and then only the announcement tells.
    dump.cut = dump.bytes.size() == DumpLimit && (announced || !holds);
    if (dump.cut)
        return;
    if (holds)
        dump.bytes.pop_back();
    else
        dump.trouble = "no whole frame: its checksum does not fit";
}

void TakeSent(Dump& dump) {
    const std::size_t whole = dump.bytes[0] + 2u;
    if (dump.bytes.size() == DumpLimit && whole > DumpLimit) {
        dump.cut = true;
        dump.bytes.erase(dump.bytes.begin());
    } else if (Equipment::FrameHolds(dump.bytes)) {
        const ByteSpan item = Equipment::ItemOf(dump.bytes);
        dump.bytes = Bytes(item.begin(), item.end());
    } else {
        dump.trouble = "no whole frame: its length or checksum does not fit";
    }
}

void TakeOmna(Dump& dump) {
    const std::size_t whole = dump.bytes.size() < 2 ? 0 : dump.bytes[1];
    dump.cut = dump.bytes.size() == DumpLimit && whole > DumpLimit;
    if (!dump.cut && (dump.bytes.size() < 6 || whole != dump.bytes.size()))
        dump.trouble = "no whole message: its length does not fit";
}

}  // namespace

std::string FromWindows(const std::string& text) {
    std::string utf8;
    for (const char raw : text) {
        const auto byte = static_cast<unsigned char>(raw);
        const char16_t c = byte >= 0x80 && byte < 0xA0 ? WindowsOnly[byte - 0x80u] : char16_t{byte};
        Equipment::AppendUtf8(utf8, c);
    }
    return utf8;
}

Line ReadLine(const std::string& raw) {
    std::size_t end = raw.size();
    while (end > 0 && (raw[end - 1] == '\r' || raw[end - 1] == '\n'))
        --end;
    const char* const last = raw.data() + end;
    Line line;
    const auto [behind, error] = std::from_chars(raw.data(), last, line.stamp);
    line.stamped = error == std::errc() && behind != last && *behind == ' ';
    const std::size_t from = line.stamped ? static_cast<std::size_t>(behind + 1 - raw.data()) : 0;
    line.text = FromWindows(raw.substr(from, end - from));
    return line;
}

bool AnnouncesCut(const Line& line) {
    return line.text == "Tronquage chaine";
}

Dump FindDump(const Line& line, bool announced) {
    const std::string_view text = line.text;
    for (const DumpText& known : DumpTexts) {
        if (!line.stamped || !text.starts_with(known.before))
            continue;
        Dump dump{known.kind, {}, false, ""};
        const std::string_view digits = text.substr(known.before.size());
        // The names of the messages begin like their dumps.
        if (known.kind == Dump::Omna && (digits.size() < 3 || digits[2] != '.'))
            return {};
        const auto bytes = digits.ends_with(known.after)
                               ? ReadBytes(digits.substr(0, digits.size() - known.after.size()))
                               : std::nullopt;
        if (!bytes || bytes->empty()) {
            dump.trouble = "no dump: not two digits and a period for each byte";
            return dump;
        }
        dump.bytes = *bytes;
        if (known.kind == Dump::Received)
            TakeReceived(dump, announced);
        else if (known.kind == Dump::Sent)
            TakeSent(dump);
        else
            TakeOmna(dump);
        return dump;
    }
    return {};
}

}  // namespace TraceReader
