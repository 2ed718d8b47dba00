// The provider on a port as unkind as its documentation allows: CTS low for ever, the adapter pulled out and put back,
// transfers that end later, in pieces or not even when they are called off, line errors.
#include "config/settings.h"
#include "link/serial.h"
#include "link/tick.h"
#include "provider/process.h"
#include "support/scenario.h"
#include "tracking/events.h"

#include <tuple>

namespace {

using PlatformControl::Transfers;

constexpr std::uint32_t NEVER = 1'000'000'000;  // ms until a transfer that is called off is over

class UnkindPort : public Scenario, public testing::WithParamInterface<std::tuple<Transfers, std::uint32_t>> {
protected:
    void SetUp() override {
        Scenario::SetUp();
        std::tie(Com1().How, Com1().CallOffMs) = GetParam();
        Button.dwTotalSize = sizeof Button;
        Button.dwButtonMode = PHONEBUTTONMODE_FEATURE;
    }
    static PlatformControl::PortRecord& Com1() { return PlatformControl::Port("COM1"); }
    // Has a key press under way, which CTS holds back, and two more behind it.
    void PressInVain() {
        Com1().CtsLow = true;
        for (const DRV_REQUESTID request : {91u, 92u, 93u})
            TSPI_phoneSetButtonInfo(request, reinterpret_cast<HDRVPHONE>(&ProviderState), 1, &Button);
        Advance(300);
    }
    void ClosesWithinASecond() {
        const std::uint32_t began = PlatformControl::Now();
        CloseLine();
        EXPECT_LE(PlatformControl::Now() - began, 1'000u);
        EXPECT_EQ(Com1().Opens, Com1().Closes);
        EXPECT_EQ(Process.SerialThread, nullptr);
        EXPECT_EQ(ProviderState.PendingRequestID, 0u);
    }
    void OpensAgain() {
        Machine.Restart();
        GoInService();
        EXPECT_THAT(LineEvents(), testing::Contains("LINEDEV CONNECTED|INSERVICE"));
        EXPECT_EQ(Happen("incoming 1 4722 \"DUPONT\""),
                  "NEWCALL 0, 0 OFFERING, INFO 0 ORIGIN|REASON|CALLERID|CALLEDID");
    }
    void ComesBackByItself(std::uint32_t within) {
        Advance(within);
        EXPECT_THAT(LineEvents(), testing::Contains("LINEDEV CONNECTED|INSERVICE"));
        EXPECT_EQ(ProviderState.DeviceState, DEVICE_IN_SERVICE);
        EXPECT_EQ(Com1().Opens, Com1().Closes + 1);
    }

private:
    PHONEBUTTONINFO Button{};
};

TEST_P(UnkindPort, OpensWithCtsLowAndComesIntoServiceWhenItRises) {
    Com1().CtsLow = true;
    ASSERT_EQ(OpenLine(), 0);
    Advance(30'000);
    EXPECT_THAT(LineEvents(), ElementsAre("CLOSE"));
    EXPECT_THAT(PlatformControl::Boxes(), testing::SizeIs(1));
    Com1().CtsLow = false;
    ComesBackByItself(15'000);
}

TEST_P(UnkindPort, ClosesWithCtsLowAtAnyTime) {
    Com1().CtsLow = true;
    for (const std::uint32_t wait : {0u, 100u, 3'050u, 6'150u, 20'000u}) {
        ASSERT_EQ(OpenLine(), 0);
        Advance(wait);
        ClosesWithinASecond();
    }
    Com1().CtsLow = false;
    GoInService();
    PressInVain();
    ClosesWithinASecond();
    ASSERT_EQ(OpenLine(), 0) << "the port is not held by anybody";
    ClosesWithinASecond();
    Com1().CtsLow = false;
    OpensAgain();
}

TEST_P(UnkindPort, ResetsAndReconnectsWithCtsLow) {
    GoInService();
    PressInVain();
    // Frames with a wrong checksum, a burst of them, half a frame: each resets the port with writes pending.
    Machine.faults.flipNext = 6;
    Happen("lamp 3 1");
    Happen("lamp 3 0");
    Machine.faults.cutNext = 1;
    Happen("lamp 3 1");
    LineEvents();
    Advance(25'000);
    EXPECT_THAT(LineEvents(), testing::IsSupersetOf({"LINEDEV DISCONNECTED|OUTOFSERVICE", "CLOSE"}));
    Com1().CtsLow = false;
    ComesBackByItself(25'000);
}

TEST_P(UnkindPort, AnAdapterIsPulledOutAndPutBackWithCtsLow) {
    const std::vector<std::uint8_t> halfFrame = {0x60, 0x87, 0xFF, 0x61};
    std::size_t losses = 0;
    for (const DWORD error : {22u, 31u, 5u, 995u}) {
        SCOPED_TRACE(error);
        const bool late = error == 22 || error == 5;
        ASSERT_NO_FATAL_FAILURE(GoInService());
        LineEvents();
        PressInVain();
        PlatformControl::PullOut("COM1", error);
        Advance(25'000);
        EXPECT_THAT(LineEvents(), testing::IsSupersetOf({"LINEDEV DISCONNECTED|OUTOFSERVICE", "CLOSE"}));
        EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
        EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "failed :V24 Trouble");
        ++losses;
        PlatformControl::PutBack("COM1", late ? 40'000 : 0, late ? halfFrame : std::vector<std::uint8_t>{});
        Advance(30'000);
        EXPECT_EQ(Serial.Port == INVALID_HANDLE_VALUE, late);
        Com1().CtsLow = false;
        ComesBackByItself(55'000);
        ClosesWithinASecond();
        Machine.Restart();
    }
    EXPECT_EQ(Com1().Opens, static_cast<int>(Com1().Closes));
}

TEST_P(UnkindPort, AnAdapterThatIsOutWhenTheLineIsOpenedOrClosed) {
    PlatformControl::PullOut("COM1", 22);
    EXPECT_EQ(static_cast<DWORD>(OpenLine()), LINEERR_ALLOCATED);
    PlatformControl::Settle();
    EXPECT_EQ(PlatformControl::Boxes().back().Text, "Serial Port Problem - Check it and try again \n\nAccess Failed");
    PlatformControl::PutBack("COM1");
    GoInService();
    PressInVain();
    PlatformControl::PullOut("COM1", 31);
    ClosesWithinASecond();
    PlatformControl::PutBack("COM1");
    Com1().CtsLow = false;
    OpensAgain();
}

TEST_P(UnkindPort, BreaksAndFramingErrorsCostAFrameAndNotTheLine) {
    GoInService();
    for (const bool reconnected :
         {false, true}) {  // a port that was opened again stops at an error until it is cleared
        EXPECT_EQ(Com1().Dcb.fAbortOnError, reconnected ? 1u : 0u);
        for (const DWORD error : std::initializer_list<DWORD>{CE_BREAK, CE_FRAME})
            for (const int garbage : {0x00, 0xFF, 0x02}) {
                PlatformControl::LineError("COM1", error, static_cast<std::uint8_t>(garbage));
                Happen("app hook on");
                Happen("lamp 3 1");
            }
        Advance(5'000);
        EXPECT_EQ(Happen("incoming 1 4722"), "NEWCALL 0, 0 OFFERING, INFO 0 ORIGIN|REASON|CALLERID|CALLEDID");
        EXPECT_EQ(Happen("caller-hangs-up 1"), "0 DISCONNECTED 1, 0 IDLE");
        Machine.faults.silent = true;
        Advance(25'000);
        Machine.faults.silent = false;
        Advance(25'000);
        LineEvents();
    }
}

INSTANTIATE_TEST_SUITE_P(, UnkindPort,
                         testing::Combine(testing::Values(Transfers::AtOnce, Transfers::Later, Transfers::InPieces),
                                          testing::Values(0u, 30u, NEVER)));

// --- reads ----------------------------------------------------------------------------------------------------------

using UnkindReads = Scenario;

TEST_F(UnkindReads, OneThatIsNotEvenOverWhenCalledOffIsLookedAtAgainByTheNextTick) {
    PlatformControl::PortRecord& port = PlatformControl::Port("COM1");
    Start();
    port.ReadPends = true;
    for (const std::uint32_t late : {0u, 10u, 250u}) {
        port.CallOffMs = late;
        EXPECT_EQ(Happen("incoming 1 4722 \"DUPONT\"") + Happen("wait 2000"),
                  "NEWCALL 0, 0 OFFERING, INFO 0 ORIGIN|REASON|CALLERID|CALLEDID");
        EXPECT_EQ(Happen("caller-hangs-up 1") + Happen("wait 2000"), "0 DISCONNECTED 1, 0 IDLE");
    }
}

}  // namespace
