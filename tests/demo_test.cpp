// What the demo's screen is made of: texts in columns, and the line being typed.
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
