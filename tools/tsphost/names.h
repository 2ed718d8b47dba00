// Published values by name: results, events, states, flags.
#pragma once

#include "platform/platform.h"

#include <span>
#include <string>

struct NamedValue {
    DWORD value;
    const char* name;
};

// "0", "LINEERR_ALLOCATED (0x80000001)", or the number alone.
std::string ResultName(LONG result);
// Flags by name, joined with '|'; what has no name in hexadecimal; "0" for none.
std::string FlagNames(DWORD value, std::span<const NamedValue> names);
// One value by name, or in hexadecimal.
std::string ValueName(DWORD value, std::span<const NamedValue> names);
std::string Hex(DWORD_PTR value);
std::string FromWide(const WCHAR* text, std::size_t length);
std::basic_string<WCHAR> ToWide(const std::string& text);

// One event in words, as the host prints it: "LINE_CALLSTATE call 2 DISCONNECTED mode NORMAL". `call` is the provider's
// handle of the call, -1 for the line itself.
std::string LineEventText(int call, DWORD message, DWORD_PTR p1, DWORD_PTR p2);
std::string PhoneEventText(DWORD message, DWORD_PTR p1, DWORD_PTR p2);

extern const std::span<const NamedValue> CallStates, CallInfoStates, LineDevStates, AddressStates, CallFeatures,
    AddressFeatures, AddrCapFlags, PartyFlags, ForwardModes, MediaModes, BearerModes, DigitModes, TransferModes;
