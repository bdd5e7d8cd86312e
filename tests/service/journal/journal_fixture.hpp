// SPDX-License-Identifier: Apache-2.0
//
// aaad that keeps accounting records, and servers that get them.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "service/groups/group_fixture.hpp"

namespace journal_test {

using groups_test::Aaad;
using groups_test::Ask;
using groups_test::attribute;
using groups_test::Client;
using groups_test::GroupTest;
using groups_test::Method;
using groups_test::Reply;
using radius::Code;
using radius::Type;
using radius_test::Packet;
using radius_test::UdpServer;

class JournalTest : public GroupTest {
  protected:
    // A configuration that lets no one log in would not be used.
    JournalTest() { aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL}); }

    static Ask start_of(uint32_t number, const std::string &user = "ann") {
        Ask ask = ask_as(user, std::nullopt);
        ask.number = number;
        return ask;
    }
    static Ask stop_of(uint32_t number, const std::string &user = "ann") {
        Ask ask = start_of(number, user);
        ask.record = AAA_ACCT_STOP_OPT;
        return ask;
    }
    cerrno account(const Ask &ask) const { return aaad_.client().account(ask).result; }
    std::string journal() const { return aaad_.dir().path("accounting"); }

    // The next record at a server, which takes it.
    static Packet take(UdpServer &server) {
        const Packet packet = server.next();
        EXPECT_EQ(packet.code(), 4);
        server.answer(packet, Code::kAccountingResponse);
        return packet;
    }
    // A list for accounting, without a broadcast.
    void accounting_list(std::vector<Method> methods) {
        aaad_.list("accounting/exec/default", std::move(methods), {0, 0, 0});
    }
    void kill_aaad() {
        aaad_.signal(SIGKILL);
        EXPECT_EQ(aaad_.wait(), -SIGKILL);
    }
    // Until a state of the outside has come; ctest ends what never does.
    static void wait_until(const std::function<bool()> &is_so) {
        while (!is_so()) {
            poll(nullptr, 0, 20);
        }
    }
};

}  // namespace journal_test
