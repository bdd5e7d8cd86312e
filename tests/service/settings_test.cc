// SPDX-License-Identifier: Apache-2.0
//
// aaad.conf: what is accepted, and that every fault names its line and the way out.

#include "config/settings.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aaa/names.h"
#include "listener/access.hpp"

namespace {

using namespace service;

const Accounts kAccounts{
    [](const std::string &name) { return name == "operator" ? std::optional<uid_t>(37) : std::nullopt; },
    [](const std::string &name) {
        return name == "aaa"   ? std::optional<gid_t>(101)
               : name == "net" ? std::optional<gid_t>(102)
                               : std::nullopt;
    }};

Settings parse(const std::string &text) {
    std::vector<Fault> faults;
    Settings settings = parse_settings(text, kAccounts, faults);
    for (const Fault &fault : faults) {
        ADD_FAILURE() << fault_text("aaad.conf", fault);
    }
    return settings;
}

std::string fault_of(const std::string &text) {
    std::vector<Fault> faults;
    parse_settings(text, kAccounts, faults);
    std::string all;
    for (const Fault &fault : faults) {
        all += (all.empty() ? "" : "\n") + fault_text("f", fault);
    }
    return all;
}

TEST(Settings, HasADefaultForEverything) {
    const Settings settings = parse("# only a comment\n\n   \t\n");
    EXPECT_EQ(settings.socket, "/run/aaa/aaad.sock");
    EXPECT_EQ(settings.users, "/etc/aaa/users");
    EXPECT_EQ(settings.patience_ms, 30000u);
    EXPECT_EQ(settings.logins_at_once, 8u);
    EXPECT_EQ(settings.fallback, std::vector<std::uint32_t>{AAA_METHOD_LOCAL});
    EXPECT_FALSE(settings.system_accounts);
    EXPECT_FALSE(settings.force_configuration);
    EXPECT_EQ(settings.lockout.failures, 5u);
    EXPECT_TRUE(settings.lockout.console_exempt);
}

TEST(Settings, ReadsEverySetting) {
    const Settings settings = parse(
        "socket /tmp/s # a comment\nsocket-mode 0660\r\nusers\t/tmp/u\nsystem-accounts yes\nclients 10\n"
        "clients-per-user 3\nidle-time 7\npatience 5000\nlongest-request 6000\nhash-threads 2\n"
        "logins-at-once 3\nfallback line enable local\nforce-configuration yes\nlockout-failures "
        "0\nlockout-source-failures 9\n"
        "lockout-window 10\nlockout-time 11\nlockout-exempt user:root user:carol\nserver-timeout 100\n"
        "server-tries 3\nserver-dead-time 0");
    EXPECT_EQ(settings.socket, "/tmp/s");
    EXPECT_EQ(settings.socket_mode, 0660u);
    EXPECT_EQ(settings.users, "/tmp/u");
    EXPECT_TRUE(settings.system_accounts);
    EXPECT_EQ(settings.clients_max, 10u);
    EXPECT_EQ(settings.clients_per_user, 3u);
    EXPECT_EQ(settings.idle_s, 7u);
    EXPECT_EQ(settings.patience_ms, 5000u);
    EXPECT_EQ(settings.longest_ms, 6000u);
    EXPECT_EQ(settings.hash_threads, 2u);
    EXPECT_EQ(settings.logins_at_once, 3u);
    EXPECT_EQ(settings.fallback,
              (std::vector<std::uint32_t>{AAA_METHOD_LINE, AAA_METHOD_ENABLE, AAA_METHOD_LOCAL}));
    EXPECT_TRUE(settings.force_configuration);
    EXPECT_EQ(settings.lockout.failures, 0u);
    EXPECT_EQ(settings.lockout.source_failures, 9u);
    EXPECT_EQ(settings.lockout.window_s, 10u);
    EXPECT_EQ(settings.lockout.time_s, 11u);
    EXPECT_EQ(settings.lockout.exempt, (std::vector<std::string>{"root", "carol"}));
    EXPECT_FALSE(settings.lockout.console_exempt);
    EXPECT_EQ(settings.servers.timeout_ms, 100u);
    EXPECT_EQ(settings.servers.tries, 3u);
    EXPECT_EQ(settings.servers.dead_time_s, 0u);
}

TEST(Settings, OfAccountingAndMetrics) {
    Settings settings = parse("");
    EXPECT_EQ(settings.accounting.journal, "/var/lib/aaa/accounting");
    EXPECT_EQ(settings.accounting.limit_mib, 256u);
    EXPECT_EQ(settings.accounting.alarm_percent, 80u);
    EXPECT_FALSE(settings.accounting.drop_oldest);
    EXPECT_EQ(settings.accounting.interim_s, 0u);
    EXPECT_TRUE(settings.accounting.close_sessions);
    EXPECT_EQ(settings.metrics.socket, "/run/aaa/metrics.sock");
    EXPECT_EQ(settings.metrics.mode, 0660u);
    settings = parse(
        "journal /j\njournal-limit 7\njournal-alarm 9\njournal-when-full drop-oldest\ninterim-interval 300\n"
        "close-sessions no\nmetrics-socket none\nmetrics-socket-mode 0600");
    EXPECT_EQ(settings.accounting.journal, "/j");
    EXPECT_EQ(settings.accounting.limit_mib, 7u);
    EXPECT_EQ(settings.accounting.alarm_percent, 9u);
    EXPECT_TRUE(settings.accounting.drop_oldest);
    EXPECT_EQ(settings.accounting.interim_s, 300u);
    EXPECT_FALSE(settings.accounting.close_sessions);
    EXPECT_EQ(settings.metrics.socket, "");
    EXPECT_EQ(settings.metrics.mode, 0600u);
    EXPECT_EQ(parse("journal none").accounting.journal, "");
    EXPECT_EQ(fault_of("journal nowhere"), "f:1: \"nowhere\" is neither an absolute path nor the word none");
    EXPECT_EQ(fault_of("journal-when-full refuze"), "f:1: \"refuze\"; did you mean \"refuse\"?");
    EXPECT_EQ(fault_of("journal-limit 0"), "f:1: \"0\" is not a number from 1 to 1048576");
}

TEST(Settings, AFaultNamesItsLineAndTheWayOut) {
    EXPECT_EQ(fault_of("\n\npatiense 5000\n"),
              "f:3: \"patiense\" is not a setting; did you mean \"patience\"?");
    EXPECT_NE(fault_of("nonsense-all-the-way 1\n")
                  .find("is not a setting; use socket, socket-mode, control-socket, users, "),
              std::string::npos);
    EXPECT_EQ(fault_of("patience 5s\n"), "f:1: \"5s\" is not a number from 100 to 3600000");
    EXPECT_EQ(fault_of("patience 99\n"), "f:1: \"99\" is not a number from 100 to 3600000");
    EXPECT_EQ(fault_of("patience -5000\n"), "f:1: \"-5000\" is not a number from 100 to 3600000");
    EXPECT_EQ(fault_of("patience 99999999999999999999\n").substr(0, 30), "f:1: \"99999999999999999999\" is");
    EXPECT_EQ(fault_of("patience\n"), "f:1: \"patience\" takes 1 word(s), not 0");
    EXPECT_EQ(fault_of("patience 500 600\n"), "f:1: \"patience\" takes 1 word(s), not 2");
    EXPECT_EQ(fault_of("clients 5\nclients 6\n"), "f:2: \"clients\" is already set on line 1");
    EXPECT_EQ(fault_of("system-accounts on\n"), "f:1: \"on\"; use yes or no");
    EXPECT_EQ(fault_of("socket aaad.sock\n"), "f:1: \"aaad.sock\" is not an absolute path");
    EXPECT_EQ(fault_of("socket-mode 0888\n").substr(0, 11), "f:1: \"0888\"");
    EXPECT_EQ(fault_of("socket-mode 44444444444444\n").substr(0, 6), "f:1: \"");
    EXPECT_EQ(fault_of("fallback local none\n"), "f:1: \"none\"; did you mean \"line\"?")
        << "a damaged database must not open the router";
    EXPECT_EQ(fault_of("lockout-exempt none root\n"), "f:1: \"none\"; use none, or console and user:NAME");
    EXPECT_EQ(fault_of("clients 5\x01\n"), "f:1: the line holds a control character");
    EXPECT_EQ(fault_of("patience 5000\nlongest-request 4000\n"),
              "f: longest-request (4000) is less than patience (5000)");
    EXPECT_EQ(fault_of("a 1\nb 2\n").find('\n') == std::string::npos, false) << "all faults are told at once";
}

TEST(Settings, TheControlSocketIsNextToTheSocketUnlessItIsSet) {
    EXPECT_EQ(parse("").control_path(), "/run/aaa/control.sock");
    EXPECT_EQ(parse("socket /srv/a.sock\n").control_path(), "/srv/control.sock");
    EXPECT_EQ(parse("control-socket /srv/b.sock\n").control_path(), "/srv/b.sock");
    EXPECT_EQ(parse("control-socket none\n").control_path(), "");
    EXPECT_NE(fault_of("control-socket b.sock\n").find("not an absolute path"), std::string::npos);
}

TEST(Settings, AccessRulesOfTheFileReplaceTheUsualOnes) {
    const Peer root{1, 0, 0, {}}, member{1, 1000, 1000, {101}}, user{1, 1001, 1001, {}}, op{1, 37, 37, {}};
    const auto usual = parse("").rules;
    EXPECT_EQ(access_of(root, Ask::kConfiguration, usual), Access::kGranted);
    EXPECT_EQ(access_of(member, Ask::kConfiguration, usual), Access::kRefused);
    for (const Ask ask : {Ask::kAuthentication, Ask::kAuthorization}) {
        EXPECT_EQ(access_of(root, ask, usual), Access::kGranted);
        EXPECT_EQ(access_of(member, ask, usual), Access::kGranted);
        EXPECT_EQ(access_of(user, ask, usual), Access::kSelf);
    }
    EXPECT_EQ(access_of(member, Ask::kAccounting, usual), Access::kGranted);
    EXPECT_EQ(access_of(user, Ask::kAccounting, usual), Access::kRefused);

    const auto own = parse("allow authorization user:operator\nallow authorization group:net self\n").rules;
    EXPECT_EQ(access_of(op, Ask::kAuthorization, own), Access::kGranted);
    EXPECT_EQ(access_of(Peer{1, 5, 102, {}}, Ask::kAuthorization, own), Access::kSelf);
    EXPECT_EQ(access_of(user, Ask::kAuthorization, own), Access::kRefused);
    EXPECT_EQ(access_of(root, Ask::kAuthorization, own), Access::kRefused) << "root too has to be named";
    EXPECT_EQ(access_of(user, Ask::kAuthentication, own), Access::kSelf) << "other requests keep theirs";
}

TEST(Settings, RefusesAccessRulesThatMakeNoSense) {
    EXPECT_EQ(fault_of("allow authentification any\n"),
              "f:1: \"authentification\"; did you mean \"authentication\"?");
    EXPECT_EQ(fault_of("allow accounting user:nobody-here\n"), "f:1: there is no user \"nobody-here\"");
    EXPECT_EQ(fault_of("allow accounting group:none-such\n"), "f:1: there is no group \"none-such\"");
    EXPECT_EQ(fault_of("allow accounting everyone\n"), "f:1: \"everyone\"; use any, user:NAME or group:NAME");
    EXPECT_EQ(fault_of("allow accounting user:\n"), "f:1: \"user:\"; use any, user:NAME or group:NAME");
    EXPECT_EQ(fault_of("allow accounting any mine\n"), "f:1: \"mine\"; use self");
    EXPECT_NE(fault_of("allow configuration any\n").find("name a user or a group"), std::string::npos);
    EXPECT_NE(fault_of("allow configuration user:operator self\n").find("name a user or a group"),
              std::string::npos);
}

}  // namespace
