// What the display says about calls: traces and events in their order. Active key 1, call 0 unless said otherwise.
#include "support/tracked.h"

#include <cstring>
#include <functional>

namespace {

using Given = std::function<void()>;

class DisplayText : public TrackedSet {
protected:
    Given One(DWORD state, bool directed = true) {
        return [=, this] {
            Call(1, 0, state, false);
            Active(1);
            if (!directed)
                Undirected(0);
        };
    }
    Given Two(DWORD first, DWORD second, int dropRequested = 0) {
        return [=, this] {
            Double(first, second);
            Tracking.SecondCallDropReq = dropRequested;
        };
    }
    std::string Shown(int line, std::string_view text) {
        Display(line, text);
        return Steps();
    }
    struct Row {
        Given given;
        int line;
        const char* text;
        const char* steps;
    };
    void Check(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            Fresh();
            row.given();
            EXPECT_EQ(Shown(row.line, row.text), row.steps);
        }
    }
};

TEST_F(DisplayText, SoftKeyLine) {
    const Given transfer = [&] {
        One(CONNECTED)();
        Settings.EnquiryCallMode = 1;
        RunningRequest = {REQUEST_SETUP_TRANSFER, 0, Call(12, 0, IDLE)};
        ProviderState.PendingRequestID = 7;
    };
    Check({
        {[&] { Call(1, 0, PROCEEDING); }, 1, "2eApp", ""},
        {One(PROCEEDING), 1, "2eApp",
         "Apparition de 2App - 1 appel procedding | STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0 cas 6"},
        {One(DIALTONE), 1, "        2eApp",
         "Apparition de 2App - 1 appel DIALTONE -> Interception | STATE 0 DIALING | STATE 0 PROCEEDING | "
         "STATE 0 RINGBACK | STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0 cas 6.1"},
        {One(PROCEEDING), 1, "Conf",
         "Apparition de Conf - 1 appel proceeding | STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0 cas 10"},
        {Two(ONHOLD, PROCEEDING), 1, "VaVien",
         "VaVien detected | VaVien avec 2 appels en cours sur Icone:1  | "
         "VaVien avec 1 appel ONHOLD et 1 appel PROCEEDING  | STATE 1 CONNECTED | Icone:1 - Etat: CONNECTED - Ref:1"},
        {Two(ONHOLD, PROCEEDING), 1, "2eApp",
         "Icone:1  - Etat:DISCONNECTED - Ref:1 | STATE 1 DISCONNECTED 1 | STATE 1 IDLE | "
         "Icone:1  - Etat:IDLE - Ref:1 | STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0 cas 7"},
        {[&] { Double(ONHOLD, CONNECTED), Undirected(0); }, 1, "2eApp",
         "Icone:1  - Etat:DISCONNECTED - Ref:0 | Icone:1  - Etat:IDLE - Ref:0"},
        {Two(ONHOLD, CONNECTED, 1), 1, "2eApp",
         "Icone:1  - Etat:DISCONNECTED - Ref:1 | STATE 1 DISCONNECTED 1 | STATE 0 CONNECTED | "
         "Icone:1  - Etat:CONNECTED - Ref:0 cas 8 | STATE 1 IDLE | Icone:1  - Etat:IDLE - Ref:1"},
        {Two(ONHOLD, DISCONNECTED), 1, "2eApp",
         "STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0 cas 9 | Icone:1  - Etat:IDLE - Ref:1 | STATE 1 IDLE"},
        {One(CONNECTED), 1, "Fin2Ap", "Detection de Fin2App | Fin2App 1 appel en cours EnqCallMode 0"},
        {transfer, 1, "Fin2Ap",
         "Detection de Fin2App | Fin2App 1 appel en cours EnqCallMode 1 | STATE 0 ONHOLD | "
         "DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_HOLD, 0, cref:0000) | REPLY 7 0 | "
         "sendCompletion SetupTransfer  | STATE 1 DIALTONE | "
         "DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_DIALTONE, 0, cref:0001)"},
    });
    EXPECT_THAT(At(1).calls, ElementsAre(0, 1));  // of the last row
    EXPECT_EQ(Record(1).touch, 1);
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
}

TEST_F(DisplayText, BlindTransferPressesItsSoftKeyWhenItShows) {
    RunningRequest = {REQUEST_BLIND_TRANSFER, 0, -1};
    ProviderState.PendingRequestID = 7;
    EXPECT_EQ(Shown(1, "Conf"), "");
    EXPECT_THAT(Shown(1, "                        Transf"),
                testing::StartsWith("Softkey 6 n°:4 | BlindTransfer Running TRANSF softkey detected=> pushed | "));
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_EQ(ProviderState.PendingRequestID, 0u);
    for (const auto& [column, position] : {std::pair{0, 1}, {7, 1}, {8, 2}, {31, 4}, {32, 5}, {34, 5}, {35, 0}}) {
        Display(1, std::string(static_cast<std::size_t>(column), ' ') + "Transf");
        EXPECT_EQ(SoftKeyPosition(SK_TRANSFER), position) << column << ", cut at the end of the line";
    }
    Steps();
    SoftKeyPosition(SK_SWAP);
    SoftKeyPositionTraced(SK_SWAP);
    EXPECT_EQ(Steps(), "Softkey 2 n°:0") << "only the second says that it is absent";
}

TEST_F(DisplayText, InformationLine) {
    const Given allTaken = [&] {
        One(CONNECTED)();
        for (int cref = 1; cref < CALL_COUNT; ++cref)
            Record(cref).touch = 5;
    };
    Check({
        {One(DIALTONE), 0, "Raccrochez",
         "byMakeCall:0,inbound:0,outbound:1 | STATE 0 DISCONNECTED 1 | Icone:1  - Etat:DISCONNECTED - Ref:0"},
        {One(CONNECTED, false), 0, "Annulez 2e",
         "Annulez le 2eAppel ActivCallTouch 1 | Icone:1 - Etat:DISCONNECTED - Ref:0"},
        {[] {}, 0, "Annulez 2e", "Annulez le 2eAppel ActivCallTouch 0"},
        {One(CONNECTED), 0, "Numero:",
         "ST_Dial trouve Icone:1  - Etat:ONHOLD - Ref:0 | STATE 0 ONHOLD | NEWCALL 1 | "
         "Icone:1  - Etat:DIALTONE - Ref:0001 | STATE 1 DIALTONE"},
        {allTaken, 0, "Numero:", "ST_Dial trouve Icone:1  - Etat:ONHOLD - Ref:0 | STATE 0 ONHOLD"},
        {Two(DIALTONE, ONHOLD), 0, "4720", ""},
        {[&] { One(DIALTONE)(), Tracking.PickUpCref = 5; }, 0, "4720", ""},
        {One(DIALTONE), 0, "x4720", ""},
    });
    Fresh();
    ProviderState.TAPI_OMNA_Ver = 1;
    One(DIALTONE)();
    EXPECT_EQ(Shown(0, "4720/"), "STATE 0 DIALING | STATE 0 PROCEEDING | Icone:1 - Etat:PROCEEDING - Ref:0 cas 2 | "
                                 "STATE 0 RINGBACK | TmpAddress:'4720/'");
    Display(0, "Numero:   12 34");
    EXPECT_STREQ(TmpAddress, "12 ");
    Call(2, 0, PROCEEDING, false);
    Steps();
    EXPECT_EQ(Shown(0, "MARTIN"), "") << "two calls: whose number was it?";
    EXPECT_STREQ(TmpAddress, "");
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
    };
    ProviderState.TAPI_OMNA_Ver = 1;
    for (const Case& c : cases) {
        Fresh();
        One(PROCEEDING)();
        CopyText(Record(0).CalledName, c.calledName);
        CopyText(Record(0).CalledAddress, c.calledAddress);
        Record(0).DispNamePending = 1;
        Display(0, c.line);
        EXPECT_EQ(LineEvents().size(), c.reported ? 1u : 0u) << c.line;
        EXPECT_STREQ(Record(0).DestName, c.name) << c.line;
        EXPECT_STREQ(Record(0).DestAddress, c.number) << c.line;
        TraceLines();
    }
    const struct {
        const char *line, *name, *address;
        std::vector<std::string> events;
    } connected[] = {
        {"=>DUPONT 4720  ", "DUPONT", "4720", {"INFO 0 CALLERID", "INFO 0 CONNECTEDID"}},
        {"DUPONT J/4720", "DUPONT J", "4720", {"INFO 0 CALLERID", "INFO 0 CONNECTEDID"}},
        {"DUPONT  ", "DUPONT", "", {"INFO 0 CONNECTEDID"}},
        {"4720 DUPONT", "", "9", {}},
        {"  DUPONT", "", "9", {}},
    };
    for (const auto& c : connected) {
        Fresh();
        Call(1, 0, CONNECTED);
        Active(1);
        Record(0).DispNamePending = 1;
        CopyText(Record(0).ConnectedAddress, "9");
        Display(0, c.line);
        EXPECT_EQ(LineEvents(), c.events) << c.line;
        EXPECT_STREQ(Record(0).ConnectedName, c.name);
        EXPECT_STREQ(Record(0).ConnectedAddress, c.address);
        EXPECT_STREQ(Record(0).DestAddress, c.events.size() == 2 ? c.address : "");
    }
    Fresh();
    One(CONNECTED)();
    Record(0).DispNamePending = 1;
    ::Display.Lines[0][39] = 'x';
    EXPECT_EQ(Shown(0, "=>LE \x85 4720"),
              "Remontee du nom et adresse en etat connected cref 0 | RequestDispName disp 0 ->'=>LE … 4720" +
                  std::string(29, ' ') +
                  "' | RequestDispName Renvoi | "
                  "NamePresent 1 AddressPresent 1 TmpName 'LE à' len 4 PosName 2 PosAddress 7 | "
                  "RequestDispName TmpAddress '4720' len 4 PosName 2 PosAddress 7 | "
                  "DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_CONNECTEDID, 0, cref:0) | INFO 0 CONNECTEDID")
        << "an outgoing call has no caller to report";
}

TEST_F(DisplayText, NameOfTheAnsweredParty) {
    struct Case {
        const char* line;
        int byMakeCall;
        const char* name;
        std::string steps;
    };
    const std::string full = " | i:0 - PartialAddress:4720", shorter = " | i:1 - PartialAddress:472",
                      shortest = " | i:2 - PartialAddress:47", found = " | numpos | On récupère le nom",
                      reported = " | DoLineEvent\t(LINE_CALLINFO,LINECALLINFOSTATE_CALLEDID, 0, cref:0) | "
                                 "INFO 0 CALLEDID";
    const Case cases[] = {
        {"MARTIN 4720", 1, "MARTIN", full + found + reported},
        {"MARTIN 47", 0, "MARTIN", full + shorter + shortest + found + reported},
        {"4720", 1, "", full + " | numpos | le display ne contient que le numéro de l'appelé"},
        {"4720", 0, "4720", full + found + reported},
        {"MARTIN /x", 0, "MARTIN", full + shorter + shortest + reported},
        {"  x", 0, "", ""},
    };
    ProviderState.TAPI_OMNA_Ver = 1;
    for (const Case& c : cases) {
        Fresh();
        Display(0, c.line);
        One(PROCEEDING)();
        CopyText(Record(0).DestAddress, "4720");
        Record(0).byMakeCall = c.byMakeCall;
        Steps();
        const std::string steps = Shown(1, "Conf"), extract = "Extract connected 1 TmpDestName ";
        const std::size_t at = steps.find(extract);
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(steps.substr(std::min(steps.find(" | ", at), steps.size())), c.steps) << c.line;
        EXPECT_STREQ(Record(0).DestName, c.name) << c.line;
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
        {1, 1, "3:0145678901", "145678901", "", LINECALLORIGIN_EXTERNAL,
         "GetCallInfo prefix trouve len 1 origin EXTERNAL | "},
        {1, 1, "3:4720", "4720", "", LINECALLORIGIN_INTERNAL, "no prefix =>origin INTERNAL | "},
        {1, 0, "3:123456789", "123456789", "", LINECALLORIGIN_EXTERNAL, "origin EXTERNAL | "},
        {1, 0, "3:12345678", "12345678", "", LINECALLORIGIN_INTERNAL, "origin INTERNAL | "},
    };
    CopyText(Settings.ExtPrefix, "0");
    for (const Case& c : cases) {
        Fresh();
        ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(c.version);
        Settings.ExtPrefixDisp = c.prefixShown;
        Active(2);
        Icon(3, INCOM_ICON);
        EXPECT_EQ(Shown(0, "1:4720"), "NEWCALL 0") << "another key";
        const std::string party = *c.name != 0 ? std::string("nom du correspondant:") + c.name
                                               : std::string("numéro du correspondant:") + c.address;
        EXPECT_THAT(Shown(0, c.line),
                    testing::EndsWith("- | " + c.judged + "GetCallInformation - Récupération du " + party +
                                      " | - Etat:OFFERING - Ref:0 | STATE 0 OFFERING | "
                                      "INFO 0 CALLERID|CALLEDID"));
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
    EXPECT_THAT(Shown(0, "DUPONT  "),
                testing::EndsWith("DoLineEventLINE_CALLINFO,LINECALLINFOSTATE_CALLERID,UnknownConnectedCall:0) | "
                                  "INFO 0 CALLERID|CALLEDID"))
        << "answered before its caller showed";
    EXPECT_STREQ(Record(0).DestName, "DUPONT");
    EXPECT_EQ(Tracking.UnknownConnectedCall, -1);
}

TEST_F(DisplayText, DialledNumberIsHandedOnWhenItLeavesTheDisplay) {
    ProviderState.TAPI_OMNA_Ver = 1;
    Icon(1, ACTIV_ICON);
    Display(0, "Numero: 4");
    Display(0, "Numero: 4720");
    EXPECT_STREQ(TmpAddress, "4720 ");
    Display(0, "MARTIN  ");
    EXPECT_THAT(LineEvents(), ElementsAre("NEWCALL 0", "STATE 0 DIALTONE", "STATE 0 DIALING", "STATE 0 PROCEEDING",
                                          "STATE 0 RINGBACK", "INFO 0 CALLEDID", "INFO 0 CALLEDID"));
    EXPECT_STREQ(Record(0).DestAddress, "4720");
    EXPECT_STREQ(Record(0).DestName, "MARTIN");
    Call(1, 1, CONNECTED);
    Display(0, "Raccrochez");
    Events();
    Display(0, "Raccrochez");
    EXPECT_THAT(Events(), ElementsAre("STATE 1 DISCONNECTED 1", "PHONE DISCONNECTED", "PHONE DISPLAY"));
}

TEST_F(DisplayText, CallersWhoseNumberThePbxHasSent) {
    for (const int version : {0, 1, 2})
        for (const bool known : {false, true}) {
            SCOPED_TRACE(version);
            ProviderState.TAPI_OMNA_Ver = static_cast<std::uint8_t>(version);
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
    EXPECT_TRUE(Shown(0, "3:DUPONT").ends_with(" | INFO 0 CALLERID")) << "the stored configuration is in use";
    DynamicConfig.StaticConfig = 0;
    Fresh();
    Icon(3, INCOM_ICON);
    Display(0, "3:" + std::string(36, '4') + " x");
    EXPECT_EQ(Record(0).DestAddress, std::string(36, '4') + " x") << "one blank does not end it, the line does";
    Fresh();
    Key(12, TOUCH_MULTI);
    Icon(12, INCOM_ICON);
    EXPECT_EQ(Shown(0, "12:4720"), "NEWCALL 0") << "one digit only";
}

}  // namespace
