// A random walk over the whole provider: a seed decides what the person at the set, far ends, the PBX, applications and
// a misbehaving line do, and after every step what must always hold is checked. The same options give the same walk.
//
// What was done is kept as lines of text, a verb and its words each, which can be walked again without the seed, shortened
// or put into a test. The first one describes the set; `wait` lets milliseconds pass, `compare` and `quiet` check more.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Walk {

struct Options {
    std::uint32_t Seed = 1;
    int Actions = 300;
    int Version = 2;  // of TAPI_OMNA
    bool Super = false;
    int MultiMode = 0;        // 1: second calls are made on the same key
    bool Misbehaves = false;  // the line loses, flips, repeats and cuts frames, goes silent, answers late
    bool PrintsAll = false;   // each line and event on standard output, and every trace line in the trace files
};

struct Outcome {
    std::string Fault;                       // "" = all held
    std::vector<std::string> Lines;          // what was done, to walk it again
    std::vector<std::string> Trail;          // the last actions and events, in words, oldest first
    std::map<std::string, long> Exceptions;  // what was odd and is wanted so, by its reason
    std::map<std::string, long> Asked;       // requests, by name, " ok" behind those completed with 0
    long Actions = 0, Refused = 0, Requests = 0, Events = 0, Compared = 0, Rests = 0, Boxes = 0, Reopened = 0;
    long Suspected = 0;  // actions behind something wanted as it is, after which the tables are not held to be right
    std::uint64_t Milliseconds = 0;  // of the set's life
};

// Leaves the process as it found it, but for the provider's records.
Outcome Run(const Options& options);
// Walks these lines; one that does not apply is left out.
Outcome Run(const std::vector<std::string>& lines, bool printsAll = false);
// The same, telling after each line everything that could be noticed of it: trace lines of all levels, events, answers,
// in the order in which they came.
using Listener = std::function<void(const std::string& line, const std::vector<std::string>& seen)>;
Outcome Run(const std::vector<std::string>& lines, const Listener& listener);
Outcome Run(const Options& options, const Listener& listener);
// The fewest of a failed walk's lines that still fail so, behind the same event (numbers apart): none of them can be left
// out.
std::vector<std::string> Shrink(const Outcome& failed);
// The text of a fault without its numbers.
std::string Kind(std::string fault);

}  // namespace Walk
