// SPDX-License-Identifier: Apache-2.0
//
// What is wrong with a configuration: where, what it leads to, what to do.

#pragma once

#include <string>
#include <vector>

#include "cli/output.hpp"

namespace aaactl {

// An error keeps something from working as it is written; a warning is worth a look.
enum class Severity { error, warning };

struct Finding {
    Severity severity;
    std::string code;  // a word that scripts and filters can rely on
    std::string path;  // of the item or directory, or a file
    std::string text;
    std::string remedy;
};

using Findings = std::vector<Finding>;

size_t count(const Findings &findings, Severity severity);

// {severity, code, path, text, remedy}
Json findings_json(const Findings &findings);
void print_findings(Output &out, const Findings &findings);

}  // namespace aaactl
