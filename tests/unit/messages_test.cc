// SPDX-License-Identifier: Apache-2.0
//
// The messages that carry no attribute list: connect, disconnect, callback, ping, and the
// server's own.

#include "aaa/messages.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "aaa/names.h"
#include "support/fail_alloc.hpp"
#include "support/messages.hpp"

namespace {

using namespace messages;

constexpr uint32_t kMessage = 2;
constexpr char kFillFailed[] = "Composing config message: Failed in data fill";

class Envelope : public testing::Test {
  protected:
    void SetUp() override { fake::libc::set_pid(kPid); }
};

using MessageConnect = Envelope;
using MessageDisconnect = Envelope;
using MessageCallback = Envelope;
using MessagePing = Envelope;
using ServerConnect = Envelope;
using ServerDisconnect = Envelope;

uint8_t caller_block[64];
uint8_t caller_data[4];

cerrno connect(void *msg, const char *str1, const char *str2, iov_t **iov, uint32_t *count,
               uint32_t session) {
    return aaa_util_msg_conn_compose(msg, 0x11121314, 0x21222324, 0x31323334, 0x41424344, 0x51525354,
                                     0x61626364, str1, str2, iov, count, session);
}

Record &net_values(Record &record) {
    return record.net(40, 0x11121314)
        .net(44, 0x21222324)
        .net(48, 0x31323334)
        .net(52, 0x41424344)
        .net(56, 0x51525354)
        .net(60, 0x61626364);
}

// ---- What holds for all of them --------------------------------------------

using Compose = std::function<cerrno(void *msg, iov_t **iov, uint32_t *count, uint32_t session)>;

Compose server_connect(uint32_t param, void *block) {
    return [=](void *m, iov_t **i, uint32_t *c, uint32_t s) {
        return aaa_util_svrmsg_conn_compose(m, param, i, c, block, s);
    };
}

cerrno server_disconnect(void *m, iov_t **i, uint32_t *c, uint32_t s) {
    return aaa_util_svrmsg_disconn_compose(m, i, c, caller_data, s);
}

struct Routine {
    const char *name;
    Compose compose;
    uint32_t session_type;          // with every pointer there
    uint32_t session_type_missing;  // without iov_out or count_out
};

const std::vector<Routine> &routines() {
    static const std::vector<Routine> all = {
        {"connect", [](void *m, iov_t **i, uint32_t *c, uint32_t s) { return connect(m, "a", "b", i, c, s); },
         0, 0},
        {"disconnect", aaa_util_msg_disconn_compose, 0, 0},
        {"callback", aaa_util_msg_cb_compose, 8, 0},
        {"ping", aaa_util_msg_ping_compose, 9, 0},
        {"server connect", server_connect(7, caller_block), 0, 0},
        {"server disconnect", server_disconnect, 1, 1},
    };
    return all;
}

TEST_F(Envelope, ClassicMessagesRefuseMissingPointersAndTouchNothing) {
    for (const Routine &routine : routines()) {
        for (unsigned missing = 1; missing < 8; ++missing) {
            SCOPED_TRACE(testing::Message() << routine.name << " without " << missing);
            Record record;
            Iov iov;
            EXPECT_EQ(routine.compose((missing & 1) != 0 ? nullptr : record.data(),
                                      (missing & 2) != 0 ? nullptr : iov.out(),
                                      (missing & 4) != 0 ? nullptr : iov.count_out(), 0),
                      AAA_ERR_INVALID_ARG);
            EXPECT_TRUE(same_bytes(record, Record()));
            EXPECT_TRUE(iov.untouched());
        }
    }
    EXPECT_TRUE(fake::traces().empty());
}

TEST_F(Envelope, SessionPacketsHoldTheirTypeAndNeitherListNorValues) {
    for (const Routine &routine : routines()) {
        for (const uint32_t session : {1u, 2u, 0x80000000u}) {
            SCOPED_TRACE(routine.name);
            Record packet;
            Iov iov;
            Record expected = request_packet(packet, routine.session_type, nullptr);
            expected.zero(72, routine.session_type == 0 ? 36 : 4);
            EXPECT_EQ(routine.compose(packet.data(), iov.out(), iov.count_out(), session), AAA_OK);
            EXPECT_TRUE(same_bytes(packet, expected));
            EXPECT_TRUE(iov.untouched());
        }
    }
    EXPECT_TRUE(compose_traces().empty());
}

TEST_F(Envelope, SessionTypeFollowsTheOutPointersOfCallbackAndPingDeliberately) {
    for (const Routine &routine : routines()) {
        for (unsigned missing = 1; missing < 4; ++missing) {
            SCOPED_TRACE(testing::Message() << routine.name << " without " << missing);
            Record packet;
            Iov iov;
            EXPECT_EQ(routine.compose(packet.data(), (missing & 1) != 0 ? nullptr : iov.out(),
                                      (missing & 2) != 0 ? nullptr : iov.count_out(), 1),
                      AAA_OK);
            EXPECT_EQ(packet.u32(8), routine.session_type_missing);
            EXPECT_TRUE(iov.untouched());
        }
    }
}

TEST_F(Envelope, SessionModeWithoutAPacketLogsAndFails) {
    for (const Routine &routine : routines()) {
        for (const bool outputs : {true, false}) {
            SCOPED_TRACE(routine.name);
            fake::clear_journal();
            Iov iov;
            EXPECT_EQ(routine.compose(nullptr, outputs ? iov.out() : nullptr,
                                      outputs ? iov.count_out() : nullptr, 1),
                      AAA_ERR_INVALID_MSG_TYPE);
            EXPECT_TRUE(iov.untouched());
            EXPECT_EQ(fake::traces(), (Traces{{5, "Failed Invalid input: msg"}, {kMessage, kFillFailed}}));
        }
    }
}

TEST_F(Envelope, ExhaustedMemoryStoresNothing) {
    for (const Routine &routine : routines()) {
        SCOPED_TRACE(routine.name);
        fake::sweep_allocations([&routine](fake::FailAlloc &fail) {
            Record record;
            Iov iov;
            const cerrno rc =
                fail.run([&] { return routine.compose(record.data(), iov.out(), iov.count_out(), 0); });
            EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
            EXPECT_EQ(iov.untouched(), fail.fired());
        });
    }
}

// Transports place records where their buffers have room.
TEST_F(Envelope, RecordsNeedNoAlignment) {
    for (const Routine &routine : routines()) {
        for (const uint32_t session : {0u, 1u}) {
            SCOPED_TRACE(routine.name);
            Record storage;
            Record aligned;
            aligned.write(0, storage.at(1), Record::kSize - 1);
            Iov iov;
            Iov iov_aligned;
            EXPECT_EQ(routine.compose(storage.at(1), iov.out(), iov.count_out(), session), AAA_OK);
            EXPECT_EQ(routine.compose(aligned.data(), iov_aligned.out(), iov_aligned.count_out(), session),
                      AAA_OK);
            EXPECT_EQ(std::memcmp(storage.at(1), aligned.data(), Record::kSize - 1), 0);
        }
    }
}

TEST_F(Envelope, ClassicMessagesTraceNothing) {
    for (const Routine &routine : routines()) {
        Record record;
        Iov iov;
        EXPECT_EQ(routine.compose(record.data(), iov.out(), iov.count_out(), 0), AAA_OK);
    }
    EXPECT_TRUE(fake::traces().empty());
    EXPECT_TRUE(fake::calls().empty());
}

// ---- What each of them writes ----------------------------------------------

// The first element is this much of the record; the following ones are given.
void expect_classic(const Compose &compose, Record record, const Record &expected, uint64_t header,
                    const std::vector<iov_t> &further = {}) {
    Iov iov;
    EXPECT_EQ(compose(record.data(), iov.out(), iov.count_out(), 0), AAA_OK);
    EXPECT_TRUE(same_bytes(record, expected));
    ASSERT_EQ(iov.count(), 1 + further.size());
    EXPECT_TRUE(is_element(iov[0], record.data(), header));
    for (std::size_t i = 0; i < further.size(); ++i) {
        EXPECT_TRUE(is_element(iov[1 + i], further[i].base, further[i].len));
    }
}

iov_t element(const void *base, uint64_t len) {
    return {const_cast<void *>(base), len};
}

// ---- Types -----------------------------------------------------------------

TEST(MessageTypes, AreDescribedUpTo26) {
    const char *const descriptions[] = {
        "connect",       "disconnect",          "get large reply", "authentication", "async authentication",
        "authorization", "async authorization", "accounting",      "get callback",   "ping",
        "ikepost",       "get taskmap",         "free user data"};
    for (uint32_t type = 0; type < 13; ++type) {
        EXPECT_STREQ(aaa_util_msg_type_desc(type), descriptions[type]);
    }
    for (uint32_t type = 13; type < 25; ++type) {
        EXPECT_STREQ(aaa_util_msg_type_desc(type), "<unknown>") << type;
    }
    EXPECT_STREQ(aaa_util_msg_type_desc(25), "increment refcount");
    EXPECT_STREQ(aaa_util_msg_type_desc(26), "decrement refcount");
}

TEST(MessageTypes, LdapPolicySearchIsUnknownLikeAllAboveItDeliberately) {
    for (const uint32_t type : {27u, 28u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_STREQ(aaa_util_msg_type_desc(type), "<unknown>") << type;
    }
}

// ---- Connect ---------------------------------------------------------------

TEST_F(MessageConnect, WritesVersionValuesAndLengthInNetworkOrder) {
    const char first[] = "router";
    const char second[] = "console0";
    Record expected;
    net_values(expected).host(20, 0).net(32, 2).net(36, 0).net(64, 6);
    expect_classic(
        [&](void *m, iov_t **i, uint32_t *c, uint32_t s) { return connect(m, first, second, i, c, s); }, {},
        expected, 72, {element(first, 6), element(second, 8)});
}

TEST_F(MessageConnect, FieldsOfTheRecordTypeHaveTheOffsetsOfTheBytes) {
    aaa_conn_msg_t record{};
    Iov iov;
    ASSERT_EQ(connect(&record, "ab", nullptr, iov.out(), iov.count_out(), 0), AAA_OK);
    EXPECT_EQ(__builtin_bswap32(record.version), 2u);
    EXPECT_EQ(__builtin_bswap32(record.value[0]), 0x11121314u);
    EXPECT_EQ(__builtin_bswap32(record.value[5]), 0x61626364u);
    EXPECT_EQ(__builtin_bswap32(record.str1_len), 2u);
}

TEST_F(MessageConnect, AbsentStringsAreNullElementsOfLengthZero) {
    Record record;
    Iov iov;
    EXPECT_EQ(connect(record.data(), nullptr, nullptr, iov.out(), iov.count_out(), 0), AAA_OK);
    EXPECT_EQ(record.u32(64), 0u);
    ASSERT_EQ(iov.count(), 3u);
    EXPECT_TRUE(is_element(iov[1], nullptr, 0));
    EXPECT_TRUE(is_element(iov[2], nullptr, 0));
}

TEST_F(MessageConnect, OnlyTheFirstStringsLengthIsInTheRecord) {
    Record record;
    Iov iov;
    EXPECT_EQ(connect(record.data(), nullptr, "second", iov.out(), iov.count_out(), 0), AAA_OK);
    EXPECT_EQ(record.u32(64), 0u);
    EXPECT_EQ(iov[2].len, 6u);
}

TEST_F(MessageConnect, AnEmptyStringKeepsItsAddress) {
    Record record;
    Iov iov;
    const char empty[] = "";
    EXPECT_EQ(connect(record.data(), empty, empty, iov.out(), iov.count_out(), 0), AAA_OK);
    EXPECT_TRUE(is_element(iov[1], empty, 0));
    EXPECT_TRUE(is_element(iov[2], empty, 0));
}

// ---- Disconnect ------------------------------------------------------------

TEST_F(MessageDisconnect, IsAHeaderWithItsType) {
    Record expected;
    expected.host(20, 1);
    expect_classic(aaa_util_msg_disconn_compose, {}, expected, 32);
}

TEST_F(MessageDisconnect, SessionPacketCarriesTheConnectTypeDeliberately) {
    Record packet;
    Iov iov;
    EXPECT_EQ(aaa_util_msg_disconn_compose(packet.data(), iov.out(), iov.count_out(), 1), AAA_OK);
    EXPECT_EQ(packet.u32(8), 0u);
}

// ---- Callback --------------------------------------------------------------

TEST_F(MessageCallback, ConvertsTheCallersNumber) {
    Record record;
    record.host(32, 0x01020304);
    Record expected = record;
    expected.host(20, 8).net(32, 0x01020304);
    expect_classic(aaa_util_msg_cb_compose, record, expected, 36);
}

TEST_F(MessageCallback, ComposingTwiceTurnsTheNumberBackDeliberately) {
    Record record;
    record.host(32, 0x01020304);
    for (int i = 0; i < 2; ++i) {
        Iov iov;
        EXPECT_EQ(aaa_util_msg_cb_compose(record.data(), iov.out(), iov.count_out(), 0), AAA_OK);
    }
    EXPECT_EQ(record.u32(32), 0x01020304u);
}

// ---- Ping ------------------------------------------------------------------

TEST_F(MessagePing, IsAHeaderWithItsType) {
    Record expected;
    expected.host(20, 9);
    expect_classic(aaa_util_msg_ping_compose, {}, expected, 32);
}

// ---- The server's side -----------------------------------------------------

TEST_F(ServerConnect, CarriesTheParameterAndTheBlock) {
    Record expected;
    expected.host(20, 0).net(32, 0x0A0B0C0D);
    expect_classic(server_connect(0x0A0B0C0D, caller_block), {}, expected, 40, {element(caller_block, 64)});
}

TEST_F(ServerConnect, DoesNotLookAtTheBlock) {
    Record record;
    Iov iov;
    EXPECT_EQ(aaa_util_svrmsg_conn_compose(record.data(), 1, iov.out(), iov.count_out(), nullptr, 0), AAA_OK);
    EXPECT_TRUE(is_element(iov[1], nullptr, 64));
}

TEST_F(ServerDisconnect, LeavesItsWordInHostOrderDeliberately) {
    Record expected;
    expected.host(20, 1).host(32, 3);
    expect_classic(server_disconnect, {}, expected, 40, {element(caller_data, 4)});
}

TEST_F(ServerDisconnect, DoesNotLookAtTheData) {
    Record record;
    Iov iov;
    EXPECT_EQ(aaa_util_svrmsg_disconn_compose(record.data(), iov.out(), iov.count_out(), nullptr, 0), AAA_OK);
    EXPECT_TRUE(is_element(iov[1], nullptr, 4));
}

}  // namespace
