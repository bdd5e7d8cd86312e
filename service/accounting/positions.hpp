// SPDX-License-Identifier: Apache-2.0
//
// How far each destination is, in a file for each. A file is two slots that are written in
// turn, in place: the other one stays whole when the service ends in the middle, and a
// full disk does not matter once the file is there. Numbers are little-endian.
//
//   slot (4096 bytes)   "AAAAPOS1", generation (8), cursor (8), count (4), checksum (4),
//                       `count` sequences (8 each)
//
// The checksum is that of the slot without the checksum's own field, and of the file's name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "records/aside.hpp"
#include "records/directory.hpp"

namespace accounting {

// Records below the cursor are done, except those that are listed, in order.
struct Position {
    std::uint64_t cursor = 1;
    std::vector<std::uint64_t> undelivered;

    bool is_done(std::uint64_t sequence) const;
    std::uint64_t lowest() const { return undelivered.empty() ? cursor : undelivered.front(); }
    bool operator==(const Position &) const = default;
};

inline constexpr std::size_t kPositionSlot = 4096;
inline constexpr std::size_t kMaxUndelivered = (kPositionSlot - 32) / 8;

// The same with as many sequences as a slot holds; the records from the next one on are
// delivered once more after a restart.
Position limited(Position position);

class PositionFiles {
  public:
    PositionFiles(const Directory &directory, Log log) : directory_(directory), log_(std::move(log)) {}

    // The positions of all destinations that have a file. False: `error` says why.
    bool load(std::map<std::string, Position> &positions, std::string &error);
    // `durable`: it survives a loss of power. Without it, records may be delivered again.
    bool save(const std::string &destination, const Position &position, bool durable);
    bool remove(const std::string &destination);

  private:
    struct Open {
        net::Descriptor file;
        std::uint64_t generation = 0;
    };

    bool load_file(const std::string &name, const std::string &destination, Position &position);
    Open *open(const std::string &destination);

    const Directory &directory_;
    Log log_;
    bool failing_ = false;
    std::map<std::string, Open> open_;
};

// The name of a destination's file: what could have a meaning in a path is %XX.
std::string position_file_name(std::string_view destination);

}  // namespace accounting
