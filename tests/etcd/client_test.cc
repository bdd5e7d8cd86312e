// SPDX-License-Identifier: Apache-2.0
//
// Requests to servers that answer as they should, and to others.

#include "gateway/client.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "etcd/fake_gateway.hpp"

namespace {

using namespace sysdb_etcd;
using namespace etcd_test;

class EtcdClient : public ::testing::Test {
  protected:
    void run_until(const bool &done) {
        const net::Time until = net::Loop::clock() + 90 * net::kSecond;
        while (!done && net::Loop::clock() < until) {
            loop_.run_once(until);
        }
        EXPECT_TRUE(done) << "no answer";
    }
    Reply ask(Client &client, net::Time timeout = 60 * net::kSecond) {
        Reply result;
        bool done = false;
        client.call(
            kRangePath, "{}",
            [&](Reply reply) {
                result = std::move(reply);
                done = true;
            },
            timeout);
        run_until(done);
        return result;
    }

    net::Loop loop_;
};

TEST_F(EtcdClient, TakesReplies) {
    std::string seen;
    Server server([&](const std::string &request) {
        seen = request;
        return http("200 OK", "{\"a\":1}");
    });
    Client client(loop_, address_of({server.url()}));
    const Reply reply = ask(client);
    EXPECT_EQ(Reply::Kind::kOk, reply.kind) << reply.reason;
    EXPECT_EQ("{\"a\":1}", reply.body);
    EXPECT_EQ(0u, seen.find("POST /v3/kv/range HTTP/1.1\r\n")) << seen;
    EXPECT_EQ(std::string::npos, seen.find("Expect:"));
    EXPECT_EQ(std::string::npos, seen.find("Authorization:"));
}

TEST_F(EtcdClient, TellsRefusalsFromOpenOutcomes) {
    const std::pair<std::string, Reply::Kind> answers[] = {
        {http("400 Bad Request", R"({"error":"x","message":"etcdserver: request is too large","code":3})"),
         Reply::Kind::kRefused},
        {http("503 Service Unavailable", R"({"message":"etcdserver: request timed out","code":14})"),
         Reply::Kind::kLost},
        {http("500 Internal Server Error", R"({"message":"context deadline exceeded","code":4})"),
         Reply::Kind::kLost},
        {http("502 Bad Gateway", "<html>proxy</html>"), Reply::Kind::kLost},
        {http("302 Found", "", "Location: http://127.0.0.1:1/\r\n"), Reply::Kind::kLost},
        {"HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 100\r\n\r\n{\"cut\"", Reply::Kind::kLost},
        {"Connection: close, and no head at all\r\n", Reply::Kind::kLost}};
    for (const auto &[bytes, kind] : answers) {
        Server server([&bytes = bytes](const std::string &) { return bytes; });
        Client client(loop_, address_of({server.url()}));
        const Reply reply = ask(client);
        EXPECT_EQ(kind, reply.kind) << bytes << reply.reason;
        EXPECT_FALSE(reply.reason.empty());
    }
}

TEST_F(EtcdClient, ReasonsArePrintable) {
    Server server([](const std::string &) {
        return http("400 Bad Request", R"({"message":"a\u001b[31m\nb","code":3})");
    });
    Client client(loop_, address_of({server.url()}));
    EXPECT_EQ("a?[31m?b", ask(client).reason);
}

TEST_F(EtcdClient, AsksTheNextServerAfterAFailure) {
    Server server([](const std::string &) { return http("200 OK", "{}"); });
    Client client(loop_, address_of({nowhere(), server.url()}));
    EXPECT_EQ(Reply::Kind::kNotSent, ask(client).kind);
    EXPECT_EQ(1u, client.endpoint());
    EXPECT_EQ(Reply::Kind::kOk, ask(client).kind);
    EXPECT_EQ(1u, client.endpoint());
}

TEST_F(EtcdClient, SilentServerIsLeft) {
    Server silent([](const std::string &) { return std::string(); });
    Server server([](const std::string &) { return http("200 OK", "{}"); });
    Client client(loop_, address_of({silent.url(), server.url()}));
    EXPECT_EQ(Reply::Kind::kLost, ask(client, 100 * net::kMillisecond).kind);
    EXPECT_EQ(Reply::Kind::kOk, ask(client).kind);
}

TEST_F(EtcdClient, LargeReplyIsGivenUp) {
    const std::string large = http("200 OK", std::string(Transfers::kMostBytes + 1, ' '));
    Server server([&](const std::string &) { return large; });
    Client client(loop_, address_of({server.url()}));
    const Reply reply = ask(client);
    EXPECT_NE(Reply::Kind::kOk, reply.kind);
    EXPECT_TRUE(reply.too_large);
    EXPECT_EQ("the server's reply has more than 64 MiB", reply.reason);
}

TEST_F(EtcdClient, LongLineIsGivenUp) {
    const std::string large = http("200 OK", std::string(Transfers::kMostBytes + 1, ' '));
    Server server([&](const std::string &) { return large; });
    Client client(loop_, address_of({server.url()}));
    Reply result;
    bool ended = false;
    client.open_stream(kWatchPath, "{}",
                       {[](std::string_view) { return true; },
                        [&](const Reply &reply) {
                            result = reply;
                            ended = true;
                        }});
    run_until(ended);
    EXPECT_TRUE(result.too_large);
    EXPECT_EQ("a line of the server's stream has more than 64 MiB", result.reason);
}

TEST_F(EtcdClient, CallsAreNotMadeAfterItsEnd) {
    Server silent([](const std::string &) { return std::string(); });
    {
        Client client(loop_, address_of({silent.url()}));
        client.call(
            kRangePath, "{}", [](const Reply &) { ADD_FAILURE() << "called"; }, net::kMillisecond);
        loop_.run_once(0);
    }
    loop_.run_once(net::Loop::clock() + 50 * net::kMillisecond);
}

TEST_F(EtcdClient, TokenIsFetchedOnceAndRenewed) {
    std::atomic<int> tokens = 0;
    std::atomic<bool> forgets = false;
    Server server([&](const std::string &request) {
        if (request.find(kAuthenticatePath) != std::string::npos) {
            EXPECT_NE(std::string::npos, request.find(R"({"name":"u","password":"p"})"));
            return http("200 OK", "{\"token\":\"t" + std::to_string(++tokens) + "\"}");
        }
        const bool known =
            request.find("Authorization: t" + std::to_string(tokens) + "\r\n") != std::string::npos;
        if (known && !forgets.exchange(false)) {
            return http("200 OK", "{}");
        }
        return http("401 Unauthorized", R"({"message":"etcdserver: invalid auth token","code":16})");
    });
    ClusterAddress address = address_of({server.url()});
    address.user = "u";
    address.password = "p";
    Client client(loop_, address);
    EXPECT_EQ(Reply::Kind::kOk, ask(client).kind);
    EXPECT_EQ(Reply::Kind::kOk, ask(client).kind);
    EXPECT_EQ(1, tokens);
    forgets = true;
    EXPECT_EQ(Reply::Kind::kOk, ask(client).kind);
    EXPECT_EQ(2, tokens);
}

TEST_F(EtcdClient, TokenThatIsNeverTakenIsARefusal) {
    Server server([](const std::string &request) {
        return request.find(kAuthenticatePath) != std::string::npos
                   ? http("200 OK", "{\"token\":\"t\"}")
                   : http("401 Unauthorized", R"({"message":"etcdserver: invalid auth token","code":16})");
    });
    ClusterAddress address = address_of({server.url()});
    address.user = "u";
    address.password = "p";
    Client client(loop_, address);
    EXPECT_EQ(Reply::Kind::kRefused, ask(client).kind);
    EXPECT_EQ(4, server.requests());
}

// ---- streams

TEST_F(EtcdClient, StreamComesInLines) {
    Server server([](const std::string &request) {
        EXPECT_NE(std::string::npos, request.find("Grpc-Metadata-hasleader: true"));
        return std::string("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\none\n\ntwo\nthr");
    });
    Client client(loop_, address_of({server.url()}));
    std::vector<std::string> lines;
    bool ended = false;
    EXPECT_NE(0u, client.open_stream(kWatchPath, "{}",
                                     {[&](std::string_view line) {
                                          lines.emplace_back(line);
                                          return true;
                                      },
                                      [&](const Reply &) { ended = true; }}));
    run_until(ended);
    EXPECT_EQ((std::vector<std::string>{"one", "two"}), lines) << "what has no end is not a line";
}

TEST_F(EtcdClient, StreamCanBeEndedInALine) {
    const std::string answer = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n8\r\none\ntwo\n\r\n";
    Server server([&](const std::string &) { return answer; });
    Client client(loop_, address_of({server.url()}));
    int lines = 0;
    bool ended = false;
    client.open_stream(kWatchPath, "{}",
                       {[&](std::string_view) { return ++lines < 1; }, [&](const Reply &) { ended = true; }});
    run_until(ended);
    EXPECT_EQ(1, lines);

    bool cancelled = false;
    std::uint64_t stream = 0;
    stream = client.open_stream(kWatchPath, "{}",
                                {[&](std::string_view) {
                                     client.cancel(stream);
                                     cancelled = true;
                                     return false;
                                 },
                                 [](const Reply &) { ADD_FAILURE() << "called after its end"; }});
    run_until(cancelled);
    loop_.run_once(net::Loop::clock() + 20 * net::kMillisecond);
}

TEST_F(EtcdClient, RefusedStreamSaysWhy) {
    Server server([](const std::string &) {
        return http("400 Bad Request", R"({"message":"etcdserver: user name is empty","code":3})");
    });
    Client client(loop_, address_of({server.url()}));
    Reply result;
    bool ended = false;
    client.open_stream(kWatchPath, "{}",
                       {[](std::string_view) { return true; },
                        [&](const Reply &reply) {
                            result = reply;
                            ended = true;
                        }});
    run_until(ended);
    EXPECT_EQ(Reply::Kind::kRefused, result.kind);
    EXPECT_EQ("etcdserver: user name is empty", result.reason);
}

}  // namespace
