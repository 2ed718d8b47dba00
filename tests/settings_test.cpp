// The registry's forms: defaults, write-backs, lengths, failures; the stored configuration's load; pattern dumps.
#include "config/settings.h"

#include "config/char_patterns.h"
#include "config/stored_config.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "support/fixture.h"

#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

using Store = OnTheLine;
using testing::Contains;

TEST_F(Store, MissingEmptyOrTooLongGivesTheDefault) {
    char text[8];
    EXPECT_EQ(RegReadSetting("S", "V", "none", text), 4);
    EXPECT_STREQ(text, "none");
    SetSetting("S", "V", "1234567");
    EXPECT_EQ(RegReadSetting("S", "V", "none", text), 7);
    SetSetting("S", "V", "12345678");
    EXPECT_EQ(RegReadSetting("S", "V", "none", text), 4) << "no room for its terminator";
    SetSetting("S", "V", "");
    EXPECT_EQ(RegReadSetting("S", "V", "none", text), 4);
    EXPECT_EQ(RegDeleteSection("S"), 1);
    EXPECT_EQ(RegDeleteSection("S"), 1) << "a section that is not there is no error";
}

TEST_F(Store, EachFailingStepIsTracedWithItsCode) {
    struct Case {
        const char* refused;
        const char* line;
    };
    const Case cases[] = {
        {"\\SOFTWARE", "ERROR HKEY_LOCAL_MACHINE SOFTWARE 5"},
        {"\\Corvane", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane 5"},
        {"\\TSpi_6200", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 5"},
        {"\\S", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 'S' 5"},
        {"V", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 'S''V' 5"},
    };
    const int handles = PlatformControl::OpenHandles();
    for (const Case& entry : cases) {
        SetSetting("S", "V", "1");
        PlatformControl::RefuseRegistry(entry.refused, 5);
        TraceLines();
        char text[8];
        EXPECT_EQ(RegReadSetting("S", "V", "x", text), 1);
        EXPECT_STREQ(text, "x");
        EXPECT_EQ(RegWriteSetting("S", "V", "2"), 0);
        EXPECT_THAT(TraceLines(), ElementsAre(entry.line, entry.line));
        PlatformControl::RefuseRegistry(entry.refused, 0);
    }
    PlatformControl::RefuseRegistry("\\S", 5);
    EXPECT_EQ(RegDeleteSection("S"), 0);
    EXPECT_THAT(TraceLines(), ElementsAre("ERROR Deleting HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 'S' 5"));
    EXPECT_EQ(PlatformControl::OpenHandles(), handles) << "every key opened on the way is closed";
}

void Location(const char* key, DWORD id, const char* access) {
    HKEY handle = nullptr;
    char noClass[] = "";
    const std::string path = std::string("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Telephony\\Locations") + key;
    ASSERT_EQ(
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, noClass, 0, KEY_ALL_ACCESS, nullptr, &handle, nullptr), 0);
    RegSetValueExA(handle, access == nullptr ? "CurrentID" : "ID", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&id), 4);
    if (access != nullptr)
        RegSetValueExA(handle, "OutsideAccess", 0, REG_SZ, reinterpret_cast<const BYTE*>(access),
                       static_cast<DWORD>(std::strlen(access) + 1));
    RegCloseKey(handle);
}

TEST_F(Store, OutsideAccessComesFromTheCurrentLocation) {
    char text[20];
    GetOutsideAccess(text);
    EXPECT_STREQ(text, "0");
    EXPECT_THAT(TraceLines(), Contains("ERROR HKEY_LOCAL_MACHINE SOFTWARE Microsoft 2"));
    Location("", 2, nullptr);
    Location("\\Location0", 1, "7");
    Location("\\Location1", 2, "9");
    GetOutsideAccess(text);
    EXPECT_STREQ(text, "9");
    Location("\\Location1", 2, "123456789012345678901234567890");
    GetOutsideAccess(text);
    EXPECT_STREQ(text, "0") << "longer than its field";
}

TEST_F(Store, LineStringsHaveDefaultsThatAreWrittenBack) {
    LoadIniStrings(42);
    EXPECT_EQ(ProviderState.PermanentProviderID, 42u);
    EXPECT_STREQ(ProviderState.PortName, "NONE");
    EXPECT_EQ(Setting("Provider", "Port"), "NONE");
    EXPECT_EQ(Setting("Provider", "Speed"), "9600");
    EXPECT_STREQ(Settings.PublicOperator, "0");
    EXPECT_EQ(Setting("Prefix", "PublicOperator"), "(none)");
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"LoadIniStrings port 'NONE' speed '9600'",
                                       "LoadIniStrings linename 'CORVANE_ZT_6200_2.0_3' lineaddr ''",
                                       "LoadIniStrings ExtPrefix  '0'", "LoadIniStrings PublicOperator defaut '0'"}));
    CopyText(Settings.ExtPrefix, "5");
    ProviderState.TAPI_OMNA_Ver = 1;
    SetSetting("Prefix", "PublicOperator", "00");
    SetSetting("SetConfig", "SetMCDU", "4711");
    LoadIniStrings(42);
    EXPECT_STREQ(Settings.ExtPrefix, "5") << "version 1 has its own prefix";
    EXPECT_STREQ(Settings.PublicOperator, "00");
    EXPECT_STREQ(ProviderState.LineAddress, "4711");
}

TEST_F(Store, HexDumpStopsFourBeforeItsEnd) {
    const std::uint8_t bytes[] = {0x03, 0xAF, 3, 4, 5};
    char text[10];
    HexDump(text, bytes);
    EXPECT_STREQ(text, "03.AF.");
    EXPECT_THAT(TraceLines(), ElementsAre("Tronquage chaine"));
    char whole[20];
    HexDump(whole, bytes);
    EXPECT_STREQ(whole, "03.AF.03.04.05.");
    HexDump(whole, {});
    EXPECT_STREQ(whole, "");
}

// --- the stored configuration ------------------------------------------------------------------------------------------

void StoreTexts() {
    for (const char* name : SoftKeyNames)
        SetSetting("SoftKey_Des", name, name);
    for (const char* name : StringNames)
        SetSetting("String_Des", name, name);
    for (const char* name : CodeNames)
        SetSetting("Service_Code", name, "12345678");
}

TEST_F(Store, StoredConfigurationFillsKeysTextsAndCodes) {
    StoreTexts();
    SetSetting("Set_Des", "T07", "EX4730");
    SetSetting("Set_Des", "T03", "M4711");
    SetSetting("Set_Des", "T90", "M4790");
    SetSetting("Set_Des", "T12", "SU4720");
    SetSetting("Set_Des", "T13", "RS47");
    SetSetting("Set_Des", "T14", "SE48");
    SetSetting("Set_Des", "T15", "XX48");
    SetSetting("Set_Des", "T16", "M4711 and much more than its field");
    SetSetting("Set_Des", "Other", "M1");
    SetSetting("Set_Des", "T01", "M4712");
    SetSetting("SetConfig", "SetMCDU", "4711");
    SetSetting("SetConfig", "SupervService", "maybe");
    TouchTable[3].calls = {5, 6};
    WaitInfo[2] = 7;
    EXPECT_EQ(InitDatas(), 0);
    EXPECT_THAT(std::vector<int>(KeyLists.Multi.begin(), KeyLists.Multi.end()), ElementsAre(3, 1));
    EXPECT_EQ(TouchTable[7].kind, TOUCH_PATRON);
    EXPECT_STREQ(TouchTable[7].label, "4730");
    EXPECT_EQ(TouchTable[12].kind, TOUCH_SUPERV);
    EXPECT_EQ(TouchTable[13].kind, TOUCH_SECR_DEBORD);
    EXPECT_EQ(TouchTable[14].kind, TOUCH_SECRETAIRE);
    EXPECT_EQ(TouchTable[16].kind, TOUCH_NONE) << "data that does not fit its field";
    EXPECT_THAT(TouchTable[3].calls, ElementsAre(-1, -1));
    EXPECT_EQ(TouchTable[88].icon, IDLE_ICON);
    EXPECT_EQ(WaitInfo[2], -1);
    EXPECT_EQ(Setting("SetConfig", "SupervService"), "1");
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_SECOND_CALL], "Second") << "cut to its entry";
    EXPECT_STREQ(Settings.ServiceCodes[0], "1234");
    EXPECT_FALSE(Tick.StringInitError);
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Initialisation des datas", "lecture mcdu -4711-",
                                                     "line.Touche 07 Patron '4730'", "Service Supervision 1",
                                                     "nbre de tou multi: 2 superv 1 pat 1 secret 1 secret debord 1"}));
}

TEST_F(Store, MissingTextIsAnErrorAndLeavesItsEntryMissingCodeIsNot) {
    StoreTexts();
    RegDeleteSection("SoftKey_Des");
    RegDeleteSection("Service_Code");
    CopyText(Settings.SoftKeyLabels[SK_TRANSFER], "Transf");
    CopyText(Settings.ServiceCodes[0], "61");
    InitDatas();
    EXPECT_TRUE(Tick.StringInitError);
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_TRANSFER], "Transf");
    EXPECT_STREQ(Settings.ServiceCodes[0], "");
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"no mcdu stored ", "Soft Key Reading:StringInitError TRUE Transfer:-Transf-",
                                       "Service Codes Empty Reading: DTMF:--"}));
}

TEST_F(Store, SubdeviceTestIsOnOnlyWithANumber) {
    InitDatas();
    EXPECT_FALSE(Link.SubdeviceTest);
    EXPECT_EQ(Link.NbInputBeforeSuspend, -1);
    SetSetting("Subdevice_Test", "NbInputBeforeSuspend", "3");
    SetSetting("Subdevice_Test", "NbWaitAckBeforeResponse", "2");
    SetSetting("Subdevice_Test", "WaitAckResponse", "NACK");
    InitDatas();
    EXPECT_TRUE(Link.SubdeviceTest);
    EXPECT_EQ(Link.NbInputBeforeSuspend, 3);
    EXPECT_EQ(Link.NbWaitAckBeforeResponse, 2);
    EXPECT_TRUE(Link.WaitAckResponseNack);
}

// --- character patterns --------------------------------------------------------------------------------------------------

std::array<std::uint8_t, 8> Pattern(int n) {
    return {1, 2, 3, 4, 5, 6, static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)};
}

TEST_F(Store, PatternsAreKeptOnceAndDumpedToTheFilesThatAreThere) {
    const std::string table = PlatformControl::PosixPath("C:\\WINDOWS\\SYSTEM32\\zt_opt.fdb");
    const std::string codes = PlatformControl::PosixPath("C:\\WINDOWS\\SYSTEM32\\zt_array.fdb");
    RecordCharPattern(Pattern(1), 5);
    RecordCharPattern(Pattern(1), 7);
    EXPECT_EQ(CharPatternTable[0].code, 7);
    EXPECT_EQ(CharPatternTable[0].character, ' ');
    EXPECT_EQ(CharPatternTable[1].character, 0);
    EXPECT_EQ(std::filesystem::file_size(table), 1000u);
    EXPECT_FALSE(std::filesystem::exists(codes));
    std::ofstream(codes).close();
    for (int n = 2; n <= 100; ++n)
        RecordCharPattern(Pattern(n), 9);
    EXPECT_EQ(std::filesystem::file_size(codes), 100u);
    std::filesystem::remove(table);
    RecordCharPattern(Pattern(101), 9);
    EXPECT_FALSE(std::filesystem::exists(table)) << "a full table ignores new patterns";
    RecordCharPattern(Pattern(50), 100);
    EXPECT_FALSE(std::filesystem::exists(table)) << "no such character code";
    RecordCharPattern(Pattern(50), 99);
    EXPECT_TRUE(std::filesystem::exists(table));
}

}  // namespace
