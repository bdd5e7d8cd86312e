// SPDX-License-Identifier: Apache-2.0
//
// The kind of node, and services that are one system call.

#include "platform/node.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "child_process.hpp"
#include "support/temp_dir.hpp"

namespace {

const ChildBodies kBodies = {
    {"line-card", [] { printf("%d %d\n", platform_am_i_lc(), platform_am_i_lc()); }},
};

std::string line_card(const std::vector<std::string> &settings) {
    std::vector<std::string> all = {"AAA_LOG=stderr",
                                    "AAA_NODE_TYPE=", "AAA_NODE_CONF=/nonexistent/node.conf"};
    all.insert(all.end(), settings.begin(), settings.end());
    const ChildResult child = run_child("line-card", all);
    return child.out + child.err;
}

}  // namespace

// ---- node ------------------------------------------------------------------------

TEST(LineCard, IsNoneAtFirst) {
    EXPECT_EQ("0 0\n", line_card({}));
}

TEST(LineCard, IsToldByTheEnvironment) {
    EXPECT_EQ("1 1\n", line_card({"AAA_NODE_TYPE=line-card"}));
    EXPECT_EQ("0 0\n", line_card({"AAA_NODE_TYPE=route-processor"}));
}

TEST(LineCard, IsToldByTheFile) {
    const TempDir dir;
    EXPECT_EQ("1 1\n",
              line_card({"AAA_NODE_CONF=" + dir.write("a", "# this node\n\nnode-type\tline-card # yes\n")}));
    EXPECT_EQ("0 0\n", line_card({"AAA_NODE_CONF=" + dir.write("b", "node-type route-processor")}));
    EXPECT_EQ("0 0\n", line_card({"AAA_NODE_TYPE=route-processor",
                                  "AAA_NODE_CONF=" + dir.write("c", "node-type line-card\n")}));
}

TEST(LineCard, ReportsWhatItCannotUse) {
    const TempDir dir;
    EXPECT_EQ(
        "0 0\n%AAA-PLATFORM-4-BAD_SETTING : AAA_NODE_TYPE: node type \"lc\" is neither line-card nor "
        "route-processor; using route-processor\n",
        line_card({"AAA_NODE_TYPE=lc"}));
    const std::string file = dir.write("a", "\ncolour blue\nnode-type line-card\n");
    EXPECT_EQ("1 1\n%AAA-PLATFORM-4-BAD_FILE : " + file +
                  ":2: expected \"node-type line-card\" or \"node-type "
                  "route-processor\"; the line is not used\n",
              line_card({"AAA_NODE_CONF=" + file}));
    const std::string open_file = dir.write("b", "node-type line-card\n", 0666);
    EXPECT_EQ("0 0\n%AAA-PLATFORM-3-BAD_FILE : " + open_file +
                  ": users other than its owner (root or this user) may write "
                  "it; correct owner and mode; the file is not used\n",
              line_card({"AAA_NODE_CONF=" + open_file}));
}

// ---- system calls ------------------------------------------------------------------

TEST(Gettid, IsTheCallingThreads) {
    EXPECT_EQ(getpid(), qm_gettid());
    std::thread([] { EXPECT_EQ(gettid(), qm_gettid()); }).join();
}

TEST(InetNtop, WritesBothFamilies) {
    char text[64];
    const unsigned char v4[4] = {192, 0, 2, 1};
    EXPECT_EQ(text, qm_inet_ntop(AF_INET, v4, text, 16));
    EXPECT_STREQ("192.0.2.1", text);
    in6_addr v6;
    inet_pton(AF_INET6, "2001:db8::1", &v6);
    EXPECT_EQ(text, qm_inet_ntop(AF_INET6, &v6, text, 46));
    EXPECT_STREQ("2001:db8::1", text);
}

TEST(InetNtop, KeepsTheLimit) {
    char text[64] = "";
    const unsigned char v4[4] = {255, 255, 255, 255};
    EXPECT_NE(nullptr, qm_inet_ntop(AF_INET, v4, text, 16));
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, v4, text, 15));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, v4, text, 0));
    EXPECT_NE(nullptr, qm_inet_ntop(AF_INET, v4, text, SIZE_MAX));
}

TEST(InetNtop, RefusesNullsAndOtherFamilies) {
    char text[64];
    const unsigned char v4[4] = {1, 2, 3, 4};
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, nullptr, text, 16));
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_INET, v4, nullptr, 16));
    EXPECT_EQ(nullptr, qm_inet_ntop(AF_UNIX, v4, text, 46));
    EXPECT_EQ(EAFNOSUPPORT, errno);
}

TEST(Close, Closes) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    EXPECT_EQ(0, qm_close(fds[0]));
    EXPECT_EQ(-1, fcntl(fds[0], F_GETFD));
    EXPECT_EQ(0, qm_close(fds[1]));
    EXPECT_EQ(-1, qm_close(-1));
    EXPECT_EQ(EBADF, errno);
}

int main(int argc, char **argv) {
    if (run_child_body(kBodies)) {
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
