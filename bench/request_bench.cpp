// What an application waits for: from the entry point of a request to the first byte at the port, from the set's answer
// to the event, and a query. The whole provider is open on a port that swallows what is written, on the test's clock.
#include "config/settings.h"
#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/control.h"
#include "platform/copy_text.h"
#include "platform/text.h"
#include "provider/process.h"
#include "thread/tick.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/model.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <new>

namespace {

std::atomic<long> Allocations = 0;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    ++Allocations;
    void* memory = std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using Clock = std::chrono::steady_clock;
constexpr int KEY = 1;

struct AnsweringPort : PlatformControl::PortDevice {
    std::array<std::uint8_t, 64> Incoming{};
    std::size_t Count = 0;
    Clock::time_point FirstByte;
    bool Written = false;

    void Write(std::span<const std::uint8_t>, std::uint32_t) override {
        if (!Written)
            FirstByte = Clock::now();
        Written = true;
    }
    std::size_t Available(std::uint32_t) override { return Count; }
    std::size_t Read(std::span<std::uint8_t> into, std::uint32_t) override {
        const std::size_t n = std::min(Count, into.size());
        std::copy_n(Incoming.begin(), n, into.begin());
        Count = 0;
        return n;
    }
};

int ConnectedEvents = 0;

void CALLBACK Heard(HTAPILINE, HTAPICALL, DWORD message, DWORD_PTR state, DWORD_PTR, DWORD_PTR) {
    if (message == LINE_CALLSTATE && state == LINECALLSTATE_CONNECTED)
        ++ConnectedEvents;
}
void CALLBACK Completed(DRV_REQUESTID, LONG) {}

// The line is open and the set known: one multi-line key, nothing under way.
struct OpenLine {
    AnsweringPort Port;
    HDRVLINE Line = nullptr;

    OpenLine() {
        PlatformControl::Reset();
        Process = ProcessRecord{};  // the link's benchmarks, run before, had a line mutex of their own
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        PlatformControl::MapPort("COM1", &Port);
        HKEY key = nullptr;
        RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Corvane\\TSpi_6200\\Provider", 0, nullptr, 0, KEY_ALL_ACCESS,
                        nullptr, &key, nullptr);
        RegSetValueExA(key, "Port", 0, REG_SZ, reinterpret_cast<const BYTE*>("COM1"), 5);
        RegCloseKey(key);
        DWORD lines = 0, phones = 0, options = 0;
        TSPI_providerEnumDevices(1, &lines, &phones, nullptr, nullptr, nullptr);
        TSPI_providerInit(0x20000, 1, 0, 0, 1, 1, Completed, &options);
        if (TSPI_lineOpen(0, nullptr, &Line, 0x20000, Heard) != 0)
            std::abort();
        ProviderState.DeviceState = DEVICE_IN_SERVICE;
        DynamicConfig = DynamicConfigRecord{};
        DynamicConfig.WaitDynamicConfig = 0;
        Tick.InitDataPending = false;
        Tick.ConfigReceived = true;
        Link.ProcessData = Link.TraceModeSeen = true;
        TouchTable[KEY].kind = TOUCH_MULTI;
        KeyLists.Multi.Append(KEY);
    }
    // Everything idle again, the line free to send.
    void Rest() {
        CallTable[0] = CallRecord{};
        TouchTable[KEY].calls = {-1, -1};
        TouchTable[KEY].icon = IDLE_ICON;
        Tracking = TrackingState{};
        Marks = RequestMarks{};
        FifoClear(LINK_FIFO);
        Link.AckWaitTicks = 0;
        Link.L2Sent = false;
        Link.LinkIdleTicks = 0;
        Port.Written = false;
    }
};

OpenLine& TheLine(bool superMessages) {
    static OpenLine line;
    TraceMask = 0;
    Link.SuperMsgSupported = superMessages;
    return line;
}

double Seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

// Argument: whether the card takes Super Messages.
void MakeCallToFirstByte(benchmark::State& state) {
    OpenLine& line = TheLine(state.range(0) != 0);
    long allocations = 0;
    for (auto _ : state) {
        line.Rest();
        HDRVCALL call = nullptr;
        const long before = Allocations;
        const auto start = Clock::now();
        const LONG result = TSPI_lineMakeCall(1, line.Line, nullptr, &call, "0145678901"_wide, 0, nullptr);
        allocations += Allocations - before;
        if (result != 1 || !line.Port.Written)
            state.SkipWithError("the call was not made");
        state.SetIterationTime(Seconds(line.Port.FirstByte - start));
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
    state.counters["frames"] = FifoCount(LINK_FIFO);
}
BENCHMARK(MakeCallToFirstByte)->Arg(0)->Arg(1)->UseManualTime();

// The ringing key turns active: one tick reads, decodes and reports it.
void AnswerToConnectedEvent(benchmark::State& state) {
    OpenLine& line = TheLine(false);
    for (auto _ : state) {
        line.Rest();
        CallTable[0].touch = KEY;
        CallTable[0].state = LINECALLSTATE_OFFERING;
        CallTable[0].Inbound = 1;
        TouchTable[KEY].calls[0] = 0;
        TouchTable[KEY].icon = INCOM_ICON;
        line.Port.Incoming = {0x05, FRAME_SYSTEM_TRACE, 0x47, KEY, 0x20, 0x20};
        SetChecksum(std::span(line.Port.Incoming).first(7));
        line.Port.Count = 7;
        const int before = ConnectedEvents;
        const auto start = Clock::now();
        SerialTick(nullptr, 0, 0, 0);
        state.SetIterationTime(Seconds(Clock::now() - start));
        if (ConnectedEvents != before + 1)
            state.SkipWithError("no CONNECTED in the first tick");
    }
}
BENCHMARK(AnswerToConnectedEvent)->UseManualTime();

void GetCallInfo(benchmark::State& state) {
    OpenLine& line = TheLine(false);
    line.Rest();
    CallTable[0].touch = KEY;
    CallTable[0].state = LINECALLSTATE_CONNECTED;
    CallTable[0].Inbound = 1;
    CopyText(CallTable[0].CallerAddress, "0145678901");
    CopyText(CallTable[0].CallerName, "DUPONT");
    CopyText(CallTable[0].CalledAddress, "4711");
    CopyText(CallTable[0].ConnectedName, "DUPONT");
    std::array<DWORD, 256> room{};
    auto* info = reinterpret_cast<LINECALLINFO*>(room.data());
    const long before = Allocations;
    for (auto _ : state) {
        info->dwTotalSize = sizeof room;
        if (TSPI_lineGetCallInfo(nullptr, info) != 0)
            state.SkipWithError("refused");
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(Allocations - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(GetCallInfo);

}  // namespace
