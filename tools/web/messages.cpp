// The one file that knows the JSON library.
#include "web/messages.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace Web {

namespace {

using Json = nlohmann::json;
using namespace Equipment;

constexpr std::size_t WordLimit = 16;

// Texts may hold anything: what is no UTF-8 is replaced.
std::string Written(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool IsPlain(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// --- the set

Json KeyJson(const Machine& machine, int key, const KeyConfiguration* configured) {
    Json json = {{"key", key}, {"icon", machine.set.icons[static_cast<std::size_t>(key)]}};
    if (configured != nullptr) {
        json["kind"] = KindName(configured->kind);
        json["label"] = configured->label;
    }
    return json;
}

// Keys that have a kind or are lit, in the order of their numbers.
Json KeysJson(const Machine& machine) {
    Json keys = Json::array();
    for (int key = 0; key < KeyCount; ++key) {
        const auto& all = machine.config.keys;
        const auto configured =
            std::find_if(all.begin(), all.end(), [&](const auto& entry) { return entry.number == key; });
        if (configured != all.end() || machine.set.icons[static_cast<std::size_t>(key)] != NoIcon)
            keys.push_back(KeyJson(machine, key, configured != all.end() ? &*configured : nullptr));
    }
    return keys;
}

Json ModulesJson(const Machine& machine) {
    Json modules = Json::array();
    for (const ModuleConfiguration& module : machine.config.modules)
        modules.push_back({{"address", module.address}, {"offset", module.offset}});
    return modules;
}

Json CallsJson(const Machine& machine) {
    Json calls = Json::array();
    for (const SetCall& call : machine.set.calls)
        calls.push_back({{"id", call.id},
                         {"key", call.key},
                         {"slot", call.slot},
                         {"state", CallStateName(call.state)},
                         {"incoming", call.incoming},
                         {"active", IsActive(call)},
                         {"number", call.number},
                         {"name", call.name},
                         {"tones", call.tones}});
    return calls;
}

const char* FarEndName(FarEnd does) {
    switch (does) {
    case FarEnd::Answers: return "answers";
    case FarEnd::Busy: return "busy";
    case FarEnd::NeverAnswers: return "never-answers";
    case FarEnd::NotObtainable: return "not-obtainable";
    case FarEnd::Script: break;
    }
    return "script";
}

Json DestinationJson(const std::string& number, const Destination& destination) {
    return {
        {"number", number}, {"does", FarEndName(destination.does)}, {"ms", destination.ms}, {"name", destination.name}};
}

Json WorldJson(const Machine& machine) {
    Json known = Json::array(), waiting = Json::array();
    for (const auto& [number, destination] : machine.config.destinations)
        known.push_back(DestinationJson(number, destination));
    for (const WaitingCall& call : machine.set.waiting)
        waiting.push_back({{"address", call.address}, {"number", call.number}, {"name", call.name}});
    return {{"known", known},
            {"otherwise", DestinationJson("any", machine.config.otherwise)},
            {"waiting", waiting},
            {"forward", {{"status", machine.config.forwardStatus}, {"to", machine.config.forwardDestination}}}};
}

Json LineJson(const Machine& machine) {
    const Faults& faults = machine.faults;
    const CardState& card = machine.card;
    return {{"silent", faults.silent},
            {"ctsLow", faults.ctsLow},
            {"flipEvery", faults.flipEvery},
            {"loseEvery", faults.loseEvery},
            {"noAnswers", faults.noAnswers},
            {"noHeaders", faults.noTraceHeaders},
            {"superFrames", machine.config.superFrames},
            {"provider", card.present},
            {"associated", machine.pbx.associated},
            {"in", card.framesIn},
            {"out", card.framesOut},
            {"damaged", card.badFrames},
            {"again", card.resends},
            {"refused", card.nacksIn},
            {"bps", machine.pacing.bitsPerSecond}};
}

// --- an application

Json PartyJson(const Party& party) {
    return {{"number", party.number}, {"name", party.name}};
}

Json CallJson(const ApplicationCall& call) {
    return {{"call", call.number},
            {"state", call.state},
            {"mode", call.mode},
            {"origin", call.origin},
            {"reason", call.reason},
            {"features", call.features},
            {"caller", PartyJson(call.caller)},
            {"called", PartyJson(call.called)},
            {"connected", PartyJson(call.connected)},
            {"redirecting", PartyJson(call.redirecting)},
            {"redirection", PartyJson(call.redirection)}};
}

}  // namespace

std::string SetMessage(const Machine& machine) {
    const SetState& set = machine.set;
    return Written({{"set",
                     {{"number", machine.config.number},
                      {"version", machine.config.omna},
                      {"display", {DisplayText(machine, 0), DisplayText(machine, 1)}},
                      {"softKeys", set.softKeys},
                      {"keys", KeysJson(machine)},
                      {"modules", ModulesJson(machine)},
                      {"lamps", set.lamps},
                      {"ringing", set.ringing},
                      {"handsetOff", set.handsetOff},
                      {"tones", set.tones},
                      {"calls", CallsJson(machine)},
                      {"world", WorldJson(machine)},
                      {"line", LineJson(machine)}}}});
}

std::string LinesMessage(const std::vector<Line>& lines) {
    Json all = Json::array();
    for (const Line& line : lines)
        all.push_back({{"number", line.number},
                       {"at", line.atMs},
                       {"lane", line.lane == Line::Lane::Wire ? "wire" : "tapi"},
                       {"kind", line.kind},
                       {"texts", line.texts},
                       {"detail", line.detail}});
    return Written({{"lines", all}});
}

std::string RefusedMessage(const std::string& why) {
    return Written({{"refused", why}});
}

std::optional<Ask> ReadAsk(const std::string& text) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object() || json.size() != 2)
        return {};
    const auto whom = json.find("ask"), words = json.find("words");
    if (whom == json.end() || !whom->is_string() || words == json.end() || !words->is_array() || words->empty() ||
        words->size() > WordLimit)
        return {};
    Ask ask{whom->get<std::string>(), {}};
    for (const Json& word : *words) {
        if (!word.is_string())
            return {};
        ask.words.push_back(word.get<std::string>());
        if (!IsPlain(ask.words.back()))
            return {};
    }
    return ask;
}

std::string ApplicationMessage(const ApplicationState& application) {
    Json calls = Json::array();
    for (const ApplicationCall& call : application.calls)
        calls.push_back(CallJson(call));
    return Written({{"application",
                     {{"line", application.line},
                      {"addressFeatures", application.addressFeatures},
                      {"forwards", application.forwards},
                      {"phoneOpen", application.phoneOpen},
                      {"phoneDisplay", application.phoneDisplay},
                      {"calls", calls}}}});
}

}  // namespace Web
