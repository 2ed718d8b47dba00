// The two dialogs' procedures. What they show and change is UiConfig; only the exchange reaches the provider.
#include "config/settings.h"  // MAX_DIGIT_LOCAL
#include "config/ui/resource.h"
#include "config/ui/tuispi.h"
#include "platform/copy_text.h"
#include "provider/error_box.h"
#include "provider/process.h"  // the module instance, whose resources the dialogs are

#include <cstdlib>
#include <cstring>
#include <span>

namespace {

constexpr const char* Ports[] = {"COM1", "COM2", "COM3", "COM4"};
constexpr const char* MAIN_HELP = "zt_spi.hlp";
constexpr const char* ADVANCED_HELP = "zt_spi62.hlp";
constexpr ULONG_PTR ADVANCED_HELP_CONTEXT = 3;
constexpr WPARAM PREFIX_LENGTH = 4;  // the store gives back no longer one
constexpr std::size_t EDIT_SIZE = 41;

LRESULT Send(HWND dialog, int control, UINT message, WPARAM wParam = 0, const char* text = nullptr) {
    return SendDlgItemMessageA(dialog, control, message, wParam, reinterpret_cast<LPARAM>(text));
}

void SetText(HWND dialog, int control, const char* text) {
    Send(dialog, control, WM_SETTEXT, 0, text);
}

// What stands in a control. False where it could not be read, which an empty one tells apart by the error alone.
bool ReadText(HWND dialog, int control, std::span<char> text) {
    SetLastError(0);
    return GetDlgItemTextA(dialog, control, text.data(), static_cast<int>(text.size())) != 0 || GetLastError() == 0;
}

void Check(HWND dialog, int control, bool checked) {
    Send(dialog, control, BM_SETCHECK, checked ? BST_CHECKED : BST_UNCHECKED);
}

bool Checked(HWND dialog, int control) {
    return Send(dialog, control, BM_GETCHECK) == BST_CHECKED;
}

INT_PTR RunDialog(int resource, HWND owner, DLGPROC procedure) {
    return DialogBoxParamA(Process.ModuleInstance, MAKEINTRESOURCEA(resource), owner, procedure, 0);
}

// --- the advanced dialog ---------------------------------------------------------------------------------------------

void ShowAdvanced(HWND dialog, const AdvancedData& data, const char* digitsFormat) {
    char digits[16];
    const TraceArgument number(data.MaxDigitLocal);
    FormatText(digits, sizeof digits, digitsFormat, &number, 1);
    SetText(dialog, IDC_PREFIX, data.ExtPrefix);
    Check(dialog, IDC_PREFIX_DISPLAYED, data.ExtPrefixDisp == 1);
    SetText(dialog, IDC_DIGITS, digits);
    Check(dialog, IDC_KEY_SYSTEM_MODE, data.EnquiryCallMode == 0);
    Check(dialog, IDC_PBX_MODE, data.EnquiryCallMode == 1);
}

void TakeNumber(std::int32_t& field, std::int32_t value) {
    if (value == field)
        return;
    field = value;
    UiConfig.AdvancedChanged = true;
}

void TakeAdvanced(HWND dialog) {
    AdvancedData& data = UiConfig.Advanced;
    char text[EDIT_SIZE] = "";
    char prefix[sizeof data.ExtPrefix];
    if (ReadText(dialog, IDC_PREFIX, text)) {
        CopyText(prefix, text);
        if (std::strcmp(prefix, data.ExtPrefix) != 0) {
            CopyText(data.ExtPrefix, prefix);
            UiConfig.AdvancedChanged = true;
        }
    }
    TakeNumber(data.ExtPrefixDisp, Checked(dialog, IDC_PREFIX_DISPLAYED) ? 1 : 0);
    TakeNumber(data.EnquiryCallMode, Checked(dialog, IDC_PBX_MODE) ? 1 : 0);
    if (!ReadText(dialog, IDC_DIGITS, text))
        return;
    const long digits = std::strtol(text, nullptr, 10);
    if (digits >= MAX_DIGIT_LOCAL.Least && digits <= MAX_DIGIT_LOCAL.Most)
        TakeNumber(data.MaxDigitLocal, static_cast<std::int32_t>(digits));
}

INT_PTR CALLBACK AdvancedDialog(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    static constexpr AdvancedData Defaults{MAX_DIGIT_LOCAL.Default, 0, 0, "0"};
    if (message == WM_INITDIALOG) {
        Send(dialog, IDC_PREFIX, EM_LIMITTEXT, PREFIX_LENGTH);
        ShowAdvanced(dialog, UiConfig.Advanced, "%02d");
        return TRUE;
    }
    if (message != WM_COMMAND)
        return FALSE;
    switch (LOWORD(wParam)) {
    case IDOK:
        TakeAdvanced(dialog);
        EndDialog(dialog, 0);
        return TRUE;
    case IDCANCEL: EndDialog(dialog, -1); return TRUE;
    case IDC_DEFAULTS: ShowAdvanced(dialog, Defaults, "%d"); return TRUE;
    case IDC_ADVANCED_HELP: WinHelpA(dialog, ADVANCED_HELP, HELP_CONTEXT, ADVANCED_HELP_CONTEXT); return TRUE;
    default: return FALSE;
    }
}

void RunAdvanced(HWND owner) {
    if (!ExchangeNow(UI_SPI_EI_CFGDLG_ADV_GET)) {  // what it would show, and OK write, are nobody's settings
        ErrorBox("The Corvane Service Provider does not answer.\n\nTry again.");
        return;
    }
    if (RunDialog(IDD_ADVANCED, owner, AdvancedDialog) != 0 || !UiConfig.AdvancedChanged)
        return;
    ExchangeNow(UI_SPI_EI_CFGDLG_ADV_SET);
    UiConfig.AdvancedChanged = false;
}

// --- the main dialog -------------------------------------------------------------------------------------------------

// A port that another program holds is there all the same.
bool PortExists(const char* name) {
    const HANDLE port = CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (port == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        return error == ERROR_ACCESS_DENIED || error == ERROR_IRQ_BUSY;
    }
    CloseHandle(port);
    return true;
}

void FillPorts(HWND dialog) {
    // Without the provider's answer none is selected, and none is taken that the user has not picked.
    constexpr WPARAM NONE = static_cast<WPARAM>(-1);
    WPARAM entries = 0, selected = UiConfig.Config.Version[0] == 0 ? NONE : 0;
    for (const char* port : Ports) {
        if (!PortExists(port))
            continue;
        Send(dialog, IDC_PORT, CB_ADDSTRING, 0, port);
        if (std::strcmp(port, UiConfig.Config.PortName) == 0)
            selected = entries;
        ++entries;
    }
    Send(dialog, IDC_PORT, CB_SETCURSEL, selected);
}

void ShowConfig(HWND dialog) {
    const ConfigData& config = UiConfig.Config;
    FillPorts(dialog);
    Send(dialog, IDC_LANGUAGE, CB_ADDSTRING, 0, "0: English");
    Send(dialog, IDC_LANGUAGE, CB_SETCURSEL, 0);
    EnableWindow(GetDlgItem(dialog, IDC_LANGUAGE), FALSE);

    char format[EDIT_SIZE] = "", text[2 * SETTING_SIZE];
    GetDlgItemTextA(dialog, IDC_LINE_NAME, format, sizeof format);  // shows nothing where it fails
    const TraceArgument name(config.LineName);
    FormatText(text, sizeof text, format, &name, 1);
    SetText(dialog, IDC_LINE_NAME, text);
    SetText(dialog, IDC_TSPI_VERSION, config.Version);

    if (config.AdapterMajor == 0 && config.AdapterMinor == 0) {
        EnableWindow(GetDlgItem(dialog, IDC_ADAPTER_VERSION), FALSE);
    } else {
        const TraceArgument numbers[] = {config.AdapterMajor, config.AdapterMinor};
        FormatText(text, sizeof text, "%02d.%3d", numbers, 2);
        SetText(dialog, IDC_ADAPTER_VERSION, text);
    }
    // A later PBX tells these settings itself.
    EnableWindow(GetDlgItem(dialog, IDC_ADVANCED), config.TAPI_OMNA_Ver <= 1 || config.ProtocolLevel == 1);
}

// Where no port was found nothing is selected, and the configured one stays.
void TakePort(HWND dialog) {
    char port[SETTING_SIZE];
    if (GetDlgItemTextA(dialog, IDC_PORT, port, sizeof port) == 0 || std::strcmp(port, UiConfig.Config.PortName) == 0)
        return;
    CopyText(UiConfig.Config.PortName, port);
    UiConfig.PortChanged = true;
}

INT_PTR CALLBACK MainDialog(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    if (message == WM_INITDIALOG) {
        ShowConfig(dialog);
        return TRUE;
    }
    if (message != WM_COMMAND)
        return FALSE;
    switch (LOWORD(wParam)) {
    case IDOK:
        TakePort(dialog);
        EndDialog(dialog, 0);
        return TRUE;
    case IDCANCEL: EndDialog(dialog, -1); return TRUE;
    case IDHELP: WinHelpA(dialog, MAIN_HELP, HELP_INDEX, 0); return TRUE;
    case IDC_ADVANCED: RunAdvanced(dialog); return TRUE;
    default: return FALSE;
    }
}

}  // namespace

INT_PTR RunMainDialog(HWND owner) {
    return RunDialog(IDD_MAIN, owner, MainDialog);
}
