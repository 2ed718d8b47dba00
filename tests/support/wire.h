// For the tests of the link: an open port that keeps what is written, and frames made by code of the tests' own.
#pragma once

#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "support/fixture.h"
#include "support/port.h"
#include "trace/trace.h"

#include <initializer_list>
#include <numeric>
#include <vector>

using ByteList = std::vector<std::uint8_t>;

inline ByteList ToBytes(std::initializer_list<int> values) {
    ByteList out;
    for (const int value : values)
        out.push_back(static_cast<std::uint8_t>(value));
    return out;
}

inline ByteList Join(std::initializer_list<ByteList> parts) {
    ByteList out;
    for (const ByteList& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

// Length byte, the bytes given, checksum.
inline ByteList Frame(const ByteList& counted) {
    ByteList out{static_cast<std::uint8_t>(counted.size())};
    out.insert(out.end(), counted.begin(), counted.end());
    out.push_back(static_cast<std::uint8_t>(0x100 - (std::accumulate(out.begin(), out.end(), 0) & 0xFF)));
    return out;
}
inline ByteList Frame(std::initializer_list<int> counted) {
    return Frame(ToBytes(counted));
}

// A message as it stands in a container: length byte and the bytes given.
inline ByteList Item(std::initializer_list<int> counted) {
    ByteList out = Frame(counted);
    out.pop_back();
    return out;
}

// Takes all frames off the queue.
inline std::vector<ByteList> Drain() {
    std::vector<ByteList> frames;
    while (FifoCount(LINK_FIFO) > 0) {
        ByteList frame(300);
        frame.resize(static_cast<std::size_t>(FifoPeek(LINK_FIFO, frame)));
        frames.push_back(frame);
        FifoDrop(LINK_FIFO);
    }
    return frames;
}

class OnTheWire : public OnTheLine {
protected:
    RecordingPort Port;

    void SetUp() override {
        OnTheLine::SetUp();
        Port.Open();
        Link.LastTransmitTime = Link.LastReceiveTime = timeGetTime();
        TraceLines();
    }
    void TearDown() override {
        if (Serial.Port != INVALID_HANDLE_VALUE)
            CloseHandle(Serial.Port);
        Serial.Port = INVALID_HANDLE_VALUE;
        OnTheLine::TearDown();
    }
    static int Receive(const ByteList& bytes) { return ProcessInput(static_cast<int>(bytes.size()), bytes.data()); }
    // The line as it is when the card has acknowledged everything and no answer of ours is fresh.
    static void Quiet() {
        Link.AckWaitTicks = 0;
        Link.L2Sent = false;
    }
};
