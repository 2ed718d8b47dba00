// Transfer and conference: for each situation of calls and soft keys what is pressed, traced and completed.
#include "control/transfer.h"

#include "support/requests.h"

namespace {

class Transfers : public Requests {};

constexpr const char* BETWEEN_5_AND_3 = "0D 6E 03 26 20 05 03 26 20 1E 03 26 20 03 84";

TEST_F(Transfers, Transfer) {
    const std::string impossible = " | Echec transfert - pb d'état",
                      one = "Demande de transfert - >2 appels mais 1 seule garde ",
                      several = "Demande de transfert - plus d'un ONHOLD/REOFFER: choix tou",
                      boss = "Demande de transfert sur sonnerie - 1 des appels pat/sec: choix tou",
                      shared = "Demande de transfert - 2 appels en cours sur tou 1";
    const auto transfer = [] { return DoTransfer(0, 1); };
    Check(transfer, {{"1F 2F", 0, RELEASE, "Transfer de 2 appels CONFERENCED"},
                     {"1C 2H", FAILED, "", "Echec Transfer - SK not present"}});
    Link.SuperMsgSupported = true;
    Check(transfer,
          {{"1C 2H 3I", 0, SOFT2,
            "transfert NumCalls 3 connected 1 OnHold 1 OnHoldPend 0 Reoffer 0 | Demande de transfert - 2 appels en "
            "cours"},
           {"1C 2H 3O", 0, SOFT2, one},
           {"3C 5H 6H", 0, BETWEEN_5_AND_3, several},
           {"5H 3C 6R", 0, BETWEEN_5_AND_3, several},
           {"3C 5R 6H", 0, BETWEEN_5_AND_3, several},
           {"3C 5F 6H", FAILED, "", impossible},
           {"8P 2H 3H", 0, "09 6E 03 26 20 1E 03 26 20 02 D7", boss},
           {"9H 1P 3H", 0, "09 6E 03 26 20 1E 03 26 20 09 D0", boss},
           {"10P 2H 3H h1", 0, SOFT2, "Demande de transfert sur sonnerie - 2 appels sur touche diff"},
           {"2H 1P 3H h2", FAILED, "", impossible},
           {"1H 1P 2H", 0, SOFT2, shared},
           {"1C 1H 2H", 0, SOFT2, shared},
           {"1C 1R 2H", FAILED, "", impossible},
           {"1C 2H 1T", FAILED, "", impossible}},
          "        Transf");
    Link.SuperMsgSupported = false;
    Check(transfer,
          {{"3C 5H 6H", 0, "03 26 20 05 B2 | 03 26 20 1E 99 | 03 26 20 03 B4", several},
           {"8P 2H 3H", 0, "03 26 20 1E 99 | 03 26 20 02 B5", boss}},
          "        Transf");
    Check([] { return DoTransfer(CONF_CREF, -1); }, {{"1C 2H 3H", FAILED, "", impossible}}, "Transf");
}

TEST_F(Transfers, Conference) {
    const auto conference = [] { return DoConference(0, 1); };
    Check(conference, {{"1C 2H", FAILED, "", "Echec conference - SK not present"}}, "Transf");
    Link.SuperMsgSupported = true;
    for (const Row& row :
         {Row{"1C 2H", 0, SOFT2,
              "Conf NumCalls 2 connected 1 OnHold 1 OnHoldPend 0 Reoffer 0 | Demande de conference - 2 appels en "
              "cours"},
          {"1C 2H 3O", 0, SOFT2, "Demande de conférence - > 2 appels ,1 seule garde"},
          {"3C 5H 6R", 0, BETWEEN_5_AND_3, "Demande de conference - plus d'un ONHOLD/REOFFER: choix tou"},
          {"1C 1H 2H", 0, SOFT2, "Demande de conf - 2 appels en cours sur tou 1"},
          {"1H 1P 2H", FAILED, "", "Echec conf - pb d'état"},
          {"1C 2H 1T", FAILED, "", "Echec conf - pb d'état"},
          {"8P 2H 3H", FAILED, "", "Echec conf - pb d'état"}}) {
        Check(conference, {row}, "        Conf");
        EXPECT_EQ(Tracking.ConferenceReq, row.result == 0 ? 1 : 0) << row.situation;
    }
}

TEST_F(Transfers, BlindTransferDialsAndWaitsForItsSoftKey) {
    const auto blind = [] { return CopyText(Record(0).DestAddress, "4-2"), DoBlindTransfer(0); };
    for (const bool together : {false, true}) {
        Link.SuperMsgSupported = together;
        const char* presses = together ? "09 6E 03 26 03 04 03 26 03 02 2B" : "03 26 03 04 D0 | 03 26 03 02 D2";
        Check(blind,
              {{"1C", 0, presses,
                std::string("DoBlindTransfer | Softkey 0 n°:1 | DoBlindTransfer - DestAddress:4-2 Supermsg ") +
                    (together ? "1" : "0") + " | BlindTransfer Running ReqId 9 cref 0"}},
              "2eApp");
        EXPECT_EQ(RunningRequest.Code, REQUEST_BLIND_TRANSFER);
        EXPECT_EQ(RunningRequest.Cref, 0);
    }
    Check(blind, {{"1C 1H", UNAVAILABLE, "", "DoBlindTransfer | REPLY 9 80000049"}}, "2eApp");
    Check(blind, {{"1C", UNAVAILABLE, "", "DoBlindTransfer | REPLY 9 80000049"}}, "Transf");
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
}

TEST_F(Transfers, SetupTransferSeizesASecondLine) {
    const auto setup = [] { return SetupTransfer(0, 5); };
    const std::string running = "SetupTransfer Running ReqId 9 cref 0000 consultcref 0005";
    Settings.EnquiryCallMode = 1;
    Check(setup, {{"1C 2H", UNAVAILABLE, "", "REPLY 9 80000049"}});
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
    Check(setup, {{"1C 2H", 0, SOFT1, running}}, "2eApp");
    Settings.EnquiryCallMode = 0;
    Check(setup, {{"1C 2H 3H", static_cast<LONG>(LINEERR_RESOURCEUNAVAIL), "",
                   "SetupTransfer Impossible, aucune ressource disponible | REPLY 9 8000004b"},
                  {"1C 2H", 0, "03 26 20 03 B4", "prise ligne 3  | " + running}});
    EXPECT_EQ(RunningRequest.Code, REQUEST_SETUP_TRANSFER);
    EXPECT_EQ(RunningRequest.ConsultCref, 5);
}

}  // namespace
