// The L2 link: frames of length, type, data and checksum, acknowledged one by one and sent again until they are.
//
//   byte 0        L: bytes after this one and before the checksum, 1 to 255
//   byte 1        frame type
//   bytes 2..L    data
//   byte L + 1    checksum: all L + 2 bytes add up to 0 modulo 256
//
// The size of a frame counts all of it, L + 2 bytes. A message is what its length byte counts: type and data.
//
// The receiver cuts and checks the byte stream and dispatches by type; the transmitter sends the outgoing FIFO one
// frame at a time. Link-control answers bypass the FIFO. Everything here runs under the line mutex.
#pragma once

#include "platform/platform.h"

#include <array>
#include <cstdint>
#include <span>

enum FrameType : std::uint8_t {
    FRAME_NULL = 0x00,
    FRAME_CONTAINER = 0x0B,
    FRAME_SEGMENT = 0x0C,
    FRAME_ASKING = 0x0E,  // its meaning is the card's; it wants one fixed frame
    FRAME_OMNA = 0x12,
    FRAME_ALIVE = 0x20,
    FRAME_KEY = 0x26,
    FRAME_ASKED = 0x30,  // the answer to FRAME_ASKING
    FRAME_CONTROL = 0x60,
    FRAME_SYSTEM_TRACE = 0x61,
    FRAME_VTA_TRACE = 0x62,
    FRAME_SYSTEM_TO_OPTION = 0x63,
    FRAME_OPTION_TO_SYSTEM = 0x64,
    FRAME_SUPER = 0x6E,
    FRAME_PIGGYBACK = 0x6F,
};

// Sub-types of FRAME_CONTROL. The card answers with the sub-type that it was asked with.
enum ControlCode : std::uint8_t {
    CONTROL_ACK = 0x00,
    CONTROL_POLL = 0x01,
    CONTROL_SPECIAL_FUNCTION = 0x10,
    CONTROL_CONFIG = 0x11,
    CONTROL_TEMPO = 0x12,
    CONTROL_TEMPO_ENQUIRY = 0x13,
    CONTROL_WRONG_LENGTH = 0x83,
    CONTROL_WRONG_CHECKSUM = 0x84,
    CONTROL_LOSS_OF_SYNCHRO = 0x85,
    CONTROL_ABORT = 0x86,
    CONTROL_RESTART = 0x87,
};

// Fills in the last byte of a frame so that all bytes add up to 0 modulo 256.
constexpr void SetChecksum(std::span<std::uint8_t> frame) {
    std::uint8_t sum = 0;
    for (const std::uint8_t value : frame.first(frame.size() - 1))
        sum = static_cast<std::uint8_t>(sum + value);
    frame.back() = static_cast<std::uint8_t>(-sum);
}

// The frame of a message that never changes.
template <class... Byte> constexpr auto FixedFrame(Byte... message) {
    std::array<std::uint8_t, sizeof...(message) + 2> frame{sizeof...(message), static_cast<std::uint8_t>(message)...};
    SetChecksum(frame);
    return frame;
}
inline constexpr auto ACK_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_ACK);
inline constexpr auto NACK_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_WRONG_CHECKSUM);
inline constexpr auto RESYNC_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_LOSS_OF_SYNCHRO);
inline constexpr auto ABORT_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_ABORT);
inline constexpr auto POLL_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_POLL);
inline constexpr auto SPECIAL_FUNCTION_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_SPECIAL_FUNCTION, 3);
inline constexpr auto CONFIG_ENQUIRY_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_CONFIG);
inline constexpr auto TEMPO_FRAME = FixedFrame(FRAME_CONTROL, CONTROL_TEMPO, 50);

constexpr int ACK_WAIT_LIMIT = 50;  // AckWaitTicks beyond this goes back to 0: free to send
constexpr int POLL_PERIOD_ANSWERED = 160;

enum class Receiver : std::uint8_t {
    Waiting,     // for a length byte
    Collecting,  // a frame
    Handling,    // a whole one; new bytes begin the next
};

struct LinkState {
    Receiver Receiving = Receiver::Waiting;
    int Expected = 0;  // size of the frame being collected; 0: none is
    int Collected = 0;
    std::array<std::uint8_t, 1024> Receive{};
    int RxIdleTicks = 0;         // ticks without a byte while collecting
    int LinkIdleTicks = 0;       // ticks since a frame that proves the link
    bool ContactLost = false;    // it has been silent for too long, and no such frame has come since
    int LinkPollPeriod = 30;     // ticks of silence before a poll; 160 once the card has answered
    bool ProcessData = false;    // terminal commands and TAPI_OMNA messages are processed
    bool TraceModeSeen = false;  // a trace header has been received
    bool SystemTraceSeen = false, VtaTraceSeen = false;       // their first arrival has been traced
    int AckWaitTicks = 0;                                     // 0 = free to send
    int TxIdleCount = 0;                                      // transmit kicks since the last acknowledgement
    int TxDropCount = 0;                                      // frames given up since the last acknowledgement
    bool L2Sent = false;                                      // a link-control frame was written directly ...
    std::uint32_t L2SentTime = 0;                             // ... at this clock value, ms
    int After_L2_timeout = 10;                                // ms during which data frames wait after it
    std::uint32_t LastTransmitTime = 0, LastReceiveTime = 0;  // ms
    std::array<std::uint8_t, 1024> Transmit{};
    int LastWritten = 0;       // size of the last frame written
    bool WriteFailed = false;  // a direct link-control frame is kept for one retry by the tick
    std::array<std::uint8_t, 16> Saved{};
    int SavedLength = 0;
    bool SuperMsgSupported = false, PiggybackMode = false;  // bits 0 and 1 of the Config Response flags
    bool LinkStopped = false;                               // the provider has stopped itself (trace mode, bad strings)
    // the sub-device test of the registry section Subdevice_Test
    bool SubdeviceTest = false;
    int NbInputBeforeSuspend = -1;     // frames until sending is suspended; 0 and -2: it is; -1: never
    int NbWaitAckBeforeResponse = 0;   // restarts of the card without an answer; below 0: none is ever answered
    bool WaitAckResponseNack = false;  // WaitAckResponse: false = ACK, true = NACK
};
extern LinkState Link;

// The receiver waits for a length byte; what it has of a frame is dropped.
void ResetReceiver();
// Takes bytes as read from the port. Gives 0, or the count when they must be kept and offered again with the next read.
int ProcessInput(int count, const std::uint8_t* bytes);

// Queues a whole frame (an empty one only kicks the transmitter). Gives 0 when queued or nothing to do, -3 when the
// link is stopped, 0 or -2 while the sub-device test suspends sending, otherwise what TxZTMsgFromFifo gives.
int QueueZTMsg(HANDLE port, std::span<const std::uint8_t> frame);
// Writes the oldest queued frame. Gives 0 when sent or nothing to send, -1 when there is no port, the frame is too long or
// a write fails.
int TxZTMsgFromFifo();
// 1 while data frames must wait.
int SendingBlocked();
// Writes a link-control frame at once, or lets it carry the oldest queued frame in piggyback mode.
void SendL2Msg(HANDLE port, std::span<const std::uint8_t> frame);
// Writes the last frame again.
void Resend_Last_Msg();
// What an opened port puts back before the link starts: the transmit side and the card's modes. A reconnection keeps the
// link-control frame that waits for its retry.
void ResetTransmitState(bool keepSavedFrame);
// A frame has come that proves the link: its silence begins anew, and lost contact is back.
void LinkProven();
// Writes the resynchronisation frame and queues poll, special function, configuration enquiry and the device
// association request: how every link starts.
void StartLink();
