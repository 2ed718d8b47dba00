#include "support/books.h"

#include "control/requests.h"
#include "tracking/model.h"

#include <algorithm>
#include <sstream>

namespace {

using Equipment::CallState;

void Add(std::string& text, const std::string& more) {
    text += (text.empty() ? "" : "; ") + more;
}

// How a call of the set may have been reported.
std::vector<std::string> Reported(CallState state) {
    switch (state) {
    case CallState::Ringing: return {"", "OFFERING"};
    case CallState::DialTone: return {"DIALTONE"};
    case CallState::Dialling: return {"DIALTONE", "DIALING", "PROCEEDING", "RINGBACK"};
    case CallState::FarRinging: return {"PROCEEDING", "RINGBACK"};
    case CallState::Connected: return {"CONNECTED"};
    case CallState::Held: return {"ONHOLD"};
    case CallState::RingingBack: return {"OFFERING"};
    case CallState::Conferenced: return {"CONFERENCED"};
    case CallState::Over: return {"DISCONNECTED"};
    case CallState::Served: break;
    }
    return {};
}

}  // namespace

void Books::Fault(const std::string& text) {
    Add(faults, text);
}

void Books::Asked(DRV_REQUESTID request) {
    if (!requests.try_emplace(request).second)
        Fault("request " + std::to_string(request) + " asked twice");
}

void Books::Answered(DRV_REQUESTID request, LONG result) {
    Request& asked = requests[request];
    asked.refused = result <= 0;
    if (result > 0 && static_cast<DRV_REQUESTID>(result) != request)
        Fault("request " + std::to_string(request) + " answered with " + std::to_string(result));
    if (asked.refused && asked.succeeded)
        Fault("request " + std::to_string(request) + " refused and completed");
}

void Books::Given(int cref, DRV_REQUESTID request) {
    const Request& asked = requests[request];
    if (asked.refused || asked.succeeded == false)
        return;
    // A call at dial tone may be given to the application that dials on it.
    const auto state = State(cref);
    if (state && *state != "DIALTONE")
        Fault("call " + std::to_string(cref) + " given while " + *state);
    if (!state)
        alive[cref] = "";
    given[cref] = request;
}

void Books::Complete(DRV_REQUESTID request, bool succeeded, const std::string& event) {
    const auto found = requests.find(request);
    if (found == requests.end() || found->second.succeeded || found->second.refused)
        return Fault(event + " without request");
    found->second.succeeded = succeeded;
    if (!succeeded)
        std::erase_if(given, [&](const auto& entry) {
            if (entry.second != request)
                return false;
            alive.erase(entry.first);
            return true;
        });
}

void Books::Move(int cref, const std::string& state, const std::string& event) {
    const auto call = alive.find(cref);
    const bool waited = state == "OFFERING" && unoffered.erase(cref) != 0;
    if (call == alive.end()) {
        // The end of a conference may be told twice; a caller who stops ringing in his first second is offered behind
        // his end.
        if (!waited && !(cref == CONF_CREF && state == "IDLE"))
            Fault(event + " of no call");
        return;
    }
    call->second = state;
    if (state != "IDLE")
        return;
    alive.erase(call);
    given.erase(cref);
}

void Books::Take(const std::vector<std::string>& events) {
    for (const std::string& event : events) {
        std::istringstream words(event);
        std::string kind, state;
        unsigned long number = 0;
        if (!(words >> kind) || (kind != "NEWCALL" && kind != "STATE" && kind != "INFO" && kind != "REPLY"))
            continue;
        if (!(words >> number >> state) && kind != "NEWCALL") {
            Fault(event + " of no call");
            continue;
        }
        const int cref = static_cast<int>(number);
        if (kind == "REPLY")
            Complete(static_cast<DRV_REQUESTID>(number), state == "0", event);
        else if (kind == "STATE")
            Move(cref, state, event);
        else if (kind == "INFO" && !State(cref))
            Fault(event + " of no call");
        else if (kind == "NEWCALL") {
            if (!alive.try_emplace(cref).second)
                Fault(event + " of a call that lives");
            unoffered.insert(cref);
        }
    }
}

std::optional<std::string> Books::State(int cref) const {
    const auto call = alive.find(cref);
    return call == alive.end() ? std::nullopt : std::optional(call->second);
}

std::vector<int> Books::Alive() const {
    std::vector<int> crefs;
    for (const auto& [cref, state] : alive)
        crefs.push_back(cref);
    return crefs;
}

std::vector<DRV_REQUESTID> Books::Uncompleted() const {
    std::vector<DRV_REQUESTID> open;
    for (const auto& [request, asked] : requests)
        if (!asked.refused && !asked.succeeded)
            open.push_back(request);
    return open;
}

std::string Books::Faults() const {
    return faults;
}

std::string Books::Balance(const Equipment::Machine& machine, bool states) const {
    std::string text = faults;
    for (const DRV_REQUESTID request : Uncompleted())
        Add(text, "request " + std::to_string(request) + " not completed");
    if (ProviderState.PendingRequestID != 0 || RunningRequest.Code != REQUEST_NONE)
        Add(text, "request " + std::to_string(ProviderState.PendingRequestID) + " pending, code " +
                      std::to_string(RunningRequest.Code) + " running");

    std::map<int, std::string> calls = alive;
    const bool conference = calls.erase(CONF_CREF) != 0;
    const auto conferenced = [](const Equipment::SetCall& call) { return call.state == CallState::Conferenced; };
    if (conference != std::any_of(machine.set.calls.begin(), machine.set.calls.end(), conferenced))
        Add(text, conference ? "conference without parties" : "parties without conference");
    for (const Equipment::SetCall& call : machine.set.calls) {
        const std::vector<std::string> reported = Reported(call.state);
        const auto match = std::find_if(calls.begin(), calls.end(), [&](const auto& entry) {
            return CallTable.at(static_cast<std::size_t>(entry.first)).touch == call.key &&
                   (!states || reported.empty() ||
                    std::find(reported.begin(), reported.end(), entry.second) != reported.end());
        });
        if (match != calls.end())
            calls.erase(match);
        else if (call.state != CallState::Served)  // a service code is no call to everybody
            Add(text, "key " + std::to_string(call.key) + " " + CallStateName(call.state) + " and no such call");
    }
    for (const auto& [cref, state] : calls)
        Add(text, "call " + std::to_string(cref) + " " + state + " not on the set");

    for (int cref = 0; cref < CALL_COUNT; ++cref) {
        const CallRecord& call = CallTable.at(static_cast<std::size_t>(cref));
        const bool free = call.touch == 0 && (call.state == 0 || call.state == LINECALLSTATE_IDLE);
        if (!free && !State(cref))
            Add(text, "record " + std::to_string(cref) + " not free");
    }
    for (std::size_t key = 0; key < TouchTable.size(); ++key)
        for (const int cref : TouchTable.at(key).calls)
            if (cref != -1 &&
                (!IsCref(cref) || CallTable.at(static_cast<std::size_t>(cref)).touch != static_cast<int>(key)))
                Add(text, "key " + std::to_string(key) + " holds " + std::to_string(cref));
    return text;
}
