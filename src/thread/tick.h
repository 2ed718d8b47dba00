// The tick: every 100 ms, on the serial thread, under the line mutex. It supervises link and configuration, carries out
// what other rooms left for it, reads the port and kicks the transmitter.
#pragma once

#include "platform/platform.h"

void CALLBACK SerialTick(HWND, UINT, UINT_PTR, DWORD);
