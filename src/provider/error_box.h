// The message boxes that every error the user must see goes through. On a process's own screen they are the system's; a
// service has no screen, and its boxes go to the session of the user who works at the computer, or else of one who works
// there from afar. Each is in the event log too.
#pragma once

#include "platform/platform.h"

// Shows a modal message box under the title "Corvane 6200 SP Error" and gives its result. Takes Windows-1252 text. The
// calling thread's messages are dispatched while it is open, and so ticks run in it.
//
// In a user's session: where nobody is logged on it counts as answered with OK at once. One that is shown under the line
// mutex counts as closed (IDTIMEOUT) when the mutex has been held for 15 s; the others wait for their answer, or until the
// serial thread is to stop, which leaves the box standing.
// `seen` is set to false where the box could not be shown to anybody: it would be the same if it were shown again at once.
int ErrorBox(const char* text, bool* seen = nullptr);
