// The serial thread and its port: opening, settings, failures, stopping, reconnecting. The thread is real; the clock is
// the test's.
#include "link/serial.h"

#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "provider/process.h"
#include "support/fixture.h"
#include "support/port.h"
#include "thread/serial_thread.h"
#include "tracking/events.h"

#include <cstring>

namespace {

class Thread : public OnTheLine {
protected:
    RecordingPort Port;

    void SetUp() override {
        OnTheLine::SetUp();
        PlatformControl::MapPort("COM1", &Port);
        Configure("COM1");
        TraceLines();
    }
    void TearDown() override {
        if (Process.SerialThread != nullptr)
            Stop();
        OnTheLine::TearDown();
    }
    static PlatformControl::PortRecord& Com1() { return PlatformControl::Port("COM1"); }
    static void Configure(const char* name) {
        CopyText(ProviderState.PortName, name);
        CopyText(ProviderState.SpeedText, "9600");
        ProviderState.DeviceState = DEVICE_STARTING;
    }
    static LONG Start() {
        const LONG result = StartSerialThread();
        if (result == 0)
            ReleaseLineMutex(0);
        return result;
    }
    static void Stop() {
        WaitLineMutex();
        EXPECT_EQ(StopSerialThread(), 0);
        ReleaseLineMutex(0);
    }
};

TEST_F(Thread, StartsTheLinkFrameByFrame) {
    ASSERT_EQ(Start(), 0);
    EXPECT_TRUE(Com1().Rts);
    EXPECT_EQ(Port.Taken(), "02 60 85 19");
    // poll, special function, configuration enquiry, device association request: each once the one before is
    // acknowledged
    for (const char* frame : {"02 60 01 9D", "03 60 10 03 8A", "02 60 11 8D", "07 12 00 06 02 00 02 01 DC"}) {
        PlatformControl::Advance(400);
        EXPECT_EQ(Port.Taken(), frame);
        Port.Feed({0x02, 0x60, 0x00, 0x9E});
    }
}

TEST_F(Thread, EveryFieldOfTheTableIsSetWhateverThePortHadAndAStopClosesIt) {
    int handles = 0;
    for (const int before : {0x00, 0xFF}) {
        std::memset(&Com1().Dcb, before, sizeof Com1().Dcb);
        std::memset(&Com1().Timeouts, before, sizeof Com1().Timeouts);
        ASSERT_EQ(Start(), 0);
        EXPECT_THAT((std::vector<DWORD>{Com1().Access, Com1().Share, Com1().Flags}),
                    ElementsAre(GENERIC_READ | GENERIC_WRITE, 0u, DWORD{FILE_FLAG_OVERLAPPED}));
        const DCB& d = Com1().Dcb;
        EXPECT_THAT((std::vector<unsigned>{d.BaudRate, d.fBinary, d.fParity, d.fOutxCtsFlow, d.fOutxDsrFlow, d.ByteSize,
                                           d.Parity, d.StopBits}),
                    ElementsAre(9600, 1, 0, 1, 0, 8, NOPARITY, TWOSTOPBITS));
        EXPECT_EQ(d.fDtrControl | d.fDsrSensitivity | d.fTXContinueOnXoff | d.fOutX | d.fInX | d.fErrorChar | d.fNull |
                      d.fRtsControl,
                  0u);
        EXPECT_EQ(d.XonLim | d.XoffLim | d.XonChar | d.XoffChar | d.ErrorChar | d.EofChar | d.EvtChar, 0);
        EXPECT_EQ(d.fAbortOnError, before != 0 ? 1u : 0u) << "as the system reports it";
        constexpr COMMTIMEOUTS AT_ONCE = {MAXDWORD, 0, 0, 0, 0};
        EXPECT_EQ(std::memcmp(&Com1().Timeouts, &AT_ONCE, sizeof AT_ONCE), 0);
        Stop();
        EXPECT_EQ(Com1().Opens, Com1().Closes);
        EXPECT_FALSE(Com1().Rts);
        EXPECT_EQ(FifoCount(LINK_FIFO), 0);
        EXPECT_EQ(PlatformControl::OpenHandles(), before == 0 ? handles = PlatformControl::OpenHandles() : handles);
    }
    EXPECT_THAT(LineEvents(), IsEmpty());
    EXPECT_THAT(TraceLines(), testing::Each(testing::Not(testing::HasSubstr("MUTEX PRB"))));
}

TEST_F(Thread, NothingOfAnEarlierThreadIsLeft) {
    SetSetting("Dynamic_Set_Conf", "LastAction", "success");
    Serial.PortFailed = Serial.V24Trouble = true;
    Link.LinkPollPeriod = POLL_PERIOD_ANSWERED;
    Tick.SpStopped = true;
    Marks = {{true, 1}, {true, 2}, {true, 3}, {true, 4}};
    RunningRequest = {REQUEST_DROP, 1, 2};
    Tracking.DbCall = DynamicConfig.WaitTraceMode = 1;
    AomTable[0] = {true, 2, true, 40};
    AomCount = 1;
    AomOrder = {2, 1, 0};
    FifoPut(LINK_FIFO, ACK_FRAME);
    SetSetting("ZT_Info", "After_L2_timeout", "25");
    ASSERT_EQ(Start(), 0);
    EXPECT_EQ(Link.After_L2_timeout, 25);
    EXPECT_FALSE(Serial.PortFailed || Serial.V24Trouble || Tick.SpStopped || Marks.DeferredMakeCall.Set ||
                 Marks.MakeCallReport.Set || Marks.MakeCallWatch.Set || Marks.FvTimer.Set || AomTable[0].present);
    EXPECT_EQ(Link.LinkPollPeriod, 30);
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_EQ(Tracking.DbCall + DynamicConfig.WaitTraceMode + AomCount, 0);
    EXPECT_EQ(DynamicConfig.LastActionState, 1);
    EXPECT_THAT(AomOrder, ElementsAre(0, 1, 2));
    EXPECT_EQ(FifoCount(LINK_FIFO), 4) << "what the link starts with";
    EXPECT_EQ(Serial.PortDigit, '1');
    Stop();
    CopyText(ProviderState.PortName, "COM2");  // there is none
    Start();
    EXPECT_EQ(Serial.PortDigit, '2');
}

TEST_F(Thread, MessagesThatEndUnaskedEndAllThatWaitsForTheSet) {
    ASSERT_EQ(Start(), 0);
    WaitLineMutex();
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    ProviderState.PendingRequestID = 7;
    Call(1, 0, LINECALLSTATE_CONNECTED);
    PlatformControl::FailCall("GetMessageA", 1, PlatformControl::Failing::Once);
    ReleaseLineMutex(0);
    CallbacksUnderTheMutex = true;
    PlatformControl::Advance(200);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 IDLE", "REPLY 7 80000048", "CLOSE"));
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_OUT_OF_SERVICE);
    EXPECT_THAT(TraceLines(), testing::Contains("Serial Thread: no more messages"));
    EXPECT_EQ(Com1().Closes, 1);
    EXPECT_EQ(WaitLineMutex(), 0) << "not left behind by a thread that has ended";
    ReleaseLineMutex(0);
}

TEST_F(Thread, PortThatDoesNotOpenIsToldToUserAndPendingRequest) {
    const struct {
        DWORD error;
        const char *reply, *text;
    } cases[] = {
        {5, "REPLY 7 80000001", "Serial Port conflict - Check it and try again\n\nAccess denied"},
        {1119, "REPLY 7 80000001", "Serial Port conflict - Check it and try again\n\nIrq Busy"},
        {2, "REPLY 7 80000048", "Serial Port Problem - Check it and try again \n\nAccess Failed"},
    };
    WaitLineMutex();  // where a request is pending there is one
    ReleaseLineMutex(0);
    CallbacksUnderTheMutex = true;
    std::vector<std::string> before;  // the box, which stays as long as the user wants
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        before = LineEvents();
        EXPECT_EQ(LineMutexHeldFor(), NOT_HELD);
        return IDOK;
    });
    for (const auto& c : cases) {
        Configure("COM1");
        Com1().OpenError = c.error;
        ProviderState.PendingRequestID = 7;
        EXPECT_EQ(Start(), 0) << "the attempt is over: ready is signalled all the same";
        PlatformControl::Settle();
        EXPECT_THAT(before, ElementsAre(c.reply));
        EXPECT_THAT(LineEvents(), IsEmpty());
        const PlatformControl::Box box = PlatformControl::Boxes().back();
        EXPECT_EQ(box.Text, c.text);
        EXPECT_EQ(box.Caption, "Corvane 6200 SP Error");
        EXPECT_EQ(box.Style, 0x00023010u);
        EXPECT_EQ(SerialOpenComms("COM1", "9600"), INVALID_HANDLE_VALUE) << "not tried again";
        EXPECT_EQ(ProviderState.DeviceState, DEVICE_OUT_OF_SERVICE);
        EXPECT_THAT(TraceLines(), testing::IsSupersetOf({std::string("***Comm port failed to open"),
                                                         "LastError " + std::to_string(c.error)}));
    }
    EXPECT_EQ(PlatformControl::Boxes().size(), 3u);
    Com1().OpenError = 0;
    int opened = 0;
    for (bool* const fails : {&Com1().GetStateFails, &Com1().SetStateFails}) {
        *fails = true;
        Configure("COM1");
        EXPECT_EQ(Start(), 0);
        PlatformControl::Settle();
        EXPECT_EQ(Com1().Opens, ++opened);
        EXPECT_EQ(Com1().Closes, opened) << "a port that cannot be set up is given back";
        EXPECT_THAT(TraceLines(), testing::Contains("LastError 1117")) << "of what failed, not of what gave it back";
        *fails = false;
    }
}

TEST_F(Thread, OtherPortNamesEndTheThreadWithoutASignal) {
    for (const char* name : {"COM5", "COM10", "COM0", ""}) {
        Configure(name);
        EXPECT_EQ(static_cast<DWORD>(Start()), static_cast<DWORD>(LINEERR_NODRIVER)) << name;
    }
    Configure("LPT1");  // as long as a name may be
    EXPECT_EQ(Start(), 0);
    PlatformControl::Settle();
    EXPECT_EQ(PlatformControl::Boxes().back().Text, "Serial Port Problem - Check it and try again \n\nAccess Failed");
    EXPECT_THAT(TraceLines(), testing::Contains("LastError 123"));
    PlatformControl::MapPort("COM4", &Port);
    Configure("COM4");
    PlatformControl::FailCall("SetTimer");
    EXPECT_EQ(Start(), 0);
    PlatformControl::Settle();
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"***Comm port failed to open", "LastError 1450"}))
        << "a port that no tick serves is none";
    EXPECT_EQ(PlatformControl::Port("COM4").Closes, 1);
    PlatformControl::CallsWork();
    EXPECT_EQ(Start(), 0);
}

TEST_F(Thread, ReconnectReopensWithoutTouchingTimeoutsOrTimer) {
    ASSERT_EQ(Start(), 0);
    WaitLineMutex();
    EXPECT_NE(SerialOpenComms("COM1", "19200"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(Com1().Dcb.BaudRate, 19200u);
    EXPECT_EQ(FifoCount(LINK_FIFO), 4) << "what the link starts with, and nothing of before";
    const UINT_PTR timer = Serial.Timer;
    Com1().Timeouts = {};
    Com1().Rts = false;
    Link.WriteFailed = true;
    Link.SavedLength = 3;
    Tick.WaitConfigCount = 33;
    Tick.WaitTrace = 44;
    Link.SuperMsgSupported = Link.PiggybackMode = true;
    Link.TxIdleCount = Link.TxDropCount = 9;
    SetSetting("ZT_Info", "After_L2_timeout", "25");
    Port.Taken();
    Reconnect();
    EXPECT_EQ(Com1().Dcb.BaudRate, 9600u) << "the line's own";
    EXPECT_EQ(Com1().Dcb.fAbortOnError, 1u);
    EXPECT_EQ(Com1().Timeouts.ReadIntervalTimeout, 0u);
    EXPECT_TRUE(Com1().Rts);
    EXPECT_EQ(Serial.Timer, timer);
    EXPECT_EQ(Link.After_L2_timeout, 25);
    EXPECT_FALSE(Link.SuperMsgSupported || Link.PiggybackMode);
    EXPECT_TRUE(Link.WriteFailed && Link.SavedLength == 3) << "it is still to be tried again";
    EXPECT_EQ(Link.TxIdleCount + Link.TxDropCount + Tick.WaitConfigCount + Tick.WaitTrace, 0);
    EXPECT_EQ(Port.Taken(), "02 60 85 19");
    for (bool* const fails : {&Com1().GetStateFails, &Com1().SetStateFails}) {
        *fails = true;
        Reconnect();
        EXPECT_NE(Serial.Port, INVALID_HANDLE_VALUE) << "it ends there, with the port as it is";
        EXPECT_EQ(Com1().Opens, Com1().Closes + 1);
        EXPECT_EQ(Port.Taken(), "");
        *fails = false;
    }
    PlatformControl::MapPort("LPT1", &Port);
    CopyText(ProviderState.PortName, "LPT1");
    Reconnect();
    EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Port.Taken(), "") << "no COM port";
    ReleaseLineMutex(0);
}

}  // namespace
