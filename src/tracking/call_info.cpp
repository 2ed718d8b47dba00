#include "tracking/call_info.h"

#include "config/settings.h"
#include "link/payload.h"
#include "platform/copy_text.h"
#include "trace/trace.h"
#include "tracking/pending.h"
#include "tracking/steps.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t TEXT_SIZE = 40;  // a received text, terminated; what is longer is cut

// A party as an event carries it: length of the number, flags, number, length of the name, name.
struct Party {
    int NumberLength = 0, NameLength = 0;  // as received, also where the text was cut
    std::uint8_t Flags = 0;
    char Number[TEXT_SIZE] = {}, Name[TEXT_SIZE] = {};

    int OriginCode() const { return Flags & 0x0F; }
    bool Internal() const { return OriginCode() == 1; }
    bool External() const { return OriginCode() == 2; }
    bool WithoutOperator() const { return (Flags & 0x40) != 0; }  // the operator's prefix is not to be added
    int WithoutPrefix() const { return Flags & 0x80; }            // traced as it stands: 0 or 128
};

Party TakeParty(PayloadCursor& cursor) {
    Party party;
    party.NumberLength = cursor.Byte();
    party.Flags = cursor.Byte();
    cursor.Text(static_cast<std::size_t>(party.NumberLength), party.Number);
    party.NameLength = cursor.Byte();
    cursor.Text(static_cast<std::size_t>(party.NameLength), party.Name);
    return party;
}

// An event of one party: key, reason code, party.
struct PartyEvent {
    int Key, Reason;
    Party Remote;
};

PartyEvent TakePartyEvent(PayloadCursor& cursor) {
    const int key = cursor.Byte();
    const int reason = cursor.Byte();
    return {key, reason, TakeParty(cursor)};
}

// Whether the message ended too early; such a one is dropped before it changes anything.
bool CutOff(const PayloadCursor& cursor, const char* event) {
    if (cursor.bad)
        Trace(TRACE_ALWAYS, "%s runs past its message - dropped", event);
    return cursor.bad;
}

bool Same(const char* a, const char* b) {
    return std::strcmp(a, b) == 0;
}

bool IsSupervised(int key) {
    return IsKey(key) && TouchOf(key).kind == TOUCH_SUPERV;
}

// Stores a text; gives the change to report when it is a new one, else 0.
template <std::size_t N> DWORD Store(char (&field)[N], const char* text, DWORD change) {
    if (Same(field, text))
        return 0;
    CopyText(field, text);
    return change;
}

DWORD StoreOrigin(CallRecord& call, const Party& party) {
    DWORD origin = call.Origin;
    if (party.Internal())
        origin = LINECALLORIGIN_INTERNAL;
    else if (party.External())
        origin = LINECALLORIGIN_EXTERNAL;
    return std::exchange(call.Origin, origin) != origin ? LINECALLINFOSTATE_ORIGIN : 0;
}

// A number put together from prefixes and what was received: 77 characters at most.
struct Number {
    char Text[NUMBER_SIZE] = {};

    void Append(const char* more) {
        const std::size_t length = std::strlen(Text);
        CopyText(Text + length, NUMBER_SIZE - length, more);
    }
};

struct RewritingTraces {
    const char* PrefixFound;
    const char* PrefixAdded;
    const char* OperatorAdded;
};
constexpr RewritingTraces IncomingTraces = {"ICI EXTERNAL prefix '%s' trouve", nullptr,
                                            "ICI EXT jonct entrant: rajout prefix operateur '%s'"};
constexpr RewritingTraces ConnectedTraces = {"CCI EXTERNAL prefix '%s' trouve",
                                             "CCI EXT appel initial sortant: rajout prefix de prise ext '%s'",
                                             "CCI EXT jonct entrant: rajout prefix operateur '%s'"};

// The number by which an external party can be dialled; any other as received. placed: the call went out from the set.
Number Rewritten(const Party& party, bool placed, const RewritingTraces& traces) {
    const char* const prefix = Settings.ExtPrefix;
    const char* const publicOperator = Settings.PublicOperator;
    const char* received = party.Number;
    Number number;
    if (party.External() && party.WithoutPrefix() == 0) {
        const std::size_t length = std::strlen(prefix);
        if (length != 0 && std::strncmp(received, prefix, length) == 0) {
            Trace(TRACE_CALL, traces.PrefixFound, prefix);
            received += length;
        }
    } else if (party.External()) {
        if (placed) {
            Trace(TRACE_CALL, traces.PrefixAdded, prefix);
            number.Append(prefix);
        }
        if (!party.WithoutOperator() && Filled(publicOperator)) {
            Trace(TRACE_CALL, traces.OperatorAdded, publicOperator);
            number.Append(publicOperator);
        }
    }
    number.Append(received);
    return number;
}

// --- incoming --------------------------------------------------------------------------------------------------------

struct ReasonEntry {
    DWORD Reason;
    DWORD Change;  // reported with every message
};
constexpr DWORD FORWARDED = LINECALLINFOSTATE_REASON | LINECALLINFOSTATE_REDIRECTINGID;
// By reason code; all higher ones are as the last.
constexpr ReasonEntry Reasons[] = {
    {LINECALLREASON_DIRECT, LINECALLINFOSTATE_REASON},
    {LINECALLREASON_FWDBUSY, FORWARDED},
    {LINECALLREASON_FWDNOANSWER, FORWARDED},
    {LINECALLREASON_FWDUNCOND, FORWARDED},
    {LINECALLREASON_PICKUP, LINECALLINFOSTATE_REASON},
    {LINECALLREASON_UNPARK, 0},
    {LINECALLREASON_REDIRECT, 0},
    {LINECALLREASON_CALLCOMPLETION, 0},
    {LINECALLREASON_TRANSFER, 0},
    {LINECALLREASON_REMINDER, 0},
    {LINECALLREASON_UNKNOWN, 0},
    {LINECALLREASON_UNAVAIL, 0},
};

// The supervised set rings anew while its last call is still shown: that one is over.
void ReleaseSupervisedCall(int key, int cref) {
    Trace(TRACE_ENTRY, "ICI tou %d Superv cref %04x deja en sonnerie => lib ", key, cref);
    Disconnect(cref);
    Trace(TRACE_CALL, "Icone:%d Ref:%04x- Etat:DISCONNECTED -", key, cref);
    TouchOf(key).icon = IDLE_ICON;
    EndCall(cref, key);
    Trace(TRACE_CALL, "Icone:%d Ref:%04x- Etat:IDLE -", key, cref);
}

int OfferSupervisedCall(int key) {
    Trace(TRACE_ENTRY, "ICI tou %d Superv new call", key);
    const int cref = AllocCallRecord(LINECALLSTATE_OFFERING, key);
    if (!IsCref(cref))
        return -1;
    TouchOf(key).calls = {cref, -1};
    DoLineEventNewCall(cref);
    CallOf(cref).byMakeCall = 0;
    CallOf(cref).Inbound = 1;
    TouchOf(key).icon = INCOM_ICON;
    SendCallState(cref, LINECALLSTATE_OFFERING);
    return cref;
}

// The call that a message for a supervision key is about, given the one that stands in its slot; -1 when there is no
// room for it. A call that was intercepted stands on another key by now.
int SupervisedCall(int key, int shown) {
    const CallRecord& call = CallOf(shown);
    if (call.state == LINECALLSTATE_OFFERING && Filled(call.CalledAddress)) {
        ReleaseSupervisedCall(key, shown);
        return OfferSupervisedCall(key);
    }
    return call.touch == key ? shown : OfferSupervisedCall(key);
}

DWORD StoreIncoming(CallRecord& call, int key, const Party& caller, const Party& called) {
    DWORD changes = 0;
    if (caller.NumberLength != 0) {
        changes |= StoreOrigin(call, caller);
        changes |= Store(call.CallerAddress, Rewritten(caller, false, IncomingTraces).Text, LINECALLINFOSTATE_CALLERID);
    }
    if (caller.NameLength != 0)
        changes |= Store(call.CallerName, caller.Name, LINECALLINFOSTATE_CALLERID);
    if (called.NumberLength != 0)
        changes |= Store(call.CalledAddress, called.Number, LINECALLINFOSTATE_CALLEDID);
    if (called.NameLength != 0)
        changes |= Store(call.CalledName, called.Name, LINECALLINFOSTATE_CALLEDID);
    if (called.NumberLength == 0 && !Filled(call.CalledAddress) && IsSupervised(key)) {
        CopyText(call.CalledAddress, TouchOf(key).label);
        changes |= LINECALLINFOSTATE_CALLEDID;
    }
    return changes;
}

DWORD StoreReason(CallRecord& call, int code, const Party& called) {
    const ReasonEntry& entry = Reasons[std::min<std::size_t>(static_cast<std::size_t>(code), std::size(Reasons) - 1)];
    call.Reason = entry.Reason;
    if ((entry.Change & LINECALLINFOSTATE_REDIRECTINGID) != 0) {
        CopyText(call.RedirectingAddress, called.Number);
        CopyText(call.RedirectingName, called.Name);
    }
    return entry.Change;
}

// --- outgoing --------------------------------------------------------------------------------------------------------

// The call that is being placed on a key, moved or created as the event proves; -1 when there is none.
int PlacedCall(int key) {
    // Key 0 and numbers beyond the set's carry no calls.
    if (key != 0 && IsKey(key) && CallOnKey(key) == -1) {
        const int cref = NewCall(key, LINECALLSTATE_RINGBACK);
        if (IsCref(cref))
            Marks.MakeCallWatch = {true, 0};
        return cref;
    }
    int cref = SearchState(key, LINECALLSTATE_PROCEEDING);
    if (cref != -1) {
        Trace(TRACE_ENTRY, "OCI cref %04x proceeding trouve sur tou %d", cref, key);
        return cref;
    }
    cref = SearchState(key, LINECALLSTATE_DIALTONE);
    if (cref != -1) {
        Trace(TRACE_ENTRY, "OCI cref %04x Dialtone => Proceeding sur tou %d", cref, key);
        NewState(cref, key, LINECALLSTATE_RINGBACK);
        return cref;
    }
    cref = HoldsTwoCalls(key) ? -1 : SearchState(key, LINECALLSTATE_CONNECTED);
    if (cref != -1) {
        Trace(TRACE_CALL, "OCI on connected call => new db appel");
        NewState(cref, key, LINECALLSTATE_ONHOLD);
        return NewCall(key, LINECALLSTATE_RINGBACK);
    }
    Trace(TRACE_ENTRY, "OCI Pas d'appel depart en cours sur touche %d", key);
    return -1;
}

DWORD StoreCalled(CallRecord& call, const Party& called) {
    // What the user dialled says more than what the PBX made of it.
    if (!Filled(call.CalledAddress) && called.External() && Filled(DialedNumber)) {
        CopyText(call.CalledAddress, DialedNumber);
        Trace(TRACE_CALL, "OCI   DialedNumber '%s'", DialedNumber);
        DialedNumber[0] = 0;
        return LINECALLINFOSTATE_CALLEDID;
    }
    if (called.NumberLength == 0)
        return 0;
    Number number;
    if (called.External() && called.WithoutPrefix() != 0) {
        Trace(TRACE_CALL, "OCI rajout prefixe ext");
        number.Append(Settings.ExtPrefix);
    }
    number.Append(called.Number);
    DialedNumber[0] = 0;
    if (!Filled(call.CalledAddress)) {
        CopyText(call.CalledAddress, number.Text);
        CopyText(call.CalledName, called.Name);
        return LINECALLINFOSTATE_CALLEDID;
    }
    if (!Same(call.CalledAddress, number.Text)) {  // the call was diverted
        CopyText(call.RedirectionAddress, number.Text);
        CopyText(call.RedirectionName, called.Name);
        return LINECALLINFOSTATE_REDIRECTIONID;
    }
    return called.NameLength != 0 ? Store(call.CalledName, called.Name, LINECALLINFOSTATE_CALLEDID) : 0;
}

// --- connected -------------------------------------------------------------------------------------------------------

struct AnsweredState {
    DWORD State;
    bool SparedByDrop;  // not taken while the second call of its key is being dropped
    const char* TraceText;
};
constexpr AnsweredState AnsweredStates[] = {
    {LINECALLSTATE_PROCEEDING, true, "CCI cref %04x Proceeding => Conv sur tou %d"},
    {LINECALLSTATE_ONHOLD, true, "CCI cref %04x Onhold => Conv sur tou %d"},
    {LINECALLSTATE_DISCONNECTED, false, "CCI cref %04x Disconnected => Conv sur tou %d"},
};

// The call in conversation on a key, or the one that the event proves to be; -1 when there is none.
int AnsweredCall(int key) {
    const int connected = SearchState(key, LINECALLSTATE_CONNECTED);
    if (connected != -1) {
        Trace(TRACE_ENTRY, "CCI cref %04x connected trouve sur tou %d", connected, key);
        return connected;
    }
    const bool dropping = Tracking.DbCall != 0 && Tracking.SecondCallDropReq != 0;
    for (const AnsweredState& candidate : AnsweredStates) {
        if (candidate.SparedByDrop && dropping)
            continue;
        const int cref = SearchState(key, candidate.State);
        if (cref == -1)
            continue;
        Trace(TRACE_ENTRY, candidate.TraceText, cref, key);
        NewState(cref, key, LINECALLSTATE_CONNECTED);
        return cref;
    }
    Trace(TRACE_ENTRY, "CCI Pas d'appel en cours sur touche %d", key);
    return -1;
}

}  // namespace

void IncomingCallInfo(std::uint8_t, Bytes payload) {
    PayloadCursor cursor{payload};
    const int key = cursor.Byte();
    if (IsSupervised(key) && Settings.SupervService == 0)
        return;
    const int reason = cursor.Byte();
    const Party caller = TakeParty(cursor);
    const Party called = TakeParty(cursor);
    if (CutOff(cursor, "EVENT_INCOMING_CHANGE"))
        return;
    Trace(TRACE_CONFIG, "ICI tou:%d CallerAdd '%s' Org %d lg %d CallerName '%s' lg %d", key, caller.Number,
          caller.OriginCode(), caller.NumberLength, caller.Name, caller.NameLength);
    Trace(TRACE_CONFIG, "ICI tou:%d CalledAdd '%s' Org %d lg %d CalledName '%s' lg %d", key, called.Number,
          called.Flags, called.NumberLength, called.Name, called.NameLength);
    int cref = CallOnKey(key);
    if (!IsCref(cref)) {
        Trace(TRACE_ENTRY, "ICI Pas d'appel arrivee en cours sur touche %d", key);
        return;
    }
    if (IsSupervised(key))
        cref = SupervisedCall(key, cref);
    if (!IsCref(cref))
        return;
    CallRecord& call = CallOf(cref);
    if (call.state == STATE_REOFFERING && call.Inbound == 0) {
        Trace(TRACE_ENTRY, "ICI cref %04x REOFFERING appel sortant->pas de chg caller/called", cref);
        return;
    }
    DWORD changes = StoreIncoming(call, key, caller, called);
    changes |= StoreReason(call, reason, called);
    Trace(TRACE_CONFIG, "ICI tou:%d cref %04x Reason 0x%x TAPI_Reason 0x%lx ", key, cref, reason, call.Reason);
    if (cref == Tracking.OfferInfoCref) {  // it was held back until its caller is known
        Tracking.OfferInfoCref = -1;
        Trace(TRACE_CALL, "ICI - Etat:OFFERING - Ref:%d", cref);
        SendCallState(cref, LINECALLSTATE_OFFERING);
    }
    if (changes == 0)
        return;
    Trace(TRACE_ENTRY, "ICI DoLineEvent\t(LINE_CALLINFO,NewCallInfo %lx, 0, cref:%lx)", changes, cref);
    DoLineEvent(LINE_CALLINFO, changes, 0, cref);
}

void OutgoingCallInfo(std::uint8_t, Bytes payload) {
    PayloadCursor cursor{payload};
    const PartyEvent event = TakePartyEvent(cursor);
    if (CutOff(cursor, "EVENT_OUTGOING_CALL"))
        return;
    const Party& called = event.Remote;
    Trace(TRACE_CONFIG, "OCI tou:%d Reason %d CalledAdd '%s' Org %d withoutpfx %d lg %d CalledName '%s' lg %d",
          event.Key, event.Reason, called.Number, called.OriginCode(), called.WithoutPrefix(), called.NumberLength,
          called.Name, called.NameLength);
    const int cref = PlacedCall(event.Key);
    if (!IsCref(cref))
        return;
    CallOf(cref).Origin = LINECALLORIGIN_OUTBOUND;
    const DWORD change = StoreCalled(CallOf(cref), called);
    if (change == 0)
        return;
    Trace(TRACE_ENTRY, "OCI DoLineEvent (LINE_CALLINFO,NewCallInfo=%lx, 0, cref:%04x)", change, cref);
    DoLineEvent(LINE_CALLINFO, change, 0, cref);
}

void ConnectedCallInfo(std::uint8_t, Bytes payload) {
    PayloadCursor cursor{payload};
    const PartyEvent event = TakePartyEvent(cursor);
    if (CutOff(cursor, "EVENT_CONNECTED_CALL"))
        return;
    const Party& party = event.Remote;
    Trace(TRACE_CONFIG, "CCI tou:%d Reason %d ConnectedAdd '%s' Org %d lg %d ConnectedName '%s' lg %d", event.Key,
          event.Reason, party.Number, party.OriginCode(), party.NumberLength, party.Name, party.NameLength);
    const int cref = AnsweredCall(event.Key);
    if (!IsCref(cref))
        return;
    CallRecord& call = CallOf(cref);
    Trace(TRACE_CONFIG, "CCI Val precedentes ConnectedAdd '%s' ConnectedName '%s'", call.ConnectedAddress,
          call.ConnectedName);
    DWORD changes = 0;
    if (party.NumberLength != 0) {
        if (call.Inbound != 0)
            changes |= StoreOrigin(call, party);
        changes |= Store(call.ConnectedAddress, Rewritten(party, call.Inbound == 0, ConnectedTraces).Text,
                         LINECALLINFOSTATE_CONNECTEDID);
    }
    if (party.NameLength != 0)
        changes |= Store(call.ConnectedName, party.Name, LINECALLINFOSTATE_CONNECTEDID);
    if (changes == 0)
        return;
    Trace(TRACE_ENTRY, "CCI DoLineEvent (LINE_CALLINFO,NewCallInfo %lx, 0, cref:%04x)", changes, cref);
    DoLineEvent(LINE_CALLINFO, changes, 0, cref);
}

void Evt_Transfered_Call(std::uint8_t, Bytes payload) {
    PayloadCursor cursor{payload};
    const int key = cursor.Byte();
    if (CutOff(cursor, "TA_M_EVENT_TRANSFERED_CALL"))
        return;
    int cref = SearchState(key, LINECALLSTATE_CONNECTED);
    if (cref != -1) {
        Trace(TRACE_ENTRY, "Evt_Transfered_Call cref %04x Connected trouve sur tou %d", cref, key);
    } else {
        cref = SearchState(key, LINECALLSTATE_OFFERING);
        if (cref == -1) {
            Trace(TRACE_ENTRY, "Evt_Transfered_Call non exploite tou %d", key);
            return;
        }
        Trace(TRACE_ENTRY, "Evt_Transfered_Call cref %04x Offering trouve sur tou %d", cref, key);
    }
    const std::int32_t kind = TouchOf(key).kind;
    if (kind != TOUCH_PATRON && kind != TOUCH_SECRETAIRE)
        return;
    SwapKeyTransferingCref = cref;  // it moves when it shows on its new key
    Trace(TRACE_ENTRY, "Evt_Transfered_Call cref %04x tou %d PAT/SEC => transfert touche", cref, key);
}
