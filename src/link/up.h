// What the link hands up: the functions of rooms above it that it calls, under the line mutex. It knows them by this list
// alone; thread/up.cpp fills it in.
#pragma once

#include "platform/platform.h"

#include <cstdint>
#include <span>

struct LinkUp {
    // What the PBX told the set, or an add-on module (moduleMode 1, with its address); begins with the command's code.
    void (*Command)(std::span<const std::uint8_t> command, int moduleMode, int address);
    // What happened on the set, or on a module; begins with the event's code.
    void (*TerminalEvent)(std::span<const std::uint8_t> event, int moduleMode, int address);
    // A whole TAPI_OMNA message, header first.
    void (*OmnaMessage)(std::span<const std::uint8_t> message);
    // The link starts: the configuration dialogue goes back to its start before the first request is sent.
    void (*LinkStarts)();
    // The card has been started anew after a long silence: what is known of calls is worth nothing.
    void (*CallsLost)();
    // The timer's procedure.
    void(CALLBACK* Tick)(HWND window, UINT message, UINT_PTR timer, DWORD time);
};
extern const LinkUp Up;
