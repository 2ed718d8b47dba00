// What exactly goes to TAPI's callbacks, and in which order to the provider's own records.
#include "provider/events.h"

#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "support/fixture.h"
#include "support/port.h"

#include <functional>

namespace {

struct Given {
    HTAPILINE Line;
    HTAPICALL Call;
    DWORD Message;
    DWORD_PTR P1, P2, P3;
    bool operator==(const Given&) const = default;
};
std::vector<Given> Calls;
HTAPICALL FoundInRecord;  // what stood in the record when LINE_NEWCALL came

const HTAPILINE OpenLine = reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11});

HTAPICALL Tapi(std::uintptr_t handle) {
    return reinterpret_cast<HTAPICALL>(handle);
}

void CALLBACK Keep(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3) {
    Calls.push_back({line, call, message, p1, p2, p3});
    if (message != 500)
        return;
    FoundInRecord = *reinterpret_cast<HTAPICALL*>(p2);
    *reinterpret_cast<HTAPICALL*>(p2) = Tapi(0x500);
}

class ToTapi : public OnTheLine {
protected:
    void SetUp() override {
        OnTheLine::SetUp();
        ProviderState.LineEventProc = Keep;
        Calls.clear();
    }
};

TEST_F(ToTapi, CallEventsCarryTheMediaModeLineEventsDoNot) {
    CallTable[3].htCall = Tapi(0x103);
    ProviderState.htConference = Tapi(0x130);
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_CONNECTED, 7, 3);
    DoLineEvent(LINE_CALLINFO, LINECALLINFOSTATE_CALLERID, 0, CONF_CREF);
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_INSERVICE, 9, -1);
    EXPECT_THAT(Calls,
                ElementsAre(Given{OpenLine, Tapi(0x103), 2, 0x100, 7, 4}, Given{OpenLine, Tapi(0x130), 1, 0x8000, 0, 4},
                            Given{OpenLine, nullptr, 8, 0x40, 9, 0}));
    EXPECT_THAT(TraceLines(),
                ElementsAre("LinEv cref=3, ev:2,val100,mod=7", "LineEvent send", "LinEv cref=30, ev:1,val8000,mod=0",
                            "LineEvent send", "LinEv cref=-1, ev:8,val40,mod=9", "LineEvent send"));
}

TEST_F(ToTapi, NewCallForgetsTheFormerHandleBeforeTapiGivesItsOwn) {
    CallTable[4].htCall = Tapi(0x104);
    DoLineEventNewCall(4);
    EXPECT_EQ(FoundInRecord, nullptr);
    EXPECT_EQ(CallTable[4].htCall, Tapi(0x500));
    const auto field = reinterpret_cast<DWORD_PTR>(&CallTable[4].htCall);
    EXPECT_THAT(Calls, ElementsAre(Given{OpenLine, nullptr, 500, 4, field, 0}));
    ProviderState.htConference = Tapi(0x130);
    DoLineEventNewConf();
    EXPECT_EQ(FoundInRecord, nullptr);
    EXPECT_EQ(ProviderState.htConference, Tapi(0x500));
    EXPECT_THAT(TraceLines(), ElementsAre("DoLineEventNewCall send cref:4", "DoLineEventNewConf send"));
}

TEST_F(ToTapi, RequestMadeFromTheCompletionStaysPending) {
    ProviderState.CompletionProc = [](DRV_REQUESTID, LONG) {
        EXPECT_EQ(ProviderState.PendingRequestID, 0u);
        ProviderState.PendingRequestID = 8;
    };
    ProviderState.PendingRequestID = 7;
    EXPECT_EQ(SendCompletion(ProviderState, static_cast<LONG>(LINEERR_OPERATIONFAILED)), 7u);
    EXPECT_EQ(ProviderState.PendingRequestID, 8u);
    EXPECT_THAT(TraceLines(), ElementsAre("SendCompletion:7, res:80000048"));
}

using EventsTest = OnTheLine;

TEST_F(ToTapi, OnlyADropOfThatCallIsCompletedByItsEnd) {
    ProviderState.PendingRequestID = 7;
    RunningRequest = {REQUEST_SETUP_TRANSFER, 2, 5};
    CompleteRunningDrop(2);
    EXPECT_EQ(ProviderState.PendingRequestID, 7u) << "another request";
    RunningRequest = {REQUEST_DROP, 2, 5};
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_DISCONNECTED, 0, 2);
    EXPECT_EQ(RunningRequest.Code, REQUEST_DROP) << "not idle yet";
    TraceLines();
    CompleteRunningDrop(2);
    EXPECT_THAT(TraceLines(), ElementsAre("lineDrop Running cref 0002 => LINE_REPLY OK", "SendCompletion:7, res:0"));
    EXPECT_EQ(RunningRequest.Cref, -1);
    EXPECT_EQ(RunningRequest.ConsultCref, -1);
}

TEST_F(ToTapi, TransferWhoseCallEndsIsNotLeftWaiting) {
    for (const RequestCode code : {REQUEST_BLIND_TRANSFER, REQUEST_SETUP_TRANSFER}) {
        ProviderState.PendingRequestID = 7;
        RunningRequest = {code, 2, 5};
        DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 5);
        DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_DISCONNECTED, 0, 2);
        EXPECT_EQ(ProviderState.PendingRequestID, 7u);
        Events();
        DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 2);
        EXPECT_EQ(Events().back(), "REPLY 7 80000048");
        EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    }
}

// The application drops its next call as soon as it hears that the request before is done.
TEST_F(ToTapi, RequestStartedFromTheCompletionKeepsRunning) {
    ProviderState.CompletionProc = [](DRV_REQUESTID, LONG) {
        ProviderState.PendingRequestID = 8;
        RunningRequest = {REQUEST_DROP, 3, -1};
    };
    CopyText(Settings.SoftKeyLabels[SK_TRANSFER], "Transf");
    CopyText(Settings.SoftKeyLabels[SK_END_SECOND_CALL], "Fin2Ap");
    Key(1, TOUCH_MULTI);
    Key(2, TOUCH_MULTI);
    Call(1, 0, LINECALLSTATE_CONNECTED);
    Tracking.ActivCallTouch = 1;
    struct Ending {
        RequestCode code;
        int enquiryMode;
        std::function<void()> seen;
    };
    for (const Ending& ending :
         {Ending{REQUEST_DROP, 0, [] { CompleteRunningDrop(0); }},
          {REQUEST_BLIND_TRANSFER, 0, [&] { Display(1, "Transf"); }},
          {REQUEST_SETUP_TRANSFER, 0, [&] { Icon(2, ACTIV_ICON); }},
          {REQUEST_SETUP_TRANSFER, 1, [&] { Tracking.ActivCallTouch = 1, Display(1, "Fin2Ap"); }}}) {
        Settings.EnquiryCallMode = ending.enquiryMode;
        RunningRequest = {ending.code, 0, 5};
        ProviderState.PendingRequestID = 7;
        ending.seen();
        EXPECT_EQ(ProviderState.PendingRequestID, 8u) << ending.code;
        EXPECT_EQ(RunningRequest.Code, REQUEST_DROP) << ending.code;
        EXPECT_EQ(RunningRequest.Cref, 3) << ending.code;
    }
    EXPECT_EQ(CallTable[5].touch, 1) << "the consultation call, all the same";
}

TEST_F(EventsTest, OnlyTheEndOfItsCallCompletesADrop) {
    ProviderState.PendingRequestID = 8;
    RunningRequest = {REQUEST_DROP, 2, -1};
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 1);
    DoLineEvent(LINE_CALLINFO, LINECALLSTATE_IDLE, 0, 2);
    DoLineEvent(LINE_CALLINFO, LINECALLSTATE_ONHOLD, 0, 2);
    EXPECT_EQ(LastHeldCref, -1);
    EXPECT_EQ(Events().size(), 3u) << "no completion";
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 2);
    EXPECT_THAT(Events(), ElementsAre("STATE - IDLE", "REPLY 8 0"));
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_EQ(SendCompletion(ProviderState, 0), 0u);
}

TEST_F(EventsTest, PhoneEventsNameTapisPhone) {
    static std::vector<Given> phone;
    phone.clear();
    ProviderState.PhoneEventProc = [](HTAPIPHONE handle, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3) {
        phone.push_back({reinterpret_cast<HTAPILINE>(handle), nullptr, message, p1, p2, p3});
    };
    PhoneStateEvent(PHONESTATE_LAMP, 21);
    PhoneDisplayChanged();
    const HTAPILINE handle = reinterpret_cast<HTAPILINE>(std::uintptr_t{0x22});
    EXPECT_THAT(phone, ElementsAre(Given{handle, nullptr, PHONE_STATE, PHONESTATE_LAMP, 21, 0},
                                   Given{handle, nullptr, PHONE_STATE, PHONESTATE_DISPLAY, 0, 0}));
}

TEST_F(EventsTest, TheFirstCallInAStateIsFoundAndOnlyAnOpenPortHasErrors) {
    EXPECT_EQ(FindCallByState(LINECALLSTATE_ONHOLD), -1);
    CallTable[19].state = CallTable[4].state = LINECALLSTATE_ONHOLD;
    EXPECT_EQ(FindCallByState(LINECALLSTATE_ONHOLD), 4);
    RecordingPort port;
    port.Open();
    EXPECT_EQ(CheckSerialError(Serial.Port), 0);
    EXPECT_EQ(CheckSerialError(INVALID_HANDLE_VALUE), -1);
    SerialCloseComms();
}

TEST_F(EventsTest, ReinitHasNoLineHandleAndAClosedLineGetsNothing) {
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_REINIT, 0, -1);
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_INSERVICE, 0, -1);
    EXPECT_THAT(Events(), ElementsAre("LINEDEV REINIT (no line)", "LINEDEV INSERVICE"));
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_ONHOLD, 0, 3);
    EXPECT_EQ(LastHeldCref, 3);
    DoLineEventNewConf();
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_CONNECTED, 0, CONF_CREF);
    EXPECT_THAT(Events(), ElementsAre("STATE - ONHOLD", "NEWCALL 30", "STATE 30 CONNECTED"));
    ProviderState.LineEventProc = nullptr;
    ProviderState.PhoneEventProc = nullptr;
    DoLineEvent(LINE_CLOSE, 0, 0, -1);
    DoLineEventNewCall(1);
    PhoneDisplayChanged();
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(EventsTest, SoftKeysOneToFiveArePressed) {
    EXPECT_EQ(SendSoftKey(0) + SendSoftKey(6), 0);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    EXPECT_EQ(SendSoftKey(3), 3);
    std::uint8_t frame[16];
    ASSERT_EQ(FifoPeek(LINK_FIFO, frame), 5);
    EXPECT_THAT(std::vector<int>(frame, frame + 5), ElementsAre(0x03, 0x26, 0x20, 0x1F, 0x98));
    EXPECT_EQ(DigitsToNumber("19200"), 19200u);
}

TEST_F(EventsTest, LastActionDecidesHowTheProviderStarts) {
    const auto read = [](const char* text) {
        DynamicConfig = DynamicConfigRecord{};
        SetSetting("Dynamic_Set_Conf", "LastAction", text);
        ReadLastAction();
        return std::vector<int>{DynamicConfig.LastActionState, DynamicConfig.WaitDynamicConfig,
                                DynamicConfig.StaticConfig, DynamicConfig.WaitTraceMode};
    };
    EXPECT_THAT(read(""), ElementsAre(0, 1, 0, 1));
    Link.TraceModeSeen = true;
    EXPECT_THAT(read("never"), ElementsAre(0, 1, 0, 0)) << "the card has shown what was waited for";
    Link.TraceModeSeen = false;
    EXPECT_THAT(read("success"), ElementsAre(1, 0, 1, 0));
    EXPECT_THAT(read("failed :V24 Trouble"), ElementsAre(2, 0, 1, 0));
    EXPECT_THAT(read("failed :Config dynamic :Device association ack not received"), ElementsAre(0, 1, 0, 1))
        << "longer than its buffer: counts as missing";
}

}  // namespace
