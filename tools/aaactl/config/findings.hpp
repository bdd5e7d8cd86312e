// SPDX-License-Identifier: Apache-2.0
//
// Faults of a configuration: place, consequence and remedy.

#pragma once

#include <string>
#include <vector>

#include "cli/output.hpp"

namespace aaactl {

// An error: something does not work as it is configured. A warning: something may not be intended.
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
