// SPDX-License-Identifier: Apache-2.0

#include "accounting/refused.hpp"

#include <gtest/gtest.h>

#include "service/accounting/support.hpp"

namespace accounting {
namespace {

TEST(RefusedLine, HasThisForm) {
    Record record = sample("alice \"1\"\n\xe9", Kind::kStop, {"billing"}, std::string("\x00\xff\x10", 3));
    record.sequence = 17;
    EXPECT_EQ(
        refused_line(record, "billing", "an attribute is too long"),
        "{\"time\":\"2023-11-14T22:13:20Z\",\"destination\":\"billing\","
        "\"reason\":\"an attribute is too long\",\"kind\":\"stop\","
        "\"session\":\"alice \\u00221\\u0022\\u000a\\u00e9\",\"sequence\":17,\"payload\":\"00ff10\"}\n");
}

class RefusedTest : public testing::Test {
  protected:
    RefusedTest() {
        std::string error;
        EXPECT_TRUE(directory.open(temp.path("journal"), error)) << error;
    }
    std::string text(const char *name = kRefusedName) { return temp.read(std::string("journal/") + name); }

    TempDir temp;
    FailingFiles files;
    Lines lines;
    Directory directory{files};
};

TEST_F(RefusedTest, AppendsDurably) {
    {
        RefusedFile file(directory, 1000, lines.log());
        EXPECT_TRUE(file.append("one\n"));
    }
    RefusedFile file(directory, 1000, lines.log());
    const int before = files.calls(FailingFiles::kSync);
    EXPECT_TRUE(file.append("two\n"));
    EXPECT_GE(files.calls(FailingFiles::kSync), before + 1);
    EXPECT_EQ(text(), "one\ntwo\n");
}

TEST_F(RefusedTest, EndsALineThatWasNotFinished) {
    temp.write(std::string("journal/") + kRefusedName, "half a li");
    RefusedFile file(directory, 1000, lines.log());
    EXPECT_TRUE(file.append("two\n"));
    EXPECT_EQ(text(), "half a li\ntwo\n");
}

TEST_F(RefusedTest, KeepsOneOlderFile) {
    RefusedFile file(directory, 8, lines.log());
    for (const char *line : {"1234567\n", "b\n", "2345678\n", "c\n"}) {
        EXPECT_TRUE(file.append(line));
    }
    EXPECT_EQ(text(), "c\n");
    EXPECT_EQ(text(kOlderRefusedName), "b\n2345678\n");
    EXPECT_TRUE(lines.has("has reached its size"));
}

TEST_F(RefusedTest, LeavesNoPartOfALine) {
    RefusedFile file(directory, 1000, lines.log());
    EXPECT_TRUE(file.append("one\n"));
    files.leave_room(3);
    EXPECT_FALSE(file.append("too long\n"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(text(), "one\n");
    files.leave_room(INT64_MAX / 2);
    EXPECT_TRUE(file.append("two\n"));
    EXPECT_EQ(text(), "one\ntwo\n");
    files.fail(FailingFiles::kSync, EIO, 1);
    EXPECT_FALSE(file.append("three\n"));
}

}  // namespace
}  // namespace accounting
