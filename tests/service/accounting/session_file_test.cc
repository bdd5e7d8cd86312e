// SPDX-License-Identifier: Apache-2.0

#include "accounting/session_file.hpp"

#include <gtest/gtest.h>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

class SessionFileTest : public testing::Test {
  protected:
    SessionFileTest() {
        std::string error;
        EXPECT_TRUE(directory.open(temp.path("journal"), error)) << error;
        for (std::uint64_t i = 1; i <= 3; ++i) {
            Record record = sample("s" + std::to_string(i));
            record.sequence = 10 * i;
            sessions.push_back(std::make_shared<const Record>(record));
        }
    }
    std::vector<std::string> load() {
        std::vector<std::string> names;
        std::string error;
        EXPECT_TRUE(file.load([&](const Record &record) { names.push_back(record.session); }, through, error))
            << error;
        return names;
    }

    TempDir temp;
    FailingFiles files;
    Lines lines;
    Directory directory{files};
    SessionFile file{directory, lines.log()};
    std::vector<RecordPointer> sessions;
    std::uint64_t through = 0;
};

TEST_F(SessionFileTest, HoldsTheOpenSessions) {
    EXPECT_TRUE(load().empty());
    EXPECT_EQ(through, 0U);
    EXPECT_TRUE(file.save(77, sessions));
    EXPECT_EQ(load(), (std::vector<std::string>{"s1", "s2", "s3"}));
    EXPECT_EQ(through, 77U);
    sessions.resize(1);
    EXPECT_TRUE(file.save(80, sessions));
    EXPECT_EQ(load(), std::vector<std::string>{"s1"});
    EXPECT_EQ(through, 80U);
}

TEST_F(SessionFileTest, StaysAsItWasWhenItCannotBeReplaced) {
    EXPECT_TRUE(file.save(77, sessions));
    for (const FailingFiles::Call call : {FailingFiles::kWrite, FailingFiles::kSync, FailingFiles::kRename}) {
        files.fail(call, ENOSPC);
        EXPECT_FALSE(file.save(80, {}));
        EXPECT_EQ(errno, ENOSPC);
        files.mend();
        EXPECT_EQ(load().size(), 3U);
        EXPECT_TRUE(names_in(temp.path("journal"), "sessions.new").empty());
    }
}

TEST_F(SessionFileTest, LosesOnlyWhatIsDamaged) {
    EXPECT_TRUE(file.save(77, sessions));
    const std::string bytes = temp.read("journal/sessions");
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        std::string damaged = bytes;
        damaged[at] = static_cast<char>(damaged[at] ^ 2);
        temp.write("journal/sessions", damaged);
        lines = {};
        const std::size_t found = load().size();
        if (at < kSegmentHead) {
            EXPECT_EQ(found, 0U);
        } else {
            EXPECT_GE(found, 2U) << at;
        }
        EXPECT_EQ(lines.count(), found == 3 ? 0U : 1U) << at;
    }
}

TEST_F(SessionFileTest, ThatCannotBeReadStopsTheStart) {
    EXPECT_TRUE(file.save(77, sessions));
    files.fail(FailingFiles::kRead, EIO);
    std::string error;
    EXPECT_FALSE(file.load([](const Record &) {}, through, error));
    EXPECT_NE(error.find("sessions"), std::string::npos);
}

}  // namespace
}  // namespace accounting
