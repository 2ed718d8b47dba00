// Serial ports: devices in process, and what the system has (OpenTerminal).
//
// A port may be as unkind as its documentation allows. What it has taken and not ended is a Transfer, with a time of the
// test clock at which it goes on: the clock stops there (NextTransfer) and lets it (RunTransfers). Devices are never
// called under Lock.
#include "platform/simulated/state.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace Simulated {

namespace {

using PlatformControl::PortRecord;

// A device in process, until Reset takes the port away.
struct DeviceWire : Wire {
    PlatformControl::PortDevice* device;
    explicit DeviceWire(PlatformControl::PortDevice* behind) : device(behind) {}
    ~DeviceWire() override {
        if (device != nullptr)
            device->Closed();
    }
    void Forget() override { device = nullptr; }
    DWORD Status(COMSTAT& status) override {
        const std::uint32_t now = timeGetTime();
        status.cbInQue = static_cast<DWORD>(device->Available(now));
        status.cbOutQue = static_cast<DWORD>(device->OutputPending(now));
        return 0;
    }
    DWORD Read(std::span<std::uint8_t> into, DWORD& got) override {
        got = static_cast<DWORD>(device->Read(into, timeGetTime()));
        return 0;
    }
    DWORD Write(std::span<const std::uint8_t> bytes, bool&) override {
        device->Write(bytes, timeGetTime());
        return 0;
    }
};

constexpr DWORD STILL_PENDING = 0x103;     // OVERLAPPED::Internal of a transfer that is not over
constexpr DWORD FAILED_WITH = 0xC0070000;  // of one that failed, with the error in its low half
constexpr std::size_t PIECE = 3;           // bytes that go in or out together where transfers come in pieces
constexpr std::uint32_t READ_MS = 5;       // how long a read takes that is over later

// A read or write that the port has taken and not ended. A write goes out piece by piece.
struct Transfer {
    OVERLAPPED* overlapped;
    std::uint8_t* into;               // where a read's bytes go when it ends; null: a write
    std::vector<std::uint8_t> bytes;  // of a read they are out of the wire already
    std::size_t sent = 0;
    std::optional<std::uint32_t> due{};  // when it goes on or ends; none: only by being called off
    DWORD error = 0;                     // of one that is called off
};

// A port is used by several threads of the product, never by two at once: its own lock keeps a close from another
// thread out of the middle of a call. Below it, what the clock moves is used with Lock held.
struct OpenPort : Object {
    std::string name;
    std::unique_ptr<Wire> wire;
    std::mutex use;

    DWORD lost = 0;  // the device is gone: the error of every call
    DWORD lineErrors = 0;
    bool aborted = false;         // by a line error: nothing goes on before ClearCommError
    std::deque<Transfer> writes;  // the first one is going out
    std::optional<Transfer> read;
    std::vector<Transfer> calledOff;  // and not over yet
    std::vector<std::uint8_t> sent;   // the device has not been given them yet
    std::deque<std::uint8_t> stale;   // in front of what the device has

    void Forget() override {
        wire->Forget();
        writes.clear();
        read.reset();
        calledOff.clear();
        sent.clear();
    }
    OpenPort();
    ~OpenPort() override;
};

std::map<std::string, PortRecord>& Records = *new std::map<std::string, PortRecord>;
std::map<std::string, PlatformControl::PortDevice*>& Devices = *new std::map<std::string, PlatformControl::PortDevice*>;
std::map<std::string, std::string>& Terminals = *new std::map<std::string, std::string>;
std::map<std::string, bool>& InUse = *new std::map<std::string, bool>;
std::vector<OpenPort*>& Opened = *new std::vector<OpenPort*>;

// --- transfers, with Lock held

DWORD StatusOf(OVERLAPPED& overlapped) {
    return static_cast<DWORD>(std::atomic_ref(overlapped.Internal).load());
}

// A transfer that is over: its outcome, and its event.
void Complete(OVERLAPPED* overlapped, std::size_t count, DWORD error) {
    if (overlapped == nullptr)
        return;
    overlapped->InternalHigh = count;
    std::atomic_ref(overlapped->Internal).store(error == 0 ? 0 : FAILED_WITH | error);
    Signal(overlapped->hEvent, true);
}

void Begin(OVERLAPPED& overlapped) {
    overlapped.InternalHigh = 0;
    std::atomic_ref(overlapped.Internal).store(STILL_PENDING);
    Signal(overlapped.hEvent, false);
}

void End(Transfer& transfer, DWORD error) {
    if (transfer.into != nullptr)
        std::copy(transfer.bytes.begin(), transfer.bytes.end(), transfer.into);
    Complete(transfer.overlapped, transfer.into != nullptr ? transfer.bytes.size() : transfer.sent, error);
}

std::size_t PieceOf(const OpenPort& port, const Transfer& write) {
    const std::size_t left = write.bytes.size() - write.sent;
    return Records[port.name].How == PlatformControl::Transfers::InPieces ? std::min(left, PIECE) : left;
}

// When the next piece of a write is out, at 9,600 baud.
std::uint32_t PieceOut(const OpenPort& port, const Transfer& write, std::uint32_t now) {
    return now + 1 + static_cast<std::uint32_t>(PieceOf(port, write) * 11 * 1000 / 9600);
}

bool Held(const OpenPort& port) {
    return Records[port.name].CtsLow || port.aborted;
}

void GoOn(OpenPort& port, std::uint32_t now) {
    const auto due = [&](const Transfer& transfer) { return transfer.due && Passed(now, *transfer.due); };
    if (port.read && due(*port.read)) {
        End(*port.read, 0);
        port.read.reset();
    }
    while (!port.writes.empty() && !Held(port) && due(port.writes.front())) {
        Transfer& write = port.writes.front();
        const auto from = write.bytes.begin() + static_cast<std::ptrdiff_t>(write.sent);
        const std::size_t piece = PieceOf(port, write);
        port.sent.insert(port.sent.end(), from, from + static_cast<std::ptrdiff_t>(piece));
        write.sent += piece;
        if (write.sent == write.bytes.size()) {
            End(write, 0);
            port.writes.pop_front();
        }
        if (!port.writes.empty())
            port.writes.front().due = PieceOut(port, port.writes.front(), now);
    }
    std::erase_if(port.calledOff, [&](Transfer& transfer) {
        if (!due(transfer))
            return false;
        End(transfer, transfer.error);
        return true;
    });
}

// Those of the port's transfers that `which` names are over with the error, at once or as late as a test wants.
template <class Which> void CallOff(OpenPort& port, DWORD error, std::uint32_t late, Which which) {
    std::vector<Transfer> off;
    for (Transfer& write : port.writes)
        if (which(write))
            off.push_back(std::move(write));
    const bool fewer = std::erase_if(port.writes, [](const Transfer& write) { return write.bytes.empty(); }) > 0;
    if (port.read && which(*port.read))
        off.push_back(*std::exchange(port.read, {}));
    for (Transfer& transfer : off) {
        if (late == 0) {
            End(transfer, error);
            continue;
        }
        transfer.due = NowLocked() + late;
        transfer.error = error;
        port.calledOff.push_back(std::move(transfer));
    }
    if (fewer && !port.writes.empty())
        port.writes.front().due = PieceOut(port, port.writes.front(), NowLocked());
}

void CallOffAll(OpenPort& port, DWORD error) {
    CallOff(port, error, 0, [](const Transfer&) { return true; });
    for (Transfer& transfer : std::exchange(port.calledOff, {}))
        End(transfer, error);
}

// --- ports

OpenPort::OpenPort() {
    Opened.push_back(this);
}

OpenPort::~OpenPort() {
    {
        const Guard guard(Lock);
        std::erase(Opened, this);
        CallOffAll(*this, ERROR_OPERATION_ABORTED);
    }
    bool pending = false;
    if (wire != nullptr && lost == 0 && !sent.empty())
        wire->Write(sent, pending);
    wire = nullptr;
    const Guard guard(Lock);
    ++Records[name].Closes;
    InUse[name] = false;
}

std::string TerminalOf(const std::string& name) {
    if (const auto found = Terminals.find(name); found != Terminals.end())
        return found->second;
    if (const char* path = std::getenv(("ZT_" + name).c_str()))
        return path;
    return {};
}

// The open port behind a handle, kept alive by the caller; null with the error set, also when its device is gone.
// A call that succeeds leaves any last error behind it: who wants one has taken it before.
std::shared_ptr<OpenPort> PortOf(HANDLE handle) {
    const Guard guard(Lock);
    auto port = std::dynamic_pointer_cast<OpenPort>(Find(handle));
    if (port == nullptr || port->lost != 0) {
        SetLastError(port == nullptr ? ERROR_INVALID_HANDLE : port->lost);
        return nullptr;
    }
    GoOn(*port, NowLocked());
    SetLastError(ERROR_SUCCESS);
    return port;
}

// What a test has set for the port, as it is now.
PortRecord RecordOf(const OpenPort& port) {
    const Guard guard(Lock);
    return Records[port.name];
}

template <class Change> void Note(const OpenPort& port, Change change) {
    const Guard guard(Lock);
    change(Records[port.name]);
}

// Gives the device what has gone out since the last call. With the port's own lock held.
void Deliver(OpenPort& port) {
    std::vector<std::uint8_t> sent;
    {
        const Guard guard(Lock);
        sent.swap(port.sent);
    }
    bool pending = false;
    if (!sent.empty())
        port.wire->Write(sent, pending);
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// How transfers go in every port, unless a test says otherwise.
PlatformControl::Transfers UsualTransfers() {
    const char* const how = std::getenv("ZT_TRANSFERS");
    if (how == nullptr)
        return PlatformControl::Transfers::AtOnce;
    return std::strcmp(how, "later") == 0 ? PlatformControl::Transfers::Later : PlatformControl::Transfers::InPieces;
}

}  // namespace

bool NextTransfer(std::uint32_t now, std::uint32_t& due) {
    bool found = false;
    const auto consider = [&](const Transfer& transfer) {
        if (!transfer.due)
            return;
        const std::uint32_t when = Passed(now, *transfer.due) ? now : *transfer.due;
        if (!found || static_cast<std::int32_t>(when - due) < 0)
            due = when;
        found = true;
    };
    for (OpenPort* const port : Opened) {
        if (!port->writes.empty() && !Held(*port))
            consider(port->writes.front());
        if (port->read)
            consider(*port->read);
        for (const Transfer& transfer : port->calledOff)
            consider(transfer);
    }
    return found;
}

void RunTransfers(Guard& guard, std::uint32_t now) {
    for (OpenPort* const port : Opened) {
        GoOn(*port, now);
        guard.unlock();
        Deliver(*port);
        guard.lock();
    }
}

void ResetPorts() {
    Records.clear();
    for (const char* const name : {"COM1", "COM2", "COM3", "COM4"})
        Records[name].How = UsualTransfers();
    Devices.clear();
    Terminals.clear();
    InUse.clear();
}

}  // namespace Simulated

using namespace Simulated;

namespace {

HANDLE Refuse(DWORD error) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

}  // namespace

HANDLE WINAPI CreateFileA(LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*, DWORD, DWORD flags, HANDLE) {
    if (Fails("CreateFileA"))
        return INVALID_HANDLE_VALUE;
    PlatformControl::PortDevice* device = nullptr;
    std::string path;
    {
        const Guard guard(Lock);
        PortRecord& record = Records[name];
        record.Access = access;
        record.Share = share;
        record.Flags = flags;
        if (record.OpenError != 0)
            return Refuse(record.OpenError);
        if (record.PulledOut || !Passed(NowLocked(), record.BackAt))
            return Refuse(ERROR_FILE_NOT_FOUND);
        if (InUse[name])
            return Refuse(ERROR_ACCESS_DENIED);
        if (const auto found = Devices.find(name); found != Devices.end())
            device = found->second;
        else
            path = TerminalOf(name);
        InUse[name] = true;
    }
    std::unique_ptr<Wire> wire = device != nullptr ? std::make_unique<DeviceWire>(device) : OpenTerminal(path);
    const Guard guard(Lock);
    if (wire == nullptr) {
        InUse[name] = false;
        return INVALID_HANDLE_VALUE;
    }
    auto port = std::make_shared<OpenPort>();
    PortRecord& record = Records[name];
    port->name = name;
    port->wire = std::move(wire);
    port->stale.assign(record.Stale.begin(), record.Stale.end());
    record.Stale.clear();
    ++record.Opens;
    return Register(port);
}

BOOL WINAPI GetCommState(HANDLE handle, DCB* dcb) {
    if (Fails("GetCommState"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PortRecord record = RecordOf(*port);
    if (record.GetStateFails)
        return Fail(ERROR_IO_DEVICE);
    *dcb = record.Dcb;
    dcb->DCBlength = sizeof *dcb;
    return TRUE;
}

BOOL WINAPI SetCommState(HANDLE handle, DCB* dcb) {
    if (Fails("SetCommState"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    if (RecordOf(*port).SetStateFails)
        return Fail(ERROR_IO_DEVICE);
    if (const DWORD error = port->wire->SetState(*dcb); error != 0)
        return Fail(error);
    Note(*port, [&](PortRecord& record) { record.Dcb = *dcb; });
    return TRUE;
}

BOOL WINAPI GetCommTimeouts(HANDLE handle, COMMTIMEOUTS* timeouts) {
    if (Fails("GetCommTimeouts"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    *timeouts = RecordOf(*port).Timeouts;
    return TRUE;
}

// Reads never wait here whatever the time-outs say; they are kept for the asking.
BOOL WINAPI SetCommTimeouts(HANDLE handle, COMMTIMEOUTS* timeouts) {
    if (Fails("SetCommTimeouts"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    Note(*port, [&](PortRecord& record) { record.Timeouts = *timeouts; });
    return TRUE;
}

BOOL WINAPI EscapeCommFunction(HANDLE handle, DWORD function) {
    if (Fails("EscapeCommFunction"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    if (function != SETRTS && function != CLRRTS)
        return Fail(ERROR_INVALID_PARAMETER);
    Note(*port, [&](PortRecord& record) { record.Rts = function == SETRTS; });
    const DWORD error = port->wire->SetRts(function == SETRTS);
    return error == 0 ? TRUE : Fail(error);
}

BOOL WINAPI ClearCommError(HANDLE handle, DWORD* errors, COMSTAT* status) {
    if (errors != nullptr)
        *errors = 0;
    COMSTAT ignored;
    COMSTAT& told = status != nullptr ? *status : ignored;
    told = COMSTAT{};
    if (Fails("ClearCommError"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const std::lock_guard use(port->use);
    Deliver(*port);
    if (const DWORD error = port->wire->Status(told); error != 0)
        return Fail(error);
    const Guard guard(Lock);
    if (Records[port->name].How != PlatformControl::Transfers::AtOnce)
        told.cbOutQue = 0;  // the line's time has passed before the device got the bytes
    if (errors != nullptr)
        *errors = port->lineErrors;
    port->lineErrors = 0;
    port->aborted = false;
    for (const Transfer& write : port->writes)
        told.cbOutQue += static_cast<DWORD>(write.bytes.size() - write.sent);
    told.fCtsHold = Records[port->name].CtsLow && !port->writes.empty();
    told.cbInQue += static_cast<DWORD>(port->stale.size());
    return TRUE;
}

namespace {

// Takes what is there, the oldest first.
DWORD Take(OpenPort& port, std::span<std::uint8_t> into, DWORD& got) {
    got = 0;
    for (; got < into.size() && !port.stale.empty(); port.stale.pop_front())
        into[got++] = port.stale.front();
    DWORD more = 0;
    const DWORD error = got == into.size() ? 0 : port.wire->Read(into.subspan(got), more);
    got += more;
    return error;
}

}  // namespace

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD wanted, DWORD* got, OVERLAPPED* overlapped) {
    *got = 0;
    if (Fails("ReadFile"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PortRecord record = RecordOf(*port);
    if (record.ReadFails || port->aborted)
        return Fail(port->aborted ? ERROR_OPERATION_ABORTED : ERROR_IO_DEVICE);
    const std::lock_guard use(port->use);
    Deliver(*port);
    if (record.How == PlatformControl::Transfers::InPieces)
        wanted = std::min(wanted, static_cast<DWORD>(PIECE));
    const bool pends = record.ReadPends || record.How == PlatformControl::Transfers::Later;
    if (overlapped == nullptr || !pends) {
        const DWORD error = Take(*port, {static_cast<std::uint8_t*>(buffer), wanted}, *got);
        const Guard guard(Lock);
        if (error == 0)
            Complete(overlapped, *got, 0);
        return error == 0 ? TRUE : Fail(error);
    }
    std::vector<std::uint8_t> bytes(wanted);
    DWORD count = 0;
    if (const DWORD error = Take(*port, bytes, count); error != 0)
        return Fail(error);
    bytes.resize(count);
    const Guard guard(Lock);
    Begin(*overlapped);
    port->read = Transfer{overlapped, static_cast<std::uint8_t*>(buffer), std::move(bytes)};
    if (!record.ReadPends)
        port->read->due = NowLocked() + READ_MS;
    return Fail(ERROR_IO_PENDING);
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID data, DWORD count, DWORD* written, OVERLAPPED* overlapped) {
    *written = 0;
    if (Fails("WriteFile"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PortRecord record = RecordOf(*port);
    if (record.WriteFails || port->aborted)
        return Fail(port->aborted ? ERROR_OPERATION_ABORTED : ERROR_IO_DEVICE);
    const std::lock_guard use(port->use);
    Deliver(*port);
    const std::span bytes(static_cast<const std::uint8_t*>(data), count);
    if (overlapped != nullptr) {
        const Guard guard(Lock);
        if (record.How != PlatformControl::Transfers::AtOnce || record.CtsLow || !port->writes.empty()) {
            Begin(*overlapped);
            port->writes.push_back({overlapped, nullptr, {bytes.begin(), bytes.end()}});
            if (port->writes.size() == 1)
                port->writes.front().due = PieceOut(*port, port->writes.front(), NowLocked());
            return Fail(ERROR_IO_PENDING);
        }
    }
    bool pending = false;
    if (const DWORD error = port->wire->Write(bytes, pending); error != 0)
        return Fail(error);
    const Guard guard(Lock);
    Complete(overlapped, count, 0);
    if (pending)
        return Fail(ERROR_IO_PENDING);
    *written = count;
    return TRUE;
}

BOOL WINAPI GetOverlappedResult(HANDLE handle, OVERLAPPED* overlapped, DWORD* count, BOOL wait) {
    *count = 0;
    if (Fails("GetOverlappedResult"))
        return FALSE;
    Guard guard(Lock);
    const std::function<bool()> over = [&] { return StatusOf(*overlapped) != STILL_PENDING; };
    if (wait && !over()) {
        std::uint32_t due = 0;
        if (!NextTransfer(NowLocked(), due))
            NeverEnds("GetOverlappedResult");
        WaitUntil(guard, INFINITE, over);
    }
    if (!over())
        return Fail(ERROR_IO_INCOMPLETE);
    *count = static_cast<DWORD>(overlapped->InternalHigh);
    const DWORD status = StatusOf(*overlapped);
    if (std::dynamic_pointer_cast<OpenPort>(Find(handle)) == nullptr)
        return Fail(ERROR_INVALID_HANDLE);
    return status == 0 ? TRUE : Fail(status & 0xFFFF);
}

BOOL WINAPI CancelIoEx(HANDLE handle, OVERLAPPED* overlapped) {
    if (Fails("CancelIoEx"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const Guard guard(Lock);
    CallOff(*port, ERROR_OPERATION_ABORTED, Records[port->name].CallOffMs,
            [&](const Transfer& transfer) { return overlapped == nullptr || transfer.overlapped == overlapped; });
    return TRUE;
}

BOOL WINAPI PurgeComm(HANDLE handle, DWORD flags) {
    if (Fails("PurgeComm"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const std::lock_guard use(port->use);
    Deliver(*port);
    {
        const Guard guard(Lock);
        CallOff(*port, ERROR_OPERATION_ABORTED, Records[port->name].CallOffMs, [&](const Transfer& transfer) {
            return (flags & (transfer.into != nullptr ? PURGE_RXABORT : PURGE_TXABORT)) != 0;
        });
        if ((flags & PURGE_RXCLEAR) != 0)
            port->stale.clear();
    }
    port->wire->Purge((flags & PURGE_RXCLEAR) != 0, (flags & PURGE_TXCLEAR) != 0);
    return TRUE;
}

// Waits until all pending writes are out: subject to flow control, and to no time-out. What a terminal has taken goes
// out by itself.
BOOL WINAPI FlushFileBuffers(HANDLE handle) {
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    Guard guard(Lock);
    if (!port->writes.empty() && Held(*port))
        NeverEnds("FlushFileBuffers, CTS of " + port->name + " being low,");
    WaitUntil(guard, INFINITE, [&] { return port->writes.empty(); });
    return TRUE;
}

void PlatformControl::MapPort(const std::string& name, PortDevice* device) {
    const Guard guard(Lock);
    if (device == nullptr)
        Devices.erase(name);
    else
        Devices[name] = device;
}

void PlatformControl::MapPortToTerminal(const std::string& name, const std::string& path) {
    const Guard guard(Lock);
    if (path.empty())
        Terminals.erase(name);
    else
        Terminals[name] = path;
}

PortRecord& PlatformControl::Port(const std::string& name) {
    const Guard guard(Lock);
    return Records[name];
}

void PlatformControl::PullOut(const std::string& name, DWORD error) {
    const Guard guard(Lock);
    Records[name].PulledOut = true;
    for (OpenPort* const port : Opened)
        if (port->name == name) {
            CallOffAll(*port, error);
            port->lost = error;
        }
}

void PlatformControl::PutBack(const std::string& name, std::uint32_t after, const std::vector<std::uint8_t>& stale) {
    const Guard guard(Lock);
    PortRecord& record = Records[name];
    record.PulledOut = false;
    record.BackAt = NowLocked() + after;
    record.Stale = stale;
}

void PlatformControl::LineError(const std::string& name, DWORD errors, std::uint8_t garbage) {
    const Guard guard(Lock);
    for (OpenPort* const port : Opened)
        if (port->name == name) {
            port->lineErrors |= errors;
            port->stale.push_back(garbage);
            if (Records[name].Dcb.fAbortOnError != 0) {
                port->aborted = true;
                CallOffAll(*port, ERROR_OPERATION_ABORTED);
            }
        }
}
