// The telephony service's side: what it makes of words, structures and callbacks.
#include "tsphost/commands.h"

#include <cstring>

using namespace Tsphost;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string Lines(const std::vector<std::string>& lines) {
    std::string all;
    for (const std::string& line : lines)
        all += line + "\n";
    return all;
}

void PutWide(Buffer& buffer, std::size_t at, const std::string& text) {
    const WideString wide = ToWide(text);
    std::memcpy(reinterpret_cast<char*>(buffer.As<DWORD>()) + at, wide.c_str(), wide.size() * 2 + 2);
}

}  // namespace

TEST(HostWords, BlanksQuotesAndEmptyTexts) {
    EXPECT_THAT(SplitWords("  makecall \"+33 (1) 23\"\tflags=2 "), ElementsAre("makecall", "+33 (1) 23", "flags=2"));
    EXPECT_THAT(SplitWords("dial 0 \"\""), ElementsAre("dial", "0", ""));
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
    EXPECT_THROW(ResultAt({"operationfailed"}, 0), Unusable);
}

TEST(HostWords, ATimeIsTakenOffOnlyWithItsUnit) {
    Words words = {"wait", "LINE_NEWCALL", "call", "0"};
    EXPECT_EQ(TakeTime(words, 7), 7u);
    EXPECT_EQ(words.size(), 4u);
    words.emplace_back("5s");
    EXPECT_EQ(TakeTime(words, 7), 5000u);
    EXPECT_EQ(words.size(), 4u);
    words.back() = "250ms";
    EXPECT_EQ(TakeTime(words, 7), 250u);
    words.back() = "calls";
    EXPECT_EQ(TakeTime(words, 7), 7u);
}

TEST(HostWords, DescriptionsCountTheirArguments) {
    const auto counted = [](const char* text) {
        const ArgumentCount count = CountArguments(text);
        return std::pair(count.Least, count.Most);
    };
    EXPECT_EQ(counted(""), std::pair(std::size_t{0}, std::size_t{0}));
    EXPECT_EQ(counted("CALL TEXT [MODE [DURATION]]"), std::pair(std::size_t{2}, std::size_t{4}));
    EXPECT_EQ(counted("uncond|busy|cancel [DEST]"), std::pair(std::size_t{1}, std::size_t{2}));
    EXPECT_EQ(counted("TEXT... [TIME]"), std::pair(std::size_t{1}, std::size_t{SIZE_MAX}));
}

TEST(HostWords, CallParametersLandInTheirFields) {
    EXPECT_EQ(CallParamsFrom({"makecall", "12", "country=33"}, 2).Pointer(), nullptr);
    CallParams params = CallParamsFrom({"flags=IDLE|blockid", "speed=10", "dialtone=500", "country=33"}, 0);
    ASSERT_NE(params.Pointer(), nullptr);
    EXPECT_EQ(params.Country, 33u);
    EXPECT_EQ(params.Values.dwBearerMode, LINEBEARERMODE_VOICE);
    EXPECT_EQ(params.Values.dwMediaMode, LINEMEDIAMODE_INTERACTIVEVOICE);
    EXPECT_EQ(params.Values.dwCallParamFlags, LINECALLPARAMFLAGS_IDLE | LINECALLPARAMFLAGS_BLOCKID);
    EXPECT_EQ(params.Values.DialParams.dwDialSpeed, 10u);
    EXPECT_EQ(params.Values.DialParams.dwWaitForDialtone, 500u);
    EXPECT_THROW(CallParamsFrom({"hurry=1"}, 0), Unusable);
}

TEST(HostWords, AForwardListHoldsItsDestination) {
    for (const char* destination : {"", "1", "1234", "12345"}) {
        const std::vector<DWORD> room = ForwardList(LINEFORWARDMODE_BUSY, ToWide(destination));
        const auto& list = *reinterpret_cast<const LINEFORWARDLIST*>(room.data());
        const LINEFORWARD& entry = list.ForwardList[0];
        EXPECT_EQ(list.dwTotalSize, room.size() * 4);
        ASSERT_LE(entry.dwDestAddressOffset + entry.dwDestAddressSize, list.dwTotalSize);
        EXPECT_EQ(entry.dwDestAddressSize, std::strlen(destination) * 2 + 2);
        EXPECT_EQ(FromWide(reinterpret_cast<const WCHAR*>(reinterpret_cast<const char*>(room.data()) +
                                                          entry.dwDestAddressOffset),
                           entry.dwDestAddressSize / 2),
                  destination);
    }
}

TEST(HostFields, PartsOfACallAreShownWhereTheyLie) {
    Buffer buffer(340);
    auto& info = *buffer.As<LINECALLINFO>();
    info.dwNeededSize = info.dwUsedSize = 336;
    info.dwCalledIDFlags = LINECALLPARTYID_ADDRESS;
    info.dwCalledIDSize = 10;
    info.dwCalledIDOffset = 324;
    PutWide(buffer, 324, "4720");
    info.dwCallerIDSize = 8;  // the terminator is not counted
    info.dwCallerIDOffset = 324;
    info.dwConnectedIDSize = 18;
    info.dwConnectedIDOffset = 324;  // two bytes too far
    info.dwRedirectionIDSize = 0xFFFFFFF0;
    info.dwRedirectionIDOffset = 0x20;
    const std::vector<std::string> lines = FieldLines(buffer.Bytes(), CallInfoFields);
    const std::string all = Lines(lines);
    EXPECT_THAT(all, HasSubstr("\"4720\" (10 bytes at 324)\n"));
    EXPECT_THAT(all, HasSubstr("\"4720\" (8 bytes at 324), not terminated\n"));
    EXPECT_THAT(all, HasSubstr("(18 bytes at 324), outside the structure\n"));
    EXPECT_THAT(all, HasSubstr("(4294967280 bytes at 32), outside the structure\n"));
    EXPECT_THAT(lines, Contains(EndsWith(" ADDRESS")));
    EXPECT_THAT(all, Not(HasSubstr("dwTrunk")));  // 0
    EXPECT_FALSE(buffer.Overrun());
}

TEST(HostFields, FieldsBehindASmallBufferAreNotShown) {
    Buffer buffer(30);
    EXPECT_THAT(Lines(FieldLines(buffer.Bytes(), AddressStatusFields)), Not(HasSubstr("dwForwardNumEntries")));
    reinterpret_cast<char*>(buffer.As<DWORD>())[30] = 0;
    EXPECT_TRUE(buffer.Overrun());
}

TEST(HostFields, ForwardingsAreEntriesOf24Bytes) {
    Buffer buffer(124);
    auto& status = *buffer.As<LINEADDRESSSTATUS>();
    status.dwForwardNumEntries = 3;  // the third does not fit
    status.dwForwardSize = 58;
    status.dwForwardOffset = 64;
    const DWORD entries[] = {LINEFORWARDMODE_BUSY, 0, 0, 0, 10, 112, LINEFORWARDMODE_NOANSW, 0, 0, 0, 10, 112};
    std::memcpy(reinterpret_cast<char*>(&status) + 64, entries, sizeof entries);
    PutWide(buffer, 112, "1234");
    const std::string all = Lines(FieldLines(buffer.Bytes(), AddressStatusFields));
    EXPECT_THAT(all, HasSubstr("BUSY to \"1234\" (10 bytes at 112)\n"));
    EXPECT_THAT(all, HasSubstr("NOANSW to \"1234\" (10 bytes at 112)\n"));
    EXPECT_THAT(all, HasSubstr("ForwardList[2]            outside the structure\n"));
}

TEST(HostFields, AModeIsNamedByItsState) {
    EXPECT_EQ(LineEventText("call 1", LINE_CALLSTATE, LINECALLSTATE_DISCONNECTED, LINEDISCONNECTMODE_NORMAL),
              "LINE_CALLSTATE call 1 DISCONNECTED mode NORMAL");
    EXPECT_EQ(LineEventText("call 1", LINE_CALLSTATE, LINECALLSTATE_BUSY, LINEBUSYMODE_UNAVAIL),
              "LINE_CALLSTATE call 1 BUSY mode UNAVAIL");
    EXPECT_EQ(LineEventText("call 1", LINE_CALLSTATE, LINECALLSTATE_ONHOLD, 8),
              "LINE_CALLSTATE call 1 ONHOLD mode 0x8");
    Buffer buffer(64);
    buffer.As<LINECALLSTATUS>()->dwCallState = LINECALLSTATE_DIALTONE;
    buffer.As<LINECALLSTATUS>()->dwCallStateMode = LINEDIALTONEMODE_UNAVAIL;
    EXPECT_THAT(FieldLines(buffer.Bytes(), CallStatusFields), Contains(EndsWith(" UNAVAIL")));
}

TEST(HostCalls, EventsOfAMadeCallAreKnownBeforeItsRequestReturns) {
    const AskedCall call = AskForCall();
    *call.Written = reinterpret_cast<HDRVCALL>(std::uintptr_t{3});
    HostLineEvent(nullptr, call.Tapi(), LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 0);
    EXPECT_EQ(TheHost.Events.back(), "LINE_CALLSTATE call 3 IDLE");
    EXPECT_TRUE(KeepCall(call, true));
    HDRVCALL last = nullptr;
    ASSERT_TRUE(LastCall(last));
    EXPECT_EQ(CallNumber(last), "3");
}

TEST(HostCalls, TheLastCallIsTheLastOneThatCameToBe) {
    HDRVCALL last = nullptr;
    EXPECT_FALSE(LastCall(last));
    HTAPICALL given = nullptr;
    HostLineEvent(nullptr, nullptr, LINE_NEWCALL, 0, reinterpret_cast<DWORD_PTR>(&given),
                  0);  // call 0 is a null handle
    EXPECT_NE(given, nullptr);
    const AskedCall refused = AskForCall(), unwritten = AskForCall();
    *refused.Written = reinterpret_cast<HDRVCALL>(std::uintptr_t{7});
    EXPECT_FALSE(KeepCall(refused, false));
    EXPECT_FALSE(KeepCall(unwritten, true));
    ASSERT_TRUE(LastCall(last));
    EXPECT_EQ(CallNumber(last), "0");
    HostLineEvent(nullptr, refused.Tapi(), LINE_CALLINFO, LINECALLINFOSTATE_CALLERID, 0, 0);
    EXPECT_THAT(TheHost.Events.back(), HasSubstr("unknown handle"));
}

TEST(HostCalls, ACompletionCountsOnce) {
    const DRV_REQUESTID request = NewRequest();
    LONG result = 1;
    EXPECT_FALSE(WaitForCompletion(request, 0, result));
    HostCompletion(request, static_cast<LONG>(LINEERR_OPERATIONFAILED));
    HostCompletion(request, 0);
    EXPECT_THAT(TheHost.Events.back(), EndsWith(", a second time"));
    HostCompletion(request + 1, 0);
    EXPECT_THAT(TheHost.Events.back(), EndsWith(", never made"));
    ASSERT_TRUE(WaitForCompletion(request, 0, result));
    EXPECT_EQ(result, static_cast<LONG>(LINEERR_OPERATIONFAILED));
}

TEST(HostCalls, ACompletionThatWasWaitedForIsNoEventToExpect) {
    const DRV_REQUESTID request = NewRequest();
    HostLineEvent(nullptr, nullptr, LINE_CLOSE, 0, 0, 0);
    HostCompletion(request, 0);
    HostLineEvent(nullptr, nullptr, LINE_LINEDEVSTATE, LINEDEVSTATE_INSERVICE, 0, 0);
    LONG result = 1;
    ASSERT_TRUE(WaitForCompletion(request, 0, result));
    std::string event;
    ASSERT_TRUE(NextEvent(0, event));
    EXPECT_EQ(event, "LINE_CLOSE");
    EXPECT_FALSE(WaitForEvent("CLOSE", 0));
    ASSERT_TRUE(NextEvent(0, event));
    EXPECT_EQ(event, "LINE_LINEDEVSTATE INSERVICE");
    EXPECT_FALSE(NextEvent(0, event));
}
