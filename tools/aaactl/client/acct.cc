// SPDX-License-Identifier: Apache-2.0
//
// acct: sends an accounting record to an AAA server.

#include <map>
#include <memory>

#include "cli/commands.hpp"
#include "client/client.hpp"

namespace aaactl {
namespace {

const std::map<std::string, uint32_t> kRecords = {
    {"start", AAA_ACCT_START_OPT}, {"stop", AAA_ACCT_STOP_OPT}, {"update", AAA_ACCT_UPDATE_OPT}};

struct AcctOptions : ClientOptions {
    std::string record;
    std::string command;
    uint32_t session_id = 1;
};

Reply send_record(AcctOptions &options, Exchange &exchange) {
    std::string command = options.command;  // a copy: the library masks passwords in it
    Credentials cred(options);
    aaa_svc_attrs_t attrs{};
    attrs.cmd = command.data();
    return exchange.ask(AAA_REQ_ACCT, [&](Composition &c) {
        return aaa_util_msg_acct_compose(&c.record, kRecords.at(options.record), service_of(options),
                                         options.list.c_str(), 0, cred.get(), &attrs, options.session_id,
                                         &c.iov, &c.count, c.buffer, sizeof c.buffer, nullptr, c.session);
    });
}

// The attributes of an update; the library adds the time. Service and list say where it is kept.
aaa::list update_list(AcctOptions &options) {
    Credentials cred(options);
    aaa::result<aaa::list> made = aaa::list::create("Accounting Update");
    cerrno rc = made.code();
    if (rc == AAA_OK) {
        rc = aaa_util_add_usercred_in_avlist(cred.get(), made->native(), service_of(options), 0,
                                             AAA_ACCT_UPDATE_OPT);
    }
    if (rc == AAA_OK) {
        rc = made->add(AAA_SERVICE_TYPE_ATTR, static_cast<uint32_t>(service_of(options))).code();
    }
    if (rc == AAA_OK) {
        rc = made->add(AAA_METHODLIST_ATTR, options.list).code();
    }
    if (rc != AAA_OK) {
        throw Failure("the record could not be created", rc);
    }
    return *std::move(made);
}

Reply send_update(AcctOptions &options, Exchange &exchange) {
    aaa::list list = update_list(options);
    unsigned char block[64] = {};
    return exchange.ask(AAA_REQ_ACCT_UPDATE, [&](Composition &c) {
        const cerrno rc =
            aaa_util_msg_acct_update_compose(&c.record, &options.session_id, block, list.native(), &c.iov,
                                             &c.count, c.buffer, sizeof c.buffer, c.session);
        if (rc == AAA_OK && c.session != 0) {
            (void)list.release();  // owned by the packet now
        }
        return rc;
    });
}

Step record(AcctOptions &options) {
    Exchange exchange(options.socket, options.seconds, options.session);
    Step step{"accounting " + options.record, options.user,
              options.record == "update" ? send_update(options, exchange) : send_record(options, exchange)};
    judge_record(step);
    return step;
}

ExitCode run(Output &out, AcctOptions &options) {
    check_client(options);
    Json document = client_json(options);
    document["session_id"] = options.session_id;
    try {
        const Step step = record(options);
        document["verdict"] = verdict_word(step.verdict);
        document["steps"] = Json::array({step_json(out, step)});
        out.result(document, [&] { print_step(out, step); });
        return exit_code(step.verdict);
    } catch (const Failure &failure) {
        document["steps"] = Json::array();  // no readable reply
        throw failure.with(document);
    }
}

}  // namespace

void add_acct(Command root) {
    auto options = std::make_shared<AcctOptions>();
    Command sub = root.command("acct", "Send an accounting record to an AAA server and print the reply",
                               [options](Output &out) { return run(out, *options); });
    sub.option("SOCKET", options->socket, "The server's socket").required();
    sub.option("RECORD", options->record, "start, stop or update")
        .required()
        .one_of({"start", "stop", "update"});
    sub.option("USER", options->user, "User name").required();
    add_client_options(sub, *options, "exec");
    sub.option("--session-id", options->session_id, "Number that all records of a session have in common")
        .type("NUMBER")
        .shows_default();
    sub.option("--command", options->command, "Command to record, for the services cmd and rcmd")
        .type("COMMAND");
    sub.footer(
        "Exit status: 0 recorded, 3 malformed reply, 5 no server or no reply, 6 the server did not record "
        "it.\n"
        "JSON: {server, user, service, form, session_id, verdict, steps: [{request, subject, result, "
        "attributes:\npairs as of \"decode\"}]}; after a failure, \"error\" replaces \"verdict\".\n"
        "Example: aaactl acct /run/aaa/aaad.sock start alice --session-id 4711 --line vty0");
}

}  // namespace aaactl
