// The equipment on a pseudo-terminal, or on a serial port.
//
//     Machine machine;
//     Loop loop(machine);
//     if (auto error = loop.Open(); !error.empty()) ...
//     ... give loop.Path() to the provider ...
//     while (...) loop.Step(50);
//
// Bytes that nobody reads are dropped when the port is full. A serial port may be unplugged and plugged in again.
#pragma once

#include "equipment/equipment.h"
#include "equipment/system.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Equipment {

struct Loop {
    explicit Loop(Machine& machine);

    // A new pseudo-terminal. Gives "", or what went wrong.
    std::string Open();
    // A terminal or serial port that is there, at the machine's speed. Gives "", or what went wrong. Once it was open,
    // one that goes away is opened anew as soon as it is there again.
    std::string OpenDevice(const std::string& path);
    // What the provider opens; of a device: its name.
    const std::string& Path() const { return path; }
    // Moves bytes both ways for at most `timeoutMs`, until something has moved or one of `watch` can be read. False
    // when the pseudo-terminal is gone.
    bool Step(int timeoutMs, const std::vector<int>& watch = {});
    // Whether the last Step saw something to read on one of `watch` (or its end).
    bool Readable(int file) const;

    // A device was lost, or is back.
    std::function<void(bool there)> onDevice;
    std::uint32_t reopenMs = 1000;  // between two tries to open a lost device

    // The millisecond clock that Step uses: give it to Execute.
    static std::uint32_t Now();

private:
    Machine& machine;
    Port port;
    std::string path;
    bool device = false;
    std::uint32_t triedMs = 0;  // when a lost device was last tried
    std::vector<int> readable;
    bool ctsLow = false;  // as last shown

    bool Move(int timeoutMs, const std::vector<int>& watch);
    void Reopen();
    void ShowCts();
};

}  // namespace Equipment
