// What the hot paths cost: receiving frames, a filtered and a written trace line, an idle tick, the display.
// Run: build/native/zt_bench
#include "config/settings.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/control.h"
#include "platform/copy_text.h"
#include "provider/process.h"
#include "thread/tick.h"
#include "trace/trace.h"
#include "tracking/display.h"
#include "tracking/model.h"
#include "tracking/terminal.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>

namespace {

// A port that takes everything and has nothing to say.
struct NullPort : PlatformControl::PortDevice {
    void Write(std::span<const std::uint8_t>, std::uint32_t) override {}
    std::size_t Available(std::uint32_t) override { return 0; }
    std::size_t Read(std::span<std::uint8_t>, std::uint32_t) override { return 0; }
};

// One process for all: the library attached, a port open that swallows what is written, the link past its start.
struct Bench {
    NullPort Device;
    Bench() {
        PlatformControl::Reset();
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        PlatformControl::MapPort("COM1", &Device);
        Serial.Port =
            CreateFileA("COM1", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
        Tick.InitDataPending = false;
        Tick.ConfigReceived = true;
    }
};

void Prepare(std::int32_t mask) {
    static Bench bench;
    TraceMask = mask;
    Link.ProcessData = true;
    std::snprintf(Settings.SoftKeyLabels[SK_SECOND_CALL], 7, "2App  ");
}

// A whole frame of a type with this data.
std::array<std::uint8_t, 20> Frame(std::uint8_t type, std::span<const std::uint8_t> data) {
    std::array<std::uint8_t, 20> frame{};
    frame[0] = 18;
    frame[1] = type;
    std::memcpy(frame.data() + 2, data.data(), std::min<std::size_t>(data.size(), 17));
    SetChecksum(frame);
    return frame;
}

void Receive(benchmark::State& state, const std::array<std::uint8_t, 20>& frame, std::int32_t mask) {
    Prepare(mask);
    for (auto _ : state) {
        Link.LinkIdleTicks = 0;
        benchmark::DoNotOptimize(ProcessInput(static_cast<int>(frame.size()), frame.data()));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(frame.size()));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

// A frame of a type that is received, checked and dispatched, and needs no further work (not even an answer).
void ReceiveIgnoredFrame(benchmark::State& state) {
    Receive(state, Frame(0x7F, {}), 0);
}
BENCHMARK(ReceiveIgnoredFrame);

// A trace header with a command that needs no work, acknowledged.
void ReceiveAcknowledgedFrame(benchmark::State& state) {
    const std::uint8_t data[] = {0x01};
    Receive(state, Frame(FRAME_SYSTEM_TRACE, data), 0);
}
BENCHMARK(ReceiveAcknowledgedFrame);

// A display write of 14 characters, interpreted and acknowledged.
const std::uint8_t DisplayWrite[17] = {0x27, 0,   0,   'L', 'u', 'n', 'd', 'i', ' ',
                                       '2',  '4', ' ', '1', '4', ':', '0', '0'};
void ReceiveDisplayFrame(benchmark::State& state) {
    Receive(state, Frame(FRAME_SYSTEM_TRACE, DisplayWrite), 0);
}
BENCHMARK(ReceiveDisplayFrame);

void ReceiveDisplayFrameTraced(benchmark::State& state) {
    Receive(state, Frame(FRAME_SYSTEM_TRACE, DisplayWrite), 0x7F);
}
BENCHMARK(ReceiveDisplayFrameTraced);

void IdleTick(benchmark::State& state) {
    Prepare(0);
    for (auto _ : state) {
        Link.LinkIdleTicks = 0;
        SerialTick(nullptr, 0, 0, 0);
    }
}
BENCHMARK(IdleTick);

void FilteredTraceLine(benchmark::State& state) {
    Prepare(0);
    int value = 0;
    for (auto _ : state) {
        Trace(TRACE_CALL, "Icone:%d - Etat:CONNECTED - Ref:%d", value, 3);
        benchmark::DoNotOptimize(++value);
    }
}
BENCHMARK(FilteredTraceLine);

void WrittenTraceLine(benchmark::State& state) {
    Prepare(TRACE_CALL);
    for (auto _ : state)
        Trace(TRACE_CALL, "Icone:%d - Etat:CONNECTED - Ref:%d", 12, 3);
}
BENCHMARK(WrittenTraceLine);

// A soft-key line under a call in conversation: every label is looked for, and nothing changes.
void InterpretDisplayLine(benchmark::State& state) {
    Prepare(0);
    static constexpr const char* Labels[] = {"2App", "Fin2Ap", "VaVien", "Conf", "FreqV", "StopV", "Transf"};
    for (std::size_t i = 0; i < std::size(Labels); ++i)
        CopyText(Settings.SoftKeyLabels[i], Labels[i]);
    TouchTable[1].kind = TOUCH_MULTI;
    TouchTable[1].icon = ACTIV_ICON;
    TouchTable[1].calls[0] = AllocCallRecord(LINECALLSTATE_CONNECTED, 1);
    Tracking.ActivCallTouch = 1;
    std::memcpy(Display.Lines[1], "Menu    Repert  Conf            Suite   ", 40);
    for (auto _ : state)
        InterpretDisplay(1, 1);
    AllCallReset();
}
BENCHMARK(InterpretDisplayLine);

}  // namespace

BENCHMARK_MAIN();
