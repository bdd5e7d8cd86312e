// SPDX-License-Identifier: Apache-2.0

#include "metrics/server.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "support/temp_dir.hpp"

namespace metrics {
namespace {

class ServerTest : public testing::Test {
  protected:
    ServerTest() { registry.counter("aaad_logins_total", "Logins.").add(7); }

    std::unique_ptr<Server> make(const std::string &path) {
        settings.path = path;
        return std::make_unique<Server>(loop, registry, settings);
    }
    void start() {
        server = make(temp.path("metrics.sock"));
        std::string error;
        ASSERT_TRUE(server->open(error)) << error;
    }
    net::Descriptor connect() {
        net::Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        settings.path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::connect(client.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        return client;
    }
    static void put(const net::Descriptor &client, const std::string &text) {
        EXPECT_EQ(send(client.get(), text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    // Everything that the server sends until it closes.
    std::string answer(const net::Descriptor &client) {
        std::string text;
        for (;;) {
            char bytes[4096];
            const ssize_t got = recv(client.get(), bytes, sizeof bytes, 0);
            if (got > 0) {
                text.append(bytes, static_cast<std::size_t>(got));
            } else if (got == 0 || errno != EAGAIN) {
                return text;
            } else {
                loop.run_once(INT64_MAX);
            }
        }
    }
    std::string ask(const std::string &request) {
        const net::Descriptor client = connect();
        put(client, request);
        return answer(client);
    }
    static std::string status(const std::string &answer) { return answer.substr(0, answer.find('\r')); }

    TempDir temp;
    net::Loop loop;
    Registry registry;
    ServerSettings settings;
    std::unique_ptr<Server> server;
};

TEST_F(ServerTest, AnswersWithTheFigures) {
    start();
    const std::string text = registry.text();
    EXPECT_EQ(
        ask("GET /metrics HTTP/1.0\r\n\r\n"),
        "HTTP/1.0 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\nContent-Length: " +
            std::to_string(text.size()) + "\r\nConnection: close\r\n\r\n" + text);
    EXPECT_EQ(status(ask("GET /metrics?x=1 HTTP/1.1\r\nHost: aaa\r\nAccept: */*\r\n\r\n")),
              "HTTP/1.0 200 OK");
    EXPECT_EQ(status(ask("GET /metrics HTTP/1.0\n\n")), "HTTP/1.0 200 OK");
    EXPECT_EQ(server->connections(), 0U);
}

TEST_F(ServerTest, RefusesEverythingElse) {
    start();
    EXPECT_EQ(status(ask("GET / HTTP/1.0\r\n\r\n")), "HTTP/1.0 404 Not Found");
    EXPECT_EQ(status(ask("GET /metrics/../etc HTTP/1.0\r\n\r\n")), "HTTP/1.0 404 Not Found");
    EXPECT_EQ(status(ask("POST /metrics HTTP/1.0\r\n\r\n")), "HTTP/1.0 405 Method Not Allowed");
    for (const char *request :
         {"\r\n\r\n", "GET\r\n\r\n", "GET /metrics\r\n\r\n", "GET /metrics FTP/1.0\r\n\r\n", "x\n\n"}) {
        EXPECT_EQ(status(ask(request)), "HTTP/1.0 400 Bad Request") << request;
    }
    EXPECT_EQ(status(ask(std::string(kMaxRequest + 1, 'x'))), "HTTP/1.0 413 Request Entity Too Large");
}

TEST_F(ServerTest, TakesARequestInPieces) {
    start();
    const net::Descriptor client = connect();
    for (const char c : std::string("GET /metrics HTTP/1.0\r\n\r\n")) {
        put(client, std::string(1, c));
        loop.run_once(0);
    }
    EXPECT_EQ(status(answer(client)), "HTTP/1.0 200 OK");
}

TEST_F(ServerTest, WritesAnAnswerThatIsLargerThanTheSocketsBuffer) {
    for (int i = 0; i < 900; ++i) {
        registry.gauge("g", "G.", {{"l", std::to_string(i) + std::string(2000, 'x')}});
    }
    start();
    const std::string text = ask("GET /metrics HTTP/1.0\r\n\r\n");
    EXPECT_TRUE(text.ends_with("\r\n\r\n" + registry.text()));
}

TEST_F(ServerTest, EndsConnectionsThatDoNothing) {
    settings.patience = 0;
    start();
    const net::Descriptor silent = connect();
    EXPECT_EQ(answer(silent), "");
    EXPECT_EQ(server->connections(), 0U);
}

TEST_F(ServerTest, LimitsConnections) {
    settings.connections = 3;
    start();
    std::vector<net::Descriptor> clients;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(connect());
        loop.run_once(INT64_MAX);
        EXPECT_LE(server->connections(), 3U);
    }
    EXPECT_EQ(answer(clients[0]), "");  // closed for a newer one
    EXPECT_EQ(answer(clients[1]), "");
    put(clients[4], "GET /metrics HTTP/1.0\r\n\r\n");
    EXPECT_EQ(status(answer(clients[4])), "HTTP/1.0 200 OK");
}

TEST_F(ServerTest, SurvivesClientsThatLeave) {
    start();
    for (const char *request : {"", "GET /met", "GET /metrics HTTP/1.0\r\n\r\n"}) {
        net::Descriptor client = connect();
        put(client, request);
        client.reset();
        loop.run_once(INT64_MAX);
    }
    EXPECT_EQ(status(ask("GET /metrics HTTP/1.0\r\n\r\n")), "HTTP/1.0 200 OK");
    EXPECT_EQ(server->connections(), 0U);
}

// ---- the socket ---------------------------------------------------------------------------

TEST_F(ServerTest, GivesTheSocketItsMode) {
    settings.mode = 0640;
    const mode_t before = umask(0);
    start();
    umask(before);
    struct stat status = {};
    ASSERT_EQ(stat(settings.path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    server.reset();
    EXPECT_NE(stat(settings.path.c_str(), &status), 0);
}

TEST_F(ServerTest, ReplacesTheSocketOfADeadService) {
    {
        const net::Descriptor dead(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        temp.path("metrics.sock").copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(dead.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    start();
    EXPECT_EQ(status(ask("GET /metrics HTTP/1.0\r\n\r\n")), "HTTP/1.0 200 OK");
}

TEST_F(ServerTest, LeavesWhatIsNotItsOwn) {
    start();
    std::string error;
    EXPECT_FALSE(make(temp.path("metrics.sock"))->open(error));
    EXPECT_NE(error.find("is in use by another process"), std::string::npos) << error;
    EXPECT_FALSE(make(temp.write("file", "text"))->open(error));
    EXPECT_NE(error.find("is no socket; move it away"), std::string::npos) << error;
    EXPECT_EQ(temp.read("file"), "text");
    EXPECT_FALSE(make(std::string(200, 'x'))->open(error));
    EXPECT_NE(error.find("1 to 107 bytes"), std::string::npos) << error;
    EXPECT_FALSE(make(temp.path("no/such"))->open(error));
    EXPECT_NE(error.find("No such file"), std::string::npos) << error;
    settings.path = temp.path("metrics.sock");
    EXPECT_EQ(status(ask("GET /metrics HTTP/1.0\r\n\r\n")), "HTTP/1.0 200 OK");
}

}  // namespace
}  // namespace metrics
