// The outgoing queue: its limit, its wrap, and what packing makes of a run of key presses.
#include "link/fifo.h"

#include "support/wire.h"

#include <cstring>

namespace {

class Fifo : public OnTheLine {
protected:
    static std::vector<std::string> BoxTexts() {
        std::vector<std::string> texts;
        for (const PlatformControl::Box& box : PlatformControl::Boxes())
            texts.push_back(box.Text);
        return texts;
    }
};

ByteList KeyPress(int code) {
    return Frame({0x26, 0x20, code});
}

// A key-press frame of this whole length.
ByteList LongPress(std::size_t length) {
    ByteList counted(length - 2, 0x11);
    counted[0] = 0x26;
    return Frame(counted);
}

TEST_F(Fifo, Holds29FramesAndLosesThe30th) {
    for (int i = 0; i < 29; ++i)
        ASSERT_EQ(FifoPut(LINK_FIFO, KeyPress(i)), 1);
    EXPECT_EQ(FifoPut(LINK_FIFO, KeyPress(99)), 0);
    EXPECT_EQ(FifoCount(LINK_FIFO), 29);
    const auto frames = Drain();
    ASSERT_EQ(frames.size(), 29u);
    for (int i = 0; i < 29; ++i)
        EXPECT_EQ(frames[static_cast<std::size_t>(i)], KeyPress(i));
    EXPECT_THAT(BoxTexts(), IsEmpty());
}

TEST_F(Fifo, CountsAndKeepsOrderOverTheWrap) {
    for (int start = 0; start < FIFO_SLOTS; ++start) {
        for (int i = 0; i < 7; ++i)
            FifoPut(LINK_FIFO, KeyPress(start + i));
        ASSERT_EQ(FifoCount(LINK_FIFO), 7);
        for (int i = 0; i < 7; ++i) {
            ByteList frame(5);
            ASSERT_EQ(FifoPeek(LINK_FIFO, frame), 5);
            ASSERT_EQ(frame, KeyPress(start + i));
            FifoDrop(LINK_FIFO);
        }
        FifoPut(LINK_FIFO, KeyPress(0));  // one further each round
        FifoDrop(LINK_FIFO);
    }
    ByteList frame(5);
    EXPECT_EQ(FifoPeek(LINK_FIFO, frame), 0);
    FifoDrop(LINK_FIFO);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
}

TEST_F(Fifo, PeekCutsToItsBufferAndTellsTheWholeLength) {
    FifoPut(LINK_FIFO, KeyPress(5));
    ByteList room(3, 0xEE);
    EXPECT_EQ(FifoPeek(LINK_FIFO, std::span(room).first(2)), 5);
    EXPECT_EQ(room, ToBytes({0x03, 0x26, 0xEE}));
}

const ByteList Poll = Frame({0x60, 0x01});
const ByteList Five = KeyPress(5), Six = KeyPress(6);
const ByteList FiveAndSix = Frame({0x6E, 0x03, 0x26, 0x20, 5, 0x03, 0x26, 0x20, 6});

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
        {"other frames stay", {Poll, Poll, Poll}, {Poll, Poll, Poll}},
        {"a run", {Five, Six}, {FiveAndSix}},
        {"runs around another frame", {Five, Poll, Five, Six}, {Frame({0x6E, 0x03, 0x26, 0x20, 5}), Poll, FiveAndSix}},
        {"a super frame is not packed again", {FiveAndSix, Five, Six}, {FiveAndSix, FiveAndSix}},
        {"250 bytes fit",  // 2 + 99 + 148 and the checksum
         {LongPress(100), LongPress(149)},
         {Super({LongPress(100), LongPress(149)})}},
        {"251 do not",
         {LongPress(100), LongPress(150), Five},
         {Super({LongPress(100)}), Super({LongPress(150), Five})}},
        {"a press too long for any super frame",
         {Five, LongPress(257), Six},
         {Super({Five}), LongPress(257), Super({Six})}}};
    for (const auto& c : cases) {
        for (const ByteList& frame : c.in)
            ASSERT_EQ(FifoPut(LINK_FIFO, frame), 1);
        ZTsuperfifo(LINK_FIFO);
        EXPECT_EQ(Drain(), c.out) << c.name;
    }
    EXPECT_THAT(BoxTexts(), IsEmpty());
}

TEST_F(Fifo, PackingAFullQueueLosesNothing) {
    std::vector<ByteList> in;
    for (int i = 0; i < 29; ++i) {
        in.push_back(Frame({0x60, i}));
        FifoPut(LINK_FIFO, in.back());
    }
    ZTsuperfifo(LINK_FIFO);
    EXPECT_EQ(Drain(), in);
}

TEST_F(Fifo, MemoryTroubleIsShownAndLosesOnlyTheFrame) {
    FifoPut(LINK_FIFO, Five);
    PlatformControl::FailGlobalAlloc(true);
    EXPECT_EQ(FifoPut(LINK_FIFO, Six), 0);
    PlatformControl::FailGlobalAlloc(false);
    PlatformControl::FailGlobalLock(true);
    EXPECT_EQ(FifoPut(LINK_FIFO, Six), 0);
    PlatformControl::FailGlobalLock(false);
    EXPECT_THAT(Drain(), ElementsAre(Five));
    EXPECT_THAT(BoxTexts(), ElementsAre("FIFO - GlobalAlloc - failed", "FIFO - GlobalLock put - failed"));
}

TEST_F(Fifo, ABlockThatStaysLockedIsTriedAgainUntilItGoes) {
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    PlatformControl::StickGlobalUnlock(2);
    FifoDrop(LINK_FIFO);
    EXPECT_EQ(FifoCount(LINK_FIFO), 1);
    PlatformControl::StickGlobalUnlock(1);
    FifoClear(LINK_FIFO);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    EXPECT_THAT(BoxTexts(), ElementsAre("FIFO - GlobalUnlock - retry", "FIFO - GlobalUnlock - retry",
                                        "FIFO - GlobalUnlock clear - failed"));
}

TEST_F(Fifo, DropQueuedFramesEmptiesTheLinksQueueOnly) {
    FifoPut(LINK_FIFO, Five);
    FifoPut(LINK_FIFO, Six);
    FifoPut(1, Six);
    DropQueuedFrames();
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    EXPECT_EQ(FifoCount(1), 1);
    FifoReset();
    EXPECT_EQ(FifoCount(1), 0);
}

}  // namespace
