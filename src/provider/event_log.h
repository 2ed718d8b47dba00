// What an administrator finds in the Windows event log (Application, source "zt_6232"): the line in service, contact lost and
// back, a port that was not opened, a provider that stopped itself, every message box. event_log.mc has the sentences.
//
// The same entry is written once a minute at most; the next one then says how many were left out. May be called by any
// thread, with or without the line mutex, and leaves the thread's last error as it is.
#pragma once

#include "event_ids.h"  // made from event_log.mc
#include "platform/platform.h"

// Writes an entry. `subject` (a port's name, a box's text) and `number` are what its sentence has them for.
void LogEvent(EventId event, const char* subject, DWORD number = 0);

// A port that was not opened, by the system's error.
void LogPortFailure(const char* port, DWORD error);

// Writes what was left out more than a minute ago. Called by every tick.
void LogLeftOut();

// Forgets what has been written, and what was left out: for tests.
void ResetEventLog();
