// Texts between the code page and UTF-16, as the product relies on them.
#include "platform/platform.h"

#include "platform/control.h"
#include "platform/text.h"
#include "support/fixture.h"

#include <string>

namespace {

struct Platform : testing::Test {
    void SetUp() override { PlatformControl::Reset(); }
};

TEST_F(Platform, AnsiCodePageIsWindows1252) {
    WCHAR wide[8] = {};
    char narrow[8] = {};
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, "\x80\x92\x9C\xE9", 4, wide, 8), 4)
        << "no terminator of its own";
    EXPECT_EQ(std::basic_string<WCHAR>(wide), "€’œé"_wide);
    for (int c = 1; c < 256; ++c) {
        const char text[] = {static_cast<char>(c), 0};
        ASSERT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, text, -1, wide, 8), 2);
        ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow, 8, nullptr, nullptr), 2);
        EXPECT_STREQ(narrow, text) << c;
    }
}

}  // namespace
