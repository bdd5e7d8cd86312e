// SPDX-License-Identifier: Apache-2.0
//
// What the service answers to a request.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "aaa/types.h"
#include "backends/backend.hpp"
#include "decision/open_login.hpp"
#include "decision/turns.hpp"

namespace service {

// A login between two rounds: where in its list it is, under the configuration with which it
// began.
struct PendingLogin {
    SnapshotPtr snapshot;
    std::string list;
    std::size_t place = 0;  // of the method that asked
    std::string user;
    std::uint32_t service = 0;
    std::shared_ptr<Dialogue> dialogue;
    unsigned rounds = 0;
    bool changes_password = false;
    std::unique_ptr<Turn> turn;       // given up when the failure of the open login is counted
    std::unique_ptr<OpenLogin> open;  // set when the user has answered before
};

struct Answer {
    std::uint32_t status = 0;  // AAA_STAT_...
    std::string text;          // for the user
    std::optional<std::uint32_t> privilege;
    std::vector<Attribute> attributes;
    Note note = Note::kNone;
    std::uint32_t method = 0;               // that answered, AAA_METHOD_...
    bool echo = false;                      // of what the user answers to a challenge
    std::shared_ptr<PendingLogin> pending;  // of a challenge
    std::string reason;                     // for log and trace
    cerrno error = 0;                       // of accounting: why the record is not kept
    // Without a decision, for a reason that a user can bring about. His login program must not ask
    // another method instead, as it does when there is no service.
    bool ends_login = false;
};

}  // namespace service
