// SPDX-License-Identifier: Apache-2.0
//
// tests/tacacs/server.py as a process of a test, and the client's questions to it.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/address.hpp"
#include "net/descriptor.hpp"
#include "net/loop.hpp"
#include "support/temp_dir.hpp"
#include "tacacs/client.hpp"

namespace tacacs_test {

// The process of the server. One serves many tests: starting it takes longer than most of them.
struct ServerProcess {
    explicit ServerProcess(const std::string &file);
    // Ends it.
    ~ServerProcess();
    void signal(int number) const;
    void write(const std::string &line) const;

    pid_t id = -1;
    net::Descriptor input, output;
};

class TestServer {
  public:
    // Starts the server with the entries "listeners" and "users" as JSON.
    TestServer(net::Loop &loop, const std::string &listeners, const std::string &users);
    ~TestServer();

    net::Address address(const std::string &listener = "main") const;
    // A command of server.py.
    void command(const std::string &line);
    void kill();
    // Starts it again on the same ports.
    void restart();
    // Sends SIGSTOP or SIGCONT.
    void signal(int number);

    // What the server has reported so far; the loop reads it.
    std::vector<std::string> lines;
    // How many lines contain a text, with all that the server has reported until now.
    std::size_t seen(std::string_view text);
    // Runs the loop until there are as many such lines.
    void wait_for(std::string_view text, std::size_t times = 1);

  private:
    std::size_t count(std::string_view text) const;
    std::string write_settings();
    void read_ports();
    void read_lines();

    net::Loop &loop_;
    TempDir directory_;
    std::string listeners_, users_;
    std::map<std::string, int> ports_;
    std::unique_ptr<ServerProcess> process_;
    net::Watch watch_;
    std::string partial_;
};

// The listener of most tests.
inline constexpr char kMain[] = R"({"main": {}})";

// A loop, a server and a client of it.
struct Fixture {
    explicit Fixture(const std::string &users, const std::string &listeners = kMain)
        : server(loop, listeners, users) {
        settings.address = server.address();
        settings.secret = tacacs::SecretBytes("tac-secret");
        settings.timeout = 3600 * net::kSecond;  // ctest ends what hangs
        settings.idle_time = 3600 * net::kSecond;
        settings.user_time = 3600 * net::kSecond;
    }

    // The client must not have done what the protocol forbids.
    ~Fixture();

    // Made from the settings when it is needed first.
    tacacs::Client &get();
    void run_until(const std::function<bool()> &done) {
        while (!done()) {
            loop.run_once(INT64_MAX);
        }
    }

    // Ask, and run the loop until the outcome is there.
    tacacs::AuthenticationOutcome log_in(const tacacs::Start &start);
    tacacs::AuthenticationOutcome answer(std::string_view text);
    tacacs::AuthorizationOutcome authorize(std::string_view user, const std::vector<std::string> &arguments);
    tacacs::AccountingOutcome account(tacacs::Record record, std::string_view user,
                                      const std::vector<std::string> &arguments);

    net::Loop loop;
    TestServer server;
    tacacs::ServerSettings settings;
    std::unique_ptr<tacacs::Client> client;
    tacacs::Client::Id login = 0;  // the last one
};

inline const std::vector<std::string> kShow = {"service=shell", "cmd=show"};

// Asks many times, and counts the outcomes that are answers.
struct Crowd {
    Crowd(Fixture &fixture_of_test, int count, std::string_view user)
        : fixture(fixture_of_test), size(count) {
        for (int i = 0; i < size; ++i) {
            fixture.get().authorize({.user = user}, kShow, INT64_MAX,
                                    [this](const tacacs::AuthorizationOutcome &outcome) {
                                        ++outcomes;
                                        answers += outcome.result == tacacs::Result::kAnswer ? 1 : 0;
                                        texts.push_back(outcome.text);
                                    });
        }
    }
    void run() {
        fixture.run_until([this] { return outcomes == size; });
    }

    Fixture &fixture;
    int size;
    int outcomes = 0;
    int answers = 0;
    std::vector<std::string> texts;
};

tacacs::Start ascii(std::string_view user);
tacacs::Start pap(std::string_view user, std::string_view password);

}  // namespace tacacs_test
