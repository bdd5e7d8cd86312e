// SPDX-License-Identifier: Apache-2.0
//
// Reads the configuration, and asks the service. Without a service the report shows what is
// stored.

#include "report/facts.hpp"

#include <unistd.h>

#include <array>
#include <ctime>

namespace aaactl {
namespace {

std::string host_name() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

ReportedList read_list(Database &database, const std::string &function, const std::string &service,
                       const std::string &name) {
    ReportedList list{function + " " + service + " " + name, {}, {}};
    try {
        list.explanation = make_explanation(database, {function, service, name, ""});
    } catch (const Failure &failure) {  // one list that cannot be read does not cost the report
        list.defect = failure.what();
    }
    return list;
}

void read_lists(Database &database, Facts &facts) {
    for (const std::string &function : list_functions()) {
        for (const std::string &service : service_words(database, function)) {
            for (const std::string &name : list_names(database, function, service)) {
                facts.lists.push_back(read_list(database, function, service, name));
            }
        }
    }
}

void read_all_groups(Database &database, Facts &facts) {
    for (const Protocol &protocol : kProtocols) {
        for (Group &group : read_groups(database, protocol)) {
            ReportedGroup one{std::move(group), {}};
            for (const Server &server : one.group.servers) {
                one.keys.push_back(read_key(database, one.group, server));
            }
            facts.groups.push_back(std::move(one));
        }
    }
}

// What was read before a failure is dropped: half a configuration would be taken for all of it.
void read_configuration(Facts &facts) {
    try {
        Facts read;
        {
            Database database(Database::Use::reading);
            read_all_groups(database, read);
            read_lists(database, read);
            read.history = read_history(database);
        }
        read.checked = lint_configuration();
        facts.groups = std::move(read.groups);
        facts.lists = std::move(read.lists);
        facts.history = std::move(read.history);
        facts.checked = std::move(read.checked);
    } catch (const Failure &failure) {
        facts.no_database = failure.what();
        facts.database = failure.code();
    }
}

void ask_service(const ControlOptions &options, Facts &facts) {
    try {
        ControlClient client(options);
        Json status = client.ask("status");
        facts.servers = client.ask("servers");
        facts.status = std::move(status);
    } catch (const Failure &failure) {
        facts.status = facts.servers = Json();
        facts.no_service = failure.what();
    }
}

}  // namespace

Facts gather_facts(const ControlOptions &options) {
    Facts facts;
    facts.host = host_name();
    facts.time = date_and_time(static_cast<uint64_t>(std::time(nullptr)));
    read_configuration(facts);
    ask_service(options, facts);
    forget_log_lines();  // what the lookups reported is among the findings
    return facts;
}

}  // namespace aaactl
