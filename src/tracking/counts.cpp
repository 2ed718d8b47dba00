#include "tracking/counts.h"

#include "trace/trace.h"
#include "tracking/steps.h"

CallCountsRecord CallCounts() {
    CallCountsRecord counts;
    for (int cref = 0; cref < CALL_COUNT; ++cref) {
        const DWORD state = CallOf(cref).state;
        if (state == 0)
            continue;
        Trace(TRACE_CALL, "CallsStat cref %04d state %lx", cref, state);
        ++counts.InUse;
        switch (state) {
        case LINECALLSTATE_CONNECTED: ++counts.Connected; break;
        case LINECALLSTATE_ONHOLD: ++counts.OnHold; break;
        case LINECALLSTATE_ONHOLDPENDTRANSFER: ++counts.OnHoldPending; break;
        case STATE_REOFFERING: ++counts.Reoffering; break;
        case LINECALLSTATE_IDLE: ++counts.Idle; break;
        default: break;
        }
    }
    return counts;
}
