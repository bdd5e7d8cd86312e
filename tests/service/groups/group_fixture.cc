// SPDX-License-Identifier: Apache-2.0

#include "service/groups/group_fixture.hpp"

#include <cstdlib>
#include <utility>

#include "platform/cipher.h"
#include "platform/control.h"

namespace groups_test {

GroupTest::GroupTest() {
    const std::string path = aaad_.dir().path("master.keys");
    setenv("AAA_MASTER_KEYS", path.c_str(), 1);
    setenv("AAA_TACACS_SERVER", TACACS_SERVER, 1);
    setenv("AAA_PYTHON", PYTHON, 1);
    EXPECT_EQ(aaa_platform_master_keys_create(path.c_str()), 0u);
}

std::string GroupTest::seal(const std::string &key) {
    char *sealed = pw_encrypt(key.c_str(), 7);
    EXPECT_NE(sealed, nullptr);
    std::string text = sealed != nullptr ? sealed : "";
    free(sealed);
    return text;
}

std::string GroupTest::entry_of(const radius_test::UdpServer &server) {
    const std::string port = std::to_string(server.address().port());
    return "127.0.0.1," + port + "," + port;
}

void GroupTest::set_text(const std::string &protocol, const std::string &entry, const std::string &name,
                         const std::string &value) {
    aaad_.text("group-server/" + protocol + "/corp/settings/" + (entry.empty() ? "" : entry + "/") + name,
               value);
}

void GroupTest::set_number(const std::string &protocol, const std::string &entry, const std::string &name,
                           uint32_t value) {
    aaad_.number("group-server/" + protocol + "/corp/settings/" + (entry.empty() ? "" : entry + "/") + name,
                 value);
}

void GroupTest::add_server(const std::string &protocol, const std::string &entry, const std::string &key,
                           uint32_t timeout, uint32_t tries) {
    set_text(protocol, entry, "key", seal(key));
    set_number(protocol, entry, "timeout", timeout);
    set_number(protocol, entry, "tries", tries);
    set_number(protocol, entry, "dead-time", 3600);
    set_text(protocol, entry, "probe-user", "");  // so that tests see their own requests only
    aaad_.number("group-server/" + protocol + "/corp/server/" + std::to_string(servers_++) + "/" + entry, 1);
}

void GroupTest::add_radius(const radius_test::UdpServer &server, uint32_t timeout, uint32_t tries) {
    add_server("radius", entry_of(server), radius_test::kSecret, timeout, tries);
}

uint32_t GroupTest::requests_at(radius_test::UdpServer &server) {
    uint32_t count = 0;
    for (; server.has_one(); ++count) {
        server.next();
    }
    return count;
}

void GroupTest::lists(std::vector<Method> methods) {
    aaad_.list("authentication/login/default", methods);
    aaad_.list("authorization/exec/default", methods);
    aaad_.list("authorization/commands/default", methods);
    aaad_.list("accounting/exec/default", methods, {0, 0, 0});
}

Ask GroupTest::ask_as(const std::string &user, const std::optional<std::string> &password) {
    Ask ask;
    ask.user = user;
    ask.password = password;
    return ask;
}

GroupTest::Login::Login(const Aaad &aaad, Ask ask)
    : thread_([this, &aaad, ask = std::move(ask)] { reply_ = aaad.login(ask); }) {}

GroupTest::Login::Login(Client &client, Ask ask)
    : thread_([this, &client, ask = std::move(ask)] { reply_ = client.authenticate(ask); }) {}

GroupTest::Login::~Login() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

Reply GroupTest::Login::wait() {
    thread_.join();
    return reply_;
}

std::string attribute(int type, const std::string &value) {
    return std::string(1, static_cast<char>(type)) + static_cast<char>(value.size() + 2) + value;
}

std::string number_attribute(int type, uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift);
    }
    return attribute(type, bytes);
}

}  // namespace groups_test
