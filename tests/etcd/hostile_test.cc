// SPDX-License-Identifier: Apache-2.0
//
// The agent's parts with a server whose replies have the right form and are still wrong.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "agent/changes.hpp"
#include "agent/mirror.hpp"
#include "agent/status.hpp"
#include "etcd/fake_gateway.hpp"
#include "gateway/base64.hpp"
#include "mirror_mark.hpp"
#include "support/sysdb.hpp"
#include "support/temp_dir.hpp"

namespace {

using namespace sysdb_etcd;
using namespace etcd_test;

constexpr char kHead[] = R"("header":{"cluster_id":"1","member_id":"2","revision":"9"})";

std::string item(const std::string &key, const std::string &value, int revision = 3) {
    std::string text = R"({"mod_revision":")" + std::to_string(revision) + R"(","key":")";
    append_base64(text, key);
    text += R"(","value":")";
    append_base64(text, value);
    return text + "\"}";
}

class EtcdHostile : public ::testing::Test {
  protected:
    // One for all tests: a process takes up to a second to see that there is another one.
    static void SetUpTestSuite() { sandbox_ = new DatabaseSandbox; }
    static void TearDownTestSuite() { delete sandbox_; }
    // As "aaactl cluster join" leaves it to the agent.
    EtcdHostile() {
        sysdb_lmdb::become_the_mirrors_writer();
        sysdb_lmdb::ChangedKeys changed;
        EXPECT_EQ(0u, sysdb_lmdb::store_mirrored({}, {0, 0, names_.prefix()}, changed));
    }

    template <typename Done>
    void run_until(Done done) {
        const net::Time until = net::Loop::clock() + 30 * net::kSecond;
        while (!done() && net::Loop::clock() < until) {
            loop_.run_once(until);
        }
        EXPECT_TRUE(done());
    }

    inline static DatabaseSandbox *sandbox_ = nullptr;
    net::Loop loop_;
    const Names names_{"/aaa", "node"};
};

// Symptom: the agent ended when the keys of the nodes were asked for and a shorter key came.
TEST_F(EtcdHostile, KeysThatWereNotAskedForAreNoNodes) {
    const std::string nodes = std::string("{") + kHead + ",\"kvs\":[" + item("a", "{}") + "," +
                              item("/aaa/nodes/", "{}") + "," + item("/zzz/nodes/x/state", "{}") + "," +
                              item("/aaa/nodes/right/state", R"({"revision":5,"time":6})") + "," +
                              item("/aaa/nodes/odd/state", R"([1])") + "]}";
    Server server([&](const std::string &request) {
        return http("200 OK", request.starts_with("POST /v3/kv/range") ? nodes : "{}");
    });
    Client client(loop_, address_of({server.url()}));
    Mirror mirror(loop_, client, names_);
    Changes changes(loop_, client, mirror, names_);
    Status status(loop_, client, mirror, changes, names_, {});
    std::string text;
    status.tell([&](std::string told) { text = std::move(told); });
    run_until([&] { return !text.empty(); });
    EXPECT_NE(std::string::npos,
              text.find(R"("nodes":[{"cluster_revision":0,"items":0,"node":"right","revision":5,"time":6}])"))
        << text;
}

std::string in_base64(const std::string &member, const std::string &value) {
    std::string text = '"' + member + "\":\"";
    append_base64(text, value);
    return text + '"';
}

// A thousand nodes write a line about themselves twice a minute, which each agent would get a thousand times.
TEST_F(EtcdHostile, WhatOtherNodesSayOfThemselvesIsNotWatched) {
    const std::string page = std::string("{") + kHead + ",\"kvs\":[" + item("/aaa/format", "1") + "]}";
    const std::string own = std::string("{") + kHead + "}";
    const auto result = [](const std::string &revision, const std::string &more) {
        return R"({"result":{"header":{"cluster_id":"1","member_id":"2","revision":")" + revision + "\"}" +
               more + "}}\n";
    };
    std::mutex mutex;
    std::vector<std::string> watches;
    std::vector<std::string> ranges;
    Server server([&](const std::string &request) {
        const std::lock_guard lock(mutex);
        if (request.starts_with("POST /v3/watch")) {
            watches.push_back(request);
            return http("200 OK", result("20", ",\"created\":true") + result("50", ""));
        }
        if (request.starts_with("POST /v3/kv/range")) {
            ranges.push_back(request);
        }
        return http("200 OK",
                    request.find(in_base64("key", "/aaa/nodes/node/")) != std::string::npos ? own : page);
    });
    Client client(loop_, address_of({server.url()}));
    Mirror mirror(loop_, client, names_);
    mirror.start();
    run_until([&] { return mirror.revision() == 50; });
    EXPECT_EQ(0u, mirror.items());
    const std::lock_guard lock(mutex);
    ASSERT_FALSE(watches.empty());
    EXPECT_NE(std::string::npos, watches[0].find("\"start_revision\":\"10\"")) << watches[0];
    for (const std::string &watch : watches) {
        EXPECT_NE(std::string::npos, watch.find(in_base64("key", "/aaa/cfg/"))) << watch;
        EXPECT_NE(std::string::npos, watch.find(in_base64("range_end", std::string("/aaa/format\0", 12))))
            << watch;
    }
    for (const std::string &range : ranges) {
        EXPECT_TRUE(range.find(in_base64("range_end", std::string("/aaa/format\0", 12))) !=
                        std::string::npos ||
                    range.find(in_base64("range_end", "/aaa/nodes/node0")) != std::string::npos)
            << range;
    }
}

// Symptom: an agent that read from such a server asked for ever, and took more memory with each reply.
TEST_F(EtcdHostile, KeysThatComeAgainAreNotRead) {
    for (const std::string &again : {item("/aaa/cfg/a", "abcdefgh"), item("/aaa/cfg/", "abcdefgh")}) {
        const std::string page = std::string("{") + kHead + ",\"kvs\":[" + item("/aaa/cfg/a", "abcdefgh") +
                                 "," + again + "],\"more\":true}";
        Server server([&](const std::string &) { return http("200 OK", page); });
        Client client(loop_, address_of({server.url()}));
        Mirror mirror(loop_, client, names_);
        mirror.start();
        run_until([&] { return mirror.trouble().find("order") != std::string::npos; });
        EXPECT_EQ(Mirror::State::kConnecting, mirror.state());
        EXPECT_EQ(0u, mirror.items());
        EXPECT_GT(5, server.requests());
    }
}

// Symptom: under load an agent read all of the configuration again, and refused changes meanwhile, because
// the stream had been faster than the reply to a poll.
TEST_F(EtcdHostile, AReplyThatIsOlderThanTheStreamIsNoReset) {
    std::mutex mutex;
    std::condition_variable changed;
    unsigned loads = 0;
    unsigned streams = 0;
    unsigned polls = 0;
    bool is_at_twelve = false;
    const auto header = [](int revision) {
        return R"("header":{"cluster_id":"1","member_id":"2","revision":")" + std::to_string(revision) +
               "\"}";
    };
    Server server([&](const std::string &request) -> std::string {
        std::unique_lock lock(mutex);
        if (request.starts_with("POST /v3/watch")) {
            // The change is sent when a poll is on its way; the stream stays open.
            ++streams;
            changed.wait_for(lock, std::chrono::seconds(30), [&] { return polls > 0; });
            const std::string lines = "{\"result\":{" + header(9) + R"(,"created":true}})" + "\n" +
                                      "{\"result\":{" + header(12) + R"(,"events":[{"kv":)" +
                                      item("/aaa/cfg/a", std::string("\0\0\0\2\0\0\0\1", 8), 12) + "}]}}\n";
            return "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + lines;
        }
        if (request.find(in_base64("key", names_.changed())) == std::string::npos) {
            ++loads;
            const bool is_own = request.find(in_base64("key", names_.own())) != std::string::npos;
            return http("200 OK", "{" + header(9) +
                                      (is_own ? "}" : ",\"kvs\":[" + item(names_.format(), kFormat) + "]}"));
        }
        ++polls;
        changed.notify_all();
        const bool is_first = polls == 1;
        changed.wait_for(lock, std::chrono::seconds(30), [&] { return is_at_twelve; });
        const int revision = is_first ? 10 : 12;
        return http("200 OK",
                    "{" + header(revision) + ",\"kvs\":[" + item(names_.changed(), "n", revision) + "]}");
    });
    Client client(loop_, address_of({server.url()}));
    Mirror mirror(loop_, client, names_);
    mirror.start();
    run_until([&] { return mirror.revision() == 12; });
    {
        const std::lock_guard lock(mutex);
        is_at_twelve = true;
        changed.notify_all();
    }
    run_until([&] { return mirror.cluster_revision() == 12; });
    EXPECT_EQ(Mirror::State::kFollowing, mirror.state()) << mirror.trouble();
    const std::lock_guard lock(mutex);
    EXPECT_EQ(2u, loads) << "of the configuration, and of what this node has written";
    EXPECT_EQ(1u, streams);
}

// Servers that were restored from a backup have given the revisions that a node has seen to other changes.
TEST_F(EtcdHostile, TheSameRevisionsMayBeOtherChanges) {
    for (const std::string last : {"n 1", "n 2"}) {
        std::mutex mutex;
        unsigned loads = 0;
        unsigned streams = 0;
        unsigned verifications = 0;
        const auto page = [&](const std::string &more) {
            return http("200 OK", std::string("{") + kHead + more + "}");
        };
        Server server([&](const std::string &request) -> std::string {
            const std::lock_guard lock(mutex);
            if (request.starts_with("POST /v3/watch")) {
                const std::string created =
                    std::string("{\"result\":{") + kHead + R"(,"created":true}})" + "\n";
                // The first stream ends.
                return ++streams == 1 ? http("200 OK", created)
                                      : "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + created;
            }
            const std::string changed = item(names_.changed(), loads == 0 || streams == 0 ? "n 1" : last, 8);
            if (request.find(in_base64("key", names_.own())) != std::string::npos) {
                return page("");
            }
            if (request.find(in_base64("key", names_.changed())) == std::string::npos) {
                ++loads;
                return page(",\"kvs\":[" + changed + "," + item(names_.format(), kFormat) + "]");
            }
            verifications += request.find(R"("revision":"9")") != std::string::npos;
            return page(",\"kvs\":[" + changed + "]");
        });
        Client client(loop_, address_of({server.url()}));
        Mirror mirror(loop_, client, names_);
        mirror.start();
        run_until([&] {
            const std::lock_guard lock(mutex);
            return streams == 2;
        });
        run_until([&] { return mirror.state() == Mirror::State::kFollowing; });
        const std::lock_guard lock(mutex);
        EXPECT_EQ(1u, verifications);
        EXPECT_EQ(last == "n 1" ? 1u : 2u, loads) << last;
    }
}

// A server drops what it gets while there is no leader. Symptom: one node in thirty waited for a second
// time-out of two seconds, long after the others had gone on.
TEST_F(EtcdHostile, ADroppedChangeIsSentAgainSoon) {
    constexpr net::Time kTime = 5 * net::kSecond;
    std::atomic<unsigned> tries = 0;
    Server server([&](const std::string &request) -> std::string {
        if (request.starts_with("POST /v3/kv/txn")) {
            ++tries;
            return "";
        }
        if (request.starts_with("POST /v3/watch")) {
            return "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" +
                   (std::string("{\"result\":{") + kHead + R"(,"created":true}})" + "\n");
        }
        const bool is_own = request.find(in_base64("key", names_.own())) != std::string::npos;
        return http("200 OK", std::string("{") + kHead +
                                  (is_own ? "}" : ",\"kvs\":[" + item(names_.format(), kFormat) + "]}"));
    });
    Client client(loop_, address_of({server.url()}));
    Mirror mirror(loop_, client, names_);
    Changes changes(loop_, client, mirror, names_);
    mirror.start();
    run_until([&] { return mirror.state() == Mirror::State::kFollowing; });
    cerrno outcome = 0;
    changes.make({{SYSDB_CHANGE_SET, SYSDB_TYPE_U32, "/cfg/a", "abcd"}}, net::Loop::clock() + kTime,
                 [&](cerrno rc, std::uint32_t) { outcome = rc; });
    run_until([&] { return outcome != 0; });
    EXPECT_EQ(SYSDB_ERR_OUTCOME_UNKNOWN, outcome);
    EXPECT_LE(4u, tries) << "two and a half of the longest time-outs fit in its time";
}

// Symptom: such a server took all memory of the machine.
TEST_F(EtcdHostile, MoreThanADatabaseCanHaveIsNotRead) {
    const ScopedEnv small("AAA_SYSDB_MAP_MIB", "1");
    int page = 0;
    Server server([&](const std::string &) {
        std::string items;
        for (int i = 0; i < 10; ++i) {
            char key[40];
            std::snprintf(key, sizeof key, "/aaa/cfg/%08d", page * 10 + i);
            items += (items.empty() ? "" : ",") + item(key, std::string(65536, 'x'));
        }
        ++page;
        return http("200 OK", std::string("{") + kHead + ",\"kvs\":[" + items + "],\"more\":true}");
    });
    Client client(loop_, address_of({server.url()}));
    Mirror mirror(loop_, client, names_);
    mirror.start();
    run_until([&] { return mirror.trouble().find("larger than") != std::string::npos; });
    EXPECT_EQ(Mirror::State::kCannotStore, mirror.state());
    EXPECT_EQ(0u, mirror.items());
}

std::string header_of(int cluster, int revision) {
    return R"("header":{"cluster_id":")" + std::to_string(cluster) + R"(","member_id":"2","revision":")" +
           std::to_string(revision) + "\"}";
}

// A configuration without items, and a stream of these lines.
std::string small_cluster(const std::string &request, const Names &names, const std::string &lines) {
    if (request.starts_with("POST /v3/watch")) {
        return http("200 OK", lines);
    }
    const bool is_own = request.find(in_base64("key", names.own())) != std::string::npos;
    return http("200 OK",
                "{" + header_of(1, 9) + (is_own ? "}" : ",\"kvs\":[" + item(names.format(), kFormat) + "]}"));
}

// Symptom: the reason was "Failed writing received data to disk/application".
TEST_F(EtcdHostile, AStreamThatTheServerRefusesSaysWhy) {
    const std::string created = R"("created":true,"canceled":true,)";
    const std::string denied = R"("cancel_reason":"rpc error: code = PermissionDenied desc = etcdserver: )";
    const std::pair<std::string, std::string> lines[] = {
        {"{\"result\":{" + header_of(1, 9) + "," + created + denied + "permission denied\"}}\n",
         "etcdserver: permission denied"},
        {R"({"error":{"grpc_code":14,"message":"etcdserver: no )"
         "\\u001b"
         R"(leader"}})"
         "\n",
         "etcdserver: no ?leader"},
        {"[]\n", "malformed"},
        {"{\"result\":{" + header_of(5, 9) + R"(,"created":true}})" + "\n", "another cluster"},
        {"{\"result\":{" + header_of(1, 9) + R"(,"events":[{"kv":)" + item("/aaa/cfg/a", "abcdefgh", 5) +
             "}]}}\n",
         "not in their order"}};
    for (const auto &[line, reason] : lines) {
        Server server(
            [&, &line = line](const std::string &request) { return small_cluster(request, names_, line); });
        Client client(loop_, address_of({server.url()}));
        Mirror mirror(loop_, client, names_);
        mirror.start();
        run_until([&] { return !mirror.trouble().empty(); });
        EXPECT_NE(std::string::npos, mirror.trouble().find(reason)) << mirror.trouble();
        EXPECT_EQ(std::string::npos, mirror.trouble().find("rpc error")) << mirror.trouble();
    }
}

// Symptom: the agent used several times the memory of a reply, which may have 64 MiB.
TEST_F(EtcdHostile, RepliesThatUseMuchMemoryAreNotRead) {
    std::string many = R"({"header":[0)";
    for (int i = 0; i < 5000000; ++i) {
        many += ",0";
    }
    const std::string deep = "{\"header\":" + std::string(1000000, '[');
    for (const auto &[reply, reason] :
         {std::pair<std::string, std::string>{deep, "is nested more than"}, {many + "]}", "has more than"}}) {
        Server server([&, &reply = reply](const std::string &) { return http("200 OK", reply); });
        Client client(loop_, address_of({server.url()}));
        Mirror mirror(loop_, client, names_);
        mirror.start();
        run_until([&] { return !mirror.trouble().empty(); });
        EXPECT_NE(std::string::npos, mirror.trouble().find(reason)) << mirror.trouble();
        Server streaming([&, &reply = reply](const std::string &request) {
            return small_cluster(request, names_, reply + "\n");
        });
        Client other(loop_, address_of({streaming.url()}));
        Mirror following(loop_, other, names_);
        following.start();
        run_until([&] { return !following.trouble().empty(); });
        EXPECT_NE(std::string::npos, following.trouble().find(reason)) << following.trouble();
    }
}

// Symptom: the state changed between two each second when all servers had lost their data.
TEST_F(EtcdHostile, AClusterThatLostItsDataHasOneState) {
    std::atomic<bool> is_empty = false;
    std::atomic<int> loads = 0;
    Server server([&](const std::string &request) -> std::string {
        if (!is_empty) {
            return request.starts_with("POST /v3/watch")
                       ? "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n{\"result\":{" + header_of(1, 9) +
                             R"(,"created":true}})" + "\n"
                       : small_cluster(request, names_, "");
        }
        loads += request.find(in_base64("key", names_.first())) != std::string::npos ? 1 : 0;
        return request.starts_with("POST /v3/watch")
                   ? http("200 OK", "{\"result\":{" + header_of(7, 1) + R"(,"created":true}})" + "\n")
                   : http("200 OK", "{" + header_of(7, 1) + "}");
    });
    Client client(loop_, address_of({server.url()}));
    Mirror mirror(loop_, client, names_);
    std::vector<Mirror::State> states;
    mirror.on_state([&] { states.push_back(mirror.state()); });
    mirror.start();
    run_until([&] { return mirror.state() == Mirror::State::kFollowing; });
    is_empty = true;
    run_until([&] { return mirror.state() == Mirror::State::kNoConfiguration; });
    states.clear();
    const int before = loads;
    run_until([&] { return loads >= before + 3; });
    EXPECT_EQ(std::vector<Mirror::State>{}, states);
    EXPECT_EQ(Mirror::State::kNoConfiguration, mirror.state()) << mirror.trouble();
}

}  // namespace
