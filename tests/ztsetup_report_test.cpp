// ztsetup trace and report, on a registry and files of the test's own; the archive is read by tar's own rules, and zttrace.
#include "platform/control.h"
#include "ztsetup/facts.h"
#include "ztsetup/report.h"
#include "zttrace/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>

namespace {

using namespace Setup;
using testing::HasSubstr;
using testing::Not;

struct Facts {
    // Key, then name and text; a text in front of which stands # is no text but a number.
    std::map<std::string, std::map<std::string, std::string>> registry{
        {R"(SOFTWARE\Corvane\TSpi_6200\Debug_Mode)", {{"DebugOutput", "#"}}},
        {R"(SOFTWARE\Corvane\TSpi_6200\SetConfig)", {{"SetMCDU", "4711"}, {"MaxDigitLocal", "8"}}},
        {R"(HARDWARE\DEVICEMAP\SERIALCOMM)", {{R"(\Device\Serial0)", "COM1"}, {R"(\Device\VCP0)", "COM5"}}},
    };
    std::map<std::string, std::string> files{
        {R"(C:\Windows\spitrace\tsptrac0.tr)", "300 third\r\n"},
        {R"(C:\Windows\spitrace\tsptrac1.tr)", std::string(600, 'x') + "\r\n200 DialedNumber 0145678901\r\n"},
        {R"(C:\Windows\spitrace\tsptrac0.old)", "900 first"},
        {R"(C:\Windows\zt62cfg.ini)", "[SetConfig]\r\nSetMCDU=4711\r\n"},
    };
    std::map<std::string, std::uint32_t> errors;
    std::string written;
};
Facts facts;

}  // namespace

namespace Setup {

std::uint32_t KeyAt(std::string_view key, std::uint32_t index, TextOf<512>& name) {
    std::vector<std::string> below;
    for (const auto& [path, values] : facts.registry)
        if (path.starts_with(std::string(key) + "\\"))
            below.push_back(path.substr(key.size() + 1));
    if (below.empty())
        return FILE_MISSING;
    if (index >= below.size())
        return NOTHING_MORE;
    name = TextOf<512>(below[index]);
    return 0;
}
std::uint32_t ValueAt(std::string_view key, std::uint32_t index, RegistryValue& value) {
    const auto found = facts.registry.find(std::string(key));
    if (found == facts.registry.end())
        return FILE_MISSING;
    if (index >= found->second.size())
        return NOTHING_MORE;
    const auto& [name, text] = *std::next(found->second.begin(), static_cast<std::ptrdiff_t>(index));
    value = {TextOf<512>(name), text == "#" ? 4u : TYPE_TEXT, TextOf<4096>(text == "#" ? "" : text)};
    return 0;
}
std::uint32_t SetText(std::string_view key, std::string_view name, std::string_view text) {
    if (facts.errors["set"] == 0)
        facts.registry[std::string(key)][std::string(name)] = text;
    return facts.errors["set"];
}
std::uint32_t ReadInto(const Path& path, std::span<char> room, std::size_t& size) {
    if (facts.errors[path.text] != 0 || facts.files.count(path.text) == 0)
        return facts.errors[path.text] != 0 ? facts.errors[path.text] : FILE_MISSING;
    size = facts.files[path.text].copy(room.data(), room.size());
    return 0;
}
std::uint32_t WriteNew(const Path& path, std::span<const char> bytes) {
    if (facts.files.count(path.text) != 0)
        return FILE_THERE;
    if (facts.errors["write"] == 0)
        facts.files[path.text].assign(bytes.begin(), bytes.end());
    return facts.errors["write"];
}
TextOf<64> WindowsVersion() {
    return TextOf<64>("10.0.19045");
}
TextOf<128> VersionOf(const Path& file) {
    return TextOf<128>(file.View().ends_with("zt_6232.tsp") ? "3.1.5 commit 0123456789ab" : "");
}

}  // namespace Setup

namespace {

constexpr const char* REPORT = R"(D:\unpacked\fault.tar)";

Outcome Command(std::vector<std::string_view> words) {
    return Run(words);
}

TEST(ZtsetupReport, SetsTheTraceLevelsAndSaysWhatElseItTakes) {
    facts = {};
    std::string& level = facts.registry[R"(SOFTWARE\Corvane\TSpi_6200\Debug_Mode)"]["DebugOutput"];
    const Outcome on = Command({"trace", "on"});
    EXPECT_EQ(on.code, EXIT_DONE);
    EXPECT_EQ(level, "127");
    EXPECT_THAT(on.message.text, HasSubstr("net stop tapisrv /y"));
    EXPECT_EQ(Command({"trace", "off"}).code, EXIT_DONE);
    EXPECT_EQ(level, "0");
    facts.errors["set"] = 5;
    const Outcome refused = Command({"trace", "on"});
    EXPECT_EQ(refused.code, EXIT_FAILED);
    EXPECT_THAT(refused.message.text, HasSubstr(R"(Debug_Mode\DebugOutput (access is denied, error 5))"));
    EXPECT_EQ(Command({"trace"}).code, EXIT_USAGE);
    EXPECT_EQ(Command({"trace", "64"}).code, EXIT_USAGE);
    EXPECT_EQ(Command({"report"}).code, EXIT_USAGE);
    EXPECT_EQ(Command({"report", "a", "b"}).code, EXIT_USAGE);
}

std::filesystem::path Saved() {
    PlatformControl::Reset();
    const std::filesystem::path path = std::filesystem::path(PlatformControl::Root()) / "fault.tar";
    std::ofstream(path, std::ios::binary) << facts.files[REPORT];
    return path;
}

std::string LinesOf(const std::filesystem::path& path, bool whole = true) {
    std::string lines;
    for (const TraceReader::TraceFile& file : TraceReader::InOrder({path}))
        EXPECT_EQ(TraceReader::ReadLines(file, [&](const std::string& line) { lines += line.substr(0, 30) + ";"; }),
                  whole);
    return lines;
}

TEST(ZtsetupReport, PutsAllInOneArchiveThatTheReaderTakes) {
    facts = {};
    facts.errors[R"(C:\Windows\spitrace\tsptrac1.old)"] = 5;
    const Outcome outcome = Command({"report", "fault.tar"});
    EXPECT_EQ(outcome.code, EXIT_DONE);
    EXPECT_THAT(outcome.message.text, HasSubstr("tsptrac1.old is not in it (access is denied, error 5)"));
    const std::string archive = facts.files[REPORT];
    EXPECT_EQ(archive.size() % 512, 0U);
    for (const char* const part :
         {"zt_6232.tsp:        3.1.5 commit 0123456789ab", "ztsetup:            unknown", "10.0.19045",
          R"(COM1 (\Device\Serial0), COM5 (\Device\VCP0))",
          "Telephony service:", "[SetConfig]\nMaxDigitLocal=8\nSetMCDU=4711\n",
          "DebugOutput= (type 4, no text: counts as missing)", "zt_report/zt62cfg.ini", "SetMCDU=4711\r\n"})
        EXPECT_THAT(archive, HasSubstr(part));
    const std::filesystem::path path = Saved();
    EXPECT_EQ(LinesOf(path), "900 first;" + std::string(30, 'x') + ";200 DialedNumber 0145678901\r;300 third\r;");
    std::string names;
    for (std::size_t at = 0; archive[at] != 0;) {
        names += std::string(archive.c_str() + at) + " ";
        at += 512 + (std::stoul(archive.substr(at + 124, 11), nullptr, 8) + 511) / 512 * 512;
    }
    EXPECT_EQ(names, "zt_report/about.txt zt_report/settings.txt zt_report/tsptrac0.old zt_report/tsptrac0.tr "
                     "zt_report/tsptrac1.tr zt_report/zt62cfg.ini ");
    const std::size_t last = archive.find("200 DialedNumber");
    std::filesystem::resize_file(path, last + 4);
    EXPECT_FALSE(TraceReader::ReadLines(TraceReader::InOrder({path})[1], [](const std::string&) {})) << "cut";

    EXPECT_THAT(Command({"report", "fault.tar"}).message.text, HasSubstr("is there already and stays as it is"));
    EXPECT_EQ(facts.files[REPORT], archive);
    facts.errors["write"] = 112;
    EXPECT_THAT(Command({"report", "other.tar"}).message.text, HasSubstr("cannot be written (error 112)"));
}

TEST(ZtsetupReport, MasksDigitsOnly) {
    facts = {};
    EXPECT_EQ(Command({"report", "--mask", "fault.tar"}).code, EXIT_DONE);
    EXPECT_THAT(facts.files[REPORT], Not(HasSubstr("4711")));
    EXPECT_THAT(facts.files[REPORT], HasSubstr("200 DialedNumber xxxxxxxxxx\r\n"));
    EXPECT_THAT(facts.files[REPORT], HasSubstr("MaxDigitLocal=8\nSetMCDU=xxxx\n"));

    const struct {
        const char *line, *masked;
    } rows[] = {
        {"1 OCI tou:5 Reason 0 CalledAdd '014' Org 2 CalledName 'O'HARA 12' lg 9",
         "1 OCI tou:5 Reason 0 CalledAdd 'xxx' Org x CalledName 'O'HARA xx' lg 9"},
        {"12 La Touche 0 n'est pas multiligne", "12 La Touche 0 n'est pas multiligne"},
        {"12 - Etat:OFFERING - Ref:12", "12 - Etat:OFFERING - Ref:12"},
        {"7 Multi TouchId:03 - :4712", "7 Multi TouchId:03 - :xxxx"},
        {"7 i:1 - PartialAddress:66", "7 i:1 - PartialAddress:xx"},
        // The set's key 7, pressed; key 3 pressed, which is no digit.
        {"5 ProcessInput(62.03.07.91.)", "5 ProcessInput(62.03.00.98.)"},
        {"5 ProcessInput(62.03.07.90.)", "5 ProcessInput(62.03.00.90.)"},
        {"5 ProcessInput(62.20.03.77.)", "5 ProcessInput(62.20.03.77.)"},
        {"5 SendL2Msg(03.26.03.05.CF.)", "5 SendL2Msg(03.26.03.00.D4.)"},
        {"5 SendL2Msg(03.26.03.05.CE.)", "5 SendL2Msg(03.26.03.00.CE.)"},
        {"5 ProcessInput(60.10.01.02.35.)", "5 ProcessInput(60.10.01.02.35.)"},
        {"5 TAPI_OMNA MSG: 12.0A.01.00.03.01.34.37.41.39.", "5 TAPI_OMNA MSG: 12.0A.01.00.03.01.30.30.41.30."},
        {"5 ProcessInput(6", "5 ProcessInput(6"},
    };
    for (const auto& row : rows) {
        std::string line = std::string(row.line) + "\r\n";
        MaskTrace(line);
        EXPECT_EQ(line, std::string(row.masked) + "\r\n");
    }
}

// One of the numbers of those sessions.
bool HasNumber(const std::string& line) {
    const auto digit = [&](std::size_t at) { return at < line.size() && line[at] >= '0' && line[at] <= '9'; };
    for (std::size_t at = line.find("47"); at != std::string::npos; at = line.find("47", at + 1))
        if (digit(at + 2) && digit(at + 3))
            return true;
    return line.find("0145") != std::string::npos;
}

// What the provider traces in recorded sessions, so that a new text with a number in it is noticed.
TEST(ZtsetupReport, LeavesNoNumberOfTheRecordedSessions) {
    int lines = 0, changed = 0;
    for (const auto& session : std::filesystem::directory_iterator(ZT_SESSIONS)) {
        std::ifstream file(session.path());
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line[0] == '>' || line[0] == '=')  // what was asked for, and the events
                continue;
            const std::string before = line = "5 " + line;
            MaskTrace(line);
            ++lines;
            changed += line == before ? 0 : 1;
            EXPECT_FALSE(HasNumber(line)) << line;
        }
    }
    EXPECT_GT(changed, 100);
    EXPECT_GT(lines, 5 * changed);
}

}  // namespace
