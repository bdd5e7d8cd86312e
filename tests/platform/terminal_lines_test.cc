// SPDX-License-Identifier: Apache-2.0
//
// Method lists by line, and the rows that tools read.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "log_socket.hpp"
#include "open_files.hpp"
#include "platform/control.h"
#include "platform/terminal.h"
#include "support/temp_dir.hpp"
#include "support/terminal_process.hpp"

namespace {

constexpr cerrno kInvalidArg = 0xa2571000u;
constexpr cerrno kBadConfig = 0xa2571600u;

std::string hex(cerrno code) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", code);
    return text;
}

}  // namespace

namespace {

struct MethodForLine : testing::Test {
    TempDir dir;
    void SetUp() override { g_log->take(); }

    // "<code> <list or (null)>" for a login on a pseudo-terminal.
    static std::string lookup(uint32_t kind) {
        char unset[] = "unset";
        char *list = unset;
        const cerrno rc = find_method_for_line(kind, &list);
        std::string result = hex(rc) + " " + (list == nullptr ? "(null)" : list);
        if (list != unset) {
            free(list);
        }
        const char *const rules = getenv("AAA_LINES_CONF");
        if (rules != nullptr && is_open(rules)) {
            result += ", and the rules are still open";
        }
        return result;
    }
    static std::string on_terminal(const std::string &path, uint32_t kind) {
        TerminalProcess child([&] {
            setenv("AAA_LINES_CONF", path.c_str(), 1);
            return lookup(kind);
        });
        return child.report();
    }
    std::string with(const std::string &text, uint32_t kind = 0, mode_t mode = 0644) const {
        return on_terminal(dir.write("lines.conf", text, mode), kind);
    }
    [[nodiscard]] std::string log_of(int line, const std::string &what) const {
        return "%AAA-PLATFORM-4-BAD_FILE : " + dir.path("lines.conf") + ":" + std::to_string(line) + ": " +
               what + "; the line is not used";
    }
};

constexpr char kNone[] = "00000000 (null)";

}  // namespace

TEST_F(MethodForLine, TakesTheFirstRowThatMatches) {
    const char *text =
        "# comment\n"
        "\n"
        "console   *               console-users\n"
        "pts/*     authentication  vty-login # of people\n"
        "pts/*     *               vty-other\n"
        "*         *               rest\n";
    EXPECT_EQ("00000000 vty-login", with(text, 0));
    EXPECT_EQ("00000000 vty-other", with(text, 1));
    EXPECT_EQ("00000000 vty-other", with(text, 2));
}

TEST_F(MethodForLine, DistinguishesTheKinds) {
    const char *text = "pts/* authentication a\npts/* authorization b\npts/* accounting c\n";
    EXPECT_EQ("00000000 a", with(text, 0));
    EXPECT_EQ("00000000 b", with(text, 1));
    EXPECT_EQ("00000000 c", with(text, 2));
}

TEST_F(MethodForLine, MatchesTheDeviceNameToo) {
    EXPECT_EQ("00000000 a", with("/dev/pts/* * a\n"));
    EXPECT_EQ("00000000 b", with("/dev/tty* * a\n[p]ts/[0-9]* * b"));
}

TEST_F(MethodForLine, NamesNoListWithoutARow) {
    EXPECT_EQ(kNone, with("console * a\n"));
    EXPECT_EQ(kNone, with(""));
    EXPECT_EQ(kNone, on_terminal(dir.path("absent"), 0));
    EXPECT_EQ(kNone, on_terminal(dir.path("no/such/directory"), 0));
    EXPECT_TRUE(g_log->take().empty());
}

TEST_F(MethodForLine, SkipsAndReportsBadRows) {
    const std::string long_name(255, 'a');
    EXPECT_EQ("00000000 good", with("pts/*\n"
                                    "pts/* authentication\n"
                                    "pts/* authentcation a\n"
                                    "pts/* * a b\n"
                                    "pts/* * " +
                                    long_name +
                                    "\n"
                                    "pts/* * good\n"));
    const auto log = g_log->take();
    ASSERT_EQ(5u, log.size());
    const std::string words = "expected a line pattern, a kind and a method list";
    EXPECT_EQ(log_of(1, words), log[0]);
    EXPECT_EQ(log_of(2, words), log[1]);
    EXPECT_EQ(log_of(3, "the kind is not authentication, authorization, accounting or *"), log[2]);
    EXPECT_EQ(log_of(4, words), log[3]);
    EXPECT_EQ(log_of(5, "the method list's name has more than 254 or unprintable characters"), log[4]);
}

TEST_F(MethodForLine, TakesTheLongestName) {
    const std::string name(254, 'a');
    EXPECT_EQ("00000000 " + name, with("* * " + name + "\n"));
    EXPECT_EQ(kNone, with("* * caf\xc3\xa9\n"));
}

TEST_F(MethodForLine, RefusesBadArguments) {
    char *list = nullptr;
    EXPECT_EQ(kInvalidArg, find_method_for_line(3, &list));
    EXPECT_EQ(kInvalidArg, find_method_for_line(0, nullptr));
}

// ---- the rows that tools read

namespace {

struct Rules {
    std::string rows;      // "NUMBER:KIND:PATTERN:LIST:DEFECT;" each
    std::string decision;  // list of the first applicable row
    uint32_t kind = 0;
    std::string line;

    static int32_t visit(const aaa_platform_line_rule_t *rule, void *context) {
        auto *self = static_cast<Rules *>(context);
        const auto text = [](const char *part) { return std::string(part != nullptr ? part : "-"); };
        self->rows += std::to_string(rule->number) + ":" + std::to_string(rule->kind) + ":" +
                      text(rule->pattern) + ":" + text(rule->list_name) + ":" +
                      (rule->defect != nullptr ? "defect" : "") + ";";
        if (self->decision.empty() &&
            aaa_platform_line_rule_applies(rule, self->kind, self->line.c_str()) != 0) {
            self->decision = rule->list_name;
        }
        return 0;
    }
};

}  // namespace

// Tools explain the choice of a list by the rows, so both must give the same list.
TEST_F(MethodForLine, TheRowsDecideAsTheLookupDoes) {
    const std::string text =
        "console * a\nwrong\npts/* sometimes b\n\npts/* authorization c\n/dev/pts/* authentication d\n* * "
        "e\n";
    const ScopedEnv env("AAA_LINES_CONF", dir.write("lines.conf", text, 0644));
    EXPECT_EQ(dir.path("lines.conf"), aaa_platform_line_rules_path());
    for (uint32_t kind = 0; kind < 3; ++kind) {
        TerminalProcess child([&] { return lookup(kind); });
        for (const std::string &prefix : {std::string(), std::string("/dev/")}) {
            Rules rules;
            rules.kind = kind;
            rules.line = prefix + child.line();
            EXPECT_EQ(0u, aaa_platform_line_rules(Rules::visit, &rules));
            EXPECT_EQ(
                "1:3:console:a:;2:3:wrong:-:defect;3:3:pts/*:b:defect;5:1:pts/*:c:;6:0:/dev/pts/"
                "*:d:;7:3:*:e:;",
                rules.rows);
            EXPECT_EQ(std::string(kind == 0 ? "d" : kind == 1 ? "c" : "e"), rules.decision);
            if (prefix.empty()) {
                EXPECT_EQ("00000000 " + rules.decision, child.report());
            }
        }
    }
    g_log->take();
}

TEST_F(MethodForLine, TheRowsOfAnUnusableFileAreNotShown) {
    Rules rules;
    {
        const ScopedEnv env("AAA_LINES_CONF", dir.path("absent"));
        EXPECT_EQ(0u, aaa_platform_line_rules(Rules::visit, &rules));
    }
    const ScopedEnv env("AAA_LINES_CONF", dir.write("lines.conf", "* * a\n", 0666));
    EXPECT_EQ(kBadConfig, aaa_platform_line_rules(Rules::visit, &rules));
    EXPECT_EQ("", rules.rows);
    EXPECT_EQ(0xa2580200u, aaa_platform_line_rules(nullptr, nullptr));
    aaa_platform_line_rule_t rule{1, 3, "*", "a", nullptr};
    EXPECT_EQ(1, aaa_platform_line_rule_applies(&rule, 2, "any"));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 3, "any"));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 0, std::string(64, 'x').c_str()));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 0, nullptr));
    EXPECT_EQ(0, aaa_platform_line_rule_applies(nullptr, 0, "any"));
    rule.defect = "wrong";
    EXPECT_EQ(0, aaa_platform_line_rule_applies(&rule, 0, "any"));
    g_log->take();
}

int main(int argc, char **argv) {
    return run_with_captured_log(argc, argv);
}
