#include "application.h"

#include "check.h"

#include <cstdlib>

Application::Application(std::function<LONG(HWND)> call)
    : over(CreateEventA(nullptr, TRUE, FALSE, nullptr)), shown(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
    thread = std::thread([this, call = std::move(call)] {
        owner = CreateWindowExA(0, "STATIC", "The application", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 40, 40, 300, 300,
                                nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
        SetEvent(shown);
        result = call(owner);
        Expect("the application's window is enabled again", OwnerEnabled());
        DestroyWindow(owner);
        SetEvent(over);
    });
    WaitForSingleObject(shown, INFINITE);
}

Application::~Application() {
    Result();
    thread.join();
    CloseHandle(over);
    CloseHandle(shown);
}

LONG Application::Result() {
    if (!WaitFor("the call of the application returns", [&] { return WaitForSingleObject(over, 0) == WAIT_OBJECT_0; }))
        std::exit(1);  // its thread hangs in a dialog: nothing more can be seen here
    return result;
}
