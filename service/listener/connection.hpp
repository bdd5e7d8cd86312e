// SPDX-License-Identifier: Apache-2.0
//
// One client. It has one request at a time: answers do not name their request, so the next
// message is read when the one before is answered. A client that goes away cancels its
// request.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "aaa/transport.h"
#include "capture/capture.hpp"
#include "decision/decision.hpp"
#include "listener/access.hpp"
#include "listener/message.hpp"
#include "listener/user_names.hpp"
#include "net/loop.hpp"

namespace service {

struct FreeTransport {
    void operator()(aaa_transport_t *transport) const { aaa_transport_free(transport); }
};
using Transport = std::unique_ptr<aaa_transport_t, FreeTransport>;

class Connection;

// What a connection uses of its listener.
class ConnectionHost {
  public:
    virtual ~ConnectionHost() = default;
    virtual const Deciders &deciders() const = 0;
    virtual Capture &capture() = 0;
    virtual const SnapshotPtr &snapshot() const = 0;
    virtual UserNames &user_names() = 0;
    virtual aaa_transport_msg_t &buffer() = 0;  // for one message at a time
    virtual std::uint64_t new_login() = 0;      // never the same twice, never 0
    virtual bool is_draining() const = 0;
    // Takes the decision of a client that has gone.
    virtual bool keep(std::unique_ptr<Decision> decision) = 0;
    virtual void configure(const Request &request, std::function<void(cerrno)> done) = 0;
    // Destroys the connection.
    virtual void remove(Connection *connection) = 0;
};

class Connection : private AnswerTap {
  public:
    Connection(ConnectionHost &host, Transport client, Peer peer);
    ~Connection() override;
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    bool usable() const { return watch_.usable(); }
    const Peer &peer() const { return peer_; }
    bool is_working() const { return request_ != nullptr; }
    // Whether its client has sent nothing that is unanswered, so that it can be closed: its client
    // connects again when it has something to ask.
    bool is_idle() const;
    // Whether a login waits for its user, who would have to begin again.
    bool has_login() const { return pending_ != nullptr; }
    net::Time idle_since() const { return idle_since_; }

  private:
    // Of its answers.
    bool is_on() const override;
    void sent(std::string_view bytes, std::size_t list_at) override;
    void note_user();
    void capture_request(std::string_view bytes);
    void capture(bool is_answer, const WireMessage &message);

    void on_events(std::uint32_t events);
    void serve();
    void handle(const aaa_transport_msg_t &message);
    void handle_function(Function function, std::uint32_t patience_ms);
    void handle_configuration();
    void forget_login();
    void check_self(Function function, std::shared_ptr<Question> question);
    void start(Function function, std::shared_ptr<Question> question);
    std::shared_ptr<PendingLogin> take_pending(const Question &question, bool &refused);
    void begin_work();
    void answer(Function function, const Answer &answer);
    void answer_error(cerrno error);
    void begin_login();
    void trace_request(LoginId id, const Question &question);
    void refuse(Ask ask, const char *why);
    void refuse_question(const Question &question, const char *why);
    void leave();
    void finish(cerrno sent);
    void wait_for_message();

    ConnectionHost &host_;
    Transport client_;
    Peer peer_;
    net::Watch watch_;
    net::Timer idle_;
    net::Time idle_since_ = 0;
    std::uint32_t client_login_ = 0;  // the number that the client gives its login; 0: none
    std::uint64_t login_ = 0;
    LoginId id_ = 0;
    std::uint64_t number_;        // of the connection, for captures
    std::uint32_t exchange_ = 0;  // of the request under way, from 1
    std::string named_user_;      // by the latest request that names one

    std::shared_ptr<Request> request_;  // under way
    std::unique_ptr<Decision> decision_;
    std::shared_ptr<int> alive_;  // of what is under way outside: gone when the request is

    std::shared_ptr<PendingLogin> pending_;
    std::string token_;
    std::string authenticated_;  // the user whose login has passed on this connection
};

}  // namespace service
