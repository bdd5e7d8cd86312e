// SPDX-License-Identifier: Apache-2.0

#include "decision/turns.hpp"

#include <algorithm>
#include <utility>

namespace service {

namespace {

enum Key : int { kPair, kUser, kSource };

// A user has sessions from several places, and users share an address.
constexpr std::uint32_t kTimesForUser = 4;
constexpr std::uint32_t kTimesForSource = 8;

std::uint32_t most_at_once(const Settings &settings, Key key) {
    return settings.logins_at_once * (key == kPair ? 1 : key == kUser ? kTimesForUser : kTimesForSource);
}

// A part of the places for clients, so that others find one.
std::uint32_t most_under_way(const Settings &settings, Key key) {
    constexpr std::uint32_t kLeast = 8;  // where the administrator allows few clients
    return std::max({settings.clients_max / (key == kSource ? 2 : 4), most_at_once(settings, key), kLeast});
}

}  // namespace

// ---- a turn

Turn::Turn(Turns &turns, const Question &question, Come come)
    : turns_(turns),
      user_(question.user),
      source_(question.source),
      is_local_(question.remote.empty()),
      settings_(question.snapshot->settings),
      come_(std::move(come)) {
    keys_[kPair] = "p" + user_ + '\0' + source_;
    keys_[kUser] =
        (is_local_ ? "l" : "u") + user_;  // terminals here and addresses do not wait for each other
    keys_[kSource] = "s" + source_;
    for (int key = 0; key < 3; ++key) {
        counts_[key] = turns_.counts(keys_[key]);
    }
    count(state_, 1);
}

Turn::~Turn() {
    change(State::kRefused);
    for (const std::string &key : keys_) {
        turns_.forget(key);
    }
    turns_.go_on();
}

void Turn::count(State state, int by) {
    for (TurnCounts *counts : counts_) {
        std::uint32_t *number = state == State::kWaiting   ? &counts->waiting
                                : state == State::kRunning ? &counts->running
                                : state == State::kPaused  ? &counts->paused
                                : state == State::kLeft    ? &counts->left
                                                           : nullptr;
        if (number != nullptr) {
            *number += static_cast<std::uint32_t>(by);
        }
    }
}

void Turn::change(State state) {
    if (state_ == State::kWaiting) {
        turns_.waiting_.remove(this);
    }
    count(state_, -1);
    state_ = state;
    count(state_, 1);
}

void Turn::pause() {
    change(State::kPaused);
    turns_.go_on();
}

void Turn::resume() {
    change(State::kRunning);
}

void Turn::leave() {
    change(State::kLeft);
    turns_.go_on();
}

void Turn::tell(bool has_come) {
    turns_.loop_.post([this, has_come, alive = std::weak_ptr<int>(alive_)] {
        if (alive.lock()) {
            const Come come = std::exchange(come_, nullptr);
            come(has_come);  // may destroy this
        }
    });
}

// ---- all of them

std::unique_ptr<Turn> Turns::take(const Question &question, Turn::Come come) {
    std::unique_ptr<Turn> turn(new Turn(*this, question, std::move(come)));
    waiting_.push_back(turn.get());
    if (make_room(*turn)) {
        go_on();
    }
    delayed_ += is_waiting(*turn) ? 1 : 0;
    return turn;
}

void Turns::forget(const std::string &key) {
    const auto found = counts_.find(key);
    if (found != counts_.end() &&
        found->second.running + found->second.paused + found->second.left + found->second.waiting == 0) {
        counts_.erase(found);
    }
}

// One login may always run: its failure may lock the user out, which ends the wait of the others.
bool Turns::may_run(const Turn &turn) const {
    const Settings &settings = *turn.settings_;
    const Lockout::Left left = lockout_.left(turn.user_, turn.source_, loop_.now(), settings.lockout);
    // Users at a question of a server are counted for themselves only: others of the same address, such as a
    // jump host, do not wait for what they type.
    const auto has_left = [&](Key key, std::uint32_t failures) {
        const TurnCounts &counts = *turn.counts_[key];
        return counts.running + counts.left + (key == kPair ? counts.paused : 0) < std::max(failures, 1U);
    };
    const auto has_place = [&](Key key) {
        return settings.logins_at_once == 0 || (key == kUser && turn.is_local_) ||
               turn.counts_[key]->running < most_at_once(settings, key);
    };
    return left.of_user == 0 || left.of_source == 0 ||  // it is refused without a method
           (has_left(kPair, left.of_user) && has_left(kSource, left.of_source) && has_place(kPair) &&
            has_place(kUser) && has_place(kSource));
}

// Of the logins that share a key with one: the youngest of the longest queue of a user from a
// source. Null when the login itself is in it.
Turn *Turns::longest_queue(const Turn &turn, int key) const {
    Turn *longest = nullptr;
    for (Turn *other : waiting_) {
        if (other->counts_[key] == turn.counts_[key] &&
            (longest == nullptr || other->counts_[kPair]->waiting >= longest->counts_[kPair]->waiting)) {
            longest = other;
        }
    }
    return longest != nullptr && longest->counts_[kPair]->waiting > turn.counts_[kPair]->waiting ? longest
                                                                                                 : nullptr;
}

bool Turns::cut_longest() {
    Turn *longest = nullptr;
    for (Turn *turn : waiting_) {
        if (longest == nullptr || turn->counts_[kPair]->waiting >= longest->counts_[kPair]->waiting) {
            longest = turn;
        }
    }
    if (longest != nullptr) {
        longest->change(Turn::State::kRefused);
        longest->tell(false);
    }
    return longest != nullptr;
}

// Whether a turn stays in the queue. Where too many wait, the longest queue is cut: someone who
// tries passwords from one place must not keep the user out everywhere.
bool Turns::make_room(Turn &turn) {
    for (const Key key : {kPair, kUser, kSource}) {
        const TurnCounts &counts = *turn.counts_[key];
        if (counts.waiting + counts.running <= most_under_way(*turn.settings_, key) ||
            (key == kUser && turn.is_local_)) {
            continue;
        }
        Turn *last = longest_queue(turn, key);
        Turn &refused = last != nullptr ? *last : turn;
        refused.change(Turn::State::kRefused);
        refused.tell(false);
        if (&refused == &turn) {
            return false;
        }
    }
    return true;
}

// Lets those run that may: first who has the fewest logins under way, then who waits for longest.
void Turns::go_on() {
    for (;;) {
        Turn *next = nullptr;
        for (Turn *turn : waiting_) {
            if ((next == nullptr || turn->counts_[kPair]->running < next->counts_[kPair]->running) &&
                may_run(*turn)) {
                next = turn;
            }
        }
        if (next == nullptr) {
            return;
        }
        next->change(Turn::State::kRunning);
        next->tell(true);
    }
}

}  // namespace service
