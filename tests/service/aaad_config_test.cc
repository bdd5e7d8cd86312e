// SPDX-License-Identifier: Apache-2.0
//
// Changes of the configuration while the service runs: they take effect at once, lose no
// request, and lock no one out.

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "platform/cerr.h"
#include "platform/control.h"
#include "service/aaad.hpp"

namespace {

using namespace aaad_test;

bool passed(const Reply &reply) {
    return reply.status == AAA_STAT_PASS;
}
bool failed(const Reply &reply) {
    return reply.status == AAA_STAT_FAIL;
}

class AaadConfig : public testing::Test {
  protected:
    // Waiting for a change fails to log in, as often as it takes.
    AaadConfig() { aaad_.settings("lockout-failures 0\n"); }

    void login_list(std::vector<Method> methods) {
        aaad_.list("authentication/login/default", std::move(methods));
    }
    static Ask wrong() {
        Ask ask;
        ask.password = "rabbit";
        return ask;
    }

    Aaad aaad_;
};

TEST_F(AaadConfig, AChangeOfTheDatabaseTakesEffectAtOnce) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_TRUE(failed(aaad_.login(wrong())));
    login_list({AAA_METHOD_NONE});
    aaad_.wait_for_login(wrong(), passed);
    login_list({AAA_METHOD_LOCAL});
    aaad_.wait_for_login(wrong(), failed);
    Ask other;
    other.list = "branch";
    EXPECT_EQ(aaad_.login(other).status, uint32_t{AAA_STAT_ERROR});
    aaad_.list("authentication/login/branch", {AAA_METHOD_LOCAL});
    aaad_.wait_for_login(other, passed);
    aaad_.remove("authentication/login/branch");
    aaad_.wait_for_login(other, [](const Reply &reply) { return reply.status == AAA_STAT_ERROR; });
}

TEST_F(AaadConfig, NoRequestIsLostDuringChanges) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start({"--debug"});
    std::atomic<int> answered = 0;
    std::atomic<int> right = 0;
    std::atomic<cerrno> failure = AAA_OK;  // of the last request that was not answered
    std::atomic<int> error = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            Client client = aaad_.client();
            for (int j = 0; j < 50 && failure == AAA_OK; ++j) {
                const Reply reply = client.authenticate({});
                answered += reply.result == AAA_OK ? 1 : 0;
                if (reply.result != AAA_OK) {
                    error = reply.error;
                    failure = reply.result;
                }
                right += passed(reply) ? 1 : 0;
            }
        });
    }
    int changes = 0;
    while (answered < 200 && failure == AAA_OK && !HasFailure()) {
        login_list(
            {changes % 2 == 0 ? Method(uint32_t{AAA_METHOD_NONE}) : Method(uint32_t{AAA_METHOD_LOCAL})});
        if (changes % 5 == 0) {
            aaad_.signal(SIGHUP);
        }
        if (changes % 7 == 0) {
            aaad_.users("alice:" + hash_of("wonderland") + ":" + std::to_string(changes % 16) + "\n");
        }
        ++changes;
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, 200) << cerr_strerror(failure) << ": " << std::strerror(error) << "; "
                             << aaad_.fate();
    EXPECT_EQ(right, 200) << "each under one configuration or the other";
    EXPECT_GT(changes, 1);
}

TEST_F(AaadConfig, ALoginKeepsTheConfigurationItBeganWith) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    Client client = aaad_.client();
    Ask ask = wrong();
    ask.password = std::nullopt;
    ask.state = client.authenticate(ask).state;
    login_list({AAA_METHOD_NONE});
    aaad_.wait_for_login(wrong(), passed);
    ask.password = "rabbit";
    EXPECT_TRUE(failed(client.authenticate(ask))) << "its list was local";
}

TEST_F(AaadConfig, AChangeThatLocksEverybodyOutIsNotUsed) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    login_list({"branch"});  // a group without servers
    EXPECT_TRUE(aaad_.wait_for_log(
        "no method of the list authentication/login/default can pass a login: group branch"));
    EXPECT_TRUE(aaad_.wait_for_log("the one before goes on"));
    EXPECT_TRUE(passed(aaad_.login()));
    aaad_.remove("authentication/login/default");
    EXPECT_TRUE(aaad_.wait_for_log(
        "the list authentication/login/default is not configured; the one before goes on"));
    EXPECT_TRUE(passed(aaad_.login()));
    aaad_.users("alice:!:15\n");
    login_list({AAA_METHOD_LOCAL});
    EXPECT_TRUE(aaad_.wait_for_log("can pass a login: local"));
    EXPECT_TRUE(passed(aaad_.login())) << "the users before go on too";
    aaad_.settings("force-configuration yes\n");
    aaad_.reload();
    aaad_.wait_for_login({}, failed);
}

TEST_F(AaadConfig, WithoutAUsableConfigurationTheFallbackApplies) {
    aaad_.start();
    EXPECT_TRUE(aaad_.wait_for_log("is not configured; the fallback of aaad.conf applies"));
    EXPECT_TRUE(passed(aaad_.login()));
    Ask exec;
    EXPECT_TRUE(passed(aaad_.client().authorize(exec))) << "and whoever mends it may run commands";
    EXPECT_EQ(aaad_.client().account(exec).result, AAA_ERR_ACCT_NOT_DEFINED);
    login_list({AAA_METHOD_NONE});
    aaad_.wait_for_login(wrong(), passed);
}

TEST_F(AaadConfig, ADatabaseThatIsAwayIsUsedWhenItComes) {
    login_list({AAA_METHOD_NONE});
    const std::string directory = std::getenv("AAA_SYSDB_CFG_DIR");
    const std::string moved = directory + "/moved";
    ASSERT_EQ(rename((directory + "/cfg.mdb").c_str(), moved.c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", (directory + "/cfg.mdb").c_str()), 0) << "a file that is not used";
    aaad_.start();
    EXPECT_TRUE(aaad_.wait_for_log("the fallback of aaad.conf applies, and it is tried again"));
    EXPECT_TRUE(failed(aaad_.login(wrong())));
    EXPECT_TRUE(passed(aaad_.login()));
    ASSERT_EQ(rename(moved.c_str(), (directory + "/cfg.mdb").c_str()), 0);
    EXPECT_TRUE(aaad_.wait_for_log("the system database can be read again"));
    aaad_.wait_for_login(wrong(), passed);
}

TEST_F(AaadConfig, TheUsersFileIsReadAgainWhenItChanges) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    Ask carol;
    carol.user = "carol";
    EXPECT_TRUE(failed(aaad_.login(carol)));
    aaad_.users("carol:" + hash_of("wonderland") + ":3\n");
    aaad_.wait_for_login(carol, passed);
    EXPECT_TRUE(failed(aaad_.login())) << "alice has gone";
    aaad_.users("carol:" + hash_of("wonderland") + "\n");
    EXPECT_TRUE(aaad_.wait_for_log("users:1: use NAME:HASH:PRIVILEGE"));
    EXPECT_TRUE(aaad_.wait_for_log("is not used: the users before go on"));
    EXPECT_TRUE(passed(aaad_.login(carol)));
    aaad_.users("alice:" + hash_of("wonderland") + ":3\n");
    aaad_.wait_for_login({}, passed);
    ASSERT_EQ(chmod(aaad_.dir().path("users").c_str(), 0644), 0);
    EXPECT_TRUE(aaad_.wait_for_log("every user may read the hashes in it; run: chmod o="));
    EXPECT_TRUE(passed(aaad_.login()));
}

TEST_F(AaadConfig, SettingsAreReadAgainOnSighup) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.settings("lockout-failures 1\n");
    aaad_.start();
    EXPECT_TRUE(failed(aaad_.login(wrong())));
    EXPECT_TRUE(failed(aaad_.login())) << "locked out";
    aaad_.settings("lockout-failures nine\n");
    aaad_.reload();
    EXPECT_TRUE(aaad_.wait_for_log("aaad.conf:3: \"nine\" is not a number"));
    EXPECT_TRUE(aaad_.wait_for_log("the settings before go on"));
    EXPECT_TRUE(failed(aaad_.login()));
    aaad_.settings("lockout-failures 0\n");
    aaad_.reload();
    aaad_.wait_for_login({}, passed);
}

// A key is stored sealed: that needs master keys.
class AaadMessages : public AaadConfig {
  protected:
    void SetUp() override {
        const std::string keys = aaad_.dir().path("master.keys");
        setenv("AAA_MASTER_KEYS", keys.c_str(), 1);
        ASSERT_EQ(aaa_platform_master_keys_create(keys.c_str()), AAA_OK);
        login_list({AAA_METHOD_LOCAL});
        aaad_.start();
    }
    void TearDown() override { unsetenv("AAA_MASTER_KEYS"); }

    std::vector<std::string> stored(const std::string &directory) const {
        return names_in(Bound("/cfg/gl/aaa/").handle(), directory);
    }
};

TEST_F(AaadMessages, ConfigurationMessagesChangeTheDatabase) {
    using Names = std::vector<std::string>;
    for (const uint32_t session : {0u, 1u}) {
        Client client = aaad_.client();
        EXPECT_EQ(client.configure_server_in_group("branch", "192.0.2.40", 0, session), AAA_ERR_NOT_FOUND);
        EXPECT_EQ(client.configure_group("branch", 0, session), AAA_OK);
        EXPECT_EQ(client.configure_group("branch", 0, session), AAA_OK) << "again";
        EXPECT_EQ(client.configure_server_in_group("branch", "192.0.2.40", 0, session), AAA_OK);
        EXPECT_EQ(client.configure_server_in_group("branch", "192.0.2.41", 0, session), AAA_OK);
        EXPECT_EQ(client.configure_server_in_group("branch", "192.0.2.40", 0, session), AAA_OK) << "again";
        EXPECT_EQ(stored("group-server/radius/branch/server/"), (Names{"0x1/", "0x2/"}));
        EXPECT_EQ(client.configure_list(true, "remote", {"branch", AAA_METHOD_LOCAL}, 0, session), AAA_OK);
        EXPECT_EQ(client.configure_list(false, "remote", {AAA_METHOD_LOCAL}, 0, session), AAA_OK);
        Ask ask;
        ask.list = "remote";
        EXPECT_TRUE(passed(aaad_.login(ask))) << "in force when it is answered";
        EXPECT_EQ(client.authorize(ask).status, uint32_t{AAA_STAT_PASS});
        EXPECT_EQ(client.configure_group("branch", 1, session), AAA_ERR_SG_IN_USE);
        EXPECT_EQ(client.configure_list(true, "remote", {}, 1, session), AAA_OK);
        EXPECT_EQ(client.configure_list(true, "remote", {}, 1, session), AAA_ERR_NOT_FOUND);
        EXPECT_EQ(client.configure_list(false, "remote", {}, 1, session), AAA_OK);
        EXPECT_EQ(client.configure_server_in_group("branch", "192.0.2.40", 1, session), AAA_OK);
        EXPECT_EQ(client.configure_server_in_group("branch", "192.0.2.40", 1, session), AAA_ERR_NOT_FOUND);
        EXPECT_EQ(client.configure_group("branch", 1, session), AAA_OK);
        EXPECT_EQ(client.configure_group("branch", 1, session), AAA_ERR_NOT_FOUND);
        EXPECT_EQ(stored("group-server/radius/"), Names{"!40818600"});
    }
}

TEST_F(AaadMessages, AServersKeyIsStoredSealed) {
    Client client = aaad_.client();
    EXPECT_EQ(client.configure_server("192.0.2.50", "s3cret", 0, 0), AAA_OK);
    const Bound config("/cfg/gl/aaa/");
    const std::string at = "radius/settings/192.0.2.50,1812,1813/";
    const std::string sealed = get_text(config.handle(), at + "key");
    EXPECT_EQ(sealed.find("s3cret"), std::string::npos);
    EXPECT_GE(sealed.size(), 40u) << sealed;
    EXPECT_EQ(get_number(config.handle(), at + "timeout"), 3000);
    EXPECT_EQ(get_number(config.handle(), at + "tries"), 2);
    const auto [status, output] = aaad_.run({"--check"});
    EXPECT_EQ(status, 0) << output;
    EXPECT_EQ(client.configure_server("192.0.2.50", "s3cret", 1, 0), AAA_OK);
    EXPECT_EQ(existence(config.handle(), at + "key"), SYSDB_ERR_NOT_FOUND);
    EXPECT_EQ(client.configure_server("192.0.2.50", "s3cret", 1, 0), AAA_ERR_NOT_FOUND);
    EXPECT_EQ(client.configure_server("192.0.2.50", "", 0, 0), AAA_ERR_INVALID_CLIENT_DATA);
}

TEST_F(AaadConfig, NumbersOfGroupsArePublished) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.start();
    aaad_.number("group-server/radius/corp/server/0x1/192.0.2.1,1812,1813", 1);
    aaad_.number("group-server/tacacs/archive/server/0x1/192.0.2.2", 1);
    EXPECT_TRUE(
        aaad_.wait_for_log("group-server/radius/corp/server/0x1/192.0.2.1,1812,1813: the server has no "
                           "key, so it is not asked; store it: aaactl sg key radius corp"));
    EXPECT_TRUE(
        aaad_.wait_for_log("/cfg/gl/aaa/group-server/tacacs/archive/server/0x1/192.0.2.2: the server has "
                           "no key, so it is not asked; store it: aaactl sg key tacacs archive"));
    const Bound maps("/oper/aaa/gl/group-server/");
    EXPECT_EQ(get_number(maps.handle(), "sg_name_map/radius/corp"), 1001);
    EXPECT_EQ(get_number(maps.handle(), "sg_name_map/tacacs/archive"), 3001);
    aaad_.remove("group-server/radius/corp/");
    for (int i = 0; i < 100000 && existence(maps.handle(), "sg_name_map/radius/corp") == AAA_OK; ++i) {
        sched_yield();
    }
    EXPECT_EQ(existence(maps.handle(), "sg_name_map/radius/corp"), SYSDB_ERR_NOT_FOUND);
}

// Symptom: numbers that two groups shared stayed as they were until one of the groups was deleted.
TEST_F(AaadConfig, GroupsThatShareANumberGetTheirOwn) {
    login_list({AAA_METHOD_LOCAL});
    aaad_.number("group-server/radius/corp/server/0x1/192.0.2.1,1812,1813", 1);
    aaad_.number("group-server/radius/lab/server/0x1/192.0.2.2,1812,1813", 1);
    {
        const Bound maps("/oper/aaa/gl/group-server/");
        EXPECT_EQ(set_number(maps.handle(), "sg_name_map/radius/corp", 1001), AAA_OK);
        EXPECT_EQ(set_number(maps.handle(), "sg_name_map/radius/lab", 1001), AAA_OK);
        EXPECT_EQ(set_text(maps.handle(), "sg_num_map/radius/0x3e9", "lab"), AAA_OK);
    }
    aaad_.start();
    const Bound maps("/oper/aaa/gl/group-server/");
    EXPECT_EQ(get_number(maps.handle(), "sg_name_map/radius/corp"), 1002);
    EXPECT_EQ(get_number(maps.handle(), "sg_name_map/radius/lab"), 1001);
    EXPECT_EQ(get_text(maps.handle(), "sg_num_map/radius/0x3ea"), "corp");
}

}  // namespace
