// What the COM port is read and written with: overlapped transfers that nobody waits for without a bound.
//
// A driver may keep a transfer as long as it likes: a write while CTS is low, a read for its own reasons, and either of
// them even when it has been called off. So each has a place of its own, with its bytes, and the place is used again only
// when the system has let go of it. All waiting for the port draws on one allowance, given anew to each tick, since the
// tick holds the line mutex. FlushFileBuffers is not used: it is subject to flow control and to no time-out.
// Used under the line mutex while the port is open.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <span>

constexpr DWORD PORT_WAIT_MS = 100;  // altogether, in a tick or a closing

// Gives the caller the whole allowance again.
void RenewPortWait();

// What a port that has just been opened waits with.
void BeginTransfers();
// Calls off what is under way on the port and closes it. Leaves the system error as it was.
void ClosePort(HANDLE& port);

// Hands bytes to the port and does not wait for them to go out; a write that stays pending counts as written. False,
// with the system error set, when the port refuses them.
bool WritePort(HANDLE port, std::span<const std::uint8_t> bytes);
// Lets pending writes go out, as far as the allowance goes, and calls off those that do not.
void FlushWrites(HANDLE port);

// Reads what has arrived, as much as there is room for. Gives the number of bytes, 0 also when a read is not over yet (the
// next call looks at it again), or -1 on a failure.
int ReadPort(HANDLE port, std::span<std::uint8_t> room);

// Clears the port's error state. Gives 0, or -1 for an invalid handle.
int CheckSerialError(HANDLE port);
