// SPDX-License-Identifier: Apache-2.0
//
// Typed reads of the system database for the readers of lists and groups. The first failure
// but "not found" is kept, and ends all reading.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/database.hpp"

namespace service {

struct DatabaseEntry {
    std::string name;  // without the '/' of a directory
    bool is_directory = false;
};

class DatabaseReader {
  public:
    DatabaseReader(sysdb_conn_t conn, ReadResult &result) : conn_(conn), result_(result) {}

    bool failed() const { return result_.failure != 0; }
    // Entries of a level in its order; none if there is no such directory.
    std::vector<DatabaseEntry> entries(const std::string &directory);
    // Values; nullopt if there is no such item, or one of another type, which is a fault.
    std::optional<std::uint32_t> number(const std::string &path);
    std::optional<Secret> text(const std::string &path);
    // The bytes of a tuple, which tuple_unpack_mask() reads.
    std::optional<std::string> tuple(const std::string &path);
    void fault(const std::string &path, const std::string &why);
    // A server whose key cannot be opened, so that it is not asked.
    void locked(const std::string &server) { result_.locked.push_back(server); }

  private:
    bool get(const std::string &path, std::uint32_t type, std::string &bytes);
    bool accept(const std::string &path, cerrno rc);

    sysdb_conn_t conn_;
    ReadResult &result_;
};

struct ServersReader {
    DatabaseReader &reader;
    OpenedKeys &keys;
    const ServerSettings &defaults;
    std::set<std::string> &kept_keys;  // filled, see Snapshot

    // Servers of a group, or of a protocol without a group: the entries below `directory`. What is
    // configured for one is below `settings`ENTRY/, for all of them in `settings`; both end in '/'.
    std::vector<Server> read(Protocol protocol, const std::string &directory, const std::string &settings);

  private:
    std::optional<Server> read_one(Protocol protocol, const std::string &entry, const std::string &path,
                                   const std::string &settings);
};

}  // namespace service
