// The serial thread and its port: opening, settings, failures, stopping, reconnecting. The thread is real; the clock is
// the test's.
#include "link/serial.h"

#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "provider/events.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"
#include "support/port.h"

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
    EXPECT_EQ(port.Dcb.BaudRate, 9600u);
    EXPECT_EQ(port.Dcb.ByteSize, 8);
    EXPECT_EQ(port.Dcb.Parity, NOPARITY);
    EXPECT_EQ(port.Dcb.StopBits, TWOSTOPBITS);
    EXPECT_EQ(port.Dcb.fOutxCtsFlow, 1u);
    EXPECT_EQ(port.Dcb.fRtsControl, static_cast<DWORD>(RTS_CONTROL_DISABLE));
    EXPECT_EQ(port.Timeouts.ReadIntervalTimeout, MAXDWORD);
    EXPECT_EQ(port.Timeouts.ReadTotalTimeoutConstant, 0u);
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
    EXPECT_THAT(TraceLines(), testing::Contains("StopSerialThread Request"));
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
        EXPECT_THAT(TraceLines(), testing::Contains("Wait Thread serial Ready KO 258 ")) << name;
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
    Port.Taken();
    Reconnect();
    EXPECT_EQ(PlatformControl::Port("COM1").Dcb.fAbortOnError, 1u);
    EXPECT_EQ(PlatformControl::Port("COM1").Timeouts.ReadIntervalTimeout, 0u);
    EXPECT_EQ(Serial.Timer, timer);
    EXPECT_TRUE(Link.WriteFailed);
    EXPECT_EQ(Tick.WaitConfigCount, 0);
    EXPECT_EQ(Tick.WaitTrace, 0);
    EXPECT_EQ(Port.Taken(), "02 60 85 19");

    CopyText(ProviderState.PortName, "LPT1");
    Reconnect();
    EXPECT_EQ(Serial.Port, INVALID_HANDLE_VALUE);
    CopyText(ProviderState.PortName, "COM1");
    Link.WriteFailed = false;
    ReleaseLineMutex(0);
}

}  // namespace
