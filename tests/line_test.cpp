// The line device at the edges of its callers' buffers, and the order in which its entry points test their arguments.
#include "devices/line.h"

#include "platform/text.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"
#include "trace/trace.h"

#include <cstring>
#include <map>

namespace {

class LineEdges : public OnTheLine {
protected:
    HDRVLINE Handle = reinterpret_cast<HDRVLINE>(&ProviderState);
    std::vector<std::uint8_t> Bytes;

    void SetUp() override {
        OnTheLine::SetUp();
        ProviderState.LineDeviceID = 6;
    }
    template <class Structure> Structure* Room(DWORD total) {
        Bytes.assign(1024, 0xEE);
        std::memcpy(Bytes.data(), &total, 4);
        return reinterpret_cast<Structure*>(Bytes.data());
    }
    // The 32-bit fields that were written, by offset.
    using Fields = std::map<std::size_t, DWORD>;
    Fields Filled() const {
        Fields fields;
        for (std::size_t at = 0; at < Bytes.size(); at += 4) {
            DWORD value = 0;
            std::memcpy(&value, Bytes.data() + at, 4);
            if (value != 0xEEEEEEEE)
                fields[at] = value;
        }
        return fields;
    }
    // Offset behind the last byte that was written.
    std::size_t WrittenUpTo() const {
        std::size_t end = Bytes.size();
        while (end > 0 && Bytes[end - 1] == 0xEE)
            --end;
        return end;
    }
};

// An argument of any pointer type, to be traced and never followed.
struct Any {
    std::uintptr_t Value;
    template <class Pointer> operator Pointer() const { return reinterpret_cast<Pointer>(Value); }
};

DWORD Result(LONG result) {
    return static_cast<DWORD>(result);
}

TEST_F(LineEdges, NothingIsWrittenBehindABufferThatIsTooSmall) {
    EXPECT_EQ(Result(TSPI_lineGetDevCaps(6, 0x20000, 0, Room<LINEDEVCAPS>(251))), LINEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(WrittenUpTo(), 4u);
    EXPECT_EQ(Result(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, Room<LINEADDRESSCAPS>(227))), LINEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(WrittenUpTo(), 4u);
    struct Case {
        DWORD total;
        std::size_t end;
    };
    for (const Case& c : {Case{0, 4}, Case{7, 4}, Case{8, 8}, Case{24, 8}, Case{27, 8}, Case{28, 28}}) {
        EXPECT_EQ(TSPI_lineGetID(Handle, 0, nullptr, 1, Room<VARSTRING>(c.total), "tapi/line"_wide, nullptr), 0);
        EXPECT_EQ(WrittenUpTo(), c.end) << c.total;
    }
}

TEST_F(LineEdges, AddressIsPlacedWholeOrNotAtAll) {
    CopyText(ProviderState.LineAddress, std::string(39, '4').c_str());
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, Room<LINEADDRESSCAPS>(228 + 79)), 0);
    EXPECT_LE(WrittenUpTo(), 228u);
    EXPECT_EQ(Filled().count(16), 0u) << "its size is left as it came";
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, Room<LINEADDRESSCAPS>(228 + 80)), 0);
    EXPECT_EQ(WrittenUpTo(), 228u + 80);
    EXPECT_EQ(Filled()[16], 80u);
    EXPECT_EQ(Filled()[228 + 76], DWORD{'4'}) << "terminated inside";
}

// Every field that is filled, by its place in the structure; all others stay as they came.
TEST_F(LineEdges, CapabilitiesFillTheirFieldsAndNoOther) {
    ProviderState.PermanentProviderID = 4;
    ProviderState.LineName[0] = 'L';
    CopyText(ProviderState.LineAddress, "4711");
    ASSERT_EQ(TSPI_lineGetDevCaps(6, 0x20000, 0, Room<LINEDEVCAPS>(252)), 0);
    EXPECT_EQ(Filled(),
              (Fields{{0, 252},    {4, 458},  {8, 252},    {28, 0x40000}, {40, 1},    {48, 1},        {52, 1},
                      {60, 4},     {72, 3},   {112, 0},    {116, 1},      {120, 4},   {128, 0x40ECD}, {156, 0},
                      {160, 50},   {164, 50}, {168, 1000}, {172, 255000}, {176, 255}, {180, 255},     {184, 255000},
                      {188, 2000}, {192, 95}, {196, 95},   {200, 60000}}));
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, Room<LINEADDRESSCAPS>(228)), 0);
    EXPECT_EQ(Filled(),
              (Fields{{0, 228},        {4, 238},   {8, 228},  {12, 6},       {32, 1},         {36, 0x6D},
                      {40, 0x403B921}, {44, 0xC},  {48, 0xC}, {52, 0xC},     {56, 0xC},       {60, 0xC},
                      {64, 0x7F7B},    {68, 0x20}, {72, 8},   {76, 0x10},    {80, 2},         {84, 1},
                      {88, 20},        {92, 1},    {96, 3},   {100, 0},      {104, 0x41F028}, {108, 0xA040AEC},
                      {112, 2},        {116, 1},   {120, 3},  {128, 0x1111}, {132, 1},        {176, 0x1407}}));
    ASSERT_EQ(TSPI_lineGetID(Handle, 0, nullptr, 1, Room<VARSTRING>(28), "tapi/line"_wide, nullptr), 0);
    EXPECT_EQ(Filled(), (Fields{{0, 28}, {4, 28}, {8, 28}, {12, 4}, {16, 4}, {20, 24}, {24, 6}}));
    TraceMask = TRACE_ENTRY;
    TraceLines();
    ASSERT_EQ(TSPI_lineGetDevCaps(6, 0x20000, 0, Room<LINEDEVCAPS>(458)), 0);
    EXPECT_EQ(TraceLines().back(),
              "cbinfo 0xb0 cbname 0x4 gszProviderInfo 'Windows Telephony Service Provider for Corvane ZT protocol "
              "telephone's MAC PC interface' linename 'L' ");
}

TEST_F(LineEdges, EveryCallIsTracedWithItsArgumentsAndRefusedByItsHandleFirst) {
    const DWORD device = LINEERR_BADDEVICEID, handle = LINEERR_INVALLINEHANDLE, call = LINEERR_INVALCALLHANDLE;
    WaitLineMutex();
    ReleaseLineMutex(0);
    TraceMask = TRACE_ENTRY;
    TraceLines();
    const auto refused = [&](LONG result, DWORD wanted, const char* trace) {
        EXPECT_EQ(Result(result), wanted) << trace;
        EXPECT_THAT(TraceLines(), ElementsAre(trace));
    };
    refused(TSPI_lineNegotiateTSPIVersion(7, 0x10004, 0x20000, Any{0x78}), device,
            "TSPI_lineNegotiateTSPIVersion(   7,10004,20000,  78)");
    refused(TSPI_lineNegotiateExtVersion(7, 0x20000, 1, 2, Any{0x78}), device,
            "TSPI_lineNegotiateExtVersion(   7,20000,   1,   2,  78)");
    refused(TSPI_lineOpen(7, Any{0x34}, Any{0x56}, 0x20000, Any{0xF3}), device, "TSPI_lineOpen(7,34,56,20000,f3)");
    refused(TSPI_lineClose(Any{0x12}), handle, "Entering TSPI_lineClose(12)");
    refused(TSPI_lineGetDevCaps(7, 0x20000, 1, Any{0x9A}), device, "Entering TSPI_lineGetDevCaps(7,20000,1,9a)");
    refused(TSPI_lineGetAddressCaps(7, 3, 0x20000, 1, Any{0xBC}), device,
            "Entering TSPI_lineGetAddressCaps(7,3,20000,1,bc)");
    refused(TSPI_lineGetID(Any{0x12}, 1, Any{0x19}, 2, Any{0xDE}, Any{0xF2}, nullptr), handle,
            "Entering TSPI_lineGetID(12,1,19,2,de,f2)");
    refused(TSPI_lineGetNumAddressIDs(Any{0x12}, Any{0x78}), handle, "Entering TSPI_lineGetNumAddressIDs(12,78)");
    refused(TSPI_lineGetAddressID(Any{0x12}, Any{0x78}, 1, Any{0xF2}, 4), handle,
            "Entering TSPI_lineGetAddressID(12,78,1,f2,4)");
    refused(TSPI_lineSetStatusMessages(Any{0x12}, 1, 2), handle, "Entering TSPI_lineSetStatusMessages(12,1,2)");
    refused(TSPI_lineSetDefaultMediaDetection(Any{0x12}, 0x63), handle,
            "Entering TSPI_lineSetDefaultMediaDetection(12,63)");
    refused(TSPI_lineConditionalMediaDetection(Any{0x12}, 0x63, Any{0xF1}), handle,
            "Entering TSPI_lineConditionalMediaDetection(12,63,f1)");
    refused(TSPI_lineSetMediaMode(Any{0x19}, 5), call, "Entering TSPI_lineSetMediaMode(19,5)");
    refused(TSPI_lineSetAppSpecific(Any{0x19}, 0x77), call, "Entering TSPI_lineSetAppSpecific(19,77)");
    EXPECT_EQ(ProviderState.LineStates, 0u);
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex)) << "every refusal has released the line mutex";
}

TEST_F(LineEdges, ValuesAreJudgedAndKept) {
    DWORD version = 0;
    EXPECT_EQ(Result(TSPI_lineNegotiateTSPIVersion(6, 0x10004, 0x1FFFF, &version)), LINEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(TSPI_lineNegotiateTSPIVersion(6, 0x20000, 0x20000, &version), 0);
    EXPECT_EQ(Result(TSPI_lineGetID(Handle, 0, nullptr, 1, Room<VARSTRING>(28), "TAPI/line"_wide, nullptr)),
              LINEERR_NODEVICE)
        << "case counts";
    EXPECT_EQ(Result(TSPI_lineSetMediaMode(Any{30}, 4)), LINEERR_INVALCALLHANDLE) << "the conference";
    EXPECT_EQ(TSPI_lineSetStatusMessages(Handle, 0xFFFF, 0xEEEE), 0);
    EXPECT_EQ(ProviderState.LineStates, 0xFFFFu);
    EXPECT_EQ(TSPI_lineSetDefaultMediaDetection(Handle, 4), 0);
    EXPECT_EQ(ProviderState.DefaultMediaDetection, 4u);
    ProviderState.LineEventProc = [](HTAPILINE, HTAPICALL, DWORD, DWORD_PTR, DWORD_PTR p2, DWORD_PTR p3) {
        ProviderState.LineStates = static_cast<DWORD>(p2 + p3);
    };
    EXPECT_EQ(TSPI_lineSetAppSpecific(Any{3}, 5), 0);
    EXPECT_EQ(ProviderState.LineStates, 0u) << "this event carries no media mode";
    ProviderState.LineEventProc = nullptr;
    EXPECT_EQ(TSPI_lineSetAppSpecific(Any{3}, 6), 0) << "a closed line gets no event";
    EXPECT_EQ(ProviderState.AppSpecific, 6u);
}

}  // namespace
