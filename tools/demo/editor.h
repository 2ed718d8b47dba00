// One line being typed, and the lines typed before. Characters are Unicode's, one column each.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Demo {

// A character as UTF-8.
std::string ToUtf8(char32_t c);

class Editor {
public:
    void Insert(char32_t c);
    void Backspace();
    void Delete();
    void Left();
    void Right();
    void Home() { cursor = 0; }
    void End() { cursor = text.size(); }
    void EraseBefore();
    void EraseBehind() { text.resize(cursor); }
    void EraseWord();
    // Through the lines typed before; the one that was being typed is found again behind the newest.
    void Older();
    void Newer();
    // Puts an ASCII text there to be edited.
    void Propose(const std::string& proposal);
    // What was typed. It joins the lines typed before, and the next one begins empty.
    std::string Take();

    bool Empty() const { return text.empty(); }
    // The part of the line that a field of `width` columns shows, and the cursor's column in it.
    struct View {
        std::string text;
        std::size_t cursor;
    };
    View Shown(std::size_t width) const;

private:
    std::u32string text, unfinished;
    std::size_t cursor = 0;
    std::vector<std::u32string> history;
    std::size_t at = 0;  // in the history; behind its end: the unfinished line

    void Show(std::size_t index);
};

}  // namespace Demo
