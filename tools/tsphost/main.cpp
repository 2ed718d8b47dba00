// tsphost: loads a telephony service provider as the telephony service does, prints every event by name, and has a
// console to call its entry points.
#include "tsphost/commands.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

using namespace Tsphost;

namespace {

constexpr const char* USAGE = R"(tsphost [options]: the telephony service's side of zt_6232.tsp

  --provider PATH   the provider to load (default: zt_6232.tsp beside this program)
  --com1 PATH       terminal device behind COM1 (this and the next two: not on Windows)
  --root DIR        directory that holds drive C: (trace, INI file)
  --registry FILE   file that keeps the registry
  --line-base N     first line device identifier (default 0)
  --script FILE     commands from a file instead of standard input
  --no-time         no time in front of events
  --help            this text

Commands come from standard input; on a terminal with line editing and history. "help" lists them.
Ends with status 0 only when every command succeeded.
)";

// The next command; false at the end of the input. Those of a script are printed before what they bring.
bool NextLine(std::istream* script, std::string& line) {
    if (script == nullptr && TypesCommands())
        return TypedLine(line);
    if (!std::getline(script != nullptr ? *script : std::cin, line))
        return false;
    if (script != nullptr && !line.empty() && line[0] != '#')
        Say("> " + line);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    PrepareStreams();
    TheHost.ProviderPath = OwnDirectory(argv[0]) + "zt_6232.tsp";
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
        bool usable = true;
        if (option == "--provider")
            TheHost.ProviderPath = value;
        else if (option == "--com1")
            usable = SetPlace("ZT_COM1", value);
        else if (option == "--root")
            usable = SetPlace("ZT_ROOT", value);
        else if (option == "--registry")
            usable = SetPlace("ZT_REGISTRY", value);
        else if (option == "--line-base")
            TheHost.LineBase = static_cast<DWORD>(std::strtoul(value, nullptr, 0));
        else if (option == "--script")
            script.open(value);
        else {
            std::fprintf(stderr, "tsphost: %s: unknown option; --help lists them\n", option.c_str());
            return 2;
        }
        if (!usable) {
            std::fprintf(stderr, "tsphost: %s: port, registry and drive C: are the system's own here\n",
                         option.c_str());
            return 2;
        }
        if (option == "--script" && !script) {
            std::fprintf(stderr, "tsphost: cannot read %s\n", value);
            return 2;
        }
    }
    WatchBoxes();
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
