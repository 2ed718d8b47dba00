// The console's own commands, for scripts.
#include "tsphost/commands.h"

#include <chrono>
#include <thread>

namespace Tsphost {

namespace {

constexpr std::uint32_t USUAL_WAIT_MS = 10'000;

std::string Joined(const Words& words) {
    std::string text;
    for (std::size_t i = 1; i < words.size(); ++i)
        text += (i > 1 ? " " : "") + words[i];
    return text;
}

// The text to look for, without the time behind it.
std::string Wanted(const Words& words, std::uint32_t& milliseconds) {
    Words text = words;
    milliseconds = TakeTime(text, USUAL_WAIT_MS);
    if (text.size() < 2)
        throw Unusable{"a text is missing"};
    return Joined(text);
}

std::string Within(std::uint32_t milliseconds) {
    return " within " + std::to_string(milliseconds) + " ms";
}

}  // namespace

bool Wait(const Words& words) {
    std::uint32_t milliseconds = 0;
    const std::string wanted = Wanted(words, milliseconds);
    if (WaitForEvent(wanted, milliseconds))
        return true;
    Say("no event with \"" + wanted + "\"" + Within(milliseconds));
    return false;
}

bool Expect(const Words& words) {
    std::uint32_t milliseconds = 0;
    const std::string wanted = Wanted(words, milliseconds);
    std::string event;
    if (!NextEvent(milliseconds, event)) {
        Say("no event" + Within(milliseconds) + ", \"" + wanted + "\" expected");
        return false;
    }
    if (event.find(wanted) != std::string::npos)
        return true;
    Say("the next event is \"" + event + "\", \"" + wanted + "\" expected");
    return false;
}

bool Completion(const Words& words) {
    Words rest = words;
    const std::uint32_t milliseconds = TakeTime(rest, USUAL_WAIT_MS);
    const LONG wanted = rest.size() > 1 ? ResultAt(rest, 1) : 0;
    LONG result = 0;
    if (TheHost.LastRequest == 0)
        throw Unusable{"no request has been taken, or the last one was refused"};
    const std::string request = "request " + std::to_string(TheHost.LastRequest);
    if (!WaitForCompletion(TheHost.LastRequest, milliseconds, result)) {
        Say(request + " is not completed" + Within(milliseconds));
        return false;
    }
    if (result == wanted)
        return true;
    Say(request + " ended with " + ResultName(result) + ", " + ResultName(wanted) + " expected");
    return false;
}

bool Forget(const Words&) {
    ForgetEvents();
    return true;
}

bool Sleep(const Words& words) {
    Words rest = words;
    const std::uint32_t time = TakeTime(rest, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(rest.size() > 1 ? NumberAt(rest, 1) : time));
    return true;
}

bool Echo(const Words& words) {
    Say(Joined(words));
    return true;
}

bool Counts(const Words&) {
    const ProcessCounts counts = CountProcess();
    Say("threads " + std::to_string(counts.Threads) + ", handles " + std::to_string(counts.Handles));
    return true;
}

}  // namespace Tsphost
