// SPDX-License-Identifier: Apache-2.0
//
// An outsider who starts a set-user-ID program: arguments, environment, descriptors,
// limits, umask and signals are the outsider's, the rights are those of root.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "stage.hpp"

namespace adversary {
namespace {

using SetUserId = Adversary;

TEST_F(SetUserId, MakesNoDirectories) {
    std::filesystem::remove_all("/var/lib/aaa");
    std::filesystem::remove_all("/run/aaa");
    for (const char *path : {"/cfg/x", "/oper/x"}) {
        const Result result = run(set_user_id({"set", path, "1"}));
        EXPECT_EQ(result.out, "0x80819e00\n") << result.err;
        EXPECT_NE(result.err.find("systemd-tmpfiles --create"), std::string::npos) << result.err;
    }
    EXPECT_FALSE(exists("/var/lib/aaa"));
    EXPECT_FALSE(exists("/run/aaa"));
}

// A program of root makes them for root alone: no group is at hand that should get them.
TEST_F(SetUserId, NoDirectoryGetsTheGroupThatHappensToBeEffective) {
    std::filesystem::remove_all("/var/lib/aaa");
    ASSERT_EQ(setresgid(kOutsiderId, kOutsiderId, 0), 0);
    EXPECT_TRUE(succeeded(run(root({"set", "/cfg/x", "1"}))));
    ASSERT_EQ(setresgid(0, 0, 0), 0);
    struct stat status {};
    ASSERT_EQ(stat(kCfg.c_str(), &status), 0);
    EXPECT_NE(status.st_gid, gid_t{kOutsiderId});
    ASSERT_EQ(stat((kCfg + "/cfg.mdb").c_str(), &status), 0);
    EXPECT_NE(status.st_gid, gid_t{kOutsiderId});
}

// The caller would own the file that a set-group-ID program makes.
TEST_F(SetUserId, ASetGroupIdProgramMakesNoFileOfItsCaller) {
    for (const char *name : {"/cfg.mdb", "/cfg.mdb-lock", "/cfg.mdb-state"}) {
        unlink((kCfg + name).c_str());
    }
    Start start = set_user_id({"set", "/cfg/x", "1"});
    start.program = kSetGroupId;
    const Result result = run(start);
    EXPECT_FALSE(succeeded(result)) << result.out;
    for (const auto &entry : std::filesystem::directory_iterator(kCfg)) {
        EXPECT_EQ(mode_of(entry.path()).substr(0, 2), "0 ") << entry.path();
    }
    expect_usable();
    EXPECT_TRUE(succeeded(run(start))) << "with the files that root made";
}

TEST_F(SetUserId, TheEnvironmentChoosesNothing) {
    ASSERT_EQ(mkdir((kHome + "/outsiders").c_str(), 0777), 0);
    ASSERT_EQ(chmod((kHome + "/outsiders").c_str(), 0777), 0);
    Start start = set_user_id({"set", "/cfg/chosen", "7"});
    const std::string mine = kHome + "/outsiders";
    start.environment = {"AAA_SYSDB_CFG_DIR=" + mine,
                         "AAA_SYSDB_RUN_DIR=" + mine,
                         "AAA_SYSDB_PROVIDER=" + mine + "/evil.so",
                         "AAA_SYSDB_GROUP=54323",
                         "AAA_SYSDB_MAP_MIB=1",
                         "AAA_SYSDB_WAIT_MS=0",
                         "AAA_LOG=file:" + mine + "/log",
                         "AAA_MASTER_KEYS=" + mine + "/keys",
                         "AAA_SYSLOG_SOCKET=" + mine + "/socket",
                         "LD_LIBRARY_PATH=" + mine};
    const Result result = run(start);
    EXPECT_TRUE(succeeded(result)) << result.out << result.err;
    EXPECT_TRUE(std::filesystem::is_empty(mine));
    EXPECT_EQ(run(root({"get", "/cfg/chosen"})).out, "7\n");
}

// Every descriptor below 3 that the process opens is one that a log line, or an answer
// printed by the program, is written to. Without the load hook, as a classic daemon may
// be started, the database is what is opened first.
TEST_F(SetUserId, ClosedDescriptorsDoNotTurnOutputIntoDamage) {
    expect_usable();
    for (const std::vector<int> &closed : {std::vector<int>{0, 1, 2}, {2}, {1, 2}, {0, 2}, {0}, {1}}) {
        for (const char *command : {"log", "set", "get"}) {
            for (Start start :
                 {set_user_id({command, "/cfg/usable", "5"}), root({command, "/cfg/usable", "5"})}) {
                start.environment = {"NO_DLLMAIN=1"};
                start.closed = closed;
                EXPECT_LT(run(start).status, 128) << command;
                expect_usable();
            }
        }
    }
}

// The file of a descriptor of a process; empty when it is closed.
std::string file_of(pid_t pid, int fd) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd), error);
}

bool is_of_the_database(const std::string &file) {
    return file.starts_with(kCfg) || file.starts_with(kRun);
}

// No output goes there by chance only when the numbers are others.
TEST_F(SetUserId, NoFileOfTheDatabaseIsAStandardDescriptor) {
    expect_usable("/cfg");
    expect_usable("/oper");
    for (const std::vector<int> &closed : {std::vector<int>{0, 1, 2}, {2}, {1, 2}, {0, 2}, {0}, {1}}) {
        for (const char *path : {"/cfg/usable", "/oper/usable"}) {
            for (Start start : {set_user_id({"stop", path}), root({"stop", path})}) {
                start.environment = {"NO_DLLMAIN=1"};
                start.closed = closed;
                Running program(start);
                ASSERT_TRUE(program.has_stopped());
                for (const int fd : {0, 1, 2}) {
                    EXPECT_FALSE(is_of_the_database(file_of(program.pid(), fd)))
                        << fd << " is " << file_of(program.pid(), fd);
                }
                int others = 0;
                for (int fd = 3; fd < 64; ++fd) {
                    others += is_of_the_database(file_of(program.pid(), fd)) ? 1 : 0;
                }
                EXPECT_GT(others, 1) << "the database is open";
            }
        }
    }
}

TEST_F(SetUserId, LimitsOfTheCallerLoseNothing) {
    expect_usable();
    const auto limited = [](int resource, rlim_t value, const char *command) {
        Start start = Adversary::set_user_id({command, "/cfg/usable", "9"});
        start.limits = {{resource, {value, value}}};
        run(start);  // may fail or be killed
        Adversary::expect_usable();
    };
    for (const rlim_t descriptors : {3, 4, 5, 6, 8}) {
        limited(RLIMIT_NOFILE, descriptors, "set");
    }
    for (const rlim_t bytes : {0, 1, 4096, 8192, 20000}) {
        limited(RLIMIT_FSIZE, bytes, "set");
    }
#ifndef __SANITIZE_ADDRESS__  // needs more than any limit
    for (const rlim_t mebibytes : {4, 16, 64, 256}) {
        limited(RLIMIT_AS, mebibytes << 20, "set");
    }
#endif
}

TEST_F(SetUserId, TheUmaskOfTheCallerDoesNotChooseModes) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        for (const char *name : {"/cfg.mdb", "/cfg.mdb-lock", "/cfg.mdb-state"}) {
            unlink((kCfg + name).c_str());
        }
        Start start = set_user_id({"set", "/cfg/x", "1"});
        start.umask = mask;
        const Result result = run(start);
        EXPECT_TRUE(succeeded(result)) << result.out << result.err;
        EXPECT_EQ(mode_of(kCfg + "/cfg.mdb"), "0 54321 660");
        EXPECT_EQ(mode_of(kCfg + "/cfg.mdb-lock"), "0 54321 660");
    }
}

// The caller may stop the program at any moment, inside a transaction most of the time:
// it is slow to write, and does nothing else.
TEST_F(SetUserId, AStoppedProgramLocksNobodyOut) {
    Start impatient = root({"set", "/cfg/other", "1"});
    impatient.environment = {"AAA_SYSDB_WAIT_MS=200"};
    int busy = 0;
    std::minstd_rand random(20261122);
    for (int round = 0; round < 40 && busy < 3; ++round) {
        Running program(set_user_id({"loop", "/cfg/looped"}));
        ASSERT_EQ(program.line(), "ready");
        for (unsigned i = random() % 64; i > 0; --i) {
            static_cast<void>(run(root({"load"})));  // takes some time
        }
        as(Role::kOutsider, [&] { EXPECT_EQ(kill(program.pid(), SIGSTOP), 0); });
        const Result other = run(impatient);
        if (!succeeded(other)) {
            ++busy;
            EXPECT_EQ(other.out, "0x8081a800\n") << other.err;
            EXPECT_NE(other.err.find(std::to_string(program.pid())), std::string::npos) << other.err;
        }
        EXPECT_TRUE(run(root({"get", "/cfg/looped"})).status == 0) << "reading is not affected";
    }
    EXPECT_GT(busy, 0) << "the program was never stopped inside a transaction";
    expect_usable();
}

// The same for a program that only reads: its view keeps the pages of the map from being used
// again.
TEST_F(SetUserId, AProgramThatIsStoppedInAReadIsNamedWhenItHasFilledTheMap) {
    const auto small = [](Start start) {
        start.environment = {"AAA_SYSDB_MAP_MIB=1", "AAA_SYSDB_WAIT_MS=50"};
        return start;
    };
    ASSERT_TRUE(succeeded(run(small(root({"set", "/cfg/x", "1"})))));
    Running program(set_user_id({"read", "/cfg/x"}));
    ASSERT_EQ(program.line(), "ready");
    bool is_inside = false;
    for (int round = 0; round < 2000 && !is_inside; ++round) {
        as(Role::kOutsider, [&] { EXPECT_EQ(kill(program.pid(), SIGSTOP), 0); });
        ASSERT_TRUE(program.has_stopped());
        is_inside = is_reading(kCfg + "/cfg.mdb", program.pid());
        if (!is_inside) {
            as(Role::kOutsider, [&] { EXPECT_EQ(kill(program.pid(), SIGCONT), 0); });
        }
    }
    ASSERT_TRUE(is_inside) << "the program was never stopped inside a read";
    const Result result = run(small(root({"loop", "/cfg/x"})));
    EXPECT_EQ(result.out, "ready\n0x8081a800\n");
    EXPECT_NE(result.err.find("kill -CONT " + std::to_string(program.pid())), std::string::npos)
        << result.err;
    EXPECT_EQ(run(small(root({"get", "/cfg/x"}))).status, 0) << "reading is not affected";
    as(Role::kOutsider, [&] { EXPECT_EQ(kill(program.pid(), SIGCONT), 0); });
    Start patient = small(root({"set", "/cfg/x", "1"}));
    patient.environment.pop_back();
    EXPECT_TRUE(succeeded(run(patient)));
}

TEST_F(SetUserId, AKilledProgramLosesNothing) {
    std::minstd_rand random(20261122);
    for (int round = 0; round < 30; ++round) {
        Running program(set_user_id({"loop", "/cfg/looped"}));
        ASSERT_EQ(program.line(), "ready");
        as(Role::kOutsider, [&] { EXPECT_EQ(kill(program.pid(), SIGKILL), 0); });
        program.end();
        expect_usable();
    }
}

}  // namespace
}  // namespace adversary
