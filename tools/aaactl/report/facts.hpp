// SPDX-License-Identifier: Apache-2.0
//
// What a report shows: read from the database, and from a running aaad where there is one.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/checks.hpp"
#include "config/explanation.hpp"
#include "report/history.hpp"
#include "service/control_client.hpp"

namespace aaactl {

struct ReportedGroup {
    Group group;
    std::vector<ServerKey> keys;  // of its servers: where they are and whether they open, never what they are
};

struct ReportedList {
    std::string title;                       // "authentication login default"
    std::optional<Explanation> explanation;  // missing when the list cannot be read
    std::string defect;                      // why
};

struct Facts {
    std::string host;
    std::string time;  // local
    std::vector<ReportedGroup> groups;
    std::vector<ReportedList> lists;
    ReportedHistory history;
    Linted checked;
    std::string no_database;  // why nothing of the configuration is known; "" when it is
    ExitCode database = ExitCode::ok;
    Json status;             // of aaad; null when it does not run
    Json servers;            // likewise
    std::string no_service;  // why there is neither
};

Facts gather_facts(const ControlOptions &options);

}  // namespace aaactl
