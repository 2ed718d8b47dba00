// Loads the library named on the command line, as the telephony service would have it loaded, until the event that is
// named next is set; without a library, sets the event. Says "loaded" once it is.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstdio>
#include <cstring>

int main(int count, char** words) {
    if (count != 3)
        return 2;
    const HANDLE end = CreateEventA(nullptr, TRUE, FALSE, words[2]);
    if (std::strcmp(words[1], "end") == 0)
        return SetEvent(end) ? 0 : 1;
    if (LoadLibraryA(words[1]) == nullptr) {
        std::printf("%s cannot be loaded: error %lu\n", words[1], GetLastError());
        return 1;
    }
    std::puts("loaded");
    std::fflush(stdout);
    return WaitForSingleObject(end, 120'000) == WAIT_OBJECT_0 ? 0 : 1;
}
