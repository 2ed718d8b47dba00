// What the set's files share; for nobody else. Each group is named by its file.
#pragma once

#include "equipment/equipment.h"

#include <mutex>
#include <string>
#include <vector>

namespace Equipment {

// What the set tells the PBX, and the provider presses.
constexpr std::uint8_t EventDigit = 0x03;
constexpr std::uint8_t EventKey = 0x20;

// Locks the machine for one action and sends what it has queued at its end, so that the pieces of one action can share
// a frame.
struct Action {
    std::lock_guard<std::recursive_mutex> lock;
    Machine& machine;
    explicit Action(Machine& m) : lock(m.guard), machine(m) {}
    ~Action() { machine.Pump(); }
};

// --- picture.cpp: what goes over the wire, and into the picture
std::string KeyText(int key);
const KeyConfiguration* Configured(const Machine& machine, int key);
bool IsKind(const Machine& machine, int key, KeyKind kind);
// Boss and secretary keys: they carry one call, and dial their label by themselves.
bool IsPartnerKey(const Machine& machine, int key);
std::string CheckKey(const Machine& machine, int key);
const ModuleConfiguration* ModuleOf(const Machine& machine, int key);

void Command(Machine& machine, Bytes command);
void Event(Machine& machine, int code, int value);  // the set's own, of a person at it
void KeyEvent(Machine& machine, int key);
void DigitEvent(Machine& machine, char character);
void PutIcon(Machine& machine, int key, std::uint16_t value);
void Write(Machine& machine, int line, const Bytes& text, int position, int mode, bool more);
void Line0(Machine& machine, const std::string& text);
void Line1(Machine& machine, const std::vector<std::string>& labels);

std::string Label(const Machine& machine, SoftKey key);
std::string Prompt(const Machine& machine, DisplayString text);
std::uint16_t IconOf(const Machine& machine, int key);
void ShowIcon(Machine& machine, int key);  // as its calls stand; sent when it changes
void ShowRinging(Machine& machine);
void ShowParty(Machine& machine, const SetCall& call);
void ShowCallerOf(Machine& machine, const SetCall& call);  // unless a call is being made, whose digits stand there
void ShowKeys(Machine& machine);                           // the soft keys that fit what is going on
void ShowConference(Machine& machine, const SetCall& first, const SetCall& second);
// Line 0 and soft keys after calls have gone or been put aside.
void ShowWhatIsLeft(Machine& machine);

// --- calls.cpp: the calls and what may happen to them
template <class Test> SetCall* Find(Machine& machine, Test test) {
    for (SetCall& call : machine.set.calls)
        if (test(call))
            return &call;
    return nullptr;
}
SetCall* CallById(Machine& machine, int id);
SetCall* ActiveCall(Machine& machine);
SetCall* AnyCallOn(Machine& machine, int key);
SetCall* CallOn(Machine& machine, int key, CallState state);
SetCall* Beside(Machine& machine, const SetCall& call);  // the other call of a key that has two
// Held calls that the active one could be joined with: the one on its own key, else all others, last held last.
std::vector<SetCall*> Partners(Machine& machine, const SetCall& active);
int FreeMultiKey(Machine& machine);  // 0 = none

SetCall& NewCall(Machine& machine, int key, CallState state);
void Hold(Machine& machine, SetCall& call);
void Connect(Machine& machine, SetCall& call);
void RingBack(Machine& machine, SetCall& call);
void EndCalls(Machine& machine, const std::vector<int>& ids);
void EndKey(Machine& machine, int key);
// Whether the active call, if any, can make room for another one; then ClearTheWay holds or ends it.
std::string RoomForAnother(Machine& machine);
void ClearTheWay(Machine& machine);
std::string Seize(Machine& machine, int key, bool person);
std::string StartSecondCall(Machine& machine);
std::string EndSecond(Machine& machine);
std::string SwapTwo(Machine& machine);
void TransferTo(Machine& machine, SetCall& active, SetCall& held);
void JoinConference(Machine& machine, SetCall& active, SetCall& held);
void LeaveConference(Machine& machine, SetCall& leaves);
void PutDown(Machine& machine, SetCall& active);  // the release key

// --- keys.cpp: presses. `person`: somebody at the set pressed it, and the set reports it.
std::string DoKey(Machine& machine, int key, bool person);
std::string DoAnswer(Machine& machine, int key, bool person);
std::string DoHold(Machine& machine, int key, bool person);
std::string DoRetrieve(Machine& machine, int key, bool person);
std::string DoSoftKey(Machine& machine, int position, bool person);
std::string DoCharacter(Machine& machine, char character, bool person);
std::string DoRelease(Machine& machine, int key, bool person);
std::string DoOffHook(Machine& machine, bool person);
bool IsDigit(char c);
bool IsLetter(char c);

// --- far_end.cpp
// A character has been dialled: the destination, if it is known by now, does what it does.
void Dialled(Machine& machine, SetCall& call);
void Refuse(Machine& machine, SetCall& call);  // busy, or not obtainable: the set asks to hang up

// --- services.cpp
// What has been dialled is a service code, or the beginning of its destination: then nobody else looks at it.
bool TakeService(Machine& machine, SetCall& call);
// What has been dialled is a service code with all its digits.
bool CompletesService(const Machine& machine, const SetCall& call);
// The line is released: a code that waits for more digits has them all.
void FinishService(Machine& machine, SetCall& call);

// --- call_events.cpp: what the PBX tells of calls, in its version
void TellIncoming(Machine& machine, const SetCall& call);
void TellOutgoing(Machine& machine, const SetCall& call, bool numberKnown = true);
void TellConnected(Machine& machine, const SetCall& call);
void TellTransferred(Machine& machine, int key);

}  // namespace Equipment
