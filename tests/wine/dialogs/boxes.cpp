// The provider's error boxes, made to show by what is wrong with port, settings or equipment.
#include "check.h"
#include "registry.h"
#include "service.h"
#include "subjects.h"
#include "window.h"

#include <thread>

void TryBox(const std::string& name, const char* text) {
    const Screen box = FindDialog("Corvane 6200 SP Error");
    if (box.Dialog == nullptr)
        return;
    HWND icon = nullptr, shown = nullptr, button = nullptr;
    int buttons = 0;
    for (HWND child = GetWindow(box.Dialog, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        char kind[16] = "";
        GetClassNameA(child, kind, sizeof kind);
        if (!IsWindowVisible(child))
            continue;
        if (std::string(kind) == "Button") {
            button = child;
            ++buttons;
        } else if ((GetWindowLongA(child, GWL_STYLE) & SS_TYPEMASK) == SS_ICON) {
            icon = child;
        } else {
            shown = child;
        }
    }
    char seen[512] = "";
    GetWindowTextA(shown, seen, sizeof seen);
    Expect(name + ": text", text, seen);
    Expect(name + ": buttons", 1, buttons);
    const LRESULT sign = SendMessageA(icon, STM_GETICON, 0, 0);
    DWORD process = 0;
    GetWindowThreadProcessId(box.Dialog, &process);
    Expect(name + ": the sign of an error",  // another process has other handles
           process == GetCurrentProcessId() ? sign == reinterpret_cast<LRESULT>(LoadIconA(nullptr, IDI_HAND))
                                            : sign != 0);
    box.Picture("box-" + name);
    PostMessageA(button, BM_CLICK, 0, 0);
    WaitFor(name + ": the button ends it", [&] { return box.Gone(); });
}

namespace {

std::string Events() {
    Message message{};
    message.What = Job::Events;
    Carry(message);
    return message.Data;
}

LONG Do(Job job) {
    Message message{};
    message.What = job;
    Carry(message);
    return message.Result;
}

struct Case {
    const char* name;
    const char* equipment;  // what is wrong with it; null: none is there
    const char* port;
    LONG open;  // result
    const char* text;
    const char* events;  // after the box
};

const Case Cases[] = {
    {"no-port", nullptr, "COM3", static_cast<LONG>(LINEERR_ALLOCATED),
     "Serial Port Problem - Check it and try again \n\nAccess Failed", ""},
    {"port-refused", nullptr, "COM4", static_cast<LONG>(LINEERR_ALLOCATED),
     "Serial Port conflict - Check it and try again\n\nAccess denied", ""},
    {"hardware", "silence on", "COM1", 0,
     "Hardware Problem - Please check:\n\n - the cable,\n - the PC serial port,\n - the VXC card.\n\n"
     "Trying to restart ... Click Ok to abort",
     "CLOSE "},
    {"no-response", "no-association on", "COM1", 0,
     "No response from PBX !\nThe Corvane Service Provider cannot run...\n\n- Check your PBX version.\n"
     " - Check your VXC setup.",
     "CLOSE "},
    {"other-set", "set type 1", "COM1", 0, "     Set Configuration Error\n\nYour set is not a 7120/7121 Corvane set",
     "CONNECTED INSERVICE CLOSE "},
    {"no-multiline", "no-multi on", "COM1", 0, "     Set Configuration Error\n\nYour set has not a multiline config",
     "CONNECTED INSERVICE CLOSE "},
    {"trace-mode", "no-headers on", "COM1", 0, "     Set Configuration Error\n\nVXC setup error - Bad MAC/PC mode",
     "CONNECTED INSERVICE CLOSE "},
};

void Try(const Case& entry, const char* library) {
    const std::string name = entry.name;
    ClearSettings();
    WriteSetting("Provider", "Port", entry.port);
    if (entry.equipment != nullptr)
        Ask(std::string("equipment ") + entry.equipment);
    if (!LoadTsp(library))
        return;
    Expect(name + ": starting the provider", 0, Do(Job::Start));
    Expect(name + ": opening the line", entry.open, Do(Job::OpenLine));
    TryBox(name, entry.text);
    std::string events;
    WaitFor(name + ": " + entry.events, [&] { return (events += Events()) == entry.events; });
    Do(Job::CloseLine);
    Expect(name + ": stopping the provider", 0, Do(Job::Stop));
    Expect(name + ": events", entry.events, events + Events());
    UnloadTsp();
}

}  // namespace

void TryBoxes(const char* library) {
    for (const Case& entry : Cases)
        Try(entry, library);
}
