// SPDX-License-Identifier: Apache-2.0
//
// login: authenticates a user at an AAA server.

#include <memory>

#include "cli/commands.hpp"
#include "client/login_steps.hpp"

namespace aaactl {
namespace {

bool is_login(const Step &step) {
    return step.request == "authentication";
}

// Of the login by itself: the last of its rounds decides.
Verdict login_verdict(const std::vector<Step> &steps) {
    Verdict verdict = Verdict::failed;
    for (const Step &step : steps) {
        verdict = is_login(step) ? step.verdict : verdict;
    }
    return verdict;
}

std::vector<const Step *> refused_commands(const std::vector<Step> &steps) {
    std::vector<const Step *> refused;
    for (const Step &step : steps) {
        if (!is_login(step) && step.verdict != Verdict::accepted) {
            refused.push_back(&step);
        }
    }
    return refused;
}

Json document(const Output &out, const LoginOptions &options, const std::vector<Step> &steps,
              std::optional<Verdict> verdict) {
    Json document = client_json(options);
    if (verdict) {
        document["verdict"] = verdict_word(*verdict);
        document["login"] = verdict_word(login_verdict(steps));
        document["refused_commands"] = Json::array();
        for (const Step *step : refused_commands(steps)) {
            document["refused_commands"].push_back(escaped(step->subject));
        }
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

// The login and the commands are different questions: a refused command denies no login.
void print_verdict(Output &out, const LoginOptions &options, const std::vector<Step> &steps) {
    const Verdict verdict = login_verdict(steps);
    const auto refused = refused_commands(steps);
    std::string text =
        escaped(options.user) + ": " +
        out.styled(verdict == Verdict::accepted ? Style::good : Style::bad, verdict_word(verdict));
    if (!refused.empty()) {
        text += "; " +
                out.styled(Style::bad, std::to_string(refused.size()) + " of " +
                                           std::to_string(options.commands.size()) + " commands") +
                ": ";
        for (const Step *step : refused) {
            text += (step == refused.front() ? "" : ", ") + escaped(step->subject) + " " +
                    verdict_word(step->verdict);
        }
    }
    out.line(text);
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
        print_verdict(out, options, steps);
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
        "Example: aaactl login /run/aaa/server.sock alice --authorize 'show version' < password");
}

}  // namespace aaactl
