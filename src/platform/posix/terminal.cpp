// Serial ports on terminal devices, by termios.
#include "platform/simulated/state.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Simulated {

namespace {

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

class Terminal : public Wire {
    int fd;
    std::vector<std::uint8_t> unsent;  // taken by a write, not yet by the terminal (CTS is low, or nobody reads)

    // Sends what earlier writes have left. False when the terminal fails.
    bool SendUnsent() {
        if (unsent.empty())
            return true;
        const ssize_t done = WriteSome(fd, unsent);
        if (done > 0)
            unsent.erase(unsent.begin(), unsent.begin() + done);
        return done >= 0;
    }

public:
    explicit Terminal(int opened) : fd(opened) {}
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() override {
        ioctl(fd, TIOCNXCL);
        close(fd);
    }
    DWORD SetState(const DCB& dcb) override { return SetTerminal(fd, dcb) ? 0 : ERROR_INVALID_PARAMETER; }
    // A pseudo-terminal has no such line.
    DWORD SetRts(bool on) override {
        const int line = TIOCM_RTS;
        return ioctl(fd, on ? TIOCMBIS : TIOCMBIC, &line) == 0 ? 0 : ERROR_INVALID_PARAMETER;
    }
    DWORD Status(COMSTAT& status) override {
        int in = 0, out = 0;
        if (HungUp(fd) || !SendUnsent() || ioctl(fd, FIONREAD, &in) != 0 || ioctl(fd, TIOCOUTQ, &out) != 0)
            return ERROR_IO_DEVICE;
        status.cbInQue = static_cast<DWORD>(in);
        status.cbOutQue = static_cast<DWORD>(static_cast<std::size_t>(out) + unsent.size());
        return 0;
    }
    DWORD Read(std::span<std::uint8_t> into, DWORD& got) override {
        const ssize_t count = read(fd, into.data(), into.size());
        if ((count < 0 && errno != EAGAIN && errno != EINTR) || (count <= 0 && HungUp(fd)))
            return ERROR_IO_DEVICE;
        got = static_cast<DWORD>(std::max<ssize_t>(count, 0));
        return 0;
    }
    // What the terminal does not take at once is kept and goes out before anything later; the write is pending then,
    // though its bytes are no longer needed. A line that stays blocked is given up at this much.
    DWORD Write(std::span<const std::uint8_t> bytes, bool& pending) override {
        constexpr std::size_t MAX_UNSENT = 16384;
        if (!SendUnsent() || unsent.size() + bytes.size() > MAX_UNSENT)
            return ERROR_IO_DEVICE;
        const ssize_t done = unsent.empty() ? WriteSome(fd, bytes) : 0;
        if (done < 0)
            return ERROR_IO_DEVICE;
        unsent.insert(unsent.end(), bytes.begin() + done, bytes.end());
        pending = !unsent.empty();
        return 0;
    }
    void Purge(bool in, bool out) override {
        if (out)
            unsent.clear();
        if (in || out)
            tcflush(fd, in && out ? TCIOFLUSH : in ? TCIFLUSH : TCOFLUSH);
    }
};

}  // namespace

// The lock on the file also keeps out other instances that run with rights that TIOCEXCL does not stop.
std::unique_ptr<Wire> OpenTerminal(const std::string& path) {
    const int fd = path.empty() ? -1 : open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        SetLastError(path.empty() ? ERROR_FILE_NOT_FOUND : ErrorOf(errno));
        return nullptr;
    }
    DWORD error = 0;
    if (!isatty(fd))
        error = ERROR_FILE_NOT_FOUND;
    else if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        error = ERROR_ACCESS_DENIED;
    if (error == 0) {
        ioctl(fd, TIOCEXCL);
        return std::make_unique<Terminal>(fd);
    }
    close(fd);
    SetLastError(error);
    return nullptr;
}

}  // namespace Simulated
