// SPDX-License-Identifier: Apache-2.0
//
// Other people's files in the database's places: what a member of the group plants, and
// which rights directories and files get.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "file_checks.hpp"
#include "private_mounts.hpp"
#include "support/database_table.hpp"
#include "support/machine.hpp"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr gid_t kGroup = 54321;
constexpr gid_t kAaa = 54322;

#define EXPECT_HAS(text, part) EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)

void use(const std::string &tree) {
    const Bound bound(tree);
    EXPECT_EQ(0u, bound.code());
    EXPECT_EQ(0u, set_number(bound.handle(), "used", 1));
}

// ---- what a member of the group plants

class SysdbPlanted : public ::testing::TestWithParam<const char *> {
  protected:
    void SetUp() override {
        run_forked([] { use("/cfg/"); });
        write_file(victim(), "root's own", 0600);
        fs::remove(file());
    }
    std::string victim() const { return sandbox_.root() + "/victim"; }
    std::string file() const { return sandbox_.cfg_file() + GetParam(); }
    bool is_mark() const { return std::string(GetParam()) == "-state"; }

    // The database is refused, or only the mark is; and the victim is as it was.
    void expect_unused(const std::string &why) {
        const std::string log =
            run_forked([this] { EXPECT_EQ(is_mark() ? 0u : SYSDB_ERR_ACCESS, Bound("/cfg/").code()); });
        EXPECT_HAS(log, file() + " is not used, because it " + why);
        EXPECT_EQ("root's own", contents(victim()));
        EXPECT_EQ(0600u, mode_of(victim()));
        fs::remove(file());
        run_forked([] { use("/cfg/"); });
    }

    const DatabaseSandbox sandbox_;
};

INSTANTIATE_TEST_SUITE_P(Files, SysdbPlanted, ::testing::Values("", "-lock", "-state"), [](const auto &file) {
    return std::string(file.index == 0 ? "data" : file.index == 1 ? "lock" : "mark");
});

TEST_P(SysdbPlanted, SymbolicLinkIsNotFollowed) {
    fs::create_symlink(victim(), file());
    expect_unused("is a symbolic link; look who made it and where it leads, then: rm " + file());
}

TEST_P(SysdbPlanted, LinkToNothingMakesNothing) {
    fs::create_symlink(sandbox_.root() + "/nothing", file());
    expect_unused("is a symbolic link");
    EXPECT_FALSE(fs::exists(sandbox_.root() + "/nothing"));
}

TEST_P(SysdbPlanted, HardLinkIsNotUsed) {
    fs::create_hard_link(victim(), file());
    expect_unused("has another name elsewhere");
}

TEST_P(SysdbPlanted, PipeIsNotOpened) {
    ASSERT_EQ(0, mkfifo(file().c_str(), 0666));
    expect_unused("is not a regular file");
}

TEST_P(SysdbPlanted, FileOfAStrangerIsNotUsed) {
    SKIP_WITHOUT_ROOT("needs another user");
    write_file(file(), "", 0666);
    ASSERT_EQ(0, chown(file().c_str(), kNobody, kNobody));
    expect_unused("belongs to a user who may not write the directory");
}

// A member may rename a file of root that is in the member's directory, and the repair
// of rights then gave it to the group to read.
TEST_P(SysdbPlanted, FileOfRootThatWasMovedHereKeepsItsRights) {
    SKIP_WITHOUT_ROOT("needs another group");
    ASSERT_EQ(0, chown((sandbox_.root() + "/cfg").c_str(), 0, kGroup));
    fs::rename(victim(), file());
    if (file() != sandbox_.cfg_file()) {
        ASSERT_EQ(0, chown(sandbox_.cfg_file().c_str(), 0, kGroup));
    }
    run_forked([] { static_cast<void>(Bound("/cfg/").code()); });
    EXPECT_EQ(0600u, mode_of(file()));
    EXPECT_EQ(0u, group_of(file()));
}

TEST(SysdbPlaces, DirectoryThatEveryoneMayWriteIsNotUsed) {
    const DatabaseSandbox sandbox;
    run_forked([] { use("/cfg/"); });
    ASSERT_EQ(0, chmod((sandbox.root() + "/cfg").c_str(), 02777));
    const std::string log = run_forked([] { EXPECT_EQ(SYSDB_ERR_ACCESS, Bound("/cfg/").code()); });
    EXPECT_HAS(log, "(cd " + sandbox.root() + "/cfg && [ \"$(pwd -P)\" = ");
}

cerrno watch_item(const Bound &bound) {
    uint64_t notification = 0;
    const auto ignore = [](const void *, void *, void *) -> int32_t { return 0; };
    return _sysdb_register_notification(bound.handle(), "used", 6, 1, ignore, nullptr, 0, nullptr, 0,
                                        &notification);
}

TEST(SysdbPlaces, LinkInPlaceOfTheWatchersDirectoryIsNotFollowed) {
    const DatabaseSandbox sandbox;
    run_forked([] { use("/oper/"); });
    const std::string elsewhere = sandbox.root() + "/elsewhere";
    ASSERT_TRUE(fs::create_directory(elsewhere));
    fs::create_directory_symlink(elsewhere, sandbox.watchers());
    const std::string log = run_forked([] {
        const Bound bound("/oper/");
        ASSERT_EQ(0u, bound.code());
        EXPECT_EQ(SYSDB_ERR_ACCESS, watch_item(bound));
        EXPECT_EQ(0u, set_number(bound.handle(), "used", 2));
    });
    EXPECT_HAS(log, sandbox.watchers() + " is not a directory");
    EXPECT_TRUE(fs::is_empty(elsewhere));
}

// A planted entry named a socket of another service, or a file to be deleted.
TEST(SysdbPlaces, OnlySocketsInTheWatchersDirectoryAreWokenAndRemoved) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound bound("/oper/");
        ASSERT_EQ(0u, bound.code());
        ASSERT_EQ(0u, watch_item(bound));
    });
    const int service = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/service", sandbox.root().c_str());
    ASSERT_EQ(0, bind(service, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    const std::string link = sandbox.watchers() + "/1.00000001";
    const std::string file = sandbox.watchers() + "/1.00000002";
    fs::create_symlink(address.sun_path, link);
    write_file(file, "an administrator's", 0600);
    for (const char *name : {"1.00000001", "1.00000002"}) {
        aaatest::put_row(sandbox.oper_file(), "watch", "/oper/used", name);
    }
    run_forked([] { use("/oper/"); });
    char byte = 0;
    EXPECT_EQ(-1, recv(service, &byte, 1, 0));
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ("an administrator's", contents(file));
    run_forked([&sandbox] {  // their rows are gone
        EXPECT_EQ(0u, aaatest::DatabaseTable(sandbox.oper_file(), "watch", MDB_RDONLY).rows());
    });
    close(service);
}

// ---- rights

TEST(SysdbPlaces, FilesGetTheDirectorysGroupAndNotTheProcesss) {
    SKIP_WITHOUT_ROOT("needs another group");
    const DatabaseSandbox sandbox;
    for (const char *name : {"/cfg", "/run"}) {
        make_directory(sandbox.root() + name, 0770, kGroup);  // without the bit that does so
    }
    run_forked([] {
        umask(077);
        use("/cfg/");
        const Bound bound("/oper/");
        EXPECT_EQ(0u, watch_item(bound));
    });
    for (const std::string &file : {sandbox.cfg_file(), sandbox.cfg_file() + "-lock",
                                    sandbox.cfg_file() + "-state", sandbox.oper_file()}) {
        EXPECT_EQ(kGroup, group_of(file)) << file;
        EXPECT_EQ(0660u, mode_of(file)) << file;
    }
    EXPECT_EQ(kGroup, group_of(sandbox.watchers()));
    EXPECT_EQ(02770u, mode_of(sandbox.watchers()));
}

TEST(SysdbPlaces, FilesOfAPrivateDirectoryArePrivate) {
    const DatabaseSandbox sandbox;
    ASSERT_TRUE(fs::create_directory(sandbox.root() + "/cfg"));
    ASSERT_EQ(0, chmod((sandbox.root() + "/cfg").c_str(), 0700));
    run_forked([] { use("/cfg/"); });
    for (const char *end : {"", "-lock", "-state"}) {
        EXPECT_EQ(0600u, mode_of(sandbox.cfg_file() + end)) << end;
    }
}

// A process with its own /etc/group, which has the group of the AAA processes or has not.
void with_groups(const std::string &root, bool has_group, const std::function<void()> &body) {
    const std::string groups = root + "/group";
    write_file(groups, "root:x:0:\ndaemon:x:1:\n" + std::string(has_group ? "aaa:x:54322:\n" : ""), 0644);
    run_forked([&] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_EQ(0, mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr));
        body();
    });
}

TEST(SysdbPlaces, DirectoriesGetTheGroupOfTheOneAbove) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    for (const bool has_group : {false, true}) {
        const DatabaseSandbox sandbox;
        ASSERT_EQ(0, chown(sandbox.root().c_str(), 0, kGroup));
        with_groups(sandbox.root(), has_group, [] {
            ASSERT_EQ(0, setgid(kNobody));
            use("/cfg/");
        });
        EXPECT_EQ(kGroup, group_of(sandbox.root() + "/cfg"));
        EXPECT_EQ(02770u, mode_of(sandbox.root() + "/cfg"));
    }
}

// A database that was lost, and that aaactl of root made again, was closed to the service.
TEST(SysdbPlaces, BelowRootsGroupDirectoriesGetThatOfTheAaaProcesses) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    for (const auto &[has_group, group] : {std::pair<bool, gid_t>(true, kAaa), {false, 0}}) {
        const DatabaseSandbox sandbox;
        with_groups(sandbox.root(), has_group, [] {
            ASSERT_EQ(0, setgid(kNobody));
            setenv("AAA_SYSDB_CFG_DIR", (std::string(getenv("AAA_SYSDB_CFG_DIR")) + "/a/b").c_str(), 1);
            use("/cfg/");
        });
        EXPECT_EQ(group, group_of(sandbox.root() + "/cfg/a/b"));
        EXPECT_EQ(group, group_of(sandbox.root() + "/cfg/a/b/cfg.mdb"));
        EXPECT_EQ(02770u, mode_of(sandbox.root() + "/cfg/a/b"));
        EXPECT_EQ(0755u, mode_of(sandbox.root() + "/cfg/a")) << "of the directories on the way";
    }
}

// The directory above the usual run directory is in the group of the service alone.
TEST(SysdbPlaces, UsualDirectoriesGetTheGroupOfTheAaaProcesses) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    const DatabaseSandbox sandbox;
    with_groups(sandbox.root(), true, [] {
        unsetenv("AAA_SYSDB_CFG_DIR");
        unsetenv("AAA_SYSDB_RUN_DIR");
        for (const char *place : {"/run", "/var/lib"}) {
            ASSERT_TRUE(mount_memory(place, "mode=0755"));
            make_directory(std::string(place) + "/aaa", 0775, kGroup);
        }
        use("/cfg/");
        use("/oper/");
        EXPECT_EQ(kAaa, group_of("/var/lib/aaa/sysdb"));
        EXPECT_EQ(kAaa, group_of("/run/aaa/sysdb"));
        EXPECT_EQ(kAaa, group_of("/run/aaa/sysdb/oper.mdb"));
    });
}

TEST(SysdbPlaces, GroupOfDirectoriesCanBeSet) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    for (const auto &[setting, group] :
         {std::pair<std::string, gid_t>("54321", kGroup), {"daemon", 1}, {"root", 0}}) {
        const DatabaseSandbox sandbox;
        with_groups(sandbox.root(), true, [&setting = setting] {
            setenv("AAA_SYSDB_GROUP", setting.c_str(), 1);
            use("/cfg/");
        });
        EXPECT_EQ(group, group_of(sandbox.root() + "/cfg")) << setting;
    }
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_GROUP", "no such group", 1);
        use("/cfg/");
    });
    EXPECT_HAS(log, "AAA_SYSDB_GROUP=no such group is neither a group");
    EXPECT_HAS(log, "the directory above");
}

// A user who is not in the group above makes the directory for itself.
TEST(SysdbPlaces, DirectoryThatCannotHaveTheGroupIsPrivate) {
    SKIP_WITHOUT_ROOT("needs another user");
    const DatabaseSandbox sandbox;
    ASSERT_EQ(0, chown(sandbox.root().c_str(), kNobody, kGroup));
    ForkedProcess user([] {
        ASSERT_EQ(0, setgid(kNobody));
        ASSERT_EQ(0, setuid(kNobody));
        use("/cfg/");
    });
    EXPECT_EQ(0, user.wait());
    EXPECT_EQ(0700u, mode_of(sandbox.root() + "/cfg"));
    EXPECT_EQ(0600u, mode_of(sandbox.cfg_file()));
}

// A process was killed between making a file and setting its rights, and the group was
// shut out for good.
TEST(SysdbPlaces, UnfinishedRightsAreRepaired) {
    SKIP_WITHOUT_ROOT("needs another group");
    const DatabaseSandbox sandbox;
    make_directory(sandbox.root() + "/cfg", 02770, kGroup);
    for (const char *end : {"", "-lock"}) {
        write_file(sandbox.cfg_file() + end, "", 0640);
        ASSERT_EQ(0, chown((sandbox.cfg_file() + end).c_str(), 0, 0));
    }
    run_forked([] { use("/cfg/"); });
    for (const char *end : {"", "-lock", "-state"}) {
        EXPECT_EQ(0660u, mode_of(sandbox.cfg_file() + end)) << end;
        EXPECT_EQ(kGroup, group_of(sandbox.cfg_file() + end)) << end;
    }
    // The table of readers must be writable by every reader.
    ASSERT_EQ(0, chmod((sandbox.cfg_file() + "-lock").c_str(), 0600));
    run_forked([] { use("/cfg/"); });
    EXPECT_EQ(0660u, mode_of(sandbox.cfg_file() + "-lock"));
}

TEST(SysdbPlaces, EmptyFilesOfAPackageAreNewDatabases) {
    const DatabaseSandbox sandbox;
    for (const auto &[directory, file] :
         {std::pair<std::string, std::string>("/cfg", sandbox.cfg_file()), {"/run", sandbox.oper_file()}}) {
        ASSERT_TRUE(fs::create_directory(sandbox.root() + directory));
        ASSERT_EQ(0, chmod((sandbox.root() + directory).c_str(), 02770));
        write_file(file, "", 0660);
    }
    run_forked([] {
        use("/cfg/");
        use("/oper/");
    });
}

}  // namespace
