// The trace files: the provider writes tsptrac0.tr, then tsptrac1.tr, then tsptrac0.tr again from its beginning, and
// names both .old when it starts anew. None is held open here longer than it takes to read it: an open file would keep
// the provider from renaming it on Windows.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace TraceReader {

using Path = std::filesystem::path;
using TakeLine = std::function<void(const std::string&)>;

// Bytes in, lines out. The last one comes when its end has come, or at Finish.
struct LineCutter {
    TakeLine take;
    void Push(const std::string& bytes);
    void Finish();

private:
    std::string kept;
};

// A trace file, by itself or as the part of an archive that ztsetup made.
struct TraceFile {
    Path path;  // to be opened
    Path name;  // the trace file's own
    std::uint64_t from = 0, size = UINT64_MAX;

    TraceFile(const Path& alone) : path(alone), name(alone) {}
    friend bool operator==(const TraceFile&, const TraceFile&) = default;
};

// Whether it begins as an archive does; only what ztsetup writes is understood.
bool IsArchive(const Path& file);
// The trace files in a directory, or in an archive, stand for it; .old goes in front, and of two of one kind that with the
// earlier clock.
std::vector<TraceFile> InOrder(const std::vector<Path>& named);
// Gives the lines of all of it ("-": of standard input); false where it cannot be read, or ends too early.
bool ReadLines(const TraceFile& file, const TakeLine& take);

// A file that is being written and its twin. Each Poll gives the lines that are new: of the file written last first,
// for what came behind the change is in the other one.
struct Follower {
    explicit Follower(const Path& file);
    bool Poll(const TakeLine& take);  // false when neither can be read

private:
    struct Watched {
        Path path;
        std::string head;  // its first bytes: another first line is another file
        std::uint64_t position = 0;
        LineCutter cutter = {};
    };
    std::vector<Watched> files;
    static bool Read(Watched& file, const TakeLine& take, bool& grew);
};

}  // namespace TraceReader
