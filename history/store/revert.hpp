// SPDX-License-Identifier: Apache-2.0
//
// Reverts a commit that was not confirmed in time: exactly once, however many processes try it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "store/store.hpp"

namespace history {

// All functions throw Error.

struct Reverted {
    std::uint32_t waited = 0;   // the commit that was reverted
    std::uint32_t commit = 0;   // the one that did it; 0: the database had no room to record it
    std::uint32_t outside = 0;  // the one that has what was changed by others meanwhile; 0: none
    std::uint32_t base = 0;
    std::size_t changes = 0;
};
// For messages, after what was done: empty when there is a commit of it.
std::string not_recorded(const Reverted &reverted);
// False if the state to go back to is missing or damaged: only a confirmation ends the waiting then.
bool can_revert(const Store &store, const Waiting &waiting);
// Reverts the commit with this number if it still waits; nothing if another process did, or it was confirmed.
// When the database is full, the room that was kept for it is used; then nothing is recorded; then commits
// are deleted, the oldest first, until there is room: going back is worth more than they are.
std::optional<Reverted> revert(const Store &store, std::uint32_t waiting, const Author &by,
                               const std::string &why, const Now &now);

}  // namespace history
