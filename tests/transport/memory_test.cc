// SPDX-License-Identifier: Apache-2.0
//
// Exhausted memory gives a code, leaks nothing, and leaves the connection usable.

#include <gtest/gtest.h>

#include <memory>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "support/fail_alloc.hpp"
#include "support/temp_dir.hpp"
#include "support/transport.hpp"

namespace {

using transport_test::accept_from;
using transport_test::connect_to;
using transport_test::listen_at;
using transport_test::Transport;

TEST(Memory, AHandleThatCannotBeMadeIsNull) {
    fake::sweep_allocations([](fake::FailAlloc &fail) {
        auto *made = reinterpret_cast<aaa_transport_t *>(&fail);
        const cerrno rc = fail.run([&] { return aaa_transport_create(&made); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(made == nullptr, fail.fired());
        aaa_transport_free(made);
    });
}

TEST(Memory, APacketThatCannotBePackedIsNotSentAndItsListIsFreed) {
    const TempDir dir;
    const Transport listener = listen_at(dir.path("socket"));
    const Transport client = connect_to(dir.path("socket"));
    const Transport server = accept_from(listener);
    const auto message = std::make_unique<aaa_transport_msg_t>();
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        avlist *list = nullptr;
        aaa_sess_request_t packet{};
        ASSERT_EQ(aaa_avpair_create_list("packet", &list), AAA_OK);
        ASSERT_EQ(aaa_util_avlist_status_add(AAA_STAT_PASS, 4, list), AAA_OK);
        ASSERT_EQ(aaa_session_fill_request(&packet, list, AAA_REQ_AUTHEN, 0, 0), AAA_OK);
        const cerrno rc = fail.run([&] {
            return aaa_transport_send_packet(client.get(), &packet, sizeof packet, AAA_TRANSPORT_NOW);
        });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(aaa_transport_receive(server.get(), message.get(), AAA_TRANSPORT_NOW),
                  fail.fired() ? AAA_ERR_TIMEOUT : AAA_OK);
    });
    avlist *reply = nullptr;
    ASSERT_GT(message->len, sizeof(aaa_sess_request_t));
    fake::sweep_allocations([&](fake::FailAlloc &fail) {
        const cerrno rc =
            fail.run([&] { return aaa_transport_unpack(message.get(), sizeof(aaa_sess_request_t), &reply); });
        EXPECT_EQ(rc, fail.fired() ? AAA_ERR_NOMEM : AAA_OK);
        EXPECT_EQ(reply == nullptr, fail.fired());
        aaa_avpair_free_list(reply);
    });
}

}  // namespace
