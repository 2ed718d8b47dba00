// A stand-in for tapi32.dll, for the tests of ztsetup and of the installers alone: Wine's has only stubs of these
// functions. It keeps the list of providers in the registry where Windows keeps it, and, as Windows does, runs the
// library's own installation dialog in the process that adds it. What it cannot tell is how Windows' telephony service
// takes the library.
//
// For an application it has a line where the provider is in the list, behind a modem's; on it a call comes and goes, and a
// call that is made is connected. The provider takes no part in that.
//
// ZT_TAPI_ADD, ZT_TAPI_REMOVE, ZT_TAPI_LIST, ZT_TAPI_OPEN: a code in hexadecimal that the function answers instead of doing
// its work.
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

// --- an application's line

constexpr HLINE LINE = 0x11;
constexpr HCALL COMES = 0x101, MADE = 0x102;
constexpr LONG REQUEST = 7;

HANDLE Arrived;
LINEMESSAGE Messages[16];
int First = 0, Last = 0;
HCALL* MakesCall;

void Tell(DWORD kind, DWORD device, DWORD_PTR first, DWORD_PTR second = 0) {
    LINEMESSAGE& message = Messages[Last++];
    message.dwMessageID = kind;
    message.hDevice = device;
    message.dwParam1 = first;
    message.dwParam2 = second;
    SetEvent(Arrived);
}

// A text behind what the structure has already.
template <class Structure> void Put(Structure* structure, const WCHAR* text, DWORD& size, DWORD& offset) {
    size = static_cast<DWORD>((std::wcslen(text) + 1) * sizeof(WCHAR));
    offset = structure->dwUsedSize;
    structure->dwUsedSize += size;
    std::memcpy(reinterpret_cast<char*>(structure) + offset, text, size);
}

template <class Structure> Structure* Begin(Structure* structure) {
    structure->dwNeededSize = structure->dwUsedSize = sizeof *structure;
    return structure;
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

LONG WINAPI lineInitializeExW(LPHLINEAPP app, HINSTANCE, LINECALLBACK, LPCWSTR, LPDWORD lines, LPDWORD version,
                              LPLINEINITIALIZEEXPARAMS parameters) {
    *app = 1;
    const HKEY key = OpenProviders();
    *lines = ReadNumber(key, L"NumProviders", 0);
    RegCloseKey(key);
    *version = TAPI_CURRENT_VERSION;
    Arrived = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    parameters->Handles.hEvent = Arrived;
    return parameters->dwOptions == LINEINITIALIZEEXOPTION_USEEVENT ? 0 : static_cast<LONG>(LINEERR_INVALPARAM);
}

LONG WINAPI lineNegotiateAPIVersion(HLINEAPP, DWORD device, DWORD, DWORD high, LPDWORD version, LPLINEEXTENSIONID) {
    *version = high;
    return device < 2 ? 0 : static_cast<LONG>(LINEERR_BADDEVICEID);
}

LONG WINAPI lineGetDevCapsW(HLINEAPP, DWORD device, DWORD, DWORD, LPLINEDEVCAPS line) {
    Begin(line)->dwMaxNumActiveCalls = 20;
    Put(line, device == 0 ? L"A modem" : L"CORVANE_ZT_6200_2.0_3", line->dwLineNameSize, line->dwLineNameOffset);
    Put(line, L"The maker", line->dwProviderInfoSize, line->dwProviderInfoOffset);
    return 0;
}

LONG WINAPI lineGetAddressCapsW(HLINEAPP, DWORD, DWORD, DWORD, DWORD, LPLINEADDRESSCAPS address) {
    Put(Begin(address), L"4711", address->dwAddressSize, address->dwAddressOffset);
    address->dwAddressFeatures = LINEADDRFEATURE_MAKECALL;
    address->dwCallFeatures = LINECALLFEATURE_ANSWER | LINECALLFEATURE_DROP;
    return 0;
}

LONG WINAPI lineOpenW(HLINEAPP, DWORD device, LPHLINE line, DWORD version, DWORD, DWORD_PTR, DWORD privileges, DWORD,
                      LPLINECALLPARAMS const) {
    if (const LONG refusal = Refusal("ZT_TAPI_OPEN"))
        return refusal;
    *line = LINE;
    return device == 1 && version == TAPI_CURRENT_VERSION && privileges == LINECALLPRIVILEGE_MONITOR
               ? 0
               : static_cast<LONG>(LINEERR_INVALPARAM);
}

LONG WINAPI lineSetStatusMessages(HLINE line, DWORD, DWORD) {
    Tell(LINE_LINEDEVSTATE, line, LINEDEVSTATE_CONNECTED | LINEDEVSTATE_INSERVICE);
    Tell(LINE_APPNEWCALL, line, 0, COMES);
    Tell(LINE_CALLSTATE, COMES, LINECALLSTATE_OFFERING);
    Tell(LINE_CALLINFO, COMES, LINECALLINFOSTATE_CALLERID);
    Tell(LINE_CALLSTATE, COMES, LINECALLSTATE_IDLE);
    return 0;
}

LONG WINAPI lineGetMessage(HLINEAPP, LPLINEMESSAGE message, DWORD) {
    if (First == Last)
        return static_cast<LONG>(LINEERR_OPERATIONFAILED);
    *message = Messages[First++];
    if (First == Last)
        ResetEvent(Arrived);
    if (message->dwMessageID == LINE_REPLY && message->dwParam1 == REQUEST)
        *MakesCall = MADE;  // not before, as in Windows
    return 0;
}

LONG WINAPI lineGetCallInfoW(HCALL, LPLINECALLINFO info) {
    Put(Begin(info), L"0145678901", info->dwCallerIDSize, info->dwCallerIDOffset);
    Put(info, L"DUPONT", info->dwCallerIDNameSize, info->dwCallerIDNameOffset);
    return 0;
}

LONG WINAPI lineMakeCallW(HLINE, LPHCALL call, LPCWSTR number, DWORD, LPLINECALLPARAMS const) {
    if (std::wcscmp(number, L"4750") != 0)
        return static_cast<LONG>(LINEERR_INVALADDRESS);
    MakesCall = call;
    Tell(LINE_REPLY, 0, REQUEST, 0);
    Tell(LINE_CALLSTATE, MADE, LINECALLSTATE_CONNECTED);
    return REQUEST;
}

LONG WINAPI lineDrop(HCALL call, LPCSTR, DWORD) {
    if (call != MADE)
        return static_cast<LONG>(LINEERR_INVALCALLHANDLE);
    Tell(LINE_CALLSTATE, call, LINECALLSTATE_IDLE);
    return REQUEST + 1;
}

LONG WINAPI lineDeallocateCall(HCALL) {
    return 0;
}

LONG WINAPI lineClose(HLINE) {
    return 0;
}

LONG WINAPI lineShutdown(HLINEAPP) {
    return 0;
}

}  // extern "C"
