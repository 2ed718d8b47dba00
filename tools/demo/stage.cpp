#include "demo/stage.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Demo {

namespace {

constexpr std::uint32_t END_MS = 30'000;  // the host gets this long to close the line and end

volatile std::sig_atomic_t Stop = 0;

std::string PrepareRoot() {
    std::string root = (std::filesystem::temp_directory_path() / "zt_demo_XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr)
        return {};
    std::ofstream registry(root + "/registry");
    registry << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\TSpi_6200\\Provider]\nPort=\"COM1\"\n\n"
             << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\TSpi_6200\\Debug_Mode]\nDebugOutput=\"127\"\n";
    return root;
}

}  // namespace

Stage::~Stage() {
    std::error_code ignored;
    if (!Root.empty())
        std::filesystem::remove_all(Root, ignored);
}

std::string Stage::Start(const std::string& directory, const std::string& host) {
    Furnish(Machine);
    if (std::string error = Loop.Open(); !error.empty())
        return error;
    Root = PrepareRoot();
    if (Root.empty())
        return "no temporary directory";
    return Host.Start(host.empty() ? directory + "tsphost" : host,
                      {"--no-time", "--com1", Loop.Path(), "--root", Root, "--registry", Root + "/registry",
                       "--provider", directory + "zt_6232.tsp"},
                      {"ZT_BOX_MS=1500"});
}

int Stage::End() {
    Host.Send("quit");
    const std::uint32_t start = Equipment::Loop::Now();
    while (!Host.Ended() && Equipment::Loop::Now() - start < END_MS) {
        Loop.Step(50, {Host.Output()});
        Host.Lines();
    }
    return Host.Ended() ? Host.Finish() : 255;
}

void Furnish(Equipment::Machine& machine) {
    using Equipment::FarEnd;
    machine.config.superFrames = true;  // several key presses in one frame: a dialled number goes out at once
    machine.config.destinations = {{"4750", {FarEnd::Answers, 1200, "LAMBERT"}},
                                   {"4751", {FarEnd::Answers, 1200, "Zoé MOREAU"}},
                                   {"4760", {FarEnd::Busy, 600, ""}},
                                   {"4761", {FarEnd::NeverAnswers, 0, "FABRE"}}};
    machine.set.waiting.push_back({"4780", "4725", "MOREL"});
}

bool IsEvent(const std::string& line) {
    static constexpr const char* starts[] = {"LINE_", "PHONE_", "completion", "[box]"};
    return std::any_of(std::begin(starts), std::end(starts), [&](const char* text) { return line.starts_with(text); });
}

bool StopAsked() {
    return Stop != 0;
}

void TrapSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { Stop = 1; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaction(signal, &action, nullptr);
}

}  // namespace Demo
