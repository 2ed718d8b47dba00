// What the set shows - icons, display, soft keys, ring - and how it gets to the provider's side.
#include "equipment/characters.h"
#include "equipment/set_parts.h"

#include <algorithm>
#include <cstdio>

namespace Equipment {

namespace {

// What the PBX tells the set.
constexpr std::uint8_t CommandLamp = 0x21;
constexpr std::uint8_t CommandClearDisplay = 0x26;
constexpr std::uint8_t CommandLine0 = 0x27;  // line 1 is one more
constexpr std::uint8_t CommandHandset = 0x29;
constexpr std::uint8_t CommandSpeaker = 0x3B;
constexpr std::uint8_t CommandRing = 0x3E;
constexpr std::uint8_t CommandModuleIconsOff = 0x46;
constexpr std::uint8_t CommandIcon = 0x47;
constexpr int MorePieces = 0x80;            // in the mode byte of a display write
constexpr std::size_t WireTextLimit = 200;  // characters of one display write

std::uint8_t Byte(int value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

// Each state's icon. On a key with two calls the higher rank shows.
struct StateIcon {
    std::uint16_t icon;
    int rank;
};
constexpr StateIcon StateIcons[CallStates] = {
    /* Ringing     */ {RingingIcon, 2},
    /* DialTone    */ {ActiveIcon, 3},
    /* Dialling    */ {ActiveIcon, 3},
    /* FarRinging  */ {ActiveIcon, 3},
    /* Connected   */ {ActiveIcon, 3},
    /* Held        */ {HeldIcon, 1},
    /* RingingBack */ {RingingIcon, 2},
    /* Conferenced */ {ActiveIcon, 3},
    /* Served      */ {ActiveIcon, 3},
    /* Over        */ {ActiveIcon, 3},
};

// Name and number as line 0 shows them during a call. Version 1 of the PBX puts one blank between them.
std::string PartyText(const Machine& machine, const SetCall& call) {
    std::string text = call.name;
    if (!call.name.empty() && !call.number.empty())
        text += machine.config.omna <= 1 ? " " : "  ";
    return (call.diverted ? "=>" : "") + text + call.number;
}

// --- soft keys: a row for each situation, a column for each field of line 1

constexpr int Nothing = -1;
enum Situation { AtRest, Alone, AloneOnOneSlot, SecondMade, SecondRings, Two, Elsewhere, RingsElsewhere, InConference };
constexpr std::array<int, 5> SoftKeyTable[] = {
    /* AtRest         */ {Nothing, Nothing, Nothing, Nothing, Nothing},
    /* Alone          */ {SecondCall, Nothing, Nothing, Nothing, FreqVocale},
    /* AloneOnOneSlot */ {Nothing, Nothing, Nothing, Nothing, FreqVocale},
    /* SecondMade     */ {EndSecondCall, Nothing, Nothing, Nothing, Nothing},
    /* SecondRings    */ {EndSecondCall, Nothing, Nothing, Transfer, Nothing},
    /* Two            */ {EndSecondCall, Swap, Conference, Transfer, FreqVocale},
    /* Elsewhere      */ {SecondCall, Nothing, Conference, Transfer, FreqVocale},
    /* RingsElsewhere */ {Nothing, Nothing, Nothing, Transfer, Nothing},
    /* InConference   */ {Nothing, Nothing, Conference, Transfer, Nothing},
};

// Where second calls are made on the same key, EndSecondCall stands for such a call alone: with the other call on
// another key it must not show, and SecondCall must, or nobody would learn that one of two calls on the key has gone. A
// key of one call offers no second one there.
Situation SituationOf(Machine& machine) {
    const SetCall* active = ActiveCall(machine);
    if (active == nullptr)
        return AtRest;
    const bool sameKey = Beside(machine, *active) != nullptr;
    const bool other = !sameKey && !Partners(machine, *active).empty();
    const bool oneKeyMode = machine.config.multiMode != 0;
    switch (active->state) {
    case CallState::Conferenced: return InConference;
    case CallState::Connected:
        if (sameKey || (other && !oneKeyMode))
            return Two;
        if (other)
            return Elsewhere;
        return oneKeyMode && !IsKind(machine, active->key, KindMulti) ? AloneOnOneSlot : Alone;
    case CallState::FarRinging:
        if (sameKey || (other && !oneKeyMode))
            return SecondRings;
        return other ? RingsElsewhere : AtRest;
    default: return sameKey ? SecondMade : AtRest;
    }
}

std::vector<std::string> Labels(const Machine& machine, Situation situation, bool tones) {
    std::vector<std::string> labels;
    for (const int key : SoftKeyTable[situation])
        labels.push_back(key == Nothing               ? ""
                         : key == FreqVocale && tones ? Label(machine, CancelFreqVocale)
                                                      : Label(machine, static_cast<SoftKey>(key)));
    return labels;
}

}  // namespace

std::string KeyText(int key) {
    return "key " + std::to_string(key);
}

const KeyConfiguration* Configured(const Machine& machine, int key) {
    for (const KeyConfiguration& entry : machine.config.keys)
        if (entry.number == key)
            return &entry;
    return nullptr;
}

// The module that a key above the set's own stands on: the one with the highest offset below it.
const ModuleConfiguration* ModuleOf(const Machine& machine, int key) {
    const ModuleConfiguration* found = nullptr;
    for (const ModuleConfiguration& module : machine.config.modules)
        if (key > SetKeyCount && module.offset < key && (found == nullptr || module.offset > found->offset))
            found = &module;
    return found;
}

bool IsKind(const Machine& machine, int key, KeyKind kind) {
    const KeyConfiguration* configured = Configured(machine, key);
    return configured != nullptr && configured->kind == kind;
}

bool IsPartnerKey(const Machine& machine, int key) {
    return IsKind(machine, key, KindBoss) || IsKind(machine, key, KindSecretary);
}

std::string CheckKey(const Machine& machine, int key) {
    if (key < 1 || key >= KeyCount)
        return KeyText(key) + " does not exist: 1 to " + std::to_string(KeyCount - 1);
    if (key > SetKeyCount && ModuleOf(machine, key) == nullptr)
        return KeyText(key) + " stands on an add-on module, and none has it";
    return "";
}

// --- what goes over the wire

void Command(Machine& machine, Bytes command) {
    command.insert(command.begin(), TypeToSet);
    machine.Queue(std::move(command), true);
}

void Event(Machine& machine, int code, int value) {
    machine.Queue({TypeFromSet, Byte(code), Byte(value)}, true);
}

void KeyEvent(Machine& machine, int key) {
    if (const ModuleConfiguration* module = ModuleOf(machine, key))
        machine.Queue({TypeFromModule, Byte(module->address), EventKey, Byte(key - module->offset)}, true);
    else
        Event(machine, EventKey, key);
}

void DigitEvent(Machine& machine, char character) {
    if (IsLetter(character))
        Event(machine, EventKey, character);
    else
        Event(machine, EventDigit, character == '*' ? 10 : character == '#' ? 11 : character - '0');
}

void PutIcon(Machine& machine, int key, std::uint16_t value) {
    machine.set.icons[static_cast<std::size_t>(key)] = value;
    const std::uint8_t low = Byte(value), high = Byte(value >> 8);
    if (const ModuleConfiguration* module = ModuleOf(machine, key))
        machine.Queue({TypeToModule, Byte(module->address), CommandIcon, Byte(key - module->offset), low, high}, true);
    else
        Command(machine, {CommandIcon, Byte(key), low, high});
}

void Write(Machine& machine, int line, const Bytes& text, int position, int mode, bool more) {
    const auto row = static_cast<std::size_t>(line);
    auto& shown = machine.set.display[row];
    if (mode == 0)
        shown.fill(' ');
    int at = mode == 2 ? machine.set.cursor[row] : position;
    for (const std::uint8_t c : text) {
        if (at < DisplayWidth)
            shown[static_cast<std::size_t>(at)] = c;
        ++at;
    }
    machine.set.cursor[row] = at;
    Bytes command{Byte(CommandLine0 + line), Byte(mode | (more ? MorePieces : 0)), Byte(position)};
    command.insert(command.end(), text.begin(),
                   text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), WireTextLimit)));
    Command(machine, command);
}

void Line0(Machine& machine, const std::string& text) {
    Write(machine, 0, ToSet(text), 0, 0, false);
}

void Line1(Machine& machine, const std::vector<std::string>& labels) {
    Bytes text;
    auto& shown = machine.set.softKeys;
    const auto before = shown;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        shown[i] = i < labels.size() ? labels[i] : "";
        // The last column of a field stays blank, so that neighbours do not run together.
        const Bytes field = ToField(shown[i], 7);
        text.insert(text.end(), field.begin(), field.end());
        text.push_back(' ');
    }
    if (shown != before || !std::equal(text.begin(), text.end(), machine.set.display[1].begin()))
        Write(machine, 1, text, 0, 0, false);
}

std::string Label(const Machine& machine, SoftKey key) {
    const auto index = static_cast<std::size_t>(key);
    return index < machine.config.softKeys.size() ? machine.config.softKeys[index] : "";
}

std::string Prompt(const Machine& machine, DisplayString text) {
    const auto index = static_cast<std::size_t>(text);
    return index < machine.config.strings.size() ? machine.config.strings[index] : "";
}

std::uint16_t IconOf(const Machine& machine, int key) {
    StateIcon shown{NoIcon, 0};
    for (const SetCall& call : machine.set.calls) {
        const StateIcon& own = StateIcons[static_cast<int>(call.state)];
        if (call.key == key && own.rank > shown.rank)
            shown = call.reserved ? StateIcon{ReservedIcon, own.rank} : own;
    }
    return shown.icon;
}

void ShowIcon(Machine& machine, int key) {
    if (const std::uint16_t icon = IconOf(machine, key); icon != machine.set.icons[static_cast<std::size_t>(key)])
        PutIcon(machine, key, icon);
}

void ShowRinging(Machine& machine) {
    const bool on = Find(machine, IsRinging) != nullptr;
    if (machine.set.ringing == on)
        return;
    machine.set.ringing = on;
    Command(machine, {CommandRing, Byte(on ? 1 : 0)});
}

void ShowParty(Machine& machine, const SetCall& call) {
    if (const std::string text = PartyText(machine, call); !text.empty())
        Line0(machine, text);
}

void ShowCallerOf(Machine& machine, const SetCall& call) {
    if (Find(machine, IsBeingMade) != nullptr)
        return;
    std::string text = std::to_string(call.key) + ":" + call.name;
    if (!call.name.empty() && !call.number.empty())
        text += "  ";
    Line0(machine, text + call.number);
}

void ShowKeys(Machine& machine) {
    const SetCall* active = ActiveCall(machine);
    Line1(machine, Labels(machine, SituationOf(machine), active != nullptr && active->tones));
}

// The parties side by side, in 12 columns each: after the conference the provider finds in line 0 who has stayed.
void ShowConference(Machine& machine, const SetCall& first, const SetCall& second) {
    Bytes line(28, ' ');
    const auto put = [&](std::size_t at, const SetCall& call) {
        const Bytes field = ToField(PartyText(machine, call), 12);
        std::copy(field.begin(), field.end(), line.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(0, first);
    put(14, second);
    const Bytes label = ToSet(Label(machine, Conference));
    line.insert(line.end(), label.begin(), label.end());
    Write(machine, 0, line, 0, 0, false);
}

void ShowWhatIsLeft(Machine& machine) {
    const SetCall* active = ActiveCall(machine);
    if (active != nullptr && active->state == CallState::Connected) {
        ShowParty(machine, *active);
    } else if (active == nullptr) {
        if (const SetCall* ringing = Find(machine, IsRinging))
            ShowCallerOf(machine, *ringing);
        else
            Line0(machine, machine.config.idleText);
    }
    ShowKeys(machine);
}

// --- single commands

std::string SetIcon(Machine& machine, int key, std::uint16_t value) {
    const Action action(machine);
    if (key != 0)
        if (std::string error = CheckKey(machine, key); !error.empty())
            return error;
    PutIcon(machine, key, value);
    return "";
}

std::string SetLamp(Machine& machine, int lamp, int mode) {
    const Action action(machine);
    if (lamp < 0 || lamp > 255 || mode < 0 || mode > 255)
        return "lamp and mode are bytes";
    if (mode == 7)
        machine.set.lamps.fill(0);
    else if (lamp < LampCount)
        machine.set.lamps[static_cast<std::size_t>(lamp)] = mode;
    Command(machine, {CommandLamp, Byte(mode), Byte(lamp)});
    return "";
}

std::string WriteDisplay(Machine& machine, int line, const std::string& text, int position, int mode, bool more) {
    const Action action(machine);
    if (line < 0 || line > 1)
        return "lines are 0 and 1";
    if (position < 0 || position > 255 || mode < 0 || mode > 2)
        return "position is a byte, mode 0 to 2";
    Write(machine, line, ToSet(text), position, mode, more);
    if (line == 1)  // what stands in the fields now
        for (std::size_t i = 0; i < machine.set.softKeys.size(); ++i) {
            std::string label = FromSet(ByteSpan(machine.set.display[1]).subspan(8 * i, 8));
            label.erase(label.find_last_not_of(' ') + 1);
            label.erase(0, label.find_first_not_of(' '));
            machine.set.softKeys[i] = label;
        }
    return "";
}

std::string ClearDisplay(Machine& machine) {
    const Action action(machine);
    for (auto& row : machine.set.display)
        row.fill(' ');
    machine.set.softKeys = {};
    Command(machine, {CommandClearDisplay});
    return "";
}

std::string Ring(Machine& machine, int mode) {
    const Action action(machine);
    machine.set.ringing = mode != 0;
    Command(machine, {CommandRing, Byte(mode)});
    return "";
}

std::string Speaker(Machine& machine, int mode) {
    const Action action(machine);
    Command(machine, {CommandSpeaker, Byte(mode)});
    return "";
}

std::string Handset(Machine& machine, int mode) {
    const Action action(machine);
    machine.set.handsetOff = mode != 0;
    Command(machine, {CommandHandset, Byte(mode)});
    return "";
}

std::string ModuleIconsOff(Machine& machine) {
    const Action action(machine);
    if (machine.config.modules.empty())
        return "no add-on module";
    for (const ModuleConfiguration& module : machine.config.modules) {
        for (int key = SetKeyCount + 1; key < KeyCount; ++key)
            if (ModuleOf(machine, key) == &module)
                machine.set.icons[static_cast<std::size_t>(key)] = NoIcon;
        machine.Queue({TypeToModule, Byte(module.address), CommandModuleIconsOff}, true);
    }
    return "";
}

std::string ShowSoftKeys(Machine& machine, const std::vector<std::string>& labels) {
    const Action action(machine);
    if (labels.size() > 5)
        return "five soft keys at most";
    Line1(machine, labels);
    return "";
}

// --- the picture

std::string DisplayText(const Machine& machine, int line) {
    if (line < 0 || line > 1)
        return "";
    return FromSet(machine.set.display[static_cast<std::size_t>(line)]);
}

std::string IconName(std::uint16_t value) {
    switch (value) {
    case NoIcon: return "dark";
    case ActiveIcon: return "active";
    case HeldIcon: return "held";
    case RingingIcon: return "ringing";
    case ReservedIcon: return "reserved";
    default: {
        char text[8];
        std::snprintf(text, sizeof text, "%04X", value);
        return text;
    }
    }
}

std::string KindName(std::uint8_t kind) {
    switch (kind) {
    case KindMulti: return "multi";
    case KindSupervision: return "supervision";
    case KindBoss: return "boss";
    case KindSecretary: return "secretary";
    case KindOverflow: return "overflow";
    default: return "kind " + std::to_string(kind);
    }
}

std::string Picture(const Machine& machine) {
    const std::string rule = "+" + std::string(DisplayWidth, '-') + "+\n";
    std::string text = rule;
    for (int line = 0; line < 2; ++line)
        text += "|" + DisplayText(machine, line) + "|\n";
    text += rule;
    for (int key = 0; key < KeyCount; ++key) {
        const std::uint16_t icon = machine.set.icons[static_cast<std::size_t>(key)];
        const KeyConfiguration* configured = Configured(machine, key);
        if (configured == nullptr && icon == NoIcon)
            continue;
        char number[16];
        std::snprintf(number, sizeof number, "%3d", key);
        text += "key" + std::string(number);
        if (configured != nullptr)
            text += "  " + KindName(configured->kind) + " " + configured->label;
        text += ": " + IconName(icon);
        for (const SetCall& call : machine.set.calls) {
            if (call.key != key)
                continue;
            text += ", " + CallStateName(call.state);
            if (const std::string party = PartyText(machine, call); !party.empty())
                text += " " + party;
        }
        text += "\n";
    }
    for (int lamp = 0; lamp < LampCount; ++lamp)
        if (const int mode = machine.set.lamps[static_cast<std::size_t>(lamp)]; mode != 0)
            text += "lamp " + std::to_string(lamp) + ": mode " + std::to_string(mode) + "\n";
    return text;
}

}  // namespace Equipment
