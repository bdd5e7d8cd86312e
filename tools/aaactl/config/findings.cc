// SPDX-License-Identifier: Apache-2.0
//
// Findings as lines of text and as JSON.

#include "config/findings.hpp"

#include <algorithm>

namespace aaactl {
namespace {

const char *severity_word(Severity severity) {
    return severity == Severity::error ? "error" : "warning";
}

}  // namespace

size_t count(const Findings &findings, Severity severity) {
    return static_cast<size_t>(std::count_if(findings.begin(), findings.end(), [&](const Finding &finding) {
        return finding.severity == severity;
    }));
}

Json findings_json(const Findings &findings) {
    Json all = Json::array();
    for (const Finding &finding : findings) {
        all.push_back({{"severity", severity_word(finding.severity)},
                       {"code", finding.code},
                       {"path", escaped(finding.path)},
                       {"text", finding.text},
                       {"remedy", finding.remedy}});
    }
    return all;
}

void print_findings(Output &out, const Findings &findings) {
    for (const Finding &finding : findings) {
        const Style style = finding.severity == Severity::error ? Style::bad : Style::warning;
        out.line(out.styled(style, severity_word(finding.severity)) + ": " + escaped(finding.path) + ": " +
                 finding.text + " [" + finding.code + "]");
        out.line("    " + finding.remedy);
    }
}

}  // namespace aaactl
