// The PBX's call-information events: who is calling, whom the set called, who answered, which call was transferred.
// They name a call only by its key; the call on that key gets its party texts, origin and reason, and a state that the
// event proves, and TAPI is told. An event that finds no fitting call on its key is traced and dropped, and so is one
// whose texts run past its end.
//
// Numbers are rewritten so that they can be dialled back: without the outside-call prefix that an external number
// carries, or with the one it lacks; behind the public operator's prefix for one that came in on a public trunk.
//
// Called by the message dispatch on the serial thread, under the line mutex; the first three only when the PBX's
// message set has version 2 or more. The sequence number is not used.
#pragma once

#include <cstdint>
#include <span>

void IncomingCallInfo(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void OutgoingCallInfo(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void ConnectedCallInfo(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void Evt_Transfered_Call(std::uint8_t sequence, std::span<const std::uint8_t> payload);
