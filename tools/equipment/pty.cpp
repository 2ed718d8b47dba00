#include "equipment/pty.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Equipment {

namespace {

std::string Failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

speed_t SpeedOf(std::uint32_t bitsPerSecond) {
    switch (bitsPerSecond) {
    case 1200: return B1200;
    case 2400: return B2400;
    case 4800: return B4800;
    case 19200: return B19200;
    case 38400: return B38400;
    case 57600: return B57600;
    case 115200: return B115200;
    default: return B9600;
    }
}

bool MakeRaw(int file, std::uint32_t bitsPerSecond) {
    termios settings{};
    if (tcgetattr(file, &settings) != 0)
        return false;
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD | CSTOPB;
    cfsetspeed(&settings, SpeedOf(bitsPerSecond));
    return tcsetattr(file, TCSANOW, &settings) == 0;
}

}  // namespace

PtyLoop::PtyLoop(Machine& m) : machine(m) {}

PtyLoop::~PtyLoop() {
    Close();
}

void PtyLoop::Close() {
    if (slave >= 0)
        close(slave);
    if (master >= 0)
        close(master);
    slave = master = -1;
    path.clear();
}

std::string PtyLoop::Open() {
    Close();
    master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master < 0)
        return Failure("no pseudo-terminal");
    std::array<char, 128> name{};
    if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name.data(), name.size()) != 0) {
        const std::string error = Failure("pseudo-terminal not set up");
        Close();
        return error;
    }
    slave = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave < 0 || !MakeRaw(slave, machine.pacing.bitsPerSecond)) {
        const std::string error = Failure(name.data());
        Close();
        return error;
    }
    path = name.data();
    return "";
}

std::string PtyLoop::OpenDevice(const std::string& device) {
    Close();
    master = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master < 0 || !MakeRaw(master, machine.pacing.bitsPerSecond)) {
        const std::string error = Failure(device);
        Close();
        return error;
    }
    path = device;
    return "";
}

bool PtyLoop::Step(int timeoutMs, const std::vector<int>& watch) {
    std::array<std::uint8_t, 512> buffer;
    readable.clear();
    if (const std::size_t count = machine.Read(buffer, Now()); count > 0) {
        const ssize_t written = write(master, buffer.data(), count);
        if (written < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        // What a full terminal does not take is lost, as on a line that nobody listens to.
    }

    const std::uint32_t due = machine.NextDue(Now());
    const int wait = due < static_cast<std::uint32_t>(std::max(timeoutMs, 0)) ? static_cast<int>(due) : timeoutMs;
    ShowCts();
    // What the provider has written stays with the system until it may be sent.
    std::vector<pollfd> files{{master, static_cast<short>(machine.faults.ctsLow ? 0 : POLLIN), 0}};
    for (const int file : watch)
        files.push_back({file, POLLIN, 0});
    if (poll(files.data(), files.size(), wait) < 0)
        return errno == EINTR;
    for (std::size_t i = 1; i < files.size(); ++i)
        if (files[i].revents != 0)
            readable.push_back(files[i].fd);
    if ((files[0].revents & POLLIN) != 0) {
        const ssize_t count = read(master, buffer.data(), buffer.size());
        if (count > 0)
            machine.Receive(ByteSpan(buffer).first(static_cast<std::size_t>(count)), Now());
        else if (count == 0 || (errno != EAGAIN && errno != EINTR))
            return false;
    } else if ((files[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        return false;
    }
    return true;
}

// The card's RTS is the provider's CTS; a pseudo-terminal has neither.
void PtyLoop::ShowCts() {
    if (machine.faults.ctsLow == ctsLow)
        return;
    ctsLow = machine.faults.ctsLow;
    const int rts = TIOCM_RTS;
    ioctl(master, ctsLow ? TIOCMBIC : TIOCMBIS, &rts);
}

bool PtyLoop::Readable(int file) const {
    return std::find(readable.begin(), readable.end(), file) != readable.end();
}

std::uint32_t PtyLoop::Now() {
    using namespace std::chrono;
    return static_cast<std::uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace Equipment
