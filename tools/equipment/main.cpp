// The equipment as a program: on a pseudo-terminal of its own or a given device, driven by lines on standard input and
// from files.
#include "equipment/loop.h"
#include "equipment/script.h"
#include "web/view.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace {

constexpr const char* Usage =
    "usage: zt_equipment [options]\n"
    "The VXC card, the set and the PBX behind a serial port. The first line of output is the terminal to open.\n"
    "Commands are read from standard input, one a line; 'help' lists them.\n"
    "  --device PATH   use this terminal or serial port (/dev/ttyUSB0, COM5) instead of a new pseudo-terminal, which\n"
    "                  Windows has none of; unplugged and plugged in again, it goes on\n"
    "  --link FILE     make FILE a symbolic link to the terminal\n"
    "  --omna N        TAPI_OMNA version: 1, 2 (default) or 3\n"
    "  --config FILE   commands carried out first, all at once\n"
    "  --script FILE   commands carried out then, with their waits\n"
    "  --bps N         speed of the line (default 9600; 0 = no pacing)\n"
    "  --web [ADDRESS:PORT]  show the set in a browser, at 127.0.0.1:6232 without an address; the second line of "
    "output\n"
    "                  is what to open. An address of another machine's reach takes the token in that link\n"
    "  --log           show frames and what happens\n"
    "  --help          this text\n";

volatile std::sig_atomic_t Stop = 0;

struct Options {
    std::string device, link, omna, config, script, bps, web;
    bool log = false, help = false;
};

// Gives "", or what is wrong.
std::string Read(int count, char** words, Options& options) {
    struct {
        const char* name;
        std::string* value;
    } const table[] = {{"--device", &options.device}, {"--link", &options.link},     {"--omna", &options.omna},
                       {"--config", &options.config}, {"--script", &options.script}, {"--bps", &options.bps}};
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        if (word == "--log" || word == "--help") {
            (word == "--log" ? options.log : options.help) = true;
            continue;
        }
        if (word == "--web") {
            const bool place = i + 1 < count && words[i + 1][0] != '-';
            options.web = place ? words[++i] : std::string(Web::DefaultPlace);
            continue;
        }
        const auto entry = std::find_if(std::begin(table), std::end(table), [&](auto& e) { return word == e.name; });
        if (entry == std::end(table))
            return "unknown option " + word;
        if (++i == count)
            return word + " needs a value";
        *entry->value = words[i];
    }
    return "";
}

void Say(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

// Gives "", or what went wrong. Only a link that was left behind is replaced, never a file.
std::string MakeLink(const std::string& file, const std::string& target) {
    std::error_code error;
    if (std::filesystem::is_symlink(file, error))
        std::filesystem::remove(file, error);
    std::filesystem::create_symlink(target, file, error);
    return error ? file + ": " + error.message() : "";
}

// Lines of standard input, as far as they have come. False at its end.
bool ReadInput(Equipment::Input& input, std::string& kept, Equipment::Script& into) {
    const bool more = input.Read(kept);
    for (std::size_t end; (end = kept.find('\n')) != std::string::npos; kept.erase(0, end + 1))
        into.Add(kept.substr(0, end));
    return more;
}

void OnSignal(int) {
    Stop = 1;
}

}  // namespace

int main(int count, char** words) {
    using namespace Equipment;
    PrepareStreams();
    Options options;
    if (const std::string error = Read(count, words, options); !error.empty()) {
        std::fprintf(stderr, "zt_equipment: %s\n%s", error.c_str(), Usage);
        return 2;
    }
    if (options.help) {
        Say(Usage);
        return 0;
    }

    Machine machine;
    const auto set = [&](const char* what, const std::string& value) {
        if (value.empty())
            return true;
        const std::string answer = Execute(machine, std::string("set ") + what + " " + value, Loop::Now());
        if (IsError(answer))
            std::fprintf(stderr, "zt_equipment: %s\n", answer.c_str());
        return !IsError(answer);
    };
    if (!set("version", options.omna) || !set("bps", options.bps))
        return 2;
    Script config, script, typed;
    if ((!options.config.empty() && !config.Load(options.config)) ||
        (!options.script.empty() && !script.Load(options.script))) {
        std::fprintf(stderr, "zt_equipment: a file cannot be read: %s %s\n", options.config.c_str(),
                     options.script.c_str());
        return 2;
    }
    for (const std::string& line : config.lines)
        if (const std::string answer = Execute(machine, line, Loop::Now()); IsError(answer)) {
            std::fprintf(stderr, "zt_equipment: %s: %s\n", line.c_str(), answer.c_str());
            return 2;
        }

    Loop loop(machine);
    if (const std::string error = options.device.empty() ? loop.Open() : loop.OpenDevice(options.device);
        !error.empty()) {
        std::fprintf(stderr, "zt_equipment: %s\n", error.c_str());
        return 1;
    }
    if (!options.link.empty())
        if (const std::string error = MakeLink(options.link, loop.Path()); !error.empty()) {
            std::fprintf(stderr, "zt_equipment: %s\n", error.c_str());
            return 1;
        }
    Say(loop.Path() + "\n");
    loop.onDevice = [&](bool there) {
        Say("-- " + loop.Path() +
            (there ? " is there again\n" : " is lost; it is opened anew when it is there again\n"));
    };
    if (options.log) {
        machine.onLog = [](const std::string& line) { Say("-- " + line + "\n"); };
        machine.onFrame = [](bool outgoing, ByteSpan frame) {
            const std::string what = FrameHolds(frame) ? Describe(ItemOf(frame)) : "damaged";
            Say((outgoing ? "<< " : ">> ") + Hex(frame) + "  " + what + "\n");
        };
    }

    std::optional<Web::View> view;
    if (!options.web.empty()) {
        view.emplace(machine);
        if (const std::string error = view->Open(options.web); !error.empty()) {
            std::fprintf(stderr, "zt_equipment: %s\n", error.c_str());
            return 1;
        }
        Say(view->Link() + "\n");
    }

    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
    Input input;
    std::string kept;
    bool listening = true;  // to standard input; without it the equipment stays as it is until it is stopped
    int result = 0;
    while (Stop == 0 && !script.quit && !typed.quit) {
        const std::uint32_t now = Loop::Now();
        Say(script.Step(machine, now) + typed.Step(machine, now));
        if (view)
            view->Step(now);
        const std::uint32_t due =
            std::min({script.NextDue(now), typed.NextDue(now), view ? view->NextDue() : std::uint32_t{500}});
        std::vector<int> watch = view ? view->Handles() : std::vector<int>{};
        if (listening)
            watch.push_back(input.Handle());
        if (!loop.Step(static_cast<int>(due), watch)) {
            std::fprintf(stderr, "zt_equipment: the terminal is gone\n");
            result = 1;
            break;
        }
        if (listening)
            listening = ReadInput(input, kept, typed);
    }
    std::error_code ignored;
    if (!options.link.empty())
        std::filesystem::remove(options.link, ignored);
    return result;
}
