// What the entry points of line and phone share: their ends, callers' texts and structures.
#pragma once

#include "platform/copy_text.h"
#include "provider/process.h"
#include "provider/state.h"
#include "provider/tapi.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

// The end of an entry point that refuses.
inline LONG Refuse(DWORD code) {
    return ReleaseLineMutex(Error(code));
}

// Texts and procedures are printed as addresses where a trace lists arguments.
inline std::uintptr_t Address(const void* text) {
    return reinterpret_cast<std::uintptr_t>(text);
}

inline void CopyBytes(void* structure, DWORD offset, const void* from, DWORD size) {
    std::memcpy(static_cast<std::byte*>(structure) + offset, from, size);
}

// Bytes that a text takes in a structure once it is wide, terminator included.
inline DWORD WideSize(const char* text) {
    return static_cast<DWORD>(std::strlen(text) + 1) * 2;
}

// A text of the provider's, at most 79 characters, as TAPI gets it.
struct WideText {
    explicit WideText(const char* narrow) : Size(WideSize(narrow)) {
        if (MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, narrow, -1, Text, NUMBER_SIZE) == 0)
            MultiByteToWideChar(CP_ACP, 0, narrow, -1, Text, NUMBER_SIZE);  // a code page that composes nothing (UTF-8)
    }
    DWORD Size;  // bytes
    WCHAR Text[NUMBER_SIZE] = {};
};

constexpr int WIDE_LIMIT = 81;  // wide characters looked at: one more than any text may have

// A caller's text in the ANSI code page, of which no more than WIDE_LIMIT characters are looked at. Empty for null.
struct NarrowText {
    explicit NarrowText(LPCWSTR wide) {
        if (wide == nullptr)
            return;
        while (Wide < WIDE_LIMIT && wide[Wide] != 0)
            ++Wide;
        if (Wide == 0)
            return;
        int length = Convert(wide, WC_COMPOSITECHECK | WC_DISCARDNS);
        if (length <= 0)
            length = Convert(wide, 0);  // a code page that knows no composite check (UTF-8)
        Failed = length <= 0;
        Buffer[std::max(length, 0)] = 0;
    }
    const char* Text() const { return Buffer; }
    // A text that could not be converted is none, rather than an empty one.
    bool Converted() const { return !Failed; }
    bool Fits() const { return !Failed && std::strlen(Buffer) < NUMBER_SIZE; }

    int Wide = 0;  // characters of the wide text, WIDE_LIMIT at most

private:
    int Convert(LPCWSTR wide, DWORD flags) {
        return WideCharToMultiByte(CP_ACP, flags, wide, Wide, Buffer, sizeof Buffer - 1, nullptr, nullptr);
    }
    bool Failed = false;
    char Buffer[WIDE_LIMIT * 3 + 1] = {};
};
