// A whole trace as what happened: who said what to whom and when, what went wrong, the calls from their beginning to their
// end, and what the set showed. What --html draws and --summary prints.
#pragma once

#include "zttrace/decode.h"
#include "zttrace/line.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TraceReader {

// From left to right.
enum class Lane : std::uint8_t { Application, Provider, Equipment, Set };

// One thing that somebody told somebody, in words.
struct StoryStep {
    std::size_t line;  // index in Story::lines
    Lane from, to;     // equal: something that the provider did
    std::string words;
    std::vector<int> crefs, keys;
};

// Something that went wrong, or may have. Equal ones that follow one another are one, counted.
struct Trouble {
    std::size_t line, lastLine;
    int count;
    std::string what;
    std::string advice;  // what to look at; may be empty
};

struct StoryCall {
    int cref;
    struct Change {
        std::size_t line;
        std::string state;  // as in LINECALLSTATE_
    };
    std::vector<Change> states;
    std::vector<std::string> parties;  // what the PBX told of them, each once
    bool over = false;
};

// What the set shows changes. `what` names a field of the set's picture.
struct SetChange {
    std::size_t line;
    enum What : std::uint8_t { Line0, Line1, Icon, Lamp, Label, Module, Number } what;
    int number;        // key, lamp, or address of a module; 0 for the others
    int value;         // of an icon or a lamp as on the wire; where a module's keys begin
    std::string text;  // of a line, a label, the set's number
    std::string kind;  // of a labelled key: multi, supervision, boss, secretary, overflow
};

struct Story {
    struct TraceLine {
        std::string text;     // as in the file, in UTF-8
        std::int64_t ms;      // since the first line; over restarts as the headers say
        std::int32_t dayMs;   // time of day; -1 where no header told it
        std::uint8_t levels;  // all that it may have been written at; 0 for a text that is not known
    };
    std::vector<TraceLine> lines;
    std::vector<StoryStep> steps;
    std::vector<Trouble> troubles;
    std::vector<StoryCall> calls;
    std::vector<SetChange> changes;
    std::vector<std::string> starts;  // each start of a provider: "25/11/26 - 09:30:01"
    std::optional<int> mask;          // that the trace was written with, where it says so
    int cutDumps = 0;

    // What the chart lacks because the trace was written without a level, and what to set.
    std::vector<std::string> Missing() const;
};

// Takes the lines of one trace in order.
class StoryTeller {
public:
    void Take(const std::string& raw);
    // To be called once, behind the last line.
    Story Finish();

private:
    Story story;
    Decoder decoder;
    Equipment::Reassembly labels;
    std::array<std::string, 2> display{std::string(40, ' '), std::string(40, ' ')};  // in the set's own characters
    std::array<std::size_t, 2> cursor{};
    std::map<int, int> moduleOffset;  // by address
    std::map<int, std::size_t> open;  // cref -> index in calls
    std::string lastParty[3];         // incoming, outgoing, connected: words of the last such message
    std::string lastSent;             // the frame written last, until it is acknowledged
    bool announced = false;
    std::uint32_t stamp = 0;
    std::optional<std::int64_t> headerMs;

    std::size_t Here() const { return story.lines.size() - 1; }
    void Step(Lane from, Lane to, std::string words, std::vector<int> crefs = {}, std::vector<int> keys = {});
    void Note(std::string what, std::string advice);
    bool TakeHeader(const Line& line);
    void TakeClock(const Line& line);
    void TakeDump(const Line& line, const Dump& dump);
    void TakeText(const Line& line);
    void TakeEvent(int cref, unsigned message, unsigned value, const std::string& words);
    StoryCall& CallOf(int cref, bool begins);
    void Watch(ByteSpan item, int depth);
    void WatchCommand(ByteSpan command, std::optional<int> module, int depth);
    void WatchMessage(ByteSpan message);
    void WriteDisplay(int line, ByteSpan command);
    void Changed(SetChange::What what, int number, int value, std::string text = "", std::string kind = "");
};

// "3 boxes, 1 lost contact, ..." and each trouble with its time: a text for a mail.
std::string Summary(const Story& story);
// "09:30:01.250", or seconds since the beginning where the time of day is not known.
std::string TimeText(const Story::TraceLine& line);

}  // namespace TraceReader
