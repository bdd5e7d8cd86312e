// SPDX-License-Identifier: Apache-2.0
//
// Master keys: the generation that seals and those that open, and their file.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "master_key_file.hpp"
#include "private_mounts.hpp"
#include "support/machine.hpp"
#include "support/temp_dir.hpp"

namespace {

constexpr cerrno kUnusable = 0xa2581000u;

using Keys = MasterKeyFile;

constexpr char kChanged[] =
    "%AAA-PLATFORM-3-DECRYPT_FAILED : A sealed key of generation 01 was changed, or was sealed with another "
    "master "
    "key; enter it again";

// A shell runs the command of the message that says who may read the file.
void follow_advice(const std::string &start) {
    EXPECT_EQ("(null)", encrypt("secret"));
    const std::string line = g_log->take_one();
    constexpr char kRun[] = ": users other than its owner have rights on it; run: ";
    const size_t at = line.find(kRun + start);
    ASSERT_NE(std::string::npos, at) << line;
    EXPECT_EQ(0, std::system(line.substr(at + sizeof kRun - 1).c_str())) << line;
}

}  // namespace

// ---- generations -------------------------------------------------------------------

TEST_F(Keys, SealWithTheNewestAndOpenWithAll) {
    const std::string first = encrypt("one");
    EXPECT_EQ(2u, rotate());
    const std::string second = encrypt("two");
    EXPECT_EQ(3u, rotate());
    EXPECT_EQ("01", first.substr(0, 2));
    EXPECT_EQ("02", second.substr(0, 2));
    EXPECT_EQ("03", encrypt("three").substr(0, 2));
    EXPECT_EQ("one", decrypt(first));
    EXPECT_EQ("two", decrypt(second));
}

TEST_F(Keys, OfALostGenerationAreMissed) {
    const std::string sealed = encrypt("secret");
    rotate();
    std::string text = contents();
    const size_t at = text.find("\n01 ");
    text.erase(at + 1, text.find('\n', at + 1) - at);
    const size_t check = text.find("#check");
    text.erase(check, text.find('\n', check) + 1 - check);
    replace(text);
    expect_refused(sealed, "%AAA-PLATFORM-3-DECRYPT_FAILED : " + path +
                               ": no master key of generation 01, with which a key was sealed; restore it");
}

TEST_F(Keys, OfAnotherFileDoNotOpen) {
    const std::string sealed = encrypt("secret");
    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_EQ(0u, aaa_platform_master_keys_create(path.c_str()));
    expect_refused(sealed, kChanged);
}

// ---- file ------------------------------------------------------------------------

TEST_F(Keys, AreInAFileForItsOwnerOnly) {
    struct stat st {};
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777u);
    const mode_t old_mask = umask(0);
    rotate();
    umask(old_mask);
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777u);
}

TEST_F(Keys, MustBeThere) {
    ASSERT_EQ(0, unlink(path.c_str()));
    expect_no_keys(
        "there is no such file; restore it from a backup, or if no key is sealed yet: aaactl key new-master");
    EXPECT_EQ(kUnusable, aaa_platform_master_keys_rotate(path.c_str(), nullptr));
    uint32_t count;
    EXPECT_EQ(kUnusable, aaa_platform_master_keys_list(path.c_str(), nullptr, 0, &count));
    EXPECT_EQ(2u, g_log->take().size());
    EXPECT_NE(0, access(path.c_str(), F_OK));
}

TEST_F(Keys, MustBeClosedToOthers) {
    for (const mode_t mode : {0640u, 0604u, 0620u, 0610u, 0601u}) {
        ASSERT_EQ(0, chmod(path.c_str(), mode));
        expect_no_keys(("users other than its owner have rights on it; run: chmod 0600 " + path).c_str());
    }
    ASSERT_EQ(0, chmod(path.c_str(), 0400));
    EXPECT_EQ("x", decrypt(encrypt("x")));
}

// A path that a shell would split.
TEST_F(Keys, TheCommandThatSetsTheirModeWorks) {
    const std::string odd = path + " o'dd";
    ASSERT_EQ(0, rename(path.c_str(), odd.c_str()));
    path = odd;
    const ScopedEnv usual("AAA_MASTER_KEYS", odd);
    ASSERT_EQ(0, chmod(path.c_str(), 0644));
    follow_advice("chmod 0600 ");
    EXPECT_EQ("x", decrypt(encrypt("x")));
}

// The service's group keeps its right, and no other group has it.
TEST_F(Keys, TheCommandThatSetsTheirModeLetsTheServiceRead) {
    SKIP_WITHOUT_PRIVATE_MOUNTS();
    SKIP_WITHOUT("mounts",
                 unshare(CLONE_NEWNS) == 0 && mount("", "/", nullptr, MS_PRIVATE | MS_REC, nullptr) == 0,
                 "needs a mount namespace");
    const std::string groups = path + ".group";
    std::ofstream(groups) << "root:x:0:\naaad:x:4242:\n";
    ASSERT_EQ(0, chmod(groups.c_str(), 0644));
    ASSERT_EQ(0, mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr));
    ASSERT_EQ(0, chown(path.c_str(), 0, 4242));
    for (const mode_t mode : {0660u, 0644u, 0750u}) {
        ASSERT_EQ(0, chmod(path.c_str(), mode));
        follow_advice("chown root:aaad ");
        struct stat st {};
        ASSERT_EQ(0, stat(path.c_str(), &st));
        EXPECT_EQ(0640u, st.st_mode & 07777u);
        EXPECT_EQ(4242u, st.st_gid);
        EXPECT_EQ("x", decrypt(encrypt("x")));
    }
    ASSERT_EQ(0, chown(path.c_str(), 0, 7));
    follow_advice("chmod 0600 ");
    EXPECT_EQ("x", decrypt(encrypt("x")));
}

TEST_F(Keys, MustBelongToRootOrTheUser) {
    SKIP_WITHOUT_ROOT("needs root to give the file away");
    ASSERT_EQ(0, chown(path.c_str(), 65534, 65534));
    expect_no_keys("it belongs to another user; give it to root or to this process's user");
}

TEST_F(Keys, MustBeAFile) {
    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_EQ(0, mkdir(path.c_str(), 0700));
    expect_no_keys("it is not a regular file; name the file of master keys in AAA_MASTER_KEYS");
    ASSERT_EQ(0, rmdir(path.c_str()));
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    expect_no_keys("it is not a regular file; name the file of master keys in AAA_MASTER_KEYS");
}

TEST_F(Keys, MustBeWellFormed) {
    const std::string head = "aaa-master-keys 1\n";
    const std::string key(64, 'a');
    const std::string good = head + "01 " + key + " 2025-03-01T12:00:00Z\n";
    replace(good);
    EXPECT_EQ("x", decrypt(encrypt("x")));
    replace(head + "# comment\n\n01 " + key + "\n");
    EXPECT_EQ("x", decrypt(encrypt("x")));
    replace(head + "01 " + key);
    EXPECT_EQ("x", decrypt(encrypt("x")));

    const std::string advice = "; restore the file from a backup";
    for (const char *text : {"", "aaa-master-keys 2\n", "something else\n"}) {
        replace(text);
        expect_no_keys("line 1 is not valid" + advice);
    }
    replace(head);
    expect_no_keys("it holds no key" + advice);
    for (const std::string &line :
         {std::string("1"), std::string("01"), std::string("01 "), "1 " + key, "001 " + key,
          "01 " + key.substr(1), "01 " + key + "a", "01 g" + key.substr(1), "01\t" + key, " 01 " + key,
          "x1 " + key, "01 " + key.substr(2) + "  "}) {
        replace(good + line + "\n");
        expect_no_keys("line 3 is not valid" + advice);
    }
    replace(good + "01 " + key + "\n");
    expect_no_keys("line 3 is not valid" + advice);
    replace(good + std::string(20000, '#'));
    expect_no_keys("it is too large" + advice);
    replace(std::string("aaa-master-keys 1\0\n", 19) + "01 " + key + "\n");
    expect_no_keys("it holds no key" + advice);
}

TEST_F(Keys, MayRotateWhileOthersReadThem) {
    const std::string sealed = encrypt("secret");
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!stop) {
                EXPECT_EQ("secret", decrypt(sealed));
                EXPECT_EQ("other", decrypt(encrypt("other")));
            }
        });
    }
    std::vector<std::thread> rotators;
    for (int t = 0; t < 2; ++t) {
        rotators.emplace_back([&] {
            for (int i = 0; i < 10; ++i) {
                EXPECT_EQ(0u, aaa_platform_master_keys_rotate(path.c_str(), nullptr));
            }
        });
    }
    for (auto &thread : rotators) {
        thread.join();
    }
    stop = true;
    for (auto &thread : threads) {
        thread.join();
    }
    uint32_t count = 0;
    EXPECT_EQ(0u, aaa_platform_master_keys_list(path.c_str(), nullptr, 0, &count));
    EXPECT_EQ(21u, count) << "no rotation was lost";
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
