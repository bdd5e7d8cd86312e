// SPDX-License-Identifier: Apache-2.0
//
// What is wrong with the configuration of a service that runs, and how its requests go on.

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "aaactl/support/program_run.hpp"
#include "service/control/control_socket.hpp"
#include "service/groups/group_fixture.hpp"

namespace groups_test {
namespace {

using control_test::ControlSocket;
using control_test::JsonDocument;
using radius::Type;
using radius_test::UdpServer;

class AaadAlarms : public GroupTest {
  protected:
    JsonDocument ask(const std::string &request) {
        return ControlSocket(aaad_.dir().path("control.sock")).ask("{\"request\":\"" + request + "\"}");
    }
    // The words of all alarms.
    std::string alarms() {
        const JsonDocument status = ask("status");
        std::string words;
        for (size_t i = 0; i < status["alarms"].size(); ++i) {
            words += (i > 0 ? " " : "") + status["alarms"][i]["alarm"].text();
        }
        return words;
    }
    std::string text_of_first() { return ask("status")["alarms"][size_t{0}]["text"].text(); }
    void expect_server_decides(UdpServer &server) {
        Login login(aaad_, ask_as("ann", "secret"));
        server.answer(server.next());
        EXPECT_EQ(login.wait().status, uint32_t{AAA_STAT_PASS});
    }
    void lose_master_keys() const { std::filesystem::rename(keys_, keys_ + ".away"); }
    void find_master_keys() const { std::filesystem::rename(keys_ + ".away", keys_); }
    std::string server_path() const {
        return "group-server/radius/corp/settings/" + entry_of(server_) + "/key";
    }

    const std::string keys_ = std::getenv("AAA_MASTER_KEYS");
    UdpServer server_{loop_};
};

// The method after the group was asked at the next change of the configuration.
TEST_F(AaadAlarms, AServerIsAskedWhileTheMasterKeysAreAway) {
    add_radius(server_);
    lists({"corp", AAA_METHOD_NONE});
    aaad_.start();
    expect_server_decides(server_);
    EXPECT_EQ(alarms(), "");
    lose_master_keys();
    aaad_.reload();
    expect_server_decides(server_);
    EXPECT_EQ(alarms(), "keys faults");
    EXPECT_NE(text_of_first().find("go on with the keys that were opened before"), std::string::npos);
    EXPECT_TRUE(aaad_.wait_for_log("is asked with the key that was opened before"));
    EXPECT_EQ(ask("servers")["groups"][size_t{0}]["servers"][size_t{0}]["key_kept"], true);
    const aaactl_test::Run shown =
        aaactl_test::aaactl({"servers", "--socket", aaad_.dir().path("control.sock")});
    EXPECT_EQ(shown.status, 1);
    EXPECT_NE(shown.out.find("is asked with the key that was opened before"), std::string::npos)
        << shown.out << shown.err;
    // The first login was over the same socket as this: its client has not been replaced.
    EXPECT_EQ(ask("servers")["groups"][size_t{0}]["servers"][size_t{0}]["asked"], 2);
    find_master_keys();
    aaad_.reload();
    EXPECT_EQ(alarms(), "");
    expect_server_decides(server_);
}

TEST_F(AaadAlarms, AKeyThatIsReplacedByOneThatDoesNotOpenIsNotUsed) {
    add_radius(server_);
    lists({"corp", AAA_METHOD_NONE});
    aaad_.start();
    aaad_.text(server_path(), "not a sealed key");
    aaad_.reload();
    EXPECT_EQ(alarms(), "keys faults");
    expect_server_decides(server_);
    aaad_.text(server_path(), seal(radius_test::kSecret));
    aaad_.reload();
    EXPECT_EQ(alarms(), "");
    expect_server_decides(server_);
}

TEST_F(AaadAlarms, AServiceThatStartsWithoutTheMasterKeysSaysSo) {
    add_radius(server_);
    lists({"corp", AAA_METHOD_LOCAL});
    lose_master_keys();
    aaad_.start();
    EXPECT_EQ(aaad_.login().method, uint32_t{AAA_METHOD_LOCAL});
    EXPECT_EQ(alarms(), "keys faults");
    EXPECT_NE(text_of_first().find("cannot be opened: not asked"), std::string::npos);
    find_master_keys();
    aaad_.reload();
    EXPECT_EQ(alarms(), "");
    expect_server_decides(server_);
}

TEST_F(AaadAlarms, ADatabaseThatIsLostIsAnAlarmUntilItIsBack) {
    aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL});
    aaad_.start();
    EXPECT_EQ(alarms(), "");
    const std::string file = std::string(std::getenv("AAA_SYSDB_CFG_DIR")) + "/cfg.mdb";
    std::filesystem::rename(file, file + ".away");
    std::filesystem::create_symlink("/dev/null", file);
    do {  // the database looks for another file once a second
        aaad_.reload();
    } while (alarms() != "database");
    EXPECT_NE(text_of_first().find("the last configuration goes on"), std::string::npos) << text_of_first();
    EXPECT_NE(text_of_first().find("aaad --check"), std::string::npos);
    EXPECT_EQ(ask("status")["configuration"]["fallback"], false);
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    const aaactl_test::Run shown =
        aaactl_test::aaactl({"status", "--socket", aaad_.dir().path("control.sock")});
    EXPECT_EQ(shown.status, 0);
    EXPECT_NE(shown.out.find("database, since "), std::string::npos) << shown.out << shown.err;
    std::filesystem::rename(file + ".away", file);
    EXPECT_TRUE(aaad_.wait_for_log("the system database can be read again"));
    EXPECT_EQ(alarms(), "");
}

TEST_F(AaadAlarms, FilesAndListsThatAreNotUsedAreAlarms) {
    aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL});
    aaad_.start();
    aaad_.settings("nonsense\n");
    aaad_.reload();
    EXPECT_EQ(alarms(), "files");
    aaad_.list("authentication/login/default", {"missing"});
    aaad_.reload();
    EXPECT_EQ(alarms(), "files faults lockout");
    EXPECT_NE(text_of_first().find("nonsense"), std::string::npos) << text_of_first();
    aaad_.settings("");
    aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL});
    aaad_.reload();
    EXPECT_EQ(alarms(), "");
}

}  // namespace
}  // namespace groups_test
