// SPDX-License-Identifier: Apache-2.0
//
// An outsider: a user of the machine who is not in the group.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "stage.hpp"

namespace adversary {
namespace {

using Outsider = Adversary;

TEST_F(Outsider, MayNeitherReadNorWriteNorSeeTheFiles) {
    expect_usable("/cfg");
    expect_usable("/oper");
    as(Role::kOutsider, [] {
        for (const std::string &path : {kCfg + "/cfg.mdb", kCfg + "/cfg.mdb-lock", kRun + "/oper.mdb",
                                        kRun + "/oper.mdb-lock", kRun + "/w"}) {
            EXPECT_EQ(open(path.c_str(), O_RDONLY | O_CLOEXEC), -1) << path;
            EXPECT_EQ(errno, EACCES) << path;
            EXPECT_EQ(access(path.c_str(), F_OK), -1) << path;
        }
        EXPECT_EQ(open(kCfg.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), -1);
    });
    for (const char *command : {"get", "set", "watch"}) {
        Start start = Adversary::root({command, "/cfg/usable"});
        start.role = Role::kOutsider;
        const Result result = run(start);
        EXPECT_NE(result.status, 0) << command << result.out;
        EXPECT_EQ(result.out, "0x80819e00\n") << command;
    }
    expect_usable();
}

// A wake-up is a datagram that anyone who may write the socket can send.
TEST_F(Outsider, MayNotWakeAWatcher) {
    Running watcher(root({"watch", "/oper/watched"}));
    ASSERT_EQ(watcher.line(), "0x00000000");
    std::string socket_path;
    as(Role::kOutsider, [] {
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (kRun + "/w/1.0").copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(sendto(fd, "x", 1, 0, reinterpret_cast<sockaddr *>(&address), sizeof address), -1);
        EXPECT_EQ(errno, EACCES);
    });
    ASSERT_TRUE(succeeded(run(root({"set", "/oper/watched", "1"}))));
    EXPECT_EQ(watcher.line(), "changed");
}

TEST_F(Outsider, MayNotMakeLinksToTheFiles) {
    expect_usable();
    as(Role::kOutsider, [] {
        EXPECT_EQ(link((kCfg + "/cfg.mdb").c_str(), "/tmp/adversary.link"), -1);
        EXPECT_EQ(errno, EACCES);
    });
}

}  // namespace
}  // namespace adversary
