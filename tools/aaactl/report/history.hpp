// SPDX-License-Identifier: Apache-2.0
//
// The newest commits of the configuration, and the one that waits for its confirmation.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "commits/recording.hpp"
#include "report/html.hpp"

namespace aaactl {

struct ReportedHistory {
    std::vector<history::Commit> newest;  // first, at most kMostCommits
    size_t commits = 0;                   // that are stored
    std::optional<history::Waiting> waiting;
    std::optional<int64_t> left;       // milliseconds until it is reverted; none on another machine
    bool can_revert = true;            // the state before it is there
    std::vector<std::string> damaged;  // paths of records that cannot be read
    bool head_is_damaged = false;
    std::string defect;  // why nothing can be read

    static constexpr size_t kMostCommits = 20;
};

ReportedHistory read_history(Database &database);

void write_history(Html &page, const ReportedHistory &history);

}  // namespace aaactl
