// What page and program say to each other, as JSON. The page is told whole states, never changes of them, so that one
// who comes late or was away for a while sees what all others see:
//
//     {"set": {...}}            the set, the world behind it and the line (SetMessage)
//     {"application": {...}}    an application beside it (demo/application.h)
//     {"lines": [{...}, ...]}   lines for the lanes, oldest first; each has a number, which tells repeated ones
//     {"refused": "..."}        what was asked for last cannot be done, and why
//
// The page asks for something with {"ask": "set", "words": ["press", "1"]}: a command of the equipment's script, or of
// the application beside it ("application").
#pragma once

#include "equipment/equipment.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Web {

struct Line {
    enum class Lane : std::uint8_t { Wire, Tapi };
    std::uint64_t number = 0;
    std::int64_t atMs = 0;  // since 1970, as the page's own clock has it
    Lane lane = Lane::Wire;
    std::string kind;                // wire: in, out (of the provider), card; TAPI: event, answer, asked, box
    std::vector<std::string> texts;  // one for each message in a frame
    std::string detail;              // the frame's bytes
};

struct Ask {
    std::string whom;
    std::vector<std::string> words;
};

// The machine is not to change meanwhile: hold its guard, or own it.
std::string SetMessage(const Equipment::Machine& machine);
std::string LinesMessage(const std::vector<Line>& lines);
std::string RefusedMessage(const std::string& why);
// Nothing when the text is not what the page would send: no JSON, another form, too many words, control characters.
std::optional<Ask> ReadAsk(const std::string& text);

// An application and its calls, as it sees them through TAPI.
struct Party {
    std::string number, name;
};
struct ApplicationCall {
    int number = 0;
    std::string state, mode, origin, reason;
    std::vector<std::string> features;
    Party caller, called, connected, redirecting, redirection;
};
struct ApplicationState {
    std::string line = "closed";  // closed, opening, in service, out of service, closed by the provider
    std::vector<std::string> addressFeatures, forwards;
    bool phoneOpen = false;
    std::vector<std::string> phoneDisplay;
    std::vector<ApplicationCall> calls;
};
std::string ApplicationMessage(const ApplicationState& application);

}  // namespace Web
