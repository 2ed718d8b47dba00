#include "ztsetup/setup.h"

#include "ztsetup/report.h"
#include "ztsetup/trial.h"

#include <algorithm>
#include <charconv>

namespace Setup {

namespace {

constexpr std::string_view LIBRARY = "zt_6232.tsp";

constexpr std::string_view USAGE = "usage: ztsetup install [FILE] [--quiet]\n"
                                   "       ztsetup remove\n"
                                   "       ztsetup status\n"
                                   "       ztsetup test [NUMBER] [--seconds N]\n"
                                   "       ztsetup trace on|off\n"
                                   "       ztsetup report FILE [--mask]\n"
                                   "       ztsetup --help\n";

constexpr std::string_view HELP =
    "Adds the provider zt_6232.tsp to the Windows telephony service, removes it, or says how things are.\n"
    "\n"
    "  install   adds it. The library must be in the Windows system directory under its own name; FILE, where it is\n"
    "            given, must name it there. Windows then opens its configuration dialog: choose the COM port.\n"
    "            --quiet  closes the dialog at once, as Cancel does: the settings stay as they are\n"
    "            It also gives NETWORK SERVICE, the telephony service's account, the rights to write the provider's\n"
    "            settings (HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane, zt62cfg.ini) and trace (spitrace), and makes its\n"
    "            entries known to the Event Viewer (source zt_6232)\n"
    "  remove    takes it out of the list of providers, those rights back, and that source away; library and settings\n"
    "            stay\n"
    "  status    shows this Windows, the library, the telephony service and its rights, and the list of providers\n"
    "  test      opens the provider's line as an application does, shows what it can do, and its events as they come, "
    "until\n"
    "            Ctrl+C; other programs keep their calls. NUMBER  also makes a call there, and ends it at the end\n"
    "            --seconds N  ends by itself\n"
    "  trace     on: the provider is to trace everything; off: only what it always does. It reads that when the\n"
    "            telephony service starts\n"
    "  report    writes FILE, an archive (tar) for who looks into a fault: trace, settings, versions, serial ports.\n"
    "            zttrace reads it as it is. --mask  replaces the digits of telephone numbers\n"
    "\n"
    "install, remove and trace need administrator rights.\n"
    "\n"
    "exit codes:\n"
    "  0  done; status: installed\n"
    "  1  failed: the text says why\n"
    "  2  the command line is wrong\n"
    "  3  administrator rights are missing\n"
    "  4  the library is missing, in the wrong place, or not for this Windows\n"
    "  5  nothing to do: already installed (install), not installed (remove, status), no such line (test)\n"
    "  6  the telephony service does not run or is busy: try again\n"
    "  8  done, or installed (status), but the account NETWORK SERVICE has not the rights that it should have\n";

// --- words for what TAPI answers -------------------------------------------------------------------------------------

struct TapiError {
    std::uint32_t code;
    bool later;  // the same may succeed another time
    std::string_view name, words;
};
constexpr TapiError TapiErrors[] = {
    {0x80000001, true, "LINEERR_ALLOCATED",
     "the serial port did not open: another program has it, or it is not there. Look at the port's number in the "
     "configuration dialog."},
    {0x8000000C, false, "LINEERR_INCOMPATIBLEAPIVERSION", "this Windows has no TAPI 2.0."},
    {0x8000000E, false, "LINEERR_INIFILECORRUPT",
     "the list of providers in the registry is damaged. Look at HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\"
     "CurrentVersion\\Telephony\\Providers."},
    {0x8000000F, true, "LINEERR_INUSE",
     "the provider is in use. End all programs that use the telephone, then try again."},
    {0x80000032, false, "LINEERR_INVALPARAM", "TAPI does not take the library's name or number."},
    {0x80000042, false, "LINEERR_NODEVICE", "the library offers no line to Windows."},
    {0x80000043, false, "LINEERR_NODRIVER",
     "the library, or one that it needs, could not be loaded. Copy zt_6232.tsp again."},
    {0x80000044, true, "LINEERR_NOMEM", "there is not enough memory. End some programs, then try again."},
    {0x80000048, false, "LINEERR_OPERATIONFAILED",
     "Windows gives no reason. Mostly the telephony service did not start, could not load the library, or refused the "
     "account. End all programs that use the telephone, restart the service (net stop tapisrv), then try again."},
    {0x80000049, false, "LINEERR_OPERATIONUNAVAIL", "this Windows does not offer that."},
    {0x8000004B, true, "LINEERR_RESOURCEUNAVAIL", "the telephony service is short of something. Try again later."},
    {0x80000052, true, "LINEERR_REINIT",
     "the telephony service is about to start anew and waits for programs that still use it. End all programs that use "
     "the telephone, then try again."},
    {0x80000056, false, "LINEERR_NOMULTIPLEINSTANCE", "the provider is in the list of providers already."},
    {0x8000005D, false, "LINEERR_USERCANCELLED", "it was cancelled."},
    {0x80000061, true, "LINEERR_SERVICE_NOT_RUNNING",
     "the telephony service does not run. Start it (net start tapisrv), then try again."},
};

struct ServiceWords {
    Service service;
    bool later;                     // an error may be over soon
    std::string_view status, hint;  // the hint goes with an error; empty where the service explains nothing
};
constexpr ServiceWords Services[] = {
    {Service::Running, false, "running", ""},
    {Service::Stopped, false, "stopped (Windows starts it when a program needs it)", ""},
    {Service::Changing, true, "starting or stopping",
     "The telephony service is just starting or stopping: try again in a minute.\n"},
    {Service::Disabled, true, "disabled",
     "The telephony service is disabled. Allow it (sc config tapisrv start= demand), then try again.\n"},
    {Service::Missing, false, "not there", "This Windows has no telephony service (tapisrv).\n"},
    {Service::Unknown, false, "unknown", ""},
};

const ServiceWords& WordsFor(Service service) {
    return *std::find_if(std::begin(Services), std::end(Services),
                         [&](const ServiceWords& words) { return words.service == service; });
}

}  // namespace

void AddTapiWords(Message& message, std::uint32_t code) {
    const auto* const error =
        std::find_if(std::begin(TapiErrors), std::end(TapiErrors), [&](const TapiError& e) { return e.code == code; });
    const bool known = error != std::end(TapiErrors);
    message.Add(known ? error->name : "TAPI's answer").Add(" (0x").AddNumber(code, 16).Add(")");
    if (known)
        message.Add(": ").Add(error->words);
    message.Add("\n");
}

Outcome TapiFailure(std::string_view what, std::uint32_t code) {
    Outcome outcome{EXIT_FAILED, Message(what)};
    AddTapiWords(outcome.message, code);
    const ServiceWords& service = WordsFor(TelephonyService());
    outcome.message.Add(service.hint);
    const bool later = std::any_of(std::begin(TapiErrors), std::end(TapiErrors),
                                   [&](const TapiError& error) { return error.code == code && error.later; });
    if (later || service.later)
        outcome.code = EXIT_SERVICE;
    return outcome;
}

namespace {

// --- the system and the library --------------------------------------------------------------------------------------

std::string_view MachineWords(std::uint16_t machine) {
    return machine == MACHINE_X86 ? "32-bit (x86)" : machine == MACHINE_X64 ? "64-bit (x64)" : "neither x86 nor x64";
}

// The library's dialogs run in the program that adds it, so this program must be of the system's kind too.
bool SystemFits(Outcome& outcome) {
    const std::uint16_t system = SystemMachine();
    if (system == OwnMachine())
        return true;
    outcome.code = EXIT_LIBRARY;
    outcome.message.Add("This Windows is ").Add(MachineWords(system)).Add("; this ztsetup is ");
    outcome.message.Add(MachineWords(OwnMachine())).Add(".\n");
    if (system == MACHINE_X86 || system == MACHINE_X64)
        outcome.message.Add("Its telephony service loads only a library of its own kind. Take ztsetup and zt_6232.tsp ")
            .Add(system == MACHINE_X64 ? "for 64-bit (x64)" : "for 32-bit (x86)")
            .Add(" Windows.\n");
    else
        outcome.message.Add("There is no zt_6232.tsp for this kind of Windows.\n");
    return false;
}

bool HasRights(Outcome& outcome) {
    if (IsAdministrator())
        return true;
    outcome.code = EXIT_RIGHTS;
    outcome.message.Add("Administrator rights are needed. Open a command prompt with \"Run as administrator\" and try "
                        "again.\n");
    return false;
}

bool SameText(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

Path In(const Path& directory, std::string_view file) {
    Path path = directory;
    return path.Add("\\").Add(file);
}

void AddCopyAdvice(Message& message, const Path& from, const Path& to) {
    message.Add("Copy it there first, in a command prompt with administrator rights:\n  copy \"").Add(from.View());
    message.Add("\" \"").Add(to.View()).Add("\"\n");
}

// Why the file at `path` is no library that this system's telephony service loads; nothing where it is one.
Message LibraryFault(const Path& path) {
    Message fault;
    const Head head = ReadHead(path);
    if (head.reading == Reading::Missing)
        return fault.Add("is not there");
    if (head.reading == Reading::Refused)
        return fault.Add("cannot be read");
    const std::uint16_t machine = LibraryMachine(std::span(head.bytes).first(head.size));
    if (machine == 0)
        return fault.Add("is not a Windows library, or is damaged");
    if (machine != SystemMachine())
        fault.Add("is ").Add(MachineWords(machine)).Add(", this Windows is ").Add(MachineWords(SystemMachine()));
    return fault;
}

bool LibraryFits(std::string_view named, Outcome& outcome) {
    const Path place = In(SystemDirectory(), LIBRARY);
    const Path path = named.empty() ? place : FullPath(named);
    Message& message = outcome.message;
    outcome.code = EXIT_LIBRARY;
    const Message fault = LibraryFault(path);
    if (fault.length != 0) {
        message.Add(path.View()).Add(" ").Add(fault.View()).Add(".\n");
        const Path beside = In(OwnDirectory(), LIBRARY);
        if (LibraryFault(beside).length == 0)
            AddCopyAdvice(message, beside, place);
        else if (ReadHead(path).reading == Reading::Read)
            message.Add("Take the zt_6232.tsp that is made for this Windows.\n");
        return false;
    }
    if (!SameText(path.View(), place.View())) {
        message.Add("The telephony service loads providers only from ").Add(SystemDirectory().View());
        message.Add(", and this one under the name ").Add(LIBRARY).Add(".\n");
        AddCopyAdvice(message, path, place);
        return false;
    }
    outcome.code = EXIT_DONE;
    return true;
}

// --- the rights of the telephony service's account -------------------------------------------------------------------

// From Windows Vista on the telephony service runs as NETWORK SERVICE, which may write none of these by itself.
constexpr std::string_view ACCOUNT = "NETWORK SERVICE";
constexpr std::uint8_t TO_FILES = 1, TO_FOLDERS = 2, ONLY_BELOW = 8, INHERITED = 16;  // ACE flags; keys are folders

struct Need {
    Kind kind;
    std::string_view name;  // of a folder or file: in the Windows directory
    AccessEntry entry;
    std::string_view otherwise;
};
constexpr Need Needs[] = {
    // Full access: the library opens its keys with it even to read.
    {Kind::Key, "SOFTWARE\\Corvane", {true, TO_FOLDERS, 0x000F003F}, "the provider has neither port nor settings"},
    // To change, that is without the rights to change rights and owner; the library renames its files.
    {Kind::Folder, "spitrace", {true, TO_FILES | TO_FOLDERS, 0x001301BF}, "the provider writes no trace"},
    // To read and write: Windows reads an INI file before it writes it.
    {Kind::File, "zt62cfg.ini", {true, 0, 0x0012019F}, "the provider does not write its settings there too"},
};

Place PlaceOf(const Need& need) {
    return {need.kind, need.kind == Kind::Key ? Path(need.name) : In(WindowsDirectory(), need.name)};
}

Message& AddPlace(Message& message, const Need& need) {
    return message.Add(need.kind == Kind::Key ? "HKEY_LOCAL_MACHINE\\" : "").Add(PlaceOf(need).path.View());
}

Message& AddWindowsError(Message& message, std::uint32_t error) {
    return message.Add(error == 5 ? "access is denied, " : "").Add("error ").AddNumber(error);
}

// What one run did to a place, so that it can be undone.
struct Given {
    bool made = false, added = false;
    EntryList before;
};
using AllGiven = std::array<Given, std::size(Needs)>;

std::uint32_t GiveRight(const Need& need, Given& given) {
    const Place place = PlaceOf(need);
    const bool missing = ReadEntries(place, given.before) == PLACE_MISSING;
    std::uint32_t error = MakePlace(place);
    given.made = missing && error == 0;
    if (error == 0)
        error = ReadEntries(place, given.before);
    if (error != 0 || Grants(given.before, need.entry))
        return error;
    error = AddEntry(place, need.entry);
    given.added = error == 0;
    return error;
}

// An installation goes on without them, and says so.
AllGiven GiveRights(Outcome& outcome) {
    AllGiven all;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const Need& need = Needs[i];
        const std::uint32_t error = GiveRight(need, all[i]);
        if (error == 0)
            continue;
        outcome.code = EXIT_ACCOUNT;
        outcome.message.Add("Windows did not give the account ").Add(ACCOUNT).Add(" its rights to ");
        AddWindowsError(AddPlace(outcome.message, need).Add(" ("), error)
            .Add(").\n  Where the telephony service runs ");
        outcome.message.Add("under that account, ").Add(need.otherwise).Add(".\n");
    }
    return all;
}

void AddNotTaken(Message& message, const Need& need, std::uint32_t error) {
    message.Add("Windows did not take the rights to ");
    AddWindowsError(AddPlace(message, need).Add(" from the account ").Add(ACCOUNT).Add(" ("), error).Add(").\n");
}

// At a removal nothing is left of them, whoever gave them; what is empty goes too.
void TakeRights(Outcome& outcome) {
    for (const Need& need : Needs) {
        const Place place = PlaceOf(need);
        EntryList list;
        std::uint32_t error = ReadEntries(place, list);
        if (error == PLACE_MISSING)
            continue;
        if (error == 0 && list.count != 0)
            error = RemoveEntries(place);
        RemoveEmpty(place);
        if (error == 0)
            continue;
        outcome.code = EXIT_ACCOUNT;
        AddNotTaken(outcome.message, need, error);
    }
}

std::uint32_t TakeBack(const Place& place, const Given& given) {
    std::uint32_t error = 0;
    if (given.added) {
        error = RemoveEntries(place);
        for (const AccessEntry& entry : std::span(given.before.entries).first(given.before.count))
            if (error == 0 && (entry.flags & INHERITED) == 0)
                error = AddEntry(place, entry);
    }
    if (given.made)
        RemoveEmpty(place);
    return error;
}

// After an installation that failed everything is as before it: others may have given the account rights too.
void TakeBackRights(const AllGiven& all, Message& message) {
    for (std::size_t i = 0; i < all.size(); ++i)
        if (const std::uint32_t error = TakeBack(PlaceOf(Needs[i]), all[i]); error != 0)
            AddNotTaken(message, Needs[i], error);
}

enum class Holding { All, NotAll, Unknown };

Holding AddHolding(Message& message) {
    Holding holding = Holding::All;
    message.Add("Service's account:  ").Add(ACCOUNT);
    for (const Need& need : Needs) {
        EntryList list;
        const std::uint32_t error = ReadEntries(PlaceOf(need), list);
        if (error == 0 && Grants(list, need.entry))
            continue;
        message.Add(holding == Holding::All ? "\n" : "");
        if (error == 0 || error == PLACE_MISSING) {
            holding = Holding::NotAll;
            AddPlace(message.Add("  lacks rights to "), need).Add("\n");
        } else {
            holding = holding == Holding::All ? Holding::Unknown : holding;
            AddWindowsError(AddPlace(message.Add("  may have rights to "), need).Add(": "), error).Add("\n");
        }
    }
    message.Add(holding == Holding::All ? " has its rights\n" : "");
    return holding;
}

// --- the event log ---------------------------------------------------------------------------------------------------

constexpr std::string_view LOG_SOURCE = "zt_6232";
constexpr std::string_view LOG_FILE = "%SystemRoot%\\System32\\zt_6232.tsp";

// Without it the provider's entries come all the same, but the Event Viewer does not find their sentences.
void AddToEventLog(Message& message) {
    if (const std::uint32_t error = AddLogSource(LOG_SOURCE, LOG_FILE); error != 0)
        AddWindowsError(message.Add("Windows did not take ").Add(LOG_SOURCE).Add(" as a source of its event log ("),
                        error)
            .Add(").\n  The Event Viewer shows its entries without their sentences.\n");
}

void RemoveFromEventLog(Message& message) {
    if (const std::uint32_t error = RemoveLogSource(LOG_SOURCE); error != 0)
        AddWindowsError(
            message.Add("Windows did not remove ").Add(LOG_SOURCE).Add(" from the sources of its event log ("), error)
            .Add(").\n");
}

// --- TAPI's list -----------------------------------------------------------------------------------------------------

bool IsOurs(const Provider& provider) {
    std::string_view file = provider.file.View();
    file.remove_prefix(file.find_last_of("\\/") + 1);  // npos + 1 is 0
    return SameText(file, LIBRARY);
}

const Provider* FindOurs(const ProviderList& list) {
    const auto end = list.entries.begin() + static_cast<std::ptrdiff_t>(list.count);
    const auto found = std::find_if(list.entries.begin(), end, IsOurs);
    return found == end ? nullptr : &*found;
}

constexpr std::string_view LIST_FAILED = "TAPI does not give its list of providers.\n";

// --- the commands ----------------------------------------------------------------------------------------------------

// Where TAPI's list does not show what TAPI said it added, the provider is removed again: a failed installation must leave
// none in the list, as its file may go.
Outcome Add(bool quiet, std::uint32_t& id) {
    if (const std::uint32_t error = AddProvider(LIBRARY, quiet, id); error != 0)
        return TapiFailure("TAPI did not add the provider.\n", error);
    Outcome outcome;
    ProviderList list;
    if (const std::uint32_t error = ListProviders(list); error != 0)
        outcome = TapiFailure(LIST_FAILED, error);
    else if (FindOurs(list) == nullptr)
        outcome = {EXIT_FAILED, Message("TAPI said that it added the provider, but its list does not have it.\n")};
    if (outcome.code == EXIT_DONE)
        return outcome;
    if (const std::uint32_t error = RemoveProvider(id); error != 0) {
        AddTapiWords(outcome.message.Add("TAPI did not remove it again. "), error);
        outcome.message.Add("Look later (ztsetup status), and remove it if it is in the list (ztsetup remove).\n");
    }
    return outcome;
}

Outcome Install(std::string_view file, bool quiet) {
    Outcome outcome;
    if (!SystemFits(outcome) || !HasRights(outcome) || !LibraryFits(file, outcome))
        return outcome;
    ProviderList list;
    if (const std::uint32_t error = ListProviders(list); error != 0)
        return TapiFailure(LIST_FAILED, error);
    if (const Provider* const ours = FindOurs(list)) {
        outcome.code = EXIT_NOTHING;
        outcome.message.Add("The provider is installed already, as provider ").AddNumber(ours->id).Add(".\n");
        GiveRights(outcome);  // an earlier version did not
        AddToEventLog(outcome.message);
        return outcome;
    }
    Outcome rights;
    const AllGiven given = GiveRights(rights);  // before the service loads the library
    std::uint32_t id = 0;
    outcome = Add(quiet, id);
    if (outcome.code != EXIT_DONE) {
        TakeBackRights(given, outcome.message);
        return outcome;
    }
    outcome.message.Add("The provider is installed, as provider ").AddNumber(id).Add(".\n");
    outcome.message.Add(
        "Its COM port is set in Control Panel, \"Phone and Modem\", tab \"Advanced\", \"Configure\".\n");
    outcome.message.Add(rights.message.View());
    AddToEventLog(outcome.message);
    outcome.code = rights.code;
    return outcome;
}

Outcome Remove() {
    Outcome outcome;
    if (!SystemFits(outcome) || !HasRights(outcome))
        return outcome;
    ProviderList list;
    if (const std::uint32_t error = ListProviders(list); error != 0)
        return TapiFailure(LIST_FAILED, error);
    if (FindOurs(list) == nullptr) {
        outcome = {EXIT_NOTHING, Message("The provider is not installed.\n")};
        TakeRights(outcome);
        RemoveFromEventLog(outcome.message);
        return outcome;
    }
    for (std::size_t i = 0; i < list.count; ++i) {  // someone may have added it twice
        if (!IsOurs(list.entries[i]))
            continue;
        if (const std::uint32_t error = RemoveProvider(list.entries[i].id); error != 0)
            return TapiFailure("TAPI did not remove the provider.\n", error);
    }
    if (const std::uint32_t error = ListProviders(list); error != 0)
        return TapiFailure(LIST_FAILED, error);
    if (FindOurs(list) != nullptr)
        return {EXIT_FAILED, Message("TAPI said that it removed the provider, but its list still has it.\n")};
    outcome.message.Add("The provider is removed from the list. Its settings stay.\n");
    TakeRights(outcome);
    RemoveFromEventLog(outcome.message);
    if (const Path place = In(SystemDirectory(), LIBRARY); InUse(place))
        outcome.message
            .Add("The telephony service still has the library loaded. End all programs that use the telephone "
                 "and stop the\nservice (net stop tapisrv) before you delete ")
            .Add(place.View())
            .Add(".\n");
    return outcome;
}

Outcome Status() {
    Outcome outcome;
    if (!SystemFits(outcome))
        return outcome;
    Message& message = outcome.message;
    const Path place = In(SystemDirectory(), LIBRARY);
    const Message fault = LibraryFault(place);
    message.Add("Windows:            ").Add(MachineWords(SystemMachine())).Add("\nLibrary:            ");
    message.Add(place.View()).Add(" ").Add(fault.length == 0 ? "is there, for this Windows" : fault.View());
    message.Add("\nTelephony service:  ").Add(WordsFor(TelephonyService()).status);
    const Holding holding = AddHolding(message.Add("\n"));
    message.Add("List of providers:  ");
    ProviderList list;
    if (const std::uint32_t error = ListProviders(list); error != 0) {
        outcome.code = EXIT_FAILED;
        AddTapiWords(message, error);
        return outcome;
    }
    const Provider* const ours = FindOurs(list);
    if (ours == nullptr) {
        outcome.code = EXIT_NOTHING;
        message.Add("not in it\nThe provider is not installed.\n");
        return outcome;
    }
    message.Add("in it, as provider ").AddNumber(ours->id).Add("\n");
    outcome.code = fault.length != 0 ? EXIT_LIBRARY : holding == Holding::NotAll ? EXIT_ACCOUNT : EXIT_DONE;
    message.Add(fault.length == 0 ? "The provider is installed.\n"
                                  : "The provider is in the list, but Windows cannot load the library.\n");
    if (outcome.code == EXIT_ACCOUNT)
        message.Add("The account gets its rights by: ztsetup install\n");
    return outcome;
}

Outcome WrongUsage(std::string_view why, std::string_view word) {
    Outcome outcome{EXIT_USAGE, Message("ztsetup: ")};
    outcome.message.Add(why).Add(word).Add("\n").Add(USAGE);
    return outcome;
}

bool IsNumberToDial(std::string_view word) {
    return !word.empty() && word.find_first_not_of("0123456789*#+") == std::string_view::npos;
}

Outcome Test(std::span<const std::string_view> words) {
    std::string_view number;
    std::uint32_t seconds = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--seconds" && i + 1 < words.size()) {
            const std::string_view text = words[++i];
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
            if (error != std::errc{} || end != text.data() + text.size() || seconds == 0 || seconds > 86'400)
                return WrongUsage("seconds are a number from 1 to 86400, not ", text);
        } else if (number.empty() && IsNumberToDial(words[i])) {
            number = words[i];
        } else {
            return WrongUsage("unexpected: ", words[i]);
        }
    }
    return TestLine(number, seconds);
}

Outcome Trace(std::span<const std::string_view> words) {
    if (words.size() != 1 || (words[0] != "on" && words[0] != "off"))
        return WrongUsage("trace is on or off", "");
    Outcome outcome;
    if (!SystemFits(outcome) || !HasRights(outcome))
        return outcome;
    return SetTrace(words[0] == "on");
}

Outcome Report(std::span<const std::string_view> words) {
    std::string_view file;
    bool mask = false;
    for (const std::string_view word : words) {
        if (word == "--mask")
            mask = true;
        else if (file.empty() && !word.empty() && word[0] != '-')
            file = word;
        else
            return WrongUsage("unexpected: ", word);
    }
    if (file.empty())
        return WrongUsage("no file is named for the report", "");
    Outcome outcome;
    return SystemFits(outcome) ? WriteReport(file, mask) : outcome;
}

}  // namespace

std::uint16_t LibraryMachine(std::span<const std::uint8_t> head) {
    const auto number = [&](std::size_t at) {
        return at + 2 > head.size() ? 0U : static_cast<unsigned>(head[at] | head[at + 1] << 8);
    };
    constexpr unsigned IS_DLL = 0x2000;
    if (number(0) != ('M' | 'Z' << 8) || number(0x3E) != 0)  // the header's place is 32 bits, its own high half 0
        return 0;
    const std::size_t header = number(0x3C);
    if (number(header) != ('P' | 'E' << 8) || number(header + 2) != 0 || (number(header + 22) & IS_DLL) == 0)
        return 0;
    return static_cast<std::uint16_t>(number(header + 4));
}

bool Grants(const EntryList& list, const AccessEntry& wanted) {
    std::uint32_t allowed = 0, denied = 0;
    for (const AccessEntry& entry : std::span(list.entries).first(list.count)) {
        const bool below = (entry.flags & wanted.flags) == wanted.flags;
        if (!entry.allows)
            denied |= entry.access;
        else if (below && (entry.flags & ONLY_BELOW) == 0)
            allowed |= entry.access;
    }
    return list.open || (wanted.access & ~(allowed & ~denied)) == 0;
}

Outcome Run(std::span<const std::string_view> words) {
    if (words.empty())
        return WrongUsage("no command", "");
    if (words[0] == "test")
        return Test(words.subspan(1));
    if (words[0] == "trace")
        return Trace(words.subspan(1));
    if (words[0] == "report")
        return Report(words.subspan(1));
    std::string_view file;
    bool quiet = false;
    for (const std::string_view word : words.subspan(1)) {
        if (word == "--quiet" && words[0] == "install")
            quiet = true;
        else if (words[0] == "install" && file.empty() && !word.empty() && word[0] != '-')
            file = word;
        else
            return WrongUsage("unexpected: ", word);
    }
    if (words[0] == "--help")
        return {EXIT_DONE, Message(USAGE).Add(HELP)};
    if (words[0] == "install")
        return Install(file, quiet);
    if (words[0] == "remove")
        return Remove();
    if (words[0] == "status")
        return Status();
    return WrongUsage("unknown command ", words[0]);
}

}  // namespace Setup
