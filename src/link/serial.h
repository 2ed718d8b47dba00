// The COM port to the card: opened, closed, opened anew after a loss of contact, with the timer whose ticks do all the
// link's work. By the serial thread, under the line mutex.
#pragma once

#include "platform/platform.h"

#include <cstdint>

struct SerialState {
    HANDLE Port = INVALID_HANDLE_VALUE;
    UINT_PTR Timer = 0;
    bool PortFailed = false;  // the thread could not open the port; SerialOpenComms refuses while set
    char PortDigit = '1';     // fourth character of the port name
    bool V24Trouble = false;  // the "Hardware Problem" box has been shown since the thread started
};
extern SerialState Serial;

constexpr UINT TICK_MS = 100;

// Opens and sets up the port, starts link and timer. Gives the handle, or INVALID_HANDLE_VALUE.
HANDLE SerialOpenComms(const char* name, const char* speed);
void SerialCloseComms();
// Puts receiver and port back to a clean start and holds sending for about two ticks. The reason is only traced.
void ResetComPort(int reason);
// After a loss of contact: opens the port anew and starts the link again.
void Reconnect();
// ZT_Info\After_L2_timeout in ms, 1 to 150; 10 for anything else.
int ReadAfterL2Timeout();
// False, with the error set, when the system gives no timer.
bool SerialStartTimer();
