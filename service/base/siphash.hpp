// SPDX-License-Identifier: Apache-2.0
//
// SipHash-2-4 with a random key: tables that clients can fill must not let them choose the
// place of an entry.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace service {

class SipHash {
  public:
    using Key = std::array<std::uint64_t, 2>;

    SipHash();  // a key from the system
    explicit SipHash(Key key) : key_(key) {}
    std::uint64_t operator()(std::string_view text) const;

  private:
    Key key_;
};

}  // namespace service
