// SPDX-License-Identifier: Apache-2.0
//
// A login at one TACACS+ server. What the server asks for is answered from the request as far
// as it can be, and by the user otherwise.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "backends/backend.hpp"
#include "groups/server_client.hpp"
#include "groups/walk.hpp"

namespace service {

// A login whose user is asked. Where it is given up, the server is told that he has left.
struct TacacsDialogue : Dialogue {
    ~TacacsDialogue() override;

    ServerClientPtr server;  // null: the login has begun again
    tacacs::Client::Id login = 0;
    Prompt prompt = Prompt::kPassword;
    bool changes_password = false;
    bool new_password_is_given = false;  // of a change: the server has asked for it before
    Outcome asked;                       // to be asked again when an answer has nothing in it
};

class TacacsLogin : public Attempt {
  public:
    using Done = std::function<void(ServerResult)>;

    // Begins a login.
    TacacsLogin(ServerClientPtr server, const Question &question, net::Time until, Done done);
    // Goes on with one: the user has answered.
    TacacsLogin(std::shared_ptr<TacacsDialogue> dialogue, const Question &question, net::Time until,
                Done done);
    ~TacacsLogin() override;
    TacacsLogin(const TacacsLogin &) = delete;
    TacacsLogin &operator=(const TacacsLogin &) = delete;

  private:
    void take(const tacacs::AuthenticationOutcome &outcome);
    Prompt prompt_of(const tacacs::AuthenticationOutcome &outcome) const;
    void pass(Outcome &outcome) const;
    void ask_user(const tacacs::AuthenticationOutcome &outcome);
    void answer(const std::string &text);
    void end(ServerResult result);

    ServerClientPtr server_;
    const Question question_;
    const net::Time until_;
    Done done_;
    tacacs::Client::Id login_ = 0;
    bool user_is_given_ = false;
    bool password_is_given_ = false;
    bool new_password_is_given_ = false;
};

// Why a login cannot be sent; empty when it can.
std::string tacacs_login_misfit(const Question &question);
// What came of a question that was not answered.
ServerResult tacacs_failure(const tacacs::Outcome &outcome);

}  // namespace service
