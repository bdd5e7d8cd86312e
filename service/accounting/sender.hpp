// SPDX-License-Identifier: Apache-2.0
//
// What carries records to the servers of a group. The protocols' clients implement it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "records/record.hpp"

namespace accounting {

enum class Outcome {
    kDelivered,    // a server has taken the record
    kUnavailable,  // no server answered; the record is sent again later
    kRefused,      // the record can never be delivered, for example because it cannot be encoded
};

class Sender {
  public:
    // What happened, and why for the administrator.
    using Done = std::function<void(Outcome, const std::string &why)>;

    virtual ~Sender() = default;
    // Sends a record that arrived `delay` seconds ago. `done` must be called once, by the
    // loop's thread, at the latest when the sender's own time-outs have passed; also before
    // this returns. It may be called after the sender was replaced.
    virtual void send(RecordPointer record, std::uint32_t delay, Done done) = 0;
};

}  // namespace accounting
