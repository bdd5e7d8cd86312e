// SPDX-License-Identifier: Apache-2.0
//
// A disk that is full from the moment of a commit that waits.

#include <filesystem>

#include "aaactl/history/history_fixture.hpp"
#include "aaactl/support/file_size_limit.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::FileSizeLimit;
using aaactl_test::HistoryCommands;

class FullDisk : public HistoryCommands {
  protected:
    // Most of the items are deleted, unless that is confirmed.
    void SetUp() override {
        load(limit(1));
        done({"commit", "first"});
        std::string text;
        for (int i = 0; i < 2000; ++i) {
            text += "item /cfg/gl/aaa/site/item" + std::to_string(i) + " string \"" +
                    std::to_string(i * 7919) + "\"\n";
        }
        done({"load", "--force", "--label", "base", "-"}, text);
        before_ = shown();
        done({"load", "--force", "--replace", "--confirm", "5", "-"}, limit(3) + "end\n");
    }
    rlim_t size() const { return std::filesystem::file_size(dir().path("cfg/cfg.mdb")); }
    const std::string &before() const { return before_; }

  private:
    std::string before_;
};

TEST_F(FullDisk, ACommitThatWaitsIsReverted) {
    {
        const FileSizeLimit full(size());
        const auto run = aaactl({"cancel"});
        EXPECT_EQ(run.status, 0) << run.err;
    }
    EXPECT_TRUE(shown() == before());
    EXPECT_EQ(aaactl({"cancel"}).status, 4);
}

TEST_F(FullDisk, ACommitThatWaitsIsConfirmed) {
    const FileSizeLimit full(size());
    const auto run = aaactl({"confirm"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(shown(), limit(3) + "end\n");
}

}  // namespace
