// Serial ports: terminal devices by termios, and devices in process.
#include "platform/posix/state.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Posix {

namespace {

struct OpenPort : Object {
    std::string name;
    int fd = -1;                                    // a terminal ...
    PlatformControl::PortDevice* device = nullptr;  // ... or a device in process
    ~OpenPort() override;
};

std::map<std::string, PlatformControl::PortRecord> Records;
std::map<std::string, PlatformControl::PortDevice*> Devices;
std::map<std::string, std::string> Terminals;
std::map<std::string, bool> InUse;

OpenPort::~OpenPort() {
    if (fd >= 0) {
        ioctl(fd, TIOCNXCL);
        close(fd);
    }
    if (device != nullptr)
        device->Closed();
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
    constexpr Speed Speeds[] = {{300, B300},   {600, B600},     {1200, B1200},   {2400, B2400},   {4800, B4800},
                                {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}};
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
    return tcsetattr(fd, TCSANOW, &settings) == 0;
}

// The open port behind a handle, kept alive by the caller; null with the error set.
std::shared_ptr<OpenPort> PortOf(HANDLE handle) {
    const Guard guard(Lock);
    auto port = std::dynamic_pointer_cast<OpenPort>(Find(handle));
    if (port == nullptr)
        SetLastError(ERROR_INVALID_HANDLE);
    return port;
}

PlatformControl::PortRecord& RecordOf(const OpenPort& port) {
    const Guard guard(Lock);
    return Records[port.name];
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

HANDLE WINAPI CreateFileA(LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*, DWORD, DWORD flags, HANDLE) {
    const Guard guard(Lock);
    PlatformControl::PortRecord& record = Records[name];
    record.Access = access;
    record.Share = share;
    record.Flags = flags;
    const auto fail = [](DWORD error) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    };
    if (record.OpenError != 0)
        return fail(record.OpenError);
    if (InUse[name])
        return fail(ERROR_ACCESS_DENIED);
    int fd = -1;
    PlatformControl::PortDevice* device = nullptr;
    if (const auto found = Devices.find(name); found != Devices.end()) {
        device = found->second;
    } else {
        const std::string path = TerminalOf(name);
        if (path.empty())
            return fail(ERROR_FILE_NOT_FOUND);
        fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            return fail(ErrorOf(errno));
        if (!isatty(fd)) {
            close(fd);
            return fail(ERROR_FILE_NOT_FOUND);
        }
        ioctl(fd, TIOCEXCL);  // the next open, of any process but root's, is refused
    }
    auto port = std::make_shared<OpenPort>();
    port->name = name;
    port->fd = fd;
    port->device = device;
    InUse[name] = true;
    ++record.Opens;
    if (device != nullptr)
        device->Opened();
    return Register(port);
}

BOOL WINAPI GetCommState(HANDLE handle, DCB* dcb) {
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PlatformControl::PortRecord& record = RecordOf(*port);
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
    PlatformControl::PortRecord& record = RecordOf(*port);
    if (record.SetStateFails)
        return Fail(ERROR_IO_DEVICE);
    if (port->fd >= 0 && !SetTerminal(port->fd, *dcb))
        return Fail(ERROR_INVALID_PARAMETER);
    record.Dcb = *dcb;
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
    RecordOf(*port).Timeouts = *timeouts;
    return TRUE;
}

BOOL WINAPI EscapeCommFunction(HANDLE handle, DWORD function) {
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    RecordOf(*port).Rts = function == SETRTS;
    if (port->fd >= 0) {
        const int line = TIOCM_RTS;
        if (ioctl(port->fd, function == SETRTS ? TIOCMBIS : TIOCMBIC, &line) != 0)
            return Fail(ERROR_INVALID_PARAMETER);  // a pseudo-terminal has no such line
    }
    return TRUE;
}

BOOL WINAPI ClearCommError(HANDLE handle, DWORD* errors, COMSTAT* status) {
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    if (errors != nullptr)
        *errors = 0;
    if (status == nullptr)
        return TRUE;
    *status = COMSTAT{};
    if (port->device != nullptr) {
        status->cbInQue = static_cast<DWORD>(port->device->Available(timeGetTime()));
        status->cbOutQue = static_cast<DWORD>(port->device->OutputPending(timeGetTime()));
        return TRUE;
    }
    int count = 0;
    if (ioctl(port->fd, FIONREAD, &count) == 0)
        status->cbInQue = static_cast<DWORD>(count);
    if (ioctl(port->fd, TIOCOUTQ, &count) == 0)
        status->cbOutQue = static_cast<DWORD>(count);
    return TRUE;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD wanted, DWORD* got, OVERLAPPED*) {
    *got = 0;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    if (RecordOf(*port).ReadFails)
        return Fail(ERROR_IO_DEVICE);
    auto* bytes = static_cast<std::uint8_t*>(buffer);
    if (port->device != nullptr) {
        *got = static_cast<DWORD>(port->device->Read({bytes, wanted}, timeGetTime()));
        return TRUE;
    }
    const ssize_t count = read(port->fd, bytes, wanted);
    if (count < 0 && errno != EAGAIN)
        return Fail(ERROR_IO_DEVICE);
    *got = static_cast<DWORD>(std::max<ssize_t>(count, 0));
    return TRUE;
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID data, DWORD count, DWORD* written, OVERLAPPED*) {
    *written = 0;
    const auto port = PortOf(handle);
    if (port == nullptr)
        return FALSE;
    const PlatformControl::PortRecord& record = RecordOf(*port);
    if (record.WriteFails)
        return Fail(ERROR_IO_DEVICE);
    const std::span bytes(static_cast<const std::uint8_t*>(data), count);
    if (port->device != nullptr) {
        port->device->Write(bytes, timeGetTime());
    } else {
        // A terminal takes 4 KB before it refuses; what it refuses then is lost, as on a line that nobody reads.
        const ssize_t done = write(port->fd, bytes.data(), bytes.size());
        if (done < 0 && errno != EAGAIN)
            return Fail(ERROR_IO_DEVICE);
    }
    if (record.WritePends)
        return Fail(ERROR_IO_PENDING);
    *written = count;
    return TRUE;
}

// Reads and writes are over when they return.
BOOL WINAPI GetOverlappedResult(HANDLE, OVERLAPPED*, DWORD* count, BOOL) {
    *count = 0;
    return Fail(ERROR_IO_INCOMPLETE);
}

BOOL WINAPI CancelIoEx(HANDLE, OVERLAPPED*) {
    return TRUE;
}

// Neither waits nor throws anything away: the system sends by itself what it has taken.
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
    Terminals[name] = path;
}

PlatformControl::PortRecord& PlatformControl::Port(const std::string& name) {
    const Guard guard(Lock);
    return Records[name];
}
