#include "tracking/model.h"

#include "platform/text.h"
#include "trace/trace.h"
#include "tracking/pending.h"
#include "tracking/steps.h"
#include "tracking/terminal.h"  // the display buffer, which DisplayLine converts

#include <algorithm>
#include <cstring>

std::array<Touch, KEY_COUNT> TouchTable;
std::array<CallRecord, CALL_COUNT> CallTable;
DWORD confstate = 0;
KeyListSet KeyLists;
TrackingState Tracking;
int PickUpSupervCref = -1;
int SwapKeyTransferingCref = -1;
std::array<int, 10> WaitInfo = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
char ConfText1[13], ConfText2[13];
char TmpAddress[NUMBER_SIZE];
char DialedNumber[NUMBER_SIZE];

namespace {

// The set's characters 0x80 to 0xFF as Windows-1252 codes; those below stand for themselves. Row R, column c: R + c.
constexpr std::uint8_t SetToWindows[128] = {
    // clang-format off
    //     +0    +1    +2    +3    +4    +5    +6    +7    +8    +9    +A    +B    +C    +D    +E    +F
    /*80*/ 0xC7, 0xFC, 0xE9, 0xE2, 0xE4, 0xE0, 0xE5, 0xE7, 0xEA, 0xEB, 0xE8, 0xEF, 0xEE, 0xEC, 0xC4, 0xC5,
    /*90*/ 0xC9, 0xE6, 0xC6, 0xF4, 0xF6, 0xF2, 0xFB, 0xF9, 0xFF, 0xD6, 0xDC, 0xF1, 0xD1, 0xAA, 0xBA, 0xBF,
    /*A0*/ 0xE1, 0xED, 0xF3, 0xFA, 0xA2, 0xA3, 0xA5, 0x52, 0x83, 0xA1, 0xC3, 0xE3, 0xD5, 0xF5, 0xD8, 0xF8,
    /*B0*/ 0xB7, 0xA8, 0xB0, 0x60, 0xB4, 0xBD, 0xBC, 0xD7, 0xF7, 0x20, 0x20, 0xAB, 0xBB, 0x20, 0x20, 0x20,
    /*C0*/ 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x52, 0x43,
    /*D0*/ 0x99, 0x86, 0xA7, 0xB6, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20,
    /*E0*/ 0xDF, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0xB5, 0x20, 0x20, 0x20, 0x20, 0x20,
    /*F0*/ 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x52, 0x20, 0x46, 0x20, 0x20, 0x20, 0x53, 0x50,
    // clang-format on
};

constexpr const char* CommandNames[] = {"",           "IBUTTON",          "DISCONNECTKEY", "DISPSUSPEND",
                                        "VMO_RING",   "CLEARALLLED",      "VMO_CHAT",      "VMO_IDLE",
                                        "MUTE",       "SENDING_COMPLETE", "CONN_DISP",     "ACTIV_ICON",
                                        "INCOM_ICON", "HOLD_ICON",        "IDLE_ICON",     "RESERVED_ICON"};

char ToWindows(char c) {
    const auto code = static_cast<unsigned char>(c);
    if (code < 32)
        return '#';
    return code < 0x80 ? c : static_cast<char>(SetToWindows[code - 0x80]);
}

void TraceDirection(const CallRecord& call) {
    Trace(TRACE_CALL, "Inbound:%x Outbound:%x byMakeCall:%x", call.Inbound, call.Outbound, call.byMakeCall);
}

// A request waits for the call of this record to show on a key.
bool IsPromised(int cref) {
    return cref == Tracking.PickUpCref || IsPutOff(cref) ||
           (RunningRequest.Code == REQUEST_SETUP_TRANSFER && cref == RunningRequest.ConsultCref);
}

// The first call that goes out while a blind transfer runs is the one to its destination.
void NoteSecondCall(int cref) {
    const bool outgoing = StateOf(cref) == LINECALLSTATE_DIALTONE || StateOf(cref) == LINECALLSTATE_RINGBACK ||
                          StateOf(cref) == LINECALLSTATE_PROCEEDING;
    if (outgoing && RunningRequest.Code == REQUEST_BLIND_TRANSFER && RunningRequest.ConsultCref == -1)
        RunningRequest.ConsultCref = cref;
}

// Before TAPI is told of the call: for a make call from within that its key is not free, nor its record.
void EnterPlacedCall(int key, int cref) {
    CallRecord& call = CallOf(cref);
    call.state = LINECALLSTATE_PROCEEDING;
    call.Outbound = 1;
    call.Inbound = 0;
    call.byMakeCall = 0;
    if (IsKey(key)) {
        auto& calls = TouchOf(key).calls;
        calls[calls[0] == -1 ? 0 : 1] = cref;
        if (calls[1] != -1) {
            Tracking.DbCall = 1;
            Tracking.SecondCallDropReq = 0;
        }
    }
}

}  // namespace

bool IsCref(int cref) {
    return cref >= 0 && cref < CALL_COUNT;
}

int AllocCallRecord(DWORD state, int key) {
    const std::size_t length = std::strlen(DialedNumber);
    if (length > 1) {
        DialedNumber[0] = DialedNumber[length - 1];
        DialedNumber[1] = 0;
    }
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (CallOf(cref).touch == 0 && !IsPromised(cref)) {
            LeaveFormerSlots(cref);
            CallOf(cref).state = state;
            CallOf(cref).touch = key;
            NoteSecondCall(cref);
            return cref;
        }
    return -1;
}

void ResetCallRecord(int cref) {
    if (!IsCref(cref))
        return;
    CallRecord& call = CallOf(cref);
    for (char* text : {call.DestAddress, call.DestName, call.CalledAddress, call.CalledName, call.CallerAddress,
                       call.CallerName, call.RedirectionAddress, call.RedirectionName, call.RedirectingAddress,
                       call.RedirectingName, call.ConnectedAddress, call.ConnectedName})
        text[0] = 0;
    call.DispNamePending = 0;
    call.Origin = LINECALLORIGIN_UNAVAIL;
    call.Reason = LINECALLREASON_UNAVAIL;
}

int SearchState(int key, DWORD state) {
    const std::int32_t kind = IsKey(key) ? TouchOf(key).kind : TOUCH_NONE;
    const auto stands = [&](std::size_t slot) {
        const int cref = TouchOf(key).calls[slot];
        return IsCref(cref) && CallOf(cref).state == state ? cref : -1;
    };
    switch (kind) {
    case TOUCH_MULTI: {
        const int first = stands(0);
        return first != -1 ? first : stands(1);
    }
    case TOUCH_PATRON:
    case TOUCH_SECRETAIRE:
    case TOUCH_SECR_DEBORD: return stands(0);
    default: Trace(TRACE_ALWAYS, "SearchState - La Touche %d n'est pas multiligne ni pat/sec!", key); return -1;
    }
}

int FindCallByState(DWORD state) {
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (CallOf(cref).state == state)
            return cref;
    return -1;
}

int CallOnKey(int key) {
    if (!IsKey(key))
        return -1;
    const auto& calls = TouchOf(key).calls;
    return calls[0] != -1 ? calls[0] : calls[1];
}

void LeaveSlot(int key, int cref) {
    if (!IsKey(key))
        return;
    auto& calls = TouchOf(key).calls;
    const auto held = std::find(calls.begin(), calls.end(), cref);
    if (held != calls.end())
        *held = -1;
}

void LeaveFormerSlots(int cref) {
    for (Touch& touch : TouchTable)
        if (touch.kind != TOUCH_SUPERV)
            std::replace(touch.calls.begin(), touch.calls.end(), cref, -1);
}

void ClearCall(int cref) {
    Trace(TRACE_CALL, "ClearCall cref %d", cref);
    if (!IsCref(cref))
        return;
    TmpAddress[0] = 0;
    Disconnect(cref);
    const int key = CallOf(cref).touch;
    if (IsKey(key)) {
        TouchOf(key).icon = IDLE_ICON;
        LeaveSlot(key, cref);
        if (key == Tracking.ActivCallTouch && CallOnKey(key) == -1)
            Tracking.ActivCallTouch = 0;
    }
    EndCall(cref, key);
}

int NewCall(int key, DWORD state) {
    const int cref = AllocCallRecord(state, key);
    if (cref == -1)
        return -1;
    const bool placed = state == LINECALLSTATE_RINGBACK || state == LINECALLSTATE_PROCEEDING;
    if (placed)
        EnterPlacedCall(key, cref);
    DoLineEventNewCall(cref);
    if (!placed)
        return cref;
    Trace(TRACE_CALL, "NewCall tou:%d RINGBACK cref:%04x", key, cref);
    static constexpr DWORD steps[] = {LINECALLSTATE_DIALTONE, LINECALLSTATE_DIALING, LINECALLSTATE_PROCEEDING,
                                      LINECALLSTATE_RINGBACK};
    for (const DWORD step : steps)
        SendCallState(cref, step);
    Trace(TRACE_CALL, "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_DIALTONE, 0, cref:%lx)", cref);
    Trace(TRACE_CALL, "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_DIALING, 0, cref:%lx)", cref);
    Trace(TRACE_CALL, "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_PROCEEDING, 0, cref:%lx)", cref);
    Trace(TRACE_CALL, "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_RINGBACK, 0, cref:%lx)", cref);
    return cref;
}

void NewState(int cref, int key, DWORD state) {
    if (!IsCref(cref) || !IsKey(key))
        return;
    CallRecord& call = CallOf(cref);
    const auto activate = [&] {
        TouchOf(key).icon = ACTIV_ICON;
        Tracking.ActivCallTouch = key;
    };
    switch (state) {
    case LINECALLSTATE_CONNECTED:
        Trace(TRACE_CALL, "NewState tou:%d - Etat:CONNECTED - Ref:%04x", key, cref);
        call.state = LINECALLSTATE_CONNECTED;
        SendCallState(cref, LINECALLSTATE_CONNECTED);
        TraceDirection(call);
        activate();
        if (cref == Tracking.PickUpCref)
            Tracking.PickUpCref = -1;
        break;
    case LINECALLSTATE_ONHOLD:
        Trace(TRACE_CALL, "NewState tou:%d - Etat:ONHOLD - Ref:%04x", key, cref);
        SendCallState(cref, LINECALLSTATE_ONHOLD);
        call.state = LINECALLSTATE_ONHOLD;
        break;
    case LINECALLSTATE_RINGBACK:
    case LINECALLSTATE_PROCEEDING: {
        const DWORD from = call.state;
        if (from == LINECALLSTATE_DIALTONE || from == LINECALLSTATE_DIALING)
            call.state = LINECALLSTATE_PROCEEDING;  // first: a make call takes the record of one at dial tone
        if (from == LINECALLSTATE_DIALTONE)
            SendCallState(cref, LINECALLSTATE_DIALING);
        if (from == LINECALLSTATE_DIALTONE || from == LINECALLSTATE_DIALING)
            SendCallState(cref, LINECALLSTATE_PROCEEDING);
        if (from == LINECALLSTATE_DIALTONE || from == LINECALLSTATE_DIALING || from == LINECALLSTATE_PROCEEDING)
            SendCallState(cref, LINECALLSTATE_RINGBACK);
        Trace(TRACE_CALL, "NewState tou:%d - Etat:PROCEEDING - Ref:%04x", key, cref);
        TraceDirection(call);
        activate();
        break;
    }
    default: break;
    }
}

void ConferenceReset() {
    Tracking.ConfInProgress = 0;
    Tracking.ConferenceReq = 0;
    Tracking.ConfParty1 = -1;
    Tracking.ConfParty2 = -1;
    std::memset(ConfText1, 0, sizeof ConfText1);
    std::memset(ConfText2, 0, sizeof ConfText2);
}

void AllCallReset() {
    // All is emptied before TAPI is told, and may call anew; until its own turn a live call keeps its record.
    std::array<DWORD, CALL_COUNT> states{};
    for (int cref = 0; cref < CALL_COUNT; ++cref) {
        states[static_cast<std::size_t>(cref)] = CallOf(cref).state;
        FreeCall(cref, 0);
        ClearDirection(cref);
    }
    for (Touch& touch : TouchTable)
        if (touch.kind == TOUCH_MULTI) {
            touch.calls = {-1, -1};
            touch.icon = IDLE_ICON;  // a key without a call that is not idle follows nothing any more
        }
    Tracking.DbCall = 0;
    Tracking.ActivCallTouch = 0;
    ConferenceReset();
    Tracking.ConfEndReq = 0;  // an end asked for before must not end the next conference
    Tracking.ConfBroken = 0;
    Tracking.SecondCallDropReq = 0;
    confstate = LINECALLSTATE_IDLE;
    for (std::size_t cref = 0; cref < states.size(); ++cref)
        if (states[cref] != 0)
            CallTable[cref].state = Kept(states[cref]);
    for (int cref = 0; cref < CALL_COUNT; ++cref) {
        if (states[static_cast<std::size_t>(cref)] == 0 || StateOf(cref) == LINECALLSTATE_IDLE)
            continue;
        CallOf(cref).state = LINECALLSTATE_IDLE;
        SendCallState(cref, LINECALLSTATE_IDLE);
        Trace(TRACE_ENTRY, "AllCallReset-DoLineEvent(LINECALLSTATE_IDLE,%d)", cref);
    }
    CompleteRunningDrop(CONF_CREF);  // its IDLE is not reported
    GiveUpDeferredMakeCall();
}

void ReportCallsLost() {
    std::array<DWORD, CALL_COUNT> states{};  // a call that TAPI makes meanwhile is not lost
    for (int cref = 0; cref < CALL_COUNT; ++cref) {
        const DWORD state = states[static_cast<std::size_t>(cref)] = CallOf(cref).state;
        CallOf(cref).state = Kept(state);
    }
    for (int cref = 0; cref < CALL_COUNT; ++cref) {
        const DWORD state = states[static_cast<std::size_t>(cref)];
        if (state == 0 || state == LINECALLSTATE_IDLE)
            continue;
        if (CallOf(cref).state == Kept(state))
            CallOf(cref).state = state;
        Trace(TRACE_ALWAYS, "Çontact rompu avec le subdevice -> Redemarrage"_cp1252);
        DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, cref);
    }
}

const char* CommandName(int code) {
    return code >= 0 && code < static_cast<int>(std::size(CommandNames)) ? CommandNames[code] : "";
}

const char* DisplayLine(int n) {
    static char line[DISPLAY_COLUMNS + 1];
    const char* raw = Display.Lines[n != 0 ? 1 : 0];
    for (int column = 0; column < DISPLAY_COLUMNS; ++column)
        line[column] = ToWindows(raw[column]);
    line[DISPLAY_COLUMNS] = 0;
    return line;
}

void GetDisplayLine(int n, char* out) {
    if (n == 0 || n == 1)
        std::memcpy(out, DisplayLine(n), DISPLAY_COLUMNS);
}

void TrimRight(char* text) {
    std::size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == ' ')
        text[--length] = 0;
}

char* CleanLabel(char* text) {
    while (*text == ' ')
        ++text;
    if (*text != 0)
        for (char* c = text + 1; *c != 0; ++c)
            *c = ToWindows(*c);
    TrimRight(text);
    return text;
}
