// The link: what each received frame is answered with, what waits and what goes out when, and that no byte stream,
// however it is cut or bent, makes the receiver lose its place.
#include "config/settings.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/omna.h"
#include "link/serial.h"
#include "link/tick.h"
#include "support/wire.h"
#include "tracking/events.h"
#include "tracking/terminal.h"

#include <utility>

namespace {

const std::string ACK = "02 60 00 9E", NACK = "02 60 84 1A", RESYNC = "02 60 85 19", POLL = "02 60 01 9D";

const ByteList Five = Frame({0x26, 0x20, 5});
const ByteList Six = Frame({0x26, 0x20, 6});
const std::string FIVE_AGAIN = "03 26 20 05 B2";

class LinkLayer : public OnTheWire {
protected:
    // Queues a frame and has it written: the next acknowledgement is for it.
    void SendOne(const ByteList& frame) {
        Quiet();
        QueueZTMsg(Serial.Port, frame);
        ASSERT_FALSE(Port.Taken().empty());
    }
    // What a read is answered with.
    std::string Answer(const ByteList& read) {
        EXPECT_EQ(Receive(read), 0);
        return Port.Taken();
    }
    static std::string Line() { return std::string(::Display.Lines[0], 4); }
};

// --- link control --------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, LinkControlIsAnsweredAndTraced) {
    const struct {
        ByteList control;  // sub-type and what follows
        std::string written;
        std::vector<std::string> traces;  // level 1 and 0
        int queued;                       // of the one frame that was sent before
        int ackWaitTicks;
        bool processData = false, linkProven = false;
        int pollPeriod = 30;
    } cases[] = {{{0x00}, "", {}, 0, 50},
                 {{0x01}, "", {}, 0, 50, true, true},
                 {{0x02}, ACK, {}, 1, 50},
                 {{0x80}, ACK, {}, 1, 50},
                 {{0x10}, "", {"RX: Special Function Ack"}, 0, 50, true},
                 {{0x11}, "", {"RX: Config Response ", "* Subdevice Mac/pc 0.00 *"}, 0, 50, true, true, 160},
                 {{0x12, 50}, "", {"RX:Tempo Modification Ack:WaitAckTimer 50"}, 0, 50, false, true, 160},
                 {{0x13, 7}, "", {"RX:Tempo Enquiry Response:WaitAckTimer 7"}, 0, 50, false, true, 160},
                 {{0x83}, FIVE_AGAIN, {"RX: Wrong length (NACK)"}, 1, 50},
                 {{0x84}, FIVE_AGAIN, {"RX: Wrong CheckSum (NACK)\n"}, 1, 50},
                 {{0x85}, FIVE_AGAIN, {"RX: Physical loss of synchro (NACK)\n", "ResetComPort:1"}, 1, 49},
                 {{0x86}, ACK, {"RX: ABORT - ResetCommPort(3)", "ResetComPort:3"}, 1, 49},
                 {{0x87}, ACK, {"ResetComPort:1"}, 1, 49},
                 {{0x88}, ACK, {"ResetComPort:1"}, 1, 49},
                 {{0x55}, "", {"ResetComPort:1"}, 1, 49}};
    for (const auto& c : cases) {
        SCOPED_TRACE(int{c.control[0]});
        FifoClear(LINK_FIFO);
        Link = LinkState{};
        TraceMask = TRACE_ENTRY;
        SendOne(Five);
        Quiet();
        Link.LinkIdleTicks = 7;
        Link.TxIdleCount = Link.TxDropCount = 1;
        TraceLines();
        EXPECT_EQ(Answer(Frame(Join({ByteList{0x60}, c.control}))), c.written);
        EXPECT_EQ(TraceLines(), c.traces);
        EXPECT_EQ(FifoCount(LINK_FIFO), c.queued);
        EXPECT_EQ(Link.AckWaitTicks, c.ackWaitTicks);
        EXPECT_EQ(Link.ProcessData, c.processData);
        EXPECT_EQ(Link.LinkIdleTicks, c.linkProven ? 0 : 7);
        EXPECT_EQ(Link.LinkPollPeriod, c.pollPeriod);
        // An acknowledgement ends the count of kicks; its own kick is the first of the next.
        EXPECT_EQ(Link.TxIdleCount, 1);
        EXPECT_EQ(Link.TxDropCount, c.queued == 0 ? 0 : 1);
    }
}

TEST_F(LinkLayer, ConfigResponseTellsTheCardsVersionAndModes) {
    const struct {
        ByteList response;
        const char* version;
        bool tempo;  // the frame that only these versions know
        int super = 1, piggyback = 1;
    } cases[] = {{{3, 6, 0, 3}, "3.06", true},        {{3, 10, 0, 3}, "3.10", true},
                 {{4, 6, 0, 3}, "4.06", true},        {{2, 10, 0, 3}, "2.10", false},
                 {{4, 2, 0, 3}, "4.02", false},       {{3, 5, 0, 1}, "3.05", false, 1, 0},
                 {{3, 5, 0, 2}, "3.05", false, 0, 1}, {{3, 4, 2}, "3.04", false, 0, 1}};  // its checksum ends in 1
    for (const auto& c : cases) {
        FifoClear(LINK_FIFO);
        SendOne(Frame({0x60, 0x11}));
        Receive(Frame(Join({ToBytes({0x60, 0x11}), c.response})));
        EXPECT_THAT(TraceLines(), testing::Contains("* Subdevice Mac/pc " + std::string(c.version) + " *"));
        EXPECT_EQ(ProviderState.AdapterMajor, c.response[0]);
        EXPECT_EQ(ProviderState.AdapterMinor, c.response[1]);
        EXPECT_EQ(Link.SuperMsgSupported, c.super == 1) << c.version;
        EXPECT_EQ(Link.PiggybackMode, c.piggyback == 1) << c.version;
        const ByteList tempo = ToBytes({0x03, 0x60, 0x12, 0x32, 0x59});
        EXPECT_THAT(Drain(), testing::ElementsAreArray(std::vector<ByteList>(c.tempo ? 1 : 0, tempo)));
    }
    // Only a card that is back restarts the wait for a configuration that has not come.
    for (const bool trouble : {false, true})
        for (const bool received : {false, true}) {
            Serial.V24Trouble = trouble;
            Tick.ConfigReceived = received;
            Tick.WaitConfigCount = 80;
            Receive(Frame({0x60, 0x11, 3, 5, 0, 0}));
            EXPECT_EQ(Tick.WaitConfigCount, trouble && !received ? 0 : 80) << trouble << received;
        }
}

// --- frames by type ------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, EachTypeHasItsAnswer) {
    struct Row {
        ByteList counted;
        std::string alone;
        std::string unasked{};  // what it is answered with where it is not to be acknowledged
    };
    std::vector<Row> rows = {{{0x00}, "01 00 FF", "01 00 FF"},
                             {{0x20}, ACK + " 01 20 DF", "01 20 DF"},
                             {{0x0C, 0x80, 0, 2, 0x12}, ACK, ACK},
                             {{0x60, 0x02}, ACK, ACK},
                             {{0x60, 0x86}, ACK, ACK},
                             {{0x60, 0x87}, ACK, ACK},
                             {{0x60, 0x88}, ACK},
                             {{0x63, 0, 'G'}, ACK},
                             {{0x64, 0, ' '}, ACK},
                             {{0x04}, ""},
                             {{0x65}, ""},
                             {{0xFF, 1, 2, 3}, ""}};
    for (const int type : {0x03, 0x0B, 0x0E, 0x10, 0x11, 0x12, 0x1F, 0x21, 0x22, 0x61, 0x62, 0x6E, 0x6F})
        rows.push_back({ToBytes({type}), ACK});
    const auto answer = [&](const ByteList& counted, int inputs) {
        Quiet();
        Link.TxDropCount = 1;
        Link.NbInputBeforeSuspend = inputs;
        return Answer(Frame(counted));
    };
    for (const auto& [counted, alone, unasked] : rows) {
        SCOPED_TRACE("type " + std::to_string(counted[0]));
        EXPECT_EQ(answer(counted, -1), alone);
        EXPECT_EQ(Link.TxDropCount, counted[0] == 0x20 ? 0 : 1);
        for (const int suspended : {0, -2})
            EXPECT_EQ(answer(counted, suspended), unasked);
        const ByteList item = Join({ToBytes({static_cast<int>(counted.size())}), counted}),
                       control = counted[0] == 0x60 ? ByteList{} : ToBytes({2, 0x60, 0x55});
        for (const int around : {0x0B, 0x6E, 0x6F})
            EXPECT_EQ(answer(Join({ToBytes({around}), around == 0x6F ? control : ByteList{}, item}), -1),
                      ACK + (unasked.empty() ? "" : " ") + unasked)
                << "in " << around;
    }
    EXPECT_EQ(Answer(ToBytes({0, 0})), "");
    EXPECT_THAT(Drain(), testing::AllOf(testing::SizeIs(6), testing::Each(ToBytes({5, 0x30, 2, 3, 3, 2, 0xC1}))))
        << "of type 0E";
}

TEST_F(LinkLayer, DataWaitsForTheCardsGoAheadAndTraceHeadersProveTheirMode) {
    AomTable[1] = {true, 2, false, 40};
    TraceMask = TRACE_ENTRY;
    for (const bool process : {false, true}) {
        Link.ProcessData = process;
        Tick.WaitTrace = process ? 13 : 12;
        TouchTable[44].rawIcon = 1;
        const struct {
            ByteList counted;
            bool traceMode = true, linkProven = false;
        } cases[] = {{{0x12, 0, 6, 3, 0, 3, 1}, false},
                     {{0x61, 0x27, 0, 0, 'X'}, true, true},
                     {{0x62, 0x03, 0x84}, true, true},
                     {{0x62, 0x22, 5}, true, true},
                     {{0x63, 0x1A, 'F'}},
                     {{0x63, 0x1A, 'G', 3, 0x20, 0x20}},
                     {{0x63, 0x1B, 'F'}},  // address 3: no such module
                     {{0x63, 0x1A, 0x27, 3, 0x28, 0x28}},
                     {{0x64, 0x1A, ' ', 3}},
                     {{0x64, 0x1A, 0xA0, 3}}};
        for (const auto& c : cases) {
            Link.TraceModeSeen = false;
            Link.LinkIdleTicks = 7;
            Receive(Frame(c.counted));
            EXPECT_EQ(Link.TraceModeSeen, c.traceMode) << int{c.counted[0]};
            EXPECT_EQ(Link.LinkIdleTicks, c.linkProven ? 0 : 7) << int{c.counted[0]};
        }
        EXPECT_EQ(ProviderState.TAPI_OMNA_Ver, process ? 3 : 0);
        EXPECT_EQ(Line()[0], process ? 'X' : ' ');
        EXPECT_STREQ(DialedNumber, process ? "4" : "");
        EXPECT_EQ(TouchTable[43].rawIcon, process ? 0x2020u : 0u);
        EXPECT_EQ(TouchTable[44].rawIcon, process ? 2u : 1u);
    }
    auto lines = TraceLines();
    std::erase_if(lines, [](const std::string& line) {
        return !line.starts_with("RX: First") && !line.starts_with("VTA: ") && !line.starts_with("DigitKey");
    });
    EXPECT_THAT(lines, ElementsAre("RX: First TRACEMODE System Trace Header WaitTrace 12 - ProcessData:0",
                                   "RX: First TRACEMODE VTA Trace Header WaitTrace 12",
                                   "DigitKeyPushed 4 DialedNumber 4", "VTA: AOM ICON: 43", "VTA: AOM key pushed: 43"));
}

// --- containers ----------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, ContainersAreAcknowledgedOnceAndTakenApartUpToWhatDoesNotFit) {
    Link.ProcessData = true;
    TraceMask = 0;
    const ByteList a = Item({0x61, 0x27, 0, 0, 'A', 'B', 'C'}), x = Item({0x61, 0x27, 1, 1, 'X'}),
                   y = Item({0x61, 0x27, 2, 0, 'Y'}), ack = ToBytes({2, 0x60, 0x00});
    const auto attached = [](const ByteList& items) {
        return Join({ToBytes({static_cast<int>(items.size()) + 1, 0x6E}), items});
    };
    const struct {
        ByteList counted;
        const char* text;
        bool whole = true;
    } cases[] = {{Join({ToBytes({FRAME_CONTAINER}), a, x, Item({0x22}), y}), "AXY "},
                 {Join({ToBytes({FRAME_SUPER}), a, x, Item({0x22}), y}), "AXY "},
                 {Join({ToBytes({0x6F}), ack, a}), "ABC "},
                 {Join({ToBytes({0x6F}), ack, attached(Join({a, x, y}))}), "AXY "},
                 {Join({ToBytes({0x6E}), a, ToBytes({12, 0x61, 0x27, 2, 0, 'B'}), y}), "ABC ", false},
                 {Join({ToBytes({0x6E}), a, ToBytes({0xFF})}), "ABC ", false},
                 {Join({ToBytes({0x6F}), ack, ToBytes({0x40, 0x6E}), a}), "    ", false},
                 {Join({ToBytes({0x6F}), ack, attached(Join({a, ToBytes({1})}))}), "ABC ", false}};
    for (const auto& c : cases) {
        ::Display = DisplayRecord{};
        FifoClear(LINK_FIFO);
        SendOne(Five);
        Quiet();
        EXPECT_EQ(Answer(Frame(c.counted)), ACK);
        EXPECT_EQ(Line(), c.text);
        EXPECT_EQ(FifoCount(LINK_FIFO), c.counted[0] == 0x6F ? 0 : 1) << "the acknowledgement comes first";
        const testing::Matcher<std::string> traced = testing::StartsWith("RX: contained message len ");
        EXPECT_THAT(TraceLines(), testing::ElementsAreArray(std::vector(c.whole ? 0 : 1, traced)));
    }
    Quiet();
    EXPECT_EQ(Answer(Frame({0x6F, 2, 0x60})), ACK);
    EXPECT_EQ(Link.AckWaitTicks, 0) << "half a link-control frame is none";
}

// --- framing -------------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, AWrongChecksumIsRefusedAndNotDispatched) {
    Link.ProcessData = true;
    TraceMask = TRACE_ENTRY;
    ByteList frame = Frame({0x61, 0x27, 0, 0, 'X'});
    ++frame.back();
    EXPECT_EQ(Answer(frame), NACK);
    EXPECT_EQ(Line()[0], ' ');
    EXPECT_THAT(TraceLines(), ElementsAre("Process input - CS: Wrong CS Nack cs: 1, msglen: 6", "ResetComPort:3"));
    EXPECT_EQ(Link.AckWaitTicks, 49);
    Receive(Frame({0x61, 0x27, 0, 0, 'Y'}));
    EXPECT_EQ(Line()[0], 'Y');
}

TEST_F(LinkLayer, HowAStreamIsCutIntoReadsDoesNotMatter) {
    const ByteList display = Item({0x61, 0x27, 2, 0, 'A', 'B'}), icon = Item({0x61, 0x47, 1, 0x20, 0x20});
    const ByteList stream =
        Join({Frame(ByteList(255, 0xFF)),  // as long as a frame can be
              Frame({0x22}), Frame({0x61, 0x27, 0, 3, 'X'}), Frame({0x62, 0x03, 0x84}),
              Frame(Join({ByteList{0x6E}, display, icon})), Frame(Join({ToBytes({0x6F, 2, 0x60, 0x01}), display})),
              // an answer of the PBX in two segments
              Frame({0x0C, 0x81, 0, 18, 0x12, 0, 17, 2, 0, 3, 1, 0, 1, 4, '4'}),
              Frame({0x0C, 0, '7', '1', '1', 3, 0, 5, 0}), Frame({0x61, 0x47, 1, 0, 0})});
    std::vector<std::string> whole;
    for (std::size_t size = stream.size(); size > 0; size = size > 30 ? 30 : size - 1) {
        const TraceRecord log = TraceLog;
        CloseHandle(Serial.Port);
        ResetProvider();
        TraceLog = log;
        OpenForCapture();
        Port.Open();
        Link.ProcessData = true;
        KeyLists = KeyListSet{};
        Key(1, TOUCH_MULTI);
        TraceMask = TRACE_INPUT;
        TraceLines();
        for (std::size_t at = 0; at < stream.size(); at += size)
            EXPECT_EQ(ProcessInput(static_cast<int>(std::min(size, stream.size() - at)), stream.data() + at), 0);
        auto result = TraceLines();
        for (auto& event : Events())
            result.push_back(event);
        result.push_back(Port.Taken() + Line() + DialedNumber + Settings.SetMCDU);
        EXPECT_EQ(Link.Receiving, Receiver::Waiting);
        if (size == stream.size())
            whole = result;
        ASSERT_EQ(result, whole) << "reads of " << size;
    }
    for (const char* seen : {"NEWCALL 0", "STATE 0 DIALTONE", "LINEDEV CONNECTED|INSERVICE", "PHONE DISPLAY"})
        EXPECT_THAT(whole, testing::Contains(seen));
}

// --- reads of several frames ---------------------------------------------------------------------------------------

TEST_F(LinkLayer, SeveralRefusalsInOneReadCauseOneResend) {
    SendOne(Five);
    TraceLines();
    TraceMask = 0;
    const ByteList two = Join({Frame({0x60, 0x84}), Frame({0x60, 0x83})});
    EXPECT_EQ(Answer(two), FIVE_AGAIN);
    EXPECT_EQ(Answer(Join({Frame({0x60, 0x85}), Frame({0x22}), Frame({0x60, 0x85})})), FIVE_AGAIN);
    EXPECT_THAT(TraceLines(), ElementsAre("Deux msgs type 60.8x détectés dans la trame !!!",
                                          "Deux msgs type 60.8x détectés dans la trame !!!"));
    Link.SubdeviceTest = true;
    EXPECT_EQ(Answer(two), FIVE_AGAIN + " " + FIVE_AGAIN) << "the test sees every frame";
    Link.SubdeviceTest = false;
    // One refusal beside something else is an ordinary frame.
    EXPECT_EQ(Answer(Join({Frame({0x22}), Frame({0x60, 0x84})})), ACK + " " + ACK);
}

LINEEVENT Told;
void CALLBACK TracedBefore(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3) {
    EXPECT_THAT(TraceLines(), ElementsAre("Çontact rompu avec le subdevice -> Redemarrage"));
    Told(line, call, message, p1, p2, p3);
}

TEST_F(LinkLayer, ARestartInAReadIsAnsweredAloneAndAfterAMinuteWithoutSendingLosesAllCalls) {
    ToldFirst = LINECALLSTATE_IDLE;
    Link.ProcessData = true;
    Key(1, TOUCH_MULTI);
    const int live = Call(1, 0, LINECALLSTATE_CONNECTED);
    Call(1, 1, LINECALLSTATE_IDLE);
    TraceMask = 0;
    const ByteList read = Join({Frame({0x61, 0x27, 0, 0, 'X'}), Frame({0x60, 0x87}), Frame({0x22})});
    PlatformControl::Advance(59999);
    EXPECT_EQ(Answer(read), RESYNC);
    EXPECT_EQ(Line()[0], ' ');
    Quiet();
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    PlatformControl::Advance(60000);
    Told = std::exchange(ProviderState.LineEventProc, TracedBefore);
    EXPECT_EQ(Answer(read), POLL) << "first of the three that are queued";
    ProviderState.LineEventProc = Told;
    EXPECT_EQ(FifoCount(LINK_FIFO), 3);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE " + std::to_string(live) + " IDLE"));
    EXPECT_THAT(TraceLines(), IsEmpty());
    for (const auto write : {+[] { QueueZTMsg(Serial.Port, Five); }, +[] { SendL2Msg(Serial.Port, ACK_FRAME); },
                             +[] { Resend_Last_Msg(); }}) {
        Quiet();
        PlatformControl::Advance(60000);
        write();
        Port.Taken();
        EXPECT_EQ(Answer(read), RESYNC) << "every write is contact";
    }
}

// --- sending -------------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, SendingWaitsWhileTheLineIsInUse) {
    struct Slow : RecordingPort {
        std::size_t Pending = 0;
        std::size_t OutputPending(std::uint32_t) override { return Pending; }
    } slow;
    CloseHandle(Serial.Port);
    slow.Open();
    TraceMask = TRACE_LINK;
    FifoPut(LINK_FIFO, Five);
    const auto blocked = [&](const char* line) {
        TraceLines();
        EXPECT_EQ(QueueZTMsg(Serial.Port, {}), 0);
        EXPECT_EQ(slow.Taken(), "");
        EXPECT_THAT(TraceLines(), ElementsAre(line));
    };
    slow.Pending = 1;
    blocked("sending blocked");
    slow.Pending = 0;
    Link.Receiving = Receiver::Handling;
    blocked("sending blocked");
    Link.Receiving = Receiver::Waiting;
    Link.AckWaitTicks = 1;
    blocked("sending blocked");
    Quiet();
    slow.Feed({0x00});
    blocked("InQueue not empty - exiting TxZTMsgFromFifo");
    slow.Incoming.clear();
    SendL2Msg(Serial.Port, ACK_FRAME);
    slow.Taken();
    PlatformControl::Advance(9);
    blocked("L2 sent - sending_blocked - waiting timeout");
    PlatformControl::Advance(1);
    QueueZTMsg(Serial.Port, {});
    EXPECT_EQ(slow.Taken(), FIVE_AGAIN);
    EXPECT_THAT(TraceLines(), ElementsAre("TxZTMsgFromFifo(03.26.20.05.B2.)"));
    Link.LinkStopped = true;
    EXPECT_EQ(QueueZTMsg(Serial.Port, Six), -3);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    CloseHandle(std::exchange(Serial.Port, INVALID_HANDLE_VALUE));
}

TEST_F(LinkLayer, AFrameThatIsNeverAcknowledgedIsGivenUp) {
    for (int i = 0; i < 4; ++i)
        FifoPut(LINK_FIFO, Five);
    for (int drop = 1; drop <= 3; ++drop) {
        for (int kick = 0; kick < 150; ++kick) {
            Link.AckWaitTicks = 20;
            QueueZTMsg(Serial.Port, {});
        }
        EXPECT_EQ(FifoCount(LINK_FIFO), 5 - drop);
        EXPECT_EQ(QueueZTMsg(Serial.Port, {}), 0);
        EXPECT_EQ(FifoCount(LINK_FIFO), 4 - drop);
        EXPECT_EQ(Port.Taken(), drop <= 2 ? "02 60 86 18" : "");
    }
}

TEST_F(LinkLayer, AnAcknowledgementCarriesTheQueuedFrame) {
    Link.PiggybackMode = true;
    FifoPut(LINK_FIFO, Five);
    TraceMask = TRACE_LINK;
    EXPECT_EQ(Answer(Frame({0x22})), "08 6F 02 60 00 03 26 20 05 D9");
    EXPECT_THAT(TraceLines(), ElementsAre("SendL2Msg(08.6F.02.60.00.03.26.20.05.D9.)"));
    EXPECT_EQ(Link.AckWaitTicks, 20);
    EXPECT_EQ(Answer(Frame({0x22})), ACK) << "alone, while it is under way";
    Quiet();
    EXPECT_EQ(Answer(Frame({0x00})), "01 00 FF") << "no link control";
    // With Super Messages the presses are gathered first; a refusal has all sent again as it was.
    Link.SuperMsgSupported = true;
    FifoPut(LINK_FIFO, Six);
    const char* const carried = "0E 6F 02 60 00 09 6E 03 26 20 05 03 26 20 06 0D";
    EXPECT_EQ(Answer(Frame({0x22})), carried);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    EXPECT_EQ(Answer(Frame({0x60, 0x84})), carried);
    FifoDrop(LINK_FIFO);
    for (const std::size_t counted : {251u, 250u}) {  // as long as it can be carried
        Quiet();
        FifoClear(LINK_FIFO);
        FifoPut(LINK_FIFO, Frame(ByteList(counted, 0x11)));
        SendL2Msg(Serial.Port, ACK_FRAME);
        EXPECT_EQ(Port.Written.size(), counted == 251 ? 4u : 257u);
        EXPECT_EQ(std::accumulate(Port.Written.begin(), Port.Written.end(), 0) & 0xFF, 0);
        Port.Taken();
    }
}

TEST_F(LinkLayer, AFailedWriteIsTracedAndADirectOneKept) {
    PlatformControl::Port("COM1").WriteFails = true;
    TraceMask = 0;
    FifoPut(LINK_FIFO, Five);
    EXPECT_EQ(TxZTMsgFromFifo(), -1);
    EXPECT_EQ(Link.AckWaitTicks, 0);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    SendL2Msg(Serial.Port, SPECIAL_FUNCTION_FRAME);
    EXPECT_TRUE(Link.WriteFailed);
    EXPECT_EQ(Link.SavedLength, 5);
    PlatformControl::Port("COM1").WriteFails = false;
    Resend_Last_Msg();
    EXPECT_EQ(Port.Taken(), "03 60 10 03 8A") << "what a refusal has sent again, too";
    EXPECT_THAT(TraceLines(),
                ElementsAre(testing::StartsWith("TxZTMsgFromFifo - failed to write to port,GetLastError "), " ",
                            "SendL2Msg - WriteCommResult :0", "COMSTAT  - cbInQue:0 - cbOutQue:0", " "));
    ResetTransmitState(false);
}

TEST_F(LinkLayer, PendingWritesCountAsWrittenAndKeepTheirBytesUntilThereIsNoPlaceForMore) {
    PlatformControl::Port("COM1").How = PlatformControl::Transfers::InPieces;
    std::string wanted;
    for (int i = 0; i < 16; ++i) {
        SendL2Msg(Serial.Port, i % 2 == 0 ? ACK_FRAME : NACK_FRAME);
        wanted += (i > 0 ? " " : "") + (i % 2 == 0 ? ACK : NACK);
    }
    EXPECT_FALSE(Link.WriteFailed);
    SendL2Msg(Serial.Port, ACK_FRAME);
    EXPECT_TRUE(Link.WriteFailed) << "kept for its retry";
    PlatformControl::Advance(200);
    EXPECT_EQ(SendingBlocked(), 0);
    EXPECT_EQ(Port.Taken(), wanted);
}

TEST_F(LinkLayer, WithoutAPortNothingGoesOutAndNothingBreaks) {
    CloseHandle(std::exchange(Serial.Port, INVALID_HANDLE_VALUE));
    EXPECT_EQ(QueueZTMsg(Serial.Port, Five), -1);
    SendL2Msg(Serial.Port, ACK_FRAME);
    Resend_Last_Msg();
    ResetComPort(3);
    EXPECT_FALSE(Link.L2Sent);
    Quiet();
    Link.PiggybackMode = true;
    SendL2Msg(Serial.Port, ACK_FRAME);
    EXPECT_EQ(Link.AckWaitTicks, 20) << "the frame that it carries waits for its acknowledgement all the same";
    EXPECT_EQ(Receive(Frame({0x22})), 0);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
}

TEST_F(LinkLayer, TheSubdeviceTestSuspendsSendingUntilRestartsAndMayRefuse) {
    const ByteList restart = Frame({0x60, 0x87});
    Link.SubdeviceTest = true;
    Link.NbInputBeforeSuspend = 3;
    EXPECT_EQ(Answer(Join({Frame({0x22}), Frame({0x22}), Frame({0x22})})), ACK + " " + ACK) << "not the third";
    Quiet();
    EXPECT_EQ(QueueZTMsg(Serial.Port, Five), 0);
    EXPECT_EQ(Answer(restart), ACK);
    EXPECT_EQ(Link.NbInputBeforeSuspend, -1);
    Link.NbWaitAckBeforeResponse = 1;
    Link.WaitAckResponseNack = true;
    EXPECT_EQ(Answer(restart), "");
    Quiet();
    EXPECT_EQ(QueueZTMsg(Serial.Port, {}), -2);
    EXPECT_EQ(Answer(restart), NACK);
    Link.NbWaitAckBeforeResponse = -1;
    EXPECT_EQ(Answer(restart), "") << "none is ever answered";
}

TEST_F(LinkLayer, AfterL2TimeoutIsTakenFromOneTo150Milliseconds) {
    EXPECT_EQ(ReadAfterL2Timeout(), 10);
    const std::pair<const char*, int> cases[] = {{"1", 1}, {"150", 150}, {"0", 10}, {"151", 10}, {"x", 10}, {"25", 25}};
    for (const auto& [text, value] : cases) {
        SetSetting("ZT_Info", "After_L2_timeout", text);
        EXPECT_EQ(ReadAfterL2Timeout(), value) << text;
    }
}

}  // namespace
