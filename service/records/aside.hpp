// SPDX-License-Identifier: Apache-2.0
//
// Keeps bytes that are no record, for the administrator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "records/directory.hpp"

namespace accounting {

using Log = std::function<void(const std::string &)>;

class Aside {
  public:
    explicit Aside(const Directory &directory) : directory_(directory) {}

    enum class Kept { kYes, kBefore, kNot };
    // Writes the bytes that were at a place of a segment to a file of their own; `name`
    // is then its name. kBefore: they were written by an earlier call.
    Kept keep(std::uint64_t segment, std::size_t at, std::string_view bytes, std::string &name);

  private:
    const Directory &directory_;
};

}  // namespace accounting
