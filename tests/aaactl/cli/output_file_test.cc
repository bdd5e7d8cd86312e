// SPDX-License-Identifier: Apache-2.0
//
// Files that commands write: complete or unchanged.

#include "cli/output_file.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "aaactl/support/file_size_limit.hpp"
#include "aaactl/support/program_run.hpp"
#include "cli/output.hpp"
#include "support/machine.hpp"
#include "support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;
using aaactl::write_file;
using aaactl_test::aaactl;

constexpr char kMessage[] = "name = \"login\"\npair 257 \"alice\\x00\"\n";

mode_t mode_of(const std::string &file) {
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
    return status.st_mode & 07777;
}

size_t files_in(const TempDir &dir) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir.path("")), {}));
}

TEST(OutputFile, NewOnesHaveTheModeThatTheUmaskLeaves) {
    const TempDir dir;
    const mode_t before = umask(026);
    const auto run = aaactl({"encode", "-o", dir.path("message")}, kMessage);
    umask(before);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(mode_of(dir.path("message")), 0640u);
    EXPECT_EQ(files_in(dir), 1u);
}

// A process that has the old file open, and another link to it, still read the old bytes.
TEST(OutputFile, OldOnesAreReplacedAndKeepTheirMode) {
    const TempDir dir;
    const std::string file = dir.write("message", "old", 0604);
    ASSERT_EQ(link(file.c_str(), dir.path("other").c_str()), 0);
    const auto run = aaactl({"encode", "-o", file}, kMessage);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(aaactl({"decode", file}).out.find("alice"), std::string::npos);
    EXPECT_EQ(dir.read("other"), "old");
    EXPECT_EQ(mode_of(file), 0604u);
    EXPECT_EQ(files_in(dir), 2u);
}

TEST(OutputFile, NothingIsLostWhenTheNewOneDoesNotFit) {
    const TempDir dir;
    const std::string file = dir.write("message", "old");
    aaactl_test::Run replaced, created;
    {
        const aaactl_test::FileSizeLimit limit(10);
        replaced = aaactl({"encode", "-o", file}, kMessage);
        created = aaactl({"encode", "-o", dir.path("new")}, kMessage);
    }
    EXPECT_EQ(replaced.status, 6);
    EXPECT_EQ(replaced.err, "aaactl: " + file + ": File too large\n");
    EXPECT_EQ(dir.read("message"), "old");
    EXPECT_EQ(created.status, 6);
    EXPECT_EQ(files_in(dir), 1u) << "neither a partial nor a temporary file";
}

TEST(OutputFile, NothingIsLostWhenThePlaceIsTaken) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir.path("d")));
    EXPECT_THROW(write_file(dir.path("d"), "new"), aaactl::Failure);
    EXPECT_THROW(write_file(dir.path("no/file"), "new"), aaactl::Failure);
    EXPECT_THROW(write_file(dir.path("d/"), "new"), aaactl::Failure);
    EXPECT_THROW(write_file("", "new"), aaactl::Failure);
    EXPECT_EQ(files_in(dir), 1u);
    EXPECT_TRUE(fs::is_empty(dir.path("d")));
}

TEST(OutputFile, LinksStayLinks) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir.path("d")));
    dir.write("d/message", "old");
    ASSERT_EQ(symlink("d/message", dir.path("link").c_str()), 0);
    write_file(dir.path("link"), "new");
    EXPECT_TRUE(fs::is_symlink(dir.path("link")));
    EXPECT_EQ(dir.read("d/message"), "new");
    EXPECT_EQ(files_in(dir), 2u);
}

TEST(OutputFile, LinksToFilesThatAreNotThereStayLinks) {
    const TempDir dir;
    ASSERT_TRUE(fs::create_directory(dir.path("d")));
    ASSERT_EQ(symlink("../second", dir.path("d/first").c_str()), 0);
    ASSERT_EQ(symlink(dir.path("d/message").c_str(), dir.path("second").c_str()), 0);
    const auto run = aaactl({"encode", "-o", dir.path("d/first")}, kMessage);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(fs::is_symlink(dir.path("d/first")));
    EXPECT_TRUE(fs::is_symlink(dir.path("second")));
    EXPECT_EQ(aaactl({"decode", dir.path("d/message")}).status, 0);
    EXPECT_EQ(files_in(dir), 2u);
}

TEST(OutputFile, LinksThatLeadNowhereAreLeftAlone) {
    const TempDir dir;
    ASSERT_EQ(symlink("no/file", dir.path("away").c_str()), 0);
    ASSERT_EQ(symlink("itself", dir.path("itself").c_str()), 0);
    const std::pair<const char *, const char *> links[] = {{"away", "No such file or directory"},
                                                           {"itself", "Too many levels of symbolic links"}};
    for (const auto &[name, why] : links) {
        const auto run = aaactl({"encode", "-o", dir.path(name)}, kMessage);
        EXPECT_EQ(run.status, 6);
        EXPECT_EQ(run.err, "aaactl: " + dir.path(name) + ": " + why + "\n");
        EXPECT_TRUE(fs::is_symlink(dir.path(name)));
    }
    EXPECT_EQ(files_in(dir), 2u);
}

TEST(OutputFile, PipesAreWrittenTo) {
    const TempDir dir;
    const std::string pipe = dir.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    write_file(pipe, "bytes");
    char bytes[16] = {};
    EXPECT_EQ(read(reader, bytes, sizeof bytes), 5);
    EXPECT_STREQ(bytes, "bytes");
    close(reader);
    EXPECT_TRUE(fs::is_fifo(pipe));
}

TEST(OutputFile, WhatAnotherHasLeftBehindIsNotTouched) {
    const TempDir dir;
    const std::string name = ".aaactl-" + std::to_string(getpid()) + "-0";
    dir.write(name, "left over");
    write_file(dir.path("message"), "new");
    EXPECT_EQ(dir.read("message"), "new");
    EXPECT_EQ(dir.read(name), "left over");
    EXPECT_EQ(files_in(dir), 2u);
}

TEST(OutputFile, NamesWithoutADirectoryLieInTheCurrentOne) {
    const TempDir dir;
    const fs::path before = fs::current_path();
    fs::current_path(dir.path(""));
    write_file("message", "new");
    fs::current_path(before);
    EXPECT_EQ(dir.read("message"), "new");
}

TEST(OutputFile, NoEmptyFileIsLeftAtTheEndOfALink) {
    const TempDir dir;
    ASSERT_EQ(symlink("message", dir.path("link").c_str()), 0);
    {
        const aaactl_test::FileSizeLimit limit(10);
        EXPECT_EQ(aaactl({"encode", "-o", dir.path("link")}, kMessage).status, 6);
    }
    EXPECT_EQ(files_in(dir), 1u) << "the link alone";
}

TEST(OutputFile, AFileWithoutANameIsWrittenInPlace) {
    const TempDir dir;
    const std::string file = dir.write("message", "something longer");
    const int fd = open(file.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(unlink(file.c_str()), 0);
    write_file("/proc/self/fd/" + std::to_string(fd), "new");
    char bytes[32] = {};
    EXPECT_EQ(pread(fd, bytes, sizeof bytes, 0), 3);
    EXPECT_STREQ(bytes, "new");
    close(fd);
    EXPECT_EQ(files_in(dir), 0u);
}

// ---- links and files of other users

// Runs a part of a test in a process of its own, which may become another user or mount something. It returns
// what is wrong, "" if nothing is.
std::string in_a_child(const std::function<std::string()> &body) {
    int report[2];
    EXPECT_EQ(pipe2(report, O_CLOEXEC), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        const std::string fault = body();
        _exit(write(report[1], fault.data(), fault.size()) == static_cast<ssize_t>(fault.size()) ? 0 : 1);
    }
    close(report[1]);
    char text[4096] = {};
    const ssize_t n = read(report[0], text, sizeof text);
    close(report[0]);
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
    return {text, n > 0 ? static_cast<size_t>(n) : 0};
}

std::string error_of(const std::string &file) {
    try {
        write_file(file, "new");
    } catch (const aaactl::Failure &failure) {
        return failure.what();
    }
    return "";
}

// The mount does not let the kernel follow links, as a sticky directory does not let it follow those of other
// users. They were followed by reading them.
TEST(OutputFile, LinksThatTheKernelDoesNotFollowAreNotFollowed) {
    SKIP_WITHOUT_ROOT("only root can mount");
    const TempDir dir;
    const std::string victim = dir.write("victim", "old");
    fs::create_directory(dir.path("mount"));
    constexpr unsigned long kNoSymbolicLinks = 256;  // MS_NOSYMFOLLOW, Linux 5.10
    const std::string fault = in_a_child([&]() -> std::string {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", dir.path("mount").c_str(), "tmpfs", kNoSymbolicLinks, nullptr) != 0) {
            return "skip";
        }
        const std::string link = dir.path("mount/link");
        const std::string dangling = dir.path("mount/dangling");
        if (symlink(victim.c_str(), link.c_str()) != 0 ||
            symlink(dir.path("made").c_str(), dangling.c_str()) != 0) {
            return "no links";
        }
        const std::string why = ": Too many levels of symbolic links";
        return error_of(link) != link + why           ? "link: " + error_of(link)
               : error_of(dangling) != dangling + why ? "dangling: " + error_of(dangling)
                                                      : "";
    });
    SKIP_WITHOUT("mounts", fault != "skip", "needs to mount a file system");
    EXPECT_EQ(fault, "");
    EXPECT_EQ(dir.read("victim"), "old");
    EXPECT_FALSE(fs::exists(dir.path("made")));
}

int setting(const std::string &name) {
    int value = 0;
    std::ifstream("/proc/sys/fs/" + name) >> value;
    return value;
}

constexpr uid_t kNoOne = 65534;

TEST(OutputFile, LinksAndFilesOfOthersInAStickyDirectoryAreRefused) {
    SKIP_WITHOUT_ROOT("only root can make another user's link");
    SKIP_WITHOUT("protection", setting("protected_symlinks") != 0 && setting("protected_regular") != 0,
                 "fs.protected_symlinks or fs.protected_regular is 0: the kernel allows it");
    const TempDir dir;
    const std::string victim = dir.write("victim", "old");
    const std::string shared = dir.path("shared");
    fs::create_directory(shared);
    ASSERT_EQ(chmod(shared.c_str(), 01777), 0);
    ASSERT_EQ(symlink(victim.c_str(), (shared + "/link").c_str()), 0);
    ASSERT_EQ(lchown((shared + "/link").c_str(), kNoOne, kNoOne), 0);
    dir.write("shared/file", "bait", 0666);
    ASSERT_EQ(chown((shared + "/file").c_str(), kNoOne, kNoOne), 0);
    for (const std::string name : {"/link", "/file"}) {
        EXPECT_EQ(error_of(shared + name), shared + name + ": Permission denied");
    }
    EXPECT_EQ(dir.read("victim"), "old");
    EXPECT_EQ(dir.read("shared/file"), "bait");
    // Those of the user are.
    ASSERT_EQ(lchown((shared + "/link").c_str(), 0, 0), 0);
    EXPECT_EQ(error_of(shared + "/link"), "");
    EXPECT_EQ(dir.read("victim"), "new");
}

// Becomes another user for good.
bool become_no_one() {
    return geteuid() != 0 || (setgid(kNoOne) == 0 && setuid(kNoOne) == 0);
}

TEST(OutputFile, AFileThatItsOwnerProtectsIsNotReplaced) {
    const TempDir dir;
    const std::string file = dir.write("message", "old", 0400);
    ASSERT_EQ(chmod(dir.path("").c_str(), 0777), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(file.c_str(), kNoOne, kNoOne), 0);
    }
    EXPECT_EQ(in_a_child([&]() -> std::string { return become_no_one() ? error_of(file) : "still root"; }),
              file + ": Permission denied");
    EXPECT_EQ(dir.read("message"), "old");
}

// The group cannot be kept: its members would be others.
TEST(OutputFile, RightsOfAGroupThatCannotBeKeptAreNotGivenToAnother) {
    SKIP_WITHOUT_ROOT("only root can make a file of another group");
    const TempDir dir;
    const std::string file = dir.write("message", "old", 0666);
    ASSERT_EQ(chmod(dir.path("").c_str(), 0777), 0);
    EXPECT_EQ(in_a_child([&]() -> std::string { return become_no_one() ? error_of(file) : "still root"; }),
              "");
    EXPECT_EQ(dir.read("message"), "new");
    EXPECT_EQ(mode_of(file), 0606u);
}

// A directory that may not be searched was taken for one without the file.
TEST(OutputFile, WhatCannotBeLookedUpIsAFailure) {
    const TempDir dir;
    fs::create_directory(dir.path("closed"));
    ASSERT_EQ(symlink("closed/file", dir.path("link").c_str()), 0);
    ASSERT_EQ(chmod(dir.path("closed").c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.path("").c_str(), 0777), 0);
    const std::string link = dir.path("link");
    EXPECT_EQ(in_a_child([&]() -> std::string { return become_no_one() ? error_of(link) : "still root"; }),
              link + ": Permission denied");
    ASSERT_EQ(chmod(dir.path("closed").c_str(), 0700), 0);
}

}  // namespace
