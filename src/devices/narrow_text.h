// Texts that applications give: wide, and narrow in here.
#pragma once

#include "platform/platform.h"
#include "provider/state.h"

#include <algorithm>
#include <cstring>

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
    // A text that could not be converted fits nowhere, rather than counting as an empty one.
    bool Fits() const { return !Failed && std::strlen(Buffer) < NUMBER_SIZE; }

    int Wide = 0;  // characters of the wide text, WIDE_LIMIT at most

private:
    int Convert(LPCWSTR wide, DWORD flags) {
        return WideCharToMultiByte(CP_ACP, flags, wide, Wide, Buffer, sizeof Buffer - 1, nullptr, nullptr);
    }
    bool Failed = false;
    char Buffer[WIDE_LIMIT * 3 + 1] = {};
};
