// SPDX-License-Identifier: Apache-2.0
//
// The digests of RADIUS.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace radius {

inline constexpr std::size_t kDigestSize = 16;
using Digest = std::array<std::uint8_t, kDigestSize>;

inline std::string_view view_of(const Digest &digest) {
    return {reinterpret_cast<const char *>(digest.data()), digest.size()};
}

// MD5 of the parts one after the other. False when the system's cryptography refuses,
// as it does where MD5 is forbidden.
[[nodiscard]] bool md5(std::initializer_list<std::string_view> parts, Digest &digest);

// HMAC-MD5 (RFC 2104).
[[nodiscard]] bool hmac_md5(std::string_view key, std::initializer_list<std::string_view> parts,
                            Digest &digest);

// In a time that does not depend on where they differ.
[[nodiscard]] bool equal_digests(std::string_view one, std::string_view other);

// Fills the digest with random bytes. False when the system has none.
[[nodiscard]] bool fill_random(Digest &digest);

// Overwrites bytes that held a secret.
void wipe(void *bytes, std::size_t length);

}  // namespace radius
