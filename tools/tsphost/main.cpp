// tsphost: loads a telephony service provider as the telephony service does, prints every event by name, and has a
// console to call its entry points.
#include "tsphost/commands.h"

#include <readline/history.h>
#include <readline/readline.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include <unistd.h>

using namespace Tsphost;

namespace {

constexpr const char* USAGE = R"(tsphost [options]: the telephony service's side of zt_6232.tsp

  --provider PATH   the provider to load (default: zt_6232.tsp beside this program)
  --com1 PATH       terminal device behind COM1
  --root DIR        directory that holds drive C: (trace, INI file)
  --registry FILE   file that keeps the registry
  --line-base N     first line device identifier (default 0)
  --script FILE     commands from a file instead of standard input
  --no-time         no time in front of events
  --help            this text

Commands come from standard input; on a terminal with line editing and history. "help" lists them.
Ends with status 0 only when every command succeeded.
)";

// The tab key completes names of commands, and no file names.
char* NextName(const char* start, int again) {
    static std::size_t at = 0;
    if (again == 0)
        at = 0;
    const std::span<const Command> all = Commands();
    while (at < all.size())
        if (const char* name = all[at++].name; std::string_view(name).starts_with(start))
            return strdup(name);
    return nullptr;
}

char** Complete(const char* start, int, int) {
    rl_attempted_completion_over = 1;
    return rl_completion_matches(start, NextName);
}

// Readline calls this several times a second while the user types: events that came meanwhile go above the line.
int ShowEvents() {
    if (PrintKept("\r\033[K")) {
        rl_on_new_line();
        rl_redisplay();
    }
    return 0;
}

bool Typed(std::string& line) {
    rl_attempted_completion_function = Complete;
    rl_event_hook = ShowEvents;
    BeginTyping();
    char* const typed = readline("tsphost> ");
    EndTyping();
    if (typed == nullptr)
        return false;
    if (*typed != 0)
        add_history(typed);
    line = typed;
    std::free(typed);
    return true;
}

// The next command; false at the end of the input. Those of a script are printed before what they bring.
bool NextLine(std::istream* script, std::string& line) {
    if (script == nullptr && isatty(STDIN_FILENO))
        return Typed(line);
    if (!std::getline(script != nullptr ? *script : std::cin, line))
        return false;
    if (script != nullptr && !line.empty() && line[0] != '#')
        Say("> " + line);
    return true;
}

std::string BesideThisProgram(const char* program) {
    const char* slash = std::strrchr(program, '/');
    return (slash == nullptr ? std::string("./") : std::string(program, slash + 1)) + "zt_6232.tsp";
}

}  // namespace

int main(int argc, char** argv) {
    TheHost.ProviderPath = BesideThisProgram(argv[0]);
    std::ifstream script;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help") {
            std::fputs(USAGE, stdout);
            return 0;
        }
        if (option == "--no-time") {
            TheHost.PrintTime = false;
            continue;
        }
        if (i + 1 == argc) {
            std::fprintf(stderr, "tsphost: %s: unknown option, or its value is missing; --help lists them\n",
                         option.c_str());
            return 2;
        }
        const char* value = argv[++i];
        // The provider's own platform layer reads these when it is loaded.
        if (option == "--provider")
            TheHost.ProviderPath = value;
        else if (option == "--com1")
            setenv("ZT_COM1", value, 1);
        else if (option == "--root")
            setenv("ZT_ROOT", value, 1);
        else if (option == "--registry")
            setenv("ZT_REGISTRY", value, 1);
        else if (option == "--line-base")
            TheHost.LineBase = static_cast<DWORD>(std::strtoul(value, nullptr, 0));
        else if (option == "--script")
            script.open(value);
        else {
            std::fprintf(stderr, "tsphost: %s: unknown option; --help lists them\n", option.c_str());
            return 2;
        }
        if (option == "--script" && !script) {
            std::fprintf(stderr, "tsphost: cannot read %s\n", value);
            return 2;
        }
    }
    std::string error;
    TheHost.Library = LoadProvider(TheHost.ProviderPath, error);
    if (TheHost.Library == nullptr) {
        std::fprintf(stderr, "tsphost: cannot load the provider: %s\n", error.c_str());
        return 2;
    }
    int failures = 0;
    bool quit = false;
    for (std::string line; !quit && NextLine(script.is_open() ? &script : nullptr, line);)
        if (!RunCommand(line, quit))
            ++failures;
    if (TheHost.Initialised)
        RunCommand("shutdown", quit);
    UnloadProvider(TheHost.Library);
    if (failures > 0)
        std::fprintf(stderr, "tsphost: %d command%s failed\n", failures, failures == 1 ? "" : "s");
    return failures == 0 ? 0 : 1;
}
