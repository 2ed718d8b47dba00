// The one file that knows Boost.Beast.
#include "web/server.h"

#define BOOST_ERROR_CODE_HEADER_ONLY
#define BOOST_SYSTEM_NO_DEPRECATED
#include <boost/asio/ip/host_name.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <deque>
#include <list>
#include <optional>
#include <random>

namespace Web {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;

constexpr std::chrono::seconds RequestTime{15};  // for a whole request, and between two on one connection
constexpr std::chrono::seconds GoodbyeTime{5};   // for a viewer to agree to the WebSocket, or to its end
constexpr std::chrono::milliseconds AcceptPause{200};
constexpr std::uint32_t HeaderLimit = 8192;
constexpr std::uint32_t WaitMs = 500;     // with nothing to do; pings and time-outs are seen to then
constexpr std::uint32_t UnsentMs = 10;    // while a viewer is slow to take what it is sent
constexpr const char* LivePath = "live";  // of the WebSocket

constexpr const char* Policy = "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
                               "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

struct Place {
    asio::ip::address address;
    std::uint16_t port = 0;
};

bool ReadPort(std::string_view text, std::uint16_t& port) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc{} && end == text.data() + text.size();
}

// The name in front of ":PORT", without the brackets of an IPv6 address; `rest` is what follows it.
std::string HostPart(const std::string& text, std::string& rest) {
    const bool bracket = text.starts_with('[');
    const std::size_t end = bracket ? text.find(']') : text.find(':');
    rest = end == std::string::npos ? "" : text.substr(end + (bracket ? 1 : 0));
    return text.substr(bracket ? 1 : 0, end == std::string::npos ? end : end - (bracket ? 1 : 0));
}

bool ReadPlace(const std::string& text, Place& place) {
    std::string port, usualPort;
    std::string host = HostPart(text, port);
    const std::string usualHost = HostPart(std::string(DefaultPlace), usualPort);
    if (std::uint16_t number = 0; port.empty() && ReadPort(host, number)) {  // a port alone
        port = ":" + host;
        host.clear();
    }
    if (host.empty())
        host = usualHost;
    if (host == "localhost")
        host = usualHost;
    if (port.empty())
        port = usualPort;
    error_code error;
    place.address = asio::ip::make_address(host, error);
    return !error && port.starts_with(':') && ReadPort(std::string_view(port).substr(1), place.port);
}

std::string NewToken() {
    std::random_device random;  // the system's own, not a pseudo-random sequence
    std::string token;
    for (int i = 0; i < 4; ++i) {
        char text[9];
        std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(random()) & 0xFFFFFFFFu);
        token += text;
    }
    return token;
}

// As long for a wrong text as for the right one.
bool StartsWithSecret(std::string_view text, std::string_view secret) {
    if (text.size() < secret.size())
        return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < secret.size(); ++i)
        difference |= static_cast<unsigned char>(text[i]) ^ static_cast<unsigned char>(secret[i]);
    return difference == 0;
}

std::string Url(const std::string& host, std::uint16_t port, const std::string& path) {
    const bool six = host.find(':') != std::string::npos;
    return "http://" + (six ? "[" + host + "]" : host) + ":" + std::to_string(port) + path;
}

struct Message {
    std::shared_ptr<const std::string> text;
    int topic = 0;
};

}  // namespace

// One connection: requests for files, one after the other, or a viewer.
struct Connection;

struct Server::State {
    asio::io_context context{1};
    tcp::acceptor acceptor{context};
    asio::steady_timer pause{context};
    std::string link, prefix = "/";  // of every path; with the token where one is wanted
    asio::ip::address address;
    std::list<std::shared_ptr<Connection>> connections;
    Viewer next = 1;
    Server* server = nullptr;

    void Accept();
    bool HostAllowed(const std::string& field) const;
};

struct Connection : std::enable_shared_from_this<Connection> {
    using Request = http::request<http::empty_body>;

    Connection(Server::State& s, tcp::socket&& socket)
        : state(s), stream(std::move(socket)), handle(static_cast<int>(Socket().native_handle())), number(s.next++) {}

    Server::State& state;
    websocket::stream<beast::tcp_stream> stream;  // before the upgrade its lower layer alone is used
    beast::flat_buffer buffer;
    std::optional<http::request_parser<http::empty_body>> parser;
    http::response<http::span_body<const unsigned char>> answer;
    std::deque<Message> unsent;  // the first one is on its way
    std::size_t unsentBytes = 0;
    int handle;
    Viewer number;
    bool viewing = false, closed = false;

    beast::tcp_stream& Plain() { return stream.next_layer(); }
    tcp::socket& Socket() { return Plain().socket(); }

    void Drop() {
        if (closed)
            return;
        closed = true;
        error_code ignored;
        Socket().shutdown(tcp::socket::shutdown_both, ignored);
        Socket().close(ignored);
        state.connections.remove_if([this](const auto& entry) { return entry.get() == this; });
    }

    // --- files

    void ReadRequest() {
        parser.emplace();
        parser->header_limit(HeaderLimit);
        parser->body_limit(0);
        Plain().expires_after(RequestTime);
        http::async_read(Plain(), buffer, *parser, [self = shared_from_this()](error_code error, std::size_t) {
            if (error)
                return self->Drop();
            self->TakeRequest(self->parser->release());
        });
    }

    void TakeRequest(const Request& request) {
        const std::string host(request[http::field::host]);
        const std::string target(request.target());
        if (!state.HostAllowed(host))
            return Answer(request, http::status::forbidden);
        if (!StartsWithSecret(target, state.prefix))
            return Answer(request, http::status::not_found);
        const std::string path = target.substr(state.prefix.size(), target.find('?') - state.prefix.size());
        if (websocket::is_upgrade(request)) {
            if (path != LivePath || request[http::field::origin] != "http://" + host)
                return Answer(request, http::status::forbidden);
            return Upgrade(request);
        }
        if (request.method() != http::verb::get && request.method() != http::verb::head)
            return Answer(request, http::status::method_not_allowed);
        const std::string name = path.empty() ? "index.html" : path;
        const auto file =
            std::find_if(PageFiles.begin(), PageFiles.end(), [&](const PageFile& entry) { return entry.name == name; });
        Answer(request, file != PageFiles.end() ? http::status::ok : http::status::not_found,
               file != PageFiles.end() ? &*file : nullptr);
    }

    void Answer(const Request& request, http::status status, const PageFile* file = nullptr) {
        answer = {};
        answer.result(status);
        answer.version(request.version());
        answer.set("Content-Security-Policy", Policy);
        answer.set("X-Content-Type-Options", "nosniff");
        answer.set("Referrer-Policy", "no-referrer");
        answer.set("Cross-Origin-Resource-Policy", "same-origin");
        answer.set(http::field::cache_control, "no-store");
        answer.keep_alive(file != nullptr && request.keep_alive());
        if (file != nullptr) {
            answer.set(http::field::content_type, {file->type.data(), file->type.size()});
            answer.body() = {file->bytes.data(), file->bytes.size()};
        }
        answer.prepare_payload();
        if (request.method() == http::verb::head)
            answer.body() = {};
        http::async_write(Plain(), answer, [self = shared_from_this()](error_code error, std::size_t) {
            if (error || !self->answer.keep_alive())
                return self->Drop();
            self->ReadRequest();
        });
    }

    // --- a viewer

    void Upgrade(const Request& request) {
        Plain().expires_never();  // the WebSocket has time-outs of its own
        auto times = websocket::stream_base::timeout::suggested(beast::role_type::server);
        times.handshake_timeout = GoodbyeTime;
        stream.set_option(times);
        stream.read_message_max(MessageLimit);
        stream.text(true);
        stream.async_accept(request, [self = shared_from_this()](error_code error) {
            if (error)
                return self->Drop();
            self->viewing = true;
            if (self->state.server->onJoined)
                self->state.server->onJoined(self->number);
            self->ReadMessage();
        });
    }

    void ReadMessage() {
        stream.async_read(buffer, [self = shared_from_this()](error_code error, std::size_t) {
            if (error)
                return self->Drop();
            const std::string text = beast::buffers_to_string(self->buffer.data());
            self->buffer.consume(self->buffer.size());
            const auto& take = self->state.server->onMessage;
            if (!self->stream.got_text() || (take && !take(self->number, text)))
                return self->LetGo();
            self->ReadMessage();
        });
    }

    void LetGo() {
        viewing = false;
        stream.async_close(websocket::close_code::policy_error,
                           [self = shared_from_this()](error_code) { self->Drop(); });
    }

    void Queue(const Message& message) {
        if (message.topic != 0 && unsent.size() > 1) {
            const auto old = std::find_if(unsent.begin() + 1, unsent.end(),
                                          [&](const Message& entry) { return entry.topic == message.topic; });
            if (old != unsent.end()) {
                unsentBytes -= old->text->size();
                unsent.erase(old);
            }
        }
        unsent.push_back(message);
        unsentBytes += message.text->size();
        if (unsentBytes > UnsentLimit)
            return Drop();
        if (unsent.size() == 1)
            WriteNext();
    }

    void WriteNext() {
        stream.async_write(asio::buffer(*unsent.front().text),
                           [self = shared_from_this()](error_code error, std::size_t) {
                               if (error)
                                   return self->Drop();
                               self->unsentBytes -= self->unsent.front().text->size();
                               self->unsent.pop_front();
                               if (!self->unsent.empty() && self->viewing)
                                   self->WriteNext();
                           });
    }
};

void Server::State::Accept() {
    acceptor.async_accept([this](error_code error, tcp::socket socket) {
        if (error == asio::error::operation_aborted)
            return;
        if (error) {  // out of descriptors, say: not again at once
            pause.expires_after(AcceptPause);
            pause.async_wait([this](error_code cancelled) {
                if (!cancelled)
                    Accept();
            });
            return;
        }
        if (connections.size() < ViewerLimit) {
            error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            connections.push_back(std::make_shared<Connection>(*this, std::move(socket)));
            connections.back()->ReadRequest();
        }
        Accept();
    });
}

// A name that an attacker's name server cannot point at us: an address, or our own name.
bool Server::State::HostAllowed(const std::string& field) const {
    std::string port;
    const std::string host = HostPart(field, port);
    if (host == "localhost" || host == "127.0.0.1" || host == "::1")
        return true;
    error_code error;
    const asio::ip::address named = asio::ip::make_address(host, error);
    if (address.is_loopback())
        return !error && named == address;
    return !error || host == asio::ip::host_name(error);
}

Server::Server() : state(std::make_unique<State>()) {
    state->server = this;
}

Server::~Server() {
    // Everything pending holds its connection, and the context holds what is pending: closed first, then run out.
    error_code ignored;
    state->acceptor.close(ignored);
    state->pause.cancel();
    while (!state->connections.empty())
        state->connections.front()->Drop();
    state->context.poll();
}

std::string Server::Open(const std::string& place) {
    Place where;
    if (!ReadPlace(place, where))
        return "'" + place + "' is no ADDRESS:PORT, the address in digits";
    error_code error;
    const tcp::endpoint endpoint(where.address, where.port);
    state->acceptor.open(endpoint.protocol(), error);
#ifndef BOOST_ASIO_WINDOWS  // there it would let two programs have the same port
    if (!error)
        state->acceptor.set_option(asio::socket_base::reuse_address(true), error);
#endif
    if (!error)
        state->acceptor.bind(endpoint, error);
    if (!error)
        state->acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (error) {
        state->acceptor.close();
        return place + ": " + error.message();
    }
    const std::uint16_t port = state->acceptor.local_endpoint().port();
    state->address = where.address;
    std::string host = where.address.to_string();
    if (!where.address.is_loopback()) {
        state->prefix = "/" + NewToken() + "/";
        if (where.address.is_unspecified())
            if (const std::string own = asio::ip::host_name(error); !error)
                host = own;
    }
    state->link = Url(host, port, state->prefix);
    state->Accept();
    return "";
}

const std::string& Server::Link() const {
    return state->link;
}

void Server::Poll() {
    state->context.restart();
    state->context.poll();
}

std::vector<int> Server::Handles() const {
    std::vector<int> handles;
    if (state->acceptor.is_open())
        handles.push_back(static_cast<int>(state->acceptor.native_handle()));
    for (const auto& connection : state->connections)
        handles.push_back(connection->handle);
    return handles;
}

std::uint32_t Server::NextDue() const {
    const bool slow = std::any_of(state->connections.begin(), state->connections.end(),
                                  [](const auto& connection) { return !connection->unsent.empty(); });
    return slow ? UnsentMs : WaitMs;
}

void Server::Send(Viewer viewer, const std::string& text, int topic) {
    for (const auto& connection : state->connections)
        if (connection->number == viewer && connection->viewing) {
            const auto kept = connection;  // it may be dropped by this
            kept->Queue({std::make_shared<const std::string>(text), topic});
            return;
        }
}

void Server::SendAll(const std::string& text, int topic) {
    const auto shared = std::make_shared<const std::string>(text);
    const auto all = state->connections;  // some may be dropped by this
    for (const auto& connection : all)
        if (connection->viewing)
            connection->Queue({shared, topic});
}

std::size_t Server::Viewers() const {
    return static_cast<std::size_t>(std::count_if(state->connections.begin(), state->connections.end(),
                                                  [](const auto& connection) { return connection->viewing; }));
}

}  // namespace Web
