// The load of the stored configuration: keys, texts, codes, switches; what is missing, too long or too much.
#include "config/stored_config.h"

#include "config/settings.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "support/fixture.h"
#include "trace/trace.h"

#include <cstring>

namespace {

using Stored = OnTheLine;
using testing::Contains;

std::vector<int> Keys(const KeyList& list) {
    return {list.begin(), list.end()};
}

void StoreTexts() {
    for (const char* name : SoftKeyNames)
        SetSetting("SoftKey_Des", name, name);
    for (const char* name : StringNames)
        SetSetting("String_Des", name, name);
    for (const char* name : CodeNames)
        SetSetting("Service_Code", name, "12345678");
}

TEST_F(Stored, StoredConfigurationFillsKeysTextsAndCodes) {
    StoreTexts();
    SetSetting("Set_Des", "T03", "M4711");
    SetSetting("Set_Des", "T16", "M4711 and much more than its field");
    SetSetting("Set_Des", "Other", "M1");
    SetSetting("Set_Des", "T01", "M4712");
    TouchTable[3].calls = {5, 6};
    WaitInfo[2] = 7;
    EXPECT_EQ(InitDatas(), 0);
    EXPECT_THAT(Keys(KeyLists.Multi), ElementsAre(3, 1));
    EXPECT_EQ(TouchTable[16].kind, TOUCH_NONE) << "data that does not fit its field";
    EXPECT_THAT(TouchTable[3].calls, ElementsAre(-1, -1));
    EXPECT_EQ(TouchTable[88].icon, IDLE_ICON);
    EXPECT_EQ(WaitInfo[2], -1);
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_SECOND_CALL], "Second") << "cut to its entry";
    EXPECT_STREQ(Settings.ServiceCodes[0], "1234");
    EXPECT_FALSE(Tick.StringInitError);
    EXPECT_EQ(TraceLines().at(0), "Initialisation des datas");
}

TEST_F(Stored, KeysBeyondTheirListAndNumbersThatAreNoneAreSkipped) {
    for (int key = 1; key <= 11; ++key) {
        char name[8];
        std::snprintf(name, sizeof name, "T%02d", key);
        SetSetting("Set_Des", name, "M4711");
    }
    for (const char* name : {"T00", "T89", "T-3", "T", "Tx5", "t20", "X21"})
        SetSetting("Set_Des", name, "M4712");
    SetSetting("Set_Des", "T22", "S");
    SetSetting("Set_Des", "T23", "m4712");
    SetSetting("Set_Des", "T24", "M");
    SetSetting("Set_Des", "T88withalongername1", "SU1");
    SetSetting("Set_Des", "T87withalongername12", "SU2");
    SetSetting("Set_Des", "T30", "SU34567890123456789");
    SetSetting("Set_Des", "T31", "SU345678901234567890");
    TouchTable[11].kind = TOUCH_NONE;
    EXPECT_EQ(LoadSetDes(), 10);
    EXPECT_THAT(Keys(KeyLists.Multi), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    EXPECT_EQ(TouchTable[11].kind, TOUCH_NONE);
    EXPECT_THAT(Keys(KeyLists.Superv), ElementsAre(88, 30)) << "19 characters fit a field, 20 do not";
    EXPECT_STREQ(TouchTable[30].label, "34567890123456789");
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Touche 10 Multiligne '4711'", "line.Touche 88 Superv '1'",
                                                     "nbre de tou multi: 10 superv 2 pat 0 secret 0 secret debord 0"}));
}

TEST_F(Stored, OnlyNinetyValuesAreLookedAt) {
    for (int i = 0; i < 89; ++i)
        SetSetting("Set_Des", ("Other" + std::to_string(i)).c_str(), "M1");
    SetSetting("Set_Des", "T05", "M4705");
    SetSetting("Set_Des", "T06", "M4706");
    EXPECT_EQ(LoadSetDes(), 1);
    EXPECT_THAT(Keys(KeyLists.Multi), ElementsAre(5));
}

TEST_F(Stored, LoadReplacesTheListsOfTheOneBeforeAndTellsItsKeys) {
    for (const auto& [name, data] : {std::pair{"T05", "M4705"},
                                     {"T06", "SU6"},
                                     {"T07", "EX7"},
                                     {"T08", "SE8"},
                                     {"T09", "RS9"},
                                     {"T10", "XX9"},
                                     {"T90", "M4790"}})
        SetSetting("Set_Des", name, data);
    TraceMask = ~TRACE_OMNA;
    EXPECT_EQ(LoadSetDes(), 1);
    EXPECT_THAT(TraceLines(), IsEmpty());
    TraceMask = TRACE_OMNA;
    EXPECT_EQ(LoadSetDes(), 1);
    EXPECT_THAT(TraceLines(),
                ElementsAre("Touche 05 Multiligne '4705'", "line.Touche 06 Superv '6'", "line.Touche 07 Patron '7'",
                            "line.Touche 08 Secretaire '8'", "line.Touche 09 Secr Debord'9'",
                            "nbre de tou multi: 1 superv 1 pat 1 secret 1 secret debord 1"));
    const TouchKind kinds[] = {TOUCH_MULTI,      TOUCH_SUPERV,      TOUCH_PATRON,
                               TOUCH_SECRETAIRE, TOUCH_SECR_DEBORD, TOUCH_NONE};
    for (std::size_t i = 0; i < std::size(kinds); ++i)
        EXPECT_EQ(TouchTable[5 + i].kind, kinds[i]) << 5 + i;
    EXPECT_STREQ(TouchTable[6].label, "6");
    RegDeleteSection("Set_Des");
    TraceMask |= TRACE_CONFIG;
    EXPECT_EQ(LoadSetDes(), 0);
    EXPECT_THAT(TraceLines(), ElementsAre("ERROR HKEY_LOCAL_MACHINE SOFTWARE Corvane Spi62 'Set_Des' 2",
                                          "nbre de tou multi: 0 superv 0 pat 0 secret 0 secret debord 0"));
}

TEST_F(Stored, SupervisionIsOffOnlyForZero) {
    struct Case {
        const char* stored;
        int on;
        const char* after;
    };
    for (const Case& entry : {Case{"0", 0, "0"}, Case{"1", 1, "1"}, Case{"00", 1, "1"}, Case{"", 1, "(none)"},
                              Case{"a word longer than the reader", 1, "a word longer than the reader"}}) {
        SetSetting("SetConfig", "SupervService", entry.stored);
        InitDatas();
        EXPECT_EQ(Settings.SupervService, entry.on) << entry.stored;
        EXPECT_EQ(Setting("SetConfig", "SupervService"), entry.after) << entry.stored;
    }
    EXPECT_THAT(TraceLines(), Contains("Service Supervision 0"));
    RegDeleteSection("SetConfig");
    InitDatas();
    EXPECT_EQ(Settings.SupervService, 1);
    EXPECT_EQ(Setting("SetConfig", "SupervService"), "(none)") << "the default is not written";
}

TEST_F(Stored, DirectoryNumberGoesToTheIniFileOrIsForgotten) {
    SetSetting("SetConfig", "SetMCDU", "123456789012345678901234");
    InitDatas();
    EXPECT_STREQ(Settings.SetMCDU, "123456789012345678901234");
    EXPECT_EQ(FileText("C:\\WINDOWS\\zt62cfg.ini"), "[SetConfig]\r\nSetMCDU=123456789012345678901234\r\n");
    SetSetting("SetConfig", "SetMCDU", "1234567890123456789012345");
    InitDatas();
    EXPECT_STREQ(Settings.SetMCDU, "") << "longer than its reader: counts as missing";
    EXPECT_THAT(TraceLines(), Contains("no mcdu stored "));
}

TEST_F(Stored, MissingTextIsAnErrorAndLeavesItsEntryMissingCodeIsNot) {
    StoreTexts();
    RegDeleteSection("Service_Code");
    CopyText(Settings.ServiceCodes[0], "61");
    InitDatas();
    EXPECT_FALSE(Tick.StringInitError);
    EXPECT_STREQ(Settings.ServiceCodes[0], "");
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"no mcdu stored ", "Service Codes Empty Reading: DTMF:--"}));
    SetSetting("String_Des", "Dial", "");
    InitDatas();
    EXPECT_TRUE(Tick.StringInitError);
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Dial") << "as it was";
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"LCD String Reading:StringInitError TRUE Dial:-Dial-", "HangUp:-HangUp-"}));
    SetSetting("String_Des", "Dial", "Compose");
    InitDatas();
    EXPECT_FALSE(Tick.StringInitError) << "judged anew at each load";
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Compose");
    RegDeleteSection("SoftKey_Des");
    CopyText(Settings.SoftKeyLabels[SK_TRANSFER], "Transf");
    InitDatas();
    EXPECT_TRUE(Tick.StringInitError);
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_TRANSFER], "Transf");
    EXPECT_THAT(TraceLines(), Contains("Soft Key Reading:StringInitError TRUE Transfer:-Transf-"));
}

TEST_F(Stored, SubdeviceTestIsOnOnlyWithANumberAndAnswersNackOnlyWhenToldSo) {
    struct Case {
        const char *inputs, *acks, *answer;
        bool on, nack;
    };
    for (const Case& c : {Case{"", "", "", false, false}, Case{"3", "2", "NACK", true, true},
                          Case{"3", "2", "ACK", true, false}, Case{"3", "2", "nack", true, false},
                          Case{"3", "2", "NACK ", true, false}, Case{"no number", "2", "NACK", false, false},
                          Case{"3", "2", "", true, false}, Case{"0", "2", "NACK", false, false}}) {
        SetSetting("Subdevice_Test", "NbInputBeforeSuspend", c.inputs);
        SetSetting("Subdevice_Test", "NbWaitAckBeforeResponse", c.acks);
        SetSetting("Subdevice_Test", "WaitAckResponse", c.answer);
        InitDatas();
        EXPECT_EQ(Link.SubdeviceTest, c.on) << c.inputs;
        EXPECT_EQ(Link.NbInputBeforeSuspend, c.on ? 3 : -1) << c.inputs;
        EXPECT_EQ(Link.NbWaitAckBeforeResponse, c.on ? 2 : 0) << c.inputs;
        EXPECT_EQ(Link.WaitAckResponseNack, c.nack) << c.answer;
    }
}

}  // namespace
