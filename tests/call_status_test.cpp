// What the status queries tell of calls, address and line, and what they leave as the caller passed it.
#include "devices/call_status.h"

#include "devices/line.h"
#include "provider/lifecycle.h"
#include "support/port.h"
#include "support/tracked.h"

#include <cstring>

namespace {

constexpr std::uint8_t UNTOUCHED = 0xCC;
constexpr DWORD LEFT = 0xCCCCCCCC;  // a field as it came

DWORD Result(LONG result) {
    return static_cast<DWORD>(result);
}

HDRVCALL Handle(int cref) {
    return reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(cref));
}

std::string Hex(DWORD value) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(value));
    return value == LEFT ? "-" : text;
}

class StatusQueries : public TrackedSet {
protected:
    HDRVLINE Line = reinterpret_cast<HDRVLINE>(&ProviderState);
    alignas(8) std::uint8_t Bytes[1024];
    RecordingPort Port;

    void SetUp() override {
        TrackedSet::SetUp();
        ProviderState.LineDeviceID = 6;
        ProviderState.TAPI_OMNA_Ver = 2;
        WaitLineMutex();
        ReleaseLineMutex(0);
        TraceLines();  // of the mutex's creation
    }
    void TearDown() override {
        if (Serial.Port != INVALID_HANDLE_VALUE)
            CloseHandle(Serial.Port);
        Serial.Port = INVALID_HANDLE_VALUE;
        TrackedSet::TearDown();
    }
    template <class Structure> Structure* Room(DWORD total) {
        std::memset(Bytes, UNTOUCHED, sizeof Bytes);
        std::memcpy(Bytes, &total, 4);
        return reinterpret_cast<Structure*>(Bytes);
    }
    DWORD At4(DWORD offset) const {
        DWORD value;
        std::memcpy(&value, Bytes + offset, 4);
        return value;
    }
    // Every field of the fixed part that was written, "offset:value", offsets in decimal.
    std::string Written(DWORD fixedPart) const {
        std::string out;
        for (DWORD offset = 4; offset < fixedPart; offset += 4)
            if (At4(offset) != LEFT)
                out += (out.empty() ? "" : " ") + std::to_string(offset) + ":" + Hex(At4(offset));
        return out;
    }
    std::size_t WrittenUpTo() const {
        std::size_t end = sizeof Bytes;
        while (end > 0 && Bytes[end - 1] == UNTOUCHED)
            --end;
        return end;
    }
    // A placed text: 'text'@offset+size.
    std::string Text(DWORD size, DWORD offset) const {
        if (size == LEFT && offset == LEFT)
            return "-";
        std::string out = "'";
        for (DWORD at = offset; at + 2 < offset + size; at += 2)
            out += static_cast<char>(Bytes[at]);
        EXPECT_EQ(Bytes[offset + size - 2] + Bytes[offset + size - 1], 0) << "terminated";
        return out + "'@" + std::to_string(offset) + "+" + std::to_string(size);
    }
    std::string Party(const char* name, DWORD flags, DWORD size, DWORD offset, DWORD nameSize, DWORD nameOffset) const {
        if (flags == 0 && size == LEFT && nameSize == LEFT)
            return "";
        return std::string(" | ") + name + " " + Hex(flags) + " " + Text(size, offset) + " " +
               Text(nameSize, nameOffset);
    }
    // The answer of lineGetCallInfo: needed, used, origin, reason, and each party that anything was told of: flags,
    // address, name.
    std::string Info(int cref, DWORD total = 1000) {
        auto* info = Room<LINECALLINFO>(total);
        EXPECT_EQ(TSPI_lineGetCallInfo(Handle(cref), info), 0);
        EXPECT_LE(WrittenUpTo(), std::max<DWORD>(info->dwUsedSize, CALLINFO_FIXED));
        return std::to_string(info->dwNeededSize) + " " + std::to_string(info->dwUsedSize) + " " + Hex(info->dwOrigin) +
               " " + Hex(info->dwReason) +
               Party("caller", info->dwCallerIDFlags, info->dwCallerIDSize, info->dwCallerIDOffset,
                     info->dwCallerIDNameSize, info->dwCallerIDNameOffset) +
               Party("called", info->dwCalledIDFlags, info->dwCalledIDSize, info->dwCalledIDOffset,
                     info->dwCalledIDNameSize, info->dwCalledIDNameOffset) +
               Party("connected", info->dwConnectedIDFlags, info->dwConnectedIDSize, info->dwConnectedIDOffset,
                     info->dwConnectedIDNameSize, info->dwConnectedIDNameOffset) +
               Party("redirection", info->dwRedirectionIDFlags, info->dwRedirectionIDSize, info->dwRedirectionIDOffset,
                     info->dwRedirectionIDNameSize, info->dwRedirectionIDNameOffset) +
               Party("redirecting", info->dwRedirectingIDFlags, info->dwRedirectingIDSize, info->dwRedirectingIDOffset,
                     info->dwRedirectingIDNameSize, info->dwRedirectingIDNameOffset);
    }
    // A record whose every party text names itself in two letters.
    static void FillTexts(CallRecord& call) {
        CopyText(call.DestAddress, "da");
        CopyText(call.DestName, "dn");
        CopyText(call.CallerAddress, "ra");
        CopyText(call.CallerName, "rn");
        CopyText(call.CalledAddress, "ca");
        CopyText(call.CalledName, "cn");
        CopyText(call.ConnectedAddress, "oa");
        CopyText(call.ConnectedName, "on");
        CopyText(call.RedirectionAddress, "na");
        CopyText(call.RedirectionName, "nn");
        CopyText(call.RedirectingAddress, "ga");
        CopyText(call.RedirectingName, "gn");
    }
};

TEST_F(StatusQueries, CallInfoWritesTheseFieldsAndNoOthers) {
    ProviderState.MediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    ProviderState.AppSpecific = 0x77;
    ProviderState.DialParams = {1, 2, 3, 4};
    Call(1, 0, OFFERING);
    auto* info = Room<LINECALLINFO>(324);
    ASSERT_EQ(TSPI_lineGetCallInfo(Handle(0), info), 0);
    const std::string common = "16:6 24:1 32:4 36:77 48:6 52:7f7b 64:1 68:2 72:3 76:4";
    EXPECT_EQ(Written(CALLINFO_FIXED), "4:148 8:144 " + common + " 80:20 84:800 108:0 128:0 148:0 168:0 188:0");
    EXPECT_EQ(WrittenUpTo(), 192u);
    Steps();
    info = Room<LINECALLINFO>(324);
    ASSERT_EQ(TSPI_lineGetCallInfo(Handle(CONF_CREF), info), 0);
    EXPECT_EQ(Written(CALLINFO_FIXED), common + " 80:40 84:800");
    EXPECT_EQ(Steps(), "Entering TSPI_lineGetCallInfo cref:CONFREF ");
}

TEST_F(StatusQueries, PartiesOfACallPlacedFromHere) {
    Call(1, 0, PROCEEDING, false);
    CopyText(Record(0).DestAddress, "1234");
    EXPECT_EQ(Info(0), "336 336 1 800 | called 8 '1234'@324+10 ''@334+2");
    EXPECT_EQ(Info(0, 330), "336 324 1 800 | called 8 - -");
    Record(0).DestAddress[0] = 0;
    Record(0).Reason = LINECALLREASON_FWDBUSY;
    Record(0).Origin = LINECALLORIGIN_EXTERNAL;
    EXPECT_EQ(Info(0), "328 328 1 800 | called 0 ''@324+2 ''@326+2");
    Record(0).state = CONNECTED;
    EXPECT_EQ(Info(0), "332 332 1 800 | called 0 ''@324+2 ''@326+2 | connected 10 ''@328+2 ''@330+2");
    FillTexts(Record(0));
    Steps();
    EXPECT_EQ(Info(0), "360 360 1 800 | called c 'ca'@324+6 'cn'@330+6 | connected c 'oa'@336+6 'on'@342+6 | "
                       "redirection c 'na'@348+6 'nn'@354+6");
    EXPECT_EQ(Steps(),
              "Entering TSPI_lineGetCallInfo cref:0 hdCall:0 | "
              "callState 100 DestAddress:'da' - DestName:'dn' | "
              "v2 CalledAdd:'ca' lg 6 | v2 CalledName:'cn' lg 6  | "
              "v2 ConnectedAddress:'oa' lg 6 | v2 ConnectedName:'on' lg 6 | "
              "RedirectionAddress:'na' lg 5 | RedirectionName:'nn' lg 5 |  dwCalledIDFlags c dwConnectedIDFlags c");
    Record(0).CalledName[0] = Record(0).ConnectedAddress[0] = Record(0).RedirectionName[0] = 0;
    EXPECT_EQ(Info(0), "350 350 1 800 | called c 'ca'@324+6 'dn'@330+6 | connected 4 ''@336+2 'on'@338+6 | "
                       "redirection 8 'na'@344+6 -");
    Record(0).RedirectionAddress[0] = 0;
    CopyText(Record(0).RedirectionName, "nn");
    EXPECT_EQ(Info(0), "344 344 1 800 | called c 'ca'@324+6 'dn'@330+6 | connected 4 ''@336+2 'on'@338+6");
}

TEST_F(StatusQueries, PartiesOfAReceivedCall) {
    Call(1, 0, CONNECTED);
    EXPECT_EQ(Info(0), "328 328 20 800 | caller 0 ''@324+2 ''@326+2 | connected 10 - -");
    FillTexts(Record(0));
    Record(0).Origin = LINECALLORIGIN_EXTERNAL;
    Record(0).Reason = LINECALLREASON_FWDNOANSWER;
    Steps();
    EXPECT_EQ(Info(0), "372 372 4 4 | caller c 'ra'@324+6 'rn'@330+6 | called c 'ca'@336+6 'cn'@342+6 | "
                       "connected c 'oa'@348+6 'on'@354+6 | redirecting c 'ga'@360+6 'gn'@366+6");
    EXPECT_EQ(Steps(), "Entering TSPI_lineGetCallInfo cref:0 hdCall:0 | "
                       "callState 100 DestAddress:'da' - DestName:'dn' | "
                       "v2 CallerAdd:'ra' lg 6 | CallerAdd:  Used 144 Needed 14a Total 3e8 | "
                       "v2 CallerAdd:Wide 'ra' lg 6 | v2 CallerName:'rn' lg 6  | "
                       "v2 CalledAdd:'ca' lg 6 | v2 CalledName:'cn' lg 6  | "
                       "v2 ConnectedAddress:'oa' lg 6 | v2 ConnectedName:'on' lg 6 | "
                       "RedirectingAddress:'ga' lg 5 | RedirectingName:'gn' lg 5 | "
                       "CallerIDFlags c CalledIDFlags c Origin 4 Reason 4");
    Record(0).CallerAddress[0] = Record(0).CalledAddress[0] = Record(0).ConnectedName[0] = 0;
    Record(0).RedirectingAddress[0] = Record(0).RedirectingName[0] = 0;
    EXPECT_EQ(Info(0), "348 348 4 4 | caller c 'da'@324+6 'rn'@330+6 | called 4 - 'cn'@336+6 | "
                       "connected 8 'oa'@342+6 - | redirecting 8 - -");
    Record(0).state = ONHOLD;
    struct Row {
        DWORD stored, told;
        bool redirecting;
    };
    for (const Row& row :
         {Row{0x1, 0x1, false}, Row{0x2, 0x2, true}, Row{0x4, 0x4, true}, Row{0x8, 0x8, true}, Row{0x10, 0x10, false},
          Row{0x20, 0x800, false}, Row{0x40, 0x800, false}, Row{0x100, 0x800, false}, Row{0x800, 0x800, false}}) {
        Record(0).Reason = row.stored;
        EXPECT_EQ(Info(0), "342 342 4 " + Hex(row.told) + " | caller c 'da'@324+6 'rn'@330+6 | called 4 - 'cn'@336+6" +
                               (row.redirecting ? " | redirecting 8 - -" : ""));
    }
}

// Once a text does not fit, no later one is placed, however short; sizes and flags are told all the same.
TEST_F(StatusQueries, TextsArePlacedWhileAllBeforeThemFit) {
    Call(1, 0, CONNECTED);
    FillTexts(Record(0));
    CopyText(Record(0).CalledAddress, "0145678901");  // 22 bytes
    const std::string longest(79, 'x');
    EXPECT_EQ(Info(0, 357), "376 336 20 800 | caller c 'ra'@324+6 'rn'@330+6 | called c - - | connected c - -");
    EXPECT_EQ(Info(0, 358),
              "376 358 20 800 | caller c 'ra'@324+6 'rn'@330+6 | called c '0145678901'@336+22 - | connected c - -");
    EXPECT_EQ(Info(0, 324), "376 324 20 800 | caller c - - | called c - - | connected c - -");
    for (char* text : {Record(0).CallerAddress, Record(0).CallerName})
        std::strcpy(text, longest.c_str());
    EXPECT_EQ(Info(0, 644), "684 644 20 800 | caller c '" + longest + "'@324+160 '" + longest +
                                "'@484+160 | called c - - | connected c - -");
    CopyText(Record(0).CallerAddress, "\x80\xE9");  // euro, e acute
    auto* info = Room<LINECALLINFO>(400);
    ASSERT_EQ(TSPI_lineGetCallInfo(Handle(0), info), 0);
    EXPECT_EQ(At4(324), 0x00E920ACu);
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
        Steps();
        EXPECT_EQ(Info(0), "348 348 1 800 | called c 'da'@324+6 'dn'@330+6 | connected c 'oa'@336+6 'on'@342+6");
        EXPECT_EQ(Steps(),
                  "Entering TSPI_lineGetCallInfo cref:0 hdCall:0 | "
                  "callState 256 DestAddress:'da' - DestName:'dn' | "
                  "copie connected addr 'oa' | copie connected name 'on' |  dwCalledIDFlags c dwConnectedIDFlags c");
        EXPECT_EQ(Info(1), "358 358 2 800 | caller c 'da'@324+6 'dn'@330+6 | called 8 '4711'@348+10 - | "
                           "connected c 'oa'@336+6 'on'@342+6");
        EXPECT_EQ(Steps(), "Entering TSPI_lineGetCallInfo cref:1 hdCall:1 | "
                           "callState 256 DestAddress:'da' - DestName:'dn' | "
                           "copie connected addr 'oa' | copie connected name 'on' | "
                           "In Called '4711' cbCalledMCDU 10 |  dwCallerIDFlags c dwConnectedIDFlags c");
        EXPECT_EQ(Info(1, 357), "358 348 2 800 | caller c 'da'@324+6 'dn'@330+6 | called 10 - - | "
                                "connected c 'oa'@336+6 'on'@342+6");
        EXPECT_EQ(Result(TSPI_lineGetCallInfo(Handle(CONF_CREF), Room<LINECALLINFO>(1000))), LINEERR_INVALCALLHANDLE);
    }
    DynamicConfig.StaticConfig = 1;
    EXPECT_EQ(Info(1), "348 348 2 800 | caller c 'da'@324+6 'dn'@330+6 | connected c 'oa'@336+6 'on'@342+6");
    for (CallRecord& call : {std::ref(Record(0)), std::ref(Record(1))})
        call.DestAddress[0] = call.DestName[0] = call.ConnectedAddress[0] = call.ConnectedName[0] = 0;
    EXPECT_EQ(Info(0), "332 332 1 800 | called 10 ''@324+2 ''@326+2 | connected 10 ''@328+2 ''@330+2");
    EXPECT_EQ(Info(1), "328 328 2 800 | caller 10 ''@324+2 ''@326+2 | connected 10 - -");
}

// --- lineGetCallStatus -----------------------------------------------------------------------------------------------

TEST_F(StatusQueries, CallStatusTable) {
    constexpr DWORD REOFFER = STATE_REOFFERING, PENDING = LINECALLSTATE_ONHOLDPENDTRANSFER, NONE = 0;
    struct Row {
        std::vector<DWORD> states;  // of crefs 0, 1, ...; the query is about cref 0
        const char* told;           // state, state mode, features
    };
    const Row rows[] = {
        {{IDLE}, "1 - -"},  // the other records have never been used
        {{IDLE, CONNECTED}, "1 - -"},
        {{LINECALLSTATE_UNKNOWN}, "8000 - -"},
        {{OFFERING}, "2 - 4"},
        {{OFFERING, CONNECTED, ONHOLD}, "2 - 4"},
        {{OFFERING, PROCEEDING}, "2 - -"},
        {{REOFFER}, "2 - 4"},
        {{REOFFER, PROCEEDING}, "2 - -"},
        {{DIALTONE}, "8 20 c0"},
        {{LINECALLSTATE_DIALING}, "10 - c0"},
        {{LINECALLSTATE_RINGBACK}, "20 - 80"},
        {{LINECALLSTATE_RINGBACK, PENDING}, "20 - a0"},
        {{PROCEEDING}, "20 - 80"},
        {{PROCEEDING, CONNECTED}, "20 - 80"},
        {{PROCEEDING, ONHOLD}, "20 - a0"},
        {{PROCEEDING, PENDING}, "20 - a0"},
        {{BUSY}, "40 8 -"},
        {{CONNECTED}, "100 - 2000a88"},
        {{CONNECTED, OFFERING}, "100 - 2000a88"},
        {{CONNECTED, ONHOLD}, "100 - 2000ae8"},
        {{CONNECTED, PENDING}, "100 - 2000ae8"},
        {{CONNECTED, PROCEEDING}, "100 - -"},
        {{CONNECTED, ONHOLD, PROCEEDING}, "100 - -"},
        {{ONHOLD}, "400 - 8000000"},
        {{ONHOLD, OFFERING}, "400 - 8000000"},
        {{ONHOLD, CONNECTED}, "400 - 8000020"},
        {{ONHOLD, PROCEEDING, CONNECTED}, "400 - 20"},
        {{PENDING}, "2000 - 8000000"},
        {{PENDING, CONNECTED}, "2000 - 8000020"},
        {{PENDING, PROCEEDING}, "2000 - 20"},
        {{CONFERENCED}, "800 - 40080"},
        {{DISCONNECTED}, "4000 - 80"},
        {{NONE}, "0 - -"},
        {{LINECALLSTATE_ONHOLDPENDCONF}, "1000 - -"},
        {{LINECALLSTATE_SPECIALINFO}, "80 - -"},
    };
    const auto told = [this](int cref) {
        auto* status = Room<LINECALLSTATUS>(56);
        EXPECT_EQ(TSPI_lineGetCallStatus(Handle(cref), status), 0);
        EXPECT_EQ(Hex(status->dwNeededSize) + Hex(status->dwUsedSize) + Hex(status->dwCallPrivilege), "---");
        EXPECT_LE(WrittenUpTo(), 28u);
        return Hex(status->dwCallState) + " " + Hex(status->dwCallStateMode) + " " + Hex(status->dwCallFeatures);
    };
    for (const Row& row : rows) {
        Fresh();
        for (std::size_t i = 0; i < row.states.size(); ++i)
            Call(static_cast<int>(i) + 1, 0, row.states[i]);
        std::string states;
        for (const DWORD state : row.states)
            states += Hex(state) + " ";
        EXPECT_EQ(told(0), row.told) << states;
    }
    Fresh();
    for (CallRecord& call : CallTable)
        call.state = IDLE;
    EXPECT_EQ(told(19), "1 - 40") << "every record is IDLE";
    Record(3).state = LINECALLSTATE_UNKNOWN;
    EXPECT_EQ(told(3), "8000 - -");

    confstate = CONNECTED;
    EXPECT_EQ(told(CONF_CREF), "100 - 80");
    EXPECT_EQ(Steps(), "") << "this query is not traced";
}

TEST_F(StatusQueries, SecondCallOnTheSameKeyIsNotTransferredBlindly) {
    Double(CONNECTED, ONHOLD);
    auto* status = Room<LINECALLSTATUS>(56);
    for (const bool sameKey : {true, false})
        for (const int mode : {0, 1}) {
            Settings.EnquiryCallMode = mode;
            At(1).calls[1] = sameKey ? 1 : -1;
            ASSERT_EQ(TSPI_lineGetCallStatus(Handle(0), status), 0);
            EXPECT_EQ(Hex(status->dwCallFeatures), sameKey && mode == 1 ? "2000ae0" : "2000ae8");
        }
}

// --- address and line ------------------------------------------------------------------------------------------------

TEST_F(StatusQueries, FeaturesOfAddressAndLine) {
    struct Row {
        bool open;
        std::uint8_t device;
        std::vector<DWORD> states;
        const char* told;  // active, held, pending; address features, line features, device flags
    };
    const Row rows[] = {
        {false, DEVICE_IN_SERVICE, {}, "0 0 0 0 0 0"},
        {true, DEVICE_STARTING, {}, "0 0 0 0 0 0"},
        {true, DEVICE_OUT_OF_SERVICE, {}, "0 0 0 0 0 0"},
        {true, DEVICE_IN_SERVICE, {}, "0 0 0 7 c 5"},
        {true, DEVICE_IN_SERVICE, {IDLE, IDLE, IDLE}, "0 0 0 7 c 5"},
        {true, DEVICE_IN_SERVICE, {IDLE, CONNECTED, IDLE, IDLE}, "1 0 0 2 8 5"},
        {true, DEVICE_IN_SERVICE, {ONHOLD, LINECALLSTATE_ONHOLDPENDTRANSFER, IDLE}, "0 1 1 2 8 5"},
        {true, DEVICE_IN_SERVICE, {STATE_REOFFERING, OFFERING, DIALTONE, BUSY}, "4 0 0 2 8 5"},
        {true, DEVICE_IN_SERVICE, {ONHOLD, ONHOLD, PROCEEDING}, "1 2 0 0 0 5"},
        {true, DEVICE_IN_SERVICE, {CONFERENCED, CONNECTED}, "2 0 0 0 0 5"},
        {true, DEVICE_IN_SERVICE, {DISCONNECTED}, "1 0 0 0 0 5"},
        {false, DEVICE_IN_SERVICE, {CONNECTED}, "1 0 0 0 0 0"},
    };
    for (const Row& row : rows) {
        Fresh();
        if (row.open && Serial.Port == INVALID_HANDLE_VALUE)
            Port.Open();
        if (!row.open && Serial.Port != INVALID_HANDLE_VALUE)
            CloseHandle(std::exchange(Serial.Port, INVALID_HANDLE_VALUE));
        ProviderState.DeviceState = row.device;
        for (std::size_t i = 0; i < row.states.size(); ++i)
            Call(static_cast<int>(i) + 1, 0, row.states[i]);
        const auto counts = [](const auto& status) {
            return Hex(status.dwNumActiveCalls) + " " + Hex(status.dwNumOnHoldCalls) + " " +
                   Hex(status.dwNumOnHoldPendCalls) + " ";
        };
        auto* address = Room<LINEADDRESSSTATUS>(64);
        ASSERT_EQ(TSPI_lineGetAddressStatus(nullptr, 0, address), 0);
        const std::string first = counts(*address);
        std::string told = first + Hex(address->dwAddressFeatures) + " ";
        auto* line = Room<LINEDEVSTATUS>(88);
        ASSERT_EQ(TSPI_lineGetLineDevStatus(Line, line), 0);
        EXPECT_EQ(counts(*line), first);
        told += Hex(line->dwLineFeatures) + " " + Hex(line->dwDevStatusFlags);
        EXPECT_EQ(told, row.told) << &row - rows;
    }
}

TEST_F(StatusQueries, AddressAndLineWriteTheseFieldsAndNoOthers) {
    Call(1, 0, CONNECTED);
    Call(2, 0, STATE_REOFFERING);
    Call(3, 0, IDLE);
    Steps();
    auto* address = Room<LINEADDRESSSTATUS>(64);
    ASSERT_EQ(TSPI_lineGetAddressStatus(Line, 0, address), 0);
    EXPECT_EQ(Written(ADDRESSSTATUS_FIXED),
              "4:40 8:40 12:1 16:2 20:0 24:0 28:0 32:4 36:0 40:0 44:0 48:0 52:0 56:0 60:0");
    EXPECT_EQ(WrittenUpTo(), 64u);
    const std::string counted = "CallsStat cref 0000 state 100 | CallsStat cref 0001 state 10000 | "
                                "CallsStat cref 0002 state 1 | "
                                "NumCalls 3 connected 1 OnHold 0 OnHoldPend 0 Reoffer 1";
    const std::string steps = Steps();
    EXPECT_THAT(steps, testing::StartsWith("Entering TSPI_lineGetAddressStatus("));
    EXPECT_THAT(steps, testing::EndsWith(",0," + Hex(static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(address))) +
                                         ") | " + counted));
    for (const bool pending : {false, true}) {
        ProviderState.PendingRequestID = pending ? 7 : 0;
        auto* line = Room<LINEDEVSTATUS>(88);
        ASSERT_EQ(TSPI_lineGetLineDevStatus(Line, line), 0);
        EXPECT_EQ(Written(DEVSTATUS_FIXED),
                  std::string("4:58 8:58 20:2 24:0 28:0 32:0 36:") + (pending ? "1" : "0") + " 52:2 56:0");
        EXPECT_EQ(Steps(), counted);
    }
}

TEST_F(StatusQueries, ForwardingIsToldWholeOrNotAtAll) {
    CopyText(ProviderState.ForwardDestination, "1234");
    const char* const modes[] = {"1", "10", "100", "1000", nullptr, "0"};  // by status
    for (int status = 0; status <= 5; ++status) {
        ProviderState.FwdStatus = static_cast<std::uint8_t>(status);
        Steps();
        ASSERT_EQ(TSPI_lineGetAddressStatus(Line, 0, Room<LINEADDRESSSTATUS>(98)), 0);
        const std::string steps = Steps();
        const std::string told =
            Hex(At4(4)) + " " + Hex(At4(8)) + " " + Hex(At4(36)) + " " + Hex(At4(40)) + " " + Hex(At4(44));
        if (modes[status] == nullptr) {
            EXPECT_EQ(told, "40 40 0 0 0");
            EXPECT_EQ(WrittenUpTo(), 64u);
            EXPECT_THAT(steps, testing::Not(testing::HasSubstr("Fwd status")));
            continue;
        }
        EXPECT_EQ(told, "62 62 1 22 40");
        std::string forward;
        for (DWORD offset = 64; offset < 88; offset += 4)
            forward += Hex(At4(offset)) + " ";
        EXPECT_EQ(forward, std::string(modes[status]) + " 0 0 0 a 58 ");
        EXPECT_EQ(Text(10, 88), "'1234'@88+10");
        EXPECT_EQ(WrittenUpTo(), 98u);
        EXPECT_THAT(steps, testing::EndsWith("| size LF 18 LA 40 RCA 4 cbRedirectAddr a | Fwd status " +
                                             std::to_string(status) + " dwForwardSize 22"));
        ASSERT_EQ(TSPI_lineGetAddressStatus(Line, 0, Room<LINEADDRESSSTATUS>(97)), 0);
        EXPECT_EQ(Written(64).substr(0, 10), "4:62 8:40 ");
        EXPECT_EQ(Hex(At4(36)) + Hex(At4(40)) + Hex(At4(44)), "000");
        EXPECT_EQ(WrittenUpTo(), 64u);
    }
}

// --- refusals --------------------------------------------------------------------------------------------------------

TEST_F(StatusQueries, WhatIsNoCallLineOrRoomIsRefusedWithoutAWrite) {
    for (const int cref : {20, 29, 31, 0x10000 - 1}) {
        DWORD address = 9;
        EXPECT_EQ(Result(TSPI_lineGetCallInfo(Handle(cref), Room<LINECALLINFO>(1000))), LINEERR_INVALCALLHANDLE);
        EXPECT_EQ(Result(TSPI_lineGetCallStatus(Handle(cref), Room<LINECALLSTATUS>(1000))), LINEERR_INVALCALLHANDLE);
        EXPECT_EQ(Steps(), "");
        EXPECT_EQ(Result(TSPI_lineGetCallAddressID(Handle(cref), &address)), LINEERR_INVALCALLHANDLE);
        EXPECT_EQ(address, 9u);
        Steps();
    }
    DWORD address = 9;
    EXPECT_EQ(Result(TSPI_lineGetCallAddressID(Handle(CONF_CREF), &address)), LINEERR_INVALCALLHANDLE);
    EXPECT_EQ(TSPI_lineGetCallAddressID(Handle(19), &address), 0);
    EXPECT_EQ(address, 0u);
    EXPECT_EQ(Result(TSPI_lineGetAddressStatus(Line, 1, Room<LINEADDRESSSTATUS>(1000))), LINEERR_INVALADDRESSID);
    EXPECT_EQ(Result(TSPI_lineGetLineDevStatus(nullptr, Room<LINEDEVSTATUS>(1000))), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(WrittenUpTo(), 4u);

    for (const int cref : {0, CONF_CREF}) {
        EXPECT_EQ(Result(TSPI_lineGetCallInfo(Handle(cref), Room<LINECALLINFO>(323))), LINEERR_STRUCTURETOOSMALL);
        EXPECT_EQ(WrittenUpTo(), 4u);
        EXPECT_EQ(Result(TSPI_lineGetCallStatus(Handle(cref), Room<LINECALLSTATUS>(35))), LINEERR_STRUCTURETOOSMALL);
        EXPECT_EQ(WrittenUpTo(), 4u);
        EXPECT_EQ(Result(TSPI_lineGetCallInfo(Handle(cref), nullptr)), LINEERR_INVALPOINTER);
        EXPECT_EQ(Result(TSPI_lineGetCallStatus(Handle(cref), nullptr)), LINEERR_INVALPOINTER);
    }
    EXPECT_EQ(Result(TSPI_lineGetAddressStatus(Line, 0, Room<LINEADDRESSSTATUS>(63))), LINEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(WrittenUpTo(), 4u);
    EXPECT_EQ(Result(TSPI_lineGetLineDevStatus(Line, Room<LINEDEVSTATUS>(87))), LINEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(WrittenUpTo(), 4u);
    EXPECT_EQ(Result(TSPI_lineGetAddressStatus(Line, 0, nullptr)), LINEERR_INVALPOINTER);
    EXPECT_EQ(Result(TSPI_lineGetLineDevStatus(Line, nullptr)), LINEERR_INVALPOINTER);
    EXPECT_EQ(Result(TSPI_lineGetCallAddressID(Handle(0), nullptr)), LINEERR_INVALPOINTER);
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex)) << "every answer has released the line mutex";
}

}  // namespace
