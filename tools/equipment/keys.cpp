// What a press does, whether somebody at the set or the provider makes it.
#include "equipment/set_parts.h"

#include <algorithm>

namespace Equipment {

bool IsDigit(char c) {
    return (c >= '0' && c <= '9') || c == '*' || c == '#';
}

bool IsLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

namespace {

constexpr std::uint8_t ModulePrefix = 0x04;
constexpr std::size_t DialLimit = 80;  // characters; further ones are not taken

using Choice = SetState::Choice;

void Join(Machine& machine, Choice how, SetCall& active, SetCall& held) {
    machine.set.choice = Choice::None;
    if (how == Choice::Transfer)
        TransferTo(machine, active, held);
    else
        JoinConference(machine, active, held);
}

// What the active call can be joined with now; a call that still rings can only be transferred.
std::vector<SetCall*> Joinable(Machine& machine, Choice how) {
    const SetCall* active = ActiveCall(machine);
    const bool ready = active != nullptr && (active->state == CallState::Connected ||
                                             (how == Choice::Transfer && active->state == CallState::FarRinging));
    return ready ? Partners(machine, *active) : std::vector<SetCall*>{};
}

// Whether the set cannot know which held call is meant, so that a key must follow. With two calls it can; a call that
// still rings goes to the last held one, unless a boss or secretary key is concerned.
bool ChoiceIsOpen(const Machine& machine, const SetCall& active, const std::vector<SetCall*>& partners) {
    if (machine.set.calls.size() <= 2 || partners.front()->key == active.key)
        return false;
    if (active.state == CallState::Connected)
        return partners.size() > 1;
    return IsPartnerKey(machine, active.key) || std::any_of(partners.begin(), partners.end(), [&](const SetCall* call) {
               return IsPartnerKey(machine, call->key);
           });
}

std::string JoinPressed(Machine& machine, Choice how) {
    SetCall* active = ActiveCall(machine);
    if (active == nullptr)
        return "no call to join";
    if (active->state == CallState::Conferenced) {
        // Who transfers leaves the two others to each other; who ends the conference keeps the first party.
        if (how == Choice::Transfer)
            PutDown(machine, *active);
        else
            LeaveConference(machine, *CallById(machine, machine.set.conferenceSecond));
        return "";
    }
    const std::vector<SetCall*> partners = Joinable(machine, how);
    if (partners.empty())
        return "no two calls to join";
    if (!ChoiceIsOpen(machine, *active, partners)) {
        Join(machine, how, *active, *partners.back());
        return "";
    }
    machine.set.choice = how;
    machine.Later(machine.config.choicePauseMs, [&machine, number = ++machine.set.choices] {
        const Action later(machine);
        const Choice choice = machine.set.choice;
        if (choice == Choice::None || number != machine.set.choices)
            return;
        machine.set.choice = Choice::None;
        if (const std::vector<SetCall*> held = Joinable(machine, choice); !held.empty())
            Join(machine, choice, *ActiveCall(machine), *held.back());
    });
    return "";
}

// The key of a held call, when one was asked for.
bool TakeChoice(Machine& machine, int key, bool person) {
    const Choice choice = machine.set.choice;
    machine.set.choice = Choice::None;
    if (choice == Choice::None)
        return false;
    const std::vector<SetCall*> held = Joinable(machine, choice);
    const auto chosen = std::find_if(held.begin(), held.end(), [&](const SetCall* call) { return call->key == key; });
    if (chosen == held.end())
        return false;
    if (person)
        KeyEvent(machine, key);
    Join(machine, choice, *ActiveCall(machine), **chosen);
    return true;
}

std::string SetTones(Machine& machine, bool on) {
    SetCall* active = ActiveCall(machine);
    if (active == nullptr || active->state != CallState::Connected)
        return "no connected call";
    active->tones = on;
    ShowKeys(machine);
    return "";
}

struct SoftKeyReaction {
    SoftKey key;
    std::string (*react)(Machine&);
};
constexpr SoftKeyReaction SoftKeyReactions[] = {
    {SecondCall, StartSecondCall},
    {EndSecondCall, EndSecond},
    {Swap, SwapTwo},
    {Conference, [](Machine& machine) { return JoinPressed(machine, Choice::Conference); }},
    {FreqVocale, [](Machine& machine) { return SetTones(machine, true); }},
    {CancelFreqVocale, [](Machine& machine) { return SetTones(machine, false); }},
    {Transfer, [](Machine& machine) { return JoinPressed(machine, Choice::Transfer); }},
};

// The supervised party's call is taken over onto a free line.
std::string Intercept(Machine& machine, SetCall& call, bool person) {
    if (std::string error = RoomForAnother(machine); !error.empty())
        return error;
    const int from = call.key;
    const int to = FreeMultiKey(machine);
    if (to == 0)
        return "no line key is free";
    if (person)
        KeyEvent(machine, from);
    ClearTheWay(machine);
    call.key = to;
    call.slot = 0;
    call.state = CallState::Connected;
    // The line lights before the supervision key goes out: only then is it the same call.
    ShowRinging(machine);
    ShowIcon(machine, to);
    ShowIcon(machine, from);
    Connect(machine, call);
    TellConnected(machine, call);
    return "";
}

}  // namespace

std::string DoAnswer(Machine& machine, int key, bool person) {
    SetCall* call = Find(machine, [&](const SetCall& c) { return c.key == key && IsRinging(c); });
    if (call == nullptr)
        return KeyText(key) + " does not ring";
    if (IsKind(machine, key, KindSupervision))
        return Intercept(machine, *call, person);
    if (std::string error = RoomForAnother(machine); !error.empty())
        return error;
    if (person)
        KeyEvent(machine, key);
    ClearTheWay(machine);
    const bool first = call->state == CallState::Ringing;
    call->state = CallState::Connected;
    ShowRinging(machine);
    ShowIcon(machine, key);
    if (first && !machine.config.eventsAfterDisplay)
        TellConnected(machine, *call);
    Connect(machine, *call);
    if (first && machine.config.eventsAfterDisplay)
        TellConnected(machine, *call);
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
    Hold(machine, *call);
    ShowWhatIsLeft(machine);
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
    ClearTheWay(machine);
    Connect(machine, *call);
    return "";
}

std::string DoRelease(Machine& machine, int key, bool person) {
    machine.set.choice = Choice::None;
    SetCall* active = ActiveCall(machine);
    if (active == nullptr || (key != 0 && active->key != key))
        return key != 0 ? KeyText(key) + " is not the active key" : "no call to hang up";
    if (person)
        Event(machine, EventKey, ReleaseKeyCode);
    PutDown(machine, *active);
    return "";
}

std::string DoKey(Machine& machine, int key, bool person) {
    if (TakeChoice(machine, key, person))
        return "";
    const SetCall* call = AnyCallOn(machine, key);
    const KeyConfiguration* configured = Configured(machine, key);
    if (call != nullptr && Beside(machine, *call) == nullptr) {
        if (IsRinging(*call))
            return DoAnswer(machine, key, person);
        if (call->state == CallState::Connected)
            return DoHold(machine, key, person);
        if (call->state == CallState::Held)
            return DoRetrieve(machine, key, person);
    }
    if (call == nullptr && configured != nullptr && configured->kind != KindSupervision)
        return Seize(machine, key, person);
    if (person)
        KeyEvent(machine, key);
    return "";
}

std::string DoOffHook(Machine& machine, bool person) {
    machine.set.choice = Choice::None;
    // A supervised call is taken over by its key alone: nothing else tells a provider which call the line then has.
    const SetCall* ringing = Find(
        machine, [&](const SetCall& call) { return IsRinging(call) && !IsKind(machine, call.key, KindSupervision); });
    if (ringing != nullptr && ActiveCall(machine) == nullptr)
        return DoAnswer(machine, ringing->key, person);
    if (ActiveCall(machine) != nullptr)
        return "";
    const int key = FreeMultiKey(machine);
    return key == 0 ? "no line key is free" : Seize(machine, key, person);
}

std::string DoSoftKey(Machine& machine, int position, bool person) {
    machine.set.choice = Choice::None;
    if (position < 1 || position > 5)
        return "soft keys are 1 to 5";
    const std::string label = machine.set.softKeys[static_cast<std::size_t>(position) - 1];
    if (person)
        Event(machine, EventKey, FirstSoftKeyCode + position - 1);
    for (const SoftKeyReaction& reaction : SoftKeyReactions)
        if (!label.empty() && label == Label(machine, reaction.key))
            return reaction.react(machine);
    return "";
}

std::string DoCharacter(Machine& machine, char character, bool person) {
    machine.set.choice = Choice::None;
    if (!IsDigit(character) && !IsLetter(character))
        return std::string("'") + character + "' is not a digit, * or #, nor a letter";
    SetCall* call = ActiveCall(machine);
    const int line = call == nullptr && Find(machine, IsRinging) == nullptr ? FreeMultiKey(machine) : 0;
    if ((call == nullptr && line == 0) || (call != nullptr && call->state == CallState::Over))
        return "no line is seized";
    if (person)
        DigitEvent(machine, character);
    if (call != nullptr && call->state == CallState::Connected && call->tones) {
        if (IsDigit(character))
            machine.set.tones += character;
        return "";
    }
    if (call == nullptr || (call->state == CallState::Connected && Beside(machine, *call) == nullptr)) {
        if (std::string error = call == nullptr ? Seize(machine, line, false) : StartSecondCall(machine);
            !error.empty())
            return error;
        call = ActiveCall(machine);
    }
    if ((call->state != CallState::DialTone && call->state != CallState::Dialling) || call->dialled.size() >= DialLimit)
        return "";
    // A second call on the same key is not seen to be under way by its digits.
    if (call->state == CallState::DialTone && Beside(machine, *call) != nullptr)
        TellOutgoing(machine, *call, false);
    call->state = CallState::Dialling;
    call->dialled += character;
    call->number = call->dialled;
    if (!CompletesService(machine, *call))  // that is answered at once
        Write(machine, 0, Bytes{static_cast<std::uint8_t>(character)}, 0, 2, false);
    Dialled(machine, *call);
    return "";
}

// --- the provider at the set

namespace {

// The key of the set that a module's key stands for; 0 = none.
int KeyOfModule(const Machine& machine, int address, int position) {
    for (const ModuleConfiguration& module : machine.config.modules)
        if (module.address == address) {
            const int key = module.offset + position;
            return key > SetKeyCount && CheckKey(machine, key).empty() ? key : 0;
        }
    return 0;
}

std::string Carry(Machine& machine, const KeyPress& press, bool report) {
    static constexpr char digits[] = "0123456789*#";
    switch (press.kind) {
    case KeyPress::Kind::Digit:
        return press.code < 12 ? DoCharacter(machine, digits[press.code], report) : "no such digit";
    case KeyPress::Kind::Letter: return DoCharacter(machine, static_cast<char>(press.code), report);
    case KeyPress::Kind::ModuleKey: {
        const int key = KeyOfModule(machine, press.address, press.code);
        return key != 0 ? DoKey(machine, key, report) : "no such key on module " + std::to_string(press.address);
    }
    case KeyPress::Kind::Key:
        if (press.code >= 1 && press.code <= SetKeyCount)
            return DoKey(machine, press.code, report);
        if (press.code >= FirstSoftKeyCode && press.code < FirstSoftKeyCode + 5)
            return DoSoftKey(machine, press.code - FirstSoftKeyCode + 1, report);
        if (press.code == ReleaseKeyCode)
            return DoRelease(machine, 0, report);
        if (press.code == OffHookKeyCode)
            return DoOffHook(machine, report);
        break;
    case KeyPress::Kind::Other: break;
    }
    return "no such key";
}

KeyPress ReadPress(ByteSpan item) {
    KeyPress press;
    press.item.assign(item.begin(), item.end());
    if (item.size() == 3 && item[1] == EventDigit) {
        press.kind = KeyPress::Kind::Digit;
        press.code = item[2];
    } else if (item.size() == 3 && item[1] == EventKey) {
        press.kind =
            item[2] < 0x80 && IsLetter(static_cast<char>(item[2])) ? KeyPress::Kind::Letter : KeyPress::Kind::Key;
        press.code = item[2];
    } else if (item.size() == 5 && item[1] == ModulePrefix && item[3] == EventKey) {
        press.kind = KeyPress::Kind::ModuleKey;
        press.address = item[2] & 7;
        press.code = item[4];
    }
    return press;
}

}  // namespace

void TakeKeyPress(Machine& machine, ByteSpan item) {
    const Action action(machine);
    const KeyPress press = ReadPress(item);
    machine.set.presses.push_back(press);
    // Not reported like a person's: the provider follows what it presses by itself, and would count it twice.
    const std::string error = Carry(machine, press, false);
    machine.Log("pressed: " + Hex(item) + (error.empty() ? "" : ": " + error));
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
    return Seize(machine, key, true);
}

std::string DialDigits(Machine& machine, const std::string& digits) {
    const Action action(machine);
    for (const char c : digits)
        if (!IsDigit(c) && !IsLetter(c))
            return std::string("'") + c + "' is not a digit, * or #, nor a letter";
    for (const char c : digits)
        if (std::string error = DoCharacter(machine, c, true); !error.empty())
            return error;
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
    return Seize(machine, key, true);
}

std::string PressLabel(Machine& machine, SoftKey key) {
    const Action action(machine);
    const std::string label = Label(machine, key);
    for (std::size_t i = 0; i < machine.set.softKeys.size(); ++i)
        if (!label.empty() && machine.set.softKeys[i] == label)
            return DoSoftKey(machine, static_cast<int>(i) + 1, true);
    return "the set does not show " + (label.empty() ? "that soft key" : label);
}

std::string SwapCalls(Machine& machine) {
    const Action action(machine);
    if (const SetCall* active = ActiveCall(machine); active != nullptr && Beside(machine, *active) != nullptr)
        return PressLabel(machine, Swap);
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

std::string PressRelease(Machine& machine) {
    const Action action(machine);
    return DoRelease(machine, 0, true);
}

std::string PressOffHook(Machine& machine) {
    const Action action(machine);
    return DoOffHook(machine, true);
}

}  // namespace Equipment
