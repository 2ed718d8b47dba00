// The serial thread and its port: opening, settings, failures, stopping, reconnecting. The thread is real; the clock is
// the test's.
#include "link/serial.h"

#include "control/keys.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "provider/events.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"
#include "support/port.h"

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
        if (Process.SerialThread != nullptr) {
            WaitLineMutex();
            StopSerialThread();
            ReleaseLineMutex(0);
        }
        OnTheLine::TearDown();
    }
    static void Configure(const char* name, const char* speed = "9600") {
        CopyText(ProviderState.PortName, name);
        CopyText(ProviderState.SpeedText, speed);
        ProviderState.DeviceState = DEVICE_STARTING;
    }
    static LONG Start() {
        const LONG result = StartSerialThread();
        if (result == 0)
            ReleaseLineMutex(0);
        return result;
    }
};

TEST_F(Thread, OpensThePortWithItsSettingsAndStartsTheLink) {
    ASSERT_EQ(Start(), 0);
    const PlatformControl::PortRecord& port = PlatformControl::Port("COM1");
    EXPECT_EQ(port.Access, GENERIC_READ | GENERIC_WRITE);
    EXPECT_EQ(port.Share, 0u);
    EXPECT_EQ(port.Flags, static_cast<DWORD>(FILE_FLAG_OVERLAPPED));
    EXPECT_TRUE(port.Rts);
    EXPECT_EQ(Port.Taken(), "02 60 85 19");
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"SerialOpenComms (COM1,9600)", "ResetComPort:3", "* After_L2_timeout = 10 *",
                                       "SerialStartTimer", "Wait Thread serial Ready OK"}));
    // poll, special function, configuration enquiry, device association request: each once the one before is
    // acknowledged
    for (const char* frame : {"02 60 01 9D", "03 60 10 03 8A", "02 60 11 8D", "07 12 00 06 02 00 02 01 DC"}) {
        PlatformControl::Advance(400);
        EXPECT_EQ(Port.Taken(), frame);
        Port.Feed({0x02, 0x60, 0x00, 0x9E});
    }
}

TEST_F(Thread, EveryFieldOfTheTableIsSetWhateverThePortHad) {
    for (const int before : {0x00, 0xFF}) {
        PlatformControl::PortRecord& port = PlatformControl::Port("COM1");
        std::memset(&port.Dcb, before, sizeof port.Dcb);
        std::memset(&port.Timeouts, before, sizeof port.Timeouts);
        ASSERT_EQ(Start(), 0);
        const DCB& dcb = port.Dcb;
        EXPECT_THAT((std::vector<unsigned>{dcb.BaudRate, dcb.fBinary, dcb.fParity, dcb.fOutxCtsFlow, dcb.fOutxDsrFlow}),
                    ElementsAre(9600, 1, 0, 1, 0));
        EXPECT_THAT((std::vector<unsigned>{dcb.ByteSize, dcb.Parity, dcb.StopBits}),
                    ElementsAre(8, NOPARITY, TWOSTOPBITS));
        EXPECT_EQ(dcb.fDtrControl + dcb.fDsrSensitivity + dcb.fTXContinueOnXoff + dcb.fOutX + dcb.fInX +
                      dcb.fErrorChar + dcb.fNull + dcb.fRtsControl,
                  0u);
        EXPECT_EQ(dcb.XonLim + dcb.XoffLim, 0);
        for (const char c : {dcb.XonChar, dcb.XoffChar, dcb.ErrorChar, dcb.EofChar, dcb.EvtChar})
            EXPECT_EQ(c, 0);
        EXPECT_EQ(dcb.fAbortOnError, before != 0 ? 1u : 0u) << "as the system reports it";
        const COMMTIMEOUTS& times = port.Timeouts;
        EXPECT_THAT((std::vector<DWORD>{times.ReadIntervalTimeout, times.ReadTotalTimeoutMultiplier,
                                        times.ReadTotalTimeoutConstant, times.WriteTotalTimeoutMultiplier,
                                        times.WriteTotalTimeoutConstant}),
                    ElementsAre(MAXDWORD, 0, 0, 0, 0));
        WaitLineMutex();
        StopSerialThread();
        ReleaseLineMutex(0);
    }
}

TEST_F(Thread, NothingOfAnEarlierThreadIsLeft) {
    SetSetting("Dynamic_Set_Conf", "LastAction", "success");
    Serial.PortFailed = Serial.V24Trouble = true;
    Link.ProcessData = Link.LinkStopped = true;
    Link.LinkPollPeriod = POLL_PERIOD_ANSWERED;
    Tick.SpStopped = true;
    Tick.Kept = 9;
    Marks = {{true, 1}, {true, 2}, {true, 3}, {true, 4}};
    RunningRequest = {REQUEST_DROP, 1, 2};
    Tracking.DbCall = 1;
    DynamicConfig.WaitTraceMode = 1;
    AomTable[0] = {true, 2, true, 40};
    AomCount = 1;
    AomOrder = {2, 1, 0};
    FifoPut(LINK_FIFO, ACK_FRAME);
    FifoPut(1, ACK_FRAME);
    ASSERT_EQ(Start(), 0);
    EXPECT_FALSE(Serial.PortFailed || Serial.V24Trouble);
    EXPECT_FALSE(Link.ProcessData || Link.LinkStopped || Tick.SpStopped);
    EXPECT_EQ(Link.LinkPollPeriod, 30);
    EXPECT_EQ(Tick.Kept, 0);
    EXPECT_FALSE(Marks.DeferredMakeCall.Set || Marks.MakeCallReport.Set || Marks.MakeCallWatch.Set ||
                 Marks.FvTimer.Set);
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_EQ(Tracking.DbCall, 0);
    EXPECT_EQ(DynamicConfig.WaitTraceMode, 0);
    EXPECT_EQ(DynamicConfig.LastActionState, 1);
    EXPECT_FALSE(AomTable[0].present);
    EXPECT_EQ(AomCount, 0);
    EXPECT_THAT(AomOrder, ElementsAre(0, 1, 2));
    EXPECT_EQ(FifoCount(LINK_FIFO), 4) << "what the link starts with";
    EXPECT_EQ(FifoCount(1), 0);
}

TEST_F(Thread, PortIsOpenedAtTheSpeedThatIsAskedFor) {
    EXPECT_NE(SerialOpenComms("COM1", "19200"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(PlatformControl::Port("COM1").Dcb.BaudRate, 19200u);
    Reconnect();
    EXPECT_EQ(PlatformControl::Port("COM1").Dcb.BaudRate, 9600u) << "the line's own";
    SerialCloseComms();
}

TEST_F(Thread, StopsAtTheNextTickAndClosesEverything) {
    ASSERT_EQ(Start(), 0);
    WaitLineMutex();
    EXPECT_EQ(StopSerialThread(), 0);
    ReleaseLineMutex(0);
    EXPECT_EQ(Process.SerialThread, nullptr);
    EXPECT_EQ(PlatformControl::Port("COM1").Closes, 1);
    EXPECT_FALSE(PlatformControl::Port("COM1").Rts);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
    const std::vector<std::string> lines = TraceLines();
    EXPECT_THAT(lines, testing::IsSupersetOf({"StopSerialThread Request", "Final return Serial Thread hcd ffffffff"}));
    EXPECT_THAT(lines, testing::Contains(testing::StartsWith(" Serial Thread after main loop hcd ")));
    EXPECT_THAT(LineEvents(), IsEmpty());
    ASSERT_EQ(Start(), 0) << "it starts again";
}

TEST_F(Thread, TwoHundredOpensAndClosesLeaveNoHandle) {
    ASSERT_EQ(Start(), 0);
    WaitLineMutex();
    StopSerialThread();
    ReleaseLineMutex(0);
    const int before = PlatformControl::OpenHandles();
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(Start(), 0);
        WaitLineMutex();
        ASSERT_EQ(StopSerialThread(), 0);
        ReleaseLineMutex(0);
    }
    EXPECT_EQ(PlatformControl::OpenHandles(), before);
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
    for (const auto& c : cases) {
        Configure("COM1");
        PlatformControl::Port("COM1").OpenError = c.error;
        ProviderState.PendingRequestID = 7;
        EXPECT_EQ(Start(), 0) << "the attempt is over: ready is signalled all the same";
        PlatformControl::Settle();
        EXPECT_THAT(LineEvents(), ElementsAre(c.reply));
        const PlatformControl::Box box = PlatformControl::Boxes().back();
        EXPECT_EQ(box.Text, c.text);
        EXPECT_EQ(box.Caption, "Corvane 6200 SP Error");
        EXPECT_EQ(box.Style, 0x00023010u);
        EXPECT_TRUE(Serial.PortFailed);
        EXPECT_EQ(SerialOpenComms("COM1", "9600"), INVALID_HANDLE_VALUE) << "not tried again";
        EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
        EXPECT_EQ(ProviderState.DeviceState, DEVICE_OUT_OF_SERVICE);
        EXPECT_THAT(TraceLines(), testing::IsSupersetOf({std::string("***Comm port failed to open"),
                                                         std::string("Tentative d'ouverture du port - hcd:ffffffff"),
                                                         "LastError " + std::to_string(c.error)}));
    }
    EXPECT_EQ(PlatformControl::Boxes().size(), 3u);
}

TEST_F(Thread, FailingPortStateClosesThePortAgain) {
    PlatformControl::Port("COM1").SetStateFails = true;
    EXPECT_EQ(Start(), 0);
    PlatformControl::Settle();
    EXPECT_EQ(PlatformControl::Port("COM1").Opens, 1);
    EXPECT_EQ(PlatformControl::Port("COM1").Closes, 1);
    EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
}

TEST_F(Thread, OtherPortNamesEndTheThreadWithoutASignal) {
    for (const char* name : {"COM5", "COM10", "COM0", ""}) {
        Configure(name);
        EXPECT_EQ(static_cast<DWORD>(Start()), static_cast<DWORD>(LINEERR_NODRIVER)) << name;
    }
    RecordingPort fourth;
    PlatformControl::MapPort("COM4", &fourth);
    Configure("COM4");
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(Serial.PortDigit, '4');
    WaitLineMutex();
    StopSerialThread();
    ReleaseLineMutex(0);
}

TEST_F(Thread, ReconnectReopensWithoutTouchingTimeoutsOrTimer) {
    ASSERT_EQ(Start(), 0);
    WaitLineMutex();
    const UINT_PTR timer = Serial.Timer;
    PlatformControl::Port("COM1").Timeouts = {};
    Link.WriteFailed = true;
    Link.SavedLength = 4;
    Tick.WaitConfigCount = 33;
    Tick.WaitTrace = 44;
    Link.SuperMsgSupported = Link.PiggybackMode = true;
    Link.TxIdleCount = Link.TxDropCount = 9;
    SetSetting("ZT_Info", "After_L2_timeout", "25");
    PlatformControl::Port("COM1").Rts = false;
    Port.Taken();
    Reconnect();
    EXPECT_TRUE(PlatformControl::Port("COM1").Rts);
    EXPECT_EQ(Link.After_L2_timeout, 25);
    EXPECT_FALSE(Link.SuperMsgSupported || Link.PiggybackMode);
    EXPECT_EQ(Link.TxIdleCount + Link.TxDropCount, 0);
    EXPECT_EQ(PlatformControl::Port("COM1").Dcb.fAbortOnError, 1u);
    EXPECT_EQ(PlatformControl::Port("COM1").Timeouts.ReadIntervalTimeout, 0u);
    EXPECT_EQ(Serial.Timer, timer);
    EXPECT_TRUE(Link.WriteFailed);
    EXPECT_EQ(Tick.WaitConfigCount, 0);
    EXPECT_EQ(Tick.WaitTrace, 0);
    EXPECT_EQ(Port.Taken(), "02 60 85 19");

    Tick.ConfigReceived = true;
    Tick.WaitConfigCount = 33;
    CopyText(ProviderState.PortName, "LPT1");
    Reconnect();
    EXPECT_EQ(Tick.WaitConfigCount, 33) << "no more to wait for";
    EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
    CopyText(ProviderState.PortName, "COM1");
    Link.WriteFailed = false;
    ReleaseLineMutex(0);
}

}  // namespace
