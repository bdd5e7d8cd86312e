// SPDX-License-Identifier: Apache-2.0
//
// The library's lookups say what clients get; the rest (names of missing groups,
// servers) is read from the database.

#include "config/explanation.hpp"

#include <algorithm>
#include <cctype>
#include <set>

#include "aaa/method_lists.h"
#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "config/advice.hpp"
#include "config/checks.hpp"
#include "dictionary/enum_words.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

using Step = Explanation::Step;

Step make_step(Database &database, const std::string &function, const Method &method) {
    Step step{method, {}, {}, method_works(database, function, method)};
    const Protocol *protocol = protocol_of_method(method.number);
    if (method.configured() != nullptr) {
        step.servers = method.resolved->servers;
        for (const Server &server : step.servers) {
            step.keys.push_back(read_key(database, *method.resolved, server));
        }
    } else if (protocol != nullptr) {
        step.servers = protocol_servers(database, *protocol);
        for (const Server &server : step.servers) {
            step.keys.push_back(read_key(database, settings_path(*protocol), server, *protocol));
        }
    }
    return step;
}

// Only for services whose lists the library knows; for some it looks at another path.
cerrno suitability(const Explanation &e) {
    if (!e.service.service || !e.configured) {
        return AAA_OK;
    }
    const cerrno rc = aaa_util_verify_methodlist(static_cast<int>(e.service.function),
                                                 static_cast<int>(*e.service.service), e.choice.list.c_str());
    const bool line_method = rc == AAA_ERR_INVALID_ARG && e.service.function == AAA_FUNC_AUTHEN &&
                             *e.service.service == AAA_SVC_API;
    return line_method ? rc : AAA_OK;
}

// Once for a key that several servers share.
void check_stored_keys(Database &database, const Step &step, std::set<std::string> &seen,
                       Findings &findings) {
    for (size_t i = 0; i < step.servers.size(); ++i) {
        const ServerKey &key = step.keys[i];
        const bool is_faulty = key.state == KeyState::unusable || key.state == KeyState::unprintable;
        if (is_sound(step.servers[i]) && is_faulty && seen.insert(key.path).second) {
            check_key_at(database, key.path, findings);
        }
    }
}

void look_for_faults(Database &database, Explanation &e) {
    if (e.configured) {
        check_list(database, e.list, e.findings);
    } else if (e.exists() && e.client.methods.empty()) {
        e.findings.push_back(
            {Severity::error, "empty-list", e.list.path(),
             "the list is not configured, and the one that the library supplies has no method",
             set_list("create it", e.list, {})});
    }
    std::set<std::string> seen;
    for (const Step &step : e.steps) {
        const Group *group = step.method.configured();
        const Protocol *protocol = protocol_of_method(step.method.number);
        if (group != nullptr && seen.insert(group->path).second) {
            check_group(database, *group, true, e.findings);
        } else if (protocol != nullptr && seen.insert(protocol->word).second) {
            check_servers(step.servers, e.findings);
            check_protocol_keys(database, *protocol, true, e.findings);
        }
        check_stored_keys(database, step, seen, e.findings);
    }
    if (e.suits != AAA_OK) {
        e.findings.push_back({Severity::error, "unsuitable-list", e.list.path(),
                              "it holds the method \"line\", and requests for the service " +
                                  service_name(*e.service.service) +
                                  " have no line whose password could be asked for: the library refuses it",
                              "name a list without that method"});
    }
}

// The list that the library supplies for a missing default list.
MethodList supplied_list(MethodList list, const ClientView &client) {
    for (const uint32_t method : client.methods) {
        list.places.push_back({method, {}, {}});
    }
    return list;
}

}  // namespace

std::span<const Step> Explanation::reached() const {
    if (!is_tried()) {
        return {};
    }
    const auto always_answers = [](const Step &step) { return step.method.number == AAA_METHOD_NONE; };
    // A group with the number 0 ends the list for those who look it up.
    const auto end = steps.begin() + static_cast<ptrdiff_t>(std::min(steps.size(), client.methods.size()));
    const auto last = std::find_if(steps.begin(), end, always_answers);
    return {steps.begin(), last == end ? last : last + 1};
}

Explanation make_explanation(Database &database, const ExplainOptions &options) {
    const uint32_t function = *function_number(options.function);
    Explanation e{};
    e.service = service_word(database, function, options.service);
    e.line = options.line;
    e.choice = choose_list(e.service, options.list, options.line);
    if (std::any_of(options.list.begin(), options.list.end(),
                    [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; })) {
        throw Failure(ExitCode::usage, "\"" + escaped(options.list) + "\" is not a name of a list");
    }
    const auto found = find_list(database, options.function, e.service.word, e.choice.list);
    e.configured = found.has_value();
    e.list = found.value_or(MethodList{options.function, e.service.word, e.choice.list, {}, {}, {}});
    e.client = look_up(e.list);
    if (!e.configured) {
        e.list = supplied_list(std::move(e.list), e.client);
    }
    e.suits = suitability(e);
    for (const Method &method : e.list.methods()) {
        e.steps.push_back(make_step(database, options.function, method));
    }
    e.others = list_names(database, options.function, e.service.word);
    look_for_faults(database, e);
    return e;
}

}  // namespace aaactl
