// The provider's core: trace log, life cycle, events and completions, the line device.
#include "control/requests.h"
#include "devices/line.h"
#include "link/fifo.h"
#include "link/serial.h"
#include "platform/text.h"
#include "provider/events.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"
#include "support/port.h"
#include "trace/trace.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>

namespace {

using testing::Contains;
using testing::StartsWith;

// --- trace -------------------------------------------------------------------------------------------------------------

using TraceTest = OnTheLine;

template <class... A> std::string Formatted(const char* format, const A&... a) {
    char text[64];
    const TraceArgument list[] = {TraceArgument(a)..., TraceArgument(0)};
    FormatText(text, sizeof text, format, list, sizeof...(A));
    return text;
}

TEST_F(TraceTest, FormatsAsWsprintfDoes) {
    const char* text = "abc";
    const WCHAR* wide = "é€"_wide;
    EXPECT_EQ(Formatted("%d|%ld|%u|%lu", -1, -2, -1, 3u), "-1|-2|4294967295|3");
    EXPECT_EQ(Formatted("%x|%lx|%X|%04x|%4lx|%0lx|%02d", 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 5),
              "ab|ab|AB|00ab|  ab|ab|05");
    EXPECT_EQ(Formatted("%d.%.02d", 3, 6), "3.06");
    EXPECT_EQ(Formatted("%s|%5s|%-5s|%.2s", text, text, text, text), "abc|  abc|abc  |ab");
    EXPECT_EQ(Formatted("%S", wide), "\xE9\x80");
    EXPECT_EQ(Formatted("%c%%", 'x'), "x%");
    EXPECT_EQ(Formatted("%s and %d", text), "abc and ") << "a missing argument prints nothing";
    EXPECT_EQ(Formatted("%d|%s", text, 7), "|") << "nor does one of another kind";
    EXPECT_EQ(Formatted("%lx", reinterpret_cast<void*>(std::uintptr_t{0x12345678})), "12345678");
    EXPECT_EQ(Formatted("%60d%60d", 1, 2).size(), 63u) << "cut to its room";
}

std::string RawTrace(const char* name) {
    std::ifstream in(PlatformControl::PosixPath(std::string("C:\\WINDOWS\\spitrace\\") + name), std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

TEST_F(TraceTest, MaskDecidesAndHeaderComesOnce) {
    TraceMask = 0x12;
    Trace(TRACE_ENTRY, "one");
    Trace(TRACE_LINK, "two");
    Trace(TRACE_CALL, "sixteen");
    Trace(TRACE_ALWAYS, "always %s", "100%d");
    const std::string text = RawTrace("tsptrac0.tr");
    const std::regex whole("\\d+ TSP CORVANE 6200 DebugFile - date: \\d\\d/\\d\\d/\\d\\d - \\d\\d:\\d\\d:\\d\\d\n"
                           "\\d+ \\* OutputTraceMode:18 \\*\n1000000 two\n1000000 sixteen\n1000000 always 100%d\n");
    EXPECT_TRUE(std::regex_match(text, whole)) << text;
}

TEST_F(TraceTest, MaskComesFromTheStoreOrIsWrittenThere) {
    SetSetting("Debug_Mode", "DebugOutput", "127 and more");
    EXPECT_EQ(TraceInit(nullptr), 127);
    for (const char* text : {"-1", ""}) {
        SetSetting("Debug_Mode", "DebugOutput", text);
        EXPECT_EQ(TraceInit(nullptr), 0);
        EXPECT_EQ(Setting("Debug_Mode", "DebugOutput"), "0");
    }
}

TEST_F(TraceTest, FilesChangeWhenTheCounterWrapsAndTheNextProcessKeepsThem) {
    Trace(TRACE_ALWAYS, "first");  // counter 1 for the header, 2 for this
    for (int i = 3; i <= 2000; ++i)
        Trace(TRACE_ALWAYS, "%d", i);
    EXPECT_EQ(RawTrace("tsptrac1.tr"), "");
    Trace(TRACE_ALWAYS, "wrapped");
    EXPECT_EQ(RawTrace("tsptrac1.tr"), "1000000 wrapped\n") << "no header there";
    for (int i = 1; i <= 2001; ++i)
        Trace(TRACE_ALWAYS, "%d", i);
    EXPECT_EQ(RawTrace("tsptrac0.tr"), "1000000 2001\n") << "2001 calls later the first file starts anew";
    std::fclose(TraceLog.File);
    TraceLog = TraceRecord{};
    Trace(TRACE_ALWAYS, "next process");
    EXPECT_EQ(RawTrace("tsptrac0.old"), "1000000 2001\n");
    EXPECT_THAT(RawTrace("tsptrac1.old"), StartsWith("1000000 wrapped\n"));
    EXPECT_FALSE(std::filesystem::exists(PlatformControl::PosixPath("C:\\WINDOWS\\spitrace\\tsptrac1.tr")));
}

TEST_F(TraceTest, LongTextsAreCutAndTheLineStillEnds) {
    const std::string text(3000, 'x');
    Trace(TRACE_ALWAYS, "%s", text.c_str());
    Trace(TRACE_ALWAYS, "next");
    const std::vector<std::string> lines = TraceLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_LE(lines[0].size(), 1024u);
    EXPECT_GE(lines[0].size(), 1000u);
}

TEST_F(TraceTest, AbandonedMutexIsReleasedAgainAMissingOneDropsTheLine) {
    PlatformControl::NextWait("SP62DebugMutex", WAIT_ABANDONED);
    Trace(TRACE_ALWAYS, "after an abandoned one");
    PlatformControl::NextWait("SP62DebugMutex", WAIT_TIMEOUT);
    Trace(TRACE_ALWAYS, "dropped");
    SetLastError(77);
    Trace(TRACE_ALWAYS, "free again");
    EXPECT_EQ(GetLastError(), 77u) << "tracing leaves the caller's error alone";
    EXPECT_THAT(TraceLines(), ElementsAre("after an abandoned one", "free again"));
}

TEST_F(TraceTest, DirectoryThatIsMissingOrLongIsUsedWhenItIsThere) {
    const std::string directory = "C:\\A LONG NAME FOR WINDOWS THAT PASSES 35 CHARACTERS";
    PlatformControl::SetWindowsDirectory(directory);
    const std::string posix = PlatformControl::PosixPath(directory);
    std::filesystem::remove_all(posix);
    Trace(TRACE_ALWAYS, "lost");
    std::filesystem::create_directory(posix);
    Trace(TRACE_ALWAYS, "written");
    std::ifstream in(posix + "/spitrace/tsptrac0.tr");
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_THAT(text, testing::EndsWith("written\n"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("lost")));
}

// --- life cycle ----------------------------------------------------------------------------------------------------------

using Lifecycle = OnTheLine;

LONG Initialise() {
    DWORD lines = 9, phones = 9, options = 0;
    EXPECT_EQ(TSPI_providerEnumDevices(4, &lines, &phones, reinterpret_cast<HPROVIDER>(std::uintptr_t{0x33}), nullptr,
                                       nullptr),
              0);
    EXPECT_EQ(lines + phones, 2u);
    const LONG result = TSPI_providerInit(0x20000, 4, 6, 8, 1, 1, ProviderState.CompletionProc, &options);
    EXPECT_EQ(options, 1u);
    return result;
}

TEST_F(Lifecycle, InitialisationNeedsAFourCharacterPortAndSucceedsAllTheSame) {
    for (const char* port : {"NONE", "COM10", ""}) {
        SetSetting("Provider", "Port", port);
        TraceLines();
        EXPECT_EQ(Initialise(), 0);
        EXPECT_THAT(TraceLines(),
                    testing::IsSupersetOf({"Pb - pas de port spécifié dans le telephon.ini -> providerconfig",
                                           "pas de choix à provider config -> on stoppe le SP",
                                           "Entering TSPI_providerShutdown(20000 4)"}))
            << port;
    }
    SetSetting("Provider", "Port", "COM5");
    TraceLines();
    EXPECT_EQ(Initialise(), 0);
    EXPECT_THAT(TraceLines(), testing::Not(Contains(testing::HasSubstr("shutdown"))));
    EXPECT_EQ(ProviderState.LineDeviceID, 6u);
    EXPECT_EQ(ProviderState.PhoneDeviceID, 8u);
    EXPECT_EQ(ProviderState.MediaMode, 4u);
    EXPECT_EQ(ProviderState.DialParams.dwWaitForDialtone, 60000u);
    EXPECT_EQ(ProviderState.FwdStatus, 4);
    EXPECT_EQ(ProviderState.DeviceState, DEVICE_STARTING);
    EXPECT_EQ(ProviderState.ProtocolLevel, 2);
}

TEST_F(Lifecycle, SecondOpenStartsTheRecordsAnewFromWhatWasKept) {
    RecordingPort port;
    PlatformControl::MapPort("COM1", &port);
    SetSetting("Provider", "Port", "COM1");
    Initialise();
    HDRVLINE line = nullptr;
    const HTAPILINE tapi = reinterpret_cast<HTAPILINE>(std::uintptr_t{1});
    ASSERT_EQ(TSPI_lineOpen(6, tapi, &line, 0x20000, nullptr), 0);
    Key(1, TOUCH_MULTI);
    Call(1, 0, LINECALLSTATE_CONNECTED);
    ProviderState.AppSpecific = 5;
    ASSERT_EQ(TSPI_lineOpen(6, tapi, &line, 0x20000, nullptr), 0);
    EXPECT_EQ(ProviderState.AppSpecific, 0u);
    EXPECT_EQ(CallTable[0].state, 0u);
    EXPECT_EQ(TouchTable[1].kind, TOUCH_NONE);
    EXPECT_EQ(ProviderState.LineDeviceID, 6u);
    EXPECT_EQ(ProviderState.PhoneDeviceID, 8u);
    EXPECT_EQ(ProviderState.PermanentProviderID, 4u);
    EXPECT_EQ(ProviderState.ProviderHandle, reinterpret_cast<HPROVIDER>(std::uintptr_t{0x33}));
    EXPECT_EQ(TSPI_lineClose(line), 0);
    Process.RestartRequired = true;
    EXPECT_EQ(static_cast<DWORD>(TSPI_lineOpen(6, tapi, &line, 0x20000, nullptr)), 0x80000052);
    EXPECT_EQ(TSPI_providerShutdown(0x20000, 4), 0);
    EXPECT_FALSE(Process.RestartRequired);
    EXPECT_EQ(Process.LineMutex, nullptr);
    PlatformControl::MapPort("COM1", nullptr);
}

TEST_F(Lifecycle, ThreadOrEventThatCannotBeMadeIsNoDriver) {
    PlatformControl::FailCreate("SP62Evt_Serial_Ready", 8);
    EXPECT_EQ(static_cast<DWORD>(StartSerialThread()), 0x80000043);
    EXPECT_THAT(TraceLines(), Contains("EvtSerialReady not created error 8"));
    PlatformControl::FailCreate("SP62Evt_Serial_Ready", 0);
    PlatformControl::FailCreateThread(1450);
    EXPECT_EQ(static_cast<DWORD>(StartSerialThread()), 0x80000043);
    EXPECT_EQ(PlatformControl::Boxes().at(0).Text, "Error in creating Serial thread: 1450");
    EXPECT_THAT(TraceLines(), Contains("Thread serial didn't start error 1450"));
    EXPECT_EQ(StopSerialThread(), 0) << "no thread: nothing to stop";
}

TEST_F(Lifecycle, LineMutexIsMadeOnFirstUseAndSaysHowAWaitEnded) {
    EXPECT_EQ(WaitLineMutex(), 0);
    EXPECT_THAT(TraceLines(), Contains("MutexLine creation"));
    EXPECT_EQ(ReleaseLineMutex(42), 42);
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_EQ(ReleaseLineMutex(7), 7);
    EXPECT_THAT(TraceLines(), ElementsAre("REL_LINE_MUTEX PRB 120"));
    PlatformControl::NextWait("SP62LineMutex", WAIT_ABANDONED);
    EXPECT_EQ(WaitLineMutex(), 128);
    ReleaseLineMutex(0);
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    EXPECT_EQ(WaitLineMutex(), 258);
    EXPECT_THAT(TraceLines(), ElementsAre("WAITLINEMUTEX PRB WAIT_ABANDONED", "WAITLINEMUTEX PRB WAIT_TIMEOUT"));
    CloseHandle(Process.LineMutex);
    Process.LineMutex = nullptr;
    PlatformControl::FailCreate("SP62LineMutex", 6);
    EXPECT_EQ(static_cast<DWORD>(WaitLineMutex()), 0x80000043);
    EXPECT_THAT(TraceLines(), Contains("MutexLine not created error 6"));
}

// --- events ----------------------------------------------------------------------------------------------------------------

using EventsTest = OnTheLine;

TEST_F(EventsTest, CompletionGoesOutOnceAndAnIdleCallCompletesItsDrop) {
    ProviderState.PendingRequestID = 7;
    EXPECT_EQ(SendCompletion(ProviderState, 0), 7u);
    EXPECT_EQ(SendCompletion(ProviderState, 0), 0u);
    EXPECT_THAT(Events(), ElementsAre("REPLY 7 0"));
    ProviderState.PendingRequestID = 8;
    RunningRequest = {REQUEST_DROP, 2, -1};
    CallTable[1].htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x101});
    CallTable[2].htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x102});
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 1);
    EXPECT_THAT(Events(), ElementsAre("STATE 1 IDLE"));
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_IDLE, 0, 2);
    EXPECT_THAT(Events(), ElementsAre("STATE 2 IDLE", "REPLY 8 0"));
    EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
}

TEST_F(EventsTest, ReinitHasNoLineHandleAndAClosedLineGetsNothing) {
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_REINIT, 0, -1);
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_INSERVICE, 0, -1);
    EXPECT_THAT(Events(), ElementsAre("LINEDEV REINIT (no line)", "LINEDEV INSERVICE"));
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_ONHOLD, 0, 3);
    EXPECT_EQ(LastHeldCref, 3);
    DoLineEventNewConf();
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_CONNECTED, 0, CONF_CREF);
    EXPECT_THAT(Events(), ElementsAre("STATE - ONHOLD", "NEWCALL 30", "STATE 30 CONNECTED"));
    ProviderState.LineEventProc = nullptr;
    ProviderState.PhoneEventProc = nullptr;
    DoLineEvent(LINE_CLOSE, 0, 0, -1);
    DoLineEventNewCall(1);
    PhoneDisplayChanged();
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(EventsTest, SoftKeysOneToFiveArePressed) {
    EXPECT_EQ(SendSoftKey(0) + SendSoftKey(6), 0);
    EXPECT_EQ(FifoCount(LINK_FIFO), 0);
    EXPECT_EQ(SendSoftKey(3), 3);
    std::uint8_t frame[16];
    ASSERT_EQ(FifoPeek(LINK_FIFO, frame), 5);
    EXPECT_THAT(std::vector<int>(frame, frame + 5), ElementsAre(0x03, 0x26, 0x20, 0x1F, 0x98));
    EXPECT_EQ(DigitsToNumber("19200"), 19200u);
}

TEST_F(EventsTest, LastActionDecidesHowTheProviderStarts) {
    const auto read = [](const char* text) {
        DynamicConfig = DynamicConfigRecord{};
        SetSetting("Dynamic_Set_Conf", "LastAction", text);
        ReadLastAction();
        return std::vector<int>{DynamicConfig.LastActionState, DynamicConfig.WaitDynamicConfig,
                                DynamicConfig.StaticConfig, DynamicConfig.WaitTraceMode};
    };
    EXPECT_THAT(read(""), ElementsAre(0, 1, 0, 1));
    EXPECT_THAT(read("success"), ElementsAre(1, 0, 1, 0));
    EXPECT_THAT(read("failed :V24 Trouble"), ElementsAre(2, 0, 1, 0));
    EXPECT_THAT(read("failed :Config dynamic :Device association ack not received"), ElementsAre(0, 1, 0, 1))
        << "longer than its buffer: counts as missing";
}

// --- the line device ---------------------------------------------------------------------------------------------------------

class Line : public OnTheLine {
protected:
    HDRVLINE Handle = reinterpret_cast<HDRVLINE>(&ProviderState);
    void SetUp() override {
        OnTheLine::SetUp();
        SetSetting("SetConfig", "SetMCDU", "4711");
        SetSetting("Provider", "Port", "COM1");
        Initialise();
        OpenForCapture();
        TraceLines();
    }
    void TearDown() override {
        EXPECT_EQ(WaitForSingleObject(Process.LineMutex, 0), WAIT_OBJECT_0);
        ReleaseMutex(Process.LineMutex);
        EXPECT_FALSE(ReleaseMutex(Process.LineMutex)) << "an entry point has kept the line mutex";
        OnTheLine::TearDown();
    }
    template <class Structure> static std::vector<std::uint8_t> Filled(DWORD total) {
        std::vector<std::uint8_t> bytes(1024, 0xEE);
        std::memcpy(bytes.data(), &total, 4);
        return bytes;
    }
};

DWORD Code(LONG result) {
    return static_cast<DWORD>(result);
}

std::string WideAt(const std::vector<std::uint8_t>& bytes, DWORD offset, DWORD size) {
    std::string out;
    for (DWORD i = 0; i + 1 < size; i += 2)
        out += static_cast<char>(bytes[offset + i]);
    return out.substr(0, out.find('\0'));
}

TEST_F(Line, NegotiatesTwoPointNought) {
    DWORD version = 0;
    EXPECT_EQ(TSPI_lineNegotiateTSPIVersion(6, 0x10004, 0x30000, &version), 0);
    EXPECT_EQ(version, 0x20000u);
    version = 0;
    EXPECT_EQ(Code(TSPI_lineNegotiateTSPIVersion(0xFFFFFFFF, 0x20001, 0x30000, &version)),
              LINEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(version, 0x20000u) << "written all the same";
    EXPECT_EQ(Code(TSPI_lineNegotiateTSPIVersion(7, 0x10004, 0x30000, &version)), LINEERR_BADDEVICEID);
    EXPECT_EQ(Code(TSPI_lineNegotiateExtVersion(7, 0x20000, 0, 1, &version)), LINEERR_BADDEVICEID);
    EXPECT_EQ(TSPI_lineNegotiateExtVersion(6, 0x20000, 0, 1, &version), 0);
    EXPECT_EQ(version, 0u);
}

TEST_F(Line, DeviceCapabilitiesPlaceEachTextThatFits) {
    struct Case {
        DWORD total, used, info, name, switchInfo;  // offsets; 0xEEEEEEEE: untouched
    };
    constexpr DWORD NOT = 0xEEEEEEEE;
    for (const Case& c : {Case{252, 252, NOT, NOT, NOT}, Case{300, 296, NOT, 252, NOT}, Case{322, 322, NOT, 252, 296},
                          Case{498, 498, 252, 428, 472}, Case{1000, 498, 252, 428, 472}}) {
        auto bytes = Filled<LINEDEVCAPS>(c.total);
        auto* caps = reinterpret_cast<LINEDEVCAPS*>(bytes.data());
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
        for (std::size_t i = c.total; i < bytes.size(); ++i)
            ASSERT_EQ(bytes[i], 0xEE) << "written past " << c.total;
        if (c.total == 498) {
            EXPECT_EQ(WideAt(bytes, 252, 176),
                      "Windows Telephony Service Provider for Corvane ZT protocol telephone's MAC PC interface");
            EXPECT_EQ(WideAt(bytes, 428, 44), "CORVANE_ZT_6200_2.0_3");
            EXPECT_EQ(WideAt(bytes, 472, 26), "Corvane 6200");
        }
    }
    auto bytes = Filled<LINEDEVCAPS>(498);
    EXPECT_EQ(Code(TSPI_lineGetDevCaps(5, 0x20000, 0, reinterpret_cast<LINEDEVCAPS*>(bytes.data()))),
              LINEERR_BADDEVICEID);
    EXPECT_EQ(bytes[4], 0xEE);
}

TEST_F(Line, AddressCapabilitiesCarryTheNumberWhenItFits) {
    auto bytes = Filled<LINEADDRESSCAPS>(228);
    auto* caps = reinterpret_cast<LINEADDRESSCAPS*>(bytes.data());
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, caps), 0);
    EXPECT_EQ(caps->dwNeededSize, 238u);
    EXPECT_EQ(caps->dwUsedSize, 228u);
    EXPECT_EQ(bytes[228], 0xEE);
    bytes = Filled<LINEADDRESSCAPS>(238);
    caps = reinterpret_cast<LINEADDRESSCAPS*>(bytes.data());
    ASSERT_EQ(TSPI_lineGetAddressCaps(6, 0, 0x20000, 0, caps), 0);
    EXPECT_EQ(caps->dwUsedSize, 238u);
    EXPECT_EQ(WideAt(bytes, caps->dwAddressOffset, caps->dwAddressSize), "4711");
    EXPECT_EQ(bytes[238], 0xEE);
    EXPECT_EQ(caps->dwAddressStates, 0x6Du);
    EXPECT_EQ(caps->dwCallInfoStates, 0x0403B921u);
    EXPECT_EQ(caps->dwCallStates, 0x7F7Bu);
    EXPECT_EQ(caps->dwAddrCapFlags, 0x0041F028u);
    EXPECT_EQ(caps->dwCallFeatures, 0x0A040AECu);
    EXPECT_EQ(caps->dwForwardModes, 0x1111u);
    EXPECT_EQ(caps->dwAddressFeatures, 0x1407u);
    EXPECT_EQ(caps->dwMaxNumOnHoldCalls, 20u);
    EXPECT_EQ(Code(TSPI_lineGetAddressCaps(6, 1, 0x20000, 0, caps)), LINEERR_INVALADDRESSID);
    EXPECT_EQ(Code(TSPI_lineGetAddressCaps(5, 1, 0x20000, 0, caps)), LINEERR_BADDEVICEID)
        << "the device is tested first";
}

TEST_F(Line, IdentifiersOfDeviceAndAddress) {
    auto bytes = Filled<VARSTRING>(28);
    auto* id = reinterpret_cast<VARSTRING*>(bytes.data());
    EXPECT_EQ(Code(TSPI_lineGetID(Handle, 0, nullptr, 1, id, "tapi/phone"_wide, nullptr)), LINEERR_NODEVICE);
    EXPECT_EQ(Code(TSPI_lineGetID(nullptr, 0, nullptr, 1, id, "tapi/phone"_wide, nullptr)), LINEERR_INVALLINEHANDLE);
    ASSERT_EQ(TSPI_lineGetID(Handle, 0, nullptr, 1, id, "tapi/line"_wide, nullptr), 0);
    EXPECT_EQ(id->dwUsedSize, 28u);
    EXPECT_EQ(bytes[24], 6);
    bytes = Filled<VARSTRING>(24);
    ASSERT_EQ(
        TSPI_lineGetID(Handle, 0, nullptr, 1, reinterpret_cast<VARSTRING*>(bytes.data()), "tapi/line"_wide, nullptr),
        0);
    EXPECT_EQ(bytes[4], 28);
    EXPECT_EQ(bytes[8], 0xEE) << "a smaller buffer gets the needed size alone";
    DWORD value = 9;
    EXPECT_EQ(TSPI_lineGetNumAddressIDs(Handle, &value), 0);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(TSPI_lineGetAddressID(Handle, &value, 1, "4711"_wide, 10), 0);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(Code(TSPI_lineGetAddressID(Handle, &value, 1, "4711 "_wide, 12)), LINEERR_INVALADDRESS);
    EXPECT_THAT(TraceLines(), Contains("Entering TSPI_lineGetAddressID Address  '4711 '"));
    const std::basic_string<WCHAR> tooLong(500, WCHAR{'4'});
    EXPECT_EQ(Code(TSPI_lineGetAddressID(Handle, &value, 1, tooLong.c_str(), 1002)), LINEERR_INVALADDRESS);
}

TEST_F(Line, SettingsAreCheckedAndKept) {
    const auto call = [](std::uintptr_t handle) { return reinterpret_cast<HDRVCALL>(handle); };
    EXPECT_EQ(TSPI_lineSetStatusMessages(Handle, 0xFFFF, 0xEEEE), 0);
    EXPECT_EQ(ProviderState.AddressStates, 0xEEEEu);
    EXPECT_EQ(TSPI_lineSetDefaultMediaDetection(Handle, 0), 0);
    EXPECT_EQ(Code(TSPI_lineSetDefaultMediaDetection(Handle, 5)), LINEERR_INVALMEDIAMODE);
    EXPECT_EQ(TSPI_lineConditionalMediaDetection(Handle, 4, nullptr), 0);
    EXPECT_EQ(Code(TSPI_lineConditionalMediaDetection(Handle, 0, nullptr)), LINEERR_INVALMEDIAMODE);
    EXPECT_EQ(TSPI_lineSetMediaMode(call(0x10003), 4), 0);
    EXPECT_EQ(Code(TSPI_lineSetMediaMode(call(25), 5)), LINEERR_INVALCALLHANDLE) << "the handle is tested first";
    EXPECT_EQ(Code(TSPI_lineSetMediaMode(call(3), 5)), LINEERR_INVALMEDIAMODE);
    EXPECT_EQ(Code(TSPI_lineSetAppSpecific(call(30), 1)), LINEERR_INVALCALLHANDLE);
    CallTable[3].htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x103});
    Events();
    EXPECT_EQ(TSPI_lineSetAppSpecific(call(3), 0x77), 0);
    EXPECT_THAT(Events(), ElementsAre("INFO 3 APPSPECIFIC"));
    EXPECT_EQ(ProviderState.AppSpecific, 0x77u);
    EXPECT_EQ(HdCallToCref(call(30)), 30);
    EXPECT_EQ(HdCallToCref(call(0xFFFF0013)), 19);
    EXPECT_GE(HdCallToCref(call(20)), 20);
    EXPECT_EQ(Code(TSPI_lineClose(nullptr)), LINEERR_INVALLINEHANDLE);
}

TEST_F(Line, OpenFailsWhenThePortDoesNotOpenAndWorksOnceItDoes) {
    PlatformControl::Port("COM1").OpenError = 5;
    HDRVLINE line = nullptr;
    const HTAPILINE tapi = reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11});
    EXPECT_EQ(Code(TSPI_lineOpen(7, tapi, &line, 0x20000, nullptr)), LINEERR_BADDEVICEID);
    EXPECT_EQ(Process.OpenCount, 0);
    EXPECT_EQ(Code(TSPI_lineOpen(6, tapi, &line, 0x20000, nullptr)), LINEERR_ALLOCATED);
    EXPECT_THAT(TraceLines(), Contains("End TSPI_lineOpen Pb"));
    PlatformControl::Settle();
    PlatformControl::Port("COM1").OpenError = 0;
    RecordingPort port;
    PlatformControl::MapPort("COM1", &port);
    EXPECT_EQ(TSPI_lineOpen(6, tapi, &line, 0x20000, nullptr), 0) << "the thread that failed does not stand in the way";
    EXPECT_EQ(line, Handle);
    EXPECT_EQ(TSPI_lineClose(line), 0);
    PlatformControl::MapPort("COM1", nullptr);
}

TEST_F(Lifecycle, ProviderIsItsOwnUserInterface) {
    WCHAR name[20];
    EXPECT_EQ(TSPI_providerUIIdentify(name), 0);
    std::string text;
    for (const WCHAR c : std::basic_string<WCHAR>(name))
        text += static_cast<char>(c);
    EXPECT_EQ(text, "zt_6232.tsp");
}

}  // namespace
