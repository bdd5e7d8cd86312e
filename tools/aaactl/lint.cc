// SPDX-License-Identifier: Apache-2.0
//
// lint: looks through the whole AAA configuration for what does not fit together.

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "aaa/method_lists.h"
#include "aaa/names.h"
#include "checks.hpp"
#include "commands.hpp"

namespace aaactl {
namespace {

struct LintOptions {
    bool strict = false;
};

std::vector<std::string> function_words() {
    std::vector<std::string> words;
    for (uint32_t function = AAA_FUNC_AUTHEN; function <= AAA_FUNC_AUTHOR_NACM; ++function) {
        words.emplace_back(aaa_function_to_string(function));
    }
    return words;
}

class Lint {
  public:
    Findings run() {
        for (const std::string &function : function_words()) {
            for (const std::string &service : service_words(database_, function)) {
                lists(function, service);
            }
        }
        logins();
        groups();
        for (const Protocol &protocol : kProtocols) {
            check_servers(protocol_servers(database_, protocol), findings_);
        }
        stale_numbers();
        check_lines(database_, findings_);
        check_items(database_, findings_);
        return std::move(findings_);
    }

    size_t lists() const { return lists_; }
    size_t groups_seen() const { return groups_; }

  private:
    void lists(const std::string &function, const std::string &service) {
        const auto names = list_names(database_, function, service);
        for (const std::string &name : names) {
            if (const auto list = find_list(database_, function, service, name)) {
                ++lists_;
                check_list(database_, *list, findings_);
                list_name(*list);
                for (const Slot &slot : list->methods()) {
                    used_.insert(slot.group);
                }
            }
        }
        if (!names.empty() && std::find(names.begin(), names.end(), "default") == names.end()) {
            no_default(function, service);
        }
    }

    void list_name(const MethodList &list) {
        std::string name = list.name;
        if (aaa_is_name_valid(name.data()) == 0) {
            findings_.push_back({Severity::warning, "invalid-name", list.path,
                                 "the list's name holds more than printable ASCII", "give it another name"});
        }
    }

    void no_default(const std::string &function, const std::string &service) {
        findings_.push_back({Severity::warning, "no-default-list", list_path(function, service, "default"),
                             "the service has lists, but none for requests that name none",
                             "create it: aaactl mlist set"});
    }

    // The one service that every router has.
    void logins() {
        if (list_names(database_, "authentication", "login").empty()) {
            findings_.push_back({Severity::warning, "no-default-list",
                                 list_path("authentication", "login", "default"),
                                 "no list says how users log in", "create it: aaactl mlist set"});
        }
    }

    void groups() {
        for (const Group &group : all_groups(database_)) {
            ++groups_;
            configured_.insert(group.protocol.word + std::string("/") + group.name);
            check_group(group, used_.contains(group.name), findings_);
        }
    }

    // Numbers of groups that are not configured any more.
    void stale_numbers() {
        for (const Protocol &protocol : kProtocols) {
            const std::string map = std::string(kGroupMaps) + "sg_name_map/" + protocol.word + "/";
            for (const Entry &entry : database_.list(map).value_or(std::vector<Entry>{})) {
                if (!entry.is_directory() &&
                    !configured_.contains(protocol.word + std::string("/") + entry.name)) {
                    findings_.push_back({Severity::warning, "stale-number", map + entry.name,
                                         "a number is published for a group that is not configured",
                                         "take it back: aaactl sg delete"});
                }
            }
        }
    }

    Database database_;
    Findings findings_;
    std::set<std::string> used_;        // groups that lists name
    std::set<std::string> configured_;  // "PROTOCOL/NAME"
    size_t lists_ = 0;
    size_t groups_ = 0;
};

std::string plural(size_t number, const std::string &noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

ExitCode lint(Output &out, const LintOptions &options) {
    Lint lint;
    const Findings findings = lint.run();
    const size_t errors = count(findings, Severity::error);
    const size_t warnings = count(findings, Severity::warning);
    const Json document = {{"method_lists", lint.lists()},
                           {"server_groups", lint.groups_seen()},
                           {"errors", errors},
                           {"warnings", warnings},
                           {"findings", findings_json(findings)}};
    out.result(document, [&] {
        print_findings(out, findings);
        out.line(plural(lint.lists(), "method list") + " and " + plural(lint.groups_seen(), "server group") +
                 " checked: " + plural(errors, "error") + ", " + plural(warnings, "warning"));
    });
    return errors > 0 || (options.strict && warnings > 0) ? ExitCode::negative : ExitCode::ok;
}

}  // namespace

void add_lint(Program &program) {
    auto options = std::make_shared<LintOptions>();
    CLI::App *sub = program.command(&program.app, "lint",
                                    "Look through the AAA configuration for what does not fit together",
                                    [options](Output &out) { return lint(out, *options); });
    sub->add_flag("--strict", options->strict, "Exit with 1 for warnings too");
    sub->footer(
        "Looks at method lists, server groups and their numbers, servers, the lists of lines, server keys, "
        "and\nfor items whose value does not fit their type.\n"
        "Exit status: 0 no errors, 1 errors (with --strict: or warnings), 5 no database.\n"
        "JSON: {method_lists, server_groups, errors, warnings, findings: [{severity, code, path, text, "
        "remedy}]}\n"
        "Example: aaactl lint --strict");
}

}  // namespace aaactl
