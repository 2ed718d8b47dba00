#include "demo/application.h"

#include "demo/stage.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace Demo {

namespace {

constexpr const char* Mark = "-- done --";

// What a person may have the console do: nothing that blocks or ends it.
constexpr const char* Allowed[] = {"open",          "close",         "phoneopen",  "phoneclose",      "makecall",
                                   "answer",        "drop",          "hold",       "unhold",          "dial",
                                   "blindtransfer", "setuptransfer", "forward",    "removefromconf",  "pickup",
                                   "digits",        "button",        "hookswitch", "completetransfer"};

std::vector<std::string> Split(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

std::string Joined(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        const bool plain = !word.empty() && word.find(' ') == std::string::npos;
        line += (line.empty() ? "" : " ") + (plain ? word : "\"" + word + "\"");
    }
    return line;
}

std::vector<std::string> Flags(const std::string& value) {
    std::vector<std::string> flags;
    std::istringstream in(value);
    for (std::string flag; std::getline(in, flag, '|');)
        if (flag != "0")
            flags.push_back(flag);
    return flags;
}

// A row of a structure: "  dwCalledIDOffset            "4711" (10 bytes at 324)".
struct Row {
    std::string name, value;
    // What stands between the quotation marks of a text.
    std::string Text() const {
        const std::size_t first = value.find('"'), last = value.rfind("\" (");
        return first == std::string::npos || last == std::string::npos || last <= first
                   ? ""
                   : value.substr(first + 1, last - first - 1);
    }
};

Row ReadRow(const std::string& line) {
    const std::size_t name = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t end = std::min(line.find(' ', name), line.size());
    const std::size_t value = std::min(line.find_first_not_of(' ', end), line.size());
    return {line.substr(name, end - name), line.substr(value)};
}

struct PartyField {
    const char* number;
    const char* name;
    Web::Party Web::ApplicationCall::*party;
};
constexpr PartyField Parties[] = {
    {"dwCallerIDOffset", "dwCallerIDNameOffset", &Web::ApplicationCall::caller},
    {"dwCalledIDOffset", "dwCalledIDNameOffset", &Web::ApplicationCall::called},
    {"dwConnectedIDOffset", "dwConnectedIDNameOffset", &Web::ApplicationCall::connected},
    {"dwRedirectingIDOffset", "dwRedirectingIDNameOffset", &Web::ApplicationCall::redirecting},
    {"dwRedirectionIDOffset", "dwRedirectionIDNameOffset", &Web::ApplicationCall::redirection},
};

// An entry point gave an error, or a request ended with one: "TSPI_lineDrop: LINEERR_...".
bool IsRefusal(const std::string& line) {
    return (line.starts_with("TSPI_") || line.starts_with("completion")) && line.find("ERR_") != std::string::npos;
}

}  // namespace

std::string Application::Ask(const std::vector<std::string>& words) {
    if (std::find(std::begin(Allowed), std::end(Allowed), words.at(0)) == std::end(Allowed))
        return "an application is not asked for '" + words[0] + "' here";
    if (std::any_of(words.begin(), words.end(), [](const auto& word) { return word.find('"') != std::string::npos; }))
        return "no quotation marks, please";
    tell("asked", Joined(words));
    Send(words, false);
    return "";
}

void Application::Send(const std::vector<std::string>& words, bool own) {
    sent.push_back({words, own, {}});
    send(Joined(words));
    send(std::string("echo ") + Mark);
}

void Application::Take(const std::string& line) {
    if (IsEvent(line)) {
        const bool box = line.starts_with("[box] ");
        tell(box ? "box" : "event", line);
        if (box)
            notice(line.substr(line.find(' ') + 1));
        TakeEvent(line);
    } else if (sent.empty()) {
        tell("answer", line);
    } else if (line == Mark) {
        const Command command = sent.front();
        sent.pop_front();
        TakeAnswer(command);
    } else {
        sent.front().answer.push_back(line);
        if (!sent.front().own)
            tell("answer", line);
    }
}

Web::ApplicationCall& Application::CallAt(int number) {
    const auto at = std::find_if(state.calls.begin(), state.calls.end(),
                                 [&](const Web::ApplicationCall& call) { return call.number >= number; });
    if (at != state.calls.end() && at->number == number)
        return *at;
    Web::ApplicationCall call;
    call.number = number;
    return *state.calls.insert(at, call);
}

// "LINE_CALLSTATE call 2 DISCONNECTED mode NORMAL"
void Application::TakeCallEvent(const std::vector<std::string>& words) {
    const int number = std::atoi(words[2].c_str());
    if (words[0] == "LINE_CALLSTATE" && words.size() > 3 && words[3] == "IDLE") {
        std::erase_if(state.calls, [&](const Web::ApplicationCall& call) { return call.number == number; });
        return;
    }
    Web::ApplicationCall& call = CallAt(number);
    if (words[0] == "LINE_NEWCALL") {
        call = {};
        call.number = number;
        call.state = "UNKNOWN";
    }
    if (words[0] == "LINE_CALLSTATE" && words.size() > 3) {
        call.state = words[3];
        call.mode = words.size() > 5 ? words[5] : "";
    }
}

void Application::TakeEvent(const std::string& line) {
    const std::vector<std::string> words = Split(line);
    stale = true;
    if (IsRefusal(line))
        notice(line);
    if (words.size() > 2 && words[1] == "call") {
        TakeCallEvent(words);
    } else if (words[0] == "LINE_CLOSE") {
        state.line = "closed by the provider";
        state.calls.clear();
    } else if (words[0] == "LINE_LINEDEVSTATE" && line.find("INSERVICE") != std::string::npos) {
        state.line = "in service";
    } else if (words[0] == "LINE_LINEDEVSTATE" && line.find("OUTOFSERVICE") != std::string::npos) {
        state.line = "out of service";
    }
}

void Application::TakeAnswer(const Command& command) {
    if (command.own)
        return TakeFields(command);
    stale = true;
    const auto refused = std::find_if(command.answer.begin(), command.answer.end(), IsRefusal);
    if (refused != command.answer.end())
        return notice(*refused);
    const std::string& what = command.words[0];
    if (what == "open" && state.line != "in service")
        state.line = "opening";
    if (what == "close" || what == "phoneopen") {
        state.line = "closed";
        state.calls.clear();
    }
    if (what == "phoneopen" || what == "phoneclose") {
        state.phoneOpen = what == "phoneopen";
        state.phoneDisplay.clear();
    }
}

// What Look has asked for. A call may be over by now: then nothing is said of it, and nothing made of it.
void Application::TakeFields(const Command& command) {
    Web::ApplicationCall* call = nullptr;
    if (command.words.size() > 1) {
        const int number = std::atoi(command.words[1].c_str());
        const auto at = std::find_if(state.calls.begin(), state.calls.end(),
                                     [&](const Web::ApplicationCall& entry) { return entry.number == number; });
        if (at == state.calls.end())
            return;
        call = &*at;
    }
    if (command.words[0] == "callinfo")
        for (const PartyField& field : Parties)
            call->*field.party = {};
    if (command.words[0] == "addressstatus")
        state.forwards.clear();
    if (command.words[0] == "display")
        state.phoneDisplay.clear();
    for (const std::string& line : command.answer) {
        const Row row = ReadRow(line);
        if (row.name == "dwAddressFeatures")
            state.addressFeatures = Flags(row.value);
        else if (row.name.starts_with("ForwardList["))
            state.forwards.push_back(row.value.substr(0, row.value.find(" to ")) + " to " + row.Text());
        else if (row.name == "line" && line.find('|') != std::string::npos)
            state.phoneDisplay.push_back(line.substr(line.find('|') + 1, line.rfind('|') - line.find('|') - 1));
        if (call == nullptr)
            continue;
        if (row.name == "dwCallFeatures")
            call->features = Flags(row.value);
        else if (row.name == "dwOrigin")
            call->origin = row.value;
        else if (row.name == "dwReason")
            call->reason = row.value;
        for (const PartyField& field : Parties) {
            if (row.name == field.number)
                (call->*field.party).number = row.Text();
            else if (row.name == field.name)
                (call->*field.party).name = row.Text();
        }
    }
}

void Application::Look() {
    const bool looking = std::any_of(sent.begin(), sent.end(), [](const Command& command) { return command.own; });
    if (!stale || looking)
        return;
    stale = false;
    for (const Web::ApplicationCall& call : state.calls) {
        Send({"callstatus", std::to_string(call.number)}, true);
        Send({"callinfo", std::to_string(call.number)}, true);
    }
    if (state.line != "closed")
        Send({"addressstatus"}, true);
    if (state.phoneOpen)
        Send({"display"}, true);
}

void Application::Start() {
    tell("asked", "start");
    state.line = "opening";
    Send({"start"}, false);
}

}  // namespace Demo
