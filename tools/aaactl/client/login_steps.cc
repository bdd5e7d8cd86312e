// SPDX-License-Identifier: Apache-2.0

#include "client/login_steps.hpp"

#include <utility>

#include "cli/secret_input.hpp"

namespace aaactl {
namespace {

// Without a limit, a server that keeps asking would block a script for ever.
constexpr int kMostQuestions = 16;

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

}  // namespace

// The login and the commands are different questions: a refused command denies no login.
std::string verdict_text(const Output &out, const LoginOptions &options, const std::vector<Step> &steps) {
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
    return text;
}

void add_verdict(Json &document, Verdict verdict, const std::vector<Step> &steps) {
    document["verdict"] = verdict_word(verdict);
    document["login"] = verdict_word(login_verdict(steps));
    document["refused_commands"] = Json::array();
    for (const Step *step : refused_commands(steps)) {
        document["refused_commands"].push_back(escaped(step->subject));
    }
}

Login::Login(LoginOptions &options, std::vector<Step> &steps, OnStep on_step)
    : options_(options),
      steps_(steps),
      on_step_(std::move(on_step)),
      exchange_(options.socket, options.seconds, options.session) {}

Login::~Login() {
    wipe(password_);
}

Verdict Login::run() {
    if (!options_.no_password) {
        ask_password();
    }
    Verdict verdict = authenticate();
    if (verdict != Verdict::accepted) {
        return verdict;  // there is no user to authorize
    }
    for (const std::string &command : options_.commands) {
        const Verdict one = authorize(command);
        verdict = verdict == Verdict::accepted ? one : verdict;
    }
    return verdict;
}

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
    cred->state_args = state_.native();
    return exchange_.ask(AAA_REQ_AUTHEN, [&](Composition &c) {
        return aaa_util_msg_authen_compose(&c.record, AAA_AO_ASCII_LOGIN, service_of(options_),
                                           options_.list.c_str(), 0, cred.get(), nullptr, nullptr, &c.iov,
                                           &c.count, c.buffer, sizeof c.buffer, nullptr, c.session);
    });
}

void Login::keep_state(const aaa::list &list) {
    state_ = {};
    const aaa::result<aaa::attribute> state = list.find(AAA_RADIUS_STATE_ATTR);
    if (!state) {
        return;
    }
    aaa::result<aaa::list> kept = aaa::list::create("state");
    const cerrno rc = kept ? kept->add(AAA_RADIUS_STATE_ATTR, state->value()).code() : kept.code();
    if (rc != AAA_OK) {
        throw Failure("the server's state could not be kept", rc);
    }
    state_ = *std::move(kept);
}

namespace {

// The server's prompt or message; `otherwise` if it sent none.
std::string question(const Step &step, const char *otherwise) {
    for (const uint32_t type : {AAA_PROMPT_ATTR, AAA_REPLYMSG_ATTR}) {
        const std::string text = text_attribute(step.reply.list, type);
        if (!text.empty()) {
            return escaped(text) + ' ';
        }
    }
    return otherwise;
}

}  // namespace

// A new name needs a new password. False at the end of the input.
bool Login::answer(const Step &step) {
    const bool echo = number_attribute(step.reply.list, AAA_PROMPT_ECHO_ATTR) == 1u;
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
    keep_state(step.reply.list);
    return true;
}

Step &Login::judged(Step step, uint32_t type) {
    steps_.push_back(std::move(step));
    judge(steps_.back(), type);
    if (on_step_) {
        on_step_(steps_.back());
    }
    return steps_.back();
}

Verdict Login::authenticate() {
    for (int asked = 0; asked <= kMostQuestions; ++asked) {
        Step &step = judged({"authentication", options_.user, request_authentication()}, AAA_REQ_AUTHEN);
        if (step.verdict != Verdict::asked || !answer(step)) {
            return step.verdict;
        }
    }
    throw Failure(ExitCode::failed, escaped(options_.socket) + ": the server has asked " +
                                        std::to_string(kMostQuestions) + " questions without a decision");
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
    return judged({"authorization", text.c_str(), std::move(reply)}, AAA_REQ_AUTHOR).verdict;
}

}  // namespace aaactl
