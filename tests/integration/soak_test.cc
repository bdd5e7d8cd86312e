// SPDX-License-Identifier: Apache-2.0
//
// The example server with thousands of clients, a third of which misbehave: they
// send garbage, half messages or wrong lengths, disconnect or stay silent. Every
// request of the others is answered correctly, nothing stalls, and nothing grows.
// No assertion depends on time; a stall ends at the test's time limit.
//
// AAA_SOAK_CLIENTS and AAA_SOAK_MINUTES make it longer; scripts/soak sets them.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "aaa/aaautil.h"
#include "soak_clients.hpp"
#include "soak_server.hpp"
#include "support/sysdb.hpp"

namespace {

using namespace soak;

#if defined(__SANITIZE_ADDRESS__)
constexpr unsigned kClients = 600;
constexpr bool kMemoryIsComparable = false;  // the sanitizer keeps what was freed
#else
constexpr unsigned kClients = 2000;
constexpr bool kMemoryIsComparable = true;
#endif
constexpr unsigned kAtATime = 32;
constexpr std::size_t kSilentAtATime = 64;
constexpr long kGrowthAllowed = 256;  // kibibytes, after the first round

class Soak : public testing::Test {
  protected:
    // A third of the clients misbehave, each kind in turn.
    void client(unsigned number) {
        Random random(20240229 + number);
        if (number % 3 == 0) {
            const auto what = static_cast<Mischief>(number / 3 % static_cast<unsigned>(Mischief::count));
            return misbehave(what, server_.socket(), random, parking_);
        }
        const Connection connection(server_.socket());
        for (unsigned left = 1 + number % 3; left > 0; --left) {
            const uint32_t id = ++last_id_;
            const Request request = make_request(random, id);
            expect_answered(connection, request);
            if (request.type == AAA_REQ_ACCT) {
                const std::lock_guard guard(lock_);
                accounted_.push_back(id);
            }
            ++answered_;
        }
    }

    // All clients of a round, many at a time, until the server has closed all their connections.
    void round(unsigned clients) {
        std::atomic<unsigned> next{0};
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kAtATime; ++i) {
            threads.emplace_back([&] {
                for (unsigned number = next++; number < clients && !HasFailure(); number = next++) {
                    SCOPED_TRACE(testing::Message() << "client " << first_ + number);
                    client(first_ + number);
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        first_ += clients;
        parking_.clear();
        expect_all_gone();
    }

    // In each exchange the server's loop runs once and handles a message or the
    // end of every client.
    void expect_all_gone() {
        const Connection connection(server_.socket());
        const Request ping = make_ping();
        for (unsigned turn = 0; turn < 100000; ++turn) {
            ASSERT_NO_FATAL_FAILURE(expect_answered(connection, ping));
            if (server_.descriptors() == descriptors_ + 1) {
                return;
            }
        }
        ADD_FAILURE() << "the server had " << descriptors_ << " descriptors before and holds "
                      << server_.descriptors() << " with one client";
    }

    // Each accounting request that was answered is in the file, once.
    void expect_accounted() {
        std::map<uint32_t, unsigned> records;
        std::istringstream lines(server_.accounting());
        for (std::string line; std::getline(lines, line);) {
            const std::size_t at = line.rfind("session=");
            ASSERT_NE(at, std::string::npos) << line;
            ++records[static_cast<uint32_t>(std::strtoul(line.c_str() + at + 8, nullptr, 10))];
        }
        for (const uint32_t id : accounted_) {
            EXPECT_EQ(records[id], 1u) << "session " << id;
        }
    }

    DatabaseSandbox sandbox_;
    SoakServer server_;
    std::size_t descriptors_ = server_.descriptors();
    Parking parking_{kSilentAtATime};
    unsigned first_ = 0;
    std::atomic<uint32_t> last_id_{0};
    std::atomic<uint64_t> answered_{0};
    std::mutex lock_;
    std::vector<uint32_t> accounted_;
};

TEST_F(Soak, EveryRequestIsAnsweredAndNothingGrows) {
    const unsigned clients = repetitions("AAA_SOAK_CLIENTS", kClients);
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::minutes(repetitions("AAA_SOAK_MINUTES", 0));
    round(clients);
    const long resident = server_.resident();
    unsigned rounds = 1;
    do {
        round(clients);
        ++rounds;
    } while (!HasFailure() && std::chrono::steady_clock::now() < end);
    if (kMemoryIsComparable) {
        EXPECT_LE(server_.resident(), resident + kGrowthAllowed)
            << "kibibytes, after " << rounds << " rounds";
    }
    EXPECT_GT(answered_.load(), uint64_t{clients} * rounds);
    EXPECT_GT(accounted_.size(), 0u);
    expect_accounted();
    std::printf("%u clients, %llu requests answered, resident %ld KiB after the first round, %ld after %u\n",
                first_, static_cast<unsigned long long>(answered_), resident, server_.resident(), rounds);
}

TEST_F(Soak, EndsInTheMiddleOfTraffic) {
    std::vector<std::thread> threads;
    std::atomic<bool> stopped{false};
    std::atomic<unsigned> served{0};
    for (unsigned i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            const Connection connection(server_.socket());
            const Request ping = make_ping();
            while (connection.send(ping.bytes) && !connection.receive().empty()) {
                ++served;
            }
            EXPECT_TRUE(stopped.load()) << "the server closed a valid client's connection";
        });
    }
    while (served < 1000) {
        std::this_thread::yield();
    }
    stopped = true;
    server_.stop();
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// No one reads the configuration that the server prints: see SoakServer.
TEST(SoakOutput, MayBeClosedByItsReader) {
    const DatabaseSandbox sandbox;
    const SoakServer server;
    const std::string client =
        std::string(AAA_EXAMPLES_DIR) + "/config_client " + server.socket() + " branch 192.0.2.40 >/dev/null";
    EXPECT_EQ(std::system(client.c_str()), 0);
    EXPECT_EQ(std::system(client.c_str()), 0);
}

// ---- More clients than the server's table holds ----------------------------------------

void expect_login_after(const SoakServer &server, unsigned silent) {
    Parking parking(silent);
    for (unsigned i = 0; i < silent; ++i) {
        parking.take(Connection(server.socket()));
    }
    Random random(1);
    const Connection connection(server.socket());
    expect_answered(connection, make_login(random));
    expect_answered(connection, make_request(random, 1));
}

TEST(SoakRoom, SilentClientsMakeRoomWhenTheTableIsFull) {
    const DatabaseSandbox sandbox;
    const SoakServer server;
    expect_login_after(server, 300);
}

TEST(SoakRoom, FewDescriptorsAreEnough) {
    const DatabaseSandbox sandbox;
    const SoakServer server(64);
    expect_login_after(server, 80);
    EXPECT_LE(server.descriptors(), 64u);
}

}  // namespace
