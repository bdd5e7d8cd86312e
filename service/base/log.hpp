// SPDX-License-Identifier: Apache-2.0
//
// Log lines of the service, through the host's catalog logging: to the journal, syslog or
// standard error, with everything visible that could forge another line.
//
// Safe in any thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "aaa/result_codes.h"
#include "base/trace.hpp"

namespace service {

// The syslog levels.
enum class Level : std::uint32_t { kError = 3, kWarning = 4, kNotice = 5, kInfo = 6, kDebug = 7 };

// Logs "%AAA-SERVICE-<level>-<mnemonic> : text". A text names the file or request, and what to do.
[[gnu::format(printf, 3, 4)]] void log(Level level, const char *mnemonic, const char *format, ...);

// The same, for lines that clients can cause as often as they like: one a second for each limit
// passes, and the next says how many were held back. `limit` is static.
[[gnu::format(printf, 4, 5)]] void log_limited(kel_msg_limit_t &limit, Level level, const char *mnemonic,
                                               const char *format, ...);

// What a line is about. The systemd journal keeps it in fields next to the text: AAA_LOGIN_ID,
// AAA_USER, AAA_STEP, AAA_SUBJECT and AAA_CLIENT_PID. An empty text and a 0 are left out.
struct LogContext {
    LoginId id = 0;
    std::string_view user = {};
    const char *step = "";          // as the trace names it
    std::string_view subject = {};  // the method or server
    std::int32_t client_pid = 0;
};

// Log lines of a request: the text begins with the id, "[4f1c00a7] ".
[[gnu::format(printf, 4, 5)]] void log(Level level, const char *mnemonic, const LogContext &context,
                                       const char *format, ...);
[[gnu::format(printf, 5, 6)]] void log_limited(kel_msg_limit_t &limit, Level level, const char *mnemonic,
                                               const LogContext &context, const char *format, ...);

// Lines of the level kDebug are written only when this is on.
void log_debug(bool on);

}  // namespace service
