// SPDX-License-Identifier: Apache-2.0
//
// Reading received messages: the offset of the list in every message that the
// library composes, the result in every reply, and malformed bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"

namespace {

using Message = std::unique_ptr<aaa_transport_msg_t>;

// A message of the bytes, in a buffer that an earlier, longer message filled.
Message message_of(const std::string &bytes, unsigned char beyond = 0xAA) {
    Message msg = std::make_unique<aaa_transport_msg_t>();
    std::memset(msg->u.bytes, beyond, sizeof msg->u.bytes);
    bytes.copy(reinterpret_cast<char *>(msg->u.bytes), bytes.size());
    msg->len = bytes.size();
    return msg;
}

std::string with_fields(std::string bytes) {
    const uint32_t fields[] = {AAA_TRANSPORT_MAGIC, static_cast<uint32_t>(bytes.size()), 1, 2, 0};
    bytes.replace(0, sizeof fields, reinterpret_cast<const char *>(fields), sizeof fields);
    return bytes;
}

avlist *make_list() {
    avlist *list = nullptr;
    EXPECT_EQ(aaa_avpair_create_list("list", &list), AAA_OK);
    EXPECT_EQ(aaa_util_avlist_status_add(AAA_STAT_PASS, 4, list), AAA_OK);
    return list;
}

// The buffers and outputs of a compose routine, and the resulting message.
struct Composition {
    union {
        aaa_req_hdr_t request;
        aaa_conn_msg_t connect;
        aaa_reply_hdr_t reply;
        aaa_sess_request_t packet;
    } record{};
    iov_t *iov = nullptr;
    uint32_t count = 0;
    char buffer[4096] = "";

    // Offset of the last element, and the message.
    std::pair<size_t, std::string> take() {
        std::string bytes;
        size_t last = 0;
        for (uint32_t i = 0; i < count; i++) {
            last = bytes.size();
            bytes.append(static_cast<const char *>(iov[i].base), iov[i].len);
        }
        std::free(iov);
        return {last, with_fields(bytes)};
    }
};

struct User {
    char name[8] = "alice", tty[8] = "vty0", address[16] = "192.0.2.10", command[8] = "show";
    aaa_usercred_t cred{};
    aaa_svc_attrs_t attrs{};

    User() {
        cred.username = name;
        cred.ttyname = tty;
        cred.remote_addr = address;
        cred.tty_mnemonic = tty;
        attrs.cmd = command;
    }
};

struct RequestCase {
    const char *what;
    uint32_t type;
    bool has_list;
    std::function<cerrno(Composition &)> compose;
};

unsigned char g_block[64];

std::vector<RequestCase> requests() {
    using C = Composition;
    static User user;
    static aaa_rad_server_t server{};
    static aaa_method_list_t methods{};
    static uint32_t session_id = 7;
    const auto authen = [](void *block) {
        return [block](C &c) {
            return aaa_util_msg_authen_compose(&c.record, AAA_AO_ASCII_LOGIN, AAA_SVC_LOGIN, "default", 0,
                                               &user.cred, nullptr, nullptr, &c.iov, &c.count, c.buffer,
                                               sizeof c.buffer, block, 0);
        };
    };
    const auto author = [](void *block) {
        return [block](C &c) {
            return aaa_util_msg_author_compose(&c.record, AAA_AO_ASCII_LOGIN, AAA_SVC_CMD, "default", 0,
                                               &user.cred, &user.attrs, &c.iov, &c.count, c.buffer,
                                               sizeof c.buffer, block, 0);
        };
    };
    const auto acct = [](void *block) {
        return [block](C &c) {
            return aaa_util_msg_acct_compose(&c.record, AAA_ACCT_START_OPT, AAA_SVC_EXEC, "default", 0,
                                             &user.cred, &user.attrs, 7, &c.iov, &c.count, c.buffer,
                                             sizeof c.buffer, block, 0);
        };
    };
    return {
        {"authentication", AAA_REQ_AUTHEN, true, authen(nullptr)},
        {"authentication, async", AAA_REQ_AUTHEN_ASYNC, true, authen(g_block)},
        {"authorization", AAA_REQ_AUTHOR, true, author(nullptr)},
        {"authorization, async", AAA_REQ_AUTHOR_ASYNC, true, author(g_block)},
        {"accounting", AAA_REQ_ACCT, true, acct(nullptr)},
        {"accounting, async", AAA_REQ_ACCT_ASYNC, true, acct(g_block)},
        {"accounting update", AAA_REQ_ACCT_UPDATE, true,
         [](C &c) {
             avlist *list = make_list();
             const cerrno rc = aaa_util_msg_acct_update_compose(&c.record, &session_id, g_block, list, &c.iov,
                                                                &c.count, c.buffer, sizeof c.buffer, 0);
             aaa_avpair_free_list(list);
             return rc;
         }},
        {"ikepost", AAA_REQ_IKEPOST, true,
         [](C &c) {
             avlist *list = make_list();
             const cerrno rc = aaa_util_msg_ikepost_compose(&c.record, list, &c.iov, &c.count, c.buffer,
                                                            sizeof c.buffer, 0);
             aaa_avpair_free_list(list);
             return rc;
         }},
        {"current user", AAA_REQ_COMPOSED_INCREMENT, true,
         [](C &c) {
             static const char *const name = "alice";
             return aaa_util_msg_curr_auth_usr_compose(&c.record, &name, &c.iov, &c.count, 1, 0);
         }},
        {"server group", AAA_REQ_CFG_SVRGRP, true,
         [](C &c) {
             return aaa_util_msg_cfg_rad_svrgrp_compose(&c.record, "corp", 1, &c.iov, &c.count, c.buffer,
                                                        sizeof c.buffer, 0);
         }},
        {"server in a group", AAA_REQ_CFG_SVR_IN_SG, true,
         [](C &c) {
             return aaa_util_msg_cfg_svr_in_sg_compose(&c.record, "corp", &server, 1, &c.iov, &c.count,
                                                       c.buffer, sizeof c.buffer, 0);
         }},
        {"authentication list", AAA_REQ_CFG_AUTHENLIST, true,
         [](C &c) {
             return aaa_util_msg_cfg_authenlist_compose(&c.record, &methods, 1, &c.iov, &c.count, c.buffer,
                                                        sizeof c.buffer, 0);
         }},
        {"authorization list", AAA_REQ_CFG_AUTHORLIST, true,
         [](C &c) {
             return aaa_util_msg_cfg_authorlist_compose(&c.record, &methods, 1, &c.iov, &c.count, c.buffer,
                                                        sizeof c.buffer, 0);
         }},
        {"ping", AAA_REQ_PING, false,
         [](C &c) { return aaa_util_msg_ping_compose(&c.record, &c.iov, &c.count, 0); }},
        {"disconnect", AAA_REQ_DISCONNECT, false,
         [](C &c) { return aaa_util_msg_disconn_compose(&c.record, &c.iov, &c.count, 0); }},
        {"connect", AAA_REQ_CONNECT, false,
         [](C &c) {
             return aaa_util_msg_conn_compose(&c.record, 1, 2, 3, 4, 5, 6, "a", "b", &c.iov, &c.count, 0);
         }},
        {"task map", AAA_REQ_TASKMAP, false,
         [](C &c) { return aaa_util_msg_taskmap_compose(&c.record, "map", &c.iov, &c.count, 0); }},
    };
}

TEST(ReadRequest, FindsTheListOfEveryMessageThatTheLibraryComposes) {
    for (const RequestCase &request : requests()) {
        SCOPED_TRACE(request.what);
        Composition composition;
        ASSERT_EQ(request.compose(composition), AAA_OK);
        const auto [last, bytes] = composition.take();
        const Message msg = message_of(bytes);
        aaa_transport_head_t head;
        ASSERT_EQ(aaa_transport_read_request(msg.get(), &head), AAA_OK);
        EXPECT_EQ(head.kind, AAA_TRANSPORT_CLASSIC);
        EXPECT_EQ(head.type, request.type);
        EXPECT_EQ(head.key, 0u);
        EXPECT_EQ(head.result, AAA_OK);
        EXPECT_EQ(head.list_at, request.has_list ? last : 0);
        if (request.has_list) {
            avlist *list = nullptr;
            EXPECT_EQ(aaa_transport_unpack(msg.get(), head.list_at, &list), AAA_OK);
            aaa_avpair_free_list(list);
        }
    }
}

TEST(ReadRequest, FindsTypeKeyAndListOfAPacket) {
    for (const RequestCase &request : requests()) {
        SCOPED_TRACE(request.what);
        aaa_sess_request_t packet{};
        ASSERT_EQ(aaa_session_fill_request(&packet, nullptr, request.type, 1, 2), AAA_OK);
        packet.hdr.key = 4711;
        aaa_transport_head_t head;
        const std::string bytes(reinterpret_cast<const char *>(&packet), sizeof packet);
        ASSERT_EQ(aaa_transport_read_request(message_of(bytes + "list").get(), &head), AAA_OK);
        EXPECT_EQ(head.kind, AAA_TRANSPORT_SESSION);
        EXPECT_EQ(head.type, request.type);
        EXPECT_EQ(head.key, 4711u);
        EXPECT_EQ(head.list_at, request.has_list ? sizeof packet : 0);
    }
}

// ---- replies ------------------------------------------------------------------------------------

struct ReplyCase {
    const char *what;
    uint32_t type;
    cerrno result;
    bool has_list;
    std::function<cerrno(Composition &, uint32_t session, aaa_sess_ctx_t *)> compose;
};

std::vector<ReplyCase> replies() {
    using C = Composition;
    const auto with_list = [](auto compose) {
        return [compose](C &c, uint32_t session, aaa_sess_ctx_t *context) {
            avlist *list = make_list();
            const cerrno rc = compose(&c.record, &c.iov, &c.count, c.buffer, uint32_t{sizeof c.buffer}, list,
                                      session, context);
            aaa_avpair_free_list(list);
            return rc;
        };
    };
    const auto bare = [](auto compose) {
        return [compose](C &c, uint32_t session, aaa_sess_ctx_t *context) {
            return compose(&c.record, &c.iov, &c.count, session, context);
        };
    };
    const auto with_status = [](auto compose) {
        return [compose](C &c, uint32_t session, aaa_sess_ctx_t *context) {
            c.record.reply.status = AAA_ERR_NO_CHANNELS;
            return compose(&c.record, &c.iov, &c.count, uint32_t{AAA_ERR_NO_CHANNELS}, session, context);
        };
    };
    return {
        {"authentication", AAA_REQ_AUTHEN, AAA_OK, true, with_list(aaa_util_reply_authen_compose)},
        {"authorization", AAA_REQ_AUTHOR, AAA_OK, true, with_list(aaa_util_reply_author_compose)},
        {"generic", AAA_REQ_FREE_USERDATA, AAA_OK, true, with_list(aaa_util_reply_compose)},
        {"callback", AAA_REQ_CALLBACK, AAA_OK, true, with_list(aaa_util_reply_cb_compose)},
        {"accounting", AAA_REQ_ACCT, AAA_OK, false, bare(aaa_util_reply_acct_compose)},
        {"accounting update", AAA_REQ_ACCT_UPDATE, AAA_OK, false, bare(aaa_util_reply_acct_compose)},
        {"ping", AAA_REQ_PING, AAA_OK, false, bare(aaa_util_reply_ping_compose)},
        {"ikepost", AAA_REQ_IKEPOST, AAA_OK, false, bare(aaa_util_reply_ikepost_compose)},
        {"disconnect", AAA_REQ_DISCONNECT, AAA_OK, false, bare(aaa_util_reply_disconn_compose)},
        {"configuration", AAA_REQ_CFG_SVRGRP, AAA_ERR_NO_CHANNELS, false,
         with_status(aaa_util_reply_cfg_compose)},
        {"current user", AAA_REQ_COMPOSED_INCREMENT, AAA_ERR_NO_CHANNELS, false,
         with_status(aaa_util_reply_curr_auth_usr_compose)},
        {"async authentication", AAA_REQ_AUTHEN_ASYNC, AAA_ERR_NO_CHANNELS, false,
         with_status(aaa_util_reply_authen_async_compose)},
        {"async authorization", AAA_REQ_AUTHOR_ASYNC, AAA_ERR_NO_CHANNELS, false,
         with_status(aaa_util_reply_author_async_compose)},
        {"connect", AAA_REQ_CONNECT, AAA_ERR_NO_CHANNELS, false,
         [](C &c, uint32_t session, aaa_sess_ctx_t *context) {
             return aaa_util_reply_conn_compose(&c.record, AAA_ERR_NO_CHANNELS, &c.iov, &c.count, session,
                                                context);
         }},
        {"task map", AAA_REQ_TASKMAP, AAA_OK, false,
         [](C &c, uint32_t session, aaa_sess_ctx_t *context) {
             static char data[] = "a map";
             return aaa_util_reply_taskmap_compose(&c.record, data, 5, &c.iov, &c.count, session, context);
         }},
    };
}

TEST(ReadReply, SaysWhatEveryReplyOfTheLibrarySays) {
    for (const ReplyCase &reply : replies()) {
        SCOPED_TRACE(reply.what);
        Composition composition;
        ASSERT_EQ(reply.compose(composition, 0, nullptr), AAA_OK);
        const auto [last, bytes] = composition.take();
        aaa_transport_head_t head;
        ASSERT_EQ(aaa_transport_read_reply(message_of(bytes).get(), reply.type, &head), AAA_OK);
        EXPECT_EQ(head.kind, AAA_TRANSPORT_CLASSIC);
        EXPECT_EQ(head.type, reply.type);
        EXPECT_EQ(head.result, reply.result);
        EXPECT_EQ(head.list_at, reply.has_list ? last : 0);
    }
}

// A server that cannot process a request of any type may answer with an error only.
TEST(ReadReply, AnErrorAloneAnswersEverything) {
    for (const ReplyCase &reply : replies()) {
        SCOPED_TRACE(reply.what);
        if (reply.type == AAA_REQ_TASKMAP || reply.type == AAA_REQ_AUTHOR_ASYNC) {
            continue;  // the first reply has no result, the second has it in host order
        }
        Composition composition;
        composition.record.reply.status = AAA_ERR_INVALID_MSG_TYPE;
        ASSERT_EQ(aaa_util_reply_compose(&composition.record, &composition.iov, &composition.count, nullptr,
                                         0, nullptr, 0, nullptr),
                  AAA_OK);
        aaa_transport_head_t head;
        const Message msg = message_of(composition.take().second);
        ASSERT_EQ(aaa_transport_read_reply(msg.get(), reply.type, &head), AAA_OK);
        EXPECT_EQ(head.result, AAA_ERR_INVALID_MSG_TYPE);
        EXPECT_EQ(head.list_at, 0u);
    }
}

TEST(ReadReply, FindsTheErrorOfEveryResponsePacket) {
    for (uint32_t type = 0; type <= AAA_REQ_DESC_DECREMENT; type++) {
        SCOPED_TRACE(type);
        aaa_sess_ctx_t context = {type, 815};
        void *packet = nullptr;
        ASSERT_EQ(aaa_session_fill_response(&packet, nullptr, &context, AAA_ERR_NO_CHANNELS, 1, 2, 3, 4, 5),
                  AAA_OK);
        const std::string bytes(static_cast<const char *>(packet), aaa_transport_response_size(type));
        std::free(packet);
        aaa_transport_head_t head;
        ASSERT_EQ(aaa_transport_read_reply(message_of(bytes).get(), type, &head), AAA_OK);
        EXPECT_EQ(head.kind, AAA_TRANSPORT_SESSION);
        EXPECT_EQ(head.key, 815u);
        EXPECT_EQ(head.result, AAA_ERR_NO_CHANNELS);
        EXPECT_EQ(head.list_at, 0u);
        ASSERT_EQ(aaa_transport_read_reply(message_of(bytes + "list").get(), type, &head), AAA_OK);
        EXPECT_EQ(head.list_at, bytes.size());
        const Message cut = message_of(bytes.substr(0, bytes.size() - 1));
        EXPECT_EQ(aaa_transport_read_reply(cut.get(), type, &head), AAA_ERR_INVALID_MSG_SIZE);
        EXPECT_EQ(aaa_transport_read_reply(message_of(bytes).get(), type + 1, &head),
                  AAA_ERR_UNEXPECTED_REPLY);
    }
}

// ---- malformed messages ----------------------------------------------------------------------------

struct Reading {
    cerrno rc;
    aaa_transport_head_t head;

    bool operator==(const Reading &other) const {
        return rc == other.rc && head.kind == other.head.kind && head.type == other.head.type &&
               head.key == other.head.key && head.result == other.head.result &&
               head.list_at == other.head.list_at;
    }
};

// Reads the bytes as a request and as a reply: bytes after the message have no effect, and no list
// begins after it.
void expect_bounded(const std::string &bytes, uint32_t type) {
    Reading request[2], reply[2];
    size_t i = 0;
    for (const unsigned char beyond : {uint8_t{0x00}, uint8_t{0xff}}) {
        const Message msg = message_of(bytes, beyond);
        request[i].rc = aaa_transport_read_request(msg.get(), &request[i].head);
        reply[i].rc = aaa_transport_read_reply(msg.get(), type, &reply[i].head);
        for (const Reading &reading : {request[i], reply[i]}) {
            EXPECT_LE(reading.head.list_at, bytes.size());
            EXPECT_EQ(reading.head.kind, aaa_transport_kind_of(msg.get()));
            EXPECT_TRUE(reading.head.kind != AAA_TRANSPORT_GARBAGE || reading.rc == AAA_ERR_INVALID_MSG_TYPE);
            avlist *list = nullptr;
            if (aaa_transport_unpack(msg.get(), reading.head.list_at, &list) == AAA_OK) {
                EXPECT_EQ(aaa_avpair_list_is_sane(list), 1);
            } else {
                EXPECT_EQ(list, nullptr);
            }
            aaa_avpair_free_list(list);
        }
        i++;
    }
    EXPECT_EQ(request[0], request[1]) << bytes.size();
    EXPECT_EQ(reply[0], reply[1]) << bytes.size();
}

std::vector<std::string> well_formed() {
    std::vector<std::string> all;
    for (const RequestCase &request : requests()) {
        Composition composition;
        EXPECT_EQ(request.compose(composition), AAA_OK);
        all.push_back(composition.take().second);
        aaa_sess_request_t packet{};
        EXPECT_EQ(aaa_session_fill_request(&packet, nullptr, request.type, 1, 2), AAA_OK);
        all.emplace_back(reinterpret_cast<const char *>(&packet), sizeof packet);
    }
    for (const ReplyCase &reply : replies()) {
        Composition composition;
        EXPECT_EQ(reply.compose(composition, 0, nullptr), AAA_OK);
        all.push_back(composition.take().second);
    }
    return all;
}

TEST(Malformed, EveryTruncationIsRead) {
    for (const std::string &whole : well_formed()) {
        for (size_t length = 0; length <= whole.size(); length++) {
            const std::string cut = whole.substr(0, length);
            expect_bounded(cut, AAA_REQ_AUTHEN);
            if (length >= AAA_TRANSPORT_FIELDS && whole.compare(0, 4, "AAAM") == 0) {
                expect_bounded(with_fields(cut), AAA_REQ_AUTHEN);
            }
        }
    }
}

TEST(Malformed, ATruncatedMessageIsNotTakenForAWholeOne) {
    Composition composition;
    ASSERT_EQ(requests()[0].compose(composition), AAA_OK);
    const std::string whole = composition.take().second;
    aaa_transport_head_t head;
    for (size_t length = 0; length < whole.size(); length++) {
        const std::string cut = whole.substr(0, length);
        EXPECT_EQ(aaa_transport_kind_of(message_of(cut).get()), AAA_TRANSPORT_GARBAGE) << length;
        if (length < AAA_TRANSPORT_FIELDS) {
            continue;
        }
        const Message msg = message_of(with_fields(cut));
        const cerrno rc = aaa_transport_read_request(msg.get(), &head);
        EXPECT_EQ(rc, length < sizeof(aaa_req_hdr_t) ? AAA_ERR_INVALID_MSG_SIZE : AAA_OK) << length;
        avlist *list = nullptr;
        EXPECT_NE(aaa_transport_unpack(msg.get(), sizeof(aaa_req_hdr_t), &list), AAA_OK) << length;
    }
}

TEST(Malformed, EveryWordMayLie) {
    for (const std::string &whole : well_formed()) {
        for (size_t at = 0; at + 4 <= whole.size(); at += 4) {
            for (const char with : {'\x00', '\x01', '\x7f', '\xff'}) {
                std::string lie = whole;
                lie.replace(at, 4, 4, with);
                expect_bounded(lie, AAA_REQ_CALLBACK);
            }
        }
    }
}

TEST(Malformed, RandomBytesOfEveryTypeAndSize) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 3000; round++) {
        std::string bytes(random() % 600, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        const auto type = static_cast<uint32_t>(random() % 30);
        if (round % 3 == 0 && bytes.size() >= sizeof(aaa_req_hdr_t)) {
            bytes.replace(offsetof(aaa_req_hdr_t, type), 4, reinterpret_cast<const char *>(&type), 4);
            bytes = with_fields(bytes);
        } else if (round % 3 == 1 && bytes.size() >= sizeof(aaa_sess_hdr_t)) {
            aaa_sess_request_t packet{};
            ASSERT_EQ(aaa_session_fill_request(&packet, nullptr, type, 1, 2), AAA_OK);
            bytes.replace(0, sizeof packet.hdr, reinterpret_cast<const char *>(&packet), sizeof packet.hdr);
        }
        expect_bounded(bytes, type);
    }
}

TEST(Malformed, ALengthBeyondTheMessageItselfIsRefused) {
    const Message msg = message_of("");
    msg->len = sizeof msg->u.bytes + 1;
    aaa_transport_head_t head;
    avlist *list = nullptr;
    EXPECT_EQ(aaa_transport_kind_of(msg.get()), AAA_TRANSPORT_GARBAGE);
    EXPECT_EQ(aaa_transport_read_request(msg.get(), &head), AAA_ERR_INVALID_MSG_TYPE);
    EXPECT_EQ(aaa_transport_unpack(msg.get(), 0, &list), AAA_ERR_INVALID_MSG_SIZE);
}

TEST(Malformed, NullArgumentsAreRefused) {
    const Message msg = message_of("");
    aaa_transport_head_t head;
    avlist *list = nullptr;
    EXPECT_EQ(aaa_transport_kind_of(nullptr), AAA_TRANSPORT_GARBAGE);
    EXPECT_EQ(aaa_transport_patience_of(nullptr), 0u);
    // Only the fields of a classic message are read.
    EXPECT_EQ(aaa_transport_patience_of(message_of(std::string(20, '\xff')).get()), 0u);
    EXPECT_EQ(aaa_transport_read_request(nullptr, &head), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_read_request(msg.get(), nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_read_reply(nullptr, 0, &head), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_read_reply(msg.get(), 0, nullptr), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_unpack(nullptr, 0, &list), AAA_ERR_INVALID_ARG);
    EXPECT_EQ(aaa_transport_unpack(msg.get(), 0, nullptr), AAA_ERR_INVALID_ARG);
}

}  // namespace
