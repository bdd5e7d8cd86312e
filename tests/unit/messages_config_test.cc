// SPDX-License-Identifier: Apache-2.0
//
// The configuration messages: attributes in order, and the two modes of each.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "aaa/messages.h"
#include "support/fail_alloc.hpp"
#include "support/messages.hpp"

namespace {

using namespace messages;

constexpr uint32_t kParam = 0x01020304;

char secret[] = "s3cret";

aaa_rad_server_t make_server() {
    aaa_rad_server_t server;
    // The padding of the caller's record must not travel.
    std::memset(&server, 0xEE, sizeof server);
    for (std::size_t i = 0; i < sizeof server.address; ++i) {
        reinterpret_cast<uint8_t *>(&server.address)[i] = static_cast<uint8_t>(i + 1);
    }
    server.auth_port = 1812;
    server.acct_port = 1813;
    server.secret = secret;
    server.timeout = 5;
    server.retransmit = 0x00030002;
    server.action = 9;
    return server;
}

aaa_method_list_t make_methods() {
    aaa_method_list_t list{};
    std::strcpy(list.name, "vty");
    list.method[0] = 0x0A03;
    std::strcpy(list.sg_name[0], "radius-group");
    return list;
}

const aaa_rad_server_t kServer = make_server();
const aaa_method_list_t kMethods = make_methods();

std::string address_bytes() {
    return {reinterpret_cast<const char *>(&kServer.address), 20};
}

std::string server_image() {
    return address_bytes() + raw<uint32_t>(1812) + raw<uint32_t>(1813) + std::string(4, '\0') +
           raw(&secret[0]) + raw<uint32_t>(5) + raw<uint16_t>(0x0002);
}

Pairs method_list_pairs(uint8_t action) {
    return {text(1083, "vty"),          byte(1084, 3),  byte(1084, 0),  byte(1084, 0),  byte(1084, 0),
            text(1080, "radius-group"), text(1080, ""), text(1080, ""), text(1080, ""), byte(1079, action)};
}

struct Target {
    void *msg;
    iov_t **iov;
    uint32_t *count;
    char *buffer;
    uint32_t size;
};

struct Routine {
    const char *name;
    uint32_t type;
    const char *log;
    const char *list_name;
    const char *fill_failed;
    std::function<cerrno(const Target &, uint32_t session)> compose;
    Pairs pairs;
};

void PrintTo(const Routine &routine, std::ostream *out) {
    *out << routine.name;
}

const std::vector<Routine> &routines() {
    static const std::vector<Routine> all = {
        {"RadiusServer",
         17,
         "Composing a request for configuring  global radius server",
         "Rad Server Config Request",
         "Composing config message: Failed in data fill",
         [](const Target &t, uint32_t session) {
             return aaa_util_msg_cfg_radsvr_compose(t.msg, &kServer, t.iov, t.count, t.buffer, t.size,
                                                    session);
         },
         {bytes(1073, server_image()), u32(1074, 1812), u32(1075, 1813), text(1078, "s3cret"), u32(1077, 5),
          u32(1076, 0x00030002), byte(1079, 9)}},
        {"ServerGroup",
         18,
         "Composing request message for configuring server grp",
         "SG Config Request",
         "Composing config message SRVGRP: Failed in data fill",
         [](const Target &t, uint32_t session) {
             return aaa_util_msg_cfg_rad_svrgrp_compose(t.msg, "grp", 0x101, t.iov, t.count, t.buffer, t.size,
                                                        session);
         },
         {text(1080, "grp"), byte(1079, 1)}},
        {"ServerInGroup",
         19,
         "Composing request message for configuring server in sg",
         "Server in SG Config Request",
         "Composing config message: Failed in data fill",
         [](const Target &t, uint32_t session) {
             return aaa_util_msg_cfg_svr_in_sg_compose(t.msg, "group", &kServer, 2, t.iov, t.count, t.buffer,
                                                       t.size, session);
         },
         {text(1080, "group"), byte(1079, 2), bytes(1073, address_bytes()), u32(1074, 1812),
          u32(1075, 1813)}},
        {"VrfInGroup",
         20,
         "Composing request message for configuring vrf in sg",
         "Vrf in SG Config Request",
         "Composing config vrfsgmessage: Failed in data fill",
         [](const Target &t, uint32_t session) {
             return aaa_util_msg_cfg_vrf_in_sg_compose(t.msg, "group", "mgmt", 1, t.iov, t.count, t.buffer,
                                                       t.size, session);
         },
         {text(1080, "group"), byte(1079, 1), text(1081, "mgmt")}},
        {"InterfaceInGroup",
         21,
         "Composing an configuration message",
         "srcintf Config Request",
         "Composing config intrsgmessage: Failed in data fill",
         [](const Target &t, uint32_t session) {
             return aaa_util_msg_cfg_src_intf_in_sg_compose(t.msg, "Loopback0", "mgmt", 2, "group", t.iov,
                                                            t.count, t.buffer, t.size, session);
         },
         {text(1082, "Loopback0"), byte(1079, 2), text(1081, "mgmt"), text(1080, "group")}},
        {"AuthenList", 22, "Composing an configuration message", "Config Request",
         "Composing config authlistmessage: Failed in data fill",
         [](const Target &t, uint32_t session) {
             return aaa_util_msg_cfg_authenlist_compose(t.msg, &kMethods, 1, t.iov, t.count, t.buffer, t.size,
                                                        session);
         },
         method_list_pairs(1)},
        {"AuthorList", 23, "Composing an configuration message", "Config Request",
         "Composing config author list message: Failed in data fill",
         [](const Target &t, uint32_t session) {
             return aaa_util_msg_cfg_authorlist_compose(t.msg, &kMethods, 0xF2, t.iov, t.count, t.buffer,
                                                        t.size, session);
         },
         method_list_pairs(0xF2)},
    };
    return all;
}

// A call with everything in place, the buffer as large as asked for.
struct Call {
    explicit Call(std::size_t capacity = 1024) : buffer(capacity, '\x5A') { record.host(32, kParam); }
    Target target() {
        return {record.data(), iov.out(), iov.count_out(), buffer.data(),
                static_cast<uint32_t>(buffer.size())};
    }
    Record record;
    Iov iov;
    std::vector<char> buffer;
};

uint32_t packed_size(const Pairs &pairs) {
    std::size_t size = 56;
    for (const Pair &pair : pairs) {
        size += 16 + (pair.value.size() + 3) / 4 * 4;
    }
    return static_cast<uint32_t>(size);
}

class MessagesConfig : public testing::TestWithParam<Routine> {
  protected:
    void SetUp() override { fake::libc::set_pid(kPid); }
    const Routine &routine() const { return GetParam(); }
};

TEST_P(MessagesConfig, IsAHeaderAndAPackedList) {
    Call call;
    Record expected = call.record;
    expected.host(20, routine().type).net(32, kParam);
    ASSERT_EQ(routine().compose(call.target(), 0), AAA_OK);
    EXPECT_TRUE(same_bytes(call.record, expected));
    ASSERT_EQ(call.iov.count(), 2u);
    EXPECT_TRUE(is_element(call.iov[0], call.record.data(), 40));
    EXPECT_TRUE(is_element(call.iov[1], call.buffer.data(), packed_size(routine().pairs)));
    const Unpacked list = unpack(call.iov[1]);
    EXPECT_EQ(list.total, packed_size(routine().pairs));
    EXPECT_EQ(list.name, routine().list_name);
    EXPECT_EQ(list.pairs, routine().pairs);
}

TEST_P(MessagesConfig, LogsItsTextAtLevelOne) {
    Call call;
    ASSERT_EQ(routine().compose(call.target(), 0), AAA_OK);
    EXPECT_EQ(fake::traces(), (Traces{{1, routine().log}}));
}

TEST_P(MessagesConfig, ConvertsTheCallersWordEachTime) {
    Call call;
    ASSERT_EQ(routine().compose(call.target(), 0), AAA_OK);
    call.iov.release();
    ASSERT_EQ(routine().compose(call.target(), 0), AAA_OK);
    EXPECT_EQ(call.record.u32(32), kParam);
}

TEST_P(MessagesConfig, FitsABufferOfExactlyItsSizeAndNoSmallerOne) {
    const uint32_t size = packed_size(routine().pairs);
    Call exact(size);
    EXPECT_EQ(routine().compose(exact.target(), 0), AAA_OK);

    Call small(size - 1);
    Record expected = small.record;
    expected.host(20, routine().type);
    EXPECT_EQ(routine().compose(small.target(), 0), AAA_ERR_NOMEM);
    EXPECT_TRUE(same_bytes(small.record, expected));
    EXPECT_TRUE(small.iov.untouched());
}

TEST_P(MessagesConfig, RefusesMissingArgumentsAndTouchesNothing) {
    for (unsigned missing = 1; missing < 32; ++missing) {
        SCOPED_TRACE(missing);
        Call call;
        const Record before = call.record;
        Target target = call.target();
        target.msg = (missing & 1) != 0 ? nullptr : target.msg;
        target.iov = (missing & 2) != 0 ? nullptr : target.iov;
        target.count = (missing & 4) != 0 ? nullptr : target.count;
        target.buffer = (missing & 8) != 0 ? nullptr : target.buffer;
        target.size = (missing & 16) != 0 ? 0 : target.size;
        EXPECT_EQ(routine().compose(target, 0), AAA_ERR_INVALID_ARG);
        EXPECT_TRUE(same_bytes(call.record, before));
        EXPECT_TRUE(call.iov.untouched());
        EXPECT_EQ(call.buffer, std::vector<char>(1024, '\x5A'));
    }
}

TEST_P(MessagesConfig, SessionPacketCarriesTypeAndList) {
    Call call;
    const Record before = call.record;
    ASSERT_EQ(routine().compose(call.target(), 1), AAA_OK);
    const List list(call.record.list());
    ASSERT_NE(list, nullptr);
    Record expected = request_packet(before, routine().type, list.get());
    expected.host(72, 0);
    EXPECT_TRUE(same_bytes(call.record, expected));
    EXPECT_STREQ(list->av_name, routine().list_name);
    EXPECT_EQ(pairs_of(list.get()), routine().pairs);
    EXPECT_TRUE(call.iov.untouched());
    EXPECT_EQ(call.buffer, std::vector<char>(1024, '\x5A'));
}

TEST_P(MessagesConfig, SessionModeDoesNotNeedTheOutPointers) {
    Call call;
    Target target = call.target();
    target.iov = nullptr;
    target.count = nullptr;
    ASSERT_EQ(routine().compose(target, 1), AAA_OK);
    const List list(call.record.list());
    EXPECT_EQ(call.record.u32(8), routine().type);
}

TEST_P(MessagesConfig, SessionModeWithoutABufferGoesOutAsAConnectWithItsListDeliberately) {
    for (const bool no_buffer : {true, false}) {
        Call call;
        const Record before = call.record;
        Target target = call.target();
        if (no_buffer) {
            target.buffer = nullptr;
        } else {
            target.size = 0;
        }
        ASSERT_EQ(routine().compose(target, 1), AAA_OK);
        const List list(call.record.list());
        Record expected = request_packet(before, 0, list.get());
        expected.zero(72, 36);
        EXPECT_TRUE(same_bytes(call.record, expected));
        EXPECT_EQ(pairs_of(list.get()), routine().pairs);
    }
}

TEST_P(MessagesConfig, SessionModeWithoutAPacketLogsItsOwnFailure) {
    Call call;
    Target target = call.target();
    target.msg = nullptr;
    EXPECT_EQ(routine().compose(target, 1), AAA_ERR_INVALID_MSG_TYPE);
    EXPECT_EQ(fake::traces(),
              (Traces{{1, routine().log}, {5, "Failed Invalid input: msg"}, {2, routine().fill_failed}}));
    EXPECT_TRUE(call.iov.untouched());
}

TEST_P(MessagesConfig, ExhaustedMemoryLeavesTheOutputsAlone) {
    fake::sweep_allocations([this](fake::FailAlloc &fail) {
        Call call;
        const Target target = call.target();
        const cerrno rc = fail.run([&] { return routine().compose(target, 0); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(call.iov.untouched(), fail.fired());
    });
}

TEST_P(MessagesConfig, ExhaustedMemoryInSessionModeLeavesThePacketAlone) {
    fake::sweep_allocations([this](fake::FailAlloc &fail) {
        Call call;
        const Record before = call.record;
        const Target target = call.target();
        const cerrno rc = fail.run([&] { return routine().compose(target, 1); });
        if (fail.fired()) {
            EXPECT_EQ(rc, AAA_ERR_NOMEM);
            EXPECT_TRUE(same_bytes(call.record, before));
        } else {
            EXPECT_EQ(rc, AAA_OK);
            const List list(call.record.list());
        }
    });
}

INSTANTIATE_TEST_SUITE_P(All, MessagesConfig, testing::ValuesIn(routines()),
                         [](const auto &test) { return test.param.name; });

// ---- Inputs of single routines ---------------------------------------------

class ConfigInputs : public testing::Test {
  protected:
    template <typename Compose>
    Pairs composed(Compose compose) {
        Call call(4096);
        EXPECT_EQ(compose(call.target()), AAA_OK);
        return unpack(call.iov[1]).pairs;
    }

    // Both modes refuse, nothing is stored, and a packet stays as it was.
    template <typename Compose>
    void expect_refused(Compose compose) {
        for (const uint32_t session : {0u, 1u}) {
            SCOPED_TRACE(session);
            Call call;
            Record before = call.record;
            EXPECT_EQ(compose(call.target(), session), AAA_ERR_INVALID_ARG);
            EXPECT_TRUE(call.iov.untouched());
            EXPECT_EQ(call.record.u32(32), kParam);
            if (session != 0) {
                EXPECT_TRUE(same_bytes(call.record, before));
            }
        }
    }
};

TEST_F(ConfigInputs, PackedServerGroupByteForByte) {
    Call call(256);
    ASSERT_EQ(routines()[1].compose(call.target(), 0), AAA_OK);
    std::string expected;
    const auto be32 = [&expected](uint32_t value) { expected += raw(__builtin_bswap32(value)); };
    be32(96);
    expected += std::string("\0\0\0\2", 4) + std::string(16, '\0');
    expected += "SG Config Request" + std::string(32 - 17, '\0');
    be32(1080), be32(0), be32(4), be32(0), expected += std::string("grp\0", 4);
    be32(1079), be32(0), be32(1), be32(0), expected += std::string("\1\0\0\0", 4);
    EXPECT_EQ(std::string(call.buffer.data(), call.iov[1].len), expected);
    EXPECT_EQ(call.buffer[96], '\x5A');
}

TEST_F(ConfigInputs, GlobalServerSends46BytesOfTheRecordDeliberately) {
    const Pairs pairs = composed([](const Target &t) {
        return aaa_util_msg_cfg_radsvr_compose(t.msg, &kServer, t.iov, t.count, t.buffer, t.size, 0);
    });
    ASSERT_EQ(pairs[0].value.size(), 46u);
    EXPECT_EQ(pairs[0].value.substr(0, 28), std::string(reinterpret_cast<const char *>(&kServer), 28));
    EXPECT_EQ(pairs[0].value.substr(28, 4), std::string(4, '\0'));
    EXPECT_EQ(pairs[0].value.substr(32), std::string(reinterpret_cast<const char *>(&kServer) + 32, 14));
}

TEST_F(ConfigInputs, TheCallersServerRecordIsNotChanged) {
    aaa_rad_server_t server = make_server();
    composed([&server](const Target &t) {
        return aaa_util_msg_cfg_radsvr_compose(t.msg, &server, t.iov, t.count, t.buffer, t.size, 0);
    });
    EXPECT_EQ(std::memcmp(&server, &kServer, sizeof server), 0);
}

TEST_F(ConfigInputs, ServerInGroupSendsOnlyTheAddress) {
    const Pairs pairs = composed([](const Target &t) {
        return aaa_util_msg_cfg_svr_in_sg_compose(t.msg, "g", &kServer, 2, t.iov, t.count, t.buffer, t.size,
                                                  0);
    });
    EXPECT_EQ(pairs[2].value, address_bytes());
}

TEST_F(ConfigInputs, OneMethodAndOneGroupStillSendFourAndFour) {
    const Pairs pairs = composed([](const Target &t) {
        return aaa_util_msg_cfg_authenlist_compose(t.msg, &kMethods, 1, t.iov, t.count, t.buffer, t.size, 0);
    });
    const auto count = [&pairs](uint32_t type) {
        return std::count_if(pairs.begin(), pairs.end(),
                             [type](const Pair &pair) { return pair.type == type; });
    };
    EXPECT_EQ(count(1084), 4);
    EXPECT_EQ(count(1080), 4);
}

TEST_F(ConfigInputs, MethodsTravelAsTheLowByteOfTheirSlotInSlotOrder) {
    aaa_method_list_t list = make_methods();
    list.method[0] = 0x100;
    list.method[1] = 0xFFFFFF07;
    list.method[2] = 3;
    list.method[3] = 0x80;
    const Pairs pairs = composed([&list](const Target &t) {
        return aaa_util_msg_cfg_authorlist_compose(t.msg, &list, 1, t.iov, t.count, t.buffer, t.size, 0);
    });
    EXPECT_EQ((Pairs{pairs[1], pairs[2], pairs[3], pairs[4]}),
              (Pairs{byte(1084, 0), byte(1084, 7), byte(1084, 3), byte(1084, 0x80)}));
}

TEST_F(ConfigInputs, NamesThatFillTheirSlotsAreSentWhole) {
    aaa_method_list_t list{};
    std::memset(list.name, 'n', sizeof list.name);
    for (auto &group : list.sg_name) {
        std::memset(group, 'g', sizeof group);
    }
    list.method[0] = 0x6E6E6E6E;  // no terminator after the name either
    const Pairs pairs = composed([&list](const Target &t) {
        return aaa_util_msg_cfg_authenlist_compose(t.msg, &list, 1, t.iov, t.count, t.buffer, t.size, 0);
    });
    const Pair group = text(1080, std::string(255, 'g'));
    EXPECT_EQ(pairs, (Pairs{text(1083, std::string(252, 'n')), byte(1084, 0x6E), byte(1084, 0), byte(1084, 0),
                            byte(1084, 0), group, group, group, group, byte(1079, 1)}));
}

TEST_F(ConfigInputs, TextAfterTheTerminatorOfASlotIsNotSent) {
    aaa_method_list_t list{};
    std::memset(&list, 'x', sizeof list);
    list.name[2] = '\0';
    for (auto &group : list.sg_name) {
        group[0] = '\0';
    }
    const Pairs pairs = composed([&list](const Target &t) {
        return aaa_util_msg_cfg_authenlist_compose(t.msg, &list, 1, t.iov, t.count, t.buffer, t.size, 0);
    });
    EXPECT_EQ(pairs[0], text(1083, "xx"));
    EXPECT_EQ(pairs[5], text(1080, ""));
}

TEST_F(ConfigInputs, EmptyTextsAreALoneTerminator) {
    const Pairs pairs = composed([](const Target &t) {
        return aaa_util_msg_cfg_vrf_in_sg_compose(t.msg, "", "", 1, t.iov, t.count, t.buffer, t.size, 0);
    });
    EXPECT_EQ(pairs, (Pairs{text(1080, ""), byte(1079, 1), text(1081, "")}));
}

TEST_F(ConfigInputs, MissingRecordsAndTextsAreRefused) {
    aaa_rad_server_t no_secret = make_server();
    no_secret.secret = nullptr;
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_radsvr_compose(t.msg, nullptr, t.iov, t.count, t.buffer, t.size, s);
    });
    expect_refused([&no_secret](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_radsvr_compose(t.msg, &no_secret, t.iov, t.count, t.buffer, t.size, s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_rad_svrgrp_compose(t.msg, nullptr, 1, t.iov, t.count, t.buffer, t.size, s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_svr_in_sg_compose(t.msg, nullptr, &kServer, 1, t.iov, t.count, t.buffer,
                                                  t.size, s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_svr_in_sg_compose(t.msg, "g", nullptr, 1, t.iov, t.count, t.buffer, t.size,
                                                  s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_vrf_in_sg_compose(t.msg, nullptr, "v", 1, t.iov, t.count, t.buffer, t.size,
                                                  s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_vrf_in_sg_compose(t.msg, "g", nullptr, 1, t.iov, t.count, t.buffer, t.size,
                                                  s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_src_intf_in_sg_compose(t.msg, nullptr, "v", 1, "g", t.iov, t.count, t.buffer,
                                                       t.size, s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_src_intf_in_sg_compose(t.msg, "i", nullptr, 1, "g", t.iov, t.count, t.buffer,
                                                       t.size, s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_src_intf_in_sg_compose(t.msg, "i", "v", 1, nullptr, t.iov, t.count, t.buffer,
                                                       t.size, s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_authenlist_compose(t.msg, nullptr, 1, t.iov, t.count, t.buffer, t.size, s);
    });
    expect_refused([](const Target &t, uint32_t s) {
        return aaa_util_msg_cfg_authorlist_compose(t.msg, nullptr, 1, t.iov, t.count, t.buffer, t.size, s);
    });
}

}  // namespace
