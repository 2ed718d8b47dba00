// What the shipped library is tried with beside the host.
//
//   probe LIBRARY sentence EVENT TEXT ...  prints the event's sentence, as the Event Viewer makes it of the library
//   probe LIBRARY crash DUMP               crashes in the library, and writes a dump as Windows' error reporting does
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <dbghelp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char* DumpName = nullptr;

LONG WINAPI WriteDump(EXCEPTION_POINTERS* what) {
    // Wine's dbghelp reads the debug information of every loaded module otherwise, its own system's too: that takes half a
    // minute, and it breaks down over it as the addresses fall.
    SymSetOptions(SYMOPT_DEFERRED_LOADS);
    const HANDLE file = CreateFileA(DumpName, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    MINIDUMP_EXCEPTION_INFORMATION information{GetCurrentThreadId(), what, FALSE};
    if (!MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &information, nullptr,
                           nullptr))
        std::printf("no dump: error %lu\n", GetLastError());
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 0);
    return EXCEPTION_EXECUTE_HANDLER;
}

void Crash(HMODULE library) {
    using Identify = LONG(WINAPI*)(WCHAR*);
    const auto identify =
        reinterpret_cast<Identify>(reinterpret_cast<void*>(GetProcAddress(library, "TSPI_providerUIIdentify")));
    SetUnhandledExceptionFilter(WriteDump);
    identify(reinterpret_cast<WCHAR*>(16));
}

int Sentence(HMODULE library, const char* event, char** texts) {
    char sentence[2048];
    // Room for three, as the texts of every event are.
    if (FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, library,
                       static_cast<DWORD>(std::strtoul(event, nullptr, 16)), 0, sentence, sizeof sentence,
                       reinterpret_cast<va_list*>(texts)) == 0)
        return 1;
    std::printf("%s", sentence);
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    const HMODULE library = count < 4 ? nullptr : LoadLibraryA(arguments[1]);
    if (library == nullptr)
        return 2;
    if (std::strcmp(arguments[2], "sentence") == 0 && count == 7)
        return Sentence(library, arguments[3], arguments + 4);
    DumpName = arguments[3];
    Crash(library);
    return 3;
}
