// An application's thread that asks for a configuration dialog, as TAPI would let it.
#pragma once

#include "service.h"

#include <functional>
#include <thread>

class Application {
public:
    // Runs `call` with the application's window as owner of the dialog.
    explicit Application(std::function<LONG(HWND)> call);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    // What the call gave, once it is over.
    LONG Result();
    bool OwnerEnabled() const { return IsWindowEnabled(owner) != 0; }

private:
    std::thread thread;
    HANDLE over = nullptr, shown = nullptr;
    HWND owner = nullptr;
    LONG result = 0;
};
