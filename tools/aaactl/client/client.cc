// SPDX-License-Identifier: Apache-2.0
//
// Options of a client, checks on them, and the meaning of replies.

#include "client/client.hpp"

#include <cstdlib>
#include <memory>

#include "dictionary/enum_words.hpp"
#include "message/list_view.hpp"
#include "platform/cerr.h"

namespace aaactl {
namespace {

constexpr size_t kMostUser = 253;
constexpr size_t kMostLine = 31;
constexpr size_t kMostAddress = 255;

void check_length(const std::string &what, const std::string &text, size_t most) {
    if (text.size() > most) {
        throw Failure(ExitCode::usage, what + ": at most " + std::to_string(most) +
                                           " characters fit into a request, not " +
                                           std::to_string(text.size()));
    }
}

Verdict verdict_of(uint32_t status) {
    switch (status) {
        case AAA_STAT_PASS:
        case AAA_STAT_BYPASS:
        case AAA_STAT_NOT_REQUIRED:
            return Verdict::accepted;
        case AAA_STAT_FAIL:
        case AAA_STAT_ABORT:
            return Verdict::denied;
        case AAA_STAT_GETUSER:
        case AAA_STAT_GETPASS:
        case AAA_STAT_GETDATA:
            return Verdict::asked;
        default:
            return Verdict::failed;  // ERROR, and statuses that decide nothing
    }
}

// A packet that answers an authorization has the list's configuration action where others have an error.
bool is_action(const Reply &reply, uint32_t type) {
    return type == AAA_REQ_AUTHOR && number_attribute(reply.list, AAA_VS_RAD_CFG_ACTION) == reply.result;
}

Style style_of(Verdict verdict) {
    return verdict == Verdict::accepted ? Style::good
           : verdict == Verdict::asked  ? Style::warning
                                        : Style::bad;
}

// The server's message to the user.
std::string message_of(const Step &step) {
    return text_attribute(step.reply.list, AAA_REPLYMSG_ATTR);
}

}  // namespace

void add_client_options(Command sub, ClientOptions &options, const std::string &service) {
    options.service = service;
    sub.flag("--session", options.session, "Send session packets instead of classic messages");
    sub.option("--service", options.service, "Service by name or number").type("NAME").shows_default();
    sub.option("--list", options.list, "Method list that the server is to use").type("NAME").shows_default();
    sub.option("--line", options.line, "Line that the user is on (default: your terminal)").type("TTY");
    sub.option("--remote-addr", options.remote_addr, "Address that the user comes from").type("ADDRESS");
    sub.option("--timeout", options.seconds, "Seconds to wait for each reply, 0 for no limit")
        .type("SECONDS")
        .between(0, 86400)
        .shows_default();
}

void check_client(const ClientOptions &options) {
    if (options.user.empty()) {
        throw Failure(ExitCode::usage, "USER is empty");
    }
    check_length("USER", options.user, kMostUser);
    check_length("--line", options.line, kMostLine);
    check_length("--remote-addr", options.remote_addr, kMostAddress);
    service_of(options);
}

int32_t service_of(const ClientOptions &options) {
    const auto service = service_number(options.service);
    if (!service) {
        std::string names;
        for (const std::string &name : service_names()) {
            names += (names.empty() ? "" : ", ") + name;
        }
        throw Failure(ExitCode::usage, "\"" + escaped(options.service) + "\" is not a service; use " + names +
                                           ", or a number from 1 to 31");
    }
    return static_cast<int32_t>(*service);
}

Credentials::Credentials(ClientOptions &options) {
    const auto text_or_null = [](std::string &text) { return text.empty() ? nullptr : text.data(); };
    record_.username = options.user.data();
    record_.ttyname = text_or_null(options.line);
    record_.tty_mnemonic = text_or_null(options.line);
    record_.remote_addr = text_or_null(options.remote_addr);
    given_addr_ = record_.remote_addr;
}

Credentials::~Credentials() {
    if (record_.remote_addr != given_addr_) {
        std::free(record_.remote_addr);
    }
}

void judge(Step &step, uint32_t type) {
    if (step.reply.result != AAA_OK && !is_action(step.reply, type)) {
        step.verdict = Verdict::failed;
        return;
    }
    const auto status = number_attribute(step.reply.list, AAA_STATUS_ATTR);
    if (!status || !status_name(*status)) {
        throw Failure(ExitCode::bad_input, "malformed reply to " + step.request + ": " +
                                               (status ? std::to_string(*status) + " is not a status"
                                                       : std::string("it has no status")));
    }
    step.status = *status;
    step.has_status = true;
    step.verdict = verdict_of(*status);
}

void judge_record(Step &step) {
    step.verdict = step.reply.result == AAA_OK ? Verdict::accepted : Verdict::failed;
}

ExitCode exit_code(Verdict verdict) {
    return verdict == Verdict::accepted ? ExitCode::ok
           : verdict == Verdict::failed ? ExitCode::failed
                                        : ExitCode::negative;
}

std::string verdict_word(Verdict verdict) {
    return verdict == Verdict::accepted ? "accepted" : verdict == Verdict::failed ? "failed" : "denied";
}

std::string outcome(const Step &step) {
    if (step.has_status) {
        return *status_name(step.status);
    }
    if (step.reply.result == AAA_OK) {
        return step.verdict == Verdict::accepted ? "recorded" : "no status";
    }
    return std::string("not processed: ") + escaped(cerr_strerror(step.reply.result));
}

Json step_json(const Output &out, const Step &step) {
    Json document = {{"request", step.request}, {"subject", escaped(step.subject)}};
    document["result"] = {{"code", step.reply.result}, {"text", escaped(cerr_strerror(step.reply.result))}};
    if (step.has_status) {
        document["status"] = {{"number", step.status}, {"name", *status_name(step.status)}};
        document["message"] = escaped(message_of(step));
    }
    document["attributes"] = attributes_json(out, step.reply.list.native());
    return document;
}

Json client_json(const ClientOptions &options) {
    return {{"server", escaped(options.socket)},
            {"user", escaped(options.user)},
            {"service", escaped(options.service)},
            {"form", options.session ? "session" : "classic"}};
}

void print_step(Output &out, const Step &step) {
    out.line(out.styled(Style::strong, step.request) + " of " + escaped(step.subject));
    print_attributes(out, step.reply.list.native());
    const std::string message = message_of(step);
    out.line("  => " + out.styled(style_of(step.verdict), outcome(step)) +
             (message.empty() ? "" : ", \"" + escaped(message) + "\""));
    out.line("");
}

}  // namespace aaactl
