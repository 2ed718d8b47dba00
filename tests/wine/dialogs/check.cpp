#include "check.h"

#include <cstdio>
#include <cstdlib>

namespace {

int Failed = 0;
constexpr DWORD PATIENCE_MS = 90'000;
constexpr DWORD POLL_MS = 10;

}  // namespace

void Expect(const std::string& what, const std::string& wanted, const std::string& seen) {
    if (wanted == seen)
        return;
    ++Failed;
    std::printf("FAILED: %s\n  wanted: %s\n  seen:   %s\n", what.c_str(), wanted.c_str(), seen.c_str());
    std::fflush(stdout);
}

void Expect(const std::string& what, long wanted, long seen) {
    Expect(what, std::to_string(wanted), std::to_string(seen));
}

void Expect(const std::string& what, bool holds) {
    Expect(what, "yes", holds ? "yes" : "no");
}

int Failures() {
    return Failed;
}

bool WaitFor(const std::string& what, const std::function<bool()>& condition) {
    const ULONGLONG start = GetTickCount64();
    while (!condition()) {
        if (GetTickCount64() - start > PATIENCE_MS) {
            Expect("in time: " + what, false);
            return false;
        }
        Sleep(POLL_MS);
    }
    return true;
}

void Ask(const std::string& request) {
    std::printf("ask %s\n", request.c_str());
    std::fflush(stdout);
    char answer[256] = "";
    if (std::fgets(answer, sizeof answer, stdin) == nullptr) {
        std::fputs("the script is gone\n", stderr);
        std::exit(3);
    }
    std::string text = answer;
    text.erase(text.find_last_not_of("\r\n") + 1);
    Expect("the script, asked for " + request, "ok", text);
}
