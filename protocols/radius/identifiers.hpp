// SPDX-License-Identifier: Apache-2.0
//
// The 256 identifiers of one socket. The one that has been free for longest is taken
// first, and one whose answer may come late rests before it is free.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "net/loop.hpp"

namespace radius {

class Identifiers {
  public:
    Identifiers();

    // Nothing when all are taken or rest.
    std::optional<std::uint8_t> take(net::Time now);
    // Gives back one that was taken.
    void release(std::uint8_t id);
    // The same, but it is not taken before a time, which must not be before those of earlier calls.
    void release_at(std::uint8_t id, net::Time at);

    std::size_t taken() const { return taken_; }
    // When the next one that rests is free; INT64_MAX when none rests.
    net::Time next_free() const { return resting_.empty() ? INT64_MAX : resting_.front().until; }

  private:
    struct Resting {
        net::Time until;
        std::uint8_t id;
    };
    std::deque<std::uint8_t> free_;
    std::deque<Resting> resting_;
    std::size_t taken_ = 0;
};

}  // namespace radius
