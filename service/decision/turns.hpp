// SPDX-License-Identifier: Apache-2.0
//
// How many logins are worked on at once. Failures are counted when a method has answered, and a
// server may take its time for a refusal: without a limit, an attacker would try as
// many at once as there are places for clients, before the first is counted. So no more logins of
// a user from a source are worked on than failures are left before the lock-out; the others wait
// for their turn. Neither a user nor a source can take the places of all others.
//
// On the thread of the loop.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "backends/backend.hpp"
#include "backends/lockout.hpp"
#include "net/loop.hpp"

namespace service {

class Turns;

// The logins of a user, of a source, or of both.
struct TurnCounts {
    std::uint32_t running = 0;
    std::uint32_t paused = 0;  // wait for their user, who has answered before
    std::uint32_t left = 0;    // wait for a server, and their client has gone
    std::uint32_t waiting = 0;
};

// A place among the logins that are worked on, or in the queue. Destroying it gives it up.
class Turn {
  public:
    // Called once, from the loop: whether the login's turn has come. It has not when too many wait.
    using Come = std::function<void(bool)>;

    ~Turn();
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

    // Between two rounds, while the user is asked: until the outcome is known the login may be a
    // failure, so it is one less before the lock-out. It does not wait again.
    void pause();
    void resume();
    // The client has gone, and the answer of a server is awaited to count it. Others take the place.
    void leave();

  private:
    friend class Turns;
    enum class State : std::uint8_t { kWaiting, kRunning, kPaused, kLeft, kRefused };

    Turn(Turns &turns, const Question &question, Come come);
    void change(State state);
    void count(State state, int by);
    void tell(bool has_come);

    Turns &turns_;
    const std::string user_, source_;
    const bool is_local_;  // at a terminal of this system: no limit for the user there
    const std::shared_ptr<const Settings> settings_;
    TurnCounts *counts_[3];  // of the user from the source, the user, the source
    std::string keys_[3];
    State state_ = State::kWaiting;
    Come come_;
    std::shared_ptr<int> alive_ = std::make_shared<int>();
};

class Turns {
  public:
    Turns(net::Loop &loop, const Lockout &lockout) : loop_(loop), lockout_(lockout) {}
    Turns(const Turns &) = delete;
    Turns &operator=(const Turns &) = delete;

    // A turn for the login of a question. It is not there at once, but at the earliest when the loop
    // goes on.
    std::unique_ptr<Turn> take(const Question &question, Turn::Come come);
    // Whether a turn has not come yet.
    static bool is_waiting(const Turn &turn) { return turn.state_ == Turn::State::kWaiting; }

    // Turns away the youngest login of the longest queue. False when none waits.
    bool cut_longest();

    // For figures: logins that wait now, and those since the start that had to.
    std::size_t waiting() const { return waiting_.size(); }
    std::uint64_t delayed() const { return delayed_; }

  private:
    friend class Turn;

    TurnCounts *counts(const std::string &key) { return &counts_[key]; }
    void forget(const std::string &key);
    bool may_run(const Turn &turn) const;
    bool make_room(Turn &turn);
    Turn *longest_queue(const Turn &turn, int key) const;
    void go_on();

    net::Loop &loop_;
    const Lockout &lockout_;
    std::map<std::string, TurnCounts> counts_;
    std::list<Turn *> waiting_;  // oldest first
    std::uint64_t delayed_ = 0;
};

}  // namespace service
