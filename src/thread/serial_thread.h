// The serial thread: the one worker thread of the provider. It opens the port, starts the 100 ms timer whose ticks do all
// the link's work, and runs a message loop that dispatches them until it is stopped. Opening and closing the port holds the
// line mutex, as ticks do.
#pragma once

#include "platform/platform.h"

// One thread at a time starts or stops the serial thread: a start beside a stop would be given a thread that ends, and the
// handle that a second stop closes may be that of the next thread already.
class SerialThreadTurn {
public:
    SerialThreadTurn();
    ~SerialThreadTurn() { End(); }
    SerialThreadTurn(const SerialThreadTurn&) = delete;
    SerialThreadTurn& operator=(const SerialThreadTurn&) = delete;
    // False when the others take too long.
    bool IsMine() const { return Taken; }
    void End();

private:
    static bool Take(DWORD milliseconds);
    bool Taken;
};

// Whether a serial thread runs. One that has ended by itself (its port did not open) does not; its handle is closed.
bool SerialThreadRuns();

// Starts the serial thread and waits up to 20 s until its attempt to open the port is over. Gives 0 with the line mutex
// held (also when a thread runs already), or LINEERR_NODRIVER without it (also while a forgotten thread lives). Whether
// the port opened, its handle tells. A caller that holds the mutex already does not while it waits: the thread opens the
// port under it. Waits up to 50 s before that where another thread is stopping it, and LINEERR_NODRIVER if that is longer.
LONG StartSerialThread();

// Stops the serial thread, waiting up to 30 s without the line mutex; gives 0 with the mutex held, and leaves it as it
// was when no thread runs. Another thread's stop is waited for before.
LONG StopSerialThread();
