// SPDX-License-Identifier: Apache-2.0
//
// Requests as a client sends them.

#include "service/aaad.hpp"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

namespace aaad_test {

namespace {

std::string text_in(const avlist *list, uint32_t type) {
    uint32_t length = 0;
    char value[2048] = "";
    return aaa_util_avlist_value_copy(list, type, 0, value, sizeof value - 1, &length) == AAA_OK ? value : "";
}

std::optional<uint32_t> number_in(const avlist *list, uint32_t type) {
    uint32_t length = 0;
    uint32_t value = 0;
    return aaa_util_avlist_value_copy(list, type, 0, &value, sizeof value, &length) == AAA_OK
               ? std::optional(value)
               : std::nullopt;
}

Reply read_reply(const aaa_transport_msg_t &message, uint32_t type) {
    Reply reply;
    aaa_transport_head_t head;
    reply.result = aaa_transport_read_reply(&message, type, &head);
    if (reply.result == AAA_OK) {
        reply.result = head.result;
    }
    avlist *list = nullptr;
    if (head.list_at != 0 && aaa_transport_unpack(&message, head.list_at, &list) == AAA_OK) {
        reply.status = number_in(list, AAA_STATUS_ATTR).value_or(0);
        reply.text = text_in(list, AAA_REPLYMSG_ATTR);
        reply.prompt = text_in(list, AAA_PROMPT_ATTR);
        reply.state = text_in(list, AAA_RADIUS_STATE_ATTR);
        reply.privilege = number_in(list, AAA_PRIV_LVL_ATTR);
        reply.method = number_in(list, AAA_AUTHEN_METHOD_ATTR);
        reply.echo = number_in(list, AAA_PROMPT_ECHO_ATTR);
        reply.type = number_in(list, AAA_TYPE_ATTR);
        reply.timeout = number_in(list, AAA_TIMEOUT_ATTR);
        aaa_avpair_free_list(list);
    }
    return reply;
}

}  // namespace

struct Client::Composed {
    union {
        aaa_req_hdr_t header;
        aaa_sess_request_t packet;
    } record{};
    iov_t *iov = nullptr;
    uint32_t count = 0;
    char buffer[16384];
    std::string user, password, remote, tty = "vty0", command;
    aaa_usercred_t cred{};
    avlist *extra = nullptr;

    explicit Composed(const Ask &ask)
        : user(ask.user), password(ask.password.value_or("")), remote(ask.remote), command(ask.command) {
        cred.username = user.empty() ? nullptr : user.data();
        cred.password = ask.password ? password.data() : nullptr;
        cred.ttyname = tty.data();
        cred.tty_mnemonic = tty.data();
        cred.remote_addr = remote.data();
        cred.authen_method = ask.authen_method;
        EXPECT_EQ(aaa_avpair_create_list("extra", &extra), AAA_OK);
        if (!ask.state.empty()) {
            EXPECT_EQ(aaa_util_avpair_add_attr(extra, AAA_RADIUS_STATE_ATTR, ask.state.c_str(),
                                               static_cast<uint32_t>(ask.state.size() + 1), 0),
                      AAA_OK);
        }
        if (ask.privilege != 0) {
            EXPECT_EQ(aaa_util_avlist_priv_add(extra, ask.privilege), AAA_OK);
        }
        cred.state_args = extra;
    }
    // Packs the composed list again, with another type.
    void set_type(uint32_t type) {
        iov_t &packed = iov[count - 1];
        avlist *list = nullptr;
        uint32_t length = sizeof buffer;
        EXPECT_EQ(aaa_avpair_create_list(nullptr, &list), AAA_OK);
        EXPECT_EQ(aaa_avpair_unpack_msg_checked(list, static_cast<const char *>(packed.base), packed.len),
                  AAA_OK);
        EXPECT_EQ(aaa_util_avlist_msgtype_add(type, list), AAA_OK);
        EXPECT_EQ(aaa_avpair_pack_msg_to_buf(list, buffer, &length), AAA_OK);
        packed.len = length;
        aaa_avpair_free_list(list);
    }
    ~Composed() {
        free(iov);
        aaa_avpair_free_list(extra);
    }
};

void Client::compose_authentication(Composed &c, const Ask &ask) {
    EXPECT_EQ(aaa_util_msg_authen_compose(&c.record, ask.option, ask.service, ask.list.c_str(), 0, &c.cred,
                                          nullptr, nullptr, &c.iov, &c.count, c.buffer, sizeof c.buffer,
                                          nullptr, ask.session),
              AAA_OK);
    if (ask.type != 0) {
        c.set_type(ask.type);
    }
}

Reply Client::exchange(Composed &c, uint32_t type, const Ask &ask) {
    const auto message = std::make_unique<aaa_transport_msg_t>();
    const cerrno rc = ask.session != 0
                          ? aaa_transport_ask_packet(get(), &c.record.packet, sizeof c.record.packet,
                                                     message.get(), ask.deadline)
                          : aaa_transport_ask(get(), c.iov, c.count, message.get(), ask.deadline);
    if (rc != AAA_OK) {
        Reply reply;
        reply.result = rc;
        reply.error = aaa_transport_errno(transport_.get());
        return reply;
    }
    return read_reply(*message, type);
}

Reply Client::authenticate(const Ask &ask) {
    Composed c(ask);
    compose_authentication(c, ask);
    return exchange(c, AAA_REQ_AUTHEN, ask);
}

cerrno Client::try_to_send_authentication(const Ask &ask) {
    Composed c(ask);
    compose_authentication(c, ask);
    return aaa_transport_send(get(), c.iov, c.count, AAA_TRANSPORT_NEVER);
}

void Client::send_authentication(const Ask &ask) {
    EXPECT_EQ(try_to_send_authentication(ask), AAA_OK);
}

Reply Client::receive(uint32_t type) {
    const auto message = std::make_unique<aaa_transport_msg_t>();
    const cerrno rc = aaa_transport_receive(get(), message.get(), AAA_TRANSPORT_NEVER);
    if (rc != AAA_OK) {
        Reply reply;
        reply.result = rc;
        reply.error = aaa_transport_errno(transport_.get());
        return reply;
    }
    return read_reply(*message, type);
}

Reply Client::authorize(const Ask &ask) {
    Composed c(ask);
    c.cred.password = nullptr;
    aaa_svc_attrs_t attrs{};
    attrs.cmd = c.command.data();
    EXPECT_EQ(aaa_util_msg_author_compose(&c.record, AAA_AO_ASCII_LOGIN,
                                          ask.command.empty() ? int32_t{AAA_SVC_EXEC} : int32_t{AAA_SVC_CMD},
                                          ask.list.c_str(), 0, &c.cred, &attrs, &c.iov, &c.count, c.buffer,
                                          sizeof c.buffer, nullptr, ask.session),
              AAA_OK);
    return exchange(c, AAA_REQ_AUTHOR, ask);
}

Reply Client::account(const Ask &ask) {
    Composed c(ask);
    aaa_svc_attrs_t attrs{};
    EXPECT_EQ(aaa_util_msg_acct_compose(&c.record, ask.record, AAA_SVC_EXEC, ask.list.c_str(), 0, &c.cred,
                                        &attrs, ask.number, &c.iov, &c.count, c.buffer, sizeof c.buffer,
                                        nullptr, ask.session),
              AAA_OK);
    return exchange(c, AAA_REQ_ACCT, ask);
}

Reply Client::ping(uint32_t session) {
    Ask ask;
    ask.session = session;
    Composed c(ask);
    EXPECT_EQ(aaa_util_msg_ping_compose(&c.record, &c.iov, &c.count, session), AAA_OK);
    return exchange(c, AAA_REQ_PING, ask);
}

namespace {

aaa_rad_server_t server_at(const std::string &address, char *key) {
    aaa_rad_server_t server{};
    server.address.family = AF_INET;
    EXPECT_EQ(inet_pton(AF_INET, address.c_str(), server.address.addr.bytes), 1);
    server.auth_port = 1812;
    server.acct_port = 1813;
    server.secret = key;
    server.timeout = 3;
    server.retransmit = 1;
    return server;
}

Ask in_form(uint32_t session) {
    Ask ask;
    ask.session = session;
    return ask;
}

}  // namespace

cerrno Client::configure_server(const std::string &address, const std::string &key, uint32_t action,
                                uint32_t session) {
    Composed c(in_form(session));
    std::string secret = key;
    aaa_rad_server_t server = server_at(address, secret.data());
    server.action = static_cast<uint8_t>(action);
    EXPECT_EQ(aaa_util_msg_cfg_radsvr_compose(&c.record, &server, &c.iov, &c.count, c.buffer, sizeof c.buffer,
                                              session),
              AAA_OK);
    return exchange(c, AAA_REQ_CFG_RADSVR, in_form(session)).result;
}

cerrno Client::configure_group(const std::string &group, uint32_t action, uint32_t session) {
    Composed c(in_form(session));
    EXPECT_EQ(aaa_util_msg_cfg_rad_svrgrp_compose(&c.record, group.c_str(), action, &c.iov, &c.count,
                                                  c.buffer, sizeof c.buffer, session),
              AAA_OK);
    return exchange(c, AAA_REQ_CFG_SVRGRP, in_form(session)).result;
}

cerrno Client::configure_server_in_group(const std::string &group, const std::string &address,
                                         uint32_t action, uint32_t session) {
    Composed c(in_form(session));
    const aaa_rad_server_t server = server_at(address, nullptr);
    EXPECT_EQ(aaa_util_msg_cfg_svr_in_sg_compose(&c.record, group.c_str(), &server, action, &c.iov, &c.count,
                                                 c.buffer, sizeof c.buffer, session),
              AAA_OK);
    return exchange(c, AAA_REQ_CFG_SVR_IN_SG, in_form(session)).result;
}

cerrno Client::configure_vrf(const std::string &group, const std::string &vrf, uint32_t action,
                             uint32_t session) {
    Composed c(in_form(session));
    EXPECT_EQ(aaa_util_msg_cfg_vrf_in_sg_compose(&c.record, group.c_str(), vrf.c_str(), action, &c.iov,
                                                 &c.count, c.buffer, sizeof c.buffer, session),
              AAA_OK);
    return exchange(c, AAA_REQ_CFG_VRF_IN_SG, in_form(session)).result;
}

cerrno Client::configure_source(const std::string &group, const std::string &interface,
                                const std::string &vrf, uint32_t action, uint32_t session) {
    Composed c(in_form(session));
    EXPECT_EQ(aaa_util_msg_cfg_src_intf_in_sg_compose(&c.record, interface.c_str(), vrf.c_str(), action,
                                                      group.c_str(), &c.iov, &c.count, c.buffer,
                                                      sizeof c.buffer, session),
              AAA_OK);
    return exchange(c, AAA_REQ_CFG_SRC_INTF, in_form(session)).result;
}

cerrno Client::configure_list(bool authentication, const std::string &name, std::vector<Method> methods,
                              uint32_t action, uint32_t session) {
    Composed c(in_form(session));
    aaa_method_list_t list{};
    std::strncpy(list.name, name.c_str(), sizeof list.name - 1);
    for (size_t i = 0; i < methods.size(); ++i) {
        list.method[i] = methods[i].number;
        std::strncpy(list.sg_name[i], methods[i].group.c_str(), sizeof list.sg_name[i] - 1);
    }
    const auto compose =
        authentication ? aaa_util_msg_cfg_authenlist_compose : aaa_util_msg_cfg_authorlist_compose;
    EXPECT_EQ(compose(&c.record, &list, action, &c.iov, &c.count, c.buffer, sizeof c.buffer, session),
              AAA_OK);
    return exchange(c, authentication ? AAA_REQ_CFG_AUTHENLIST : AAA_REQ_CFG_AUTHORLIST, in_form(session))
        .result;
}

}  // namespace aaad_test
