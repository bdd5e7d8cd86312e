// SPDX-License-Identifier: Apache-2.0
//
// The word that someone who misspelt one probably meant.

#include "cli/suggestion.hpp"

#include <gtest/gtest.h>

#include "aaactl/support/program_run.hpp"

namespace {

using aaactl::did_you_mean;
using aaactl::nearest_word;
using aaactl_test::aaactl;

TEST(Suggestion, TakesTheNearestWord) {
    const std::vector<std::string> words{"login", "exec", "commands", "network", "ppp"};
    EXPECT_EQ(nearest_word("lgin", words), "login");
    EXPECT_EQ(nearest_word("lgoin", words), "login") << "swapped letters are one error";
    EXPECT_EQ(nearest_word("LOGIN", words), "login");
    EXPECT_EQ(nearest_word("comands", words), "commands");
    EXPECT_EQ(nearest_word("kommandos", words), "commands");
    EXPECT_EQ(nearest_word("exce", words), "exec");
    EXPECT_EQ(nearest_word("ppx", words), "ppp");
    EXPECT_EQ(nearest_word("pxx", words), "");
    EXPECT_EQ(nearest_word("", words), "");
    EXPECT_EQ(nearest_word("x", {"y"}), "") << "every word of one letter is one error away";
    EXPECT_EQ(nearest_word(std::string(100000, 'l'), words), "");
    EXPECT_EQ(nearest_word("lgin", {}), "");
}

TEST(Suggestion, EscapesTheWord) {
    EXPECT_EQ(did_you_mean("corp", {"cor\x1b"}), "; did you mean cor\\x1b?");
    EXPECT_EQ(did_you_mean("corp", {"lab"}), "");
}

TEST(Suggestion, IsMadeForCommandsAndOptions) {
    const auto suggests = [](const std::vector<std::string> &args, const std::string &text) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.err.find(text), std::string::npos) << run.err;
    };
    suggests({"lnt"}, "expected: lnt; did you mean lint? (see --help)");
    suggests({"mlsit", "show"}, "; did you mean mlist?");
    suggests({"sysdb", "dmup"}, "; did you mean dump?");
    suggests({"sg", "lsit", "corp"}, "; did you mean list?");
    suggests({"lint", "--strcit"}, "; did you mean --strict?");
    suggests({"lint", "--jsno"}, "; did you mean --json?");
    EXPECT_EQ(aaactl({"lint", "nothing-like-it"}).err.find("did you mean"), std::string::npos);
}

}  // namespace
