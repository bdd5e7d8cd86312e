// SPDX-License-Identifier: Apache-2.0
//
// One question on its way through the servers of a group. The next server is asked when one
// is silent, cannot be reached, or answers with an error; never when it has decided, whatever
// it said. Each step is in the trace, with the reason for the next.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/backend.hpp"
#include "backends/server_health.hpp"
#include "groups/server_client.hpp"

namespace service {

class Probes;

// What came of asking one server.
struct ServerResult {
    enum class Kind : std::uint8_t {
        kAnswer,    // it has decided, or asks the user
        kSilent,    // no answer to any try
        kRefused,   // the network says that it cannot be reached
        kBroken,    // it answered with an error, or the connection was lost, or it could not be asked
        kOverload,  // this service could not ask it: too much is under way
    };

    Kind kind = Kind::kBroken;
    Outcome outcome;     // of kAnswer
    std::string text;    // of the others: why
    unsigned tries = 0;  // how often the question was sent
    net::Time time = 0;  // until the outcome; 0: not known
};

// Told what came of asking a server, and how long that took, for figures.
using ServerObserver = std::function<void(const ServerClient &, Use, ServerResult::Kind, net::Time took)>;

// What all groups share. On the thread of the loop.
struct GroupContext {
    net::Loop &loop;
    Trace &trace;
    ServerHealth &health;
    ServerClients &clients;
    Probes &probes;
    const ServerObserver *observer = nullptr;
};

// The time that the server at `place` gets at most: all of its tries where the others' tries
// fit into what is left too, and an equal share otherwise.
net::Time share_of(std::size_t place, const std::vector<net::Time> &waits, net::Time left);

// A login whose server has gone between two rounds begins again. What the user has typed last
// was for that server, such as a code that is good once: it must not be taken for the
// password by another server or the next method.
Outcome begin_again(const std::string &why, std::shared_ptr<Dialogue> dialogue);

class Walk : public Attempt {
  public:
    // Asks a server until a time at most. Its function is called once, later, unless the
    // attempt is destroyed before.
    using Ask = std::function<std::unique_ptr<Attempt>(const ServerClientPtr &, net::Time until,
                                                       std::function<void(ServerResult)>)>;
    struct Options {
        Use use = Use::kRights;
        bool only_the_first = false;  // the server that has asked the user: no other one can go on
        std::function<Outcome(const std::string &why)> at_end;  // when no server has decided
    };

    Walk(const GroupContext &context, const Question &question, std::vector<ServerClientPtr> servers,
         Options options, Ask ask, Backend::Done done);
    ~Walk() override;
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

  private:
    void order();
    void ask_next();
    void watch_silence(net::Time time);
    void take(ServerResult result);
    void mark(const ServerResult &result);
    void count(const ServerResult &result);
    void trace(const std::string &subject, std::string detail, const char *outcome = "");
    void trace_reply(const ServerResult &result, net::Time waited, bool goes_on);
    void end(Outcome outcome);
    const std::string &health_of(std::size_t place) const;

    const GroupContext context_;
    const LoginId id_;
    const std::string user_;
    const char *const function_;
    const bool is_last_method_;
    const net::Time until_;   // leaves a little of the method's time for marks and trace
    const net::Time enough_;  // a server that was silent for so long is marked
    std::vector<ServerClientPtr> servers_;
    std::vector<net::Time> waits_;
    Options options_;
    Ask ask_;
    Backend::Done done_;

    std::size_t place_ = 0;  // of the next server
    net::Time asked_at_ = 0;
    std::unique_ptr<net::Timer> early_look_;
    std::string reasons_;
    std::unique_ptr<Attempt> attempt_;
};

}  // namespace service
