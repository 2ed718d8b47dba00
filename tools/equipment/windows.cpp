// The equipment's system on Windows.
#include "equipment/system.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <mutex>
#include <thread>

namespace Equipment {

namespace {

// A wait for a port, sockets and a console at once there is not: they are looked at so often. A byte takes 1.1 ms, and the
// system's own clock steps by 10 to 16.
constexpr int LookMs = 10;
constexpr std::size_t TransferMost = 512;
constexpr std::size_t UnsentMost = 4096;  // bytes that a line that takes nothing keeps
constexpr DWORD CancelMs = 1000;          // for a driver to give back what it has been told to leave

std::string ErrorText(const std::string& what, DWORD error) {
    std::array<wchar_t, 512> text{};
    std::array<char, 1024> bytes{};
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                                  text.data(), static_cast<DWORD>(text.size()), nullptr);
    while (length > 0 && text[length - 1] <= L' ')
        --length;
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(length), bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, nullptr);
    return what + ": " + (size > 0 ? std::string(bytes.data(), static_cast<std::size_t>(size)) : "system error") +
           " (" + std::to_string(error) + ")";
}

// One read or write that the system may be at when a call returns.
struct Transfer {
    OVERLAPPED overlapped{};
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::array<std::uint8_t, TransferMost> bytes{};

    Transfer() = default;
    ~Transfer() { CloseHandle(event); }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    OVERLAPPED* Begin() {
        overlapped = OVERLAPPED{};
        overlapped.hEvent = event;
        return &overlapped;
    }
};

bool Started(BOOL done) {
    return done != FALSE || GetLastError() == ERROR_IO_PENDING;
}

}  // namespace

struct Port::State {
    HANDLE handle = INVALID_HANDLE_VALUE;
    std::unique_ptr<Transfer> writing;  // null = nothing is under way
    std::vector<std::uint8_t> unsent;

    bool SendUnsent();
};

Port::Port() : state(std::make_unique<State>()) {}

Port::~Port() {
    Close();
}

bool Port::IsOpen() const {
    return state->handle != INVALID_HANDLE_VALUE;
}

void Port::Close() {
    if (!IsOpen())
        return;
    PurgeComm(state->handle, PURGE_TXABORT | PURGE_RXABORT | PURGE_TXCLEAR | PURGE_RXCLEAR);
    CancelIo(state->handle);
    CloseHandle(state->handle);
    // A driver whose adapter is gone may never give the buffer back: left to it then.
    if (state->writing && WaitForSingleObject(state->writing->event, CancelMs) != WAIT_OBJECT_0)
        static_cast<void>(state->writing.release());
    *state = State{};
}

std::string Port::OpenTerminal(std::string&) {
    return "there are no pseudo-terminals here: name a port, --device COM5";
}

std::string Port::OpenDevice(const std::string& path, std::uint32_t bitsPerSecond) {
    Close();
    const std::string name = (path.starts_with("\\\\") ? "" : "\\\\.\\") + path;  // else COM10 and above are files
    state->handle = CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                FILE_FLAG_OVERLAPPED, nullptr);
    if (!IsOpen())
        return ErrorText(path, GetLastError());
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    COMMTIMEOUTS timeouts{};
    timeouts.ReadIntervalTimeout = MAXDWORD;  // a read gives what is there
    bool usable = GetCommState(state->handle, &dcb) != FALSE;
    dcb.BaudRate = bitsPerSecond >= 1200 && bitsPerSecond <= 115200 ? bitsPerSecond : CBR_9600;
    dcb.ByteSize = 8;
    dcb.Parity = NOPARITY;
    dcb.StopBits = TWOSTOPBITS;
    dcb.fBinary = TRUE;
    dcb.fParity = dcb.fNull = dcb.fErrorChar = dcb.fAbortOnError = FALSE;
    dcb.fOutX = dcb.fInX = FALSE;
    dcb.fOutxDsrFlow = dcb.fDsrSensitivity = FALSE;
    dcb.fOutxCtsFlow = TRUE;
    dcb.fRtsControl = RTS_CONTROL_ENABLE;  // by hand from here on
    dcb.fDtrControl = DTR_CONTROL_ENABLE;
    usable = usable && SetCommState(state->handle, &dcb) && SetCommTimeouts(state->handle, &timeouts);
    if (!usable) {
        const std::string error = ErrorText(path, GetLastError());
        Close();
        return error;
    }
    PurgeComm(state->handle, PURGE_TXCLEAR | PURGE_RXCLEAR);
    return "";
}

int Port::Read(std::span<std::uint8_t> room) {
    COMSTAT status{};  // some drivers leave it unwritten
    DWORD errors = 0;
    if (!ClearCommError(state->handle, &errors, &status))
        return -1;
    // Asking for no more than is there completes at once.
    const DWORD wanted = std::min(static_cast<DWORD>(std::min(room.size(), TransferMost)), status.cbInQue);
    if (wanted == 0)
        return 0;
    Transfer transfer;
    DWORD count = 0;
    if (!Started(ReadFile(state->handle, transfer.bytes.data(), wanted, nullptr, transfer.Begin())) ||
        !GetOverlappedResult(state->handle, &transfer.overlapped, &count, TRUE))
        return -1;
    std::copy_n(transfer.bytes.begin(), count, room.begin());
    return static_cast<int>(count);
}

bool Port::Write(ByteSpan bytes) {
    const std::size_t taken = std::min(bytes.size(), UnsentMost - state->unsent.size());
    state->unsent.insert(state->unsent.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(taken));
    return state->SendUnsent();
}

// Gives the system what it takes: while CTS is low a write does not end, and what comes behind it waits.
bool Port::State::SendUnsent() {
    while (true) {
        DWORD count = 0;
        if (writing && !GetOverlappedResult(handle, &writing->overlapped, &count, FALSE)) {
            if (GetLastError() == ERROR_IO_INCOMPLETE)
                return true;
            writing.reset();
            return false;
        }
        writing.reset();
        if (unsent.empty())
            return true;
        auto next = std::make_unique<Transfer>();
        const std::size_t size = std::min(unsent.size(), next->bytes.size());
        std::copy_n(unsent.begin(), size, next->bytes.begin());
        if (!Started(WriteFile(handle, next->bytes.data(), static_cast<DWORD>(size), nullptr, next->Begin())))
            return false;
        writing = std::move(next);
        unsent.erase(unsent.begin(), unsent.begin() + static_cast<std::ptrdiff_t>(size));
    }
}

void Port::SetRts(bool on) {
    EscapeCommFunction(state->handle, on ? SETRTS : CLRRTS);
}

std::vector<int> Port::Wait(int timeoutMs, bool, const std::vector<int>&) {
    if (IsOpen() && !state->SendUnsent())
        state->unsent.clear();  // the port is gone: Read says so
    if (timeoutMs > 0)
        Sleep(static_cast<DWORD>(std::min(timeoutMs, LookMs)));
    return {};
}

// The console keeps its code page beyond the program's end, so it gets its own back.
void PrepareStreams() {
    static const UINT before = GetConsoleOutputCP();
    if (before != 0 && SetConsoleOutputCP(CP_UTF8))
        std::atexit([] { SetConsoleOutputCP(before); });
    for (std::FILE* stream : {stdout, stderr})
        _setmode(_fileno(stream), _O_BINARY);
}

namespace {

std::mutex TypedGuard;
std::string Typed;
bool TypedEnd = false;

// A console is read in UTF-16: its reads in UTF-8 lose all but ASCII on older systems.
bool ReadConsoleText(HANDLE input, std::string& text) {
    std::array<wchar_t, 1024> wide;
    std::array<char, 3 * 1024> bytes;
    DWORD count = 0;
    if (!ReadConsoleW(input, wide.data(), static_cast<DWORD>(wide.size()), &count, nullptr) || count == 0 ||
        wide[0] == L'\x1A')
        return false;
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(count), bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, nullptr);
    text.assign(bytes.data(), static_cast<std::size_t>(size));
    return true;
}

bool ReadPipe(HANDLE input, std::string& text) {
    std::array<char, 4096> bytes;
    DWORD count = 0;
    if (!ReadFile(input, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) || count == 0)
        return false;
    text.assign(bytes.data(), count);
    return true;
}

// A thread for as long as the process: neither a console nor a pipe is read without waiting.
void ReadOn() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    const bool console = GetConsoleMode(input, &mode) != FALSE;
    std::string text;
    while (console ? ReadConsoleText(input, text) : ReadPipe(input, text)) {
        const std::lock_guard lock(TypedGuard);
        Typed += text;
    }
    const std::lock_guard lock(TypedGuard);
    TypedEnd = true;
}

}  // namespace

Input::Input() {
    std::thread(ReadOn).detach();
}

int Input::Handle() const {
    return -1;
}

bool Input::Read(std::string& text) {
    const std::lock_guard lock(TypedGuard);
    text += Typed;
    Typed.clear();
    return !TypedEnd;
}

}  // namespace Equipment
