// SPDX-License-Identifier: Apache-2.0
//
// Bytes that hold a password or a shared secret. They are overwritten before their
// memory is released, also when they move because they grow.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

namespace tacacs {

// Overwrites bytes that held a secret.
void wipe(void *bytes, std::size_t length);

class SecretBytes {
  public:
    SecretBytes() = default;
    explicit SecretBytes(std::string_view bytes) { append(bytes); }
    SecretBytes(const SecretBytes &other) : SecretBytes(other.view()) {}
    SecretBytes(SecretBytes &&other) noexcept { swap(other); }
    SecretBytes &operator=(SecretBytes other) noexcept {
        swap(other);
        return *this;
    }
    ~SecretBytes() { wipe(bytes_.get(), size_); }

    std::string_view view() const { return {bytes_.get(), size_}; }
    char *data() { return bytes_.get(); }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    void reserve(std::size_t capacity);
    void append(std::string_view bytes);
    // One byte.
    void append_number8(std::size_t value) {
        const char byte = static_cast<char>(value);
        append({&byte, 1});
    }
    // Two bytes, big-endian.
    void append_number16(std::size_t value) {
        append_number8(value >> 8);
        append_number8(value);
    }
    void clear() { *this = SecretBytes(); }

  private:
    void swap(SecretBytes &other) noexcept {
        std::swap(bytes_, other.bytes_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }

    std::unique_ptr<char[]> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace tacacs
