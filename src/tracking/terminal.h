// Decodes the copies of the traffic between PBX and set: the PBX's commands (icons, display, lamps, Super Messages) and
// the set's own events (keys, digits). Keeps the display buffer and the lamps, reports PHONE_STATE, and hands icons,
// key presses and display changes on to call tracking. On the serial thread, under the line mutex.
#pragma once

#include "platform/platform.h"

#include <array>
#include <cstdint>
#include <span>

constexpr int DISPLAY_COLUMNS = 40;
constexpr int LAMP_COUNT = 20;

struct DisplayRecord {
    char Lines[2][DISPLAY_COLUMNS + 1] = {"                                        ",
                                          "                                        "};  // as received; terminated
    int Cursors[2] = {};                    // per line, the position after the last character written
    std::array<DWORD, LAMP_COUNT> Lamps{};  // PHONELAMPMODE_; 0 = never set
};
extern DisplayRecord Display;

// One command of the PBX, or several as a Super Message; `command` begins with its code. moduleMode 1: it is an add-on
// module's, at this address (0 to 7).
void DecodeSuperMessage(std::span<const std::uint8_t> command, int moduleMode, int address);
// One event of the set, or of an add-on module; `event` begins with its code.
void DecodeTerminalEvent(std::span<const std::uint8_t> event, int moduleMode, int address);
// A digit key of the set: 0 to 9, 10 star, 11 hash.
void DigitKeyPushed(int digit);
// A display line was written from column `start` up to, not including, `end`.
void DisplayChanged(int line, int start, int end, bool complete);
