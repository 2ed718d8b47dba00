// The tick: what each step does, in which order, and that "end" means end. Ticks are called directly; no thread runs.
#include "link/tick.h"

#include "config/set_config.h"
#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/terminal.h"
#include "provider/events.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"
#include "support/port.h"
#include "trace/trace.h"

#include <cstring>

namespace {

class Ticking : public OnTheLine {
protected:
    RecordingPort Port;

    void SetUp() override {
        OnTheLine::SetUp();
        Port.Open();
        CopyText(ProviderState.PortName, "COM1");
        CopyText(ProviderState.SpeedText, "9600");
        ProviderState.DeviceState = DEVICE_STARTING;
        TraceLines();
    }
    void TearDown() override {
        SerialCloseComms();
        OnTheLine::TearDown();
    }
    // Ticks on a link that stays alive.
    static void Ticks(int n) {
        for (int i = 0; i < n; ++i) {
            Link.LinkIdleTicks = 0;
            SerialTick(nullptr, 0, 0, 0);
        }
    }
    static bool Traced(const std::string& wanted) {
        for (const std::string& line : TraceLines())
            if (line.find(wanted) != std::string::npos)
                return true;
        return false;
    }
};

TEST_F(Ticking, StopsAtItsLimitWithoutTheConfiguration) {
    const char* const noAnswer = "No response from PBX !\nThe Corvane Service Provider cannot run...\n\n"
                                 "- Check your PBX version.\n - Check your VXC setup.";
    const char* const notKb2 = "     Set Configuration Error\n\nYour set is not a 7120/7121 Corvane set";
    const char* const mono = "     Set Configuration Error\n\nYour set has not a multiline config";
    const char* const stopped = "Dynamic Config not received - SP stopped";
    const struct {
        int limit, version, type, multi;
        const char *lastAction, *box, *trace;
    } cases[] = {
        {90, 0, 0, -1, "failed :Config dynamic :Device association ack not received", noAnswer, stopped},
        {140, 2, 1, 3, "failed :Not a KB2(7120) set", notKb2, "MessageBox Poste non KB2"},
        {140, 2, 3, 0, "failed :Not a multiline set", mono, "MessageBox Poste MONO"},
        {140, 1, 0, 0, "failed :Not a multiline set", mono, "MessageBox Poste MONO"},
        {140, 1, 0, -1, "failed :Config dynamic not received", noAnswer, stopped},
    };
    for (const auto& c : cases) {
        Tick = TickState{};
        Tick.DeviceAssocAck = c.limit != 90;
        ProviderState.DeviceState = DEVICE_STARTING;
        ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(c.version);
        ProviderState.Dev_type = static_cast<std::uint8_t>(c.type);
        SetConfig.MultiAnnounced = c.multi;
        const std::size_t boxes = PlatformControl::Boxes().size();
        Ticks(c.limit);
        EXPECT_EQ(PlatformControl::Boxes().size(), boxes);
        const std::string call = std::to_string(Call(1, 0, LINECALLSTATE_CONNECTED));
        TraceLines();
        Ticks(100);
        ASSERT_EQ(PlatformControl::Boxes().size(), boxes + 1) << "once";
        EXPECT_EQ(PlatformControl::Boxes().back().Text, c.box);
        EXPECT_EQ(PlatformControl::Boxes().back().LineMutexHeld, c.box != noAnswer);
        EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), c.lastAction);
        EXPECT_THAT(LineEvents(), ElementsAre("STATE " + call + " IDLE", "CLOSE"));
        const std::string limit = std::to_string(c.limit), cause = c.limit == 90 ? "Cas 1" : "Cas 2";
        EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Config dynamic not received: WaitConfigCount " + limit +
                                                             " LIMIT " + limit + " " + cause,
                                                         std::string(c.trace)}));
        EXPECT_EQ(ProviderState.DeviceState, DEVICE_OUT_OF_SERVICE);
    }
}

TEST_F(Ticking, TraceModeWatchdogStopsTheLinkAtItsLimitOrEndsWithTheFirstHeader) {
    Tick.ConfigReceived = true;
    DynamicConfig.WaitTraceMode = 1;
    Link.TraceModeSeen = true;
    Ticks(1);
    EXPECT_EQ(DynamicConfig.WaitTraceMode, 0);

    DynamicConfig.WaitTraceMode = 1;
    Link.TraceModeSeen = false;
    Serial.V24Trouble = true;
    Ticks(300);
    EXPECT_EQ(Tick.WaitTrace, 0) << "no card, no trace mode to wait for";
    Serial.V24Trouble = false;
    Ticks(249);
    EXPECT_FALSE(Link.LinkStopped);
    TraceLines();
    Call(1, 0, LINECALLSTATE_CONNECTED);
    Ticks(1);
    EXPECT_TRUE(Link.LinkStopped);
    EXPECT_TRUE(Traced("TIMEOUT Bad MAC/PC No Trace mode: WaitTrace 250 limit 250"));
    EXPECT_EQ(PlatformControl::Boxes().at(0).Text, "     Set Configuration Error\n\nVXC setup error - Bad MAC/PC mode");
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "failed :Bad MAC/PC trace mode");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 IDLE", "CLOSE"));
    EXPECT_EQ(QueueZTMsg(Serial.Port, POLL_FRAME), -3);
    Tracking.ForwardAckTicks = 5;
    Ticks(1);
    EXPECT_EQ(Tracking.ForwardAckTicks, 5) << "nothing is done any more";
}

TEST_F(Ticking, BadStoredStringStopsUnderTheMutexAndOnlyOnce) {
    Tick.InitDataPending = false;
    Tick.StringInitError = true;
    DynamicConfig.StaticConfig = 1;
    Ticks(1);
    EXPECT_EQ(PlatformControl::Boxes().size(), 0u) << "the configuration has not been received yet";
    Tick.ConfigReceived = true;
    Ticks(3);
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_EQ(PlatformControl::Boxes()[0].Text, "Corvane Service Provider internal error\n\nBad string definition");
    EXPECT_TRUE(PlatformControl::Boxes()[0].LineMutexHeld);
    EXPECT_TRUE(Link.LinkStopped);
    EXPECT_FALSE(Tick.StringInitError);
    EXPECT_THAT(LineEvents(), IsEmpty());
}

TEST_F(Ticking, ReportsAMadeCallOnceInItsFourStates) {
    Tick.ConfigReceived = true;
    Key(1, TOUCH_MULTI);
    const int cref = Call(1, 0, LINECALLSTATE_PROCEEDING, false);
    Marks.MakeCallReport = {true, cref};
    Ticks(2);
    EXPECT_THAT(LineEvents(),
                ElementsAre("STATE 0 DIALTONE", "STATE 0 DIALING", "STATE 0 PROCEEDING", "STATE 0 RINGBACK"));
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_DIALTONE, 0, cref:0)",
                                       "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_DIALING, 0, cref:0)",
                                       "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_PROCEEDING, 0, cref:0)",
                                       "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_RINGBACK, 0, cref:0)"}));
}

TEST_F(Ticking, MadeCallThatLightsNoKeyEndsAtThe20thTick) {
    Tick.ConfigReceived = true;
    Link.TraceModeSeen = true;
    Key(3, TOUCH_MULTI);
    Call(3, 0, LINECALLSTATE_PROCEEDING, false);
    Marks.MakeCallWatch = {true, 0};
    Ticks(19);
    EXPECT_THAT(LineEvents(), IsEmpty());
    TraceLines();
    Ticks(1);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE"));
    EXPECT_TRUE(Traced("Time out:Icone:3 éteint - Etat:IDLE - Ref:0"));
    EXPECT_FALSE(Marks.MakeCallWatch.Set);

    Call(3, 0, LINECALLSTATE_PROCEEDING, false);
    TouchTable[3].icon = ACTIV_ICON;
    Marks.MakeCallWatch = {true, 0};
    Ticks(25);
    EXPECT_THAT(LineEvents(), IsEmpty());

    // Nothing is watched before the set's configuration, without the port, the card or its trace headers.
    Marks.MakeCallWatch = {true, 0};
    for (bool* const flag : {&Tick.ConfigReceived, &Serial.PortFailed, &Serial.V24Trouble, &Link.TraceModeSeen}) {
        *flag = !*flag;
        Ticks(1);
        EXPECT_EQ(Marks.MakeCallWatch.Ticks, 0);
        *flag = !*flag;
    }
    Ticks(1);
    EXPECT_EQ(Marks.MakeCallWatch.Ticks, 1);
}

TEST_F(Ticking, PressesTheVoiceFrequencyKeyFourSecondsAfterDigits) {
    Tick.ConfigReceived = true;
    Link.ProcessData = true;
    CopyText(Settings.SoftKeyLabels[SK_CANCEL_FREQ_VOCALE], "FV!");
    std::memcpy(::Display.Lines[1] + 16, "FV!", 3);
    Marks.FvTimer = {true, 0};
    Ticks(39);
    EXPECT_EQ(Port.Taken(), "");
    Ticks(1);
    EXPECT_EQ(Port.Taken(), "03 26 20 1F 98");
    EXPECT_FALSE(Marks.FvTimer.Set);
}

TEST_F(Ticking, OffersACallWithoutCallerAtTheTenthTickAndKeepsItWaiting) {
    Tick.ConfigReceived = true;
    Key(1, TOUCH_MULTI);
    Key(2, TOUCH_SUPERV);
    Tracking.OfferInfoCref = Call(1, 0, LINECALLSTATE_OFFERING);
    Ticks(9);
    EXPECT_THAT(LineEvents(), IsEmpty());
    TraceLines();
    Ticks(1);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 OFFERING"));
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"- Etat:OFFERING - Ref:0", "2 sec - pas d'info sur l'appelant"}));
    EXPECT_EQ(WaitInfo[0], 0);
    EXPECT_EQ(Tracking.OfferInfoCref, -1);

    Tracking.OfferInfoCref = Call(2, 0, LINECALLSTATE_OFFERING);
    Tracking.OfferTicks = 9;
    Ticks(1);
    EXPECT_EQ(WaitInfo[1], -1) << "a supervised call waits for nothing";
    WaitInfo.fill(7);
    Tracking.OfferInfoCref = Call(1, 0, LINECALLSTATE_OFFERING);
    Tracking.OfferTicks = 9;
    Ticks(1);
    EXPECT_THAT(WaitInfo, testing::Each(7)) << "no room to wait";
}

TEST_F(Ticking, FlushesAHalfFrameOnTheFifthTick) {
    Tick.ConfigReceived = true;
    Port.Feed({0x03, 0x61});
    Ticks(5);
    EXPECT_TRUE(Link.Receiving);
    EXPECT_EQ(Port.Taken(), "");
    TraceLines();
    Ticks(1);
    EXPECT_FALSE(Link.Receiving);
    EXPECT_THAT(TraceLines(), testing::ElementsAre("Inactivity - flush rx queue", "ResetComPort:3",
                                                   testing::HasSubstr("SendL2Msg(02.60.84.1A.)")));
    EXPECT_EQ(Port.Taken(), "02 60 84 1A");
}

TEST_F(Ticking, AByteATickIsNoHalfFrame) {
    Tick.ConfigReceived = true;
    for (const int byte : {0x08, 0x22, 1, 2, 3, 4, 5, 6, 7, 0xBA}) {
        Port.Feed({byte});
        Ticks(1);
    }
    EXPECT_EQ(Port.Taken(), "02 60 00 9E");
}

TEST_F(Ticking, RetriesAFailedLinkControlFrameOnceAndEndsTheTick) {
    Tick.ConfigReceived = true;
    PlatformControl::Port("COM1").WriteFails = true;
    SendL2Msg(Serial.Port, ACK_FRAME);
    PlatformControl::Port("COM1").WriteFails = false;
    Port.Feed({0x02, 0x60, 0x80, 0x1E});
    TraceLines();
    Ticks(1);
    EXPECT_TRUE(Traced("Try to resend last l2"));
    EXPECT_EQ(Port.Taken(), "02 60 00 9E");
    EXPECT_EQ(Port.Incoming.size(), 4u) << "the tick ended before it read";
    Ticks(1);
    EXPECT_EQ(Port.Taken(), "02 60 00 9E") << "the answer to the frame read now";
}

TEST_F(Ticking, PollsASilentLinkAndReconnectsWhenNothingComes) {
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    Tick.WaitConfigCount = 50;
    for (int i = 0; i < 29; ++i)
        SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(Port.Taken(), "");
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(Port.Taken(), "02 60 01 9D");
    EXPECT_EQ(Tick.WaitConfigCount, 0) << "a silent link restarts the wait for the configuration";
    Tick.DeviceAssocAck = true;
    for (int i = 0; i < 30; ++i)
        SerialTick(nullptr, 0, 0, 0);
    EXPECT_THAT(LineEvents(), IsEmpty());
    Port.Taken();
    TraceLines();
    const int opens = PlatformControl::Port("COM1").Opens;
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(PlatformControl::Port("COM1").Opens, opens + 1);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV DISCONNECTED|OUTOFSERVICE", "CLOSE"));
    EXPECT_EQ(Port.Taken(), "02 60 85 19") << "resynchronisation at once, the rest waits in the queue";
    EXPECT_EQ(FifoCount(LINK_FIFO), 4);
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "failed :V24 Trouble");
    EXPECT_EQ(PlatformControl::Boxes().at(0).Text,
              "Hardware Problem - Please check:\n\n - the cable,\n - the PC serial port,\n - the VXC card.\n\n"
              "Trying to restart ... Click Ok to abort");
    EXPECT_FALSE(PlatformControl::Boxes().at(0).LineMutexHeld);
    const std::vector<std::string> lines = TraceLines();
    EXPECT_EQ(lines.at(0), "Perte de connexion - Tentative de redemarrage");
    EXPECT_THAT(lines, testing::Contains("After_L2_timeout = 10"));
    EXPECT_THAT(lines, testing::IsSupersetOf({"V24 trouble hinst 0", "MessageBox returns 1 IDOK 1 IDHELP 9"}));

    for (int i = 0; i < 62; ++i)  // a second loss: no box, no LINE_CLOSE
        SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_EQ(PlatformControl::Port("COM1").Opens, opens + 2);
    EXPECT_THAT(LineEvents(), IsEmpty());

    Serial.V24Trouble = false;
    ProviderState.DeviceState = DEVICE_STARTING;
    Link.LinkIdleTicks = 60;
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_THAT(LineEvents(), ElementsAre("CLOSE")) << "a line that never was in service does not leave it";

    Tick.ConfigReceived = true;
    Tick.WaitConfigCount = 50;
    Link.LinkIdleTicks = 29;
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(Tick.WaitConfigCount, 50) << "no more to wait for";
}

TEST_F(Ticking, SubdeviceTestNeitherPollsNorLosesContact) {
    Tick.ConfigReceived = true;
    Link.SubdeviceTest = true;
    for (int i = 0; i < 300; ++i)
        SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(Port.Taken(), "");
    EXPECT_EQ(PlatformControl::Boxes().size(), 0u);
}

TEST_F(Ticking, WithoutAPortOneBoxAtATimeSaysSo) {
    Tick.ConfigReceived = true;
    CloseHandle(Serial.Port);
    Serial.Port = INVALID_HANDLE_VALUE;
    int depth = 0;
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        if (++depth < 5)
            SerialTick(nullptr, 0, 0, 0);  // what the box's own message loop does
        return IDOK;
    });
    SerialTick(nullptr, 0, 0, 0);
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_EQ(PlatformControl::Boxes()[0].Text, "Serial Port blocked");
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(PlatformControl::Boxes().size(), 2u);
}

TEST_F(Ticking, WritesTheQueueWhenTheWaitForTheAcknowledgementIsOver) {
    Tick.ConfigReceived = true;
    FifoPut(LINK_FIFO, POLL_FRAME);
    Ticks(1);
    EXPECT_EQ(Port.Taken(), "02 60 01 9D");
    EXPECT_EQ(Link.AckWaitTicks, 20);
    Ticks(30);  // 20 past 50
    EXPECT_EQ(Port.Taken(), "");
    Ticks(1);
    EXPECT_EQ(Port.Taken(), "02 60 01 9D") << "written again about three seconds later";
}

TEST_F(Ticking, TouchesNothingWithoutTheMutexAndGoesOnWithAnAbandonedOne) {
    Tracking.ForwardAckTicks = 5;
    Ticks(1);
    EXPECT_EQ(Tracking.ForwardAckTicks, 4);
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    Ticks(1);
    EXPECT_EQ(Tracking.ForwardAckTicks, 4);
    PlatformControl::NextWait("SP62LineMutex", WAIT_ABANDONED);
    Ticks(1);
    EXPECT_EQ(Tracking.ForwardAckTicks, 3);
}

TEST_F(Ticking, TouchesNothingMoreWhenABoxHasCostItTheMutex) {
    const auto loses = [](const PlatformControl::Box&) {
        PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
        return IDOK;
    };
    PlatformControl::AnswerBoxes(loses);
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    Link.LinkIdleTicks = 60;
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV DISCONNECTED|OUTOFSERVICE")) << "no LINE_CLOSE";
    EXPECT_EQ(TraceLines().back(), "MessageBox returns 1 IDOK 1 IDHELP 9") << "nothing is released";
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "(none)");
    for (const int limit : {90, 140}) {
        Tick = TickState{};
        Tick.WaitConfigCount = limit;
        SetConfig.MultiAnnounced = -1;
        SerialTick(nullptr, 0, 0, 0);
        EXPECT_THAT(LineEvents(), IsEmpty()) << limit;
        EXPECT_EQ(TraceLines().back(), "Dynamic Config not received DialogBox return 0") << limit;
    }
    EXPECT_EQ(PlatformControl::Boxes().size(), 3u);
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex));
}

TEST_F(Ticking, ReadErrorEndsTheReadingOfThisTickACalledOffReadCounts) {
    Tick.ConfigReceived = true;
    for (bool PlatformControl::PortRecord::*const fault :
         {&PlatformControl::PortRecord::ReadFails, &PlatformControl::PortRecord::ReadPends}) {
        Port.Feed({0x02, 0x60, 0x80, 0x1E});
        PlatformControl::Port("COM1").*fault = true;
        Ticks(1);
        EXPECT_EQ(Port.Taken(), fault == &PlatformControl::PortRecord::ReadPends ? "02 60 00 9E" : "");
        PlatformControl::Port("COM1").*fault = false;
        Ticks(1);
        EXPECT_EQ(Port.Taken(), fault == &PlatformControl::PortRecord::ReadPends ? "" : "02 60 00 9E");
    }
}

TEST_F(Ticking, TicksInsideAHandlersBoxNeitherSeeItsBytesAgainNorWriteOverThem) {
    Tick.ConfigReceived = true;
    PlatformControl::FailGlobalAlloc(true);  // the tempo frame finds no memory: a box
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        Port.Feed({0x01, 0x22, 0xDD, 0x01, 0x22, 0xDD, 0x01, 0x1F, 0xE0, 0x01, 0x1F, 0xE0});
        for (int i = 0; i < 3 && PlatformControl::Boxes().size() < 5; ++i)
            SerialTick(nullptr, 0, 0, 0);
        return IDOK;
    });
    Port.Feed({0x06, 0x60, 0x11, 0x03, 0x06, 0x00, 0x00, 0x80, 0x01, 0x20, 0xDF});
    TraceMask = TRACE_INPUT;
    Ticks(1);
    EXPECT_EQ(PlatformControl::Boxes().size(), 1u);
    std::vector<std::string> frames = TraceLines();
    std::erase_if(frames, [](const std::string& line) { return !line.starts_with("ProcessInput("); });
    EXPECT_THAT(frames,
                ElementsAre("ProcessInput(60.11.03.06.00.00.80.)", "ProcessInput(22.DD.)", "ProcessInput(22.DD.)",
                            "ProcessInput(1F.E0.)", "ProcessInput(1F.E0.)", "ProcessInput(20.DF.)"));
    EXPECT_EQ(Port.Taken(), "02 60 00 9E 02 60 00 9E 02 60 00 9E 02 60 00 9E 02 60 00 9E 01 20 DF");
}

TEST_F(Ticking, AFrameThatIsBeingHandledIsNoHalfFrame) {
    Tick.ConfigReceived = true;
    PlatformControl::FailGlobalAlloc(true);
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        Ticks(7);
        return IDOK;
    });
    Port.Feed({0x06, 0x60, 0x11, 0x03, 0x06, 0x00, 0x00, 0x80});
    Ticks(1);
    EXPECT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_EQ(Port.Taken(), "");
}

TEST_F(Ticking, ReadsStandBehindKeptBytesAndGoOnUntilNothingIsLeft) {
    const auto feed = [&](int frames) {
        for (int i = 0; i < frames; ++i)
            Port.Feed({0x01, 0x22, 0xDD});
    };
    const auto cutBurst = [&] {
        Port.Feed({0x02, 0x60, 0x84, 0x1A, 0x02, 0x60, 0x84, 0x1A, 0x02, 0x60});
        Ticks(1);
        EXPECT_EQ(Tick.Kept, 10);
        Port.Feed({0x84, 0x1A});
    };
    Tick.ConfigReceived = true;
    feed(366);
    Ticks(1);
    EXPECT_EQ(Port.Written.size(), 366u * 4) << "more than the buffer holds, in one tick";
    Port.Taken();
    cutBurst();
    Ticks(1);
    EXPECT_TRUE(Traced("Deux msgs type 60.8x détectés dans la trame !!!"));
    EXPECT_EQ(Port.Taken(), "02 60 00 9E") << "the last frame written, once more";
    cutBurst();
    feed(340);
    Ticks(1);
    EXPECT_EQ(Tick.Kept, 1024);
    EXPECT_EQ(Port.Incoming.size(), 8u) << "what finds no room waits in the port";
}

TEST_F(Ticking, KeptBytesAreOfferedAgainAndGivenUpAfter200Milliseconds) {
    Tick.ConfigReceived = true;
    Port.Feed({0x02, 0x60, 0x80, 0x1E});  // an earlier read just now
    Ticks(1);
    Port.Taken();
    TraceLines();
    Port.Feed({0x02, 0x60, 0x84, 0x1A, 0x02, 0x60, 0x84, 0x1A, 0x02, 0x60});
    for (const std::uint32_t wait : {10, 100, 100}) {
        PlatformControl::Advance(wait);
        Ticks(1);
        EXPECT_EQ(Tick.Kept, 10);
        EXPECT_TRUE(Traced("Deux msgs type 60.8x détectés - Dernier msg incomplet - Attente "));
    }
    EXPECT_EQ(Port.Taken(), "");
    PlatformControl::Advance(1);
    Ticks(1);
    EXPECT_EQ(Tick.Kept, 0);
    EXPECT_TRUE(Traced("Deux msgs type 60.8x détectés - dernier msg incomplet - Tempo atteinte !!!"));
    EXPECT_EQ(Port.Taken(), "02 60 00 9E") << "the last frame written, once more";
}

}  // namespace
