// Random walks over the whole provider, a few short ones of each kind of set; `zt_walk` takes long ones.
#include "walk/walk.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

constexpr int ACTIONS = 150;

// Lines as zt_walk prints them for a walk that fails.
std::string Fault(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    const Walk::Outcome out = Walk::Run(lines);
    EXPECT_EQ(out.Lines, lines) << "each of them applies";
    return out.Fault;
}

// Each failed once.
TEST(WalkAgain, BreaksNothing) {
    // The call that rings when the line is opened again takes no record of a make call that waits for the configuration.
    EXPECT_EQ(Fault("set 1 0 0 0 0 0 0 0 0\nreopen\ncall 3 4711 - 0 500 4 -\nclose\nopen\nwait 100\n"
                    "lineMakeCall 4721 0 1\nkey 1\nrelease\nwait 4000"),
              "");
    // A boss's key, pressed in a double call, is not taken by the set.
    EXPECT_EQ(Fault("set 3 1 1 0 0 0 0 0 0\nreopen\ncall 1 4720 - 0 500 0 -\nwait 1000\nkey 1\nwait 1000\n"
                    "softkey 1\nwait 1000\nlineMakeCall 4730 0 1\nwait 1500\ncompare"),
              "");
    // Version 1: a second call on the same key that was short, and of which TAPI has not heard that it ended.
    EXPECT_EQ(Fault("set 1 1 1 0 0 0 1 0 8000\nreopen\nkey 1\nwait 500\nfar-answers MARTIN\nwait 500\ndial 60\n"
                    "lineSetupTransfer 0 1\nfar-hangs-up 1 2 0\nwait 4000\ncompare"),
              "");
    // A call that is answered on the set while a make call takes its record for one at dial tone.
    EXPECT_EQ(Fault("set 3 1 0 0 1 1 0 0 0\nreopen\ncall-waits MARTIN\nkey 1\nwait 4000\ndial 664720\n"
                    "lineMakeCall 4730 0 1\nkey 1\nwait 4000\ndial 4721\ncompare"),
              "");
    // The PBX reports a call on a key whose lighting was taken for the line of a service code.
    EXPECT_EQ(Fault("set 3 0 0 1 0 0 1 0 0\nreopen\nlineForward 1000 0 16 -1 4730 1 1\nhook 8\n"
                    "far-diverts A1*# LE_GOFF\ncompare"),
              "");
}

class RandomWalk : public testing::TestWithParam<std::tuple<int, bool, int>> {};

TEST_P(RandomWalk, BreaksNothing) {
    const auto [version, super, multi] = GetParam();
    for (const bool misbehaves : {false, true}) {
        Walk::Options options;
        options.Seed = static_cast<std::uint32_t>(100 * version + 10 * super + multi);
        options.Actions = ACTIONS;
        options.Version = version;
        options.Super = super;
        options.MultiMode = multi;
        options.Misbehaves = misbehaves;
        const Walk::Outcome out = Walk::Run(options);
        EXPECT_EQ(out.Fault, "") << "again: zt_walk --actions " << ACTIONS << " --length " << ACTIONS << " --seed "
                                 << options.Seed << " --version " << version << " --super " << super << " --multi "
                                 << multi << " --line " << misbehaves << " --print\n"
                                 << testing::PrintToString(out.Trail);
        const Walk::Outcome again = Walk::Run(out.Lines);
        EXPECT_EQ(again.Trail, out.Trail) << "the lines of a walk walk it again";
        EXPECT_GT(out.Events, ACTIONS / 2);
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, RandomWalk,
                         testing::Combine(testing::Values(1, 2, 3), testing::Bool(), testing::Values(0, 1)),
                         [](const auto& set) {
                             return "Omna" + std::to_string(std::get<0>(set.param)) +
                                    (std::get<1>(set.param) ? "Super" : "") +
                                    (std::get<2>(set.param) != 0 ? "SameKey" : "");
                         });

}  // namespace
