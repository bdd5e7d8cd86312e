// SPDX-License-Identifier: Apache-2.0
//
// key: checking, sealing and trimming keys, and master keys from creation to removal.

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/file_size_limit.hpp"
#include "aaactl/support/program_started.hpp"
#include "platform/cipher.h"

namespace {

using aaactl_test::aaactl;
using aaactl_test::damage;
using aaactl_test::Started;

class Key : public aaactl_test::DatabaseTest {
  protected:
    Key() : masters_("AAA_MASTER_KEYS", dir().path("master.keys")) {}
    void SetUp() override { ASSERT_EQ(aaactl({"key", "new-master"}).status, 0); }

    static std::string seal(const std::string &clear) {
        const auto run = aaactl({"key", "seal"}, clear);
        EXPECT_EQ(run.status, 0) << run.err;
        return run.out.substr(0, run.out.size() - 1);
    }
    // Keys that earlier versions sealed.
    static std::string sealed_as_it_is(const std::string &clear) {
        const std::unique_ptr<char, decltype(&std::free)> sealed(pw_encrypt(clear.c_str(), 7), &std::free);
        EXPECT_NE(sealed, nullptr);
        return sealed != nullptr ? sealed.get() : "";
    }
    static std::string opened(const std::string &sealed) {
        const auto json = aaactl({"key", "check", "--show-secrets", "--json"}, sealed).json();
        return json.contains("key") ? json["key"].text() : "(not opened)";
    }

  private:
    ScopedEnv masters_;
};

// ---- check, seal, trim

TEST_F(Key, SealedKeysAreCheckedAndShownOnDemandOnly) {
    const std::string sealed = seal("hunter2\n");
    EXPECT_EQ(sealed.substr(0, 4), "0101");
    for (const auto &run : {aaactl({"key", "check", sealed}), aaactl({"key", "check", "-"}, sealed + "\n"),
                            aaactl({"key", "check"}, sealed)}) {
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out, "valid, generation 01, the newest\n");
    }
    const auto json = aaactl({"key", "check", "--json"}, sealed).json();
    EXPECT_EQ(json.dump(),
              R"({"valid":true,"well_formed":true,"generation":1,"generation_known":true,"newest":true})");
    EXPECT_EQ(opened(sealed), "hunter2");
    EXPECT_EQ(aaactl({"key", "check", "--show-secrets"}, sealed).out,
              "valid, generation 01, the newest\nhunter2\n");
    EXPECT_NE(seal("hunter2"), sealed) << "never the same twice";
}

TEST_F(Key, CheckSaysWhatIsWrong) {
    std::string changed = seal("hunter2");
    changed.back() = changed.back() == '0' ? '1' : '0';
    std::string other = changed;
    other[1] = '7';
    const std::pair<std::string, const char *> bad[] = {
        {"hunter2!", "not a sealed key"},
        {"012", "not a sealed key"},
        {"1a2b", "not a sealed key"},
        {changed, "changed, cut"},
        {"01ab", "changed, cut"},
        {other, "no master key of generation 07"},
        {sealed_as_it_is("tab\tinside"), "not valid: the key has characters that are not printable ASCII"},
    };
    for (const auto &[text, why] : bad) {
        const auto run = aaactl({"key", "check", "--show-secrets"}, text);
        EXPECT_EQ(run.status, 1) << text;
        EXPECT_NE(run.out.find(why), std::string::npos) << run.out;
        EXPECT_EQ(aaactl({"key", "check", "--json"}, text).json()["valid"], false);
    }
    EXPECT_EQ(aaactl({"key", "check"}, "").status, 2);
}

TEST_F(Key, SealTakesNoKeyFromTheCommandLine) {
    EXPECT_EQ(aaactl({"key", "seal", "hunter2"}).status, 2);
    EXPECT_EQ(aaactl({"key", "seal"}, "").status, 2);
    EXPECT_EQ(aaactl({"key", "seal"}, std::string(4097, 'x')).status, 3);
    EXPECT_EQ(aaactl({"key", "seal"}, std::string("a\0b", 3)).status, 3);
    EXPECT_EQ(opened(seal(std::string(4096, 'x'))), std::string(4096, 'x'));
    const auto json = aaactl({"key", "seal", "--json"}, "x").json();
    EXPECT_EQ(json["generation"], 1);
    EXPECT_NE(aaactl({"key", "seal"}, "x ").err.find("white space"), std::string::npos);
}

TEST_F(Key, SealTakesOneLineOfPrintableCharacters) {
    for (const char *clear : {"hunter2\n", "hunter2\r\n", "hunter2\r"}) {
        EXPECT_EQ(opened(seal(clear)), "hunter2");
    }
    const std::string printable = " !\"~abc XYZ";
    EXPECT_EQ(opened(seal(printable)), printable);
    for (const char *clear : {"tab\tinside", "p\xc3\xa4ss", "del\x7f", "\r", "two\r\r\n", "esc\x1b"}) {
        const auto run = aaactl({"key", "seal"}, clear);
        EXPECT_EQ(run.status, 3) << clear;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "aaactl: the key has characters that are not printable ASCII\n");
    }
    const auto lines = aaactl({"key", "seal"}, "hunter2\nhunter3\n");
    EXPECT_EQ(lines.status, 3);
    EXPECT_EQ(lines.err, "aaactl: standard input has more than one line; a key is one line\n");
}

TEST_F(Key, WhatIsRefusedOnTheCommandLineIsNotRepeated) {
    const std::vector<std::vector<std::string>> bad{
        {"key", "seal", "hunter2"},
        {"--json", "key", "seal", "-xhunter2"},
        {"key", "seal", "--key=hunter2"},
        {"key", "seal", "--key", "hunter2", "--json"},
        {"key", "check", "-", "hunter2"},
        {"key", "check", "hunter", "hunter2", "hunter"},
        {"key", "trim", "--clear=hunter2"},
        {"key", "hunter2"},
        {"key", "retire", "hunter2"},
        {"key", "masters", "--color", "hunter2"},
        {"--color", "never", "key", "new-master", "two\nhunter2 words"},
    };
    for (auto args : bad) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, 2) << args.back();
        EXPECT_EQ((run.out + run.err).find("hunter"), std::string::npos) << run.out << run.err;
        EXPECT_NE(run.err.find("********"), std::string::npos) << run.err;
        args.emplace_back("--show-secrets");
        EXPECT_NE(aaactl(args).err.find("hunter2"), std::string::npos) << args.back();
    }
    EXPECT_EQ(aaactl({"key", "seal", "hunter2"}).err,
              "aaactl: The following argument was not expected: ******** (see --help)\n");
    EXPECT_EQ(aaactl({"key", "masters", "--color", "hunter2"}).err,
              "aaactl: --color: \"********\" is unknown; use always, auto or never (see --help)\n");
    EXPECT_EQ(aaactl({"key", "retire"}).err, "aaactl: GENERATION is required (see --help)\n");
    EXPECT_NE(aaactl({"key", "retire", "200"}).err.find("not in range 0 to 99"), std::string::npos);
    EXPECT_NE(aaactl({"sysdb", "get", "/cfg/a", "/cfg/b"}).err.find("/cfg/b"), std::string::npos)
        << "a word that is not a key is quoted";
}

TEST_F(Key, SealPromptsTwiceWithoutEcho) {
    for (const bool same : {true, false}) {
        Started run({"key", "seal"}, Started::On::terminal);
        ASSERT_TRUE(run.wait_shown("Key: "));
        run.type("hunter2\n");
        ASSERT_TRUE(run.wait_shown("Repeat the key: "));
        run.type(same ? "hunter2\n" : "hunter3\n");
        EXPECT_EQ(run.wait(), same ? 0 : 3);
        EXPECT_EQ(run.shown().find("hunter"), std::string::npos) << run.shown();
        EXPECT_EQ(run.shown().find("\n01") != std::string::npos, same) << run.shown();
    }
}

TEST_F(Key, TrimSealsAgainOnlyWhatItHasCut) {
    const std::string clean = seal("hunter2");
    EXPECT_EQ(aaactl({"key", "trim"}, clean).out, clean + "\n");
    const std::string blanks = sealed_as_it_is("hunter2 \t\r");
    const auto trimmed = aaactl({"key", "trim", "--json"}, blanks).json();
    EXPECT_EQ(trimmed["trimmed"], true);
    EXPECT_EQ(opened(trimmed["key"].text()), "hunter2");
    EXPECT_EQ(aaactl({"key", "trim"}, seal("   ")).status, 3);
    EXPECT_EQ(aaactl({"key", "trim"}, "hunter2 ").status, 3) << "a clear key needs --clear";
    EXPECT_EQ(aaactl({"key", "trim", "--clear"}, "hunter2 ").out, "********\n");
    EXPECT_EQ(aaactl({"key", "trim", "--clear", "--show-secrets"}, "hunter2 ").out, "hunter2\n");
    EXPECT_EQ(aaactl({"key", "trim", "--clear", "--json"}, "hunter2").json().dump(),
              R"({"trimmed":false,"masked":true})");
}

// ---- master keys

TEST_F(Key, MastersAreMadeRotatedAndListed) {
    const std::string before = dir().read("master.keys");
    EXPECT_EQ(aaactl({"key", "new-master"}).status, 6) << "never overwritten";
    EXPECT_EQ(dir().read("master.keys"), before);
    EXPECT_EQ(aaactl({"key", "rotate"}).out,
              dir().path("master.keys") + ": new keys are sealed with generation 02\n");
    const auto json = aaactl({"key", "masters", "--json"}).json();
    ASSERT_EQ(json["masters"].size(), 2u);
    EXPECT_EQ(json["masters"][0]["generation"], 1);
    EXPECT_EQ(json["masters"][0]["newest"], false);
    EXPECT_EQ(json["masters"][1]["newest"], true);
    EXPECT_EQ(json["masters"][1]["created"].text().substr(0, 2), "20");
    const auto text = aaactl({"key", "masters", "--show-secrets"}).out;
    EXPECT_NE(text.find("\n02          20"), std::string::npos) << text;
    EXPECT_EQ(text.find(before.substr(before.find("\n01 ") + 4, 16)), std::string::npos) << "shows no key";
    const std::string other = dir().path("other.keys");
    EXPECT_EQ(aaactl({"key", "new-master", "--file", other}).status, 0);
    EXPECT_EQ(aaactl({"key", "masters", "--file", other, "--json"}).json()["masters"].size(), 1u);
}

TEST_F(Key, NewMasterSaysWhatToDoWithAFileThatHoldsNoKeys) {
    const ScopedEnv log("AAA_LOG", "stderr");
    const std::string file = dir().path("master.keys");
    for (const char *content : {"", "garbage\n"}) {
        std::ofstream(file, std::ios::trunc) << content;
        const auto run = aaactl({"key", "new-master"});
        EXPECT_EQ(run.status, 6);
        EXPECT_NE(
            run.err.find(file + ": it exists already; if no key is sealed with it, move it away, then run "
                                "\"aaactl key new-master\"; it cannot be used as it is"),
            std::string::npos)
            << run.err;
        EXPECT_EQ(run.err.find("rotate"), std::string::npos) << run.err;
        EXPECT_EQ(dir().read("master.keys"), content);
    }
    ASSERT_EQ(0, rename(file.c_str(), dir().path("away").c_str()));
    EXPECT_EQ(aaactl({"key", "new-master"}).status, 0);
    EXPECT_NE(aaactl({"key", "new-master"}).err.find("\"aaactl key rotate\""), std::string::npos);
}

TEST_F(Key, SaysWhyTheFileCannotBeUsed) {
    const ScopedEnv log("AAA_LOG", "stderr");
    ASSERT_EQ(0, chmod(dir().path("master.keys").c_str(), 0644));
    for (const char *command : {"masters", "rotate", "check", "seal"}) {
        const auto run = aaactl({"key", command}, "x");
        EXPECT_EQ(run.status, 5) << command << run.err;
        EXPECT_NE(run.err.find("; run: chmod 0600 " + dir().path("master.keys")), std::string::npos)
            << run.err;
    }
    const auto absent = aaactl({"key", "masters", "--file", dir().path("none")});
    EXPECT_EQ(absent.status, 5);
    EXPECT_NE(absent.err.find("aaactl key new-master"), std::string::npos) << absent.err;
    EXPECT_EQ(aaactl({"key", "new-master", "--file", dir().path("no/such")}).status, 5);
}

// A file that was cut at the end of a line was used as if it were whole.
TEST_F(Key, AFileThatWasCutIsRefused) {
    const ScopedEnv log("AAA_LOG", "stderr");
    ASSERT_EQ(aaactl({"key", "rotate"}).status, 0);
    const std::string whole = dir().read("master.keys");
    dir().write("master.keys", whole.substr(0, whole.rfind("\n02 ") + 1));
    for (const char *command : {"masters", "rotate", "seal"}) {
        const auto run = aaactl({"key", command}, "x");
        EXPECT_EQ(run.status, 5) << command;
        EXPECT_NE(run.err.find("it is damaged: it holds 1 of its 2 keys; restore the file from a backup"),
                  std::string::npos)
            << run.err;
    }
    EXPECT_EQ(aaactl({"key", "new-master"}).status, 6) << "it is not replaced";
    dir().write("master.keys", whole);
    EXPECT_EQ(aaactl({"key", "masters"}).status, 0);
}

TEST_F(Key, AFileOfAnEarlierVersionIsUsedWithARemark) {
    std::string old = dir().read("master.keys");
    const size_t at = old.find("#check");
    ASSERT_NE(at, std::string::npos);
    const std::string sealed = seal("hunter2");
    dir().write("master.keys", old.erase(at, old.find('\n', at) + 1 - at));
    EXPECT_EQ(opened(sealed), "hunter2");
    const auto run = aaactl({"key", "masters"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "aaactl: " + dir().path("master.keys") +
                           ": it does not hold the number of its keys, so a cut is not noticed; \"aaactl key "
                           "rotate\" writes it\n");
    EXPECT_EQ(aaactl({"key", "masters", "--json"}).json()["checked"], false);
    ASSERT_EQ(aaactl({"key", "rotate"}).status, 0);
    EXPECT_EQ(aaactl({"key", "masters"}).err, "");
    EXPECT_EQ(aaactl({"key", "masters", "--json"}).json()["checked"], true);
}

TEST_F(Key, RotateSealsStoredKeysAgain) {
    const std::string one = seal("one");
    put("/cfg/a/key", "string", one);
    put("/cfg/b", "string", seal("two"));
    put("/cfg/other", "string", "no key");
    put("/oper/c", "string", seal("three"));
    put("/cfg/elsewhere/key", "string", one);
    const auto run = aaactl({"key", "rotate", "--reseal", "/cfg/a", "/cfg/b", "/oper/"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, dir().path("master.keys") +
                           ": new keys are sealed with generation 02\n"
                           "/cfg/a/key: sealed again\n/cfg/b: sealed again\n/oper/c: sealed again\n");
    EXPECT_EQ(value_of("/cfg/a/key").substr(0, 2), "02");
    EXPECT_EQ(opened(value_of("/cfg/a/key")), "one");
    EXPECT_EQ(opened(value_of("/cfg/b")), "two");
    EXPECT_EQ(opened(value_of("/oper/c")), "three");
    EXPECT_EQ(value_of("/cfg/elsewhere/key"), one);
    EXPECT_EQ(value_of("/cfg/other"), "no key");
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg/", "/cfg/elsewhere", "--json"}).json().dump(),
              R"({"resealed":["/cfg/elsewhere/key"]})");
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg/"}).out, "") << "all are of the newest generation";
}

TEST_F(Key, RotateDoesNothingWhenOneStoredKeyCannotBeOpened) {
    const std::string good = seal("one");
    put("/cfg/good", "string", good);
    put("/cfg/lost", "string", "07" + good.substr(2));
    const auto run = aaactl({"key", "rotate", "--reseal", "/cfg/"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("/cfg/lost: the key cannot be opened"), std::string::npos) << run.err;
    damage(dir(), "/cfg/cut", SYSDB_TYPE_STRING, "x");
    const auto both = aaactl({"key", "rotate", "--reseal", "/cfg/"});
    EXPECT_EQ(both.status, 3);
    EXPECT_NE(both.err.find("/cfg/cut: value does not fit its type, /cfg/lost: the key cannot be opened"),
              std::string::npos)
        << both.err;
    EXPECT_EQ(aaactl({"key", "rotate", "--reseal", "/cfg/good", "/cfg/nowhere"}).status, 4);
    EXPECT_EQ(value_of("/cfg/good"), good);
    EXPECT_EQ(aaactl({"key", "masters", "--json"}).json()["masters"].size(), 1u) << "not rotated";
}

// A full database refuses the keys after the new generation was added.
TEST_F(Key, RotateSaysWhatWasDoneBeforeItFailed) {
    const std::string old = seal("one");
    put("/cfg/a", "string", old);
    aaactl_test::Run run;
    {
        const aaactl_test::FileSizeLimit limit(4096);
        run = aaactl({"key", "rotate", "--reseal", "/cfg/", "--json"});
    }
    EXPECT_EQ(run.status, 6);
    EXPECT_NE(run.err.find("; before that generation 02 was added\n"), std::string::npos) << run.err;
    EXPECT_EQ(run.json()["generation"], 2);
    EXPECT_EQ(run.json()["resealed"].dump(), "[]");
    EXPECT_EQ(value_of("/cfg/a"), old);
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg/"}).out, "/cfg/a: sealed again\n");
}

TEST_F(Key, ResealDoesTheOthersAndNamesWhatItLeaves) {
    const std::string old = seal("one");
    put("/cfg/a", "string", old);
    put("/cfg/lost", "string", "07" + old.substr(2));
    put("/cfg/z", "string", seal("two"));
    ASSERT_EQ(aaactl({"key", "rotate"}).status, 0);
    const auto lost = aaactl({"key", "reseal", "/cfg/a", "/cfg/lost"});
    EXPECT_EQ(lost.status, 1);
    EXPECT_EQ(lost.out, "/cfg/a: sealed again\n");
    EXPECT_EQ(lost.err,
              "aaactl: /cfg/lost: the key cannot be opened with the master keys; it is unchanged\n");
    EXPECT_EQ(opened(value_of("/cfg/a")), "one");

    damage(dir(), "/cfg/d/cut", SYSDB_TYPE_STRING, "x");
    damage(dir(), "/cfg/d//x", SYSDB_TYPE_STRING, old);
    damage(dir(), "/cfg/number", SYSDB_TYPE_U32, "abc");
    const auto run = aaactl({"key", "reseal", "/cfg", "/cfg/d/cut", "--json"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(
        run.json().dump(),
        R"({"resealed":["/cfg/z"],"faults":[{"path":"/cfg/d//","fault":"its name cannot be part of a path"},)"
        R"({"path":"/cfg/d/cut","fault":"value does not fit its type"},)"
        R"({"path":"/cfg/lost","fault":"the key cannot be opened with the master keys"}]})");
    EXPECT_EQ(opened(value_of("/cfg/z")), "two");
    EXPECT_EQ(value_of("/cfg/lost"), "07" + old.substr(2));
}

TEST_F(Key, ResealSaysWhenNothingIsThere) {
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg"}).status, 0) << "the trees always exist";
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg/nowhere"}).status, 4);
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg/nowhere/"}).status, 4);
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg//x"}).status, 2);
    EXPECT_EQ(aaactl({"key", "reseal", "/other"}).status, 2);
}

TEST_F(Key, RetireNamesWhatItCannotRead) {
    put("/cfg/old/key", "string", seal("one"));
    ASSERT_EQ(aaactl({"key", "rotate"}).status, 0);
    damage(dir(), "/cfg/cut", SYSDB_TYPE_STRING, "x");
    damage(dir(), "/cfg/typeless", "abc");
    damage(dir(), "/cfg/number", SYSDB_TYPE_U32, "abc");
    const std::string doubt =
        " may be needed by items that cannot be read: /cfg/cut (value does not fit its type), /cfg/typeless "
        "(value "
        "does "
        "not fit its type)";
    const auto needed = aaactl({"key", "retire", "1"});
    EXPECT_EQ(needed.status, 1);
    EXPECT_EQ(needed.err, "aaactl: generation 01 is needed by /cfg/old/key; see \"aaactl key reseal\"; it" +
                              doubt + "\n");
    EXPECT_EQ(aaactl({"key", "reseal", "/cfg/old"}).status, 0);
    const auto unclear = aaactl({"key", "retire", "1"});
    EXPECT_EQ(unclear.status, 3);
    EXPECT_EQ(unclear.err, "aaactl: generation 01" + doubt + "; correct or delete them, or use --force\n");
    EXPECT_EQ(aaactl({"key", "masters", "--json"}).json()["masters"].size(), 2u);
    ASSERT_EQ(aaactl({"sysdb", "del", "/cfg/cut"}).status, 0);
    ASSERT_EQ(aaactl({"sysdb", "del", "/cfg/typeless"}).status, 0);
    EXPECT_EQ(aaactl({"key", "retire", "1"}).status, 0) << "a number is not a key";
}

TEST_F(Key, RetireRefusesWhatIsNeeded) {
    put("/cfg/site/key", "string", seal("one"));
    EXPECT_EQ(aaactl({"key", "retire", "1"}).status, 1) << "needed, and the newest";
    EXPECT_EQ(aaactl({"key", "retire", "1", "--force"}).status, 6) << "the newest";
    ASSERT_EQ(aaactl({"key", "rotate"}).status, 0);
    const auto needed = aaactl({"key", "retire", "1"});
    EXPECT_EQ(needed.status, 1);
    EXPECT_NE(needed.err.find("needed by /cfg/site/key"), std::string::npos) << needed.err;
    ASSERT_EQ(aaactl({"key", "reseal", "/cfg/site"}).status, 0);
    EXPECT_EQ(aaactl({"key", "retire", "1"}).out,
              dir().path("master.keys") + ": generation 01 was removed\n");
    EXPECT_EQ(aaactl({"key", "retire", "1"}).status, 4);
    EXPECT_EQ(aaactl({"key", "retire", "100"}).status, 2);
    EXPECT_EQ(opened(value_of("/cfg/site/key")), "one");
    EXPECT_EQ(aaactl({"key", "masters", "--json"}).json()["masters"].size(), 1u);
    ASSERT_EQ(aaactl({"key", "rotate"}).status, 0);
    EXPECT_EQ(aaactl({"key", "retire", "2", "--force", "--json"}).json()["retired"], 2);
    EXPECT_EQ(aaactl({"key", "check"}, value_of("/cfg/site/key")).status, 1) << "lost, as the help says";
}

}  // namespace
