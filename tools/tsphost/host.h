// The telephony service's side of a provider: what the service keeps about it, and the callbacks that it gives.
//
// Callbacks come on the provider's threads with its lock held: they note what came, answer LINE_NEWCALL with a handle,
// and never call back into the provider.
#pragma once

#include "platform/platform.h"
#include "tsphost/system.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Tsphost {

// What a provider that was asked for a call handle has not written.
inline const HDRVCALL NO_CALL = reinterpret_cast<HDRVCALL>(~std::uintptr_t{0});

struct Host {
    std::string ProviderPath;
    LibraryHandle Library = {};
    DWORD LineBase = 0, PhoneBase = 0;
    DWORD ProviderID = 1;
    bool PrintTime = true;

    HDRVLINE Line = nullptr;  // null: never opened
    HDRVPHONE Phone = nullptr;
    bool Initialised = false;

    // Everything below is shared with the provider's threads.
    std::mutex Lock;
    std::condition_variable Came;

    // What has come, oldest first, and how far `wait` and `expect` have looked.
    std::vector<std::string> Events;
    std::size_t Seen = 0;
    // While the user types, events wait here: the line under the cursor would be torn otherwise.
    bool Typing = false;
    std::vector<std::string> Unprinted;

    // Our handle of a call -> the provider's. The provider writes into an element while it makes a call, under its own
    // lock; events of that call come under the same lock.
    std::map<std::uintptr_t, HDRVCALL> Calls;
    std::uintptr_t NextCall = 0x1000;
    std::uintptr_t LastCall = 0;  // our handle of the last call announced or made; 0: none yet

    std::optional<LONG> LastResult;  // what the last entry point gave
    DRV_REQUESTID LastRequest = 0;   // the last one that the provider took; 0: none, or it was refused
    DRV_REQUESTID NextRequest = 1;
    std::map<DRV_REQUESTID, LONG> Completions;  // by request
};
extern Host TheHost;

// Prints a line of the console's own, never inside another line.
void Say(const std::string& text);
// Between the two, events are kept back; PrintKept prints those that came, true when there were any.
void BeginTyping();
bool PrintKept(const char* before);
void EndTyping();

// Waits up to `milliseconds` for an event that contains the text, among those not looked at yet; what lies before it
// counts as looked at then. False when none comes.
bool WaitForEvent(const std::string& text, std::uint32_t milliseconds);
// The next event not looked at yet; it counts as looked at then. False when none comes in time.
bool NextEvent(std::uint32_t milliseconds, std::string& event);
// The result of a request, when it is completed in time. Its event is no longer one to be looked at then: requests are
// answered beside the events of the calls, in no order with them.
bool WaitForCompletion(DRV_REQUESTID request, std::uint32_t milliseconds, LONG& result);

// What has come so far counts as looked at.
void ForgetEvents();

// A call that the provider is asked to make: our handle, and where it writes its own.
struct AskedCall {
    std::uintptr_t Handle = 0;
    HDRVCALL* Written = nullptr;
    HTAPICALL Tapi() const { return reinterpret_cast<HTAPICALL>(Handle); }
};
AskedCall AskForCall();
// The call became the last one when the provider took the request and wrote its handle; else our handle is forgotten.
// True for the first.
bool KeepCall(const AskedCall& call, bool taken);
// False while there is none.
bool LastCall(HDRVCALL& call);

void CALLBACK HostLineEvent(HTAPILINE, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR);
void CALLBACK HostPhoneEvent(HTAPIPHONE, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR);
void CALLBACK HostCompletion(DRV_REQUESTID request, LONG result);

}  // namespace Tsphost
