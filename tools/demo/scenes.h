// The scenes of the demo, as a table: what somebody does, what the set shows afterwards, and the events that TAPI gets,
// in their order.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Demo {

struct Step {
    const char* title;
    const char* set;                    // a line of the equipment's script: the user, a far end or the PBX does it
    const char* app;                    // or a line of the host's console: an application does it
    const char* shows;                  // somewhere on the set afterwards; "" = whatever
    std::vector<std::string> expected;  // a box counts by its beginning; # stands for the step's request
    std::uint32_t limitMs = 20000;      // a step ends as soon as its events are there; a loaded machine takes its time
    bool configures = false;  // over only when the PBX has answered the last question about the set's configuration
    bool answers = false;     // what the console answers is compared too
};
struct Scene {
    const char* title;
    std::vector<Step> steps;
};
std::span<const Scene> Scenes();

}  // namespace Demo
