#include "devices/line_requests.h"

#include "config/settings.h"
#include "control/forward.h"
#include "control/requests.h"
#include "control/transfer.h"
#include "devices/entry.h"
#include "devices/line.h"
#include "platform/copy_text.h"
#include "thread/serial_thread.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/steps.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace {

constexpr DWORD CALLPARAMS_READ = 48;  // up to and including DialParams

// The end of an entry point that gives the request's identifier unless the request was refused.
LONG Asked(LONG result, DRV_REQUESTID request) {
    return ReleaseLineMutex(result < 0 ? result : static_cast<LONG>(request));
}

// The end of an entry point that has nothing to ask the set for.
LONG Done(DRV_REQUESTID request) {
    CompleteRequest(ProviderState, request, 0);
    return ReleaseLineMutex(static_cast<LONG>(request));
}

// The record that a new call takes: the first one without a live call, one at dial tone included; -1 when there is none.
int ChooseRecord() {
    for (int cref = 0; cref < CALL_COUNT; ++cref) {
        const DWORD state = CallOf(cref).state;
        const bool free = state == 0 || state == LINECALLSTATE_IDLE || state == LINECALLSTATE_DIALTONE;
        if (free && cref != Marks.Ending)
            return cref;
        Trace(TRACE_ENTRY, "lineCallState[%d]:%lx", cref, state);
    }
    return -1;
}

// The chosen record gets the handle of a call that may come to be in it. A make call put off for it has to be told of
// first, and from within that TAPI may have called anew: then it is another record, or -1.
int TakeRecord(int cref, HTAPICALL htCall) {
    if (IsPutOff(cref)) {
        GiveUpDeferredMakeCall();
        cref = ChooseRecord();
        if (cref == -1 || IsPutOff(cref))
            return -1;
    }
    CallOf(cref).htCall = htCall;
    return cref;
}

// --- the way in ------------------------------------------------------------------------------------------------------

struct EntryTexts {
    const char* NoThread;
    const char* Negative;  // result, code
};

// The request itself is lost; TAPI is told so. lineMakeCall refuses by itself when the port did not open, and a request is
// never answered twice.
LONG Lost(int code, const ProviderStateRecord& provider, DRV_REQUESTID request) {
    if (code != REQUEST_MAKE_CALL || provider.DeviceState != DEVICE_OUT_OF_SERVICE)
        CompleteRequest(ProviderState, request, Error(LINEERR_OPERATIONFAILED));
    return static_cast<LONG>(request);
}

// Nothing is started under a stop, whose completion the request may have come from.
LONG StartInstead(int code, const ProviderStateRecord& provider, DRV_REQUESTID request, const char* text) {
    Trace(TRACE_ENTRY, text);
    FailPendingRequest();  // of a thread that ended by itself
    if (!Process.Stopping && StartSerialThread() == 0)
        ReleaseLineMutex(0);  // the start's hold; the entry point keeps its own
    return Lost(code, provider, request);
}

LONG HandOn(int cref, int consultCref, int code, ProviderStateRecord& provider, DRV_REQUESTID request,
            const EntryTexts& texts) {
    if (Process.Stopping || !SerialThreadRuns())
        return StartInstead(code, provider, request, texts.NoThread);
    if (Process.Starting > 0) {  // what it has not begun with would be forgotten
        const bool started = StartSerialThread() == 0;
        if (started)
            ReleaseLineMutex(0);
        if (!started ||
            provider.DeviceState == DEVICE_OUT_OF_SERVICE)  // its port did not open: no tick will end anything
            return Lost(code, provider, request);
    }
    if (provider.PendingRequestID != 0) {
        Trace(TRACE_ALWAYS, "can't do two async requests at the same time!");
        return Error(LINEERR_RESOURCEUNAVAIL);
    }
    provider.PendingRequestID = request;
    provider.RequestCref = cref;
    provider.ConsultCref = consultCref;
    const LONG result = DispatchRequest(code, provider);
    if (result < 0)
        Trace(TRACE_ENTRY, texts.Negative, result, code);
    return result;
}

LONG CheckText(const NarrowText& text) {
    return text.Converted() ? CheckDialString(text.Text()) : Error(LINEERR_INVALPOINTER);
}

// --- lineMakeCall ----------------------------------------------------------------------------------------------------

// Gives 0, or the first fault of the call parameters, traced.
DWORD CheckCallParams(const LINECALLPARAMS& params) {
    Trace(TRACE_ENTRY, "lpCallParams dwAddressMode %d dwAddressID %d", params.dwAddressMode, params.dwAddressID);
    if (params.dwBearerMode != LINEBEARERMODE_VOICE) {
        Trace(TRACE_ALWAYS, "DialMakeCall impossible - LINEERR_INVALBEARERMODE");
        return LINEERR_INVALBEARERMODE;
    }
    if (params.dwMediaMode != LINEMEDIAMODE_INTERACTIVEVOICE) {
        Trace(TRACE_ALWAYS, "DialMakeCall impossible - LINEERR_INVALMEDIAMODE");
        return LINEERR_INVALMEDIAMODE;
    }
    if ((params.dwCallParamFlags & ~DWORD{LINECALLPARAMFLAGS_IDLE | LINECALLPARAMFLAGS_BLOCKID}) != 0) {
        Trace(TRACE_ALWAYS, "DialMakeCall impossible - LINEERR_INVALCALLPARAMS");
        return LINEERR_INVALCALLPARAMS;
    }
    return 0;
}

// Takes the number to dial from what the application gave. False when there is none in it.
bool TakeDestination(CallRecord& call, const char* text) {
    if (text[0] == 0)
        return false;
    if (text[1] == 0) {
        if (text[0] < '0' || text[0] > '9')
            return false;
        CopyText(call.DestAddress, text);
        Trace(TRACE_ENTRY, "lineMakeCall - lpszDestAddress:%s", text);
        return true;
    }
    Trace(TRACE_ENTRY, "lineMakeCall -     DestAddress :'%s'", text);
    CopyText(call.DestAddress, text + std::strcspn(text, "0123456789*#"));
    return true;
}

// --- transfer --------------------------------------------------------------------------------------------------------

// Whether both calls are in states in which they can be joined.
bool CanJoin(const CallRecord& call, const CallRecord& consult) {
    const DWORD pair = call.state | consult.state;
    return pair == CONNECTED_HELD || pair == CONNECTED_REOFFERED ||
           (call.state == LINECALLSTATE_CONFERENCED && consult.state == LINECALLSTATE_CONFERENCED);
}

// A transfer is possible while the consultation call still rings, where the set leaves the line keys free for it.
bool CanTransfer(const CallRecord& call, const CallRecord& consult) {
    if (CanJoin(call, consult))
        return true;
    if ((call.state | consult.state) != PROCEEDING_HELD)
        return false;
    return Settings.EnquiryCallMode == 0 || call.touch == consult.touch || IsBossOrSecretary(call.touch) ||
           IsBossOrSecretary(consult.touch);
}

// --- forwarding ------------------------------------------------------------------------------------------------------

// Keeps the first entry's destination, which lies behind the entries, counted from the start of the list. False when it
// does not lie in the list.
bool TakeForwardDestination(const LINEFORWARDLIST& list) {
    const LINEFORWARD& entry = list.ForwardList[0];
    WCHAR wide[WIDE_LIMIT + 1] = {};
    const DWORD size = std::min<DWORD>(entry.dwDestAddressSize, WIDE_LIMIT * sizeof(WCHAR));
    if (size > 0 && (size > list.dwTotalSize || entry.dwDestAddressOffset > list.dwTotalSize - size))
        return false;
    if (size > 0)
        std::memcpy(wide, reinterpret_cast<const std::byte*>(&list) + entry.dwDestAddressOffset, size);
    const NarrowText destination(wide);
    if (!destination.Converted())
        return false;
    CopyText(ProviderState.ForwardDestination, destination.Text());
    return true;
}

// Gives the code of the forward list's first entry, whose destination is kept; 0 when the list cannot be used.
int TakeForwarding(const LINEFORWARDLIST& list) {
    const auto* mode = std::find_if(ForwardingModes.begin(), ForwardingModes.end(), [&](const ForwardingMode& known) {
        return known.Mode == list.ForwardList[0].dwForwardMode;
    });
    if (mode == ForwardingModes.end() || !TakeForwardDestination(list))
        return REQUEST_NONE;
    const DWORD size = list.ForwardList[0].dwDestAddressSize;
    const char* destination = ProviderState.ForwardDestination;
    Trace(TRACE_ENTRY, "TSPI_lineForward - RedirectCallAddress '%s' DestAddressSize %ld", destination, size);
    if (size >= NUMBER_SIZE)
        return REQUEST_NONE;
    Trace(TRACE_ENTRY, mode->EntryTrace);
    return mode->Request;
}

}  // namespace

LONG appCall(int cref, int requestCode, ProviderStateRecord& provider, DRV_REQUESTID request) {
    static constexpr EntryTexts Texts = {"appCall - Companion app has not yet been registered - Start it",
                                         "send message to companion thread result negative: %lx - msg:%x"};
    Trace(TRACE_ALWAYS, "appCall cref %lx msg %d reqId %lx", cref, requestCode, request);
    return HandOn(cref, provider.ConsultCref, requestCode, provider, request, Texts);
}

LONG appCallTransfer(int cref, int consultCref, int requestCode, ProviderStateRecord& provider, DRV_REQUESTID request) {
    static constexpr EntryTexts Texts = {"appCallTransfer - Companion app has not yet been registered - Start it",
                                         "send message to companion app result negative: %li"};
    return HandOn(cref, consultCref, requestCode, provider, request, Texts);
}

void ClampDialParams(const LINEDIALPARAMS& given, LINEDIALPARAMS& out) {
    for (const auto field : {&LINEDIALPARAMS::dwDialPause, &LINEDIALPARAMS::dwDialSpeed,
                             &LINEDIALPARAMS::dwDigitDuration, &LINEDIALPARAMS::dwWaitForDialtone})
        out.*field = given.*field == 0 ? DEFAULT_DIAL_PARAMS.*field
                                       : std::clamp(given.*field, MIN_DIAL_PARAMS.*field, MAX_DIAL_PARAMS.*field);
}

LONG CheckDialString(const char* text) {
    const char stop = text[std::strcspn(text, "?$")];
    if (stop != 0)
        return Error(stop == '?' ? LINEERR_DIALPROMPT : LINEERR_DIALBILLING);
    return std::strlen(text) < NUMBER_SIZE ? 0 : Error(LINEERR_INVALPOINTER);
}

// --- making calls ----------------------------------------------------------------------------------------------------

LONG WINAPI TSPI_lineMakeCall(DRV_REQUESTID dwRequestID, HDRVLINE hdLine, HTAPICALL htCall, LPHDRVCALL lphdCall,
                              LPCWSTR lpszDestAddress, DWORD dwCountryCode, LPLINECALLPARAMS const lpCallParams) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineMakeCall(%lx,%lx,%lx,%lx,%lx,%lx,%lx)", dwRequestID, hdLine, htCall, lphdCall,
          Address(lpszDestAddress), dwCountryCode, lpCallParams);
    const NarrowText destination(lpszDestAddress);
    if (const LONG fault = CheckText(destination); fault != 0)
        return ReleaseLineMutex(fault);
    if (ProviderState.DeviceState == DEVICE_OUT_OF_SERVICE) {
        Trace(TRACE_ENTRY, " TSPI_lineMakeCall LINEERR_NODEVICE ");
        return Refuse(LINEERR_NODEVICE);
    }
    const int chosen = ChooseRecord();
    if (chosen == -1) {
        Trace(TRACE_ALWAYS, "DialMakeCall impossible - LINEERR_RESOURCEUNAVAIL");
        return Refuse(LINEERR_RESOURCEUNAVAIL);
    }
    if (lpCallParams != nullptr) {
        if (lpCallParams->dwTotalSize < CALLPARAMS_READ)
            return Refuse(LINEERR_STRUCTURETOOSMALL);
        if (const DWORD fault = CheckCallParams(*lpCallParams); fault != 0)
            return Refuse(fault);
        ClampDialParams(lpCallParams->DialParams, ProviderState.DialParams);
    }
    if (lphdCall == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    // Both stay written when the call is refused below: the record is not taken by that.
    const int cref = TakeRecord(chosen, htCall);
    if (cref == -1)
        return Refuse(LINEERR_RESOURCEUNAVAIL);
    *lphdCall = CallHandle(cref);
    if (!TakeDestination(CallOf(cref), destination.Text()))
        return Refuse(LINEERR_INVALADDRESS);
    const LONG result = appCall(cref, REQUEST_MAKE_CALL, ProviderState, dwRequestID);
    if (ProviderState.DeviceState == DEVICE_OUT_OF_SERVICE)
        return Refuse(LINEERR_OPERATIONFAILED);
    return Asked(result, dwRequestID);
}

LONG WINAPI TSPI_lineDial(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCWSTR lpszDestAddress, DWORD dwCountryCode) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineDial(%lx,%lx,%lx,%lx)", dwRequestID, hdCall, Address(lpszDestAddress),
          dwCountryCode);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    CallRecord& call = CallOf(cref);
    if (call.state != LINECALLSTATE_DIALTONE && call.state != LINECALLSTATE_DIALING)
        return Refuse(LINEERR_INVALCALLSTATE);
    const NarrowText digits(lpszDestAddress);
    if (digits.Wide == 0 || digits.Wide == WIDE_LIMIT)
        return Refuse(LINEERR_INVALADDRESSID);
    if (const LONG fault = CheckText(digits); fault != 0)
        return ReleaseLineMutex(fault);
    CopyText(call.DestAddress, digits.Text());
    Trace(TRACE_ENTRY, "lineDial '%s' cref %04x", digits.Text(), cref);
    return ReleaseLineMutex(appCall(cref, REQUEST_DIAL, ProviderState, dwRequestID));
}

LONG WINAPI TSPI_lineGenerateDigits(HDRVCALL hdCall, DWORD dwEndToEndID, DWORD dwDigitMode, LPCWSTR lpszDigits,
                                    DWORD dwDuration) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGenerateDigits(%lx,%lx,%lx,%lx,%lx)", hdCall, dwEndToEndID, dwDigitMode,
          Address(lpszDigits), dwDuration);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    CallRecord& call = CallOf(cref);
    if (call.state != LINECALLSTATE_CONNECTED)
        return Refuse(LINEERR_INVALCALLSTATE);
    if (dwDigitMode != LINEDIGITMODE_DTMF)
        return Refuse(LINEERR_INVALDIGITMODE);
    const NarrowText digits(lpszDigits);  // null cancels, as an empty text does
    if (!digits.Fits())
        return Refuse(LINEERR_INVALPOINTER);
    CopyText(call.DigitsToGenerate, digits.Text());
    return ReleaseLineMutex(appCall(cref, REQUEST_GENERATE_DIGITS, ProviderState, 0));
}

LONG WINAPI TSPI_lineGenerateTone(HDRVCALL hdCall, DWORD dwEndToEndID, DWORD dwToneMode, DWORD dwDuration,
                                  DWORD dwNumTones, LPLINEGENERATETONE const lpTones) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineGenerateTone(%lx,%lx,%lx,%lx,%lx,%lx)", hdCall, dwEndToEndID, dwToneMode,
          dwDuration, dwNumTones, lpTones);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    return ReleaseLineMutex(CallOf(cref).state == LINECALLSTATE_CONNECTED ? 0 : Error(LINEERR_INVALCALLSTATE));
}

// --- answering, dropping, holding ------------------------------------------------------------------------------------

LONG WINAPI TSPI_lineAnswer(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCSTR lpsUserUserInfo, DWORD dwSize) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineAnswer(%lx,%lx,%lx,%lx)", dwRequestID, hdCall, Address(lpsUserUserInfo),
          dwSize);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    if (CallOf(cref).state != LINECALLSTATE_OFFERING && CallOf(cref).state != STATE_REOFFERING)
        return Refuse(LINEERR_INVALCALLSTATE);
    return Asked(appCall(cref, REQUEST_ANSWER, ProviderState, dwRequestID), dwRequestID);
}

LONG WINAPI TSPI_lineDrop(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCSTR lpsUserUserInfo, DWORD dwSize) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineDrop hdcall(%lx,%lx,%lx,%lx)", dwRequestID, hdCall, Address(lpsUserUserInfo),
          dwSize);
    const int cref = HdCallToCref(hdCall);
    if (IsPutOff(cref)) {  // over as soon as it is told; what else is in its record is another call
        GiveUpDeferredMakeCall();
        return Done(dwRequestID);
    }
    if (cref == CONF_CREF)
        Trace(TRACE_ENTRY, "Drop conference");
    else if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    else if (CallOf(cref).state == LINECALLSTATE_IDLE)
        return Done(dwRequestID);
    else if (CallOf(cref).state == 0) {
        Trace(TRACE_ENTRY, "Quit TSPI_lineDrop:dwRequestID:%lx, cref:%d", dwRequestID, cref);
        return Refuse(LINEERR_OPERATIONFAILED);
    }
    return Asked(appCall(cref, REQUEST_DROP, ProviderState, dwRequestID), dwRequestID);
}

LONG WINAPI TSPI_lineHold(DRV_REQUESTID dwRequestID, HDRVCALL hdCall) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineHold hdcall(%lx,%lx)", dwRequestID, hdCall);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    if (CallOf(cref).state == 0 || CallOf(cref).state == LINECALLSTATE_ONHOLD) {
        Trace(TRACE_ENTRY, "End of TSPI_lineHold:dwRequestID:%d, cref:%d", dwRequestID, cref);
        return Done(dwRequestID);
    }
    return ReleaseLineMutex(appCall(cref, REQUEST_HOLD, ProviderState, dwRequestID));
}

LONG WINAPI TSPI_lineUnhold(DRV_REQUESTID dwRequestID, HDRVCALL hdCall) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineUnhold hdcall(%lx,%lx)", dwRequestID, hdCall);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    if (CallOf(cref).state == 0) {
        Trace(TRACE_ENTRY, "Quit TSPI_lineUnhold:dwRequestID:%d, cref:%d", dwRequestID, cref);
        return Done(dwRequestID);
    }
    return ReleaseLineMutex(appCall(cref, REQUEST_UNHOLD, ProviderState, dwRequestID));
}

LONG WINAPI TSPI_lineCloseCall(HDRVCALL hdCall) {
    WaitLineMutex();
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref) && cref != CONF_CREF)
        return Refuse(LINEERR_INVALCALLHANDLE);
    Trace(TRACE_ENTRY, "TSPI_lineCloseCall: cref: %04x, hdCall: %d", cref, hdCall);
    if (IsPutOff(cref))
        GiveUpDeferredMakeCall();
    if (IsCref(cref) && CallOf(cref).state == LINECALLSTATE_IDLE)
        CallOf(cref).state = 0;
    return ReleaseLineMutex(0);
}

// --- transferring and joining ----------------------------------------------------------------------------------------

LONG WINAPI TSPI_lineBlindTransfer(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, LPCWSTR lpszDestAddress,
                                   DWORD dwCountryCode) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineBlindTransfer(%lx,%lx,%lx,%lx)", dwRequestID, hdCall,
          Address(lpszDestAddress), dwCountryCode);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    if (CallOf(cref).state != LINECALLSTATE_CONNECTED)
        return Refuse(LINEERR_INVALCALLSTATE);
    const NarrowText destination(lpszDestAddress);
    if (!destination.Fits())
        return Refuse(LINEERR_INVALPOINTER);
    CopyText(CallOf(cref).DestAddress, destination.Text());
    return Asked(appCall(cref, REQUEST_BLIND_TRANSFER, ProviderState, dwRequestID), dwRequestID);
}

LONG WINAPI TSPI_lineSetupTransfer(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, HTAPICALL htConsultCall,
                                   LPHDRVCALL lphdConsultCall, LPLINECALLPARAMS const lpCallParams) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineSetupTransfer(%lx,%lx,%lx,%lx,%lx)", dwRequestID, hdCall, htConsultCall,
          lphdConsultCall, lpCallParams);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    if (CallOf(cref).state != LINECALLSTATE_CONNECTED) {
        Trace(TRACE_ENTRY, "TSPI_lineSetupTransfer INVALCALLSTATE cref %d state %lx ", cref, CallOf(cref).state);
        return Refuse(LINEERR_INVALCALLSTATE);
    }
    const int chosen = ChooseRecord();
    if (chosen == -1) {
        Trace(TRACE_ENTRY, " impossible - LINEERR_RESOURCEUNAVAIL");
        return Refuse(LINEERR_RESOURCEUNAVAIL);
    }
    Trace(TRACE_ENTRY, " consultref trouve %04x", chosen);
    if (lphdConsultCall == nullptr)
        return Refuse(LINEERR_INVALPOINTER);
    const int consult = TakeRecord(chosen, htConsultCall);
    if (consult == -1)
        return Refuse(LINEERR_RESOURCEUNAVAIL);
    if (consult != chosen)
        Trace(TRACE_ENTRY, " consultref trouve %04x", consult);
    *lphdConsultCall = CallHandle(consult);
    return ReleaseLineMutex(appCallTransfer(cref, consult, REQUEST_SETUP_TRANSFER, ProviderState, dwRequestID));
}

LONG WINAPI TSPI_lineCompleteTransfer(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, HDRVCALL hdConsultCall,
                                      HTAPICALL htConfCall, LPHDRVCALL lphdConfCall, DWORD dwTransferMode) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineCompleteTransfer(%lx,%lx,%lx,%lx,%lx,%lx)", dwRequestID, hdCall,
          hdConsultCall, htConfCall, lphdConfCall, dwTransferMode);
    const int cref = HdCallToCref(hdCall);
    const int consult = HdCallToCref(hdConsultCall);
    if (!IsCref(cref) || !IsCref(consult))
        return Refuse(LINEERR_INVALCALLHANDLE);
    Trace(TRACE_ENTRY, "CompleteTransfer ref:%04x  consultref:%04x Mode %lx", cref, consult, dwTransferMode);
    switch (dwTransferMode) {
    case LINETRANSFERMODE_TRANSFER:
        if (!CanTransfer(CallOf(cref), CallOf(consult))) {
            Trace(TRACE_ENTRY, " Transfer case between call ref:%d and call ref:%d IMPOSSIBLE", consult, cref);
            return Refuse(LINEERR_INVALCALLSTATE);
        }
        Trace(TRACE_ENTRY, " Transfer case between call ref:%d and call ref:%d", cref, consult);
        return ReleaseLineMutex(appCallTransfer(cref, consult, REQUEST_TRANSFER, ProviderState, dwRequestID));
    case LINETRANSFERMODE_CONFERENCE:
        if (!CanJoin(CallOf(cref), CallOf(consult)))
            return Refuse(LINEERR_INVALCALLSTATE);
        if (lphdConfCall == nullptr)
            return Refuse(LINEERR_INVALPOINTER);
        ProviderState.htConference = htConfCall;
        *lphdConfCall = CallHandle(CONF_CREF);
        return ReleaseLineMutex(appCallTransfer(cref, consult, REQUEST_CONFERENCE, ProviderState, dwRequestID));
    default: return Refuse(LINEERR_OPERATIONUNAVAIL);
    }
}

LONG WINAPI TSPI_lineRemoveFromConference(DRV_REQUESTID dwRequestID, HDRVCALL hdCall) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "TSPI_lineRemoveFromConference(%lx,%lx)", dwRequestID, hdCall);
    const int cref = HdCallToCref(hdCall);
    if (!IsCref(cref))
        return Refuse(LINEERR_INVALCALLHANDLE);
    return ReleaseLineMutex(appCall(cref, REQUEST_DROP, ProviderState, dwRequestID));
}

// A conference is made by a set-up transfer that is completed in conference mode; the three entry points for making one
// in other ways are not offered.
LONG WINAPI TSPI_lineSetupConference(DRV_REQUESTID dwRequestID, HDRVCALL hdCall, HDRVLINE hdLine, HTAPICALL htConfCall,
                                     LPHDRVCALL lphdConfCall, HTAPICALL htConsultCall, LPHDRVCALL lphdConsultCall,
                                     DWORD dwNumParties, LPLINECALLPARAMS const lpCallParams) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineAddToConference(%lx,%lx,%lx,%lx,%lx,%lx,%lx,%lx,%lx)", dwRequestID, hdCall,
          hdLine, htConfCall, lphdConfCall, htConsultCall, lphdConsultCall, dwNumParties, lpCallParams);
    return Refuse(LINEERR_OPERATIONUNAVAIL);
}

LONG WINAPI TSPI_lineAddToConference(DRV_REQUESTID dwRequestID, HDRVCALL hdConfCall, HDRVCALL hdConsultCall) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_lineAddToConference(%lx,%lx,%lx)", dwRequestID, hdConfCall, hdConsultCall);
    return Refuse(LINEERR_OPERATIONUNAVAIL);
}

LONG WINAPI TSPI_linePrepareAddToConference(DRV_REQUESTID dwRequestID, HDRVCALL hdConfCall, HTAPICALL htConsultCall,
                                            LPHDRVCALL lphdConsultCall, LPLINECALLPARAMS const lpCallParams) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_linePrepareAddToConference(%lx,%lx,%lx,%lx,%lx)", dwRequestID, hdConfCall,
          htConsultCall, lphdConsultCall, lpCallParams);
    return Refuse(LINEERR_OPERATIONUNAVAIL);
}

// --- forwarding and pickup -------------------------------------------------------------------------------------------

LONG WINAPI TSPI_lineForward(DRV_REQUESTID dwRequestID, HDRVLINE hdLine, DWORD, DWORD,
                             LPLINEFORWARDLIST const lpForwardList, DWORD, HTAPICALL, LPHDRVCALL,
                             LPLINECALLPARAMS const) {
    WaitLineMutex();
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    Trace(TRACE_ENTRY, "Entering TSPI_lineForward");
    if (LiveCall() != -1)
        return Refuse(LINEERR_OPERATIONUNAVAIL);
    int code = REQUEST_FORWARD_CANCEL;
    if (lpForwardList != nullptr && lpForwardList->dwTotalSize < FORWARDLIST_FIXED)
        return Refuse(LINEERR_STRUCTURETOOSMALL);
    if (lpForwardList != nullptr && lpForwardList->dwNumEntries != 0) {
        if (lpForwardList->dwTotalSize < FORWARDLIST_FIXED + FORWARD_FIXED)
            return Refuse(LINEERR_STRUCTURETOOSMALL);
        code = TakeForwarding(*lpForwardList);
        if (code == REQUEST_NONE)
            return Refuse(LINEERR_INVALPARAM);
    }
    return ReleaseLineMutex(appCall(0, code, ProviderState, dwRequestID));
}

LONG WINAPI TSPI_linePickup(DRV_REQUESTID dwRequestID, HDRVLINE hdLine, DWORD, HTAPICALL, LPHDRVCALL,
                            LPCWSTR lpszDestAddress, LPCWSTR) {
    WaitLineMutex();
    Trace(TRACE_ENTRY, "Entering TSPI_linePickup");
    if (!IsLineHandle(hdLine))
        return Refuse(LINEERR_INVALLINEHANDLE);
    const NarrowText address(lpszDestAddress);
    if (address.Wide == 0 || address.Wide == WIDE_LIMIT)
        return Refuse(LINEERR_INVALADDRESSID);
    if (!address.Fits())
        return Refuse(LINEERR_INVALPOINTER);
    CopyText(ProviderState.PickupAddress, address.Text());
    Trace(TRACE_ENTRY, "Entering TSPI_linePickup Address '%s'", address.Text());
    return ReleaseLineMutex(appCall(0, REQUEST_PICKUP, ProviderState, dwRequestID));
}
