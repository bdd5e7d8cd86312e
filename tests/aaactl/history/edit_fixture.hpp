// SPDX-License-Identifier: Apache-2.0
//
// edit, with shell commands as editors, and texts in a directory of the test.

#pragma once

#include <filesystem>

#include "aaactl/history/history_fixture.hpp"

namespace aaactl_test {

class Edit : public HistoryCommands {
  protected:
    Edit() : temporary_("TMPDIR", dir().path("tmp")) {
        std::filesystem::create_directory(dir().path("tmp"));
        unsetenv("VISUAL");
    }
    ~Edit() override { unsetenv("EDITOR"); }

    void SetUp() override { load(limit(1)); }

    // The command gets the file as $1.
    void editor(const std::string &script) const {
        const std::string file = dir().write("editor", "#!/bin/sh\n" + script + "\n", 0700);
        setenv("EDITOR", file.c_str(), 1);
    }
    // Where a text is kept; "" if none is.
    std::string kept() const {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(dir().path("tmp"))) {
            if (entry.is_regular_file()) {
                return entry.path();
            }
        }
        return "";
    }
    bool nothing_left() const { return std::filesystem::is_empty(dir().path("tmp")); }

  private:
    ScopedEnv temporary_;
};

}  // namespace aaactl_test
