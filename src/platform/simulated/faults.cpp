// The calls that a test lets fail.
#include "platform/simulated/state.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string_view>

namespace Simulated {

int StuckUnlocks = 0;

namespace {

// Errors that have no name elsewhere in this layer.
constexpr DWORD INVALID_WINDOW = 1400, NO_RESOURCES = 1450, NOT_ENOUGH_QUOTA = 1816,
                NO_MEMORY = ERROR_NOT_ENOUGH_MEMORY;
[[maybe_unused]] constexpr DWORD DISK_FULL = 112, NO_UNICODE = 1113;  // not on Windows

struct Fallible {
    const char* Function;
    DWORD Error;
};
constexpr Fallible Functions[] = {
    // objects and threads; a failed wait gives WAIT_FAILED
    {"CreateMutexA", NO_RESOURCES},
    {"CreateEventA", NO_RESOURCES},
    {"SetEvent", ERROR_INVALID_HANDLE},
    {"CreateThread", NO_RESOURCES},
    {"WaitForSingleObject", NO_MEMORY},
    // messages
    {"GetMessageA", INVALID_WINDOW},
    {"SetTimer", NO_RESOURCES},
    {"KillTimer", ERROR_INVALID_PARAMETER},
    {"MessageBoxA", NO_MEMORY},
    {"MsgWaitForMultipleObjectsEx", INVALID_WINDOW},
    // sessions, libraries, the event log
    {"GetUserObjectInformationA", ERROR_INVALID_HANDLE},
    {"LoadLibraryA", ERROR_FILE_NOT_FOUND},
    {"WTSEnumerateSessionsW", ERROR_ACCESS_DENIED},
    {"WTSQuerySessionInformationW", ERROR_ACCESS_DENIED},
    {"WTSSendMessageW", ERROR_ACCESS_DENIED},
    {"RegisterEventSourceA", ERROR_ACCESS_DENIED},
    {"ReportEventA", NO_RESOURCES},
    {"DialogBoxParamA", NO_MEMORY},
    {"GetDlgItem", INVALID_WINDOW},
    {"GetDlgItemTextA", INVALID_WINDOW},
    // ports
    {"CreateFileA", ERROR_FILE_NOT_FOUND},
    {"GetCommState", ERROR_IO_DEVICE},
    {"SetCommState", ERROR_INVALID_PARAMETER},
    {"GetCommTimeouts", ERROR_IO_DEVICE},
    {"SetCommTimeouts", ERROR_IO_DEVICE},
    {"EscapeCommFunction", ERROR_IO_DEVICE},
    {"ClearCommError", ERROR_IO_DEVICE},
    {"ReadFile", ERROR_IO_DEVICE},
    {"WriteFile", NOT_ENOUGH_QUOTA},
    {"GetOverlappedResult", ERROR_IO_DEVICE},
    {"CancelIoEx", ERROR_FILE_NOT_FOUND},
    {"PurgeComm", ERROR_IO_DEVICE},
    // registry and private profiles
    {"RegOpenKeyExA", NO_RESOURCES},
    {"RegCreateKeyExA", ERROR_ACCESS_DENIED},
    {"RegQueryValueExA", NO_RESOURCES},
    {"RegSetValueExA", ERROR_ACCESS_DENIED},
    {"RegDeleteKeyA", ERROR_ACCESS_DENIED},
    {"RegEnumKeyA", NO_RESOURCES},
    {"RegEnumValueA", NO_RESOURCES},
    {"WritePrivateProfileStringA", ERROR_ACCESS_DENIED},
    // directories and files
    {"GetWindowsDirectoryA", NO_MEMORY},
    {"GetSystemDirectoryA", NO_MEMORY},
    {"_mkdir", ERROR_ACCESS_DENIED},
    {"FileOpen", ERROR_ACCESS_DENIED},
    {"FileRename", ERROR_ACCESS_DENIED},
    {"FileRemove", ERROR_ACCESS_DENIED},
    {"_lopen", ERROR_ACCESS_DENIED},
    {"_lcreat", ERROR_ACCESS_DENIED},
#ifndef _WIN32  // where these are Windows' own in the tests too
    {"_lwrite", DISK_FULL},
    {"MultiByteToWideChar", NO_UNICODE},
    {"WideCharToMultiByte", NO_UNICODE},
#endif
    // memory
    {"GlobalAlloc", NO_MEMORY},
    {"GlobalLock", NO_MEMORY},
};

// The function that fails, and how.
struct {
    const Fallible* Of = nullptr;
    int Call = 0;  // the one that does
    bool Lasting = false;
    int Counted = 0;
} Chosen;
std::atomic<bool> Armed = false;  // so that nobody takes the lock in vain

struct RegistryFault {
    LONG error;
    REGSAM rights;
};
std::map<std::string, RegistryFault>& Refused = *new std::map<std::string, RegistryFault>;

bool Same(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char left, unsigned char right) {
        return std::tolower(left) == std::tolower(right);
    });
}

}  // namespace

DWORD Failure(const char* function) {
    if (!Armed)
        return 0;
    const Guard guard(Lock);
    if (Chosen.Of == nullptr || std::strcmp(Chosen.Of->Function, function) != 0)
        return 0;
    ++Chosen.Counted;
    if (Chosen.Lasting ? Chosen.Counted < Chosen.Call : Chosen.Counted != Chosen.Call)
        return 0;
    SetLastError(Chosen.Of->Error);
    return Chosen.Of->Error;
}

LONG Refusal(const std::string& path, const std::string& value, REGSAM rights) {
    for (const auto& [refused, fault] : Refused) {
        const bool key =
            path.size() >= refused.size() && Same(std::string_view(path).substr(path.size() - refused.size()), refused);
        const bool asked = (rights & fault.rights) == fault.rights;
        if (fault.error != 0 && asked && (key || (!value.empty() && Same(value, refused))))
            return fault.error;
    }
    return ERROR_SUCCESS;
}

void ResetFaults() {
    Refused.clear();
    StuckUnlocks = 0;
    Chosen = {};
    Armed = false;
}

}  // namespace Simulated

using namespace Simulated;

std::vector<std::string> PlatformControl::FallibleCalls() {
    std::vector<std::string> names;
    for (const Fallible& fallible : Functions)
        names.emplace_back(fallible.Function);
    return names;
}

void PlatformControl::FailCall(const std::string& function, int n, Failing failing) {
    const Fallible* found = std::find_if(std::begin(Functions), std::end(Functions),
                                         [&](const Fallible& fallible) { return fallible.Function == function; });
    if (found == std::end(Functions) || n < 1)
        throw std::invalid_argument(function);
    const Guard guard(Lock);
    Chosen = {found, n, failing == Failing::FromThenOn, 0};
    Armed = true;
}

void PlatformControl::CallsWork() {
    const Guard guard(Lock);
    Armed = false;
}

int PlatformControl::CallsCounted() {
    const Guard guard(Lock);
    return Chosen.Counted;
}

void PlatformControl::RefuseRegistry(const std::string& keyOrValue, LONG error, REGSAM rights) {
    const Guard guard(Lock);
    Refused[keyOrValue] = {error, rights};
}

void PlatformControl::StickGlobalUnlock(int times) {
    const Guard guard(Lock);
    StuckUnlocks = times;
}
