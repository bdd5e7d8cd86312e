// SPDX-License-Identifier: Apache-2.0
//
// CRC-32C with eight tables, eight bytes at a time: a start reads the whole journal.
#include "records/crc32c.hpp"

#include <array>
#include <cstddef>

namespace accounting {

namespace {

constexpr std::uint32_t kPolynomial = 0x82f63b78;
constexpr std::size_t kTables = 8;

using Tables = std::array<std::array<std::uint32_t, 256>, kTables>;

constexpr Tables make_tables() {
    Tables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value >> 1) ^ ((value & 1) != 0 ? kPolynomial : 0);
        }
        tables[0][byte] = value;
    }
    for (std::size_t table = 1; table < kTables; ++table) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint32_t value = tables[table - 1][byte];
            tables[table][byte] = (value >> 8) ^ tables[0][value & 0xff];
        }
    }
    return tables;
}

constexpr Tables kTable = make_tables();

}  // namespace

std::uint32_t crc32c(std::string_view bytes, std::uint32_t before) {
    std::uint32_t crc = ~before;
    const auto *at = reinterpret_cast<const unsigned char *>(bytes.data());
    std::size_t left = bytes.size();
    for (; left >= kTables; left -= kTables, at += kTables) {
        const std::uint32_t low = crc ^ (at[0] | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 |
                                         std::uint32_t{at[3]} << 24);
        crc = kTable[7][low & 0xff] ^ kTable[6][low >> 8 & 0xff] ^ kTable[5][low >> 16 & 0xff] ^
              kTable[4][low >> 24] ^ kTable[3][at[4]] ^ kTable[2][at[5]] ^ kTable[1][at[6]] ^
              kTable[0][at[7]];
    }
    for (; left != 0; --left, ++at) {
        crc = (crc >> 8) ^ kTable[0][(crc ^ *at) & 0xff];
    }
    return ~crc;
}

}  // namespace accounting
