// What both ways of showing share: the simulated set on a pseudo-terminal, and the telephony service's side as a child
// process beside it.
#pragma once

#include "demo/child.h"
#include "equipment/equipment.h"
#include "equipment/loop.h"

#include <string>
#include <vector>

namespace Demo {

struct Stage {
    Equipment::Machine Machine;
    Equipment::Loop Loop{Machine};
    Child Host;
    std::string Root;  // the host's own directory: drive C:, registry

    ~Stage();
    // `directory` holds the programs; `host` is another host to play with, which takes the same options, "" for the one
    // there. Gives "", or what went wrong.
    std::string Start(const std::string& directory, const std::string& host = "");
    // Asks the host to end, plays the set for it meanwhile, and gives the host's status.
    int End();
};

// The PBX of the demo: who is there to be called, and what they do.
void Furnish(Equipment::Machine& machine);

// A line of the host that reports an event, rather than answers a command.
bool IsEvent(const std::string& line);

// Set by the signals that ask a program to end (TrapSignals), so that everything is put back first.
bool StopAsked();
void TrapSignals();

}  // namespace Demo
