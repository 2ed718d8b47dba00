// Whole sessions against their recorded traces: each text as it is written, at its level, in its order, beside the events
// that TAPI gets. One run for each level alone: what a line's level is, only its run shows.
//
// The records (tests/sessions) are part of what is promised to those who read traces. Where a change is wanted, the
// environment variable ZT_RECORD_SESSIONS writes them anew, and the difference is what there is to review.
#include "equipment/script.h"
#include "support/buffer.h"
#include "support/digest.h"
#include "support/scenario.h"
#include "trace/trace.h"

#include <regex>
#include <tuple>

namespace {

const std::vector<std::string> Calls = {
    // received: with digits, held and taken back by both sides, by name, without a caller
    "incoming 1 4722", "app answer 0", "app digits 0 1#", "wait 4000", "app digits 0", "app hold 0", "app unhold 0",
    "hold 1", "retrieve 1", "caller-hangs-up 1", "incoming 2 4723 \"DUPONT\"", "caller-hangs-up 2",
    "incoming 3 - nocaller", "answer 3", "hangup 3", "incoming 7 4725 \"LEROY\"", "app answer 0", "app drop 0",
    // made: answered, busy, dialled at a dial tone, handed on
    "app make 4750", "app drop 0", "app make 4759", "app drop 0", "seize 1", "app dial 0 4750", "app blind 0 4751",
    "release",
    // two at once: transferred, joined, left, ended
    "incoming 1 4722", "app answer 0", "app setup 0", "app dial 1 4750", "app transfer 0 1", "incoming 1 4722",
    "app answer 0", "app setup 0", "app dial 1 4750", "app conference 0 1", "app remove 1", "release", "release",
    "incoming 1 4722", "answer 1", "second-call", "dial 4750", "swap", "conference", "app drop 30", "release",
    // the idle set
    "app forward uncond 4751", "app forward busy 4751", "app forward off", "waits-at 4788 4799 \"ROUX\"",
    "app pickup 4788", "release", "app button keypad 5", "app hook on", "app drop 0", "app hold 9", "app unhold 9",
    "app drop 31", "app transfer 0 1"};
const std::vector<std::string> Trouble = {
    // on the line, of the card
    "flip 1", "incoming 1 4722", "nack 84 1", "app answer 0", "nack 85 1", "hangup 1", "abort", "contact", "reset",
    // of the set, with a message that nobody knows and one that ends too early
    "lamp 3 1", "ring 1", "send 12 00 07 03 00 63 01 05", "send 61 0B 05 47 01",
    // and the loss of contact
    "incoming 1 4722", "answer 1", "silence on", "wait 25000", "silence off", "wait 25000"};

struct TraceText {
    unsigned Levels;  // 0x80 = always written
    const char* Text;
};
constexpr TraceText Texts[] = {
#include "trace_texts.h"
};

class Session : public Scenario, public testing::WithParamInterface<std::tuple<int, int>> {
protected:
    CallersBuffer Buffer;

    void Ask() {
        TSPI_lineGetDevCaps(3, 0x20000, 0, Buffer.Room<LINEDEVCAPS>(600));
        TSPI_lineGetAddressCaps(3, 0, 0x20000, 0, Buffer.Room<LINEADDRESSCAPS>(400));
        TSPI_lineGetAddressStatus(Line, 0, Buffer.Room<LINEADDRESSSTATUS>(400));
        TSPI_lineGetLineDevStatus(Line, Buffer.Room<LINEDEVSTATUS>(400));
        for (const std::uintptr_t call : {0u, 1u, 30u, 31u}) {
            TSPI_lineGetCallInfo(reinterpret_cast<HDRVCALL>(call), Buffer.Room<LINECALLINFO>(600));
            TSPI_lineGetCallStatus(reinterpret_cast<HDRVCALL>(call), Buffer.Room<LINECALLSTATUS>(400));
        }
    }
    // Handles and addresses differ from run to run; errors do not. The record has a star for each.
    static std::string Stable(const std::string& line) {
        static const std::regex address("\\b(?!800000|900000)[0-9a-f]{6,}\\b"), handle("hcd([ :])[0-9a-f]+");
        return std::regex_replace(std::regex_replace(line, address, "*"), handle, "hcd$1*");
    }
    std::string Record(std::int32_t mask) {
        const int version = std::get<0>(GetParam());
        Configure(version, version == 3, version == 3 ? 0 : 1);
        Machine.config.piggyback = version == 3;
        TraceMask = mask;
        std::string text;
        const auto take = [&](const std::string& action, const std::string& events) {
            text += "> " + action + "\n";
            for (const std::string& line : TraceLines())
                if (!line.starts_with("* Version "))  // of this build
                    text += line + "\n";
            if (mask == 0 && !events.empty())
                text += "= " + events + "\n";
        };
        Start();
        take("start", "");
        for (const auto* part : {&Calls, &Trouble})
            for (const std::string& action : *part) {
                const std::string events = Happen(action);
                if (action.starts_with("app conference") || action == "answer 3")
                    Ask();
                take(action, events);
            }
        CloseLine();
        take("close", "");
        return text;
    }
};

// Whether a line is as recorded, whatever number stands where the record has a star: an address may be a low one.
bool AsRecorded(std::string_view line, std::string_view wanted) {
    while (!wanted.empty()) {
        if (wanted.front() == '*' && !line.starts_with('*'))
            line.remove_prefix(std::min(line.find_first_not_of("0123456789abcdef"), line.size()));
        else if (line.starts_with(wanted.front()))
            line.remove_prefix(1);
        else
            return false;
        wanted.remove_prefix(1);
    }
    return line.empty();
}

TEST_P(Session, WritesItsTrace) {
    const auto [version, mask] = GetParam();
    char name[sizeof ZT_SESSIONS + 64];
    std::snprintf(name, sizeof name, ZT_SESSIONS "/version%d-level%02x.txt", version, static_cast<unsigned>(mask));
    const std::string written = Record(mask);
    std::istringstream file(RecordIn(name, Stable(written)));
    std::istringstream now(written);
    std::string wanted, line, action;
    for (int number = 1;; ++number) {
        const bool more = static_cast<bool>(std::getline(file, wanted));
        ASSERT_EQ(static_cast<bool>(std::getline(now, line)), more) << "line " << number << ", after " << action;
        if (!more)
            break;
        ASSERT_PRED2(AsRecorded, line, wanted) << "line " << number << ", after " << action;
        if (line.starts_with("> "))
            action = line;
    }
}

// Also the texts that only trouble writes, and no session: the table that the trace reader has of the sources.
TEST(TraceTexts, StandAtTheirLevels) {
    std::string written;
    for (const auto& [levels, text] : Texts) {
        char level[8];
        std::snprintf(level, sizeof level, "%02X ", levels);
        written += level + std::regex_replace(std::string(text), std::regex("\n"), "\\n") + "\n";
    }
    EXPECT_EQ(written, RecordIn(ZT_SESSIONS "/levels.txt", written));
}

INSTANTIATE_TEST_SUITE_P(, Session,
                         testing::Combine(testing::Values(1, 2, 3),
                                          testing::Values(0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40)));

}  // namespace
