// The COM port to the card, and the serial thread: the one worker thread of the provider. It opens the port, starts the
// 100 ms timer whose ticks do all the link's work, and runs a message loop that dispatches them until it is stopped.
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

// The thread's body; takes the event that it signals when its attempt to open the port is over. Gives 0, or the identifier
// of the request that a failed open completed. Opening and closing the port holds the line mutex, as ticks do.
DWORD WINAPI SerialThreadBody(LPVOID ready);

// Opens and sets up the port, starts link and timer. Gives the handle, or INVALID_HANDLE_VALUE.
HANDLE SerialOpenComms(const char* name, const char* speed);
void SerialCloseComms();
// Puts receiver and port back to a clean start and holds sending for about two ticks. The reason is only traced.
void ResetComPort(int reason);
// After a loss of contact: reports all calls idle, opens the port anew and starts the link again.
void Reconnect();
// False, with the error set, when the system gives no timer.
bool SerialStartTimer();
// The two boxes of the tick; both give 0. They release the line mutex while they are shown, and say whether the tick
// holds it again afterwards: without it, it must touch nothing more.
int HardwareProblemBox(bool& held);
int NoConfigurationBox(bool& held);
