// The telephony service's side of a provider: what the service keeps about it, and the callbacks that it gives.
//
// Callbacks come on the provider's threads with its lock held: they note what came, answer LINE_NEWCALL with a handle,
// and never call back into the provider.
#pragma once

#include "platform/platform.h"
#include "tsphost/library.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

struct Host {
    std::string ProviderPath;
    LibraryHandle Library = {};
    DWORD LineBase = 0, PhoneBase = 0;
    DWORD ProviderID = 1;
    bool PrintTime = true;

    HDRVLINE Line = nullptr;  // null: not open
    bool Initialised = false;

    // What has come, oldest first, and how far `wait` and `expect` have looked.
    std::mutex Lock;
    std::condition_variable Came;
    std::vector<std::string> Events;
    std::size_t Seen = 0;
    std::map<std::uintptr_t, int> Calls;  // our handle of a call -> the provider's
    std::uintptr_t NextCall = 0x1000;
};
extern Host TheHost;

// Prints a line of the console's own, never inside another line.
void Say(const std::string& text);
// Waits up to `milliseconds` for an event that contains the text, among those not looked at yet; what lies before it
// counts as looked at then. False when none comes.
bool WaitForEvent(const std::string& text, std::uint32_t milliseconds);

void CALLBACK HostLineEvent(HTAPILINE, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR);
void CALLBACK HostCompletion(DRV_REQUESTID request, LONG result);

// Carries out one console line. False when it failed; `quit` is set by the command that ends the console.
bool RunCommand(const std::string& line, bool& quit);
