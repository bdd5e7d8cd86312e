// SPDX-License-Identifier: Apache-2.0
//
// Questions to one TACACS+ server, over TCP or TLS 1.3, on a loop.
//
// Any number of questions can be under way; none waits for the answer to another. Where the
// server agrees they share connections, otherwise each has its own. The number of
// connections and of questions that wait for one is bounded.
//
// All functions are called by the loop's thread. Outcomes are delivered by the loop, never
// from within a call, and a function that receives one may call everything here, and
// destroy the client.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "net/address.hpp"
#include "net/loop.hpp"
#include "net/stream.hpp"
#include "tacacs/accounting.hpp"
#include "tacacs/authentication.hpp"
#include "tacacs/authorization.hpp"

namespace tacacs {

inline constexpr std::uint16_t kPort = 49;
inline constexpr std::uint16_t kTlsPort = 300;

// TLS instead of a shared secret. It is always version 1.3 or later.
struct TlsServer {
    net::TlsSettings settings;
    std::string name;  // the server's certificate must hold it
};

struct ServerSettings {
    net::Address address;
    SecretBytes secret;  // not with TLS
    std::optional<TlsServer> tls;
    std::optional<net::Address> local;         // the address to connect from
    std::string device = {};                   // and the network device; empty: any
    bool single_connection = true;             // offer to share connections
    net::Time timeout = 5 * net::kSecond;      // for each answer, connecting included
    net::Time idle_time = 60 * net::kSecond;   // then a shared connection is closed
    net::Time user_time = 300 * net::kSecond;  // for what a user types
    std::size_t max_connections = 32;          // without those whose user is typing
    std::size_t max_waiting = 1024;            // questions without a connection
    std::size_t max_logins = 1024;             // logins whose user is typing
};

enum class Result {
    kAnswer,   // the server has decided
    kSilent,   // no answer in time
    kRefused,  // it could not be connected to
    kLost,     // the connection ended before the answer; a password may have been seen
    kError,    // it answered with an error or a faulty packet, or nothing was sent
};

struct Outcome {
    Result result = Result::kError;
    std::string text;  // why there is no answer, for administrators
    Fault fault = Fault::kNone;
    net::Time round_trip = 0;  // from sending to the answer; 0 without one
    unsigned tries = 0;        // how often it was sent; for a login, its rounds so far
};

// An answer has kPass, kFail, or one of the three kGet...: the user is asked with the
// message, and answer() or abort() goes on with the login.
struct AuthenticationOutcome : Outcome {
    AuthenticationStatus status = AuthenticationStatus::kFail;
    bool hides_input = false;
    std::string message;
    std::string data;

    bool goes_on() const {
        return result == Result::kAnswer && status != AuthenticationStatus::kPass &&
               status != AuthenticationStatus::kFail;
    }
};

// An answer has kPassAdd, kPassReplace, or kFail; the last has no arguments.
struct AuthorizationOutcome : Outcome {
    AuthorizationStatus status = AuthorizationStatus::kFail;
    std::vector<std::string> arguments;
    std::string message;
    std::string data;
};

// An answer means that the server has the record.
struct AccountingOutcome : Outcome {
    std::string message;
    std::string data;
};

struct Counters {
    std::uint64_t questions = 0;  // each round of a login is one
    std::uint64_t answers = 0;
    std::uint64_t silent = 0;
    std::uint64_t refused = 0;
    std::uint64_t lost = 0;
    std::uint64_t errors = 0;
    std::uint64_t repeats = 0;      // sent again after a connection was lost
    std::uint64_t late = 0;         // answers to questions that had ended
    std::uint64_t connections = 0;  // begun
    std::array<std::uint64_t, static_cast<std::size_t>(Fault::kNoDigest) + 1> faults = {};
    net::Time round_trip = 0;  // smoothed

    // What there is now.
    std::size_t open_connections = 0;
    std::size_t in_flight = 0;  // questions that wait for an answer
    std::size_t waiting = 0;    // questions that wait for a connection
    std::size_t logins = 0;     // logins whose user is typing
};

class Client {
  public:
    // Identifies a question, also a login through all its rounds. Never 0.
    using Id = std::uint64_t;

    // Null when the settings cannot be used; `error` then says why.
    static std::unique_ptr<Client> make(net::Loop &loop, const ServerSettings &settings, std::string &error);
    // Ends all questions without their outcomes.
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // Each delivers one outcome, at the deadline at the latest. Bytes that are passed are
    // not needed after the call, and passwords are wiped once they were sent.

    // A login, or with ASCII the change of a password. It is never sent twice: after kLost
    // the caller may ask again.
    Id authenticate(const Start &start, net::Time deadline, std::function<void(AuthenticationOutcome)> done);
    // What the user has typed.
    void answer(Id login, std::string_view text, net::Time deadline,
                std::function<void(AuthenticationOutcome)> done);
    // Ends a login whose user has left, without an outcome. The server is told why.
    void abort(Id login, std::string_view reason);

    // These two are sent a second time when the connection is lost: deciding again changes
    // nothing, and a record may arrive twice, but never gets lost.
    Id authorize(const Subject &subject, std::span<const std::string> arguments, net::Time deadline,
                 std::function<void(AuthorizationOutcome)> done);
    Id account(Record record, const Subject &subject, std::span<const std::string> arguments,
               net::Time deadline, std::function<void(AccountingOutcome)> done);

    // Ends a question without its outcome. Nothing happens when it has ended before.
    void cancel(Id question);

    Counters counters() const;

  private:
    class Impl;
    explicit Client(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace tacacs
