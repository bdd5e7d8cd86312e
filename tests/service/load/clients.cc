// SPDX-License-Identifier: Apache-2.0

#include "service/load/clients.hpp"

#include <poll.h>

#include "platform/cerr.h"

namespace load_test {

using aaad_test::Ask;
using aaad_test::Client;
using aaad_test::Reply;

void Counts::complain(const std::string &what) {
    const std::lock_guard lock(mutex_);
    if (complaint_.empty()) {
        complaint_ = what;
    }
}

std::string Counts::complaint() const {
    const std::lock_guard lock(mutex_);
    return complaint_;
}

void LoadClient::run(int requests) {
    for (int i = 0; i < requests; ++i) {
        one();
    }
    client_.reset();
}

void LoadClient::one() {
    switch (pick(has_radius_ ? 12 : 10)) {
        case 0:
        case 1:
            return log_in();
        case 2:
            return log_in_with_a_wrong_password();
        case 3:
            return answer_questions();
        case 4:
        case 5:
            return run_command();
        case 6:
            return record();
        case 7:
            return log_in_locally();
        case 8:
            return ping();
        case 9:
            return leave();
        default:
            return log_in_at_radius();
    }
}

Client &LoadClient::client() {
    if (client_ == nullptr) {
        client_ = std::make_unique<Client>(socket_);
    }
    return *client_;
}

Ask LoadClient::ask(const std::string &list) {
    Ask made;
    made.user = "u" + std::to_string(pick(kUsers));
    made.password = "secret";
    made.list = list;
    made.remote = "192.0.2." + std::to_string(pick(200));
    return made;
}

bool LoadClient::take(const Reply &reply, const char *what) {
    ++counts_.sent;
    if (reply.result != AAA_OK) {
        counts_.complain(std::string(what) + ": no answer: " + cerr_strerror(reply.result));
        client_.reset();
        return false;
    }
    ++counts_.answered;
    pollfd polled = {aaa_transport_descriptor(client_->get()), POLLIN, 0};
    if (poll(&polled, 1, 0) != 0) {
        ++counts_.surplus;
        counts_.complain(std::string(what) + ": something follows the answer");
    }
    counts_.errors += reply.status == AAA_STAT_ERROR ? 1 : 0;
    return reply.status != AAA_STAT_ERROR;
}

void LoadClient::expect(bool right, const char *what, const Reply &reply) {
    if (!right) {
        ++counts_.wrong;
        counts_.complain(std::string(what) + ": status " + std::to_string(reply.status) + ", \"" +
                         reply.text + "\", method " + std::to_string(reply.method.value_or(0)));
    }
}

// The server greets the user by name, the local method says nothing: an answer to another user's
// request shows.
void LoadClient::log_in() {
    const Ask wanted = ask("tacacs");
    const Reply reply = client().authenticate(wanted);
    if (take(reply, "login")) {
        const bool greets = reply.text == "Hello " + wanted.user;
        expect(reply.status == AAA_STAT_PASS && (greets || (reply.text.empty() && reply.method)), "login",
               reply);
    }
}

void LoadClient::log_in_with_a_wrong_password() {
    Ask wanted = ask("tacacs");
    wanted.password = "wrong";
    const Reply reply = client().authenticate(wanted);
    if (take(reply, "wrong password")) {
        expect(reply.status == AAA_STAT_FAIL && !reply.privilege, "wrong password", reply);
    }
}

void LoadClient::answer_questions() {
    Ask wanted = ask("tacacs");
    wanted.user = "tia";
    wanted.password = std::nullopt;
    Reply reply = client().authenticate(wanted);
    for (int round = 0; round < 8 && take(reply, "rounds"); ++round) {
        if (reply.status != AAA_STAT_GETPASS && reply.status != AAA_STAT_GETDATA) {
            // A code that is asked for by a server that then dies is not the local password.
            expect(reply.status == AAA_STAT_PASS, "rounds", reply);
            return;
        }
        wanted.password = reply.status == AAA_STAT_GETDATA ? "4711" : "secret";
        wanted.state = reply.state;
        reply = client().authenticate(wanted);
    }
}

void LoadClient::run_command() {
    Ask wanted = ask("tacacs");
    const bool may = pick(2) == 0;
    wanted.command = may ? "show version" : "reload";
    const Reply reply = client().authorize(wanted);
    if (take(reply, "command")) {
        expect(reply.status == (may ? AAA_STAT_PASS : AAA_STAT_FAIL), "command", reply);
    }
}

void LoadClient::record() {
    Ask wanted = ask(has_radius_ && pick(2) == 0 ? "radius" : "tacacs");
    wanted.record = pick(2) == 0 ? AAA_ACCT_START_OPT : AAA_ACCT_STOP_OPT;
    take(client().account(wanted), "record");
}

void LoadClient::log_in_at_radius() {
    Ask wanted = ask("radius");
    const bool alice = pick(2) == 0;
    wanted.user = alice ? "alice" : "bob";
    wanted.password = "wonderland";
    const Reply reply = client().authenticate(wanted);
    if (!take(reply, "RADIUS")) {
        return;
    }
    const bool right =
        alice ? reply.status == AAA_STAT_PASS && (reply.text == "Hello, Alice" || reply.text.empty())
              : reply.status == AAA_STAT_FAIL &&
                    (reply.text == "Account locked" || reply.text == "Login incorrect");
    expect(right, "RADIUS", reply);
}

void LoadClient::log_in_locally() {
    Ask wanted = ask("local");
    const bool right = pick(2) == 0;
    wanted.password = right ? "secret" : "wrong";
    const Reply reply = client().authenticate(wanted);
    if (take(reply, "local")) {
        expect(reply.status == (right ? AAA_STAT_PASS : AAA_STAT_FAIL), "local", reply);
    }
}

void LoadClient::ping() {
    take(client().ping(), "ping");
}

void LoadClient::leave() {
    client().send_authentication(ask("tacacs"));
    ++counts_.left;
    client_.reset();
}

}  // namespace load_test
