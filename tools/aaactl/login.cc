// SPDX-License-Identifier: Apache-2.0
//
// login: authenticates a user at an AAA server, answers what the server asks
// on the way, and asks it whether commands may run.

#include <memory>
#include <nlohmann/json.hpp>

#include "client.hpp"
#include "commands.hpp"
#include "secret_input.hpp"

namespace aaactl {
namespace {

// A server that asks for ever would keep a script for ever.
constexpr int kMostQuestions = 16;

struct LoginOptions : ClientOptions {
    std::vector<std::string> commands;
    bool no_password = false;
};

class Login {
  public:
    explicit Login(LoginOptions &options)
        : options_(options), exchange_(options.socket, options.seconds, options.session) {}
    ~Login() { wipe(password_); }
    Login(const Login &) = delete;
    Login &operator=(const Login &) = delete;

    Verdict run() {
        if (!options_.no_password) {
            ask_password();
        }
        Verdict verdict = authenticate();
        if (verdict != Verdict::accepted) {
            return verdict;  // nobody is there who could run anything
        }
        for (const std::string &command : options_.commands) {
            const Verdict one = authorize(command);
            verdict = verdict == Verdict::accepted ? one : verdict;
        }
        return verdict;
    }

    const std::vector<Step> &steps() const { return steps_; }

  private:
    void ask_password();
    Verdict authenticate();
    Verdict authorize(const std::string &command);
    Reply request_authentication();
    bool answer(const Step &step);
    void keep_state(const avlist *list);

    LoginOptions &options_;
    Exchange exchange_;
    std::string password_;
    ListPtr state_;  // what the server wants to see again with the answer
    std::vector<Step> steps_;
};

void Login::ask_password() {
    auto password = read_answer("Password: ", false);
    if (!password) {
        throw Failure(ExitCode::usage, "standard input: no password (--no-password sends none)");
    }
    password_ = *password;
    wipe(*password);
}

Reply Login::request_authentication() {
    Credentials cred(options_);
    cred->password = password_.empty() ? nullptr : password_.data();
    cred->state_args = state_.get();
    return exchange_.ask(AAA_REQ_AUTHEN, [&](Composition &c) {
        return aaa_util_msg_authen_compose(&c.record, AAA_AO_ASCII_LOGIN, service_of(options_),
                                           options_.list.c_str(), 0, cred.get(), nullptr, nullptr, &c.iov,
                                           &c.count, c.buffer, sizeof c.buffer, nullptr, c.session);
    });
}

void Login::keep_state(const avlist *list) {
    state_.reset();
    uint32_t len = 0;
    aaa_util_avlist_value_copy(list, AAA_RADIUS_STATE_ATTR, 0, nullptr, 0, &len);
    std::string state(len, '\0');
    avlist *kept = nullptr;
    if (aaa_util_avlist_value_copy(list, AAA_RADIUS_STATE_ATTR, 0, state.data(), state.size(), &len) !=
            AAA_OK ||
        aaa_avpair_create_list("state", &kept) != AAA_OK) {
        return;
    }
    state_.reset(kept);
    const cerrno rc = aaa_util_avpair_add_attr(kept, AAA_RADIUS_STATE_ATTR, state.data(), len, 0);
    if (rc != AAA_OK) {
        throw Failure("the server's state could not be kept", rc);
    }
}

// The server's own words where it has some.
std::string question(const Step &step, const char *otherwise) {
    for (const uint32_t type : {AAA_PROMPT_ATTR, AAA_REPLYMSG_ATTR}) {
        const std::string text = text_attribute(step.reply.list.get(), type);
        if (!text.empty()) {
            return escaped(text) + ' ';
        }
    }
    return otherwise;
}

// A new name comes with a password of its own. False when nobody answers.
bool Login::answer(const Step &step) {
    const bool echo = number_attribute(step.reply.list.get(), AAA_PROMPT_ECHO_ATTR) == 1u;
    if (step.status == AAA_STAT_GETUSER) {
        const auto user = read_answer(question(step, "User name: "), true);
        if (!user || user->empty()) {
            return false;
        }
        options_.user = *user;
        check_client(options_);
    }
    auto secret = read_answer(step.status == AAA_STAT_GETDATA ? question(step, "Answer: ") : "Password: ",
                              echo && step.status == AAA_STAT_GETDATA);
    if (!secret) {
        return false;
    }
    wipe(password_);
    password_ = *secret;
    wipe(*secret);
    keep_state(step.reply.list.get());
    return true;
}

Verdict Login::authenticate() {
    for (int asked = 0; asked <= kMostQuestions; ++asked) {
        Step step{"authentication", options_.user, request_authentication()};
        judge(step, AAA_REQ_AUTHEN);
        steps_.push_back(std::move(step));
        if (steps_.back().verdict != Verdict::asked || !answer(steps_.back())) {
            return steps_.back().verdict;
        }
    }
    throw Failure(ExitCode::failed, escaped(options_.socket) + ": the server has asked " +
                                        std::to_string(kMostQuestions) + " questions and does not decide");
}

// The text is a copy: the library masks passwords in it.
Verdict Login::authorize(const std::string &command) {
    std::string text = command;
    Credentials cred(options_);
    aaa_svc_attrs_t attrs{};
    attrs.cmd = text.data();
    Reply reply = exchange_.ask(AAA_REQ_AUTHOR, [&](Composition &c) {
        return aaa_util_msg_author_compose(&c.record, AAA_AO_ASCII_LOGIN, AAA_SVC_CMD, options_.list.c_str(),
                                           0, cred.get(), &attrs, &c.iov, &c.count, c.buffer, sizeof c.buffer,
                                           nullptr, c.session);
    });
    Step step{"authorization", text.c_str(), std::move(reply)};
    judge(step, AAA_REQ_AUTHOR);
    steps_.push_back(std::move(step));
    return steps_.back().verdict;
}

Json document(const Output &out, const LoginOptions &options, const Login &login, Verdict verdict) {
    Json steps = Json::array();
    for (const Step &step : login.steps()) {
        steps.push_back(step_json(out, step));
    }
    return {{"server", escaped(options.socket)},   {"user", escaped(options.user)},
            {"service", escaped(options.service)}, {"form", options.session ? "session" : "classic"},
            {"verdict", verdict_word(verdict)},    {"steps", std::move(steps)}};
}

void print_steps(Output &out, const Login &login) {
    for (const Step &step : login.steps()) {
        print_step(out, step);
    }
}

ExitCode run(Output &out, LoginOptions &options) {
    check_client(options);
    Login login(options);
    Verdict verdict = Verdict::failed;
    try {
        verdict = login.run();
    } catch (const Failure &) {
        if (!out.json()) {
            print_steps(out, login);  // what had been answered until then
        }
        throw;
    }
    out.result(document(out, options, login, verdict), [&] {
        print_steps(out, login);
        out.line(escaped(options.user) + ": " +
                 out.styled(verdict == Verdict::accepted ? Style::good : Style::bad, verdict_word(verdict)));
    });
    return exit_code(verdict);
}

}  // namespace

void add_login(Program &program) {
    auto options = std::make_shared<LoginOptions>();
    CLI::App *sub =
        program.command(&program.app, "login", "Authenticate a user at an AAA server and print the replies",
                        [options](Output &out) { return run(out, *options); });
    sub->add_option("SOCKET", options->socket, "The server's socket")->required();
    sub->add_option("USER", options->user, "User name")->required();
    add_client_options(sub, *options, "login");
    sub->add_option("--authorize", options->commands,
                    "Then ask whether this command may run; may be repeated")
        ->type_name("COMMAND")
        ->allow_extra_args(false);
    sub->add_flag("--no-password", options->no_password, "Send no password until the server asks for one");
    sub->footer(
        "The password is asked for without echo, or is the first line of standard input; what the server "
        "asks\n"
        "besides (GETUSER, GETPASS, GETDATA) is asked for likewise, or taken from the lines that follow.\n"
        "Exit status: 0 accepted, 1 denied, 3 malformed reply, 5 no server or no reply, 6 the server could "
        "not\n"
        "process it. JSON: {server, user, service, form, verdict, steps: [{request, subject, result, "
        "status,\n"
        "message, attributes}]}\n"
        "Example: aaactl login /run/aaa/server.sock alice --authorize 'show version' < password");
}

}  // namespace aaactl
