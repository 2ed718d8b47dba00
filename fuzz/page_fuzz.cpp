// What a viewer's page says to the program. An input is messages, a line each: what begins with a brace is a message as it
// is; any other is the words that the page would ask with, the set's behind "set", an application's behind "application".
// Between two messages a tenth of a second passes, in which a provider takes and acknowledges what the card says.
#include "start.h"

#include "demo/application.h"
#include "equipment/equipment.h"
#include "web/view.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace {

constexpr std::uint32_t STEP_MS = 100;
constexpr int FRAMES_A_STEP = 4;
constexpr std::uint8_t ACKNOWLEDGEMENT[] = {0x02, 0x60, 0x00, 0x9E};
constexpr std::uint8_t POLL[] = {0x02, 0x60, 0x01, 0x9D};

std::string AsAsked(const std::string& line) {
    std::istringstream in(line);
    std::string word, message;
    for (in >> word; in; in >> word) {
        std::string text;
        for (const char c : word)
            text += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c == '_' ? ' ' : c};
        message += message.empty() ? R"({"ask":")" + text + R"(","words":[)"
                                   : (message.ends_with('[') ? "\"" : ",\"") + text + "\"";
    }
    return message + "]}";
}

void Pass(Equipment::Machine& machine, std::uint32_t nowMs) {
    for (int i = 0; i < FRAMES_A_STEP; ++i) {
        std::array<std::uint8_t, 512> bytes;
        const std::size_t count = machine.Read(bytes, nowMs);
        machine.Receive(ACKNOWLEDGEMENT, nowMs);
        if (count < bytes.size())
            return;
    }
}

}  // namespace

int FuzzPage(const std::uint8_t* data, std::size_t size) {
    Equipment::Machine machine;
    Web::View view(machine);
    Demo::Application application;
    application.send = [](const std::string& line) {
        FuzzRequire(line.find('\n') == std::string::npos, "one line for each command");
    };
    application.tell = [&](const std::string& kind, const std::string& text) { view.AddTapi(kind, text); };
    application.notice = [&](const std::string& text) { view.Notice(text); };
    view.onApplication = [&](const std::vector<std::string>& words) { return application.Ask(words); };
    machine.pacing.bitsPerSecond = 0;
    std::uint32_t nowMs = 0;
    machine.Receive(POLL, nowMs);
    std::istringstream in(std::string(data, data + size));
    for (std::string line; std::getline(in, line);) {
        view.Take(0, line.starts_with('{') ? line : AsAsked(line));
        nowMs += STEP_MS;
        Pass(machine, nowMs);
        view.ShowApplication(application.State());
        view.Step(nowMs);
    }
    return 0;
}
