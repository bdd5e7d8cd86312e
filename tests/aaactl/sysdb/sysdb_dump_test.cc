// SPDX-License-Identifier: Apache-2.0
//
// sysdb dump, load and diff: the forms, refusals and their places, and that a
// load is all or nothing.

#include <atomic>
#include <random>
#include <thread>

#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::damage;
using aaactl_test::Started;
using Dump = aaactl_test::DatabaseTest;

constexpr char kHead[] = "aaactl-dump 1 /cfg/\n";
constexpr char kNone[] = "aaactl-dump 1 /cfg/\n# end: 0 items\n";

std::string end(size_t items) {
    return "# end: " + std::to_string(items) + " items\n";
}

void fill() {
    aaactl({"sysdb", "set", "/cfg/a b/\"x\"", "1", "--type", "u32"});
    aaactl({"sysdb", "set", "/cfg/0x10", "4294967295", "--type", "u32"});
    aaactl({"sysdb", "set", "/cfg/0x9", "two\n\"words\" \\ \xc3\xbc \xff", "--type", "string"});
    aaactl({"sysdb", "set", "/cfg/empty", "--type", "string", ""});
    aaactl({"sysdb", "set", "/cfg/#t", "10,-4,\"GRP 1\",\"\"", "--type", "tuple"});
    aaactl({"sysdb", "set", "/cfg/o", "00ff", "--type", "bytes:99"});
    aaactl({"sysdb", "set", "/cfg/nothing", "--type", "bytes:98", ""});
    aaactl({"sysdb", "set", "/cfg/s/e/"});
    aaactl({"sysdb", "set", "/cfg/s/key", "--type", "string"}, "hunter2");
}

// In numeric, then bytewise order; names with blanks or quotation marks are quoted.
const std::string kText = std::string(kHead) +
                          "/cfg/#t tuple (10, -4, \"GRP 1\", \"\")\n"
                          R"(/cfg/0x9 string "two\n\"words\" \\ )"
                          "\xc3\xbc"
                          R"( \xff")"
                          "\n"
                          "/cfg/0x10 u32 4294967295\n"
                          "\"/cfg/a b/\\\"x\\\"\" u32 1\n"
                          "/cfg/empty string \"\"\n"
                          "/cfg/nothing bytes:98\n"
                          "/cfg/o bytes:99 00ff\n"
                          "/cfg/s/e/ directory\n"
                          "/cfg/s/key string \"hunter2\"\n"
                          "# end: 9 items\n";

TEST_F(Dump, TextFormHasEveryTypeInTheDatabasesOrder) {
    fill();
    EXPECT_EQ(aaactl({"sysdb", "dump", "--show-secrets"}).out, kText);
    const auto part = aaactl({"sysdb", "dump", "/cfg/s"});
    EXPECT_EQ(part.out,
              "aaactl-dump 1 /cfg/s/\n/cfg/s/e/ directory\n/cfg/s/key string ********\n# end: 2 items\n");
    EXPECT_NE(part.err.find("--show-secrets"), std::string::npos);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/cfg/none"}).status, 4);
    EXPECT_EQ(aaactl({"sysdb", "dump", "/"}).status, 2) << "a dump has one tree";
}

TEST_F(Dump, BothFormsComeBackAsTheyWere) {
    fill();
    const std::string text = aaactl({"sysdb", "dump", "--show-secrets"}).out;
    const std::string json = aaactl({"sysdb", "dump", "--show-secrets", "--json"}).out;
    for (const std::string &form : {text, json}) {
        ASSERT_EQ(aaactl({"sysdb", "del", "-r", "/cfg/"}).status, 0);
        EXPECT_EQ(aaactl({"sysdb", "dump"}).out, kNone);
        const auto load = aaactl({"sysdb", "load", "-"}, form);
        EXPECT_EQ(load.status, 0) << load.err;
        EXPECT_EQ(load.out, "created 9, changed 0, deleted 0; the dump has 9 items\n");
        EXPECT_EQ(aaactl({"sysdb", "dump", "--show-secrets"}).out, text);
        EXPECT_EQ(aaactl({"sysdb", "diff", "-"}, form).status, 0);
    }
}

TEST_F(Dump, MaskedValuesAreKept) {
    fill();
    for (const bool json : {false, true}) {
        const std::string masked = aaactl({"sysdb", "dump", json ? "--json" : "--color=never"}).out;
        EXPECT_EQ(masked.find("hunter2"), std::string::npos);
        const auto load = aaactl({"sysdb", "load", "--replace", "-"}, masked);
        EXPECT_EQ(load.status, 0) << load.err;
        EXPECT_EQ(value_of("/cfg/s/key"), "hunter2");
        EXPECT_EQ(aaactl({"sysdb", "diff", "-"}, masked).status, 0);
    }
    const std::string masked = aaactl({"sysdb", "dump"}).out;
    ASSERT_EQ(aaactl({"sysdb", "del", "-r", "/cfg/"}).status, 0);
    const auto load = aaactl({"sysdb", "load", "-"}, masked);
    EXPECT_EQ(load.status, 3);
    EXPECT_NE(load.err.find("line 10: /cfg/s/key"), std::string::npos) << load.err;
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out, kNone) << "nothing was loaded";
}

TEST_F(Dump, DamagedItemsAreToldAndTheRestIsDumped) {
    put("/cfg/a", "u32", "1");
    put("/cfg/z", "string", "last");
    damage(dir(), "/cfg/d/key", SYSDB_TYPE_STRING, "hunter2");
    damage(dir(), "/cfg/d/typeless", "abc");
    damage(dir(), "/cfg/d//x", SYSDB_TYPE_U32, "abcd");
    const auto text = aaactl({"sysdb", "dump", "--show-secrets"});
    EXPECT_EQ(text.status, 3);
    EXPECT_EQ(text.out, std::string(kHead) +
                            "/cfg/a u32 1\n"
                            "# /cfg/d// directory (its name cannot be part of a path)\n"
                            "# /cfg/d/key string (value does not fit its type)\n"
                            "# /cfg/d/typeless bytes:0 (value does not fit its type)\n"
                            "/cfg/z string \"last\"\n"
                            "# end: 2 items\n");
    EXPECT_EQ(text.err,
              "aaactl: /cfg/d//: its name cannot be part of a path; it is not in the dump\n"
              "aaactl: /cfg/d/key: value does not fit its type; it is not in the dump\n"
              "aaactl: /cfg/d/typeless: value does not fit its type; it is not in the dump\n");
    const auto json = aaactl({"sysdb", "dump", "--json"});
    EXPECT_EQ(json.status, 3);
    EXPECT_EQ(json.json()["items"].size(), 2u);
    EXPECT_EQ(json.json()["faults"][1].dump(),
              R"({"path":"/cfg/d/key","type":"string","fault":"value does not fit its type"})");
    EXPECT_EQ(aaactl({"sysdb", "dump", "/cfg/d//"}).status, 2)
        << "it is not a valid path on the command line";

    for (const std::string &dump : {text.out, json.out}) {
        const auto diff = aaactl({"sysdb", "diff", "-"}, dump);
        EXPECT_EQ(diff.status, 1) << diff.err;
        EXPECT_EQ(diff.out,
                  "+ /cfg/d// directory (its name cannot be part of a path)\n"
                  "+ /cfg/d/key string (value does not fit its type)\n"
                  "+ /cfg/d/typeless bytes:0 (value does not fit its type)\n");
    }
    const auto differences = aaactl({"sysdb", "diff", "-", "--json"}, text.out).json()["differences"];
    EXPECT_EQ(differences[1]["database"]["fault"], "value does not fit its type");
    EXPECT_EQ(aaactl({"sysdb", "load", "-"}, text.out).out,
              "created 0, changed 0, deleted 0; the dump has 2 items\n");
    EXPECT_EQ(aaactl({"sysdb", "load", "--replace", "-"}, text.out).out,
              "created 0, changed 0, deleted 3; the dump has 2 items\n");
    EXPECT_EQ(aaactl({"sysdb", "dump"}).status, 0) << "the database is repaired";
}

std::string all_of(unsigned value) {
    std::string dump = kHead;
    for (int i = 1000; i < 9000; ++i) {
        dump += "/cfg/d/" + std::to_string(i) + " u32 " + std::to_string(value) + "\n";
    }
    return dump + end(8000);
}

// Two states alternate, each stored as one change: every dump shows one of them, never a mixture.
TEST_F(Dump, IsOfOneTimeWhileOthersChangeTheDatabase) {
    const std::string states[] = {all_of(1), all_of(2)};
    ASSERT_EQ(aaactl({"sysdb", "load", "-"}, states[0]).status, 0);
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        for (unsigned i = 1; !ended; ++i) {
            EXPECT_EQ(aaactl({"sysdb", "load", "-"}, states[i % 2]).status, 0);
        }
    });
    size_t mixed = 0;
    for (int i = 0; i < 15; ++i) {
        const auto run = aaactl({"sysdb", "dump"});
        EXPECT_EQ(run.status, 0) << run.err;
        // Without a pause between the changes a note says so.
        mixed += run.out != states[0] && run.out != states[1] &&
                 run.err.find("of different times") == std::string::npos;
    }
    ended = true;
    writer.join();
    EXPECT_EQ(mixed, 0u);
}

TEST_F(Dump, NeedsNoPlaceToWatchFrom) {
    put("/cfg/a", "u32", "1");
    const ScopedEnv nowhere("AAA_SYSDB_RUN_DIR", "/dev/null/run");
    const auto run = aaactl({"sysdb", "dump"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, std::string(kHead) + "/cfg/a u32 1\n" + end(1));
}

TEST_F(Dump, ABackupReplacesADamagedItem) {
    put("/cfg/name", "string", "x");
    put("/cfg/key", "string", "hunter2");
    const std::string masked = aaactl({"sysdb", "dump"}).out;
    const std::string whole = aaactl({"sysdb", "dump", "--show-secrets"}).out;
    damage(dir(), "/cfg/name", SYSDB_TYPE_STRING, "x");
    damage(dir(), "/cfg/key", SYSDB_TYPE_STRING, "hunter2");
    const auto refused = aaactl({"sysdb", "load", "-"}, masked);
    EXPECT_EQ(refused.status, 3);
    EXPECT_NE(refused.err.find("the value is masked, and no value"), std::string::npos) << refused.err;
    EXPECT_EQ(aaactl({"sysdb", "load", "-"}, whole).out,
              "created 0, changed 2, deleted 0; the dump has 2 items\n");
    EXPECT_EQ(value_of("/cfg/key"), "hunter2");
}

TEST_F(Dump, ATrialRefusesThePathsThatTheDatabaseRefuses) {
    for (const std::string &path : {std::string("/cfg/site//x"), "/cfg/" + std::string(510, 'p')}) {
        const std::string text = std::string(kHead) + "\n/cfg/site/good u32 1\n" + path + " u32 1\n" + end(2);
        for (const char *how : {"--dry-run", "--color=never"}) {
            const auto run = aaactl({"sysdb", "load", "--force", "-", how}, text);
            EXPECT_EQ(run.status, 3) << how << ": " << run.err;
            EXPECT_NE(run.err.find("line 4: "), std::string::npos) << how << ": " << run.err;
            EXPECT_NE(run.err.find("nothing was loaded"), std::string::npos) << how << ": " << run.err;
        }
    }
    EXPECT_EQ(value_of("/cfg/site/good"), "");
}

TEST_F(Dump, LoadAddsAndReplaceAlsoDeletes) {
    put("/cfg/old", "u32", "1");
    put("/cfg/both", "u32", "1");
    put("/oper/other", "u32", "1");
    const std::string text =
        std::string(kHead) + "\n  # a remark\n/cfg/both u32 2\r\n\t/cfg/new/x  string\t\"y\"  \n" + end(2);
    const auto dry = aaactl({"sysdb", "load", "--dry-run", "--replace", "-"}, text);
    EXPECT_EQ(dry.out,
              "- /cfg/both u32 1\n+ /cfg/both u32 2\n+ /cfg/new/x string \"y\"\n- /cfg/old u32 1\n"
              "would be created 1, changed 1, deleted 1; the dump has 2 items\n");
    EXPECT_EQ(value_of("/cfg/both"), "1") << "nothing was done";
    EXPECT_EQ(aaactl({"sysdb", "load", "-"}, text).out,
              "created 1, changed 1, deleted 0; the dump has 2 items\n");
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out,
              std::string(kHead) + "/cfg/both u32 2\n/cfg/new/x string \"y\"\n/cfg/old u32 1\n" + end(3));
    const auto json = aaactl({"sysdb", "load", "--replace", "-", "--json"}, text).json();
    EXPECT_EQ(json.dump(),
              R"({"directory":"/cfg/","items":2,"created":0,"changed":0,"deleted":1,"loaded":true})");
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out,
              std::string(kHead) + "/cfg/both u32 2\n/cfg/new/x string \"y\"\n" + end(2));
    EXPECT_EQ(value_of("/oper/other"), "1");
}

// Each item is created once, and only one of the loads says so.
TEST_F(Dump, LoadsAtTheSameTimeCountWhatEachHasDone) {
    constexpr int kItems = 40;
    std::string dump = "aaactl-dump 1 /cfg/\n";
    for (int i = 0; i < kItems; ++i) {
        dump += "/cfg/site/item" + std::to_string(i) + " u32 1\n";
    }
    const std::string file = dir().write("dump", dump);
    std::vector<std::unique_ptr<aaactl_test::Started>> loads;
    for (int i = 0; i < 6; ++i) {
        loads.push_back(
            std::make_unique<aaactl_test::Started>(std::vector<std::string>{"sysdb", "load", file}));
    }
    int created = 0;
    int idle = 0;
    for (const auto &load : loads) {
        EXPECT_EQ(load->wait(), 0) << load->shown();
        const auto &text = load->shown();
        created += text == "created 40, changed 0, deleted 0; the dump has 40 items\n" ? 1 : 0;
        idle += text == "created 0, changed 0, deleted 0; the dump has 40 items\n" ? 1 : 0;
    }
    EXPECT_EQ(created, 1);
    EXPECT_EQ(idle, 5);
}

TEST_F(Dump, ReplaceStaysInItsDirectory) {
    put("/cfg/d/a", "u32", "1");
    put("/cfg/d-", "u32", "1");
    put("/cfg/d", "u32", "1");
    ASSERT_EQ(
        aaactl({"sysdb", "load", "--replace", "-"}, "aaactl-dump 1 /cfg/d\n/cfg/d/b u32 2\n" + end(1)).status,
        0);
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out,
              std::string(kHead) + "/cfg/d u32 1\n/cfg/d- u32 1\n/cfg/d/b u32 2\n" + end(3));
}

// What a full disk or a lost connection leaves of a dump.
TEST_F(Dump, ReplaceRefusesADumpThatMayBeCut) {
    put("/cfg/a", "u32", "1");
    put("/cfg/b", "u32", "2");
    const std::string dump = aaactl({"sysdb", "dump"}).out;
    for (const bool dry : {false, true}) {
        for (size_t size = 0; size + 1 < dump.size(); ++size) {
            const auto run = aaactl({"sysdb", "load", "--replace", "-", dry ? "--dry-run" : "--color=never"},
                                    dump.substr(0, size));
            ASSERT_EQ(run.status, 3) << dump.substr(0, size);
        }
    }
    const auto missing = aaactl({"sysdb", "load", "--replace", "-"}, kHead);
    EXPECT_EQ(
        missing.err,
        "aaactl: standard input: the dump may be cut: the last line, \"# end: N items\", is missing; make "
        "it again with \"aaactl sysdb dump\", load it without --replace, or use --force if what it lacks "
        "shall be deleted; nothing was loaded\n");
    const std::string other = std::string(kHead) + "/cfg/a u32 1\n" + end(2);
    EXPECT_NE(aaactl({"sysdb", "load", "--replace", "-"}, other)
                  .err.find("it has 1 item, and its last line says \"# end: 2 items\""),
              std::string::npos);
    const std::string more = std::string(kHead) + end(0) + "/cfg/a u32 1\n";
    EXPECT_EQ(aaactl({"sysdb", "load", "--replace", "-"}, more).status, 3);
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out, dump);
    EXPECT_EQ(aaactl({"sysdb", "load", "-"}, kHead).status, 0) << "nothing is deleted";
    EXPECT_EQ(aaactl({"sysdb", "load", "--replace", "-"}, dump).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "load", "--replace", "--force", "-"}, other).out,
              "created 0, changed 0, deleted 1; the dump has 1 item\n");
}

TEST_F(Dump, SaysWhichLineIsWrong) {
    const std::pair<std::string, const char *> bad[] = {
        {"", "empty"},
        {"/cfg/a u32 1\n", "line 1: this is not a dump"},
        {"aaactl-dump 2 /cfg/\n", "line 1: version 2"},
        {"aaactl-dump 1 /\n", "line 1: "},
        {"aaactl-dump 1\n", "line 1: "},
        {kHead + std::string("/cfg/a u32 1\n\n/cfg/b u32 x\n"), "line 4: \"x\" is not a number"},
        {kHead + std::string("/cfg/a u32 1\n/cfg/a u32 1\n"), "line 3: path /cfg/a is given twice"},
        {kHead + std::string("/oper/a u32 1\n"), "line 2: path /oper/a is not in /cfg/"},
        {kHead + std::string("/cfg/a\n"), "line 2: PATH TYPE VALUE"},
        {kHead + std::string("/cfg/a u33 1\n"), "line 2: \"u33\" is not a type"},
        {kHead + std::string("/cfg/a string x\n"), "line 2: "},
        {kHead + std::string("/cfg/a string \"x\n"), "line 2: "},
        {kHead + std::string("/cfg/a string \"x\" y\n"), "line 2: "},
        {kHead + std::string("\"/cfg/a u32 1\n"), "line 2: a path lacks"},
        {kHead + std::string("/cfg/a/ u32 1\n"), "line 2: "},
        {kHead + std::string("/cfg/a directory\n"), "line 2: "},
        {kHead + std::string("/cfg/a/ directory x\n"), "line 2: "},
        {kHead + std::string("/cfg/a/ directory ********\n"), "line 2: "},
        {kHead + std::string("/cfg/ok u32 1\n/cfg/a//b u32 1\n"), "line 3: /cfg/a//b"},
        {kHead + std::string("/cfg/ok u32 1\n/cfg/") + std::string(600, 'x') + " u32 1\n", "line 3: "},
        {kHead + std::string("/cfg/ok u32 1\n/cfg/a\\x00b u32 1\n"), "line 3: "},
        {"{", "malformed JSON at byte 2"},
        {R"({"format":1e999})", "malformed JSON: a number is too large"},
        {R"({"format":"aaactl-dump","version":1,"directory":"/cfg/"})", "\"items\""},
        {R"({"format":"aaactl-dump","version":2,"directory":"/cfg/","items":[]})", "not a dump"},
        {R"({"format":"aaactl-dump","version":1,"directory":"/cfg/","items":[{"path":"/cfg/ok","type":"u32","value":1},7]})",
         "items[1]: "},
        {R"({"format":"aaactl-dump","version":1,"directory":"/cfg/","items":[{"path":"/cfg/ok","type":"u32","value":-1}]})",
         "items[0]: "},
        {R"({"format":"aaactl-dump","version":1,"directory":"/cfg/","items":[{"path":"/cfg/ok","type":"u32"}]})",
         "items[0]: \"value\""},
        {R"({"format":"aaactl-dump","version":1,"directory":"/cfg/","items":[{"path":"/cfg/ok","type":"tuple","value":[1.5]}]})",
         "items[0]: "},
    };
    for (const auto &[text, why] : bad) {
        const std::string file = dir().write("dump", text);
        const auto run = aaactl({"sysdb", "load", file});
        EXPECT_EQ(run.status, 3) << text << run.err;
        EXPECT_NE(run.err.find(file + ": "), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(why), std::string::npos) << why << " in " << run.err;
        EXPECT_EQ(run.out, "");
    }
    EXPECT_EQ(aaactl({"sysdb", "dump"}).out, kNone) << "nothing was loaded";
    EXPECT_EQ(aaactl({"sysdb", "load", dir().path("none")}).status, 4);
    EXPECT_EQ(aaactl({"sysdb", "load", dir().path("")}).status, 3) << "a directory";
}

// Errors in a dump are reported without its secrets.
TEST_F(Dump, RefusalsDoNotShowSecrets) {
    const std::string json =
        R"({"format":"aaactl-dump","version":1,"directory":"/cfg/","items":[{"path":"/cfg/site/key",)";
    const std::string bad[] = {
        kHead + std::string("/cfg/site/key hunter2\n"),
        kHead + std::string("/cfg/site/key hunter2 string\n"),
        kHead + std::string("/cfg/site/key u32 hunter2\n"),
        kHead + std::string("/cfg/site/key string \"a\" hunter2\n"),
        json + R"("type":"string","value":"hunter2)",
        json + R"("type":"string","value":"hunter2" x}]})",
        json + R"("type":"u32","value":"hunter2"}]})",
        json + R"("type":"hunter2","value":"string"}]})",
    };
    for (const std::string &text : bad) {
        for (const char *form : {"--color=never", "--json"}) {
            const auto run = aaactl({"sysdb", "load", "-", form}, text);
            EXPECT_EQ(run.status, 3) << text;
            EXPECT_NE(run.err, "");
            EXPECT_EQ((run.out + run.err).find("hunter2"), std::string::npos) << text << run.err;
        }
    }
}

TEST_F(Dump, DiffShowsBothSides) {
    put("/cfg/a", "u32", "1");
    put("/cfg/b", "u32", "1");
    put("/cfg/d/key", "string", "hunter2");
    const std::string text =
        std::string(kHead) + "/cfg/b u32 2\n/cfg/c u32 3\n/cfg/d/key string \"hunter3\"\n";
    const auto run = aaactl({"sysdb", "diff", "-"}, text);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out,
              "+ /cfg/a u32 1\n- /cfg/b u32 2\n+ /cfg/b u32 1\n- /cfg/c u32 3\n"
              "- /cfg/d/key string ********\n+ /cfg/d/key string ********\n");
    const auto json = aaactl({"sysdb", "diff", "-", "--json"}, text).json();
    EXPECT_EQ(
        json["differences"][1].dump(),
        R"({"path":"/cfg/b","change":"changed","dump":{"type":"u32","value":2},"database":{"type":"u32","value":1}})");
    EXPECT_EQ(json["differences"][0]["change"], "added");
    EXPECT_EQ(json["differences"][2]["change"], "removed");
    EXPECT_EQ(json.dump().find("hunter"), std::string::npos);
    EXPECT_NE(aaactl({"sysdb", "diff", "-", "--show-secrets"}, text).out.find("hunter3"), std::string::npos);
    EXPECT_EQ(
        aaactl({"sysdb", "diff", "-", "/cfg/d"}, std::string(kHead) + "/cfg/d/key string ********\n").status,
        0);
    EXPECT_EQ(aaactl({"sysdb", "diff", "-", "/oper/"}, text).status, 2);
}

TEST_F(Dump, EmptyDirectoryThatHasFilledUpIsNoDifference) {
    const std::string text = std::string(kHead) + "/cfg/d/ directory\n";
    ASSERT_EQ(aaactl({"sysdb", "load", "-"}, text).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "diff", "-"}, text).status, 0);
    put("/cfg/d/x", "u32", "1");
    EXPECT_EQ(aaactl({"sysdb", "diff", "-"}, text).out, "+ /cfg/d/x u32 1\n");
}

// Items of one generation: a mixture of two is visible.
std::string generation(unsigned number, unsigned items) {
    std::string text = kHead;
    for (unsigned i = 0; i < items; ++i) {
        text += "/cfg/g/" + std::to_string(i) + " u32 " + std::to_string(number) + "\n";
    }
    return text + end(items);
}

TEST_F(Dump, KilledLoadLeavesAllOrNothing) {
    constexpr unsigned kItems = 2000;
    ASSERT_EQ(aaactl({"sysdb", "load", "-"}, generation(0, kItems)).status, 0);
    std::mt19937 random(4711);
    std::uniform_int_distribution<useconds_t> moment(1000, 40000);
    unsigned killed = 0;
    for (unsigned number = 1; number <= 25; ++number) {
        const std::string file = dir().write("dump", generation(number, kItems));
        Started load({"sysdb", "load", "--replace", file});
        usleep(moment(random));
        killed += load.end(SIGKILL) == 128 + SIGKILL ? 1 : 0;
        const auto dump = aaactl({"sysdb", "dump", "--json"}).json();
        ASSERT_EQ(dump["items"].size(), kItems);
        const auto first = dump["items"][0]["value"];
        for (const auto &item : dump["items"]) {
            ASSERT_EQ(item["value"], first) << item["path"];
        }
    }
    EXPECT_GT(killed, 0u) << "every load ended before the signal";
}

TEST_F(Dump, LongLoadsShowProgressOnATerminalOnly) {
    const std::string file = dir().write("dump", generation(1, 6000));
    Started load({"sysdb", "load", file}, Started::On::terminal);
    EXPECT_EQ(load.wait(), 0);
    EXPECT_NE(load.shown().find("5000 items read"), std::string::npos) << load.shown();
    EXPECT_NE(load.shown().find("Storing 6000 items"), std::string::npos) << load.shown();
    EXPECT_EQ(aaactl({"sysdb", "load", file}).err, "");
}

}  // namespace
