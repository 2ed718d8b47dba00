// The L2 link: frames of length, type, data and checksum, acknowledged one by one and sent again until they are.
//
//   byte 0        L: bytes after this one and before the checksum, 1 to 255
//   byte 1        frame type
//   bytes 2..L    data
//   byte L + 1    checksum: all L + 2 bytes add up to 0 modulo 256
//
// The receiver cuts and checks the byte stream and dispatches by type; the transmitter sends the outgoing FIFO one
// frame at a time. Link-control answers bypass the FIFO. Everything here runs under the line mutex.
#pragma once

#include "platform/platform.h"

#include <array>
#include <cstdint>
#include <span>

enum FrameType : std::uint8_t {
    FRAME_CONTAINER = 0x0B,
    FRAME_SEGMENT = 0x0C,
    FRAME_OMNA = 0x12,
    FRAME_KEY = 0x26,
    FRAME_CONTROL = 0x60,
    FRAME_SYSTEM_TRACE = 0x61,
    FRAME_VTA_TRACE = 0x62,
    FRAME_SYSTEM_TO_OPTION = 0x63,
    FRAME_OPTION_TO_SYSTEM = 0x64,
    FRAME_SUPER = 0x6E,
    FRAME_PIGGYBACK = 0x6F,
};

// Fixed frames.
inline constexpr std::array<std::uint8_t, 4> ACK_FRAME{0x02, 0x60, 0x00, 0x9E};
inline constexpr std::array<std::uint8_t, 4> NACK_FRAME{0x02, 0x60, 0x84, 0x1A};
inline constexpr std::array<std::uint8_t, 4> RESYNC_FRAME{0x02, 0x60, 0x85, 0x19};
inline constexpr std::array<std::uint8_t, 4> ABORT_FRAME{0x02, 0x60, 0x86, 0x18};
inline constexpr std::array<std::uint8_t, 4> POLL_FRAME{0x02, 0x60, 0x01, 0x9D};
inline constexpr std::array<std::uint8_t, 5> SPECIAL_FUNCTION_FRAME{0x03, 0x60, 0x10, 0x03, 0x8A};
inline constexpr std::array<std::uint8_t, 4> CONFIG_ENQUIRY_FRAME{0x02, 0x60, 0x11, 0x8D};
inline constexpr std::array<std::uint8_t, 5> TEMPO_FRAME{0x03, 0x60, 0x12, 0x32, 0x59};

constexpr int ACK_WAIT_SENT = 20;   // AckWaitTicks after a frame went out
constexpr int ACK_WAIT_LIMIT = 50;  // AckWaitTicks beyond this goes back to 0: free to send
constexpr int POLL_PERIOD_ANSWERED = 160;

struct LinkState {
    bool Receiving = false;  // collecting a frame; false = waiting for a length byte
    int Expected = 0;        // bytes of the frame being collected: type, data, checksum
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
    int LastWritten = 0;       // length of the last frame written
    bool WriteFailed = false;  // a direct link-control frame is kept for one retry by the tick
    std::array<std::uint8_t, 16> Saved{};
    int SavedLength = 0;
    bool SuperMsgSupported = false, PiggybackMode = false;  // bits 0 and 1 of the Config Response flags
    bool LinkStopped = false;                               // the provider has stopped itself (trace mode, bad strings)
    // the sub-device test of the registry section Subdevice_Test
    bool SubdeviceTest = false;
    int NbInputBeforeSuspend = -1;
    int NbWaitAckBeforeResponse = 0;
    bool WaitAckResponseNack = false;  // WaitAckResponse: false = ACK, true = NACK
};
extern LinkState Link;

// Fills in the last byte of a frame so that all bytes add up to 0 modulo 256.
void SetChecksum(std::span<std::uint8_t> frame);

// The receiver waits for a length byte; what it has of a frame is dropped.
void ResetReceiver();
// Takes bytes as read from the port. Gives 0, or the count when they must be kept and offered again with the next read.
int ProcessInput(int count, const std::uint8_t* bytes);

// Queues a whole frame (an empty one only kicks the transmitter). Gives 0 when queued or nothing to do, -3 when the
// link is stopped, otherwise what TxZTMsgFromFifo gives.
int QueueZTMsg(HANDLE port, std::span<const std::uint8_t> frame);
// Writes the oldest queued frame. Gives 0 when sent or nothing to send, -1 when there is no port or a write fails.
int TxZTMsgFromFifo();
// 1 while data frames must wait.
int SendingBlocked();
// Writes a link-control frame at once, or lets it carry the oldest queued frame in piggyback mode.
void SendL2Msg(HANDLE port, std::span<const std::uint8_t> frame);
// Writes the last frame again.
void Resend_Last_Msg();
// ZT_Info\After_L2_timeout in ms, 1 to 150; 10 for anything else.
int ReadAfterL2Timeout();
// What an opened port puts back before the link starts: the transmit side and the card's modes. A reconnection keeps the
// link-control frame that waits for its retry.
void ResetTransmitState(bool keepSavedFrame);
// A frame has come that proves the link: its silence begins anew, and lost contact is back.
void LinkProven();
// Writes the resynchronisation frame and queues poll, special function, configuration enquiry and the device
// association request: how every link starts.
void StartLink();
