// The outgoing queue of the link. Every frame that waits for the card's acknowledgement waits here, oldest first; the
// link layer peeks at the oldest, writes it, and drops it only when the card has acknowledged it. Holds 29 frames: the
// slot before the read index stays free, so that equal indices mean empty. Used only under the line mutex.
//
// There is storage for three queues; the provider uses LINK_FIFO.
#pragma once

#include <cstdint>
#include <span>

constexpr int FIFO_SLOTS = 30;
constexpr int LINK_FIFO = 0;

int FifoCount(int queue);
// Queues a copy of a whole frame. Gives 1, or 0 when the queue is full or memory is short; the frame is then lost.
int FifoPut(int queue, std::span<const std::uint8_t> frame);
// Copies the oldest frame into `out`, cut to its size; gives the frame's length, 0 when the queue is empty.
int FifoPeek(int queue, std::span<std::uint8_t> out);
void FifoDrop(int queue);
void FifoClear(int queue);
// Packs runs of queued key presses into super frames, keeping the order.
void ZTsuperfifo(int queue);
// Start of a serial thread: the indices go back to 0. Blocks that an earlier thread left are freed.
void FifoReset();

// Drops the oldest frame of the link's queue: the one just acknowledged.
void DropSentFrame();
// Drops as many frames as the link's queue holds at the call.
void DropQueuedFrames();
