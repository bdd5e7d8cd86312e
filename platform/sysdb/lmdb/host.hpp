// SPDX-License-Identifier: Apache-2.0
//
// The host's services for the provider: the log, and the check of values.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/sysdb_provider.h"

namespace sysdb_lmdb {

inline constexpr std::uint32_t kLogError = 3;
inline constexpr std::uint32_t kLogWarning = 4;
inline constexpr std::uint32_t kLogInfo = 6;

void set_host(const sysdb_host_t *host);

// Logs one line. The same text is not logged again for ten seconds: a damaged
// database fails at every call.
[[gnu::format(printf, 2, 3)]] void log(std::uint32_t severity, const char *format, ...);

// Whether stored bytes fit their type. True when the host has no such check.
bool value_fits(std::uint32_t datatype, std::string_view value);

void lock_log_before_fork();
void unlock_log_after_fork();

}  // namespace sysdb_lmdb
