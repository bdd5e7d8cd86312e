// SPDX-License-Identifier: Apache-2.0
//
// Bodies of authorization packets (RFC 8907, 6).
//
//     request  the common part: arguments.hpp
//     answer   status | number of arguments | lengths of message, data (2 each) |
//              lengths of arguments (1 each) | message | data | arguments
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tacacs/arguments.hpp"
#include "tacacs/packet.hpp"

namespace tacacs {

// Appends the body to begin_packet(). Returns a sentence that names what does not fit;
// empty when everything does.
[[nodiscard]] std::string append_authorization(const Subject &subject, std::span<const std::string> arguments,
                                               SecretBytes &packet);

enum class AuthorizationStatus : std::uint8_t {
    kPassAdd = 1,      // allowed, with the answer's arguments in addition
    kPassReplace = 2,  // allowed, with the answer's arguments instead of the request's
    kFail = 0x10,
    kError = 0x11,
    kFollow = 0x21,
};

// An answer. It refers to the body that it was read from.
struct AuthorizationReply {
    AuthorizationStatus status = AuthorizationStatus::kFail;
    std::vector<std::string_view> arguments;
    std::string_view message;  // for the user
    std::string_view data;     // for administrators

    // Arguments without a name are inconsistent: whether they are mandatory is unknown.
    static Fault read(std::string_view body, AuthorizationReply &reply);
};

}  // namespace tacacs
