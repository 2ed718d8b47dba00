#include "tracking/display.h"

#include "config/settings.h"
#include "link/keys.h"
#include "platform/copy_text.h"
#include "platform/text.h"
#include "trace/trace.h"
#include "tracking/conference.h"
#include "tracking/pending.h"
#include "tracking/steps.h"
#include "tracking/terminal.h"

#include <cstring>
#include <utility>

namespace {

using Text = char[DISPLAY_COLUMNS + 1];  // what a display line can hold

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsSeparator(char c) {
    return c == ' ' || c == '/';
}

const char* Raw(int line) {
    return Display.Lines[line];
}

// Where a configured text stands in a display line; null when it is not shown. A set without that text (an empty one)
// never shows it.
const char* Shown(const char* configured, int line, const char*& converted) {
    converted = DisplayLine(line);
    return configured[0] == 0 ? nullptr : std::strstr(converted, configured);
}

bool IsShown(const char* configured, int line) {
    const char* converted = nullptr;
    return Shown(configured, line, converted) != nullptr;
}

bool LabelShown(SoftKeyIndex index, int line = 1) {
    return IsShown(Settings.SoftKeyLabels[index], line);
}

bool Version1() {
    return ProviderState.TAPI_OMNA_Ver == 1;
}

bool HoldsOneCallAtMost() {
    return !HoldsTwoCalls(Tracking.ActivCallTouch);
}

// Converts columns [from, to) of line 0 into `out`, cut to its room.
template <std::size_t N> void CopyColumns(char (&out)[N], int from, int to) {
    const char* line = DisplayLine(0);
    const std::size_t length = std::min(static_cast<std::size_t>(std::max(0, to - from)), N - 1);
    std::memcpy(out, line + from, length);
    out[length] = 0;
}

void SendCallInfo(int cref, DWORD flags) {
    DoLineEvent(LINE_CALLINFO, flags, 0, cref);
}

DWORD CallerFlags() {
    return DynamicConfig.StaticConfig == 1 ? LINECALLINFOSTATE_CALLERID
                                           : LINECALLINFOSTATE_CALLERID | LINECALLINFOSTATE_CALLEDID;
}

void SendCalledId(int cref) {
    Trace(TRACE_ENTRY, "DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_CALLEDID, 0, cref:%lx)", cref);
    SendCallInfo(cref, LINECALLINFOSTATE_CALLEDID);
}

// --- the called party's name, version 1 -----------------------------------------------------------------------------

// The text from column 0 up to the first two separators in a row. Separators stay as they are, other characters are
// converted.
void ReadParty(Text& text) {
    const char* raw = Raw(0);
    const char* line = DisplayLine(0);
    int length = 0;
    while (length < DISPLAY_COLUMNS &&
           !(IsSeparator(raw[length]) && length + 1 < DISPLAY_COLUMNS && IsSeparator(raw[length + 1]))) {
        text[length] = IsSeparator(raw[length]) ? raw[length] : line[length];
        ++length;
    }
    text[length] = 0;
}

void EnquiryConnectedName(int cref) {
    Trace(TRACE_ENTRY, "Enquiry connected call name");
    CallRecord& call = CallOf(cref);
    call.DispNamePending = 1;
    Text text;
    ReadParty(text);
    Trace(TRACE_ENTRY, "Extract connected 1 TmpDestName %s len %d ", text, std::strlen(text));
    if (text[0] == 0)
        return;
    // The set may show the number without its last digits.
    for (std::size_t cut = 0; cut < 3; ++cut) {
        char partial[NUMBER_SIZE];
        CopyText(partial, call.DestAddress);
        const std::size_t length = std::strlen(partial);
        partial[length - std::min(cut, length)] = 0;
        Trace(TRACE_ENTRY, "i:%d - PartialAddress:%s", cut, partial);
        const char* found = std::strstr(text, partial);
        if (found == nullptr)
            continue;
        const auto offset = static_cast<std::size_t>(found - text);
        Trace(TRACE_ENTRY, "numpos", offset);
        if (offset == 0 && call.byMakeCall != 0) {
            Trace(TRACE_ENTRY, "le display ne contient que le numéro de l'appelé"_cp1252);
            return;
        }
        Trace(TRACE_ENTRY, "On récupère le nom"_cp1252);
        if (offset > 0)
            text[offset - 1] = 0;
        break;
    }
    CopyText(call.DestName, text);
    SendCalledId(cref);
}

void EnquiryIfVersion1(int cref) {
    if (Version1())
        EnquiryConnectedName(cref);
}

// --- name and number of a call under way ----------------------------------------------------------------------------

struct Party {
    bool Forwarded = false, NamePresent = false, NumberPresent = false;
    bool Nothing = false;  // the line begins with a digit or with separators: it says nothing
    Text Name = {}, Number = {};
};

// Reads line 0 as an optional "=>", a name and a number.
Party ReadParties() {
    const char* raw = Raw(0);
    Party party;
    Trace(TRACE_ENTRY, "RequestDispName disp 0 ->'%s'", raw);
    int nameAt = 0;
    if (raw[0] == '=' && raw[1] == '>') {
        Trace(TRACE_ENTRY, "RequestDispName Renvoi");
        nameAt = 2;
        party.Forwarded = true;
    }
    const char* line = DisplayLine(0);
    int numberAt = 0;
    int at = nameAt;
    int length = 0;
    if (IsDigit(raw[nameAt])) {
        party.NumberPresent = true;
        numberAt = nameAt;
    } else {
        party.NamePresent = true;
        for (; at < DISPLAY_COLUMNS; ++at) {
            if (IsSeparator(raw[at])) {
                const char next = at + 1 < DISPLAY_COLUMNS ? raw[at + 1] : '\0';  // a last separator is text
                if (IsSeparator(next))
                    break;
                if (IsDigit(next)) {
                    party.NumberPresent = true;
                    numberAt = at + 1;
                    break;
                }
            }
            party.Name[length++] = line[at];
        }
        party.Name[length] = 0;
    }
    Trace(TRACE_ENTRY, "NamePresent %d AddressPresent %d TmpName '%s' len %d PosName %d PosAddress %d",
          party.NamePresent, party.NumberPresent, party.Name, length, nameAt, numberAt);
    if (at == 0) {
        party.Nothing = true;
        return party;
    }
    if (party.NumberPresent) {
        int end = numberAt;
        while (end < DISPLAY_COLUMNS && !IsSeparator(raw[end]))
            ++end;
        CopyColumns(party.Number, numberAt, end);
        Trace(TRACE_ENTRY, "RequestDispName TmpAddress '%s' len %d PosName %d PosAddress %d", party.Number,
              end - numberAt, nameAt, numberAt);
    }
    return party;
}

void UpdateProceeding(int cref, const Party& party) {
    CallRecord& call = CallOf(cref);
    if (call.CalledName[0] != 0 && call.CalledAddress[0] != 0)
        return;
    const bool forwardedNumber = party.NumberPresent && party.Forwarded;
    if (party.NamePresent)
        CopyText(call.DestName, party.Name);
    if (forwardedNumber)
        CopyText(call.DestAddress, party.Number);
    if ((party.NamePresent && call.CalledName[0] == 0) || (forwardedNumber && call.CalledAddress[0] == 0))
        SendCalledId(cref);
}

void UpdateConnected(int cref, const Party& party) {
    CallRecord& call = CallOf(cref);
    CopyText(call.ConnectedName, party.Name);
    if (party.NumberPresent) {
        CopyText(call.ConnectedAddress, party.Number);
        if (call.Inbound != 0 && call.CallerAddress[0] == 0 && call.DestAddress[0] == 0) {
            CopyText(call.DestAddress, party.Number);
            Trace(TRACE_ENTRY, "DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_CALLERID, 0, cref:%lx)", cref);
            SendCallInfo(cref, LINECALLINFOSTATE_CALLERID);
        }
    } else {
        call.ConnectedAddress[0] = 0;
    }
    if (!party.NamePresent && !party.NumberPresent)
        return;
    Trace(TRACE_ENTRY, "DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_CONNECTEDID, 0, cref:%lx)", cref);
    SendCallInfo(cref, LINECALLINFOSTATE_CONNECTEDID);
}

void RequestDispName(int cref) {
    const Party party = ReadParties();
    if (party.Nothing)
        return;
    switch (CallOf(cref).state) {
    case LINECALLSTATE_PROCEEDING: UpdateProceeding(cref, party); break;
    case LINECALLSTATE_CONNECTED: UpdateConnected(cref, party); break;
    default: break;
    }
}

// --- soft-key line --------------------------------------------------------------------------------------------------

void ReconnectHeld(const char* trace) {
    const int held = OnActive(LINECALLSTATE_ONHOLD);
    if (held == -1)
        return;
    CallOf(held).state = LINECALLSTATE_CONNECTED;
    SendIfDirected(held, LINECALLSTATE_CONNECTED);
    Trace(TRACE_CALL, trace, Tracking.ActivCallTouch, held);
}

void DisconnectOnActive(int cref) {
    Trace(TRACE_CALL, "Icone:%d  - Etat:DISCONNECTED - Ref:%d", Tracking.ActivCallTouch, cref);
    DisconnectIfDirected(cref);
}

void EndOnActive(int cref) {
    EndCallIfDirected(cref, Tracking.ActivCallTouch);
    Trace(TRACE_CALL, "Icone:%d  - Etat:IDLE - Ref:%d", Tracking.ActivCallTouch, cref);
}

// The second call was abandoned before it was answered.
void SecondCallAbandoned() {
    Tracking.DbCall = 0;
    if (const int cref = OnActive(LINECALLSTATE_PROCEEDING); cref != -1) {
        Trace(TRACE_CALL, "Icone:%d  - Etat:DISCONNECTED - Ref:%d", Tracking.ActivCallTouch, cref);
        Disconnect(cref);
        FreeCall(cref, Tracking.ActivCallTouch);
        SendCallState(cref, LINECALLSTATE_IDLE);
        Trace(TRACE_CALL, "Icone:%d  - Etat:IDLE - Ref:%d", Tracking.ActivCallTouch, cref);
    }
    ReconnectHeld("Icone:%d  - Etat:CONNECTED - Ref:%d cas 7");
}

// One of two answered calls ended: the held one, or the other when its end was asked for.
void OneOfTwoEnded() {
    if (Tracking.SecondCallDropReq == 0) {
        if (const int held = OnActive(LINECALLSTATE_ONHOLD); held != -1) {
            DisconnectOnActive(held);
            Tracking.DbCall = 0;
            EndOnActive(held);
        }
        return;
    }
    const int cref = OnActive(LINECALLSTATE_CONNECTED);
    if (cref != -1)
        DisconnectOnActive(cref);
    ReconnectHeld("Icone:%d  - Etat:CONNECTED - Ref:%d cas 8");
    Tracking.DbCall = 0;
    Tracking.SecondCallDropReq = 0;
    if (cref != -1)
        EndOnActive(cref);
}

void DisconnectedOneLeft() {
    ReconnectHeld("Icone:%d  - Etat:CONNECTED - Ref:%d cas 9");
    const int cref = OnActive(LINECALLSTATE_DISCONNECTED);
    if (cref == -1)
        return;
    Trace(TRACE_CALL, "Icone:%d  - Etat:IDLE - Ref:%d", Tracking.ActivCallTouch, cref);
    EndCallIfDirected(cref, Tracking.ActivCallTouch);
}

void SecondCallOfferedWithTwoCalls() {
    const int active = Tracking.ActivCallTouch;
    if (StatesOn(active) == PROCEEDING_HELD)
        SecondCallAbandoned();
    if (StatesOn(active) == CONNECTED_HELD)
        OneOfTwoEnded();
    if (StatesOn(active) == (LINECALLSTATE_DISCONNECTED | LINECALLSTATE_ONHOLD))
        DisconnectedOneLeft();
    if (BothConferenced())
        ConferenceBroken();
}

void SecondCallOfferedWithOneCall() {
    if (const int cref = OnActive(LINECALLSTATE_PROCEEDING); cref != -1) {
        Trace(TRACE_CALL, "Apparition de 2App - 1 appel procedding");
        CallOf(cref).state = LINECALLSTATE_CONNECTED;
        SendCallState(cref, LINECALLSTATE_CONNECTED);
        Trace(TRACE_CALL, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 6", Tracking.ActivCallTouch, cref);
        if (cref == Tracking.PickUpCref)
            Tracking.PickUpCref = -1;
        EnquiryIfVersion1(cref);
    }
    // A call still at dial tone that is in conversation: an interception.
    if (const int cref = OnActive(LINECALLSTATE_DIALTONE); cref != -1) {
        Trace(TRACE_CALL, "Apparition de 2App - 1 appel DIALTONE -> Interception");
        CallOf(cref).state = LINECALLSTATE_CONNECTED;
        static constexpr DWORD steps[] = {LINECALLSTATE_DIALING, LINECALLSTATE_PROCEEDING, LINECALLSTATE_RINGBACK,
                                          LINECALLSTATE_CONNECTED};
        for (const DWORD state : steps)
            SendCallState(cref, state);
        Trace(TRACE_CALL, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 6.1", Tracking.ActivCallTouch, cref);
        EnquiryIfVersion1(cref);
    }
}

void CompleteBlindTransfer() {
    if (RunningRequest.Code != REQUEST_BLIND_TRANSFER)
        return;
    const int position = SoftKeyPosition(SK_TRANSFER);
    if (position == 0)
        return;
    Trace(TRACE_ENTRY, "BlindTransfer Running TRANSF softkey detected=> pushed");
    SendSoftKey(position);
    RunningRequest = RunningRequestRecord{};  // first: the completion's callback may start the next one
    SendCompletion(ProviderState, 0);
}

void StandBeside(int key, int cref) {
    auto& calls = TouchOf(key).calls;
    calls[calls[0] == -1 ? 0 : 1] = cref;
    Tracking.DbCall = 1;
    Tracking.SecondCallDropReq = 0;
}

// The second call on the active key: the consultation call of a transfer under way from `held`, or a new one; -1 when no
// record is free. It stands there before TAPI is told, and may make a call. `setMakeCall`: a new record's byMakeCall is
// cleared too.
int BeginSecondCall(int held, bool setMakeCall) {
    const int active = Tracking.ActivCallTouch;
    if (RunningRequest.Code == REQUEST_SETUP_TRANSFER && RunningRequest.Cref == held)
        return EndSetupTransfer(active, StandBeside);
    const int cref = AllocCallRecord(LINECALLSTATE_DIALTONE, active);
    if (cref == -1)
        return -1;
    CallRecord& call = CallOf(cref);
    call.Inbound = 0;
    call.Outbound = 1;
    if (setMakeCall)
        call.byMakeCall = 0;
    StandBeside(active, cref);
    DoLineEventNewCall(cref);
    return cref;
}

// The label of the end of a second call: one has just been started on the set.
void SecondCallStarted() {
    Trace(TRACE_CALL, "Detection de Fin2App");
    if (Tracking.ActivCallTouch == 0 || !HoldsOneCallAtMost())
        return;
    Trace(TRACE_CALL, "Fin2App 1 appel en cours EnqCallMode %d", Settings.EnquiryCallMode);
    const int held = OnActive(LINECALLSTATE_CONNECTED);
    if (held == -1 || Settings.EnquiryCallMode != 1)
        return;
    CallOf(held).state = LINECALLSTATE_ONHOLD;
    SendCallState(held, LINECALLSTATE_ONHOLD);
    Trace(TRACE_CALL, "DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_HOLD, 0, cref:%04x)", held);
    const int cref = BeginSecondCall(held, true);
    if (cref == -1)
        return;
    SendCallState(cref, LINECALLSTATE_DIALTONE);
    Trace(TRACE_CALL, "DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_DIALTONE, 0, cref:%04x)", cref);
}

// The swap label: the second call was answered.
void SecondCallAnswered() {
    Trace(TRACE_CALL, "VaVien detected");
    if (Tracking.ActivCallTouch == 0 || !HoldsTwoCalls(Tracking.ActivCallTouch))
        return;
    Trace(TRACE_CALL, "VaVien avec 2 appels en cours sur Icone:%d ", Tracking.ActivCallTouch);
    const DWORD states = StatesOn(Tracking.ActivCallTouch);
    if (states != PROCEEDING_HELD && states != (LINECALLSTATE_PROCEEDING | LINECALLSTATE_ONHOLDPENDTRANSFER))
        return;
    Trace(TRACE_CALL, "VaVien avec 1 appel ONHOLD et 1 appel PROCEEDING ");
    const int cref = OnActive(LINECALLSTATE_PROCEEDING);
    if (cref != -1) {
        CallOf(cref).state = LINECALLSTATE_CONNECTED;
        SendCallState(cref, LINECALLSTATE_CONNECTED);
        Trace(TRACE_CALL, "Icone:%d - Etat: CONNECTED - Ref:%d", Tracking.ActivCallTouch, cref);
    }
    Tracking.DbCall = 1;
    Tracking.SecondCallDropReq = 0;
    if (cref != -1)
        EnquiryIfVersion1(cref);
}

void InterpretSoftKeys() {
    if (LabelShown(SK_SECOND_CALL)) {
        if (Tracking.ActivCallTouch == 0)
            return;
        if (HoldsTwoCalls(Tracking.ActivCallTouch))
            SecondCallOfferedWithTwoCalls();
        else
            SecondCallOfferedWithOneCall();
        return;
    }
    CompleteBlindTransfer();
    if (LabelShown(SK_CONFERENCE) && Tracking.ActivCallTouch != 0 && HoldsOneCallAtMost())
        if (const int cref = OnActive(LINECALLSTATE_PROCEEDING); cref != -1) {
            Trace(TRACE_CALL, "Apparition de Conf - 1 appel proceeding");
            CallOf(cref).state = LINECALLSTATE_CONNECTED;
            SendCallState(cref, LINECALLSTATE_CONNECTED);
            Trace(TRACE_CALL, "Icone:%d  - Etat:CONNECTED - Ref:%d cas 10", Tracking.ActivCallTouch, cref);
            EnquiryIfVersion1(cref);
            return;
        }
    if (LabelShown(SK_END_SECOND_CALL))
        SecondCallStarted();
    Trace(TRACE_CALL, "Avant test VaVien ");
    if (LabelShown(SK_SWAP)) {
        SecondCallAnswered();
        return;
    }
    if (LabelShown(SK_TRANSFER) && Tracking.DbCall != 0 && Tracking.ConferenceReq != 0 &&
        StatesOn(Tracking.ActivCallTouch) == CONNECTED_HELD)
        ConferenceByDisplay();
}

// --- information line -----------------------------------------------------------------------------------------------

// The set asks its user to hang up. True when a call was disconnected by it.
bool HangUpAsked() {
    int cref = OnActive(LINECALLSTATE_PROCEEDING);
    if (cref == -1)
        cref = OnActive(LINECALLSTATE_DIALTONE);
    const bool settingUp = cref != -1;
    if (!settingUp)
        cref = OnActive(LINECALLSTATE_CONNECTED);
    if (cref == -1)
        return false;
    const CallRecord& call = CallOf(cref);
    if (settingUp)
        Trace(TRACE_ALWAYS, "byMakeCall:%d,inbound:%d,outbound:%d", call.byMakeCall, call.Inbound, call.Outbound);
    Disconnect(cref);
    Trace(TRACE_CALL, "Icone:%d  - Etat:DISCONNECTED - Ref:%d", Tracking.ActivCallTouch, cref);
    if (!settingUp)
        PhoneStateEvent(PHONESTATE_DISCONNECTED, 0);
    return true;
}

void CancelSecondCallAsked() {
    Trace(TRACE_CALL, "Annulez le 2eAppel ActivCallTouch %d", Tracking.ActivCallTouch);
    if (Tracking.ActivCallTouch == 0)
        return;
    const int cref = OnActive(LINECALLSTATE_CONNECTED);
    if (cref == -1)
        return;
    DisconnectIfDirected(cref);
    Trace(TRACE_CALL, "Icone:%d - Etat:DISCONNECTED - Ref:%d", Tracking.ActivCallTouch, cref);
    Tracking.DbCall = 0;
}

// The prompt to dial beside a call in conversation: a second call was started from the set.
void SecondCallPrompted() {
    if (Tracking.ActivCallTouch == 0 || !HoldsOneCallAtMost())
        return;
    const int held = OnActive(LINECALLSTATE_CONNECTED);
    if (held == -1)
        return;
    CallOf(held).state = LINECALLSTATE_ONHOLD;
    Trace(TRACE_CALL, "ST_Dial trouve Icone:%d  - Etat:ONHOLD - Ref:%d", Tracking.ActivCallTouch, held);
    SendIfDirected(held, LINECALLSTATE_ONHOLD);
    const int cref = BeginSecondCall(held, false);
    if (cref == -1)
        return;
    Trace(TRACE_CALL, "Icone:%d  - Etat:DIALTONE - Ref:%04x", Tracking.ActivCallTouch, cref);
    SendCallState(cref, LINECALLSTATE_DIALTONE);
}

// Where the dialled digits stand on line 0.
struct DigitRun {
    int from = 0, count = 0;
    bool afterDial = false;
};

DigitRun FindDigits() {
    DigitRun run;
    const char* raw = Raw(0);
    const char* converted = nullptr;
    if (Shown(Settings.DisplayStrings[STRING_DIAL], 0, converted) != nullptr) {
        run.afterDial = true;
        // The prompt is taken to stand at the line's start.
        run.from = static_cast<int>(std::strlen(Settings.DisplayStrings[STRING_DIAL]));
        while (run.from < DISPLAY_COLUMNS && raw[run.from] == ' ')
            ++run.from;
    }
    while (run.from + run.count < DISPLAY_COLUMNS && IsDigit(raw[run.from + run.count]))
        ++run.count;
    return run;
}

void FirstDigitDialled(const DigitRun& run) {
    for (int i = 0; i < run.count; ++i) {
        const int cref = Tracking.DbCall == 0 ? FindCallByState(LINECALLSTATE_DIALTONE) : -1;
        if (cref == -1)
            return;
        CallOf(cref).state = LINECALLSTATE_PROCEEDING;  // first: a make call takes the record of one at dial tone
        SendCallState(cref, LINECALLSTATE_DIALING);
        SendCallState(cref, LINECALLSTATE_PROCEEDING);
        Trace(TRACE_CALL,
              run.afterDial ? "Icone:%d - Etat:PROCEEDING - Ref:%d cas 1" : "Icone:%d - Etat:PROCEEDING - Ref:%d cas 2",
              CallOf(cref).touch, cref);
        SendCallState(cref, LINECALLSTATE_RINGBACK);
    }
}

// Version 1: the number dialled on the set is collected while it shows, and handed on when it has left the display.
void FollowDialledNumber(int p) {
    const DigitRun run = FindDigits();
    FirstDigitDialled(run);
    TrimRight(TmpAddress);
    int count = 0, last = -1;
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        if (CallOf(cref).state == LINECALLSTATE_PROCEEDING) {
            ++count;
            last = cref;
        }
    if (count == 0 || !Version1())
        return;
    CallRecord& call = CallOf(last);
    const bool placed = call.Outbound != 0 || call.byMakeCall != 0;
    if (run.count > 0) {
        CopyColumns(TmpAddress, run.from, std::min(run.from + run.count + 1, DISPLAY_COLUMNS));
        Trace(TRACE_ALWAYS, "TmpAddress:'%s'", TmpAddress);
    } else if (std::strlen(TmpAddress) > 1) {
        if (count == 1 && call.Outbound != 0) {
            Trace(TRACE_ENTRY, "Envoi du numero sur appel proceeding");
            CopyText(call.DestAddress, TmpAddress);
            SendCalledId(last);
        }
        if (count == 1 && placed) {
            Trace(TRACE_ENTRY, "Demande CalledName sur appel proceeding");
            call.DispNamePending = 1;
        }
        TmpAddress[0] = 0;
    }
    if (p == 1 && count == 1 && placed && call.DispNamePending == 1) {
        Trace(TRACE_ENTRY, "Remontee nom en RA");
        call.DispNamePending = 0;
        RequestDispName(last);
    }
}

void InterpretInformation(int p) {
    if (Tracking.ActivCallTouch != 0 && IsShown(Settings.DisplayStrings[STRING_HANG_UP], 0) && HangUpAsked())
        return;
    if (IsShown(Settings.DisplayStrings[STRING_CANCEL_SECOND_CALL], 0)) {
        CancelSecondCallAsked();
        return;
    }
    if (IsShown(Settings.DisplayStrings[STRING_DIAL], 0))
        SecondCallPrompted();
    if (LabelShown(SK_CONFERENCE, 0)) {
        ConferenceCapture();
        return;
    }
    if (p == 1) {
        if (Tracking.ConfBroken != 0 && ConferenceWhoLeft())
            return;
        if (Tracking.ConfEndReq != 0)
            ConferenceEndRequested();
        if (Version1()) {
            const int cref = OnActive(LINECALLSTATE_CONNECTED);
            if (cref != -1 && CallOf(cref).DispNamePending == 1) {
                Trace(TRACE_ENTRY, "Remontee du nom et adresse en etat connected cref %d", cref);
                CallOf(cref).DispNamePending = 0;
                RequestDispName(cref);
            }
        }
    }
    if (Tracking.PickUpCref == -1)
        FollowDialledNumber(p);
}

// --- the caller of an incoming call ---------------------------------------------------------------------------------

// The key that line 0 names ("3:..."), or -1. Only keys 1 to 9 can be named.
int NamedKey() {
    // No key 0: a call's duration ("0:15") must not name the records that stand on none.
    return IsDigit(Raw(0)[0]) && Raw(0)[0] != '0' && Raw(0)[1] == ':' ? Raw(0)[0] - '0' : -1;
}

// The end of a text from column `from`: the first blank that a blank follows.
int EndBeforeTwoBlanks(int from) {
    int at = from;
    while (at < DISPLAY_COLUMNS && !(Raw(0)[at] == ' ' && at + 1 < DISPLAY_COLUMNS && Raw(0)[at + 1] == ' '))
        ++at;
    return at;
}

// The same for a waiting call: the first blank that follows a blank, so that one blank stays in the text.
int EndAfterOneBlank(int from) {
    int at = from;
    while (at < DISPLAY_COLUMNS && !(Raw(0)[at] == ' ' && Raw(0)[at - 1] == ' '))
        ++at;
    return at;
}

void TraceNumber(const char* text) {
    Trace(TRACE_ENTRY, "GetCallInformation - Récupération du numéro du correspondant:%s"_cp1252, text);
}

void TakeName(CallRecord& call, const char* text) {
    CopyText(call.DestName, text);
    call.DestAddress[0] = 0;
    Trace(TRACE_ENTRY, "GetCallInformation - Récupération du nom du correspondant:%s"_cp1252, text);
}

void TakeNumber(CallRecord& call, const char* text) {
    CopyText(call.DestAddress, text);
    call.DestName[0] = 0;
    TraceNumber(text);
}

// Version 1 tells by prefix or length whether a number comes from outside.
void TakeNumberWithOrigin(CallRecord& call, const char* text) {
    const std::size_t prefix = std::strlen(Settings.ExtPrefix);
    if (Settings.ExtPrefixDisp == 1) {
        if (std::strncmp(text, Settings.ExtPrefix, prefix) == 0) {
            Trace(TRACE_ENTRY, "GetCallInfo prefix trouve len %d origin EXTERNAL", prefix);
            CopyText(call.DestAddress, text + prefix);
            call.Origin = LINECALLORIGIN_EXTERNAL;
        } else {
            CopyText(call.DestAddress, text);
            Trace(TRACE_CALL, "no prefix =>origin INTERNAL");
            call.Origin = LINECALLORIGIN_INTERNAL;
        }
    } else {
        CopyText(call.DestAddress, text);
        const bool external = std::strlen(text) > static_cast<std::size_t>(std::max(Settings.MaxDigitLocal, 0));
        call.Origin = external ? LINECALLORIGIN_EXTERNAL : LINECALLORIGIN_INTERNAL;
        Trace(TRACE_CALL, external ? "origin EXTERNAL" : "origin INTERNAL");
    }
    call.DestName[0] = 0;
    TraceNumber(call.DestAddress);
}

void OfferedCaller(int cref) {
    CallRecord& call = CallOf(cref);
    call.Origin = LINECALLORIGIN_UNKNOWN;
    Text text;
    CopyColumns(text, 2, EndBeforeTwoBlanks(2));
    Trace(TRACE_ENTRY, "GetCallInformation - Récupération: -%s-"_cp1252, text);
    if (!IsDigit(Raw(0)[2]))
        TakeName(call, text);
    else if (Version1())
        TakeNumberWithOrigin(call, text);
    else
        TakeNumber(call, text);
    Tracking.OfferInfoCref = -1;
    Trace(TRACE_CALL, "- Etat:OFFERING - Ref:%d", cref);
    SendCallState(cref, LINECALLSTATE_OFFERING);
    if (Version1() || call.CallerAddress[0] == 0)
        SendCallInfo(cref, CallerFlags());
}

// The entry of WaitInfo whose call stands on this key, or null.
int* WaitingOn(int key) {
    for (int& cref : WaitEntries())
        if (IsCref(cref) && CallOf(cref).touch == key)
            return &cref;
    return nullptr;
}

void WaitingCaller(int& entry) {
    CallRecord& call = CallOf(entry);
    Text text;
    CopyColumns(text, 2, EndAfterOneBlank(2));
    Trace(TRACE_ENTRY, "GetCallInformation - Récupération: -%s-"_cp1252, text);
    if (IsDigit(Raw(0)[2]))
        TakeNumber(call, text);
    else
        TakeName(call, text);
    if (Version1() || call.CallerAddress[0] == 0) {
        Trace(TRACE_ENTRY, "DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_CALLERID, 0, WaitInfo[i]:%lx)", entry);
        SendCallInfo(entry, CallerFlags());
    }
    entry = -1;
}

void AnsweredCaller(int cref) {
    CallRecord& call = CallOf(cref);
    Text text;
    CopyColumns(text, 0, EndBeforeTwoBlanks(0));
    if (text[0] != 0) {
        if (IsDigit(Raw(0)[0]))
            TakeNumber(call, text);
        else
            TakeName(call, text);
    }
    Trace(TRACE_ENTRY, "DoLineEventLINE_CALLINFO,LINECALLINFOSTATE_CALLERID,UnknownConnectedCall:%lx)", cref);
    SendCallInfo(cref, CallerFlags());
    Tracking.UnknownConnectedCall = -1;
}

}  // namespace

void InterpretDisplay(int line, int p) {
    if (line != 0 && line != 1)
        return;
    if ((static_cast<std::uint32_t>(TraceMask) & TRACE_DISPLAY) != 0)  // spares the conversion
        Trace(TRACE_DISPLAY, "ActivTou %d DbCall %d Display %d ->'%s'", Tracking.ActivCallTouch, Tracking.DbCall, line,
              DisplayLine(line));
    if (line == 1)
        InterpretSoftKeys();
    else
        InterpretInformation(p);
}

void GetCallInformation(int cref) {
    const int named = NamedKey();
    if (IsCref(Tracking.OfferInfoCref) && IsCref(cref) && named == CallOf(Tracking.OfferInfoCref).touch) {
        OfferedCaller(cref);
        return;
    }
    if (int* entry = named == -1 ? nullptr : WaitingOn(named)) {
        WaitingCaller(*entry);
        return;
    }
    if (IsCref(Tracking.UnknownConnectedCall))
        AnsweredCaller(Tracking.UnknownConnectedCall);
}

int SoftKeyPosition(int index) {
    if (index < 0 || index > MAX_TA_SK)
        return 0;
    const char* converted = nullptr;
    const char* found = Shown(Settings.SoftKeyLabels[index], 1, converted);
    if (found == nullptr)
        return 0;
    const int position = static_cast<int>(found - converted) / 8 + 1;
    Trace(TRACE_CALL, "Softkey %d n°:%d"_cp1252, index, position);
    return position;
}
