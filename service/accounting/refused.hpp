// SPDX-License-Identifier: Apache-2.0
//
// The file of records that a destination refused for good. Each is one line of JSON, for
// the administrator:
//
//   {"time":"2026-11-22T10:00:00Z","destination":"billing","reason":"...","kind":"stop",
//    "session":"...","sequence":17,"payload":"<hexadecimal>"}
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "records/aside.hpp"
#include "records/directory.hpp"
#include "records/record.hpp"

namespace accounting {

inline constexpr char kRefusedName[] = "refused.jsonl";
inline constexpr char kOlderRefusedName[] = "refused.older.jsonl";

std::string refused_line(const Record &record, std::string_view destination, std::string_view reason);

class RefusedFile {
  public:
    // A file that has become longer than `most_bytes` becomes the older one, which is
    // replaced.
    RefusedFile(const Directory &directory, std::uint64_t most_bytes, Log log)
        : directory_(directory), most_bytes_(most_bytes), log_(std::move(log)) {}

    // True when the line survives everything. Otherwise errno says why not.
    bool append(const std::string &line);

  private:
    bool open();

    const Directory &directory_;
    std::uint64_t most_bytes_;
    Log log_;
    net::Descriptor file_;
    std::uint64_t size_ = 0;
};

}  // namespace accounting
