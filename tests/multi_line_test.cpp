// The icon machine and the supervision keys: traces and events in their order, and what stands on the key afterwards.
// Key 1 and call 0 unless a row says otherwise.
#include "support/tracked.h"
#include "tracking/supervision.h"

#include <functional>

namespace {

using Given = std::function<void()>;

struct Row {
    Given given;
    int key, icon;
    std::string steps;
    int stored, active;  // afterwards
};

class MultiLine : public TrackedSet {
protected:
    void Check(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            Fresh();
            row.given();
            Icon(row.key, row.icon);
            EXPECT_EQ(Steps(), row.steps);
            EXPECT_EQ(At(row.key).icon, row.stored) << row.steps;
            EXPECT_EQ(Tracking.ActivCallTouch, row.active) << row.steps;
        }
    }
    // A call on a key, shown by this icon.
    Given Lit(int icon, DWORD state, bool directed = true, int key = 1) {
        return [=, this] {
            const int cref = Call(key, 0, state);
            At(key).icon = icon;
            if (icon == ACTIV_ICON)
                Tracking.ActivCallTouch = key;
            if (!directed)
                Undirected(cref);
        };
    }
    Given Empty(int icon) {
        return [=] { At(1).icon = icon; };
    }
    Given Two(DWORD first, DWORD second) {
        return [=, this] { Double(first, second); };
    }
    // The same with a request running on call 0.
    Given Dropping(DWORD state) {
        return [=, this] {
            Lit(ACTIV_ICON, state)();
            RunningRequest = {REQUEST_DROP, 0, -1};
            ProviderState.PendingRequestID = 9;
        };
    }
    Given Transferring(int key, DWORD state) {
        return [=, this] {
            Lit(ACTIV_ICON, state, true, key)();
            SwapKeyTransferingCref = 0;
        };
    }
    Given Consultation(int mode) {
        return [=, this] {
            Settings.EnquiryCallMode = mode;
            RunningRequest = {REQUEST_SETUP_TRANSFER, 5, Call(12, 0, IDLE)};
            ProviderState.PendingRequestID = 7;
        };
    }
};

TEST_F(MultiLine, ChangesWithoutAStepTouchNothing) {
    const std::pair<int, int> cells[] = {
        {IDLE_ICON, HOLD_ICON},     {IDLE_ICON, IDLE_ICON}, {ACTIV_ICON, ACTIV_ICON},    {INCOM_ICON, INCOM_ICON},
        {INCOM_ICON, HOLD_ICON},    {HOLD_ICON, HOLD_ICON}, {RESERVED_ICON, ACTIV_ICON}, {RESERVED_ICON, INCOM_ICON},
        {RESERVED_ICON, HOLD_ICON}, {0, INCOM_ICON}};
    for (const auto& [stored, icon] : cells)
        for (const DWORD state :
             {OFFERING, STATE_REOFFERING, DIALTONE, PROCEEDING, CONNECTED, ONHOLD, DISCONNECTED, CONFERENCED}) {
            Fresh();
            Lit(stored, state)();
            Icon(1, icon);
            EXPECT_EQ(Steps(), "") << stored << " " << icon;
            EXPECT_EQ(At(1).icon, stored);
            EXPECT_EQ(Record(0).state, state);
        }
    Icon(12, ACTIV_ICON);
    EXPECT_EQ(At(12).icon, IDLE_ICON) << "not a tracked key";
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
    const Given crossed = [&] { Call(1, 0, PROCEEDING), Call(1, 1, DIALTONE); };
    Check({
        {Consultation(0), 1, ACTIV_ICON,
         "REPLY 7 0 | sendCompletion SetupTransfer  | Icone:1 - Etat:DIALTONE - Ref:0 | STATE 0 DIALTONE", ACTIV_ICON,
         1},
        {Consultation(1), 1, ACTIV_ICON, "NEWCALL 1 | Icone:1 - Etat:DIALTONE - Ref:1 | STATE 1 DIALTONE", ACTIV_ICON,
         1},
        {Lit(IDLE_ICON, PROCEEDING), 1, ACTIV_ICON, "ACT_ACTIV_ICON ref 0000 ffffffff deja cree", ACTIV_ICON, 1},
        {waiting, 2, ACTIV_ICON,
         "InPickUpFunction Icone:2 - Etat:PROCEEDING - Ref:0 | STATE 0 PROCEEDING | "
         "InPickUpSupervFunction Icone:2 - Etat:CONNECTED - Ref:1 | STATE 1 CONNECTED | "
         "SwapKeyTransfering cref 0002 new Icone:2",
         ACTIV_ICON, 2},
        {crossed, 1, INCOM_ICON,
         "CROISEMENT arrivee/depart iconid:1 cref1 0 cref2 1 | ClearCall cref 0 | STATE 0 DISCONNECTED 1 | "
         "STATE 0 IDLE | ClearCall cref 1 | STATE 1 DISCONNECTED 1 | STATE 1 IDLE | NEWCALL 0",
         INCOM_ICON, 0},
        {[&] { SwapKeyTransferingCref = Call(8, 0, OFFERING); }, 2, INCOM_ICON,
         "SwapKeyTransfering cref 0000 new Icone:2 state INCOMING", INCOM_ICON, 0},
        {Empty(IDLE_ICON), 1, RESERVED_ICON,
         "NEWCALL 0 | Icone:1 - Etat:RESERVED DISCONNECTED - Ref:0 | STATE 0 DISCONNECTED", ACTIV_ICON, 1},
        {Lit(IDLE_ICON, PROCEEDING), 1, RESERVED_ICON, "", ACTIV_ICON, 1},
        {Empty(IDLE_ICON), 8, RESERVED_ICON, "", IDLE_ICON, 0},
        {[] { Tracking.ForwardAckTicks = 3; }, 1, ACTIV_ICON, "", IDLE_ICON, 0},
        {allTaken, 1, INCOM_ICON, "", INCOM_ICON, 0},
        {allTaken, 1, ACTIV_ICON, "", ACTIV_ICON, 1},
    });
    EXPECT_THAT(At(1).calls, ElementsAre(-1, -1));
    Fresh();
    waiting();
    Icon(2, ACTIV_ICON);
    EXPECT_EQ(Tracking.PickUpCref, 0) << "until it is reported connected";
    for (const int cref : {0, 1, 2})
        EXPECT_EQ(Record(cref).touch, 2);
    EXPECT_EQ(PickUpSupervCref, -1);
    EXPECT_EQ(SwapKeyTransferingCref, -1);
    Fresh();
    Consultation(0)();
    Icon(1, ACTIV_ICON);
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    EXPECT_EQ(RunningRequest.ConsultCref, -1);
    EXPECT_EQ(Record(0).touch, 1);
    EXPECT_EQ(Record(0).byMakeCall, 1);
}

TEST_F(MultiLine, AnswerHoldRetrieve) {
    const char* notConnected = "Impossible de mettre un appel non connected onhold";
    Check({
        {Lit(HOLD_ICON, ONHOLD, false), 1, ACTIV_ICON,
         "ActivCallTouch:0 - iconid:1 | Icone:1  - Etat:CONNECTED - Ref:0 cas 3", ACTIV_ICON, 1},
        {[&] { Lit(HOLD_ICON, ONHOLD)(), Tracking.ActivCallTouch = 1; }, 1, ACTIV_ICON,
         "ActivCallTouch:1 - iconid:1 | Icone:1  - Etat:CONNECTED - Ref:0 cas 3 | STATE 0 CONNECTED", ACTIV_ICON, 1},
        {[&] { Lit(HOLD_ICON, ONHOLD)(), Call(1, 1, ONHOLD); }, 1, ACTIV_ICON,
         "Impossible 2 appels sur la même Touche ??", HOLD_ICON, 0},
        {Empty(HOLD_ICON), 1, ACTIV_ICON, notConnected, HOLD_ICON, 0},
        {Lit(INCOM_ICON, OFFERING, false), 1, ACTIV_ICON,
         "Icone:1 - Etat:CONNECTED - Ref:0 cas 5 | Inbound:0 | STATE 0 CONNECTED", ACTIV_ICON, 1},
        {Lit(INCOM_ICON, STATE_REOFFERING), 1, ACTIV_ICON,
         "ActivCallTouch:0 - iconid:1 | Icone:1 - Etat:CONNECTED - Ref:0 cas 4 | Inbound:1 | STATE 0 CONNECTED",
         ACTIV_ICON, 1},
        {Empty(INCOM_ICON), 1, ACTIV_ICON, "Impossible: l'appel n'a pas été enregistré", INCOM_ICON, 0},
        {Lit(ACTIV_ICON, CONNECTED), 1, HOLD_ICON, "Icone:1  - Etat:ONHOLD - Ref:0 | STATE 0 ONHOLD", HOLD_ICON, 0},
        {Lit(ACTIV_ICON, CONNECTED, false), 1, HOLD_ICON, "Icone:1  - Etat:ONHOLD - Ref:0", HOLD_ICON, 0},
        {Two(CONNECTED, ONHOLD), 1, HOLD_ICON, "Impossible 2 appels sur la même Touche en garde ??", ACTIV_ICON, 1},
        {Lit(ACTIV_ICON, DIALTONE), 1, HOLD_ICON, notConnected, ACTIV_ICON, 1},
    });
}

TEST_F(MultiLine, KeyThatRingsAgain) {
    const char* abandoned = "Icone:1 - Etat:DISCONNECTED - Ref:1 | STATE 1 DISCONNECTED 1 | Icone:1 - Etat:IDLE - Ref:1"
                            " | STATE 1 IDLE | Icone:1 - Etat:REOFFERING - Ref:0 | STATE 0 OFFERING";
    const Given otherKey = [&] { Double(ONHOLD, DIALTONE), At(2).icon = ACTIV_ICON; };
    const Given otherActive = [&] {
        Lit(ACTIV_ICON, ONHOLD)(), Call(2, 0, ONHOLD);
        At(2).icon = ACTIV_ICON;
    };
    Check({
        {Lit(HOLD_ICON, ONHOLD), 1, INCOM_ICON, "STATE 0 OFFERING | Icone:1 - Etat:REOFFERING - Ref:0", INCOM_ICON, 0},
        {Lit(HOLD_ICON, ONHOLD, false), 1, INCOM_ICON, "Icone:1 - Etat:REOFFERING - Ref:0", INCOM_ICON, 0},
        {Lit(HOLD_ICON, CONNECTED), 1, INCOM_ICON, "Pb d'état ...", HOLD_ICON, 0},
        {Two(ONHOLD, PROCEEDING), 1, INCOM_ICON, abandoned, INCOM_ICON, 1},
        {Two(ONHOLD, DIALTONE), 1, INCOM_ICON, abandoned, INCOM_ICON, 1},
        {otherKey, 2, INCOM_ICON, "Pb d'état...", ACTIV_ICON, 1},
        {otherActive, 2, INCOM_ICON, "STATE 1 OFFERING | Icone:2 - Etat:REOFFERING - Ref:1", INCOM_ICON, 2},
        {Two(ONHOLD, DISCONNECTED), 1, INCOM_ICON,
         "STATE 1 IDLE | Icone:1 - Etat:IDLE - Ref:1 | STATE 0 OFFERING | Icone:1 - Etat:REOFFERING - Ref:0",
         INCOM_ICON, 1},
        {Lit(ACTIV_ICON, CONNECTED), 1, INCOM_ICON, "", ACTIV_ICON, 1},
        {Lit(ACTIV_ICON, DISCONNECTED), 1, INCOM_ICON, "Icone:1 - Etat:OFFERING - Ref:0 | STATE 0 OFFERING", INCOM_ICON,
         1},
    });
    for (const DWORD second : {PROCEEDING, DISCONNECTED}) {
        Fresh();
        Double(ONHOLD, second);
        Icon(1, INCOM_ICON);
        EXPECT_EQ(Record(1).Outbound, second == PROCEEDING ? 1 : 0) << "an abandoned call keeps its direction";
        EXPECT_EQ(Tracking.DbCall, 0);
    }
}

TEST_F(MultiLine, KeyThatGoesOut) {
    const auto ended = [](int key, const std::string& cref = "0") {
        const std::string out = " | Icone:" + std::to_string(key) + " éteint - Etat:", state = "STATE " + cref;
        return state + " DISCONNECTED 1" + out + "DISCONNECTED - Ref:" + cref + " | " + state + " IDLE" + out +
               "IDLE - Ref:" + cref;
    };
    const std::string dropped = "lineDrop Running cref 0000 => LINE_REPLY OK | REPLY 9 0";
    Check({
        {Lit(ACTIV_ICON, BUSY, false), 1, IDLE_ICON, ended(1), IDLE_ICON, 0},
        {Lit(ACTIV_ICON, DIALTONE), 1, IDLE_ICON, ended(1), IDLE_ICON, 0},
        {Lit(ACTIV_ICON, PROCEEDING), 1, IDLE_ICON, ended(1), IDLE_ICON, 0},
        {Lit(HOLD_ICON, ONHOLD), 1, IDLE_ICON, ended(1), IDLE_ICON, 0},
        {Lit(INCOM_ICON, STATE_REOFFERING), 1, IDLE_ICON, ended(1), IDLE_ICON, 0},
        {Lit(INCOM_ICON, OFFERING), 1, RESERVED_ICON, ended(1), IDLE_ICON, 0},
        {Two(CONNECTED, ONHOLD), 1, IDLE_ICON, ended(1) + " | " + ended(1, "1"), IDLE_ICON, 0},
        {Lit(ACTIV_ICON, OFFERING), 1, RESERVED_ICON, ended(1), IDLE_ICON, 1},
        {Lit(ACTIV_ICON, CONNECTED, true, 8), 8, RESERVED_ICON, ended(8), IDLE_ICON, 0},
        {Dropping(CONNECTED), 1, RESERVED_ICON,
         "STATE 0 DISCONNECTED 1 | Icone:1 éteint - Etat:DISCONNECTED - Ref:0 | " + dropped, ACTIV_ICON, 1},
        {Dropping(DISCONNECTED), 1, RESERVED_ICON, dropped, ACTIV_ICON, 1},
        {Dropping(DISCONNECTED), 1, IDLE_ICON, "STATE 0 IDLE | " + dropped + " | Icone:1 éteint - Etat:IDLE - Ref:0",
         IDLE_ICON, 0},
        {Transferring(9, CONNECTED), 9, IDLE_ICON, "Icone:9 éteint - cref 0000 transfert touche PAT/SEC", IDLE_ICON, 0},
        {Transferring(8, OFFERING), 8, IDLE_ICON, "Icone:8 éteint cref 0000 transfert subi en sonnerie touche PAT/SEC",
         IDLE_ICON, 8},
        {Transferring(10, CONNECTED), 10, IDLE_ICON, ended(10), IDLE_ICON, 0},
        {Lit(ACTIV_ICON, IDLE), 1, IDLE_ICON, "", ACTIV_ICON, 1},
    });
    // Three multi-line keys: the fourth waiting entry is not looked at.
    for (const int icon : {ACTIV_ICON, IDLE_ICON})
        for (const std::size_t entry : {2u, 3u}) {
            Fresh();
            Lit(INCOM_ICON, OFFERING)();
            WaitInfo[entry] = 0;
            Icon(1, icon);
            EXPECT_EQ(WaitInfo[entry], entry < 3 ? -1 : 0);
            EXPECT_EQ(Tracking.UnknownConnectedCall, entry < 3 && icon == ACTIV_ICON ? 0 : -1);
        }
}

TEST_F(MultiLine, SupervisionKeyThatStopsRinging) {
    struct Case {
        DWORD state;
        int touch;  // where the call of key 7 stands now; -1 = none
        const char* steps;
        int stored, slot;
    };
    const Case cases[] = {
        {0, -1, "", IDLE_ICON, -1},
        {STATE_REOFFERING, 7,
         "STATE 0 DISCONNECTED 1 | Icone:7 éteint - Etat:DISCONNECTED - Ref:0 | STATE 0 IDLE | "
         "Icone:7 éteint - Etat:IDLE - Ref:0 | Annulation PickUpSupervProceeding 0000 ",
         IDLE_ICON, -1},
        {OFFERING, 2, "", INCOM_ICON, 0},
        {ONHOLD, 2, "Icone:7 éteint - Superv Interceptee - Ref:0", IDLE_ICON, -1},
        {CONNECTED, 7, "Icone:7 éteint - Superv etat impossible 100 - Ref:0", INCOM_ICON, 0},
    };
    for (const int icon : {IDLE_ICON, RESERVED_ICON})
        for (const Case& c : cases) {
            Fresh();
            At(7).icon = INCOM_ICON;
            if (c.touch != -1) {
                PickUpSupervCref = Call(7, 0, c.state);
                Record(0).touch = c.touch;
            }
            Icon(7, ACTIV_ICON);
            Icon(7, HOLD_ICON);
            EXPECT_EQ(Steps(), "") << "the colleague answered";
            Icon(7, icon);
            EXPECT_EQ(Steps(), c.steps);
            EXPECT_EQ(At(7).icon, c.stored) << c.steps;
            EXPECT_EQ(At(7).calls[0], c.slot) << c.steps;
        }
    Fresh();
    SupervKeyPressed(7);
    EXPECT_EQ(PickUpSupervCref, -1) << "it does not ring";
    Icon(7, INCOM_ICON);
    Icon(7, INCOM_ICON);
    EXPECT_EQ(Steps(), "NEWCALL 0") << "the same call still";
    Record(0).touch = 2;  // intercepted, and the next call rings before the key has gone out
    Icon(7, INCOM_ICON);
    EXPECT_EQ(Steps(), "NEWCALL 1");
    Fresh();
    Settings.SupervService = 0;
    Icon(7, INCOM_ICON);
    EXPECT_EQ(Steps(), "");
    Settings.SupervService = 1;
    Icon(7, INCOM_ICON);
    Steps();
    TraceMask = TRACE_ENTRY;
    SupervKeyPressed(7);
    EXPECT_EQ(Steps(), "Appui sur tou superv 7 en sonnerie => interception manuelle cref 0000");
}

}  // namespace
