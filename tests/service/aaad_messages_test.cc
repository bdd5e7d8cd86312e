// SPDX-License-Identifier: Apache-2.0
//
// Every type of message that the library composes: which the service answers, and that the others
// are refused by a code that says so, without harm to the connection.

#include <gtest/gtest.h>

#include <cstring>

#include "service/aaad.hpp"

namespace {

using namespace aaad_test;

constexpr uint32_t kLongPacket = 335;  // of a request with a text

class AaadMessages : public testing::Test {
  protected:
    void SetUp() override {
        aaad_.list("authentication/login/default", {AAA_METHOD_LOCAL});
        aaad_.list("authorization/exec/default", {AAA_METHOD_IF_AUTHEN});
        aaad_.list("accounting/exec/default", {AAA_METHOD_SYSLOG}, {0, 0, 0});
        aaad_.start();
    }

    // A message of a test, as the library's routines make it.
    struct Message {
        union {
            aaa_req_hdr_t header;
            aaa_sess_request_t packet;
        } record{};
        iov_t *iov = nullptr;
        uint32_t count = 0;
        char buffer[8192];
        char block[64] = "block";
        char user[6] = "alice", password[11] = "wonderland", terminal[5] = "vty0", remote[11] = "192.0.2.10";
        aaa_usercred_t cred{};
        aaa_svc_attrs_t attrs{};
        avlist *list = nullptr;

        Message() {
            cred.username = user;
            cred.password = password;
            cred.ttyname = cred.tty_mnemonic = terminal;
            cred.remote_addr = remote;
            EXPECT_EQ(aaa_avpair_create_list("test", &list), AAA_OK);
        }
        ~Message() {
            free(iov);
            aaa_avpair_free_list(list);
        }
        Message(const Message &) = delete;
        Message &operator=(const Message &) = delete;
    };

    // The code of the answer.
    static cerrno ask(Client &client, Message &message, uint32_t type, uint32_t session) {
        const auto answer = std::make_unique<aaa_transport_msg_t>();
        const cerrno rc = session != 0 ? aaa_transport_ask_packet(client.get(), &message.record.packet,
                                                                  session, answer.get(), AAA_TRANSPORT_NEVER)
                                       : aaa_transport_ask(client.get(), message.iov, message.count,
                                                           answer.get(), AAA_TRANSPORT_NEVER);
        EXPECT_EQ(rc, AAA_OK) << type;
        aaa_transport_head_t head;
        const cerrno read = aaa_transport_read_reply(answer.get(), type, &head);
        // Answers to types without an error of their own have only the transport's fields.
        return read == AAA_OK ? head.result : read;
    }

    static cerrno free_user_data(Client &client, uint32_t session) {
        Message message;
        EXPECT_EQ(
            aaa_util_msg_free_userdata_compose(&message.record, &message.cred, &message.iov, &message.count,
                                               message.buffer, sizeof message.buffer, session),
            AAA_OK);
        return ask(client, message, AAA_REQ_FREE_USERDATA, session != 0 ? sizeof(aaa_sess_request_t) : 0);
    }

    Aaad aaad_;
};

TEST_F(AaadMessages, FreeUserDataForgetsTheLoginOfTheConnection) {
    Ask ask_for_session;
    ask_for_session.authen_method = AAA_METHOD_NOTSET;
    for (const uint32_t session : {0u, 1u}) {
        Client client = aaad_.client();
        EXPECT_EQ(client.authenticate().status, uint32_t{AAA_STAT_PASS});
        EXPECT_EQ(client.authorize(ask_for_session).status, uint32_t{AAA_STAT_PASS});
        EXPECT_EQ(free_user_data(client, session), AAA_OK) << session;
        EXPECT_EQ(client.authorize(ask_for_session).status, uint32_t{AAA_STAT_FAIL});
        EXPECT_EQ(client.ping().result, AAA_OK);
    }
}

TEST_F(AaadMessages, FreeUserDataEndsALoginBetweenTwoRounds) {
    Client client = aaad_.client();
    Ask question;
    question.password = std::nullopt;
    const Reply reply = client.authenticate(question);
    EXPECT_EQ(reply.status, uint32_t{AAA_STAT_GETPASS});
    EXPECT_EQ(free_user_data(client, 0), AAA_OK);
    question.state = reply.state;
    question.password = "wonderland";
    EXPECT_EQ(client.authenticate(question).status, uint32_t{AAA_STAT_ABORT});
}

TEST_F(AaadMessages, AsynchronousAccountingIsAnsweredWhenTheRecordIsKept) {
    Client client = aaad_.client();
    Message message;
    EXPECT_EQ(aaa_util_msg_acct_compose(&message.record, AAA_ACCT_START_OPT, AAA_SVC_EXEC, "default", 0,
                                        &message.cred, &message.attrs, 4711, &message.iov, &message.count,
                                        message.buffer, sizeof message.buffer, message.block, 0),
              AAA_OK);
    EXPECT_EQ(message.record.header.type, uint32_t{AAA_REQ_ACCT_ASYNC});
    EXPECT_EQ(ask(client, message, AAA_REQ_ACCT_ASYNC, 0), AAA_OK);
    EXPECT_TRUE(aaad_.wait_for_log("start user=alice"));
}

TEST_F(AaadMessages, WhatTheServiceDoesNotDoIsRefusedByACode) {
    Client client = aaad_.client();
    using Compose = cerrno (*)(Message &);
    const struct {
        uint32_t type;
        Compose compose;
    } rows[] = {
        {AAA_REQ_AUTHEN_ASYNC,
         [](Message &m) {
             return aaa_util_msg_authen_compose(&m.record, AAA_AO_ASCII_LOGIN, AAA_SVC_LOGIN, "default", 0,
                                                &m.cred, nullptr, nullptr, &m.iov, &m.count, m.buffer,
                                                sizeof m.buffer, m.block, 0);
         }},
        {AAA_REQ_CALLBACK,
         [](Message &m) { return aaa_util_msg_cb_compose(&m.record, &m.iov, &m.count, 0); }},
        {AAA_REQ_IKEPOST,
         [](Message &m) {
             return aaa_util_msg_ikepost_compose(&m.record, m.list, &m.iov, &m.count, m.buffer,
                                                 sizeof m.buffer, 0);
         }},
        {AAA_REQ_COMPOSED_INCREMENT,
         [](Message &m) {
             static const char *const name = "alice";
             return aaa_util_msg_curr_auth_usr_compose(&m.record, &name, &m.iov, &m.count, 1, 0);
         }},
        {AAA_REQ_COMPOSED_DECREMENT,
         [](Message &m) {
             static const char *const name = "alice";
             return aaa_util_msg_curr_auth_usr_compose(&m.record, &name, &m.iov, &m.count, 2, 0);
         }},
    };
    for (const auto &row : rows) {
        Message message;
        EXPECT_EQ(row.compose(message), AAA_OK) << row.type;
        EXPECT_EQ(message.record.header.type, row.type);
        EXPECT_EQ(ask(client, message, row.type, 0), AAA_ERR_NOT_SUPPORTED) << row.type;
        EXPECT_EQ(client.ping().result, AAA_OK) << "after " << row.type;
    }
}

// Their answers have no place for a code: bytes of one would be taken for a map or a group.
TEST_F(AaadMessages, TaskMapsAndUserGroupsAreEmpty) {
    Client client = aaad_.client();
    for (const uint32_t type : {uint32_t{AAA_REQ_TASKMAP}, uint32_t{AAA_REQ_USERGROUP}}) {
        for (const uint32_t session : {0u, 1u}) {
            Message message;
            const auto compose =
                type == AAA_REQ_TASKMAP ? aaa_util_msg_taskmap_compose : aaa_util_msg_usergroup_compose;
            EXPECT_EQ(compose(&message.record, "alice", &message.iov, &message.count, session), AAA_OK);
            const auto answer = std::make_unique<aaa_transport_msg_t>();
            const cerrno rc = session != 0
                                  ? aaa_transport_ask_packet(client.get(), &message.record.packet,
                                                             kLongPacket, answer.get(), AAA_TRANSPORT_NEVER)
                                  : aaa_transport_ask(client.get(), message.iov, message.count, answer.get(),
                                                      AAA_TRANSPORT_NEVER);
            EXPECT_EQ(rc, AAA_OK);
            if (session == 0) {
                EXPECT_EQ(answer->len, AAA_TRANSPORT_FIELDS) << type;
            }
            aaa_transport_head_t head;
            EXPECT_EQ(aaa_transport_read_reply(answer.get(), type, &head), AAA_OK);
            EXPECT_EQ(head.result, AAA_OK);
            EXPECT_EQ(client.ping().result, AAA_OK);
        }
    }
}

// A type that no routine composes, and one that no one knows.
TEST_F(AaadMessages, UnknownTypesAreRefusedByACode) {
    Client client = aaad_.client();
    for (const uint32_t type :
         {uint32_t{AAA_REQ_GET_LARGE_REPLY}, 13u, uint32_t{AAA_REQ_LDAP_POLICY_SEARCH}, 99u, UINT32_MAX}) {
        Message message;
        EXPECT_EQ(aaa_util_msg_ping_compose(&message.record, &message.iov, &message.count, 0), AAA_OK);
        message.record.header.type = type;
        EXPECT_EQ(ask(client, message, type, 0), AAA_ERR_NOT_SUPPORTED) << type;
        EXPECT_EQ(client.ping().result, AAA_OK) << "after " << type;
    }
}

}  // namespace
