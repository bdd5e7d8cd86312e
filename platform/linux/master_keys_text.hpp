// SPDX-License-Identifier: Apache-2.0
//
// The file of master keys as text: what its reader and its writer share.
#pragma once

#include <sodium.h>

#include <cstddef>

#include "master_keys.hpp"

namespace aaaplatform {

inline constexpr char kKeysHeader[] = "aaa-master-keys 1";
// Looks like a comment, so that versions that do not know it read the file. It precedes the keys: a file that
// was cut after it lacks keys, and one that was cut before it has none.
inline constexpr char kKeysCheck[] = "#check ";
inline constexpr std::size_t kKeysMaxFile = 16384;  // a hundred lines of less than 100 characters, with room
inline constexpr std::size_t kKeyHexSize = 2 * kMasterKeySize;
inline constexpr char kKeyTimeFormat[] = "%Y-%m-%dT%H:%M:%SZ";

// Text that holds keys; wiped on every way out.
struct SecretText {
    char bytes[kKeysMaxFile + 1];
    std::size_t len = 0;
    SecretText() = default;
    ~SecretText() { sodium_memzero(bytes, sizeof bytes); }
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;
};

// Checksum of the lines that hold keys, in their order, each with its line feed. It detects
// damage, not changes on purpose: those who may write the file may write the checksum too.
class KeysChecksum {
  public:
    static constexpr std::size_t kSize = 16;
    static constexpr std::size_t kHexSize = 2 * kSize;

    KeysChecksum() noexcept { crypto_generichash_init(&state_, nullptr, 0, kSize); }
    ~KeysChecksum() { sodium_memzero(&state_, sizeof state_); }
    KeysChecksum(const KeysChecksum &) = delete;
    KeysChecksum &operator=(const KeysChecksum &) = delete;

    // A line without its line feed.
    void add(const char *line, std::size_t len) noexcept {
        crypto_generichash_update(&state_, reinterpret_cast<const unsigned char *>(line), len);
        crypto_generichash_update(&state_, reinterpret_cast<const unsigned char *>("\n"), 1);
    }
    // Once, at the end: its digits and a NUL.
    void print(char (&hex)[kHexSize + 1]) noexcept {
        unsigned char sum[kSize];
        crypto_generichash_final(&state_, sum, sizeof sum);
        sodium_bin2hex(hex, sizeof hex, sum, sizeof sum);
    }

  private:
    crypto_generichash_state state_;
};

static_assert(KeysChecksum::kSize >= crypto_generichash_BYTES_MIN);

}  // namespace aaaplatform
