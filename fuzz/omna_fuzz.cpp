// Whole TAPI_OMNA messages. An input is one byte for version and start state, then messages: a code byte, a length byte
// and the payload. Each input begins with the answer to the device association, so that the dialogue runs.
#include "start.h"

#include "config/set/set_config.h"
#include "config/settings.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/omna.h"
#include "link/tick.h"
#include "provider/state.h"
#include "thread/omna_messages.h"
#include "tracking/events.h"
#include "tracking/model.h"

#include <cstring>
#include <vector>

namespace {

constexpr std::uint8_t VERSION_BITS = 0x03;
constexpr std::uint8_t START_CONFIGURED = 0x10;  // the set has keys already, and a stored configuration
constexpr std::uint8_t START_CALL = 0x20;        // a call rings on key 1, another is being made on key 2

// The message stands alone in its block: a byte read behind it is found.
void Dispatch(std::uint8_t version, std::uint8_t code, std::span<const std::uint8_t> payload) {
    std::vector<std::uint8_t> message{0, static_cast<std::uint8_t>(payload.size() + OMNA_HEADER), version, 0, code, 1};
    message.insert(message.end(), payload.begin(), payload.end());
    message.shrink_to_fit();
    DispatchOmnaMsg(message);
}

void Stand(int key, DWORD state, int icon) {
    const int cref = AllocCallRecord(state, key);
    CallRecord& call = CallTable[static_cast<std::size_t>(cref)];
    (state == LINECALLSTATE_OFFERING ? call.Inbound : call.Outbound) = 1;
    Touch& touch = TouchTable[static_cast<std::size_t>(key)];
    touch.calls[0] = cref;
    touch.icon = icon;
}

template <std::size_t N> bool Terminated(const char (&field)[N]) {
    return std::memchr(field, 0, N) != nullptr;
}

void CheckRecords() {
    for (const auto& label : Settings.SoftKeyLabels)
        FuzzRequire(Terminated(label), "a soft-key label's end");
    for (const auto& text : Settings.DisplayStrings)
        FuzzRequire(Terminated(text), "a display string's end");
    for (const auto& code : Settings.ServiceCodes)
        FuzzRequire(Terminated(code), "a service code's end");
    FuzzRequire(Terminated(Settings.SetMCDU), "the set's number's end");
    FuzzRequire(Terminated(ProviderState.ForwardDestination), "the forward destination's end");
    for (const Touch& touch : TouchTable)
        FuzzRequire(Terminated(touch.label), "a key label's end");
    for (const CallRecord& call : CallTable)
        FuzzRequire(Terminated(call.CallerAddress) && Terminated(call.CallerName) && Terminated(call.CalledAddress) &&
                        Terminated(call.CalledName) && Terminated(call.ConnectedAddress) &&
                        Terminated(call.ConnectedName) && Terminated(call.RedirectionAddress) &&
                        Terminated(call.RedirectionName) && Terminated(call.RedirectingAddress) &&
                        Terminated(call.RedirectingName) && Terminated(call.DestAddress) && Terminated(call.DestName),
                    "a party text's end");
    FuzzCheckKeys();
    FuzzRequire(AomCount >= 0 && AomCount <= AOM_COUNT, "the number of modules");
    FuzzRequire(FifoCount(LINK_FIFO) <= FIFO_SLOTS - 1, "the queue's limit");
}

}  // namespace

int FuzzOmna(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint8_t start = input.Byte();
    const std::uint8_t version = start & VERSION_BITS;
    FuzzStart();
    if ((start & START_CONFIGURED) != 0) {
        FuzzConfigureSet();
        DynamicConfig.LastActionState = 1;
    }
    if ((start & START_CALL) != 0) {
        Stand(1, LINECALLSTATE_OFFERING, INCOM_ICON);
        Stand(2, LINECALLSTATE_PROCEEDING, ACTIV_ICON);
    }
    static constexpr std::uint8_t Association[] = {0, 1, 4, '4', '7', '1', '1', 3, 1, 4, 0};
    Dispatch(version, OMNA_DEVICE_ASSOC_ACK, Association);
    while (!input.Empty()) {
        const std::uint8_t code = input.Byte();
        Dispatch(version, code, input.Counted());
        CheckRecords();
        FifoClear(LINK_FIFO);  // as if all were acknowledged
    }
    FuzzNoteConfiguration();
    return 0;
}
