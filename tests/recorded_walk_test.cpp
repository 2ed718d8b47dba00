// Random walks as they went when they were recorded: behind each line, a digest of everything that could be noticed of it
// (events, completions, answers, trace lines of all levels, in their order). It says nothing of what is right, and finds
// what has changed without anybody's having wanted it.
//
// tests/recorded/walks.txt is what `zt_walk --choose` printed. ZT_RECORD_SESSIONS writes the digests anew.
#include "support/digest.h"
#include "walk/walk.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr const char* RECORD = ZT_RECORDED "/walks.txt";
constexpr std::size_t DIGEST = 9;  // characters, with the blank behind it

using Recorded = std::vector<std::string>;  // a walk, line by line, each behind its digest

std::vector<Recorded> Walks() {
    std::vector<Recorded> walks(1);
    std::ifstream file(RECORD);
    for (std::string line; std::getline(file, line);)
        if (line.empty())
            walks.emplace_back();
        else
            walks.back().push_back(line);
    return walks;
}

TEST(RecordedWalks, GoAsTheyWent) {
    std::string written;
    for (const Recorded& walk : Walks()) {
        std::vector<std::string> lines;
        for (const std::string& line : walk)
            lines.push_back(line.substr(DIGEST));
        std::string different;
        std::size_t at = 0;
        const Walk::Outcome out = Walk::Run(lines, [&](const std::string& line, const std::vector<std::string>& seen) {
            Digest digest;
            for (const std::string& text : seen)
                digest.Add(text);
            const std::string now = digest.Text() + " " + line;
            written += now + "\n";
            if (different.empty() && (at >= walk.size() || walk[at] != now)) {
                different = "line " + std::to_string(at + 1) + " of a walk, " + line + ", goes now:\n";
                for (const std::string& text : seen)
                    different += "    " + text + "\n";
                for (const std::string& text : lines)
                    different += text + "\n";
            }
            ++at;
        });
        written += "\n";
        EXPECT_EQ(out.Fault, "");
        if (std::getenv("ZT_RECORD_SESSIONS") == nullptr) {
            ASSERT_EQ(different, "") << "(to compare with how it went before: zt_walk --lines FILE --print)";
            ASSERT_EQ(at, walk.size());
        }
    }
    if (std::getenv("ZT_RECORD_SESSIONS") != nullptr) {
        written.pop_back();
        std::ofstream(RECORD, std::ios::binary) << written;
        FAIL() << "recorded anew: see for some of them what has changed";
    }
}

}  // namespace
