// What the display says about calls: traces and events in their order. Active key 1, call 0 unless said otherwise.
#include "config/settings.h"
#include "support/requests.h"

#include <cstring>
#include <tuple>

namespace {

using Given = std::function<void()>;

class DisplayText : public Requests {
protected:
    struct Row {
        std::string situation;  // as Stand takes it: keys and states, "1H- 1C"
        const char* text;
        std::string steps;
        Given also = {};
    };
    std::string Shown(int line, std::string_view text) {
        Display(line, text);
        return Steps();
    }
    void Check(int line, const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            Stand(row.situation, "");
            if (row.also)
                row.also();
            EXPECT_EQ(Shown(line, row.text), row.steps) << row.text;
        }
    }
    static void Version(int version) { ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(version); }
};

TEST_F(DisplayText, SoftKeyLine) {
    const std::string answered = " | STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0 cas ",
                      gone = "Icone:1  - Etat:IDLE - Ref:1", left = "Icone:1  - Etat:DISCONNECTED - Ref:1",
                      begun = "Detection de Fin2App | Fin2App 1 appel en cours EnqCallMode ",
                      held =
                          "1 | STATE 0 ONHOLD | DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_HOLD, 0, cref:0000) | ",
                      dialtone = " | STATE 1 DIALTONE | DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_DIALTONE, 0, "
                                 "cref:0001)";
    Settings.EnquiryCallMode = 1;
    Check(1,
          {
              {"1P @0", "2eApp", ""},
              {"1T", "        2eApp",
               "Apparition de 2App - 1 appel DIALTONE -> Interception | STATE 0 DIALING | STATE 0 PROCEEDING | "
               "STATE 0 RINGBACK" +
                   answered + "6.1"},
              {"1P", "Conf", "Apparition de Conf - 1 appel proceeding" + answered + "10"},
              {"1H 1P", "VaVien",
               "VaVien detected | VaVien avec 2 appels en cours sur Icone:1  | VaVien avec 1 appel ONHOLD et 1 appel "
               "PROCEEDING  | STATE 1 CONNECTED | Icone:1 - Etat: CONNECTED - Ref:1"},
              {"1H 1P", "2eApp", left + " | STATE 1 DISCONNECTED 1 | STATE 1 IDLE | " + gone + answered + "7"},
              {"1H- 1C", "2eApp", "Icone:1  - Etat:DISCONNECTED - Ref:0 | Icone:1  - Etat:IDLE - Ref:0"},
              {"1H 1C", "2eApp",
               "Icone:1  - Etat:DISCONNECTED - Ref:0 | STATE 0 DISCONNECTED 1 | STATE 0 IDLE | Icone:1  - Etat:IDLE - "
               "Ref:0"},
              {"1H 1C", "2eApp", left + " | STATE 1 DISCONNECTED 1" + answered + "8 | STATE 1 IDLE | " + gone,
               [] { Tracking.SecondCallDropReq = 1; }},
              {"1H 1D", "2eApp", answered.substr(3) + "9 | " + gone + " | STATE 1 IDLE"},
              {"1H 1P", "Transf", "", [] { Tracking.ConferenceReq = 1; }},
              {"1C", "Fin2Ap", begun + held.substr(0, held.size() - 3),
               [] {
                   for (int cref = 1; cref < CALL_COUNT; ++cref)  // no record for the second call
                       Record(cref).touch = 5;
               }},
              {"1P", "Fin2Ap", begun + "1"},
              {"1C", "Fin2Ap", begun + held + "NEWCALL 1" + dialtone,
               [] {
                   RunningRequest = {REQUEST_SETUP_TRANSFER, 5, 6};
               }},
          });
    EXPECT_EQ(RunningRequest.ConsultCref, 6) << "another call's transfer";
    Check(1, {{"1W 1P", "VaVien",
               "VaVien detected | VaVien avec 2 appels en cours sur Icone:1  | VaVien avec 1 appel ONHOLD et 1 appel "
               "PROCEEDING  | STATE 1 CONNECTED | Icone:1 - Etat: CONNECTED - Ref:1",
               [] { Tracking.DbCall = 0; }}});
    EXPECT_EQ(Tracking.DbCall, 1);
    Check(1, {{"1C", "Fin2Ap", begun + held + "REPLY 9 0 | sendCompletion SetupTransfer " + dialtone, [&] {
                   RunningRequest = {REQUEST_SETUP_TRANSFER, 0, Call(12, 0, IDLE)};
               }}});
    EXPECT_THAT(At(1).calls, ElementsAre(0, 1));
    EXPECT_EQ(Record(1).touch, 1);
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    Settings.EnquiryCallMode = 0;
    Check(1, {{"1C", "Fin2Ap", begun + "0"},
              {"1P", "2eApp", "Apparition de 2App - 1 appel procedding" + answered + "6",
               [] { Tracking.PickUpCref = 0; }}});
    EXPECT_EQ(Tracking.PickUpCref, -1) << "picked up: the next line key is an ordinary one";
    Version(1);
    Stand("1T", "");
    EXPECT_THAT(Shown(1, "2eApp"), testing::HasSubstr("cas 6.1 | Enquiry connected call name"));
}

TEST_F(DisplayText, DropOfAnEarlierSecondCallIsNotTheNextOnes) {
    Settings.EnquiryCallMode = 1;
    for (const auto& [situation, line, text] :
         {std::tuple{"1C", 0, "Numero:"}, {"1C", 1, "Fin2Ap"}, {"1H 1P", 1, "VaVien"}}) {
        Stand(situation, "");
        Tracking.SecondCallDropReq = 1;
        Display(line, text);
        EXPECT_EQ(Tracking.SecondCallDropReq, 0) << text;
    }
}

TEST_F(DisplayText, BlindTransferIsOverWithItsSoftKey) {
    RunningRequest = {REQUEST_BLIND_TRANSFER, 0, -1};
    Display(1, std::string(35, ' ') + "Transf");
    EXPECT_EQ(RunningRequest.Code, REQUEST_BLIND_TRANSFER) << "cut at the end of the line: none";
    Display(1, std::string(34, ' ') + "Transf");
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
}

TEST_F(DisplayText, PhoneIsToldOfAConnectedPartyWhoHangsUp) {
    for (const auto& [situation, times] : {std::pair{"1C", 1u}, {"1P", 0u}}) {
        Stand(situation, "");
        Events();
        Display(0, "Raccrochez");
        EXPECT_THAT(Events(), testing::Contains("PHONE DISCONNECTED").Times(times)) << situation;
    }
}

TEST_F(DisplayText, InformationLine) {
    const std::string held = "ST_Dial trouve Icone:1  - Etat:ONHOLD - Ref:0 | STATE 0 ONHOLD",
                      asked = "byMakeCall:0,inbound:1,outbound:0", left = "Icone:1  - Etat:DISCONNECTED - Ref:1";
    const Given allTaken = [] {
        for (int cref = 1; cref < CALL_COUNT; ++cref)
            Record(cref).touch = 5;
    };
    Check(0, {
                 {"1T 1P", "Raccrochez", asked + " | STATE 1 DISCONNECTED 1 | " + left},
                 {"1C 1P", "Raccrochez", asked + " | STATE 1 DISCONNECTED 1 | " + left},
                 {"1C 1T", "Raccrochez", asked + " | STATE 1 DISCONNECTED 1 | " + left},
                 {"1C", "Raccrochez", "STATE 0 DISCONNECTED 1 | Icone:1  - Etat:DISCONNECTED - Ref:0"},
                 {"1H", "Raccrochez, Annulez 2e", "Annulez le 2eAppel ActivCallTouch 1"},
                 {"1C-", "Annulez 2e", "Annulez le 2eAppel ActivCallTouch 1 | Icone:1 - Etat:DISCONNECTED - Ref:0"},
                 {"", "Annulez 2e", "Annulez le 2eAppel ActivCallTouch 0"},
                 {"1C 1H", "Annulez 2e",
                  "Annulez le 2eAppel ActivCallTouch 1 | STATE 0 DISCONNECTED 1 | Icone:1 - Etat:DISCONNECTED - Ref:0"},
             });
    EXPECT_EQ(Tracking.DbCall, 0);
    Check(0, {
                 {"1C", "Numero:", held + " | NEWCALL 1 | Icone:1  - Etat:DIALTONE - Ref:0001 | STATE 1 DIALTONE"},
                 {"1C", "Numero:", held, allTaken},
                 {"1P", "Numero:", ""},
                 {"1P", "Annulez 2e", "Annulez le 2eAppel ActivCallTouch 1"},
                 {"1T 1H", "4720", ""},
                 {"1T", "4720", "", [] { Tracking.PickUpCref = 5; }},
                 {"1T", "x4720", ""},
                 {"1T", "4720/",
                  "STATE 0 DIALING | STATE 0 PROCEEDING | Icone:1 - Etat:PROCEEDING - Ref:0 cas 2 | STATE 0 RINGBACK | "
                  "TmpAddress:'4720/'",
                  [] { Version(1), Record(0).Outbound = 1; }},
             });
    Display(0, "MARTIN  ");
    EXPECT_STREQ(Record(0).DestName, "MARTIN") << "as soon as the number has left the display";
    Display(0, "Numero:   12 34");
    EXPECT_STREQ(TmpAddress, "12 ");
    Call(2, 0, PROCEEDING, false);
    Steps();
    EXPECT_EQ(Shown(0, "MARTIN"), "") << "two calls: whose number was it?";
    EXPECT_STREQ(TmpAddress, "");
}

// A name that is still to be read waits for the whole line; a caller for a write of line 0 that changes something.
TEST_F(DisplayText, OnlyWholeWritesOfLine0AreRead) {
    Version(1);
    Stand("1C", "");
    Tracking.OfferInfoCref = Call(3, 0, OFFERING);
    Record(0).DispNamePending = 1;
    std::memcpy(::Display.Lines[0], "3:4720", 6);
    DisplayChanged(0, 3, 3, true);
    DisplayChanged(1, 0, 40, true);
    EXPECT_EQ(Steps(), "");
    DisplayChanged(0, 0, 6, false);
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 1 OFFERING", "INFO 1 CALLERID|CALLEDID"));
    EXPECT_EQ(Record(0).DispNamePending, 1);
    DisplayChanged(0, 0, 6, true);
    EXPECT_EQ(Record(0).DispNamePending, 0);
}

TEST_F(DisplayText, NameAndNumberOfACallBeingSetUp) {
    struct Case {
        const char* line;
        const char *calledName, *calledAddress;  // known from the PBX already
        const char *name, *number;               // DestName and DestAddress afterwards
        bool reported;
    };
    const Case cases[] = {
        {"MARTIN 4720", "", "", "MARTIN", "", true},
        {"=>MARTIN 4720", "", "", "MARTIN", "4720", true},
        {"=>4720", "", "", "", "4720", true},
        {"=>4720", "", "9", "", "4720", false},
        {"LE GO/J 47", "X", "", "LE GO/J", "", false},
        {"MARTIN 4720", "X", "9", "", "", false},
        {"/4720", "", "", "", "", false},
        // to the last column
        {"MARTINMARTINMARTINMARTINMARTINMARTINMART", "", "", "MARTINMARTINMARTINMARTINMARTINMARTINMART", "", true},
        {"MARTINMARTINMARTINMARTINMARTINMARTINMAR ", "X", "", "MARTINMARTINMARTINMARTINMARTINMARTINMAR ", "", false},
        {"=>MARTIN 4720123456789012345678901234567", "", "", "MARTIN", "4720123456789012345678901234567", true},
    };
    Version(1);
    for (const Case& c : cases) {
        Fresh();
        Call(1, 0, PROCEEDING, false);
        Active(1);
        CopyText(Record(0).CalledName, c.calledName);
        CopyText(Record(0).CalledAddress, c.calledAddress);
        Record(0).DispNamePending = 1;
        Display(0, c.line);
        EXPECT_EQ(LineEvents().size(), c.reported ? 1u : 0u) << c.line;
        EXPECT_STREQ(Record(0).DestName, c.name) << c.line;
        EXPECT_STREQ(Record(0).DestAddress, c.number) << c.line;
    }
    const auto told = [](const std::string& change) {
        return " | DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_" + change + ", 0, cref:0) | INFO 0 " + change;
    };
    const std::string connected = told("CONNECTEDID"), caller = told("CALLERID") + connected;
    const std::tuple<const char*, const char*, const char*, std::string> answered[] = {
        {"=>DUPONT 4720  ", "DUPONT", "4720", caller},
        {"DUPONT J/4720", "DUPONT J", "4720", caller},
        {"DUPONT  ", "DUPONT", "", connected},
        {"4720 DUPONT", "", "9", ""},
        {"  DUPONT", "", "9", ""},
    };
    for (const auto& [line, name, address, sent] : answered) {
        Stand("1C", "");
        Record(0).DispNamePending = 1;
        CopyText(Record(0).ConnectedAddress, "9");
        const std::string steps = Shown(0, line);
        EXPECT_EQ(steps.substr(std::min(steps.find(" | DoLineEvent"), steps.size())), sent) << line;
        EXPECT_STREQ(Record(0).ConnectedName, name);
        EXPECT_STREQ(Record(0).ConnectedAddress, address);
        EXPECT_STREQ(Record(0).DestAddress, sent == caller ? address : "");
    }
}

TEST_F(DisplayText, NameOfTheAnsweredParty) {
    const std::string full = " | i:0 - PartialAddress:4720", shorter = " | i:1 - PartialAddress:472",
                      shortest = " | i:2 - PartialAddress:47", found = " | numpos | On récupère le nom",
                      reported = " | DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_CALLEDID, 0, cref:0) | "
                                 "INFO 0 CALLEDID";
    const std::tuple<const char*, int, const char*, std::string> cases[] = {
        {"MARTIN 4720", 1, "MARTIN", full + found + reported},
        {"MARTIN 47", 0, "MARTIN", full + shorter + shortest + found + reported},
        {"4720", 1, "", full + " | numpos | le display ne contient que le numéro de l'appelé"},
        {"4720", 0, "4720", full + found + reported},
        {"MARTIN /x", 0, "MARTIN", full + shorter + shortest + reported},
        {"  x", 0, "", ""},
        {"MARTINMARTINMARTINMARTINMARTINMARTI 4720", 1, "MARTINMARTINMARTINMARTINMARTINMARTI", full + found + reported},
        {"MARTINMARTINMARTINMARTINMARTINMART 4720 ", 1, "MARTINMARTINMARTINMARTINMARTINMART", full + found + reported},
    };
    Version(1);
    for (const auto& [line, byMakeCall, name, steps] : cases) {
        Fresh();
        Display(0, line);
        Stand("1P", "");
        CopyText(Record(0).DestAddress, "4720");
        Record(0).byMakeCall = byMakeCall;
        Steps();
        const std::string shown = Shown(1, "Conf");
        const std::size_t at = shown.find("Extract connected 1 TmpDestName ");
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(shown.substr(std::min(shown.find(" | ", at), shown.size())), steps) << line;
        EXPECT_STREQ(Record(0).DestName, name) << line;
        EXPECT_EQ(Record(0).DispNamePending, 1);
    }
}

TEST_F(DisplayText, CallersAreReadFromLine0OnceForTheirKey) {
    struct Case {
        int version, prefixShown;
        const char *line, *address, *name;
        DWORD origin;
        std::string judged;
    };
    const Case cases[] = {
        {2, 0, "3:0145678901  12:00", "0145678901", "", LINECALLORIGIN_UNKNOWN, ""},
        {2, 0, "3:DUPONT Jean  x", "", "DUPONT Jean", LINECALLORIGIN_UNKNOWN, ""},
        {2, 0, "3:4720123456789012345678901234567890123 ", "4720123456789012345678901234567890123 ", "",
         LINECALLORIGIN_UNKNOWN, ""},
        {1, 1, "3:0145678901", "145678901", "", LINECALLORIGIN_EXTERNAL,
         "GetCallInfo prefix trouve len 1 origin EXTERNAL | "},
        {1, 1, "3:4720", "4720", "", LINECALLORIGIN_INTERNAL, "no prefix =>origin INTERNAL | "},
        {1, 0, "3:123456789", "123456789", "", LINECALLORIGIN_EXTERNAL, "origin EXTERNAL | "},
        {1, 0, "3:12345678", "12345678", "", LINECALLORIGIN_INTERNAL, "origin INTERNAL | "},
    };
    CopyText(Settings.ExtPrefix, "0");
    for (const Case& c : cases) {
        Fresh();
        Version(c.version);
        Settings.ExtPrefixDisp = c.prefixShown;
        Active(2);
        Icon(3, INCOM_ICON);
        EXPECT_EQ(Shown(0, "1:4720"), "NEWCALL 0") << "another key";
        const std::string party = *c.name != 0 ? std::string("nom du correspondant:") + c.name
                                               : std::string("numéro du correspondant:") + c.address;
        EXPECT_THAT(Shown(0, c.line),
                    testing::EndsWith("- | " + c.judged + "GetCallInformation - Récupération du " + party +
                                      " | - Etat:OFFERING - Ref:0 | STATE 0 OFFERING | INFO 0 CALLERID|CALLEDID"));
        EXPECT_STREQ(Record(0).DestAddress, c.address);
        EXPECT_STREQ(Record(0).DestName, c.name);
        EXPECT_EQ(Record(0).Origin, c.origin) << c.line;
        EXPECT_EQ(Shown(0, c.line), "");
    }
    Fresh();
    Icon(1, INCOM_ICON);
    Icon(1, ACTIV_ICON);
    EXPECT_EQ(Tracking.OfferInfoCref, -1);
    EXPECT_EQ(Record(0).DispNamePending, 1);
    Steps();
    EXPECT_THAT(Shown(0, "DUPONT  "), testing::EndsWith("UnknownConnectedCall:0) | INFO 0 CALLERID|CALLEDID"))
        << "answered before its caller showed";
    EXPECT_STREQ(Record(0).DestName, "DUPONT");
    EXPECT_EQ(Tracking.UnknownConnectedCall, -1);
    Fresh();
    Icon(1, INCOM_ICON);
    Icon(1, ACTIV_ICON);
    Shown(0, "47  DUPONT");
    EXPECT_EQ(std::string(Record(0).DestAddress) + "/" + Record(0).DestName, "47/");
    // An offered call on key 3, a waiting one on key 1, an answered one: whose party the line tells.
    for (const auto& [line, told] :
         {std::pair{"1:47201234567890123456789012345678901234", 1}, {"DUPONT  ", 2}, {"3:4720", 0}}) {
        Fresh();
        Active(2);
        Tracking.OfferInfoCref = Call(3, 0, OFFERING);
        WaitInfo[0] = Call(1, 0, OFFERING);
        Tracking.UnknownConnectedCall = Call(2, 0, CONNECTED);
        Display(0, line);
        EXPECT_THAT(LineEvents(), testing::Contains("INFO " + std::to_string(told) + " CALLERID|CALLEDID")) << line;
        EXPECT_EQ((Tracking.OfferInfoCref == -1) + 2 * (WaitInfo[0] == -1) + 4 * (Tracking.UnknownConnectedCall == -1),
                  1 << told);
    }
    // Of calls that have ended, and stand on no key: no duration tells their party.
    Fresh();
    Active(2);
    Tracking.OfferInfoCref = 4;
    WaitInfo[0] = 5;
    Record(4).state = Record(5).state = IDLE;
    EXPECT_EQ(Shown(0, "0:15"), "");
}

TEST_F(DisplayText, CallersWhoseNumberThePbxHasSent) {
    for (const int version : {0, 1, 2})
        for (const bool known : {false, true}) {
            SCOPED_TRACE(version);
            Version(version);
            const std::string info = known && version != 1 ? "" : "INFO 0 CALLERID|CALLEDID";
            Fresh();
            Active(2);
            TraceMask = TRACE_CALL;
            Icon(3, INCOM_ICON);
            CopyText(Record(0).CallerAddress, known ? "4720" : "");
            EXPECT_EQ(Shown(0, "3:DUPONT"),
                      "NEWCALL 0 | - Etat:OFFERING - Ref:0 | STATE 0 OFFERING" + (info.empty() ? "" : " | " + info));
            Fresh();
            Active(2);
            WaitInfo[2] = Call(3, 0, OFFERING);
            CopyText(Record(0).CallerAddress, known ? "4720" : "");
            EXPECT_EQ(Shown(0, "3:4720  x"), info);
            EXPECT_STREQ(Record(0).DestAddress, "4720 ");
            EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_UNAVAIL) << "not told for a waiting call";
            EXPECT_EQ(WaitInfo[2], -1);
        }
    DynamicConfig.StaticConfig = 1;
    Fresh();
    Icon(3, INCOM_ICON);
    EXPECT_TRUE(Shown(0, "3:" + std::string(36, '4') + " x").ends_with(" | INFO 0 CALLERID"))
        << "the stored configuration is in use";
    EXPECT_EQ(Record(0).DestAddress, std::string(36, '4') + " x") << "one blank does not end it, the line does";
}

}  // namespace
