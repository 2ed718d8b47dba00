// The call model: its operations' order of traces and events, and what each leaves behind.
#include "support/tracked.h"
#include "tracking/steps.h"

#include <cstring>

namespace {

class Model : public TrackedSet {};

TEST_F(Model, ClearedCallOfADoubleCallLeavesItsKeyActiveButDark) {
    Double(CONNECTED, ONHOLD);
    Undirected(1);
    CopyText(TmpAddress, "4720");
    CopyText(Record(1).DigitsToGenerate, "12");
    Record(1).Origin = LINECALLORIGIN_EXTERNAL;
    ClearCall(1);
    EXPECT_EQ(Steps(), "ClearCall cref 1 | STATE 1 DISCONNECTED 1 | STATE 1 IDLE");
    EXPECT_EQ(Tracking.ActivCallTouch, 1);
    EXPECT_EQ(At(1).icon, IDLE_ICON);
    EXPECT_STREQ(TmpAddress, "");
    EXPECT_STREQ(Record(1).DigitsToGenerate, "12") << "digits under way stay";
    EXPECT_EQ(Record(1).Origin, LINECALLORIGIN_UNAVAIL);
    ClearCall(0);
    EXPECT_EQ(Tracking.ActivCallTouch, 0);
}

TEST_F(Model, NewCallReportsAllItsStatesAndThenTracesThem) {
    EXPECT_EQ(NewCall(2, PROCEEDING), 0);
    EXPECT_EQ(Steps(),
              "NEWCALL 0 | NewCall tou:2 RINGBACK cref:0000 | STATE 0 DIALTONE | STATE 0 DIALING | STATE 0 PROCEEDING "
              "| STATE 0 RINGBACK | DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_DIALTONE, 0, cref:0) | "
              "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_DIALING, 0, cref:0) | DoLineEvent(LINE_CALLSTATE,  "
              "LINECALLSTATE_PROCEEDING, 0, cref:0) | DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_RINGBACK, 0, cref:0)");
    Tracking.SecondCallDropReq = 1;
    EXPECT_EQ(NewCall(2, LINECALLSTATE_RINGBACK), 1);
    EXPECT_EQ(Tracking.SecondCallDropReq, 0) << "the drop of an earlier second call is not this one's";
    EXPECT_THAT(At(2).calls, ElementsAre(0, 1));
    EXPECT_EQ(Tracking.DbCall, 1);
    Steps();
    EXPECT_EQ(NewCall(3, CONNECTED), 2);
    EXPECT_EQ(Steps(), "NEWCALL 2");
    EXPECT_THAT(At(3).calls, ElementsAre(-1, -1)) << "its creator places any other call";
}

TEST_F(Model, NewCallLeavesTheSlotsOfItsRecordsFormerOneButThoseOfSupervision) {
    Key(5, TOUCH_SUPERV);
    for (const int key : {2, 5})
        At(key).calls[1] = 0;
    EXPECT_EQ(AllocCallRecord(DIALTONE, 3), 0);
    EXPECT_EQ(At(2).calls[1], -1);
    EXPECT_EQ(At(5).calls[1], 0);
    Tracking.PickUpCref = 1;
    RunningRequest = {REQUEST_BLIND_TRANSFER, 0};
    EXPECT_EQ(AllocCallRecord(DIALTONE, 3), 2) << "a pick-up waits in record 1";
    AllocCallRecord(DIALTONE, 3);
    EXPECT_EQ(RunningRequest.ConsultCref, 2) << "the first one that goes out";
}

TEST_F(Model, NewStateByReportedState) {
    struct Case {
        DWORD from, reported, then;
        std::string steps;
        bool activates;
    };
    const std::string direction = "Inbound:1 Outbound:0 byMakeCall:0", ringback = "STATE 0 RINGBACK | ",
                      proceeding = "NewState tou:2 - Etat:PROCEEDING - Ref:0000 | " + direction;
    const Case cases[] = {
        {OFFERING, CONNECTED, CONNECTED,
         "NewState tou:2 - Etat:CONNECTED - Ref:0000 | STATE 0 CONNECTED | " + direction, true},
        {CONNECTED, ONHOLD, ONHOLD, "NewState tou:2 - Etat:ONHOLD - Ref:0000 | STATE 0 ONHOLD", false},
        {LINECALLSTATE_DIALING, PROCEEDING, PROCEEDING, "STATE 0 PROCEEDING | " + ringback + proceeding, true},
        {DIALTONE, LINECALLSTATE_RINGBACK, PROCEEDING,
         "STATE 0 DIALING | STATE 0 PROCEEDING | " + ringback + proceeding, true},
        {PROCEEDING, LINECALLSTATE_RINGBACK, PROCEEDING, ringback + proceeding, true},
        {CONNECTED, PROCEEDING, CONNECTED, proceeding, true},
        {CONNECTED, BUSY, CONNECTED, "", false},
    };
    ToldFirst = ONHOLD;
    for (const Case& c : cases) {
        Fresh();
        Tracking.PickUpCref = Call(2, 0, c.from);
        NewState(0, 2, c.reported);
        EXPECT_EQ(Steps(), c.steps) << c.from << " " << c.reported;
        EXPECT_EQ(Record(0).state, c.then);
        EXPECT_EQ(Tracking.ActivCallTouch, c.activates ? 2 : 0);
        EXPECT_EQ(At(2).icon, c.activates ? ACTIV_ICON : IDLE_ICON);
        EXPECT_EQ(Tracking.PickUpCref, c.reported == CONNECTED ? -1 : 0);
    }
}

TEST_F(Model, ResetOfAllCallsClearsTheMarksOfDoubleCallsAndConferences) {
    Double(CONFERENCED, CONFERENCED);
    Call(8, 0, ONHOLD);
    Record(5).state = IDLE;
    Tracking.ConfInProgress = Tracking.ConferenceReq = Tracking.ConfEndReq = Tracking.ConfBroken = 1;
    Tracking.SecondCallDropReq = 1;
    Tracking.PickUpCref = 6;
    confstate = CONNECTED;
    CopyText(ConfText1, "MARTIN");
    CopyText(ConfText2, "DURAND");
    AllCallReset();
    EXPECT_EQ(Steps(), "STATE 0 IDLE | AllCallReset-DoLineEvent(LINECALLSTATE_IDLE,0) | STATE 1 IDLE | "
                       "AllCallReset-DoLineEvent(LINECALLSTATE_IDLE,1) | STATE 2 IDLE | "
                       "AllCallReset-DoLineEvent(LINECALLSTATE_IDLE,2)");
    EXPECT_THAT(At(1).calls, ElementsAre(-1, -1));
    EXPECT_EQ(At(1).icon, IDLE_ICON) << "else it hears of no call any more";
    EXPECT_THAT(At(8).calls, ElementsAre(2, -1)) << "only multi-line keys are emptied";
    EXPECT_EQ(Tracking.ConfInProgress | Tracking.ConferenceReq | Tracking.ConfEndReq | Tracking.ConfBroken, 0);
    EXPECT_EQ(Tracking.SecondCallDropReq | Tracking.DbCall | Tracking.ActivCallTouch, 0);
    EXPECT_EQ(Tracking.PickUpCref, 6) << "its call has not shown yet";
    EXPECT_TRUE(Tracking.ConfParty1 == -1 && Tracking.ConfParty2 == -1 && confstate == IDLE);
    EXPECT_EQ(std::string(ConfText1) + ConfText2, "");
    for (const CallRecord& call : CallTable)
        EXPECT_TRUE(call.state == IDLE && call.touch == 0 && !call.HasDirection());
    // The next call with that record is not ended when the boss key goes out.
    for (const bool outgoing : {false, true}) {
        Fresh();
        Call(8, 0, CONNECTED);
        At(8).icon = ACTIV_ICON;
        AllCallReset();
        Steps();
        if (outgoing)
            StandOnKey(1, 0);
        else
            EXPECT_EQ(AllocCallRecord(CONNECTED, 1), 0);
        Record(0).state = CONNECTED;
        Record(0).byMakeCall = 1;
        Icon(8, IDLE_ICON);
        EXPECT_EQ(Record(0).state, CONNECTED);
        EXPECT_EQ(Record(0).touch, 1);
        EXPECT_THAT(LineEvents(), IsEmpty());
    }
}

TEST_F(Model, CharactersOfTheSetByRow) {
    const char* rows[8] = {"ÇüéâäàåçêëèïîìÄÅ", "ÉæÆôöòûùÿÖÜñÑªº¿", "áíóú¢£¥Rƒ¡ÃãÕõØø", "·¨°`´½¼×÷  «»   ",
                           "              RC", "™†§¶            ", "ß         µ     ", "        R F   SP"};
    for (int row = 0; row < 8; ++row) {
        for (int column = 0; column < 16; ++column)
            ::Display.Lines[1][column] = static_cast<char>(0x80 + 16 * row + column);
        EXPECT_EQ(Utf8(std::string(DisplayLine(1), 16)), rows[row]) << row;
    }
    ::Display.Lines[0][0] = 31;
    ::Display.Lines[0][1] = 127;
    EXPECT_EQ(std::string(DisplayLine(0), 2), "#\x7F");
    char label[] = "  \x82\x82  ", out[42] = "";
    EXPECT_STREQ(CleanLabel(label), "\x82\xE9") << "the first character stays as received";
    std::memset(out, 'x', sizeof out);
    GetDisplayLine(1, out);
    EXPECT_EQ(out[39], ' ');
    EXPECT_EQ(out[40], 'x') << "forty characters, no terminator";
}

TEST_F(Model, OneOfTwoCallsIsSearchedForOnMultiLineKeysAlone) {
    for (const int key : {1, 8, 9, 10}) {
        Fresh();
        Key(9, TOUCH_SECRETAIRE);
        Key(10, TOUCH_SECR_DEBORD);
        Call(key, 0, CONNECTED);
        Call(key, 1, CONNECTED);
        Call(key, 1, ONHOLD);
        EXPECT_EQ(SearchState(key, CONNECTED), 0);
        EXPECT_EQ(SearchState(key, ONHOLD), key == 1 ? 2 : -1) << key;
    }
}

TEST_F(Model, NewCallKeepsTheLastDigitKeyedBeforeIt) {
    for (const auto& [keyed, kept] : {std::pair{"0123", "3"}, {"4", "4"}, {"", ""}}) {
        Fresh();
        CopyText(DialedNumber, keyed);
        EXPECT_EQ(AllocCallRecord(DIALTONE, 1), 0);
        EXPECT_STREQ(DialedNumber, kept);
    }
}

TEST_F(Model, EndedCallLeavesNoPartyBehind) {
    Call(1, 0, CONNECTED);
    CallRecord& call = Record(0);
    char* const texts[] = {call.DestAddress,        call.DestName,        call.CalledAddress,      call.CalledName,
                           call.CallerAddress,      call.CallerName,      call.RedirectionAddress, call.RedirectionName,
                           call.RedirectingAddress, call.RedirectingName, call.ConnectedAddress,   call.ConnectedName};
    for (char* const text : texts)
        text[0] = 'x';
    call.Reason = LINECALLREASON_FWDBUSY;
    ClearCall(0);
    for (const char* const text : texts)
        EXPECT_STREQ(text, "");
    EXPECT_EQ(call.Reason, DWORD{LINECALLREASON_UNAVAIL});
}

}  // namespace
