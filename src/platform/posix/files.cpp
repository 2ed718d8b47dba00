// Directories and files under Windows paths, text, memory, the last error.
#include "platform/simulated/state.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Simulated {

namespace {

std::string& RootPath = *new std::string;  // holds drive C:
bool RootIsOurs = false;                   // a temporary one, removed at the end
std::string& WindowsPath = *new std::string("C:\\WINDOWS");
std::atomic<int> FilesOpen = 0, Blocks = 0;

thread_local DWORD LastError = 0;

// Removes the temporary root when the process ends.
struct TemporaryRoot {
    ~TemporaryRoot() { Remove(); }
    static void Remove() {
        if (RootIsOurs && !RootPath.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(RootPath, ignored);
        }
        RootIsOurs = false;
    }
} Cleanup;

const std::string& RootLocked() {
    if (!RootPath.empty())
        return RootPath;
    if (const char* chosen = std::getenv("ZT_ROOT")) {
        RootPath = chosen;
    } else {
        std::string name = (std::filesystem::temp_directory_path() / "zt_root_XXXXXX").string();
        RootIsOurs = mkdtemp(name.data()) != nullptr;
        RootPath = RootIsOurs ? name : "/dev/null";  // below which nothing can be made
    }
    std::error_code ignored;
    std::filesystem::create_directories(RootPath + "/c/windows/system32", ignored);
    return RootPath;
}

// "C:\WINDOWS\spitrace" -> ROOT/c/windows/spitrace: Windows' names know no case.
std::string Mapped(const std::string& path) {
    std::string out = path.size() >= 2 && path[1] == ':' ? std::string(1, path[0]) + path.substr(2) : "c/" + path;
    for (char& c : out)
        c = c == '\\' ? '/' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return RootLocked() + '/' + out;
}

UINT GiveDirectory(const std::string& path, LPSTR buffer, UINT size) {
    if (path.size() >= size)
        return static_cast<UINT>(path.size() + 1);  // the room that is needed
    std::memcpy(buffer, path.c_str(), path.size() + 1);
    return static_cast<UINT>(path.size());
}

// Windows-1252 between 0x80 and 0x9F; the five codes without a character stand for themselves.
constexpr std::array<char16_t, 32> High = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                           0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                           0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                           0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char16_t ToWide(unsigned char c) {
    return c >= 0x80 && c < 0xA0 ? High[c - 0x80u] : c;
}

char ToNarrow(char16_t c) {
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF))
        return static_cast<char>(c);
    const auto found = std::find(High.begin(), High.end(), c);
    return found == High.end() ? '?' : static_cast<char>(0x80 + (found - High.begin()));
}

// Converts up to `count` units (-1: up to and with the terminator) into `room`; 0 with ERROR_INSUFFICIENT_BUFFER when
// they do not fit, as Windows does.
template <class From, class To, class Convert>
int Transcode(const From* text, int count, To* out, int room, Convert one) {
    int length = count;
    if (count < 0) {
        length = 0;
        while (text[length] != 0)
            ++length;
        ++length;
    }
    if (room == 0)
        return length;
    const int taken = std::min(length, room);
    for (int i = 0; i < taken; ++i)
        out[i] = one(text[i]);
    if (taken < length) {
        SetLastError(122);  // ERROR_INSUFFICIENT_BUFFER
        return 0;
    }
    return length;
}

// In front of every block; keeps what follows aligned for anything.
struct alignas(std::max_align_t) Block {
    int locks = 0;
};

}  // namespace

void ResetFiles() {
    TemporaryRoot::Remove();
    RootPath.clear();
    WindowsPath = "C:\\WINDOWS";
    RootLocked();
}

}  // namespace Simulated

using namespace Simulated;

DWORD WINAPI GetLastError() {
    return LastError;
}

void WINAPI SetLastError(DWORD error) {
    LastError = error;
}

UINT WINAPI GetWindowsDirectoryA(LPSTR buffer, UINT size) {
    if (Fails("GetWindowsDirectoryA"))
        return 0;
    const Guard guard(Lock);
    return GiveDirectory(WindowsPath, buffer, size);
}

UINT WINAPI GetSystemDirectoryA(LPSTR buffer, UINT size) {
    if (Fails("GetSystemDirectoryA"))
        return 0;
    const Guard guard(Lock);
    return GiveDirectory(WindowsPath + "\\SYSTEM32", buffer, size);
}

std::string PlatformControl::PosixPath(const std::string& windowsPath) {
    const Guard guard(Lock);
    return Mapped(windowsPath);
}

std::string PlatformControl::Root() {
    const Guard guard(Lock);
    return RootLocked();
}

void PlatformControl::SetWindowsDirectory(const std::string& path) {
    std::string directory;
    {
        const Guard guard(Lock);
        WindowsPath = path;
        directory = Mapped(path + "\\system32");
    }
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
}

int _mkdir(const char* path) {
    return Fails("_mkdir") ? -1 : mkdir(PlatformControl::PosixPath(path).c_str(), 0777);
}

std::FILE* FileOpen(const char* path, const char* mode) {
    return Fails("FileOpen") ? nullptr : std::fopen(PlatformControl::PosixPath(path).c_str(), mode);
}

// As on Windows, the new name must be free.
int FileRename(const char* from, const char* to) {
    if (Fails("FileRename"))
        return -1;
    const std::string target = PlatformControl::PosixPath(to);
    if (access(target.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return -1;
    }
    return std::rename(PlatformControl::PosixPath(from).c_str(), target.c_str());
}

int FileRemove(const char* path) {
    return Fails("FileRemove") ? -1 : std::remove(PlatformControl::PosixPath(path).c_str());
}

namespace {

HFILE Counted(int file) {
    if (file >= 0)
        ++FilesOpen;
    return file;
}

}  // namespace

int Simulated::OpenFiles() {
    return FilesOpen + Blocks;
}

HFILE WINAPI _lopen(LPCSTR path, int mode) {
    if (Fails("_lopen"))
        return HFILE_ERROR;
    const int flags = mode == OF_READ ? O_RDONLY : mode == OF_WRITE ? O_WRONLY : O_RDWR;
    return Counted(open(PlatformControl::PosixPath(path).c_str(), flags | O_CLOEXEC));
}

HFILE WINAPI _lcreat(LPCSTR path, int) {
    if (Fails("_lcreat"))
        return HFILE_ERROR;
    return Counted(open(PlatformControl::PosixPath(path).c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

UINT WINAPI _lread(HFILE file, LPVOID buffer, UINT count) {
    return static_cast<UINT>(read(file, buffer, count));
}

UINT WINAPI _lwrite(HFILE file, LPCSTR bytes, UINT count) {
    if (Fails("_lwrite"))
        return static_cast<UINT>(HFILE_ERROR);
    return static_cast<UINT>(write(file, bytes, count));
}

LONG WINAPI _llseek(HFILE file, LONG offset, int) {
    return static_cast<LONG>(lseek(file, offset, SEEK_SET));
}

HFILE WINAPI _lclose(HFILE file) {
    if (close(file) != 0)
        return HFILE_ERROR;
    --FilesOpen;
    return 0;
}

int WINAPI MultiByteToWideChar(UINT, DWORD, LPCSTR text, int bytes, LPWSTR wide, int room) {
    if (Fails("MultiByteToWideChar"))
        return 0;
    return Transcode(text, bytes, wide, room, [](char c) { return ToWide(static_cast<unsigned char>(c)); });
}

int WINAPI WideCharToMultiByte(UINT, DWORD, LPCWSTR wide, int characters, LPSTR text, int room, LPCSTR, BOOL*) {
    if (Fails("WideCharToMultiByte"))
        return 0;
    return Transcode(wide, characters, text, room, ToNarrow);
}

// A block that need not be zeroed is filled with something else, as it may be on Windows.
HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T bytes) {
    if (Fails("GlobalAlloc"))
        return nullptr;
    auto* block = static_cast<Block*>(std::calloc(1, sizeof(Block) + bytes));
    if (block == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if ((flags & GMEM_ZEROINIT) == 0)
        std::memset(static_cast<void*>(block + 1), 0xCD, bytes);
    ++Blocks;
    return block;
}

LPVOID WINAPI GlobalLock(HGLOBAL handle) {
    if (handle == nullptr || Fails("GlobalLock"))
        return nullptr;
    const Guard guard(Lock);
    auto* block = static_cast<Block*>(handle);
    ++block->locks;
    return block + 1;
}

// Whether the block is still locked.
BOOL WINAPI GlobalUnlock(HGLOBAL handle) {
    const Guard guard(Lock);
    if (StuckUnlocks > 0) {
        --StuckUnlocks;
        return TRUE;
    }
    auto* block = static_cast<Block*>(handle);
    return block != nullptr && block->locks > 0 && --block->locks > 0;
}

HGLOBAL WINAPI GlobalFree(HGLOBAL handle) {
    if (handle != nullptr)
        --Blocks;
    std::free(handle);
    return nullptr;
}
