#include "config/char_patterns.h"

#include "platform/copy_text.h"
#include "platform/platform.h"
#include "trace/trace.h"

#include <algorithm>
#include <cstring>

std::array<CharPattern, CHAR_PATTERNS> CharPatternTable{};
std::array<char, CHAR_PATTERNS> CharCodeArray = [] {
    std::array<char, CHAR_PATTERNS> blanks;
    blanks.fill(' ');
    return blanks;
}();

namespace {

constexpr UINT DIRECTORY_SIZE = 255;
constexpr const char* TABLE_FILE = "\\zt_opt.fdb";
constexpr const char* ARRAY_FILE = "\\zt_array.fdb";

// A name below the system directory; empty when that does not fit its buffer.
struct BelowSystem {
    char path[DIRECTORY_SIZE + 16];
    explicit BelowSystem(const char* name) {
        const UINT length = GetSystemDirectoryA(path, DIRECTORY_SIZE);
        if (length == 0 || length >= DIRECTORY_SIZE)
            path[0] = 0;
        else
            CopyText(path + length, sizeof path - length, name);
    }
};

// Writes the whole record over an existing file; nothing when it cannot be opened.
void Rewrite(const char* path, const void* bytes, UINT size) {
    const HFILE file = _lopen(path, OF_READWRITE);
    if (file == HFILE_ERROR)
        return;
    _lwrite(file, static_cast<const char*>(bytes), size);
    _lclose(file);
}

void DumpTable() {
    const BelowSystem table(TABLE_FILE);
    if (table.path[0] == 0)
        return;
    HFILE file = _lopen(table.path, OF_READ);
    if (file == HFILE_ERROR) {
        file = _lcreat(table.path, 0);
        if (file != HFILE_ERROR)
            _lwrite(file, reinterpret_cast<const char*>(CharPatternTable.data()), sizeof CharPatternTable);
    }
    if (file != HFILE_ERROR)
        _lclose(file);
    Rewrite(table.path, CharPatternTable.data(), sizeof CharPatternTable);
}

}  // namespace

void RecordCharPattern(std::span<const std::uint8_t, 8> pattern, std::uint8_t code) {
    if (code >= CHAR_PATTERNS) {
        Trace(TRACE_ALWAYS, "Character pattern for code %d - skipped", code);
        return;
    }
    const auto record = std::find_if(CharPatternTable.begin(), CharPatternTable.end(), [&](const CharPattern& known) {
        return known.character == 0 || std::equal(pattern.begin(), pattern.end(), known.rows.begin());
    });
    if (record == CharPatternTable.end())
        return;
    if (record->character == 0) {
        std::copy(pattern.begin(), pattern.end(), record->rows.begin());
        record->character = ' ';
    }
    CharCodeArray[code] = static_cast<char>(record->character);
    record->code = code;
    DumpTable();
    if (const BelowSystem array(ARRAY_FILE); array.path[0] != 0)
        Rewrite(array.path, CharCodeArray.data(), sizeof CharCodeArray);
}
