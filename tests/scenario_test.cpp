// Scenarios over the whole provider: from TSPI_lineOpen to the wire, through the simulated card, set and PBX, and back to
// TAPI's events, at true line speed on the test's clock.
#include "config/settings.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/text.h"
#include "support/scenario.h"
#include "trace/trace.h"
#include "tracking/events.h"

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
    EXPECT_EQ(ProviderState.TAPI_OMNA_Ver, version);
    EXPECT_THAT(std::vector<int>(KeyLists.Multi.begin(), KeyLists.Multi.end()), ElementsAre(1, 2, 5));
    EXPECT_EQ(Setting("Set_Des", "T05"), "M4712");
    // special keys are asked for from version 3 on
    EXPECT_EQ(TouchTable[7].kind, version >= 3 ? TOUCH_SUPERV : TOUCH_NONE);
    EXPECT_EQ(Setting("Set_Des", "T10"), version >= 3 ? "SE4740" : "(none)");
    EXPECT_STREQ(Settings.SetMCDU, "4711");
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_SECOND_CALL], "2eApp");
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Numero:");
    EXPECT_STREQ(Settings.ServiceCodes[1], "62");
    EXPECT_EQ(Link.SuperMsgSupported, super);
    EXPECT_EQ(Link.PiggybackMode, piggyback);
    EXPECT_EQ(PlatformControl::Boxes().size(), 0u);
    EXPECT_EQ(Machine.card.badFrames + Machine.card.resends, 0);
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

TEST_F(Service, StoredConfigurationIsUsedAtOnceAndOnlyWhatChangedIsSaved) {
    GoInService();
    CloseLine();
    TraceLines();
    Machine.Restart();
    Machine.config.softKeys[Eq::Swap] = "Navett";
    ASSERT_EQ(OpenLine(), 0);
    Advance(200);
    EXPECT_EQ(DynamicConfig.StaticConfig, 1);
    EXPECT_FALSE(Tick.InitDataPending);
    EXPECT_EQ(TouchTable[1].kind, TOUCH_MULTI) << "from the store, before the PBX has answered";
    EXPECT_FALSE(Tick.ConfigReceived);
    for (int i = 0; i < 100 && !Tick.ConfigReceived; ++i)
        Advance(100);
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Sk sauvegardé ini - diff", "String non sauvegardé ini - idem"}));
    EXPECT_EQ(Setting("SoftKey_Des", "Swap"), "Navett");
    EXPECT_EQ(DynamicConfig.StaticConfig, 0);
}

// --- calls ----------------------------------------------------------------------------------------------------------

class Calls : public Scenario {
protected:
    void SetUp() override {
        Scenario::SetUp();
        Machine.config.omna = 1;  // everything from icons and display
    }
};

// --- requests -------------------------------------------------------------------------------------------------------

TEST_F(Calls, MadeAfterAStartWithoutAssociationIsMadeOnceTheSetIsKnownOrReportedEnded) {
    GoInService();
    for (const bool answered : {true, false}) {
        for (const bool failing : {true, !answered}) {
            CloseLine();
            Machine.Restart();
            Machine.faults.noAssociation = failing;
            ASSERT_EQ(OpenLine(), 0);
            if (failing && answered)
                Advance(10'000);
        }
        EXPECT_EQ(DynamicConfig.LastActionState, answered ? 0 : 1) << "the failure's text is longer than what is read";
        Advance(200);
        LineEvents();
        HDRVCALL call = nullptr;
        EXPECT_EQ(TSPI_lineMakeCall(7, Line, FirstTapiCall, &call, "4712"_wide, 0, nullptr), 7);
        EXPECT_EQ(LineEvents(), std::vector<std::string>{"REPLY 7 0"});
        Advance(15'000);
        if (answered)
            EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE", "STATE 0 DIALTONE", "STATE 0 DIALING",
                                                  "STATE 0 PROCEEDING", "STATE 0 RINGBACK"));
        else
            EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE", "CLOSE"));
    }
}

// --- a bad line -----------------------------------------------------------------------------------------------------

TEST_F(Calls, LossOfContactAndRecovery) {
    GoInService();  // the configuration is stored: a dialogue leaves the keys' icons alone from now on
    CloseLine();
    Machine.Restart();
    Start();
    const char* const rings = "NEWCALL 0, 0 OFFERING, INFO 0 CALLERID|CALLEDID";
    const auto happens = [&](std::initializer_list<std::pair<const char*, const char*>> steps) {
        for (const auto& [action, events] : steps)
            EXPECT_EQ(Happen(action), events) << action;
    };
    happens({{"incoming 1 4720", rings},
             {"answer 1", "0 CONNECTED"},
             {"silence on", ""},
             {"wait 14500", ""},
             {"wait 3000", "0 IDLE, LINEDEV DISCONNECTED|OUTOFSERVICE, CLOSE"},
             {"wait 30000", ""}});
    Machine.faults.silent = false;
    happens({{"wait 30000", "LINEDEV CONNECTED|INSERVICE"},
             {"caller-hangs-up 1", ""},     // of a call that has been reported idle
             {"incoming 1 4721", rings}});  // its key is not deaf
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u) << "later losses reconnect without a box";
    EXPECT_THAT(PlatformControl::Boxes()[0].Text, HasSubstr("Hardware Problem"));
}

}  // namespace
