// SPDX-License-Identifier: Apache-2.0
//
// Making directories of the database while others, who may write in the directory above,
// take the names and exchange what is made.

#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
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
#include "support/time_limit.h"

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

TEST(SysdbDirectory, IsNotMadeForOneThatOnlyReads) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        sysdb_conn_t conn = 0;
        const uint32_t reading = SYSDB_BIND_PRIVATE | SYSDB_BIND_EXISTING;
        EXPECT_EQ(SYSDB_ERR_NOT_FOUND, _sysdb_bind(&conn, "/cfg/", reading));
        EXPECT_EQ(SYSDB_ERR_INVALID_ARG,
                  _sysdb_bind(&conn, "/cfg/", SYSDB_BIND_SHARED | SYSDB_BIND_EXISTING));
        EXPECT_EQ(0u, conn);
        EXPECT_FALSE(fs::exists(sandbox.cfg_file()));
        bind_and_use();
        EXPECT_EQ(0u, _sysdb_bind(&conn, "/cfg/", reading));
        EXPECT_EQ(0u, _sysdb_unbind(conn));
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

// A process without descriptors left 16 directories at each attempt, which no process without
// descriptors removes, and blamed another process.
TEST(SysdbDirectory, ProcessWithoutDescriptorsLeavesNothingAndSaysWhy) {
    for (int opens = 1; opens <= 2; ++opens) {
        const DatabaseSandbox sandbox;
        const std::string log = run_forked([opens] {
            watch_calls([made = false, before = opens](const std::string &call) mutable {
                made |= call == "mkdirat";
                return made && call == "openat" && --before <= 0 ? EMFILE : 0;
            });
            EXPECT_NE(0u, Bound("/cfg/").code());
        });
        EXPECT_HAS(log, "directory " + sandbox.root() + "/cfg cannot be made: Too many open files");
        EXPECT_EQ("", unfinished(sandbox.root())) << opens;
    }
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

// ---- what a process leaves that is killed before it has finished

// Calls a hook once: when the first directory has been made, and then a function is called.
void on_call_after_making(const std::string &function, const std::function<void()> &hook) {
    watch_calls([=, was_made = false, was_called = false](const std::string &call) mutable {
        if (call == "mkdirat") {
            was_made = true;
        } else if (call == function && was_made && !was_called) {
            was_called = true;
            hook();
        }
        return 0;
    });
}

void die_while_making(const std::string &call) {
    ForkedProcess victim([&call] {
        on_call_after_making(call, [] { raise(SIGKILL); });
        bind_and_use();
    });
    EXPECT_EQ(-1, victim.wait()) << call;
}

// For ever, one for each process that was killed.
TEST(SysdbDirectory, NextProcessRemovesWhatAKilledOneHasLeft) {
    for (const char *call : {"openat", "flock", "fchmod", "renameat2"}) {
        const DatabaseSandbox sandbox;
        die_while_making(call);
        EXPECT_NE("", unfinished(sandbox.root())) << call;
        run_forked([] { bind_and_use(); });
        EXPECT_EQ("", unfinished(sandbox.root())) << call;
        EXPECT_EQ(02770u, mode_of(sandbox.root() + "/cfg")) << call;
    }
}

// At every step of one process, another one makes the same directory from beginning to end.
TEST(SysdbDirectory, ProcessesThatMakeTheSameDirectoryNeverDisturbEachOther) {
    for (const char *call : {"openat", "flock", "fchmod", "renameat2"}) {
        const DatabaseSandbox sandbox;
        Pipe begin;
        Pipe end;
        ForkedProcess other([&] {  // forked before this one has any lock
            set_time_limit("the other process");
            ASSERT_TRUE(begin.take());
            bind_and_use();
            end.put();
        });
        run_forked([&] {
            set_time_limit("a process that another one makes the same directory with");
            on_call_after_making(call, [&] {
                begin.put();
                EXPECT_TRUE(end.take());
            });
            bind_and_use();
        });
        EXPECT_EQ(0, other.wait()) << call;
        EXPECT_EQ("", unfinished(sandbox.root())) << call;
        EXPECT_EQ(02770u, mode_of(sandbox.root() + "/cfg")) << call;
    }
}

TEST(SysdbDirectory, DirectoryThatALivingProcessMakesIsNotRemoved) {
    const DatabaseSandbox sandbox;
    Pipe begin;
    Pipe end;
    ForkedProcess other([&] {
        set_time_limit("the other process");
        ASSERT_TRUE(begin.take());
        bind_and_use();
        end.put();
    });
    run_forked([&] {
        on_call_after_making("fchmod", [&] {
            const std::string before = unfinished(sandbox.root());
            begin.put();
            EXPECT_TRUE(end.take());
            EXPECT_EQ(before, unfinished(sandbox.root()));
            EXPECT_NE("", before);
        });
        bind_and_use();
    });
    EXPECT_EQ(0, other.wait());
    EXPECT_EQ("", unfinished(sandbox.root()));
}

// Names that who may write the directory above plants.
TEST(SysdbDirectory, RemovesNothingThatItCannotHaveLeft) {
    SKIP_WITHOUT_ROOT("needs another user");
    const DatabaseSandbox sandbox;
    const std::string name = sandbox.root() + "/.new.00000000000000";
    ASSERT_EQ(0, mkdir((name + "01").c_str(), 0700));
    ASSERT_EQ(0, chown((name + "01").c_str(), kNobody, kNobody));
    ASSERT_EQ(0, mkdir((name + "02").c_str(), 0700));
    write_file(name + "02/secret", "secret", 0600);
    ASSERT_EQ(0, mkdir((sandbox.root() + "/empty").c_str(), 0700));
    fs::create_symlink(sandbox.root() + "/empty", name + "03");
    write_file(name + "04", "", 0600);
    ASSERT_EQ(0, mkfifo((name + "05").c_str(), 0600));
    for (const char *end : {"1", "0g", "011", "1F"}) {  // not names that it gives
        ASSERT_EQ(0, mkdir((name + end).c_str(), 0700));
    }
    ASSERT_EQ(0, mkdir((name + "0a").c_str(), 0700));
    run_forked([] {
        set_time_limit("the process that looks at names that were planted");
        bind_and_use();
    });
    EXPECT_FALSE(fs::exists(name + "0a")) << "this one can be its own";
    for (const char *end : {"01", "02/secret", "03", "04", "05", "1", "0g", "011", "1F"}) {
        EXPECT_TRUE(fs::exists(fs::symlink_status(name + end))) << end;
    }
    EXPECT_TRUE(fs::exists(sandbox.root() + "/empty"));
}

// ---- what the log advises. A member of the group may write the directory above, and so plant
// a link before root follows the advice: the target was given to the group.

// The command of a line of the log, between two texts.
std::string advice_in(const std::string &log, const std::string &before, const std::string &after) {
    const std::size_t at = log.find(before);
    EXPECT_NE(std::string::npos, at) << log;
    if (at == std::string::npos) {
        return "false";
    }
    const std::size_t begin = at + before.size();
    return log.substr(begin, log.find(after, begin) - begin);
}

int follow(const std::string &advice) {
    return std::system((advice + " 2>/dev/null").c_str());
}

// With a link to a directory of root's in the place of another one.
void expect_to_follow_no_link(const std::string &advice, const std::string &place, mode_t mode) {
    const std::string victim = place + "-victim";
    ASSERT_EQ(mkdir(victim.c_str(), 0700), 0);
    ASSERT_EQ(chmod(victim.c_str(), mode), 0);
    fs::create_symlink(victim, place);
    EXPECT_NE(follow(advice), 0) << advice;
    EXPECT_EQ(mode_of(victim), mode) << advice;
    EXPECT_EQ(status_of(victim).st_gid, getegid()) << advice;
    fs::remove(place);
}

TEST(SysdbDirectory, TheAdviceDoesNotFollowALink) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        watch_calls([](const std::string &call) { return call == "mkdirat" ? EEXIST : 0; });
        EXPECT_NE(0u, Bound("/cfg/").code());
    });
    const std::string advice = advice_in(log, "make it as root: ", " (with");
    expect_to_follow_no_link(advice, sandbox.root() + "/cfg", 0700);
}

// As a user who is not in the group that the directory is to have.
TEST(SysdbDirectory, TheAdviceToGiveADirectoryToItsGroupDoesNotFollowALink) {
    SKIP_WITHOUT_ROOT("needs another user");
    const DatabaseSandbox sandbox;
    ASSERT_EQ(0, chown(sandbox.root().c_str(), kNobody, kGroup));
    ASSERT_EQ(0, chmod(sandbox.root().c_str(), 0770));
    const std::string log = run_forked([] {
        ASSERT_EQ(0, setgroups(0, nullptr));
        ASSERT_EQ(0, setresgid(kNobody, kNobody, kNobody));
        ASSERT_EQ(0, setresuid(kNobody, kNobody, kNobody));
        bind_and_use();
    });
    const std::string place = sandbox.root() + "/cfg";
    EXPECT_HAS(log, "directory " + place + " is for user 65534 only");
    EXPECT_EQ(0700u, mode_of(place));
    const std::string advice = advice_in(log, "do it as root: ", "\n");
    fs::rename(place, place + "-real");
    expect_to_follow_no_link(advice, place, 0700);
    fs::rename(place + "-real", place);
    EXPECT_EQ(0, follow(advice)) << advice;
    EXPECT_EQ(02770u, mode_of(place)) << advice;
    EXPECT_EQ(kGroup, status_of(place).st_gid) << advice;
}

// Who may write the directory above chooses the name: the advice ran the command in it as root.
TEST(SysdbDirectory, TheAdviceRunsNoCommandThatTheNameContains) {
    const DatabaseSandbox sandbox;
    ASSERT_EQ(0, chdir(sandbox.root().c_str()));
    const std::string place = sandbox.root() + "/it's;touch made;$(touch made) \\ \"x";
    const std::string log = run_forked([&place] {
        setenv("AAA_SYSDB_CFG_DIR", place.c_str(), 1);
        ASSERT_EQ(0, mkdir(place.c_str(), 0700));
        ASSERT_EQ(0, chmod(place.c_str(), 0777));
        EXPECT_EQ(SYSDB_ERR_ACCESS, Bound("/cfg/").code());
    });
    EXPECT_EQ(0, follow(advice_in(log, "then as root: ", "\n"))) << log;
    EXPECT_EQ(0775u, mode_of(place)) << log;
    EXPECT_FALSE(fs::exists(sandbox.root() + "/made")) << log;
    ASSERT_EQ(0, chdir("/"));
}

TEST(SysdbDirectory, TheAdviceToCloseADirectoryDoesNotFollowALink) {
    const DatabaseSandbox sandbox;
    const std::string place = sandbox.root() + "/cfg";
    ASSERT_EQ(0, mkdir(place.c_str(), 0700));
    ASSERT_EQ(0, chmod(place.c_str(), 0777));
    const std::string log = run_forked([] { EXPECT_EQ(SYSDB_ERR_ACCESS, Bound("/cfg/").code()); });
    const std::string advice = advice_in(log, "then as root: ", "\n");
    fs::rename(place, place + "-real");
    expect_to_follow_no_link(advice, place, 01777);
    fs::rename(place + "-real", place);
    EXPECT_EQ(0, follow(advice)) << advice;
    EXPECT_EQ(0775u, mode_of(place)) << advice;
    run_forked([] { bind_and_use(); });
}

}  // namespace
