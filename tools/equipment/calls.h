// The set's own picture of its calls, as data: scenarios and random walks lay it beside what TAPI was told.
#pragma once

#include <cstdint>
#include <string>

namespace Equipment {

struct Machine;

enum class CallState : std::uint8_t {
    Ringing,
    DialTone,
    Dialling,
    FarRinging,
    Connected,
    Held,
    RingingBack,  // held, and presented again
    Conferenced,  // the other party of the conference is the other call in this state
    Served,       // a service code has been carried out on the line, which waits to be released
    Over,         // the other end is gone or busy, the line not yet put down
};
constexpr int CallStates = 10;
std::string CallStateName(CallState state);

struct SetCall {
    int id = 0;
    int key = 0;
    int slot = 0;  // 0 or 1: a second call on the same key takes the free one
    CallState state = CallState::Ringing;
    bool incoming = false;
    std::string number, name;  // of the other party; of an outgoing call first what was dialled
    std::string dialled;
    bool diverted = false;  // an outgoing call that went to another party than was dialled
    bool tones = false;     // voice-frequency mode: digits are tones for the other party
    bool reserved = false;  // over, and shown so by the icon
    int reason = 0;         // why an incoming call comes: 0 direct, 1 to 3 forwarded, 4 picked up, 8 transferred ...
    std::string called;     // number that an incoming call was for; "" = the key's
    std::string calledName;
    int heldSince = 0;  // the higher, the later it was put on hold
};

// A call that rings somewhere else and may be picked up here.
struct WaitingCall {
    std::string address, number, name;
};

// Being made, in conversation, or over and not yet put down: what the person at the set is busy with.
bool IsActive(const SetCall& call);
bool IsBeingMade(const SetCall& call);
bool IsRinging(const SetCall& call);  // here; for the first time or again
// Held, whether presented again or not.
bool IsHeld(const SetCall& call);

// "" when the picture holds together: two calls a key at most and only on multi-line keys, one active call or the two
// of a conference, icons as the calls stand. Else the first thing that is wrong.
std::string Inconsistency(const Machine& machine);

}  // namespace Equipment
