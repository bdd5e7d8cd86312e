// SPDX-License-Identifier: Apache-2.0
//
// Moments and delays.
#include "records/clock.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <string_view>

#include "net/descriptor.hpp"

namespace accounting {

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
// A machine without a clock of its own starts in 1970 or at the time of its image.
constexpr std::int64_t kFirstPlausibleWall = 1'704'067'200 * kSecond;  // 2024
// A record that is older was more likely written with a wrong clock.
constexpr std::int64_t kLongestPlausibleDelay = 366 * 86'400 * kSecond;

BootId read_boot_id() {
    std::array<char, 64> text;
    const net::Descriptor file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    const ssize_t size = file ? read(file.get(), text.data(), text.size()) : 0;
    BootId id{};
    std::size_t digits = 0;
    for (const char c : std::string_view(text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)))) {
        const std::size_t digit = std::string_view("0123456789abcdef").find(c);
        if (digit != std::string_view::npos && digits < 2 * id.size()) {
            id[digits / 2] = static_cast<std::uint8_t>(std::size_t{id[digits / 2]} << 4 | digit);
            ++digits;
        }
    }
    return digits == 2 * id.size() ? id : BootId{};
}

std::int64_t read_clock(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return time.tv_sec * kSecond + time.tv_nsec;
}

bool plausible(std::int64_t wall) {
    return wall >= kFirstPlausibleWall;
}

std::int64_t delay(const Moment &arrival, const Moment &now) {
    if (arrival.boot == now.boot && arrival.boot != BootId{}) {
        return now.uptime - arrival.uptime;
    }
    const std::int64_t shortest = now.uptime;
    if (!plausible(arrival.wall) || !plausible(now.wall)) {
        return shortest;
    }
    // No overflow: both are positive.
    const std::int64_t by_wall = now.wall - arrival.wall;
    return by_wall > kLongestPlausibleDelay ? shortest : std::max(by_wall, shortest);
}

}  // namespace

Moment Moment::now() {
    static const BootId boot = read_boot_id();
    return {boot, read_clock(CLOCK_REALTIME), read_clock(CLOCK_BOOTTIME)};
}

std::uint32_t delay_seconds(const Moment &arrival, const Moment &now) {
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(delay(arrival, now) / kSecond, 0, UINT32_MAX));
}

}  // namespace accounting
