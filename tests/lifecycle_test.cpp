// Start and stop of the provider where something stands in the way: a thread that has ended, one that does not end, a
// line mutex of another process, a second open beside running ticks.
#include "provider/process.h"

#include "config/settings.h"
#include "control/requests.h"
#include "devices/line_requests.h"
#include "link/serial.h"
#include "platform/text.h"
#include "provider/tapi.h"
#include "support/fixture.h"
#include "support/port.h"
#include "thread/serial_thread.h"
#include "trace/trace.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace {

const HPROVIDER Provider = reinterpret_cast<HPROVIDER>(std::uintptr_t{0x33});
const HTAPILINE TapiLine = reinterpret_cast<HTAPILINE>(std::uintptr_t{1});

class StartAndStop : public OnTheLine {
protected:
    RecordingPort Port;
    HDRVLINE Line = nullptr;

    void SetUp() override {
        OnTheLine::SetUp();
        PlatformControl::MapPort("COM1", &Port);
        Initialise("COM1");
        TraceLines();
    }
    void TearDown() override {
        if (Process.SerialThread != nullptr)
            TSPI_providerShutdown(0x20000, 4);
        PlatformControl::Settle();
        PlatformControl::MapPort("COM1", nullptr);
        OnTheLine::TearDown();
    }
    static void Initialise(const char* port) {
        SetSetting("Provider", "Port", port);
        DWORD lines = 9, phones = 9, options = 0;
        const ASYNC_COMPLETION completion = ProviderState.CompletionProc;
        EXPECT_EQ(TSPI_providerEnumDevices(4, &lines, &phones, Provider, nullptr, nullptr), 0);
        EXPECT_EQ(TSPI_providerInit(0x20000, 4, 6, 8, lines, phones, completion, &options), 0);
        EXPECT_EQ(lines + phones, 2u);
        EXPECT_EQ(options, 1u);
        EXPECT_TRUE(completion != nullptr && ProviderState.CompletionProc == completion);
    }
    LONG Open(LINEEVENT events = nullptr) { return TSPI_lineOpen(6, TapiLine, &Line, 0x20000, events); }
    // Whether this thread holds the line mutex; it does not hold it afterwards.
    static bool HeldTheMutex() { return ReleaseMutex(Process.LineMutex) != 0; }
};

TEST_F(StartAndStop, ProvidersEntryPointsRefuseNullPointers) {
    DWORD count = 9;
    WCHAR name[16];
    const ASYNC_COMPLETION completion = ProviderState.CompletionProc;
    EXPECT_EQ(TSPI_providerEnumDevices(4, nullptr, &count, Provider, nullptr, nullptr), Error(LINEERR_INVALPOINTER));
    EXPECT_EQ(TSPI_providerEnumDevices(4, &count, nullptr, Provider, nullptr, nullptr), Error(LINEERR_INVALPOINTER));
    EXPECT_EQ(TSPI_providerInit(0x20000, 4, 6, 8, 1, 1, completion, nullptr), Error(LINEERR_INVALPOINTER));
    EXPECT_EQ(TSPI_providerUIIdentify(nullptr), Error(LINEERR_INVALPOINTER));
    EXPECT_EQ(TSPI_providerUIIdentify(name), 0);
    EXPECT_EQ(count, 9u);
}

TEST_F(StartAndStop, ThreadThatEndedByItselfOrWasNeverMadeIsNotStoppedAndLeavesNoHandle) {
    PlatformControl::Port("COM1").OpenError = 5;
    const int before = PlatformControl::OpenHandles();
    for (int start = 0; start < 2; ++start) {
        ASSERT_EQ(StartSerialThread(), 0);
        ReleaseLineMutex(0);
        PlatformControl::Settle();
    }
    TraceLines();
    EXPECT_EQ(StopSerialThread(), 0);
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_FALSE(HeldTheMutex());
    EXPECT_EQ(PlatformControl::OpenHandles(), before + 1) << "the line mutex alone";
    PlatformControl::FailCreate("SP62Evt_Serial_Ready", 8);
    EXPECT_EQ(static_cast<DWORD>(StartSerialThread()), 0x80000043);
    PlatformControl::FailCreate("SP62Evt_Serial_Ready", 0);
    PlatformControl::FailCall("CreateThread");
    EXPECT_EQ(static_cast<DWORD>(StartSerialThread()), 0x80000043);
    EXPECT_EQ(PlatformControl::Boxes().back().Text, "Error in creating Serial thread: 1450");
    Events();
    WaitLineMutex();
    appCall(0, REQUEST_HOLD, ProviderState, 8);  // which tries again
    EXPECT_THAT(Events(), ElementsAre("REPLY 8 80000048"));
    EXPECT_TRUE(HeldTheMutex()) << "the entry point's own hold";
    EXPECT_EQ(PlatformControl::OpenHandles(), before + 1);
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({std::string("EvtSerialReady not created error 8"),
                                                     std::string("Thread serial didn't start error 1450")}));
}

TEST_F(StartAndStop, ThreadThatDoesNotEndIsForgottenAfterThirtySecondsAndNoOtherStartsBesideIt) {
    PlatformControl::KeepBoxesOpen(60'000);
    EXPECT_EQ(Open(), 0);
    PlatformControl::Advance(7000);  // contact is lost: a box
    TraceLines();
    ASSERT_EQ(WaitLineMutex(), 0);
    const std::uint32_t asked = PlatformControl::Now();
    EXPECT_EQ(StopSerialThread(), 0);
    EXPECT_EQ(PlatformControl::Now() - asked, 30'000u);
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"StopSerialThread Request", "StopSerialThread Prb WAIT_TIMEOUT SerialThread"}));
    EXPECT_TRUE(HeldTheMutex());
    EXPECT_EQ(Process.SerialThread, nullptr);
    EXPECT_FALSE(StopRequest);
    EXPECT_EQ(static_cast<DWORD>(Open()), 0x80000001) << "the port is that thread's";
    EXPECT_THAT(TraceLines(), testing::Contains("End TSPI_lineOpen Pb"));
    EXPECT_FALSE(HeldTheMutex());
    PlatformControl::Advance(60'000);
    EXPECT_EQ(Open(), 0);
}

DWORD WINAPI RunOnAThread(LPVOID what) {
    (*static_cast<std::function<void()>*>(what))();
    return 0;
}

TEST_F(StartAndStop, OpensAndStopsBesideAStopWaitForItsEnd) {
    PlatformControl::KeepBoxesOpen(10'000);
    const auto& port = PlatformControl::Port("COM1");
    LONG reopened = -1;
    std::function<void()> close = [&] { TSPI_lineClose(Line); }, closeAndOpen = [&] {
        TSPI_lineClose(Line);
        reopened = Open();
    };
    const auto beside = [&](std::function<void()>& other, const std::function<LONG()>& own) {
        ASSERT_EQ(Open(), 0);
        PlatformControl::Advance(7000);  // contact is lost: the thread ends only when its box is closed
        const HANDLE thread = CreateThread(nullptr, 0, RunOnAThread, &other, 0, nullptr);
        PlatformControl::Settle();
        EXPECT_TRUE(Process.Stopping);
        EXPECT_EQ(own(), 0);
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        CloseHandle(thread);
        PlatformControl::Settle();
    };
    beside(close, [&] { return Open(); });
    EXPECT_TRUE(SerialThreadRuns()) << "not the one that was ending";
    EXPECT_EQ(port.Opens, port.Closes + 1);
    ASSERT_EQ(TSPI_lineClose(Line), 0);
    for (const bool shutdown : {false, true}) {
        beside(closeAndOpen, [&] { return shutdown ? TSPI_providerShutdown(0x20000, 4) : TSPI_lineClose(Line); });
        EXPECT_EQ(reopened, 0);
        EXPECT_EQ(port.Opens - port.Closes, SerialThreadRuns() ? 1 : 0) << "none runs that nobody can stop";
        Initialise("COM1");
        Process.OpenCount = 0;
    }
    EXPECT_FALSE(HeldTheMutex());
}

TEST_F(StartAndStop, SecondOpenStartsTheRecordsAnewUnderTheMutexWhileTicksRun) {
    OpenForCapture();
    const LINEEVENT capture = ProviderState.LineEventProc;
    const auto waitsBeforeLoading = [&] {
        PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
        TraceLines();
        EXPECT_EQ(Open(capture), 0);
        const std::vector<std::string> lines = TraceLines();
        const auto place = [&](const char* text) {
            return std::find_if(lines.begin(), lines.end(),
                                [&](const std::string& line) { return line.starts_with(text); });
        };
        EXPECT_NE(place("LoadIniStrings port"), lines.end());
        return place("WAITLINEMUTEX PRB") < place("LoadIniStrings port");
    };
    ASSERT_EQ(Open(capture), 0);
    ASSERT_EQ(WaitLineMutex(), 0);
    Key(1, TOUCH_MULTI);
    Tracking.OfferInfoCref = Call(1, 0, LINECALLSTATE_OFFERING);
    WaitInfo[3] = PickUpSupervCref = SwapKeyTransferingCref = 0;
    RunningRequest = {REQUEST_DROP, 0, -1};
    Marks.MakeCallReport = {true, 0};
    confstate = LINECALLSTATE_CONNECTED;
    ProviderState.AppSpecific = 5;
    ReleaseLineMutex(0);
    Events();
    EXPECT_TRUE(waitsBeforeLoading());
    EXPECT_EQ(CallTable[0].state + static_cast<DWORD>(TouchTable[1].kind + KeyLists.Multi.Count) + confstate, 0u);
    PlatformControl::Advance(2000);
    EXPECT_THAT(Events(), IsEmpty()) << "of calls from before";
    EXPECT_THAT(WaitInfo, testing::Each(-1));
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_FALSE(Marks.MakeCallReport.Set);
    EXPECT_EQ(PickUpSupervCref + SwapKeyTransferingCref, -2);
    EXPECT_EQ(ProviderState.AppSpecific, 0u);
    EXPECT_EQ(ProviderState.PhoneDeviceID, 8u);
    EXPECT_EQ(ProviderState.ProviderHandle, Provider);
    ASSERT_EQ(TSPI_lineClose(Line), 0);
    EXPECT_TRUE(waitsBeforeLoading()) << "no thread, but a request may start one";
    ASSERT_EQ(TSPI_lineClose(Line), 0);
    Process.RestartRequired = true;
    EXPECT_EQ(static_cast<DWORD>(Open()), 0x80000052);
    EXPECT_EQ(TSPI_providerShutdown(0x20000, 4), 0);
    EXPECT_FALSE(Process.RestartRequired);
    EXPECT_EQ(Process.LineMutex, nullptr);
}

TEST_F(StartAndStop, TwoThatStartItAtOnceBothGetItAndAStopEndsACallThatWasPutOff) {
    OpenForCapture();
    const LINEEVENT capture = ProviderState.LineEventProc;
    std::vector<LONG> opened;
    std::function<void()> open = [&] { opened.push_back(Open(capture)); };
    for (int i = 0; i < 2; ++i)
        CloseHandle(CreateThread(nullptr, 0, RunOnAThread, &open, 0, nullptr));
    PlatformControl::Settle();
    EXPECT_THAT(opened, ElementsAre(0, 0)) << "at once";
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    EXPECT_EQ(StartSerialThread(), 0);
    EXPECT_TRUE(HeldTheMutex()) << "the running one is given under the mutex, had at the second try";
    Events();
    ToldFirst = LINECALLSTATE_DISCONNECTED | LINECALLSTATE_IDLE;
    CallTable[2].htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x102});
    Marks.DeferredMakeCall = {true, 2};
    EXPECT_EQ(TSPI_lineClose(Line), 0);
    EXPECT_THAT(Events(), ElementsAre("STATE 2 DISCONNECTED 1", "STATE 2 IDLE"));
}

TEST_F(StartAndStop, RequestWhileTheThreadStartsWaitsForItAndIsAnsweredOnce) {
    OpenForCapture();
    const LINEEVENT capture = ProviderState.LineEventProc;
    std::function<void()> open = [&] { Open(capture); }, hold = [] { TSPI_lineHold(8, nullptr); };
    for (const bool opens : {true, false}) {
        Process.OpenCount = 0;
        PlatformControl::Port("COM1").OpenError = opens ? 0 : 5;
        CallTable[0].state = LINECALLSTATE_CONNECTED;
        for (std::function<void()>* const does : {&open, &hold})
            CloseHandle(CreateThread(nullptr, 0, RunOnAThread, does, 0, nullptr));
        PlatformControl::Settle();
        EXPECT_THAT(Events(), ElementsAre(opens ? "REPLY 8 0" : "REPLY 8 80000048"));
        EXPECT_EQ(WaitLineMutex(), 0) << "given back by both";
        ReleaseLineMutex(0);
        EXPECT_EQ(TSPI_lineClose(Line), 0);
    }
}

TEST_F(StartAndStop, RequestWithoutAThreadStartsItIsLostAndTapiIsToldOnce) {
    OpenForCapture();
    Call(1, 0, LINECALLSTATE_CONNECTED);
    ProviderState.PendingRequestID = 99;  // of an earlier thread
    EXPECT_EQ(TSPI_lineHold(7, nullptr), 7);
    EXPECT_THAT(TraceLines(), testing::Contains("appCall - Companion app has not yet been registered - Start it"));
    EXPECT_THAT(LineEvents(), ElementsAre("REPLY 99 80000048", "REPLY 7 80000048"));
    EXPECT_EQ(ProviderState.PendingRequestID, 0u);
    EXPECT_TRUE(SerialThreadRuns());
    EXPECT_FALSE(HeldTheMutex()) << "the start's hold and the entry point's are both given back";
}

TEST_F(StartAndStop, PortThatDoesNotOpenRefusesAMadeCallWithoutCompletingIt) {
    OpenForCapture();
    Call(1, 0, LINECALLSTATE_CONNECTED);
    PlatformControl::Port("COM1").OpenError = 5;
    HDRVCALL call = nullptr;
    EXPECT_EQ(TSPI_lineMakeCall(7, nullptr, nullptr, &call, "5"_wide, 0, nullptr), Error(LINEERR_OPERATIONFAILED));
    PlatformControl::Settle();
    EXPECT_EQ(TSPI_lineHold(8, nullptr), 8);
    PlatformControl::Settle();
    EXPECT_EQ(TSPI_lineGenerateDigits(nullptr, 0, LINEDIGITMODE_DTMF, "1"_wide, 0), 0) << "just returns";
    EXPECT_THAT(LineEvents(), ElementsAre("REPLY 8 80000048"));
}

// An application that asks for more as soon as it hears of an end.
bool CompletedUnderTheMutex;
std::vector<DRV_REQUESTID> Completed;
void CALLBACK AskNext(DRV_REQUESTID request, LONG) {
    Completed.push_back(request);
    CompletedUnderTheMutex = ReleaseMutex(Process.LineMutex) != 0;
    WaitForSingleObject(Process.LineMutex, INFINITE);
    if (request != 7)
        return;
    if (SerialThreadRuns()) {
        ProviderState.PendingRequestID = 8;
        RunningRequest = {REQUEST_DROP, 3};
    } else {
        appCall(0, REQUEST_HOLD, ProviderState, 8);
    }
}

TEST_F(StartAndStop, RequestFromWithinACompletionIsNeitherLostNorStartsAgainWhatStops) {
    ASSERT_EQ(Open(), 0);
    ProviderState.CompletionProc = AskNext;
    for (const bool opens : {true, false}) {
        Completed.clear();
        ProviderState.PendingRequestID = 7;
        EXPECT_EQ(opens ? Open() : TSPI_lineClose(Line), 0);
        EXPECT_TRUE(CompletedUnderTheMutex);
        EXPECT_EQ(SerialThreadRuns(), opens);
        EXPECT_EQ(RunningRequest.Code, opens ? REQUEST_DROP : REQUEST_NONE);
        EXPECT_EQ(ProviderState.PendingRequestID, opens ? 8u : 0u);
        EXPECT_EQ(Completed.back(), opens ? 7u : 8u) << "none is left without its completion";
    }
    EXPECT_FALSE(HeldTheMutex());
    EXPECT_EQ(Open(), 0) << "as ever";
}

TEST_F(StartAndStop, PortChosenWithoutAThreadIsTheOneThatTheNextOpenTakes) {
    for (const char* before : {"NONE", "COM3"}) {
        Process.OpenCount = 0;
        Initialise(before);
        std::uint8_t chosen[176] = {2, 172};  // a new serial port, from the dialog
        std::memcpy(chosen + 12, "COM1", 4);
        EXPECT_EQ(TSPI_providerGenericDialogData(6, 1, chosen, sizeof chosen), 0);
        EXPECT_FALSE(HeldTheMutex());
        EXPECT_EQ(Open(), 0) << before;
        EXPECT_STREQ(ProviderState.PortName, "COM1");
        ASSERT_EQ(TSPI_lineClose(Line), 0);
    }
}

TEST_F(StartAndStop, LineMutexOfAnotherProcessIsWaitedForAndLeftFree) {
    const HANDLE others = CreateMutexA(nullptr, FALSE, "SP62LineMutex");
    EXPECT_EQ(WaitLineMutex(), 0);
    EXPECT_TRUE(HeldTheMutex()) << "what was there already is not owned by being made";
    ASSERT_EQ(Open(), 0);
    EXPECT_EQ(TSPI_providerShutdown(0x20000, 4), 0);
    EXPECT_FALSE(ReleaseMutex(others)) << "the other process would wait for ever";
    CloseHandle(others);
}

TEST_F(StartAndStop, OpenWithoutAPortFailsAfterTwentySecondsWithoutTheMutex) {
    Initialise("COM5");
    Process.OpenCount = 0;
    const std::uint32_t asked = PlatformControl::Now();
    EXPECT_EQ(static_cast<DWORD>(Open()), 0x80000001);
    EXPECT_EQ(PlatformControl::Now() - asked, 20'000u);
    EXPECT_THAT(TraceLines(), testing::Contains("Wait Thread serial Ready KO 258 "));
    EXPECT_FALSE(HeldTheMutex());
}

TEST_F(StartAndStop, InitialisationNeedsAFourCharacterPortAndSucceedsAllTheSame) {
    for (const char* port : {"NONE", "COM10", "", "COM5"}) {
        TraceLines();
        Initialise(port);
        const std::vector<std::string> lines = TraceLines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "Entering TSPI_providerShutdown(20000 4)"),
                  std::string(port) == "COM5" ? 0 : 1)
            << port;
        for (const char* text : {"Pb - pas de port spécifié dans le telephon.ini -> providerconfig",
                                 "pas de choix à provider config -> on stoppe le SP"})
            EXPECT_EQ(std::count(lines.begin(), lines.end(), text), std::string(port) == "COM5" ? 0 : 1) << port;
    }
    Initialise("NONE");
    WaitLineMutex();
    ReleaseLineMutex(0);
    Process.OpenCount = 1;
    TraceLines();
    EXPECT_NE(Open(), 0);
    EXPECT_THAT(TraceLines(), testing::Each(testing::Not(testing::StartsWith("REL_LINE_MUTEX PRB"))))
        << "a shutdown within an open has given the mutex up";
    PlatformControl::FailCall("RegQueryValueExA", 1, PlatformControl::Failing::Once);
    Initialise("COM1");
    EXPECT_STREQ(ProviderState.PortName, "COM1") << "read again behind the configuration";
    PlatformControl::FailCall("RegQueryValueExA");
    Initialise("COM1");
    PlatformControl::CallsWork();
    Process.OpenCount = 0;
    EXPECT_EQ(Open(), 0) << "and by the first open";
    const ProviderStateRecord& p = ProviderState;
    const LINEDIALPARAMS& dial = p.DialParams;
    EXPECT_EQ((std::vector<DWORD>{p.LineDeviceID, p.PermanentProviderID, p.MediaMode, p.FwdStatus,
                                  static_cast<DWORD>(p.DeviceState), p.ProtocolLevel, dial.dwDialPause,
                                  dial.dwDialSpeed, dial.dwDigitDuration, dial.dwWaitForDialtone}),
              (std::vector<DWORD>{6, 4, 4, 4, 1, 2, 2000, 95, 95, 60000}));
    WCHAR name[16];
    std::memset(name, 0xEE, sizeof name);
    EXPECT_EQ(TSPI_providerUIIdentify(name), 0);
    EXPECT_EQ(std::memcmp(name, "zt_6232.tsp"_wide, 12 * sizeof(WCHAR)), 0) << "its own user interface";
}

TEST_F(StartAndStop, LineMutexIsMadeOnFirstUseAndSaysHowAWaitEnded) {
    EXPECT_EQ(WaitLineMutex(), 0);
    EXPECT_THAT(TraceLines(), testing::Contains("MutexLine creation"));
    EXPECT_EQ(ReleaseLineMutex(42), 42);
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_EQ(ReleaseLineMutex(7), 7);
    EXPECT_THAT(TraceLines(), ElementsAre("REL_LINE_MUTEX PRB 120"));
    Process.LineMutexHolder = 0xFFFF;  // a thread that ended with it
    Process.LineMutexDepth = 3;
    EXPECT_EQ(WaitLineMutex(), 0);
    ReleaseLineMutex(0);
    EXPECT_EQ(LineMutexHeldFor(), NOT_HELD) << "else boxes had no time any more";
    PlatformControl::NextWait("SP62LineMutex", WAIT_ABANDONED);
    EXPECT_EQ(WaitLineMutex(), 128);
    ReleaseLineMutex(0);
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    EXPECT_EQ(WaitLineMutex(), 258);
    EXPECT_THAT(TraceLines(), ElementsAre("WAITLINEMUTEX PRB WAIT_ABANDONED", "WAITLINEMUTEX PRB WAIT_TIMEOUT"));
    PlatformControl::NextWait("SP62LineMutex", WAIT_FAILED);
    EXPECT_EQ(WaitLineMutex(), -1);
    EXPECT_THAT(TraceLines(), IsEmpty());
    CloseHandle(Process.LineMutex);
    Process.LineMutex = nullptr;
    PlatformControl::FailCreate("SP62LineMutex", 6);
    EXPECT_EQ(static_cast<DWORD>(WaitLineMutex()), 0x80000043);
    EXPECT_THAT(TraceLines(), testing::Contains("MutexLine not created error 6"));
}

TEST_F(StartAndStop, TheLineMutexIsWaitedForTwentySecondsTheDebugMutexTen) {
    const HANDLE letGo = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const auto waited = [&](HANDLE mutex, auto wait) {
        std::function<void()> hold = [&] {
            WaitForSingleObject(mutex, INFINITE);
            WaitForSingleObject(letGo, INFINITE);
            EXPECT_TRUE(ReleaseMutex(mutex));
        };
        const HANDLE thread = CreateThread(nullptr, 0, RunOnAThread, &hold, 0, nullptr);
        PlatformControl::Settle();
        const std::uint32_t asked = PlatformControl::Now();
        wait();
        const std::uint32_t time = PlatformControl::Now() - asked;
        SetEvent(letGo);
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        CloseHandle(thread);
        return time;
    };
    WaitLineMutex();
    ReleaseLineMutex(0);
    EXPECT_EQ(waited(Process.LineMutex, [] { EXPECT_EQ(WaitLineMutex(), 258); }), 20'000u);
    TraceLines();
    EXPECT_EQ(waited(DebugMutex, [] { Trace(TRACE_ALWAYS, "lost"); }), 10'000u);
    EXPECT_THAT(TraceLines(), IsEmpty());
    CloseHandle(letGo);
}

}  // namespace
