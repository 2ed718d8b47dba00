// What ztsetup does and tells a user, on a Windows of the test's own making.
#include "ztsetup/setup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Setup;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint16_t MACHINE_ARM64 = 0xAA64;
constexpr const char* PLACE = R"(C:\Windows\System32\zt_6232.tsp)";
constexpr const char* BESIDE = R"(D:\unpacked\zt_6232.tsp)";

std::string LibraryFor(std::uint16_t machine, unsigned characteristics = 0x2102) {
    std::string head(0x200, '\0');
    head[0] = 'M', head[1] = 'Z', head[0x3C] = '\x80', head[0x80] = 'P', head[0x81] = 'E';
    head[0x84] = static_cast<char>(machine), head[0x85] = static_cast<char>(machine >> 8);
    head[0x96] = static_cast<char>(characteristics), head[0x97] = static_cast<char>(characteristics >> 8);
    return head;
}

struct Windows {
    std::uint16_t system = MACHINE_X64, own = MACHINE_X64;
    bool administrator = true, loaded = false, ignores = false;
    Service service = Service::Running;
    std::map<std::string, std::string> files{{PLACE, LibraryFor(MACHINE_X64)}};
    std::map<std::uint32_t, std::string> list{{1, "remotesp.tsp"}, {2, "kmddsp.tsp"}};
    std::uint32_t listError = 0, addError = 0, removeError = 0;
    void (*onAdd)() = [] {};
    std::map<std::string, EntryList> places{};  // what NETWORK SERVICE may do, there
    std::map<std::string, std::uint32_t> refused{};
    std::map<std::string, std::string> logSources{};
    std::uint32_t logError = 0;
    std::vector<std::string> calls{};
    // TAPI's lines by name, what the provider's has to tell (a quiet second between two), and what it refuses.
    std::vector<std::string> lines{"Modem", "CORVANE_ZT_6200_2.0_3"};
    std::vector<LineMessage> messages{};
    std::map<std::string, std::uint32_t> lineErrors{};
    std::uint32_t clock = 4'294'960'000u, stopAfter = UINT32_MAX, started = 0, requests = 0;
    std::string shown{};
};
Windows windows;

std::uint32_t Refusal(const char* function) {
    windows.calls.push_back(function);
    const auto found = windows.lineErrors.find(function);
    return found == windows.lineErrors.end() ? 0 : found->second;
}

}  // namespace

namespace Setup {

std::uint16_t SystemMachine() {
    return windows.system;
}
std::uint16_t OwnMachine() {
    return windows.own;
}
bool IsAdministrator() {
    return windows.administrator;
}
Path SystemDirectory() {
    return Path(R"(C:\Windows\System32)");
}
Path OwnDirectory() {
    return Path(R"(D:\unpacked)");
}
Path FullPath(std::string_view path) {
    return path.find(':') != std::string_view::npos ? Path(path) : Path(R"(D:\unpacked\)").Add(path);
}
Head ReadHead(const Path& path) {
    Head head;
    for (const auto& [name, bytes] : windows.files)
        if (strcasecmp(name.c_str(), path.text) == 0) {
            head.reading = bytes == "refused" ? Reading::Refused : Reading::Read;
            head.size = bytes.copy(reinterpret_cast<char*>(head.bytes.data()), head.bytes.size());
        }
    return head;
}
bool InUse(const Path&) {
    return windows.loaded;
}
Service TelephonyService() {
    return windows.service;
}
std::uint32_t ListProviders(ProviderList& list) {
    list = ProviderList{};
    for (const auto& [id, file] : windows.list)
        list.entries[list.count++] = {id, TextOf<260>(file)};
    return windows.listError;
}
std::uint32_t AddProvider(std::string_view file, bool quiet, std::uint32_t& id) {
    windows.calls.push_back("add " + std::string(file) + (quiet ? " quiet" : ""));
    id = 7;
    if (windows.addError == 0 && !windows.ignores)
        windows.list[id] = file;
    windows.onAdd();
    return windows.addError;
}
std::uint32_t RemoveProvider(std::uint32_t id) {
    windows.calls.push_back("remove " + std::to_string(id));
    if (windows.removeError == 0 && !windows.ignores)
        windows.list.erase(id);
    return windows.removeError;
}

Path WindowsDirectory() {
    return Path(R"(C:\Windows)");
}
std::uint32_t MakePlace(const Place& place) {
    windows.places[place.path.text];
    return 0;
}
std::uint32_t ReadEntries(const Place& place, EntryList& list) {
    const auto found = windows.places.find(place.path.text);
    if (found == windows.places.end())
        return PLACE_MISSING;
    list = found->second;
    return 0;
}
std::uint32_t AddEntry(const Place& place, const AccessEntry& entry) {
    if (const std::uint32_t error = windows.refused[place.path.text]; error != 0)
        return error;
    EntryList& list = windows.places[place.path.text];
    list.entries[list.count++] = entry;
    return 0;
}
std::uint32_t RemoveEntries(const Place& place) {
    if (const std::uint32_t error = windows.refused[place.path.text]; error != 0)
        return error;
    windows.places[place.path.text].count = 0;
    return 0;
}
void RemoveEmpty(const Place& place) {
    EXPECT_TRUE(windows.places[place.path.text].count == 0 || windows.refused[place.path.text] != 0) << place.path.text;
}

std::uint32_t AddLogSource(std::string_view source, std::string_view file) {
    if (windows.logError == 0)
        windows.logSources[std::string(source)] = file;
    return windows.logError;
}
std::uint32_t RemoveLogSource(std::string_view source) {
    if (windows.logError == 0)
        windows.logSources.erase(std::string(source));
    return windows.logError;
}

std::uint32_t StartTapi(std::uint32_t& lines) {
    lines = static_cast<std::uint32_t>(windows.lines.size());
    windows.started = windows.clock;
    return Refusal("start");
}
void EndTapi() {
    windows.calls.push_back("end");
}
std::uint32_t AskLine(std::uint32_t device, LineFacts& facts) {
    facts = {0x20000, TextOf<128>(windows.lines[device]), TextOf<128>("The maker"), TextOf<128>("4711"), 20, 3, 0x84};
    return windows.lines[device] == "broken" ? 0x80000048 : 0;
}
std::uint32_t OpenLine(std::uint32_t device, std::uint32_t version) {
    EXPECT_EQ(windows.lines[device], "CORVANE_ZT_6200_2.0_3");
    EXPECT_EQ(version, 0x20000u);
    return Refusal("open");
}
std::uint32_t NextMessage(LineMessage& message, std::uint32_t milliseconds, bool& came) {
    windows.clock += milliseconds;
    const std::uint32_t second = (windows.clock - windows.started) / 1000;
    came = second > 0 && !windows.messages.empty() && windows.clock % 1000 < milliseconds;
    if (came) {
        message = windows.messages.front();
        windows.messages.erase(windows.messages.begin());
    }
    return 0;
}
std::uint32_t AskCall(std::uint32_t call, CallFacts& facts) {
    facts.caller = {TextOf<128>("0145678901"), TextOf<128>("DUPONT Élise")};
    facts.called.number = TextOf<128>("4711");
    return call == 0x999 ? 0x80000018 : 0;
}
std::uint32_t MakeCall(std::string_view number, std::uint32_t& request) {
    const std::uint32_t refusal = Refusal(("make " + std::string(number)).c_str());
    request = refusal == 0 ? ++windows.requests : 0;
    return refusal;
}
std::uint32_t MadeCall() {
    return 0x200;
}
std::uint32_t DropCall(std::uint32_t call) {
    return Refusal(("drop " + std::to_string(call)).c_str());
}
void ReleaseCall(std::uint32_t call) {
    windows.calls.push_back("release " + std::to_string(call));
}
bool StopAsked() {
    return windows.clock - windows.started >= windows.stopAfter;
}
std::uint32_t Now() {
    return windows.clock;
}
void Show(std::string_view lines) {
    windows.shown += lines;
}

}  // namespace Setup

namespace {

// The words of a command line.
Outcome Command(const std::string& line) {
    std::istringstream in(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    windows.calls.clear();
    return Run(std::vector<std::string_view>(words.begin(), words.end()));
}

const std::map<std::uint32_t, std::string> Installed{{1, "remotesp.tsp"}, {2, "kmddsp.tsp"}, {7, "ZT_6232.TSP"}};

// A Windows on which something stands in the way, the command, and what the user gets.
struct Trouble {
    const char* name;
    Windows on;
    const char* command;
    ExitCode code;
    std::vector<const char*> says;
    std::string calls = "";  // of the provider list and of TAPI, "; " behind each
};
// clang-format off
const Trouble Troubles[] = {
    {"no rights", {.administrator = false}, "install", EXIT_RIGHTS, {"Run as administrator"}},
    {"no rights to remove", {.administrator = false, .list = Installed}, "remove", EXIT_RIGHTS, {"rights"}},
    {"32-bit program on 64-bit Windows: redirected to another directory, and TAPI would load the wrong library",
     {.own = MACHINE_X86}, "install", EXIT_LIBRARY,
     {"This Windows is 64-bit (x64); this ztsetup is 32-bit (x86)", "Take ztsetup and zt_6232.tsp for 64-bit (x64)"}},
    {"64-bit program translated on ARM", {.system = MACHINE_ARM64}, "install", EXIT_LIBRARY,
     {"neither x86 nor x64", "There is no zt_6232.tsp for this kind"}},
    {"32-bit library on 64-bit Windows", {.files = {{PLACE, LibraryFor(MACHINE_X86)}}}, "install", EXIT_LIBRARY,
     {"System32\\zt_6232.tsp is 32-bit (x86), this Windows is 64-bit", "Take the zt_6232.tsp that is made"}},
    {"not copied yet, but unpacked", {.files = {{BESIDE, LibraryFor(MACHINE_X64)}}}, "install", EXIT_LIBRARY,
     {"System32\\zt_6232.tsp is not there", R"(copy "D:\unpacked\zt_6232.tsp" "C:\Windows\System32\zt_6232.tsp")"}},
    {"neither copied nor unpacked, or the wrong one unpacked", {.files = {{BESIDE, LibraryFor(MACHINE_X86)}}},
     "install", EXIT_LIBRARY, {"System32\\zt_6232.tsp is not there.\n"}},
    {"named where it was unpacked",
     {.files = {{PLACE, LibraryFor(MACHINE_X64)}, {BESIDE, LibraryFor(MACHINE_X64)}}}, "install zt_6232.tsp",
     EXIT_LIBRARY, {"loads providers only from C:\\Windows\\System32", R"(copy "D:\unpacked\zt_6232.tsp")"}},
    {"not a library", {.files = {{PLACE, "<html>"}}}, "install", EXIT_LIBRARY, {"is not a Windows library"}},
    {"may not be read", {.files = {{PLACE, "refused"}}}, "install", EXIT_LIBRARY, {"cannot be read"}},
    {"there already, in capitals", {.list = Installed}, "install", EXIT_NOTHING, {"installed already, as provider 7"}},
    {"there already, with its path", {.list = {{1, "remotesp.tsp"}, {9, PLACE}}}, "install", EXIT_NOTHING,
     {"already, as provider 9"}},
    {"no list", {.listError = 0x8000000E}, "install", EXIT_FAILED,
     {"LINEERR_INIFILECORRUPT (0x8000000e)", "Telephony\\Providers"}},
    {"refused without a reason", {.addError = 0x80000048}, "install", EXIT_FAILED,
     {"TAPI did not add", "LINEERR_OPERATIONFAILED (0x80000048)", "net stop tapisrv"}, "add zt_6232.tsp; "},
    {"refused, the service is disabled", {.service = Service::Disabled, .addError = 0x80000048}, "install",
     EXIT_SERVICE, {"sc config tapisrv start= demand"}, "add zt_6232.tsp; "},
    {"the service waits for programs", {.addError = 0x80000052}, "install", EXIT_SERVICE,
     {"End all programs that use the telephone"}, "add zt_6232.tsp; "},
    {"an answer that nobody knows", {.addError = 0x800000AB}, "install", EXIT_FAILED,
     {"TAPI's answer (0x800000ab)"}, "add zt_6232.tsp; "},
    {"added, says TAPI, but is not", {.ignores = true}, "install", EXIT_FAILED, {"its list does not have it"},
     "add zt_6232.tsp; remove 7; "},
    {"added, but then there is no list, and no way back",
     {.removeError = 0x8000000F,
      .onAdd = [] { windows.listError = 0x8000000E, windows.refused[R"(SOFTWARE\Corvane)"] = 5; }},
     "install", EXIT_FAILED,
     {"LINEERR_INIFILECORRUPT", "did not remove it again. LINEERR_INUSE",
      "Corvane from the account NETWORK SERVICE (acc"}, "add zt_6232.tsp; remove 7; "},
    {"not there", {}, "remove", EXIT_NOTHING, {"is not installed"}},
    {"in use", {.list = Installed, .removeError = 0x8000000F}, "remove", EXIT_SERVICE,
     {"TAPI did not remove", "LINEERR_INUSE"}, "remove 7; "},
    {"removed, says TAPI, but is not", {.ignores = true, .list = Installed}, "remove", EXIT_FAILED,
     {"its list still has it"}, "remove 7; "},
    {"removed, but still loaded", {.loaded = true, .list = Installed}, "remove", EXIT_DONE,
     {"still has the library loaded", "net stop tapisrv"}, "remove 7; "},
    {"twice in the list", {.list = {{1, "remotesp.tsp"}, {4, "zt_6232.tsp"}, {7, "ZT_6232.TSP"}}}, "remove", EXIT_DONE,
     {"removed"}, "remove 4; remove 7; "},
    {"in the list, file gone", {.files = {}, .list = Installed}, "status", EXIT_LIBRARY,
     {"zt_6232.tsp is not there\n", "in it, as provider 7", "cannot load the library"}},
    {"no list to show", {.listError = 0x80000061}, "status", EXIT_FAILED, {"net start tapisrv"}},
    {"not installed", {}, "status", EXIT_NOTHING, {"is there, for this Windows", "not in it"}},
    {"no command", {}, "", EXIT_USAGE, {"no command", "usage: ztsetup install"}},
    {"a wrong command", {}, "uninstall", EXIT_USAGE, {"unknown command uninstall"}},
    {"a wrong option", {}, "install --force", EXIT_USAGE, {"unexpected: --force"}},
    {"a word too many", {}, "remove zt_6232.tsp", EXIT_USAGE, {"unexpected: zt_6232.tsp"}},
    {"no TAPI", {.lineErrors = {{"start", 0x80000061}}}, "test", EXIT_SERVICE, {"net start tapisrv"}, "start; "},
    {"other lines alone", {.lines = {"Modem", "broken"}}, "test", EXIT_NOTHING, {"None of TAPI's lines is"},
     "start; end; "},
    {"no lines", {.lines = {}}, "test", EXIT_NOTHING, {"TAPI has no line at all.\n"}, "start; end; "},
    {"line in use", {.lineErrors = {{"open", 0x80000001}}}, "test", EXIT_SERVICE, {"LINEERR_ALLOCATED"},
     "start; open; end; "},
    {"closed by the provider", {.messages = {{MESSAGE_CLOSE, 1, 0, 0}}}, "test", EXIT_FAILED, {}, "start; open; end; "},
    {"two numbers", {}, "test 4750 4751", EXIT_USAGE, {"unexpected: 4751"}},
    {"no number", {}, "test LAMBERT", EXIT_USAGE, {"unexpected: LAMBERT"}},
    {"no time", {}, "test --seconds 0", EXIT_USAGE, {"from 1 to 86400"}},
    {"which time", {}, "test --seconds", EXIT_USAGE, {"unexpected: --seconds"}},
};
// clang-format on

TEST(Ztsetup, SaysWhatStandsInTheWayAndTouchesNothingElse) {
    for (const Trouble& trouble : Troubles) {
        SCOPED_TRACE(trouble.name);
        windows = trouble.on;
        const Outcome outcome = Command(trouble.command);
        EXPECT_EQ(outcome.code, trouble.code);
        const std::string said(outcome.message.View());
        for (const char* const words : trouble.says)
            EXPECT_THAT(said, HasSubstr(words));
        EXPECT_EQ(said.empty(), trouble.says.empty());
        EXPECT_TRUE(said.empty() || said.back() == '\n');
        std::string calls;
        for (const std::string& call : windows.calls)
            calls += call + "; ";
        EXPECT_EQ(calls, trouble.calls);
    }
}

TEST(Ztsetup, AddsAndRemovesThisProviderAlone) {
    windows = Windows{};
    const auto before = windows.list;
    EXPECT_EQ(Command(R"(install c:\windows\SYSTEM32\zt_6232.TSP --quiet)").code, EXIT_DONE);
    EXPECT_THAT(windows.calls, testing::ElementsAre("add zt_6232.tsp quiet"));
    EXPECT_EQ(Command("status").code, EXIT_DONE);
    EXPECT_THAT(windows.calls, IsEmpty());
    EXPECT_EQ(Command("remove").code, EXIT_DONE);
    EXPECT_EQ(windows.list, before);
}

std::size_t EntriesNow() {
    std::size_t count = 0;
    for (const auto& [path, list] : windows.places)
        count += list.count;
    return count;
}

// The service's account has one entry in each of the three places while the provider is installed, and at no other time; the
// event log then knows its source.
TEST(Ztsetup, GivesTheServicesAccountItsRightsWhileInstalled) {
    struct Row {
        const char* name;
        const char* command;
        ExitCode code;
        std::size_t entries, source;
        void (*make)();
    };
    const Row rows[] = {
        {"TAPI refuses: taken back", "install", EXIT_FAILED, 0, 0, [] { windows.addError = 0x80000048; }},
        {"but not what others gave, enough or too little", "install", EXIT_FAILED, 2, 0,
         [] {
             windows.places[R"(SOFTWARE\Corvane)"] = {{{{true, 2, 0xF003F}}}, 1};
             windows.places[R"(C:\Windows\spitrace)"] = {{{{true, 3, 0x20}, {true, 19, 0x1}}}, 2};
         }},
        {"not in the list: taken back", "install", EXIT_FAILED, 0, 0, [] { windows = {}, windows.ignores = true; }},
        {"installed", "install", EXIT_DONE, 3, 1, [] { windows.ignores = false; }},
        {"status", "status", EXIT_DONE, 3, 1, [] {}},
        {"once more: no second entries", "install", EXIT_NOTHING, 3, 1, [] {}},
        {"not removed: they stay", "remove", EXIT_SERVICE, 3, 1, [] { windows.removeError = 0x8000000F; }},
        {"removed", "remove", EXIT_DONE, 0, 0, [] { windows.removeError = 0; }},
        {"an earlier version was installed", "status", EXIT_ACCOUNT, 0, 0, [] { windows.list = Installed; }},
        {"an update gives them", "install", EXIT_NOTHING, 3, 1, [] {}},
        {"not in the list: those left are taken", "remove", EXIT_NOTHING, 0, 0, [] { windows.list.erase(7); }},
        {"one refused", "install", EXIT_ACCOUNT, 2, 1, [] { windows.refused[R"(SOFTWARE\Corvane)"] = 5; }},
    };
    windows = Windows{};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.make();
        const Outcome outcome = Command(row.command);
        EXPECT_EQ(outcome.code, row.code) << outcome.message.View();
        EXPECT_EQ(EntriesNow(), row.entries);
        EXPECT_EQ(windows.logSources.size(), row.source);
    }
    EXPECT_EQ(windows.logSources["zt_6232"], R"(%SystemRoot%\System32\zt_6232.tsp)");
    windows.logError = 5;
    EXPECT_THAT(std::string(Command("remove").message.View()), HasSubstr("sources of its event log (access is denied"));
    windows.list.erase(7);
    EXPECT_THAT(std::string(Command("install").message.View()), HasSubstr("entries without their sentences"));
    EXPECT_EQ(windows.list.count(7), 1U) << "the installation went on";
    EXPECT_THAT(std::string(Command("install").message.View()),
                HasSubstr("HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane (access is denied, error 5)"));
}

TEST(Ztsetup, KnowsWhichEntriesAreEnough) {
    constexpr AccessEntry WANTED{true, 3, 0x1301BF};
    struct Row {
        const char* name;
        std::vector<AccessEntry> entries;
        bool enough;
    };
    const Row rows[] = {
        {"none", {}, false},
        {"full access, inherited itself", {{true, 0x13, 0x1F01FF}}, true},
        {"in two", {{true, 3, 0x1200A9}, {true, 3, 0x110116}}, true},
        {"to read", {{true, 3, 0x1200A9}}, false},
        {"not for what is in it", {{true, 0, 0x1301BF}}, false},
        {"only for what is in it", {{true, 11, 0x1301BF}}, false},
        {"forbidden too", {{false, 3, 0x2}, {true, 3, 0x1301BF}}, false},
    };
    for (const Row& row : rows) {
        EntryList list;
        for (const AccessEntry& entry : row.entries)
            list.entries[list.count++] = entry;
        EXPECT_EQ(Grants(list, WANTED), row.enough) << row.name;
    }
    EntryList open;
    open.open = true;
    EXPECT_TRUE(Grants(open, WANTED)) << "no access list: everything is allowed";
}

// Files that a download broke, or that are something else: nothing is read past their end.
TEST(Ztsetup, TakesOnlyALibrarysHeader) {
    const auto machine = [](const std::string& text) {
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        return LibraryMachine(bytes);
    };
    const std::string whole = LibraryFor(MACHINE_X86);
    EXPECT_EQ(machine(whole), MACHINE_X86);
    EXPECT_EQ(machine(LibraryFor(MACHINE_X64, 0x0102)), 0) << "a program";
    for (std::size_t size = 0; size < 0x98; ++size)
        EXPECT_EQ(machine(whole.substr(0, size)), 0) << "cut to " << size;
    std::string far = whole;
    far[0x3F] = '\x7F';
    EXPECT_EQ(machine(far), 0) << "header past the file";
}

// --- ztsetup test

// What follows "s  " of each line shown that has a time.
std::vector<std::string> Events() {
    std::vector<std::string> events;
    std::istringstream in(windows.shown);
    for (std::string line; std::getline(in, line);)
        if (const std::size_t at = line.find(" s  "); at != std::string::npos)
            events.push_back(line.substr(at + 4));
    return events;
}

TEST(ZtsetupTest, ShowsTheLineAndItsEventsAsTheyCome) {
    windows = Windows{};
    windows.stopAfter = 12'000;
    windows.messages = {{MESSAGE_LINE_STATE, 1, 0x44, 0},       {MESSAGE_NEW_CALL, 1, 0, 0x100},
                        {MESSAGE_CALL_STATE, 0x100, 2, 0},      {MESSAGE_CALL_INFO, 0x100, 0x18000, 0},
                        {MESSAGE_CALL_STATE, 0x100, 1, 0},      {MESSAGE_NEW_CALL, 1, 0, 0x100},
                        {MESSAGE_CALL_INFO, 0x999, 0, 0},       {MESSAGE_ADDRESS_STATE, 1, 0, 0x40},
                        {MESSAGE_CALL_STATE, 0x100, 0x20000, 0}};
    const Outcome outcome = Command("test");
    EXPECT_EQ(outcome.code, EXIT_DONE);
    EXPECT_THAT(windows.shown, HasSubstr("CORVANE_ZT_6200_2.0_3, device 1\n"));
    EXPECT_THAT(windows.shown, HasSubstr("TAPI version:      2.0\nAddress:           4711\nActive calls:      20\n"
                                         "Can be asked:      FORWARD|MAKECALL\nOf its calls:      ANSWER|DROP\n"));
    EXPECT_THAT(windows.shown, HasSubstr("Ctrl+C"));
    EXPECT_THAT(Events(),
                testing::ElementsAre("LINE_LINEDEVSTATE: CONNECTED|INSERVICE", "LINE_APPNEWCALL: call 1",
                                     "LINE_CALLSTATE: call 1 OFFERING",
                                     "LINE_CALLINFO: call 1  caller 0145678901 \"DUPONT Élise\"  called 4711",
                                     "LINE_CALLSTATE: call 1 IDLE", "LINE_APPNEWCALL: call 2",
                                     "LINE_CALLINFO: call 3 has no parties to tell. TAPI's answer (0x80000018)",
                                     "LINE_ADDRESSSTATE: FORWARD", "LINE_CALLSTATE: call 2 0x20000"))
        << "a handle that comes again is another call";
    EXPECT_THAT(windows.calls, testing::ElementsAre("start", "open", "release 256", "end"));
}

TEST(ZtsetupTest, MakesACallAgainUntilTheKeysAreReadAndEndsIt) {
    windows = Windows{};
    windows.messages.assign(9, {MESSAGE_LINE_STATE, 1, 0x44, 0});  // a second each
    windows.messages[3] = {MESSAGE_REPLY, 1, 1, 0x80000048};
    windows.messages[5] = {MESSAGE_REPLY, 1, 2, 0};
    windows.messages[6] = {MESSAGE_CALL_STATE, 0x200, 0x100, 0};
    windows.messages[8] = {MESSAGE_CALL_STATE, 0x200, 1, 0};
    EXPECT_EQ(Command("test 4750 --seconds 8").code, EXIT_DONE);
    EXPECT_THAT(windows.calls,
                testing::ElementsAre("start", "open", "make 4750", "make 4750", "drop 512", "release 512", "end"));

    windows = Windows{};
    windows.lineErrors["make 4750"] = 0x80000048;
    const Outcome outcome = Command("test 4750 --seconds 20");
    EXPECT_EQ(outcome.code, EXIT_FAILED);
    EXPECT_THAT(outcome.message.text, HasSubstr("The call was not made"));
    EXPECT_EQ(std::count(windows.calls.begin(), windows.calls.end(), "make 4750"), 5);
}

}  // namespace
