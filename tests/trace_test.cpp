// The trace log over the life of a process: what is lost, what is cut, what an unloaded library leaves behind.
#include "trace/trace.h"

#include "provider/lifecycle.h"
#include "support/fixture.h"

#include <filesystem>
#include <fstream>

namespace {

using TraceLife = OnTheLine;

std::string FilePath(const char* name) {
    return PlatformControl::PosixPath(std::string("C:\\WINDOWS\\spitrace\\") + name);
}

std::string FileText(const char* name) {
    std::ifstream in(FilePath(name), std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST_F(TraceLife, UnloadedAndLoadedAgainItKeepsTheFormerFileAndHoldsNoneOpen) {
    Trace(TRACE_ALWAYS, "first load");
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    const std::size_t before = OpenDescriptors();
    for (int i = 0; i < 20; ++i) {
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        Trace(TRACE_ALWAYS, "load %d", i);
        DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    }
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_THAT(FileText("tsptrac0.old"), testing::EndsWith(" *\n1000000 load 18\n"));
    EXPECT_THAT(FileText("tsptrac0.tr"), testing::MatchesRegex(".* DebugFile - date: .*\n.*\n1000000 load 19\n"));
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

TEST_F(TraceLife, FileThatDoesNotOpenAtTheChangeLosesLinesUntilTheNextChange) {
    Trace(TRACE_ALWAYS, "first");  // counter 2
    std::filesystem::create_directory(FilePath("tsptrac1.tr"));
    for (int i = 3; i <= 2000; ++i)
        Trace(TRACE_ALWAYS, "%d", i);
    const std::string full = FileText("tsptrac0.tr");
    EXPECT_THAT(full, testing::EndsWith("1000000 2000\n"));
    for (int i = 0; i <= 2000; ++i)
        Trace(TRACE_ALWAYS, "lost");
    EXPECT_EQ(FileText("tsptrac0.tr"), full);
    Trace(TRACE_ALWAYS, "again");
    EXPECT_EQ(FileText("tsptrac0.tr"), "1000000 again\n");
}

TEST_F(TraceLife, LineIsCutAtItsLimit) {
    Trace(TRACE_ALWAYS, "short");
    const std::size_t before = FileText("tsptrac0.tr").size();
    Trace(TRACE_ALWAYS, "%s", std::string(1015, 'x').c_str());  // clock, blank and line feed fill the 1,024
    EXPECT_EQ(FileText("tsptrac0.tr").size() - before, 1024u);
    Trace(TRACE_ALWAYS, "%s%s", std::string(1000, 'x').c_str(), std::string(1000, 'y').c_str());
    const std::string text = FileText("tsptrac0.tr");
    EXPECT_EQ(text.size() - before, 2048u);
    EXPECT_THAT(text, testing::EndsWith("xyyyyyyyyyyyyyyy\n"));
}

}  // namespace
