/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_MEMORY_HPP
#define AAA_CPP_MEMORY_HPP

/**
 * @file
 * @brief Owners of what the library allocates, and of bytes that may hold secrets.
 *
 * Nothing here throws: running out of memory is errc::no_memory, or an empty owner where
 * that is said.
 */

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "aaa/cpp/result.hpp"

namespace aaa {

namespace detail {

struct free_memory {
    void operator()(void *block) const noexcept { std::free(block); }
};

template <typename T>
using malloc_ptr = std::unique_ptr<T, free_memory>;

/* Overwrites bytes, also when the compiler sees that no one reads them afterwards. */
inline void wipe(void *bytes, std::size_t size) noexcept {
    if (bytes != nullptr && size != 0) {
        std::memset(bytes, 0, size);
        __asm__ __volatile__("" : : "r"(bytes) : "memory");
    }
}

inline std::span<const std::byte> bytes_of(const void *data, std::size_t size) noexcept {
    return {static_cast<const std::byte *>(data), size};
}

}  // namespace detail

/** A text that the library allocated. Move-only; may be empty, which differs from a text of length 0. */
class c_string {
  public:
    /** No text. */
    c_string() noexcept = default;
    /** Takes over a text that malloc() made. */
    explicit c_string(char *text) noexcept : text_(text) {}

    /** Whether there is a text. */
    explicit operator bool() const noexcept { return text_ != nullptr; }
    /** The text with its NUL, or null. */
    const char *c_str() const noexcept { return text_.get(); }
    /** The text, empty where there is none. */
    std::string_view view() const noexcept { return text_ ? text_.get() : ""; }

  private:
    detail::malloc_ptr<char> text_;
};

/** Bytes of a fixed number. Move-only; overwritten before they are released. */
class buffer {
  public:
    /** No bytes. */
    buffer() noexcept = default;
    buffer(buffer &&other) noexcept
        : bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)), room_(other.room_) {}
    buffer &operator=(buffer &&other) noexcept {
        buffer taken(std::move(other));
        std::swap(bytes_, taken.bytes_);
        std::swap(size_, taken.size_);
        std::swap(room_, taken.room_);
        return *this;
    }
    ~buffer() {
        if (bytes_) {
            detail::wipe(bytes_.get(), room_);
        }
    }

    /** Zeroed bytes. */
    static result<buffer> make(std::size_t size) noexcept {
        buffer made;
        made.bytes_.reset(static_cast<std::byte *>(std::calloc(size != 0 ? size : 1, 1)));
        if (!made.bytes_) {
            return errc::no_memory;
        }
        made.size_ = made.room_ = size;
        return made;
    }

    /** The first byte; null without bytes. @{ */
    std::byte *data() noexcept { return bytes_.get(); }
    const std::byte *data() const noexcept { return bytes_.get(); }
    /** @} */
    /** How many bytes. */
    std::size_t size() const noexcept { return size_; }
    /** All bytes. @{ */
    std::span<std::byte> span() noexcept { return {data(), size_}; }
    std::span<const std::byte> span() const noexcept { return {data(), size_}; }
    operator std::span<const std::byte>() const noexcept { return span(); }
    /** @} */
    /** Leaves out the last bytes; more than there are changes nothing. */
    void shrink(std::size_t size) noexcept { size_ = size < size_ ? size : size_; }

  private:
    detail::malloc_ptr<std::byte> bytes_;
    std::size_t size_ = 0;
    std::size_t room_ = 0;
};

namespace detail {

/* Copies of texts, each with a NUL, in one block that is overwritten before it is released:
 * one of them may be a password. A text without an address stays a null pointer. */
template <std::size_t Count>
class texts {
  public:
    static result<texts> copy(const std::string_view (&from)[Count]) noexcept {
        std::size_t room = 0;
        for (const std::string_view &text : from) {
            if (text.find('\0') != std::string_view::npos) {
                return errc::text_with_nul;
            }
            room += text.size() + 1;
        }
        result<buffer> block = buffer::make(room);
        if (!block) {
            return failure(block.code());
        }
        texts made;
        made.block_ = *std::move(block);
        auto *at = reinterpret_cast<char *>(made.block_.data());
        for (std::size_t i = 0; i < Count; ++i) {
            if (from[i].data() != nullptr) {
                std::memcpy(at, from[i].data(), from[i].size());
                made.at_[i] = at;
                at += from[i].size() + 1;
            }
        }
        return made;
    }

    char *operator[](std::size_t i) const noexcept { return at_[i]; }
    buffer take() &&noexcept { return std::move(block_); }

  private:
    buffer block_;
    char *at_[Count] = {};
};

}  // namespace detail
}  // namespace aaa

#endif /* AAA_CPP_MEMORY_HPP */
