// The fuzz targets over their corpora, without the fuzzer. What comes of each input (its notes, the provider's trace of all
// levels) is recorded as a digest beside the corpus: it says nothing of what is right, and finds what has changed without
// anybody's having wanted it. ZT_RECORD_SESSIONS writes the records anew; ZT_SHOW_INPUT, a file's name, prints what comes
// of that one.
#include "fuzz/start.h"
#include "support/digest.h"
#include "support/fixture.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace {

struct Target {
    const char* Name;
    int (*Takes)(const std::uint8_t* data, std::size_t size);
};
constexpr Target Targets[] = {{"receive", FuzzReceive},
                              {"omna", FuzzOmna},
                              {"stored_config", FuzzStoredConfig},
                              {"dialog_data", FuzzDialogData},
                              {"whole", FuzzWhole}};

std::string Contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::string> WhatComesOf(const Target& target, const std::filesystem::path& path) {
    const std::string bytes = Contents(path);
    // An exact block, so that a read behind the input is found.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    FuzzNotes.clear();
    RemoveTrace();
    target.Takes(input.data(), input.size());
    std::vector<std::string> lines = TraceLines();
    std::istringstream notes(FuzzNotes);
    for (std::string line; std::getline(notes, line);)
        lines.push_back(line);
    return lines;
}

class Corpus : public testing::TestWithParam<Target> {};

TEST_P(Corpus, GivesWhatItGave) {
    const std::string name = GetParam().Name, record = ZT_CORPUS "/" + name + ".record";
    const char* shown = std::getenv("ZT_SHOW_INPUT");
    std::set<std::filesystem::path> files;  // in the order of their names
    for (const auto& entry : std::filesystem::directory_iterator(ZT_CORPUS "/" + name))
        files.insert(entry.path());
    ASSERT_FALSE(files.empty());
    FuzzReplays = true;
    ResetProvider();
    FuzzRestart();
    std::string now;
    for (const auto& path : files) {
        SCOPED_TRACE(path.filename());
        Digest digest;
        for (const std::string& line : WhatComesOf(GetParam(), path)) {
            digest.Add(line);
            if (shown != nullptr && path.filename() == shown)
                std::puts(line.c_str());
        }
        now += digest.Text() + ' ' + path.filename().string() + '\n';
    }
    FuzzReplays = false;
    EXPECT_EQ(now, RecordIn(record, now)) << "(ZT_SHOW_INPUT=NAME shows what comes of one)";
}
INSTANTIATE_TEST_SUITE_P(, Corpus, testing::ValuesIn(Targets), [](const auto& target) { return target.param.Name; });

}  // namespace
