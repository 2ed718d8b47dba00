// The configuration dialogs, control by control, and what they and the provider say to each other.
#include "config/settings.h"
#include "config/ui/resource.h"
#include "config/ui/tuispi.h"
#include "provider/lifecycle.h"
#include "support/port.h"
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

class Dialogs : public OnTheLine {
protected:
    RecordingPort Silent;

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
    // The last help that was asked for: file, command, data.
    static std::string Helped() {
        const auto help = PlatformControl::HelpCalls().back();
        return help.File + " " + std::to_string(help.Command) + " " + std::to_string(help.Data);
    }
};

TEST_F(Dialogs, MainDialogShowsThePortsThatExistAndTheVersions) {
    PlatformControl::Port("COM2").OpenError = ERROR_ACCESS_DENIED;
    PlatformControl::Port("COM3").OpenError = ERROR_FILE_NOT_FOUND;
    PlatformControl::Port("COM4").OpenError = ERROR_IRQ_BUSY;
    const int handles = PlatformControl::OpenHandles();
    SetSetting("Provider", "Port", "COM4");
    PlatformControl::UseDialogs([&](Dialog& dialog) {
        EXPECT_THAT(dialog.Item(IDC_PORT).Entries, ElementsAre("COM1", "COM2", "COM4"));
        EXPECT_EQ(dialog.Item(IDC_PORT).Text, "COM4");
        EXPECT_THAT(dialog.Item(IDC_LANGUAGE).Entries, ElementsAre("0: English"));
        EXPECT_FALSE(dialog.Item(IDC_LANGUAGE).Enabled);
        EXPECT_EQ(dialog.Item(IDC_LINE_NAME).Text, "CORVANE_ZT_6200_2.0_3");
        EXPECT_EQ(dialog.Item(IDC_TSPI_VERSION).Text, "3.1.5");
        EXPECT_TRUE(dialog.Press(IDHELP));
        EXPECT_FALSE(dialog.Ended);
    });
    EXPECT_EQ(TUISPI_providerInstall(Channel, nullptr, 42), 0);
    EXPECT_EQ(PlatformControl::OpenHandles(), handles) << "each port that opened is closed";
    EXPECT_EQ(PlatformControl::Port("COM1").Share, 0u);
    EXPECT_THAT(Exchanged, ElementsAre("42:3 code 0", "42:3 code 1 172/176"));
    EXPECT_EQ(ProviderState.PermanentProviderID, 42u) << "the provider's strings are loaded anew";
    EXPECT_THAT(TraceLines()[0], testing::MatchesRegex("TUI DLL:[0-9]+ TUISPI_providerConfig hInst 0"));
    EXPECT_EQ(Helped(), "zt_spi.hlp " + std::to_string(HELP_INDEX) + " 0");
}

TEST_F(Dialogs, AdvancedIsForOldVersionsAndTheCardShowsOnlyWhenKnown) {
    struct Case {
        std::uint8_t major, minor, omna, level;
        bool advanced;
        const char* adapter;
    };
    for (const Case& entry :
         {Case{0, 0, 0, 2, true, "00.000"},  // as in the template, disabled
          Case{1, 7, 1, 2, true, "01.  7"}, Case{0, 120, 2, 2, false, "00.120"}, Case{12, 0, 3, 1, true, "12.  0"}}) {
        ProviderState.AdapterMajor = entry.major;
        ProviderState.AdapterMinor = entry.minor;
        ProviderState.TAPI_OMNA_Ver = entry.omna;
        ProviderState.ProtocolLevel = entry.level;
        int dialogs = 0;
        Configure([&](Dialog& dialog) {
            ++dialogs;
            if (dialog.Id == IDD_ADVANCED)
                return;
            EXPECT_EQ(dialog.Item(IDC_ADAPTER_VERSION).Enabled, entry.major + entry.minor != 0);
            EXPECT_EQ(dialog.Item(IDC_ADAPTER_VERSION).Text, entry.adapter);
            EXPECT_EQ(dialog.Press(IDC_ADVANCED), entry.advanced);
        });
        EXPECT_EQ(dialogs, entry.advanced ? 2 : 1);
    }
}

TEST_F(Dialogs, PortIsSentOnlyWhenItChangedAndTheDialogEndedWithOk) {
    const auto select = [](const char* port, int button) {
        return Configure([=](Dialog& dialog) {
            EXPECT_TRUE(port == nullptr || dialog.Select(IDC_PORT, port));
            dialog.Press(button);
            EXPECT_TRUE(dialog.Ended);
            EXPECT_EQ(dialog.Result, button == IDOK ? 0 : -1);
        });
    };
    EXPECT_THAT(select(nullptr, IDOK), ElementsAre("6:1 code 1 172/176"));
    EXPECT_THAT(select("COM4", IDCANCEL), ElementsAre("6:1 code 1 172/176"));
    EXPECT_EQ(Setting("Provider", "Port"), "(none)");
    EXPECT_THAT(select("COM4", IDOK), ElementsAre("6:1 code 1 172/176", "6:1 code 2 172/176"));
    EXPECT_EQ(Setting("Provider", "Port"), "COM4");
    EXPECT_THAT(TraceLines(), testing::Contains(" Rcv Port 'COM4'"));
    CopyText(ProviderState.PortName, "NONE");
    EXPECT_EQ(select(nullptr, IDOK).size(), 2u) << "the first port stands selected";
    EXPECT_EQ(Setting("Provider", "Port"), "COM1");
    for (const char* name : {"COM1", "COM2", "COM3", "COM4"})
        PlatformControl::Port(name).OpenError = ERROR_FILE_NOT_FOUND;
    EXPECT_EQ(select(nullptr, IDOK).size(), 1u) << "no port, nothing selected";
    EXPECT_FALSE(Process.RestartRequired);
    EXPECT_THAT(PlatformControl::Boxes(), IsEmpty());
}

TEST_F(Service, PortChangeWhileTheThreadRunsAsksForARestart) {
    ASSERT_EQ(OpenLine(), 0);
    Events();
    PlatformControl::UseDialogs([](Dialog& dialog) {
        EXPECT_EQ(dialog.Item(IDC_PORT).Text, "COM1") << "held by the provider itself";
        dialog.Select(IDC_PORT, "COM3");
        dialog.Press(IDOK);
    });
    RecordingPort other;
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
        const char *prefix, *digits;  // typed; null: left alone
        int pressed, button;          // before the button; 0: nothing
        bool sent;
        std::string stored;  // ExtPrefix, ExtPrefixDisp, MaxDigitLocal, EnquiryCallMode
    };
    const Case cases[] = {
        {nullptr, nullptr, 0, IDOK, false, "0 0 8 0"},
        {"9", "12", IDC_PBX_MODE, IDCANCEL, false, "0 0 8 0"},
        {nullptr, "12", 0, IDOK, true, "0 0 12 0"},
        {nullptr, "1", 0, IDOK, false, "0 0 12 0"},
        {"00", "25", IDC_PBX_MODE, IDOK, true, "00 0 12 1"},
        {"123456", "x", IDC_PREFIX_DISPLAYED, IDOK, true, "1234 1 12 1"},
        {nullptr, nullptr, IDC_DEFAULTS, IDOK, true, "0 0 08 0"},
        {"", "19", IDC_KEY_SYSTEM_MODE, IDOK, true, "(none) 0 19 0"},
    };
    for (const Case& entry : cases) {
        SCOPED_TRACE(entry.stored);
        const auto codes = ConfigureAdvanced([&](Dialog& dialog) {
            if (entry.prefix != nullptr)
                dialog.Type(IDC_PREFIX, entry.prefix);
            if (entry.digits != nullptr)
                dialog.Type(IDC_DIGITS, entry.digits);
            if (entry.pressed != 0)
                dialog.Press(entry.pressed);
            dialog.Press(entry.button);
        });
        EXPECT_EQ(codes[1] + (codes.size() > 2 ? ", " + codes[2] : ""),
                  entry.sent ? "6:1 code 3 32/36, 6:1 code 4 32/36" : "6:1 code 3 32/36");
        EXPECT_EQ(Setting("Prefix", "ExtPrefix") + " " + Setting("Prefix", "ExtPrefixDisp") + " " +
                      Setting("SetConfig", "MaxDigitLocal") + " " + Setting("SetConfig", "EnquiryCallMode"),
                  entry.stored);
        EXPECT_EQ(Settings.ExtPrefix, entry.stored[0] == '(' ? "" : entry.stored.substr(0, entry.stored.find(' ')));
        EXPECT_EQ(Settings.ExtPrefixDisp + Settings.EnquiryCallMode,
                  std::stoi(Setting("Prefix", "ExtPrefixDisp")) + std::stoi(Setting("SetConfig", "EnquiryCallMode")));
        EXPECT_EQ(Settings.MaxDigitLocal, std::stoi(Setting("SetConfig", "MaxDigitLocal")));
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
    EXPECT_EQ(Helped(), "zt_spi62.hlp " + std::to_string(HELP_CONTEXT) + " 3");
    const std::string get = "UI_SPI_EI_CFGDLG_ADV_GET ", set = "UI_SPI_EI_CFGDLG_ADV_SET ";
    EXPECT_THAT(TraceLines(),
                ElementsAre(get + "ExtPrefix '12'", get + "ExtPrefixDisp '1'", get + "MaxDigitLocalCall '4'",
                            get + "EnqCallMode '1'", "Rcv UI_SPI_EI_CFGDLG_ADV_SET", set + "ExtPrefix '0'",
                            set + "ExtPrefixDisp '0'", set + "MaxDigitLocalCall '8'", set + "EnqCallMode '0'"));
}

TEST_F(Dialogs, WrongDevicesAndMissingCallbacksShowNoDialog) {
    int dialogs = 0;
    PlatformControl::UseDialogs([&](Dialog&) { ++dialogs; });
    EXPECT_EQ(static_cast<DWORD>(TUISPI_lineConfigDialog(Channel, 7, nullptr, nullptr)), LINEERR_BADDEVICEID);
    EXPECT_EQ(static_cast<DWORD>(TUISPI_phoneConfigDialog(Channel, 6, nullptr, nullptr)), PHONEERR_BADDEVICEID);
    EXPECT_EQ(static_cast<DWORD>(TUISPI_lineConfigDialog(nullptr, 6, nullptr, nullptr)), LINEERR_BADDEVICEID);
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

// A buffer of a code with a size byte, filled with x, as the provider gives it back.
std::vector<std::uint8_t> AskFor(int code, int size, std::size_t bytes) {
    std::vector<std::uint8_t> buffer(bytes, 'x');
    buffer[0] = static_cast<std::uint8_t>(code);
    if (bytes > 1)
        buffer[1] = static_cast<std::uint8_t>(size);
    return Ask(1, buffer);
}

TEST_F(Dialogs, BuffersThatAreNotWhatTheySayAreLeftAlone) {
    CopyText(Settings.ExtPrefix, "5");
    const auto untouched = [](const std::vector<std::uint8_t>& buffer) {
        return std::all_of(buffer.begin() + std::min<std::ptrdiff_t>(2, std::ssize(buffer)), buffer.end(),
                           [](int byte) { return byte == 'x'; });
    };
    for (const auto& [code, size, bytes] : {std::tuple{1, 172, 175u},
                                            {1, 171, 176u},
                                            {2, 172, 175u},
                                            {2, 32, 176u},
                                            {3, 32, 35u},
                                            {3, 33, 37u},
                                            {4, 32, 35u},
                                            {4, 172, 176u},
                                            {5, 32, 36u},
                                            {0, 0, 36u},
                                            {0, 33, 36u},
                                            {1, 172, 1u}})
        EXPECT_TRUE(untouched(AskFor(code, size, bytes))) << code << " " << size << " " << bytes;
    for (const DWORD type : {0, 5})
        EXPECT_EQ(Ask(type, std::vector<std::uint8_t>(176, 1)), std::vector<std::uint8_t>(176, 1));
    EXPECT_EQ(TSPI_providerGenericDialogData(1, 1, nullptr, 176), 0);
    Ask(1, {0, 3, 0, 0, 'a', 0, 0});
    Ask(1, {0, 2, 0, 0, 'a', 'b'});
    EXPECT_THAT(TraceLines(), IsEmpty());
    EXPECT_STREQ(Settings.ExtPrefix, "5");
    Ask(4, {0, 3, 0, 0, 'a', '%', 0});
    EXPECT_THAT(TraceLines(), ElementsAre("a%"));
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    EXPECT_TRUE(untouched(AskFor(UI_SPI_EI_CFGDLG_ADV_GET, 32, 36))) << "the thread's values only under the line mutex";
}

TEST_F(Dialogs, AnswersLieAtTheirOffsets) {
    ProviderState.AdapterMajor = 1;
    ProviderState.AdapterMinor = 2;
    ProviderState.TAPI_OMNA_Ver = 3;
    LoadIniStrings(1);
    CopyText(ProviderState.PortName, "COM2");
    const std::vector<std::uint8_t> bytes = AskFor(UI_SPI_EI_CFGDLG_GET, 172, 176);
    const auto text = [&](std::size_t at) { return std::string(reinterpret_cast<const char*>(bytes.data()) + at); };
    EXPECT_EQ(bytes[4], 6);
    EXPECT_EQ(bytes[8], 7);
    EXPECT_EQ(text(12), "COM2");
    EXPECT_EQ(text(52) + text(54), "CO");
    EXPECT_EQ(text(132), "3.1.5");
    EXPECT_THAT(std::vector(bytes.end() - 4, bytes.end()), ElementsAre(1, 2, 3, 2));
    // texts without an end are cut to their fields
    AskFor(UI_SPI_EI_CFGDLG_SET, 172, 176);
    EXPECT_EQ(Setting("Provider", "Port"), std::string(39, 'x'));
    AskFor(UI_SPI_EI_CFGDLG_ADV_SET, 32, 36);
    EXPECT_EQ(std::string(Settings.ExtPrefix), std::string(19, 'x'));
}

}  // namespace
