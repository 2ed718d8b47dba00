// Runs a fuzz target over every file of the directories named, without the fuzzer: so its corpus is a test of every
// build, whatever the compiler.
#include "start.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

int main(int argc, char** argv) {
    std::set<std::filesystem::path> files;  // in the order of their names
    for (int i = 1; i < argc; ++i)
        for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
            if (entry.is_regular_file())
                files.insert(entry.path());
    for (const auto& path : files) {
        std::printf("%s\n", path.filename().c_str());
        std::fflush(stdout);  // the last one named is the one that failed
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
        // An exact block, so that a read behind the input is found.
        const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    if (files.empty()) {
        std::fprintf(stderr, "no files\n");
        return 1;
    }
    std::printf("%zu inputs\n", files.size());
    return 0;
}
