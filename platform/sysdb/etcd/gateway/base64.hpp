// SPDX-License-Identifier: Apache-2.0
//
// Base64 as the gateway writes bytes in JSON: RFC 4648, with padding.
#pragma once

#include <string>
#include <string_view>

namespace sysdb_etcd {

void append_base64(std::string &text, std::string_view bytes);

// False for anything but whole groups of the alphabet with right padding.
bool decode_base64(std::string_view text, std::string &bytes);

}  // namespace sysdb_etcd
