// SPDX-License-Identifier: Apache-2.0
//
// Chooses method lists by name, by the rows of the host's line file, and by default.

#include "config/list_choice.hpp"

#include <algorithm>
#include <exception>
#include <set>

#include "aaa/lines.h"
#include "aaa/method_lists.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "cli/output.hpp"
#include "cli/suggestion.hpp"
#include "config/method_lists.hpp"
#include "dictionary/enum_words.hpp"
#include "platform/control.h"
#include "platform/node.h"

namespace aaactl {
namespace {

std::set<std::string> known_words(Database &database, uint32_t function) {
    const auto configured = service_words(database, aaa_function_to_string(function));
    const auto used = used_service_words(aaa_function_to_string(function));
    std::set<std::string> words(configured.begin(), configured.end());
    words.insert(used.begin(), used.end());
    return words;
}

// False for services whose requests ignore the line: without a list they use "default".
bool asks_line(uint32_t function, uint32_t service) {
    const uint32_t third = function == AAA_FUNC_ACCT ? AAA_SVC_SYSTEM : AAA_SVC_IKE;
    return service != AAA_SVC_API && service != AAA_SVC_KSH && service != third;
}

struct RowSearch {
    uint32_t function;
    const std::string &line;
    std::optional<ListChoice> found;

    static int32_t visit(const aaa_platform_line_rule_t *rule, void *context) {
        auto *self = static_cast<RowSearch *>(context);
        if (aaa_platform_line_rule_applies(rule, self->function, self->line.c_str()) == 0) {
            return 0;
        }
        self->found = ListChoice{
            rule->list_name, ChosenBy::line, "",
            std::string(aaa_platform_line_rules_path()) + ":" + std::to_string(rule->number), rule->pattern};
        return 1;
    }
};

ListChoice fallback(const std::string &why) {
    return {"default", ChosenBy::fallback, why, "", ""};
}

ListChoice choose_by_line(const ServiceWord &service, const std::string &line) {
    RowSearch search{service.function, line, std::nullopt};
    const cerrno rc = aaa_platform_line_rules(RowSearch::visit, &search);
    if (rc != 0) {
        throw Failure(ExitCode::bad_input,
                      escaped(aaa_platform_line_rules_path()) + ": requests that name no list fail", rc);
    }
    if (!search.found) {
        return fallback("no list was named, and no row of " + escaped(aaa_platform_line_rules_path()) +
                        " matches the line " + escaped(line));
    }
    search.found->why = "no list was named, and the row for \"" + escaped(search.found->pattern) + "\" at " +
                        escaped(search.found->rule) + " is the first that matches the line " + escaped(line);
    return *search.found;
}

}  // namespace

ServiceWord service_word(Database &database, uint32_t function, const std::string &text) {
    const auto service = service_number(text);
    const std::string word = service ? service_word_of(function, *service) : "";
    if (!word.empty()) {
        return {function, service, word};
    }
    const auto words = known_words(database, function);
    if (words.contains(text)) {
        return {function, std::nullopt, text};
    }
    std::string known;
    for (const std::string &one : words) {
        known += (known.empty() ? "" : ", ") + escaped(one);
    }
    const std::string meant = did_you_mean(text, {words.begin(), words.end()});
    throw Failure(ExitCode::usage,
                  std::string("there are no lists for ") + aaa_function_to_string(function) + " of \"" +
                      escaped(text) + "\"" +
                      (!meant.empty() ? meant : "; use " + known + ", or a service that uses one of them"));
}

ListChoice choose_list(const ServiceWord &service, const std::string &list, const std::string &line) {
    if (!list.empty()) {
        return {list, ChosenBy::name, "the request names it", "", ""};
    }
    if (service.service && !asks_line(service.function, *service.service)) {
        return fallback("no list was named, and requests for the service " + service_name(*service.service) +
                        " ignore lines");
    }
    if (line.empty()) {
        return fallback("neither a list nor a line was named");
    }
    if (platform_am_i_lc() != 0) {
        return fallback("no list was named, and this node is a line card, which ignores lines");
    }
    return choose_by_line(service, line);
}

std::string line_kind(const std::string &line) {
    const char *device = line.c_str();
    return aaa_is_console(device) != 0 ? "console"
           : aaa_is_vty(device) != 0   ? "vty"
           : aaa_is_aux(device) != 0   ? "aux"
           : aaa_is_tty(device) != 0   ? "tty"
                                       : "";
}

}  // namespace aaactl
