// SPDX-License-Identifier: Apache-2.0
//
// Digests in terms of OpenSSL.

#include "radius/digest.hpp"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <memory>

namespace radius {
namespace {

constexpr std::size_t kBlockSize = 64;  // of MD5

using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

// Fetched once: looking it up takes longer than a digest of a packet.
const EVP_MD *md5_type() {
    static const EVP_MD *const type = EVP_MD_fetch(nullptr, "MD5", nullptr);
    return type;
}

}  // namespace

bool md5(std::initializer_list<std::string_view> parts, Digest &digest) {
    const Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    bool done = context != nullptr && md5_type() != nullptr &&
                EVP_DigestInit_ex(context.get(), md5_type(), nullptr) == 1;
    for (const std::string_view part : parts) {
        done = done && EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1;
    }
    return done && EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) == 1;
}

// By hand: it needs only the digest, and the library's own interface would look up the
// algorithm for every packet.
bool hmac_md5(std::string_view key, std::initializer_list<std::string_view> parts, Digest &digest) {
    Digest short_key;
    if (key.size() > kBlockSize) {
        if (!md5({key}, short_key)) {
            return false;
        }
        key = view_of(short_key);
    }
    std::array<char, kBlockSize> inner;
    std::array<char, kBlockSize> outer;
    for (std::size_t i = 0; i < kBlockSize; ++i) {
        const int byte = i < key.size() ? static_cast<unsigned char>(key[i]) : 0;
        inner[i] = static_cast<char>(byte ^ 0x36);
        outer[i] = static_cast<char>(byte ^ 0x5c);
    }
    const Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    bool done = context != nullptr && md5_type() != nullptr &&
                EVP_DigestInit_ex(context.get(), md5_type(), nullptr) == 1 &&
                EVP_DigestUpdate(context.get(), inner.data(), inner.size()) == 1;
    for (const std::string_view part : parts) {
        done = done && EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1;
    }
    Digest message;
    done = done && EVP_DigestFinal_ex(context.get(), message.data(), nullptr) == 1 &&
           md5({{outer.data(), outer.size()}, view_of(message)}, digest);
    wipe(inner.data(), inner.size());
    wipe(outer.data(), outer.size());
    wipe(short_key.data(), short_key.size());
    return done;
}

bool equal_digests(std::string_view one, std::string_view other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

bool fill_random(Digest &digest) {
    return RAND_bytes(digest.data(), static_cast<int>(digest.size())) == 1;
}

void wipe(void *bytes, std::size_t length) {
    OPENSSL_cleanse(bytes, length);
}

}  // namespace radius
