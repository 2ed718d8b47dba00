#include "web/view.h"

#include "equipment/script.h"

#include <algorithm>
#include <chrono>

namespace Web {

namespace {

constexpr std::size_t KeptLines = 400;   // of both lanes together
constexpr std::uint32_t LeastMs = 10;    // between two pictures: a page shows no more than that
constexpr std::uint32_t LongestMs = 20;  // the machine may change by itself while its loop waits
constexpr int SetTopic = 1, ApplicationTopic = 2;

std::int64_t WallMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

View::View(Equipment::Machine& m) : machine(m), earlierLog(m.onLog), earlierFrame(m.onFrame) {
    machine.onLog = [this](const std::string& text) {
        if (earlierLog)
            earlierLog(text);
        Add({0, 0, Line::Lane::Wire, "card", {text}, ""});
    };
    machine.onFrame = [this](bool outgoing, Equipment::ByteSpan frame) {
        if (earlierFrame)
            earlierFrame(outgoing, frame);
        AddFrame(outgoing, frame);
    };
    server.onJoined = [this](Viewer viewer) { Join(viewer); };
    server.onMessage = [this](Viewer viewer, const std::string& text) { return Take(viewer, text); };
}

View::~View() {
    machine.onLog = earlierLog;
    machine.onFrame = earlierFrame;
}

void View::Add(Line line) {
    line.number = ++lines;
    line.atMs = WallMs();
    kept.push_back(line);
    if (kept.size() > KeptLines)
        kept.pop_front();
    fresh.push_back(std::move(line));
}

// As the trace reader says it: the card's frames are received, the provider's are sent.
void View::AddFrame(bool outgoing, Equipment::ByteSpan frame) {
    Line line{0, 0, Line::Lane::Wire, outgoing ? "in" : "out", {}, Equipment::Hex(frame)};
    if (Equipment::FrameHolds(frame)) {
        const Equipment::ByteSpan item = Equipment::ItemOf(frame);
        const TraceReader::Dump dump{
            outgoing ? TraceReader::Dump::Received : TraceReader::Dump::Sent, {item.begin(), item.end()}, false, ""};
        for (const TraceReader::Said& said : decoder.Explain(dump))
            line.texts.push_back(said.text);
    } else {
        line.texts = {"damaged"};
    }
    Add(std::move(line));
}

void View::AddTapi(const std::string& kind, const std::string& text) {
    Add({0, 0, Line::Lane::Tapi, kind, {text}, ""});
}

void View::Join(Viewer viewer) {
    {
        const std::lock_guard lock(machine.guard);
        server.Send(viewer, SetMessage(machine));
    }
    if (!shownApplication.empty())
        server.Send(viewer, shownApplication);
    server.Send(viewer, LinesMessage({kept.begin(), kept.end()}));
}

bool View::Take(Viewer viewer, const std::string& text) {
    const std::optional<Ask> ask = ReadAsk(text);
    if (!ask)
        return false;
    std::string refusal;
    if (ask->whom == "set") {
        const std::string answer = Equipment::Execute(machine, ask->words, nowMs);
        refusal = Equipment::IsError(answer) ? answer.substr(answer.find(' ') + 1) : "";
    } else if (ask->whom == "application" && onApplication) {
        refusal = onApplication(ask->words);
    } else {
        return false;
    }
    if (!refusal.empty())
        server.Send(viewer, RefusedMessage(refusal));
    return true;
}

void View::ShowSet() {
    std::string now;
    {
        const std::lock_guard lock(machine.guard);
        now = SetMessage(machine);
    }
    shownMs = nowMs;
    if (now == shown)
        return;
    shown = now;
    server.SendAll(shown, SetTopic);
}

void View::ShowApplication(const ApplicationState& application) {
    const std::string now = ApplicationMessage(application);
    if (now == shownApplication)
        return;
    shownApplication = now;
    server.SendAll(shownApplication, ApplicationTopic);
}

void View::Step(std::uint32_t now) {
    nowMs = now;
    server.Poll();
    pending = nowMs - shownMs < LeastMs;
    if (!pending)
        ShowSet();
    if (!fresh.empty())
        server.SendAll(LinesMessage(fresh));
    fresh.clear();
    server.Poll();  // what was written at once makes room for what waits behind it
}

std::uint32_t View::NextDue() const {
    return std::min(pending ? LeastMs : LongestMs, server.NextDue());
}

}  // namespace Web
