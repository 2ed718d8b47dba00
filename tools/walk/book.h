// What TAPI knows by its callbacks and by what its requests gave: calls by TAPI's own handles, requests, the line. An
// event or a completion that must not come becomes a fault, in words: those of requests are faults in any case, those of
// calls may come from what is wanted as it is.
//
// Only the thread that moves the test clock reads it; the provider's thread rests then.
#pragma once

#include "platform/platform.h"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Walk {

constexpr int CREFS = 31;  // 0 to 19 and the conference's 30

// What a call has come to.
enum class Life : std::uint8_t {
    Asked,    // a request gave its handle; nothing has been heard yet
    Alive,    // announced, or its first state has come
    Ended,    // IDLE
    Refused,  // its request was refused
    Lost,     // TAPI can hear of it no more: its handle was overwritten, or the line was closed
};

struct TapiCall {
    int Cref = -1;
    Life Is = Life::Asked;
    DWORD State = 0;
    bool Deferred = false;  // made before the set's configuration was there
    bool TookOver = false;  // its request wrote its handle over that of a call at dial tone, which lives on under it
};

struct TapiRequest {
    std::string Name;
    int Cref = -1;
    bool Accepted = false;
    int Completions = 0;
    LONG Result = 0;
    HTAPICALL Call = nullptr;  // the call that it asked for
};

struct Book {
    std::deque<TapiCall> Calls;                     // TAPI's handle is the index and a base
    std::map<DRV_REQUESTID, TapiRequest> Requests;  // those that are open, and the one that is being asked
    DRV_REQUESTID NextRequest = 1;
    bool CloseCame = false;                   // LINE_CLOSE: the application is to close the line
    const char* Doubt = nullptr;              // why what comes later may be wrong, as it is wanted
    bool Deaf = false;                        // the line is closed for TAPI: what comes all the same is not looked at
    std::string Fault, CallFault;             // the first of each
    std::map<std::string, long> Asked;        // as an Outcome gives them
    std::map<std::string, long> Exceptions;   // those that were met, by their reason
    std::function<void(std::string)> OnNews;  // each event in words
    long Events = 0, Completed = 0;

    // A handle for a call that is asked for.
    HTAPICALL Handle();
    HTAPICALL HandleOf(const TapiCall& call) const;
    TapiCall* Find(HTAPICALL handle);
    // The call that the events of a record reach now; null when that is none of ours.
    TapiCall* Current(int cref);
    // Opens a request; the answer of its entry point closes or keeps it.
    DRV_REQUESTID Ask(const std::string& name, int cref, HTAPICALL call = nullptr);
    void Answered(DRV_REQUESTID request, LONG result);
    // The only request that is accepted and not completed; null for none.
    const TapiRequest* Open() const;
    // The line is closed, or opened anew: TAPI forgets its calls and requests.
    void Forget();
    // Counts something odd that is wanted as it is. Gives true, so that a test of it reads as one line.
    bool Odd(const char* reason);
    void Wrong(const std::string& what);
    void WrongCall(const std::string& what);
};
extern Book TheBook;

std::string StateName(DWORD state);

void CALLBACK LineNews(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3);
void CALLBACK PhoneNews(HTAPIPHONE phone, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3);
void CALLBACK RequestNews(DRV_REQUESTID request, LONG result);

}  // namespace Walk
