// Each request from its entry point to the keys of the set and back, on sets of every version, with and without Super
// Messages, with second calls on the same key and on another.
#include "support/scenario.h"

#include <cstddef>
#include <cstring>
#include <tuple>

namespace {

// Events that come together; `when` as in tables.
std::string Ended(int cref, const std::string& when = "") {
    const std::string call = when + std::to_string(cref);
    return call + " DISCONNECTED 1, " + call + " IDLE";
}
std::string Offered(int cref) {
    const std::string call = std::to_string(cref);
    return "NEWCALL " + call + ", " + call + " OFFERING, 1?INFO " + call + " CALLERID|CALLEDID, 23?INFO " + call +
           " ORIGIN|REASON|CALLERID|CALLEDID";
}
std::string Taken(int cref) {
    const std::string call = std::to_string(cref);
    return call + " CONNECTED, 23?INFO " + call + " CONNECTEDID";
}
std::string Dialled(int cref) {
    const std::string call = std::to_string(cref);
    return call + " DIALTONE, " + call + " DIALING, " + call + " PROCEEDING, " + call + " RINGBACK, 23?INFO " + call +
           " CALLEDID";
}
std::string Joined(int held, int connected) {
    return "30 ONHOLDPENDCONF, " + std::to_string(held) + " CONFERENCED, " + std::to_string(connected) +
           " CONFERENCED, 30 CONNECTED";
}

class Asked : public Scenario, public testing::WithParamInterface<std::tuple<int, bool, int>> {
protected:
    void SetUp() override {
        Scenario::SetUp();
        const auto [version, super, multiMode] = GetParam();
        Configure(version, super, multiMode);
        if (version == 1)  // whose PBX does not say it: who installs the set does
            SetSetting("SetConfig", "EnquiryCallMode", multiMode != 0 ? "1" : "0");
        Start();
    }
    // Call 0 held on key 1, call 1 connected: beside it or on key 2.
    void MakeTwoCalls() {
        Play({{"incoming 1 4722", "", Offered(0)},
              {"app answer 0", "K1", "REPLY, " + Taken(0), "Answer"},
              {"app setup 0", "S1", "0 ONHOLD, REPLY, 1 DIALTONE",
               "Setup Transfer call cref 0000 consultcref 0001 | sendCompletion SetupTransfer "},
              {"app dial 1 4750", "[4 7 5 0]", "REPLY, " + Dialled(1) + ", " + Taken(1), "lineDial '4750' cref 0001"}});
    }
};

// clang-format off
TEST_P(Asked, MakeCall) {
    Play({
        {"app make 4750", "[K1 4 7 5 0]", "REPLY, " + Dialled(0) + ", " + Taken(0),
         "appCall cref 0 msg 1 reqId 1 | dial makecall"
         " | 1?DoMakeCall tou Multi NBtou 3  PushKey 1 DialSameLine 0 Dest '4750' "
         " | 23?DoMakeCall tou Multi NBtou 4  PushKey 1 DialSameLine 0 Dest '4750' "
         " | Icone:1 - Etat PROCEEDING - Ref:0 | dial makecall DoMakeCall res 0 | SendCompletion:1, res:0"
         " | 1?Icone:1  - Etat:CONNECTED - Ref:0 cas 6 | 23?CCI cref 0000 Proceeding => Conv sur tou 1"},
        {"app drop 0", "REL", Ended(0) + ", REPLY",
         "Drop call cref 0 ReqId 2 | DoClearCall - La ligne a deconnecter est CONNECTED | LineDrop Result:0"
         " | lineDrop Running cref 0000 => LINE_REPLY OK"},
        {"app make 4751", "[K1 4 7 5 1]", "REPLY, " + Dialled(0)},
        {"app make 4750", "", "1 IDLE, REPLY 80000048",
         "un appel sortant est en cours d'init on ne peut pas générer un nouvel appel"},
        {"app drop 0", "REL", Ended(0) + ", REPLY", "pas d'autre appel en cours -> raccrochage"},
        {"app make 4759", "[K1 4 7 5 9]", "REPLY, " + Dialled(0) + ", 0 DISCONNECTED 1"},
        {"app make 4750", "", "1 IDLE, REPLY 80000048"},
        {"app drop 0", "REL", "0 IDLE, REPLY", "DoClearCall - La ligne a deconnecter est DISCONNECTED"},
        {"app make 4750?", "", "= 8000000a"},
        {"app make $1", "", "= 80000008"},
        {"app make", "", "= 80000010"},
        {"app make 4730", "12?[K1 12?4 12?7 12?3 12?0] 3?K8", "REPLY, " + Dialled(0) + ", " + Taken(0),
         "3?Tou Pat '4730' libre trouve tou 8"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
    Play({
        {"seize 2", "", "NEWCALL 0, 0 DIALTONE"},
        {"app make 4750", "[K2 4 7 5 0]", "REPLY, " + Dialled(0) + ", " + Taken(0)},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
        {"incoming 1 4720", "", Offered(0)},
        {"incoming 2 4721", "", Offered(1)},
        {"incoming 3 4722", "", Offered(2)},
        {"23?app make 4750", "[M2:3 4 7 5 0]", "REPLY, " + Dialled(3) + ", " + Taken(3),
         "FindFreeMultiLine tou 43 (mcdu secondaire)"},
        {"23?app drop 3", "REL", Ended(3) + ", REPLY"},
        {"23?incoming 43 4723", "", Offered(3)},
        {"app make 4750", "", "1?3 IDLE, 23?4 IDLE, REPLY 80000048",
         "LineMakeCall Impossible, aucune ressource disponible"},
        {"caller-hangs-up 1", "", Ended(0)},
        {"caller-hangs-up 2", "", Ended(1)},
        {"caller-hangs-up 3", "", Ended(2)},
        {"23?caller-hangs-up 43", "", Ended(3)},
    });
}

TEST_P(Asked, Dial) {
    Play({
        {"seize 1", "", "NEWCALL 0, 0 DIALTONE"},
        {"app dial 0 4750", "[4 7 5 0]", "REPLY, " + Dialled(0) + ", " + Taken(0),
         "lineDial '4750' cref 0000 | dial makecall | dial makecall DoMakeCall res 0"},
        {"app dial 0 4750", "", "= 8000001c"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
        {"seize 1", "", "NEWCALL 0, 0 DIALTONE"},
        {"app dial 0 4730", "[4 7 3 0]", "REPLY, " + Dialled(0) + ", " + Taken(0)},  // never the boss's key
        {"app hold 0", "K1", "REPLY, 0 ONHOLD"},
        {"seize 2", "", "NEWCALL 1, 1 DIALTONE"},
        {"app dial 1 4751", "[4 7 5 1]", "REPLY, " + Dialled(1)},
        {"app dial 5 4751", "", "= 8000001c"},
        {"app drop 1", "REL", Ended(1) + ", REPLY"},
        {"app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
    Play({  // a call made at the dial tone of a second one, whose record is the lowest without a live call
        {"incoming 1 4723", "", Offered(0)},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"k?second-call", "", "0 ONHOLD, NEWCALL 1, 1 DIALTONE"},
        {"k?app make 4750", "[4 7 5 0]", "REPLY, " + Dialled(1) + ", " + Taken(1)},
        {"k?app drop 1", "S1", "1 DISCONNECTED 1, 0 CONNECTED, 1 IDLE, REPLY"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
}

TEST_P(Asked, AnswerAndDrop) {
    Play({
        {"incoming 1 0145678901", "", Offered(0)},
        {"app answer 0", "K1", "REPLY, " + Taken(0),
         "Answer | SendCompletion:1, res:0 | Icone:1 - Etat:CONNECTED - Ref:0 cas 5"},
        {"app answer 0", "", "= 8000001c"},
        {"app drop 0", "REL", Ended(0) + ", REPLY",
         "Icone:1 éteint - Etat:DISCONNECTED - Ref:0 | Icone:1 éteint - Etat:IDLE - Ref:0"},
        {"app drop 0", "", "REPLY"},
        {"app answer 0", "", "= 8000001c"},
        {"incoming 2 4722", "", Offered(0)},
        {"app drop 0"},  // waits for the caller
        {"wait 60000"},
        {"app answer 0", "", "= 8000004b", "can't do two async requests at the same time!"},
        {"caller-hangs-up 2", "", Ended(0) + ", REPLY 6 0"},
        {"app drop 7", "", "= 80000048", "Quit TSPI_lineDrop:dwRequestID:8, cref:7"},
        {"app drop 30", "", "= 8000001c", "Drop conference | DoClearCall  confState 0"},
        {"app drop 31", "", "= 80000018"},
        {"seize 1", "", "NEWCALL 0, 0 DIALTONE"},
        {"app drop 0"},  // nor is a dial tone ended by it
        {"release", "", Ended(0) + ", REPLY"},
        {"incoming 1 4722", "", Offered(0)},
        {"answer 1", "", Taken(0)},
        {"caller-hangs-up 1 reserved", "", "0 DISCONNECTED 1"},
        {"app drop 0", "REL", "0 IDLE, REPLY"},
        {"23?incoming 43 4722", "", Offered(0)},
        {"23?app answer 0", "M2:3", "REPLY, " + Taken(0), "SendZTNondigitKey AOM Key 43 i_aom 0 adr 2 "},
        {"23?caller-hangs-up 43 prompt", "", "0 DISCONNECTED 1"},
        {"23?app drop 0", "REL", "0 IDLE, REPLY"},
    });
}

TEST_P(Asked, HoldAndUnhold) {
    Play({
        {"incoming 1 4722", "", Offered(0)},
        {"app hold 0", "", "REPLY 8000001c"},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"app hold 0", "K1", "REPLY, 0 ONHOLD",
         "hold call:0 | SendCompletion:3, res:0 | Icone:1  - Etat:ONHOLD - Ref:0"},
        {"app hold 0", "", "REPLY", "End of TSPI_lineHold:dwRequestID:4, cref:0"},
        {"app drop 0", "", "= 8000001c", "La ligne a déconnecter est ONHOLD - impossible"},
        {"app unhold 0", "K1", "REPLY, 0 CONNECTED", "Unhold call:0 | Icone:1  - Etat:CONNECTED - Ref:0 cas 3"},
        {"app unhold 0", "", "REPLY 8000001c"},
        {"app hold 0", "K1", "REPLY, 0 ONHOLD"},
        {"recall 1", "", "0 OFFERING", "Icone:1 - Etat:REOFFERING - Ref:0"},
        {"app unhold 0", "", "REPLY 8000001c"},
        {"app answer 0", "K1", "REPLY, 0 CONNECTED", "Icone:1 - Etat:CONNECTED - Ref:0 cas 4"},
        {"app hold 0", "K1", "REPLY, 0 ONHOLD"},
        {"app make 4751", "[K2 4 7 5 1]", "REPLY, " + Dialled(1)},
        {"app unhold 0", "", "REPLY 80000048"},
        {"app drop 1", "REL", Ended(1) + ", REPLY"},
        {"app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
        {"app hold 0", "", "REPLY 8000001c"},
        {"app unhold 0", "", "REPLY 8000001c"},
        {"app hold 9", "", "REPLY"},
        {"app unhold 9", "", "REPLY"},
    });
}

TEST_P(Asked, HoldUnholdAndDropOfOneOfTwoCalls) {
    MakeTwoCalls();
    Play({
        {"app hold 1", "o?K2 k?S2", "k?1 ONHOLD, k?0 CONNECTED, REPLY, o?1 ONHOLD",
         "k?Icone:1  - Etat:ONHOLD - Ref:1 | k?Icone:1  - Etat:CONNECTED - Ref:0 | o?Icone:2  - Etat:ONHOLD - Ref:1"},
        {"o?app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app unhold 1", "o?K2 k?S2", "o?REPLY, 0 ONHOLD, 1 CONNECTED, k?REPLY"},
        {"app drop 0", "", "= 8000001c"},
        {"app drop 1", "o?REL k?S1", "1 DISCONNECTED 1, k?0 CONNECTED, 1 IDLE, REPLY",
         "k?On a 2 appels sur une ligne : 1 CONNECTED / 1 ONHOLD | k?Icone:1  - Etat:CONNECTED - Ref:0 cas 8"},
        {"o?app drop 0", "", "= 8000001c"},
        {"o?app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
}

// In version 1 nothing says that a second call on the same key is under way.
TEST_P(Asked, BlindTransfer) {
    Play({
        {"incoming 1 4722", "", Offered(0)},
        {"app blind 0 4751", "", "= 8000001c"},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"app blind 0 4751", "[4 7 5 1] S4",
         "0 ONHOLD, NEWCALL 1, 1 DIALTONE, !1k?1 DIALING, !1k?1 PROCEEDING, !1k?1 RINGBACK, 23?INFO 1 CALLEDID, "
         "REPLY, " +
         Ended(0, "k?") + ", " + Ended(1) + ", " + Ended(0, "o?"),
         "Blind Transfer call | DoBlindTransfer | BlindTransfer Running ReqId 3 cref 0"
         " | BlindTransfer Running TRANSF softkey detected=> pushed | SendCompletion:3, res:0"},
        {"incoming 1 4722", "", Offered(0)},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"app blind 0 4759", "[4 7 5 9]",
         "0 ONHOLD, NEWCALL 1, 1 DIALTONE, !1k?1 DIALING, !1k?1 PROCEEDING, !1k?1 RINGBACK, 23?INFO 1 CALLEDID, "
         "1 DISCONNECTED 1, REPLY 80000048",
         "Transfer Running cref 0001 ended => LINE_REPLY failed"},
        {"app drop 1", "REL", "1 IDLE, REPLY, k?0 OFFERING"},
        {"k?app answer 0", "K1", "REPLY, 0 CONNECTED"},
        {"o?app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app setup 0", "S1", "0 ONHOLD, REPLY, 1 DIALTONE"},
        {"app dial 1 4751", "[4 7 5 1]", "REPLY, " + Dialled(1)},  // whose Transfer key nobody presses
        {"app transfer 0 1", "S4", "REPLY, " + Ended(0, "k?") + ", " + Ended(1) + ", " + Ended(0, "o?")},
    });
    MakeTwoCalls();
    Play({
        {"k?app blind 1 4751", "", "REPLY 80000049"},
        {"k?app setup 1", "", "REPLY 80000049"},
        {"o?app setup 1", "K3", "1 ONHOLD, REPLY, 2 DIALTONE", "prise ligne 3 "},
        {"o?release", "", Ended(2)},
        {"o?app unhold 1", "K2", "REPLY, 1 CONNECTED"},
        {"app transfer 0 1", "S4", "REPLY, " + Ended(0, "k?") + ", " + Ended(1) + ", " + Ended(0, "o?")},
    });
}

TEST_P(Asked, AttendedTransfer) {
    MakeTwoCalls();
    Play({
        {"app transfer 0 1", "S4", "REPLY, " + Ended(0, "k?") + ", " + Ended(1) + ", " + Ended(0, "o?"),
         " Transfer case between call ref:0 and call ref:1 | Transfer call"
         " | transfert NumCalls 2 connected 1 OnHold 1 OnHoldPend 0 Reoffer 0"
         " | Demande de transfert - 2 appels en cours"},
        {"incoming 1 4722", "", Offered(0)},
        {"app setup 0", "", "= 8000001c", "TSPI_lineSetupTransfer INVALCALLSTATE cref 0 state 2 "},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"app transfer 0 1", "", "= 8000001c", " Transfer case between call ref:1 and call ref:0 IMPOSSIBLE"},
        {"app transfer 0 0", "", "= 8000001c"},
        {"app setup 0", "S1", "0 ONHOLD, REPLY, 1 DIALTONE"},
        {"app dial 1 4751", "[4 7 5 1]", "REPLY, " + Dialled(1)},
        {"app conference 0 1", "", "= 8000001c"},
        {"app transfer 1 0", "S4", "REPLY, " + Ended(0, "k?") + ", " + Ended(1) + ", " + Ended(0, "o?")},
        {"incoming 1 4722", "", Offered(0)},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"app setup 0", "S1", "0 ONHOLD, REPLY, 1 DIALTONE"},
        {"app dial 1 4751", "[4 7 5 1]", "REPLY, " + Dialled(1)},
        {"app drop 1", "o?REL k?S1", Ended(1) + ", REPLY, k?0 CONNECTED",
         "k?On a 2 appels sur une ligne : 1 PROCEEDING / 1 ONHOLD | k?Icone:1  - Etat:CONNECTED - Ref:0 cas 7"},
        {"o?app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
}

TEST_P(Asked, CallerBetweenARequestAndItsCall) {
    Play({
        {"incoming 1 4722", "", Offered(0)},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"ignore 1"},
        {"app setup 0", "S1"},
        {"incoming 2 4723", "S1", Offered(2) + ", 0 ONHOLD, REPLY, 1 DIALTONE"},
        {"release", "", Ended(1) + ", k?0 OFFERING"},
        {"app answer 2", "K2", "REPLY, " + Taken(2)},
        {"app drop 2", "REL", Ended(2) + ", REPLY"},
        {"caller-hangs-up 1", "", Ended(0)},
    });
}

TEST_P(Asked, ConferenceAndItsEnds) {
    const std::string bothGo = "k?0 DISCONNECTED 1, k?1 DISCONNECTED 1, k?0 IDLE, k?1 IDLE, 30 IDLE";
    const std::string oneByOne = Ended(1, "o?") + ", o?0 CONNECTED, " + Ended(0, "o?");
    MakeTwoCalls();
    Play({
        {"app conference 0 1", "S3", "REPLY, " + Joined(0, 1),
         "Conference | Conf NumCalls 2 connected 1 OnHold 1 OnHoldPend 0 Reoffer 0"
         " | Demande de conference - 2 appels en cours"
         " | k?Passage en conference - double appel sur une ligne"
         " | o?Passage en conférence detecte par icone. ConferenceReq 1"
         " | Etat:LINECALLSTATE_CONNECTED - Ref:30"},
        {"app drop 0", "", "= 8000001c"},
        {"app remove 0", "", "= 8000001c"},
        {"app remove 1", "S3", "30 IDLE, k?0 CONNECTED, " + Ended(1) + ", REPLY, o?0 CONNECTED",
         "La ligne à deconnecter est CONFERENCED - Libération du dernier appel arrivé en conf"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
    MakeTwoCalls();
    Play({
        {"app conference 1 0", "S3", "REPLY, " + Joined(0, 1)},
        {"app drop 30", "S4", bothGo + ", REPLY, " + oneByOne, "DoClearCall sur Conf -> Transfert"},
        {"app drop 30", "", "= 8000001c", "DoClearCall  confState 1"},
    });
    MakeTwoCalls();
    Play({
        {"app conference 1 0", "S3", "REPLY, " + Joined(0, 1)},
        {"app transfer 0 1", "REL", "REPLY, " + bothGo + ", " + oneByOne, "Transfer de 2 appels CONFERENCED"},
    });
}

TEST_P(Asked, ConferenceBrokenByEitherParty) {
    MakeTwoCalls();
    Play({
        {"app conference 0 1", "S3", "REPLY, " + Joined(0, 1)},
        {"o?caller-hangs-up 2", "", "30 IDLE, " + Ended(1) + ", 0 CONNECTED",
         "* Fin de la conférence icon 2 idle conferenced activtou 1*"},
        {"k?caller-hangs-up 1 slot 1", "", "30 IDLE, 0 CONNECTED, " + Ended(1),
         "* La conf a ete cassee par un interlocuteur * | * On detecte qui a casse la conf * | Detection du premier"},
        {"app setup 0", "S1", "0 ONHOLD, REPLY, 1 DIALTONE"},
        {"app dial 1 4750", "[4 7 5 0]", "REPLY, " + Dialled(1) + ", " + Taken(1)},
        {"app conference 0 1", "S3", "REPLY, " + Joined(0, 1)},
        {"o?caller-hangs-up 1", "", "30 DISCONNECTED 1, 30 IDLE, 0 DISCONNECTED 1, 1 CONNECTED, 0 IDLE",
         "* Fin de la conférence icon 1 (= activtou) idle conferenced *"},
        {"k?caller-hangs-up 1 slot 0", "", "30 IDLE, 1 CONNECTED, " + Ended(0), "Detection du second"},
        {"app drop 1", "REL", Ended(1) + ", REPLY"},
    });
}

// Twelve presses alone take longer than the provider waits for the PBX; the set lets go by itself then.
TEST_P(Asked, Forward) {
    Play({
        {"app forward uncond 4720", "[6 1 4 7 2 0] 23?REL", "REPLY, 23?ADDRESS 0 40 to 4720",
         "Renvoi(4720) - LINEFORWARDMODE_UNCOND | 23?modif renv acquitee par Pbx: envoi RAC "},
        {"app forward busy 4720", "[6 2 4 7 2 0] 23?REL", "REPLY, 23?ADDRESS 0 40 to 4720",
         "Renvoi(4720) - LINEFORWARDMODE_BUSY"},
        {"app forward noansw 4720", "[6 3 4 7 2 0] 23?REL", "REPLY, 23?ADDRESS 0 40 to 4720",
         "Renvoi(4720) - LINEFORWARDMODE_NOANSW"},
        {"app forward busyna 0145678901", "[6 4 0 1 4 5 6 7 8 9 0 1] 23t?REL", "REPLY, 23t?ADDRESS 0 40 to 0145678901",
         "Renvoi(0145678901) - LINEFORWARDMODE_BUSYNA"},
        {"wait 3000", "", "23a?ADDRESS 0 40 to 0145678901"},
        {"app forward off", "[6 0] REL", "REPLY, 23?ADDRESS 0 40", "Annulation renvoi"},
        {"incoming 1 4722", "", Offered(0)},
        {"app forward off", "", "= 80000049"},
        {"app forward uncond 4720", "", "= 80000049"},
        {"caller-hangs-up 1", "", Ended(0)},
    });
}

TEST_P(Asked, PickUp) {
    Play({
        {"waits-at 4720 4750"},
        {"app pickup 4720", "[6 6 4 7 2 0]",
         "REPLY, NEWCALL 0, 0 PROCEEDING, 23?INFO 0 ORIGIN|REASON|CALLERID|CALLEDID, 0 CONNECTED, 1?INFO 0 CALLEDID, "
         "23?INFO 0 CONNECTEDID",
         "msg Call Pickup cref 0 | InPickUpFunction Icone:1 - Etat:PROCEEDING - Ref:0"},
        {"app pickup 4720", "", "REPLY 80000048"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
        {"app pickup 4720", "[6 6 4 7 2 0]", "REPLY, NEWCALL 0, 0 PROCEEDING, 0 DISCONNECTED 1"},  // nobody there
        {"release", "", "0 IDLE"},
        {"seize 1", "", "NEWCALL 0, 0 DIALTONE"},  // which is not the call that was waited for
        {"release", "", Ended(0)},
        {"app pickup", "", "= 80000011"},
    });
}

TEST_P(Asked, Digits) {
    Play({
        {"app make 4750", "[K1 4 7 5 0]", "REPLY, " + Dialled(0) + ", " + Taken(0)},
        {"app digits 0", "", "= 80000048", "DoGenerateDigits - Cancel FV wanted - FV! not present"},
        {"app digits 0 12*#", "S5 1 2 * #", "", "GenerateDigits | EnteringDoGenerateDigits sur call ref:0"},
        {"app digits 0 3", "3"},
        {"app digits 0", "S5"},
        {"app digits 0 4", "S5 4"},
        {"wait 4000", "S5"},
        {"app hold 0", "K1", "REPLY, 0 ONHOLD"},
        {"app digits 0 1", "", "= 8000001c"},
        {"app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
    EXPECT_EQ(Machine.set.tones, "12*#34");
}

TEST_P(Asked, PhoneButtonsHookSwitchAndDisplay) {
    Phone = true;
    Play({
        {"app hook off", "OFF", "PHONE LAMP 21, NEWCALL 0, 0 DIALTONE, PHONE DISPLAY", "appCall cref 0 msg 21 reqId 0"},
        {"app button keypad 4", "4", "0 DIALING, 0 PROCEEDING, 0 RINGBACK, PHONE DISPLAY"},
        {"app button keypad 7", "7", "PHONE DISPLAY"},
        {"app button keypad 5", "5", "PHONE DISPLAY"},
        {"app button keypad 0", "0",
         "PHONE DISPLAY, 23?INFO 0 CALLEDID, PHONE DISPLAY, 0 CONNECTED, 1?INFO 0 CALLEDID, 23?INFO 0 CONNECTEDID, "
         "PHONE DISPLAY"},
        {"app button display 33", "S5", "PHONE DISPLAY"},
        {"app button keypad 11", "#"},
        {"app button feature 1", "K1", "PHONE LAMP 21, 0 ONHOLD, PHONE DISPLAY, PHONE DISPLAY"},
        {"app button feature 0"},
        {"app button feature 1", "K1", "PHONE LAMP 21, 0 CONNECTED, PHONE DISPLAY, PHONE DISPLAY"},
        {"lamp 3 1", "", "PHONE LAMP 3"},
    });
    const auto phone = reinterpret_cast<HDRVPHONE>(&ProviderState);
    struct {
        VARSTRING Head;
        char Room[80];
    } display{};
    display.Head.dwTotalSize = 104;
    EXPECT_EQ(TSPI_phoneGetDisplay(phone, &display.Head), 0);
    std::string shown(display.Head.dwStringSize, ' ');
    std::memcpy(shown.data(), reinterpret_cast<char*>(&display) + display.Head.dwStringOffset, shown.size());
    EXPECT_EQ(Utf8(shown), Equipment::DisplayText(Machine, 0) + Equipment::DisplayText(Machine, 1));
    DWORD lamp = 0, icon = 0;
    EXPECT_EQ(TSPI_phoneGetLamp(phone, 3, &lamp) + TSPI_phoneGetLamp(phone, 21, &icon), 0);
    EXPECT_EQ(icon, Equipment::ActiveIcon);
    EXPECT_NE(lamp, 0u);
    Play({{"app hook on", "REL", "PHONE LAMP 21, " + Ended(0) + ", PHONE DISPLAY, PHONE DISPLAY"}});
}

// --- everything mixed ------------------------------------------------------------------------------------------------

TEST_P(Asked, TransferOfAHeldCallWhileAThirdRings) {
    Play({
        {"incoming 1 4722", "", Offered(0)},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"app hold 0", "K1", "REPLY, 0 ONHOLD"},
        {"app make 4750", "[K2 4 7 5 0]", "REPLY, " + Dialled(1) + ", " + Taken(1)},
        {"incoming 3 4723 \"DUPONT\"", "", Offered(2)},
        {"app transfer 0 1", "S4", "REPLY, " + Ended(1) + ", " + Ended(0),
         "Demande de transfert - >2 appels mais 1 seule garde "},
        {"app answer 2", "K3", "REPLY, 2 CONNECTED, 1?INFO 2 CALLERID, INFO 2 CONNECTEDID"},
        {"app hold 2", "K3", "REPLY, 2 ONHOLD"},
        {"incoming 1 4722", "", Offered(0)},
        {"app answer 0", "K1", "REPLY, " + Taken(0)},
        {"incoming 2 4724", "", Offered(1)},
        {"app answer 1", "K2", "REPLY, 0 ONHOLD, " + Taken(1)},
        {"app transfer 2 1", "[K3 S4 K2]", "REPLY, 1 ONHOLD, 2 CONNECTED, " + Ended(2) + ", " + Ended(1),
         "Demande de transfert - plus d'un ONHOLD/REOFFER: choix tou"},
        {"recall 1", "", "0 OFFERING"},
        {"app answer 0", "K1", "REPLY, 0 CONNECTED"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
    });
}

TEST_P(Asked, ConferenceByRequestBrokenByAPartyAndTheThirdJoinedInHisPlace) {
    MakeTwoCalls();
    Play({
        {"incoming 3 4723", "", Offered(2)},
        {"app conference 0 1", "S3", "REPLY, " + Joined(0, 1)},
        {"app answer 2", "K3", "REPLY"},  // the set has no room for him yet
        {"o?caller-hangs-up 2", "", "30 IDLE, " + Ended(1) + ", 0 CONNECTED"},
        {"k?caller-hangs-up 1 slot 1", "", "30 IDLE, 0 CONNECTED, " + Ended(1)},
        {"app answer 2", "K3", "REPLY, 0 ONHOLD, " + Taken(2)},
        {"app conference 0 2", "S3", "REPLY, " + Joined(0, 2)},
        {"conference", "", "30 IDLE, " + Ended(2) + ", 0 CONNECTED"},
        {"app setup 0", "S1", "0 ONHOLD, REPLY, 1 DIALTONE"},
        {"app dial 1 4750", "[4 7 5 0]", "REPLY, " + Dialled(1) + ", " + Taken(1)},
        {"conference", "", "NEWCALL 30, " + Joined(0, 1)},
        {"release", "", "k?0 DISCONNECTED 1, k?1 DISCONNECTED 1, k?0 IDLE, k?1 IDLE, 30 IDLE, " + Ended(1, "o?") +
         ", o?0 CONNECTED, " + Ended(0, "o?")},
    });
}

class AskedOfBoss : public Asked {};

TEST_P(AskedOfBoss, SupervisedCallInterceptedAndTransferredToHim) {
    Play({
        {"incoming 7 4722", "", Offered(0)},
        {"app answer 0", "K7", "REPLY, " + Taken(0),
         "InPickUpSupervFunction Icone:1 - Etat:CONNECTED - Ref:0 | Icone:7 éteint - Superv Interceptee - Ref:0"},
        {"app setup 0", "S1", "0 ONHOLD, REPLY, 1 DIALTONE"},
        {"app drop 1"},
        {"release", "", Ended(1) + ", REPLY, k?0 OFFERING"},
        {"k?app answer 0", "K1", "REPLY, 0 CONNECTED"},
        {"o?app unhold 0", "K1", "REPLY, 0 CONNECTED"},
        {"app hold 0", "K1", "REPLY, 0 ONHOLD"},
        {"app make 4730", "K8", "REPLY, " + Dialled(1) + ", " + Taken(1), "Tou Pat '4730' libre trouve tou 8"},
        {"incoming 7 4723", "", Offered(2)},
        {"app transfer 0 1", "S4", "REPLY, " + Ended(1) + ", " + Ended(0)},
        {"app answer 2", "K7", "REPLY, " + Taken(2)},
        {"app drop 2", "REL", Ended(2) + ", REPLY"},
        {"incoming 7 4722", "", Offered(0)},
        {"caller-hangs-up 7", "", Ended(0)},
        {"incoming 7 4722", "", Offered(0)},
        {"press 7", "", Taken(0), "Appui sur tou superv 7 en sonnerie => interception manuelle cref 0000"},
        {"app drop 0", "REL", Ended(0) + ", REPLY"},
        {"incoming 8 4730", "", Offered(0)},
        {"answer 8", "", Taken(0)},
        {"move 8 2", "", "", "Icone:8 éteint - cref 0000 transfert touche PAT/SEC | SwapKeyTransfering cref 0000 new Icone:2"},
        {"app make 4740", "K9", "REPLY, 1 DIALTONE, 1 DIALING, 1 PROCEEDING, 1 RINGBACK, 0 ONHOLD",
         "Tou Sec '4740' libre trouve tou 9"},
        {"far-rings", "", "INFO 1 CALLEDID"},
        {"app transfer 0 1", "S4", "REPLY, " + Ended(1) + ", " + Ended(0)},
    });
}
// clang-format on

std::string ParamName(const testing::TestParamInfo<std::tuple<int, bool, int>>& info) {
    const auto [version, super, mode] = info.param;
    return "Version" + std::to_string(version) + (super ? "Super" : "Single") + (mode == 1 ? "SameKey" : "OtherKey");
}
INSTANTIATE_TEST_SUITE_P(, Asked, testing::Combine(testing::Values(1, 2, 3), testing::Bool(), testing::Values(0, 1)),
                         ParamName);
INSTANTIATE_TEST_SUITE_P(, AskedOfBoss, testing::Combine(testing::Values(3), testing::Bool(), testing::Values(0, 1)),
                         ParamName);

}  // namespace
