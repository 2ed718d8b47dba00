#include "tracking/steps.h"

#include "control/requests.h"  // the transfer under way ends here
#include "trace/trace.h"

#include <utility>

int EndSetupTransfer(int key) {
    // Cleared first: the completion's callback may start the next one.
    const int cref = std::exchange(RunningRequest, {}).ConsultCref;
    SendCompletion(ProviderState, 0);
    Trace(TRACE_CALL, "sendCompletion SetupTransfer ");
    if (!IsCref(cref))
        return -1;
    CallRecord& call = CallOf(cref);
    call.state = LINECALLSTATE_DIALTONE;
    call.touch = key;
    call.Inbound = 0;
    call.byMakeCall = 1;
    return cref;
}
