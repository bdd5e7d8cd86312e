// SPDX-License-Identifier: Apache-2.0
//
// Open sessions.
#include "accounting/sessions.hpp"

#include <algorithm>

namespace accounting {

namespace {

// Sessions that are looked at in one go; requests are served between two of them.
constexpr std::size_t kChecksAtOnce = 128;
constexpr std::size_t kInterimsAtOnce = 64;
constexpr std::uint64_t kSpread = 1024;

}  // namespace

Sessions::Sessions(net::Loop &loop, SessionSettings settings, SessionCalls calls)
    : loop_(loop),
      settings_(settings),
      calls_(std::move(calls)),
      check_timer_(loop, [this] { check(); }),
      interim_timer_(loop, [this] { send_interims(); }) {}

void Sessions::apply(const RecordPointer &record) {
    if (record->kind == Kind::kStart) {
        open(record);
    } else if (record->kind == Kind::kStop) {
        close(record->session);
    }
}

void Sessions::open(const RecordPointer &record) {
    close(record->session);  // its process never closed the session of the same name
    const std::size_t bytes = body_size(*record);
    if (by_sequence_.size() >= settings_.most || bytes_ + bytes > settings_.most_bytes) {
        ++overflowed_;
        return;
    }
    bytes_ += bytes;
    by_name_[record->session] = record->sequence;
    Open &session = by_sequence_[record->sequence];
    session.opened = record;
    if (started_ && settings_.interim_every != 0) {
        schedule(session, loop_.now() + settings_.interim_every);
        set_interim_timer();
    }
}

void Sessions::close(const std::string &name) {
    const auto found = by_name_.find(name);
    if (found == by_name_.end()) {
        return;
    }
    const auto session = by_sequence_.find(found->second);
    interims_.erase({session->second.interim_at, session->first});
    bytes_ -= body_size(*session->second.opened);
    by_sequence_.erase(session);
    by_name_.erase(found);
}

void Sessions::start() {
    started_ = true;
    spread_interims();
    check_timer_.set(loop_.now());  // processes may have ended since the last run of the service
}

void Sessions::spread_interims() {
    if (settings_.interim_every != 0) {
        for (auto &[sequence, session] : by_sequence_) {
            const auto part = static_cast<net::Time>(sequence % kSpread + 1);
            schedule(session, loop_.now() + settings_.interim_every / static_cast<net::Time>(kSpread) * part);
        }
    }
    set_interim_timer();
}

void Sessions::set_interim(net::Time every) {
    if (every == settings_.interim_every) {
        return;
    }
    settings_.interim_every = every;
    interims_.clear();
    spread_interims();
}

RecordPointer Sessions::find(const std::string &name) const {
    const auto found = by_name_.find(name);
    return found != by_name_.end() ? by_sequence_.at(found->second).opened : nullptr;
}

void Sessions::schedule(Open &session, net::Time at) {
    interims_.erase({session.interim_at, session.opened->sequence});
    session.interim_at = at;
    interims_.insert({at, session.opened->sequence});
}

void Sessions::set_interim_timer() {
    if (interims_.empty()) {
        interim_timer_.cancel();
    } else {
        interim_timer_.set(interims_.begin()->first);
    }
}

void Sessions::send_interims() {
    for (std::size_t i = 0; i < kInterimsAtOnce && !interims_.empty(); ++i) {
        const auto [at, sequence] = *interims_.begin();
        if (at > loop_.now()) {
            break;
        }
        Open &session = by_sequence_.at(sequence);
        schedule(session, loop_.now() + settings_.interim_every);
        const RecordPointer opened = session.opened;
        calls_.interim(opened);  // may change the table
    }
    set_interim_timer();
}

// A part of the sessions at a time, so that all of them are looked at in check_every.
void Sessions::set_check_timer() {
    const std::size_t parts = std::max<std::size_t>(1, by_sequence_.size() / kChecksAtOnce);
    check_timer_.set(loop_.now() + settings_.check_every / static_cast<net::Time>(parts));
}

void Sessions::check() {
    std::vector<RecordPointer> ended;
    auto session = by_sequence_.upper_bound(checked_);
    for (std::size_t i = 0; i < kChecksAtOnce && session != by_sequence_.end(); ++i, ++session) {
        checked_ = session->first;
        if (!calls_.is_alive(*session->second.opened)) {
            ended.push_back(session->second.opened);
        }
    }
    if (session == by_sequence_.end()) {
        checked_ = 0;
    }
    for (const RecordPointer &opened : ended) {
        calls_.ended(opened);
    }
    set_check_timer();
}

std::vector<RecordPointer> Sessions::list() const {
    std::vector<RecordPointer> list;
    for (const auto &[sequence, session] : by_sequence_) {
        list.push_back(session.opened);
    }
    return list;
}

}  // namespace accounting
