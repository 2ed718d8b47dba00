// The line device at the edges of its callers' buffers, and the order in which its entry points test their arguments.
#include "devices/line.h"

#include "platform/text.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"

#include <cstring>

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
    // Offset behind the last byte that was written.
    std::size_t WrittenUpTo() const {
        std::size_t end = Bytes.size();
        while (end > 0 && Bytes[end - 1] == 0xEE)
            --end;
        return end;
    }
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
    const std::string address(39, '4');
    CopyText(ProviderState.LineAddress, address.c_str());
    auto* caps = Room<LINEADDRESSCAPS>(228 + 79);
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, caps), 0);
    EXPECT_EQ(caps->dwNeededSize, 228u + 80);
    EXPECT_EQ(caps->dwAddressSize, 0xEEEEEEEEu) << "left as it came";
    EXPECT_LE(WrittenUpTo(), 228u);
    caps = Room<LINEADDRESSCAPS>(228 + 80);
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, caps), 0);
    EXPECT_EQ(caps->dwUsedSize, 228u + 80);
    EXPECT_EQ(Bytes[228 + 76], '4');
    EXPECT_EQ(Bytes[228 + 78] + Bytes[228 + 79], 0) << "terminated inside";
    EXPECT_EQ(Bytes[228 + 80], 0xEE);
}

TEST_F(LineEdges, HandleIsTestedBeforeEverythingElse) {
    DWORD value = 9;
    EXPECT_EQ(Result(TSPI_lineGetNumAddressIDs(nullptr, &value)), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(Result(TSPI_lineGetAddressID(nullptr, &value, 1, "x"_wide, 4)), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(Result(TSPI_lineSetStatusMessages(nullptr, 1, 1)), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(Result(TSPI_lineSetDefaultMediaDetection(nullptr, 99)), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(Result(TSPI_lineConditionalMediaDetection(nullptr, 99, nullptr)), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(value, 9u);
    EXPECT_EQ(ProviderState.LineStates, 0u);
    EXPECT_EQ(Result(TSPI_lineGetID(Handle, 0, nullptr, 1, Room<VARSTRING>(28), "TAPI/line"_wide, nullptr)),
              LINEERR_NODEVICE)
        << "case counts";
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex)) << "every refusal has released the line mutex";
}

TEST_F(LineEdges, AppSpecificOfAClosedLineIsKeptWithoutAnEvent) {
    ProviderState.LineEventProc = nullptr;
    EXPECT_EQ(TSPI_lineSetAppSpecific(reinterpret_cast<HDRVCALL>(std::uintptr_t{3}), 5), 0);
    EXPECT_EQ(ProviderState.AppSpecific, 5u);
    EXPECT_THAT(Events(), IsEmpty());
}

}  // namespace
