#include "link/port_io.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t TRANSFER_MAX = 1024;  // bytes; no frame is longer, nor is what a tick reads at once
constexpr DWORD STILL_PENDING = 0x103;      // STATUS_PENDING, while the system works on a transfer

struct Transfer {
    OVERLAPPED overlapped{};
    std::array<std::uint8_t, TRANSFER_MAX> bytes{};

    // Written by whichever thread the system ends it on.
    bool Over() { return static_cast<DWORD>(std::atomic_ref(overlapped.Internal).load()) != STILL_PENDING; }
    void Begin(HANDLE event) {
        overlapped = OVERLAPPED{};
        overlapped.hEvent = event;
    }
};

std::array<Transfer, 16> Writes;
std::size_t LastWrite = 0;
HANDLE WriteEvent = nullptr;  // auto-reset: one of the writes is over

Transfer Reading;
bool ReadOpen = false;  // the read's bytes have not all been taken
std::size_t ReadTaken = 0;
HANDLE ReadEvent = nullptr;  // manual reset

DWORD WaitLeft = PORT_WAIT_MS;

// False when the allowance has run out.
bool WaitForPort(HANDLE event) {
    const std::uint32_t began = timeGetTime();
    const bool signalled = WaitForSingleObject(event, WaitLeft) == WAIT_OBJECT_0;
    WaitLeft -= std::min(WaitLeft, timeGetTime() - began);
    return signalled;
}

bool WritesPending() {
    return !std::all_of(Writes.begin(), Writes.end(), [](Transfer& write) { return write.Over(); });
}

// The free place that was used longest ago, or null.
Transfer* FreeWrite() {
    for (std::size_t i = 1; i <= Writes.size(); ++i) {
        const std::size_t place = (LastWrite + i) % Writes.size();
        if (Writes[place].Over()) {
            LastWrite = place;
            return &Writes[place];
        }
    }
    return nullptr;
}

// False when there is nothing to read, or the port refuses; `failed` tells.
bool BeginRead(HANDLE port, std::size_t room, bool& failed) {
    COMSTAT status{};  // some drivers leave it unwritten
    DWORD errors = 0;
    ClearCommError(port, &errors, &status);
    // Asking for no more than is there completes at once nearly everywhere. Without time left to wait for a driver that
    // is slower, the bytes wait in the port.
    const DWORD wanted = std::min(static_cast<DWORD>(std::min(room, TRANSFER_MAX)), status.cbInQue);
    if (wanted == 0 || WaitLeft == 0)
        return false;
    Reading.Begin(ReadEvent);
    DWORD got = 0;
    ReadOpen =
        ReadFile(port, Reading.bytes.data(), wanted, &got, &Reading.overlapped) || GetLastError() == ERROR_IO_PENDING;
    ReadTaken = 0;
    if (!ReadOpen)
        Reading.overlapped.Internal = 0;  // refused at once: the system holds nothing of it
    failed = !ReadOpen;
    return ReadOpen;
}

void CloseEvent(HANDLE& event) {
    if (event != nullptr)
        CloseHandle(std::exchange(event, nullptr));
}

}  // namespace

void RenewPortWait() {
    WaitLeft = PORT_WAIT_MS;
}

void BeginTransfers() {
    CloseEvent(ReadEvent);
    CloseEvent(WriteEvent);
    ReadEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    WriteEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
}

void ClosePort(HANDLE& port) {
    const DWORD error = GetLastError();
    PurgeComm(port, PURGE_TXABORT | PURGE_RXABORT | PURGE_TXCLEAR | PURGE_RXCLEAR);
    CloseHandle(std::exchange(port, INVALID_HANDLE_VALUE));
    // With the handle go its transfers. A thread that has ended may have left some without a final status.
    for (Transfer& write : Writes)
        write.overlapped.Internal = 0;
    Reading.overlapped.Internal = 0;
    ReadOpen = false;
    CloseEvent(ReadEvent);
    CloseEvent(WriteEvent);
    SetLastError(error);
}

bool WritePort(HANDLE port, std::span<const std::uint8_t> bytes) {
    if (bytes.empty())
        return true;
    Transfer* const write = bytes.size() <= TRANSFER_MAX ? FreeWrite() : nullptr;
    if (write == nullptr) {
        SetLastError(ERROR_IO_INCOMPLETE);
        return false;
    }
    std::copy(bytes.begin(), bytes.end(), write->bytes.begin());
    write->Begin(WriteEvent);
    DWORD written = 0;
    if (WriteFile(port, write->bytes.data(), static_cast<DWORD>(bytes.size()), &written, &write->overlapped) ||
        GetLastError() == ERROR_IO_PENDING)
        return true;
    write->overlapped.Internal = 0;
    return false;
}

void FlushWrites(HANDLE port) {
    while (WritesPending() && WaitForPort(WriteEvent)) {
    }
    if (WritesPending())
        PurgeComm(port, PURGE_TXABORT | PURGE_TXCLEAR);
}

int ReadPort(HANDLE port, std::span<std::uint8_t> room) {
    bool failed = false;
    if (!ReadOpen && !BeginRead(port, room.size(), failed))
        return failed ? -1 : 0;
    if (!Reading.Over() && !WaitForPort(ReadEvent))
        CancelIoEx(port, &Reading.overlapped);
    if (!Reading.Over())
        return 0;
    DWORD got = 0;
    const bool whole = GetOverlappedResult(port, &Reading.overlapped, &got, FALSE) != 0;
    // What it got before it was called off counts too. Ticks inside a box may have filled the room that it asked for.
    const std::size_t left = got - std::min<std::size_t>(got, ReadTaken);  // a result that is refused gives none
    const std::size_t taken = std::min(left, room.size());
    std::memcpy(room.data(), Reading.bytes.data() + ReadTaken, taken);
    ReadTaken += taken;
    ReadOpen = ReadTaken < got;
    return taken == 0 && !whole && !ReadOpen ? -1 : static_cast<int>(taken);
}

int CheckSerialError(HANDLE port) {
    if (port == INVALID_HANDLE_VALUE)
        return -1;
    DWORD errors = 0;
    COMSTAT status{};
    ClearCommError(port, &errors, &status);
    return 0;
}
