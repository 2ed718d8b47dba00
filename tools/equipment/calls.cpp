// The calls of the set, and everything that may happen to them, whoever makes it happen.
#include "equipment/characters.h"
#include "equipment/set_parts.h"

#include <algorithm>

namespace Equipment {

std::string CallStateName(CallState state) {
    static constexpr const char* names[CallStates] = {"ringing",   "dial tone", "dialling",   "far end rings",
                                                      "connected", "held",      "rings back", "conferenced",
                                                      "served",    "over"};
    const auto index = static_cast<std::size_t>(state);
    return index < std::size(names) ? names[index] : "";
}

bool IsRinging(const SetCall& call) {
    return call.state == CallState::Ringing || call.state == CallState::RingingBack;
}

bool IsHeld(const SetCall& call) {
    return call.state == CallState::Held || call.state == CallState::RingingBack;
}

bool IsActive(const SetCall& call) {
    return !IsRinging(call) && !IsHeld(call);
}

bool IsBeingMade(const SetCall& call) {
    return call.state == CallState::DialTone || call.state == CallState::Dialling ||
           call.state == CallState::FarRinging;
}

std::string Inconsistency(const Machine& machine) {
    const std::list<SetCall>& calls = machine.set.calls;
    const auto count = [&](auto test) { return std::count_if(calls.begin(), calls.end(), test); };
    const auto conferenced = count([](const SetCall& c) { return c.state == CallState::Conferenced; });
    const auto active = count(IsActive);
    if (conferenced != 0 && conferenced != 2)
        return std::to_string(conferenced) + " calls in conference";
    if (active != (conferenced != 0 ? 2 : std::min<std::ptrdiff_t>(active, 1)))
        return std::to_string(active) + " active calls";
    if (machine.set.ringing != (count(IsRinging) != 0))
        return "the ring";
    for (int key = 0; key < KeyCount; ++key) {
        const auto onKey = count([&](const SetCall& c) { return c.key == key; });
        if (onKey > (IsKind(machine, key, KindMulti) ? 2 : 1))
            return std::to_string(onKey) + " calls on " + KeyText(key);
        if (onKey == 2 && count([&](const SetCall& c) { return c.key == key && c.slot == 0; }) != 1)
            return "the slots of " + KeyText(key);
        if (machine.set.icons[static_cast<std::size_t>(key)] != IconOf(machine, key))
            return "the icon of " + KeyText(key);
    }
    return "";
}

// --- looking

SetCall* CallById(Machine& machine, int id) {
    return Find(machine, [&](const SetCall& call) { return call.id == id; });
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

SetCall* Beside(Machine& machine, const SetCall& call) {
    return Find(machine, [&](const SetCall& other) { return other.key == call.key && other.id != call.id; });
}

std::vector<SetCall*> Partners(Machine& machine, const SetCall& active) {
    if (SetCall* beside = Beside(machine, active))
        return {beside};
    std::vector<SetCall*> held;
    for (SetCall& call : machine.set.calls)
        if (IsHeld(call))
            held.push_back(&call);
    std::sort(held.begin(), held.end(), [](const SetCall* a, const SetCall* b) { return a->heldSince < b->heldSince; });
    return held;
}

int FreeMultiKey(Machine& machine) {
    for (const KeyConfiguration& key : machine.config.keys)
        if (key.kind == KindMulti && CheckKey(machine, key.number).empty() && AnyCallOn(machine, key.number) == nullptr)
            return key.number;
    return 0;
}

// --- beginning, holding, ending

SetCall& NewCall(Machine& machine, int key, CallState state) {
    const SetCall* other = AnyCallOn(machine, key);
    SetCall call;
    call.id = ++machine.set.lastCall;
    call.key = key;
    call.slot = other != nullptr && other->slot == 0 ? 1 : 0;
    call.state = state;
    machine.set.calls.push_back(call);
    return machine.set.calls.back();
}

namespace {

void MarkHeld(Machine& machine, SetCall& call) {
    call.state = CallState::Held;
    call.tones = false;
    call.heldSince = ++machine.set.lastHeld;
    if (machine.config.recallMs == 0)
        return;
    machine.Later(machine.config.recallMs, [&machine, id = call.id, since = call.heldSince] {
        const Action later(machine);
        SetCall* held = CallById(machine, id);
        if (held != nullptr && held->state == CallState::Held && held->heldSince == since &&
            Beside(machine, *held) == nullptr)
            RingBack(machine, *held);
    });
}

void Remove(Machine& machine, int id) {
    std::erase_if(machine.set.calls, [&](const SetCall& call) { return call.id == id; });
}

SetCall& DialToneOn(Machine& machine, int key) {
    SetCall& call = NewCall(machine, key, CallState::DialTone);
    ShowIcon(machine, key);
    Line0(machine, Prompt(machine, Dial) + " ");
    ShowKeys(machine);
    return call;
}

}  // namespace

void Hold(Machine& machine, SetCall& call) {
    MarkHeld(machine, call);
    ShowIcon(machine, call.key);
}

void Connect(Machine& machine, SetCall& call) {
    call.state = CallState::Connected;
    ShowRinging(machine);
    ShowIcon(machine, call.key);
    ShowParty(machine, call);
    ShowKeys(machine);
}

void RingBack(Machine& machine, SetCall& call) {
    call.state = CallState::RingingBack;
    ShowRinging(machine);
    ShowIcon(machine, call.key);
    ShowCallerOf(machine, call);
    ShowKeys(machine);
}

void EndCalls(Machine& machine, const std::vector<int>& ids) {
    std::vector<int> keys;
    for (const int id : ids) {
        if (const SetCall* call = CallById(machine, id))
            keys.push_back(call->key);
        Remove(machine, id);
    }
    if (CallById(machine, machine.set.conferenceFirst) == nullptr)
        machine.set.conferenceFirst = machine.set.conferenceSecond = 0;
    ShowRinging(machine);
    for (const int key : keys)
        ShowIcon(machine, key);
    ShowWhatIsLeft(machine);
}

void EndKey(Machine& machine, int key) {
    std::vector<int> ids;
    for (const SetCall& call : machine.set.calls)
        if (call.key == key)
            ids.push_back(call.id);
    EndCalls(machine, ids);
}

std::string RoomForAnother(Machine& machine) {
    const SetCall* active = ActiveCall(machine);
    if (active == nullptr)
        return "";
    if (active->state == CallState::Conferenced)
        return "a conference is under way";
    if (Beside(machine, *active) != nullptr)
        return KeyText(active->key) + " has two calls";
    return "";
}

// Whoever turns to another key leaves a call that is being made.
void ClearTheWay(Machine& machine) {
    SetCall* active = ActiveCall(machine);
    if (active == nullptr)
        return;
    if (active->state == CallState::Connected) {
        Hold(machine, *active);
        return;
    }
    const int key = active->key;
    FinishService(machine, *active);
    Remove(machine, active->id);
    ShowIcon(machine, key);
}

// --- second calls

std::string Seize(Machine& machine, int key, bool person) {
    const KeyConfiguration* configured = Configured(machine, key);
    if (configured == nullptr || configured->kind < KindBoss || configured->kind > KindMulti)
        return KeyText(key) + " is not a line key";
    if (AnyCallOn(machine, key) != nullptr)
        return KeyText(key) + " has a call";
    if (std::string error = RoomForAnother(machine); !error.empty())
        return error;
    if (person)
        KeyEvent(machine, key);
    ClearTheWay(machine);
    SetCall& call = DialToneOn(machine, key);
    if (configured->kind != KindMulti && !configured->label.empty()) {
        // It dials its label by itself.
        call.number = call.dialled = configured->label;
        call.state = CallState::Dialling;
        Write(machine, 0, ToSet(call.number), 0, 2, false);
        Dialled(machine, call);
    }
    return "";
}

// Beside the active call on its own key, or on another one, as the PBX is configured and the key allows.
std::string StartSecondCall(Machine& machine) {
    SetCall* first = ActiveCall(machine);
    if (first == nullptr || first->state != CallState::Connected)
        return "no connected call";
    if (Beside(machine, *first) != nullptr)
        return KeyText(first->key) + " has two calls";
    if (machine.config.multiMode == 0 || !IsKind(machine, first->key, KindMulti)) {
        const int key = FreeMultiKey(machine);
        return key == 0 ? "no line key is free" : Seize(machine, key, false);
    }
    MarkHeld(machine, *first);
    DialToneOn(machine, first->key);
    return "";
}

std::string EndSecond(Machine& machine) {
    SetCall* active = ActiveCall(machine);
    if (active == nullptr || active->state == CallState::Conferenced)
        return "no second call";
    const std::vector<SetCall*> partners = Partners(machine, *active);
    if (partners.empty())
        return "no second call";
    SetCall& first = *partners.back();
    if (first.key == active->key && active->state == CallState::DialTone) {
        PutDown(machine, *active);
        return "";
    }
    const int key = active->key;
    Remove(machine, active->id);
    if (key != first.key)
        ShowIcon(machine, key);
    Connect(machine, first);
    return "";
}

std::string SwapTwo(Machine& machine) {
    SetCall* active = ActiveCall(machine);
    if (active == nullptr || active->state != CallState::Connected)
        return "no two calls to swap";
    const std::vector<SetCall*> partners = Partners(machine, *active);
    if (partners.empty())
        return "no two calls to swap";
    MarkHeld(machine, *active);
    if (partners.back()->key != active->key)
        ShowIcon(machine, active->key);
    Connect(machine, *partners.back());
    return "";
}

// --- joining

void TransferTo(Machine& machine, SetCall& active, SetCall& held) {
    if (IsKind(machine, active.key, KindMulti))
        TellTransferred(machine, active.key);
    EndCalls(machine, {active.id, held.id});
}

void JoinConference(Machine& machine, SetCall& active, SetCall& held) {
    for (SetCall* call : {&held, &active}) {
        call->state = CallState::Conferenced;
        call->tones = false;
        if (call->name.empty() && call->number.empty())
            call->name = "Ligne " + std::to_string(call->id);  // or nobody could tell who stays
    }
    machine.set.conferenceFirst = held.id;
    machine.set.conferenceSecond = active.id;
    ShowRinging(machine);
    ShowIcon(machine, held.key);
    ShowConference(machine, held, active);
    ShowKeys(machine);
}

// The soft keys come first: they say that the conference is over, and the next line 0 who has stayed.
void LeaveConference(Machine& machine, SetCall& leaves) {
    SetCall* stays = CallById(machine, leaves.id == machine.set.conferenceFirst ? machine.set.conferenceSecond
                                                                                : machine.set.conferenceFirst);
    const int key = leaves.key;
    Remove(machine, leaves.id);
    machine.set.conferenceFirst = machine.set.conferenceSecond = 0;
    stays->state = CallState::Connected;
    ShowIcon(machine, key);
    ShowKeys(machine);
    ShowParty(machine, *stays);
}

void PutDown(Machine& machine, SetCall& active) {
    FinishService(machine, active);
    if (active.state == CallState::Conferenced) {
        EndCalls(machine, {machine.set.conferenceSecond, machine.set.conferenceFirst});
        return;
    }
    SetCall* held = Beside(machine, active);
    if (held == nullptr || active.state == CallState::Connected) {
        EndKey(machine, active.key);
        return;
    }
    Remove(machine, active.id);
    RingBack(machine, *held);
}

}  // namespace Equipment
