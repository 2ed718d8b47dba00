// TSPI_line*: the device itself.
#include "tsphost/commands.h"

#include <cstring>

namespace Tsphost {

bool Negotiate(const Words& words) {
    DWORD version = 0;
    const bool agreed = ZT_CALL(TSPI_lineNegotiateTSPIVersion, NegotiatedDevice(TheHost.LineBase),
                                NumberAt(words, 1, 0x00010004), NumberAt(words, 2, 0x00030000), &version);
    Print("version", Hex(version));
    return agreed;
}

bool ExtVersion(const Words&) {
    DWORD version = 0;
    if (!ZT_CALL(TSPI_lineNegotiateExtVersion, TheHost.LineBase, 0x20000u, 0u, 0xFFFFFFFFu, &version))
        return false;
    Print("extension version", Hex(version));
    return true;
}

bool OpenLine(const Words&) {
    return ZT_CALL(TSPI_lineOpen, TheHost.LineBase, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x51}), &TheHost.Line,
                   0x20000u, HostLineEvent);
}

bool CloseLine(const Words&) {
    return ZT_CALL(TSPI_lineClose, TheHost.Line);
}

bool DevCaps(const Words& words) {
    Buffer caps(NumberAt(words, 1, 1024));
    return ZT_CALL(TSPI_lineGetDevCaps, TheHost.LineBase, 0x20000u, 0u, caps.As<LINEDEVCAPS>()) &&
           PrintFields(caps, DevCapsFields);
}

bool AddressCaps(const Words& words) {
    Buffer caps(NumberAt(words, 1, 1024));
    return ZT_CALL(TSPI_lineGetAddressCaps, TheHost.LineBase, NumberAt(words, 2, 0), 0x20000u, 0u,
                   caps.As<LINEADDRESSCAPS>()) &&
           PrintFields(caps, AddressCapsFields);
}

bool GetID(const Words& words) {
    const WideString deviceClass = ToWide(words.size() > 1 ? words[1] : "tapi/line");
    Buffer id(NumberAt(words, 2, 64));
    if (!ZT_CALL(TSPI_lineGetID, TheHost.Line, 0u, nullptr, LINECALLSELECT_LINE, id.As<VARSTRING>(),
                 deviceClass.c_str(), nullptr))
        return false;
    const bool whole = PrintFields(id, {});
    DWORD number = 0;
    const auto& text = *id.As<VARSTRING>();
    if (text.dwStringSize == sizeof number && text.dwStringOffset + sizeof number <= id.Bytes().size()) {
        std::memcpy(&number, id.Bytes().data() + text.dwStringOffset, sizeof number);
        Print("device identifier", std::to_string(number));
    } else {
        Print("device identifier", VarStringText(id.Bytes()));
    }
    return whole;
}

bool NumAddress(const Words&) {
    DWORD count = 0;
    if (!ZT_CALL(TSPI_lineGetNumAddressIDs, TheHost.Line, &count))
        return false;
    Print("addresses", std::to_string(count));
    return true;
}

bool AddressID(const Words& words) {
    const WideArgument address = TextAt(words, 1);
    DWORD id = 0;
    if (!ZT_CALL(TSPI_lineGetAddressID, TheHost.Line, &id, LINEADDRESSMODE_ADDRESSID, address.Pointer(),
                 address.Bytes()))
        return false;
    Print("address identifier", std::to_string(id));
    return true;
}

bool StatusMessages(const Words& words) {
    return ZT_CALL(TSPI_lineSetStatusMessages, TheHost.Line, FlagsAt(words, 1, LineDevStates),
                   FlagsAt(words, 2, AddressStates));
}

bool MediaDetection(const Words& words) {
    return ZT_CALL(TSPI_lineSetDefaultMediaDetection, TheHost.Line, FlagsAt(words, 1, MediaModes));
}

bool Conditional(const Words& words) {
    return ZT_CALL(TSPI_lineConditionalMediaDetection, TheHost.Line, FlagsAt(words, 1, MediaModes), nullptr);
}

bool MediaMode(const Words& words) {
    return ZT_CALL(TSPI_lineSetMediaMode, CallAt(words, 1), FlagsAt(words, 2, MediaModes));
}

bool AppSpecific(const Words& words) {
    return ZT_CALL(TSPI_lineSetAppSpecific, CallAt(words, 1), NumberAt(words, 2));
}

}  // namespace Tsphost
