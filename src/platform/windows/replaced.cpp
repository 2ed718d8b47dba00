// For unit tests on Windows: the system's registry, private profiles, files and memory, seen through a window of the
// test process's own, with the faults of control.h.
#define ZT_REPLACING
#include "platform/simulated/state.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Simulated {

namespace {

std::string ProcessName() {
    return "zt_test_" + std::to_string(GetCurrentProcessId());
}

// --- a drive C: of our own, below the directory for temporary files
std::string& RootPath = *new std::string;
std::string& WindowsPath = *new std::string("C:\\WINDOWS");
std::atomic<int> FilesOpen = 0, Blocks = 0;

void RemoveRoot() {
    std::error_code ignored;
    if (!RootPath.empty())
        std::filesystem::remove_all(RootPath, ignored);
}

// A killed process of this number, and Wine gives numbers again, has left its files.
void MakeRoot() {
    char directory[MAX_PATH] = {};
    GetTempPathA(sizeof directory, directory);
    RootPath = directory + ProcessName();
    RemoveRoot();
    std::error_code ignored;
    std::filesystem::create_directories(RootPath + "\\c\\windows\\system32", ignored);
}

std::string Mapped(const std::string& path) {
    const bool drive = path.size() >= 2 && path[1] == ':';
    return RootPath + '\\' + (drive ? std::string(1, path[0]) + path.substr(2) : "c\\" + path);
}

UINT GiveDirectory(const std::string& path, LPSTR buffer, UINT size) {
    if (path.size() >= size)
        return static_cast<UINT>(path.size() + 1);  // the room that is needed
    std::copy_n(path.c_str(), path.size() + 1, buffer);
    return static_cast<UINT>(path.size());
}

// --- a registry of our own, below the user's
HKEY& Machine = *new HKEY(nullptr);
std::map<HKEY, std::string>& Paths = *new std::map<HKEY, std::string>;  // of the keys that are open
// The names of a key's values, the first one made first: so Windows enumerates them, and Wine by name.
std::map<std::string, std::vector<std::string>>& Made = *new std::map<std::string, std::vector<std::string>>;

std::string MachinePath() {
    return "Software\\" + ProcessName();
}

void RemoveRegistry() {
    if (Machine != nullptr)
        RegCloseKey(Machine);
    Machine = nullptr;
    RegDeleteTreeA(HKEY_CURRENT_USER, MachinePath().c_str());
}

HKEY RealKey(HKEY key) {
    return key == HKEY_LOCAL_MACHINE ? Machine : key;
}

std::string PathOf(HKEY key) {
    const Guard guard(Lock);
    const auto found = Paths.find(key);
    return found == Paths.end() ? "HKEY_LOCAL_MACHINE" : found->second;
}

LONG RefusalOf(const std::string& path, const std::string& value = {}, REGSAM rights = 0) {
    const Guard guard(Lock);
    return Refusal(path, value, rights);
}

std::string NameOf(LPCSTR name) {
    return name == nullptr ? "" : name;
}

// The names of a key's values in the system's own order.
std::vector<std::string> NamesOf(HKEY key) {
    std::vector<std::string> names;
    char name[256];
    for (DWORD size = sizeof name; RegEnumValueA(RealKey(key), static_cast<DWORD>(names.size()), name, &size, nullptr,
                                                 nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         size = sizeof name)
        names.emplace_back(name);
    return names;
}

// The system's own index of the value that was made as the index-th one. Names are listed when an enumeration begins.
DWORD PlaceOf(HKEY key, DWORD index) {
    static std::vector<std::string> listed;
    if (index == 0)
        listed = NamesOf(key);
    const std::string path = PathOf(key);
    const Guard guard(Lock);
    const std::vector<std::string>& made = Made[path];
    if (index >= made.size())
        return index;
    const auto found = std::find(listed.begin(), listed.end(), made[index]);
    return found == listed.end() ? index : static_cast<DWORD>(found - listed.begin());
}

LONG Opened(LONG error, const std::string& path, PHKEY key) {
    if (error == ERROR_SUCCESS) {
        const Guard guard(Lock);
        Paths[*key] = path;
    }
    return error;
}

struct LastRemoval {
    ~LastRemoval() {
        RemoveRoot();
        RemoveRegistry();
    }
} AtTheEnd;

}  // namespace

void ResetFiles() {
    WindowsPath = "C:\\WINDOWS";
    MakeRoot();
}

// A machine's registry always has this key.
void ResetRegistry() {
    RemoveRegistry();
    Paths.clear();
    Made.clear();
    HKEY software = nullptr;
    RegCreateKeyA(HKEY_CURRENT_USER, MachinePath().c_str(), &Machine);
    RegCreateKeyA(Machine, "SOFTWARE", &software);
    RegCloseKey(software);
}

// Files, keys and memory.
int OpenFiles() {
    return FilesOpen + Blocks + static_cast<int>(Paths.size());
}

// Tests have devices in process; a real port is tried with the library as it is shipped.
std::unique_ptr<Wire> OpenTerminal(const std::string&) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return nullptr;
}

}  // namespace Simulated

using namespace Simulated;

UINT WINAPI SimGetWindowsDirectoryA(LPSTR buffer, UINT size) {
    if (Fails("GetWindowsDirectoryA"))
        return 0;
    return GiveDirectory(WindowsPath, buffer, size);
}

UINT WINAPI SimGetSystemDirectoryA(LPSTR buffer, UINT size) {
    if (Fails("GetSystemDirectoryA"))
        return 0;
    return GiveDirectory(WindowsPath + "\\SYSTEM32", buffer, size);
}

std::string PlatformControl::PosixPath(const std::string& windowsPath) {
    return Mapped(windowsPath);
}

std::string PlatformControl::Root() {
    return RootPath;
}

void PlatformControl::SetWindowsDirectory(const std::string& path) {
    WindowsPath = path;
    const std::string system = Mapped(path + "\\system32");
    // Windows makes none that is longer. Wine does, and RemoveRoot leaves it there, with all that the next process of this
    // number then finds.
    if (system.size() >= MAX_PATH)
        return;
    std::error_code ignored;
    std::filesystem::create_directories(system, ignored);
}

int Sim_mkdir(const char* path) {
    return Fails("_mkdir") ? -1 : _mkdir(Mapped(path).c_str());
}

std::FILE* SimFileOpen(const char* path, const char* mode) {
    return Fails("FileOpen") ? nullptr : FileOpen(Mapped(path).c_str(), mode);
}

int SimFileRename(const char* from, const char* to) {
    return Fails("FileRename") ? -1 : FileRename(Mapped(from).c_str(), Mapped(to).c_str());
}

int SimFileRemove(const char* path) {
    return Fails("FileRemove") ? -1 : FileRemove(Mapped(path).c_str());
}

HFILE WINAPI Sim_lopen(LPCSTR path, int mode) {
    if (Fails("_lopen"))
        return HFILE_ERROR;
    const HFILE file = _lopen(Mapped(path).c_str(), mode);
    FilesOpen += file != HFILE_ERROR;
    return file;
}

HFILE WINAPI Sim_lcreat(LPCSTR path, int attributes) {
    if (Fails("_lcreat"))
        return HFILE_ERROR;
    const HFILE file = _lcreat(Mapped(path).c_str(), attributes);
    FilesOpen += file != HFILE_ERROR;
    return file;
}

HFILE WINAPI Sim_lclose(HFILE file) {
    const HFILE result = _lclose(file);
    FilesOpen -= result != HFILE_ERROR;
    return result;
}

LONG WINAPI SimRegOpenKeyExA(HKEY parent, LPCSTR name, DWORD options, REGSAM access, PHKEY key) {
    if (const DWORD failure = Failure("RegOpenKeyExA"))
        return static_cast<LONG>(failure);
    const std::string path = PathOf(parent) + '\\' + name;
    if (const LONG error = RefusalOf(path, {}, access))
        return error;
    return Opened(RegOpenKeyExA(RealKey(parent), name, options, access, key), path, key);
}

LONG WINAPI SimRegCreateKeyExA(HKEY parent, LPCSTR name, DWORD reserved, LPSTR keyClass, DWORD options, REGSAM access,
                               SECURITY_ATTRIBUTES* security, PHKEY key, DWORD* disposition) {
    if (const DWORD failure = Failure("RegCreateKeyExA"))
        return static_cast<LONG>(failure);
    const std::string path = PathOf(parent) + '\\' + name;
    if (const LONG error = RefusalOf(path, {}, access))
        return error;
    return Opened(
        RegCreateKeyExA(RealKey(parent), name, reserved, keyClass, options, access, security, key, disposition), path,
        key);
}

LONG WINAPI SimRegQueryValueExA(HKEY key, LPCSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) {
    if (const DWORD failure = Failure("RegQueryValueExA"))
        return static_cast<LONG>(failure);
    if (const LONG error = RefusalOf(PathOf(key), NameOf(name)))
        return error;
    return RegQueryValueExA(RealKey(key), name, reserved, type, data, size);
}

LONG WINAPI SimRegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
    if (const DWORD failure = Failure("RegSetValueExA"))
        return static_cast<LONG>(failure);
    if (const LONG error = RefusalOf(PathOf(key), NameOf(name)))
        return error;
    const LONG error = RegSetValueExA(RealKey(key), name, reserved, type, data, size);
    if (error == ERROR_SUCCESS) {
        const std::string path = PathOf(key);
        const Guard guard(Lock);
        std::vector<std::string>& made = Made[path];
        if (std::find(made.begin(), made.end(), NameOf(name)) == made.end())
            made.push_back(NameOf(name));
    }
    return error;
}

LONG WINAPI SimRegDeleteKeyA(HKEY parent, LPCSTR name) {
    if (const DWORD failure = Failure("RegDeleteKeyA"))
        return static_cast<LONG>(failure);
    const std::string path = PathOf(parent) + '\\' + name;
    if (const LONG error = RefusalOf(path))
        return error;
    const LONG error = RegDeleteKeyA(RealKey(parent), name);
    if (error == ERROR_SUCCESS) {
        const Guard guard(Lock);
        Made.erase(path);
    }
    return error;
}

LONG WINAPI SimRegEnumKeyA(HKEY key, DWORD index, LPSTR name, DWORD size) {
    if (const DWORD failure = Failure("RegEnumKeyA"))
        return static_cast<LONG>(failure);
    if (const LONG error = RefusalOf(PathOf(key)))
        return error;
    return RegEnumKeyA(RealKey(key), index, name, size);
}

LONG WINAPI SimRegEnumValueA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD* reserved, DWORD* type,
                             BYTE* data, DWORD* size) {
    if (const DWORD failure = Failure("RegEnumValueA"))
        return static_cast<LONG>(failure);
    const LONG error = RegEnumValueA(RealKey(key), PlaceOf(key, index), name, nameSize, reserved, type, data, size);
    const LONG refusal = RefusalOf(PathOf(key), error == ERROR_SUCCESS ? name : "");
    return refusal != ERROR_SUCCESS ? refusal : error;
}

LONG WINAPI SimRegCloseKey(HKEY key) {
    if (key == HKEY_LOCAL_MACHINE)
        return ERROR_SUCCESS;
    {
        const Guard guard(Lock);
        Paths.erase(key);
    }
    return RegCloseKey(key);
}

BOOL WINAPI SimWritePrivateProfileStringA(LPCSTR section, LPCSTR name, LPCSTR text, LPCSTR file) {
    if (Fails("WritePrivateProfileStringA"))
        return FALSE;
    const std::string path = file;
    const bool whole = path.find('\\') != std::string::npos;  // without a path it lies in the Windows directory
    return WritePrivateProfileStringA(section, name, text, Mapped(whole ? path : WindowsPath + '\\' + path).c_str());
}

HGLOBAL WINAPI SimGlobalAlloc(UINT flags, SIZE_T bytes) {
    const HGLOBAL block = Fails("GlobalAlloc") ? nullptr : GlobalAlloc(flags, bytes);
    Blocks += block != nullptr;
    return block;
}

LPVOID WINAPI SimGlobalLock(HGLOBAL block) {
    return Fails("GlobalLock") ? nullptr : GlobalLock(block);
}

BOOL WINAPI SimGlobalUnlock(HGLOBAL block) {
    if (StuckUnlocks > 0) {
        --StuckUnlocks;
        return TRUE;
    }
    return GlobalUnlock(block);
}

HGLOBAL WINAPI SimGlobalFree(HGLOBAL block) {
    Blocks -= block != nullptr;
    return GlobalFree(block);
}
