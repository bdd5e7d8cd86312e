// SPDX-License-Identifier: Apache-2.0
//
// sg publish: gives every configured group the number by which programs ask for it. The numbers are
// operational data and do not survive a reboot.

#include <optional>

#include "aaa/result_codes.h"
#include "aaa/server_groups.h"
#include "groups/sg.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

struct Published {
    Json groups = Json::array();
    std::vector<std::vector<std::string>> rows;
    std::vector<Failure> refused;
};

std::vector<Group> configured_groups(Database &database) {
    std::vector<Group> groups;
    for (const Protocol &protocol : kProtocols) {
        for (Group &group : read_groups(database, protocol)) {
            if (group.configured) {
                groups.push_back(std::move(group));
            }
        }
    }
    return groups;
}

// The library's reason against the group, if it has one.
std::optional<Failure> refusal(const Group &group) {
    try {
        verify_group(group.protocol, group.name, AAA_CFG_OP_CREATE);
    } catch (const Failure &failure) {
        if (failure.code() == ExitCode::unavailable) {
            throw;  // as it will be for every other group
        }
        return failure;
    }
    return std::nullopt;
}

// Also groups that have a number: the entry that leads from the number to the name may be missing, or the
// number may belong to another group.
Published publish(Database &database, const std::vector<Group> &groups) {
    std::vector<std::optional<Failure>> refused;
    std::vector<group_numbers::Group> accepted;
    for (const Group &group : groups) {
        refused.push_back(refusal(group));
        if (!refused.back()) {
            accepted.push_back({group.protocol.word, group.name});
        }
    }
    const std::vector<group_numbers::Number> numbers = publish_numbers(database, accepted);
    Published published;
    for (size_t i = 0, next = 0; i < groups.size(); ++i) {
        const Group &group = groups[i];
        const auto number = refused[i] ? group_numbers::Number{} : numbers[next++];
        if (number.rc != AAA_OK) {
            // A group of this change may have taken the name, which the library then says.
            refused[i] = refusal(group).value_or(number_failure(group.name, number));
        }
        if (refused[i]) {
            published.refused.push_back(*refused[i]);
            continue;
        }
        published.groups.push_back({{"protocol", group.protocol.word},
                                    {"name", escaped(group.name)},
                                    {"number", number.number},
                                    {"new", number.is_new}});
        published.rows.push_back({group.protocol.word, escaped(group.name), std::to_string(number.number),
                                  number.is_new ? "new" : ""});
    }
    return published;
}

ExitCode publish_all(Output &out) {
    Database database;
    const Published published = publish(database, configured_groups(database));
    Json faults = Json::array();
    for (const Failure &failure : published.refused) {
        faults.push_back(failure.what());
    }
    Json document{{"groups", published.groups}};
    if (!published.refused.empty()) {
        document["faults"] = faults;
    }
    out.result(document, [&] { out.table({"PROTOCOL", "NAME", "NUMBER", ""}, published.rows); });
    for (const Failure &failure : published.refused) {
        out.note("aaactl: " + std::string(failure.what()));
    }
    return published.refused.empty() ? ExitCode::ok : ExitCode::negative;
}

}  // namespace

void add_sg_publish(Command sg) {
    Command sub = sg.command("publish", "Number all server groups, as programs that ask the library need it",
                             publish_all);
    sub.footer(
        "Numbers do not survive a reboot. The unit aaa-groups.service runs this command at boot; aaad does\n"
        "the same when it starts and when a group is configured. A group that has a number keeps it, unless\n"
        "it belongs to another group, is damaged or out of range: then the group gets a new one.\n"
        "Exit status 1: a group was refused; the others have numbers.\n"
        "JSON: {groups: [{protocol, name, number, new}], faults: [text] if any}\n"
        "Example: aaactl sg publish");
}

}  // namespace aaactl
