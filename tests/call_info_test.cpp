// The PBX's call-information events: which call they find, how they rewrite numbers, what they report in which order.
#include "tracking/call_info.h"

#include "support/tracked.h"

#include <cstring>

namespace {

constexpr int INTERNAL = 1, EXTERNAL = 2, NO_OPERATOR = 0x40, WITHOUT_PREFIX = 0x80;

using Handler = void (*)(std::uint8_t, std::span<const std::uint8_t>);

// A party as it stands in a message.
struct Party : std::string {
    Party(const std::string& number = "", const std::string& name = "", int flags = 0)
        : std::string(std::string{static_cast<char>(number.size()), static_cast<char>(flags)} + number +
                      static_cast<char>(name.size()) + name) {}
};

std::vector<std::uint8_t> Message(int key, int reason, const std::string& parties) {
    std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(key), static_cast<std::uint8_t>(reason)};
    bytes.insert(bytes.end(), parties.begin(), parties.end());
    bytes.shrink_to_fit();  // a byte read behind it is found
    return bytes;
}

class CallEvents : public TrackedSet {
protected:
    void SetUp() override {
        TrackedSet::SetUp();
        CopyText(Settings.ExtPrefix, "0");
        CopyText(Settings.PublicOperator, "9");
        ToldFirst = ONHOLD;
    }
    static void Incoming(int key, int reason, const Party& caller, const Party& called = {}) {
        IncomingCallInfo(1, Message(key, reason, caller + called));
    }
    static void Outgoing(int key, const Party& called) { OutgoingCallInfo(1, Message(key, 0, called)); }
    static void Connected(int key, const Party& party) { ConnectedCallInfo(1, Message(key, 0, party)); }
    // Calls placed from here in the slots of key 1, by the letters of their states; '-': none.
    void Placed(const char* letters) {
        Fresh();
        for (const int slot : {0, 1})
            if (letters[slot] != '-')
                Call(1, slot, Named(letters[slot]), false);
        Steps();
    }
    // The events alone.
    static std::string Sent() {
        const std::string out = Joined(LineEvents(), ", ");
        TraceLines();
        return out;
    }
};

TEST_F(CallEvents, NumbersAreRewrittenForDialingBack) {
    // ExtPrefix, PublicOperator, flags, received; of a received call, of one placed from here
    const std::tuple<const char*, const char*, int, const char*, const char*, const char*> rows[] = {
        {"0145", "9", 2, "014", "014", "014"},     {"0", "9", 2, "0", "", ""},
        {"", "9", 2, "0145", "0145", "0145"},      {"0", "9", 0x82, "0145", "90145", "090145"},
        {"0", "9", 0xC2, "0145", "0145", "00145"}, {"0", "", 0x82, "0145", "0145", "00145"},
        {"0", "9", 0x81, "0145", "0145", "0145"},  {"0", "9", 0x83, "0145", "0145", "0145"},
        {"0", "9", 0x42, "0145", "145", "145"}};
    TraceMask = TRACE_CALL;
    for (const auto& [prefix, publicOperator, flags, received, inbound, outbound] : rows) {
        SCOPED_TRACE(outbound);
        Fresh();
        CopyText(Settings.ExtPrefix, prefix);
        CopyText(Settings.PublicOperator, publicOperator);
        Calls("OCC");
        Record(1).Inbound = 0;
        Incoming(1, 0, {received, "", flags});
        Connected(2, {received, "", flags});
        Connected(3, {received, "", flags});
        EXPECT_STREQ(Record(0).CallerAddress, inbound);
        EXPECT_STREQ(Record(1).ConnectedAddress, outbound);
        EXPECT_STREQ(Record(2).ConnectedAddress, inbound);
    }
    EXPECT_THAT(TraceLines(),
                testing::IsSupersetOf({"ICI EXTERNAL prefix '0' trouve", "CCI EXTERNAL prefix '0' trouve"}));
}

TEST_F(CallEvents, CallerIsToldOnceAndTheReasonEveryTime) {
    Calls("O");
    for (const std::string told :
         {"18300, 0, cref:0) | INFO 0 ORIGIN|REASON|CALLERID|CALLEDID", "200, 0, cref:0) | INFO 0 REASON"}) {
        Incoming(1, 0, {"0145678901", "DUPONT", EXTERNAL | WITHOUT_PREFIX}, {"4711", "MARTIN", 0x81});
        EXPECT_EQ(Steps(), "ICI tou:1 CallerAdd '0145678901' Org 2 lg 10 CallerName 'DUPONT' lg 6 | "
                           "ICI tou:1 CalledAdd '4711' Org 129 lg 4 CalledName 'MARTIN' lg 6 | "
                           "ICI EXT jonct entrant: rajout prefix operateur '9' | "
                           "ICI tou:1 cref 0000 Reason 0x0 TAPI_Reason 0x1  | "
                           "ICI DoLineEvent\t(LINE_CALLINFO,NewCallInfo " +
                               told);
    }
    EXPECT_STREQ(Record(0).CallerName, "DUPONT");
    EXPECT_STREQ(Record(0).CalledName, "MARTIN");
    // Absent texts and an origin that is not stated leave what is known; each new text is news of its party.
    Incoming(1, 9, {"", "", INTERNAL});
    EXPECT_EQ(Sent(), "");
    EXPECT_STREQ(Record(0).CallerAddress, "90145678901");
    Incoming(1, 9, {"", "DURAND"});
    Incoming(1, 9, {"4712", "", 3}, {"", "PETIT"});
    Incoming(1, 9, {"4712", "", INTERNAL});
    EXPECT_EQ(Sent(), "INFO 0 CALLERID, INFO 0 CALLERID|CALLEDID, INFO 0 ORIGIN");
}

TEST_F(CallEvents, EachReasonCodeHasItsValueAndItsReport) {
    const std::pair<int, DWORD> reasons[] = {{0, 0x1},    {1, 0x2},    {2, 0x4},    {3, 0x8},   {4, 0x10},
                                             {5, 0x20},   {6, 0x40},   {7, 0x80},   {8, 0x100}, {9, 0x200},
                                             {10, 0x400}, {11, 0x800}, {255, 0x800}};
    for (const auto& [code, reason] : reasons) {
        Fresh();
        Calls("O");
        CopyText(Record(0).CalledAddress, "2001");
        CopyText(Record(0).CalledName, "MARTIN");
        Incoming(1, code, {}, {"2001", "MARTIN", INTERNAL});
        const bool forwarded = code >= 1 && code <= 3;
        EXPECT_EQ(Record(0).Reason, reason) << code;
        EXPECT_EQ(Sent(), forwarded ? "INFO 0 REASON|REDIRECTINGID" : code <= 4 ? "INFO 0 REASON" : "") << code;
        EXPECT_STREQ(Record(0).RedirectingAddress, forwarded ? "2001" : "") << code;
        EXPECT_STREQ(Record(0).RedirectingName, forwarded ? "MARTIN" : "of before") << code;
    }
}

TEST_F(CallEvents, IncomingFindsItsCallOrIsDropped) {
    for (const int key : {1, 12, 0, 89, 255}) {
        Incoming(key, 0, {"4712"});
        EXPECT_EQ(TraceLines().back(), "ICI Pas d'appel arrivee en cours sur touche " + std::to_string(key));
    }
    Call(1, 0, STATE_REOFFERING, false);
    Incoming(1, 1, {"4712"}, {"4713"});
    EXPECT_EQ(TraceLines().back(), "ICI cref 0000 REOFFERING appel sortant->pas de chg caller/called");
    Record(0).Inbound = 1;                          // a received call that is presented again takes its news
    Tracking.OfferInfoCref = Call(2, 1, OFFERING);  // slot 0 is empty; held back until its caller is known
    Incoming(1, 1, {"4712", "", INTERNAL});
    Incoming(2, 5, {"4713"});
    EXPECT_EQ(Sent(), "INFO 0 ORIGIN|REASON|CALLERID|REDIRECTINGID, STATE 1 OFFERING, INFO 1 CALLERID");
}

TEST_F(CallEvents, SupervisedSetThatRingsAnewGetsANewCall) {
    Call(7, 0, OFFERING);
    Incoming(7, 5, {"4712", "", INTERNAL});
    EXPECT_EQ(Sent(), "INFO 0 ORIGIN|CALLERID|CALLEDID");
    EXPECT_STREQ(Record(0).CalledAddress, "4711") << "the key's label";
    Record(0).Outbound = 1;
    Incoming(7, 0, {"4713", "", INTERNAL}, {"4714"});
    EXPECT_THAT(Steps(), testing::EndsWith(" | ICI tou 7 Superv cref 0000 deja en sonnerie => lib  | "
                                           "STATE 0 DISCONNECTED 1 | Icone:7 Ref:0000- Etat:DISCONNECTED - | "
                                           "STATE 0 IDLE | Icone:7 Ref:0000- Etat:IDLE - | "
                                           "ICI tou 7 Superv new call | NEWCALL 0 | STATE 0 OFFERING | "
                                           "ICI tou:7 cref 0000 Reason 0x0 TAPI_Reason 0x1  | "
                                           "ICI DoLineEvent\t(LINE_CALLINFO,NewCallInfo 18300, 0, cref:0) | "
                                           "INFO 0 ORIGIN|REASON|CALLERID|CALLEDID"));
    EXPECT_EQ(At(7).icon, INCOM_ICON);
    EXPECT_EQ(Record(0).Outbound, 0);
    EXPECT_STREQ(Record(0).CallerAddress, "4713");
    Record(0).state = CONNECTED;
    Record(0).touch = 1;  // intercepted: it stands on key 1
    Incoming(7, 5, {"", "DUPONT"});
    EXPECT_EQ(Sent(), "NEWCALL 1, STATE 1 OFFERING, INFO 1 CALLERID|CALLEDID");
    EXPECT_EQ(Record(0).state, CONNECTED);
    EXPECT_EQ(At(7).calls, (std::array{1, -1}));
    Record(1).state = CONNECTED;
    for (CallRecord& call : CallTable)
        call.touch = 1;
    Incoming(7, 0, {"4712"});
    EXPECT_EQ(TraceLines().back(), "ICI tou 7 Superv new call") << "no room";
    Settings.SupervService = 0;
    Incoming(7, 0, {"4712"});
    EXPECT_EQ(Steps(), "");
}

TEST_F(CallEvents, OutgoingFindsOrMakesItsCall) {
    const auto ringing = [](const std::string& cref) {
        std::string sent;
        for (const char* state : {" DIALTONE, ", " DIALING, ", " PROCEEDING, ", " RINGBACK, "})
            sent += "STATE " + cref + state;
        return sent + "INFO " + cref + " CALLEDID";
    };
    const std::tuple<const char*, const char*, std::string, bool> rows[] = {
        // calls of key 1, traced, sent, watched
        {"--", "NewCall tou:1 RINGBACK cref:0000", "NEWCALL 0, " + ringing("0"), true},
        {"TP", "OCI cref 0001 proceeding trouve sur tou 1", "INFO 1 CALLEDID", false},
        {"T-", "OCI cref 0000 Dialtone => Proceeding sur tou 1",
         "STATE 0 DIALING, STATE 0 PROCEEDING, STATE 0 RINGBACK, INFO 0 CALLEDID", false},
        {"CH", "OCI Pas d'appel depart en cours sur touche 1", "", false},
        {"-C", "OCI on connected call => new db appel", "STATE 0 ONHOLD, NEWCALL 1, " + ringing("1"), false},
    };
    const char* const received =
        "OCI tou:1 Reason 0 CalledAdd '4712' Org 1 withoutpfx 128 lg 4 CalledName 'DUPONT' lg 6";
    for (const auto& [calls, traced, sent, watched] : rows) {
        Placed(calls);
        Marks.MakeCallWatch = {};
        Outgoing(1, {"4712", "DUPONT", INTERNAL | WITHOUT_PREFIX});
        EXPECT_THAT(TraceLines(), testing::IsSupersetOf({received, traced}));
        EXPECT_EQ(Sent(), sent);
        EXPECT_EQ(Marks.MakeCallWatch.Set, watched);
    }
    EXPECT_EQ(At(1).calls, (std::array{1, 0}));
    EXPECT_EQ(Tracking.DbCall, 1);
    EXPECT_EQ(Record(1).Origin, LINECALLORIGIN_OUTBOUND);
    Placed("--");
    for (CallRecord& call : CallTable)
        call.touch = 2;
    Outgoing(1, {"4712"});
    Outgoing(89, {"4712"});  // no key
    EXPECT_EQ(Sent(), "") << "no room";
}

TEST_F(CallEvents, TextThatAnEventLeavesOutStaysAndOneCharacterIsAText) {
    Call(1, 0, CONNECTED);
    CallRecord& call = Record(0);
    const auto stored = [&](const Party& caller, const Party& called, const Party& connected) {
        Incoming(1, 0, caller, called);
        Connected(1, connected);
        std::string all;
        for (const char* text : {call.CallerAddress, call.CallerName, call.CalledAddress, call.CalledName,
                                 call.ConnectedAddress, call.ConnectedName})
            all += std::string(text) + "/";
        return all;
    };
    EXPECT_EQ(stored({"1", "a"}, {"2", "b"}, {"3", "c"}), "1/a/2/b/3/c/");
    EXPECT_EQ(stored({"", "d"}, {"", "e"}, {"", "f"}), "1/d/2/e/3/f/");
    EXPECT_EQ(stored({"4", ""}, {"5", ""}, {"6", ""}), "4/d/5/e/6/f/");
    Placed("P-");
    for (const auto& [number, name, then] :
         {std::tuple{"1", "a", "1/a"}, {"1", "", "1/a"}, {"1", "b", "1/b"}, {"", "c", "1/b"}}) {
        Outgoing(1, {number, name, INTERNAL});
        EXPECT_EQ(std::string(call.CalledAddress) + "/" + call.CalledName, then);
    }
}

TEST_F(CallEvents, CalledPartyIsFirstDialledThenDiverted) {
    struct Row {
        const char *dialled, *known, *knownName;
        Party received;
        const char *stored, *sent;  // called, redirection
    };
    const char *const calledId = "INFO 0 CALLEDID", *const redirectionId = "INFO 0 REDIRECTIONID";
    const int bare = EXTERNAL | WITHOUT_PREFIX | NO_OPERATOR;
    const Row rows[] = {
        {"", "", "OLD", {"4712", "", INTERNAL}, "4712//", calledId},
        {"", "", "", {"612", "", bare}, "0612//", calledId},
        {"06", "", "", {"99", "DUPONT", bare}, "06//", calledId},
        {"0612", "", "", {"4712", "", INTERNAL}, "4712//", calledId},
        {"5", "4712", "", {"613", "NEW", bare}, "4712/0613/NEW", redirectionId},
        {"", "4712", "OLD", {"4713", "", INTERNAL}, "4712 OLD/4713/", redirectionId},
        {"5", "0612", "OLD", {"612", "", bare}, "0612 OLD//", ""},
        {"", "4712", "OLD", {"4712", "NEW", INTERNAL}, "4712 NEW//", calledId},
        {"", "", "", {"", "DUPONT", INTERNAL}, "//", ""},
    };
    TraceMask = TRACE_CALL;
    std::vector<std::string> lines;
    for (const Row& row : rows) {
        Placed("P-");
        CallRecord& call = Record(0);
        CopyText(DialedNumber, row.dialled);
        CopyText(call.CalledAddress, row.known);
        CopyText(call.CalledName, row.knownName);
        Outgoing(1, row.received);
        for (std::string& line : TraceLines())
            lines.push_back(std::move(line));
        EXPECT_EQ(std::string(call.CalledAddress) + (call.CalledName[0] == 0 ? "" : " ") + call.CalledName + "/" +
                      call.RedirectionAddress + "/" + call.RedirectionName,
                  row.stored);
        EXPECT_EQ(Sent(), row.sent) << row.stored;
        EXPECT_STREQ(DialedNumber, "");
    }
    EXPECT_THAT(lines, testing::IsSupersetOf({"OCI   DialedNumber '06'", "OCI rajout prefixe ext"}));
}

TEST_F(CallEvents, AnsweredCallIsFoundInItsOrder) {
    const std::string none = "CCI Pas d'appel en cours sur touche 1";
    const std::tuple<const char*, bool, std::string, bool> rows[] = {
        // calls of key 1, one dropped, found, moved
        {"PC", true, "CCI cref 0001 connected trouve sur tou 1", false},
        {"HP", false, "CCI cref 0001 Proceeding => Conv sur tou 1", true},
        {"DH", false, "CCI cref 0001 Onhold => Conv sur tou 1", true},
        {"PD", true, "CCI cref 0001 Disconnected => Conv sur tou 1", true},
        {"PH", true, none, false},
        {"OT", false, none, false},
    };
    for (const auto& [calls, dropping, found, moved] : rows) {
        Placed(calls);
        Tracking.DbCall = 1;
        Tracking.SecondCallDropReq = dropping ? 1 : 0;
        Connected(1, {"4712", "", INTERNAL});
        EXPECT_EQ(Steps(),
                  "CCI tou:1 Reason 0 ConnectedAdd '4712' Org 1 lg 4 ConnectedName '' lg 0 | " + found +
                      (moved ? " | NewState tou:1 - Etat:CONNECTED - Ref:0001 | STATE 1 CONNECTED | "
                               "Inbound:0 Outbound:1 byMakeCall:0"
                             : "") +
                      (found == none ? ""
                                     : " | CCI Val precedentes ConnectedAdd '' ConnectedName '' | CCI DoLineEvent "
                                       "(LINE_CALLINFO,NewCallInfo 20000, 0, cref:0001) | INFO 1 CONNECTEDID"));
    }
}

TEST_F(CallEvents, ConnectedPartyIsToldWhenItIsNews) {
    Calls("CC");
    Record(1).Inbound = 0;
    Connected(1, {"0145", "DUPONT", EXTERNAL});
    Connected(1, {"0145", "DUPONT", EXTERNAL});
    Connected(1, {"0145"});  // the origin is not stated; the number is taken as it is
    Connected(1, {"", "MARTIN", INTERNAL});
    Connected(2, {"0145", "", EXTERNAL});
    EXPECT_EQ(Sent(), "INFO 0 ORIGIN|CONNECTEDID, INFO 0 CONNECTEDID, INFO 0 CONNECTEDID, INFO 1 CONNECTEDID");
    EXPECT_EQ(Record(1).Origin, LINECALLORIGIN_UNAVAIL) << "only a received call has the origin of its party";
    EXPECT_STREQ(Record(0).ConnectedName, "MARTIN");
    Connected(2, {"0145", "", EXTERNAL | WITHOUT_PREFIX});
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"CCI Val precedentes ConnectedAdd '145' ConnectedName ''",
                                                     "CCI EXT appel initial sortant: rajout prefix de prise ext '0'",
                                                     "CCI EXT jonct entrant: rajout prefix operateur '9'"}));
    LineEvents();
    for (char* text : {Settings.ExtPrefix, Settings.PublicOperator})
        std::strcpy(text, std::string(19, '1').c_str());
    for (const std::size_t length : {39u, 40u, 200u})
        Connected(2, {std::string(length, '3'), std::string(length, 'N'), EXTERNAL | WITHOUT_PREFIX});
    EXPECT_EQ(Record(1).ConnectedAddress, std::string(38, '1') + std::string(39, '3'));
    EXPECT_EQ(Record(1).ConnectedName, std::string(39, 'N'));
    EXPECT_EQ(Sent(), "INFO 1 CONNECTEDID") << "cut the same, nothing is new";
}

TEST_F(CallEvents, TransferredCallIsMarkedOnBossAndSecretaryKeysOnly) {
    const std::tuple<int, DWORD, const char*, int> rows[] = {
        // key, state, trace, marked
        {9, OFFERING, "cref 0000 tou 9 PAT/SEC => transfert touche", 0},
        {1, CONNECTED, "cref 0000 Connected trouve sur tou 1", -1},
        {8, ONHOLD, "non exploite tou 8", -1}};
    for (const auto& [key, state, trace, marked] : rows) {
        Fresh();
        Call(key, 0, state);
        Evt_Transfered_Call(1, std::vector{static_cast<std::uint8_t>(key)});
        EXPECT_EQ(TraceLines().back(), std::string("Evt_Transfered_Call ") + trace);
        EXPECT_EQ(SwapKeyTransferingCref, marked) << trace;
    }
}

TEST_F(CallEvents, CutOffMessageChangesNothing) {
    const Party party{"0145", "DUPONT", EXTERNAL};
    const std::tuple<const char*, Handler, std::vector<std::uint8_t>> rows[] = {
        {"EVENT_INCOMING_CHANGE", IncomingCallInfo, Message(7, 0, party + party)},
        {"EVENT_OUTGOING_CALL", OutgoingCallInfo, Message(1, 0, party)},
        {"EVENT_CONNECTED_CALL", ConnectedCallInfo, Message(2, 0, party)},
        {"TA_M_EVENT_TRANSFERED_CALL", Evt_Transfered_Call, {8}}};
    Call(7, 0, OFFERING);
    Call(2, 0, PROCEEDING, false);
    Call(8, 0, CONNECTED);
    for (const auto& [name, handle, whole] : rows) {
        const auto before = CallTable;
        for (auto end = whole.begin(); end != whole.end(); ++end) {
            handle(1, std::vector(whole.begin(), end));
            ASSERT_EQ(Steps(), std::string(name) + " runs past its message - dropped");
            ASSERT_EQ(std::memcmp(&before, &CallTable, sizeof before), 0) << name;
        }
        handle(1, whole);
        ASSERT_THAT(Steps(), testing::Not(testing::HasSubstr("dropped")));
    }
}

}  // namespace
