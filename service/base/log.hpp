// SPDX-License-Identifier: Apache-2.0
//
// Log lines of the service, through the host's catalog logging: to the journal, syslog or
// standard error, with everything visible that could forge another line.
//
// Safe in any thread.
#pragma once

#include <cstdint>

#include "aaa/result_codes.h"

namespace service {

// The syslog levels.
enum class Level : std::uint32_t { kError = 3, kWarning = 4, kNotice = 5, kInfo = 6, kDebug = 7 };

// Logs "%AAA-SERVICE-<level>-<mnemonic> : text". A text names the file or request, and what to do.
[[gnu::format(printf, 3, 4)]] void log(Level level, const char *mnemonic, const char *format, ...);

// The same, for lines that clients can cause as often as they like: one a second for each limit
// passes, and the next says how many were held back. `limit` is static.
[[gnu::format(printf, 4, 5)]] void log_limited(kel_msg_limit_t &limit, Level level, const char *mnemonic,
                                               const char *format, ...);

// Lines of the level kDebug are written only when this is on.
void log_debug(bool on);

}  // namespace service
