// SPDX-License-Identifier: Apache-2.0
//
// The keys of servers, which are sealed in the database. While the master keys cannot be read a key
// that was opened before is still known: without it its server would not be asked, and the next
// method would decide in its place.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "base/secret.hpp"

namespace service {

class OpenedKeys {
  public:
    struct Key {
        Secret text;
        bool is_kept = false;  // it could not be opened now
    };

    // Opens the key of the server at a place. One that cannot be opened is the one that was opened
    // before from the same text, else the one of the same place. Nullopt when there is none.
    std::optional<Key> open(const std::string &place, const Secret &sealed);

    // Before and after all keys of a configuration are opened. Those that it does not have are
    // forgotten, unless it could not be read to its end.
    void begin() { next_.clear(); }
    void end(bool is_whole);

  private:
    struct Known {
        std::string sealed;
        Secret text;
    };
    const Known *known(const std::string &place, const std::string &sealed) const;

    std::map<std::string, Known> known_, next_;  // by place
};

}  // namespace service
