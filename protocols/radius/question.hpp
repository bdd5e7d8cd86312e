// SPDX-License-Identifier: Apache-2.0
//
// What is to be asked of a server. A packet cannot be made of it before it is sent,
// because its identifier and authenticator belong to the socket that sends it, and the
// password is hidden with the authenticator.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "radius/packet.hpp"
#include "radius/secret.hpp"

namespace radius {

class Answer;

// A CHAP response of the user's side (RFC 2865, 2.2).
struct Chap {
    std::uint8_t id;
    std::string response;   // 16 bytes
    std::string challenge;  // 1 to 253 bytes
};

// Acct-Status-Type (RFC 2866, 5.1).
enum class AccountingStatus : std::uint32_t {
    kStart = 1,
    kStop = 2,
    kInterim = 3,
    kOn = 7,
    kOff = 8,
};

// An event of a session that is to be recorded.
struct Accounting {
    AccountingStatus status = AccountingStatus::kStart;
    std::string session_id = {};                        // the same in all records of a session
    std::uint32_t event_time = 0;                       // when it happened, in seconds since 1970
    std::uint32_t delay = 0;                            // seconds that have passed since
    std::vector<std::string> classes = {};              // Class values of the session's Access-Accept
    std::optional<std::uint32_t> session_time = {};     // seconds, in interim and stop
    std::optional<std::uint32_t> terminate_cause = {};  // in stop
};

class Question {
  public:
    static Question access() { return Question(Code::kAccessRequest); }
    static Question accounting(Accounting event);
    // Is the server there? (RFC 5997)
    static Question status() { return Question(Code::kStatusServer); }

    // False, and nothing is added, when the value does not fit into an attribute, and for
    // attributes that the client makes: passwords, Message-Authenticator, and the fields
    // of Accounting.
    [[nodiscard]] bool add(Type type, std::string_view value);
    [[nodiscard]] bool add_number(Type type, std::uint32_t value);
    [[nodiscard]] bool add_vendor(std::uint32_t vendor, std::uint8_t type, std::string_view value);

    // What proves the user's identity; the last call counts.
    void set_password(std::string_view password);
    void set_chap(Chap chap);
    // Makes it the next question after an Access-Challenge, whose State it carries.
    void set_challenge(const Answer &challenge);

    Code code() const { return code_; }
    Attributes attributes() const { return Attributes(attributes_); }

  private:
    friend std::unique_ptr<Request> make_request(const Question &question, std::uint8_t id,
                                                 std::string_view secret, std::uint32_t more_delay,
                                                 std::string &error);
    explicit Question(Code code) : code_(code) {}

    Code code_;
    std::string attributes_;  // encoded
    std::optional<Secret> password_;
    std::optional<Chap> chap_;
    std::optional<Accounting> accounting_;
};

// The finished packet of a question, with `more_delay` seconds added to its Acct-Delay-Time.
// Null when it cannot be made; `error` then says why.
std::unique_ptr<Request> make_request(const Question &question, std::uint8_t id, std::string_view secret,
                                      std::uint32_t more_delay, std::string &error);

}  // namespace radius
