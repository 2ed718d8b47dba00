#include "devices/call_status.h"

#include "config/settings.h"
#include "control/forward.h"
#include "devices/entry.h"
#include "devices/line.h"
#include "link/serial.h"
#include "trace/trace.h"
#include "tracking/counts.h"
#include "tracking/events.h"
#include "tracking/steps.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

const char* Either(const char* first, const char* second) {
    return Filled(first) ? first : second;
}

DWORD NarrowLength(const char* text) {
    return static_cast<DWORD>(std::strlen(text));
}

// 0 when a structure of the caller's has room for its fixed part; else nothing may be written.
template <class Structure> LONG CheckRoom(const Structure* structure, DWORD fixedPart) {
    if (structure == nullptr)
        return Error(LINEERR_INVALPOINTER);
    return structure->dwTotalSize < fixedPart ? Error(LINEERR_STRUCTURETOOSMALL) : 0;
}

bool AnyCall(DWORD state) {
    return FindCallByState(state) != -1;
}

// --- lineGetCallInfo -------------------------------------------------------------------------------------------------

constexpr DWORD PartyFlags(bool address, bool name) {
    return (address ? LINECALLPARTYID_ADDRESS : 0) | (name ? LINECALLPARTYID_NAME : 0);
}

// The flags of a party that may be unknown altogether.
DWORD FlagsOf(const char* address, const char* name) {
    const DWORD flags = PartyFlags(Filled(address), Filled(name));
    return flags != 0 ? flags : LINECALLPARTYID_PARTIAL;
}

// Places a text in the variable part. One that does not fit is only counted as needed, and so are all later ones.
bool Place(LINECALLINFO& info, const char* text, DWORD& sizeField, DWORD& offsetField) {
    const WideText wide(text);
    info.dwNeededSize += wide.Size;
    if (info.dwNeededSize > info.dwTotalSize)
        return false;
    CopyBytes(&info, info.dwUsedSize, wide.Text, wide.Size);
    sizeField = wide.Size;
    offsetField = info.dwUsedSize;
    info.dwUsedSize = info.dwNeededSize;
    return true;
}

// The same, only for a text that is not empty, traced. correction: added to the size that the trace line shows.
void PlaceFilled(LINECALLINFO& info, const char* text, DWORD& sizeField, DWORD& offsetField, std::uint32_t level,
                 const char* trace, int correction = 0) {
    if (!Filled(text))
        return;
    Trace(level, trace, text, static_cast<int>(WideSize(text)) + correction);
    Place(info, text, sizeField, offsetField);
}

struct ConnectedTraces {
    const char* Address;
    const char* Name;
};
constexpr ConnectedTraces EventTraces = {"v2 ConnectedAddress:'%s' lg %d", "v2 ConnectedName:'%s' lg %d"};
constexpr ConnectedTraces DisplayTraces = {"copie connected addr '%s'", "copie connected name '%s'"};

// The connected party of a call in conversation. An empty text of a call placed from here is a lone terminator, one of
// a received call is left out.
void PlaceConnected(LINECALLINFO& info, const CallRecord& call, const ConnectedTraces& traces) {
    if (call.state != LINECALLSTATE_CONNECTED)
        return;
    const auto place = [&](const char* text, DWORD& sizeField, DWORD& offsetField, const char* trace) {
        if ((call.Inbound == 0 || Filled(text)) && Place(info, text, sizeField, offsetField))
            Trace(TRACE_CALL, trace, text, WideSize(text));
    };
    place(call.ConnectedAddress, info.dwConnectedIDSize, info.dwConnectedIDOffset, traces.Address);
    place(call.ConnectedName, info.dwConnectedIDNameSize, info.dwConnectedIDNameOffset, traces.Name);
    info.dwConnectedIDFlags = FlagsOf(call.ConnectedAddress, call.ConnectedName);
}

// What every answer holds, the conference's too.
void FillCommon(LINECALLINFO& info) {
    info.dwLineDeviceID = ProviderState.LineDeviceID;
    info.dwBearerMode = LINEBEARERMODE_VOICE;
    info.dwMediaMode = ProviderState.MediaMode;
    info.dwAppSpecific = ProviderState.AppSpecific;
    info.dwCallParamFlags = LINECALLPARAMFLAGS_IDLE | LINECALLPARAMFLAGS_BLOCKID;
    info.dwCallStates = LINE_CALL_STATES;
    info.DialParams = ProviderState.DialParams;
}

void StartCall(LINECALLINFO& info) {
    FillCommon(info);
    info.dwCallerIDFlags = 0;
    info.dwCalledIDFlags = 0;
    info.dwConnectedIDFlags = 0;
    info.dwRedirectionIDFlags = 0;
    info.dwRedirectingIDFlags = 0;
    info.dwUsedSize = info.dwNeededSize = CALLINFO_FIXED;
}

LONG ConferenceInfo(LINECALLINFO* info) {
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetCallInfo cref:CONFREF ");
    if (const LONG error = CheckRoom(info, CALLINFO_FIXED))
        return error;
    info->dwOrigin = LINECALLORIGIN_CONFERENCE;
    info->dwReason = LINECALLREASON_UNAVAIL;
    FillCommon(*info);
    return 0;
}

void EventOutgoing(LINECALLINFO& info, const CallRecord& call) {
    if (Filled(call.CalledAddress))
        Trace(TRACE_ENTRY, "v2 CalledAdd:'%s' lg %d", call.CalledAddress, WideSize(call.CalledAddress));
    Place(info, Either(call.CalledAddress, call.DestAddress), info.dwCalledIDSize, info.dwCalledIDOffset);
    if (Filled(call.CalledName))
        Trace(TRACE_ENTRY, "v2 CalledName:'%s' lg %d ", call.CalledName, WideSize(call.CalledName));
    Place(info, Either(call.CalledName, call.DestName), info.dwCalledIDNameSize, info.dwCalledIDNameOffset);
    PlaceConnected(info, call, EventTraces);
    if (Filled(call.RedirectionAddress)) {
        PlaceFilled(info, call.RedirectionAddress, info.dwRedirectionIDSize, info.dwRedirectionIDOffset, TRACE_CALL,
                    "RedirectionAddress:'%s' lg %d", -1);
        PlaceFilled(info, call.RedirectionName, info.dwRedirectionIDNameSize, info.dwRedirectionIDNameOffset,
                    TRACE_CALL, "RedirectionName:'%s' lg %d", -1);
        info.dwRedirectionIDFlags = PartyFlags(true, Filled(call.RedirectionName));
    }
    info.dwOrigin = LINECALLORIGIN_OUTBOUND;
    info.dwReason = LINECALLREASON_UNAVAIL;
    info.dwCalledIDFlags = PartyFlags(Filled(Either(call.CalledAddress, call.DestAddress)),
                                      Filled(Either(call.CalledName, call.DestName)));
    Trace(TRACE_CALL, " dwCalledIDFlags %lx dwConnectedIDFlags %lx", info.dwCalledIDFlags, info.dwConnectedIDFlags);
}

void PlaceCaller(LINECALLINFO& info, const CallRecord& call) {
    const char* const address = Either(call.CallerAddress, call.DestAddress);
    if (Filled(call.CallerAddress)) {
        const WideText wide(address);
        Trace(TRACE_ENTRY, "v2 CallerAdd:'%s' lg %d", address, wide.Size);
        Trace(TRACE_ENTRY, "CallerAdd:  Used %lx Needed %lx Total %lx", CALLINFO_FIXED, CALLINFO_FIXED + wide.Size,
              info.dwTotalSize);
        Trace(TRACE_ENTRY, "v2 CallerAdd:Wide '%S' lg %d", wide.Text, wide.Size);
    }
    Place(info, address, info.dwCallerIDSize, info.dwCallerIDOffset);
    if (Filled(call.CallerName))
        Trace(TRACE_ENTRY, "v2 CallerName:'%s' lg %d ", call.CallerName, WideSize(call.CallerName));
    const char* const name = Either(call.CallerName, call.DestName);
    Place(info, name, info.dwCallerIDNameSize, info.dwCallerIDNameOffset);
    info.dwCallerIDFlags = PartyFlags(Filled(address), Filled(name));
}

// The reason, as far as it is told; a forwarded call brings the party that forwarded it.
void PlaceReason(LINECALLINFO& info, const CallRecord& call) {
    switch (call.Reason) {
    case LINECALLREASON_FWDBUSY:
    case LINECALLREASON_FWDNOANSWER:
    case LINECALLREASON_FWDUNCOND:
        PlaceFilled(info, call.RedirectingAddress, info.dwRedirectingIDSize, info.dwRedirectingIDOffset, TRACE_CALL,
                    "RedirectingAddress:'%s' lg %d", -1);
        PlaceFilled(info, call.RedirectingName, info.dwRedirectingIDNameSize, info.dwRedirectingIDNameOffset,
                    TRACE_CALL, "RedirectingName:'%s' lg %d", -1);
        info.dwRedirectingIDFlags = PartyFlags(true, Filled(call.RedirectingName));
        [[fallthrough]];
    case LINECALLREASON_DIRECT:
    case LINECALLREASON_PICKUP: info.dwReason = call.Reason; break;
    default: info.dwReason = LINECALLREASON_UNAVAIL; break;
    }
}

void EventIncoming(LINECALLINFO& info, const CallRecord& call) {
    PlaceCaller(info, call);
    PlaceFilled(info, call.CalledAddress, info.dwCalledIDSize, info.dwCalledIDOffset, TRACE_ENTRY,
                "v2 CalledAdd:'%s' lg %d");
    PlaceFilled(info, call.CalledName, info.dwCalledIDNameSize, info.dwCalledIDNameOffset, TRACE_ENTRY,
                "v2 CalledName:'%s' lg %d ");
    info.dwCalledIDFlags = PartyFlags(Filled(call.CalledAddress), Filled(call.CalledName));
    PlaceConnected(info, call, EventTraces);
    info.dwOrigin = call.Origin;
    PlaceReason(info, call);
    Trace(TRACE_CALL, "CallerIDFlags %lx CalledIDFlags %lx Origin %lx Reason %lx", info.dwCallerIDFlags,
          info.dwCalledIDFlags, info.dwOrigin, info.dwReason);
}

// Variant 2: the parties of the PBX's events, and of the display where those are missing.
LONG InfoFromEvents(HDRVCALL hdCall, LINECALLINFO* info) {
    const int cref = HdCallToCref(hdCall);
    if (cref == CONF_CREF)
        return ConferenceInfo(info);
    if (!IsCref(cref))
        return Error(LINEERR_INVALCALLHANDLE);
    const CallRecord& call = CallOf(cref);
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetCallInfo cref:%d hdCall:%ld", cref, hdCall);
    Trace(TRACE_ENTRY, "callState %lx DestAddress:'%s' - DestName:'%s'", call.state, call.DestAddress, call.DestName);
    if (const LONG error = CheckRoom(info, CALLINFO_FIXED))
        return error;
    StartCall(*info);
    if (call.Inbound == 0)
        EventOutgoing(*info, call);
    else
        EventIncoming(*info, call);
    return 0;
}

void DisplayOutgoing(LINECALLINFO& info, const CallRecord& call) {
    Place(info, call.DestAddress, info.dwCalledIDSize, info.dwCalledIDOffset);
    Place(info, call.DestName, info.dwCalledIDNameSize, info.dwCalledIDNameOffset);
    PlaceConnected(info, call, DisplayTraces);
    info.dwOrigin = LINECALLORIGIN_OUTBOUND;
    info.dwReason = LINECALLREASON_UNAVAIL;
    info.dwCalledIDFlags = FlagsOf(call.DestAddress, call.DestName);
    Trace(TRACE_CALL, " dwCalledIDFlags %lx dwConnectedIDFlags %lx", info.dwCalledIDFlags, info.dwConnectedIDFlags);
}

void DisplayIncoming(LINECALLINFO& info, const CallRecord& call) {
    Place(info, call.DestAddress, info.dwCallerIDSize, info.dwCallerIDOffset);
    Place(info, call.DestName, info.dwCallerIDNameSize, info.dwCallerIDNameOffset);
    PlaceConnected(info, call, DisplayTraces);
    info.dwOrigin = call.Origin;
    info.dwReason = LINECALLREASON_UNAVAIL;
    info.dwCallerIDFlags = FlagsOf(call.DestAddress, call.DestName);
    if (DynamicConfig.StaticConfig == 0 && IsKey(call.touch)) {  // the key's label is its directory number
        const char* const label = TouchOf(call.touch).label;
        Trace(TRACE_CALL, "In Called '%s' cbCalledMCDU %d", label, WideSize(label));
        const bool placed = Place(info, label, info.dwCalledIDSize, info.dwCalledIDOffset);
        info.dwCalledIDFlags = placed ? LINECALLPARTYID_ADDRESS : LINECALLPARTYID_PARTIAL;
    }
    Trace(TRACE_CALL, " dwCallerIDFlags %lx dwConnectedIDFlags %lx", info.dwCallerIDFlags, info.dwConnectedIDFlags);
}

// Variant 1: the display is the only source.
LONG InfoFromDisplay(HDRVCALL hdCall, LINECALLINFO* info) {
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Error(LINEERR_INVALCALLHANDLE);
    const CallRecord& call = CallOf(cref);
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetCallInfo cref:%d hdCall:%ld", cref, hdCall);
    Trace(TRACE_ENTRY, "callState %ld DestAddress:'%s' - DestName:'%s'", call.state, call.DestAddress, call.DestName);
    if (const LONG error = CheckRoom(info, CALLINFO_FIXED))
        return error;
    StartCall(*info);
    if (call.Inbound == 0)
        DisplayOutgoing(*info, call);
    else
        DisplayIncoming(*info, call);
    return 0;
}

// --- lineGetCallStatus -----------------------------------------------------------------------------------------------

bool AllIdle() {
    return std::all_of(CallTable.begin(), CallTable.end(),
                       [](const CallRecord& call) { return call.state == LINECALLSTATE_IDLE; });
}

bool AnyHeld() {
    return AnyCall(LINECALLSTATE_ONHOLD) || AnyCall(LINECALLSTATE_ONHOLDPENDTRANSFER);
}

DWORD ConnectedFeatures(const CallRecord& call) {
    constexpr DWORD ALWAYS =
        LINECALLFEATURE_DROP | LINECALLFEATURE_GENERATEDIGITS | LINECALLFEATURE_HOLD | LINECALLFEATURE_SETUPTRANSFER;
    if (AnyCall(LINECALLSTATE_PROCEEDING))
        return 0;
    if (!AnyHeld())
        return ALWAYS | LINECALLFEATURE_BLINDTRANSFER;
    const bool doubleCall = Settings.EnquiryCallMode == 1 && HoldsTwoCalls(call.touch);
    return ALWAYS | LINECALLFEATURE_COMPLETETRANSF | LINECALLFEATURE_DIAL |
           (doubleCall ? 0 : LINECALLFEATURE_BLINDTRANSFER);
}

DWORD HeldFeatures() {
    if (AnyCall(LINECALLSTATE_PROCEEDING))
        return LINECALLFEATURE_COMPLETETRANSF;
    return LINECALLFEATURE_UNHOLD | (AnyCall(LINECALLSTATE_CONNECTED) ? LINECALLFEATURE_COMPLETETRANSF : 0);
}

// What can be done with a call; 0: nothing is told, the field stays as it came.
DWORD CallFeatures(const CallRecord& call) {
    switch (call.state) {
    case LINECALLSTATE_IDLE:
    case LINECALLSTATE_UNKNOWN: return AllIdle() ? LINECALLFEATURE_DIAL : 0;
    case LINECALLSTATE_OFFERING:
    case STATE_REOFFERING: return AnyCall(LINECALLSTATE_PROCEEDING) ? 0 : LINECALLFEATURE_ANSWER;
    case LINECALLSTATE_DIALTONE:
    case LINECALLSTATE_DIALING: return LINECALLFEATURE_DIAL | LINECALLFEATURE_DROP;
    case LINECALLSTATE_RINGBACK:
    case LINECALLSTATE_PROCEEDING: return LINECALLFEATURE_DROP | (AnyHeld() ? LINECALLFEATURE_COMPLETETRANSF : 0);
    case LINECALLSTATE_CONNECTED: return ConnectedFeatures(call);
    case LINECALLSTATE_ONHOLD:
    case LINECALLSTATE_ONHOLDPENDTRANSFER: return HeldFeatures();
    case LINECALLSTATE_CONFERENCED: return LINECALLFEATURE_DROP | LINECALLFEATURE_REMOVEFROMCONF;
    case LINECALLSTATE_DISCONNECTED: return LINECALLFEATURE_DROP;
    default: return 0;
    }
}

// The state as TAPI has been told it.
DWORD ReportedState(DWORD stored) {
    switch (stored) {
    case STATE_REOFFERING: return LINECALLSTATE_OFFERING;
    case LINECALLSTATE_PROCEEDING: return LINECALLSTATE_RINGBACK;
    default: return stored;
    }
}

// --- address and line ------------------------------------------------------------------------------------------------

CallCountsRecord TracedCounts() {
    const CallCountsRecord counts = CallCounts();
    Trace(TRACE_ENTRY, "NumCalls %d connected %d OnHold %d OnHoldPend %d Reoffer %d", counts.InUse, counts.Connected,
          counts.OnHold, counts.OnHoldPending, counts.Reoffering);
    return counts;
}

bool InService() {
    return Serial.Port != INVALID_HANDLE_VALUE && ProviderState.DeviceState == DEVICE_IN_SERVICE;
}

// What the line can do now: everything without a live call, a further call beside ones that stand still, else nothing.
DWORD Features(const CallCountsRecord& counts, DWORD whenFree, DWORD besideCalls) {
    if (!InService())
        return 0;
    if (counts.Live() == 0)
        return whenFree;
    const bool inTransition =
        AnyCall(LINECALLSTATE_PROCEEDING) || AnyCall(LINECALLSTATE_CONFERENCED) || AnyCall(LINECALLSTATE_DISCONNECTED);
    return inTransition ? 0 : besideCalls;
}

template <class Status> void FillCounts(Status& status, const CallCountsRecord& counts) {
    status.dwNumActiveCalls = static_cast<DWORD>(counts.Active());
    status.dwNumOnHoldCalls = static_cast<DWORD>(counts.OnHold);
    status.dwNumOnHoldPendCalls = static_cast<DWORD>(counts.OnHoldPending);
}

// The one forwarding of the line, behind the fixed part, when there is one and it fits.
void PlaceForward(LINEADDRESSSTATUS& status) {
    const std::size_t mode = ProviderState.FwdStatus;
    status.dwForwardNumEntries = 0;
    status.dwForwardSize = 0;
    status.dwForwardOffset = 0;
    if (mode == FWD_NOT_FORWARDED)
        return;
    const WideText destination(ProviderState.ForwardDestination);
    status.dwNeededSize = ADDRESSSTATUS_FIXED + FORWARD_FIXED + destination.Size;
    if (status.dwTotalSize < status.dwNeededSize)
        return;
    status.dwUsedSize = status.dwNeededSize;
    status.dwForwardNumEntries = 1;
    status.dwForwardSize = FORWARD_FIXED + destination.Size;
    status.dwForwardOffset = ADDRESSSTATUS_FIXED;
    Trace(TRACE_CONFIG, "size LF %lx LA %lx RCA %x cbRedirectAddr %x", FORWARD_FIXED, ADDRESSSTATUS_FIXED,
          NarrowLength(ProviderState.ForwardDestination), destination.Size);
    Trace(TRACE_CONFIG, "Fwd status %d dwForwardSize %lx", ProviderState.FwdStatus, status.dwForwardSize);
    constexpr DWORD DESTINATION_OFFSET = ADDRESSSTATUS_FIXED + FORWARD_FIXED;
    // A LINEFORWARD: mode, the caller's address (size and offset), country code, the destination (size and offset).
    const DWORD forward[] = {
        mode < ForwardingModes.size() ? ForwardingModes[mode].Mode : 0, 0, 0, 0, destination.Size, DESTINATION_OFFSET};
    static_assert(sizeof forward == FORWARD_FIXED);
    CopyBytes(&status, ADDRESSSTATUS_FIXED, forward, FORWARD_FIXED);
    CopyBytes(&status, DESTINATION_OFFSET, destination.Text, destination.Size);
}

LONG CallStatus(HDRVCALL hdCall, LINECALLSTATUS* status) {
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref) && cref != CONF_CREF)
        return Error(LINEERR_INVALCALLHANDLE);
    if (const LONG error = CheckRoom(status, CALLSTATUS_FIXED))
        return error;
    if (cref == CONF_CREF) {
        status->dwCallState = confstate;
        status->dwCallFeatures = LINECALLFEATURE_DROP;
        return 0;
    }
    const CallRecord& call = CallOf(cref);
    status->dwCallState = ReportedState(call.state);
    if (call.state == LINECALLSTATE_DIALTONE)
        status->dwCallStateMode = LINEDIALTONEMODE_UNAVAIL;
    else if (call.state == LINECALLSTATE_BUSY)
        status->dwCallStateMode = LINEBUSYMODE_UNAVAIL;
    if (const DWORD features = CallFeatures(call))
        status->dwCallFeatures = features;
    return 0;
}

}  // namespace

LONG WINAPI TSPI_lineGetCallInfo(HDRVCALL hdCall, LPLINECALLINFO lpCallInfo) {
    WaitLineMutex();
    const bool displayOnly = ProviderState.TAPI_OMNA_Ver == 1 || ProviderState.ProtocolLevel == 1;
    return ReleaseLineMutex(displayOnly ? InfoFromDisplay(hdCall, lpCallInfo) : InfoFromEvents(hdCall, lpCallInfo));
}

LONG WINAPI TSPI_lineGetCallStatus(HDRVCALL hdCall, LPLINECALLSTATUS lpCallStatus) {
    WaitLineMutex();
    return ReleaseLineMutex(CallStatus(hdCall, lpCallStatus));
}

LONG WINAPI TSPI_lineGetAddressStatus(HDRVLINE hdLine, DWORD dwAddressID, LPLINEADDRESSSTATUS lpAddressStatus) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetAddressStatus(%lx,%lx,%lx)", hdLine, dwAddressID, lpAddressStatus);
    if (dwAddressID != 0)
        return Refuse(LINEERR_INVALADDRESSID);
    if (const LONG error = CheckRoom(lpAddressStatus, ADDRESSSTATUS_FIXED))
        return ReleaseLineMutex(error);
    LINEADDRESSSTATUS& status = *lpAddressStatus;
    status.dwNeededSize = status.dwUsedSize = ADDRESSSTATUS_FIXED;
    const CallCountsRecord counts = TracedCounts();
    status.dwNumInUse = 1;
    FillCounts(status, counts);
    status.dwNumRingsNoAnswer = 4;
    status.dwTerminalModesSize = status.dwTerminalModesOffset = 0;
    status.dwDevSpecificSize = status.dwDevSpecificOffset = 0;
    status.dwAddressFeatures = Features(
        counts, LINEADDRFEATURE_FORWARD | LINEADDRFEATURE_MAKECALL | LINEADDRFEATURE_PICKUP, LINEADDRFEATURE_MAKECALL);
    PlaceForward(status);
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineGetLineDevStatus(HDRVLINE hdLine, LPLINEDEVSTATUS lpLineDevStatus) {
    WaitLineMutex();
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    if (const LONG error = CheckRoom(lpLineDevStatus, DEVSTATUS_FIXED))
        return ReleaseLineMutex(error);
    LINEDEVSTATUS& status = *lpLineDevStatus;
    status.dwNeededSize = status.dwUsedSize = DEVSTATUS_FIXED;
    status.dwRoamMode = LINEROAMMODE_UNAVAIL;
    const CallCountsRecord counts = TracedCounts();
    FillCounts(status, counts);
    status.dwLineFeatures = Features(counts, LINEFEATURE_FORWARD | LINEFEATURE_MAKECALL, LINEFEATURE_MAKECALL);
    status.dwDevStatusFlags = InService() ? LINEDEVSTATUSFLAGS_CONNECTED | LINEDEVSTATUSFLAGS_INSERVICE : 0;
    status.dwNumCallCompletions = ProviderState.PendingRequestID != 0 ? 1 : 0;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineGetCallAddressID(HDRVCALL hdCall, LPDWORD lpdwAddressID) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetCallAddressID(%lx,%lx)", hdCall, lpdwAddressID);
    if (!IsCref(HdCallToCref(hdCall)))
        return Refuse(LINEERR_INVALCALLHANDLE);
    if (lpdwAddressID == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    *lpdwAddressID = 0;
    return ReleaseLineMutex(0);
}
