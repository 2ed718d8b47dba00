// The trace log: formats, mask, files, and what a process loses, cuts or leaves behind.
#include "trace/trace.h"

#include "config/settings.h"
#include "platform/text.h"
#include "provider/process.h"
#include "support/fixture.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>

namespace {

using TraceLife = OnTheLine;

// The files are texts: on Windows their lines end in two bytes.
std::string TraceFile(const std::string& name) {
    std::string text = FileText("C:\\WINDOWS\\spitrace\\" + name);
    std::erase(text, '\r');
    return text;
}

template <class... A> std::string Formatted(const char* format, const A&... a) {
    char text[64];
    const TraceArgument list[] = {TraceArgument(a)..., TraceArgument(0)};
    FormatText(text, sizeof text, format, list, sizeof...(A));
    return text;
}

TEST_F(TraceLife, FormatsAsWsprintfDoes) {
    const char* text = "abc";
    const WCHAR* wide = "é€"_wide;
    EXPECT_EQ(Formatted("%d|%ld|%u|%lu", -1, -2, -1, 3u), "-1|-2|4294967295|3");
    EXPECT_EQ(Formatted("%x|%lx|%X|%04x|%4lx|%0lx|%02d", 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 5),
              "ab|ab|AB|00ab|  ab|ab|05");
    EXPECT_EQ(Formatted("%d.%.02d|%i|%-4d|%-04d|%06.3d|%04d", 3, 6, -4, -5, 6, 7, -8), "3.06|-4|-5  |6   |   007|-008");
    EXPECT_EQ(Formatted("%s|%5s|%-5s|%.2s|%05s", text, text, text, text, text), "abc|  abc|abc  |ab|00abc");
    EXPECT_EQ(Formatted("%S", wide), "\xE9\x80");
    const std::vector<WCHAR> endless(1024, WCHAR{'x'});  // no terminator behind it
    EXPECT_EQ(Formatted("%.4S", endless.data()), "xxxx");
    EXPECT_EQ(Formatted("%s%S|%q|%5", static_cast<const char*>(nullptr), static_cast<const WCHAR*>(nullptr), 1, 2),
              "||")
        << "nor a null text, a conversion that nobody knows, or one that is cut off";
    EXPECT_EQ(Formatted("%c%%", 'x'), "x%");
    EXPECT_EQ(Formatted("%s and %d", text), "abc and ") << "a missing argument prints nothing";
    EXPECT_EQ(Formatted("%d|%s|%S|%c", text, 7, text, text), "|||") << "nor does one of another kind";
    EXPECT_EQ(Formatted("%lx", reinterpret_cast<void*>(std::uintptr_t{0x12345678})), "12345678");
    EXPECT_EQ(Formatted("%60d%60d", 1, 2).size(), 63u) << "cut to its room";
}

TEST_F(TraceLife, HeaderComesOnceAndEachLineHasItsTime) {
    char today[16];
    const std::time_t now = std::time(nullptr);
    std::strftime(today, sizeof today, "%d/%m/%y", std::localtime(&now));
    TraceMask = 0x12;
    Trace(TRACE_LINK, "two");
    Trace(TRACE_CONFIG, "not asked for");
    PlatformControl::Advance(234);
    Trace(TRACE_ALWAYS, "always %s", "100%d");
    const std::regex whole("1000000 TSP CORVANE 6200 DebugFile - date: " + std::string(today) +
                           " - \\d\\d:\\d\\d:\\d\\d\n"
                           "1000000 \\* OutputTraceMode:18 \\*\n1000000 two\n1000234 always 100%d\n");
    EXPECT_TRUE(std::regex_match(TraceFile("tsptrac0.tr"), whole));
}

TEST_F(TraceLife, MaskComesFromTheStoreOrIsWrittenThere) {
    SetSetting("Debug_Mode", "DebugOutput", "127 and more");
    EXPECT_EQ(TraceInit(nullptr), 127);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    EXPECT_EQ(TraceMask, 127);
    for (const char* text : {"-1", ""}) {
        SetSetting("Debug_Mode", "DebugOutput", text);
        EXPECT_EQ(TraceInit(nullptr), 0);
        EXPECT_EQ(Setting("Debug_Mode", "DebugOutput"), "0");
    }
}

TEST_F(TraceLife, FilesChangeWhenTheCounterWrapsAndTheNextProcessKeepsThem) {
    Trace(TRACE_ALWAYS, "first");  // counter 1 for the header, 2 for this
    for (int i = 3; i <= 2000; ++i)
        Trace(TRACE_ALWAYS, "%d", i);
    EXPECT_EQ(TraceFile("tsptrac1.tr"), "");
    Trace(TRACE_ALWAYS, "wrapped");
    EXPECT_EQ(TraceFile("tsptrac1.tr"), "1000000 wrapped\n") << "no header there";
    for (int i = 1; i <= 2001; ++i)
        Trace(TRACE_ALWAYS, "%d", i);
    EXPECT_EQ(TraceFile("tsptrac0.tr"), "1000000 2001\n") << "2001 calls later the first file starts anew";
    std::fclose(TraceLog.File);
    TraceLog = TraceRecord{};
    Trace(TRACE_ALWAYS, "next process");
    EXPECT_EQ(TraceFile("tsptrac0.old"), "1000000 2001\n");
    EXPECT_THAT(TraceFile("tsptrac1.old"), testing::StartsWith("1000000 wrapped\n"));
    EXPECT_FALSE(std::filesystem::exists(PlatformControl::PosixPath("C:\\WINDOWS\\spitrace\\tsptrac1.tr")));
    DllMain(nullptr, DLL_PROCESS_DETACH, &TraceLog);
    EXPECT_NE(TraceLog.File, nullptr) << "the process ends: the run time may be half gone";
    DllMain(nullptr, DLL_THREAD_DETACH, nullptr);
    EXPECT_NE(TraceLog.File, nullptr) << "a thread ends, not the library's use";
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    EXPECT_EQ(TraceLog.File, nullptr);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    Trace(TRACE_ALWAYS, "and the next");
    EXPECT_THAT(TraceFile("tsptrac0.old"), testing::EndsWith(" next process\n")) << "its second file has not begun";
    EXPECT_EQ(TraceFile("tsptrac1.old"), "");
}

TEST_F(TraceLife, AbandonedMutexIsReleasedAgainAMissingOneDropsTheLine) {
    PlatformControl::NextWait("SP62DebugMutex", WAIT_ABANDONED);
    Trace(TRACE_ALWAYS, "after an abandoned one");
    PlatformControl::NextWait("SP62DebugMutex", WAIT_TIMEOUT);
    Trace(TRACE_ALWAYS, "dropped");
    SetLastError(77);
    Trace(TRACE_ALWAYS, "free again");
    EXPECT_EQ(GetLastError(), 77u) << "tracing leaves the caller's error alone";
    EXPECT_THAT(TraceLines(), ElementsAre("after an abandoned one", "free again"));
}

TEST_F(TraceLife, LineIsCutAtItsLimit) {
    Trace(TRACE_ALWAYS, "short");
    const std::size_t before = TraceFile("tsptrac0.tr").size();
    Trace(TRACE_ALWAYS, "%s", std::string(1015, 'x').c_str());  // clock, blank and line feed fill the 1,024
    EXPECT_EQ(TraceFile("tsptrac0.tr").size() - before, 1024u);
    Trace(TRACE_ALWAYS, "%s%s", std::string(1000, 'x').c_str(), std::string(1000, 'y').c_str());
    const std::string text = TraceFile("tsptrac0.tr");
    EXPECT_EQ(text.size() - before, 2048u);
    EXPECT_THAT(text, testing::EndsWith("xyyyyyyyyyyyyyyy\n"));
}

TEST_F(TraceLife, FilesThatDoNotOpenAreTriedAgain) {
    const auto path = [](const char* name) {
        return PlatformControl::PosixPath(std::string("C:\\WINDOWS\\spitrace") + name);
    };
    std::filesystem::remove_all(path(""));
    std::ofstream(path("")) << "in the way";
    Trace(TRACE_ALWAYS, "lost with the header");
    std::filesystem::remove(path(""));
    Trace(TRACE_ALWAYS, "kept");
    EXPECT_EQ(TraceFile("tsptrac0.tr"), "1000000 kept\n");
    std::filesystem::create_directory(path("\\tsptrac1.tr"));
    TraceLog.Counter = 2000;
    Trace(TRACE_ALWAYS, "the other file does not open");
    Trace(TRACE_ALWAYS, "lost until the next change");
    EXPECT_EQ(TraceFile("tsptrac0.tr"), "1000000 kept\n");
    TraceLog.Counter = 2000;
    Trace(TRACE_ALWAYS, "back");
    EXPECT_EQ(TraceFile("tsptrac0.tr"), "1000000 back\n");
    TraceClose();
    const std::string directory = "C:\\" + std::string(40, 'W');
    PlatformControl::SetWindowsDirectory(directory);
    Trace(TRACE_ALWAYS, "far below");
    EXPECT_THAT(FileText(directory + "\\spitrace\\tsptrac0.tr"), testing::HasSubstr(" far below"));
}

}  // namespace
