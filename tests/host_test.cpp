// The telephony service's side: what it makes of words, structures and callbacks.
#include "tsphost/commands.h"

#include <cstring>

using namespace Tsphost;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string Shown(const Buffer& buffer, std::span<const Field> fields) {
    std::string all;
    for (const std::string& line : FieldLines(buffer.Bytes(), fields))
        all += line + "\n";
    return all;
}

void PutWide(Buffer& buffer, std::size_t at, const std::string& text) {
    const WideString wide = ToWide(text);
    std::memcpy(reinterpret_cast<char*>(buffer.As<DWORD>()) + at, wide.c_str(), wide.size() * 2 + 2);
}

std::string Next() {
    std::string event;
    return NextEvent(0, event) ? event : "";
}

}  // namespace

TEST(HostWords, BlanksQuotesAndEmptyTexts) {
    EXPECT_THAT(SplitWords("  makecall \"+33 (1) 23\"\tflags=2 \"\""),
                ElementsAre("makecall", "+33 (1) 23", "flags=2", ""));
    EXPECT_THROW(SplitWords("dial 0 \"12"), Unusable);
    EXPECT_EQ(TextAt({"dial", "null"}, 1).Pointer(), nullptr);
    EXPECT_EQ(TextAt({"dial"}, 1).Pointer(), nullptr);
    EXPECT_EQ(TextAt({"dial", ""}, 1).Bytes(), 2u);
}

TEST(HostWords, NumbersFlagsAndTimesThatAreNoneAreRefused) {
    EXPECT_EQ(NumberAt({"010"}, 0), 10u);  // no octal: these are telephone people
    EXPECT_EQ(NumberAt({"0xFFFFFFFF"}, 0), 0xFFFFFFFFu);
    EXPECT_EQ(FlagsAt({"busy|LINEFORWARDMODE_NOANSW|0x1"}, 0, ForwardModes), 0x111u);
    for (const char* word : {"", "-1", "0x", "12a", "4294967296", " 1"})
        EXPECT_THROW(NumberAt({word}, 0), Unusable) << word;
    for (const char* word : {"", "busy|", "busy||uncond", "engaged"})
        EXPECT_THROW(FlagsAt({word}, 0, ForwardModes), Unusable) << word;
    EXPECT_EQ(ResultAt({"lineerr_operationfailed"}, 0), static_cast<LONG>(LINEERR_OPERATIONFAILED));
    const std::pair<const char*, std::uint32_t> times[] = {{"0", 7}, {"5s", 5000}, {"250ms", 250}, {"calls", 7}};
    for (const auto& [word, time] : times) {
        Words words = {"wait", word};
        EXPECT_EQ(TakeTime(words, 7), time) << word;
        EXPECT_EQ(words.size(), time == 7 ? 2u : 1u) << word;
    }
}

TEST(HostFields, PartsOfACallAreShownWhereTheyLie) {
    Buffer buffer(340);
    auto& info = *buffer.As<LINECALLINFO>();
    info.dwNeededSize = info.dwUsedSize = 336;
    info.dwCalledIDFlags = LINECALLPARTYID_ADDRESS;
    PutWide(buffer, 324, "4720");
    info.dwCalledIDSize = 10;
    info.dwCallerIDSize = 8;      // the terminator is not counted
    info.dwConnectedIDSize = 18;  // two bytes too far
    info.dwCalledIDOffset = info.dwCallerIDOffset = info.dwConnectedIDOffset = 324;
    info.dwRedirectionIDSize = 0xFFFFFFF0;
    info.dwRedirectionIDOffset = 0x20;
    const std::string all = Shown(buffer, CallInfoFields);
    for (const char* line : {" \"4720\" (10 bytes at 324)\n", " \"4720\" (8 bytes at 324), not terminated\n",
                             "(18 bytes at 324), outside the structure\n",
                             "(4294967280 bytes at 32), outside the structure\n", " ADDRESS\n"})
        EXPECT_THAT(all, HasSubstr(line));
    EXPECT_THAT(all, Not(HasSubstr("dwTrunk")));  // 0
    EXPECT_FALSE(buffer.Overrun());

    Buffer small(30);
    EXPECT_THAT(Shown(small, AddressStatusFields), Not(HasSubstr("dwForwardNumEntries")));
    reinterpret_cast<char*>(small.As<DWORD>())[30] = 0;
    EXPECT_TRUE(small.Overrun());
}

TEST(HostCalls, TheLastCallIsTheLastOneThatCameToBe) {
    HDRVCALL last = nullptr;
    EXPECT_FALSE(LastCall(last));
    HTAPICALL given = nullptr;  // call 0 is a null handle
    HostLineEvent(nullptr, nullptr, LINE_NEWCALL, 0, reinterpret_cast<DWORD_PTR>(&given), 0);
    EXPECT_NE(given, nullptr);
    const AskedCall refused = AskForCall(), unwritten = AskForCall(), made = AskForCall();
    *refused.Written = reinterpret_cast<HDRVCALL>(std::uintptr_t{7});
    EXPECT_FALSE(KeepCall(refused, false));
    EXPECT_FALSE(KeepCall(unwritten, true));
    ASSERT_TRUE(LastCall(last));
    EXPECT_EQ(CallNumber(last), "0");
    HostLineEvent(nullptr, refused.Tapi(), LINE_CALLINFO, LINECALLINFOSTATE_CALLERID, 0, 0);
    EXPECT_THAT(TheHost.Events.back(), HasSubstr("unknown handle"));

    *made.Written = reinterpret_cast<HDRVCALL>(std::uintptr_t{3});
    HostLineEvent(nullptr, made.Tapi(), LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 0);
    EXPECT_EQ(TheHost.Events.back(), "LINE_CALLSTATE call 3 IDLE") << "known before its request returns";
    EXPECT_TRUE(KeepCall(made, true));
    ASSERT_TRUE(LastCall(last));
    EXPECT_EQ(CallNumber(last), "3");
}

TEST(HostCalls, ACompletionCountsOnceAndIsNoEventToExpectAfterwards) {
    while (!Next().empty()) {  // of other tests
    }
    const DRV_REQUESTID request = NewRequest();
    LONG result = 1;
    EXPECT_FALSE(WaitForCompletion(request, 0, result));
    HostLineEvent(nullptr, nullptr, LINE_CLOSE, 0, 0, 0);
    HostCompletion(request, static_cast<LONG>(LINEERR_OPERATIONFAILED));
    HostLineEvent(nullptr, nullptr, LINE_LINEDEVSTATE, LINEDEVSTATE_INSERVICE, 0, 0);
    ASSERT_TRUE(WaitForCompletion(request, 0, result));
    EXPECT_EQ(result, static_cast<LONG>(LINEERR_OPERATIONFAILED));
    EXPECT_EQ(Next(), "LINE_CLOSE");
    EXPECT_FALSE(WaitForEvent("CLOSE", 0));
    EXPECT_EQ(Next(), "LINE_LINEDEVSTATE INSERVICE");
    EXPECT_EQ(Next(), "");
    HostCompletion(request, 0);
    EXPECT_THAT(Next(), EndsWith(", a second time"));
    HostCompletion(request + 1, 0);
    EXPECT_THAT(Next(), EndsWith(", never made"));
}
