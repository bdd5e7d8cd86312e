// SPDX-License-Identifier: Apache-2.0
//
// Commands on the history, with a small configuration.

#pragma once

#include <string>
#include <vector>

#include "aaactl/support/database_fixture.hpp"

namespace aaactl_test {

class HistoryCommands : public DatabaseTest {
  protected:
    // As users run it: the library registers its texts when it is loaded.
    HistoryCommands() : keys_("AAA_MASTER_KEYS", dir().path("master.keys")) { unsetenv("NO_DLLMAIN"); }
    ~HistoryCommands() override { setenv("NO_DLLMAIN", "1", 1); }

    // What must succeed; its output.
    static std::string done(const std::vector<std::string> &words, const std::string &input = "") {
        const auto run = aaactl(words, input);
        EXPECT_EQ(run.status, 0) << words[0] << ": " << run.err;
        return run.out;
    }
    // Also items that nothing of this system reads.
    static void load(const std::string &text) { done({"load", "--force", "-"}, text); }
    static std::string shown() { return done({"show", "running-config"}); }
    static JsonDocument history() { return aaactl({"history", "--json"}).json(); }
    // "commit", "outside", ... with the newest first.
    static std::vector<std::string> kinds() {
        std::vector<std::string> kinds;
        const JsonDocument document = history();
        for (const JsonDocument &commit : document["commits"]) {
            kinds.push_back(commit["kind"].text());
        }
        return kinds;
    }
    static std::string limit(int number) {
        return "item /cfg/gl/aaa/site/limit u32 " + std::to_string(number) + "\n";
    }

  private:
    ScopedEnv keys_;
};

using Kinds = std::vector<std::string>;

}  // namespace aaactl_test
