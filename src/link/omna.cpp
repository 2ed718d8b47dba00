#include "link/omna.h"

#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/up.h"
#include "provider/error_box.h"
#include "trace/trace.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint8_t OMNA_VERSION_SENT = 2;
constexpr std::size_t OMNA_LONGEST = 255;  // one length byte
constexpr std::size_t SEGMENT_BYTES = 16;  // message bytes of a segment
constexpr std::uint8_t FIRST_SEGMENT = 0x80;
constexpr std::size_t FIRST_SEGMENT_HEADER = 4;  // type, segment byte, total in two bytes

std::array<std::uint32_t, OMNA_CODES> SequenceNumbers;  // the last one given, per code

// A long message that is coming in, one at a time. What is rebuilt begins with the type byte 0x12 and goes on with the
// message.
struct Reassembly {
    std::array<std::uint8_t, 2048> buffer{};
    std::size_t position = 0;
    std::size_t total = 0;  // announced: message and type byte
    int expected = 0;       // segments
    int received = 0;

    bool HasRoom(std::size_t bytes) const { return bytes <= buffer.size() - position; }
    void Append(Bytes bytes) {
        std::copy(bytes.begin(), bytes.end(), buffer.begin() + static_cast<std::ptrdiff_t>(position));
        position += bytes.size();
    }
};
Reassembly Incoming;

// The transmitter is only kicked when the last direct link-control frame leaves it free; otherwise the tick does it.
void QueueFrame(Bytes frame) {
    if (timeGetTime() - Link.L2SentTime >= static_cast<std::uint32_t>(Link.After_L2_timeout))
        QueueZTMsg(Serial.Port, frame);
    else
        FifoPut(LINK_FIFO, frame);
}

// An outgoing frame of the type byte, a few header bytes and data.
void SendFrame(std::initializer_list<std::uint8_t> header, Bytes data) {
    std::array<std::uint8_t, 32> frame;  // length, at most 5 of header, 16 of data, checksum
    const std::size_t counted = header.size() + data.size();
    frame[0] = static_cast<std::uint8_t>(counted);
    std::copy(data.begin(), data.end(), std::copy(header.begin(), header.end(), frame.begin() + 1));
    const auto whole = std::span(frame).first(counted + 2);
    SetChecksum(whole);
    QueueFrame(whole);
}

void SendSegments(Bytes message) {
    const std::size_t segments = (message.size() + SEGMENT_BYTES - 1) / SEGMENT_BYTES;
    const std::size_t total = message.size() + 1;
    SendFrame({FRAME_SEGMENT, static_cast<std::uint8_t>(FIRST_SEGMENT | (segments - 1)),
               static_cast<std::uint8_t>(total >> 8), static_cast<std::uint8_t>(total), FRAME_OMNA},
              message.first(SEGMENT_BYTES));
    for (std::size_t number = segments - 1; number-- > 0;) {
        message = message.subspan(SEGMENT_BYTES);
        SendFrame({FRAME_SEGMENT, static_cast<std::uint8_t>(number)},
                  message.first(std::min(message.size(), SEGMENT_BYTES)));
    }
}

// Takes one segment in; false for one that is not the expected one, is malformed or would not fit.
bool TakeSegment(Bytes frame) {
    if (frame.size() < 2)
        return false;
    const std::uint8_t segment = frame[1];
    if ((segment & FIRST_SEGMENT) != 0) {
        if (frame.size() < FIRST_SEGMENT_HEADER)
            return false;
        Incoming.position = 0;
        Incoming.total = static_cast<std::size_t>(frame[2] << 8 | frame[3]);
        Incoming.expected = (segment & 0x7F) + 1;
        Incoming.received = 1;
        Incoming.Append(frame.subspan(FIRST_SEGMENT_HEADER));
        return true;
    }
    const Bytes data = frame.subspan(2);
    if (segment != Incoming.expected - 1 - Incoming.received || !Incoming.HasRoom(data.size()))
        return false;
    Incoming.Append(data);
    ++Incoming.received;
    return true;
}

// All segments are there. The state is free for the next message before this one is handled, and the message has a copy
// of its own: a handler may show a box, in which ticks go on receiving.
void FinishReassembly() {
    const Reassembly done = Incoming;
    Incoming.position = Incoming.total = 0;
    Incoming.expected = Incoming.received = 0;
    if (done.position == 0 || done.buffer[0] != FRAME_OMNA)
        return;
    if (done.position == done.total)
        Up.OmnaMessage(Bytes(done.buffer).subspan(1, done.total - 1));
    else
        Trace(TRACE_ALWAYS, "Rebuild_ZT_Segmented_Error_Msg - Pb de longueur - Message reconstruit errone");
}

}  // namespace

void BuildOmnaHeader(OmnaCode code, int length, std::span<std::uint8_t> buffer) {
    const std::uint32_t sequence = ++SequenceNumbers[code];
    const std::size_t payload = std::min(static_cast<std::size_t>(length), buffer.size() - OMNA_HEADER - 1);
    std::memmove(buffer.data() + OMNA_HEADER, buffer.data(), payload);
    const std::uint8_t header[OMNA_HEADER] = {0,
                                              static_cast<std::uint8_t>(payload + OMNA_HEADER),
                                              OMNA_VERSION_SENT,
                                              0,
                                              code,
                                              static_cast<std::uint8_t>(sequence)};
    std::copy(std::begin(header), std::end(header), buffer.begin());
    buffer[OMNA_HEADER + payload] = 0;
}

void SendOmnaMsg(std::span<const std::uint8_t> message) {
    const std::size_t length = message.size() < 2 ? 0 : message[0] * std::size_t{65536} + message[1];
    if (length == 0 || length > message.size()) {
        ErrorBox("ZT message length problem");
        return;
    }
    message = message.first(length);
    if (length < SEGMENT_BYTES)
        SendFrame({FRAME_OMNA}, message);
    else
        SendSegments(message);
}

void SendOmnaRequest(OmnaCode code, std::span<const std::uint8_t> payload) {
    std::array<std::uint8_t, OMNA_LONGEST + 1> message{};
    const std::size_t length = std::min(payload.size(), OMNA_LONGEST - OMNA_HEADER);
    std::copy_n(payload.begin(), length, message.begin());
    BuildOmnaHeader(code, static_cast<int>(length), message);
    SendOmnaMsg(message);
}

void ResetOmnaLink() {
    SequenceNumbers.fill(0);
    Up.LinkStarts();
    SendOmnaRequest(OMNA_DEVICE_ASSOC, {});
}

void RebuildSegment(std::span<const std::uint8_t> frame, bool acknowledge) {
    const bool taken = TakeSegment(frame);
    if (!taken)
        Trace(TRACE_ALWAYS, "Rebuild_ZT_Segmented_Error_Msg - segment non attendu");
    else if (Incoming.received == Incoming.expected)
        FinishReassembly();
    if (!acknowledge)
        return;
    if (taken)
        SendL2Msg(Serial.Port, ACK_FRAME);
    else
        SendL2Msg(Serial.Port, RESYNC_FRAME);
}
