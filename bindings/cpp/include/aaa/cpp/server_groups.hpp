/* SPDX-License-Identifier: Apache-2.0 */
#ifndef AAA_CPP_SERVER_GROUPS_HPP
#define AAA_CPP_SERVER_GROUPS_HPP

/**
 * @file
 * @brief Server groups, and the keys of their servers.
 *
 * They read and write the system database. Codes of the database pass through unchanged.
 */

#include <cstdint>
#include <optional>
#include <string_view>

#include "aaa/cpp/names.hpp"
#include "aaa/server_groups.h"
#include "aaa/server_keys.h"

namespace aaa {

/** Number and protocol of a server group. The number is a method value, too. */
struct server_group {
    std::uint32_t number = 0;         /**< 1000 to 4999 */
    keyword protocol = keyword::none; /**< radius, tacacs or diameter */
    /** The group as a method. */
    method_id method() const noexcept { return static_cast<method_id>(number); }
};

/** Finds a server group by its name. */
inline result<server_group> find_server_group(std::string_view name) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({name});
    if (!texts) {
        return failure(texts.code());
    }
    server_group found;
    std::uint32_t protocol = 0;
    if (const cerrno rc = aaa_util_lookup_sg_index_and_get_type((*texts)[0], &found.number, &protocol);
        rc != AAA_OK) {
        return failure(rc);
    }
    found.protocol = static_cast<keyword>(protocol);
    return found;
}

/** The name of a RADIUS or TACACS group; no text when there is no such group or it cannot be read. */
inline c_string server_group_name(std::uint32_t number) noexcept {
    return c_string(aaa_util_lookup_sg_name(number));
}

/** What happens to a server group. */
struct group_change {
    std::uint32_t operation = AAA_CFG_OP_SET; /**< AAA_CFG_OP_... */
    bool first_pass = false;                  /**< of a change in two passes */
};

/** Whether a change may be made. */
struct group_verdict {
    std::uint32_t verdict = 0; /**< AAA_VERDICT_... */
    cerrno code = AAA_OK;      /**< why it is rejected; AAA_OK where it is not */
    c_string text;             /**< for the operator; some rejections have none */
    /** Whether it is rejected. */
    bool rejected() const noexcept { return code != AAA_OK; }
};

namespace detail {

inline aaa_cfg_event_t event_of(group_change change) noexcept {
    aaa_cfg_event_t event{};
    event.operation = change.operation;
    event.pass_flags = static_cast<std::uint8_t>(change.first_pass ? AAA_CFG_FIRST_PASS : 0);
    return event;
}

}  // namespace detail

/** Checks whether a change of a server group may be made. A rejection is not a failure of the check. */
inline result<group_verdict> verify_server_group(group_change change, std::string_view name,
                                                 keyword protocol) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({name});
    if (!texts) {
        return failure(texts.code());
    }
    const aaa_cfg_event_t event = detail::event_of(change);
    group_verdict found;
    char *text = nullptr;
    found.code = aaa_util_svr_grp_verify(&event, &text, &found.verdict, (*texts)[0], number_of(protocol));
    found.text = c_string(text);
    if (found.verdict == 0 && found.code != AAA_OK) {
        return failure(found.code);
    }
    return found;
}

/**
 * Brings the maps of groups in line with a change.
 * @param[in] connection bound at "/oper/aaa/gl/group-server/"
 * @param[in] change     the change
 * @param[in] protocol   radius, tacacs or diameter
 * @param[in] name       of the group
 * @return the number of the group, 0 where it has none
 */
inline result<std::uint32_t> apply_server_group(std::uint64_t connection, group_change change,
                                                keyword protocol, std::string_view name) noexcept {
    result<detail::texts<2>> texts = detail::texts<2>::copy({name, name_of(protocol)});
    if (!texts) {
        return failure(texts.code());
    }
    const aaa_cfg_event_t event = detail::event_of(change);
    std::uint32_t number = 0;
    if (const cerrno rc = aaa_util_svr_grp_apply(connection, &event, (*texts)[1], (*texts)[0], &number);
        rc != AAA_OK) {
        return failure(rc);
    }
    return number;
}

/** A server for which an index is wanted. */
struct server_place {
    std::string_view group{};             /**< absent: the list of all servers of the protocol */
    keyword protocol = keyword::radius;   /**< radius, tacacs or diameter */
    std::string_view host{};              /**< its address as text */
    std::uint32_t port1 = 0;              /**< the only port of protocols other than RADIUS */
    std::uint32_t port2 = 0;              /**< second port, of RADIUS */
    std::uint32_t wanted = AAA_INDEX_ANY; /**< a certain index, or any */
    bool directories = false;             /**< whether servers are stored as directories */
    bool of_group = false;                /**< whether it is one of the group's private servers */
};

/** Chooses or checks the index under which a server is stored. */
inline result<std::uint32_t> next_server_index(const server_place &place) noexcept {
    result<detail::texts<2>> texts = detail::texts<2>::copy({place.group, place.host});
    if (!texts) {
        return failure(texts.code());
    }
    const std::uint32_t dir = place.directories ? 1 : 0;
    const std::uint32_t own = place.of_group ? 1 : 0;
    std::uint32_t index = 0;
    const cerrno rc =
        place.protocol == keyword::tacacs
            ? aaa_util_get_next_tacacs_ord_index((*texts)[0], number_of(place.protocol), place.wanted, &index,
                                                 (*texts)[1], place.port1, 0, dir, own)
            : aaa_util_get_next_ord_index((*texts)[0], number_of(place.protocol), place.wanted, &index,
                                          (*texts)[1], place.port1, place.port2, dir, own);
    if (rc != AAA_OK) {
        return failure(rc);
    }
    return index;
}

/* ---- keys of servers ---- */

/** Checks an encrypted key and that its clear text is printable. */
inline result<void> check_encrypted_key(std::string_view key) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({key});
    if (!texts) {
        return failure(texts.code());
    }
    if (const cerrno rc = validate_encrypted_password((*texts)[0]); rc != AAA_OK) {
        return failure(rc);
    }
    return {};
}

/** A key without trailing white space; no text when nothing is left, or an encrypted key cannot be opened. */
inline c_string trimmed_key(std::string_view key, bool encrypted) noexcept {
    result<detail::texts<1>> texts = detail::texts<1>::copy({key});
    return texts ? c_string(aaa_util_truncate_whitespace_in_server_key((*texts)[0], encrypted ? 1 : 0))
                 : c_string();
}

}  // namespace aaa

#endif /* AAA_CPP_SERVER_GROUPS_HPP */
