// The host's system where the provider brings its own platform layer.
#include "tsphost/commands.h"
#include "tsphost/system.h"

#include <readline/history.h>
#include <readline/readline.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <dlfcn.h>
#include <unistd.h>

namespace Tsphost {

LibraryHandle LoadProvider(const std::string& path, std::string& error) {
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        error = dlerror();
    return library;
}

void UnloadProvider(LibraryHandle library) {
    dlclose(library);
}

void* FindAddress(LibraryHandle library, const char* name) {
    return dlsym(library, name);
}

std::string OwnDirectory(const char* program) {
    const char* slash = std::strrchr(program, '/');
    return slash == nullptr ? std::string("./") : std::string(program, slash + 1);
}

// The provider's platform layer reads them when it is loaded.
bool SetPlace(const char* name, const char* value) {
    return setenv(name, value, 1) == 0;
}

void PrepareStreams() {}

bool TypesCommands() {
    return isatty(STDIN_FILENO) != 0;
}

namespace {

// The tab key completes names of commands, and no file names.
char* NextName(const char* start, int again) {
    static std::size_t at = 0;
    if (again == 0)
        at = 0;
    const std::span<const Command> all = Commands();
    while (at < all.size())
        if (const char* name = all[at++].name; std::string_view(name).starts_with(start))
            return strdup(name);
    return nullptr;
}

char** Complete(const char* start, int, int) {
    rl_attempted_completion_over = 1;
    return rl_completion_matches(start, NextName);
}

// Readline calls this several times a second while the user types: events that came meanwhile go above the line.
int ShowEvents() {
    if (PrintKept("\r\033[K")) {
        rl_on_new_line();
        rl_redisplay();
    }
    return 0;
}

unsigned long CountEntries(const char* directory) {
    std::error_code ignored;
    const std::filesystem::directory_iterator entries(directory, ignored);
    return static_cast<unsigned long>(std::distance(begin(entries), end(entries)));
}

}  // namespace

bool TypedLine(std::string& line) {
    rl_attempted_completion_function = Complete;
    rl_event_hook = ShowEvents;
    BeginTyping();
    char* const typed = readline("tsphost> ");
    EndTyping();
    if (typed == nullptr)
        return false;
    if (*typed != 0)
        add_history(typed);
    line = typed;
    std::free(typed);
    return true;
}

void WatchBoxes() {}

// The directory that is read is itself an open file.
ProcessCounts CountProcess() {
    return {CountEntries("/proc/self/task"), CountEntries("/proc/self/fd") - 1};
}

}  // namespace Tsphost
