// SPDX-License-Identifier: Apache-2.0
//
// A member of the group, who may change the database and everything in its
// directories, and with it who may log in. What a member must not get are the files of
// root, or a process of root that hangs or crashes.

#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "stage.hpp"
#include "support/database_table.hpp"

namespace adversary {
namespace {

using Member = Adversary;

struct Place {
    std::string path;
    std::vector<std::string> use;  // what root does with the database
};

std::vector<Place> places() {
    return {{kCfg + "/cfg.mdb", {"set", "/cfg/x", "1"}},
            {kCfg + "/cfg.mdb-lock", {"set", "/cfg/x", "1"}},
            {kCfg + "/cfg.mdb-state", {"set", "/cfg/x", "1"}},
            {kRun + "/oper.mdb", {"set", "/oper/x", "1"}},
            {kRun + "/oper.mdb-lock", {"set", "/oper/x", "1"}},
            {kRun + "/oper.mdb-state", {"set", "/oper/x", "1"}}};
}

void replace(const std::string &path, const std::function<int()> &make) {
    as(Role::kMember, [&] {
        unlink(path.c_str());
        rmdir(path.c_str());
        EXPECT_EQ(make(), 0) << path;
    });
}

// Afterwards a member, too, takes the database into use again.
void put_back(const std::string &path) {
    as(Role::kMember, [&] {
        unlink(path.c_str());
        rmdir(path.c_str());
    });
}

TEST_F(Member, LinksInPlaceOfFilesReachNoFileOfRoot) {
    for (const Place &place : places()) {
        const std::string target = precious();
        replace(place.path, [&] { return symlink(target.c_str(), place.path.c_str()); });
        const Result result = run(root(place.use));
        expect_unharmed();
        EXPECT_LT(result.status, 128) << place.path << result.err;
        if (!place.path.ends_with("-state")) {  // not needed to go on
            EXPECT_FALSE(succeeded(result)) << place.path;
            EXPECT_NE(result.err.find(place.path), std::string::npos) << result.err;
        }
        put_back(place.path);
    }
    expect_usable("/cfg");
    expect_usable("/oper");
}

TEST_F(Member, DanglingLinksMakeNoFileElsewhere) {
    for (const Place &place : places()) {
        const std::string target = kHome + "/made-by-root";
        replace(place.path, [&] { return symlink(target.c_str(), place.path.c_str()); });
        run(root(place.use));
        EXPECT_FALSE(exists(target)) << place.path;
        put_back(place.path);
    }
    expect_usable();
}

TEST_F(Member, OtherKindsOfFilesNeitherHangNorCrashAProcessOfRoot) {
    for (const Place &place : places()) {
        replace(place.path, [&] { return mkfifo(place.path.c_str(), 0660); });
        EXPECT_LT(run(root(place.use)).status, 128) << place.path << " as a FIFO";
        put_back(place.path);
        replace(place.path, [&] { return mkdir(place.path.c_str(), 0770); });
        EXPECT_LT(run(root(place.use)).status, 128) << place.path << " as a directory";
        put_back(place.path);
    }
    expect_usable("/cfg");
    expect_usable("/oper");
}

TEST_F(Member, ALinkInPlaceOfTheWatcherDirectoryLeadsNowhere) {
    ASSERT_EQ(mkdir((kHome + "/elsewhere").c_str(), 0700), 0);
    as(Role::kMember, [] {
        EXPECT_EQ(rmdir((kRun + "/w").c_str()), 0);
        EXPECT_EQ(symlink((kHome + "/elsewhere").c_str(), (kRun + "/w").c_str()), 0);
    });
    Running watcher(root({"watch", "/oper/watched"}));
    EXPECT_NE(watcher.line(), "0x00000000");
    EXPECT_EQ(rmdir((kHome + "/elsewhere").c_str()), 0) << "something was made in it";
    put_back(kRun + "/w");
    watcher.end();
    Running second(root({"watch", "/oper/watched"}));
    EXPECT_EQ(second.line(), "0x00000000");
}

// The names of sockets are rows of the database. A row of a member, with a link of its
// name, must not make root send to, or remove, what the member may not.
TEST_F(Member, LinksInTheWatcherDirectoryGetNoWakeUps) {
    const std::string private_path = kHome + "/private";
    const int listener = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    private_path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(chmod(private_path.c_str(), 0600), 0);
    const std::string target = precious();
    ASSERT_TRUE(succeeded(run(root({"set", "/oper/watched", "1"}))));
    as(Role::kMember, [&] {
        for (const auto &[name, to] : {std::pair{"1.a", private_path}, std::pair{"2.b", target}}) {
            aaatest::DatabaseTable table(kRun + "/oper.mdb", "watch");
            table.put("/oper/watched", name);
            table.commit();
            EXPECT_EQ(symlink(to.c_str(), (kRun + "/w/" + name).c_str()), 0);
        }
    });
    EXPECT_TRUE(succeeded(run(root({"set", "/oper/watched", "2"}))));
    char byte = 0;
    EXPECT_EQ(recv(listener, &byte, 1, 0), -1) << "root sent to the private socket";
    EXPECT_TRUE(exists(private_path));
    expect_unharmed();
    close(listener);
}

TEST_F(Member, AFileThatAMemberMakesFirstServesAll) {
    put_back(kCfg + "/cfg.mdb");
    put_back(kCfg + "/cfg.mdb-lock");
    Start member = root({"set", "/cfg/mine", "1"});
    member.role = Role::kMember;
    member.umask = 077;
    const Result made = run(member);
    EXPECT_TRUE(succeeded(made)) << made.out << made.err;
    EXPECT_EQ(mode_of(kCfg + "/cfg.mdb"), "54322 54321 660");
    EXPECT_EQ(mode_of(kCfg + "/cfg.mdb-lock"), "54322 54321 660");
    expect_usable();
    EXPECT_EQ(run(root({"get", "/cfg/mine"})).out, "1\n");
}

// The writer's mutex of a lock file is on the cache line after the mutex of the readers, with
// two numbers before and after that.
constexpr off_t kWritersMutexAt = (8 + sizeof(pthread_mutex_t) + 16 + 63) / 64 * 64;

// The writer's lock, held by a process of the member's choice.
void forge_writer(const std::string &lock_file, pid_t holder) {
    as(Role::kMember, [&] {
        const int fd = open(lock_file.c_str(), O_RDWR | O_CLOEXEC);
        const auto word = static_cast<std::uint32_t>(holder) | FUTEX_WAITERS;
        EXPECT_EQ(pwrite(fd, &word, sizeof word, kWritersMutexAt), static_cast<ssize_t>(sizeof word));
    });
}

// Root read in the log that this process must be killed.
TEST_F(Member, ANumberInTheLockFileSendsRootAfterNoOtherProcess) {
    Running user(root({"watch", "/cfg/x"}));  // keeps the lock file as it is
    ASSERT_EQ(user.line(), "0x00000000");
    forge_writer(kCfg + "/cfg.mdb-lock", getpid());
    for (const Role role : {Role::kRoot, Role::kMember}) {
        Start impatient = root({"set", "/cfg/x", "1"});
        impatient.environment = {"AAA_SYSDB_WAIT_MS=50"};
        impatient.role = role;
        const Result result = run(impatient);
        EXPECT_EQ(result.out, "0x8081a800\n");
        EXPECT_NE(result.err.find("names process " + std::to_string(getpid())), std::string::npos)
            << result.err;
        EXPECT_NE(result.err.find("could not be verified"), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find("kill -"), std::string::npos) << result.err;
    }
    user.end();
    expect_usable();  // the first user initialises the locks
}

// The map was full, whatever root deleted, and no log line said why.
TEST_F(Member, AReaderThatAMemberStopsIsNamedWhenItHasFilledTheMap) {
    const auto small = [](std::vector<std::string> arguments) {
        Start start = Adversary::root(std::move(arguments));
        start.environment = {"AAA_SYSDB_MAP_MIB=1", "AAA_SYSDB_WAIT_MS=50"};
        return start;
    };
    ASSERT_TRUE(succeeded(run(small({"set", "/cfg/x", "1"}))));
    {
        const Stopped reader(Role::kMember, [] { begin_read(kCfg + "/cfg.mdb"); });
        const Result result = run(small({"loop", "/cfg/x"}));
        const std::string number = std::to_string(reader.pid());
        EXPECT_EQ(result.out, "ready\n0x8081a800\n");
        EXPECT_NE(result.err.find("process " + number + " ("), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("kill -CONT " + number + ", or end it: kill -KILL " + number),
                  std::string::npos)
            << result.err;
        EXPECT_EQ(run(small({"get", "/cfg/x"})).status, 0) << "reading is not affected";
    }
    EXPECT_TRUE(succeeded(run(small({"set", "/cfg/x", "1"})))) << "the reader has been killed";
    expect_usable();
}

}  // namespace
}  // namespace adversary
