// The simulated equipment against bytes written down here: other tests believe what it says.
#include "equipment/characters.h"
#include "equipment/equipment.h"
#include "equipment/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Equipment;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

Bytes FromHex(const std::string& text) {
    return ParseHex(text).value();
}

// Between "; ".
Texts Parts(const std::string& text) {
    Texts parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in >> std::ws, part, ';');)
        parts.push_back(part);
    return parts;
}

// The provider's end of the line, on a clock of its own, that never pauses.
struct TheOtherEnd {
    Machine machine;
    std::uint32_t now = 4'294'967'000u;  // soon wraps
    Cutter cutter;

    TheOtherEnd() { machine.pacing.bitsPerSecond = 0; }

    void SendRaw(const std::string& bytes) { machine.Receive(FromHex(bytes), now); }
    // Hexadecimal digits are an item to send, "+" and a number milliseconds that pass, the rest a line of a script.
    void Say(const std::string& what) {
        if (what[0] == '+')
            now += static_cast<std::uint32_t>(std::stoul(what.substr(1)));
        else if (std::isdigit(what[0]) != 0)
            machine.Receive(BuildFrame(FromHex(what)), now);
        else
            EXPECT_EQ(Execute(machine, what, now), "") << what;
    }
    // What has come, byte for byte, nothing acknowledged.
    std::string Raw() {
        Bytes bytes(machine.Available(now));
        bytes.resize(machine.Read(bytes, now));
        return Hex(bytes);
    }
    // Says all of it; behind "=" stand the bytes that come of it.
    void Talk(const std::string& dialogue) {
        for (const std::string& part : Parts(dialogue)) {
            const std::size_t at = part.find(" = ");
            Say(part.substr(0, at));
            EXPECT_EQ(Raw(), at == std::string::npos ? "" : part.substr(at + 3)) << part;
        }
    }
    // Items that have come, each acknowledged unless it is itself link control; acknowledgements left out.
    Texts Items() {
        Texts items;
        while (machine.Available(now) > 0) {
            std::uint8_t byte = 0;
            machine.Read(std::span(&byte, 1), now);
            if (!cutter.Push(byte))
                continue;
            const Bytes frame = cutter.frame;
            EXPECT_TRUE(FrameHolds(frame)) << Hex(frame);
            if (const std::string item = Hex(ItemOf(frame)); item != "60 00")
                items.push_back(item);
            if (frame[1] != TypeControl)
                Say("60 00");
        }
        return items;
    }
    // Says all of it; what comes of the last one, in words without their commonplaces: 0 '...' is the whole of line 0.
    std::string Do(const std::string& script) {
        std::string words;
        for (const std::string& what : Parts(script)) {
            Say(what);
            words.clear();
            for (const std::string& item : Items()) {
                std::string word = Describe(FromHex(item));
                for (const std::string noise : {"to set: ", " key", " value", "line ", " mode 0 at 0"})
                    if (const std::size_t at = word.find(noise); at != std::string::npos)
                        word.erase(at, noise.size());
                words += (words.empty() ? "" : " | ") + word;
            }
        }
        return words;
    }
    void Shows(const std::vector<std::pair<std::string, std::string>>& steps) {
        for (const auto& [script, words] : steps)
            EXPECT_EQ(Do(script), words) << script;
    }
};

// The link is up and the provider knows what the card can do.
struct Linked : TheOtherEnd {
    explicit Linked(const std::string& setup = "") {
        Do(setup);
        Say("60 85");
        Say("60 11");
        EXPECT_EQ(Items().size(), 1u);
    }
};

// --- frames

TEST(EquipmentFrames, LongMessagesAreCutAtSixteenBytes) {
    const struct {
        std::size_t length;
        Texts heads;  // the first bytes of each frame
    } cases[] = {{16, {"15 0C 80 00 11 12"}},
                 {17, {"15 0C 81 00 12 12", "03 0C 00"}},
                 {40, {"15 0C 82 00 29 12", "12 0C 01", "0A 0C 00"}},
                 {255, {"15 0C 8F 01 00 12"}}};
    EXPECT_EQ(Hex(BuildFrame(OmnaItems(Bytes(15)).front())).substr(0, 5), "10 12");
    for (const auto& c : cases) {
        Bytes message(c.length);
        std::iota(message.begin(), message.end(), std::uint8_t{1});
        const std::vector<Bytes> items = OmnaItems(message);
        Reassembly reassembly;
        for (std::size_t i = 0; i < items.size(); ++i) {
            const std::string head = i < c.heads.size() ? c.heads[i] : "";
            EXPECT_EQ(Hex(BuildFrame(items[i])).substr(0, head.size()), head) << c.length;
            EXPECT_EQ(reassembly.Add(items[i]),
                      i + 1 < items.size() ? Reassembly::Result::More : Reassembly::Result::Complete);
        }
        EXPECT_EQ(reassembly.message, message);
    }
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
    end.Say("60 01");
    for (const std::size_t expected : {0u, 0u, 1u, 2u, 3u, 4u, 4u}) {
        EXPECT_EQ(end.machine.Available(end.now), expected);
        ++end.now;
    }
    EXPECT_EQ(end.machine.NextDue(end.now), 0u);
    end.Talk("60 01 = 02 60 01 9D");  // the line was idle: starts now, not when the last one ended
    EXPECT_EQ(end.machine.NextDue(end.now), 2u);
    end.Talk("+5 = 02 60 01 9D");
    EXPECT_EQ(end.machine.NextDue(end.now), UINT32_MAX);
}

TEST(EquipmentLine, AnswersTheStartOfTheLink) {
    TheOtherEnd end;
    end.Say("set super on");
    // an answer to the first would count for a frame that was never sent
    end.Talk("60 85; 60 01 = 02 60 01 9D; 60 10 03 = 02 60 10 8E");
    end.Talk("abort = 02 60 86 18; contact = 02 60 87 17; reset = 02 60 88 16");
    end.SendRaw("02 60 11");
    EXPECT_EQ(end.Raw(), "");
    end.SendRaw("8D");
    EXPECT_EQ(end.Raw(), "06 60 11 03 06 00 01 7F");
    end.Talk("60 12 32 = 03 60 12 32 59; 26 1F 05 = 02 60 00 9E");  // a press that does nothing
}

TEST(EquipmentLine, RefusesDamagedFramesAndForgetsHalfOnes) {
    Linked end;
    end.SendRaw("03 26 20 05 B3");
    EXPECT_EQ(end.Raw(), "02 60 84 1A");
    end.Talk("6F 02 60 00 04 26 20 05 = 02 60 83 1B");
    end.SendRaw("0A 26");
    end.Talk("+600; 60 01 = 02 60 01 9D");
    EXPECT_THAT(end.machine.set.presses, IsEmpty());
}

TEST(EquipmentLine, SendsOneFrameAtATimeAgainUntilAcknowledgedAndThenGivesUp) {
    Linked end;
    end.machine.pacing.resendLimit = 2;
    end.Talk("icon 1 active = 05 61 47 01 20 20 12; icon 2 held; 60 84 = 05 61 47 01 20 20 12; "
             "60 00 = 05 61 47 02 28 28 01; 60 00; 60 84");  // then nothing is unheard
    end.Talk("icon 1 active = 05 61 47 01 20 20 12; icon 2 held; +990; +10 = 05 61 47 01 20 20 12; "
             "+1000 = 05 61 47 01 20 20 12; +1000");
    EXPECT_FALSE(end.machine.card.present);
    end.Talk("icon 3 active; 60 01 = 02 60 01 9D; +5000");  // nobody was there to hear it
}

TEST(EquipmentLine, JoinsWhatWaitsInSuperFramesNoLongerThanAllowed) {
    Linked end("set super on");
    end.Talk("incoming 1 0123456789 = "
             "1C 6E 03 61 3E 01 05 61 47 01 00 28 10 61 27 00 00 31 3A 30 31 32 33 34 35 36 37 38 39 ED");
    for (int i = 0; i < 60; ++i)
        end.machine.Queue(FromHex("61 47 02 20 20"), true);
    end.machine.Queue(FromHex("12 00 06 02 00 03 01"), false);
    end.machine.Queue(FromHex("61 2B"), true);
    end.Say("60 00");
    const Texts items = end.Items();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(FromHex(items[0]).size(), 1u + 41 * 6);  // a 42nd would make 255 bytes of frame
    EXPECT_EQ(FromHex(items[1]).size(), 1u + 19 * 6);
    EXPECT_EQ(items[2].substr(0, 2), "12");
    EXPECT_EQ(items[3], "61 2B");
}

TEST(EquipmentLine, SendsAcknowledgementAndDataInOneFrame) {
    Linked end("set piggyback on");
    end.Talk("12 00 06 02 00 06 01 = 0D 6F 02 60 00 08 12 00 07 02 00 07 01 03 F4; "
             "60 84 = 0D 6F 02 60 00 08 12 00 07 02 00 07 01 03 F4; "  // refused: all of it again
             "+1000 = 08 12 00 07 02 00 07 01 03 D2; "                 // unheard: without what belongs to another frame
             "6F 02 60 00 07 12 00 06 02 00 0A 01 = 0D 6F 02 60 00 08 12 00 07 02 00 0B 01 03 F0");
}

// --- misbehaviour

TEST(EquipmentFaults, EachDoesWhatItSaysAsOftenAsItSays) {
    const std::string good = "02 60 01 9D", bad = "02 60 00 9D";
    const std::pair<const char*, Texts> cases[] = {
        // answers to three polls
        {"lose 1", {"", good, good}},
        {"lose 1 data", {good, good, good}},
        {"lose-every 2", {good, "", good}},
        {"flip 2", {bad, bad, good}},
        {"flip-every 2", {good, bad, good}},
        {"cut 1", {"02 60", good, good}},
        {"repeat 1 control", {good + " " + good, good, good}},
        {"join 1", {"", good + " " + good, good}},
        {"ignore 1", {"", good, good}},
        {"nack 85 2", {"02 60 85 19", "02 60 85 19", good}},
        {"no-poll on", {"", "", ""}},
    };
    for (const auto& [line, answers] : cases) {
        TheOtherEnd end;
        end.Say(line);
        for (const std::string& answer : answers) {
            end.Say("60 01");
            EXPECT_EQ(end.Raw(), answer) << line;
        }
    }
}

TEST(EquipmentFaults, WhatIsLateComesLateOrDiesWithItsDialogue) {
    Linked end;
    end.Talk("join 1; 60 01; +300 = 02 60 01 9D");
    end.Talk("delay ack 200; delay answer 500; 12 00 06 02 00 06 01; +199; +1 = 02 60 00 9E; +299; "
             "+1 = 08 12 00 07 02 00 07 01 03 D2; 60 00; delay ack 0");
    end.Talk("12 00 06 02 00 06 02 = 02 60 00 9E; delay answer 0; no-association on; "
             "12 00 06 02 00 02 01 = 02 60 00 9E; +2000");
}

TEST(EquipmentFaults, WithTheCableOffTheSetLivesOnAndNothingOldComesAfterwards) {
    Linked end;
    end.Shows({{"no-headers on; icon 1 active", ""},
               {"no-headers off; silence on; incoming 3 4712", ""},
               {"silence off", ""},
               {"60 01", "poll"},
               {"caller 3", "0 '3:4712'"}});
    EXPECT_EQ(end.machine.set.icons[3], RingingIcon);
}

// --- the PBX

TEST(EquipmentPbx, AnswersARepeatedRequestOnceButEveryAssociation) {
    Linked end("set number 1");
    const std::string keys = "KEY_ACK #1", association = "DEVICE_ASSOC_ACK #1 | 0 'Lun 12 Mai  10:30'";
    end.Shows({{"12 00 06 02 00 06 01", keys},
               {"12 00 06 02 00 06 01", ""},
               {"12 00 06 02 00 02 01", association},
               {"12 00 06 02 00 02 01", association},
               {"12 00 06 02 00 06 01", keys},     // a new dialogue
               {"12 00 07 02 00 08 01 63", ""}});  // an entry far behind the last
}

// --- the set

const std::string LabelsAlone = "2eApp                           FreqV   ";
const std::string LabelsTwo = "Fin2Ap  VaVien  Conf    Transf  FreqV   ";
const std::string LabelsRinging = "Fin2Ap                  Transf          ";
const std::string LabelsConference = "                Conf    Transf          ";

TEST(EquipmentSet, PlaysCallsAsASetShowsThem) {
    const std::string idle = "0 'Lun 12 Mai  10:30'", blank = " | 1 '" + std::string(40, ' ') + "'";
    const std::string dupont = "0 'DUPONT  0123456789'", talking = " | 1 '" + LabelsAlone + "'";
    Linked end("module 2 offset 40; key 43 multi 4711");
    end.Shows({
        {"incoming 1 0123456789 \"DUPONT\"", "ring 1 | icon 1 2800 | 0 '1:DUPONT  0123456789'"},
        {"answer 1", "from set: 1 | ring 0 | icon 1 2020 | " + dupont + talking},
        {"hold 1", "from set: 1 | icon 1 2828 | " + idle + blank},
        {"retrieve 1", "from set: 1 | icon 1 2020 | " + dupont + talking},
        {"second 2", "from set: 2 | icon 1 2828 | icon 2 2020 | 0 'Numero: '" + blank},
        {"dial 4#", "from set: digit 4 | 0 mode 2 at 0 '4' | from set: digit 11 | 0 mode 2 at 0 '#'"},
        {"far-rings", "0 '4#' | 1 '" + LabelsRinging + "'"},
        {"far-answers", "1 '" + LabelsTwo + "'"},
        {"swap", "from set: 1 | icon 2 2828 | icon 1 2020 | " + dupont},
        {"hangup 1", "from set: 41 | icon 1 0000 | " + idle + blank},
        {"caller-hangs-up 2", "icon 2 0000 | " + idle},
        {"seize 3; dial 1; far-busy", "0 'Raccrochez'"},
        {"hangup 3", "from set: 41 | icon 3 0000 | " + idle},
        {"incoming 2 4713 late 1200", "ring 1 | icon 2 2800"},
        {"+1190", ""},
        {"+10", "0 '2:4713'"},
        {"press 43", "from module 2: 3 | to module 2: icon 3 2020 | 0 'Numero: '"},
    });
}

TEST(EquipmentSet, PlaysADoubleCallOnOneKeyAndAConference) {
    Linked end("set multi 1");
    end.Do("incoming 1 0145678901 \"DUPONT\"; answer 1; soft 1; dial 4713; far-answers");
    end.Shows({{"soft 3", "from set: 31 | 0 'DUPONT  0145  4713          Conf' | 1 '" + LabelsConference + "'"},
               // The provider reads from the soft keys that it is over, and only then from line 0 who has left.
               {"caller-hangs-up 1 slot 1", "1 '" + LabelsAlone + "' | 0 'DUPONT  0145678901'"}});
    end.Do("soft 1; dial 4713; far-answers");
    end.Shows({{"swap", "from set: 30 | 0 'DUPONT  0145678901'"}});
    end.Do("caller-hangs-up 1");
    EXPECT_EQ(DisplayText(end.machine, 0).substr(0, 8), "Annulez ");
}

// --- what presses do: what is left is the set's own picture of its calls (key.slot, direction, state, number)

struct Played {
    const char* name;
    std::string script, calls;
    std::string labels = "";  // "" = whatever they are
};

std::string Calls(const Machine& machine) {
    std::string text;
    for (const SetCall& call : machine.set.calls)
        text += (text.empty() ? "" : ", ") + std::to_string(call.key) + "." + std::to_string(call.slot) +
                (call.incoming ? " in " : " out ") + CallStateName(call.state) + " " + call.number;
    return text;
}

void Check(const std::string& setup, const std::vector<Played>& cases) {
    for (const Played& played : cases) {
        Linked end(setup);
        end.Do(played.script);
        EXPECT_EQ(Calls(end.machine), played.calls) << played.name;
        EXPECT_EQ(Inconsistency(end.machine), "") << played.name;
        if (!played.labels.empty()) {
            EXPECT_EQ(DisplayText(end.machine, 1), played.labels) << played.name;
        }
    }
}

const std::string Talking = "incoming 1 4720; answer 1; ", TwoCalls = Talking + "soft 1; dial 4730; far-answers; ";
const std::string ThreeCalls = Talking + "incoming 2 4730; answer 2; incoming 3 4740; answer 3; ";

// clang-format off
TEST(EquipmentPresses, SecondCallsOnOneKey) {
    Check("set multi 1", {
        {"letters", Talking + "6E 03 26 20 42 03 26 20 6F 03 26 20 62", "1.0 in held 4720, 1.1 out dialling Bob"},
        {"it rings", Talking + "soft 1; dial 4730; far-rings",
         "1.0 in held 4720, 1.1 out far end rings 4730", LabelsRinging},
        {"a new one takes the free slot", TwoCalls + "swap; soft 1; soft 1",
         "1.1 out held 4730, 1.0 out dial tone "},
        {"nobody can be reached", Talking + "soft 1; dial 4730; far-busy",
         "1.0 in held 4720, 1.1 out over 4730", "Fin2Ap" + std::string(34, ' ')},
        {"abandoned at dial tone, the first rings back", Talking + "soft 1; soft 1", "1.0 in rings back 4720"},
        {"abandoned later, the first goes on", Talking + "soft 1; dial 4; soft 1", "1.0 in connected 4720", LabelsAlone},
        {"put down before the answer, and taken again", Talking + "soft 1; dial 4; 26 20 29; 26 20 01",
         "1.0 in connected 4720", LabelsAlone},
        {"the second party leaves", TwoCalls + "caller-hangs-up 1", "1.0 in held 4720, 1.1 out over 4730"},
        {"the held party leaves", TwoCalls + "caller-hangs-up 1 slot 0", "1.1 out connected 4730", LabelsAlone},
        {"a conference ended on request", TwoCalls + "swap; conference; 26 20 1F", "1.1 out connected 4730",
         LabelsAlone},
        {"another key stays another key", Talking + "incoming 2 4730; answer 2",
         "1.0 in held 4720, 2.0 in connected 4730", "2eApp           Conf    Transf  FreqV   "},
        {"presses without meaning",
         TwoCalls + "26 20 01; 26 20 03; 26 20 22; 26 20 63; 26 03 0C; 26 04 1A 20 03; 26 20; 26; 6E 04 26 20 1E",
         "1.0 in held 4720, 1.1 out connected 4730", LabelsTwo},
    });
}

TEST(EquipmentPresses, SecondCallsOnOtherKeys) {
    Check("", {
        {"the tone mode ends with the conversation", Talking + "tones on; hold 1; retrieve 1", "1.0 in connected 4720",
         LabelsAlone},
        {"a held party leaves", TwoCalls + "caller-hangs-up 1", "2.0 out connected 4730", LabelsAlone},
        {"release leaves the held call", TwoCalls + "26 20 29", "1.0 in held 4720"},
        {"another key abandons what is dialled", "seize 1; dial 47; 26 20 02", "2.0 out dial tone "},
        {"conference with a call that rings back", TwoCalls + "recall 1; conference",
         "1.0 in conferenced 4720, 2.0 out conferenced 4730"},
        {"of three calls", ThreeCalls + "6E 03 26 20 01 03 26 20 1F 03 26 20 02",
         "1.0 in conferenced 4720, 2.0 in conferenced 4730, 3.0 in held 4740"},
        {"another press calls it off", ThreeCalls + "transfer; 26 20 05; 26 20 01",
         "1.0 in connected 4720, 2.0 in held 4730, 3.0 in held 4740"},
        {"a choice is waited for", ThreeCalls + "transfer; +1490",
         "1.0 in held 4720, 2.0 in held 4730, 3.0 in connected 4740"},
        {"without one the call held last is meant", ThreeCalls + "transfer; +1500", "1.0 in held 4720"},
        {"off hook takes what rings", "incoming 2 4730; 26 20 30", "2.0 in connected 4730"},
    });
}

TEST(EquipmentPresses, SupervisionBossAndSecretaryKeys) {
    Check("set version 3; module 2 offset 40; keys none; key 1 multi 4711; key 2 multi 4711; key 7 supervision 4720; "
          "key 9 boss 4730; key 43 secretary 4740", {
        {"interception holds what is active", "incoming 1 1; answer 1; incoming 7 4750; 26 20 07",
         "1.0 in held 1, 2.0 in connected 4750"},
        {"a secretary key dials its label", "26 04 1A 20 03", "43.0 out dialling 4740"},
        {"a call goes over while it rings", "incoming 9 4750; move 9 2", "2.0 in ringing 4750"},
        {"no second call beside one", "incoming 9 4750; answer 9; second-call",
         "9.0 in held 4750, 1.0 out dial tone "},
        {"transfer on ringing waits for the held call's key",
         "incoming 1 1; answer 1; incoming 2 2; answer 2; 26 20 09; far-rings; 26 20 20; 26 20 01", "2.0 in held 2"},
    });
    // The order of the icons says whether it is still the same call.
    Linked end("key 7 supervision 4720; key 9 boss 4730");
    EXPECT_THAT(end.Do("incoming 7 4750; press 7"),
                testing::StartsWith("from set: 7 | ring 0 | icon 1 2020 | icon 7 0000 | "));
    EXPECT_EQ(end.Do("12 00 06 02 00 02 01; release; incoming 9 4750; answer 9; move 9 2"),
              "TA_M_EVENT_TRANSFERED_CALL #1 | icon 9 0000 | icon 2 2020");
}

TEST(EquipmentPresses, NumbersDoWhatThePlanSays) {
    Check("destination 4720 answers 500; destination 47 never-answers; destination any not-obtainable", {
        {"rings", "seize 1; dial 4720; +490", "1.0 out far end rings 4720"},
        {"and answers", "seize 1; dial 4720; +500", "1.0 out connected 4720"},
        {"does not go on", "seize 1; dial 47; +400", "1.0 out far end rings 47"},
        {"belongs to nobody", "seize 1; dial 472; +400", "1.0 out over 472"},
    });
}
// clang-format on

// --- what the PBX tells of calls

TEST(EquipmentEvents, CarryKeyReasonFlagsNumbersAndNames) {
    // what the last line sends of TAPI_OMNA: code and payload
    const std::pair<std::string, const char*> cases[] = {
        {"incoming 1 47 \"é\"", "17 01 00 02 01 34 37 01 E9 02 01 31 32 00"},
        {"set version 3; incoming 1 47 reason 1 for 48 \"B\"", "17 01 01 02 01 34 37 00 02 01 34 38 01 42"},
        {"incoming 1 -", "17 01 00 00 00 00 02 01 31 32 00"},
        {"incoming 1 12345", "17 01 00 05 82 31 32 33 34 35 00 02 01 31 32 00"},
        {"set event-prefix on; incoming 1 12345", "17 01 00 06 02 30 31 32 33 34 35 00 02 01 31 32 00"},
        {"set no-operator on; incoming 1 12345", "17 01 00 05 C2 31 32 33 34 35 00 02 01 31 32 00"},
        {"set version 3; incoming 7 47", "17 07 00 02 01 34 37 00 00 00 00"},
        {"seize 1; dial 47; far-rings \"A\"", "18 01 00 02 01 34 37 01 41"},
        {"seize 1; dial 012345; far-rings", "18 01 00 05 82 31 32 33 34 35 00"},
        {"set event-prefix on; seize 1; dial 012345; far-rings", "18 01 00 06 02 30 31 32 33 34 35 00"},
        {"seize 1; dial 47; far-answers", "18 01 00 02 01 34 37 00, 19 01 00 02 01 34 37 00"},
        {"seize 1; dial 47; far-rings; far-diverts 48", "18 01 00 02 01 34 38 00"},
        {"incoming 1 47; answer 1; far-transfers 1 48", "19 01 00 02 01 34 38 00"},
        {"incoming 1 47; far-transfers 1 48", "17 01 08 02 01 34 38 00 02 01 31 32 00"},
        {"set multi 1; incoming 1 47; answer 1; dial 4", "18 01 00 00 00 00"},
        {"incoming 1 47; answer 1; second 2; dial 48; far-answers; transfer", "1C 02"},
        {"set version 1; incoming 1 47", ""},
        {"set version 1; incoming 9 47; move 9 1", "1C 09"},
    };
    for (const auto& [script, sent] : cases) {
        Linked end("keys none; key 1 multi 12; key 2 multi 12; key 7 supervision 20; key 9 boss 30");
        std::string event;
        for (const std::string& line : Parts("12 00 06 02 00 02 01; " + script)) {
            end.Say(line);
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
        EXPECT_EQ(event, sent) << script;
    }
}

}  // namespace
