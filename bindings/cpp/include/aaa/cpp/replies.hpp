/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_REPLIES_HPP
#define AAA_CPP_REPLIES_HPP

/**
 * @file
 * @brief Replies of servers.
 *
 * Fill a record and pass it to encode(). Two things must not be mixed up: `status` is a
 * result code, AAA_OK when the request was processed. The verdict, such as verdict::fail for
 * a wrong password, is an attribute of the list: set_status().
 */

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "aaa/cpp/message.hpp"

namespace aaa {

/** The reply to anything. */
struct generic_reply {
    cerrno status = AAA_OK;     /**< was the request processed? */
    list *attributes = nullptr; /**< spent afterwards; may be null */
};

/** The reply to an authentication. */
struct authentication_reply {
    list &attributes;       /**< with the verdict; spent afterwards */
    cerrno status = AAA_OK; /**< was the request processed? */
};

/** The reply to an authorization. */
struct authorization_reply {
    list &attributes;       /**< with the verdict; spent afterwards */
    cerrno status = AAA_OK; /**< was the request processed? */
};

/** The reply to an asynchronous authentication. */
struct authentication_async_reply {
    cerrno status = AAA_OK; /**< was the request accepted? */
};

/** The reply to an asynchronous authorization. */
struct authorization_async_reply {
    cerrno status = AAA_OK; /**< was the request accepted? Sent in host order: kept */
};

/** The reply to an accounting request: it was processed. */
struct accounting_reply {};

/** The reply to a ping. */
struct ping_reply {};

/** The reply to an ikepost. */
struct ikepost_reply {};

/** The reply to a disconnect. */
struct disconnect_reply {};

/** The reply to "get callback". */
struct callback_reply {
    list &attributes;         /**< spent afterwards */
    cerrno status = AAA_OK;   /**< was the request processed? */
    std::uint32_t second = 0; /**< the caller's second number */
};

/** The reply to a configuration message. */
struct configuration_reply {
    std::uint32_t value = 0; /**< the caller's number */
    cerrno status = AAA_OK;  /**< was the message processed? */
};

/** The reply to a user reference request. */
struct user_reference_reply {
    cerrno status = AAA_OK; /**< was the request processed? */
};

/** The reply to a connect. */
struct connect_reply {
    cerrno status = AAA_OK; /**< was the request processed? */
};

/** The reply to "get taskmap". */
struct task_map_reply {
    std::span<const std::byte> data{}; /**< the task map; borrowed as long as the message exists */
};

/** The reply to a user group request. */
struct user_group_reply {
    std::string_view text{}; /**< the groups */
};

/** Composes a reply. @{ */
inline result<message> encode(const generic_reply &from) noexcept {
    const auto compose = [&](detail::place at) {
        at.records.head.reply.status = from.status;
        return aaa_util_reply_compose(&at.records.head, at.elements, at.count, at.buffer, at.size,
                                      from.attributes != nullptr ? from.attributes->native() : nullptr, 0,
                                      nullptr);
    };
    return from.attributes != nullptr ? detail::compose_list(*from.attributes, 0, compose)
                                      : detail::composer::run(0, compose);
}

inline result<message> encode(const authentication_reply &from) noexcept {
    return detail::compose_list(from.attributes, 0, [&](detail::place at) {
        at.records.head.reply.status = from.status;
        return aaa_util_reply_authen_compose(&at.records.head, at.elements, at.count, at.buffer, at.size,
                                             from.attributes.native(), 0, nullptr);
    });
}

inline result<message> encode(const authorization_reply &from) noexcept {
    return detail::compose_list(from.attributes, 0, [&](detail::place at) {
        at.records.head.reply.status = from.status;
        return aaa_util_reply_author_compose(&at.records.head, at.elements, at.count, at.buffer, at.size,
                                             from.attributes.native(), 0, nullptr);
    });
}

inline result<message> encode(authentication_async_reply from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        return aaa_util_reply_authen_async_compose(&at.records.head, at.elements, at.count, from.status, 0,
                                                   nullptr);
    });
}

inline result<message> encode(authorization_async_reply from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        return aaa_util_reply_author_async_compose(&at.records.head, at.elements, at.count, from.status, 0,
                                                   nullptr);
    });
}

inline result<message> encode(accounting_reply) noexcept {
    return detail::composer::run(0, [](detail::place at) {
        return aaa_util_reply_acct_compose(&at.records.head, at.elements, at.count, 0, nullptr);
    });
}

inline result<message> encode(ping_reply) noexcept {
    return detail::composer::run(0, [](detail::place at) {
        return aaa_util_reply_ping_compose(&at.records.head, at.elements, at.count, 0, nullptr);
    });
}

inline result<message> encode(ikepost_reply) noexcept {
    return detail::composer::run(0, [](detail::place at) {
        return aaa_util_reply_ikepost_compose(&at.records.head, at.elements, at.count, 0, nullptr);
    });
}

inline result<message> encode(disconnect_reply) noexcept {
    return detail::composer::run(0, [](detail::place at) {
        return aaa_util_reply_disconn_compose(&at.records.head, at.elements, at.count, 0, nullptr);
    });
}

inline result<message> encode(const callback_reply &from) noexcept {
    return detail::compose_list(from.attributes, 0, [&](detail::place at) {
        at.records.head.reply.status = from.status;
        at.records.head.reply.second = from.second;
        return aaa_util_reply_cb_compose(&at.records.head, at.elements, at.count, at.buffer, at.size,
                                         from.attributes.native(), 0, nullptr);
    });
}

inline result<message> encode(configuration_reply from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        at.records.head.reply.status = from.value;
        return aaa_util_reply_cfg_compose(&at.records.head, at.elements, at.count, from.status, 0, nullptr);
    });
}

inline result<message> encode(user_reference_reply from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        return aaa_util_reply_curr_auth_usr_compose(&at.records.head, at.elements, at.count, from.status, 0,
                                                    nullptr);
    });
}

inline result<message> encode(connect_reply from) noexcept {
    return detail::composer::run(0, [&](detail::place at) {
        return aaa_util_reply_conn_compose(&at.records.head, from.status, at.elements, at.count, 0, nullptr);
    });
}

inline result<message> encode(const task_map_reply &from) noexcept {
    if (from.data.size() > UINT32_MAX) {
        return errc::invalid_argument;
    }
    return detail::composer::run(0, [&](detail::place at) {
        return aaa_util_reply_taskmap_compose(&at.records.head, const_cast<std::byte *>(from.data.data()),
                                              static_cast<std::uint32_t>(from.data.size()), at.elements,
                                              at.count, 0, nullptr);
    });
}

inline result<message> encode(const user_group_reply &from) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.text});
    if (!texts) {
        return failure(texts.code());
    }
    result<message> made = detail::composer::run(0, [&](detail::place at) {
        return aaa_util_reply_usergroup_compose(&at.records.head, (*texts)[0], at.elements, at.count, 0,
                                                nullptr);
    });
    return detail::composer::keep(std::move(made), std::move(*texts).take());
}
/** @} */

}  // namespace aaa

#endif /* AAA_CPP_REPLIES_HPP */
