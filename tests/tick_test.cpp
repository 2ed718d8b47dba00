// The tick: what each step does, in which order, and that "end" means end. Ticks are called directly; no thread runs.
#include "link/tick.h"

#include "config/set/set_config.h"
#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "provider/event_log.h"
#include "provider/process.h"
#include "support/fixture.h"
#include "support/port.h"
#include "thread/tick.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/terminal.h"

#include <cstring>
#include <utility>

namespace {

const char* const ACK = "02 60 00 9E";
const char* const POLL = "02 60 01 9D";

class Ticking : public OnTheLine {
protected:
    RecordingPort Port;

    void SetUp() override {
        OnTheLine::SetUp();
        Port.Open();
        CopyText(ProviderState.PortName, "COM1");
        CopyText(ProviderState.SpeedText, "9600");
        ProviderState.DeviceState = DEVICE_STARTING;
        Tick.ConfigReceived = true;
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
    static void SilentTicks(int n) {
        while (n-- > 0)
            SerialTick(nullptr, 0, 0, 0);
    }
    // Two refusals and the beginning of a third in one read, which is kept.
    void CutBurst() {
        Port.Feed({0x02, 0x60, 0x84, 0x1A, 0x02, 0x60, 0x84, 0x1A, 0x02, 0x60});
        Ticks(1);
        EXPECT_EQ(Tick.Kept, 10);
    }
    // Why the provider stopped itself, for the administrator: the entry in front of its box's.
    static std::string StopLogged() {
        const std::vector<PlatformControl::LogEntry> entries = PlatformControl::LogEntries();
        if (entries.size() < 2 || entries.back().Event != EVENT_BOX_ON_SCREEN)
            return "no box";
        const PlatformControl::LogEntry& entry = entries[entries.size() - 2];
        return std::to_string(entry.Event & 0xFFFF) + " " + entry.Texts.at(0);
    }
    static bool Traced(const std::string& wanted) {
        for (const std::string& line : TraceLines())
            if (line.find(wanted) != std::string::npos)
                return true;
        return false;
    }
};

// From within the end of a call an application asks for the next: nothing more is accepted by then.
LINEEVENT Capture;
void CALLBACK EndsOfAStop(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3) {
    EXPECT_TRUE(message != LINE_CALLSTATE || (Tick.SpStopped && ProviderState.DeviceState == DEVICE_OUT_OF_SERVICE));
    Capture(line, call, message, p1, p2, p3);
}

TEST_F(Ticking, StopsAtItsLimitWithoutTheConfiguration) {
    Capture = std::exchange(ProviderState.LineEventProc, EndsOfAStop);
    const std::string noAnswer = "No response from PBX !\nThe Corvane Service Provider cannot run...\n\n"
                                 "- Check your PBX version.\n - Check your VXC setup.",
                      wrong = "     Set Configuration Error\n\n";
    const struct {
        int limit, version, type, multi;
        const char* lastAction;
        std::string box, logged;
    } cases[] = {
        {90, 0, 0, -1, "failed :Config dynamic :Device association ack not received", noAnswer, "8 COM1"},
        {140, 3, 1, 3, "failed :Not a KB2(7120) set", wrong + "Your set is not a 7120/7121 Corvane set", "10 COM1"},
        {140, 2, 1, 3, "failed :Not a KB2(7120) set", wrong + "Your set is not a 7120/7121 Corvane set", "10 COM1"},
        {140, 2, 3, 0, "failed :Not a multiline set", wrong + "Your set has not a multiline config", "11 COM1"},
        {140, 1, 0, 0, "failed :Not a multiline set", wrong + "Your set has not a multiline config", "11 COM1"},
        {140, 1, 0, -1, "failed :Config dynamic not received", noAnswer, "9 COM1"},
    };
    std::size_t boxes = 0;
    std::vector<std::string> before;  // the box, in which further ticks run
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        before = LineEvents();
        EXPECT_TRUE(Tick.SpStopped && ProviderState.DeviceState == DEVICE_OUT_OF_SERVICE);
        return IDOK;
    });
    for (const auto& c : cases) {
        Tick = TickState{};
        ResetEventLog();
        Tick.DeviceAssocAck = c.limit != 90;
        ProviderState.DeviceState = DEVICE_STARTING;
        ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(c.version);
        ProviderState.Dev_type = static_cast<std::uint8_t>(c.type);
        SetConfig.MultiAnnounced = c.multi;
        Ticks(c.limit);
        EXPECT_EQ(PlatformControl::Boxes().size(), boxes);
        const std::string call = std::to_string(Call(1, 0, LINECALLSTATE_CONNECTED));
        TraceLines();
        Ticks(100);
        ASSERT_EQ(PlatformControl::Boxes().size(), ++boxes) << "once";
        EXPECT_EQ(PlatformControl::Boxes().back().Text, c.box);
        EXPECT_EQ(PlatformControl::Boxes().back().LineMutexHeld, c.box != noAnswer);
        EXPECT_EQ(PlatformControl::Boxes().back().Beep, c.box == noAnswer ? MB_ICONHAND : PlatformControl::NO_BEEP);
        EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), c.lastAction);
        EXPECT_EQ(StopLogged(), c.logged);
        EXPECT_THAT(before, ElementsAre("STATE " + call + " IDLE"));
        EXPECT_THAT(LineEvents(), ElementsAre("CLOSE"));
        const std::string limit = std::to_string(c.limit), how = c.limit == 90 ? "Cas 1" : "Cas 2";
        EXPECT_TRUE(Traced("Config dynamic not received: WaitConfigCount " + limit + " LIMIT " + limit + " " + how));
    }
}

TEST_F(Ticking, AReceivedConfigurationIsNotWatchedAtWhateverTheCountStopped) {
    for (const int limit : {90, 140}) {
        Tick.WaitConfigCount = limit;
        Tick.DeviceAssocAck = false;  // as after a lost contact
        Ticks(1);
        EXPECT_FALSE(Tick.SpStopped) << limit;
    }
}

TEST_F(Ticking, TraceModeWatchdogStopsTheLinkAtItsLimitOrEndsWithTheFirstHeader) {
    DynamicConfig.WaitTraceMode = 1;
    Link.TraceModeSeen = true;
    Ticks(1);
    EXPECT_EQ(DynamicConfig.WaitTraceMode, 0);
    DynamicConfig.WaitTraceMode = 1;
    Link.TraceModeSeen = false;
    for (bool* const flag : {&Serial.V24Trouble, &Serial.PortFailed}) {
        *flag = true;
        Ticks(300);
        EXPECT_EQ(Tick.WaitTrace, 0) << "no card, no trace mode to wait for";
        *flag = false;
    }
    Ticks(249);
    EXPECT_FALSE(Link.LinkStopped);
    Call(1, 0, LINECALLSTATE_CONNECTED);
    PlatformControl::AnswerBoxes([](const PlatformControl::Box&) {
        EXPECT_TRUE(Link.LinkStopped && ProviderState.DeviceState == DEVICE_OUT_OF_SERVICE);
        EXPECT_THAT(LineEvents(), IsEmpty());
        return IDOK;
    });
    Ticks(1);
    EXPECT_EQ(PlatformControl::Boxes().at(0).Text, "     Set Configuration Error\n\nVXC setup error - Bad MAC/PC mode");
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 IDLE", "CLOSE"));
    EXPECT_TRUE(Traced("TIMEOUT Bad MAC/PC No Trace mode: WaitTrace 250 limit 250"));
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "failed :Bad MAC/PC trace mode");
    EXPECT_EQ(StopLogged(), "12 COM1");
}

TEST_F(Ticking, BadStoredStringStopsUnderTheMutexAndOnlyOnce) {
    Tick.InitDataPending = Tick.ConfigReceived = false;
    Tick.StringInitError = true;
    DynamicConfig.StaticConfig = 1;
    Ticks(1);
    EXPECT_FALSE(Link.LinkStopped) << "the configuration has not been received yet";
    Tick.ConfigReceived = true;
    DynamicConfig.StaticConfig = 0;
    Ticks(1);
    EXPECT_FALSE(Link.LinkStopped) << "the received texts are in use, not the stored ones";
    DynamicConfig.StaticConfig = 1;
    CallTable[3].htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x103});
    Marks.DeferredMakeCall = {true, 3};
    ToldFirst = LINECALLSTATE_DISCONNECTED | LINECALLSTATE_IDLE;
    PlatformControl::AnswerBoxes([](const PlatformControl::Box&) {
        EXPECT_TRUE(Link.LinkStopped && ProviderState.DeviceState == DEVICE_OUT_OF_SERVICE);
        EXPECT_THAT(LineEvents(), ElementsAre("STATE 3 DISCONNECTED 1", "STATE 3 IDLE")) << "it will not be made";
        return IDOK;
    });
    Ticks(3);
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_EQ(PlatformControl::Boxes()[0].Text, "Corvane Service Provider internal error\n\nBad string definition");
    EXPECT_TRUE(PlatformControl::Boxes()[0].LineMutexHeld);
    EXPECT_EQ(StopLogged(), "13 COM1");
    EXPECT_THAT(LineEvents(), IsEmpty());
}

TEST_F(Ticking, PutOffCallIsMadeUnlessItsRecordHasBeenDialledFrom) {
    Key(3, TOUCH_MULTI);
    Tick.ConfigUsable = true;
    Tick.InitDataPending = false;
    ToldFirst = LINECALLSTATE_DISCONNECTED | LINECALLSTATE_IDLE;
    for (const DWORD state :
         std::initializer_list<DWORD>{0, LINECALLSTATE_IDLE, LINECALLSTATE_DIALTONE, LINECALLSTATE_DIALING}) {
        CallTable[0] = CallRecord{};
        CallTable[0].htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100});
        CallTable[0].state = state;
        CallTable[0].touch = state == LINECALLSTATE_DIALING ? 3 : 0;
        Marks.DeferredMakeCall = {true, 0};
        Ticks(1);
        EXPECT_EQ(LineEvents().front() == "STATE 0 DISCONNECTED 1", state == LINECALLSTATE_DIALING) << state;
        EXPECT_EQ(CallTable[0].state == LINECALLSTATE_DIALING, state == LINECALLSTATE_DIALING) << "that call goes on";
    }
}

TEST_F(Ticking, MadeCallThatLightsNoKeyEndsAtThe20thTick) {
    Link.TraceModeSeen = true;
    Key(3, TOUCH_MULTI);
    Call(3, 0, LINECALLSTATE_PROCEEDING, false);
    Marks.MakeCallWatch = {true, 0};
    // Not watched before the set's configuration, without the port, the card or its trace headers.
    for (bool* const flag : {&Tick.ConfigReceived, &Serial.PortFailed, &Serial.V24Trouble, &Link.TraceModeSeen}) {
        *flag = !*flag;
        Ticks(1);
        *flag = !*flag;
    }
    Ticks(19);
    EXPECT_THAT(LineEvents(), IsEmpty());
    TraceLines();
    Marks.MakeCallReport = {true, 1};
    Ticks(1);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "STATE 0 IDLE", "STATE - DIALTONE",
                                          "STATE - DIALING", "STATE - PROCEEDING", "STATE - RINGBACK"));
    EXPECT_TRUE(Traced("Time out:Icone:3 éteint - Etat:IDLE - Ref:0"));
}

TEST_F(Ticking, RequestThatNothingAnswersFailsWhenItsTimeIsOver) {
    Link.LinkStopped = true;  // whose presses are lost
    for (const auto& [request, limit] : {std::pair{RunningRequestRecord{REQUEST_DROP, 0}, 600},
                                         {RunningRequestRecord{REQUEST_BLIND_TRANSFER, 0}, 600},
                                         {RunningRequestRecord{REQUEST_SETUP_TRANSFER, 0, 1}, 600},
                                         {RunningRequestRecord{REQUEST_DROP, 0, -1, false}, 3000}}) {
        ProviderState.PendingRequestID = 7;
        RunningRequest = request;
        Tracking.SecondCallDropReq = 1;
        Ticks(limit - 1);
        EXPECT_THAT(LineEvents(), IsEmpty());
        Ticks(1);
        EXPECT_THAT(LineEvents(), ElementsAre("REPLY 7 80000048"));
        EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
        EXPECT_EQ(Tracking.SecondCallDropReq, request.Code == REQUEST_DROP ? 0 : 1);
    }
    Ticks(3000);
    EXPECT_THAT(LineEvents(), IsEmpty());
}

TEST_F(Ticking, PressesTheVoiceFrequencyKeyOnceFourSecondsAfterDigits) {
    Link.ProcessData = true;
    CopyText(Settings.SoftKeyLabels[SK_CANCEL_FREQ_VOCALE], "FV!");
    std::memcpy(::Display.Lines[1] + 16, "FV!", 3);
    Marks.FvTimer = {true, 0};
    Ticks(39);
    EXPECT_EQ(Port.Taken(), "");
    Ticks(9);
    EXPECT_EQ(Port.Taken(), "03 26 20 1F 98");
    ::Display.Lines[1][16] = ' ';  // the set has left the mode by itself
    Marks.FvTimer = {true, 39};
    Ticks(1);
    EXPECT_TRUE(!Marks.FvTimer.Set && Marks.FvTimer.Ticks == 0);
    EXPECT_EQ(Port.Taken(), "");
}

TEST_F(Ticking, OffersACallWithoutCallerAtTheTenthTickAndKeepsItWaitingWhereACallerCanCome) {
    Key(1, TOUCH_MULTI);
    Key(2, TOUCH_SUPERV);
    const auto offered = [&](int key) {
        const int cref = Tracking.OfferInfoCref = Call(key, 0, LINECALLSTATE_OFFERING);
        Tracking.OfferTicks = 0;
        Ticks(9);
        EXPECT_THAT(LineEvents(), IsEmpty());
        Ticks(1);
        EXPECT_THAT(LineEvents(), ElementsAre("STATE " + std::to_string(cref) + " OFFERING"));
    };
    offered(1);
    EXPECT_EQ(WaitInfo[0], 0);
    offered(2);
    EXPECT_EQ(WaitInfo[1], -1) << "a supervised call waits for nothing";
    WaitInfo.fill(7);
    offered(1);
    EXPECT_THAT(WaitInfo, testing::Each(7)) << "no room to wait";
}

TEST_F(Ticking, FlushesAHalfFrameOnTheFifthTickWithoutAByte) {
    for (const int byte : {0x08, 0x22, 1, 2, 3, 4, 5, 6, 7, 0xBA}) {
        Port.Feed({byte});
        Ticks(1);
    }
    EXPECT_EQ(Port.Taken(), ACK) << "a byte a tick is no half frame";
    Port.Feed({0x03, 0x61});
    Ticks(5);
    EXPECT_EQ(Port.Taken(), "");
    TraceLines();
    Ticks(1);
    EXPECT_THAT(TraceLines(), ElementsAre("Inactivity - flush rx queue", "ResetComPort:3",
                                          testing::HasSubstr("SendL2Msg(02.60.84.1A.)")));
    EXPECT_EQ(Port.Taken(), "02 60 84 1A");
    EXPECT_EQ(Link.LinkIdleTicks, 0) << "the card has its time to answer before it is polled";
}

TEST_F(Ticking, WhatTheCardDoesNotTakeIsThrownAwayWithAResetOfThePort) {
    PlatformControl::Port("COM1").CtsLow = true;
    SendL2Msg(Serial.Port, ACK_FRAME);
    ResetComPort(3);
    PlatformControl::Port("COM1").CtsLow = false;
    PlatformControl::Advance(100);
    EXPECT_EQ(Port.Taken(), "") << "it would come out behind what is sent now";
    Port.Feed({0x08, 0x22});
    Ticks(1);
    ResetComPort(3);
    EXPECT_EQ(Link.Receiving, Receiver::Waiting) << "for a length byte";
    // What is under way has time to go out at a closing, however long the last tick has waited.
    Reconnect();
    Port.Taken();
    PlatformControl::Port("COM1").CtsLow = true;
    SendL2Msg(Serial.Port, NACK_FRAME);
    ResetComPort(3);
    PlatformControl::Port("COM1").CtsLow = false;
    PlatformControl::Port("COM1").How = PlatformControl::Transfers::InPieces;
    SendL2Msg(Serial.Port, ACK_FRAME);
    SerialCloseComms();
    EXPECT_EQ(Port.Taken(), ACK);
}

TEST_F(Ticking, RetriesAFailedLinkControlFrameOnceAndEndsTheTick) {
    PlatformControl::Port("COM1").WriteFails = true;
    SendL2Msg(Serial.Port, ACK_FRAME);
    PlatformControl::Port("COM1").WriteFails = false;
    Port.Feed({0x02, 0x60, 0x80, 0x1E});
    TraceLines();
    Ticks(1);
    EXPECT_TRUE(Traced("Try to resend last l2"));
    EXPECT_EQ(Port.Taken(), ACK);
    EXPECT_EQ(Port.Incoming.size(), 4u) << "the tick ended before it read";
    Ticks(1);
    EXPECT_EQ(Port.Taken(), ACK) << "the answer to the frame read now";
    PlatformControl::Port("COM1").WriteFails = true;
    SendL2Msg(Serial.Port, ACK_FRAME);
    Ticks(1);
    TraceLines();
    Ticks(1);
    EXPECT_FALSE(Traced("Try to resend last l2")) << "one retry, also when it fails";
}

LINEEVENT Told;
void CALLBACK ClosedBeforeLastAction(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2,
                                     DWORD_PTR p3) {
    EXPECT_TRUE(message != LINE_CLOSE || Setting("Dynamic_Set_Conf", "LastAction") != "failed :V24 Trouble");
    Told(line, call, message, p1, p2, p3);
}

TEST_F(Ticking, PollsASilentLinkAndReconnectsWhenNothingComes) {
    Link.SubdeviceTest = true;
    SilentTicks(100);
    EXPECT_EQ(Port.Taken(), "") << "not in the sub-device test";
    EXPECT_EQ(PlatformControl::Port("COM1").Opens, 1);
    Link = LinkState{};
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    Tick.ConfigReceived = false;
    Tick.WaitConfigCount = 50;
    SilentTicks(29);
    EXPECT_EQ(Port.Taken(), "");
    SilentTicks(1);
    EXPECT_EQ(Port.Taken(), POLL);
    EXPECT_EQ(Tick.WaitConfigCount, 0) << "a silent link restarts the wait for the configuration";
    Tick.DeviceAssocAck = true;
    SilentTicks(30);
    EXPECT_THAT(LineEvents(), IsEmpty());
    Port.Taken();
    const int opens = PlatformControl::Port("COM1").Opens;
    Call(1, 0, LINECALLSTATE_CONNECTED);
    Told = std::exchange(ProviderState.LineEventProc, ClosedBeforeLastAction);
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        EXPECT_TRUE(Serial.V24Trouble && ProviderState.DeviceState == DEVICE_OUT_OF_SERVICE);
        EXPECT_EQ(PlatformControl::Port("COM1").Opens, opens + 1);
        EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 IDLE", "LINEDEV DISCONNECTED|OUTOFSERVICE"));
        return IDOK;
    });
    SilentTicks(1);
    EXPECT_THAT(LineEvents(), ElementsAre("CLOSE"));
    EXPECT_EQ(Port.Taken(), "02 60 85 19") << "resynchronisation at once, the rest waits in the queue";
    EXPECT_EQ(FifoCount(LINK_FIFO), 4);
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "failed :V24 Trouble");
    EXPECT_EQ(PlatformControl::Boxes().at(0).Text,
              "Hardware Problem - Please check:\n\n - the cable,\n - the PC serial port,\n - the VXC card.\n\n"
              "Trying to restart ... Click Ok to abort");
    EXPECT_FALSE(PlatformControl::Boxes().at(0).LineMutexHeld);
    EXPECT_EQ(PlatformControl::Boxes().at(0).Beep, UINT{MB_ICONHAND});
    Serial.V24Trouble = false;
    ProviderState.DeviceState = DEVICE_STARTING;
    Link.LinkIdleTicks = 60;
    PlatformControl::AnswerBoxes(nullptr);
    ProviderState.LineEventProc = Told;
    SilentTicks(1);
    EXPECT_THAT(LineEvents(), ElementsAre("CLOSE")) << "a line that never was in service does not leave it";
}

TEST_F(Ticking, APortThatVanishedIsOpenedAgainOnceItIsBack) {
    Serial.V24Trouble = true;  // the box has been shown
    Link.LinkIdleTicks = 60;
    PlatformControl::Port("COM1").OpenError = 2;
    SilentTicks(1);
    EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
    PlatformControl::Port("COM1").OpenError = 0;
    SilentTicks(60);
    EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE) << "a failed try restarts the count too";
    SilentTicks(1);
    EXPECT_EQ(Port.Taken(), "02 60 85 19");
}

TEST_F(Ticking, WithoutAPortOneBoxAtATimeSaysSo) {
    CloseHandle(std::exchange(Serial.Port, INVALID_HANDLE_VALUE));
    int depth = 0;
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        if (++depth < 5)
            SilentTicks(1);  // what the box's own message loop does
        return IDOK;
    });
    SerialTick(nullptr, 0, 0, 0);
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u);
    EXPECT_EQ(PlatformControl::Boxes()[0].Text, "Serial Port blocked");
    SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(PlatformControl::Boxes().size(), 2u);
    PlatformControl::FailCall("MessageBoxA");  // one that cannot be shown is tried once a minute
    for (int tick = 0; tick < 1000; ++tick)
        SerialTick(nullptr, 0, 0, 0);
    EXPECT_EQ(PlatformControl::CallsCounted(), 2);
    PlatformControl::CallsWork();
}

TEST_F(Ticking, WritesTheQueueWhenTheWaitForTheAcknowledgementIsOver) {
    FifoPut(LINK_FIFO, POLL_FRAME);
    Ticks(1);
    EXPECT_EQ(Port.Taken(), POLL);
    Ticks(30);  // 20 past 50
    EXPECT_EQ(Port.Taken(), "");
    Ticks(1);
    EXPECT_EQ(Port.Taken(), POLL) << "written again about three seconds later";
}

TEST_F(Ticking, TouchesNothingWithoutTheMutexAndGoesOnWithAnAbandonedOne) {
    Tracking.ForwardAckTicks = 6;
    Ticks(1);
    for (const DWORD wait : {DWORD{WAIT_TIMEOUT}, DWORD{WAIT_ABANDONED}}) {
        PlatformControl::NextWait("SP62LineMutex", wait);
        Ticks(1);
        EXPECT_EQ(Tracking.ForwardAckTicks, wait == WAIT_TIMEOUT ? 5 : 4);
    }
}

TEST_F(Ticking, TouchesNothingMoreWhenABoxHasCostItTheMutex) {
    PlatformControl::AnswerBoxes([](const PlatformControl::Box&) {
        PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
        return IDOK;
    });
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    Link.LinkIdleTicks = 60;
    SilentTicks(1);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV DISCONNECTED|OUTOFSERVICE")) << "no LINE_CLOSE";
    EXPECT_EQ(TraceLines().back(), "MessageBox returns 1 IDOK 1 IDHELP 9") << "nothing is released";
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "(none)");
    Tick.ConfigReceived = false;
    Tick.WaitConfigCount = 90;
    Ticks(1);
    EXPECT_THAT(LineEvents(), IsEmpty()) << "nor here";
    EXPECT_EQ(TraceLines().back(), "Dynamic Config not received DialogBox return 0");
}

TEST_F(Ticking, ReadErrorEndsTheReadingOfThisTickACalledOffReadCounts) {
    PlatformControl::PortRecord& port = PlatformControl::Port("COM1");
    for (bool* const fault : {&port.ReadFails, &port.ReadPends}) {
        Port.Feed({0x02, 0x60, 0x80, 0x1E});
        *fault = true;
        Ticks(1);
        EXPECT_EQ(Port.Taken(), fault == &port.ReadPends ? ACK : "");
        *fault = false;
        Ticks(1);
        EXPECT_EQ(Port.Taken(), fault == &port.ReadPends ? "" : ACK);
    }
}

TEST_F(Ticking, BytesReadInsideAHandlersBoxCountInTheOrderInWhichTheyCame) {
    PlatformControl::FailCall("GlobalAlloc");  // the tempo frame finds no memory: a box
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        Ticks(7);  // the frame that is being handled is no half frame
        EXPECT_EQ(Port.Taken(), "");
        Port.Feed({0x00, 0xDF, 0x01, 0x22, 0xDD, 0x02, 0x22});  // half a frame in front, half a frame behind
        for (int i = 0; i < 3 && PlatformControl::Boxes().size() < 5; ++i)
            SilentTicks(1);
        return IDOK;
    });
    Port.Feed({0x06, 0x60, 0x11, 0x03, 0x06, 0x00, 0x00, 0x80, 0x01, 0x20, 0xDF, 0x02, 0x1F});
    TraceMask = TRACE_INPUT;
    Ticks(1);
    EXPECT_EQ(PlatformControl::Boxes().size(), 1u);
    Port.Feed({0x00, 0xDC});
    Ticks(1);
    std::vector<std::string> frames = TraceLines();
    std::erase_if(frames, [](const std::string& line) { return !line.starts_with("ProcessInput("); });
    EXPECT_THAT(frames, ElementsAre("ProcessInput(60.11.03.06.00.00.80.)", "ProcessInput(20.DF.)",
                                    "ProcessInput(1F.00.DF.)", "ProcessInput(22.DD.)", "ProcessInput(22.00.DC.)"));
    EXPECT_EQ(Port.Taken(), "02 60 00 9E 01 20 DF 02 60 00 9E 02 60 00 9E 02 60 00 9E");
}

TEST_F(Ticking, HalfAFrameFromInsideAHandlersBoxIsGoneOnWithInItsNextOne) {
    PlatformControl::FailCall("GlobalAlloc");  // each answer to 0E is a box
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        PlatformControl::Boxes().size() == 1 ? Port.Feed({0x02, 0x22}) : Port.Feed({0x00, 0xDC});
        Ticks(1);
        return IDOK;
    });
    TraceMask = TRACE_INPUT;
    Port.Feed({0x08, 0x6E, 0x01, 0x0E, 0x02, 0x60, 0x02, 0x01, 0x0E, 0x08});  // between them one that is acknowledged
    Ticks(1);
    EXPECT_EQ(PlatformControl::Boxes().size(), 2u);
    EXPECT_THAT(TraceLines(), testing::Contains("ProcessInput(22.00.DC.)"));
}

TEST_F(Ticking, ReadsGoOnUntilNothingIsLeftOrThereIsNoRoom) {
    const auto feed = [&](int frames) {
        for (int i = 0; i < frames; ++i)
            Port.Feed({0x01, 0x22, 0xDD});
    };
    feed(366);
    Ticks(1);
    EXPECT_EQ(Port.Written.size(), 366u * 4) << "more than the buffer holds, in one tick";
    CutBurst();
    Port.Feed({0x84, 0x1A});
    feed(340);
    Ticks(1);
    EXPECT_EQ(Tick.Kept, 1024);
    EXPECT_EQ(Port.Incoming.size(), 8u) << "what finds no room waits in the port";
}

TEST_F(Ticking, KeptBytesAreOfferedAgainWithTheRestAndGivenUpAfter200Milliseconds) {
    Port.Feed({0x02, 0x60, 0x80, 0x1E});  // an earlier read just now
    Ticks(1);
    Port.Taken();
    for (const bool restComes : {true, false}) {
        CutBurst();
        for (const std::uint32_t wait : {100u, 100u}) {
            PlatformControl::Advance(wait);
            Ticks(1);
            EXPECT_TRUE(Traced("Deux msgs type 60.8x détectés - Dernier msg incomplet - Attente "));
        }
        EXPECT_EQ(Tick.Kept, 10);
        EXPECT_EQ(Port.Taken(), "");
        if (restComes)
            Port.Feed({0x84, 0x1A});
        else
            PlatformControl::Advance(1);
        Ticks(1);
        EXPECT_TRUE(Traced(restComes ? "Deux msgs type 60.8x détectés dans la trame !!!"
                                     : "Deux msgs type 60.8x détectés - dernier msg incomplet - Tempo atteinte !!!"));
        EXPECT_EQ(Tick.Kept, 0);
        EXPECT_EQ(Port.Taken(), ACK) << "the last frame written, once more";
    }
}

}  // namespace
