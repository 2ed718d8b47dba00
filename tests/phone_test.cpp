// The phone device: what it tells of the set's display and lamps, the presses it makes, and the edges of its callers'
// buffers.
#include "control/keys.h"
#include "link/serial.h"
#include "link/terminal.h"
#include "platform/text.h"
#include "support/port.h"
#include "support/requesting.h"
#include "support/service.h"

#include <cstring>

namespace {

class Phone : public Requesting {
protected:
    HDRVPHONE Set = reinterpret_cast<HDRVPHONE>(&ProviderState);
    std::vector<std::uint8_t> Bytes;

    void SetUp() override {
        Requesting::SetUp();
        ProviderState.LineDeviceID = 6;
        ProviderState.PhoneDeviceID = 8;
        std::memcpy(ProviderState.LineName, "CORVANE_ZT_6200_2.0_3"_wide, 44);
    }
    template <class Structure> Structure* Room(DWORD total) {
        Bytes.assign(256, 0xEE);
        std::memcpy(Bytes.data(), &total, 4);
        return reinterpret_cast<Structure*>(Bytes.data());
    }
    std::size_t WrittenUpTo() const {
        std::size_t end = Bytes.size();
        while (end > 0 && Bytes[end - 1] == 0xEE)
            --end;
        return end;
    }
    LONG Press(DWORD mode, DWORD id) {
        PHONEBUTTONINFO info{};
        info.dwTotalSize = sizeof info;
        info.dwButtonMode = mode;
        return TSPI_phoneSetButtonInfo(7, Set, id, &info);
    }
};

TEST_F(Phone, VersionIsNegotiatedForThePhoneDeviceAlone) {
    DWORD version = 0;
    EXPECT_EQ(TSPI_phoneNegotiateTSPIVersion(0xFFFFFFFF, 0x10004, 0x30000, &version), 0);
    EXPECT_EQ(version, 0x20000u);
    version = 0;
    EXPECT_EQ(Code(TSPI_phoneNegotiateTSPIVersion(8, 0x20001, 0x30000, &version)), PHONEERR_INCOMPATIBLEAPIVERSION);
    EXPECT_EQ(version, 0x20000u) << "written all the same";
    version = 0;
    EXPECT_EQ(Code(TSPI_phoneNegotiateTSPIVersion(6, 0, 0x20000, &version)), PHONEERR_BADDEVICEID);
    EXPECT_EQ(version, 0u);
}

TEST_F(Phone, CapabilitiesHoldTheNameWhereItFitsAndNothingElse) {
    EXPECT_EQ(Code(TSPI_phoneGetDevCaps(6, 0x20000, 0, Room<PHONECAPS>(224))), PHONEERR_BADDEVICEID);
    EXPECT_EQ(Code(TSPI_phoneGetDevCaps(8, 0x20000, 0, Room<PHONECAPS>(179))), PHONEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(WrittenUpTo(), 4u);
    EXPECT_EQ(Code(TSPI_phoneGetDevCaps(8, 0x20000, 0, nullptr)), PHONEERR_INVALPOINTER);
    for (const DWORD total : {180u, 223u}) {
        const PHONECAPS* caps = Room<PHONECAPS>(total);
        EXPECT_EQ(TSPI_phoneGetDevCaps(8, 0x20000, 0, const_cast<PHONECAPS*>(caps)), 0);
        EXPECT_EQ(caps->dwNeededSize, 224u);
        EXPECT_EQ(caps->dwUsedSize, 180u);
        EXPECT_EQ(WrittenUpTo(), 12u);
    }
    auto* caps = Room<PHONECAPS>(224);
    EXPECT_EQ(TSPI_phoneGetDevCaps(8, 0x20000, 0, caps), 0);
    EXPECT_EQ(caps->dwUsedSize, 224u);
    EXPECT_EQ(caps->dwPhoneNameSize, 44u);
    EXPECT_EQ(caps->dwPhoneNameOffset, 180u);
    EXPECT_EQ(std::memcmp(Bytes.data() + 180, ProviderState.LineName, 44), 0);
    EXPECT_EQ(caps->dwProviderInfoSize, 0xEEEEEEEEu);
    EXPECT_EQ(caps->dwStringFormat, 0xEEEEEEEEu);
    EXPECT_EQ(caps->dwNumButtonLamps, 0xEEEEEEEEu);
    EXPECT_EQ(WrittenUpTo(), 224u);
}

TEST_F(Phone, DisplayIsReadWholeOrNotAtAll) {
    Display(0, "\x82t\x82\x01");
    Display(1, std::string(39, '1') + "2");
    struct Case {
        DWORD total;
        std::size_t end;
    };
    for (const Case& c : {Case{7, 4}, Case{8, 8}, Case{103, 8}}) {
        EXPECT_EQ(TSPI_phoneGetDisplay(Set, Room<VARSTRING>(c.total)), 0);
        EXPECT_EQ(WrittenUpTo(), c.end) << c.total;
    }
    auto* display = Room<VARSTRING>(104);
    EXPECT_EQ(TSPI_phoneGetDisplay(Set, display), 0);
    EXPECT_EQ(display->dwNeededSize, 104u);
    EXPECT_EQ(display->dwUsedSize, 104u);
    EXPECT_EQ(display->dwStringFormat, STRINGFORMAT_ASCII);
    EXPECT_EQ(display->dwStringSize, 80u);
    EXPECT_EQ(display->dwStringOffset, 24u);
    const std::string text(Bytes.begin() + 24, Bytes.begin() + 104);
    EXPECT_EQ(text, "\xE9t\xE9#" + std::string(36, ' ') + std::string(39, '1') + "2");
    EXPECT_EQ(WrittenUpTo(), 104u) << "no terminator";

    EXPECT_EQ(TSPI_phoneGetDisplay(Set, nullptr), 0);
    EXPECT_EQ(Code(TSPI_phoneGetDisplay(nullptr, display)), PHONEERR_INVALPHONEHANDLE);
    ProviderState.PendingRequestID = 99;
    Steps();
    EXPECT_EQ(TSPI_phoneGetDisplay(Set, Room<VARSTRING>(104)), 0);
    EXPECT_EQ(StepsInside(), "appCall cref 0 msg 20 reqId 0 | can't do two async requests at the same time!");
    EXPECT_EQ(WrittenUpTo(), 4u);
    EXPECT_EQ(ProviderState.PendingRequestID, 99u);
}

TEST_F(Phone, LampsThenTheRawIconsOfTheKeys) {
    ::Display.Lamps[5] = PHONELAMPMODE_FLASH;
    At(0).rawIcon = 0x1111;
    At(3).rawIcon = 0x8421;
    At(88).rawIcon = 0xFFFF;
    const auto lamp = [&](DWORD id) {
        DWORD mode = 0x5555;
        EXPECT_EQ(TSPI_phoneGetLamp(Set, id, &mode), 0);
        return mode;
    };
    EXPECT_EQ(lamp(5), PHONELAMPMODE_FLASH);
    EXPECT_EQ(lamp(19), 0u);
    EXPECT_EQ(lamp(20), 0x1111u);
    EXPECT_EQ(lamp(23), 0x8421u);
    EXPECT_EQ(lamp(108), 0xFFFFu);
    EXPECT_EQ(lamp(109), 0x5555u) << "left as it came";
    EXPECT_EQ(lamp(0xFFFFFFFF), 0x5555u);
    EXPECT_EQ(Code(TSPI_phoneGetLamp(Set, 5, nullptr)), PHONEERR_INVALPOINTER);
    DWORD mode = 0;
    EXPECT_EQ(Code(TSPI_phoneGetLamp(nullptr, 5, &mode)), PHONEERR_INVALPHONEHANDLE);
}

TEST_F(Phone, ButtonsAndHookSwitchArePressedAtOnce) {
    struct Row {
        DWORD Mode, Id;
        std::vector<std::string> Frames;
    };
    const Row rows[] = {
        {PHONEBUTTONMODE_KEYPAD, 11, {"03 26 03 0B C9"}},
        {PHONEBUTTONMODE_KEYPAD, 0x100, {"03 26 03 00 D4"}},
        {PHONEBUTTONMODE_KEYPAD, 12, {}},
        {PHONEBUTTONMODE_DISPLAY, 33, {"03 26 20 21 96"}},
        {PHONEBUTTONMODE_FEATURE, 5, {"03 26 20 05 B2"}},
        {PHONEBUTTONMODE_FEATURE, 0x100, {}},
        {PHONEBUTTONMODE_FEATURE, 200, {"03 26 20 C8 EF"}},
        {PHONEBUTTONMODE_CALL, 5, {}},
        {PHONEBUTTONMODE_KEYPAD | PHONEBUTTONMODE_FEATURE, 5, {}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Press(row.Mode, row.Id), 0);
        EXPECT_EQ(QueuedFrames(), row.Frames) << row.Mode << ' ' << row.Id;
    }
    EXPECT_EQ(TSPI_phoneSetButtonInfo(7, Set, 5, nullptr), 0);
    EXPECT_EQ(TSPI_phoneSetHookSwitch(7, Set, PHONEHOOKSWITCHDEV_HANDSET, PHONEHOOKSWITCHMODE_ONHOOK), 0);
    EXPECT_EQ(TSPI_phoneSetHookSwitch(7, Set, PHONEHOOKSWITCHDEV_SPEAKER, PHONEHOOKSWITCHMODE_MICSPEAKER), 0);
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 20 29 8E", "03 26 20 30 87"));
    EXPECT_EQ(Code(TSPI_phoneSetHookSwitch(7, nullptr, 1, 1)), PHONEERR_INVALPHONEHANDLE);
    EXPECT_EQ(Code(TSPI_phoneSetButtonInfo(7, nullptr, 5, nullptr)), PHONEERR_INVALPHONEHANDLE);
    ProviderState.PendingRequestID = 99;
    EXPECT_EQ(Press(PHONEBUTTONMODE_FEATURE, 5), 0) << "refused, and not told";
    EXPECT_THAT(QueuedFrames(), IsEmpty());
    EXPECT_THAT(LineEvents(), IsEmpty()) << "presses are completed by nothing";
}

TEST_F(Phone, TheRestIsAcceptedTracedInOrderAndWritesNothing) {
    const auto phone = reinterpret_cast<HDRVPHONE>(std::uintptr_t{0xA});
    DWORD kept[32];
    std::memset(kept, 0xEE, sizeof kept);
    const auto at = [&](int n) {
        char text[16];
        std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(kept + n)));
        return std::string(text);
    };
    const auto wide = reinterpret_cast<LPCWSTR>(kept + 3);
    const std::string k0 = at(0), k1 = at(1), k3 = at(3);
    struct Row {
        LONG Result;
        std::string Trace;
    };
    const Row rows[] = {
        {TSPI_phoneDevSpecific(1, phone, kept, 2), "DevSpecific(1,a," + k0 + ",2)"},
        {TSPI_phoneGetButtonInfo(phone, 2, reinterpret_cast<LPPHONEBUTTONINFO>(kept)), "GetButtonInfo(a,2," + k0 + ")"},
        {TSPI_phoneGetData(phone, 2, kept, 4), "GetData(a,2," + k0 + ",4)"},
        {TSPI_phoneGetExtensionID(1, 2, reinterpret_cast<LPPHONEEXTENSIONID>(kept)), "GetExtensionID(1,2," + k0 + ")"},
        {TSPI_phoneGetGain(phone, 2, kept), "GetGain(a,2," + k0 + ")"},
        {TSPI_phoneGetHookSwitch(phone, kept), "GetHookSwitch(a," + k0 + ")"},
        {TSPI_phoneGetIcon(1, wide, reinterpret_cast<LPHICON>(kept)), "GetIcon(1," + k3 + "," + k0 + ")"},
        {TSPI_phoneGetID(phone, reinterpret_cast<LPVARSTRING>(kept), wide, nullptr), "GetID(a," + k0 + "," + k3 + ")"},
        {TSPI_phoneGetRing(phone, kept, kept + 1), "GetRing(a," + k0 + "," + k1 + ")"},
        {TSPI_phoneGetStatus(phone, reinterpret_cast<LPPHONESTATUS>(kept)), "GetStatus(a," + k0 + ")"},
        {TSPI_phoneGetVolume(phone, 2, kept), "GetVolume(a,2," + k0 + ")"},
        {TSPI_phoneNegotiateExtVersion(1, 2, 3, 4, kept), "NegotiateExtVersion(1,2,3,4," + k0 + ")"},
        {TSPI_phoneSelectExtVersion(phone, 2), "SelectExtVersion(a,2)"},
        {TSPI_phoneSetData(1, phone, 3, kept, 5), "SetData(1,a,3," + k0 + ",5)"},
        {TSPI_phoneSetDisplay(1, phone, 3, 4, wide, 6), "SetDisplay(1,a,3,4," + k3 + ",6)"},
        {TSPI_phoneSetGain(1, phone, 3, 4), "SetGain(1,a,3,4)"},
        {TSPI_phoneSetLamp(1, phone, 3, 4), "SetLamp(1,a,3,4)"},
        {TSPI_phoneSetRing(1, phone, 3, 4), "SetRing(1,a,3,4)"},
        {TSPI_phoneSetStatusMessages(phone, 2, 3, 4), "SetStatusMessages(a,2,3,4)"},
        {TSPI_phoneSetVolume(1, phone, 3, 4), "SetVolume(1,a,3,4)"},
    };
    const std::vector<std::string> lines = TraceLines();
    ASSERT_EQ(lines.size(), std::size(rows));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i], "Entering TSPI_phone" + rows[i].Trace);
        EXPECT_EQ(rows[i].Result, 0) << lines[i];
    }
    for (const DWORD value : kept)
        EXPECT_EQ(value, 0xEEEEEEEEu);
    EXPECT_THAT(Events(), IsEmpty());
}

// --- with the thread that phone and line share --------------------------------------------------------------------------

TEST_F(Service, PhoneOpensAfterTheLineAnewAndItsCloseStopsTheLinkForBoth) {
    ASSERT_EQ(OpenLine(), 0);
    const PHONEEVENT events = ProviderState.PhoneEventProc;
    const auto tapiPhone = reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x33});
    HDRVPHONE phone = nullptr;
    EXPECT_EQ(Code(TSPI_phoneOpen(3, tapiPhone, &phone, 0x20000, events)), PHONEERR_BADDEVICEID);
    EXPECT_EQ(Process.OpenCount, 1);
    ProviderState.AppSpecific = 5;
    TraceLines();
    EXPECT_EQ(TSPI_phoneOpen(5, tapiPhone, &phone, 0x20000, events), 0);
    EXPECT_EQ(static_cast<const void*>(phone), &ProviderState);
    EXPECT_EQ(ProviderState.htPhone, tapiPhone);
    EXPECT_EQ(ProviderState.PhoneEventProc, events);
    EXPECT_EQ(ProviderState.AppSpecific, 0u) << "records start anew with the second open";
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex));
    EXPECT_EQ(Code(TSPI_phoneClose(nullptr)), PHONEERR_INVALPHONEHANDLE);
    EXPECT_TRUE(SerialThreadRuns());
    EXPECT_EQ(TSPI_phoneClose(phone), 0);
    EXPECT_FALSE(SerialThreadRuns());
    EXPECT_EQ(ProviderState.htPhone, tapiPhone) << "left as it is";
    Process.RestartRequired = true;
    EXPECT_EQ(Code(TSPI_phoneOpen(5, tapiPhone, &phone, 0x20000, events)), LINEERR_REINIT);
    Process.RestartRequired = false;
    PlatformControl::Port("COM1").OpenError = 5;
    TraceLines();
    EXPECT_EQ(Code(TSPI_phoneOpen(5, tapiPhone, &phone, 0x20000, events)), LINEERR_ALLOCATED);
    EXPECT_THAT(TraceLines(), testing::Contains("End TSPI_phoneOpen Pb"));
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex));
}

}  // namespace
