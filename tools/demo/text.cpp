#include "demo/text.h"

#include <algorithm>

namespace Demo {

namespace {

constexpr std::size_t INDENT = 2;  // of the lines that a long one goes on in

bool IsContinuation(char c) {
    return (c & 0xC0) == 0x80;
}

// The byte behind the first `columns` columns.
std::size_t ByteAt(const std::string& text, std::size_t columns) {
    std::size_t at = 0;
    while (at < text.size() && (columns > 0 || IsContinuation(text[at])))
        if (!IsContinuation(text[at++]))
            --columns;
    return at;
}

}  // namespace

std::size_t Columns(const std::string& text) {
    return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), IsContinuation));
}

std::string Padded(std::string text, std::size_t width) {
    const std::size_t columns = Columns(text);
    if (columns < width)
        text.append(width - columns, ' ');
    return text;
}

std::string Start(const std::string& text, std::size_t width) {
    return text.substr(0, ByteAt(text, width));
}

std::vector<std::string> Wrapped(const std::string& text, std::size_t width) {
    width = std::max<std::size_t>(width, INDENT + 1);
    std::vector<std::string> lines;
    std::string rest = text;
    std::string indent;
    while (Columns(indent + rest) > width) {
        const std::size_t room = ByteAt(rest, width - indent.size());
        const std::size_t blank = rest.rfind(' ', room);
        const bool breakable = blank != std::string::npos && rest.find_first_not_of(' ') < blank;
        const std::size_t end = breakable ? blank : room;
        lines.push_back(indent + rest.substr(0, end));
        rest.erase(0, breakable ? end + 1 : end);
        indent.assign(INDENT, ' ');
    }
    lines.push_back(indent + rest);
    return lines;
}

}  // namespace Demo
