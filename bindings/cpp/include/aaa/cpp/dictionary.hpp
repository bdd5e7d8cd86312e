/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_DICTIONARY_HPP
#define AAA_CPP_DICTIONARY_HPP

/**
 * @file
 * @brief The attribute dictionary, when the program runs and when it is compiled.
 *
 * value_for<AAA_USERNAME_ATTR> is the type that a value of the attribute has in C++. So
 * list::get<AAA_USERNAME_ATTR>() is a text, and list::add<AAA_PRIV_LVL_ATTR>("15") does not
 * compile.
 */

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "aaa/cpp/names.hpp"
#include "aaa/dictionary.h"

namespace aaa {

/** enum aaa_format */
enum class format : std::uint32_t {
    text = AAA_FORMAT_STRING,
    integer = AAA_FORMAT_INTEGER,
    bytes = AAA_FORMAT_BINARY,
    address = AAA_FORMAT_IPADDR
};

/** An IPv4 address; the highest byte of the number is first in the dotted form. */
struct ipv4 {
    std::uint32_t number = 0; /**< 0xC0A80101 is 192.168.1.1 */
    /** Compares the numbers. */
    friend bool operator==(ipv4, ipv4) = default;
};

/** A text of at most N - 1 characters that needs no memory. */
template <std::size_t N>
class short_text {
  public:
    /** The text. */
    std::string_view view() const noexcept { return chars_.data(); }
    /** The text with its NUL. */
    const char *c_str() const noexcept { return chars_.data(); }
    /** Room for a function that writes a text. */
    char *room() noexcept { return chars_.data(); }

  private:
    std::array<char, N> chars_{};
};

/** The name of an attribute type; empty for a type without an attribute. */
inline std::string_view attribute_name(std::uint32_t type) noexcept {
    const char *const name =
        type < AAA_TABLE_ROWS ? aaa_attribute_pname(static_cast<std::int32_t>(type)) : nullptr;
    return type != 0 && name != nullptr ? name : "";
}

/** The format of an attribute type; none for a type without an attribute. */
inline std::optional<format> attribute_format(std::uint32_t type) noexcept {
    if (attribute_name(type).empty()) {
        return std::nullopt;
    }
    return static_cast<format>(aaa_attribute_format(static_cast<std::int32_t>(type)));
}

/** The type of an attribute with this name, such as "AAA_USERNAME_ATTR". Reads the whole dictionary. */
inline std::optional<std::uint32_t> find_attribute(std::string_view name) noexcept {
    for (const aaa_table_row_t &row : aaa_table) {
        if (row.no_entry == 0 && row.type != 0 && name == row.name) {
            return row.type;
        }
    }
    return std::nullopt;
}

/** The dotted form of an address. */
inline short_text<16> text_of(ipv4 address) noexcept {
    short_text<16> text;
    aaa_util_format_ipaddr(address.number, text.room());
    return text;
}

/** The text of an IPv4 or IPv6 address; empty when the platform does not know the family. */
inline short_text<46> text_of(const aaa_ip_addr_t &address) noexcept {
    short_text<46> text;
    if (aaa_util_format_v4v6_ipaddr(text.room(), address) == nullptr) {
        return {};
    }
    return text;
}

namespace detail {

inline constexpr std::array<std::uint8_t, AAA_TABLE_ROWS> formats = {{
#define AAA_ATTRIBUTE(type, format, name) static_cast<std::uint8_t>(format),
#define AAA_NO_ATTRIBUTE(type, format)    static_cast<std::uint8_t>(format),
#include "aaa/dictionary.def"
}};

template <format Format>
struct plain_value {
    using type = std::span<const std::byte>;
};
template <>
struct plain_value<format::text> {
    using type = std::string_view;
};
template <>
struct plain_value<format::integer> {
    using type = std::uint32_t;
};
template <>
struct plain_value<format::address> {
    using type = ipv4;
};

template <aaa_attr Type>
struct value_type : plain_value<static_cast<format>(formats[Type])> {};

/* Attributes whose format does not say what they are. */
template <>
struct value_type<AAA_STATUS_ATTR> {
    using type = verdict;
};
template <>
struct value_type<AAA_TYPE_ATTR> {
    using type = message_kind;
};
template <>
struct value_type<AAA_SERVICE_TYPE_ATTR> {
    using type = service_kind;
};
template <>
struct value_type<AAA_AUTHEN_OPTION_ATTR> {
    using type = authen_option;
};
template <>
struct value_type<AAA_AUTHEN_METHOD_ATTR> {
    using type = method_id;
};
template <>
struct value_type<AAA_STARTTIME_ATTR> {
    using type = std::uint64_t;
};
template <>
struct value_type<AAA_STOPTIME_ATTR> {
    using type = std::uint64_t;
};
template <>
struct value_type<AAA_TASKMAP_ATTR> {
    using type = std::uint64_t;
};
template <>
struct value_type<AAA_DATA_ATTR> {
    using type = std::span<const std::byte>;
};
template <>
struct value_type<AAA_CONTEXT_ATTR> {
    using type = std::span<const std::byte>;
};

}  // namespace detail

/** The type of the values of an attribute. */
template <aaa_attr Type>
using value_for = typename detail::value_type<Type>::type;

}  // namespace aaa

#endif /* AAA_CPP_DICTIONARY_HPP */
