#include "zttrace/report.h"

#include "zttrace/events.h"
#include "zttrace/texts.h"

#include <algorithm>
#include <cstdio>

namespace TraceReader {

namespace {

constexpr int SecondsOfDay = 24 * 3600;

bool Holds(const std::vector<int>& numbers, const std::optional<int>& wanted) {
    return wanted && std::find(numbers.begin(), numbers.end(), *wanted) != numbers.end();
}

const char* Direction(const Dump& dump) {
    return dump.kind == Dump::Sent ? "  -> " : "  <- ";
}

}  // namespace

// The header is the start of a provider, and the only line that ties its clock to the time of day.
bool Report::ReadHeader(const Line& line) {
    int day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (!line.stamped || std::sscanf(line.text.c_str(), "TSP CORVANE 6200 DebugFile - date: %d/%d/%d - %d:%d:%d", &day,
                                     &month, &year, &hour, &minute, &second) != 6)
        return false;
    headerStamp = line.stamp;
    headerSeconds = (hour * 60 + minute) * 60 + second;
    return true;
}

std::string Report::TimeOfDay(const Line& line) const {
    if (!headerStamp)
        return "";
    const std::uint32_t passed = line.stamp - *headerStamp;  // also over the clock's wrap
    const int seconds = static_cast<int>((static_cast<std::uint32_t>(headerSeconds) + passed / 1000) % SecondsOfDay);
    char text[24];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d ", seconds / 3600, seconds / 60 % 60, seconds % 60,
                  static_cast<int>(passed % 1000));
    return text;
}

bool Report::Wanted(const Line& line, const std::vector<Said>& said) const {
    if (!filter.mask && !filter.cref && !filter.key)
        return true;
    if (!line.stamped)
        return lastShown;
    const TextFacts facts = LookUp(line.text);
    // A text of another version's provider may be of any level: kept.
    if (filter.mask && !facts.format.empty() && (facts.levels & (*filter.mask | LevelAlways)) == 0)
        return false;
    if (!filter.cref && !filter.key)
        return true;
    return Holds(facts.callCrefs, filter.cref) || Holds(facts.keys, filter.key) ||
           std::any_of(said.begin(), said.end(), [&](const Said& one) { return Holds(one.keys, filter.key); });
}

void Report::Take(const std::string& raw) {
    const Line line = ReadLine(raw);
    ++lines;
    if (ReadHeader(line))
        decoder.Restart();
    const Dump dump = FindDump(line, announced);
    announced = AnnouncesCut(line);
    if (dump.kind != Dump::None && onDump)
        onDump(line, dump);
    const std::vector<Said> said = decoder.Explain(dump);
    lastShown = Wanted(line, said);
    if (dump.kind == Dump::Received)
        frameShown = lastShown;
    if (!lastShown)
        return;
    ++printed;
    if (!print)
        return;
    print(line.stamped ? TimeOfDay(line) + std::to_string(line.stamp) + " " + line.text : line.text);
    const std::string indent(line.stamped ? TimeOfDay(line).size() + std::to_string(line.stamp).size() - 1 : 0, ' ');
    for (const Said& one : said)
        if (!one.repeated || !frameShown)  // what stands just above is not said again
            print(indent + Direction(dump) + one.text);
    if (const std::string event = EventWords(line.text); !event.empty())
        print(indent + "  => " + event);
}

}  // namespace TraceReader
