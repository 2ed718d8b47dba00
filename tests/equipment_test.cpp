// The simulated equipment against bytes written down here: other tests believe what it says.
#include "equipment/characters.h"
#include "equipment/equipment.h"
#include "equipment/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <string>
#include <vector>

namespace {

using namespace Equipment;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

Bytes FromHex(const std::string& text) {
    return ParseHex(text).value();
}

// The provider's end of the line, on a clock of its own, that never pauses.
struct TheOtherEnd {
    Machine machine;
    std::uint32_t now = 4'294'967'000u;  // soon wraps
    bool acknowledges = true;
    Cutter cutter;

    TheOtherEnd() { machine.pacing.bitsPerSecond = 0; }

    void Send(const std::string& item) { machine.Receive(BuildFrame(FromHex(item)), now); }
    void SendRaw(const std::string& bytes) { machine.Receive(FromHex(bytes), now); }

    // What has come, byte for byte, nothing acknowledged.
    std::string Raw() {
        Bytes bytes(machine.Available(now));
        bytes.resize(machine.Read(bytes, now));
        return Hex(bytes);
    }
    // Items that come within `ms`, each acknowledged unless it is itself link control; acknowledgements left out.
    Texts Items(std::uint32_t ms = 0) {
        Texts items;
        for (std::uint32_t end = now + ms;; now += 10) {
            while (machine.Available(now) > 0) {
                std::uint8_t byte = 0;
                machine.Read(std::span(&byte, 1), now);
                if (!cutter.Push(byte))
                    continue;
                const Bytes frame = cutter.frame;
                EXPECT_TRUE(FrameHolds(frame)) << Hex(frame);
                const std::string item = Hex(ItemOf(frame));
                if (item == "60 00")
                    continue;
                items.push_back(item);
                if (acknowledges && frame[1] != TypeControl)
                    Send("60 00");
            }
            if (now == end)
                return items;
        }
    }
    // The link is up and the provider knows what the card can do.
    void Start() {
        SendRaw("02 60 85 19");
        Send("60 11");
        EXPECT_EQ(Items().size(), 1u);
    }
    Texts Do(const std::string& line) {
        EXPECT_EQ(Execute(machine, line, now), "");
        return Words(Items());
    }
    static Texts Words(const Texts& items) {
        Texts words;
        for (const std::string& item : items)
            words.push_back(Describe(FromHex(item)));
        return words;
    }
};

// --- frames

TEST(EquipmentFrames, ChecksumsAreThoseOfTheLink) {
    for (const char* frame : {"02 60 00 9E", "02 60 84 1A", "02 60 85 19", "02 60 01 9D", "03 60 10 03 8A",
                              "02 60 11 8D", "03 60 12 32 59", "01 00 FF", "01 20 DF", "03 26 20 05 B2"}) {
        const Bytes bytes = FromHex(frame);
        EXPECT_TRUE(FrameHolds(bytes)) << frame;
        EXPECT_EQ(Hex(BuildFrame(ItemOf(bytes))), frame);
    }
}

TEST(EquipmentFrames, NoSingleWrongBitPasses) {
    const Bytes good = FromHex("03 26 20 05 B2");
    for (std::size_t i = 0; i < good.size() * 8; ++i) {
        Bytes bad = good;
        bad[i / 8] = static_cast<std::uint8_t>(bad[i / 8] ^ (1u << (i % 8)));
        EXPECT_FALSE(FrameHolds(bad)) << i;
    }
}

TEST(EquipmentFrames, SuperFramesComeApartAsTheyWerePacked) {
    const std::vector<Bytes> items = {FromHex("26 20 05"), FromHex("26 03 01"), FromHex("26 03 02")};
    EXPECT_EQ(Hex(BuildFrame(BuildSuper(items))), "0D 6E 03 26 20 05 03 26 03 01 03 26 03 02 DC");
    bool damaged = true;
    EXPECT_EQ(CutSuper(BuildSuper(items), damaged), items);
    EXPECT_FALSE(damaged);
    EXPECT_THAT(CutSuper(FromHex("6E 03 26 20 05 04 26 03 01"), damaged), ElementsAre(items[0]));
    EXPECT_TRUE(damaged);

    const auto attached = CutAttached(FromHex("6F 02 60 00 03 26 20 05"));
    ASSERT_TRUE(attached);
    EXPECT_EQ(attached->control, ControlAck);
    EXPECT_EQ(attached->item, items[0]);
    for (const char* bad : {"6F 02 60 00 04 26 20 05", "6F 02 60 00 02 26 20 05", "6F 03 60 00 03 26 20 05", "6F 02"})
        EXPECT_FALSE(CutAttached(FromHex(bad))) << bad;
}

Bytes MessageOf(std::size_t length) {
    Bytes message(length);
    std::iota(message.begin(), message.end(), std::uint8_t{1});
    return message;
}

TEST(EquipmentFrames, LongMessagesAreCutAtSixteenBytes) {
    struct {
        std::size_t length;
        Texts heads;  // the first bytes of each frame
        std::vector<std::size_t> sizes;
    } const cases[] = {
        {15, {"10 12"}, {18}},
        {16, {"15 0C 80 00 11 12"}, {23}},
        {17, {"15 0C 81 00 12 12", "03 0C 00"}, {23, 5}},
        {32, {"15 0C 81 00 21 12", "12 0C 00"}, {23, 20}},
        {40, {"15 0C 82 00 29 12", "12 0C 01", "0A 0C 00"}, {23, 20, 12}},
        {255, {"15 0C 8F 01 00 12"}, {}},
    };
    for (const auto& c : cases) {
        const Bytes message = MessageOf(c.length);
        const std::vector<Bytes> items = OmnaItems(message);
        for (std::size_t i = 0; i < c.heads.size(); ++i) {
            const Bytes frame = BuildFrame(items.at(i));
            EXPECT_EQ(Hex(frame).substr(0, c.heads[i].size()), c.heads[i]) << c.length;
            if (i < c.sizes.size()) {
                EXPECT_EQ(frame.size(), c.sizes[i]) << c.length;
            }
        }
        if (c.length < 16)
            continue;
        Reassembly reassembly;
        for (std::size_t i = 0; i < items.size(); ++i)
            EXPECT_EQ(reassembly.Add(items[i]),
                      i + 1 < items.size() ? Reassembly::Result::More : Reassembly::Result::Complete);
        EXPECT_EQ(reassembly.message, message);
    }
}

TEST(EquipmentFrames, ASegmentOutOfOrderIsRefusedAndTheRightOneStillTaken) {
    const std::vector<Bytes> items = OmnaItems(MessageOf(40));
    Reassembly reassembly;
    EXPECT_EQ(reassembly.Add(items[1]), Reassembly::Result::Unexpected);
    EXPECT_EQ(reassembly.Add(items[0]), Reassembly::Result::More);
    EXPECT_EQ(reassembly.Add(items[2]), Reassembly::Result::Unexpected);
    EXPECT_EQ(reassembly.Add(items[1]), Reassembly::Result::More);
    Bytes shorter = items[2];
    shorter.pop_back();
    EXPECT_EQ(reassembly.Add(shorter), Reassembly::Result::WrongLength);
}

TEST(EquipmentFrames, TextsSurviveTheSetsCharacters) {
    EXPECT_EQ(Hex(ToSet("Répondu à 8h")), "52 82 70 6F 6E 64 75 20 85 20 38 68");
    EXPECT_EQ(FromSet(ToSet("Numéro: çÜß½")), "Numéro: çÜß½");
    EXPECT_EQ(Hex(ToSet("€\xFF")), "3F 3F");
}

// --- the line

TEST(EquipmentLine, BytesComeAtTheSpeedOfTheLine) {
    TheOtherEnd end;
    end.machine.pacing.bitsPerSecond = 9600;  // 11 bits: 1.146 ms a byte
    end.Send("60 01");
    const std::size_t byMillisecond[] = {0, 0, 1, 2, 3, 4, 4};
    for (const std::size_t expected : byMillisecond) {
        EXPECT_EQ(end.machine.Available(end.now), expected);
        ++end.now;
    }
    end.Send("60 01");  // the line was idle: starts now, not when the last one ended
    EXPECT_EQ(end.machine.Available(end.now), 4u);
    EXPECT_EQ(end.machine.NextDue(end.now), 0u);
    EXPECT_EQ(end.Raw(), "02 60 01 9D");
    EXPECT_EQ(end.machine.NextDue(end.now), 2u);
    end.now += 5;
    EXPECT_EQ(end.Raw(), "02 60 01 9D");
    EXPECT_EQ(end.machine.NextDue(end.now), UINT32_MAX);
}

TEST(EquipmentLine, AnswersTheStartOfTheLink) {
    struct {
        bool super, piggyback;
        const char* config;
    } const cases[] = {{false, false, "06 60 11 03 06 00 00 80"},
                       {true, false, "06 60 11 03 06 00 01 7F"},
                       {false, true, "06 60 11 03 06 00 02 7E"},
                       {true, true, "06 60 11 03 06 00 03 7D"}};
    for (const auto& c : cases) {
        TheOtherEnd end;
        end.machine.config.superFrames = c.super;
        end.machine.config.piggyback = c.piggyback;
        end.SendRaw("02 60 85 19");
        EXPECT_EQ(end.Raw(), "");  // an answer would count for a frame that was never sent
        end.SendRaw("02 60 01 9D");
        EXPECT_EQ(end.Raw(), "02 60 01 9D");
        end.SendRaw("03 60 10 03 8A");
        EXPECT_EQ(end.Raw(), "02 60 10 8E");
        end.SendRaw("02 60 11");
        EXPECT_EQ(end.Raw(), "");
        end.SendRaw("8D");  // the rest of the enquiry
        EXPECT_EQ(end.Raw(), c.config);
        end.SendRaw("03 60 12 32 59");
        EXPECT_EQ(end.Raw(), "03 60 12 32 59");
        end.SendRaw("03 26 1F 05 B3");  // a press that does nothing
        EXPECT_EQ(end.Raw(), "02 60 00 9E");
    }
}

TEST(EquipmentLine, RefusesDamagedFramesAndForgetsHalfOnes) {
    TheOtherEnd end;
    end.Start();
    end.SendRaw("03 26 20 05 B3");
    EXPECT_EQ(end.Raw(), "02 60 84 1A");
    end.SendRaw("0A 26");
    end.now += 600;
    end.SendRaw("02 60 01 9D");
    EXPECT_EQ(end.Raw(), "02 60 01 9D");
    EXPECT_THAT(end.machine.set.presses, IsEmpty());
}

TEST(EquipmentLine, SendsAgainUntilAcknowledgedAndThenGivesUp) {
    TheOtherEnd end;
    end.acknowledges = false;
    end.Start();
    end.machine.pacing.resendLimit = 2;
    Execute(end.machine, "icon 1 active", end.now);
    Execute(end.machine, "icon 2 held", end.now);
    const std::string first = "05 61 47 01 20 20 12";
    EXPECT_EQ(end.Raw(), first);  // one in flight at a time
    end.now += 990;
    EXPECT_EQ(end.Raw(), "");
    end.now += 10;
    EXPECT_EQ(end.Raw(), first);
    end.now += 1000;
    EXPECT_EQ(end.Raw(), first);
    end.now += 1000;
    EXPECT_EQ(end.Raw(), "");
    EXPECT_FALSE(end.machine.card.present);
    Execute(end.machine, "icon 3 active", end.now);  // nobody is there to hear it
    end.Send("60 01");
    EXPECT_EQ(end.Raw(), "02 60 01 9D");
    end.now += 5000;
    EXPECT_EQ(end.Raw(), "");
}

TEST(EquipmentLine, AnAcknowledgementLetsTheNextFrameGoAndARefusalBringsTheLastBack) {
    TheOtherEnd end;
    end.Start();
    Execute(end.machine, "icon 1 active", end.now);
    Execute(end.machine, "icon 2 held", end.now);
    EXPECT_EQ(end.Raw(), "05 61 47 01 20 20 12");
    end.SendRaw("02 60 84 1A");
    EXPECT_EQ(end.Raw(), "05 61 47 01 20 20 12");
    end.SendRaw("02 60 00 9E");
    EXPECT_EQ(end.Raw(), "05 61 47 02 28 28 01");
    end.SendRaw("02 60 00 9E");
    EXPECT_EQ(end.Raw(), "");
    end.SendRaw("02 60 84 1A");  // nothing is unheard
    EXPECT_EQ(end.Raw(), "");
}

TEST(EquipmentLine, JoinsWhatWaitsInSuperFramesNoLongerThanAllowed) {
    TheOtherEnd end;
    end.machine.config.superFrames = true;
    end.Start();
    EXPECT_EQ(Execute(end.machine, "incoming 1 0123456789", end.now), "");
    EXPECT_EQ(end.Raw(), "1C 6E 03 61 3E 01 05 61 47 01 00 28 10 61 27 00 00 31 3A 30 31 32 33 34 35 36 37 38 39 "
                         "ED");
    for (int i = 0; i < 60; ++i)
        end.machine.Queue(FromHex("61 47 02 20 20"), true);
    end.machine.Queue(FromHex("12 00 06 02 00 03 01"), false);
    end.machine.Queue(FromHex("61 2B"), true);
    end.Send("60 00");
    const Texts items = end.Items();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(FromHex(items[0]).size(), 1u + 41 * 6);  // a 42nd would make 255 bytes of frame
    EXPECT_EQ(FromHex(items[1]).size(), 1u + 19 * 6);
    EXPECT_EQ(items[2].substr(0, 2), "12");
    EXPECT_EQ(items[3], "61 2B");
}

TEST(EquipmentLine, SendsAcknowledgementAndDataInOneFrame) {
    TheOtherEnd end;
    end.machine.config.piggyback = true;
    end.Start();
    end.Send("12 00 06 02 00 06 01");  // key request
    EXPECT_EQ(end.Raw(), "0D 6F 02 60 00 08 12 00 07 02 00 07 01 03 F4");
    end.Send("60 84");  // refused: all of it again
    EXPECT_EQ(end.Raw(), "0D 6F 02 60 00 08 12 00 07 02 00 07 01 03 F4");
    end.now += 1000;  // unheard: again, without the acknowledgement that belongs to another frame
    EXPECT_EQ(end.Raw(), "08 12 00 07 02 00 07 01 03 D2");
    end.Send("6F 02 60 00 07 12 00 06 02 00 0A 01");  // acknowledged, and the next request with it
    EXPECT_EQ(end.Raw(), "0D 6F 02 60 00 08 12 00 07 02 00 0B 01 03 F0");
}

TEST(EquipmentLine, StartsALongMessageAgainWhenASegmentIsRefused) {
    TheOtherEnd end;
    end.machine.config.keys.push_back({4, KindMulti, "4711"});  // four entries: three segments
    end.Start();
    end.machine.faults.wrongSequence = true;
    end.Send("12 00 07 02 00 08 01 00");
    Texts heads;
    for (int i = 0; i < 5; ++i) {
        const std::string raw = end.Raw();
        const std::size_t at = raw.find("0C ");
        ASSERT_NE(at, std::string::npos) << i;
        heads.push_back(raw.substr(at, 5));
        end.Send(i == 1 ? "60 85" : "60 00");  // segment 0 when 1 was expected
    }
    EXPECT_THAT(heads, ElementsAre("0C 82", "0C 00", "0C 82", "0C 01", "0C 00"));
}

TEST(EquipmentLine, AReopenedLinkGetsNothingOfTheOldDialogue) {
    TheOtherEnd end;
    end.machine.config.number = "1";
    end.Start();
    end.Send("12 00 07 02 00 08 01 00");
    EXPECT_EQ(end.Raw().substr(12, 8), "15 0C 81");  // behind the acknowledgement, the first of two segments
    end.Send("60 85");
    end.Send("12 00 06 02 00 02 01");
    const Texts items = end.Items(5000);
    ASSERT_EQ(items.size(), 3u);                // the display of the idle set last
    EXPECT_EQ(items[0].substr(0, 5), "0C 81");  // was on its way
    EXPECT_EQ(items[1].substr(0, 17), "12 00 0E 02 00 03");
}

// --- misbehaviour: one poll, answered with 02 60 01 9D, and what comes instead

TEST(EquipmentFaults, EachDoesWhatItSaysAsOftenAsItSays) {
    struct {
        const char* line;
        Texts answers;  // to three polls
    } const cases[] = {
        {"lose 1", {"", "02 60 01 9D", "02 60 01 9D"}},
        {"lose 1 data", {"02 60 01 9D", "02 60 01 9D", "02 60 01 9D"}},
        {"lose-every 2", {"02 60 01 9D", "", "02 60 01 9D"}},
        {"flip 2", {"02 60 00 9D", "02 60 00 9D", "02 60 01 9D"}},
        {"cut 1", {"02 60", "02 60 01 9D", "02 60 01 9D"}},
        {"repeat 1 control", {"02 60 01 9D 02 60 01 9D", "02 60 01 9D", "02 60 01 9D"}},
        {"join 1", {"", "02 60 01 9D 02 60 01 9D", "02 60 01 9D"}},
        {"ignore 1", {"", "02 60 01 9D", "02 60 01 9D"}},
        {"nack 83", {"02 60 83 1B", "02 60 01 9D", "02 60 01 9D"}},
        {"nack 85 2", {"02 60 85 19", "02 60 85 19", "02 60 01 9D"}},
        {"no-poll on", {"", "", ""}},
        {"silence on", {"", "", ""}},
    };
    for (const auto& c : cases) {
        TheOtherEnd end;
        EXPECT_EQ(Execute(end.machine, c.line, end.now), "") << c.line;
        for (const std::string& answer : c.answers) {
            end.Send("60 01");
            EXPECT_EQ(end.Raw(), answer) << c.line;
        }
    }
}

TEST(EquipmentFaults, AFrameKeptBackToBeJoinedGoesAloneInTheEnd) {
    TheOtherEnd end;
    end.machine.faults.joinNext = 1;
    end.Send("60 01");
    end.now += 300;
    EXPECT_EQ(end.Raw(), "02 60 01 9D");
}

TEST(EquipmentFaults, LateAcknowledgementsAndAnswersComeLate) {
    TheOtherEnd end;
    end.Start();
    end.machine.faults.ackDelayMs = 200;
    end.machine.faults.answerDelayMs = 500;
    end.Send("12 00 06 02 00 06 01");
    end.now += 199;
    EXPECT_EQ(end.Raw(), "");
    end.now += 1;
    EXPECT_EQ(end.Raw(), "02 60 00 9E");
    end.now += 299;
    EXPECT_EQ(end.Raw(), "");
    end.now += 1;
    EXPECT_EQ(end.Raw(), "08 12 00 07 02 00 07 01 03 D2");
}

TEST(EquipmentFaults, ALateAnswerDiesWithItsDialogue) {
    TheOtherEnd end;
    end.Start();
    end.machine.faults.answerDelayMs = 500;
    end.Send("12 00 06 02 00 06 01");
    end.machine.faults.answerDelayMs = 0;
    end.machine.faults.noAssociation = true;
    end.Send("12 00 06 02 00 02 01");
    EXPECT_THAT(end.Items(2000), IsEmpty());
}

TEST(EquipmentFaults, WithTheCableOffTheSetLivesOnAndNothingOldComesAfterwards) {
    TheOtherEnd end;
    end.Start();
    end.machine.faults.noTraceHeaders = true;
    EXPECT_THAT(end.Do("icon 1 active"), IsEmpty());
    end.machine.faults.noTraceHeaders = false;
    EXPECT_THAT(end.Do("silence on"), IsEmpty());
    EXPECT_THAT(end.Do("incoming 3 4712"), IsEmpty());
    EXPECT_EQ(end.machine.set.icons[3], RingingIcon);
    EXPECT_THAT(end.Do("silence off"), IsEmpty());
    end.Send("60 01");
    EXPECT_THAT(end.Items(), ElementsAre("60 01"));
    EXPECT_THAT(end.Do("caller 3"), ElementsAre("to set: line 0 mode 0 at 0 '3:4712'"));
}

// --- the PBX

TEST(EquipmentPbx, AnnouncesAndSendsItsListsInPieces) {
    TheOtherEnd end;
    end.machine.config.omna = 3;
    end.machine.config.entriesPerMessage = 2;
    end.machine.config.keys = {{1, KindMulti, "47"}, {9, KindBoss, "50"}, {2, KindMulti, "é"}, {90, KindMulti, ""}};
    end.machine.config.softKeys = {"A", "B", "C"};
    end.Start();
    struct {
        const char *request, *answer;
    } const dialogue[] = {
        {"12 00 06 02 00 06 01", "12 00 07 03 00 07 01 03"},
        // the first two of three keys: number, label, a byte that nobody reads. 16 bytes go as a segment
        {"12 00 07 02 00 08 01 00", "0C 80 00 11 12 00 10 03 00 09 01 02 01 02 34 37 00 02 01 82 00"},
        {"12 00 07 02 00 08 02 02", "12 00 0A 03 00 09 02 01 5A 00 00"},
        {"12 00 06 02 00 1E 01", "12 00 0A 03 00 1F 01 00 01 00 00"},
        {"12 00 07 02 00 20 01 00", "12 00 0C 03 00 21 01 01 09 08 02 35 30"},
        {"12 00 06 02 00 0E 01", "12 00 07 03 00 0F 01 03"},
        {"12 00 07 02 00 10 01 00", "12 00 0D 03 00 11 01 02 00 01 41 01 01 42"},
        {"12 00 07 02 00 10 02 02", "12 00 0A 03 00 11 02 01 02 01 43"},
    };
    for (const auto& step : dialogue) {
        end.Send(step.request);
        EXPECT_THAT(end.Items(), ElementsAre(step.answer)) << step.request;
    }
}

TEST(EquipmentPbx, TellsOfTheSetWhatItsVersionTells) {
    SetConfiguration config;
    config.number = "12";
    config.omna = 1;
    EXPECT_EQ(Hex(AssociationPayload(config)), "00 01 02 31 32");
    config.omna = 2;
    EXPECT_EQ(Hex(AssociationPayload(config)), "00 01 02 31 32 03 00 04 00");
    config.multiMode = 1;
    config.forwardStatus = 2;
    config.forwardDestination = "99";
    config.modules = {{2, true, 40}, {0, false, 28}};
    EXPECT_EQ(Hex(AssociationPayload(config)), "00 01 02 31 32 03 01 02 02 00 39 39 12 28 80 1C 00");
}

TEST(EquipmentPbx, AnswersARepeatedRequestOnceButEveryAssociation) {
    TheOtherEnd end;
    end.machine.config.number = "1";
    end.Start();
    end.Send("12 00 06 02 00 06 01");
    EXPECT_EQ(end.Items().size(), 1u);
    end.Send("12 00 06 02 00 06 01");
    EXPECT_THAT(end.Items(), IsEmpty());
    end.Send("12 00 06 02 00 06 02");
    EXPECT_EQ(end.Items().size(), 1u);
    for (int i = 0; i < 2; ++i) {
        end.Send("12 00 06 02 00 02 01");
        EXPECT_EQ(end.Items().size(), 2u);  // and the display of the idle set
    }
    end.Send("12 00 06 02 00 06 02");
    EXPECT_EQ(end.Items().size(), 1u);
    end.Send("12 00 07 02 00 08 01 63");  // an entry far behind the last
    EXPECT_THAT(end.Items(), IsEmpty());
}

// --- the set

TEST(EquipmentSet, PlaysCallsAsASetShowsThem) {
    TheOtherEnd end;
    end.Start();
    const std::string idle = "to set: line 0 mode 0 at 0 'Lun 12 Mai  10:30'";
    const std::string blank = "to set: line 1 mode 0 at 0 '" + std::string(40, ' ') + "'";
    const std::string talking = "to set: line 1 mode 0 at 0 '2eApp                           FreqV   '";
    struct {
        const char* line;
        Texts shown;
    } const steps[] = {
        {"incoming 1 0123456789 \"DUPONT\"",
         {"to set: ring 1", "to set: icon key 1 value 2800", "to set: line 0 mode 0 at 0 '1:DUPONT  0123456789'"}},
        {"answer 1",
         {"from set: key 1", "to set: ring 0", "to set: icon key 1 value 2020",
          "to set: line 0 mode 0 at 0 'DUPONT  0123456789'", talking}},
        {"hold 1", {"from set: key 1", "to set: icon key 1 value 2828", idle, blank}},
        {"retrieve 1",
         {"from set: key 1", "to set: icon key 1 value 2020", "to set: line 0 mode 0 at 0 'DUPONT  0123456789'",
          talking}},
        {"second 2",
         {"from set: key 2", "to set: icon key 1 value 2828", "to set: icon key 2 value 2020",
          "to set: line 0 mode 0 at 0 'Numero: '", blank}},
        {"dial 4#",
         {"from set: digit 4", "to set: line 0 mode 2 at 0 '4'", "from set: digit 11",
          "to set: line 0 mode 2 at 0 '#'"}},
        {"far-rings",
         {"to set: line 0 mode 0 at 0 '4#'", "to set: line 1 mode 0 at 0 'Fin2Ap                  Transf          '"}},
        {"far-answers", {"to set: line 1 mode 0 at 0 'Fin2Ap  VaVien  Conf    Transf  FreqV   '"}},
        {"swap",
         {"from set: key 1", "to set: icon key 2 value 2828", "to set: icon key 1 value 2020",
          "to set: line 0 mode 0 at 0 'DUPONT  0123456789'"}},
        {"hangup 1", {"from set: key 41", "to set: icon key 1 value 0000", idle, blank}},
        {"caller-hangs-up 2", {"to set: icon key 2 value 0000", idle}},
        {"seize 3", {"from set: key 3", "to set: icon key 3 value 2020", "to set: line 0 mode 0 at 0 'Numero: '"}},
        {"dial 1", {"from set: digit 1", "to set: line 0 mode 2 at 0 '1'"}},
        {"far-busy", {"to set: line 0 mode 0 at 0 'Raccrochez'"}},
        {"hangup 3", {"from set: key 41", "to set: icon key 3 value 0000", idle}},
    };
    for (const auto& step : steps)
        EXPECT_EQ(end.Do(step.line), step.shown) << step.line;
    EXPECT_THAT(end.machine.set.calls, IsEmpty());
}

TEST(EquipmentSet, PlaysADoubleCallOnOneKey) {
    TheOtherEnd end;
    end.machine.config.multiMode = 1;
    end.Start();
    for (const char* line : {"incoming 1 4712", "answer 1", "soft 1", "dial 4713", "far-answers"})
        end.Do(line);
    EXPECT_EQ(DisplayText(end.machine, 1), "Fin2Ap  VaVien  Conf    Transf  FreqV   ");
    EXPECT_EQ(end.Do("swap"), (Texts{"from set: key 30", "to set: line 0 mode 0 at 0 '4712'"}));
    end.Do("caller-hangs-up 1");
    EXPECT_EQ(DisplayText(end.machine, 0).substr(0, 8), "Annulez ");
    EXPECT_EQ(end.Do("soft 1").back(), "to set: line 1 mode 0 at 0 '2eApp                           FreqV   '");
    EXPECT_EQ(DisplayText(end.machine, 0).substr(0, 5), "4713 ");
    EXPECT_EQ(end.machine.set.icons[1], ActiveIcon);
}

TEST(EquipmentSet, ShowsTheCallerLateOrNever) {
    TheOtherEnd end;
    end.Start();
    EXPECT_EQ(end.Do("incoming 1 4712 nocaller").size(), 2u);
    EXPECT_THAT(end.Items(5000), IsEmpty());
    EXPECT_EQ(end.Do("incoming 2 4713 late 1200").size(), 1u);
    EXPECT_THAT(end.Items(1190), IsEmpty());
    EXPECT_THAT(end.Words(end.Items(10)), ElementsAre("to set: line 0 mode 0 at 0 '2:4713'"));
}

TEST(EquipmentSet, DoesWhatTheProviderPresses) {
    TheOtherEnd end;
    end.machine.config.modules = {{2, false, 40}};
    end.machine.config.keys.push_back({43, KindMulti, "4711"});
    end.Start();
    end.Send("6E 03 26 20 01 03 26 03 04 03 26 03 0B");  // key 1, 4, #
    EXPECT_THAT(end.Words(end.Items()),
                ElementsAre("to set: icon key 1 value 2020", "to set: line 0 mode 0 at 0 'Numero: '",
                            "to set: line 0 mode 2 at 0 '4'", "to set: line 0 mode 2 at 0 '#'"));
    end.Send("26 20 29");  // release
    EXPECT_THAT(end.Words(end.Items()), testing::Contains("to set: icon key 1 value 0000"));
    end.Send("26 04 1A 20 03");  // key 43, on the module
    EXPECT_EQ(end.Items().front(), "63 02 47 03 20 20");
    EXPECT_EQ(end.machine.set.icons[43], ActiveIcon);
    ASSERT_EQ(end.machine.set.presses.size(), 5u);
    EXPECT_EQ(Hex(end.machine.set.presses[4].item), "26 04 1A 20 03");
    end.Do("hangup 43");
    EXPECT_EQ(Execute(end.machine, "press 43", end.now), "");
    EXPECT_EQ(end.Items().front(), "64 02 20 03");
}

// --- what presses do. A step is a line of a script, or the provider's frames behind ">". What is left is the set's own
// picture of its calls (key.slot, direction, state, number) and line 1.

struct Played {
    const char* name;
    std::vector<const char*> lines;
    std::string calls;
    std::string labels = "";  // "" = whatever they are
};

std::string Calls(const Machine& machine) {
    std::string text;
    for (const SetCall& call : machine.set.calls)
        text += (text.empty() ? "" : ", ") + std::to_string(call.key) + "." + std::to_string(call.slot) +
                (call.incoming ? " in " : " out ") + CallStateName(call.state) + " " + call.number;
    return text;
}

struct Presses : TheOtherEnd {
    // Gives what the last line sent.
    Texts Play(const std::vector<const char*>& lines) {
        Texts last;
        for (const char* line : lines) {
            if (*line == '>')
                Send(line + 1);
            else
                EXPECT_EQ(Execute(machine, line, now), "") << line;
            last = Words(Items());
            EXPECT_EQ(Inconsistency(machine), "") << line;
        }
        return last;
    }
    void Check(const Played& played) {
        Play(played.lines);
        EXPECT_EQ(Calls(machine), played.calls) << played.name;
        if (!played.labels.empty()) {
            EXPECT_EQ(DisplayText(machine, 1), played.labels) << played.name;
        }
    }
};

const std::string LabelsAlone = "2eApp                           FreqV   ";
const std::string LabelsTwo = "Fin2Ap  VaVien  Conf    Transf  FreqV   ";
const std::string LabelsConference = "                Conf    Transf          ";
const std::vector<const char*> TwoCalls = {"incoming 1 4720", "answer 1", "soft 1", "dial 4730", "far-answers"};

std::vector<const char*> After(std::vector<const char*> lines, std::initializer_list<const char*> more) {
    lines.insert(lines.end(), more);
    return lines;
}

TEST(EquipmentPresses, SecondCallsOnOneKey) {
    const Played cases[] = {
        {"a soft key",
         {"incoming 1 4720", "answer 1", "soft 1"},
         "1.0 in held 4720, 1.1 out dial tone ",
         "Fin2Ap                                  "},
        {"digits in a conversation",
         {"incoming 1 4720", "answer 1", ">26 03 04", ">26 20 29", "answer 1", ">26 03 04"},
         "1.0 in held 4720, 1.1 out dialling 4"},
        {"letters",
         {"incoming 1 4720", "answer 1", ">6E 03 26 20 42 03 26 20 6F 03 26 20 62"},
         "1.0 in held 4720, 1.1 out dialling Bob"},
        {"it rings",
         {"incoming 1 4720", "answer 1", "soft 1", "dial 4730", "far-rings"},
         "1.0 in held 4720, 1.1 out far end rings 4730",
         "Fin2Ap                  Transf          "},
        {"it is answered", TwoCalls, "1.0 in held 4720, 1.1 out connected 4730", LabelsTwo},
        {"the provider swaps", After(TwoCalls, {">26 20 1E"}), "1.0 in connected 4720, 1.1 out held 4730", LabelsTwo},
        {"the provider ends it", After(TwoCalls, {">26 20 1D"}), "1.0 in connected 4720", LabelsAlone},
        {"a new one takes the free slot", After(TwoCalls, {"swap", "soft 1", "soft 1"}),
         "1.1 out held 4730, 1.0 out dial tone "},
        {"nobody can be reached",
         {"incoming 1 4720", "answer 1", "soft 1", "dial 4730", "far-busy"},
         "1.0 in held 4720, 1.1 out over 4730",
         "Fin2Ap                                  "},
        {"abandoned at dial tone, the first rings back",
         {"incoming 1 4720", "answer 1", "soft 1", "soft 1"},
         "1.0 in rings back 4720"},
        {"abandoned later, the first goes on",
         {"incoming 1 4720", "answer 1", "soft 1", "dial 4", "soft 1"},
         "1.0 in connected 4720",
         LabelsAlone},
        {"put down before the answer",
         {"incoming 1 4720", "answer 1", "soft 1", "dial 4", ">26 20 29"},
         "1.0 in rings back 4720"},
        {"and taken again",
         {"incoming 1 4720", "answer 1", "soft 1", "dial 4", ">26 20 29", ">26 20 01"},
         "1.0 in connected 4720",
         LabelsAlone},
        {"put down after it", After(TwoCalls, {">26 20 29"}), ""},
        {"the second party leaves", After(TwoCalls, {"caller-hangs-up 1"}), "1.0 in held 4720, 1.1 out over 4730"},
        {"the held party leaves", After(TwoCalls, {"caller-hangs-up 1 slot 0"}), "1.1 out connected 4730", LabelsAlone},
        {"transfer", After(TwoCalls, {">26 20 20"}), ""},
        {"transfer while it rings", {"incoming 1 4720", "answer 1", "dial 4730", "far-rings", ">26 20 20"}, ""},
        {"conference", After(TwoCalls, {">26 20 1F"}), "1.0 in conferenced 4720, 1.1 out conferenced 4730",
         LabelsConference},
        {"ended on request", After(TwoCalls, {"swap", "conference", ">26 20 1F"}), "1.1 out connected 4730",
         LabelsAlone},
        {"a party leaves", After(TwoCalls, {"conference", "caller-hangs-up 1 slot 0"}), "1.1 out connected 4730",
         LabelsAlone},
        {"released", After(TwoCalls, {"conference", ">26 20 29"}), ""},
        {"left to each other", After(TwoCalls, {"conference", ">26 20 20"}), ""},
        {"another key stays another key",
         {"incoming 1 4720", "answer 1", "incoming 2 4730", "answer 2"},
         "1.0 in held 4720, 2.0 in connected 4730",
         "2eApp           Conf    Transf  FreqV   "},
        {"presses without meaning",
         After(TwoCalls,
               {">26 20 01", ">26 20 03", ">26 20 22", ">26 20 63", ">26 03 0C", ">26 04 1A 20 03", ">26 20", ">26"}),
         "1.0 in held 4720, 1.1 out connected 4730", LabelsTwo},
    };
    for (const Played& played : cases) {
        Presses end;
        end.machine.config.multiMode = 1;
        end.Start();
        end.Check(played);
    }
}

TEST(EquipmentPresses, SecondCallsOnOtherKeys) {
    const std::vector<const char*> three = {"incoming 1 4720", "answer 1",        "incoming 2 4730",
                                            "answer 2",        "incoming 3 4740", "answer 3"};
    const Played cases[] = {
        {"a soft key takes the next line", TwoCalls, "1.0 in held 4720, 2.0 out connected 4730", LabelsTwo},
        {"so do digits", {"incoming 1 4720", "answer 1", "dial 47"}, "1.0 in held 4720, 2.0 out dialling 47"},
        {"swap", After(TwoCalls, {">26 20 1E"}), "1.0 in connected 4720, 2.0 out held 4730", LabelsTwo},
        {"end of the second", After(TwoCalls, {">26 20 1D"}), "1.0 in connected 4720", LabelsAlone},
        {"a held party leaves", After(TwoCalls, {"caller-hangs-up 1"}), "2.0 out connected 4730", LabelsAlone},
        {"release leaves the held call", After(TwoCalls, {">26 20 29"}), "1.0 in held 4720"},
        {"which rings back", After(TwoCalls, {">26 20 29", "recall 1"}), "1.0 in rings back 4720"},
        {"another key abandons what is dialled", {"seize 1", "dial 47", ">26 20 02"}, "2.0 out dial tone "},
        {"conference", After(TwoCalls, {">26 20 1F"}), "1.0 in conferenced 4720, 2.0 out conferenced 4730",
         LabelsConference},
        {"with a call that rings back", After(TwoCalls, {"recall 1", "conference"}),
         "1.0 in conferenced 4720, 2.0 out conferenced 4730"},
        {"its second party leaves", After(TwoCalls, {"conference", "caller-hangs-up 2"}), "1.0 in connected 4720",
         LabelsAlone},
        {"end on request keeps the first", After(TwoCalls, {"conference", ">26 20 1F"}), "1.0 in connected 4720"},
        {"release in conference", After(TwoCalls, {"conference", ">26 20 29"}), ""},
        {"no other call meanwhile", After(TwoCalls, {"conference", "incoming 3 4740", ">26 20 03"}),
         "1.0 in conferenced 4720, 2.0 out conferenced 4730, 3.0 in ringing 4740"},
        {"transfer", After(TwoCalls, {">26 20 20"}), ""},
        {"of three calls, with the other's key", After(three, {">6E 03 26 20 01 03 26 20 20 03 26 20 03"}),
         "2.0 in held 4730"},
        {"conference of three calls", After(three, {">6E 03 26 20 01 03 26 20 1F 03 26 20 02"}),
         "1.0 in conferenced 4720, 2.0 in conferenced 4730, 3.0 in held 4740"},
        {"another press calls it off", After(three, {"transfer", ">26 20 05", ">26 20 01"}),
         "1.0 in connected 4720, 2.0 in held 4730, 3.0 in held 4740"},
        {"off hook takes what rings", {"incoming 2 4730", ">26 20 30"}, "2.0 in connected 4730"},
        {"or a line", {">26 20 30"}, "1.0 out dial tone "},
    };
    for (const Played& played : cases) {
        Presses end;
        end.Start();
        end.Check(played);
    }
}

TEST(EquipmentPresses, WithoutAChoiceTheCallHeldLastIsMeant) {
    Presses end;
    end.Start();
    end.Play({"incoming 1 4720", "answer 1", "incoming 2 4730", "answer 2", "incoming 3 4740", "answer 3", "transfer"});
    EXPECT_THAT(end.Items(1490), IsEmpty());
    end.Items(10);
    EXPECT_EQ(Calls(end.machine), "1.0 in held 4720");
}

TEST(EquipmentPresses, AConferenceShowsItsPartiesAndThenWhoHasStayed) {
    Presses end;
    end.machine.config.multiMode = 1;
    end.Start();
    EXPECT_EQ(
        end.Play({"incoming 1 0145678901 \"DUPONT\"", "answer 1", "soft 1", "dial 4730", "far-answers", "soft 3"}),
        (Texts{"from set: key 31", "to set: line 0 mode 0 at 0 'DUPONT  0145  4730          Conf'",
               "to set: line 1 mode 0 at 0 '" + LabelsConference + "'"}));
    // The provider reads from the soft keys that it is over, and only then from line 0 who has left.
    EXPECT_EQ(end.Play({"caller-hangs-up 1 slot 1"}), (Texts{"to set: line 1 mode 0 at 0 '" + LabelsAlone + "'",
                                                             "to set: line 0 mode 0 at 0 'DUPONT  0145678901'"}));
}

TEST(EquipmentPresses, ToneModeSendsDigitsAndDialsNothing) {
    Presses end;
    end.Start();
    end.Play({"incoming 1 4720", "answer 1"});
    EXPECT_EQ(end.Play({">26 20 21"}),
              (Texts{"to set: line 1 mode 0 at 0 '2eApp                           StopV   '"}));
    EXPECT_THAT(end.Play({">6E 03 26 03 01 03 26 03 0B"}), IsEmpty());
    EXPECT_EQ(end.Play({">26 20 21"}), (Texts{"to set: line 1 mode 0 at 0 '" + LabelsAlone + "'"}));
    EXPECT_EQ(end.machine.set.tones, "1#");
    end.Play({"tones on", "hold 1", "retrieve 1"});
    EXPECT_EQ(DisplayText(end.machine, 1), LabelsAlone) << "the mode ends with the conversation";
}

TEST(EquipmentPresses, SupervisionBossAndSecretaryKeys) {
    const std::vector<KeyConfiguration> keys = {{1, KindMulti, "4711"},
                                                {2, KindMulti, "4711"},
                                                {7, KindSupervision, "4720"},
                                                {9, KindBoss, "4730"},
                                                {43, KindSecretary, "4740"}};
    const Played cases[] = {
        {"interception holds what is active",
         {"incoming 1 1", "answer 1", "incoming 7 4750", ">26 20 07"},
         "1.0 in held 1, 2.0 in connected 4750"},
        {"the supervised party takes it", {"incoming 7 4750", "caller-hangs-up 7"}, ""},
        {"no press without a call", {">26 20 07"}, ""},
        {"a boss key dials its label", {">26 20 09"}, "9.0 out dialling 4730"},
        {"so does a secretary key on a module", {">26 04 1A 20 03"}, "43.0 out dialling 4740"},
        {"a call goes over while it rings", {"incoming 9 4750", "move 9 2"}, "2.0 in ringing 4750"},
        {"no second call beside one",
         {"incoming 9 4750", "answer 9", "second-call"},
         "9.0 in held 4750, 1.0 out dial tone "},
        {"transfer on ringing waits for the held call's key",
         {"incoming 1 1", "answer 1", "incoming 2 2", "answer 2", ">26 20 09", "far-rings", ">26 20 20", ">26 20 01"},
         "2.0 in held 2"},
    };
    for (const Played& played : cases) {
        Presses end;
        end.machine.config.omna = 3;
        end.machine.config.modules = {{2, false, 40}};
        end.machine.config.keys = keys;
        end.Start();
        end.Check(played);
    }
    // The order of the icons says whether it is still the same call.
    Presses end;
    end.machine.config.keys = {keys[0], keys[1], keys[2], keys[3]};
    end.Start();
    Texts shown = end.Play({"incoming 7 4750", "press 7"});
    shown.resize(4);
    EXPECT_THAT(shown, ElementsAre("from set: key 7", "to set: ring 0", "to set: icon key 1 value 2020",
                                   "to set: icon key 7 value 0000"));
    end.Send("12 00 06 02 00 02 01");
    end.Items();
    EXPECT_EQ(
        end.Play({"release", "incoming 9 4750", "answer 9", "move 9 2"}),
        (Texts{"TA_M_EVENT_TRANSFERED_CALL #1", "to set: icon key 9 value 0000", "to set: icon key 2 value 2020"}));
}

TEST(EquipmentPresses, ServiceCodesChangeForwardingAndPickUp) {
    Presses end;
    end.Start();
    end.machine.config.number = "1";
    EXPECT_EQ(end.Play({">26 03 06"}),  // the first digit takes a line
              (Texts{"to set: icon key 1 value 2020", "to set: line 0 mode 0 at 0 'Numero: '",
                     "to set: line 0 mode 2 at 0 '6'"}));
    end.Send("6E 03 26 03 02 03 26 03 04 03 26 03 07 03 26 03 02");
    EXPECT_EQ(end.Items().size(), 4u) << "not whole yet";
    end.Send("26 03 00");
    EXPECT_EQ(end.Items().back(), "0C 00 37 32 30 00") << "on busy, to 4720";
    EXPECT_EQ(end.machine.config.forwardStatus, 1);
    EXPECT_EQ(Calls(end.machine), "1.0 out served 624720");
    end.Play({">26 20 29"});
    EXPECT_EQ(Calls(end.machine), "");
    end.Play({">6E 03 26 03 06 03 26 03 01 03 26 03 00 03 26 03 01"});  // an outside number ends with a pause
    EXPECT_EQ(end.machine.config.forwardStatus, 1);
    end.Items(400);
    EXPECT_EQ(end.machine.config.forwardDestination, "01");
    EXPECT_EQ(end.machine.config.forwardStatus, 0);
    end.Play({">26 20 29", ">6E 03 26 03 06 03 26 03 00", ">26 20 29"});
    EXPECT_EQ(end.machine.config.forwardStatus, 4);

    end.Play({"waits-at 4720 4750 \"DUPONT\"", "dial 664721"});
    EXPECT_EQ(Calls(end.machine), "1.0 out over 664721");
    end.Play({"release", "dial 664720"});
    EXPECT_EQ(Calls(end.machine), "1.0 in connected 4750");
    EXPECT_EQ(DisplayText(end.machine, 1), LabelsAlone);
}

TEST(EquipmentPresses, NumbersDoWhatThePlanSays) {
    struct {
        const char* number;
        const char* states[3];  // at once, after 500 and 1000 ms
    } const cases[] = {
        {"4720", {"far end rings", "connected", "connected"}},
        {"4721", {"dialling", "over", "over"}},
        {"4722", {"far end rings", "far end rings", "far end rings"}},
        {"4723", {"dialling", "over", "over"}},
        {"47", {"dialling", "far end rings", "far end rings"}},
        {"48", {"dialling", "over", "over"}},
        {"472", {"dialling", "over", "over"}},
    };
    for (const auto& c : cases) {
        Presses end;
        for (const char* line :
             {"destination 4720 answers 500 \"DUPONT\"", "destination 4721 busy 450", "destination 4722 never-answers",
              "destination 4723 not-obtainable 20", "destination 47 never-answers", "destination any not-obtainable"})
            end.Do(line);
        end.Start();
        end.Play({"seize 1"});
        EXPECT_EQ(Execute(end.machine, std::string("dial ") + c.number, end.now), "");
        for (const char* expected : c.states) {
            end.Items();
            EXPECT_EQ(CallStateName(end.machine.set.calls.front().state), expected) << c.number;
            end.Items(500);
        }
    }
}

// --- what the PBX tells of calls

TEST(EquipmentEvents, CarryKeyReasonFlagsNumbersAndNames) {
    struct {
        const char* setting;
        std::vector<const char*> lines;
        std::string event;  // what the last line sent of TAPI_OMNA: code and payload
    } const cases[] = {
        {"set version 2", {"incoming 1 47 \"é\""}, "17 01 00 02 01 34 37 01 E9 02 01 31 32 00"},
        {"set version 3", {"incoming 1 47 reason 1 for 48 \"B\""}, "17 01 01 02 01 34 37 00 02 01 34 38 01 42"},
        {"set version 2", {"incoming 1 -"}, "17 01 00 00 00 00 02 01 31 32 00"},
        {"set version 2", {"incoming 1 12345"}, "17 01 00 05 82 31 32 33 34 35 00 02 01 31 32 00"},
        {"set event-prefix on", {"incoming 1 12345"}, "17 01 00 06 02 30 31 32 33 34 35 00 02 01 31 32 00"},
        {"set no-operator on", {"incoming 1 12345"}, "17 01 00 05 C2 31 32 33 34 35 00 02 01 31 32 00"},
        {"set version 3", {"incoming 7 47"}, "17 07 00 02 01 34 37 00 00 00 00"},
        {"set version 2", {"incoming 1 47", "answer 1"}, "19 01 00 02 01 34 37 00"},
        {"set version 2", {"seize 1", "dial 47", "far-rings \"A\""}, "18 01 00 02 01 34 37 01 41"},
        {"set version 2", {"seize 1", "dial 012345", "far-rings"}, "18 01 00 05 82 31 32 33 34 35 00"},
        {"set event-prefix on", {"seize 1", "dial 012345", "far-rings"}, "18 01 00 06 02 30 31 32 33 34 35 00"},
        {"set version 2", {"seize 1", "dial 47", "far-rings", "far-answers"}, "19 01 00 02 01 34 37 00"},
        {"set version 2", {"seize 1", "dial 47", "far-answers"}, "18 01 00 02 01 34 37 00, 19 01 00 02 01 34 37 00"},
        {"set version 2", {"seize 1", "dial 47", "far-rings", "far-diverts 48"}, "18 01 00 02 01 34 38 00"},
        {"set version 2", {"incoming 1 47", "answer 1", "far-transfers 1 48"}, "19 01 00 02 01 34 38 00"},
        {"set version 2", {"incoming 1 47", "far-transfers 1 48"}, "17 01 08 02 01 34 38 00 02 01 31 32 00"},
        {"set multi 1", {"incoming 1 47", "answer 1", "dial 4"}, "18 01 00 00 00 00"},
        {"set internal 2",
         {"waits-at 46 47", "dial 6646"},
         "17 01 04 02 01 34 37 00 02 01 34 36 00, 19 01 00 02 01 34 37 00"},
        {"set version 2", {"incoming 1 47", "answer 1", "second 2", "dial 48", "far-answers", "transfer"}, "1C 02"},
        {"set version 1", {"incoming 1 47"}, ""},
        {"set version 1", {"incoming 1 47", "answer 1"}, ""},
        {"set version 1", {"seize 1", "dial 47", "far-answers"}, ""},
        {"set version 1", {"incoming 9 47", "move 9 1"}, "1C 09"},
    };
    for (const auto& c : cases) {
        TheOtherEnd end;
        end.machine.config.keys = {
            {1, KindMulti, "12"}, {2, KindMulti, "12"}, {7, KindSupervision, "20"}, {9, KindBoss, "30"}};
        end.Start();
        end.Do(c.setting);
        end.Send("12 00 06 02 00 02 01");
        end.Items();
        std::string event;
        for (const char* line : c.lines) {
            EXPECT_EQ(Execute(end.machine, line, end.now), "") << line;
            event.clear();
            Reassembly segments;
            for (const std::string& item : end.Items()) {
                const Bytes bytes = FromHex(item);
                Bytes message(bytes.begin() + 1, bytes.end());
                if (bytes[0] == TypeSegment && segments.Add(bytes) == Reassembly::Result::Complete)
                    message = segments.message;
                else if (bytes[0] != TypeOmna)
                    continue;
                const auto omna = ParseOmna(message);
                ASSERT_TRUE(omna) << item;
                event += (event.empty() ? "" : ", ") + Hex(Bytes{omna->code}) + " " + Hex(omna->payload);
            }
        }
        EXPECT_EQ(event, c.event) << c.lines.back() << ", " << c.setting;
    }
}

// --- anything, in any order

TEST(EquipmentPresses, NoSequenceBreaksThePicture) {
    const char* const lines[] = {
        "incoming 1 4720",
        "incoming 2 4730",
        "incoming 3 4740",
        "incoming 7 4750",
        "incoming 9 4760",
        "incoming 43 47",
        "far-rings",
        "far-answers",
        "far-busy",
        "recall 1",
        "far-diverts 4799",
        "recall 2",
        "recall 9",
        "move 9 2",
        "move 43 3",
        "swap",
        "second-call",
        "conference",
        "transfer",
        "tones on",
        "tones off",
        "dial 4720",
        "dial 61",
        "dial 6",
        "dial 0",
        "dial B",
        "waits-at 4720 1",
        "far-transfers 1 5",
        "off-hook",
        "release",
        "caller-hangs-up 1",
        "caller-hangs-up 2 prompt",
        "caller-hangs-up 1 slot 0",
        "set multi 0",
        "set multi 1",
        "caller-hangs-up 3 reserved",
        "caller-hangs-up 7",
        "set version 1",
        "set version 3",
        "caller-hangs-up 9",
    };
    std::uint32_t seed = 12345;
    const auto pick = [&](std::size_t n) {
        seed = seed * 1'664'525u + 1'013'904'223u;
        return static_cast<int>(seed / 65'536u % n);
    };
    for (int walk = 0; walk < 20; ++walk) {
        TheOtherEnd end;
        end.machine.config.modules = {{2, false, 40}};
        end.machine.config.keys = {{1, KindMulti, "4711"},       {2, KindMulti, "4711"}, {3, KindMulti, "4712"},
                                   {7, KindSupervision, "4720"}, {9, KindBoss, "4730"},  {43, KindSecretary, "47"}};
        for (const char* line : {"destination 4720 answers 300", "destination 4730 busy", "set recall 5000"})
            end.Do(line);
        end.Start();
        std::string trail;
        for (int step = 0; step < 500; ++step) {
            std::string what = lines[pick(std::size(lines))];
            switch (pick(6)) {
            case 0: what = "press " + std::to_string(1 + pick(10)); break;
            case 1: what = "soft " + std::to_string(1 + pick(5)); break;
            case 2: what = ">26 20 " + Hex(Bytes{static_cast<std::uint8_t>(1 + pick(50))}); break;
            case 3: what = ">26 03 " + Hex(Bytes{static_cast<std::uint8_t>(pick(14))}); break;
            default: break;
            }
            trail += what + "; ";
            if (what[0] == '>')
                end.Send(what.substr(1));
            else
                Execute(end.machine, what, end.now);
            end.Items(pick(4) == 0 ? 100u * static_cast<unsigned>(pick(20)) : 0u);
            ASSERT_EQ(Inconsistency(end.machine), "") << trail;
        }
    }
}

// --- scripts

TEST(EquipmentScript, AWrongLineIsRefusedAndChangesNothing) {
    TheOtherEnd end;
    end.Start();
    end.Do("incoming 1 4712");
    const std::string before = Picture(end.machine);
    const Bytes association = AssociationPayload(end.machine.config);
    for (const char* line : {"dance",
                             "incoming",
                             "incoming 1 4713",
                             "incoming 89 1",
                             "incoming 40 1",
                             "answer 2",
                             "hold 1",
                             "dial 12",
                             "seize 20",
                             "icon 1 purple",
                             "icon 1 12345",
                             "display 2 x",
                             "display 0 \"x",
                             "lamp 1",
                             "nack 86",
                             "lose many",
                             "set version",
                             "set colour 3",
                             "set card 3",
                             "key 4 round",
                             "forward 0",
                             "module 9 offset 1",
                             "send 1",
                             "send xx",
                             "silence maybe",
                             "wait",
                             "seize 2 3",
                             "retrieve 1",
                             "swap",
                             "second 2",
                             "far-busy",
                             "conference",
                             "transfer",
                             "tones on",
                             "release",
                             "recall 1",
                             "move 1 2",
                             "far-diverts 5",
                             "far-transfers 2 5",
                             "destination 1 dances",
                             "set recall never"}) {
        EXPECT_TRUE(IsError(Execute(end.machine, line, end.now))) << line;
        EXPECT_THAT(end.Items(), IsEmpty()) << line;
    }
    EXPECT_EQ(Picture(end.machine), before);
    EXPECT_EQ(AssociationPayload(end.machine.config), association);
    EXPECT_EQ(end.machine.config.cardMajor, 3);
    EXPECT_EQ(end.machine.config.keys.size(), 3u);
    EXPECT_EQ(end.machine.faults.loseNext + end.machine.faults.nackNext, 0);
}

TEST(EquipmentScript, WaitsBetweenItsLines) {
    TheOtherEnd end;
    Script script;
    script.lines = {"icon 1 active", "wait 500",    "icon 1 held", "bad",
                    "wait 100",      "icon 1 dark", "quit",        "icon 1 active"};
    EXPECT_EQ(script.Step(end.machine, end.now), "");
    EXPECT_EQ(end.machine.set.icons[1], ActiveIcon);
    EXPECT_EQ(script.NextDue(end.now), 500u);
    EXPECT_EQ(script.Step(end.machine, end.now + 499), "");
    EXPECT_EQ(end.machine.set.icons[1], ActiveIcon);
    EXPECT_THAT(script.Step(end.machine, end.now + 500), testing::HasSubstr("bad: error: "));
    EXPECT_EQ(end.machine.set.icons[1], HeldIcon);
    script.Step(end.machine, end.now + 600);
    EXPECT_TRUE(script.quit);
    EXPECT_EQ(end.machine.set.icons[1], NoIcon);
}

}  // namespace
