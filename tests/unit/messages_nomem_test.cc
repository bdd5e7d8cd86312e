// SPDX-License-Identifier: Apache-2.0
//
// The record of every classic message when there is no memory for the io-vector,
// which is its last allocation. Numbers are in network
// order by then, except those of the connect and of the generic reply, which
// are converted when nothing can fail any more.

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <vector>

#include "aaa/messages.h"
#include "support/fail_alloc.hpp"
#include "support/requests.hpp"

namespace {

using namespace messages;

constexpr uint32_t kFirst = 0x01020304;   // the caller's, at offset 20 of a reply
constexpr uint32_t kSecond = 0x05060708;  // at offset 24 of a reply
constexpr uint32_t kParam = 0x090A0B0C;   // at offset 32 of a request
constexpr uint32_t kStatus = 0x0D0E0F10;

char g_name[] = "name";
uint8_t g_block[64];
uint32_t g_session_id = 4711;
const aaa_rad_server_t g_server = [] {
    aaa_rad_server_t server{};
    server.secret = g_name;
    return server;
}();
const aaa_method_list_t g_method_list = {};

// Everything that a message is made of; each call has its own.
struct Call : Place {
    Call() { record.host(20, kFirst).host(24, kSecond).host(32, kParam); }

    User user;
    List list = make_list("list", {text(257, "alice")});
    aaa_svc_attrs_t svc_attrs{};
};

struct Message {
    const char *name;
    std::function<cerrno(Call &, const Pointers &)> compose;
    std::function<void(Record &)> left;
};

void PrintTo(const Message &message, std::ostream *out) {
    *out << message.name;
}

// ---- The record afterwards ----------------------------------------------------------

std::function<void(Record &)> type_only(uint32_t type) {
    return [type](Record &r) { r.host(20, type); };
}
std::function<void(Record &)> type_and_param(uint32_t type, uint32_t param) {
    return [type, param](Record &r) { r.host(20, type).net(32, param); };
}
void nothing(Record &) {}
void first_converted(Record &r) {
    r.net(20, kFirst);
}
void status_converted(Record &r) {
    r.net(20, kStatus);
}

// ---- The shapes of the routines ---------------------------------------------

using Compose = decltype(Message::compose);

Compose bare(cerrno (*compose)(void *, iov_t **, uint32_t *, uint32_t)) {
    return [compose](Call &, const Pointers &p) { return compose(p.record, p.iov, p.count, 0); };
}
Compose with_text(cerrno (*compose)(void *, const char *, iov_t **, uint32_t *, uint32_t)) {
    return [compose](Call &, const Pointers &p) { return compose(p.record, g_name, p.iov, p.count, 0); };
}
Compose with_methods(cerrno (*compose)(void *, const aaa_method_list_t *, uint32_t, iov_t **, uint32_t *,
                                       char *, uint32_t, uint32_t)) {
    return [compose](Call &, const Pointers &p) {
        return compose(p.record, &g_method_list, 1, p.iov, p.count, p.buffer, p.size, 0);
    };
}
Compose reply(cerrno (*compose)(void *, iov_t **, uint32_t *, uint32_t, aaa_sess_ctx_t *)) {
    return [compose](Call &, const Pointers &p) { return compose(p.record, p.iov, p.count, 0, nullptr); };
}
Compose reply(cerrno (*compose)(void *, iov_t **, uint32_t *, uint32_t, uint32_t, aaa_sess_ctx_t *)) {
    return [compose](Call &, const Pointers &p) {
        return compose(p.record, p.iov, p.count, kStatus, 0, nullptr);
    };
}
Compose reply(cerrno (*compose)(void *, iov_t **, uint32_t *, char *, uint32_t, avlist *, uint32_t,
                                aaa_sess_ctx_t *)) {
    return [compose](Call &c, const Pointers &p) {
        return compose(p.record, p.iov, p.count, p.buffer, p.size, c.list.get(), 0, nullptr);
    };
}

// ---- The messages ------------------------------------------------------------

const std::vector<Message> kEnvelopes = {
    {"Connect",
     [](Call &, const Pointers &p) {
         return aaa_util_msg_conn_compose(p.record, 1, 2, 3, 4, 5, 6, "one", "two", p.iov, p.count, 0);
     },
     [](Record &r) {
         r.host(20, 0).host(32, 2).host(36, 0).host(64, 3);
         for (uint32_t i = 0; i < 6; ++i) {
             r.host(40 + 4 * i, 1 + i);
         }
     }},
    {"Disconnect", bare(aaa_util_msg_disconn_compose), type_only(1)},
    {"Callback", bare(aaa_util_msg_cb_compose), type_and_param(8, kParam)},
    {"Ping", bare(aaa_util_msg_ping_compose), type_only(9)},
    {"ServerConnect",
     [](Call &, const Pointers &p) {
         return aaa_util_svrmsg_conn_compose(p.record, kStatus, p.iov, p.count, g_block, 0);
     },
     type_and_param(0, kStatus)},
    // Its one number stays in host order.
    {"ServerDisconnect",
     [](Call &, const Pointers &p) {
         return aaa_util_svrmsg_disconn_compose(p.record, p.iov, p.count, g_block, 0);
     },
     [](Record &r) { r.host(20, 1).host(32, 3); }},
};

const std::vector<Message> kRequests = {
    {"Authen",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_authen_compose(p.record, 0x1201, 24, "list", 0, &c.user.cred, nullptr, nullptr,
                                            p.iov, p.count, p.buffer, p.size, nullptr, 0);
     },
     type_and_param(3, 0x1200)},
    {"AuthenAsync",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_authen_compose(p.record, 0x1201, 24, "list", 0, &c.user.cred, nullptr, nullptr,
                                            p.iov, p.count, p.buffer, p.size, g_block, 0);
     },
     type_and_param(4, 0x1200)},
    {"Author",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_author_compose(p.record, 5, 24, "list", 0, &c.user.cred, &c.svc_attrs, p.iov,
                                            p.count, p.buffer, p.size, nullptr, 0);
     },
     type_and_param(5, 5)},
    {"Acct",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_acct_compose(p.record, 128, 24, "list", 0, &c.user.cred, &c.svc_attrs,
                                          g_session_id, p.iov, p.count, p.buffer, p.size, nullptr, 0);
     },
     type_and_param(7, 128)},
    {"AcctUpdate",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_acct_update_compose(p.record, &g_session_id, g_block, c.list.get(), p.iov,
                                                 p.count, p.buffer, p.size, 0);
     },
     type_and_param(15, 129)},
    {"CurrentUser",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_curr_auth_usr_compose(p.record, &c.user.cred.username, p.iov, p.count, 1, 0);
     },
     type_only(24)},
    {"Ikepost",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_ikepost_compose(p.record, c.list.get(), p.iov, p.count, p.buffer, p.size, 0);
     },
     type_only(10)},
    {"Taskmap", with_text(aaa_util_msg_taskmap_compose), type_only(11)},
    {"FreeUserdata",
     [](Call &c, const Pointers &p) {
         return aaa_util_msg_free_userdata_compose(p.record, &c.user.cred, p.iov, p.count, p.buffer, p.size,
                                                   0);
     },
     type_and_param(12, kParam)},
    {"Usergroup", with_text(aaa_util_msg_usergroup_compose), type_only(16)},
};

const std::vector<Message> kReplies = {
    {"GenericReply", reply(aaa_util_reply_compose), nothing},
    {"GenericReplyWithoutList",
     [](Call &, const Pointers &p) {
         return aaa_util_reply_compose(p.record, p.iov, p.count, nullptr, 0, nullptr, 0, nullptr);
     },
     nothing},
    {"AuthenReply", reply(aaa_util_reply_authen_compose), first_converted},
    {"AuthorReply", reply(aaa_util_reply_author_compose), first_converted},
    {"AuthenAsyncReply", reply(aaa_util_reply_authen_async_compose), status_converted},
    // Its one number stays in host order.
    {"AuthorAsyncReply", reply(aaa_util_reply_author_async_compose), [](Record &r) { r.host(20, kStatus); }},
    {"AcctReply", reply(aaa_util_reply_acct_compose), nothing},
    {"PingReply", reply(aaa_util_reply_ping_compose), nothing},
    {"IkepostReply", reply(aaa_util_reply_ikepost_compose), nothing},
    {"DisconnectReply", reply(aaa_util_reply_disconn_compose), nothing},
    {"CallbackReply", reply(aaa_util_reply_cb_compose),
     [](Record &r) { r.net(20, kFirst).net(24, kSecond); }},
    {"ConfigReply", reply(aaa_util_reply_cfg_compose), [](Record &r) { r.net(20, kFirst).net(24, kStatus); }},
    {"CurrentUserReply", reply(aaa_util_reply_curr_auth_usr_compose), status_converted},
    {"ConnectReply",
     [](Call &, const Pointers &p) {
         return aaa_util_reply_conn_compose(p.record, kStatus, p.iov, p.count, 0, nullptr);
     },
     [](Record &r) { r.net(20, kStatus).net(24, 2); }},
    {"TaskmapReply",
     [](Call &, const Pointers &p) {
         return aaa_util_reply_taskmap_compose(p.record, g_block, sizeof g_block, p.iov, p.count, 0, nullptr);
     },
     nothing},
    {"UsergroupReply",
     [](Call &, const Pointers &p) {
         return aaa_util_reply_usergroup_compose(p.record, g_name, p.iov, p.count, 0, nullptr);
     },
     nothing},
};

const std::vector<Message> kConfigurations = {
    {"RadiusServer",
     [](Call &, const Pointers &p) {
         return aaa_util_msg_cfg_radsvr_compose(p.record, &g_server, p.iov, p.count, p.buffer, p.size, 0);
     },
     type_and_param(17, kParam)},
    {"ServerGroup",
     [](Call &, const Pointers &p) {
         return aaa_util_msg_cfg_rad_svrgrp_compose(p.record, "grp", 1, p.iov, p.count, p.buffer, p.size, 0);
     },
     type_and_param(18, kParam)},
    {"ServerInGroup",
     [](Call &, const Pointers &p) {
         return aaa_util_msg_cfg_svr_in_sg_compose(p.record, "grp", &g_server, 1, p.iov, p.count, p.buffer,
                                                   p.size, 0);
     },
     type_and_param(19, kParam)},
    {"VrfInGroup",
     [](Call &, const Pointers &p) {
         return aaa_util_msg_cfg_vrf_in_sg_compose(p.record, "grp", "vrf", 1, p.iov, p.count, p.buffer,
                                                   p.size, 0);
     },
     type_and_param(20, kParam)},
    {"InterfaceInGroup",
     [](Call &, const Pointers &p) {
         return aaa_util_msg_cfg_src_intf_in_sg_compose(p.record, "if", "vrf", 1, "grp", p.iov, p.count,
                                                        p.buffer, p.size, 0);
     },
     type_and_param(21, kParam)},
    {"AuthenList", with_methods(aaa_util_msg_cfg_authenlist_compose), type_and_param(22, kParam)},
    {"AuthorList", with_methods(aaa_util_msg_cfg_authorlist_compose), type_and_param(23, kParam)},
};

class MessageWithoutMemory : public testing::TestWithParam<Message> {
  protected:
    // Allocations of a call in which none fails: the last one is the io-vector's.
    static unsigned allocations() {
        Call call;
        const Pointers pointers(call);
        fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, 1000);
        EXPECT_EQ(fail.run([&] { return GetParam().compose(call, pointers); }), AAA_OK);
        return fail.counted();
    }
};

TEST_P(MessageWithoutMemory, LeavesItsNumbersConvertedAndItsOutputsAlone) {
    if (!fake::FailAlloc::available()) {
        GTEST_SKIP() << "this build's sanitizer does not let a program replace malloc";
    }
    const unsigned last = allocations();
    Call call;
    Record expected = call.record;
    GetParam().left(expected);
    const Pointers pointers(call);
    fake::FailAlloc fail(fake::FailAlloc::Unarmed{}, last);
    EXPECT_EQ(fail.run([&] { return GetParam().compose(call, pointers); }), AAA_ERR_NOMEM);
    EXPECT_TRUE(fail.fired());
    EXPECT_TRUE(same_bytes(call.record, expected));
    EXPECT_TRUE(call.iov.untouched());
}

std::string name_of(const testing::TestParamInfo<Message> &test) {
    return test.param.name;
}
INSTANTIATE_TEST_SUITE_P(Envelope, MessageWithoutMemory, testing::ValuesIn(kEnvelopes), name_of);
INSTANTIATE_TEST_SUITE_P(Request, MessageWithoutMemory, testing::ValuesIn(kRequests), name_of);
INSTANTIATE_TEST_SUITE_P(Reply, MessageWithoutMemory, testing::ValuesIn(kReplies), name_of);
INSTANTIATE_TEST_SUITE_P(Configuration, MessageWithoutMemory, testing::ValuesIn(kConfigurations), name_of);

}  // namespace
