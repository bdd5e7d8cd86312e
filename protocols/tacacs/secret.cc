// SPDX-License-Identifier: Apache-2.0
//
// Bytes that hold a secret.

#include "tacacs/secret.hpp"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>

namespace tacacs {

void wipe(void *bytes, std::size_t length) {
    OPENSSL_cleanse(bytes, length);
}

void SecretBytes::reserve(std::size_t capacity) {
    if (capacity <= capacity_) {
        return;
    }
    SecretBytes larger;
    larger.bytes_ = std::make_unique<char[]>(capacity);
    larger.capacity_ = capacity;
    larger.append(view());
    swap(larger);
}

void SecretBytes::append(std::string_view bytes) {
    if (bytes.empty()) {
        return;
    }
    if (bytes.size() > capacity_ - size_) {
        reserve(std::max(2 * capacity_, size_ + bytes.size()));
    }
    std::memcpy(bytes_.get() + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
}

}  // namespace tacacs
