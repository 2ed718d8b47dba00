// The registry's forms: defaults, write-backs, lengths, failures; the line's strings; the dump of bytes.
#include "config/settings.h"

#include "support/fixture.h"
#include "trace/dump.h"

#include <cstring>
#include <optional>
#include <tuple>

namespace {

using Store = OnTheLine;

// Both walks through the registry: where they stop, and what they say then.
struct Walk {
    const char* refused;
    std::string line;  // behind "ERROR HKEY_LOCAL_MACHINE SOFTWARE", before the code
};

TEST_F(Store, EachFailingStepIsTracedWithItsCode) {
    const Walk cases[] = {{"\\SOFTWARE", ""},
                          {"\\Corvane", " Corvane"},
                          {"\\TSpi_6200", " Corvane Spi62"},
                          {"\\S", " Corvane Spi62 'S'"},
                          {"V", " Corvane Spi62 'S''V'"}};
    const int handles = PlatformControl::OpenHandles();
    for (const Walk& walk : cases) {
        SetSetting("S", "V", "1");
        PlatformControl::RefuseRegistry(walk.refused, 5);
        TraceLines();
        char text[8];
        EXPECT_EQ(RegReadSetting("S", "V", "x", text), 1);
        EXPECT_STREQ(text, "x");
        EXPECT_EQ(RegWriteSetting("S", "V", "2"), 0);
        const std::string line = "ERROR HKEY_LOCAL_MACHINE SOFTWARE" + walk.line + " 5";
        EXPECT_THAT(TraceLines(), ElementsAre(line, line));
        if (walk.line.find('\'') == std::string::npos) {
            EXPECT_EQ(RegDeleteSection("S"), 0);
            EXPECT_THAT(TraceLines(), ElementsAre(line));
        }
        PlatformControl::RefuseRegistry(walk.refused, 0);
    }
    EXPECT_EQ(Setting("S", "V"), "1");
    EXPECT_EQ(RegDeleteSection("S"), 1);
    EXPECT_EQ(RegDeleteSection("S"), 1) << "a section that is not there is no error";
    PlatformControl::RefuseRegistry("\\S", 5);
    EXPECT_EQ(RegDeleteSection("S"), 0);
    EXPECT_THAT(TraceLines(), ElementsAre("ERROR Deleting HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 'S' 5"));
    EXPECT_EQ(PlatformControl::OpenHandles(), handles) << "every key opened on the way is closed";
}

std::string LocationPath(const char* key) {
    return std::string("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Telephony\\Locations") + key;
}

void Location(const char* key, std::optional<DWORD> id, const char* access) {
    HKEY handle = nullptr;
    char noClass[] = "";
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, LocationPath(key).c_str(), 0, noClass, 0, KEY_ALL_ACCESS, nullptr,
                              &handle, nullptr),
              0);
    if (id)
        RegSetValueExA(handle, access == nullptr ? "CurrentID" : "ID", 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>(&*id), 4);
    if (access != nullptr)
        RegSetValueExA(handle, "OutsideAccess", 0, REG_SZ, reinterpret_cast<const BYTE*>(access),
                       static_cast<DWORD>(std::strlen(access) + 1));
    RegCloseKey(handle);
}

TEST_F(Store, OutsideAccessComesFromTheCurrentLocationAndEachStepToItIsTracedWhenItFails) {
    char text[20];
    const auto access = [&] { return GetOutsideAccess(text), std::string(text); };
    EXPECT_EQ(access(), "0");
    Location("", 2, nullptr);
    Location("\\Location1", 2, "9");
    EXPECT_EQ(access(), "9");
    const Walk cases[] = {{"\\SOFTWARE", ""},
                          {"\\Microsoft", " Microsoft"},
                          {"\\Windows", " Microsoft Windows"},
                          {"\\CurrentVersion", " ..CurrentVersion"},
                          {"\\Locations", " ..Locations"},
                          {"\\Telephony", " ..Telephony"},
                          {"CurrentID", " ..CurrentID"},
                          {"\\Location1", " ..Locations Location1"},
                          {"ID", " ..Sub ID"}};
    const int handles = PlatformControl::OpenHandles();
    for (const Walk& walk : cases) {
        PlatformControl::RefuseRegistry(walk.refused, 5);
        TraceLines();
        EXPECT_EQ(access(), "0") << walk.refused;
        EXPECT_THAT(TraceLines(), ElementsAre("ERROR HKEY_LOCAL_MACHINE SOFTWARE" + walk.line + " 5"));
        PlatformControl::RefuseRegistry(walk.refused, 0);
    }
    // None of those that come before it hides the current one.
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, LocationPath("\\Location1").c_str());
    Location("\\Location0", {}, "8");
    Location("\\Location3", 1, "7");
    Location("\\Location4", 2, "7");
    Location("\\Location1", 2, "9");
    PlatformControl::RefuseRegistry("\\Location4", 5);
    EXPECT_EQ(access(), "9");
    EXPECT_EQ(PlatformControl::OpenHandles(), handles);
    Location("", 0, nullptr);
    EXPECT_EQ(access(), "0") << "no ID is no 0";
    Location("", 2, nullptr);
    Location("\\Location1", 2, "123456789012345678901234567890");
    EXPECT_EQ(access(), "0") << "longer than its field";
}

TEST_F(Store, MissingEmptyTooLongOrOtherTypesGiveTheDefault) {
    SetSetting("S", "Empty", "");
    SetSetting("S", "Long", "12345678");
    SetSetting("S", "Fits", "1234567");
    HKEY key = nullptr;
    char noClass[] = "";
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Corvane\\TSpi_6200\\S", 0, noClass, 0, KEY_ALL_ACCESS,
                              nullptr, &key, nullptr),
              0);
    const BYTE* bytes = reinterpret_cast<const BYTE*>("12345678");
    RegSetValueExA(key, "Number", 0, REG_DWORD, bytes, 4);
    RegSetValueExA(key, "Bare", 0, REG_SZ, bytes, 7);
    RegSetValueExA(key, "Full", 0, REG_SZ, bytes, 8);
    RegCloseKey(key);
    for (const std::string& name :
         std::vector<std::string>{"Fits", "Bare", "Missing", "Empty", "Long", "Number", "Full"}) {
        const char* wanted = name == "Fits" || name == "Bare" ? "1234567" : "none";
        char text[8];
        EXPECT_EQ(RegReadSetting("S", name.c_str(), "none", text), std::strlen(wanted)) << name;
        EXPECT_STREQ(text, wanted) << name;
        CopyText(text, "left");
        RegRead("S", name.c_str(), text);
        EXPECT_STREQ(text, *wanted == '1' ? wanted : "") << "nothing of before, which would be read as a number";
    }
}

// As in a telephony service whose account has less than full rights to SOFTWARE, but our key.
TEST_F(Store, RefusedFullAccessIsTracedAndReadingGoesOn) {
    SetSetting("Provider", "Port", "COM2");
    PlatformControl::RefuseRegistry("SOFTWARE", 5, KEY_ALL_ACCESS);
    TraceLines();
    SetSetting("Provider", "Speed", "4800");
    EXPECT_EQ(Setting("Provider", "Port") + Setting("Provider", "Speed"), "COM24800");
    EXPECT_THAT(TraceLines(), testing::Each("ERROR HKEY_LOCAL_MACHINE SOFTWARE 5"));
    PlatformControl::RefuseRegistry("SOFTWARE", 5);
    EXPECT_EQ(Setting("Provider", "Port"), "(none)");
}

TEST_F(Store, LineStringsHaveDefaultsThatAreWrittenBack) {
    LoadIniStrings(42);
    EXPECT_EQ(ProviderState.PermanentProviderID, 42u);
    EXPECT_STREQ(ProviderState.PortName, "NONE");
    EXPECT_EQ(Setting("Provider", "Port"), "NONE");
    EXPECT_EQ(Setting("Provider", "Speed"), "9600");
    EXPECT_STREQ(Settings.PublicOperator, "0");
    EXPECT_EQ(Setting("Prefix", "PublicOperator"), "(none)");
    SetSetting("Prefix", "PublicOperator", "00");
    SetSetting("SetConfig", "SetMCDU", "4711");
    for (const auto& [version, level, prefix] : {std::tuple{0, 2, "0"}, {1, 2, "5"}, {2, 2, "0"}, {3, 1, "5"}}) {
        CopyText(Settings.ExtPrefix, "5");
        ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(version);
        ProviderState.ProtocolLevel = static_cast<std::uint8_t>(level);
        LoadIniStrings(42);
        EXPECT_STREQ(Settings.ExtPrefix, prefix) << version << level;
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
    HexDump(std::span<char>(text, 3), bytes);
    EXPECT_STREQ(text, "") << "not even one byte fits";
}

}  // namespace
