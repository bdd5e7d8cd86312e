// SPDX-License-Identifier: Apache-2.0
//
// Reads method lists and server groups from the system database. Blocks; for the thread of
// the configuration.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/opened_keys.hpp"
#include "config/snapshot.hpp"
#include "platform/sysdb.h"

namespace service {

// Where a key cannot be opened. The command says what is wrong with the file of master keys as the service
// sees it.
inline constexpr char kMasterKeysAdvice[] =
    "to see why and what to do, say as root: runuser -u aaad -- aaactl key masters";

// A connection that unbinds itself.
class DatabaseConnection {
  public:
    DatabaseConnection() = default;
    ~DatabaseConnection() { close(); }
    DatabaseConnection(const DatabaseConnection &) = delete;
    DatabaseConnection &operator=(const DatabaseConnection &) = delete;

    // AAA_OK, or why the directory cannot be bound.
    cerrno open(const char *directory);
    void close();
    sysdb_conn_t get() const { return handle_; }

  private:
    sysdb_conn_t handle_ = 0;
};

// What a read found besides the configuration.
struct ReadResult {
    cerrno failure = 0;  // not 0: the database cannot be read, and the rest is empty
    std::string failed_path;
    std::vector<std::string> faults;  // lists, servers and keys that are not used, and why
    std::vector<std::string> locked;  // servers whose keys cannot be opened and are not known either
};

// Fills lists and groups of a snapshot whose settings are set. `config` is bound at
// /cfg/gl/aaa/, `maps` at /oper/aaa/gl/group-server/ or not at all: numbers are then 0. `keys` has
// the keys that earlier reads have opened.
ReadResult read_database(sysdb_conn_t config, sysdb_conn_t maps, OpenedKeys &keys, Snapshot &snapshot);

// Publishes the numbers of the configured groups for the lookups of the library's clients,
// and removes those of groups that are no longer configured. Appends what was refused to
// the faults.
void publish_groups(sysdb_conn_t config, sysdb_conn_t maps, std::vector<std::string> &faults);

}  // namespace service
