// SPDX-License-Identifier: Apache-2.0
//
// Accounting as the service uses it: a record is answered when it is on disk, and then
// delivered to its destinations at least once.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "accounting/destination.hpp"
#include "accounting/journal.hpp"
#include "accounting/sender.hpp"
#include "accounting/sessions.hpp"
#include "net/loop.hpp"

namespace accounting {

struct Settings {
    JournalSettings journal;
    DeliverySettings delivery;
    SessionSettings sessions;
};

// What may change while the service runs.
struct Limits {
    std::uint64_t most_bytes = 256 << 20;
    unsigned alarm_percent = 80;
    WhenFull when_full = WhenFull::kRefuse;
    net::Time interim_every = 0;
};

struct Figures {
    std::uint64_t bytes = 0;  // of the records on disk
    std::uint64_t most_bytes = 0;
    std::uint64_t recorded = 0;  // since the start, like the following
    std::uint64_t refused = 0;   // requests that were not answered with kOk
    std::uint64_t waiting = 0;   // for the disk
    std::uint64_t open_sessions = 0;
    std::uint64_t sessions_not_kept = 0;
    bool level_alarm = false, full_alarm = false, failed_alarm = false;
    std::map<std::string, DestinationFigures> destinations;
};

class Accounting {
  public:
    // All callbacks are called by the loop's thread. `files` is used by another thread.
    Accounting(net::Loop &loop, Settings settings, Events events, SessionCalls calls, Files &files);
    // Writes what was recorded; answers nothing any more.
    ~Accounting();

    // Reads what is on disk. Nothing else may be called before it has returned true. False:
    // `error` says what is wrong and what to do.
    bool open(std::string &error);

    // Records, and calls `done` once, later. The record gets its sequence here, and its
    // arrival when that has no time yet.
    void record(Record record, Journal::Done done);

    // A group of the configuration, with what sends to it. Replaces the sender of the same
    // name. Without a sender, its records are kept until there is one again, also across
    // restarts.
    void set_sender(const std::string &destination, std::shared_ptr<Sender> sender);
    // Gives up the records that wait for a destination. False: there is no such one.
    bool drop_queue(const std::string &destination);

    void change(const Limits &limits);

    const Sessions &sessions() const { return sessions_; }
    Figures figures() const;

  private:
    Destination &destination(const std::string &name, Position position);
    void recovered(const Record &record, std::uint64_t sessions_through,
                   const std::map<std::string, Position> &positions);
    void durable(const std::vector<Durable> &records);
    void release();

    net::Loop &loop_;
    Settings settings_;
    Events events_;
    Journal journal_;
    Sessions sessions_;
    std::map<std::string, std::unique_ptr<Destination>> destinations_;
    std::uint64_t sessions_saved_through_ = 0;
    std::uint64_t recorded_ = 0;
    std::uint64_t refused_ = 0;
    bool offering_ = false;
};

}  // namespace accounting
