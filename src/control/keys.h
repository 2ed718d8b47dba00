// Key presses that the provider makes on the set's behalf, and the add-on modules' addressing.
#pragma once

#include <array>
#include <cstdint>

constexpr int SOFT_KEY_BASE = 28;  // soft key n (1 to 5) has key code 28 + n
constexpr int RELEASE_KEY = 41;    // hangs up
constexpr int OFFHOOK_KEY = 48;

// An add-on module of the set: its keys are the key numbers above its offset.
struct AomEntry {
    bool present = false;
    std::uint8_t adr = 255;  // 0 to 7
    bool aom20 = false;
    std::uint8_t offset = 255;
};
constexpr int AOM_COUNT = 3;
extern std::array<AomEntry, AOM_COUNT> AomTable;
extern int AomCount;                         // modules present
extern std::array<int, AOM_COUNT> AomOrder;  // entry indexes by offset, lowest first

// Recomputes AomOrder. Equal offsets put the entry with the higher index first.
void SortAomModules();
// The present module entry at this address, or null.
const AomEntry* FindAomByAddress(int address);

// Queues the press of one key code of the set (03 26 20 code checksum).
void PressKeyCode(int code);
