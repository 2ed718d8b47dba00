// For the tests of the entry points that ask the set for something: the line in service and a serial thread that "runs"
// (its handle is an event that is never set), so that requests are handed on and their presses stay in the queue.
#pragma once

#include "config/settings.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "provider/process.h"
#include "support/queue.h"
#include "support/tracked.h"

class Requesting : public TrackedSet {
protected:
    void SetUp() override {
        TrackedSet::SetUp();
        Process.SerialThread = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        WaitLineMutex();  // made, and traced, once
        ReleaseLineMutex(0);
        Fresh();
        ProviderState.DeviceState = DEVICE_IN_SERVICE;
        DynamicConfig.WaitDynamicConfig = 0;
        Link.TraceModeSeen = true;
        Steps();
    }
    void TearDown() override {
        EXPECT_FALSE(ReleaseMutex(Process.LineMutex)) << "every entry point has released the line mutex";
        CloseHandle(Process.SerialThread);
        TrackedSet::TearDown();
    }
    static HDRVCALL Handle(int cref) { return reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(cref)); }
    // The dispatcher completes every request with LINEERR_NODEVICE instead of running its handler.
    static void Stop() { Tick.SpStopped = true; }
    // Steps without the line that lists the entry point's arguments.
    static std::string StepsInside() {
        const std::string steps = Steps();
        const std::size_t bar = steps.find(" | ");
        return bar == std::string::npos ? "" : steps.substr(bar + 3);
    }
};

inline DWORD Code(LONG result) {
    return static_cast<DWORD>(result);
}
