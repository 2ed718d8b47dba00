// The character patterns that the PBX loads into the set, and their two dumps.
#include "config/char_patterns.h"

#include "support/fixture.h"

#include <filesystem>
#include <fstream>

namespace {

using Patterns = OnTheLine;

constexpr const char* TABLE = "C:\\WINDOWS\\SYSTEM32\\zt_opt.fdb";
constexpr const char* CODES = "C:\\WINDOWS\\SYSTEM32\\zt_array.fdb";

bool TableThere() {
    return std::filesystem::exists(PlatformControl::PosixPath(TABLE));
}

std::array<std::uint8_t, 8> Pattern(int n) {
    return {1, 2, 3, 4, 5, 6, 1, static_cast<std::uint8_t>(n)};
}

TEST_F(Patterns, AreKeptOnceUntilTheTableIsFull) {
    RecordCharPattern({{0, 0, 0, 0, 0, 0, 0, 0}}, 5);
    RecordCharPattern({{0, 0, 0, 0, 0, 0, 0, 0}}, 7);
    EXPECT_EQ(CharPatternTable[0].code, 7);
    EXPECT_EQ(CharPatternTable[0].character, ' ');
    EXPECT_EQ(CharPatternTable[1].character, 0);
    for (int n = 2; n <= 100; ++n)
        RecordCharPattern(Pattern(n), 9);
    EXPECT_EQ(CharPatternTable[99].rows[7], 100);
    EXPECT_FALSE(std::filesystem::exists(PlatformControl::PosixPath(CODES))) << "only written over, never made";
    std::filesystem::remove(PlatformControl::PosixPath(TABLE));
    RecordCharPattern(Pattern(101), 9);
    EXPECT_FALSE(TableThere()) << "a full table ignores new patterns";
    RecordCharPattern(Pattern(50), 100);
    EXPECT_FALSE(TableThere()) << "no such character code";
    RecordCharPattern(Pattern(50), 99);
    EXPECT_TRUE(TableThere());
}

TEST_F(Patterns, DumpsHoldWhatMemoryHolds) {
    std::ofstream(PlatformControl::PosixPath(CODES)) << std::string(120, '-');
    RecordCharPattern(Pattern(2), 42);
    std::string record("\x01\x02\x03\x04\x05\x06\x01\x02 *", 10);
    EXPECT_EQ(FileText(TABLE), record + std::string(990, '\0'));
    EXPECT_EQ(FileText(CODES), std::string(100, ' ') + std::string(20, '-')) << "written over, not cut";
    CharPatternTable[0].character = 'A';
    RecordCharPattern(Pattern(2), 3);
    record.replace(8, 2, "A\x03");
    EXPECT_EQ(FileText(TABLE), record + std::string(990, '\0'));
    EXPECT_EQ(FileText(CODES).substr(0, 5), "   A ") << "a known pattern's character is given to the code";
    RecordCharPattern(Pattern(3), 3);
    EXPECT_EQ(CharCodeArray[3], ' ') << "a new pattern's is a blank";
}

TEST_F(Patterns, DirectoryThatIsMissingOrTooLongIsPassedOver) {
    const int handles = PlatformControl::OpenHandles();
    std::filesystem::remove_all(PlatformControl::PosixPath("C:\\WINDOWS\\SYSTEM32"));
    RecordCharPattern(Pattern(1), 5);
    PlatformControl::SetWindowsDirectory("C:\\" + std::string(250, 'W'));
    RecordCharPattern(Pattern(2), 6);
    EXPECT_EQ(CharPatternTable[1].code, 6);
    EXPECT_FALSE(TableThere());
    EXPECT_EQ(PlatformControl::OpenHandles(), handles);
}

}  // namespace
