// SPDX-License-Identifier: Apache-2.0
//
// What the provider uses of its host: the log.
#pragma once

#include <cstdint>

#include "platform/sysdb_provider.h"

namespace sysdb_lmdb {

inline constexpr std::uint32_t kLogError = 3;
inline constexpr std::uint32_t kLogWarning = 4;
inline constexpr std::uint32_t kLogInfo = 6;

void set_host(const sysdb_host_t *host);

// Logs one line. The same text is not logged again for ten seconds: what is
// wrong with a database is wrong at every call.
[[gnu::format(printf, 2, 3)]] void log(std::uint32_t severity, const char *format, ...);

void lock_log_before_fork();
void unlock_log_after_fork();

}  // namespace sysdb_lmdb
