// What the files that call Windows and TAPI share: their headers, texts, and the way to TAPI's functions.
#pragma once

#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#define TAPI_CURRENT_VERSION 0x00020000
#include "ztsetup/text.h"

#include <windows.h>

#include <tapi.h>

#include <iterator>

namespace Setup {

using Wide = WCHAR[1024];

inline const WCHAR* ToWide(std::string_view text, Wide& wide) {
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide,
                                           static_cast<int>(std::size(wide)) - 1);
    wide[length] = 0;
    return wide;
}

template <std::size_t Room> TextOf<Room> FromWide(const WCHAR* wide, int length) {
    char narrow[Room];
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, wide, length, narrow, static_cast<int>(sizeof narrow), nullptr, nullptr);
    return TextOf<Room>({narrow, static_cast<std::size_t>(size)});
}

// Windows looks for an imported library, or one that is loaded by its name alone, beside the program first; this program
// runs as administrator from wherever it was unpacked, so what lies there must not be taken for TAPI.
template <class Function> Function FindTapi(const char* name) {
    constexpr WCHAR TAPI[] = L"\\tapi32.dll";
    Wide path;
    const UINT length = GetSystemDirectoryW(path, static_cast<UINT>(std::size(path) - std::size(TAPI)));
    if (length == 0 || length > std::size(path) - std::size(TAPI))
        return nullptr;
    lstrcpyW(path + length, TAPI);
    const HMODULE tapi = LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);  // what it needs: from there too
    return tapi == nullptr ? nullptr : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(tapi, name)));
}

template <class Function, class... Arguments> LONG CallTapi(const char* name, Arguments... arguments) {
    const auto function = FindTapi<Function>(name);
    return function == nullptr ? static_cast<LONG>(LINEERR_OPERATIONUNAVAIL) : function(arguments...);
}

}  // namespace Setup
