// SPDX-License-Identifier: Apache-2.0
//
// aaad with a group of servers: their keys sealed, their settings in its database.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "net/loop.hpp"
#include "radius/udp_server.hpp"
#include "service/aaad.hpp"

namespace groups_test {

using aaad_test::Aaad;
using aaad_test::Ask;
using aaad_test::Client;
using aaad_test::Method;
using aaad_test::Reply;

class GroupTest : public testing::Test {
  protected:
    GroupTest();

    // A server of the group "corp", after those before it. `times` in ms and in tries.
    void add_server(const std::string &protocol, const std::string &entry, const std::string &key,
                    uint32_t timeout = 60000, uint32_t tries = 1);
    void add_radius(const radius_test::UdpServer &server, uint32_t timeout = 60000, uint32_t tries = 1);
    // A setting of one server, or with an empty entry of all of the group.
    void set_text(const std::string &protocol, const std::string &entry, const std::string &name,
                  const std::string &value);
    void set_number(const std::string &protocol, const std::string &entry, const std::string &name,
                    uint32_t value);
    void lists(std::vector<Method> methods);
    static std::string seal(const std::string &key);
    static std::string entry_of(const radius_test::UdpServer &server);
    // How many requests a server has got since it was looked at. The time for a server may be over
    // before its second try, where the service was not running meanwhile: so tests count the tries.
    static uint32_t requests_at(radius_test::UdpServer &server);
    static Ask ask_as(const std::string &user, const std::optional<std::string> &password);

    // A login in a thread, because the servers of the test are on this one.
    class Login {
      public:
        Login(const Aaad &aaad, Ask ask);
        Login(Client &client, Ask ask);
        ~Login();
        // Answers requests that come meanwhile by `serve`.
        Reply wait();

      private:
        Reply reply_;
        std::thread thread_;
    };

    net::Loop loop_;
    Aaad aaad_;
    int servers_ = 0;
};

// An attribute of RADIUS.
std::string attribute(int type, const std::string &value);
std::string number_attribute(int type, uint32_t value);

}  // namespace groups_test
