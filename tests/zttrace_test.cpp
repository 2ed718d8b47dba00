#include "equipment/script.h"
#include "zttrace/events.h"
#include "zttrace/files.h"
#include "zttrace/replay.h"
#include "zttrace/report.h"
#include "zttrace/texts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace {

using namespace TraceReader;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

std::string DumpOf(ByteSpan bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes.first(std::min(bytes.size(), DumpLimit)))
        text += Equipment::Hex(ByteSpan(&byte, 1)) + ".";
    return text;
}
Bytes FrameOf(const std::string& item) {
    return Equipment::BuildFrame(*Equipment::ParseHex(item));
}
std::string Received(const std::string& item) {
    return "ProcessInput(" + DumpOf(ByteSpan(FrameOf(item)).subspan(1)) + ")";
}
std::string Sent(const std::string& item, const char* how = "TxZTMsgFromFifo") {
    return std::string(how) + "(" + DumpOf(FrameOf(item)) + ")";
}

// What a report prints of these texts, a second of the clock each; the texts themselves left out.
struct Reader {
    Report report;
    Texts printed;
    Reader() {
        report.print = [this](const std::string& line) { printed.push_back(line); };
    }
    Texts Words(const Texts& texts) {
        Texts words;
        for (const std::string& text : texts) {
            printed.clear();
            report.Take("1000 " + text + "\r");
            for (std::size_t i = 1; i < printed.size(); ++i)
                words.push_back(printed[i].substr(printed[i].find_first_not_of(' ')));
        }
        return words;
    }
    std::string Word(const std::string& text) {
        std::string words;
        for (const std::string& word : Words({text}))
            words += (words.empty() ? "" : " | ") + word;
        return words;
    }
};

struct Case {
    std::string text;
    const char* words;
};

TEST(TraceReader, SaysFramesAndMessagesInWords) {
    const Case cases[] = {
        // link control means something else from each side
        {Received("60 00"), "<- ACK"},
        {Sent("60 01"), "-> poll"},
        {Received("60 01"), "<- poll answered"},
        {Sent("60 11"), "-> configuration enquiry"},
        {Received("60 11 03 06 00 03"), "<- Config Response 3.06 super frames piggyback"},
        {Received("60 11 04 0C 00 02"), "<- Config Response 4.12 piggyback"},
        {Sent("60 85", "SendL2Msg"), "-> resynchronisation"},
        {Received("60 85"), "<- NACK: loss of synchro"},
        {Sent("60 12 32"), "-> tempo modification 50"},
        {Received("60 77"), "<- link control 77"},
        // the set
        {Received("61 47 05 20 20"), "<- PBX to set: icon of key 5: ACTIVE (2020)"},
        {Received("61 47 05 03 13"), "<- PBX to set: icon of key 5: RESERVED (1303)"},
        {Received("61 47 05 03 03"), "<- PBX to set: icon of key 5: IDLE (0303)"},
        {Received("61 C7 05 20 A0"), "<- PBX to set: icon of key 5: INCOMING (A020)"},
        {Received("61 27 00 00 90 6C 69 73 65 20"), "<- PBX to set: display line 0 \"Élise\""},
        {Received("61 27 81 05 41"), "<- PBX to set: display line 0 \"A\" at column 5, the rest stays, more follows"},
        {Received("61 28 00 00 32 65 41 70 70 20 20 20 20 20 20 20 20 20 20 20 43 6F 6E 66"),
         "<- PBX to set: soft keys: 1 \"2eApp\", 3 \"Conf\""},
        {Received("61 28 01 10 43 6F"), "<- PBX to set: soft keys: 3 \"Co\", the rest stays"},
        {Received("61 21 03 07"), "<- PBX to set: lamp 7: FLASH"},
        {Received("61 02 0A 47 03 28 28"), "<- PBX to module 2: icon of key 3 of its own: HOLD (2828)"},
        {Received("61 0B 02 3E 01 03 21 00 04"), "<- PBX to set: ring 1 | <- PBX to set: lamp 4: OFF"},
        {Received("61 0B 02 3E 01 09 21 00"),
         "<- PBX to set: ring 1 | <- PBX to set: Super Message ... (ends too early)"},
        {Received("62 20 1E"), "<- set: soft key 2 pressed"},
        {Received("62 03 0B"), "<- set: digit #"},
        {Received("64 02 20 03"), "<- module 2: key 3 of its own pressed"},
        // presses of the provider
        {Sent("26 20 05", "Resend_Last_Msg"), "-> press key 5"},
        {Sent("26 20 29"), "-> press RELEASE_KEY"},
        {Sent("26 20 41"), "-> press letter A"},
        {Sent("26 04 1A 20 03"), "-> press key 3 of module 2"},
        {Sent("6E 03 26 20 05 03 26 03 0A"), "-> press key 5 | -> press digit *"},
        {Sent("6F 02 60 00 03 26 20 1D"), "-> ACK | -> press soft key 1"},
        {Received("6F 02 60 00 09 6E 03 61 3E 01 04 62 20 01"),
         "<- ACK | <- PBX to set: ring 1 | <- ... (ends too early)"},
        // TAPI_OMNA
        {"TAPI_OMNA MSG: 00.15.02.00.17.05.02.01.04.82.31.32.33.34.01.44.02.41.37.31.00.",
         "<- EVENT_INCOMING_CHANGE #5: key 2, reason FWDBUSY (1), caller \"1234\" external without prefix name \"D\", "
         "called \"71\" internal no operator prefix"},
        {Sent("12 00 07 02 00 08 02 08"), "-> key information request #2: from entry 8"},
        {Received("12 00 0E 02 00 18 01 02 00 02 41 31 32 01 44"),
         "<- EVENT_OUTGOING_CALL #1: key 2, reason DIRECT (0), called \"12\" internal no operator prefix name \"D\""},
        {"TAPI_OMNA MSG: 00.0A.03.00.1F.01.01.02.00.03.",
         "<- KEY_SPE_ACK #1: 1 supervision, 2 boss, 0 secretary, 3 secretary overflow keys"},
        {"TAPI_OMNA MSG: 00.0C.03.00.0D.01.02.00.01.41.09.00.", "<- STRING_INFO_ACK #1: HangUp \"A\", number 9 \"\""},
        {"TAPI_OMNA MSG: 00.13.02.00.03.01.00.02.01.37.03.00.01.02.09.38.39.02.28.",
         "<- DEVICE_ASSOC_ACK #1: version 2, set \"7\", English, type 3 (KB2), multi mode 0, forwarded on busy to "
         "\"89\", "
         "module 2 with keys above 40"},
        {"Unknown TAPI-OMNA msg received: 00.07.02.00.63.01.AB.", "<- TAPI_OMNA message of class 0 code 99 #1: AB"},
        {"TAPI_OMNA MSG: KEY_ACK", ""},
        {"LinEv cref=3, ev:2,val4000,mod=1", "=> LINE_CALLSTATE DISCONNECTED, call 3"},
        {"LinEv cref=-1, ev:8,val44,mod=0", "=> LINE_LINEDEVSTATE CONNECTED INSERVICE"},
    };
    for (const Case& one : cases)
        EXPECT_EQ(Reader().Word(one.text), one.words) << one.text;
}

TEST(TraceReader, PutsLongMessagesTogetherAndSaysThemOnce) {
    Bytes message = Equipment::BuildOmna({3, 0, 9, 1, *Equipment::ParseHex("04")});
    for (std::uint8_t key = 1; key <= 4; ++key)
        for (const int byte : {int{key}, 10, 0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0})
            message.push_back(static_cast<std::uint8_t>(byte));
    message[1] = static_cast<std::uint8_t>(message.size());
    const std::string whole = "<- KEY_INFO_ACK #1: key 1 \"0123456789\", key 2 \"0123456789\", key 3 \"0123456789\", "
                              "key 4 \"0123456789\"";
    Texts frames;
    for (const Bytes& item : Equipment::OmnaItems(message))
        frames.push_back(Received(Equipment::Hex(item)));
    const std::string dump = "TAPI_OMNA MSG: " + DumpOf(message);  // it has no room for all of them

    Reader reader;
    EXPECT_THAT(reader.Words(frames),
                ElementsAre("<- long message begins, 3 to follow", "<- long message goes on, 2 to follow",
                            "<- long message goes on, 1 to follow", "<- long message goes on, complete", whole));
    EXPECT_THAT(reader.Words({dump}), IsEmpty());
    // Where the frames are not shown, the message is; and whole, for they were read.
    reader.report.filter.mask = 0x20;
    reader.Words(frames);
    EXPECT_THAT(reader.Words({dump}), ElementsAre(whole));
    EXPECT_EQ(Reader().Word(dump), "<- KEY_INFO_ACK #1: key 1 \"0123456789\", key 2 \"0123456789\", key 3 "
                                   "\"0123456789\", key 4 \"0\" ... (cut in the trace)");
    EXPECT_EQ(Reader().Word(frames[1]), "<- long message goes on, 2 to follow (not the one that was expected)");
}

TEST(TraceReader, SaysWhenADumpWasCutAndReadsNoFurther) {
    const std::string display =
        "2C 61 28 00 00 41 41 41 41 41 41 41 41 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 "
        "20 20 20 20 20 20 20 20 20 20 20 20 20 20 20";
    const std::string super = Received("6E 03 62 20 01 05 61 47 01 20 20 " + display);
    EXPECT_EQ(Reader().Word(super), "<- set: key 1 pressed | <- PBX to set: icon of key 1: ACTIVE (2020) | <- PBX to "
                                    "set: soft keys: 1 \"AAAAAAAA\" ... (cut in the trace)");
    // 49 bytes are a whole frame when their sum says so, unless the line before says that more came.
    const std::string fits = "6E 03 62 20 01 2A 61 27 00 00" + display.substr(14, 26 * 3);
    std::string item = fits;
    while (FrameOf(item).size() < DumpLimit + 1)
        item += " 41";
    Reader reader;
    EXPECT_EQ(reader.Word(Received(item)).find("cut"), std::string::npos);
    reader.Word("Tronquage chaine");
    EXPECT_NE(reader.Word(Received(item)).find("cut in the trace"), std::string::npos);
    EXPECT_EQ(reader.Word(Received(item)).find("cut"), std::string::npos);
    EXPECT_NE(Reader().Word(Sent("6E 03 26 20 05 " + display + " 03 26 20 06")).find("cut"), std::string::npos);
}

TEST(TraceReader, TakesNothingForADumpThatIsNone) {
    const std::string none = "<- (no dump: not two digits and a period for each byte)";
    for (const char* text : {"ProcessInput()", "ProcessInput(6)", "ProcessInput(60.00.9E.", "ProcessInput(60.0g.9E.)",
                             "ProcessInput(60 00 9E )", "TAPI_OMNA MSG: 00.0"})
        EXPECT_EQ(Reader().Word(text), none) << text;
    EXPECT_EQ(Reader().Word("ProcessInput(60.00.9F.)"), "<- (no whole frame: its checksum does not fit)");
    EXPECT_EQ(Reader().Word("SendL2Msg(02.60.00.)"), "-> (no whole frame: its length or checksum does not fit)");
    EXPECT_EQ(Reader().Word("TAPI_OMNA MSG: 00.07.02."), "<- (no whole message: its length does not fit)");
    EXPECT_EQ(Reader().Word("ProcessInput(60.00.9E.)x"), none);

    // Whatever the bytes of a frame are, and wherever it ends.
    for (const char* item : {"61 0B 05 47 01 20 20 FF 02 03 02 04",
                             "6F 02 60 00 09 6E 03 26 20 05 03 26 03 01",
                             "63",
                             "64 01",
                             "61 02",
                             "6F",
                             "6F FF",
                             "6F 02 60",
                             "0C",
                             "0C 80",
                             "0C 81 00 03 12 00",
                             "12 00 06",
                             "26 04",
                             "60",
                             "12 00 0C 02 00 17 01 02 00 FF 82",
                             "6E 00 00 01",
                             "61 0B 00 00",
                             "62",
                             "26",
                             "61 27"}) {
        const Bytes bytes = *Equipment::ParseHex(item);
        for (std::size_t end = 1; end <= bytes.size(); ++end) {
            const std::string part = Equipment::Hex(ByteSpan(bytes).first(end));
            EXPECT_FALSE(Reader().Word(Received(part)).empty()) << part;
            EXPECT_FALSE(Reader().Word(Sent(part)).empty()) << part;
        }
    }
}

TEST(TraceReader, ShowsLinesInUtf8WithTheTimeOfDay) {
    Reader reader;
    for (const char* raw :
         {"7 before its header", "4294966296 TSP CORVANE 6200 DebugFile - date: 31/12/25 - 23:59:58\r",
          "4294967295 Icone \xE9teint \x80", "1500 over both wraps", "no clock", "17", ""})
        reader.report.Take(raw);
    EXPECT_THAT(reader.printed,
                ElementsAre("7 before its header",
                            "23:59:58.000 4294966296 TSP CORVANE 6200 DebugFile - date: 31/12/25 - 23:59:58",
                            "23:59:58.999 4294967295 Icone éteint €", "00:00:00.500 1500 over both wraps", "no clock",
                            "17", ""));
}

TEST(TraceReader, KnowsTheLevelsThatTheSourcesWriteAt) {
    const struct {
        const char* text;
        unsigned levels;
    } cases[] = {
        {"ProcessInput(60.00.9E.)", 4},                     // through the dump's own procedure
        {"RX: Config Response ", 1},                        // level and text in a table
        {"TAPI_OMNA MSG: KEY_INFO_ACK", 0x20},              // the text in a table
        {"Icone:1 - Etat:PROCEEDING - Ref:0 cas 2", 0x10},  // one of two
        {"RX: Wrong CheckSum (NACK)", LevelAlways},         // its line feed ends the line
        {"Langue PABX différente", 0x40},                   // not ASCII
        {"Superv     TouchId:05 - :48%s00", 0x60},          // a table of a header, for two levels
        {"TSP CORVANE 6200 DebugFile - date: 01/02/26 - 12:00:00", LevelAlways},
        {"a text of a later version", 0},
    };
    for (const auto& one : cases)
        EXPECT_EQ(LookUp(one.text).levels, one.levels) << one.text;
    EXPECT_EQ(ReadMask("input,call"), 20u);
    EXPECT_EQ(ReadMask("0x14,omna"), 0x34u);
    for (const char* bad : {"", "inputs", "call,", "-1", "128", "4x"})
        EXPECT_EQ(ReadMask(bad), std::nullopt) << bad;
}

TEST(TraceReader, FiltersByLevelCallAndKey) {
    const Texts texts = {"100 SerialStartTimer",
                         "101 " + Received("61 47 05 20 20"),
                         "102 Icone:5 - Etat:IDLE - Ref:17",
                         "103 NewState tou:2 - Etat:CONNECTED - Ref:0011",
                         "104 text of a later version",
                         "and its second line",
                         "105 CallsStat cref 0017 state 100"};
    const auto shown = [&](const Filter& filter) {
        Reader reader;
        reader.report.filter = filter;
        std::string stamps;
        reader.report.print = [&](const std::string& line) { stamps += line[0] == ' ' ? "" : line.substr(0, 3) + " "; };
        for (const std::string& text : texts)
            reader.report.Take(text);
        return stamps;
    };
    EXPECT_EQ(shown({}), "100 101 102 103 104 and 105 ");
    EXPECT_EQ(shown({0u, {}, {}}), "100 104 and ");
    EXPECT_EQ(shown({4u, {}, {}}), "100 101 104 and ");
    EXPECT_EQ(shown({{}, 17, {}}), "102 103 105 ");  // the second in hexadecimal
    EXPECT_EQ(shown({{}, {}, 5}), "101 102 ");
    EXPECT_EQ(shown({{}, 17, 5}), "101 102 103 105 ");
    EXPECT_EQ(shown({16u, {}, 5}), "102 ");
}

// --- files

struct TraceFiles : testing::Test {
    Path folder = std::filesystem::temp_directory_path() / ("zttrace_test." + std::to_string(getpid()));
    Path zero = folder / "tsptrac0.tr", one = folder / "tsptrac1.tr";
    TraceFiles() { std::filesystem::create_directories(folder); }
    ~TraceFiles() override { std::filesystem::remove_all(folder); }

    static void Write(const Path& path, const std::string& text, bool anew = false) {
        std::ofstream(path, anew ? std::ios::trunc : std::ios::app) << text;
    }
};

TEST_F(TraceFiles, OlderOnesComeFirst) {
    const Path old = folder / "tsptrac1.old";
    Write(old, "9000 x\n");
    Write(zero, "200 second\n");
    Write(one, "4294967290 first, before the clock's wrap\n");
    EXPECT_THAT(InOrder({folder}), ElementsAre(old, one, zero));
    EXPECT_THAT(InOrder({zero, one, old}), ElementsAre(old, one, zero));
    EXPECT_THAT(InOrder({folder / "b.txt", zero, old}), ElementsAre(old, folder / "b.txt", zero));
}

TEST_F(TraceFiles, FollowsTheProviderFromFileToFile) {
    Texts lines;
    const auto take = [&](const std::string& line) { lines.push_back(line); };
    const auto news = [&](Follower& follower) {
        lines.clear();
        EXPECT_TRUE(follower.Poll(take));
        return lines;
    };
    Follower nothing(folder / "other.tr");
    EXPECT_FALSE(nothing.Poll(take));

    Write(zero, "1 a\n2 b\n3 ha");
    Follower follower(zero);
    EXPECT_THAT(news(follower), ElementsAre("1 a", "2 b"));
    EXPECT_THAT(news(follower), IsEmpty());
    Write(zero, "lf\n");
    EXPECT_THAT(news(follower), ElementsAre("3 half"));
    // Into the other file, and back into the emptied first one, with lines on both sides of the change each time.
    Write(zero, "4 c\n");
    Write(one, "5 d\n");
    EXPECT_THAT(news(follower), ElementsAre("4 c", "5 d"));
    Write(one, "6 e\n");
    Write(zero, "7 longer than all that was there before\n", true);
    EXPECT_THAT(news(follower), ElementsAre("6 e", "7 longer than all that was there before"));
    Write(zero, "8 f\n");
    EXPECT_THAT(news(follower), ElementsAre("8 f"));
    // The provider starts again.
    std::filesystem::rename(zero, folder / "tsptrac0.old");
    std::filesystem::rename(one, folder / "tsptrac1.old");
    Write(zero, "9 g\n");
    EXPECT_THAT(news(follower), ElementsAre("9 g"));
}

// --- back to the equipment

TEST(TraceReplay, TheEquipmentSendsTheSameBytesAtTheSameTimes) {
    const std::string cut = "6E 03 62 20 01 05 61 47 01 20 20 30" + [] {
        std::string rest;
        for (int i = 0; i < 0x30; ++i)
            rest += " 61";
        return rest;
    }();
    const struct {
        std::uint32_t clock;
        std::string text;
    } lines[] = {{4294967000, "Serial"},
                 {4294967200, Sent("60 85", "SendL2Msg")},
                 {4, Received("60 01")},  // 100 ms later, over the wrap
                 {4, Received("61 47 01 00 28")},
                 {30, "ProcessInput(60.00.00.)"},
                 {54, Received(cut)},
                 {60, "TAPI_OMNA MSG: 00.06.02.00.07.01."},
                 {7'200'054, Received("62 20 01")}};
    Reader reader;
    Replay replay;
    reader.report.onDump = [&](const Line& line, const Dump& dump) { replay.Take(line, dump); };
    for (const auto& line : lines)
        reader.report.Take(std::to_string(line.clock) + " " + line.text);
    EXPECT_EQ(replay.frames, 4);
    EXPECT_EQ(replay.leftOut, 1);

    Equipment::Machine machine;
    machine.pacing.bitsPerSecond = 0;
    Equipment::Script script;
    LineCutter cutter;
    cutter.take = [&](const std::string& line) { script.lines.push_back(line); };
    cutter.Push(replay.script);
    std::uint32_t now = 5000;
    EXPECT_EQ(script.Step(machine, now), "");
    EXPECT_EQ(machine.Available(now), 0u);  // nobody is there yet
    machine.Receive(FrameOf("60 85"), now);
    machine.Receive(FrameOf("60 01"), now);
    Texts sent;
    for (const std::uint32_t start = now;;) {
        EXPECT_EQ(script.Step(machine, now), "");
        Bytes bytes(machine.Available(now));
        bytes.resize(machine.Read(bytes, now));
        if (!bytes.empty())
            sent.push_back(std::to_string(now - start) + ": " + Equipment::Hex(bytes));
        if (script.lines.empty())
            break;
        now += script.NextDue(now);
    }
    EXPECT_THAT(sent, ElementsAre("100: 02 60 01 9D 05 61 47 01 00 28 2A",
                                  "150: " + Equipment::Hex(FrameOf("6E 03 62 20 01 05 61 47 01 20 20")),
                                  "7200150: 03 62 20 01 7A"));
}

}  // namespace
