// Serial ports: terminal devices by termios, and devices in process.
#include "platform/posix/state.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Posix {

namespace {

using PlatformControl::PortRecord;

// A port is used by several threads of the product, never by two at once: its own lock keeps a close from another
// thread out of the middle of a call.
struct OpenPort : Object {
    std::string name;
    int fd = -1;                                    // a terminal ...
    PlatformControl::PortDevice* device = nullptr;  // ... or a device in process
    std::mutex use;
    std::vector<std::uint8_t> unsent;  // taken by a write, not yet by the terminal (CTS is low, or nobody reads)
    void Forget() override { device = nullptr; }
    ~OpenPort() override;
};

std::map<std::string, PortRecord>& Records = *new std::map<std::string, PortRecord>;
std::map<std::string, PlatformControl::PortDevice*>& Devices = *new std::map<std::string, PlatformControl::PortDevice*>;
std::map<std::string, std::string>& Terminals = *new std::map<std::string, std::string>;
std::map<std::string, bool>& InUse = *new std::map<std::string, bool>;

OpenPort::~OpenPort() {
    if (fd >= 0) {
        ioctl(fd, TIOCNXCL);
        close(fd);
    }
    if (device != nullptr)
        device->Closed();
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

DWORD ErrorOf(int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENXIO:
    case ENODEV: return ERROR_FILE_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EBUSY: return ERROR_ACCESS_DENIED;
    default: return ERROR_IO_DEVICE;
    }
}

speed_t SpeedOf(DWORD baud) {
    struct Speed {
        DWORD baud;
        speed_t constant;
    };
    static constexpr Speed Speeds[] = {{300, B300},     {600, B600},      {1200, B1200},   {2400, B2400},
                                       {4800, B4800},   {9600, B9600},    {19200, B19200}, {38400, B38400},
                                       {57600, B57600}, {115200, B115200}};
    for (const Speed& speed : Speeds)
        if (speed.baud == baud)
            return speed.constant;
    return B0;  // unknown: refused
}

// Raw, 8 data bits, speed, stop bits and CTS flow control as the DCB says. A pseudo-terminal takes what it can.
bool SetTerminal(int fd, const DCB& dcb) {
    termios settings{};
    const speed_t speed = SpeedOf(dcb.BaudRate);
    if (speed == B0 || tcgetattr(fd, &settings) != 0)
        return false;
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB | CRTSCTS | HUPCL);
    settings.c_cflag |= CS8 | CREAD | CLOCAL;
    if (dcb.StopBits == TWOSTOPBITS)
        settings.c_cflag |= CSTOPB;
    if (dcb.fOutxCtsFlow)
        settings.c_cflag |= CRTSCTS;
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
    if (tcsetattr(fd, TCSANOW, &settings) != 0)
        return false;
    const int line = TIOCM_DTR;
    if (dcb.fDtrControl == DTR_CONTROL_DISABLE)
        ioctl(fd, TIOCMBIC, &line);  // the open has raised it; a pseudo-terminal has none to lower
    return true;
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

// Whether the other side is gone for good: an adapter pulled out, a pseudo-terminal whose master is closed. Reads of
// such a terminal give nothing, for ever, and no error.
bool HungUp(int fd) {
    pollfd state{fd, 0, 0};
    return poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

// How much of it the terminal takes now; -1 on a failure.
ssize_t WriteSome(int fd, std::span<const std::uint8_t> bytes) {
    const ssize_t done = write(fd, bytes.data(), bytes.size());
    return done < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : done;
}

// Sends what earlier writes have left. False when the terminal fails.
bool SendUnsent(OpenPort& port) {
    if (port.unsent.empty())
        return true;
    const ssize_t done = WriteSome(port.fd, port.unsent);
    if (done > 0)
        port.unsent.erase(port.unsent.begin(), port.unsent.begin() + done);
    return done >= 0;
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

}  // namespace Posix

using namespace Posix;

namespace {

HANDLE Refuse(DWORD error) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

// Opens the terminal for this process alone; -1 with the error set. The lock on the file also keeps out other instances
// that run with rights that TIOCEXCL does not stop.
int OpenTerminal(const std::string& path) {
    const int fd = path.empty() ? -1 : open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        SetLastError(path.empty() ? ERROR_FILE_NOT_FOUND : ErrorOf(errno));
        return -1;
    }
    DWORD error = 0;
    if (!isatty(fd))
        error = ERROR_FILE_NOT_FOUND;
    else if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        error = ERROR_ACCESS_DENIED;
    if (error == 0) {
        ioctl(fd, TIOCEXCL);
        return fd;
    }
    close(fd);
    SetLastError(error);
    return -1;
}

}  // namespace

HANDLE WINAPI CreateFileA(LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*, DWORD, DWORD flags, HANDLE) {
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
    const int fd = device != nullptr ? -1 : OpenTerminal(path);
    const Guard guard(Lock);
    if (device == nullptr && fd < 0) {
        InUse[name] = false;
        return INVALID_HANDLE_VALUE;
    }
    auto port = std::make_shared<OpenPort>();
    port->name = name;
    port->fd = fd;
    port->device = device;
    ++Records[name].Opens;
    return Register(port);
}

BOOL WINAPI GetCommState(HANDLE handle, DCB* dcb) {
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
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    if (RecordOf(*port).SetStateFails)
        return Fail(ERROR_IO_DEVICE);
    if (port->fd >= 0 && !SetTerminal(port->fd, *dcb))
        return Fail(ERROR_INVALID_PARAMETER);
    Note(*port, [&](PortRecord& record) { record.Dcb = *dcb; });
    return TRUE;
}

BOOL WINAPI GetCommTimeouts(HANDLE handle, COMMTIMEOUTS* timeouts) {
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    *timeouts = RecordOf(*port).Timeouts;
    return TRUE;
}

// Reads never wait here whatever the time-outs say; they are kept for the asking.
BOOL WINAPI SetCommTimeouts(HANDLE handle, COMMTIMEOUTS* timeouts) {
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    Note(*port, [&](PortRecord& record) { record.Timeouts = *timeouts; });
    return TRUE;
}

BOOL WINAPI EscapeCommFunction(HANDLE handle, DWORD function) {
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    if (function != SETRTS && function != CLRRTS)
        return Fail(ERROR_INVALID_PARAMETER);
    Note(*port, [&](PortRecord& record) { record.Rts = function == SETRTS; });
    const int line = TIOCM_RTS;
    if (port->fd >= 0 && ioctl(port->fd, function == SETRTS ? TIOCMBIS : TIOCMBIC, &line) != 0)
        return Fail(ERROR_INVALID_PARAMETER);  // a pseudo-terminal has no such line
    return TRUE;
}

BOOL WINAPI ClearCommError(HANDLE handle, DWORD* errors, COMSTAT* status) {
    if (errors != nullptr)
        *errors = 0;
    if (status != nullptr)
        *status = COMSTAT{};
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const std::lock_guard use(port->use);
    if (port->device != nullptr) {
        if (status != nullptr) {
            const std::uint32_t now = timeGetTime();
            status->cbInQue = static_cast<DWORD>(port->device->Available(now));
            status->cbOutQue = static_cast<DWORD>(port->device->OutputPending(now));
        }
        return TRUE;
    }
    int in = 0, out = 0;
    if (HungUp(port->fd) || !SendUnsent(*port) || ioctl(port->fd, FIONREAD, &in) != 0 ||
        ioctl(port->fd, TIOCOUTQ, &out) != 0)
        return Fail(ERROR_IO_DEVICE);
    if (status != nullptr) {
        status->cbInQue = static_cast<DWORD>(in);
        status->cbOutQue = static_cast<DWORD>(static_cast<std::size_t>(out) + port->unsent.size());
    }
    return TRUE;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD wanted, DWORD* got, OVERLAPPED* overlapped) {
    *got = 0;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PortRecord record = RecordOf(*port);
    if (record.ReadFails)
        return Fail(ERROR_IO_DEVICE);
    const std::lock_guard use(port->use);
    auto* bytes = static_cast<std::uint8_t*>(buffer);
    if (port->device != nullptr) {
        *got = static_cast<DWORD>(port->device->Read({bytes, wanted}, timeGetTime()));
    } else {
        const ssize_t count = read(port->fd, bytes, wanted);
        if ((count < 0 && errno != EAGAIN && errno != EINTR) || (count <= 0 && HungUp(port->fd)))
            return Fail(ERROR_IO_DEVICE);
        *got = static_cast<DWORD>(std::max<ssize_t>(count, 0));
    }
    if (record.ReadPends && overlapped != nullptr) {
        overlapped->InternalHigh = std::exchange(*got, 0);
        return Fail(ERROR_IO_PENDING);
    }
    Complete(overlapped, *got);
    return TRUE;
}

// What the terminal does not take at once is kept and goes out before anything later; the write is reported as pending
// then, though its bytes are no longer needed. A line that stays blocked is given up at this much.
BOOL WINAPI WriteFile(HANDLE handle, LPCVOID data, DWORD count, DWORD* written, OVERLAPPED* overlapped) {
    constexpr std::size_t MAX_UNSENT = 16384;
    *written = 0;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PortRecord record = RecordOf(*port);
    if (record.WriteFails)
        return Fail(ERROR_IO_DEVICE);
    const std::lock_guard use(port->use);
    const std::span bytes(static_cast<const std::uint8_t*>(data), count);
    bool pending = record.WritePends;
    if (port->device != nullptr) {
        port->device->Write(bytes, timeGetTime());
    } else {
        if (!SendUnsent(*port) || port->unsent.size() + count > MAX_UNSENT)
            return Fail(ERROR_IO_DEVICE);
        const ssize_t done = port->unsent.empty() ? WriteSome(port->fd, bytes) : 0;
        if (done < 0)
            return Fail(ERROR_IO_DEVICE);
        port->unsent.insert(port->unsent.end(), bytes.begin() + done, bytes.end());
        pending = pending || !port->unsent.empty();
    }
    Complete(overlapped, count);
    if (pending)
        return Fail(ERROR_IO_PENDING);
    *written = count;
    return TRUE;
}

// Reads and writes have no more use for their buffers when they return, those reported as pending included.
BOOL WINAPI GetOverlappedResult(HANDLE handle, OVERLAPPED* overlapped, DWORD* count, BOOL) {
    *count = 0;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    *count = static_cast<DWORD>(overlapped->InternalHigh);
    return RecordOf(*port).ReadPends ? Fail(ERROR_OPERATION_ABORTED) : TRUE;
}

BOOL WINAPI CancelIoEx(HANDLE handle, OVERLAPPED*) {
    return PortOf(handle) != nullptr;
}

// Neither waits nor throws anything away: what has been taken goes out by itself.
BOOL WINAPI FlushFileBuffers(HANDLE handle) {
    return PortOf(handle) != nullptr;
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
