// SPDX-License-Identifier: Apache-2.0
//
// lint: checks the whole AAA configuration for errors and contradictions.

#include <algorithm>
#include <memory>
#include <set>

#include "aaa/method_lists.h"
#include "aaa/names.h"
#include "cli/commands.hpp"
#include "cli/suggestion.hpp"
#include "commits/damage.hpp"
#include "config/advice.hpp"
#include "config/checks.hpp"
#include "config/lookup.hpp"

namespace aaactl {
namespace {

struct LintOptions {
    bool strict = false;
};

class Lint {
  public:
    explicit Lint(Database &database) : database_(database) {}

    Findings run() {
        for (const std::string &function : list_functions()) {
            for (const std::string &service : service_words(database_, function)) {
                lists(function, service);
            }
        }
        logins();
        groups();
        for (const Protocol &protocol : kProtocols) {
            check_servers(protocol_servers(database_, protocol), findings_);
            check_protocol_keys(database_, protocol, used_protocols_.contains(protocol.number), findings_);
        }
        stale_numbers();
        check_lines(database_, findings_);
        check_items(database_, findings_);
        history();
        return std::move(findings_);
    }

    size_t lists() const { return lists_; }
    size_t groups_seen() const { return groups_.size(); }

  private:
    void lists(const std::string &function, const std::string &service) {
        const auto names = list_names(database_, function, service);
        for (const std::string &name : names) {
            if (const auto list = find_list(database_, function, service, name)) {
                ++lists_;
                check_list(database_, *list, findings_);
                list_name(*list);
                for (const Method &method : list->methods()) {
                    used_.insert(method.group);
                    if (const Protocol *protocol = protocol_of_method(method.number)) {
                        used_protocols_.insert(protocol->number);
                    }
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
            findings_.push_back({Severity::warning, "invalid-name", list.path(),
                                 "the list's name contains characters other than printable ASCII",
                                 "give it another name"});
        }
    }

    void no_default(const std::string &function, const std::string &service) {
        findings_.push_back({Severity::warning, "no-default-list", list_path(function, service, "default"),
                             "the service has lists, but no default list for requests that name none",
                             set_list("create it", {function, service, "default", {}, {}, {}}, {})});
    }

    // The one service that every router has.
    void logins() {
        if (list_names(database_, "authentication", "login").empty()) {
            const MethodList list{"authentication", "login", "default", {}, {}, {}};
            findings_.push_back(
                {Severity::error, "no-default-list", list.path(),
                 std::string("no list is configured for logins: ") + consequence_of_failure(list),
                 set_list("create it", list, {})});
        }
    }

    void groups() {
        for (const Protocol &protocol : kProtocols) {
            for (Group &group : read_groups(database_, protocol)) {
                (group.configured ? groups_ : stale_).push_back(std::move(group));
            }
        }
        for (const Group &group : groups_) {
            check_group(database_, group, used_.contains(group.name), findings_);
        }
    }

    void stale_numbers() {
        for (const Group &group : stale_) {
            findings_.push_back({Severity::warning, "stale-number", number_path(group),
                                 "a number is published for a group that is not configured",
                                 change_group("remove it", "del", group)});
        }
    }

    void history() {
        for (const Damage &damage : history_damage(database_)) {
            findings_.push_back({damage.stops_commits ? Severity::error : Severity::warning,
                                 "damaged-history", damage.path, damage.text, damage.remedy});
        }
    }

    Database &database_;
    Findings findings_;
    std::set<std::string> used_;         // groups that lists name
    std::set<uint32_t> used_protocols_;  // whose servers without a group lists ask
    std::vector<Group> groups_;
    std::vector<Group> stale_;  // published, and not configured any more
    size_t lists_ = 0;
};

}  // namespace

Linted lint_configuration() {
    Database database(Database::Use::reading);
    Lint lint(database);
    Findings findings = lint.run();
    return {std::move(findings), lint.lists(), lint.groups_seen()};
}

namespace {

ExitCode lint(Output &out, const LintOptions &options) {
    const Linted checked = lint_configuration();
    const Findings &findings = checked.findings;
    const size_t errors = count(findings, Severity::error);
    const size_t warnings = count(findings, Severity::warning);
    const Json document = {{"method_lists", checked.lists},
                           {"server_groups", checked.groups},
                           {"errors", errors},
                           {"warnings", warnings},
                           {"findings", findings_json(findings)}};
    out.result(document, [&] {
        print_findings(out, findings);
        out.line(counted(checked.lists, "method list") + " and " + counted(checked.groups, "server group") +
                 " checked: " + counted(errors, "error") + ", " + counted(warnings, "warning"));
    });
    return errors > 0 || (options.strict && warnings > 0) ? ExitCode::negative : ExitCode::ok;
}

}  // namespace

Findings check_all(Database &database) {
    return Lint(database).run();
}

void add_lint(Command root) {
    auto options = std::make_shared<LintOptions>();
    Command sub = root.command("lint", "Check the AAA configuration for errors and contradictions",
                               [options](Output &out) { return lint(out, *options); });
    sub.flag("--strict", options->strict, "Exit with 1 for warnings too");
    sub.footer(
        "Checks method lists, server groups and their numbers, servers, the lists of lines, server keys, "
        "and\n"
        "whether values fit their types; in the rest of the database, sealed keys only.\n"
        "Exit status: 0 no errors, 1 errors (with --strict: or warnings), 5 no database.\n"
        "JSON: {method_lists, server_groups, errors, warnings, findings: [{severity, code, path, text, "
        "remedy}]}\n"
        "Example: aaactl lint --strict");
}

}  // namespace aaactl
