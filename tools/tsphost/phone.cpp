// TSPI_phone*
#include "tsphost/commands.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace Tsphost {

namespace {

constexpr DWORD UNWRITTEN = 0xA5A5A5A5;
constexpr DWORD LAMP_COUNT = 20;  // identifiers from here on are the icons of keys 0 to 88
constexpr DWORD LAST_LAMP = LAMP_COUNT + 88;
constexpr std::size_t DISPLAY_COLUMNS = 40;

// The keypad's identifiers: 0 to 9, then * and #.
DWORD KeypadAt(const Words& words, std::size_t at) {
    return words[at] == "*" ? 10 : words[at] == "#" ? 11 : NumberAt(words, at);
}

LONG GetLamp(DWORD id, DWORD& mode) {
    mode = UNWRITTEN;
    return Export<decltype(&TSPI_phoneGetLamp)>("TSPI_phoneGetLamp")(TheHost.Phone, id, &mode);
}

std::string LampText(DWORD id, DWORD mode) {
    if (mode == UNWRITTEN)
        return "not written";
    return id < LAMP_COUNT ? FlagNames(mode, LampModes)
                           : "icon of key " + std::to_string(id - LAMP_COUNT) + ": " + Hex(mode);
}

// All lamps and icons that are not 0.
bool Lamps() {
    bool any = false;
    for (DWORD id = 0; id <= LAST_LAMP; ++id) {
        DWORD mode = 0;
        if (const LONG result = GetLamp(id, mode); result < 0)
            return Report("TSPI_phoneGetLamp", result);
        if (mode != 0)
            Print("lamp " + std::to_string(id), LampText(id, mode));
        any = any || mode != 0;
    }
    if (!any)
        Say("  all lamps and icons are 0");
    return true;
}

// The entry points that have no command of their own, with arguments that do. The room is for what they give back.
struct Other {
    const char* name;
    bool gives;
    bool (*run)(DWORD* room);
};

const WCHAR PhoneClass[] = {'t', 'a', 'p', 'i', '/', 'p', 'h', 'o', 'n', 'e', 0};

template <class Structure> Structure* As(DWORD* room) {
    return reinterpret_cast<Structure*>(room);
}

constexpr Other Others[] = {
    {"DevSpecific", false, [](DWORD* room) { return ZT_REQUEST(TSPI_phoneDevSpecific, TheHost.Phone, room, 64u); }},
    {"GetButtonInfo", true,
     [](DWORD* room) { return ZT_CALL(TSPI_phoneGetButtonInfo, TheHost.Phone, 0u, As<PHONEBUTTONINFO>(room)); }},
    {"GetData", true, [](DWORD* room) { return ZT_CALL(TSPI_phoneGetData, TheHost.Phone, 0u, room, 64u); }},
    {"GetExtensionID", true,
     [](DWORD* room) {
         return ZT_CALL(TSPI_phoneGetExtensionID, TheHost.PhoneBase, 0x20000u, As<PHONEEXTENSIONID>(room));
     }},
    {"GetGain", true,
     [](DWORD* room) { return ZT_CALL(TSPI_phoneGetGain, TheHost.Phone, PHONEHOOKSWITCHDEV_HANDSET, room); }},
    {"GetHookSwitch", true, [](DWORD* room) { return ZT_CALL(TSPI_phoneGetHookSwitch, TheHost.Phone, room); }},
    {"GetIcon", true,
     [](DWORD* room) { return ZT_CALL(TSPI_phoneGetIcon, TheHost.PhoneBase, PhoneClass, As<HICON>(room)); }},
    {"GetID", true,
     [](DWORD* room) { return ZT_CALL(TSPI_phoneGetID, TheHost.Phone, As<VARSTRING>(room), PhoneClass, nullptr); }},
    {"GetRing", true, [](DWORD* room) { return ZT_CALL(TSPI_phoneGetRing, TheHost.Phone, room, room + 1); }},
    {"GetStatus", true, [](DWORD* room) { return ZT_CALL(TSPI_phoneGetStatus, TheHost.Phone, As<PHONESTATUS>(room)); }},
    {"GetVolume", true,
     [](DWORD* room) { return ZT_CALL(TSPI_phoneGetVolume, TheHost.Phone, PHONEHOOKSWITCHDEV_HANDSET, room); }},
    {"NegotiateExtVersion", true,
     [](DWORD* room) {
         return ZT_CALL(TSPI_phoneNegotiateExtVersion, TheHost.PhoneBase, 0x20000u, 0u, 0xFFFFFFFFu, room);
     }},
    {"SelectExtVersion", false, [](DWORD*) { return ZT_CALL(TSPI_phoneSelectExtVersion, TheHost.Phone, 0u); }},
    {"SetData", false, [](DWORD* room) { return ZT_REQUEST(TSPI_phoneSetData, TheHost.Phone, 0u, room, 64u); }},
    {"SetDisplay", false,
     [](DWORD*) { return ZT_REQUEST(TSPI_phoneSetDisplay, TheHost.Phone, 0u, 0u, PhoneClass, 20u); }},
    {"SetGain", false,
     [](DWORD*) { return ZT_REQUEST(TSPI_phoneSetGain, TheHost.Phone, PHONEHOOKSWITCHDEV_HANDSET, 0x8000u); }},
    {"SetLamp", false, [](DWORD*) { return ZT_REQUEST(TSPI_phoneSetLamp, TheHost.Phone, 0u, PHONELAMPMODE_STEADY); }},
    {"SetRing", false, [](DWORD*) { return ZT_REQUEST(TSPI_phoneSetRing, TheHost.Phone, 1u, 0x8000u); }},
    {"SetStatusMessages", false,
     [](DWORD*) { return ZT_CALL(TSPI_phoneSetStatusMessages, TheHost.Phone, PHONESTATE_DISPLAY, 0u, 0u); }},
    {"SetVolume", false,
     [](DWORD*) { return ZT_REQUEST(TSPI_phoneSetVolume, TheHost.Phone, PHONEHOOKSWITCHDEV_HANDSET, 0x8000u); }},
};

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

}  // namespace

bool PhoneNegotiate(const Words& words) {
    DWORD version = 0;
    const bool agreed = ZT_CALL(TSPI_phoneNegotiateTSPIVersion, NegotiatedDevice(TheHost.PhoneBase),
                                NumberAt(words, 1, 0x00010004), NumberAt(words, 2, 0x00030000), &version);
    Print("version", Hex(version));
    return agreed;
}

bool OpenPhone(const Words&) {
    return ZT_CALL(TSPI_phoneOpen, TheHost.PhoneBase, reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x52}),
                   &TheHost.Phone, 0x20000u, HostPhoneEvent);
}

bool ClosePhone(const Words&) {
    return ZT_CALL(TSPI_phoneClose, TheHost.Phone);
}

bool PhoneCaps(const Words& words) {
    Buffer caps(NumberAt(words, 1, 512));
    return ZT_CALL(TSPI_phoneGetDevCaps, TheHost.PhoneBase, 0x20000u, 0u, caps.As<PHONECAPS>()) &&
           PrintFields(caps, PhoneCapsFields);
}

bool PhoneDisplay(const Words& words) {
    Buffer display(NumberAt(words, 1, 256));
    if (!ZT_CALL(TSPI_phoneGetDisplay, TheHost.Phone, display.As<VARSTRING>()))
        return false;
    const auto& text = *display.As<VARSTRING>();
    const std::span<const std::byte> bytes = display.Bytes();
    const bool whole = PrintFields(display, {});
    if (text.dwStringFormat != STRINGFORMAT_ASCII || text.dwStringOffset > bytes.size() ||
        text.dwStringSize > bytes.size() - text.dwStringOffset) {
        Print("display", VarStringText(bytes));
        return whole;
    }
    const char* const first = reinterpret_cast<const char*>(bytes.data()) + text.dwStringOffset;
    for (std::size_t at = 0; at < text.dwStringSize; at += DISPLAY_COLUMNS)
        Print("line " + std::to_string(at / DISPLAY_COLUMNS),
              "|" + FromAnsi(first + at, std::min<std::size_t>(DISPLAY_COLUMNS, text.dwStringSize - at)) + "|");
    return whole;
}

bool PhoneLamp(const Words& words) {
    if (words.size() < 2)
        return Lamps();
    const DWORD id = NumberAt(words, 1);
    DWORD mode = 0;
    if (!Report("TSPI_phoneGetLamp", GetLamp(id, mode)))
        return false;
    Print("lamp " + std::to_string(id), LampText(id, mode));
    return true;
}

bool PhoneButton(const Words& words) {
    PHONEBUTTONINFO info{};
    info.dwTotalSize = info.dwNeededSize = info.dwUsedSize = sizeof info;
    info.dwButtonMode = FlagsAt(words, 1, ButtonModes);
    const DWORD id = info.dwButtonMode == PHONEBUTTONMODE_KEYPAD ? KeypadAt(words, 2) : NumberAt(words, 2);
    return ZT_REQUEST(TSPI_phoneSetButtonInfo, TheHost.Phone, id, &info);
}

bool PhoneHookSwitch(const Words& words) {
    const DWORD mode = words[1] == "offhook" ? PHONEHOOKSWITCHMODE_MICSPEAKER : FlagsAt(words, 1, HookSwitchModes);
    return ZT_REQUEST(TSPI_phoneSetHookSwitch, TheHost.Phone,
                      FlagsAt(words, 2, HookSwitchDevs, PHONEHOOKSWITCHDEV_HANDSET), mode);
}

std::string PhoneOtherNames() {
    std::string names;
    for (const Other& other : Others)
        names += (names.empty() ? "" : ", ") + Lower(other.name);
    return names;
}

bool PhoneOther(const Words& words) {
    std::string wanted = Lower(words[1]);
    if (wanted.starts_with("tspi_phone"))
        wanted.erase(0, std::strlen("tspi_phone"));
    const auto* const other =
        std::find_if(std::begin(Others), std::end(Others), [&](const Other& one) { return wanted == Lower(one.name); });
    if (other == std::end(Others))
        throw Unusable{"there is no \"" + words[1] + "\"; there are " + PhoneOtherNames()};
    alignas(8) DWORD room[64];
    std::fill(std::begin(room), std::end(room), UNWRITTEN);
    room[0] = sizeof room;
    if (!other->run(room))
        return false;
    const bool written =
        room[0] != sizeof room || std::any_of(room + 1, std::end(room), [](DWORD word) { return word != UNWRITTEN; });
    if (written)
        Print("written", Hex(room[0]) + " " + Hex(room[1]) + " " + Hex(room[2]) + " ...");
    else if (other->gives)
        Print("written", "nothing");
    return true;
}

}  // namespace Tsphost
