// docs/protocol.md against the trace reader: every example there is a frame that holds, and means what the page says.
#include "equipment/frames.h"
#include "zttrace/decode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

// An example begins with "> " or "< " and its bytes; its words stand below it.
struct Example {
    std::string frame;
    std::vector<std::string> words;
};

// One list for each block: a long message stands within one.
std::vector<std::vector<Example>> Blocks() {
    std::vector<std::vector<Example>> blocks;
    std::ifstream page(ZT_DOCS "/protocol.md");
    bool inside = false;
    for (std::string line; std::getline(page, line);)
        if (line.starts_with("```")) {
            inside = line == "```wire";
            if (inside)
                blocks.emplace_back();
        } else if (inside && (line[0] == '>' || line[0] == '<')) {
            blocks.back().push_back({line, {}});
        } else if (inside) {
            blocks.back().back().words.push_back(line);
        }
    return blocks;
}

TEST(ProtocolPage, ItsExamplesAreWhatTheTraceReaderSays) {
    std::size_t count = 0;
    for (const auto& block : Blocks()) {
        TraceReader::Decoder decoder;
        for (const Example& example : block) {
            const auto frame = Equipment::ParseHex(example.frame.substr(2));
            ASSERT_TRUE(frame && Equipment::FrameHolds(*frame)) << example.frame;
            TraceReader::Dump dump;
            dump.kind = example.frame[0] == '<' ? TraceReader::Dump::Received : TraceReader::Dump::Sent;
            const auto item = Equipment::ItemOf(*frame);
            dump.bytes.assign(item.begin(), item.end());
            std::vector<std::string> words;
            for (const TraceReader::Said& said : decoder.Explain(dump))
                words.push_back(said.text);
            EXPECT_EQ(words, example.words) << example.frame;
            ++count;
        }
    }
    EXPECT_GE(count, 25u);
}

}  // namespace
