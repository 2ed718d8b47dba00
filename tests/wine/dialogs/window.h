// A dialog on the screen as a user has it: looked at and driven by messages from another thread.
#pragma once

#include "platform/platform.h"

#include <string>
#include <vector>

struct Screen {
    HWND Dialog = nullptr;

    HWND Item(int id) const { return GetDlgItem(Dialog, id); }
    // Every control in its order: "id class text", then [tab], [group], [off], [default], [checked].
    std::vector<std::string> Controls() const;
    std::string Text(int id) const;
    std::string AllText() const;  // of all its controls
    std::vector<std::string> Entries(int list) const;
    bool Enabled(int id) const { return IsWindowEnabled(Item(id)) != 0; }
    bool Checked(int id) const { return SendMessageA(Item(id), BM_GETCHECK, 0, 0) == BST_CHECKED; }
    bool Gone() const { return !IsWindow(Dialog); }

    void Press(int button) const;              // does not wait: the button may open a dialog
    void Click(int box) const;                 // a check box or radio button
    void Select(int list, const char*) const;  // as the arrow keys would
    void Type(int edit, const char*) const;    // over what it holds
    void Key(WPARAM key) const;                // to the control that has the focus
    int Focus() const;                         // its identifier
    // The identifiers that the tab key visits from the focus until it comes back there.
    std::vector<int> TabOrder() const;

    // Notes as failures what lies outside the client area, overlaps, or has no room for its text.
    void CheckLayout(const std::string& name) const;
    // Asks the script for a picture of the window.
    void Picture(const std::string& name) const;
};

// The dialog of that caption (null: any), once it is there and visible; of the process of a given window.
Screen FindDialog(const char* caption, HWND ofProcess = nullptr);
