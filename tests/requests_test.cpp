// The dispatcher, making calls, generating digits: what is pressed, in which order events, completions and traces come,
// and how each request ends.
#include "control/requests.h"

#include "config/settings.h"
#include "control/digits.h"
#include "control/make_call.h"
#include "link/serial.h"
#include "link/tick.h"
#include "support/requests.h"
#include "thread/tick.h"
#include "tracking/multi_line.h"

namespace {

class Dispatching : public Requests {
protected:
    void SetUp() override {
        Requests::SetUp();
        CopyText(Settings.SetMCDU, "4711");
        for (int code = 0; code <= MAX_TA_CODE; ++code)
            CopyText(Settings.ServiceCodes[code], std::to_string(code + 1).c_str());
        DynamicConfig = DynamicConfigRecord{};
        DynamicConfig.WaitDynamicConfig = 0;
        Marks = RequestMarks{};
        Tick = TickState{};
        Tick.ConfigReceived = true;
        Link.TraceModeSeen = true;
        Link.SuperMsgSupported = false;
    }
    static LONG Ask(RequestCode code, int cref, DRV_REQUESTID request = 9) {
        ProviderState.PendingRequestID = request;
        ProviderState.RequestCref = cref;
        return DispatchRequest(code, ProviderState);
    }
};

TEST_F(Dispatching, EachCodeRunsItsHandlerAndEndsInItsWay) {
    struct Case {
        RequestCode code;
        const char *situation, *softKeys;  // as Stand takes them
        LONG answer;
        DRV_REQUESTID pending;  // afterwards
        std::string steps, pressed = {};
    };
    const std::string joined = " | Transfer de 2 appels CONFERENCED | REPLY 9 0",
                      counted = "CallsStat cref 0000 state 100 | CallsStat cref 0001 state 400 | Conf NumCalls 2 "
                                "connected 1 OnHold 1 OnHoldPend 0 Reoffer 0 | ";
    const auto digits = [](const char* code) { return std::string("03 26 03 0") + code + " | 03 26 03 08 CC"; };
    ProviderState.ConsultCref = 1;
    CopyText(ProviderState.ForwardDestination, "8");
    CopyText(ProviderState.PickupAddress, "8");
    // clang-format off
    const Case rows[] = {
        {REQUEST_DROP, "1C", "", 9, 9, "Drop call cref 0 ReqId 9 | DoClearCall - La ligne a deconnecter est CONNECTED | LineDrop Result:0", RELEASE},
        {REQUEST_DROP, "1I", "", WRONG_STATE, 0, "Drop call cref 0 ReqId 9 | LineDrop Result:8000001c"},
        {REQUEST_ANSWER, "1O", "", 9, 0, "Answer | REPLY 9 0", "03 26 20 01 B6"},
        {REQUEST_ANSWER, "1C", "", 9, 0, "Answer | REPLY 9 8000001c"},
        {REQUEST_TRANSFER, "1F 2F", "", 9, 0, "Transfer call" + joined, RELEASE},
        {REQUEST_BLIND_TRANSFER, "1C", "", 9, 0, "Blind Transfer call | DoBlindTransfer | REPLY 9 80000049"},
        {REQUEST_BLIND_TRANSFER, "1C", "2eApp", 9, 9, "Blind Transfer call | DoBlindTransfer | Softkey 0 n°:1 | DoBlindTransfer - DestAddress: Supermsg 0 | BlindTransfer Running ReqId 9 cref 0"},
        {REQUEST_HOLD, "1C", "", 9, 0, "hold call:0 | REPLY 9 0", "03 26 20 01 B6"},
        {REQUEST_UNHOLD, "2H", "", 9, 0, "Unhold call:0 | REPLY 9 0", "03 26 20 02 B5"},
        {REQUEST_CONFERENCE, "1C 2H", "Conf", 9, 0, "Conference | Softkey 3 n°:1 | " + counted + "Demande de conference - 2 appels en cours | REPLY 9 0", SOFT1},
        {REQUEST_FORWARD_UNCOND, "", "", 9, 0, "Renvoi(8) - LINEFORWARDMODE_UNCOND | REPLY 9 0", digits("1 D3")},
        {REQUEST_FORWARD_BUSY, "", "", 9, 0, "Renvoi(8) - LINEFORWARDMODE_BUSY | REPLY 9 0", digits("2 D2")},
        {REQUEST_FORWARD_NOANSWER, "", "", 9, 0, "Renvoi(8) - LINEFORWARDMODE_NOANSW | REPLY 9 0", digits("3 D1")},
        {REQUEST_FORWARD_BUSYNA, "", "", 9, 0, "Renvoi(8) - LINEFORWARDMODE_BUSYNA | REPLY 9 0", digits("4 D0")},
        {REQUEST_FORWARD_CANCEL, "", "", 9, 0, "Annulation renvoi | REPLY 9 0", std::string("03 26 03 05 CF | ") + RELEASE},
        {REQUEST_PICKUP, "", "", 9, 0, "msg Call Pickup cref 0 | REPLY 9 0", digits("7 CD")},
        {REQUEST_SETUP_TRANSFER, "1C", "2eApp", 9, 9, "Setup Transfer call cref 0000 consultcref 0001 | Softkey 0 n°:1 | SetupTransfer Running ReqId 9 cref 0000 consultcref 0001", SOFT1},
        {REQUEST_SETUP_TRANSFER, "1C 2H 3H", "", 9, 0, "Setup Transfer call cref 0000 consultcref 0001 | SetupTransfer Impossible, aucune ressource disponible | REPLY 9 8000004b"},
        {REQUEST_GENERATE_DIGITS, "1C", "", FAILED, 9, "GenerateDigits | EnteringDoGenerateDigits sur call ref:0 | DoGenerateDigits - Cancel FV wanted - FV! not present"},
        {REQUEST_MAKE_CALL, "1I", "", 9, 0, "dial makecall | dial makecall WaitDynamicConfig | REPLY 9 80000048"},
        {REQUEST_DIAL, "1I", "", 9, 0, "dial makecall | dial makecall WaitDynamicConfig | REPLY 9 80000048"},
        {REQUEST_NONE, "1C", "", 0, 0, ""},
    };
    // clang-format on
    DynamicConfig.WaitDynamicConfig = 1;
    for (const Case& row : rows) {
        SCOPED_TRACE(row.steps);
        Stand(row.situation, row.softKeys);
        EXPECT_EQ(Ask(row.code, 0), row.answer);
        EXPECT_EQ(ProviderState.PendingRequestID, row.pending);
        EXPECT_EQ(Steps(), row.steps);
        EXPECT_EQ(Pressed(), row.pressed);
        EXPECT_EQ(RunningRequest.Code, row.pending != 0 && row.answer == 9 ? row.code : REQUEST_NONE);
    }
    DynamicConfig.StaticConfig = 1;
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 11), 9);
    EXPECT_EQ(Steps(), "dial makecall | dial makecall STATIC_CONFIG crefRequestMakeCall b | REPLY 9 0");
    EXPECT_EQ(Marks.DeferredMakeCall.Cref, 11);
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 20), 0);
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, CONF_CREF), 0) << "only a drop knows the conference";
    EXPECT_EQ(ProviderState.PendingRequestID, 0u);
    Tick.SpStopped = true;
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 20), 9) << "tested first";
    EXPECT_EQ(Steps(), "REPLY 9 80000042");
    EXPECT_EQ(Ask(REQUEST_GENERATE_DIGITS, 0, 0), 0);
}

TEST_F(Dispatching, MakeCallThatIsPutOffKeepsItsRecordAndIsToldOfItsEnd) {
    ToldFirst = DISCONNECTED | IDLE;
    const auto putOff = [this](int cref) {
        Fresh();
        Marks = RequestMarks{};
        Marks.DeferredMakeCall = {true, cref};
        Record(cref).htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100});  // prints as call 0
    };
    const std::string ended = "STATE 0 DISCONNECTED 1 | STATE 0 IDLE";
    DynamicConfig.StaticConfig = 1;
    putOff(0);
    EXPECT_EQ(AllocCallRecord(OFFERING, 1), 1) << "a caller gets another record";
    ProviderState.PendingRequestID = 9;
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 2), 9);
    EXPECT_THAT(Steps(), testing::HasSubstr(ended));
    EXPECT_EQ(Marks.DeferredMakeCall.Cref, 2) << "in its place";
    putOff(0);
    Tracking.DbCall = 1;
    Tick.ConfigUsable = true;
    Tick.InitDataPending = false;
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_THAT(LineEvents(), testing::Contains("STATE 0 IDLE"));
    EXPECT_FALSE(Marks.DeferredMakeCall.Set);
    // The call at dial tone whose record it has ends: told once, and nothing is dialled.
    const auto atDialTone = [&] {
        putOff(0);
        Marks.DeferredMakeCall = {};
        Call(1, 0, DIALTONE);
        Marks.DeferredMakeCall = {true, 0};
        TouchTable[1].icon = ACTIV_ICON;
        CopyText(Record(0).DestAddress, "12");
    };
    const std::function<void()> ends[] = {[] { MultiIcon(IDLE_ICON, 1); }, AllCallReset, ReportCallsLost};
    for (const auto& end : ends) {
        atDialTone();
        end();
        EXPECT_THAT(LineEvents(), testing::Contains("STATE 0 IDLE").Times(1));
        EXPECT_FALSE(Marks.DeferredMakeCall.Set);
    }
    // Its own application dials on it.
    atDialTone();
    EXPECT_EQ(Ask(REQUEST_DIAL, 0), 9);
    EXPECT_THAT(LineEvents(), ElementsAre("REPLY 9 0"));
    EXPECT_EQ(Marks.DeferredMakeCall.Cref, 0);
    // A pick-up takes the record.
    putOff(0);
    std::strcpy(Settings.ServiceCodes[CODE_CALL_PICKUP], "66");
    EXPECT_EQ(Ask(REQUEST_PICKUP, 0), 9);
    EXPECT_THAT(Steps(), testing::HasSubstr(ended));
}

TEST_F(Dispatching, CallThatCannotBeMadePressesNothing) {
    const auto refused = [](RequestCode code, LONG result, const char* steps) {
        EXPECT_EQ(DoMakeCall(5, code), result);
        EXPECT_EQ(Steps(), steps);
        EXPECT_EQ(Pressed(), "");
        EXPECT_EQ(Record(5).touch, 0);
    };
    Record(5).htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x105});
    const char* const noTone = "DoMakeCall - On ne peut pas assurer le Make Call - Double appel en cours";
    refused(REQUEST_DIAL, FAILED, noTone);
    Tracking.DbCall = 1;
    refused(REQUEST_MAKE_CALL, FAILED, noTone);
    Record(3).state = DISCONNECTED;
    refused(REQUEST_DIAL, FAILED,
            "un appel sortant est en cours d'init on ne peut pas générer un nouvel appel | STATE 5 IDLE");
    EXPECT_EQ(Record(5).state, IDLE);
    Serial.PortFailed = true;
    refused(REQUEST_MAKE_CALL, UNAVAILABLE, "");
    Record(5).htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x105});
    EXPECT_EQ(DoMakeCall(5, REQUEST_MAKE_CALL, true), FAILED) << "one that was accepted before";
    EXPECT_EQ(Steps(), "STATE 5 IDLE");
    EXPECT_EQ(DoMakeCall(-1, REQUEST_MAKE_CALL), UNAVAILABLE);
    Serial.PortFailed = false;
    EXPECT_EQ(DoMakeCall(-1, REQUEST_MAKE_CALL), FAILED);
    EXPECT_EQ(DoGenerateDigits(-1), FAILED);
    EXPECT_EQ(Pressed(), "");
}

TEST_F(Dispatching, CallPressedBlindlyWaitsSevenSecondsForATraceHeader) {
    CopyText(Record(0).DestAddress, "1-2");
    CopyText(DialedNumber, "99");
    CopyText(TmpAddress, "99");
    Link.TraceModeSeen = false;
    Tick.WaitTrace = 30;
    EXPECT_EQ(DoMakeCall(0, REQUEST_MAKE_CALL), 0);
    EXPECT_EQ(Pressed(), "03 26 20 01 B6 | 03 26 03 01 D3 | 03 26 03 02 D2") << "all the same";
    EXPECT_EQ(std::string(Record(0).DestAddress) + DialedNumber + TmpAddress, "12");
    EXPECT_TRUE(Marks.MakeCallWatch.Set);
    EXPECT_EQ(DynamicConfig.WaitTraceMode, 1);
    EXPECT_EQ(Tick.WaitTraceLimit, 100);
    EXPECT_THAT(TraceLines(), testing::Contains("LineMakeCall Attente mode Trace time 30 limit 100"));
}

TEST_F(Dispatching, EveryDigitStartsTheFourSecondsAnewAndTheCancelEndsThem) {
    Stand("1C", "StopV");
    Link.SuperMsgSupported = true;  // all the same one by one
    Marks.FvTimer = {true, 39};
    CopyText(Record(0).DigitsToGenerate, "1-2");
    EXPECT_EQ(DoGenerateDigits(0), 0);
    EXPECT_EQ(Pressed(), "03 26 03 01 D3 | 03 26 03 02 D2");
    EXPECT_TRUE(Marks.FvTimer.Set);
    EXPECT_EQ(Marks.FvTimer.Ticks, 0);
    EXPECT_THAT(TraceLines(), testing::Contains("DoGenerateDigits - Caractère non composable:2d"));
    Record(0).DigitsToGenerate[0] = 0;
    EXPECT_EQ(DoGenerateDigits(0), 0);
    EXPECT_EQ(Pressed(), SOFT1);
    EXPECT_FALSE(Marks.FvTimer.Set);
}

}  // namespace
