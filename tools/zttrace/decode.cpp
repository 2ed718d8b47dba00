#include "zttrace/decode.h"

#include "equipment/characters.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace TraceReader {

namespace {

using namespace Equipment;

constexpr int DepthLimit = 4;  // of messages within messages

// Reads on as far as there is something to read, and remembers when there was not.
struct Reader {
    ByteSpan bytes;
    bool cut = false;
    std::size_t at = 0;
    bool ranOut = false;

    bool More() const { return at < bytes.size(); }
    int Byte() {
        if (!More()) {
            ranOut = true;
            return 0;
        }
        return bytes[at++];
    }
    ByteSpan Take(std::size_t count) {
        const std::size_t left = bytes.size() - at;
        ranOut = ranOut || count > left;
        const ByteSpan taken = bytes.subspan(at, std::min(count, left));
        at += taken.size();
        return taken;
    }
    ByteSpan Rest() { return Take(bytes.size() - at); }
    std::string End() const { return !ranOut ? "" : cut ? " ... (cut in the trace)" : " ... (ends too early)"; }
};

std::string Text(int value) {
    return std::to_string(value);
}

std::string Upper(int value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*X", digits, static_cast<unsigned>(value));
    return text;
}

std::string Quoted(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return "\"" + text + "\"";
}

std::string Quoted(ByteSpan bytes) {
    return Quoted(FromSet(bytes));
}

template <std::size_t N> std::string Named(const char* const (&names)[N], int index, const std::string& otherwise) {
    return index >= 0 && static_cast<std::size_t>(index) < N && names[index] != nullptr ? names[index] : otherwise;
}

// --- link control

struct ControlName {
    int code;
    const char* sent;  // by the provider; empty = as received
    const char* received;
};
constexpr ControlName ControlNames[] = {
    {0x00, "", "ACK"},
    {0x01, "poll", "poll answered"},
    {0x10, "special function", "special function answered"},
    {0x11, "configuration enquiry", "Config Response"},
    {0x12, "tempo modification", "tempo modification answered"},
    {0x13, "tempo enquiry", "Tempo Enquiry Response"},
    {0x83, "", "NACK: wrong length"},
    {0x84, "", "NACK: wrong checksum"},
    {0x85, "resynchronisation", "NACK: loss of synchro"},
    {0x86, "", "abort"},
    {0x87, "", "contact with the card lost, or its test"},
    {0x88, "", "reset"},
};

std::string ControlWords(Reader in, bool fromCard) {
    const int code = in.Byte();
    const auto* const known =
        std::find_if(std::begin(ControlNames), std::end(ControlNames), [&](auto& name) { return name.code == code; });
    if (known == std::end(ControlNames))
        return "link control " + Upper(code, 2) + in.End();
    std::string text = fromCard || *known->sent == 0 ? known->received : known->sent;
    if (code == ControlConfig && fromCard && in.More()) {
        const int major = in.Byte();
        text += " " + Text(major) + ".";
        const int minor = in.Byte();
        text += (minor < 10 ? "0" : "") + Text(minor);
        in.Byte();
        const int flags = in.Byte();
        text += std::string((flags & 1) != 0 ? " super frames" : "") + ((flags & 2) != 0 ? " piggyback" : "");
    } else if ((code == ControlTempo || code == 0x13) && in.More()) {
        text += " " + Text(in.Byte());
    }
    return text + in.End();
}

// --- the PBX to the set

const char* IconWords(int value) {
    switch (value & 0xA8A8) {
    case 0x2020: return "ACTIVE";
    case 0x2828: return "HOLD";
    case 0x2800:
    case 0xA000:
    case 0xA020:
    case 0xA0A0: return "INCOMING";
    case 0: return (value & 0xFCFC) == 0 ? "IDLE" : "RESERVED";
    default: return "no known state";
    }
}

// Line 1 shows the soft keys in five fields of 8 columns.
std::string SoftKeyWords(ByteSpan text, std::size_t position) {
    std::string words;
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t column = position + from;
        const std::size_t length = std::min(8 - column % 8, text.size() - from);
        const std::string label = Quoted(text.subspan(from, length));
        if (label != "\"\"" || text.size() <= 8)
            words += (words.empty() ? "" : ", ") + Text(static_cast<int>(column / 8 + 1)) + " " + label;
        from += length;
    }
    return words.empty() ? "blank" : words;
}

std::string DisplayWords(Reader& in, int line) {
    const int mode = in.Byte();
    const int position = in.Byte();
    const ByteSpan text = in.Rest();
    const int way = mode & 3;
    std::string words;
    if (line == 1 && way < 2)
        words = "soft keys: " + SoftKeyWords(text, static_cast<std::size_t>(position));
    else
        words = "display line " + Text(line) + " " + Quoted(text);
    if (line == 0 && way != 2 && position != 0)
        words += " at column " + Text(position);
    words += way == 1 ? ", the rest stays" : way == 2 ? ", at the cursor" : way == 3 ? ", nothing written" : "";
    return words + ((mode & 0x80) != 0 ? ", more follows" : "");
}

std::string LampWords(Reader& in) {
    static constexpr const char* modes[] = {"OFF",     "STEADY", nullptr, "FLASH",
                                            "FLUTTER", nullptr,  "WINK",  "all lamps OFF"};
    const int mode = in.Byte();
    const int lamp = in.Byte();
    return "lamp " + Text(lamp) + ": " + Named(modes, mode, "mode " + Text(mode));
}

// `who`: "set", or "module 2", whose keys have numbers of their own.
void Command(std::vector<Said>& said, Reader in, const std::string& who, bool module, int depth) {
    const auto say = [&](const std::string& words, std::vector<int> keys = {}) {
        said.push_back({"PBX to " + who + ": " + words + in.End(), std::move(keys)});
    };
    const int code = in.Byte() & 0x7F;
    switch (code) {
    case 0x02: {
        const int address = in.Byte() & 7;
        if (in.More() && depth < DepthLimit)
            return Command(said, Reader{in.Rest(), in.cut}, "module " + Text(address), true, depth + 1);
        return say("module " + Text(address));
    }
    case 0x06: return say("answered");
    case 0x0B:
        while (in.More() && depth < DepthLimit) {
            const auto length = static_cast<std::size_t>(in.Byte());
            const ByteSpan command = in.Take(length);
            const bool cutHere = in.ranOut && in.cut;
            if (!command.empty() && (!in.ranOut || cutHere))
                Command(said, Reader{command, cutHere}, who, module, depth + 1);
            else if (in.ranOut)
                say("Super Message");
        }
        return;
    case 0x21: return say(LampWords(in));
    case 0x26: return say("clear display");
    case 0x27:
    case 0x28: {
        const std::string words = DisplayWords(in, code - 0x27);
        in.ranOut = in.ranOut || in.cut;
        return say(words);
    }
    case 0x29: return say(std::string("handset ") + (in.Byte() == 1 ? "changed" : "unchanged"));
    case 0x2B: return say("link alive");
    case 0x36: return say("character patterns: " + Text(static_cast<int>(in.Rest().size() / 9)));
    case 0x3B: return say("speaker " + Text(in.Byte()));
    case 0x3E: return say("ring " + Text(in.Byte()));
    case 0x46: return say("all icons off");
    case 0x47: {
        const int key = in.Byte();
        const int low = in.Byte();
        const int value = low + 256 * in.Byte();
        if (in.ranOut)
            return say("icon of key " + Text(key), module ? std::vector<int>{} : std::vector{key});
        return say("icon of key " + Text(key) + (module ? " of its own" : "") + ": " + IconWords(value) + " (" +
                       Upper(value, 4) + ")",
                   module ? std::vector<int>{} : std::vector{key});
    }
    default: return say("command " + Upper(code, 2) + (in.More() ? " " + Hex(in.Rest()) : ""));
    }
}

// --- keys

std::string DigitWords(int digit) {
    return digit < 10 ? Text(digit) : digit == 10 ? "*" : digit == 11 ? "#" : "code " + Text(digit);
}

std::string KeyWords(int code) {
    if (code >= 29 && code <= 33)
        return "soft key " + Text(code - 28);
    if (code == 41)
        return "RELEASE_KEY";
    if (code == 48)
        return "OFFHOOK_KEY";
    if ((code >= 'A' && code <= 'Z') || (code >= 'a' && code <= 'z'))
        return std::string("letter ") + static_cast<char>(code);
    return "key " + Text(code);
}

// What the set, or a module, reports.
Said Event(Reader in, const std::string& who, bool module) {
    const int code = in.Byte() & 0x7F;
    Said said;
    if (code == 0x03) {
        said.text = "digit " + DigitWords(in.Byte() & 0x7F);
    } else if (code == 0x20) {
        const int key = in.Byte() & 0x7F;
        said.text = (module ? "key " + Text(key) + " of its own" : KeyWords(key)) + " pressed";
        if (!module && key <= 28)
            said.keys = {key};
    } else {
        said.text = "event " + Upper(code, 2) + (in.More() ? " " + Hex(in.Rest()) : "");
    }
    said.text = who + ": " + said.text + in.End();
    return said;
}

// What the provider presses.
Said Press(Reader in) {
    const int code = in.Byte();
    Said said;
    if (code == 0x03) {
        said.text = "press digit " + DigitWords(in.Byte());
    } else if (code == 0x04) {
        const int address = in.Byte() & 7;
        in.Byte();
        said.text = "press key " + Text(in.Byte()) + " of module " + Text(address);
    } else if (code == 0x20) {
        const int key = in.Byte();
        said.text = "press " + KeyWords(key);
        if (key <= 28)
            said.keys = {key};
    } else if (code == 0x1F) {
        said.text = "reply to \"answered\" " + Hex(in.Rest());
    } else {
        said.text = "press " + Upper(code, 2) + " " + Hex(in.Rest());
    }
    said.text += in.End();
    return said;
}

// --- TAPI_OMNA messages

constexpr const char* DisplayStringNames[] = {"HangUp", "CancelSecondCall", "Dial"};
constexpr const char* SoftKeyNames[] = {"SecondCall", "EndSecondCall",    "Swap",    "Conference",
                                        "FreqVocale", "CancelFreqVocale", "Transfer"};
constexpr const char* CodeNames[] = {"ForwardingImm",    "ForwardingBusy", "ForwardingNoRep", "ForwadingBusyNoRep",
                                     "CancelForwarding", "DTMF",           "CallPickUp"};

void Count(Reader& in, Said& said, const char* what) {
    said.text += Text(in.Byte()) + " " + what;
}

void First(Reader& in, Said& said) {
    said.text += "from entry " + Text(in.Byte());
}

// Goes through the entries of an information message: each with its number, then what `rest` reads.
void Entries(Reader& in, Said& said, auto&& entry) {
    const int count = in.Byte();
    said.text += count == 0 ? "none" : "";
    for (int i = 0; i < count && in.More(); ++i) {
        said.text += i == 0 ? "" : ", ";
        entry(in.Byte());
    }
    in.ranOut = in.ranOut || (in.cut && !in.More());
}

std::string Label(Reader& in) {
    return Quoted(in.Take(static_cast<std::size_t>(in.Byte())));
}

void KeyEntries(Reader& in, Said& said) {
    Entries(in, said, [&](int key) {
        said.keys.push_back(key);
        said.text += "key " + Text(key) + " " + Label(in);
        in.Byte();
    });
}

void SpecialEntries(Reader& in, Said& said) {
    static constexpr const char* kinds[] = {"supervision", "boss", "secretary", "secretary overflow"};
    Entries(in, said, [&](int key) {
        said.keys.push_back(key);
        const int kind = in.Byte();
        said.text += "key " + Text(key) + " " + Named(kinds, kind - 7, "kind " + Text(kind)) + " " + Label(in);
    });
}

template <const auto& Names> void NamedEntries(Reader& in, Said& said) {
    Entries(in, said, [&](int id) { said.text += Named(Names, id, "number " + Text(id)) + " " + Label(in); });
}

void SpecialCounts(Reader& in, Said& said) {
    static constexpr const char* kinds[] = {" supervision, ", " boss, ", " secretary, ", " secretary overflow keys"};
    for (const char* kind : kinds)
        said.text += Text(in.Byte()) + kind;
}

void MultiLineCount(Reader& in, Said& said) {
    Count(in, said, "multi-line keys");
}
void StringCount(Reader& in, Said& said) {
    Count(in, said, "display strings");
}
void SoftKeyCount(Reader& in, Said& said) {
    Count(in, said, "soft keys");
}
void CodeCount(Reader& in, Said& said) {
    Count(in, said, "service codes");
}

void Association(Reader& in, Said& said, int version) {
    static constexpr const char* languages[] = {nullptr, "French", "English", nullptr, "German", "Spanish", "Italian"};
    static constexpr const char* forwards[] = {"unconditionally", "on busy", "on no answer", "on busy or no answer"};
    in.Byte();
    const int language = in.Byte();
    said.text += "version " + Text(version) + ", set " + Label(in) + ", " +
                 Named(languages, language, "language " + Text(language));
    if (version < 2)
        return;
    const int type = in.Byte();
    said.text += ", type " + Text(type) + (type == 3 ? " (KB2)" : "") + ", multi mode " + Text(in.Byte());
    const int forward = in.Byte();
    if (forward < 4) {
        const auto length = static_cast<std::size_t>(in.Byte());
        in.Byte();
        said.text += std::string(", forwarded ") + forwards[forward] + " to " + Quoted(in.Take(length));
    } else {
        said.text += ", not forwarded";
    }
    while (in.More() && !in.ranOut) {
        const int module = in.Byte();
        if (module == 0)
            break;
        said.text += ", module " + Text(module & 7) + " with keys above " + Text(in.Byte());
    }
}

// A number with its flags in front, then a name, which alone comes in the code page of Windows.
std::string Party(Reader& in, const char* who) {
    const auto length = static_cast<std::size_t>(in.Byte());
    const int flags = in.Byte();
    const std::string number = Quoted(in.Take(length));
    const ByteSpan spelt = in.Take(static_cast<std::size_t>(in.Byte()));
    const std::string name = Quoted(FromWindows(std::string(spelt.begin(), spelt.end())));
    std::string text = std::string(", ") + who;
    if (number == "\"\"" && name == "\"\"")
        return text + " not given";
    text += " " + number;
    const int origin = flags & 15;
    text += origin == 1 ? " internal" : origin == 2 ? " external" : "";
    text += (flags & 0x80) != 0 ? " without prefix" : "";
    text += (flags & 0x40) != 0 ? " no operator prefix" : "";
    return name == "\"\"" ? text : text + " name " + name;
}

void CallHead(Reader& in, Said& said) {
    static constexpr const char* reasons[] = {"DIRECT",   "FWDBUSY",  "FWDNOANSWER", "FWDUNCOND",
                                              "PICKUP",   "UNPARK",   "REDIRECT",    "CALLCOMPLETION",
                                              "TRANSFER", "REMINDER", "UNKNOWN"};
    const int key = in.Byte();
    said.keys.push_back(key);
    const int reason = in.Byte();
    said.text += "key " + Text(key) + ", reason " + Named(reasons, reason, "UNAVAIL") + " (" + Text(reason) + ")";
}

void IncomingCall(Reader& in, Said& said) {
    CallHead(in, said);
    said.text += Party(in, "caller");
    said.text += Party(in, "called");
}

void OutgoingCall(Reader& in, Said& said) {
    CallHead(in, said);
    said.text += Party(in, "called");
}

void ConnectedCall(Reader& in, Said& said) {
    CallHead(in, said);
    said.text += Party(in, "connected");
}

void TransferredCall(Reader& in, Said& said) {
    const int key = in.Byte();
    said.keys.push_back(key);
    said.text += "key " + Text(key);
}

struct MessageName {
    int code;
    const char* name;
    void (*fields)(Reader&, Said&);
};
constexpr MessageName MessageNames[] = {
    {2, "device association request", nullptr},
    {3, "DEVICE_ASSOC_ACK", nullptr},  // its fields depend on the version
    {4, "no multi-line key: end of the configuration reading", nullptr},
    {6, "key request", nullptr},
    {7, "KEY_ACK", MultiLineCount},
    {8, "key information request", First},
    {9, "KEY_INFO_ACK", KeyEntries},
    {10, "string request", nullptr},
    {11, "STRING_ACK", StringCount},
    {12, "string information request", First},
    {13, "STRING_INFO_ACK", NamedEntries<DisplayStringNames>},
    {14, "soft-key request", nullptr},
    {15, "SK_ACK", SoftKeyCount},
    {16, "soft-key information request", First},
    {17, "SK_INFO_ACK", NamedEntries<SoftKeyNames>},
    {18, "service-code request", nullptr},
    {19, "CODE_ACK", CodeCount},
    {20, "service-code information request", First},
    {21, "CODE_INFO_ACK", NamedEntries<CodeNames>},
    {23, "EVENT_INCOMING_CHANGE", IncomingCall},
    {24, "EVENT_OUTGOING_CALL", OutgoingCall},
    {25, "EVENT_CONNECTED_CALL", ConnectedCall},
    {28, "TA_M_EVENT_TRANSFERED_CALL", TransferredCall},
    {30, "special-key request", nullptr},
    {31, "KEY_SPE_ACK", SpecialCounts},
    {32, "special-key information request", First},
    {33, "KEY_SPE_INFO_ACK", SpecialEntries},
};

Said MessageWords(ByteSpan message, bool cut) {
    Reader in{message, cut};
    in.Take(2);
    const int version = in.Byte(), messageClass = in.Byte(), code = in.Byte(), sequence = in.Byte();
    const auto* const known =
        std::find_if(std::begin(MessageNames), std::end(MessageNames), [&](auto& name) { return name.code == code; });
    Said said;
    if (messageClass != 0 || known == std::end(MessageNames)) {
        said.text = "TAPI_OMNA message of class " + Text(messageClass) + " code " + Text(code) + " #" + Text(sequence) +
                    (in.More() ? ": " + Hex(in.Rest()) : "") + in.End();
        return said;
    }
    said.text = std::string(known->name) + " #" + Text(sequence);
    if (code == 3 || known->fields != nullptr)
        said.text += ": ";
    if (code == 3)
        Association(in, said, version);
    else if (known->fields != nullptr)
        known->fields(in, said);
    said.text += in.End();
    return said;
}

std::string TypeWords(int type) {
    switch (type) {
    case TypeAreYouThere: return "are you there?";
    case TypeRestart: return "restart";
    case TypeSetQuery: return "set query";
    case TypeSetReply: return "reply to the set query";
    default: return "frame of type " + Upper(type, 2);
    }
}

}  // namespace

void Decoder::Restart() {
    received.Reset();
    sent.Reset();
    lastMessage.clear();
}

void Decoder::Message(std::vector<Said>& said, ByteSpan message, bool fromCard, bool cut) {
    said.push_back(MessageWords(message, cut));
    if (fromCard && !cut)
        lastMessage.assign(message.begin(), message.end());
}

void Decoder::Item(std::vector<Said>& said, ByteSpan item, bool fromCard, bool cut, int depth) {
    if (item.empty() || depth > DepthLimit)
        return;
    Reader in{item, cut};
    const int type = in.Byte();
    const auto messages = [&] {
        while (in.More()) {
            const auto length = static_cast<std::size_t>(in.Byte());
            const ByteSpan inner = in.Take(length);
            if (in.ranOut && (!cut || inner.empty()))
                break;
            Item(said, inner, fromCard, in.ranOut, depth + 1);
            if (in.ranOut)
                return;  // it says itself that it is cut
        }
        if (in.ranOut || cut)
            said.push_back({cut ? "... (the rest is cut in the trace)" : "... (ends too early)", {}, false});
    };
    switch (type) {
    case TypeControl: said.push_back({ControlWords(Reader{in.Rest(), cut}, fromCard), {}}); return;
    case TypeToSet: Command(said, Reader{in.Rest(), cut}, "set", false, 0); return;
    case TypeFromSet: said.push_back(Event(Reader{in.Rest(), cut}, "set", false)); return;
    case TypeToModule: {
        const std::string who = "module " + Text(in.Byte() & 7);
        Command(said, Reader{in.Rest(), cut}, who, true, 0);
        return;
    }
    case TypeFromModule: {
        const std::string who = "module " + Text(in.Byte() & 7);
        said.push_back(Event(Reader{in.Rest(), cut}, who, true));
        return;
    }
    case TypeKeyPress: said.push_back(Press(Reader{in.Rest(), cut})); return;
    case TypeOmna: Message(said, in.Rest(), fromCard, cut); return;
    case TypeSegment: {
        Reassembly& whole = fromCard ? received : sent;
        const int number = in.Byte();
        const auto result = cut ? Reassembly::Result::Unexpected : whole.Add(item);
        const bool first = (number & 0x80) != 0;
        const int follow = number & 0x7F;
        said.push_back({std::string(first ? "long message begins" : "long message goes on") +
                            (follow > 0 ? ", " + Text(follow) + " to follow" : ", complete") +
                            (result == Reassembly::Result::Unexpected    ? " (not the one that was expected)"
                             : result == Reassembly::Result::WrongLength ? " (of another length than announced)"
                                                                         : ""),
                        {}});
        if (result == Reassembly::Result::Complete)
            Message(said, whole.message, fromCard, false);
        return;
    }
    case TypeSuper:
    case TypeOldContainer: messages(); return;
    case TypeAttached: {
        const ByteSpan control = in.Take(static_cast<std::size_t>(in.Byte()));
        Item(said, control, fromCard, in.ranOut && cut, depth + 1);
        messages();
        return;
    }
    default: said.push_back({TypeWords(type) + (in.More() ? ": " + Hex(in.Rest()) : ""), {}}); return;
    }
}

std::vector<Said> Decoder::Explain(const Dump& dump) {
    std::vector<Said> said;
    if (dump.kind == Dump::None)
        return said;
    if (!dump.trouble.empty())
        return {{"(" + dump.trouble + ")", {}}};
    if (dump.kind != Dump::Omna) {
        Item(said, dump.bytes, dump.kind == Dump::Received, dump.cut, 0);
        if (said.empty())
            said.push_back({"(no message in it)", {}, false});
        return said;
    }
    // Its frame, just above, has said it: and whole, where this dump is cut.
    const bool repeated = !lastMessage.empty() && lastMessage.size() >= dump.bytes.size() &&
                          dump.cut == (lastMessage.size() > dump.bytes.size()) &&
                          std::equal(dump.bytes.begin(), dump.bytes.end(), lastMessage.begin());
    said.push_back(repeated ? MessageWords(lastMessage, false) : MessageWords(dump.bytes, dump.cut));
    said.back().repeated = repeated;
    return said;
}

}  // namespace TraceReader
