#include "platform/text.h"
#include "walk/walker.h"

#include "control/keys.h"
#include "control/requests.h"

#include <algorithm>
#include <cstring>

namespace Walk {

namespace {

std::basic_string<WCHAR> Wide(const std::string& text) {
    return {text.begin(), text.end()};
}

HDRVCALL CallHandle(int cref) {
    return reinterpret_cast<HDRVCALL>(static_cast<std::intptr_t>(cref));
}

// TAPI's calls as the records stand.
std::array<TapiCall*, CALL_COUNT> Known() {
    std::array<TapiCall*, CALL_COUNT> known{};
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        known[static_cast<std::size_t>(cref)] = TheBook.Current(cref);
    return known;
}

}  // namespace

// --- the application -------------------------------------------------------------------------------------------------------

bool Walker::ActDevice() {
    switch (Below(6)) {
    case 0:
    case 1:
    case 2:
        CloseLine();
        if (Once(3)) {  // a request finds no link: it starts that, and fails
            RequestOnLine();
            Advance(500u * static_cast<unsigned>(Below(8)));
            CloseLine();
        }
        OpenLine();
        break;
    case 3:
    case 4: {
        // The records start anew while the link runs, and the line hears nothing until it is opened again.
        const LONG result =
            TSPI_phoneOpen(PHONE_ID, reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x22}), &Phone, VERSION, PhoneNews);
        Say("phoneOpen gives " + std::to_string(result));
        TheBook.Forget();
        Open = false;
        Advance(500u * static_cast<unsigned>(Below(8)));
        if (Once(2)) {
            if (TSPI_phoneClose(Phone) != 0)
                Wrong("phoneClose failed");
        } else {
            CloseLine();
        }
        OpenLine();
        ProviderState.PhoneEventProc = PhoneNews;
        break;
    }
    default: return false;
    }
    Clean = Clean && Machine.set.calls.empty();
    return true;
}

// A call in one of these states that lives, now and then any handle at all.
int Walker::SomeCref(DWORD states) {
    static constexpr int Odd[] = {0, 1, 2, 3, 7, 19, 20, 29, 30, 31, 0xFFFF, 0x10001, -1};
    if (Once(12))
        return Pick(Odd);
    int found = 0, cref = -1;
    for (int i = 0; i < CALL_COUNT; ++i)
        if ((CallOf(i).state & (states | (states & LINECALLSTATE_OFFERING ? STATE_REOFFERING : 0))) != 0 &&
            Once(++found))
            cref = i;
    return cref != -1 ? cref : Below(4);
}

bool Walker::Asked(DRV_REQUESTID request, LONG result) {
    const TapiRequest& asked = TheBook.Requests[request];
    char text[160];
    std::snprintf(text, sizeof text, "%s(%d) gives %s%x", asked.Name.c_str(), asked.Cref,
                  result == static_cast<LONG>(request) ? "request " : "", static_cast<unsigned>(result));
    Say(text);
    ++Out.Requests;
    Out.Refused += result < 0;
    TheBook.Answered(request, result);
    return true;
}

// A request has written its handle over the one by which TAPI knew a call: TAPI hears no more of that one.
void Walker::TakeOver(TapiCall* lost, TapiCall& call, LONG result) {
    if (lost == nullptr || lost == &call || (lost->Is != Life::Alive && (lost->Is != Life::Asked || result >= 0)))
        return;
    for (auto& [id, request] : TheBook.Requests)
        if (TheBook.Find(request.Call) == lost)
            request.Call = TheBook.HandleOf(call);
    TheBook.Odd(result < 0 ? "a refused request has written its handle over that of a call"
                           : "a request has written its handle over that of a call");
    if (result < 0 || call.Is == Life::Refused)
        call = *lost;  // the call's news come under that handle
    lost->Is = Life::Lost;
}

bool Walker::Request() {
    switch (Below(6)) {
    case 0: return RequestOnLine();
    case 1: return TransferRequest();
    case 2: return PhoneRequest();
    default: return RequestOnCall();
    }
}

bool Walker::RequestOnLine() {
    const std::basic_string<WCHAR> number = Wide(Number());
    switch (Below(8)) {
    case 0: {
        struct {
            LINEFORWARDLIST list;
            WCHAR text[60];
        } forward{};
        static constexpr DWORD Modes[] = {1, 0x10, 0x100, 0x1000, 3};
        forward.list.dwTotalSize = Once(10) ? 20 : sizeof forward;
        forward.list.dwNumEntries = static_cast<DWORD>(Below(2));
        forward.list.ForwardList[0].dwForwardMode = Pick(Modes);
        forward.list.ForwardList[0].dwDestAddressSize = Once(10) ? 1000 : static_cast<DWORD>(number.size() * 2 + 2);
        forward.list.ForwardList[0].dwDestAddressOffset = sizeof forward.list;
        number.copy(forward.text, 59);
        if (!Machine.set.calls.empty() && Tracking.ActivCallTouch == 0)
            TheBook.Doubt = "a service code is keyed while a key is about to light, of which no call is made";
        ForwardedAt = PlatformControl::Now();
        ForwardedCall = Machine.set.lastCall;
        const DRV_REQUESTID id = TheBook.Ask("lineForward", 0);
        return Asked(id, TSPI_lineForward(id, Once(20) ? nullptr : Line, 0, 0, Once(4) ? nullptr : &forward.list, 0,
                                          nullptr, nullptr, nullptr));
    }
    case 1: {
        const DRV_REQUESTID id = TheBook.Ask("linePickup", 0);
        return Asked(id, TSPI_linePickup(id, Once(20) ? nullptr : Line, 0, nullptr, nullptr,
                                         Once(20) ? nullptr : number.c_str(), nullptr));
    }
    default: {
        static const char* const Bad[] = {"", "*", "12?", "1$", "+33 (1) 47", "x"};
        const std::basic_string<WCHAR> odd = Once(20) ? std::basic_string<WCHAR>(100, WCHAR{'5'}) : Wide(Pick(Bad));
        LINECALLPARAMS params{};
        params.dwTotalSize = Once(10) ? 40 : sizeof params;
        params.dwBearerMode = Once(10) ? 2 : LINEBEARERMODE_VOICE;
        params.dwMediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
        HDRVCALL made = CallHandle(-1);
        const HTAPICALL handle = TheBook.Handle();
        const DRV_REQUESTID id = TheBook.Ask("lineMakeCall", -1, handle);
        const auto before = Known();
        const LONG result = TSPI_lineMakeCall(id, Line, handle, &made,
                                              Once(40)   ? nullptr
                                              : Once(10) ? odd.c_str()
                                                         : number.c_str(),
                                              0, Once(3) ? &params : nullptr);
        TapiCall* call = TheBook.Find(handle);
        if (made != CallHandle(-1)) {
            const auto cref = static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(made));
            TheBook.Requests[id].Cref = call->Cref = static_cast<int>(cref);
            call->Deferred = Marks.DeferredMakeCall.Set;
            TapiCall* const lost = before.at(cref);
            Asked(id, result);
            TakeOver(lost, *call, result);
            if (call->Is == Life::Asked && !call->Deferred && KeyOf(static_cast<int>(cref)) == 0 &&
                Tracking.DbCall != 0)
                Spoil("a make call in a double call dials into the call at dial tone, and stands on no key");
            else if (result >= 0 && Tracking.DbCall != 0 && FindFreeBossSecretaryKey(static_cast<int>(cref)) != -1)
                Spoil("a make call in a double call presses a boss's key, which the set does not take then");
            else if (lost != nullptr && lost->Is == Life::Lost && call->Is != Life::Asked && call->Is != Life::Alive)
                Spoil("a make call that failed has ended the call at dial tone, whose key stays taken");
            return true;
        }
        return Asked(id, result);
    }
    }
}

bool Walker::RequestOnCall() {
    const auto cref = [&](DWORD states) { return SomeCref(Once(8) ? ~DWORD{0} : states); };
    const auto ask = [&](const char* name, int call, auto entry) {
        const DRV_REQUESTID id = TheBook.Ask(name, call);
        return Asked(id, entry(id, CallHandle(call)));
    };
    const std::basic_string<WCHAR> number = Wide(Number());
    switch (Below(14)) {
    case 0:
    case 1:
    case 2:
        return ask("lineAnswer", cref(LINECALLSTATE_OFFERING),
                   [](DRV_REQUESTID id, HDRVCALL call) { return TSPI_lineAnswer(id, call, nullptr, 0); });
    case 3:
    case 4:
    case 5:
        return ask("lineDrop", Once(6) && confstate == LINECALLSTATE_CONNECTED ? CONF_CREF : cref(~DWORD{0}),
                   [](DRV_REQUESTID id, HDRVCALL call) { return TSPI_lineDrop(id, call, nullptr, 0); });
    case 6:
    case 7: return ask("lineHold", cref(LINECALLSTATE_CONNECTED), TSPI_lineHold);
    case 8:
    case 9: return ask("lineUnhold", cref(LINECALLSTATE_ONHOLD), TSPI_lineUnhold);
    case 10:
        return ask("lineDial", cref(LINECALLSTATE_DIALTONE), [&](DRV_REQUESTID id, HDRVCALL call) {
            return TSPI_lineDial(id, call, Once(10) ? nullptr : number.c_str(), 0);
        });
    case 11: return ask("lineRemoveFromConference", cref(LINECALLSTATE_CONFERENCED), TSPI_lineRemoveFromConference);
    case 12: {
        const int call = cref(LINECALLSTATE_CONNECTED);
        const LONG result = TSPI_lineGenerateDigits(CallHandle(call), 0, Once(10) ? 1 : LINEDIGITMODE_DTMF,
                                                    Once(4) ? nullptr : number.c_str(), 0);
        Say("lineGenerateDigits(" + std::to_string(call) + ") gives " + std::to_string(result));
        if (result > 0)
            Wrong("lineGenerateDigits gave a request");
        return true;
    }
    default: {
        const int call = cref(~DWORD{0});
        Say("lineCloseCall(" + std::to_string(call) + ") gives " +
            std::to_string(TSPI_lineCloseCall(CallHandle(call))));
        return true;
    }
    }
}

bool Walker::TransferRequest() {
    const int call = SomeCref(LINECALLSTATE_CONNECTED);
    HDRVCALL made = CallHandle(-1);
    switch (Below(3)) {
    case 0: {
        const std::basic_string<WCHAR> number = Wide(Once(20) ? std::string(90, '1') : Number());
        const DRV_REQUESTID id = TheBook.Ask("lineBlindTransfer", call);
        return Asked(id, TSPI_lineBlindTransfer(id, CallHandle(call), Once(20) ? nullptr : number.c_str(), 0));
    }
    case 1: {
        const HTAPICALL handle = TheBook.Handle();
        const DRV_REQUESTID id = TheBook.Ask("lineSetupTransfer", call, handle);
        const auto before = Known();
        const LONG result = TSPI_lineSetupTransfer(id, CallHandle(call), handle, Once(40) ? nullptr : &made, nullptr);
        const auto consult = reinterpret_cast<std::intptr_t>(made);
        if (consult != -1)
            TheBook.Find(handle)->Cref = static_cast<int>(consult);
        Asked(id, result);
        if (consult != -1)
            TakeOver(before.at(static_cast<std::size_t>(consult)), *TheBook.Find(handle), result);
        return true;
    }
    default: {
        const bool conference = Once(2);
        const int other = SomeCref(LINECALLSTATE_ONHOLD | LINECALLSTATE_OFFERING | LINECALLSTATE_PROCEEDING |
                                   LINECALLSTATE_CONFERENCED);
        const HTAPICALL handle = conference ? TheBook.Handle() : nullptr;
        const DRV_REQUESTID id =
            TheBook.Ask(conference ? "lineCompleteTransfer conference" : "lineCompleteTransfer", call, handle);
        TapiCall* const before = conference ? TheBook.Current(CONF_CREF) : nullptr;
        const LONG result = TSPI_lineCompleteTransfer(id, CallHandle(call), CallHandle(other), handle, &made,
                                                      conference ? LINETRANSFERMODE_CONFERENCE
                                                      : Once(20) ? 3u
                                                                 : LINETRANSFERMODE_TRANSFER);
        const bool written = made != CallHandle(-1);
        if (written)
            TheBook.Find(handle)->Cref = CONF_CREF;
        Asked(id, result);
        if (written)
            TakeOver(before, *TheBook.Find(handle), result);
        return true;
    }
    }
}

bool Walker::PhoneRequest() {
    const auto phone = reinterpret_cast<HDRVPHONE>(Line);
    if (Once(3)) {
        const DWORD mode = 1u << Below(4);
        Say("phoneSetHookSwitch " + std::to_string(mode));
        TSPI_phoneSetHookSwitch(1, phone, 1, mode);
        return true;
    }
    PHONEBUTTONINFO info{};
    info.dwTotalSize = Once(20) ? 12 : sizeof info;
    static constexpr DWORD Modes[] = {4, 8, 8, 0x20, 0x20, 1};
    info.dwButtonMode = Pick(Modes);
    const DWORD id = info.dwButtonMode == 8      ? static_cast<DWORD>(Below(Digits()))
                     : info.dwButtonMode == 0x20 ? static_cast<DWORD>(29 + Below(5))
                                                 : static_cast<DWORD>(KeyInUse());
    const bool softKey = id >= 29 && id <= 31 && (info.dwButtonMode == 4 || info.dwButtonMode == 0x20);
    if (softKey && std::any_of(Machine.set.calls.begin(), Machine.set.calls.end(),
                               [&](const SetCall& call) { return call.slot == 1; }))
        TheBook.Doubt = "a soft key pressed through the phone in a double call is not followed";
    if (info.dwButtonMode == 4 && id < KEY_COUNT && TouchOf(static_cast<int>(id)).kind == TOUCH_SUPERV)
        TheBook.Doubt = "a supervision key pressed through the phone is not known to intercept its call";
    Say("phoneSetButtonInfo mode " + std::to_string(info.dwButtonMode) + " id " + std::to_string(id));
    TSPI_phoneSetButtonInfo(1, phone, id, Once(20) ? nullptr : &info);
    return true;
}

// Every query into a structure of any size, behind which nothing may be written.
bool Walker::Query() {
    alignas(8) std::array<std::uint8_t, 1200> room;
    room.fill(0xA5);
    const DWORD size = static_cast<DWORD>(Once(3) ? Below(1000) : 8 * Below(125));
    const auto structure = [&]<class T>(T*&) { return reinterpret_cast<T*>(room.data()); };
    std::memcpy(room.data(), &size, sizeof size);
    const HDRVCALL call = CallHandle(SomeCref(~DWORD{0}));
    LINECALLINFO* info = nullptr;
    LINECALLSTATUS* status = nullptr;
    LINEADDRESSSTATUS* address = nullptr;
    LINEDEVSTATUS* device = nullptr;
    LINEDEVCAPS* deviceCaps = nullptr;
    LINEADDRESSCAPS* addressCaps = nullptr;
    VARSTRING* text = nullptr;
    PHONECAPS* phoneCaps = nullptr;
    DWORD value = 0;
    const auto phone = reinterpret_cast<HDRVPHONE>(Line);
    switch (Below(11)) {
    case 0:
    case 1: TSPI_lineGetCallInfo(call, structure(info)); break;
    case 2: TSPI_lineGetCallStatus(call, structure(status)); break;
    case 3: TSPI_lineGetAddressStatus(Line, 0, structure(address)); break;
    case 4: TSPI_lineGetLineDevStatus(Line, structure(device)); break;
    case 5: TSPI_lineGetDevCaps(LINE_ID, VERSION, 0, structure(deviceCaps)); break;
    case 6: TSPI_lineGetAddressCaps(LINE_ID, 0, VERSION, 0, structure(addressCaps)); break;
    case 7: TSPI_phoneGetDisplay(phone, structure(text)); break;
    case 8: TSPI_phoneGetDevCaps(PHONE_ID, VERSION, 0, structure(phoneCaps)); break;
    case 9: TSPI_phoneGetLamp(phone, static_cast<DWORD>(Below(120)), &value); break;
    default: TSPI_lineGetID(Line, 0, call, 1, structure(text), "tapi/line"_wide, nullptr); break;
    }
    if (std::any_of(room.begin() + std::max<DWORD>(size, 4), room.end(),
                    [](std::uint8_t byte) { return byte != 0xA5; }))
        Wrong("a query wrote behind its structure of " + std::to_string(size) + " bytes");
    return true;
}

}  // namespace Walk
