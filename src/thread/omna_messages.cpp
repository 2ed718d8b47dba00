#include "thread/omna_messages.h"

#include "config/set/set_config.h"
#include "link/omna.h"
#include "provider/state.h"
#include "trace/dump.h"
#include "trace/trace.h"
#include "tracking/call_info.h"

#include <algorithm>
#include <iterator>

namespace {

using Bytes = std::span<const std::uint8_t>;

struct OmnaEntry {
    std::uint8_t code;
    std::uint8_t fromVersion;  // handled only when the PBX has associated with at least this version
    const char* name;          // the trace line; %d is the PBX's version
    void (*handle)(std::uint8_t sequence, Bytes payload);
};

constexpr OmnaEntry OmnaTable[] = {
    {OMNA_DEVICE_ASSOC_ACK, 0, "TAPI_OMNA MSG: DEVICE_ASSOC_ACK (TAPI_OMNA_Ver %d)", HandleDeviceAssocAck},
    {OMNA_KEY_ACK, 0, "TAPI_OMNA MSG: KEY_ACK", HandleKeyAck},
    {OMNA_KEY_INFO_ACK, 0, "TAPI_OMNA MSG: KEY_INFO_ACK", HandleKeyInfoAck},
    {OMNA_STRING_ACK, 0, "TAPI_OMNA MSG: STRING_ACK", HandleStringAck},
    {OMNA_STRING_INFO_ACK, 0, "TAPI_OMNA MSG: STRING_INFO_ACK", HandleStringInfoAck},
    {OMNA_SK_ACK, 0, "TAPI_OMNA MSG: SK_ACK", HandleSkAck},
    {OMNA_SK_INFO_ACK, 0, "TAPI_OMNA MSG: SK_INFO_ACK", HandleSkInfoAck},
    {OMNA_CODE_ACK, 0, "TAPI_OMNA MSG: CODE_ACK", HandleCodeAck},
    {OMNA_CODE_INFO_ACK, 0, "TAPI_OMNA MSG: CODE_INFO_ACK", HandleCodeInfoAck},
    {OMNA_EVENT_INCOMING_CHANGE, 2, "TAPI_OMNA MSG: EVENT_INCOMING_CHANGE", IncomingCallInfo},
    {OMNA_EVENT_OUTGOING_CALL, 2, "TAPI_OMNA MSG: EVENT_OUTGOING_CALL", OutgoingCallInfo},
    {OMNA_EVENT_CONNECTED_CALL, 2, "TAPI_OMNA MSG: EVENT_CONNECTED_CALL", ConnectedCallInfo},
    {OMNA_EVENT_TRANSFERED_CALL, 0, "TAPI_OMNA MSG: TA_M_EVENT_TRANSFERED_CALL", Evt_Transfered_Call},
    {OMNA_KEY_SPE_ACK, 0, "TAPI_OMNA MSG: KEY_SPE_ACK", HandleKeySpeAck},
    {OMNA_KEY_SPE_INFO_ACK, 0, "TAPI_OMNA MSG: KEY_SPE_INFO_ACK", HandleKeySpeInfoAck},
};

// The entry for a received message, or null: unknown code, other class, or no whole header.
const OmnaEntry* FindEntry(Bytes message) {
    if (message.size() < OMNA_HEADER || message[3] != 0)
        return nullptr;
    const auto* const found = std::find_if(std::begin(OmnaTable), std::end(OmnaTable),
                                           [&](const OmnaEntry& entry) { return entry.code == message[4]; });
    return found == std::end(OmnaTable) ? nullptr : found;
}

}  // namespace

void DispatchOmnaMsg(std::span<const std::uint8_t> message) {
    const OmnaEntry* const entry = FindEntry(message);
    char dump[DUMP_SIZE] = "";
    if (entry == nullptr || DumpIsTraced(TRACE_OMNA))
        HexDump(dump, message);
    Trace(TRACE_OMNA, "TAPI_OMNA MSG: %s", dump);
    if (entry == nullptr) {
        Trace(TRACE_ALWAYS, "Unknown TAPI-OMNA msg received: %s", dump);
        return;
    }
    const std::uint8_t version = message[2];
    if (entry->code == OMNA_DEVICE_ASSOC_ACK)
        ProviderState.TAPI_OMNA_Ver = version;
    Trace(TRACE_OMNA, entry->name, version);
    if (ProviderState.TAPI_OMNA_Ver >= entry->fromVersion)
        entry->handle(message[5], message.subspan(OMNA_HEADER));
}
