// The operating system, as the rest of this library sees it. On Windows: the published headers and nothing more.
// Elsewhere the same names, for exactly the subset in use, implemented under posix/.
#pragma once

#if defined(_WIN32)

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#define TAPI_CURRENT_VERSION 0x00020000
// mmsystem.h comes in with windows.h only when it is not lean.
#include <windows.h>

#include <mmsystem.h>

#include <tapi.h>
#include <tspi.h>
#include <wtsapi32.h>

#include <direct.h>

#include <cstdio>

// For the trace alone, which several processes write: whatever the mode, all is written at the file's end. One that another
// process has emptied would else go on where it stood, into the other's lines.
inline std::FILE* FileOpen(const char* path, const char* mode) {
    std::FILE* const file = std::fopen(path, mode);
    return file == nullptr ? nullptr : std::freopen(path, "a", file);
}
inline int FileRename(const char* from, const char* to) {
    return std::rename(from, to);
}
inline int FileRemove(const char* path) {
    return std::remove(path);
}

#ifdef ZT_SIMULATED
#include "platform/windows/replaced.h"
#endif

#else

#include "platform/posix/windows.h"

#include "platform/posix/telephony.h"

#endif
