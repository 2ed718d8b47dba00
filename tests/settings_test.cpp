// The registry's forms: defaults, write-backs, lengths, failures; the line's strings; the dump of bytes.
#include "config/settings.h"

#include "support/fixture.h"

#include <cstring>

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

TEST_F(Store, EachStepToTheLocationIsTracedWhenItFails) {
    Location("", 2, nullptr);
    Location("\\Location1", 2, "9");
    struct Case {
        const char* refused;
        const char* line;
    };
    const Case cases[] = {
        {"\\SOFTWARE", "ERROR HKEY_LOCAL_MACHINE SOFTWARE 5"},
        {"\\Microsoft", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Microsoft 5"},
        {"\\Windows", "ERROR HKEY_LOCAL_MACHINE SOFTWARE Microsoft Windows 5"},
        {"\\CurrentVersion", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..CurrentVersion 5"},
        {"\\Telephony", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Telephony 5"},
        {"\\Locations", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Locations 5"},
        {"CurrentID", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..CurrentID 5"},
        {"\\Location1", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Locations Location1 5"},
        {"ID", "ERROR HKEY_LOCAL_MACHINE SOFTWARE ..Sub ID 5"},
    };
    const int handles = PlatformControl::OpenHandles();
    char text[20];
    for (const Case& entry : cases) {
        PlatformControl::RefuseRegistry(entry.refused, 5);
        TraceLines();
        GetOutsideAccess(text);
        EXPECT_STREQ(text, "0") << entry.refused;
        EXPECT_THAT(TraceLines(), ElementsAre(entry.line));
        PlatformControl::RefuseRegistry(entry.refused, 0);
    }
    // a location that does not open does not hide the current one behind it
    Location("\\Location0", 1, "7");
    PlatformControl::RefuseRegistry("\\Location0", 5);
    GetOutsideAccess(text);
    EXPECT_STREQ(text, "9");
    EXPECT_EQ(PlatformControl::OpenHandles(), handles);
}

TEST_F(Store, OtherTypesAndTextsWithoutTheirTerminatorAreHandled) {
    SetSetting("S", "V", "1");
    HKEY key = RegOpenSection("S");
    ASSERT_NE(key, nullptr);
    RegCloseKey(key);
    char noClass[] = "";
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Corvane\\TSpi_6200\\S", 0, noClass, 0, KEY_ALL_ACCESS,
                              nullptr, &key, nullptr),
              0);
    const DWORD number = 0x41414141;
    RegSetValueExA(key, "Number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), 4);
    RegSetValueExA(key, "Bare", 0, REG_SZ, reinterpret_cast<const BYTE*>("12345678"), 7);
    RegSetValueExA(key, "Full", 0, REG_SZ, reinterpret_cast<const BYTE*>("12345678"), 8);
    RegCloseKey(key);
    char text[8];
    EXPECT_EQ(RegReadSetting("S", "Number", "none", text), 4) << "every setting is a text";
    EXPECT_STREQ(text, "none");
    EXPECT_EQ(RegReadSetting("S", "Bare", "none", text), 7);
    EXPECT_STREQ(text, "1234567");
    EXPECT_EQ(RegReadSetting("S", "Full", "none", text), 4) << "no room for a terminator";
    EXPECT_STREQ(text, "none");
    EXPECT_EQ(RegOpenSection("Missing"), nullptr);
    HexDump(std::span<char>(text, 3), std::array<std::uint8_t, 1>{1});
    EXPECT_STREQ(text, "") << "not even one byte fits";
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
    SetSetting("Prefix", "PublicOperator", "00");
    SetSetting("SetConfig", "SetMCDU", "4711");
    for (const int version : {0, 1, 2, 3})
        for (const int level : {1, 2}) {
            CopyText(Settings.ExtPrefix, "5");
            ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(version);
            ProviderState.ProtocolLevel = static_cast<std::uint8_t>(level);
            LoadIniStrings(42);
            EXPECT_STREQ(Settings.ExtPrefix, version != 1 && level == 2 ? "0" : "5") << version << level;
        }
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

}  // namespace
