// SPDX-License-Identifier: Apache-2.0
//
// A configuration as text, and the commands that load and show it.

#pragma once

#include <string>
#include <vector>

#include "aaactl/support/database_fixture.hpp"

namespace aaactl_test {

inline constexpr char kText[] =
    "aaa group server radius corp\n"
    " server 192.0.2.1 auth-port 1812 acct-port 1813 timeout 3s\n"
    " server-private 192.0.2.2 auth-port 1645 acct-port 1646\n"
    " dead-time 300s\n"
    "!\n"
    "aaa group server tacacs archive\n"
    " server 192.0.2.30 port 4949\n"
    "!\n"
    "radius-server host 192.0.2.9 auth-port 1812 acct-port 1813\n"
    "tacacs-server timeout 2s\n"
    "!\n"
    "aaa authentication login default group corp local\n"
    "aaa accounting exec default start-stop group corp group archive\n"
    "!\n"
    "item /cfg/gl/aaa/history/commits u32 15\n"
    "end\n";

class RunningConfigCommands : public DatabaseTest {
  protected:
    RunningConfigCommands() : keys_("AAA_MASTER_KEYS", dir().path("master.keys")) {}

    static std::string dump() { return aaactl({"sysdb", "dump", "--show-secrets"}).out; }
    static void load(const std::string &text, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"load", "-"});
        const auto run = aaactl(options, text);
        ASSERT_EQ(run.status, 0) << run.err;
    }
    static std::string shown() { return aaactl({"show", "running-config"}).out; }
    static void expect_refused(const std::string &text, int status, const std::string &why) {
        const std::string before = dump();
        const auto run = aaactl({"load", "-"}, text);
        EXPECT_EQ(run.status, status) << text;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "aaactl: standard input: " + why +
                               (why.ends_with('?') ? " Nothing was changed\n" : "; nothing was changed\n"));
        EXPECT_EQ(dump(), before);
    }

  private:
    ScopedEnv keys_;
};

}  // namespace aaactl_test
