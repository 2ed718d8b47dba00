// Text commands to the equipment, one a line: what the program reads on its standard input and from files. `help` lists
// them (HelpText). A blank line and one that begins with # do nothing.
#pragma once

#include "equipment/equipment.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace Equipment {

// Carries one line out and gives what is to be shown ("" = done, nothing to show). A line that cannot be carried out
// gives a text that begins with "error: " and changes nothing. `wait` and `quit` are known but do nothing here: they
// are for whoever reads the lines, see Script.
std::string Execute(Machine& machine, const std::string& line, std::uint32_t nowMs);
// The same with the line's words, each as it is: nothing in them is a quotation mark or a comment.
std::string Execute(Machine& machine, const std::vector<std::string>& words, std::uint32_t nowMs);
bool IsError(const std::string& answer);
std::string HelpText();

// Lines that wait to be carried out, `wait MS` between them. Behind `wait provider`, Step is to be called again when
// bytes have come from it.
struct Script {
    std::deque<std::string> lines;
    bool quit = false;

    // Reads a whole file; false when it cannot be read.
    bool Load(const std::string& path);
    // One more line, as some systems end it or without its end.
    void Add(std::string line);
    // Carries out lines until one waits; gives what they had to say, a line each. An error names its line.
    std::string Step(Machine& machine, std::uint32_t nowMs);
    // Milliseconds until Step has something to do; UINT32_MAX = nothing waits.
    std::uint32_t NextDue(std::uint32_t nowMs) const;

private:
    bool waiting = false;
    std::uint32_t resumeMs = 0;
    int heard = -1;  // frames of the provider when `wait provider` began; -1 = it waits for the clock
};

}  // namespace Equipment
