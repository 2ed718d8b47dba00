// What the PBX tells of calls: from version 2 on who calls, who is called and who has answered; in every version which
// call has gone over elsewhere. A call is named by its key alone.
#include "equipment/characters.h"
#include "equipment/set_parts.h"

#include <algorithm>

namespace Equipment {

namespace {

constexpr std::uint8_t IncomingChange = 23;
constexpr std::uint8_t OutgoingCall = 24;
constexpr std::uint8_t ConnectedCall = 25;
constexpr std::uint8_t TransferedCall = 28;

constexpr std::uint8_t Internal = 1;
constexpr std::uint8_t External = 2;
constexpr std::uint8_t NoOperatorPrefix = 0x40;
constexpr std::uint8_t WithoutPrefix = 0x80;

constexpr std::size_t TextLimit = 39;  // what a provider has room for

struct Party {
    std::string number, name;
    std::uint8_t flags = 0;
};

// `dialled`: the number begins with the prefix for outside calls, if it goes there.
Party PartyOf(const SetConfiguration& config, std::string number, const std::string& name, bool dialled) {
    if (number.empty())
        return {"", name, 0};
    if (number.size() <= static_cast<std::size_t>(config.internalDigits))
        return {number, name, Internal};
    const bool prefixed = dialled && number.rfind(config.externalPrefix, 0) == 0;
    std::uint8_t flags = External | (config.noOperatorPrefix ? NoOperatorPrefix : 0);
    if (config.prefixInEvents && !prefixed)
        number = config.externalPrefix + number;
    if (!config.prefixInEvents) {
        flags |= WithoutPrefix;
        if (prefixed)
            number = number.substr(config.externalPrefix.size());
    }
    return {number, name, flags};
}

void Append(Bytes& payload, const Party& party) {
    const auto text = [](const std::string& utf8) {
        Bytes bytes = ToWindows(utf8);
        bytes.resize(std::min(bytes.size(), TextLimit));
        return bytes;
    };
    const Bytes number = text(party.number), name = text(party.name);
    payload.push_back(static_cast<std::uint8_t>(number.size()));
    payload.push_back(party.flags);
    payload.insert(payload.end(), number.begin(), number.end());
    payload.push_back(static_cast<std::uint8_t>(name.size()));
    payload.insert(payload.end(), name.begin(), name.end());
}

void Tell(Machine& machine, std::uint8_t code, Bytes payload, int since) {
    if (!machine.pbx.associated || machine.config.omna < since)
        return;
    machine.QueueOmna(
        {static_cast<std::uint8_t>(machine.config.omna), 0, code, ++machine.pbx.ownSequence[code], std::move(payload)});
}

std::uint8_t Key(const SetCall& call) {
    return static_cast<std::uint8_t>(call.key);
}

}  // namespace

void TellIncoming(Machine& machine, const SetCall& call) {
    Bytes payload{Key(call), static_cast<std::uint8_t>(call.reason)};
    Append(payload, PartyOf(machine.config, call.number, call.name, false));
    // For whom it was; the PBX leaves the line's own number out on a supervision key, where the label says it.
    const KeyConfiguration* key = Configured(machine, call.key);
    const bool own = call.called.empty() && key != nullptr && key->kind != KindSupervision;
    Append(payload, PartyOf(machine.config, own ? key->label : call.called, call.calledName, false));
    Tell(machine, IncomingChange, payload, 2);
}

void TellOutgoing(Machine& machine, const SetCall& call, bool numberKnown) {
    Bytes payload{Key(call), 0};
    Append(payload, numberKnown ? PartyOf(machine.config, call.number, call.name, true) : Party{});
    Tell(machine, OutgoingCall, payload, 2);
}

void TellConnected(Machine& machine, const SetCall& call) {
    Bytes payload{Key(call), 0};
    Append(payload, PartyOf(machine.config, call.number, call.name, !call.incoming));
    Tell(machine, ConnectedCall, payload, 2);
}

void TellTransferred(Machine& machine, int key) {
    Tell(machine, TransferedCall, {static_cast<std::uint8_t>(key)}, 0);
}

}  // namespace Equipment
