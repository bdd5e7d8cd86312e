// SPDX-License-Identifier: Apache-2.0
//
// Programs with more rights than their user: what they may make in the database's places.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "file_checks.hpp"
#include "private_mounts.hpp"
#include "support/sysdb.hpp"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr gid_t kGroup = 54321;

// Copies of a program, at the places that such a program looks at, in a tree of its own.
class SysdbCaller : public ::testing::Test {
  protected:
    void SetUp() override { SKIP_WITHOUT_PRIVATE_MOUNTS(); }

    // Runs test(), for which the files exist.
    static void in_a_tree(const std::function<void()> &test) {
        run_forked([&test] {
            const std::string program = contents(SYSDB_CALLER);
            ASSERT_TRUE(enter_private_mounts());
            for (const char *place : {"/run", "/var/lib"}) {
                ASSERT_TRUE(mount_memory(place, "mode=0755"));
            }
            write_file("/run/caller", program, 0755);
            test();
        });
    }

    // As the user "nobody" calls it; the code that it prints, in hexadecimal.
    static std::string call(mode_t mode, gid_t group, const std::string &path) {
        EXPECT_EQ(0, chown("/run/caller", 0, group));
        EXPECT_EQ(0, chmod("/run/caller", mode));
        const std::string output = "/run/output";
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
            if (setgid(kNobody) == 0 && setuid(kNobody) == 0) {
                execl("/run/caller", "caller", path.c_str(), nullptr);
            }
            _exit(127);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(0, status);
        std::string code = contents(output);
        code.resize(std::min<std::size_t>(code.size(), 8));
        return code;
    }

    static std::string text(cerrno code) {
        char hexadecimal[16];
        std::snprintf(hexadecimal, sizeof hexadecimal, "%08x", code);
        return hexadecimal;
    }
};

// The directory went to the caller's group, who then switched authentication off.
TEST_F(SysdbCaller, SetUserIdProgramMakesNoDirectory) {
    in_a_tree([] {
        for (const char *tree : {"/cfg/", "/oper/"}) {
            EXPECT_EQ(text(SYSDB_ERR_ACCESS), call(04755, 0, tree));
        }
        EXPECT_FALSE(fs::exists("/run/aaa"));
        EXPECT_FALSE(fs::exists("/var/lib/aaa"));
    });
}

TEST_F(SysdbCaller, SetUserIdProgramMakesFilesForTheDirectorysGroup) {
    in_a_tree([] {
        make_directory("/run/aaa", 0755, 0);
        make_directory("/run/aaa/sysdb", 0770, kGroup);
        EXPECT_EQ("00000000", call(04755, 0, "/oper/"));
        for (const char *end : {"", "-lock", "-state"}) {
            const std::string file = std::string("/run/aaa/sysdb/oper.mdb") + end;
            EXPECT_EQ(0u, status_of(file).st_uid) << file;
            EXPECT_EQ(kGroup, group_of(file)) << file;
            EXPECT_EQ(0660u, mode_of(file)) << file;
        }
    });
}

TEST_F(SysdbCaller, SetGroupIdProgramMakesNoFilesForItsUser) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer may not read /proc/self/maps in such a program";
#endif
    in_a_tree([] {
        make_directory("/run/aaa", 0755, 0);
        make_directory("/run/aaa/sysdb", 02770, kGroup);
        EXPECT_EQ(text(SYSDB_ERR_ACCESS), call(02755, kGroup, "/oper/"));
        EXPECT_TRUE(fs::is_empty("/run/aaa/sysdb"));
        // With the empty files of a package it works.
        for (const char *end : {"", "-lock", "-state"}) {
            const std::string file = std::string("/run/aaa/sysdb/oper.mdb") + end;
            write_file(file, "", 0660);
            EXPECT_EQ(0, chown(file.c_str(), 0, kGroup));
        }
        EXPECT_EQ("00000000", call(02755, kGroup, "/oper/"));
        EXPECT_GT(fs::file_size("/run/aaa/sysdb/oper.mdb-state"), 0u);
        // Root makes new ones.
        fs::remove_all("/run/aaa/sysdb");
        make_directory("/run/aaa/sysdb", 02770, kGroup);
        EXPECT_EQ("00000000", call(04755, 0, "/oper/"));
        EXPECT_EQ("00000000", call(02755, kGroup, "/oper/"));
    });
}

}  // namespace
