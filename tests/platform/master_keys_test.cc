// SPDX-License-Identifier: Apache-2.0
//
// Master keys: their generations and their file.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "master_key_file.hpp"

namespace {

constexpr cerrno kInvalidArg = 0xa2580200u;
constexpr cerrno kUnusable = 0xa2581000u;
constexpr cerrno kExists = 0xa2581200u;
constexpr cerrno kExhausted = 0xa2581400u;
constexpr cerrno kNoGeneration = 0xa2581600u;
constexpr cerrno kNewest = 0xa2581800u;

using Keys = MasterKeyFile;

constexpr char kChanged[] =
    "%AAA-PLATFORM-3-DECRYPT_FAILED : A sealed key of generation 01 was changed, or was sealed with another "
    "master "
    "key; enter it again";

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

TEST_F(Keys, GoOnAfterTheLastNumberUntilOneIsTaken) {
    for (uint32_t generation = 2; generation < 100; ++generation) {
        ASSERT_EQ(generation, rotate());
    }
    EXPECT_EQ(0u, rotate()) << "99 is followed by 00";
    EXPECT_EQ("00", encrypt("x").substr(0, 2));
    const std::string before = contents();
    uint32_t generation = 999;
    EXPECT_EQ(kExhausted, aaa_platform_master_keys_rotate(path.c_str(), &generation));
    EXPECT_EQ(999u, generation);
    EXPECT_EQ(before, contents());
    EXPECT_EQ("%AAA-PLATFORM-3-MASTER_KEYS : " + path +
                  ": generation 01 still exists; seal the server keys of that generation again and retire it",
              g_log->take_one());
    ASSERT_EQ(0u, aaa_platform_master_keys_retire(path.c_str(), 1));
    EXPECT_EQ(1u, rotate()) << "its number is free again";
}

TEST_F(Keys, AreListedOldestFirst) {
    rotate();
    aaa_platform_master_key_t keys[4] = {};
    uint32_t count = 0;
    ASSERT_EQ(0u, aaa_platform_master_keys_list(path.c_str(), keys, 4, &count));
    ASSERT_EQ(2u, count);
    EXPECT_EQ(1u, keys[0].generation);
    EXPECT_EQ(0u, keys[0].newest);
    EXPECT_EQ(2u, keys[1].generation);
    EXPECT_EQ(1u, keys[1].newest);
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(keys[0].created), 600);
    count = 0;
    EXPECT_EQ(0u, aaa_platform_master_keys_list(nullptr, keys, 1, &count))
        << "null is the file of the cipher";
    EXPECT_EQ(2u, count);
    EXPECT_EQ(0u, aaa_platform_master_keys_list(path.c_str(), nullptr, 0, &count));
    EXPECT_EQ(kInvalidArg, aaa_platform_master_keys_list(path.c_str(), nullptr, 1, &count));
    EXPECT_EQ(kInvalidArg, aaa_platform_master_keys_list(path.c_str(), keys, 1, nullptr));
}

TEST_F(Keys, AreGoneWhenTheyAreRetired) {
    const std::string first = encrypt("one");
    rotate();
    const std::string second = encrypt("two");
    rotate();
    const std::string third = encrypt("three");
    EXPECT_EQ(0u, aaa_platform_master_keys_retire(path.c_str(), 2));
    EXPECT_EQ("one", decrypt(first));
    EXPECT_EQ("three", decrypt(third));
    expect_refused(second, "%AAA-PLATFORM-3-DECRYPT_FAILED : " + path +
                               ": no master key of generation 02, with which a key was sealed; restore it");
    uint32_t count = 0;
    aaa_platform_master_key_t keys[4] = {};
    ASSERT_EQ(0u, aaa_platform_master_keys_list(nullptr, keys, 4, &count));
    ASSERT_EQ(2u, count);
    EXPECT_EQ(1u, keys[0].generation);
    EXPECT_EQ(3u, keys[1].generation);
    EXPECT_EQ(1u, keys[1].newest);
    EXPECT_EQ(0u, aaa_platform_master_keys_retire(nullptr, 1)) << "the cipher's file";
    EXPECT_EQ("three", decrypt(third));
}

TEST_F(Keys, AreNotRetiredWhenNewestOrAbsent) {
    rotate();
    const std::string before = contents();
    EXPECT_EQ(kNewest, aaa_platform_master_keys_retire(path.c_str(), 2));
    EXPECT_EQ(kNoGeneration, aaa_platform_master_keys_retire(path.c_str(), 3));
    EXPECT_EQ(kNoGeneration, aaa_platform_master_keys_retire(path.c_str(), 101));
    EXPECT_EQ(before, contents());
    struct stat st {};
    ASSERT_EQ(0u, aaa_platform_master_keys_retire(path.c_str(), 1));
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777u);
    EXPECT_EQ(kNewest, aaa_platform_master_keys_retire(path.c_str(), 2)) << "the last one";
    ASSERT_EQ(0, unlink(path.c_str()));
    EXPECT_EQ(kUnusable, aaa_platform_master_keys_retire(path.c_str(), 2));
    EXPECT_EQ(1u, g_log->take().size());
}

// ---- file ------------------------------------------------------------------------

TEST_F(Keys, StandInAFileForItsOwnerOnly) {
    struct stat st {};
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777u);
    const mode_t old_mask = umask(0);
    rotate();
    umask(old_mask);
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777u);
}

TEST_F(Keys, AreNeverOverwrittenByCreate) {
    const std::string before = contents();
    EXPECT_EQ(kExists, aaa_platform_master_keys_create(path.c_str()));
    EXPECT_EQ(before, contents());
}

TEST_F(Keys, LeaveNothingElseBehind) {
    aaa_platform_master_keys_create(path.c_str());
    rotate();
    size_t files = 0;
    for ([[maybe_unused]] const auto &entry :
         std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
        ++files;
    }
    EXPECT_EQ(1u, files);
}

TEST_F(Keys, CannotBeCreatedWhereThereIsNoDirectory) {
    const std::string absent = dir.path("no/such/file");
    EXPECT_EQ(static_cast<cerrno>(ENOENT), aaa_platform_master_keys_create(absent.c_str()));
    EXPECT_EQ("%AAA-PLATFORM-3-MASTER_KEYS : " + absent +
                  ": it cannot be written: No such file or directory; the keys are unchanged",
              g_log->take_one());
    EXPECT_NE(0u, aaa_platform_master_keys_create(std::string(5000, 'x').c_str()));
    EXPECT_NE(0u, aaa_platform_master_keys_rotate((dir.path("no/such/") + std::string(5000, 'x')).c_str(),
                                                  nullptr));
    g_log->take();
}

TEST_F(Keys, MustBeThere) {
    ASSERT_EQ(0, unlink(path.c_str()));
    expect_no_keys("there is no such file; create it with \"aaactl key new-master\"");
    EXPECT_EQ(kUnusable, aaa_platform_master_keys_rotate(path.c_str(), nullptr));
    uint32_t count;
    EXPECT_EQ(kUnusable, aaa_platform_master_keys_list(path.c_str(), nullptr, 0, &count));
    EXPECT_EQ(2u, g_log->take().size());
    EXPECT_NE(0, access(path.c_str(), F_OK));
}

TEST_F(Keys, MustBeClosedToOthers) {
    for (const mode_t mode : {0640u, 0604u, 0620u, 0610u, 0601u}) {
        ASSERT_EQ(0, chmod(path.c_str(), mode));
        expect_no_keys("users other than its owner have rights on it; set its mode to 0600");
    }
    ASSERT_EQ(0, chmod(path.c_str(), 0400));
    EXPECT_EQ("x", decrypt(encrypt("x")));
}

TEST_F(Keys, MustBelongToRootOrTheUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to give the file away";
    }
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

TEST_F(Keys, RotateUnderTheFeetOfReaders) {
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
