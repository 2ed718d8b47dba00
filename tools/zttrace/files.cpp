#include "zttrace/files.h"

#include "zttrace/line.h"

#include <algorithm>
#include <fstream>

namespace TraceReader {

namespace {

constexpr std::size_t HeadSize = 64;
constexpr std::size_t ReadSize = 65536;

bool IsOld(const Path& path) {
    return path.extension() == ".old";
}

// The clock of a file's first line; 0 when it has none.
std::uint32_t FirstStamp(const Path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string line;
    std::getline(file, line);
    return ReadLine(line).stamp;
}

// Sorts by clock. Clocks are compared as distances from the first, which holds over a wrap between two files.
void ByClock(std::vector<Path>::iterator first, std::vector<Path>::iterator last) {
    if (last - first < 2)
        return;
    const std::uint32_t base = FirstStamp(*first);
    std::stable_sort(first, last, [&](const Path& a, const Path& b) {
        return static_cast<std::int32_t>(FirstStamp(a) - base) < static_cast<std::int32_t>(FirstStamp(b) - base);
    });
}

Path Twin(const Path& file) {
    std::string name = file.filename().string();
    const std::size_t digit = name.find_last_of("01");
    if (digit == std::string::npos || !name.starts_with("tsptrac"))
        return {};
    name[digit] = name[digit] == '0' ? '1' : '0';
    return file.parent_path() / name;
}

}  // namespace

void LineCutter::Push(const std::string& bytes) {
    kept += bytes;
    std::size_t from = 0;
    for (std::size_t end; (end = kept.find('\n', from)) != std::string::npos; from = end + 1)
        take(kept.substr(from, end - from));
    kept.erase(0, from);
}

void LineCutter::Finish() {
    if (!kept.empty())
        take(kept);
    kept.clear();
}

std::vector<Path> InOrder(const std::vector<Path>& named) {
    std::vector<Path> files;
    std::error_code error;
    for (const Path& path : named) {
        if (!std::filesystem::is_directory(path, error)) {
            files.push_back(path);
            continue;
        }
        for (const char* name : {"tsptrac0.old", "tsptrac1.old", "tsptrac0.tr", "tsptrac1.tr"})
            if (std::filesystem::exists(path / name, error))
                files.push_back(path / name);
    }
    const auto current = std::stable_partition(files.begin(), files.end(), IsOld);
    ByClock(files.begin(), current);
    if (std::all_of(current, files.end(), [](const Path& path) { return path.extension() == ".tr"; }))
        ByClock(current, files.end());
    return files;
}

Follower::Follower(const Path& file) {
    for (const Path& path : InOrder({file, Twin(file)}))
        if (!path.empty())
            files.push_back({path, "", 0});
}

// Reads what is new. `grew`: something was.
bool Follower::Read(Watched& file, const TakeLine& take, bool& grew) {
    std::ifstream in(file.path, std::ios::binary);
    if (!in)
        return false;
    std::string head(HeadSize, 0);
    in.read(head.data(), HeadSize);
    head.resize(static_cast<std::size_t>(in.gcount()));
    in.clear();
    in.seekg(0, std::ios::end);
    const auto size = static_cast<std::uint64_t>(std::max<std::streamoff>(in.tellg(), 0));
    file.cutter.take = take;
    if (size < file.position || !head.starts_with(file.head)) {
        file.cutter.Finish();
        file.position = 0;
    }
    file.head = head;
    in.seekg(static_cast<std::streamoff>(file.position));
    std::string bytes(ReadSize, 0);
    do {
        in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        const auto count = static_cast<std::size_t>(in.gcount());
        grew = grew || count > 0;
        file.position += count;
        file.cutter.Push(bytes.substr(0, count));
    } while (in);
    return true;
}

bool Follower::Poll(const TakeLine& take) {
    bool readable = false;
    // The one written last stands in front from the second Poll on.
    std::vector<bool> grew(files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        bool more = false;
        readable = Read(files[i], take, more) || readable;
        grew[i] = more;
    }
    if (files.size() == 2 && grew[1])
        std::swap(files[0], files[1]);
    return readable;
}

}  // namespace TraceReader
