// SPDX-License-Identifier: Apache-2.0
//
// The configuration messages: RADIUS servers, server groups and method lists,
// each a header and a list of vendor attributes whose order is fixed.

#include "aaa/messages.h"

#include <cstddef>
#include <cstring>

#include "aaa/names.h"
#include "internal/messages.hpp"
#include "internal/trace.hpp"

namespace {

using namespace aaautil;
using namespace aaautil::msg;

// The differences between the configuration messages. The texts are kept as
// operators know them, double blank and grammar included.
struct Kind {
    uint32_t type;
    const char *log;
    const char *list_name;
    const char *fill_failed;
};

constexpr Kind kRadiusServer = {AAA_REQ_CFG_RADSVR,
                                "Composing a request for configuring  global radius server",
                                "Rad Server Config Request", kConfigFillFailed};
constexpr Kind kServerGroup = {AAA_REQ_CFG_SVRGRP, "Composing request message for configuring server grp",
                               "SG Config Request", "Composing config message SRVGRP: Failed in data fill"};
constexpr Kind kServerInGroup = {AAA_REQ_CFG_SVR_IN_SG,
                                 "Composing request message for configuring server in sg",
                                 "Server in SG Config Request", kConfigFillFailed};
constexpr Kind kVrfInGroup = {AAA_REQ_CFG_VRF_IN_SG, "Composing request message for configuring vrf in sg",
                              "Vrf in SG Config Request",
                              "Composing config vrfsgmessage: Failed in data fill"};
constexpr Kind kInterfaceInGroup = {AAA_REQ_CFG_SRC_INTF, "Composing an configuration message",
                                    "srcintf Config Request",
                                    "Composing config intrsgmessage: Failed in data fill"};
constexpr Kind kAuthenList = {AAA_REQ_CFG_AUTHENLIST, "Composing an configuration message", "Config Request",
                              "Composing config authlistmessage: Failed in data fill"};
constexpr Kind kAuthorList = {AAA_REQ_CFG_AUTHORLIST, "Composing an configuration message", "Config Request",
                              "Composing config author list message: Failed in data fill"};

// Session mode with a missing record, buffer or size still builds the list and
// hands it over, under the type of a connect.
template <typename AddAttributes>
[[nodiscard]] cerrno compose(const Kind &kind, const Target &to, uint32_t session,
                             AddAttributes add) noexcept {
    aaa_debug(AAA_DBG_REQUEST, kind.log);
    if (session == 0 && !to.complete()) {
        return AAA_ERR_INVALID_ARG;
    }
    list_ptr list;
    cerrno rc = create_list(kind.list_name, list);
    if (rc != AAA_OK) {
        return rc;
    }
    if (session == 0) {
        put_u32(to.record, kTypeAt, kind.type);
    }
    Appender attributes(list.get());
    add(attributes);
    rc = attributes.code();
    if (rc != AAA_OK) {
        return rc;
    }
    if (session == 0) {
        return pack_and_publish(to, list.get(), nullptr);
    }
    const uint32_t type = to.has_room() ? kind.type : uint32_t{AAA_REQ_CONNECT};
    return hand_over(to.record, list, type, 0, kind.fill_failed);
}

// Kept: the address attribute of a global server is cut from the start of the
// whole record. After the address it holds the ports, four bytes of padding,
// the address of the secret (not the secret), the timeout and half of the
// retransmit count, and readers expect all 46 bytes.
constexpr uint32_t kServerImage = 46;
constexpr std::size_t kPaddingAt = offsetof(aaa_rad_server_t, acct_port) + sizeof(uint32_t);
constexpr std::size_t kPadding = offsetof(aaa_rad_server_t, secret) - kPaddingAt;
static_assert(sizeof(aaa_rad_server_t) >= kServerImage);

void append_server_image(Appender &attributes, const aaa_rad_server_t &server) noexcept {
    unsigned char image[kServerImage];
    std::memcpy(image, &server, sizeof image);
    std::memset(image + kPaddingAt, 0, kPadding);
    attributes.bytes(AAA_VS_RAD_SVR_IPADDR, image, sizeof image);
}

// A name slot need not end in NUL; the text that is sent always does.
template <std::size_t N>
void append_slot(Appender &attributes, uint32_t type, const char (&slot)[N]) noexcept {
    char name[N + 1];
    const std::size_t len = strnlen(slot, N);
    std::memcpy(name, slot, len);
    name[len] = '\0';
    attributes.bytes(type, name, static_cast<uint32_t>(len + 1));
}

// All slots are sent, used or not: readers expect four and four.
void append_method_list_record(Appender &attributes, const aaa_method_list_t &mlist,
                               uint32_t action) noexcept {
    append_slot(attributes, AAA_VS_MLIST_NAME, mlist.name);
    for (const uint32_t method : mlist.method) {
        attributes.byte(AAA_VS_METHODS, method);
    }
    for (const auto &group : mlist.sg_name) {
        append_slot(attributes, AAA_VS_RAD_SG_NAME, group);
    }
    attributes.byte(AAA_VS_RAD_CFG_ACTION, action);
}

}  // namespace

extern "C" {

cerrno aaa_util_msg_cfg_radsvr_compose(void *msg, const aaa_rad_server_t *server, iov_t **iov_out,
                                       uint32_t *count_out, char *buffer, uint32_t size, uint32_t session) {
    if (server == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return compose(kRadiusServer, {msg, iov_out, count_out, buffer, size}, session,
                   [server](Appender &attributes) {
                       append_server_image(attributes, *server);
                       attributes.u32(AAA_VS_RAD_SVR_AUTH_PORT, server->auth_port)
                           .u32(AAA_VS_RAD_SVR_ACCT_PORT, server->acct_port)
                           .text(AAA_VS_RAD_SVR_SECRET, server->secret)
                           .u32(AAA_VS_RAD_SVR_TIMEOUT, server->timeout)
                           .u32(AAA_VS_RAD_SVR_RETRANSMIT, server->retransmit)
                           .byte(AAA_VS_RAD_CFG_ACTION, server->action);
                   });
}

cerrno aaa_util_msg_cfg_rad_svrgrp_compose(void *msg, const char *group, uint32_t action, iov_t **iov_out,
                                           uint32_t *count_out, char *buffer, uint32_t size,
                                           uint32_t session) {
    return compose(kServerGroup, {msg, iov_out, count_out, buffer, size}, session, [=](Appender &attributes) {
        attributes.text(AAA_VS_RAD_SG_NAME, group).byte(AAA_VS_RAD_CFG_ACTION, action);
    });
}

cerrno aaa_util_msg_cfg_svr_in_sg_compose(void *msg, const char *group, const aaa_rad_server_t *server,
                                          uint32_t action, iov_t **iov_out, uint32_t *count_out, char *buffer,
                                          uint32_t size, uint32_t session) {
    if (server == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return compose(kServerInGroup, {msg, iov_out, count_out, buffer, size}, session,
                   [=](Appender &attributes) {
                       attributes.text(AAA_VS_RAD_SG_NAME, group)
                           .byte(AAA_VS_RAD_CFG_ACTION, action)
                           .bytes(AAA_VS_RAD_SVR_IPADDR, &server->address, sizeof server->address)
                           .u32(AAA_VS_RAD_SVR_AUTH_PORT, server->auth_port)
                           .u32(AAA_VS_RAD_SVR_ACCT_PORT, server->acct_port);
                   });
}

cerrno aaa_util_msg_cfg_vrf_in_sg_compose(void *msg, const char *group, const char *vrf, uint32_t action,
                                          iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size,
                                          uint32_t session) {
    return compose(kVrfInGroup, {msg, iov_out, count_out, buffer, size}, session, [=](Appender &attributes) {
        attributes.text(AAA_VS_RAD_SG_NAME, group)
            .byte(AAA_VS_RAD_CFG_ACTION, action)
            .text(AAA_VS_RAD_SVR_VRF, vrf);
    });
}

cerrno aaa_util_msg_cfg_src_intf_in_sg_compose(void *msg, const char *interface_name, const char *vrf,
                                               uint32_t action, const char *group, iov_t **iov_out,
                                               uint32_t *count_out, char *buffer, uint32_t size,
                                               uint32_t session) {
    return compose(kInterfaceInGroup, {msg, iov_out, count_out, buffer, size}, session,
                   [=](Appender &attributes) {
                       attributes.text(AAA_VS_RAD_SRC_INTF, interface_name)
                           .byte(AAA_VS_RAD_CFG_ACTION, action)
                           .text(AAA_VS_RAD_SVR_VRF, vrf)
                           .text(AAA_VS_RAD_SG_NAME, group);
                   });
}

cerrno aaa_util_msg_cfg_authenlist_compose(void *msg, const aaa_method_list_t *mlist, uint32_t action,
                                           iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size,
                                           uint32_t session) {
    if (mlist == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return compose(kAuthenList, {msg, iov_out, count_out, buffer, size}, session,
                   [=](Appender &attributes) { append_method_list_record(attributes, *mlist, action); });
}

cerrno aaa_util_msg_cfg_authorlist_compose(void *msg, const aaa_method_list_t *mlist, uint32_t action,
                                           iov_t **iov_out, uint32_t *count_out, char *buffer, uint32_t size,
                                           uint32_t session) {
    if (mlist == nullptr) {
        return AAA_ERR_INVALID_ARG;
    }
    return compose(kAuthorList, {msg, iov_out, count_out, buffer, size}, session,
                   [=](Appender &attributes) { append_method_list_record(attributes, *mlist, action); });
}

}  // extern "C"
