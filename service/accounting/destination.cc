// SPDX-License-Identifier: Apache-2.0
//
// Sending: windows, retries, and what becomes of a record.
#include "accounting/destination.hpp"

#include <algorithm>
#include <utility>

namespace accounting {

namespace {

// What a server said must not end a log line or change a terminal.
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) == 0x7f; },
        '?');
    return text;
}

}  // namespace

Destination::Destination(net::Loop &loop, Journal &journal, std::string name, Position position,
                         DeliverySettings settings, Log log, std::function<void()> progress)
    : loop_(loop),
      journal_(journal),
      name_(std::move(name)),
      settings_(settings),
      log_(std::move(log)),
      progress_(std::move(progress)),
      loaded_(std::move(position)),
      cursor_(loaded_.lowest()),
      point_({cursor_, 0, 0}),
      timer_(loop, [this] { pump(); }),
      save_timer_(loop, [this] { save(false); }) {}

Destination::~Destination() = default;

void Destination::set_sender(std::shared_ptr<Sender> sender) {
    sender_ = std::move(sender);
    figures_.configured = sender_ != nullptr;
    // New servers, perhaps: no reason to wait any more.
    down_ = false;
    failures_ = 0;
    pump();
}

net::Time Destination::wait_for(unsigned tries) const {
    net::Time wait = settings_.first_wait;
    for (unsigned i = 1; i < tries && wait < settings_.longest_wait; ++i) {
        wait *= 2;
    }
    return std::min(wait, settings_.longest_wait);
}

void Destination::make_ready(Queue &queue) {
    queue.not_before = 0;
    ready_.push_back(&queue);
}

void Destination::delay(Queue &queue, unsigned tries) {
    queue.not_before = loop_.now() + wait_for(tries);
    delayed_.insert({queue.not_before, &queue});
}

void Destination::release_due() {
    while (!delayed_.empty() && delayed_.begin()->first <= loop_.now()) {
        Queue &queue = *delayed_.begin()->second;
        delayed_.erase(delayed_.begin());
        make_ready(queue);
    }
}

// A destination that is down gets one record at a time: another one each time, because
// the record itself may be the reason.
bool Destination::may_send() const {
    if (sender_ == nullptr || ready_.empty()) {
        return false;
    }
    return down_ ? in_flight_ == 0 && loop_.now() >= probe_at_ : in_flight_ < settings_.window;
}

void Destination::pump() {
    if (pumping_) {
        return;  // called by a sender that answers at once; the loop below goes on
    }
    pumping_ = true;
    release_due();
    if (loop_.now() >= read_again_) {
        read_again_ = 0;
    }
    while (may_send()) {
        Queue &queue = *ready_.front();
        ready_.pop_front();
        send(queue);
    }
    pumping_ = false;
    refill();
    set_timer();
}

void Destination::send(Queue &queue) {
    const Pending &pending = pending_.at(queue.waiting.front());
    queue.attempt = ++attempts_;
    queue.sending = true;
    queue.passed = figures_.delivered;
    ++in_flight_;
    const std::shared_ptr<Sender> sender = sender_;  // may be replaced by what it calls
    sender->send(pending.record, delay_seconds(pending.record->arrival, Moment::now()),
                 [this, watch = std::weak_ptr<int>(alive_), key = queue.key, attempt = queue.attempt](
                     Outcome outcome, const std::string &why) {
                     if (!watch.expired()) {
                         finished(key, attempt, outcome, why);
                     }
                 });
}

void Destination::finished(const std::string &key, std::uint64_t attempt, Outcome outcome,
                           const std::string &why) {
    const auto found = queues_.find(key);
    if (found == queues_.end() || found->second.attempt != attempt || !found->second.sending) {
        return;  // a second answer, or one for a record that was dropped
    }
    Queue &queue = found->second;
    queue.sending = false;
    --in_flight_;
    const auto pending = pending_.find(queue.waiting.front());
    switch (outcome) {
        case Outcome::kDelivered:
            answered(queue, pending->second);
            break;
        case Outcome::kUnavailable:
            unanswered(queue, pending->second, why);
            break;
        case Outcome::kRefused:
            refused(queue, pending->second, why);
            break;
    }
    pump();
}

void Destination::answered(Queue &queue, Pending &pending) {
    ++figures_.delivered;
    if (down_) {
        log_("accounting: " + name_ + " answers again after " +
             std::to_string((loop_.now() - down_since_) / net::kSecond) + " s; " +
             std::to_string(figures_.waiting - 1) + " records wait for it");
    }
    down_ = false;
    failures_ = 0;
    done(pending.record->sequence);
    next_of(queue);
}

void Destination::unanswered(Queue &queue, Pending &pending, const std::string &why) {
    ++figures_.unanswered;
    ++pending.tries;
    const bool others_passed_meanwhile = figures_.delivered != queue.passed;
    const bool others_passed = figures_.delivered != (pending.tries == 1 ? queue.passed : pending.passed);
    pending.passed = figures_.delivered;
    pending.tries_while_others_passed += others_passed ? 1 : 0;
    if (settings_.tries_while_others_pass != 0 &&
        pending.tries_while_others_passed >= settings_.tries_while_others_pass) {
        refused(
            queue, pending,
            "not answered in " + std::to_string(pending.tries) + " tries, while other records were taken");
        return;
    }
    const std::uint64_t attempt = std::exchange(queue.attempt, 0);
    if (others_passed_meanwhile) {
        delay(queue, pending.tries);
        return;
    }
    if (!down_) {
        down_ = true;
        down_since_ = loop_.now();
        log_("accounting: " + name_ + " does not answer (" + printable(why) + "); " +
             std::to_string(figures_.waiting) + (figures_.waiting == 1 ? " record waits" : " records wait") +
             " for it on disk");
    }
    // Records that were sent before the first one failed say nothing new.
    if (attempt > attempts_before_down_) {
        ++failures_;
        attempts_before_down_ = attempts_;
        probe_at_ = loop_.now() + wait_for(failures_);
    }
    make_ready(queue);
}

void Destination::refused(Queue &queue, const Pending &pending, const std::string &why) {
    const std::string line = refused_line(*pending.record, name_, why);
    const auto written = std::make_shared<bool>(false);
    log_("accounting: record " + std::to_string(pending.record->sequence) + " is not delivered to " + name_ +
         " (" + printable(why) + "); it is kept in " + kRefusedName);
    journal_.on_disk([line, written](Disk &disk) { *written = disk.refused.append(line); },
                     [this, watch = std::weak_ptr<int>(alive_), key = queue.key, attempt = queue.attempt,
                      sequence = pending.record->sequence, written] {
                         const auto found = watch.expired() ? queues_.end() : queues_.find(key);
                         if (watch.expired() || found == queues_.end() || found->second.attempt != attempt) {
                             return;
                         }
                         if (*written) {
                             ++figures_.refused;
                             done(sequence);
                             next_of(found->second);
                         } else {
                             log_("accounting: cannot write " + std::string(kRefusedName) + "; record " +
                                  std::to_string(sequence) + " is sent to " + name_ + " again later");
                             found->second.attempt = 0;
                             delay(found->second, ++pending_.at(sequence).tries);
                         }
                         pump();
                     });
}

void Destination::next_of(Queue &queue) {
    queue.attempt = 0;
    queue.waiting.pop_front();
    if (queue.waiting.empty()) {
        queues_.erase(std::string(queue.key));
    } else {
        make_ready(queue);
    }
}

void Destination::done(std::uint64_t sequence) {
    forget(sequence);
    --figures_.waiting;
    changed();
}

void Destination::set_timer() {
    net::Time next = INT64_MAX;
    if (!delayed_.empty()) {
        next = delayed_.begin()->first;
    }
    if (down_ && !ready_.empty() && in_flight_ == 0) {
        next = std::min(next, probe_at_);
    }
    if (read_again_ != 0) {
        next = std::min(next, read_again_);
    }
    if (sender_ == nullptr || next == INT64_MAX) {
        timer_.cancel();
    } else {
        timer_.set(next);
    }
}

DestinationFigures Destination::figures() const {
    DestinationFigures figures = figures_;
    figures.down = down_;
    figures.in_flight = in_flight_;
    return figures;
}

}  // namespace accounting
