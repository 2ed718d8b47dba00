// The card, the set and the PBX behind the serial port, as one machine that bytes go into and come out of.
//
//     Machine machine;
//     machine.Receive(bytesFromProvider, nowMs);
//     machine.Tick(nowMs);                       // at NextDue() at the latest
//     n = machine.Read(buffer, nowMs);           // what has come down the line by now
//
// It has no clock, thread or file of its own: whoever holds it says what time it is (any millisecond clock that does
// not run backwards; it may wrap). Bytes come out no faster than Pacing says.
//
// The card acknowledges every frame, has one frame of its own in flight at a time and sends it again until it is
// acknowledged. What the set and the PBX say to each other goes out as trace headers (0x61 to 0x64) only while a
// provider is there: from its first whole frame until the card has given up on it, or `silence on`. The set's picture
// (set.h) lives on in any case.
//
// The machine's operations and the actions of set.h may be called from several threads; reading the records directly,
// and the picture as text, is for whoever owns the machine, or holds `guard`.
#pragma once

#include "equipment/config.h"
#include "equipment/frames.h"
#include "equipment/set.h"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace Equipment {

// The card's end of the link.
struct CardState {
    // Something that waits for its turn on the line.
    struct Outgoing {
        Bytes item;
        bool joinable = false;  // may go into a super frame with its neighbours
        int message = 0;        // segments of one long message share a number; 0 = none
        bool last = false;      // the message's last segment
    };
    bool present = false;         // a provider is there
    bool configAnswered = false;  // it knows what this card can do
    std::deque<Outgoing> waiting;
    std::vector<Outgoing> flight;  // what the frame in flight carries; empty = the line is free
    Bytes flightFrame;
    int attempts = 0;
    std::uint64_t sentAtUs = 0;
    Bytes lastWritten;  // for a negative acknowledgement
    bool lastWasFlight = false;
    std::map<int, std::vector<Bytes>> longMessages;  // the segments of messages not yet through, to start them again
    int messageNumber = 0;
    Cutter cutter;
    Reassembly reassembly;
    Bytes lastSegment;  // the last one taken; coming again it is only acknowledged again
    int restarts = 0;   // of the long message in flight
    std::uint64_t lastByteUs = 0;
    // Counters, for tests and `show`.
    int framesIn = 0, framesOut = 0, badFrames = 0, resends = 0, givenUp = 0, nacksIn = 0;
};

// The PBX's end of TAPI_OMNA.
struct PbxState {
    bool associated = false;
    int dialogue = 0;  // counts association requests; an answer that is late for an older dialogue is dropped
    std::array<int, 256> lastSequence{};  // of each request code; -1 = none. A repeated request is not answered again
    std::array<std::uint8_t, 256> ownSequence{};
    std::vector<OmnaMessage> requests;  // all received, oldest first
};

// A byte on its way to the provider.
struct PacedByte {
    std::uint8_t byte;
    std::uint64_t dueUs;
};

struct Machine {
    SetConfiguration config;
    Faults faults;
    Pacing pacing;

    CardState card;
    PbxState pbx;
    SetState set;  // see set.h

    std::function<void(const std::string&)> onLog;         // what happens, a line each
    std::function<void(bool outgoing, ByteSpan)> onFrame;  // every frame, as it is on the wire

    Machine();

    // Bytes from the provider.
    void Receive(ByteSpan bytes, std::uint32_t nowMs);
    // Bytes for the provider that have come down the line by now.
    std::size_t Available(std::uint32_t nowMs);
    std::size_t Read(std::span<std::uint8_t> out, std::uint32_t nowMs);
    // Does what time does: repeats, late answers.
    void Tick(std::uint32_t nowMs);
    // Milliseconds until something happens by itself (a byte is due, a time-out ends); UINT32_MAX = never.
    std::uint32_t NextDue(std::uint32_t nowMs);
    // The provider is gone and the line is dead until it speaks again: nothing is left to send. (A closed port.)
    void Hush();
    // Everything as after construction, configuration, faults, pacing and observers kept.
    void Restart();

    // --- for the files of the set (set_parts.h), pbx.cpp and script.cpp
    std::recursive_mutex guard;
    std::uint64_t nowUs = 0;
    void SetNow(std::uint32_t nowMs);
    // Queues an item for the provider. Dropped when no provider is there.
    void Queue(Bytes item, bool joinable);
    // Queues a TAPI_OMNA message, in as many frames as it needs.
    void QueueOmna(const OmnaMessage& message);
    // Drops TAPI_OMNA messages that still wait: they belong to an older dialogue.
    void DropWaitingOmna();
    // Puts bytes on the line as they are, faults and acknowledgements apart. Nobody repeats them.
    void PutRaw(ByteSpan bytes);
    // Runs `action` in `ms` milliseconds.
    void Later(std::uint32_t ms, std::function<void()> action);
    // Sends what can be sent; at the end of whatever queues something.
    void Pump();
    void Log(const std::string& line);

private:
    struct Delayed {
        std::uint64_t dueUs;
        std::uint64_t order;
        std::function<void()> action;
    };
    std::vector<Delayed> delayed;
    std::uint64_t delayedOrder = 0;
    std::deque<PacedByte> line;
    std::uint64_t lineFreeUs = 0;  // when the last byte queued has left
    bool clockStarted = false;
    std::uint32_t lastMs = 0;
    Bytes joinHeld;
    std::uint64_t joinHeldUs = 0;
    int faultCount = 0;

    void Advance(std::uint32_t nowMs);
    void TakeFrame(ByteSpan frame);
    void TakeControl(ByteSpan item);
    void TakeItem(ByteSpan item, bool acknowledge);
    void TakeSegment(ByteSpan item, bool acknowledge);
    void Acknowledge(Bytes control = {TypeControl, ControlAck});
    void WriteAcknowledgement(const Bytes& control);
    void Acknowledged();
    void Refused();
    void LostSync();
    void Resend(bool whole = false);
    void Clear();
    std::vector<CardState::Outgoing> TakeNext();
    void StartFlight(std::vector<CardState::Outgoing> items, const Bytes* control = nullptr);
    void Write(ByteSpan frame, bool data);
    void Put(ByteSpan bytes, bool atOnce);
};

// The PBX answers a TAPI_OMNA request.
void AnswerOmna(Machine& machine, const OmnaMessage& request);
// DEVICE_ASSOC_ACK, unasked: the PBX reports that forwarding or the modules changed.
void ReportAssociation(Machine& machine);
// Payloads of the configuration dialogue, as the configuration stands.
Bytes AssociationPayload(const SetConfiguration& config);

}  // namespace Equipment
