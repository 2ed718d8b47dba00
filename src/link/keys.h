// Key presses that the provider makes on the set's behalf: the only way in which it carries out a request. Presses are
// queued as single messages, or gathered into a Super Message when the card takes those. Also the add-on modules'
// addressing.
//
//   key 1 to 28, soft key, release, letter   03 26 20 code
//   digit                                    03 26 03 0..11            10 = '*', 11 = '#'
//   key 29 and above, on a module            05 26 04 adr|18h 20 k-offset
// each with the checksum of a frame when it travels alone, without it inside a Super Message.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

constexpr int SET_KEYS = 28;       // keys of the set itself; higher ones stand on add-on modules
constexpr int SOFT_KEY_BASE = 28;  // soft key n (1 to 5) has key code 28 + n
constexpr int RELEASE_KEY = 41;    // hangs up
constexpr int OFFHOOK_KEY = 48;

// What happens on the set, as the first byte of its event: what it sends, and what is pressed for it.
enum TerminalEvent : std::uint8_t {
    EVENT_DIGIT = 0x03,   // digit code
    EVENT_MODULE = 0x04,  // on a module, whose address follows; pressed only
    EVENT_KEY = 0x20,     // key code
};

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
// Index in AomTable of the module that carries this key (29 and above); -1 when the set has no module.
int GetAomIndex(int key);

// Several presses that travel together. Starts empty; an item that would take its length byte past 255 first sends what
// is there, so that a long request goes out as several messages, in order, and nothing is cut.
struct SuperMsgBuffer {
    static constexpr std::size_t HEADER = 2, ITEMS = 254;
    std::array<std::uint8_t, HEADER + ITEMS + 1> Bytes{};
    std::size_t Used = HEADER;  // write position
};
// Closes and queues the message and empties the buffer; nothing when it holds no press.
void SuperMsgSend(SuperMsgBuffer& message);

// The presses of one request: gathered into a Super Message when the card takes those (decided at its start), else queued
// one by one. Send() at the end, once all are in.
struct PressSequence {
    PressSequence();
    bool Together;  // one Super Message
    SuperMsgBuffer Message;

    void Key(int key);                   // programmable key
    void SoftKey(int position);          // 1 to 5
    void DialString(char* text);         // SendDialString
    void ServiceCode(const char* code);  // PressServiceCode
    void Send();
};

// Queues the press of one key code of the set (03 26 20 code checksum).
void PressKeyCode(int code);
// Presses one of the soft keys 1 to 5 under the display. Gives the number, or 0 when it is none of them.
int SendSoftKey(int number);
// Queues the press of a programmable key, 1 to 88. A module key of a set without modules presses nothing, traced.
void SendZTNondigitKey(int key);
// The same, appended to a Super Message.
void SuperMsgInsertZTNondigitKey(int key, SuperMsgBuffer& message);
// Appends soft key 1 to 5; any other position appends nothing.
void SuperMsgInsertSoftKey(int position, SuperMsgBuffer& message);

// "0" to "9", "*" and "#".
bool IsDialDigit(char c);
// The press of a dial digit as an item without checksum; nothing for any other character.
std::optional<std::array<std::uint8_t, 4>> PrepareDigitKey(char c);
// Presses the digits and letters of a text, up to 80, into the Super Message or, with null, each as its own message.
// Any other character is removed from the text in place, after `removed` (may be null) was told its code.
void SendDialString(char* text, SuperMsgBuffer* message, void (*removed)(int code) = nullptr);
// Presses a service code's digits, stars and hashes, as SendDialString does; any other character is left out, traced at
// level 0.
void PressServiceCode(const char* code, SuperMsgBuffer* message);
// The code presses something: the PBX gave one, with a digit, star or hash in it.
bool IsServiceCode(const char* code);
