// What ./demo runs: scenes played between a simulated set and the telephony service's side, or both for the user to play
// with.
#include "demo/interactive.h"
#include "demo/play.h"

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    using namespace Demo;
    const std::string program = argv[0];
    const std::size_t slash = program.rfind('/');
    const std::string directory = slash == std::string::npos ? "./" : program.substr(0, slash + 1);
    const bool interactive = argc == 2 && std::strcmp(argv[1], "--interactive") == 0;
    if (argc > 1 && !interactive) {
        std::puts("zt_demo [--interactive]: plays calls between a simulated set and the telephony service's side");
        return std::strcmp(argv[1], "--help") == 0 ? 0 : 2;
    }
    TrapSignals();
    Stage stage;
    if (const std::string error = stage.Start(directory); !error.empty()) {
        std::fprintf(stderr, "zt_demo: %s\n", error.c_str());
        return 2;
    }
    return interactive ? Interactive(stage) : PlayAll(stage);
}
