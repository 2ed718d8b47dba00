#include "control/phone_keys.h"

#include "link/keys.h"
#include "provider/state.h"
#include "provider/tapi.h"
#include "tracking/model.h"
#include "tracking/terminal.h"

#include <cstddef>

namespace {

constexpr DWORD DISPLAY_SIZE = 2 * DISPLAY_COLUMNS;
constexpr DWORD BUTTONINFO_READ = 16;  // up to and including dwButtonMode
constexpr DWORD NEEDED = VARSTRING_FIXED + DISPLAY_SIZE;
constexpr char Keypad[] = "0123456789*#";  // by digit code

void PressKeypad(DWORD digit) {
    if (digit >= sizeof Keypad - 1)
        return;
    char text[] = {Keypad[digit], 0};
    SendDialString(text, nullptr);
}

}  // namespace

LONG ReadPhoneDisplay() {
    VARSTRING* const display = ProviderState.DisplayBuffer;
    if (display == nullptr || display->dwTotalSize < offsetof(VARSTRING, dwUsedSize))
        return 0;
    display->dwNeededSize = NEEDED;
    if (display->dwTotalSize < NEEDED)
        return 0;
    display->dwUsedSize = NEEDED;
    display->dwStringFormat = STRINGFORMAT_ASCII;
    display->dwStringSize = DISPLAY_SIZE;
    display->dwStringOffset = VARSTRING_FIXED;
    char* const text = reinterpret_cast<char*>(display) + VARSTRING_FIXED;
    GetDisplayLine(0, text);
    GetDisplayLine(1, text + DISPLAY_COLUMNS);
    return 0;
}

LONG PressPhoneButton() {
    if (ProviderState.ButtonInfo == nullptr || ProviderState.ButtonInfo->dwTotalSize < BUTTONINFO_READ)
        return 0;
    const DWORD id = ProviderState.ButtonId & 0xFF;
    switch (ProviderState.ButtonInfo->dwButtonMode) {
    case PHONEBUTTONMODE_KEYPAD: PressKeypad(id); break;
    case PHONEBUTTONMODE_DISPLAY: PressKeyCode(static_cast<int>(id)); break;
    case PHONEBUTTONMODE_FEATURE:
        if (id != 0)
            PressKeyCode(static_cast<int>(id));
        break;
    default: break;
    }
    return 0;
}
