// What the registry holds when the provider starts. An input is lines of section, value name and data, set apart by a
// backslash and an equals sign; the data goes in as it is, whatever it holds, and without a terminator when the line
// ends in a zero byte (which is taken off).
#include "start.h"

#include "config/settings.h"
#include "config/stored_config.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "platform/platform.h"
#include "provider/events.h"
#include "provider/state.h"
#include "tracking/model.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr const char* Sections[] = {SECTION_PROVIDER,       SECTION_SETCONFIG,  SECTION_PREFIX,       SECTION_SET_DES,
                                    SECTION_SOFTKEY_DES,    SECTION_STRING_DES, SECTION_SERVICE_CODE, SECTION_DYNAMIC,
                                    SECTION_SUBDEVICE_TEST, SECTION_DEBUG_MODE, SECTION_ZT_INFO};

void Store(std::string_view line) {
    const std::size_t slash = line.find('\\'), equals = line.find('=');
    if (slash == std::string_view::npos || equals == std::string_view::npos || equals < slash)
        return;
    const std::string section(line.substr(0, slash)), name(line.substr(slash + 1, equals - slash - 1));
    std::string data(line.substr(equals + 1));
    if (data.empty() || data.back() != 0)
        data.push_back(0);
    else
        data.pop_back();
    for (const char* known : Sections) {
        if (section != known)
            continue;
        const std::string path = "SOFTWARE\\Corvane\\TSpi_6200\\" + section;
        HKEY key = nullptr;
        if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) !=
            0)
            return;
        RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(data.data()),
                       static_cast<DWORD>(data.size()));
        RegCloseKey(key);
    }
}

template <std::size_t N> bool Terminated(const char (&field)[N]) {
    return std::memchr(field, 0, N) != nullptr;
}

void CheckRecords() {
    FuzzRequire(Terminated(ProviderState.PortName) && Terminated(ProviderState.SpeedText) &&
                    Terminated(ProviderState.LineAddress),
                "the line's texts");
    FuzzRequire(Terminated(Settings.SetMCDU) && Terminated(Settings.PublicOperator) && Terminated(Settings.ExtPrefix),
                "the numbers");
    for (const auto& label : Settings.SoftKeyLabels)
        FuzzRequire(Terminated(label), "a soft-key label's end");
    for (const auto& text : Settings.DisplayStrings)
        FuzzRequire(Terminated(text), "a display string's end");
    for (const auto& code : Settings.ServiceCodes)
        FuzzRequire(Terminated(code), "a service code's end");
    for (const KeyList* list :
         {&KeyLists.Multi, &KeyLists.Superv, &KeyLists.Patron, &KeyLists.Secretaire, &KeyLists.SecrDebord})
        for (const int key : *list)
            FuzzRequire(key >= 1 && key < KEY_COUNT, "the keys of a list");
    for (const Touch& touch : TouchTable)
        FuzzRequire(Terminated(touch.label), "a key label's end");
    const int timeout = ReadAfterL2Timeout();
    FuzzRequire(timeout >= 1 && timeout <= 150, "the time after a link-control frame");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzStart();
    for (const char* section : Sections)
        RegDeleteSection(section);
    std::string_view text(reinterpret_cast<const char*>(data), size);
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        Store(line);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    LoadIniStrings(0);
    ReadLastAction();
    InitDatas();
    CheckRecords();
    return 0;
}
