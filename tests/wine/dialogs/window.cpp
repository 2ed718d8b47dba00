#include "window.h"

#include "check.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

constexpr int BOX_WIDTH = 20;     // pixels that a check box or radio button takes before its text
constexpr int BUTTON_MARGIN = 8;  // left and right of a button's text together

std::string ClassOf(HWND window) {
    char name[64] = "";
    GetClassNameA(window, name, sizeof name);
    return name;
}

std::string TextOf(HWND window) {
    char text[512] = "";
    SendMessageA(window, WM_GETTEXT, sizeof text, reinterpret_cast<LPARAM>(text));
    return text;
}

DWORD StyleOf(HWND window) {
    return static_cast<DWORD>(GetWindowLongA(window, GWL_STYLE));
}

bool IsButton(HWND window, std::initializer_list<DWORD> kinds) {
    if (ClassOf(window) != "Button")
        return false;
    return std::find(kinds.begin(), kinds.end(), StyleOf(window) & BS_TYPEMASK) != kinds.end();
}

bool IsGroup(HWND window) {
    return IsButton(window, {BS_GROUPBOX});
}

std::vector<HWND> Children(HWND dialog) {
    std::vector<HWND> all;
    for (HWND child = GetWindow(dialog, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT))
        all.push_back(child);
    return all;
}

RECT InClient(HWND dialog, HWND control) {
    RECT place{};
    GetWindowRect(control, &place);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT*>(&place), 2);
    return place;
}

std::string Describe(HWND control) {
    return std::to_string(GetDlgCtrlID(control)) + " '" + TextOf(control) + "'";
}

// Width of the control's text in its own font.
SIZE TextSize(HWND control) {
    const HDC dc = GetDC(control);
    const HGDIOBJ old = SelectObject(dc, reinterpret_cast<HFONT>(SendMessageA(control, WM_GETFONT, 0, 0)));
    RECT size{};
    const std::string text = TextOf(control);
    const UINT literal = ClassOf(control) == "Static" && (StyleOf(control) & SS_NOPREFIX) != 0 ? DT_NOPREFIX : 0;
    DrawTextA(dc, text.c_str(), -1, &size, DT_CALCRECT | DT_SINGLELINE | literal);
    SelectObject(dc, old);
    ReleaseDC(control, dc);
    return {size.right, size.bottom};
}

// Pixels beside its text that the control needs.
int Margin(HWND control) {
    if (IsButton(control, {BS_AUTOCHECKBOX, BS_AUTORADIOBUTTON}))
        return BOX_WIDTH;
    return ClassOf(control) == "Button" ? BUTTON_MARGIN : 0;
}

// The number of its X window, which Wine keeps as a property.
std::string XWindow(HWND window) {
    return std::to_string(reinterpret_cast<std::uintptr_t>(GetPropA(window, "__wine_x11_whole_window")));
}

}  // namespace

std::vector<std::string> Screen::Controls() const {
    std::vector<std::string> lines;
    for (const HWND control : Children(Dialog)) {
        const DWORD style = StyleOf(control);
        std::string line = std::to_string(GetDlgCtrlID(control)) + " " + ClassOf(control) + " " + TextOf(control);
        if ((style & WS_TABSTOP) != 0)
            line += " [tab]";
        if ((style & WS_GROUP) != 0 && ClassOf(control) == "Button" && !IsGroup(control))
            line += " [group]";
        if (IsGroup(control))
            line += " [frame]";
        if (!IsWindowEnabled(control))
            line += " [off]";
        if (IsButton(control, {BS_DEFPUSHBUTTON}))
            line += " [default]";
        if (IsButton(control, {BS_AUTOCHECKBOX, BS_AUTORADIOBUTTON}) &&
            SendMessageA(control, BM_GETCHECK, 0, 0) == BST_CHECKED)
            line += " [checked]";
        lines.push_back(line);
    }
    return lines;
}

std::string Screen::Text(int id) const {
    return TextOf(Item(id));
}

std::string Screen::AllText() const {
    std::string all;
    for (const HWND control : Children(Dialog))
        all += TextOf(control) + " ";
    return all;
}

std::vector<std::string> Screen::Entries(int list) const {
    std::vector<std::string> entries;
    const LRESULT count = SendMessageA(Item(list), CB_GETCOUNT, 0, 0);
    for (LRESULT i = 0; i < count; ++i) {
        char text[64] = "";
        SendMessageA(Item(list), CB_GETLBTEXT, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(text));
        entries.emplace_back(text);
    }
    return entries;
}

void Screen::Press(int button) const {
    PostMessageA(Item(button), BM_CLICK, 0, 0);
}

void Screen::Click(int box) const {
    SendMessageA(Item(box), BM_CLICK, 0, 0);
}

void Screen::Select(int list, const char* entry) const {
    const HWND control = Item(list);
    const LRESULT wanted =
        SendMessageA(control, CB_FINDSTRINGEXACT, static_cast<WPARAM>(-1), reinterpret_cast<LPARAM>(entry));
    Expect(std::string("the list has ") + entry, wanted >= 0);
    for (LRESULT now; wanted >= 0 && (now = SendMessageA(control, CB_GETCURSEL, 0, 0)) != wanted;) {
        SendMessageA(control, WM_KEYDOWN, now < wanted ? VK_DOWN : VK_UP, 0);
        if (SendMessageA(control, CB_GETCURSEL, 0, 0) == now) {
            Expect("the arrow keys move the selection", false);
            break;
        }
    }
}

void Screen::Type(int edit, const char* text) const {
    SendMessageA(Item(edit), EM_SETSEL, 0, -1);
    if (*text == 0)
        SendMessageA(Item(edit), WM_KEYDOWN, VK_DELETE, 0);
    for (; *text != 0; ++text)
        SendMessageA(Item(edit), WM_CHAR, static_cast<unsigned char>(*text), 1);
}

void Screen::Key(WPARAM key) const {
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(Dialog, nullptr), &info);
    PostMessageA(info.hwndFocus != nullptr ? info.hwndFocus : Dialog, WM_KEYDOWN, key, 1);
}

int Screen::Focus() const {
    GUITHREADINFO info{};
    info.cbSize = sizeof info;
    GetGUIThreadInfo(GetWindowThreadProcessId(Dialog, nullptr), &info);
    return info.hwndFocus == nullptr ? 0 : GetDlgCtrlID(info.hwndFocus);
}

std::vector<int> Screen::TabOrder() const {
    std::vector<int> order;
    const int first = Focus();
    for (int at = first; order.empty() || at != first; at = Focus()) {
        order.push_back(at);
        Key(VK_TAB);
        if (order.size() > 20 || !WaitFor("the tab key moves the focus", [&] { return Focus() != at; }))
            break;
    }
    return order;
}

void Screen::CheckLayout(const std::string& name) const {
    RECT client{};
    GetClientRect(Dialog, &client);
    const std::vector<HWND> controls = Children(Dialog);
    for (const HWND control : controls) {
        const RECT place = InClient(Dialog, control);
        const std::string described = name + ": " + Describe(control);
        Expect(described + " lies in the client area",
               place.left >= 0 && place.top >= 0 && place.right <= client.right && place.bottom <= client.bottom);
        const SIZE text = TextSize(control);
        if (ClassOf(control) != "ComboBox" && ClassOf(control) != "Edit") {
            Expect(described + " has room for its text: " + std::to_string(text.cx) + "x" + std::to_string(text.cy) +
                       " in " + std::to_string(place.right - place.left) + "x" +
                       std::to_string(place.bottom - place.top),
                   text.cx + Margin(control) <= place.right - place.left && text.cy <= place.bottom - place.top);
        }
        for (const HWND other : controls) {
            RECT both{};
            const RECT otherPlace = InClient(Dialog, other);
            if (other <= control || !IntersectRect(&both, &place, &otherPlace))
                continue;
            const bool framed =
                IsGroup(control) != IsGroup(other) && (EqualRect(&both, &place) || EqualRect(&both, &otherPlace));
            Expect(described + " does not overlap " + Describe(other), framed);
        }
    }
}

void Screen::Picture(const std::string& name) const {
    Ask("picture " + name + " " + XWindow(Dialog));
}

Screen FindDialog(const char* caption, HWND ofProcess) {
    DWORD process = 0;
    GetWindowThreadProcessId(ofProcess, &process);
    const auto fits = [&](HWND window) {
        DWORD its = 0;
        GetWindowThreadProcessId(window, &its);
        return IsWindowVisible(window) && (ofProcess == nullptr || its == process);
    };
    HWND found = nullptr;
    WaitFor(std::string("a window '") + (caption != nullptr ? caption : "") + "'", [&] {
        do
            found = FindWindowExA(nullptr, found, "#32770", caption);
        while (found != nullptr && !fits(found));
        return found != nullptr;
    });
    return {found};
}
