#include "walk/walker.h"

#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "provider/lifecycle.h"
#include "support/fixture.h"
#include "trace/trace.h"

namespace Walk {

// --- the line ----------------------------------------------------------------------------------------------------------

void Walker::Configure() {
    Eq::SetConfiguration& config = Machine.config;
    config.omna = Chosen.Version;
    config.superFrames = Chosen.Super;
    config.multiMode = static_cast<std::uint8_t>(Chosen.MultiMode);
    config.piggyback = Once(2);
    config.keys = {{1, Eq::KindMulti, "4711"}, {2, Eq::KindMulti, "4711"}, {3, Eq::KindMulti, "4712"}};
    const bool modules = Chosen.Version >= 2 && Once(2);
    if (modules) {
        config.modules = {{2, false, 40}};
        config.keys.push_back({43, Eq::KindMulti, "4711"});
    }
    if (Chosen.Version >= 3) {  // others are told nothing of such keys
        for (const Eq::KeyConfiguration& key : {Eq::KeyConfiguration{7, Eq::KindSupervision, "4740"},
                                                {9, Eq::KindBoss, "4730"},
                                                {10, Eq::KindSecretary, "4731"},
                                                {11, Eq::KindOverflow, "4732"}})
            config.keys.push_back(key);
        if (modules)
            config.keys.push_back({45, Eq::KindSupervision, "4741"});
    }
    config.destinations = {{"4720", {Eq::FarEnd::Answers, 900, "DUPONT"}},
                           {"4721", {Eq::FarEnd::Busy, 500, ""}},
                           {"4722", {Eq::FarEnd::NeverAnswers, 0, "DURAND"}},
                           {"4723", {Eq::FarEnd::NotObtainable, 300, ""}}};
    config.eventsAfterDisplay = Once(3);
    config.prefixInEvents = Once(3);
    config.recallMs = Once(3) ? 8000 : 0;
}

void Walker::OpenLine() {
    TheBook.Forget();
    TheBook.Deaf = false;
    const LONG result =
        TSPI_lineOpen(LINE_ID, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11}), &Line, VERSION, LineNews);
    Say("lineOpen gives " + std::to_string(result));
    Phone = nullptr;
    Open = result == 0;
    Clean = Clean && Machine.set.calls.empty();
    if (!Open)
        Wrong("the line does not open");
    ++Out.Reopened;
    Watch();
}

void Walker::CloseLine() {
    Say("lineClose");
    if (TSPI_lineClose(Line) != 0)
        Wrong("lineClose failed");
    if (const TapiRequest* open = TheBook.Open())
        Wrong(open->Name + " is open after lineClose");
    TheBook.Forget();
    Open = false;
}

void Walker::Advance(std::uint32_t milliseconds) {
    const bool known = Tick.ConfigReceived;
    PlatformControl::Advance(milliseconds);
    Out.Milliseconds += milliseconds;
    Clean = Clean && (known || Machine.set.calls.empty());
    CheckAll();
}

void Walker::Load() {
    ResetProvider();
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    TraceMask = Chosen.PrintsAll ? 0xFF : 0;
    DWORD lines = 0, phones = 0, options = 0;
    TSPI_providerEnumDevices(PROVIDER_ID, &lines, &phones, nullptr, nullptr, nullptr);
    TSPI_providerInit(VERSION, PROVIDER_ID, LINE_ID, PHONE_ID, 1, 1, RequestNews, &options);
}

void Walker::Unload() {
    TSPI_providerShutdown(VERSION, PROVIDER_ID);
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}

// Whether nothing is under way on line, set or provider.
bool Walker::AtRest() {
    return Machine.card.flight.empty() && Machine.card.waiting.empty() && FifoCount(LINK_FIFO) == 0 &&
           Machine.NextDue(PlatformControl::Now()) > 20'000 && !Marks.MakeCallReport.Set && !Marks.MakeCallWatch.Set &&
           !Marks.DeferredMakeCall.Set && !Marks.FvTimer.Set && Tracking.OfferInfoCref == -1 &&
           Tracking.ForwardAckTicks == 0 && Link.AckWaitTicks == 0 && Tick.ConfigReceived;
}

bool Walker::Settle() {
    for (int i = 0; i < 60 && !Failed(); ++i) {
        if (AtRest())
            return true;
        Advance(2 * TICK);
    }
    return false;
}

// --- the walk ------------------------------------------------------------------------------------------------------------------

Outcome Walker::Go() {
    TheBook = Book{};
    TheBook.OnNews = [this](std::string news) { Say("    " + news); };
    PlatformControl::Reset();
    PlatformControl::MapPort("COM1", &Port);
    SetSetting("Provider", "Port", "COM1");
    Load();
    Configure();
    Resynchronise();
    static constexpr std::uint32_t Pauses[] = {0, 0, 100, 200, 500, 1000, 1500, 4000};
    while (!Failed() && Out.Actions < Chosen.Actions) {
        const int what = Below(100);
        const bool done = what < 33   ? ActOnSet()
                          : what < 60 ? ActFar()
                          : what < 87 ? Request()
                          : what < 93 ? Query()
                          : what < 98 ? ActLine()
                          : Once(5)   ? ActDevice()
                                      : false;
        if (!done)
            continue;
        ++Out.Actions;
        if (Chosen.PrintsAll)
            Say(SetText());
        CheckAll();
        Advance(Once(200) ? 30'000 : Pick(Pauses));
        if (Once(3))
            Compare();
        if (Machine.set.presses.size() > 1000)
            Machine.set.presses.clear();
        if (Machine.pbx.requests.size() > 1000)
            Machine.pbx.requests.clear();
        if (Once(150) && !Failed())
            Quieten();
        SuspectFor += Suspect != nullptr;
        if (!Failed() && (Spoilt != nullptr || SuspectFor > 10 || TheBook.CloseCame || Once(100)))
            Resynchronise();
    }
    Unload();
    PlatformControl::MapPort("COM1", nullptr);
    Out.Fault = TheBook.Fault;
    Out.Exceptions = TheBook.Exceptions;
    Out.Asked = TheBook.Asked;
    Out.Events = TheBook.Events;
    Out.Trail = {Trail.begin(), Trail.end()};
    TheBook = Book{};
    return Out;
}

Outcome Run(const Options& options) {
    return Walker(options).Go();
}

}  // namespace Walk
