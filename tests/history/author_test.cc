// SPDX-License-Identifier: Apache-2.0

#include "store/author.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "support/temp_dir.hpp"

namespace {

TEST(Author, IsNamedAfterWhoLoggedIn) {
    EXPECT_EQ((history::Author{0, "root", "", "", ""}).name(), "root");
    EXPECT_EQ((history::Author{0, "root", "root", "", ""}).name(), "root");
    EXPECT_EQ((history::Author{0, "root", "alice", "", ""}).name(), "alice (as root)");
}

TEST(Author, ThePlaceIsWhatIsKnown) {
    EXPECT_EQ((history::Author{0, "", "", "192.0.2.7", "pts/0"}).place(), "192.0.2.7, pts/0");
    EXPECT_EQ((history::Author{0, "", "", "", "pts/0"}).place(), "pts/0");
    EXPECT_EQ((history::Author{0, "", "", "192.0.2.7", ""}).place(), "192.0.2.7");
}

TEST(Author, OfThisProcess) {
    const ScopedEnv connection("SSH_CONNECTION", "192.0.2.7 50000 192.0.2.1 22");
    const history::Author author = history::caller();
    EXPECT_EQ(author.uid, getuid());
    EXPECT_FALSE(author.user.empty());
    EXPECT_EQ(author.from, "192.0.2.7");
}

TEST(Author, TheEnvironmentCannotBreakARecord) {
    const ScopedEnv connection("SSH_CONNECTION", "192.0.2.7\nnumber\033[2J" + std::string(1000, 'x'));
    const std::string from = history::caller().from;
    EXPECT_EQ(from.find_first_of("\n\033"), std::string::npos);
    EXPECT_LE(from.size(), 128u);
}

TEST(Author, AProgramHasItsName) {
    EXPECT_EQ(history::program("aaad").name(), "aaad");
}

}  // namespace
