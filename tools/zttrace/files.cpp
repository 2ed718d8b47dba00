#include "zttrace/files.h"

#include "zttrace/line.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

namespace TraceReader {

namespace {

constexpr std::size_t HeadSize = 64;
constexpr std::size_t ReadSize = 65536;

bool IsOld(const TraceFile& file) {
    return file.name.extension() == ".old";
}

// The clock of a file's first line; 0 when it has none.
std::uint32_t FirstStamp(const TraceFile& trace) {
    std::ifstream file(trace.path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(trace.from));
    std::string line;
    if (trace.size > 0)
        std::getline(file, line);
    return ReadLine(line).stamp;
}

// Sorts by clock. Clocks are compared as distances from the first, which holds over a wrap between two files.
void ByClock(std::vector<TraceFile>::iterator first, std::vector<TraceFile>::iterator last) {
    if (last - first < 2)
        return;
    const std::uint32_t base = FirstStamp(*first);
    std::stable_sort(first, last, [&](const TraceFile& a, const TraceFile& b) {
        return static_cast<std::int32_t>(FirstStamp(a) - base) < static_cast<std::int32_t>(FirstStamp(b) - base);
    });
}

// --- archives (tar): blocks of 512 bytes, a head in front of each file

constexpr std::size_t Block = 512;
constexpr const char* TraceNames[] = {"tsptrac0.old", "tsptrac1.old", "tsptrac0.tr", "tsptrac1.tr"};

// A number in octal, ended by a zero or a blank.
std::uint64_t Octal(const std::string& head, std::size_t at, std::size_t width) {
    std::uint64_t number = 0;
    for (; width > 0 && head[at] >= '0' && head[at] <= '7'; --width)
        number = 8 * number + static_cast<std::uint64_t>(head[at++] - '0');
    return number;
}

// The sum of a head counts its own field as blanks.
bool ReadHead(std::istream& in, std::string& head) {
    head.assign(Block, 0);
    if (!in.read(head.data(), Block) || head.compare(257, 5, "ustar") != 0)
        return false;
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < Block; ++i)
        sum += i >= 148 && i < 156 ? std::uint64_t{' '} : static_cast<unsigned char>(head[i]);
    return sum == Octal(head, 148, 8);
}

void AddFromArchive(std::vector<TraceFile>& files, const Path& archive) {
    std::ifstream in(archive, std::ios::binary);
    std::string head;
    for (std::uint64_t at = 0; ReadHead(in, head);) {
        TraceFile file(archive);
        file.name = Path(head.c_str()).filename();
        file.from = at + Block;
        file.size = Octal(head, 124, 12);
        if (std::find(std::begin(TraceNames), std::end(TraceNames), file.name) != std::end(TraceNames))
            files.push_back(file);
        at = file.from + (file.size + Block - 1) / Block * Block;
        in.seekg(static_cast<std::streamoff>(at));
    }
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

bool IsArchive(const Path& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))  // what is read from a pipe is gone
        return false;
    std::ifstream in(file, std::ios::binary);
    std::string head;
    return ReadHead(in, head);
}

std::vector<TraceFile> InOrder(const std::vector<Path>& named) {
    std::vector<TraceFile> files;
    std::error_code error;
    for (const Path& path : named) {
        if (IsArchive(path)) {
            AddFromArchive(files, path);
            continue;
        }
        if (!std::filesystem::is_directory(path, error)) {
            files.emplace_back(path);
            continue;
        }
        for (const char* name : TraceNames)
            if (std::filesystem::exists(path / name, error))
                files.emplace_back(path / name);
    }
    const auto current = std::stable_partition(files.begin(), files.end(), IsOld);
    ByClock(files.begin(), current);
    if (std::all_of(current, files.end(), [](const TraceFile& file) { return file.name.extension() == ".tr"; }))
        ByClock(current, files.end());
    return files;
}

bool ReadLines(const TraceFile& file, const TakeLine& take) {
    std::ifstream opened;
    if (file.path != "-") {
        opened.open(file.path, std::ios::binary);
        if (!opened || (file.from > 0 && !opened.seekg(static_cast<std::streamoff>(file.from))))
            return false;
    }
    std::istream& in = file.path == "-" ? std::cin : opened;
    LineCutter cutter;
    cutter.take = take;
    std::string bytes(ReadSize, 0);
    std::uint64_t left = file.size;
    while (in && left > 0) {
        in.read(bytes.data(), static_cast<std::streamsize>(std::min<std::uint64_t>(left, bytes.size())));
        left -= static_cast<std::uint64_t>(in.gcount());
        cutter.Push(bytes.substr(0, static_cast<std::size_t>(in.gcount())));
    }
    cutter.Finish();
    return !in.bad() && (left == 0 || file.size == UINT64_MAX);
}

Follower::Follower(const Path& file) {
    for (const TraceFile& trace : InOrder({file, Twin(file)}))
        if (!trace.path.empty())
            files.push_back({trace.path, "", 0});
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
