// Drop, hold and unhold in the situations of calls that few users reach: what is pressed, reported at once, refused.
#include "control/call_keys.h"

#include "support/requests.h"

namespace {

class CallKeys : public Requests {};

TEST_F(CallKeys, Drop) {
    const std::string proceeding = "La ligne a deconnecter est PROCEEDING | ",
                      connected = "DoClearCall - La ligne a deconnecter est CONNECTED | ",
                      party = "La ligne à deconnecter est CONFERENCED - Libération du dernier appel arrivé en conf",
                      alone = "On ne peut pas raccrocher l'appel";
    Check([] { return DoClearCall(0); },
          {{"", WRONG_STATE, "", ""},
           {"1P 1C", WRONG_STATE, "", proceeding + alone},
           {"1C 1D", WRONG_STATE, "", connected + alone},
           {"1F 2F p0", 0, "03 26 20 1F 98", party},
           {"1F 2F p1", WRONG_STATE, "", party},
           {"1F 2F p0 b1", WRONG_STATE, "", party},
           {"1D @2", 1, "", "DoClearCall - La ligne a deconnecter est DISCONNECTED"},
           {"1R", 1, "", ""},
           {"1C 1H", 0, SOFT1, connected + "On a 2 appels sur une ligne : 1 CONNECTED / 1 ONHOLD"}});
    Display(1, "2eApp");
    EXPECT_EQ(CallOnKey(1), 1) << "the call that was dropped has left, not the held one";
    Check([] { return confstate = CONNECTED, DoClearCall(CONF_CREF); },
          {{"", UNAVAILABLE, "", "DoClearCall  confState 100"}}, "Conf");
    EXPECT_EQ(DoClearCall(CALL_COUNT), WRONG_STATE);
}

TEST_F(CallKeys, HoldAndUnhold) {
    const std::string held0 = "Icone:1  - Etat:ONHOLD - Ref:0", held1 = "Icone:1  - Etat:ONHOLD - Ref:1",
                      connected0 = " | STATE 0 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:0",
                      connected1 = " | STATE 1 CONNECTED | Icone:1  - Etat:CONNECTED - Ref:1";
    Check(
        [] { return DoHoldCall(0); },
        {{"1C- 1H-", 0, SOFT2, held0 + connected1},
         {"1C 2H 2H @2", 0, SOFT2, held0 + " | STATE 0 ONHOLD | STATE 1 CONNECTED | Icone:2  - Etat:CONNECTED - Ref:1"},
         {"1C 1H", 0, SOFT2, held0 + " | STATE 0 ONHOLD" + connected1}});
    EXPECT_EQ(DoHoldCall(1), 0);
    EXPECT_EQ(Record(0).state, CONNECTED) << "from slot 1 too";
    Stand("1C-", "");
    Tracking.DbCall = 1;  // the other one has just gone
    EXPECT_EQ(DoHoldCall(0), 0);
    EXPECT_EQ(Steps(), held0);
    Pressed();
    Check([] { return DoUnholdCall(0); }, {{"2H 3P", FAILED, "", ""},
                                           {"2H 8P", 0, "03 26 20 02 B5", ""},
                                           {"1H 1C @2", FAILED, "", ""},
                                           {"1H 1P", WRONG_STATE, "", ""},
                                           {"1H- 1C", FAILED, "", "DoUnholdCall - Pb d'état...Incohérence"},
                                           {"1H 1C-", 0, SOFT2, held1 + connected0}});
    EXPECT_EQ(Record(1).state, ONHOLD);
}

TEST_F(CallKeys, AnswerWaitsForAnotherKeyOnlyFromASupervisionKey) {
    for (const auto& [situation, marked] : {std::pair{"7O", 0}, {"8O", -1}, {"9R", -1}, {"10O", -1}}) {
        Stand(situation, "");
        EXPECT_EQ(DoAnswer(0), 0);
        EXPECT_EQ(PickUpSupervCref, marked) << situation;
    }
}

}  // namespace
