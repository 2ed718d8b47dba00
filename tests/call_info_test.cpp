// The PBX's call-information events: which call they find, how they rewrite numbers, what they report in which order.
#include "devices/call_info.h"

#include "support/tracked.h"

#include <string>
#include <vector>

namespace {

using ByteList = std::vector<std::uint8_t>;

constexpr int INTERNAL = 1, EXTERNAL = 2, NO_OPERATOR = 0x40, WITHOUT_PREFIX = 0x80;

// A party as it stands in a message.
struct PartyText {
    std::string Number, Name;
    int Flags = 0;
};

class CallEvents : public TrackedSet {
protected:
    void SetUp() override {
        TrackedSet::SetUp();
        CopyText(Settings.ExtPrefix, "0");
        CopyText(Settings.PublicOperator, "9");
    }

    static ByteList Message(int key, int reason, std::initializer_list<PartyText> parties) {
        ByteList bytes{static_cast<std::uint8_t>(key), static_cast<std::uint8_t>(reason)};
        for (const PartyText& party : parties) {
            bytes.push_back(static_cast<std::uint8_t>(party.Number.size()));
            bytes.push_back(static_cast<std::uint8_t>(party.Flags));
            bytes.insert(bytes.end(), party.Number.begin(), party.Number.end());
            bytes.push_back(static_cast<std::uint8_t>(party.Name.size()));
            bytes.insert(bytes.end(), party.Name.begin(), party.Name.end());
        }
        bytes.shrink_to_fit();  // a byte read behind it is found
        return bytes;
    }
    static void Incoming(int key, int reason, const PartyText& caller, const PartyText& called = {}) {
        IncomingCallInfo(1, Message(key, reason, {caller, called}));
    }
    static void Outgoing(int key, const PartyText& called) { OutgoingCallInfo(1, Message(key, 0, {called})); }
    static void Connected(int key, const PartyText& party) { ConnectedCallInfo(1, Message(key, 0, {party})); }
    static void Transferred(int key) { Evt_Transfered_Call(1, ByteList{static_cast<std::uint8_t>(key)}); }
    // The events alone.
    static std::string Sent() {
        std::string out;
        for (const std::string& event : LineEvents())
            out += (out.empty() ? "" : ", ") + event;
        TraceLines();
        return out;
    }
};

TEST_F(CallEvents, NumbersAreRewrittenForDialingBack) {
    struct Row {
        const char *prefix, *publicOperator;
        int flags;
        const char* received;
        const char *caller, *answeredOutbound, *answeredInbound;
    };
    const Row rows[] = {
        // without bit 7 the number carries the prefix, or is left as it is
        {"0", "9", EXTERNAL, "0145678901", "145678901", "145678901", "145678901"},
        {"0", "9", EXTERNAL | NO_OPERATOR, "0145", "145", "145", "145"},
        {"00", "9", EXTERNAL, "0145", "0145", "0145", "0145"},
        {"0145", "9", EXTERNAL, "014", "014", "014", "014"},
        {"0", "9", EXTERNAL, "0", "", "", ""},
        {"", "9", EXTERNAL, "0145", "0145", "0145", "0145"},
        // with bit 7 it came without
        {"0", "9", EXTERNAL | WITHOUT_PREFIX, "0145", "90145", "090145", "90145"},
        {"0", "0", EXTERNAL | WITHOUT_PREFIX, "0145678901", "00145678901", "000145678901", "00145678901"},
        {"0", "9", EXTERNAL | WITHOUT_PREFIX | NO_OPERATOR, "0145", "0145", "00145", "0145"},
        {"0", "", EXTERNAL | WITHOUT_PREFIX, "0145", "0145", "00145", "0145"},
        {"", "", EXTERNAL | WITHOUT_PREFIX, "0145", "0145", "0145", "0145"},
        // no external party
        {"0", "9", INTERNAL | WITHOUT_PREFIX, "0145", "0145", "0145", "0145"},
        {"0", "9", 0, "0145", "0145", "0145", "0145"},
        {"0", "9", 3 | WITHOUT_PREFIX, "0145", "0145", "0145", "0145"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.prefix) + "/" + row.publicOperator + " " + std::to_string(row.flags) + " " +
                     row.received);
        Fresh();
        CopyText(Settings.ExtPrefix, row.prefix);
        CopyText(Settings.PublicOperator, row.publicOperator);
        Call(1, 0, OFFERING);
        Call(2, 0, CONNECTED, false);
        Call(3, 0, CONNECTED);
        Incoming(1, 0, {row.received, "", row.flags});
        Connected(2, {row.received, "", row.flags});
        Connected(3, {row.received, "", row.flags});
        EXPECT_STREQ(Record(0).CallerAddress, row.caller);
        EXPECT_STREQ(Record(1).ConnectedAddress, row.answeredOutbound);
        EXPECT_STREQ(Record(2).ConnectedAddress, row.answeredInbound);
    }
}

TEST_F(CallEvents, CallerIsToldOnceAndTheReasonEveryTime) {
    Call(1, 0, OFFERING);
    const PartyText caller{"0145678901", "DUPONT", EXTERNAL | WITHOUT_PREFIX};
    const std::string received = "ICI tou:1 CallerAdd '0145678901' Org 2 lg 10 CallerName 'DUPONT' lg 6 | "
                                 "ICI tou:1 CalledAdd '4711' Org 129 lg 4 CalledName 'MARTIN' lg 6 | "
                                 "ICI EXT jonct entrant: rajout prefix operateur '9' | "
                                 "ICI tou:1 cref 0000 Reason 0x0 TAPI_Reason 0x1  | ";
    Incoming(1, 0, caller, {"4711", "MARTIN", 0x81});
    EXPECT_EQ(Steps(), received + "ICI DoLineEvent\t(LINE_CALLINFO,NewCallInfo 18300, 0, cref:0) | "
                                  "INFO 0 ORIGIN|REASON|CALLERID|CALLEDID");
    EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_EXTERNAL);
    EXPECT_STREQ(Record(0).CallerAddress, "90145678901");
    EXPECT_STREQ(Record(0).CallerName, "DUPONT");
    EXPECT_STREQ(Record(0).CalledAddress, "4711");
    EXPECT_STREQ(Record(0).CalledName, "MARTIN");

    Incoming(1, 0, caller, {"4711", "MARTIN", 0x81});
    EXPECT_EQ(Steps(), received + "ICI DoLineEvent\t(LINE_CALLINFO,NewCallInfo 200, 0, cref:0) | INFO 0 REASON");

    // Absent texts and an origin that is not stated leave what is known; each new text is news of its party.
    Incoming(1, 9, {"", "", INTERNAL});
    EXPECT_EQ(Sent(), "");
    EXPECT_STREQ(Record(0).CallerAddress, "90145678901");
    EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_EXTERNAL);
    Incoming(1, 9, {"", "DURAND", 0});
    Incoming(1, 9, {"4712", "", 3}, {"", "PETIT", 0});
    Incoming(1, 9, {"4712", "", INTERNAL});
    EXPECT_EQ(Sent(), "INFO 0 CALLERID, INFO 0 CALLERID|CALLEDID, INFO 0 ORIGIN");
}

TEST_F(CallEvents, EachReasonCodeHasItsValueAndItsReport) {
    struct Row {
        int code;
        DWORD reason;
        const char* sent;
    };
    const char* const plain = "INFO 0 REASON";
    const char* const forwarded = "INFO 0 REASON|REDIRECTINGID";
    const Row rows[] = {{0, 0x1, plain},  {1, 0x2, forwarded}, {2, 0x4, forwarded}, {3, 0x8, forwarded},
                        {4, 0x10, plain}, {5, 0x20, ""},       {6, 0x40, ""},       {7, 0x80, ""},
                        {8, 0x100, ""},   {9, 0x200, ""},      {10, 0x400, ""},     {11, 0x800, ""},
                        {12, 0x800, ""},  {255, 0x800, ""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.code);
        Fresh();
        Call(1, 0, OFFERING);
        CopyText(Record(0).CalledAddress, "2001");
        CopyText(Record(0).CalledName, "MARTIN");
        CopyText(Record(0).RedirectingAddress, "old");
        CopyText(Record(0).RedirectingName, "old");
        Record(0).Reason = 0x2000;
        Incoming(1, row.code, {}, {"2001", "MARTIN", INTERNAL});
        EXPECT_EQ(Record(0).Reason, row.reason);
        EXPECT_EQ(Sent(), row.sent);
        EXPECT_STREQ(Record(0).RedirectingAddress, row.sent == forwarded ? "2001" : "old");
        EXPECT_STREQ(Record(0).RedirectingName, row.sent == forwarded ? "MARTIN" : "old");
        EXPECT_STREQ(Record(0).RedirectionAddress, "");
    }
    Incoming(1, 1, {}, {"2002", "", 0});
    EXPECT_EQ(Sent(), "INFO 0 REASON|CALLEDID|REDIRECTINGID");
    EXPECT_STREQ(Record(0).RedirectingName, "") << "as received";
}

TEST_F(CallEvents, HeldBackOfferingGoesOutBeforeItsCaller) {
    Call(1, 0, OFFERING);
    const int second = Call(2, 1, OFFERING);  // slot 0 is empty
    Tracking.OfferInfoCref = second;
    Incoming(1, 5, {"4712", "", INTERNAL});
    EXPECT_EQ(Tracking.OfferInfoCref, second);
    Steps();
    Incoming(2, 5, {"4713", "", INTERNAL});
    EXPECT_EQ(Tracking.OfferInfoCref, -1);
    EXPECT_EQ(Steps(), "ICI tou:2 CallerAdd '4713' Org 1 lg 4 CallerName '' lg 0 | "
                       "ICI tou:2 CalledAdd '' Org 0 lg 0 CalledName '' lg 0 | "
                       "ICI tou:2 cref 0001 Reason 0x5 TAPI_Reason 0x20  | "
                       "ICI - Etat:OFFERING - Ref:1 | STATE 1 OFFERING | "
                       "ICI DoLineEvent\t(LINE_CALLINFO,NewCallInfo 8100, 0, cref:1) | INFO 1 ORIGIN|CALLERID");
}

TEST_F(CallEvents, IncomingWithoutItsCallIsDropped) {
    for (const int key : {1, 12, 0, 88, 89, 255}) {
        Incoming(key, 0, {"4712", "", INTERNAL});
        const std::string name = std::to_string(key);
        EXPECT_EQ(Steps(), "ICI tou:" + name + " CallerAdd '4712' Org 1 lg 4 CallerName '' lg 0 | ICI tou:" + name +
                               " CalledAdd '' Org 0 lg 0 CalledName '' lg 0 | " +
                               "ICI Pas d'appel arrivee en cours sur touche " + name);
    }
    Call(1, 0, STATE_REOFFERING, false);
    Incoming(1, 1, {"4712", "DUPONT", INTERNAL}, {"4713", "", 0});
    EXPECT_THAT(Steps(), testing::EndsWith("ICI cref 0000 REOFFERING appel sortant->pas de chg caller/called"));
    EXPECT_STREQ(Record(0).CallerAddress, "");
    EXPECT_EQ(Record(0).Reason, LINECALLREASON_UNAVAIL);
    Record(0).Inbound = 1;  // a received call that is presented again takes its news
    Incoming(1, 1, {"4712", "", INTERNAL});
    EXPECT_EQ(Sent(), "INFO 0 ORIGIN|REASON|CALLERID|REDIRECTINGID");
}

TEST_F(CallEvents, SupervisedSetThatRingsAnewGetsANewCall) {
    Call(7, 0, OFFERING);
    At(7).icon = INCOM_ICON;
    Incoming(7, 5, {"4712", "", INTERNAL});  // the first message: the label stands in for the called number
    EXPECT_EQ(Sent(), "INFO 0 ORIGIN|CALLERID|CALLEDID");
    EXPECT_STREQ(Record(0).CalledAddress, "4711");

    Record(0).Outbound = 1;
    Incoming(7, 0, {"4713", "", INTERNAL}, {"4714", "", 0});
    EXPECT_EQ(Steps(), "ICI tou:7 CallerAdd '4713' Org 1 lg 4 CallerName '' lg 0 | "
                       "ICI tou:7 CalledAdd '4714' Org 0 lg 4 CalledName '' lg 0 | "
                       "ICI tou 7 Superv cref 0000 deja en sonnerie => lib  | "
                       "STATE 0 DISCONNECTED 1 | Icone:7 Ref:0000- Etat:DISCONNECTED - | "
                       "STATE 0 IDLE | Icone:7 Ref:0000- Etat:IDLE - | "
                       "ICI tou 7 Superv new call | NEWCALL 0 | STATE 0 OFFERING | "
                       "ICI tou:7 cref 0000 Reason 0x0 TAPI_Reason 0x1  | "
                       "ICI DoLineEvent\t(LINE_CALLINFO,NewCallInfo 18300, 0, cref:0) | "
                       "INFO 0 ORIGIN|REASON|CALLERID|CALLEDID");
    EXPECT_EQ(At(7).icon, INCOM_ICON);
    EXPECT_EQ(At(7).calls, (std::array{0, -1}));
    EXPECT_EQ(Record(0).touch, 7);
    EXPECT_EQ(Record(0).state, OFFERING);
    EXPECT_EQ(Record(0).Inbound, 1);
    EXPECT_EQ(Record(0).Outbound, 0);
    EXPECT_STREQ(Record(0).CallerAddress, "4713");
}

TEST_F(CallEvents, InterceptedSupervisedCallStaysAndTheNextIsNew) {
    const int taken = Call(7, 0, CONNECTED);
    Record(taken).touch = 1;  // intercepted: it stands on key 1
    At(1).calls[0] = taken;
    Incoming(7, 5, {"", "DUPONT", 0});
    EXPECT_EQ(Sent(), "NEWCALL 1, STATE 1 OFFERING, INFO 1 CALLERID|CALLEDID");
    EXPECT_EQ(Record(taken).state, CONNECTED);
    EXPECT_EQ(At(7).calls, (std::array{1, -1}));
    EXPECT_EQ(At(1).calls[0], taken);
    EXPECT_EQ(At(7).icon, INCOM_ICON);
}

TEST_F(CallEvents, SupervisedCallWithoutRoomOrServiceIsDropped) {
    Call(7, 0, CONNECTED);
    Record(0).touch = 1;
    for (int i = 1; i < CALL_COUNT; ++i)
        Record(i).touch = 2;
    Incoming(7, 0, {"4712", "", 0});
    EXPECT_THAT(Steps(), testing::EndsWith("| ICI tou 7 Superv new call"));
    EXPECT_EQ(At(7).calls[0], 0);
    Settings.SupervService = 0;
    Incoming(7, 0, {"4712", "", 0});
    IncomingCallInfo(1, ByteList{7});
    EXPECT_EQ(Steps(), "");
    At(1).calls[0] = 0;
    Incoming(1, 0, {"4712", "", 0});
    EXPECT_EQ(Sent(), "INFO 0 REASON|CALLERID") << "other keys do not depend on the service";
}

TEST_F(CallEvents, OutgoingFindsOrMakesItsCall) {
    const std::string received =
        "OCI tou:1 Reason 0 CalledAdd '4712' Org 1 withoutpfx 128 lg 4 CalledName 'DUPONT' lg 6 | ";
    const auto told = [](const std::string& cref) {
        return "OCI DoLineEvent (LINE_CALLINFO,NewCallInfo=10000, 0, cref:000" + cref + ") | INFO " + cref +
               " CALLEDID";
    };
    const auto created = [](const std::string& cref) {
        std::string steps = "NEWCALL " + cref + " | NewCall tou:1 RINGBACK cref:000" + cref + " | ";
        for (const char* state : {"DIALTONE", "DIALING", "PROCEEDING", "RINGBACK"})
            steps += "STATE " + cref + " " + state + " | ";
        for (const char* state : {"DIALTONE", "DIALING", "PROCEEDING", "RINGBACK"})
            steps += std::string("DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_") + state + ", 0, cref:" + cref + ") | ";
        return steps;
    };
    const auto run = [&] {
        Steps();
        Outgoing(1, {"4712", "DUPONT", INTERNAL | WITHOUT_PREFIX});
        return Steps();
    };
    EXPECT_EQ(run(), received + created("0") + told("0"));
    EXPECT_TRUE(Marks.MakeCallWatch.Set);
    EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_OUTBOUND);
    EXPECT_STREQ(Record(0).CalledAddress, "4712") << "an internal number gets no prefix";
    EXPECT_STREQ(Record(0).CalledName, "DUPONT");

    Fresh();
    Marks = RequestMarks{};
    Call(1, 0, DIALTONE);
    Call(1, 1, PROCEEDING);
    EXPECT_EQ(run(), received + "OCI cref 0001 proceeding trouve sur tou 1 | " + told("1"));

    Fresh();
    Call(1, 0, DIALTONE, false);
    EXPECT_EQ(run(), received +
                         "OCI cref 0000 Dialtone => Proceeding sur tou 1 | STATE 0 DIALING | "
                         "STATE 0 PROCEEDING | STATE 0 RINGBACK | NewState tou:1 - Etat:PROCEEDING - Ref:0000 | "
                         "Inbound:0 Outbound:1 byMakeCall:0 | " +
                         told("0"));

    Fresh();
    Call(1, 1, CONNECTED);
    EXPECT_EQ(run(), received +
                         "OCI on connected call => new db appel | "
                         "NewState tou:1 - Etat:ONHOLD - Ref:0000 | STATE 0 ONHOLD | " +
                         created("1") + told("1"));
    EXPECT_EQ(At(1).calls, (std::array{1, 0}));
    EXPECT_EQ(Tracking.DbCall, 1);
    EXPECT_FALSE(Marks.MakeCallWatch.Set);

    Fresh();
    Call(1, 0, CONNECTED);
    Call(1, 1, ONHOLD);
    EXPECT_EQ(run(), received + "OCI Pas d'appel depart en cours sur touche 1");
    EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_UNAVAIL);
}

TEST_F(CallEvents, OutgoingOnAKeyThatCarriesNoCallsOrWithoutRoomMakesNone) {
    for (const int key : {0, 89, 255}) {
        Outgoing(key, {"4712", "", 0});
        EXPECT_THAT(Steps(), testing::EndsWith("| OCI Pas d'appel depart en cours sur touche " + std::to_string(key)));
    }
    for (CallRecord& call : CallTable)
        call.touch = 2;
    Outgoing(1, {"4712", "", 0});
    EXPECT_EQ(Sent(), "");
    EXPECT_FALSE(Marks.MakeCallWatch.Set);
    EXPECT_EQ(At(1).calls[0], -1);
}

TEST_F(CallEvents, CalledPartyIsFirstDialledThenDiverted) {
    struct Row {
        const char *fault, *dialled, *known, *knownName;
        PartyText received;
        const char *called, *calledName, *redirection, *redirectionName, *sent, *dialledAfter;
    };
    const char* const calledId = "INFO 0 CALLEDID";
    const char* const redirectionId = "INFO 0 REDIRECTIONID";
    const int bare = EXTERNAL | WITHOUT_PREFIX | NO_OPERATOR;
    const Row rows[] = {
        {"new number", "", "", "", {"4712", "DUPONT", INTERNAL}, "4712", "DUPONT", "", "", calledId, ""},
        {"name goes with number", "", "", "OLD", {"4712", "", INTERNAL}, "4712", "", "", "", calledId, ""},
        {"prefix added", "", "", "", {"612", "", bare}, "0612", "", "", "", calledId, ""},
        {"prefix there", "", "", "", {"0612", "", EXTERNAL}, "0612", "", "", "", calledId, ""},
        {"dialled digits win", "0612", "", "", {"99", "DUPONT", bare}, "0612", "", "", "", calledId, ""},
        {"also without a number", "0612", "", "", {"", "", EXTERNAL}, "0612", "", "", "", calledId, ""},
        {"not for internal ones", "0612", "", "", {"4712", "", INTERNAL}, "4712", "", "", "", calledId, ""},
        {"not for known ones", "5", "4712", "", {"613", "NEW", bare}, "4712", "", "0613", "NEW", redirectionId, ""},
        {"diverted", "", "4712", "OLD", {"4713", "", INTERNAL}, "4712", "OLD", "4713", "", redirectionId, ""},
        {"same with prefix", "5", "0612", "OLD", {"612", "", bare}, "0612", "OLD", "", "", "", ""},
        {"same, new name", "", "4712", "OLD", {"4712", "NEW", INTERNAL}, "4712", "NEW", "", "", calledId, ""},
        {"same, same name", "", "4712", "OLD", {"4712", "OLD", INTERNAL}, "4712", "OLD", "", "", "", ""},
        {"no number", "5", "", "", {"", "DUPONT", INTERNAL}, "", "", "", "", "", "5"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.fault);
        Fresh();
        Call(1, 0, PROCEEDING, false);
        CopyText(DialedNumber, row.dialled);
        CopyText(Record(0).CalledAddress, row.known);
        CopyText(Record(0).CalledName, row.knownName);
        Outgoing(1, row.received);
        EXPECT_STREQ(Record(0).CalledAddress, row.called);
        EXPECT_STREQ(Record(0).CalledName, row.calledName);
        EXPECT_STREQ(Record(0).RedirectionAddress, row.redirection);
        EXPECT_STREQ(Record(0).RedirectionName, row.redirectionName);
        EXPECT_STREQ(Record(0).RedirectingAddress, "");
        EXPECT_EQ(Sent(), row.sent);
        EXPECT_STREQ(DialedNumber, row.dialledAfter);
        EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_OUTBOUND);
    }
}

TEST_F(CallEvents, OutgoingTracesWhatItDidToTheNumber) {
    Call(1, 0, PROCEEDING, false);
    CopyText(DialedNumber, "0612");
    Outgoing(1, {"99", "", EXTERNAL | WITHOUT_PREFIX});
    EXPECT_THAT(Steps(), testing::HasSubstr("sur tou 1 | OCI   DialedNumber '0612' | OCI DoLineEvent "));
    Outgoing(1, {"99", "", EXTERNAL | WITHOUT_PREFIX});
    EXPECT_THAT(Steps(), testing::HasSubstr("sur tou 1 | OCI rajout prefixe ext | "
                                            "OCI DoLineEvent (LINE_CALLINFO,NewCallInfo=40000, 0, cref:0000) | "));
}

TEST_F(CallEvents, AnsweredCallIsFoundInItsOrder) {
    struct Row {
        DWORD first, second;  // slots 0 and 1 of key 1
        bool dropping;
        const char* found;  // the trace line behind the received texts
        int cref;           // the one that is then CONNECTED; -1: none
        bool moved;
    };
    const Row rows[] = {
        {PROCEEDING, CONNECTED, false, "CCI cref 0001 connected trouve sur tou 1", 1, false},
        {ONHOLD, PROCEEDING, false, "CCI cref 0001 Proceeding => Conv sur tou 1", 1, true},
        {DISCONNECTED, ONHOLD, false, "CCI cref 0001 Onhold => Conv sur tou 1", 1, true},
        {DIALTONE, DISCONNECTED, false, "CCI cref 0001 Disconnected => Conv sur tou 1", 1, true},
        {PROCEEDING, DISCONNECTED, true, "CCI cref 0001 Disconnected => Conv sur tou 1", 1, true},
        {PROCEEDING, CONNECTED, true, "CCI cref 0001 connected trouve sur tou 1", 1, false},
        {PROCEEDING, ONHOLD, true, "CCI Pas d'appel en cours sur touche 1", -1, false},
        {OFFERING, DIALTONE, false, "CCI Pas d'appel en cours sur touche 1", -1, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.found);
        Fresh();
        Call(1, 0, row.first, false);
        Call(1, 1, row.second, false);
        Tracking.DbCall = 1;
        Tracking.SecondCallDropReq = row.dropping ? 1 : 0;
        Steps();
        Connected(1, {"4712", "", INTERNAL});
        std::string expected =
            std::string("CCI tou:1 Reason 0 ConnectedAdd '4712' Org 1 lg 4 ConnectedName '' lg 0 | ") + row.found;
        if (row.moved)
            expected += " | NewState tou:1 - Etat:CONNECTED - Ref:0001 | STATE 1 CONNECTED | "
                        "Inbound:0 Outbound:1 byMakeCall:0";
        if (row.cref != -1)
            expected += " | CCI Val precedentes ConnectedAdd '' ConnectedName '' | "
                        "CCI DoLineEvent (LINE_CALLINFO,NewCallInfo 20000, 0, cref:0001) | INFO 1 CONNECTEDID";
        EXPECT_EQ(Steps(), expected);
        EXPECT_EQ(Record(1).state, row.cref == -1 ? row.second : CONNECTED);
        EXPECT_EQ(Tracking.ActivCallTouch, row.moved ? 1 : 0);
    }
}

TEST_F(CallEvents, ConnectedPartyIsToldWhenItIsNews) {
    Call(1, 0, CONNECTED);
    Call(2, 0, CONNECTED, false);
    Connected(1, {"0145", "DUPONT", EXTERNAL});
    Connected(1, {"0145", "DUPONT", EXTERNAL});
    Connected(1, {"0145", "", 0});  // the origin is not stated; the number is taken as it is
    Connected(1, {"", "MARTIN", INTERNAL});
    Connected(2, {"0145", "", EXTERNAL});
    EXPECT_EQ(Sent(), "INFO 0 ORIGIN|CONNECTEDID, INFO 0 CONNECTEDID, INFO 0 CONNECTEDID, INFO 1 CONNECTEDID");
    EXPECT_EQ(Record(0).Origin, LINECALLORIGIN_EXTERNAL);
    EXPECT_EQ(Record(1).Origin, LINECALLORIGIN_UNAVAIL) << "only a received call has the origin of its party";
    EXPECT_STREQ(Record(0).ConnectedAddress, "0145");
    EXPECT_STREQ(Record(0).ConnectedName, "MARTIN");
    Connected(2, {"0145", "", EXTERNAL | WITHOUT_PREFIX});
    EXPECT_EQ(Steps(), "CCI tou:2 Reason 0 ConnectedAdd '0145' Org 2 lg 4 ConnectedName '' lg 0 | "
                       "CCI cref 0001 connected trouve sur tou 2 | "
                       "CCI Val precedentes ConnectedAdd '145' ConnectedName '' | "
                       "CCI EXT appel initial sortant: rajout prefix de prise ext '0' | "
                       "CCI EXT jonct entrant: rajout prefix operateur '9' | "
                       "CCI DoLineEvent (LINE_CALLINFO,NewCallInfo 20000, 0, cref:0001) | INFO 1 CONNECTEDID");
    Connected(2, {"0145", "", EXTERNAL});
    Incoming(1, 5, {"0145", "", EXTERNAL});
    const std::string steps = Steps();
    EXPECT_THAT(steps, testing::HasSubstr("| CCI EXTERNAL prefix '0' trouve | CCI DoLineEvent "));
    EXPECT_THAT(steps, testing::HasSubstr("| ICI EXTERNAL prefix '0' trouve | ICI tou:1 cref "));
}

TEST_F(CallEvents, TransferredCallIsMarkedOnBossAndSecretaryKeysOnly) {
    struct Row {
        int key;
        DWORD state;
        const char* steps;
        int marked;
    };
    const Row rows[] = {
        {8, CONNECTED,
         "Evt_Transfered_Call cref 0000 Connected trouve sur tou 8 | "
         "Evt_Transfered_Call cref 0000 tou 8 PAT/SEC => transfert touche",
         0},
        {9, OFFERING,
         "Evt_Transfered_Call cref 0000 Offering trouve sur tou 9 | "
         "Evt_Transfered_Call cref 0000 tou 9 PAT/SEC => transfert touche",
         0},
        {1, CONNECTED, "Evt_Transfered_Call cref 0000 Connected trouve sur tou 1", -1},
        {10, OFFERING, "Evt_Transfered_Call cref 0000 Offering trouve sur tou 10", -1},
        {8, ONHOLD, "Evt_Transfered_Call non exploite tou 8", -1},
        {7, CONNECTED,
         "SearchState - La Touche 7 n'est pas multiligne ni pat/sec! | "
         "SearchState - La Touche 7 n'est pas multiligne ni pat/sec! | Evt_Transfered_Call non exploite tou 7",
         -1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.steps);
        Fresh();
        Call(row.key, 0, row.state);
        Transferred(row.key);
        EXPECT_EQ(Steps(), row.steps);
        EXPECT_EQ(SwapKeyTransferingCref, row.marked);
    }
}

TEST_F(CallEvents, CutOffMessageChangesNothing) {
    using Handler = void (*)(std::uint8_t, std::span<const std::uint8_t>);
    struct Row {
        const char* name;
        Handler handle;
        ByteList whole;
    };
    const PartyText party{"0145", "DUPONT", EXTERNAL}, called{"4711", "MARTIN", INTERNAL};
    const Row rows[] = {{"EVENT_INCOMING_CHANGE", IncomingCallInfo, Message(7, 0, {party, called})},
                        {"EVENT_OUTGOING_CALL", OutgoingCallInfo, Message(1, 0, {party})},
                        {"EVENT_CONNECTED_CALL", ConnectedCallInfo, Message(2, 0, {party})},
                        {"TA_M_EVENT_TRANSFERED_CALL", Evt_Transfered_Call, ByteList{8}}};
    Call(7, 0, OFFERING);
    Call(2, 0, PROCEEDING, false);
    Call(8, 0, CONNECTED);
    CopyText(Record(0).CalledAddress, "4711");  // a whole message would release it
    for (const Row& row : rows) {
        Record(1).state = PROCEEDING;
        CopyText(DialedNumber, "0612");
        for (std::size_t length = 0; length < row.whole.size(); ++length) {
            const ByteList part(row.whole.begin(), row.whole.begin() + static_cast<std::ptrdiff_t>(length));
            row.handle(1, part);
            ASSERT_EQ(Steps(), std::string(row.name) + " runs past its message - dropped") << length;
        }
        ASSERT_EQ(Record(0).state, OFFERING);
        ASSERT_EQ(Record(1).state, PROCEEDING);
        ASSERT_STREQ(DialedNumber, "0612");
        ASSERT_EQ(SwapKeyTransferingCref, -1);
        row.handle(1, row.whole);
        ASSERT_THAT(Steps(), testing::Not(testing::HasSubstr("dropped")));
        Record(0).state = OFFERING;
    }
}

TEST_F(CallEvents, LongTextsAreCut) {
    CopyText(Settings.ExtPrefix, std::string(19, '1').c_str());
    CopyText(Settings.PublicOperator, std::string(19, '2').c_str());
    Call(1, 0, CONNECTED, false);
    for (const std::size_t length : {39u, 40u, 200u}) {
        Connected(1, {std::string(length, '3'), std::string(length, 'N'), EXTERNAL | WITHOUT_PREFIX});
        EXPECT_EQ(Record(0).ConnectedAddress, std::string(19, '1') + std::string(19, '2') + std::string(39, '3'));
        EXPECT_EQ(Record(0).ConnectedName, std::string(39, 'N'));
    }
    EXPECT_EQ(Sent(), "INFO 0 CONNECTEDID") << "cut the same, nothing is new";
}

}  // namespace
