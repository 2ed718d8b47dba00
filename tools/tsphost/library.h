// Loading a provider and finding its exports: the one place of the host that differs between systems.
#pragma once

#include "platform/platform.h"

#include <string>

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

namespace Tsphost {

#if defined(_WIN32)
using LibraryHandle = HMODULE;
#else
using LibraryHandle = void*;
#endif

// Gives null, with the reason in `error`, when the library cannot be loaded.
inline LibraryHandle LoadProvider(const std::string& path, std::string& error) {
#if defined(_WIN32)
    const HMODULE library = LoadLibraryA(path.c_str());
    if (library == nullptr)
        error = "system error " + std::to_string(GetLastError());
    return library;
#else
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        error = dlerror();
    return library;
#endif
}

// Gives null when the library has no such export.
template <class Function> Function FindExport(LibraryHandle library, const char* name) {
#if defined(_WIN32)
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
#else
    return reinterpret_cast<Function>(dlsym(library, name));
#endif
}

inline void UnloadProvider(LibraryHandle library) {
#if defined(_WIN32)
    FreeLibrary(library);
#else
    dlclose(library);
#endif
}

}  // namespace Tsphost
