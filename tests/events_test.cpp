// What exactly goes to TAPI's callbacks, and in which order to the provider's own records.
#include "tracking/events.h"

#include "config/set/set_config.h"
#include "config/settings.h"
#include "control/make_call.h"
#include "control/requests.h"
#include "link/link_layer.h"
#include "support/tracked.h"

#include <functional>
#include <utility>

namespace {

struct Given {
    HTAPICALL Call;
    DWORD Message;
    DWORD_PTR P1, P2, P3;
    bool operator==(const Given&) const = default;
};
std::vector<Given> Told;

HTAPICALL Tapi(std::uintptr_t handle) {
    return reinterpret_cast<HTAPICALL>(handle);
}

// TAPI's side of the callbacks. Functions: a lambda has no calling convention of its own, which is another one on x86.
void CALLBACK Tell(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3) {
    EXPECT_EQ(line, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11}));
    Told.push_back({call, message, p1, p2, p3});
    Trace(TRACE_ALWAYS, "told");  // as what TAPI asks for within it would
    if (message == 500)
        Told.back().P2 = reinterpret_cast<DWORD_PTR>(
            std::exchange(*reinterpret_cast<HTAPICALL*>(p2), Tapi(0x500)));  // what stood in the record
}
void CALLBACK DropNext(DRV_REQUESTID, LONG) {
    Trace(TRACE_ALWAYS, "completed");
    ProviderState.PendingRequestID = 8;
    RunningRequest = {REQUEST_DROP, 3, -1};
}
// From within an event TAPI asks for the next one.
void CALLBACK TransferNext(HTAPILINE, HTAPICALL, DWORD, DWORD_PTR, DWORD_PTR, DWORD_PTR) {
    ProviderState.PendingRequestID = 8;
    RunningRequest = {REQUEST_BLIND_TRANSFER, 3, -1};
}

using EventsTest = TrackedSet;

TEST_F(EventsTest, CallEventsNameTheirCallAndTheMediaModeAndANewCallForgetsItsFormerHandle) {
    Told.clear();
    ProviderState.LineEventProc = Tell;
    CallTable[3].htCall = Tapi(0x103);
    ProviderState.htConference = Tapi(0x130);
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_CONNECTED, 7, 3);
    DoLineEvent(LINE_CALLINFO, LINECALLINFOSTATE_CALLERID, 0, CONF_CREF);
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_INSERVICE, 9, -1);
    DoLineEventNewCall(3);
    DoLineEventNewConf();
    EXPECT_THAT(Told, ElementsAre(Given{Tapi(0x103), 2, 0x100, 7, 4}, Given{Tapi(0x130), 1, 0x8000, 0, 4},
                                  Given{nullptr, 8, 0x40, 9, 0}, Given{nullptr, 500, 3, 0, 0},
                                  Given{nullptr, 500, CONF_CREF, 0, 0}));
    EXPECT_EQ(CallTable[3].htCall, Tapi(0x500));
    EXPECT_EQ(ProviderState.htConference, Tapi(0x500));
    ProviderState.CompletionProc = DropNext;
    CompleteRequest(ProviderState, 7, 0);
    EXPECT_THAT(TraceLines(), ElementsAre("LinEv cref=3, ev:2,val100,mod=7", "LineEvent send", "told",
                                          "LinEv cref=30, ev:1,val8000,mod=0", "LineEvent send", "told",
                                          "LinEv cref=-1, ev:8,val40,mod=9", "LineEvent send", "told",
                                          "DoLineEventNewCall send cref:3", "told", "DoLineEventNewConf send", "told",
                                          "SendCompletion:7, res:0", "completed"));
    ProviderState.LineEventProc = nullptr;  // nobody has opened the line
    ProviderState.CompletionProc = nullptr;
    DoLineEventNewCall(3);
    DoLineEventNewConf();
    CompleteRequest(ProviderState, 7, 0);
    EXPECT_THAT(TraceLines(), ElementsAre("SendCompletion:7, res:0"));
}

TEST_F(EventsTest, TransferOneOfWhoseCallsEndsIsNotLeftWaiting) {
    for (const RequestCode code : {REQUEST_BLIND_TRANSFER, REQUEST_SETUP_TRANSFER})
        for (const int ended : {2, 5})
            for (const DWORD state : {DISCONNECTED, IDLE}) {
                ProviderState.PendingRequestID = 7;
                RunningRequest = {code, 2, 5};
                DoLineEvent(LINE_CALLSTATE, state, 0, 3);
                DoLineEvent(LINE_CALLSTATE, ONHOLD, 0, ended);
                DoLineEvent(LINE_CALLINFO, state, 0, ended);
                EXPECT_EQ(ProviderState.PendingRequestID, 7u);
                Events();
                DoLineEvent(LINE_CALLSTATE, state, 0, ended);
                EXPECT_EQ(Events().back(), "REPLY 7 80000048");
                EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
            }
    ProviderState.LineEventProc = TransferNext;
    DoLineEvent(LINE_CALLSTATE, DISCONNECTED, 0, 3);
    EXPECT_EQ(ProviderState.PendingRequestID, 8u) << "asked for behind this end";
}

// The application drops its next call as soon as it hears that the request before is done.
TEST_F(EventsTest, RequestStartedFromTheCompletionKeepsRunning) {
    ProviderState.CompletionProc = DropNext;
    Call(1, 0, CONNECTED);
    Active(1);
    const auto ends = [](RequestCode code, int enquiryMode, const std::function<void()>& seen) {
        Settings.EnquiryCallMode = enquiryMode;
        RunningRequest = {code, 0, 5};
        ProviderState.PendingRequestID = 7;
        seen();
        EXPECT_EQ(ProviderState.PendingRequestID, 8u) << code;
        EXPECT_EQ(RunningRequest.Code, REQUEST_DROP) << code;
        EXPECT_EQ(RunningRequest.Cref, 3) << code;
    };
    ends(REQUEST_DROP, 0, [] { CompleteRunningDrop(0); });
    ends(REQUEST_BLIND_TRANSFER, 0, [&] { Display(1, "Transf"); });
    ends(REQUEST_SETUP_TRANSFER, 0, [&] { Icon(2, ACTIV_ICON); });
    ends(REQUEST_SETUP_TRANSFER, 1, [&] { Active(1), Display(1, "Fin2Ap"); });
    EXPECT_EQ(CallTable[5].touch, 1) << "the consultation call, all the same";
}

void CALLBACK CallAgain(DRV_REQUESTID, LONG) {
    CopyText(CallTable[0].DestAddress, "12");
    EXPECT_EQ(DoMakeCall(0, REQUEST_MAKE_CALL), 0);
}

TEST_F(EventsTest, CallMadeFromTheCompletionOfADropKeepsItsRecordAndItsKey) {
    Call(1, 0, CONNECTED);
    Active(1);
    RunningRequest = {REQUEST_DROP, 0};
    ProviderState.PendingRequestID = 7;
    ProviderState.CompletionProc = CallAgain;
    Icon(1, IDLE_ICON);
    EXPECT_EQ(Record(0).state, PROCEEDING);
    EXPECT_EQ(Record(0).byMakeCall, 1);
    EXPECT_STREQ(Record(0).DestAddress, "12");
    EXPECT_EQ(Record(0).touch, 1);
    EXPECT_THAT(At(1).calls, ElementsAre(0, -1));
    Events();
    Icon(2, INCOM_ICON);
    EXPECT_THAT(Events(), ElementsAre("NEWCALL 1")) << "no record is shared";
}

// Key 1 looks free then, and is not.
TEST_F(EventsTest, CallMadeFromACompletionLeavesTheKeyToTheCallerOrTheConsultationThatIsAboutToStandThere) {
    ProviderState.CompletionProc = CallAgain;
    for (const bool rings : {true, false}) {
        Fresh();
        if (rings) {
            Call(1, 0, PROCEEDING);  // crosses the caller
            At(1).icon = IDLE_ICON;
        }
        RunningRequest = {rings ? REQUEST_DROP : REQUEST_SETUP_TRANSFER, 0, 5};
        ProviderState.PendingRequestID = 7;
        Icon(1, rings ? INCOM_ICON : ACTIV_ICON);
        EXPECT_EQ(Record(0).state, PROCEEDING);
        EXPECT_EQ(Record(0).touch, 2);
        EXPECT_THAT(At(2).calls, ElementsAre(0, -1));
        EXPECT_THAT(At(1).calls, ElementsAre(rings ? 1 : 5, -1));
        EXPECT_EQ(Record(rings ? 1 : 5).state, rings ? OFFERING : DIALTONE);
    }
}

TEST_F(EventsTest, OnlyTheEndOfItsCallCompletesADrop) {
    ProviderState.PendingRequestID = 8;
    RunningRequest = {REQUEST_DROP, 2, -1};
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 1);
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_DISCONNECTED, 0, 2);
    DoLineEvent(LINE_CALLINFO, LINECALLSTATE_IDLE, 0, 2);
    DoLineEvent(LINE_CALLINFO, LINECALLSTATE_ONHOLD, 0, 2);
    EXPECT_EQ(LastHeldCref, -1);
    EXPECT_EQ(Events().size(), 4u) << "no completion";
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 2);
    EXPECT_THAT(Events(), ElementsAre("STATE - IDLE", "REPLY 8 0"));
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_EQ(RunningRequest.Cref, -1);
    EXPECT_EQ(SendCompletion(ProviderState, 0), 0u);
}

TEST_F(EventsTest, ReinitHasNoLineHandleAndAClosedLineGetsNothing) {
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_REINIT, 0, -1);
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_INSERVICE, 0, -1);
    EXPECT_THAT(Events(), ElementsAre("LINEDEV REINIT (no line)", "LINEDEV INSERVICE"));
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_ONHOLD, 0, 3);
    EXPECT_EQ(LastHeldCref, 3);
    DoLineEventNewConf();
    confstate = LINECALLSTATE_CONNECTED;
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_CONNECTED, 0, CONF_CREF);
    EXPECT_THAT(Events(), ElementsAre("STATE - ONHOLD", "NEWCALL 30", "STATE 30 CONNECTED"));
    ProviderState.LineEventProc = nullptr;
    ProviderState.PhoneEventProc = nullptr;
    DoLineEvent(LINE_CLOSE, 0, 0, -1);
    DoLineEventNewCall(1);
    PhoneDisplayChanged();
    EXPECT_THAT(Events(), IsEmpty());
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
