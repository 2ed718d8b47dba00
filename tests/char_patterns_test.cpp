// The character patterns that the PBX loads into the set, and their two dumps.
#include "config/char_patterns.h"

#include "support/fixture.h"

#include <filesystem>
#include <fstream>

namespace {

class Patterns : public OnTheLine {
protected:
    std::string Table, Codes;
    void SetUp() override {
        OnTheLine::SetUp();
        Table = PlatformControl::PosixPath("C:\\WINDOWS\\SYSTEM32\\zt_opt.fdb");
        Codes = PlatformControl::PosixPath("C:\\WINDOWS\\SYSTEM32\\zt_array.fdb");
    }
    static std::string Contents(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), {});
    }
};

std::array<std::uint8_t, 8> Pattern(int n) {
    return {1, 2, 3, 4, 5, 6, static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)};
}

TEST_F(Patterns, PatternsAreKeptOnceAndDumpedToTheFilesThatAreThere) {
    RecordCharPattern(Pattern(1), 5);
    RecordCharPattern(Pattern(1), 7);
    EXPECT_EQ(CharPatternTable[0].code, 7);
    EXPECT_EQ(CharPatternTable[0].character, ' ');
    EXPECT_EQ(CharPatternTable[1].character, 0);
    EXPECT_EQ(std::filesystem::file_size(Table), 1000u);
    EXPECT_FALSE(std::filesystem::exists(Codes));
    std::ofstream(Codes).close();
    for (int n = 2; n <= 100; ++n)
        RecordCharPattern(Pattern(n), 9);
    EXPECT_EQ(std::filesystem::file_size(Codes), 100u);
    std::filesystem::remove(Table);
    RecordCharPattern(Pattern(101), 9);
    EXPECT_FALSE(std::filesystem::exists(Table)) << "a full table ignores new patterns";
    RecordCharPattern(Pattern(50), 100);
    EXPECT_FALSE(std::filesystem::exists(Table)) << "no such character code";
    RecordCharPattern(Pattern(50), 99);
    EXPECT_TRUE(std::filesystem::exists(Table));
}

TEST_F(Patterns, DumpsHoldWhatMemoryHolds) {
    std::ofstream(Codes) << std::string(120, '-');
    RecordCharPattern(Pattern(0x102), 42);
    std::string record("\x01\x02\x03\x04\x05\x06\x01\x02 *", 10);
    EXPECT_EQ(Contents(Table), record + std::string(990, '\0'));
    EXPECT_EQ(Contents(Codes), std::string(100, ' ') + std::string(20, '-')) << "written over, not cut";
    CharPatternTable[0].character = 'A';
    RecordCharPattern(Pattern(0x102), 3);
    record[8] = 'A';
    record[9] = 3;
    EXPECT_EQ(Contents(Table), record + std::string(990, '\0'));
    EXPECT_EQ(Contents(Codes).substr(0, 5), "   A ") << "a known pattern's character is given to the code";
    RecordCharPattern(Pattern(0x103), 3);
    EXPECT_EQ(CharCodeArray[3], ' ') << "a new pattern's is a blank";
    EXPECT_EQ(CharPatternTable[1].code, 3);
}

TEST_F(Patterns, PatternOfZerosIsOneLikeAnother) {
    const std::array<std::uint8_t, 8> zeros{};
    RecordCharPattern(zeros, 1);
    RecordCharPattern(zeros, 2);
    EXPECT_EQ(CharPatternTable[0].character, ' ');
    EXPECT_EQ(CharPatternTable[0].code, 2);
    EXPECT_EQ(CharPatternTable[1].character, 0);
}

TEST_F(Patterns, DirectoryThatIsMissingOrTooLongIsPassedOver) {
    const int handles = PlatformControl::OpenHandles();
    std::filesystem::remove_all(std::filesystem::path(Table).parent_path());
    RecordCharPattern(Pattern(1), 5);
    EXPECT_EQ(CharPatternTable[0].code, 5);
    EXPECT_FALSE(std::filesystem::exists(Table));
    PlatformControl::SetWindowsDirectory("C:\\" + std::string(250, 'W'));
    RecordCharPattern(Pattern(2), 6);
    EXPECT_EQ(CharPatternTable[1].code, 6);
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_EQ(PlatformControl::OpenHandles(), handles);
}

}  // namespace
