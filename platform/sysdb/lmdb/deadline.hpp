// SPDX-License-Identifier: Apache-2.0
//
// Points in time until which something is waited for.
#pragma once

#include <ctime>

namespace sysdb_lmdb {

inline timespec after(long milliseconds, clockid_t clock = CLOCK_MONOTONIC) {
    timespec time{};
    clock_gettime(clock, &time);
    time.tv_sec += milliseconds / 1000;
    time.tv_nsec += milliseconds % 1000 * 1'000'000;
    if (time.tv_nsec >= 1'000'000'000) {
        time.tv_nsec -= 1'000'000'000;
        ++time.tv_sec;
    }
    return time;
}

// On the monotonic clock.
inline bool has_passed(const timespec &time) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > time.tv_sec || (now.tv_sec == time.tv_sec && now.tv_nsec >= time.tv_nsec);
}

// Between two looks at something whose end no event reports.
inline void pause_briefly() {
    constexpr timespec kPause = {0, 2'000'000};
    nanosleep(&kPause, nullptr);
}

}  // namespace sysdb_lmdb
