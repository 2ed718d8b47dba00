// The provider's line, asked for through TAPI as any application does.
#include "ztsetup/calls.h"
#include "ztsetup/system.h"

namespace Setup {

static_assert(MESSAGE_ADDRESS_STATE == LINE_ADDRESSSTATE && MESSAGE_CALL_INFO == LINE_CALLINFO &&
              MESSAGE_CALL_STATE == LINE_CALLSTATE && MESSAGE_CLOSE == LINE_CLOSE &&
              MESSAGE_LINE_STATE == LINE_LINEDEVSTATE && MESSAGE_REPLY == LINE_REPLY &&
              MESSAGE_NEW_CALL == LINE_APPNEWCALL && CALL_IDLE == LINECALLSTATE_IDLE);

namespace {

constexpr DWORD VERSION = 0x00020000, OLDEST = 0x00010004;

HLINEAPP App;
HANDLE Arrived;  // TAPI's event: a message waits
HLINE Line;
HCALL Made;  // written by TAPI when the request is completed
LONG Stopped;

alignas(LINECALLINFO) BYTE Room[8192];  // for one structure at a time

template <class Structure> Structure* Fresh() {
    ZeroMemory(Room, sizeof Room);
    auto* const structure = reinterpret_cast<Structure*>(Room);
    structure->dwTotalSize = sizeof Room;
    return structure;
}

// A text that TAPI has put into the room, as far as it lies there.
template <std::size_t Size> TextOf<Size> TextAt(DWORD offset, DWORD bytes) {
    if (offset > sizeof Room || bytes > sizeof Room - offset)
        return {};
    const auto* const text = reinterpret_cast<const WCHAR*>(Room + offset);
    int length = 0;
    while (length < static_cast<int>(bytes / sizeof(WCHAR)) && text[length] != 0)
        ++length;
    return length == 0 ? TextOf<Size>() : FromWide<Size>(text, length);
}

std::uint32_t Result(LONG result) {
    return static_cast<std::uint32_t>(result);
}

BOOL WINAPI OnControl(DWORD what) {
    InterlockedExchange(&Stopped, 1);
    return what == CTRL_C_EVENT || what == CTRL_BREAK_EVENT;
}

}  // namespace

std::uint32_t StartTapi(std::uint32_t& lines) {
    SetConsoleCtrlHandler(OnControl, TRUE);
    LINEINITIALIZEEXPARAMS parameters{};
    parameters.dwTotalSize = sizeof parameters;
    parameters.dwOptions = LINEINITIALIZEEXOPTION_USEEVENT;
    DWORD count = 0, version = VERSION;
    const LONG result = CallTapi<decltype(&lineInitializeExW)>("lineInitializeExW", &App, GetModuleHandleW(nullptr),
                                                               nullptr, L"ztsetup", &count, &version, &parameters);
    Arrived = parameters.Handles.hEvent;
    lines = count;
    return Result(result);
}

std::uint32_t AskLine(std::uint32_t device, LineFacts& facts) {
    DWORD version = 0;
    LINEEXTENSIONID extension{};
    LONG result = CallTapi<decltype(&lineNegotiateAPIVersion)>("lineNegotiateAPIVersion", App, DWORD{device}, OLDEST,
                                                               VERSION, &version, &extension);
    facts = LineFacts{};
    facts.version = version;
    auto* const line = Fresh<LINEDEVCAPS>();
    if (result == 0)
        result = CallTapi<decltype(&lineGetDevCapsW)>("lineGetDevCapsW", App, DWORD{device}, version, DWORD{0}, line);
    if (result != 0)
        return Result(result);
    facts.name = TextAt<128>(line->dwLineNameOffset, line->dwLineNameSize);
    facts.provider = TextAt<128>(line->dwProviderInfoOffset, line->dwProviderInfoSize);
    facts.activeCalls = line->dwMaxNumActiveCalls;
    auto* const address = Fresh<LINEADDRESSCAPS>();
    result = CallTapi<decltype(&lineGetAddressCapsW)>("lineGetAddressCapsW", App, DWORD{device}, DWORD{0}, version,
                                                      DWORD{0}, address);
    facts.address = TextAt<128>(address->dwAddressOffset, address->dwAddressSize);
    facts.addressFeatures = address->dwAddressFeatures;
    facts.callFeatures = address->dwCallFeatures;
    return Result(result);
}

std::uint32_t OpenLine(std::uint32_t device, std::uint32_t version) {
    LONG result = CallTapi<decltype(&lineOpenW)>("lineOpenW", App, DWORD{device}, &Line, DWORD{version}, DWORD{0},
                                                 DWORD_PTR{0}, DWORD{LINECALLPRIVILEGE_MONITOR}, DWORD{0}, nullptr);
    if (result == 0)
        result = CallTapi<decltype(&lineSetStatusMessages)>("lineSetStatusMessages", Line,
                                                            DWORD{LINEDEVSTATE_CONNECTED | LINEDEVSTATE_DISCONNECTED |
                                                                  LINEDEVSTATE_INSERVICE | LINEDEVSTATE_OUTOFSERVICE |
                                                                  LINEDEVSTATE_REINIT | LINEDEVSTATE_REMOVED},
                                                            DWORD{LINEADDRESSSTATE_FORWARD});
    return Result(result);
}

std::uint32_t NextMessage(LineMessage& message, std::uint32_t milliseconds, bool& came) {
    came = WaitForSingleObject(Arrived, milliseconds) == WAIT_OBJECT_0;
    if (!came)
        return 0;
    LINEMESSAGE got{};
    const LONG result = CallTapi<decltype(&lineGetMessage)>("lineGetMessage", App, &got, DWORD{0});
    message = {got.dwMessageID, got.hDevice, static_cast<std::uint32_t>(got.dwParam1),
               static_cast<std::uint32_t>(got.dwParam2)};
    return Result(result);
}

std::uint32_t MakeCall(std::string_view number, std::uint32_t& request) {
    Wide wide;
    Made = 0;
    const LONG result =
        CallTapi<decltype(&lineMakeCallW)>("lineMakeCallW", Line, &Made, ToWide(number, wide), DWORD{0}, nullptr);
    request = result > 0 ? static_cast<std::uint32_t>(result) : 0;
    return result > 0 ? 0 : Result(result);
}

std::uint32_t MadeCall() {
    return Made;
}

std::uint32_t DropCall(std::uint32_t call) {
    const LONG result = CallTapi<decltype(&lineDrop)>("lineDrop", HCALL{call}, nullptr, DWORD{0});
    return result > 0 ? 0 : Result(result);
}

void ReleaseCall(std::uint32_t call) {
    CallTapi<decltype(&lineDeallocateCall)>("lineDeallocateCall", HCALL{call});
}

std::uint32_t AskCall(std::uint32_t call, CallFacts& facts) {
    auto* const info = Fresh<LINECALLINFO>();
    const LONG result = CallTapi<decltype(&lineGetCallInfoW)>("lineGetCallInfoW", HCALL{call}, info);
    facts.caller = {TextAt<128>(info->dwCallerIDOffset, info->dwCallerIDSize),
                    TextAt<128>(info->dwCallerIDNameOffset, info->dwCallerIDNameSize)};
    facts.called = {TextAt<128>(info->dwCalledIDOffset, info->dwCalledIDSize),
                    TextAt<128>(info->dwCalledIDNameOffset, info->dwCalledIDNameSize)};
    facts.connected = {TextAt<128>(info->dwConnectedIDOffset, info->dwConnectedIDSize),
                       TextAt<128>(info->dwConnectedIDNameOffset, info->dwConnectedIDNameSize)};
    return Result(result);
}

void EndTapi() {
    if (Line != 0)
        CallTapi<decltype(&lineClose)>("lineClose", Line);
    CallTapi<decltype(&lineShutdown)>("lineShutdown", App);
    SetConsoleCtrlHandler(OnControl, FALSE);
}

bool StopAsked() {
    return InterlockedCompareExchange(&Stopped, 0, 0) != 0;
}

std::uint32_t Now() {
    return GetTickCount();
}

}  // namespace Setup
