#include "demo/interactive.h"

#include "demo/screen.h"
#include "equipment/script.h"

#include <cstdio>

#include <poll.h>
#include <unistd.h>

namespace Demo {

namespace {

// Whole lines typed since the last call, without waiting; "quit" once, at the end of the input, which sets `ended`.
std::vector<std::string> TypedLines(bool& ended) {
    static std::string partial;
    std::vector<std::string> lines;
    if (ended)
        return lines;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, 0) <= 0)
        return lines;
    char buffer[1024];
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        ended = true;
        return {"quit"};
    }
    partial.append(buffer, static_cast<std::size_t>(count));
    for (std::size_t end; (end = partial.find('\n')) != std::string::npos; partial.erase(0, end + 1))
        lines.push_back(partial.substr(0, end));
    return lines;
}

// The console, with the set's commands behind "set ".
int LineByLine(Stage& stage) {
    std::puts(
        "Lines go to the host's console (help lists its commands; begin with start). A line that begins with \"set \"\n"
        "goes to the set, at once (set help lists them, set show draws it). quit ends.");
    bool typed = false;
    while (!StopAsked()) {
        // A closed input is always ready: it must not be waited for any more.
        if (typed)
            stage.Loop.Step(50, {stage.Host.Output()});
        else
            stage.Loop.Step(50, {stage.Host.Output(), STDIN_FILENO});
        for (const std::string& line : stage.Host.Lines())
            std::printf("  %s\n", line.c_str());
        std::fflush(stdout);
        if (stage.Host.Ended())
            return stage.Host.Finish();
        for (const std::string& line : TypedLines(typed)) {
            if (line != "set" && !line.starts_with("set ")) {
                stage.Host.Send(line);
                continue;
            }
            const std::string answer =
                Equipment::Execute(stage.Machine, line == "set" ? "help" : line.substr(4), Equipment::Loop::Now());
            if (!answer.empty())
                std::printf("%s\n", answer.c_str());
        }
    }
    return stage.End();
}

}  // namespace

int Interactive(Stage& stage) {
    if (isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0)
        if (const std::optional<int> status = OnScreen(stage))
            return *status;
    return LineByLine(stage);
}

}  // namespace Demo
