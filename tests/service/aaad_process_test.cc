// SPDX-License-Identifier: Apache-2.0
//
// The program as its service manager and its administrator see it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "service/aaad.hpp"
#include "support/temp_dir.hpp"

namespace {

using namespace aaad_test;

class AaadProcess : public testing::Test {
  protected:
    void SetUp() override { aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL}); }

    Aaad aaad_;
};

TEST_F(AaadProcess, TellsItsServiceManagerItsStates) {
    aaad_.start();
    aaad_.reload();
    aaad_.signal(SIGTERM);
    aaad_.wait_for_state("STOPPING=1");
    EXPECT_EQ(aaad_.wait(), 0);
    EXPECT_NE(access(aaad_.socket().c_str(), F_OK), 0) << "the socket is removed";
}

TEST_F(AaadProcess, EndsAfterAnsweringWhatIsUnderWay) {
    aaad_.users("alice:" + slow_hash(400000) + ":15\n");
    aaad_.start();
    Client idle = aaad_.client();
    EXPECT_EQ(idle.ping().result, AAA_OK);
    Client client = aaad_.client();
    EXPECT_EQ(client.ping().result, AAA_OK);
    client.send_authentication({});
    Client second = aaad_.client();
    EXPECT_EQ(second.ping().result, AAA_OK) << "so the request before it has been read";
    aaad_.signal(SIGTERM);
    EXPECT_EQ(client.receive(AAA_REQ_AUTHEN).status, uint32_t{AAA_STAT_FAIL});
    EXPECT_EQ(idle.receive(AAA_REQ_PING).result, AAA_ERR_NOT_CONNECTED);
    EXPECT_EQ(aaad_.wait(), 0);
}

TEST_F(AaadProcess, StartsAgainAfterItWasKilled) {
    for (int i = 0; i < 3; ++i) {
        aaad_.start();
        EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
        aaad_.signal(SIGKILL);
        EXPECT_EQ(aaad_.wait(), -SIGKILL);
        EXPECT_EQ(access(aaad_.socket().c_str(), F_OK), 0) << "the socket is left behind";
    }
}

TEST_F(AaadProcess, ASecondOneSaysWhatToDoAndLeavesTheFirstAlone) {
    aaad_.start();
    const auto [status, output] = aaad_.run({"--foreground"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(
        output.find(aaad_.socket() + ": another service listens there, or the path is not a socket; end the "
                                     "other one, or use --socket PATH"),
        std::string::npos)
        << output;
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadProcess, SaysWhichSettingsOrDirectoryIsMissing) {
    const std::string none = aaad_.dir().path("none");
    for (const char *way : {"--check", "--foreground"}) {
        const auto [status, output] = aaad_.run({"--config", none, way});
        EXPECT_EQ(status, 1);
        EXPECT_NE(output.find(none + ": No such file or directory"), std::string::npos) << output;
    }
    const auto [status, output] = aaad_.run({"--foreground", "--socket", none + "/no/aaad.sock"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(output.find(none + "/no/aaad.sock: its directory does not exist; make it: systemd-tmpfiles "
                                 "--create aaa.conf"),
              std::string::npos)
        << output;
}

TEST_F(AaadProcess, MakesTheDirectoryOfItsSocketAndOpensItToTheRightUsers) {
    const std::string socket = aaad_.dir().path("run/aaad.sock");
    aaad_.settings("socket-mode 0660\n");
    aaad_.start({"--socket", socket});
    struct stat status {};
    ASSERT_EQ(stat(aaad_.dir().path("run").c_str(), &status), 0);
    EXPECT_EQ(stat(socket.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660u);
    EXPECT_EQ(stat((socket + ".lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0077, 0u) << "whoever can lock it can keep the service from starting";
    EXPECT_EQ(Client(socket).authenticate({}).status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadProcess, WorksWithoutStandardDescriptors) {
    aaad_.before_exec([] {
        for (int fd = 0; fd <= 2; ++fd) {
            close(fd);
        }
    });
    aaad_.start();
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    for (int fd = 0; fd <= 2; ++fd) {
        char target[64] = "";
        const std::string link = "/proc/" + std::to_string(aaad_.pid()) + "/fd/" + std::to_string(fd);
        EXPECT_GT(readlink(link.c_str(), target, sizeof target - 1), 0);
        EXPECT_STREQ(target, "/") << "a number that the next file would get";
    }
    EXPECT_EQ(aaad_.stop(), 0);
}

TEST_F(AaadProcess, FaultySettingsKeepItFromStarting) {
    aaad_.settings("patiense 5000\n");
    const auto [status, output] = aaad_.run({"--foreground"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(output.find("aaad.conf:3: \"patiense\" is not a setting; did you mean \"patience\"?"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("aaad --check"), std::string::npos);
}

TEST_F(AaadProcess, MakesASocketAgainThatSomeoneHasRemoved) {
    aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL});
    aaad_.start();
    Client before = aaad_.client();
    const std::string control = aaad_.dir().path("control.sock");
    ASSERT_EQ(unlink(aaad_.socket().c_str()), 0);
    ASSERT_EQ(unlink(control.c_str()), 0);
    aaad_.reload();  // otherwise it looks every five seconds
    EXPECT_TRUE(aaad_.wait_for_log("was removed and is there again"));
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
    EXPECT_EQ(before.authenticate().status, uint32_t{AAA_STAT_PASS}) << "a client of before";
    EXPECT_EQ(access(control.c_str(), F_OK), 0);
    // With the lock file and another file in its place.
    ASSERT_EQ(unlink(aaad_.socket().c_str()), 0);
    ASSERT_EQ(unlink((aaad_.socket() + ".lock").c_str()), 0);
    ASSERT_EQ(mkdir(aaad_.socket().c_str(), 0700), 0);
    aaad_.reload();
    EXPECT_TRUE(aaad_.wait_for_log("no one can log in until it is there"));
    ASSERT_EQ(rmdir(aaad_.socket().c_str()), 0);
    aaad_.reload();
    EXPECT_EQ(aaad_.login().status, uint32_t{AAA_STAT_PASS});
}

TEST_F(AaadProcess, CheckSaysEverythingThatIsWrong) {
    const auto [good, fine] = aaad_.run({"--check"});
    EXPECT_EQ(good, 0) << fine;
    EXPECT_NE(fine.find("2 local users"), std::string::npos) << fine;
    aaad_.users("alice:" + hash_of("wonderland") + "\nbob:plain:1\n");
    aaad_.number("group-server/radius/corp/server/0x1/server.example,1812,1813", 1);
    aaad_.number("group-server/radius/corp/server/0x2/192.0.2.1,99999", 1);
    aaad_.text("group-server/radius/corp/settings/key", "in the clear");
    aaad_.number("group-server/radius/corp/server/0x3/192.0.2.3", 1);
    aaad_.number("group-server/radius/my group/server/0x1/192.0.2.4,1812,1813", 1);
    aaad_.text("group-server/radius/my group/settings/192.0.2.4,1812,1813/key", "in the clear");
    aaad_.number("radius/host/0x1/192.0.2.5,1812,1813", 1);
    aaad_.text("accounting/exec/default", "not a list");
    aaad_.list("authentication/login/default", {"nowhere"});
    const auto [bad, output] = aaad_.run({"--check"});
    EXPECT_EQ(bad, 1);
    for (const char *what :
         {"users:1: use NAME:HASH:PRIVILEGE", "users:2: the second field is not a password hash",
          "server.example,1812,1813: \"server.example\" is not an address; names are not resolved",
          "192.0.2.1,99999: \"99999\" is not a port", "settings/key: it cannot be opened here",
          "or store it: aaactl sg key radius corp\n",
          "or store it: aaactl sg key radius 'my group' 192.0.2.4,1812,1813\n",
          "accounting/exec/default: System database item is of another type",
          "the server group \"nowhere\" is not configured", "no one could log in: no method of the list",
          "faults"}) {
        EXPECT_NE(output.find(what), std::string::npos) << what << "\n" << output;
    }
    EXPECT_EQ(output.find("in the clear"), std::string::npos) << "a key is never shown";
    EXPECT_EQ(output.find('%'), std::string::npos)
        << "lines of a log are not of the form of faults: " << output;
}

// Symptom: a bare line of the log stood before the faults.
TEST_F(AaadProcess, CheckSaysWhyInTheFormOfTheOtherFaults) {
    aaad_.text("group-server/radius/corp/settings/key", "01" + std::string(98, '0'));
    aaad_.number("group-server/radius/corp/server/0x1/192.0.2.1,1812,1813", 1);
    const ::ScopedEnv keys("AAA_MASTER_KEYS", aaad_.dir().path("none.keys"));
    const ::ScopedEnv size("AAA_SYSDB_MAP_MIB", "plenty");
    const auto [locked, reasons] = aaad_.run({"--check"});
    EXPECT_EQ(locked, 1);
    EXPECT_NE(reasons.find("\nA sealed key is malformed"), std::string::npos) << reasons;
    EXPECT_NE(reasons.find("\nAAA_SYSDB_MAP_MIB=plenty is not a number"), std::string::npos) << reasons;
    EXPECT_NE(reasons.find("say as root: runuser -u aaad -- aaactl key masters; or store it"),
              std::string::npos)
        << reasons;
    EXPECT_EQ(reasons.find('%'), std::string::npos) << reasons;

    std::filesystem::resize_file(std::string(std::getenv("AAA_SYSDB_CFG_DIR")) + "/cfg.mdb", 0);
    const auto [damaged, output] = aaad_.run({"--check"});
    EXPECT_EQ(damaged, 1);
    EXPECT_NE(output.find("cannot be used: System database files are damaged: database "), std::string::npos)
        << output;
    EXPECT_EQ(output.find('%'), std::string::npos) << output;
}

TEST_F(AaadProcess, BadOptionsAreAnsweredWithTheUsage) {
    const auto [status, output] = aaad_.run({"--frobnicate"});
    EXPECT_EQ(status, 2);
    EXPECT_NE(output.find("usage: aaad"), std::string::npos);
    EXPECT_EQ(aaad_.run({"start"}).first, 2);
    const auto [help, text] = aaad_.run({"--help"});
    EXPECT_EQ(help, 0);
    EXPECT_NE(text.find("--check"), std::string::npos);
}

}  // namespace
