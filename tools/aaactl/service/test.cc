// SPDX-License-Identifier: Apache-2.0
//
// test: a login at the running service, with each step that the service takes.

#include <algorithm>
#include <memory>
#include <utility>

#include "cli/commands.hpp"
#include "client/login_steps.hpp"
#include "service/control_client.hpp"
#include "service/steps.hpp"

namespace aaactl {
namespace {

struct TestOptions : LoginOptions {
    ControlOptions control;
};

class Test {
  public:
    Test(Output &out, TestOptions &options)
        : out_(out), options_(options), control_(options.control), printer_(out) {}

    ExitCode run();

  private:
    void collect();
    void show(const Step &step);
    Json document(std::optional<Verdict> verdict) const;

    Output &out_;
    TestOptions &options_;
    ControlClient control_;
    StepPrinter printer_;
    std::vector<Json> events_;
    std::vector<Step> steps_;
};

// The answer to a later request on the same connection follows all steps until then.
void Test::collect() {
    control_.send({{"version", 1}, {"request", "status"}});
    for (;;) {
        const Json line = control_.event_or_reply("status");
        if (text_of(line, "reply") == "status") {
            return;
        }
        if (text_of(line, "event") == "step") {
            events_.push_back(line);
            if (!out_.json()) {
                printer_.print(line);
            }
        }
    }
}

void Test::show(const Step &step) {
    collect();
    if (!out_.json()) {
        out_.line("");
        print_step(out_, step);
    }
}

Json Test::document(std::optional<Verdict> verdict) const {
    Json document = client_json(options_);
    if (verdict) {
        add_verdict(document, *verdict, steps_);
    }
    document["steps"] = Json::array();
    for (const Step &step : steps_) {
        document["steps"].push_back(step_json(out_, step));
    }
    document["trace"] = Json::array();
    for (const Json &event : events_) {
        document["trace"].push_back(shown(event));
    }
    return document;
}

ExitCode Test::run() {
    options_.socket = text_of(control_.ask("status"), "socket");
    control_.send({{"version", 1}, {"request", "trace"}, {"mine", true}});
    control_.reply("trace");
    Verdict verdict = Verdict::failed;
    try {
        verdict = Login(options_, steps_, [this](const Step &step) { show(step); }).run();
    } catch (const Failure &failure) {
        throw failure.with(document(std::nullopt));
    }
    out_.result(document(verdict), [&] {
        const std::string id = events_.empty() ? "" : text_of(events_.back(), "id");
        out_.line(verdict_text(out_, options_, steps_) +
                  (id.empty() ? "" : "; log lines of it: journalctl AAA_LOGIN_ID=" + escaped(id)));
    });
    return exit_code(verdict);
}

ExitCode run_test(Output &out, TestOptions &options) {
    check_client(options);
    options.control.seconds = std::min(options.control.seconds, options.seconds);
    return Test(out, options).run();
}

}  // namespace

void add_test(Command root) {
    auto options = std::make_shared<TestOptions>();
    options->service = "login";
    Command sub = root.command("test", "Log a user in at the running service, and show each step on the way",
                               [options](Output &out) { return run_test(out, *options); });
    sub.option("USER", options->user, "User name").required();
    sub.option("--service", options->service, "Service by name or number").type("NAME").shows_default();
    sub.option("--list", options->list, "Method list that the service is to use")
        .type("NAME")
        .shows_default();
    sub.option("--line", options->line, "Line that the user is on (default: your terminal)").type("TTY");
    sub.option("--remote-addr", options->remote_addr, "Address that the user comes from").type("ADDRESS");
    sub.option("--command", options->commands, "Then ask whether this command may run; may be repeated")
        .type("COMMAND")
        .type("COMMAND")
        .one_value_each();
    sub.flag("--no-password", options->no_password, "Send no password until the service asks for one");
    sub.option("--socket", options->control.socket, "The control socket of the service")
        .type("PATH")
        .shows_default();
    sub.option("--timeout", options->seconds, "Seconds to wait for each answer of the login")
        .type("SECONDS")
        .between(1, 86400)
        .shows_default();
    sub.footer(
        "The password is asked for without echo, or is the first line of standard input. A wrong one counts "
        "for the\n"
        "lock-out like any other, and servers see the login. Nothing is recorded, no session begins.\n"
        "Exit status: 0 accepted, 1 denied, 5 no service or no answer, 6 the service could not decide.\n"
        "JSON: as of \"login\", with trace: events as of \"trace\".\n"
        "Example: aaactl test alice --command 'show version' < password");
}

}  // namespace aaactl
