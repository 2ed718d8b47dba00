// What the registry holds when the provider starts. An input is lines of section, value name and data, set apart by a
// backslash and an equals sign; the data goes in as it is, whatever it holds, and without a terminator when the line
// ends in a zero byte (which is taken off). A value name that ends in a colon and a digit is of that type instead of a
// text, its data exactly what stands there. Beside the provider's sections there are "Locations", the system's telephony
// locations, and "0", "1" and "2", three of them.
#include "start.h"

#include "config/set/set_config.h"
#include "config/set/stored_config.h"
#include "config/settings.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/platform.h"
#include "provider/state.h"
#include "tracking/events.h"
#include "tracking/model.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr const char* Sections[] = {SECTION_PROVIDER,       SECTION_SETCONFIG,  SECTION_PREFIX,       SECTION_SET_DES,
                                    SECTION_SOFTKEY_DES,    SECTION_STRING_DES, SECTION_SERVICE_CODE, SECTION_DYNAMIC,
                                    SECTION_SUBDEVICE_TEST, SECTION_DEBUG_MODE, SECTION_ZT_INFO};

const std::string OurRoot = "SOFTWARE\\Corvane\\TSpi_6200\\";
const std::string Locations = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Telephony\\Locations";
constexpr const char* LocationNames[] = {"0", "1", "2"};

// The path of a section's key; empty when there is no such section.
std::string PathOf(const std::string& section) {
    if (section == "Locations")
        return Locations;
    if (std::find(std::begin(LocationNames), std::end(LocationNames), section) != std::end(LocationNames))
        return Locations + "\\" + section;
    const bool known = std::find(std::begin(Sections), std::end(Sections), section) != std::end(Sections);
    return known ? OurRoot + section : std::string();
}

void EmptyRegistry() {
    FuzzEmptyRegistry();
    for (const char* name : LocationNames)
        RegDeleteKeyA(HKEY_LOCAL_MACHINE, (Locations + "\\" + name).c_str());
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, Locations.c_str());
}

void Store(std::string_view line) {
    const std::size_t slash = line.find('\\'), equals = line.find('=');
    if (slash == std::string_view::npos || equals == std::string_view::npos || equals < slash)
        return;
    std::string name(line.substr(slash + 1, equals - slash - 1)), data(line.substr(equals + 1));
    DWORD type = REG_SZ;
    if (name.size() >= 2 && name[name.size() - 2] == ':' && name.back() >= '0' && name.back() <= '9') {
        type = static_cast<DWORD>(name.back() - '0');
        name.resize(name.size() - 2);
    } else if (data.empty() || data.back() != 0) {
        data.push_back(0);
    } else {
        data.pop_back();
    }
    const std::string path = PathOf(std::string(line.substr(0, slash)));
    HKEY key = nullptr;
    if (path.empty() ||
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) != 0)
        return;
    RegSetValueExA(key, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(data.data()),
                   static_cast<DWORD>(data.size()));
    RegCloseKey(key);
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
    FuzzCheckKeys();
    for (const Touch& touch : TouchTable)
        FuzzRequire(Terminated(touch.label), "a key label's end");
    const int timeout = ReadAfterL2Timeout();
    FuzzRequire(timeout >= 1 && timeout <= 150, "the time after a link-control frame");
}

}  // namespace

int FuzzStoredConfig(const std::uint8_t* data, std::size_t size) {
    FuzzStart();
    EmptyRegistry();
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
    FuzzNoteConfiguration();
    return 0;
}
