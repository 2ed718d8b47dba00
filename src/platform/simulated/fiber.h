// A flow of control with a stack of its own, that runs on whatever thread resumes it. Under the test clock the product's
// threads are fibers: one thread at a time goes on then anyway, and a hand-over between threads of the system costs more
// than what is done between two of them. Per system: posix/fiber.cpp, windows/fiber.cpp.
#pragma once

#include <functional>
#include <memory>

namespace Simulated {

class Fiber {
public:
    // `body` runs at the first Resume; it must not throw. A fiber that is destroyed before its body has ended does not
    // unwind: what stands on its stack is lost.
    explicit Fiber(std::function<void()> body);
    ~Fiber();
    void Resume();   // runs it until it suspends itself or ends; from outside any fiber
    void Suspend();  // from inside
    bool Over() const { return Ended; }

private:
    struct System;
    friend struct System;
    std::function<void()> Body;
    bool Ended = false;
    std::unique_ptr<System> Its;
};

}  // namespace Simulated
