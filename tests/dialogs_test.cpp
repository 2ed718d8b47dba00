// The configuration dialogs, control by control, and what they and the provider say to each other.
#include "config/settings.h"
#include "config/ui/resource.h"
#include "config/ui/tuispi.h"
#include "provider/process.h"
#include "support/port.h"
#include "support/service.h"

#include <cstring>

namespace {

using PlatformControl::Dialog;

// What went through TAPI's channel: object, type, code, size byte and dwSize of each buffer.
std::vector<std::string> Exchanged;

LONG CALLBACK Channel(DWORD_PTR object, DWORD type, LPVOID buffer, DWORD size) {
    const auto* bytes = static_cast<const std::uint8_t*>(buffer);
    Exchanged.push_back(std::to_string(object) + ":" + std::to_string(type) + " code " + std::to_string(bytes[0]) +
                        (bytes[0] == 0 ? "" : " " + std::to_string(bytes[1]) + "/" + std::to_string(size)));
    return TSPI_providerGenericDialogData(object, type, buffer, size);
}

LONG CALLBACK DeadChannel(DWORD_PTR, DWORD, LPVOID, DWORD) {
    Exchanged.emplace_back("lost");
    return static_cast<LONG>(LINEERR_OPERATIONFAILED);
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
    for (const auto& [port, error] : std::initializer_list<std::pair<const char*, DWORD>>{
             {"COM2", ERROR_ACCESS_DENIED}, {"COM3", ERROR_FILE_NOT_FOUND}, {"COM4", ERROR_IRQ_BUSY}})
        PlatformControl::Port(port).OpenError = error;
    const int handles = PlatformControl::OpenHandles();
    SetSetting("Provider", "Port", "COM4");
    PlatformControl::UseDialogs([&](Dialog& dialog) {
        EXPECT_THAT(dialog.Item(IDC_PORT).Entries, ElementsAre("COM1", "COM2", "COM4"));
        EXPECT_EQ(dialog.Item(IDC_PORT).Text, "COM4");
        EXPECT_EQ(dialog.Item(IDC_LANGUAGE).Text, "0: English");
        EXPECT_FALSE(dialog.Item(IDC_LANGUAGE).Enabled);
        EXPECT_EQ(dialog.Item(IDC_LINE_NAME).Text, "CORVANE_ZT_6200_2.0_3");
        EXPECT_EQ(dialog.Item(IDC_TSPI_VERSION).Text, "3.1.5");
        EXPECT_TRUE(dialog.Press(IDHELP) && !dialog.Ended);
    });
    EXPECT_EQ(TUISPI_providerInstall(Channel, nullptr, 42), 0);
    EXPECT_EQ(PlatformControl::OpenHandles(), handles) << "each port that opened is closed";
    EXPECT_THAT(Exchanged, ElementsAre("42:3 code 0", "42:3 code 1 172/176"));
    EXPECT_EQ(TraceLines()[0], "TUI DLL:1000000 TUISPI_providerConfig hInst 0");
    EXPECT_EQ(Helped(), "zt_spi.hlp " + std::to_string(HELP_INDEX) + " 0");
}

TEST_F(Dialogs, AdvancedIsForOldVersionsAndTheCardShowsOnlyWhenKnown) {
    const std::tuple<std::uint8_t, std::uint8_t, std::uint8_t, std::uint8_t, std::string> rows[] = {
        {0, 0, 0, 2, "00.000 off yes"},
        {1, 7, 1, 2, "01.  7 on yes"},
        {0, 120, 2, 2, "00.120 on no"},
        {12, 0, 3, 1, "12.  0 on yes"}};
    for (const auto& [major, minor, omna, level, expected] : rows) {
        ProviderState.AdapterMajor = major;
        ProviderState.AdapterMinor = minor;
        ProviderState.TAPI_OMNA_Ver = omna;
        ProviderState.ProtocolLevel = level;
        std::string shown;
        Configure([&](Dialog& dialog) {
            if (dialog.Id == IDD_MAIN)
                shown = dialog.Item(IDC_ADAPTER_VERSION).Text +
                        (dialog.Item(IDC_ADAPTER_VERSION).Enabled ? " on" : " off") +
                        (dialog.Press(IDC_ADVANCED) ? " yes" : " no");
        });
        EXPECT_EQ(shown, expected);
    }
}

TEST_F(Dialogs, PortIsSentOnlyWhenItChangedAndTheDialogEndedWithOk) {
    const auto select = [](const char* port, int button) {
        return Configure([=](Dialog& dialog) {
            EXPECT_TRUE(port == nullptr || dialog.Select(IDC_PORT, port));
            dialog.Press(button);
            EXPECT_TRUE(dialog.Ended && dialog.Result == (button == IDOK ? 0 : -1));
        });
    };
    EXPECT_THAT(select(nullptr, IDOK), ElementsAre("6:1 code 1 172/176"));
    EXPECT_THAT(select("COM4", IDCANCEL), ElementsAre("6:1 code 1 172/176"));
    EXPECT_THAT(select("COM4", IDOK), ElementsAre("6:1 code 1 172/176", "6:1 code 2 172/176"));
    EXPECT_EQ(Setting("Provider", "Port"), "COM4");
    EXPECT_THAT(TraceLines(), testing::Contains(" Rcv Port 'COM4'"));
    CopyText(ProviderState.PortName, "NONE");
    select(nullptr, IDOK);
    EXPECT_EQ(Setting("Provider", "Port"), "COM1") << "the first port stands selected";
    for (const char* name : {"COM1", "COM2", "COM3", "COM4"})
        PlatformControl::Port(name).OpenError = ERROR_FILE_NOT_FOUND;
    EXPECT_EQ(select(nullptr, IDOK).size(), 1u) << "no port, nothing selected";
    EXPECT_FALSE(Process.RestartRequired);
}

TEST_F(Service, PortChangeWhileTheThreadRunsAsksForARestart) {
    ASSERT_EQ(OpenLine(), 0);
    Events();
    RecordingPort other;
    PlatformControl::MapPort("COM3", &other);
    PlatformControl::UseDialogs([](Dialog& dialog) {
        EXPECT_EQ(dialog.Item(IDC_PORT).Text, "COM1") << "held by the provider itself";
        dialog.Select(IDC_PORT, "COM3");
        dialog.Press(IDOK);
    });
    EXPECT_EQ(TUISPI_phoneConfigDialog(Channel, ProviderState.PhoneDeviceID, nullptr, nullptr), 0);
    EXPECT_THAT(Events(), ElementsAre("LINEDEV REINIT (no line)"));
    EXPECT_TRUE(Process.RestartRequired);
    EXPECT_STREQ(ProviderState.PortName, "COM1") << "where a reconnection finds the card";
    ASSERT_EQ(PlatformControl::Boxes().size(), 1u);
    const auto box = PlatformControl::Boxes()[0];
    EXPECT_EQ(box.Text, "Serial Port configuration modified.\n\nClose and restart the application.");
    EXPECT_FALSE(box.LineMutexHeld) << "the serial thread goes on while it is open";
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
        {"00", nullptr, 0, IDOK, true, "00 0 12 0"},
        {nullptr, "20", IDC_PBX_MODE, IDOK, true, "00 0 12 1"},
        {nullptr, "x", IDC_PREFIX_DISPLAYED, IDOK, true, "00 1 12 1"},
        {"123456", "2", 0, IDOK, true, "1234 1 02 1"},
        {nullptr, nullptr, IDC_DEFAULTS, IDOK, true, "0 0 08 0"},
        {"", "19", IDC_KEY_SYSTEM_MODE, IDOK, true, "(none) 0 19 0"},
    };
    for (const Case& entry : cases) {
        SCOPED_TRACE(entry.stored);
        const auto codes = ConfigureAdvanced([&](Dialog& dialog) {
            for (const auto& [id, text] : {std::pair{IDC_PREFIX, entry.prefix}, {IDC_DIGITS, entry.digits}})
                if (text != nullptr)
                    dialog.Type(id, text);
            if (entry.pressed != 0)
                dialog.Press(entry.pressed);
            dialog.Press(entry.button);
        });
        EXPECT_EQ(codes[1] + (codes.size() > 2 ? ", " + codes[2] : ""),
                  entry.sent ? "6:1 code 3 32/36, 6:1 code 4 32/36" : "6:1 code 3 32/36");
        EXPECT_EQ(Setting("Prefix", "ExtPrefix") + " " + Setting("Prefix", "ExtPrefixDisp") + " " +
                      Setting("SetConfig", "MaxDigitLocal") + " " + Setting("SetConfig", "EnquiryCallMode"),
                  entry.stored);
        EXPECT_EQ(Settings.MaxDigitLocal, std::stoi(Setting("SetConfig", "MaxDigitLocal")));
    }
    int times = 0;
    EXPECT_THAT(Configure([&](Dialog& dialog) {
                    if (dialog.Id == IDD_ADVANCED && ++times == 1)
                        dialog.Type(IDC_DIGITS, "5");
                    for (int i = 0; i < 2 && dialog.Id == IDD_MAIN; ++i)
                        dialog.Press(IDC_ADVANCED);
                    dialog.Press(IDOK);
                }),
                ElementsAre("6:1 code 1 172/176", "6:1 code 3 32/36", "6:1 code 4 32/36", "6:1 code 3 32/36"))
        << "what was sent once is no change any more";
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
        dialog.Press(IDOK);
    });
    EXPECT_EQ(Helped(), "zt_spi62.hlp " + std::to_string(HELP_CONTEXT) + " 3");
    std::string traced;
    for (const std::string& line : TraceLines())
        traced += line.substr(line.rfind("ADV_") + 4) + "; ";
    EXPECT_EQ(traced, "GET ExtPrefix '12'; GET ExtPrefixDisp '1'; GET MaxDigitLocalCall '4'; GET EnqCallMode '1'; SET; "
                      "SET ExtPrefix '0'; SET ExtPrefixDisp '0'; SET MaxDigitLocalCall '8'; SET EnqCallMode '0'; ");
}

TEST_F(Dialogs, WrongDevicesShowNoDialog) {
    PlatformControl::UseDialogs([](Dialog&) { ADD_FAILURE(); });
    EXPECT_EQ(static_cast<DWORD>(TUISPI_lineConfigDialog(Channel, 7, nullptr, nullptr)), LINEERR_BADDEVICEID);
    EXPECT_EQ(static_cast<DWORD>(TUISPI_phoneConfigDialog(Channel, 6, nullptr, nullptr)), PHONEERR_BADDEVICEID);
    EXPECT_EQ(TUISPI_providerRemove(Channel, nullptr, 42), 0);
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(TUISPI_providerGenericDialog(Channel, {}, nullptr, 0, event), 0);
    EXPECT_EQ(WaitForSingleObject(event, 0), DWORD{WAIT_OBJECT_0}) << "TAPI's dialog thread waits for it";
    CloseHandle(event);
}

TEST_F(Dialogs, WithoutAnAnswerNothingIsShownAsASettingOrWritten) {
    PlatformControl::UseDialogs([](Dialog&) { ADD_FAILURE(); });
    EXPECT_EQ(static_cast<DWORD>(TUISPI_lineConfigDialog(DeadChannel, 0, nullptr, nullptr)), LINEERR_OPERATIONFAILED);
    EXPECT_EQ(static_cast<DWORD>(TUISPI_phoneConfigDialog(DeadChannel, 0, nullptr, nullptr)), PHONEERR_OPERATIONFAILED);
    for (const char* picked : {"", "COM2"}) {
        PlatformControl::UseDialogs([&](Dialog& dialog) {
            EXPECT_EQ(dialog.Item(IDC_PORT).Text, "");
            dialog.Select(IDC_PORT, picked);
            dialog.Press(IDOK);
        });
        Exchanged.clear();
        EXPECT_EQ(TUISPI_providerConfig(DeadChannel, nullptr, 42), 0);
        EXPECT_EQ(Exchanged.size(), picked[0] == 0 ? 2u : 3u) << "trace and question, and a port that was picked";
    }
    Exchanged.clear();
    PlatformControl::UseDialogs([](Dialog& dialog) { dialog.Press(IDOK); });
    EXPECT_EQ(TUISPI_providerConfig(nullptr, nullptr, 42), 0);
    EXPECT_EQ(static_cast<DWORD>(TUISPI_lineConfigDialog(nullptr, 0, nullptr, nullptr)), LINEERR_OPERATIONFAILED);
    EXPECT_THAT(Exchanged, IsEmpty()) << "TAPI has given no channel";
    SetSetting("Provider", "Port", "COM4");
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    PlatformControl::UseDialogs([](Dialog& dialog) { EXPECT_EQ(dialog.Item(IDC_PORT).Text, "COM2"); });
    EXPECT_EQ(TUISPI_providerConfig(Channel, nullptr, 42), 0);
    EXPECT_STREQ(ProviderState.PortName, "COM2") << "nothing is read beside whoever holds the mutex";
    int opened = 0;
    PlatformControl::UseDialogs([&](Dialog& dialog) {
        ++opened;
        PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
        dialog.Press(IDC_ADVANCED);
    });
    TUISPI_lineConfigDialog(Channel, 6, nullptr, nullptr);
    EXPECT_EQ(opened, 1) << "a box in place of the advanced one";
    EXPECT_EQ(PlatformControl::Boxes().back().Text, "The Corvane Service Provider does not answer.\n\nTry again.");
}

// Whoever answers fills every field to its end.
LONG CALLBACK EndlessTexts(DWORD_PTR, DWORD, LPVOID buffer, DWORD size) {
    auto* const bytes = static_cast<std::uint8_t*>(buffer);
    if (bytes[0] == UI_SPI_EI_CFGDLG_GET || bytes[0] == UI_SPI_EI_CFGDLG_ADV_GET)
        std::fill(bytes + 4, bytes + size, std::uint8_t{'x'});
    return 0;
}

TEST_F(Dialogs, AnswersWithoutAnEndAreCutToTheirFields) {
    PlatformControl::UseDialogs([](Dialog& dialog) {
        if (dialog.Id == IDD_ADVANCED) {
            EXPECT_EQ(dialog.Item(IDC_PREFIX).Text, std::string(19, 'x'));
            return;
        }
        EXPECT_EQ(dialog.Item(IDC_TSPI_VERSION).Text, std::string(UiConfig.Config.Version));
        EXPECT_EQ(std::strlen(UiConfig.Config.Version), sizeof UiConfig.Config.Version - 1);
        EXPECT_EQ(std::strlen(UiConfig.Config.PortName), sizeof UiConfig.Config.PortName - 1);
        EXPECT_EQ(std::end(UiConfig.Config.LineName)[-1], 0);
        dialog.Item(IDC_ADVANCED).Enabled = true;
        dialog.Press(IDC_ADVANCED);
    });
    EXPECT_EQ(TUISPI_providerConfig(EndlessTexts, nullptr, 42), 0);
}

// A buffer of a code with a size byte, filled with x, at the end of its memory (a sanitizer sees a byte too far), as the
// provider gives it back.
std::vector<std::uint8_t> Ask(DWORD type, int code, int size, std::size_t bytes) {
    std::vector<std::uint8_t> buffer(bytes, 'x');
    buffer[0] = static_cast<std::uint8_t>(code);
    if (bytes > 1)
        buffer[1] = static_cast<std::uint8_t>(size);
    EXPECT_EQ(TSPI_providerGenericDialogData(42, type, buffer.data(), static_cast<DWORD>(bytes)), 0);
    return buffer;
}

TEST_F(Dialogs, BuffersThatAreNotWhatTheySayAreLeftAlone) {
    CopyText(Settings.ExtPrefix, "5");
    const std::tuple<DWORD, int, int, std::size_t> rows[] = {
        {0, 1, 172, 176}, {5, 1, 172, 176}, {1, 1, 172, 175}, {1, 1, 171, 176}, {1, 2, 172, 175}, {1, 2, 32, 176},
        {1, 3, 32, 35},   {1, 3, 33, 37},   {1, 4, 32, 35},   {1, 4, 172, 176}, {1, 0, 32, 36}};
    for (const auto& [type, code, size, bytes] : rows) {
        const auto buffer = Ask(type, code, size, bytes);
        EXPECT_EQ(std::count(buffer.begin(), buffer.end(), 'x'), std::ssize(buffer) - 2) << code << " " << size;
    }
    std::vector<std::uint8_t> longer(176, 'x');
    longer[0] = UI_SPI_EI_CFGDLG_GET;
    longer[1] = 172;
    EXPECT_EQ(TSPI_providerGenericDialogData(42, 1, longer.data(), 3), 0);
    EXPECT_EQ(std::count(longer.begin(), longer.end(), 'x'), 174) << "not even a header";
    std::uint8_t endsEarly[] = {UI_SPI_EI_TRACE, 3, 0, 0, 'a', 0, 'b'};
    EXPECT_EQ(TSPI_providerGenericDialogData(42, 1, endsEarly, sizeof endsEarly), 0);
    EXPECT_THAT(TraceLines(), IsEmpty()) << "nor is a text without its end traced";
    EXPECT_STREQ(Settings.ExtPrefix, "5");
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    EXPECT_EQ(Ask(1, UI_SPI_EI_CFGDLG_ADV_GET, 32, 36)[4], 'x') << "the thread's values only under the line mutex";
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    Ask(1, UI_SPI_EI_CFGDLG_ADV_SET, 32, 36);
    EXPECT_STREQ(Settings.ExtPrefix, "5");
}

TEST_F(Dialogs, TextsWithoutAnEndAreCutToTheirFields) {
    PlatformControl::NextWait("SP62LineMutex", WAIT_TIMEOUT);
    for (const char* port : {"COM2", "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"}) {
        Ask(1, UI_SPI_EI_CFGDLG_SET, 172, 176);
        EXPECT_EQ(Setting("Provider", "Port"), std::string(39, 'x'));
        EXPECT_STREQ(ProviderState.PortName, port) << "taken only under the line mutex";
    }
    Ask(1, UI_SPI_EI_CFGDLG_ADV_SET, 32, 36);
    EXPECT_EQ(std::string(Settings.ExtPrefix), std::string(19, 'x'));
}

}  // namespace
