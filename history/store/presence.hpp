// SPDX-License-Identifier: Apache-2.0
//
// Whether a watcher runs on this machine: each has an item below "/oper/aaa/history/watcher/", named after
// its process, which is only believed while that process lives.
#pragma once

#include <string>

#include "platform/sysdb.h"

namespace history {

inline constexpr char kPresenceTree[] = "/oper/";

// Of this process, as long as the object lives. Where the item cannot be stored, there is none: watching
// does not depend on it.
class Presence {
  public:
    explicit Presence(const std::string &program);
    ~Presence();
    Presence(const Presence &) = delete;
    Presence &operator=(const Presence &) = delete;

  private:
    sysdb_conn_t oper_ = 0;
    std::string path_;
};

// `oper` is bound at kPresenceTree, or 0.
bool is_watched(sysdb_conn_t oper);

}  // namespace history
