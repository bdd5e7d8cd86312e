// SPDX-License-Identifier: Apache-2.0
//
// What holds for every command: help, exit status of a wrong command line,
// completion, and escaping.

#include "output.hpp"
#include "program_run.hpp"

namespace {

using aaactl_test::aaactl;

TEST(AaactlProgram, WithoutACommandItSaysWhatIsMissing) {
    const auto run = aaactl({});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("subcommand is required"), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
}

TEST(AaactlProgram, HelpAndVersionSucceed) {
    const auto help = aaactl({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("completion"), std::string::npos);
    EXPECT_NE(help.out.find("Exit status"), std::string::npos);
    const auto version = aaactl({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("aaactl ", 0), 0u) << version.out;
}

TEST(AaactlProgram, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(aaactl({"no-such-command"}).status, 2);
    EXPECT_EQ(aaactl({"completion", "bash", "--no-such-option"}).status, 2);
    EXPECT_EQ(aaactl({"completion", "tcsh"}).status, 2);
    EXPECT_EQ(aaactl({"--color=sometimes", "completion", "bash"}).status, 2);
}

TEST(AaactlProgram, CompletesInBash) {
    const auto script = aaactl({"completion", "bash"});
    EXPECT_EQ(script.status, 0);
    EXPECT_NE(script.out.find("[\"aaactl completion\"]"), std::string::npos) << script.out;
    EXPECT_NE(script.out.find("complete -o filenames -F _aaactl aaactl"), std::string::npos);
}

TEST(AaactlOutput, EscapesWhatActsOnATerminal) {
    using aaactl::escaped;
    EXPECT_EQ(escaped("plain ~"), "plain ~");
    EXPECT_EQ(escaped("a\\b\n\t\r"), "a\\\\b\\n\\t\\r");
    EXPECT_EQ(escaped("\033[31m\x7f"), "\\x1b[31m\\x7f");
    EXPECT_EQ(escaped(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(escaped("gr\xc3\xbc\xc3\x9f"), "gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(escaped("\xc3\xbc", true), "\\xc3\\xbc");
    EXPECT_EQ(escaped("\xc2\x9b"), "\\xc2\\x9b") << "a C1 control";
    EXPECT_EQ(escaped("\xe2\x80\xae"), "\\xe2\\x80\\xae") << "right-to-left override";
    EXPECT_EQ(escaped("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xff"), "\\xc0\\xaf\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80\\xff");
    EXPECT_EQ(escaped("\xe2\x82"), "\\xe2\\x82") << "cut short";
}

} // namespace
