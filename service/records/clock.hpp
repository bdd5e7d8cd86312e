// SPDX-License-Identifier: Apache-2.0
//
// When a record arrived, in a form that survives a restart of the machine and jumps of
// its clock, and how long ago that was.
#pragma once

#include <array>
#include <cstdint>

namespace accounting {

// Identifies one run of the machine's kernel.
using BootId = std::array<std::uint8_t, 16>;

struct Moment {
    BootId boot{};            // all zero: unknown
    std::int64_t wall = 0;    // nanoseconds since 1970
    std::int64_t uptime = 0;  // nanoseconds since the machine started, with the time it was suspended

    static Moment now();
};

// Seconds from the arrival of a record until now, as protocols report them with a record.
// Never negative, and never much too long because a clock was set: within one run of the
// machine only the uptime counts. Across a restart it is the difference of the wall clocks
// when both were plausible, and otherwise the uptime, which is the shortest possible delay.
std::uint32_t delay_seconds(const Moment &arrival, const Moment &now);

}  // namespace accounting
