#include "demo/browser.h"

#include "demo/application.h"
#include "web/view.h"

#include <cstdio>
#include <cstdlib>

#include <spawn.h>
#include <unistd.h>

namespace Demo {

namespace {

// Where somebody sits in front of a screen; anywhere else the link is for them to open.
void OpenLink(const std::string& link) {
    if (isatty(STDOUT_FILENO) == 0 || (std::getenv("DISPLAY") == nullptr && std::getenv("WAYLAND_DISPLAY") == nullptr))
        return;
    std::string program = "xdg-open", argument = link;
    char* const words[] = {program.data(), argument.data(), nullptr};
    pid_t process = 0;
    posix_spawn_file_actions_t silent;
    posix_spawn_file_actions_init(&silent);
    posix_spawn_file_actions_addopen(&silent, STDERR_FILENO, "/dev/null", 1 /* O_WRONLY */, 0);
    posix_spawnp(&process, program.c_str(), &silent, nullptr, words, environ);
    posix_spawn_file_actions_destroy(&silent);
}

}  // namespace

int InBrowser(Stage& stage, const std::string& place) {
    Web::View view(stage.Machine);
    if (const std::string error = view.Open(place); !error.empty()) {
        std::fprintf(stderr, "zt_demo: %s\n", error.c_str());
        stage.End();
        return 2;
    }
    Application application;
    application.send = [&](const std::string& line) { stage.Host.Send(line); };
    application.tell = [&](const std::string& kind, const std::string& text) { view.AddTapi(kind, text); };
    application.notice = [&](const std::string& text) { view.Notice(text); };
    view.onApplication = [&](const std::vector<std::string>& words) { return application.Ask(words); };
    std::printf("The set, and an application beside it: %s\nCtrl-C ends.\n", view.Link().c_str());
    std::fflush(stdout);
    OpenLink(view.Link());

    application.Start();
    while (!StopAsked() && !stage.Host.Ended()) {
        for (const std::string& line : stage.Host.Lines())
            application.Take(line);
        application.Look();
        view.ShowApplication(application.State());
        view.Step(Equipment::Loop::Now());
        std::vector<int> watch = view.Handles();
        watch.push_back(stage.Host.Output());
        stage.Loop.Step(static_cast<int>(view.NextDue()), watch);
    }
    if (!stage.Host.Ended())
        return stage.End();
    std::fputs("zt_demo: the host has ended\n", stderr);
    return stage.Host.Finish();
}

}  // namespace Demo
