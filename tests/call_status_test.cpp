// What the status queries tell of calls, address and line, and what they leave as the caller passed it.
#include "devices/call_status.h"

#include "config/settings.h"
#include "devices/line.h"
#include "provider/tapi.h"
#include "support/buffer.h"
#include "support/port.h"
#include "support/requesting.h"

namespace {

const auto Hex = CallersBuffer::Hex;

class StatusQueries : public Requesting {
protected:
    HDRVLINE Line = reinterpret_cast<HDRVLINE>(&ProviderState);
    CallersBuffer Buffer;
    RecordingPort Port;
    DWORD Placed = 0;

    void SetUp() override {
        Requesting::SetUp();
        ProviderState.LineDeviceID = 6;
        ProviderState.TAPI_OMNA_Ver = 2;
    }
    void TearDown() override {
        if (Serial.Port != INVALID_HANDLE_VALUE)
            CloseHandle(std::exchange(Serial.Port, INVALID_HANDLE_VALUE));
        Requesting::TearDown();
    }
    // A placed text, of which size and offset stand at two fields.
    std::string Text(DWORD field) {
        const DWORD size = Buffer.Field(field), offset = Buffer.Field(field + 4);
        if (size == CallersBuffer::LEFT && offset == CallersBuffer::LEFT)
            return "-";
        std::string out = "'";
        for (DWORD at = offset; at + 2 < offset + size; at += 2)
            out += static_cast<char>(*Buffer.At(at));
        EXPECT_EQ(*Buffer.At(offset + size - 2) + *Buffer.At(offset + size - 1), 0) << "terminated";
        Placed += size;
        return out + "'";
    }
    // The answer of lineGetCallInfo: needed, used, origin, reason, and each party that anything was told of: flags,
    // address, name. The texts fill what is used.
    std::string Info(int cref, DWORD total = 1000) {
        auto* info = Buffer.Room<LINECALLINFO>(total);
        EXPECT_EQ(TSPI_lineGetCallInfo(Handle(cref), info), 0);
        EXPECT_LE(Buffer.End(), std::max<DWORD>(info->dwUsedSize, CALLINFO_FIXED));
        std::string out = std::to_string(info->dwNeededSize) + " " + std::to_string(info->dwUsedSize) + " " +
                          Hex(info->dwOrigin) + " " + Hex(info->dwReason);
        DWORD flags = offsetof(LINECALLINFO, dwCallerIDFlags);
        Placed = CALLINFO_FIXED;
        for (const char* name : {"caller", "called", "connected", "redirection", "redirecting"}) {
            const std::string told = Hex(Buffer.Field(flags)) + " " + Text(flags + 4) + " " + Text(flags + 12);
            if (told != "0 - -")
                out += std::string(" | ") + name + " " + told;
            flags += 20;
        }
        EXPECT_EQ(Placed, info->dwUsedSize);
        return out;
    }
    // A record whose every party text names itself in two letters.
    static void FillTexts(CallRecord& call) {
        char* const fields[] = {call.DestAddress,      call.DestName,           call.CallerAddress,
                                call.CallerName,       call.CalledAddress,      call.CalledName,
                                call.ConnectedAddress, call.ConnectedName,      call.RedirectionAddress,
                                call.RedirectionName,  call.RedirectingAddress, call.RedirectingName};
        const char* const texts[] = {"da", "dn", "ra", "rn", "ca", "cn", "oa", "on", "na", "nn", "ga", "gn"};
        for (std::size_t i = 0; i < std::size(texts); ++i)
            std::strcpy(fields[i], texts[i]);
    }
};

TEST_F(StatusQueries, CallInfoWritesTheseFieldsAndNoOthers) {
    ProviderState.MediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    ProviderState.AppSpecific = 0x77;
    ProviderState.DialParams = {1, 2, 3, 4};
    Calls("O");
    const std::string common = "16:6 24:1 32:4 36:77 48:6 52:7f7b 64:1 68:2 72:3 76:4";
    for (const std::uint8_t version : std::to_array<std::uint8_t>({0, 2, 3})) {  // 0 before the PBX has told it
        ProviderState.TAPI_OMNA_Ver = version;
        ASSERT_EQ(TSPI_lineGetCallInfo(Handle(0), Buffer.Room<LINECALLINFO>(324)), 0);
        EXPECT_EQ(Buffer.Written(), "4:148 8:144 " + common + " 80:20 84:800 108:0 128:0 148:0 168:0 188:0");
        EXPECT_EQ(Code(TSPI_lineGetCallInfo(Handle(CONF_CREF), Buffer.Room<LINECALLINFO>(324))), 0u);
    }
    ASSERT_EQ(TSPI_lineGetCallInfo(Handle(CONF_CREF), Buffer.Room<LINECALLINFO>(324)), 0);
    EXPECT_EQ(Buffer.Written(), common + " 80:40 84:800");
    EXPECT_EQ(TraceLines().back(), "Entering TSPI_lineGetCallInfo cref:CONFREF ");
}

TEST_F(StatusQueries, PartiesOfACallPlacedFromHere) {
    Call(1, 0, PROCEEDING, false);
    CopyText(Record(0).DestAddress, "1234");
    EXPECT_EQ(Info(0), "336 336 1 800 | called 8 '1234' ''");
    EXPECT_EQ(Info(0, 330), "336 324 1 800 | called 8 - -");
    Record(0).DestAddress[0] = 0;
    Record(0).Reason = LINECALLREASON_FWDBUSY;
    Record(0).state = CONNECTED;
    EXPECT_EQ(Info(0), "332 332 1 800 | called 0 '' '' | connected 10 '' ''");
    FillTexts(Record(0));
    EXPECT_EQ(Info(0), "360 360 1 800 | called c 'ca' 'cn' | connected c 'oa' 'on' | redirection c 'na' 'nn'");
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"RedirectionAddress:'na' lg 5", "RedirectionName:'nn' lg 5",
                                                     " dwCalledIDFlags c dwConnectedIDFlags c"}));
    Record(0).CalledName[0] = Record(0).ConnectedAddress[0] = Record(0).RedirectionName[0] = 0;
    EXPECT_EQ(Info(0), "350 350 1 800 | called c 'ca' 'dn' | connected 4 '' 'on' | redirection 8 'na' -");
}

TEST_F(StatusQueries, PartiesOfAReceivedCall) {
    Calls("C");
    EXPECT_EQ(Info(0), "328 328 20 800 | caller 0 '' '' | connected 10 - -");
    FillTexts(Record(0));
    Record(0).Origin = LINECALLORIGIN_EXTERNAL;
    Record(0).Reason = LINECALLREASON_FWDNOANSWER;
    Steps();
    EXPECT_EQ(Info(0), "372 372 4 4 | caller c 'ra' 'rn' | called c 'ca' 'cn' | "
                       "connected c 'oa' 'on' | redirecting c 'ga' 'gn'");
    EXPECT_EQ(Steps(),
              "Entering TSPI_lineGetCallInfo cref:0 hdCall:0 | callState 100 DestAddress:'da' - DestName:'dn' | "
              "v2 CallerAdd:'ra' lg 6 | CallerAdd:  Used 144 Needed 14a Total 3e8 | "
              "v2 CallerAdd:Wide 'ra' lg 6 | v2 CallerName:'rn' lg 6  | "
              "v2 CalledAdd:'ca' lg 6 | v2 CalledName:'cn' lg 6  | "
              "v2 ConnectedAddress:'oa' lg 6 | v2 ConnectedName:'on' lg 6 | RedirectingAddress:'ga' lg 5 | "
              "RedirectingName:'gn' lg 5 | CallerIDFlags c CalledIDFlags c Origin 4 Reason 4");
    Record(0).CallerAddress[0] = Record(0).CalledAddress[0] = Record(0).ConnectedName[0] = 0;
    Record(0).RedirectingAddress[0] = Record(0).RedirectingName[0] = 0;
    const std::string parties = " | caller c 'da' 'rn' | called 4 - 'cn' | connected 8 'oa' -";
    const std::pair<DWORD, const char*> reasons[] = {{1, "1"}, {0x10, "10"}, {0x20, "800"}, {0x100, "800"},
                                                     {2, "2"}, {4, "4"},     {8, "8"}};
    for (const auto& [stored, told] : reasons) {
        Record(0).Reason = stored;
        EXPECT_EQ(Info(0), std::string("348 348 4 ") + told + parties +
                               (stored >= 2 && stored <= 8 ? " | redirecting 8 - -" : ""));
    }
}

// Once a text does not fit, no later one is placed, however short; sizes and flags are told all the same.
TEST_F(StatusQueries, TextsArePlacedWhileAllBeforeThemFit) {
    Calls("C");
    FillTexts(Record(0));
    CopyText(Record(0).CalledAddress, "0145678901");  // 22 bytes
    EXPECT_EQ(Info(0, 357), "376 336 20 800 | caller c 'ra' 'rn' | called c - - | connected c - -");
    EXPECT_EQ(Info(0, 358), "376 358 20 800 | caller c 'ra' 'rn' | called c '0145678901' - | connected c - -");
    CopyText(Record(0).CallerAddress, std::string(79, 'x').c_str());
    EXPECT_EQ(Info(0, 490),
              "530 490 20 800 | caller c '" + std::string(79, 'x') + "' 'rn' | called c - - | connected c - -");
    CopyText(Record(0).CallerAddress, "\x80\xE9");  // euro, e acute
    Info(0);
    EXPECT_EQ(Buffer.Field(324), 0x00E920ACu);
}

TEST_F(StatusQueries, WithVersion1TheDisplayIsTheOnlySource) {
    Call(1, 0, CONNECTED, false);
    Call(2, 0, CONNECTED);
    FillTexts(Record(0));
    FillTexts(Record(1));
    Record(1).Origin = LINECALLORIGIN_INTERNAL;
    Record(1).Reason = LINECALLREASON_FWDBUSY;
    for (const bool byLevel : {false, true}) {
        ProviderState.TAPI_OMNA_Ver = byLevel ? 2 : 1;
        ProviderState.ProtocolLevel = byLevel ? 1 : 2;
        EXPECT_EQ(Info(0), "348 348 1 800 | called c 'da' 'dn' | connected c 'oa' 'on'");
        EXPECT_THAT(Steps(), testing::EndsWith(" |  dwCalledIDFlags c dwConnectedIDFlags c"));
        EXPECT_EQ(Info(1), "358 358 2 800 | caller c 'da' 'dn' | called 8 '4711' - | connected c 'oa' 'on'");
        EXPECT_EQ(Steps(),
                  "Entering TSPI_lineGetCallInfo cref:1 hdCall:1 | callState 256 DestAddress:'da' - DestName:'dn' | "
                  "copie connected addr 'oa' | copie connected name 'on' | "
                  "In Called '4711' cbCalledMCDU 10 |  dwCallerIDFlags c dwConnectedIDFlags c");
    }
    EXPECT_EQ(Info(1, 357), "358 348 2 800 | caller c 'da' 'dn' | called 10 - - | connected c 'oa' 'on'");
    DynamicConfig.StaticConfig = 1;
    for (CallRecord& call : CallTable)
        call.DestAddress[0] = call.DestName[0] = call.ConnectedAddress[0] = call.ConnectedName[0] = 0;
    EXPECT_EQ(Info(0), "332 332 1 800 | called 10 '' '' | connected 10 '' ''");
    EXPECT_EQ(Info(1), "328 328 2 800 | caller 10 '' '' | connected 10 - -");
    EXPECT_EQ(Code(TSPI_lineGetCallInfo(Handle(CONF_CREF), Buffer.Room<LINECALLINFO>(1000))), LINEERR_INVALCALLHANDLE);
}

// --- lineGetCallStatus -----------------------------------------------------------------------------------------------

TEST_F(StatusQueries, StateModeAndFeaturesOfACall) {
    const auto told = [this](int cref) {
        auto* status = Buffer.Room<LINECALLSTATUS>(36);
        EXPECT_EQ(TSPI_lineGetCallStatus(Handle(cref), status), 0);
        EXPECT_EQ(Hex(status->dwNeededSize) + Hex(status->dwUsedSize) + Hex(status->dwCallPrivilege), "---");
        EXPECT_LE(Buffer.End(), 28u);
        return Hex(status->dwCallState) + " " + Hex(status->dwCallStateMode) + " " + Hex(status->dwCallFeatures);
    };
    const std::pair<const char*, const char*> rows[] = {
        // of call 0, with others beside it
        {"I", "1 - -"},          {"U", "8000 - -"},       {"OCH", "2 - 4"},        {"OP", "2 - -"},
        {"R", "2 - 4"},          {"RP", "2 - -"},         {"T", "8 20 c0"},        {"G", "10 - c0"},
        {"KW", "20 - a0"},       {"PC", "20 - 80"},       {"PH", "20 - a0"},       {"B", "40 8 -"},
        {"CO", "100 - 2000a88"}, {"CH", "100 - 2000ae8"}, {"CW", "100 - 2000ae8"}, {"CHP", "100 - -"},
        {"H", "400 - 8000000"},  {"HC", "400 - 8000020"}, {"HPC", "400 - 20"},     {"WC", "2000 - 8000020"},
        {"F", "800 - 40080"},    {"D", "4000 - 80"},      {"-", "0 - -"}};
    for (const auto& [calls, expected] : rows) {
        Fresh();
        Calls(calls);
        EXPECT_EQ(told(0), expected) << calls;
    }
    for (CallRecord& call : CallTable)
        call.state = IDLE;
    EXPECT_EQ(told(19), "1 - 40") << "every record is IDLE";
    confstate = CONNECTED;
    EXPECT_EQ(told(CONF_CREF), "100 - 80");
    EXPECT_EQ(Steps(), "") << "this query is not traced";
    Fresh();
    Double(CONNECTED, ONHOLD);
    Settings.EnquiryCallMode = 1;
    EXPECT_EQ(told(0), "100 - 2000ae0") << "a second call on the same key is not transferred blindly";
    At(1).calls[1] = -1;
    EXPECT_EQ(told(0), "100 - 2000ae8");
}

// --- address and line ------------------------------------------------------------------------------------------------

TEST_F(StatusQueries, CountsAndFeaturesOfAddressAndLine) {
    // active, held, pending; address features, line features, device flags
    const auto told = [this](std::uint8_t device, const char* calls) {
        Fresh();
        Calls(calls);
        ProviderState.DeviceState = device;
        const auto counts = [](const auto& status) {
            return Hex(status.dwNumActiveCalls) + " " + Hex(status.dwNumOnHoldCalls) + " " +
                   Hex(status.dwNumOnHoldPendCalls) + " ";
        };
        auto* address = Buffer.Room<LINEADDRESSSTATUS>(64);
        EXPECT_EQ(TSPI_lineGetAddressStatus(nullptr, 0, address), 0);
        const std::string first = counts(*address), features = Hex(address->dwAddressFeatures) + " ";
        auto* line = Buffer.Room<LINEDEVSTATUS>(88);
        EXPECT_EQ(TSPI_lineGetLineDevStatus(Line, line), 0);
        EXPECT_EQ(counts(*line), first);
        return first + features + Hex(line->dwLineFeatures) + " " + Hex(line->dwDevStatusFlags);
    };
    EXPECT_EQ(told(DEVICE_IN_SERVICE, "C"), "1 0 0 0 0 0") << "no port";
    Port.Open();
    EXPECT_EQ(told(DEVICE_STARTING, ""), "0 0 0 0 0 0");
    EXPECT_EQ(told(DEVICE_OUT_OF_SERVICE, ""), "0 0 0 0 0 0");
    const std::pair<const char*, const char*> rows[] = {
        {"III", "0 0 0 7 c 5"}, {"ICII", "1 0 0 2 8 5"}, {"HWI", "0 1 1 2 8 5"}, {"ROTB", "4 0 0 2 8 5"},
        {"HHP", "1 2 0 0 0 5"}, {"FC", "2 0 0 0 0 5"},   {"D", "1 0 0 0 0 5"}};
    for (const auto& [calls, expected] : rows)
        EXPECT_EQ(told(DEVICE_IN_SERVICE, calls), expected) << calls;
}

TEST_F(StatusQueries, AddressAndLineWriteTheseFieldsAndNoOthers) {
    Calls("CRI");
    Steps();
    ASSERT_EQ(TSPI_lineGetAddressStatus(Line, 0, Buffer.Room<LINEADDRESSSTATUS>(64)), 0);
    EXPECT_EQ(Buffer.Written(), "4:40 8:40 12:1 16:2 20:0 24:0 28:0 32:4 36:0 40:0 44:0 48:0 52:0 56:0 60:0");
    const std::string counted = "CallsStat cref 0000 state 100 | CallsStat cref 0001 state 10000 | "
                                "CallsStat cref 0002 state 1 | NumCalls 3 connected 1 OnHold 0 OnHoldPend 0 Reoffer 1";
    EXPECT_EQ(StepsInside(), counted);
    for (const std::string pending : {"0", "1"}) {
        ProviderState.PendingRequestID = pending == "1" ? 7 : 0;
        ASSERT_EQ(TSPI_lineGetLineDevStatus(Line, Buffer.Room<LINEDEVSTATUS>(88)), 0);
        EXPECT_EQ(Buffer.Written(), "4:58 8:58 20:2 24:0 28:0 32:0 36:" + pending + " 52:2 56:0");
        EXPECT_EQ(Steps(), counted);
    }
}

TEST_F(StatusQueries, ForwardingIsToldWholeOrNotAtAll) {
    CopyText(ProviderState.ForwardDestination, "1234");
    const char* const modes[] = {"1", "10", "100", "1000", nullptr, "0"};  // by status
    const std::string rest = " 12:1 16:0 20:0 24:0 28:0 32:4 36:0 40:0 44:0 48:0 52:0 56:0 60:0";
    for (std::uint8_t status = 0; status <= 5; ++status) {
        const bool told = modes[status] != nullptr;
        ProviderState.FwdStatus = status;
        ASSERT_EQ(TSPI_lineGetAddressStatus(Line, 0, Buffer.Room<LINEADDRESSSTATUS>(97)), 0);
        EXPECT_EQ(Buffer.Written(), (told ? "4:62 8:40" : "4:40 8:40") + rest);
        Steps();
        ASSERT_EQ(TSPI_lineGetAddressStatus(Line, 0, Buffer.Room<LINEADDRESSSTATUS>(98)), 0);
        EXPECT_EQ(Buffer.End(), told ? 98u : 64u);
        if (!told)
            continue;
        EXPECT_EQ(Buffer.Written(88),
                  "4:62 8:62 12:1 16:0 20:0 24:0 28:0 32:4 36:1 40:22 44:40 48:0 52:0 56:0 60:0 64:" +
                      std::string(modes[status]) + " 68:0 72:0 76:0 80:a 84:58");
        EXPECT_EQ(Text(80), "'1234'");
        EXPECT_THAT(Steps(), testing::EndsWith("| size LF 18 LA 40 RCA 4 cbRedirectAddr a | Fwd status " +
                                               std::to_string(status) + " dwForwardSize 22"));
    }
}

TEST_F(StatusQueries, WhatIsNoCallLineOrRoomIsRefusedWithoutAWrite) {
    DWORD address = 9;
    const auto refused = [&](DWORD code, LONG result) {
        EXPECT_EQ(Code(result), code);
        EXPECT_TRUE(Buffer.End() <= 4 && address == 9);
    };
    const DWORD call = LINEERR_INVALCALLHANDLE, small = LINEERR_STRUCTURETOOSMALL, null = LINEERR_INVALPOINTER;
    for (const int cref : {20, 29, 31, 0xFFFF}) {
        refused(call, TSPI_lineGetCallInfo(Handle(cref), Buffer.Room<LINECALLINFO>(1000)));
        refused(call, TSPI_lineGetCallStatus(Handle(cref), Buffer.Room<LINECALLSTATUS>(1000)));
    }
    refused(LINEERR_INVALLINEHANDLE, TSPI_lineGetLineDevStatus(nullptr, Buffer.Room<LINEDEVSTATUS>(1000)));
    refused(call, TSPI_lineGetCallAddressID(Handle(CONF_CREF), &address));
    for (const int cref : {0, CONF_CREF}) {
        refused(small, TSPI_lineGetCallInfo(Handle(cref), Buffer.Room<LINECALLINFO>(323)));
        refused(small, TSPI_lineGetCallStatus(Handle(cref), Buffer.Room<LINECALLSTATUS>(35)));
        refused(null, TSPI_lineGetCallInfo(Handle(cref), nullptr));
        refused(null, TSPI_lineGetCallStatus(Handle(cref), nullptr));
    }
    refused(small, TSPI_lineGetAddressStatus(Line, 0, Buffer.Room<LINEADDRESSSTATUS>(63)));
    refused(small, TSPI_lineGetLineDevStatus(Line, Buffer.Room<LINEDEVSTATUS>(87)));
    refused(null, TSPI_lineGetAddressStatus(Line, 0, nullptr));
    refused(null, TSPI_lineGetLineDevStatus(Line, nullptr));
    refused(null, TSPI_lineGetCallAddressID(Handle(0), nullptr));
    EXPECT_EQ(TSPI_lineGetCallAddressID(Handle(19), &address), 0);
    EXPECT_EQ(address, 0u);
}

}  // namespace
