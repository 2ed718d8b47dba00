// What the status queries tell of calls, address and line, and what they leave as the caller passed it.
#include "devices/call_status.h"

#include "devices/line.h"
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
    // A placed text, of which size and offset stand at two fields: 'text'@offset+size.
    std::string Text(DWORD field) const {
        const DWORD size = Buffer.Field(field), offset = Buffer.Field(field + 4);
        if (size == CallersBuffer::LEFT && offset == CallersBuffer::LEFT)
            return "-";
        std::string out = "'";
        for (DWORD at = offset; at + 2 < offset + size; at += 2)
            out += static_cast<char>(*Buffer.At(at));
        EXPECT_EQ(*Buffer.At(offset + size - 2) + *Buffer.At(offset + size - 1), 0) << "terminated";
        return out + "'@" + std::to_string(offset) + "+" + std::to_string(size);
    }
    // The answer of lineGetCallInfo: needed, used, origin, reason, and each party that anything was told of: flags,
    // address, name.
    std::string Info(int cref, DWORD total = 1000) {
        auto* info = Buffer.Room<LINECALLINFO>(total);
        EXPECT_EQ(TSPI_lineGetCallInfo(Handle(cref), info), 0);
        EXPECT_LE(Buffer.End(), std::max<DWORD>(info->dwUsedSize, CALLINFO_FIXED));
        std::string out = std::to_string(info->dwNeededSize) + " " + std::to_string(info->dwUsedSize) + " " +
                          Hex(info->dwOrigin) + " " + Hex(info->dwReason);
        DWORD flags = offsetof(LINECALLINFO, dwCallerIDFlags);
        for (const char* name : {"caller", "called", "connected", "redirection", "redirecting"}) {
            const std::string told = Hex(Buffer.Field(flags)) + " " + Text(flags + 4) + " " + Text(flags + 12);
            if (told != "0 - -")
                out += std::string(" | ") + name + " " + told;
            flags += 20;
        }
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
    ASSERT_EQ(TSPI_lineGetCallInfo(Handle(0), Buffer.Room<LINECALLINFO>(324)), 0);
    EXPECT_EQ(Buffer.Written(), "4:148 8:144 " + common + " 80:20 84:800 108:0 128:0 148:0 168:0 188:0");
    ASSERT_EQ(TSPI_lineGetCallInfo(Handle(CONF_CREF), Buffer.Room<LINECALLINFO>(324)), 0);
    EXPECT_EQ(Buffer.Written(), common + " 80:40 84:800");
    EXPECT_EQ(TraceLines().back(), "Entering TSPI_lineGetCallInfo cref:CONFREF ");
}

TEST_F(StatusQueries, PartiesOfACallPlacedFromHere) {
    Call(1, 0, PROCEEDING, false);
    CopyText(Record(0).DestAddress, "1234");
    EXPECT_EQ(Info(0), "336 336 1 800 | called 8 '1234'@324+10 ''@334+2");
    EXPECT_EQ(Info(0, 330), "336 324 1 800 | called 8 - -");
    Record(0).DestAddress[0] = 0;
    Record(0).Reason = LINECALLREASON_FWDBUSY;
    Record(0).state = CONNECTED;
    EXPECT_EQ(Info(0), "332 332 1 800 | called 0 ''@324+2 ''@326+2 | connected 10 ''@328+2 ''@330+2");
    FillTexts(Record(0));
    EXPECT_EQ(Info(0), "360 360 1 800 | called c 'ca'@324+6 'cn'@330+6 | connected c 'oa'@336+6 'on'@342+6 | "
                       "redirection c 'na'@348+6 'nn'@354+6");
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"RedirectionAddress:'na' lg 5", "RedirectionName:'nn' lg 5",
                                                     " dwCalledIDFlags c dwConnectedIDFlags c"}));
    Record(0).CalledName[0] = Record(0).ConnectedAddress[0] = Record(0).RedirectionName[0] = 0;
    EXPECT_EQ(Info(0), "350 350 1 800 | called c 'ca'@324+6 'dn'@330+6 | connected 4 ''@336+2 'on'@338+6 | "
                       "redirection 8 'na'@344+6 -");
}

TEST_F(StatusQueries, PartiesOfAReceivedCall) {
    Calls("C");
    EXPECT_EQ(Info(0), "328 328 20 800 | caller 0 ''@324+2 ''@326+2 | connected 10 - -");
    FillTexts(Record(0));
    Record(0).Origin = LINECALLORIGIN_EXTERNAL;
    Record(0).Reason = LINECALLREASON_FWDNOANSWER;
    Steps();
    EXPECT_EQ(Info(0), "372 372 4 4 | caller c 'ra'@324+6 'rn'@330+6 | called c 'ca'@336+6 'cn'@342+6 | "
                       "connected c 'oa'@348+6 'on'@354+6 | redirecting c 'ga'@360+6 'gn'@366+6");
    EXPECT_EQ(Steps(),
              "Entering TSPI_lineGetCallInfo cref:0 hdCall:0 | callState 100 DestAddress:'da' - DestName:'dn' | "
              "v2 CallerAdd:'ra' lg 6 | CallerAdd:  Used 144 Needed 14a Total 3e8 | "
              "v2 CallerAdd:Wide 'ra' lg 6 | v2 CallerName:'rn' lg 6  | "
              "v2 CalledAdd:'ca' lg 6 | v2 CalledName:'cn' lg 6  | "
              "v2 ConnectedAddress:'oa' lg 6 | v2 ConnectedName:'on' lg 6 | RedirectingAddress:'ga' lg 5 | "
              "RedirectingName:'gn' lg 5 | CallerIDFlags c CalledIDFlags c Origin 4 Reason 4");
    Record(0).CallerAddress[0] = Record(0).CalledAddress[0] = Record(0).ConnectedName[0] = 0;
    Record(0).RedirectingAddress[0] = Record(0).RedirectingName[0] = 0;
    const std::string parties = " | caller c 'da'@324+6 'rn'@330+6 | called 4 - 'cn'@336+6 | connected 8 'oa'@342+6 -";
    for (const auto& [stored, told] :
         {std::pair{1u, "1"}, {0x10u, "10"}, {0x20u, "800"}, {0x100u, "800"}, {2u, "2 -"}, {4u, "4 -"}, {8u, "8 -"}}) {
        Record(0).Reason = stored;
        const std::string reason = told;
        const bool forwarded = reason.ends_with("-");
        EXPECT_EQ(Info(0), "348 348 4 " + reason.substr(0, reason.find(' ')) + parties +
                               (forwarded ? " | redirecting 8 - -" : ""));
    }
}

// Once a text does not fit, no later one is placed, however short; sizes and flags are told all the same.
TEST_F(StatusQueries, TextsArePlacedWhileAllBeforeThemFit) {
    Calls("C");
    FillTexts(Record(0));
    CopyText(Record(0).CalledAddress, "0145678901");  // 22 bytes
    EXPECT_EQ(Info(0, 357), "376 336 20 800 | caller c 'ra'@324+6 'rn'@330+6 | called c - - | connected c - -");
    EXPECT_EQ(Info(0, 358),
              "376 358 20 800 | caller c 'ra'@324+6 'rn'@330+6 | called c '0145678901'@336+22 - | connected c - -");
    CopyText(Record(0).CallerAddress, std::string(79, 'x').c_str());
    EXPECT_EQ(Info(0, 490), "530 490 20 800 | caller c '" + std::string(79, 'x') +
                                "'@324+160 'rn'@484+6 | called c - - | connected c - -");
    CopyText(Record(0).CallerAddress, "\x80\xE9");  // euro, e acute
    Info(0);
    EXPECT_EQ(Buffer.Field(324), 0x00E920ACu);
}

TEST_F(StatusQueries, WithVersion1TheDisplayIsTheOnlySource) {
    Call(1, 0, CONNECTED, false);
    Call(2, 0, CONNECTED);
    for (const int cref : {0, 1})
        FillTexts(Record(cref));
    Record(1).Origin = LINECALLORIGIN_INTERNAL;
    Record(1).Reason = LINECALLREASON_FWDBUSY;
    for (const bool byLevel : {false, true}) {
        ProviderState.TAPI_OMNA_Ver = byLevel ? 2 : 1;
        ProviderState.ProtocolLevel = byLevel ? 1 : 2;
        EXPECT_EQ(Info(0), "348 348 1 800 | called c 'da'@324+6 'dn'@330+6 | connected c 'oa'@336+6 'on'@342+6");
        Steps();
        EXPECT_EQ(Info(1), "358 358 2 800 | caller c 'da'@324+6 'dn'@330+6 | called 8 '4711'@348+10 - | "
                           "connected c 'oa'@336+6 'on'@342+6");
        EXPECT_EQ(Steps(), "Entering TSPI_lineGetCallInfo cref:1 hdCall:1 | "
                           "callState 256 DestAddress:'da' - DestName:'dn' | "
                           "copie connected addr 'oa' | copie connected name 'on' | "
                           "In Called '4711' cbCalledMCDU 10 |  dwCallerIDFlags c dwConnectedIDFlags c");
        EXPECT_EQ(Info(1, 357), "358 348 2 800 | caller c 'da'@324+6 'dn'@330+6 | called 10 - - | "
                                "connected c 'oa'@336+6 'on'@342+6");
        EXPECT_EQ(Code(TSPI_lineGetCallInfo(Handle(CONF_CREF), Buffer.Room<LINECALLINFO>(1000))),
                  LINEERR_INVALCALLHANDLE);
    }
    DynamicConfig.StaticConfig = 1;
    for (CallRecord& call : CallTable)
        call.DestAddress[0] = call.DestName[0] = call.ConnectedAddress[0] = call.ConnectedName[0] = 0;
    EXPECT_EQ(Info(0), "332 332 1 800 | called 10 ''@324+2 ''@326+2 | connected 10 ''@328+2 ''@330+2");
    EXPECT_EQ(Info(1), "328 328 2 800 | caller 10 ''@324+2 ''@326+2 | connected 10 - -");
}

// --- lineGetCallStatus -----------------------------------------------------------------------------------------------

TEST_F(StatusQueries, StateModeAndFeaturesOfACall) {
    const auto told = [this](int cref) {
        auto* status = Buffer.Room<LINECALLSTATUS>(56);
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
    // active, held, pending; address features, line features, device flags
    for (const auto& [calls, expected] : {std::pair{"III", "0 0 0 7 c 5"},
                                          {"ICII", "1 0 0 2 8 5"},
                                          {"HWI", "0 1 1 2 8 5"},
                                          {"ROTB", "4 0 0 2 8 5"},
                                          {"HHP", "1 2 0 0 0 5"},
                                          {"FC", "2 0 0 0 0 5"},
                                          {"D", "1 0 0 0 0 5"}})
        EXPECT_EQ(told(DEVICE_IN_SERVICE, calls), expected) << calls;
}

TEST_F(StatusQueries, AddressAndLineWriteTheseFieldsAndNoOthers) {
    Calls("CRI");
    Steps();
    ASSERT_EQ(TSPI_lineGetAddressStatus(Line, 0, Buffer.Room<LINEADDRESSSTATUS>(64)), 0);
    EXPECT_EQ(Buffer.Written(), "4:40 8:40 12:1 16:2 20:0 24:0 28:0 32:4 36:0 40:0 44:0 48:0 52:0 56:0 60:0");
    const std::string counted = "CallsStat cref 0000 state 100 | CallsStat cref 0001 state 10000 | "
                                "CallsStat cref 0002 state 1 | "
                                "NumCalls 3 connected 1 OnHold 0 OnHoldPend 0 Reoffer 1";
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
        EXPECT_EQ(Text(80), "'1234'@88+10");
        EXPECT_THAT(Steps(), testing::EndsWith("| size LF 18 LA 40 RCA 4 cbRedirectAddr a | Fwd status " +
                                               std::to_string(status) + " dwForwardSize 22"));
    }
}

TEST_F(StatusQueries, WhatIsNoCallLineOrRoomIsRefusedWithoutAWrite) {
    const auto refused = [this](DWORD code, LONG result) {
        EXPECT_EQ(Code(result), code);
        EXPECT_LE(Buffer.End(), 4u);
    };
    for (const int cref : {20, 29, 31, 0xFFFF}) {
        refused(LINEERR_INVALCALLHANDLE, TSPI_lineGetCallInfo(Handle(cref), Buffer.Room<LINECALLINFO>(1000)));
        refused(LINEERR_INVALCALLHANDLE, TSPI_lineGetCallStatus(Handle(cref), Buffer.Room<LINECALLSTATUS>(1000)));
    }
    refused(LINEERR_INVALLINEHANDLE, TSPI_lineGetLineDevStatus(nullptr, Buffer.Room<LINEDEVSTATUS>(1000)));
    for (const int cref : {0, CONF_CREF}) {
        refused(LINEERR_STRUCTURETOOSMALL, TSPI_lineGetCallInfo(Handle(cref), Buffer.Room<LINECALLINFO>(323)));
        refused(LINEERR_STRUCTURETOOSMALL, TSPI_lineGetCallStatus(Handle(cref), Buffer.Room<LINECALLSTATUS>(35)));
        refused(LINEERR_INVALPOINTER, TSPI_lineGetCallInfo(Handle(cref), nullptr));
        refused(LINEERR_INVALPOINTER, TSPI_lineGetCallStatus(Handle(cref), nullptr));
    }
    refused(LINEERR_STRUCTURETOOSMALL, TSPI_lineGetAddressStatus(Line, 0, Buffer.Room<LINEADDRESSSTATUS>(63)));
    refused(LINEERR_STRUCTURETOOSMALL, TSPI_lineGetLineDevStatus(Line, Buffer.Room<LINEDEVSTATUS>(87)));
    refused(LINEERR_INVALPOINTER, TSPI_lineGetAddressStatus(Line, 0, nullptr));
    refused(LINEERR_INVALPOINTER, TSPI_lineGetLineDevStatus(Line, nullptr));
    refused(LINEERR_INVALPOINTER, TSPI_lineGetCallAddressID(Handle(0), nullptr));
    DWORD address = 9;
    refused(LINEERR_INVALCALLHANDLE, TSPI_lineGetCallAddressID(Handle(CONF_CREF), &address));
    EXPECT_EQ(address, 9u);
    EXPECT_EQ(TSPI_lineGetCallAddressID(Handle(19), &address), 0);
    EXPECT_EQ(address, 0u);
}

}  // namespace
