// What ztsetup asks of Windows and of TAPI. windows.cpp asks them; the tests have answers of their own.
#pragma once

#include "ztsetup/text.h"

#include <array>
#include <cstdint>
#include <span>

namespace Setup {

// The kinds of processor that matter here, by the codes that a program's header has for them.
constexpr std::uint16_t MACHINE_X86 = 0x014C;
constexpr std::uint16_t MACHINE_X64 = 0x8664;

std::uint16_t SystemMachine();  // of the system itself, whatever kind of program this is
std::uint16_t OwnMachine();
bool IsAdministrator();

Path SystemDirectory();
Path OwnDirectory();
Path FullPath(std::string_view path);

enum class Reading { Read, Missing, Refused };
struct Head {
    Reading reading = Reading::Missing;
    std::array<std::uint8_t, 4096> bytes{};
    std::size_t size = 0;
};
Head ReadHead(const Path& path);
bool InUse(const Path& path);  // some process has it loaded

enum class Service { Running, Stopped, Changing, Disabled, Missing, Unknown };
Service TelephonyService();

// TAPI's own functions: 0, or a LINEERR_ code.
struct Provider {
    std::uint32_t id = 0;
    TextOf<260> file;
};
struct ProviderList {
    std::array<Provider, 64> entries;
    std::size_t count = 0;
};
std::uint32_t ListProviders(ProviderList& list);
// Runs the library's configuration dialog in this process; quiet: closed at once, as by Cancel.
std::uint32_t AddProvider(std::string_view file, bool quiet, std::uint32_t& id);
std::uint32_t RemoveProvider(std::uint32_t id);

// What the telephony service's account, NETWORK SERVICE, must be able to write. 0, or Windows' error code.
enum class Kind { Key, Folder, File };
struct Place {
    Kind kind = Kind::Key;
    Path path;  // a key's: below HKEY_LOCAL_MACHINE
};
struct AccessEntry {
    bool allows = false;
    std::uint8_t flags = 0;    // ACE flags
    std::uint32_t access = 0;  // access mask
};
struct EntryList {
    std::array<AccessEntry, 16> entries;
    std::size_t count = 0;
    bool open = false;  // no access list at all: everybody has every right
};
constexpr std::uint32_t PLACE_MISSING = 2;  // ERROR_FILE_NOT_FOUND
Path WindowsDirectory();
std::uint32_t MakePlace(const Place& place);                     // where it is missing
std::uint32_t ReadEntries(const Place& place, EntryList& list);  // those of NETWORK SERVICE alone
std::uint32_t AddEntry(const Place& place, const AccessEntry& entry);
std::uint32_t RemoveEntries(const Place& place);
void RemoveEmpty(const Place& place);  // only a place that has nothing in it

// A source of entries in the Application log, with the file that has their sentences (with environment variables in it).
// 0, or Windows' error code; one that is not there counts as removed.
std::uint32_t AddLogSource(std::string_view source, std::string_view file);
std::uint32_t RemoveLogSource(std::string_view source);

}  // namespace Setup
