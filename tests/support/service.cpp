#include "support/service.h"

#include "link/tick.h"
#include "provider/process.h"
#include "trace/trace.h"

namespace {

constexpr DWORD LINE_BASE = 3, PHONE_BASE = 5, PROVIDER_ID = 9;

}  // namespace

void Service::SetUp() {
    PlatformControl::Reset();
    ResetProvider();
    CallbacksUnderTheMutex = true;
    ToldFirst = LINECALLSTATE_ONHOLD | LINECALLSTATE_DISCONNECTED | LINECALLSTATE_IDLE;
    TraceLines();
    Events();
    PlatformControl::MapPort("COM1", &Port);
    SetSetting("Provider", "Port", "COM1");
    TraceMask = 0;
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    TraceMask = 0xFF;
}

void Service::TearDown() {
    EXPECT_LE(PlatformControl::LongestTimer(), 200u) << "the port has held up a tick, and the line mutex with it";
    TSPI_providerShutdown(0x20000, PROVIDER_ID);
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    PlatformControl::MapPort("COM1", nullptr);
}

LONG Service::OpenLine() {
    OpenForCapture();
    const LINEEVENT lineEvent = ProviderState.LineEventProc;
    const ASYNC_COMPLETION completion = ProviderState.CompletionProc;
    const PHONEEVENT phoneEvent = ProviderState.PhoneEventProc;
    DWORD lines = 0, phones = 0, options = 0;
    EXPECT_EQ(TSPI_providerEnumDevices(PROVIDER_ID, &lines, &phones, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(lines, 1u);
    EXPECT_EQ(phones, 1u);
    EXPECT_EQ(TSPI_providerInit(0x20000, PROVIDER_ID, LINE_BASE, PHONE_BASE, lines, phones, completion, &options), 0);
    const LONG result =
        TSPI_lineOpen(LINE_BASE, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11}), &Line, 0x20000, lineEvent);
    ProviderState.PhoneEventProc = phoneEvent;  // as the phone's open would
    return result;
}

void Service::CloseLine() {
    EXPECT_EQ(TSPI_lineClose(Line), 0);
}

void Service::GoInService() {
    ASSERT_EQ(OpenLine(), 0);
    for (int i = 0; i < 200 && !Tick.ConfigReceived; ++i)
        Advance(100);
    ASSERT_TRUE(Tick.ConfigReceived) << "not in service after 20 s";
    Advance(1000);
}
