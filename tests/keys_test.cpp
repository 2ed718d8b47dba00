// What the set is told to press: bytes of single presses, Super Messages and their splitting, dial strings, module keys;
// and which key a new call seizes.
#include "link/keys.h"

#include "config/settings.h"
#include "control/free_keys.h"
#include "support/queue.h"
#include "support/tracked.h"
#include "support/wire.h"

#include <cstring>

namespace {

class Keys : public TrackedSet {
protected:
    static void Modules(std::initializer_list<std::pair<int, int>> addressAndOffset) {
        AomTable = {};
        AomCount = 0;
        for (const auto& [address, offset] : addressAndOffset)
            AomTable.at(static_cast<std::size_t>(AomCount++)) = {true, static_cast<std::uint8_t>(address), false,
                                                                 static_cast<std::uint8_t>(offset)};
        SortAomModules();
    }
};

TEST_F(Keys, PressesHaveTheirBytes) {
    Modules({{2, 32}});
    SendZTNondigitKey(28);
    SendZTNondigitKey(35);
    char letters[] = "*#Ab";
    SendDialString(letters, nullptr);
    PressServiceCode("*A1", nullptr);
    EXPECT_THAT(QueuedFrames(),
                ElementsAre("03 26 20 1C 9B", "05 26 04 1A 20 03 94", "03 26 03 0A CA", "03 26 03 0B C9",
                            "03 26 20 41 76", "03 26 20 62 55", "03 26 03 0A CA", "03 26 03 01 D3"));
    EXPECT_EQ(Steps(), "SendZTNondigitKey AOM Key 35 i_aom 0 adr 2  | Service code '*A1': character 41 left out");
    Modules({});
    SendZTNondigitKey(29);
    EXPECT_THAT(QueuedFrames(), IsEmpty());
}

TEST_F(Keys, SuperMessageGathersAndSplitsWithoutLoss) {
    Link.SuperMsgSupported = true;
    Modules({{2, 32}});
    PressSequence presses;
    presses.Send();  // empty: nothing
    presses.Key(35);
    presses.SoftKey(0);
    presses.SoftKey(6);
    presses.SoftKey(2);
    presses.Send();
    std::string eighty(NUMBER_SIZE - 1, '7');
    presses.Key(5);
    presses.DialString(eighty.data());
    presses.Send();
    const std::vector<std::string> frames = QueuedFrames();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0], "0B 6E 05 26 04 1A 20 03 03 26 20 1E B4");
    EXPECT_EQ(frames[1].substr(0, 17), "FD 6E 03 26 20 05");  // 63 items of 4 bytes
    EXPECT_EQ(frames[2].substr(0, 5), "45 6E");               // the other 17
}

TEST_F(Keys, DialStringPressesAtMostEightyAndLosesWhatCannotBeDialled) {
    std::string removed, text = "(1-2\xE9)";
    static std::string* into = nullptr;
    into = &removed;
    SendDialString(text.data(), nullptr, [](int code) { *into += std::to_string(code) + " "; });
    EXPECT_STREQ(text.c_str(), "12");
    EXPECT_EQ(removed, "40 45 233 41 ");
    EXPECT_EQ(QueuedFrames().size(), 2u);
    // Counted are the pressed ones only; what stands behind the last pressed one stays.
    std::string longOne = "-" + std::string(80, '1') + "-2";
    SuperMsgBuffer message;
    SendDialString(longOne.data(), &message);
    EXPECT_STREQ(longOne.c_str(), (std::string(80, '1') + "-2").c_str());
}

TEST_F(Keys, ModuleKeysGoToTheModuleBelowThem) {
    Modules({{1, 70}, {2, 28}, {3, 50}});
    const std::pair<int, int> rows[] = {{20, 1}, {29, 1}, {50, 1}, {51, 2}, {70, 2}, {71, 0}};
    for (const auto& [key, module] : rows)
        EXPECT_EQ(GetAomIndex(key), module) << key;
    Modules({});
    EXPECT_EQ(GetAomIndex(30), -1);
}

TEST_F(Keys, NewCallSeizesAKeyLikeThatOfTheCallInConversation) {
    Key(3, TOUCH_MULTI, "4712");
    CopyText(Settings.SetMCDU, "4711");
    EXPECT_EQ(FindFreeMultiLine(), 1);
    Key(1, TOUCH_MULTI, "4712");
    Call(1, 0, CONNECTED);
    EXPECT_EQ(FindFreeMultiLine(), 3);
    Record(0).state = ONHOLD;
    Call(2, 1, ONHOLD);  // one slot taken: not free
    EXPECT_EQ(FindFreeMultiLine(), 3);
    EXPECT_EQ(Steps(), "FindFreeMultiLine tou 1 (mcdu principal) | "
                       "FindFreeMultiLine tou 3 (type analogue a cref 0000 CONNECTED) | "
                       " pas de tou mcdu principal libre, rech tou mcdu secondaire | "
                       "FindFreeMultiLine tou 3 (mcdu secondaire)");
    Fresh();
    Key(2, TOUCH_MULTI, "4712");
    Key(1, TOUCH_MULTI, "4713");
    Call(2, 0, CONNECTED);
    EXPECT_EQ(FindFreeMultiLine(), 3) << "no other key of its number: the set's own";
    EXPECT_EQ(Steps(), "FindFreeMultiLine tou 3 (mcdu principal)");
}

TEST_F(Keys, NoKeyIsChosenThatCannotBePressed) {
    for (const int key : {1, 2, 3})
        Call(key, 0, CONNECTED);
    Key(35, TOUCH_MULTI);
    Key(36, TOUCH_PATRON, "4730");
    CopyText(Record(4).DestAddress, "4730");
    for (const auto& [offset, chosen] : {std::pair{28, true}, {36, false}}) {
        Modules({{2, offset}});
        EXPECT_EQ(FindFreeMultiLine(), chosen ? 35 : -1) << offset;
        EXPECT_EQ(FindFreeBossSecretaryKey(4), chosen ? 36 : -1) << offset;
    }
    Modules({});
    EXPECT_EQ(FindFreeMultiLine(), -1);
    EXPECT_EQ(FindFreeBossSecretaryKey(4), -1);
}

TEST_F(Keys, BossKeyIsTakenBeforeTheSecretaryKeyOfTheSameNumber) {
    for (const auto& [key, kind] : {std::pair{8, TOUCH_PATRON}, {9, TOUCH_SECRETAIRE}, {10, TOUCH_SECR_DEBORD}})
        Key(key, kind, "4730");
    CopyText(Record(4).DestAddress, "4730");
    for (const int expected : {8, 9, -1}) {
        EXPECT_EQ(FindFreeBossSecretaryKey(4), expected);
        if (expected != -1)
            At(expected).calls[0] = 0;
    }
    EXPECT_EQ(Steps(), "Tou Pat '4730' libre trouve tou 8 | Tou Sec '4730' libre trouve tou 9");
}

}  // namespace
