// SPDX-License-Identifier: Apache-2.0
//
// Failed logins, counted by user and source, and by source alone. Two tables of fixed size:
// the place of an entry depends on its source and on a secret, so whoever fails with many
// user names displaces his own entries and no one else's. Only a login from the locked
// source is refused, so no one can lock a user out from elsewhere.
//
// The time is passed in.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "base/siphash.hpp"
#include "config/settings.hpp"

namespace service {

class Lockout {
  public:
    // Nanoseconds of CLOCK_MONOTONIC.
    using Time = std::int64_t;

    Lockout();
    explicit Lockout(SipHash hash);

    // Whether logins of a user from a source are refused now.
    bool is_locked(std::string_view user, std::string_view source, Time now,
                   const LockoutSettings &settings) const;
    // Failures that are left before a lock-out; 0 while it lasts.
    struct Left {
        std::uint32_t of_user;  // from the source
        std::uint32_t of_source;
    };
    Left left(std::string_view user, std::string_view source, Time now,
              const LockoutSettings &settings) const;
    // Counts a failure. True when it locks.
    bool failed(std::string_view user, std::string_view source, Time now, const LockoutSettings &settings);
    // Forgets the failures of a user from a source; those of the source remain, because an
    // attacker may have an account of his own.
    void passed(std::string_view user, std::string_view source);

    // For figures: lock-outs since the start, and those that last now.
    std::uint64_t begun() const { return begun_; }
    std::size_t locked(Time now) const;

  private:
    struct Entry {
        std::uint64_t tag = 0;
        std::uint64_t source = 0;
        Time began = 0;         // of the window
        Time locked_until = 0;  // 0: not locked
        std::uint32_t failures = 0;

        bool is_empty() const { return failures == 0; }
    };
    static constexpr std::size_t kWays = 8;
    static constexpr std::size_t kSets = 1024;
    using Set = std::array<Entry, kWays>;

    static bool exempt(std::string_view user, std::string_view source, const LockoutSettings &settings);
    static bool is_over(const Entry &entry, Time now, const LockoutSettings &settings);
    static std::uint32_t left(const Entry *entry, Time now, std::uint32_t most,
                              const LockoutSettings &settings);
    static const Entry *find(const Set &set, std::uint64_t tag);
    static Entry *place_for(Set &set, std::uint64_t tag, std::uint64_t source, Time now,
                            const LockoutSettings &settings);
    static bool count(Set &set, std::uint64_t tag, std::uint64_t source, Time now, std::uint32_t most,
                      const LockoutSettings &settings);
    std::uint64_t pair_tag(std::string_view user, std::string_view source) const;

    SipHash hash_;
    std::vector<Set> pairs_;
    std::vector<Set> sources_;
    std::uint64_t begun_ = 0;
};

// What failures are counted by: an IPv6 address counts with its network of 64 bits, because
// whoever has one has all of them.
std::string source_of_address(std::string_view address);
// The same for logins without a remote address, by their terminal: su and sudo run on
// terminals that every user of the host can open. Empty for the host's own terminals, which need
// physical access.
std::string source_of_terminal(std::string_view terminal);

}  // namespace service
