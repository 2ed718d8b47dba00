// The line device at the edges of its callers' buffers; how every entry point of line and phone is traced, and what
// it refuses first.
#include "devices/line.h"

#include "platform/text.h"
#include "support/buffer.h"
#include "support/requesting.h"

namespace {

class LineEdges : public Requesting {
protected:
    HDRVLINE Line = reinterpret_cast<HDRVLINE>(&ProviderState);
    CallersBuffer Buffer;

    void SetUp() override {
        Requesting::SetUp();
        ProviderState.LineDeviceID = 6;
        ProviderState.PhoneDeviceID = 8;
    }
    LONG GetId(DWORD total, const WCHAR* deviceClass) {
        return TSPI_lineGetID(Line, 0, nullptr, 1, Buffer.Room<VARSTRING>(total), deviceClass, nullptr);
    }
};

TEST_F(LineEdges, NothingIsWrittenBehindABufferThatIsTooSmall) {
    EXPECT_EQ(Code(TSPI_lineGetDevCaps(6, 0x20000, 0, Buffer.Room<LINEDEVCAPS>(251))), LINEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(Buffer.End(), 4u);
    EXPECT_EQ(Code(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, Buffer.Room<LINEADDRESSCAPS>(227))),
              LINEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(Buffer.End(), 4u);
    for (const auto& [total, end] : {std::pair{0u, 4u}, {7u, 4u}, {8u, 8u}, {27u, 8u}, {28u, 28u}}) {
        EXPECT_EQ(GetId(total, "tapi/line"_wide), 0);
        EXPECT_EQ(Buffer.End(), end) << total;
    }
    EXPECT_EQ(Buffer.Written(), "4:1c 8:1c 12:4 16:4 20:18 24:6");
    EXPECT_EQ(Code(GetId(28, "TAPI/line"_wide)), LINEERR_NODEVICE) << "case counts";
    CopyText(ProviderState.LineAddress, std::string(39, '4').c_str());
    for (const DWORD total : {228u + 79, 228u + 80}) {
        ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, Buffer.Room<LINEADDRESSCAPS>(total)), 0);
        const bool fits = total == 228 + 80;
        EXPECT_EQ(Buffer.Field(16), fits ? 80 : CallersBuffer::LEFT) << "else its size is left as it came";
        EXPECT_EQ(Buffer.End() > 228, fits);
    }
    EXPECT_EQ(Buffer.Field(228 + 76), DWORD{'4'}) << "terminated inside";
}

TEST_F(LineEdges, CapabilitiesFillTheirFieldsAndNoOther) {
    ProviderState.PermanentProviderID = 4;
    ProviderState.LineName[0] = 'L';
    CopyText(ProviderState.LineAddress, "4711");
    ASSERT_EQ(TSPI_lineGetDevCaps(6, 0x20000, 0, Buffer.Room<LINEDEVCAPS>(252)), 0);
    EXPECT_EQ(Buffer.Written(), "4:1ca 8:fc 28:40000 40:1 48:1 52:1 60:4 72:3 112:0 116:1 120:4 128:40ecd 156:0 160:32 "
                                "164:32 168:3e8 172:3e418 176:ff 180:ff 184:3e418 188:7d0 192:5f 196:5f 200:ea60");
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, Buffer.Room<LINEADDRESSCAPS>(228)), 0);
    EXPECT_EQ(Buffer.Written(),
              "4:ee 8:e4 12:6 32:1 36:6d 40:403b921 44:c 48:c 52:c 56:c 60:c 64:7f7b 68:20 72:8 76:10 "
              "80:2 84:1 88:14 92:1 96:3 100:0 104:41f028 108:a040aec 112:2 116:1 120:3 128:1111 132:1 176:1407");
    ASSERT_EQ(TSPI_lineGetDevCaps(6, 0x20000, 0, Buffer.Room<LINEDEVCAPS>(458)), 0);
    EXPECT_EQ(TraceLines().back(),
              "cbinfo 0xb0 cbname 0x4 gszProviderInfo 'Windows Telephony Service Provider for Corvane ZT protocol "
              "telephone's MAC PC interface' linename 'L' ");
}

TEST_F(LineEdges, EveryEntryIsTracedWithItsArgumentsAndRefusesItsHandleFirst) {
    const DWORD device = LINEERR_BADDEVICEID, line = LINEERR_INVALLINEHANDLE, call = LINEERR_INVALCALLHANDLE;
    const DWORD phone = PHONEERR_INVALPHONEHANDLE, phoneDevice = PHONEERR_BADDEVICEID;
    const DWORD never = LINEERR_OPERATIONUNAVAIL;
    TraceMask = TRACE_ENTRY;
    ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
    // Each waits for the line mutex before anything else, but where `free`: the wait of the row behind is abandoned.
    struct Row {
        LONG Result;
        DWORD Wanted;
        const char* Trace;
        bool Free;
        Row(LONG result, DWORD wanted, const char* trace, bool free = false)
            : Result(result), Wanted(wanted), Trace(trace), Free(free) {
            PlatformControl::NextWait("SP62LineMutex", WAIT_ABANDONED);
        }
    };
    PlatformControl::NextWait("SP62LineMutex", WAIT_ABANDONED);
    // clang-format off
    const Row rows[] = {
        {TSPI_lineNegotiateTSPIVersion(7, 0x10004, 0x20000, Any{0x78}), device, "TSPI_lineNegotiateTSPIVersion(   7,10004,20000,  78)", true},
        {TSPI_lineNegotiateExtVersion(7, 0x20000, 1, 2, Any{0x78}), device, "TSPI_lineNegotiateExtVersion(   7,20000,   1,   2,  78)"},
        {TSPI_lineOpen(7, Any{0x34}, Any{0x56}, 0x20000, Any{0xF3}), device, "TSPI_lineOpen(7,34,56,20000,f3)", true},
        {TSPI_lineClose(Any{0x12}), line, "Entering TSPI_lineClose(12)"},
        {TSPI_lineGetDevCaps(7, 0x20000, 1, Any{0x9A}), device, "Entering TSPI_lineGetDevCaps(7,20000,1,9a)"},
        {TSPI_lineGetAddressCaps(7, 3, 0x20000, 1, Any{0xBC}), device, "Entering TSPI_lineGetAddressCaps(7,3,20000,1,bc)"},
        {TSPI_lineGetAddressStatus(Any{0x12}, 1, Any{0xBC}), LINEERR_INVALADDRESSID, "Entering TSPI_lineGetAddressStatus(12,1,bc)"},
        {TSPI_lineGetID(Any{0x12}, 1, Any{0x19}, 2, Any{0xDE}, Any{0xF2}, nullptr), line, "Entering TSPI_lineGetID(12,1,19,2,de,f2)"},
        {TSPI_lineGetNumAddressIDs(Any{0x12}, Any{0x78}), line, "Entering TSPI_lineGetNumAddressIDs(12,78)"},
        {TSPI_lineGetAddressID(Any{0x12}, Any{0x78}, 1, Any{0xF2}, 4), line, "Entering TSPI_lineGetAddressID(12,78,1,f2,4)"},
        {TSPI_lineGetCallAddressID(Any{0x19}, Any{0x78}), call, "Entering TSPI_lineGetCallAddressID(19,78)"},
        {TSPI_lineSetStatusMessages(Any{0x12}, 1, 2), line, "Entering TSPI_lineSetStatusMessages(12,1,2)"},
        {TSPI_lineSetDefaultMediaDetection(Any{0x12}, 0x63), line, "Entering TSPI_lineSetDefaultMediaDetection(12,63)"},
        {TSPI_lineConditionalMediaDetection(Any{0x12}, 0x63, Any{0xF1}), line, "Entering TSPI_lineConditionalMediaDetection(12,63,f1)"},
        {TSPI_lineSetMediaMode(Any{0x19}, 5), call, "Entering TSPI_lineSetMediaMode(19,5)"},
        {TSPI_lineSetAppSpecific(Any{0x19}, 0x77), call, "Entering TSPI_lineSetAppSpecific(19,77)"},
        {TSPI_lineMakeCall(7, Any{0x12}, Any{0x34}, Any{0x56}, nullptr, 33, Any{0x78}), LINEERR_NODEVICE, "Entering TSPI_lineMakeCall(7,12,34,56,0,21,78)"},
        {0, 0, " TSPI_lineMakeCall LINEERR_NODEVICE ", true},
        {TSPI_lineDial(7, Any{0x19}, Any{0x56}, 33), call, "Entering TSPI_lineDial(7,19,56,21)"},
        {TSPI_lineGenerateDigits(Any{0x19}, 1, 2, Any{0x56}, 4), call, "Entering TSPI_lineGenerateDigits(19,1,2,56,4)"},
        {TSPI_lineGenerateTone(Any{0x19}, 1, 2, 3, 4, Any{0x56}), call, "Entering TSPI_lineGenerateTone(19,1,2,3,4,56)"},
        {TSPI_lineAnswer(7, Any{0x19}, Any{0x56}, 4), call, "Entering TSPI_lineAnswer(7,19,56,4)"},
        {TSPI_lineDrop(7, Any{0x19}, Any{0x56}, 4), call, "Entering TSPI_lineDrop hdcall(7,19,56,4)"},
        {TSPI_lineHold(7, Any{0x19}), call, "Entering TSPI_lineHold hdcall(7,19)"},
        {TSPI_lineUnhold(7, Any{0x19}), call, "Entering TSPI_lineUnhold hdcall(7,19)"},
        {TSPI_lineCloseCall(Any{30}), 0, "TSPI_lineCloseCall: cref: 001e, hdCall: 30"},
        {TSPI_lineBlindTransfer(7, Any{0x19}, Any{0x56}, 33), call, "Entering TSPI_lineBlindTransfer(7,19,56,21)"},
        {TSPI_lineSetupTransfer(7, Any{0x19}, Any{0x34}, Any{0x56}, Any{0x78}), call, "Entering TSPI_lineSetupTransfer(7,19,34,56,78)"},
        {TSPI_lineCompleteTransfer(7, Any{0x19}, Any{1}, Any{0x34}, Any{0x56}, 1), call, "Entering TSPI_lineCompleteTransfer(7,19,1,34,56,1)"},
        {TSPI_lineCompleteTransfer(7, Any{1}, Any{30}, Any{0x34}, Any{0x56}, 1), call, "Entering TSPI_lineCompleteTransfer(7,1,1e,34,56,1)"},
        {TSPI_lineRemoveFromConference(7, Any{30}), call, "TSPI_lineRemoveFromConference(7,1e)"},
        {TSPI_lineSetupConference(7, Any{0x19}, Any{2}, Any{3}, Any{4}, Any{5}, Any{6}, 8, Any{9}), never, "Entering TSPI_lineAddToConference(7,19,2,3,4,5,6,8,9)"},
        {TSPI_lineAddToConference(7, Any{0x19}, Any{0x34}), never, "Entering TSPI_lineAddToConference(7,19,34)"},
        {TSPI_linePrepareAddToConference(7, Any{0x19}, Any{2}, Any{3}, Any{4}), never, "Entering TSPI_linePrepareAddToConference(7,19,2,3,4)"},
        {TSPI_linePickup(7, Any{0x12}, 0, nullptr, nullptr, nullptr, nullptr), line, "Entering TSPI_linePickup"},
        {TSPI_phoneNegotiateTSPIVersion(6, 1, 0x20000, Any{0x78}), phoneDevice, "TSPI_phoneNegotiateTSPIVersion(6,1,20000,78)", true},
        {TSPI_phoneOpen(6, Any{0x34}, Any{0x56}, 0x20000, Any{0xF3}), phoneDevice, "Entering TSPI_phoneOpen(6,34,56,20000)", true},
        {TSPI_phoneClose(Any{0x12}), phone, "Entering TSPI_phoneClose (12)"},
        {TSPI_phoneGetDevCaps(6, 0x20000, 1, Any{0x9A}), phoneDevice, "Entering TSPI_phoneGetDevCaps(6,20000,1,9a)"},
        {TSPI_phoneGetDisplay(Any{0x12}, Any{0x78}), phone, "Entering TSPI_phoneGetDisplay(12,78)"},
        {TSPI_phoneGetLamp(Any{0x12}, 5, Any{0x78}), phone, "Entering TSPI_phoneGetLamp(12,5,78)"},
        {TSPI_phoneSetButtonInfo(7, Any{0x12}, 5, Any{0x78}), phone, "Entering TSPI_phoneSetButtonInfo(7,12,5,78)"},
        {TSPI_phoneSetHookSwitch(7, Any{0x12}, 1, 2), phone, "Entering TSPI_phoneSetHookSwitch(7,12,1,2)"},
        // accepted without effect
        {TSPI_providerInstall(Any{0x12}, 42), 0, "Entering TSPI_providerInstall(12,2a)", true},
        {TSPI_providerRemove(Any{0x12}, 42), 0, "Entering TSPI_providerRemove(12,2a)", true},
        {TSPI_phoneDevSpecific(1, Any{0x12}, Any{0x78}, 2), 0, "Entering TSPI_phoneDevSpecific(1,12,78,2)"},
        {TSPI_phoneGetButtonInfo(Any{0x12}, 2, Any{0x78}), 0, "Entering TSPI_phoneGetButtonInfo(12,2,78)"},
        {TSPI_phoneGetData(Any{0x12}, 2, Any{0x78}, 4), 0, "Entering TSPI_phoneGetData(12,2,78,4)"},
        {TSPI_phoneGetExtensionID(1, 2, Any{0x78}), 0, "Entering TSPI_phoneGetExtensionID(1,2,78)"},
        {TSPI_phoneGetGain(Any{0x12}, 2, Any{0x78}), 0, "Entering TSPI_phoneGetGain(12,2,78)"},
        {TSPI_phoneGetHookSwitch(Any{0x12}, Any{0x78}), 0, "Entering TSPI_phoneGetHookSwitch(12,78)"},
        {TSPI_phoneGetIcon(1, Any{0x56}, Any{0x78}), 0, "Entering TSPI_phoneGetIcon(1,56,78)"},
        {TSPI_phoneGetID(Any{0x12}, Any{0x78}, Any{0x56}, nullptr), 0, "Entering TSPI_phoneGetID(12,78,56)"},
        {TSPI_phoneGetRing(Any{0x12}, Any{0x78}, Any{0x79}), 0, "Entering TSPI_phoneGetRing(12,78,79)"},
        {TSPI_phoneGetStatus(Any{0x12}, Any{0x78}), 0, "Entering TSPI_phoneGetStatus(12,78)"},
        {TSPI_phoneGetVolume(Any{0x12}, 2, Any{0x78}), 0, "Entering TSPI_phoneGetVolume(12,2,78)"},
        {TSPI_phoneNegotiateExtVersion(1, 2, 3, 4, Any{0x78}), 0, "Entering TSPI_phoneNegotiateExtVersion(1,2,3,4,78)"},
        {TSPI_phoneSelectExtVersion(Any{0x12}, 2), 0, "Entering TSPI_phoneSelectExtVersion(12,2)"},
        {TSPI_phoneSetData(1, Any{0x12}, 3, Any{0x78}, 5), 0, "Entering TSPI_phoneSetData(1,12,3,78,5)"},
        {TSPI_phoneSetDisplay(1, Any{0x12}, 3, 4, Any{0x56}, 6), 0, "Entering TSPI_phoneSetDisplay(1,12,3,4,56,6)"},
        {TSPI_phoneSetGain(1, Any{0x12}, 3, 4), 0, "Entering TSPI_phoneSetGain(1,12,3,4)"},
        {TSPI_phoneSetLamp(1, Any{0x12}, 3, 4), 0, "Entering TSPI_phoneSetLamp(1,12,3,4)"},
        {TSPI_phoneSetRing(1, Any{0x12}, 3, 4), 0, "Entering TSPI_phoneSetRing(1,12,3,4)"},
        {TSPI_phoneSetStatusMessages(Any{0x12}, 2, 3, 4), 0, "Entering TSPI_phoneSetStatusMessages(12,2,3,4)"},
        {TSPI_phoneSetVolume(1, Any{0x12}, 3, 4), 0, "Entering TSPI_phoneSetVolume(1,12,3,4)"},
    };
    // clang-format on
    std::vector<std::string> wanted;
    for (const Row& row : rows) {
        if (!row.Free)
            wanted.emplace_back("WAITLINEMUTEX PRB WAIT_ABANDONED");
        wanted.emplace_back(row.Trace);
        EXPECT_EQ(Code(row.Result), row.Wanted) << row.Trace;
    }
    EXPECT_EQ(TraceLines(), wanted);
    EXPECT_THAT(Events(), IsEmpty());
    EXPECT_EQ(WaitLineMutex(), static_cast<LONG>(WAIT_ABANDONED)) << "the last row's";
    ReleaseLineMutex(0);
    TraceLines();
    EXPECT_EQ(Code(TSPI_lineForward(7, Any{0x12}, 1, 0, nullptr, 3, nullptr, nullptr, nullptr)), line);
    EXPECT_EQ(Code(TSPI_lineCloseCall(Any{0x19})), call);
    EXPECT_THAT(TraceLines(), IsEmpty()) << "these trace no wrong handle";
    TraceMask = TRACE_CALL;
    EXPECT_EQ(TSPI_providerFreeDialogInstance(Any{0x12}), 0);
    EXPECT_THAT(TraceLines(), ElementsAre("TSPI_providerFreeDialogInstance 12"));
}

TEST_F(LineEdges, WhatIsMissingIsToldByTheCodeOfItsDevice) {
    HDRVPHONE set = reinterpret_cast<HDRVPHONE>(&ProviderState);
    const DWORD line = LINEERR_INVALPOINTER, phone = PHONEERR_INVALPOINTER;
    const WCHAR* const ours = "tapi/line"_wide;
    DWORD id = 9;
    // clang-format off
    const std::pair<LONG, DWORD> rows[] = {
        {TSPI_lineNegotiateTSPIVersion(6, 0x10004, 0x20000, nullptr), line},
        {TSPI_lineNegotiateExtVersion(6, 0x20000, 1, 2, nullptr), line},
        {TSPI_lineOpen(6, Any{0x34}, nullptr, 0x20000, nullptr), line},
        {TSPI_lineGetDevCaps(6, 0x20000, 0, nullptr), line},
        {TSPI_lineGetAddressCaps(6, 1, 0x20000, 0, nullptr), LINEERR_INVALADDRESSID},
        {TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, nullptr), line},
        {TSPI_lineGetID(Line, 0, nullptr, 1, nullptr, ours, nullptr), line},
        {TSPI_lineGetID(Line, 0, nullptr, 1, Buffer.Room<VARSTRING>(28), nullptr, nullptr), line},
        {TSPI_lineGetNumAddressIDs(Line, nullptr), line},
        {TSPI_lineGetAddressID(Line, nullptr, 1, ours, 4), line},
        {TSPI_lineGetAddressID(Line, &id, 1, nullptr, 4), line},
        {TSPI_phoneNegotiateTSPIVersion(8, 0x10004, 0x20000, nullptr), phone},
        {TSPI_phoneOpen(8, Any{0x34}, nullptr, 0x20000, nullptr), phone},
        {TSPI_phoneGetDevCaps(8, 0x20000, 0, nullptr), phone},
        {TSPI_phoneGetLamp(set, 5, nullptr), phone},
    };
    // clang-format on
    for (const auto& [result, wanted] : rows)
        EXPECT_EQ(Code(result), wanted) << &result - &rows[0].first;
    EXPECT_EQ(id, 9u);
    EXPECT_EQ(Buffer.End(), 4u);
    EXPECT_EQ(Process.OpenCount, 0) << "no open has begun";
}

void CALLBACK SumOfDetails(HTAPILINE, HTAPICALL, DWORD, DWORD_PTR, DWORD_PTR p2, DWORD_PTR p3) {
    ProviderState.LineStates = static_cast<DWORD>(p2 + p3);
}

TEST_F(LineEdges, ValuesAreJudgedAndKept) {
    DWORD version = 0;
    EXPECT_EQ(Code(TSPI_lineNegotiateTSPIVersion(6, 0x10004, 0x1FFFF, &version)), LINEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(TSPI_lineNegotiateTSPIVersion(6, 0x20000, 0x20000, &version), 0);
    version = 0;
    EXPECT_EQ(Code(TSPI_lineNegotiateTSPIVersion(0xFFFFFFFF, 0x20001, 0x30000, &version)),
              LINEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(version, DWORD{0x20000}) << "written all the same";
    EXPECT_EQ(TSPI_lineNegotiateTSPIVersion(0xFFFFFFFF, 0x10004, 0x30000, &version), 0);
    DWORD extension = 7;
    EXPECT_EQ(TSPI_lineNegotiateExtVersion(0xFFFFFFFF, 0x20000, 1, 2, &extension), 0);
    EXPECT_EQ(extension, DWORD{0});
    EXPECT_EQ(TSPI_lineSetStatusMessages(Line, 0xFFFF, 0xEEEE), 0);
    EXPECT_EQ(ProviderState.LineStates, 0xFFFFu);
    EXPECT_EQ(TSPI_lineSetDefaultMediaDetection(Line, 4), 0);
    EXPECT_EQ(ProviderState.DefaultMediaDetection, 4u);
    EXPECT_EQ(Code(TSPI_lineSetDefaultMediaDetection(Line, 6)), LINEERR_INVALMEDIAMODE);
    EXPECT_EQ(TSPI_lineSetDefaultMediaDetection(Line, 0), 0);
    EXPECT_EQ(ProviderState.DefaultMediaDetection, DWORD{0});
    EXPECT_EQ(ProviderState.AddressStates, DWORD{0xEEEE});
    for (const DWORD mode : {0u, 4u, 6u}) {
        const DWORD wanted = mode == 4 ? 0 : LINEERR_INVALMEDIAMODE;
        EXPECT_EQ(Code(TSPI_lineConditionalMediaDetection(Line, mode, nullptr)), wanted) << mode;
        EXPECT_EQ(Code(TSPI_lineSetMediaMode(Any{3}, mode)), wanted) << mode;
    }
    EXPECT_EQ(ProviderState.MediaMode, DWORD{4});
    EXPECT_EQ(Code(TSPI_lineSetMediaMode(Any{30}, 4)), LINEERR_INVALCALLHANDLE);
    Call(1, 0, CONNECTED);
    Events();
    EXPECT_EQ(TSPI_lineSetAppSpecific(Any{0x10000}, 4), 0) << "the high bits of a handle are ignored";
    EXPECT_THAT(Events(), ElementsAre("INFO 0 APPSPECIFIC"));
    EXPECT_EQ(Code(TSPI_lineSetAppSpecific(Any{30}, 9)), LINEERR_INVALCALLHANDLE);
    EXPECT_EQ(ProviderState.AppSpecific, DWORD{4});
    ProviderState.LineEventProc = SumOfDetails;
    EXPECT_EQ(TSPI_lineSetAppSpecific(Any{3}, 5), 0);
    EXPECT_EQ(ProviderState.LineStates, 0u) << "this event carries no media mode";
    ProviderState.LineEventProc = nullptr;
    EXPECT_EQ(TSPI_lineSetAppSpecific(Any{3}, 6), 0) << "a closed line gets no event";
    EXPECT_EQ(ProviderState.AppSpecific, 6u);
}

TEST_F(LineEdges, TextsOfTheLineArePlacedEachWhereItStillFits) {
    std::memcpy(ProviderState.LineName, "CORVANE_ZT_6200_2.0_3"_wide, 44);
    // used; size and offset of provider information, line name, switch information
    const std::pair<DWORD, const char*> rows[] = {{295, "116 - - - - 1a fc"},
                                                  {300, "128 - - 2c fc - -"},
                                                  {322, "142 - - 2c fc 1a 128"},
                                                  {498, "1f2 b0 fc 2c 1ac 1a 1d8"}};
    for (const auto& [total, placed] : rows) {
        ASSERT_EQ(TSPI_lineGetDevCaps(6, 0x20000, 0, Buffer.Room<LINEDEVCAPS>(total)), 0);
        std::string told = CallersBuffer::Hex(Buffer.Field(8));
        for (const std::size_t at : {12u, 16u, 32u, 36u, 20u, 24u})
            told += " " + CallersBuffer::Hex(Buffer.Field(at));
        EXPECT_EQ(told, placed) << total;
        EXPECT_LE(Buffer.End(), total);
    }
    EXPECT_EQ(std::memcmp(Buffer.At(428), ProviderState.LineName, 44), 0);
    EXPECT_EQ(std::memcmp(Buffer.At(472), "Corvane 6200"_wide, 26), 0);
}

TEST_F(LineEdges, TheOneAddressIsFoundByItsExactNumber) {
    CopyText(ProviderState.LineAddress, "4711");
    DWORD id = 9, count = 9;
    for (const WCHAR* other : {"4711 "_wide, "471"_wide, "47110"_wide, ""_wide})
        EXPECT_EQ(Code(TSPI_lineGetAddressID(Line, &id, 1, other, 0)), LINEERR_INVALADDRESS);
    EXPECT_EQ(id, DWORD{9});
    TraceLines();
    EXPECT_EQ(TSPI_lineGetAddressID(Line, &id, 1, "4711"_wide, 0), 0);
    EXPECT_EQ(id, DWORD{0});
    EXPECT_THAT(TraceLines(), testing::IsSupersetOf({"Entering TSPI_lineGetAddressID lpsAddress '4711'",
                                                     "Entering TSPI_lineGetAddressID lineaddr '4711'",
                                                     "Entering TSPI_lineGetAddressID Address  '4711'"}));
    std::vector<WCHAR> endless(81, WCHAR{'1'});
    endless.resize(100, WCHAR{'2'});  // another's memory
    EXPECT_EQ(Code(TSPI_lineGetAddressID(Line, &id, 1, endless.data(), 0)), LINEERR_INVALADDRESS);
    EXPECT_THAT(TraceLines(),
                testing::Contains("Entering TSPI_lineGetAddressID lpsAddress '" + std::string(81, '1') + "'"));
    EXPECT_EQ(TSPI_lineGetNumAddressIDs(Line, &count), 0);
    EXPECT_EQ(count, DWORD{1});
}

}  // namespace
