// SPDX-License-Identifier: Apache-2.0
//
// The guard before every call that opens or closes a database connection: the
// database's client library is an optional package, and while
// its file is not readable no bind and no unbind is made. Also the two shared
// connection handles, which are read and bound lazily without a lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "aaa/lifecycle.h"
#include "aaa/result_codes.h"
#include "platform/sysdb.h"

namespace aaautil {

inline constexpr char kServerGroupPath[] = "/oper/aaa/gl/group-server/";
inline constexpr char kConfigPath[] = "/cfg/gl/aaa/";

// Whether the database's library is installed. Until it is found the file is
// looked for at every call; after that it counts as installed. Each module keeps
// its own answer.
class SysdbPresence {
  public:
    constexpr SysdbPresence() noexcept = default;
    SysdbPresence(const SysdbPresence &) = delete;
    SysdbPresence &operator=(const SysdbPresence &) = delete;

    [[nodiscard]] bool check() noexcept;

  private:
    std::atomic<unsigned char> seen_{0};
};

extern constinit SysdbPresence lifecycle_presence;     // worker and connection callbacks
extern constinit SysdbPresence server_group_presence;  // server-group lookup and configuration
extern constinit SysdbPresence method_list_presence;   // method lists and their notifications

// A shared handle (aaa_sgmap_sysdb_connid or aaa_cfg_sysdb_connid), 0 = none.
// The exported objects are plain words, so that callers written in C can read
// them; the library reads them through this and writes them atomically.
[[nodiscard]] inline uint64_t shared_handle(const uint64_t &handle) noexcept {
    return __atomic_load_n(&handle, __ATOMIC_ACQUIRE);
}

// Binds a shared handle that is 0; a handle that is already there is kept.
// Returns 0, SYSDB_ERR_LIB_ABSENT, or the bind's own code. No lock is taken:
// of two threads that bind at the same moment the first one's connection stays
// and the other releases its own.
[[nodiscard]] cerrno bind_shared(uint64_t &handle, const char *path, SysdbPresence &presence) noexcept;

// Opens a connection of the caller's own. *conn is handed to the database as it
// is and holds afterwards what the bind left in it; without a bind it is not
// touched. Returns 0, SYSDB_ERR_LIB_ABSENT, or the bind's own code.
[[nodiscard]] cerrno bind_private(sysdb_conn_t *conn, const char *path, SysdbPresence &presence) noexcept;

// Closes a connection, also the handle 0 (the platform tolerates it). Returns
// SYSDB_ERR_LIB_ABSENT when no unbind was made, else the unbind's code.
cerrno unbind(sysdb_conn_t conn, SysdbPresence &presence) noexcept;

}  // namespace aaautil
