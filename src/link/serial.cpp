#include "link/serial.h"

#include "config/settings.h"
#include "control/keys.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/port_io.h"
#include "link/tick.h"
#include "platform/text.h"
#include "provider/error_box.h"
#include "provider/event_log.h"
#include "provider/events.h"
#include "provider/lifecycle.h"
#include "trace/trace.h"
#include "tracking/model.h"

#include <algorithm>
#include <cstring>
#include <utility>

SerialState Serial;

namespace {

void ResetThreadState() {
    Serial = SerialState{};
    Link = LinkState{};
    Tick = TickState{};
    Marks = RequestMarks{};
    RunningRequest = RunningRequestRecord{};
    Tracking = TrackingState{};
    DynamicConfig.WaitDynamicConfig = 1;  // StaticConfig stays: only a complete dialogue ends it
    DynamicConfig.WaitTraceMode = 0;
    AomTable = {};
    AomCount = 0;
    SortAomModules();
    FifoReset();
    ReadLastAction();
}

// The fields that the link needs; all others stay as the system reports them.
void FillDcb(DCB& dcb, const char* speed) {
    dcb.DCBlength = sizeof dcb;
    dcb.BaudRate = DigitsToNumber(speed);
    dcb.fBinary = 1;
    dcb.fParity = 0;
    dcb.fOutxCtsFlow = 1;
    dcb.fOutxDsrFlow = 0;
    dcb.fDtrControl = DTR_CONTROL_DISABLE;
    dcb.fDsrSensitivity = 0;
    dcb.fTXContinueOnXoff = 0;
    dcb.fOutX = 0;
    dcb.fInX = 0;
    dcb.fErrorChar = 0;
    dcb.fNull = 0;
    dcb.fRtsControl = RTS_CONTROL_DISABLE;  // raised by hand
    dcb.XonLim = 0;
    dcb.XoffLim = 0;
    dcb.ByteSize = 8;
    dcb.Parity = NOPARITY;
    dcb.StopBits = TWOSTOPBITS;
    dcb.XonChar = 0;
    dcb.XoffChar = 0;
    dcb.ErrorChar = 0;
    dcb.EofChar = 0;
    dcb.EvtChar = 0;
}

// Opens the port and writes its state. On failure the handle stays as far as it got, and the system error tells why.
bool OpenPort(const char* name, const char* speed, bool abortOnError) {
    Serial.Port =
        CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (Serial.Port == INVALID_HANDLE_VALUE)
        return false;
    BeginTransfers();
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    if (!GetCommState(Serial.Port, &dcb))
        return false;
    FillDcb(dcb, speed);
    if (abortOnError)
        dcb.fAbortOnError = 1;
    return SetCommState(Serial.Port, &dcb) != 0;
}

void SetTimeouts() {
    COMMTIMEOUTS timeouts{};
    GetCommTimeouts(Serial.Port, &timeouts);
    timeouts.ReadIntervalTimeout = MAXDWORD;  // a read returns at once with what has arrived
    timeouts.ReadTotalTimeoutMultiplier = 0;
    timeouts.ReadTotalTimeoutConstant = 0;
    timeouts.WriteTotalTimeoutMultiplier = 0;
    timeouts.WriteTotalTimeoutConstant = 0;
    SetCommTimeouts(Serial.Port, &timeouts);
}

void RaiseRts() {
    EscapeCommFunction(Serial.Port, SETRTS);  // some ports have no such line: not an error
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    GetCommState(Serial.Port, &dcb);
}

bool IsComPort(const char* name) {
    return std::strstr(name, "COM") != nullptr;
}

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

}  // namespace

DWORD WINAPI SerialThreadBody(LPVOID ready) {
    const DWORD result = ServePort(ready);
    SerialThreadLife = ThreadLife::None;
    return result;
}

HANDLE SerialOpenComms(const char* name, const char* speed) {
    Trace(TRACE_ENTRY, "SerialOpenComms (%s,%s)", name, speed);
    if (Serial.PortFailed)
        return INVALID_HANDLE_VALUE;
    if (Serial.Port != INVALID_HANDLE_VALUE)
        SerialCloseComms();
    if (!IsComPort(name)) {
        SetLastError(ERROR_INVALID_NAME);
        return INVALID_HANDLE_VALUE;
    }
    if (!OpenPort(name, speed, false)) {
        if (Serial.Port != INVALID_HANDLE_VALUE)
            ClosePort(Serial.Port);  // the thread decides by the error what the user is told
        Trace(TRACE_ALWAYS, "***Comm port failed to open");
        return INVALID_HANDLE_VALUE;
    }
    SetTimeouts();
    RaiseRts();
    ResetComPort(3);
    Link.After_L2_timeout = ReadAfterL2Timeout();
    Trace(TRACE_ALWAYS, "* After_L2_timeout = %d *", Link.After_L2_timeout);
    ResetTransmitState(false);
    StartLink();
    if (!SerialStartTimer()) {  // a port that no tick serves is none
        const DWORD error = GetLastError();
        SerialCloseComms();
        Trace(TRACE_ALWAYS, "***Comm port failed to open");
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    return Serial.Port;
}

void SerialCloseComms() {
    RenewPortWait();
    ResetComPort(3);
    FifoClear(LINK_FIFO);
    if (Serial.Port != INVALID_HANDLE_VALUE) {
        EscapeCommFunction(Serial.Port, CLRRTS);
        ClosePort(Serial.Port);
    }
    // The timer goes too where a reconnection has left no port: nothing else would end it.
    if (Serial.Timer != 0)
        KillTimer(nullptr, std::exchange(Serial.Timer, 0));
}

void ResetComPort(int reason) {
    Trace(TRACE_ENTRY, "ResetComPort:%d", reason);
    if (Serial.Port == INVALID_HANDLE_VALUE) {
        Trace(TRACE_ENTRY, "No hcd ");
        return;
    }
    ResetReceiver();
    CheckSerialError(Serial.Port);
    FlushWrites(Serial.Port);
    CheckSerialError(Serial.Port);
    Link.AckWaitTicks = ACK_WAIT_LIMIT - 1;  // nothing is sent for about two ticks
}

void Reconnect() {
    Trace(TRACE_ALWAYS, "Perte de connexion - Tentative de redemarrage");
    AllCallReset();
    FifoClear(LINK_FIFO);
    Link.LinkIdleTicks = 0;
    if (!Tick.ConfigReceived)
        Tick.WaitConfigCount = 0;
    Tick.WaitTrace = 0;
    if (Serial.Port != INVALID_HANDLE_VALUE)
        ClosePort(Serial.Port);
    if (!IsComPort(ProviderState.PortName))
        return;
    if (!OpenPort(ProviderState.PortName, ProviderState.SpeedText, true)) {
        LogPortFailure(ProviderState.PortName, GetLastError());
        return;
    }
    RaiseRts();
    ResetComPort(3);
    Link.After_L2_timeout = ReadAfterL2Timeout();
    Trace(TRACE_ALWAYS, "After_L2_timeout = %d", Link.After_L2_timeout);
    ResetTransmitState(true);
    StartLink();
}

bool SerialStartTimer() {
    Trace(TRACE_ALWAYS, "SerialStartTimer");
    if (Serial.Timer == 0)
        Serial.Timer = SetTimer(nullptr, 0, TICK_MS, SerialTick);
    return Serial.Timer != 0;
}

int HardwareProblemBox(bool& held) {
    Trace(TRACE_ALWAYS, "V24 trouble hinst %lx", Process.ModuleInstance);
    MessageBeep(MB_ICONHAND);
    ReleaseLineMutex(0);
    const int result = ErrorBox("Hardware Problem - Please check:\n\n - the cable,\n - the PC serial port,\n"
                                " - the VXC card.\n\nTrying to restart ... Click Ok to abort");
    held = GotLineMutex(WaitLineMutex());
    Trace(TRACE_ALWAYS, "MessageBox returns %lx IDOK %lx IDHELP %lx", result, IDOK, IDHELP);
    return 0;
}

int NoConfigurationBox(bool& held) {
    Trace(TRACE_ALWAYS, "Dynamic Config not received - SP stopped");
    MessageBeep(MB_ICONHAND);
    ReleaseLineMutex(0);
    ErrorBox("No response from PBX !\nThe Corvane Service Provider cannot run...\n\n- Check your PBX version.\n"
             " - Check your VXC setup.");
    held = GotLineMutex(WaitLineMutex());
    Trace(TRACE_ALWAYS, "Dynamic Config not received DialogBox return %ld", 0);
    return 0;
}
