// Conferences: each way in and out, traces and events in their order.
#include "support/requests.h"
#include "tracking/conference.h"

using namespace std::string_view_literals;

namespace {

class Conference : public Requests {
protected:
    // Call 0 (held, or called back) on key 1 and call 1 on the active key 2.
    void TwoKeys(const std::string& situation) {
        Stand(situation + " 2C @2", "");
        At(1).icon = situation == "1H" ? HOLD_ICON : INCOM_ICON;
        At(2).icon = ACTIV_ICON;
    }
    void JoinKeys() {
        TwoKeys("1H");
        Icon(1, ACTIV_ICON);
        AskAgain();
    }
    void JoinOnOneKey() {
        Stand("1H 1C", "");
        SoftKeyPressed(3);
        AskAgain();
    }
    // A conference that an application asks for while there is one does not outlive it.
    static void AskAgain() {
        Tracking.ConferenceReq = 1;
        Steps();
    }
    static void ExpectNoConference() {
        EXPECT_EQ(Tracking.ConfInProgress | Tracking.ConfBroken | Tracking.ConfEndReq | Tracking.ConferenceReq, 0);
        EXPECT_EQ(Tracking.DbCall, 0);
    }
};

TEST_F(Conference, IsBuiltByThreeTriggers) {
    struct Case {
        const char* byIcon;  // the first party when a key's icon joins it; null = both are on one key
        std::function<void()> trigger;
        int request;
        std::string before, within;
    };
    const auto icon = [&] { Icon(1, ACTIV_ICON); };
    const std::string by = "ActivCallTouch:2 - iconid:1 | Passage en conférence";
    const Case cases[] = {
        {"1H", icon, 0, by + " detecte par icone. ConferenceReq 0 | NEWCALL 30", ""},
        {"1H", icon, 1, by + " detecte par icone. ConferenceReq 1", ""},
        {"1R", icon, 0, by + " | NEWCALL 30", ""},
        {nullptr, [] { SoftKeyPressed(3); }, 1, "Passage en conférence par appui sur soft key | NEWCALL 30", ""},
        {nullptr, [&] { Display(1, "Transf"); }, 1, "Passage en conference - double appel sur une ligne",
         "confstate 1000 - Ref:001e | "},
    };
    for (const Case& c : cases) {
        if (c.byIcon != nullptr)
            TwoKeys(c.byIcon);
        else
            Stand("1H 1C", "");
        ProviderState.htConference = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100 + CONF_CREF});
        Tracking.ConferenceReq = c.request;
        c.trigger();
        EXPECT_EQ(Steps(), c.before +
                               " | STATE 30 ONHOLDPENDCONF | Etat:LINECALLSTATE_ONHOLDPENDCONF - Ref:30 | "
                               "Icone:1  - Etat:CONFERENCED - Ref:0 | STATE 0 CONFERENCED | Icone:" +
                               (c.byIcon != nullptr ? "2" : "1") +
                               "  - Etat:CONFERENCED - Ref:1 | STATE 1 CONFERENCED | " + c.within +
                               "STATE 30 CONNECTED | Etat:LINECALLSTATE_CONNECTED - Ref:30");
        EXPECT_EQ(Tracking.ActivCallTouch, 1);
        EXPECT_EQ(At(1).icon, ACTIV_ICON);
        EXPECT_EQ(Tracking.ConfInProgress, 1);
        EXPECT_EQ(Tracking.ConferenceReq, 0);
        EXPECT_EQ(Tracking.ConfParty1, 0);
        EXPECT_EQ(Tracking.ConfParty2, 1);
        EXPECT_EQ(confstate, CONNECTED);
    }
    Stand("1H 1C", "");
    Display(1, "Transf");
    EXPECT_EQ(Steps(), "") << "not requested";
    TwoKeys("1H");
    Record(1).state = DIALTONE;
    Tracking.ConfParty2 = 5;
    icon();
    EXPECT_EQ(Record(0).state, CONFERENCED);
    EXPECT_EQ(Tracking.ConfParty2, 5) << "a party that is not found is skipped";
    Steps();
}

TEST_F(Conference, EndsWithItsKeys) {
    JoinKeys();
    Undirected(1);
    ProviderState.TAPI_OMNA_Ver = 1;
    Icon(2, IDLE_ICON);
    EXPECT_EQ(Steps(), "* Fin de la conférence icon 2 idle conferenced activtou 1* | STATE 30 IDLE | "
                       "Icone:2 éteint - Etat:DISCONNECTED - Ref:1 | Icone:2 éteint - Etat:IDLE - Ref:1 | "
                       "STATE 0 CONNECTED | Icone:1 - Etat:CONNECTED - Ref:0 cas 1")
        << "the party that left had no direction";
    EXPECT_EQ(confstate, IDLE);
    EXPECT_STREQ(Record(0).RedirectingName, "") << "read again from the display";
    ExpectNoConference();
    JoinOnOneKey();
    Icon(1, RESERVED_ICON);
    EXPECT_EQ(Steps(), "* Fin de la conférence sur une touche. icon 1 * | STATE 0 DISCONNECTED 1 | "
                       "STATE 1 DISCONNECTED 1 | STATE 0 IDLE | STATE 1 IDLE | Icone:1 éteint - Etat:IDLE - Ref:30 | "
                       "STATE 30 IDLE");
    EXPECT_TRUE(Tracking.ConfParty1 == -1 && Tracking.ConfParty2 == -1) << "no drop of call 1 ends a later one";
    EXPECT_EQ(confstate, IDLE);
    ExpectNoConference();
    for (const bool alone : {false, true}) {
        JoinKeys();
        if (alone)
            Record(1).state = IDLE;
        Icon(1, IDLE_ICON);
        EXPECT_EQ(Steps(),
                  std::string("* Fin de la conférence icon 1 (= activtou) idle conferenced * | STATE 30 DISCONNECTED 1 "
                              "| STATE 30 IDLE | STATE 0 DISCONNECTED 1 | Icone:1 éteint - Etat:DISCONNECTED - Ref:0") +
                      (alone ? " | Problème d'état xA ..."
                             : " | STATE 1 CONNECTED | Icone:2 - Etat:CONNECTED - Ref:1 cas 2") +
                      " | Icone:1 éteint - Etat:IDLE - Ref:0 | STATE 0 IDLE | Icone:1 éteint - Etat:IDLE - Ref:0");
        EXPECT_EQ(confstate, IDLE);
        EXPECT_EQ(At(1).icon, IDLE_ICON);
        ExpectNoConference();
    }
    JoinKeys();
    ProviderState.TAPI_OMNA_Ver = 2;
    Icon(2, IDLE_ICON);
    EXPECT_EQ(Record(0).state, CONNECTED);
    EXPECT_STREQ(Record(0).RedirectingName, "of before") << "the display does not tell it again";
}

TEST_F(Conference, ComesDownToThePartyThatStillShows) {
    for (const bool first : {true, false}) {
        JoinOnOneKey();
        Display(0, "MARTIN        DURAND        Conf");
        Display(1, "2eApp");
        EXPECT_EQ(Steps(),
                  "Passage en conference detecte par display 0 | * La conf a ete cassee par un interlocuteur *");
        Display(0, "12:30");
        EXPECT_EQ(Steps(), "* On detecte qui a casse la conf * | STATE 30 IDLE | Pb de detection de string");
        EXPECT_EQ(Tracking.ConferenceReq, 0);
        Display(0, first ? "x\0MARTIN      "sv : "DURAND      "sv);
        const std::string stays = first ? "0" : "1", left = first ? "1" : "0";
        EXPECT_EQ(Steps(), std::string("* On detecte qui a casse la conf * | STATE 30 IDLE | Detection du ") +
                               (first ? "premier" : "second") + " | STATE " + stays +
                               " CONNECTED | Icone:1  - Etat:CONNECTED - Ref:" + stays +
                               (first ? " cas 11" : " cas 12") + " | STATE " + left +
                               " DISCONNECTED 1 | Icone:1  - Etat:DISCONNECTED - Ref:" + left + " | STATE " + left +
                               " IDLE | Icone:1  - Etat:IDLE - Ref:" + left);
        EXPECT_EQ(CallOnKey(1), first ? 0 : 1);
        ExpectNoConference();
        EXPECT_EQ(confstate, CONNECTED) << "IDLE is told, the state stays";
    }
    JoinOnOneKey();
    Display(1, "2eApp");
    Display(0, "12:30");
    EXPECT_THAT(Steps(), testing::HasSubstr("Detection du premier")) << "no text stands in every line";
}

TEST_F(Conference, SoftKeysCountOnlyForTheOneAndTheOtherOfTwoCalls) {
    for (const char* situation : {"1H 1C", "1P 1H", "1D 1H"})
        for (const int number : {1, 2, 3, 4}) {
            Stand(situation, "");
            const bool pair = situation == std::string("1H 1C");
            Tracking.DbCall = pair ? 0 : 1;
            SoftKeyPressed(number);
            EXPECT_EQ(Steps(), "") << situation << number;
        }
}

TEST_F(Conference, EndAskedForOnTheSet) {
    JoinOnOneKey();
    SoftKeyPressed(3);
    Display(1, "2eApp");
    InterpretDisplay(0, 0);
    EXPECT_EQ(Steps(), "* !Conf enfoncée *") << "no party has left; and not before a complete update";
    Display(0, "x");
    EXPECT_EQ(Steps(), "Fin de conference | STATE 30 IDLE | STATE 1 DISCONNECTED 1 | "
                       "Icone:1  - Etat:DISCONNECTED - Ref:1 | STATE 0 CONNECTED | "
                       "Icone:1  - Etat:CONNECTED - Ref:0 cas 13 | STATE 1 IDLE | Icone:1  - Etat:IDLE - Ref:1 | "
                       "Pb de detection de string");
    ExpectNoConference();
    Tracking.ConfEndReq = Tracking.ConfBroken = 1;
    Display(0, "y");
    EXPECT_EQ(Steps(), "Pb de detection de string | Pb de detection de string") << "no conference now";
    Stand("1H 1C", "");
    Tracking.ConfEndReq = Tracking.ConfBroken = 1;
    SoftKeyPressed(3);
    Steps();
    Display(0, "MARTIN");
    EXPECT_EQ(Steps(), "") << "the next conference is neither broken nor asked to end";
    Stand("1H 1C", "");
    SoftKeyPressed(2);
    Undirected(1);
    SoftKeyPressed(1);
    EXPECT_EQ(Steps(), "Icone:1  - Etat:ONHOLD - Ref:1 | STATE 1 ONHOLD | STATE 0 CONNECTED | "
                       "Icone:1  - Etat:CONNECTED - Ref:0 cas 15 | Icone:1  - Etat:DISCONNECTED - Ref:0 | "
                       "STATE 0 DISCONNECTED 1 | Icone:1  - Etat:CONNECTED - Ref:1 cas 14 | "
                       "Icone:1  - Etat:IDLE - Ref:0 | STATE 0 IDLE");
    EXPECT_EQ(Tracking.DbCall, 0);
}

}  // namespace
