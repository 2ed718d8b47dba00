// What ztsetup does and tells a user, on a Windows of the test's own making.
#include "ztsetup/setup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

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
    std::map<std::string, EntryList> places;  // what NETWORK SERVICE may do, there
    std::map<std::string, std::uint32_t> refused;
    std::map<std::string, std::string> logSources;
    std::uint32_t logError = 0;
    std::vector<std::string> calls;
};
Windows windows;

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

}  // namespace Setup

namespace {

Outcome Command(std::vector<std::string_view> words) {
    windows.calls.clear();
    return Run(words);
}

// A Windows on which something stands in the way, the command, and what the user gets.
struct Trouble {
    const char* name;
    void (*make)();
    std::vector<std::string_view> command;
    ExitCode code;
    std::vector<const char*> says;
    std::vector<std::string> calls = {};
};
void Installed() {
    windows.list[7] = "ZT_6232.TSP";
}
const Trouble Troubles[] = {
    {"no rights", [] { windows.administrator = false; }, {"install"}, EXIT_RIGHTS, {"Run as administrator"}},
    {"no rights to remove", [] { Installed(), windows.administrator = false; }, {"remove"}, EXIT_RIGHTS, {"rights"}},
    {"32-bit program on 64-bit Windows: redirected to another directory, and TAPI would load the wrong library",
     [] { windows.own = MACHINE_X86; },
     {"install"},
     EXIT_LIBRARY,
     {"This Windows is 64-bit (x64); this ztsetup is 32-bit (x86)", "Take ztsetup and zt_6232.tsp for 64-bit (x64)"}},
    {"64-bit program translated on ARM",
     [] { windows.system = MACHINE_ARM64; },
     {"install"},
     EXIT_LIBRARY,
     {"neither x86 nor x64", "There is no zt_6232.tsp for this kind"}},
    {"32-bit library on 64-bit Windows",
     [] {
         windows.files = {{PLACE, LibraryFor(MACHINE_X86)}};
     },
     {"install"},
     EXIT_LIBRARY,
     {"System32\\zt_6232.tsp is 32-bit (x86), this Windows is 64-bit", "Take the zt_6232.tsp that is made"}},
    {"not copied yet, but unpacked",
     [] {
         windows.files = {{BESIDE, LibraryFor(MACHINE_X64)}};
     },
     {"install"},
     EXIT_LIBRARY,
     {"System32\\zt_6232.tsp is not there", R"(copy "D:\unpacked\zt_6232.tsp" "C:\Windows\System32\zt_6232.tsp")"}},
    {"neither copied nor unpacked, or the wrong one unpacked",
     [] {
         windows.files = {{BESIDE, LibraryFor(MACHINE_X86)}};
     },
     {"install"},
     EXIT_LIBRARY,
     {"System32\\zt_6232.tsp is not there.\n"}},
    {"named where it was unpacked",
     [] { windows.files[BESIDE] = LibraryFor(MACHINE_X64); },
     {"install", "zt_6232.tsp"},
     EXIT_LIBRARY,
     {"loads providers only from C:\\Windows\\System32", R"(copy "D:\unpacked\zt_6232.tsp")"}},
    {"not a library", [] { windows.files[PLACE] = "<html>"; }, {"install"}, EXIT_LIBRARY, {"is not a Windows library"}},
    {"may not be read", [] { windows.files[PLACE] = "refused"; }, {"install"}, EXIT_LIBRARY, {"cannot be read"}},
    {"there already, in capitals", Installed, {"install"}, EXIT_NOTHING, {"installed already, as provider 7"}},
    {"there already, with its path",
     [] { windows.list[9] = PLACE; },
     {"install"},
     EXIT_NOTHING,
     {"already, as provider 9"}},
    {"no list",
     [] { windows.listError = 0x8000000E; },
     {"install"},
     EXIT_FAILED,
     {"LINEERR_INIFILECORRUPT (0x8000000e)", "Telephony\\Providers"}},
    {"refused without a reason",
     [] { windows.addError = 0x80000048; },
     {"install"},
     EXIT_FAILED,
     {"TAPI did not add", "LINEERR_OPERATIONFAILED (0x80000048)", "net stop tapisrv"},
     {"add zt_6232.tsp"}},
    {"refused, the service is disabled",
     [] { windows.addError = 0x80000048, windows.service = Service::Disabled; },
     {"install"},
     EXIT_SERVICE,
     {"sc config tapisrv start= demand"},
     {"add zt_6232.tsp"}},
    {"the service waits for programs",
     [] { windows.addError = 0x80000052; },
     {"install"},
     EXIT_SERVICE,
     {"End all programs that use the telephone"},
     {"add zt_6232.tsp"}},
    {"an answer that nobody knows",
     [] { windows.addError = 0x800000AB; },
     {"install"},
     EXIT_FAILED,
     {"TAPI's answer (0x800000ab)"},
     {"add zt_6232.tsp"}},
    {"added, says TAPI, but is not",
     [] { windows.ignores = true; },
     {"install"},
     EXIT_FAILED,
     {"its list does not have it"},
     {"add zt_6232.tsp", "remove 7"}},
    {"added, but then there is no list, and no way back",
     [] {
         windows.removeError = 0x8000000F;
         windows.onAdd = [] { windows.listError = 0x8000000E, windows.refused[R"(SOFTWARE\Corvane)"] = 5; };
     },
     {"install"},
     EXIT_FAILED,
     {"LINEERR_INIFILECORRUPT", "did not remove it again. LINEERR_INUSE",
      "Corvane from the account NETWORK SERVICE (acc"},
     {"add zt_6232.tsp", "remove 7"}},
    {"not there", [] {}, {"remove"}, EXIT_NOTHING, {"is not installed"}},
    {"in use",
     [] { Installed(), windows.removeError = 0x8000000F; },
     {"remove"},
     EXIT_SERVICE,
     {"TAPI did not remove", "LINEERR_INUSE"},
     {"remove 7"}},
    {"removed, says TAPI, but is not",
     [] { Installed(), windows.ignores = true; },
     {"remove"},
     EXIT_FAILED,
     {"its list still has it"},
     {"remove 7"}},
    {"removed, but still loaded",
     [] { Installed(), windows.loaded = true; },
     {"remove"},
     EXIT_DONE,
     {"still has the library loaded", "net stop tapisrv"},
     {"remove 7"}},
    {"twice in the list",
     [] { Installed(), windows.list[4] = "zt_6232.tsp"; },
     {"remove"},
     EXIT_DONE,
     {"removed"},
     {"remove 4", "remove 7"}},
    {"in the list, file gone",
     [] { Installed(), windows.files.clear(); },
     {"status"},
     EXIT_LIBRARY,
     {"zt_6232.tsp is not there\n", "in it, as provider 7", "cannot load the library"}},
    {"no list to show", [] { windows.listError = 0x80000061; }, {"status"}, EXIT_FAILED, {"net start tapisrv"}},
    {"not installed", [] {}, {"status"}, EXIT_NOTHING, {"is there, for this Windows", "not in it"}},
    {"no command", [] {}, {}, EXIT_USAGE, {"no command", "usage: ztsetup install"}},
    {"a wrong command", [] {}, {"uninstall"}, EXIT_USAGE, {"unknown command uninstall"}},
    {"a wrong option", [] {}, {"install", "--force"}, EXIT_USAGE, {"unexpected: --force"}},
    {"a word too many", [] {}, {"remove", "zt_6232.tsp"}, EXIT_USAGE, {"unexpected: zt_6232.tsp"}},
};

TEST(Ztsetup, SaysWhatStandsInTheWayAndTouchesNothingElse) {
    for (const Trouble& trouble : Troubles) {
        SCOPED_TRACE(trouble.name);
        windows = Windows{};
        trouble.make();
        const Outcome outcome = Command(trouble.command);
        EXPECT_EQ(outcome.code, trouble.code);
        for (const char* const words : trouble.says)
            EXPECT_THAT(std::string(outcome.message.View()), HasSubstr(words));
        EXPECT_EQ(outcome.message.View().back(), '\n');
        EXPECT_EQ(windows.calls, trouble.calls);
    }
}

TEST(Ztsetup, AddsAndRemovesThisProviderAlone) {
    windows = Windows{};
    const auto before = windows.list;
    EXPECT_EQ(Command({"install", R"(c:\windows\SYSTEM32\zt_6232.TSP)", "--quiet"}).code, EXIT_DONE);
    EXPECT_THAT(windows.calls, testing::ElementsAre("add zt_6232.tsp quiet"));
    EXPECT_EQ(Command({"status"}).code, EXIT_DONE);
    EXPECT_THAT(windows.calls, IsEmpty());
    EXPECT_EQ(Command({"remove"}).code, EXIT_DONE);
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
        std::vector<std::string_view> command;
        ExitCode code;
        std::size_t entries, source;
        void (*make)();
    };
    const Row rows[] = {
        {"TAPI refuses: taken back", {"install"}, EXIT_FAILED, 0, 0, [] { windows.addError = 0x80000048; }},
        {"but not what others gave, enough or too little",
         {"install"},
         EXIT_FAILED,
         2,
         0,
         [] {
             windows.places[R"(SOFTWARE\Corvane)"] = {{{{true, 2, 0xF003F}}}, 1};
             windows.places[R"(C:\Windows\spitrace)"] = {{{{true, 3, 0x20}, {true, 19, 0x1}}}, 2};
         }},
        {"not in the list: taken back", {"install"}, EXIT_FAILED, 0, 0, [] { windows = {}, windows.ignores = true; }},
        {"installed", {"install"}, EXIT_DONE, 3, 1, [] { windows.ignores = false; }},
        {"status", {"status"}, EXIT_DONE, 3, 1, [] {}},
        {"once more: no second entries", {"install"}, EXIT_NOTHING, 3, 1, [] {}},
        {"not removed: they stay", {"remove"}, EXIT_SERVICE, 3, 1, [] { windows.removeError = 0x8000000F; }},
        {"removed", {"remove"}, EXIT_DONE, 0, 0, [] { windows.removeError = 0; }},
        {"an earlier version was installed", {"status"}, EXIT_ACCOUNT, 0, 0, Installed},
        {"an update gives them", {"install"}, EXIT_NOTHING, 3, 1, [] {}},
        {"not in the list: those left are taken", {"remove"}, EXIT_NOTHING, 0, 0, [] { windows.list.erase(7); }},
        {"one refused", {"install"}, EXIT_ACCOUNT, 2, 1, [] { windows.refused[R"(SOFTWARE\Corvane)"] = 5; }},
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
    EXPECT_THAT(std::string(Command({"remove"}).message.View()),
                HasSubstr("sources of its event log (access is denied"));
    windows.list.erase(7);
    EXPECT_THAT(std::string(Command({"install"}).message.View()), HasSubstr("entries without their sentences"));
    EXPECT_EQ(windows.list.count(7), 1U) << "the installation went on";
    EXPECT_THAT(std::string(Command({"install"}).message.View()),
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

}  // namespace
