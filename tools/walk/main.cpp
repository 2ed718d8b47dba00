// Long random walks: `zt_walk --actions N --seed S`. Walks of `--length` actions with the seeds S, S + 1, ... until N
// actions are done; a walk that fails is shown by its seed and its last actions, and ends the program with status 1.
// The same seed with the same choices walks the same way again; `--print` shows each action and event.
#include "walk/walk.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

const char* const Usage =
    "usage: zt_walk [--actions N] [--seed S] [--length N] [--version 1|2|3] [--super 0|1] [--multi 0|1] "
    "[--line 0|1] [--print] [--go-on]\n"
    "what is not given is chosen by each walk's seed\n";

struct Totals {
    long walks = 0, actions = 0, requests = 0, refused = 0, events = 0, compared = 0, rests = 0, boxes = 0,
         reopened = 0;
    double hours = 0;
    std::map<std::string, long> asked, exceptions, faults;
};

void Add(Totals& totals, const Walk::Outcome& out) {
    ++totals.walks;
    totals.actions += out.Actions;
    totals.requests += out.Requests;
    totals.refused += out.Refused;
    totals.events += out.Events;
    totals.compared += out.Compared;
    totals.rests += out.Rests;
    totals.boxes += out.Boxes;
    totals.reopened += out.Reopened;
    totals.hours += static_cast<double>(out.Milliseconds) / 3'600'000;
    for (const auto& [name, count] : out.Asked)
        totals.asked[name] += count;
    for (const auto& [reason, count] : out.Exceptions)
        totals.exceptions[reason] += count;
}

void Print(const Totals& totals, double seconds) {
    std::printf("%ld actions in %ld walks, %.0f s: %.0f a second; %.0f hours of the set's life\n", totals.actions,
                totals.walks, seconds, static_cast<double>(totals.actions) / seconds, totals.hours);
    std::printf("%ld requests, %ld of them refused; %ld events; %ld comparisons at rest; %ld times all calls ended; "
                "%ld boxes; %ld opens\n",
                totals.requests, totals.refused, totals.events, totals.compared, totals.rests, totals.boxes,
                totals.reopened);
    for (const auto& [name, count] : totals.asked)
        std::printf("  %8ld %s\n", count, name.c_str());
    for (const auto& [reason, count] : totals.exceptions)
        std::printf("  %8ld x %s\n", count, reason.c_str());
    for (const auto& [fault, count] : totals.faults)
        std::printf("FAULT %5ld x %s\n", count, fault.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    // The provider rewrites its INI file at each open: a disk would take longer than the walk.
    if (std::filesystem::is_directory("/dev/shm"))
        setenv("TMPDIR", "/dev/shm", 0);
    long actions = 10'000, seed = 1, length = 400, version = -1, super = -1, multi = -1, line = -1;
    bool print = false, goOn = false;
    const struct {
        const char* name;
        long* value;
    } numbers[] = {{"--actions", &actions}, {"--seed", &seed},   {"--length", &length}, {"--version", &version},
                   {"--super", &super},     {"--multi", &multi}, {"--line", &line}};
    for (int i = 1; i < argc; ++i) {
        long* into = nullptr;
        for (const auto& number : numbers)
            if (std::strcmp(argv[i], number.name) == 0)
                into = number.value;
        if (std::strcmp(argv[i], "--print") == 0) {
            print = true;
        } else if (std::strcmp(argv[i], "--go-on") == 0) {
            goOn = true;
        } else if (into == nullptr || ++i == argc) {
            std::fputs(Usage, stderr);
            return 2;
        } else {
            *into = std::strtol(argv[i], nullptr, 10);
        }
    }
    Totals totals;
    const auto start = std::chrono::steady_clock::now();
    for (; totals.actions < actions; ++seed) {
        Walk::Options options;
        options.Seed = static_cast<std::uint32_t>(seed);
        options.Actions = static_cast<int>(std::min(length, actions));
        options.Version = static_cast<int>(version >= 0 ? version : 1 + seed % 3);
        options.Super = super >= 0 ? super != 0 : seed / 3 % 2 != 0;
        options.MultiMode = static_cast<int>(multi >= 0 ? multi : seed / 6 % 2);
        options.Misbehaves = line >= 0 ? line != 0 : seed / 12 % 3 == 2;
        options.PrintsAll = print;
        const Walk::Outcome out = Walk::Run(options);
        Add(totals, out);
        if (out.Fault.empty())
            continue;
        std::string words = out.Fault;
        for (char& c : words)
            c = c >= '0' && c <= '9' ? '#' : c;
        if (++totals.faults[words] == 1 && !print) {
            std::printf("--- seed %ld: version %d, super %d, multi %d, line %d\n", seed, options.Version, options.Super,
                        options.MultiMode, options.Misbehaves);
            for (const std::string& text : out.Trail)
                std::printf("%s\n", text.c_str());
        }
        std::printf("seed %ld fails at action %ld: %s\n", seed, out.Actions, out.Fault.c_str());
        if (!goOn)
            break;
    }
    Print(totals, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    return totals.faults.empty() ? 0 : 1;
}
