// SPDX-License-Identifier: Apache-2.0

#include "records/directory.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "service/accounting/support.hpp"
#include "support/machine.hpp"

namespace accounting {
namespace {

mode_t mode_of(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

class DirectoryTest : public testing::Test {
  protected:
    std::string open(const std::string &path) {
        std::string error;
        directory = std::make_unique<Directory>(files);
        const bool opened = directory->open(path, error);
        EXPECT_EQ(opened, error.empty());
        return error;
    }

    TempDir temp;
    FailingFiles files;
    std::unique_ptr<Directory> directory;
};

TEST_F(DirectoryTest, IsMadeForItsUserOnly) {
    const mode_t before = umask(0);
    EXPECT_EQ(open(temp.path("new/")), "");
    const net::Descriptor file = directory->open_file("file", O_RDWR | O_CREAT | O_EXCL);
    umask(before);
    EXPECT_TRUE(file);
    EXPECT_EQ(mode_of(temp.path("new")), 0700U);
    EXPECT_EQ(mode_of(temp.path("new/file")), 0600U);
    EXPECT_EQ(mode_of(temp.path("new/lock")), 0600U);
}

TEST_F(DirectoryTest, IsMadeDurable) {
    files.fail(FailingFiles::kSync, EIO);
    EXPECT_NE(open(temp.path("new")), "");
}

TEST_F(DirectoryTest, NeedsAWholePath) {
    EXPECT_NE(open("relative").find("begins with /"), std::string::npos);
    EXPECT_NE(open("").find("begins with /"), std::string::npos);
    EXPECT_NE(open(temp.path("no/such")).find("install -d -m 0700 -o " + std::to_string(geteuid()) + " /"),
              std::string::npos);
}

TEST_F(DirectoryTest, ThatOthersMayEnterIsRefused) {
    for (const mode_t mode : {0750, 0701, 0777}) {
        const std::string path = temp.path("open" + std::to_string(mode));
        ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_NE(open(path).find("chmod 0700 " + path), std::string::npos);
    }
}

TEST_F(DirectoryTest, OfAnotherUserIsRefused) {
    SKIP_WITHOUT_ROOT("only root can give a directory to another user");
    const std::string path = temp.path("other");
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    EXPECT_NE(open(path).find("belongs to user 65534"), std::string::npos);
}

TEST_F(DirectoryTest, IsNoLinkAndNoFile) {
    ASSERT_EQ(mkdir(temp.path("real").c_str(), 0700), 0);
    ASSERT_EQ(symlink("real", temp.path("link").c_str()), 0);
    EXPECT_NE(open(temp.path("link")).find("symbolic link"), std::string::npos);
    temp.write("file", "");
    EXPECT_NE(open(temp.path("file")).find("no directory"), std::string::npos);
}

TEST_F(DirectoryTest, IsUsedByOneProcess) {
    EXPECT_EQ(open(temp.path("new")), "");
    Directory second(files);
    std::string error;
    EXPECT_FALSE(second.open(temp.path("new"), error));
    EXPECT_NE(error.find("another process, " + std::to_string(getpid()) + ","), std::string::npos) << error;
    directory.reset();
    EXPECT_TRUE(second.open(temp.path("new"), error));
}

TEST_F(DirectoryTest, IsFreeAfterItsProcessWasKilled) {
    const std::string path = temp.path("new");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Directory other(files);
        std::string error;
        const char opened = other.open(path, error) ? 'y' : 'n';
        if (write(ready[1], &opened, 1) == 1) {
            pause();
        }
        _exit(0);
    }
    char opened = 0;
    ASSERT_EQ(read(ready[0], &opened, 1), 1);
    EXPECT_EQ(opened, 'y');
    EXPECT_NE(open(path), "");
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(open(path), "");
    close(ready[0]);
    close(ready[1]);
}

TEST_F(DirectoryTest, UsesOnlyPlainFilesOfItsUser) {
    ASSERT_EQ(open(temp.path("new")), "");
    const std::string outside = temp.write("outside", "secret");
    ASSERT_EQ(symlink(outside.c_str(), temp.path("new/link").c_str()), 0);
    ASSERT_EQ(link(outside.c_str(), temp.path("new/second-name").c_str()), 0);
    ASSERT_EQ(mkfifo(temp.path("new/fifo").c_str(), 0600), 0);
    for (const char *name : {"link", "second-name", "fifo"}) {
        EXPECT_FALSE(directory->open_file(name, O_RDWR)) << name;
        EXPECT_FALSE(directory->open_file(name, O_RDWR | O_CREAT)) << name;
    }
    EXPECT_EQ(temp.read("outside"), "secret");
    if (geteuid() == 0) {
        temp.write("new/foreign", "");
        ASSERT_EQ(chown(temp.path("new/foreign").c_str(), 65534, 65534), 0);
        EXPECT_FALSE(directory->open_file("foreign", O_RDWR));
        EXPECT_EQ(errno, EPERM);
    }
}

TEST_F(DirectoryTest, TakesRightsFromOthers) {
    ASSERT_EQ(open(temp.path("new")), "");
    temp.write("new/loose", "", 0664);
    EXPECT_TRUE(directory->open_file("loose", O_RDWR));
    EXPECT_EQ(mode_of(temp.path("new/loose")), 0600U);
}

// A daemon may be started with the first three descriptors closed.
TEST_F(DirectoryTest, UsesNoneOfTheFirstThreeDescriptors) {
    const std::string path = temp.path("new");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(0);
        close(1);
        close(2);
        Directory other(files);
        std::string error;
        std::vector<std::string> names;
        bool right = other.open(path, error);
        const net::Descriptor file = other.open_file("file", O_RDWR | O_CREAT);
        right = right && file && other.names(names);
        const bool free = fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
        _exit(right && free ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace accounting
