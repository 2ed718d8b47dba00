// Transfer and conference in the situations of calls and soft keys that few users reach: what is pressed and traced.
#include "control/transfer.h"

#include "support/requests.h"

namespace {

class Transfers : public Requests {};

constexpr const char* BETWEEN_5_AND_3 = "0D 6E 03 26 20 05 03 26 20 1E 03 26 20 03 84";

TEST_F(Transfers, Transfer) {
    const std::string impossible = " | Echec transfert - pb d'état",
                      several = "Demande de transfert - plus d'un ONHOLD/REOFFER: choix tou",
                      boss = "Demande de transfert sur sonnerie - 1 des appels pat/sec: choix tou",
                      shared = "Demande de transfert - 2 appels en cours sur tou 1";
    const auto transfer = [] { return DoTransfer(0, 1); };
    Check(transfer, {{"1C 2H", FAILED, "", "Echec Transfer - SK not present"}});
    for (const bool together : {true, false}) {
        Link.SuperMsgSupported = together;
        const char* between = together ? BETWEEN_5_AND_3 : "03 26 20 05 B2 | 03 26 20 1E 99 | 03 26 20 03 B4";
        const char* then2 = together ? "09 6E 03 26 20 1E 03 26 20 02 D7" : "03 26 20 1E 99 | 03 26 20 02 B5";
        Check(transfer,
              {{"5H 3C 6R", 0, between, several},
               {"3C 5R 6H", 0, between, several},
               {"3C 5F 6H", FAILED, "", impossible},
               {"8P 2H 3H", 0, then2, boss},
               {"2H 9P 3H", 0, then2, boss},
               {"10P 2H 3H h1", 0, SOFT2, "Demande de transfert sur sonnerie - 2 appels sur touche diff"},
               {"2H 1P 3H h2", FAILED, "", impossible},
               {"2H 1P 3H h0", 0, SOFT2, "Demande de transfert sur sonnerie - 2 appels sur touche diff"},
               {"1H 1P 2H", 0, SOFT2, shared},
               {"1C 1H 2H", 0, SOFT2, shared},
               {"1C 1R 2H", FAILED, "", impossible},
               {"1C 2H 1T", FAILED, "", impossible}},
              "        Transf");
    }
    Check([] { return DoBlindTransfer(0); }, {{"1C 1H", UNAVAILABLE, "", "DoBlindTransfer | REPLY 9 80000049"}},
          "2eApp");
    Check([] { return DoTransfer(CONF_CREF, -1); }, {{"1C 2H 3H", FAILED, "", impossible}}, "Transf");
}

TEST_F(Transfers, Conference) {
    const auto conference = [] { return DoConference(0, 1); };
    Check(conference, {{"1C 2H", FAILED, "", "Echec conference - SK not present"}}, "Transf");
    Link.SuperMsgSupported = true;
    for (const Row& row :
         {Row{"1C 2H 3O", 0, SOFT2, "Demande de conférence - > 2 appels ,1 seule garde"},
          {"3C 5H 6R", 0, BETWEEN_5_AND_3, "Demande de conference - plus d'un ONHOLD/REOFFER: choix tou"},
          {"1C 1H 2H", 0, SOFT2, "Demande de conf - 2 appels en cours sur tou 1"},
          {"1H 1P 2H", FAILED, "", "Echec conf - pb d'état"},
          {"8P 2H 3H", FAILED, "", "Echec conf - pb d'état"}}) {
        Check(conference, {row}, "        Conf");
        EXPECT_EQ(Tracking.ConferenceReq, row.result == 0 ? 1 : 0) << row.situation;
    }
}

}  // namespace
