// SPDX-License-Identifier: Apache-2.0
//
// A new file never takes the place of one that another process makes meanwhile, on
// any file system.

#include "cli/temporary_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "support/system_calls.h"
#include "support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;
using aaactl::TemporaryFile;

bool is(const char *call, const char *other) {
    return std::string(call) == other;
}

int old_file_system(const char *call) {
    return is(call, "unnamed") ? EOPNOTSUPP : is(call, "renameat2") ? EINVAL : 0;
}

int without_second_names(const char *call) {
    return is(call, "linkat") ? EPERM : old_file_system(call);
}

class OldFileSystem : public testing::Test {
  protected:
    OldFileSystem() { before_system_call = old_file_system; }
    ~OldFileSystem() override {
        before_system_call = nullptr;
        close(directory_);
    }

    // errno, or 0.
    int put_at(const char *name) {
        TemporaryFile file(directory_, 0600);
        EXPECT_TRUE(file.made());
        EXPECT_TRUE(file.fill("new"));
        return file.put_at(name) ? 0 : errno;
    }
    long files() const { return std::distance(fs::directory_iterator(dir_.path("")), {}); }

    const TempDir dir_;
    const int directory_ = open(dir_.path("").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
};

// The file of another process was overwritten.
TEST_F(OldFileSystem, FileThatWasMadeMeanwhileIsKept) {
    dir_.write("taken", "theirs");
    EXPECT_EQ(put_at("taken"), EEXIST);
    EXPECT_EQ(dir_.read("taken"), "theirs");
    EXPECT_EQ(files(), 1);
}

TEST_F(OldFileSystem, FreeNameIsTakenAndIsTheOnlyOne) {
    EXPECT_EQ(put_at("free"), 0);
    EXPECT_EQ(dir_.read("free"), "new");
    EXPECT_EQ(files(), 1);
    struct stat status {};
    ASSERT_EQ(stat(dir_.path("free").c_str(), &status), 0);
    EXPECT_EQ(status.st_nlink, 1u);
}

TEST_F(OldFileSystem, WithoutSecondNamesNothingIsMadeOrReplaced) {
    before_system_call = without_second_names;
    dir_.write("taken", "theirs");
    EXPECT_EQ(put_at("taken"), EOPNOTSUPP);
    EXPECT_EQ(put_at("free"), EOPNOTSUPP);
    EXPECT_EQ(dir_.read("taken"), "theirs");
    EXPECT_EQ(files(), 1);
}

}  // namespace
