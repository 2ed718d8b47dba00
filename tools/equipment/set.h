// The set: its picture (icons, lamps, display, calls on keys) and what a person at it or a far end of a call does. Each
// action changes the picture and tells the provider's side through the card: what the set reports as 0x62 (modules
// 0x64), what the PBX tells the set as 0x61 (modules 0x63).
//
// Actions give "" when they were done, else why not; then nothing has changed.
#pragma once

#include "equipment/calls.h"
#include "equipment/config.h"
#include "equipment/frames.h"

#include <array>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace Equipment {

struct Machine;

constexpr int KeyCount = 89;  // keys 0 to 88; 1 to 28 on the set itself, the others on add-on modules
constexpr int SetKeyCount = 28;
constexpr int LampCount = 20;
constexpr int DisplayWidth = 40;
constexpr int FirstSoftKeyCode = 29;  // soft keys 1 to 5 are the key codes 29 to 33
constexpr int ReleaseKeyCode = 41;
constexpr int OffHookKeyCode = 48;

// Icon values of a key: two bytes, one for each half of the icon.
enum IconValue : std::uint16_t {
    NoIcon = 0x0000,
    ActiveIcon = 0x2020,
    HeldIcon = 0x2828,
    RingingIcon = 0x2800,
    ReservedIcon = 0x1010,  // the call is over, the key not yet free
};

// A key press that came from the provider.
struct KeyPress {
    enum class Kind : std::uint8_t { Key, Digit, Letter, ModuleKey, Other } kind = Kind::Other;
    int code = 0;     // key code, digit code (10 = '*', 11 = '#') or letter
    int address = 0;  // of the module
    Bytes item;       // as received
};

constexpr std::array<std::array<std::uint8_t, DisplayWidth>, 2> BlankDisplay() {
    std::array<std::array<std::uint8_t, DisplayWidth>, 2> display{};
    for (auto& line : display)
        line.fill(' ');
    return display;
}

struct SetState {
    std::array<std::uint16_t, KeyCount> icons{};
    std::array<std::array<std::uint8_t, DisplayWidth>, 2> display = BlankDisplay();  // in the set's characters
    std::array<int, 2> cursor{};
    std::array<int, LampCount> lamps{};
    bool ringing = false;
    bool handsetOff = false;
    std::array<std::string, 5> softKeys;  // the labels on line 1
    std::list<SetCall> calls;             // two on one key: one of them is held, or both are in conference
    int lastCall = 0;
    int lastHeld = 0;
    int conferenceFirst = 0, conferenceSecond = 0;  // calls: the one that was held, the one that was connected
    // Transfer or Conference was pressed, and which of several held calls is meant is still open: the next key says.
    enum class Choice : std::uint8_t { None, Transfer, Conference } choice = Choice::None;
    int choices = 0;                   // counts them, so that a late end of one does not end the next
    std::string tones;                 // digits sent to other parties as tones
    std::vector<WaitingCall> waiting;  // ringing elsewhere, to be picked up
    std::vector<KeyPress> presses;     // everything the provider pressed, oldest first
};

enum class CallerShown : std::uint8_t { AtOnce, Late, Never };
// What the other end's hanging up looks like on a call in conversation.
enum class HangUpShown : std::uint8_t { Dark, Prompt, Reserved };
// Why a call comes in, and for whom, as the PBX tells it.
struct IncomingDetails {
    int reason = 0;
    std::string called, calledName;
};

// --- the far end
std::string Incoming(Machine& machine, int key, const std::string& number, const std::string& name,
                     CallerShown shown = CallerShown::AtOnce, std::uint32_t lateMs = 1500,
                     const IncomingDetails& details = {});
// The caller of a call that rang without one shows now.
std::string ShowCaller(Machine& machine, int key);
// The other party hangs up: a ringing call's caller, a conference's party, the second call's, a held one. On a key with
// two calls `slot` says which; else it is the connected one, or the last that joined the conference.
std::string FarHangsUp(Machine& machine, int key, HangUpShown shown = HangUpShown::Dark, int slot = -1);
// Of the call being made: the called set rings (line 0 shows the party), is busy, or answers, or the call goes on to
// another party.
std::string FarRings(Machine& machine, const std::string& name = "");
std::string FarDiverts(Machine& machine, const std::string& number, const std::string& name = "");
std::string FarBusy(Machine& machine);
std::string FarAnswers(Machine& machine, const std::string& name = "");
// The other party of a ringing or connected call has handed it on to somebody else.
std::string FarTransfers(Machine& machine, int key, const std::string& number, const std::string& name = "");
// --- the PBX
// A held call rings back.
std::string Recall(Machine& machine, int key);
// A call of a boss or secretary key goes over to another key of this set.
std::string MoveCall(Machine& machine, int from, int to);
// A free line is kept by a call that was over before it began: its key shows reserved until it is put down.
std::string Reserve(Machine& machine, int key);
// A call rings at `address`: the pick-up code and the address bring it here.
std::string CallWaitsAt(Machine& machine, const std::string& address, const std::string& number,
                        const std::string& name = "");

// --- the person at the set
std::string Answer(Machine& machine, int key);
std::string Seize(Machine& machine, int key);
// Digits, * and #, and letters. On a set with nothing to do the first one seizes a line; in a conversation they make a
// second call, unless the voice-frequency mode is on.
std::string DialDigits(Machine& machine, const std::string& digits);
std::string Hold(Machine& machine, int key);
std::string Retrieve(Machine& machine, int key);
// A second call on another key: the active key is held, `key` seized.
std::string SecondCallOn(Machine& machine, int key);
// The active and the (only) held call change roles, by the soft key or the held call's key.
std::string SwapCalls(Machine& machine);
std::string HangUpKey(Machine& machine, int key);
// A key goes down, and the set does with it what it does in its state.
std::string PressKey(Machine& machine, int key);
std::string PressSoftKey(Machine& machine, int position);
// The soft key that stands there with this meaning.
std::string PressLabel(Machine& machine, SoftKey key);
std::string PressRelease(Machine& machine);
std::string PressOffHook(Machine& machine);

// --- the PBX's single commands
std::string SetIcon(Machine& machine, int key, std::uint16_t value);
std::string SetLamp(Machine& machine, int lamp, int mode);
// Writes on a line, as the set shows it from `position` on. Mode 0 blanks the line first, 1 leaves the rest, 2 goes on
// at the cursor. `more`: another piece of the same update follows.
std::string WriteDisplay(Machine& machine, int line, const std::string& text, int position = 0, int mode = 0,
                         bool more = false);
std::string ClearDisplay(Machine& machine);
std::string Ring(Machine& machine, int mode);
std::string Speaker(Machine& machine, int mode);
std::string Handset(Machine& machine, int mode);
std::string ModuleIconsOff(Machine& machine);
// Labels in their five fields of 8 columns; "" leaves a field blank.
std::string ShowSoftKeys(Machine& machine, const std::vector<std::string>& labels);

// --- the picture, as text
std::string DisplayText(const Machine& machine, int line);
std::string IconName(std::uint16_t value);
std::string KindName(std::uint8_t kind);  // of a programmable key
// Display, keys that are lit or have a kind, lamps that are lit.
std::string Picture(const Machine& machine);

// A key press frame of the provider (0x26), as an item.
void TakeKeyPress(Machine& machine, ByteSpan item);

}  // namespace Equipment
