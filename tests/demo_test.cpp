// What the demo's screen is made of: texts in columns, the line being typed, and what an application knows of its calls.
#include "demo/application.h"
#include "demo/editor.h"
#include "demo/text.h"

using namespace Demo;
using testing::ElementsAre;

TEST(DemoText, LinesBreakAtBlanksAndNeverInsideACharacter) {
    EXPECT_THAT(Wrapped("LINE_CALLSTATE call 0 CONNECTED", 22), ElementsAre("LINE_CALLSTATE call 0", "  CONNECTED"));
    EXPECT_THAT(Wrapped("LINE_CALLSTATE call 0 CONNECTED", 21), ElementsAre("LINE_CALLSTATE call 0", "  CONNECTED"));
    EXPECT_THAT(Wrapped("ééééééé", 4), ElementsAre("éééé", "  éé", "  é"));
    EXPECT_THAT(Wrapped("    abc", 3), ElementsAre("   ", "   ", "  a", "  b", "  c"));  // ends, however narrow
    EXPECT_EQ(Padded("DUPRÉ", 7), "DUPRÉ  ");
    EXPECT_EQ(Start("ÉDUPR", 1), "É");
}

static void Type(Editor& editor, const std::u32string& text) {
    for (const char32_t c : text)
        editor.Insert(c);
}

TEST(DemoEditor, EditsWhereTheCursorIs) {
    Editor editor;
    Type(editor, U"drop cal é");
    editor.Backspace();
    editor.EraseWord();
    editor.Home();
    editor.Right();
    editor.Delete();
    Type(editor, U"É€");
    EXPECT_EQ(editor.Shown(80).text, "dÉ€op ");
    EXPECT_EQ(editor.Shown(3).text, "É€o") << "the part with the cursor";
    EXPECT_EQ(editor.Shown(3).cursor, 2u);
    editor.EraseBehind();
    editor.Left();
    editor.EraseBefore();
    EXPECT_EQ(editor.Take(), "€");
    EXPECT_TRUE(editor.Empty());
    for (const auto edge : {&Editor::Backspace, &Editor::Delete, &Editor::Left, &Editor::Right, &Editor::Newer}) {
        (editor.*edge)();
        EXPECT_TRUE(editor.Empty()) << "nothing there, nothing done";
    }
}

TEST(DemoApplication, KnowsOfLineAndCallsWhatTheConsoleSays) {
    Application application;
    std::vector<std::string> sent, lane, notices;
    application.send = [&](const std::string& line) { sent.push_back(line); };
    application.tell = [&](const std::string& kind, const std::string& text) { lane.push_back(kind + ": " + text); };
    application.notice = [&](const std::string& text) { notices.push_back(text); };
    const auto take = [&](std::initializer_list<const char*> lines) {
        for (const char* line : lines)
            application.Take(line);
    };
    const Web::ApplicationState& state = application.State();
    application.Start();
    EXPECT_EQ(state.line, "opening");
    take({"TSPI_lineOpen: 0", "LINE_LINEDEVSTATE CONNECTED|INSERVICE", "-- done --", "LINE_NEWCALL call 2",
          "LINE_CALLSTATE call 2 OFFERING"});
    EXPECT_EQ(state.line, "in service");
    sent.clear();
    application.Look();
    application.Look();  // not again before it is answered
    EXPECT_THAT(sent, ElementsAre("callstatus 2", "echo -- done --", "callinfo 2", "echo -- done --", "addressstatus",
                                  "echo -- done --"));
    // Events come between the lines of an answer; a text may hold quotation marks.
    take({"TSPI_lineGetCallStatus: 0", "  dwCallFeatures              ANSWER|DROP", "LINE_CALLSTATE call 1 DIALTONE",
          "-- done --", "TSPI_lineGetCallInfo: 0", "  dwOrigin                    INTERNAL",
          "  dwCallerIDOffset            \"4722\" (10 bytes at 324)",
          "  dwCallerIDNameOffset        \"Zoé \"X\"\" (16 bytes at 334)", "-- done --",
          "  dwAddressFeatures           0", "    ForwardList[0]            UNCOND to \"4799\" (10 bytes at 64)",
          "-- done --"});
    ASSERT_EQ(state.calls.size(), 2u);
    EXPECT_EQ(state.calls[0].state, "DIALTONE");
    EXPECT_THAT(state.calls[1].features, ElementsAre("ANSWER", "DROP"));
    EXPECT_EQ(state.calls[1].caller.number + state.calls[1].caller.name, "4722Zoé \"X\"");
    EXPECT_THAT(state.addressFeatures, testing::IsEmpty());
    EXPECT_THAT(state.forwards, ElementsAre("UNCOND to 4799"));
    // What is refused is said; what an application does not ask for, or would end a word early, is not even asked.
    sent.clear();
    EXPECT_EQ(application.Ask({"makecall", "47 50"}), "");
    EXPECT_THAT(sent, ElementsAre("makecall \"47 50\"", "echo -- done --"));
    EXPECT_NE(application.Ask({"quit"}), "");
    EXPECT_NE(application.Ask({"makecall", "4750\" quit"}), "");
    EXPECT_EQ(sent.size(), 2u);
    take({"TSPI_lineMakeCall: LINEERR_INVALCALLPARAMS (0x80000019)", "-- done --", "LINE_CALLSTATE call 1 IDLE",
          "completion of request 3: LINEERR_OPERATIONFAILED (0x80000048)", "LINE_CLOSE",
          "[box] Corvane 6200 SP Error: Hardware Problem"});
    EXPECT_EQ(notices.size(), 3u);
    EXPECT_THAT(lane, testing::Contains("answer: TSPI_lineMakeCall: LINEERR_INVALCALLPARAMS (0x80000019)"));
    EXPECT_THAT(state.calls, testing::IsEmpty());
    EXPECT_EQ(state.line, "closed by the provider");
}
