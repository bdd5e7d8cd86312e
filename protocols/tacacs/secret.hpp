// SPDX-License-Identifier: Apache-2.0
//
// Bytes that hold a password or a shared secret. They are overwritten before their
// memory is released, also when they move because they grow.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace tacacs {

// Overwrites bytes that held a secret.
void wipe(void *bytes, std::size_t length);

template <typename T>
struct WipingAllocator {
    using value_type = T;
    WipingAllocator() = default;
    template <typename U>
    explicit WipingAllocator(const WipingAllocator<U> &) {}
    T *allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T *block, std::size_t count) {
        wipe(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }
    bool operator==(const WipingAllocator &) const { return true; }
};

class SecretBytes {
  public:
    SecretBytes() = default;
    explicit SecretBytes(std::string_view bytes) : bytes_(bytes.begin(), bytes.end()) {}

    std::string_view view() const { return {bytes_.data(), bytes_.size()}; }
    char *data() { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }
    bool empty() const { return bytes_.empty(); }

    void reserve(std::size_t size) { bytes_.reserve(size); }
    void clear() { bytes_ = {}; }
    void append(std::string_view bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
    // One byte.
    void append_number8(std::size_t value) { bytes_.push_back(static_cast<char>(value)); }
    // Two bytes, big-endian.
    void append_number16(std::size_t value) {
        append_number8(value >> 8);
        append_number8(value);
    }

  private:
    std::vector<char, WipingAllocator<char>> bytes_;
};

}  // namespace tacacs
