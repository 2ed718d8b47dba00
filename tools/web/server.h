// The page's server: HTTP for the files that are compiled in, and a WebSocket to each viewer.
//
//     Server server;
//     if (auto error = server.Open("127.0.0.1:6232"); !error.empty()) ...
//     ... print server.Link() ...
//     while (...) { wait for one of server.Handles(), NextDue() milliseconds at most; server.Poll(); }
//
// It has no thread: everything happens in Poll, the calls to onJoined and onMessage too.
//
// Who may talk to it: on the own machine's addresses every browser page that this server has delivered; any other
// address takes the token that the link carries. Host and Origin are checked on both, so that no page from elsewhere
// can have a browser talk to it. What is too long, too slow or no text costs its sender the connection, and nobody else
// anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Web {

// A file of the page, compiled in: see embed.cmake.
struct PageFile {
    std::string_view name, type;
    std::span<const unsigned char> bytes;
};
extern const std::span<const PageFile> PageFiles;

constexpr std::size_t MessageLimit = 4096;      // bytes of a viewer's message
constexpr std::size_t ViewerLimit = 64;         // connections; further ones are closed at once
constexpr std::size_t UnsentLimit = 4'000'000;  // bytes that wait for a viewer who takes nothing: it is let go
constexpr std::string_view DefaultPlace = "127.0.0.1:6232";

using Viewer = std::uint64_t;  // a connection's number; never used again

class Server {
public:
    Server();
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Listens at "ADDRESS:PORT", "ADDRESS" or "PORT" (the rest as in DefaultPlace); port 0 is any free one. Gives "", or
    // what went wrong.
    std::string Open(const std::string& place);
    // What to open in a browser; with the token where one is wanted.
    const std::string& Link() const;

    // Does what can be done without waiting.
    void Poll();
    // The sockets to wait for, and how long at most.
    std::vector<int> Handles() const;
    std::uint32_t NextDue() const;

    // A viewer is there, who has been sent nothing yet.
    std::function<void(Viewer)> onJoined;
    // What a viewer says; false = it makes no sense, and the viewer is let go.
    std::function<bool(Viewer, const std::string&)> onMessage;

    // One that still waits for its turn is replaced by a later one with the same `topic` (0 = never).
    void Send(Viewer viewer, const std::string& text, int topic = 0);
    void SendAll(const std::string& text, int topic = 0);
    std::size_t Viewers() const;

    struct State;  // of server.cpp

private:
    std::unique_ptr<State> state;
};

}  // namespace Web
