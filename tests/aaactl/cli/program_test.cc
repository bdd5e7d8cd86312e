// SPDX-License-Identifier: Apache-2.0
//
// Properties of every command: help, exit status of a wrong command line,
// completion, and escaping.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>

#include "aaactl/support/damaged_items.hpp"
#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/program_started.hpp"
#include "cli/output.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::damage;
using aaactl_test::Started;

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
    EXPECT_EQ(aaactl({"-V"}).out, version.out);
}

// The verbs of one command work at all of them.
TEST(AaactlProgram, VerbsHaveTheirUsualOtherNames) {
    const std::vector<std::vector<std::string>> same{{"sg del", "sg delete", "sg rm"},
                                                     {"mlist del", "mlist delete", "mlist rm"},
                                                     {"sysdb del", "sysdb delete", "sysdb rm"},
                                                     {"sg list", "sg ls", "sg show"},
                                                     {"mlist show", "mlist list", "mlist ls"},
                                                     {"sysdb ls", "sysdb list"},
                                                     {"attr list", "attr ls"}};
    const auto help = [](const std::string &command) {
        const size_t blank = command.find(' ');
        return aaactl({command.substr(0, blank), command.substr(blank + 1), "--help"});
    };
    const std::string completion = aaactl({"completion", "bash"}).out;
    for (const auto &names : same) {
        const auto first = help(names[0]);
        EXPECT_EQ(first.status, 0) << names[0];
        EXPECT_NE(first.out.find("Usage: aaactl " + names[0] + " "), std::string::npos) << first.out;
        for (const std::string &name : names) {
            EXPECT_EQ(help(name).out, first.out) << name;
            EXPECT_NE(completion.find("[\"aaactl " + name + "\"]="), std::string::npos) << name;
        }
    }
    EXPECT_EQ(aaactl({"attr", "del"}).status, 2);
}

TEST(AaactlProgram, HelpNamesTheValuesOfAnOption) {
    const std::string help = aaactl({"--help-all"}).out;
    const size_t at = help.find("--color");
    ASSERT_NE(at, std::string::npos);
    const std::string colour = help.substr(at, help.find("\n  -", at) - at);
    EXPECT_NE(colour.find("--color,--colour WHEN  "), std::string::npos) << colour;
    EXPECT_NE(colour.find("always, auto (on a terminal) or never"), std::string::npos) << colour;
    EXPECT_EQ(help.find("->"), std::string::npos) << "help does not show how values are stored";
    EXPECT_EQ(aaactl({"attr", "list", "--color", "2"}).status, 2);
    const auto wrong = aaactl({"attr", "list", "--color", "sometimes"});
    EXPECT_EQ(wrong.err,
              "aaactl: --color: \"sometimes\" is unknown; use always, auto or never (see --help)\n");
}

TEST(AaactlProgram, UsageSaysWhatMayBeRepeated) {
    const auto usage = [](std::vector<std::string> command) {
        command.emplace_back("--help");
        const std::string help = aaactl(command).out;
        const size_t at = help.find("Usage: ");
        return at == std::string::npos ? help : help.substr(at, help.find('\n', at) - at);
    };
    EXPECT_EQ(usage({"mlist", "set"}), "Usage: aaactl mlist set [OPTIONS] FUNCTION SERVICE NAME METHOD...");
    EXPECT_EQ(usage({"mlist", "show"}), "Usage: aaactl mlist show [OPTIONS] [FUNCTION] [SERVICE] [NAME]");
    EXPECT_EQ(usage({"sg", "add"}), "Usage: aaactl sg add [OPTIONS] PROTOCOL NAME [SERVER...]");
    EXPECT_EQ(usage({"sysdb"}), "Usage: aaactl sysdb [OPTIONS] SUBCOMMAND");
}

TEST(AaactlProgram, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(aaactl({"no-such-command"}).status, 2);
    EXPECT_EQ(aaactl({"completion", "bash", "--no-such-option"}).status, 2);
    EXPECT_EQ(aaactl({"completion", "tcsh"}).status, 2);
    EXPECT_EQ(aaactl({"--color=sometimes", "completion", "bash"}).status, 2);
}

TEST(AaactlProgram, AWrongCommandLineIsADocumentToo) {
    const std::vector<std::vector<std::string>> bad{{"--json"},
                                                    {"sysdb", "get", "--json"},
                                                    {"--json", "decode", "--kind", "no"},
                                                    {"--json", "no-such"},
                                                    {"completion", "--json", "bash", "zsh"}};
    for (const auto &args : bad) {
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.json()["error"]["exit"], 2) << run.out;
        EXPECT_EQ(run.err, "aaactl: " + run.json()["error"]["message"].text() + "\n");
    }
}

TEST(AaactlProgram, EscapesTheWordsThatItRefuses) {
    for (const std::vector<std::string> &before :
         {std::vector<std::string>{}, {"sysdb"}, {"completion"}, {"completion", "bash"}}) {
        auto args = before;
        args.emplace_back("\033[31mred\n");
        const auto run = aaactl(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE(run.err.find("\\x1b[31mred\\n"), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find('\033'), std::string::npos);
    }
}

TEST(AaactlProgram, CompletesInBash) {
    const auto script = aaactl({"completion", "bash"});
    EXPECT_EQ(script.status, 0);
    EXPECT_NE(script.out.find("[\"aaactl completion\"]"), std::string::npos) << script.out;
    EXPECT_NE(script.out.find("complete -o filenames -F _aaactl aaactl"), std::string::npos);
}

// The lines that a shell's command prints.
std::set<std::string> lines_of(const std::string &command) {
    std::set<std::string> lines;
    FILE *stream = popen(command.c_str(), "re");
    char line[4096];
    while (stream != nullptr && fgets(line, sizeof line, stream) != nullptr) {
        lines.insert(std::string(line).substr(0, std::strlen(line) - 1));
    }
    EXPECT_EQ(pclose(stream), 0) << command;
    return lines;
}

bool is_installed(const std::string &shell) {
    return std::system(("command -v " + shell + " >/dev/null 2>&1").c_str()) == 0;
}

// The completions that bash offers; the cursor is at the last word.
std::set<std::string> completions(const TempDir &dir, const std::string &words, int cursor) {
    return lines_of("bash --norc -c 'cd " + dir.path("") + "; source ./aaactl.bash; COMP_WORDS=(" + words +
                    "); COMP_CWORD=" + std::to_string(cursor) +
                    "; _aaactl; printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
}

TEST(AaactlProgram, OffersCommandsOptionsAndValues) {
    const TempDir dir;
    dir.write("aaactl.bash", aaactl({"completion", "bash"}).out);
    dir.write("message.bin", "");
    EXPECT_TRUE(completions(dir, "aaactl \"\"", 1).count("decode"));
    EXPECT_EQ(completions(dir, "aaactl enc", 1), std::set<std::string>{"encode"});
    EXPECT_EQ(completions(dir, "aaactl decode --ki", 2), std::set<std::string>{"--kind"});
    EXPECT_EQ(completions(dir, "aaactl decode --kind server-", 3),
              (std::set<std::string>{"server-connect", "server-disconnect"}));
    EXPECT_EQ(completions(dir, "aaactl decode --kind = li", 4), std::set<std::string>{"list"});
    EXPECT_EQ(completions(dir, "aaactl --color = \"\"", 3),
              (std::set<std::string>{"always", "auto", "never"}));
    EXPECT_EQ(completions(dir, "aaactl --json attr show AAA_USERNAME_A", 4),
              std::set<std::string>{"AAA_USERNAME_ATTR"});
    EXPECT_EQ(completions(dir, "aaactl err AAA_ERR_SG_I", 2), std::set<std::string>{"AAA_ERR_SG_IN_USE"});
    EXPECT_EQ(completions(dir, "aaactl completion z", 2), std::set<std::string>{"zsh"});
    EXPECT_EQ(completions(dir, "aaactl decode mess", 2), std::set<std::string>{"message.bin"});
    EXPECT_EQ(completions(dir, "aaactl encode -o mess", 3), std::set<std::string>{"message.bin"});
    EXPECT_EQ(completions(dir, "aaactl nothing --no-such", 2), std::set<std::string>{""});
}

TEST(AaactlProgram, ZshTakesItsCompletion) {
    if (!is_installed("zsh")) {
        GTEST_SKIP() << "zsh is not installed";
    }
    const TempDir dir;
    dir.write("_aaactl", aaactl({"completion", "zsh"}).out);
    EXPECT_EQ(lines_of("zsh -f -n " + dir.path("_aaactl") + " 2>&1"), std::set<std::string>{});
    // When autoloaded from the directories of functions, it registers itself and completes at its first
    // call. compadd works only while a line is edited: a function that prints replaces it.
    EXPECT_EQ(lines_of("zsh -f -c 'fpath=(" + dir.path("") +
                       "); autoload -Uz _aaactl; compadd() { print -l -- \"${(@P)@[-1]}\" }; words=(aaactl "
                       "completion \"\"); CURRENT=3; _aaactl' | grep ."),
              (std::set<std::string>{"bash", "fish", "zsh"}));
}

TEST(AaactlProgram, FishTakesItsCompletion) {
    if (!is_installed("fish")) {
        GTEST_SKIP() << "fish is not installed";
    }
    const TempDir dir;
    const ScopedEnv home("HOME", dir.path("home"));
    const ScopedEnv config("XDG_CONFIG_HOME", dir.path("home"));
    const ScopedEnv data("XDG_DATA_HOME", dir.path("home"));
    const std::string script = dir.write("aaactl.fish", aaactl({"completion", "fish"}).out);
    EXPECT_EQ(lines_of("fish -n " + script + " 2>&1"), std::set<std::string>{});
    const auto offered = [&](const std::string &line) {
        std::set<std::string> words;
        for (const std::string &word : lines_of("cd " + dir.path("") + " && fish -c 'source " + script +
                                                "; complete -C \"" + line + "\"'")) {
            words.insert(word.substr(0, word.find('\t')));
        }
        return words;
    };
    EXPECT_EQ(offered("aaactl enc"), std::set<std::string>{"encode"});
    EXPECT_EQ(offered("aaactl decode --input "), (std::set<std::string>{"auto", "binary", "hex"}));
    EXPECT_EQ(offered("aaactl decode --ki"), std::set<std::string>{"--kind"});
    EXPECT_EQ(offered("aaactl attr list --type add"), std::set<std::string>{"address"});
    EXPECT_TRUE(offered("aaactl sysdb ").count("dump"));
    EXPECT_FALSE(offered("aaactl sysdb ").count("decode"));
}

TEST(AaactlProgram, CompletionsAreADocumentToo) {
    const auto document = aaactl({"completion", "zsh", "--json"}).json();
    for (const auto &command : document["commands"]) {
        if (command["command"] == "aaactl decode") {
            EXPECT_EQ(command["values"]["--input"].dump(), R"(["auto","binary","hex"])");
            return;
        }
    }
    FAIL() << document.dump(2);
}

std::vector<std::string> words_of(const std::string &text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

TEST(AaactlProgram, EveryCommandSaysWhatItsDocumentIsAndHasAnExample) {
    const auto document = aaactl({"completion", "bash", "--json"}).json();
    size_t commands = 0;
    for (const auto &command : document["commands"]) {
        if (!command["commands"].empty()) {
            continue;
        }
        ++commands;
        const auto name = command["command"].text();
        auto args = words_of(name);
        args.erase(args.begin());
        args.emplace_back("--help");
        const auto help = aaactl(args);
        EXPECT_EQ(help.status, 0) << name;
        EXPECT_NE(help.out.find("JSON"), std::string::npos) << name;
        const size_t usage = help.out.find("aaactl ");
        EXPECT_NE(help.out.find("aaactl ", usage + 1), std::string::npos) << name << " lacks an example";
    }
    EXPECT_GT(commands, 25u);
}

// "fields" are named by the record, and "meanings" likewise.
void collect_members(const aaactl_test::JsonDocument &document, std::set<std::string> &members) {
    for (const auto &[name, value] : document.items()) {
        if (document.is_object()) {
            members.insert(name);
        }
        if (value.is_structured() && name != "fields" && name != "meanings") {
            collect_members(value, members);
        }
    }
}

class AaactlDocuments : public aaactl_test::DatabaseTest {
  protected:
    // Every member of the document is named in the help of the command, which the first words form.
    static void expect_described(const std::vector<std::string> &command, std::vector<std::string> args,
                                 const std::string &input = "") {
        args.insert(args.begin(), command.begin(), command.end());
        args.emplace_back("--json");
        std::set<std::string> members;
        SCOPED_TRACE(command.back());
        collect_members(aaactl(args, input).json(), members);
        EXPECT_FALSE(members.empty());
        auto help = command;
        help.emplace_back("--help");
        const std::string text = aaactl(help).out;
        std::string described = text.substr(text.find("JSON"));
        std::replace_if(
            described.begin(), described.end(), [](char c) { return std::isalnum(c) == 0 && c != '_'; }, ' ');
        const auto words = words_of(described);
        for (const std::string &member : members) {
            EXPECT_NE(std::find(words.begin(), words.end(), member), words.end())
                << "the help of " << command.back() << " does not describe " << member;
        }
    }
};

TEST_F(AaactlDocuments, AreDescribedInFull) {
    ASSERT_EQ(aaactl({"sg", "add", "radius", "corp", "192.0.2.20"}).status, 0);
    ASSERT_EQ(
        aaactl({"mlist", "set", "authentication", "login", "default", "group:corp", "group:no", "--force"})
            .status,
        0);
    const std::string backup = aaactl({"sysdb", "dump"}).out;
    put("/cfg/site/limit", "u32", "1");
    put("/cfg/site/key", "string", "hunter2");
    damage(dir(), "/cfg/site/cut", SYSDB_TYPE_U32, "abc");
    expect_described({"explain"}, {"authentication", "login", "--line", "vty0"});
    expect_described({"lint"}, {});
    expect_described({"mlist", "show"}, {});
    expect_described({"sg", "list"}, {});
    expect_described({"sysdb", "ls"}, {"-l", "/cfg/site"});
    expect_described({"sysdb", "tree"}, {});
    expect_described({"sysdb", "dump"}, {});
    expect_described({"sysdb", "diff"}, {"-"}, backup);
    expect_described({"sysdb", "load"}, {"--dry-run", "--replace", "-"}, backup);
    const auto message = aaactl({"encode"},
                                "name = \"x\"\npair AAA_PASSWORD_ATTR \"pw\"\npair AAA_CMD_ATTR "
                                "\"copy ftp://u:pw@h/x y\"\npair 9999 hex:01\n");
    expect_described({"decode"}, {}, message.out);
    expect_described({"decode"}, {}, message.out.substr(0, 160));
}

// Exit status and error messages of a command whose output is lost; the words are for a shell.
std::string with_full_output(const std::string &words) {
    std::string all;
    for (const std::string &line :
         lines_of("{ " AAACTL_PROGRAM " " + words + " >/dev/full; echo $?; } 2>&1")) {
        all += line + "|";
    }
    return all;
}

TEST(AaactlProgram, SaysThatItsOutputIsLost) {
    const std::string lost = "aaactl: standard output: No space left on device|";
    EXPECT_EQ(with_full_output("attr list"), "6|" + lost);
    EXPECT_EQ(with_full_output("attr search no-such --json"), "6|" + lost)
        << "lost output overrides a negative answer";
    EXPECT_EQ(with_full_output("decode --help").substr(0, 2), "6|");
    EXPECT_EQ(with_full_output("decode --hex 00").substr(0, 2), "3|")
        << "malformed input overrides lost output";
}

TEST(AaactlProgram, HasColoursOnATerminalOnly) {
    constexpr char kColoured[] = "\033[1m";
    unsetenv("NO_COLOR");
    const ScopedEnv terminal("TERM", "xterm");
    const auto shown = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {"attr", "search", "username"});
        Started run(args, Started::On::terminal);
        EXPECT_EQ(run.wait(), 0);
        return run.shown();
    };
    EXPECT_NE(shown({}).find(kColoured), std::string::npos) << shown({});
    EXPECT_EQ(shown({"--color=never"}).find('\033'), std::string::npos);
    EXPECT_EQ(shown({"--json"}).find('\033'), std::string::npos);
    EXPECT_EQ(aaactl({"attr", "search", "username"}).out.find('\033'), std::string::npos);
    EXPECT_NE(aaactl({"attr", "search", "username", "--color=always"}).out.find(kColoured),
              std::string::npos);
    {
        const ScopedEnv off("NO_COLOR", "1");
        EXPECT_EQ(shown({}).find('\033'), std::string::npos);
    }
    const ScopedEnv dumb("TERM", "dumb");
    EXPECT_EQ(shown({}).find('\033'), std::string::npos);
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
    EXPECT_EQ(escaped("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xff"),
              "\\xc0\\xaf\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80\\xff");
    EXPECT_EQ(escaped("\xe2\x82"), "\\xe2\\x82") << "cut short";
}

}  // namespace
