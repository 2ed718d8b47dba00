// The outgoing queue: its limit, its wrap, and what packing makes of a run of key presses.
#include "link/fifo.h"

#include "support/wire.h"

namespace {

using Fifo = OnTheLine;

std::string BoxTexts() {
    std::string texts;
    for (const PlatformControl::Box& box : PlatformControl::Boxes())
        texts += box.Text + "; ";
    return texts;
}

ByteList KeyPress(int code) {
    return Frame({0x26, 0x20, code});
}

// A key-press frame of this whole length.
ByteList LongPress(std::size_t length) {
    ByteList counted(length - 2, 0x11);
    counted[0] = 0x26;
    return Frame(counted);
}

TEST_F(Fifo, Holds29FramesInOrderWhereverItWrapsAndLosesThe30th) {
    for (int start = 0; start < FIFO_SLOTS; ++start) {
        std::vector<ByteList> frames;
        for (int i = 0; i < 29; ++i) {
            frames.push_back(KeyPress(start + i));
            ASSERT_EQ(FifoPut(LINK_FIFO, frames.back()), 1);
        }
        EXPECT_EQ(FifoPut(LINK_FIFO, KeyPress(99)), 0);
        EXPECT_EQ(FifoCount(LINK_FIFO), 29);
        EXPECT_EQ(Drain(), frames);
    }
    ByteList room(3, 0xEE);
    EXPECT_EQ(FifoPeek(LINK_FIFO, room), 0);
    FifoDrop(LINK_FIFO);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    FifoPut(LINK_FIFO, KeyPress(5));
    EXPECT_EQ(FifoPeek(LINK_FIFO, std::span(room).first(2)), 5) << "the whole length, whatever the room";
    EXPECT_EQ(room, ToBytes({0x03, 0x26, 0xEE}));
    EXPECT_EQ(BoxTexts(), "");
}

const ByteList Poll = Frame({0x60, 0x01}), Five = KeyPress(5), Six = KeyPress(6);
const ByteList FiveAndSix = Frame({0x6E, 0x03, 0x26, 0x20, 5, 0x03, 0x26, 0x20, 6});
const std::vector<ByteList> Full(29, Poll);

ByteList Super(std::initializer_list<ByteList> presses) {
    ByteList counted{0x6E};
    for (const ByteList& press : presses)
        counted.insert(counted.end(), press.begin(), press.end() - 1);
    return Frame(counted);
}

TEST_F(Fifo, PackingMakesSuperFramesOfRunsOfPresses) {
    const struct {
        const char* name;
        std::vector<ByteList> in, out;
    } cases[] = {
        {"one frame alone stays", {Five}, {Five}},
        {"other frames stay, and a full queue loses none", Full, Full},
        {"runs around another frame", {Five, Poll, Five, Six}, {Frame({0x6E, 0x03, 0x26, 0x20, 5}), Poll, FiveAndSix}},
        {"a super frame is not packed again", {FiveAndSix, Five, Six}, {FiveAndSix, FiveAndSix}},
        {"250 bytes fit", {LongPress(100), LongPress(149)}, {Super({LongPress(100), LongPress(149)})}},
        {"251 do not",
         {LongPress(100), LongPress(150), Five},
         {Super({LongPress(100)}), Super({LongPress(150), Five})}},
        {"a single byte is no press", {ByteList{0x26}, Five}, {ByteList{0x26}, Super({Five})}},
        {"too long for any", {Five, LongPress(257), Six}, {Super({Five}), LongPress(257), Super({Six})}}};
    for (const auto& c : cases) {
        for (const ByteList& frame : c.in)
            ASSERT_EQ(FifoPut(LINK_FIFO, frame), 1);
        ZTsuperfifo(LINK_FIFO);
        EXPECT_EQ(Drain(), c.out) << c.name;
    }
    EXPECT_EQ(BoxTexts(), "");
}

TEST_F(Fifo, AnEmptyFrameIsShownAndStopsPackingWithoutALoss) {
    FifoPut(LINK_FIFO, {});
    FifoPut(LINK_FIFO, Five);
    ZTsuperfifo(LINK_FIFO);
    EXPECT_EQ(BoxTexts(), "FIFO - ZTsuperfifo - in_siz = 0; FIFO - ZTsuperfifo - in_siz = 0; ");
    FifoDrop(LINK_FIFO);
    EXPECT_THAT(Drain(), ElementsAre(Five));
}

TEST_F(Fifo, MemoryTroubleIsShownAndLosesOnlyTheFrame) {
    FifoPut(LINK_FIFO, Five);
    PlatformControl::FailCall("GlobalAlloc");
    EXPECT_EQ(FifoPut(LINK_FIFO, Six), 0);
    PlatformControl::FailCall("GlobalLock");
    EXPECT_EQ(FifoPut(LINK_FIFO, Six), 0);
    PlatformControl::CallsWork();
    EXPECT_THAT(Drain(), ElementsAre(Five));
    EXPECT_EQ(BoxTexts(), "FIFO - GlobalAlloc - failed; FIFO - GlobalLock put - failed; ");
}

TEST_F(Fifo, ABlockThatStaysLockedIsTriedAgainUntilItGoes) {
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    FifoPut(1, Six);
    PlatformControl::StickGlobalUnlock(2);
    FifoDrop(LINK_FIFO);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    PlatformControl::StickGlobalUnlock(1);
    FifoClear(LINK_FIFO);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    DropQueuedFrames();
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    EXPECT_EQ(FifoCount(1), 1) << "the other queue is another one's";
    EXPECT_EQ(BoxTexts(), "FIFO - GlobalUnlock - retry; FIFO - GlobalUnlock - retry; "
                          "FIFO - GlobalUnlock clear - failed; ");
}

}  // namespace
