#include "tracking/terminal.h"

#include "config/char_patterns.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "trace/trace.h"
#include "tracking/conference.h"
#include "tracking/display.h"
#include "tracking/events.h"
#include "tracking/model.h"
#include "tracking/multi_line.h"
#include "tracking/supervision.h"

#include <algorithm>
#include <cstring>

DisplayRecord Display;

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint8_t MODULE_PREFIX = 0x02;
constexpr std::uint8_t SUPER_MESSAGE = 0x0B;
constexpr int SUPER_MESSAGE_DEPTH = 8;   // Super Messages within one another
constexpr DWORD KEY_LAMPS = LAMP_COUNT;  // lamp identifier of key 0
constexpr DWORD ICON_OFF = 2;            // raw icon value of a module key that was cleared
constexpr int CURSOR_MAX = 1 << 20;      // far off the line; keeps the count from overflowing
constexpr auto ANSWERED_FRAME = FixedFrame(FRAME_KEY, 0x1F, 5, 1);

// Whose command it is.
struct Origin {
    int moduleMode;
    int address;
    int depth;
};

void DecodeCommand(Bytes command, Origin origin);

// --- lamps ---------------------------------------------------------------------------------------------------------

// PHONELAMPMODE_ by the first byte of a lamp command; 0: no such mode.
constexpr DWORD LampModes[] = {
    PHONELAMPMODE_OFF, PHONELAMPMODE_STEADY, 0, PHONELAMPMODE_FLASH, PHONELAMPMODE_FLUTTER, 0, PHONELAMPMODE_WINK};
constexpr std::uint8_t ALL_LAMPS_OFF = 7;

void LampsOff() {
    for (DWORD lamp = 0; lamp < LAMP_COUNT; ++lamp) {
        if (Display.Lamps[lamp] == 0)
            continue;
        PhoneStateEvent(PHONESTATE_LAMP, lamp);
        Display.Lamps[lamp] = PHONELAMPMODE_OFF;
    }
}

void Lamp(Bytes command, Origin) {
    if (command.size() < 3 || command[2] >= LAMP_COUNT)
        return;
    const std::uint8_t mode = command[1], lamp = command[2];
    PhoneStateEvent(PHONESTATE_LAMP, lamp);
    if (mode == ALL_LAMPS_OFF)
        LampsOff();
    else if (mode < std::size(LampModes) && LampModes[mode] != 0)
        Display.Lamps[lamp] = LampModes[mode];
}

// --- display -------------------------------------------------------------------------------------------------------

void ClearDisplay(Bytes, Origin) {
    for (auto& line : Display.Lines)
        std::memset(line, ' ', DISPLAY_COLUMNS);
}

// Stores what lies on the line; the position counts on past its end.
int WriteText(int line, int start, Bytes text) {
    if (start < DISPLAY_COLUMNS) {
        const std::size_t stored = std::min(text.size(), static_cast<std::size_t>(DISPLAY_COLUMNS - start));
        std::copy_n(text.begin(), stored, Display.Lines[line] + start);
    }
    return std::min(start + static_cast<int>(text.size()), CURSOR_MAX);
}

// Code, flags (mode in bits 0 and 1, bit 7: more of the update follows), position, text.
void DisplayWrite(Bytes command, Origin) {
    enum Mode { BLANK_FIRST = 0, AT_POSITION = 1, AT_CURSOR = 2, NOTHING = 3 };
    if (command.size() < 3)
        return;
    const int line = (command[0] & 0x7F) == 0x27 ? 0 : 1;
    const int mode = command[1] & 3;
    const bool complete = (command[1] & 0x80) == 0;
    if (mode == NOTHING)
        return;
    if (mode == BLANK_FIRST)
        std::memset(Display.Lines[line], ' ', DISPLAY_COLUMNS);
    const int start = mode == AT_CURSOR ? Display.Cursors[line] : command[2];
    const int end = WriteText(line, start, command.subspan(3));
    Display.Cursors[line] = end;
    DisplayChanged(line, start, end, complete);
}

void CharacterPatterns(Bytes command, Origin) {
    constexpr std::size_t GROUP = 9;  // character code, 8 rows of dots
    for (Bytes groups = command.subspan(1); groups.size() >= GROUP; groups = groups.subspan(GROUP))
        RecordCharPattern(groups.subspan<1, GROUP - 1>(), groups[0]);
}

// --- icons ---------------------------------------------------------------------------------------------------------

// The icon code that a 16-bit icon value shows; 0 for a value that shows none. Bits of 0xA8A8 tell the calls' icons
// apart, the others colour and rhythm.
int ReduceIcon(unsigned value) {
    switch (value & 0xA8A8) {
    case 0x2020: return ACTIV_ICON;
    case 0x2828: return HOLD_ICON;
    case 0x2800:
    case 0xA000:
    case 0xA020:
    case 0xA0A0: return INCOM_ICON;
    case 0: return (value & 0xFCFC) == 0 ? IDLE_ICON : RESERVED_ICON;
    default: return 0;
    }
}

// Code, key, value low, value high.
void Icon(Bytes command, Origin origin) {
    if (command.size() < 4)
        return;
    std::uint8_t key = command[1];
    if (origin.moduleMode != 0) {
        const AomEntry* const module = FindAomByAddress(origin.address);
        if (module == nullptr)
            return;
        key = static_cast<std::uint8_t>(key + module->offset);
        Trace(TRACE_ENTRY, "VTA: AOM ICON: %d", key);
    }
    if (key >= KEY_COUNT)
        return;
    const unsigned value = command[2] | static_cast<unsigned>(command[3]) << 8;
    TouchTable[key].rawIcon = value;
    PhoneStateEvent(PHONESTATE_LAMP, KEY_LAMPS + key);
    const int icon = ReduceIcon(value);
    if (icon == IDLE_ICON)
        Trace(TRACE_CALL, " VTA: ICON: %x, Value: %lx IDLE_ICON", key, value);
    else if (icon == RESERVED_ICON)
        Trace(TRACE_CALL, " VTA: ICON: %x, Value: %lx RESERVED_ICON", key, value);
    if (icon != 0)
        MultiIcon(icon, key);
}

void ModuleIconsOff(Bytes, Origin) {
    for (std::size_t key = 0; key < TouchTable.size(); ++key) {
        if (TouchTable[key].rawIcon == 0)
            continue;
        TouchTable[key].rawIcon = ICON_OFF;
        PhoneStateEvent(PHONESTATE_LAMP, KEY_LAMPS + static_cast<DWORD>(key));
    }
}

// --- the rest ------------------------------------------------------------------------------------------------------

void Answered(Bytes, Origin) {
    QueueZTMsg(Serial.Port, ANSWERED_FRAME);
}

// Items of a length byte and that many bytes. Positions are one byte, the code's own is 0.
void SuperMessage(Bytes command, Origin origin) {
    Trace(TRACE_ENTRY, "VTA: Super Message len %d", command.size());
    if (origin.depth >= SUPER_MESSAGE_DEPTH) {
        Trace(TRACE_ALWAYS, "VTA: Super Message nested too deep, len %d", command.size());
        return;
    }
    ++origin.depth;
    std::size_t position = 1;
    while (position < command.size() && position <= 0xFF) {
        const std::size_t length = command[position];
        if (position + 1 + length > command.size()) {
            Trace(TRACE_ALWAYS, "Bad ZT length in Super Message idx %d data[idx] %d", position, length);
            return;
        }
        DecodeCommand(command.subspan(position + 1, length), origin);
        position += 1 + length;
    }
    // Positions end at 255: a longer message is left where they end.
    if (position < command.size())
        Trace(TRACE_ALWAYS, "End Bad ZT length in Super Message idx %d data[idx] %d", position & 0xFF,
              command[position]);
}

void Handset(Bytes command, Origin) {
    if (command.size() >= 2 && command[1] == 1)
        PhoneStateEvent(PHONESTATE_HANDSETHOOKSWITCH, 0);
}

void LinkAlive(Bytes, Origin) {
    if (Link.LinkPollPeriod == POLL_PERIOD_ANSWERED)
        LinkProven();
}

void Speaker(Bytes, Origin) {
    PhoneStateEvent(PHONESTATE_SPEAKERVOLUME, 0);
}

void Ring(Bytes, Origin) {
    PhoneStateEvent(PHONESTATE_RINGMODE, 0);
}

using CommandHandler = void (*)(Bytes command, Origin origin);

constexpr auto CommandTable = [] {
    std::array<CommandHandler, 0x48> table{};
    table[0x06] = Answered;
    table[SUPER_MESSAGE] = SuperMessage;
    table[0x21] = Lamp;
    table[0x26] = ClearDisplay;
    table[0x27] = DisplayWrite;
    table[0x28] = DisplayWrite;
    table[0x29] = Handset;
    table[0x2B] = LinkAlive;
    table[0x36] = CharacterPatterns;
    table[0x3B] = Speaker;
    table[0x3E] = Ring;
    table[0x46] = ModuleIconsOff;
    table[0x47] = Icon;
    return table;
}();

void DecodeCommand(Bytes command, Origin origin) {
    while (!command.empty() && (command[0] & 0x7F) == MODULE_PREFIX) {
        if (command.size() < 2)
            return;
        Trace(TRACE_ENTRY, "VTA: Subdevice adr (%d) Command", command[1]);
        origin.moduleMode = 1;
        origin.address = command[1] & 7;
        command = command.subspan(2);
    }
    if (command.empty())
        return;
    const std::size_t code = command[0] & 0x7F;
    if (code >= CommandTable.size())
        return;
    if (const CommandHandler handle = CommandTable[code])
        handle(command, origin);
}

// --- events of the set ---------------------------------------------------------------------------------------------

void KeyPressed(int code) {
    constexpr int PROGRAMMABLE_KEYS = 28;
    constexpr int FOLLOWED_SOFT_KEYS = 3;
    if (code > SOFT_KEY_BASE && code <= SOFT_KEY_BASE + FOLLOWED_SOFT_KEYS)
        SoftKeyPressed(code - SOFT_KEY_BASE);
    else if (code >= 1 && code <= PROGRAMMABLE_KEYS)
        SupervKeyPressed(code);
}

void ModuleKeyPressed(int code, int address) {
    const AomEntry* const module = FindAomByAddress(address);
    if (module == nullptr)
        return;
    const int sum = module->offset + code;
    Trace(TRACE_ENTRY, "VTA: AOM key pushed: %d", sum);
    const int key = sum & 0x7F;
    if (key < KEY_COUNT)
        SupervKeyPressed(key);
}

}  // namespace

void DecodeSuperMessage(std::span<const std::uint8_t> command, int moduleMode, int address) {
    DecodeCommand(command, {moduleMode, address, 0});
}

void DecodeTerminalEvent(std::span<const std::uint8_t> event, int moduleMode, int address) {
    if (event.size() < 2)
        return;
    switch (event[0] & 0x7F) {
    case EVENT_DIGIT: DigitKeyPushed(event[1] & 0x7F); break;
    case EVENT_KEY:
        if (moduleMode != 0)
            ModuleKeyPressed(event[1], address);
        else
            KeyPressed(event[1] & 0x7F);
        break;
    default: break;
    }
}

void DigitKeyPushed(int digit) {
    constexpr char Characters[] = "0123456789*#";
    const std::size_t used = std::strlen(DialedNumber);
    if (digit >= 0 && digit < 12 && used + 1 < sizeof DialedNumber) {
        DialedNumber[used] = Characters[digit];
        DialedNumber[used + 1] = 0;
    }
    Trace(TRACE_ENTRY, "DigitKeyPushed %d DialedNumber %s", digit, DialedNumber);
}

void DisplayChanged(int line, int start, int end, bool complete) {
    // A write that lies within one soft key's 8 columns tells which.
    constexpr int SOFT_KEYS = 5, SOFT_KEY_COLUMNS = 8;
    int p = 0;
    if (line == 1) {
        for (int key = 1; key <= SOFT_KEYS; ++key)
            if (start > (key - 1) * SOFT_KEY_COLUMNS && end < key * SOFT_KEY_COLUMNS + 1)
                p = key;
    } else if (complete && start != end) {
        p = 1;
    }
    InterpretDisplay(line, p);
    if (complete)
        PhoneDisplayChanged();
    if (line == 0 && start != end)
        GetCallInformation(Tracking.OfferInfoCref);
}
