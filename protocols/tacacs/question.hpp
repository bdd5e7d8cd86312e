// SPDX-License-Identifier: Apache-2.0
//
// Inside the client: a question on its way from the caller to its outcome.
#pragma once

#include <functional>
#include <optional>

#include "tacacs/client.hpp"

namespace tacacs {

class Connection;

class Question {
  public:
    enum class State {
        kWaiting,  // for a connection
        kSent,
        kUser,  // a login whose user is typing
    };

    Question(net::Loop &loop, Client::Id question_id, Type packet_type, std::uint8_t minor_version,
             SecretBytes unsealed)
        : id(question_id),
          type(packet_type),
          minor(minor_version),
          packet(std::move(unsealed)),
          timer(loop, [this] { on_time(); }) {}
    virtual ~Question() = default;
    Question(const Question &) = delete;
    Question &operator=(const Question &) = delete;

    // Reads the body of an answer into the outcome.
    virtual Fault read(std::string_view body) = 0;
    virtual Outcome &outcome() = 0;
    virtual void clear_outcome() = 0;
    // Whether the answer asks the user for something.
    virtual bool goes_on() const { return false; }
    // Calls the caller's function with the outcome. Both are moved out of the question, so it
    // may be gone by then.
    virtual std::function<void()> take_delivery() = 0;

    // A password must not be sent twice without the caller.
    bool may_repeat() const { return type != Type::kAuthentication; }

    const Client::Id id;
    const Type type;
    const std::uint8_t minor;
    SecretBytes packet;  // to be sealed
    State state = State::kWaiting;
    std::optional<Session> session;
    Connection *connection = nullptr;
    std::string lost;  // why the connection of a login has ended while its user was typing
    net::Time sent_at = 0;
    unsigned tries = 0;
    std::function<void()> on_time;  // called when the deadline has passed
    net::Timer timer;
};

class AuthenticationQuestion : public Question {
  public:
    using Done = std::function<void(AuthenticationOutcome)>;
    AuthenticationQuestion(net::Loop &loop, Client::Id question_id, std::uint8_t minor_version,
                           SecretBytes unsealed, Done done)
        : Question(loop, question_id, Type::kAuthentication, minor_version, std::move(unsealed)),
          done_(std::move(done)) {}

    Fault read(std::string_view body) override;
    Outcome &outcome() override { return outcome_; }
    void clear_outcome() override { outcome_ = {}; }
    bool goes_on() const override { return outcome_.goes_on(); }
    std::function<void()> take_delivery() override;
    // Another round.
    void go_on(SecretBytes unsealed, Done done);

  private:
    AuthenticationOutcome outcome_;
    Done done_;
};

class AuthorizationQuestion : public Question {
  public:
    using Done = std::function<void(AuthorizationOutcome)>;
    AuthorizationQuestion(net::Loop &loop, Client::Id question_id, SecretBytes unsealed, Done done)
        : Question(loop, question_id, Type::kAuthorization, 0, std::move(unsealed)), done_(std::move(done)) {}

    Fault read(std::string_view body) override;
    Outcome &outcome() override { return outcome_; }
    void clear_outcome() override { outcome_ = {}; }
    std::function<void()> take_delivery() override;

  private:
    AuthorizationOutcome outcome_;
    Done done_;
};

class AccountingQuestion : public Question {
  public:
    using Done = std::function<void(AccountingOutcome)>;
    AccountingQuestion(net::Loop &loop, Client::Id question_id, SecretBytes unsealed, Done done)
        : Question(loop, question_id, Type::kAccounting, 0, std::move(unsealed)), done_(std::move(done)) {}

    Fault read(std::string_view body) override;
    Outcome &outcome() override { return outcome_; }
    void clear_outcome() override { outcome_ = {}; }
    std::function<void()> take_delivery() override;

  private:
    AccountingOutcome outcome_;
    Done done_;
};

}  // namespace tacacs
