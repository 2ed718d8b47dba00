// Published values by name: results, events, states, flags.
#pragma once

#include "platform/platform.h"

#include <span>
#include <string>

namespace Tsphost {

struct NamedValue {
    DWORD value;
    const char* name;
};
using Names = std::span<const NamedValue>;

// A decimal number, or a hexadecimal one behind 0x; nothing else (no sign, no octal).
bool ParseNumber(const std::string& text, DWORD& value);
// "0", "LINEERR_ALLOCATED (0x80000001)", or the number alone.
std::string ResultName(LONG result);
// The result that a text names: "LINEERR_ALLOCATED", or a number. False when it names none.
bool ResultValue(const std::string& text, LONG& result);
// Flags by name, joined with '|'; what has no name in hexadecimal; "0" for none.
std::string FlagNames(DWORD value, Names names);
// One value by name, or in hexadecimal.
std::string ValueName(DWORD value, Names names);
// The way back: numbers and names joined with '|', in any case, "CONNECTED" or "LINECALLSTATE_CONNECTED". False when a
// part is neither.
bool FlagsValue(const std::string& text, Names names, DWORD& value);

// What the mode that comes with a call state means.
Names ModeNames(DWORD callState);

// A call by the provider's handle: "2".
std::string CallNumber(HDRVCALL call);
// One event in words: "LINE_CALLSTATE call 2 DISCONNECTED mode NORMAL". `who` is the call's name, empty for the line
// itself.
std::string LineEventText(const std::string& who, DWORD message, DWORD_PTR p1, DWORD_PTR p2);
std::string PhoneEventText(DWORD message, DWORD_PTR p1, DWORD_PTR p2);

extern const Names Errors, CallStates, CallInfoStates, LineDevStates, AddressStates, CallFeatures, AddressFeatures,
    LineFeatures, AddrCapFlags, DevCapFlags, PartyFlags, ForwardModes, MediaModes, BearerModes, DigitModes, ToneModes,
    TransferModes, DisconnectModes, BusyModes, DialToneModes, SpecialInfos, ConnectedModes, OfferingModes, CallOrigins,
    CallReasons, CallParamFlags, CallPrivileges, AddressModes, AddressSharings, AnswerModes, RemoveFromConfModes,
    DevStatusFlags, RoamModes, StringFormats, ProviderOptions, PhoneStates, HookSwitchDevs, HookSwitchModes, LampModes,
    ButtonModes;

}  // namespace Tsphost
