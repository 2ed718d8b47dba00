// The two configuration dialogs in an application, their provider in a second process.
#include "application.h"
#include "check.h"
#include "registry.h"
#include "service.h"
#include "subjects.h"
#include "window.h"

#include <cstring>
#include <memory>

namespace {

constexpr const char* MAIN = "CORVANE TSPI CONFIGURATION";
constexpr const char* ADVANCED = "C6200 TSPI CONFIGURATION";

// Identifiers as the help files of the field know them.
enum {
    OK = 1,
    CANCEL = 2,
    HELP = 9,
    PORT = 1000,
    LANGUAGE = 1026,
    CARD = 1029,
    OPEN_ADVANCED = 1041,
    DEFAULTS = 1020,
    DISPLAYED = 1042,
    PREFIX = 1043,
    DIGITS = 1044,
    PBX_MODE = 1045,
    KEY_SYSTEM_MODE = 1046,
    ADVANCED_HELP = 1049
};

ServiceProcess* Service = nullptr;

LONG CALLBACK Channel(DWORD_PTR object, DWORD type, LPVOID buffer, DWORD size) {
    Message message{Job::DialogData, 0, type, size, object, {}};
    std::memcpy(message.Data, buffer, size);
    Service->Carry(message);
    std::memcpy(buffer, message.Data, size);
    return message.Result;
}

LONG Configure(HWND owner) {
    return Tsp.ProviderConfig(Channel, owner, PROVIDER_ID);
}

LONG ConfigureLine(HWND owner) {
    return Tsp.LineConfigDialog(Channel, LINE_ID, owner, nullptr);
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "; ";
    return text;
}

std::string Joined(const std::vector<int>& numbers) {
    std::vector<std::string> lines;
    for (const int number : numbers)
        lines.push_back(std::to_string(number));
    return Joined(lines);
}

std::string Stored() {
    return ReadSetting("Prefix", "ExtPrefix") + " " + ReadSetting("Prefix", "ExtPrefixDisp") + " " +
           ReadSetting("SetConfig", "MaxDigitLocal") + " " + ReadSetting("SetConfig", "EnquiryCallMode");
}

void ExpectSize(const Screen& screen, const std::string& name, int width, int height) {
    RECT units{0, 0, 4, 8}, wanted{0, 0, width, height}, client{};
    MapDialogRect(screen.Dialog, &units);
    MapDialogRect(screen.Dialog, &wanted);
    GetClientRect(screen.Dialog, &client);
    // The size that MS Sans Serif 8 has on Windows, without which widths would prove little.
    Expect(name + ": dialog units in pixels", "6x13", std::to_string(units.right) + "x" + std::to_string(units.bottom));
    Expect(name + ": client area", std::to_string(wanted.right) + "x" + std::to_string(wanted.bottom),
           std::to_string(client.right) + "x" + std::to_string(client.bottom));
}

void ExpectControls(const Screen& screen, const std::string& name, const std::vector<std::string>& wanted) {
    const std::vector<std::string> seen = screen.Controls();
    Expect(name + ": number of controls", static_cast<long>(wanted.size()), static_cast<long>(seen.size()));
    for (std::size_t i = 0; i < std::min(wanted.size(), seen.size()); ++i)
        Expect(name + ": control " + std::to_string(i), wanted[i], seen[i]);
    screen.CheckLayout(name);
}

std::vector<std::string> MainControls(const char* port, const char* card, const char* advanced) {
    return {"-1 Button Communications [frame]",
            "-1 Static &COM Port:",
            std::string("1000 ComboBox ") + port + " [tab]",
            "-1 Static &Error Messages Language:",
            "1026 ComboBox 0: English [tab] [off]",
            "-1 Button Telephony [frame]",
            "-1 Static System      :",
            "-1 Static 6200",
            "-1 Static Terminal    :",
            "1001 Static 7120",
            "-1 Static TAPI Line  :",
            "1002 Static CORVANE_ZT_6200_2.0_3",
            "-1 Static TSPI Version      :",
            "1401 Static 3.1.5",
            "-1 Static VXC Version  :",
            std::string("1029 Static ") + card,
            "1 Button OK [tab] [group] [default]",
            "2 Button Cancel [tab]",
            std::string("1041 Button Advanced [tab]") + advanced,
            "9 Button Help [tab]"};
}

void LeaveWith(const Screen& screen, int button) {
    screen.Press(button);
    WaitFor("the dialog ends", [&] { return screen.Gone(); });
}

Screen OpenAdvanced(const Screen& main) {
    main.Press(OPEN_ADVANCED);
    return FindDialog(ADVANCED);
}

// --- what is tried ---------------------------------------------------------------------------------------------------

// The help files are not part of the library: the help program says that it misses the one that is asked for.
void HelpIsAskedFor(const Screen& screen, int button, const std::string& file) {
    screen.Press(button);
    HWND help = nullptr;
    WaitFor("the help program", [&] { return (help = FindWindowA("MS_WINHELP", nullptr)) != nullptr; });
    const Screen question = FindDialog(nullptr, help);
    const std::string asked = question.AllText();
    Expect("help: asks for " + file + ": " + asked, asked.find(file) != std::string::npos);
    question.Press(IDNO);
    WaitFor("the question ends", [&] { return question.Gone(); });
    WaitFor("the help program ends", [] { return FindWindowA("MS_WINHELP", nullptr) == nullptr; });
    Expect("help: the dialog stays", !screen.Gone());
}

void MainDialogShowsSettingsAndVersions() {
    Application application(Configure);
    const Screen main = FindDialog(MAIN);
    ExpectSize(main, "main", 227, 154);
    ExpectControls(main, "main", MainControls("COM2", "00.000 [off]", ""));
    Expect("main: ports", "COM1; COM2; COM4; ", Joined(main.Entries(PORT)));
    Expect("main: languages", "0: English; ", Joined(main.Entries(LANGUAGE)));
    Expect("main: the application waits", !application.OwnerEnabled());
    Expect("main: tab order", Joined(std::vector<int>{PORT, OK, CANCEL, OPEN_ADVANCED, HELP}), Joined(main.TabOrder()));
    main.Picture("main");
    HelpIsAskedFor(main, HELP, "zt_spi.hlp");
    LeaveWith(main, CANCEL);
    Expect("main: result", 0, application.Result());
}

void PortListDropsDownWhole() {
    Application application(Configure);
    const Screen main = FindDialog(MAIN);
    COMBOBOXINFO info{};
    info.cbSize = sizeof info;
    GetComboBoxInfo(main.Item(PORT), &info);
    main.Key(VK_F4);
    WaitFor("the list drops down", [&] { return IsWindowVisible(info.hwndList) != 0; });
    RECT client{};
    GetClientRect(info.hwndList, &client);
    const LRESULT line = SendMessageA(info.hwndList, LB_GETITEMHEIGHT, 0, 0);
    Expect("main: the list shows all ports", client.bottom >= 3 * line);
    main.Key(VK_F4);
    LeaveWith(main, CANCEL);
}

void PortIsStoredWithOkOnly() {
    const auto choose = [](const char* port, WPARAM key) {
        Application application(ConfigureLine);
        const Screen main = FindDialog(MAIN);
        main.Select(PORT, port);
        main.Key(key);  // the default button's, and Cancel's
        WaitFor("the dialog ends", [&] { return main.Gone(); });
        Expect("choosing a port: result", 0, application.Result());
        return ReadSetting("Provider", "Port");
    };
    Expect("stored after escape", "COM2", choose("COM1", VK_ESCAPE));
    Expect("stored after return", "COM4", choose("COM4", VK_RETURN));
    Expect("stored after return", "COM1", choose("COM1", VK_RETURN));
}

void MnemonicReachesThePort() {
    Application application(Configure);
    const Screen main = FindDialog(MAIN);
    main.Key(VK_TAB);
    WaitFor("the focus on OK", [&] { return main.Focus() == OK; });
    PostMessageA(main.Item(OK), WM_SYSCHAR, 'c', 1 << 29);
    WaitFor("the focus on the ports after Alt+C", [&] { return main.Focus() == PORT; });
    LeaveWith(main, CANCEL);
}

void AdvancedDialogShowsSettings(const Screen& main) {
    const Screen advanced = OpenAdvanced(main);
    ExpectSize(advanced, "advanced", 227, 119);
    ExpectControls(advanced, "advanced",
                   {"-1 Button Outside Call [frame]", "-1 Static Outside call prefix", "1043 Edit 12 [tab]",
                    "1042 Button Prefix displayed on incoming call [tab] [checked]", "-1 Button Internal Call [frame]",
                    "-1 Static Max Number of digits", "1044 Edit 04 [tab]", "-1 Button Multiline Mode [frame]",
                    "1046 Button Key System Mode [group]",
                    "1045 Button PBX Mode (enquiry on same line) [tab] [checked]",
                    "1 Button OK [tab] [group] [default]", "2 Button Cancel [tab]", "1020 Button Defaults [tab]",
                    "1049 Button Help [tab]"});
    Expect("advanced: tab order",
           Joined(std::vector<int>{PREFIX, DISPLAYED, DIGITS, PBX_MODE, OK, CANCEL, DEFAULTS, ADVANCED_HELP}),
           Joined(advanced.TabOrder()));
    Expect("advanced: the main dialog waits", !IsWindowEnabled(main.Dialog));
    advanced.Picture("advanced");
    HelpIsAskedFor(advanced, ADVANCED_HELP, "zt_spi62.hlp");
    advanced.Type(PREFIX, "98765");
    Expect("advanced: a prefix has four characters", "9876", advanced.Text(PREFIX));
    advanced.Click(KEY_SYSTEM_MODE);
    Expect("advanced: one of the modes", advanced.Checked(KEY_SYSTEM_MODE) && !advanced.Checked(PBX_MODE));
    advanced.Click(PBX_MODE);
    Expect("advanced: the other mode", !advanced.Checked(KEY_SYSTEM_MODE) && advanced.Checked(PBX_MODE));
    LeaveWith(advanced, CANCEL);
    WaitFor("the main dialog is enabled again", [&] { return IsWindowEnabled(main.Dialog) != 0; });
    Expect("advanced: cancelled, stored", "12 1 04 1", Stored());
}

void AdvancedSettingsAreStored(const Screen& main) {
    struct Case {
        const char *prefix, *digits;  // typed
        int clicked;
        const char* stored;  // ExtPrefix, ExtPrefixDisp, MaxDigitLocal, EnquiryCallMode
    };
    const Case cases[] = {
        {"12", "25", DISPLAYED, "12 0 04 1"},
        {"9", "12", KEY_SYSTEM_MODE, "9 0 12 0"},
        {"12345", "1", PBX_MODE, "1234 0 12 1"},
    };
    for (const Case& entry : cases) {
        const Screen advanced = OpenAdvanced(main);
        advanced.Type(PREFIX, entry.prefix);
        advanced.Type(DIGITS, entry.digits);
        advanced.Click(entry.clicked);
        LeaveWith(advanced, OK);
        // The dialog is gone before what it says has been carried over.
        WaitFor(std::string("stored: ") + entry.stored, [&] { return Stored() == entry.stored; });
    }
    const Screen advanced = OpenAdvanced(main);
    advanced.Click(DEFAULTS);
    Expect("advanced: defaults", "0 8 no key system",
           advanced.Text(PREFIX) + " " + advanced.Text(DIGITS) + (advanced.Checked(DISPLAYED) ? " yes" : " no") +
               (advanced.Checked(KEY_SYSTEM_MODE) ? " key system" : "") + (advanced.Checked(PBX_MODE) ? " PBX" : ""));
    advanced.Picture("advanced-defaults");
    LeaveWith(advanced, OK);
    WaitFor("the defaults are stored", [] { return Stored() == "0 0 08 0"; });
}

void AdvancedDialog() {
    Application application(Configure);
    const Screen main = FindDialog(MAIN);
    AdvancedDialogShowsSettings(main);
    AdvancedSettingsAreStored(main);
    LeaveWith(main, OK);
    Expect("main: result", 0, application.Result());
}

void WrongDevicesAndOtherEntries() {
    {
        Application application([](HWND owner) { return Tsp.LineConfigDialog(Channel, PHONE_ID, owner, nullptr); });
        Expect("another line", static_cast<long>(LINEERR_BADDEVICEID), application.Result());
    }
    {
        Application application([](HWND owner) { return Tsp.PhoneConfigDialog(Channel, LINE_ID, owner, nullptr); });
        Expect("another phone", static_cast<long>(PHONEERR_BADDEVICEID), application.Result());
    }
    {
        Application application([](HWND owner) { return Tsp.ProviderRemove(Channel, owner, PROVIDER_ID); });
        Expect("removal", 0, application.Result());
    }
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    Expect("a generic dialog", 0, Tsp.GenericDialog(Channel, 0, nullptr, 0, event));
    Expect("its event", WaitForSingleObject(event, 0) == WAIT_OBJECT_0);
    CloseHandle(event);
    Application application([](HWND owner) { return Tsp.ProviderInstall(Channel, owner, PROVIDER_ID); });
    LeaveWith(FindDialog(MAIN), CANCEL);
    Expect("installation", 0, application.Result());
}

// The card and the PBX have told their versions, and the port is in use.
void DialogOfAnOpenLine() {
    Expect("opening the line", 0, Service->Do(Job::OpenLine));
    std::string events;
    WaitFor("the line in service",
            [&] { return (events += Service->Events()).find("INSERVICE") != std::string::npos; });
    Application application([](HWND owner) { return Tsp.PhoneConfigDialog(Channel, PHONE_ID, owner, nullptr); });
    const Screen main = FindDialog(MAIN);
    ExpectControls(main, "main, in service", MainControls("COM1", "03. 12", " [off]"));
    Expect("main, in service: ports", "COM1; COM2; COM4; ", Joined(main.Entries(PORT)));
    main.Picture("main-in-service");
    main.Select(PORT, "COM4");
    main.Press(OK);
    const Screen box = FindDialog("Corvane 6200 SP Error");
    Expect("restart box: shown by the provider's process",
           GetWindowThreadProcessId(box.Dialog, nullptr) != GetWindowThreadProcessId(main.Dialog, nullptr));
    Expect("restart box: the main dialog is gone", main.Gone());
    TryBox("restart", "Serial Port configuration modified.\n\nClose and restart the application.");
    Expect("a changed port: result", 0, application.Result());
    Expect("a changed port: stored", "COM4", ReadSetting("Provider", "Port"));
    Expect("a changed port: TAPI is told", "REINIT ", Service->Events());
    Expect("closing the line", 0, Service->Do(Job::CloseLine));
    Expect("opening before the restart", static_cast<long>(LINEERR_REINIT), Service->Do(Job::OpenLine));
}

}  // namespace

void TryConfiguration(const char* library) {
    ClearSettings();
    WriteSetting("Provider", "Port", "COM2");
    WriteSetting("Debug_Mode", "DebugOutput", "127");
    WriteSetting("Prefix", "ExtPrefix", "12");
    WriteSetting("Prefix", "ExtPrefixDisp", "1");
    WriteSetting("SetConfig", "MaxDigitLocal", "04");
    WriteSetting("SetConfig", "EnquiryCallMode", "1");
    Ask("equipment set card 3 12");
    if (!LoadTsp(library))
        return;
    {
        ServiceProcess service(library);
        Service = &service;
        Expect("starting the provider", 0, service.Do(Job::Start));
        PortListDropsDownWhole();
        MainDialogShowsSettingsAndVersions();
        MnemonicReachesThePort();
        AdvancedDialog();
        PortIsStoredWithOkOnly();
        WrongDevicesAndOtherEntries();
        DialogOfAnOpenLine();
        Expect("stopping the provider", 0, service.Do(Job::Stop));
    }
    UnloadTsp();
}
