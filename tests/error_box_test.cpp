// Boxes of a process without a screen, as the telephony service is, and what the event log gets: the whole provider, with its
// ticks running, and a user in another session who answers or does not.
#include "provider/error_box.h"

#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "provider/event_log.h"
#include "provider/process.h"
#include "provider/state.h"
#include "support/service.h"
#include "thread/serial_thread.h"

namespace {

using PlatformControl::Screen;
using testing::HasSubstr;
using testing::StartsWith;

// The log's entries since the last call: "E4 COM1 5", the severity's letter and the number in front.
std::vector<std::string> Logged() {
    static std::size_t seen = 0;
    std::vector<std::string> out;
    const std::vector<PlatformControl::LogEntry> entries = PlatformControl::LogEntries();
    if (entries.size() < seen)
        seen = 0;  // another test's
    for (; seen < entries.size(); ++seen) {
        const PlatformControl::LogEntry& entry = entries[seen];
        EXPECT_EQ(entry.Source, "zt_6232");
        EXPECT_EQ(entry.Texts.size(), 3u);
        const char letter = entry.Type == EVENTLOG_ERROR_TYPE ? 'E' : entry.Type == EVENTLOG_WARNING_TYPE ? 'W' : 'I';
        std::string line = letter + std::to_string(entry.Event & 0xFFFF);
        for (const std::string& text : entry.Texts)
            line +=
                (text.empty() || text == "0" ? "" : " ") + (text == "0" ? "" : text.substr(0, text.find(" of the")));
        std::erase(line, '\r');
        std::erase(line, '\n');
        out.push_back(line);
    }
    return out;
}

class InTheService : public Service {
protected:
    void SetUp() override {
        Service::SetUp();
        PlatformControl::UseScreen(Screen::UsersSession);
        Logged();
    }
    void TearDown() override {
        Service::TearDown();
        Advance(3'600'000);  // boxes left standing are answered
    }
    static std::size_t BoxCount() { return PlatformControl::Boxes().size(); }
    static PlatformControl::Box LastBox() { return PlatformControl::Boxes().back(); }
    // An application's call of the line, which waits for the mutex: how long, ms. It must get it.
    std::uint32_t WaitOfAnApplication() {
        const std::uint32_t before = PlatformControl::Now();
        EXPECT_EQ(WaitLineMutex(), 0);
        ReleaseLineMutex(0);
        return PlatformControl::Now() - before;
    }
    // The set is silent until its loss is noticed.
    void LoseContact() {
        Machine.faults.silent = true;
        for (int i = 0; i < 250 && !Serial.V24Trouble; ++i)
            Advance(100);
        EXPECT_TRUE(Serial.V24Trouble);
    }
};

TEST_F(InTheService, ABoxReachesTheUserWithItsTextTitleAndStyleWhileTicksReconnect) {
    GoInService();
    EXPECT_THAT(Logged(), ElementsAre("I1 COM1"));
    PlatformControl::KeepBoxesOpen(60'000);
    PlatformControl::AnswerBoxes([](const PlatformControl::Box&) { return IDOK; });
    LineEvents();
    LoseContact();
    ASSERT_EQ(BoxCount(), 1u);
    EXPECT_THAT(LastBox().Text, StartsWith("Hardware Problem - Please check:\n\n - the cable,"));
    EXPECT_EQ(LastBox().Caption, "Corvane 6200 SP Error");
    EXPECT_EQ(LastBox().Style, 0x00023010u);
    EXPECT_TRUE(LastBox().InSession);
    EXPECT_EQ(LastBox().Seconds, 0u) << "shown without the line mutex: it waits for its answer";
    EXPECT_LE(WaitOfAnApplication(), 100u);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV DISCONNECTED|OUTOFSERVICE"));
    Machine.faults.silent = false;
    Advance(25'000);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE")) << "nested ticks have reconnected";
    Advance(40'000);
    EXPECT_THAT(LineEvents(), ElementsAre("CLOSE")) << "answered after a minute";
    EXPECT_THAT(Logged(), ElementsAre("W2 COM1", StartsWith("W15 Hardware Problem"), "I3 COM1", "I1 COM1"));
    EXPECT_EQ(PlatformControl::PinnedLibraries(), 0);
}

// The adapter is pulled out: every tick finds no port and says so under the line mutex, inside the "Hardware Problem" box,
// and nobody comes to answer.
TEST_F(InTheService, NoApplicationsWaitForTheMutexRunsOutBecauseOfABoxThatNobodyAnswers) {
    GoInService();
    PlatformControl::KeepBoxesOpen(3'000'000);
    PlatformControl::Port("COM1").OpenError = ERROR_FILE_NOT_FOUND;
    LoseContact();
    for (int i = 0; i < 20 && BoxCount() < 2; ++i)
        Advance(100);
    ASSERT_EQ(BoxCount(), 2u);
    EXPECT_EQ(LastBox().Text, "Serial Port blocked");
    EXPECT_EQ(LastBox().Seconds, 15u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_LE(WaitOfAnApplication(), 16'000u);
        Advance(700);
    }
    EXPECT_GE(BoxCount(), 5u) << "shown again where the port is still not there";
    EXPECT_TRUE(Serial.Port == INVALID_HANDLE_VALUE);
    PlatformControl::Port("COM1").OpenError = 0;
    EXPECT_EQ(PlatformControl::PinnedLibraries(), 0) << "all of these closed by themselves";
}

TEST_F(InTheService, AMissingPortIsToldOnceAMinuteUntilSomebodyIsThereToSeeIt) {
    PlatformControl::UseScreen(Screen::NobodyLoggedOn);
    GoInService();
    PlatformControl::Port("COM1").OpenError = ERROR_FILE_NOT_FOUND;
    Logged();
    LoseContact();
    EXPECT_THAT(Logged(), testing::IsSupersetOf({"W2 COM1", "E6 COM1 2"})) << "lost, and not opened again";
    PlatformControl::FailCall("WTSQuerySessionInformationW");  // nobody, as before, and counted
    Advance(180'000);
    EXPECT_LE(PlatformControl::CallsCounted(), 12) << "not at every tick, and under the line mutex";
    PlatformControl::CallsWork();
    const int handles = PlatformControl::OpenHandles();
    for (const Screen screen : {Screen::UserAtADistance, Screen::UsersSession}) {
        PlatformControl::UseScreen(screen);
        Advance(60'000);
        EXPECT_THAT(Logged(), testing::Contains(screen == Screen::UsersSession ? "W15 Serial Port blocked 1"
                                                                               : "W15 Serial Port blocked 2"));
    }
    EXPECT_EQ(PlatformControl::OpenHandles(), handles) << "the list of sessions and their users' names are given back";
    PlatformControl::Port("COM1").OpenError = 0;
}

// All boxes of one hold of the mutex share its 15 s; the request is an application's, on its own thread.
TEST_F(InTheService, BoxesUnderOneHoldOfTheMutexShareTheirFifteenSeconds) {
    GoInService();
    PlatformControl::KeepBoxesOpen(9'500);
    ASSERT_EQ(WaitLineMutex(), 0);
    const std::uint32_t start = PlatformControl::Now();
    const int handles = PlatformControl::OpenHandles();
    const auto shown = [&] { return ErrorBox("FIFO - GlobalAlloc - failed"); };
    EXPECT_EQ(shown(), IDOK);
    EXPECT_EQ(LastBox().Seconds, 15u);
    EXPECT_EQ(shown(), IDTIMEOUT);
    EXPECT_EQ(LastBox().Seconds, 6u) << "the last one begun is a whole one";
    const std::size_t boxes = BoxCount();
    EXPECT_EQ(shown(), IDOK) << "no time is left: only the log tells of it";
    EXPECT_EQ(BoxCount(), boxes);
    EXPECT_EQ(PlatformControl::OpenHandles(), handles);
    EXPECT_EQ(PlatformControl::Now() - start, 15'500u);
    WaitLineMutex();
    ReleaseLineMutex(0);
    EXPECT_NE(LineMutexHeldFor(), NOT_HELD);
    ReleaseLineMutex(0);
    EXPECT_EQ(LineMutexHeldFor(), NOT_HELD);
    Logged();
    ASSERT_EQ(WaitLineMutex(), 0);
    EXPECT_EQ(shown(), IDOK);
    EXPECT_EQ(LastBox().Seconds, 15u) << "taken anew";
    ReleaseLineMutex(0);
}

TEST_F(InTheService, WhereNobodyCanSeeABoxItIsAnsweredAtOnceAndOnlyLogged) {
    const struct {
        Screen screen;
        const char *fails, *logged = "abort";  // the end of the entry: the box's text, or the error behind it
    } rows[] = {{Screen::UserAtADistance, "WTSEnumerateSessionsW"},
                {Screen::NobodyLoggedOn, nullptr},
                {Screen::NoSession, nullptr},
                {Screen::UsersSession, "LoadLibraryA"},
                {Screen::UsersSession, "CreateThread", " 1450"},
                {Screen::UsersSession, "WTSSendMessageW", " 5"},
                {Screen::UsersSession, "WTSQuerySessionInformationW"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fails == nullptr ? "nobody" : row.fails);
        PlatformControl::UseScreen(row.screen);
        PlatformControl::KeepBoxesOpen(3'000'000);
        ResetEventLog();
        GoInService();
        LineEvents();
        Logged();
        if (row.fails != nullptr)
            PlatformControl::FailCall(row.fails);
        LoseContact();
        EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV DISCONNECTED|OUTOFSERVICE", "CLOSE")) << "as after OK";
        EXPECT_EQ(BoxCount(), 0u);
        EXPECT_THAT(Logged(), testing::Contains(
                                  testing::AllOf(StartsWith("W16 Hardware Problem"), testing::EndsWith(row.logged))));
        PlatformControl::CallsWork();
        Machine.faults.silent = false;
        CloseLine();
        Machine.Restart();
    }
}

void CALLBACK EndWithContact(HTAPILINE, HTAPICALL, DWORD message, DWORD_PTR, DWORD_PTR, DWORD_PTR) {
    if (message == LINE_LINEDEVSTATE)
        PostQuitMessage(0);
}

TEST_F(InTheService, EndOfTheThreadsMessagesThatComesInsideABoxEndsItBehindIt) {
    GoInService();
    ProviderState.LineEventProc = EndWithContact;
    PlatformControl::KeepBoxesOpen(5'000);
    LoseContact();
    TraceLines();
    Advance(4'000);
    EXPECT_THAT(TraceLines(), testing::Not(testing::Contains("Serial Thread: no more messages")));
    Advance(2'000);
    EXPECT_THAT(TraceLines(), testing::Contains("Serial Thread: no more messages"));
}

TEST_F(InTheService, ClosingTheLineDoesNotWaitForABoxThatNobodyAnswers) {
    GoInService();
    PlatformControl::KeepBoxesOpen(3'000'000);
    LoseContact();
    ASSERT_EQ(BoxCount(), 1u);
    const std::uint32_t before = PlatformControl::Now();
    CloseLine();
    EXPECT_LE(PlatformControl::Now() - before, 200u);
    EXPECT_EQ(Process.SerialThread, nullptr);
    EXPECT_EQ(PlatformControl::PinnedLibraries(), 1) << "the box's thread comes back to the library";
    Machine.faults.silent = false;
    Machine.Restart();
    PlatformControl::KeepBoxesOpen(0);
    GoInService();
    Advance(3'000'000);
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_IN_SERVICE) << "whatever becomes of the old box";
}

// No tick wakes its thread: there is no timer yet.
TEST_F(InTheService, StoppingDoesNotWaitForTheBoxOfAPortThatDidNotOpen) {
    PlatformControl::KeepBoxesOpen(3'000'000);
    PlatformControl::Port("COM1").OpenError = ERROR_ACCESS_DENIED;
    EXPECT_EQ(OpenLine(), static_cast<LONG>(LINEERR_ALLOCATED));
    ASSERT_EQ(BoxCount(), 1u);
    const std::uint32_t before = PlatformControl::Now();
    WaitLineMutex();  // as a close does
    StopSerialThread();
    ReleaseLineMutex(0);
    EXPECT_LE(PlatformControl::Now() - before, 200u);
    EXPECT_EQ(Process.SerialThread, nullptr);
    PlatformControl::Port("COM1").OpenError = 0;
    EXPECT_EQ(OpenLine(), 0) << "put back, the port opens though nobody has answered";
    CloseLine();
}

// Three stand unanswered, the fourth is shown; a fifth would be one too many on the user's screen.
TEST_F(InTheService, AtMostFourBoxesStandAtOnce) {
    PlatformControl::KeepBoxesOpen(3'000'000);
    for (int i = 0; i < 6; ++i) {
        StopRequest = true;  // as while the serial thread is being stopped
        ErrorBox(("box " + std::to_string(i)).c_str());
    }
    StopRequest = false;
    PlatformControl::Settle();
    EXPECT_EQ(BoxCount(), 4u);
    Advance(3'000'000);
    PlatformControl::KeepBoxesOpen(0);
    EXPECT_EQ(ErrorBox("later"), IDOK);
    EXPECT_EQ(BoxCount(), 5u);
}

// --- the event log ---------------------------------------------------------------------------------------------------

TEST_F(Service, TheEventLogTellsWhyAPortWasNotOpened) {
    Logged();
    const struct {
        DWORD error;
        std::string entry, box;
    } rows[] = {
        {5, "E4 COM1 5", "W14 Serial Port conflict - Check it and try againAccess denied"},
        {1119, "E5 COM1 1119", "W14 Serial Port conflict - Check it and try againIrq Busy"},
        {2, "E6 COM1 2", "W14 Serial Port Problem - Check it and try again Access Failed"},
    };
    for (const auto& row : rows) {
        PlatformControl::Port("COM1").OpenError = row.error;
        EXPECT_NE(OpenLine(), 0);
        PlatformControl::Settle();
        EXPECT_THAT(Logged(), ElementsAre(row.entry, row.box));
    }
    PlatformControl::Port("COM1").OpenError = 0;
    for (const std::string port : {"NONE", "COM5"}) {
        SetSetting("Provider", "Port", port.c_str());
        EXPECT_NE(OpenLine(), 0);
        EXPECT_THAT(Logged(), ElementsAre("E7 " + port)) << "once, though it may be found out twice";
    }
    ResetEventLog();
    SetSetting("Provider", "Port", "NONE");
    DWORD options = 0;
    EXPECT_EQ(TSPI_providerInit(0x20000, 9, 3, 5, 1, 1, nullptr, &options), 0);
    EXPECT_THAT(Logged(), ElementsAre("E7 NONE")) << "before anybody opens the line";
}

TEST_F(Service, TheEventLogGetsTheSameEntryOnceAMinuteAndThenHowManyMore) {
    Logged();
    const int handles = PlatformControl::OpenHandles();
    const auto lost = [] { LogEvent(EVENT_CONTACT_LOST, "COM1"); };
    for (int i = 0; i < 5; ++i)
        lost();
    LogEvent(EVENT_CONTACT_LOST, "COM2");
    EXPECT_THAT(Logged(), ElementsAre("W2 COM1", "W2 COM2"));
    Advance(59'999);
    LogLeftOut();
    lost();
    EXPECT_THAT(Logged(), IsEmpty());
    Advance(1);
    lost();
    EXPECT_THAT(Logged(), ElementsAre("W2 COM1 5 more"));
    lost();
    lost();
    Advance(60'000);
    LogLeftOut();
    EXPECT_THAT(Logged(), ElementsAre("W2 COM1 1 more")) << "itself the other of the two";
    lost();
    EXPECT_THAT(Logged(), IsEmpty()) << "its minute has begun anew";
    for (const bool more : {true, false}) {
        Advance(60'000);
        LogLeftOut();
        EXPECT_EQ(Logged(), more ? std::vector<std::string>{"W2 COM1"} : std::vector<std::string>{});
    }
    lost();
    lost();
    for (DWORD number = 1; number <= 24; ++number) {  // more kinds than it remembers
        Advance(1);
        LogEvent(EVENT_CONTACT_LOST, "COM2", number);
    }
    EXPECT_THAT(Logged(), testing::Contains("W2 COM1").Times(2)) << "the second was left out";
    PlatformControl::FailCall("RegisterEventSourceA");
    SetLastError(77);
    lost();
    EXPECT_EQ(GetLastError(), 77u);
    EXPECT_EQ(PlatformControl::OpenHandles(), handles);
}

}  // namespace
