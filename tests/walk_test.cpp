// Random walks over the whole provider, a few short ones of each kind of set; `zt_walk` takes long ones.
#include "walk/walk.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

constexpr int ACTIONS = 150;

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
