#include "config/settings.h"

#include "platform/copy_text.h"
#include "platform/text.h"
#include "provider/process.h"  // the mark that the port could not be read
#include "trace/trace.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

SettingsRecord Settings = [] {
    SettingsRecord record{};
    record.MaxDigitLocal = MAX_DIGIT_LOCAL.Default;
    record.SupervService = 1;
    return record;
}();
DynamicConfigRecord DynamicConfig;

namespace {

// An open key that closes itself.
struct Key {
    HKEY handle = nullptr;
    Key() = default;
    Key(Key&& other) noexcept : handle(other.handle) { other.handle = nullptr; }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    Key& operator=(Key&& other) noexcept {
        std::swap(handle, other.handle);
        return *this;
    }
    ~Key() {
        if (handle != nullptr)
            RegCloseKey(handle);
    }
    explicit operator bool() const { return handle != nullptr; }
};

Key OpenKey(HKEY parent, const char* name, REGSAM access, LONG& error) {
    Key key;
    error = RegOpenKeyExA(parent, name, 0, access, &key.handle);
    if (error != ERROR_SUCCESS)
        key.handle = nullptr;
    return key;
}

Key CreateKey(HKEY parent, const char* name, LONG& error) {
    Key key;
    DWORD disposition = 0;
    char noClass[] = "";
    error = RegCreateKeyExA(parent, name, 0, noClass, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key.handle,
                            &disposition);
    if (error != ERROR_SUCCESS)
        key.handle = nullptr;
    return key;
}

// HKEY_LOCAL_MACHINE\SOFTWARE\Corvane\TSpi_6200, made when missing; a null key, traced, when a step fails.
// Newer telephony services run under an account without full access to SOFTWARE. Their refusal is traced, and the way
// goes on by reading: the set-up program has given that account the key of ours below.
Key OpenRoot(LONG& error) {
    Key software = OpenKey(HKEY_LOCAL_MACHINE, "SOFTWARE", KEY_ALL_ACCESS, error);
    if (!software) {
        Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE %ld", error);
        if (error == static_cast<LONG>(ERROR_ACCESS_DENIED))
            software = OpenKey(HKEY_LOCAL_MACHINE, "SOFTWARE", KEY_READ, error);
        if (!software)
            return {};
    }
    const Key corvane = CreateKey(software.handle, "Corvane", error);
    if (!corvane) {
        Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane %ld", error);
        return {};
    }
    Key root = CreateKey(corvane.handle, "TSpi_6200", error);
    if (!root)
        Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 %ld", error);
    return root;
}

void TraceSectionError(const char* section, LONG error) {
    Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 '%s' %ld", section, error);
}

void TraceValueError(const char* section, const char* name, LONG error) {
    Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 '%s''%s' %ld", section, name, error);
}

Key OpenSection(const char* section, LONG& error) {
    const Key root = OpenRoot(error);
    if (!root)
        return {};
    Key key = OpenKey(root.handle, section, KEY_READ, error);
    if (!key)
        TraceSectionError(section, error);
    return key;
}

// Reads a text into the buffer; an error where it is missing or too long. What is there may lack its terminator.
LONG QueryText(HKEY key, const char* name, std::span<char> buffer) {
    auto size = static_cast<DWORD>(buffer.size());
    DWORD type = 0;
    const LONG error = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (error != ERROR_SUCCESS)
        return error;
    if (type != REG_SZ)
        return static_cast<LONG>(ERROR_FILE_NOT_FOUND);
    if (size < buffer.size()) {
        buffer[size] = 0;
        return ERROR_SUCCESS;
    }
    // The buffer is full: the text fits only when its terminator is among the bytes.
    return std::memchr(buffer.data(), 0, buffer.size()) != nullptr ? ERROR_SUCCESS : static_cast<LONG>(ERROR_MORE_DATA);
}

LONG QueryNumber(HKEY key, const char* name, DWORD& value) {
    DWORD type = 0, size = sizeof value;
    return RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
}

// The telephony locations' key, each step of its path opened for reading; null, traced, when one fails.
Key OpenLocations() {
    struct Level {
        const char* name;
        const char* text;
    };
    static constexpr Level Levels[] = {
        {"SOFTWARE", "ERROR HKEY_LOCAL_MACHINE SOFTWARE %ld"},
        {"Microsoft", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Microsoft %ld"},
        {"Windows", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Microsoft Windows %ld"},
        {"CurrentVersion", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..CurrentVersion %ld"},
        {"Telephony", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Telephony %ld"},
        {"Locations", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Locations %ld"},
    };
    Key above;
    for (const Level& level : Levels) {
        LONG error = 0;
        Key key = OpenKey(above ? above.handle : HKEY_LOCAL_MACHINE, level.name, KEY_READ, error);
        if (!key) {
            Trace(TRACE_CONFIG, level.text, error);
            return {};
        }
        above = std::move(key);
    }
    return above;
}

// Writes a default back where the value is missing. What could not be read may well be there: it stays.
void WriteBack(Reading reading, const char* section, const char* name, const char* defaultText) {
    if (reading == Reading::Missing)
        RegWriteSetting(section, name, defaultText);
}

// A setting of the Provider section with a default that is written back. False when it could not be read.
template <std::size_t N> bool LoadWithDefault(const char* name, const char* defaultText, char (&field)[N]) {
    const Reading reading = RegRead(SECTION_PROVIDER, name, field);
    if (reading != Reading::Found)
        CopyText(field, N, defaultText);
    WriteBack(reading, SECTION_PROVIDER, name, defaultText);
    return reading != Reading::Failed;
}

// A flag of the store: "1" is written over any value other than "0".
int ReadFlag(const char* section, const char* name) {
    char text[5];
    const Reading reading = RegRead(section, name, text);
    WriteBack(reading, section, name, "0");
    if (reading != Reading::Found)
        return 0;
    if (std::strcmp(text, "0") == 0)
        return 0;
    if (std::strcmp(text, "1") != 0)
        RegWriteSetting(section, name, "1");
    return 1;
}

}  // namespace

Reading RegRead(const char* section, const char* name, std::span<char> buffer) {
    LONG error = ERROR_SUCCESS;
    if (const Key key = OpenSection(section, error)) {
        error = QueryText(key.handle, name, buffer);
        if (error != ERROR_SUCCESS)
            TraceValueError(section, name, error);
    }
    if (error == ERROR_SUCCESS)
        return buffer[0] != 0 ? Reading::Found : Reading::Missing;
    buffer[0] = 0;  // a query that fails may have touched it
    const bool missing =
        error == static_cast<LONG>(ERROR_FILE_NOT_FOUND) || error == static_cast<LONG>(ERROR_MORE_DATA);
    return missing ? Reading::Missing : Reading::Failed;
}

int RegReadSetting(const char* section, const char* name, const char* defaultText, std::span<char> buffer) {
    if (RegRead(section, name, buffer) != Reading::Found)
        CopyText(buffer.data(), buffer.size(), defaultText);
    return static_cast<int>(std::strlen(buffer.data()));
}

int RegWriteSetting(const char* section, const char* name, const char* text) {
    LONG error = 0;
    const Key root = OpenRoot(error);
    if (!root)
        return 0;
    const Key key = CreateKey(root.handle, section, error);
    if (!key) {
        TraceSectionError(section, error);
        return 0;
    }
    error = RegSetValueExA(key.handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                           static_cast<DWORD>(std::strlen(text) + 1));
    if (error != ERROR_SUCCESS) {
        TraceValueError(section, name, error);
        return 0;
    }
    return 1;
}

int RegDeleteSection(const char* section) {
    LONG error = 0;
    const Key root = OpenRoot(error);
    if (!root)
        return 0;
    error = RegDeleteKeyA(root.handle, section);
    if (error == ERROR_SUCCESS || error == static_cast<LONG>(ERROR_FILE_NOT_FOUND))
        return 1;
    Trace(TRACE_CONFIG, "ERROR Deleting HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 '%s' %ld", section, error);
    return 0;
}

HKEY RegOpenSection(const char* section) {
    LONG error = 0;
    Key key = OpenSection(section, error);
    HKEY handle = key.handle;
    key.handle = nullptr;
    return handle;
}

bool ReadExtPrefix() {
    char text[5];
    const Reading reading = RegRead(SECTION_PREFIX, "ExtPrefix", text);
    CopyText(Settings.ExtPrefix, reading == Reading::Found ? text : "0");
    WriteBack(reading, SECTION_PREFIX, "ExtPrefix", "0");
    return reading == Reading::Found;
}

void ReadExtPrefixDisp() {
    Settings.ExtPrefixDisp = ReadFlag(SECTION_PREFIX, "ExtPrefixDisp");
}

void ReadEnquiryCallMode() {
    Settings.EnquiryCallMode = ReadFlag(SECTION_SETCONFIG, "EnquiryCallMode");
}

void ReadMaxDigitLocal() {
    char text[5];
    const Reading reading = RegRead(SECTION_SETCONFIG, "MaxDigitLocal", text);
    const long digits = std::strtol(text, nullptr, 10);
    if (digits >= MAX_DIGIT_LOCAL.Least && digits <= MAX_DIGIT_LOCAL.Most) {
        Settings.MaxDigitLocal = static_cast<int>(digits);
        return;
    }
    Settings.MaxDigitLocal = MAX_DIGIT_LOCAL.Default;
    if (reading != Reading::Failed)
        RegWriteSetting(SECTION_SETCONFIG, "MaxDigitLocal", std::to_string(MAX_DIGIT_LOCAL.Default).c_str());
}

void GetOutsideAccess(std::span<char, 20> buffer) {
    CopyText(buffer.data(), buffer.size(), "0");
    const Key locations = OpenLocations();
    if (!locations)
        return;
    DWORD current = 0;
    if (const LONG error = QueryNumber(locations.handle, "CurrentID", current)) {
        Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..CurrentID %ld", error);
        return;
    }
    char name[261];
    for (DWORD index = 0; RegEnumKeyA(locations.handle, index, name, sizeof name) == ERROR_SUCCESS; ++index) {
        LONG error = 0;
        const Key location = OpenKey(locations.handle, name, KEY_READ, error);
        if (!location) {
            Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Locations %s %ld", name, error);
            continue;
        }
        DWORD id = 0;
        error = QueryNumber(location.handle, "ID", id);
        if (error != ERROR_SUCCESS) {
            Trace(TRACE_CONFIG, "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Sub ID %ld", error);
            continue;
        }
        if (id != current)
            continue;
        if (QueryText(location.handle, "OutsideAccess", buffer) != ERROR_SUCCESS)
            CopyText(buffer.data(), buffer.size(), "0");
        return;
    }
}

void LoadIniStrings(DWORD permanentProviderID) {
    ProviderState.PermanentProviderID = permanentProviderID;
    Process.PortUnread = !LoadWithDefault("Port", "NONE", ProviderState.PortName);
    LoadWithDefault("Speed", "9600", ProviderState.SpeedText);
    const WCHAR* name = "CORVANE_ZT_6200_2.0_3"_wide;
    std::size_t length = 0;
    for (; name[length] != 0; ++length)
        ProviderState.LineName[length] = name[length];
    ProviderState.LineName[length] = 0;
    RegReadSetting(SECTION_SETCONFIG, "SetMCDU", "", ProviderState.LineAddress);
    Trace(TRACE_ENTRY, "LoadIniStrings port '%s' speed '%s'", ProviderState.PortName, ProviderState.SpeedText);
    Trace(TRACE_ENTRY, "LoadIniStrings linename '%S' lineaddr '%s'", ProviderState.LineName, ProviderState.LineAddress);
    if (ProviderState.TAPI_OMNA_Ver != 1 && ProviderState.ProtocolLevel >= 2) {
        GetOutsideAccess(Settings.ExtPrefix);
        Trace(TRACE_OMNA, "LoadIniStrings ExtPrefix  '%s'", Settings.ExtPrefix);
    }
    if (RegReadSetting(SECTION_PREFIX, "PublicOperator", "", Settings.PublicOperator) > 0) {
        Trace(TRACE_OMNA, "LoadIniStrings PublicOperator trouve '%s'", Settings.PublicOperator);
    } else {
        CopyText(Settings.PublicOperator, "0");
        Trace(TRACE_OMNA, "LoadIniStrings PublicOperator defaut '%s'", Settings.PublicOperator);
    }
}

std::int32_t TraceInit(HINSTANCE) {
    char text[256];
    const Reading reading = RegRead(SECTION_DEBUG_MODE, "DebugOutput", text);
    const long mask = std::strtol(text, nullptr, 10);
    if (reading == Reading::Found && mask >= 0)
        return static_cast<std::int32_t>(std::min<long>(mask, INT32_MAX));
    if (reading != Reading::Failed)
        RegWriteSetting(SECTION_DEBUG_MODE, "DebugOutput", "0");
    return 0;
}
