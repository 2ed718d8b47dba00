#include "equipment/loop.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace Equipment {

Loop::Loop(Machine& m) : machine(m) {}

std::string Loop::Open() {
    device = false;
    ctsLow = false;
    return port.OpenTerminal(path);
}

std::string Loop::OpenDevice(const std::string& name) {
    device = true;
    ctsLow = false;
    path = name;
    return port.OpenDevice(name, machine.pacing.bitsPerSecond);
}

bool Loop::Step(int timeoutMs, const std::vector<int>& watch) {
    if (device && !port.IsOpen())
        Reopen();
    if (Move(timeoutMs, watch))
        return true;
    port.Close();
    if (!device)
        return false;
    machine.Hush();
    triedMs = Now();
    if (onDevice)
        onDevice(false);
    return true;
}

// False when the port is gone. One that is closed takes its bytes to nowhere.
bool Loop::Move(int timeoutMs, const std::vector<int>& watch) {
    std::array<std::uint8_t, 512> buffer;
    readable.clear();
    const bool open = port.IsOpen();
    if (const std::size_t count = machine.Read(buffer, Now()); count > 0 && open)
        if (!port.Write(ByteSpan(buffer).first(count)))
            return false;
    ShowCts();

    std::uint32_t due = std::min(machine.NextDue(Now()), static_cast<std::uint32_t>(std::max(timeoutMs, 0)));
    if (!open)
        due = std::min(due, reopenMs);
    const bool reading = !machine.faults.ctsLow;  // what the provider writes meanwhile stays with the system
    readable = port.Wait(static_cast<int>(due), reading, watch);
    if (!open)
        return true;
    const int count = port.Read(std::span(buffer).first(reading ? buffer.size() : 0));
    if (count > 0)
        machine.Receive(ByteSpan(buffer).first(static_cast<std::size_t>(count)), Now());
    return count >= 0;
}

void Loop::Reopen() {
    if (Now() - triedMs < reopenMs)
        return;
    triedMs = Now();
    if (!port.OpenDevice(path, machine.pacing.bitsPerSecond).empty())
        return;
    ctsLow = false;
    if (onDevice)
        onDevice(true);
}

void Loop::ShowCts() {
    if (!port.IsOpen() || machine.faults.ctsLow == ctsLow)
        return;
    ctsLow = machine.faults.ctsLow;
    port.SetRts(!ctsLow);
}

bool Loop::Readable(int file) const {
    return std::find(readable.begin(), readable.end(), file) != readable.end();
}

std::uint32_t Loop::Now() {
    using namespace std::chrono;
    return static_cast<std::uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace Equipment
