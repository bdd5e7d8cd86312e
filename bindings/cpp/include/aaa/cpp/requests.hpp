/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_REQUESTS_HPP
#define AAA_CPP_REQUESTS_HPP

/**
 * @file
 * @brief Requests of clients, and the two messages of the server's side of a connection.
 *
 * Fill a record and pass it to encode(). What it refers to is borrowed for that call, unless
 * its block says otherwise. The record of an authentication:
 *
 *     aaa::encode(aaa::authentication_request{.user = alice, .service = aaa::service_kind::login});
 */

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "aaa/cpp/message.hpp"

namespace aaa {

/** "connect": six values and two texts, whose meaning is the caller's. */
struct connect_request {
    std::array<std::uint32_t, 6> values{}; /**< the values */
    std::string_view text1{};              /**< the first text; may be absent */
    std::string_view text2{};              /**< the second one; may be absent */
};

/** "disconnect". */
struct disconnect_request {};

/** "get callback". */
struct callback_request {
    std::uint32_t value = 0; /**< the caller's number */
};

/** "ping". */
struct ping_request {};

/** The server's side of "connect". */
struct server_connect {
    std::uint32_t parameter = 0; /**< the caller's number */
    private_block block;         /**< copied */
};

/** The server's side of "disconnect". */
struct server_disconnect {
    std::span<const std::byte, 4> data; /**< copied */
};

/** An authentication. */
struct authentication_request {
    credentials &user;                                 /**< the request may fill in the remote address */
    service_kind service = service_kind::login;        /**< what the user asks for */
    authen_option option = authen_option::ascii_login; /**< how the user authenticates */
    std::uint32_t variant = 0;                         /**< bits 8 to 15, for the receiver */
    std::string_view method_list{};                    /**< its name; absent: that of the caller's line */
    method_id method = method_id::not_set;             /**< a method that makes a method list unnecessary */
    const list *attributes = nullptr;                  /**< to send along; may be null */
    const rsa_params *rsa = nullptr;                   /**< needed for authen_option::rsa */
    std::optional<private_block> block{};              /**< makes the request asynchronous; copied */
};

/** An authorization. */
struct authorization_request {
    credentials &user;                                 /**< as for an authentication */
    service_kind service = service_kind::exec;         /**< what the user asks for */
    service_attributes attributes{};                   /**< of a command or an operation */
    authen_option option = authen_option::ascii_login; /**< how the user authenticated */
    std::string_view method_list{};                    /**< its name; absent: that of the caller's line */
    method_id method = method_id::not_set;             /**< a method that makes a method list unnecessary */
    std::optional<private_block> block{};              /**< makes the request asynchronous; copied */
};

/** An accounting record. */
struct accounting_request {
    credentials *user = nullptr;               /**< may be null for service_kind::system only */
    service_kind service = service_kind::exec; /**< what the user does */
    acct_option option = acct_option::start;   /**< beginning or end */
    std::uint32_t session_id = 0;              /**< the same in all records of a session */
    service_attributes attributes{};           /**< of a command or an operation */
    std::string_view method_list{};            /**< its name; absent: that of the caller's line */
    method_id method = method_id::not_set;     /**< a method that makes a method list unnecessary */
    std::optional<private_block> block{};      /**< makes the request asynchronous; copied */
};

/** An interim accounting record. */
struct accounting_update_request {
    list &attributes;             /**< of the record; spent afterwards */
    std::uint32_t session_id = 0; /**< as in the other records of the session */
    private_block block;          /**< copied */
};

/** What a user reference request does to the count. */
enum class reference_change : std::uint32_t { increment = 1, decrement = 2 };

/** One more reference to an authenticated user, or one less. */
struct user_reference_request {
    std::string_view username{};                           /**< at most 253 characters */
    reference_change change = reference_change::increment; /**< up or down */
};

/** "ikepost": a list. */
struct ikepost_request {
    const list &attributes; /**< not changed */
};

/** "get taskmap". */
struct task_map_request {
    std::string_view name{}; /**< of the task map */
};

/** "free user data". */
struct free_user_data_request {
    credentials &user;       /**< whose data */
    std::uint32_t value = 0; /**< the caller's number */
};

/** A question for the groups of a user. */
struct user_group_request {
    std::string_view request{}; /**< its text */
};

/** Composes a request. @{ */
inline result<message> encode(const connect_request &from) noexcept {
    result<detail::texts<2>> texts = detail::texts<2>::copy({from.text1, from.text2});
    if (!texts) {
        return failure(texts.code());
    }
    const auto &v = from.values;
    result<message> made = detail::composer::run(0, [&](detail::place at) {
        return aaa_util_msg_conn_compose(&at.records.head, v[0], v[1], v[2], v[3], v[4], v[5], (*texts)[0],
                                         (*texts)[1], at.elements, at.count, 0);
    });
    return detail::composer::keep(std::move(made), std::move(*texts).take());
}

inline result<message> encode(disconnect_request) noexcept {
    return detail::composer::run(0, [](detail::place at) {
        return aaa_util_msg_disconn_compose(&at.records.head, at.elements, at.count, 0);
    });
}

inline result<message> encode(callback_request from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cb_compose(&at.records.head, at.elements, at.count, 0);
    });
}

inline result<message> encode(ping_request) noexcept {
    return detail::composer::run(0, [](detail::place at) {
        return aaa_util_msg_ping_compose(&at.records.head, at.elements, at.count, 0);
    });
}

inline result<message> encode(const server_connect &from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        detail::copy_block(at.records.block, from.block);
        return aaa_util_svrmsg_conn_compose(&at.records.head, from.parameter, at.elements, at.count,
                                            at.records.block, 0);
    });
}

inline result<message> encode(const server_disconnect &from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        std::memcpy(at.records.data, from.data.data(), from.data.size());
        return aaa_util_svrmsg_disconn_compose(&at.records.head, at.elements, at.count, at.records.data, 0);
    });
}

namespace detail {

/* Whether a request's list has room for these attributes and its own: the pair that wraps the count would
 * end the process. */
inline bool fits(const credentials &user, const list *attributes) noexcept {
    constexpr std::size_t most = UINT16_MAX;
    constexpr std::size_t own = 512;
    return user.further_attributes() + (attributes != nullptr ? attributes->size() : 0) <= most - own;
}

inline void *block_of(place at, const std::optional<private_block> &block) noexcept {
    if (!block) {
        return nullptr;
    }
    copy_block(at.records.block, *block);
    return at.records.block;
}

}  // namespace detail

inline result<message> encode(const authentication_request &from) noexcept {
    if (!from.user) {
        return errc::empty_handle;
    }
    if (from.attributes != nullptr && from.attributes->native() == nullptr) {
        return from.attributes->why(AAA_ERR_INVALID_ARG);
    }
    if (!detail::fits(from.user, from.attributes)) {
        return errc::full_list;
    }
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.method_list});
    if (!texts) {
        return failure(texts.code());
    }
    return detail::composer::grow([&](detail::place at) {
        return aaa_util_msg_authen_compose(
            &at.records.head, number_of(from.option) | (from.variant & 0xff00u),
            static_cast<std::int32_t>(from.service), (*texts)[0], number_of(from.method), from.user.native(),
            from.attributes != nullptr ? from.attributes->native() : nullptr, from.rsa, at.elements, at.count,
            at.buffer, at.size, detail::block_of(at, from.block), 0);
    });
}

inline result<message> encode(const authorization_request &from) noexcept {
    if (!from.user) {
        return errc::empty_handle;
    }
    if (!detail::fits(from.user, from.attributes.ike)) {
        return errc::full_list;
    }
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.method_list});
    if (!texts) {
        return failure(texts.code());
    }
    result<detail::service_record> service = detail::service_record::make(from.service, from.attributes);
    if (!service) {
        return failure(service.code());
    }
    return detail::composer::grow([&](detail::place at) {
        return aaa_util_msg_author_compose(
            &at.records.head, number_of(from.option), static_cast<std::int32_t>(from.service), (*texts)[0],
            number_of(from.method), from.user.native(), service->native(), at.elements, at.count, at.buffer,
            at.size, detail::block_of(at, from.block), 0);
    });
}

inline result<message> encode(const accounting_request &from) noexcept {
    if (from.user != nullptr && !*from.user) {
        return errc::empty_handle;
    }
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.method_list});
    if (!texts) {
        return failure(texts.code());
    }
    result<detail::service_record> service = detail::service_record::make(from.service, from.attributes);
    if (!service) {
        return failure(service.code());
    }
    return detail::composer::grow([&](detail::place at) {
        return aaa_util_msg_acct_compose(
            &at.records.head, number_of(from.option), static_cast<std::int32_t>(from.service), (*texts)[0],
            number_of(from.method), from.user != nullptr ? from.user->native() : nullptr, service->native(),
            from.session_id, at.elements, at.count, at.buffer, at.size, detail::block_of(at, from.block), 0);
    });
}

inline result<message> encode(const accounting_update_request &from) noexcept {
    constexpr std::size_t added = 1024; /* time, session id, time zone and message type */
    if (from.attributes.pairs_left() < 4) {
        return errc::full_list;
    }
    return detail::compose_list(from.attributes, added, [&](detail::place at) {
        detail::copy_block(at.records.block, from.block);
        at.records.session_id = from.session_id;
        return aaa_util_msg_acct_update_compose(&at.records.head, &at.records.session_id, at.records.block,
                                                from.attributes.native(), at.elements, at.count, at.buffer,
                                                at.size, 0);
    });
}

inline result<message> encode(const user_reference_request &from) noexcept {
    constexpr std::size_t most = 253;
    if (from.username.size() > most) {
        return errc::invalid_argument;
    }
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.username});
    if (!texts) {
        return failure(texts.code());
    }
    return detail::composer::wipe_last(detail::composer::run(0, [&](detail::place at) {
        const char *const name = (*texts)[0];
        return aaa_util_msg_curr_auth_usr_compose(&at.records.head, &name, at.elements, at.count,
                                                  number_of(from.change), 0);
    }));
}

inline result<message> encode(const ikepost_request &from) noexcept {
    if (from.attributes.native() == nullptr) {
        return from.attributes.why(AAA_ERR_INVALID_ARG);
    }
    return detail::composer::run(from.attributes.packed_size(), [&](detail::place at) {
        return aaa_util_msg_ikepost_compose(&at.records.head, from.attributes.native(), at.elements, at.count,
                                            at.buffer, at.size, 0);
    });
}

inline result<message> encode(const task_map_request &from) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.name});
    if (!texts) {
        return failure(texts.code());
    }
    result<message> made = detail::composer::run(0, [&](detail::place at) {
        return aaa_util_msg_taskmap_compose(&at.records.head, (*texts)[0], at.elements, at.count, 0);
    });
    return detail::composer::keep(std::move(made), std::move(*texts).take());
}

inline result<message> encode(const free_user_data_request &from) noexcept {
    if (!from.user) {
        return errc::empty_handle;
    }
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_free_userdata_compose(&at.records.head, from.user.native(), at.elements, at.count,
                                                  at.buffer, at.size, 0);
    });
}

inline result<message> encode(const user_group_request &from) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.request});
    if (!texts) {
        return failure(texts.code());
    }
    result<message> made = detail::composer::run(0, [&](detail::place at) {
        return aaa_util_msg_usergroup_compose(&at.records.head, (*texts)[0], at.elements, at.count, 0);
    });
    return detail::composer::keep(std::move(made), std::move(*texts).take());
}
/** @} */

}  // namespace aaa

#endif /* AAA_CPP_REQUESTS_HPP */
