// SPDX-License-Identifier: Apache-2.0
//
// When a commit that waits for its confirmation is reverted. The wall clock may be set while it waits, so
// the clock that counts from the start of the machine decides, sleep included. After a restart of the
// machine that clock has begun again: then the wall clock decides, or the time since the restart if that is
// over earlier, so that a clock that was lost cannot delay it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace history {

struct Now {
    std::string machine;          // its id
    std::string boot;             // of this start of the machine
    std::int64_t since_boot = 0;  // milliseconds of CLOCK_BOOTTIME
    std::int64_t wall = 0;        // seconds since 1970
};
Now system_now();

struct Deadline {
    std::string machine;
    std::string boot;
    std::int64_t since_boot = 0;  // milliseconds
    std::int64_t wall = 0;        // seconds since 1970
    std::uint32_t minutes = 0;

    bool operator==(const Deadline &other) const = default;
};
Deadline deadline_after(std::uint32_t minutes, const Now &now);

// Milliseconds until the deadline, 0 or less when it is over. Nothing on another machine that shares the
// database: its clocks have nothing to do with these. A copy of a machine has the same id; it is known by
// having run for longer than the commit waits.
std::optional<std::int64_t> left(const Deadline &deadline, const Now &now);

}  // namespace history
