/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_DECODE_HPP
#define AAA_CPP_DECODE_HPP

/**
 * @file
 * @brief Messages that were received, from peers of any kind.
 *
 * No read passes the end of the bytes, and lists are made by the checked functions of
 * aaa/checked.h only. Texts and blocks refer to the bytes of the message; lists do not.
 */

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>

#include "aaa/checked.h"
#include "aaa/cpp/message.hpp"

namespace aaa {

/** A request, or a configuration message. Which members are filled depends on its type. */
struct request {
    request_type type{};                   /**< the type */
    std::uint32_t parameter = 0;           /**< option of an AAA request, value of the others */
    std::span<const std::byte> block{};    /**< 64 bytes of asynchronous requests and updates */
    std::uint32_t session_id = 0;          /**< of an accounting update */
    std::array<std::uint32_t, 6> values{}; /**< of a connect */
    std::uint32_t version = 0;             /**< of a connect */
    std::string_view text{};               /**< the first text of a connect, task map, user group */
    std::string_view text2{};              /**< the second text of a connect */
    std::optional<list> attributes{};      /**< of all that have a list */
};

/** A reply. Which members are filled depends on the request. */
struct reply {
    cerrno status = AAA_OK;   /**< was the request processed? The verdict is in the list */
    std::uint32_t second = 0; /**< of callback, connect (the version) and configuration (the value) */
    std::span<const std::byte> data{}; /**< of task map and user group */
    std::optional<list> attributes{};  /**< of all that have a list */

    /** The data as a text, for a user group. */
    std::string_view text() const noexcept {
        return {reinterpret_cast<const char *>(data.data()), data.size()};
    }
};

namespace detail {

/* An object that owns bytes, or may own them, and is gone after the call that it is given to. A
 * std::span, and what says that it is a view, may be a temporary: the bytes are elsewhere. */
template <typename T>
concept temporary_bytes = !std::is_lvalue_reference_v<T> && std::is_class_v<std::remove_cvref_t<T>> &&
                          !std::ranges::enable_borrowed_range<std::remove_cvref_t<T>> &&
                          std::convertible_to<T, std::span<const std::byte>>;

inline std::uint32_t network_order(std::uint32_t word) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        return (word >> 24) | ((word >> 8) & 0xff00u) | ((word << 8) & 0xff0000u) | (word << 24);
    }
    return word;
}

/* A position in bytes of a peer. */
class cursor {
  public:
    explicit cursor(std::span<const std::byte> bytes) noexcept : bytes_(bytes) {}

    bool has(std::size_t size) const noexcept { return left().size() >= size; }
    std::span<const std::byte> left() const noexcept { return bytes_.subspan(at_); }

    /* The caller has asked whether there are as many. */
    std::span<const std::byte> take(std::size_t size) noexcept {
        const std::span<const std::byte> taken = left().first(size);
        at_ += size;
        return taken;
    }

    std::uint32_t host_word(std::size_t offset) const noexcept {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes_.data() + offset, sizeof word);
        return word;
    }
    std::uint32_t network_word(std::size_t offset) const noexcept { return network_order(host_word(offset)); }

    /* The rest, as a text with its NUL or without one. */
    result<std::string_view> text(bool terminated) noexcept {
        const std::span<const std::byte> rest = take(left().size());
        std::string_view text(reinterpret_cast<const char *>(rest.data()), rest.size());
        if (terminated) {
            if (text.empty() || text.find('\0') != text.size() - 1) {
                return errc::invalid_message_size;
            }
            text.remove_suffix(1);
        }
        return text;
    }

    result<void> list_into(std::optional<list> &attributes) noexcept {
        result<list> made = list::unpack(left());
        if (!made) {
            return failure(made.code());
        }
        attributes = *std::move(made);
        return {};
    }

    result<void> end() const noexcept { return left().empty() ? result<void>() : errc::invalid_message_size; }

  private:
    std::span<const std::byte> bytes_;
    std::size_t at_ = 0;
};

inline constexpr std::size_t short_request = offsetof(aaa_req_hdr_t, param);
inline constexpr std::size_t callback_header = offsetof(aaa_req_hdr_t, fixed36);
inline constexpr std::size_t long_request = sizeof(aaa_req_hdr_t);
inline constexpr std::size_t block_size = 64;

inline result<void> read_connect(cursor &at, request &into) noexcept {
    if (!at.has(sizeof(aaa_conn_msg_t))) {
        return errc::invalid_message_size;
    }
    into.version = at.network_word(offsetof(aaa_conn_msg_t, version));
    for (std::size_t i = 0; i < into.values.size(); ++i) {
        into.values[i] = at.network_word(offsetof(aaa_conn_msg_t, value) + i * sizeof(std::uint32_t));
    }
    const std::size_t length = at.network_word(offsetof(aaa_conn_msg_t, str1_len));
    at.take(sizeof(aaa_conn_msg_t));
    if (!at.has(length)) {
        return errc::invalid_message_size;
    }
    const auto text_of_bytes = [](std::span<const std::byte> bytes) {
        return std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    };
    into.text = text_of_bytes(at.take(length));
    into.text2 = text_of_bytes(at.take(at.left().size()));
    return {};
}

/* What precedes the list: header, block, session id. */
inline result<void> read_before_list(cursor &at, request &into, std::size_t header, bool block,
                                     bool session) noexcept {
    const std::size_t needed = header + (block ? block_size : 0) + (session ? sizeof(std::uint32_t) : 0);
    if (!at.has(needed)) {
        return errc::invalid_message_size;
    }
    if (header > short_request) {
        into.parameter = at.network_word(offsetof(aaa_req_hdr_t, param));
    }
    at.take(header);
    if (block) {
        into.block = at.take(block_size);
    }
    if (session) {
        std::memcpy(&into.session_id, at.take(sizeof(std::uint32_t)).data(), sizeof(std::uint32_t));
    }
    return at.list_into(into.attributes);
}

inline result<void> read_plain(cursor &at, request &into) noexcept {
    at.take(short_request);
    if (into.type == request_type::task_map || into.type == request_type::user_group) {
        const result<std::string_view> text = at.text(true);
        if (!text) {
            return failure(text.code());
        }
        into.text = *text;
        return {};
    }
    return at.end();
}

inline result<void> read_callback(cursor &at, request &into) noexcept {
    if (!at.has(callback_header)) {
        return errc::invalid_message_size;
    }
    into.parameter = at.network_word(offsetof(aaa_req_hdr_t, param));
    at.take(callback_header);
    return at.end();
}

inline result<void> read_request(cursor &at, request &into) noexcept {
    switch (into.type) {
        case request_type::connect:
            return read_connect(at, into);
        case request_type::disconnect:
        case request_type::ping:
        case request_type::task_map:
        case request_type::user_group:
            return read_plain(at, into);
        case request_type::callback:
            return read_callback(at, into);
        case request_type::authentication:
        case request_type::authorization:
        case request_type::accounting:
        case request_type::free_user_data:
        case request_type::config_radius_server:
        case request_type::config_group:
        case request_type::config_group_server:
        case request_type::config_group_vrf:
        case request_type::config_source_interface:
        case request_type::config_authentication_list:
        case request_type::config_authorization_list:
            return read_before_list(at, into, long_request, false, false);
        case request_type::authentication_async:
        case request_type::authorization_async:
        case request_type::accounting_async:
            return read_before_list(at, into, long_request, true, false);
        case request_type::accounting_update:
            return read_before_list(at, into, long_request, true, true);
        case request_type::ikepost:
        case request_type::user_increment:
        case request_type::user_decrement:
            return read_before_list(at, into, short_request, false, false);
        default:
            return errc::invalid_message_type;
    }
}

inline bool has_two_words(request_type type) noexcept {
    return type == request_type::callback ||
           (type >= request_type::config_radius_server && type <= request_type::config_authorization_list);
}

/* Whether a reply without a status means success. */
inline bool is_bare(request_type type) noexcept {
    return type == request_type::accounting || type == request_type::accounting_async ||
           type == request_type::accounting_update || type == request_type::ping ||
           type == request_type::ikepost || type == request_type::disconnect;
}

inline result<void> read_reply(cursor &at, request_type type, reply &into) noexcept {
    constexpr std::size_t bare = offsetof(aaa_reply_hdr_t, status);
    constexpr std::size_t one_word = offsetof(aaa_reply_hdr_t, second);
    constexpr std::size_t two_words = offsetof(aaa_reply_hdr_t, tail28);
    if (type == request_type::task_map || type == request_type::user_group) {
        if (!at.has(bare)) {
            return errc::invalid_message_size;
        }
        at.take(bare);
        into.data = at.take(at.left().size());
        return {};
    }
    if (is_bare(type) && at.left().size() == bare) {
        return {};
    }
    if (!at.has(one_word)) {
        return errc::invalid_message_size;
    }
    const std::uint32_t status = at.host_word(bare);
    /* The only status that is sent in host order. */
    into.status = type == request_type::authorization_async ? status : network_order(status);
    std::size_t header = one_word;
    if (has_two_words(type) && at.has(two_words)) {
        into.second = at.network_word(one_word);
        header = two_words;
    } else if (type == request_type::connect && at.has(sizeof(aaa_reply_hdr_t))) {
        into.second = at.network_word(one_word);
        header = sizeof(aaa_reply_hdr_t);
    }
    /* In a configuration reply the caller's number comes first. */
    if (has_two_words(type) && type != request_type::callback && header == two_words) {
        std::swap(into.status, into.second);
    }
    at.take(header);
    return at.left().empty() ? result<void>() : at.list_into(into.attributes);
}

}  // namespace detail

/**
 * Reads a request or a configuration message in the classic form.
 * @param[in] message its bytes; those that follow its list are ignored
 * @return the request; errc::invalid_message_size, errc::invalid_message_type, or the code of list::unpack()
 */
inline result<request> decode_request(std::span<const std::byte> message) noexcept {
    detail::cursor at(message);
    if (!at.has(detail::short_request)) {
        return errc::invalid_message_size;
    }
    request into;
    into.type = static_cast<request_type>(at.host_word(offsetof(aaa_req_hdr_t, type)));
    if (const result<void> read = detail::read_request(at, into); !read) {
        return failure(read.code());
    }
    return into;
}

/** Not for bytes that are gone after the call: the request refers to them. @{ */
template <detail::temporary_bytes Bytes>
result<request> decode_request(Bytes &&message) = delete;
template <detail::temporary_bytes Bytes>
result<request> decode_server_message(Bytes &&message) = delete;
template <detail::temporary_bytes Bytes>
result<reply> decode_reply(request_type type, Bytes &&message) = delete;
/** @} */

/**
 * Reads the server's side of a connect or a disconnect, whose types are those of a client's.
 * @param[in] message its bytes
 * @return the message: its number as parameter, its 64 or 4 bytes as block
 */
inline result<request> decode_server_message(std::span<const std::byte> message) noexcept {
    detail::cursor at(message);
    if (!at.has(detail::long_request)) {
        return errc::invalid_message_size;
    }
    request into;
    into.type = static_cast<request_type>(at.host_word(offsetof(aaa_req_hdr_t, type)));
    if (into.type != request_type::connect && into.type != request_type::disconnect) {
        return errc::invalid_message_type;
    }
    const bool connect = into.type == request_type::connect;
    constexpr std::size_t param = offsetof(aaa_req_hdr_t, param);
    /* The parameter of the disconnect is the only one that is sent in host order. */
    into.parameter = connect ? at.network_word(param) : at.host_word(param);
    at.take(detail::long_request);
    const std::size_t size = connect ? detail::block_size : sizeof(std::uint32_t);
    if (at.left().size() != size) {
        return errc::invalid_message_size;
    }
    into.block = at.left();
    return into;
}

/**
 * Reads a reply in the classic form. It does not name its request.
 * @param[in] type    type of the request
 * @param[in] message its bytes
 * @return the reply; errc::invalid_message_size, or the code of list::unpack()
 */
inline result<reply> decode_reply(request_type type, std::span<const std::byte> message) noexcept {
    detail::cursor at(message);
    reply into;
    if (const result<void> read = detail::read_reply(at, type, into); !read) {
        return failure(read.code());
    }
    return into;
}

/**
 * Copies the type data, the name of a task map or the text of a user group, out of a session packet.
 * @param[in]  packet the bytes of the packet
 * @param[out] room   where the data go; 255 bytes are always enough
 * @return the data in the room; errc::invalid_message_type for a packet without, errc::buffer_too_small
 */
inline result<std::span<std::byte>> session_type_data(std::span<const std::byte> packet,
                                                      std::span<std::byte> room) noexcept {
    std::uint32_t length = 0;
    if (const cerrno rc =
            aaa_sess_get_type_data_checked(packet.data(), packet.size(), room.data(), room.size(), &length);
        rc != AAA_OK) {
        return failure(rc);
    }
    return room.first(length);
}

}  // namespace aaa

#endif /* AAA_CPP_DECODE_HPP */
