// TAPI_OMNA, the PBX's CTI message set: the envelope of a message, its sequence number, the frames that carry it (one of
// type 0x12, or 16-byte segments in frames of type 0x0C), and reassembly.
//
//   byte 0 zero · 1 length with header · 2 version · 3 class · 4 code · 5 sequence number · 6.. payload
#pragma once

#include <cstdint>
#include <span>

constexpr std::size_t OMNA_HEADER = 6;

enum OmnaCode : std::uint8_t {
    OMNA_DEVICE_ASSOC = 2,
    OMNA_DEVICE_ASSOC_ACK = 3,
    OMNA_END_OF_CONFIG = 4,  // sent for a set without multi-line keys
    OMNA_KEY = 6,
    OMNA_KEY_ACK = 7,
    OMNA_KEY_INFO = 8,
    OMNA_KEY_INFO_ACK = 9,
    OMNA_STRING = 10,
    OMNA_STRING_ACK = 11,
    OMNA_STRING_INFO = 12,
    OMNA_STRING_INFO_ACK = 13,
    OMNA_SK = 14,
    OMNA_SK_ACK = 15,
    OMNA_SK_INFO = 16,
    OMNA_SK_INFO_ACK = 17,
    OMNA_CODE = 18,
    OMNA_CODE_ACK = 19,
    OMNA_CODE_INFO = 20,
    OMNA_CODE_INFO_ACK = 21,
    OMNA_EVENT_INCOMING_CHANGE = 23,
    OMNA_EVENT_OUTGOING_CALL = 24,
    OMNA_EVENT_CONNECTED_CALL = 25,
    OMNA_EVENT_TRANSFERED_CALL = 28,
    OMNA_KEY_SPE = 30,
    OMNA_KEY_SPE_ACK = 31,
    OMNA_KEY_SPE_INFO = 32,
    OMNA_KEY_SPE_INFO_ACK = 33,
};
constexpr int OMNA_CODES = 34;

// Makes a whole message of the `length` payload bytes at the start of `buffer`, which has room for 7 bytes more
// (header, and a 0 behind the message).
void BuildOmnaHeader(OmnaCode code, int length, std::span<std::uint8_t> buffer);
// Frames and queues a message whose length stands in bytes 0 and 1.
void SendOmnaMsg(std::span<const std::uint8_t> message);
// Builds and sends a request with this payload: BuildOmnaHeader, then SendOmnaMsg.
void SendOmnaRequest(OmnaCode code, std::span<const std::uint8_t> payload);
// Start of a link: sequence numbers to 0, dynamic-configuration state to its start, device association request sent.
void ResetOmnaLink();
// A segment frame from its type byte 0x0C up to, not including, its checksum; answers it when the flag is set.
void RebuildSegment(std::span<const std::uint8_t> frame, bool acknowledge);
