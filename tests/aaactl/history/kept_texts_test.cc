// SPDX-License-Identifier: Apache-2.0
//
// What was typed into an editor is not lost, and what is kept of it can be deleted.

#include <algorithm>

#include "aaactl/history/edit_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::Edit;
using aaactl_test::Started;

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST_F(Edit, ATextThatIsKeptCanBeGoneOnWith) {
    editor("sed -i 's/^end/item \\/cfg\\/gl\\/aaa\\/history\\/commits u32 1\\nend/' \"$1\"");
    const auto run = aaactl({"edit", "--yes", "-m", "two words", "--confirm", "5"});
    EXPECT_EQ(run.status, 3) << run.out;
    const std::string file = kept();
    EXPECT_TRUE(contains(run.err, "the text is kept in " + file +
                                      ", and \"aaactl edit -m 'two words' --confirm 5 " + file +
                                      "\" goes on with it"))
        << run.err;
    editor("sed -i 's/commits u32 1$/commits u32 9/' \"$1\"");
    const auto next = aaactl({"edit", "--yes", file});
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_TRUE(contains(shown(), "history/commits u32 9"));
    EXPECT_TRUE(nothing_left()) << "what is stored is not kept";
}

TEST_F(Edit, AFileOfTheUserStays) {
    const std::string file = dir().write("mine", limit(1) + limit(2).replace(22, 5, "other") + "end\n");
    editor("exit 0");
    const auto run = aaactl({"edit", "--yes", "--force", file});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(shown(), "site/other u32 2")) << shown();
    EXPECT_NE(dir().read("mine"), "");
    EXPECT_EQ(aaactl({"edit", "--yes", dir().path("missing")}).status, 4);
    EXPECT_TRUE(nothing_left());
}

TEST_F(Edit, ASignalAtTheQuestionNamesTheText) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        editor("sed -i 's/u32 1/u32 2/' \"$1\"");
        Started edit({"edit", "--force"}, Started::On::terminal);
        ASSERT_TRUE(edit.wait_shown("Commit these changes?"));
        if (signal == SIGINT) {
            edit.type("\x03");  // to all processes of the terminal
            EXPECT_EQ(edit.wait(), 128 + SIGINT);
        } else {
            EXPECT_EQ(edit.end(signal), 128 + signal);
        }
        EXPECT_TRUE(contains(edit.shown(), "interrupted; the text is kept in " + kept() +
                                               ", and \"aaactl edit " + kept() + "\" goes on with it"))
            << edit.shown();
        EXPECT_EQ(shown(), limit(1) + "end\n");
        std::filesystem::remove_all(std::filesystem::path(kept()).parent_path());
    }
}

TEST_F(Edit, AnInterruptionIsTheEditorsWhileItRuns) {
    editor("trap 'sed -i \"s/u32 1/u32 2/\" \"$1\"; exit 0' INT; echo started; while :; do sleep 0.1; done");
    Started edit({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(edit.wait_shown("started"));
    edit.type("\x03");
    ASSERT_TRUE(edit.wait_shown("Commit these changes?")) << edit.shown();
    edit.type("y\n");
    EXPECT_EQ(edit.wait(), 0) << edit.shown();
    EXPECT_EQ(shown(), limit(2) + "end\n");
}

TEST_F(Edit, ASignalThatEndsTheCommandEndsTheEditorToo) {
    for (const int signal : {SIGTERM, SIGHUP}) {
        editor("sed -i 's/u32 1/u32 2/' \"$1\"; echo started; exec sleep 600");
        Started edit({"edit", "--force"}, Started::On::terminal);
        ASSERT_TRUE(edit.wait_shown("started"));
        EXPECT_EQ(edit.end(signal), 6) << edit.shown();
        EXPECT_TRUE(contains(edit.shown(), "ended by a signal: ")) << edit.shown();
        EXPECT_TRUE(contains(edit.shown(), "the text is kept in " + kept())) << edit.shown();
        std::filesystem::remove_all(std::filesystem::path(kept()).parent_path());
        editor("echo started; exec sleep 600");
        Started unchanged({"edit", "--force"}, Started::On::terminal);
        ASSERT_TRUE(unchanged.wait_shown("started"));
        EXPECT_EQ(unchanged.end(signal), 6) << unchanged.shown();
        EXPECT_TRUE(nothing_left());
    }
}

TEST_F(Edit, TheNextEditNamesATextThatNobodyCouldName) {
    editor("sed -i 's/u32 1/u32 2/' \"$1\"");
    Started killed({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(killed.wait_shown("Commit these changes?"));
    Started other({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(other.wait_shown("Commit these changes?"));
    EXPECT_FALSE(contains(other.shown(), "is kept in")) << "it is being edited: " << other.shown();
    EXPECT_EQ(other.end(SIGKILL), 128 + SIGKILL);
    std::filesystem::remove_all(std::filesystem::path(kept()).parent_path());
    EXPECT_EQ(killed.end(SIGKILL), 128 + SIGKILL);
    editor("exit 0");
    for (std::string file = kept(); !file.empty(); file = kept()) {
        const auto run = aaactl({"edit", "--yes", "--force"});
        EXPECT_EQ(run.status, 0);
        EXPECT_TRUE(
            contains(run.err, "an earlier text is kept in " + file + "; \"aaactl edit " + file + "\""))
            << run.err;
        std::filesystem::remove_all(std::filesystem::path(file).parent_path());
    }
}

TEST_F(Edit, AFullDiskLosesNothing) {
    // The editor could write a part only, and says so.
    editor("cp \"$1\" \"$1~\"; : >\"$1\"; exit 1");
    const auto cut = aaactl({"edit", "--yes", "--force"});
    EXPECT_EQ(cut.status, 6);
    EXPECT_TRUE(contains(cut.err, "the text is kept in ")) << cut.err;
    std::filesystem::remove_all(std::filesystem::path(kept()).parent_path());
    // The message cannot be written into the text.
    editor(
        "if grep -q wrong \"$1\"; then sed -i 's/^wrong.*//; s/u32 1/u32 2/' \"$1\"; else "
        "mkdir \"$1.new\"; sed -i 's/^end/wrong line\\nend/' \"$1\"; fi");
    Started edit({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(edit.wait_shown("Edit again?"));
    edit.type("y\n");
    ASSERT_TRUE(edit.wait_shown("Commit these changes?")) << edit.shown();
    edit.type("y\n");
    EXPECT_EQ(edit.wait(), 0) << edit.shown();
    EXPECT_EQ(shown(), limit(2) + "end\n");
    EXPECT_TRUE(nothing_left());
}

// Symptom: the message said that a text was kept which the editor had deleted.
TEST_F(Edit, ATextThatTheEditorDeletesIsNotSaidToBeKept) {
    for (const char *script :
         {"rm \"$1\"", "rm \"$1\"; exit 1", "rm -r \"$(dirname \"$1\")\"", "rm \"$1\"; mkfifo \"$1\""}) {
        editor(script);
        const auto run = aaactl({"edit", "--yes"});
        EXPECT_EQ(run.status, 6) << script;
        const bool failed = contains(run.err, "failed with exit status 1");
        EXPECT_EQ(contains(run.err, "the editor deleted the file of the text, "), !failed) << run.err;
        EXPECT_TRUE(contains(run.err, "; nothing was changed")) << run.err;
        EXPECT_FALSE(contains(run.err, "kept")) << run.err;
        std::filesystem::remove_all(dir().path("tmp"));
        std::filesystem::create_directory(dir().path("tmp"));
    }
    editor("mv \"$1\" \"$1~\"");
    const auto run = aaactl({"edit", "--yes"});
    EXPECT_TRUE(contains(run.err, "nothing was changed; other files that it left are kept in " +
                                      std::filesystem::path(kept()).parent_path().string()))
        << run.err;
    EXPECT_EQ(shown(), limit(1) + "end\n");
}

TEST_F(Edit, KeptTextsAreNamedAndDeleted) {
    editor("sed -i 's/^end/nonsense\\nend/' \"$1\"");
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(aaactl({"edit", "--yes"}).status, 3);
    }
    Started open({"edit", "--force"}, Started::On::terminal);
    ASSERT_TRUE(open.wait_shown("Edit again?")) << open.shown();
    editor("exit 0");
    const auto run = aaactl({"edit", "--yes"});
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 4) << run.err;
    EXPECT_TRUE(
        contains(run.err, "\naaactl: 2 more are kept; \"aaactl edit --discard-kept\" deletes all of them\n"))
        << run.err;
    EXPECT_EQ(aaactl({"edit", "--discard-kept", "--yes"}).status, 2);
    EXPECT_EQ(aaactl({"edit", "--discard-kept", "--json"}).json()["discarded"].size(), 5u);
    EXPECT_EQ(done({"edit", "--discard-kept"}), "no text is kept\n");
    EXPECT_FALSE(kept().empty()) << "it is being edited";
    EXPECT_EQ(open.end(SIGTERM), 128 + SIGTERM);
    const std::string file = kept();
    EXPECT_EQ(done({"edit", "--discard-kept"}), "deleted " + file + "\n");
    EXPECT_TRUE(nothing_left());
}

}  // namespace
