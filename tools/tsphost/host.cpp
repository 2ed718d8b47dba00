#include "tsphost/host.h"

#include "tsphost/names.h"
#include "tsphost/text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace Tsphost {

Host TheHost;

namespace {

constexpr DWORD NEW_CALL = static_cast<DWORD>(LINE_NEWCALL);

const auto Started = std::chrono::steady_clock::now();

std::string Stamp() {
    if (!TheHost.PrintTime)
        return {};
    using namespace std::chrono;
    char text[24];
    std::snprintf(text, sizeof text, "%8.3f ", duration<double>(steady_clock::now() - Started).count());
    return text;
}

void Print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

// With the lock held.
void Note(const std::string& text) {
    TheHost.Events.push_back(text);
    if (TheHost.Typing)
        TheHost.Unprinted.push_back(Stamp() + text);
    else
        Print(Stamp() + text);
    TheHost.Came.notify_all();
}

// The call that an event names, by the provider's handle; "" for none.
std::string WhoseEvent(HTAPICALL call) {
    if (call == nullptr)
        return {};
    const auto handle = reinterpret_cast<std::uintptr_t>(call);
    const auto found = TheHost.Calls.find(handle);
    return found == TheHost.Calls.end() ? "call of unknown handle " + Hex(handle) : "call " + CallNumber(found->second);
}

std::string CompletionHead(DRV_REQUESTID request) {
    return "completion of request " + std::to_string(request) + ": ";
}

}  // namespace

void Say(const std::string& text) {
    const std::lock_guard guard(TheHost.Lock);
    Print(text);
}

void BeginTyping() {
    const std::lock_guard guard(TheHost.Lock);
    TheHost.Typing = true;
}

bool PrintKept(const char* before) {
    const std::lock_guard guard(TheHost.Lock);
    if (TheHost.Unprinted.empty())
        return false;
    std::printf("%s", before);
    for (const std::string& line : TheHost.Unprinted)
        Print(line);
    TheHost.Unprinted.clear();
    return true;
}

void EndTyping() {
    {
        const std::lock_guard guard(TheHost.Lock);
        TheHost.Typing = false;
    }
    PrintKept("");
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

bool NextEvent(std::uint32_t milliseconds, std::string& event) {
    std::unique_lock guard(TheHost.Lock);
    const auto there = [] { return TheHost.Seen < TheHost.Events.size(); };
    if (!TheHost.Came.wait_for(guard, std::chrono::milliseconds(milliseconds), there))
        return false;
    event = TheHost.Events[TheHost.Seen++];
    return true;
}

bool WaitForCompletion(DRV_REQUESTID request, std::uint32_t milliseconds, LONG& result) {
    std::unique_lock guard(TheHost.Lock);
    const auto completed = [&] { return TheHost.Completions.contains(request); };
    if (!TheHost.Came.wait_for(guard, std::chrono::milliseconds(milliseconds), completed))
        return false;
    result = TheHost.Completions[request];
    const auto next = TheHost.Events.begin() + static_cast<std::ptrdiff_t>(TheHost.Seen);
    const auto event = std::find_if(next, TheHost.Events.end(),
                                    [&](const std::string& text) { return text.starts_with(CompletionHead(request)); });
    if (event != TheHost.Events.end())
        TheHost.Events.erase(event);
    return true;
}

void ForgetEvents() {
    const std::lock_guard guard(TheHost.Lock);
    TheHost.Seen = TheHost.Events.size();
}

AskedCall AskForCall() {
    const std::lock_guard guard(TheHost.Lock);
    const std::uintptr_t handle = TheHost.NextCall++;
    return {handle, &(TheHost.Calls[handle] = NO_CALL)};
}

bool KeepCall(const AskedCall& call, bool taken) {
    const std::lock_guard guard(TheHost.Lock);
    const bool kept = taken && *call.Written != NO_CALL;
    if (kept)
        TheHost.LastCall = call.Handle;
    else
        TheHost.Calls.erase(call.Handle);
    return kept;
}

bool LastCall(HDRVCALL& call) {
    const std::lock_guard guard(TheHost.Lock);
    const auto found = TheHost.Calls.find(TheHost.LastCall);
    if (found == TheHost.Calls.end())
        return false;
    call = found->second;
    return true;
}

void CALLBACK HostLineEvent(HTAPILINE, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    const std::lock_guard guard(TheHost.Lock);
    if (message == NEW_CALL) {
        const auto made = reinterpret_cast<HDRVCALL>(p1);
        TheHost.LastCall = TheHost.NextCall++;
        TheHost.Calls[TheHost.LastCall] = made;
        *reinterpret_cast<HTAPICALL*>(p2) = reinterpret_cast<HTAPICALL>(TheHost.LastCall);
        Note(LineEventText("call " + CallNumber(made), message, p1, p2));
        return;
    }
    Note(LineEventText(WhoseEvent(call), message, p1, p2));
}

void CALLBACK HostPhoneEvent(HTAPIPHONE, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    const std::lock_guard guard(TheHost.Lock);
    Note(PhoneEventText(message, p1, p2));
}

void CALLBACK HostCompletion(DRV_REQUESTID request, LONG result) {
    const std::lock_guard guard(TheHost.Lock);
    std::string text = CompletionHead(request) + ResultName(result);
    if (request == 0 || request >= TheHost.NextRequest)
        text += ", never made";
    else if (!TheHost.Completions.emplace(request, result).second)
        text += ", a second time";
    Note(text);
}

}  // namespace Tsphost
