// SPDX-License-Identifier: Apache-2.0
//
// aaad under load: two hundred clients at once, TACACS+ and RADIUS servers that come and go, and
// a configuration that changes all the time. Without variables a fixed number of rounds;
// scripts/load-service runs it for longer.
//
//   AAA_LOAD_SECONDS   rounds until so many seconds are over
//   AAA_LOAD_CLIENTS   clients at once, 200

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "radius/freeradius.hpp"
#include "service/groups/group_fixture.hpp"
#include "service/load/clients.hpp"
#include "tacacs/test_server.hpp"

namespace groups_test {
namespace {

using load_test::Counts;
using load_test::kUsers;
using load_test::LoadClient;

constexpr int kRounds = 12;  // beside the first two, which warm up
constexpr int kRequests = 20;

int number_from(const char *name, int otherwise) {
    const char *const value = std::getenv(name);
    return value != nullptr ? std::atoi(value) : otherwise;
}

std::string users_of_the_server() {
    std::string users = R"({"tia": {"password": "secret", "token": "4711"})";
    for (int i = 0; i < kUsers; ++i) {
        const std::string name = "u" + std::to_string(i);
        users += ", \"" + name + R"(": {"password": "secret", "message": "Hello )" + name +
                 R"(", "commands": [["permit", "show .*"]]})";
    }
    return users + "}";
}

std::string users_of_the_file() {
    const std::string hash = aaad_test::hash_of("secret");
    std::string users = "tia:" + hash + ":1\nbob:!:1\nalice:" + aaad_test::hash_of("wonderland") + ":1\n";
    for (int i = 0; i < kUsers; ++i) {
        users += "u" + std::to_string(i) + ":" + hash + ":1:show *\n";
    }
    return users;
}

// Of a process, from /proc.
struct Size {
    long kilobytes = 0;  // resident
    long descriptors = 0;
};

Size size_of(pid_t pid) {
    Size size;
    const std::string process = "/proc/" + std::to_string(pid);
    std::ifstream status(process + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            status >> size.kilobytes;
        }
    }
    const std::filesystem::directory_iterator all(process + "/fd");
    size.descriptors = std::distance(begin(all), end(all));
    return size;
}

class Load : public GroupTest {
  protected:
    void SetUp() override {
        add_server("tacacs", "127.0.0.1," + std::to_string(tacacs_.address().port()), "tac-secret", 2000);
        set_number("tacacs", "", "dead-time", 1);
        if (radius_test::FreeRadius::is_installed()) {
            freeradius_ = std::make_unique<radius_test::FreeRadius>();
            ASSERT_TRUE(freeradius_->usable()) << freeradius_->log();
            add_freeradius();
        }
        aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL});
        for (const char *function : {"authentication/login/", "authorization/commands/"}) {
            const std::string path = function;
            aaad_.list(path + "tacacs", {"corp", AAA_METHOD_LOCAL});
            aaad_.list(path + "radius", {"rad", AAA_METHOD_LOCAL});
            aaad_.list(path + "local", {AAA_METHOD_LOCAL});
        }
        aaad_.list("accounting/exec/tacacs", {"corp", AAA_METHOD_SYSLOG}, {0, 0, 0});
        aaad_.list("accounting/exec/radius", {"rad", AAA_METHOD_SYSLOG}, {0, 0, 0});
        aaad_.settings("lockout-failures 0\nlockout-source-failures 0\nhash-threads 2\nclients 1024\n");
        aaad_.users(users_of_the_file());
        aaad_.start();
    }

    void add_freeradius() {
        const std::string entry = "127.0.0.1," +
                                  std::to_string(freeradius_->authentication().address.port()) + "," +
                                  std::to_string(freeradius_->accounting().address.port());
        const std::string settings = "group-server/radius/rad/settings/";
        aaad_.text(settings + "key", seal("testing123"));
        aaad_.number(settings + "timeout", 200);
        aaad_.number(settings + "tries", 1);
        aaad_.number(settings + "dead-time", 1);
        aaad_.number("group-server/radius/rad/server/0/" + entry, 1);
    }

    // One step of those that disturb the service, in turn.
    void disturb() {
        switch (step_++ % 8) {
            case 0:
                set_number("tacacs", "", "timeout", 2000 + step_ % 100);
                break;
            case 1:
                tacacs_.kill();
                break;
            case 2:
                aaad_.signal(SIGHUP);
                break;
            case 3:
                tacacs_.restart();
                break;
            case 4:
                aaad_.users(users_of_the_file());
                break;
            case 5:
                pause(true);
                break;
            case 6:
                tacacs_.command("drop");
                break;
            case 7:
                pause(false);
                break;
        }
    }
    void pause(bool pauses) {
        if (freeradius_ != nullptr && pauses != std::exchange(is_paused_, pauses)) {
            pauses ? freeradius_->pause() : freeradius_->resume();
        }
    }
    // All servers answer.
    void settle() {
        pause(false);
        while (step_ % 8 == 2 || step_ % 8 == 3) {
            disturb();
        }
    }

    void round(int clients) {
        std::atomic<int> under_way = clients;
        std::vector<std::thread> threads;
        for (int i = 0; i < clients; ++i) {
            threads.emplace_back([this, &under_way, i] {
                LoadClient(aaad_.socket(), static_cast<unsigned>(i) + 1000 * rounds_, freeradius_ != nullptr,
                           counts_)
                    .run(kRequests);
                --under_way;
            });
        }
        while (under_way > 0) {
            const net::Time until = net::Loop::clock() + 20 * net::kMillisecond;
            while (net::Loop::clock() < until) {
                loop_.run_once(until);  // the server's lines are read, or it would wait
            }
            disturb();
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        ++rounds_;
        settle();
    }

    // Once aaad has noticed that all clients have left.
    Size settled_size() {
        Client client = aaad_.client();
        Size size;
        do {
            EXPECT_EQ(client.ping().result, AAA_OK);
            size = size_of(aaad_.pid());
        } while (size.descriptors > kMostDescriptors && !HasFailure());
        return size;
    }

    // More than aaad has for itself and its servers, fewer than its clients have.
    static constexpr long kMostDescriptors = 64;

    tacacs_test::TestServer tacacs_{loop_, tacacs_test::kMain, users_of_the_server()};
    std::unique_ptr<radius_test::FreeRadius> freeradius_;
    Counts counts_;
    unsigned rounds_ = 0;
    int step_ = 0;
    bool is_paused_ = false;
};

TEST_F(Load, EachRequestIsAnsweredOnceAndNothingGrows) {
    const int clients = number_from("AAA_LOAD_CLIENTS", 200);
    const int seconds = number_from("AAA_LOAD_SECONDS", 0);
    for (int i = 0; i < 2; ++i) {
        round(clients);
    }
    const Size warm = settled_size();
    const net::Time begin = net::Loop::clock();
    const std::uint64_t before = counts_.answered;
    const auto goes_on = [&] {
        return seconds > 0 ? net::Loop::clock() < begin + seconds * net::kSecond : rounds_ < 2 + kRounds;
    };
    while (goes_on() && counts_.complaint().empty() && !HasFailure()) {
        round(clients);
    }
    const double took = static_cast<double>(net::Loop::clock() - begin) / net::kSecond;
    const Size end = settled_size();
    EXPECT_EQ(counts_.answered, counts_.sent) << counts_.complaint() << "; " << aaad_.fate();
    EXPECT_EQ(counts_.wrong, 0u) << counts_.complaint();
    EXPECT_EQ(counts_.surplus, 0u) << counts_.complaint();
    EXPECT_LE(end.descriptors, kMostDescriptors);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LE(end.kilobytes, warm.kilobytes + warm.kilobytes / 4 + 2048);
#endif
    std::printf(
        "%llu answers of %llu requests in %.0f s (%.0f/s), %llu errors, %llu clients left early; "
        "resident %ld kB after warming up, %ld kB at the end; descriptors %ld, %ld\n",
        static_cast<unsigned long long>(counts_.answered), static_cast<unsigned long long>(counts_.sent),
        took, static_cast<double>(counts_.answered - before) / took,
        static_cast<unsigned long long>(counts_.errors), static_cast<unsigned long long>(counts_.left),
        warm.kilobytes, end.kilobytes, warm.descriptors, end.descriptors);
}

}  // namespace
}  // namespace groups_test
