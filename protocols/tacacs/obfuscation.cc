// SPDX-License-Identifier: Apache-2.0
//
// The pad of a body (RFC 8907, 4.5):
//
//     block 1   MD5(session id, secret, version, sequence number)
//     block n   MD5(session id, secret, version, sequence number, block n - 1)

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <memory>

#include "tacacs/packet.hpp"

namespace tacacs {
namespace {

constexpr std::size_t kBlockSize = 16;

using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

// Fetched once: looking it up takes longer than a digest.
const EVP_MD *md5_type() {
    static const EVP_MD *const type = EVP_MD_fetch(nullptr, "MD5", nullptr);
    return type;
}

}  // namespace

bool Protection::combine(const Head &head, char *body, std::size_t length) const {
    if (!secret_ || secret_->empty()) {
        return false;
    }
    const Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (context == nullptr || md5_type() == nullptr) {
        return false;
    }
    const std::array<char, 4> id = {static_cast<char>(head.session >> 24),
                                    static_cast<char>(head.session >> 16),
                                    static_cast<char>(head.session >> 8), static_cast<char>(head.session)};
    const std::array<char, 2> end = {static_cast<char>(0xc0 | head.minor), static_cast<char>(head.sequence)};
    std::array<unsigned char, kBlockSize> block;
    std::size_t known = 0;  // bytes of the block before
    for (std::size_t at = 0; at < length; at += kBlockSize) {
        const bool done = EVP_DigestInit_ex(context.get(), md5_type(), nullptr) == 1 &&
                          EVP_DigestUpdate(context.get(), id.data(), id.size()) == 1 &&
                          EVP_DigestUpdate(context.get(), secret_->view().data(), secret_->size()) == 1 &&
                          EVP_DigestUpdate(context.get(), end.data(), end.size()) == 1 &&
                          EVP_DigestUpdate(context.get(), block.data(), known) == 1 &&
                          EVP_DigestFinal_ex(context.get(), block.data(), nullptr) == 1;
        if (!done) {
            return false;
        }
        known = kBlockSize;
        for (std::size_t i = 0; i < std::min(kBlockSize, length - at); ++i) {
            body[at + i] = static_cast<char>(body[at + i] ^ block[i]);
        }
    }
    // Who knows the pad and sees the packet knows the password.
    wipe(block.data(), block.size());
    return true;
}

}  // namespace tacacs
