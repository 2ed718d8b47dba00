#include "zttrace/texts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <string_view>

namespace TraceReader {

namespace {

struct TextEntry {
    unsigned levels;
    const char* format;
};
constexpr TextEntry Written[] = {
#include "trace_texts.h"
    {LevelAlways, "TSP CORVANE 6200 DebugFile - date: %s - %s"},
    {LevelAlways, "* OutputTraceMode:%d *"},
};

struct LevelName {
    const char* name;
    unsigned level;
};
constexpr LevelName Names[] = {{"always", 0},  {"entry", 1}, {"link", 2},  {"input", 4},
                               {"display", 8}, {"call", 16}, {"omna", 32}, {"config", 64}};

// The words in front of a number that say what it is, as the texts spell them.
constexpr std::array CallWords = {
    "cref", "Ref", "cref1", "cref2", "UnknownConnectedCall", "PickUpSupervProceeding", "LINECALLSTATE_IDLE,"};
constexpr std::array KeyWords = {"tou",      "touche", "Touche", "Touch",  "TouchId", "ActivTou", "ActivCallTouch",
                                 "activtou", "Icone",  "icon",   "iconid", "ICON",    "key",      "Key",
                                 "pushed",   "superv", "spe"};

// A format in pieces: fixed text, then a conversion (0 at the end).
struct Piece {
    std::string fixed;
    char conversion = 0;
};
struct Pattern {
    const TextEntry* entry;
    std::vector<Piece> pieces;
    std::size_t fixedSize = 0;
};

Pattern Compile(const TextEntry& entry) {
    Pattern pattern{&entry, {{}}, 0};
    for (const char* at = entry.format; *at != 0; ++at) {
        if (*at != '%' || *++at == '%') {
            pattern.pieces.back().fixed += *at;
            ++pattern.fixedSize;
            continue;
        }
        while (std::string_view("-#0123456789.lh").find(*at) != std::string_view::npos && *at != 0)
            ++at;
        if (*at == 0)
            break;
        pattern.pieces.back().conversion = *at;
        pattern.pieces.emplace_back();
    }
    // A line feed at the end of a text is the line's end, in the file.
    std::string& last = pattern.pieces.back().fixed;
    while (!last.empty() && last.back() == '\n')
        last.pop_back();
    return pattern;
}

// Best first: the text with most of its own characters is the one that a line came from.
const std::vector<Pattern>& Patterns() {
    static const std::vector<Pattern> patterns = [] {
        std::vector<Pattern> made;
        for (const TextEntry& entry : Written)
            made.push_back(Compile(entry));
        std::erase_if(made, [](const Pattern& p) { return p.fixedSize == 0; });
        std::stable_sort(made.begin(), made.end(), [](auto& a, auto& b) { return a.fixedSize > b.fixedSize; });
        return made;
    }();
    return patterns;
}

bool Fits(char c, char conversion) {
    switch (conversion) {
    case 'd':
    case 'i':
    case 'u': return (c >= '0' && c <= '9') || c == '-' || c == ' ';
    case 'x':
    case 'X': return std::isxdigit(static_cast<unsigned char>(c)) != 0 || c == ' ';
    default: return true;
    }
}

// Takes the longest run first for numbers, the shortest for texts. A text argument may hold what stands behind it, so
// both go on to try the others.
bool Match(const Pattern& pattern, std::size_t piece, std::string_view text, std::vector<std::string>& values) {
    const Piece& now = pattern.pieces[piece];
    if (!text.starts_with(now.fixed))
        return false;
    text.remove_prefix(now.fixed.size());
    if (now.conversion == 0)
        return text.empty();
    const bool number = std::string_view("diuxX").find(now.conversion) != std::string_view::npos;
    std::size_t most = 0;
    while (most < text.size() && Fits(text[most], now.conversion))
        ++most;
    for (std::size_t i = 0; i <= most; ++i) {
        const std::size_t length = number ? most - i : i;
        values.emplace_back(text.substr(0, length));
        if (Match(pattern, piece + 1, text.substr(length), values))
            return true;
        values.pop_back();
    }
    return false;
}

// The word that `fixed` ends in, blanks and punctuation behind it left out.
bool EndsInOneOf(std::string_view fixed, auto& words) {
    while (!fixed.empty() && std::string_view(" :=(").find(fixed.back()) != std::string_view::npos)
        fixed.remove_suffix(1);
    return std::any_of(words.begin(), words.end(), [&](std::string_view word) {
        if (!fixed.ends_with(word))
            return false;
        const std::string_view before = fixed.substr(0, fixed.size() - word.size());
        return before.empty() || std::isalpha(static_cast<unsigned char>(before.back())) == 0;
    });
}

}  // namespace

TextFacts LookUp(const std::string& text) {
    for (const Pattern& pattern : Patterns()) {
        std::vector<std::string> values;
        if (!Match(pattern, 0, text, values))
            continue;
        TextFacts facts{pattern.entry->format, pattern.entry->levels, {}, {}};
        for (std::size_t i = 0; i < values.size(); ++i) {
            const Piece& piece = pattern.pieces[i];
            if (std::string_view("dux").find(piece.conversion) == std::string_view::npos)
                continue;
            const long value = std::strtol(values[i].c_str(), nullptr, piece.conversion == 'x' ? 16 : 10);
            if (EndsInOneOf(piece.fixed, CallWords))
                facts.callCrefs.push_back(static_cast<int>(value));
            else if (EndsInOneOf(piece.fixed, KeyWords))
                facts.keys.push_back(static_cast<int>(value));
        }
        return facts;
    }
    return {};
}

std::optional<unsigned> ReadMask(const std::string& words) {
    unsigned mask = 0;
    for (std::size_t at = 0; at <= words.size();) {
        const std::size_t comma = std::min(words.find(',', at), words.size());
        const std::string word = words.substr(at, comma - at);
        at = comma + 1;
        const auto* const named =
            std::find_if(std::begin(Names), std::end(Names), [&](const auto& name) { return word == name.name; });
        if (named != std::end(Names)) {
            mask |= named->level;
            continue;
        }
        char* end = nullptr;
        const unsigned long value = std::strtoul(word.c_str(), &end, 0);
        if (word.empty() || std::isdigit(static_cast<unsigned char>(word[0])) == 0 || *end != 0 || value > 127)
            return {};
        mask |= static_cast<unsigned>(value);
    }
    return mask;
}

std::string LevelNames() {
    std::string text;
    for (const LevelName& name : Names)
        text += (text.empty() ? "" : ", ") + std::string(name.name) + " " + std::to_string(name.level);
    return text;
}

}  // namespace TraceReader
