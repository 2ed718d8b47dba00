// The bytes of the link, seen from the card's side.
//
// A frame is a length byte L (1 to 255), L bytes of type and data, and a checksum byte that makes all L + 2 bytes add
// up to 0 modulo 256. Below, an *item* is those L bytes alone, type first: what a container holds and what everything
// above this file works with.
//
// This is the equipment's own frame code. It shares nothing with the product on the other end of the line, so that a
// mistake in one of the two shows up as a disagreement.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Equipment {

using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;

// Frame types.
constexpr std::uint8_t TypeAreYouThere = 0x00;  // the provider answers with the same type and no data
constexpr std::uint8_t TypeOldContainer = 0x0B;
constexpr std::uint8_t TypeSegment = 0x0C;
constexpr std::uint8_t TypeSetQuery = 0x0E;  // the provider answers with a frame of type 0x30
constexpr std::uint8_t TypeOmna = 0x12;
constexpr std::uint8_t TypeRestart = 0x20;  // acknowledged, then answered with the same type and no data
constexpr std::uint8_t TypeKeyPress = 0x26;
constexpr std::uint8_t TypeSetReply = 0x30;
constexpr std::uint8_t TypeControl = 0x60;
constexpr std::uint8_t TypeToSet = 0x61;       // PBX to set
constexpr std::uint8_t TypeFromSet = 0x62;     // set to PBX
constexpr std::uint8_t TypeToModule = 0x63;    // PBX to add-on module
constexpr std::uint8_t TypeFromModule = 0x64;  // add-on module to PBX
constexpr std::uint8_t TypeSuper = 0x6E;       // several items, each behind its length byte
constexpr std::uint8_t TypeAttached = 0x6F;    // a link-control item of two bytes, and one item more

// Link control: the first data byte of a frame of type 0x60.
constexpr std::uint8_t ControlAck = 0x00;
constexpr std::uint8_t ControlPoll = 0x01;
constexpr std::uint8_t ControlSpecial = 0x10;
constexpr std::uint8_t ControlConfig = 0x11;
constexpr std::uint8_t ControlTempo = 0x12;
constexpr std::uint8_t ControlBadLength = 0x83;
constexpr std::uint8_t ControlBadChecksum = 0x84;
constexpr std::uint8_t ControlLostSync = 0x85;  // also what the provider opens the line with
constexpr std::uint8_t ControlAbort = 0x86;
constexpr std::uint8_t ControlContact = 0x87;
constexpr std::uint8_t ControlReset = 0x88;

constexpr std::size_t SuperFrameLimit = 250;  // bytes of a super frame, checksum included

// The byte that makes `bytes` and itself add up to 0.
std::uint8_t ChecksumFor(ByteSpan bytes);
// A whole frame around an item of 1 to 255 bytes; longer ones are cut.
Bytes BuildFrame(ByteSpan item);
Bytes BuildFrame(std::uint8_t type, ByteSpan data);
// The length byte fits the number of bytes, and the sum is 0.
bool FrameHolds(ByteSpan frame);
// The item inside a frame that holds.
ByteSpan ItemOf(ByteSpan frame);

// Items behind their length bytes, joined into one item of type 0x6E (or 0x0B).
Bytes BuildSuper(std::span<const Bytes> items, std::uint8_t type = TypeSuper);
// What a container item holds; an item that runs past the end ends the list and sets `damaged`.
std::vector<Bytes> CutSuper(ByteSpan container, bool& damaged);
// An item of type 0x6F: link control `control` with another item attached.
Bytes BuildAttached(std::uint8_t control, ByteSpan item);
struct Attached {
    std::uint8_t control;
    Bytes item;
};
std::optional<Attached> CutAttached(ByteSpan item);

// Cuts the received byte stream into frames. Feed it byte by byte; Idle() forgets half a frame.
struct Cutter {
    Bytes frame;
    // True when `frame` is complete: look at it (FrameHolds) before the next byte, which starts a new one.
    bool Push(std::uint8_t byte);
    bool Collecting() const;
    void Idle();

private:
    bool complete = false;
};

// TAPI_OMNA: a 6-byte header (0, whole length, version, class 0, code, sequence number) and at most 249 bytes.
constexpr std::size_t OmnaPayloadLimit = 249;
struct OmnaMessage {
    std::uint8_t version = 0;
    std::uint8_t messageClass = 0;
    std::uint8_t code = 0;
    std::uint8_t sequence = 0;
    Bytes payload;
};
Bytes BuildOmna(const OmnaMessage& message);
std::optional<OmnaMessage> ParseOmna(ByteSpan bytes);
// The items that carry a message: one of type 0x12 below 16 bytes, else segments of 16 bytes of type 0x0C, which count
// down to 0.
std::vector<Bytes> OmnaItems(ByteSpan message);

// Puts segments together again.
struct Reassembly {
    enum class Result { More, Complete, Unexpected, WrongLength };
    Bytes message;
    Result Add(ByteSpan item);
    void Reset();

private:
    Bytes buffer;
    std::size_t total = 0;
    int expected = 0;
    int received = 0;
};

// "02 60 00 9E"
std::string Hex(ByteSpan bytes);
std::optional<Bytes> ParseHex(const std::string& text);
// What a frame is, in words, for the log: "ACK", "icon key 1 ringing", ...
std::string Describe(ByteSpan item);

}  // namespace Equipment
