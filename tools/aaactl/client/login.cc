// SPDX-License-Identifier: Apache-2.0
//
// login: authenticates a user at an AAA server.

#include <memory>

#include "cli/commands.hpp"
#include "client/login_steps.hpp"

namespace aaactl {
namespace {

Json document(const Output &out, const LoginOptions &options, const std::vector<Step> &steps,
              std::optional<Verdict> verdict) {
    Json document = client_json(options);
    if (verdict) {
        add_verdict(document, *verdict, steps);
    }
    document["steps"] = Json::array();
    for (const Step &step : steps) {
        document["steps"].push_back(step_json(out, step));
    }
    return document;
}

void print_steps(Output &out, const std::vector<Step> &steps) {
    for (const Step &step : steps) {
        print_step(out, step);
    }
}

ExitCode run(Output &out, LoginOptions &options) {
    check_client(options);
    std::vector<Step> steps;
    Verdict verdict = Verdict::failed;
    try {
        verdict = Login(options, steps).run();
    } catch (const Failure &failure) {
        if (!out.json()) {
            print_steps(out, steps);
        }
        throw failure.with(document(out, options, steps, std::nullopt));
    }
    out.result(document(out, options, steps, verdict), [&] {
        print_steps(out, steps);
        out.line(verdict_text(out, options, steps));
    });
    return exit_code(verdict);
}

}  // namespace

void add_login(Command root) {
    auto options = std::make_shared<LoginOptions>();
    Command sub = root.command("login", "Authenticate a user at an AAA server and print the replies",
                               [options](Output &out) { return run(out, *options); });
    sub.option("SOCKET", options->socket, "The server's socket").required();
    sub.option("USER", options->user, "User name").required();
    add_client_options(sub, *options, "login");
    sub.option("--authorize", options->commands, "Then ask whether this command may run; may be repeated")
        .type("COMMAND")
        .one_value_each();
    sub.flag("--no-password", options->no_password, "Send no password until the server asks for one");
    sub.footer(
        "The password is asked for without echo, or is the first line of standard input. Further questions "
        "of "
        "the\n"
        "server (GETUSER, GETPASS, GETDATA) are passed on likewise, or answered with the lines that follow.\n"
        "Exit status: 0 accepted, 1 denied, 3 malformed reply, 5 no server or no reply, 6 the server could "
        "not\n"
        "process it. The exit status and \"verdict\" are those of the login and all commands together, "
        "\"login\" is "
        "that of\nthe login alone. JSON: {server, user, service, form, verdict, login, refused_commands, "
        "steps: [{request, subject, result, "
        "status,\n"
        "message, attributes: pairs as of \"decode\"}]}; after a failure, \"error\" replaces "
        "\"verdict\", with\nthe steps so far.\n"
        "Example: aaactl login /run/aaa/aaad.sock alice --authorize 'show version' < password");
}

}  // namespace aaactl
