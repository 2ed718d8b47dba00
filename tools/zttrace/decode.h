// Frames and messages in words, for a reader who knows the set and not its bytes. One line for each message in a frame.
#pragma once

#include "zttrace/line.h"

#include <string>
#include <vector>

namespace TraceReader {

struct Said {
    std::string text;
    std::vector<int> keys;  // of the set that it is about
    bool repeated = false;  // said already with the frame received last
};

struct Decoder {
    std::vector<Said> Explain(const Dump& dump);
    // The provider has started again: halves of long messages are forgotten.
    void Restart();

private:
    Equipment::Reassembly received, sent;
    Bytes lastMessage;  // said in words already, when its frame was shown
    void Item(std::vector<Said>& said, ByteSpan item, bool fromCard, bool cut, int depth);
    void Message(std::vector<Said>& said, ByteSpan message, bool fromCard, bool cut);
};

}  // namespace TraceReader
