// The configuration dialogue, message by message: what goes out, what is kept, what is saved.
#include "config/set/set_config.h"

#include "config/settings.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/omna.h"
#include "link/tick.h"
#include "support/fixture.h"
#include "support/requests.h"

#include <iomanip>
#include <sstream>

namespace {

// A payload in words: numbers, texts in quotes behind their length, "=1234" a text alone.
std::vector<std::uint8_t> Payload(const std::string& words) {
    std::vector<std::uint8_t> bytes;
    std::istringstream in(words);
    while (in >> std::ws && in.peek() != EOF) {
        const bool counted = in.peek() == '\'';
        std::string word;
        in >> std::quoted(word, '\'');
        if (counted || word[0] != '=')
            bytes.push_back(static_cast<std::uint8_t>(counted ? word.size() : std::stoul(word)));
        if (counted || word[0] == '=')
            bytes.insert(bytes.end(), word.begin() + (counted ? 0 : 1), word.end());
    }
    return bytes;
}

class Dialogue : public OnTheLine {
protected:
    void SetUp() override {
        OnTheLine::SetUp();
        ResetOmnaLink();
        Requests();
        TraceLines();
    }
    // The TAPI_OMNA requests queued since the last call: "6", "8 from 2".
    static std::vector<std::string> Requests() {
        std::vector<std::string> out;
        std::uint8_t frame[1024];
        for (; FifoPeek(LINK_FIFO, frame) != 0; FifoDrop(LINK_FIFO))
            out.push_back(std::to_string(frame[6]) + (frame[3] == 7 ? " from " + std::to_string(frame[8]) : ""));
        return out;
    }
    static void Associate(int version, const std::string& number = "4711") {
        ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(version);
        HandleDeviceAssocAck(1, Payload("0 1 '" + number + (version >= 2 ? "' 3 0 4 0" : "'")));
    }
    static void WholeDialogue(int version, const std::string& swap = "Swap") {
        Associate(version);
        HandleKeyAck(1, Payload("2"));
        HandleKeyInfoAck(1, Payload("2  1 '4711' 0  2 '4712' 0"));
        if (version >= 3) {
            HandleKeySpeAck(1, Payload("1 1 0 1"));
            HandleKeySpeInfoAck(1, Payload("3  10 10 '4740'  7 7 '4720'  9 8 '4730'"));
        }
        HandleStringAck(1, Payload("3"));
        HandleStringInfoAck(1, Payload("3  0 'Hang up'  1 'Cancel'  2 ' Dial: '"));
        HandleSkAck(1, Payload("7"));
        HandleSkInfoAck(1, Payload("7  0 'Second'  1 'End'  3 'Conf'  4 'FV'  5 '!FV'  6 'Trans'  2 '" + swap + "'"));
        HandleCodeAck(1, Payload("2"));
        HandleCodeInfoAck(1, Payload("2  0 '61'  4 '60'"));
    }
    // Once more, over what was stored.
    static void Again(const std::string& swap = "Swap") {
        ResetOmnaLink();
        WholeDialogue(3, swap);
    }
};

TEST_F(Dialogue, GoesThroughItsStepsOneRequestAnAnswer) {
    WholeDialogue(2);
    EXPECT_THAT(Requests(), ElementsAre("6", "8 from 0", "10", "12 from 0", "14", "16 from 0", "18", "20 from 0"));
    ProviderState.TAPI_OMNA_Ver = 3;
    SetConfig.nb_of_info_rcvd = 3;  // a reading that was broken off
    HandleKeySpeAck(1, Payload("0 0 0 0"));
    HandleStringAck(1, Payload("3"));
    EXPECT_THAT(Requests(), ElementsAre("10", "12 from 0")) << "no special keys to read";
    Again();
    EXPECT_THAT(Requests(), ElementsAre("2", "6", "8 from 0", "30", "32 from 0", "10", "12 from 0", "14", "16 from 0",
                                        "18", "20 from 0"));
    ProviderState.TAPI_OMNA_Ver = 4;  // one to come has what version 3 has
    HandleKeyAck(1, Payload("3"));
    HandleKeyInfoAck(1, Payload("2  1 '4711' 0  2 '4712' 0"));
    HandleKeyInfoAck(1, Payload("0"));
    HandleKeyInfoAck(1, Payload("1  3 '4713' 0"));
    EXPECT_THAT(Requests(), ElementsAre("8 from 0", "8 from 2", "8 from 2", "30"));
    TraceLines();
    for (const auto& [handle, counts] : {std::pair{&HandleStringAck, "1"},
                                         {HandleSkAck, "1"},
                                         {HandleCodeAck, "1"},
                                         {HandleStringAck, "0"},
                                         {HandleKeySpeAck, "1 2 3 4"}})
        handle(1, Payload(counts));
    EXPECT_THAT(Requests(), ElementsAre("12 from 0", "16 from 0", "20 from 0", "32 from 0"));
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Nbre touch Superv     :1", "Nbre touch Patron     :2",
                                                     "Nbre touch Secretaire :3", "Nbre touch Sec Debord :4"}));
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Dial:");
    EXPECT_EQ(TouchTable[9].kind, TOUCH_PATRON);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE", "LINEDEV CONNECTED|INSERVICE"));
}

TEST_F(Dialogue, KeysOutsideTheTablesAreSkippedAndStillCounted) {
    Associate(3);
    HandleKeyAck(1, Payload("2"));
    HandleKeyInfoAck(1, Payload("2  90 '4700' 0  11 '4705' 0"));
    HandleKeySpeAck(1, Payload("4 0 0 0"));
    Requests();
    HandleKeySpeInfoAck(1, Payload("4 99 7 0 0 7 'x' 11 5 0 32 7 0"));
    EXPECT_THAT(Requests(), ElementsAre("10"));
    EXPECT_EQ(TouchTable[11].kind, TOUCH_MULTI) << "a kind that nobody knows takes no key away";
    EXPECT_THAT(std::vector<int>(KeyLists.Superv.begin(), KeyLists.Superv.end()), ElementsAre(32));
    std::string elevenBosses = "11";
    for (int key = 21; key <= 31; ++key)
        elevenBosses += " " + std::to_string(key) + " 8 0";
    HandleKeySpeAck(1, Payload("0 11 0 0"));
    TraceLines();
    HandleKeySpeInfoAck(1, Payload(elevenBosses));
    EXPECT_EQ(KeyLists.Patron.Count, 10);
    EXPECT_NE(TouchTable[31].kind, TOUCH_PATRON);
    EXPECT_THAT(TraceLines(), testing::Contains("tou spe 31 genr_tou 8 - no room in the list, skipped"));
}

TEST_F(Dialogue, ReceivedKeysReplaceWhatWasThereAndACountStartsThemAnew) {
    SetSetting("Set_Des", "T44", "M1");
    WritePrivateProfileStringA("Set_Des", "T44", "M1", "zt62cfg.ini");
    TouchTable[50].kind = TOUCH_SUPERV;
    WaitInfo.fill(7);
    Associate(3);
    for (const std::string& last : {std::string("3"), std::string("88")}) {
        HandleKeyAck(1, Payload("2"));
        HandleKeyInfoAck(1, Payload("2  1 '4711' 0  " + last + " '4788' 0"));
        HandleKeySpeAck(1, Payload("1 0 0 0"));
        HandleKeySpeInfoAck(1, Payload("1  5" + last.substr(last.size() - 1) + " 7 ''"));
    }
    EXPECT_THAT(std::vector<int>(KeyLists.Multi.begin(), KeyLists.Multi.end()), ElementsAre(1, 88));
    EXPECT_THAT(std::vector<int>(KeyLists.Superv.begin(), KeyLists.Superv.end()), ElementsAre(58));
    EXPECT_EQ(TouchTable[88].kind, TOUCH_MULTI);
    EXPECT_EQ(TouchTable[50].kind, TOUCH_NONE);
    EXPECT_THAT(WaitInfo, ElementsAre(-1, -1, 7, 7, 7, 7, 7, 7, 7, 7)) << "one for each key";
    EXPECT_EQ(Setting("Set_Des", "T44"), "(none)");
    EXPECT_THAT(FileText("C:\\WINDOWS\\zt62cfg.ini"), testing::Not(testing::HasSubstr("T44")));
}

TEST_F(Dialogue, SpecialKeysThatAreNoneAnyMoreLeaveTheWorkingLists) {
    for (const int version : {2, 3}) {
        WholeDialogue(3);
        EXPECT_THAT(std::vector<int>(KeyLists.Patron.begin(), KeyLists.Patron.end()), ElementsAre(9));
        DynamicConfig.LastActionState = 1;
        ResetOmnaLink();
        Associate(version);
        HandleKeyAck(1, Payload("1"));
        HandleKeyInfoAck(1, Payload("1  1 '4711' 0"));
        if (version >= 3)
            HandleKeySpeAck(1, Payload("0 0 0 0"));
        EXPECT_EQ(KeyLists.Superv.Count + KeyLists.Patron.Count + KeyLists.SecrDebord.Count, 0) << version;
    }
}

TEST_F(Dialogue, EverythingIsSavedTheFirstTimeAndOnlyWhatChangedLater) {
    WholeDialogue(3);
    EXPECT_EQ(Setting("SetConfig", "SetMCDU"), "4711");
    EXPECT_EQ(Setting("SetConfig", "Language"), "0: French");
    EXPECT_EQ(Setting("SoftKey_Des", "CancelFreqVocale"), "!FV");
    EXPECT_EQ(Setting("String_Des", "HangUp"), "Hang up");
    EXPECT_EQ(Setting("Service_Code", "CancelForwarding"), "60");
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "success");
    for (const auto& [key, data] :
         {std::pair{"T01", "M4711"}, {"T02", "M4712"}, {"T07", "SU4720"}, {"T09", "EX4730"}, {"T10", "RS4740"}})
        EXPECT_EQ(Setting("Set_Des", key), data);
    const std::string text = FileText("C:\\WINDOWS\\zt62cfg.ini");
    EXPECT_THAT(
        text, testing::HasSubstr("[Set_Des]\r\nT01=M4711\r\nT02=M4712\r\nT07=SU4720\r\nT09=EX4730\r\nT10=RS4740\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("SetMCDU=4711"));

    // the same again: what is missing in the store now was not written anew
    for (const char* section : {"SoftKey_Des", "String_Des", "Service_Code"})
        RegDeleteSection(section);
    SetSetting("SetConfig", "Language", "0: Francais");
    DynamicConfig.LastActionState = 1;
    Again();
    EXPECT_EQ(Setting("SoftKey_Des", "Swap"), "(none)");
    EXPECT_EQ(Setting("Service_Code", "CancelForwarding"), "(none)");
    EXPECT_EQ(Setting("SetConfig", "Language"), "0: Francais") << "the same language";
    SetSetting("SoftKey_Des", "OfBefore", "x");
    Again("Change");
    EXPECT_EQ(Setting("SoftKey_Des", "OfBefore"), "(none)") << "the section is written anew";
    EXPECT_EQ(Setting("SoftKey_Des", "Swap"), "Change");
    EXPECT_EQ(Setting("SoftKey_Des", "Conference"), "Conf") << "one differing label saves all seven";
    EXPECT_EQ(Setting("String_Des", "HangUp"), "(none)");

    for (const char* section : {"SoftKey_Des", "String_Des"})
        PlatformControl::RefuseRegistry(section, 5);
    PlatformControl::FailCall(
        "WritePrivateProfileStringA");  // keys are kept in the INI file too: that alone is a failure
    DynamicConfig.LastActionState = 0;
    TraceLines();
    Again();
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Pb de sauvegarde config touch multi dans fichier ini",
                                                     "Pb de sauvegarde config touch spe dans fichier ini",
                                                     "Pb de sauvegarde config sk dans fichier ini",
                                                     "Pb de sauvegarde config string dans fichier ini"}));
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_SWAP], "Swap") << "it stays in memory";
    EXPECT_TRUE(Tick.ConfigReceived);
}

TEST_F(Dialogue, CallsSurviveAConfigurationThatComesAgain) {
    WholeDialogue(3);
    ASSERT_EQ(Call(1, 0, LINECALLSTATE_CONNECTED), 0);
    TouchTable[1].icon = ACTIV_ICON;
    TouchTable[7].icon = INCOM_ICON;
    DynamicConfig.LastActionState = 1;
    Again();
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(0, -1));
    EXPECT_EQ(TouchTable[1].icon, ACTIV_ICON);
    EXPECT_EQ(TouchTable[7].icon, IDLE_ICON) << "its kind was taken away by the multi-line keys, and comes back new";
    for (const int lineKeys : {2, 0}) {
        KeyLists.Multi.Count = lineKeys;
        TouchTable[7] = {TOUCH_SUPERV, "", INCOM_ICON, 0, {3, 4}};
        HandleKeySpeAck(1, Payload("1 0 0 0"));
        HandleKeySpeInfoAck(1, Payload("1 7 7 0"));
        EXPECT_EQ(TouchTable[7].icon, lineKeys != 0 ? INCOM_ICON : IDLE_ICON) << "kept only if all was known before";
        EXPECT_EQ(TouchTable[7].calls, (lineKeys != 0 ? std::array{3, 4} : std::array{-1, -1}));
    }
    DynamicConfig.LastActionState = 0;
    Again();
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(-1, -1));
}

TEST_F(Dialogue, ForwardingIsFollowedAndAcknowledgedByReleasing) {
    Associate(2);
    Requests();
    LineEvents();
    const auto again = [](const std::string& words) {
        Tracking.ForwardAckTicks = 10;
        HandleDeviceAssocAck(2, Payload("0 1 '4711' 3 " + words));
        EXPECT_EQ(Tracking.ForwardAckTicks, 0);
    };
    again("1 0 4 0 =1234 18 60 5 40 0");
    EXPECT_EQ(Pressed(), RELEASE) << "and no key request: the dialogue runs";
    EXPECT_THAT(LineEvents(), ElementsAre("ADDRESS 0 40 to 1234"));
    EXPECT_STREQ(ProviderState.ForwardDestination, "1234");
    EXPECT_EQ(Settings.EnquiryCallMode, 1);
    EXPECT_EQ(AomCount, 2);
    EXPECT_EQ(AomTable[0].adr, 2);
    EXPECT_TRUE(AomTable[0].aom20);
    EXPECT_EQ(GetAomIndex(65), 0) << "put in the order of their keys";
    again("1 0 2 0 =12 0");
    EXPECT_STREQ(ProviderState.ForwardDestination, "12");
    EXPECT_THAT(LineEvents(), IsEmpty()) << "another destination of the same forwarding is no change of status";
    Pressed();
    again("1 4 18 40 19 50 20 60 21 70");
    EXPECT_EQ(Pressed(), "");
    EXPECT_STREQ(ProviderState.ForwardDestination, "");
    EXPECT_EQ(AomCount, 3) << "a fourth module finds no room";
    CopyText(ProviderState.ForwardDestination, "1234");
    again("1 0 9 0 =12");
    EXPECT_STREQ(ProviderState.ForwardDestination, "") << "one that is cut off counts as none";
    EXPECT_EQ(AomCount, 3) << "what does not come stays";
    LineEvents();
    Pressed();
    CopyText(ProviderState.ForwardDestination, "12");
    again("0 5 0");
    EXPECT_STREQ(ProviderState.ForwardDestination, "12") << "a status above 4 keeps it and releases";
    EXPECT_EQ(Pressed(), RELEASE);
}

TEST_F(Dialogue, LocalSettingsAreReadWithTheirWriteBacksInVersionOneOrProtocolLevelOneAlone) {
    SetSetting("Prefix", "ExtPrefixDisp", "yes");
    Associate(2);
    EXPECT_EQ(Setting("SetConfig", "MaxDigitLocal"), "(none)");
    ResetSetConfig();
    Associate(1);
    EXPECT_EQ(Setting("SetConfig", "MaxDigitLocal"), "8");
    EXPECT_EQ(Setting("Prefix", "ExtPrefixDisp"), "1");
    EXPECT_EQ(Setting("Prefix", "ExtPrefix"), "0");
    EXPECT_EQ(Setting("SetConfig", "EnquiryCallMode"), "0");
    SetSetting("Prefix", "ExtPrefix", "00");
    SetSetting("SetConfig", "EnquiryCallMode", "1");
    ProviderState.ProtocolLevel = 1;
    for (const auto& [stored, wanted] : {std::pair{"2", 2}, {"1", 8}, {"19", 19}, {"20", 8}, {"7 digits", 8}}) {
        SetSetting("SetConfig", "MaxDigitLocal", stored);
        ResetSetConfig();
        Associate(3);
        EXPECT_EQ(Settings.MaxDigitLocal, wanted);
    }
    EXPECT_STREQ(Settings.ExtPrefix, "00");
    EXPECT_EQ(Settings.EnquiryCallMode, 1) << "the stored value, not the PBX's";
}

TEST_F(Dialogue, StoredConfigurationIsUsableForTheSameNumberAndLanguage) {
    DynamicConfig.LastActionState = 1;
    for (const bool known : {false, true}) {
        ResetSetConfig();
        Associate(2, "4711");
        EXPECT_EQ(Tick.ConfigUsable, known);
    }
    for (const bool known : {false, true}) {
        Tick.ConfigUsable = false;
        ResetSetConfig();
        Associate(2, "1234567890123456789012345");
        EXPECT_EQ(Tick.ConfigUsable, known) << "a number longer than its field";
    }
    for (const auto& [text, code] : {std::pair{"0: French", 1}, {"4: Italian", 6}, {"Not listed", -1}}) {
        ProviderState.PbxLanguage = code == -1 ? std::uint8_t{3} : static_cast<std::uint8_t>(code);
        SaveLanguage();
        EXPECT_EQ(Setting("SetConfig", "Language"), text);
        EXPECT_EQ(ReadLanguage(), code) << text;
    }
    for (const char* text : {"5: Dutch", "9", "/", "French"}) {
        SetSetting("SetConfig", "Language", text);
        EXPECT_EQ(ReadLanguage(), -1) << text;
    }
}

TEST_F(Dialogue, TextsLongerThanTheirEntryAreCutAndNotTakenForNews) {
    DynamicConfig.LastActionState = 1;
    Associate(3);
    for (int round = 0; round < 2; ++round) {
        SetConfig.SoftKeysAnnounced = SetConfig.CodesAnnounced = SetConfig.StringsAnnounced = 1;
        HandleStringInfoAck(1, Payload("1  1 'A text of more than thirty-one characters'"));
        HandleSkInfoAck(1, Payload("1  0 'Second call'"));
        HandleCodeInfoAck(1, Payload("1  0 '123456'"));
        EXPECT_EQ(SetConfig.SoftKeysChanged, round == 0) << round;
        EXPECT_EQ(SetConfig.StringsChanged, round == 0) << round;
        EXPECT_EQ(Setting("Service_Code", "ForwardingImm"), round == 0 ? "1234" : "(none)");
        RegDeleteSection("Service_Code");
        SetConfig.SoftKeysChanged = SetConfig.StringsChanged = false;
    }
    EXPECT_STREQ(Settings.SoftKeyLabels[0], "Second");
    EXPECT_STREQ(Settings.DisplayStrings[1], "A text of more than thirty-one ");
    // codes are saved by the message that changes one and ends them
    RecordLastAction("never");
    SetConfig.CodesAnnounced = 3;
    Tick.ConfigReceived = false;
    Requests();
    HandleCodeInfoAck(1, Payload("2  0 '61'  7 '9'"));
    EXPECT_FALSE(Tick.ConfigReceived);
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "success") << "with the first message, not the last";
    EXPECT_THAT(Requests(), ElementsAre("20 from 2")) << "an unknown one counts";
    HandleCodeInfoAck(1, Payload("1  0 '6'"));
    EXPECT_STREQ(Settings.ServiceCodes[0], "61") << "it begins so: no change";
    EXPECT_EQ(Setting("Service_Code", "ForwardingImm"), "(none)");
}

TEST_F(Dialogue, WrongSetsAndOddEntriesAreNamed) {
    ProviderState.TAPI_OMNA_Ver = 2;
    HandleDeviceAssocAck(1, Payload("0 1 '4711' 1 0 4 0"));
    EXPECT_THAT(Requests(), IsEmpty());
    HandleKeyAck(1, Payload("0"));
    EXPECT_THAT(Requests(), ElementsAre("4"));
    HandleKeyInfoAck(1, Payload("1  90 'x' 0"));
    HandleKeySpeInfoAck(1, Payload("1  5 11 'x'"));
    HandleStringInfoAck(1, Payload("1  3 'x'"));
    HandleSkInfoAck(1, Payload("1  7 'x'"));
    HandleCodeInfoAck(1, Payload("1  7 'x'"));
    for (const char* refused : {"Service_Code", "Language"})
        PlatformControl::RefuseRegistry(refused, 5);
    SaveCodes();
    SaveLanguage();
    KeyLists.Superv.Append(51);
    KeyLists.Superv.Append(52);
    PlatformControl::FailCall("WritePrivateProfileStringA", 1, PlatformControl::Failing::Once);
    SaveSpecialKeys();  // the second one succeeds
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf(
                    {"Recup conf Dynamique - Poste non KB2 (ZT 7120)", "Recup conf Dynamique - Poste non Multiligne",
                     "TouchId:90 hors borne - non prise en compte", "tou spe 5 genr_tou 11 inconnu",
                     "Reception d'une string d'ID > MAX_TA_STRING", "Reception d'une SK d'ID > MAX_TA_SK",
                     "Reception d'un code d'ID (7) > MAX_TA_CODE (6)", "Pb de sauvegarde config code dans fichier ini",
                     "Pb sauvegarde langue dans fichier ini", "Pb de sauvegarde config touch spe dans fichier ini"}));
}

}  // namespace
