#include "tsphost/names.h"

#include <cstdio>

namespace {

#define ZT_NAMED(prefix, name)                                                                                         \
    NamedValue {                                                                                                       \
        prefix##name, #name                                                                                            \
    }

constexpr NamedValue Errors[] = {ZT_NAMED(, LINEERR_ALLOCATED),        ZT_NAMED(, LINEERR_BADDEVICEID),
                                 ZT_NAMED(, LINEERR_CALLUNAVAIL),      ZT_NAMED(, LINEERR_INCOMPATIBLEAPIVERSION),
                                 ZT_NAMED(, LINEERR_INVALADDRESS),     ZT_NAMED(, LINEERR_INVALADDRESSID),
                                 ZT_NAMED(, LINEERR_INVALCALLHANDLE),  ZT_NAMED(, LINEERR_INVALCALLSTATE),
                                 ZT_NAMED(, LINEERR_INVALLINEHANDLE),  ZT_NAMED(, LINEERR_INVALLINESTATE),
                                 ZT_NAMED(, LINEERR_INVALMEDIAMODE),   ZT_NAMED(, LINEERR_INVALPARAM),
                                 ZT_NAMED(, LINEERR_INVALPOINTER),     ZT_NAMED(, LINEERR_NODEVICE),
                                 ZT_NAMED(, LINEERR_NODRIVER),         ZT_NAMED(, LINEERR_OPERATIONFAILED),
                                 ZT_NAMED(, LINEERR_OPERATIONUNAVAIL), ZT_NAMED(, LINEERR_REINIT),
                                 ZT_NAMED(, LINEERR_RESOURCEUNAVAIL),  ZT_NAMED(, LINEERR_STRUCTURETOOSMALL)};

constexpr NamedValue CallStateNames[] = {
    ZT_NAMED(LINECALLSTATE_, IDLE),           ZT_NAMED(LINECALLSTATE_, OFFERING),
    ZT_NAMED(LINECALLSTATE_, ACCEPTED),       ZT_NAMED(LINECALLSTATE_, DIALTONE),
    ZT_NAMED(LINECALLSTATE_, DIALING),        ZT_NAMED(LINECALLSTATE_, RINGBACK),
    ZT_NAMED(LINECALLSTATE_, BUSY),           ZT_NAMED(LINECALLSTATE_, SPECIALINFO),
    ZT_NAMED(LINECALLSTATE_, CONNECTED),      ZT_NAMED(LINECALLSTATE_, PROCEEDING),
    ZT_NAMED(LINECALLSTATE_, ONHOLD),         ZT_NAMED(LINECALLSTATE_, CONFERENCED),
    ZT_NAMED(LINECALLSTATE_, ONHOLDPENDCONF), ZT_NAMED(LINECALLSTATE_, ONHOLDPENDTRANSFER),
    ZT_NAMED(LINECALLSTATE_, DISCONNECTED),   ZT_NAMED(LINECALLSTATE_, UNKNOWN)};

constexpr NamedValue CallInfoNames[] = {
    ZT_NAMED(LINECALLINFOSTATE_, OTHER),         ZT_NAMED(LINECALLINFOSTATE_, APPSPECIFIC),
    ZT_NAMED(LINECALLINFOSTATE_, ORIGIN),        ZT_NAMED(LINECALLINFOSTATE_, REASON),
    ZT_NAMED(LINECALLINFOSTATE_, NUMOWNERINCR),  ZT_NAMED(LINECALLINFOSTATE_, NUMOWNERDECR),
    ZT_NAMED(LINECALLINFOSTATE_, NUMMONITORS),   ZT_NAMED(LINECALLINFOSTATE_, CALLERID),
    ZT_NAMED(LINECALLINFOSTATE_, CALLEDID),      ZT_NAMED(LINECALLINFOSTATE_, CONNECTEDID),
    ZT_NAMED(LINECALLINFOSTATE_, REDIRECTIONID), ZT_NAMED(LINECALLINFOSTATE_, REDIRECTINGID),
    ZT_NAMED(LINECALLINFOSTATE_, DIALPARAMS)};

constexpr NamedValue LineDevNames[] = {ZT_NAMED(LINEDEVSTATE_, OTHER),     ZT_NAMED(LINEDEVSTATE_, RINGING),
                                       ZT_NAMED(LINEDEVSTATE_, CONNECTED), ZT_NAMED(LINEDEVSTATE_, DISCONNECTED),
                                       ZT_NAMED(LINEDEVSTATE_, INSERVICE), ZT_NAMED(LINEDEVSTATE_, OUTOFSERVICE),
                                       ZT_NAMED(LINEDEVSTATE_, OPEN),      ZT_NAMED(LINEDEVSTATE_, CLOSE),
                                       ZT_NAMED(LINEDEVSTATE_, NUMCALLS),  ZT_NAMED(LINEDEVSTATE_, REINIT)};

constexpr NamedValue AddressStateNames[] = {
    ZT_NAMED(LINEADDRESSSTATE_, OTHER), ZT_NAMED(LINEADDRESSSTATE_, INUSEZERO), ZT_NAMED(LINEADDRESSSTATE_, INUSEONE),
    ZT_NAMED(LINEADDRESSSTATE_, NUMCALLS), ZT_NAMED(LINEADDRESSSTATE_, FORWARD)};

constexpr NamedValue CallFeatureNames[] = {
    ZT_NAMED(LINECALLFEATURE_, ANSWER),         ZT_NAMED(LINECALLFEATURE_, BLINDTRANSFER),
    ZT_NAMED(LINECALLFEATURE_, COMPLETETRANSF), ZT_NAMED(LINECALLFEATURE_, DIAL),
    ZT_NAMED(LINECALLFEATURE_, DROP),           ZT_NAMED(LINECALLFEATURE_, GENERATEDIGITS),
    ZT_NAMED(LINECALLFEATURE_, HOLD),           ZT_NAMED(LINECALLFEATURE_, REMOVEFROMCONF),
    ZT_NAMED(LINECALLFEATURE_, SETUPTRANSFER),  ZT_NAMED(LINECALLFEATURE_, UNHOLD)};

constexpr NamedValue AddressFeatureNames[] = {
    ZT_NAMED(LINEADDRFEATURE_, FORWARD), ZT_NAMED(LINEADDRFEATURE_, MAKECALL), ZT_NAMED(LINEADDRFEATURE_, PICKUP),
    ZT_NAMED(LINEADDRFEATURE_, PICKUPDIRECT), ZT_NAMED(LINEADDRFEATURE_, FORWARDFWD)};

constexpr NamedValue AddrCapNames[] = {
    ZT_NAMED(LINEADDRCAPFLAGS_, BLOCKIDDEFAULT), ZT_NAMED(LINEADDRCAPFLAGS_, DIALED),
    ZT_NAMED(LINEADDRCAPFLAGS_, TRANSFERHELD),   ZT_NAMED(LINEADDRCAPFLAGS_, TRANSFERMAKE),
    ZT_NAMED(LINEADDRCAPFLAGS_, CONFERENCEHELD), ZT_NAMED(LINEADDRCAPFLAGS_, CONFERENCEMAKE),
    ZT_NAMED(LINEADDRCAPFLAGS_, PARTIALDIAL),    ZT_NAMED(LINEADDRCAPFLAGS_, PICKUPCALLWAIT)};

constexpr NamedValue PartyNames[] = {ZT_NAMED(LINECALLPARTYID_, NAME), ZT_NAMED(LINECALLPARTYID_, ADDRESS)};
constexpr NamedValue ForwardNames[] = {ZT_NAMED(LINEFORWARDMODE_, UNCOND), ZT_NAMED(LINEFORWARDMODE_, BUSY),
                                       ZT_NAMED(LINEFORWARDMODE_, NOANSW), ZT_NAMED(LINEFORWARDMODE_, BUSYNA)};
constexpr NamedValue MediaNames[] = {ZT_NAMED(LINEMEDIAMODE_, INTERACTIVEVOICE)};
constexpr NamedValue BearerNames[] = {ZT_NAMED(LINEBEARERMODE_, VOICE)};
constexpr NamedValue DigitNames[] = {ZT_NAMED(LINEDIGITMODE_, PULSE), ZT_NAMED(LINEDIGITMODE_, DTMF)};
constexpr NamedValue TransferNames[] = {ZT_NAMED(LINETRANSFERMODE_, TRANSFER), ZT_NAMED(LINETRANSFERMODE_, CONFERENCE)};
constexpr NamedValue DisconnectNames[] = {ZT_NAMED(LINEDISCONNECTMODE_, NORMAL), ZT_NAMED(LINEDISCONNECTMODE_, UNKNOWN),
                                          ZT_NAMED(LINEDISCONNECTMODE_, BUSY)};
constexpr NamedValue PhoneStateNames[] = {ZT_NAMED(PHONESTATE_, DISCONNECTED),
                                          ZT_NAMED(PHONESTATE_, DISPLAY),
                                          ZT_NAMED(PHONESTATE_, LAMP),
                                          ZT_NAMED(PHONESTATE_, RINGMODE),
                                          ZT_NAMED(PHONESTATE_, HANDSETHOOKSWITCH),
                                          ZT_NAMED(PHONESTATE_, SPEAKERVOLUME)};
#undef ZT_NAMED

constexpr DWORD NEW_CALL = 500;  // LINE_NEWCALL

}  // namespace

const std::span<const NamedValue> CallStates = CallStateNames, CallInfoStates = CallInfoNames,
                                  LineDevStates = LineDevNames, AddressStates = AddressStateNames,
                                  CallFeatures = CallFeatureNames, AddressFeatures = AddressFeatureNames,
                                  AddrCapFlags = AddrCapNames, PartyFlags = PartyNames, ForwardModes = ForwardNames,
                                  MediaModes = MediaNames, BearerModes = BearerNames, DigitModes = DigitNames,
                                  TransferModes = TransferNames;

std::string Hex(DWORD_PTR value) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

std::string ValueName(DWORD value, std::span<const NamedValue> names) {
    for (const NamedValue& named : names)
        if (named.value == value)
            return named.name;
    return Hex(value);
}

std::string FlagNames(DWORD value, std::span<const NamedValue> names) {
    std::string out;
    for (const NamedValue& named : names)
        if ((value & named.value) != 0) {
            out += (out.empty() ? "" : "|") + std::string(named.name);
            value &= ~named.value;
        }
    if (value != 0)
        out += (out.empty() ? "" : "|") + Hex(value);
    return out.empty() ? "0" : out;
}

std::string ResultName(LONG result) {
    if (result >= 0)
        return std::to_string(result);
    const auto code = static_cast<DWORD>(result);
    const std::string name = ValueName(code, Errors);
    return name.starts_with("0x") ? name : name + " (" + Hex(code) + ")";
}

std::string FromWide(const WCHAR* text, std::size_t length) {
    std::string out;
    for (std::size_t i = 0; i < length && text[i] != 0; ++i) {
        const auto c = static_cast<unsigned>(text[i]);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | c >> 6);
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xE0 | c >> 12);
            out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::basic_string<WCHAR> ToWide(const std::string& text) {
    std::basic_string<WCHAR> out;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = [&](std::size_t at) {
            return at < text.size() ? static_cast<unsigned>(static_cast<unsigned char>(text[at])) : 0u;
        };
        unsigned point = byte(i);
        std::size_t length = 1;
        if (point >= 0xE0) {
            point = (point & 15) << 12 | (byte(i + 1) & 63) << 6 | (byte(i + 2) & 63);
            length = 3;
        } else if (point >= 0xC0) {
            point = (point & 31) << 6 | (byte(i + 1) & 63);
            length = 2;
        }
        out += static_cast<WCHAR>(point);
        i += length;
    }
    return out;
}

std::string LineEventText(int call, DWORD message, DWORD_PTR p1, DWORD_PTR p2) {
    const auto value = static_cast<DWORD>(p1);
    const std::string who = call < 0 ? std::string() : " call " + std::to_string(call);
    switch (message) {
    case NEW_CALL: return "LINE_NEWCALL call " + std::to_string(p1);
    case LINE_CALLSTATE: {
        std::string text = "LINE_CALLSTATE" + who + " " + FlagNames(value, CallStateNames);
        if (p2 != 0)
            text += " mode " + ValueName(static_cast<DWORD>(p2), DisconnectNames);
        return text;
    }
    case LINE_CALLINFO: return "LINE_CALLINFO" + who + " " + FlagNames(value, CallInfoNames);
    case LINE_LINEDEVSTATE: return "LINE_LINEDEVSTATE " + FlagNames(value, LineDevNames);
    case LINE_ADDRESSSTATE:
        return "LINE_ADDRESSSTATE address " + std::to_string(p1) + " " +
               FlagNames(static_cast<DWORD>(p2), AddressStateNames);
    case LINE_CLOSE: return "LINE_CLOSE";
    default: return "line message " + std::to_string(message) + who + " " + Hex(p1) + " " + Hex(p2);
    }
}

std::string PhoneEventText(DWORD message, DWORD_PTR p1, DWORD_PTR p2) {
    if (message != PHONE_STATE)
        return "phone message " + std::to_string(message) + " " + Hex(p1) + " " + Hex(p2);
    const std::string text = "PHONE_STATE " + FlagNames(static_cast<DWORD>(p1), PhoneStateNames);
    return static_cast<DWORD>(p1) == PHONESTATE_LAMP ? text + " " + std::to_string(p2) : text;
}
