// TSPI_lineGet*: what the provider knows of calls, address and line.
#include "tsphost/commands.h"

namespace Tsphost {

bool CallInfo(const Words& words) {
    Buffer info(NumberAt(words, 2, 1024));
    return ZT_CALL(TSPI_lineGetCallInfo, CallAt(words, 1), info.As<LINECALLINFO>()) &&
           PrintFields(info, CallInfoFields);
}

bool CallStatus(const Words& words) {
    Buffer status(NumberAt(words, 2, 256));
    return ZT_CALL(TSPI_lineGetCallStatus, CallAt(words, 1), status.As<LINECALLSTATUS>()) &&
           PrintFields(status, CallStatusFields);
}

bool AddressStatus(const Words& words) {
    Buffer status(NumberAt(words, 1, 512));
    return ZT_CALL(TSPI_lineGetAddressStatus, TheHost.Line, NumberAt(words, 2, 0), status.As<LINEADDRESSSTATUS>()) &&
           PrintFields(status, AddressStatusFields);
}

bool LineStatus(const Words& words) {
    Buffer status(NumberAt(words, 1, 512));
    return ZT_CALL(TSPI_lineGetLineDevStatus, TheHost.Line, status.As<LINEDEVSTATUS>()) &&
           PrintFields(status, LineDevStatusFields);
}

bool CallAddressID(const Words& words) {
    DWORD id = 0;
    if (!ZT_CALL(TSPI_lineGetCallAddressID, CallAt(words, 1), &id))
        return false;
    Print("address identifier", std::to_string(id));
    return true;
}

}  // namespace Tsphost
