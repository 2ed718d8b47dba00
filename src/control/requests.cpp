#include "control/requests.h"

#include "config/settings.h"
#include "control/call_keys.h"
#include "control/digits.h"
#include "control/forward.h"
#include "control/make_call.h"
#include "control/phone_keys.h"
#include "control/transfer.h"
#include "link/tick.h"
#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/model.h"
#include "tracking/pending.h"

#include <algorithm>
#include <iterator>

namespace {

using Request = const ProviderStateRecord&;

// lineMakeCall and lineDial.
LONG MakeCall(int cref, RequestCode code) {
    Trace(TRACE_ENTRY, "dial makecall");
    if (DynamicConfig.StaticConfig == 0 && DynamicConfig.WaitDynamicConfig == 1) {
        Trace(TRACE_ENTRY, "dial makecall WaitDynamicConfig");
        return OPERATION_FAILED;
    }
    if (DynamicConfig.StaticConfig == 1) {  // the received configuration is still to come: the tick makes the call then
        // This one takes its place, before TAPI is told of it: from within that it may ask for another call.
        GiveUpDeferredMakeCall({true, cref});
        Trace(TRACE_ENTRY, "dial makecall STATIC_CONFIG crefRequestMakeCall %lx", cref);
        return 0;
    }
    const LONG result = DoMakeCall(cref, code);
    Trace(TRACE_ENTRY, "dial makecall DoMakeCall res %d", result);
    if (result == 0)
        Marks.MakeCallReport = {true, cref};
    return result;
}

LONG Drop(Request request) {
    Trace(TRACE_ENTRY, "Drop call cref %d ReqId %lx", request.RequestCref, request.PendingRequestID);
    const LONG result = DoClearCall(request.RequestCref);
    Trace(TRACE_ENTRY, "LineDrop Result:%lx", result);
    return result;
}

template <std::size_t Mode> LONG Forward(Request request) {
    const char* destination = request.ForwardDestination;
    Trace(TRACE_ENTRY, ForwardingModes[Mode].RequestTrace, destination);
    return DoForward(ForwardingModes[Mode]);
}

LONG SetUpTransfer(Request request) {
    Trace(TRACE_ENTRY, "Setup Transfer call cref %04x consultcref %04x", request.RequestCref, request.ConsultCref);
    return SetupTransfer(request.RequestCref, request.ConsultCref);
}

// Traces a text that holds at most the request's cref, and gives the cref.
int Traced(Request request, const char* format) {
    Trace(TRACE_ENTRY, format, request.RequestCref);
    return request.RequestCref;
}

// How a request ends.
enum class End {
    COMPLETED,  // at once, with the handler's result
    DROP,       // when the call's IDLE is reported; refused with the handler's error
    LATER,      // when the set shows it done; a handler that fails has completed it itself
    ANSWERED,   // synchronous: the handler's result is the answer
};

struct Path {
    RequestCode Code;
    End Ends;
    LONG (*Handle)(Request request);
};

constexpr Path Paths[] = {
    // clang-format off
    {REQUEST_MAKE_CALL,        End::COMPLETED, [](Request r) { return MakeCall(r.RequestCref, REQUEST_MAKE_CALL); }},
    {REQUEST_DIAL,             End::COMPLETED, [](Request r) { return MakeCall(r.RequestCref, REQUEST_DIAL); }},
    {REQUEST_DROP,             End::DROP,      Drop},
    {REQUEST_ANSWER,           End::COMPLETED, [](Request r) { return DoAnswer(Traced(r, "Answer")); }},
    {REQUEST_TRANSFER,         End::COMPLETED, [](Request r) { return DoTransfer(Traced(r, "Transfer call"), r.ConsultCref); }},
    {REQUEST_BLIND_TRANSFER,   End::LATER,     [](Request r) { return DoBlindTransfer(Traced(r, "Blind Transfer call")); }},
    {REQUEST_HOLD,             End::COMPLETED, [](Request r) { return DoHoldCall(Traced(r, "hold call:%d")); }},
    {REQUEST_UNHOLD,           End::COMPLETED, [](Request r) { return DoUnholdCall(Traced(r, "Unhold call:%d")); }},
    {REQUEST_GENERATE_DIGITS,  End::ANSWERED,  [](Request r) { return DoGenerateDigits(Traced(r, "GenerateDigits")); }},
    {REQUEST_CONFERENCE,       End::COMPLETED, [](Request r) { return DoConference(Traced(r, "Conference"), r.ConsultCref); }},
    {ForwardingModes[0].Request, End::COMPLETED, Forward<0>},
    {REQUEST_FORWARD_CANCEL,   End::COMPLETED, [](Request r) { Traced(r, "Annulation renvoi"); return DoCancelForward(); }},
    {ForwardingModes[1].Request, End::COMPLETED, Forward<1>},
    {ForwardingModes[2].Request, End::COMPLETED, Forward<2>},
    {ForwardingModes[3].Request, End::COMPLETED, Forward<3>},
    {REQUEST_PICKUP,           End::COMPLETED, [](Request r) { Traced(r, "msg Call Pickup cref %d"); return DoPickup(); }},
    {REQUEST_SETUP_TRANSFER,   End::LATER,     SetUpTransfer},
    {REQUEST_PHONE_DISPLAY,    End::ANSWERED,  [](Request) { return ReadPhoneDisplay(); }},
    {REQUEST_PHONE_BUTTON,     End::ANSWERED,  [](Request) { return PressPhoneButton(); }},
    // clang-format on
};

LONG Finish(End ends, LONG result, DRV_REQUESTID request, ProviderStateRecord& provider) {
    switch (ends) {
    case End::COMPLETED: return static_cast<LONG>(SendCompletion(provider, result));
    case End::DROP:
        if (result < 0) {
            provider.PendingRequestID = 0;
            return result;
        }
        RunningRequest = {REQUEST_DROP, provider.RequestCref};
        RunningRequest.Pressed = result == 0;
        return static_cast<LONG>(request);
    case End::LATER: return static_cast<LONG>(request);
    case End::ANSWERED: break;
    }
    return result;
}

}  // namespace

LONG DispatchRequest(int code, ProviderStateRecord& provider) {
    if (Tick.SpStopped)
        return static_cast<LONG>(SendCompletion(provider, Error(LINEERR_NODEVICE)));
    const Path* path = std::find_if(std::begin(Paths), std::end(Paths), [&](const Path& p) { return p.Code == code; });
    // Only a drop knows the conference.
    const bool named = IsCref(provider.RequestCref) || (provider.RequestCref == CONF_CREF && code == REQUEST_DROP);
    if (path == std::end(Paths) || !named) {
        provider.PendingRequestID = 0;
        return 0;
    }
    const DRV_REQUESTID request = provider.PendingRequestID;
    return Finish(path->Ends, path->Handle(provider), request, provider);
}
