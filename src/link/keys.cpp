#include "link/keys.h"

#include "link/link_layer.h"
#include "link/serial.h"
#include "trace/trace.h"

#include <algorithm>
#include <cstring>
#include <span>

std::array<AomEntry, AOM_COUNT> AomTable;
int AomCount = 0;
std::array<int, AOM_COUNT> AomOrder{0, 1, 2};

namespace {

using Item = std::span<const std::uint8_t>;
constexpr int DIALLED_LIMIT = 80;  // characters of a dial string that are pressed

const AomEntry& Aom(int entry) {
    return AomTable[static_cast<std::size_t>(entry)];
}

// A press as it stands in a Super Message: four bytes for the set, six for a module.
struct Press {
    std::array<std::uint8_t, 6> bytes{};
    std::size_t size = 0;
    operator Item() const { return Item(bytes).first(size); }
};

Press CodePress(int code) {
    return {{0x03, FRAME_KEY, EVENT_KEY, static_cast<std::uint8_t>(code)}, 4};
}

// Empty, traced, for a module key of a set without modules. `who` opens the trace of a module key.
Press KeyPress(int key, const char* format) {
    if (key <= SET_KEYS)
        return CodePress(key);
    const int entry = GetAomIndex(key);
    if (entry < 0) {
        Trace(TRACE_ALWAYS, "AOM Key %d: no module", key);
        return {};
    }
    const AomEntry& module = Aom(entry);
    Trace(TRACE_ENTRY, format, key, entry, module.adr);
    return {{0x05, FRAME_KEY, EVENT_MODULE, static_cast<std::uint8_t>(module.adr | 0x18), EVENT_KEY,
             static_cast<std::uint8_t>(key - module.offset)},
            6};
}

void Queue(Item item) {
    if (item.empty())
        return;
    std::array<std::uint8_t, 7> frame{};
    std::copy(item.begin(), item.end(), frame.begin());
    const auto whole = std::span(frame).first(item.size() + 1);
    SetChecksum(whole);
    QueueZTMsg(Serial.Port, whole);
}

void Append(SuperMsgBuffer& message, Item item) {
    if (message.Used + item.size() > SuperMsgBuffer::HEADER + SuperMsgBuffer::ITEMS)
        SuperMsgSend(message);
    std::copy(item.begin(), item.end(), message.Bytes.begin() + static_cast<std::ptrdiff_t>(message.Used));
    message.Used += item.size();
}

void AppendOrQueue(Item item, SuperMsgBuffer* message) {
    if (message != nullptr)
        Append(*message, item);
    else
        Queue(item);
}

bool IsLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

void SortAomModules() {
    AomOrder = {0, 1, 2};
    if (AomCount < 2)
        return;
    std::sort(AomOrder.begin(), AomOrder.begin() + std::min(AomCount, AOM_COUNT),
              [](int a, int b) { return Aom(a).offset != Aom(b).offset ? Aom(a).offset < Aom(b).offset : a > b; });
}

const AomEntry* FindAomByAddress(int address) {
    for (const AomEntry& entry : AomTable)
        if (entry.present && entry.adr == address)
            return &entry;
    return nullptr;
}

int GetAomIndex(int key) {
    for (int i = std::min(AomCount, AOM_COUNT) - 1; i >= 0; --i) {
        const int entry = AomOrder[static_cast<std::size_t>(i)];
        if (i == 0 || key > Aom(entry).offset)
            return entry;
    }
    return -1;
}

void SuperMsgSend(SuperMsgBuffer& message) {
    if (message.Used > SuperMsgBuffer::HEADER) {
        message.Bytes[0] = static_cast<std::uint8_t>(message.Used - 1);
        message.Bytes[1] = FRAME_SUPER;
        const auto whole = std::span(message.Bytes).first(message.Used + 1);
        SetChecksum(whole);
        QueueZTMsg(Serial.Port, whole);
    }
    message.Used = SuperMsgBuffer::HEADER;
}

PressSequence::PressSequence() : Together(Link.SuperMsgSupported) {}

void PressSequence::Key(int key) {
    if (Together)
        SuperMsgInsertZTNondigitKey(key, Message);
    else
        SendZTNondigitKey(key);
}

void PressSequence::SoftKey(int position) {
    if (Together)
        SuperMsgInsertSoftKey(position, Message);
    else
        SendSoftKey(position);
}

void PressSequence::DialString(char* text) {
    SendDialString(text, Together ? &Message : nullptr);
}

void PressSequence::ServiceCode(const char* code) {
    PressServiceCode(code, Together ? &Message : nullptr);
}

void PressSequence::Send() {
    SuperMsgSend(Message);
}

void PressKeyCode(int code) {
    Queue(CodePress(code));
}

int SendSoftKey(int number) {
    if (number < 1 || number > 5)
        return 0;
    PressKeyCode(SOFT_KEY_BASE + number);
    return number;
}

void SendZTNondigitKey(int key) {
    Queue(KeyPress(key, "SendZTNondigitKey AOM Key %d i_aom %d adr %d "));
}

void SuperMsgInsertZTNondigitKey(int key, SuperMsgBuffer& message) {
    Append(message, KeyPress(key, "SuperMsgInsertZTNondigitKey AOM Key %d i_aom %d adr %d "));
}

void SuperMsgInsertSoftKey(int position, SuperMsgBuffer& message) {
    if (position >= 1 && position <= 5)
        Append(message, CodePress(SOFT_KEY_BASE + position));
}

bool IsDialDigit(char c) {
    return (c >= '0' && c <= '9') || c == '*' || c == '#';
}

std::optional<std::array<std::uint8_t, 4>> PrepareDigitKey(char c) {
    if (!IsDialDigit(c))
        return std::nullopt;
    const int digit = c == '*' ? 10 : c == '#' ? 11 : c - '0';
    return std::array<std::uint8_t, 4>{0x03, FRAME_KEY, EVENT_DIGIT, static_cast<std::uint8_t>(digit)};
}

void SendDialString(char* text, SuperMsgBuffer* message, void (*removed)(int code)) {
    int counted = 0;
    for (char* at = text; *at != 0 && counted < DIALLED_LIMIT;) {
        if (const auto digit = PrepareDigitKey(*at))
            AppendOrQueue(*digit, message);
        else if (IsLetter(*at))
            AppendOrQueue(CodePress(*at), message);
        else {
            if (removed != nullptr)
                removed(static_cast<unsigned char>(*at));
            std::memmove(at, at + 1, std::strlen(at));
            continue;
        }
        ++counted;
        ++at;
    }
}

void PressServiceCode(const char* code, SuperMsgBuffer* message) {
    for (const char* at = code; *at != 0; ++at) {
        if (const auto digit = PrepareDigitKey(*at))
            AppendOrQueue(*digit, message);
        else
            Trace(TRACE_ALWAYS, "Service code '%s': character %x left out", code, static_cast<unsigned char>(*at));
    }
}

bool IsServiceCode(const char* code) {
    return std::any_of(code, code + std::strlen(code), IsDialDigit);
}
