// SPDX-License-Identifier: Apache-2.0
//
// Methods whose answer needs no lookup.

#include <utility>

#include "backends/local.hpp"
#include "backends/password_change.hpp"
#include "base/log.hpp"

namespace service {

namespace {

using Answer = Outcome (*)(const Question &);

struct Answers {
    Answer authenticate, authorize, account;
};

class SimpleBackend : public Backend {
  public:
    SimpleBackend(net::Loop &loop, Answers answers) : loop_(loop), answers_(answers) {}

    std::unique_ptr<Attempt> authenticate(const Question &question, std::shared_ptr<Dialogue>,
                                          Done done) override {
        return answer_soon(loop_, answers_.authenticate(question), std::move(done));
    }
    std::unique_ptr<Attempt> authorize(const Question &question, Done done) override {
        return answer_soon(loop_, answers_.authorize(question), std::move(done));
    }
    std::unique_ptr<Attempt> account(const Question &question, Done done) override {
        return answer_soon(loop_, answers_.account(question), std::move(done));
    }
    bool is_remote() const override { return false; }

  private:
    net::Loop &loop_;
    Answers answers_;
};

Outcome accept(const Question &question) {
    if (is_password_change(question)) {
        return refuse_change("No password is needed here, so there is none to change.");
    }
    return Outcome::pass("no one is asked");
}

Outcome not_for_this(const Question &question) {
    return Outcome::unavailable(question.method.text() + " is not a method for " +
                                function_word(question.function));
}

// The word of a client that acts for other users is taken; that of a client that asks for
// itself is not.
Outcome if_authenticated(const Question &question) {
    const bool said = question.for_others && question.authenticated_by != AAA_METHOD_NOTSET &&
                      question.authenticated_by != AAA_METHOD_ERROR;
    return question.authenticated_here || said ? Outcome::pass("the user has authenticated")
                                               : Outcome::fail("the user has not authenticated");
}

const char *record_word(std::uint32_t record) {
    return record == AAA_MT_ACCT_START    ? "start"
           : record == AAA_MT_ACCT_UPDATE ? "update"
           : record == AAA_MT_ACCT_STOP   ? "stop"
                                          : "event";
}

// A record is nothing without its name, and the name is not hidden: who has a session is known
// (Connection::handle_function()), and others get no record written.
Outcome write_record(const Question &question) {
    log(Level::kInfo, "ACCOUNTING", {question.id, question.user, "method", "syslog", question.client_pid},
        "%s user=%s terminal=%s from=%s session=%u service=%s command=\"%s\"", record_word(question.record),
        question.user.c_str(), question.terminal.c_str(), question.remote.c_str(), question.session,
        aaa_print_service(static_cast<std::int32_t>(question.service)),
        question.command.value_or("").c_str());
    return Outcome::pass("written to the log");
}

}  // namespace

std::shared_ptr<Backend> make_none_backend(net::Loop &loop) {
    return std::make_shared<SimpleBackend>(loop, Answers{accept, accept, accept});
}

std::shared_ptr<Backend> make_if_authenticated_backend(net::Loop &loop) {
    return std::make_shared<SimpleBackend>(loop, Answers{not_for_this, if_authenticated, not_for_this});
}

std::shared_ptr<Backend> make_syslog_backend(net::Loop &loop) {
    return std::make_shared<SimpleBackend>(loop, Answers{not_for_this, not_for_this, write_record});
}

}  // namespace service
