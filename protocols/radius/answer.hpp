// SPDX-License-Identifier: Apache-2.0
//
// A server's answer, with its own copy of the attributes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "radius/packet.hpp"

namespace radius {

class Answer {
  public:
    Answer() = default;
    // Of a reject only Reply-Message is kept, which is what RFC 2865, 5.44, allows: servers
    // were seen to send the rights of a user whom they refuse.
    explicit Answer(const Reply &reply);

    Code code() const { return code_; }
    Attributes attributes() const { return Attributes(bytes_); }

    // Reply-Message, joined: what the user is to read, or is asked for by a challenge. The
    // bytes are the server's; control characters have to be replaced before they are shown.
    std::string text() const { return attributes().joined(Type::kReplyMessage); }
    // Values of all Class attributes, which each accounting record of the session repeats.
    std::vector<std::string> classes() const;
    std::optional<std::uint32_t> session_timeout() const { return number(Type::kSessionTimeout); }
    std::optional<std::uint32_t> idle_timeout() const { return number(Type::kIdleTimeout); }
    std::optional<std::uint32_t> service_type() const { return number(Type::kServiceType); }
    // Whether what the user types after a challenge may be shown (Prompt, RFC 2869, 5.10).
    // Without the attribute it may not: most servers ask for a code that is a secret.
    bool may_echo() const { return number(Type::kPrompt) == 1; }

  private:
    std::optional<std::uint32_t> number(Type type) const;

    Code code_ = Code::kAccessReject;
    std::string bytes_;
};

}  // namespace radius
