// The layer that stands in for Windows: the behaviour that the product and its tests rely on.
#include "platform/platform.h"
#include "platform/posix/control.h"
#include "support/fixture.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

using testing::Each;

static int LoweredLines;  // modem lines, by the last call that lowered any

// Modem lines can be watched on their way to the kernel alone: a pseudo-terminal has none.
extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == TIOCMBIC)
        LoweredLines = *static_cast<const int*>(argument);
    return static_cast<int>(syscall(SYS_ioctl, file, request, argument));
}

namespace {

constexpr std::uint32_t START = 1'000'000;  // the clock after Reset

struct Platform : testing::Test {
    void SetUp() override { PlatformControl::Reset(); }
};

// --- registry and profile ----------------------------------------------------------------------------------------------

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

TEST_F(Platform, AnsiCodePageIsWindows1252) {
    WCHAR wide[8] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, "\x80\x92\x9C\xE9", 4, wide, 8), 4)
        << "no terminator of its own";
    EXPECT_EQ(std::u16string(wide), u"\u20AC\u2019\u0153\u00E9");
    char narrow[8] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, WC_COMPOSITECHECK | WC_DISCARDNS, wide, -1, nullptr, 0, nullptr, nullptr), 5)
        << "the room it needs";
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, WC_COMPOSITECHECK | WC_DISCARDNS, wide, -1, narrow, 8, nullptr, nullptr), 5);
    EXPECT_STREQ(narrow, "\x80\x92\x9C\xE9");
}

// --- what only threads of their own show -------------------------------------------------------------------------------

std::vector<std::string> Log;  // what threads and timers have done, in order

// With the clock since Reset.
void Say(const std::string& what) {
    Log.push_back(what + " @" + std::to_string(timeGetTime() - START));
}

DWORD WINAPI RunBody(LPVOID body) {
    const std::unique_ptr<std::function<void()>> function(static_cast<std::function<void()>*>(body));
    (*function)();
    return 0;
}

HANDLE Spawn(std::function<void()> body, DWORD* id = nullptr) {
    return CreateThread(nullptr, 0, RunBody, new std::function<void()>(std::move(body)), 0, id);
}

// Waits for a thread and closes its handle; one in its message loop is told to end by its identifier.
void Join(HANDLE thread, DWORD loop = 0) {
    if (loop != 0)
        PostThreadMessageA(loop, WM_QUIT, 0, 0);
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(thread);
}

void Dispatch() {
    MSG message{};
    while (GetMessageA(&message, nullptr, 0, 0) > 0)
        DispatchMessageA(&message);
}

struct Threads : Platform {
    void SetUp() override {
        Platform::SetUp();
        Log.clear();
    }
};

TEST_F(Threads, WaitForAMutexEndsAtItsTimeOrWithItsLastRelease) {
    const HANDLE first = CreateMutexA(nullptr, TRUE, "M");
    const HANDLE second = CreateMutexA(nullptr, TRUE, "M");
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    const HANDLE other = Spawn([&] {
        Say(WaitForSingleObject(first, 500) == WAIT_TIMEOUT ? "timeout" : "got it");
        Say(ReleaseMutex(first) ? "released" : "not owner " + std::to_string(GetLastError()));
        Say(WaitForSingleObject(second, INFINITE) == WAIT_OBJECT_0 ? "got it" : "failed");
        ReleaseMutex(second);
    });
    PlatformControl::Advance(600);
    EXPECT_TRUE(ReleaseMutex(second));
    PlatformControl::Settle();
    EXPECT_THAT(Log, ElementsAre("timeout @500", "not owner 288 @500")) << "held once still";
    EXPECT_TRUE(ReleaseMutex(first));
    Join(other);
    EXPECT_THAT(Log, ElementsAre("timeout @500", "not owner 288 @500", "got it @600"));
    EXPECT_FALSE(ReleaseMutex(first)) << "another thread's was the last";
    CloseHandle(first);
    CloseHandle(second);
    const HANDLE anew = CreateMutexA(nullptr, FALSE, "M");
    EXPECT_EQ(GetLastError(), 0u) << "gone with its last handle";
    CloseHandle(anew);
    EXPECT_EQ(PlatformControl::OpenHandles(), 0);
}

// Runs when its thread has left the product's code and is being cleared up.
std::atomic<bool> Gone;
struct Trail {
    ~Trail() {
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        Gone = true;
    }
    void Touch() const {}
};
thread_local const Trail Last;

TEST_F(Threads, ThreadIsOverWhenNothingOfItRunsAnyMore) {
    Gone = false;
    Join(Spawn([] { Last.Touch(); }));
    EXPECT_TRUE(Gone) << "else it runs in a library that its waiter has unloaded";
}

TEST_F(Threads, EndingThreadLeavesItsMutexesAtAnyDepthAndNoTimers) {
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, "M");
    Join(Spawn([&] {
        WaitForSingleObject(mutex, INFINITE);
        WaitForSingleObject(mutex, INFINITE);
        SetTimer(nullptr, 0, 100, nullptr);
    }));
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0) << "said once";
    EXPECT_EQ(PlatformControl::OpenHandles(), 1);
}

TEST_F(Threads, ThreadsDueAtTheSameTimeRunOneAfterTheOther) {
    for (int round = 0; round < 50; ++round) {
        Log.clear();
        std::vector<HANDLE> threads;
        std::atomic<int> inside = 0;
        for (int i = 0; i < 4; ++i)
            threads.push_back(Spawn([i, &inside] {
                const HANDLE never = CreateEventA(nullptr, FALSE, FALSE, nullptr);
                WaitForSingleObject(never, 100);
                EXPECT_EQ(++inside, 1);
                for (int j = 0; j < 20; ++j)
                    std::this_thread::yield();
                Log.push_back(std::to_string(i));
                --inside;
                CloseHandle(never);
            }));
        PlatformControl::Settle();
        PlatformControl::Advance(100);
        for (const HANDLE thread : threads)
            Join(thread);
        ASSERT_THAT(Log, ElementsAre("0", "1", "2", "3"));
    }
}

// A tick that shows a box once: the box dispatches the next ticks inside itself.
std::atomic<int> Depth;
void CALLBACK TickWithBox(HWND, UINT, UINT_PTR, DWORD) {
    Say("tick " + std::to_string(++Depth));
    if (Depth == 1)
        Say("answer " + std::to_string(MessageBoxA(nullptr, "text", "caption", MB_ICONHAND)));
    --Depth;
}

TEST_F(Threads, BoxKeptOpenDispatchesTheTicksInsideItself) {
    Depth = 0;
    PlatformControl::KeepBoxesOpen(250);
    PlatformControl::AnswerBoxes([](const PlatformControl::Box& box) { return box.LineMutexHeld ? IDHELP : IDCANCEL; });
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, "SP62LineMutex");
    DWORD id = 0;
    const HANDLE thread = Spawn(
        [mutex] {
            WaitForSingleObject(mutex, INFINITE);
            SetTimer(nullptr, 0, 100, TickWithBox);
            Dispatch();
            ReleaseMutex(mutex);
        },
        &id);
    PlatformControl::Advance(400);
    EXPECT_THAT(Log, ElementsAre("tick 1 @100", "tick 2 @200", "tick 2 @300", "answer 9 @350", "tick 1 @400"));
    ASSERT_EQ(PlatformControl::Boxes().size(), 2u);
    EXPECT_EQ(PlatformControl::Boxes()[0].Caption, "caption");
    EXPECT_EQ(PlatformControl::Boxes()[0].Style, MB_ICONHAND);
    EXPECT_TRUE(PlatformControl::Boxes()[0].LineMutexHeld);
    Join(thread, id);
    EXPECT_EQ(Log.back(), "answer 9 @400") << "the end of the program closes a box, and then the loop around it";
    CloseHandle(mutex);
}

void CALLBACK SayTick(HWND, UINT, UINT_PTR, DWORD) {
    Say("tick");
}

TEST_F(Threads, LateTicksAreNotMadeUpFor) {
    DWORD id = 0;
    HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const HANDLE thread = Spawn(
        [event] {
            SetTimer(nullptr, 0, 100, SayTick);
            WaitForSingleObject(event, INFINITE);
            Dispatch();
        },
        &id);
    PlatformControl::Advance(350);
    EXPECT_THAT(Log, ElementsAre()) << "not in its message loop";
    SetEvent(event);
    PlatformControl::Advance(200);
    EXPECT_THAT(Log, ElementsAre("tick @350", "tick @450", "tick @550"));
    Join(thread, id);
    CloseHandle(event);
}

TEST_F(Threads, SystemClockRunsByItself) {
    PlatformControl::UseSystemClock();
    static HANDLE ticked;
    ticked = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    DWORD id = 0;
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, "M");
    const HANDLE thread = Spawn(
        [mutex] {
            WaitForSingleObject(mutex, INFINITE);
            SetTimer(nullptr, 0, 20, [](HWND, UINT, UINT_PTR, DWORD) { SetEvent(ticked); });
            Dispatch();
        },
        &id);
    const std::uint32_t before = timeGetTime();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WaitForSingleObject(ticked, 20'000), WAIT_OBJECT_0);
    EXPECT_GE(timeGetTime() - before, 40u);
    EXPECT_EQ(WaitForSingleObject(mutex, 10), WAIT_TIMEOUT);
    Join(thread, id);
    EXPECT_EQ(WaitForSingleObject(mutex, 20'000), WAIT_ABANDONED);
}

// --- ports that block, vanish or fail ------------------------------------------------------------------------------------

// A pseudo-terminal: the test is the device at its master end.
struct Terminal {
    int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    Terminal() {
        EXPECT_EQ(grantpt(master), 0);
        EXPECT_EQ(unlockpt(master), 0);
        PlatformControl::MapPortToTerminal("COM1", Path());
    }
    ~Terminal() { Hang(); }
    std::string Path() const {
        char path[64] = {};
        EXPECT_EQ(ptsname_r(master, path, sizeof path), 0);
        return path;
    }
    void Hang() {
        if (master >= 0)
            close(master);
        master = -1;
    }
    std::string Read(std::size_t count) const {
        std::string got(count, 0);
        std::size_t have = 0;
        pollfd state{master, POLLIN, 0};
        while (have < count && poll(&state, 1, 5000) > 0) {
            const ssize_t n = read(master, got.data() + have, count - have);
            if (n <= 0)
                break;
            have += static_cast<std::size_t>(n);
        }
        got.resize(have);
        return got;
    }
};

HANDLE OpenCom1() {
    return CreateFileA("COM1", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

DCB LinkSettings() {
    DCB dcb{};
    dcb.BaudRate = 9600;
    dcb.ByteSize = 8;
    dcb.StopBits = TWOSTOPBITS;
    dcb.fOutxCtsFlow = 1;
    return dcb;
}

COMSTAT StatusOf(HANDLE port) {
    COMSTAT status{};
    DWORD errors = 7;
    EXPECT_TRUE(ClearCommError(port, &errors, &status));
    EXPECT_EQ(errors, 0u);
    return status;
}

TEST_F(Platform, TerminalBehindAPortIsRawCountsItsBytesAndIsHeldAlone) {
    const Terminal terminal;
    const HANDLE port = OpenCom1();
    ASSERT_NE(port, INVALID_HANDLE_VALUE);
    DCB dcb{};
    ASSERT_TRUE(GetCommState(port, &dcb));
    dcb.BaudRate = 9600;
    dcb.StopBits = TWOSTOPBITS;
    dcb.fOutxCtsFlow = 1;
    dcb.fDtrControl = 1;
    LoweredLines = 0;
    ASSERT_TRUE(SetCommState(port, &dcb));
    EXPECT_EQ(LoweredLines, 0);
    dcb.fDtrControl = DTR_CONTROL_DISABLE;
    ASSERT_TRUE(SetCommState(port, &dcb)) << "whether or not the terminal has the line";
    EXPECT_EQ(LoweredLines, TIOCM_DTR);
    dcb.BaudRate = 12345;
    EXPECT_FALSE(SetCommState(port, &dcb)) << "a speed that no port has";

    const std::uint8_t out[] = {0x00, 0x0A, 0x0D, 0x11, 0x13, 0xFF};
    DWORD count = 0;
    OVERLAPPED overlapped{};
    ASSERT_TRUE(WriteFile(port, out, sizeof out, &count, &overlapped));
    std::uint8_t in[16] = {};
    const std::string sent(reinterpret_cast<const char*>(out), sizeof out);
    EXPECT_EQ(terminal.Read(sizeof out), sent) << "raw, both ways";
    ASSERT_EQ(write(terminal.master, out, sizeof out), static_cast<ssize_t>(sizeof out));
    COMSTAT status{};
    for (int i = 0; i < 10'000'000 && status.cbInQue < sizeof out; ++i)  // the kernel hands them over in its own time
        ASSERT_TRUE(ClearCommError(port, nullptr, &status));
    EXPECT_EQ(status.cbInQue, sizeof out);
    ASSERT_TRUE(ReadFile(port, in, sizeof in, &count, &overlapped));
    EXPECT_EQ(count, sizeof out);
    EXPECT_EQ(std::memcmp(in, out, sizeof out), 0);
    ASSERT_TRUE(ReadFile(port, in, sizeof in, &count, &overlapped));
    EXPECT_EQ(count, 0u) << "nothing there: at once, with nothing";
    CloseHandle(port);
    EXPECT_EQ(PlatformControl::OpenHandles(), 0);
}

TEST_F(Platform, BlockedTerminalKeepsWritesInOrderAndRefusesWithoutEnd) {
    const Terminal terminal;
    const HANDLE port = OpenCom1();
    DCB dcb = LinkSettings();
    ASSERT_TRUE(SetCommState(port, &dcb));
    std::string sent, block(1000, 0);
    DWORD count = 0;
    bool pending = false, refused = false;
    for (int i = 0; i < 1000 && !refused; ++i) {
        block.assign(1000, static_cast<char>('A' + i % 26));
        const bool done = WriteFile(port, block.data(), 1000, &count, nullptr) != 0;
        EXPECT_TRUE(done || !pending || GetLastError() == ERROR_IO_DEVICE || GetLastError() == ERROR_IO_PENDING);
        refused = !done && GetLastError() == ERROR_IO_DEVICE;
        pending = pending || (!done && !refused);
        if (!refused)
            sent += block;
    }
    EXPECT_TRUE(pending);
    EXPECT_TRUE(refused);
    EXPECT_GT(StatusOf(port).cbOutQue, 8000u);
    std::string got;
    while (got.size() < sent.size()) {
        StatusOf(port);  // sends on what has been kept
        const std::string more = terminal.Read(std::min<std::size_t>(1000, sent.size() - got.size()));
        ASSERT_FALSE(more.empty());
        got += more;
    }
    EXPECT_EQ(got, sent);
    EXPECT_EQ(StatusOf(port).cbOutQue, 0u);
    CloseHandle(port);
}

TEST_F(Platform, MissingBusyAndVanishedTerminals) {
    Terminal terminal;
    const HANDLE port = OpenCom1();
    ASSERT_NE(port, INVALID_HANDLE_VALUE);
    EXPECT_EQ(OpenCom1(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    PlatformControl::MapPortToTerminal("COM2", terminal.Path());
    EXPECT_EQ(CreateFileA("COM2", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED) << "by another name, as another program would";

    const std::string path = terminal.Path();
    terminal.Hang();
    char byte = 0;
    DWORD count = 1;
    COMSTAT status{};
    EXPECT_FALSE(ReadFile(port, &byte, 1, &count, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_IO_DEVICE);
    EXPECT_EQ(count, 0u);
    EXPECT_FALSE(ClearCommError(port, &count, &status));
    EXPECT_FALSE(WriteFile(port, "x", 1, &count, nullptr));
    EXPECT_TRUE(CloseHandle(port));
    EXPECT_EQ(OpenCom1(), INVALID_HANDLE_VALUE) << path;
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    PlatformControl::MapPortToTerminal("COM1", "/dev/null");
    EXPECT_EQ(OpenCom1(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND) << "no terminal";
    EXPECT_EQ(PlatformControl::Port("COM1").Opens, 1);
    EXPECT_EQ(PlatformControl::Port("COM1").Closes, 1);
    EXPECT_EQ(PlatformControl::OpenHandles(), 0);
}

// --- registry, files and memory at their edges ---------------------------------------------------------------------------

HKEY Create(HKEY parent, const char* name) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExA(parent, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr), ERROR_SUCCESS);
    return key;
}

LONG Set(HKEY key, const char* name, const std::string& text) {
    return RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>(text.size() + 1));
}

std::string Get(HKEY key, const char* name) {
    char text[300] = {};
    DWORD size = sizeof text, type = 0;
    const LONG error = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
    return error != ERROR_SUCCESS ? "error " + std::to_string(error) : text;
}

// All values of a key in the order of their enumeration.
std::vector<std::string> ValuesOf(HKEY key) {
    std::vector<std::string> out;
    char name[64], text[300];
    for (DWORD i = 0;; ++i) {
        DWORD nameSize = sizeof name, size = sizeof text, type = 0;
        if (RegEnumValueA(key, i, name, &nameSize, nullptr, &type, reinterpret_cast<BYTE*>(text), &size) != 0)
            return out;
        out.push_back(std::string(name, nameSize) + (type == REG_DWORD ? " dword" : "=" + std::string(text, size - 1)));
    }
}

TEST_F(Platform, RegistryKeysAreDeletedOneByOneAndKeepTheOrderOfTheirValues) {
    const HKEY key = Create(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker\\Product");
    for (const char* name : {"T02", "T10", "T01"})
        Set(key, name, name);
    Set(key, "t10", "changed");
    EXPECT_THAT(ValuesOf(key), ElementsAre("T02=T02", "T10=changed", "T01=T01"));
    HKEY same = nullptr;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "software\\MAKER\\product", 0, KEY_READ, &same), ERROR_SUCCESS);
    EXPECT_EQ(Get(same, "t02"), "T02");
    EXPECT_EQ(Get(same, "T03"), "error 2");

    char small[4];
    DWORD size = sizeof small;
    EXPECT_EQ(RegQueryValueExA(key, "T10", nullptr, nullptr, reinterpret_cast<BYTE*>(small), &size),
              static_cast<LONG>(ERROR_MORE_DATA));
    EXPECT_EQ(size, 8u) << "the room it needs, terminator included";
    EXPECT_EQ(RegQueryValueExA(key, "T10", nullptr, nullptr, nullptr, &(size = 0)), ERROR_SUCCESS);
    EXPECT_EQ(size, 8u);

    const HKEY maker = Create(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker");
    EXPECT_EQ(RegEnumKeyA(maker, 0, small, sizeof small), static_cast<LONG>(ERROR_MORE_DATA));
    EXPECT_EQ(RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker"), static_cast<LONG>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(RegDeleteKeyA(maker, "PRODUCT"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteKeyA(maker, "Product"), static_cast<LONG>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Get(same, "T02"), "error 1018") << "a handle to a deleted key";
    for (const HKEY handle : {key, same, maker})
        EXPECT_EQ(RegCloseKey(handle), ERROR_SUCCESS);
    EXPECT_EQ(PlatformControl::OpenHandles(), 0);
}

TEST_F(Platform, RegistryFileMayBeEditedByPeople) {
    const std::string path = PlatformControl::Root() + "/registry";
    const std::string odd = "C:\\DIR \"quoted\"\nnext \xE9=\t";
    PlatformControl::RegistryInFile(path);
    HKEY key = Create(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker");
    const DWORD number = 0x89ABCDEF;
    Set(key, "B", odd);
    Set(key, "A", "");
    Set(key, "a=b", "x=\"y\"");
    RegSetValueExA(key, "N", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), 4);
    RegCloseKey(Create(key, "Empty"));
    RegCloseKey(key);
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));

    PlatformControl::RegistryInFile(path);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker\\Empty", 0, KEY_READ, &key), ERROR_SUCCESS);
    RegCloseKey(key);
    key = Create(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker");
    EXPECT_THAT(ValuesOf(key), ElementsAre("B=" + odd, "A=", "a=b=x=\"y\"", "N dword"));
    DWORD back = 0, size = 4;
    RegQueryValueExA(key, "N", nullptr, nullptr, reinterpret_cast<BYTE*>(&back), &size);
    EXPECT_EQ(back, number);
    RegCloseKey(key);

    std::ofstream(path) << "; a note\r\n[HKEY_LOCAL_MACHINE\\software\\Maker]\r\n Port = nothing\nPort = \"COM3\" \r\n"
                        << "Half=\"\nport=\"COM4\"\n[HKEY_USERS\\x]\nPort=\"COM1\"\n[";
    PlatformControl::RegistryInFile(path);
    key = Create(HKEY_LOCAL_MACHINE, "SOFTWARE\\Maker");
    EXPECT_THAT(ValuesOf(key), ElementsAre("port=COM4"));
    RegCloseKey(key);
}

TEST_F(Platform, WindowsPathsLieBelowTheRootWithoutCase) {
    char directory[32], small[8] = "xxxxxxx";
    EXPECT_EQ(GetWindowsDirectoryA(directory, sizeof directory), 10u);
    EXPECT_STREQ(directory, "C:\\WINDOWS");
    EXPECT_EQ(GetWindowsDirectoryA(small, sizeof small), 11u) << "the room it needs";
    EXPECT_STREQ(small, "xxxxxxx");
    EXPECT_EQ(PlatformControl::PosixPath("C:\\Windows\\A.B"), PlatformControl::Root() + "/c/windows/a.b");

    EXPECT_EQ(_mkdir("C:\\WINDOWS\\Dir"), 0);
    EXPECT_NE(_mkdir("C:\\WINDOWS\\DIR"), 0);
    for (const char* name : {"C:\\WINDOWS\\dir\\One", "C:\\WINDOWS\\dir\\two"}) {
        std::FILE* file = FileOpen(name, "w");
        ASSERT_NE(file, nullptr);
        std::fclose(file);
    }
    EXPECT_NE(FileRename("C:\\WINDOWS\\Dir\\one", "C:\\WINDOWS\\Dir\\TWO"), 0) << "the name is taken";
    EXPECT_EQ(FileRemove("C:\\WINDOWS\\Dir\\TWO"), 0);
    EXPECT_EQ(FileRename("C:\\WINDOWS\\Dir\\one", "C:\\WINDOWS\\Dir\\TWO"), 0);

    EXPECT_EQ(_lopen("C:\\WINDOWS\\SYSTEM32\\x.fdb", OF_READ), HFILE_ERROR);
    const HFILE file = _lcreat("C:\\WINDOWS\\SYSTEM32\\x.fdb", 0);
    EXPECT_EQ(_lwrite(file, "abcdef", 6), 6u);
    EXPECT_EQ(_llseek(file, 2, FILE_BEGIN), 2);
    EXPECT_EQ(_lread(file, small, 3), 3u);
    EXPECT_EQ(std::string(small, 3), "cde");
    EXPECT_EQ(PlatformControl::OpenHandles(), 1);
    EXPECT_EQ(_lclose(file), 0);
    EXPECT_EQ(PlatformControl::OpenHandles(), 0);
}

TEST_F(Platform, MemoryBlocks) {
    const HGLOBAL zeroed = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 100), plain = GlobalAlloc(GMEM_MOVEABLE, 100);
    auto* bytes = static_cast<unsigned char*>(GlobalLock(zeroed));
    EXPECT_THAT(std::vector<unsigned char>(bytes, bytes + 100), Each(0));
    EXPECT_NE(*static_cast<unsigned char*>(GlobalLock(plain)), 0);
    GlobalLock(zeroed);
    EXPECT_TRUE(GlobalUnlock(zeroed)) << "locked once more";
    EXPECT_FALSE(GlobalUnlock(zeroed));
    GlobalFree(zeroed);
    GlobalFree(plain);
}

}  // namespace
