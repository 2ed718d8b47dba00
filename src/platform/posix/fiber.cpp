// Fibers by ucontext. Sanitizers are told of each switch: they keep a shadow of the stack, or a history of the thread.
#include "platform/simulated/fiber.h"

#include <ucontext.h>

#include <cstdint>
#include <utility>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZT_ASAN
#endif
#if __has_feature(thread_sanitizer)
#define ZT_TSAN
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ZT_ASAN
#endif
#if defined(__SANITIZE_THREAD__)
#define ZT_TSAN
#endif
#ifdef ZT_ASAN
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef ZT_TSAN
#include <sanitizer/tsan_interface.h>
#endif

namespace Simulated {

namespace {

constexpr std::size_t STACK_SIZE = 1 << 20;  // bytes, as a thread on Windows has

// One side of a switch: its context, and what the sanitizers keep of it.
struct Side {
    ucontext_t context{};
    const void* bottom = nullptr;
    std::size_t size = 0;
    void* fakeStack = nullptr;
    void* history = nullptr;
};

void Switch(Side& from, Side& to, bool fromEnds = false) {
#ifdef ZT_ASAN
    __sanitizer_start_switch_fiber(fromEnds ? nullptr : &from.fakeStack, to.bottom, to.size);
#endif
#ifdef ZT_TSAN
    __tsan_switch_to_fiber(to.history, 0);
#endif
    swapcontext(&from.context, &to.context);
#ifdef ZT_ASAN
    __sanitizer_finish_switch_fiber(from.fakeStack, &to.bottom, &to.size);  // back from there
#endif
    static_cast<void>(fromEnds);
}

}  // namespace

struct Fiber::System {
    Side home, own;
    std::unique_ptr<char[]> stack{new char[STACK_SIZE]};  // the leak checker looks into it

    // makecontext passes on ints only.
    static void Begin(unsigned high, unsigned low) {
        auto& fiber = *reinterpret_cast<Fiber*>(static_cast<std::uintptr_t>(std::uint64_t{high} << 32 | low));
        System& its = *fiber.Its;
#ifdef ZT_ASAN
        __sanitizer_finish_switch_fiber(nullptr, &its.home.bottom, &its.home.size);
#endif
        fiber.Body();
        fiber.Ended = true;
        Switch(its.own, its.home, true);
    }
};

Fiber::Fiber(std::function<void()> body) : Body(std::move(body)), Its(new System) {
    Side& own = Its->own;
    own.bottom = Its->stack.get();
    own.size = STACK_SIZE;
#ifdef ZT_TSAN
    own.history = __tsan_create_fiber(0);
#endif
    getcontext(&own.context);
    own.context.uc_stack.ss_sp = Its->stack.get();
    own.context.uc_stack.ss_size = STACK_SIZE;
    const auto self = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(this));
    makecontext(&own.context, reinterpret_cast<void (*)()>(System::Begin), 2, static_cast<unsigned>(self >> 32),
                static_cast<unsigned>(self));
}

Fiber::~Fiber() {
#ifdef ZT_TSAN
    __tsan_destroy_fiber(Its->own.history);
#endif
}

void Fiber::Resume() {
#ifdef ZT_TSAN
    Its->home.history = __tsan_get_current_fiber();
#endif
    Switch(Its->home, Its->own);
}

void Fiber::Suspend() {
    Switch(Its->own, Its->home);
}

}  // namespace Simulated
