// SPDX-License-Identifier: Apache-2.0
//
// What is wrong with the configuration now, since when, and what to do about it. The log says it
// once; an administrator who looks later asks for it.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace service {

struct Alarm {
    std::string word;          // "database"
    std::int64_t since_s = 0;  // seconds since 1970
    std::string text;          // what is wrong, what applies meanwhile, and what to do
};

// Safe in any thread.
class Alarms {
  public:
    // Raises an alarm, or gives one that is raised another text. An empty text ends it.
    void set(const std::string &word, const std::string &text);
    // Oldest first.
    std::vector<Alarm> all() const;

  private:
    mutable std::mutex mutex_;
    std::vector<Alarm> alarms_;
};

}  // namespace service
