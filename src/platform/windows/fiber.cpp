// Windows' own fibers.
#include "platform/simulated/fiber.h"

#include <windows.h>

#include <utility>

namespace Simulated {

struct Fiber::System {
    void* own = nullptr;
    void* home = nullptr;

    static void CALLBACK Begin(void* parameter) {
        auto& fiber = *static_cast<Fiber*>(parameter);
        fiber.Body();
        fiber.Ended = true;
        fiber.Suspend();
    }
};

Fiber::Fiber(std::function<void()> body) : Body(std::move(body)), Its(new System) {
    Its->own = CreateFiber(0, System::Begin, this);
}

Fiber::~Fiber() {
    DeleteFiber(Its->own);
}

void Fiber::Resume() {
    Its->home = IsThreadAFiber() ? GetCurrentFiber() : ConvertThreadToFiber(nullptr);
    SwitchToFiber(Its->own);
}

void Fiber::Suspend() {
    SwitchToFiber(Its->home);
}

}  // namespace Simulated
