// SPDX-License-Identifier: Apache-2.0
//
// edit, with shell commands as editors and with a terminal.

#include <filesystem>

#include "aaactl/history/edit_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::Edit;
using aaactl_test::Kinds;
using aaactl_test::Started;

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST_F(Edit, CommitsWhatTheEditorSaved) {
    editor("sed -i 's/limit u32 1/limit u32 2/' \"$1\"");
    const auto run = aaactl({"edit", "--force", "--yes", "-m", "why"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "- item /cfg/gl/aaa/site/limit u32 1\n"
              "+ item /cfg/gl/aaa/site/limit u32 2\n"
              "commit 1: changes that were made without a commit\n"
              "commit 2\n");
    EXPECT_EQ(shown(), limit(2) + "end\n");
    EXPECT_EQ(kinds(), (Kinds{"edit", "outside"}));
    EXPECT_TRUE(nothing_left());
}

TEST_F(Edit, TheDocumentNamesTheLines) {
    editor("sed -i 's/limit u32 1/limit u32 2/' \"$1\"");
    const auto json = aaactl({"edit", "--force", "--yes", "--json", "--confirm", "5"}).json();
    EXPECT_TRUE(contains(json.dump(), "\"changed\":true"));
    EXPECT_EQ(json["lines"].size(), 2u);
    EXPECT_TRUE(json.contains("confirm_until"));
    done({"cancel"});
    EXPECT_EQ(shown(), limit(1) + "end\n");
    editor("exit 0");
    EXPECT_EQ(aaactl({"edit", "--force", "--yes", "--json"}).json().dump(), "{\"changed\":false}");
}

TEST_F(Edit, VisualComesFirstAndMayHaveOptions) {
    editor("exit 9");
    const ScopedEnv visual("VISUAL", "sed -i 's/limit u32 1/limit u32 3/'");
    EXPECT_EQ(aaactl({"edit", "--force", "--yes"}).status, 0);
    EXPECT_EQ(shown(), limit(3) + "end\n");
}

TEST_F(Edit, TheFileIsPrivateAndKeysStaySealed) {
    done({"key", "new-master"});
    load(
        "aaa group server radius corp\n server 192.0.2.1 auth-port 1812 acct-port 1813 key 0 hunter2\n"
        "item /cfg/gl/aaa/site/password string \"hunter3\"\n");
    const std::string before = shown();
    editor("stat -c %a \"$1\" \"$(dirname \"$1\")\" >" + dir().path("modes") + "; cp \"$1\" " +
           dir().path("copy") + "; sed -i 's/limit u32 1/limit u32 2/' \"$1\"");
    EXPECT_EQ(aaactl({"edit", "--force", "--yes"}).status, 0);
    EXPECT_EQ(dir().read("modes"), "600\n700\n");
    EXPECT_FALSE(contains(dir().read("copy"), "hunter"));
    EXPECT_TRUE(contains(dir().read("copy"), "key 7 01"));
    EXPECT_EQ(value_of("/cfg/gl/aaa/site/password"), "hunter3") << "a masked value stays";
}

TEST_F(Edit, AnUnchangedOrEmptyTextChangesNothing) {
    for (const char *script : {"exit 0", ": >\"$1\"", "printf '\\n  \\n' >\"$1\"",
                               "echo '! remark' >>\"$1\"; "
                               "sed -i '/^end/d' \"$1\"; echo end >>\"$1\""}) {
        editor(script);
        const auto run = aaactl({"edit", "--yes"});
        EXPECT_EQ(run.status, 0) << script << run.err;
        EXPECT_EQ(run.out, "nothing was changed\n") << script;
        EXPECT_TRUE(nothing_left()) << script;
    }
    EXPECT_EQ(kinds(), Kinds{});
}

TEST_F(Edit, AnEditorThatFailsChangesNothing) {
    editor("exit 3");
    const auto failed = aaactl({"edit", "--yes"});
    EXPECT_EQ(failed.status, 6);
    EXPECT_TRUE(contains(failed.err, "the editor failed with exit status 3; nothing was changed"));
    EXPECT_TRUE(nothing_left());
    editor("echo 'item /cfg/gl/aaa/x u32 1' >>\"$1\"; kill -9 $$");
    const auto killed = aaactl({"edit", "--yes"});
    EXPECT_EQ(killed.status, 6);
    EXPECT_TRUE(contains(killed.err, "the text is kept in " + kept())) << killed.err;
    EXPECT_FALSE(kept().empty());
    setenv("EDITOR", "/nonexistent", 1);
    EXPECT_TRUE(contains(aaactl({"edit", "--yes"}).err, "set EDITOR"));
    EXPECT_EQ(shown(), limit(1) + "end\n");
}

TEST_F(Edit, AWrongTextIsKept) {
    for (const char *script :
         {"sed -i 's/^end/nonsense\\nend/' \"$1\"", "sed -i '/^end/d; s/u32 1/u32 2/' \"$1\"",
          "sed -i 's/^end/aaa authentication login default group missing\\nend/' \"$1\""}) {
        editor(script);
        const auto run = aaactl({"edit", "--yes"});
        EXPECT_NE(run.status, 0) << script;
        EXPECT_TRUE(contains(run.err, "othing was changed; the text is kept in " + kept())) << run.err;
        EXPECT_FALSE(kept().empty());
        std::filesystem::remove_all(std::filesystem::path(kept()).parent_path());
    }
    EXPECT_EQ(shown(), limit(1) + "end\n");
}

TEST_F(Edit, WhatOthersChangedMeanwhileIsNotUndone) {
    editor("sed -i 's/u32 1/u32 2/' \"$1\"; aaactl sysdb set --force /cfg/gl/aaa/site/other --type u32 7");
    const std::string path = std::getenv("PATH");
    const ScopedEnv provider("AAA_SYSDB_PROVIDER", AAACTL_PROVIDER);
    setenv("PATH", (std::filesystem::path(AAACTL_PROGRAM).parent_path().string() + ":" + path).c_str(), 1);
    const auto run = aaactl({"edit", "--force", "--yes"});
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err, "changed meanwhile by another process, at /cfg/gl/aaa/site/other"))
        << run.err;
    EXPECT_TRUE(contains(run.err, "the text is kept in " + kept()));
    EXPECT_TRUE(contains(dir().read(kept().substr(dir().path("").size())), "limit u32 2"));
    EXPECT_EQ(shown(), "item /cfg/gl/aaa/site/limit u32 1\nitem /cfg/gl/aaa/site/other u32 7\nend\n");
}

// The editor is a process of its own, which makes the other user's commit.
TEST_F(Edit, ACommitOfTheSameStateMeanwhileIsTheOneBefore) {
    done({"commit", "base"});
    editor(std::string("AAA_SYSDB_PROVIDER=") + AAACTL_PROVIDER + " " + AAACTL_PROGRAM +
           " commit other >/dev/null && sed -i 's/limit u32 1/limit u32 2/' \"$1\"");
    const auto run = aaactl({"edit", "--force", "--yes"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(kinds(), (Kinds{"edit", "commit", "commit"}));
}

TEST_F(Edit, NewErrorsNeedForceWithoutATerminal) {
    load(
        "aaa group server radius corp\n server 192.0.2.1 auth-port 1812 acct-port 1813\n"
        "aaa authentication login default group corp local\n");
    editor("sed -i '/^ server/d' \"$1\"");
    const auto run = aaactl({"edit", "--yes"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.out, "[empty-group]")) << run.out;
    EXPECT_TRUE(contains(run.err, "--force")) << run.err;
    std::filesystem::remove_all(std::filesystem::path(kept()).parent_path());
    EXPECT_EQ(aaactl({"edit", "--yes", "--force"}).status, 0);
    EXPECT_FALSE(contains(shown(), "192.0.2.1"));
}

TEST_F(Edit, ChecksItemsAsLoadDoes) {
    editor("sed -i 's/^end/item \\/cfg\\/gl\\/aaa\\/radius\\/settings\\/timeuot u32 5000\\nend/' \"$1\"");
    const auto run = aaactl({"edit", "--yes"});
    EXPECT_EQ(run.status, 3);
    EXPECT_TRUE(contains(run.err, "line 5: /cfg/gl/aaa/radius/settings/timeuot: ")) << run.err;
    EXPECT_TRUE(contains(run.err, "the text is kept in " + kept())) << run.err;
    EXPECT_EQ(shown(), limit(1) + "end\n") << "an item that is stored stays";
    std::filesystem::remove_all(std::filesystem::path(kept()).parent_path());
    EXPECT_EQ(aaactl({"edit", "--yes", "--force"}).status, 0);
    EXPECT_TRUE(contains(shown(), "timeuot"));
}

TEST_F(Edit, NeedsATerminalToAsk) {
    editor("echo started >" + dir().path("started"));
    const auto run = aaactl({"edit"});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(contains(run.err, "--yes")) << run.err;
    EXPECT_EQ(dir().read("started"), "");
}

TEST_F(Edit, AsksOnATerminal) {
    editor("sed -i 's/u32 1/u32 2/' \"$1\"");
    Started edit({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(edit.wait_shown("Commit these changes?"));
    EXPECT_TRUE(contains(edit.shown(), "limit u32 2"));
    edit.type("y\n");
    EXPECT_EQ(edit.wait(), 0) << edit.shown();
    EXPECT_EQ(shown(), limit(2) + "end\n");
    editor("sed -i 's/u32 2/u32 3/' \"$1\"");
    Started refused({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(refused.wait_shown("Commit these changes?"));
    refused.type("n\n");
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_TRUE(contains(refused.shown(), "the text is kept in " + kept())) << refused.shown();
    EXPECT_EQ(shown(), limit(2) + "end\n");
}

TEST_F(Edit, GoesBackToTheEditorWithTheMessage) {
    // The first time a wrong line; then the message is in the file, and the line is mended.
    editor(
        "if grep -q '^!! line' \"$1\"; then sed -i 's/^wrong.*/item \\/cfg\\/gl\\/aaa\\/y u32 5/' \"$1\"; "
        "else "
        "sed -i 's/^end/wrong line\\nend/' \"$1\"; fi");
    Started edit({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(edit.wait_shown("Edit again?"));
    EXPECT_TRUE(contains(edit.shown(), "line 5: ")) << edit.shown();
    edit.type("y\n");
    ASSERT_TRUE(edit.wait_shown("Commit these changes?"));
    edit.type("yes\n");
    EXPECT_EQ(edit.wait(), 0) << edit.shown();
    EXPECT_TRUE(contains(shown(), "item /cfg/gl/aaa/y u32 5"));
    EXPECT_TRUE(nothing_left());
}

}  // namespace
