// A trace as a story: what went wrong, who said what to whom, the calls and the set's picture, and the page made of them.
#include "zttrace/html.h"
#include "zttrace/story.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace TraceReader;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Story Tell(const std::vector<std::string>& lines) {
    StoryTeller teller;
    for (const std::string& line : lines)
        teller.Take(line + "\r");
    return teller.Finish();
}

std::string Dump(const std::string& item, bool sent = false) {
    const Equipment::Bytes frame = Equipment::BuildFrame(*Equipment::ParseHex(item));
    std::string text;
    for (const std::uint8_t& byte : Equipment::ByteSpan(frame).subspan(sent ? 0 : 1))
        text += Equipment::Hex({&byte, 1}) + ".";
    return (sent ? "TxZTMsgFromFifo(" : "ProcessInput(") + text + ")";
}

const std::string Header = "1000 TSP CORVANE 6200 DebugFile - date: 25/11/26 - 09:30:00";

// "Application>Provider TSPI_lineAnswer"
std::vector<std::string> Steps(const Story& story) {
    static constexpr const char* names = "APCS";
    std::vector<std::string> texts;
    for (const StoryStep& step : story.steps)
        texts.push_back(std::string{names[static_cast<int>(step.from)], '>', names[static_cast<int>(step.to)], ' '} +
                        step.words);
    return texts;
}

TEST(TraceStory, ToldInWordsBetweenTheFourThatTakePart) {
    const Story story = Tell({
        Header,
        "1000 * OutputTraceMode:127 *",
        "2000 " + Dump("61 47 02 00 28"),
        "2000 DoLineEventNewCall send cref:0",
        "2010 LinEv cref=0, ev:2,val2,mod=0",
        "2500 Entering TSPI_lineAnswer(0,1,0,0)",
        "2500 appCall cref 0 msg 5 reqId 7",
        "2500 " + Dump("26 20 02", true),
        "2500 SendCompletion:7, res:0",
        "2600 " + Dump("62 20 1E"),
        "2700 " + Dump("12 00 0F 03 00 19 01 02 00 04 01 34 37 32 32 00"),
        "2700 CCI DoLineEvent (LINE_CALLINFO,NewCallInfo 20000, 0, cref:0000)",
        "2700 LinEv cref=0, ev:2,val100,mod=0",
        "2900 LinEv cref=0, ev:2,val1,mod=0",
    });
    EXPECT_THAT(Steps(story),
                ElementsAre("C>S PBX to set: icon of key 2: INCOMING (2800)", "P>A LINE_NEWCALL, call 0",
                            "P>A LINE_CALLSTATE OFFERING, call 0", "A>P TSPI_lineAnswer",
                            "A>P asks: answer, call 0 (request 7)", "P>C press key 2", "P>A request 7 done",
                            "S>C set: soft key 2 pressed",
                            "C>P EVENT_CONNECTED_CALL #1: key 2, reason DIRECT (0), connected \"4722\" internal",
                            "P>A LINE_CALLSTATE CONNECTED, call 0", "P>A LINE_CALLSTATE IDLE, call 0"));
    ASSERT_EQ(story.calls.size(), 1u);
    EXPECT_TRUE(story.calls[0].over);
    EXPECT_THAT(story.calls[0].parties, ElementsAre("reason DIRECT (0), connected \"4722\" internal"));
    EXPECT_THAT(story.troubles, IsEmpty());
    EXPECT_THAT(story.Missing(), IsEmpty());
    EXPECT_EQ(TimeText(story.lines.back()), "09:30:01.900");
}

TEST(TraceStory, WhatWentWrongIsCountedWithItsTimes) {
    const Story story = Tell({
        Header,
        "1000 * OutputTraceMode:18 *",
        "2000 " + Dump("26 20 05", true),
        "5000 " + Dump("26 20 05", true),
        "8000 " + Dump("26 20 05", true),
        "8000 Resend_Last_Msg(03.26.20.05.B2.)",
        "9000 V24 trouble hinst 400000",
        "9000 SendCompletion:9, res:80000048",
        "9500 LinEv cref=3, ev:2,val100,mod=0",
    });
    EXPECT_EQ(Summary(story),
              "provider started 25/11/26 - 09:30:00\n"
              "9 lines, 1 calls, 09:30:00.000 to 09:30:08.500\n"
              "not in this trace: what applications ask (level 1)\n"
              "not in this trace: what comes from the card, and the set's picture (level 4)\n"
              "what went wrong, or may have:\n"
              "  09:30:04.000  a frame was written again because nobody acknowledged it (2 times until "
              "09:30:07.000); look at: the card's power, the cable\n"
              "  09:30:07.000  a frame was written again because the card refused it\n"
              "  09:30:08.000  box: Hardware Problem; look at: the cable, the serial port, the card's "
              "power\n"
              "  09:30:08.000  request 9 failed: LINEERR_OPERATIONFAILED; look at: what the error means: "
              "docs/applications.md\n"
              "  09:30:08.500  call 3 has no end in the trace (CONNECTED); look at: it may still have been "
              "going on\n");
    // An acknowledgement between the two: the user pressed twice.
    EXPECT_THAT(Tell({"1 " + Dump("26 20 05", true), "2 " + Dump("60 00"), "3 " + Dump("26 20 05", true)}).troubles,
                IsEmpty());
}

TEST(TraceStory, TheSetAsItLooked) {
    const Story story = Tell({
        "1 " + Dump("12 00 11 03 00 03 01 00 01 02 34 37 03 00 04 02 28 00"),
        "2 " + Dump("12 00 0E 03 00 21 01 01 07 08 04 34 37 33 30"),
        "3 " + Dump("6E 06 61 28 00 00 41 42 04 61 28 01 09"), "4 " + Dump("6F 02 60 00 06 63 02 47 03 20 20"),
        "5 " + Dump("61 0B 03 21 01 04 03 21 07 00"),
        "6 " + Dump("61 02 05 47 01 00 28"),  // of a module that is not there
    });
    std::vector<std::string> changes;
    for (const SetChange& change : story.changes) {
        std::string text = change.text;
        text.erase(text.find_last_not_of(' ') + 1);
        changes.push_back(std::to_string(change.line) + " " + std::to_string(change.what) + " " +
                          std::to_string(change.number) + " " + std::to_string(change.value) + " " + text +
                          change.kind);
    }
    changes.resize(std::min<std::size_t>(changes.size(), 8));  // all lamps off: one change each
    EXPECT_THAT(changes, ElementsAre("0 6 0 0 47", "0 5 2 40 ", "1 4 7 0 4730boss", "2 1 0 0 AB", "2 1 0 0 AB",
                                     "3 2 43 8224 ", "4 3 4 1 ", "4 3 0 0 "));
}

TEST(TraceStory, TimeGoesOnOverStartsAndTheClocksEnd) {
    const Story story = Tell({"4294967290 one", "4 two", "TSP: a text with a line feed goes on", Header, "1500 three",
                              "500 TSP CORVANE 6200 DebugFile - date: 26/11/26 - 09:30:00", "501 four"});
    std::vector<std::int64_t> times;
    for (const auto& line : story.lines)
        times.push_back(line.ms);
    EXPECT_THAT(times, ElementsAre(0, 10, 10, 1006, 1506, 86'401'006, 86'401'007));
    EXPECT_EQ(TimeText(story.lines[1]), "+0.010 s");
    EXPECT_EQ(TimeText(story.lines[6]), "09:30:00.001");
}

TEST(TraceStory, NothingOfATraceBecomesMarkup) {
    std::ostringstream page;
    WriteHtml(page, Tell({"1 </script><img src=x onerror=alert(1)>\x01 \"\\ \xE9 &lt;"}), "<b>");
    const std::string html = page.str();
    EXPECT_THAT(html, Not(HasSubstr("<img")));
    EXPECT_THAT(html, HasSubstr("\"title\":\"\\u003cb\\u003e\""));
    EXPECT_THAT(html,
                HasSubstr("1 \\u003c/script\\u003e\\u003cimg src=x onerror=alert(1)\\u003e\\u0001 \\\"\\\\ \u00e9 "
                          "\\u0026lt;"));
    EXPECT_THAT(html, HasSubstr("class SetPicture"));
    EXPECT_THAT(html, Not(HasSubstr("\nimport ")));
    EXPECT_THAT(html, Not(HasSubstr("@DATA@")));
}

}  // namespace
