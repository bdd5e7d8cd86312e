// SPDX-License-Identifier: Apache-2.0
//
// JSON that commands read: how deeply it may be nested. JSON that they print: no
// character that a reader would not see.

#include "cli/json.hpp"

#include <algorithm>
#include <string_view>

#include "aaactl/support/database_fixture.hpp"
#include "cli/output.hpp"

namespace {

using aaactl::Json;
using aaactl_test::aaactl;

constexpr size_t kLevels = 64;
constexpr char kTooDeep[] = "more than 64 levels of arrays and objects";

std::string nested(size_t levels, const std::string &open, const std::string &close) {
    std::string text;
    for (size_t i = 0; i < levels; ++i) {
        text += open;
    }
    text += "1";
    for (size_t i = 0; i < levels; ++i) {
        text += close;
    }
    return text;
}

std::string arrays(size_t levels) {
    return nested(levels, "[", "]");
}

std::string failure_of(const std::string &text) {
    try {
        Json::parse(text);
    } catch (const aaactl::Failure &failure) {
        EXPECT_EQ(failure.code(), aaactl::ExitCode::bad_input);
        return failure.what();
    }
    return "";
}

TEST(Json, HasAtMost64Levels) {
    EXPECT_EQ(failure_of(arrays(kLevels)), "");
    EXPECT_EQ(failure_of(nested(kLevels, "{\"a\":", "}")), "");
    EXPECT_EQ(failure_of(arrays(kLevels + 1)), std::string("malformed JSON at line 1, byte 65: ") + kTooDeep);
    EXPECT_EQ(failure_of(nested(kLevels + 1, "{\"a\":", "}")),
              std::string("malformed JSON at line 1, byte 321: ") + kTooDeep);
}

TEST(Json, SaysWhereItIsNestedTooDeeply) {
    // Brackets in strings and closed arrays are not levels.
    const std::string before = "{\"[[\\\"[\": [[], {}, \"]]\\\\\"],\n\n \"b\": ";
    EXPECT_EQ(failure_of(before + arrays(kLevels - 1) + "}"), "");
    EXPECT_EQ(failure_of(before + arrays(kLevels) + "}"),
              std::string("malformed JSON at line 3, byte 70: ") + kTooDeep);
}

// 120 KB of brackets overflowed the stack.
TEST(Json, DeepNestingIsRefusedHoweverItGoesOn) {
    const std::string open(120000, '[');
    for (const std::string &text : {open, open + std::string(open.size(), ']'), open + "}", "[1," + open}) {
        EXPECT_NE(failure_of(text).find(kTooDeep), std::string::npos) << failure_of(text);
    }
}

TEST(Json, HiddenCharactersArePrintedAsEscapes) {
    const Json document = {{"text", "a\u00ad\u202e\u2066\ufeff\U000e0041\u0085\x7f\u00fc\U0001f511"}};
    const std::string printed = document.dump();
    EXPECT_EQ(printed,
              "{\"text\":\"a\\u00ad\\u202e\\u2066\\ufeff\\udb40\\udc41\\u0085\\u007f\u00fc\U0001f511\"}");
    EXPECT_EQ(Json::parse(printed), document);
    EXPECT_EQ(Json(Json{{"\u202e", 1}}).dump(), "{\"\\u202e\":1}") << "names of members too";
}

class JsonInput : public aaactl_test::DatabaseTest {
  protected:
    static void expect_too_deep(const std::vector<std::string> &args, const std::string &input) {
        const auto run = aaactl(args, input);
        EXPECT_EQ(run.status, 3) << run.status << run.err.substr(0, 200);
        EXPECT_NE(run.err.find(kTooDeep), std::string::npos) << run.err.substr(0, 200);
        EXPECT_LT(run.err.size(), 200u) << "the input is not quoted";
    }
};

TEST_F(JsonInput, EveryCommandThatReadsItHasTheLimit) {
    for (const size_t levels : {size_t{64}, size_t{60000}}) {
        const std::string deep = arrays(levels);
        const std::string dump =
            R"({"format":"aaactl-dump","version":1,"directory":"/cfg/","items":[{"path":"/cfg/a","type":"string","value":)" +
            deep + "}]}";
        expect_too_deep({"sysdb", "load", "-"}, dump);
        expect_too_deep({"sysdb", "load", "--replace", "-"}, dump);
        expect_too_deep({"sysdb", "load", "--dry-run", "-"}, dump);
        expect_too_deep({"sysdb", "diff", "-"}, dump);
        expect_too_deep({"encode"}, R"({"parts":[{"part":"record","fields":)" + deep + "}]}");
        expect_too_deep({"--json", "encode", "--from", "json"}, "[" + deep + "]");
    }
    EXPECT_EQ(value_of("/cfg/a"), "");
}

}  // namespace
