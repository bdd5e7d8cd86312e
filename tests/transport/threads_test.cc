// SPDX-License-Identifier: Apache-2.0
//
// Many threads of one process, each with its own handle, as in a daemon with
// login modules.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "aaa/aaautil.h"
#include "aaa/transport.h"
#include "support/temp_dir.hpp"
#include "support/transport.hpp"

namespace {

using transport_test::accept_from;
using transport_test::listen_at;
using transport_test::make_transport;
using transport_test::send_raw;
using transport_test::Transport;

constexpr unsigned kClients = 8;
constexpr unsigned kRounds = 40;

// Sends back what it receives, until the client has gone.
void echo(const Transport &client) {
    const auto message = std::make_unique<aaa_transport_msg_t>();
    while (aaa_transport_receive(client.get(), message.get(), AAA_TRANSPORT_NEVER) == AAA_OK) {
        EXPECT_TRUE(send_raw(client, {reinterpret_cast<const char *>(message->u.bytes), message->len}));
    }
}

// Accepts that many clients and serves each in a thread.
void serve(const Transport &listener, unsigned count) {
    std::vector<Transport> clients(count);
    std::vector<std::thread> threads;
    for (Transport &client : clients) {
        client = accept_from(listener);
        ASSERT_NE(client, nullptr);
        threads.emplace_back([&client] { echo(client); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// Expects a session packet whose list has a text of that length to return unchanged.
void ask_with_list(const Transport &client, uint32_t length, aaa_transport_msg_t *message) {
    avlist *list = nullptr;
    aaa_sess_request_t packet{};
    const std::string text(length, 't');
    ASSERT_EQ(aaa_avpair_create_list("packet", &list), AAA_OK);
    ASSERT_EQ(aaa_util_avpair_add_attr(list, AAA_REPLYMSG_ATTR, text.c_str(), length + 1, 0), AAA_OK);
    ASSERT_EQ(aaa_session_fill_request(&packet, list, AAA_REQ_AUTHEN, 0, 0), AAA_OK);
    ASSERT_EQ(aaa_transport_ask_packet(client.get(), &packet, sizeof packet, message, AAA_TRANSPORT_NEVER),
              AAA_OK);
    ASSERT_EQ(aaa_transport_unpack(message, sizeof packet, &list), AAA_OK);
    uint32_t found = 0;
    aaa_util_avlist_value_copy(list, AAA_REPLYMSG_ATTR, 0, nullptr, 0, &found);
    EXPECT_EQ(found, length + 1) << "another thread's list";
    aaa_avpair_free_list(list);
}

void converse(const std::string &path, unsigned seed) {
    std::mt19937 random(seed);
    const Transport client = make_transport();
    const auto message = std::make_unique<aaa_transport_msg_t>();
    ASSERT_EQ(aaa_transport_connect(client.get(), path.c_str(), AAA_TRANSPORT_ANY_USER, AAA_TRANSPORT_NEVER),
              AAA_OK);
    for (unsigned round = 1; round <= kRounds; round++) {
        std::string body(AAA_TRANSPORT_FIELDS + random() % 5000, static_cast<char>(seed));
        const iov_t element = {body.data(), body.size()};
        ASSERT_EQ(aaa_transport_ask(client.get(), &element, 1, message.get(), AAA_TRANSPORT_NEVER), AAA_OK);
        const std::string echoed(reinterpret_cast<const char *>(message->u.bytes), message->len);
        EXPECT_EQ(echoed.substr(AAA_TRANSPORT_FIELDS), body.substr(AAA_TRANSPORT_FIELDS))
            << "another thread's message";
        ask_with_list(client, static_cast<uint32_t>(random() % 3000), message.get());
    }
}

TEST(Threads, HandlesOfTheirOwnDoNotDisturbEachOther) {
    const TempDir dir;
    const Transport listeners[] = {listen_at(dir.path("a")), listen_at(dir.path("b"))};
    std::vector<std::thread> threads;
    for (const Transport &listener : listeners) {
        threads.emplace_back([&] { serve(listener, kClients); });
    }
    for (unsigned i = 0; i < 2 * kClients; i++) {
        threads.emplace_back([&, i] { converse(dir.path(i % 2 == 0 ? "a" : "b"), i + 1); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

}  // namespace
