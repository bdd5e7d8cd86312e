// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

extern "C" {
#include "sudo/command_text.h"
}

namespace {

std::string text_of(const std::string &program, std::vector<std::string> arguments) {
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    size_t length = 0;
    char *text = command_text(program.c_str(), argv.data(), &length);
    const std::string copy = text != nullptr ? text : "(none)";
    std::free(text);
    EXPECT_TRUE(copy == "(none)" || copy.size() == length);
    return copy;
}

TEST(CommandText, HasProgramAndArguments) {
    EXPECT_EQ(text_of("/bin/ls", {"ls", "-l", "/tmp"}), "/bin/ls -l /tmp");
    EXPECT_EQ(text_of("/bin/bash", {"-bash"}), "/bin/bash");
    EXPECT_EQ(text_of("/bin/bash", {}), "/bin/bash");
}

// A rule that allows one command must not allow another one that has the same text.
TEST(CommandText, DiffersForDifferentCommands) {
    EXPECT_EQ(text_of("/bin/rm", {"rm", "a b"}), "/bin/rm a\\ b");
    EXPECT_EQ(text_of("/bin/rm", {"rm", "a\\", "b"}), "/bin/rm a\\\\ b");
    EXPECT_EQ(text_of("/bin/rm", {"rm", "", "b"}), "/bin/rm \\e b");
    EXPECT_EQ(text_of("/bin/rm", {"rm", "\\e", "b"}), "/bin/rm \\\\e b");
    EXPECT_EQ(text_of("/bin/a b", {"x"}), "/bin/a\\ b");
}

TEST(CommandText, HasOneLine) {
    EXPECT_EQ(text_of("/bin/sh", {"sh", "-c", "a\nb\tc\x7f\x01"}), "/bin/sh -c a\\012b\\011c\\177\\001");
    EXPECT_EQ(text_of("/bin/echo", {"echo", "Zoë"}), "/bin/echo Zoë");
}

TEST(CommandText, IsWholeOrNone) {
    const std::string longest(COMMAND_TEXT_MAX - 3, 'x');
    EXPECT_EQ(text_of("/a", {"a", longest}), "/a " + longest);
    EXPECT_EQ(text_of("/a", {"a", longest + "x"}), "(none)");
    EXPECT_EQ(text_of("/a", {"a", std::string(COMMAND_TEXT_MAX / 4 + 1, '\n')}), "(none)");
}

}  // namespace
