#include "link/fifo.h"

#include "link/link_layer.h"
#include "provider/error_box.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace {

constexpr int FIFO_QUEUES = 3;
constexpr int SUPER_FRAME_MAX = 250;  // size of the longest super frame

struct Slot {
    HGLOBAL memory = nullptr;      // movable block of length + 1 bytes
    std::uint8_t* data = nullptr;  // the block, locked while the frame is queued
    int length = 0;
};

struct Ring {
    std::array<Slot, FIFO_SLOTS> slots;
    int write = 0, read = 0;
};
std::array<Ring, FIFO_QUEUES> Queues;

constexpr std::size_t FRAME_ROOM = 1024;  // longer than any frame

Ring& Queue(int queue) {
    return Queues[static_cast<std::size_t>(queue)];
}

int Next(int index) {
    return index + 1 == FIFO_SLOTS ? 0 : index + 1;
}

Slot& Oldest(Ring& ring) {
    return ring.slots[static_cast<std::size_t>(ring.read)];
}

// Takes the oldest frame out of a queue that is not empty. Its block is still locked.
Slot Take(Ring& ring) {
    const Slot slot = std::exchange(Oldest(ring), Slot{});
    ring.read = Next(ring.read);
    return slot;
}

// Drops it. The slot is given up before its block is unlocked: a tick that runs inside the retry box then finds the queue
// without it.
void Remove(Ring& ring, const char* retryText) {
    const Slot slot = Take(ring);
    while (GlobalUnlock(slot.memory))
        ErrorBox(retryText);
    GlobalFree(slot.memory);
}

// A super frame under construction: its first two bytes, length and type, are filled in when it is closed.
struct SuperFrame {
    std::array<std::uint8_t, SUPER_FRAME_MAX> bytes{};
    std::size_t fill = 2;

    // The byte that a frame's own checksum would take is the super frame's.
    bool Fits(std::size_t frameLength) const { return fill + frameLength <= bytes.size(); }

    void Append(std::span<const std::uint8_t> frame) {
        const std::size_t taken = frame.size() - 1;  // all but the checksum
        std::copy_n(frame.begin(), taken, bytes.begin() + static_cast<std::ptrdiff_t>(fill));
        fill += taken;
    }

    // Queues it, when anything is in it, and starts the next.
    void Close(int queue) {
        if (fill > 2) {
            bytes[0] = static_cast<std::uint8_t>(fill - 1);
            bytes[1] = FRAME_SUPER;
            const auto frame = std::span(bytes).first(fill + 1);
            SetChecksum(frame);
            FifoPut(queue, frame);
        }
        fill = 2;
    }
};

}  // namespace

int FifoCount(int queue) {
    const Ring& ring = Queue(queue);
    const int count = ring.write - ring.read;
    return count < 0 ? count + FIFO_SLOTS : count;
}

int FifoPut(int queue, std::span<const std::uint8_t> frame) {
    Ring& ring = Queue(queue);
    if (Next(ring.write) == ring.read)
        return 0;
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, frame.size() + 1);
    if (memory == nullptr) {
        ErrorBox("FIFO - GlobalAlloc - failed");
        return 0;
    }
    auto* const data = static_cast<std::uint8_t*>(GlobalLock(memory));
    if (data == nullptr) {
        GlobalFree(memory);
        ErrorBox("FIFO - GlobalLock put - failed");
        return 0;
    }
    std::copy(frame.begin(), frame.end(), data);
    ring.slots[static_cast<std::size_t>(ring.write)] = {memory, data, static_cast<int>(frame.size())};
    ring.write = Next(ring.write);
    return 1;
}

int FifoPeek(int queue, std::span<std::uint8_t> out) {
    Ring& ring = Queue(queue);
    if (FifoCount(queue) == 0)
        return 0;
    const Slot& slot = Oldest(ring);
    std::copy_n(slot.data, std::min(static_cast<std::size_t>(slot.length), out.size()), out.begin());
    return slot.length;
}

void FifoDrop(int queue) {
    if (FifoCount(queue) > 0)
        Remove(Queue(queue), "FIFO - GlobalUnlock - retry");
}

void FifoClear(int queue) {
    while (FifoCount(queue) > 0)
        Remove(Queue(queue), "FIFO - GlobalUnlock clear - failed");
}

void ZTsuperfifo(int queue) {
    const int count = FifoCount(queue);
    if (count < 2)
        return;
    SuperFrame super;
    // Each frame queued now is taken once, and what becomes of it goes to the end: the order stays.
    for (int i = 0; i < count; ++i) {
        std::array<std::uint8_t, FRAME_ROOM> room;
        const std::size_t length = std::min(static_cast<std::size_t>(FifoPeek(queue, room)), room.size());
        if (length == 0) {
            ErrorBox("FIFO - ZTsuperfifo - in_siz = 0");
            continue;
        }
        FifoDrop(queue);
        const auto frame = std::span<const std::uint8_t>(room).first(length);
        if (!super.Fits(length))
            super.Close(queue);
        // A key press too long for any super frame travels as it is.
        if (length >= 2 && frame[1] == FRAME_KEY && super.Fits(length)) {
            super.Append(frame);
        } else {
            super.Close(queue);
            FifoPut(queue, frame);
        }
    }
    super.Close(queue);
}

void FifoReset() {
    for (Ring& ring : Queues) {
        while (ring.read != ring.write) {
            const Slot slot = Take(ring);
            GlobalUnlock(slot.memory);  // no box: a thread that starts has nobody to tell
            GlobalFree(slot.memory);
        }
        ring.read = ring.write = 0;
    }
}

void DropSentFrame() {
    FifoDrop(LINK_FIFO);
}

void DropQueuedFrames() {
    for (int count = FifoCount(LINK_FIFO); count > 0; --count)
        FifoDrop(LINK_FIFO);
}
