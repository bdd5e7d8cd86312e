// SPDX-License-Identifier: Apache-2.0
//
// Messages without their secrets: the bytes of a capture that its reader may see.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "masks/masks.hpp"

namespace service {

// A message of a client, or an answer to one, as it is on the wire.
struct WireMessage {
    std::string_view bytes;
    std::size_t list_at = 0;  // where its packed list begins; 0: it has none
    bool is_readable = true;  // false: it is damaged, and where its secrets are is not known
    std::optional<std::uint32_t> request_type = {};  // of a request; an answer is the service's own
};

struct Masked {
    std::string bytes;
    bool is_changed = false;
};

// The names that may be shown, and the one that the message belongs to, which texts may repeat.
struct ShownNames {
    std::function<bool(const std::string &)> may_show;
    std::string user = {};
};

// Passwords and other secret values become eight asterisks, whatever their length; so do names that
// may not be shown, also within texts. Of a command and of addresses with a password the rest stays.
// Lengths are adapted: the result is a message of the same form. Bytes of a request that belong to none
// of its fields are replaced too: they may be anything from the sender's memory. Of a message that is not
// readable, or of a type that does not exist, only the header stays.
Masked masked(const WireMessage &message, const ShownNames &names);

}  // namespace service
