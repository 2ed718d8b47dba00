// What the equipment wants of the system, and each system has in its own way: posix.cpp or windows.cpp, whichever the
// build takes.
#pragma once

#include "equipment/frames.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Equipment {

// A serial port as the card's side, or the far end of a pseudo-terminal; open or not. Nothing here waits, but Wait.
class Port {
public:
    Port();
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    // A new pseudo-terminal in raw mode, whose other end `path` names; that end stays open here too, so that a provider may
    // close and open it as often as it likes. Gives "", or what went wrong: a system may have none.
    std::string OpenTerminal(std::string& path);
    // A terminal or serial port that is there: 8 data bits, no parity, 2 stop bits, sent only while CTS is on, RTS on.
    // A speed that ports do not have is taken for 9600. Gives "", or what went wrong.
    std::string OpenDevice(const std::string& path, std::uint32_t bitsPerSecond);
    bool IsOpen() const;
    void Close();

    // Gives how many bytes came, -1 when the port is gone, also where there is no room.
    int Read(std::span<std::uint8_t> room);
    // False when the port is gone. What a line that takes nothing has no room for is lost.
    bool Write(ByteSpan bytes);
    // The card's RTS is the provider's CTS. A port without the wire shows nothing.
    void SetRts(bool on);
    // Waits until there is something to read, here (if it is open, and `reading`) or on one of `watch`, for at most
    // `timeoutMs`. Gives those of `watch` that have something, or their end. Where the system cannot wait for both, it
    // comes back early and gives none.
    std::vector<int> Wait(int timeoutMs, bool reading, const std::vector<int>& watch);

private:
    struct State;
    std::unique_ptr<State> state;
};

// Before anything is written: as the provider's texts, what is read and written is UTF-8, and lines end alike.
void PrepareStreams();

// Standard input, taken as it comes.
class Input {
public:
    Input();
    // To be watched by Port::Wait; -1 = cannot be.
    int Handle() const;
    // Appends what has come. False at its end.
    bool Read(std::string& text);
};

}  // namespace Equipment
