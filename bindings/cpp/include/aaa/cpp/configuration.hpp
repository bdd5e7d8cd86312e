/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_CONFIGURATION_HPP
#define AAA_CPP_CONFIGURATION_HPP

/**
 * @file
 * @brief Configuration messages: servers, server groups and method lists.
 *
 * Fill a record and pass it to encode(). `value` is the caller's number at offset 32,
 * `action` a byte whose meaning is the caller's and the server's.
 */

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "aaa/cpp/message.hpp"

namespace aaa {

/** A RADIUS server. */
struct radius_server {
    aaa_ip_addr_t address{};        /**< 20 bytes; their encoding is the caller's */
    std::uint32_t auth_port = 1812; /**< port of authentication */
    std::uint32_t acct_port = 1813; /**< port of accounting */
    std::string_view secret{};      /**< key; borrowed for the call */
    std::uint32_t timeout = 0;      /**< seconds */
    std::uint32_t retransmit = 0;   /**< tries after the first one */
};

/** A method list. A group's name belongs to the method of the same place. */
struct method_list {
    std::string_view name{};                  /**< at most 252 characters */
    std::array<method_id, 4> methods{};       /**< of which the low bytes are sent */
    std::array<std::string_view, 4> groups{}; /**< at most 255 characters each */
};

/** A global RADIUS server. Its message has parts of the record's memory: send it on this machine only. */
struct radius_server_config {
    radius_server server{};  /**< the server */
    std::uint8_t action = 0; /**< the caller's */
    std::uint32_t value = 0; /**< the caller's */
};

/** A server group. */
struct group_config {
    std::string_view group{}; /**< its name */
    std::uint8_t action = 0;  /**< the caller's */
    std::uint32_t value = 0;  /**< the caller's */
};

/** A server in a group; key and times are not sent. */
struct group_server_config {
    std::string_view group{}; /**< its name */
    radius_server server{};   /**< the server */
    std::uint8_t action = 0;  /**< the caller's */
    std::uint32_t value = 0;  /**< the caller's */
};

/** The VRF of a group. */
struct group_vrf_config {
    std::string_view group{}; /**< its name */
    std::string_view vrf{};   /**< name of the VRF */
    std::uint8_t action = 0;  /**< the caller's */
    std::uint32_t value = 0;  /**< the caller's */
};

/** The source interface of a group. */
struct group_interface_config {
    std::string_view group{};      /**< its name */
    std::string_view interface {}; /**< name of the interface */
    std::string_view vrf{};        /**< name of the VRF */
    std::uint8_t action = 0;       /**< the caller's */
    std::uint32_t value = 0;       /**< the caller's */
};

/** A method list of authentication. */
struct authentication_list_config {
    method_list methods{};   /**< the list */
    std::uint8_t action = 0; /**< the caller's */
    std::uint32_t value = 0; /**< the caller's */
};

/** A method list of authorization. */
struct authorization_list_config {
    method_list methods{};   /**< the list */
    std::uint8_t action = 0; /**< the caller's */
    std::uint32_t value = 0; /**< the caller's */
};

namespace detail {

inline aaa_rad_server_t server_record(const radius_server &from, std::uint8_t action, char *secret) noexcept {
    aaa_rad_server_t record;
    std::memset(static_cast<void *>(&record), 0, sizeof record); /* unused bytes are sent, too */
    record.address = from.address;
    record.auth_port = from.auth_port;
    record.acct_port = from.acct_port;
    record.secret = secret;
    record.timeout = from.timeout;
    record.retransmit = from.retransmit;
    record.action = action;
    return record;
}

/* A name that fills its field needs no NUL. */
template <std::size_t Size>
bool put_name(char (&field)[Size], std::string_view name) noexcept {
    if (name.size() > Size || name.find('\0') != std::string_view::npos) {
        return false;
    }
    std::copy(name.begin(), name.end(), field);
    return true;
}

inline result<aaa_method_list_t> list_record(const method_list &from) noexcept {
    aaa_method_list_t record{};
    bool fits = put_name(record.name, from.name);
    for (std::size_t i = 0; i < from.methods.size(); ++i) {
        record.method[i] = number_of(from.methods[i]);
        fits = fits && put_name(record.sg_name[i], from.groups[i]);
    }
    if (!fits) {
        return errc::invalid_argument;
    }
    return record;
}

}  // namespace detail

/** Composes a configuration message. @{ */
inline result<message> encode(const radius_server_config &from) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.server.secret});
    if (!texts) {
        return failure(texts.code());
    }
    const aaa_rad_server_t server = detail::server_record(from.server, from.action, (*texts)[0]);
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cfg_radsvr_compose(&at.records.head, &server, at.elements, at.count, at.buffer,
                                               at.size, 0);
    });
}

inline result<message> encode(const group_config &from) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.group});
    if (!texts) {
        return failure(texts.code());
    }
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cfg_rad_svrgrp_compose(&at.records.head, (*texts)[0], from.action, at.elements,
                                                   at.count, at.buffer, at.size, 0);
    });
}

inline result<message> encode(const group_server_config &from) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({from.group});
    if (!texts) {
        return failure(texts.code());
    }
    const aaa_rad_server_t server = detail::server_record(from.server, from.action, nullptr);
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cfg_svr_in_sg_compose(&at.records.head, (*texts)[0], &server, from.action,
                                                  at.elements, at.count, at.buffer, at.size, 0);
    });
}

inline result<message> encode(const group_vrf_config &from) noexcept {
    result<detail::texts<2>> texts = detail::texts<2>::copy({from.group, from.vrf});
    if (!texts) {
        return failure(texts.code());
    }
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cfg_vrf_in_sg_compose(&at.records.head, (*texts)[0], (*texts)[1], from.action,
                                                  at.elements, at.count, at.buffer, at.size, 0);
    });
}

inline result<message> encode(const group_interface_config &from) noexcept {
    result<detail::texts<3>> texts = detail::texts<3>::copy({from.group, from.interface, from.vrf});
    if (!texts) {
        return failure(texts.code());
    }
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cfg_src_intf_in_sg_compose(&at.records.head, (*texts)[1], (*texts)[2],
                                                       from.action, (*texts)[0], at.elements, at.count,
                                                       at.buffer, at.size, 0);
    });
}

inline result<message> encode(const authentication_list_config &from) noexcept {
    const result<aaa_method_list_t> record = detail::list_record(from.methods);
    if (!record) {
        return failure(record.code());
    }
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cfg_authenlist_compose(&at.records.head, &*record, from.action, at.elements,
                                                   at.count, at.buffer, at.size, 0);
    });
}

inline result<message> encode(const authorization_list_config &from) noexcept {
    const result<aaa_method_list_t> record = detail::list_record(from.methods);
    if (!record) {
        return failure(record.code());
    }
    return detail::composer::grow([&](detail::place at) {
        at.records.head.request.param = from.value;
        return aaa_util_msg_cfg_authorlist_compose(&at.records.head, &*record, from.action, at.elements,
                                                   at.count, at.buffer, at.size, 0);
    });
}
/** @} */

}  // namespace aaa

#endif /* AAA_CPP_CONFIGURATION_HPP */
