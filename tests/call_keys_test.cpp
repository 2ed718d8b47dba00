// Drop, answer, hold and unhold: for each situation the key that is pressed, what is reported at once, the result.
#include "control/call_keys.h"

#include "support/requests.h"

namespace {

class CallKeys : public Requests {};

TEST_F(CallKeys, Drop) {
    const std::string proceeding = "La ligne a deconnecter est PROCEEDING | ",
                      connected = "DoClearCall - La ligne a deconnecter est CONNECTED",
                      disconnected = "DoClearCall - La ligne a deconnecter est DISCONNECTED",
                      party = "La ligne à deconnecter est CONFERENCED - Libération du dernier appel arrivé en conf",
                      alone = "On ne peut pas raccrocher l'appel";
    const auto drop = [] { return DoClearCall(0); };
    Check(drop, {{"", WRONG_STATE, "", ""},
                 {"1I", WRONG_STATE, "", ""},
                 {"1P", 0, RELEASE, proceeding + "pas d'autre appel en cours -> raccrochage"},
                 {"1P 1C", WRONG_STATE, "", proceeding + alone},
                 {"1C", 0, RELEASE, connected},
                 {"1C 1D", WRONG_STATE, "", connected + " | " + alone},
                 {"1H", WRONG_STATE, "", "La ligne a déconnecter est ONHOLD - impossible"},
                 {"1F 2F p0", 0, "03 26 20 1F 98", party},
                 {"1F 2F p1", WRONG_STATE, "", party},
                 {"1F 2F p0 b1", WRONG_STATE, "", party},
                 {"1D", 0, RELEASE, disconnected},
                 {"1D @2", 1, "", disconnected},
                 {"1O", 1, "", ""},
                 {"1R", 1, "", ""},
                 {"1T", 1, "", ""},
                 {"1P 1H", 0, SOFT1, proceeding + "On a 2 appels sur une ligne : 1 PROCEEDING / 1 ONHOLD"},
                 {"1C 1H", 0, SOFT1, connected + " | On a 2 appels sur une ligne : 1 CONNECTED / 1 ONHOLD"}});
    Display(1, "2eApp");
    EXPECT_EQ(CallOnKey(1), 1) << "the call that was dropped has left, not the held one";
    const auto dropConference = [] { return DoClearCall(CONF_CREF); };
    Check(dropConference, {{"", WRONG_STATE, "", "DoClearCall  confState 0"}}, "Transf");
    for (const auto& [labels, row] :
         {std::pair{"Conf", Row{"", UNAVAILABLE, "", "DoClearCall  confState 100"}},
          {"                        Transf", Row{"", 0, "03 26 20 20 97", " | DoClearCall sur Conf -> Transfert"}}})
        Check([] { return confstate = CONNECTED, DoClearCall(CONF_CREF); }, {row}, labels);
    EXPECT_EQ(DoClearCall(CALL_COUNT), WRONG_STATE);
}

TEST_F(CallKeys, Answer) {
    const auto answer = [] { return DoAnswer(0); };
    Check(answer, {{"1C", WRONG_STATE, "", ""}, {"2O", 0, "03 26 20 02 B5", ""}, {"9R", 0, "03 26 20 09 AE", ""}});
    EXPECT_EQ(PickUpSupervCref, -1);
    Check(answer, {{"7O", 0, "03 26 20 07 B0", ""}});
    Icon(2, ACTIV_ICON);
    EXPECT_EQ(Record(0).touch, 2) << "the supervised call comes to the key that lights";
}

TEST_F(CallKeys, HoldAndUnhold) {
    const std::string held0 = "Icone:1  - Etat:ONHOLD - Ref:0", held1 = "Icone:1  - Etat:ONHOLD - Ref:1",
                      connected0 = " | STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0",
                      connected1 = " | STATE 1 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:1";
    const auto hold = [] { return DoHoldCall(0); };
    Check(hold, {{"1H", WRONG_STATE, "", ""},
                 {"3C", 0, "03 26 20 03 B4", ""},
                 {"1C- 1H-", 0, SOFT2, held0 + connected1},
                 {"1C 1H", 0, SOFT2, held0 + " | STATE 0 ONHOLD" + connected1}});
    EXPECT_EQ(Record(0).state, ONHOLD);
    EXPECT_EQ(Record(1).state, CONNECTED);
    EXPECT_EQ(DoHoldCall(1), 0);
    EXPECT_EQ(Record(0).state, CONNECTED) << "from slot 1 too";
    Pressed();
    const auto unhold = [] { return DoUnholdCall(0); };
    Check(unhold, {{"1P", WRONG_STATE, "", ""},
                   {"2H 3P", FAILED, "", ""},
                   {"2H 8P", 0, "03 26 20 02 B5", ""},
                   {"1H 1C @2", FAILED, "", ""},
                   {"1H 1P", WRONG_STATE, "", ""},
                   {"1H- 1C", FAILED, "", "DoUnholdCall - Pb d'état...Incohérence"},
                   {"1H 1C-", 0, SOFT2, held1 + connected0},
                   {"1H 1C", 0, SOFT2, held1 + " | STATE 1 ONHOLD" + connected0}});
    EXPECT_EQ(Record(0).state, CONNECTED);
    EXPECT_EQ(Record(1).state, ONHOLD);
}

}  // namespace
