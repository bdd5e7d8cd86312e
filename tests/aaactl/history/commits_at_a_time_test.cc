// SPDX-License-Identifier: Apache-2.0
//
// Commands that make commits while others change the configuration: every commit has a state that existed.

#include <algorithm>
#include <memory>

#include "aaactl/history/history_fixture.hpp"
#include "aaactl/support/program_started.hpp"

namespace {

using aaactl_test::aaactl;
using aaactl_test::HistoryCommands;
using aaactl_test::JsonDocument;
using aaactl_test::Kinds;
using aaactl_test::Started;

class CommitsAtATime : public HistoryCommands {
  protected:
    static constexpr int kLoads = 8;

    static std::string group_text(const std::string &name) {
        return "aaa group server radius " + name + "\n server 192.0.2.1 auth-port 1812 acct-port 1813\n";
    }
    static bool has_group(const std::string &text, const std::string &name) {
        return text.find("radius " + name + "\n") != std::string::npos;
    }
    // "load --label lN", each with a group pN of its own.
    std::vector<std::unique_ptr<Started>> loads() const {
        std::vector<std::unique_ptr<Started>> all;
        for (int i = 0; i < kLoads; ++i) {
            const std::string name = std::to_string(i);
            const std::string file = dir().write("t" + name, group_text("p" + name));
            all.push_back(
                std::make_unique<Started>(std::vector<std::string>{"load", "--label", "l" + name, file}));
        }
        return all;
    }
    // Oldest first.
    static std::vector<std::pair<std::string, std::string>> commits() {  // label and text
        std::vector<std::pair<std::string, std::string>> all;
        const JsonDocument document = history();
        for (const JsonDocument &commit : document["commits"]) {
            all.emplace_back(commit["label"].text(),
                             done({"show", "commit", std::to_string(commit["commit"].number())}));
        }
        std::reverse(all.begin(), all.end());
        return all;
    }
};

TEST_F(CommitsAtATime, EachLoadIsMadeOnTheOneBefore) {
    done({"commit", "base"});
    for (const auto &load : loads()) {
        EXPECT_EQ(load->wait(), 0) << load->shown();
    }
    Kinds expected(kLoads, "load");
    expected.emplace_back("commit");
    EXPECT_EQ(kinds(), expected) << "nothing was changed without a commit";
    std::vector<std::string> made;
    for (const auto &[label, text] : commits()) {
        if (label != "base") {
            made.push_back("p" + label.substr(1));
        }
        for (int i = 0; i < kLoads; ++i) {
            const std::string name = "p" + std::to_string(i);
            EXPECT_EQ(has_group(text, name), std::find(made.begin(), made.end(), name) != made.end())
                << label << " " << name;
        }
    }
    EXPECT_EQ(done({"diff"}), "");
}

TEST_F(CommitsAtATime, GroupsThatAreAddedWithoutACommitAreNeitherInventedNorLost) {
    done({"commit", "base"});
    const auto running = loads();
    for (int i = 0; i < kLoads; ++i) {
        done({"sg", "add", "radius", "q" + std::to_string(i), "192.0.2.9"});
    }
    for (const auto &load : running) {
        EXPECT_EQ(load->wait(), 0) << load->shown();
    }
    done({"commit", "end"});
    // Only additions were made, and those of sg one after another.
    std::string before;
    for (const auto &[label, text] : commits()) {
        for (int i = 0; i < kLoads; ++i) {
            const std::string number = std::to_string(i);
            EXPECT_TRUE(has_group(text, "p" + number) || !has_group(before, "p" + number)) << label;
            EXPECT_TRUE(has_group(text, "q" + number) || !has_group(before, "q" + number)) << label;
            EXPECT_TRUE(i == 0 || !has_group(text, "q" + number) ||
                        has_group(text, "q" + std::to_string(i - 1)))
                << label;
        }
        before = text;
    }
    for (int i = 0; i < kLoads; ++i) {
        EXPECT_TRUE(has_group(before, "p" + std::to_string(i)));
        EXPECT_TRUE(has_group(before, "q" + std::to_string(i)));
    }
    EXPECT_EQ(done({"diff"}), "");
}

}  // namespace
