/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_VALUE_HPP
#define AAA_CPP_VALUE_HPP

/**
 * @file
 * @brief Values of attributes: from C++ types into the bytes of a pair, and back.
 *
 * | C++ | stored as |
 * |---|---|
 * | integers and enumerations of 4 or 8 bytes | the bytes, in host order |
 * | ipv4 | 4 bytes, a number in host order |
 * | const char *, std::string, std::string_view | the characters and a NUL |
 * | a literal, and each constant array of char | the same; NULs at its end are not part of the text |
 * | an array of char that can be changed | the characters before its first NUL, or all, and a NUL |
 * | std::span of bytes, and what converts to it | the bytes |
 *
 * A text with a NUL inside is refused, also one in a literal or another constant array. What
 * follows the NUL in an array that can be changed is not read: it is a buffer, whose rest may
 * hold anything.
 *
 * Reading is as strict as it can be without refusing what the C interface stores. A text
 * ends at its first NUL or at its length. A number may be shorter than its type, and then
 * lacks zeros; a longer one must not have digits that do not fit.
 */

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "aaa/avpair.h"
#include "aaa/cpp/dictionary.hpp"
#include "aaa/cpp/memory.hpp"

namespace aaa {

namespace detail {

template <typename T>
concept character = std::same_as<T, bool> || std::same_as<T, char> || std::same_as<T, signed char> ||
    std::same_as<T, unsigned char> || std::same_as<T, wchar_t> || std::same_as<T, char8_t> ||
    std::same_as<T, char16_t> || std::same_as<T, char32_t>;

}  // namespace detail

/** A number that a pair can hold. */
template <typename T>
concept number = (std::integral<T> || std::is_enum_v<T>)&&!detail::character<T> &&
                 (sizeof(T) == 4 || sizeof(T) == 8);

/** A type that list::get() can return. */
template <typename T>
concept readable = number<T> || std::same_as<T, ipv4> || std::same_as<T, std::string_view> ||
    std::same_as<T, std::span<const std::byte>>;

/** Bits of a pair besides type and value. */
struct pair_options {
    std::uint32_t tag = 0;   /**< belongs to the callers */
    std::uint32_t flags = 0; /**< AAA_AVF_... of aaa/dictionary.h, and bits of the callers */
};

namespace detail {

/* Inlined always: the length of a literal is then known to the compiler, and storing it costs what the
 * C function costs.
 *
 * The library shows the first four bytes of a value in its traces, however short the value
 * is: values that may be shorter are copied to where four bytes can be read. */
inline constexpr std::size_t traced = 4;

template <typename Store>
[[gnu::always_inline]] inline result<void> store_bytes(const void *bytes, std::size_t size,
                                                       Store store) noexcept {
    if (size > UINT32_MAX) {
        return errc::invalid_argument;
    }
    if (size < traced) {
        char few[traced] = {};
        for (std::size_t i = 0; i < size; ++i) { /* gcc 12 warns about a copy of at most 3 bytes */
            few[i] = static_cast<const char *>(bytes)[i];
        }
        return store(few, static_cast<std::uint32_t>(size));
    }
    return store(bytes, static_cast<std::uint32_t>(size));
}

/* A text whose NUL is stored with it. */
template <typename Store>
[[gnu::always_inline]] inline result<void> store_terminated(const char *text, std::size_t length,
                                                            Store store) noexcept {
    return store_bytes(text, length + 1, store);
}

/* The characters of a buffer, which may lack a NUL. */
template <std::size_t N>
std::string_view text_in(const char (&room)[N]) noexcept {
    const void *const end = std::memchr(room, '\0', N);
    return {room, end != nullptr ? static_cast<std::size_t>(static_cast<const char *>(end) - room) : N};
}

/* Whether there is one NUL, at the end: of a literal the compiler knows. */
template <std::size_t N>
[[gnu::always_inline]] inline bool is_whole(const char (&text)[N]) noexcept {
    return text[N - 1] == '\0' && std::strlen(text) == N - 1;
}

/* The characters of a constant array without the NULs at its end. */
inline std::string_view without_padding(std::string_view text) noexcept {
    while (!text.empty() && text.back() == '\0') {
        text.remove_suffix(1);
    }
    return text;
}

/* A pointer, and not the arrays that convert to one: these know their length. */
template <typename T>
concept text_pointer = std::convertible_to<const T &, const char *> && !std::is_array_v<T>;

template <text_pointer Text, typename Store>
[[gnu::always_inline]] inline result<void> store_value(const Text &text, Store store) noexcept {
    const char *const begin = text;
    return begin != nullptr ? store_terminated(begin, std::strlen(begin), store) : errc::invalid_argument;
}

template <typename Store>
result<void> store_value(const std::string &text, Store store) noexcept {
    if (text.find('\0') != std::string::npos) {
        return errc::text_with_nul;
    }
    return store_terminated(text.c_str(), text.size(), store);
}

/* Its characters need not be followed by a NUL, so they are copied. */
template <typename Store>
result<void> store_value(std::string_view text, Store store) noexcept {
    if (text.find('\0') != std::string_view::npos) {
        return errc::text_with_nul;
    }
    char few[256];
    if (text.size() < sizeof few) {
        if (!text.empty()) {
            std::memcpy(few, text.data(), text.size());
        }
        few[text.size()] = '\0';
        const result<void> stored = store_terminated(few, text.size(), store);
        wipe(few, text.size());
        return stored;
    }
    result<buffer> many = buffer::make(text.size() + 1);
    if (!many) {
        return failure(many.code());
    }
    std::memcpy(many->data(), text.data(), text.size());
    return store_terminated(reinterpret_cast<const char *>(many->data()), text.size(), store);
}

template <std::size_t N, typename Store>
[[gnu::always_inline]] inline result<void> store_value(const char (&text)[N], Store store) noexcept {
    if (is_whole(text)) [[likely]] {
        return store_terminated(text, N - 1, store);
    }
    return store_value(without_padding({text, N}), store);
}

template <typename Store>
result<void> store_value(std::span<const std::byte> bytes, Store store) noexcept {
    return store_bytes(bytes.data(), bytes.size(), store);
}

template <number Number, typename Store>
[[gnu::always_inline]] inline result<void> store_value(Number value, Store store) noexcept {
    return store(&value, static_cast<std::uint32_t>(sizeof value));
}

template <typename Store>
[[gnu::always_inline]] inline result<void> store_value(ipv4 address, Store store) noexcept {
    return store(&address.number, static_cast<std::uint32_t>(sizeof address.number));
}

template <number Number>
result<Number> read_number(std::span<const std::byte> bytes) noexcept {
    Number value{};
    if (bytes.size() <= sizeof value) [[likely]] {
        if (bytes.size() == sizeof value) [[likely]] {
            std::memcpy(&value, bytes.data(), sizeof value);
        } else if (!bytes.empty()) {
            std::memcpy(&value, bytes.data(), bytes.size());
        }
        return value;
    }
    for (const std::byte more : bytes.subspan(sizeof value)) {
        if (more != std::byte{}) {
            return errc::invalid_avpair;
        }
    }
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

template <readable T>
result<T> read_value(std::span<const std::byte> bytes) noexcept {
    if constexpr (number<T>) {
        return read_number<T>(bytes);
    } else if constexpr (std::same_as<T, ipv4>) {
        if (bytes.size() != sizeof(std::uint32_t)) {
            return errc::invalid_avpair;
        }
        ipv4 address;
        std::memcpy(&address.number, bytes.data(), sizeof address.number);
        return address;
    } else if constexpr (std::same_as<T, std::string_view>) {
        const auto *const text = reinterpret_cast<const char *>(bytes.data());
        const void *const end = bytes.empty() ? nullptr : std::memchr(text, '\0', bytes.size());
        return std::string_view(text, end != nullptr
                                          ? static_cast<std::size_t>(static_cast<const char *>(end) - text)
                                          : bytes.size());
    } else {
        return bytes;
    }
}

}  // namespace detail

/** A type that list::add() takes. */
template <typename T>
concept storable = requires(const T &value, result<void> (*store)(const void *, std::uint32_t)) {
    detail::store_value(value, store);
};

/** A type whose values an attribute can have. */
template <typename T, aaa_attr Type>
concept storable_as = storable<T> && std::convertible_to<const T &, value_for<Type>>;

/**
 * A pair of a list: a word that refers to it.
 *
 * Valid until a pair of the list is deleted or changes its length, and until the list is
 * packed, cleared or gone. Adding pairs does not matter.
 */
class attribute {
  public:
    /** Refers to nothing; only assignment and comparison are possible. */
    constexpr attribute() noexcept = default;
    /** Refers to a pair of the C interface. */
    explicit constexpr attribute(const avpair_t *pair) noexcept : pair_(pair) {}

    /** The number of the attribute, such as AAA_USERNAME_ATTR. */
    std::uint32_t type() const noexcept { return pair_->av_type; }
    /** Its name; "<unknown attribute>" for a type without one. */
    std::string_view name() const noexcept {
        const std::string_view known = attribute_name(type());
        return known.empty() ? "<unknown attribute>" : known;
    }
    /** The tag, which belongs to the callers. */
    std::uint32_t tag() const noexcept { return pair_->av_tag; }
    /** The flag bits. */
    std::uint32_t flags() const noexcept { return pair_->av_flags; }
    /** The bytes of the value, in host order. */
    std::span<const std::byte> value() const noexcept { return detail::bytes_of(pair_ + 1, pair_->av_len); }
    /** The value as a type of C++; errc::invalid_avpair when it has another length. */
    template <readable T>
    result<T> get() const noexcept {
        return detail::read_value<T>(value());
    }
    /**
     * Writes the attribute as a line of text, passwords masked, cut where the room ends.
     * @param[out] room where the text goes
     * @return the text in the room
     */
    std::string_view print(std::span<char> room) const noexcept {
        if (room.empty()) {
            return {};
        }
        const auto size = static_cast<std::uint32_t>(room.size() < UINT32_MAX ? room.size() : UINT32_MAX);
        return aaa_util_print_attr(type(), pair_->av_len, flags(), pair_ + 1, room.data(), size);
    }
    /** The pair of the C interface. */
    const avpair_t *native() const noexcept { return pair_; }

    /** Whether type, tag, flags and value are the same. */
    friend bool operator==(attribute a, attribute b) noexcept {
        return a.pair_ == b.pair_ || aaa_avpair_compare_avpairs(a.pair_, b.pair_) != 0;
    }

  private:
    const avpair_t *pair_ = nullptr;
};

}  // namespace aaa

#endif /* AAA_CPP_VALUE_HPP */
