// The PBX's side of TAPI_OMNA: the device association and the reading of the set's configuration, a request and an
// answer at a time.
#include "equipment/characters.h"
#include "equipment/equipment.h"
#include "equipment/set_parts.h"

#include <algorithm>

namespace Equipment {

namespace {

constexpr std::uint8_t AssociationRequest = 2;
constexpr std::uint8_t NoMultiLineKey = 4;  // nothing to answer
constexpr std::uint8_t KeyRequest = 6;
constexpr std::uint8_t KeyInfoRequest = 8;
constexpr std::uint8_t StringRequest = 10;
constexpr std::uint8_t StringInfoRequest = 12;
constexpr std::uint8_t SoftKeyRequest = 14;
constexpr std::uint8_t SoftKeyInfoRequest = 16;
constexpr std::uint8_t CodeRequest = 18;
constexpr std::uint8_t CodeInfoRequest = 20;
constexpr std::uint8_t SpecialRequest = 30;
constexpr std::uint8_t SpecialInfoRequest = 32;
constexpr std::uint8_t AnswerTo(std::uint8_t request) {
    return static_cast<std::uint8_t>(request + 1);
}

// One entry must fit a message, whatever it says.
constexpr std::size_t TextLimit = 240;

std::uint8_t Count(std::size_t n) {
    return static_cast<std::uint8_t>(std::min<std::size_t>(n, 255));
}

void AppendCounted(Bytes& to, const std::string& text) {
    Bytes bytes = ToSet(text);
    bytes.resize(std::min(bytes.size(), TextLimit));
    to.push_back(Count(bytes.size()));
    to.insert(to.end(), bytes.begin(), bytes.end());
}

bool IsMulti(const KeyConfiguration& key) {
    return key.kind == KindMulti;
}

std::vector<Bytes> MultiEntries(const Machine& machine) {
    std::vector<Bytes> entries;
    for (const KeyConfiguration& key : machine.config.keys) {
        if (!IsMulti(key) || machine.faults.noMultiLineKey)
            continue;
        Bytes entry{static_cast<std::uint8_t>(key.number)};
        AppendCounted(entry, key.label);
        entry.push_back(0);  // a byte that nobody reads
        entries.push_back(entry);
    }
    return entries;
}

std::vector<Bytes> SpecialEntries(const Machine& machine) {
    std::vector<Bytes> entries;
    for (const KeyConfiguration& key : machine.config.keys) {
        if (IsMulti(key))
            continue;
        Bytes entry{static_cast<std::uint8_t>(key.number), key.kind};
        AppendCounted(entry, key.label);
        entries.push_back(entry);
    }
    return entries;
}

std::vector<Bytes> TextEntries(const std::vector<std::string>& texts) {
    std::vector<Bytes> entries;
    for (std::size_t id = 0; id < texts.size(); ++id) {
        Bytes entry{Count(id)};
        AppendCounted(entry, texts[id]);
        entries.push_back(entry);
    }
    return entries;
}

// Numbers of supervision, boss, secretary and overflow keys. A kind that none of them is counts with the supervision
// keys, so that the announced total holds.
Bytes SpecialCounts(const SetConfiguration& config) {
    Bytes counts(4, 0);
    for (const KeyConfiguration& key : config.keys)
        if (!IsMulti(key))
            ++counts[key.kind >= KindBoss && key.kind <= KindOverflow ? key.kind - KindSupervision : 0];
    return counts;
}

// As many entries from number `from` on as a message takes, behind their count. None for a `from` that is not there.
std::optional<Bytes> InfoPayload(const std::vector<Bytes>& entries, std::size_t from, int atMost) {
    if (from >= entries.size())
        return {};
    Bytes payload{0};
    for (std::size_t i = from; i < entries.size() && payload[0] < std::clamp(atMost, 1, 255); ++i) {
        if (payload.size() + entries[i].size() > OmnaPayloadLimit)
            break;
        payload.insert(payload.end(), entries[i].begin(), entries[i].end());
        ++payload[0];
    }
    return payload;
}

std::optional<Bytes> Answer(const Machine& machine, const OmnaMessage& request) {
    const SetConfiguration& config = machine.config;
    const std::size_t from = request.payload.empty() ? 0 : request.payload[0];
    const auto info = [&](const std::vector<Bytes>& entries) {
        return InfoPayload(entries, from, config.entriesPerMessage);
    };
    switch (request.code) {
    case AssociationRequest: return AssociationPayload(config);
    case KeyRequest: return Bytes{Count(MultiEntries(machine).size())};
    case KeyInfoRequest: return info(MultiEntries(machine));
    case SpecialRequest: return SpecialCounts(config);
    case SpecialInfoRequest: return info(SpecialEntries(machine));
    case StringRequest: return Bytes{Count(config.strings.size())};
    case StringInfoRequest: return info(TextEntries(config.strings));
    case SoftKeyRequest: return Bytes{Count(config.softKeys.size())};
    case SoftKeyInfoRequest: return info(TextEntries(config.softKeys));
    case CodeRequest: return Bytes{Count(config.codes.size())};
    case CodeInfoRequest: return info(TextEntries(config.codes));
    default: return {};
    }
}

OmnaMessage Message(const Machine& machine, std::uint8_t code, std::uint8_t sequence, Bytes payload) {
    return {static_cast<std::uint8_t>(machine.config.omna), 0, code, sequence, std::move(payload)};
}

}  // namespace

Bytes AssociationPayload(const SetConfiguration& config) {
    Bytes payload{0, config.language};
    AppendCounted(payload, config.number.substr(0, 80));
    if (config.omna < 2)
        return payload;
    payload.push_back(config.deviceType);
    payload.push_back(config.multiMode);
    payload.push_back(config.forwardStatus);
    if (config.Forwarded()) {
        const Bytes destination = ToSet(config.forwardDestination.substr(0, 80));
        payload.push_back(Count(destination.size()));
        payload.push_back(config.forwardType);
        payload.insert(payload.end(), destination.begin(), destination.end());
    }
    for (const ModuleConfiguration& module : config.modules) {
        int descriptor = (module.address & 7) | (module.aom20 ? 0x10 : 0);
        if (descriptor == 0)
            descriptor = 0x80;  // 0 would end the list
        payload.push_back(static_cast<std::uint8_t>(descriptor));
        payload.push_back(static_cast<std::uint8_t>(module.offset));
    }
    payload.push_back(0);
    return payload;
}

void ReportAssociation(Machine& machine) {
    const std::lock_guard lock(machine.guard);
    const std::uint8_t code = AnswerTo(AssociationRequest);
    machine.QueueOmna(Message(machine, code, ++machine.pbx.ownSequence[code], AssociationPayload(machine.config)));
    machine.Pump();
}

namespace {

// The set says what it shows to its new listener, who else might wait long for its first word.
void ShowLine0Again(Machine& machine) {
    const SetState& set = machine.set;
    if (set.calls.empty()) {
        Line0(machine, machine.config.idleText);
        return;
    }
    const auto shown = std::clamp<std::ptrdiff_t>(set.cursor[0], 0, DisplayWidth);  // digits go on where it ends
    Write(machine, 0, Bytes(set.display[0].begin(), set.display[0].begin() + shown), 0, 0, false);
}

}  // namespace

void AnswerOmna(Machine& machine, const OmnaMessage& request) {
    PbxState& pbx = machine.pbx;
    pbx.requests.push_back(request);
    if (request.code == AssociationRequest) {
        pbx.associated = true;
        pbx.lastSequence.fill(-1);
        ++pbx.dialogue;
        machine.DropWaitingOmna();
    } else if (pbx.lastSequence[request.code] == request.sequence) {
        machine.Log("request repeated, already answered: " + std::to_string(request.code));
        return;
    } else {
        pbx.lastSequence[request.code] = request.sequence;
    }
    if (request.code == NoMultiLineKey) {
        machine.Log("the provider ends the dialogue: no multi-line key");
        return;
    }
    if (request.code == AssociationRequest ? machine.faults.noAssociation : machine.faults.noAnswers)
        return;
    const auto payload = Answer(machine, request);
    if (request.messageClass != 0 || !payload) {
        machine.Log("no answer to request " + std::to_string(request.code) + " " + Hex(request.payload));
        return;
    }
    const OmnaMessage answer = Message(machine, AnswerTo(request.code), request.sequence, *payload);
    if (machine.faults.answerDelayMs == 0) {
        machine.QueueOmna(answer);
        if (request.code == AssociationRequest)
            ShowLine0Again(machine);
        return;
    }
    machine.Later(machine.faults.answerDelayMs, [&machine, answer, dialogue = pbx.dialogue] {
        if (dialogue == machine.pbx.dialogue)
            machine.QueueOmna(answer);
    });
}

}  // namespace Equipment
