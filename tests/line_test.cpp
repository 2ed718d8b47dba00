// The line device: its capabilities, the edges of its callers' buffers, the order in which arguments are tested.
#include "devices/line.h"

#include "platform/text.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"
#include "support/port.h"

#include <cstring>

namespace {

class Line : public OnTheLine {
protected:
    HDRVLINE Handle = reinterpret_cast<HDRVLINE>(&ProviderState);
    std::vector<std::uint8_t> Bytes;

    void SetUp() override {
        OnTheLine::SetUp();
        SetSetting("SetConfig", "SetMCDU", "4711");
        SetSetting("Provider", "Port", "COM1");
        ProviderInitCommon(4, nullptr, 6, 8, nullptr);
        OpenForCapture();
        TraceLines();
    }
    void TearDown() override {
        EXPECT_TRUE(Process.LineMutex == nullptr || !ReleaseMutex(Process.LineMutex))
            << "an entry point has kept the line mutex";
        OnTheLine::TearDown();
    }
    // A structure of this size in a larger buffer.
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
    std::string WideAt(DWORD offset, DWORD size) const {
        std::string out;
        for (DWORD i = 0; i + 1 < size; i += 2)
            out += static_cast<char>(Bytes[offset + i]);
        return out.substr(0, out.find('\0'));
    }
};

DWORD Result(LONG result) {
    return static_cast<DWORD>(result);
}

TEST_F(Line, NothingIsWrittenBehindABufferThatIsTooSmall) {
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

TEST_F(Line, AddressIsPlacedWholeOrNotAtAll) {
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

TEST_F(Line, HandleIsTestedBeforeEverythingElse) {
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
}

TEST_F(Line, AppSpecificOfAClosedLineIsKeptWithoutAnEvent) {
    ProviderState.LineEventProc = nullptr;
    EXPECT_EQ(TSPI_lineSetAppSpecific(reinterpret_cast<HDRVCALL>(std::uintptr_t{3}), 5), 0);
    EXPECT_EQ(ProviderState.AppSpecific, 5u);
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Line, NegotiatesTwoPointNought) {
    DWORD version = 0;
    EXPECT_EQ(TSPI_lineNegotiateTSPIVersion(6, 0x10004, 0x30000, &version), 0);
    EXPECT_EQ(version, 0x20000u);
    version = 0;
    EXPECT_EQ(Result(TSPI_lineNegotiateTSPIVersion(0xFFFFFFFF, 0x20001, 0x30000, &version)),
              LINEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(version, 0x20000u) << "written all the same";
    EXPECT_EQ(Result(TSPI_lineNegotiateTSPIVersion(7, 0x10004, 0x30000, &version)), LINEERR_BADDEVICEID);
    EXPECT_EQ(Result(TSPI_lineNegotiateExtVersion(7, 0x20000, 0, 1, &version)), LINEERR_BADDEVICEID);
    EXPECT_EQ(TSPI_lineNegotiateExtVersion(6, 0x20000, 0, 1, &version), 0);
    EXPECT_EQ(version, 0u);
}

TEST_F(Line, DeviceCapabilitiesPlaceEachTextThatFits) {
    struct Case {
        DWORD total, used, info, name, switchInfo;  // offsets; 0xEEEEEEEE: untouched
    };
    constexpr DWORD NOT = 0xEEEEEEEE;
    for (const Case& c : {Case{252, 252, NOT, NOT, NOT}, Case{321, 296, NOT, 252, NOT}, Case{322, 322, NOT, 252, 296},
                          Case{498, 498, 252, 428, 472}, Case{1000, 498, 252, 428, 472}}) {
        auto* caps = Room<LINEDEVCAPS>(c.total);
        ASSERT_EQ(TSPI_lineGetDevCaps(6, 0x20000, 0, caps), 0);
        EXPECT_EQ(caps->dwNeededSize, 498u);
        EXPECT_EQ(caps->dwUsedSize, c.used) << c.total;
        EXPECT_EQ(caps->dwProviderInfoOffset, c.info) << c.total;
        EXPECT_EQ(caps->dwLineNameOffset, c.name) << c.total;
        EXPECT_EQ(caps->dwSwitchInfoOffset, c.switchInfo) << c.total;
        EXPECT_EQ(caps->dwPermanentLineID, 0x40000u);
        EXPECT_EQ(caps->dwLineStates, 0x40ECDu);
        EXPECT_EQ(caps->dwGenerateDigitModes, 3u);
        EXPECT_EQ(caps->MaxDialParams.dwDialPause, 255000u);
        EXPECT_EQ(caps->dwLineFeatures, NOT) << "left as it came";
        EXPECT_LE(WrittenUpTo(), c.total);
        if (c.total == 498) {
            EXPECT_EQ(WideAt(252, 176),
                      "Windows Telephony Service Provider for Corvane ZT protocol telephone's MAC PC interface");
            EXPECT_EQ(WideAt(428, 44), "CORVANE_ZT_6200_2.0_3");
            EXPECT_EQ(WideAt(472, 26), "Corvane 6200");
        }
    }
    EXPECT_EQ(Result(TSPI_lineGetDevCaps(5, 0x20000, 0, Room<LINEDEVCAPS>(498))), LINEERR_BADDEVICEID);
    EXPECT_EQ(WrittenUpTo(), 4u);
}

TEST_F(Line, AddressCapabilitiesCarryTheNumberWhenItFits) {
    auto* caps = Room<LINEADDRESSCAPS>(238);
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, caps), 0);
    EXPECT_EQ(WideAt(caps->dwAddressOffset, caps->dwAddressSize), "4711");
    EXPECT_EQ(caps->dwAddressStates, 0x6Du);
    EXPECT_EQ(caps->dwCallInfoStates, 0x0403B921u);
    EXPECT_EQ(caps->dwCallStates, 0x7F7Bu);
    EXPECT_EQ(caps->dwAddrCapFlags, 0x0041F028u);
    EXPECT_EQ(caps->dwCallFeatures, 0x0A040AECu);
    EXPECT_EQ(caps->dwForwardModes, 0x1111u);
    EXPECT_EQ(caps->dwAddressFeatures, 0x1407u);
    EXPECT_EQ(caps->dwMaxNumOnHoldCalls, 20u);
    EXPECT_EQ(Result(TSPI_lineGetAddressCaps(6, 1, 0x20000, 0, caps)), LINEERR_INVALADDRESSID);
    EXPECT_EQ(Result(TSPI_lineGetAddressCaps(5, 1, 0x20000, 0, caps)), LINEERR_BADDEVICEID)
        << "the device is tested first";
}

TEST_F(Line, IdentifiersOfDeviceAndAddress) {
    auto* id = Room<VARSTRING>(28);
    EXPECT_EQ(Result(TSPI_lineGetID(Handle, 0, nullptr, 1, id, "tapi/phone"_wide, nullptr)), LINEERR_NODEVICE);
    EXPECT_EQ(Result(TSPI_lineGetID(nullptr, 0, nullptr, 1, id, "tapi/phone"_wide, nullptr)), LINEERR_INVALLINEHANDLE);
    ASSERT_EQ(TSPI_lineGetID(Handle, 0, nullptr, 1, id, "tapi/line"_wide, nullptr), 0);
    EXPECT_EQ(id->dwUsedSize, 28u);
    EXPECT_EQ(Bytes[24], 6);
    DWORD value = 9;
    EXPECT_EQ(TSPI_lineGetNumAddressIDs(Handle, &value), 0);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(TSPI_lineGetAddressID(Handle, &value, 1, "4711"_wide, 10), 0);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(Result(TSPI_lineGetAddressID(Handle, &value, 1, "4711 "_wide, 12)), LINEERR_INVALADDRESS);
    EXPECT_THAT(TraceLines(), testing::Contains("Entering TSPI_lineGetAddressID Address  '4711 '"));
    const std::basic_string<WCHAR> tooLong(500, WCHAR{'4'});
    EXPECT_EQ(Result(TSPI_lineGetAddressID(Handle, &value, 1, tooLong.c_str(), 1002)), LINEERR_INVALADDRESS);
}

TEST_F(Line, SettingsAreCheckedAndKept) {
    const auto call = [](std::uintptr_t handle) { return reinterpret_cast<HDRVCALL>(handle); };
    EXPECT_EQ(TSPI_lineSetStatusMessages(Handle, 0xFFFF, 0xEEEE), 0);
    EXPECT_EQ(ProviderState.AddressStates, 0xEEEEu);
    EXPECT_EQ(TSPI_lineSetDefaultMediaDetection(Handle, 0), 0);
    EXPECT_EQ(Result(TSPI_lineSetDefaultMediaDetection(Handle, 5)), LINEERR_INVALMEDIAMODE);
    EXPECT_EQ(TSPI_lineConditionalMediaDetection(Handle, 4, nullptr), 0);
    EXPECT_EQ(Result(TSPI_lineConditionalMediaDetection(Handle, 0, nullptr)), LINEERR_INVALMEDIAMODE);
    EXPECT_EQ(TSPI_lineSetMediaMode(call(0x10003), 4), 0);
    EXPECT_EQ(Result(TSPI_lineSetMediaMode(call(25), 5)), LINEERR_INVALCALLHANDLE) << "the handle is tested first";
    EXPECT_EQ(Result(TSPI_lineSetMediaMode(call(3), 5)), LINEERR_INVALMEDIAMODE);
    EXPECT_EQ(Result(TSPI_lineSetAppSpecific(call(30), 1)), LINEERR_INVALCALLHANDLE);
    CallTable[3].htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x103});
    Events();
    EXPECT_EQ(TSPI_lineSetAppSpecific(call(3), 0x77), 0);
    EXPECT_THAT(Events(), ElementsAre("INFO 3 APPSPECIFIC"));
    EXPECT_EQ(ProviderState.AppSpecific, 0x77u);
    EXPECT_EQ(HdCallToCref(call(30)), 30);
    EXPECT_EQ(HdCallToCref(call(0xFFFF0013)), 19);
    EXPECT_GE(HdCallToCref(call(20)), 20);
    EXPECT_EQ(Result(TSPI_lineClose(nullptr)), LINEERR_INVALLINEHANDLE);
}

TEST_F(Line, OpenFailsWhenThePortDoesNotOpenAndWorksOnceItDoes) {
    PlatformControl::Port("COM1").OpenError = 5;
    HDRVLINE line = nullptr;
    const HTAPILINE tapi = reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11});
    EXPECT_EQ(Result(TSPI_lineOpen(7, tapi, &line, 0x20000, nullptr)), LINEERR_BADDEVICEID);
    EXPECT_EQ(Process.OpenCount, 0);
    EXPECT_EQ(Result(TSPI_lineOpen(6, tapi, &line, 0x20000, nullptr)), LINEERR_ALLOCATED);
    EXPECT_THAT(TraceLines(), testing::Contains("End TSPI_lineOpen Pb"));
    PlatformControl::Settle();
    PlatformControl::Port("COM1").OpenError = 0;
    RecordingPort port;
    PlatformControl::MapPort("COM1", &port);
    EXPECT_EQ(TSPI_lineOpen(6, tapi, &line, 0x20000, nullptr), 0) << "the thread that failed does not stand in the way";
    EXPECT_EQ(line, Handle);
    EXPECT_EQ(TSPI_lineClose(line), 0);
    PlatformControl::MapPort("COM1", nullptr);
}

}  // namespace
