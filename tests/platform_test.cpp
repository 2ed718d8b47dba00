// The layer that stands in for Windows: the behaviour that the product and its tests rely on.
#include "platform/platform.h"
#include "platform/posix/control.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <cstdlib>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using testing::ElementsAre;

namespace {

struct Platform : testing::Test {
    void SetUp() override { PlatformControl::Reset(); }
};

// --- mutexes, events, threads ----------------------------------------------------------------------------------------

DWORD WINAPI TakeAndEnd(LPVOID mutex) {
    return WaitForSingleObject(mutex, INFINITE);
}

DWORD WINAPI ReleaseForeign(LPVOID mutex) {
    return ReleaseMutex(mutex) ? 0 : GetLastError();
}

TEST_F(Platform, MutexIsRecursiveNamedAndOnlyItsOwnerReleasesIt) {
    const HANDLE first = CreateMutexA(nullptr, TRUE, "M");
    const HANDLE second = CreateMutexA(nullptr, FALSE, "M");
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0) << "the owner takes it again under any handle";
    const HANDLE other = CreateThread(nullptr, 0, ReleaseForeign, first, 0, nullptr);
    EXPECT_EQ(WaitForSingleObject(other, 1000), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(first));
    EXPECT_TRUE(ReleaseMutex(second));
    EXPECT_FALSE(ReleaseMutex(first));
    EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
}

TEST_F(Platform, AThreadThatEndsAbandonsItsMutexToTheNextWaiter) {
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, "M");
    const HANDLE thread = CreateThread(nullptr, 0, TakeAndEnd, mutex, 0, nullptr);
    ASSERT_EQ(WaitForSingleObject(thread, 1000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(mutex, 1000), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(mutex)) << "the waiter owns it";
    EXPECT_EQ(WaitForSingleObject(mutex, 1000), WAIT_OBJECT_0);
}

TEST_F(Platform, AWaitThatNothingEndsLetsItsTimePass) {
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const std::uint32_t before = PlatformControl::Now();
    EXPECT_EQ(WaitForSingleObject(event, 20'000), WAIT_TIMEOUT);
    EXPECT_EQ(PlatformControl::Now() - before, 20'000u);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, 20'000), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT) << "an auto-reset event satisfies one wait";
}

// --- timers, message loop, boxes ---------------------------------------------------------------------------------------

std::vector<std::string> Log;
HANDLE Started;

void CALLBACK Fast(HWND, UINT, UINT_PTR, DWORD) {
    Log.push_back("fast " + std::to_string(timeGetTime() - 1'000'000));
}
void CALLBACK Slow(HWND, UINT, UINT_PTR id, DWORD) {
    KillTimer(nullptr, id);
    Log.push_back("box");
    MessageBoxA(nullptr, "text", "caption", MB_OK);
    Log.push_back("closed");
}

DWORD WINAPI Loop(LPVOID procedures) {
    SetTimer(nullptr, 0, 100, Fast);
    if (procedures != nullptr)
        SetTimer(nullptr, 0, 150, Slow);
    SetEvent(Started);
    MSG message{};
    while (GetMessageA(&message, nullptr, 0, 0) > 0)
        DispatchMessageA(&message);
    return 7;
}

HANDLE StartLoop(bool withSlow, DWORD& id) {
    Log.clear();
    Started = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const HANDLE thread = CreateThread(nullptr, 0, Loop, withSlow ? &Log : nullptr, 0, &id);
    WaitForSingleObject(Started, INFINITE);
    return thread;
}

void EndLoop(HANDLE thread, DWORD id) {
    PostThreadMessageA(id, WM_QUIT, 0, 0);
    ASSERT_EQ(WaitForSingleObject(thread, 1000), WAIT_OBJECT_0);
}

TEST_F(Platform, TimersFireInOrderOnTheirThreadAsTheClockIsMoved) {
    DWORD id = 0;
    const HANDLE thread = StartLoop(false, id);
    PlatformControl::Advance(99);
    EXPECT_THAT(Log, ElementsAre());
    PlatformControl::Advance(201);
    EXPECT_THAT(Log, ElementsAre("fast 100", "fast 200", "fast 300"));
    EndLoop(thread, id);
}

TEST_F(Platform, AnOpenBoxKeepsDispatchingItsThreadsTimers) {
    PlatformControl::KeepBoxesOpen(250);
    DWORD id = 0;
    const HANDLE thread = StartLoop(true, id);
    PlatformControl::Advance(500);
    EXPECT_THAT(Log, ElementsAre("fast 100", "box", "fast 200", "fast 300", "fast 400", "closed", "fast 500"));
    EXPECT_EQ(PlatformControl::Boxes().size(), 1u);
    EndLoop(thread, id);
}

// --- registry and profile ----------------------------------------------------------------------------------------------

LONG Write(HKEY root, const char* key, const char* name, const std::string& data, DWORD type = REG_SZ) {
    HKEY handle = nullptr;
    DWORD disposition = 0;
    char noClass[] = "";
    if (const LONG error = RegCreateKeyExA(root, key, 0, noClass, 0, KEY_ALL_ACCESS, nullptr, &handle, &disposition))
        return error;
    const LONG result = RegSetValueExA(handle, name, 0, type, reinterpret_cast<const BYTE*>(data.data()),
                                       static_cast<DWORD>(data.size()));
    RegCloseKey(handle);
    return result;
}

std::string Read(HKEY root, const char* key, const char* name, DWORD room = 64) {
    HKEY handle = nullptr;
    if (RegOpenKeyExA(root, key, 0, KEY_READ, &handle) != ERROR_SUCCESS)
        return "(no key)";
    std::string data(room, 0);
    DWORD size = room, type = 0;
    const LONG error = RegQueryValueExA(handle, name, nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &size);
    RegCloseKey(handle);
    if (error != ERROR_SUCCESS)
        return "(error " + std::to_string(error) + ")";
    data.resize(size);
    return data;
}

TEST_F(Platform, RegistryKnowsNoCaseKeepsOrderAndSaysWhatDoesNotFit) {
    const std::string text("COM1\0", 5);
    ASSERT_EQ(Write(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", "B", text), 0);
    ASSERT_EQ(Write(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", "A", text), 0);
    EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, "software\\TEST", "b"), text);
    EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", "A", 4), "(error 234)");
    EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", "C"), "(error 2)");
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", 0, KEY_READ, &key), 0);
    char name[8];
    DWORD size = sizeof name;
    EXPECT_EQ(RegEnumValueA(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(name, "B");
    size = sizeof name;
    EXPECT_EQ(RegEnumValueA(key, 2, name, &size, nullptr, nullptr, nullptr, nullptr), 259);
    RegCloseKey(key);
    EXPECT_EQ(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE"), 5) << "a key with keys below it";
}

TEST_F(Platform, RegistryFileIsReadBackWithEveryCharacter) {
    const std::string path = PlatformControl::Root() + "/registry";
    const std::string text("a\"b\\c\nd=[e]\xE9\0", 13);
    const std::string number("\x05\x01\0\0", 4);
    PlatformControl::RegistryInFile(path);
    Write(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\Deep", "Text", text);
    Write(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\Deep", "Number", number, REG_DWORD);
    PlatformControl::RegistryInFile(path);
    EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\Deep", "Text"), text);
    EXPECT_EQ(Read(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\Deep", "Number"), number);
}

std::string FileText(const std::string& windowsPath) {
    std::ifstream in(PlatformControl::PosixPath(windowsPath), std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

TEST_F(Platform, ProfileEntriesAreReplacedAndRemovedInTheirSectionAlone) {
    WritePrivateProfileStringA("One", "K", "1", "x.ini");
    WritePrivateProfileStringA("Two", "K", "2", "x.ini");
    WritePrivateProfileStringA("One", "k", "3", "x.ini");
    WritePrivateProfileStringA("One", "L", "4", "x.ini");
    EXPECT_EQ(FileText("C:\\WINDOWS\\x.ini"), "[One]\r\nk=3\r\nL=4\r\n[Two]\r\nK=2\r\n");
    WritePrivateProfileStringA("One", nullptr, nullptr, "x.ini");
    EXPECT_EQ(FileText("C:\\windows\\X.INI"), "[Two]\r\nK=2\r\n");
    PlatformControl::RefuseProfile(true);
    EXPECT_FALSE(WritePrivateProfileStringA("One", "K", "1", "x.ini"));
}

// --- text, directories -------------------------------------------------------------------------------------------------

TEST_F(Platform, EveryAnsiCharacterSurvivesTheWayToWideAndBack) {
    for (int c = 1; c < 256; ++c) {
        const char narrow[] = {static_cast<char>(c), 0};
        WCHAR wide[4] = {};
        char back[4] = {};
        ASSERT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, narrow, -1, wide, 4), 2);
        ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, -1, back, 4, nullptr, nullptr), 2);
        EXPECT_STREQ(back, narrow) << c;
    }
    WCHAR wide[2];
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 2), 0) << "too long";
    const WCHAR omega[] = {0x3A9, 0};
    char narrow[4];
    WideCharToMultiByte(CP_ACP, 0, omega, -1, narrow, 4, nullptr, nullptr);
    EXPECT_STREQ(narrow, "?");
}

TEST_F(Platform, DirectoriesTellWhatRoomTheyNeed) {
    PlatformControl::SetWindowsDirectory("D:\\A rather long name for a Windows directory");
    char text[35];
    EXPECT_EQ(GetWindowsDirectoryA(text, sizeof text), 46u);
    char longer[46];
    EXPECT_EQ(GetWindowsDirectoryA(longer, sizeof longer), 45u);
}

// --- a real terminal -----------------------------------------------------------------------------------------------------

TEST_F(Platform, TerminalBehindAPortIsRawCountsItsBytesAndIsHeldAlone) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master) + unlockpt(master), 0);
    PlatformControl::MapPortToTerminal("COM2", ptsname(master));
    const HANDLE port =
        CreateFileA("COM2", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    ASSERT_NE(port, INVALID_HANDLE_VALUE);
    EXPECT_EQ(CreateFileA("COM2", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    DCB dcb{};
    ASSERT_TRUE(GetCommState(port, &dcb));
    dcb.BaudRate = 9600;
    dcb.StopBits = TWOSTOPBITS;
    dcb.fOutxCtsFlow = 1;
    ASSERT_TRUE(SetCommState(port, &dcb));
    dcb.BaudRate = 12345;
    EXPECT_FALSE(SetCommState(port, &dcb)) << "a speed that no port has";

    const std::uint8_t out[] = {0x00, 0x0A, 0x0D, 0x11, 0x13, 0xFF};
    DWORD count = 0;
    OVERLAPPED overlapped{};
    ASSERT_TRUE(WriteFile(port, out, sizeof out, &count, &overlapped));
    std::uint8_t in[16] = {};
    ASSERT_EQ(read(master, in, sizeof in), static_cast<ssize_t>(sizeof out));
    EXPECT_EQ(std::memcmp(in, out, sizeof out), 0) << "raw, both ways";
    ASSERT_EQ(write(master, out, sizeof out), static_cast<ssize_t>(sizeof out));
    COMSTAT status{};
    for (int i = 0; i < 10'000'000 && status.cbInQue < sizeof out; ++i)  // the kernel hands them over in its own time
        ASSERT_TRUE(ClearCommError(port, nullptr, &status));
    EXPECT_EQ(status.cbInQue, sizeof out);
    ASSERT_TRUE(ReadFile(port, in, sizeof in, &count, &overlapped));
    EXPECT_EQ(count, sizeof out);
    EXPECT_EQ(std::memcmp(in, out, sizeof out), 0);
    ASSERT_TRUE(ReadFile(port, in, sizeof in, &count, &overlapped));
    EXPECT_EQ(count, 0u) << "nothing there: at once, with nothing";
    close(master);
    CloseHandle(port);
    EXPECT_EQ(PlatformControl::OpenHandles(), 0);
}

}  // namespace
