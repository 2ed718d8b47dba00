// Scenarios as tables of steps: what somebody does, and everything that comes of it, from the entry points of the provider
// to the keys of the set and back to TAPI.
#pragma once

#include "support/books.h"
#include "support/service.h"

#include <sstream>

// Do: a command to the equipment (its console's), "wait MS", or "app" and a request:
//   make NUMBER | dial CALL DIGITS | blind CALL NUMBER | digits CALL [DIGITS] | pickup ADDRESS
//   answer, drop, hold, unhold, setup or remove CALL | transfer or conference CALL CONSULTATION-CALL
//   forward uncond, busy, noansw or busyna NUMBER | forward off | button keypad, display or feature ID | hook on or off
// Presses: what reached the set. K3 a line key, M2:3 a module's key, S1 a soft key, REL, OFF, digits and letters; [...] in
//   one frame where the card takes Super Messages, else each in its own.
// Events: "0 IDLE" for LINE_CALLSTATE, "REPLY" and its error for the completion of the latest request, "= 8000001c" when
//   the entry point refuses; all of the 2.5 s after the step, with ", " between them.
// Traces: lines written in this order, with others between them; " | " between them.
//
// Before a '?' stands where a step, a press or an event belongs: versions; 'k' or 'o' where second calls go to the same key
// or to another; 't' or 'a' where presses travel together or alone. "23k?0 ONHOLD": versions 2 and 3, same
// key; "!1k?": all but version 1 with the same key.
struct Step {
    std::string Do;
    std::string Presses = {}, Events = {}, Traces = {};
};

class Scenario : public Service {
protected:
    Books TheBooks;
    bool Phone = false;  // PHONE_STATE counts among the events

    // A set with line keys 1 to 3, from version 2 on 43 on a module, supervision 7, boss 8 and secretary 9. 4750 and the
    // boss's 4730 answer, 4751 rings, 4759 is busy.
    void Configure(int version, bool super, int multiMode);
    // In service, and watched.
    void Start();
    // Carries the steps out; the books must balance behind the last one.
    void Play(const std::vector<Step>& steps);
    // Carries one action out, lets 2.5 s pass, and gives its events; a refusal of the set is "set: why".
    std::string Happen(const std::string& action);

private:
    std::string Pressed;
    DRV_REQUESTID Request = 0;

    void Note(Equipment::ByteSpan item);
    bool Belongs(std::string& text) const;
    std::string Chosen(const std::string& text, const std::string& between) const;
    std::vector<std::string> AskFor(std::istringstream words);
    std::vector<std::string> Captured() const;
};
