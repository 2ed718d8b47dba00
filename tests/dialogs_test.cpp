// The configuration dialogs, control by control, and what they and the provider say to each other.
#include "config/settings.h"
#include "config/ui/resource.h"
#include "config/ui/tuispi.h"
#include "provider/lifecycle.h"
#include "support/service.h"

#include <cstring>

namespace {

using PlatformControl::Control;
using PlatformControl::ControlKind;
using PlatformControl::Dialog;

// What went through TAPI's channel: object, type, code, size byte and dwSize of each buffer.
std::vector<std::string> Exchanged;

LONG CALLBACK Channel(DWORD_PTR object, DWORD type, LPVOID buffer, DWORD size) {
    const auto* bytes = static_cast<const std::uint8_t*>(buffer);
    Exchanged.push_back(std::to_string(object) + ":" + std::to_string(type) + " code " + std::to_string(bytes[0]) +
                        (bytes[0] == 0 ? "" : " " + std::to_string(bytes[1]) + "/" + std::to_string(size)));
    return TSPI_providerGenericDialogData(object, type, buffer, size);
}

struct SilentPort : PlatformControl::PortDevice {
    void Write(std::span<const std::uint8_t>, std::uint32_t) override {}
    std::size_t Available(std::uint32_t) override { return 0; }
    std::size_t Read(std::span<std::uint8_t>, std::uint32_t) override { return 0; }
};

class Dialogs : public OnTheLine {
protected:
    SilentPort Silent;

    void SetUp() override {
        OnTheLine::SetUp();
        Exchanged.clear();
        ProviderState.LineDeviceID = 6;
        ProviderState.PhoneDeviceID = 7;
        ProviderState.ProtocolLevel = 2;
        CopyText(ProviderState.PortName, "COM2");
        for (const char* name : {"COM1", "COM2", "COM4"})
            PlatformControl::MapPort(name, &Silent);
        ReleaseLineMutex(WaitLineMutex());  // it exists from here on
        TraceLines();
    }
    static std::vector<std::string> Configure(std::function<void(Dialog&)> user) {
        Exchanged.clear();
        PlatformControl::UseDialogs(std::move(user));
        EXPECT_EQ(TUISPI_lineConfigDialog(Channel, 6, nullptr, nullptr), 0);
        return Exchanged;
    }
    // Opens the advanced dialog from the main one, which is then left with OK.
    static std::vector<std::string> ConfigureAdvanced(std::function<void(Dialog&)> user) {
        return Configure([&](Dialog& dialog) {
            if (dialog.Id == IDD_ADVANCED)
                return user(dialog);
            EXPECT_TRUE(dialog.Press(IDC_ADVANCED));
            EXPECT_FALSE(dialog.Ended);
            dialog.Press(IDOK);
        });
    }
};

TEST_F(Dialogs, MainDialogShowsThePortsThatExistAndTheVersions) {
    PlatformControl::Port("COM2").OpenError = ERROR_ACCESS_DENIED;
    PlatformControl::Port("COM3").OpenError = ERROR_FILE_NOT_FOUND;
    PlatformControl::Port("COM4").OpenError = ERROR_IRQ_BUSY;
    CopyText(ProviderState.PortName, "COM4");
    const int handles = PlatformControl::OpenHandles();
    bool shown = false;
    SetSetting("Provider", "Port", "COM4");
    PlatformControl::UseDialogs([&](Dialog& dialog) {
        shown = true;
        EXPECT_THAT(dialog.Item(IDC_PORT).Entries, ElementsAre("COM1", "COM2", "COM4"));
        EXPECT_EQ(dialog.Item(IDC_PORT).Text, "COM4");
        EXPECT_THAT(dialog.Item(IDC_LANGUAGE).Entries, ElementsAre("0: English"));
        EXPECT_EQ(dialog.Item(IDC_LANGUAGE).Text, "0: English");
        EXPECT_FALSE(dialog.Item(IDC_LANGUAGE).Enabled);
        EXPECT_EQ(dialog.Item(IDC_LINE_NAME).Text, "CORVANE_ZT_6200_2.0_3");
        EXPECT_EQ(dialog.Item(IDC_TSPI_VERSION).Text, "3.1.5");
        EXPECT_TRUE(dialog.Press(IDHELP));
        EXPECT_FALSE(dialog.Ended);
    });
    EXPECT_EQ(TUISPI_providerInstall(Channel, nullptr, 42), 0);
    EXPECT_TRUE(shown);
    EXPECT_EQ(PlatformControl::OpenHandles(), handles) << "each port that opened is closed";
    EXPECT_EQ(PlatformControl::Port("COM1").Access, GENERIC_READ | GENERIC_WRITE);
    EXPECT_EQ(PlatformControl::Port("COM1").Share, 0u);
    EXPECT_THAT(Exchanged, ElementsAre("42:3 code 0", "42:3 code 1 172/176"));
    EXPECT_EQ(ProviderState.PermanentProviderID, 42u) << "the provider's strings are loaded anew";
    EXPECT_THAT(TraceLines()[0], testing::MatchesRegex("TUI DLL:[0-9]+ TUISPI_providerConfig hInst 0"));
    const auto helps = PlatformControl::HelpCalls();
    ASSERT_EQ(helps.size(), 1u);
    EXPECT_EQ(helps[0].File, "zt_spi.hlp");
    EXPECT_EQ(helps[0].Command, HELP_INDEX);
    EXPECT_EQ(helps[0].Data, 0u);
}

TEST_F(Dialogs, AdvancedIsForOldVersionsAndTheCardShowsOnlyWhenKnown) {
    struct Case {
        std::uint8_t major, minor, omna, level;
        bool advanced;
        const char* adapter;  // null: as in the template, disabled
    };
    const Case cases[] = {{0, 0, 0, 2, true, nullptr},
                          {1, 7, 1, 2, true, "01.  7"},
                          {0, 120, 2, 2, false, "00.120"},
                          {12, 0, 3, 1, true, "12.  0"}};
    for (const Case& entry : cases) {
        ProviderState.AdapterMajor = entry.major;
        ProviderState.AdapterMinor = entry.minor;
        ProviderState.TAPI_OMNA_Ver = entry.omna;
        ProviderState.ProtocolLevel = entry.level;
        int dialogs = 0;
        Configure([&](Dialog& dialog) {
            ++dialogs;
            if (dialog.Id == IDD_ADVANCED)
                return;
            const Control& adapter = dialog.Item(IDC_ADAPTER_VERSION);
            EXPECT_EQ(adapter.Enabled, entry.adapter != nullptr);
            EXPECT_EQ(adapter.Text, entry.adapter == nullptr ? "00.000" : entry.adapter);
            EXPECT_EQ(dialog.Press(IDC_ADVANCED), entry.advanced);
        });
        EXPECT_EQ(dialogs, entry.advanced ? 2 : 1);
    }
}

TEST_F(Dialogs, PortIsSentOnlyWhenItChangedAndTheDialogEndedWithOk) {
    const auto select = [](const char* port, int button) {
        return [=](Dialog& dialog) {
            if (port != nullptr) {
                EXPECT_TRUE(dialog.Select(IDC_PORT, port));
            }
            dialog.Press(button);
            EXPECT_TRUE(dialog.Ended);
            EXPECT_EQ(dialog.Result, button == IDOK ? 0 : -1);
        };
    };
    EXPECT_THAT(Configure(select(nullptr, IDOK)), ElementsAre("6:1 code 1 172/176"));
    EXPECT_THAT(Configure(select("COM4", IDCANCEL)), ElementsAre("6:1 code 1 172/176"));
    EXPECT_EQ(Setting("Provider", "Port"), "(none)");
    EXPECT_THAT(Configure(select("COM4", IDOK)), ElementsAre("6:1 code 1 172/176", "6:1 code 2 172/176"));
    EXPECT_EQ(Setting("Provider", "Port"), "COM4");
    EXPECT_THAT(TraceLines(), testing::Contains(" Rcv Port 'COM4'"));
    CopyText(ProviderState.PortName, "NONE");
    EXPECT_EQ(Configure(select(nullptr, IDOK)).size(), 2u) << "the first port stands selected";
    EXPECT_EQ(Setting("Provider", "Port"), "COM1");
    for (const char* name : {"COM1", "COM2", "COM3", "COM4"})
        PlatformControl::Port(name).OpenError = ERROR_FILE_NOT_FOUND;
    EXPECT_EQ(Configure(select(nullptr, IDOK)).size(), 1u) << "no port, nothing selected";
    EXPECT_FALSE(Process.RestartRequired);
    EXPECT_THAT(PlatformControl::Boxes(), IsEmpty());
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Service, PortChangeWhileTheThreadRunsAsksForARestart) {
    ASSERT_EQ(OpenLine(), 0);
    Events();
    PlatformControl::UseDialogs([](Dialog& dialog) {
        EXPECT_EQ(dialog.Item(IDC_PORT).Text, "COM1") << "held by the provider itself";
        dialog.Select(IDC_PORT, "COM3");
        dialog.Press(IDOK);
    });
    SilentPort other;
    PlatformControl::MapPort("COM3", &other);
    EXPECT_EQ(TUISPI_phoneConfigDialog(Channel, ProviderState.PhoneDeviceID, nullptr, nullptr), 0);
    EXPECT_THAT(Events(), ElementsAre("LINEDEV REINIT (no line)"));
    EXPECT_TRUE(Process.RestartRequired);
    const auto boxes = PlatformControl::Boxes();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].Text, "Serial Port configuration modified.\n\nClose and restart the application.");
    EXPECT_FALSE(boxes[0].LineMutexHeld) << "the serial thread goes on while it is open";
    EXPECT_EQ(Setting("Provider", "Port"), "COM3");
    CloseLine();
}

TEST_F(Dialogs, AdvancedSettingsAreTakenAndWrittenWhereTheyDiffer) {
    struct Case {
        const char* prefix;  // typed; null: left alone
        bool toggle;         // the check box
        const char* digits;
        int radio;
        bool defaults;
        int button;
        bool sent;
        std::vector<std::string> stored;  // ExtPrefix, ExtPrefixDisp, MaxDigitLocal, EnquiryCallMode
    };
    const Case cases[] = {
        {nullptr, false, nullptr, 0, false, IDOK, false, {"0", "0", "8", "0"}},
        {"9", true, "12", IDC_PBX_MODE, false, IDCANCEL, false, {"0", "0", "8", "0"}},
        {nullptr, false, "12", 0, false, IDOK, true, {"0", "0", "12", "0"}},
        {nullptr, false, "1", 0, false, IDOK, false, {"0", "0", "12", "0"}},
        {"00", true, "25", IDC_PBX_MODE, false, IDOK, true, {"00", "1", "12", "1"}},
        {"123456", false, "x", IDC_PBX_MODE, false, IDOK, true, {"1234", "1", "12", "1"}},
        {nullptr, false, nullptr, 0, true, IDOK, true, {"0", "0", "08", "0"}},
        {"", false, "19", IDC_KEY_SYSTEM_MODE, false, IDOK, true, {"", "0", "19", "0"}},
    };
    for (const Case& entry : cases) {
        const auto codes = ConfigureAdvanced([&](Dialog& dialog) {
            if (entry.prefix != nullptr)
                dialog.Type(IDC_PREFIX, entry.prefix);
            if (entry.toggle)
                dialog.Press(IDC_PREFIX_DISPLAYED);
            if (entry.digits != nullptr)
                dialog.Type(IDC_DIGITS, entry.digits);
            if (entry.radio != 0)
                dialog.Press(entry.radio);
            if (entry.defaults)
                dialog.Press(IDC_DEFAULTS);
            dialog.Press(entry.button);
        });
        EXPECT_EQ(codes.size(), entry.sent ? 3u : 2u);
        EXPECT_EQ(codes[1], "6:1 code 3 32/36");
        if (entry.sent) {
            EXPECT_EQ(codes[2], "6:1 code 4 32/36");
        }
        SCOPED_TRACE(&entry - cases);
        const char* empty = entry.stored[0].empty() ? "(none)" : entry.stored[0].c_str();
        EXPECT_EQ(Setting("Prefix", "ExtPrefix"), empty);
        EXPECT_EQ(Setting("Prefix", "ExtPrefixDisp"), entry.stored[1]);
        EXPECT_EQ(Setting("SetConfig", "MaxDigitLocal"), entry.stored[2]);
        EXPECT_EQ(Setting("SetConfig", "EnquiryCallMode"), entry.stored[3]);
        EXPECT_EQ(Settings.ExtPrefix, entry.stored[0]);
        EXPECT_EQ(Settings.ExtPrefixDisp, std::stoi(entry.stored[1]));
        EXPECT_EQ(Settings.MaxDigitLocal, std::stoi(entry.stored[2]));
        EXPECT_EQ(Settings.EnquiryCallMode, std::stoi(entry.stored[3]));
    }
}

TEST_F(Dialogs, AdvancedDialogShowsWhatTheStoreHoldsAndItsDefaults) {
    SetSetting("Prefix", "ExtPrefix", "12");
    SetSetting("Prefix", "ExtPrefixDisp", "yes");
    SetSetting("SetConfig", "EnquiryCallMode", "1");
    SetSetting("SetConfig", "MaxDigitLocal", "4");
    TraceLines();
    const auto shown = [](Dialog& dialog) {
        std::string text = dialog.Item(IDC_PREFIX).Text + " " + dialog.Item(IDC_DIGITS).Text;
        for (const int id : {IDC_PREFIX_DISPLAYED, IDC_KEY_SYSTEM_MODE, IDC_PBX_MODE})
            text += dialog.Item(id).Checked ? " on" : " off";
        return text;
    };
    ConfigureAdvanced([&](Dialog& dialog) {
        EXPECT_EQ(shown(dialog), "12 04 on off on");
        dialog.Press(IDC_DEFAULTS);
        EXPECT_EQ(shown(dialog), "0 8 off on off");
        dialog.Press(IDC_ADVANCED_HELP);
        EXPECT_FALSE(dialog.Ended);
        dialog.Press(IDOK);
    });
    EXPECT_EQ(PlatformControl::HelpCalls().at(0).File, "zt_spi62.hlp");
    EXPECT_EQ(PlatformControl::HelpCalls().at(0).Command, HELP_CONTEXT);
    EXPECT_EQ(PlatformControl::HelpCalls().at(0).Data, 3u);
    EXPECT_THAT(TraceLines(),
                ElementsAre("UI_SPI_EI_CFGDLG_ADV_GET ExtPrefix '12'", "UI_SPI_EI_CFGDLG_ADV_GET ExtPrefixDisp '1'",
                            "UI_SPI_EI_CFGDLG_ADV_GET MaxDigitLocalCall '4'",
                            "UI_SPI_EI_CFGDLG_ADV_GET EnqCallMode '1'", "Rcv UI_SPI_EI_CFGDLG_ADV_SET",
                            "UI_SPI_EI_CFGDLG_ADV_SET ExtPrefix '0'", "UI_SPI_EI_CFGDLG_ADV_SET ExtPrefixDisp '0'",
                            "UI_SPI_EI_CFGDLG_ADV_SET MaxDigitLocalCall '8'",
                            "UI_SPI_EI_CFGDLG_ADV_SET EnqCallMode '0'"));
}

TEST_F(Dialogs, WrongDevicesAndMissingCallbacksShowNoDialog) {
    int dialogs = 0;
    PlatformControl::UseDialogs([&](Dialog&) { ++dialogs; });
    EXPECT_EQ(static_cast<DWORD>(TUISPI_lineConfigDialog(Channel, 7, nullptr, nullptr)), LINEERR_BADDEVICEID);
    EXPECT_EQ(static_cast<DWORD>(TUISPI_phoneConfigDialog(Channel, 6, nullptr, nullptr)), PHONEERR_BADDEVICEID);
    EXPECT_EQ(static_cast<DWORD>(TUISPI_lineConfigDialog(nullptr, 6, nullptr, nullptr)), LINEERR_BADDEVICEID);
    EXPECT_EQ(dialogs, 0);
    EXPECT_EQ(TUISPI_providerRemove(Channel, nullptr, 42), 0);
    EXPECT_EQ(dialogs, 0);
    EXPECT_EQ(TUISPI_providerConfig(nullptr, nullptr, 42), 0);
    EXPECT_EQ(dialogs, 1) << "with nothing in it";
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(TUISPI_providerGenericDialog(Channel, 0, nullptr, 0, event), 0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    CloseHandle(event);
}

// A buffer at the end of its memory, so that a sanitizer sees a byte too far.
std::vector<std::uint8_t> Ask(DWORD type, std::vector<std::uint8_t> bytes) {
    EXPECT_EQ(TSPI_providerGenericDialogData(42, type, bytes.data(), static_cast<DWORD>(bytes.size())), 0);
    return bytes;
}

TEST_F(Dialogs, BuffersThatAreNotWhatTheySayAreLeftAlone) {
    CopyText(Settings.ExtPrefix, "5");
    struct Case {
        DWORD type;
        std::uint8_t code, size;
        std::size_t bytes;
    };
    const Case cases[] = {{0, 1, 172, 176}, {5, 1, 172, 176}, {1, 1, 172, 175}, {1, 1, 171, 176}, {1, 2, 172, 175},
                          {1, 2, 32, 176},  {1, 3, 32, 35},   {1, 3, 33, 37},   {1, 4, 32, 35},   {1, 4, 172, 176},
                          {1, 5, 32, 36},   {1, 0, 0, 36},    {1, 0, 33, 36},   {1, 1, 172, 1}};
    for (const Case& entry : cases) {
        std::vector<std::uint8_t> bytes(entry.bytes, 'x');
        bytes[0] = entry.code;
        if (entry.bytes > 1)
            bytes[1] = entry.size;
        EXPECT_EQ(Ask(entry.type, bytes), bytes);
    }
    EXPECT_EQ(TSPI_providerGenericDialogData(1, 1, nullptr, 176), 0);
    Ask(1, {0, 3, 0, 0, 'a', 0, 0});
    Ask(1, {0, 2, 0, 0, 'a', 'b'});
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_STREQ(Settings.ExtPrefix, "5");
    Ask(4, {0, 3, 0, 0, 'a', '%', 0});
    EXPECT_THAT(TraceLines(), ElementsAre("a%"));
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    std::vector<std::uint8_t> bytes(36, 'x');
    bytes[0] = UI_SPI_EI_CFGDLG_ADV_GET;
    bytes[1] = 32;
    EXPECT_EQ(Ask(1, bytes), bytes) << "the serial thread's values only under the line mutex";
}

TEST_F(Dialogs, AnswersLieAtTheirOffsets) {
    ProviderState.AdapterMajor = 1;
    ProviderState.AdapterMinor = 2;
    ProviderState.TAPI_OMNA_Ver = 3;
    LoadIniStrings(1);
    CopyText(ProviderState.PortName, "COM2");
    std::vector<std::uint8_t> bytes(176, 'x');
    bytes[0] = UI_SPI_EI_CFGDLG_GET;
    bytes[1] = 172;
    bytes = Ask(1, bytes);
    const auto text = [&](std::size_t at) { return std::string(reinterpret_cast<const char*>(bytes.data()) + at); };
    EXPECT_EQ(bytes[4], 6);
    EXPECT_EQ(bytes[8], 7);
    EXPECT_EQ(text(12), "COM2");
    EXPECT_EQ(bytes[52], 'C');
    EXPECT_EQ(bytes[54], 'O');
    EXPECT_EQ(text(132), "3.1.5");
    EXPECT_THAT(std::vector(bytes.end() - 4, bytes.end()), ElementsAre(1, 2, 3, 2));
    // texts without an end are cut to their fields
    bytes.assign(176, 'x');
    bytes[0] = UI_SPI_EI_CFGDLG_SET;
    bytes[1] = 172;
    Ask(1, bytes);
    EXPECT_EQ(Setting("Provider", "Port"), std::string(39, 'x'));
    bytes.assign(36, 'x');
    bytes[0] = UI_SPI_EI_CFGDLG_ADV_SET;
    bytes[1] = 32;
    Ask(1, bytes);
    EXPECT_EQ(std::string(Settings.ExtPrefix), std::string(19, 'x'));
}

// Dialog units of a text in the dialogs' font: on average 4 a character, capitals 5.
int WidthOf(const std::string& text) {
    int width = 0;
    for (const char c : text)
        width += c >= 'A' && c <= 'Z' ? 5 : c == ' ' || c == ':' || c == '&' ? 2 : 4;
    return width;
}

TEST_F(Dialogs, NothingIsCutOrCoveredAndTheTabKeyFollowsTheEye) {
    const auto look = [](Dialog& dialog) {
        const Control* group = nullptr;
        const Control* before = nullptr;
        for (const Control& control : dialog.Controls) {
            const int height = control.Kind == ControlKind::List ? 14 : control.Height;  // without what drops down
            EXPECT_TRUE(control.X >= 7 && control.X + control.Width <= dialog.Width - 7) << control.Text;
            EXPECT_TRUE(control.Y >= 7 && control.Y + height <= dialog.Height - 7) << control.Text;
            const int box = control.Kind == ControlKind::Check || control.Kind == ControlKind::Radio ? 12 : 0;
            EXPECT_LE(WidthOf(control.Text) + box, control.Width) << control.Text;
            if (control.Kind == ControlKind::Group) {
                EXPECT_TRUE(group == nullptr || control.Y >= group->Y + group->Height) << control.Text;
                group = &control;
                before = nullptr;
                continue;
            }
            if (control.Kind == ControlKind::Button) {
                EXPECT_TRUE(control.Y >= group->Y + group->Height || control.X >= group->X + group->Width);
            } else {
                EXPECT_TRUE(control.X >= group->X + 7 && control.X + control.Width <= group->X + group->Width - 7);
                EXPECT_TRUE(control.Y >= group->Y + 8 && control.Y + height <= group->Y + group->Height);
            }
            const bool below = before != nullptr && control.Y >= before->Y + before->Height;
            const bool beside = before != nullptr && control.X >= before->X + before->Width;
            EXPECT_TRUE(before == nullptr || below || beside || before->Kind == ControlKind::List) << control.Text;
            before = &control;
        }
    };
    int dialogs = 0;
    const auto both = [&](Dialog& dialog) {
        ++dialogs;
        look(dialog);
        if (dialog.Id == IDD_MAIN)
            dialog.Press(IDC_ADVANCED);
    };
    PlatformControl::UseDialogs(both);
    EXPECT_EQ(TUISPI_providerConfig(Channel, nullptr, 42), 0);
    EXPECT_EQ(dialogs, 2);
}

}  // namespace
