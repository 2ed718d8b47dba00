// A machine in a browser: shows its state to all viewers, carries out what they press, and keeps the lanes: what goes
// over the wire in words, and what a program beside it adds.
#pragma once

#include "web/messages.h"
#include "web/server.h"
#include "zttrace/decode.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace Web {

class View {
public:
    // Observes the machine from here on, and must go before it; observers that it had are still called.
    explicit View(Equipment::Machine& machine);
    ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    // As those of Server.
    std::string Open(const std::string& place) { return server.Open(place); }
    const std::string& Link() const { return server.Link(); }
    std::vector<int> Handles() const { return server.Handles(); }
    std::size_t Viewers() const { return server.Viewers(); }

    // Takes what viewers have pressed and sends them what has changed. To be called after whatever moves the machine, and
    // NextDue() milliseconds later at the latest.
    void Step(std::uint32_t nowMs);
    std::uint32_t NextDue() const;
    // Carries out what a viewer has sent; false = the page would not say so.
    bool Take(Viewer viewer, const std::string& text);

    // --- for an application beside the set
    // Carries out a viewer's command and gives "", or why not. None: there is no application.
    std::function<std::string(const std::vector<std::string>& words)> onApplication;
    void ShowApplication(const ApplicationState& application);
    void AddTapi(const std::string& kind, const std::string& text);
    // Something that all viewers should notice: a request was refused.
    void Notice(const std::string& text) { server.SendAll(RefusedMessage(text)); }

private:
    Equipment::Machine& machine;
    Server server;
    TraceReader::Decoder decoder;
    std::function<void(const std::string&)> earlierLog;
    std::function<void(bool, Equipment::ByteSpan)> earlierFrame;
    std::deque<Line> kept;    // for who comes later
    std::vector<Line> fresh;  // not sent yet
    std::uint64_t lines = 0;
    std::string shown, shownApplication;
    std::uint32_t nowMs = 0, shownMs = 0;
    bool pending = false;  // the machine may have changed since it was shown

    void Add(Line line);
    void AddFrame(bool outgoing, Equipment::ByteSpan frame);
    void Join(Viewer viewer);
    void ShowSet();
};

}  // namespace Web
