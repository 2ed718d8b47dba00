// Scenarios over the whole provider: from TSPI_lineOpen to the wire, through the simulated card, set and PBX, and back to
// TAPI's events, at true line speed on the test's clock.
#include "config/settings.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/text.h"
#include "provider/events.h"
#include "support/service.h"

#include <cstring>
#include <tuple>

namespace {

namespace Eq = Equipment;
using testing::HasSubstr;

const HTAPICALL FirstTapiCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100});  // prints as call 0

// --- start-up -------------------------------------------------------------------------------------------------------

class StartUp : public Service, public testing::WithParamInterface<std::tuple<int, bool, bool, bool>> {};

TEST_P(StartUp, LearnsTheSetAndGoesInService) {
    const auto [version, super, piggyback, module] = GetParam();
    Machine.config.omna = version;
    Machine.config.superFrames = super;
    Machine.config.piggyback = piggyback;
    Machine.config.entriesPerMessage = 2;
    Machine.config.keys = {{1, 11, "4711"}, {2, 11, "4711"}, {5, 11, "4712"}, {7, 7, "4720"},
                           {9, 8, "4730"},  {10, 9, "4740"}, {11, 10, "4750"}};
    if (module)
        Machine.config.modules = {{2, true, 40}};
    GoInService();
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE"));
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_IN_SERVICE);
    EXPECT_EQ(ProviderState.TAPI_OMNA_Ver, version);
    EXPECT_THAT(std::vector<int>(KeyLists.Multi.begin(), KeyLists.Multi.end()), ElementsAre(1, 2, 5));
    EXPECT_STREQ(TouchTable[5].label, "4712");
    // special keys are asked for from version 3 on
    EXPECT_EQ(TouchTable[7].kind, version >= 3 ? TOUCH_SUPERV : TOUCH_NONE);
    EXPECT_EQ(TouchTable[9].kind, version >= 3 ? TOUCH_PATRON : TOUCH_NONE);
    EXPECT_EQ(Setting("Set_Des", "T05"), "M4712");
    EXPECT_EQ(Setting("Set_Des", "T10"), version >= 3 ? "SE4740" : "(none)");
    EXPECT_STREQ(Settings.SetMCDU, "4711");
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_SECOND_CALL], "2eApp");
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Numero:");
    EXPECT_STREQ(Settings.ServiceCodes[1], "62");
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "success");
    EXPECT_EQ(Link.SuperMsgSupported, super);
    EXPECT_EQ(Link.PiggybackMode, piggyback);
    EXPECT_EQ(Link.LinkPollPeriod, 160);
    EXPECT_EQ(PlatformControl::Boxes().size(), 0u);
    EXPECT_EQ(Machine.card.badFrames, 0);
    EXPECT_EQ(Machine.card.resends, 0);
}
INSTANTIATE_TEST_SUITE_P(Versions, StartUp,
                         testing::Combine(testing::Values(1, 2, 3), testing::Bool(), testing::Bool(), testing::Bool()),
                         [](const auto& param) {
                             return "Omna" + std::to_string(std::get<0>(param.param)) +
                                    (std::get<1>(param.param) ? "Super" : "") +
                                    (std::get<2>(param.param) ? "Piggyback" : "") +
                                    (std::get<3>(param.param) ? "Module" : "");
                         });

TEST_F(Service, StartUpTakesTheWiresTimePlusOneTickPerQuestionAndAnswer) {
    Machine.config.omna = 3;
    ASSERT_EQ(OpenLine(), 0);
    const std::uint32_t started = PlatformControl::Now();
    while (!Tick.ConfigReceived && PlatformControl::Now() - started < 20'000)
        Advance(100);
    const std::uint32_t took = PlatformControl::Now() - started;
    // 11 bits a byte at 9,600 baud, both directions one after the other; each request of the dialogue, the frames of the
    // link's start and the tempo frame wait for one tick to be answered in, and one to be sent in.
    const auto wire = static_cast<std::uint32_t>((Port.BytesOut + Port.BytesIn) * 11 * 1000 / 9600);
    const auto questions = static_cast<std::uint32_t>(Machine.pbx.requests.size()) + 4;
    RecordProperty("milliseconds", static_cast<int>(took));
    RecordProperty("wire", static_cast<int>(wire));
    RecordProperty("questions", static_cast<int>(questions));
    EXPECT_LE(took, wire + 2 * questions * TICK_MS);
}

struct WrongSet {
    const char* Name;
    void (*Make)(Eq::Machine&);
    const char* LastAction;
    const char* Box;
    std::uint32_t Before;  // ms after the open at which nothing has been said yet
};
class WrongSetTest : public Service, public testing::WithParamInterface<WrongSet> {};

TEST_P(WrongSetTest, StopsWithItsBoxAndClosesTheLine) {
    GetParam().Make(Machine);
    ASSERT_EQ(OpenLine(), 0);
    Advance(GetParam().Before);
    EXPECT_EQ(PlatformControl::Boxes().size(), 0u);
    Advance(3'000);
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_THAT(PlatformControl::Boxes()[0].Text, HasSubstr(GetParam().Box));
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), GetParam().LastAction);
    EXPECT_EQ(LineEvents().back(), "CLOSE");
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_OUT_OF_SERVICE);
}
INSTANTIATE_TEST_SUITE_P(
    , WrongSetTest,
    testing::Values(WrongSet{"NoAssociation", [](Eq::Machine& m) { m.faults.noAssociation = true; },
                             "failed :Config dynamic :Device association ack not received", "No response from PBX !",
                             8'900},
                    WrongSet{"NotKb2", [](Eq::Machine& m) { m.config.deviceType = 1; }, "failed :Not a KB2(7120) set",
                             "Your set is not a 7120/7121 Corvane set", 13'900},
                    WrongSet{"NoMultiLineKey", [](Eq::Machine& m) { m.faults.noMultiLineKey = true; },
                             "failed :Not a multiline set", "Your set has not a multiline config", 13'900},
                    WrongSet{"NoTraceHeaders", [](Eq::Machine& m) { m.faults.noTraceHeaders = true; },
                             "failed :Bad MAC/PC trace mode", "VXC setup error - Bad MAC/PC mode", 24'800}),
    [](const auto& param) { return param.param.Name; });

TEST_F(Service, StoredConfigurationIsUsedAtOnceAndOnlyWhatChangedIsSaved) {
    GoInService();
    CloseLine();
    TraceLines();
    Machine.Restart();
    Machine.config.softKeys[Eq::Swap] = "Navett";
    ASSERT_EQ(TSPI_lineOpen(3, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11}), &Line, 0x20000,
                            ProviderState.LineEventProc),
              0);
    Advance(200);
    EXPECT_EQ(DynamicConfig.StaticConfig, 1);
    EXPECT_FALSE(Tick.InitDataPending);
    EXPECT_EQ(TouchTable[1].kind, TOUCH_MULTI) << "from the store, before the PBX has answered";
    EXPECT_FALSE(Tick.ConfigReceived);
    for (int i = 0; i < 100 && !Tick.ConfigReceived; ++i)
        Advance(100);
    const std::vector<std::string> lines = TraceLines();
    EXPECT_THAT(lines, testing::Contains("Sk sauvegardé ini - diff"));
    EXPECT_THAT(lines, testing::Contains("String non sauvegardé ini - idem"));
    EXPECT_EQ(Setting("SoftKey_Des", "Swap"), "Navett");
    EXPECT_EQ(DynamicConfig.StaticConfig, 0);
}

// --- calls ----------------------------------------------------------------------------------------------------------

class Calls : public Service {
protected:
    void SetUp() override {
        Service::SetUp();
        Machine.config.omna = 1;  // everything from icons and display
    }
    void Start() {
        GoInService();
        LineEvents();
    }
};

TEST_F(Calls, IncomingWithNumberAnsweredAndEnded) {
    Start();
    Do([](auto& m) { return Eq::Incoming(m, 1, "0145678901", ""); });
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0", "STATE 0 OFFERING", "INFO 0 CALLERID|CALLEDID"));
    EXPECT_STREQ(CallTable[0].DestAddress, "0145678901");
    EXPECT_STREQ(CallTable[0].DestName, "");
    Do([](auto& m) { return Eq::Answer(m, 1); });
    EXPECT_EQ(LineEvents().at(0), "STATE 0 CONNECTED");
    Do([](auto& m) { return Eq::HangUpKey(m, 1); });
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
    EXPECT_EQ(CallTable[0].touch, 0);
}

TEST_F(Calls, IncomingWithANameAndCallerHangingUp) {
    Start();
    Do([](auto& m) { return Eq::Incoming(m, 2, "", "Hélène DUPRÉ"); });
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0", "STATE 0 OFFERING", "INFO 0 CALLERID|CALLEDID"));
    EXPECT_EQ(Utf8(CallTable[0].DestName), "Hélène DUPRÉ");
    Do([](auto& m) { return Eq::FarHangsUp(m, 2); });
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
}

TEST_F(Calls, CallerWhoNeverShowsIsOfferedAfterASecond) {
    Start();
    Machine.SetNow(PlatformControl::Now());
    EXPECT_EQ(Eq::Incoming(Machine, 1, "0145678901", "", Eq::CallerShown::Never), "");
    Advance(700);
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0"));
    Advance(1'000);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 OFFERING"));
    Do([](auto& m) { return Eq::ShowCaller(m, 1); });
    EXPECT_THAT(LineEvents(), ElementsAre("INFO 0 CALLERID|CALLEDID")) << "the waiting call still gets its caller";
}

TEST_F(Calls, DialledOnTheSetAndAnswered) {
    Start();
    Do([](auto& m) { return Eq::Seize(m, 1); });
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0", "STATE 0 DIALTONE"));
    Do([](auto& m) { return Eq::DialDigits(m, "4712"); });
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DIALING", "STATE 0 PROCEEDING", "STATE 0 RINGBACK"));
    Do([](auto& m) { return Eq::FarRings(m); });
    Do([](auto& m) { return Eq::FarAnswers(m); });
    EXPECT_THAT(LineEvents(), testing::Contains("STATE 0 CONNECTED"));
    Do([](auto& m) { return Eq::HangUpKey(m, 1); });
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
}

TEST_F(Calls, HoldAndRetrieveThenASecondCallAndASwap) {
    Start();
    Do([](auto& m) { return Eq::Incoming(m, 1, "4720", ""); });
    Do([](auto& m) { return Eq::Answer(m, 1); });
    LineEvents();
    Do([](auto& m) { return Eq::Hold(m, 1); });
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 ONHOLD"));
    Do([](auto& m) { return Eq::Retrieve(m, 1); });
    EXPECT_EQ(LineEvents().at(0), "STATE 0 CONNECTED");
    Do([](auto& m) { return Eq::SecondCallOn(m, 2); });
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 ONHOLD", "NEWCALL 1", "STATE 1 DIALTONE"));
    Do([](auto& m) { return Eq::DialDigits(m, "4730"); });
    Do([](auto& m) { return Eq::FarAnswers(m); });
    EXPECT_THAT(LineEvents(), testing::Contains("STATE 1 CONNECTED"));
    Do([](auto& m) { return Eq::SwapCalls(m); });
    const std::vector<std::string> swapped = LineEvents();
    EXPECT_THAT(swapped, testing::IsSupersetOf({"STATE 1 ONHOLD", "STATE 0 CONNECTED"}));
    Do([](auto& m) { return Eq::HangUpKey(m, 1); });
    Do([](auto& m) { return Eq::FarHangsUp(m, 2); });
    EXPECT_THAT(LineEvents(),
                ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE", "STATE 1 DISCONNECTED 1", "STATE 1 IDLE"));
    for (const CallRecord& call : CallTable)
        EXPECT_EQ(call.touch, 0);
}

// --- requests -------------------------------------------------------------------------------------------------------

TEST_F(Calls, MadeByAnApplicationAndAnswered) {
    Start();
    HDRVCALL call = nullptr;
    EXPECT_EQ(TSPI_lineMakeCall(7, Line, FirstTapiCall, &call, "4712"_wide, 0, nullptr), 7);
    EXPECT_THAT(LineEvents(), ElementsAre("REPLY 7 0")) << "before it returns";
    Advance(2'500);
    EXPECT_THAT(LineEvents(),
                ElementsAre("STATE 0 DIALTONE", "STATE 0 DIALING", "STATE 0 PROCEEDING", "STATE 0 RINGBACK"));
    EXPECT_EQ(TouchTable[1].icon, ACTIV_ICON) << "the set has taken the line";
    EXPECT_STREQ(CallTable[0].DestAddress, "4712");
    Do([](auto& m) { return Eq::FarRings(m); });
    Do([](auto& m) { return Eq::FarAnswers(m); });
    EXPECT_THAT(LineEvents(), testing::Contains("STATE 0 CONNECTED"));
    Do([](auto& m) { return Eq::HangUpKey(m, 1); });
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
}

TEST_F(Calls, MadeBeforeTheSetIsKnownWaitsForIt) {
    GoInService();
    CloseLine();
    Machine.Restart();
    ASSERT_EQ(TSPI_lineOpen(3, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11}), &Line, 0x20000,
                            ProviderState.LineEventProc),
              0);
    Advance(200);
    LineEvents();
    HDRVCALL call = nullptr;
    EXPECT_EQ(TSPI_lineMakeCall(7, Line, FirstTapiCall, &call, "4712"_wide, 0, nullptr), 7);
    EXPECT_THAT(LineEvents(), ElementsAre("REPLY 7 0"));
    for (int i = 0; i < 100 && !Tick.ConfigUsable; ++i) {
        EXPECT_EQ(CallTable[0].state, 0u);
        Advance(100);
    }
    Advance(2'500);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE", "STATE 0 DIALTONE", "STATE 0 DIALING",
                                          "STATE 0 PROCEEDING", "STATE 0 RINGBACK"));
    EXPECT_EQ(TouchTable[1].icon, ACTIV_ICON);
    Do([](auto& m) { return Eq::FarAnswers(m); });
    Do([](auto& m) { return Eq::HangUpKey(m, 1); });
    EXPECT_THAT(LineEvents(), testing::IsSupersetOf({"STATE 0 CONNECTED", "STATE 0 DISCONNECTED 1", "STATE 0 IDLE"}));
}

// --- a bad line -----------------------------------------------------------------------------------------------------

struct Misbehaviour {
    const char* Name;
    void (*Make)(Eq::Faults&);
};
class BadLine : public Calls, public testing::WithParamInterface<Misbehaviour> {};

TEST_P(BadLine, LosesNoCall) {
    Start();
    Machine.faults.target = Eq::FaultTarget::Data;
    for (int round = 0; round < 5; ++round) {
        GetParam().Make(Machine.faults);
        Machine.SetNow(PlatformControl::Now());
        EXPECT_EQ(Eq::Incoming(Machine, 1, "4720", ""), "");
        Advance(6'000);
        GetParam().Make(Machine.faults);
        EXPECT_EQ(Eq::Answer(Machine, 1), "");
        Advance(6'000);
        GetParam().Make(Machine.faults);
        EXPECT_EQ(Eq::HangUpKey(Machine, 1), "");
        Advance(6'000);
        const std::vector<std::string> events = LineEvents();
        EXPECT_EQ(events.front(), "NEWCALL 0");
        EXPECT_EQ(events.back(), "STATE 0 IDLE");
        EXPECT_EQ(std::count(events.begin(), events.end(), "STATE 0 CONNECTED"), 1);
    }
    EXPECT_EQ(PlatformControl::Boxes().size(), 0u);
}
INSTANTIATE_TEST_SUITE_P(, BadLine,
                         testing::Values(Misbehaviour{"Flip", [](Eq::Faults& f) { f.flipNext = 1; }},
                                         Misbehaviour{"Lose", [](Eq::Faults& f) { f.loseNext = 1; }},
                                         Misbehaviour{"Cut", [](Eq::Faults& f) { f.cutNext = 1; }},
                                         Misbehaviour{"Join", [](Eq::Faults& f) { f.joinNext = 1; }},
                                         Misbehaviour{"Nack", [](Eq::Faults& f) { f.nackNext = 1; }},
                                         Misbehaviour{"Ignore", [](Eq::Faults& f) { f.ignoreNext = 1; }}),
                         [](const auto& param) { return param.param.Name; });

TEST_F(Calls, LossOfContactAndRecovery) {
    Start();
    Do([](auto& m) { return Eq::Incoming(m, 1, "4720", ""); });
    Do([](auto& m) { return Eq::Answer(m, 1); });
    LineEvents();
    Machine.faults.silent = true;
    Advance(17'000);
    EXPECT_THAT(LineEvents(), IsEmpty());
    Advance(3'000);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 IDLE", "LINEDEV DISCONNECTED|OUTOFSERVICE", "CLOSE"));
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_THAT(PlatformControl::Boxes()[0].Text, HasSubstr("Hardware Problem"));
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_OUT_OF_SERVICE);
    Advance(30'000);
    EXPECT_EQ(PlatformControl::Boxes().size(), 1u) << "later losses reconnect without a box";
    Machine.faults.silent = false;
    Advance(30'000);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE"));
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_IN_SERVICE);
    Do([](auto& m) { return Eq::Incoming(m, 2, "4720", ""); });
    EXPECT_THAT(LineEvents(), testing::Contains("STATE 0 OFFERING"));
}

TEST_F(Calls, TheHardwareProblemBoxKeepsTheTicksRunningWhileItIsOpen) {
    Start();
    PlatformControl::KeepBoxesOpen(60'000);
    Machine.faults.silent = true;
    Advance(25'000);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV DISCONNECTED|OUTOFSERVICE"))
        << "the box is open, the line not closed yet";
    Machine.faults.silent = false;
    Advance(25'000);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE")) << "nested ticks have reconnected";
    Advance(30'000);
    EXPECT_THAT(LineEvents(), ElementsAre("CLOSE"));
}

}  // namespace
