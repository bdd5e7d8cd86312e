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

// The names of values are words of the field, and what they can be follows the description.
TEST(Help, NamesValuesForPeople) {
    const std::string all = aaactl({"--help-all"}).out;
    for (const char *internal : {" TEXT", "UINT", ":INT", " in [", "REQUIRED", "Excludes", ":{"}) {
        EXPECT_EQ(all.find(internal), std::string::npos) << internal;
    }
    const std::string trace = aaactl({"trace", "--help"}).out;
    EXPECT_NE(trace.find(
                  "  --timeout SECONDS           Seconds to wait for the service (1 to 86400; default 10)\n"),
              std::string::npos)
        << trace;
    EXPECT_NE(
        trace.find("  --all                       First all that the service remembers (not with --since)\n"),
        std::string::npos)
        << trace;
    EXPECT_NE(
        aaactl({"sysdb", "watch", "--help"}).out.find("End after this number of changes (at least 1)\n"),
        std::string::npos);
    EXPECT_NE(aaactl({"--help"}).out.find("--color,--colour WHEN"), std::string::npos);
}

TEST(Help, SuggestsACommand) {
    const auto run = aaactl({"help", "sysdb", "lod"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "aaactl: \"lod\" is not a command of aaactl sysdb; did you mean load?\n");
    EXPECT_EQ(aaactl({"help", "lint", "x"}).err,
              "aaactl: \"x\" is not a command of aaactl lint, which has none\n");
}

TEST(Help, KnowsTheOtherNamesOfACommand) {
    const auto run = aaactl({"help", "sysdb", "rm"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, aaactl({"help", "sysdb", "del"}).out);
}

TEST(Help, IsADocumentToo) {
    const auto json = aaactl({"help", "attr", "--json"}).json();
    EXPECT_EQ(json["command"], "aaactl attr");
    EXPECT_EQ(json["commands"].dump(), R"(["show","search","list","export"])");
    EXPECT_NE(json["help"].text().find("Usage: aaactl attr"), std::string::npos);
}

}  // namespace
