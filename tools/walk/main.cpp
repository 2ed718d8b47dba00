// Long random walks: `zt_walk --actions N --seed S`. Walks of `--length` actions with the seeds S, S + 1, ... until N
// actions are done, or `--seconds` are over; with `--jobs` several at once, each in a process of its own: a walk is the
// process's. The same seed with the same choices walks the same way again; `--print` shows each line and event.
//
// A walk that fails is shown by its seed and its last lines, and then as the fewest lines that still fail so, as `--lines
// FILE` and tests take them. It ends the program with status 1, and so does a run of 100,000 actions and more that has not
// been everywhere often enough.
//
// `--choose` prints, to be recorded, the walks in which at least `--least` things follow upon each other as in none before.
#include "walk/cells.h"
#include "walk/walk.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

namespace {

const char* const Usage =
    "usage: zt_walk [--actions N] [--seed S] [--length N] [--seconds N] [--jobs N] [--version 1|2|3] [--super 0|1]\n"
    "               [--multi 0|1] [--line 0|1] [--print] [--go-on]\n"
    "       zt_walk --lines FILE [--print]\n"
    "       zt_walk --choose [--actions N] [--seed S] [--length N] [--least N]\n"
    "what is not given is chosen by each walk's seed\n";

constexpr long OFTEN = 20, ENOUGH = 100'000;  // times, in a run of so many actions

// Each of these must succeed OFTEN in a run of ENOUGH actions, and each cell of the icon machine be reached.
const char* const Requests[] = {
    "lineAnswer",
    "lineBlindTransfer",
    "lineCompleteTransfer",
    "lineDial",
    "lineCompleteTransfer conference",
    "lineDrop",
    "lineForward 1",
    "lineForward 16",
    "lineForward 256",
    "lineForward 4096",
    "lineForward cancel",
    "lineGenerateDigits",
    "lineHold",
    "lineMakeCall",
    "linePickup",
    "lineRemoveFromConference",
    "lineSetupTransfer",
    "lineUnhold",
    "phoneSetButtonInfo 4",
    "phoneSetButtonInfo 8",
    "phoneSetButtonInfo 32",
    "phoneSetHookSwitch",
};

struct Choices {
    long actions = 10'000, seed = 1, length = 400, seconds = 0, jobs = 1, version = -1, super = -1, multi = -1,
         line = -1, least = 20;
    bool print = false, goOn = false, choose = false;
};

// Everything that is counted, by name. The first letter says what it is: a number of the run, a Request, an Oddity, a
// Cell, a Fault.
using Counts = std::map<std::string, long>;

void Add(Counts& counts, const Walk::Outcome& out) {
    const std::pair<const char*, long> numbers[] = {
        {"walks", 1},
        {"actions", out.Actions},
        {"actions after something wanted as it is", out.Suspected},
        {"requests", out.Requests},
        {"refused", out.Refused},
        {"events", out.Events},
        {"compared", out.Compared},
        {"rests", out.Rests},
        {"boxes", out.Boxes},
        {"opens", out.Reopened},
        {"seconds of the set's life", static_cast<long>(out.Milliseconds / 1000)}};
    for (const auto& [name, number] : numbers)
        counts[std::string("n ") + name] += number;
    for (const auto& [name, count] : out.Asked)
        counts["R " + name] += count;
    for (const auto& [reason, count] : out.Exceptions)
        counts["O " + reason] += count;
}

void Print(Counts& counts, double seconds) {
    const long actions = counts["n actions"];
    std::printf("%ld actions in %.0f s: %.0f a second\n", actions, seconds, static_cast<double>(actions) / seconds);
    for (const auto& [name, count] : counts)
        std::printf("%s%10ld %s\n", name[0] == 'F' ? "FAULT " : "", count, name.c_str() + 2);
}

// Gives whether the run has been everywhere.
bool BeenEverywhere(Counts& counts) {
    std::set<std::string> rare;
    for (const char* request : Requests)
        if (counts[std::string("R ") + request + " ok"] < OFTEN)
            rare.insert(std::string(request) + " succeeded " +
                        std::to_string(counts[std::string("R ") + request + " ok"]) + " times");
    for (const auto& [cell, start] : Walk::Cells)
        if (counts["C " + cell] < OFTEN)
            rare.insert(cell + " came " + std::to_string(counts["C " + cell]) + " times");
    for (const std::string& text : rare)
        std::printf("TOO RARE: %s in %ld actions\n", text.c_str(), counts["n actions"]);
    return rare.empty();
}

void Show(const char* title, const std::vector<std::string>& lines) {
    std::printf("--- %s\n", title);
    for (const std::string& line : lines)
        std::printf("%s\n", line.c_str());
}

Walk::Options OptionsOf(const Choices& choices, long seed) {
    Walk::Options options;
    options.Seed = static_cast<std::uint32_t>(seed);
    options.Actions = static_cast<int>(std::min(choices.length, choices.actions));
    options.Version = static_cast<int>(choices.version >= 0 ? choices.version : 1 + seed % 3);
    options.Super = choices.super >= 0 ? choices.super != 0 : seed / 3 % 2 != 0;
    options.MultiMode = static_cast<int>(choices.multi >= 0 ? choices.multi : seed / 6 % 2);
    options.Misbehaves = choices.line >= 0 ? choices.line != 0 : seed / 12 % 3 == 2;
    options.PrintsAll = choices.print;
    return options;
}

// Walks every `jobs`-th seed, beginning with the `job`-th.
Counts WalkSeeds(const Choices& choices, long job) {
    Counts counts;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(choices.seconds);
    const long share = choices.actions / choices.jobs;
    for (long seed = choices.seed + job; counts["n actions"] < share; seed += choices.jobs) {
        if (choices.seconds != 0 && std::chrono::steady_clock::now() > end)
            break;
        const Walk::Outcome out = Walk::Run(OptionsOf(choices, seed));
        Add(counts, out);
        if (out.Fault.empty())
            continue;
        std::printf("seed %ld fails at action %ld: %s\n", seed, out.Actions, out.Fault.c_str());
        if (++counts["F " + Walk::Kind(out.Fault)] <= 3 && !choices.print) {
            Show("its last lines and events", out.Trail);
            Show("the fewest lines that fail so", Walk::Shrink(out));
            std::printf("---\n");
        }
        std::fflush(stdout);
        if (!choices.goOn)
            break;
    }
    for (const auto& [cell, count] : Walk::Cells)
        counts["C " + cell] += count;
    return counts;
}

// Each job in a process of its own, which writes its counts into a pipe.
Counts WalkSideBySide(const Choices& choices) {
    std::vector<int> pipes;
    for (long job = 0; job < choices.jobs; ++job) {
        int ends[2];
        if (pipe(ends) != 0)
            break;
        std::fflush(stdout);
        if (fork() == 0) {
            close(ends[0]);
            std::ostringstream text;
            for (const auto& [name, count] : WalkSeeds(choices, job))
                text << count << ' ' << name << '\n';
            text << "done\n";
            const std::string all = text.str();
            const bool written = write(ends[1], all.data(), all.size()) == static_cast<ssize_t>(all.size());
            std::exit(written ? 0 : 1);
        }
        close(ends[1]);
        pipes.push_back(ends[0]);
    }
    Counts counts;
    for (const int end : pipes) {
        std::string all;
        char piece[4096];
        for (ssize_t got; (got = read(end, piece, sizeof piece)) > 0;)
            all.append(piece, static_cast<std::size_t>(got));
        close(end);
        std::istringstream lines(all);
        bool done = false;
        for (std::string line; std::getline(lines, line);) {
            const std::size_t blank = line.find(' ');
            done = done || line == "done";
            if (blank != std::string::npos)
                counts[line.substr(blank + 1)] += std::strtol(line.c_str(), nullptr, 10);
        }
        if (!done)
            ++counts["F a job ended before its time"];
    }
    while (wait(nullptr) > 0) {
    }
    return counts;
}

// A thing noticed, without its numbers and bytes and what stands in brackets.
std::string Bare(const std::string& text) {
    static const std::regex numbers("(?:\\b[0-9A-Fa-f]+\\b[ ,:-]*)+"), names("'[^']*'|\"[^\"]*\"|\\(.*\\)");
    return std::regex_replace(std::regex_replace(text, names, ""), numbers, "#");
}

int Choose(const Choices& choices) {
    std::set<std::string> met;
    long lines = 0, actions = 0;
    for (long seed = choices.seed; actions < choices.actions; ++seed) {
        std::set<std::string> fresh;
        std::vector<std::string> walk;
        std::string before;
        std::size_t useful = 0;  // lines, up to the last that brought something
        const Walk::Outcome out =
            Walk::Run(OptionsOf(choices, seed), [&](const std::string& line, const std::vector<std::string>& seen) {
                walk.push_back(line);
                for (const std::string& text : seen) {
                    const std::string bare = Bare(text);
                    std::string pair = std::exchange(before, bare) + "\n" + bare;
                    if (!met.contains(pair) && fresh.insert(std::move(pair)).second)
                        useful = walk.size();
                }
            });
        actions += std::max(1L, out.Actions);
        if (!out.Fault.empty() || static_cast<long>(fresh.size()) < choices.least)
            continue;
        met.merge(fresh);
        for (std::size_t i = 0; i < useful; ++i)
            std::printf("%s%08x %s\n", i == 0 && lines > 0 ? "\n" : "", 0u, walk[i].c_str());
        lines += static_cast<long>(useful);
    }
    std::fprintf(stderr, "%ld lines, %zu pairs\n", lines, met.size());
    return lines > 0 ? 0 : 1;
}

int WalkLines(const char* path, bool print) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    const Walk::Outcome out = Walk::Run(lines, print);
    if (!print)
        Show("its last lines and events", out.Trail);
    std::printf("%s\n", out.Fault.empty() ? "all held" : out.Fault.c_str());
    return lines.empty() || !out.Fault.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    // The provider rewrites its INI file at each open: a disk would take longer than the walk.
    if (std::filesystem::is_directory("/dev/shm"))
        setenv("TMPDIR", "/dev/shm", 0);
    Choices choices;
    const struct {
        const char* name;
        long* value;
    } numbers[] = {{"--actions", &choices.actions}, {"--seed", &choices.seed},   {"--length", &choices.length},
                   {"--seconds", &choices.seconds}, {"--jobs", &choices.jobs},   {"--version", &choices.version},
                   {"--super", &choices.super},     {"--multi", &choices.multi}, {"--line", &choices.line},
                   {"--least", &choices.least}};
    const char* lines = nullptr;
    for (int i = 1; i < argc; ++i) {
        long* into = nullptr;
        for (const auto& number : numbers)
            if (std::strcmp(argv[i], number.name) == 0)
                into = number.value;
        if (std::strcmp(argv[i], "--print") == 0) {
            choices.print = true;
        } else if (std::strcmp(argv[i], "--choose") == 0) {
            choices.choose = true;
        } else if (std::strcmp(argv[i], "--go-on") == 0) {
            choices.goOn = true;
        } else if (std::strcmp(argv[i], "--lines") == 0 && i + 1 < argc) {
            lines = argv[++i];
        } else if (into == nullptr || ++i == argc) {
            std::fputs(Usage, stderr);
            return 2;
        } else {
            *into = std::strtol(argv[i], nullptr, 10);
        }
    }
    if (lines != nullptr)
        return WalkLines(lines, choices.print);
    if (choices.choose)
        return Choose(choices);
    choices.jobs = std::max(choices.jobs, 1L);
    const auto start = std::chrono::steady_clock::now();
    Counts counts = choices.jobs == 1 ? WalkSeeds(choices, 0) : WalkSideBySide(choices);
    Print(counts, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    const bool faulty =
        std::any_of(counts.begin(), counts.end(), [](const auto& count) { return count.first[0] == 'F'; });
    const bool everywhere = counts["n actions"] < ENOUGH || faulty || BeenEverywhere(counts);
    return !faulty && everywhere ? 0 : 1;
}
