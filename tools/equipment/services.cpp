// Service codes keyed on a seized line: forwarding on and off, and picking up a call that rings elsewhere.
#include "equipment/set_parts.h"

#include <algorithm>
#include <list>

namespace Equipment {

namespace {

// The codes in their order; the first four are the forward statuses 0 to 3.
constexpr int CancelCode = 4;
constexpr int PickUpCode = 6;
constexpr int PickedUp = 4;  // reason of an incoming call

struct Keyed {
    int code = -1;
    std::string rest;
};

Keyed Parse(const Machine& machine, const std::string& dialled) {
    Keyed keyed;
    std::size_t length = 0;
    const std::vector<std::string>& codes = machine.config.codes;
    for (std::size_t i = 0; i < codes.size() && i <= PickUpCode; ++i)
        if (codes[i].size() > length && dialled.rfind(codes[i], 0) == 0) {
            length = codes[i].size();
            keyed = {static_cast<int>(i), dialled.substr(length)};
        }
    return keyed.code == 5 ? Keyed{} : keyed;  // tones in a call: not for this side of a line
}

bool IsForward(int code) {
    return code >= 0 && code < CancelCode;
}

// An internal number has all its digits; an outside one may always go on.
bool IsWhole(const SetConfiguration& config, const std::string& number) {
    const bool outside = !config.externalPrefix.empty() && number.rfind(config.externalPrefix, 0) == 0;
    return !outside && number.size() == static_cast<std::size_t>(config.internalDigits);
}

// Nobody need put the line down.
void Serve(Machine& machine, SetCall& call) {
    call.state = CallState::Served;
    machine.Later(machine.config.servedMs, [&machine, id = call.id] {
        const Action later(machine);
        if (const SetCall* still = CallById(machine, id); still != nullptr && still->state == CallState::Served)
            EndKey(machine, still->key);
    });
}

void Report(Machine& machine, SetCall& call, std::uint8_t status, const std::string& destination) {
    Serve(machine, call);
    machine.config.forwardStatus = status;
    machine.config.forwardDestination = destination;
    ReportAssociation(machine);
}

// The call that rings at `address`; "" = any.
void PickUp(Machine& machine, SetCall& call, const std::string& address) {
    std::vector<WaitingCall>& waiting = machine.set.waiting;
    const auto found = std::find_if(waiting.begin(), waiting.end(), [&](const WaitingCall& entry) {
        return address.empty() || entry.address == address;
    });
    if (found == waiting.end()) {
        Refuse(machine, call);
        return;
    }
    call.incoming = true;
    call.number = found->number;
    call.name = found->name;
    call.called = found->address;
    call.reason = PickedUp;
    waiting.erase(found);
    TellIncoming(machine, call);
    TellConnected(machine, call);
    Connect(machine, call);
}

void Carry(Machine& machine, SetCall& call, const Keyed& keyed) {
    if (keyed.code == CancelCode)
        Report(machine, call, NotForwarded, "");
    else if (IsForward(keyed.code) && !keyed.rest.empty())
        Report(machine, call, static_cast<std::uint8_t>(keyed.code), keyed.rest);
    else if (keyed.code == PickUpCode)
        PickUp(machine, call, keyed.rest);
}

// A code with all its digits.
bool IsComplete(const Machine& machine, const Keyed& keyed) {
    return keyed.code == CancelCode || (keyed.code >= 0 && IsWhole(machine.config, keyed.rest)) ||
           (IsForward(keyed.code) && machine.config.destinations.count(keyed.rest) != 0);
}

bool MayServe(const Machine& machine, const SetCall& call) {
    const std::list<SetCall>& calls = machine.set.calls;
    return IsKind(machine, call.key, KindMulti) && machine.config.destinations.count(call.dialled) == 0 &&
           std::none_of(calls.begin(), calls.end(),
                        [&](const SetCall& other) { return other.key == call.key && other.id != call.id; });
}

}  // namespace

bool CompletesService(const Machine& machine, const SetCall& call) {
    return MayServe(machine, call) && IsComplete(machine, Parse(machine, call.dialled));
}

bool TakeService(Machine& machine, SetCall& call) {
    const Keyed keyed = MayServe(machine, call) ? Parse(machine, call.dialled) : Keyed{};
    if (keyed.code < 0)
        return false;
    if (IsComplete(machine, keyed)) {
        Carry(machine, call, keyed);
        return true;
    }
    machine.Later(machine.config.digitPauseMs, [&machine, id = call.id, number = call.dialled] {
        const Action later(machine);
        SetCall* still = CallById(machine, id);
        if (still != nullptr && still->state == CallState::Dialling && still->dialled == number)
            Carry(machine, *still, Parse(machine, number));
    });
    return true;
}

void FinishService(Machine& machine, SetCall& call) {
    if (call.state != CallState::Dialling || Beside(machine, call) != nullptr)
        return;
    const Keyed keyed = Parse(machine, call.dialled);
    if (IsForward(keyed.code))
        Carry(machine, call, keyed);
}

}  // namespace Equipment
