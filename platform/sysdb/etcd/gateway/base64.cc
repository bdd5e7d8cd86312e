// SPDX-License-Identifier: Apache-2.0

#include "gateway/base64.hpp"

#include <array>
#include <cstdint>

namespace sysdb_etcd {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNone = 0xff;

constexpr std::array<std::uint8_t, 256> values() {
    std::array<std::uint8_t, 256> table{};
    table.fill(kNone);
    for (std::uint8_t i = 0; i < 64; ++i) {
        table[static_cast<unsigned char>(kAlphabet[i])] = i;
    }
    return table;
}
constexpr std::array<std::uint8_t, 256> kValues = values();

std::uint32_t byte_at(std::string_view bytes, std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0;
}

}  // namespace

void append_base64(std::string &text, std::string_view bytes) {
    text.reserve(text.size() + (bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::uint32_t group =
            byte_at(bytes, i) << 16 | byte_at(bytes, i + 1) << 8 | byte_at(bytes, i + 2);
        text += kAlphabet[group >> 18];
        text += kAlphabet[group >> 12 & 63];
        text += i + 1 < bytes.size() ? kAlphabet[group >> 6 & 63] : '=';
        text += i + 2 < bytes.size() ? kAlphabet[group & 63] : '=';
    }
}

bool decode_base64(std::string_view text, std::string &bytes) {
    bytes.clear();
    if (text.size() % 4 != 0) {
        return false;
    }
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    text.remove_suffix(padding);
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::uint8_t value = kValues[static_cast<unsigned char>(text[i])];
        if (value == kNone) {
            return false;
        }
        group = group << 6 | value;
        if (i % 4 == 3) {
            bytes += static_cast<char>(group >> 16);
            bytes += static_cast<char>(group >> 8);
            bytes += static_cast<char>(group);
            group = 0;
        }
    }
    // The bits that belong to no byte must be 0, so that bytes have one text only.
    if (padding == 1) {
        bytes += static_cast<char>(group >> 10);
        bytes += static_cast<char>(group >> 2);
        return (group & 3) == 0;
    }
    if (padding == 2) {
        bytes += static_cast<char>(group >> 4);
        return (group & 15) == 0;
    }
    return true;
}

}  // namespace sysdb_etcd
