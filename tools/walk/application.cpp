#include "platform/text.h"
#include "walk/walker.h"

#include "control/free_keys.h"
#include "control/requests.h"
#include "link/keys.h"

#include <algorithm>
#include <cstring>

namespace Walk {

namespace {

// A text of a line as the entry points take it: "null" for none.
class Wide {
public:
    explicit Wide(const std::string& text) : Null(text == "null"), Chars(text.begin(), text.end()) {}
    LPCWSTR Get() const { return Null ? nullptr : Chars.c_str(); }
    const std::basic_string<WCHAR>& All() const { return Chars; }

private:
    bool Null;
    std::basic_string<WCHAR> Chars;
};

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

// --- what an application may ask for ---------------------------------------------------------------------------------------

// A call in one of these states, now and then any handle at all; NOBODY mostly when there is none.
int Walker::SomeCref(DWORD states) {
    static constexpr int Odd[] = {0, 1, 2, 3, 7, 19, 20, 29, 30, 31, 0xFFFF, 0x10001, -1};
    if (Once(30))
        return Pick(Odd);
    int found = 0, cref = NOBODY;
    for (int i = 0; i < CALL_COUNT; ++i)
        if ((CallOf(i).state & (states | (states & LINECALLSTATE_OFFERING ? STATE_REOFFERING : 0))) != 0 &&
            Once(++found))
            cref = i;
    return cref != NOBODY || !Once(20) ? cref : Below(4);
}

std::string Walker::ChooseRequest() {
    if (Once(6))
        return LineOf("query", Below(11), Once(3) ? Below(1000) : 8 * Below(125), Below(4), Below(120));
    // Only one request runs at a time.
    if (ProviderState.PendingRequestID != 0 && !Once(12))
        return "";
    switch (Below(6)) {
    case 0: return ChooseOnLine();
    case 1:
    case 2: return ChooseTransfer();
    case 3: return ChoosePhone();
    default: return ChooseOnCall();
    }
}

std::string Walker::ChooseOnLine() {
    const std::string number = Number();
    const bool idle = Machine.set.calls.empty() && LiveCall() == -1;
    switch (Below(idle ? 4 : 12)) {  // an idle set alone takes a service code
    case 0: {
        static constexpr int Modes[] = {1, 0x10, 0x100, 0x1000};
        return LineOf("lineForward", Once(20) ? 20 : 1000, Once(4) ? 0 : 1, Once(20) ? 3 : Pick(Modes),
                      Once(20) ? 1000 : -1, number, !Once(20), !Once(8));
    }
    case 1: return LineOf("linePickup", Once(20) ? "null" : Once(2) ? "4720" : number, !Once(20));
    default: {
        static const char* const Bad[] = {"", "*", "12?", "1$", "+33 (1) 47", "x", "1aZ[{@"};
        // In version 1 only digits show that a number is being dialled.
        const int kinds = static_cast<int>(std::size(Bad)) - (Version == 1);
        const std::string odd = Once(20) ? std::string(Once(2) ? 79 : 100, '5') : Bad[Below(kinds)];
        return LineOf("lineMakeCall",
                      Once(40)   ? "null"
                      : Once(10) ? odd
                                 : number,
                      Once(3) ? Once(10) ? 40 : static_cast<int>(sizeof(LINECALLPARAMS)) : 0,
                      Once(10) ? 2 : static_cast<int>(LINEBEARERMODE_VOICE));
    }
    }
}

std::string Walker::ChooseOnCall() {
    const auto on = [&](const char* verb, DWORD states) {
        const int cref = SomeCref(Once(15) ? ~DWORD{0} : states);
        return cref == NOBODY ? "" : LineOf(verb, cref);
    };
    switch (Below(14)) {
    case 0:
    case 1: return on("lineAnswer", LINECALLSTATE_OFFERING);
    case 2:
    case 3: {
        // Not a held one, nor one that rings: the one cannot be dropped, the other is waited for.
        constexpr DWORD States = LINECALLSTATE_PROCEEDING | LINECALLSTATE_CONNECTED | LINECALLSTATE_CONFERENCED |
                                 LINECALLSTATE_DISCONNECTED | LINECALLSTATE_DIALTONE;
        return Once(3) && confstate == LINECALLSTATE_CONNECTED ? LineOf("lineDrop", CONF_CREF)
                                                               : on("lineDrop", Once(6) ? ~DWORD{0} : States);
    }
    case 4:
    case 5: return on("lineHold", LINECALLSTATE_CONNECTED);
    case 6:
    case 7: return on("lineUnhold", LINECALLSTATE_ONHOLD);
    case 8:
    case 9: {
        const std::string line = on("lineDial", LINECALLSTATE_DIALTONE);
        return line.empty() ? "" : line + LineOf("", Once(10) ? "null" : Number());
    }
    case 10: return on("lineRemoveFromConference", LINECALLSTATE_CONFERENCED);
    case 11:
    case 12: {
        const std::string line = on("lineGenerateDigits", LINECALLSTATE_CONNECTED);
        return line.empty() ? ""
                            : line + LineOf("", Once(10) ? 1 : LINEDIGITMODE_DTMF,
                                            Once(4)    ? "null"
                                            : Once(10) ? "1-2"
                                                       : Number());
    }
    default: return Once(2) ? on("lineCloseCall", ~DWORD{0}) : "";
    }
}

std::string Walker::ChooseTransfer() {
    const int call = SomeCref(LINECALLSTATE_CONNECTED);
    const int joined = SomeCref(LINECALLSTATE_CONNECTED | LINECALLSTATE_PROCEEDING | LINECALLSTATE_CONFERENCED);
    const int other = SomeCref(LINECALLSTATE_ONHOLD | LINECALLSTATE_CONFERENCED);
    switch (Below(5)) {
    case 0:
        return call == NOBODY ? ""
                              : LineOf("lineBlindTransfer", call,
                                       Once(20)   ? "null"
                                       : Once(20) ? std::string(90, '1')
                                                  : Number());
    case 1:
    case 2: return call == NOBODY ? "" : LineOf("lineSetupTransfer", call, !Once(40));
    default: {
        const int first = Once(4) ? other : joined, second = Once(8) ? SomeCref(LINECALLSTATE_OFFERING) : other;
        return first == NOBODY || second == NOBODY
                   ? ""
                   : LineOf("lineCompleteTransfer", first, first == other ? joined : second,
                            Once(2)    ? static_cast<int>(LINETRANSFERMODE_CONFERENCE)
                            : Once(20) ? 3
                                       : static_cast<int>(LINETRANSFERMODE_TRANSFER));
    }
    }
}

std::string Walker::ChoosePhone() {
    if (Once(3))
        return LineOf("hook", 1 << Below(4));
    static constexpr int Modes[] = {4, 8, 8, 0x20, 0x20, 1};
    const int mode = Pick(Modes);
    const int id = mode == 8      ? Once(30) ? 12 + Below(9) : Below(Digits())
                        : Once(50) ? 0
                   : mode == 0x20 ? 29 + Below(5)
                                  : KeyInUse();
    return LineOf("button", mode, id, Once(20) ? 0 : Once(20) ? 12 : static_cast<int>(sizeof(PHONEBUTTONINFO)));
}

// --- asking ----------------------------------------------------------------------------------------------------------------

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
    const bool refused = result < 0 || call.Is == Life::Refused;
    if (lost == nullptr || lost == &call || (lost->Is != Life::Alive && (lost->Is != Life::Asked || !refused)))
        return;
    for (auto& [id, request] : TheBook.Requests)
        if (TheBook.Find(request.Call) == lost)
            request.Call = TheBook.HandleOf(call);
    TheBook.Odd(refused ? "a refused request has written its handle over that of a call"
                        : "a request has written its handle over that of a call");
    if (refused)
        call = *lost;  // the call's news come under that handle
    else
        call.TookOver = true;
    lost->Is = Life::Lost;
}

bool Walker::Request(const std::string& verb, Words& words) {
    if (verb == "lineMakeCall")
        return MakeCall(words);
    if (verb == "lineForward")
        return Forward(words);
    if (verb == "lineCompleteTransfer")
        return CompleteTransfer(words);
    if (verb == "lineSetupTransfer")
        return SetUpTransfer(words);
    if (verb == "button")
        return PressButton(words);
    if (verb == "hook") {
        const auto mode = static_cast<DWORD>(words.Int());
        Say("phoneSetHookSwitch " + std::to_string(mode));
        return Sync("phoneSetHookSwitch", TSPI_phoneSetHookSwitch(1, reinterpret_cast<HDRVPHONE>(Line), 1, mode));
    }
    if (verb == "linePickup") {
        const Wide address(words.Text());
        const DRV_REQUESTID id = TheBook.Ask(verb, 0);
        return Asked(
            id, TSPI_linePickup(id, words.Int() != 0 ? Line : nullptr, 0, nullptr, nullptr, address.Get(), nullptr));
    }
    const int cref = words.Int();
    const HDRVCALL call = CallHandle(cref);
    if (verb == "lineGenerateDigits") {
        const auto mode = static_cast<DWORD>(words.Int());
        const Wide digits(words.Text());
        const LONG result = TSPI_lineGenerateDigits(call, 0, mode, digits.Get(), 0);
        Say("lineGenerateDigits(" + std::to_string(cref) + ") gives " + std::to_string(result));
        if (result > 0)
            Wrong("lineGenerateDigits gave a request");
        return Sync(verb, result);
    }
    if (verb == "lineCloseCall") {
        Say("lineCloseCall(" + std::to_string(cref) + ") gives " + std::to_string(TSPI_lineCloseCall(call)));
        return true;
    }
    const Wide number(verb == "lineDial" || verb == "lineBlindTransfer" ? words.Text() : "");
    const DRV_REQUESTID id = TheBook.Ask(verb, cref);
    Asked(id, verb == "lineAnswer"          ? TSPI_lineAnswer(id, call, nullptr, 0)
              : verb == "lineDrop"          ? TSPI_lineDrop(id, call, nullptr, 0)
              : verb == "lineHold"          ? TSPI_lineHold(id, call)
              : verb == "lineUnhold"        ? TSPI_lineUnhold(id, call)
              : verb == "lineDial"          ? TSPI_lineDial(id, call, number.Get(), 0)
              : verb == "lineBlindTransfer" ? TSPI_lineBlindTransfer(id, call, number.Get(), 0)
                                            : TSPI_lineRemoveFromConference(id, call));
    if (verb == "lineDial" && StateOf(cref) == LINECALLSTATE_IDLE && KeyOf(cref) != 0)
        Spoil("a dialling that failed has ended the call at dial tone, whose key stays taken");
    return true;
}

bool Walker::Sync(const std::string& name, LONG result) {
    ++TheBook.Asked[name];
    if (result == 0)
        ++TheBook.Asked[name + " ok"];
    return true;
}

bool Walker::Forward(Words& words) {
    struct {
        LINEFORWARDLIST list;
        WCHAR text[60];
    } forward{};
    const int total = words.Int();
    forward.list.dwTotalSize = total < 1000 ? static_cast<DWORD>(total) : sizeof forward;
    forward.list.dwNumEntries = static_cast<DWORD>(words.Int());
    const int mode = words.Int(), size = words.Int();
    const Wide number(words.Text());
    forward.list.ForwardList[0].dwForwardMode = static_cast<DWORD>(mode);
    forward.list.ForwardList[0].dwDestAddressSize =
        static_cast<DWORD>(size >= 0 ? static_cast<std::size_t>(size) : number.All().size() * 2 + 2);
    forward.list.ForwardList[0].dwDestAddressOffset = sizeof forward.list;
    number.All().copy(forward.text, 59);
    if (!Machine.set.calls.empty() && Tracking.ActivCallTouch == 0)
        TheBook.Doubt = "a service code is keyed while a key is about to light, of which no call is made";
    ForwardedAt = PlatformControl::Now();
    ForwardedCall = Machine.set.lastCall;
    const bool handle = words.Int() != 0, list = words.Int() != 0;
    const bool cancels = !list || forward.list.dwNumEntries == 0;
    const DRV_REQUESTID id = TheBook.Ask(cancels ? "lineForward cancel" : LineOf("lineForward", mode), 0);
    return Asked(id, TSPI_lineForward(id, handle ? Line : nullptr, 0, 0, list ? &forward.list : nullptr, 0, nullptr,
                                      nullptr, nullptr));
}

// The set's calls on the key of this one for which the test holds.
std::ptrdiff_t Walker::OnKey(int cref, bool (*test)(const SetCall&)) {
    return std::count_if(Machine.set.calls.begin(), Machine.set.calls.end(), [&](const SetCall& call) {
        return call.key == KeyOf(cref) && (test == nullptr || test(call));
    });
}

bool Walker::MakeCall(Words& words) {
    const Wide number(words.Text());
    LINECALLPARAMS params{};
    params.dwTotalSize = static_cast<DWORD>(words.Int());
    params.dwBearerMode = static_cast<DWORD>(words.Int());
    params.dwMediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    HDRVCALL made = CallHandle(-1);
    const HTAPICALL handle = TheBook.Handle();
    const DRV_REQUESTID id = TheBook.Ask("lineMakeCall", -1, handle);
    const auto before = Known();
    std::array<bool, CALL_COUNT> answered{};  // at dial tone for the provider, and no more on the set
    for (int cref = 0; cref < CALL_COUNT; ++cref)
        answered[static_cast<std::size_t>(cref)] =
            StateOf(cref) == LINECALLSTATE_DIALTONE && OnKey(cref) > 0 && OnKey(cref, Eq::IsBeingMade) == 0;
    const LONG result =
        TSPI_lineMakeCall(id, Line, handle, &made, number.Get(), 0, params.dwTotalSize != 0 ? &params : nullptr);
    if (made == CallHandle(-1))
        return Asked(id, result);
    TapiCall* call = TheBook.Find(handle);
    const auto cref = static_cast<int>(reinterpret_cast<std::uintptr_t>(made));
    TheBook.Requests[id].Cref = call->Cref = cref;
    call->Deferred = Marks.DeferredMakeCall.Set;
    TapiCall* const lost = before.at(static_cast<std::size_t>(cref));
    Asked(id, result);
    TakeOver(lost, *call, result);
    if (call->Is == Life::Asked && !call->Deferred && KeyOf(cref) == 0 && Tracking.DbCall != 0)
        Spoil("a make call in a double call dials into the call at dial tone, and stands on no key");
    else if (result >= 0 && Tracking.DbCall != 0 && FindFreeBossSecretaryKey(cref) != -1)
        Spoil("a make call in a double call presses a boss's key, which the set does not take then");
    else if (result >= 0 && ForwardedCall != INT_MAX)
        TheBook.Doubt = "a call is made while a service code is on its way, into whose line it dials";
    else if (result >= 0 && std::any_of(Machine.set.calls.begin(), Machine.set.calls.end(),
                                        [](const SetCall& c) { return c.state == At::Conferenced; }))
        TheBook.Doubt = "a call is made in a conference, in which the set takes no line key";
    else if (result >= 0 && answered.at(static_cast<std::size_t>(cref)))
        TheBook.Doubt = "a call is made with the record of a call at dial tone that has been answered meanwhile";
    else if (lost != nullptr && lost->Is == Life::Lost && call->Is != Life::Asked && call->Is != Life::Alive)
        Spoil("a make call that failed has ended the call at dial tone, whose key stays taken");
    return true;
}

bool Walker::SetUpTransfer(Words& words) {
    const int call = words.Int();
    HDRVCALL made = CallHandle(-1);
    const HTAPICALL handle = TheBook.Handle();
    const DRV_REQUESTID id = TheBook.Ask("lineSetupTransfer", call, handle);
    const auto before = Known();
    const LONG result =
        TSPI_lineSetupTransfer(id, CallHandle(call), handle, words.Int() != 0 ? &made : nullptr, nullptr);
    const auto consult = reinterpret_cast<std::intptr_t>(made);
    if (consult != -1)
        TheBook.Find(handle)->Cref = static_cast<int>(consult);
    Asked(id, result);
    if (consult != -1)
        TakeOver(before.at(static_cast<std::size_t>(consult)), *TheBook.Find(handle), result);
    return true;
}

bool Walker::CompleteTransfer(Words& words) {
    const int call = words.Int(), other = words.Int(), mode = words.Int();
    const bool conference = mode == LINETRANSFERMODE_CONFERENCE;
    HDRVCALL made = CallHandle(-1);
    const HTAPICALL handle = conference ? TheBook.Handle() : nullptr;
    const DRV_REQUESTID id =
        TheBook.Ask(conference ? "lineCompleteTransfer conference" : "lineCompleteTransfer", call, handle);
    TapiCall* const before = conference ? TheBook.Current(CONF_CREF) : nullptr;
    const LONG result =
        TSPI_lineCompleteTransfer(id, CallHandle(call), CallHandle(other), handle, &made, static_cast<DWORD>(mode));
    const bool written = made != CallHandle(-1);
    if (written)
        TheBook.Find(handle)->Cref = CONF_CREF;
    Asked(id, result);
    if (written)
        TakeOver(before, *TheBook.Find(handle), result);
    return true;
}

bool Walker::PressButton(Words& words) {
    PHONEBUTTONINFO info{};
    info.dwButtonMode = static_cast<DWORD>(words.Int());
    const auto id = static_cast<DWORD>(words.Int());
    info.dwTotalSize = static_cast<DWORD>(words.Int());
    const bool softKey = id >= 29 && id <= 31 && (info.dwButtonMode == 4 || info.dwButtonMode == 0x20);
    if (softKey && std::any_of(Machine.set.calls.begin(), Machine.set.calls.end(),
                               [&](const SetCall& call) { return call.slot == 1; }))
        TheBook.Doubt = "a soft key pressed through the phone in a double call is not followed";
    if (info.dwButtonMode == 4 && id < KEY_COUNT && TouchOf(static_cast<int>(id)).kind == TOUCH_SUPERV)
        TheBook.Doubt = "a supervision key pressed through the phone is not known to intercept its call";
    Say("phoneSetButtonInfo mode " + std::to_string(info.dwButtonMode) + " id " + std::to_string(id));
    return Sync(
        LineOf("phoneSetButtonInfo", static_cast<int>(info.dwButtonMode)),
        TSPI_phoneSetButtonInfo(1, reinterpret_cast<HDRVPHONE>(Line), id, info.dwTotalSize != 0 ? &info : nullptr));
}

// Every query into a structure of any size, behind which nothing may be written.
bool Walker::Query(Words& words) {
    alignas(8) std::array<std::uint8_t, 1200> room;
    room.fill(0xA5);
    const int kind = words.Int();
    const auto size = static_cast<DWORD>(words.Int());
    const auto structure = [&]<class T>(T*&) { return reinterpret_cast<T*>(room.data()); };
    std::memcpy(room.data(), &size, sizeof size);
    const HDRVCALL call = CallHandle(words.Int());
    LINECALLINFO* info = nullptr;
    LINECALLSTATUS* status = nullptr;
    LINEADDRESSSTATUS* address = nullptr;
    LINEDEVSTATUS* device = nullptr;
    LINEDEVCAPS* deviceCaps = nullptr;
    LINEADDRESSCAPS* addressCaps = nullptr;
    VARSTRING* text = nullptr;
    PHONECAPS* phoneCaps = nullptr;
    DWORD value = 0;
    LONG result = 0;
    const auto phone = reinterpret_cast<HDRVPHONE>(Line);
    switch (kind) {
    case 0:
    case 1: result = TSPI_lineGetCallInfo(call, structure(info)); break;
    case 2: result = TSPI_lineGetCallStatus(call, structure(status)); break;
    case 3: result = TSPI_lineGetAddressStatus(Line, 0, structure(address)); break;
    case 4: result = TSPI_lineGetLineDevStatus(Line, structure(device)); break;
    case 5: result = TSPI_lineGetDevCaps(LINE_ID, VERSION, 0, structure(deviceCaps)); break;
    case 6: result = TSPI_lineGetAddressCaps(LINE_ID, 0, VERSION, 0, structure(addressCaps)); break;
    case 7: result = TSPI_phoneGetDisplay(phone, size == 0 ? nullptr : structure(text)); break;
    case 8: result = TSPI_phoneGetDevCaps(PHONE_ID, VERSION, 0, structure(phoneCaps)); break;
    case 9: result = TSPI_phoneGetLamp(phone, static_cast<DWORD>(words.Int()), &value); break;
    default: result = TSPI_lineGetID(Line, 0, call, 1, structure(text), "tapi/line"_wide, nullptr); break;
    }
    if (std::any_of(room.begin() + std::max<DWORD>(size, 4), room.end(),
                    [](std::uint8_t byte) { return byte != 0xA5; }))
        Wrong("a query wrote behind its structure of " + std::to_string(size) + " bytes");
    if (PrintsAll || Listens) {
        std::string answer = "    answers " + std::to_string(result) + " " + std::to_string(value);
        for (DWORD at = 4; at + 4 <= std::min<DWORD>(size, sizeof room); at += 4) {
            DWORD field;
            std::memcpy(&field, room.data() + at, sizeof field);
            answer += field == 0xA5A5A5A5 ? std::string(" -") : LineOf("", field);
        }
        Say(std::move(answer));
    }
    return true;
}

}  // namespace Walk
