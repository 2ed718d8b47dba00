// ztsetup: adds the provider to the Windows telephony service, removes it, and tries its line.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include "ztsetup/setup.h"

#include <windows.h>

#include <algorithm>

namespace {

using namespace Setup;

// To a console in wide characters, which it shows whatever its code page; to a file or pipe in that code page.
void Print(std::string_view text, DWORD where) {
    static WCHAR wide[2 * sizeof(Message)];
    static char narrow[2 * sizeof wide];
    int length = 0;
    while (!text.empty()) {
        const std::string_view line{text.data(), std::min(text.find('\n'), text.size())};
        length += MultiByteToWideChar(CP_UTF8, 0, line.data(), static_cast<int>(line.size()), wide + length,
                                      static_cast<int>(std::size(wide)) - length - 2);
        wide[length++] = L'\r';
        wide[length++] = L'\n';
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    const HANDLE out = GetStdHandle(where);
    DWORD done = 0;
    if (WriteConsoleW(out, wide, static_cast<DWORD>(length), &done, nullptr))
        return;
    const UINT page = GetConsoleOutputCP();
    const int size = WideCharToMultiByte(page != 0 ? page : CP_ACP, 0, wide, length, narrow,
                                         static_cast<int>(sizeof narrow), nullptr, nullptr);
    WriteFile(out, narrow, static_cast<DWORD>(size), &done, nullptr);
}

// Libraries that others load by name alone come from the system directory too, and not from beside this program. Windows 7
// without its updates cannot be told so.
void KeepToSystemLibraries() {
    using SetDirectories = BOOL(WINAPI*)(DWORD);
    const auto set = reinterpret_cast<SetDirectories>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories")));
    if (set != nullptr)
        set(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

}  // namespace

void Setup::Show(std::string_view lines) {
    Print(lines, STD_OUTPUT_HANDLE);
}

int wmain(int count, WCHAR** arguments) {
    KeepToSystemLibraries();
    static Path texts[8];
    static std::string_view words[std::size(texts)];
    int used = 0;
    for (int i = 1; i < count && used < static_cast<int>(std::size(texts)); ++i, ++used) {
        char narrow[sizeof texts[0].text];
        const int size = WideCharToMultiByte(CP_UTF8, 0, arguments[i], -1, narrow, static_cast<int>(sizeof narrow),
                                             nullptr, nullptr);
        texts[used].Add({narrow, static_cast<std::size_t>(size > 0 ? size - 1 : 0)});
        words[used] = texts[used].View();
    }
    const Outcome outcome = Run(std::span(words).first(static_cast<std::size_t>(used)));
    const bool answered = outcome.code == EXIT_DONE || outcome.code == EXIT_NOTHING || outcome.code == EXIT_ACCOUNT;
    if (outcome.message.length != 0)
        Print(outcome.message.View(), answered ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    return outcome.code;
}
