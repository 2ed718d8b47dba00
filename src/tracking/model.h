// The model of the set: its programmable keys, the 20 call records with the conference call, and the markers by which
// the state machines, the requests and the tick talk to each other. Plain tables; whoever uses them holds the line
// mutex.
//
// A call is named everywhere by its cref, the index of its record (0 to 19); it is also the hdCall that TAPI gets. The
// conference call has cref 30 and no record.
#pragma once

#include "platform/platform.h"
#include "provider/state.h"

#include <array>
#include <cstdint>

constexpr int CALL_COUNT = 20;
constexpr int CONF_CREF = 30;
constexpr int KEY_COUNT = 89;  // indexes 0 to 88; keys are numbered from 1, key 0 carries no calls
constexpr std::size_t LABEL_SIZE = 32;

enum TouchKind : std::int32_t {
    TOUCH_NONE = 0,
    TOUCH_SUPERV = 7,
    TOUCH_PATRON = 8,
    TOUCH_SECRETAIRE = 9,
    TOUCH_SECR_DEBORD = 10,
    TOUCH_MULTI = 11,
};

enum IconCode : std::int32_t {
    ACTIV_ICON = 11,
    INCOM_ICON = 12,
    HOLD_ICON = 13,
    IDLE_ICON = 14,
    RESERVED_ICON = 15,
};

// Marks a held call that the set presents again. Never sent to TAPI.
constexpr DWORD STATE_REOFFERING = 0x10000;

struct Touch {
    std::int32_t kind = TOUCH_NONE;
    char label[LABEL_SIZE] = {};
    std::int32_t icon = 0;             // the icon code last processed
    std::uint32_t rawIcon = 0;         // the 16-bit icon value last received
    std::array<int, 2> calls{-1, -1};  // crefs standing on the key; slot 1 on multi-line keys only
};
extern std::array<Touch, KEY_COUNT> TouchTable;

struct CallRecord {
    std::int32_t touch = 0;  // the key the call stands on; 0 = the record is free
    DWORD state = 0;         // LINECALLSTATE_ or STATE_REOFFERING; 0 = never used
    int Inbound = 0, Outbound = 0, byMakeCall = 0;
    HTAPICALL htCall = {};
    char DestAddress[NUMBER_SIZE] = {}, DestName[NUMBER_SIZE] = {};
    char DigitsToGenerate[NUMBER_SIZE] = {};
    char CalledAddress[NUMBER_SIZE] = {}, CalledName[NUMBER_SIZE] = {};
    char CallerAddress[NUMBER_SIZE] = {}, CallerName[NUMBER_SIZE] = {};
    char RedirectionAddress[NUMBER_SIZE] = {}, RedirectionName[NUMBER_SIZE] = {};
    char RedirectingAddress[NUMBER_SIZE] = {}, RedirectingName[NUMBER_SIZE] = {};
    char ConnectedAddress[NUMBER_SIZE] = {}, ConnectedName[NUMBER_SIZE] = {};
    int DispNamePending = 0;  // name and number are still to be read from the display
    DWORD Origin = LINECALLORIGIN_UNAVAIL;
    DWORD Reason = LINECALLREASON_UNAVAIL;

    bool HasDirection() const { return Inbound != 0 || Outbound != 0 || byMakeCall != 0; }
};
extern std::array<CallRecord, CALL_COUNT> CallTable;

// State of the conference call: a LINECALLSTATE_ value, 0 at start-up.
extern DWORD confstate;

// Keys of one kind, in configuration order. Room is what the kind may hold; further keys are refused.
struct KeyList {
    explicit constexpr KeyList(int room) : Room(room) {}
    int Room;
    int Count = 0;
    std::array<int, 31> Keys{};

    // Gives false, and changes nothing, when the list is full.
    bool Append(int key) {
        if (Count >= Room)
            return false;
        Keys[static_cast<std::size_t>(Count++)] = key;
        return true;
    }
    const int* begin() const { return Keys.data(); }
    const int* end() const { return Keys.data() + Count; }
};
struct KeyListSet {
    KeyList Multi{10}, Superv{31}, Patron{10}, Secretaire{10}, SecrDebord{10};
};
extern KeyListSet KeyLists;

// Markers that start anew with every serial thread.
struct TrackingState {
    int ActivCallTouch = 0;         // key whose call is in conversation; 0 = none
    int DbCall = 0;                 // two calls stand on one multi-line key
    int OfferInfoCref = -1;         // newest incoming call whose caller has not been read yet
    int OfferTicks = 0;             // ticks spent waiting for that caller
    int UnknownConnectedCall = -1;  // call just answered whose party is still to be read from the display
    int PickUpCref = -1;            // call of a running linePickup, waiting to appear on a key
    int ConfInProgress = 0;
    int ConferenceReq = 0;  // the conference call was already made by a TAPI request
    int ConfParty1 = 0, ConfParty2 = 0;
    int ConfEndReq = 0;         // the user pressed the conference soft key again
    int ConfBroken = 0;         // a party left the conference
    int SecondCallDropReq = 0;  // soft key 1 was pressed on request to end the second call
    int ForwardAckTicks = 0;    // ticks left after a forwarding code was sent
    int RingingKey = 0;         // a caller is about to stand on it: free for nobody, though its calls have ended
};
extern TrackingState Tracking;

// Markers that keep their value from one serial thread to the next.
extern int PickUpSupervCref;          // ringing supervised call that the user intercepts; -1 = none
extern int SwapKeyTransferingCref;    // call reported transferred away from a boss or secretary key; -1 = none
extern std::array<int, 10> WaitInfo;  // calls offered without caller, still waiting for it; -1 = free entry
extern char ConfText1[13], ConfText2[13];
extern char TmpAddress[NUMBER_SIZE];    // digits read from line 0 while an outgoing call is dialled
extern char DialedNumber[NUMBER_SIZE];  // digits keyed on the set since the last call began

bool IsCref(int cref);  // 0 to 19

// Takes the first free record for a call on this key; gives its cref, or -1 when all are taken. Cuts DialedNumber to
// its last character. The creator sets the direction.
int AllocCallRecord(DWORD state, int key);
// Empties the party texts, DispNamePending, Origin and Reason. DigitsToGenerate stays.
void ResetCallRecord(int cref);
// The cref standing on the key in this state, slot 0 first; -1 when there is none.
int SearchState(int key, DWORD state);
// The first cref 0 to 19 whose state is this LINECALLSTATE_, or -1.
int FindCallByState(DWORD state);
// The cref in slot 0, or in slot 1 when slot 0 is empty; -1 when both are.
int CallOnKey(int key);
// Empties the key's slot that holds the cref, if one does.
void LeaveSlot(int key, int cref);
// A free record is taken for another call: the keys that still hold its former one (a reset of all calls leaves it on boss,
// secretary and overflow keys) would end that one in its place. Supervision keys keep it: they know theirs by its key.
void LeaveFormerSlots(int cref);
// Ends a call that the set no longer shows: DISCONNECTED, IDLE, record and slot freed.
void ClearCall(int cref);
// A call placed from the set, as the PBX's events report it. Gives its cref or -1.
int NewCall(int key, DWORD state);
// Moves a call to the state that the PBX's events report.
void NewState(int cref, int key, DWORD state);
void ConferenceReset();
// Every live call is reported IDLE, a make call that was put off is given up; records and markers are emptied, multi-line keys are idle and carry no calls.
void AllCallReset();

// Tells TAPI that every live call is idle; the records stay as they are.
void ReportCallsLost();

// The name by which traces print an icon code (0 to 15); empty for code 0, and for any other.
const char* CommandName(int code);

// A 40-character copy of display line n, converted to Windows-1252. One shared buffer: use it before the next call.
const char* DisplayLine(int n);
// Copies the 40 characters of DisplayLine(n), unterminated, into `out`; nothing for any n but 0 and 1.
void GetDisplayLine(int n, char* out);
// Removes trailing blanks in place.
void TrimRight(char* text);
// Skips leading blanks, converts the set's characters from the second one on, removes trailing blanks; in place.
char* CleanLabel(char* text);
