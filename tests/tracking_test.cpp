// Call tracking: the icon machine cell by cell, the display's rules, double calls, conferences, supervision.
#include "config/settings.h"
#include "control/requests.h"
#include "link/terminal.h"
#include "provider/events.h"
#include "support/fixture.h"
#include "trace/trace.h"
#include "tracking/conference.h"
#include "tracking/display.h"
#include "tracking/supervision.h"

#include <cstring>
#include <random>

namespace {

using testing::Contains;
using Strings = std::vector<std::string>;

class Tracker : public OnTheLine {
protected:
    void SetUp() override {
        OnTheLine::SetUp();
        const char* labels[] = {"2eApp", "Fin2Ap", "VaVien", "Conf", "FreqV", "StopV", "Transf"};
        const char* texts[] = {"Raccrochez", "Annulez", "Numero:"};
        for (int i = 0; i < 7; ++i)
            CopyText(Settings.SoftKeyLabels[i], labels[i]);
        for (int i = 0; i < 3; ++i)
            CopyText(Settings.DisplayStrings[i], texts[i]);
        Key(1, TOUCH_MULTI);
        Key(2, TOUCH_MULTI);
        Key(3, TOUCH_MULTI);
        Key(7, TOUCH_SUPERV);
        Key(8, TOUCH_PATRON);
        TraceLines();
    }
    CallRecord& Record(int cref) { return CallTable.at(static_cast<std::size_t>(cref)); }
    void Active(int key) {
        Tracking.ActivCallTouch = key;
        TouchTable.at(static_cast<std::size_t>(key)).icon = ACTIV_ICON;
    }
    // Two calls on the active key 1: the first in one state, the second in another.
    void Double(DWORD first, DWORD second) {
        Call(1, 0, first);
        Call(1, 1, second, false);
        Active(1);
        Tracking.DbCall = 1;
    }
};

// --- the icon machine --------------------------------------------------------------------------------------------------

struct IconCase {
    const char* Name;
    int Stored, New;
    DWORD State;  // of a call on the key; 0 = no call
    Strings Wanted;
    int Icon;       // stored afterwards
    int ActiveKey;  // afterwards
    DWORD Then;     // the call's state afterwards (cref 0)
};
constexpr DWORD IDLE = LINECALLSTATE_IDLE, OFFERING = LINECALLSTATE_OFFERING, DIALTONE = LINECALLSTATE_DIALTONE,
                PROCEEDING = LINECALLSTATE_PROCEEDING, CONNECTED = LINECALLSTATE_CONNECTED,
                ONHOLD = LINECALLSTATE_ONHOLD, DISCONNECTED = LINECALLSTATE_DISCONNECTED;

class Icons : public Tracker, public testing::WithParamInterface<IconCase> {};

TEST_P(Icons, OneCell) {
    const IconCase& c = GetParam();
    TouchTable[1].icon = c.Stored;
    if (c.State != 0)
        Call(1, 0, c.State);
    if (c.Stored == ACTIV_ICON)
        Tracking.ActivCallTouch = 1;
    Icon(1, c.New);
    EXPECT_EQ(LineEvents(), c.Wanted);
    EXPECT_EQ(TouchTable[1].icon, c.Icon);
    EXPECT_EQ(Tracking.ActivCallTouch, c.ActiveKey);
    EXPECT_EQ(CallTable[0].state, c.Then);
    if (c.Then == IDLE) {
        EXPECT_EQ(CallTable[0].touch, 0);
        EXPECT_FALSE(CallTable[0].HasDirection());
        EXPECT_EQ(TouchTable[1].calls[0], -1);
    }
}

const Strings NOTHING, ENDED = {"STATE 0 DISCONNECTED 1", "STATE 0 IDLE"};
INSTANTIATE_TEST_SUITE_P(
    , Icons,
    testing::Values(
        IconCase{"Seize", IDLE_ICON, ACTIV_ICON, 0, {"NEWCALL 0", "STATE 0 DIALTONE"}, ACTIV_ICON, 1, DIALTONE},
        IconCase{"SeizeMadeCall", IDLE_ICON, ACTIV_ICON, PROCEEDING, NOTHING, ACTIV_ICON, 1, PROCEEDING},
        IconCase{"Ring", IDLE_ICON, INCOM_ICON, 0, {"NEWCALL 0"}, INCOM_ICON, 0, OFFERING},
        IconCase{"RingCrossesCall",
                 IDLE_ICON,
                 INCOM_ICON,
                 PROCEEDING,
                 {"STATE 0 DISCONNECTED 1", "STATE 0 IDLE", "NEWCALL 0"},
                 INCOM_ICON,
                 0,
                 OFFERING},
        IconCase{
            "Reserve", IDLE_ICON, RESERVED_ICON, 0, {"NEWCALL 0", "STATE 0 DISCONNECTED"}, ACTIV_ICON, 1, DISCONNECTED},
        IconCase{"IdleHold", IDLE_ICON, HOLD_ICON, 0, NOTHING, IDLE_ICON, 0, 0},
        IconCase{"Answer", INCOM_ICON, ACTIV_ICON, OFFERING, {"STATE 0 CONNECTED"}, ACTIV_ICON, 1, CONNECTED},
        IconCase{
            "AnswerAgain", INCOM_ICON, ACTIV_ICON, STATE_REOFFERING, {"STATE 0 CONNECTED"}, ACTIV_ICON, 1, CONNECTED},
        IconCase{"AnswerNothing", INCOM_ICON, ACTIV_ICON, 0, NOTHING, INCOM_ICON, 0, 0},
        IconCase{"RingEnds", INCOM_ICON, IDLE_ICON, OFFERING, ENDED, IDLE_ICON, 0, IDLE},
        IconCase{"RingEndsReserved", INCOM_ICON, RESERVED_ICON, OFFERING, ENDED, IDLE_ICON, 0, IDLE},
        IconCase{"Hold", ACTIV_ICON, HOLD_ICON, CONNECTED, {"STATE 0 ONHOLD"}, HOLD_ICON, 0, ONHOLD},
        IconCase{"HoldDialtone", ACTIV_ICON, HOLD_ICON, DIALTONE, NOTHING, ACTIV_ICON, 1, DIALTONE},
        IconCase{
            "ActiveHeldRings", ACTIV_ICON, INCOM_ICON, ONHOLD, {"STATE 0 OFFERING"}, INCOM_ICON, 1, STATE_REOFFERING},
        IconCase{"ActiveDisconnectedRings",
                 ACTIV_ICON,
                 INCOM_ICON,
                 DISCONNECTED,
                 {"STATE 0 OFFERING"},
                 INCOM_ICON,
                 1,
                 OFFERING},
        IconCase{"ActiveConnectedRings", ACTIV_ICON, INCOM_ICON, CONNECTED, NOTHING, ACTIV_ICON, 1, CONNECTED},
        IconCase{"End", ACTIV_ICON, IDLE_ICON, CONNECTED, ENDED, IDLE_ICON, 0, IDLE},
        IconCase{"EndDialtone", ACTIV_ICON, IDLE_ICON, DIALTONE, ENDED, IDLE_ICON, 0, IDLE},
        IconCase{"EndReserved",
                 ACTIV_ICON,
                 RESERVED_ICON,
                 CONNECTED,
                 {"STATE 0 DISCONNECTED 1"},
                 ACTIV_ICON,
                 1,
                 DISCONNECTED},
        IconCase{"EndDisconnected", ACTIV_ICON, IDLE_ICON, DISCONNECTED, {"STATE 0 IDLE"}, IDLE_ICON, 0, IDLE},
        IconCase{"StayReserved", ACTIV_ICON, RESERVED_ICON, DISCONNECTED, NOTHING, ACTIV_ICON, 1, DISCONNECTED},
        IconCase{"Retrieve", HOLD_ICON, ACTIV_ICON, ONHOLD, {"STATE 0 CONNECTED"}, ACTIV_ICON, 1, CONNECTED},
        IconCase{"RetrieveConnected", HOLD_ICON, ACTIV_ICON, CONNECTED, NOTHING, HOLD_ICON, 0, CONNECTED},
        IconCase{"Reoffer", HOLD_ICON, INCOM_ICON, ONHOLD, {"STATE 0 OFFERING"}, INCOM_ICON, 0, STATE_REOFFERING},
        IconCase{"HeldEnds", HOLD_ICON, IDLE_ICON, ONHOLD, ENDED, IDLE_ICON, 0, IDLE},
        IconCase{"UnknownIconOnlyEnds", 0, ACTIV_ICON, CONNECTED, NOTHING, 0, 0, CONNECTED}),
    [](const auto& param) { return param.param.Name; });

TEST_F(Tracker, IconTracesNameKeyAndBothIcons) {
    Icon(1, INCOM_ICON);
    Icon(1, ACTIV_ICON);
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Multi Icone 1 Action: IDLE_ICON => INCOM_ICON",
                                                     "Multi Icone 1 Action: INCOM_ICON => ACTIV_ICON",
                                                     "Icone:1 - Etat:CONNECTED - Ref:0 cas 5"}));
    EXPECT_EQ(Tracking.UnknownConnectedCall, 0) << "answered before its caller showed";
    EXPECT_EQ(Tracking.OfferInfoCref, -1);
    EXPECT_EQ(CallTable[0].DispNamePending, 1);
}

TEST_F(Tracker, ForwardingCodeLightsAKeyWithoutACall) {
    Tracking.ForwardAckTicks = 3;
    Icon(1, ACTIV_ICON);
    EXPECT_THAT(LineEvents(), IsEmpty());
    EXPECT_EQ(TouchTable[1].icon, IDLE_ICON);
}

TEST_F(Tracker, WaitingCallsMoveToTheKeyThatLights) {
    PickUpSupervCref = Call(7, 0, OFFERING);
    Icon(1, ACTIV_ICON);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 CONNECTED"));
    EXPECT_EQ(Record(0).touch, 1);
    EXPECT_EQ(PickUpSupervCref, -1);
    Tracking.PickUpCref = Call(7, 0, OFFERING);
    Icon(2, ACTIV_ICON);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 PROCEEDING"));
    EXPECT_EQ(Tracking.PickUpCref, 1) << "until it is reported connected";
}

TEST_F(Tracker, TransferredBossCallKeepsItsRecordForTheNextKey) {
    Call(8, 0, CONNECTED);
    Active(8);
    SwapKeyTransferingCref = 0;
    Icon(8, IDLE_ICON);
    EXPECT_EQ(TouchTable[8].calls[0], -1);
    Icon(2, INCOM_ICON);
    EXPECT_THAT(LineEvents(), IsEmpty());
    EXPECT_THAT(TouchTable[2].calls, ElementsAre(0, -1));
    EXPECT_EQ(Record(0).touch, 2);
    EXPECT_EQ(SwapKeyTransferingCref, -1);
}

TEST_F(Tracker, BothCallsOfAKeyEndInSlotOrderAndARunningDropCompletesWhenReserved) {
    Double(CONNECTED, ONHOLD);
    Icon(1, IDLE_ICON);
    EXPECT_THAT(LineEvents(),
                ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE", "STATE 1 DISCONNECTED 1", "STATE 1 IDLE"));
    EXPECT_EQ(Tracking.DbCall, 0);
    Call(2, 0, CONNECTED);
    Active(2);
    RunningRequest = {REQUEST_DROP, 0, -1};
    ProviderState.PendingRequestID = 9;
    Icon(2, RESERVED_ICON);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "REPLY 9 0"));
}

TEST_F(Tracker, TwentyCallsAreAllThereIs) {
    for (int i = 0; i < CALL_COUNT; ++i)
        AllocCallRecord(CONNECTED, 30);
    Icon(1, INCOM_ICON);
    Icon(2, ACTIV_ICON);
    EXPECT_THAT(LineEvents(), IsEmpty());
    EXPECT_EQ(TouchTable[1].icon, INCOM_ICON);
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(-1, -1));
    Icon(1, IDLE_ICON);
}

TEST_F(Tracker, AbandonedSecondCallLetsTheHeldOneRing) {
    Double(ONHOLD, PROCEEDING);
    Icon(1, INCOM_ICON);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 DISCONNECTED 1", "STATE 1 IDLE", "STATE 0 OFFERING"));
    EXPECT_EQ(Record(0).state, STATE_REOFFERING);
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(0, -1));
    EXPECT_EQ(Tracking.DbCall, 0);
}

// --- the model -----------------------------------------------------------------------------------------------------------

TEST_F(Tracker, RecordsAreTakenInOrderAndClearedCompletely) {
    CopyText(DialedNumber, "0123");
    EXPECT_EQ(AllocCallRecord(DIALTONE, 1), 0);
    EXPECT_STREQ(DialedNumber, "3");
    TouchTable[1].calls = {0, -1};
    CopyText(Record(0).CallerName, "X");
    Record(0).Origin = LINECALLORIGIN_EXTERNAL;
    CopyText(Record(0).DigitsToGenerate, "12");
    Active(1);
    ClearCall(0);
    EXPECT_STREQ(Record(0).CallerName, "");
    EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_UNAVAIL);
    EXPECT_STREQ(Record(0).DigitsToGenerate, "12");
    EXPECT_EQ(Tracking.ActivCallTouch, 0);
    EXPECT_EQ(SearchState(7, CONNECTED), -1);
    EXPECT_THAT(TraceLines(), Contains("SearchState - La Touche 7 n'est pas multiligne ni pat/sec!"));
    EXPECT_EQ(SearchState(-1, CONNECTED), -1);
    EXPECT_EQ(SearchState(500, CONNECTED), -1);
}

TEST_F(Tracker, CtiCallsAndStatesReportEachStepOnce) {
    Call(1, 0, CONNECTED);
    LineEvents();
    EXPECT_EQ(NewCall(1, LINECALLSTATE_RINGBACK), 1);
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 1", "STATE 1 DIALTONE", "STATE 1 DIALING", "STATE 1 PROCEEDING",
                                          "STATE 1 RINGBACK"));
    EXPECT_EQ(Record(1).state, PROCEEDING);
    EXPECT_EQ(Tracking.DbCall, 1);
    Record(1).state = DIALTONE;
    NewState(1, 1, LINECALLSTATE_RINGBACK);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 DIALING", "STATE 1 PROCEEDING", "STATE 1 RINGBACK"));
    NewState(1, 1, LINECALLSTATE_RINGBACK);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 RINGBACK"));
    EXPECT_EQ(Record(1).state, PROCEEDING);
    AllCallReset();
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 IDLE", "STATE 1 IDLE"));
    EXPECT_EQ(confstate, IDLE);
}

TEST_F(Tracker, TextsOfTheSetBecomeWindowsTexts) {
    std::memcpy(::Display.Lines[0], "\x82t\x82 \x01\xAF", 6);
    EXPECT_EQ(Utf8(std::string(DisplayLine(0), 6)), "été #ø");
    char label[] = "  \x82\x82  ";
    EXPECT_STREQ(CleanLabel(label), "\x82\xE9") << "the first character stays as received";
    char blanks[] = "   ";
    TrimRight(blanks);
    EXPECT_STREQ(blanks, "");
}

// --- callers -------------------------------------------------------------------------------------------------------------

struct CallerCase {
    const char* Name;
    int Version, PrefixShown;
    const char* Line;
    const char* Address;
    const char* Party;
    DWORD Origin;
};
class Callers : public Tracker, public testing::WithParamInterface<CallerCase> {};

TEST_P(Callers, AreReadFromLine0) {
    const CallerCase& c = GetParam();
    ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(c.Version);
    CopyText(Settings.ExtPrefix, "0");
    Settings.ExtPrefixDisp = c.PrefixShown;
    Icon(3, INCOM_ICON);
    Display(0, "1:4720");  // another key
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0"));
    Display(0, c.Line);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 OFFERING", "INFO 0 CALLERID|CALLEDID"));
    EXPECT_STREQ(Record(0).DestAddress, c.Address);
    EXPECT_STREQ(Record(0).DestName, c.Party);
    EXPECT_EQ(Record(0).Origin, c.Origin);
    Display(0, c.Line);
    EXPECT_THAT(LineEvents(), IsEmpty()) << "reported once";
}
INSTANTIATE_TEST_SUITE_P(
    , Callers,
    testing::Values(CallerCase{"Number", 2, 0, "3:0145678901  12:00", "0145678901", "", LINECALLORIGIN_UNKNOWN},
                    CallerCase{"Name", 2, 0, "3:DUPONT Jean  x", "", "DUPONT Jean", LINECALLORIGIN_UNKNOWN},
                    CallerCase{"Prefix", 1, 1, "3:0145678901", "145678901", "", LINECALLORIGIN_EXTERNAL},
                    CallerCase{"NoPrefix", 1, 1, "3:4720", "4720", "", LINECALLORIGIN_INTERNAL},
                    CallerCase{"Long", 1, 0, "3:123456789", "123456789", "", LINECALLORIGIN_EXTERNAL},
                    CallerCase{"Short", 1, 0, "3:12345678", "12345678", "", LINECALLORIGIN_INTERNAL}),
    [](const auto& param) { return param.param.Name; });

TEST_F(Tracker, WaitingCallKeepsOneBlankAndStaticConfigurationReportsTheCallerAlone) {
    DynamicConfig.StaticConfig = 1;
    Icon(3, INCOM_ICON);
    WaitInfo[1] = 0;
    Tracking.OfferInfoCref = -1;
    LineEvents();
    Display(0, "3:DUPONT  12");
    EXPECT_THAT(LineEvents(), ElementsAre("INFO 0 CALLERID"));
    EXPECT_STREQ(Record(0).DestName, "DUPONT ");
    EXPECT_EQ(WaitInfo[1], -1);
}

TEST_F(Tracker, AnsweredBeforeItsCallerShowedStillGetsItsCaller) {
    Icon(1, INCOM_ICON);
    Icon(1, ACTIV_ICON);
    Display(0, "DUPONT  ");
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0", "STATE 0 CONNECTED", "INFO 0 CALLERID|CALLEDID"));
    EXPECT_STREQ(Record(0).DestName, "DUPONT");
    EXPECT_EQ(Tracking.UnknownConnectedCall, -1);
}

TEST_F(Tracker, ConnectedPartyIsReadInVersionOne) {
    struct Case {
        const char* line;
        const char* name;
        const char* address;
        const char* dest;  // DestAddress afterwards
        Strings events;
    };
    const Case cases[] = {
        {"=>DUPONT 4720  ", "DUPONT", "4720", "4720", {"INFO 0 CALLERID", "INFO 0 CONNECTEDID"}},
        {"DUPONT J/4720", "DUPONT J", "4720", "4720", {"INFO 0 CALLERID", "INFO 0 CONNECTEDID"}},
        {"DUPONT  ", "DUPONT", "", "", {"INFO 0 CONNECTEDID"}},
        {"4720 DUPONT", "", "", "", {}},
        {"  DUPONT", "", "", "", {}},
    };
    ProviderState.TAPI_OMNA_Ver = 1;
    for (const Case& c : cases) {
        ResetCallRecord(0);
        CallTable[0] = CallRecord{};
        TouchTable[1].calls = {-1, -1};
        Call(1, 0, CONNECTED);
        Active(1);
        Record(0).DispNamePending = 1;
        Display(0, c.line);
        EXPECT_EQ(LineEvents(), c.events) << c.line;
        EXPECT_STREQ(Record(0).ConnectedName, c.name);
        EXPECT_STREQ(Record(0).ConnectedAddress, c.address);
        EXPECT_STREQ(Record(0).DestAddress, c.dest);
    }
}

TEST_F(Tracker, DialledNumberIsCollectedAndHandedOnWhenItLeavesTheDisplay) {
    ProviderState.TAPI_OMNA_Ver = 1;
    Icon(1, ACTIV_ICON);
    LineEvents();
    Display(0, "Numero: 4");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DIALING", "STATE 0 PROCEEDING", "STATE 0 RINGBACK"));
    Display(0, "Numero: 4720");
    EXPECT_THAT(TraceLines(), Contains("TmpAddress:'4720 '"));
    Display(0, "MARTIN  ");
    EXPECT_THAT(LineEvents(), ElementsAre("INFO 0 CALLEDID", "INFO 0 CALLEDID"));
    EXPECT_STREQ(Record(0).DestAddress, "4720");
    EXPECT_STREQ(Record(0).DestName, "MARTIN");
    Display(1, "2eApp   ");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 CONNECTED", "INFO 0 CALLEDID"));
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Icone:1  - Etat:CONNECTED - Ref:0 cas 6",
                                                     "Extract connected 1 TmpDestName MARTIN len 6 "}));
}

TEST_F(Tracker, PromptsEndCalls) {
    Call(1, 0, PROCEEDING);
    Call(1, 1, CONNECTED);
    Active(1);
    Display(0, "Raccrochez");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1"));
    Display(0, "Raccrochez");
    EXPECT_THAT(Events(), ElementsAre("STATE 1 DISCONNECTED 1", "PHONE DISCONNECTED", "PHONE DISPLAY"));
    Record(1).state = CONNECTED;
    Tracking.DbCall = 1;
    Display(0, "Annulez");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 DISCONNECTED 1"));
    EXPECT_EQ(Tracking.DbCall, 0);
}

// --- double calls ----------------------------------------------------------------------------------------------------------

TEST_F(Tracker, SecondCallOnTheSameKeyByItsLabelOrItsPrompt) {
    Call(1, 0, CONNECTED);
    Active(1);
    Display(1, "Fin2Ap");
    EXPECT_THAT(LineEvents(), IsEmpty()) << "in the other mode a second call stands on another key";
    Settings.EnquiryCallMode = 1;
    Display(1, "Fin2Ap");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 ONHOLD", "NEWCALL 1", "STATE 1 DIALTONE"));
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(0, 1));
    EXPECT_EQ(Tracking.DbCall, 1);
    Record(1).state = PROCEEDING;
    Display(1, "        VaVien");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 CONNECTED"));
    EXPECT_EQ(SoftKeyPosition(SK_SWAP), 2);
    EXPECT_EQ(SoftKeyPosition(SK_CONFERENCE), 0);
    Call(2, 0, CONNECTED);
    Active(2);
    Display(0, "Numero:");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 2 ONHOLD", "NEWCALL 3", "STATE 3 DIALTONE"));
}

TEST_F(Tracker, SecondCallOfferedAgainMeansOneOfTwoHasEnded) {
    struct Case {
        DWORD first, second;
        int dropRequested;
        Strings events;
        std::array<int, 2> calls;
    };
    const Case cases[] = {
        {ONHOLD, PROCEEDING, 0, {"STATE 1 DISCONNECTED 1", "STATE 1 IDLE", "STATE 0 CONNECTED"}, {0, -1}},
        {ONHOLD, CONNECTED, 0, {"STATE 0 DISCONNECTED 1", "STATE 0 IDLE"}, {-1, 1}},
        {ONHOLD, CONNECTED, 1, {"STATE 1 DISCONNECTED 1", "STATE 0 CONNECTED", "STATE 1 IDLE"}, {0, -1}},
        {ONHOLD, DISCONNECTED, 0, {"STATE 0 CONNECTED", "STATE 1 IDLE"}, {0, -1}},
    };
    for (const Case& c : cases) {
        CallTable.fill(CallRecord{});
        Double(c.first, c.second);
        Tracking.SecondCallDropReq = c.dropRequested;
        Display(1, "2eApp");
        EXPECT_EQ(LineEvents(), c.events);
        EXPECT_EQ(TouchTable[1].calls, c.calls);
        EXPECT_EQ(Tracking.SecondCallDropReq, 0);
    }
}

TEST_F(Tracker, SoftKeysOfADoubleCall) {
    SoftKeyPressed(2);
    EXPECT_THAT(LineEvents(), IsEmpty());
    Double(ONHOLD, CONNECTED);
    SoftKeyPressed(2);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 ONHOLD", "STATE 0 CONNECTED"));
    SoftKeyPressed(1);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 1 CONNECTED", "STATE 0 IDLE"));
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(-1, 1));
    EXPECT_EQ(Tracking.DbCall, 0);
}

// --- conferences -------------------------------------------------------------------------------------------------------------

TEST_F(Tracker, ConferenceBySoftKeyEndedByItAgain) {
    Double(ONHOLD, CONNECTED);
    SoftKeyPressed(3);
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 30", "STATE 30 ONHOLDPENDCONF", "STATE 0 CONFERENCED",
                                          "STATE 1 CONFERENCED", "STATE 30 CONNECTED"));
    SoftKeyPressed(3);
    EXPECT_THAT(LineEvents(), IsEmpty());
    Display(0, "MARTIN");
    EXPECT_THAT(LineEvents(),
                ElementsAre("STATE 30 IDLE", "STATE 1 DISCONNECTED 1", "STATE 0 CONNECTED", "STATE 1 IDLE"));
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(0, -1));
}

TEST_F(Tracker, PartyThatLeavesIsFoundByTheOthersText) {
    Double(ONHOLD, CONNECTED);
    Tracking.ConferenceReq = 1;
    ProviderState.htConference = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100 + CONF_CREF});
    Display(1, "Transf");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 30 ONHOLDPENDCONF", "STATE 0 CONFERENCED", "STATE 1 CONFERENCED",
                                          "STATE 30 CONNECTED"))
        << "the request has made the conference call";
    Display(0, "MARTIN        DURAND        Conf");
    Display(1, "2eApp");
    EXPECT_EQ(Tracking.ConfBroken, 1);
    Display(0, "somebody else");
    EXPECT_EQ(Tracking.ConfBroken, 1) << "tried again at the next update";
    LineEvents();
    Display(0, "DURAND      ");
    EXPECT_THAT(LineEvents(),
                ElementsAre("STATE 30 IDLE", "STATE 1 CONNECTED", "STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
    EXPECT_EQ(Tracking.ConfInProgress, 0);
}

TEST_F(Tracker, ConferenceOverTwoKeysAndItsThreeEnds) {
    const auto build = [&] {
        CallTable.fill(CallRecord{});
        Tracking = TrackingState{};
        TouchTable[1].calls = TouchTable[2].calls = {-1, -1};
        Call(1, 0, ONHOLD);
        TouchTable[1].icon = HOLD_ICON;
        Call(2, 0, CONNECTED);
        Active(2);
        LineEvents();
        Icon(1, ACTIV_ICON);
    };
    build();
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 30", "STATE 30 ONHOLDPENDCONF", "STATE 0 CONFERENCED",
                                          "STATE 1 CONFERENCED", "STATE 30 CONNECTED"));
    EXPECT_EQ(Tracking.ActivCallTouch, 1);
    Icon(2, IDLE_ICON);  // the party on the other key
    EXPECT_THAT(LineEvents(),
                ElementsAre("STATE 30 IDLE", "STATE 1 DISCONNECTED 1", "STATE 1 IDLE", "STATE 0 CONNECTED"));
    build();
    LineEvents();
    Icon(1, IDLE_ICON);  // the active key itself
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 30 DISCONNECTED 1", "STATE 30 IDLE", "STATE 0 DISCONNECTED 1",
                                          "STATE 1 CONNECTED", "STATE 0 IDLE"));
    EXPECT_EQ(Tracking.ActivCallTouch, 2);
    CallTable.fill(CallRecord{});
    Double(ONHOLD, CONNECTED);
    SoftKeyPressed(3);
    LineEvents();
    Icon(1, IDLE_ICON);  // both on one key
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 1 DISCONNECTED 1", "STATE 0 IDLE",
                                          "STATE 1 IDLE", "STATE 30 IDLE"));
    EXPECT_EQ(Tracking.ActivCallTouch, 0);
}

// --- supervision -------------------------------------------------------------------------------------------------------------

TEST_F(Tracker, SupervisedCallsRingEndAndAreIntercepted) {
    Settings.SupervService = 0;
    Icon(7, INCOM_ICON);
    EXPECT_THAT(LineEvents(), IsEmpty());
    Settings.SupervService = 1;
    Icon(7, INCOM_ICON);
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0"));
    SupervKeyPressed(7);
    EXPECT_EQ(PickUpSupervCref, 0);
    Icon(7, ACTIV_ICON);  // the colleague answered: nothing yet
    Icon(7, IDLE_ICON);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
    EXPECT_THAT(TraceLines(), Contains("Annulation PickUpSupervProceeding 0000 "));
    Icon(7, INCOM_ICON);
    SupervKeyPressed(7);
    Icon(1, ACTIV_ICON);
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0", "STATE 0 CONNECTED"));
    Icon(7, INCOM_ICON);  // another call rings there before the key has gone out
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 1"));
    TouchTable[7].calls[0] = 0;
    Icon(7, IDLE_ICON);
    EXPECT_THAT(LineEvents(), IsEmpty());
    EXPECT_THAT(TraceLines(), Contains("Icone:7 éteint - Superv Interceptee - Ref:0"));
    EXPECT_EQ(TouchTable[7].calls[0], -1);
}

// --- anything at all -----------------------------------------------------------------------------------------------------------

TEST_F(Tracker, RandomIconsAndDisplaysNeverLeaveTheTables) {
    std::mt19937 random(4711);
    const auto any = [&](int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); };
    const char* texts[] = {"Raccrochez",
                           "Annulez",
                           "Numero: 12",
                           "4720",
                           "MARTIN 4720",
                           "=>X 12",
                           "1:4720",
                           "2:DUPONT  1",
                           "2eApp",
                           "Fin2Ap",
                           "VaVien",
                           "Conf",
                           "Transf",
                           "",
                           "StopV",
                           "3://1  /",
                           "//",
                           "=>",
                           "A             B   Conf"};
    Key(9, TOUCH_SECRETAIRE);
    TraceMask = 0;
    for (int step = 0; step < 20'000; ++step) {
        ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(any(4));
        Settings.EnquiryCallMode = any(2);
        switch (any(6)) {
        case 0:
        case 1:
        case 2: Icon(any(10), ACTIV_ICON + any(5)); break;
        case 3: Display(any(2), texts[any(std::size(texts))]); break;
        case 4: SoftKeyPressed(1 + any(3)); break;
        default: SupervKeyPressed(any(12)); break;
        }
        for (int key = 1; key < KEY_COUNT; ++key)
            for (const int cref : TouchTable[static_cast<std::size_t>(key)].calls)
                ASSERT_TRUE(cref >= -1 && cref < CALL_COUNT) << step;
        ASSERT_TRUE(Tracking.ActivCallTouch >= 0 && Tracking.ActivCallTouch < KEY_COUNT) << step;
        Events();
    }
}

}  // namespace
