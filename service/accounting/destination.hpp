// SPDX-License-Identifier: Apache-2.0
//
// The delivery of records to one destination. Records of a session go one after the other;
// those of different sessions at the same time. A record that is not answered is sent again
// for as long as it takes.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "accounting/journal.hpp"
#include "accounting/positions.hpp"
#include "accounting/sender.hpp"
#include "net/loop.hpp"

namespace accounting {

struct DeliverySettings {
    std::size_t window = 32;                 // records that are being sent at a time
    std::size_t read_ahead = 4096;           // records in memory, the others are on disk only
    std::size_t read_ahead_bytes = 8 << 20;  // of their payloads
    net::Time first_wait = net::kSecond;     // before a record is sent again; doubles
    net::Time longest_wait = 60 * net::kSecond;
    net::Time save_after = 200 * net::kMillisecond;  // how old the position on disk may be
    // A server may ignore one record for ever and take all others. After so many tries
    // with successes of others in between, such a record counts as refused. 0: never.
    unsigned tries_while_others_pass = 30;
};

struct DestinationFigures {
    bool configured = false;       // it has a sender
    bool down = false;             // nothing was delivered since a record was not answered
    std::uint64_t waiting = 0;     // records that are not done
    std::uint64_t in_flight = 0;   // of these, records that are being sent
    std::uint64_t delivered = 0;   // since the start, like the following
    std::uint64_t unanswered = 0;  // tries
    std::uint64_t refused = 0;
    std::uint64_t dropped = 0;
};

class Destination {
  public:
    Destination(net::Loop &loop, Journal &journal, std::string name, Position position,
                DeliverySettings settings, Log log, std::function<void()> progress);
    ~Destination();
    Destination(const Destination &) = delete;
    Destination &operator=(const Destination &) = delete;

    // Null: nothing is sent until there is one.
    void set_sender(std::shared_ptr<Sender> sender);

    // A record that was found at the start, and whether it is done. In order.
    void found(const Record &record);
    // A record that has just become durable. In order, and of all destinations.
    void offer(const Durable &durable);
    // Records that are no more on disk. Returns how many were not done.
    std::uint64_t drop(const std::vector<RecordPointer> &records);
    // Gives up everything that is not done. In-flight records may still arrive.
    void drop_all();

    // Records below are done.
    std::uint64_t lowest() const;
    // Writes the position now.
    void save(bool durable);
    DestinationFigures figures() const;

  private:
    struct Pending {
        RecordPointer record;
        unsigned tries = 0;
        unsigned tries_while_others_passed = 0;
        std::uint64_t passed = 0;  // deliveries to the destination before the last try failed
    };
    // The records of a session, in order.
    struct Queue {
        std::deque<std::uint64_t> waiting;
        std::uint64_t attempt = 0;  // not 0: the first one is being sent, or written as refused
        bool sending = false;
        std::uint64_t passed = 0;  // deliveries to the destination before that
        net::Time not_before = 0;
        std::string key;
    };

    static std::string key_of(const Record &record);
    bool named_in(const Record &record) const;
    bool is_done(std::uint64_t sequence) const;
    bool has_room(std::size_t part) const;
    void add(const RecordPointer &record);
    bool forget(std::uint64_t sequence);
    void make_ready(Queue &queue);
    void delay(Queue &queue, unsigned tries);
    net::Time wait_for(unsigned tries) const;
    void release_due();

    void pump();
    bool may_send() const;
    void send(Queue &queue);
    void finished(const std::string &key, std::uint64_t attempt, Outcome outcome, const std::string &why);
    void answered(Queue &queue, Pending &pending);
    void unanswered(Queue &queue, Pending &pending, const std::string &why);
    void refused(Queue &queue, const Pending &pending, const std::string &why);
    void next_of(Queue &queue);
    void done(std::uint64_t sequence);
    bool drop_one(const Record &record);
    void rebuild_ready();
    void refill();
    void take(const Segments::Read &read, std::uint64_t through);
    void changed();
    Position position() const;
    void set_timer();

    net::Loop &loop_;
    Journal &journal_;
    std::string name_;
    DeliverySettings settings_;
    Log log_;
    std::function<void()> progress_;
    std::shared_ptr<Sender> sender_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);

    Position loaded_;       // as it was on disk
    std::uint64_t cursor_;  // records below are in pending_, or done
    bool behind_ = false;   // records from point_ on are on disk only
    bool reading_ = false;
    net::Time read_again_ = 0;
    ReadPoint point_;

    std::map<std::uint64_t, Pending> pending_;
    std::size_t pending_bytes_ = 0;  // of the payloads
    std::map<std::string, Queue> queues_;
    std::deque<Queue *> ready_;
    std::set<std::pair<net::Time, Queue *>> delayed_;
    std::uint64_t in_flight_ = 0;
    std::uint64_t attempts_ = 0;
    bool pumping_ = false;

    bool down_ = false;
    unsigned failures_ = 0;
    net::Time down_since_ = 0;
    net::Time probe_at_ = 0;
    std::uint64_t attempts_before_down_ = 0;

    DestinationFigures figures_;
    net::Timer timer_;
    net::Timer save_timer_;
};

}  // namespace accounting
