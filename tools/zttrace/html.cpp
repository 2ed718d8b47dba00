#include "zttrace/html.h"

#include "report_page.h"  // the page in two parts, made from page/ by the build: the data goes between them

#include <cstdio>
#include <string_view>
#include <type_traits>

namespace TraceReader {

namespace {

// Values of JSON, with commas between. What could end the element that they stand in, or is no text at all (half a
// character where a line was cut), is written as a number.
struct Json {
    std::ostream& out;
    bool first = true;

    void Comma() {
        if (!first)
            out << ',';
        first = false;
    }
    void Open(char bracket) {
        Comma();
        out << bracket;
        first = true;
    }
    void Close(char bracket) {
        out << bracket;
        first = false;
    }
    void Name(const char* name) {
        Comma();
        out << '"' << name << "\":";
        first = true;
    }
    template <class T>
    requires std::is_arithmetic_v<T>
    void Value(T value) {
        Comma();
        out << +value;
    }
    void Value(std::string_view text) {
        Comma();
        out << '"';
        for (const char c : text)
            if (c == '"' || c == '\\')
                out << '\\' << c;
            else if (static_cast<unsigned char>(c) < 0x20 || c == '<' || c == '>' || c == '&' || c == 0x7F)
                Escape(static_cast<unsigned char>(c));
            else
                out << c;
        out << '"';
    }
    template <class T> void Array(const std::vector<T>& values) {
        Open('[');
        for (const T& value : values)
            Value(value);
        Close(']');
    }
    template <class... T> void Row(const T&... values) {
        Open('[');
        (Value(values), ...);
        Close(']');
    }

private:
    void Escape(unsigned char c) {
        char text[8];
        std::snprintf(text, sizeof text, "\\u%04x", c);
        out << text;
    }
};

template <class T, class Each> void List(Json& json, const char* name, const std::vector<T>& items, Each each) {
    json.Name(name);
    json.Open('[');
    for (const T& item : items)
        each(item);
    json.Close(']');
}

void WriteData(Json& json, const Story& story, const std::string& title) {
    json.Open('{');
    json.Name("title");
    json.Value(title);
    json.Name("starts");
    json.Array(story.starts);
    json.Name("missing");
    json.Array(story.Missing());
    json.Name("cutDumps");
    json.Value(story.cutDumps);
    List(json, "lines", story.lines, [&](const Story::TraceLine& line) {
        json.Row(std::string_view(line.text), line.ms, line.dayMs, static_cast<int>(line.levels));
    });
    List(json, "steps", story.steps, [&](const StoryStep& step) {
        json.Open('[');
        json.Value(step.line);
        json.Value(static_cast<int>(step.from));
        json.Value(static_cast<int>(step.to));
        json.Value(std::string_view(step.words));
        json.Array(step.crefs);
        json.Array(step.keys);
        json.Close(']');
    });
    List(json, "troubles", story.troubles, [&](const Trouble& trouble) {
        json.Row(trouble.line, trouble.lastLine, trouble.count, std::string_view(trouble.what),
                 std::string_view(trouble.advice));
    });
    List(json, "calls", story.calls, [&](const StoryCall& call) {
        json.Open('{');
        json.Name("cref");
        json.Value(call.cref);
        json.Name("over");
        json.Value(static_cast<int>(call.over));
        json.Name("parties");
        json.Array(call.parties);
        List(json, "states", call.states,
             [&](const StoryCall::Change& change) { json.Row(change.line, std::string_view(change.state)); });
        json.Close('}');
    });
    List(json, "changes", story.changes, [&](const SetChange& change) {
        json.Row(change.line, static_cast<int>(change.what), change.number, change.value, std::string_view(change.text),
                 std::string_view(change.kind));
    });
    json.Close('}');
}

}  // namespace

void WriteHtml(std::ostream& out, const Story& story, const std::string& title) {
    out << std::string_view(PageHead, sizeof PageHead);
    Json json{out};
    WriteData(json, story, title);
    out << std::string_view(PageTail, sizeof PageTail);
}

}  // namespace TraceReader
