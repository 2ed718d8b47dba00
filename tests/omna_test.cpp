// TAPI_OMNA: how a message becomes frames and frames a message again, sequence numbers, and the dispatch by code.
#include "link/omna.h"

#include "config/set/set_config.h"
#include "link/fifo.h"
#include "link/tick.h"
#include "support/wire.h"
#include "thread/omna_messages.h"

#include <utility>

namespace {

const std::string ACK = "02 60 00 9E", RESYNC = "02 60 85 19";
const std::string UNEXPECTED = "Rebuild_ZT_Segmented_Error_Msg - segment non attendu";
const auto Unknown = testing::StartsWith("Unknown TAPI-OMNA msg received: ");

class OmnaLink : public OnTheWire {
protected:
    static ByteList Part(const ByteList& bytes, std::size_t at, std::size_t size) {
        return {bytes.begin() + static_cast<std::ptrdiff_t>(at),
                bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), at + size))};
    }
    // A segment frame as the receiver hands it on: from the type byte to before the checksum.
    static ByteList Segment(int number, const ByteList& data) { return Join({ToBytes({FRAME_SEGMENT, number}), data}); }
    static ByteList FirstSegment(int count, std::size_t total, const ByteList& data) {
        return Join(
            {ToBytes({FRAME_SEGMENT, 0x80 | (count - 1), static_cast<int>(total >> 8), static_cast<int>(total & 0xFF)}),
             data});
    }
    // A message of a code that nobody knows: its dispatch shows it whole, at level 0.
    static ByteList Message(std::size_t length) {
        const ByteList header = ToBytes({0, static_cast<int>(length), 2, 0, 99, 1});
        ByteList message(length, 0x11);
        std::copy_n(header.begin(), std::min(length, header.size()), message.begin());
        return message;
    }
    std::string Answer(const ByteList& segment) {
        RebuildSegment(segment, true);
        return Port.Taken();
    }
};

TEST_F(OmnaLink, AMessageOfUpTo15BytesIsOneFrameALongerOneSegmentsCountedDown) {
    for (const std::size_t length : {2u, 15u, 16u, 17u, 32u, 255u}) {
        const ByteList message = Message(length);
        SendOmnaMsg(message);
        const std::size_t count = (length + 15) / 16;
        std::vector<ByteList> expected{Frame(Join({ByteList{0x12}, message}))};
        if (length > 15)
            expected = {
                Frame(FirstSegment(static_cast<int>(count), length + 1, Join({ByteList{0x12}, Part(message, 0, 16)})))};
        for (std::size_t at = 16; at < length; at += 16)
            expected.push_back(Frame(Segment(static_cast<int>(count - 1 - at / 16), Part(message, at, 16))));
        EXPECT_EQ(Drain(), expected) << length;
    }
}

TEST_F(OmnaLink, AMessageWithoutLengthOrBeyondItsBufferIsShownAndNotSent) {
    for (const ByteList& message :
         {ToBytes({0, 0, 2, 0, 2, 1}), ToBytes({0, 7, 2, 0, 2, 1}), ToBytes({1, 6, 2, 0, 2, 1}), ByteList{}}) {
        SendOmnaMsg(message);
        EXPECT_EQ(PlatformControl::Boxes().back().Text, "ZT message length problem");
    }
    EXPECT_EQ(PlatformControl::Boxes().size(), 4u);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
}

TEST_F(OmnaLink, SequenceNumbersCountPerCodeAndAnewWithEveryLink) {
    SetConfig.MultiAnnounced = 4;
    Tick.DeviceAssocAck = true;
    ResetOmnaLink();
    EXPECT_EQ(SetConfig.MultiAnnounced, -1);
    EXPECT_FALSE(Tick.DeviceAssocAck);
    for (const OmnaCode code : {OMNA_KEY_INFO, OMNA_STRING, OMNA_KEY_INFO})
        SendOmnaRequest(code, {});
    ResetOmnaLink();
    std::vector<std::pair<int, int>> sent;  // code, number
    for (const ByteList& frame : Drain())
        sent.emplace_back(frame[6], frame[7]);
    EXPECT_EQ(sent, (std::vector<std::pair<int, int>>{{2, 1}, {8, 1}, {10, 1}, {8, 2}, {2, 1}}));
    for (int i = 0; i < 256; ++i) {
        SendOmnaRequest(OMNA_DEVICE_ASSOC, {});
        EXPECT_EQ(Drain()[0][7], (i + 2) & 0xFF);
    }
}

// --- reassembly ----------------------------------------------------------------------------------------------------

TEST_F(OmnaLink, SegmentsMakeTheMessageAgainAMissingOneIsWaitedFor) {
    TraceMask = 0;
    const ByteList message = Join({ByteList{0x12}, Message(40)});
    const ByteList first = FirstSegment(3, 41, Part(message, 0, 17)), second = Segment(1, Part(message, 17, 16)),
                   last = Segment(0, Part(message, 33, 8));
    EXPECT_EQ(Answer(first), ACK);
    EXPECT_EQ(Answer(last), RESYNC);
    EXPECT_THAT(TraceLines(), ElementsAre(UNEXPECTED));
    EXPECT_EQ(Answer(second), ACK);
    RebuildSegment(last, false);
    EXPECT_EQ(Port.Taken(), "") << "within a frame that has been answered";
    std::string whole = "Unknown TAPI-OMNA msg received: 00.28.02.00.63.01.";
    for (int i = 0; i < 34; ++i)
        whole += "11.";
    EXPECT_THAT(TraceLines(), ElementsAre(whole));
    EXPECT_EQ(Answer(last), RESYNC) << "nothing is expected any more";
}

TEST_F(OmnaLink, MalformedSegmentsLeaveTheReassemblyUsable) {
    TraceMask = 0;
    const ByteList whole = Join({ByteList{0x12}, Message(16)});
    const std::string wrongLength = "Rebuild_ZT_Segmented_Error_Msg - Pb de longueur - Message reconstruit errone";
    const std::pair<ByteList, std::vector<std::string>> cases[] = {
        {ToBytes({0x0C, 0x80, 0}), {UNEXPECTED}},
        {ToBytes({0x0C, 0x80, 0, 5}), {}},  // nothing rebuilt
        {FirstSegment(1, 18, whole), {wrongLength}},
        {FirstSegment(1, 5, ToBytes({0x13, 1, 2, 3, 4})), {}},
        {FirstSegment(1, 1, ToBytes({0x12})), {"Unknown TAPI-OMNA msg received: "}},
        {FirstSegment(2, 17, Part(whole, 0, 9)), {}},  // its second never comes
    };
    for (const auto& [segment, traces] : cases) {
        RebuildSegment(segment, true);
        EXPECT_EQ(TraceLines(), traces);
        RebuildSegment(FirstSegment(1, 17, whole), true);
        EXPECT_THAT(TraceLines(), ElementsAre(Unknown));
    }
    // More than there is room for.
    RebuildSegment(FirstSegment(128, 0xFFFF, ByteList(250, 0x12)), false);
    for (int number = 126; number >= 120; --number)
        RebuildSegment(Segment(number, ByteList(252, 0x22)), false);  // 250 + 7 * 252 = 2014
    Port.Taken();
    EXPECT_EQ(Answer(Segment(119, ByteList(35, 0x22))), RESYNC);
    EXPECT_EQ(Answer(Segment(119, ByteList(34, 0x22))), ACK);
}

TEST_F(OmnaLink, WhatHasNoWholeHeaderOrNoKnownCodeIsOnlyShown) {
    TraceMask = TRACE_OMNA;
    for (const ByteList& message : {ByteList{}, ToBytes({0, 6, 2, 0, 3}), ToBytes({0, 6, 2, 1, 3, 1}),
                                    ToBytes({0, 6, 2, 0, 2, 1}), ToBytes({0, 6, 2, 0, 34, 1})}) {
        DispatchOmnaMsg(message);
        EXPECT_THAT(TraceLines(), ElementsAre(testing::StartsWith("TAPI_OMNA MSG: "), Unknown));
    }
    EXPECT_EQ(ProviderState.TAPI_OMNA_Ver, 0);
}

TEST_F(OmnaLink, CallEventsAreHandledFromVersion2OnTransfersAlways) {
    TraceMask = TRACE_OMNA;
    for (const int version : {1, 2})
        for (const int code : {23, 24, 25, 28}) {
            ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(version);
            DispatchOmnaMsg(ToBytes({0, 6, version, 0, code, 1}));  // its handler says that it is cut short
            EXPECT_EQ(TraceLines().size(), version == 2 || code == 28 ? 3u : 2u) << version << " " << code;
        }
}

}  // namespace
