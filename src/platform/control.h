// For tests and tools: the strings behind the simulated system that the library runs on wherever it is not Windows, and
// in the unit tests on Windows too. Who owns the clock, what a port is and what it does wrong, how message boxes are
// answered, where registry and directories live, which calls fail. Not part of the product.
//
// Tools that load the library as it stands on POSIX systems set the same things by environment variables, read at first
// use:
//   ZT_COM1 .. ZT_COM4   path of the terminal device behind COM1 .. COM4
//   ZT_ROOT              directory that holds the "C:" drive (Windows and system directories); made when missing
//   ZT_REGISTRY          file that keeps the registry; without it the registry is in memory and starts empty
//   ZT_TRANSFERS         "later" or "pieces": how ports carry reads and writes out under the test clock
//   ZT_BOX_MS            how long a message box stays open before it answers IDOK (default 0)
// A message box is also written to standard error, one line "[box] caption: text", line feeds as " / ". A dialog is
// cancelled at once.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace PlatformControl {

// Everything back to the start for a test: test clock at 1,000,000 ms, registry in memory and empty, no ports, no
// faults, boxes answered IDOK at once, directories under a fresh temporary root, named objects forgotten.
// No thread of the product may be running.
void Reset();

// --- the clock ---------------------------------------------------------------------------------------------------
// With the test clock nothing waits for real time. Time moves only by Advance, or while the test's own thread is inside
// a wait with a time-out (or without one) that nothing satisfies: then due timers fire one after the other, in order,
// until the wait is satisfied or its time is over. Whenever time stands still, every thread with a message loop has
// come to rest in it. Product threads run one at a time, in the order in which they were made, and only while the test's
// own thread waits or moves the time: a wait of that one lets all of them come to rest before it looks. The same test
// gives the same order each time. A thread belongs to the clock under which it was made: none may be left when the other
// clock comes.
void UseSystemClock(unsigned faster = 1);  // so many milliseconds to one of the system's
void UseTestClock(std::uint32_t now);
std::uint32_t Now();  // of the clock in use, ms
// Moves the test clock, firing each timer as it comes due and waiting until its thread rests again.
void Advance(std::uint32_t milliseconds);
// The longest that a timer's procedure has run since Reset, ms of the clock; those that have shown a box left out.
std::uint32_t LongestTimer();
// Waits until every product thread rests in a message loop, a box or a wait, or has ended. Test clock only.
void Settle();

// --- ports -------------------------------------------------------------------------------------------------------
// A device in process. Called by the thread that uses the port; `now` is the platform's clock, ms.
struct PortDevice {
    virtual ~PortDevice() = default;
    virtual void Write(std::span<const std::uint8_t> bytes, std::uint32_t now) = 0;
    virtual std::size_t Available(std::uint32_t now) = 0;  // bytes that a read would get now
    virtual std::size_t Read(std::span<std::uint8_t> into, std::uint32_t now) = 0;
    virtual std::size_t OutputPending(std::uint32_t) { return 0; }  // bytes written that are not on the wire yet
    virtual void Closed() {}
};
void MapPort(const std::string& name, PortDevice* device);  // "COM1" .. "COM4"; null unmaps
void MapPortToTerminal(const std::string& name, const std::string& path);

// How a port carries out overlapped reads and writes: at once; pending for as long as the bytes take; or pending and a
// few bytes at a time, where a read is over with the first few.
enum class Transfers { AtOnce, Later, InPieces };

// What a port does wrong, and what was set on it. Transfers that pend need the test clock.
struct PortRecord {
    DWORD OpenError = 0;  // CreateFileA fails with this
    bool GetStateFails = false, SetStateFails = false;
    bool WriteFails = false, ReadFails = false;  // with ERROR_IO_DEVICE
    Transfers How = Transfers::AtOnce;
    bool CtsLow = false;          // overlapped writes stay pending
    bool ReadPends = false;       // overlapped reads stay pending and, called off, fail with what they have got
    std::uint32_t CallOffMs = 0;  // how much later a transfer is over that has been called off
    bool PulledOut = false;       // by PullOut and PutBack, as the next two
    std::uint32_t BackAt = 0;
    std::vector<std::uint8_t> Stale{};
    int Opens = 0, Closes = 0;
    DCB Dcb{};
    COMMTIMEOUTS Timeouts{};
    bool Rts = false;
    DWORD Access = 0, Share = 0, Flags = 0;  // as CreateFileA got them
};
PortRecord& Port(const std::string& name);
// An adapter pulled out: what is pending and every later call on the open port fail with the error (22, 31, 5 or 995),
// opening with 2. Put back, it can be opened again, `after` ms later and with stale bytes in it. A port that is still
// open stays dead, and keeps the name.
void PullOut(const std::string& name, DWORD error);
void PutBack(const std::string& name, std::uint32_t after = 0, const std::vector<std::uint8_t>& stale = {});
// A break or framing error (CE_BREAK, CE_FRAME) on the open port, with the byte that it leaves among those received. Where
// fAbortOnError is set, all transfers fail with 995 until ClearCommError.
void LineError(const std::string& name, DWORD errors, std::uint8_t garbage);

// --- message boxes -----------------------------------------------------------------------------------------------
constexpr UINT NO_BEEP = 0xFFFFFFFF;
struct Box {
    std::string Text, Caption;  // bytes as given, Windows-1252
    UINT Style = 0;
    bool LineMutexHeld = false;  // whether the showing thread held a mutex named SP62LineMutex while it was open
    bool InSession = false;      // sent to a user's session by a process without a screen
    DWORD Seconds = 0;           // after which such a box closes by itself; 0 = never
    UINT Beep = NO_BEEP;         // of MessageBeep since the box before
};
std::vector<Box> Boxes();  // all shown since Reset
// Boxes stay open this long by the clock; meanwhile the showing thread's timers are dispatched, as on Windows.
void KeepBoxesOpen(std::uint32_t milliseconds);
// Decides the answer; runs on the showing thread when the box closes. Default: IDOK.
void AnswerBoxes(std::function<int(const Box&)> answer);
// Where this process's boxes can be seen. With another than Own it has no visible window station, as a service has
// none: boxes then reach the session of somebody who is logged on at the computer's screen (UsersSession) or at another one.
enum class Screen { Own, UsersSession, UserAtADistance, NobodyLoggedOn, NoSession };
void UseScreen(Screen screen);
int PinnedLibraries();  // how often the library has been kept from being unloaded

// --- the event log -----------------------------------------------------------------------------------------------
struct LogEntry {
    std::string Source;
    WORD Type;
    DWORD Event;
    std::vector<std::string> Texts;
};
std::vector<LogEntry> LogEntries();  // all since Reset

// --- dialogs -----------------------------------------------------------------------------------------------------
// A dialog shows nowhere. It is made of its resource's rows and told WM_INITDIALOG; then a user, who is a function of
// the test, presses and reads until the dialog has ended. One that is left open is cancelled, as is every dialog
// without a user. Dialogs in dialogs come to the same function.
enum class ControlKind { Group, Label, List, Edit, Check, Radio, Button };
struct Control {
    ControlKind Kind;
    std::string Text;  // of a list: the selected entry
    int Id;
    int X, Y, Width, Height;  // dialog units
    bool Enabled = true, Checked = false;
    std::size_t Limit = 32767;  // characters that an edit takes from the keyboard
    std::vector<std::string> Entries{};
};
struct Dialog {
    int Id;
    std::string Caption;
    int Width, Height;
    std::vector<Control> Controls;  // in the order of the tab key
    bool Ended = false;
    INT_PTR Result = -1;

    Control& Item(int id);                         // throws where there is none
    bool Press(int id);                            // a button, check box or radio button; false when it is disabled
    void Type(int id, const std::string& text);    // into an edit, in place of what it holds
    bool Select(int id, const std::string& text);  // an entry of a list; false when it is disabled or has no such one

    DLGPROC Procedure = nullptr;
};
void UseDialogs(std::function<void(Dialog&)> user);
struct HelpCall {
    std::string File;
    UINT Command;
    ULONG_PTR Data;
};
std::vector<HelpCall> HelpCalls();  // all since Reset

// --- registry, directories ---------------------------------------------------------------------------------------
void RegistryInFile(const std::string& path);
// Every registry call whose full key path ends with this text (case-insensitive), or that touches this value name, fails
// with the error; 0 lifts it. With `rights`, only opening the key fails, and only when all of these are asked for.
void RefuseRegistry(const std::string& keyOrValue, LONG error, REGSAM rights = 0);
std::string Root();                                     // POSIX path of the directory that holds drive C:
void SetWindowsDirectory(const std::string& path);      // default "C:\\WINDOWS"; the system directory is below it
std::string PosixPath(const std::string& windowsPath);  // where a Windows path of this layer lies

// --- calls that fail ---------------------------------------------------------------------------------------------
// The functions that may fail for a reason outside the caller, by their published names. Left out are those that fail
// only where the caller has made a mistake (closing, freeing, releasing): nothing could make good for them.
std::vector<std::string> FallibleCalls();
enum class Failing { Once, FromThenOn };
// The n-th call of this function from now on (1: the next one) fails with an error that its documentation names, and
// with `FromThenOn` every one behind it. One function at a time; throws for one that is not among FallibleCalls.
void FailCall(const std::string& function, int n = 1, Failing failing = Failing::FromThenOn);
void CallsWork();    // again
int CallsCounted();  // calls of that function since FailCall, until CallsWork

// --- memory, waits, handles --------------------------------------------------------------------------------------
void StickGlobalUnlock(int times);  // the next n unlocks report that the block is still locked
// The next wait for the mutex of this name ends with this result (WAIT_ABANDONED gives the mutex, WAIT_TIMEOUT not).
void NextWait(const std::string& mutexName, DWORD result);
void FailCreate(const std::string& objectName, DWORD error);  // CreateMutexA, CreateEventA; 0 lifts it
// What has not been given back, for leak tests: handles of every kind, timers, files, memory (what functions about sessions
// have given, too), threads that run.
int OpenHandles();

}  // namespace PlatformControl
