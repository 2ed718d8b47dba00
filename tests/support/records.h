// The provider's records, as tests and fuzzers begin: all but those of the process itself.
#pragma once

#include "config/char_patterns.h"
#include "config/set/set_config.h"
#include "config/settings.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "provider/state.h"
#include "tracking/events.h"
#include "tracking/model.h"
#include "tracking/pending.h"
#include "tracking/terminal.h"

inline void ResetRecords() {
    FifoReset();
    Serial = SerialState{};
    Link = LinkState{};
    Tick = TickState{};
    Marks = RequestMarks{};
    RunningRequest = RunningRequestRecord{};
    ConferenceReset();
    Tracking = TrackingState{};
    DynamicConfig = DynamicConfigRecord{};
    SetConfig = SetConfigState{};
    LanguageChanged = false;
    Settings = SettingsRecord{};
    AomTable = {};
    AomCount = 0;
    SortAomModules();
    TouchTable = {};
    CallTable = {};
    KeyLists = KeyListSet{};
    confstate = 0;
    LastHeldCref = PickUpSupervCref = SwapKeyTransferingCref = -1;
    WaitInfo.fill(-1);
    TmpAddress[0] = DialedNumber[0] = 0;
    Display = DisplayRecord{};
    CharPatternTable = {};
    CharCodeArray.fill(' ');
    ProviderState = ProviderStateRecord{};
    ProviderState.ProtocolLevel = 2;
    ProviderState.FwdStatus = FWD_NOT_FORWARDED;
}
