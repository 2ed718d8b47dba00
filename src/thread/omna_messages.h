// TAPI_OMNA messages by their code: each to the room that it concerns.
#pragma once

#include <cstdint>
#include <span>

void DispatchOmnaMsg(std::span<const std::uint8_t> message);
