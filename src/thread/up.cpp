#include "link/up.h"

#include "config/set/set_config.h"
#include "thread/omna_messages.h"
#include "thread/tick.h"
#include "tracking/model.h"
#include "tracking/terminal.h"

constexpr LinkUp Up = {
    .Command = DecodeSuperMessage,
    .TerminalEvent = DecodeTerminalEvent,
    .OmnaMessage = DispatchOmnaMsg,
    .LinkStarts = ResetSetConfig,
    .CallsLost = ReportCallsLost,
    .Tick = SerialTick,
};
