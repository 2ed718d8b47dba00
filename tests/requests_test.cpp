// The dispatcher, making calls, generating digits: what is pressed, in which order events, completions and traces come,
// and how each request ends.
#include "control/requests.h"

#include "control/digits.h"
#include "control/make_call.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "support/queue.h"
#include "support/tracked.h"

#include <cstring>
#include <functional>
#include <utility>

namespace {

constexpr LONG OPERATION_FAILED = static_cast<LONG>(LINEERR_OPERATIONFAILED);

class Requests : public TrackedSet {
protected:
    void SetUp() override {
        TrackedSet::SetUp();
        CopyText(Settings.SetMCDU, "4711");
        Ready();
    }
    // The set's configuration has been received; nothing asked yet.
    void Ready() {
        Fresh();
        DynamicConfig = DynamicConfigRecord{};
        DynamicConfig.WaitDynamicConfig = 0;
        Marks = RequestMarks{};
        Tick = TickState{};
        Tick.ConfigReceived = true;
        Link.TraceModeSeen = true;
        Link.SuperMsgSupported = false;
        Serial.PortFailed = false;
        DialedNumber[0] = 0;
        QueuedFrames();
    }
    static void Wanted(int cref, const char* number) {
        Record(cref).htCall = reinterpret_cast<HTAPICALL>(static_cast<std::uintptr_t>(0x100 + cref));
        CopyText(Record(cref).DestAddress, number);
    }
    static LONG Ask(RequestCode code, int cref, DRV_REQUESTID request = 7) {
        ProviderState.PendingRequestID = request;
        ProviderState.RequestCref = cref;
        return DispatchRequest(code, ProviderState);
    }
    static std::vector<std::string> TickEvents() {
        LineEvents();
        SerialTick(nullptr, 0, 0, 0);
        return LineEvents();
    }
    // Shows soft-key labels at positions 1 to 5.
    void SoftKeys(std::initializer_list<std::pair<int, const char*>> labels) {
        std::string line(40, ' ');
        for (const auto& [position, label] : labels)
            line.replace(static_cast<std::size_t>(position - 1) * 8, std::strlen(label), label);
        std::memcpy(::Display.Lines[1], line.data(), DISPLAY_COLUMNS);
    }
};

TEST_F(Requests, MadeCallIsPressedCompletedAndReportedByTheNextTick) {
    Wanted(0, "1-2");
    CopyText(DialedNumber, "99");
    CopyText(TmpAddress, "99");
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 0), 7);
    EXPECT_EQ(Steps(), "dial makecall | FindFreeMultiLine tou 1 (mcdu principal) | "
                       "DoMakeCall tou Multi NBtou 3  PushKey 1 DialSameLine 0 Dest '1-2'  | "
                       "Icone:1 - Etat PROCEEDING - Ref:0 | dial makecall DoMakeCall res 0 | REPLY 7 0");
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 20 01 B6", "03 26 03 01 D3", "03 26 03 02 D2"));
    EXPECT_EQ(Record(0).state, PROCEEDING);
    EXPECT_EQ(Record(0).byMakeCall, 1);
    EXPECT_EQ(Record(0).touch, 1);
    EXPECT_STREQ(Record(0).DestAddress, "12") << "what cannot be dialled is gone";
    EXPECT_THAT(At(1).calls, ElementsAre(0, -1));
    EXPECT_TRUE(Marks.MakeCallWatch.Set);
    EXPECT_STREQ(DialedNumber, "");
    EXPECT_STREQ(TmpAddress, "");
    EXPECT_THAT(TickEvents(),
                ElementsAre("STATE 0 DIALTONE", "STATE 0 DIALING", "STATE 0 PROCEEDING", "STATE 0 RINGBACK"));
    // Its key stays dark: the tick above was the first of the twenty that it has.
    for (int i = 0; i < 18; ++i)
        EXPECT_THAT(TickEvents(), IsEmpty());
    EXPECT_THAT(TickEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
}

TEST_F(Requests, BossKeyIsPressedAloneAndCarriesTheCall) {
    Key(8, TOUCH_PATRON, "200");
    Wanted(3, "200");
    Link.SuperMsgSupported = true;
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 3), 7);
    EXPECT_EQ(Steps(), "dial makecall | Tou Pat '200' libre trouve tou 8 | Icone:8 - Etat PROCEEDING - Ref:3 | "
                       "dial makecall DoMakeCall res 0 | REPLY 7 0");
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 20 08 AF"));
    EXPECT_EQ(Record(3).touch, 8);
    EXPECT_THAT(At(8).calls, ElementsAre(3, -1));
    EXPECT_TRUE(Marks.MakeCallWatch.Set);
}

TEST_F(Requests, CallAtDialToneKeepsItsKey) {
    const int cref = Call(2, 0, DIALTONE, false);
    Wanted(cref, "5");
    Link.SuperMsgSupported = true;
    EXPECT_EQ(DoMakeCall(cref, REQUEST_MAKE_CALL), 0);
    EXPECT_THAT(QueuedFrames(), ElementsAre("09 6E 03 26 20 02 03 26 03 05 0D"));
    EXPECT_EQ(Record(cref).touch, 2);
}

TEST_F(Requests, DialPressesDigitsAloneIntoTheCallAtDialTone) {
    const int cref = Call(2, 0, DIALTONE, false);
    Wanted(cref, "12");
    Link.SuperMsgSupported = true;
    EXPECT_EQ(Ask(REQUEST_DIAL, cref), 7);
    EXPECT_EQ(Steps(), "dial makecall | DoMakeCall tou Multi NBtou 3  PushKey -1 DialSameLine 1 Dest '12'  | "
                       "Icone:2 - Etat PROCEEDING - Ref:0 | dial makecall DoMakeCall res 0 | REPLY 7 0");
    EXPECT_THAT(QueuedFrames(), ElementsAre("09 6E 03 26 03 01 03 26 03 02 2E"));
    EXPECT_FALSE(Marks.MakeCallWatch.Set);
    // A double call leaves no other line: dialled where dial tone is, boss keys excepted.
    Ready();
    Double(ONHOLD, DIALTONE);
    Wanted(1, "3");
    EXPECT_EQ(DoMakeCall(1, REQUEST_MAKE_CALL), 0);
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 03 03 D1"));
    EXPECT_THAT(At(1).calls, ElementsAre(0, 1)) << "the held call stays on the key";
}

TEST_F(Requests, CallThatCannotBeMadePressesNothing) {
    struct Row {
        const char* What;
        RequestCode Code;
        std::function<void()> Make;
        DWORD Result;
        const char* Steps;
        DWORD StateAfter;
    };
    const char* const busy =
        "un appel sortant est en cours d'init on ne peut pas générer un nouvel appel | STATE 5 IDLE";
    const char* const noTone = "DoMakeCall - On ne peut pas assurer le Make Call - Double appel en cours";
    const Row rows[] = {
        {"no port", REQUEST_MAKE_CALL, [] { Serial.PortFailed = true; }, LINEERR_OPERATIONUNAVAIL, "", 0},
        {"one being set up", REQUEST_MAKE_CALL, [&] { Call(3, 0, PROCEEDING); }, LINEERR_OPERATIONFAILED, busy, IDLE},
        {"one disconnected", REQUEST_DIAL, [&] { Call(3, 0, DISCONNECTED); }, LINEERR_OPERATIONFAILED, busy, IDLE},
        {"no dial tone", REQUEST_DIAL, [] {}, LINEERR_OPERATIONFAILED, noTone, 0},
        {"double call", REQUEST_MAKE_CALL, [] { Tracking.DbCall = 1; }, LINEERR_OPERATIONFAILED, noTone, 0},
        {"no key", REQUEST_MAKE_CALL, [] { KeyLists = KeyListSet{}; }, LINEERR_OPERATIONFAILED,
         " pas de tou mcdu principal libre, ni tou mcdu secondaire libre | "
         "DoMakeCall tou Multi NBtou 0  PushKey -1 DialSameLine 0 Dest '12'  | "
         "LineMakeCall Impossible, aucune ressource disponible | STATE 5 IDLE",
         IDLE},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.What);
        Ready();
        Wanted(5, "12");
        row.Make();
        EXPECT_EQ(static_cast<DWORD>(DoMakeCall(5, row.Code)), row.Result);
        EXPECT_EQ(Steps(), row.Steps);
        EXPECT_EQ(Record(5).state, row.StateAfter);
        EXPECT_EQ(Record(5).touch, 0);
        EXPECT_THAT(QueuedFrames(), IsEmpty());
    }
}

TEST_F(Requests, FailedCallCompletesWithItsErrorAndIsNotReported) {
    Serial.PortFailed = true;
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 0), 7);
    EXPECT_EQ(Steps(), "dial makecall | dial makecall DoMakeCall res -2147483575 | REPLY 7 80000049");
    EXPECT_FALSE(Marks.MakeCallReport.Set);
    DynamicConfig.WaitDynamicConfig = 1;
    EXPECT_EQ(Ask(REQUEST_DIAL, 0), 7);
    EXPECT_EQ(Steps(), "dial makecall | dial makecall WaitDynamicConfig | REPLY 7 80000048");
}

TEST_F(Requests, CallUnderTheStoredConfigurationWaitsForTheReceivedOne) {
    DynamicConfig.StaticConfig = 1;
    Tick.InitDataPending = true;
    Wanted(11, "12");
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 11), 7);
    EXPECT_EQ(Steps(), "dial makecall | dial makecall STATIC_CONFIG crefRequestMakeCall b | REPLY 7 0");
    Tick.ConfigUsable = true;
    EXPECT_THAT(TickEvents(), IsEmpty());
    Tick.InitDataPending = false;
    Tick.ConfigUsable = false;
    EXPECT_THAT(TickEvents(), IsEmpty());
    EXPECT_THAT(QueuedFrames(), IsEmpty());
    Tick.ConfigUsable = true;
    EXPECT_THAT(TickEvents(),
                ElementsAre("STATE 11 DIALTONE", "STATE 11 DIALING", "STATE 11 PROCEEDING", "STATE 11 RINGBACK"));
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 20 01 B6", "03 26 03 01 D3", "03 26 03 02 D2"));
    EXPECT_THAT(TickEvents(), IsEmpty());
}

TEST_F(Requests, CallPressedBlindlyWaitsSevenSecondsForATraceHeader) {
    Link.TraceModeSeen = false;
    Tick.WaitTrace = 30;
    Wanted(0, "1");
    EXPECT_EQ(DoMakeCall(0, REQUEST_MAKE_CALL), 0);
    EXPECT_EQ(DynamicConfig.WaitTraceMode, 1);
    EXPECT_EQ(Tick.WaitTraceLimit, 100);
    EXPECT_THAT(TraceLines(), testing::Contains("LineMakeCall Attente mode Trace time 30 limit 100"));
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 20 01 B6", "03 26 03 01 D3")) << "pressed all the same";
}

TEST_F(Requests, StoppedProviderAndUnknownCallLeaveNothingPending) {
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 20), 0);
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, CONF_CREF), 0) << "only a drop knows the conference";
    EXPECT_EQ(ProviderState.PendingRequestID, 0u);
    EXPECT_EQ(Steps(), "");
    Tick.SpStopped = true;
    EXPECT_EQ(Ask(REQUEST_MAKE_CALL, 20), 7) << "tested first";
    EXPECT_EQ(Ask(REQUEST_GENERATE_DIGITS, 0, 0), 0);
    EXPECT_EQ(Steps(), "REPLY 7 80000042");
    EXPECT_THAT(QueuedFrames(), IsEmpty());
}

TEST_F(Requests, DigitsTurnTheVoiceFrequencyModeOnOrReuseOrEndIt) {
    struct Row {
        const char* What;
        const char* Digits;
        std::initializer_list<std::pair<int, const char*>> Shown;
        LONG Result;
        std::vector<std::string> Frames;
        const char* Steps;
        bool Timer;
    };
    const std::vector<std::string> one = {"03 26 20 1E 99", "03 26 03 01 D3", "03 26 20 41 76"};
    const Row rows[] = {
        {"turned on",
         "1\xE9"
         "A",
         {{2, "FreqV"}},
         0,
         one,
         "Softkey 4 n°:2 | DoGenerateDigits - Caractère non composable:e9",
         true},
        {"already on", "0", {{2, "FreqV"}, {3, "StopV"}}, 0, {"03 26 03 00 D4"}, "Softkey 5 n°:3", true},
        {"neither", "1", {}, OPERATION_FAILED, {}, "DoGenerateDigits - SK FV et SK !FV not present", true},
        {"ended", "", {{3, "StopV"}}, 0, {"03 26 20 1F 98"}, "Softkey 5 n°:3", false},
        {"nothing to end",
         "",
         {{2, "FreqV"}},
         OPERATION_FAILED,
         {},
         "DoGenerateDigits - Cancel FV wanted - FV! not present",
         true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.What);
        Ready();
        Link.SuperMsgSupported = true;  // digits travel on their own all the same
        CopyText(Record(2).DigitsToGenerate, row.Digits);
        SoftKeys(row.Shown);
        Marks.FvTimer = {true, 33};
        EXPECT_EQ(Ask(REQUEST_GENERATE_DIGITS, 2, 0), row.Result);
        EXPECT_EQ(Steps(), "GenerateDigits | EnteringDoGenerateDigits sur call ref:2 | " + std::string(row.Steps));
        EXPECT_EQ(QueuedFrames(), row.Frames);
        EXPECT_EQ(Marks.FvTimer.Set, row.Timer);
        EXPECT_EQ(Marks.FvTimer.Ticks, row.Result != 0 ? 33 : 0);
    }
}

}  // namespace
