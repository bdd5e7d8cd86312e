// SPDX-License-Identifier: Apache-2.0
//
// Inside the client: a connection, the sessions on it, and whether the server lets several
// sessions share it (RFC 8907, 4.3). The first request offers that, the first answer accepts
// it or does not; no other request may be sent before.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "net/stream.hpp"
#include "tacacs/question.hpp"
#include "tacacs/reader.hpp"

namespace tacacs {

class Connection {
  public:
    enum class Sharing { kUndecided, kShared, kSingle };

    // What the client does with it. Each may close the connection, but not destroy it.
    struct Calls {
        std::function<void(Connection &, Question &, Fault)> answered;
        std::function<void(Connection &, Fault)> faulty;  // of no question in particular
        std::function<void(Connection &, std::string_view reason)> closed;
        std::function<void(Connection &)> idle;  // it was shared and not used for a while
        std::function<void()> late;              // an answer to an abandoned question
    };

    Connection(net::Loop &loop, const ServerSettings &settings, const net::TlsPeer &peer,
               const Protection &protection, Calls calls);

    // Whether another session may begin.
    bool has_room() const;
    bool is_open() const { return stream_ != nullptr; }
    bool was_connected() const { return was_connected_; }
    bool has_answered() const { return has_answered_; }
    Sharing sharing() const { return sharing_; }
    // A login that has the connection for itself, and whose user is typing.
    bool is_parked() const;
    std::unordered_map<std::uint32_t, Question *> &sessions() { return sessions_; }

    // Begins a session for a question, or goes on with its session. False when it could not
    // be sent; the question is not on the connection then.
    [[nodiscard]] bool send(Question &question);
    // Sends a packet to which there is no answer, and ends the session.
    void end(Question &question, SecretBytes packet);
    // Ends a session that was answered.
    void release(Question &question);
    // Ends a session that was not: its answer may still come.
    void abandon(Question &question, bool is_overdue);
    // Ends the connection; nothing is called any more.
    void close();

  private:
    static constexpr std::size_t kMaxSessions = 256;
    static constexpr std::size_t kMaxEnded = 64;

    void on_received(std::string_view bytes);
    void on_packet(std::string &packet);
    bool has_ended(std::uint32_t id) const;
    void remember_ended(std::uint32_t id);
    void after_session();

    net::Loop &loop_;
    const ServerSettings &settings_;
    const Protection &protection_;
    const Calls calls_;
    std::unique_ptr<net::Stream> stream_;  // null after close()
    PacketReader reader_;
    Sharing sharing_ = Sharing::kUndecided;
    bool was_connected_ = false;
    bool has_answered_ = false;
    bool is_retired_ = false;  // no further session may begin
    net::Time received_at_ = 0;
    std::unordered_map<std::uint32_t, Question *> sessions_;
    std::deque<std::uint32_t> ended_;  // the last sessions that ended without an answer
    net::Timer idle_;
};

}  // namespace tacacs
