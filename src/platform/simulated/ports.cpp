// Serial ports: devices in process, and what the system has (OpenTerminal).
#include "platform/simulated/state.h"

#include <cstdlib>
#include <map>
#include <mutex>
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

// A port is used by several threads of the product, never by two at once: its own lock keeps a close from another
// thread out of the middle of a call.
struct OpenPort : Object {
    std::string name;
    std::unique_ptr<Wire> wire;
    std::mutex use;
    void Forget() override { wire->Forget(); }
    ~OpenPort() override;
};

std::map<std::string, PortRecord>& Records = *new std::map<std::string, PortRecord>;
std::map<std::string, PlatformControl::PortDevice*>& Devices = *new std::map<std::string, PlatformControl::PortDevice*>;
std::map<std::string, std::string>& Terminals = *new std::map<std::string, std::string>;
std::map<std::string, bool>& InUse = *new std::map<std::string, bool>;

OpenPort::~OpenPort() {
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

// The open port behind a handle, kept alive by the caller; null with the error set.
std::shared_ptr<OpenPort> PortOf(HANDLE handle) {
    const Guard guard(Lock);
    auto port = std::dynamic_pointer_cast<OpenPort>(Find(handle));
    if (port == nullptr)
        SetLastError(ERROR_INVALID_HANDLE);
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

// A transfer that is over: its outcome, and its event.
void Complete(OVERLAPPED* overlapped, DWORD count) {
    if (overlapped == nullptr)
        return;
    overlapped->Internal = 0;
    overlapped->InternalHigh = count;
    if (overlapped->hEvent != nullptr)
        SetEvent(overlapped->hEvent);
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace

void ResetPorts() {
    Records.clear();
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
    port->name = name;
    port->wire = std::move(wire);
    ++Records[name].Opens;
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
    const DWORD error = port->wire->Status(told);
    return error == 0 ? TRUE : Fail(error);
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD wanted, DWORD* got, OVERLAPPED* overlapped) {
    *got = 0;
    if (Fails("ReadFile"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PortRecord record = RecordOf(*port);
    if (record.ReadFails)
        return Fail(ERROR_IO_DEVICE);
    const std::lock_guard use(port->use);
    if (const DWORD error = port->wire->Read({static_cast<std::uint8_t*>(buffer), wanted}, *got); error != 0)
        return Fail(error);
    if (record.ReadPends && overlapped != nullptr) {
        overlapped->InternalHigh = std::exchange(*got, 0);
        return Fail(ERROR_IO_PENDING);
    }
    Complete(overlapped, *got);
    return TRUE;
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID data, DWORD count, DWORD* written, OVERLAPPED* overlapped) {
    *written = 0;
    if (Fails("WriteFile"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PortRecord record = RecordOf(*port);
    if (record.WriteFails)
        return Fail(ERROR_IO_DEVICE);
    const std::lock_guard use(port->use);
    bool pending = false;
    if (const DWORD error = port->wire->Write({static_cast<const std::uint8_t*>(data), count}, pending); error != 0)
        return Fail(error);
    Complete(overlapped, count);
    if (pending || record.WritePends)
        return Fail(ERROR_IO_PENDING);
    *written = count;
    return TRUE;
}

// Reads and writes have no more use for their buffers when they return, those reported as pending included.
BOOL WINAPI GetOverlappedResult(HANDLE handle, OVERLAPPED* overlapped, DWORD* count, BOOL) {
    *count = 0;
    if (Fails("GetOverlappedResult"))
        return FALSE;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    *count = static_cast<DWORD>(overlapped->InternalHigh);
    return RecordOf(*port).ReadPends ? Fail(ERROR_OPERATION_ABORTED) : TRUE;
}

BOOL WINAPI CancelIoEx(HANDLE handle, OVERLAPPED*) {
    return !Fails("CancelIoEx") && PortOf(handle) != nullptr;
}

// Neither waits nor throws anything away: what has been taken goes out by itself.
BOOL WINAPI FlushFileBuffers(HANDLE handle) {
    return !Fails("FlushFileBuffers") && PortOf(handle) != nullptr;
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
