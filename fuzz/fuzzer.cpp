// A fuzzer of one target (ZT_TARGET, its function), and what it asks of the process.
#include "start.h"

#include <cstdlib>
#include <filesystem>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" const char* __asan_default_options();

// The platform's directories in memory, where there is such a place: the disk took nine tenths of the time.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::filesystem::is_directory("/dev/shm"))
        setenv("TMPDIR", "/dev/shm", 0);
    return 0;
}

// A stack with each block of memory costs as much as an input does; a fault shows its own all the same.
extern "C" const char* __asan_default_options() {
    return "malloc_context_size=1";
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return ZT_TARGET(data, size);
}
