// What a report asks of Windows, asked of it.
#include "ztsetup/calls.h"
#include "ztsetup/facts.h"

#include <algorithm>

namespace Setup {

namespace {

struct OpenKey {
    HKEY handle = nullptr;
    std::uint32_t error = 0;

    explicit OpenKey(std::string_view name) {
        Wide wide;
        error = static_cast<std::uint32_t>(RegOpenKeyExW(HKEY_LOCAL_MACHINE, ToWide(name, wide), 0, KEY_READ, &handle));
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey() {
        if (handle != nullptr)
            RegCloseKey(handle);
    }
};

int LengthOf(const WCHAR* begin, std::size_t room) {
    return static_cast<int>(std::find(begin, begin + room, L'\0') - begin);
}

// A function of a system library that is loaded only when it is needed; as with TAPI, never from beside this program.
template <class Function> Function FindIn(const WCHAR* library, const char* name) {
    Wide path;
    const UINT length = GetSystemDirectoryW(path, static_cast<UINT>(std::size(path) / 2));
    if (length == 0 || length >= std::size(path) / 2)
        return nullptr;
    lstrcpyW(path + length, library);
    const HMODULE module = LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    return module == nullptr ? nullptr
                             : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace

std::uint32_t KeyAt(std::string_view key, std::uint32_t index, TextOf<512>& name) {
    const OpenKey open(key);
    if (open.error != 0)
        return open.error;
    WCHAR wide[256];
    DWORD length = static_cast<DWORD>(std::size(wide));
    const LONG error = RegEnumKeyExW(open.handle, index, wide, &length, nullptr, nullptr, nullptr, nullptr);
    if (error == 0)
        name = FromWide<512>(wide, static_cast<int>(length));
    return static_cast<std::uint32_t>(error);
}

std::uint32_t ValueAt(std::string_view key, std::uint32_t index, RegistryValue& value) {
    const OpenKey open(key);
    if (open.error != 0)
        return open.error;
    WCHAR name[256], data[1024];
    DWORD length = static_cast<DWORD>(std::size(name)), size = sizeof data, type = 0;
    const LONG error =
        RegEnumValueW(open.handle, index, name, &length, nullptr, &type, reinterpret_cast<BYTE*>(data), &size);
    if (error != 0)
        return static_cast<std::uint32_t>(error);
    value.name = FromWide<512>(name, static_cast<int>(length));
    value.type = type;
    value.text = {};
    if (type != REG_SZ)
        return 0;
    value.text = FromWide<4096>(data, LengthOf(data, size / sizeof *data));
    return 0;
}

std::uint32_t SetText(std::string_view key, std::string_view name, std::string_view text) {
    Wide wide, value;
    HKEY handle = nullptr;
    LONG error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, ToWide(key, wide), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_SET_VALUE, nullptr, &handle, nullptr);
    if (error != 0)
        return static_cast<std::uint32_t>(error);
    ToWide(text, value);
    error = RegSetValueExW(handle, ToWide(name, wide), 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                           static_cast<DWORD>((static_cast<std::size_t>(lstrlenW(value)) + 1) * sizeof *value));
    RegCloseKey(handle);
    return static_cast<std::uint32_t>(error);
}

std::uint32_t ReadInto(const Path& path, std::span<char> room, std::size_t& size) {
    Wide wide;
    size = 0;
    const HANDLE file =
        CreateFileW(ToWide(path.View(), wide), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_PATH_NOT_FOUND ? FILE_MISSING : GetLastError();
    DWORD error = 0, done = 1;
    while (error == 0 && done != 0 && size < room.size()) {
        if (!ReadFile(file, room.data() + size, static_cast<DWORD>(room.size() - size), &done, nullptr))
            error = GetLastError();
        else
            size += done;
    }
    CloseHandle(file);
    return error == 0 && size == room.size() ? FILE_TOO_LARGE : error;
}

std::uint32_t WriteNew(const Path& path, std::span<const char> bytes) {
    Wide wide;
    const HANDLE file =
        CreateFileW(ToWide(path.View(), wide), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();
    DWORD done = 0, error = 0;
    if (!WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr))
        error = GetLastError();
    else if (done != bytes.size())
        error = ERROR_DISK_FULL;
    CloseHandle(file);
    if (error != 0)
        DeleteFileW(wide);
    return error;
}

// Not GetVersionEx, which tells a program without a manifest of its own that this is Windows 8.
TextOf<64> WindowsVersion() {
    using GetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
    const auto ask = reinterpret_cast<GetVersion>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    TextOf<64> text;
    if (ask != nullptr && ask(&info) == 0)
        text.AddNumber(info.dwMajorVersion)
            .Add(".")
            .AddNumber(info.dwMinorVersion)
            .Add(".")
            .AddNumber(info.dwBuildNumber);
    return text;
}

TextOf<128> VersionOf(const Path& file) {
    using GetInfo = BOOL(WINAPI*)(const WCHAR*, DWORD, DWORD, void*);
    using Query = BOOL(WINAPI*)(const void*, const WCHAR*, void**, UINT*);
    const auto getInfo = FindIn<GetInfo>(L"\\version.dll", "GetFileVersionInfoW");
    const auto query = FindIn<Query>(L"\\version.dll", "VerQueryValueW");
    Wide wide;
    alignas(DWORD) static BYTE info[8192];
    void* text = nullptr;
    UINT length = 0;
    if (getInfo == nullptr || query == nullptr || !getInfo(ToWide(file.View(), wide), 0, sizeof info, info) ||
        !query(info, L"\\StringFileInfo\\040904E4\\ProductVersion", &text, &length))
        return {};
    const auto* const begin = static_cast<const WCHAR*>(text);
    return FromWide<128>(begin, LengthOf(begin, length));
}

}  // namespace Setup
