// SPDX-License-Identifier: Apache-2.0
//
// sysdb watch, and secrets typed at a prompt.

#include <algorithm>
#include <regex>
#include <sstream>

#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::Started;
using Watch = aaactl_test::DatabaseTest;

// Only the first event proves that the watch is registered.
void change_until_noticed(Started &watch, const std::string &path) {
    for (int i = 0; watch.shown().find(path) == std::string::npos; ++i) {
        ASSERT_EQ(aaactl({"sysdb", "set", path, std::to_string(i), "--type", "u32"}).status, 0);
        watch.read_some(10);
        ASSERT_LT(i, 5000);
    }
}

TEST_F(Watch, PrintsChangesAndEndsWithASignal) {
    for (const int signal : {SIGINT, SIGTERM}) {
        Started watch({"sysdb", "watch", "/cfg/w"});
        change_until_noticed(watch, "/cfg/w/begin");
        put("/cfg/w/text", "string", "x\ty");
        EXPECT_TRUE(watch.wait_shown("create /cfg/w/text string \"x\\ty\"\n")) << watch.shown();
        put("/cfg/w/text", "string", "z");
        EXPECT_TRUE(watch.wait_shown(" set /cfg/w/text string \"z\"\n")) << watch.shown();
        put("/cfg/other", "u32", "1");
        put("/cfg/w/key", "string", "hunter2");
        EXPECT_TRUE(watch.wait_shown("create /cfg/w/key string ********\n")) << watch.shown();
        EXPECT_EQ(aaactl({"sysdb", "del", "-r", "/cfg/w"}).status, 0);
        EXPECT_TRUE(watch.wait_shown("delete /cfg/w/text\n")) << watch.shown();
        EXPECT_EQ(watch.shown().find("/cfg/other"), std::string::npos);
        EXPECT_EQ(watch.end(signal), 0);
    }
}

TEST_F(Watch, CountsAndPrintsJsonLines) {
    Started watch({"sysdb", "watch", "--json", "--count", "2"});
    change_until_noticed(watch, "/cfg/w");
    // The second line, unless a second change of the item was quicker.
    EXPECT_EQ(aaactl({"sysdb", "set", "/oper/made/"}).status, 0);
    EXPECT_EQ(watch.wait(), 0);
    const size_t end = watch.shown().find('\n');
    ASSERT_NE(end, std::string::npos);
    const auto first = aaactl_test::JsonDocument::parse(watch.shown().substr(0, end));
    EXPECT_TRUE(first["event"] == "create" || first["event"] == "set")
        << first;  // the first changes may precede the registration
    EXPECT_EQ(first["path"], "/cfg/w");
    EXPECT_EQ(first["type"], "u32");
    EXPECT_GT(first["revision"].number(), 0u);
    EXPECT_TRUE(aaactl_test::JsonDocument::parse(watch.shown().substr(end + 1)).valid());
    EXPECT_EQ(std::count(watch.shown().begin(), watch.shown().end(), '\n'), 2);
}

TEST_F(Watch, EndsWhenItsOutputIsLost) {
    Started watch({"sysdb", "watch", "/cfg/"}, Started::On::full_disk);
    for (int i = 0; !watch.has_ended(10); ++i) {  // registered or not yet
        ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/w", std::to_string(i), "--type", "u32"}).status, 0);
        ASSERT_LT(i, 5000);
    }
    EXPECT_EQ(watch.wait(), 6);
}

TEST_F(Watch, AnItemsPathAlsoWatchesTheDirectoryOfThatName) {
    Started watch({"sysdb", "watch", "/cfg/w/x"});
    change_until_noticed(watch, "/cfg/w/x");
    put("/cfg/w/x/below", "u32", "1");
    EXPECT_TRUE(watch.wait_shown("create /cfg/w/x/below u32 1\n"));
    put("/cfg/w/xy", "u32", "1");
    EXPECT_EQ(aaactl({"sysdb", "del", "/cfg/w/x"}).status, 0);
    EXPECT_TRUE(watch.wait_shown("delete /cfg/w/x\n"));
    EXPECT_EQ(watch.shown().find("/cfg/w/xy"), std::string::npos);
}

TEST_F(Watch, RefusesWhatItCannotWatch) {
    EXPECT_EQ(aaactl({"sysdb", "watch", "/other/"}).status, 2);
    const auto none = aaactl({"sysdb", "watch", "--count", "0"});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.err, "aaactl: --count: Value 0 not in range 1 to 4294967295 (see --help)\n");
    const ScopedEnv run("AAA_SYSDB_RUN_DIR", dir().write("file", "") + "/below");
    EXPECT_EQ(aaactl({"sysdb", "watch", "/cfg/"}).status, 5);
}

TEST_F(Watch, ShowsOnATerminalThatItWatches) {
    Started watch({"sysdb", "watch", "/cfg/"}, Started::On::terminal);
    EXPECT_TRUE(watch.wait_shown("Watching /cfg/, changes so far: 0"));
    put("/cfg/x", "u32", "1");
    EXPECT_TRUE(watch.wait_shown("create /cfg/x u32 1"));
    EXPECT_TRUE(watch.wait_shown("changes so far: 1"));
    watch.type("\x03");  // Control-C
    EXPECT_EQ(watch.wait(), 0);
}

// "2026-11-22 17:05:03.123 set /cfg/w u32 1"
TEST_F(Watch, LinesBeginWithTheTime) {
    const ScopedEnv zone("TZ", "UTC");
    Started watch({"sysdb", "watch", "--initial", "--count", "1", "/cfg/"});
    put("/cfg/w", "u32", "1");
    EXPECT_EQ(watch.wait(), 0);
    EXPECT_TRUE(std::regex_match(
        watch.shown(), std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} (present|create|set) "
                                  "/cfg/w u32 1\n")))
        << watch.shown();
}

TEST_F(Watch, PrintsWhatIsThereAndThenTheChanges) {
    put("/cfg/a", "u32", "1");
    put("/cfg/b/key", "string", "hunter2");
    ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/c/"}).status, 0);
    Started watch({"sysdb", "watch", "--initial", "--json", "/cfg/"});
    ASSERT_TRUE(watch.wait_shown("/cfg/c/"));
    put("/cfg/a", "u32", "2");
    ASSERT_TRUE(watch.wait_shown("\"event\":\"set\"")) << watch.shown();
    std::vector<std::string> events;
    std::istringstream stream(watch.shown());
    uint64_t revision = 0;
    for (std::string line; std::getline(stream, line);) {
        const auto event = aaactl_test::JsonDocument::parse(line);
        events.push_back(event["event"].text() + " " + event["path"].text() + " " + event["value"].dump());
        EXPECT_GT(event["time"].number(), 1700000000000000u);
        EXPECT_GE(event["revision"].number(), revision);
        revision = event["revision"].number();
    }
    EXPECT_EQ(events[0], "present /cfg/a 1");
    EXPECT_EQ(events[1].rfind("present /cfg/b/key ", 0), 0u);
    EXPECT_EQ(events[2].rfind("present /cfg/c/ ", 0), 0u);
    EXPECT_EQ(events[3], "set /cfg/a 2");
    EXPECT_EQ(watch.shown().find("hunter2"), std::string::npos);
    EXPECT_EQ(watch.end(SIGTERM), 0);
}

TEST_F(Watch, TheInitialStateOfAnItem) {
    put("/cfg/w", "u32", "1");
    Started watch({"sysdb", "watch", "--initial", "--count", "2", "/cfg/w"});
    ASSERT_TRUE(watch.wait_shown(" present /cfg/w u32 1\n")) << watch.shown();
    put("/cfg/w", "u32", "2");
    EXPECT_EQ(watch.wait(), 0);
    EXPECT_NE(watch.shown().find(" set /cfg/w u32 2\n"), std::string::npos);
    Started absent({"sysdb", "watch", "--initial", "--count", "1", "/cfg/none"});
    change_until_noticed(absent, "/cfg/none");
    EXPECT_EQ(absent.shown().find(" delete "), std::string::npos) << absent.shown();
    EXPECT_EQ(absent.wait(), 0);
}

// The revision of the last line.
uint64_t last_revision(const std::string &shown) {
    const std::string lines = shown.substr(0, shown.size() - 1);
    return aaactl_test::JsonDocument::parse(lines.substr(lines.rfind('\n') + 1))["revision"].number();
}

TEST_F(Watch, BeginsAfterARevision) {
    put("/cfg/w", "u32", "1");
    Started first({"sysdb", "watch", "--json", "--initial", "--count", "1", "/cfg/"});
    EXPECT_EQ(first.wait(), 0);
    const std::string revision = std::to_string(last_revision(first.shown()));
    put("/cfg/w", "u32", "2");
    put("/cfg/x", "u32", "3");
    Started second({"sysdb", "watch", "--since", revision, "--count", "2", "/cfg/"});
    EXPECT_EQ(second.wait(), 0);
    EXPECT_NE(second.shown().find(" set /cfg/w u32 2\n"), std::string::npos) << second.shown();
    EXPECT_NE(second.shown().find(" create /cfg/x u32 3\n"), std::string::npos) << second.shown();
}

TEST_F(Watch, SaysWhenARevisionIsTooOld) {
    const ScopedEnv small("AAA_SYSDB_MAP_MIB", "1");
    std::string dump = "aaactl-dump 1 /cfg/\n";
    for (int i = 0; i < 300; ++i) {
        dump += "/cfg/many/" + std::to_string(i) + " u32 1\n";
    }
    ASSERT_EQ(aaactl({"sysdb", "load", "-"}, dump).status, 0);
    for (const char *revision : {"1", "1000000"}) {
        const auto run = aaactl({"sysdb", "watch", "--since", revision, "/cfg/"});
        EXPECT_EQ(run.status, 4);
        EXPECT_EQ(run.err, "aaactl: /cfg/: the changes since revision " + std::string(revision) +
                               " are not known: the database has forgotten some of them, or has not reached "
                               "this revision; use --initial instead, which begins with what is stored\n");
    }
    EXPECT_EQ(aaactl({"sysdb", "watch", "--since", "1"}).status, 2) << "of two trees";
    EXPECT_EQ(aaactl({"sysdb", "watch", "--since", "x", "/cfg/"}).status, 2);
    EXPECT_EQ(aaactl({"sysdb", "watch", "--since", "1", "--initial", "/cfg/"}).status, 2);
}

TEST_F(Watch, OtherValuesAreTypedWithEcho) {
    Started set({"sysdb", "set", "/cfg/limit", "--type", "u32"}, Started::On::terminal);
    ASSERT_TRUE(set.wait_shown("Value: "));
    set.type("15\n");
    EXPECT_EQ(set.wait(), 0);
    EXPECT_NE(set.shown().find("Value: 15"), std::string::npos) << set.shown();
    EXPECT_EQ(value_of("/cfg/limit"), "15");
}

TEST_F(Watch, LongLoadsShowAPercentage) {
    std::string dump = "aaactl-dump 1 /cfg/\n";
    for (int i = 0; i < 10001; ++i) {
        dump += "/cfg/many/" + std::to_string(i) + " u32 1\n";
    }
    const std::string file = dir().write("dump", dump);
    for (const char *stored : {"", "10000 items read from the database, 99 %"}) {
        Started load({"sysdb", "load", file}, Started::On::terminal);
        EXPECT_EQ(load.wait(), 0);
        EXPECT_NE(load.shown().find("10000 items read, 99 %"), std::string::npos);
        EXPECT_NE(load.shown().find(stored), std::string::npos);
        EXPECT_NE(load.shown().find("Storing 10001 items as one change"), std::string::npos);
    }
    EXPECT_EQ(aaactl({"sysdb", "load", file}).err, "") << "only on a terminal";
}

TEST_F(Watch, SecretsAreTypedWithoutEcho) {
    Started set({"sysdb", "set", "/cfg/server/key", "--type", "string"}, Started::On::terminal);
    ASSERT_TRUE(set.wait_shown("Value: "));
    set.type("hunter2\n");
    EXPECT_EQ(set.wait(), 0);
    EXPECT_EQ(set.shown().find("hunter2"), std::string::npos) << set.shown();
    EXPECT_EQ(value_of("/cfg/server/key"), "hunter2");
}

TEST_F(Watch, InterruptedPromptSetsNothing) {
    Started set({"sysdb", "set", "/cfg/server/key", "--type", "string"}, Started::On::terminal);
    ASSERT_TRUE(set.wait_shown("Value: "));
    set.type("hunt\x03");
    EXPECT_EQ(set.wait(), 128 + SIGINT);
    EXPECT_EQ(value_of("/cfg/server/key"), "");
}

}  // namespace
