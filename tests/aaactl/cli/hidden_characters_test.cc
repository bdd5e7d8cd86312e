// SPDX-License-Identifier: Apache-2.0
//
// Characters that a reader of a terminal would not see are shown as their bytes: the
// table against Unicode's own properties, and every place that shows text from outside.

#include "cli/hidden_characters.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "aaactl/client/scripted_server.hpp"
#include "aaactl/support/database_fixture.hpp"
#include "aaactl/support/program_started.hpp"
#include "cli/output.hpp"

namespace {

using aaactl::escaped;
using aaactl::first_code_point;
using aaactl_test::aaactl;
using aaactl_test::Started;

constexpr uint32_t kAllCodePoints = 0x110000;

std::string utf8(uint32_t code) {
    std::string text;
    const auto add = [&](uint32_t lead, int rest) {
        text += static_cast<char>(lead | code >> (6 * rest));
        for (int i = rest - 1; i >= 0; --i) {
            text += static_cast<char>(0x80u | ((code >> (6 * i)) & 0x3fu));
        }
    };
    code < 0x80 ? add(0, 0) : code < 0x800 ? add(0xc0, 1) : code < 0x10000 ? add(0xe0, 2) : add(0xf0, 3);
    return text;
}

// The first character of the text that a terminal would not show, as its number; "" if there is none.
std::string hidden_in(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const auto at = first_code_point(text.substr(i));
        if (at.length == 0 || at.value == 0x7f || (at.value >= 0x80 && aaactl::is_hidden(at.value)) ||
            (at.value < ' ' && at.value != '\n')) {
            return "byte " + std::to_string(i) + ": " + aaactl::hex(text.substr(i, 8));
        }
        i += at.length;
    }
    return "";
}

// ---- the table

// One character for each code point: h hidden, s seen, - not assigned by the table's version of Unicode.
std::string properties_from_perl() {
    constexpr char kScript[] =
        "perl -e 'no warnings; for my $c (0x80..0x10ffff) { my $t = chr($c); print $c >= 0xd800 && $c <= "
        "0xdfff "
        "? \"-\" : $t =~ /[\\p{DI}\\p{Noncharacter_Code_Point}]/ ? \"h\" : $t =~ /\\p{Cn}/ || $t !~ "
        "/\\p{Present_In=14.0}/ ? \"-\" : $t =~ /[\\p{Cc}\\p{Cf}\\p{Co}\\p{Zl}\\p{Zp}]/ ? \"h\" : \"s\"; }' "
        "2>/dev/null";
    const std::unique_ptr<FILE, int (*)(FILE *)> perl(popen(kScript, "re"), pclose);
    std::string all;
    std::array<char, 65536> block{};
    for (size_t n; perl != nullptr && (n = std::fread(block.data(), 1, block.size(), perl.get())) > 0;) {
        all.append(block.data(), n);
    }
    return all;
}

TEST(HiddenCharacters, AreThoseThatUnicodeCallsSo) {
    const std::string properties = properties_from_perl();
    if (properties.size() != kAllCodePoints - 0x80) {
        GTEST_SKIP() << "perl 5.34 or later is needed";
    }
    for (uint32_t code = 0x80; code < kAllCodePoints; ++code) {
        const char property = properties[code - 0x80];
        const std::string text = utf8(code);
        if (property == 'h') {
            ASSERT_NE(escaped(text), text) << std::hex << code << " is missing in hidden_characters.def";
        } else if (property == 's') {
            ASSERT_EQ(escaped(text), text) << std::hex << code << " does not belong in hidden_characters.def";
        }
    }
}

TEST(HiddenCharacters, AreShownAsTheirBytes) {
    EXPECT_EQ(escaped("pass\u00adword"), "pass\\xc2\\xadword") << "soft hyphen";
    EXPECT_EQ(escaped("\u180e"), "\\xe1\\xa0\\x8e") << "Mongolian vowel separator";
    EXPECT_EQ(escaped("\ufff9\ufffb"), "\\xef\\xbf\\xb9\\xef\\xbf\\xbb") << "annotations";
    EXPECT_EQ(escaped("\u2067\u2069"), "\\xe2\\x81\\xa7\\xe2\\x81\\xa9") << "isolates";
    EXPECT_EQ(escaped("\U000e0041"), "\\xf3\\xa0\\x81\\x81") << "a tag";
    EXPECT_EQ(escaped("\ue000\U0010fffd"), "\\xee\\x80\\x80\\xf4\\x8f\\xbf\\xbd") << "private use";
    EXPECT_EQ(escaped("\ufdd0"), "\\xef\\xb7\\x90") << "not a character";
    EXPECT_EQ(escaped("Gr\u00fc\u00dfe \u4f60\u597d \u0645\u0631\u062d\u0628\u0627 \U0001f511"),
              "Gr\u00fc\u00dfe \u4f60\u597d \u0645\u0631\u062d\u0628\u0627 \U0001f511");
}

// ---- where text from outside is shown

constexpr char kHostile[] = "a\u00adb\u180ec\ufff9d\u202ee\u2066f\U000e0041g\ue000h\u0085i";

void expect_visible(const aaactl_test::Run &run, const std::string &what,
                    const std::string &shown = "\\xc2\\xad") {
    EXPECT_EQ(hidden_in(run.out), "") << what;
    EXPECT_EQ(hidden_in(run.err), "") << what;
    EXPECT_NE((run.out + run.err).find(shown), std::string::npos) << what << ": " << run.out << run.err;
}

class HiddenInDatabase : public aaactl_test::DatabaseTest {
  protected:
    void SetUp() override {
        put("/cfg/site/banner", "string", kHostile);
        put(named_, "string", "x");
    }
    const std::string named_ = std::string("/cfg/site/") + kHostile;
};

TEST_F(HiddenInDatabase, NoCommandShowsThemAsTheyAre) {
    const std::vector<std::vector<std::string>> commands = {{"sysdb", "get", "/cfg/site/banner"},
                                                            {"sysdb", "ls", "/cfg/site"},
                                                            {"sysdb", "ls", "-l", "/cfg/site"},
                                                            {"sysdb", "tree"},
                                                            {"sysdb", "dump"},
                                                            {"sysdb", "get", named_},
                                                            {"sysdb", "del", named_ + "/no"},
                                                            {kHostile},
                                                            {"err", kHostile},
                                                            {"attr", "show", kHostile},
                                                            {"decode", kHostile}};
    for (const auto &command : commands) {
        std::string name;
        for (const std::string &word : command) {
            name += escaped(word) + " ";
        }
        if (command.back() != named_ || command[1] != "get") {
            expect_visible(aaactl(command), name);
        }
        auto json = command;
        json.emplace_back("--json");
        const auto run = aaactl(json);
        EXPECT_EQ(hidden_in(run.out), "") << name << "--json";
        EXPECT_EQ(hidden_in(run.err), "") << name << "--json";
        run.json();
    }
}

TEST_F(HiddenInDatabase, DumpsRestoreThem) {
    const auto dump = aaactl({"sysdb", "dump"});
    const auto json = aaactl({"sysdb", "dump", "--json"});
    for (const auto &saved : {dump, json}) {
        ASSERT_EQ(aaactl({"sysdb", "set", "/cfg/site/banner"}, "changed").status, 0);
        expect_visible(aaactl({"sysdb", "diff", "-"}, saved.out), "diff");
        ASSERT_EQ(aaactl({"sysdb", "load", "-"}, saved.out).status, 0);
        EXPECT_EQ(aaactl({"sysdb", "diff", "-"}, saved.out).status, 0);
        EXPECT_EQ(value_of("/cfg/site/banner"), escaped(kHostile));
    }
}

// Only the first event proves that the watch is registered.
TEST_F(HiddenInDatabase, WatchShowsTheirBytes) {
    for (const bool json : {false, true}) {
        std::vector<std::string> args = {"sysdb", "watch", "/cfg/"};
        if (json) {
            args.emplace_back("--json");
        }
        Started watch(args);
        for (int i = 0; watch.shown().find("/cfg/site/banner") == std::string::npos; ++i) {
            put("/cfg/site/banner", "string", kHostile + std::to_string(i));
            watch.read_some(10);
            ASSERT_LT(i, 5000);
        }
        put(named_ + "/last", "string", kHostile + std::to_string(json));
        ASSERT_TRUE(watch.wait_shown("/last")) << watch.shown();
        EXPECT_EQ(hidden_in(watch.shown()), "");
    }
}

TEST(HiddenInMessages, NoReplyShowsThemAsTheyAre) {
    const TempDir dir;
    for (const bool json : {false, true}) {
        const aaactl_test::ScriptedServer server(
            dir.path("socket"), {aaactl_test::always(aaactl_test::classic_reply([](avlist *list) {
                aaactl_test::status(AAA_STAT_FAIL)(list);
                aaactl_test::add_text(list, AAA_REPLYMSG_ATTR, kHostile);
            }))});
        std::vector<std::string> args = {"login", dir.path("socket"), kHostile};
        if (json) {
            args.emplace_back("--json");
        }
        const auto run = aaactl(args, "password\n");
        EXPECT_EQ(hidden_in(run.out), "");
        EXPECT_EQ(hidden_in(run.err), "");
        EXPECT_NE(run.out.find("xc2"), std::string::npos) << run.out << run.err;
    }
}

}  // namespace
