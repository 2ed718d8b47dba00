// zttrace: the provider's trace files in words.
#include "zttrace/files.h"
#include "zttrace/html.h"
#include "zttrace/replay.h"
#include "zttrace/report.h"
#include "zttrace/texts.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace {

using namespace TraceReader;

constexpr const char* Usage =
    "usage: zttrace [options] FILE ...\n"
    "Prints trace files of the provider with the frames and messages in them in words: <- received, -> sent.\n"
    "FILE is a trace file, the directory that the provider writes them in, an archive that ztsetup report made, or -\n"
    "for standard input. Files of an earlier start (.old) come first. The output is UTF-8 (chcp 65001 in a Windows\n"
    "console).\n"
    "  -f          go on with the lines that the provider writes, from one file to the other\n"
    "  -l LEVELS   only lines that the mask LEVELS lets through: a number as in Debug_Mode\\DebugOutput, or names "
    "with\n"
    "              commas between; lines that are always written, and texts that are not known, stay\n"
    "  -c CREF     only lines about the call with this reference (decimal)\n"
    "  -k KEY      only lines, frames and messages about this key; with -c: about either\n"
    "  --html FILE write all of it as one page for a browser: what went wrong, who said what, the calls, the set\n"
    "  --summary   print what went wrong, or may have, and nothing else\n"
    "  -r FILE     write what was received to FILE, as a script for zt_equipment --script, and print nothing\n"
    "  --help      this text\n";

constexpr auto PollPause = std::chrono::milliseconds(200);

struct Options {
    bool follow = false, help = false, summary = false;
    Filter filter;
    std::string replay, html;
    std::vector<Path> files;
};

std::optional<int> ReadNumber(const std::string& word) {
    if (word.empty() || word.size() > 5 || word.find_first_not_of("0123456789") != std::string::npos)
        return {};
    return static_cast<int>(std::strtol(word.c_str(), nullptr, 10));
}

// Gives "", or what is wrong.
std::string ReadOptions(const std::vector<std::string>& words, Options& options) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "-f") {
            options.follow = true;
        } else if (word == "--help") {
            options.help = true;
        } else if (word == "--summary") {
            options.summary = true;
        } else if (word == "-l" || word == "-c" || word == "-k" || word == "-r" || word == "--html") {
            if (++i == words.size())
                return word + " needs a value";
            const std::string& value = words[i];
            if (word == "-r" || word == "--html") {
                (word == "-r" ? options.replay : options.html) = value;
                continue;
            }
            const auto number = ReadNumber(value);
            if (word == "-l")
                options.filter.mask = ReadMask(value);
            else
                (word == "-c" ? options.filter.cref : options.filter.key) = number;
            if (word == "-l" ? !options.filter.mask : !number)
                return word + " " + value + ": " + (word == "-l" ? "levels are " + LevelNames() : "not a number");
        } else if (word.size() > 1 && word[0] == '-') {
            return "unknown option " + word;
        } else {
            options.files.emplace_back(word);
        }
    }
    if (options.help)
        return "";
    if (options.files.empty())
        return "no file is named";
    if (options.follow && (options.files.size() != 1 || options.files[0] == "-"))
        return "-f follows one file, or one directory";
    const int outputs = (options.follow ? 1 : 0) + (options.replay.empty() ? 0 : 1) + (options.html.empty() ? 0 : 1) +
                        (options.summary ? 1 : 0);
    if (outputs > 1)
        return "of -f, -r, --html and --summary one at a time";
    return "";
}

int Fail(const std::string& why) {
    std::fprintf(stderr, "zttrace: %s\n", why.c_str());
    return 1;
}

int Follow(const Path& named, const TakeLine& take) {
    std::error_code error;
    if (IsArchive(named))
        return Fail(named.string() + " is an archive: nobody writes to it any more");
    Follower follower(std::filesystem::is_directory(named, error) ? named / "tsptrac0.tr" : named);
    if (!follower.Poll(take))
        return Fail(named.string() + " cannot be read");
    for (;;) {
        std::fflush(stdout);
        if (std::ferror(stdout) != 0)
            return 1;  // nobody reads any more
        std::this_thread::sleep_for(PollPause);
        follower.Poll(take);
    }
}

int WriteStory(const Options& options, const Story& story) {
    if (story.lines.empty())
        return Fail("the trace is empty");
    if (options.summary) {
        std::fputs(Summary(story).c_str(), stdout);
        return 0;
    }
    std::ofstream out(options.html, std::ios::binary);
    WriteHtml(out, story, options.files[0].filename().string());
    out << std::flush;
    if (!out)
        return Fail(options.html + " cannot be written");
    return 0;
}

int WriteReplay(const std::string& name, const Replay& replay) {
    if (replay.frames == 0)
        return Fail("no received frame in the trace: its mask must hold 4 (input)");
    std::ofstream out(name, std::ios::binary);
    out << replay.script << std::flush;
    if (!out)
        return Fail(name + " cannot be written");
    std::fprintf(stderr, "zttrace: %d frames written to %s", replay.frames, name.c_str());
    if (replay.leftOut > 0)
        std::fprintf(stderr, "; %d were cut in the trace and are not whole in it", replay.leftOut);
    std::fputc('\n', stderr);
    return 0;
}

}  // namespace

int main(int count, char** words) {
    Options options;
    if (const std::string error = ReadOptions({words + 1, words + count}, options); !error.empty()) {
        std::fprintf(stderr, "zttrace: %s\n%s", error.c_str(), Usage);
        return 2;
    }
    if (options.help) {
        std::printf("%slevels: %s\n", Usage, LevelNames().c_str());
        return 0;
    }

    Report report;
    Replay replay;
    StoryTeller teller;
    const bool story = options.summary || !options.html.empty();
    report.filter = options.filter;
    if (options.replay.empty()) {
        report.print = [](const std::string& line) { std::fputs((line + "\n").c_str(), stdout); };
    } else {
        report.onDump = [&](const Line& line, const Dump& dump) { replay.Take(line, dump); };
    }
    const TakeLine take = [&](const std::string& line) {
        if (story)
            teller.Take(line);
        else
            report.Take(line);
    };
    if (options.follow)
        return Follow(options.files[0], take);

    const std::vector<TraceFile> files = InOrder(options.files);
    if (files.empty())
        return Fail("no trace file in " + options.files[0].string());
    for (const TraceFile& file : files)
        if (!ReadLines(file, take))
            return Fail(file.path.string() +
                        (file.from == 0 ? " cannot be read" : " is cut: it is not read to its end"));
    if (story)
        return WriteStory(options, teller.Finish());
    if (!options.replay.empty())
        return WriteReplay(options.replay, replay);
    if (report.printed == 0)
        return Fail(report.lines == 0 ? "the trace is empty" : "no line of the trace fits");
    return 0;
}
