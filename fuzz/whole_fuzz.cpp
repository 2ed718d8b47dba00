// The provider as a whole: its own thread, opened by its entry points, while requests, queries and received bytes come in
// any order. An input is one byte that chooses the start state, then actions: a byte that chooses one, and what it takes.
// After each the books must balance: a request accepted is completed once, one refused never, and calls are told of by
// handles that TAPI has given. When line and phone are closed, nothing is left open. What states a call goes through is
// the random walk's matter, whose set does nothing that a set would not.
#include "start.h"

#include "config/set/set_config.h"
#include "config/settings.h"
#include "control/requests.h"
#include "link/link_layer.h"
#include "link/omna.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/control.h"
#include "provider/process.h"
#include "provider/state.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/model.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr DWORD TSPI_VERSION_2 = 0x20000;
constexpr DWORD LINE_DEVICE = 5, PHONE_DEVICE = 6;

enum StartBits : std::uint8_t {
    START_CONFIGURED = 0x01,  // as after the set's whole configuration; else as after the open
    START_SUPER = 0x02,
    START_PIGGYBACK = 0x04,
    START_SILENT_CARD = 0x08,  // it acknowledges nothing by itself
    START_VERSION_1 = 0x10,    // else 3
    START_NO_SUPERV = 0x20,
    START_PHONE = 0x40,     // the phone is opened, too
    START_ANY_TIME = 0x80,  // the application asks from within the events, too
};

// --- the card ----------------------------------------------------------------------------------------------------------

struct Card : PlatformControl::PortDevice {
    bool Acknowledges = true;
    std::deque<std::uint8_t> Bytes;

    void Give(std::span<const std::uint8_t> bytes) { Bytes.insert(Bytes.end(), bytes.begin(), bytes.end()); }
    void Write(std::span<const std::uint8_t> frame, std::uint32_t) override {
        if (Acknowledges && frame.size() > 1 && frame[1] != FRAME_CONTROL)
            Give(ACK_FRAME);
    }
    std::size_t Available(std::uint32_t) override { return Bytes.size(); }
    std::size_t Read(std::span<std::uint8_t> into, std::uint32_t) override {
        const std::size_t count = std::min(into.size(), Bytes.size());
        std::copy_n(Bytes.begin(), count, into.begin());
        Bytes.erase(Bytes.begin(), Bytes.begin() + static_cast<std::ptrdiff_t>(count));
        return count;
    }
};
Card TheCard;

// Length, type, data, checksum; what does not fit into a frame is left out.
void GiveFrame(std::uint8_t type, std::span<const std::uint8_t> data) {
    data = data.first(std::min<std::size_t>(data.size(), 254));
    std::vector<std::uint8_t> frame{static_cast<std::uint8_t>(data.size() + 1), type};
    frame.insert(frame.end(), data.begin(), data.end());
    frame.push_back(0);
    SetChecksum(frame);
    TheCard.Give(frame);
}

// --- TAPI's side of it -------------------------------------------------------------------------------------------------

enum class Asked { Running, Refused, Completed };

struct Books {
    std::map<DRV_REQUESTID, Asked> Requests;
    std::set<std::uintptr_t> Calls, Over;  // by TAPI's handles: all that were ever given, and those that were told IDLE
    std::uintptr_t NextCall = 0x1000;
    DRV_REQUESTID NextRequest = 1;
    FuzzInput* Within = nullptr;  // what the application takes its next request from, when an event comes
};
Books TheBooks;

HTAPICALL NewHandle() {
    const std::uintptr_t handle = TheBooks.NextCall++;
    TheBooks.Calls.insert(handle);
    return reinterpret_cast<HTAPICALL>(handle);
}

void AskFromWithin();

void CALLBACK LineEvent(HTAPILINE, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    FuzzNote("line event", message, p1);
    if (message == static_cast<DWORD>(LINE_NEWCALL)) {
        *reinterpret_cast<HTAPICALL*>(p2) = NewHandle();
    } else if (const auto handle = reinterpret_cast<std::uintptr_t>(call); handle != 0) {
        FuzzRequire(TheBooks.Calls.contains(handle), "news of a call that TAPI knows");
        if (message == LINE_CALLSTATE && p1 == LINECALLSTATE_IDLE)
            TheBooks.Over.insert(handle);
    }
    AskFromWithin();
}

void CALLBACK PhoneEvent(HTAPIPHONE, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    FuzzNote("phone event", message, p1, p2);
    AskFromWithin();
}

void CALLBACK Completion(DRV_REQUESTID request, LONG result) {
    FuzzNote("completion", request, result);
    const auto found = TheBooks.Requests.find(request);
    FuzzRequire(found != TheBooks.Requests.end(), "the completion of a request that was made");
    FuzzRequire(found->second == Asked::Running, "one completion of a request");
    FuzzRequire(result <= 0, "the result of a completion");
    found->second = Asked::Completed;
    AskFromWithin();
}

template <class Request> void Ask(Request request) {
    const DRV_REQUESTID id = TheBooks.NextRequest++;
    TheBooks.Requests[id] = Asked::Running;
    const LONG result = request(id);
    FuzzNote("answer", id, result);
    if (result == static_cast<LONG>(id))
        return;
    FuzzRequire(result <= 0, "a request's answer");
    FuzzRequire(TheBooks.Requests[id] == Asked::Running, "no completion of a request that was refused");
    TheBooks.Requests[id] = Asked::Refused;
}

// A text of the caller's that ends where its memory ends; none for a length of 255.
class Wide {
public:
    explicit Wide(FuzzInput& input) {
        const std::uint8_t length = input.Byte();
        if (length == 0xFF)
            return;
        for (const std::uint8_t c : input.Take(length))
            Chars.push_back(c);
        Chars.push_back(0);
        Chars.shrink_to_fit();
    }
    LPCWSTR Get() const { return Chars.empty() ? nullptr : Chars.data(); }

private:
    std::vector<WCHAR> Chars;
};

// A structure of the caller's with room for so many bytes, none where the room is 0.
template <class Structure> class Room {
public:
    explicit Room(FuzzInput& input) : Bytes(input.Byte() * std::size_t{4}) {
        if (Bytes.size() < sizeof(DWORD))
            Bytes.resize(sizeof(DWORD));  // a caller gives the size at least
        const auto size = static_cast<DWORD>(Bytes.size());
        std::memcpy(Bytes.data(), &size, sizeof size);
    }
    ~Room() {
        for (const std::byte byte : Bytes)
            FuzzNote("", std::to_integer<int>(byte));
    }
    Structure* Get() { return reinterpret_cast<Structure*>(Bytes.data()); }

private:
    std::vector<std::byte> Bytes;
};

HDRVLINE Line() {
    return reinterpret_cast<HDRVLINE>(&ProviderState);
}
HDRVPHONE Phone() {
    return reinterpret_cast<HDRVPHONE>(&ProviderState);
}
// Mostly one of the first few, which are those in use.
HDRVCALL Call(FuzzInput& input) {
    return reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(input.Byte() % 32));
}

void RequestOnCall(FuzzInput& input) {
    const HDRVCALL call = Call(input);
    switch (input.Byte() % 10) {
    case 0: return Ask([&](DRV_REQUESTID id) { return TSPI_lineAnswer(id, call, nullptr, 0); });
    case 1: return Ask([&](DRV_REQUESTID id) { return TSPI_lineDrop(id, call, nullptr, 0); });
    case 2: return Ask([&](DRV_REQUESTID id) { return TSPI_lineHold(id, call); });
    case 3: return Ask([&](DRV_REQUESTID id) { return TSPI_lineUnhold(id, call); });
    case 4: {
        const Wide number(input);
        return Ask([&](DRV_REQUESTID id) { return TSPI_lineDial(id, call, number.Get(), 0); });
    }
    case 5: {
        const Wide number(input);
        return Ask([&](DRV_REQUESTID id) { return TSPI_lineBlindTransfer(id, call, number.Get(), 0); });
    }
    case 6: {
        HDRVCALL consultation = nullptr;
        const HTAPICALL handle = NewHandle();
        return Ask([&](DRV_REQUESTID id) { return TSPI_lineSetupTransfer(id, call, handle, &consultation, nullptr); });
    }
    case 7: {
        const HDRVCALL other = Call(input);
        HDRVCALL conference = nullptr;
        const HTAPICALL handle = NewHandle();
        const DWORD mode = input.Byte() % 3;
        return Ask(
            [&](DRV_REQUESTID id) { return TSPI_lineCompleteTransfer(id, call, other, handle, &conference, mode); });
    }
    case 8: return Ask([&](DRV_REQUESTID id) { return TSPI_lineRemoveFromConference(id, call); });
    default: {
        const Wide digits(input);
        TSPI_lineGenerateDigits(call, 0, LINEDIGITMODE_DTMF, digits.Get(), 0);
    }
    }
}

void RequestOnLine(FuzzInput& input) {
    const std::uint8_t which = input.Byte();
    switch (which % 4) {
    case 0:
    case 1: {
        const Wide number(input);
        HDRVCALL call = nullptr;
        const HTAPICALL handle = NewHandle();
        return Ask(
            [&](DRV_REQUESTID id) { return TSPI_lineMakeCall(id, Line(), handle, &call, number.Get(), 0, nullptr); });
    }
    case 2: {
        const Wide number(input);
        return Ask(
            [&](DRV_REQUESTID id) { return TSPI_linePickup(id, Line(), 0, nullptr, nullptr, number.Get(), nullptr); });
    }
    default: {
        const auto text = input.Counted();
        std::vector<std::byte> bytes(sizeof(LINEFORWARDLIST) + text.size());
        auto& list = *reinterpret_cast<LINEFORWARDLIST*>(bytes.data());
        list.dwTotalSize = static_cast<DWORD>(bytes.size());
        list.dwNumEntries = 1;
        list.ForwardList[0].dwForwardMode = DWORD{1} << (which >> 2) % 16;
        list.ForwardList[0].dwDestAddressSize = static_cast<DWORD>(text.size());
        list.ForwardList[0].dwDestAddressOffset = sizeof(LINEFORWARDLIST);
        std::memcpy(bytes.data() + sizeof(LINEFORWARDLIST), text.data(), text.size());
        HDRVCALL consultation = nullptr;
        const bool cancel = (which & 0x40) != 0;
        return Ask([&](DRV_REQUESTID id) {
            return TSPI_lineForward(id, Line(), 0, 0, cancel ? nullptr : &list, 0, nullptr, &consultation, nullptr);
        });
    }
    }
}

void RequestOnPhone(FuzzInput& input) {
    PHONEBUTTONINFO info{};
    info.dwTotalSize = sizeof info;
    info.dwButtonMode = DWORD{1} << input.Byte() % 8;
    const DWORD id = input.Byte();
    if (info.dwButtonMode != 1)
        TSPI_phoneSetButtonInfo(1, Phone(), id, &info);
    else
        TSPI_phoneSetHookSwitch(1, Phone(), 1, id);
}

void Query(FuzzInput& input) {
    const HDRVCALL call = Call(input);
    const std::uint8_t which = input.Byte();
    DWORD value = 0;
    switch (which % 9) {
    case 0: TSPI_lineGetCallInfo(call, Room<LINECALLINFO>(input).Get()); break;
    case 1: TSPI_lineGetCallStatus(call, Room<LINECALLSTATUS>(input).Get()); break;
    case 2: TSPI_lineGetAddressStatus(Line(), 0, Room<LINEADDRESSSTATUS>(input).Get()); break;
    case 3: TSPI_lineGetLineDevStatus(Line(), Room<LINEDEVSTATUS>(input).Get()); break;
    case 4: TSPI_lineGetAddressCaps(LINE_DEVICE, 0, TSPI_VERSION_2, 0, Room<LINEADDRESSCAPS>(input).Get()); break;
    case 5: TSPI_lineGetDevCaps(LINE_DEVICE, TSPI_VERSION_2, 0, Room<LINEDEVCAPS>(input).Get()); break;
    case 6: TSPI_phoneGetDisplay(Phone(), Room<VARSTRING>(input).Get()); break;
    case 7: TSPI_phoneGetDevCaps(PHONE_DEVICE, TSPI_VERSION_2, 0, Room<PHONECAPS>(input).Get()); break;
    default: TSPI_phoneGetLamp(Phone(), input.Byte(), &value); break;
    }
}

void AnyRequest(FuzzInput& input) {
    switch (input.Byte() % 8) {
    case 0: return RequestOnLine(input);
    case 1: return RequestOnPhone(input);
    case 2: return Query(input);
    default: return RequestOnCall(input);
    }
}

void AskFromWithin() {
    if (TheBooks.Within != nullptr && !TheBooks.Within->Empty() && TheBooks.Within->Byte() % 8 == 0)
        AnyRequest(*TheBooks.Within);
}

// --- what happens ------------------------------------------------------------------------------------------------------

void Time(FuzzInput& input) {
    PlatformControl::Advance(TICK_MS * (1U + input.Byte() % 32));
}

// Long enough for every watch; seldom, since its ticks take longer than all the rest.
void LongTime(FuzzInput& input) {
    const unsigned length = input.Byte();
    PlatformControl::Advance(TICK_MS * (length % 8 == 0 ? 32U + length * 3U : 12U));
}

void RawBytes(FuzzInput& input) {
    TheCard.Give(input.Counted());
    PlatformControl::Advance(TICK_MS);
}

void AnyFrame(FuzzInput& input) {
    static constexpr std::uint8_t Types[] = {FRAME_SYSTEM_TRACE,
                                             FRAME_VTA_TRACE,
                                             FRAME_OPTION_TO_SYSTEM,
                                             FRAME_CONTROL,
                                             FRAME_CONTAINER,
                                             FRAME_SEGMENT,
                                             FRAME_OMNA,
                                             FRAME_SUPER,
                                             FRAME_PIGGYBACK,
                                             FRAME_SYSTEM_TO_OPTION};
    const std::uint8_t type = Types[input.Byte() % std::size(Types)];
    GiveFrame(type, input.Counted());
    PlatformControl::Advance(TICK_MS);
}

// The icons that mean something, by their low and high bytes; on the keys of the set and beside them.
void KeyIcon(FuzzInput& input) {
    static constexpr std::uint8_t Values[][2] = {{0, 0},       {0x20, 0x20}, {0x28, 0x28}, {0x00, 0x28},
                                                 {0x00, 0xA0}, {0x20, 0xA0}, {0xA0, 0xA0}, {0x04, 0x04}};
    const std::uint8_t byte = input.Byte();
    const auto& value = Values[byte % 8];
    const std::uint8_t data[] = {0x47, static_cast<std::uint8_t>(byte / 8 % 10), value[0], value[1]};
    GiveFrame(FRAME_SYSTEM_TRACE, data);
    PlatformControl::Advance(TICK_MS);
}

void SetKey(FuzzInput& input) {
    const std::uint8_t data[] = {0x20, input.Byte()};
    GiveFrame(FRAME_VTA_TRACE, data);
    PlatformControl::Advance(TICK_MS);
}

// A line of the display; a soft key's 8 columns where the position asks for it.
void DisplayText(FuzzInput& input) {
    const std::uint8_t where = input.Byte();
    std::vector<std::uint8_t> data{static_cast<std::uint8_t>((where & 1) != 0 ? 0x28 : 0x27),
                                   static_cast<std::uint8_t>((where & 2) != 0 ? 1 : 0),
                                   static_cast<std::uint8_t>((where >> 2) % 5 * 8)};
    static constexpr const char* Texts[] = {"2eAppl", "FinDbl", "V.Vien",     "Confer",  "F.Voca",
                                            "FinFV",  "Transf", "RACCROCHEZ", "ANNULER", "NUMEROTEZ"};
    const std::uint8_t which = input.Byte();
    const std::string_view known = which < std::size(Texts) ? Texts[which] : "";
    data.insert(data.end(), known.begin(), known.end());
    if (known.empty()) {
        const auto text = input.Counted();
        data.insert(data.end(), text.begin(), text.end());
    }
    GiveFrame(FRAME_SYSTEM_TRACE, data);
    PlatformControl::Advance(TICK_MS);
}

void PbxMessage(FuzzInput& input) {
    const std::uint8_t code = input.Byte();
    const auto payload = input.Counted();
    std::vector<std::uint8_t> data{
        0, static_cast<std::uint8_t>(payload.size() + OMNA_HEADER), ProviderState.TAPI_OMNA_Ver, 0, code, 1};
    data.insert(data.end(), payload.begin(), payload.end());
    GiveFrame(FRAME_OMNA, data);
    PlatformControl::Advance(TICK_MS);
}

void Adapter(FuzzInput& input) {
    static constexpr DWORD Errors[] = {22, 31, 5, 995};
    const std::uint8_t how = input.Byte();
    if ((how & 4) == 0)
        PlatformControl::PutBack("COM1", (how & 8) * 100U);
    else if (!PlatformControl::Port("COM1").PulledOut)
        PlatformControl::PullOut("COM1", Errors[how % 4]);
    PlatformControl::Advance(TICK_MS);
}

using Action = void (*)(FuzzInput& input);
constexpr Action Actions[] = {Time,       LongTime,      RawBytes,      AnyFrame,     KeyIcon, KeyIcon,
                              SetKey,     DisplayText,   Adapter,       PbxMessage,   Query,   AnyRequest,
                              AnyRequest, RequestOnLine, RequestOnCall, RequestOnCall};

// --- a life ------------------------------------------------------------------------------------------------------------

void Configure(std::uint8_t start) {
    FuzzConfigureSet();
    Settings.SupervService = (start & START_NO_SUPERV) == 0;
    Link.ProcessData = Link.TraceModeSeen = true;
    Link.LinkPollPeriod = POLL_PERIOD_ANSWERED;
    Link.SuperMsgSupported = (start & START_SUPER) != 0;
    Link.PiggybackMode = (start & START_PIGGYBACK) != 0;
    Tick.ConfigReceived = Tick.ConfigUsable = true;
    Tick.InitDataPending = false;
    DynamicConfig.WaitDynamicConfig = DynamicConfig.WaitTraceMode = 0;
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    ProviderState.TAPI_OMNA_Ver = (start & START_VERSION_1) != 0 ? 1 : 3;
}

void CloseCallsThatAreOver() {
    for (std::uintptr_t cref = 0; cref < CALL_COUNT; ++cref) {
        const auto handle = reinterpret_cast<std::uintptr_t>(CallTable[cref].htCall);
        if (handle != 0 && TheBooks.Over.contains(handle))
            TSPI_lineCloseCall(reinterpret_cast<HDRVCALL>(cref));
    }
}

void CheckBooks() {
    const auto running = std::count_if(TheBooks.Requests.begin(), TheBooks.Requests.end(),
                                       [](const auto& request) { return request.second == Asked::Running; });
    FuzzRequire(running <= 1, "one request at a time");
    FuzzRequire(ProviderState.PendingRequestID != 0 || running == 0, "a request that nobody remembers");
    for (const CallRecord& call : CallTable)
        FuzzRequire(call.touch >= 0 && call.touch < KEY_COUNT, "the key of a call");
    for (int key = 1; key < KEY_COUNT; ++key)
        if (const Touch& touch = TouchTable[static_cast<std::size_t>(key)]; touch.kind == TOUCH_MULTI) {
            for (const int cref : touch.calls)
                FuzzRequire(cref == -1 || CallTable[static_cast<std::size_t>(cref)].touch == key, "a call's own key");
            FuzzRequire(touch.calls[0] == -1 || touch.calls[0] != touch.calls[1], "a call in both slots");
        }
    FuzzCheckKeys();
}

}  // namespace

int FuzzWhole(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint8_t start = input.Byte();
    FuzzStartClosed();
    TheBooks = {};
    TheCard = {};
    TheCard.Acknowledges = (start & START_SILENT_CARD) == 0;
    PlatformControl::MapPort("COM1", &TheCard);
    PlatformControl::PutBack("COM1");
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    TraceMask = FuzzReplays ? 0xFF : 0;
    RegWriteSetting(SECTION_PROVIDER, "Port", "COM1");
    DWORD options = 0;
    TSPI_providerInit(TSPI_VERSION_2, 9, LINE_DEVICE, PHONE_DEVICE, 1, 1, Completion, &options);
    HDRVLINE line = nullptr;
    HDRVPHONE phone = nullptr;
    FuzzRequire(TSPI_lineOpen(LINE_DEVICE, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11}), &line, TSPI_VERSION_2,
                              LineEvent) == 0,
                "the open of the line");
    if ((start & START_PHONE) != 0)
        TSPI_phoneOpen(PHONE_DEVICE, reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x22}), &phone, TSPI_VERSION_2,
                       PhoneEvent);
    if ((start & START_CONFIGURED) != 0)
        Configure(start);
    if ((start & START_ANY_TIME) != 0)
        TheBooks.Within = &input;
    while (!input.Empty()) {
        Actions[input.Byte() % std::size(Actions)](input);
        CloseCallsThatAreOver();
        CheckBooks();
    }
    TheBooks.Within = nullptr;
    TSPI_lineClose(line);
    if (phone != nullptr)
        TSPI_phoneClose(phone);
    TSPI_providerShutdown(TSPI_VERSION_2, 9);
    for (const auto& [id, request] : TheBooks.Requests)
        FuzzRequire(request != Asked::Running, "a request without its completion");
    PlatformControl::Advance(TICK_MS * 2);
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    FuzzRequire(PlatformControl::OpenHandles() == 0, "what is left open");
    return 0;
}
