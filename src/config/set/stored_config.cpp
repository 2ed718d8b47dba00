#include "config/set/stored_config.h"

#include "config/set/key_kinds.h"
#include "config/settings.h"
#include "link/link_layer.h"  // the settings of the sub-device test
#include "link/tick.h"        // StringInitError
#include "platform/copy_text.h"
#include "trace/trace.h"
#include "tracking/steps.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr DWORD MAX_VALUES = 90;
constexpr DWORD FIELD_SIZE = 20;       // value names and data of Set_Des
constexpr std::size_t READ_SIZE = 25;  // every other stored text

// One value of the section: the kind by the data's first characters, the label behind them.
void TakeKey(const char* name, const char* data) {
    if (name[0] != 'T')
        return;
    const long key = std::strtol(name + 1, nullptr, 10);
    const KeyKind* kind = key >= 1 && key <= 89 ? KindOfData(data) : nullptr;
    if (kind == nullptr)
        return;
    const char* label = data + std::strlen(kind->Code);
    if (key >= KEY_COUNT) {
        Trace(TRACE_ALWAYS, "Set_Des: key %d beyond the set's keys - skipped", key);
        return;
    }
    if (!kind->ListOf(KeyLists).Append(static_cast<int>(key))) {
        Trace(TRACE_ALWAYS, "Set_Des: no room for key %d '%s' - skipped", key, data);
        return;
    }
    Touch& touch = TouchOf(static_cast<int>(key));
    touch.kind = kind->Kind;
    CopyText(touch.label, label);
    Trace(TRACE_OMNA, kind->LoadTrace, key, label);
}

// Reads one value into its entry. False, with the entry as it was, when it is missing.
template <std::size_t N> bool ReadEntry(const char* section, const char* name, char (&entry)[N]) {
    char text[READ_SIZE];
    if (RegReadSetting(section, name, "", text) == 0)
        return false;
    CopyText(entry, text);
    Trace(TRACE_OMNA, "%s:-%s-", name, entry);
    return true;
}

void LoadDirectoryNumber() {
    char text[READ_SIZE];
    if (RegReadSetting(SECTION_SETCONFIG, "SetMCDU", "", text) == 0) {
        Settings.SetMCDU[0] = 0;
        Trace(TRACE_OMNA, "no mcdu stored ");
        return;
    }
    CopyText(Settings.SetMCDU, text);
    Trace(TRACE_OMNA, "lecture mcdu -%s-", Settings.SetMCDU);
    WritePrivateProfileStringA(SECTION_SETCONFIG, "SetMCDU", Settings.SetMCDU, INI_FILE);
}

void LoadSupervService() {
    char text[READ_SIZE];
    Settings.SupervService = 1;
    if (RegReadSetting(SECTION_SETCONFIG, "SupervService", "", text) > 0) {
        if (std::strcmp(text, "0") == 0)
            Settings.SupervService = 0;
        else
            RegWriteSetting(SECTION_SETCONFIG, "SupervService", "1");
    }
    Trace(TRACE_OMNA, "Service Supervision %d", Settings.SupervService);
}

void LoadTexts() {
    Tick.StringInitError = false;
    for (std::size_t i = 0; i < SoftKeyNames.size(); ++i)
        if (!ReadEntry(SECTION_SOFTKEY_DES, SoftKeyNames[i], Settings.SoftKeyLabels[i])) {
            Tick.StringInitError = true;
            Trace(TRACE_OMNA, "Soft Key Reading:StringInitError TRUE %s:-%s-", SoftKeyNames[i],
                  Settings.SoftKeyLabels[i]);
        }
    for (std::size_t i = 0; i < StringNames.size(); ++i)
        if (!ReadEntry(SECTION_STRING_DES, StringNames[i], Settings.DisplayStrings[i])) {
            Tick.StringInitError = true;
            Trace(TRACE_OMNA, "LCD String Reading:StringInitError TRUE %s:-%s-", StringNames[i],
                  Settings.DisplayStrings[i]);
        }
    for (std::size_t i = 0; i < CodeNames.size(); ++i)
        if (!ReadEntry(SECTION_SERVICE_CODE, CodeNames[i], Settings.ServiceCodes[i])) {
            Settings.ServiceCodes[i][0] = 0;
            Trace(TRACE_OMNA, "Service Codes Empty Reading: %s:-%s-", CodeNames[i], Settings.ServiceCodes[i]);
        }
}

void LoadSubdeviceTest() {
    char text[READ_SIZE];
    const auto read = [&](const char* name) {
        RegReadSetting(SECTION_SUBDEVICE_TEST, name, "", text);
        return static_cast<int>(std::strtol(text, nullptr, 10));
    };
    Link.SubdeviceTest = false;
    Link.NbInputBeforeSuspend = -1;
    Link.NbWaitAckBeforeResponse = 0;
    Link.WaitAckResponseNack = false;
    const int inputs = read("NbInputBeforeSuspend");
    if (inputs == 0)
        return;
    Link.SubdeviceTest = true;
    Link.NbInputBeforeSuspend = inputs;
    Link.NbWaitAckBeforeResponse = read("NbWaitAckBeforeResponse");
    RegReadSetting(SECTION_SUBDEVICE_TEST, "WaitAckResponse", "ACK", text);
    Link.WaitAckResponseNack = std::strcmp(text, "NACK") == 0;
}

}  // namespace

int LoadSetDes() {
    KeyLists = KeyListSet{};
    if (HKEY section = RegOpenSection(SECTION_SET_DES)) {
        for (DWORD index = 0; index < MAX_VALUES; ++index) {
            char name[FIELD_SIZE], data[FIELD_SIZE + 1] = {};
            DWORD nameSize = sizeof name, dataSize = FIELD_SIZE, type = 0;
            const LONG error = RegEnumValueA(section, index, name, &nameSize, nullptr, &type,
                                             reinterpret_cast<BYTE*>(data), &dataSize);
            if (error == static_cast<LONG>(ERROR_NO_MORE_ITEMS))
                break;
            if (error != ERROR_SUCCESS || type != REG_SZ)  // one that does not fit its field: the next may
                continue;
            TakeKey(name, data);
        }
        RegCloseKey(section);
    }
    Trace(TRACE_OMNA, "nbre de tou multi: %d superv %d pat %d secret %d secret debord %d", KeyLists.Multi.Count,
          KeyLists.Superv.Count, KeyLists.Patron.Count, KeyLists.Secretaire.Count, KeyLists.SecrDebord.Count);
    return KeyLists.Multi.Count;
}

int InitDatas() {
    Trace(TRACE_OMNA, "Initialisation des datas");
    LoadDirectoryNumber();
    LoadSetDes();
    for (std::size_t key = 1; key < TouchTable.size(); ++key) {
        TouchTable[key].calls = {-1, -1};
        TouchTable[key].icon = IDLE_ICON;
    }
    WaitInfo.fill(-1);
    LoadSupervService();
    LoadTexts();
    LoadSubdeviceTest();
    return 0;
}
