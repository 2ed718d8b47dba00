// TAPI_OMNA: how a message becomes frames and frames a message again, sequence numbers, and the dispatch by code.
#include "link/omna.h"

#include "config/set_config.h"
#include "link/fifo.h"
#include "link/tick.h"
#include "support/wire.h"

#include <tuple>

namespace {

const char* const ACK = "02 60 00 9E";
const char* const RESYNC = "02 60 85 19";

class OmnaLink : public OnTheWire {
protected:
    static ByteList Message(std::size_t length) {
        ByteList message(length);
        for (std::size_t i = 0; i < length; ++i)
            message[i] = static_cast<std::uint8_t>(0x40 + i);
        message[0] = 0;
        message[1] = static_cast<std::uint8_t>(length);
        return message;
    }
    // A segment frame as the receiver hands it on: from the type byte to before the checksum.
    static ByteList Segment(int number, const ByteList& data) { return Join({ToBytes({FRAME_SEGMENT, number}), data}); }
    static ByteList FirstSegment(int count, std::size_t total, const ByteList& data) {
        return Join(
            {ToBytes({FRAME_SEGMENT, 0x80 | (count - 1), static_cast<int>(total >> 8), static_cast<int>(total & 0xFF)}),
             data});
    }
    static ByteList Part(const ByteList& bytes, std::size_t at, std::size_t size) {
        return {bytes.begin() + static_cast<std::ptrdiff_t>(at),
                bytes.begin() + static_cast<std::ptrdiff_t>(at + size)};
    }
};

TEST_F(OmnaLink, AMessageOfUpTo15BytesIsOneFrame) {
    for (const std::size_t length : {2u, 6u, 15u}) {
        const ByteList message = Message(length);
        SendOmnaMsg(message);
        EXPECT_THAT(Drain(), ElementsAre(Frame(Join({ByteList{0x12}, message})))) << length;
    }
}

TEST_F(OmnaLink, ALongerOneIsSegmentsOf16BytesCountedDown) {
    for (const std::size_t length : {16u, 17u, 32u, 40u, 255u}) {
        const ByteList message = Message(length);
        SendOmnaMsg(message);
        const std::size_t count = (length + 15) / 16;
        std::vector<ByteList> expected{
            Frame(Join({FirstSegment(static_cast<int>(count), length + 1, {0x12}), Part(message, 0, 16)}))};
        for (std::size_t at = 16; at < length; at += 16)
            expected.push_back(Frame(Segment(static_cast<int>(count - 1 - at / 16),
                                             Part(message, at, std::min<std::size_t>(16, length - at)))));
        EXPECT_EQ(Drain(), expected) << length;
    }
    SendOmnaMsg(Message(40));
    const auto frames = Drain();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(Part(frames[0], 0, 6), ToBytes({21, 0x0C, 0x82, 0x00, 41, 0x12}));
    EXPECT_EQ(Part(frames[1], 0, 3), ToBytes({18, 0x0C, 0x01}));
    EXPECT_EQ(Part(frames[2], 0, 3), ToBytes({10, 0x0C, 0x00}));
}

TEST_F(OmnaLink, AMessageWithoutLengthOrBeyondItsBufferIsShownAndNotSent) {
    SendOmnaMsg(ToBytes({0, 0, 2, 0, 2, 1}));
    SendOmnaMsg(ToBytes({0, 7, 2, 0, 2, 1}));
    SendOmnaMsg(ToBytes({1, 6, 2, 0, 2, 1}));
    SendOmnaMsg({});
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    ASSERT_EQ(PlatformControl::Boxes().size(), 4u);
    for (const PlatformControl::Box& box : PlatformControl::Boxes())
        EXPECT_EQ(box.Text, "ZT message length problem");
}

TEST_F(OmnaLink, SequenceNumbersCountPerCodeAndAnewWithEveryLink) {
    SetConfig.MultiAnnounced = 4;
    Tick.DeviceAssocAck = true;
    ResetOmnaLink();
    EXPECT_EQ(SetConfig.MultiAnnounced, -1);
    EXPECT_FALSE(Tick.DeviceAssocAck);
    const std::uint8_t payload[] = {7};
    SendOmnaRequest(OMNA_KEY_INFO, payload);
    SendOmnaRequest(OMNA_STRING, {});
    SendOmnaRequest(OMNA_KEY_INFO, payload);
    ResetOmnaLink();
    std::vector<std::tuple<int, int>> sent;  // code, number
    for (const ByteList& frame : Drain())
        sent.emplace_back(frame[6], frame[7]);
    EXPECT_THAT(sent,
                ElementsAre(std::tuple(2, 1), std::tuple(8, 1), std::tuple(10, 1), std::tuple(8, 2), std::tuple(2, 1)));
    for (int i = 0; i < 255; ++i)
        SendOmnaRequest(OMNA_DEVICE_ASSOC, {});
    Drain();
    SendOmnaRequest(OMNA_DEVICE_ASSOC, {});
    EXPECT_EQ(Drain()[0][7], 1);
}

TEST_F(OmnaLink, AHeaderIsPutInFrontOfThePayload) {
    ByteList buffer = ToBytes({9, 8, 7, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    ResetOmnaLink();
    BuildOmnaHeader(OMNA_CODE, 3, buffer);
    EXPECT_EQ(buffer, ToBytes({0, 9, 2, 0, 18, 1, 9, 8, 7, 0, 0xEE}));
    // What does not fit is cut, never written behind.
    ByteList small = ToBytes({9, 8, 7, 6, 5, 4, 3, 2});
    BuildOmnaHeader(OMNA_CODE, 8, small);
    EXPECT_EQ(small, ToBytes({0, 7, 2, 0, 18, 2, 9, 0}));
}

// --- reassembly ----------------------------------------------------------------------------------------------------

// A message of an unknown code: its dispatch shows it whole, at level 0.
ByteList Unknown(std::size_t length) {
    ByteList message(length, 0x11);
    const ByteList header = ToBytes({0, static_cast<int>(length), 2, 0, 99, 1});
    std::copy(header.begin(), header.end(), message.begin());
    return message;
}

TEST_F(OmnaLink, SegmentsMakeTheMessageAgainAndEachIsAnswered) {
    TraceMask = 0;
    const ByteList message = Join({ByteList{0x12}, Unknown(40)});
    RebuildSegment(FirstSegment(3, 41, Part(message, 0, 17)), true);
    RebuildSegment(Segment(1, Part(message, 17, 16)), true);
    EXPECT_THAT(TraceLines(), IsEmpty());
    RebuildSegment(Segment(0, Part(message, 33, 8)), false);
    EXPECT_EQ(Port.Taken(), std::string(ACK) + " " + ACK);
    const auto lines = TraceLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 32 + 40 * 3u) << lines[0];
    EXPECT_TRUE(lines[0].starts_with("Unknown TAPI-OMNA msg received: 00.28.02.00.63.01.11.")) << lines[0];
}

TEST_F(OmnaLink, AMissingSegmentIsWaitedFor) {
    TraceMask = 0;
    const ByteList message = Join({ByteList{0x12}, Unknown(40)});
    RebuildSegment(FirstSegment(3, 41, Part(message, 0, 17)), true);
    RebuildSegment(Segment(0, Part(message, 33, 8)), true);
    EXPECT_EQ(Port.Taken(), std::string(ACK) + " " + RESYNC);
    EXPECT_THAT(TraceLines(), ElementsAre("Rebuild_ZT_Segmented_Error_Msg - segment non attendu"));
    RebuildSegment(Segment(1, Part(message, 17, 16)), true);
    RebuildSegment(Segment(0, Part(message, 33, 8)), true);
    EXPECT_EQ(Port.Taken(), std::string(ACK) + " " + ACK);
    EXPECT_EQ(TraceLines().size(), 1u);
    RebuildSegment(Segment(0, Part(message, 33, 8)), true);  // the state is free: nothing is expected
    EXPECT_THAT(TraceLines(), ElementsAre("Rebuild_ZT_Segmented_Error_Msg - segment non attendu"));
}

TEST_F(OmnaLink, MalformedSegmentsLeaveTheReassemblyUsable) {
    TraceMask = 0;
    const ByteList whole = Join({ByteList{0x12}, Unknown(16)});
    const std::string Unexpected = "Rebuild_ZT_Segmented_Error_Msg - segment non attendu";
    const std::string WrongLength = "Rebuild_ZT_Segmented_Error_Msg - Pb de longueur - Message reconstruit errone";
    const struct {
        std::vector<ByteList> Segments;
        std::vector<std::string> Traces;
    } Cases[] = {
        {{ToBytes({0x0C})}, {Unexpected}},
        {{ToBytes({0x0C, 0x80})}, {Unexpected}},
        {{ToBytes({0x0C, 0x80, 0})}, {Unexpected}},
        {{ToBytes({0x0C, 0x80, 0, 5})}, {}},  // nothing rebuilt
        {{FirstSegment(1, 18, whole)}, {WrongLength}},
        {{FirstSegment(1, 0, whole)}, {WrongLength}},
        {{FirstSegment(1, 5, ToBytes({0x13, 1, 2, 3, 4}))}, {}},
        {{FirstSegment(1, 1, ToBytes({0x12}))}, {"Unknown TAPI-OMNA msg received: "}},
        {{FirstSegment(2, 17, Part(whole, 0, 9)), FirstSegment(1, 18, whole)}, {WrongLength}},
    };
    for (const auto& c : Cases) {
        for (const ByteList& segment : c.Segments)
            RebuildSegment(segment, true);
        EXPECT_EQ(TraceLines(), c.Traces);
        RebuildSegment(FirstSegment(1, 17, whole), true);
        const auto lines = TraceLines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(lines[0].starts_with("Unknown")) << lines[0];
    }
}

TEST_F(OmnaLink, SegmentsBeyondTheBufferAreRefused) {
    TraceMask = 0;
    RebuildSegment(FirstSegment(128, 0xFFFF, ByteList(250, 0x12)), false);
    for (int number = 126; number >= 120; --number)
        RebuildSegment(Segment(number, ByteList(252, 0x22)), false);  // 250 + 7 * 252 = 2014
    EXPECT_THAT(TraceLines(), IsEmpty());
    RebuildSegment(Segment(119, ByteList(35, 0x22)), true);
    EXPECT_EQ(Port.Taken(), RESYNC);
    EXPECT_THAT(TraceLines(), ElementsAre("Rebuild_ZT_Segmented_Error_Msg - segment non attendu"));
    RebuildSegment(Segment(119, ByteList(34, 0x22)), true);
    EXPECT_EQ(Port.Taken(), ACK);
}

// --- dispatch ------------------------------------------------------------------------------------------------------

TEST_F(OmnaLink, EveryCodeIsTracedByItsName) {
    const struct {
        int Code;
        const char* Name;
    } Cases[] = {
        {7, "KEY_ACK"},
        {9, "KEY_INFO_ACK"},
        {11, "STRING_ACK"},
        {13, "STRING_INFO_ACK"},
        {15, "SK_ACK"},
        {17, "SK_INFO_ACK"},
        {19, "CODE_ACK"},
        {21, "CODE_INFO_ACK"},
        {23, "EVENT_INCOMING_CHANGE"},
        {24, "EVENT_OUTGOING_CALL"},
        {25, "EVENT_CONNECTED_CALL"},
        {28, "TA_M_EVENT_TRANSFERED_CALL"},
        {31, "KEY_SPE_ACK"},
        {33, "KEY_SPE_INFO_ACK"},
    };
    for (const auto& c : Cases) {
        TraceMask = TRACE_OMNA;
        TraceLines();
        DispatchOmnaMsg(ToBytes({0, 6, 2, 0, c.Code, 1}));
        const auto lines = TraceLines();
        ASSERT_GE(lines.size(), 2u) << c.Name;
        EXPECT_TRUE(lines[0].starts_with("TAPI_OMNA MSG: 00.06.02.00.")) << lines[0];
        EXPECT_EQ(lines[1], std::string("TAPI_OMNA MSG: ") + c.Name);
        DispatchOmnaMsg(ToBytes({0, 6, 2, 1, c.Code, 1}));  // the same code of another class
        EXPECT_EQ(TraceLines().back().substr(0, 32), "Unknown TAPI-OMNA msg received: ");
    }
    DispatchOmnaMsg(ToBytes({0, 6, 3, 0, 3, 1}));
    EXPECT_THAT(TraceLines(), testing::Contains("TAPI_OMNA MSG: DEVICE_ASSOC_ACK (TAPI_OMNA_Ver 3)"));
    EXPECT_EQ(ProviderState.TAPI_OMNA_Ver, 3);
}

TEST_F(OmnaLink, WhatHasNoWholeHeaderOrNoKnownCodeIsOnlyShown) {
    TraceMask = 0;
    for (const ByteList& message : {ByteList{}, ToBytes({0, 6, 2, 0, 3}), ToBytes({0, 6, 2, 0, 2, 1}),
                                    ToBytes({0, 6, 2, 0, 34, 1}), ToBytes({0, 6, 2, 0, 255, 1})}) {
        DispatchOmnaMsg(message);
        const auto lines = TraceLines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(lines[0].starts_with("Unknown TAPI-OMNA msg received: ")) << lines[0];
    }
    EXPECT_EQ(ProviderState.TAPI_OMNA_Ver, 0);
}

}  // namespace
