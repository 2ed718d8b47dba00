#include "walk/book.h"

#include "control/requests.h"
#include "link/tick.h"
#include "tracking/model.h"
#include "tracking/steps.h"

#include <algorithm>

namespace Walk {

Book TheBook;

namespace {

constexpr std::uintptr_t HANDLE_BASE = 0x10000;

HTAPICALL StoredHandle(int cref) {
    if (cref == CONF_CREF)
        return ProviderState.htConference;
    return IsCref(cref) ? CallTable[static_cast<std::size_t>(cref)].htCall : nullptr;
}

std::string CallText(HTAPICALL handle) {
    const TapiCall* call = TheBook.Find(handle);
    return call == nullptr ? "of no call" : "call " + std::to_string(call->Cref);
}

void Announce(int cref, HTAPICALL* into) {
    if (const TapiCall* before = TheBook.Current(cref); before != nullptr && before->Is == Life::Alive)
        TheBook.WrongCall("call " + std::to_string(cref) + " is announced while it lives");
    if (!Tick.ConfigReceived)
        TheBook.Doubt = "a call came before the set's configuration, which empties the keys";
    *into = TheBook.Handle();
    TapiCall& call = TheBook.Calls.back();
    call.Deferred = Marks.DeferredMakeCall.Set && Marks.DeferredMakeCall.Cref == cref;  // that one has its record now
    call.Cref = cref;
    call.Is = Life::Alive;
}

// A state of a call that is over, or of none, is a fault unless it is one of these.
bool Expected(const TapiCall& call, DWORD state) {
    // The tick that offers it has not forgotten it yet.
    if (state == LINECALLSTATE_OFFERING && IsCref(call.Cref) && call.Cref == Tracking.OfferInfoCref &&
        CallTable[static_cast<std::size_t>(call.Cref)].touch == 0)
        return TheBook.Odd("OFFERING after IDLE: the caller hung up within the first second");
    // A refused request may have written its handle over that of the conference.
    if (call.Is != Life::Lost && call.Cref == CONF_CREF && state == LINECALLSTATE_IDLE)
        return TheBook.Odd("IDLE of a conference again");
    return false;
}

void TakeState(HTAPICALL handle, DWORD state) {
    TapiCall* call = TheBook.Find(handle);
    if (call == nullptr)
        return TheBook.WrongCall(StateName(state) + " of a call that TAPI does not know");
    if (call->Is == Life::Ended || call->Is == Life::Refused || call->Is == Life::Lost) {
        if (call->Deferred)
            TheBook.Odd("a make call that was put off failed: its states are reported all the same");
        else if (!Expected(*call, state))
            TheBook.WrongCall(StateName(state) + " of call " + std::to_string(call->Cref) + ", which is over");
        return;
    }
    if (state == LINECALLSTATE_OFFERING && IsCref(call->Cref)) {
        const CallRecord& record = CallTable[static_cast<std::size_t>(call->Cref)];
        if (record.state != LINECALLSTATE_OFFERING && record.state != STATE_REOFFERING) {
            TheBook.Odd("OFFERING after IDLE, to the next call on the record");
            return;
        }
        if (record.state == STATE_REOFFERING && record.touch == Tracking.ActivCallTouch)
            TheBook.Doubt = "a key that rang back stays the active one";
    }
    if (state == LINECALLSTATE_DIALTONE && ProviderState.TAPI_OMNA_Ver == 1 && IsCref(call->Cref) &&
        (StatesOn(KeyOf(call->Cref)) & LINECALLSTATE_ONHOLD) != 0)
        TheBook.Doubt = "version 1: a second call on the same key stays at dial tone";
    call->State = state;
    call->Is = state == LINECALLSTATE_IDLE ? Life::Ended : Life::Alive;
}

}  // namespace

std::string StateName(DWORD state) {
    static const std::map<DWORD, const char*> Names = {
        {0x1, "IDLE"},          {0x2, "OFFERING"},      {0x8, "DIALTONE"},          {0x10, "DIALING"},
        {0x20, "RINGBACK"},     {0x40, "BUSY"},         {0x100, "CONNECTED"},       {0x200, "PROCEEDING"},
        {0x400, "ONHOLD"},      {0x800, "CONFERENCED"}, {0x1000, "ONHOLDPENDCONF"}, {0x4000, "DISCONNECTED"},
        {0x10000, "REOFFERING"}};
    const auto found = Names.find(state);
    return found != Names.end() ? found->second : "state " + std::to_string(state);
}

HTAPICALL Book::Handle() {
    Calls.emplace_back();
    return reinterpret_cast<HTAPICALL>(HANDLE_BASE + Calls.size() - 1);
}

HTAPICALL Book::HandleOf(const TapiCall& call) const {
    const auto found = std::find_if(Calls.begin(), Calls.end(), [&](const TapiCall& c) { return &c == &call; });
    return reinterpret_cast<HTAPICALL>(HANDLE_BASE + static_cast<std::uintptr_t>(found - Calls.begin()));
}

TapiCall* Book::Find(HTAPICALL handle) {
    const std::uintptr_t index = reinterpret_cast<std::uintptr_t>(handle) - HANDLE_BASE;
    return index < Calls.size() ? &Calls[index] : nullptr;
}

TapiCall* Book::Current(int cref) {
    TapiCall* call = Find(StoredHandle(cref));
    return call != nullptr && call->Cref == cref ? call : nullptr;
}

DRV_REQUESTID Book::Ask(const std::string& name, int cref, HTAPICALL call) {
    TapiRequest& request = Requests[NextRequest];
    request = {name, cref, false, 0, 0, call};
    return NextRequest++;
}

void Book::Answered(DRV_REQUESTID id, LONG result) {
    TapiRequest& request = Requests[id];
    ++Asked[request.Name];
    const bool accepted = result == static_cast<LONG>(id);
    if (result >= 0 && !accepted)
        Wrong(request.Name + " gave " + std::to_string(result) + ", neither its identifier nor an error");
    if (result < 0 && request.Completions != 0)
        Wrong(request.Name + " was refused and completed");
    request.Accepted = accepted;
    if (TapiCall* call = Find(request.Call);
        call != nullptr && call->Is != Life::Ended && (!accepted || (request.Completions != 0 && request.Result < 0)))
        call->Is = Life::Refused;
    if (!accepted || request.Completions != 0)
        Requests.erase(id);
}

const TapiRequest* Book::Open() const {
    return Requests.empty() ? nullptr : &Requests.begin()->second;
}

void Book::Forget() {
    for (TapiCall& call : Calls)
        if (call.Is == Life::Asked || call.Is == Life::Alive)
            call.Is = Life::Lost;
    Requests.clear();
    CloseCame = false;
    Deaf = true;
}

bool Book::Odd(const char* reason) {
    ++Exceptions[reason];
    return true;
}

void Book::Wrong(const std::string& what) {
    if (Fault.empty())
        Fault = what;
    OnNews("!! " + what);
}

void Book::WrongCall(const std::string& what) {
    if (CallFault.empty())
        CallFault = what;
    OnNews("!! " + what);
}

void CALLBACK LineNews(HTAPILINE, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    ++TheBook.Events;
    const auto value = static_cast<DWORD>(p1);
    if (TheBook.Deaf) {
        TheBook.Odd("news of a line that is closed: a request has started the link again");
        return;
    }
    switch (message) {
    case LINE_NEWCALL:
        Announce(static_cast<int>(p1), reinterpret_cast<HTAPICALL*>(p2));
        TheBook.OnNews("NEWCALL " + std::to_string(p1));
        break;
    case LINE_CALLSTATE:
        TheBook.OnNews(CallText(call) + " " + StateName(value));
        TakeState(call, value);
        break;
    case LINE_CALLINFO:
        TheBook.OnNews(CallText(call) + " info");
        if (const TapiCall* known = TheBook.Find(call); known == nullptr || known->Is != Life::Alive)
            if (known == nullptr || known->Cref != Tracking.UnknownConnectedCall ||
                !TheBook.Odd("caller information after IDLE: the call was answered and ended before its caller showed"))
                TheBook.WrongCall("call information " + CallText(call) + ", which does not live");
        break;
    case LINE_CLOSE:
        TheBook.OnNews("LINE_CLOSE");
        TheBook.CloseCame = true;
        break;
    default: TheBook.OnNews("line message " + std::to_string(message) + " " + std::to_string(value)); break;
    }
}

void CALLBACK PhoneNews(HTAPIPHONE, DWORD message, DWORD_PTR, DWORD_PTR, DWORD_PTR) {
    ++TheBook.Events;
    if (message != PHONE_STATE)
        TheBook.Wrong("phone message " + std::to_string(message));
}

void CALLBACK RequestNews(DRV_REQUESTID id, LONG result) {
    ++TheBook.Completed;
    TheBook.OnNews("completion " + std::to_string(id) + ": " + std::to_string(result));
    const auto found = TheBook.Requests.find(id);
    if (found == TheBook.Requests.end())
        return TheBook.Wrong("completion of request " + std::to_string(id) + ", which is not open");
    TapiRequest& request = found->second;
    if (++request.Completions > 1)
        TheBook.Wrong(request.Name + " was completed twice");
    request.Result = result;
    if (result == 0)
        ++TheBook.Asked[request.Name + " ok"];
    if (TapiCall* call = TheBook.Find(request.Call); call != nullptr && result < 0 && call->Is != Life::Ended)
        call->Is = call->TookOver ? Life::Alive : Life::Refused;
    if (request.Accepted)
        TheBook.Requests.erase(found);
}

}  // namespace Walk
