// SPDX-License-Identifier: Apache-2.0
//
// What is wrong with the lines of a text. All are named at once, or each mistake would cost a run.

#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cli/output.hpp"

namespace aaactl {

class WrongLines {
  public:
    void add(ExitCode code, size_t line, const std::string &why) {
        lines_.push_back({code, line, "line " + std::to_string(line) + ": " + why});
    }

    // The failure has the code of the first line.
    void refuse() const {
        if (lines_.empty()) {
            return;
        }
        std::vector<Line> sorted = lines_;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const Line &a, const Line &b) { return a.number < b.number; });
        std::string text;
        for (size_t i = 0; i < std::min(sorted.size(), kMost); ++i) {
            text += (i == 0 ? "" : "\n  ") + sorted[i].text;
        }
        if (sorted.size() > kMost) {
            text += "\n  and " + std::to_string(sorted.size() - kMost) + " more";
        }
        throw Failure(sorted.front().code, text);
    }

  private:
    static constexpr size_t kMost = 20;  // that are named

    struct Line {
        ExitCode code;
        size_t number;
        std::string text;
    };
    std::vector<Line> lines_;
};

}  // namespace aaactl
