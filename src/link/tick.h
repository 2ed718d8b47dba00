// What the tick counts, and what the rooms leave for it and ask of it. The tick itself stands in thread/tick.
#pragma once

#include <array>
#include <cstdint>

struct TickState {
    int WaitConfigCount = 0;       // ticks waited for the set's configuration
    bool DeviceAssocAck = false;   // the device association has been acknowledged
    bool ConfigReceived = false;   // the set's configuration is complete
    bool ConfigUsable = false;     // it may be used for calls
    int WaitTrace = 0;             // ticks waited for the card's first trace header ...
    int WaitTraceLimit = 250;      // ... and their limit
    bool SpStopped = false;        // the provider has stopped itself: the configuration never came
    bool InitDataPending = true;   // InitDatas still has to run
    bool StringInitError = false;  // a soft-key label or display string is missing from the store
    std::array<std::uint8_t, 1024> ReadBuffer{};
    int BlockedPause = 0;  // ticks until "Serial Port blocked" is shown again, after nobody could see it
    int Kept = 0;          // bytes of ReadBuffer kept from the previous read
};
inline TickState Tick;
