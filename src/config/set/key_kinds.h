// The kinds of programmable key as the configuration names them: one table for load, dialogue and save.
#pragma once

#include "tracking/model.h"

#include <array>
#include <cstring>
#include <span>

struct KeyKind {
    TouchKind Kind;
    const char* Code;  // in front of the label in the stored form
    KeyList& (*ListOf)(KeyListSet& lists);
    const char* LoadTrace;  // when loaded from the store: key, label
    const char* RcvTrace;   // when received from the PBX: key, label; multi-line keys have a message of their own
};

inline constexpr std::array<KeyKind, 5> KeyKinds{{
    {TOUCH_MULTI, "M", [](KeyListSet& lists) -> KeyList& { return lists.Multi; }, "Touche %02d Multiligne '%s'",
     nullptr},
    {TOUCH_SUPERV, "SU", [](KeyListSet& lists) -> KeyList& { return lists.Superv; }, "line.Touche %02d Superv '%s'",
     "Superv     TouchId:%02d - :%s"},
    {TOUCH_PATRON, "EX", [](KeyListSet& lists) -> KeyList& { return lists.Patron; }, "line.Touche %02d Patron '%s'",
     "Patron     TouchId:%02d - :%s"},
    {TOUCH_SECRETAIRE, "SE", [](KeyListSet& lists) -> KeyList& { return lists.Secretaire; },
     "line.Touche %02d Secretaire '%s'", "Secretaire TouchId:%02d - :%s"},
    {TOUCH_SECR_DEBORD, "RS", [](KeyListSet& lists) -> KeyList& { return lists.SecrDebord; },
     "line.Touche %02d Secr Debord'%s'", "Secretaire Debord TouchId:%02d - :%s"},
}};

inline constexpr const KeyKind& MultiKind = KeyKinds[0];
inline constexpr std::span<const KeyKind> SpecialKinds = std::span(KeyKinds).subspan(1);

// The kind whose code the stored form begins with, or null.
inline const KeyKind* KindOfData(const char* data) {
    for (const KeyKind& kind : KeyKinds)
        if (std::strncmp(data, kind.Code, std::strlen(kind.Code)) == 0)
            return &kind;
    return nullptr;
}

// The special kind (7 to 10) with this number, or null.
inline const KeyKind* SpecialKind(int number) {
    for (const KeyKind& kind : SpecialKinds)
        if (kind.Kind == number)
            return &kind;
    return nullptr;
}
