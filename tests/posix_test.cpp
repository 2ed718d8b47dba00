// The POSIX side of what stands in for Windows: ports on terminal devices, the registry in a file.
#include "platform/control.h"
#include "platform/platform.h"
#include "support/fixture.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

struct Files : testing::Test {
    void SetUp() override { PlatformControl::Reset(); }
};

// --- ports on a terminal --------------------------------------------------------------------------------------------

// A pseudo-terminal: the test is the device at its master end.
struct TerminalPort : Files {
    int Master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    HANDLE Port = INVALID_HANDLE_VALUE;
    DWORD Count = 0;

    void SetUp() override {
        Files::SetUp();
        char path[64] = {};
        ASSERT_EQ(grantpt(Master) | unlockpt(Master) | ptsname_r(Master, path, sizeof path), 0);
        PlatformControl::MapPortToTerminal("COM1", path);
        PlatformControl::MapPortToTerminal("COM2", path);
        Port = Open("COM1");
        DCB dcb{};
        ASSERT_TRUE(GetCommState(Port, &dcb));
        dcb.BaudRate = 9600;
        dcb.StopBits = TWOSTOPBITS;
        dcb.fOutxCtsFlow = 1;
        ASSERT_TRUE(SetCommState(Port, &dcb));
        dcb.BaudRate = 12345;
        EXPECT_FALSE(SetCommState(Port, &dcb)) << "a speed that no port has";
    }
    void TearDown() override {
        EXPECT_TRUE(CloseHandle(Port));
        EXPECT_EQ(PlatformControl::OpenHandles(), 0);
        Hang();
    }
    static HANDLE Open(const char* name) {
        return CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                           nullptr);
    }
    void Hang() {
        if (Master >= 0)
            close(std::exchange(Master, -1));
    }
    std::string ReadMaster() const {
        char got[16];
        pollfd state{Master, POLLIN, 0};
        const ssize_t count = poll(&state, 1, 5000) > 0 ? read(Master, got, sizeof got) : 0;
        return {got, static_cast<std::size_t>(std::max(count, ssize_t{0}))};
    }
};

TEST_F(TerminalPort, IsRawAndCountsItsBytes) {
    const std::string bytes("\x00\x0A\x0D\x11\x13\xFF", 6);
    ASSERT_TRUE(WriteFile(Port, bytes.data(), 6, &Count, nullptr));
    EXPECT_EQ(ReadMaster(), bytes);
    ASSERT_EQ(write(Master, bytes.data(), 6), 6);
    COMSTAT status{};
    for (int i = 0; i < 10'000'000 && status.cbInQue < 6; ++i)  // the kernel hands them over in its own time
        ASSERT_TRUE(ClearCommError(Port, nullptr, &status));
    EXPECT_EQ(status.cbInQue, 6u);
    char in[16] = {};
    ASSERT_TRUE(ReadFile(Port, in, sizeof in, &Count, nullptr));
    EXPECT_EQ(std::string(in, Count), bytes);
    ASSERT_TRUE(ReadFile(Port, in, sizeof in, &Count, nullptr));
    EXPECT_EQ(Count, 0u) << "nothing there: at once, with nothing";
}

TEST_F(TerminalPort, IsHeldAloneAndFailsWhenItVanishes) {
    for (const char* name : {"COM1", "COM2"}) {  // by another name, as another program would
        EXPECT_EQ(Open(name), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    }
    Hang();
    char byte = 0;
    COMSTAT status{};
    EXPECT_FALSE(ReadFile(Port, &byte, 1, &Count, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_IO_DEVICE);
    EXPECT_FALSE(ClearCommError(Port, &Count, &status));
}

// What nothing could ever end is a failed test, not a hung one.
TEST_F(Files, AWaitForAPortThatNeverEndsTellsWhoWaitsWhereAndWithWhichMutexes) {
    struct Nothing : PlatformControl::PortDevice {
        void Write(std::span<const std::uint8_t>, std::uint32_t) override {}
        std::size_t Available(std::uint32_t) override { return 0; }
        std::size_t Read(std::span<std::uint8_t>, std::uint32_t) override { return 0; }
    } device;
    PlatformControl::MapPort("COM1", &device);
    const HANDLE port =
        CreateFileA("COM1", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    const HANDLE mutex = CreateMutexA(nullptr, TRUE, "SP62LineMutex");
    OVERLAPPED overlapped{};
    DWORD count = 0;
    PlatformControl::Port("COM1").How = PlatformControl::Transfers::Later;
    EXPECT_FALSE(WriteFile(port, "abc", 3, &count, &overlapped));
    EXPECT_TRUE(FlushFileBuffers(port)) << "CTS is high: a matter of milliseconds";
    PlatformControl::Port("COM1").CtsLow = true;
    EXPECT_FALSE(WriteFile(port, "abc", 3, &count, &overlapped));
    EXPECT_DEATH(FlushFileBuffers(port),
                 "the test's own thread waits for ever: .* it is in FlushFileBuffers, CTS of COM1 "
                 "being low, and holds SP62LineMutex");
    EXPECT_DEATH(GetOverlappedResult(port, &overlapped, &count, TRUE), "GetOverlappedResult and holds SP62LineMutex");
    EXPECT_TRUE(PurgeComm(port, PURGE_TXABORT)) << "and then nothing is left to wait for";
    EXPECT_TRUE(FlushFileBuffers(port));
    EXPECT_FALSE(GetOverlappedResult(port, &overlapped, &count, TRUE));
    EXPECT_EQ(GetLastError(), ERROR_OPERATION_ABORTED);
    CloseHandle(port);
    CloseHandle(mutex);
}

// --- registry -------------------------------------------------------------------------------------------------------

// All values of a key, written into it or read, in the order of their enumeration.
std::vector<std::string> Values(const char* path, const std::vector<std::pair<const char*, std::string>>& write = {}) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), 0);
    for (const auto& [name, text] : write)
        RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>(text.size() + 1));
    std::vector<std::string> out;
    char name[64], text[300];
    for (DWORD i = 0;; ++i) {
        DWORD nameSize = sizeof name, size = sizeof text;
        if (RegEnumValueA(key, i, name, &nameSize, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size) != 0)
            break;
        out.push_back(std::string(name, nameSize) + "=" + std::string(text, size - 1));
    }
    RegCloseKey(key);
    return out;
}

TEST_F(Files, RegistryFileKeepsItsOrderAndMayBeEditedByPeople) {
    const std::string path = PlatformControl::Root() + "/registry", odd = "C:\\DIR \"quoted\"\nnext \xE9=\t";
    const char* const key = "SOFTWARE\\Maker";
    PlatformControl::RegistryInFile(path);
    Values(key, {{"B", "first"}, {"A", ""}, {"a=b", "x=\"y\""}, {"b", odd}});
    PlatformControl::RegistryInFile(path);
    EXPECT_THAT(Values("software\\MAKER"), ElementsAre("B=" + odd, "A=", "a=b=x=\"y\""));
    EXPECT_EQ(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE"), static_cast<LONG>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\maker"), ERROR_SUCCESS);
    PlatformControl::RegistryInFile(path);
    EXPECT_THAT(Values(key), IsEmpty());

    std::ofstream(path) << "; a note\r\n[HKEY_LOCAL_MACHINE\\software\\Maker]\r\n Port = nothing\nPort = \"COM3\" \r\n"
                        << "Half=\"\nport=\"COM4\"\n[HKEY_USERS\\x]\nPort=\"COM1\"\n[";
    PlatformControl::RegistryInFile(path);
    EXPECT_THAT(Values(key), ElementsAre("port=COM4"));
}

}  // namespace
