// The icon machine and the supervision keys: traces and events in their order, and what stands on the key afterwards.
#include "control/make_call.h"
#include "support/requests.h"
#include "tracking/steps.h"
#include "tracking/supervision.h"

namespace {

// Icons by words, so that the letters of a situation mean states alone.
constexpr int Lit = ACTIV_ICON, Rings = INCOM_ICON, Held = HOLD_ICON, Dark = IDLE_ICON, Reserved = RESERVED_ICON;

using Given = std::function<void()>;

class MultiLine : public Requests {
protected:
    struct Row {
        std::string situation;  // as Stand takes it: keys and states, "1P 1T"
        int key, stored, icon;
        std::string steps;
        int then, active;  // the icon and the active key afterwards
        Given also = {};
    };
    void Check(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            Stand(row.situation, "");
            At(row.key).icon = row.stored;
            if (row.stored != Lit && Tracking.ActivCallTouch == row.key)
                Tracking.ActivCallTouch = 0;
            if (row.also)
                row.also();
            Icon(row.key, row.icon);
            EXPECT_EQ(Steps(), row.steps);
            EXPECT_EQ(At(row.key).icon, row.then) << row.steps;
            EXPECT_EQ(Tracking.ActivCallTouch, row.active) << row.steps;
        }
    }
    Given Consultation(int mode) {
        return [=, this] {
            Settings.EnquiryCallMode = mode;
            RunningRequest = {REQUEST_SETUP_TRANSFER, 5, Call(12, 0, IDLE)};
        };
    }
};

TEST_F(MultiLine, ChangesWithoutAStepTouchNothing) {
    for (const auto& [stored, icon] : {std::pair{Dark, Held},
                                       {Dark, Dark},
                                       {Lit, Lit},
                                       {Rings, Rings},
                                       {Rings, Held},
                                       {Held, Held},
                                       {Reserved, Lit},
                                       {Reserved, Rings},
                                       {Reserved, Held}})
        for (const char* situation : {"1O", "1R", "1T", "1P", "1C", "1H", "1D", "1F"})
            Check({{situation, 1, stored, icon, "", stored, stored == Lit ? 1 : 0}});
    Check({{"", 12, Dark, Lit, "", Dark, 0}});
}

TEST_F(MultiLine, FromAnIdleKey) {
    const Given waiting = [&] {
        Tracking.PickUpCref = Call(12, 0, OFFERING);
        PickUpSupervCref = Call(7, 0, OFFERING);
        SwapKeyTransferingCref = Call(8, 0, ONHOLD);
    };
    const Given allTaken = [&] {
        for (CallRecord& call : CallTable)
            call.touch = 5;
    };
    Check({
        {"", 1, Dark, Lit, "NEWCALL 1 | Icone:1 - Etat:DIALTONE - Ref:1 | STATE 1 DIALTONE", Lit, 1, Consultation(1)},
        {"1P", 1, Dark, Lit, "ACT_ACTIV_ICON ref 0000 ffffffff deja cree", Lit, 1},
        {"1P 1T", 1, Dark, Rings,
         "CROISEMENT arrivee/depart iconid:1 cref1 0 cref2 1 | ClearCall cref 0 | STATE 0 DISCONNECTED 1 | "
         "STATE 0 IDLE | ClearCall cref 1 | STATE 1 DISCONNECTED 1 | STATE 1 IDLE | NEWCALL 0",
         Rings, 0, [] { Tracking.OfferTicks = 9; }},
    });
    EXPECT_EQ(Tracking.OfferTicks, 0) << "its caller has a second to show, whoever rang before";
    EXPECT_EQ(Tracking.RingingKey, 0) << "once its call has ended, it is free again";
    Check({
        {"", 2, Dark, Rings, "SwapKeyTransfering cref 0000 new Icone:2 state INCOMING", Rings, 0,
         [&] { SwapKeyTransferingCref = Call(8, 0, OFFERING); }},
        {"", 1, Dark, Reserved, "NEWCALL 0 | Icone:1 - Etat:RESERVED DISCONNECTED - Ref:0 | STATE 0 DISCONNECTED", Lit,
         1},
        {"1P", 1, Dark, Reserved, "", Lit, 1},
        {"", 8, Dark, Reserved, "", Dark, 0},
        {"", 1, Dark, Lit, "", Dark, 0, [] { Tracking.ForwardAckTicks = 3; }},
        {"", 1, Dark, Rings, "", Rings, 0, allTaken},
        {"", 1, Dark, Lit, "", Lit, 1, allTaken},
        {"", 1, Dark, Reserved, "", Lit, 1, allTaken},
    });
    EXPECT_THAT(At(1).calls, ElementsAre(-1, -1));
    Check({{"", 2, Dark, Lit,
            "InPickUpFunction Icone:2 - Etat:PROCEEDING - Ref:0 | STATE 0 PROCEEDING | "
            "InPickUpSupervFunction Icone:2 - Etat:CONNECTED - Ref:1 | STATE 1 CONNECTED | "
            "SwapKeyTransfering cref 0002 new Icone:2",
            Lit, 2, waiting}});
    EXPECT_EQ(Tracking.PickUpCref, 0) << "until it is reported connected";
    for (const int cref : {0, 1, 2})
        EXPECT_EQ(Record(cref).touch, 2);
    EXPECT_EQ(PickUpSupervCref + SwapKeyTransferingCref, -2);
    Check({{"", 1, Dark, Lit,
            "REPLY 9 0 | sendCompletion SetupTransfer  | Icone:1 - Etat:DIALTONE - Ref:0 | STATE 0 DIALTONE", Lit, 1,
            Consultation(0)}});
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_EQ(RunningRequest.ConsultCref, -1);
    EXPECT_EQ(Record(0).touch, 1);
}

TEST_F(MultiLine, AnswerHoldRetrieve) {
    const std::string notConnected = "Impossible de mettre un appel non connected onhold",
                      retrieved = "ActivCallTouch:0 - iconid:1 | Icone:1  - Etat:CONNECTED - Ref:0 cas 3";
    Check({
        {"1H-", 1, Held, Lit, retrieved, Lit, 1},
        {"1H", 1, Held, Lit, retrieved + " | STATE 0 CONNECTED", Lit, 1},
        {"1H 1H", 1, Held, Lit, "Impossible 2 appels sur la même Touche ??", Held, 0},
        {"", 1, Held, Lit, notConnected, Held, 0},
        {"1O-", 1, Rings, Lit, "Icone:1 - Etat:CONNECTED - Ref:0 cas 5 | Inbound:0 | STATE 0 CONNECTED", Lit, 1},
        {"1R", 1, Rings, Lit,
         "ActivCallTouch:0 - iconid:1 | Icone:1 - Etat:CONNECTED - Ref:0 cas 4 | Inbound:1 | STATE 0 CONNECTED", Lit,
         1},
        {"", 1, Rings, Lit, "Impossible: l'appel n'a pas été enregistré", Rings, 0},
        {"1C", 1, Lit, Held, "Icone:1  - Etat:ONHOLD - Ref:0 | STATE 0 ONHOLD", Held, 0},
        {"1C-", 1, Lit, Held, "Icone:1  - Etat:ONHOLD - Ref:0", Held, 0},
        {"1C 1H", 1, Lit, Held, "Impossible 2 appels sur la même Touche en garde ??", Lit, 1},
        {"1T", 1, Lit, Held, notConnected, Lit, 1},
    });
}

// A record at dial tone on key 3 or 8 comes to stand on another key before its own has gone out.
TEST_F(MultiLine, KeyThatItsCallHasLeftWaitsForTheNext) {
    const auto leaves = [&](int from, int to, const Given& move) {
        Stand("", "");
        Call(from, 0, DIALTONE);
        Active(from);
        move();
        EXPECT_EQ(Record(0).touch, to);
        EXPECT_THAT(At(from).calls, ElementsAre(-1, -1));
        EXPECT_NE(Tracking.ActivCallTouch, from) << "else a call taken back elsewhere would make a conference";
        Steps();
        Icon(from, Dark);
        EXPECT_EQ(Steps(), "") << "the call lives on key " << to;
        Icon(from, Rings);
        EXPECT_THAT(Steps(), testing::StartsWith("NEWCALL"));
    };
    const Given transfer = [] { RunningRequest = {REQUEST_SETUP_TRANSFER, 5, 0}; };
    leaves(3, 1, [&] { transfer(), Settings.EnquiryCallMode = 0, Icon(1, Lit); });
    leaves(3, 1, [&] {
        transfer(), Settings.EnquiryCallMode = 1;
        RunningRequest.Cref = Call(1, 0, CONNECTED);
        Active(1), Display(1, "Fin2Ap");
    });
    leaves(3, 8, [&] {
        Key(8, TOUCH_PATRON, "4730");
        CopyText(Record(0).DestAddress, "4730");
        EXPECT_EQ(DoMakeCall(0, REQUEST_MAKE_CALL), 0);
    });
    leaves(8, 1, [&] { SwapKeyTransferingCref = 0, Icon(1, Lit); });
    leaves(8, 1, [&] { SwapKeyTransferingCref = 0, Icon(1, Rings); });
    leaves(3, 1, [&] { Tracking.PickUpCref = 0, Icon(1, Lit), Tracking.PickUpCref = -1; });
    Stand("3H 3C @3", "");
    StandOnKey(1, 0);
    EXPECT_EQ(Tracking.DbCall, 0);
    EXPECT_EQ(Tracking.ActivCallTouch, 3) << "the other one talks on";
    EXPECT_THAT(At(3).calls, ElementsAre(-1, 1));
}

TEST_F(MultiLine, KeyThatRingsAgain) {
    const std::string reoffered = "Icone:1 - Etat:REOFFERING - Ref:0",
                      abandoned = "Icone:1 - Etat:DISCONNECTED - Ref:1 | STATE 1 DISCONNECTED 1 | "
                                  "Icone:1 - Etat:IDLE - Ref:1 | STATE 1 IDLE | " +
                                  reoffered + " | STATE 0 OFFERING";
    Check({
        {"1H", 1, Held, Rings, "STATE 0 OFFERING | " + reoffered, Rings, 0},
        {"1H-", 1, Held, Rings, reoffered, Rings, 0},
        {"1C", 1, Held, Rings, "Pb d'état ...", Held, 0},
        {"1H 1T", 1, Lit, Rings, abandoned, Rings, 1},
        {"1H 1T", 2, Lit, Rings, "Pb d'état...", Lit, 1},
        {"1H 2H", 2, Lit, Rings, "STATE 1 OFFERING | Icone:2 - Etat:REOFFERING - Ref:1", Rings, 2},
        {"1C", 1, Lit, Rings, "", Lit, 1},
        {"1D", 1, Lit, Rings, "Icone:1 - Etat:OFFERING - Ref:0 | STATE 0 OFFERING", Rings, 1},
        {"1H 1P", 1, Lit, Rings, abandoned, Rings, 1},
    });
    EXPECT_EQ(Record(1).Inbound, 1) << "an abandoned call keeps its direction";
    EXPECT_EQ(Tracking.DbCall, 0);
    Check({{"1H 1D", 1, Lit, Rings, "STATE 1 IDLE | Icone:1 - Etat:IDLE - Ref:1 | STATE 0 OFFERING | " + reoffered,
            Rings, 1}});
    EXPECT_FALSE(Record(1).HasDirection());
    EXPECT_EQ(Tracking.DbCall, 0);
    Check({{"1D-", 1, Lit, Rings, "Icone:1 - Etat:OFFERING - Ref:0 | STATE 0 OFFERING", Rings, 1,
            [] { Tracking.DbCall = 1; }}});
    EXPECT_EQ(Tracking.DbCall, 0);
    EXPECT_EQ(Record(0).Inbound, 1) << "offered";
}

// A record that its former call has left its direction, as an abandoned second call does.
TEST_F(MultiLine, NewCallHasItsOwnDirection) {
    const std::tuple<const char*, const char*, Given> rows[] = {
        // Inbound, Outbound, byMakeCall
        {"", "010", [&] { Icon(1, Lit); }},
        {"", "110", [&] { Icon(1, Rings); }},
        {"", "100", [&] { Icon(1, Reserved); }},
        {"", "110", [&] { Icon(7, Rings); }},
        {"", "010", [] { NewCall(1, PROCEEDING); }},
        {"", "100", [&] { Tracking.PickUpCref = 0, Icon(1, Lit); }},
        {"", "100", [&] { PickUpSupervCref = 0, Icon(1, Lit); }},
        {"", "011",
         [&] {
             RunningRequest = {REQUEST_SETUP_TRANSFER, 5, 0}, Icon(1, Lit);
         }},
        {"", "111", [] { DoMakeCall(0, REQUEST_MAKE_CALL); }},
        {"1C", "010", [&] { Settings.EnquiryCallMode = 1, Display(1, "Fin2Ap"); }},
        {"1C", "011", [&] { Display(0, "Numero:"); }},
    };
    for (const auto& [situation, direction, begins] : rows) {
        Stand(situation, "");
        Settings.EnquiryCallMode = 0;
        const int cref = *situation == 0 ? 0 : 1;
        CallRecord& call = Record(cref);
        call.Inbound = call.Outbound = call.byMakeCall = 1;
        call.htCall = reinterpret_cast<HTAPICALL>(static_cast<std::uintptr_t>(0x100 + cref));
        begins();
        EXPECT_EQ(std::to_string(call.Inbound) + std::to_string(call.Outbound) + std::to_string(call.byMakeCall),
                  direction)
            << &direction - &std::get<1>(rows[0]);
        Steps();
    }
}

TEST_F(MultiLine, KeyThatGoesOut) {
    const auto ended = [](int key, const std::string& cref = "0") {
        const std::string out = " | Icone:" + std::to_string(key) + " éteint - Etat:", state = "STATE " + cref;
        return state + " DISCONNECTED 1" + out + "DISCONNECTED - Ref:" + cref + " | " + state + " IDLE" + out +
               "IDLE - Ref:" + cref;
    };
    const Given dropping = [] { RunningRequest = {REQUEST_DROP, 0, -1}; };
    const Given transferring = [] { SwapKeyTransferingCref = 0; };
    const std::string dropped = "lineDrop Running cref 0000 => LINE_REPLY OK | REPLY 9 0",
                      idle = " | Icone:1 éteint - Etat:IDLE - Ref:";
    Check({
        {"1C-", 1, Lit, Dark, ended(1), Dark, 0, [] { Record(0).state = BUSY; }},
        {"1T", 1, Lit, Dark, ended(1), Dark, 0},
        {"1H", 1, Held, Dark, ended(1), Dark, 0},
        {"1R", 1, Rings, Dark, ended(1), Dark, 0},
        {"1O", 1, Rings, Reserved, ended(1), Dark, 0},
        {"1O", 1, Lit, Reserved, ended(1), Dark, 1},
        {"8C", 8, Lit, Reserved, ended(8), Dark, 0},
        {"1C 1H", 1, Lit, Reserved, "STATE 0 DISCONNECTED 1 | Icone:1 éteint - Etat:DISCONNECTED - Ref:0 | " + dropped,
         Lit, 1, dropping},
        {"1D 1H", 1, Lit, Reserved, dropped, Lit, 1, dropping},
        {"1D", 1, Lit, Dark, "STATE 0 IDLE | " + dropped + idle + "0", Dark, 0, dropping},
        {"2C 1D", 1, Lit, Dark, "STATE 1 IDLE" + idle + "1", Dark, 0},
        {"9C", 9, Lit, Dark, "Icone:9 éteint - cref 0000 transfert touche PAT/SEC", Dark, 0, transferring},
        {"9C 2C @2", 9, Lit, Dark, "Icone:9 éteint - cref 0000 transfert touche PAT/SEC", Dark, 2, transferring},
        {"8O", 8, Lit, Dark, "Icone:8 éteint cref 0000 transfert subi en sonnerie touche PAT/SEC", Dark, 8,
         transferring},
        {"10C", 10, Lit, Dark, ended(10), Dark, 0, transferring},
        {"1I", 1, Lit, Dark, "", Lit, 1},
        {"2C 2H 1H", 1, Held, Dark, ended(1, "2"), Dark, 2},
    });
    EXPECT_EQ(Tracking.DbCall, 1) << "another key's two calls";
    Check({{"1C 1H", 1, Lit, Dark, ended(1) + " | " + ended(1, "1"), Dark, 0}});
    EXPECT_EQ(Tracking.DbCall, 0);
    Check({{"1P", 1, Lit, Dark, ended(1), Dark, 0, [] { CopyText(TmpAddress, "4720"); }}});
    EXPECT_STREQ(TmpAddress, "") << "its digits are not the next call's";
    // Three multi-line keys: the fourth waiting entry is not looked at.
    for (const int icon : {Lit, Dark})
        for (const std::size_t entry : {2u, 3u}) {
            Stand("1O", "");
            At(1).icon = Rings;
            WaitInfo[entry] = 0;
            Icon(1, icon);
            EXPECT_EQ(WaitInfo[entry], entry < 3 ? -1 : 0);
            EXPECT_EQ(Tracking.UnknownConnectedCall, entry < 3 && icon == Lit ? 0 : -1);
        }
}

TEST_F(MultiLine, SupervisionKeyThatStopsRinging) {
    const Given pickedUp = [] { PickUpSupervCref = 0; };
    const Given elsewhere = [] { Record(0).touch = 2; };
    for (const int icon : {Dark, Reserved})
        Check({
            {"", 7, Rings, icon, "", Dark, 0},
            {"7O", 7, Rings, Lit, "", Rings, 0},
            {"7R", 7, Rings, icon,
             "STATE 0 DISCONNECTED 1 | Icone:7 éteint - Etat:DISCONNECTED - Ref:0 | STATE 0 IDLE | "
             "Icone:7 éteint - Etat:IDLE - Ref:0 | Annulation PickUpSupervProceeding 0000 ",
             Dark, 0, pickedUp},
            {"7O", 7, Rings, icon, "", Rings, 0, elsewhere},
            {"7H", 7, Rings, icon, "Icone:7 éteint - Superv Interceptee - Ref:0", Dark, 0, elsewhere},
            {"7C", 7, Rings, icon, "Icone:7 éteint - Superv etat impossible 100 - Ref:0", Rings, 0},
        });
    for (const char* silent : {"", "7C", "7R"}) {
        Stand(silent, "");
        SupervKeyPressed(7);
        EXPECT_EQ(PickUpSupervCref, -1) << "it does not ring";
    }
    Fresh();
    Settings.SupervService = 0;
    Icon(7, Rings);
    EXPECT_EQ(Steps(), "");
    Settings.SupervService = 1;
    Icon(7, Rings);
    Icon(7, Rings);
    EXPECT_EQ(Steps(), "NEWCALL 0") << "the same call still";
    SupervKeyPressed(7);
    EXPECT_EQ(Steps(), "Appui sur tou superv 7 en sonnerie => interception manuelle cref 0000");
    Record(0).touch = 2;  // intercepted, and the next call rings before the key has gone out
    Icon(7, Rings);
    EXPECT_EQ(Steps(), "NEWCALL 1");
}

}  // namespace
