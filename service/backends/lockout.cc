// SPDX-License-Identifier: Apache-2.0

#include "backends/lockout.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace service {

namespace {

constexpr Lockout::Time kSecond = 1'000'000'000;

}  // namespace

Lockout::Lockout() : Lockout(SipHash()) {}

Lockout::Lockout(SipHash hash) : hash_(hash), pairs_(kSets), sources_(kSets) {}

std::uint64_t Lockout::pair_tag(std::string_view user, std::string_view source) const {
    std::string both(user);
    both += '\0';
    both += source;
    return hash_(both);
}

bool Lockout::exempt(std::string_view user, std::string_view source, const LockoutSettings &settings) {
    return settings.failures == 0 || (source.empty() && settings.console_exempt) ||
           std::find(settings.exempt.begin(), settings.exempt.end(), user) != settings.exempt.end();
}

bool Lockout::is_over(const Entry &entry, Time now, const LockoutSettings &settings) {
    return entry.is_empty() || (entry.locked_until != 0 ? entry.locked_until <= now
                                                        : entry.began + settings.window_s * kSecond <= now);
}

const Lockout::Entry *Lockout::find(const Set &set, std::uint64_t tag) {
    const auto found = std::find_if(
        set.begin(), set.end(), [&](const Entry &entry) { return !entry.is_empty() && entry.tag == tag; });
    return found != set.end() ? &*found : nullptr;
}

// The entry of the tag, or a place for it: a free one, else the least of the same source, else
// the least of those that lock no one out. Null when there is none.
Lockout::Entry *Lockout::place_for(Set &set, std::uint64_t tag, std::uint64_t source, Time now,
                                   const LockoutSettings &settings) {
    for (Entry &entry : set) {
        if (!entry.is_empty() && entry.tag == tag) {
            return &entry;
        }
    }
    Entry *best = nullptr;
    int best_rank = 0;
    for (Entry &entry : set) {
        const int rank = is_over(entry, now, settings) ? 3
                         : entry.source == source      ? 2
                         : entry.locked_until == 0     ? 1
                                                       : 0;
        if (rank > best_rank || (best != nullptr && rank == best_rank && entry.failures < best->failures)) {
            best = &entry;
            best_rank = rank;
        }
    }
    return best;
}

bool Lockout::count(Set &set, std::uint64_t tag, std::uint64_t source, Time now, std::uint32_t most,
                    const LockoutSettings &settings) {
    Entry *entry = place_for(set, tag, source, now, settings);
    if (entry == nullptr) {
        return false;
    }
    if (entry->tag != tag || is_over(*entry, now, settings)) {
        *entry = Entry{tag, source, now, 0, 0};
    }
    ++entry->failures;
    if (entry->locked_until != 0 || entry->failures < most) {
        return false;
    }
    entry->locked_until = now + settings.time_s * kSecond;
    return true;
}

bool Lockout::is_locked(std::string_view user, std::string_view source, Time now,
                        const LockoutSettings &settings) const {
    if (exempt(user, source, settings)) {
        return false;
    }
    const std::uint64_t from = hash_(source);
    const Entry *pair = find(pairs_[from % kSets], pair_tag(user, source));
    const Entry *whole = find(sources_[from % kSets], from);
    return (pair != nullptr && pair->locked_until > now) || (whole != nullptr && whole->locked_until > now);
}

std::uint32_t Lockout::left(const Entry *entry, Time now, std::uint32_t most,
                            const LockoutSettings &settings) {
    if (entry == nullptr || is_over(*entry, now, settings)) {
        return most;
    }
    if (entry->locked_until > now) {
        return 0;
    }
    return entry->failures < most ? most - entry->failures : 1;  // the limit was lowered since
}

Lockout::Left Lockout::left(std::string_view user, std::string_view source, Time now,
                            const LockoutSettings &settings) const {
    Left found = {UINT32_MAX, UINT32_MAX};
    if (exempt(user, source, settings)) {
        return found;
    }
    const std::uint64_t from = hash_(source);
    found.of_user =
        left(find(pairs_[from % kSets], pair_tag(user, source)), now, settings.failures, settings);
    if (settings.source_failures != 0 && !source.empty()) {
        found.of_source = left(find(sources_[from % kSets], from), now, settings.source_failures, settings);
    }
    return found;
}

bool Lockout::failed(std::string_view user, std::string_view source, Time now,
                     const LockoutSettings &settings) {
    if (exempt(user, source, settings)) {
        return false;
    }
    const std::uint64_t from = hash_(source);
    const bool pair_locks =
        count(pairs_[from % kSets], pair_tag(user, source), from, now, settings.failures, settings);
    const bool source_locks =
        settings.source_failures != 0 && !source.empty() &&
        count(sources_[from % kSets], from, from, now, settings.source_failures, settings);
    begun_ += (pair_locks ? 1 : 0) + (source_locks ? 1 : 0);
    return pair_locks || source_locks;
}

std::size_t Lockout::locked(Time now) const {
    std::size_t count = 0;
    for (const std::vector<Set> *table : {&pairs_, &sources_}) {
        for (const Set &set : *table) {
            count += static_cast<std::size_t>(std::count_if(
                set.begin(), set.end(), [now](const Entry &entry) { return entry.locked_until > now; }));
        }
    }
    return count;
}

void Lockout::passed(std::string_view user, std::string_view source) {
    const std::uint64_t tag = pair_tag(user, source);
    for (Entry &entry : pairs_[hash_(source) % kSets]) {
        if (!entry.is_empty() && entry.tag == tag) {
            entry = Entry{};
        }
    }
}

std::string source_of_address(std::string_view address) {
    unsigned char bytes[16];
    const std::string text(address.substr(0, address.find('%')));
    if (inet_pton(AF_INET6, text.c_str(), bytes) != 1) {
        return std::string(address);
    }
    char out[INET6_ADDRSTRLEN];
    static constexpr unsigned char kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (std::memcmp(bytes, kMapped, sizeof kMapped) == 0) {
        return inet_ntop(AF_INET, bytes + sizeof kMapped, out, sizeof out);
    }
    std::memset(bytes + 8, 0, 8);
    return std::string(inet_ntop(AF_INET6, bytes, out, sizeof out)) + "/64";
}

std::string source_of_terminal(std::string_view terminal) {
    if (terminal.starts_with("/dev/")) {
        terminal.remove_prefix(5);
    }
    const bool numbered_console =
        terminal.size() > 3 && terminal.starts_with("con") && terminal[3] >= '0' && terminal[3] <= '9';
    const bool own = terminal == "console" || numbered_console || terminal.starts_with("tty") ||
                     terminal.starts_with("hvc") || terminal.starts_with(":");
    if (own) {
        return "";
    }
    return terminal.empty() ? "no terminal" : "terminal " + std::string(terminal);
}

}  // namespace service
