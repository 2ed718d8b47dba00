// The PBX's call-information events. Each handler takes the sequence number (not used) and the message's payload.
#pragma once

#include <cstdint>
#include <span>

void IncomingCallInfo(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void OutgoingCallInfo(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void ConnectedCallInfo(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void Evt_Transfered_Call(std::uint8_t sequence, std::span<const std::uint8_t> payload);
