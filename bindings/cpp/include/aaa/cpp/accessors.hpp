/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_ACCESSORS_HPP
#define AAA_CPP_ACCESSORS_HPP

/**
 * @file
 * @brief Well-known attributes that list::add() and list::get() do not fit.
 *
 * A function that begins with set_ changes the first attribute of its type, or appends one;
 * one that begins with add_ appends, and one that begins with take_ removes what it gives.
 * Each stores the flags that readers expect. To read an attribute that has no function here:
 * list::get<AAA_..._ATTR>().
 */

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "aaa/accessors.h"
#include "aaa/cpp/list.hpp"

namespace aaa {

namespace detail {

/* Calls a function that adds at most this many pairs. */
template <typename Change>
result<void> change(const list &target, Change call, std::size_t pairs = 1) noexcept {
    return target.pairs_left() < pairs ? errc::full_list : target.outcome(call());
}

/* Calls a function that changes the first pair of a type, or adds one. */
template <typename Change>
result<void> change_first(const list &target, std::uint32_t type, Change call) noexcept {
    return change(target, call, target.pairs_left() == 0 && target.contains(type) ? 0 : 1);
}

/* Calls a function with a text and the length that includes its NUL; it adds a pair. */
template <typename Store>
result<void> with_text(const list &target, std::string_view text, Store store) noexcept {
    return store_value(text, [&](const void *bytes, std::uint32_t length) {
        return change(target, [&] { return store(static_cast<const char *>(bytes), length); });
    });
}

/* The same; it changes the first pair of a type, or adds one. */
template <typename Store>
result<void> set_text(const list &target, std::uint32_t type, std::string_view text, Store store) noexcept {
    return store_value(text, [&](const void *bytes, std::uint32_t length) {
        return change_first(target, type, [&] { return store(static_cast<const char *>(bytes), length); });
    });
}

}  // namespace detail

/** Appends the user name (257); at most 253 characters, at least one. */
inline result<void> add_username(list &target, std::string_view name) noexcept {
    return detail::with_text(target, name, [&](const char *text, std::uint32_t length) {
        constexpr std::uint32_t most = 254;
        return length > most
                   ? AAA_ERR_INVALID_ARG
                   : aaa_util_avlist_username_add(text, static_cast<std::int32_t>(length), target.native());
    });
}

/** Sets the password (258). The list holds it in clear text. */
inline result<void> set_password(list &target, std::string_view password) noexcept {
    return detail::set_text(target, AAA_PASSWORD_ATTR, password, [&](const char *text, std::uint32_t length) {
        return aaa_util_avlist_password_add(text, length, target.native());
    });
}

/** Sets the verdict (2). */
inline result<void> set_status(list &target, verdict status) noexcept {
    return detail::change_first(target, AAA_STATUS_ATTR, [&] {
        return aaa_util_avlist_status_add(number_of(status), sizeof(std::uint32_t), target.native());
    });
}

/** Sets the prompt (21). */
inline result<void> set_prompt(list &target, std::string_view prompt, std::uint32_t flags = 0) noexcept {
    return detail::set_text(target, AAA_PROMPT_ATTR, prompt, [&](const char *text, std::uint32_t) {
        return aaa_util_avlist_prompt_add(flags, text, target.native());
    });
}

/** Sets the error message (7). */
inline result<void> set_error_message(list &target, std::string_view message) noexcept {
    return detail::set_text(target, AAA_ERRMSG_ATTR, message, [&](const char *text, std::uint32_t) {
        return aaa_util_avlist_errmsg_add(target.native(), text);
    });
}

/** Appends a command (36). */
inline result<void> add_command(list &target, std::string_view command) noexcept {
    return detail::with_text(target, command, [&](const char *text, std::uint32_t length) {
        return aaa_util_avlist_cmd_add(text, length, target.native());
    });
}

/** Sets the CHAP response (16), of at most 65535 bytes. */
inline result<void> set_chap_response(list &target, std::span<const std::byte> response) noexcept {
    return detail::store_bytes(
        response.data(), response.size(), [&](const void *bytes, std::uint32_t length) {
            return length > UINT16_MAX
                       ? result<void>(errc::invalid_argument)
                       : detail::change_first(target, AAA_CHAP_RESPONSE_ATTR, [&] {
                             return aaa_util_avlist_chap_response_add(bytes, length, target.native());
                         });
        });
}

/** Appends the address that a request is directed to (42). */
inline result<void> add_directed_address(list &target, ipv4 address) noexcept {
    return detail::change(target,
                          [&] { return aaa_util_avlist_directed_addr_add(address.number, target.native()); });
}

/** Sets the sequence number (27). */
inline result<void> set_sequence_number(list &target, std::uint32_t number) noexcept {
    return detail::change_first(target, AAA_SEQNUM_ATTR,
                                [&] { return aaa_util_avlist_seqnum_add(target.native(), number); });
}

/** Sets the privilege level (10). */
inline result<void> set_privilege(list &target, std::uint32_t level) noexcept {
    return detail::change_first(target, AAA_PRIV_LVL_ATTR,
                                [&] { return aaa_util_avlist_priv_add(target.native(), level); });
}

/** Sets the authentication method (39). */
inline result<void> set_authentication_method(list &target, method_id method) noexcept {
    return detail::change_first(target, AAA_AUTHEN_METHOD_ATTR, [&] {
        return aaa_util_avlist_authen_method_set(number_of(method), target.native());
    });
}

/** Sets the authentication option (43). */
inline result<void> set_authentication_option(list &target, authen_option option) noexcept {
    return detail::change_first(target, AAA_AUTHEN_OPTION_ATTR, [&] {
        return aaa_util_avlist_authen_option_add(number_of(option), target.native());
    });
}

/** Sets the message type (3). */
inline result<void> set_message_kind(list &target, message_kind kind) noexcept {
    return detail::change_first(
        target, AAA_TYPE_ATTR, [&] { return aaa_util_avlist_msgtype_add(number_of(kind), target.native()); });
}

/* ---- CHAP ---- */

/** The forms of CHAP data, with their attributes. */
enum class chap_form : std::uint32_t {
    inbound = AAA_INBOUND_CHAP_DATA_ATTR,       /**< id, response of 16 bytes, challenge */
    inbound_ms = AAA_INBOUND_MSCHAP_DATA_ATTR,  /**< id, response of 49 bytes, challenge of at least 2 */
    outbound = AAA_OUTBOUND_CHAP_DATA_ATTR,     /**< id, data */
    outbound_ms = AAA_OUTBOUND_MSCHAP_DATA_ATTR /**< id, data of at least 2 bytes */
};

/** CHAP data; the bytes are borrowed. */
struct chap_data {
    std::uint8_t id = 0;                   /**< identifier */
    std::span<const std::byte> data{};     /**< inbound: the challenge */
    std::span<const std::byte> response{}; /**< inbound only */
};

namespace detail {

inline bool is_inbound(chap_form form) noexcept {
    return form == chap_form::inbound || form == chap_form::inbound_ms;
}

/* The record of the C interface, which is not const where it could be. */
inline aaa_chap_data_t chap_record(const chap_data &chap) noexcept {
    const auto bytes = [](std::span<const std::byte> from) {
        return reinterpret_cast<std::uint8_t *>(const_cast<std::byte *>(from.data()));
    };
    aaa_chap_data_t record{};
    record.id = chap.id;
    record.data = bytes(chap.data);
    record.data_len = static_cast<std::uint32_t>(chap.data.size());
    record.response = bytes(chap.response);
    record.response_len = static_cast<std::uint32_t>(chap.response.size());
    return record;
}

}  // namespace detail

/** Appends CHAP data. */
inline result<void> add_chap_data(list &target, chap_form form, const chap_data &chap) noexcept {
    if (chap.data.size() > UINT32_MAX || chap.response.size() > UINT32_MAX) {
        return errc::invalid_argument;
    }
    const aaa_chap_data_t record = detail::chap_record(chap);
    switch (form) {
        case chap_form::inbound:
            return detail::change(
                target, [&] { return aaa_util_avlist_inbound_chap_data_add(&record, target.native()); });
        case chap_form::inbound_ms:
            return detail::change(
                target, [&] { return aaa_util_avlist_inbound_mschap_data_add(&record, target.native()); });
        case chap_form::outbound:
            return detail::change(
                target, [&] { return aaa_util_avlist_outbound_chap_data_add(&record, target.native()); });
        case chap_form::outbound_ms:
            return detail::change(
                target, [&] { return aaa_util_avlist_outbound_mschap_data_add(&record, target.native()); });
    }
    return errc::invalid_argument;
}

/** Reads CHAP data, which refer to the list; errc::invalid_client_data where they are absent or too short. */
inline result<chap_data> get_chap_data(const list &source, chap_form form) noexcept {
    aaa_chap_data_t record{};
    cerrno rc = AAA_ERR_INVALID_ARG;
    switch (form) {
        case chap_form::inbound:
            rc = aaa_util_avlist_inbound_chap_data_get(&record, source.native());
            break;
        case chap_form::inbound_ms:
            rc = aaa_util_avlist_inbound_mschap_data_get(&record, source.native());
            break;
        case chap_form::outbound:
            rc = aaa_util_avlist_outbound_chap_data_get(&record, source.native());
            break;
        case chap_form::outbound_ms:
            rc = aaa_util_avlist_outbound_mschap_data_get(&record, source.native());
            break;
    }
    if (rc != AAA_OK) {
        return source.why(rc);
    }
    return chap_data{record.id, detail::bytes_of(record.data, record.data_len),
                     detail::bytes_of(record.response, record.response_len)};
}

/* ---- public keys ---- */

/** The parameters of a public-key login: 34 KB, so they are not kept on the stack. */
using rsa_params = aaa_rsa_params_t;

/** Appends the parameters of a public-key login. */
inline result<void> add_rsa_params(list &target, const rsa_params &params) noexcept {
    return detail::change(
        target, [&] { return aaa_util_avlist_rsa_params_add(target.native(), &params); }, 11);
}

/** Reads the parameters of a public-key login; their pointers refer to the list. */
inline result<std::unique_ptr<rsa_params, detail::free_memory>> get_rsa_params(const list &source) noexcept {
    std::unique_ptr<rsa_params, detail::free_memory> params(
        static_cast<rsa_params *>(std::calloc(1, sizeof(rsa_params))));
    if (!params) {
        return errc::no_memory;
    }
    if (const cerrno rc = aaa_util_avlist_rsa_params_get(source.native(), params.get()); rc != AAA_OK) {
        return source.why(rc);
    }
    return params;
}

/* ---- attributes that reading removes ---- */

/** Takes the first error message (7) out of the list; errc::avpair_not_found. */
inline result<c_string> take_error_message(list &source) noexcept {
    if (const result<attribute> found = source.find(AAA_ERRMSG_ATTR); !found) {
        return failure(found.code());
    }
    c_string text(aaa_util_avlist_errmsg_get(source.native()));
    if (!text) {
        return errc::no_memory;
    }
    return text;
}

/** A prompt and the flags of its attribute. */
struct prompt {
    c_string text;           /**< what to show */
    std::uint32_t flags = 0; /**< of the attribute */
};

/** Takes the first prompt (21) out of the list; errc::avpair_not_found. */
inline result<prompt> take_prompt(list &source) noexcept {
    if (const result<attribute> found = source.find(AAA_PROMPT_ATTR); !found) {
        return failure(found.code());
    }
    prompt taken;
    taken.text = c_string(aaa_util_avlist_prompt_get(source.native(), &taken.flags));
    if (!taken.text) {
        return errc::no_memory;
    }
    return taken;
}

/** Copies the address that a request is directed to (42): all zero where it is absent. */
inline aaa_ip_addr_t directed_address(const list &source) noexcept {
    aaa_ip_addr_t address{};
    (void)aaa_util_avlist_directed_addr_get(&address, source.native());
    return address;
}

}  // namespace aaa

#endif /* AAA_CPP_ACCESSORS_HPP */
