// The configuration dialogue, message by message: what goes out, what is kept, what is saved.
#include "config/set_config.h"

#include "config/settings.h"
#include "control/keys.h"
#include "link/fifo.h"
#include "link/omna.h"
#include "link/tick.h"
#include "provider/events.h"
#include "support/fixture.h"
#include "trace/trace.h"

#include <cstring>

namespace {

using Payload = std::vector<std::uint8_t>;

// A payload of numbers and texts.
struct Bytes : Payload {
    Bytes& operator()(int byte) {
        push_back(static_cast<std::uint8_t>(byte));
        return *this;
    }
    Bytes& operator()(const std::string& text) {
        insert(end(), text.begin(), text.end());
        return *this;
    }
    // A text behind its length.
    Bytes& Counted(const std::string& text) { return (*this)(static_cast<int>(text.size()))(text); }
};

class Dialogue : public OnTheLine {
protected:
    void SetUp() override {
        OnTheLine::SetUp();
        ResetOmnaLink();
        Requests();
        TraceLines();
    }
    // What has been queued since the last call: "6", "8 from 2" for a TAPI_OMNA request, else the frame in hexadecimal.
    static std::vector<std::string> Requests() {
        std::vector<std::string> out;
        std::uint8_t frame[1024];
        while (const int length = FifoPeek(LINK_FIFO, frame)) {
            FifoDrop(LINK_FIFO);
            if (frame[1] == 0x12) {
                out.push_back(std::to_string(frame[6]));
                if (frame[3] == 7)
                    out.back() += " from " + std::to_string(frame[8]);
                continue;
            }
            std::string text;
            for (int i = 0; i < length; ++i) {
                char hex[4];
                std::snprintf(hex, sizeof hex, "%02X ", static_cast<unsigned>(frame[i]));
                text += hex;
            }
            out.push_back(text);
        }
        return out;
    }
    static void Associate(int version, const std::string& number = "4711", int type = 3, int status = 4) {
        ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(version);
        Bytes ack;
        ack(0)(1).Counted(number);
        if (version >= 2)
            ack(type)(0)(status)(0);
        HandleDeviceAssocAck(1, ack);
    }
    static Bytes Keys(std::initializer_list<std::pair<int, const char*>> keys) {
        Bytes info;
        info(static_cast<int>(keys.size()));
        for (const auto& [key, label] : keys)
            info(key).Counted(label)(0);
        return info;
    }
    static Bytes Texts(std::initializer_list<std::pair<int, const char*>> texts) {
        Bytes info;
        info(static_cast<int>(texts.size()));
        for (const auto& [identifier, text] : texts)
            info(identifier).Counted(text);
        return info;
    }
    static std::string IniFile() {
        return FileText("C:\\WINDOWS\\zt62cfg.ini");
    }
    static void WholeDialogue(int version, const char* swap = "Swap") {
        Associate(version);
        HandleKeyAck(1, Bytes()(2));
        HandleKeyInfoAck(1, Keys({{1, "4711"}, {2, "4712"}}));
        if (version >= 3) {
            HandleKeySpeAck(1, Bytes()(1)(1)(0)(0));
            HandleKeySpeInfoAck(1, Bytes()(2)(7)(7).Counted("4720")(9)(8).Counted("4730"));
        }
        HandleStringAck(1, Bytes()(3));
        HandleStringInfoAck(1, Texts({{0, "Hang up"}, {1, "Cancel"}, {2, "Dial:"}}));
        HandleSkAck(1, Bytes()(7));
        HandleSkInfoAck(
            1, Texts({{0, "Second"}, {1, "End"}, {2, swap}, {3, "Conf"}, {4, "FV"}, {5, "!FV"}, {6, "Trans"}}));
        HandleCodeAck(1, Bytes()(2));
        HandleCodeInfoAck(1, Texts({{0, "61"}, {4, "60"}}));
    }
};

TEST_F(Dialogue, GoesThroughItsStepsOneRequestAnAnswer) {
    Associate(3);
    EXPECT_THAT(Requests(), ElementsAre("6"));
    HandleKeyAck(1, Bytes()(3));
    EXPECT_THAT(Requests(), ElementsAre("8 from 0"));
    HandleKeyInfoAck(1, Keys({{1, "4711"}, {2, "4712"}}));
    EXPECT_THAT(Requests(), ElementsAre("8 from 2"));
    HandleKeyInfoAck(1, Keys({{3, "4713"}}));
    EXPECT_THAT(Requests(), ElementsAre("30"));
    HandleKeySpeAck(1, Bytes()(0)(1)(0)(0));
    EXPECT_THAT(Requests(), ElementsAre("32 from 0"));
    HandleKeySpeInfoAck(1, Bytes()(1)(9)(8).Counted("4730"));
    EXPECT_THAT(Requests(), ElementsAre("10"));
    HandleStringAck(1, Bytes()(2));
    HandleStringInfoAck(1, Texts({{0, "Hang up"}}));
    HandleStringInfoAck(1, Texts({{2, " Dial: "}}));
    EXPECT_THAT(Requests(), ElementsAre("12 from 0", "12 from 1", "14"));
    HandleSkAck(1, Bytes()(1));
    HandleSkInfoAck(1, Texts({{2, "Swap"}}));
    EXPECT_THAT(Requests(), ElementsAre("16 from 0", "18"));
    EXPECT_TRUE(Tick.ConfigUsable);
    EXPECT_FALSE(Tick.ConfigReceived);
    HandleCodeAck(1, Bytes()(1));
    HandleCodeInfoAck(1, Texts({{4, "60"}}));
    EXPECT_THAT(Requests(), ElementsAre("20 from 0"));
    EXPECT_TRUE(Tick.ConfigReceived);
    EXPECT_STREQ(Settings.DisplayStrings[STRING_DIAL], "Dial:");
    EXPECT_EQ(TouchTable[9].kind, TOUCH_PATRON);
    EXPECT_THAT(LineEvents(), ElementsAre("LINEDEV CONNECTED|INSERVICE"));
}

TEST_F(Dialogue, VersionsBelowThreeSkipTheSpecialKeysAndNoSpecialKeysSkipTheirReading) {
    Associate(2);
    HandleKeyAck(1, Bytes()(1));
    HandleKeyInfoAck(1, Keys({{1, "4711"}}));
    EXPECT_EQ(Requests().back(), "10");
    ProviderState.TAPI_OMNA_Ver = 3;
    HandleKeySpeAck(1, Bytes()(0)(0)(0)(0));
    EXPECT_THAT(Requests(), ElementsAre("10"));
}

TEST_F(Dialogue, WrongSetAndNoKeysAskNothingFurther) {
    Associate(2, "4711", 1);
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_THAT(TraceLines(), testing::Contains("Recup conf Dynamique - Poste non KB2 (ZT 7120)"));
    HandleKeyAck(1, Bytes()(0));
    EXPECT_THAT(Requests(), ElementsAre("4"));
    EXPECT_EQ(SetConfig.MultiAnnounced, 0);
    HandleStringAck(1, Bytes()(0));
    HandleSkAck(1, Bytes()(0));
    HandleCodeAck(1, Bytes()(0));
    EXPECT_THAT(Requests(), IsEmpty()) << "the dialogue stops at a count of 0";
}

TEST_F(Dialogue, KeysOutsideTheTablesAreSkippedAndStillCounted) {
    Associate(3);
    HandleKeyAck(1, Bytes()(14));
    HandleKeyInfoAck(1, Keys({{90, "4700"}, {5, "4705"}, {0, "4706"}}));
    Bytes eleven;
    eleven(11);
    for (int key = 11; key <= 21; ++key)
        eleven(key)(0)(0);
    HandleKeyInfoAck(1, eleven);
    EXPECT_EQ(KeyLists.Multi.Count, 10);
    EXPECT_EQ(TouchTable[20].kind, TOUCH_NONE) << "the eleventh key finds no room";
    HandleKeySpeAck(1, Bytes()(6)(0)(0)(0));
    Requests();
    HandleKeySpeInfoAck(1, Bytes()(6)(99)(7)
                               .Counted("x")(0)(7)
                               .Counted("x")(30)(5)
                               .Counted("y")(11)(5)
                               .Counted("y")(31)(7)
                               .Counted(std::string(60, 'z'))(32)(7)
                               .Counted("w"));
    EXPECT_EQ(TouchTable[30].kind, TOUCH_NONE);
    EXPECT_EQ(TouchTable[11].kind, TOUCH_MULTI) << "a kind that nobody knows takes no key away";
    EXPECT_STREQ(TouchTable[0].label, "");
    EXPECT_THAT(Requests(), ElementsAre("10"));
    EXPECT_THAT(std::vector<int>(KeyLists.Superv.begin(), KeyLists.Superv.end()), ElementsAre(31, 32));
    EXPECT_EQ(std::strlen(TouchTable[31].label), LABEL_SIZE - 1) << "a label is cut to its field";
}

TEST_F(Dialogue, WhatIsTakenAndWhatIsDroppedIsTracedAtItsLevel) {
    const auto traced = [](std::int32_t mask) {
        ResetSetConfig();
        TraceMask = mask;
        TraceLines();
        HandleKeyAck(1, Bytes()(9));
        HandleKeyInfoAck(1, Keys({{5, "a"}, {90, "b"}, {0, "c"}}));
        HandleKeySpeInfoAck(1, Bytes()(3)(30)(5)(0)(99)(7)(0)(0)(7)(0));
        HandleStringInfoAck(1, Texts({{3, "x"}}));
        HandleSkInfoAck(1, Texts({{7, "x"}}));
        HandleCodeInfoAck(1, Texts({{7, "x"}}));
        return TraceLines();
    };
    EXPECT_THAT(traced(TRACE_ALWAYS),
                ElementsAre("TouchId:0 - no key of the set, skipped", "tou spe 99 - no key of the set, skipped",
                            "tou spe 0 - no key of the set, skipped", "Reception d'une string d'ID > MAX_TA_STRING",
                            "Reception d'une SK d'ID > MAX_TA_SK", "Reception d'un code d'ID (7) > MAX_TA_CODE (6)"));
    EXPECT_THAT(traced(TRACE_CONFIG),
                testing::IsSupersetOf({"TouchId:5 - :a", "TouchId:90 hors borne - non prise en compte",
                                       " nb_of_info_rcvd:3 - nb_touch_include:3 ", "tou spe 30 genr_tou 5 inconnu"}));
}

TEST_F(Dialogue, ReceivedKeysReplaceWhatWasThereAndACountStartsThemAnew) {
    SetSetting("Set_Des", "T44", "M1");
    WritePrivateProfileStringA("Set_Des", "T44", "M1", "zt62cfg.ini");
    TouchTable[50].kind = TOUCH_SUPERV;
    WaitInfo.fill(7);
    Associate(3);
    for (const int last : {3, 88}) {
        HandleKeyAck(1, Bytes()(4));
        HandleKeyInfoAck(1, Keys({{1, "4711"}, {last, "4788"}}));
    }
    EXPECT_THAT(std::vector<int>(KeyLists.Multi.begin(), KeyLists.Multi.end()), ElementsAre(1, 88));
    EXPECT_EQ(TouchTable[1].kind, TOUCH_MULTI);
    EXPECT_EQ(TouchTable[88].kind, TOUCH_MULTI);
    EXPECT_EQ(TouchTable[50].kind, TOUCH_NONE);
    EXPECT_THAT(WaitInfo, ElementsAre(-1, -1, 7, 7, 7, 7, 7, 7, 7, 7)) << "one for each key";
    EXPECT_EQ(Setting("Set_Des", "T44"), "(none)");
    EXPECT_THAT(IniFile(), testing::HasSubstr("[Set_Des]\r\nT01=M4711\r\nT88=M4788\r\n"));
    for (const int key : {7, 9}) {
        HandleKeySpeAck(1, Bytes()(1)(0)(1)(0));
        HandleKeySpeInfoAck(1, Bytes()(1)(key)(7)(0));
    }
    EXPECT_THAT(std::vector<int>(KeyLists.Superv.begin(), KeyLists.Superv.end()), ElementsAre(9));
}

TEST_F(Dialogue, SpecialKeysStartEmptyUnlessTheyWereKnownBefore) {
    struct Case {
        int stored, lineKeys;
        TouchKind before;
        bool kept;
    };
    for (const Case& c : {Case{1, 1, TOUCH_SUPERV, true}, Case{0, 1, TOUCH_SUPERV, false},
                          Case{1, 0, TOUCH_SUPERV, false}, Case{1, 1, TOUCH_PATRON, false}}) {
        ResetSetConfig();
        DynamicConfig.LastActionState = c.stored;
        KeyLists.Multi.Count = c.lineKeys;
        TouchTable[7] = {c.before, "", INCOM_ICON, 0, {3, 4}};
        HandleKeySpeAck(1, Bytes()(1)(0)(0)(0));
        HandleKeySpeInfoAck(1, Bytes()(1)(7)(7)(0));
        EXPECT_EQ(TouchTable[7].icon, c.kept ? INCOM_ICON : IDLE_ICON) << c.stored << c.lineKeys << c.before;
        EXPECT_EQ(TouchTable[7].calls, (c.kept ? std::array{3, 4} : std::array{-1, -1}));
    }
}

TEST_F(Dialogue, NextRequestGoesOutBeforeAnythingIsSaved) {
    // A request that finds no memory shows a box: what is stored by then was saved too early.
    std::string stored;
    PlatformControl::FailGlobalAlloc(true);
    PlatformControl::AnswerBoxes([&](const PlatformControl::Box&) {
        stored += Setting("Set_Des", "T01") + Setting("Set_Des", "T07") + Setting("SoftKey_Des", "Swap") + " ";
        return IDOK;
    });
    WholeDialogue(3);
    EXPECT_EQ(Setting("SoftKey_Des", "Swap"), "Swap");
    const std::string keys = "M4711(none)(none) ", all = "M4711SU4720(none) ";
    EXPECT_EQ(stored, "(none)(none)(none) (none)(none)(none) (none)(none)(none) " + keys + keys + all + all + all +
                          all + "M4711SU4720Swap ");
}

TEST_F(Dialogue, EventsOfAnAssociationFindTheDeviceInServiceAndTheModulesNotReadYet) {
    static std::string found;
    ProviderState.LineEventProc = [](HTAPILINE, HTAPICALL, DWORD message, DWORD_PTR, DWORD_PTR, DWORD_PTR) {
        found += (message == LINE_ADDRESSSTATE ? "forwarded:" : "device:") + std::to_string(ProviderState.DeviceState) +
                 "," + std::to_string(AomCount) + " ";
    };
    ProviderState.DeviceState = DEVICE_STARTING;
    ProviderState.TAPI_OMNA_Ver = 2;
    HandleDeviceAssocAck(1, Bytes()(0)(1).Counted("4711")(3)(0)(1)(0)(0)(0x12)(60)(0x05)(40)(0));
    EXPECT_EQ(found, "forwarded:1,0 device:2,2 ");
    EXPECT_EQ(GetAomIndex(65), 0) << "put in the order of their keys";
    HandleDeviceAssocAck(2, Bytes()(0)(1).Counted("4711")(3)(0)(1)(0)(0)(0x12)(60)(0));
    EXPECT_EQ(AomCount, 1);
}

TEST_F(Dialogue, EverythingIsSavedTheFirstTimeAndOnlyWhatChangedLater) {
    WholeDialogue(3);
    EXPECT_EQ(Setting("SetConfig", "SetMCDU"), "4711");
    EXPECT_EQ(Setting("SetConfig", "Language"), "0: French");
    EXPECT_EQ(Setting("Set_Des", "T02"), "M4712");
    EXPECT_EQ(Setting("Set_Des", "T07"), "SU4720");
    EXPECT_EQ(Setting("Set_Des", "T09"), "EX4730");
    EXPECT_EQ(Setting("SoftKey_Des", "CancelFreqVocale"), "!FV");
    EXPECT_EQ(Setting("String_Des", "HangUp"), "Hang up");
    EXPECT_EQ(Setting("Service_Code", "CancelForwarding"), "60");
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "success");
    const std::string text = IniFile();
    EXPECT_THAT(text, testing::HasSubstr("[Set_Des]\r\nT01=M4711\r\nT02=M4712\r\nT07=SU4720\r\nT09=EX4730\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("SetMCDU=4711"));

    // the same again: what is missing in the store now was not written anew
    for (const char* section : {"SoftKey_Des", "String_Des", "Service_Code"})
        RegDeleteSection(section);
    ResetOmnaLink();
    DynamicConfig.LastActionState = 1;
    WholeDialogue(3);
    EXPECT_EQ(Setting("SoftKey_Des", "Swap"), "(none)");
    EXPECT_EQ(Setting("Service_Code", "CancelForwarding"), "(none)");
    ResetOmnaLink();
    TraceLines();
    WholeDialogue(3, "Change");
    EXPECT_EQ(Setting("SoftKey_Des", "Swap"), "Change");
    EXPECT_EQ(Setting("SoftKey_Des", "Conference"), "Conf") << "one differing label saves all seven";
    EXPECT_EQ(Setting("String_Des", "HangUp"), "(none)");
    EXPECT_THAT(TraceLines(), testing::Contains("DIFF SkId:2 'Swap'->'Change'"));
}

TEST_F(Dialogue, SavingThatFailsIsTracedAndTheConfigurationStaysInMemory) {
    PlatformControl::RefuseRegistry("SoftKey_Des", 5);
    PlatformControl::RefuseRegistry("String_Des", 5);
    PlatformControl::RefuseRegistry("Service_Code", 5);
    PlatformControl::RefuseRegistry("Language", 5);
    PlatformControl::RefuseProfile(true);
    WholeDialogue(3);
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf(
                    {"Pb de sauvegarde config touch multi dans fichier ini",
                     "Pb de sauvegarde config touch spe dans fichier ini",
                     "Pb de sauvegarde config sk dans fichier ini", "Pb de sauvegarde config string dans fichier ini",
                     "Pb de sauvegarde config code dans fichier ini", "Pb sauvegarde langue dans fichier ini"}));
    EXPECT_STREQ(Settings.SoftKeyLabels[SK_SWAP], "Swap");
    EXPECT_TRUE(Tick.ConfigReceived);
}

TEST_F(Dialogue, CallsSurviveAConfigurationThatComesAgain) {
    WholeDialogue(3);
    ASSERT_EQ(Call(1, 0, LINECALLSTATE_CONNECTED), 0);
    TouchTable[1].icon = ACTIV_ICON;
    TouchTable[7].icon = INCOM_ICON;
    DynamicConfig.LastActionState = 1;
    ResetOmnaLink();
    WholeDialogue(3);
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(0, -1));
    EXPECT_EQ(TouchTable[1].icon, ACTIV_ICON);
    EXPECT_EQ(TouchTable[7].icon, IDLE_ICON) << "its kind was taken away by the multi-line keys, and comes back new";
    DynamicConfig.LastActionState = 0;
    ResetOmnaLink();
    WholeDialogue(3);
    EXPECT_THAT(TouchTable[1].calls, ElementsAre(-1, -1));
}

TEST_F(Dialogue, ForwardingIsFollowedAndAcknowledgedByReleasing) {
    Associate(2);
    Requests();
    LineEvents();
    Tracking.ForwardAckTicks = 10;
    HandleDeviceAssocAck(2, Bytes()(0)(1).Counted("4711")(3)(1)(0)(4)(0)("1234")(0x12)(40)(0x05)(60)(0));
    EXPECT_THAT(Requests(), ElementsAre("03 26 20 29 8E ")) << "and no key request: the dialogue runs";
    EXPECT_THAT(LineEvents(), ElementsAre("ADDRESS 0 40"));
    EXPECT_STREQ(ProviderState.ForwardDestination, "1234");
    EXPECT_EQ(Tracking.ForwardAckTicks, 0);
    EXPECT_EQ(Settings.EnquiryCallMode, 1);
    EXPECT_EQ(AomCount, 2);
    EXPECT_EQ(AomTable[0].adr, 2);
    EXPECT_TRUE(AomTable[0].aom20);
    EXPECT_EQ(AomTable[1].offset, 60);
    Tracking.ForwardAckTicks = 10;
    HandleDeviceAssocAck(3, Bytes()(0)(1).Counted("4711")(3)(1)(4)(0x12)(40)(0x13)(50)(0x14)(60)(0x15)(70));
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_STREQ(ProviderState.ForwardDestination, "");
    EXPECT_EQ(AomCount, 3) << "a fourth module finds no room";
    CopyText(ProviderState.ForwardDestination, "12");
    Tracking.ForwardAckTicks = 1;
    HandleDeviceAssocAck(2, Bytes()(0)(1).Counted("4711")(3)(0)(5)(0));
    EXPECT_STREQ(ProviderState.ForwardDestination, "12") << "a status above 4 keeps it and releases";
    EXPECT_EQ(Requests().size(), 1u);
}

TEST_F(Dialogue, NewNumberKeepsTheStoredConfigurationFromBeingUsed) {
    DynamicConfig.LastActionState = 1;
    CopyText(Settings.SetMCDU, "4711");
    Associate(2, "4711");
    EXPECT_TRUE(Tick.ConfigUsable);
    Tick.ConfigUsable = false;
    ResetSetConfig();
    TraceLines();
    Associate(2, "4799");
    EXPECT_FALSE(Tick.ConfigUsable);
    EXPECT_THAT(TraceLines(), testing::Contains("NEW MCDU '4799' old '4711' "));
}

TEST_F(Dialogue, NoPayloadIsReadBeyondItsEnd) {
    using Handler = void (*)(std::uint8_t, std::span<const std::uint8_t>);
    const std::pair<Handler, Bytes> messages[] = {
        {HandleDeviceAssocAck, Bytes()(0)(1).Counted("4711")(3)(1)(0)(4)(0)("1234")(0x12)(40)},
        {HandleKeyAck, Bytes()(3)},
        {HandleKeyInfoAck, Keys({{1, "4711"}, {2, "4712"}})},
        {HandleKeySpeAck, Bytes()(1)(1)(1)(1)},
        {HandleKeySpeInfoAck, Bytes()(2)(7)(7).Counted("4720")(9)(8).Counted("4730")},
        {HandleStringInfoAck, Texts({{0, "Hang up"}, {3, "?"}})},
        {HandleSkInfoAck, Texts({{0, "Second call"}, {9, "?"}})},
        {HandleCodeInfoAck, Texts({{0, "123456"}, {7, "1"}})},
    };
    ProviderState.TAPI_OMNA_Ver = 3;
    for (const auto& [handler, whole] : messages) {
        for (std::size_t length = 0; length <= whole.size(); ++length) {
            const Payload prefix(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
            handler(1, prefix);  // an exact allocation: the sanitizers see any read past it
            FifoClear(LINK_FIFO);
        }
    }
    EXPECT_LE(KeyLists.Multi.Count, 10);
    EXPECT_LE(AomCount, AOM_COUNT);
    EXPECT_LT(std::strlen(Settings.SoftKeyLabels[0]), sizeof Settings.SoftKeyLabels[0]);
}

TEST_F(Dialogue, AssociationIsTracedAndReportedInItsOrder) {
    SetSetting("SetConfig", "Language", "1: English");
    CopyText(Settings.SetMCDU, "4700");
    TraceMask = TRACE_CONFIG;
    TraceLines();
    Associate(2);
    EXPECT_THAT(TraceLines(), ElementsAre("NEW MCDU '4711' old '4700' ", "Language: 1 - mcdu:4711 lg_mcdu 4",
                                          "Dev_type 0x03 multi mode 0 Fwd status 4", "Langue PABX différente"));
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_IN_SERVICE);
    LineEvents();
    // once more: no key request, no language, no news of the device
    LanguageChanged = false;
    Requests();
    HandleDeviceAssocAck(2, Bytes()(0)(4).Counted("4711")(3)(1)(2)(6)(9)("004711")(0));
    EXPECT_THAT(TraceLines(),
                ElementsAre("Language: 4 - mcdu:4711 lg_mcdu 4", "Dev_type 0x03 multi mode 1 Fwd status 2",
                            "Dest Fwd length 6 typ 9 Destaddr '004711'"));
    EXPECT_THAT(LineEvents(), ElementsAre("ADDRESS 0 40"));
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_FALSE(LanguageChanged);
    HandleDeviceAssocAck(3, Bytes()(0)(4).Counted("4711")(3)(1)(2)(2)(9)("12")(0));
    EXPECT_STREQ(ProviderState.ForwardDestination, "12");
    EXPECT_THAT(LineEvents(), IsEmpty()) << "another destination of the same forwarding is no change of status";
}

TEST_F(Dialogue, AssociationCutShortChangesOnlyWhatIsWhole) {
    Associate(2);
    HandleDeviceAssocAck(2, Bytes()(0)(1).Counted("4711")(3)(1)(0)(4)(0)("1234")(0x12)(40)(0));
    ASSERT_EQ(AomCount, 1);
    SetSetting("SetConfig", "SetMCDU", "4711");
    const auto kept = [](const Payload& payload) {
        HandleDeviceAssocAck(3, payload);
        EXPECT_STREQ(Settings.SetMCDU, "4711");
        EXPECT_EQ(Setting("SetConfig", "SetMCDU"), "4711");
        EXPECT_EQ(ProviderState.Dev_type, 3);
        EXPECT_EQ(Settings.EnquiryCallMode, 1);
        EXPECT_EQ(ProviderState.FwdStatus, 0);
        EXPECT_EQ(AomCount, 1);
    };
    kept({});
    EXPECT_EQ(ProviderState.PbxLanguage, 1);
    kept(Bytes()(0)(1));
    kept(Bytes()(0)(1)(200)("47"));
    kept(Bytes()(0)(1).Counted("4711")(1)(0));
    EXPECT_STREQ(ProviderState.ForwardDestination, "1234");
    kept(Bytes()(0)(1).Counted("4711")(3)(1)(0)(9)(0)("12"));
    EXPECT_STREQ(ProviderState.ForwardDestination, "") << "half a number is none";
    EXPECT_THAT(TraceLines(), testing::Contains("DEVICE_ASSOC_ACK number: entry 0 runs past its message - dropped"));
}

TEST_F(Dialogue, LocalSettingsAreReadWithTheirWriteBacksInVersionOneOrProtocolLevelOneAlone) {
    SetSetting("SetConfig", "MaxDigitLocal", "25");
    SetSetting("Prefix", "ExtPrefixDisp", "yes");
    Associate(2);
    EXPECT_EQ(Setting("SetConfig", "MaxDigitLocal"), "25");
    EXPECT_EQ(Setting("SetConfig", "EnquiryCallMode"), "(none)");
    TraceMask = TRACE_OMNA;
    const auto read = [](int version) {
        ResetSetConfig();
        TraceLines();
        Associate(version);
        std::vector<std::string> lines = TraceLines();
        std::erase_if(lines, [](const std::string& line) { return !line.starts_with("E") && !line.starts_with("M"); });
        return lines;
    };
    EXPECT_THAT(read(1), ElementsAre("ExtPrefix non trouve default:-0-", "ExtPrefixDisp 1", "EnqCallMode 0",
                                     "MaxDigitLocalCall 8"));
    EXPECT_EQ(Setting("Prefix", "ExtPrefixDisp"), "1");
    EXPECT_EQ(Setting("Prefix", "ExtPrefix"), "0");
    EXPECT_EQ(Setting("SetConfig", "EnquiryCallMode"), "0");
    SetSetting("Prefix", "ExtPrefix", "00");
    SetSetting("Prefix", "ExtPrefixDisp", "0");
    SetSetting("SetConfig", "EnquiryCallMode", "1");
    ProviderState.ProtocolLevel = 1;
    for (const auto& [stored, wanted] :
         {std::pair{"2", 2}, {"1", 8}, {"19", 19}, {"20", 8}, {"x", 8}, {"7 digits", 8}}) {
        SetSetting("SetConfig", "MaxDigitLocal", stored);
        EXPECT_THAT(read(3), ElementsAre("ExtPrefix lu:-00-", "ExtPrefixDisp 0", "EnqCallMode 1",
                                         "MaxDigitLocalCall " + std::to_string(wanted)));
        EXPECT_EQ(Setting("SetConfig", "MaxDigitLocal"), std::to_string(wanted)) << stored;
    }
    EXPECT_EQ(Settings.EnquiryCallMode, 1) << "the stored value, not the PBX's";
    EXPECT_EQ(Settings.MaxDigitLocal, 8);
    EXPECT_EQ(Settings.ExtPrefixDisp, 0);
}

TEST_F(Dialogue, LanguageIsSavedOnlyWhenItIsAnother) {
    Associate(3);
    ProviderState.PbxLanguage = 3;
    SaveLanguage();
    EXPECT_EQ(Setting("SetConfig", "Language"), "Not listed");
    EXPECT_EQ(ReadLanguage(), -1);
    const std::pair<const char*, int> texts[] = {{"0: French", 1},  {"1: English", 2}, {"2: German", 4},
                                                 {"3: Spanish", 5}, {"4: Italian", 6}, {"4", 6},
                                                 {"5: Other", -1},  {" 0", -1},        {"0: twenty characters", -1}};
    for (const auto& [text, code] : texts) {
        SetSetting("SetConfig", "Language", text);
        EXPECT_EQ(ReadLanguage(), code) << text;
    }
    SetSetting("SetConfig", "Language", "0: Francais");
    ResetOmnaLink();
    WholeDialogue(3);
    EXPECT_EQ(Setting("SetConfig", "Language"), "0: Francais") << "the same language: not written";
}

TEST_F(Dialogue, EndOfSoftKeysSavesInItsOrder) {
    Associate(3);
    SetConfig.SoftKeysAnnounced = 1;
    TraceMask = TRACE_CONFIG;
    DynamicConfig.WaitDynamicConfig = DynamicConfig.StaticConfig = 1;
    TraceLines();
    HandleSkInfoAck(1, Texts({{2, "Swap"}}));
    EXPECT_THAT(TraceLines(), ElementsAre("SkId:2 - 'Swap'", " nb_of_info_rcvd:1 - nb_sk_include:1 ",
                                          "Sk sauvegardé ini - diff", "String non sauvegardé ini - idem"));
    EXPECT_EQ(DynamicConfig.WaitDynamicConfig, 0);
    EXPECT_EQ(DynamicConfig.StaticConfig, 0);
    EXPECT_EQ(Setting("SoftKey_Des", "Transfer"), "(none)") << "an empty label is stored empty";

    // with a stored configuration the first difference alone is traced
    DynamicConfig.LastActionState = 1;
    ResetSetConfig();
    SetConfig.SoftKeysAnnounced = 4;
    TraceLines();
    HandleSkInfoAck(1, Texts({{2, "Swap"}, {0, " Two "}, {1, "End"}, {7, "x"}}));
    EXPECT_THAT(TraceLines(),
                ElementsAre("SkId:2 - 'Swap'", "DIFF SkId:0 ''->'Two'", "SkId:0 - 'Two'", "SkId:1 - 'End'",
                            "Reception d'une SK d'ID > MAX_TA_SK", " nb_of_info_rcvd:4 - nb_sk_include:4 ",
                            "Sk sauvegardé ini - diff", "String non sauvegardé ini - idem"));
}

TEST_F(Dialogue, TextsLongerThanTheirEntryAreCutAndNotTakenForNews) {
    DynamicConfig.LastActionState = 1;
    Associate(3);
    for (int round = 0; round < 2; ++round) {
        SetConfig.SoftKeysAnnounced = SetConfig.CodesAnnounced = SetConfig.StringsAnnounced = 1;
        HandleStringInfoAck(1, Texts({{1, "A text of more than thirty-one characters"}}));
        HandleSkInfoAck(1, Texts({{0, "Second call"}}));
        HandleCodeInfoAck(1, Texts({{0, "123456"}}));
        EXPECT_EQ(SetConfig.SoftKeysChanged, round == 0) << round;
        EXPECT_EQ(SetConfig.StringsChanged, round == 0) << round;
        EXPECT_EQ(Setting("Service_Code", "ForwardingImm"), round == 0 ? "1234" : "(none)");
        RegDeleteSection("Service_Code");
        SetConfig.SoftKeysChanged = SetConfig.StringsChanged = false;
    }
    EXPECT_STREQ(Settings.SoftKeyLabels[0], "Second");
    EXPECT_STREQ(Settings.SoftKeyLabels[1], "") << "the next entry is untouched";
    EXPECT_STREQ(Settings.DisplayStrings[1], "A text of more than thirty-one ");
    EXPECT_STREQ(Settings.DisplayStrings[2], "");
}

TEST_F(Dialogue, CodesAreSavedByTheMessageThatChangesOneAndEndsThem) {
    Associate(3);
    SetConfig.CodesAnnounced = 3;
    TraceMask = TRACE_CONFIG;
    Requests();
    TraceLines();
    HandleCodeInfoAck(1, Texts({{0, "61"}, {7, "9"}}));
    EXPECT_THAT(TraceLines(), ElementsAre("CodeId:0 - 61", "Reception d'un code d'ID (7) > MAX_TA_CODE (6)",
                                          " nb_of_info_rcvd:2 - nb_code_include:2 "));
    EXPECT_THAT(Requests(), ElementsAre("20 from 2"));
    EXPECT_EQ(Setting("Dynamic_Set_Conf", "LastAction"), "success") << "recorded after each message";
    HandleCodeInfoAck(1, Texts({{0, "6"}}));
    EXPECT_THAT(TraceLines(), ElementsAre("CodeId:0 - 6", " nb_of_info_rcvd:3 - nb_code_include:1 ",
                                          " Set Configuration processed - OK ******************"))
        << "the stored code begins with it: no change in this message, nothing saved";
    EXPECT_STREQ(Settings.ServiceCodes[0], "61");
    EXPECT_EQ(Setting("Service_Code", "ForwardingImm"), "(none)");
}

TEST_F(Dialogue, InformationIsAskedForByTheLowByteOfTheCount) {
    Associate(3);
    HandleKeyAck(1, Bytes()(12));
    Requests();
    for (int i = 0; i < 8; ++i)
        HandleKeyInfoAck(1, Bytes()(255));
    HandleKeyInfoAck(1, Bytes()(0));
    const std::vector<std::string> requests = Requests();
    EXPECT_EQ(requests.at(0), "8 from 255");
    EXPECT_EQ(requests.at(1), "8 from 254");
    EXPECT_EQ(requests.at(8), "8 from 248") << "a message without entries asks the same again";
}

TEST_F(Dialogue, SpecialKeysAreTracedByKindAndSavedBesideTheOthers) {
    Associate(3);
    HandleKeyAck(1, Bytes()(1));
    HandleKeyInfoAck(1, Keys({{1, "4711"}}));
    TraceMask = TRACE_CONFIG;
    TraceLines();
    HandleKeySpeAck(1, Bytes()(1)(1)(1)(1));
    HandleKeySpeInfoAck(1, Bytes()(4)(5)(10).Counted("d")(6)(9).Counted("c")(7)(8).Counted("b")(8)(7).Counted("a"));
    EXPECT_THAT(TraceLines(),
                ElementsAre("Nbre touch Superv     :1", "Nbre touch Patron     :1", "Nbre touch Secretaire :1",
                            "Nbre touch Sec Debord :1", "Secretaire Debord TouchId:05 - :d",
                            "Secretaire TouchId:06 - :c", "Patron     TouchId:07 - :b", "Superv     TouchId:08 - :a",
                            " nb_of_info_rcvd:4 - nb_touch_include:4 "));
    const std::string text = IniFile();
    EXPECT_THAT(text, testing::HasSubstr("[Set_Des]\r\nT01=M4711\r\nT08=SUa\r\nT07=EXb\r\nT06=SEc\r\nT05=RSd\r\n"));
    EXPECT_EQ(Setting("Set_Des", "T01"), "M4711") << "the section is not deleted first";
    EXPECT_EQ(TouchTable[5].kind, TOUCH_SECR_DEBORD);
    EXPECT_EQ(TouchTable[6].kind, TOUCH_SECRETAIRE);
}

}  // namespace
