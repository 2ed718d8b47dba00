// Dialogs without a screen, for the thread that tests them: a dialog and its controls are records, a test's function is
// the user. Window handles are the records' addresses.
#include "platform/simulated/state.h"

// The library's own resources. On Windows the resource compiler reads the same rows.
#include "config/ui/resource.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

using PlatformControl::Control;
using PlatformControl::ControlKind;
using PlatformControl::Dialog;

namespace Simulated {

namespace {

#define DIALOG(id, caption, width, height)                                                                             \
    {                                                                                                                  \
        id, caption, width, height, {
#define END_DIALOG                                                                                                     \
    }                                                                                                                  \
    }                                                                                                                  \
    ,
#define GROUP(text, ...) {ControlKind::Group, text, IDC_NONE, __VA_ARGS__},
#define LABEL(text, ...) {ControlKind::Label, text, IDC_NONE, __VA_ARGS__},
#define VALUE(text, id, ...) {ControlKind::Label, text, id, __VA_ARGS__},
#define LIST(id, ...) {ControlKind::List, "", id, __VA_ARGS__},
#define EDIT(id, ...) {ControlKind::Edit, "", id, __VA_ARGS__},
#define CHECK(text, id, ...) {ControlKind::Check, text, id, __VA_ARGS__},
#define RADIO(text, id, ...) {ControlKind::Radio, text, id, __VA_ARGS__},
#define LAST_RADIO(text, id, ...) {ControlKind::Radio, text, id, __VA_ARGS__},
#define DEFAULT_BUTTON(text, id, ...) {ControlKind::Button, text, id, __VA_ARGS__},
#define BUTTON(text, id, ...) {ControlKind::Button, text, id, __VA_ARGS__},

const std::vector<Dialog>& Resources() {
    static const std::vector<Dialog>& resources = *new std::vector<Dialog>{
#include "config/ui/dialogs.inc"
    };
    return resources;
}

#undef DIALOG
#undef END_DIALOG
#undef GROUP
#undef LABEL
#undef VALUE
#undef LIST
#undef EDIT
#undef CHECK
#undef RADIO
#undef LAST_RADIO
#undef DEFAULT_BUTTON
#undef BUTTON

std::vector<Dialog*>& Open = *new std::vector<Dialog*>;  // the innermost last
std::vector<PlatformControl::HelpCall>& Helps = *new std::vector<PlatformControl::HelpCall>;
using User = std::function<void(Dialog&)>;
User& DialogUser = *new User;

HWND HandleOf(void* record) {
    return static_cast<HWND>(record);
}

Dialog* FindDialog(HWND handle) {
    const auto found =
        std::find_if(Open.begin(), Open.end(), [&](Dialog* dialog) { return HandleOf(dialog) == handle; });
    return found == Open.end() ? nullptr : *found;
}

Control* FindItem(HWND handle, int id) {
    Dialog* dialog = FindDialog(handle);
    if (dialog == nullptr)
        return nullptr;
    const auto found = std::find_if(dialog->Controls.begin(), dialog->Controls.end(),
                                    [&](const Control& control) { return control.Id == id; });
    return found == dialog->Controls.end() ? nullptr : &*found;
}

LRESULT AddEntry(Control& list, LPARAM text) {
    list.Entries.emplace_back(reinterpret_cast<const char*>(text));
    return static_cast<LRESULT>(list.Entries.size()) - 1;
}

LRESULT SelectEntry(Control& list, WPARAM index) {
    constexpr LRESULT NO_ENTRY = -1;
    const bool there = index < list.Entries.size();
    list.Text = there ? list.Entries[index] : "";
    return there ? static_cast<LRESULT>(index) : NO_ENTRY;
}

void Command(Dialog& dialog, int id) {
    if (!dialog.Ended)
        dialog.Procedure(HandleOf(&dialog), WM_COMMAND, static_cast<WPARAM>(id), 0);
}

}  // namespace

void ResetDialogs() {
    DialogUser = nullptr;
    Helps.clear();
}

}  // namespace Simulated

using namespace Simulated;

Control& Dialog::Item(int id) {
    Control* control = FindItem(HandleOf(this), id);
    if (control == nullptr)
        throw std::out_of_range("no control " + std::to_string(id));
    return *control;
}

bool Dialog::Press(int id) {
    Control& control = Item(id);
    if (!control.Enabled || Ended)
        return false;
    if (control.Kind == ControlKind::Check)
        control.Checked = !control.Checked;
    if (control.Kind == ControlKind::Radio)
        for (Control& other : Controls)
            if (other.Kind == ControlKind::Radio)  // one group of them in a dialog
                other.Checked = &other == &control;
    Command(*this, id);
    return true;
}

void Dialog::Type(int id, const std::string& text) {
    Control& control = Item(id);
    control.Text = text.substr(0, control.Limit);
}

bool Dialog::Select(int id, const std::string& text) {
    Control& control = Item(id);
    if (!control.Enabled || std::find(control.Entries.begin(), control.Entries.end(), text) == control.Entries.end())
        return false;
    control.Text = text;
    Command(*this, id);
    return true;
}

INT_PTR WINAPI DialogBoxParamA(HINSTANCE, LPCSTR resource, HWND, DLGPROC procedure, LPARAM parameter) {
    if (Fails("DialogBoxParamA"))
        return -1;
    const auto& resources = Resources();
    const auto found = std::find_if(resources.begin(), resources.end(),
                                    [&](const Dialog& dialog) { return MAKEINTRESOURCEA(dialog.Id) == resource; });
    if (found == resources.end())
        return -1;
    Dialog dialog = *found;
    dialog.Procedure = procedure;
    Open.push_back(&dialog);
    procedure(HandleOf(&dialog), WM_INITDIALOG, 0, parameter);
    if (DialogUser && !dialog.Ended)
        DialogUser(dialog);
    Command(dialog, IDCANCEL);
    std::erase(Open, &dialog);
    return dialog.Result;
}

BOOL WINAPI EndDialog(HWND handle, INT_PTR result) {
    Dialog* dialog = FindDialog(handle);
    if (dialog == nullptr)
        return FALSE;
    dialog->Ended = true;
    dialog->Result = result;
    return TRUE;
}

HWND WINAPI GetDlgItem(HWND dialog, int id) {
    if (Fails("GetDlgItem"))
        return nullptr;
    return HandleOf(FindItem(dialog, id));
}

UINT WINAPI GetDlgItemTextA(HWND dialog, int id, LPSTR text, int size) {
    if (Fails("GetDlgItemTextA")) {
        text[0] = 0;
        return 0;
    }
    const Control* control = FindItem(dialog, id);
    const std::string whole = control == nullptr ? "" : control->Text;
    const std::size_t length = std::min(whole.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(text, whole.data(), length);
    text[length] = 0;
    return static_cast<UINT>(length);
}

LRESULT WINAPI SendDlgItemMessageA(HWND dialog, int id, UINT message, WPARAM wParam, LPARAM lParam) {
    Control* control = FindItem(dialog, id);
    if (control == nullptr)
        return 0;
    switch (message) {
    case WM_SETTEXT: control->Text = reinterpret_cast<const char*>(lParam); return TRUE;
    case EM_LIMITTEXT: control->Limit = wParam; return 0;
    case BM_SETCHECK: control->Checked = wParam == BST_CHECKED; return 0;
    case BM_GETCHECK: return static_cast<LRESULT>(control->Checked ? BST_CHECKED : BST_UNCHECKED);
    case CB_ADDSTRING: return AddEntry(*control, lParam);
    case CB_SETCURSEL: return SelectEntry(*control, wParam);
    default: return 0;
    }
}

BOOL WINAPI EnableWindow(HWND window, BOOL enable) {
    for (Dialog* dialog : Open)
        for (Control& control : dialog->Controls)
            if (HandleOf(&control) == window) {
                const bool was = control.Enabled;
                control.Enabled = enable != 0;
                return was ? FALSE : TRUE;  // whether it was disabled
            }
    return FALSE;
}

BOOL WINAPI WinHelpA(HWND, LPCSTR file, UINT command, ULONG_PTR data) {
    Helps.push_back({file, command, data});
    return TRUE;
}

void PlatformControl::UseDialogs(std::function<void(Dialog&)> user) {
    DialogUser = std::move(user);
}

std::vector<PlatformControl::HelpCall> PlatformControl::HelpCalls() {
    return Helps;
}
