// What the host wants of the system, and each system has in its own way: posix.cpp or windows.cpp, whichever the build
// takes.
#pragma once

#include <string>

namespace Tsphost {

using LibraryHandle = void*;

// Gives null, with the reason in `error`, when the library cannot be loaded.
LibraryHandle LoadProvider(const std::string& path, std::string& error);
void UnloadProvider(LibraryHandle library);
void* FindAddress(LibraryHandle library, const char* name);
// Gives null when the library has no such export.
template <class Function> Function FindExport(LibraryHandle library, const char* name) {
    return reinterpret_cast<Function>(FindAddress(library, name));
}

// Where this program lies, with the separator behind it.
std::string OwnDirectory(const char* program);
// Where the provider finds its port, registry and drive C:, for one loaded afterwards. False where these are the
// system's own.
bool SetPlace(const char* name, const char* value);

// Before anything is written or read.
void PrepareStreams();
// Whether somebody types the commands. False also where the system has no line editing of its own to do for that.
bool TypesCommands();
// The line typed, false at the end. Events that come meanwhile are shown above it.
bool TypedLine(std::string& line);

// With ZT_BOX_MS in the environment, message boxes of this process are from here on also written to standard error, one
// line "[box] caption: text", line feeds as " / ", and closed after so many milliseconds. Where the provider brings its own
// platform layer, that does it.
void WatchBoxes();

struct ProcessCounts {
    unsigned long Threads = 0, Handles = 0;
};
ProcessCounts CountProcess();

}  // namespace Tsphost
