// What stands behind the port: the set and its PBX as they are configured, what they do wrong on request, and how fast
// the line is. Plain records; changing one takes effect at the next use (the keys and texts: when the provider next
// asks for them).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Equipment {

// Kinds of programmable key, as the configuration dialogue numbers them.
enum KeyKind : std::uint8_t {
    KindSupervision = 7,
    KindBoss = 8,
    KindSecretary = 9,
    KindOverflow = 10,
    KindMulti = 11,
};

struct KeyConfiguration {
    int number = 1;  // 0 to 255; the set has 88, others serve to provoke
    std::uint8_t kind = KindMulti;
    std::string label;  // a multi-line key's directory number
};

struct ModuleConfiguration {
    int address = 0;  // 0 to 7
    bool aom20 = false;
    int offset = 0;  // key k stands at position k - offset of the module
};

enum SoftKey { SecondCall, EndSecondCall, Swap, Conference, FreqVocale, CancelFreqVocale, Transfer, SoftKeys };
enum DisplayString { HangUp, CancelSecondCall, Dial, DisplayStrings };
// What a dialled number does by itself.
enum class FarEnd : std::uint8_t {
    Script,         // waits for far-rings, far-answers ...
    Answers,        // rings, and answers after `ms`
    Busy,           // after `ms`
    NeverAnswers,   // rings
    NotObtainable,  // as busy, but the PBX tells of no call
};
struct Destination {
    FarEnd does = FarEnd::Script;
    std::uint32_t ms = 0;
    std::string name;
};

enum Language : std::uint8_t { French = 1, English = 2, German = 4, Spanish = 5, Italian = 6 };

constexpr std::uint8_t NotForwarded = 4;

struct SetConfiguration {
    int omna = 2;  // TAPI_OMNA version 1, 2 or 3
    int cardMajor = 3, cardMinor = 6;
    bool superFrames = false;           // flag 0 of the Config Response
    bool piggyback = false;             // flag 1
    std::uint8_t containerType = 0x6E;  // of super frames; 0x0B is the other one that providers take
    std::string number = "4711";
    std::uint8_t deviceType = 3;                // 3: the kind of set that the provider serves
    std::uint8_t multiMode = 0;                 // 1: a second call is made on the same key
    std::uint8_t forwardStatus = NotForwarded;  // below: 0 always, 1 busy, 2 no answer, 3 busy or no answer
    std::uint8_t forwardType = 0;
    bool Forwarded() const { return forwardStatus < NotForwarded; }
    std::string forwardDestination;
    std::vector<ModuleConfiguration> modules;
    std::vector<KeyConfiguration> keys = {{1, KindMulti, "4711"}, {2, KindMulti, "4711"}, {3, KindMulti, "4712"}};
    // Index = identifier. More than 7, 3 and 7 may be given, to provoke.
    std::vector<std::string> softKeys = {"2eApp", "Fin2Ap", "VaVien", "Conf", "FreqV", "StopV", "Transf"};
    std::vector<std::string> strings = {"Raccrochez", "Annulez", "Numero:"};
    std::vector<std::string> codes = {"61", "62", "63", "64", "60", "65", "66"};
    std::uint8_t language = French;
    int entriesPerMessage = 8;                   // of an information message; fewer when they do not fit
    std::string idleText = "Lun 12 Mai  10:30";  // line 0 of a set at rest

    std::map<std::string, Destination> destinations;  // by number
    Destination otherwise;                            // every other number
    std::uint32_t digitPauseMs = 400;                 // without another digit a number is complete, where that is open
    std::uint32_t choicePauseMs = 1500;               // for the key of the other call of a transfer or conference
    std::uint32_t servedMs = 2000;  // a line on which a service code has been carried out is let go after this
    std::uint32_t recallMs = 0;     // a held call rings back after this; 0 = never

    // Numbers in call events. Party flags: 1 internal, 2 external.
    int internalDigits = 4;            // longer numbers are outside
    std::string externalPrefix = "0";  // dialled before an outside number
    bool prefixInEvents = false;       // outside numbers carry it there; else flag 0x80 says that they do not
    bool noOperatorPrefix = false;     // flag 0x40
    bool eventsAfterDisplay = false;   // else call events come before line 0 shows the party
};

// Which outgoing frames a fault counts.
enum class FaultTarget : std::uint8_t { Any, Data, Control };

// Misbehaviour. Counts run down to 0 as they are used up.
struct Faults {
    bool silent = false;  // cable off: nothing in, nothing out; the set still lives
    bool ctsLow = false;  // the provider may not send: nothing is taken from the port (by whoever moves the bytes)
    FaultTarget target = FaultTarget::Any;  // of the next seven
    int loseNext = 0;
    int loseEvery = 0;  // every n-th frame; 0 = none
    int flipNext = 0;   // one bit of the frame changed
    int flipEvery = 0;  // every n-th frame; 0 = none
    int flipByte = -1;  // which byte of the frame; -1 = one in its middle
    int cutNext = 0;    // only the first half of the frame is sent
    int joinNext = 0;   // kept back, then sent in one piece with the frame after it
    int repeatNext = 0;
    int ignoreNext = 0;  // received frames that are not answered at all
    int nackNext = 0;    // received frames that are answered with `nackWith`
    std::uint8_t nackWith = 0x84;
    std::uint32_t ackDelayMs = 0;
    std::uint32_t answerDelayMs = 0;  // of the PBX's answers to TAPI_OMNA requests
    bool noTraceHeaders = false;      // the card copies nothing of what PBX and set say to each other
    bool noAssociation = false;       // the PBX does not answer the device association
    bool noAnswers = false;           // nor anything else
    bool noMultiLineKey = false;      // the PBX announces no multi-line key
    bool noPollAnswer = false;
    bool wrongSequence = false;  // segments of long messages go out in the wrong order
};

struct Pacing {
    std::uint32_t bitsPerSecond = 9600;  // 11 bits a byte: start, 8 data, 2 stop. 0 = no pacing
    std::uint32_t resendMs = 1000;       // without an acknowledgement
    int resendLimit = 10;                // then nobody is there: the frame and all that waits are dropped
    std::uint32_t idleMs = 500;          // half a received frame is forgotten
};

}  // namespace Equipment
