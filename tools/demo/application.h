// An application beside the set, as far as it shows in the host's console: its line and phone, its calls with what TAPI
// knows of them, and what a person has it ask for.
//
// The console is asked after each event what has become of line and calls. A mark is echoed behind every command, so
// that each line of its output belongs to the command that brought it; events come in between, as they happen.
#pragma once

#include "web/messages.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace Demo {

class Application {
public:
    std::function<void(const std::string& line)> send;                           // a line for the console
    std::function<void(const std::string& kind, const std::string& text)> tell;  // a line for the lane
    std::function<void(const std::string& text)> notice;                         // a request was refused, a box shown

    const Web::ApplicationState& State() const { return state; }

    // What a person asks for. Gives "", or why it is not even asked.
    std::string Ask(const std::vector<std::string>& words);
    // A line that the console has printed.
    void Take(const std::string& line);
    // Asks what has become of things, when something has happened since and the last answers are there.
    void Look();
    // Brings the line into service, as the telephony service does at its start.
    void Start();

private:
    struct Command {
        std::vector<std::string> words;
        bool own = false;  // asked by Look
        std::vector<std::string> answer;
    };
    Web::ApplicationState state;
    std::deque<Command> sent;  // not answered to their end yet, oldest first
    bool stale = false;

    void Send(const std::vector<std::string>& words, bool own);
    void TakeEvent(const std::string& line);
    void TakeCallEvent(const std::vector<std::string>& words);
    void TakeAnswer(const Command& command);
    void TakeFields(const Command& command);
    Web::ApplicationCall& CallAt(int number);
};

}  // namespace Demo
