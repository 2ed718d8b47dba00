// The link: what each received frame is answered with, what waits and what goes out when, and that no byte stream,
// however it is cut or bent, makes the receiver lose its place.
#include "config/settings.h"
#include "control/keys.h"
#include "link/fifo.h"
#include "link/omna.h"
#include "link/serial.h"
#include "link/terminal.h"
#include "link/tick.h"
#include "provider/events.h"
#include "support/wire.h"

#include <random>
#include <utility>

namespace {

const char* const ACK = "02 60 00 9E";
const char* const NACK = "02 60 84 1A";
const char* const RESYNC = "02 60 85 19";
const char* const POLL = "02 60 01 9D";

const ByteList Five = Frame({0x26, 0x20, 5});
const ByteList Six = Frame({0x26, 0x20, 6});

class LinkLayer : public OnTheWire {
protected:
    // Queues a frame and has it written: the next acknowledgement is for it.
    void SendOne(const ByteList& frame) {
        Quiet();
        QueueZTMsg(Serial.Port, frame);
        ASSERT_FALSE(Port.Taken().empty());
    }
    static std::string Line(int number) { return ::Display.Lines[number]; }
};

// --- link control --------------------------------------------------------------------------------------------------

const char* const FIVE_AGAIN = "03 26 20 05 B2";

TEST_F(LinkLayer, LinkControlIsAnsweredAndTraced) {
    const struct {
        std::vector<int> control;  // sub-type and what follows
        const char* written;
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
        SCOPED_TRACE(c.control[0]);
        FifoClear(LINK_FIFO);
        Link = LinkState{};
        TraceMask = TRACE_ENTRY;
        SendOne(Five);
        Quiet();
        Link.LinkIdleTicks = 7;
        Link.TxIdleCount = Link.TxDropCount = 1;
        TraceLines();
        ByteList counted{0x60};
        for (const int value : c.control)
            counted.push_back(static_cast<std::uint8_t>(value));
        EXPECT_EQ(Receive(Frame(counted)), 0);
        EXPECT_EQ(Port.Taken(), c.written);
        EXPECT_EQ(TraceLines(), c.traces);
        EXPECT_EQ(FifoCount(LINK_FIFO), c.queued);
        EXPECT_EQ(Link.AckWaitTicks, c.ackWaitTicks);
        EXPECT_EQ(Link.ProcessData, c.processData);
        EXPECT_EQ(Link.LinkIdleTicks, c.linkProven ? 0 : 7);
        EXPECT_EQ(Link.LinkPollPeriod, c.pollPeriod);
        // An acknowledgement ends the count of kicks; its own kick is the first of the next.
        EXPECT_EQ(Link.TxIdleCount, 1);
        EXPECT_EQ(Link.TxDropCount, c.queued == 0 ? 0 : 1);
        EXPECT_FALSE(Link.Receiving);
    }
}

TEST_F(LinkLayer, TheCardsVersionDecidesAboutTheTempoFrame) {
    const struct {
        int major, minor;
        bool tempo;
        const char* trace;
    } cases[] = {
        {3, 6, true, "* Subdevice Mac/pc 3.06 *"},   {3, 10, true, "* Subdevice Mac/pc 3.10 *"},
        {4, 6, true, "* Subdevice Mac/pc 4.06 *"},   {3, 5, false, "* Subdevice Mac/pc 3.05 *"},
        {2, 10, false, "* Subdevice Mac/pc 2.10 *"}, {4, 2, false, "* Subdevice Mac/pc 4.02 *"},
    };
    for (const auto& c : cases) {
        FifoClear(LINK_FIFO);
        SendOne(Frame({0x60, 0x11}));
        Serial.V24Trouble = c.minor != 5;
        Tick.ConfigReceived = c.minor == 10;
        Tick.WaitConfigCount = 66;
        TraceMask = 0;
        Receive(Frame({0x60, 0x11, c.major, c.minor, 0, 3}));
        ByteList queued(9);
        queued.resize(static_cast<std::size_t>(FifoPeek(LINK_FIFO, queued)));
        EXPECT_EQ(queued, c.tempo ? ToBytes({0x03, 0x60, 0x12, 0x32, 0x59}) : ByteList{});
        EXPECT_THAT(TraceLines(), testing::Contains(c.trace));
        EXPECT_EQ(ProviderState.AdapterMajor, c.major);
        EXPECT_EQ(ProviderState.AdapterMinor, c.minor);
        EXPECT_TRUE(Link.SuperMsgSupported);
        EXPECT_TRUE(Link.PiggybackMode);
        EXPECT_EQ(Tick.WaitConfigCount, Serial.V24Trouble && !Tick.ConfigReceived ? 0 : 66);
    }
}

TEST_F(LinkLayer, ConfigFlagsAreReadBitByBitAndNeverFromTheChecksum) {
    Receive(Frame({0x60, 0x11, 3, 5, 0, 1}));
    EXPECT_TRUE(Link.SuperMsgSupported);
    EXPECT_FALSE(Link.PiggybackMode);
    Receive(Frame({0x60, 0x11, 3, 5, 0, 2}));
    EXPECT_FALSE(Link.SuperMsgSupported);
    EXPECT_TRUE(Link.PiggybackMode);
    ASSERT_EQ(Frame({0x60, 0x11, 3, 4, 2}).back() & 3, 1);
    Receive(Frame({0x60, 0x11, 3, 4, 2}));
    EXPECT_EQ(ProviderState.AdapterMinor, 4);
    EXPECT_TRUE(Link.PiggybackMode);
}

// --- frames by type ------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, EachTypeHasItsAnswer) {
    struct {
        ByteList Received;
        const char* Written;
    } const Cases[] = {
        {Frame({0x00}), "01 00 FF"},
        {Frame({0x0C, 0x80, 0, 2, 0x12}), ACK},
        {Frame({0x12, 0, 6, 2, 0, 3, 1}), ACK},
        {Frame({0x20}), "02 60 00 9E 01 20 DF"},
        {Frame({0x61, 0x26}), ACK},
        {Frame({0x62, 0x01}), ACK},
        {Frame({0x63, 0, 'G'}), ACK},
        {Frame({0x64, 0, ' '}), ACK},
        {Frame({0xFF, 1, 2, 3}), ""},
        {ToBytes({0, 0}), ""},
    };
    for (const int type : {0x03, 0x0B, 0x10, 0x11, 0x1F, 0x21, 0x22, 0x6E, 0x6F, 0x04, 0x65}) {
        Quiet();
        Receive(Frame({type}));
        EXPECT_EQ(Port.Taken(), type == 0x04 || type == 0x65 ? "" : ACK) << type;
    }
    for (const auto& c : Cases) {
        Quiet();
        Link.TxDropCount = 1;
        Receive(c.Received);
        EXPECT_EQ(Port.Taken(), c.Written) << "type " << int{c.Received[1]};
        EXPECT_EQ(Link.TxDropCount, c.Received[1] == 0x20 ? 0 : 1);
        EXPECT_FALSE(Link.Receiving);
    }
    Quiet();
    Receive(Frame({0x0E}));
    EXPECT_EQ(Port.Taken(), ACK);
    ByteList queued(7);
    ASSERT_EQ(FifoPeek(LINK_FIFO, queued), 7);
    EXPECT_EQ(queued, ToBytes({0x05, 0x30, 0x02, 0x03, 0x03, 0x02, 0xC1}));
}

TEST_F(LinkLayer, TheFirstTraceHeaderOfEachKindIsTraced) {
    TraceMask = TRACE_ENTRY;
    Receive(Frame({0x61, 0x26}));
    Tick.WaitTrace = 12;
    Link.ProcessData = true;
    Receive(Frame({0x61, 0x26}));
    Receive(Frame({0x62, 0x03, 0x84}));
    Receive(Frame({0x62, 0x22, 0x05}));
    EXPECT_THAT(TraceLines(),
                ElementsAre("RX: First TRACEMODE System Trace Header WaitTrace 0 - ProcessData:0",
                            "RX: First TRACEMODE VTA Trace Header WaitTrace 12", "DigitKeyPushed 4 DialedNumber 4"));
}

TEST_F(LinkLayer, DataWaitsForTheCardsGoAheadAndTraceHeadersProveTheirMode) {
    AomTable[1] = {true, 2, false, 40};
    for (const bool process : {false, true}) {
        Link.ProcessData = process;
        const struct {
            ByteList frame;
            bool traceMode, linkProven;
        } cases[] = {
            {Frame({0x12, 0, 6, 3, 0, 3, 1}), false, false}, {Frame({0x61, 0x27, 0, 0, 'X'}), true, true},
            {Frame({0x62, 0x03, 0x84}), true, true},         {Frame({0x63, 0x02, 'G', 3, 0x20, 0x20}), true, false},
            {Frame({0x64, 0x02, ' ', 3}), true, false},
        };
        TraceLines();
        for (const auto& c : cases) {
            Link.TraceModeSeen = false;
            Link.LinkIdleTicks = 7;
            Receive(c.frame);
            EXPECT_EQ(Link.TraceModeSeen, c.traceMode) << int{c.frame[1]};
            EXPECT_EQ(Link.LinkIdleTicks, c.linkProven ? 0 : 7) << int{c.frame[1]};
        }
        EXPECT_EQ(ProviderState.TAPI_OMNA_Ver, process ? 3 : 0);
        EXPECT_EQ(Line(0)[0], process ? 'X' : ' ');
        EXPECT_STREQ(DialedNumber, process ? "4" : "");
        EXPECT_EQ(TouchTable[43].rawIcon, process ? 0x2020u : 0u);
        const std::vector<std::string> lines = TraceLines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "VTA: AOM key pushed: 43"), process ? 1 : 0);
    }
}

TEST_F(LinkLayer, ModuleFramesNeedAKnownModuleAndACommandOfTheirs) {
    AomTable[1] = {true, 2, false, 40};
    Link.ProcessData = true;
    TraceMask = TRACE_ENTRY;
    TouchTable[43].rawIcon = 0x2020;
    Receive(Frame({0x63, 0x1B, 'G', 3, 0x28, 0x28}));  // address 3: no such module
    Receive(Frame({0x63, 0x1A, 0x27, 3, 0x28, 0x28}));
    EXPECT_EQ(TouchTable[43].rawIcon, 0x2020u);
    Receive(Frame({0x63, 0x1A, 'F'}));
    EXPECT_EQ(TouchTable[43].rawIcon, 2u);
    Receive(Frame({0x64, 0x1A, ' ', 3}));
    Receive(Frame({0x64, 0x1A, 0xA0, 3}));
    EXPECT_THAT(TraceLines(),
                ElementsAre("RX: System to Option Trace Header(address 1b) OP 47",
                            "RX: System to Option Trace Header(address 1a) OP 27",
                            "RX: System to Option Trace Header(address 1a) OP 46",
                            "RX: Option to System Trace Header(address 2) OP 20", "VTA: AOM key pushed: 43",
                            "RX: Option to System Trace Header(address 2) OP a0"));
}

// --- containers ----------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, ContainersAreAcknowledgedOnceAndTakenApartInOrder) {
    Link.ProcessData = true;
    for (const FrameType type : {FRAME_CONTAINER, FRAME_SUPER}) {
        ::Display = DisplayRecord{};
        Quiet();
        Receive(Frame(Join({ByteList{type}, Item({0x61, 0x27, 0, 0, 'A', 'B', 'C'}), Item({0x61, 0x27, 1, 1, 'X'}),
                            Item({0x22}), Item({0x61, 0x27, 2, 0, 'Y'})})));
        EXPECT_EQ(Line(0).substr(0, 4), "AXY ");
        EXPECT_EQ(Port.Taken(), ACK);
    }
}

TEST_F(LinkLayer, APiggybackFrameGivesItsAcknowledgementThenItsMessages) {
    Link.ProcessData = true;
    SendOne(Five);
    Quiet();
    Receive(Frame(Join({ToBytes({0x6F, 2, 0x60, 0x00, 19, 0x6E}), Item({0x61, 0x27, 0, 0, '1'}),
                        Item({0x61, 0x27, 2, 0, '2'}), Item({0x61, 0x27, 2, 0, '3'})})));
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    EXPECT_EQ(Line(0).substr(0, 4), "123 ") << Line(0);
    EXPECT_EQ(Port.Taken(), ACK);
}

TEST_F(LinkLayer, ASingleAttachedMessageIsWholeToItsLastByte) {
    Link.ProcessData = true;
    Receive(Frame(Join({ToBytes({0x6F, 2, 0x60, 0x01}), Item({0x61, 0x27, 0, 0, 'A', 'B'})})));
    EXPECT_EQ(Line(0).substr(0, 3), "AB ");
    EXPECT_EQ(Port.Taken(), ACK) << "once";
}

TEST_F(LinkLayer, AContainedMessageBeyondItsContainerEndsItAndNothingIsReadBehind) {
    Link.ProcessData = true;
    TraceMask = 0;
    const ByteList good = Item({0x61, 0x27, 2, 0, 'A'});
    const struct {
        ByteList Counted;
        const char* Text;
    } Cases[] = {
        {Join({ToBytes({0x6E}), good, ToBytes({12, 0x61, 0x27, 2, 0, 'B'}), good}), "A "},
        {Join({ToBytes({0x6E}), good, ToBytes({0xFF})}), "A "},
        {Join({ToBytes({0x6F, 2, 0x60, 0x01}), ToBytes({0x40, 0x6E}), good}), "  "},
        {Join({ToBytes({0x6F, 2, 0x60, 0x01, 8, 0x6E}), good, ToBytes({1})}), "A "},
    };
    for (const auto& c : Cases) {
        ::Display = DisplayRecord{};
        TraceLines();
        Receive(Frame(c.Counted));
        EXPECT_EQ(Line(0).substr(0, 2), c.Text);
        const auto lines = TraceLines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].substr(0, 26), "RX: contained message len ") << lines[0];
    }
}

// --- framing -------------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, AWrongChecksumIsRefusedAndNotDispatched) {
    Link.ProcessData = true;
    TraceMask = TRACE_ENTRY;
    ByteList frame = Frame({0x61, 0x27, 0, 0, 'X'});
    ++frame.back();
    Receive(frame);
    EXPECT_EQ(Port.Taken(), NACK);
    EXPECT_EQ(Line(0)[0], ' ');
    EXPECT_THAT(TraceLines(), ElementsAre("Process input - CS: Wrong CS Nack cs: 1, msglen: 6", "ResetComPort:3"));
    EXPECT_EQ(Link.AckWaitTicks, 49);
    Receive(Frame({0x61, 0x27, 0, 0, 'Y'}));
    EXPECT_EQ(Line(0)[0], 'Y');
}

TEST_F(LinkLayer, HowAStreamIsCutIntoReadsDoesNotMatter) {
    std::mt19937 random(6200);
    const auto upTo = [&](unsigned limit) { return static_cast<int>(random() % limit); };
    const auto noise = [&](ByteList bytes, int size) {
        while (size-- > 0)
            bytes.push_back(static_cast<std::uint8_t>(upTo(0x60)));  // no link control by chance
        return bytes;
    };
    // The set's commands: text on the display, an icon of a line key, a digit.
    const auto command = [&] {
        switch (upTo(3)) {
        case 0: return noise(ToBytes({0x61, 0x27, upTo(3), upTo(40)}), upTo(12));
        case 1: return Join({ToBytes({0x61, 0x47, 1 + upTo(2)}), ByteList(2, upTo(2) == 0 ? 0x20 : 0)});
        default: return ToBytes({0x62, 0x03, 0x80 + upTo(10)});
        }
    };
    const auto item = [&] {
        const ByteList bytes = command();
        return Join({ToBytes({static_cast<int>(bytes.size())}), bytes});
    };
    ByteList stream = Frame(noise(ToBytes({0xFF}), 254));  // as long as a frame can be
    for (int i = 0; i < 60; ++i) {
        switch (i % 6) {
        case 0: stream = Join({stream, Frame(noise(ToBytes({upTo(2) == 0 ? 0xFF : 0x22}), upTo(20)))}); break;
        case 1:
        case 2: stream = Join({stream, Frame(command())}); break;
        case 3: stream = Join({stream, Frame(Join({ToBytes({0x6E}), item(), item(), item()}))}); break;
        case 4: stream = Join({stream, Frame(Join({ToBytes({0x6F, 2, 0x60, 0x01}), item()}))}); break;
        default:  // an answer of the PBX in two segments, the directory number another each time
            stream = Join({stream, Frame({0x0C, 0x81, 0, 18, 0x12, 0, 17, 2, 0, 3, 1, 0, 1, 4, '4'}),
                           Frame({0x0C, 0, '7', upTo(10) + '0', '1', 3, 0, 4 + upTo(2), 0})});
        }
    }
    std::vector<std::string> whole;
    for (int round = 0; round < 20; ++round) {
        const TraceRecord log = TraceLog;
        CloseHandle(Serial.Port);
        ResetProvider();
        TraceLog = log;
        OpenForCapture();
        Port.Open();
        Link.ProcessData = true;
        KeyLists = KeyListSet{};
        Key(1, TOUCH_MULTI);
        Key(2, TOUCH_MULTI);
        TraceMask = TRACE_INPUT;
        TraceLines();
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t left = stream.size() - at;
            const std::size_t size =
                round == 0 ? left
                           : std::min(left, static_cast<std::size_t>(1 + upTo(static_cast<unsigned>(round) * 8)));
            EXPECT_EQ(ProcessInput(static_cast<int>(size), stream.data() + at), 0);
            at += size;
        }
        auto result = TraceLines();
        for (auto& event : Events())
            result.push_back(event);
        result.push_back(Port.Taken() + Line(0) + DialedNumber + Settings.SetMCDU);
        EXPECT_FALSE(Link.Receiving);
        if (round == 0)
            whole = result;
        ASSERT_EQ(result, whole) << "round " << round;
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
    EXPECT_EQ(Receive(two), 0);
    EXPECT_EQ(Port.Taken(), FIVE_AGAIN);
    EXPECT_EQ(Receive(Join({Frame({0x60, 0x85}), Frame({0x22}), Frame({0x60, 0x85})})), 0);
    EXPECT_EQ(Port.Taken(), FIVE_AGAIN);
    EXPECT_THAT(TraceLines(), ElementsAre("Deux msgs type 60.8x détectés dans la trame !!!",
                                          "Deux msgs type 60.8x détectés dans la trame !!!"));
    // One refusal beside something else is an ordinary frame.
    EXPECT_EQ(Receive(Join({Frame({0x22}), Frame({0x60, 0x84})})), 0);
    EXPECT_EQ(Port.Taken(), std::string(ACK) + " " + ACK);
    EXPECT_THAT(TraceLines(), ElementsAre("RX: Wrong CheckSum (NACK)\n"));
}

TEST_F(LinkLayer, ARestartAmongOtherFramesIsAnsweredWithResynchronisation) {
    Link.ProcessData = true;
    const ByteList read = Join({Frame({0x61, 0x27, 0, 0, 'X'}), Frame({0x60, 0x87}), Frame({0x22})});
    PlatformControl::Advance(59999);
    EXPECT_EQ(Receive(read), 0);
    EXPECT_EQ(Port.Taken(), RESYNC);
    EXPECT_EQ(Line(0)[0], ' ');
    EXPECT_FALSE(Link.Receiving);
}

TEST_F(LinkLayer, ARestartAfterAMinuteWithoutSendingLosesAllCalls) {
    Key(1, TOUCH_MULTI);
    const int live = Call(1, 0, LINECALLSTATE_CONNECTED), over = Call(1, 1, LINECALLSTATE_IDLE);
    EXPECT_NE(live, over);
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    TraceMask = 0;
    PlatformControl::Advance(60000);
    EXPECT_EQ(Receive(Join({Frame({0x22}), Frame({0x60, 0x87})})), 0);
    EXPECT_EQ(Port.Taken(), POLL);  // first of the three that are queued
    EXPECT_EQ(FifoCount(LINK_FIFO), 3);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE " + std::to_string(live) + " IDLE"));
    EXPECT_THAT(TraceLines(), ElementsAre("Çontact rompu avec le subdevice -> Redemarrage"));
}

TEST_F(LinkLayer, TheSubdeviceTestLeavesReadsAlone) {
    SendOne(Five);
    Link.SubdeviceTest = true;
    Receive(Join({Frame({0x60, 0x84}), Frame({0x60, 0x84})}));
    EXPECT_EQ(Port.Taken(), std::string(FIVE_AGAIN) + " " + FIVE_AGAIN);
}

// --- sending -------------------------------------------------------------------------------------------------------

TEST_F(LinkLayer, EveryWriteNotesItsTime) {
    void (*const writes[])() = {[] { QueueZTMsg(Serial.Port, Five); }, [] { SendL2Msg(Serial.Port, ACK_FRAME); },
                                [] { Resend_Last_Msg(); }};
    for (const auto write : writes) {
        PlatformControl::Advance(500);
        TraceLines();
        write();
        EXPECT_EQ(Link.LastTransmitTime, PlatformControl::Now());
    }
    EXPECT_THAT(TraceLines(), ElementsAre("Resend_Last_Msg(02.60.00.9E.)"));
}

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
    Link.Receiving = true;
    blocked("sending blocked");
    Link.Receiving = false;
    Link.AckWaitTicks = 1;
    blocked("sending blocked");
    Link.AckWaitTicks = 0;
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
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    for (int drop = 1; drop <= 3; ++drop) {
        for (int kick = 0; kick < 150; ++kick) {
            Link.AckWaitTicks = 20;
            QueueZTMsg(Serial.Port, {});
        }
        EXPECT_EQ(FifoCount(LINK_FIFO), 5 - drop);
        QueueZTMsg(Serial.Port, {});
        EXPECT_EQ(FifoCount(LINK_FIFO), 4 - drop);
        EXPECT_EQ(Port.Taken(), drop <= 2 ? "02 60 86 18" : "");
    }
}

TEST_F(LinkLayer, AnAcknowledgementCarriesTheQueuedFrame) {
    Link.PiggybackMode = true;
    FifoPut(LINK_FIFO, Five);
    TraceMask = TRACE_LINK;
    Receive(Frame({0x22}));
    EXPECT_EQ(Port.Taken(), "08 6F 02 60 00 03 26 20 05 D9");
    EXPECT_THAT(TraceLines(), ElementsAre("SendL2Msg(08.6F.02.60.00.03.26.20.05.D9.)"));
    EXPECT_EQ(Link.AckWaitTicks, 20);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    // While it is under way the next answer goes alone; a refusal has it sent again as it was.
    Receive(Frame({0x22}));
    EXPECT_EQ(Port.Taken(), ACK);
    Quiet();
    Receive(Frame({0x00}));
    EXPECT_EQ(Port.Taken(), "01 00 FF");
}

TEST_F(LinkLayer, ASuperFrameGathersThePressesBeforeItIsCarried) {
    Link.SuperMsgSupported = Link.PiggybackMode = true;
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    Receive(Frame({0x22}));
    EXPECT_EQ(Port.Taken(), "0E 6F 02 60 00 09 6E 03 26 20 05 03 26 20 06 0D");
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    Receive(Frame({0x60, 0x84}));
    EXPECT_EQ(Port.Taken(), "0E 6F 02 60 00 09 6E 03 26 20 05 03 26 20 06 0D");
    Quiet();
    Link.PiggybackMode = false;
    QueueZTMsg(Serial.Port, {});
    EXPECT_EQ(Port.Taken(), "09 6E 03 26 20 05 03 26 20 06 EC");
}

TEST_F(LinkLayer, AFrameTooLongToBeCarriedGoesAlone) {
    Link.PiggybackMode = true;
    const ByteList longest = Frame(ByteList(251, 0x11));  // 253 bytes
    FifoPut(LINK_FIFO, longest);
    SendL2Msg(Serial.Port, ACK_FRAME);
    EXPECT_EQ(Port.Taken(), ACK);
    FifoDrop(LINK_FIFO);
    FifoPut(LINK_FIFO, Frame(ByteList(250, 0x11)));
    SendL2Msg(Serial.Port, ACK_FRAME);
    EXPECT_EQ(Port.Written.size(), 257u);
    EXPECT_EQ(std::accumulate(Port.Written.begin(), Port.Written.end(), 0) & 0xFF, 0);
}

TEST_F(LinkLayer, AFailedWriteIsTracedAndADirectOneKept) {
    PlatformControl::Port("COM1").WriteFails = true;
    TraceMask = 0;
    FifoPut(LINK_FIFO, Five);
    EXPECT_EQ(TxZTMsgFromFifo(), -1);
    EXPECT_EQ(Link.AckWaitTicks, 0);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    const auto lines = TraceLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("TxZTMsgFromFifo - failed to write to port,GetLastError ")) << lines[0];

    SendL2Msg(Serial.Port, SPECIAL_FUNCTION_FRAME);
    EXPECT_TRUE(Link.WriteFailed);
    EXPECT_EQ(Link.SavedLength, 5);
    EXPECT_EQ(Link.Saved[3], 0x03);
    EXPECT_THAT(TraceLines(),
                ElementsAre(" ", "SendL2Msg - WriteCommResult :0", "COMSTAT  - cbInQue:0 - cbOutQue:0", " "));
    ResetTransmitState(false);
    EXPECT_FALSE(Link.WriteFailed);
    EXPECT_EQ(Link.SavedLength, 0);

    PlatformControl::Port("COM1").WriteFails = false;
    PlatformControl::Port("COM1").WritePends = true;
    for (int i = 0; i < 50; ++i)
        SendL2Msg(Serial.Port, ACK_FRAME);
    EXPECT_FALSE(Link.WriteFailed);
    EXPECT_EQ(Port.Written.size(), 200u);
}

TEST_F(LinkLayer, WithoutAPortNothingGoesOutAndNothingBreaks) {
    CloseHandle(Serial.Port);
    Serial.Port = INVALID_HANDLE_VALUE;
    EXPECT_EQ(QueueZTMsg(Serial.Port, Five), -1);
    SendL2Msg(Serial.Port, ACK_FRAME);
    Resend_Last_Msg();
    TraceLines();
    ResetComPort(3);
    EXPECT_THAT(TraceLines(), ElementsAre("ResetComPort:3", "No hcd "));
    EXPECT_FALSE(Link.L2Sent);
    EXPECT_EQ(Receive(Frame({0x22})), 0);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
}

// --- the sub-device test -------------------------------------------------------------------------------------------

TEST_F(LinkLayer, TheSubdeviceTestSuspendsAfterItsInputsUntilARestart) {
    Link.SubdeviceTest = true;
    Link.NbInputBeforeSuspend = 3;
    Receive(Join({Frame({0x22}), Frame({0x22}), Frame({0x22})}));
    EXPECT_EQ(Port.Taken(), std::string(ACK) + " " + ACK);  // the third is suspended already
    Quiet();
    EXPECT_EQ(QueueZTMsg(Serial.Port, Five), 0);
    EXPECT_EQ(Port.Taken(), "");
    Receive(Frame({0x60, 0x87}));
    EXPECT_EQ(Port.Taken(), ACK);
    EXPECT_EQ(Link.NbInputBeforeSuspend, -1);
    Quiet();
    QueueZTMsg(Serial.Port, {});
    EXPECT_EQ(Port.Taken(), FIVE_AGAIN);
}

TEST_F(LinkLayer, TheSubdeviceTestHoldsItsAnswerBackAndMayRefuse) {
    Link.SubdeviceTest = true;
    Link.NbWaitAckBeforeResponse = 2;
    Link.WaitAckResponseNack = true;
    const ByteList restart = Frame({0x60, 0x87});
    Receive(restart);
    Receive(restart);
    EXPECT_EQ(Port.Taken(), "");
    EXPECT_EQ(Link.NbInputBeforeSuspend, -2);
    Quiet();
    EXPECT_EQ(QueueZTMsg(Serial.Port, Five), -2);
    Receive(restart);
    EXPECT_EQ(Port.Taken(), NACK);
    EXPECT_EQ(Link.NbInputBeforeSuspend, -1);
    Link.NbWaitAckBeforeResponse = -1;
    Receive(restart);
    EXPECT_EQ(Port.Taken(), "");
}

TEST_F(LinkLayer, AfterL2TimeoutIsTakenFromOneTo150Milliseconds) {
    EXPECT_EQ(ReadAfterL2Timeout(), 10);
    const struct {
        const char* Text;
        int Value;
    } Cases[] = {{"1", 1}, {"150", 150}, {"0", 10}, {"151", 10}, {"x", 10}, {"25", 25}};
    for (const auto& c : Cases) {
        SetSetting("ZT_Info", "After_L2_timeout", c.Text);
        EXPECT_EQ(ReadAfterL2Timeout(), c.Value) << c.Text;
    }
}

}  // namespace
