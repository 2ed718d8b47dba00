// The phone device: the same set seen as a terminal. Its display and lamps can be read, its buttons pressed, its hook
// switched; everything else of the interface is accepted and does nothing. It shares the serial thread with the line:
// closing either stops it for both. Requests of the phone are synchronous and carry no identifier.
#include "control/requests.h"
#include "devices/entry.h"
#include "devices/line.h"
#include "devices/line_requests.h"
#include "link/keys.h"
#include "thread/serial_thread.h"
#include "trace/trace.h"
#include "tracking/model.h"
#include "tracking/terminal.h"

#include <atomic>
#include <cstddef>
#include <cstring>

namespace {

bool IsOurDevice(DWORD deviceID) {
    return deviceID == std::atomic_ref(ProviderState.PhoneDeviceID).load();
}

bool IsPhoneHandle(HDRVPHONE phone) {
    return static_cast<const void*>(phone) == &ProviderState;
}

// Presses a button at once. What appCall answers is not told: the phone's requests succeed whatever becomes of them.
void Press(const PHONEBUTTONINFO* info, DWORD id) {
    ProviderState.ButtonInfo = info;
    ProviderState.ButtonId = id;
    appCall(0, REQUEST_PHONE_BUTTON, ProviderState, 0);
    ProviderState.ButtonInfo = nullptr;
}

// An entry point that does nothing.
template <class... Arguments> LONG Accept(const char* format, const Arguments&... arguments) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, format, arguments...);
    return ReleaseLineMutex(0);
}

}  // namespace

LONG WINAPI TSPI_phoneNegotiateTSPIVersion(DWORD dwDeviceID, DWORD dwLowVersion, DWORD dwHighVersion,
                                           LPDWORD lpdwTSPIVersion) {
    Trace(TRACE_ENTRY, "TSPI_phoneNegotiateTSPIVersion(%lx,%lx,%lx,%lx)", dwDeviceID, dwLowVersion, dwHighVersion,
          lpdwTSPIVersion);
    if (dwDeviceID != INITIALIZE_NEGOTIATION && !IsOurDevice(dwDeviceID))
        return Error(PHONEERR_BADDEVICEID);
    if (lpdwTSPIVersion == nullptr)
        return Error(PHONEERR_INVALPOINTER);
    *lpdwTSPIVersion = TAPI_VERSION;  // also where the range excludes it
    if (dwLowVersion > TAPI_VERSION || dwHighVersion < TAPI_VERSION)
        return Error(PHONEERR_INCOMPATIBLEAPIVERSION);
    return 0;
}

LONG WINAPI TSPI_phoneOpen(DWORD dwDeviceID, HTAPIPHONE htPhone, LPHDRVPHONE lphdPhone, DWORD dwTSPIVersion,
                           PHONEEVENT lpfnEventProc) {
    Trace(TRACE_ENTRY, "Entering TSPI_phoneOpen(%lx,%lx,%lx,%lx)", dwDeviceID, htPhone, lphdPhone, dwTSPIVersion);
    if (!IsOurDevice(dwDeviceID))
        return Error(PHONEERR_BADDEVICEID);
    if (lphdPhone == nullptr)
        return Error(PHONEERR_INVALPOINTER);
    return OpenDevice("End TSPI_phoneOpen Pb", [&] {
        ProviderState.htPhone = htPhone;
        ProviderState.PhoneEventProc = lpfnEventProc;
        *lphdPhone = reinterpret_cast<HDRVPHONE>(&ProviderState);
    });
}

LONG WINAPI TSPI_phoneClose(HDRVPHONE hdPhone) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_phoneClose (%lx)", hdPhone);
    if (!IsPhoneHandle(hdPhone))
        return Refuse(PHONEERR_INVALPHONEHANDLE);
    StopSerialThread();
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_phoneGetDevCaps(DWORD dwDeviceID, DWORD dwTSPIVersion, DWORD dwExtVersion, LPPHONECAPS lpPhoneCaps) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_phoneGetDevCaps(%lx,%lx,%lx,%lx)", dwDeviceID, dwTSPIVersion, dwExtVersion,
          lpPhoneCaps);
    if (!IsOurDevice(dwDeviceID))
        return Refuse(PHONEERR_BADDEVICEID);
    if (lpPhoneCaps == nullptr)
        return Refuse(PHONEERR_INVALPOINTER);
    PHONECAPS& caps = *lpPhoneCaps;
    if (caps.dwTotalSize < PHONECAPS_FIXED)  // no room for the fixed part: nothing is written
        return Refuse(PHONEERR_STRUCTURETOOSMALL);
    const DWORD nameSize = WideSize(ProviderState.LineName);
    caps.dwUsedSize = PHONECAPS_FIXED;
    caps.dwNeededSize = PHONECAPS_FIXED + nameSize;
    if (caps.dwTotalSize >= caps.dwNeededSize) {
        std::memcpy(reinterpret_cast<std::byte*>(&caps) + PHONECAPS_FIXED, ProviderState.LineName, nameSize);
        caps.dwPhoneNameSize = nameSize;
        caps.dwPhoneNameOffset = PHONECAPS_FIXED;
        caps.dwUsedSize = caps.dwNeededSize;
    }
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_phoneGetDisplay(HDRVPHONE hdPhone, LPVARSTRING lpDisplay) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_phoneGetDisplay(%lx,%lx)", hdPhone, lpDisplay);
    if (!IsPhoneHandle(hdPhone))
        return Refuse(PHONEERR_INVALPHONEHANDLE);
    ProviderState.DisplayBuffer = lpDisplay;
    appCall(0, REQUEST_PHONE_DISPLAY, ProviderState, 0);
    ProviderState.DisplayBuffer = nullptr;
    return ReleaseLineMutex(0);
}

// Lamps 0 to 19 are the set's lamps; the icons of its keys, as the set sent them, follow from LAMP_COUNT on.
LONG WINAPI TSPI_phoneGetLamp(HDRVPHONE hdPhone, DWORD dwButtonLampID, LPDWORD lpdwLampMode) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_phoneGetLamp(%lx,%lx,%lx)", hdPhone, dwButtonLampID, lpdwLampMode);
    if (!IsPhoneHandle(hdPhone))
        return Refuse(PHONEERR_INVALPHONEHANDLE);
    if (lpdwLampMode == nullptr)
        return Refuse(PHONEERR_INVALPOINTER);
    if (dwButtonLampID < LAMP_COUNT)
        *lpdwLampMode = Display.Lamps[dwButtonLampID];
    else if (dwButtonLampID < LAMP_COUNT + KEY_COUNT)
        *lpdwLampMode = TouchTable[dwButtonLampID - LAMP_COUNT].rawIcon;
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_phoneSetButtonInfo(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwButtonLampID,
                                    LPPHONEBUTTONINFO const lpButtonInfo) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_phoneSetButtonInfo(%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwButtonLampID,
          lpButtonInfo);
    if (!IsPhoneHandle(hdPhone))
        return Refuse(PHONEERR_INVALPHONEHANDLE);
    Press(lpButtonInfo, dwButtonLampID);
    return ReleaseLineMutex(0);
}

LONG WINAPI TSPI_phoneSetHookSwitch(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwHookSwitchDevs,
                                    DWORD dwHookSwitchMode) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_phoneSetHookSwitch(%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwHookSwitchDevs,
          dwHookSwitchMode);
    if (!IsPhoneHandle(hdPhone))
        return Refuse(PHONEERR_INVALPHONEHANDLE);
    PHONEBUTTONINFO info{};
    info.dwTotalSize = sizeof info;
    info.dwButtonMode = PHONEBUTTONMODE_FEATURE;
    Press(&info, dwHookSwitchMode == PHONEHOOKSWITCHMODE_ONHOOK ? RELEASE_KEY : OFFHOOK_KEY);
    return ReleaseLineMutex(0);
}

// --- accepted, without effect ----------------------------------------------------------------------------------------

LONG WINAPI TSPI_phoneDevSpecific(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, LPVOID lpParams, DWORD dwSize) {
    return Accept("Entering TSPI_phoneDevSpecific(%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, lpParams, dwSize);
}

LONG WINAPI TSPI_phoneGetButtonInfo(HDRVPHONE hdPhone, DWORD dwButtonLampID, LPPHONEBUTTONINFO lpButtonInfo) {
    return Accept("Entering TSPI_phoneGetButtonInfo(%lx,%lx,%lx)", hdPhone, dwButtonLampID, lpButtonInfo);
}

LONG WINAPI TSPI_phoneGetData(HDRVPHONE hdPhone, DWORD dwDataID, LPVOID lpData, DWORD dwSize) {
    return Accept("Entering TSPI_phoneGetData(%lx,%lx,%lx,%lx)", hdPhone, dwDataID, lpData, dwSize);
}

LONG WINAPI TSPI_phoneGetExtensionID(DWORD dwDeviceID, DWORD dwTSPIVersion, LPPHONEEXTENSIONID lpExtensionID) {
    return Accept("Entering TSPI_phoneGetExtensionID(%lx,%lx,%lx)", dwDeviceID, dwTSPIVersion, lpExtensionID);
}

LONG WINAPI TSPI_phoneGetGain(HDRVPHONE hdPhone, DWORD dwHookSwitchDev, LPDWORD lpdwGain) {
    return Accept("Entering TSPI_phoneGetGain(%lx,%lx,%lx)", hdPhone, dwHookSwitchDev, lpdwGain);
}

LONG WINAPI TSPI_phoneGetHookSwitch(HDRVPHONE hdPhone, LPDWORD lpdwHookSwitchDevs) {
    return Accept("Entering TSPI_phoneGetHookSwitch(%lx,%lx)", hdPhone, lpdwHookSwitchDevs);
}

LONG WINAPI TSPI_phoneGetIcon(DWORD dwDeviceID, LPCWSTR lpszDeviceClass, LPHICON lphIcon) {
    return Accept("Entering TSPI_phoneGetIcon(%lx,%lx,%lx)", dwDeviceID, Address(lpszDeviceClass), lphIcon);
}

LONG WINAPI TSPI_phoneGetID(HDRVPHONE hdPhone, LPVARSTRING lpDeviceID, LPCWSTR lpszDeviceClass, HANDLE) {
    return Accept("Entering TSPI_phoneGetID(%lx,%lx,%lx)", hdPhone, lpDeviceID, Address(lpszDeviceClass));
}

LONG WINAPI TSPI_phoneGetRing(HDRVPHONE hdPhone, LPDWORD lpdwRingMode, LPDWORD lpdwVolume) {
    return Accept("Entering TSPI_phoneGetRing(%lx,%lx,%lx)", hdPhone, lpdwRingMode, lpdwVolume);
}

LONG WINAPI TSPI_phoneGetStatus(HDRVPHONE hdPhone, LPPHONESTATUS lpPhoneStatus) {
    return Accept("Entering TSPI_phoneGetStatus(%lx,%lx)", hdPhone, lpPhoneStatus);
}

LONG WINAPI TSPI_phoneGetVolume(HDRVPHONE hdPhone, DWORD dwHookSwitchDev, LPDWORD lpdwVolume) {
    return Accept("Entering TSPI_phoneGetVolume(%lx,%lx,%lx)", hdPhone, dwHookSwitchDev, lpdwVolume);
}

LONG WINAPI TSPI_phoneNegotiateExtVersion(DWORD dwDeviceID, DWORD dwTSPIVersion, DWORD dwLowVersion,
                                          DWORD dwHighVersion, LPDWORD lpdwExtVersion) {
    return Accept("Entering TSPI_phoneNegotiateExtVersion(%lx,%lx,%lx,%lx,%lx)", dwDeviceID, dwTSPIVersion,
                  dwLowVersion, dwHighVersion, lpdwExtVersion);
}

LONG WINAPI TSPI_phoneSelectExtVersion(HDRVPHONE hdPhone, DWORD dwExtVersion) {
    return Accept("Entering TSPI_phoneSelectExtVersion(%lx,%lx)", hdPhone, dwExtVersion);
}

LONG WINAPI TSPI_phoneSetData(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwDataID, LPVOID const lpData,
                              DWORD dwSize) {
    return Accept("Entering TSPI_phoneSetData(%lx,%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwDataID, lpData, dwSize);
}

LONG WINAPI TSPI_phoneSetDisplay(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwRow, DWORD dwColumn,
                                 LPCWSTR lpsDisplay, DWORD dwSize) {
    return Accept("Entering TSPI_phoneSetDisplay(%lx,%lx,%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwRow, dwColumn,
                  Address(lpsDisplay), dwSize);
}

LONG WINAPI TSPI_phoneSetGain(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwHookSwitchDev, DWORD dwGain) {
    return Accept("Entering TSPI_phoneSetGain(%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwHookSwitchDev, dwGain);
}

LONG WINAPI TSPI_phoneSetLamp(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwButtonLampID, DWORD dwLampMode) {
    return Accept("Entering TSPI_phoneSetLamp(%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwButtonLampID, dwLampMode);
}

LONG WINAPI TSPI_phoneSetRing(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwRingMode, DWORD dwVolume) {
    return Accept("Entering TSPI_phoneSetRing(%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwRingMode, dwVolume);
}

LONG WINAPI TSPI_phoneSetStatusMessages(HDRVPHONE hdPhone, DWORD dwPhoneStates, DWORD dwButtonModes,
                                        DWORD dwButtonStates) {
    return Accept("Entering TSPI_phoneSetStatusMessages(%lx,%lx,%lx,%lx)", hdPhone, dwPhoneStates, dwButtonModes,
                  dwButtonStates);
}

LONG WINAPI TSPI_phoneSetVolume(DRV_REQUESTID dwRequestID, HDRVPHONE hdPhone, DWORD dwHookSwitchDev, DWORD dwVolume) {
    return Accept("Entering TSPI_phoneSetVolume(%lx,%lx,%lx,%lx)", dwRequestID, hdPhone, dwHookSwitchDev, dwVolume);
}
