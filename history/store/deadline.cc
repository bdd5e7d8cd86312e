// SPDX-License-Identifier: Apache-2.0

#include "store/deadline.hpp"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace history {

namespace {

constexpr std::int64_t kMillisecondsInMinute = 60'000;
constexpr std::int64_t kClockError = 60;  // seconds between two clocks that are right

std::string first_line(const char *file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

// Containers may have no id.
std::string machine() {
    std::string id = first_line("/etc/machine-id");
    char name[256] = "";
    if (id.empty() && gethostname(name, sizeof name - 1) == 0) {
        id = name;
    }
    return id;
}

}  // namespace

Now system_now() {
    timespec boot{};
    timespec wall{};
    clock_gettime(CLOCK_BOOTTIME, &boot);
    clock_gettime(CLOCK_REALTIME, &wall);
    return {machine(), first_line("/proc/sys/kernel/random/boot_id"),
            std::int64_t{boot.tv_sec} * 1000 + boot.tv_nsec / 1'000'000, wall.tv_sec};
}

Deadline deadline_after(std::uint32_t minutes, const Now &now) {
    return {now.machine, now.boot, now.since_boot + minutes * kMillisecondsInMinute,
            now.wall + std::int64_t{minutes} * 60, minutes};
}

std::optional<std::int64_t> left(const Deadline &deadline, const Now &now) {
    if (deadline.machine != now.machine) {
        return std::nullopt;
    }
    const std::int64_t whole = deadline.minutes * kMillisecondsInMinute;
    const std::int64_t by_boot = deadline.since_boot - now.since_boot;
    if (deadline.boot == now.boot && by_boot <= whole) {
        return by_boot;
    }
    // Compared before it is multiplied: a stored number may be anything.
    const std::int64_t wall = std::clamp<std::int64_t>(deadline.wall, 0, INT64_C(1) << 40);
    const std::int64_t passed = now.wall - (wall - std::int64_t{deadline.minutes} * 60);
    // A machine that had been running at the time of the commit was not restarted since: it is another one
    // with the same id, such as a copy. With a clock that was set back it cannot be told.
    if (deadline.boot != now.boot && passed >= 0 && now.since_boot / 1000 > passed + kClockError) {
        return std::nullopt;
    }
    return std::min((wall - now.wall) * 1000, whole - now.since_boot);
}

}  // namespace history
