#include "equipment/script.h"
#include "platform/control.h"
#include "support/service.h"
#include "zttrace/events.h"
#include "zttrace/files.h"
#include "zttrace/replay.h"
#include "zttrace/report.h"
#include "zttrace/texts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace {

using namespace TraceReader;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
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
std::string Times(int count, const char* byte) {
    std::string bytes;
    while (count-- > 0)
        bytes += byte;
    return bytes;
}

// What a report prints of these texts, a second of the clock each; the texts themselves left out.
struct Reader {
    Report report;
    Texts printed;
    Reader() {
        report.print = [this](const std::string& line) { printed.push_back(line); };
    }
    std::string Words(const Texts& texts) {
        std::string words;
        for (const std::string& text : texts) {
            printed.clear();
            report.Take("1000 " + text + "\r");
            for (std::size_t i = 1; i < printed.size(); ++i)
                words += (words.empty() ? "" : " | ") + printed[i].substr(printed[i].find_first_not_of(' '));
        }
        return words;
    }
};

// What docs/protocol.md gives no example of.
TEST(TraceReader, SaysFramesAndMessagesInWords) {
    const std::pair<std::string, const char*> cases[] = {
        // link control means something else from each side
        {Sent("60 85", "SendL2Msg"), "-> resynchronisation"},
        {Received("60 85"), "<- NACK: loss of synchro"},
        // the set
        {Received("61 47 05 03 13"), "<- PBX to set: icon of key 5: RESERVED (1303)"},
        {Received("61 C7 05 20 A0"), "<- PBX to set: icon of key 5: INCOMING (A020)"},
        {Received("61 27 81 05 41"), "<- PBX to set: display line 0 \"A\" at column 5, the rest stays, more follows"},
        {Received("61 28 00 00 32 65 41 70 70 20 20 20 20 20 20 20 20 20 20 20 43 6F 6E 66"),
         "<- PBX to set: soft keys: 1 \"2eApp\", 3 \"Conf\""},
        {Received("61 21 03 07"), "<- PBX to set: lamp 7: FLASH"},
        {Received("61 02 0A 47 03 28 28"), "<- PBX to module 2: icon of key 3 of its own: HOLD (2828)"},
        {Received("61 0B 02 3E 01 09 21 00"),
         "<- PBX to set: ring 1 | <- PBX to set: Super Message ... (ends too early)"},
        {Received("64 02 20 03"), "<- module 2: key 3 of its own pressed"},
        // presses of the provider
        {Sent("6E 03 26 20 05 03 26 03 0A"), "-> press key 5 | -> press digit *"},
        {Sent("6F 02 60 00 03 26 20 1D"), "-> ACK | -> press soft key 1"},
        // TAPI_OMNA
        {"TAPI_OMNA MSG: 00.15.02.00.17.05.02.01.04.82.31.32.33.34.01.C9.02.41.37.31.00.",
         "<- EVENT_INCOMING_CHANGE #5: key 2, reason FWDBUSY (1), caller \"1234\" external without prefix name \"É\", "
         "called \"71\" internal no operator prefix"},
        {"TAPI_OMNA MSG: 00.0C.03.00.0D.01.02.00.01.41.09.00.", "<- STRING_INFO_ACK #1: HangUp \"A\", number 9 \"\""},
        {"TAPI_OMNA MSG: 00.13.02.00.03.01.00.02.01.37.03.00.01.02.09.38.39.02.28.",
         "<- DEVICE_ASSOC_ACK #1: version 2, set \"7\", English, type 3 (KB2), multi mode 0, forwarded on busy to "
         "\"89\", module 2 with keys above 40"},
        {"Unknown TAPI-OMNA msg received: 00.07.02.00.63.01.AB.", "<- TAPI_OMNA message of class 0 code 99 #1: AB"},
        {"TAPI_OMNA MSG: KEY_ACK", ""},
        {"LinEv cref=3, ev:2,val4000,mod=1", "=> LINE_CALLSTATE DISCONNECTED, call 3"},
        {"LinEv cref=-1, ev:8,val44,mod=0", "=> LINE_LINEDEVSTATE CONNECTED INSERVICE"},
    };
    for (const auto& [text, words] : cases)
        EXPECT_EQ(Reader().Words({text}), words) << text;
}

TEST(TraceReader, PutsLongMessagesTogetherAndSaysThemOnce) {
    std::string payload = "04";
    for (const char* key : {"01", "02", "03", "04"})
        payload += std::string(" ") + key + " 0A 30 31 32 33 34 35 36 37 38 39 00";
    const Bytes message = Equipment::BuildOmna({3, 0, 9, 1, *Equipment::ParseHex(payload)});
    const std::string most = "<- KEY_INFO_ACK #1: key 1 \"0123456789\", key 2 \"0123456789\", key 3 \"0123456789\", ";
    const std::string whole = most + "key 4 \"0123456789\"";
    Texts frames;
    for (const Bytes& item : Equipment::OmnaItems(message))
        frames.push_back(Received(Equipment::Hex(item)));
    const std::string dump = "TAPI_OMNA MSG: " + DumpOf(message);  // it has no room for all of them

    Reader reader;
    EXPECT_EQ(reader.Words(frames), "<- long message begins, 3 to follow | <- long message goes on, 2 to follow | "
                                    "<- long message goes on, 1 to follow | <- long message goes on, complete | " +
                                        whole);
    EXPECT_EQ(reader.Words({dump}), "");
    // Where the frames are not shown, the message is; and whole, for they were read.
    reader.report.filter.mask = 0x20;
    reader.Words(frames);
    EXPECT_EQ(reader.Words({dump}), whole);
    EXPECT_EQ(Reader().Words({dump}), most + "key 4 \"0\" ... (cut in the trace)");
    EXPECT_EQ(Reader().Words({frames[1]}), "<- long message goes on, 2 to follow (not the one that was expected)");
}

TEST(TraceReader, SaysWhenADumpWasCutAndReadsNoFurther) {
    const std::string super =
        Received("6E 03 62 20 01 05 61 47 01 20 20 2C 61 28 00 00" + Times(8, " 41") + Times(32, " 20"));
    EXPECT_EQ(Reader().Words({super}),
              "<- set: key 1 pressed | <- PBX to set: icon of key 1: ACTIVE (2020) | <- PBX to "
              "set: soft keys: 1 \"AAAAAAAA\" ... (cut in the trace)");
    // 49 bytes are a whole frame when their sum says so, unless the line before says that more came.
    const std::string fits = Received("61 27 00 00" + Times(static_cast<int>(DumpLimit) - 5, " 41"));
    Reader reader;
    EXPECT_THAT(reader.Words({fits}), Not(HasSubstr("cut")));
    reader.Words({"Tronquage chaine"});
    EXPECT_THAT(reader.Words({fits}), HasSubstr("cut in the trace"));
    EXPECT_THAT(reader.Words({fits}), Not(HasSubstr("cut")));
    EXPECT_THAT(Reader().Words({Sent("6E 03 26 20 05 2C 61 28 00 00" + Times(40, " 20"))}), HasSubstr("cut"));
}

TEST(TraceReader, TakesNothingForADumpThatIsNone) {
    const std::string none = "<- (no dump: not two digits and a period for each byte)";
    for (const char* text : {"ProcessInput()", "ProcessInput(6)", "ProcessInput(60.00.9E.", "ProcessInput(60.0g.9E.)",
                             "ProcessInput(60.00.9E.)x", "TAPI_OMNA MSG: 00.0"})
        EXPECT_EQ(Reader().Words({text}), none) << text;
    EXPECT_EQ(Reader().Words({"ProcessInput(60.00.9F.)"}), "<- (no whole frame: its checksum does not fit)");
    EXPECT_EQ(Reader().Words({"SendL2Msg(02.60.00.)"}), "-> (no whole frame: its length or checksum does not fit)");
    EXPECT_EQ(Reader().Words({"TAPI_OMNA MSG: 00.07.02."}), "<- (no whole message: its length does not fit)");
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
    const std::pair<const char*, unsigned> cases[] = {
        {"ProcessInput(60.00.9E.)", 4},                     // through the dump's own procedure
        {"Icone:1 - Etat:PROCEEDING - Ref:0 cas 2", 0x10},  // one of two
        {"RX: Wrong CheckSum (NACK)", LevelAlways},         // its line feed ends the line
        {"Langue PABX différente", 0x40},                   // not ASCII
        {"Superv     TouchId:05 - :48%s00", 0x60},          // a table of a header, for two levels
        {"a text of a later version", 0},
    };
    for (const auto& [text, levels] : cases)
        EXPECT_EQ(LookUp(text).levels, levels) << text;
    EXPECT_EQ(ReadMask("0x14,omna"), 0x34u);
    for (const char* bad : {"", "inputs", "call,", "-1", "128", "4x"})
        EXPECT_EQ(ReadMask(bad), std::nullopt) << bad;
}

TEST(TraceReader, FiltersByLevelCallAndKey) {
    const Texts texts = {"100 SerialStartTimer",
                         "101 " + Received("61 47 05 20 20"),
                         "102 Icone:5 - Etat:IDLE - Ref:17",
                         "103 NewState tou:2 - Etat:CONNECTED - Ref:0011",  // hexadecimal
                         "104 text of a later version",
                         "and its second line",
                         "105 CallsStat cref 0017 state 100"};
    const std::pair<Filter, const char*> cases[] = {
        {{0u, {}, {}}, "100 104 and "}, {{4u, {}, {}}, "100 101 104 and "}, {{{}, 17, {}}, "102 103 105 "},
        {{{}, {}, 5}, "101 102 "},      {{{}, 17, 5}, "101 102 103 105 "},  {{16u, {}, 5}, "102 "}};
    for (const auto& [filter, shown] : cases) {
        Report report;
        report.filter = filter;
        std::string stamps;
        report.print = [&](const std::string& line) { stamps += line[0] == ' ' ? "" : line.substr(0, 3) + " "; };
        for (const std::string& text : texts)
            report.Take(text);
        EXPECT_EQ(stamps, shown);
    }
}

// --- files

struct TraceFiles : testing::Test {
    Path folder = OwnFolder();
    Path zero = folder / "tsptrac0.tr", one = folder / "tsptrac1.tr", old = folder / "tsptrac1.old";

    static Path OwnFolder() {
        PlatformControl::Reset();
        return PlatformControl::Root();
    }
    static void Write(const Path& path, const std::string& text, bool anew = false) {
        std::ofstream(path, std::ios::binary | (anew ? std::ios::trunc : std::ios::app)) << text;
    }
};

TEST_F(TraceFiles, OlderOnesComeFirst) {
    Write(old, "9000 x\n");
    Write(zero, "200 second\n");
    Write(one, "4294967290 first, before the clock's wrap\n");
    EXPECT_THAT(InOrder({folder}), ElementsAre(old, one, zero));
    EXPECT_THAT(InOrder({folder / "b.txt", zero, old}), ElementsAre(old, folder / "b.txt", zero));
}

TEST_F(TraceFiles, FollowsTheProviderFromFileToFile) {
    Write(zero, "1 a\n2 b\n3 ha");
    Follower follower(zero);
    const auto news = [&] {
        std::string lines;
        EXPECT_TRUE(follower.Poll([&](const std::string& line) { lines += line + ";"; }));
        return lines;
    };
    EXPECT_EQ(news(), "1 a;2 b;");
    EXPECT_EQ(news(), "");
    Write(zero, "lf\n");
    EXPECT_EQ(news(), "3 half;");
    // Into the other file, and back into the emptied first one, with lines on both sides of the change each time.
    Write(zero, "4 c\n");
    Write(one, "5 d\n");
    EXPECT_EQ(news(), "4 c;5 d;");
    Write(one, "6 e\n");
    Write(zero, "7 longer than all that was there before\n", true);
    EXPECT_EQ(news(), "6 e;7 longer than all that was there before;");
    // The provider starts again.
    std::filesystem::rename(zero, folder / "tsptrac0.old");
    std::filesystem::rename(one, old);
    Write(zero, "9 g\n");
    EXPECT_EQ(news(), "9 g;");
    EXPECT_FALSE(Follower(folder / "other.tr").Poll([](const std::string&) {}));
}

// --- back to the equipment

TEST(TraceReplay, TheScriptSendsTheSameBytesAtTheSameTimes) {
    const std::pair<const char*, std::string> lines[] = {
        {"4294967000 ", "Serial"},
        {"4294967200 ", Sent("60 85", "SendL2Msg")},
        {"4 ", Received("60 01")},  // 100 ms later, over the wrap
        {"4 ", Received("61 47 01 00 28")},
        {"30 ", "ProcessInput(60.00.00.)"},
        {"54 ", Received("6E 03 62 20 01 05 61 47 01 20 20 30" + Times(0x30, " 61"))},  // cut
        {"60 ", "TAPI_OMNA MSG: 00.06.02.00.07.01."},
        {"7200054 ", Received("62 20 01")}};
    Report report;
    Replay replay;
    report.onDump = [&](const Line& line, const Dump& dump) { replay.Take(line, dump); };
    for (const auto& [clock, text] : lines)
        report.Take(clock + text);
    EXPECT_EQ(replay.frames, 4);
    EXPECT_EQ(replay.leftOut, 1);

    EXPECT_EQ(replay.script.substr(replay.script.find("ignore")),
              "ignore 100000\nwait provider\nwait 100\nsend 60 01\nsend 61 47 01 00 28\n"
              "# 54: cut in the trace, the first 2 messages of it\nwait 50\n"
              "send 6E 03 62 20 01 05 61 47 01 20 20\nwait 3600000\nwait 3600000\nsend 62 20 01\n");
}

// The equipment that plays a script on the provider's line.
struct PlayingPort : EquipmentPort {
    Equipment::Script Script;
    std::size_t Available(std::uint32_t now) override {
        EXPECT_EQ(Script.Step(Machine, now), "");
        return EquipmentPort::Available(now);
    }
};

class ReplayedTrace : public Service {
protected:
    // From the open to the close, all that TAPI is told.
    template <class Happenings> std::vector<std::string> Life(Happenings happenings) {
        EXPECT_EQ(OpenLine(), 0);
        happenings();
        std::vector<std::string> events = Events();
        CloseLine();
        return events;
    }
};

// What a user of ours sent in is told again by the real provider.
TEST_F(ReplayedTrace, TellsTheEventsAgain) {
    Machine.config.destinations["4750"] = {Equipment::FarEnd::Answers, 300, ""};
    const std::vector<std::string> told = Life([this] {
        for (const char* action :
             {"wait 5000", "wait 5000", "wait 5000", "incoming 1 4722", "answer 1", "hold 1", "retrieve 1",
              "second-call", "dial 4750", "swap", "transfer", "wait 5000", "seize 1", "dial 4750", "hangup 1",
              "incoming 2 4723 \"DUPONT\"", "caller-hangs-up 2", "forward 0 4799", "contact"}) {
            Machine.SetNow(PlatformControl::Now());
            EXPECT_EQ(Equipment::Execute(Machine, action, PlatformControl::Now()), "") << action;
            Advance(5000);
        }
    });
    Report report;
    Replay replay;
    report.onDump = [&](const TraceReader::Line& line, const Dump& dump) { replay.Take(line, dump); };
    std::istringstream trace(FileText("C:\\WINDOWS\\spitrace\\tsptrac0.tr"));
    for (std::string line; std::getline(trace, line);)
        report.Take(line);

    TearDown();
    PlayingPort playing;
    SetUp();
    PlatformControl::MapPort("COM1", &playing);
    std::istringstream script(replay.script);
    for (std::string line; std::getline(script, line);)
        playing.Script.Add(line);
    EXPECT_EQ(Life([&] {
                  for (int second = 0; second < 200 && !playing.Script.lines.empty(); ++second)
                      Advance(1000);
                  EXPECT_TRUE(playing.Script.lines.empty());
                  Advance(5000);
              }),
              told);
    EXPECT_GT(told.size(), 30u);
    PlatformControl::MapPort("COM1", nullptr);
}

}  // namespace
