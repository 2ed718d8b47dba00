// The phone device: what it tells of the set's display and lamps, the presses it makes, and the edges of its callers'
// buffers.
#include "link/keys.h"
#include "link/serial.h"
#include "platform/text.h"
#include "support/buffer.h"
#include "support/requesting.h"
#include "support/service.h"
#include "thread/serial_thread.h"
#include "tracking/terminal.h"

namespace {

class Phone : public Requesting {
protected:
    HDRVPHONE Set = reinterpret_cast<HDRVPHONE>(&ProviderState);
    CallersBuffer Buffer;

    LONG Press(DWORD mode, DWORD id, DWORD total = 16) {
        PHONEBUTTONINFO info{};
        info.dwTotalSize = total;
        info.dwButtonMode = mode;
        return TSPI_phoneSetButtonInfo(7, Set, id, &info);
    }
};

TEST_F(Phone, CapabilitiesHoldTheNameWhereItFitsAndNothingElse) {
    ProviderState.PhoneDeviceID = 8;
    std::memcpy(ProviderState.LineName, "CORVANE_ZT_6200_2.0_3"_wide, 44);
    DWORD version = 0;
    EXPECT_EQ(Code(TSPI_phoneNegotiateTSPIVersion(8, 0x20001, 0x30000, &version)), PHONEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(Code(TSPI_phoneNegotiateTSPIVersion(8, 0x10004, 0x1FFFF, &version)), PHONEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(version, 0x20000u) << "written all the same";
    EXPECT_EQ(TSPI_phoneNegotiateTSPIVersion(0xFFFFFFFF, 0x10004, 0x30000, &version), 0);
    const auto caps = [this](DWORD total) {
        return Code(TSPI_phoneGetDevCaps(8, 0x20000, 0, Buffer.Room<PHONECAPS>(total)));
    };
    EXPECT_EQ(caps(179), PHONEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(Buffer.Written(), "");
    EXPECT_EQ(caps(223), 0u);
    EXPECT_EQ(Buffer.Written(), "4:e0 8:b4");
    EXPECT_EQ(caps(224), 0u);
    EXPECT_EQ(Buffer.Written(180), "4:e0 8:e0 32:2c 36:b4");
    EXPECT_EQ(std::memcmp(Buffer.At(180), ProviderState.LineName, 44), 0);
    EXPECT_EQ(Buffer.End(), 224u);
}

TEST_F(Phone, DisplayIsReadWholeOrNotAtAll) {
    Display(0, "\x82t\x82\x01");
    Display(1, std::string(39, '1') + "2");
    for (const auto& [total, end] : {std::pair{7u, 4u}, {8u, 8u}, {103u, 8u}, {104u, 104u}}) {
        EXPECT_EQ(TSPI_phoneGetDisplay(Set, Buffer.Room<VARSTRING>(total)), 0);
        EXPECT_EQ(Buffer.End(), end) << total;
    }
    EXPECT_EQ(Buffer.Written(24), "4:68 8:68 12:1 16:50 20:18");
    EXPECT_EQ(std::string(Buffer.At(24), Buffer.At(104)),
              "\xE9t\xE9#" + std::string(36, ' ') + std::string(39, '1') + "2");
    EXPECT_EQ(TSPI_phoneGetDisplay(Set, nullptr), 0);
    ProviderState.PendingRequestID = 99;
    Steps();
    EXPECT_EQ(TSPI_phoneGetDisplay(Set, Buffer.Room<VARSTRING>(104)), 0);
    EXPECT_EQ(StepsInside(), "appCall cref 0 msg 20 reqId 0 | can't do two async requests at the same time!");
    EXPECT_EQ(Buffer.End(), 4u);
    EXPECT_EQ(ProviderState.PendingRequestID, 99u);
}

TEST_F(Phone, ButtonsAreOfTheSetLampsOfTheSetAndItsKeys) {
    const std::tuple<DWORD, DWORD, const char*> rows[] = {
        {PHONEBUTTONMODE_KEYPAD, 0x100, "03 26 03 00 D4"},        {PHONEBUTTONMODE_KEYPAD, 12, ""},
        {PHONEBUTTONMODE_DISPLAY, 33, "03 26 20 21 96"},          {PHONEBUTTONMODE_FEATURE, 0x100, ""},
        {PHONEBUTTONMODE_FEATURE, 200, "03 26 20 C8 EF"},         {PHONEBUTTONMODE_CALL, 5, ""},
        {PHONEBUTTONMODE_KEYPAD | PHONEBUTTONMODE_FEATURE, 5, ""}};
    for (const auto& [mode, id, frame] : rows) {
        EXPECT_EQ(Press(mode, id), 0);
        EXPECT_EQ(QueuedFrames(), *frame == 0 ? std::vector<std::string>{} : std::vector<std::string>{frame})
            << mode << ' ' << id;
    }
    EXPECT_EQ(TSPI_phoneSetButtonInfo(7, Set, 5, nullptr), 0);
    EXPECT_EQ(Press(PHONEBUTTONMODE_FEATURE, 5, 15), 0) << "too short to hold a mode";
    EXPECT_THAT(QueuedFrames(), IsEmpty());
    ProviderState.PendingRequestID = 99;
    EXPECT_EQ(Press(PHONEBUTTONMODE_FEATURE, 5), 0) << "refused, and not told";
    EXPECT_THAT(QueuedFrames(), IsEmpty());
    EXPECT_THAT(LineEvents(), IsEmpty()) << "presses are completed by nothing";
    ::Display.Lamps[19] = PHONELAMPMODE_FLASH;
    At(0).rawIcon = 0x1111;
    At(88).rawIcon = 0xFFFF;
    const std::pair<DWORD, DWORD> lamps[] = {
        {19, PHONELAMPMODE_FLASH}, {20, 0x1111}, {108, 0xFFFF}, {109, 0x5555}, {0xFFFFFFFF, 0x5555}};
    for (const auto& [id, expected] : lamps) {
        DWORD mode = 0x5555;
        EXPECT_EQ(TSPI_phoneGetLamp(Set, id, &mode), 0);
        EXPECT_EQ(mode, expected) << id;
    }
}

// --- with the thread that phone and line share --------------------------------------------------------------------------

TEST_F(Service, PhoneOpensAfterTheLineAnewAndItsCloseStopsTheLinkForBoth) {
    ASSERT_EQ(OpenLine(), 0);
    HDRVPHONE phone = nullptr;
    const auto open = [&] { return Code(TSPI_phoneOpen(5, Any{0x33}, &phone, 0x20000, ProviderState.PhoneEventProc)); };
    ProviderState.AppSpecific = 5;
    EXPECT_EQ(open(), 0u);
    EXPECT_EQ(static_cast<const void*>(phone), &ProviderState);
    EXPECT_EQ(ProviderState.htPhone, static_cast<HTAPIPHONE>(Any{0x33}));
    EXPECT_EQ(ProviderState.AppSpecific, 0u) << "records start anew with the second open";
    EXPECT_TRUE(SerialThreadRuns());
    EXPECT_EQ(TSPI_phoneClose(phone), 0);
    EXPECT_FALSE(SerialThreadRuns());
    PlatformControl::Port("COM1").OpenError = 5;
    EXPECT_EQ(open(), LINEERR_ALLOCATED);
    EXPECT_EQ(TraceLines().back(), "End TSPI_phoneOpen Pb");
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex));
}

}  // namespace
