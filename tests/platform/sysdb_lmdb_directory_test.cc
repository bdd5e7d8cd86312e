// SPDX-License-Identifier: Apache-2.0
//
// Making directories of the database while others, who may write in the directory above,
// take the names and exchange what is made.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "file_checks.hpp"
#include "support/machine.hpp"
#include "support/sysdb.hpp"
#include "support/system_calls.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr gid_t kGroup = 54321;

#define EXPECT_HAS(text, part) EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)

// Set in the process that binds.
std::function<int(const std::string &)> &on_call() {
    static auto &instance = *new std::function<int(const std::string &)>;
    return instance;
}

// Not for its own calls.
int call_hook(const char *function) {
    before_system_call = nullptr;
    const int error = on_call()(function);
    before_system_call = call_hook;
    return error;
}

void watch_calls(std::function<int(const std::string &)> hook) {
    on_call() = std::move(hook);
    before_system_call = call_hook;
}

void bind_and_use() {
    const Bound bound("/cfg/");
    EXPECT_EQ(0u, bound.code());
    EXPECT_EQ(0u, set_number(bound.handle(), "a", 1));
}

std::string unfinished(const std::string &parent) {
    for (const auto &entry : fs::directory_iterator(parent)) {
        if (entry.path().filename().string().starts_with(".new.")) {
            return entry.path();
        }
    }
    return "";
}

// Once a directory has been made, another one takes its place before it is opened.
void exchange_with(const std::string &other, const std::string &parent) {
    watch_calls([=, was_made = false](const std::string &call) mutable {
        if (call == "mkdirat") {
            was_made = true;
        } else if (call == "openat" && was_made && fs::exists(other)) {
            const std::string name = unfinished(parent);
            fs::remove(name);
            fs::rename(other, name);
        }
        return 0;
    });
}

// The name was made of the number of the process, which is the same in two containers and for
// all threads. With something in it, the log said that there is no such directory.
TEST(SysdbDirectory, NameThatIsTakenDoesNotStopTheProcess) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        fs::create_directories(sandbox.root() + "/.new." + std::to_string(getpid()) + "/planted");
        bind_and_use();
    });
    EXPECT_TRUE(fs::exists(sandbox.cfg_file()));
}

TEST(SysdbDirectory, LeavesNoOtherNameBehind) {
    const DatabaseSandbox sandbox;
    run_forked([] { bind_and_use(); });
    EXPECT_EQ("", unfinished(sandbox.root()));
}

TEST(SysdbDirectory, TriesAnotherNameWhenOneIsTaken) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        watch_calls([tries = 0](const std::string &call) mutable {
            return call == "mkdirat" && ++tries < 3 ? EEXIST : 0;
        });
        bind_and_use();
    });
    EXPECT_TRUE(fs::exists(sandbox.cfg_file()));
}

TEST(SysdbDirectory, SaysThatItIsDisturbedWhenEveryNameIsTaken) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        watch_calls([](const std::string &call) { return call == "mkdirat" ? EEXIST : 0; });
        EXPECT_NE(0u, Bound("/cfg/").code());
    });
    EXPECT_HAS(log, "directory " + sandbox.root() + "/cfg cannot be made: another process takes or replaces");
    EXPECT_HAS(log, "mkdir -m 2770 " + sandbox.root() + "/cfg && chgrp -h aaa " + sandbox.root() + "/cfg");
}

// A member of the group may write the directory above, and so plant a link before root
// follows the advice: the target was given to the group.
TEST(SysdbDirectory, TheAdviceDoesNotFollowALink) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        watch_calls([](const std::string &call) { return call == "mkdirat" ? EEXIST : 0; });
        EXPECT_NE(0u, Bound("/cfg/").code());
    });
    const std::size_t begin = log.find("mkdir -m 2770");
    ASSERT_NE(begin, std::string::npos) << log;
    const std::string advice = log.substr(begin, log.find(" (with", begin) - begin);
    const std::string victim = sandbox.root() + "/victim";
    ASSERT_EQ(mkdir(victim.c_str(), 0700), 0);
    fs::create_symlink(victim, sandbox.root() + "/cfg");
    EXPECT_NE(std::system((advice + " 2>/dev/null").c_str()), 0) << advice;
    struct stat status;
    ASSERT_EQ(stat(victim.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    EXPECT_EQ(status.st_gid, getegid());
}

// File systems that cannot rename without replacing.
TEST(SysdbDirectory, IsMadeInPlaceWhereItCannotBeRenamed) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        watch_calls([](const std::string &call) { return call == "renameat2" ? EINVAL : 0; });
        bind_and_use();
    });
    EXPECT_EQ(02770u, mode_of(sandbox.root() + "/cfg"));
    EXPECT_EQ("", unfinished(sandbox.root()));
}

// The directory that was found in its place got the group and its rights, whoever it
// belonged to, and became the database's.
TEST(SysdbDirectory, DirectoryOfAnotherUserInItsPlaceIsLeftAlone) {
    SKIP_WITHOUT_ROOT("needs another user");
    const DatabaseSandbox sandbox;
    ASSERT_EQ(0, chown(sandbox.root().c_str(), 0, kGroup));
    const std::string other = sandbox.root() + "/other";
    ASSERT_EQ(0, mkdir(other.c_str(), 0700));
    ASSERT_EQ(0, chown(other.c_str(), kNobody, kNobody));
    run_forked([&] {
        exchange_with(other, sandbox.root());
        bind_and_use();
    });
    EXPECT_EQ(0u, status_of(sandbox.root() + "/cfg").st_uid);
    const struct stat planted = status_of(unfinished(sandbox.root()));
    EXPECT_EQ(kNobody, planted.st_uid);
    EXPECT_EQ(kNobody, planted.st_gid);
    EXPECT_EQ(0700u, planted.st_mode & 07777);
}

// A directory of this user can be renamed by who may write the one above.
TEST(SysdbDirectory, PrivateDirectoryInItsPlaceKeepsItsRights) {
    const DatabaseSandbox sandbox;
    const std::string other = sandbox.root() + "/private";
    ASSERT_EQ(0, mkdir(other.c_str(), 0700));
    write_file(other + "/secret", "secret", 0600);
    run_forked([&] {
        exchange_with(other, sandbox.root());
        bind_and_use();
    });
    EXPECT_FALSE(fs::exists(sandbox.root() + "/cfg/secret"));
    EXPECT_EQ(0700u, mode_of(unfinished(sandbox.root())));
    EXPECT_TRUE(fs::exists(unfinished(sandbox.root()) + "/secret"));
}

}  // namespace
