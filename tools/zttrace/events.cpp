#include "zttrace/events.h"

#include <cstdio>
#include <iterator>
#include <span>

namespace TraceReader {

namespace {

struct Bit {
    unsigned value;
    const char* name;
};
constexpr Bit CallStates[] = {
    {0x1, "IDLE"},
    {0x2, "OFFERING"},
    {0x4, "ACCEPTED"},
    {0x8, "DIALTONE"},
    {0x10, "DIALING"},
    {0x20, "RINGBACK"},
    {0x40, "BUSY"},
    {0x80, "SPECIALINFO"},
    {0x100, "CONNECTED"},
    {0x200, "PROCEEDING"},
    {0x400, "ONHOLD"},
    {0x800, "CONFERENCED"},
    {0x1000, "ONHOLDPENDCONF"},
    {0x2000, "ONHOLDPENDTRANSFER"},
    {0x4000, "DISCONNECTED"},
    {0x8000, "UNKNOWN"},
};
constexpr Bit CallInfo[] = {
    {0x100, "ORIGIN"},        {0x200, "REASON"},          {0x8000, "CALLERID"},       {0x10000, "CALLEDID"},
    {0x20000, "CONNECTEDID"}, {0x40000, "REDIRECTIONID"}, {0x80000, "REDIRECTINGID"},
};
constexpr Bit DeviceStates[] = {
    {0x4, "CONNECTED"}, {0x8, "DISCONNECTED"}, {0x40, "INSERVICE"}, {0x80, "OUTOFSERVICE"}, {0x40000, "REINIT"},
};
constexpr Bit AddressStates[] = {
    {0x4, "INUSEZERO"}, {0x8, "INUSEONE"}, {0x10, "INUSEMANY"}, {0x20, "NUMCALLS"}, {0x40, "FORWARD"},
};

struct Event {
    const char* name;
    std::span<const Bit> values;
};
constexpr Event Events[] = {
    {"LINE_ADDRESSSTATE", AddressStates},
    {"LINE_CALLINFO", CallInfo},
    {"LINE_CALLSTATE", CallStates},
    {"LINE_CLOSE", {}},
    {nullptr, {}},
    {nullptr, {}},
    {nullptr, {}},
    {nullptr, {}},
    {"LINE_LINEDEVSTATE", DeviceStates},
};

}  // namespace

std::string EventWords(const std::string& text) {
    int cref = 0;
    unsigned message = 0, value = 0;
    if (std::sscanf(text.c_str(), "LinEv cref=%d, ev:%x,val%x", &cref, &message, &value) != 3 ||
        message >= std::size(Events) || Events[message].name == nullptr)
        return "";
    std::string words = Events[message].name;
    for (const Bit& bit : Events[message].values)
        if ((value & bit.value) != 0) {
            words += std::string(" ") + bit.name;
            value &= ~bit.value;
        }
    if (value != 0) {
        char rest[16];
        std::snprintf(rest, sizeof rest, " %X", value);
        words += rest;
    }
    return cref < 0 ? words : words + ", call " + std::to_string(cref);
}

}  // namespace TraceReader
