#include "walk/walker.h"

#include "control/requests.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/tick.h"
#include "provider/process.h"
#include "support/fixture.h"
#include "trace/trace.h"

namespace Walk {

// --- the line ----------------------------------------------------------------------------------------------------------

std::string Walker::ChooseSet(const Options& options) {
    State = options.Seed * 2654435761u + 12345;
    const int modules = options.Version >= 2 && Once(2) ? 1 + Below(3) : 0;
    int extras = 0;
    for (const int extra : {MANY_KEYS, NO_SUPERVISION, PREFIX_SHOWN, ODD_CODES, NO_CODES, TRACED})
        extras |= Once(8) ? extra : 0;
    return LineOf("set", options.Version, options.Super, options.MultiMode, options.Misbehaves, Below(2), modules,
                  Below(3) == 0, Below(3) == 0, Once(3) ? 8000 : 0, extras);
}

// Version, super frames, mode of second calls, a misbehaving line, piggybacking, add-on modules, events after the display,
// the outside prefix in events, recall of held calls in ms, extras.
void Walker::Configure(Words& words) {
    Eq::SetConfiguration& config = Machine.config;
    config.omna = Version = words.Int();
    config.superFrames = words.Int() != 0;
    config.multiMode = static_cast<std::uint8_t>(MultiMode = words.Int());
    Misbehaves = words.Int() != 0;
    config.piggyback = words.Int() != 0;
    const int modules = words.Int();
    config.eventsAfterDisplay = words.Int() != 0;
    config.prefixInEvents = words.Int() != 0;
    config.recallMs = static_cast<std::uint32_t>(words.Int());
    Extras = words.Int();
    ConfigureKeys(modules);
    config.destinations = {{"4720", {Eq::FarEnd::Answers, 900, "DUPONT"}},
                           {"4721", {Eq::FarEnd::Busy, 500, ""}},
                           {"4722", {Eq::FarEnd::NeverAnswers, 0, "DURAND"}},
                           {"4723", {Eq::FarEnd::NotObtainable, 300, ""}}};
    if (Has(ODD_CODES))
        config.codes = {"6-1", "62", "6x3", "64", "60", "65", "66"};
    if (Has(NO_CODES))
        config.codes = {"61", "", "63", "-", "", "65", ""};
    if (Has(NO_SUPERVISION))
        SetSetting("SetConfig", "SupervService", "0");
    if (Has(PREFIX_SHOWN))
        SetSetting("Prefix", "ExtPrefixDisp", "1");
    if (Has(TRACED))
        TraceMask = 0xFF;
}

void Walker::ConfigureKeys(int modules) {
    Eq::SetConfiguration& config = Machine.config;
    static const Eq::ModuleConfiguration Modules[] = {{2, false, 40}, {3, true, 28}, {5, false, 60}};
    config.modules.assign(std::begin(Modules), std::begin(Modules) + modules);
    config.keys = {{1, Eq::KindMulti, "4711"}, {2, Eq::KindMulti, "4711"}, {3, Eq::KindMulti, "4712"}};
    if (Has(MANY_KEYS))  // key 30 is on the second module, which the set may not have
        for (const int key : {4, 5, 6, 30})
            config.keys.push_back({key, Eq::KindMulti, key == 4 ? "  4713" : key == 5 ? "" : "4713"});
    for (const int key : {43, 70})
        if (modules > 2 || (modules > 0 && key == 43))
            config.keys.push_back({key, Eq::KindMulti, "4711"});
    if (Version < 3)  // others are told nothing of the keys that follow
        return;
    for (const Eq::KeyConfiguration& key : {Eq::KeyConfiguration{7, Eq::KindSupervision, "4740"},
                                            {9, Eq::KindBoss, "4730"},
                                            {10, Eq::KindSecretary, "4731"},
                                            {11, Eq::KindOverflow, "4732"}})
        config.keys.push_back(key);
    if (modules > 0)
        config.keys.push_back({45, Eq::KindSupervision, "4741"});
    if (Has(MANY_KEYS))  // more than there are records for calls
        for (int key = 13; key <= 27; ++key)
            config.keys.push_back({key, Eq::KindSupervision, "47" + std::to_string(40 + key)});
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
    CrowdedFor = 0;
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

// The records start anew while the link runs, and the line hears nothing until it is opened again.
void Walker::OpenPhone() {
    const LONG result =
        TSPI_phoneOpen(PHONE_ID, reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x22}), &Phone, VERSION, PhoneNews);
    Say("phoneOpen gives " + std::to_string(result));
    TheBook.Forget();
    Open = false;
}

void Walker::ClosePhone() {
    Say("phoneClose");
    if (TSPI_phoneClose(Phone) != 0)
        Wrong("phoneClose failed");
    Phone = nullptr;
}

bool Walker::OnDevice(const std::string& verb) {
    if (verb == "phone-open")
        return OpenPhone(), true;
    if (verb == "open" ? Open : verb == "close" ? Line == nullptr : Phone == nullptr)
        return false;
    if (verb == "open")
        OpenLine();
    else if (verb == "close")
        CloseLine();
    else
        ClosePhone();
    Clean = Clean && Machine.set.calls.empty();
    return true;
}

void Walker::Advance(std::uint32_t milliseconds) {
    const bool known = Tick.ConfigReceived;
    Out.Milliseconds += milliseconds;
    for (; milliseconds > TICK; milliseconds -= TICK) {  // what makes a later fault suspect may be over soon
        PlatformControl::Advance(TICK);
        CrowdedFor += !Tick.ConfigReceived && (!Machine.card.waiting.empty() || FifoCount(LINK_FIFO) > 1);
        Watch();
    }
    PlatformControl::Advance(milliseconds);
    Clean = Clean && (known || Machine.set.calls.empty());
    CheckAll();
}

void Walker::Load() {
    ResetProvider();
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    TraceMask = PrintsAll || Listens || Has(TRACED) ? 0xFF : 0;
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

// The trace so far. The files never change: the provider's count of lines starts anew.
void Walker::See() {
    for (std::string& line : TraceLines())
        Seen.push_back(std::move(line));
    TraceLog.Counter = std::min(TraceLog.Counter, 1);
}

// --- the walk ------------------------------------------------------------------------------------------------------------------

void Walker::Start() {
    TheBook = Book{};
    TheBook.OnNews = [this](std::string news) { Say("    " + news); };
    PlatformControl::Reset();
    PlatformControl::MapPort("COM1", &Port);
    SetSetting("Provider", "Port", "COM1");
    Load();
}

void Walker::Finish() {
    Unload();
    PlatformControl::MapPort("COM1", nullptr);
    Out.Fault = TheBook.Fault;
    Out.Exceptions = TheBook.Exceptions;
    Out.Asked = TheBook.Asked;
    Out.Events = TheBook.Events;
    Out.Trail = {Trail.begin(), Trail.end()};
    TheBook = Book{};
}

std::vector<std::string> Walker::ChooseDevice() {
    const std::string pause = LineOf("wait", 500 * Below(8)), later = LineOf("wait", 500 * Below(8));
    if (Misbehaves && Once(10))  // the PBX never answers, and the provider stops
        return {"close", "line dead 0 0 0 0", "open", "wait 20000", ChooseOnLine(), ChooseOnLine(), ChooseRequest()};
    if (Once(2))
        return {"phone-open", pause, Once(2) ? "phone-close" : "close", "open", later, ChooseRequest()};
    if (Once(3))  // a request finds no link: it starts that, and fails
        return {"close", ChooseOnLine(), pause, "close", "open"};
    return {"close", "open", pause, ChooseRequest(), later, ChooseOnLine()};
}

std::vector<std::string> Walker::CallsOnAllKeys() {
    std::vector<std::string> lines;
    for (const Eq::KeyConfiguration& key : Machine.config.keys) {
        lines.push_back(LineOf("call", key.number, Number(), "-", 0, 0, 0, "-"));
        lines.push_back("wait 500");
    }
    for (int i = 0; i < 6; ++i) {
        lines.push_back(LineOf("key", AnyKey()));
        lines.push_back(ChooseOnSet());
        lines.push_back("wait 500");
    }
    return lines;
}

std::vector<std::string> Walker::Choose() {
    const int what = Below(1000);
    if (what >= 998)
        return ChooseDevice();
    if (what >= 994 && Has(MANY_KEYS))
        return CallsOnAllKeys();
    if (what >= 985 && Once(2))
        return {ChooseRaw()};
    return {what < 300 ? ChooseOnSet() : what < 570 ? ChooseFar() : what < 950 ? ChooseRequest() : ChooseLine()};
}

bool Walker::Perform(const std::string& line) {
    Words words(line);
    const std::string verb = words.Word();
    static constexpr const char* OfSet[] = {"dial", "release", "offhook", "handset", "softkey", "key", "lamp"};
    static constexpr const char* OfFar[] = {"call",        "far-hangs-up",  "far-rings", "far-answers", "far-busy",
                                            "far-diverts", "far-transfers", "recall",    "move",        "reserve",
                                            "show-caller", "call-waits",    "blank"};
    const auto among = [&](const auto& verbs) {
        return std::find(std::begin(verbs), std::end(verbs), verb) != std::end(verbs);
    };
    const auto told = [&](bool done) {
        if (done)
            Say(line);
        return done;
    };
    if (verb == "wait")
        Advance(static_cast<std::uint32_t>(words.Int()));
    else if (verb == "compare")
        Compare();
    else if (verb == "quiet")
        Quieten();
    else if (verb == "reopen")
        Resynchronise();
    else if (verb == "set")
        Configure(words);
    else if (among(OfSet))
        return told(OnSet(verb, words));
    else if (among(OfFar))
        return told(Far(verb, words));
    else if (verb == "raw")
        return Say(line), SendRaw(words.Text());
    else if (verb == "line")
        return Say(line), Misbehave(words);
    else if (verb == "close" || verb == "open" || verb == "phone-open" || verb == "phone-close")
        return OnDevice(verb);
    else if (verb == "query")
        return Query(words);
    else
        return Request(verb, words);
    return true;
}

bool Walker::Take(const std::string& line) {
    if (line.empty() || !Perform(line))
        return false;
    Out.Lines.push_back(line);
    if (PrintsAll)
        Say(SetText());
    CheckAll();
    if (Listens) {
        See();
        Listens(line, std::exchange(Seen, {}));
    }
    if (Machine.set.presses.size() > 1000)
        Machine.set.presses.clear();
    if (Machine.pbx.requests.size() > 1000)
        Machine.pbx.requests.clear();
    return true;
}

Outcome Walker::Go(const Options& options) {
    Start();
    Take(ChooseSet(options));
    if (Once(10))  // requests before the set has ever told its configuration
        for (const std::string& line :
             {std::string("open"), ChooseRequest(), ChooseRequest(), std::string("wait 3000"), ChooseRequest()})
            if (!Failed())
                Take(line);
    Take("reopen");
    static constexpr int Pauses[] = {0, 0, 100, 200, 500, 1000, 1500, 4000};
    while (!Failed() && Out.Actions < options.Actions) {
        long done = 0;
        for (const std::string& line : Choose())
            done += !Failed() && Take(line);
        if (!Failed() && TheBook.CloseCame && Once(3))  // an application that has not heard yet
            Take(ChooseRequest());
        if (!Failed() && (Spoilt != nullptr || SuspectFor > 10 || TheBook.CloseCame))
            Take("reopen");
        if (done == 0)
            continue;
        ++Out.Actions;
        SuspectFor += Suspect != nullptr;
        Out.Suspected += Suspect != nullptr;
        for (const std::string& line :
             {LineOf("wait", Once(200) ? 30'000 : Pick(Pauses)), std::string(Once(3) ? "compare" : ""),
              std::string(Once(150) ? "quiet" : ""), std::string(Once(100) ? "reopen" : "")})
            if (!Failed())
                Take(line);
    }
    Finish();
    return Out;
}

Outcome Walker::Go(const std::vector<std::string>& lines) {
    Start();
    for (const std::string& line : lines)
        if (!Failed() && Take(line))
            ++Out.Actions;
    Finish();
    return Out;
}

Outcome Run(const Options& options) {
    return Walker(options.PrintsAll).Go(options);
}

Outcome Run(const std::vector<std::string>& lines, bool printsAll) {
    return Walker(printsAll).Go(lines);
}

Outcome Run(const Options& options, const Listener& listener) {
    return Walker(false, listener).Go(options);
}

Outcome Run(const std::vector<std::string>& lines, const Listener& listener) {
    return Walker(false, listener).Go(lines);
}

// --- shortening ----------------------------------------------------------------------------------------------------------

std::string Kind(std::string fault) {
    for (char& c : fault)
        c = c >= '0' && c <= '9' ? '#' : c;
    return fault;
}

// By what a shorter walk counts as failing for the same reason: the fault, and the last event before it.
static std::string Cause(const Outcome& out) {
    const auto isEvent = [](const std::string& line) {
        return line.rfind("    ", 0) == 0 && line.rfind("    !!", 0) != 0;
    };
    const auto last = std::find_if(out.Trail.rbegin(), out.Trail.rend(), isEvent);
    return out.Fault.empty() ? "" : Kind(out.Fault + (last != out.Trail.rend() ? "\n" + *last : ""));
}

// Leaves out piece after piece, in halves first, then ever smaller ones, and goes on with what still fails. The first line,
// the set, stays.
std::vector<std::string> Shrink(const Outcome& fault) {
    std::vector<std::string> lines = fault.Lines;
    for (std::size_t piece = lines.size() / 2; piece > 0;) {
        bool shorter = false;
        for (std::size_t at = lines.size(); at > 1;) {
            const std::size_t from = at > piece ? std::max<std::size_t>(1, at - piece) : 1;
            std::vector<std::string> fewer = lines;
            fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(from),
                        fewer.begin() + static_cast<std::ptrdiff_t>(at));
            if (Cause(Run(fewer)) == Cause(fault)) {
                lines = std::move(fewer);
                shorter = true;
            }
            at = from;
        }
        if (!shorter || piece > 1)
            piece /= 2;
    }
    return lines;
}

}  // namespace Walk
