#include "tsphost/host.h"

#include "tsphost/names.h"

#include <chrono>
#include <cstdio>

Host TheHost;

namespace {

constexpr DWORD NEW_CALL = 500;  // LINE_NEWCALL

const auto Started = std::chrono::steady_clock::now();

std::string Stamp() {
    if (!TheHost.PrintTime)
        return {};
    using namespace std::chrono;
    char text[24];
    std::snprintf(text, sizeof text, "%8.3f ", duration<double>(steady_clock::now() - Started).count());
    return text;
}

void Note(const std::string& text) {
    const std::lock_guard guard(TheHost.Lock);
    TheHost.Events.push_back(text);
    std::printf("%s%s\n", Stamp().c_str(), text.c_str());
    std::fflush(stdout);
    TheHost.Came.notify_all();
}

}  // namespace

void Say(const std::string& text) {
    const std::lock_guard guard(TheHost.Lock);
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

bool WaitForEvent(const std::string& text, std::uint32_t milliseconds) {
    std::unique_lock guard(TheHost.Lock);
    const auto found = [&] {
        for (std::size_t i = TheHost.Seen; i < TheHost.Events.size(); ++i)
            if (TheHost.Events[i].find(text) != std::string::npos) {
                TheHost.Seen = i + 1;
                return true;
            }
        return false;
    };
    return TheHost.Came.wait_for(guard, std::chrono::milliseconds(milliseconds), found);
}

void CALLBACK HostLineEvent(HTAPILINE, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    int cref = -1;
    {
        const std::lock_guard guard(TheHost.Lock);
        if (message == NEW_CALL) {
            const std::uintptr_t handle = TheHost.NextCall++;
            TheHost.Calls[handle] = static_cast<int>(p1);
            *reinterpret_cast<HTAPICALL*>(p2) = reinterpret_cast<HTAPICALL>(handle);
        } else if (call != nullptr) {
            const auto found = TheHost.Calls.find(reinterpret_cast<std::uintptr_t>(call));
            cref = found == TheHost.Calls.end() ? 999 : found->second;
        }
    }
    Note(LineEventText(cref, message, p1, p2));
}

void CALLBACK HostCompletion(DRV_REQUESTID request, LONG result) {
    Note("completion of request " + std::to_string(request) + ": " + ResultName(result));
}
