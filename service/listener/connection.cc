// SPDX-License-Identifier: Apache-2.0

#include "listener/connection.hpp"

#include <string.h>
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <utility>

#include "aaa/names.h"
#include "aaa/result_codes.h"
#include "backends/lockout.hpp"
#include "backends/password_change.hpp"
#include "base/log.hpp"
#include "platform/cerr.h"

namespace service {

namespace {

constexpr char kNoLongerKnown[] = "This login is no longer known; begin again";

// 32 hexadecimal digits that no one can guess; empty without random bytes.
std::string new_token() {
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        return "";
    }
    static constexpr char digits[] = "0123456789abcdef";
    std::string token;
    for (const unsigned char byte : bytes) {
        token += digits[byte >> 4];
        token += digits[byte & 15];
    }
    return token;
}

std::optional<Ask> ask_of(std::uint32_t type) {
    switch (type) {
        case AAA_REQ_CFG_RADSVR:
        case AAA_REQ_CFG_SVRGRP:
        case AAA_REQ_CFG_SVR_IN_SG:
        case AAA_REQ_CFG_VRF_IN_SG:
        case AAA_REQ_CFG_SRC_INTF:
        case AAA_REQ_CFG_AUTHENLIST:
        case AAA_REQ_CFG_AUTHORLIST:
            return Ask::kConfiguration;
        default:
            return std::nullopt;
    }
}

Ask ask_of(Function function) {
    switch (function) {
        case Function::kAuthentication:
            return Ask::kAuthentication;
        case Function::kAuthorization:
            return Ask::kAuthorization;
        case Function::kAccounting:
            return Ask::kAccounting;
    }
    return Ask::kConfiguration;
}

kel_msg_limit_t refusal_limit = {1, {}};

}  // namespace

Connection::Connection(ConnectionHost &host, Transport client, Peer peer)
    : host_(host),
      client_(std::move(client)),
      peer_(std::move(peer)),
      watch_(host.deciders().loop, aaa_transport_descriptor(client_.get()), EPOLLIN,
             [this](std::uint32_t events) { on_events(events); }),
      idle_(host.deciders().loop, [this] { host_.remove(this); }),
      number_(host.capture().new_connection()) {
    aaa_transport_login_of(client_.get(), &client_login_);
    wait_for_message();
}

Connection::~Connection() {
    watch_.reset();  // before its descriptor is closed
}

void Connection::wait_for_message() {
    watch_.want(EPOLLIN);
    idle_since_ = host_.deciders().loop.now();
    idle_.set(idle_since_ + host_.snapshot()->settings->idle_s * net::kSecond);
}

bool Connection::is_idle() const {
    char byte;
    return !is_working() &&
           recv(aaa_transport_descriptor(client_.get()), &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) <= 0;
}

void Connection::on_events(std::uint32_t events) {
    if (is_working()) {
        if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
            leave();
            host_.remove(this);
        }
        return;
    }
    serve();
}

// The client has gone, so no one is told what comes of its request.
void Connection::leave() {
    log(Level::kDebug, "CLIENT_GONE", {id_, "", "answer", "", peer_.pid}, "client %d left before its answer",
        peer_.pid);
    if (decision_ != nullptr) {
        const Question question = decision_->question();
        const bool is_kept = host_.keep(std::move(decision_));
        TraceEvent event{0,
                         net::Loop::clock(),
                         id_,
                         Step::kAnswer,
                         question.user,
                         "none",
                         is_kept ? "the client left before its answer; what the server says is counted"
                                 : "the client left before its answer",
                         function_word(question.function),
                         "cancelled"};
        host_.deciders().trace.add(std::move(event));
    }
}

void Connection::serve() {
    aaa_transport_msg_t &message = host_.buffer();
    const cerrno rc = aaa_transport_receive(client_.get(), &message, AAA_TRANSPORT_NOW);
    if (rc == AAA_OK) {
        begin_work();
        handle(message);
        explicit_bzero(message.u.bytes, message.len);  // it may have held a password
    } else if (rc == AAA_ERR_INVALID_MSG_SIZE) {
        begin_work();
        request_->fault = rc;
        answer_error(rc);
    } else if (rc != AAA_ERR_TIMEOUT) {
        host_.remove(this);
    }
}

void Connection::begin_work() {
    idle_.cancel();
    watch_.want(0);
    request_ = std::make_shared<Request>();
    request_->tap = this;
    ++exchange_;
    alive_ = std::make_shared<int>();
}

void Connection::handle(const aaa_transport_msg_t &message) {
    *request_ = read_request(message);
    request_->tap = this;
    note_user();
    if (is_on()) {
        capture_request({reinterpret_cast<const char *>(message.u.bytes), message.len});
    }
    if (request_->fault != AAA_OK) {
        answer_error(request_->fault);
        return;
    }
    const std::uint32_t patience_ms = aaa_transport_patience_of(&message);
    if (const auto function = function_of(request_->head.type)) {
        handle_function(*function, patience_ms);
    } else if (ask_of(request_->head.type)) {
        handle_configuration();
    } else {
        if (request_->head.type == AAA_REQ_FREE_USERDATA) {
            forget_login();
        }
        finish(send_plain(client_.get(), *request_));
    }
}

bool Connection::is_on() const {
    return host_.capture().is_on();
}

// Clients that go on with a login need not name its user again, and captures begin within logins.
void Connection::note_user() {
    if (std::string name = text_in(request_->list.get(), AAA_USERNAME_ATTR).value_or(""); !name.empty()) {
        named_user_ = std::move(name);
    }
}

void Connection::capture_request(std::string_view bytes) {
    const bool is_readable = request_->fault == AAA_OK;
    capture(false, {bytes, is_readable ? request_->head.list_at : 0, is_readable, request_->head.type});
}

void Connection::sent(std::string_view bytes, std::size_t list_at) {
    capture(true, {bytes, list_at, true});
}

void Connection::capture(bool is_answer, const WireMessage &message) {
    const LoginId id = id_ == 0 && client_login_ != 0 ? login_id(peer_.uid, client_login_) : id_;
    const std::uint32_t type = request_->fault == AAA_OK ? request_->head.type : UINT32_MAX;
    host_.capture().add(
        {is_answer, peer_.pid, peer_.uid, peer_.gid, number_, exchange_, type, id, named_user_, message});
}

// The user has left, or the program serves another one now.
void Connection::forget_login() {
    pending_.reset();
    token_.clear();
    authenticated_.clear();
    login_ = 0;  // what the login brought is found by it
    id_ = 0;
}

void Connection::begin_login() {
    do {
        login_ = host_.new_login();
    } while (static_cast<std::uint32_t>(login_) == 0);  // it would be no id
    id_ = login_id(peer_.uid, client_login_ != 0 ? client_login_ : static_cast<std::uint32_t>(login_));
}

void Connection::handle_configuration() {
    if (access_of(peer_, Ask::kConfiguration, host_.snapshot()->settings->rules) != Access::kGranted) {
        refuse(Ask::kConfiguration, "");
        return;
    }
    begin_login();
    log(Level::kNotice, "CONFIGURE", {id_, "", "request", "", peer_.pid},
        "configuration message %u of client %d of user %u", request_->head.type, peer_.pid, peer_.uid);
    host_.configure(*request_, [this, alive = std::weak_ptr<int>(alive_)](cerrno rc) {
        if (alive.lock()) {
            log(Level::kNotice, "CONFIGURE", {id_, "", "answer", "", peer_.pid}, "%s",
                rc == AAA_OK ? "done" : cerr_strerror(rc));
            finish(send_configured(client_.get(), *request_, rc));
        }
    });
}

void Connection::handle_function(Function function, std::uint32_t patience_ms) {
    auto question = std::make_shared<Question>();
    const cerrno rc = fill_question(*request_, function, *question);
    if (rc != AAA_OK) {
        answer_error(rc);
        return;
    }
    question->snapshot = host_.snapshot();
    const Settings &settings = *question->snapshot->settings;
    question->deadline = host_.deciders().loop.now() + time_for(patience_ms, settings);
    question->client_pid = peer_.pid;
    question->client_uid = peer_.uid;
    switch (access_of(peer_, ask_of(function), settings.rules)) {
        case Access::kRefused:
            refuse_question(*question, "");
            return;
        case Access::kSelf:
            check_self(function, std::move(question));
            return;
        case Access::kGranted:
            question->for_others = true;
            if (function == Function::kAccounting) {
                host_.deciders().trace.names().learn(question->user);  // he has a session
            }
            question->source = question->remote.empty() ? source_of_terminal(question->terminal)
                                                        : source_of_address(question->remote);
            start(function, std::move(question));
            return;
    }
}

// A user who asks for himself cannot choose the address that his failures are counted by.
void Connection::check_self(Function function, std::shared_ptr<Question> question) {
    question->source = "user " + std::to_string(peer_.uid);
    host_.user_names().find(peer_.uid, [this, function, question = std::move(question),
                                        alive = std::weak_ptr<int>(alive_)](const std::string &name) {
        if (!alive.lock()) {
            return;
        }
        if (question->user.empty()) {
            question->user = name;
        }
        if (name.empty() || question->user != name) {
            refuse_question(*question, " for another user than himself");
            return;
        }
        host_.deciders().trace.names().learn(name);
        start(function, question);
    });
}

// The login that a token belongs to.
std::shared_ptr<PendingLogin> Connection::take_pending(const Question &question, bool &refused) {
    const std::string token = token_of(*request_);
    const auto pending = std::exchange(pending_, nullptr);
    const std::string expected = std::exchange(token_, "");
    refused = false;
    if (token.empty()) {
        return nullptr;  // a new login
    }
    // A token of another connection, or an old one, is not accepted. Nor is another user than
    // the one who was asked.
    if (pending == nullptr || token != expected || question.service != pending->service ||
        is_password_change(question) != pending->changes_password ||
        (!pending->user.empty() && question.user != pending->user)) {
        refused = true;
        return nullptr;
    }
    return pending;
}

void Connection::start(Function function, std::shared_ptr<Question> question) {
    std::shared_ptr<PendingLogin> pending;
    if (function == Function::kAuthentication) {
        bool refused = false;
        pending = take_pending(*question, refused);
        authenticated_.clear();
        if (refused) {
            Answer unknown;
            unknown.status = AAA_STAT_ERROR;
            unknown.ends_login = true;
            unknown.text = kNoLongerKnown;
            answer(function, unknown);
            return;
        }
    }
    if (login_ == 0 || (function == Function::kAuthentication && pending == nullptr)) {
        begin_login();
    }
    question->id = id_;
    question->login = login_;
    question->authenticated_here = !authenticated_.empty() && authenticated_ == question->user;
    trace_request(id_, *question);
    const std::string user = question->user;
    decision_ =
        std::make_unique<Decision>(host_.deciders(), std::move(*question), std::move(pending),
                                   [this, function, user](const Answer &result) {
                                       if (function == Function::kAuthentication &&
                                           result.status == AAA_STAT_PASS && result.note == Note::kNone) {
                                           authenticated_ = user;
                                       }
                                       answer(function, result);
                                   });
}

void Connection::answer(Function function, const Answer &answer) {
    if (answer.pending != nullptr) {
        token_ = new_token();
        pending_ = token_.empty() ? nullptr : answer.pending;
    }
    finish(send_answer(client_.get(), *request_, function, answer, token_));
}

void Connection::answer_error(cerrno error) {
    log_limited(refusal_limit, Level::kWarning, "BAD_REQUEST",
                "a message of client %d of user %u is not processed: %s", peer_.pid, peer_.uid,
                cerr_strerror(error));
    finish(send_error(client_.get(), *request_, error));
}

void Connection::trace_request(LoginId id, const Question &question) {
    auto request = std::make_shared<TraceRequest>();
    *request = {aaa_print_service(static_cast<std::int32_t>(question.service)),
                question.list,
                question.remote,
                question.terminal,
                command_for_trace(question.command.value_or("")),
                peer_.pid,
                peer_.uid};
    TraceEvent event{0,
                     net::Loop::clock(),
                     id,
                     Step::kRequest,
                     question.user,
                     function_word(question.function),
                     "",
                     function_word(question.function)};
    event.request = std::move(request);
    host_.deciders().trace.add(std::move(event));
}

// An administrator looks for such a request in the trace too.
void Connection::refuse_question(const Question &question, const char *why) {
    if (login_ == 0) {
        begin_login();
    }
    trace_request(id_, question);
    const char *function = function_word(question.function);
    TraceEvent event{0,
                     net::Loop::clock(),
                     id_,
                     Step::kAnswer,
                     question.user,
                     "none",
                     std::string("the client may not ask for ") + function + why,
                     function,
                     "not allowed"};
    event.duration = 0;
    host_.deciders().trace.add(std::move(event));
    refuse(ask_of(question.function), why);
}

void Connection::refuse(Ask ask, const char *why) {
    log_limited(refusal_limit, Level::kWarning, "REFUSED", {id_, "", "answer", "", peer_.pid},
                "client %d of user %u may not ask for %s%s; \"allow\" in aaad.conf says who may", peer_.pid,
                peer_.uid, ask_word(ask), why);
    finish(send_error(client_.get(), *request_, AAA_ERR_AUTHOR_FAILED));
}

// Goes on with the next message, or drops a client that is gone or does not read.
void Connection::finish(cerrno sent) {
    const auto decision = std::move(decision_);  // until here: it may be the caller
    request_.reset();
    alive_.reset();
    if (sent != AAA_OK) {
        log(Level::kDebug, "NOT_SENT", {id_, "", "answer", "", peer_.pid},
            "the answer to client %d is not sent: %s", peer_.pid, cerr_strerror(sent));
        host_.remove(this);
    } else if (host_.is_draining()) {
        host_.remove(this);
    } else {
        wait_for_message();
    }
}

}  // namespace service
