// SPDX-License-Identifier: Apache-2.0
//
// sysdb get, set, del, ls and tree.

#include <filesystem>

#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/database_fixture.hpp"

namespace {

using aaactl_test::aaactl;
using Sysdb = aaactl_test::DatabaseTest;

TEST_F(Sysdb, KeepsEveryTypeAndPrintsItAgain) {
    const struct {
        const char *type;
        std::string value;
        std::string text;
        std::string json;
    } cases[] = {
        {"u32", "4294967295", "4294967295", "4294967295"},
        {"u32", "0x10", "16", "16"},
        {"string", "two words \"quoted\"", "two words \"quoted\"", R"("two words \"quoted\"")"},
        {"string", "a\\b\x1b[31m\xff", R"(a\\b\x1b[31m\xff)", R"("a\\\\b\\x1b[31m\\xff")"},
        {"tuple", "10, -4 ,0x7fffffff,\"a,b \\\"c\\\"\",\"\"", R"((10, -4, 2147483647, "a,b \"c\"", ""))",
         R"([10,-4,2147483647,"a,b \"c\"",""])"},
        {"tuple", "()", "()", "[]"},
        {"bytes:99", "00fF10", "00ff10", R"("00ff10")"},
    };
    for (const auto &c : cases) {
        const auto set = aaactl({"sysdb", "set", "/cfg/item", c.value, "--type", c.type});
        ASSERT_EQ(set.status, 0) << c.value << set.err;
        EXPECT_EQ(set.out, "");
        EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/item"}).out, c.text + "\n");
        const auto json = aaactl({"sysdb", "get", "/cfg/item", "--json"}).json();
        EXPECT_EQ(json["path"], "/cfg/item");
        EXPECT_EQ(json["type"], c.type);
        EXPECT_EQ(json["value"].dump(), c.json);
    }
}

TEST_F(Sysdb, SetKeepsTheTypeThatIsThere) {
    EXPECT_EQ(aaactl({"sysdb", "set", "/cfg/a", "1"}).status, 2) << "no type to keep";
    ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/a", "1", "--type", "string"}).status, 0);
    ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/a", "2"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/a", "--json"}).json()["type"], "string");
    EXPECT_EQ(value_of("/cfg/a"), "2");
}

TEST_F(Sysdb, RefusesValuesThatAreNone) {
    const std::pair<const char *, const char *> bad[] = {
        {"u32", "4294967296"},
        {"u32", "-1"},
        {"u32", "1x"},
        {"u32", "0x"},
        {"tuple", "(1"},
        {"tuple", "1,"},
        {"tuple", "\"a"},
        {"tuple", "abc"},
        {"tuple", "2147483648"},
        {"tuple", "\"a\\q\""},
        {"bytes:99", "abc"},
        {"bytes:99", "zz"},
        {"tuple", "\"fifty characters fifty characters fifty characters!\""},
    };
    for (const auto &[type, value] : bad) {
        const auto run = aaactl({"sysdb", "set", "/cfg/x", "--type", type}, value);
        EXPECT_EQ(run.status, 3) << value << run.err;
        EXPECT_NE(run.err, "");
    }
    for (const char *type :
         {"u33", "bytes", "bytes:", "bytes:1", "bytes:0", "bytes:3", "bytes:-4", "bytes:99x"}) {
        EXPECT_EQ(aaactl({"sysdb", "set", "/cfg/x", "00", "--type", type}).status, 2) << type;
    }
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/x"}).status, 4) << "nothing was stored";
}

TEST_F(Sysdb, SecretsAreMaskedAndStayOffTheCommandLine) {
    const auto refused = aaactl({"sysdb", "set", "/cfg/server/key", "hunter2", "--type", "string"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.err.find("hunter2"), std::string::npos) << refused.err;
    ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/server/key", "--type", "string"}, "hunter2\n").status, 0);
    for (const std::vector<std::string> &command : std::vector<std::vector<std::string>>{
             {"sysdb", "get", "/cfg/server/key"}, {"sysdb", "ls", "-l", "/cfg/server"}, {"sysdb", "tree"}}) {
        for (const bool json : {false, true}) {
            auto args = command;
            args.emplace_back(json ? "--json" : "--color=never");
            const auto masked = aaactl(args);
            EXPECT_EQ(masked.status, 0) << masked.err;
            EXPECT_EQ(masked.out.find("hunter2"), std::string::npos) << masked.out;
            EXPECT_NE(masked.out.find(json ? "\"masked\": true" : "********"), std::string::npos)
                << masked.out;
            args.emplace_back("--show-secrets");
            EXPECT_NE(aaactl(args).out.find("hunter2"), std::string::npos);
        }
    }
    ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/server/key", "open", "--allow-secret-argument"}).status, 0);
    EXPECT_EQ(value_of("/cfg/server/key"), "open");
}

TEST_F(Sysdb, SecretsDoNotShowInMessages) {
    for (const char *type : {"u32", "tuple", "bytes:99"}) {
        const auto set = aaactl({"sysdb", "set", "/cfg/server/key", "--type", type}, "zunter2");
        EXPECT_EQ(set.status, 3) << type;
        EXPECT_EQ(set.err.find("zu"), std::string::npos) << set.err;
        const auto load = aaactl({"sysdb", "load", "-"},
                                 std::string("aaactl-dump 1 /cfg/\n/cfg/server/key ") + type + " zunter2\n");
        EXPECT_EQ(load.status, 3) << type;
        EXPECT_NE(load.err.find("line 2: "), std::string::npos) << load.err;
        EXPECT_EQ(load.err.find("zu"), std::string::npos) << load.err;
    }
}

TEST_F(Sysdb, WhatLooksSealedIsMaskedWhereverItStands) {
    const std::string sealed = "01" + std::string(90, 'a');
    put("/cfg/plain", "string", sealed);
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/plain"}).out, "********\n");
    EXPECT_EQ(value_of("/cfg/plain"), sealed);
}

TEST_F(Sysdb, DeletesItemsAndDirectories) {
    put("/cfg/d/a", "u32", "1");
    put("/cfg/d/e/b", "u32", "2");
    EXPECT_EQ(aaactl({"sysdb", "del", "/cfg/d/a"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "del", "/cfg/d/a"}).status, 4);
    EXPECT_EQ(aaactl({"sysdb", "del", "/cfg/d/"}).status, 2) << "not empty";
    const auto directory = aaactl({"sysdb", "del", "/cfg/d"});
    EXPECT_EQ(directory.status, 4);
    EXPECT_NE(directory.err.find("--recursive"), std::string::npos);
    EXPECT_EQ(value_of("/cfg/d/e/b"), "2") << "nothing was deleted so far";
    EXPECT_EQ(aaactl({"sysdb", "del", "-r", "/cfg/d"}).status, 0);
    EXPECT_EQ(value_of("/cfg/d/e/b"), "");
    EXPECT_EQ(aaactl({"sysdb", "del", "-r", "/cfg/d"}).status, 4);
}

TEST_F(Sysdb, ListsOneLevelInItsOrder) {
    put("/cfg/l/0x10", "u32", "16");
    put("/cfg/l/0x9", "string", "nine");
    put("/cfg/l/sub/deep", "u32", "1");
    EXPECT_EQ(aaactl({"sysdb", "ls", "/cfg/l"}).out, "0x9\n0x10\nsub/\n");
    EXPECT_EQ(aaactl({"sysdb", "ls", "-l", "/cfg/l/"}).out,
              "string     0x9   \"nine\"\nu32        0x10  16\ndirectory  sub/\n");
    EXPECT_EQ(aaactl({"sysdb", "ls"}).out, "cfg/\noper/\n");
    EXPECT_EQ(aaactl({"sysdb", "ls", "/cfg/l/0x9"}).out, "/cfg/l/0x9\n");
    const auto json = aaactl({"sysdb", "ls", "-l", "/cfg/l", "--json"}).json();
    EXPECT_EQ(
        json["entries"].dump(),
        R"([{"name":"0x9","type":"string","value":"nine"},{"name":"0x10","type":"u32","value":16},{"name":"sub/","type":"directory"}])");
    EXPECT_EQ(aaactl({"sysdb", "ls", "/cfg/none"}).status, 4);
    EXPECT_EQ(aaactl({"sysdb", "ls", "/cfg/none/"}).status, 4);
}

TEST_F(Sysdb, DrawsATree) {
    put("/cfg/t/a/x", "u32", "1");
    put("/cfg/t/b", "string", "two");
    ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/t/empty/"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "tree", "/cfg/t"}).out,
              "/cfg/t/\n├── a/\n│   └── x = 1\n├── b = \"two\"\n└── empty/\n");
    const auto json = aaactl({"sysdb", "tree", "/cfg/t", "--json"}).json();
    EXPECT_EQ(json["entries"][0]["entries"][0]["value"], 1);
    EXPECT_EQ(json["entries"][2]["entries"].size(), 0u);
    EXPECT_EQ(aaactl({"sysdb", "tree", "/cfg/none"}).status, 4);
}

TEST_F(Sysdb, DamagedItemsAreShownAsSuch) {
    put("/cfg/d/whole", "u32", "1");
    aaactl_test::damage(dir(), "/cfg/d/cut", SYSDB_TYPE_U32, "abc");
    aaactl_test::damage(dir(), "/cfg/d/e//x", SYSDB_TYPE_U32, "abcd");
    const auto ls = aaactl({"sysdb", "ls", "-l", "/cfg/d"});
    EXPECT_EQ(ls.status, 3);
    EXPECT_EQ(ls.out, "u32        cut    value does not fit its type\ndirectory  e/\nu32        whole  1\n");
    EXPECT_EQ(ls.err, "aaactl: /cfg/d/cut: value does not fit its type\n");
    EXPECT_EQ(aaactl({"sysdb", "ls", "/cfg/d"}).status, 0) << "no value is read";
    EXPECT_EQ(aaactl({"sysdb", "ls", "-l", "/cfg/d/e"}).status, 0) << "no deeper value is read";
    const auto tree = aaactl({"sysdb", "tree", "/cfg/d"});
    EXPECT_EQ(tree.status, 3);
    EXPECT_EQ(tree.out,
              "/cfg/d/\n├── cut = value does not fit its type\n├── e/\n│   └── / its name cannot be part of "
              "a path\n"
              "└── whole = 1\n");
    EXPECT_EQ(tree.err,
              "aaactl: /cfg/d/cut: value does not fit its type\n"
              "aaactl: /cfg/d/e//: its name cannot be part of a path\n");
    const auto list = aaactl({"sysdb", "ls", "-l", "/cfg/d", "--json"});
    EXPECT_EQ(list.status, 3);
    EXPECT_EQ(list.json()["entries"][0].dump(),
              R"({"name":"cut","type":"u32","fault":"value does not fit its type"})");
    const auto json = aaactl({"sysdb", "tree", "/cfg/d", "--json"});
    EXPECT_EQ(json.status, 3);
    const auto entries = json.json()["entries"];
    EXPECT_EQ(entries[0]["fault"], "value does not fit its type");
    EXPECT_EQ(entries[1]["entries"][0]["fault"], "its name cannot be part of a path");
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/d/cut"}).status, 3);
}

TEST_F(Sysdb, RefusesPathsThatAreNone) {
    for (const char *path : {"", "cfg/x", "/other/x", "/cfg//x", "/cfg/a\tb", "/"}) {
        const auto run = aaactl({"sysdb", "get", path});
        EXPECT_EQ(run.status, 2) << path << run.err;
        EXPECT_EQ(aaactl({"sysdb", "set", path, "1", "--type", "u32"}).status, 2) << path;
    }
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/" + std::string(600, 'x')}).status, 2);
    EXPECT_EQ(aaactl({"sysdb", "ls", "/other/"}).status, 2);
}

TEST_F(Sysdb, NamesFromTheDatabaseDoNotActOnTheTerminal) {
    const std::string name =
        "/cfg/\xc2\x9b"
        "31m";
    put(name, "u32", "1");
    EXPECT_EQ(aaactl({"sysdb", "ls", "/cfg"}).out, "\\xc2\\x9b31m\n");
    EXPECT_EQ(aaactl({"sysdb", "get", name, "--json"}).json()["path"], "/cfg/\\xc2\\x9b31m");
}

TEST_F(Sysdb, SaysWhyTheDatabaseCannotBeReached) {
    const ScopedEnv file("AAA_SYSDB_CFG_DIR", dir().write("file", "not a directory") + "/below");
    const auto storage = aaactl({"sysdb", "get", "/cfg/x", "--json"});
    EXPECT_EQ(storage.status, 5);
    EXPECT_NE(storage.err.find("/cfg/"), std::string::npos) << storage.err;
    EXPECT_EQ(storage.json()["error"]["exit"], 5);
}

TEST_F(Sysdb, SaysThatThereIsNoProvider) {
    const ScopedEnv none("AAA_SYSDB_PROVIDER", dir().path("none.so"));
    const auto absent = aaactl({"sysdb", "ls", "/cfg/"});
    EXPECT_EQ(absent.status, 5);
    EXPECT_NE(absent.err.find("AAA_SYSDB_PROVIDER"), std::string::npos) << absent.err;
}

// Root's first look at an empty machine would leave directories with root's group.
TEST_F(Sysdb, ReadingMakesNothing) {
    for (const std::vector<std::string> &args :
         std::vector<std::vector<std::string>>{{"sysdb", "ls"},
                                               {"sysdb", "ls", "/cfg"},
                                               {"sysdb", "tree"},
                                               {"sysdb", "dump"},
                                               {"sysdb", "dump", "/oper/"},
                                               {"mlist", "show"},
                                               {"sg", "list"},
                                               {"lint"}}) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, args[0] == "lint" ? 1 : 0) << args.back() << ": " << run.err;
        EXPECT_FALSE(std::filesystem::exists(dir().path("cfg"))) << args.back();
        EXPECT_FALSE(std::filesystem::exists(dir().path("run"))) << args.back();
    }
    const auto get = aaactl({"sysdb", "get", "/cfg/gl/aaa/authentication/login/default"});
    EXPECT_EQ(get.status, 4);
    EXPECT_EQ(get.err, "aaactl: /cfg/gl/aaa/authentication/login/default: there is no system database yet\n");
    EXPECT_FALSE(std::filesystem::exists(dir().path("cfg")));
    EXPECT_EQ(aaactl({"sysdb", "ls", "/cfg/gl"}).status, 4);
    ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/x", "--type", "u32", "1"}).status, 0);
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/x"}).out, "1\n");
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/y"}).status, 4);
}

// Before, the path was said to be none of the database, or not to exist.
TEST_F(Sysdb, GetOfADirectorySaysWhatListsIt) {
    put("/cfg/site/with blank/x", "u32", "1");
    for (const std::string path : {"/cfg/site", "/cfg/site/"}) {
        const auto run = aaactl({"sysdb", "get", path});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.err, "aaactl: " + path +
                               ": a directory, not an item; list it with \"aaactl sysdb ls /cfg/site/\", or "
                               "everything below it with \"aaactl sysdb tree /cfg/site/\"\n");
    }
    EXPECT_NE(aaactl({"sysdb", "get", "/cfg/site/with blank"}).err.find("ls '/cfg/site/with blank/'"),
              std::string::npos);
    EXPECT_NE(aaactl({"sysdb", "get", "/cfg/"}).err.find("aaactl sysdb ls /cfg/"), std::string::npos);
    EXPECT_NE(aaactl({"sysdb", "get", "/"}).err.find("aaactl sysdb ls /\""), std::string::npos);
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/none"}).status, 4);
    EXPECT_EQ(aaactl({"sysdb", "get", "/cfg/none/"}).status, 2);
    EXPECT_EQ(aaactl({"sysdb", "get", "cfg"}).status, 2);
}

}  // namespace
