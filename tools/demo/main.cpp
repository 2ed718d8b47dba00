// What ./demo runs: scenes played between a simulated set and the telephony service's side, or both for the user to play
// with.
#include "demo/browser.h"
#include "demo/interactive.h"
#include "demo/play.h"
#include "web/server.h"

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    using namespace Demo;
    const std::string program = argv[0];
    const std::size_t slash = program.rfind('/');
    const std::string directory = slash == std::string::npos ? "./" : program.substr(0, slash + 1);
    bool interactive = false;
    std::string host, web;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--interactive") == 0) {
            interactive = true;
        } else if (std::strcmp(argv[i], "--web") == 0) {
            web = i + 1 < argc && argv[i + 1][0] != '-' ? std::string(argv[++i]) : std::string(Web::DefaultPlace);
        } else if (std::strcmp(argv[i], "--scenes") == 0) {
            Demo::PrintScenes();
            return 0;
        } else if (std::strcmp(argv[i], "--host") == 0 && i + 1 < argc) {
            host = argv[++i];
        } else {
            std::puts(
                "zt_demo [--interactive] [--web [ADDRESS:PORT]] [--host PROGRAM]: plays calls between a simulated set\n"
                "and the telephony service's side, which is tsphost beside this program, or PROGRAM with the same\n"
                "options. With --web both are in a browser, at 127.0.0.1:6232 without an address. --scenes prints the "
                "scenes.");
            return std::strcmp(argv[i], "--help") == 0 ? 0 : 2;
        }
    }
    TrapSignals();
    Stage stage;
    if (const std::string error = stage.Start(directory, host); !error.empty()) {
        std::fprintf(stderr, "zt_demo: %s\n", error.c_str());
        return 2;
    }
    if (!web.empty())
        return InBrowser(stage, web);
    return interactive ? Interactive(stage) : PlayAll(stage);
}
