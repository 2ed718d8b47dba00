#include "devices/line.h"

#include "devices/entry.h"
#include "devices/provider.h"
#include "link/serial.h"
#include "platform/text.h"
#include "thread/serial_thread.h"
#include "trace/trace.h"
#include "tracking/steps.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

namespace {

const WCHAR* const PROVIDER_INFO =
    "Windows Telephony Service Provider for Corvane ZT protocol telephone's MAC PC interface"_wide;
const WCHAR* const SWITCH_INFO = "Corvane 6200"_wide;
const WCHAR* const DEVICE_CLASS = "tapi/line"_wide;

bool SameWide(const WCHAR* a, const WCHAR* b) {
    while (*a != 0 && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

bool IsOurDevice(DWORD deviceID) {
    return deviceID == std::atomic_ref(ProviderState.LineDeviceID).load();
}

bool IsOurDeviceOrAll(DWORD deviceID) {
    return deviceID == INITIALIZE_NEGOTIATION || IsOurDevice(deviceID);
}

// Appends a text to the variable part and says in its fields where. The caller has seen that it fits.
void PlaceText(LINEDEVCAPS& caps, const WCHAR* text, DWORD size, DWORD& sizeField, DWORD& offsetField) {
    CopyBytes(&caps, caps.dwUsedSize, text, size);
    sizeField = size;
    offsetField = caps.dwUsedSize;
    caps.dwUsedSize += size;
}

bool Fits(const LINEDEVCAPS& caps, DWORD size) {
    return caps.dwUsedSize + size <= caps.dwTotalSize;
}

void FillDevCaps(LINEDEVCAPS& caps) {
    caps.dwPermanentLineID = ProviderState.PermanentProviderID << 16;
    caps.dwStringFormat = STRINGFORMAT_ASCII;
    caps.dwNumAddresses = 1;
    caps.dwBearerModes = LINEBEARERMODE_VOICE;
    caps.dwMediaModes = LINEMEDIAMODE_INTERACTIVEVOICE;
    caps.dwGenerateDigitModes = LINEDIGITMODE_PULSE | LINEDIGITMODE_DTMF;
    caps.dwDevCapFlags = 0;
    caps.dwMaxNumActiveCalls = 1;
    caps.dwAnswerMode = LINEANSWERMODE_HOLD;
    caps.dwLineStates = LINEDEVSTATE_OTHER | LINEDEVSTATE_CONNECTED | LINEDEVSTATE_DISCONNECTED |
                        LINEDEVSTATE_INSERVICE | LINEDEVSTATE_OUTOFSERVICE | LINEDEVSTATE_OPEN | LINEDEVSTATE_CLOSE |
                        LINEDEVSTATE_NUMCALLS | LINEDEVSTATE_REINIT;
    caps.MinDialParams = MIN_DIAL_PARAMS;
    caps.MaxDialParams = MAX_DIAL_PARAMS;
    caps.DefaultDialParams = DEFAULT_DIAL_PARAMS;
}

void FillAddressCaps(LINEADDRESSCAPS& caps) {
    constexpr DWORD PARTY_FLAGS = LINECALLPARTYID_NAME | LINECALLPARTYID_ADDRESS;
    caps.dwLineDeviceID = ProviderState.LineDeviceID;
    caps.dwAddressSharing = LINEADDRESSSHARING_PRIVATE;
    caps.dwAddressStates = LINEADDRESSSTATE_OTHER | LINEADDRESSSTATE_INUSEZERO | LINEADDRESSSTATE_INUSEONE |
                           LINEADDRESSSTATE_NUMCALLS | LINEADDRESSSTATE_FORWARD;
    caps.dwCallInfoStates = LINECALLINFOSTATE_OTHER | LINECALLINFOSTATE_APPSPECIFIC | LINECALLINFOSTATE_ORIGIN |
                            LINECALLINFOSTATE_NUMOWNERINCR | LINECALLINFOSTATE_NUMOWNERDECR |
                            LINECALLINFOSTATE_NUMMONITORS | LINECALLINFOSTATE_CALLERID | LINECALLINFOSTATE_CALLEDID |
                            LINECALLINFOSTATE_CONNECTEDID | LINECALLINFOSTATE_DIALPARAMS;
    caps.dwCallerIDFlags = PARTY_FLAGS;
    caps.dwCalledIDFlags = PARTY_FLAGS;
    caps.dwConnectedIDFlags = PARTY_FLAGS;
    caps.dwRedirectionIDFlags = PARTY_FLAGS;
    caps.dwRedirectingIDFlags = PARTY_FLAGS;
    caps.dwCallStates = LINE_CALL_STATES;
    caps.dwDialToneModes = LINEDIALTONEMODE_UNAVAIL;
    caps.dwBusyModes = LINEBUSYMODE_UNAVAIL;
    caps.dwSpecialInfo = LINESPECIALINFO_UNAVAIL;
    caps.dwDisconnectModes = LINEDISCONNECTMODE_UNKNOWN;
    caps.dwMaxNumActiveCalls = 1;
    caps.dwMaxNumOnHoldCalls = 20;
    caps.dwMaxNumOnHoldPendingCalls = 1;
    caps.dwMaxNumConference = 3;
    caps.dwMaxNumTransConf = 0;
    caps.dwAddrCapFlags = LINEADDRCAPFLAGS_BLOCKIDDEFAULT | LINEADDRCAPFLAGS_DIALED | LINEADDRCAPFLAGS_TRANSFERHELD |
                          LINEADDRCAPFLAGS_TRANSFERMAKE | LINEADDRCAPFLAGS_CONFERENCEHELD |
                          LINEADDRCAPFLAGS_CONFERENCEMAKE | LINEADDRCAPFLAGS_PARTIALDIAL |
                          LINEADDRCAPFLAGS_PICKUPCALLWAIT;
    caps.dwCallFeatures = LINECALLFEATURE_ANSWER | LINECALLFEATURE_BLINDTRANSFER | LINECALLFEATURE_COMPLETETRANSF |
                          LINECALLFEATURE_DIAL | LINECALLFEATURE_DROP | LINECALLFEATURE_GENERATEDIGITS |
                          LINECALLFEATURE_HOLD | LINECALLFEATURE_REMOVEFROMCONF | LINECALLFEATURE_SETUPTRANSFER |
                          LINECALLFEATURE_UNHOLD;
    caps.dwRemoveFromConfCaps = LINEREMOVEFROMCONF_LAST;
    caps.dwRemoveFromConfState = LINECALLSTATE_IDLE;
    caps.dwTransferModes = LINETRANSFERMODE_TRANSFER | LINETRANSFERMODE_CONFERENCE;
    caps.dwForwardModes =
        LINEFORWARDMODE_UNCOND | LINEFORWARDMODE_BUSY | LINEFORWARDMODE_NOANSW | LINEFORWARDMODE_BUSYNA;
    caps.dwMaxForwardEntries = 1;
    caps.dwAddressFeatures = LINEADDRFEATURE_FORWARD | LINEADDRFEATURE_MAKECALL | LINEADDRFEATURE_PICKUP |
                             LINEADDRFEATURE_PICKUPDIRECT | LINEADDRFEATURE_FORWARDFWD;
}

}  // namespace

int HdCallToCref(HDRVCALL call) {
    const int low = static_cast<int>(reinterpret_cast<std::uintptr_t>(call) & 0xFFFF);
    return IsCref(low) || low == CONF_CREF ? low : 0xFFFF;
}

bool IsLineHandle(HDRVLINE line) {
    return static_cast<const void*>(line) == &ProviderState;
}

DWORD WideSize(const WCHAR* text) {
    DWORD length = 0;
    while (text[length] != 0)
        ++length;
    return length * 2 + 2;
}

LONG BeginOpen() {
    if (++Process.OpenCount > 1 || Process.PortUnread)
        ProviderInitAgain();
    return Process.RestartRequired ? Error(LINEERR_REINIT) : 0;
}

LONG FinishOpen(const char* failureTrace) {
    const bool holdsMutex = StartSerialThread() == 0 || EnterIfShared();
    LONG result = 0;
    if (Serial.Port == INVALID_HANDLE_VALUE || SerialThreadLife == ThreadLife::Forgotten) {
        Trace(TRACE_ALWAYS, failureTrace);
        result = Error(LINEERR_ALLOCATED);
    }
    return holdsMutex ? ReleaseLineMutex(result) : result;
}

LONG WINAPI TSPI_lineNegotiateTSPIVersion(DWORD dwDeviceID, DWORD dwLowVersion, DWORD dwHighVersion,
                                          LPDWORD lpdwTSPIVersion) {
    Trace(TRACE_ENTRY, "TSPI_lineNegotiateTSPIVersion(%4lx,%4lx,%4lx,%4lx)", dwDeviceID, dwLowVersion, dwHighVersion,
          lpdwTSPIVersion);
    if (!IsOurDeviceOrAll(dwDeviceID))
        return Error(LINEERR_BADDEVICEID);
    if (lpdwTSPIVersion == nullptr)
        return Error(LINEERR_INVALPOINTER);
    *lpdwTSPIVersion = TAPI_VERSION;  // also where the range excludes it
    if (dwLowVersion > TAPI_VERSION || dwHighVersion < TAPI_VERSION)
        return Error(LINEERR_INCOMPATIBLEAPIVERSION);
    return 0;
}

LONG WINAPI TSPI_lineNegotiateExtVersion(DWORD dwDeviceID, DWORD dwTSPIVersion, DWORD dwLowVersion, DWORD dwHighVersion,
                                         LPDWORD lpdwExtVersion) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "TSPI_lineNegotiateExtVersion(%4lx,%4lx,%4lx,%4lx,%4lx)", dwDeviceID, dwTSPIVersion,
          dwLowVersion, dwHighVersion, lpdwExtVersion);
    if (!IsOurDeviceOrAll(dwDeviceID))
        return Refuse(LINEERR_BADDEVICEID);
    if (lpdwExtVersion == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    *lpdwExtVersion = 0;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineOpen(DWORD dwDeviceID, HTAPILINE htLine, LPHDRVLINE lphdLine, DWORD dwTSPIVersion,
                          LINEEVENT lpfnEventProc) {
    Trace(TRACE_ENTRY, "TSPI_lineOpen(%lx,%lx,%lx,%lx,%lx)", dwDeviceID, htLine, lphdLine, dwTSPIVersion,
          reinterpret_cast<std::uintptr_t>(lpfnEventProc));
    if (!IsOurDevice(dwDeviceID))
        return Error(LINEERR_BADDEVICEID);
    if (lphdLine == nullptr)
        return Error(LINEERR_INVALPOINTER);
    return OpenDevice("End TSPI_lineOpen Pb", [&] {
        ProviderState.htLine = htLine;
        ProviderState.LineEventProc = lpfnEventProc;
        *lphdLine = reinterpret_cast<HDRVLINE>(&ProviderState);
    });
}

LONG WINAPI TSPI_lineClose(HDRVLINE hdLine) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineClose(%lx)", hdLine);
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    StopSerialThread();
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineGetDevCaps(DWORD dwDeviceID, DWORD dwTSPIVersion, DWORD dwExtVersion,
                                LPLINEDEVCAPS lpLineDevCaps) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetDevCaps(%lx,%lx,%lx,%lx)", dwDeviceID, dwTSPIVersion, dwExtVersion,
          lpLineDevCaps);
    const DWORD infoSize = WideSize(PROVIDER_INFO);
    const DWORD nameSize = WideSize(ProviderState.LineName);
    const DWORD switchSize = WideSize(SWITCH_INFO);
    if (!IsOurDevice(dwDeviceID))
        return Refuse(LINEERR_BADDEVICEID);
    if (lpLineDevCaps == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    LINEDEVCAPS& caps = *lpLineDevCaps;
    if (caps.dwTotalSize < DEVCAPS_FIXED)  // no room for the fixed part: nothing is written
        return Refuse(LINEERR_STRUCTURETOOSMALL);
    caps.dwUsedSize = DEVCAPS_FIXED;
    caps.dwNeededSize = DEVCAPS_FIXED + infoSize + nameSize + switchSize;
    // Each text on its own: one that does not fit is left out, the next is still tried.
    if (Fits(caps, infoSize)) {
        Trace(TRACE_ENTRY, "cbinfo 0x%x cbname 0x%x gszProviderInfo '%S' linename '%S' ", infoSize, nameSize,
              PROVIDER_INFO, ProviderState.LineName);
        PlaceText(caps, PROVIDER_INFO, infoSize, caps.dwProviderInfoSize, caps.dwProviderInfoOffset);
    }
    if (Fits(caps, nameSize))
        PlaceText(caps, ProviderState.LineName, nameSize, caps.dwLineNameSize, caps.dwLineNameOffset);
    if (Fits(caps, switchSize))
        PlaceText(caps, SWITCH_INFO, switchSize, caps.dwSwitchInfoSize, caps.dwSwitchInfoOffset);
    FillDevCaps(caps);
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineGetAddressCaps(DWORD dwDeviceID, DWORD dwAddressID, DWORD dwTSPIVersion, DWORD dwExtVersion,
                                    LPLINEADDRESSCAPS lpAddressCaps) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetAddressCaps(%lx,%lx,%lx,%lx,%lx)", dwDeviceID, dwAddressID, dwTSPIVersion,
          dwExtVersion, lpAddressCaps);
    if (!IsOurDevice(dwDeviceID))
        return Refuse(LINEERR_BADDEVICEID);
    if (dwAddressID != 0)
        return Refuse(LINEERR_INVALADDRESSID);
    if (lpAddressCaps == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    LINEADDRESSCAPS& caps = *lpAddressCaps;
    if (caps.dwTotalSize < ADDRESSCAPS_FIXED)
        return Refuse(LINEERR_STRUCTURETOOSMALL);
    const WideText address(ProviderState.LineAddress);
    caps.dwNeededSize = ADDRESSCAPS_FIXED + address.Size;
    caps.dwUsedSize = ADDRESSCAPS_FIXED;
    if (caps.dwTotalSize >= caps.dwNeededSize) {
        Trace(TRACE_ENTRY, "TSPI_lineGetAddressCaps lineaddr '%s'", ProviderState.LineAddress);
        CopyBytes(&caps, ADDRESSCAPS_FIXED, address.Text, address.Size);
        caps.dwAddressSize = address.Size;
        caps.dwAddressOffset = ADDRESSCAPS_FIXED;
        caps.dwUsedSize = caps.dwNeededSize;
    }
    FillAddressCaps(caps);
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineGetID(HDRVLINE hdLine, DWORD dwAddressID, HDRVCALL hdCall, DWORD dwSelect, LPVARSTRING lpDeviceID,
                           LPCWSTR lpszDeviceClass, HANDLE) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetID(%lx,%lx,%lx,%lx,%lx,%lx)", hdLine, dwAddressID, hdCall, dwSelect,
          lpDeviceID, reinterpret_cast<std::uintptr_t>(lpszDeviceClass));
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    if (lpDeviceID == nullptr || lpszDeviceClass == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    if (!SameWide(lpszDeviceClass, DEVICE_CLASS))
        return Refuse(LINEERR_NODEVICE);
    constexpr DWORD NEEDED = VARSTRING_FIXED + 4;
    if (lpDeviceID->dwTotalSize >= offsetof(VARSTRING, dwUsedSize))
        lpDeviceID->dwNeededSize = NEEDED;
    if (lpDeviceID->dwTotalSize >= NEEDED) {
        lpDeviceID->dwUsedSize = NEEDED;
        lpDeviceID->dwStringFormat = STRINGFORMAT_BINARY;
        lpDeviceID->dwStringSize = 4;
        lpDeviceID->dwStringOffset = VARSTRING_FIXED;
        CopyBytes(lpDeviceID, VARSTRING_FIXED, &ProviderState.LineDeviceID, 4);
    }
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineGetNumAddressIDs(HDRVLINE hdLine, LPDWORD lpdwNumAddressIDs) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetNumAddressIDs(%lx,%lx)", hdLine, lpdwNumAddressIDs);
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    if (lpdwNumAddressIDs == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    *lpdwNumAddressIDs = 1;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineGetAddressID(HDRVLINE hdLine, LPDWORD lpdwAddressID, DWORD dwAddressMode, LPCWSTR lpsAddress,
                                  DWORD dwSize) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetAddressID(%lx,%lx,%lx,%lx,%lx)", hdLine, lpdwAddressID, dwAddressMode,
          reinterpret_cast<std::uintptr_t>(lpsAddress), dwSize);
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    if (lpdwAddressID == nullptr || lpsAddress == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    const NarrowText address(lpsAddress);
    WCHAR given[WIDE_LIMIT + 1] = {};  // a trace of the caller's own text would look for its end past his memory
    std::copy_n(lpsAddress, address.Wide, given);
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetAddressID lpsAddress '%S'", given);
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetAddressID lineaddr '%s'", ProviderState.LineAddress);
    Trace(TRACE_ENTRY, "Entering TSPI_lineGetAddressID Address  '%s'", address.Text());
    // A text that does not fit cannot be the line's address, which is shorter.
    if (!address.Fits() || std::strcmp(address.Text(), ProviderState.LineAddress) != 0)
        return Refuse(LINEERR_INVALADDRESS);
    *lpdwAddressID = 0;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineSetStatusMessages(HDRVLINE hdLine, DWORD dwLineStates, DWORD dwAddressStates) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineSetStatusMessages(%lx,%lx,%lx)", hdLine, dwLineStates, dwAddressStates);
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    ProviderState.LineStates = dwLineStates;
    ProviderState.AddressStates = dwAddressStates;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineSetDefaultMediaDetection(HDRVLINE hdLine, DWORD dwMediaModes) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineSetDefaultMediaDetection(%lx,%lx)", hdLine, dwMediaModes);
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    if (dwMediaModes != 0 && dwMediaModes != LINEMEDIAMODE_INTERACTIVEVOICE)
        return Refuse(LINEERR_INVALMEDIAMODE);
    ProviderState.DefaultMediaDetection = dwMediaModes;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineConditionalMediaDetection(HDRVLINE hdLine, DWORD dwMediaModes,
                                               LPLINECALLPARAMS const lpCallParams) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineConditionalMediaDetection(%lx,%lx,%lx)", hdLine, dwMediaModes, lpCallParams);
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    return ReleaseLineMutex(dwMediaModes == LINEMEDIAMODE_INTERACTIVEVOICE ? 0 : Error(LINEERR_INVALMEDIAMODE));
}

LONG WINAPI TSPI_lineSetMediaMode(HDRVCALL hdCall, DWORD dwMediaMode) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineSetMediaMode(%lx,%lx)", hdCall, dwMediaMode);
    if (HdCallToCref(hdCall) >= CALL_COUNT)
        return Refuse(LINEERR_INVALCALLHANDLE);
    if (dwMediaMode != LINEMEDIAMODE_INTERACTIVEVOICE)
        return Refuse(LINEERR_INVALMEDIAMODE);
    ProviderState.MediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_lineSetAppSpecific(HDRVCALL hdCall, DWORD dwAppSpecific) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineSetAppSpecific(%lx,%lx)", hdCall, dwAppSpecific);
    const int cref = HdCallToCref(hdCall);
    if (cref >= CALL_COUNT)
        return Refuse(LINEERR_INVALCALLHANDLE);
    ProviderState.AppSpecific = dwAppSpecific;
    if (ProviderState.LineEventProc != nullptr)  // not through DoLineEvent: no trace, no media mode
        ProviderState.LineEventProc(ProviderState.htLine, CallOf(cref).htCall, LINE_CALLINFO,
                                    LINECALLINFOSTATE_APPSPECIFIC, 0, 0);
    return ReleaseLineMutex(0);
}
