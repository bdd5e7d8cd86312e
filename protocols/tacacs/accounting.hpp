// SPDX-License-Identifier: Apache-2.0
//
// Bodies of accounting packets (RFC 8907, 7).
//
//     request  flags | the common part: arguments.hpp
//     answer   lengths of message, data (2 each) | status | message | data
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tacacs/arguments.hpp"
#include "tacacs/packet.hpp"

namespace tacacs {

enum class Record : std::uint8_t {
    kStart = 2,
    kStop = 4,
    kWatchdog = 8,          // a session goes on
    kWatchdogUpdate = 0xa,  // a session goes on, and its arguments have changed
};

// Appends the body to begin_packet(). Returns a sentence that names what does not fit;
// empty when everything does.
[[nodiscard]] std::string append_accounting(Record record, const Subject &subject,
                                            std::span<const std::string> arguments, SecretBytes &packet);

enum class AccountingStatus : std::uint8_t {
    kSuccess = 1,
    kError = 2,
    kFollow = 0x21,
};

// An answer. It refers to the body that it was read from.
struct AccountingReply {
    AccountingStatus status = AccountingStatus::kError;
    std::string_view message;  // for the user
    std::string_view data;     // for administrators

    static Fault read(std::string_view body, AccountingReply &reply);
};

}  // namespace tacacs
