#include "thread/serial_thread.h"

#include "link/fifo.h"
#include "link/serial.h"
#include "platform/text.h"
#include "provider/error_box.h"
#include "provider/event_log.h"
#include "provider/process.h"
#include "provider/state.h"
#include "thread/lifetimes.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/model.h"
#include "tracking/pending.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

constexpr const char* READY_EVENT = "SP62Evt_Serial_Ready";
constexpr DWORD READY_WAIT_MS = 20'000;
constexpr DWORD STOP_WAIT_MS = 30'000;
constexpr LONG NO_DRIVER = static_cast<LONG>(LINEERR_NODRIVER);

// --- the thread ------------------------------------------------------------------------------------------------------

// Tells TAPI's pending request and the user why the port did not open.
DWORD ReportOpenFailure(DWORD error) {
    struct Report {
        DWORD Error;
        LONG Completion;
        const char* Text;
    };
    static constexpr Report Reports[] = {
        {ERROR_ACCESS_DENIED, static_cast<LONG>(LINEERR_ALLOCATED),
         "Serial Port conflict - Check it and try again\n\nAccess denied"},
        {1119, static_cast<LONG>(LINEERR_ALLOCATED), "Serial Port conflict - Check it and try again\n\nIrq Busy"},
    };
    static constexpr Report Other = {0, static_cast<LONG>(LINEERR_OPERATIONFAILED),
                                     "Serial Port Problem - Check it and try again \n\nAccess Failed"};
    const Report* found = std::find_if(std::begin(Reports), std::end(Reports),
                                       [&](const Report& report) { return report.Error == error; });
    const Report& report = found == std::end(Reports) ? Other : *found;
    const bool held = EnterIfShared();
    const DWORD completed = SendCompletion(ProviderState, report.Completion);
    LogPortFailure(ProviderState.PortName, error);
    LeaveIfShared(held);
    ErrorBox(report.Text);
    return completed;
}

// The thread has ended its loop unasked: nothing is received any more. TAPI is told, and no request waits for the set.
void ReportEndedLoop() {
    const bool held = GotLineMutex(WaitLineMutex());
    if (!held)
        return;
    if (SerialThreadLife == ThreadLife::Serves && !StopRequest) {
        Trace(TRACE_ALWAYS, "Serial Thread: no more messages");
        ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
        AllCallReset();
        FailPendingRequest();
        DoLineEvent(LINE_CLOSE, 0, 0, -1);
    }
    ReleaseLineMutex(0);
}

// Gives 0, or the identifier of the request that a failed open completed.
DWORD ServePort(HANDLE ready) {
    bool held = EnterIfShared();
    ResetThreadState();
    if (Serial.Port == INVALID_HANDLE_VALUE) {
        const char* name = ProviderState.PortName;
        if (std::strlen(name) != 4 || name[3] < '1' || name[3] > '4') {
            LogEvent(EVENT_NO_PORT, name);
            LeaveIfShared(held);
            return 0;
        }
        Serial.PortDigit = name[3];
        SerialOpenComms(name, ProviderState.SpeedText);
        const DWORD error = GetLastError();  // before a trace line touches it
        Trace(TRACE_ENTRY, "Tentative d'ouverture du port - hcd:%x", Serial.Port);
        if (Serial.Port == INVALID_HANDLE_VALUE) {
            Serial.PortFailed = true;
            ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
            Trace(TRACE_ALWAYS, "LastError %ld", error);
            LeaveIfShared(held);
            SetEvent(ready);
            return ReportOpenFailure(error);
        }
    }
    LeaveIfShared(held);
    SetEvent(ready);

    MSG message{};
    while (!StopRequest && SerialThreadLife == ThreadLife::Serves && GetMessageA(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }

    if (!StopRequest && SerialThreadLife == ThreadLife::Serves)
        ReportEndedLoop();
    held = EnterIfShared();
    Trace(TRACE_ALWAYS, " Serial Thread after main loop hcd %lx", Serial.Port);
    FifoClear(LINK_FIFO);
    SerialCloseComms();
    Trace(TRACE_ALWAYS, "Final return Serial Thread hcd %lx", Serial.Port);
    LeaveIfShared(held);
    return 0;
}

// The thread's body; takes the event that it signals when its attempt to open the port is over.
DWORD WINAPI SerialThreadBody(LPVOID ready) {
    const DWORD result = ServePort(ready);
    SerialThreadLife = ThreadLife::None;
    return result;
}

// --- its start ------------------------------------------------------------------------------------------------------

// Makes the ready event and the thread. Gives 0, or LINEERR_NODRIVER and what the user is to be told, if anything.
LONG MakeSerialThread(char (&told)[64]) {
    told[0] = 0;
    CloseAndForget(Process.SerialReadyEvent);
    Process.SerialReadyEvent = CreateEventA(nullptr, FALSE, FALSE, READY_EVENT);
    if (Process.SerialReadyEvent == nullptr) {
        Trace(TRACE_ALWAYS, "EvtSerialReady not created error %d", GetLastError());
        return NO_DRIVER;
    }
    SerialThreadLife = ThreadLife::Serves;
    Process.SerialThread =
        CreateThread(nullptr, 0, SerialThreadBody, Process.SerialReadyEvent, 0, &Process.SerialThreadID);
    if (Process.SerialThread != nullptr)
        return 0;
    const DWORD error = GetLastError();
    SerialThreadLife = ThreadLife::None;
    CloseAndForget(Process.SerialReadyEvent);
    const TraceArgument argument(error);
    FormatText(told, sizeof told, "Error in creating Serial thread: %d", &argument, 1);
    SetLastError(error);
    return NO_DRIVER;
}

// Waits, without the line mutex, until the thread's attempt to open the port is over. Several may: each tells the next.
DWORD AwaitReady(bool held) {
    const HANDLE own = CreateEventA(nullptr, FALSE, FALSE, READY_EVENT);  // a stop closes the thread's
    const HANDLE ready = own != nullptr ? own : Process.SerialReadyEvent;
    ++Process.Starting;
    LeaveIfShared(held);
    const int holds = LetGo();
    const DWORD wait = WaitForSingleObject(ready, READY_WAIT_MS);
    if (wait == WAIT_OBJECT_0)
        Trace(TRACE_ALWAYS, "Wait Thread serial Ready OK");
    else
        Trace(TRACE_ALWAYS, "Wait Thread serial Ready KO %ld ", wait);
    TakeBack(holds);
    const bool entered = EnterIfShared();
    if (--Process.Starting > 0 && wait == WAIT_OBJECT_0)
        SetEvent(ready);
    LeaveIfShared(entered);
    if (own != nullptr)
        CloseHandle(own);
    return wait;
}

}  // namespace

SerialThreadTurn::SerialThreadTurn() : Taken(Take(0)) {
    if (Taken)
        return;
    const int holds = LetGo();  // a stop needs the line mutex to end
    Taken = Take(STOP_WAIT_MS + LINE_MUTEX_WAIT_MS);
    TakeBack(holds);
}

bool SerialThreadTurn::Take(DWORD milliseconds) {
    return GotLineMutex(static_cast<LONG>(WaitForSingleObject(Process.TurnMutex, milliseconds)));
}

void SerialThreadTurn::End() {
    if (std::exchange(Taken, false))
        ReleaseMutex(Process.TurnMutex);
}

bool SerialThreadRuns() {
    if (Process.SerialThread != nullptr && !Process.Stopping &&  // else its handle is the stop's
        WaitForSingleObject(Process.SerialThread, 0) == WAIT_OBJECT_0)
        CloseAndForget(Process.SerialThread);
    return Process.SerialThread != nullptr;
}

LONG StartSerialThread() {
    SerialThreadTurn turn;  // an open and a request may both start it
    if (!turn.IsMine())
        return NO_DRIVER;
    const bool held = EnterIfShared();
    const bool runs = SerialThreadRuns();
    if (runs && Process.Starting == 0) {
        if (!held)
            WaitLineMutex();
        return 0;
    }
    if (!runs && SerialThreadLife == ThreadLife::Forgotten) {
        LeaveIfShared(held);
        Trace(TRACE_ALWAYS, "Thread serial not started - the former one has not ended");
        return NO_DRIVER;
    }
    char told[64];
    if (const LONG result = runs ? 0 : MakeSerialThread(told); result != 0) {
        const DWORD error = GetLastError();
        LeaveIfShared(held);
        if (told[0] != 0) {
            ErrorBox(told);
            Trace(TRACE_ALWAYS, "Thread serial didn't start error %d", error);
        }
        return result;
    }
    turn.End();  // a stop need not wait until the port is open
    if (AwaitReady(held) != WAIT_OBJECT_0)
        return NO_DRIVER;
    WaitLineMutex();
    return 0;
}

LONG StopSerialThread() {
    const SerialThreadTurn turn;
    if (!SerialThreadRuns()) {
        CloseAndForget(Process.SerialReadyEvent);
        return 0;
    }
    Trace(TRACE_ENTRY, "StopSerialThread Request");
    Process.Stopping = true;
    ReleaseLineMutex(0);  // the serial thread's last tick may need it
    const int holds = LetGo();
    StopRequest = true;
    const DWORD wait = WaitForSingleObject(Process.SerialThread, STOP_WAIT_MS);
    if (wait == WAIT_ABANDONED)
        Trace(TRACE_ALWAYS, "StopSerialThread Prb WAIT_ABANDONED SerialThread");
    else if (wait == WAIT_TIMEOUT)
        Trace(TRACE_ALWAYS, "StopSerialThread Prb WAIT_TIMEOUT SerialThread");
    if (wait != WAIT_OBJECT_0) {
        auto serves = ThreadLife::Serves;
        SerialThreadLife.compare_exchange_strong(serves, ThreadLife::Forgotten);
    }
    StopRequest = false;
    TakeBack(holds);
    WaitLineMutex();
    CloseAndForget(Process.SerialThread);
    CloseAndForget(Process.SerialReadyEvent);
    FailPendingRequest();
    GiveUpDeferredMakeCall();
    Process.Stopping = false;
    return 0;
}
