// A stand-in for tapi32.dll, for the tests of ztsetup and of the installers alone: Wine's has only stubs of these three
// functions. It keeps the list of providers in the registry where Windows keeps it, and, as Windows does, runs the
// library's own installation dialog in the process that adds it. What it cannot tell is how Windows' telephony service
// takes the library.
//
// ZT_TAPI_ADD, ZT_TAPI_REMOVE, ZT_TAPI_LIST: a code in hexadecimal that the function answers instead of doing its work.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#define TAPI_CURRENT_VERSION 0x00020000
#include <windows.h>

#include <tapi.h>
#include <tspi.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace {

constexpr const WCHAR* PROVIDERS = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Telephony\\Providers";

LONG Refusal(const char* function) {
    const char* const code = std::getenv(function);
    return code == nullptr ? 0 : static_cast<LONG>(std::strtoul(code, nullptr, 16));
}

HKEY OpenProviders() {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, PROVIDERS, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    return key;
}

DWORD ReadNumber(HKEY key, const WCHAR* name, DWORD otherwise) {
    DWORD number = 0, size = sizeof number, type = 0;
    const LSTATUS error = RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
    return error == 0 && type == REG_DWORD ? number : otherwise;
}

void WriteNumber(HKEY key, const WCHAR* name, DWORD number) {
    RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
}

struct Name {
    WCHAR text[32];
    Name(const WCHAR* value, DWORD index) { std::swprintf(text, 32, L"%ls%lu", value, index); }
};

struct Entry {
    DWORD id = 0;
    WCHAR file[260]{};
};

Entry ReadEntry(HKEY key, DWORD index) {
    Entry entry;
    entry.id = ReadNumber(key, Name(L"ProviderID", index).text, 0);
    DWORD size = sizeof entry.file - sizeof(WCHAR);
    RegQueryValueExW(key, Name(L"ProviderFilename", index).text, nullptr, nullptr, reinterpret_cast<BYTE*>(entry.file),
                     &size);
    return entry;
}

void WriteEntry(HKEY key, DWORD index, const Entry& entry) {
    WriteNumber(key, Name(L"ProviderID", index).text, entry.id);
    RegSetValueExW(key, Name(L"ProviderFilename", index).text, 0, REG_SZ, reinterpret_cast<const BYTE*>(entry.file),
                   static_cast<DWORD>((std::wcslen(entry.file) + 1) * sizeof(WCHAR)));
}

template <class Function> Function Find(HMODULE library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

HMODULE Library;

// The dialog's way to the provider, which Windows' service would have loaded.
LONG CALLBACK ToProvider(DWORD_PTR object, DWORD type, LPVOID data, DWORD size) {
    using Data = LONG(WINAPI*)(DWORD_PTR, DWORD, LPVOID, DWORD);
    return Find<Data>(Library, "TSPI_providerGenericDialogData")(object, type, data, size);
}

LONG RunInstallation(const WCHAR* file, HWND owner, DWORD id) {
    Library = LoadLibraryW(file);
    if (Library == nullptr)
        return static_cast<LONG>(LINEERR_NODRIVER);
    using Install = LONG(WINAPI*)(TUISPIDLLCALLBACK, HWND, DWORD);
    const auto install = Find<Install>(Library, "TUISPI_providerInstall");
    const LONG result = install == nullptr ? static_cast<LONG>(LINEERR_NODRIVER) : install(ToProvider, owner, id);
    FreeLibrary(Library);
    return result;
}

}  // namespace

extern "C" {

LONG WINAPI lineGetProviderListW(DWORD, LPLINEPROVIDERLIST list) {
    if (const LONG refusal = Refusal("ZT_TAPI_LIST"))
        return refusal;
    const HKEY key = OpenProviders();
    const DWORD count = ReadNumber(key, L"NumProviders", 0);
    list->dwNeededSize = static_cast<DWORD>(sizeof *list + count * (sizeof(LINEPROVIDERENTRY) + sizeof(Entry::file)));
    list->dwNumProviders = count;
    list->dwUsedSize = sizeof *list;
    list->dwProviderListSize = list->dwProviderListOffset = 0;
    if (list->dwNeededSize <= list->dwTotalSize) {
        auto* const entries = reinterpret_cast<LINEPROVIDERENTRY*>(list + 1);
        auto* const texts = reinterpret_cast<char*>(entries + count);
        for (DWORD i = 0; i < count; ++i) {
            const Entry entry = ReadEntry(key, i);
            char* const text = texts + i * sizeof entry.file;
            std::memcpy(text, entry.file, sizeof entry.file);
            entries[i] = {entry.id, static_cast<DWORD>((std::wcslen(entry.file) + 1) * sizeof(WCHAR)),
                          static_cast<DWORD>(text - reinterpret_cast<char*>(list))};
        }
        list->dwProviderListOffset = sizeof *list;
        list->dwProviderListSize = static_cast<DWORD>(count * sizeof *entries);
        list->dwUsedSize = list->dwNeededSize;
    }
    RegCloseKey(key);
    return 0;
}

LONG WINAPI lineAddProviderW(LPCWSTR file, HWND owner, LPDWORD id) {
    if (const LONG refusal = Refusal("ZT_TAPI_ADD"))
        return refusal;
    const HKEY key = OpenProviders();
    Entry entry;
    entry.id = ReadNumber(key, L"NextProviderID", 1);
    std::wcsncpy(entry.file, file, std::size(entry.file) - 1);
    const LONG result = RunInstallation(file, owner, entry.id);
    if (result == 0) {
        const DWORD count = ReadNumber(key, L"NumProviders", 0);
        WriteEntry(key, count, entry);
        WriteNumber(key, L"NumProviders", count + 1);
        WriteNumber(key, L"NextProviderID", entry.id + 1);
        *id = entry.id;
    }
    RegCloseKey(key);
    return result;
}

LONG WINAPI lineRemoveProvider(DWORD id, HWND) {
    if (const LONG refusal = Refusal("ZT_TAPI_REMOVE"))
        return refusal;
    const HKEY key = OpenProviders();
    const DWORD count = ReadNumber(key, L"NumProviders", 0);
    DWORD kept = 0;
    for (DWORD i = 0; i < count; ++i)
        if (const Entry entry = ReadEntry(key, i); entry.id != id)
            WriteEntry(key, kept++, entry);
    for (DWORD i = kept; i < count; ++i) {
        RegDeleteValueW(key, Name(L"ProviderID", i).text);
        RegDeleteValueW(key, Name(L"ProviderFilename", i).text);
    }
    WriteNumber(key, L"NumProviders", kept);
    RegCloseKey(key);
    return kept == count ? static_cast<LONG>(LINEERR_INVALPARAM) : 0;
}

}  // extern "C"
