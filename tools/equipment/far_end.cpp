// The other ends of calls: callers, called parties, and what a dialled number does by itself.
#include "equipment/set_parts.h"

#include <algorithm>

namespace Equipment {

namespace {

// The display and the call event that belongs to it, in the configured order.
template <class Show, class Tell> void ShowAndTell(const Machine& machine, Show show, Tell tell) {
    if (!machine.config.eventsAfterDisplay)
        tell();
    show();
    if (machine.config.eventsAfterDisplay)
        tell();
}

void Ring(Machine& machine, SetCall& call) {
    call.state = CallState::FarRinging;
    ShowAndTell(
        machine, [&] { ShowParty(machine, call); }, [&] { TellOutgoing(machine, call); });
    ShowKeys(machine);
}

void TakeUp(Machine& machine, SetCall& call, bool partyShows) {
    if (call.state != CallState::FarRinging)
        TellOutgoing(machine, call);
    call.state = CallState::Connected;
    ShowAndTell(
        machine,
        [&] {
            if (partyShows)
                ShowParty(machine, call);
            ShowKeys(machine);
        },
        [&] { TellConnected(machine, call); });
}

// Carries out what the plan says when its time has come, if the call is still being made.
void LaterOn(Machine& machine, int id, std::uint32_t ms, void (*then)(Machine&, SetCall&)) {
    machine.Later(ms, [&machine, id, then] {
        const Action later(machine);
        SetCall* call = CallById(machine, id);
        if (call != nullptr && IsBeingMade(*call))
            then(machine, *call);
    });
}

void Meet(Machine& machine, SetCall& call, const Destination& destination) {
    if (!destination.name.empty() && destination.does != FarEnd::NotObtainable)
        call.name = destination.name;
    switch (destination.does) {
    case FarEnd::Script: return;
    case FarEnd::Answers:
        Ring(machine, call);
        LaterOn(machine, call.id, destination.ms, [](Machine& m, SetCall& c) { TakeUp(m, c, false); });
        return;
    case FarEnd::NeverAnswers: Ring(machine, call); return;
    case FarEnd::Busy:
        LaterOn(machine, call.id, destination.ms, [](Machine& m, SetCall& c) {
            TellOutgoing(m, c);
            Refuse(m, c);
        });
        return;
    case FarEnd::NotObtainable: LaterOn(machine, call.id, destination.ms, Refuse); return;
    }
}

const Destination& Planned(const Machine& machine, const std::string& number) {
    const auto found = machine.config.destinations.find(number);
    return found != machine.config.destinations.end() ? found->second : machine.config.otherwise;
}

SetCall* BeingMade(Machine& machine) {
    return Find(machine, IsBeingMade);
}

}  // namespace

void Refuse(Machine& machine, SetCall& call) {
    call.state = CallState::Over;
    Line0(machine, Prompt(machine, HangUp));
    ShowKeys(machine);
}

void Dialled(Machine& machine, SetCall& call) {
    if (TakeService(machine, call))
        return;
    const auto& plan = machine.config.destinations;
    // The first number at or behind this one: itself, or a longer one that begins with it.
    const auto at = plan.lower_bound(call.dialled);
    const bool known = at != plan.end() && at->first == call.dialled;
    const auto next = known ? std::next(at) : at;
    const bool open = next != plan.end() && next->first.rfind(call.dialled, 0) == 0;
    if (known && !open) {
        Meet(machine, call, at->second);
    } else if (known || machine.config.otherwise.does != FarEnd::Script) {
        machine.Later(machine.config.digitPauseMs, [&machine, id = call.id, number = call.dialled] {
            const Action later(machine);
            SetCall* still = CallById(machine, id);
            if (still != nullptr && still->state == CallState::Dialling && still->dialled == number)
                Meet(machine, *still, Planned(machine, number));
        });
    }
}

std::string Incoming(Machine& machine, int key, const std::string& number, const std::string& name, CallerShown shown,
                     std::uint32_t lateMs, const IncomingDetails& details) {
    const Action action(machine);
    if (std::string error = CheckKey(machine, key); !error.empty())
        return error;
    if (Configured(machine, key) == nullptr)
        return KeyText(key) + " carries no calls: it is not configured";
    if (AnyCallOn(machine, key) != nullptr)
        return KeyText(key) + " has a call";
    SetCall& call = NewCall(machine, key, CallState::Ringing);
    call.incoming = true;
    call.number = number;
    call.name = name;
    call.reason = details.reason;
    call.called = details.called;
    call.calledName = details.calledName;
    ShowRinging(machine);
    ShowIcon(machine, key);
    ShowAndTell(
        machine,
        [&] {
            if (shown == CallerShown::AtOnce)
                ShowCallerOf(machine, call);
        },
        [&] { TellIncoming(machine, call); });
    if (shown == CallerShown::Late)
        machine.Later(lateMs, [&machine, id = call.id] {
            const Action later(machine);
            const SetCall* late = CallById(machine, id);
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

namespace {

// Of two calls on a key: the one in `slot`, else the one in conversation or that joined a conference last.
SetCall* Leaving(Machine& machine, int key, int slot) {
    SetCall* found = nullptr;
    for (SetCall& call : machine.set.calls) {
        if (call.key != key || (slot >= 0 && call.slot != slot))
            continue;
        if (found == nullptr || (IsActive(call) && call.id != machine.set.conferenceFirst))
            found = &call;
    }
    return found;
}

}  // namespace

std::string FarHangsUp(Machine& machine, int key, HangUpShown shown, int slot) {
    const Action action(machine);
    SetCall* call = Leaving(machine, key, slot);
    if (call == nullptr)
        return KeyText(key) + " has no call";
    const SetCall* other = Beside(machine, *call);
    if (IsBeingMade(*call))
        return "the call on " + KeyText(key) + " is not answered: far-busy refuses it";
    if (call->state == CallState::Over || call->state == CallState::Served)
        return "the call on " + KeyText(key) + " is over";
    if (call->state == CallState::Conferenced) {
        LeaveConference(machine, *call);
        return "";
    }
    if (IsHeld(*call) && other != nullptr) {
        // While the other one is being made the set has no way to show it.
        if (IsBeingMade(*other))
            return "the second call on " + KeyText(key) + " is not answered yet";
        if (other->state == CallState::Over)
            EndKey(machine, key);
        else
            EndCalls(machine, {call->id});
        return "";
    }
    if (call->state != CallState::Connected || (other == nullptr && shown == HangUpShown::Dark)) {
        // Nobody need put such a call down: it shows reserved on its way out only.
        if (shown == HangUpShown::Reserved && other == nullptr && ActiveCall(machine) == nullptr)
            PutIcon(machine, key, ReservedIcon);
        EndKey(machine, key);
        return "";
    }
    call->state = CallState::Over;
    call->tones = false;
    if (other == nullptr && shown == HangUpShown::Reserved) {
        call->reserved = true;
        ShowIcon(machine, key);
    } else {
        Line0(machine, Prompt(machine, other != nullptr ? CancelSecondCall : HangUp));
    }
    ShowKeys(machine);
    return "";
}

std::string FarRings(Machine& machine, const std::string& name) {
    const Action action(machine);
    SetCall* call = BeingMade(machine);
    if (call == nullptr || call->state != CallState::Dialling)
        return "no call is being dialled";
    if (!name.empty())
        call->name = name;
    Ring(machine, *call);
    return "";
}

std::string FarDiverts(Machine& machine, const std::string& number, const std::string& name) {
    const Action action(machine);
    SetCall* call = BeingMade(machine);
    if (call == nullptr || call->state == CallState::DialTone)
        return "no call is being made";
    if (call->state == CallState::Dialling)
        TellOutgoing(machine, *call);
    call->number = number;
    call->name = name;
    call->diverted = true;
    Ring(machine, *call);
    return "";
}

std::string FarBusy(Machine& machine) {
    const Action action(machine);
    SetCall* call = BeingMade(machine);
    if (call == nullptr)
        return "no call is being made";
    if (call->state == CallState::Dialling)
        TellOutgoing(machine, *call);
    Refuse(machine, *call);
    return "";
}

std::string FarAnswers(Machine& machine, const std::string& name) {
    const Action action(machine);
    SetCall* call = BeingMade(machine);
    if (call == nullptr)
        return "no call is being made";
    // Who takes a line at dial tone has intercepted it, which shows on a line alone.
    if (call->state == CallState::DialTone && !Partners(machine, *call).empty())
        return "nothing has been dialled";
    if (!name.empty())
        call->name = name;
    TakeUp(machine, *call, call->state != CallState::FarRinging || !name.empty());
    return "";
}

std::string FarTransfers(Machine& machine, int key, const std::string& number, const std::string& name) {
    const Action action(machine);
    SetCall* call = Find(machine, [&](const SetCall& c) {
        return c.key == key && (c.state == CallState::Ringing || c.state == CallState::Connected);
    });
    if (call == nullptr)
        return KeyText(key) + " has no ringing or connected call";
    call->number = number;
    call->name = name;
    call->diverted = false;
    if (call->state == CallState::Ringing) {
        call->reason = 8;
        ShowAndTell(
            machine, [&] { ShowCallerOf(machine, *call); }, [&] { TellIncoming(machine, *call); });
    } else {
        ShowAndTell(
            machine, [&] { ShowParty(machine, *call); }, [&] { TellConnected(machine, *call); });
    }
    return "";
}

std::string Recall(Machine& machine, int key) {
    const Action action(machine);
    SetCall* call = CallOn(machine, key, CallState::Held);
    if (call == nullptr || Beside(machine, *call) != nullptr)
        return KeyText(key) + " has no held call alone";
    RingBack(machine, *call);
    return "";
}

std::string MoveCall(Machine& machine, int from, int to) {
    const Action action(machine);
    SetCall* call = Find(machine, [&](const SetCall& c) {
        return c.key == from && (c.state == CallState::Ringing || c.state == CallState::Connected);
    });
    if (!IsPartnerKey(machine, from) || call == nullptr)
        return KeyText(from) + " is no boss or secretary key with a ringing or connected call";
    if (std::string error = CheckKey(machine, to); !error.empty())
        return error;
    const KeyConfiguration* target = Configured(machine, to);
    if (target == nullptr || target->kind < KindBoss || target->kind > KindMulti || AnyCallOn(machine, to) != nullptr)
        return KeyText(to) + " is no free line key";
    TellTransferred(machine, from);
    call->key = to;
    call->slot = 0;
    // Out before the other one lights: the call is then known to be on its way.
    ShowIcon(machine, from);
    ShowIcon(machine, to);
    if (call->state == CallState::Ringing)
        ShowCallerOf(machine, *call);
    ShowKeys(machine);
    return "";
}

std::string Reserve(Machine& machine, int key) {
    const Action action(machine);
    if (!IsKind(machine, key, KindMulti) || !CheckKey(machine, key).empty() || AnyCallOn(machine, key) != nullptr)
        return KeyText(key) + " is no free line key";
    if (ActiveCall(machine) != nullptr)
        return "there is a call already";
    NewCall(machine, key, CallState::Over).reserved = true;
    ShowIcon(machine, key);
    ShowKeys(machine);
    return "";
}

std::string CallWaitsAt(Machine& machine, const std::string& address, const std::string& number,
                        const std::string& name) {
    const Action action(machine);
    machine.set.waiting.push_back({address, number, name});
    return "";
}

}  // namespace Equipment
