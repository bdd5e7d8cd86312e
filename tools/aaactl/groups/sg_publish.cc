// SPDX-License-Identifier: Apache-2.0
//
// sg publish: gives every configured group the number by which programs ask for it. The numbers are
// operational data and do not survive a reboot.

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

// Also of a group that has a number: the entry that leads from the number to the name may be missing.
void publish(Database &database, const Group &group, Published &published) {
    try {
        verify_group(group.protocol, group.name, AAA_CFG_OP_CREATE);
        uint32_t number = 0;
        if (const cerrno rc = change_number(database, group.protocol, group.name, AAA_CFG_OP_CREATE, number);
            rc != AAA_OK) {
            throw Failure(database_failure("", rc).code(),
                          "server group " + escaped(group.name) + ": refused: " + escaped(cerr_strerror(rc)));
        }
        const bool is_new = group.number != number;
        published.groups.push_back({{"protocol", group.protocol.word},
                                    {"name", escaped(group.name)},
                                    {"number", number},
                                    {"new", is_new}});
        published.rows.push_back(
            {group.protocol.word, escaped(group.name), std::to_string(number), is_new ? "new" : ""});
    } catch (const Failure &failure) {
        if (failure.code() == ExitCode::unavailable) {
            throw;  // as it will be for every other group
        }
        published.refused.push_back(failure);
    }
}

ExitCode publish_all(Output &out) {
    Database database;
    Published published;
    for (const Protocol &protocol : kProtocols) {
        for (const Group &group : read_groups(database, protocol)) {
            if (group.configured) {
                publish(database, group, published);
            }
        }
    }
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
        "the same when it starts and when a group is configured. A group that has a number keeps it.\n"
        "Exit status 1: a group was refused; the others have numbers.\n"
        "JSON: {groups: [{protocol, name, number, new}], faults: [text] if any}\n"
        "Example: aaactl sg publish");
}

}  // namespace aaactl
