// The equipment on a pseudo-terminal, or on a real serial port.
//
//     Machine machine;
//     PtyLoop loop(machine);
//     if (auto error = loop.Open(); !error.empty()) ...
//     ... give loop.Path() to the provider ...
//     while (...) loop.Step(50);
//
// The slave side stays open here too, so that a provider may close and open it as often as it likes. Bytes that nobody
// reads are dropped when the terminal is full.
#pragma once

#include "equipment/equipment.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Equipment {

struct PtyLoop {
    explicit PtyLoop(Machine& machine);
    ~PtyLoop();
    PtyLoop(const PtyLoop&) = delete;
    PtyLoop& operator=(const PtyLoop&) = delete;

    // A new pseudo-terminal in raw mode. Gives "", or what went wrong.
    std::string Open();
    // A terminal or serial port that is there, raw, 8 data bits, 2 stop bits, at the machine's speed.
    std::string OpenDevice(const std::string& path);
    // What the provider opens.
    const std::string& Path() const { return path; }
    // Moves bytes both ways for at most `timeoutMs`, until something has moved or one of `watch` can be read. False
    // when the terminal is gone.
    bool Step(int timeoutMs, const std::vector<int>& watch = {});
    // Whether the last Step saw something to read on one of `watch` (or its end).
    bool Readable(int file) const;
    void Close();

    // The millisecond clock that Step uses: give it to Execute.
    static std::uint32_t Now();

private:
    Machine& machine;
    int master = -1;
    int slave = -1;  // kept open, never read
    std::string path;
    std::vector<int> readable;
    bool ctsLow = false;  // as last shown on a port that has the wire

    void ShowCts();
};

}  // namespace Equipment
