// What ztsetup asks of Windows and of TAPI, asked of them.
#include "ztsetup/calls.h"
#include "ztsetup/system.h"

#include <aclapi.h>

#include <cstdlib>

namespace Setup {

namespace {

Path PathFrom(const WCHAR* wide, DWORD length) {
    return FromWide<1024>(wide, static_cast<int>(length < std::size(Wide{}) ? length : 0));
}

std::uint16_t MachineOf(const SYSTEM_INFO& info) {
    return info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_INTEL   ? MACHINE_X86
           : info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ? MACHINE_X64
                                                                         : std::uint16_t{0};
}

HANDLE OpenFile(const Path& path, DWORD access) {
    Wide wide;
    return CreateFileW(ToWide(path.View(), wide), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, OPEN_EXISTING, 0, nullptr);
}

// A program that was started hidden shows its first window hidden, whatever it asks for. The installer starts this one
// so; the first window is this, and not the provider's dialog. Only a window with a caption that is shown in the ordinary
// way counts as the first one; it is outside every screen for a start that was not hidden.
void SpendHiddenStart() {
    const HWND window = CreateWindowExW(WS_EX_TOOLWINDOW, L"STATIC", L"", WS_OVERLAPPED | WS_CAPTION, -32000, -32000, 1,
                                        1, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
    if (window == nullptr)
        return;
    ShowWindow(window, SW_SHOWNORMAL);
    DestroyWindow(window);
}

LONG CallAddProvider(std::string_view file, DWORD& id) {
    Wide wide;
    return CallTapi<decltype(&lineAddProviderW)>("lineAddProviderW", ToWide(file, wide), nullptr, &id);
}

// Closes the dialogs of this process while it lives, each as by its Cancel button.
class DialogCloser {
public:
    DialogCloser()
        : end(CreateEventW(nullptr, TRUE, FALSE, nullptr)), thread(CreateThread(nullptr, 0, Body, end, 0, nullptr)) {}
    DialogCloser(const DialogCloser&) = delete;
    DialogCloser& operator=(const DialogCloser&) = delete;
    ~DialogCloser() {
        SetEvent(end);
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
        CloseHandle(end);
    }

private:
    static constexpr DWORD LookEvery = 50;  // ms

    static BOOL CALLBACK CloseOwn(HWND window, LPARAM) {
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        WCHAR name[16];
        if (process == GetCurrentProcessId() && GetClassNameW(window, name, 16) != 0 && lstrcmpW(name, L"#32770") == 0)
            PostMessageW(window, WM_COMMAND, IDCANCEL, 0);
        return TRUE;
    }
    static DWORD WINAPI Body(LPVOID end) {
        while (WaitForSingleObject(end, LookEvery) == WAIT_TIMEOUT)
            EnumWindows(CloseOwn, 0);
        return 0;
    }

    HANDLE end, thread;
};

// NETWORK SERVICE, S-1-5-20: by number, as its name is another in other languages of Windows.
struct ServiceAccount {
    alignas(SID) BYTE room[SECURITY_MAX_SID_SIZE];
    PSID sid = room;

    ServiceAccount() {
        DWORD size = sizeof room;
        CreateWellKnownSid(WinNetworkServiceSid, nullptr, sid, &size);
    }
};

// A place's access list, as long as this lives; `entries` is null where it has none.
struct AccessList {
    Wide name;
    SE_OBJECT_TYPE type;
    ACL* entries = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    DWORD error;

    explicit AccessList(const Place& place) : type(place.kind == Kind::Key ? SE_REGISTRY_KEY : SE_FILE_OBJECT) {
        const Path path = Path(place.kind == Kind::Key ? "MACHINE\\" : "").Add(place.path.View());
        ToWide(path.View(), name);
        error = GetNamedSecurityInfoW(name, type, DACL_SECURITY_INFORMATION, nullptr, nullptr, &entries, nullptr,
                                      &descriptor);
    }
    AccessList(const AccessList&) = delete;
    AccessList& operator=(const AccessList&) = delete;
    ~AccessList() { LocalFree(descriptor); }
};

// Changes this account's entries alone. A place without an access list stays as it is: one with a single entry would
// shut everybody else out.
std::uint32_t Change(const Place& place, ACCESS_MODE mode, const AccessEntry& entry) {
    const ServiceAccount account;
    AccessList access(place);
    if (access.error != 0 || access.entries == nullptr)
        return access.error;
    EXPLICIT_ACCESSW change{};
    change.grfAccessPermissions = entry.access;
    change.grfAccessMode = mode;
    change.grfInheritance = entry.flags;
    change.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    change.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    change.Trustee.ptstrName = static_cast<LPWSTR>(account.sid);
    ACL* changed = nullptr;
    DWORD error = SetEntriesInAclW(1, &change, access.entries, &changed);
    if (error != 0)
        return error;
    error =
        SetNamedSecurityInfoW(access.name, access.type, DACL_SECURITY_INFORMATION, nullptr, nullptr, changed, nullptr);
    LocalFree(changed);
    return error;
}

void TakeProviders(const LINEPROVIDERLIST& list, ProviderList& taken) {
    const auto* const bytes = reinterpret_cast<const char*>(&list);
    const auto inside = [&](DWORD offset, DWORD size) {
        return offset <= list.dwUsedSize && size <= list.dwUsedSize - offset && list.dwUsedSize <= list.dwTotalSize;
    };
    if (!inside(list.dwProviderListOffset, list.dwProviderListSize))
        return;
    const auto* const entries = reinterpret_cast<const LINEPROVIDERENTRY*>(bytes + list.dwProviderListOffset);
    const DWORD count = list.dwProviderListSize / sizeof *entries;
    for (DWORD i = 0; i < count && i < list.dwNumProviders && taken.count < taken.entries.size(); ++i) {
        const LINEPROVIDERENTRY& entry = entries[i];
        if (!inside(entry.dwProviderFilenameOffset, entry.dwProviderFilenameSize))
            continue;
        const auto* const name = reinterpret_cast<const WCHAR*>(bytes + entry.dwProviderFilenameOffset);
        int length = 0;
        while (length < static_cast<int>(entry.dwProviderFilenameSize / sizeof(WCHAR)) && name[length] != 0)
            ++length;
        taken.entries[taken.count++] = {entry.dwPermanentProviderID, FromWide<260>(name, length)};
    }
}

}  // namespace

std::uint16_t SystemMachine() {
    // Newer systems say what they are even to a program that they translate; older ones translate nothing.
    using IsWow64Process2Function = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
    const auto ask = reinterpret_cast<IsWow64Process2Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2")));
    USHORT process = 0, system = 0;
    if (ask != nullptr && ask(GetCurrentProcess(), &process, &system))
        return system;
    SYSTEM_INFO info;
    GetNativeSystemInfo(&info);
    return MachineOf(info);
}

std::uint16_t OwnMachine() {
    return sizeof(void*) == 4 ? MACHINE_X86 : MACHINE_X64;
}

bool IsAdministrator() {
    SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
    PSID administrators = nullptr;
    BOOL member = FALSE;
    if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                  &administrators))
        return false;
    CheckTokenMembership(nullptr, administrators, &member);
    FreeSid(administrators);
    return member != FALSE;
}

Path SystemDirectory() {
    Wide path;
    return PathFrom(path, GetSystemDirectoryW(path, static_cast<UINT>(std::size(path))));
}

Path OwnDirectory() {
    Wide path;
    DWORD length = GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    while (length > 0 && path[length - 1] != L'\\')
        --length;
    return PathFrom(path, length > 0 ? length - 1 : 0);
}

Path FullPath(std::string_view path) {
    Wide wide, full;
    return PathFrom(full, GetFullPathNameW(ToWide(path, wide), static_cast<DWORD>(std::size(full)), full, nullptr));
}

Head ReadHead(const Path& path) {
    Head head;
    const HANDLE file = OpenFile(path, GENERIC_READ);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
            head.reading = Reading::Refused;
        return head;
    }
    DWORD size = 0;
    const BOOL read = ReadFile(file, head.bytes.data(), static_cast<DWORD>(head.bytes.size()), &size, nullptr);
    CloseHandle(file);
    head.reading = read ? Reading::Read : Reading::Refused;
    head.size = size;
    return head;
}

bool InUse(const Path& path) {
    const HANDLE file = OpenFile(path, GENERIC_WRITE);  // refused for a file that is loaded
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_SHARING_VIOLATION || GetLastError() == ERROR_USER_MAPPED_FILE;
    CloseHandle(file);
    return false;
}

Service TelephonyService() {
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (manager == nullptr)
        return Service::Unknown;
    Service found = Service::Unknown;
    const SC_HANDLE service = OpenServiceW(manager, L"TapiSrv", SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG);
    if (service == nullptr) {
        found = GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST ? Service::Missing : Service::Unknown;
    } else {
        alignas(QUERY_SERVICE_CONFIGW) std::uint8_t config[8192];
        DWORD needed = 0;
        SERVICE_STATUS status{};
        if (QueryServiceStatus(service, &status))
            found = status.dwCurrentState == SERVICE_RUNNING   ? Service::Running
                    : status.dwCurrentState == SERVICE_STOPPED ? Service::Stopped
                                                               : Service::Changing;
        auto* const settings = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(config);
        if (found == Service::Stopped && QueryServiceConfigW(service, settings, sizeof config, &needed) &&
            settings->dwStartType == SERVICE_DISABLED)
            found = Service::Disabled;
        CloseServiceHandle(service);
    }
    CloseServiceHandle(manager);
    return found;
}

std::uint32_t ListProviders(ProviderList& list) {
    list = ProviderList{};
    DWORD size = 4096;
    for (int tries = 0; tries < 4; ++tries) {
        auto* const found = static_cast<LINEPROVIDERLIST*>(std::calloc(1, size));
        if (found == nullptr)
            return LINEERR_NOMEM;
        found->dwTotalSize = size;
        const LONG result =
            CallTapi<decltype(&lineGetProviderListW)>("lineGetProviderListW", DWORD{TAPI_CURRENT_VERSION}, found);
        const DWORD needed = found->dwNeededSize;
        const bool whole = needed <= size;
        if (result == 0 && whole)
            TakeProviders(*found, list);
        std::free(found);
        if (result != 0 || whole)
            return static_cast<std::uint32_t>(result);
        size = needed;
    }
    return LINEERR_STRUCTURETOOSMALL;
}

std::uint32_t AddProvider(std::string_view file, bool quiet, std::uint32_t& id) {
    DWORD added = 0;
    SpendHiddenStart();
    LONG result = 0;
    if (quiet) {
        const DialogCloser closer;
        result = CallAddProvider(file, added);
    } else {
        result = CallAddProvider(file, added);
    }
    id = added;
    return static_cast<std::uint32_t>(result);
}

std::uint32_t RemoveProvider(std::uint32_t id) {
    return static_cast<std::uint32_t>(
        CallTapi<decltype(&lineRemoveProvider)>("lineRemoveProvider", DWORD{id}, nullptr));
}

// --- rights ----------------------------------------------------------------------------------------------------------

Path WindowsDirectory() {
    Wide path;
    return PathFrom(path, GetSystemWindowsDirectoryW(path, static_cast<UINT>(std::size(path))));
}

std::uint32_t MakePlace(const Place& place) {
    Wide wide;
    ToWide(place.path.View(), wide);
    if (place.kind == Kind::Folder)
        return CreateDirectoryW(wide, nullptr) || GetLastError() == ERROR_ALREADY_EXISTS ? 0 : GetLastError();
    if (place.kind == Kind::Key) {
        HKEY key = nullptr;
        const LONG error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, wide, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ,
                                           nullptr, &key, nullptr);
        if (error == 0)
            RegCloseKey(key);
        return static_cast<std::uint32_t>(error);
    }
    const HANDLE file = CreateFileW(wide, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();
    CloseHandle(file);
    return 0;
}

std::uint32_t ReadEntries(const Place& place, EntryList& list) {
    const ServiceAccount account;
    AccessList access(place);
    list = EntryList{};
    list.open = access.error == 0 && access.entries == nullptr;
    for (DWORD i = 0; access.entries != nullptr && i < access.entries->AceCount; ++i) {
        void* found = nullptr;
        if (!GetAce(access.entries, i, &found))
            continue;
        auto* const entry = static_cast<ACCESS_ALLOWED_ACE*>(found);  // one that denies is laid out the same
        const BYTE type = entry->Header.AceType;
        if ((type != ACCESS_ALLOWED_ACE_TYPE && type != ACCESS_DENIED_ACE_TYPE) ||
            !EqualSid(&entry->SidStart, account.sid) || list.count == list.entries.size())
            continue;
        list.entries[list.count++] = {type == ACCESS_ALLOWED_ACE_TYPE, entry->Header.AceFlags, entry->Mask};
    }
    return access.error == ERROR_PATH_NOT_FOUND ? PLACE_MISSING : access.error;
}

std::uint32_t AddEntry(const Place& place, const AccessEntry& entry) {
    return Change(place, entry.allows ? GRANT_ACCESS : DENY_ACCESS, entry);
}

std::uint32_t RemoveEntries(const Place& place) {
    return Change(place, REVOKE_ACCESS, {});
}

void RemoveEmpty(const Place& place) {
    Wide wide;
    ToWide(place.path.View(), wide);
    if (place.kind == Kind::Folder) {
        RemoveDirectoryW(wide);  // refuses one that is not
        return;
    }
    if (place.kind == Kind::Key) {
        HKEY key = nullptr;
        DWORD keys = 1, values = 1;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, wide, 0, KEY_READ, &key) != 0)
            return;
        RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                         nullptr);
        RegCloseKey(key);
        if (keys == 0 && values == 0)
            RegDeleteKeyW(HKEY_LOCAL_MACHINE, wide);
        return;
    }
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (GetFileAttributesExW(wide, GetFileExInfoStandard, &data) && data.nFileSizeHigh == 0 && data.nFileSizeLow == 0)
        DeleteFileW(wide);
}

// --- the event log ---------------------------------------------------------------------------------------------------

namespace {

const WCHAR* LogSourceKey(std::string_view source, Wide& key) {
    const Path path = Path("SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\").Add(source);
    return ToWide(path.View(), key);
}

}  // namespace

std::uint32_t AddLogSource(std::string_view source, std::string_view file) {
    Wide wide;
    HKEY key = nullptr;
    LONG error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, LogSourceKey(source, wide), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_SET_VALUE, nullptr, &key, nullptr);
    if (error != 0)
        return static_cast<std::uint32_t>(error);
    const DWORD types = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
    const auto* const text = reinterpret_cast<const BYTE*>(ToWide(file, wide));
    error = RegSetValueExW(key, L"EventMessageFile", 0, REG_EXPAND_SZ, text,
                           static_cast<DWORD>((static_cast<std::size_t>(lstrlenW(wide)) + 1) * sizeof(WCHAR)));
    if (error == 0)
        error =
            RegSetValueExW(key, L"TypesSupported", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&types), sizeof types);
    RegCloseKey(key);
    return static_cast<std::uint32_t>(error);
}

std::uint32_t RemoveLogSource(std::string_view source) {
    Wide wide;
    const LONG error = RegDeleteKeyW(HKEY_LOCAL_MACHINE, LogSourceKey(source, wide));
    return error == ERROR_FILE_NOT_FOUND ? 0 : static_cast<std::uint32_t>(error);
}

}  // namespace Setup
