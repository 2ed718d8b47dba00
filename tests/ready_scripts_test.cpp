// The scripts that are installed with the simulated set, each played to its end: what TAPI is told of it.
#include "support/service.h"

#include "equipment/script.h"

#include <deque>

namespace {

using testing::ElementsAre;

struct ReadyScripts : Service {
    std::vector<std::string> told;  // of each paragraph that begins with a comment, behind it

    // Opens the line when the script waits for the provider.
    void Play(const std::string& name) {
        Equipment::Script script;
        ASSERT_TRUE(script.Load(std::string(ZT_SCRIPTS) + name));
        Machine.pacing.bitsPerSecond = 9600;
        std::string refused = script.Step(Machine, PlatformControl::Now());
        ASSERT_FALSE(script.lines.empty());
        GoInService();
        Events();
        told.push_back("");
        while (!script.lines.empty() && refused.empty()) {
            const std::deque<std::string> before = script.lines;
            refused = script.Step(Machine, PlatformControl::Now());
            for (std::size_t i = 0; i < before.size() - script.lines.size(); ++i)
                if (before[i].starts_with('#') && (i == 0 || !before[i - 1].starts_with('#')))
                    told.push_back(before[i].substr(2) + " ");
            Advance(script.lines.empty() ? 3000 : 100);
            for (const std::string& event : LineEvents())
                told.back() += (told.back().ends_with(' ') || told.back().empty() ? "" : ", ") + event;
        }
        EXPECT_EQ(refused, "");
    }
};

const std::string Rings = "NEWCALL 0, STATE 0 OFFERING, INFO 0 ORIGIN|REASON|CALLERID|CALLEDID";
const std::string Answered = ", STATE 0 CONNECTED, INFO 0 CONNECTEDID";
const std::string Held = ", STATE 0 ONHOLD", Back = ", STATE 0 CONNECTED";
const std::string Ends = ", STATE 0 DISCONNECTED 1, STATE 0 IDLE",
                  SecondEnds = ", STATE 1 DISCONNECTED 1, STATE 1 IDLE";
const std::string Calls =
    "NEWCALL 0, STATE 0 DIALTONE, STATE 0 DIALING, STATE 0 PROCEEDING, STATE 0 RINGBACK, INFO 0 CALLEDID";
const std::string CallsSecond = ", NEWCALL 1, STATE 1 DIALTONE, STATE 1 DIALING, STATE 1 PROCEEDING, STATE 1 RINGBACK, "
                                "INFO 1 CALLEDID, STATE 1 CONNECTED, INFO 1 CONNECTEDID";

TEST_F(ReadyScripts, ADayOfCalls) {
    Play("day.txt");
    EXPECT_THAT(told,
                ElementsAre("", "A colleague calls, and is answered. " + Rings + Answered + Ends,
                            "Somebody from outside gives up. " + Rings + Ends,
                            "A caller with a name alone. NEWCALL 0, STATE 0 OFFERING, INFO 0 REASON|CALLERID|CALLEDID" +
                                Answered + Ends,
                            "The user calls, holds the call and takes it back. " + Calls + Answered + Held + Back,
                            "A second call comes, and the user swaps between the two. NEWCALL 1, STATE 1 OFFERING, "
                            "INFO 1 ORIGIN|REASON|CALLERID|CALLEDID" +
                                Held + ", STATE 1 CONNECTED, INFO 1 CONNECTEDID, STATE 1 ONHOLD" + Back + Ends +
                                SecondEnds,
                            "A busy number, and one that nobody answers. " + Calls + Ends + ", " + Calls + Ends,
                            "A call is handed on: the user asks first, then transfers. " + Rings + Answered + Held +
                                CallsSecond + SecondEnds + Ends,
                            "Three talk. " + Rings + Answered + Held + CallsSecond +
                                ", NEWCALL 30, STATE 30 ONHOLDPENDCONF, STATE 0 CONFERENCED, STATE 1 CONFERENCED, "
                                "STATE 30 CONNECTED, STATE 30 IDLE" +
                                SecondEnds + Back + Ends,
                            "Calls go elsewhere for a while. ADDRESS 0 40 to 4799, ADDRESS 0 40"));
}

TEST_F(ReadyScripts, ABadLine) {
    Play("bad-line.txt");
    EXPECT_THAT(
        told, ElementsAre(
                  "",
                  "Every fifth frame has a wrong bit, every seventh is lost: what is not acknowledged is sent again. " +
                      Rings + Answered + Ends,
                  "Half a frame, two in one piece, one twice. " + Rings + Answered + Ends,
                  "The card refuses, does not answer, and answers late. " + Rings + Ends,
                  "For three seconds the provider may not send. " + Rings + Ends,
                  "The cable is out, in the middle of a call. " + Rings + Answered +
                      ", STATE 0 IDLE, LINEDEV DISCONNECTED|OUTOFSERVICE, CLOSE, LINEDEV CONNECTED|INSERVICE",
                  "And all is well again. " + Rings + Ends));
    EXPECT_GT(Machine.card.resends, 0);
    EXPECT_GT(Machine.card.nacksIn, 0);
}

TEST_F(ReadyScripts, ASetOfVersion1) {
    const std::string first = "NEWCALL 0, STATE 0 OFFERING, INFO 0 CALLERID|CALLEDID";
    Play("version-1.txt");
    EXPECT_THAT(told, ElementsAre(first + ", STATE 0 CONNECTED, INFO 0 CALLERID, INFO 0 CONNECTEDID" + Ends + ", " +
                                  first + Ends));
}

TEST_F(ReadyScripts, ASetOfVersion2) {
    Play("version-2.txt");
    EXPECT_THAT(told, ElementsAre(Rings + Answered + Held + CallsSecond + SecondEnds + Ends + ", " + Rings + Ends));
}

TEST_F(ReadyScripts, ASetOfVersion3) {
    Play("version-3.txt");
    EXPECT_THAT(told, ElementsAre(Rings + Answered + Held + CallsSecond + Ends + SecondEnds,
                                  "The colleague's set rings: its key shows it here. Answered here, the call goes over "
                                  "to a free line of this set. " +
                                      Rings + Answered + Ends));
}

}  // namespace
