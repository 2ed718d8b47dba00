#include "thread/lifetimes.h"

#include "config/set/set_config.h"
#include "config/settings.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "tracking/model.h"
#include "tracking/pending.h"

namespace {

// By what the state machines, the requests and the tick talk to each other.
void ResetMarkers() {
    Tracking = TrackingState{};
    RunningRequest = RunningRequestRecord{};
    Marks = RequestMarks{};
}

}  // namespace

void ResetModel() {
    CallTable.fill(CallRecord{});
    TouchTable.fill(Touch{});
    KeyLists = KeyListSet{};
    WaitInfo.fill(-1);
    PickUpSupervCref = SwapKeyTransferingCref = -1;
    confstate = 0;
    ResetMarkers();
}

void ResetThreadState() {
    Serial = SerialState{};
    Link = LinkState{};
    Tick = TickState{};
    ResetMarkers();
    DynamicConfig.WaitDynamicConfig = 1;  // StaticConfig stays: only a complete dialogue ends it
    DynamicConfig.WaitTraceMode = 0;
    AomTable = {};
    AomCount = 0;
    SortAomModules();
    FifoReset();
    ReadLastAction();
}
