#include "demo/play.h"

#include "demo/scenes.h"
#include "demo/text.h"
#include "equipment/script.h"

#include <algorithm>
#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

namespace Demo {

namespace {

namespace Eq = Equipment;

constexpr std::size_t LEFT_WIDTH = 46;   // the set's column
constexpr std::size_t RIGHT_WIDTH = 72;  // the events': a display line with its name in front
constexpr std::size_t RIGHT_LEAST = 50;  // where the terminal has no more; below that they stand under the set
constexpr std::size_t MARGINS = 4;
// A step is over when its events are there and nothing has come for so long: more than three ticks of the provider.
// What comes later than that counts against the next step.
constexpr std::uint32_t SETTLE_MS = 350;
constexpr std::uint8_t LAST_QUESTION = 20;  // of the configuration dialogue: service codes

struct Took {
    std::vector<std::string> events;    // what is compared
    std::vector<std::string> lines;     // all that the host said
    std::string request = "none made";  // number of the step's request
};

bool Colours() {
    static const bool colours = isatty(STDOUT_FILENO) != 0;
    return colours;
}

std::string Colour(const char* code, const std::string& text) {
    return Colours() ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
}

// What is left for the events beside the set; 0 = they do not fit there.
std::size_t RightWidth() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return RIGHT_WIDTH;
    const std::size_t rest = size.ws_col - std::min<std::size_t>(size.ws_col, LEFT_WIDTH + MARGINS);
    return rest < RIGHT_LEAST ? 0 : std::min(rest, RIGHT_WIDTH);
}

// The set as a person sees it: display, keys, and what else there is to know.
std::vector<std::string> SetRows(const Eq::Machine& machine) {
    const std::string edge = "+" + std::string(Eq::DisplayWidth + 2, '-') + "+";
    std::vector<std::string> rows = {edge};
    for (int line = 0; line < 2; ++line)
        rows.push_back("| " + Padded(Eq::DisplayText(machine, line), Eq::DisplayWidth) + " |");
    rows.push_back(edge);
    std::string keys;
    for (const Eq::KeyConfiguration& key : machine.config.keys)
        keys += (keys.empty() ? " " : "   ") + std::to_string(key.number) + " " +
                Eq::IconName(machine.set.icons[static_cast<std::size_t>(key.number)]);
    rows.push_back(keys);
    // Once the PBX has forwarded calls, it is worth saying when it no longer does.
    static bool everForwarded = false;
    const bool forwarded = machine.config.Forwarded();
    everForwarded = everForwarded || forwarded;
    if (everForwarded)
        rows.push_back(forwarded ? " forwarded to " + machine.config.forwardDestination : " not forwarded");
    const auto& calls = machine.set.calls;
    if (std::any_of(calls.begin(), calls.end(), [](const Eq::SetCall& call) { return call.tones; }))
        rows.push_back(" tones sent: " + machine.set.tones);
    return rows;
}

void PrintStep(const Eq::Machine& machine, const std::vector<std::string>& said) {
    const std::size_t width = RightWidth();
    const std::vector<std::string> left = SetRows(machine);
    std::vector<std::string> right;
    for (const std::string& line : said)
        for (const std::string& part : Wrapped(line, width != 0 ? width : RIGHT_WIDTH))
            right.push_back(IsEvent(line) ? part : Colour("2", part));
    if (width == 0) {
        for (const std::string& row : left)
            std::printf("  %s\n", row.c_str());
        for (const std::string& line : right)
            std::printf("      %s\n", line.c_str());
    } else {
        for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
            const std::string set = i < left.size() ? left[i] : std::string();
            if (i < right.size())
                std::printf("  %s  %s\n", Padded(set, LEFT_WIDTH).c_str(), right[i].c_str());
            else
                std::printf("  %s\n", set.c_str());
        }
    }
    std::fflush(stdout);
}

void Take(const Step& step, const std::string& line, Took& took) {
    took.lines.push_back(line);
    if (IsEvent(line) || step.answers)
        took.events.push_back(line);
    if (const std::size_t at = line.find(": request "); line.starts_with("TSPI_") && at != std::string::npos)
        took.request = line.substr(at + 10);
}

bool Matches(const std::string& seen, std::string expected, const std::string& request) {
    if (const std::size_t at = expected.find('#'); at != std::string::npos)
        expected.replace(at, 1, request);
    return expected.starts_with("[box]") ? seen.starts_with(expected) : seen == expected;
}

bool Matches(const Took& took, const Step& step) {
    return std::equal(took.events.begin(), took.events.end(), step.expected.begin(), step.expected.end(),
                      [&](const auto& seen, const auto& expected) { return Matches(seen, expected, took.request); });
}

bool Shows(const Eq::Machine& machine, const Step& step) {
    std::string all;
    for (const std::string& row : SetRows(machine))
        all += row + "\n";
    return all.find(step.shows) != std::string::npos;
}

// The PBX has been asked the last question of the dialogue since `from`, and its answer has arrived.
bool Configured(const Eq::Machine& machine, std::size_t from) {
    const std::vector<Eq::OmnaMessage>& requests = machine.pbx.requests;
    return requests.size() > from && requests.back().code == LAST_QUESTION && machine.card.waiting.empty() &&
           machine.card.flight.empty();
}

// Lets the line run until the step is over, or its time.
Took Await(Stage& stage, const Step& step, std::size_t requestsBefore) {
    Took took;
    const std::uint32_t start = Eq::Loop::Now();
    std::uint32_t lastNews = start;
    int framesBefore = -1;
    for (;;) {
        const std::uint32_t now = Eq::Loop::Now();
        const int frames = stage.Machine.card.framesIn + stage.Machine.card.framesOut;
        bool news = frames != framesBefore;
        framesBefore = frames;
        for (const std::string& line : stage.Host.Lines()) {
            Take(step, line, took);
            news = true;
        }
        if (news)
            lastNews = now;
        const bool all = took.events.size() >= step.expected.size() && Shows(stage.Machine, step) &&
                         (!step.configures || Configured(stage.Machine, requestsBefore));
        if ((all && now - lastNews >= SETTLE_MS) || now - start >= step.limitMs || stage.Host.Ended() || StopAsked())
            return took;
        stage.Loop.Step(50, {stage.Host.Output()});
    }
}

// "" when the step brought what it should; else what is wrong.
std::string Play(Stage& stage, const Step& step) {
    std::printf("\n%s\n", Colour("1", std::string("> ") + step.title).c_str());
    if (*step.set != 0)
        std::printf("%s\n", Colour("2", std::string("  set: ") + step.set).c_str());
    if (*step.app != 0)
        std::printf("%s\n", Colour("2", std::string("  application: ") + step.app).c_str());
    std::fflush(stdout);
    const std::size_t requests = stage.Machine.pbx.requests.size();
    if (*step.app != 0)
        stage.Host.Send(step.app);
    if (const std::string answer = Eq::Execute(stage.Machine, step.set, Eq::Loop::Now()); Eq::IsError(answer))
        return "  the set refuses: " + answer + "\n";
    const Took took = Await(stage, step, requests);
    PrintStep(stage.Machine, took.lines);
    std::string wrong;
    if (!Matches(took, step)) {
        wrong += "  expected instead:\n";
        for (const std::string& event : step.expected)
            wrong += "    " + event + "\n";
        if (step.expected.empty())
            wrong += "    nothing\n";
    }
    if (!Shows(stage.Machine, step))
        wrong += std::string("  the set should show \"") + step.shows + "\"\n";
    if (step.configures && !Configured(stage.Machine, requests))
        wrong += "  the set's configuration was not read to its end\n";
    return wrong;
}

}  // namespace

int PlayAll(Stage& stage) {
    std::puts(
        "A simulated set on a pseudo-terminal at 9,600 baud on the left; TAPI's answers and events on the right.");
    const std::uint32_t start = Eq::Loop::Now();
    const std::span<const Scene> scenes = Scenes();
    int played = 0, failed = 0;
    for (std::size_t i = 0; i < scenes.size() && !StopAsked() && !stage.Host.Ended(); ++i) {
        const std::uint32_t seconds = (Eq::Loop::Now() - start) / 1000;
        std::printf("\n%s\n", Colour("1;7", " " + std::to_string(i + 1) + "/" + std::to_string(scenes.size()) + "  " +
                                                scenes[i].title + "  (" + std::to_string(seconds) + " s) ")
                                  .c_str());
        for (const Step& step : scenes[i].steps) {
            if (StopAsked() || stage.Host.Ended())
                break;
            ++played;
            if (const std::string wrong = Play(stage, step); !wrong.empty()) {
                std::printf("%s", Colour("31", wrong).c_str());
                ++failed;
            }
        }
    }
    const bool whole = !StopAsked() && !stage.Host.Ended();
    const int status = stage.End();
    std::printf("\n%d steps in %u seconds, ", played, (Eq::Loop::Now() - start) / 1000);
    if (failed == 0)
        std::printf("each with exactly its events; ");
    else
        std::printf("%d of them without exactly their events; ", failed);
    std::printf("the host ended with status %d.\n", status);
    if (!whole)
        std::puts("Ended before all steps were played.");
    return whole && failed == 0 && status == 0 ? 0 : 1;
}

void PrintScenes() {
    for (const Scene& scene : Scenes()) {
        std::printf("scene\t%s\n", scene.title);
        for (const Step& step : scene.steps) {
            std::string shows = step.shows;
            for (std::size_t at = 0; (at = shows.find('\n', at)) != std::string::npos;)
                shows.replace(at, 1, "\\n");
            std::printf("step\t%s\t%s\t%s\t%s\t%u\t%d\t%d\n", step.title, step.set, step.app, shows.c_str(),
                        step.limitMs, step.configures ? 1 : 0, step.answers ? 1 : 0);
            for (const std::string& event : step.expected)
                std::printf("expect\t%s\n", event.c_str());
        }
    }
}

}  // namespace Demo
