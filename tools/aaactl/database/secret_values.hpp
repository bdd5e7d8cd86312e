// SPDX-License-Identifier: Apache-2.0
//
// Which items of the system database are secret.

#pragma once

#include <functional>
#include <string_view>

#include "database/sysdb_values.hpp"

namespace aaactl {

// Whether a value is masked: its path names a key, a secret or a password, or it
// has the form of a sealed key.
bool is_secret(std::string_view path, const Item &item);
bool is_secret_path(std::string_view path);
bool looks_sealed(std::string_view text);

// The item that `read` parses for this path. If that fails, the message does not quote a secret value.
Item item_for(std::string_view path, uint32_t type, const std::function<Item()> &read);

}  // namespace aaactl
