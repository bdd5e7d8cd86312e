// SPDX-License-Identifier: Apache-2.0
//
// What a method of a method list can be asked: the interface of everything that answers
// requests, on the thread of the loop and without blocking it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/avlist.hpp"
#include "base/secret.hpp"
#include "base/trace.hpp"
#include "config/snapshot.hpp"
#include "net/loop.hpp"

namespace service {

enum class Function : std::uint8_t { kAuthentication, kAuthorization, kAccounting };
const char *function_word(Function function);
// The library's number, AAA_FUNC_...
std::uint32_t function_number(Function function);

// A request on its way through a method list. The decision sets the last five fields
// again for each method.
struct Question {
    LoginId id = 0;
    std::uint64_t login = 0;  // of this connection, unlike any other: what the login brought is found by it
    Function function = Function::kAuthentication;
    std::uint32_t service = 0;       // AAA_SVC_...
    std::string list;                // as the request names it
    std::string user;                // empty: the request has none
    std::optional<Secret> password;  // of a later round: the answer to the challenge
    std::string terminal;
    std::string remote;                        // address that the user comes from
    std::uint32_t option = 0;                  // AAA_AO_...
    std::optional<std::uint32_t> privilege;    // that is asked for
    std::uint32_t authenticated_by = 0;        // AAA_METHOD_... as the client states it; 0: not
    bool authenticated_here = false;           // on this connection, for this user
    std::optional<std::string> command;        // with its arguments
    std::uint32_t record = 0;                  // AAA_MT_ACCT_START, _UPDATE or _STOP
    std::uint32_t session = 0;                 // number of the accounting session
    std::shared_ptr<const avlist> attributes;  // all of the request
    std::string source;  // of failed logins: an address, terminal or client; empty: the console
    std::int32_t client_pid = 0;
    std::uint32_t client_uid = 0;
    // The client of a login has gone: its outcome is counted, and nothing else comes of it.
    std::shared_ptr<bool> client_has_gone = std::make_shared<bool>(false);
    bool for_others = false;  // the client may ask in the name of any user, so its word is taken
    SnapshotPtr snapshot;

    Method method;
    std::vector<Method> also;    // of a broadcast record: further methods that it is for
    net::Time deadline = 0;      // by which the method should have answered
    bool is_last_method = true;  // of the list, so that no other one can answer instead
    unsigned round = 0;          // 0, and 1 more for each answer to a challenge
};

// What a login waits for.
enum class Prompt : std::uint8_t { kUser, kPassword, kData };

// The state of a login between two rounds. It stays in the service; its client has only a
// random token for it.
struct Dialogue {
    virtual ~Dialogue() = default;
};

// An attribute of an answer, as a server gave it.
struct Attribute {
    std::uint32_t type = 0;
    std::string value;
};

// What an outcome says besides passing or refusing.
enum class Note : std::uint8_t {
    kNone,
    kPasswordChanged,   // with a pass of a change of password
    kPasswordExpired,   // with a pass: the user needs a new password before a session
    kAccountExpired,    // with a refusal
    kChangedElsewhere,  // of a change of password: this service does not hold the password
};

struct Outcome {
    enum class Kind : std::uint8_t {
        kPass,
        kFail,         // a refusal: no other method is asked
        kChallenge,    // the user has to be asked
        kUnavailable,  // no answer: the next method is asked
        kError         // no answer, because the service is overloaded. The next method is not asked:
                       // otherwise an attacker could choose the method by overloading the service
    };

    Kind kind = Kind::kUnavailable;
    std::string text;    // for the user, as a server gave it; may be empty
    std::string reason;  // for log and trace
    std::optional<std::uint32_t> privilege;
    std::vector<Attribute> attributes;
    Note note = Note::kNone;
    Prompt prompt = Prompt::kPassword;
    bool echo = false;
    std::shared_ptr<Dialogue> dialogue;

    static Outcome pass(std::string reason, std::optional<std::uint32_t> privilege = std::nullopt);
    static Outcome fail(std::string reason);
    static Outcome unavailable(std::string reason);
    static Outcome error(std::string reason);
    // `text` is the prompt.
    static Outcome challenge(Prompt prompt, std::string text, bool echo,
                             std::shared_ptr<Dialogue> dialogue = {});
};

// A question under way. Destroying it cancels it: its function is not called any more.
class Attempt {
  public:
    virtual ~Attempt() = default;
};

class Backend {
  public:
    // Called once, never before the function that took it has returned.
    using Done = std::function<void(Outcome)>;

    virtual ~Backend() = default;

    // Authenticates a user. `dialogue` is what the preceding round of the login gave, null in
    // the first one. A challenge without a password or user name in the question is the way
    // to ask for it.
    virtual std::unique_ptr<Attempt> authenticate(const Question &question,
                                                  std::shared_ptr<Dialogue> dialogue, Done done) = 0;
    // Whether the user may use the service or run the command.
    virtual std::unique_ptr<Attempt> authorize(const Question &question, Done done) = 0;
    // Takes an accounting record. A pass means that it is kept.
    virtual std::unique_ptr<Attempt> account(const Question &question, Done done) = 0;

    // Whether one call of account() takes the record for several methods of this backend.
    virtual bool takes_for_several(const Question &) const { return false; }

    // Whether it asks servers: when their time is over, the next method is asked.
    virtual bool is_remote() const = 0;
};

// A method whose answer is known at once: it is given in the next round of the loop.
std::unique_ptr<Attempt> answer_soon(net::Loop &loop, Outcome outcome, Backend::Done done);

// The backends by method. A method without one is not available.
class Backends {
  public:
    void add(std::uint32_t method, std::shared_ptr<Backend> backend);
    // For the servers of a protocol, in groups and without.
    void add(Protocol protocol, std::shared_ptr<Backend> backend);
    Backend *find(const Method &method) const;
    // Null when there is none for a protocol.
    std::shared_ptr<Backend> find(Protocol protocol) const;

  private:
    std::map<std::uint32_t, std::shared_ptr<Backend>> by_method_;
    std::map<Protocol, std::shared_ptr<Backend>> by_protocol_;
};

}  // namespace service
