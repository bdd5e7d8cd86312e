// SPDX-License-Identifier: Apache-2.0
//
// Shared by the server-group files: keywords, the presence flag, the name map.
#pragma once

#include <cstdint>

#include "aaa/types.h"
#include "internal/sysdb_access.hpp"

namespace aaautil {

// The words in which method lists and group protocols are written. Their
// numbering is their own, not that of the method values.
inline constexpr const char *kKeywords[] = {
    "none",      "radius",           "tacacs", "tacacs+",     "local",         "enable", "default",
    "if-needed", "if-authenticated", "krb5",   "krb5-telnet", "krb5-instance", "line",   "local-case",
    "guest",     "auth-guest",       "rcmd",   "diameter"};

inline constexpr uint32_t kRadius = 1;
inline constexpr uint32_t kTacacs = 2;
inline constexpr uint32_t kDiameter = 17;

// Binds the mapping connection on first use; a failure is logged with the
// given action text.
[[nodiscard]] cerrno bind_group_map(const char *failure_action) noexcept;

// The action texts of a failed bind. The blanks differ between the callers and
// are kept: operators match these lines.
inline constexpr char kBindFailedTwoBlanks[] = "sysdb_bind failed  on ";
inline constexpr char kBindFailed[] = "sysdb_bind failed on ";

// Logs a failure of the system database: action, path, text of the code.
void log_sysdb_failure(const char *action, const char *path, cerrno rc) noexcept;

// Reads the number of a group under one protocol; a value that is not a number
// gives AAA_ERR_SG_MAPPING. With a null number only the item's existence counts.
[[nodiscard]] cerrno read_name_map(uint64_t conn, const char *sg_name, uint32_t protocol,
                                   uint32_t *number) noexcept;

// Looks for the group in every method list under path (512-byte buffer,
// relative to the configuration connection).
[[nodiscard]] cerrno find_group_in_lists(const char *path, const char *sg_name, bool *found) noexcept;

}  // namespace aaautil
