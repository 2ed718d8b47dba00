// The load of the stored configuration: keys, texts, codes, switches; what is missing, too long or too much.
#include "config/set/stored_config.h"

#include "config/settings.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "support/fixture.h"
#include "trace/trace.h"

namespace {

using Stored = OnTheLine;

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

TEST_F(Stored, KeysOfEachKindReplaceThoseOfTheLoadBefore) {
    for (const char* key : {"T05M4705", "T06SU6", "T07EX7", "T08SE8", "T09RS9", "T10XX9", "T90M4790"})
        SetSetting("Set_Des", std::string(key, 3).c_str(), key + 3);
    LoadSetDes();
    TraceLines();
    TraceMask = TRACE_OMNA;
    TouchTable[5].calls = {5, 6};
    WaitInfo[2] = 7;
    InitDatas();
    const std::vector<std::string> lines = TraceLines();
    EXPECT_THAT(std::vector(lines.begin() + 2, lines.begin() + 8),
                ElementsAre("Touche 05 Multiligne '4705'", "line.Touche 06 Superv '6'", "line.Touche 07 Patron '7'",
                            "line.Touche 08 Secretaire '8'", "line.Touche 09 Secr Debord'9'",
                            "nbre de tou multi: 1 superv 1 pat 1 secret 1 secret debord 1"));
    const TouchKind kinds[] = {TOUCH_MULTI,      TOUCH_SUPERV,      TOUCH_PATRON,
                               TOUCH_SECRETAIRE, TOUCH_SECR_DEBORD, TOUCH_NONE};
    for (std::size_t i = 0; i < std::size(kinds); ++i)
        EXPECT_EQ(TouchTable[5 + i].kind, kinds[i]) << 5 + i;
    EXPECT_STREQ(TouchTable[6].label, "6");
    EXPECT_THAT(TouchTable[5].calls, ElementsAre(-1, -1));
    EXPECT_EQ(WaitInfo[2], -1);
}

TEST_F(Stored, KeysBeyondTheirListAndNumbersThatAreNoneAreSkipped) {
    for (const char* name : {"T01", "T02", "T03", "T04", "T05", "T06", "T07", "T08", "T09", "T10", "T11"})
        SetSetting("Set_Des", name, "M4712");
    for (const char* name : {"T00", "T89", "T-3", "T", "Tx5", "t20", "X21"})
        SetSetting("Set_Des", name, "SU1");
    SetSetting("Set_Des", "T22", "S");
    SetSetting("Set_Des", "T87withalongername12", "SU2");
    SetSetting("Set_Des", "T30", "SU34567890123456789");
    SetSetting("Set_Des", "T31", "SU345678901234567890");
    HKEY section = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Corvane\\TSpi_6200\\Set_Des", 0, KEY_ALL_ACCESS, &section),
              0);
    const BYTE noText[] = {'S', 'U', '1', 0};
    RegSetValueExA(section, "T32", 0, REG_DWORD, noText, sizeof noText);
    RegCloseKey(section);
    EXPECT_EQ(LoadSetDes(), 10);
    EXPECT_THAT(Keys(KeyLists.Multi), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    EXPECT_EQ(TouchTable[11].kind, TOUCH_NONE);
    EXPECT_THAT(Keys(KeyLists.Superv), ElementsAre(30)) << "19 characters fit a field, 20 do not";
    EXPECT_STREQ(TouchTable[30].label, "34567890123456789");
}

TEST_F(Stored, EveryKeyIsReadAndEachListHasItsRoom) {
    const auto store = [](int last, const char* data) {
        for (int key = 1; key <= last; ++key)
            SetSetting("Set_Des", ("T" + std::string(key < 10 ? "0" : "") + std::to_string(key)).c_str(), data);
    };
    const std::tuple<const char*, const KeyList&, int> rows[] = {{"M1", KeyLists.Multi, 10},
                                                                 {"SU1", KeyLists.Superv, 31},
                                                                 {"EX1", KeyLists.Patron, 10},
                                                                 {"SE1", KeyLists.Secretaire, 10},
                                                                 {"RS1", KeyLists.SecrDebord, 10}};
    for (const auto& [data, list, room] : rows) {
        store(88, data);
        store(1, "XX1");
        LoadSetDes();
        EXPECT_EQ(list.Count, room) << data;
        EXPECT_EQ(*list.begin(), 2);
        store(87, "XX1");
        LoadSetDes();
        EXPECT_THAT(Keys(list), ElementsAre(88)) << "the last value of all";
    }
    for (const int others : {89, 90}) {  // 90 values are looked at
        RegDeleteSection("Set_Des");
        for (int other = 10; other < 10 + others; ++other)
            SetSetting("Set_Des", ("A" + std::to_string(other)).c_str(), "M1");
        SetSetting("Set_Des", "T01", "M1");
        EXPECT_EQ(LoadSetDes(), others == 89 ? 1 : 0);
    }
}

TEST_F(Stored, SwitchesAreReadWithTheirDefaults) {
    const char* tooLong = "a word longer than the reader";
    for (const auto& [stored, after] :
         {std::pair{"0", "0"}, {"1", "1"}, {"00", "1"}, {"", "(none)"}, {tooLong, tooLong}}) {
        SetSetting("SetConfig", "SupervService", stored);
        InitDatas();
        EXPECT_EQ(Settings.SupervService, after == std::string("0") ? 0 : 1) << stored;
        EXPECT_EQ(Setting("SetConfig", "SupervService"), after) << stored;
    }
    const std::string mcdu = "123456789012345678901234";
    for (const std::string& stored : {mcdu, mcdu + "5"}) {
        SetSetting("SetConfig", "SetMCDU", stored.c_str());
        InitDatas();
        EXPECT_EQ(Settings.SetMCDU, stored == mcdu ? mcdu : "") << "longer than its reader: counts as missing";
        EXPECT_EQ(FileText("C:\\WINDOWS\\zt62cfg.ini"), "[SetConfig]\r\nSetMCDU=" + mcdu + "\r\n");
    }
    for (const auto& [inputs, answer] : {std::pair{"", ""}, {"3", "nack"}, {"3", "NACK"}, {"no number", "NACK"}}) {
        SetSetting("Subdevice_Test", "NbInputBeforeSuspend", inputs);
        SetSetting("Subdevice_Test", "NbWaitAckBeforeResponse", "2");
        SetSetting("Subdevice_Test", "WaitAckResponse", answer);
        InitDatas();
        const bool on = inputs == std::string("3");
        EXPECT_EQ(Link.SubdeviceTest, on) << inputs;
        EXPECT_EQ(Link.NbInputBeforeSuspend, on ? 3 : -1) << inputs;
        EXPECT_EQ(Link.NbWaitAckBeforeResponse, on ? 2 : 0) << inputs;
        EXPECT_EQ(Link.WaitAckResponseNack, on && answer == std::string("NACK"));
    }
}

TEST_F(Stored, MissingTextIsAnErrorAndLeavesItsEntryMissingCodeIsNot) {
    StoreTexts();
    TraceMask = TRACE_OMNA;
    InitDatas();
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"Initialisation des datas", "no mcdu stored ", "Service Supervision 1",
                                       "SecondCall:-Second-", "HangUp:-HangUp-", "ForwardingImm:-1234-"}));
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_SECOND_CALL], "Second") << "cut to its entry";
    EXPECT_STREQ(Settings.ServiceCodes[0], "1234");
    RegDeleteSection("Service_Code");
    SetSetting("SetConfig", "SetMCDU", "4711");
    InitDatas();
    EXPECT_FALSE(Tick.StringInitError);
    EXPECT_STREQ(Settings.ServiceCodes[0], "");
    SetSetting("String_Des", "Dial", "");
    InitDatas();
    EXPECT_TRUE(Tick.StringInitError);
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Dial") << "as it was";
    SetSetting("String_Des", "Dial", "Compose");
    InitDatas();
    EXPECT_FALSE(Tick.StringInitError) << "judged anew at each load";
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Compose");
    RegDeleteSection("SoftKey_Des");
    InitDatas();
    EXPECT_TRUE(Tick.StringInitError);
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_TRANSFER], "Transf");
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"lecture mcdu -4711-", "Service Codes Empty Reading: DTMF:--",
                                                     "LCD String Reading:StringInitError TRUE Dial:-Dial-",
                                                     "Soft Key Reading:StringInitError TRUE Transfer:-Transf-"}));
}

}  // namespace
