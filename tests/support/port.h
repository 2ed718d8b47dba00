// A port in process that keeps what the provider writes and gives what a test feeds it.
#pragma once

#include "equipment/frames.h"
#include "link/serial.h"
#include "platform/control.h"

#include <deque>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

struct RecordingPort : PlatformControl::PortDevice {
    std::vector<std::uint8_t> Written;
    std::deque<std::uint8_t> Incoming;

    void Write(std::span<const std::uint8_t> bytes, std::uint32_t) override {
        Written.insert(Written.end(), bytes.begin(), bytes.end());
    }
    std::size_t Available(std::uint32_t) override { return Incoming.size(); }
    std::size_t Read(std::span<std::uint8_t> into, std::uint32_t) override {
        std::size_t n = 0;
        for (; n < into.size() && !Incoming.empty(); ++n) {
            into[n] = Incoming.front();
            Incoming.pop_front();
        }
        return n;
    }

    void Feed(std::initializer_list<int> bytes) {
        for (const int one : bytes)
            Incoming.push_back(static_cast<std::uint8_t>(one));
    }
    // What was written since the last call, two upper-case digits and a blank a byte.
    std::string Taken() { return Equipment::Hex(std::exchange(Written, {})); }
    // Maps it to COM1 and opens that, as the serial thread would.
    void Open() {
        PlatformControl::MapPort("COM1", this);
        Serial.Port =
            CreateFileA("COM1", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    }
};
