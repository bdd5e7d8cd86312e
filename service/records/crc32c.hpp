// SPDX-License-Identifier: Apache-2.0
//
// CRC-32C (Castagnoli), which finds every burst of up to 32 damaged bits.
#pragma once

#include <cstdint>
#include <string_view>

namespace accounting {

// The checksum of bytes, or of what follows bytes with the checksum `before`.
std::uint32_t crc32c(std::string_view bytes, std::uint32_t before = 0);

}  // namespace accounting
