#include "equipment/set.h"

#include "equipment/characters.h"
#include "equipment/equipment.h"

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
constexpr int MorePieces = 0x80;  // in the mode byte of a display write
// What the set tells the PBX.
constexpr std::uint8_t EventDigit = 0x03;
constexpr std::uint8_t EventKey = 0x20;
constexpr std::uint8_t ModulePrefix = 0x04;  // in key presses of the provider

constexpr std::size_t WireTextLimit = 200;  // characters of one display write

// Locks the machine for one action and sends what it has queued at its end, so that the pieces of one action can share
// a frame.
struct Action {
    std::lock_guard<std::recursive_mutex> lock;
    Machine& machine;
    explicit Action(Machine& m) : lock(m.guard), machine(m) {}
    ~Action() { machine.Pump(); }
};

std::uint8_t Byte(int value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

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

std::string CheckKey(const Machine& machine, int key) {
    if (key < 1 || key >= KeyCount)
        return KeyText(key) + " does not exist: 1 to " + std::to_string(KeyCount - 1);
    if (key > SetKeyCount && ModuleOf(machine, key) == nullptr)
        return KeyText(key) + " stands on an add-on module, and none has it";
    return "";
}

// --- what goes over the wire, and into the picture

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

void Icon(Machine& machine, int key, std::uint16_t value) {
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

void RingTo(Machine& machine, bool on) {
    if (machine.set.ringing == on)
        return;
    machine.set.ringing = on;
    Command(machine, {CommandRing, Byte(on ? 1 : 0)});
}

// --- calls

std::string Label(const Machine& machine, SoftKey key) {
    const auto index = static_cast<std::size_t>(key);
    return index < machine.config.softKeys.size() ? machine.config.softKeys[index] : "";
}

std::string Prompt(const Machine& machine, DisplayString text) {
    const auto index = static_cast<std::size_t>(text);
    return index < machine.config.strings.size() ? machine.config.strings[index] : "";
}

// Being made, connected, or over and not yet put down: what the person at the set is busy with.
bool IsActive(const SetCall& call) {
    return call.state != CallState::Ringing && call.state != CallState::Held;
}

bool IsBeingMade(const SetCall& call) {
    return call.state == CallState::DialTone || call.state == CallState::Dialling ||
           call.state == CallState::FarRinging;
}

template <class Test> SetCall* Find(Machine& machine, Test test) {
    const auto found = std::find_if(machine.set.calls.begin(), machine.set.calls.end(), test);
    return found == machine.set.calls.end() ? nullptr : &*found;
}

SetCall* ActiveCall(Machine& machine) {
    return Find(machine, IsActive);
}

SetCall* CallOn(Machine& machine, int key, CallState state) {
    return Find(machine, [&](const SetCall& call) { return call.key == key && call.state == state; });
}

SetCall* AnyCallOn(Machine& machine, int key) {
    return Find(machine, [&](const SetCall& call) { return call.key == key; });
}

// The other call of a key that has two.
SetCall* Beside(Machine& machine, const SetCall& call) {
    return Find(machine, [&](const SetCall& other) { return other.key == call.key && other.id != call.id; });
}

void Remove(Machine& machine, int id) {
    std::erase_if(machine.set.calls, [&](const SetCall& call) { return call.id == id; });
}

SetCall& NewCall(Machine& machine, int key, CallState state) {
    SetCall call;
    call.id = ++machine.set.lastCall;
    call.key = key;
    call.state = state;
    machine.set.calls.push_back(call);
    return machine.set.calls.back();
}

bool AnyRinging(Machine& machine) {
    return Find(machine, [](const SetCall& call) { return call.state == CallState::Ringing; }) != nullptr;
}

// Name and number as line 0 shows them during a call. Version 1 of the PBX puts one blank between them.
std::string PartyText(const Machine& machine, const SetCall& call) {
    if (call.name.empty() || call.number.empty())
        return call.name + call.number;
    return call.name + (machine.config.omna <= 1 ? " " : "  ") + call.number;
}

void ShowParty(Machine& machine, const SetCall& call) {
    if (const std::string text = PartyText(machine, call); !text.empty())
        Line0(machine, text);
}

void ShowCallerOf(Machine& machine, const SetCall& call) {
    std::string text = std::to_string(call.key) + ":" + call.name;
    if (!call.name.empty() && !call.number.empty())
        text += "  ";
    Line0(machine, text + call.number);
}

// The soft keys that fit what the active call is doing.
void ShowCallKeys(Machine& machine, const SetCall& call) {
    const bool second = Beside(machine, call) != nullptr;
    if (call.state == CallState::Connected && second)
        Line1(machine, {Label(machine, EndSecondCall), Label(machine, Swap), Label(machine, Conference),
                        Label(machine, Transfer)});
    else if (second)
        Line1(machine, {Label(machine, EndSecondCall)});
    else if (call.state == CallState::Connected)
        Line1(machine, {Label(machine, SecondCall), "", "", "", Label(machine, FreqVocale)});
    else
        Line1(machine, {});
}

void ShowIdle(Machine& machine) {
    Line0(machine, machine.config.idleText);
    Line1(machine, {});
}

// Whether the active call, if any, can be put on hold so that another one may take its place.
std::string RoomForAnother(Machine& machine) {
    const SetCall* active = ActiveCall(machine);
    if (active == nullptr)
        return "";
    if (active->state != CallState::Connected)
        return "the call on " + KeyText(active->key) + " is not connected";
    if (Beside(machine, *active) != nullptr)
        return KeyText(active->key) + " has two calls";
    return "";
}

void HoldActive(Machine& machine) {
    SetCall* active = ActiveCall(machine);
    if (active == nullptr)
        return;
    active->state = CallState::Held;
    Icon(machine, active->key, HeldIcon);
}

void ConnectOn(Machine& machine, SetCall& call) {
    call.state = CallState::Connected;
    Icon(machine, call.key, ActiveIcon);
    ShowParty(machine, call);
    ShowCallKeys(machine, call);
}

// All calls of a key are over.
void Darken(Machine& machine, int key) {
    SetCall* active = ActiveCall(machine);
    const bool wasActive = active != nullptr && active->key == key;
    std::erase_if(machine.set.calls, [&](const SetCall& call) { return call.key == key; });
    if (!AnyRinging(machine))
        RingTo(machine, false);
    Icon(machine, key, NoIcon);
    if (wasActive || ActiveCall(machine) == nullptr)
        ShowIdle(machine);
}

// --- what a key does. `person`: somebody at the set pressed it, and the set reports it.

std::string DoAnswer(Machine& machine, int key, bool person) {
    SetCall* call = CallOn(machine, key, CallState::Ringing);
    if (call == nullptr)
        return KeyText(key) + " does not ring";
    if (std::string error = RoomForAnother(machine); !error.empty())
        return error;
    if (person)
        KeyEvent(machine, key);
    HoldActive(machine);
    call->state = CallState::Connected;
    if (!AnyRinging(machine))
        RingTo(machine, false);
    ConnectOn(machine, *call);
    return "";
}

std::string DoSeize(Machine& machine, int key, bool person) {
    const KeyConfiguration* configured = Configured(machine, key);
    if (configured == nullptr || configured->kind < KindBoss || configured->kind > KindMulti)
        return KeyText(key) + " is not a line key";
    if (AnyCallOn(machine, key) != nullptr)
        return KeyText(key) + " has a call";
    if (std::string error = RoomForAnother(machine); !error.empty())
        return error;
    if (person)
        KeyEvent(machine, key);
    HoldActive(machine);
    SetCall& call = NewCall(machine, key, CallState::DialTone);
    Icon(machine, key, ActiveIcon);
    Line0(machine, Prompt(machine, Dial) + " ");
    ShowCallKeys(machine, call);
    if (configured->kind != KindMulti && !configured->label.empty()) {
        // It dials its label by itself.
        call.number = configured->label;
        call.state = CallState::Dialling;
        Write(machine, 0, ToSet(call.number), 0, 2, false);
    }
    return "";
}

int DigitCode(char c) {
    return c >= '0' && c <= '9' ? c - '0' : c == '*' ? 10 : c == '#' ? 11 : -1;
}

std::string DoDigit(Machine& machine, char digit, bool person) {
    SetCall* call = ActiveCall(machine);
    if (call == nullptr || call->state == CallState::Over)
        return "no line is seized";
    if (person)
        Event(machine, EventDigit, DigitCode(digit));
    if (call->state != CallState::DialTone && call->state != CallState::Dialling)
        return "";  // a tone in a call
    call->state = CallState::Dialling;
    call->number += digit;
    Write(machine, 0, Bytes{Byte(digit)}, 0, 2, false);
    return "";
}

std::string DoHold(Machine& machine, int key, bool person) {
    SetCall* call = CallOn(machine, key, CallState::Connected);
    if (call == nullptr)
        return KeyText(key) + " has no connected call";
    if (Beside(machine, *call) != nullptr)
        return KeyText(key) + " has two calls";
    if (person)
        KeyEvent(machine, key);
    HoldActive(machine);
    ShowIdle(machine);
    return "";
}

std::string DoRetrieve(Machine& machine, int key, bool person) {
    SetCall* call = CallOn(machine, key, CallState::Held);
    if (call == nullptr || Beside(machine, *call) != nullptr)
        return KeyText(key) + " has no held call to retrieve";
    if (std::string error = RoomForAnother(machine); !error.empty())
        return error;
    if (person)
        KeyEvent(machine, key);
    HoldActive(machine);
    ConnectOn(machine, *call);
    return "";
}

std::string DoRelease(Machine& machine, int key, bool person) {
    SetCall* active = ActiveCall(machine);
    if (active == nullptr || (key != 0 && active->key != key))
        return key != 0 ? KeyText(key) + " is not the active key" : "no call to hang up";
    if (person)
        Event(machine, EventKey, ReleaseKeyCode);
    Darken(machine, active->key);
    return "";
}

std::string DoKey(Machine& machine, int key, bool person) {
    if (CallOn(machine, key, CallState::Ringing) != nullptr)
        return DoAnswer(machine, key, person);
    if (CallOn(machine, key, CallState::Connected) != nullptr)
        return DoHold(machine, key, person);
    if (CallOn(machine, key, CallState::Held) != nullptr)
        return DoRetrieve(machine, key, person);
    const KeyConfiguration* configured = Configured(machine, key);
    if (AnyCallOn(machine, key) == nullptr && configured != nullptr && configured->kind != KindSupervision)
        return DoSeize(machine, key, person);
    if (person)
        KeyEvent(machine, key);
    return "";
}

int FreeMultiKey(Machine& machine) {
    for (const KeyConfiguration& key : machine.config.keys)
        if (key.kind == KindMulti && key.number >= 1 && key.number < KeyCount &&
            AnyCallOn(machine, key.number) == nullptr)
            return key.number;
    return 0;
}

std::string DoOffHook(Machine& machine, bool person) {
    if (const SetCall* ringing = Find(machine, [](const SetCall& c) { return c.state == CallState::Ringing; }))
        return DoAnswer(machine, ringing->key, person);
    if (ActiveCall(machine) != nullptr)
        return "";
    const int key = FreeMultiKey(machine);
    return key == 0 ? "no line key is free" : DoSeize(machine, key, person);
}

// A second call beside the active one: on its own key, or on another one, as the PBX is configured.
std::string DoSecondCall(Machine& machine) {
    SetCall* first = ActiveCall(machine);
    if (first == nullptr || first->state != CallState::Connected)
        return "no connected call";
    if (machine.config.multiMode == 0) {
        const int key = FreeMultiKey(machine);
        return key == 0 ? "no line key is free" : DoSeize(machine, key, false);
    }
    first->state = CallState::Held;
    const SetCall& second = NewCall(machine, first->key, CallState::DialTone);
    Line0(machine, Prompt(machine, Dial) + " ");
    ShowCallKeys(machine, second);
    return "";
}

std::string DoEndSecondCall(Machine& machine) {
    const SetCall* active = ActiveCall(machine);
    SetCall* held = active != nullptr ? Beside(machine, *active) : nullptr;
    if (held == nullptr)
        return "no second call";
    held->state = CallState::Connected;
    const int stays = held->id;
    Remove(machine, active->id);
    const SetCall& first = *Find(machine, [&](const SetCall& call) { return call.id == stays; });
    ShowParty(machine, first);
    ShowCallKeys(machine, first);
    return "";
}

std::string DoSwap(Machine& machine) {
    SetCall* active = ActiveCall(machine);
    SetCall* held = active != nullptr ? Beside(machine, *active) : nullptr;
    if (held == nullptr || active->state != CallState::Connected)
        return "no two calls to swap";
    std::swap(active->state, held->state);
    ShowParty(machine, *held);
    return "";
}

std::string DoSoftKey(Machine& machine, int position, bool person) {
    if (position < 1 || position > 5)
        return "soft keys are 1 to 5";
    const std::string label = machine.set.softKeys[static_cast<std::size_t>(position) - 1];
    if (person)
        Event(machine, EventKey, FirstSoftKeyCode + position - 1);
    if (label.empty())
        return "";
    if (label == Label(machine, SecondCall))
        return DoSecondCall(machine);
    if (label == Label(machine, EndSecondCall))
        return DoEndSecondCall(machine);
    if (label == Label(machine, Swap))
        return DoSwap(machine);
    return "";
}

}  // namespace

// --- the far end

std::string Incoming(Machine& machine, int key, const std::string& number, const std::string& name, CallerShown shown,
                     std::uint32_t lateMs) {
    const Action action(machine);
    if (std::string error = CheckKey(machine, key); !error.empty())
        return error;
    if (AnyCallOn(machine, key) != nullptr)
        return KeyText(key) + " has a call";
    SetCall& call = NewCall(machine, key, CallState::Ringing);
    call.incoming = true;
    call.number = number;
    call.name = name;
    RingTo(machine, true);
    Icon(machine, key, RingingIcon);
    if (shown == CallerShown::AtOnce)
        ShowCallerOf(machine, call);
    if (shown == CallerShown::Late)
        machine.Later(lateMs, [&machine, id = call.id] {
            const Action later(machine);
            const SetCall* late = Find(machine, [&](const SetCall& c) { return c.id == id; });
            if (late != nullptr && late->state == CallState::Ringing)
                ShowCallerOf(machine, *late);
        });
    return "";
}

std::string ShowCaller(Machine& machine, int key) {
    const Action action(machine);
    const SetCall* call = CallOn(machine, key, CallState::Ringing);
    if (call == nullptr)
        return KeyText(key) + " does not ring";
    ShowCallerOf(machine, *call);
    return "";
}

std::string FarHangsUp(Machine& machine, int key, bool prompt) {
    const Action action(machine);
    SetCall* call = Find(machine, [&](const SetCall& c) { return c.key == key && IsActive(c); });
    if (call == nullptr)
        call = AnyCallOn(machine, key);
    if (call == nullptr)
        return KeyText(key) + " has no call";
    if (IsBeingMade(*call))
        return "the call on " + KeyText(key) + " is not answered: far-busy refuses it";
    if (call->state == CallState::Over)
        return "the call on " + KeyText(key) + " is over";
    const bool second = Beside(machine, *call) != nullptr;
    if (call->state == CallState::Connected && (second || prompt)) {
        call->state = CallState::Over;
        Line0(machine, Prompt(machine, second ? CancelSecondCall : HangUp));
        ShowCallKeys(machine, *call);
        return "";
    }
    Darken(machine, key);
    return "";
}

std::string FarRings(Machine& machine, const std::string& name) {
    const Action action(machine);
    SetCall* call = ActiveCall(machine);
    if (call == nullptr || call->state != CallState::Dialling)
        return "no call is being dialled";
    call->state = CallState::FarRinging;
    if (!name.empty())
        call->name = name;
    ShowParty(machine, *call);
    return "";
}

std::string FarBusy(Machine& machine) {
    const Action action(machine);
    SetCall* call = ActiveCall(machine);
    if (call == nullptr || !IsBeingMade(*call))
        return "no call is being made";
    call->state = CallState::Over;
    Line0(machine, Prompt(machine, HangUp));
    return "";
}

std::string FarAnswers(Machine& machine, const std::string& name) {
    const Action action(machine);
    SetCall* call = ActiveCall(machine);
    if (call == nullptr || !IsBeingMade(*call))
        return "no call is being made";
    if (!name.empty())
        call->name = name;
    if (call->state != CallState::FarRinging || !name.empty())
        ShowParty(machine, *call);
    call->state = CallState::Connected;
    ShowCallKeys(machine, *call);
    return "";
}

// --- the person at the set

std::string Answer(Machine& machine, int key) {
    const Action action(machine);
    return DoAnswer(machine, key, true);
}

std::string Seize(Machine& machine, int key) {
    const Action action(machine);
    if (std::string error = CheckKey(machine, key); !error.empty())
        return error;
    return DoSeize(machine, key, true);
}

std::string DialDigits(Machine& machine, const std::string& digits) {
    const Action action(machine);
    const SetCall* call = ActiveCall(machine);
    if (call == nullptr || call->state == CallState::Over)
        return "no line is seized";
    for (const char c : digits)
        if (DigitCode(c) < 0)
            return std::string("'") + c + "' is not a digit, * or #";
    for (const char c : digits)
        DoDigit(machine, c, true);
    return "";
}

std::string Hold(Machine& machine, int key) {
    const Action action(machine);
    return DoHold(machine, key, true);
}

std::string Retrieve(Machine& machine, int key) {
    const Action action(machine);
    return DoRetrieve(machine, key, true);
}

std::string SecondCallOn(Machine& machine, int key) {
    const Action action(machine);
    if (std::string error = CheckKey(machine, key); !error.empty())
        return error;
    const SetCall* active = ActiveCall(machine);
    if (active == nullptr || active->state != CallState::Connected)
        return "no connected call";
    return DoSeize(machine, key, true);
}

std::string SwapCalls(Machine& machine) {
    const Action action(machine);
    if (const SetCall* active = ActiveCall(machine); active != nullptr && Beside(machine, *active) != nullptr) {
        for (std::size_t i = 0; i < machine.set.softKeys.size(); ++i)
            if (!machine.set.softKeys[i].empty() && machine.set.softKeys[i] == Label(machine, Swap))
                return DoSoftKey(machine, static_cast<int>(i) + 1, true);
        return "no two calls to swap";
    }
    int held = 0;
    for (const SetCall& call : machine.set.calls) {
        if (call.state != CallState::Held)
            continue;
        if (held != 0)
            return "more than one call is held: retrieve one of them";
        held = call.key;
    }
    return held == 0 ? "no call is held" : DoRetrieve(machine, held, true);
}

std::string HangUpKey(Machine& machine, int key) {
    const Action action(machine);
    return DoRelease(machine, key, true);
}

std::string PressKey(Machine& machine, int key) {
    const Action action(machine);
    if (std::string error = CheckKey(machine, key); !error.empty())
        return error;
    return DoKey(machine, key, true);
}

std::string PressSoftKey(Machine& machine, int position) {
    const Action action(machine);
    return DoSoftKey(machine, position, true);
}

// --- the provider at the set

void TakeKeyPress(Machine& machine, ByteSpan item) {
    const Action action(machine);
    const bool report = machine.set.reportRemotePresses;
    KeyPress press;
    press.item.assign(item.begin(), item.end());
    std::string error;
    if (item.size() == 3 && item[1] == EventDigit) {
        press.kind = KeyPress::Kind::Digit;
        press.code = item[2];
        static constexpr char digits[] = "0123456789*#";
        error = press.code < 12 ? DoDigit(machine, digits[press.code], report) : "no such digit";
    } else if (item.size() == 3 && item[1] == EventKey) {
        press.kind = KeyPress::Kind::Key;
        press.code = item[2];
        if (press.code >= 1 && press.code <= SetKeyCount)
            error = DoKey(machine, press.code, report);
        else if (press.code >= FirstSoftKeyCode && press.code < FirstSoftKeyCode + 5)
            error = DoSoftKey(machine, press.code - FirstSoftKeyCode + 1, report);
        else if (press.code == ReleaseKeyCode)
            error = DoRelease(machine, 0, report);
        else if (press.code == OffHookKeyCode)
            error = DoOffHook(machine, report);
    } else if (item.size() == 5 && item[1] == ModulePrefix && item[3] == EventKey) {
        press.kind = KeyPress::Kind::ModuleKey;
        press.address = item[2] & 7;
        press.code = item[4];
        error = "no module " + std::to_string(press.address);
        for (const ModuleConfiguration& module : machine.config.modules) {
            const int key = module.offset + press.code;
            if (module.address != press.address)
                continue;
            error = CheckKey(machine, key);
            if (error.empty())
                error = DoKey(machine, key, report);
        }
    }
    machine.set.presses.push_back(press);
    machine.Log("pressed: " + Hex(item) + (error.empty() ? "" : ": " + error));
}

// --- single commands

std::string SetIcon(Machine& machine, int key, std::uint16_t value) {
    const Action action(machine);
    if (key != 0)
        if (std::string error = CheckKey(machine, key); !error.empty())
            return error;
    Icon(machine, key, value);
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

std::string CallStateName(CallState state) {
    switch (state) {
    case CallState::Ringing: return "ringing";
    case CallState::DialTone: return "dial tone";
    case CallState::Dialling: return "dialling";
    case CallState::FarRinging: return "far end rings";
    case CallState::Connected: return "connected";
    case CallState::Held: return "held";
    case CallState::Over: return "over";
    }
    return "";
}

namespace {

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

}  // namespace

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
