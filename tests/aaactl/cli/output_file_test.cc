// SPDX-License-Identifier: Apache-2.0
//
// Files that commands write: complete or unchanged.

#include "cli/output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "aaactl/support/file_size_limit.hpp"
#include "aaactl/support/program_run.hpp"
#include "cli/output.hpp"
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

}  // namespace
