// The page's server, from outside: who may talk to it, what it takes, and that all viewers see the same.
#include "web/view.h"

#include "equipment/script.h"
#include "fuzz/start.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <list>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// A browser's side of one connection, as raw as it gets.
struct Client {
    int file = -1;
    std::string received;
    bool ended = false;

    explicit Client(std::uint16_t port) : file(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(file, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        fcntl(file, F_SETFL, O_NONBLOCK);
    }
    ~Client() { close(file); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Write(const std::string& bytes) { ended = send(file, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0 || ended; }

    // A whole frame, masked with zeroes. 1 = text, 2 = binary.
    void Say(const std::string& text, int kind = 1) {
        std::string frame{static_cast<char>(0x80 | kind)};
        if (text.size() < 126)
            frame += static_cast<char>(0x80 | static_cast<int>(text.size()));
        else
            frame +=
                {static_cast<char>(0xFE), static_cast<char>(text.size() >> 8), static_cast<char>(text.size() & 0xFF)};
        Write(frame + std::string(4, 0) + text);
    }

    void Take() {
        char buffer[65536];
        ssize_t count = 0;
        while ((count = recv(file, buffer, sizeof buffer, 0)) > 0)
            received.append(buffer, static_cast<std::size_t>(count));
        ended = ended || count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    }
};

struct WebServer : testing::Test {
    Equipment::Machine machine;
    Web::View view{machine};
    std::list<Client> clients;
    std::uint16_t port = 0;

    void Listen(const std::string& place = "127.0.0.1:0") {
        ASSERT_EQ(view.Open(place), "");
        const std::string& link = view.Link();
        port = static_cast<std::uint16_t>(std::stoi(link.substr(link.rfind(':') + 1)));
    }

    Client& Connect() { return clients.emplace_back(port); }

    template <class Done> bool Until(Done done) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        do {
            view.Step(static_cast<std::uint32_t>(std::chrono::steady_clock::now().time_since_epoch() /
                                                 std::chrono::milliseconds(1)));
            for (Client& client : clients)
                client.Take();
            if (done())
                return true;
        } while (std::chrono::steady_clock::now() < limit);
        return false;
    }

    // `host` with a # for the port.
    std::string At(std::string host) const {
        if (const std::size_t sign = host.find('#'); sign != std::string::npos)
            host.replace(sign, 1, std::to_string(port));
        return host;
    }

    // The first line of the answer; "" when the connection was closed without one.
    std::string Ask(const std::string& head) {
        Client& client = Connect();
        client.Write(head + "\r\n\r\n");
        EXPECT_TRUE(Until([&] { return client.ended || client.received.find("\r\n\r\n") != std::string::npos; }))
            << head;
        const std::string answer = client.received.substr(0, client.received.find("\r\n"));
        clients.pop_back();
        return answer;
    }

    void Upgrade(Client& client) const {
        client.Write("GET /live HTTP/1.1\r\nHost: " + At("127.0.0.1:#") + "\r\nOrigin: " + At("http://127.0.0.1:#") +
                     "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                     "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
    }

    Client& View() {
        Client& client = Connect();
        Upgrade(client);
        EXPECT_TRUE(Until([&] { return client.received.find("\"lines\"") != std::string::npos; }));
        EXPECT_THAT(client.received, StartsWith("HTTP/1.1 101 "));
        client.received.clear();
        return client;
    }
};

}  // namespace

TEST_F(WebServer, AnswersNobodyWhoComesUnderAnotherNameOrFromAnotherPage) {
    Listen();
    const std::string upgrade = "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                                "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==";
    const struct {
        std::string head, answer;
    } rows[] = {
        {"GET / HTTP/1.1\r\nHost: 127.0.0.1:#", "200 OK"},
        {"GET /set.js HTTP/1.1\r\nHost: localhost:#", "200 OK"},
        {"HEAD / HTTP/1.1\r\nHost: [::1]:#", "200 OK"},
        {"GET / HTTP/1.1\r\nHost: evil.example:#", "403 Forbidden"},  // a name that leads here
        {"GET / HTTP/1.1\r\nHost: 192.0.2.1:#", "403 Forbidden"},
        {"GET / HTTP/1.1", "403 Forbidden"},
        {"GET /../README.md HTTP/1.1\r\nHost: 127.0.0.1:#", "404 Not Found"},
        {"GET http://127.0.0.1/ HTTP/1.1\r\nHost: 127.0.0.1:#", "404 Not Found"},
        {"POST / HTTP/1.1\r\nHost: 127.0.0.1:#\r\nContent-Length: 0", "405 Method Not Allowed"},
        {"POST / HTTP/1.1\r\nHost: 127.0.0.1:#\r\nContent-Length: 5", ""},
        {"GET / HTTP/1.1\r\nHost: 127.0.0.1:#\r\nX: " + std::string(9000, 'x'), ""},
        {"\x16\x03\x01 no HTTP", ""},
        {"GET /live HTTP/1.1\r\nHost: 127.0.0.1:#" + upgrade, "403 Forbidden"},
        {"GET /live HTTP/1.1\r\nHost: 127.0.0.1:#\r\nOrigin: http://evil.example" + upgrade, "403 Forbidden"},
        {"GET /live HTTP/1.1\r\nHost: 127.0.0.1:#\r\nOrigin: http://127.0.0.1:1" + upgrade, "403 Forbidden"},
        {"GET /live HTTP/1.1\r\nHost: 127.0.0.1:#\r\nOrigin: null" + upgrade, "403 Forbidden"},
        {"GET /live HTTP/1.1\r\nHost: 127.0.0.1:#\r\nOrigin: http://127.0.0.1:#" + upgrade, "101 Switching Protocols"},
    };
    for (const auto& row : rows) {
        std::string head = At(At(row.head));
        EXPECT_EQ(Ask(head), row.answer.empty() ? "" : "HTTP/1.1 " + row.answer) << head.substr(0, 80);
    }
}

TEST_F(WebServer, OnAnyOtherAddressTakesTheTokenOfItsLink) {
    Listen("0.0.0.0:0");
    const std::string& link = view.Link();
    const std::string path = link.substr(link.find('/', 8));
    ASSERT_EQ(path.size(), 2 + 32u) << link;
    const std::string host = At(" HTTP/1.1\r\nHost: 192.0.2.7:#");
    EXPECT_THAT(Ask("GET " + path + host), HasSubstr("200"));
    EXPECT_THAT(Ask("GET " + path + "main.js" + host), HasSubstr("200"));
    EXPECT_THAT(Ask("GET /" + host), HasSubstr("404"));
    EXPECT_THAT(Ask("GET /main.js" + host), HasSubstr("404"));
    EXPECT_THAT(Ask("GET /" + std::string(32, '0') + "/" + host), HasSubstr("404"));
    EXPECT_THAT(Ask("GET " + path + At(" HTTP/1.1\r\nHost: evil.example:#")), HasSubstr("403"));
}

TEST_F(WebServer, WhatIsPressedBySomebodyIsSeenByAll) {
    Listen();
    for (int i = 0; i < 10; ++i)
        View();
    clients.front().Say(R"({"ask":"set","words":["incoming","1","4722","Zoé \"X\""]})");
    const auto seen = [](const Client& client) {
        return client.received.find("1:Zo\u00e9 \\\"X\\\"  4722") != std::string::npos;
    };
    EXPECT_TRUE(Until([&] { return std::all_of(clients.begin(), clients.end(), seen); }));
    // What cannot be done is said to who asked for it, and stays without effect.
    clients.back().Say(R"({"ask":"set","words":["incoming","1","4723"]})");
    EXPECT_TRUE(
        Until([&] { return clients.back().received.find("refused\":\"key 1 has a call") != std::string::npos; }));
    EXPECT_THAT(clients.front().received, Not(HasSubstr("refused\":\"")));
    EXPECT_EQ(machine.set.calls.size(), 1u);
}

TEST_F(WebServer, AMessageThatMakesNoSenseCostsItsSenderTheConnectionAndNobodyElseAnything) {
    Listen();
    Client& other = View();
    const std::string before = Equipment::Picture(machine);
    const struct {
        std::string text;
        int kind = 1;
    } rows[] = {
        {"incoming 1 4722"},
        {"[]"},
        {R"({"ask":"set"})"},
        {R"({"ask":"set","words":[]})"},
        {R"({"ask":"set","words":["incoming","1",4722]})"},
        {R"({"ask":"set","words":["incoming","1","4722"],"more":1})"},
        {R"({"ask":"set","words":["incoming","1","4722","a\u000ab"]})"},  // no line of its own on a console
        {R"({"ask":"set","words":["a","b","c","d","e","f","g","h","i","j","k","l","m","n","o","p","q"]})"},
        {R"({"ask":"application","words":["answer"]})"},  // none is there
        {R"({"ask":"set","words":["incoming","1","4722"]})", 2},
        {"{\"ask\":\"set\",\"words\":[\"incoming\",\"1\",\"" + std::string(4096, '4') + "\"]}"},
        {std::string(4000, '[')},
        {"\xFF\xFE"},
    };
    for (const auto& row : rows) {
        Client& client = View();
        client.Say(row.text, row.kind);
        const std::string goodbye = "\x88\x02\x03\xF0";  // policy violated
        EXPECT_TRUE(Until([&] { return client.ended || client.received.ends_with(goodbye); }))
            << row.text.substr(0, 70);
        clients.pop_back();
        EXPECT_TRUE(Until([&] { return view.Viewers() == 1; })) << row.text.substr(0, 70);
        EXPECT_EQ(Equipment::Picture(machine), before) << row.text.substr(0, 70);
    }
    other.Say(R"({"ask":"set","words":["off-hook"]})");
    EXPECT_TRUE(Until([&] { return other.received.find("Numero:") != std::string::npos; }));
    EXPECT_FALSE(other.ended);
}

TEST_F(WebServer, AViewerWhoTakesNothingIsLetGoAndTheOthersGoOn) {
    Listen();
    Client& other = View();
    {
        Client slow(port);  // nobody reads what comes to it
        Upgrade(slow);
        ASSERT_TRUE(Until([&] { return view.Viewers() == 2; }));
        const std::string text(100'000, '.');
        EXPECT_TRUE(Until([&] {
            other.received.clear();
            view.Notice(text);
            return view.Viewers() == 1;
        }));
    }
    EXPECT_FALSE(other.ended);
}

// What the fuzzer of these messages has been given by hand: as much as the sanitizers see in it.
TEST(PageMessages, OfTheCorpusHarmNothing) {
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ZT_CORPUS "/page")) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
        const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
        EXPECT_EQ(FuzzPage(input.data(), input.size()), 0) << entry.path();
        ++inputs;
    }
    EXPECT_GT(inputs, 0);
}
