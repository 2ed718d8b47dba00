#include "zttrace/replay.h"

#include <algorithm>

namespace TraceReader {

namespace {

constexpr std::uint32_t WaitLimit = 3'600'000;  // of one `wait`
constexpr std::uint32_t ClockBack = 0x80000000;

}  // namespace

// 100000: the most frames that `ignore` counts; at the link's speed that is hours of talk.
Replay::Replay()
    : script("# Made by zttrace from what the provider received. Start the provider after the equipment.\n"
             "ignore 100000\n"
             "wait provider\n") {}

void Replay::Take(const Line& line, const Dump& dump) {
    if (dump.kind == Dump::Omna || dump.kind == Dump::None || !dump.trouble.empty())
        return;
    if (!last)
        last = line.stamp;
    if (dump.kind == Dump::Sent)
        return;
    Bytes item = dump.bytes;
    if (dump.cut) {
        // Of a super frame the messages that are whole can still be sent.
        bool damaged = false;
        const bool super = item[0] == Equipment::TypeSuper || item[0] == Equipment::TypeOldContainer;
        const auto whole = super ? Equipment::CutSuper(item, damaged) : std::vector<Bytes>{};
        script += "# " + std::to_string(line.stamp) + ": cut in the trace, " +
                  (whole.empty() ? "left out" : "the first " + std::to_string(whole.size()) + " messages of it") + "\n";
        ++leftOut;
        if (whole.empty())
            return;
        item = Equipment::BuildSuper(whole, item[0]);
    }
    std::uint32_t passed = line.stamp - *last;
    if (passed >= ClockBack)
        passed = 0;  // Windows was started between the two
    last = line.stamp;
    for (; passed > 0; passed -= std::min(passed, WaitLimit))
        script += "wait " + std::to_string(std::min(passed, WaitLimit)) + "\n";
    script += "send " + Equipment::Hex(item) + "\n";
    ++frames;
}

}  // namespace TraceReader
