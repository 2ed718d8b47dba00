#include "link/serial.h"

#include "config/settings.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/port_io.h"
#include "link/tick.h"
#include "link/up.h"
#include "provider/event_log.h"
#include "provider/state.h"
#include "trace/trace.h"

#include <cstdlib>
#include <cstring>
#include <utility>

SerialState Serial;

namespace {

// A decimal number; other characters are not rejected, an empty text gives 0.
std::uint32_t DigitsToNumber(const char* text) {
    std::uint32_t value = 0;
    for (; *text != 0; ++text)
        value = value * 10 + static_cast<std::uint32_t>(*text - '0');
    return value;
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

}  // namespace

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
        Serial.Timer = SetTimer(nullptr, 0, TICK_MS, Up.Tick);
    return Serial.Timer != 0;
}

int ReadAfterL2Timeout() {
    char text[15];
    RegReadSetting(SECTION_ZT_INFO, "After_L2_timeout", "10", text);
    const long value = std::strtol(text, nullptr, 10);
    return value >= 1 && value <= 150 ? static_cast<int>(value) : 10;
}
