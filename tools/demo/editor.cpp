#include "demo/editor.h"

namespace Demo {

std::string ToUtf8(char32_t c) {
    const auto byte = [](char32_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    if (c < 0x80)
        return {byte(c)};
    if (c < 0x800)
        return {byte(0xC0 | (c >> 6)), byte(0x80 | (c & 0x3F))};
    if (c < 0x10000)
        return {byte(0xE0 | (c >> 12)), byte(0x80 | ((c >> 6) & 0x3F)), byte(0x80 | (c & 0x3F))};
    return {byte(0xF0 | (c >> 18)), byte(0x80 | ((c >> 12) & 0x3F)), byte(0x80 | ((c >> 6) & 0x3F)),
            byte(0x80 | (c & 0x3F))};
}

namespace {

std::string ToUtf8(const std::u32string& text) {
    std::string utf8;
    for (const char32_t c : text)
        utf8 += Demo::ToUtf8(c);
    return utf8;
}

}  // namespace

void Editor::Insert(char32_t c) {
    text.insert(cursor++, 1, c);
}

void Editor::Backspace() {
    if (cursor > 0)
        text.erase(--cursor, 1);
}

void Editor::Delete() {
    if (cursor < text.size())
        text.erase(cursor, 1);
}

void Editor::Left() {
    if (cursor > 0)
        --cursor;
}

void Editor::Right() {
    if (cursor < text.size())
        ++cursor;
}

void Editor::EraseBefore() {
    text.erase(0, cursor);
    cursor = 0;
}

void Editor::EraseWord() {
    std::size_t from = cursor;
    while (from > 0 && text[from - 1] == U' ')
        --from;
    while (from > 0 && text[from - 1] != U' ')
        --from;
    text.erase(from, cursor - from);
    cursor = from;
}

void Editor::Show(std::size_t index) {
    if (at == history.size())
        unfinished = text;
    at = index;
    text = at == history.size() ? unfinished : history[at];
    cursor = text.size();
}

void Editor::Older() {
    if (at > 0)
        Show(at - 1);
}

void Editor::Newer() {
    if (at < history.size())
        Show(at + 1);
}

void Editor::Propose(const std::string& proposal) {
    text.assign(proposal.begin(), proposal.end());
    cursor = text.size();
}

std::string Editor::Take() {
    std::string line = ToUtf8(text);
    if (!text.empty() && (history.empty() || history.back() != text))
        history.push_back(text);
    at = history.size();
    text.clear();
    unfinished.clear();
    cursor = 0;
    return line;
}

Editor::View Editor::Shown(std::size_t width) const {
    // The cursor's place behind the last character needs a column too.
    const std::size_t from = cursor < width ? 0 : cursor - width + 1;
    return {ToUtf8(text.substr(from, width)), cursor - from};
}

}  // namespace Demo
