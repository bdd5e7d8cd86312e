// SPDX-License-Identifier: Apache-2.0
//
// help: the same text as --help.

#include <gtest/gtest.h>

#include "aaactl/support/program_run.hpp"

namespace {

using aaactl_test::aaactl;

TEST(Help, IsThatOfTheOption) {
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{}, {"sysdb"}, {"sysdb", "load"}, {"decode"}, {"help"}}) {
        std::vector<std::string> asked{"help"};
        asked.insert(asked.end(), command.begin(), command.end());
        std::vector<std::string> option = command;
        option.emplace_back("--help");
        const auto run = aaactl(asked);
        EXPECT_EQ(run.status, 0) << run.err;
        const std::string expected = aaactl(option).out;
        EXPECT_EQ(run.out, expected.substr(0, expected.find_last_not_of('\n') + 1) + "\n");
    }
}

TEST(Help, SuggestsACommand) {
    const auto run = aaactl({"help", "sysdb", "lod"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "aaactl: \"lod\" is not a command of aaactl sysdb; did you mean load?\n");
    EXPECT_EQ(aaactl({"help", "lint", "x"}).err,
              "aaactl: \"x\" is not a command of aaactl lint, which has none\n");
}

TEST(Help, IsADocumentToo) {
    const auto json = aaactl({"help", "attr", "--json"}).json();
    EXPECT_EQ(json["command"], "aaactl attr");
    EXPECT_EQ(json["commands"].dump(), R"(["show","search","list","export"])");
    EXPECT_NE(json["help"].text().find("Usage: aaactl attr"), std::string::npos);
}

}  // namespace
