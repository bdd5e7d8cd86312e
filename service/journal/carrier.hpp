// SPDX-License-Identifier: Apache-2.0
//
// Carries records from the journal to the servers of their groups, as the present
// configuration has them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "accounting/sender.hpp"
#include "groups/groups.hpp"

namespace service {

class Carrier {
  public:
    Carrier(net::Loop &loop, Groups &groups) : loop_(loop), groups_(groups) {}
    // What is under way ends without a call.
    ~Carrier();
    Carrier(const Carrier &) = delete;
    Carrier &operator=(const Carrier &) = delete;

    // Records that are sent from now on go to the servers of this configuration.
    void use(SnapshotPtr snapshot);
    // The group of a destination. Null when it is not configured, or has no usable server.
    std::shared_ptr<const Group> group(const std::string &destination) const;

    // What sends to one destination. The carrier must live longer than its last call.
    std::shared_ptr<accounting::Sender> sender(const std::string &destination);

  private:
    class GroupSender;
    void send(const std::string &destination, const accounting::Record &record, std::uint32_t delay,
              const accounting::Sender::Done &done);

    net::Loop &loop_;
    Groups &groups_;
    SnapshotPtr snapshot_;
    std::map<std::string, std::shared_ptr<const Group>> by_destination_;
    std::map<std::uint64_t, std::unique_ptr<Attempt>> under_way_;
    std::uint64_t last_ = 0;
};

}  // namespace service
