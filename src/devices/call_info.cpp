#include "devices/call_info.h"

// The PBX's call-information events are received and traced, and not evaluated yet: parties come from the display.

void IncomingCallInfo(std::uint8_t, std::span<const std::uint8_t>) {}

void OutgoingCallInfo(std::uint8_t, std::span<const std::uint8_t>) {}

void ConnectedCallInfo(std::uint8_t, std::span<const std::uint8_t>) {}

void Evt_Transfered_Call(std::uint8_t, std::span<const std::uint8_t>) {}
