// What ./demo runs: the simulated set on a pseudo-terminal at true line speed, the telephony service's side as a child
// process beside it, and scenes played between them. Status 0 only when every scene brought exactly its events.
#include "demo/child.h"
#include "equipment/equipment.h"
#include "equipment/pty.h"
#include "equipment/script.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include <poll.h>
#include <unistd.h>

namespace {

namespace Eq = Equipment;

constexpr int LEFT_WIDTH = 46;            // the set's column
constexpr std::size_t RIGHT_WIDTH = 62;   // the events'
constexpr std::uint32_t SETTLE_MS = 700;  // events that should not come get this long to show up

struct Step {
    const char* title;
    std::function<std::string(Eq::Machine&)> action;  // gives "" or why it cannot be done
    std::vector<std::string> expected;                // events, in order; a box's text is compared from its start
    std::uint32_t limitMs = 6000;
};

struct Stage {
    Eq::Machine Machine;
    Eq::PtyLoop Loop{Machine};
    Child Host;
    std::string Root;
    bool Colours = isatty(STDOUT_FILENO) != 0;

    ~Stage() {
        std::error_code ignored;
        if (!Root.empty())
            std::filesystem::remove_all(Root, ignored);
    }
    std::string Colour(const char* code, const std::string& text) const {
        return Colours ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
    }
};

// A length in columns: continuation bytes of UTF-8 take none.
std::size_t Columns(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Padded(std::string text, std::size_t width) {
    const std::size_t columns = Columns(text);
    if (columns < width)
        text.append(width - columns, ' ');
    return text;
}

// The set as a person sees it: display, keys, soft keys.
std::vector<std::string> SetRows(const Eq::Machine& machine) {
    const std::string edge(Eq::DisplayWidth + 2, '-');
    std::vector<std::string> rows = {"+" + edge + "+"};
    for (int line = 0; line < 2; ++line)
        rows.push_back("| " + Padded(Eq::DisplayText(machine, line), Eq::DisplayWidth) + " |");
    rows.push_back("+" + edge + "+");
    std::string keys;
    for (const Eq::KeyConfiguration& key : machine.config.keys)
        keys += (keys.empty() ? " " : "   ") + std::to_string(key.number) + " " +
                Eq::IconName(machine.set.icons[static_cast<std::size_t>(key.number)]);
    rows.push_back(keys);
    return rows;
}

std::string Cut(const std::string& text, std::size_t width) {
    return text.size() <= width ? text : text.substr(0, width - 3) + "...";
}

void PrintSideBySide(const Stage& stage, const std::vector<std::string>& right) {
    const std::vector<std::string> left = SetRows(stage.Machine);
    for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
        const std::string set = i < left.size() ? left[i] : std::string();
        const std::string event = i < right.size() ? Cut(right[i], RIGHT_WIDTH) : std::string();
        if (i < right.size())
            std::printf("  %s  %s\n", Padded(set, LEFT_WIDTH).c_str(), event.c_str());
        else
            std::printf("  %s\n", set.c_str());
    }
    std::fflush(stdout);
}

bool IsEvent(const std::string& line) {
    return line.starts_with("LINE_") || line.starts_with("PHONE_") || line.starts_with("completion") ||
           line.starts_with("[box]");
}

bool Matches(const std::string& seen, const std::string& expected) {
    return expected.starts_with("[box]") ? seen.starts_with(expected) : seen == expected;
}

// Lets the line run for so long, or until `done`; gives the events that came.
std::vector<std::string> Run(Stage& stage, std::uint32_t milliseconds, std::vector<std::string> events,
                             const std::function<bool(const std::vector<std::string>&)>& done) {
    const std::uint32_t start = Eq::PtyLoop::Now();
    for (;;) {
        for (const std::string& line : stage.Host.Lines())
            if (IsEvent(line))
                events.push_back(line);
        const std::uint32_t passed = Eq::PtyLoop::Now() - start;
        if (passed >= milliseconds || done(events) || stage.Host.Ended())
            return events;
        stage.Loop.Step(static_cast<int>(std::min(50u, milliseconds - passed)), {stage.Host.Output()});
    }
}

bool Play(Stage& stage, const Step& step) {
    std::printf("\n%s\n", stage.Colour("1", std::string("> ") + step.title).c_str());
    const std::string refused = step.action(stage.Machine);
    if (!refused.empty()) {
        std::printf("  the set refuses: %s\n", refused.c_str());
        return false;
    }
    const auto all = [&](const std::vector<std::string>& events) { return events.size() >= step.expected.size(); };
    const auto never = [](const std::vector<std::string>&) { return false; };
    std::vector<std::string> events = Run(stage, step.limitMs, {}, all);
    events = Run(stage, SETTLE_MS, std::move(events), never);
    PrintSideBySide(stage, events);
    if (events.size() == step.expected.size() &&
        std::equal(events.begin(), events.end(), step.expected.begin(), Matches))
        return true;
    std::printf("  %s\n", stage.Colour("31", "expected instead:").c_str());
    for (const std::string& event : step.expected)
        std::printf("    %s\n", event.c_str());
    return false;
}

// --- the scenes ----------------------------------------------------------------------------------------------------------

const std::vector<Step>& Scenes() {
    static const std::vector<Step> steps = {
        {"start-up: the port opens, the set's configuration is read, the line goes in service",
         [](Eq::Machine&) { return std::string(); },
         {"LINE_LINEDEVSTATE CONNECTED|INSERVICE"},
         15'000},

        {"a call comes in from 01 45 67 89 01",
         [](auto& m) { return Eq::Incoming(m, 1, "0145678901", ""); },
         {"LINE_NEWCALL call 0", "LINE_CALLSTATE call 0 OFFERING", "LINE_CALLINFO call 0 CALLERID|CALLEDID"}},
        {"the user answers it", [](auto& m) { return Eq::Answer(m, 1); }, {"LINE_CALLSTATE call 0 CONNECTED"}},
        {"and hangs up",
         [](auto& m) { return Eq::HangUpKey(m, 1); },
         {"LINE_CALLSTATE call 0 DISCONNECTED mode NORMAL", "LINE_CALLSTATE call 0 IDLE"}},

        {"a call comes in that shows a name",
         [](auto& m) { return Eq::Incoming(m, 2, "", "Hélène DUPRÉ"); },
         {"LINE_NEWCALL call 0", "LINE_CALLSTATE call 0 OFFERING", "LINE_CALLINFO call 0 CALLERID|CALLEDID"}},
        {"its caller gives up",
         [](auto& m) { return Eq::FarHangsUp(m, 2); },
         {"LINE_CALLSTATE call 0 DISCONNECTED mode NORMAL", "LINE_CALLSTATE call 0 IDLE"}},

        {"a call comes in whose caller never shows: it is offered after a second",
         [](auto& m) { return Eq::Incoming(m, 1, "4720", "", Eq::CallerShown::Never); },
         {"LINE_NEWCALL call 0", "LINE_CALLSTATE call 0 OFFERING"}},
        {"its caller gives up",
         [](auto& m) { return Eq::FarHangsUp(m, 1); },
         {"LINE_CALLSTATE call 0 DISCONNECTED mode NORMAL", "LINE_CALLSTATE call 0 IDLE"}},

        {"the user takes a line",
         [](auto& m) { return Eq::Seize(m, 1); },
         {"LINE_NEWCALL call 0", "LINE_CALLSTATE call 0 DIALTONE"}},
        {"and dials 4720",
         [](auto& m) { return Eq::DialDigits(m, "4720"); },
         {"LINE_CALLSTATE call 0 DIALING", "LINE_CALLSTATE call 0 PROCEEDING", "LINE_CALLSTATE call 0 RINGBACK"}},
        {"the called set rings",
         [](auto& m) { return Eq::FarRings(m, "MARTIN"); },
         {"LINE_CALLINFO call 0 CALLEDID", "LINE_CALLINFO call 0 CALLEDID"}},  // the number, then the name
        {"and is answered",
         [](auto& m) { return Eq::FarAnswers(m, "MARTIN"); },
         {"LINE_CALLSTATE call 0 CONNECTED", "LINE_CALLINFO call 0 CALLEDID"}},
        {"the user puts the call on hold", [](auto& m) { return Eq::Hold(m, 1); }, {"LINE_CALLSTATE call 0 ONHOLD"}},
        {"and takes it back",
         [](auto& m) { return Eq::Retrieve(m, 1); },
         {"LINE_CALLSTATE call 0 CONNECTED", "LINE_CALLINFO call 0 CONNECTEDID"}},

        {"a second call, on another key",
         [](auto& m) { return Eq::SecondCallOn(m, 2); },
         {"LINE_CALLSTATE call 0 ONHOLD", "LINE_NEWCALL call 1", "LINE_CALLSTATE call 1 DIALTONE"}},
        {"to 4730",
         [](auto& m) { return Eq::DialDigits(m, "4730"); },
         {"LINE_CALLSTATE call 1 DIALING", "LINE_CALLSTATE call 1 PROCEEDING", "LINE_CALLSTATE call 1 RINGBACK"}},
        {"which is answered",
         [](auto& m) { return Eq::FarAnswers(m, "DURAND"); },
         {"LINE_CALLINFO call 1 CALLEDID", "LINE_CALLINFO call 1 CALLEDID", "LINE_CALLSTATE call 1 CONNECTED",
          "LINE_CALLINFO call 1 CALLEDID"}},
        {"the user swaps between the two",
         [](auto& m) { return Eq::SwapCalls(m); },
         {"LINE_CALLSTATE call 1 ONHOLD", "LINE_CALLSTATE call 0 CONNECTED"}},
        {"hangs up",
         [](auto& m) { return Eq::HangUpKey(m, 1); },
         {"LINE_CALLSTATE call 0 DISCONNECTED mode NORMAL", "LINE_CALLSTATE call 0 IDLE"}},
        {"and the other party goes too",
         [](auto& m) { return Eq::FarHangsUp(m, 2); },
         {"LINE_CALLSTATE call 1 DISCONNECTED mode NORMAL", "LINE_CALLSTATE call 1 IDLE"}},

        {"the cable comes off: 19 seconds of silence",
         [](Eq::Machine& m) {
             m.faults.silent = true;
             return std::string();
         },
         {"LINE_LINEDEVSTATE DISCONNECTED|OUTOFSERVICE",
          "[box] Corvane 6200 SP Error: Hardware Problem - Please check:", "LINE_CLOSE"},
         30'000},
        {"the cable is back: in service again",
         [](Eq::Machine& m) {
             m.faults.silent = false;
             return std::string();
         },
         {"LINE_LINEDEVSTATE CONNECTED|INSERVICE"},
         40'000},
    };
    return steps;
}

// --- set-up --------------------------------------------------------------------------------------------------------------

std::string PrepareRoot() {
    std::string root = (std::filesystem::temp_directory_path() / "zt_demo_XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr)
        return {};
    std::ofstream registry(root + "/registry");
    registry << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\TSpi_6200\\Provider]\nPort=\"COM1\"\n\n"
             << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\TSpi_6200\\Debug_Mode]\nDebugOutput=\"127\"\n";
    return root;
}

std::string StartStage(Stage& stage, const std::string& directory) {
    stage.Machine.config.omna = 1;
    stage.Machine.config.entriesPerMessage = 4;
    if (const std::string error = stage.Loop.Open(); !error.empty())
        return error;
    stage.Root = PrepareRoot();
    if (stage.Root.empty())
        return "no temporary directory";
    return stage.Host.Start(directory + "tsphost",
                            {"--no-time", "--com1", stage.Loop.Path(), "--root", stage.Root, "--registry",
                             stage.Root + "/registry", "--provider", directory + "zt_6232.tsp"},
                            {"ZT_BOX_MS=1500"});
}

int PlayAll(Stage& stage) {
    std::puts("A simulated set on a pseudo-terminal at 9,600 baud; TAPI's events on the right.");
    stage.Host.Send("start");
    int failed = 0;
    for (const Step& step : Scenes())
        if (!Play(stage, step))
            ++failed;
    stage.Host.Send("close");
    stage.Host.Send("quit");
    Run(stage, 3000, {}, [](const auto&) { return false; });
    const int status = stage.Host.Finish();
    std::printf("\n%zu steps played, %d without exactly their events; the host ended with status %d.\n",
                Scenes().size(), failed, status);
    return failed == 0 && status == 0 ? 0 : 1;
}

// Whole lines typed since the last call, without waiting; "quit" at the end of the input.
std::vector<std::string> TypedLines() {
    static std::string partial;
    std::vector<std::string> lines;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, 0) <= 0)
        return lines;
    char buffer[1024];
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0)
        return {"quit"};
    partial.append(buffer, static_cast<std::size_t>(count));
    for (std::size_t end; (end = partial.find('\n')) != std::string::npos; partial.erase(0, end + 1))
        lines.push_back(partial.substr(0, end));
    return lines;
}

// The console, with the set's commands behind "set ".
int Interactive(Stage& stage) {
    std::puts(
        "Lines go to the host's console (help lists its commands; begin with start). A line that begins with \"set \"\n"
        "goes to the set (set help lists them, set show draws it). quit ends.");
    for (;;) {
        stage.Loop.Step(50, {stage.Host.Output(), STDIN_FILENO});
        for (const std::string& line : stage.Host.Lines())
            std::printf("  %s\n", line.c_str());
        std::fflush(stdout);
        if (stage.Host.Ended())
            return stage.Host.Finish();
        for (const std::string& line : TypedLines()) {
            if (!line.starts_with("set ")) {
                stage.Host.Send(line);
                continue;
            }
            const std::string answer = Eq::Execute(stage.Machine, line.substr(4), Eq::PtyLoop::Now());
            if (!answer.empty())
                std::printf("%s\n", answer.c_str());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string program = argv[0];
    const std::size_t slash = program.rfind('/');
    const std::string directory = slash == std::string::npos ? "./" : program.substr(0, slash + 1);
    const bool interactive = argc > 1 && std::strcmp(argv[1], "--interactive") == 0;
    if (argc > 1 && !interactive) {
        std::puts("zt_demo [--interactive]: plays calls between a simulated set and the telephony service's side");
        return std::strcmp(argv[1], "--help") == 0 ? 0 : 2;
    }
    Stage stage;
    if (const std::string error = StartStage(stage, directory); !error.empty()) {
        std::fprintf(stderr, "zt_demo: %s\n", error.c_str());
        return 2;
    }
    return interactive ? Interactive(stage) : PlayAll(stage);
}
