// SPDX-License-Identifier: Apache-2.0
//
// tests/tacacs/server.py as a process of a test.

#include "tacacs/test_server.hpp"
#include "support/send_signal.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

extern char **environ;

namespace tacacs_test {
namespace {

// Without a server a test would wait for ever.
[[noreturn]] void give_up(const std::string &why) {
    std::fprintf(stderr, "%s\n", why.c_str());
    std::exit(1);
}

std::string from_environment(const char *name) {
    const char *const value = std::getenv(name);
    if (value == nullptr) {
        give_up(std::string("set ") + name + ", or use ctest");
    }
    return value;
}

// The number that follows "name": in the server's first line.
std::map<std::string, int> ports_in(const std::string &line) {
    std::map<std::string, int> ports;
    for (std::size_t at = line.find('"'); at != std::string::npos; at = line.find('"', at)) {
        const std::size_t end = line.find('"', at + 1);
        const std::string name = line.substr(at + 1, end - at - 1);
        ports[name] = std::atoi(line.c_str() + line.find(':', end) + 1);
        at = end + 1;
    }
    return ports;
}

// The one that no test uses now.
std::unique_ptr<ServerProcess> &spare() {
    static std::unique_ptr<ServerProcess> process;
    return process;
}

}  // namespace

ServerProcess::ServerProcess(const std::string &file) {
    std::array<int, 2> to, from;
    if (pipe2(to.data(), O_CLOEXEC) != 0 || pipe2(from.data(), O_CLOEXEC) != 0) {
        give_up("no pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to[0], 0);
    posix_spawn_file_actions_adddup2(&actions, from[1], 1);
    std::string python = from_environment("AAA_PYTHON");
    std::string script = from_environment("AAA_TACACS_SERVER");
    std::string path = file;
    std::array<char *, 4> arguments = {python.data(), script.data(), path.data(), nullptr};
    if (posix_spawnp(&id, python.c_str(), &actions, nullptr, arguments.data(), environ) != 0) {
        give_up("cannot start " + python);
    }
    posix_spawn_file_actions_destroy(&actions);
    close(to[0]);
    close(from[1]);
    input = net::Descriptor(to[1]);
    output = net::Descriptor(from[0]);
}

ServerProcess::~ServerProcess() {
    signal(SIGCONT);
    input.reset();  // the end of its input ends it
    waitpid(id, nullptr, 0);
}

void ServerProcess::signal(int number) const {
    aaatest::send_signal(id, number);
}

void ServerProcess::write(const std::string &line) const {
    const std::string bytes = line + "\n";
    EXPECT_EQ(::write(input.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

TestServer::TestServer(net::Loop &loop, const std::string &listeners, const std::string &users)
    : loop_(loop), listeners_(listeners), users_(users) {
    const std::string file = write_settings();
    process_ = std::move(spare());
    if (process_ == nullptr) {
        process_ = std::make_unique<ServerProcess>(file);
    } else {
        process_->signal(SIGCONT);
        process_->write("configure " + file);
    }
    read_ports();
}

TestServer::~TestServer() {
    watch_.reset();
    spare() = std::move(process_);
}

std::string TestServer::write_settings() {
    std::string ports;
    for (const auto &[name, port] : ports_) {
        ports += (ports.empty() ? "\"" : ", \"") + name + "\": " + std::to_string(port);
    }
    return directory_.write("server.json", R"({"secret": "tac-secret", "listeners": )" + listeners_ +
                                               ", \"ports\": {" + ports + "}, \"users\": " + users_ + "}");
}

// Skips what the server has still reported to the test before.
void TestServer::read_ports() {
    const int output = process_->output.get();
    fcntl(output, F_SETFL, 0);
    std::string line;
    do {
        line.clear();
        char byte = 0;
        for (; read(output, &byte, 1) == 1 && byte != '\n';) {
            line += byte;
        }
        if (byte != '\n') {
            give_up("the server has not started");
        }
    } while (line[0] != '{');
    ports_ = ports_in(line);
    fcntl(output, F_SETFL, O_NONBLOCK);
    watch_ = net::Watch(loop_, output, EPOLLIN, [this](std::uint32_t) { read_lines(); });
}

void TestServer::read_lines() {
    std::array<char, 4096> buffer;
    const ssize_t size = read(process_->output.get(), buffer.data(), buffer.size());
    if (size == 0) {
        watch_.reset();
    }
    for (ssize_t i = 0; i < size; ++i) {
        if (buffer[static_cast<std::size_t>(i)] == '\n') {
            lines.push_back(std::exchange(partial_, {}));
        } else {
            partial_ += buffer[static_cast<std::size_t>(i)];
        }
    }
}

net::Address TestServer::address(const std::string &listener) const {
    const auto found = ports_.find(listener);
    EXPECT_NE(found, ports_.end()) << listener;
    return *net::Address::parse("127.0.0.1", static_cast<std::uint16_t>(found->second));
}

void TestServer::command(const std::string &line) {
    process_->write(line);
}

void TestServer::signal(int number) {
    process_->signal(number);
}

void TestServer::kill() {
    watch_.reset();
    process_->signal(SIGKILL);
    process_.reset();
}

void TestServer::restart() {
    process_ = std::make_unique<ServerProcess>(write_settings());
    read_ports();
}

std::size_t TestServer::count(std::string_view text) const {
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::string &line) {
        return line.find(text) != std::string::npos;
    }));
}

std::size_t TestServer::seen(std::string_view text) {
    if (process_ != nullptr) {
        const std::size_t before = count("reported");
        command("report");
        wait_for("reported", before + 1);
    }
    return count(text);
}

void TestServer::wait_for(std::string_view text, std::size_t times) {
    while (count(text) < times) {
        loop_.run_once(INT64_MAX);
    }
}

Fixture::~Fixture() {
    client.reset();  // its outcomes may refer to what has gone with the test
    EXPECT_EQ(server.seen("violation"), 0u);
    EXPECT_EQ(server.seen("refused"), 0u);
}

tacacs::Client &Fixture::get() {
    if (client == nullptr) {
        std::string error;
        client = tacacs::Client::make(loop, settings, error);
        EXPECT_NE(client, nullptr) << error;
    }
    return *client;
}

tacacs::AuthenticationOutcome Fixture::log_in(const tacacs::Start &start) {
    std::optional<tacacs::AuthenticationOutcome> result;
    login = get().authenticate(start, INT64_MAX,
                               [&](tacacs::AuthenticationOutcome outcome) { result = outcome; });
    EXPECT_FALSE(result) << "an outcome came from within the call";
    run_until([&] { return result.has_value(); });
    return *result;
}

tacacs::AuthenticationOutcome Fixture::answer(std::string_view text) {
    std::optional<tacacs::AuthenticationOutcome> result;
    get().answer(login, text, INT64_MAX, [&](tacacs::AuthenticationOutcome outcome) { result = outcome; });
    EXPECT_FALSE(result) << "an outcome came from within the call";
    run_until([&] { return result.has_value(); });
    return *result;
}

tacacs::AuthorizationOutcome Fixture::authorize(std::string_view user,
                                                const std::vector<std::string> &arguments) {
    std::optional<tacacs::AuthorizationOutcome> result;
    get().authorize({.user = user}, arguments, INT64_MAX,
                    [&](tacacs::AuthorizationOutcome outcome) { result = outcome; });
    EXPECT_FALSE(result) << "an outcome came from within the call";
    run_until([&] { return result.has_value(); });
    return *result;
}

tacacs::AccountingOutcome Fixture::account(tacacs::Record record, std::string_view user,
                                           const std::vector<std::string> &arguments) {
    std::optional<tacacs::AccountingOutcome> result;
    get().account(record, {.user = user}, arguments, INT64_MAX,
                  [&](tacacs::AccountingOutcome outcome) { result = outcome; });
    EXPECT_FALSE(result) << "an outcome came from within the call";
    run_until([&] { return result.has_value(); });
    return *result;
}

tacacs::Start ascii(std::string_view user) {
    return {.subject = {.user = user, .port = "tty0", .remote_address = "192.0.2.7"}};
}

tacacs::Start pap(std::string_view user, std::string_view password) {
    return {.subject = {.user = user, .type = tacacs::AuthenticationType::kPap}, .data = password};
}

}  // namespace tacacs_test
