// SPDX-License-Identifier: Apache-2.0
//
// What values of the system database's types look like.
#pragma once

#include <cstdint>

namespace aaaplatform {

bool sysdb_value_fits(std::uint32_t datatype, const void *value, std::uint32_t length) noexcept;

}  // namespace aaaplatform
