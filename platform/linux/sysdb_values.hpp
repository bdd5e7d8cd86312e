// SPDX-License-Identifier: Apache-2.0
//
// The form of values of the system database's types.
#pragma once

#include <cstdint>

namespace aaaplatform {

bool sysdb_value_fits(std::uint32_t datatype, const void *value, std::uint32_t length) noexcept;

}  // namespace aaaplatform
