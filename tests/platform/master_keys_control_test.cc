// SPDX-License-Identifier: Apache-2.0
//
// Creating, rotating, retiring and listing master keys, as tools do it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <string>

#include "master_key_file.hpp"

namespace {

constexpr cerrno kInvalidArg = 0xa2580200u;
constexpr cerrno kUnusable = 0xa2581000u;
constexpr cerrno kExists = 0xa2581200u;
constexpr cerrno kExhausted = 0xa2581400u;
constexpr cerrno kNoGeneration = 0xa2581600u;
constexpr cerrno kNewest = 0xa2581800u;

using Keys = MasterKeyFile;

}  // namespace

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

TEST_F(Keys, AreNeverOverwrittenByCreate) {
    const std::string before = contents();
    EXPECT_EQ(kExists, aaa_platform_master_keys_create(path.c_str()));
    EXPECT_EQ(before, contents());
}

TEST_F(Keys, LeaveNoOtherFile) {
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
    const std::string message = g_log->take_one();
    EXPECT_EQ("%AAA-PLATFORM-3-MASTER_KEYS : " + absent +
                  ": its directory does not exist; make it: install -d -m 0700 -- " + dir.path("no/such"),
              message);
    // The command that the message names mends it.
    ASSERT_EQ(0, std::system(message.substr(message.find("install -d")).c_str()));
    EXPECT_EQ(0u, aaa_platform_master_keys_create(absent.c_str()));

    const std::string odd = dir.path("a directory; echo") + "/file";
    EXPECT_EQ(static_cast<cerrno>(ENOENT), aaa_platform_master_keys_create(odd.c_str()));
    EXPECT_EQ(
        "%AAA-PLATFORM-3-MASTER_KEYS : " + odd + ": its directory does not exist; make it, with mode 0700",
        g_log->take_one());
    EXPECT_NE(0u, aaa_platform_master_keys_create(std::string(5000, 'x').c_str()));
    EXPECT_NE(0u, aaa_platform_master_keys_rotate(
                      (dir.path("neither/such/") + std::string(5000, 'x')).c_str(), nullptr));
    g_log->take();
}

// ---- the lock

// Also a user who may only read the directory can lock it.
TEST_F(Keys, AreNotLockedForAllTimeByAnother) {
    const int directory = open(std::filesystem::path(path).parent_path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(directory, LOCK_EX));
    const std::string before = contents();
    EXPECT_EQ(static_cast<cerrno>(EBUSY), aaa_platform_master_keys_rotate(path.c_str(), nullptr));
    EXPECT_EQ("%AAA-PLATFORM-3-MASTER_KEYS : " + path +
                  ": another process has locked its directory for 5 seconds; the keys are unchanged; "
                  "\"lslocks\" names that process: continue or end it",
              g_log->take_one());
    EXPECT_EQ(before, contents());
    close(directory);
    rotate();
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
