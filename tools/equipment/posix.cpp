// The equipment's system where terminals are files.
#include "equipment/system.h"

#include <array>
#include <cerrno>
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

bool MakeRaw(int file, std::uint32_t bitsPerSecond, tcflag_t flowControl) {
    termios settings{};
    if (tcgetattr(file, &settings) != 0)
        return false;
    cfmakeraw(&settings);  // 8 data bits, no parity
    settings.c_cflag |= CLOCAL | CREAD | CSTOPB | flowControl;
    cfsetspeed(&settings, SpeedOf(bitsPerSecond));
    return tcsetattr(file, TCSANOW, &settings) == 0;
}

}  // namespace

struct Port::State {
    int file = -1;
    int otherEnd = -1;  // of a pseudo-terminal; kept open, never read
    bool gone = false;
};

Port::Port() : state(std::make_unique<State>()) {}

Port::~Port() {
    Close();
}

bool Port::IsOpen() const {
    return state->file >= 0;
}

void Port::Close() {
    for (const int file : {state->otherEnd, state->file})
        if (file >= 0)
            close(file);
    *state = State{};
}

std::string Port::OpenTerminal(std::string& path) {
    Close();
    state->file = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (state->file < 0)
        return Failure("no pseudo-terminal");
    std::array<char, 128> name{};
    std::string error;
    if (grantpt(state->file) != 0 || unlockpt(state->file) != 0 ||
        ptsname_r(state->file, name.data(), name.size()) != 0) {
        error = Failure("pseudo-terminal not set up");
    } else {
        path = name.data();
        state->otherEnd = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (state->otherEnd < 0 || !MakeRaw(state->otherEnd, 9600, 0))
            error = Failure(path);
    }
    if (!error.empty())
        Close();
    return error;
}

std::string Port::OpenDevice(const std::string& path, std::uint32_t bitsPerSecond) {
    Close();
    state->file = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (state->file < 0 || !MakeRaw(state->file, bitsPerSecond, CRTSCTS)) {
        const std::string error = Failure(path);
        Close();
        return error;
    }
    tcflush(state->file, TCIOFLUSH);
    SetRts(true);
    return "";
}

int Port::Read(std::span<std::uint8_t> room) {
    if (room.empty())
        return state->gone ? -1 : 0;
    const ssize_t count = read(state->file, room.data(), room.size());
    if (count > 0)
        return static_cast<int>(count);
    // Nothing to read is told as EAGAIN, the end of a line that was hung up as none.
    return count < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

bool Port::Write(ByteSpan bytes) {
    const ssize_t written = write(state->file, bytes.data(), bytes.size());
    return written >= 0 || errno == EAGAIN || errno == EINTR;
}

void Port::SetRts(bool on) {
    const int rts = TIOCM_RTS;
    ioctl(state->file, on ? TIOCMBIS : TIOCMBIC, &rts);
}

std::vector<int> Port::Wait(int timeoutMs, bool reading, const std::vector<int>& watch) {
    std::vector<pollfd> files{{state->file, static_cast<short>(reading ? POLLIN : 0), 0}};
    for (const int file : watch)
        files.push_back({file, POLLIN, 0});
    std::vector<int> readable;
    if (poll(files.data(), files.size(), timeoutMs) < 0)
        return readable;
    state->gone = (files[0].revents & POLLIN) == 0 && (files[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
    for (std::size_t i = 1; i < files.size(); ++i)
        if (files[i].revents != 0)
            readable.push_back(files[i].fd);
    return readable;
}

void PrepareStreams() {}

Input::Input() = default;

int Input::Handle() const {
    return STDIN_FILENO;
}

bool Input::Read(std::string& text) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, 0) <= 0)
        return true;
    std::array<char, 4096> buffer;
    const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count > 0)
        text.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

}  // namespace Equipment
