// SPDX-License-Identifier: Apache-2.0
//
// The embedded provider and its files: places, permissions, damage, lack of
// room. Every test runs the provider in a separate process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <lmdb.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/database_table.hpp"
#include "support/machine.hpp"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;
using ::testing::Test;

constexpr uid_t kNobody = 65534;

mode_t mode_of(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

cerrno bind_code(const std::string &path) {
    return Bound(path).code();
}

void fill(const std::string &tree, uint32_t items) {
    const Bound bound(tree + "fill/");
    for (uint32_t i = 0; i < items; ++i) {
        ASSERT_EQ(0u, set_text(bound.handle(), "0x" + std::to_string(i) + "/item", std::string(100, 'x')));
    }
}

std::string contents(const std::string &file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

void write_file(const std::string &file, const std::string &bytes) {
    fs::create_directories(fs::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
}

#define EXPECT_HAS(text, part) EXPECT_NE(std::string::npos, (text).find(part)) << "in: " << (text)

// ---- places and permissions

TEST(SysdbFiles, DirectoriesAndFilesAreMadeForTheGroup) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        umask(077);
        ASSERT_EQ(0u, bind_code("/cfg/"));
        const Bound oper("/oper/");
        uint64_t notification = 0;
        const auto callback = [](const void *, void *, void *) -> int32_t { return 0; };
        ASSERT_EQ(0u, _sysdb_register_notification(oper.handle(), "a", 6, 1, callback, nullptr, 0, nullptr, 0,
                                                   &notification));
        EXPECT_EQ(02770u, mode_of(sandbox.root() + "/cfg"));
        EXPECT_EQ(02770u, mode_of(sandbox.root() + "/run"));
        EXPECT_EQ(02770u, mode_of(sandbox.watchers()));
        for (const std::string &file : {sandbox.cfg_file(), sandbox.oper_file()}) {
            EXPECT_EQ(0660u, mode_of(file)) << file;
            EXPECT_EQ(0660u, mode_of(file + "-lock")) << file;
        }
        for (const auto &socket : fs::directory_iterator(sandbox.watchers())) {
            EXPECT_EQ(0660u, mode_of(socket.path())) << socket.path();
        }
    });
}

// Symptom: every program that loads the library made the database, also one that only reads it.
TEST(SysdbFiles, ASharedConnectionMakesNothingUntilAChange) {
    for (const std::string tree : {"/cfg/", "/oper/"}) {
        const DatabaseSandbox sandbox;
        run_forked([&] {
            const Bound shared(tree, SYSDB_BIND_SHARED);
            ASSERT_EQ(0u, shared.code());
            const sysdb_conn_t conn = shared.handle();
            EXPECT_GE(channel_of(conn), 0);
            EXPECT_EQ(SYSDB_ERR_NOT_FOUND, existence(conn, "a"));
            EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_item_delete(conn, "a", 0));
            EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_item_delete(conn, "d/", SYSDB_DELETE_TREE));
            EXPECT_EQ(SYSDB_ERR_BAD_PATH, sysdb_item_delete(conn, "a//b", 0));
            EXPECT_EQ("!40818600", last_in(conn, "d/"));
            EXPECT_TRUE(names_in(conn, "").empty()) << "the bind point exists";
            sysdb_list_t list = nullptr;
            EXPECT_EQ(SYSDB_ERR_NOT_FOUND, sysdb_list(conn, "d/", "", nullptr, &list, 0));
            EXPECT_EQ(0u, sysdb_dispatch(conn));
            EXPECT_FALSE(fs::exists(sandbox.root() + "/cfg"));
            EXPECT_FALSE(fs::exists(sandbox.root() + "/run"));
            EXPECT_EQ(0u, set_number(conn, "a", 1));
            EXPECT_EQ(1, get_number(conn, "a"));
            EXPECT_EQ(1, get_number(Bound(tree).handle(), "a"));
        });
    }
}

TEST(SysdbFiles, ASharedConnectionSeesTheDatabaseThatAnotherProcessMakes) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound shared("/cfg/", SYSDB_BIND_SHARED);
        EXPECT_EQ(SYSDB_ERR_NOT_FOUND, existence(shared.handle(), "a"));
        run_forked([] { EXPECT_EQ(0u, set_number(Bound("/cfg/").handle(), "a", 7)); });
        EXPECT_EQ(7, get_number(shared.handle(), "a"));
    });
}

TEST(SysdbFiles, ModesSetByAnAdministratorAreLeftAlone) {
    const DatabaseSandbox sandbox;
    run_forked([] { EXPECT_EQ(0u, bind_code("/cfg/")); });
    chmod(sandbox.cfg_file().c_str(), 0600);
    chmod((sandbox.root() + "/cfg").c_str(), 0700);
    run_forked([] { EXPECT_EQ(0u, bind_code("/cfg/")); });
    EXPECT_EQ(0600u, mode_of(sandbox.cfg_file()));
    EXPECT_EQ(0700u, mode_of(sandbox.root() + "/cfg"));
}

TEST(SysdbFiles, TreesMayShareADirectory) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        setenv("AAA_SYSDB_RUN_DIR", (sandbox.root() + "/cfg/").c_str(), 1);
        const Bound cfg("/cfg/");
        const Bound oper("/oper/");
        EXPECT_EQ(0u, set_number(cfg.handle(), "a", 1));
        EXPECT_EQ(0u, set_number(oper.handle(), "a", 2));
        EXPECT_EQ(1, get_number(cfg.handle(), "a"));
        EXPECT_TRUE(fs::exists(sandbox.root() + "/cfg/oper.mdb"));
    });
}

TEST(SysdbFiles, LongRunDirectoryIsNoHindrance) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        setenv("AAA_SYSDB_RUN_DIR",
               (sandbox.root() + "/" + std::string(100, 'd') + "/" + std::string(100, 'e')).c_str(), 1);
        const Bound bound("/oper/");
        ASSERT_EQ(0u, bound.code());
        static int calls = 0;
        const auto callback = [](const void *, void *, void *) -> int32_t { return ++calls; };
        uint64_t notification = 0;
        ASSERT_EQ(0u, _sysdb_register_notification(bound.handle(), "a", 6, 1, callback, nullptr, 0, nullptr,
                                                   0, &notification));
        ForkedProcess writer([] {
            const Bound own("/oper/");
            EXPECT_EQ(0u, set_number(own.handle(), "a", 1));
        });
        EXPECT_TRUE(wait_readable(channel_of(bound.handle()), 20000));
        EXPECT_EQ(0, writer.wait());
        EXPECT_EQ(0u, sysdb_dispatch(bound.handle()));
        EXPECT_EQ(1, calls);
    });
}

TEST(SysdbFiles, DirectoryThatCannotBeMadeIsReportedAndTriedAgain) {
    const DatabaseSandbox sandbox;
    const std::string blocked = sandbox.root() + "/run";
    write_file(blocked, "a file where a directory should be");
    const std::string log = run_forked([&blocked] {
        EXPECT_EQ(SYSDB_ERR_STORAGE, bind_code("/oper/"));
        EXPECT_EQ(SYSDB_ERR_STORAGE, bind_code("/oper/"));
        EXPECT_EQ(0u, bind_code("/cfg/"));  // the other tree does not need it
        fs::remove(blocked);
        EXPECT_EQ(0u, bind_code("/oper/"));
    });
    EXPECT_HAS(log, blocked + " cannot be made");
    EXPECT_HAS(log, "AAA_SYSDB_RUN_DIR");
    // Reported once, not at every call.
    EXPECT_EQ(log.find("cannot be made"), log.rfind("cannot be made"));
}

TEST(SysdbFiles, ProcessWithoutPermissionIsToldSo) {
    SKIP_WITHOUT_ROOT("needs another user");
    const DatabaseSandbox sandbox;
    run_forked([] { fill("/cfg/", 1); });
    const std::string log = run_forked([&sandbox] {
        chmod(sandbox.root().c_str(), 0755);
        ASSERT_EQ(0, setgid(kNobody));
        ASSERT_EQ(0, setuid(kNobody));
        EXPECT_EQ(SYSDB_ERR_ACCESS, bind_code("/cfg/"));
    });
    EXPECT_HAS(log, sandbox.cfg_file());
    EXPECT_HAS(log, "Permission denied");
}

TEST(SysdbFiles, ReaderOfTheGroupMayReadWithoutWritePermission) {
    SKIP_WITHOUT_ROOT("needs another user");
    const DatabaseSandbox sandbox;
    run_forked([] { fill("/cfg/", 1); });
    const std::string lock = sandbox.cfg_file() + "-lock";
    for (const std::string &path : {sandbox.cfg_file(), lock, sandbox.root() + "/cfg"}) {
        ASSERT_EQ(0, chown(path.c_str(), 0, kNobody));
    }
    ASSERT_EQ(0, chmod(sandbox.cfg_file().c_str(), 0640));
    ASSERT_EQ(0, chmod(sandbox.root().c_str(), 0755));
    ForkedProcess reader([] {
        ASSERT_EQ(0, setgid(kNobody));
        ASSERT_EQ(0, setuid(kNobody));
        const Bound bound("/cfg/fill/");
        ASSERT_EQ(0u, bound.code());
        EXPECT_EQ(std::string(100, 'x'), get_text(bound.handle(), "0x0/item"));
        EXPECT_EQ(SYSDB_ERR_READ_ONLY, set_number(bound.handle(), "b", 1));
        EXPECT_EQ(SYSDB_ERR_READ_ONLY, sysdb_item_delete(bound.handle(), "0x0/item", 0));
    });
    EXPECT_EQ(0, reader.wait());
    // A reader does not block writers, also after its end.
    run_forked([] { fill("/cfg/", 3); });
}

TEST(SysdbFiles, MembersOfTheGroupMayUseWhatOthersHaveMade) {
    SKIP_WITHOUT_ROOT("needs other users");
    const DatabaseSandbox sandbox;
    ASSERT_EQ(0, chmod(sandbox.root().c_str(), 0755));
    for (const char *directory : {"/cfg", "/run"}) {
        // As a package creates them.
        const std::string path = sandbox.root() + directory;
        ASSERT_TRUE(fs::create_directory(path));
        ASSERT_EQ(0, chown(path.c_str(), 0, kNobody));
        ASSERT_EQ(0, chmod(path.c_str(), 02770));
    }
    const auto as_user = [](uid_t user, const std::string &own, const std::string &others) {
        ForkedProcess process([&] {
            umask(077);
            ASSERT_EQ(0, setgid(kNobody));
            ASSERT_EQ(0, setuid(user));
            for (const char *tree : {"/cfg/", "/oper/"}) {
                const Bound bound(tree);
                ASSERT_EQ(0u, bound.code());
                EXPECT_EQ(0u, set_text(bound.handle(), own, "written"));
                if (!others.empty()) {
                    EXPECT_EQ("written", get_text(bound.handle(), others));
                    EXPECT_EQ(0u, set_text(bound.handle(), others, "overwritten"));
                }
                uint64_t notification = 0;
                const auto callback = [](const void *, void *, void *) -> int32_t { return 0; };
                EXPECT_EQ(0u, _sysdb_register_notification(bound.handle(), "a", 6, 1, callback, nullptr, 0,
                                                           nullptr, 0, &notification));
            }
        });
        EXPECT_EQ(0, process.wait());
    };
    as_user(1001, "first", "");
    as_user(1002, "second", "first");
}

TEST(SysdbFiles, PermissionGivenLaterIsNoticed) {
    SKIP_WITHOUT_ROOT("needs another user");
    const DatabaseSandbox sandbox;
    run_forked([] { fill("/cfg/", 1); });
    ASSERT_EQ(0, chmod(sandbox.root().c_str(), 0755));
    for (const std::string &path :
         {sandbox.root() + "/cfg", sandbox.cfg_file(), sandbox.cfg_file() + "-lock"}) {
        ASSERT_EQ(0, chown(path.c_str(), 0, kNobody));
    }
    ASSERT_EQ(0, chmod(sandbox.cfg_file().c_str(), 0640));
    Pipe refused;
    ForkedProcess process([&refused] {
        ASSERT_EQ(0, setgid(kNobody));
        ASSERT_EQ(0, setuid(kNobody));
        const Bound bound("/cfg/");
        EXPECT_EQ(SYSDB_ERR_READ_ONLY, set_number(bound.handle(), "a", 1));
        refused.put();
        while (set_number(bound.handle(), "a", 1) != 0) {
            usleep(10000);
        }
    });
    ASSERT_TRUE(refused.take());
    ASSERT_EQ(0, chmod(sandbox.cfg_file().c_str(), 0660));
    EXPECT_EQ(0, process.wait());
}

TEST(SysdbFiles, DescriptorsAreNotInheritedByPrograms) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound cfg("/cfg/");
        const Bound oper("/oper/");
        uint64_t notification = 0;
        const auto callback = [](const void *, void *, void *) -> int32_t { return 0; };
        ASSERT_EQ(0u, _sysdb_register_notification(cfg.handle(), "a", 6, 1, callback, nullptr, 0, nullptr, 0,
                                                   &notification));
        int checked = 0;
        for (int fd = 3; fd < 64; ++fd) {
            char target[256] = {};
            const std::string link = "/proc/self/fd/" + std::to_string(fd);
            const bool ours =
                readlink(link.c_str(), target, sizeof target - 1) > 0 &&
                (std::strstr(target, ".mdb") != nullptr || std::strstr(target, "anon_inode") != nullptr ||
                 std::strstr(target, "socket:") != nullptr);
            if (ours) {
                ++checked;
                EXPECT_NE(0, fcntl(fd, F_GETFD) & FD_CLOEXEC) << target;
            }
        }
        EXPECT_GE(checked, 8);  // two files and their locks, channel, wake-up, timer, socket
    });
}

// ---- damage

class SysdbDamage : public ::testing::TestWithParam<const char *> {
  protected:
    const DatabaseSandbox sandbox_;
    std::string file() const {
        return std::string(GetParam()) == "/cfg/" ? sandbox_.cfg_file() : sandbox_.oper_file();
    }

    // The process gets a code and goes on, the log names file and remedy, and the file stays as it was.
    void expect_refused(const std::string &why) {
        const std::string before = contents(file());
        const std::string tree = GetParam();
        const std::string log = run_forked([&tree] {
            const std::string other = tree == "/cfg/" ? "/oper/" : "/cfg/";
            EXPECT_EQ(SYSDB_ERR_CORRUPT, bind_code(tree));
            EXPECT_EQ(SYSDB_ERR_CORRUPT, bind_code(tree));
            EXPECT_EQ(0u, bind_code(other));
        });
        EXPECT_HAS(log, file());
        EXPECT_HAS(log, why);
        EXPECT_TRUE(before == contents(file()));
        // Once the file is deleted, as the log advises, an empty database is created.
        fs::remove(file());
        fs::remove(file() + "-lock");
        run_forked([&tree] {
            const Bound bound(tree);
            ASSERT_EQ(0u, bound.code());
            EXPECT_TRUE(names_in(bound.handle(), "").empty());
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Trees, SysdbDamage, ::testing::Values("/cfg/", "/oper/"),
                         [](const auto &tree) { return std::string(tree.index == 0 ? "cfg" : "oper"); });

TEST_P(SysdbDamage, TextFile) {
    write_file(file(), std::string(20000, 'x'));
    expect_refused("it is not an LMDB file");
}

TEST_P(SysdbDamage, ShortFile) {
    write_file(file(), "short");
    expect_refused("it is truncated");
}

TEST_P(SysdbDamage, EmptyFileIsAnEmptyDatabase) {
    write_file(file(), "");
    const std::string tree = GetParam();
    run_forked([&tree] { fill(tree, 1); });
}

// It was taken for a new one: everyone's configuration was gone without a word.
TEST_P(SysdbDamage, FileThatHasBecomeEmpty) {
    const std::string tree = GetParam();
    run_forked([&tree] { fill(tree, 1); });
    fs::resize_file(file(), 0);
    expect_refused("it is empty, and it held data before");
}

TEST_P(SysdbDamage, AnEmptyFileThatTookThePlaceOfAnother) {
    const std::string tree = GetParam();
    run_forked([&tree] { fill(tree, 1); });
    fs::remove(file());
    write_file(file(), "");
    expect_refused("it is empty, and it held data before");
}

// The mark of the file that was removed is not about the new one, whichever of them makes it.
TEST_P(SysdbDamage, ProcessesThatMakeItAgainAtOnce) {
    const std::string tree = GetParam();
    for (int round = 0; round < 5; ++round) {
        run_forked([&tree] { fill(tree, 1); });
        fs::remove(file());
        fs::remove(file() + "-lock");
        std::vector<pid_t> makers(4);
        for (pid_t &maker : makers) {
            maker = fork();
            ASSERT_GE(maker, 0);
            if (maker == 0) {
                _exit(bind_code(tree) == 0 ? 0 : 1);
            }
        }
        for (const pid_t maker : makers) {
            int status = -1;
            EXPECT_EQ(maker, waitpid(maker, &status, 0));
            EXPECT_EQ(0, status);
        }
        run_forked([&tree] { EXPECT_TRUE(names_in(Bound(tree).handle(), "").empty()); });
    }
}

TEST_P(SysdbDamage, ForeignDatabase) {
    fs::create_directories(fs::path(file()).parent_path());
    aaatest::put_row(file(), nullptr, "somebody", "else's");
    expect_refused("is not the system database");
}

TEST_P(SysdbDamage, TheOtherTreesFile) {
    const std::string tree = GetParam();
    const std::string other_tree = tree == "/cfg/" ? "/oper/" : "/cfg/";
    const std::string other = tree == "/cfg/" ? sandbox_.oper_file() : sandbox_.cfg_file();
    run_forked([&other_tree] { fill(other_tree, 1); });
    fs::create_directories(fs::path(file()).parent_path());
    fs::copy_file(other, file(), fs::copy_options::overwrite_existing);
    expect_refused("is not the system database");
}

TEST_P(SysdbDamage, TruncatedFile) {
    const std::string tree = GetParam();
    run_forked([&tree] { fill(tree, 300); });
    fs::resize_file(file(), fs::file_size(file()) / 2);
    expect_refused("it is truncated");
}

TEST_P(SysdbDamage, OverwrittenPages) {
    const std::string tree = GetParam();
    run_forked([&tree] { fill(tree, 300); });
    std::string bytes = contents(file());
    for (std::size_t at = 8192; at < bytes.size(); ++at) {
        bytes[at] = static_cast<char>(at * 31 >> 3);
    }
    write_file(file(), bytes);
    expect_refused("damaged");
}

// Uses a database as far as possible. Exit status 2 when it is refused.
void use_and_exit(const std::string &tree) {
    if (freopen("/dev/null", "w", stderr) == nullptr) {
        _exit(3);
    }
    const Bound bound(tree + "fill/");
    if (bound.code() != 0) {
        _exit(2);
    }
    names_in(bound.handle(), "");
    set_number(bound.handle(), "new", 1);
    sysdb_item_delete(bound.handle(), "", SYSDB_DELETE_TREE);
    _exit(0);
}

// Any single byte of the file's structure may be wrong. The result is a code or a
// working database, never the end of the process.
TEST_P(SysdbDamage, EveryDamagedByteOfEveryPageHead) {
    const std::string tree = GetParam();
    run_forked([&tree] { fill(tree, 60); });
    const std::string whole = contents(file());
    const std::size_t step = repetitions("AAA_SYSDB_DAMAGE_STEP", 3);
    int refused = 0;
    for (std::size_t page = 0; page < whole.size(); page += 4096) {
        const std::size_t head = page < 8192 ? 160 : 40;
        for (std::size_t at = page + page / 4096 % step; at < page + head; at += step) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(~damaged[at]);
            write_file(file(), damaged);
            ForkedProcess user([&tree] { use_and_exit(tree); });
            const int status = user.wait();
            EXPECT_TRUE(status == 0 || status == 2)
                << status << " byte " << at - page << " of page " << page / 4096;
            refused += status == 2 ? 1 : 0;
        }
    }
    EXPECT_GT(refused, 50);
}

// ---- items that do not fit their type, written past the client interface

void put_raw(const std::string &file, const std::string &key, const std::string &bytes) {
    aaatest::put_row(file, "items", key, bytes);
}

std::string raw_item(uint32_t type, const std::string &value) {
    return std::string(reinterpret_cast<const char *>(&type), sizeof type) + value;
}

TEST(SysdbFiles, StoredValuesThatDoNotFitTheirTypeAreReported) {
    const DatabaseSandbox sandbox;
    run_forked([] { fill("/cfg/", 1); });
    put_raw(sandbox.cfg_file(), "/cfg/number", raw_item(SYSDB_TYPE_U32, "\1"));
    put_raw(sandbox.cfg_file(), "/cfg/text", raw_item(SYSDB_TYPE_STRING, "no end"));
    put_raw(sandbox.cfg_file(), "/cfg/tuple", raw_item(SYSDB_TYPE_TUPLE, std::string("TP\1\1\15\0\0\0d", 9)));
    put_raw(sandbox.cfg_file(), "/cfg/typeless", "abc");
    const std::string log = run_forked([] {
        const Bound bound("/cfg/");
        for (const char *path : {"number", "text", "tuple", "typeless"}) {
            uint32_t type = SYSDB_TYPE_ANY;
            void *value = nullptr;
            uint32_t length = 77;
            EXPECT_EQ(SYSDB_ERR_BAD_VALUE, sysdb_item_get(bound.handle(), path, &type, &value, &length, 0))
                << path;
            EXPECT_EQ(nullptr, value);
            EXPECT_EQ(77u, length);
        }
        // What the log advises.
        EXPECT_EQ(0u, set_number(bound.handle(), "number", 1));
        EXPECT_EQ(0u, sysdb_item_delete(bound.handle(), "typeless", 0));
    });
    EXPECT_HAS(log, "number");
    EXPECT_HAS(log, "/cfg/typeless");
    EXPECT_HAS(log, sandbox.cfg_file());
    EXPECT_HAS(log, "set it again or delete it");
}

// ---- replaced and removed files

TEST(SysdbFiles, RestoredDatabaseIsNoticed) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_text(bound.handle(), "state", "from the backup"));
    });
    fs::copy_file(sandbox.cfg_file(), sandbox.root() + "/backup");
    const std::string log = run_forked([&sandbox] {
        const Bound bound("/cfg/");
        EXPECT_EQ(0u, set_text(bound.handle(), "state", "newer"));
        fs::rename(sandbox.root() + "/backup", sandbox.cfg_file());
        while (get_text(bound.handle(), "state") == "newer") {
            usleep(10000);
        }
        EXPECT_EQ("from the backup", get_text(bound.handle(), "state"));
    });
    EXPECT_HAS(log, "has been replaced or removed");
}

TEST(SysdbFiles, CopiesMadeByLmdbItselfAreUsable) {
    for (const unsigned flags : {0u, unsigned{MDB_CP_COMPACT}}) {
        const DatabaseSandbox sandbox;
        const std::string copy = sandbox.root() + "/copy";
        run_forked([] {
            fill("/cfg/", 300);
            const Bound bound("/cfg/fill/");
            EXPECT_EQ(0u, sysdb_item_delete(bound.handle(), "0x17/", SYSDB_DELETE_TREE));
        });
        MDB_env *env = nullptr;
        ASSERT_EQ(0, mdb_env_create(&env));
        ASSERT_EQ(0, mdb_env_open(env, sandbox.cfg_file().c_str(), MDB_NOSUBDIR | MDB_RDONLY, 0660));
        ASSERT_EQ(0, mdb_env_copy2(env, copy.c_str(), flags));
        mdb_env_close(env);
        fs::rename(copy, sandbox.cfg_file());
        run_forked([] {
            const Bound bound("/cfg/fill/");
            ASSERT_EQ(0u, bound.code());
            EXPECT_EQ(299u, names_in(bound.handle(), "").size());
            EXPECT_EQ(0u, set_number(bound.handle(), "0x17/item", 1));
        });
    }
}

// ---- room

TEST(SysdbFiles, FullDatabaseCanBeReadAndEmptied) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);
        const Bound bound("/cfg/");
        const std::string value(2000, 'v');
        uint32_t stored = 0;
        cerrno rc = 0;
        while ((rc = set_text(bound.handle(), "full/" + std::to_string(stored), value)) == 0) {
            ASSERT_LT(++stored, 2000u);
        }
        EXPECT_EQ(SYSDB_ERR_FULL, rc);
        EXPECT_GT(stored, 200u);
        EXPECT_EQ(value, get_text(bound.handle(), "full/0"));
        EXPECT_EQ(stored, names_in(bound.handle(), "full/").size());
        // One by one: the first deletions write more than they free.
        for (uint32_t i = 0; i < stored; ++i) {
            ASSERT_EQ(0u, sysdb_item_delete(bound.handle(), ("full/" + std::to_string(i)).c_str(), 0)) << i;
        }
        EXPECT_EQ(0u, set_text(bound.handle(), "again", value));
        // All at once.
        for (uint32_t i = 0; set_text(bound.handle(), "full/" + std::to_string(i), value) == 0; ++i) {
        }
        EXPECT_EQ(0u, sysdb_item_delete(bound.handle(), "full/", SYSDB_DELETE_TREE));
        EXPECT_EQ(0u, set_text(bound.handle(), "again", "and again"));
    });
    EXPECT_HAS(log, sandbox.cfg_file() + " is full");
    EXPECT_HAS(log, "AAA_SYSDB_MAP_MIB");
}

TEST(SysdbFiles, ManyChangesFitIntoASmallDatabase) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);
        const Bound bound("/oper/");
        for (uint32_t i = 1; i <= 5000; ++i) {  // the change log must not fill the database
            ASSERT_EQ(0u, set_number(bound.handle(), "counter", i)) << i;
        }
    });
}

TEST(SysdbFiles, LargerMapOfAnotherProcessIsFollowed) {
    const DatabaseSandbox sandbox;
    Pipe bound_small;
    Pipe written_large;
    ForkedProcess small([&] {
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "a", 1));
        bound_small.put();
        ASSERT_TRUE(written_large.take());
        EXPECT_EQ(1, get_number(bound.handle(), "a"));
        EXPECT_EQ(std::string(100000, 'v'), get_text(bound.handle(), "large/29"));
        EXPECT_EQ(0u, set_number(bound.handle(), "a", 2));
    });
    ASSERT_TRUE(bound_small.take());
    run_forked([] {
        setenv("AAA_SYSDB_MAP_MIB", "16", 1);
        const Bound own("/cfg/");
        for (int i = 0; i < 30; ++i) {
            EXPECT_EQ(0u, set_text(own.handle(), "large/" + std::to_string(i), std::string(100000, 'v')));
        }
    });
    written_large.put();
    EXPECT_EQ(0, small.wait());
}

TEST(SysdbFiles, MapSizeThatIsNoNumberIsReported) {
    const DatabaseSandbox sandbox;
    const std::string log = run_forked([] {
        setenv("AAA_SYSDB_MAP_MIB", "plenty", 1);
        EXPECT_EQ(0u, bind_code("/cfg/"));
    });
    EXPECT_HAS(log, "AAA_SYSDB_MAP_MIB=plenty");
}

TEST(SysdbFiles, FullDiskIsACodeAndNothingIsLost) {
    const DatabaseSandbox sandbox;
    run_forked([] {
        signal(SIGXFSZ, SIG_IGN);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_text(bound.handle(), "before", "kept"));
        const rlimit limit = {256 * 1024, 256 * 1024};
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
        const std::string value(20000, 'v');
        cerrno rc = 0;
        for (int i = 0; i < 100 && rc == 0; ++i) {
            rc = set_text(bound.handle(), "much/" + std::to_string(i), value);
        }
        EXPECT_NE(0u, rc);
        EXPECT_EQ("kept", get_text(bound.handle(), "before"));
    });
}

// ---- dead readers

TEST(SysdbFiles, PlacesOfDeadReadersAreFreed) {
    const DatabaseSandbox sandbox;
    run_forked([&sandbox] {
        setenv("AAA_SYSDB_MAP_MIB", "1", 1);
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "counter", 0));
        for (int i = 0; i < 20; ++i) {
            // Dies during a read transaction, which pins every page of its view.
            ForkedProcess reader([&sandbox] {
                MDB_env *env = nullptr;
                MDB_txn *txn = nullptr;
                mdb_env_create(&env);
                mdb_env_set_maxreaders(env, 1024);
                EXPECT_EQ(0, mdb_env_open(env, sandbox.cfg_file().c_str(), MDB_NOSUBDIR, 0660));
                EXPECT_EQ(0, mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn));
                raise(SIGKILL);
            });
            EXPECT_EQ(-1, reader.wait());
            ASSERT_EQ(0u, set_number(bound.handle(), "counter", static_cast<uint32_t>(i + 1)));
        }
        for (uint32_t i = 100; i < 3000; ++i) {
            ASSERT_EQ(0u, set_number(bound.handle(), "counter", i)) << i;
        }
    });
}

TEST(SysdbFiles, ManyForksLeaveNothingBehind) {
    const DatabaseSandbox sandbox;
    const unsigned forks = repetitions("AAA_SYSDB_FORKS", 100);
    run_forked([forks] {
        const Bound bound("/cfg/");
        ASSERT_EQ(0u, set_number(bound.handle(), "shared", 1));
        for (unsigned i = 0; i < forks; ++i) {
            ForkedProcess child([&bound, i] {
                for (uint32_t n = 0; n < 20; ++n) {
                    ASSERT_EQ(0u, set_number(bound.handle(), "child" + std::to_string(i % 4), n + 1));
                    ASSERT_EQ(n + 1, get_number(bound.handle(), "child" + std::to_string(i % 4)));
                    ASSERT_EQ(1, get_number(bound.handle(), "shared"));
                }
            });
            ASSERT_EQ(1, get_number(bound.handle(), "shared"));
            ASSERT_EQ(0, child.wait()) << i;
        }
        EXPECT_EQ(0u, set_number(bound.handle(), "shared", 2));
    });
}

}  // namespace
