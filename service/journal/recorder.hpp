// SPDX-License-Identifier: Apache-2.0
//
// Accounting requests to groups of servers: they are put on disk, answered, and delivered
// later. Without a usable journal they go to the servers at once, as logins do.
//
// On the thread of the loop.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "accounting/accounting.hpp"
#include "backends/backend.hpp"
#include "groups/groups.hpp"
#include "journal/carrier.hpp"
#include "records/files.hpp"

namespace service {

class Recorder {
  public:
    // `groups` must live longer.
    Recorder(net::Loop &loop, Groups &groups);
    // Writes what was recorded, and answers nothing any more.
    ~Recorder();
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    // Takes the place of the groups' backends: it asks them for everything but accounting.
    void add_to(Backends &backends);
    // The configuration from now on. Settings that are known before open() are used by it.
    void use(const SnapshotPtr &snapshot);
    // Opens the journal of the settings, unless one is open. A log line says why it cannot be.
    void open();
    bool is_open() const { return accounting_ != nullptr; }

    // Whether the record of this question is kept on disk.
    bool keeps(const Question &question) const;
    // Puts the record of a question on disk, for its method and those in `also`. The outcome
    // is a pass when it is there, and otherwise no answer: the next method is asked.
    std::unique_ptr<Attempt> account(const Question &question, Backend::Done done);

    // Null while no journal is open.
    std::optional<accounting::Figures> figures() const;
    // Gives up the records that wait for a group. False: no journal is open, or nothing is
    // known of such a group.
    bool drop_queue(const std::string &destination);

    struct Counts {
        std::uint64_t interim = 0;  // records that the service made itself
        std::uint64_t closing = 0;
        std::uint64_t alarms[3] = {};  // raised, by accounting::Alarm
    };
    const Counts &counts() const { return counts_; }

  private:
    accounting::Settings settings() const;
    accounting::Limits limits() const;
    accounting::Events events();
    accounting::SessionCalls calls();
    void append_interim(const accounting::Record &opened);
    void append_closing(const accounting::Record &opened);
    void set_senders();
    void report_kept(const std::map<std::string, accounting::DestinationFigures> &destinations);

    net::Loop &loop_;
    Groups &groups_;
    AccountingSettings present_;  // of the configuration
    SnapshotPtr snapshot_;
    std::string open_path_;
    std::map<std::string, std::vector<Server>> senders_;  // destinations with a sender, and its servers
    std::set<std::string> reported_;                      // kept queues that the log has named
    Counts counts_;
    accounting::Files files_;
    Carrier carrier_;
    std::unique_ptr<accounting::Accounting> accounting_;  // goes before the carrier
};

}  // namespace service
