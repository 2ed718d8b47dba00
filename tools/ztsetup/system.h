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

// --- the provider's line, as an application has it: one at a time; 0, or a LINEERR_ code

struct LineFacts {
    std::uint32_t version = 0;  // of TAPI, that the provider agreed to
    TextOf<128> name, provider, address;
    std::uint32_t activeCalls = 0, addressFeatures = 0, callFeatures = 0;
};
enum MessageKind : std::uint32_t {
    MESSAGE_ADDRESS_STATE = 0,
    MESSAGE_CALL_INFO = 1,
    MESSAGE_CALL_STATE = 2,
    MESSAGE_CLOSE = 3,
    MESSAGE_LINE_STATE = 8,
    MESSAGE_REPLY = 12,
    MESSAGE_NEW_CALL = 23,
};
constexpr std::uint32_t CALL_IDLE = 1;
struct LineMessage {
    std::uint32_t kind = 0, device = 0, first = 0, second = 0;  // as TAPI has them
};
struct Party {
    TextOf<128> number, name;
};
struct CallFacts {
    Party caller, called, connected;
};

std::uint32_t StartTapi(std::uint32_t& lines);
void EndTapi();
std::uint32_t AskLine(std::uint32_t device, LineFacts& facts);
std::uint32_t OpenLine(std::uint32_t device, std::uint32_t version);  // to watch: calls stay with who has them
std::uint32_t NextMessage(LineMessage& message, std::uint32_t milliseconds, bool& came);
std::uint32_t AskCall(std::uint32_t call, CallFacts& facts);
std::uint32_t MakeCall(std::string_view number, std::uint32_t& request);
std::uint32_t MadeCall();  // once that request is completed
std::uint32_t DropCall(std::uint32_t call);
void ReleaseCall(std::uint32_t call);

bool StopAsked();                   // Ctrl+C was pressed since StartTapi
std::uint32_t Now();                // a clock, ms
void Show(std::string_view lines);  // at once

}  // namespace Setup
